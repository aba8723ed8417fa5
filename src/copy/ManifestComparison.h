#pragma once
// Compares the checksum manifests of several copies of one card, file by file (by the name
// each manifest lists): what a crew checks before wiping a card or a shuttle drive. Reads the
// manifests only, never the files. Runs on the caller's thread.

#include <QString>
#include <QStringList>
#include <vector>

#include "FileLayer.h"

class ManifestComparison {
  public:
    /// A file whose checksum in one folder is not the first folder's.
    struct Difference {
        QString file;            // its name as the manifests list it
        QString folder;          // the folder that disagrees with the first
        QString checksum;        // there; empty when that folder's manifest lacks the file
        QString sourceChecksum;  // in the first folder; empty when it lacks the file
    };
    struct Result {
        QStringList withoutManifest;  // folders with no manifest to compare
        int files = 0;                // names listed by any manifest
        std::vector<Difference> differences;
        bool same() const { return withoutManifest.isEmpty() && differences.empty(); }
    };

    /// The first folder is the reference; each other is compared with it.
    static Result compare(const QStringList& folders, FileLayer& layer);
};
