#pragma once
// The engine's side of `offload` and `demo`: runs one card through the same queue, processing,
// copy, read-back, manifest and completion as the desktop application, drawing progress on the
// terminal, and prints what became of every destination and file. Main thread.

#include <QString>
#include <QStringList>

class AppContext;
class SettingsStore;

class OffloadRunner {
  public:
    struct Request {
        QString source;
        QStringList destinations;
        QString project;   // empty: the stored project name
        QString checksum;  // "md5", "sha1" or empty: the stored choice
        bool onlyMovies = false;
        bool inlineCheck = false;  // check each write as it is made, not from the media
    };

    /// Exit status: 0 verified, 1 failed, 128 + the signal when stopped. The request was
    /// checked already. Needs a running QCoreApplication.
    static int run(AppContext& context, SettingsStore& settings, const Request& request);
};
