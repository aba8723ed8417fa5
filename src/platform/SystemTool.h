#pragma once
// The system's command-line tools (umount, losetup, mkfs.fat, ...): found by name on PATH or in
// the system folders, and run with an argument vector through this machine's ProcessRunner.

#include <QString>
#include <QStringList>

class SystemTool {
  public:
    /// Full path of the tool; empty when it isn't installed.
    static QString find(const QString& name);
    /// Its exit status; -1 (logged) when it isn't installed or could not start.
    static int run(const QString& name, const QStringList& arguments);
};
