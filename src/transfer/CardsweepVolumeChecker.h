#pragma once
// Recognises a camera card's format from the files and folders at its root, read through the
// file layer it is given. Stateless and uncached, so it is safe from any thread.

#include <QString>

class FileLayer;

class CardsweepVolumeChecker {
  public:
    /// The CardFormat code of the card or folder at path (a mount point or any folder), -1 when
    /// it is not recognised or can't be read. Fixed tests in a fixed order; the first that
    /// holds decides. Names are compared exactly, case included.
    static int verifyVolumeType(FileLayer& files, const QString& path);
};
