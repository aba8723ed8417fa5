#include "QVOSDetect.h"

#include <sys/utsname.h>
#include <syslog.h>

#include <QFile>
#include <QRegularExpression>
#include <cerrno>

namespace {

QString osReleaseValue(const QString& key) {
    QFile file(QStringLiteral("/etc/os-release"));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QString prefix = key + u'=';
    for (const QString& line : QString::fromUtf8(file.readAll()).split(u'\n')) {
        if (line.startsWith(prefix)) {
            QString value = line.mid(prefix.size()).trimmed();
            if (value.size() >= 2 && (value.startsWith(u'"') || value.startsWith(u'\''))) {
                value = value.mid(1, value.size() - 2);
            }
            return value;
        }
    }
    return {};
}

void setSlot(int* slot, int value) {
    if (slot != nullptr) {
        *slot = value;
    }
}

}  // namespace

bool QVOSDetect::parseRelease(const QString& release, int* major, int* minor, int* bugFix) {
    static const QRegularExpression pattern(QStringLiteral("^(\\d+)(?:\\.(\\d+))?(?:\\.(\\d+))?"));
    const QRegularExpressionMatch match = pattern.match(release);
    if (!match.hasMatch()) {
        return false;
    }
    setSlot(major, match.captured(1).toInt());
    setSlot(minor, match.captured(2).toInt());
    setSlot(bugFix, match.captured(3).toInt());
    return true;
}

bool QVOSDetect::getSystemVersion(int* major, int* minor, int* bugFix) {
    utsname name{};
    if (uname(&name) == 0 &&
        parseRelease(QString::fromLatin1(name.release), major, minor, bugFix)) {
        return true;
    }
    syslog(LOG_ERR, "Unable to obtain system version: %ld", static_cast<long>(errno));
    setSlot(major, 10);
    setSlot(minor, 5);
    setSlot(bugFix, 0);
    return false;
}

bool QVOSDetect::isOSVersionHigherThan(int major, int minor, int bugfix) {
    int current[3] = {0, 0, 0};
    getSystemVersion(&current[0], &current[1], &current[2]);
    if (current[0] != major) {
        return current[0] > major;
    }
    if (current[1] != minor) {
        return current[1] > minor;
    }
    return current[2] >= bugfix;
}

QString QVOSDetect::osxVersion() {
    int major = 0;
    int minor = 0;
    int bugFix = 0;
    getSystemVersion(&major, &minor, &bugFix);
    return QStringLiteral("%1.%2.%3").arg(major).arg(minor).arg(bugFix);
}

QString QVOSDetect::distributionName() {
    const QString pretty = osReleaseValue(QStringLiteral("PRETTY_NAME"));
    if (!pretty.isEmpty()) {
        return pretty;
    }
    return (osReleaseValue(QStringLiteral("NAME")) + u' ' + distributionVersion()).trimmed();
}

QString QVOSDetect::distributionVersion() {
    return osReleaseValue(QStringLiteral("VERSION_ID"));
}
