#pragma once
// The "locked" state of a file or folder: the Linux immutable attribute (FS_IMMUTABLE_FL),
// which even the owner can't write, rename or delete through until it is cleared.

#include <QString>
#include <optional>

class ImmutableFlag {
  public:
    /// Whether the item carries the flag; nullopt when its file system keeps no flags, or
    /// the item can't be opened (missing, unreadable, a symlink, a device or a pipe).
    static std::optional<bool> isSet(const QString& path);

    /// Gives the item's flag the value `on`. True when it now has that value, and when
    /// clearing on a file system (or a symlink) that keeps no flags. False otherwise, with
    /// the reason in *error (EPERM without CAP_LINUX_IMMUTABLE, no flags when setting), or
    /// in the log when error is null.
    /// Symlinks are never followed.
    static bool set(const QString& path, bool on, QString* error = nullptr);
};
