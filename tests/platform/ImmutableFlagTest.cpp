// The immutable (locked) flag: refusals where it can't be set, and a locked file that
// refuses changes until cleared.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>
#include <cerrno>

#include "ImmutableFlag.h"

using namespace Qt::StringLiterals;

namespace {

// Clears the flag however the test ends, so its temporary folder can be deleted.
struct Unlock {
    QString path;
    ~Unlock() { ImmutableFlag::set(path, false); }
};

}  // namespace

TEST(ImmutableFlagTest, LockedFileRefusesChangesUntilCleared) {
    const QTemporaryDir dir;
    const QString file = dir.filePath("A001C002.mov"), link = dir.filePath("link.mov");
    const QByteArray native = QFile::encodeName(file);
    QString error;
    EXPECT_EQ(ImmutableFlag::isSet(file), std::nullopt);
    EXPECT_FALSE(ImmutableFlag::set(file, false, &error));  // missing
    EXPECT_TRUE(error.contains(file)) << error.toStdString();
    // procfs keeps no flags: clearing has nothing to do, setting fails.
    EXPECT_EQ(ImmutableFlag::isSet("/proc/self/status"), std::nullopt);
    EXPECT_TRUE(ImmutableFlag::set("/proc/self/status", false));
    EXPECT_FALSE(ImmutableFlag::set("/proc/self/status", true));

    ASSERT_TRUE(QFile(file).open(QIODevice::WriteOnly) && QFile::link(file, link));
    const Unlock unlock{file};
    if (geteuid() != 0 || !ImmutableFlag::isSet(file).has_value()) {
        GTEST_SKIP() << "needs root (CAP_LINUX_IMMUTABLE) and a file system with file flags";
    }
    EXPECT_EQ(ImmutableFlag::isSet(file), false);
    ASSERT_TRUE(ImmutableFlag::set(file, true, &error)) << error.toStdString();
    EXPECT_EQ(ImmutableFlag::isSet(file), true);
    EXPECT_TRUE(unlink(native.constData()) != 0 && errno == EPERM);
    EXPECT_TRUE(open(native.constData(), O_WRONLY | O_CLOEXEC) < 0 && errno == EPERM);
    ASSERT_TRUE(ImmutableFlag::set(file, false, &error)) << error.toStdString();
    EXPECT_EQ(ImmutableFlag::isSet(file), false);

    // A link is never followed: its target stays as it was.
    EXPECT_FALSE(ImmutableFlag::set(link, true));
    EXPECT_EQ(ImmutableFlag::isSet(file), false);
    EXPECT_EQ(unlink(native.constData()), 0);
}
