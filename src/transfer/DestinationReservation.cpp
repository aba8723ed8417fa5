#include "DestinationReservation.h"

#include "FileLayer.h"
#include "MetadataField.h"
#include "MetadataNaming.h"
#include "PathText.h"
#include "QVFormat.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "SystemError.h"

QString DestinationReservation::reserve(const QString& destination, const QString& projectTitle,
                                        QVVolume& volume, const std::vector<MetadataField>& fields,
                                        bool imageMode) {
    const std::lock_guard lock(mutex_);
    MetadataValues values = volume.metadata();
    const QString base =
        MetadataNaming::composeDestination(destination, projectTitle, values, fields, *clock_);
    volume.setMetadata(values);
    const Claim first = claim(base, imageMode);
    if (first != Claim::Taken) {
        if (imageMode)
            reserved_.append(base);
        return base;
    }

    QVLog::appendLog(u"Path %@ already exists", base);
    const QString extension = imageMode ? QStringLiteral(".dmg") : QString();
    const auto numbered = [&](int n) {
        return base + u'/' + QVFormat::format(u"%0.4i%@", n, extension);
    };
    QString candidate = numbered(1);
    for (int n = 2; reserved_.contains(candidate) || claim(candidate, imageMode) == Claim::Taken;
         ++n)
        candidate = numbered(n);
    QVLog::appendLog(u"Found unique path %@", candidate);
    // Held until the transfer ends, so this process never hands the number out twice.
    reserved_.append(candidate);
    return candidate;
}

QStringList DestinationReservation::reserved() const {
    const std::lock_guard lock(mutex_);
    return reserved_;
}

void DestinationReservation::release(const QStringList& paths) {
    const std::lock_guard lock(mutex_);
    for (const QString& path : paths)
        reserved_.removeAll(path);
}

DestinationReservation::Claim DestinationReservation::claim(const QString& path,
                                                            bool asFile) const {
    const QByteArray bytes = PathText::bytes(path);
    files_.makeParents(bytes);
    const int result = asFile ? files_.createNew(bytes) : files_.makeFolder(bytes);
    if (result == 0)
        return Claim::Claimed;
    if (errno == EEXIST)
        return Claim::Taken;
    QVLog::appendLog(u"Unable to claim %@: %@", path, SystemError::text(errno));
    return Claim::Failed;
}
