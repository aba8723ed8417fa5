#pragma once
// Moves files and folders into the desktop trash the way Linux file managers do (the
// freedesktop.org Trash 1.0 layout), so a person can still restore them from there.

#include <QString>

class FreedesktopTrash {
  public:
    /// Moves the item (a file, a folder, or a symlink itself, never its target) into the
    /// home trash when it lives on the home trash's file system, else into the trash at the
    /// top of its own file system ($topdir/.Trash/$uid, else $topdir/.Trash-$uid). True when
    /// it is there; *trashedPath then receives its new path. False with the reason logged
    /// otherwise, and then the item stays where it was and no .trashinfo is left behind.
    /// Nothing is ever copied across file systems: without a usable trash the call fails.
    static bool trash(const QString& path, QString* trashedPath = nullptr);
};
