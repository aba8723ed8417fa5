#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <map>
#include <set>

#include "CardFormat.h"
#include "CardsweepVolumeChecker.h"
#include "SampleCard.h"

namespace {

// Per format code, where the cameras put the first clip and its metadata (none on ARRI).
const char* const kLayouts[][2] = {
    {"CONTENTS/VIDEO/0001AB.MXF", "CONTENTS/CLIP/0001AB.XML"},
    {"A001_0101AB.RDM/A001_C001_0101AB.RDC/A001_C001_0101AB_001.R3D",
     "A001_0101AB.RDM/A001_C001_0101AB.RDC/A001_C001_0101AB.RMD"},
    {"Clip/C0001.MXF", "Clip/C0001M01.XML"},
    {"BPAV/CLPR/800_0001_01/800_0001_01.MP4", "BPAV/CLPR/800_0001_01/800_0001_01M01.XML"},
    {"PRIVATE/AVCHD/BDMV/STREAM/00000.MTS", "PRIVATE/AVCHD/BDMV/CLIPINF/00000.CPI"},
    {"DCIM/100EOS5D/MVI_0001.MOV", "DCIM/100EOS5D/MVI_0001.THM"},
    {"A001/A001C001_120101_R1AB.mov", ""},
    {"CONTENTS/CLIPS001/AA0001/AA0001.MXF", "CONTENTS/CLIPS001/AA0001/AA0001.XML"},
};

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every entry under root, hidden ones included: relative path -> bytes ("/" for folders).
std::map<QString, QByteArray> tree(const QString& root) {
    std::map<QString, QByteArray> entries;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        entries[QDir(root).relativeFilePath(path)] = it.fileInfo().isDir() ? "/" : contents(path);
    }
    return entries;
}

QStringList entriesOf(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden |
                                  QDir::System);
}

SampleCard::Options small(qint64 clipBytes = 1000, quint32 seed = 1) {
    SampleCard::Options options;
    options.clips = 2;
    options.clipBytes = clipBytes;
    options.seed = seed;
    return options;
}

// Cards in folders of their own, each named as its format suggests unless told otherwise.
class SampleCardTest : public testing::Test {
  protected:
    QString path(CardFormat format, const QString& name = QString()) {
        return dir_.filePath(QString::number(++count_)) + u'/' +
               (name.isEmpty() ? SampleCard::folderName(format) : name);
    }
    QString make(CardFormat format, const SampleCard::Options& options = small(),
                 const QString& name = QString()) {
        const QString card = path(format, name);
        QString error;
        EXPECT_TRUE(SampleCard::make(format, card, options, &error)) << error.toStdString();
        return card;
    }
    QTemporaryDir dir_;
    int count_ = 0;
};

}  // namespace

TEST_F(SampleCardTest, EachFormatIsRecognisedLaidOutAndReproducible) {
    std::set<QString> names;
    for (int code = 0; code < int(std::size(kLayouts)); ++code) {
        SCOPED_TRACE(code);
        const auto format = static_cast<CardFormat>(code);
        const QString clip = QLatin1String(kLayouts[code][0]);
        const QString sidecar = QLatin1String(kLayouts[code][1]);
        names.insert(SampleCard::folderName(format));
        const QString card = make(format, small(1000, 7));
        EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(card), code);
        EXPECT_EQ(QFileInfo(card + u'/' + clip).size(), 1000);
        EXPECT_TRUE(sidecar.isEmpty() || QFileInfo::exists(card + u'/' + sidecar));
        EXPECT_TRUE(QFileInfo(card + "/.Trashes").isDir());
        EXPECT_TRUE(contents(card + "/._A.MXF").startsWith(QByteArray("\x00\x05\x16\x07", 4)));
        // The same seed gives the same bytes everywhere; another seed other clips.
        const auto first = tree(card);
        EXPECT_EQ(first, tree(make(format, small(1000, 7))));
        EXPECT_NE(first.at(clip), tree(make(format, small(1000, 8))).at(clip));

        // Bare cards, without desktop litter or the camera's metadata, still read as theirs.
        SampleCard::Options bare = small();
        bare.hiddenFiles = bare.sidecars = false;
        const QString plain = make(format, bare);
        EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(plain), code);
        EXPECT_TRUE(sidecar.isEmpty() || !QFileInfo::exists(plain + u'/' + sidecar));
        for (const QString& entry : entriesOf(plain))
            EXPECT_FALSE(entry.startsWith(u'.')) << entry.toStdString();
    }
    EXPECT_EQ(names.size(), std::size(kLayouts));
    EXPECT_TRUE(SampleCard::folderName(CardFormat::Unknown).isEmpty());

    // The defaults the demo relies on: three clips of 1 MiB, each with a 4 KiB thumbnail.
    const QString eos = path(CardFormat::EOSHD);
    ASSERT_TRUE(SampleCard::make(CardFormat::EOSHD, eos));
    EXPECT_EQ(SampleCard::mediaBytes(eos), 3 * ((1 << 20) + 4096));

    // The reel takes the card's name, whatever characters it holds.
    const QString odd = QString::fromUtf8("A 'b\"$(x) %1 -n <&>");
    const QString arri = make(CardFormat::ARRI, small(10), odd);
    EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(arri), int(CardFormat::ARRI));
    EXPECT_TRUE(contents(arri + u'/' + odd + u'/' + odd + "_FCP.xml")
                    .contains("<name>A 'b&quot;$(x) %1 -n &lt;&amp;&gt;</name>"));
}

TEST_F(SampleCardTest, ClipsHaveExactlyTheBytesAskedForEachInItsOwnStream) {
    QByteArray longest;
    // Across write chunks and partial eight-byte words; a shorter clip starts a longer one.
    for (const qint64 size :
         {qint64(1) << 20 | 3, qint64(300001), qint64(9), qint64(7), qint64(0)}) {
        SCOPED_TRACE(size);
        const QString card = make(CardFormat::EOSHD, small(size));
        const QByteArray bytes = contents(card + "/DCIM/100EOS5D/MVI_0001.MOV");
        EXPECT_EQ(bytes.size(), size);
        if (longest.isEmpty())
            longest = bytes;
        EXPECT_TRUE(longest.startsWith(bytes));
        // No two clips share their bytes, or copies would hide behind one another.
        EXPECT_TRUE(size == 0 || bytes != contents(card + "/DCIM/100EOS5D/MVI_0002.MOV"));
    }
    std::set<QByteArray> blocks;
    for (qsizetype offset = 0; offset + 4096 <= longest.size(); offset += 4096)
        blocks.insert(longest.mid(offset, 4096));
    EXPECT_EQ(blocks.size(), static_cast<size_t>(longest.size() / 4096));
    const QByteArray head = longest.left(1 << 16);
    EXPECT_EQ(std::set<char>(head.begin(), head.end()).size(), 256u);
}

TEST_F(SampleCardTest, MediaBytesCountsVisibleRegularFilesOnly) {
    SampleCard::Options options = small(777);
    options.clips = 3;
    options.sidecars = false;
    EXPECT_EQ(SampleCard::mediaBytes(make(CardFormat::EOSHD, options)), 3 * 777);
    options.sidecars = true;
    const QString card = make(CardFormat::P2, options);
    options.hiddenFiles = false;
    const qint64 total = SampleCard::mediaBytes(make(CardFormat::P2, options));
    EXPECT_GT(total, 3 * 777);
    EXPECT_EQ(SampleCard::mediaBytes(card), total);

    for (const char* hidden : {"/.Trashes/deleted.MXF", "/CONTENTS/.hidden/clip.MXF",
                               "/CONTENTS/VIDEO/._0001AB.MXF", "/CONTENTS/VOICE/0001AB00.WAV"}) {
        QDir().mkpath(QFileInfo(card + hidden).path());
        QFile file(card + hidden);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("0123456789");
    }
    ASSERT_TRUE(QFile::link(card + "/CONTENTS/VIDEO/0001AB.MXF", card + "/link.MXF"));
    EXPECT_EQ(SampleCard::mediaBytes(card), total + 10);  // only the visible WAV counts
    EXPECT_EQ(SampleCard::mediaBytes(dir_.path() + "/missing"), 0);
}

TEST_F(SampleCardTest, RefusesUnusableRootsAndLeavesNothingHalfMade) {
    QString error;
    const QString busy = path(CardFormat::P2);
    const QString file = busy + "/.hidden";
    ASSERT_TRUE(QDir().mkpath(busy));
    QFile(file).open(QIODevice::WriteOnly);
    for (const QString& root : QStringList{busy, file, file + "/deeper/CARD"}) {
        error.clear();
        EXPECT_FALSE(SampleCard::make(CardFormat::P2, root, small(), &error)) << root.toStdString();
        EXPECT_FALSE(error.isEmpty());
    }
    EXPECT_EQ(entriesOf(busy), QStringList{".hidden"});

    // Options a card can't have, and an ARRI reel name too short to name its movies.
    SampleCard::Options none = small();
    none.clips = 0;
    const QString unmade = path(CardFormat::ARRI, "A01");
    EXPECT_FALSE(SampleCard::make(CardFormat::P2, unmade, none));
    EXPECT_FALSE(SampleCard::make(CardFormat::P2, unmade, small(-1)));
    EXPECT_FALSE(SampleCard::make(CardFormat::ARRI, unmade, small()));
    EXPECT_FALSE(SampleCard::make(CardFormat::Unknown, unmade, small()));
    EXPECT_FALSE(QFileInfo::exists(QFileInfo(unmade).path()));

    // A write failing part-way (EFBIG under a lowered file-size limit): folders made for the
    // card go, an existing empty root is emptied again.
    const QString missing = dir_.path() + "/made/for/CARD";
    const QString empty = path(CardFormat::RED);
    ASSERT_TRUE(QDir().mkpath(empty));
    rlimit saved{};
    ::getrlimit(RLIMIT_FSIZE, &saved);
    rlimit lowered = saved;
    lowered.rlim_cur = 64 * 1024;
    const sighandler_t handler = ::signal(SIGXFSZ, SIG_IGN);
    const bool limited = ::setrlimit(RLIMIT_FSIZE, &lowered) == 0;
    const bool missingMade =
        limited && SampleCard::make(CardFormat::P2, missing, small(1 << 20), &error);
    const bool emptyMade = limited && SampleCard::make(CardFormat::RED, empty, small(1 << 20));
    ::setrlimit(RLIMIT_FSIZE, &saved);
    ::signal(SIGXFSZ, handler);
    if (!limited)
        GTEST_SKIP() << "cannot lower the file-size limit";
    EXPECT_FALSE(missingMade);
    EXPECT_TRUE(error.contains("0001AB.MXF")) << error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(dir_.path() + "/made"));
    EXPECT_FALSE(emptyMade);
    EXPECT_TRUE(entriesOf(empty).isEmpty() && QFileInfo(empty).isDir());
}
