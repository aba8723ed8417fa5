// Movie timing arithmetic, formatted times, channel labels, and the timing tool and frame
// counts on movies made with ffmpeg.

#include <gtest/gtest.h>

#include <QFile>
#include <array>

#include "ClipList.h"
#include "QVQuickTime.h"
#include "QVTaskEx.h"
#include "TestMovies.h"

namespace {

// The tool built beside the test, where the application looks for it.
const QString kTool = ClipList::defaultToolPath();

const QTTrack kNtsc30{30, 30000, 30030};  // one second of 29.97 video

QString toolOutput(const QString& movie) {
    return QVTaskEx::stringFromTask(kTool, {movie, "-timing"});
}

// The frame counts a clip list uses: halves round away from zero, times from frames are
// floored, no rate gives no time, a movie that could not be opened has no frames.
TEST(QVQuickTime, FrameArithmetic) {
    EXPECT_EQ(QVQuickTime::frameCountForQTTime(QTTime{3000000, 30000, 0}, kNtsc30), 2997);
    EXPECT_EQ(QVQuickTime::frameCountForTimeValue(-1, 2, 1.0), -1);
    EXPECT_EQ(QVQuickTime::qtTimeFromFrame(2, 1000, 3.0).timeValue, 666);
    EXPECT_EQ(QVQuickTime::qtTimeFromFrame(5, 600, 0.0).timeValue, 0);
    EXPECT_EQ(QVQuickTime::frameCountForQTTime(QTTime{600, 600, 0}, nullptr), 0);
    // 1 h 2 min 3 s and half a second of 29.97 video; whole days are cut off.
    EXPECT_EQ(QVQuickTime::formattedQTTime(QTTime{(3723 * 30000) + 15000, 30000, 0}, 29.97),
              "01:02:03:15");
    EXPECT_EQ(QVQuickTime::formattedQTTime(QTTime{(25 * 3600) * 600, 600, 0}, 24.0), "01:00:00:00");
}

TEST(QVQuickTime, TimecodeToolAndFrameCountsOnMadeMovies) {
    const auto movies = TestMovies::create();
    if (!movies)
        GTEST_SKIP() << "ffmpeg/ffprobe not installed; cannot make test movies";
    // What a camera writes: name, rate, seconds, timecode, and the helper tool's answer.
    const std::vector<std::array<const char*, 5>> cases = {
        {"df2997.mov", "30000/1001", "1", "01:00:00;00", "30 1 1\n"},
        {"ndf2997.mov", "30000/1001", "1", "01:00:00:00", "30 1 0\n"},
        {"f23976.mov", "24000/1001", "2", "", "24 1 0\n"},
        {"f25.mov", "25", "2", "10:00:00:00", "25 0 0\n"},
        {"df5994.mov", "60000/1001", "1", "01:00:00;00", "60 1 1\n"},
        {"f12_5.mov", "25/2", "2", "", "13 0 0\n"},  // fractional, yet not NTSC
    };
    for (const auto& [name, rate, seconds, timecode, expected] : cases) {
        SCOPED_TRACE(name);
        const QString path = movies->file(QString::fromLatin1(name));
        ASSERT_TRUE(movies->make(path, QString::fromLatin1(rate), QString::fromLatin1(seconds),
                                 QString::fromLatin1(timecode)));
        EXPECT_EQ(toolOutput(path), QString::fromLatin1(expected));
        // Frame counts agree with the frames ffprobe decodes.
        const auto movie = QTMovie::open(path);
        ASSERT_TRUE(movie);
        const qint64 counted = movies->countedFrames(path);
        ASSERT_GT(counted, 0);
        EXPECT_EQ(movie->firstVideoTrack()->sampleCount, counted);
        EXPECT_EQ(QVQuickTime::frameCountForQTTime(movie->duration(), movie.get()), counted);
        // The last frame starts one frame before the end.
        const QTTime last = QVQuickTime::lastFrameTimeForMovie(movie.get());
        EXPECT_EQ(QVQuickTime::frameCountForQTTime(last, movie.get()), counted - 1);
    }

    // A file that is no movie, or none at all: nothing printed, a failing status.
    const QString text = movies->file("notes.mov");
    {
        QFile file(text);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("not a movie at all\n") > 0);
    }
    EXPECT_EQ(toolOutput(text), QString());
    for (const QString& path : {text, movies->file("missing.mov")}) {
        EXPECT_NE(QVTaskEx::terminationCodeFromTask(kTool, {path, "-timing"}), 0);
        EXPECT_EQ(QTMovie::open(path), nullptr);
    }
}

}  // namespace
