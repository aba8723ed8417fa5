#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <iterator>
#include <map>
#include <set>

#include "CardFormat.h"
#include "CardsweepVolumeChecker.h"
#include "SampleCard.h"

namespace {

constexpr CardFormat kFormats[] = {CardFormat::P2,      CardFormat::RED,    CardFormat::XDCAM,
                                   CardFormat::XDCAMEX, CardFormat::AVCHD,  CardFormat::EOSHD,
                                   CardFormat::ARRI,    CardFormat::CanonXF};

struct Layout {
    const char* clip;     // the first clip's main media file
    const char* sidecar;  // a per-clip metadata file; nullptr when the format has none
};

// Where the cameras put things, independently of how the maker builds the names.
Layout layoutOf(CardFormat format) {
    switch (format) {
        case CardFormat::P2:
            return {"CONTENTS/VIDEO/0001AB.MXF", "CONTENTS/CLIP/0001AB.XML"};
        case CardFormat::RED:
            return {"A001_0101AB.RDM/A001_C001_0101AB.RDC/A001_C001_0101AB_001.R3D",
                    "A001_0101AB.RDM/A001_C001_0101AB.RDC/A001_C001_0101AB.RMD"};
        case CardFormat::XDCAM:
            return {"Clip/C0001.MXF", "Clip/C0001M01.XML"};
        case CardFormat::XDCAMEX:
            return {"BPAV/CLPR/800_0001_01/800_0001_01.MP4",
                    "BPAV/CLPR/800_0001_01/800_0001_01M01.XML"};
        case CardFormat::AVCHD:
            return {"PRIVATE/AVCHD/BDMV/STREAM/00000.MTS", "PRIVATE/AVCHD/BDMV/CLIPINF/00000.CPI"};
        case CardFormat::EOSHD:
            return {"DCIM/100EOS5D/MVI_0001.MOV", "DCIM/100EOS5D/MVI_0001.THM"};
        case CardFormat::ARRI:
            return {"A001/A001C001_120101_R1AB.mov", nullptr};
        case CardFormat::CanonXF:
            return {"CONTENTS/CLIPS001/AA0001/AA0001.MXF", "CONTENTS/CLIPS001/AA0001/AA0001.XML"};
        case CardFormat::Unknown:
            break;
    }
    return {nullptr, nullptr};
}

int code(CardFormat format) {
    return static_cast<int>(format);
}

QByteArray digest(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray("unreadable");
    QCryptographicHash hash(QCryptographicHash::Md5);
    hash.addData(&file);
    return hash.result();
}

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every entry under root, hidden ones included: relative path -> digest ("/" for folders).
std::map<QString, QByteArray> tree(const QString& root) {
    std::map<QString, QByteArray> entries;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        entries[QDir(root).relativeFilePath(path)] =
            it.fileInfo().isDir() ? QByteArray("/") : digest(path);
    }
    return entries;
}

QStringList entriesOf(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden |
                                  QDir::System);
}

// Cards in folders of their own, each named as its format suggests unless told otherwise.
class Cards {
  public:
    QString path(CardFormat format, const QString& name = QString()) {
        const QString card = name.isEmpty() ? SampleCard::folderName(format) : name;
        return dir_.filePath(QString::number(++count_)) + u'/' + card;
    }
    QString make(CardFormat format, const SampleCard::Options& options,
                 const QString& name = QString()) {
        const QString card = path(format, name);
        QString error;
        EXPECT_TRUE(SampleCard::make(format, card, options, &error)) << error.toStdString();
        return card;
    }
    QString root() const { return dir_.path(); }

  private:
    QTemporaryDir dir_;
    int count_ = 0;
};

SampleCard::Options small(qint64 clipBytes = 1000, quint32 seed = 1) {
    SampleCard::Options options;
    options.clips = 2;
    options.clipBytes = clipBytes;
    options.seed = seed;
    return options;
}

// Lowers the file-size limit of the whole process for as long as it lives, so the next write
// beyond it fails with EFBIG instead of raising SIGXFSZ.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &saved_);
        savedHandler_ = ::signal(SIGXFSZ, SIG_IGN);
        rlimit lowered = saved_;
        lowered.rlim_cur = bytes;
        ok_ = ::setrlimit(RLIMIT_FSIZE, &lowered) == 0;
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &saved_);
        ::signal(SIGXFSZ, savedHandler_);
    }
    bool ok() const { return ok_; }

  private:
    rlimit saved_{};
    sighandler_t savedHandler_ = SIG_DFL;
    bool ok_ = false;
};

}  // namespace

TEST(SampleCard, EachFormatIsRecognisedAndLaidOutAsItsCamerasWriteIt) {
    Cards cards;
    std::set<QString> names;
    for (const CardFormat format : kFormats) {
        SCOPED_TRACE(static_cast<int>(format));
        const QString name = SampleCard::folderName(format);
        EXPECT_GE(name.size(), 4);
        names.insert(name);

        const Layout layout = layoutOf(format);
        const QString card = cards.make(format, small(1000));
        EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(card), code(format));
        EXPECT_EQ(QFileInfo(card + u'/' + QLatin1String(layout.clip)).size(), 1000);
        const QString sidecar = QLatin1String(layout.sidecar);
        EXPECT_TRUE(sidecar.isEmpty() || QFileInfo::exists(card + u'/' + sidecar));
        EXPECT_TRUE(QFileInfo(card + "/.Trashes").isDir());
        EXPECT_TRUE(contents(card + "/._A.MXF").startsWith(QByteArray("\x00\x05\x16\x07", 4)));
        EXPECT_TRUE(QFileInfo(card + "/.DS_Store").isFile());

        // Bare cards, without what a desktop or the camera's metadata adds, still read as theirs.
        SampleCard::Options bare = small(1000);
        bare.hiddenFiles = false;
        bare.sidecars = false;
        const QString plain = cards.make(format, bare);
        EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(plain), code(format));
        EXPECT_TRUE(QFileInfo::exists(plain + u'/' + QLatin1String(layout.clip)));
        EXPECT_TRUE(sidecar.isEmpty() || !QFileInfo::exists(plain + u'/' + sidecar));
        for (const QString& entry : entriesOf(plain))
            EXPECT_FALSE(entry.startsWith(u'.')) << entry.toStdString();
    }
    EXPECT_EQ(names.size(), std::size(kFormats));
    EXPECT_TRUE(SampleCard::folderName(CardFormat::Unknown).isEmpty());

    // The defaults the demo relies on: three clips of 1 MiB, each with a 4 KiB thumbnail.
    const QString eos = cards.path(CardFormat::EOSHD);
    ASSERT_TRUE(SampleCard::make(CardFormat::EOSHD, eos));
    EXPECT_EQ(SampleCard::mediaBytes(eos), 3 * ((1 << 20) + 4096));

    // The reel takes the card's name, whatever characters it holds.
    const QString odd = QString::fromUtf8("A 'b\"$(x) %1 -n <&>");
    const QString arri = cards.make(CardFormat::ARRI, small(10), odd);
    EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(arri), code(CardFormat::ARRI));
    const QByteArray editList = contents(arri + u'/' + odd + u'/' + odd + "_FCP.xml");
    EXPECT_TRUE(editList.contains("<name>A 'b&quot;$(x) %1 -n &lt;&amp;&gt;</name>"));
}

TEST(SampleCard, SameSeedGivesTheSameBytesAndEveryClipItsOwn) {
    Cards cards;
    constexpr qint64 kClipBytes = 5000;
    for (const CardFormat format : kFormats) {
        SCOPED_TRACE(static_cast<int>(format));
        const auto first = tree(cards.make(format, small(kClipBytes, 7)));
        const auto again = tree(cards.make(format, small(kClipBytes, 7)));
        const auto other = tree(cards.make(format, small(kClipBytes, 8)));
        EXPECT_EQ(first, again);

        ASSERT_EQ(first.size(), other.size());
        const QString clip = QLatin1String(layoutOf(format).clip);
        ASSERT_TRUE(first.count(clip));
        EXPECT_NE(first.at(clip), other.at(clip));
    }

    // No two clips on a card share their bytes, or copies would hide behind one another.
    const QString p2 = cards.make(CardFormat::P2, small(kClipBytes));
    std::multiset<QByteArray> clips;
    for (const auto& [path, hash] : tree(p2)) {
        if (QFileInfo(p2 + u'/' + path).size() == kClipBytes)
            clips.insert(hash);
    }
    EXPECT_EQ(clips.size(), 2u);
    EXPECT_EQ(std::set<QByteArray>(clips.begin(), clips.end()).size(), 2u);
}

TEST(SampleCard, ClipsHaveExactlyTheBytesAskedForInOneContinuousStream) {
    Cards cards;
    const QString clip = QLatin1String(layoutOf(CardFormat::EOSHD).clip);
    QByteArray longest;
    for (const qint64 size : {qint64(1) << 20 | 3, qint64(300001), qint64(9), qint64(8), qint64(7),
                              qint64(1), qint64(0)}) {
        SCOPED_TRACE(size);
        const QByteArray bytes = contents(cards.make(CardFormat::EOSHD, small(size)) + u'/' + clip);
        EXPECT_EQ(bytes.size(), size);
        if (longest.isEmpty())
            longest = bytes;
        // A shorter clip is the start of a longer one: no chunk restarts or loses the stream.
        EXPECT_TRUE(longest.startsWith(bytes));
    }

    std::set<QByteArray> blocks;
    std::set<char> values;
    constexpr qsizetype kBlock = 4096;
    for (qsizetype offset = 0; offset + kBlock <= longest.size(); offset += kBlock)
        blocks.insert(longest.mid(offset, kBlock));
    for (const char byte : longest.left(1 << 16))
        values.insert(byte);
    EXPECT_EQ(blocks.size(), static_cast<size_t>(longest.size() / kBlock));
    EXPECT_EQ(values.size(), 256u);
}

TEST(SampleCard, MediaBytesCountsVisibleRegularFilesOnly) {
    Cards cards;
    SampleCard::Options options = small(777);
    options.clips = 3;
    options.sidecars = false;
    const QString eos = cards.make(CardFormat::EOSHD, options);
    EXPECT_EQ(SampleCard::mediaBytes(eos), 3 * 777);

    options.sidecars = true;
    const QString withHidden = cards.make(CardFormat::P2, options);
    options.hiddenFiles = false;
    const QString without = cards.make(CardFormat::P2, options);
    const qint64 total = SampleCard::mediaBytes(without);
    EXPECT_GT(total, 3 * 777);
    EXPECT_EQ(SampleCard::mediaBytes(withHidden), total);

    const auto add = [&](const QString& relative, const QByteArray& content) {
        QFile file(withHidden + u'/' + relative);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    };
    ASSERT_TRUE(QDir().mkpath(withHidden + "/CONTENTS/.hidden"));
    add(".Trashes/deleted.MXF", "12345");
    add("CONTENTS/.hidden/clip.MXF", "12345");
    add("CONTENTS/VIDEO/._0001AB.MXF", "12345");
    ASSERT_TRUE(QFile::link(withHidden + "/CONTENTS/VIDEO/0001AB.MXF", withHidden + "/link.MXF"));
    EXPECT_EQ(SampleCard::mediaBytes(withHidden), total);
    add("CONTENTS/VOICE/0001AB00.WAV", "0123456789");
    EXPECT_EQ(SampleCard::mediaBytes(withHidden), total + 10);

    EXPECT_EQ(SampleCard::mediaBytes(cards.root() + "/missing"), 0);
}

TEST(SampleCard, RefusesUnusableRootsAndLeavesNothingHalfMade) {
    Cards cards;
    QString error;

    const QString busy = cards.path(CardFormat::P2);
    ASSERT_TRUE(QDir().mkpath(busy));
    QFile(busy + "/.hidden").open(QIODevice::WriteOnly);
    EXPECT_FALSE(SampleCard::make(CardFormat::P2, busy, small(), &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(entriesOf(busy), QStringList{".hidden"});

    const QString file = busy + "/.hidden";
    error.clear();
    EXPECT_FALSE(SampleCard::make(CardFormat::P2, file, small(), &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_TRUE(QFileInfo(file).isFile());
    error.clear();
    EXPECT_FALSE(SampleCard::make(CardFormat::P2, file + "/deeper/CARD", small(), &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(entriesOf(busy), QStringList{".hidden"});

    // Options a card can't have, and an ARRI reel name too short to name its movies.
    SampleCard::Options none = small();
    none.clips = 0;
    SampleCard::Options negative = small(-1);
    const QString unmade = cards.path(CardFormat::ARRI, "A01");
    EXPECT_FALSE(SampleCard::make(CardFormat::P2, unmade, none));
    EXPECT_FALSE(SampleCard::make(CardFormat::P2, unmade, negative));
    EXPECT_FALSE(SampleCard::make(CardFormat::ARRI, unmade, small()));
    EXPECT_FALSE(SampleCard::make(CardFormat::Unknown, unmade, small()));
    EXPECT_FALSE(QFileInfo::exists(QFileInfo(unmade).path()));

    // A write that fails part-way: the folders made for the card go, an existing empty root
    // is emptied again.
    const QString missing = cards.root() + "/made/for/CARD";
    const QString empty = cards.path(CardFormat::RED);
    ASSERT_TRUE(QDir().mkpath(empty));
    bool missingMade = true;
    bool emptyMade = true;
    {
        const FileSizeLimit limit(64 * 1024);
        if (!limit.ok())
            GTEST_SKIP() << "cannot lower the file-size limit";
        missingMade = SampleCard::make(CardFormat::P2, missing, small(1 << 20), &error);
        emptyMade = SampleCard::make(CardFormat::RED, empty, small(1 << 20));
    }
    EXPECT_FALSE(missingMade);
    EXPECT_TRUE(error.contains("0001AB.MXF")) << error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(cards.root() + "/made"));
    EXPECT_FALSE(emptyMade);
    EXPECT_TRUE(QFileInfo(empty).isDir());
    EXPECT_TRUE(entriesOf(empty).isEmpty());
}
