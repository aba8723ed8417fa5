#include "OffloadRunner.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <cstdio>

#include "AppContext.h"
#include "AppController.h"
#include "CardsweepVolumeChecker.h"
#include "DigestContext.h"
#include "FileLayer.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVGrowl.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "SignalPipe.h"
#include "TerminalAppView.h"
#include "TransferSummary.h"
#include "WorkerThreads.h"

namespace {

void print(const QString& line) {
    std::printf("%s\n", line.toUtf8().constData());
}

void applyOverrides(SettingsStore& settings, const OffloadRunner::Request& request) {
    std::vector<DestinationEntry> list;
    for (const QString& destination : request.destinations)
        list.push_back({1, QFileInfo(destination).absoluteFilePath()});
    settings.setOverride(SettingsKey::destinationList, list);
    settings.setOverride(SettingsKey::transferType, 0);
    if (!request.project.isEmpty())
        settings.setOverride(SettingsKey::projectName, request.project);
    // The first digest is the manifest's; the others are made from the same read as well.
    const QStringList digests = request.checksum.split(u',', Qt::SkipEmptyParts);
    PropertyList::Array also;
    for (qsizetype i = 0; i < digests.size(); ++i) {
        const auto kind = DigestContext::fromName(digests[i].trimmed());
        if (!kind)
            continue;
        if (i == 0)
            settings.setOverride(SettingsKey::checksumFormat, qint64(*kind));
        else
            also.push_back(PropertyList(qint64(*kind)));
    }
    if (!digests.isEmpty())
        settings.setOverride(SettingsKey::alsoChecksumFormats, PropertyList(also));
    if (request.onlyMovies)
        settings.setOverride(SettingsKey::onlyCopyQTMovies, true);
    if (request.inlineCheck)
        settings.setOverride(SettingsKey::inlineVerification, true);
}

}  // namespace

int OffloadRunner::run(AppContext& context, SettingsStore& settings, const Request& request) {
    applyOverrides(settings, request);

    const QFileInfo sourceInfo(request.source);
    const QString source = QDir::cleanPath(sourceInfo.absoluteFilePath());
    FileLayer& files = context.files();
    const int type = CardsweepVolumeChecker::verifyVolumeType(files, source);
    const auto volume =
        QVVolume::volumeWithName(sourceInfo.fileName(), source, type, settings, context.clock());
    // A card is the root of a mounted volume; anything else is a folder and never gets marked.
    volume->setIsFolder(QVFileManager(files).volumeMountPointForPath(source) != source);

    TerminalAppView view;
    view.setDesktopNotifier(&context.growl());
    AppController controller(settings, view, context.services(view));
    controller.setDataArray({volume});
    std::printf("Card: %s (%s)\n", qPrintable(volume->name()), qPrintable(volume->typeName()));
    view.setVolumesChangedHandler([&view](const VolumeSnapshot& snapshot) {
        // Nothing to draw until the first bytes are counted against the card's real size.
        const bool running =
            snapshot.status == VolumeStatus::Copying || snapshot.status == VolumeStatus::Verifying;
        if (running && snapshot.progress > 0)
            view.showProgress(snapshot);
    });
    view.setTransferEndedHandler([](const std::shared_ptr<QVVolume>&) {
        // Queued, so an end told before the loop runs still ends it.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);
    });
    // Stopped, the copy ends where it stands and marks its folders; the loop ends with it.
    const SignalPipe stop([&controller](int) {
        controller.dropWaitingVolumes();
        if (!controller.stopRunningTransfers())
            QCoreApplication::exit(0);
    });
    controller.addVolumeToQueue(volume);
    QCoreApplication::exec();
    SignalPipe::restoreDefaults();
    context.threads().joinAll();
    if (volume->status() == QVVolume::Done) {
        // Whatever the last report said, a finished transfer's bar is full.
        VolumeSnapshot done = *volume->snapshot();
        done.progress = done.maxProgress;
        view.showProgress(done);
    }
    view.endProgress();

    for (const QString& line : TransferSummary::lines(*volume))
        print(line);
    print(QStringLiteral("Verdict: ") + TransferSummary::verdict(*volume));
    std::fflush(stdout);
    const bool verified = volume->status() == QVVolume::Done && volume->transferChecks().checksums;
    return stop.exitStatus(verified ? 0 : 1);
}
