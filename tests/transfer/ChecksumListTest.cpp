// The list for the standard checksum tools beside the manifest: the tool itself, run in the
// copy's folder, passes a complete copy and fails a damaged one or one with a failed file.
#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include "ChecksumList.h"
#include "ManifestVerifier.h"
#include "OffloadFixture.h"
#include "Preferences.h"
#include "TestFiles.h"

namespace {

struct Tool {
    DigestContext::Kind kind;
    const char* program;
};
void PrintTo(const Tool& tool, std::ostream* out) {
    *out << tool.program;
}

class ChecksumListTest : public OffloadFixture, public testing::WithParamInterface<Tool> {
  protected:
    // The tool's exit status when it checks the list in the folder.
    static int check(const QString& folder, const QString& program, const QString& list) {
        QProcess tool;
        tool.setWorkingDirectory(folder);
        tool.start(program, {"-c", list});
        if (!tool.waitForFinished(30000))
            return -1;
        return tool.exitStatus() == QProcess::NormalExit ? tool.exitCode() : -1;
    }
};

}  // namespace

TEST_P(ChecksumListTest, TheToolPassesACompleteCopyAndFailsADamagedOne) {
    const QString program = QStandardPaths::findExecutable(GetParam().program);
    if (program.isEmpty())
        GTEST_SKIP() << GetParam().program << " is not installed";
    makeController();
    settings_.setObject(SettingsKey::checksumFormat, PropertyList(qint64(GetParam().kind)));
    const QString root = workPath("cards/A001");
    const QString clip = "CLIPS/Day 1/Ünïcode clip ✓.MOV";
    TestFiles::write(root + '/' + clip, TestFiles::randomBytes(5000, 1));
    TestFiles::write(root + "/CLIPS/back\\slash.MOV", TestFiles::randomBytes(700, 2));
    TestFiles::write(root + "/top level.xml", "<x/>");
    const auto volume = listCard("A001");
    ASSERT_TRUE(offload({volume}));
    ASSERT_EQ(volume->status(), QVVolume::Done) << volume->statusText().toStdString();

    const QString list = QString::fromLatin1(ChecksumList::fileName(GetParam().kind));
    const QStringList destinations = volume->destinations();
    for (const QString& destination : destinations) {
        EXPECT_EQ(check(destination, program, list), 0) << destination.toStdString();
        EXPECT_TRUE(ManifestVerifier::verify(destination, FileLayer::posix()).ok())
            << "the list is no extra file of the copy";
    }

    QFile damaged(destinations[0] + '/' + clip);
    ASSERT_TRUE(damaged.open(QIODevice::ReadWrite) && damaged.seek(100) && damaged.write("!") == 1);
    damaged.close();
    EXPECT_NE(check(destinations[0], program, list), 0);

    // A file that failed on one destination fails that destination's check only.
    volume->ledger()->recordFailure("/top level.xml", 1, "test");
    const Status written = ChecksumList::write(FileLayer::posix(), *volume->ledger(), 1,
                                               QFile::encodeName(destinations[1]), GetParam().kind);
    ASSERT_TRUE(written.ok()) << written.message().toStdString();
    EXPECT_NE(check(destinations[1], program, list), 0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ChecksumListTest,
                         testing::Values(Tool{DigestContext::Kind::MD5, "md5sum"},
                                         Tool{DigestContext::Kind::SHA1, "sha1sum"},
                                         Tool{DigestContext::Kind::XXH64, "xxhsum"},
                                         Tool{DigestContext::Kind::XXH3, "xxhsum"},
                                         Tool{DigestContext::Kind::XXH128, "xxhsum"}),
                         [](const testing::TestParamInfo<Tool>& info) {
                             return std::string(DigestContext::name(info.param.kind).toLatin1());
                         });
