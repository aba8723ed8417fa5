#pragma once
// What one copy is about, handed to every delegate message; the delegate may fill in more.
// Shared, because a failure list may hold the same record more than once.

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <any>
#include <cstdint>
#include <optional>

class CopyDelegate;

/// Which digest a copy makes: none, or one kind, in DigestContext::Kind's order plus one.
enum class VerificationType { None = 0, MD5 = 1, SHA1 = 2, XXH64 = 3, XXH3 = 4, XXH128 = 5 };

/// The verification type of the checksumFormat setting (its value plus one); an unknown
/// value means MD5.
inline VerificationType verificationTypeFor(long long checksumFormat) {
    if (checksumFormat < 0 || checksumFormat > 4)
        return VerificationType::MD5;
    return VerificationType(checksumFormat + 1);
}

struct CopyInfo {
    QString operationtype = QStringLiteral("copy");
    QString source;            // for people; the file is opened by sourcePath
    QStringList destinations;  // likewise
    QByteArray sourcePath;
    QList<QByteArray> destinationPaths;
    std::uint64_t size = 0;  // of the source, as copied
    CopyDelegate* delegate = nullptr;
    std::any object;
    std::any object2;
    std::optional<QString> sourceChecksum;
    QStringList alsoChecksums;  // of the source, in the further kinds asked for, in their order
    std::optional<QString> destChecksum;
    std::optional<QStringList> destChecksums;
    std::optional<QString> failedFile;
    std::uint64_t progressCounted = 0;  // the delegate's: bytes of it already in the progress
};
