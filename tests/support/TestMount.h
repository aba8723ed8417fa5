#pragma once
// What the mounting fixtures share: whether something is mounted at a folder, waiting for a
// mount to appear, and taking one down so that it never outlives its test.
//
// Class-level operations only; each reads the mount table afresh. Any thread.

#include <QString>
#include <QStringList>
#include <functional>

class TestMount {
  public:
    /// True while the topmost mount at mountPoint exists (and has that source, when given).
    static bool isMounted(const QString& mountPoint, const QString& source = QString());

    /// Polls until that mount appears or timeoutMs pass; gives up early once alive() is false.
    static bool waitForMount(const QString& mountPoint, const QString& source, int timeoutMs,
                             const std::function<bool()>& alive);

    /// Runs tool with arguments + mountPoint, retrying for about a second while the mount is
    /// busy, then once with lazyArguments so it leaves the namespace even with files open.
    /// True once nothing with that source is mounted there.
    static bool unmount(const QString& mountPoint, const QString& source, const QString& tool,
                        const QStringList& arguments, const QStringList& lazyArguments);
    /// The same with umount(8) and its -l.
    static bool unmount(const QString& mountPoint, const QString& source);
};
