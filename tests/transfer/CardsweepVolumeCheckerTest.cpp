// Card formats recognised from the entries at a card's root, and what is not enough for each.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <initializer_list>

#include "CardsweepVolumeChecker.h"
#include "FileLayer.h"

namespace {

// Builds cards in a fresh folder each: entries are relative paths, a trailing "/" makes a
// folder, anything else an empty file.
class Cards {
  public:
    QString make(std::initializer_list<const char*> entries, const QString& name = "CARD") {
        const QString card = root_.filePath(QString::number(++count_)) + u'/' + name;
        QDir().mkpath(card);
        for (const char* entry : entries) {
            const QString path = card + u'/' + QString::fromUtf8(entry);
            QDir().mkpath(path.endsWith(u'/') ? path : QFileInfo(path).path());
            if (!path.endsWith(u'/'))
                QFile(path).open(QIODevice::WriteOnly);
        }
        return card;
    }
    int type(std::initializer_list<const char*> entries, const QString& name = "CARD") {
        return CardsweepVolumeChecker::verifyVolumeType(FileLayer::posix(), make(entries, name));
    }
    QString root() const { return root_.path(); }

  private:
    QTemporaryDir root_;
    int count_ = 0;
};

}  // namespace

TEST(CardsweepVolumeChecker, RecognisesFromTheRootEarlierTestsFirst) {
    Cards cards;
    // Each camera's own layout is recognised in the sample cards' tests; here the edges.
    EXPECT_EQ(cards.type({"AVCHD/BDMV/STREAM/00000.MTS"}), 4);
    EXPECT_EQ(cards.type({}), -1);
    EXPECT_EQ(cards.type({"bpav/", "mediapro.xml", "PRIVATE/avchd/", "avchd/", "DCIM/100eos/",
                          "CONTENTS/lastclip.txt"}),
              -1);

    // Earlier tests win.
    EXPECT_EQ(cards.type({"CONTENTS/LASTCLIP.TXT", "MEDIAPRO.XML"}), 0);
    EXPECT_EQ(cards.type({"BPAV/", "PRIVATE/AVCHD/"}), 3);
    EXPECT_EQ(cards.type({"X.RDM/", "MEDIAPRO.XML"}), 1);
    // A Canon stills folder doesn't stop the later tests.
    EXPECT_EQ(cards.type({"DCIM/100CANON/"}), -1);
    EXPECT_EQ(cards.type({"DCIM/100CANON/", "CONTENTS/CLIPS001/X/A.MXF"}), 7);
    EXPECT_EQ(cards.type({"DCIM/100EOS5D/", "CONTENTS/CLIPS001/X/A.MXF"}), 5);
    EXPECT_EQ(cards.type({"DCIM"}), -1);

    // Any kind of entry counts, a dangling link too, and nothing is cached.
    const QString p2 = cards.make({"CONTENTS/"});
    ASSERT_TRUE(QFile::link(p2 + "/nowhere", p2 + "/CONTENTS/LASTCLIP.TXT"));
    EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(FileLayer::posix(), p2), 0);
    ASSERT_TRUE(QFile::remove(p2 + "/CONTENTS/LASTCLIP.TXT"));
    EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(FileLayer::posix(), p2), -1);
    EXPECT_EQ(cards.type({"AVCHD"}), 4);
}

TEST(CardsweepVolumeChecker, ArriNeedsReelFolderEditListAndMovieOfTheReel) {
    Cards cards;
    EXPECT_EQ(cards.type({"A001/A001_FCP.xml", "A001/B001C001.mov"}, "A001"), -1);
    EXPECT_EQ(cards.type({"A01/A01_FCP.xml", "A01/A01C001.mov"}, "A01"), -1);
    EXPECT_EQ(cards.type({"A001/A001_FCP.xml", "A001/A001C001.MOV"}, "A001"), -1);
    EXPECT_EQ(cards.type({"A001/A001_FCP.XML", "A001/A001C001.mov"}, "A001"), -1);
    EXPECT_EQ(cards.type({"A001/A001C001.mov"}, "A001"), -1);
    EXPECT_EQ(cards.type({"B001/B001_FCP.xml", "B001/B001C001.mov"}, "A001"), -1);
    // Only the first four characters of the volume name must open the movie's name.
    EXPECT_EQ(cards.type({"A001X/A001X_FCP.xml", "A001X/A001Y.mov"}, "A001X"), 6);
}

TEST(CardsweepVolumeChecker, CanonXfAndRedNeedTheirExactNamesInAFolder) {
    Cards cards;
    EXPECT_EQ(cards.type({"CONTENTS/"}), -1);
    EXPECT_EQ(cards.type({"CONTENTS/CLIPS001/XYZ/a.mxf"}), -1);
    EXPECT_EQ(cards.type({"CONTENTS/CLIPS001/A.MXF"}), -1);
    EXPECT_EQ(cards.type({"CONTENTS/clips001/XYZ/A.MXF"}), -1);
    EXPECT_EQ(cards.type({"CONTENTS/CLIPS/XYZ/A.MXF"}), 7);

    // A "*" in a card's name never reaches into a neighbouring card.
    const QString neighbour = cards.make({"CONTENTS/CLIPS001/XYZ/A.MXF"}, "AB");
    const QString starred = QFileInfo(neighbour).path() + "/A*";
    QDir().mkpath(starred + "/CONTENTS");
    EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(FileLayer::posix(), starred), -1);

    // RED needs the exact last extension, at the root.
    EXPECT_EQ(cards.type({"clip.rdm/"}), -1);
    EXPECT_EQ(cards.type({"x.RDM.bak"}), -1);
    EXPECT_EQ(cards.type({"RDM/"}), -1);
    EXPECT_EQ(cards.type({"A001.RDM/"}), 1);
    EXPECT_EQ(cards.type({"a.b.RDM"}), 1);
    EXPECT_EQ(cards.type({"CLIPS/A001.RDM/"}), -1);

    // Missing paths and plain files are no cards.
    EXPECT_EQ(
        CardsweepVolumeChecker::verifyVolumeType(FileLayer::posix(), cards.root() + "/missing"),
        -1);
    EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(FileLayer::posix(), QString()), -1);
    const QString file = cards.make({"f"}) + "/f";
    EXPECT_EQ(CardsweepVolumeChecker::verifyVolumeType(FileLayer::posix(), file), -1);
}
