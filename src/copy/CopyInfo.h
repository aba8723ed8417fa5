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

/// Which digests a copy makes: none, MD5 or SHA-1.
enum class VerificationType { None = 0, MD5 = 1, SHA1 = 2 };

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
    std::optional<QString> destChecksum;
    std::optional<QStringList> destChecksums;
    std::optional<QString> failedFile;
    std::uint64_t progressCounted = 0;  // the delegate's: bytes of it already in the progress
};
