#include "OffloadRunner.h"

#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTimer>
#include <cstdio>

#include "AppController.h"
#include "CardsweepVolumeChecker.h"
#include "DetachedThreads.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "TerminalAppView.h"

namespace {

void printError(const QString& text) {
    std::fprintf(stderr, "cardsweep-cli: %s\n", text.toUtf8().constData());
}

// The real path of a folder that may not exist yet: its nearest existing ancestor resolved,
// the rest appended.
QString resolvedPath(const QString& path) {
    QString existing = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    QString rest;
    while (!QFileInfo::exists(existing) && existing != QLatin1String("/")) {
        rest = u'/' + QFileInfo(existing).fileName() + rest;
        existing = QFileInfo(existing).path();
    }
    return QDir::cleanPath(QFileInfo(existing).canonicalFilePath() + rest);
}

// A destination on the card itself would be copied into itself until the card fills up.
std::optional<QString> destinationInside(const QString& source, const QStringList& destinations) {
    const QString card = resolvedPath(source);
    for (const QString& destination : destinations) {
        const QString resolved = resolvedPath(destination);
        if (resolved == card || resolved.startsWith(card + u'/') || card == QLatin1String("/"))
            return destination;
    }
    return std::nullopt;
}

// Every destination must exist or be creatable, and take new files.
std::optional<QString> unwritableDestination(const QStringList& destinations) {
    for (const QString& destination : destinations) {
        if (!QDir().mkpath(destination) ||
            ::access(QFile::encodeName(destination).constData(), W_OK | X_OK) != 0)
            return destination;
    }
    return std::nullopt;
}

void applyOverrides(SettingsStore& settings, const OffloadRunner::Request& request) {
    std::vector<DestinationEntry> list;
    for (const QString& destination : request.destinations)
        list.push_back({1, QFileInfo(destination).absoluteFilePath()});
    PropertyList::Array entries;
    for (const DestinationEntry& entry : list)
        entries.push_back(entry.toPropertyList());
    settings.setOverride(SettingsKey::destinationList, PropertyList(entries));
    settings.setOverride(SettingsKey::transferType, PropertyList(qint64(0)));
    if (!request.project.isEmpty())
        settings.setOverride(SettingsKey::projectName, PropertyList(request.project));
    if (!request.checksum.isEmpty())
        settings.setOverride(
            SettingsKey::checksumFormat,
            PropertyList(qint64(request.checksum == QLatin1String("sha1") ? 1 : 0)));
    if (request.onlyMovies)
        settings.setOverride(SettingsKey::onlyCopyQTMovies, PropertyList(qint64(1)));
}

}  // namespace

int OffloadRunner::run(SettingsStore& settings, const Request& request) {
    const QFileInfo sourceInfo(request.source);
    if (!sourceInfo.isDir()) {
        printError(QStringLiteral("%1: no such card or folder").arg(request.source));
        return 2;
    }
    if (request.destinations.isEmpty()) {
        printError(QStringLiteral("no destination given (--dest DIR)"));
        return 2;
    }
    if (const auto inside = destinationInside(request.source, request.destinations)) {
        printError(QStringLiteral("%1: destination is inside the source").arg(*inside));
        return 2;
    }
    if (const auto bad = unwritableDestination(request.destinations)) {
        printError(QStringLiteral("%1: destination can't be written").arg(*bad));
        return 1;
    }
    applyOverrides(settings, request);

    const QString source = QDir::cleanPath(sourceInfo.absoluteFilePath());
    const int type = CardsweepVolumeChecker::verifyVolumeType(source);
    const auto volume = QVVolume::volumeWithName(sourceInfo.fileName(), source, type, settings);
    // A card is the root of a mounted volume; anything else is a folder and never gets marked.
    volume->setIsFolder(QVFileManager::volumeMountPointForPath(source) != source);

    TerminalAppView view;
    AppController controller(settings, view, view, nullptr);
    controller.setDataArray({volume});
    std::printf("Card: %s (%s)\n", qPrintable(volume->name()), qPrintable(volume->typeName()));
    controller.addVolumeToQueue(volume);

    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        const qint64 status = volume->status();
        if (status == QVVolume::Copying || status == QVVolume::Verifying)
            view.showProgress(*volume);
        const bool ended = status == QVVolume::Done || status == QVVolume::Failed;
        if (ended && DetachedThreads::unfinished() == 0)
            QCoreApplication::exit(0);
    });
    poll.start(200);
    QCoreApplication::exec();
    DetachedThreads::joinAll();
    view.endProgress();

    for (const QString& destination : volume->destinations())
        std::printf("Destination: %s\n", qPrintable(destination));
    if (volume->status() == QVVolume::Done) {
        std::printf("Verdict: verified (%s)\n",
                    qPrintable(QVFileManager::formatFileSize(double(volume->totalMediaUsage()))));
        return 0;
    }
    std::printf("Verdict: FAILED: %s\n", qPrintable(volume->errorString().value_or("unknown")));
    return 1;
}
