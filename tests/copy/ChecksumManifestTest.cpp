// The manifest's lines: every name a file system can hold goes out on one line and comes back
// the same; what isn't a line of ours is refused; a card's own file of the manifest's name is
// never taken for the manifest.
#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

#include "ChecksumManifest.h"
#include "TestFiles.h"

TEST(ChecksumManifest, EveryNameRoundTripsOnOneLine) {
    const QByteArray digest = "d41d8cd98f00b204e9800998ecf8427e";
    QList<QByteArray> names = {
        "A001C001.MXF",         "new\nline",   "cr\rhere", "back\\slash", "tab\tinside",
        "\xc3\xa9t\xc3\xa9",    "bad\xff\xfe", "\\n",      "end\\",       "\xe2\x82",
        "\xf0\x9f\x8e\xac clip"};
    QByteArray every;
    for (int byte = 1; byte < 256; ++byte)
        every += char(byte == '/' ? 'x' : byte);
    names << every;
    for (const QByteArray& name : names) {
        const QByteArray line = ChecksumManifest::encode({digest, name});
        EXPECT_EQ(line.count('\n'), 1) << name.toStdString();
        EXPECT_TRUE(line.endsWith('\n'));
        const auto back = ChecksumManifest::decode(line.chopped(1));
        ASSERT_TRUE(back) << line.toStdString();
        EXPECT_EQ(back->name, name);
        EXPECT_EQ(back->digest, digest);
    }
    EXPECT_EQ(ChecksumManifest::encode({digest, "plain.MXF"}), digest + "\tplain.MXF\n")
        << "names that are plain text stay as md5sum-like lines";
    for (const QByteArray& junk : {QByteArray("no tab"), QByteArray("\tname"),
                                   QByteArray("XYZ\tname"), QByteArray("\\abc\tbad\\q")})
        EXPECT_FALSE(ChecksumManifest::decode(junk)) << junk.toStdString();
}

TEST(ChecksumManifest, ACardsOwnFileOfThatNameIsNeverTakenForTheManifest) {
    QTemporaryDir dir;
    FileLayer& layer = FileLayer::posix();
    const QByteArray folder = QFile::encodeName(dir.path());
    EXPECT_EQ(ChecksumManifest::nameFor(layer, folder), "checksums.txt");
    TestFiles::write(dir.filePath("checksums.txt"), "the card's own");
    const QByteArray name = ChecksumManifest::nameFor(layer, folder);
    EXPECT_EQ(name, "checksums (Cardsweep).txt");
    ASSERT_TRUE(ChecksumManifest::write(layer, folder + '/' + name, "x\ty\n").ok());
    EXPECT_EQ(ChecksumManifest::find(layer, folder), name);
    EXPECT_EQ(TestFiles::read(dir.filePath("checksums.txt")), "the card's own");
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Hidden | QDir::Files).size(), 2)
        << "no temporary file left behind";
}
