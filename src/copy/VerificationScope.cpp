#include "VerificationScope.h"

#include "AscMhlHistory.h"
#include "CardFiles.h"
#include "ChecksumList.h"
#include "ChecksumManifest.h"

bool VerificationScope::isOtherRecord(FileLayer& layer, const QByteArray& folder,
                                      const QByteArray& name) {
    return name == CardFiles::kHistoryFolder || ChecksumManifest::isLaterCopy(layer, folder, name);
}

bool VerificationScope::isSidecar(const QByteArray& name, const QByteArray& manifestName) {
    return name == manifestName || name == CardFiles::kReport || ChecksumList::isListName(name) ||
           name.endsWith(" Archive.dmg") || name.endsWith(" Archive.zip");
}
