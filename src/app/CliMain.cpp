// cardsweep-cli: the offload engine without a window.

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QSaveFile>
#include <cstdio>
#include <map>

#include "AppContext.h"
#include "AscMhlHistory.h"
#include "CardFormat.h"
#include "CliCommands.h"
#include "Clock.h"
#include "DigestContext.h"
#include "FileLayer.h"
#include "HistoryVerifier.h"
#include "ManifestComparison.h"
#include "ManifestVerifier.h"
#include "OffloadRunner.h"
#include "PathText.h"
#include "PostActionOptions.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVFileManager.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "SampleCard.h"
#include "SettingsStore.h"
#include "SystemClock.h"
#include "TransferReport.h"
#include "WatchRunner.h"

namespace {

QStringList toStrings(const std::vector<std::string>& values) {
    QStringList strings;
    for (const std::string& value : values)
        strings << QString::fromStdString(value);
    return strings;
}

// The first folder's checksums.txt against each other's: 0 when every copy lists the same
// files with the same checksums, 1 on a difference, 2 when a folder has no manifest.
int compareFolders(const QStringList& folders) {
    if (folders.size() < 2) {
        std::fprintf(stderr, "cardsweep-cli: compare needs two folders or more\n");
        return 2;
    }
    const ManifestComparison::Result result =
        ManifestComparison::compare(folders, FileLayer::posix());
    for (const QString& folder : result.withoutManifest)
        std::fprintf(stderr, "cardsweep-cli: %s: no checksums.txt to compare\n",
                     qPrintable(folder));
    if (!result.withoutManifest.isEmpty())
        return 2;
    const QString& first = folders.constFirst();
    for (const auto& difference : result.differences) {
        const QByteArray name = difference.file.toUtf8();
        if (difference.sourceChecksum.isEmpty())
            std::printf("only in %s: %s\n", qPrintable(difference.folder), name.constData());
        else if (difference.checksum.isEmpty())
            std::printf("missing from %s: %s\n", qPrintable(difference.folder), name.constData());
        else
            std::printf("differs: %s: %s in %s, %s in %s\n", name.constData(),
                        qPrintable(difference.sourceChecksum), qPrintable(first),
                        qPrintable(difference.checksum), qPrintable(difference.folder));
    }
    std::printf("%d files compared across %lld folders: %s\n", result.files,
                static_cast<long long>(folders.size()), result.same() ? "the same" : "DIFFERENT");
    return result.same() ? 0 : 1;
}

// The ASC MHL history when the folder has one (whole paths), else its checksums.txt.
int verifyFolder(const QString& folder, bool seal) {
    const bool history = AscMhlHistory::exists(FileLayer::posix(), PathText::bytes(folder));
    if (seal && !history) {
        std::fprintf(stderr, "cardsweep-cli: %s: no ASC MHL history to seal\n", qPrintable(folder));
        return 2;
    }
    QString sealError;
    const ManifestVerifier::Report report =
        history ? HistoryVerifier::verify(folder, seal, &sealError, FileLayer::posix(),
                                          *SystemClock::shared())
                : ManifestVerifier::verify(folder, FileLayer::posix());
    if (!report.manifestFound) {
        std::fprintf(stderr, "cardsweep-cli: %s: no checksums.txt to verify against\n",
                     qPrintable(folder));
        return 2;
    }
    std::printf("%s: checked against its %s\n", qPrintable(folder),
                history ? "ASC MHL history" : "checksums.txt");
    const auto list = [](const char* label, const QStringList& names) {
        for (const QString& name : names)
            std::printf("%s: %s\n", label, name.toUtf8().constData());
    };
    list("incomplete", report.incomplete);
    list("failed during transfer", report.failed);
    list(history ? "damaged history" : "unreadable manifest", report.unreadable);
    list("same name, can't be told apart", report.ambiguous);
    list("missing", report.missing);
    list("differs", report.differing);
    list("extra", report.extra);
    std::printf("%s: %d files checked, %s\n", qPrintable(folder), report.checked,
                report.ok() ? "verified" : "FAILED");
    if (seal && sealError.isEmpty())
        std::printf("%s: sealed as a new generation of its history\n", qPrintable(folder));
    if (!sealError.isEmpty())
        std::fprintf(stderr, "cardsweep-cli: %s: the history can't be sealed: %s\n",
                     qPrintable(folder), qPrintable(sealError));
    return report.ok() && sealError.isEmpty() ? 0 : 1;
}

// An earlier transfer's report, rebuilt from its copy's history: on the terminal, or into a file.
int writeReport(const QString& folder, const QString& output) {
    QString error;
    const auto content =
        TransferReport::fromFolder(FileLayer::posix(), PathText::bytes(folder), &error);
    if (!content) {
        std::fprintf(stderr, "cardsweep-cli: %s: %s\n", qPrintable(folder), qPrintable(error));
        return 2;
    }
    if (!error.isEmpty())
        std::fprintf(stderr, "cardsweep-cli: %s: %s\n", qPrintable(folder), qPrintable(error));
    if (output.isEmpty()) {
        TransferReport::write(*content, [](const QByteArray& piece) {
            std::fwrite(piece.constData(), 1, std::size_t(piece.size()), stdout);
        });
        return 0;
    }
    QSaveFile file(output);
    bool written = file.open(QIODevice::WriteOnly);
    TransferReport::write(*content, [&](const QByteArray& piece) {
        written = written && file.write(piece) == piece.size();
    });
    if (!written || !file.commit()) {
        std::fprintf(stderr, "cardsweep-cli: %s: %s\n", qPrintable(output),
                     qPrintable(file.errorString()));
        return 1;
    }
    std::printf("%s: report written\n", qPrintable(output));
    return 0;
}

void printTree(const QString& folder) {
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    std::map<QString, qint64> files;
    while (it.hasNext()) {
        const QString path = it.next();
        files[path.mid(folder.size() + 1)] = it.fileInfo().size();
    }
    for (const auto& [path, size] : files) {
        std::printf("  %10s  %s\n", qPrintable(QVFileManager::formatFileSize(double(size))),
                    qPrintable(path));
    }
}

// A sample card and two destinations in a fresh folder, with settings of their own.
int demo(AppContext& context) {
    const QString root =
        QDir(QVLocalPaths::tempDirectory())
            .filePath(QStringLiteral("cardsweep-demo-") + QVLocalPaths::randomString(6));
    const QString card =
        root + QStringLiteral("/cards/") + SampleCard::folderName(CardFormat::CanonXF);
    SampleCard::Options options;
    options.clips = 4;
    options.clipBytes = 6 * 1024 * 1024;
    QString error;
    if (!SampleCard::make(CardFormat::CanonXF, card, options, &error)) {
        std::fprintf(stderr, "cardsweep-cli: can't make the sample card: %s\n", qPrintable(error));
        return 1;
    }
    std::printf("Sample card: %s\n", qPrintable(card));
    SettingsStore settings(root + QStringLiteral("/settings.plist"));
    Preferences(settings).registerAndMigrate();
    OffloadRunner::Request request;
    request.source = card;
    request.destinations = {root + QStringLiteral("/Destination A"),
                            root + QStringLiteral("/Destination B")};
    const int status = OffloadRunner::run(context, settings, request);
    for (const QString& destination : request.destinations) {
        QDirIterator manifests(destination, {QStringLiteral("checksums.txt")}, QDir::Files,
                               QDirIterator::Subdirectories);
        while (manifests.hasNext()) {
            const QString manifest = manifests.next();
            const QString folder = QFileInfo(manifest).path();
            std::printf("\n%s\n", qPrintable(folder));
            printTree(folder);
            std::printf("Manifest: %s\n", qPrintable(manifest));
        }
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App cli{"Cardsweep: offload camera cards to several destinations, verified."};
    cli.set_version_flag("--version", std::string("cardsweep-cli ") + CARDSWEEP_VERSION);
    cli.require_subcommand(0, 1);
    CLI::App* paths = cli.add_subcommand("paths", "Show where settings and logs are kept");
    CLI::App* settings = cli.add_subcommand("settings", "Print the settings in effect");

    CLI::App* offload = cli.add_subcommand("offload", "Copy a card to every destination, verified");
    std::string source;
    std::vector<std::string> destinations;
    std::string project;
    std::string checksum;
    bool onlyMovies = false;
    offload->add_option("SOURCE", source, "The card's mount point or a folder")->required();
    offload->add_option("--dest", destinations, "A destination folder (repeat for more)")
        ->required()
        ->take_all();
    offload->add_option("--project", project, "Project name for this run");
    offload
        ->add_option("--checksum", checksum,
                     "Digest for this run: xxh64, xxh3, xxh128, md5 or sha1; more after commas "
                     "(md5,xxh128) are made from the same read and kept in the history")
        ->check(
            [](const std::string& value) {
                for (const QString& name : QString::fromStdString(value).split(u','))
                    if (!DigestContext::fromName(name.trimmed()))
                        return "not a digest: " + name.toStdString() +
                               " (xxh64, xxh3, xxh128, md5 or sha1)";
                return std::string();
            },
            "DIGEST[,DIGEST...]");
    offload->add_flag("--only-movies", onlyMovies, "Copy only the QuickTime movies");
    bool inlineCheck = false;
    offload->add_flag("--inline", inlineCheck,
                      "Check each write as it is made instead of reading the copies back from "
                      "the media");
    PostActionOptions offloadActions;
    offloadActions.addTo(*offload);

    CLI::App* verify = cli.add_subcommand(
        "verify", "Re-check a transferred folder against its history or checksums.txt");
    std::string verifyFolderPath;
    verify
        ->add_option("DEST_FOLDER", verifyFolderPath,
                     "A transferred folder (its ascmhl history, else its checksums.txt)")
        ->required();
    bool seal = false;
    verify->add_flag("--seal", seal, "Record the check as a new generation of the history");
    CLI::App* compare = cli.add_subcommand(
        "compare", "Compare the checksums.txt of several copies of a card, file by file");
    std::vector<std::string> compareFolderPaths;
    compare->add_option("FOLDER", compareFolderPaths, "Transferred folders (two or more)")
        ->required();
    CLI::App* report = cli.add_subcommand(
        "report", "Write an earlier transfer's report again, from its copy's ASC MHL history");
    std::string reportFolder;
    std::string reportOutput;
    report->add_option("DEST_FOLDER", reportFolder, "A transferred folder")->required();
    report->add_option("--output", reportOutput, "Write the HTML here instead of to the terminal");
    CLI::App* watch = cli.add_subcommand(
        "watch", "Transfer every recognised card as it is mounted, until Ctrl-C");
    std::vector<std::string> watchDestinations;
    bool image = false;
    watch->add_option("--dest", watchDestinations, "A destination for this run (repeat for more)")
        ->take_all();
    PostActionOptions watchActions;
    watchActions.addTo(*watch);
    watch->add_flag("--image", image, "Make a disk image of each card instead of copying files");

    CLI::App* gatherLogs = cli.add_subcommand(
        "gather-logs",
        "Put the logs, crash reports and settings in a zip on the desktop, for support");

    CLI::App* demoCommand =
        cli.add_subcommand("demo", "Make a sample card and offload it to two temporary folders");

    try {
        cli.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = cli.exit(error);
        return status == 0 ? 0 : 2;
    }

    QCoreApplication app(argc, argv);
    AppContext context;
    context.startBugReporter([](const QString& report) {
        std::fprintf(stderr, "cardsweep-cli: the last run crashed; its report is %s\n",
                     report.toUtf8().constData());
    });
    if (const QString problem = context.settingsProblem(); !problem.isEmpty())
        std::fprintf(stderr, "cardsweep-cli: %s\n", problem.toUtf8().constData());
    Preferences preferences(context.settings());
    const CliCommands commands(preferences);

    int status = 0;
    if (gatherLogs->parsed()) {
        const QString zip = context.gatherLogs(true);
        if (zip.isEmpty()) {
            std::fprintf(stderr,
                         "cardsweep-cli: there were no logs to gather, or the zip could "
                         "not be written (see the log)\n");
            status = 1;
        } else {
            std::printf("%s\n", zip.toUtf8().constData());
        }
    } else if (paths->parsed()) {
        status = commands.paths();
    } else if (settings->parsed()) {
        status = commands.settings();
    } else if (offload->parsed()) {
        OffloadRunner::Request request;
        request.source = QString::fromStdString(source);
        request.destinations = toStrings(destinations);
        request.project = QString::fromStdString(project);
        request.checksum = QString::fromStdString(checksum);
        request.onlyMovies = onlyMovies;
        request.inlineCheck = inlineCheck;
        offloadActions.applyTo(context.settings());
        status = OffloadRunner::run(context, context.settings(), request);
    } else if (verify->parsed()) {
        status = verifyFolder(QString::fromStdString(verifyFolderPath), seal);
    } else if (compare->parsed()) {
        status = compareFolders(toStrings(compareFolderPaths));
    } else if (report->parsed()) {
        status =
            writeReport(QString::fromStdString(reportFolder), QString::fromStdString(reportOutput));
    } else if (watch->parsed()) {
        WatchRunner::Request request;
        request.destinations = toStrings(watchDestinations);
        request.image = image;
        watchActions.applyTo(context.settings());
        status = WatchRunner::run(context, request);
    } else if (demoCommand->parsed()) {
        status = demo(context);
    } else {
        std::fputs(cli.help().c_str(), stdout);
    }
    return status;
}
