#include "MetadataSpreadsheet.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStringDecoder>
#include <exception>

#include "QVException.h"
#include "QVLog.h"

namespace {

const QString kVolumeColumn = QStringLiteral("Volume");
const QString kDriveColumn = QStringLiteral("Drive UUID");
// The only column the drive identifier is written under; the header we create says
// "Drive UUID", so only a sheet a user renamed gets it. Sheets out there depend on both.
const QString kDiskColumn = QStringLiteral("Disk UUID");
const QString kDestinationsColumn = QStringLiteral("Destinations");
const QString kDestinationSeparator = QStringLiteral("; ");

// The file as UTF-8 text; absent, unreadable or not UTF-8 all read as empty.
QString readSheet(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray bytes = file.readAll();
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder.decode(bytes);
    return decoder.hasError() ? QString() : text;
}

QStringList wantedTitles(const std::vector<MetadataField>& fields) {
    QStringList titles;
    for (const MetadataField& field : fields) {
        if (field.useInSpreadsheet == 1) {
            titles << field.title;
        }
    }
    return titles;
}

// Grows the header of `text` in place and returns its columns.
QStringList updateHeader(QString& text, const QStringList& wanted) {
    const qsizetype lineEnd = text.indexOf(u'\n');
    if (text.isEmpty() || lineEnd < 0) {
        const QStringList header =
            QStringList{kVolumeColumn, kDriveColumn, kDestinationsColumn} + wanted;
        text += header.join(u',') + u'\n';
        return header;
    }
    const QStringList oldColumns = text.left(lineEnd).split(u',');
    QStringList header = oldColumns;
    for (const QString& title : wanted) {
        if (!header.contains(title)) {
            header << title;
        }
    }
    for (const QString& column : {kDestinationsColumn, kDriveColumn, kVolumeColumn}) {
        if (!header.contains(column)) {
            header.prepend(column);
        }
    }
    if (header != oldColumns) {
        // The old line feed stays after the new one: a grown header is followed by a
        // blank line, which tells a reader where the columns changed.
        text.replace(0, lineEnd, header.join(u',') + u'\n');
    }
    return header;
}

QString rowValue(const QString& column, const SpreadsheetVolume& volume) {
    if (column == kVolumeColumn) {
        return volume.name;
    }
    if (column == kDiskColumn) {
        return volume.driveIdentifier;
    }
    if (column == kDestinationsColumn) {
        return volume.destinations.join(kDestinationSeparator);
    }
    const auto found =
        volume.metadata.find(QStringLiteral("QVMeta") + MetadataField::spacelessTitle(column));
    return found == volume.metadata.end() ? QString() : found->second;
}

QString row(const QStringList& header, const SpreadsheetVolume& volume) {
    QStringList values;
    values.reserve(header.size());
    for (const QString& column : header) {
        values << rowValue(column, volume);
    }
    return values.join(u',') + u'\n';
}

bool writeSheet(const QString& path, const QString& text) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    const QByteArray bytes = text.toUtf8();
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

// One name per file however it is reached, also before the file exists.
QString lockKey(const QString& path) {
    const QFileInfo info(path);
    const QString canonical = info.canonicalFilePath();
    if (!canonical.isEmpty()) {
        return canonical;
    }
    const QString folder = info.absoluteDir().canonicalPath();
    if (folder.isEmpty()) {
        return QDir::cleanPath(info.absoluteFilePath());
    }
    return folder + u'/' + info.fileName();
}

}  // namespace

std::shared_ptr<std::mutex> MetadataSpreadsheet::lockForFile(const QString& path) {
    // Entries live as long as some writer holds them; expired ones are swept on the way.
    struct Registry {
        std::mutex mutex;
        std::map<QString, std::weak_ptr<std::mutex>> locks;  // guarded by mutex
    };
    static Registry registry;

    const std::lock_guard guard(registry.mutex);
    std::erase_if(registry.locks, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<std::mutex>& slot = registry.locks[lockKey(path)];
    std::shared_ptr<std::mutex> lock = slot.lock();
    if (!lock) {
        lock = std::make_shared<std::mutex>();
        slot = lock;
    }
    return lock;
}

bool MetadataSpreadsheet::writeMetadataToFile(const QString& path, const SpreadsheetVolume& volume,
                                              const std::vector<MetadataField>& fields) {
    try {
        QVLog::appendLog(u"Writing metadata to file %@", path);
        const std::shared_ptr<std::mutex> fileLock = lockForFile(path);
        const std::lock_guard guard(*fileLock);

        QString text = readSheet(path);
        const QStringList header = updateHeader(text, wantedTitles(fields));
        if (!text.endsWith(u'\n')) {
            text += u'\n';
        }
        text += row(header, volume);

        if (!writeSheet(path, text)) {
            QVLog::appendLog(u"Error: could not write metadata to %@", path);
            return false;
        }
        QVLog::appendLog(u"Metadata successfully written to %@", path);
        return true;
    } catch (const std::exception& exception) {
        QVException::logException(exception, "writeMetadataToFile");
        return false;
    }
}
