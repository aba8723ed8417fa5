#pragma once
// Runs one card through the same queue, processing, copy, manifest and completion as the
// desktop application, drawing progress on the terminal, and prints the summary.

#include <QString>
#include <QStringList>

class SettingsStore;

class OffloadRunner {
  public:
    struct Request {
        QString source;
        QStringList destinations;
        QString project;   // empty: the stored project name
        QString checksum;  // "md5", "sha1" or empty: the stored choice
        bool onlyMovies = false;
    };

    /// Exit status: 0 verified, 1 failed, 2 bad usage. Needs a running QCoreApplication.
    static int run(SettingsStore& settings, const Request& request);
};
