#pragma once
// The running system's version: the kernel release as three numbers, and the
// distribution's name and version from /etc/os-release. Class-level operations only.

#include <QString>

class QVOSDetect {
  public:
    /// Fills the slots that are given; false (and 10.5.0) when the version is unknown.
    static bool getSystemVersion(int* major, int* minor, int* bugFix);
    static bool isOSVersionHigherThan(int major, int minor, int bugfix);
    /// "%li.%li.%li" of getSystemVersion.
    static QString osxVersion();
    /// PRETTY_NAME (else NAME VERSION_ID) of /etc/os-release; empty when unknown.
    static QString distributionName();
    static QString distributionVersion();

    // The system has every capability these once gated.
    static bool isLeopardOrHigher() { return true; }
    static bool isSnowLeopardOrHigher() { return true; }
    static bool isLionOrHigher() { return true; }
    static bool isMountainLionOrHigher() { return true; }
    static bool isMavericksOrHigher() { return true; }
    static bool isYosemiteOrHigher() { return true; }
    static bool isElCapitanOrHigher() { return true; }

    /// Parses "6.1.0-18-amd64" style releases; missing parts are 0.
    static bool parseRelease(const QString& release, int* major, int* minor, int* bugFix);
};
