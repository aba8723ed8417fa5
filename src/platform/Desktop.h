#pragma once
// The desktop around the program: file-manager windows, the default applications, the sound
// theme and the attention request. The Linux implementation reaches the session's services;
// tests record. A piece the session lacks is a logged no-op, never an error for the caller.
// Safe from any thread.

#include <QString>
#include <QStringList>

class Desktop {
  public:
    virtual ~Desktop() = default;

    /// Opens a file-manager window on the folder, nothing selected. False when nothing could.
    virtual bool revealFolder(const QString& folder) = 0;
    /// Opens the files with the desktop's default application for them. False when nothing
    /// could.
    virtual bool openFiles(const QStringList& files) = 0;
    /// Plays the named event of the freedesktop sound theme ("complete"); never waits for
    /// its end. False when the session has no way to play it.
    virtual bool playSound(const QString& name) = 0;
    /// Asks once for the user's attention (the window's urgency hint, where there is one).
    virtual void requestAttention() = 0;
    /// The folder's contents changed, so file-manager windows showing it can refresh.
    virtual void noteFileSystemChanged(const QString& folder) = 0;
};
