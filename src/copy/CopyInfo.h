#pragma once
// What one copy is about, handed to every delegate message; the delegate may fill in more.
// Shared, because a failure list may hold the same record more than once.

#include <QString>
#include <QStringList>
#include <any>
#include <optional>

class CopyDelegate;

/// Which digests a copy makes: none, MD5 or SHA-1.
enum class VerificationType { None = 0, MD5 = 1, SHA1 = 2 };

struct CopyInfo {
    QString operationtype = QStringLiteral("copy");
    QString source;
    QStringList destinations;
    CopyDelegate* delegate = nullptr;
    std::any object;
    std::any object2;
    std::optional<QString> sourceChecksum;
    std::optional<QString> destChecksum;
    std::optional<QStringList> destChecksums;
    std::optional<QString> failedFile;
};
