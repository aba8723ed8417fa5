#include "SampleCard.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "QVLog.h"
#include "SystemError.h"
#include "UniqueFd.h"

namespace {

constexpr int kMaximumClips = 999;
// Media is written in pieces of this size, so a large clip never sits in memory whole.
constexpr qsizetype kChunkBytes = 256 * 1024;
constexpr qsizetype kThumbnailBytes = 4096;

// splitmix64: well spread, and written out byte by byte so every machine makes the same card.
class ByteStream {
  public:
    explicit ByteStream(quint64 seed) : state_(seed) {}

    void fill(char* data, qsizetype size) {
        qsizetype done = 0;
        while (done < size) {
            const quint64 word = next();
            const qsizetype take = std::min<qsizetype>(8, size - done);
            for (qsizetype i = 0; i < take; ++i)
                data[done + i] = static_cast<char>(word >> (8 * i));
            done += take;
        }
    }

  private:
    quint64 next() {
        quint64 z = (state_ += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }

    quint64 state_;
};

// Each file draws its own stream, so no two clips on a card (or across seeds) share bytes.
quint64 fileSeed(quint32 seed, const QString& relative) {
    quint64 hash = 0xCBF29CE484222325ULL;  // FNV-1a
    for (const char byte : relative.toUtf8()) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= 0x100000001B3ULL;
    }
    return hash ^ (static_cast<quint64>(seed) * 0xD6E8FEB86659FD93ULL);
}

QString errnoText() {
    return SystemError::text(errno);
}

bool existsAt(const QString& path) {
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

// Writes a card's files under its root. The first failure sticks: later calls do nothing, so
// a layout reads as a plain list of entries and is checked once at the end.
class CardWriter {
  public:
    CardWriter(const QString& root, const SampleCard::Options& options)
        : root_(root), options_(options) {}

    bool ok() const { return error_.isEmpty(); }
    QString error() const { return error_; }
    const SampleCard::Options& options() const { return options_; }

    void folder(const QString& relative) {
        if (ok() && !QDir().mkpath(root_ + u'/' + relative))
            error_ = QStringLiteral("Unable to create the folder %1").arg(relative);
    }

    /// Pseudo-random media bytes from the file's own stream.
    void media(const QString& relative, qint64 bytes) {
        ByteStream stream(fileSeed(options_.seed, relative));
        write(relative, bytes, [&stream](char* data, qsizetype size) { stream.fill(data, size); });
    }

    void text(const QString& relative, const QString& content) {
        bytes(relative, content.toUtf8());
    }

    void bytes(const QString& relative, const QByteArray& content) {
        qsizetype offset = 0;
        write(relative, content.size(), [&content, &offset](char* data, qsizetype size) {
            std::memcpy(data, content.constData() + offset, static_cast<size_t>(size));
            offset += size;
        });
    }

    /// A small per-clip metadata file, made only when sidecars are asked for.
    void sidecar(const QString& relative, const QString& content) {
        if (options_.sidecars)
            text(relative, content);
    }

    /// A small thumbnail: the image format's signature followed by pseudo-random bytes.
    void thumbnail(const QString& relative, const QByteArray& signature) {
        if (!options_.sidecars)
            return;
        QByteArray content(kThumbnailBytes, '\0');
        std::memcpy(content.data(), signature.constData(), static_cast<size_t>(signature.size()));
        ByteStream(fileSeed(options_.seed, relative))
            .fill(content.data() + signature.size(), content.size() - signature.size());
        bytes(relative, content);
    }

  private:
    template <typename Fill>
    void write(const QString& relative, qint64 total, Fill fill) {
        if (!ok())
            return;
        const QString path = root_ + u'/' + relative;
        if (!QDir().mkpath(QFileInfo(path).path())) {
            error_ = QStringLiteral("Unable to create the folder for %1").arg(relative);
            return;
        }
        UniqueFd fd(::open(QFile::encodeName(path).constData(),
                           O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        if (!fd.valid()) {
            error_ = QStringLiteral("Unable to create %1: %2").arg(relative, errnoText());
            return;
        }
        std::vector<char> chunk(static_cast<size_t>(std::min<qint64>(total, kChunkBytes)));
        for (qint64 written = 0; written < total;) {
            const qsizetype size = std::min<qint64>(total - written, kChunkBytes);
            fill(chunk.data(), size);
            if (!writeAll(fd.get(), chunk.data(), size)) {
                error_ = QStringLiteral("Unable to write %1: %2").arg(relative, errnoText());
                return;
            }
            written += size;
        }
        if (fd.close() != 0)
            error_ = QStringLiteral("Unable to write %1: %2").arg(relative, errnoText());
    }

    static bool writeAll(int fd, const char* data, qsizetype size) {
        while (size > 0) {
            const ssize_t done = ::write(fd, data, static_cast<size_t>(size));
            if (done < 0 && errno == EINTR)
                continue;
            if (done <= 0)
                return false;
            data += done;
            size -= done;
        }
        return true;
    }

    const QString root_;
    const SampleCard::Options options_;
    QString error_;
};

QString escaped(const QString& text) {
    return text.toHtmlEscaped();
}

QString timecode(int clip) {
    return QString::asprintf("01:%02d:%02d:00", (clip - 1) / 6 % 60, (clip - 1) % 6 * 10);
}

// The metadata a camera keeps beside a clip, reduced to what identifies it.
QString clipXml(const char* format, const QString& name, int clip, qint64 bytes) {
    return QStringLiteral(
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<ClipMetadata format=\"%1\">\n"
               "  <ClipName>%2</ClipName>\n"
               "  <StartTimecode>%3</StartTimecode>\n"
               "  <Duration>250</Duration>\n"
               "  <EditUnit>25/1</EditUnit>\n"
               "  <EssenceBytes>%4</EssenceBytes>\n"
               "</ClipMetadata>\n")
        .arg(QLatin1String(format), escaped(name), timecode(clip), QString::number(bytes));
}

// A card-level list of clips, as the XDCAM families keep in MEDIAPRO.XML.
QString mediaProfile(const QStringList& uris, const char* type) {
    QString materials;
    for (const QString& uri : uris) {
        materials += QStringLiteral("    <Material uri=\"%1\" type=\"%2\"/>\n")
                         .arg(escaped(uri), QLatin1String(type));
    }
    return QStringLiteral(
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<MediaProfile createdAt=\"2012-01-01T12:00:00Z\" version=\"1.20\">\n"
               "  <Contents>\n%1  </Contents>\n"
               "</MediaProfile>\n")
        .arg(materials);
}

void makeP2(CardWriter& card) {
    const SampleCard::Options& options = card.options();
    for (const char* folder : {"VIDEO", "AUDIO", "CLIP", "ICON", "PROXY", "VOICE"})
        card.folder(QStringLiteral("CONTENTS/") + QLatin1String(folder));
    QString last;
    for (int clip = 1; clip <= options.clips; ++clip) {
        last = QString::asprintf("%04dAB", clip);
        card.media(QStringLiteral("CONTENTS/VIDEO/%1.MXF").arg(last), options.clipBytes);
        for (int channel = 0; channel < 2; ++channel) {
            card.media(QStringLiteral("CONTENTS/AUDIO/%1%2.MXF")
                           .arg(last, QString::asprintf("%02d", channel)),
                       options.clipBytes / 8);
        }
        card.media(QStringLiteral("CONTENTS/PROXY/%1.MP4").arg(last), options.clipBytes / 16);
        card.sidecar(QStringLiteral("CONTENTS/CLIP/%1.XML").arg(last),
                     clipXml("P2", last, clip, options.clipBytes));
        card.thumbnail(QStringLiteral("CONTENTS/ICON/%1.BMP").arg(last), "BM");
    }
    card.text(QStringLiteral("CONTENTS/LASTCLIP.TXT"), last + QStringLiteral("\r\n"));
}

void makeRed(CardWriter& card) {
    const SampleCard::Options& options = card.options();
    const QString magazine = QStringLiteral("A001_0101AB.RDM");
    for (int clip = 1; clip <= options.clips; ++clip) {
        const QString name = QString::asprintf("A001_C%03d_0101AB", clip);
        const QString folder = magazine + u'/' + name + QStringLiteral(".RDC/");
        card.media(folder + name + QStringLiteral("_001.R3D"), options.clipBytes);
        card.sidecar(folder + name + QStringLiteral(".RMD"),
                     clipXml("RED", name, clip, options.clipBytes));
    }
}

void makeXdcam(CardWriter& card) {
    const SampleCard::Options& options = card.options();
    for (const char* folder : {"Clip", "Sub", "General", "Edit"})
        card.folder(QLatin1String(folder));
    QStringList uris;
    for (int clip = 1; clip <= options.clips; ++clip) {
        const QString name = QString::asprintf("C%04d", clip);
        card.media(QStringLiteral("Clip/%1.MXF").arg(name), options.clipBytes);
        card.media(QStringLiteral("Sub/%1S01.MXF").arg(name), options.clipBytes / 16);
        card.sidecar(QStringLiteral("Clip/%1M01.XML").arg(name),
                     clipXml("XDCAM", name, clip, options.clipBytes));
        uris << QStringLiteral("./Clip/%1.MXF").arg(name);
    }
    card.text(QStringLiteral("MEDIAPRO.XML"), mediaProfile(uris, "MXF"));
}

void makeXdcamEx(CardWriter& card) {
    const SampleCard::Options& options = card.options();
    card.folder(QStringLiteral("BPAV/TAKR"));
    QStringList uris;
    for (int clip = 1; clip <= options.clips; ++clip) {
        const QString name = QString::asprintf("800_%04d_01", clip);
        const QString folder = QStringLiteral("BPAV/CLPR/%1/%1").arg(name);
        card.media(folder + QStringLiteral(".MP4"), options.clipBytes);
        card.sidecar(folder + QStringLiteral("M01.XML"),
                     clipXml("XDCAM EX", name, clip, options.clipBytes));
        card.thumbnail(folder + QStringLiteral("I01.PPN"), QByteArray("\xFF\xD8\xFF\xE0", 4));
        uris << QStringLiteral("./CLPR/%1/%1.MP4").arg(name);
    }
    card.text(QStringLiteral("BPAV/MEDIAPRO.XML"), mediaProfile(uris, "MP4"));
    card.text(QStringLiteral("BPAV/CUEUP.XML"),
              QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CueUpInfo/>\n"));
}

// Index files of AVCHD and Canon XF cards carry a four-character type and a version up front.
QByteArray indexHeader(const char* type) {
    QByteArray header(type);
    header += "0100";
    header += QByteArray(40, '\0');
    return header;
}

void makeAvchd(CardWriter& card) {
    const SampleCard::Options& options = card.options();
    const QString bdmv = QStringLiteral("PRIVATE/AVCHD/BDMV/");
    for (const char* folder : {"STREAM", "CLIPINF", "PLAYLIST", "BACKUP"})
        card.folder(bdmv + QLatin1String(folder));
    for (int clip = 1; clip <= options.clips; ++clip) {
        const QString name = QString::asprintf("%05d", clip - 1);
        card.media(bdmv + QStringLiteral("STREAM/%1.MTS").arg(name), options.clipBytes);
        if (options.sidecars)
            card.bytes(bdmv + QStringLiteral("CLIPINF/%1.CPI").arg(name), indexHeader("HDMV"));
    }
    for (const QString& folder : {bdmv, bdmv + QStringLiteral("BACKUP/")}) {
        card.bytes(folder + QStringLiteral("INDEX.BDM"), indexHeader("INDX"));
        card.bytes(folder + QStringLiteral("MOVIEOBJ.BDM"), indexHeader("MOBJ"));
    }
    card.bytes(bdmv + QStringLiteral("PLAYLIST/00000.MPL"), indexHeader("MPLS"));
}

void makeEos(CardWriter& card) {
    const SampleCard::Options& options = card.options();
    card.folder(QStringLiteral("DCIM/100EOS5D"));
    for (int clip = 1; clip <= options.clips; ++clip) {
        const QString name = QString::asprintf("DCIM/100EOS5D/MVI_%04d", clip);
        card.media(name + QStringLiteral(".MOV"), options.clipBytes);
        card.thumbnail(name + QStringLiteral(".THM"), QByteArray("\xFF\xD8\xFF\xE1", 4));
    }
}

// The reel folder carries the card's name; its edit list names every movie in it.
void makeArri(CardWriter& card, const QString& reel) {
    const SampleCard::Options& options = card.options();
    QString clips;
    for (int clip = 1; clip <= options.clips; ++clip) {
        const QString take = reel.left(4) + QString::asprintf("C%03d_120101_R1AB", clip);
        const QString name = take + QStringLiteral(".mov");
        card.media(reel + u'/' + name, options.clipBytes);
        clips += QStringLiteral(
                     "      <clip id=\"%1\"><name>%1</name><file><pathurl>%2</pathurl>"
                     "</file></clip>\n")
                     .arg(escaped(take), escaped(name));
    }
    card.text(reel + u'/' + reel + QStringLiteral("_FCP.xml"),
              QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                             "<!DOCTYPE xmeml>\n"
                             "<xmeml version=\"5\">\n"
                             "  <bin>\n    <name>%1</name>\n    <children>\n%2"
                             "    </children>\n  </bin>\n"
                             "</xmeml>\n")
                  .arg(escaped(reel), clips));
}

void makeCanonXf(CardWriter& card) {
    const SampleCard::Options& options = card.options();
    const QString clips = QStringLiteral("CONTENTS/CLIPS001/");
    for (int clip = 1; clip <= options.clips; ++clip) {
        const QString name = QString::asprintf("AA%04d", clip);
        const QString folder = clips + name + u'/' + name;
        card.media(folder + QStringLiteral(".MXF"), options.clipBytes);
        card.sidecar(folder + QStringLiteral(".XML"),
                     clipXml("Canon XF", name, clip, options.clipBytes));
    }
    card.bytes(clips + QStringLiteral("INDEX.MIF"), indexHeader("MIF "));
}

// What a desktop leaves on a card it has browsed.
void makeHiddenFiles(CardWriter& card) {
    card.folder(QStringLiteral(".Trashes"));
    // AppleDouble: magic, version 2, sixteen bytes of filler, no entries.
    QByteArray appleDouble("\x00\x05\x16\x07\x00\x02\x00\x00", 8);
    appleDouble += QByteArray(16, '\0') + QByteArray(2, '\0');
    card.bytes(QStringLiteral("._A.MXF"), appleDouble);
    QByteArray desktopStore(
        "\x00\x00\x00\x01"
        "Bud1",
        8);
    desktopStore += QByteArray(24, '\0');
    card.bytes(QStringLiteral(".DS_Store"), desktopStore);
}

QString checkOptions(CardFormat format, const QString& name, const SampleCard::Options& options) {
    if (SampleCard::folderName(format).isEmpty())
        return QStringLiteral("Unknown card format %1").arg(static_cast<int>(format));
    if (options.clips < 1 || options.clips > kMaximumClips)
        return QStringLiteral("A card holds 1 to %1 clips, not %2")
            .arg(kMaximumClips)
            .arg(options.clips);
    if (options.clipBytes < 0)
        return QStringLiteral("A clip can't have %1 bytes").arg(options.clipBytes);
    if (format == CardFormat::ARRI && name.size() < 4)
        return QStringLiteral("An ARRI card's folder name needs four or more characters: \"%1\"")
            .arg(name);
    return QString();
}

// Removes everything made for a failed card: the topmost folder created, or else the contents
// of the root, which was empty before.
void removeMade(const QString& root, const QString& createdTop) {
    if (!createdTop.isEmpty()) {
        QDir(createdTop).removeRecursively();
        return;
    }
    const QDir folder(root);
    const QFileInfoList entries =
        folder.entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    for (const QFileInfo& entry : entries) {
        if (entry.isDir() && !entry.isSymLink())
            QDir(entry.filePath()).removeRecursively();
        else
            QFile::remove(entry.filePath());
    }
}

// The outermost missing folder on the way to path; empty when path already exists.
QString outermostMissing(const QString& path) {
    QString missing;
    for (QString current = path; !existsAt(current); current = QFileInfo(current).path()) {
        missing = current;
        if (current == QLatin1String("/"))
            break;
    }
    return missing;
}

bool fail(const QString& root, const QString& reason, QString* error) {
    QVLog::appendLog(u"Unable to make a sample card at %@: %@", root, reason);
    if (error)
        *error = reason;
    return false;
}

}  // namespace

bool SampleCard::make(CardFormat format, const QString& root) {
    return make(format, root, Options());
}

bool SampleCard::make(CardFormat format, const QString& root, const Options& options,
                      QString* error) {
    if (root.isEmpty())
        return fail(root, QStringLiteral("No folder given for the card"), error);
    const QString path = QDir::cleanPath(QFileInfo(root).absoluteFilePath());
    const QString reason = checkOptions(format, QFileInfo(path).fileName(), options);
    if (!reason.isEmpty())
        return fail(path, reason, error);

    const QString createdTop = outermostMissing(path);
    if (createdTop.isEmpty()) {
        if (!QFileInfo(path).isDir())
            return fail(path, QStringLiteral("%1 is not a folder").arg(path), error);
        if (!QDir(path).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden |
                                QDir::System))
            return fail(path, QStringLiteral("The folder %1 is not empty").arg(path), error);
    } else if (!QDir().mkpath(path)) {
        removeMade(path, createdTop);
        return fail(path, QStringLiteral("Unable to create the folder %1").arg(path), error);
    }

    CardWriter card(path, options);
    switch (format) {
        case CardFormat::P2:
            makeP2(card);
            break;
        case CardFormat::RED:
            makeRed(card);
            break;
        case CardFormat::XDCAM:
            makeXdcam(card);
            break;
        case CardFormat::XDCAMEX:
            makeXdcamEx(card);
            break;
        case CardFormat::AVCHD:
            makeAvchd(card);
            break;
        case CardFormat::EOSHD:
            makeEos(card);
            break;
        case CardFormat::ARRI:
            makeArri(card, QFileInfo(path).fileName());
            break;
        case CardFormat::CanonXF:
            makeCanonXf(card);
            break;
        case CardFormat::Unknown:
            break;
    }
    if (options.hiddenFiles)
        makeHiddenFiles(card);
    if (card.ok())
        return true;
    removeMade(path, createdTop);
    return fail(path, card.error(), error);
}

QString SampleCard::folderName(CardFormat format) {
    switch (format) {
        case CardFormat::P2:
            return QStringLiteral("P2CARD");
        case CardFormat::RED:
            return QStringLiteral("RED_A001");
        case CardFormat::XDCAM:
            return QStringLiteral("XDCAM");
        case CardFormat::XDCAMEX:
            return QStringLiteral("XDCAMEX");
        case CardFormat::AVCHD:
            return QStringLiteral("AVCHD");
        case CardFormat::EOSHD:
            return QStringLiteral("EOS_DIGITAL");
        case CardFormat::ARRI:
            return QStringLiteral("A001");
        case CardFormat::CanonXF:
            return QStringLiteral("CANONXF");
        case CardFormat::Unknown:
            break;
    }
    return QString();
}
