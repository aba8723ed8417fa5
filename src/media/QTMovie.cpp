#include "QTMovie.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/log.h>
#include <libavutil/rational.h>
}

#include <QFile>
#include <QFileInfo>
#include <cmath>

namespace {

struct InputCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
using Input = std::unique_ptr<AVFormatContext, InputCloser>;

struct DictionaryFreer {
    void operator()(AVDictionary* dictionary) const { av_dict_free(&dictionary); }
};

struct PacketFreer {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

constexpr int kDropFrameFlag = 0x0001;  // bit 0 of a QuickTime timecode description's flags
constexpr int kTimecodeDescriptionSize = 17;

Input openInput(const QString& path) {
    // "file:" keeps names such as "concat:x" or "a|b" from being read as protocols, and the
    // whitelist keeps a movie's data references from reaching beyond local files.
    const QByteArray url = "file:" + QFile::encodeName(QFileInfo(path).absoluteFilePath());
    AVDictionary* rawOptions = nullptr;
    av_dict_set(&rawOptions, "protocol_whitelist", "file", 0);
    AVFormatContext* raw = nullptr;
    const int opened = avformat_open_input(&raw, url.constData(), nullptr, &rawOptions);
    const std::unique_ptr<AVDictionary, DictionaryFreer> options(rawOptions);
    if (opened < 0)
        return nullptr;
    Input input(raw);
    if (avformat_find_stream_info(input.get(), nullptr) < 0)
        return nullptr;
    return input;
}

const AVStream* firstVideoStream(const AVFormatContext& input) {
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream* stream = input.streams[i];
        if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
            !(stream->disposition & AV_DISPOSITION_ATTACHED_PIC))
            return stream;
    }
    return nullptr;
}

const AVStream* timecodeStream(const AVFormatContext& input) {
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream* stream = input.streams[i];
        if (stream->codecpar->codec_tag == MKTAG('t', 'm', 'c', 'd'))
            return stream;
    }
    return nullptr;
}

// Counts the stream's packets when the container keeps no sample count (e.g. some MP4s
// written in fragments); reading packets does not decode them.
qint64 countPackets(AVFormatContext& input, int streamIndex) {
    const std::unique_ptr<AVPacket, PacketFreer> packet(av_packet_alloc());
    if (!packet)
        return 0;
    qint64 count = 0;
    while (av_read_frame(&input, packet.get()) >= 0) {
        if (packet->stream_index == streamIndex)
            ++count;
        av_packet_unref(packet.get());
    }
    return count;
}

QTTrack trackOf(AVFormatContext& input, const AVStream& stream) {
    QTTrack track;
    track.timeScale = stream.time_base.den;
    if (stream.duration != AV_NOPTS_VALUE) {
        track.duration = stream.duration * stream.time_base.num;
    } else if (input.duration != AV_NOPTS_VALUE) {
        track.duration =
            av_rescale_q(input.duration, AV_TIME_BASE_Q, stream.time_base) * stream.time_base.num;
    }
    track.sampleCount = stream.nb_frames > 0 ? stream.nb_frames : countPackets(input, stream.index);
    return track;
}

QTTime movieDuration(const AVFormatContext& input, const std::optional<QTTrack>& video) {
    const qint32 scale = video && video->timeScale > 0 ? video->timeScale : AV_TIME_BASE;
    if (input.duration == AV_NOPTS_VALUE)
        return {video ? video->duration : 0, scale, 0};
    return {av_rescale_q(input.duration, AV_TIME_BASE_Q, AVRational{1, scale}), scale, 0};
}

QString timecodeText(const AVStream* stream) {
    if (!stream)
        return {};
    const AVDictionaryEntry* entry = av_dict_get(stream->metadata, "timecode", nullptr, 0);
    return entry ? QString::fromUtf8(entry->value) : QString();
}

// Drop-frame timecode is written with ";" (or "." / ",") before the frames.
bool textSaysDropFrame(const QString& timecode) {
    return timecode.contains(u';') || timecode.contains(u'.') || timecode.contains(u',');
}

// NTSC means the timebase slowed by 1000/1001. Other fractional rates (12.5, the average of
// a variable-rate clip) are not: only a rate within a quarter of that slowdown counts.
bool isNtscRate(double rate, int timebase) {
    const double ntscRate = timebase * 1000.0 / 1001.0;
    return std::abs(rate - ntscRate) < (timebase - ntscRate) / 4;
}

QTMovie::Timing timingFromRate(AVRational rate, bool dropFrame) {
    QTMovie::Timing timing;
    timing.timebase = static_cast<int>(std::lround(av_q2d(rate)));
    timing.ntsc = isNtscRate(av_q2d(rate), timing.timebase);
    timing.dropFrame = dropFrame;
    return timing;
}

std::optional<QTMovie::Timing> timingFromTimecodeTrack(const AVStream& stream) {
    const AVCodecParameters& parameters = *stream.codecpar;
    if (parameters.extradata && parameters.extradata_size >= kTimecodeDescriptionSize) {
        const quint8* description = parameters.extradata;
        const quint32 flags = AV_RB32(description + 4);
        const qint64 timeScale = AV_RB32(description + 8);
        const qint64 frameDuration = AV_RB32(description + 12);
        const int quanta = description[16];
        if (frameDuration > 0 && timeScale > 0) {
            QTMovie::Timing timing;
            timing.timebase =
                quanta > 0
                    ? quanta
                    : static_cast<int>(std::lround(static_cast<double>(timeScale) / frameDuration));
            timing.ntsc =
                isNtscRate(static_cast<double>(timeScale) / frameDuration, timing.timebase);
            timing.dropFrame = (flags & kDropFrameFlag) != 0;
            return timing;
        }
    }
    if (stream.avg_frame_rate.num > 0 && stream.avg_frame_rate.den > 0)
        return timingFromRate(stream.avg_frame_rate, textSaysDropFrame(timecodeText(&stream)));
    return std::nullopt;
}

std::optional<QTMovie::Timing> timingOf(const AVFormatContext& input, const AVStream* video) {
    if (const AVStream* timecode = timecodeStream(input)) {
        if (const auto timing = timingFromTimecodeTrack(*timecode))
            return timing;
    }
    if (!video)
        return std::nullopt;
    AVRational rate = video->avg_frame_rate;
    if (rate.num <= 0 || rate.den <= 0)
        rate = video->r_frame_rate;
    if (rate.num <= 0 || rate.den <= 0)
        return std::nullopt;
    QString text = timecodeText(video);
    if (const AVDictionaryEntry* entry = av_dict_get(input.metadata, "timecode", nullptr, 0);
        text.isEmpty() && entry)
        text = QString::fromUtf8(entry->value);
    return timingFromRate(rate, textSaysDropFrame(text));
}

}  // namespace

std::optional<QTMovie::Timing> QTMovie::timingOfMovie(const QString& path) {
    const Input input = openInput(path);
    if (!input)
        return std::nullopt;
    return timingOf(*input, firstVideoStream(*input));
}

std::unique_ptr<QTMovie> QTMovie::open(const QString& path) {
    const Input input = openInput(path);
    if (!input)
        return nullptr;
    auto movie = std::make_unique<QTMovie>(Token{});
    movie->path_ = path;
    const AVStream* video = firstVideoStream(*input);
    movie->timing_ = timingOf(*input, video);
    if (video)
        movie->videoTrack_ = trackOf(*input, *video);
    movie->duration_ = movieDuration(*input, movie->videoTrack_);
    return movie;
}

void QTMovie::quietLibraryMessages() {
    av_log_set_level(AV_LOG_QUIET);
}
