// The freedesktop trash: numbered names on collision, the .trashinfo record of any name,
// failures that leave the item alone, and the trash at the top of another file system.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "FreedesktopTrash.h"
#include "ImmutableFlag.h"
#include "QVLocalPaths.h"
#include "TempHome.h"
#include "TestFiles.h"

namespace {

// The Path= value of a trash entry, decoded; the rest of its .trashinfo is checked too.
QString recordedPath(const QString& trashed) {
    static const QRegularExpression layout(
        "^\\[Trash "
        "Info\\]\nPath=([^\n]+)\nDeletionDate=\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\n$");
    const QFileInfo item(trashed);
    const QString info = QString::fromUtf8(
        TestFiles::read(item.path() + "/../info/" + item.fileName() + ".trashinfo"));
    EXPECT_TRUE(layout.match(info).hasMatch()) << info.toStdString();
    return QFile::decodeName(
        QByteArray::fromPercentEncoding(layout.match(info).captured(1).toUtf8()));
}

}  // namespace

TEST(FreedesktopTrashTest, AnyNameGoesWholeNumberedOnCollisionAndRecordsItsPath) {
    const TempHome home;
    const QString trash = QVLocalPaths::trashDirectory();
    TestFiles::write(trash + "/files/clip.4.mov", "orphan");  // without info: never overwritten
    const QString folder = home.file("Odd [card]/");
    TestFiles::write(folder + "CARD/CLIP/A001.mov", "a001");
    ASSERT_TRUE(QFile::link("CARD", folder + "CARD link"));
    // Four of one name; the last name is too long to take a ".trashinfo" suffix.
    const QStringList names = {"CARD link",   "CARD/",      "A 001%20 100%.mov",
                               "line\nbreak", "1/clip.mov", "2/clip.mov",
                               "3/clip.mov",  "4/clip.mov", QString(250, u'x') + ".mov"};
    QStringList trashed;
    for (const QString& name : names) {
        if (!QFileInfo::exists(folder + name))
            TestFiles::write(folder + name, name.toUtf8());
        ASSERT_TRUE(FreedesktopTrash::trash(folder + name, &trashed.emplace_back()))
            << name.toStdString();
        EXPECT_FALSE(QFileInfo::exists(folder + name) || QFileInfo(folder + name).isSymLink());
        EXPECT_EQ(recordedPath(trashed.last()), QDir::cleanPath(folder + name));
        EXPECT_TRUE(trashed.last().endsWith(".mov") == name.endsWith(".mov"));
    }
    EXPECT_EQ(trashed.mid(4, 4),
              QStringList({trash + "/files/clip.mov", trash + "/files/clip.2.mov",
                           trash + "/files/clip.3.mov", trash + "/files/clip.5.mov"}));
    EXPECT_EQ(TestFiles::read(trash + "/files/clip.5.mov"), "4/clip.mov");
    EXPECT_EQ(TestFiles::read(trash + "/files/clip.4.mov"), "orphan");
    EXPECT_EQ(TestFiles::read(trash + "/files/CARD/CLIP/A001.mov"), "a001");
    EXPECT_EQ(QFile::symLinkTarget(trash + "/files/CARD link"), trash + "/files/CARD");
    EXPECT_TRUE(TestFiles::read(trash + "/info/A 001%20 100%.mov.trashinfo")
                    .contains("/Odd%20%5Bcard%5D/A%20001%2520%20100%25.mov\n"));
}

TEST(FreedesktopTrashTest, FailuresLeaveTheItemAndNoInfo) {
    const TempHome home;
    const QDir info(QVLocalPaths::trashDirectory() + "/info");
    EXPECT_FALSE(FreedesktopTrash::trash(home.file("missing.mov")));
    EXPECT_FALSE(FreedesktopTrash::trash(QString()) || FreedesktopTrash::trash("/"));
    // A refused move takes its info back. A read-only folder stops anyone but root; root is
    // stopped by a locked (immutable) file.
    const QByteArray folder = QFile::encodeName(home.file("Read only"));
    const QString locked = home.file("Read only/locked.mov");
    TestFiles::write(locked, "keep");
    if (geteuid() != 0 ? chmod(folder.constData(), 0500) != 0 : !ImmutableFlag::set(locked, true)) {
        GTEST_SKIP() << "as root, refusing a move needs a file system with the immutable flag";
    }
    EXPECT_FALSE(FreedesktopTrash::trash(locked));
    ImmutableFlag::set(locked, false);
    chmod(folder.constData(), 0700);
    EXPECT_EQ(TestFiles::read(locked), "keep");
    EXPECT_TRUE(info.isEmpty()) << info.entryList().join(u' ').toStdString();
}

TEST(FreedesktopTrashTest, OtherFileSystemsUseTheTrashAtTheirTop) {
    const TempHome home;
    const QTemporaryDir dir;
    const QString top = dir.filePath("Card Volume");
    const QByteArray native = QFile::encodeName(top);
    if (!QDir().mkdir(top) || mount("cardsweep-test", native.constData(), "tmpfs", 0, "") != 0) {
        GTEST_SKIP() << "needs root to mount a tmpfs as a second file system";
    }
    const std::unique_ptr<const char, void (*)(const char*)> unmount(
        native.constData(), [](const char* where) { umount2(where, MNT_DETACH); });
    const auto expectTrashed = [&](const QString& relative, const QString& trash) {
        TestFiles::write(top + u'/' + relative, "x");
        QString trashed;
        ASSERT_TRUE(FreedesktopTrash::trash(top + u'/' + relative, &trashed));
        EXPECT_EQ(trashed, top + trash + "/files/" + QFileInfo(relative).fileName());
        EXPECT_EQ(recordedPath(trashed), relative);  // relative to the top
    };
    expectTrashed("CLIP/A001.mov", "/.Trash-0");
    EXPECT_TRUE(QDir(QVLocalPaths::trashDirectory() + "/info").isEmpty());
    // An administrator's sticky .Trash comes first; not sticky, or a link, it is passed over.
    ASSERT_TRUE(QDir(top).mkdir(".Trash") && chmod(native + "/.Trash", 01777) == 0);
    expectTrashed("CLIP/A002.mov", "/.Trash/0");
    ASSERT_EQ(chmod(native + "/.Trash", 0777), 0);
    expectTrashed("A003.mov", "/.Trash-0");
    ASSERT_TRUE(rename(native + "/.Trash", native + "/sticky") == 0 &&
                chmod(native + "/sticky", 01777) == 0 &&
                symlink("sticky", native + "/.Trash") == 0);
    expectTrashed("A004.mov", "/.Trash-0");
}
