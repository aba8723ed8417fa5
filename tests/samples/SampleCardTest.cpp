// Sample cards of each format: recognised, laid out as cameras do, reproducible, exact in
// size, and never half made.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <set>

#include "CardFormat.h"
#include "CardsweepVolumeChecker.h"
#include "FileLayer.h"
#include "SampleCard.h"
#include "TestFiles.h"

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
        EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(FileLayer::posix(), card), code);
        EXPECT_EQ(QFileInfo(card + u'/' + clip).size(), 1000);
        EXPECT_TRUE(sidecar.isEmpty() || QFileInfo::exists(card + u'/' + sidecar));
        EXPECT_TRUE(QFileInfo(card + "/.Trashes").isDir());
        EXPECT_TRUE(
            TestFiles::read(card + "/._A.MXF").startsWith(QByteArray("\x00\x05\x16\x07", 4)));
    }
    EXPECT_EQ(names.size(), std::size(kLayouts));
    EXPECT_TRUE(SampleCard::folderName(CardFormat::Unknown).isEmpty());

    // The same seed gives the same bytes everywhere; another seed other clips.
    const auto first = TestFiles::tree(make(CardFormat::P2, small(1000, 7)));
    EXPECT_EQ(first, TestFiles::tree(make(CardFormat::P2, small(1000, 7))));
    const QString clip = u'/' + QLatin1String(kLayouts[0][0]);
    EXPECT_NE(first.at(clip), TestFiles::read(make(CardFormat::P2, small(1000, 8)) + clip));

    // The reel takes the card's name, whatever characters it holds.
    const QString odd = QString::fromUtf8("A 'b\"$(x) %1 -n <&>");
    const QString arri = make(CardFormat::ARRI, small(10), odd);
    EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(FileLayer::posix(), arri),
              int(CardFormat::ARRI));
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
    EXPECT_EQ(QDir(busy).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
              QStringList{".hidden"});

    // An ARRI reel name too short to name its movies.
    const QString unmade = path(CardFormat::ARRI, "A01");
    EXPECT_FALSE(SampleCard::make(CardFormat::ARRI, unmade, small()));
    EXPECT_FALSE(QFileInfo::exists(QFileInfo(unmade).path()));
}
