// Mount-table diffs: which volumes came and which went between two readings.

#include <gtest/gtest.h>

#include "MountMonitor.h"

namespace {

MountEntry entry(const QString& mountPoint, const QString& source,
                 const QString& options = QStringLiteral("rw")) {
    MountEntry made;
    made.mountPoint = mountPoint;
    made.source = source;
    made.options = options;
    return made;
}

QStringList describe(const std::vector<MountEntry>& entries) {
    QStringList lines;
    for (const MountEntry& e : entries) {
        lines << e.mountPoint + QStringLiteral(" <- ") + e.source;
    }
    return lines;
}

}  // namespace

TEST(MountMonitorTest, DiffMatchesByMountPointAndSource) {
    const std::vector<MountEntry> before = {
        entry(QStringLiteral("/"), QStringLiteral("/dev/vda")),
        entry(QStringLiteral("/media/u/A001"), QStringLiteral("/dev/sdb1")),
        entry(QStringLiteral("/media/u/CARD"), QStringLiteral("/dev/sdc1")),
        entry(QStringLiteral("/media/u/TWICE"), QStringLiteral("/dev/sdd1")),
        entry(QStringLiteral("/media/u/TWICE"), QStringLiteral("/dev/sdd1")),
    };
    const std::vector<MountEntry> after = {
        entry(QStringLiteral("/"), QStringLiteral("/dev/vda")),
        // Remounted read-only: the same volume, no signal.
        entry(QStringLiteral("/media/u/A001"), QStringLiteral("/dev/sdb1"), QStringLiteral("ro")),
        // Another card at the same mount point: out, then in.
        entry(QStringLiteral("/media/u/CARD"), QStringLiteral("/dev/sde1")),
        // One of two stacked mounts gone.
        entry(QStringLiteral("/media/u/TWICE"), QStringLiteral("/dev/sdd1")),
        // The same card at a second place.
        entry(QStringLiteral("/media/u/A001 1"), QStringLiteral("/dev/sdb1")),
    };

    const MountMonitor::Changes changes = MountMonitor::diff(before, after);
    EXPECT_EQ(describe(changes.mounted),
              QStringList({QStringLiteral("/media/u/CARD <- /dev/sde1"),
                           QStringLiteral("/media/u/A001 1 <- /dev/sdb1")}));
    EXPECT_EQ(describe(changes.unmounted),
              QStringList({QStringLiteral("/media/u/CARD <- /dev/sdc1"),
                           QStringLiteral("/media/u/TWICE <- /dev/sdd1")}));

    const MountMonitor::Changes none = MountMonitor::diff(after, after);
    EXPECT_TRUE(none.mounted.empty());
    EXPECT_TRUE(none.unmounted.empty());
    EXPECT_EQ(MountMonitor::diff({}, after).mounted.size(), after.size());
    EXPECT_EQ(MountMonitor::diff(before, {}).unmounted.size(), before.size());
}
