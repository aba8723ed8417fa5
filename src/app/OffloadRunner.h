#pragma once
// Runs one card through the same queue, processing, copy, read-back, manifest and completion as
// the desktop application, drawing progress on the terminal, and prints what became of every
// destination and file.

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

    /// Exit status: 0 verified, 1 failed, 2 a request that can't be carried out (nothing is
    /// written then). Needs a running QCoreApplication.
    static int run(AppContext& context, SettingsStore& settings, const Request& request);
};
