#include "CompareCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "AppContext.h"
#include "ManifestComparison.h"

CompareCommand::CompareCommand()
    : CliCommand("compare", "Compare the checksums.txt of several copies of a card, file by file") {
}

void CompareCommand::declareOptions(CLI::App& command) {
    command.add_option("FOLDER", folders_, "Transferred folders (two or more)")->required();
}

int CompareCommand::run(AppContext& context) {
    const QStringList folders = toStrings(folders_);
    if (folders.size() < 2)
        return fail(2, QStringLiteral("compare needs two folders or more"));
    const ManifestComparison::Result result = ManifestComparison::compare(folders, context.files());
    for (const QString& folder : result.withoutManifest)
        warn(folder + QStringLiteral(": no checksums.txt to compare"));
    if (!result.withoutManifest.isEmpty())
        return 2;
    const QByteArray first = folders.constFirst().toUtf8();
    for (const auto& difference : result.differences) {
        const QByteArray name = difference.file.toUtf8();
        const QByteArray folder = difference.folder.toUtf8();
        if (difference.sourceChecksum.isEmpty())
            std::printf("only in %s: %s\n", folder.constData(), name.constData());
        else if (difference.checksum.isEmpty())
            std::printf("missing from %s: %s\n", folder.constData(), name.constData());
        else
            std::printf("differs: %s: %s in %s, %s in %s\n", name.constData(),
                        difference.sourceChecksum.toUtf8().constData(), first.constData(),
                        difference.checksum.toUtf8().constData(), folder.constData());
    }
    std::printf("%d files compared across %lld folders: %s\n", result.files,
                static_cast<long long>(folders.size()), result.same() ? "the same" : "DIFFERENT");
    return result.same() ? 0 : 1;
}
