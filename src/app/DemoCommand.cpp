#include "DemoCommand.h"

#include <QDir>
#include <QDirIterator>
#include <cstdio>
#include <map>

#include "AppContext.h"
#include "CardFiles.h"
#include "CardFormat.h"
#include "LocalPaths.h"
#include "OffloadRunner.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVLocalPaths.h"
#include "SampleCard.h"
#include "SettingsStore.h"

namespace {

void printTree(const QString& folder) {
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    std::map<QString, qint64> files;
    while (it.hasNext()) {
        const QString path = it.next();
        files[path.mid(folder.size() + 1)] = it.fileInfo().size();
    }
    for (const auto& [path, size] : files) {
        std::printf("  %10s  %s\n",
                    QVFileManager::formatFileSize(double(size)).toUtf8().constData(),
                    path.toUtf8().constData());
    }
}

void printCopies(const QString& destination) {
    QDirIterator manifests(destination, {QString::fromLatin1(CardFiles::kManifest)}, QDir::Files,
                           QDirIterator::Subdirectories);
    while (manifests.hasNext()) {
        const QString manifest = manifests.next();
        const QString folder = QFileInfo(manifest).path();
        std::printf("\n%s\n", folder.toUtf8().constData());
        printTree(folder);
        std::printf("Manifest: %s\n", manifest.toUtf8().constData());
    }
}

}  // namespace

DemoCommand::DemoCommand()
    : CliCommand("demo", "Make a sample card and offload it to two temporary folders") {}

int DemoCommand::run(AppContext& context) {
    const QString root =
        QDir(context.paths().tempDirectory())
            .filePath(QStringLiteral("cardsweep-demo-") + QVLocalPaths::randomString(6));
    const QString card =
        root + QStringLiteral("/cards/") + SampleCard::folderName(CardFormat::CanonXF);
    SampleCard::Options options;
    options.clips = 4;
    options.clipBytes = 6 * 1024 * 1024;
    QString error;
    if (!SampleCard::make(CardFormat::CanonXF, card, options, &error))
        return fail(1, QStringLiteral("can't make the sample card: ") + error);
    std::printf("Sample card: %s\n", card.toUtf8().constData());
    SettingsStore settings(root + QStringLiteral("/settings.plist"));
    Preferences(settings).registerAndMigrate();
    OffloadRunner::Request request;
    request.source = card;
    request.destinations = {root + QStringLiteral("/Destination A"),
                            root + QStringLiteral("/Destination B")};
    const int status = OffloadRunner::run(context, settings, request);
    for (const QString& destination : request.destinations)
        printCopies(destination);
    return status;
}
