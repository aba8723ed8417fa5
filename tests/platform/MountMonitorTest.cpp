// Mount-table diffs: which volumes came and which went between two readings.
#include <gtest/gtest.h>

#include "MountMonitor.h"

namespace {

// "MOUNTPOINT <- SOURCE [OPTIONS]" per entry.
std::vector<MountEntry> table(const QStringList& lines) {
    std::vector<MountEntry> entries;
    for (const QString& line : lines) {
        const QStringList parts = line.split(" <- ");
        entries.push_back(
            {parts[0], parts[1].section(' ', 0, 0), {}, parts[1].section(' ', 1), false});
    }
    return entries;
}

QStringList describe(const std::vector<MountEntry>& entries) {
    QStringList lines;
    for (const MountEntry& e : entries)
        lines << e.mountPoint + " <- " + e.source;
    return lines;
}

}  // namespace

TEST(MountMonitorTest, DiffMatchesByMountPointAndSource) {
    const auto before =
        table({"/ <- /dev/vda", "/media/u/A001 <- /dev/sdb1", "/media/u/CARD <- /dev/sdc1",
               "/media/u/TWICE <- /dev/sdd1", "/media/u/TWICE <- /dev/sdd1"});
    const auto after = table({"/ <- /dev/vda",
                              "/media/u/A001 <- /dev/sdb1 ro",   // remounted read-only: no signal
                              "/media/u/CARD <- /dev/sde1",      // another card there: out, then in
                              "/media/u/TWICE <- /dev/sdd1",     // one of two stacked mounts gone
                              "/media/u/A001 1 <- /dev/sdb1"});  // the same card at a second place
    const MountMonitor::Changes changes = MountMonitor::diff(before, after);
    EXPECT_EQ(describe(changes.mounted),
              QStringList({"/media/u/CARD <- /dev/sde1", "/media/u/A001 1 <- /dev/sdb1"}));
    EXPECT_EQ(describe(changes.unmounted),
              QStringList({"/media/u/CARD <- /dev/sdc1", "/media/u/TWICE <- /dev/sdd1"}));
}
