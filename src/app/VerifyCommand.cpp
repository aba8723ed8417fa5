#include "VerifyCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "AppContext.h"
#include "AscMhlHistory.h"
#include "HistoryVerifier.h"
#include "ManifestVerifier.h"
#include "PathText.h"

namespace {

void list(const char* label, const QStringList& names) {
    for (const QString& name : names)
        std::printf("%s: %s\n", label, name.toUtf8().constData());
}

}  // namespace

VerifyCommand::VerifyCommand()
    : CliCommand("verify", "Re-check a transferred folder against its history or checksums.txt") {}

void VerifyCommand::declareOptions(CLI::App& command) {
    command
        .add_option("DEST_FOLDER", folder_,
                    "A transferred folder (its ascmhl history, else its checksums.txt)")
        ->required();
    command.add_flag("--seal", seal_, "Record the check as a new generation of the history");
}

int VerifyCommand::run(AppContext& context) {
    const QString folder = QString::fromStdString(folder_);
    FileLayer& files = context.files();
    const bool history = AscMhlHistory::exists(files, PathText::bytes(folder));
    if (seal_ && !history)
        return fail(2, folder + QStringLiteral(": no ASC MHL history to seal"));
    const HistoryVerifier::Report report =
        history ? HistoryVerifier::verify(folder, seal_, files, *context.clock())
                : HistoryVerifier::Report{ManifestVerifier::verify(folder, files), {}};
    if (!report.manifestFound)
        return fail(2, folder + QStringLiteral(": no checksums.txt to verify against"));
    const QByteArray name = folder.toUtf8();
    std::printf("%s: checked against its %s\n", name.constData(),
                history ? "ASC MHL history" : "checksums.txt");
    list("incomplete", report.incomplete);
    list("failed during transfer", report.failed);
    list(history ? "damaged history" : "unreadable manifest", report.unreadable);
    list("same name, can't be told apart", report.ambiguous);
    list("missing", report.missing);
    list("differs", report.differing);
    list("extra", report.extra);
    std::printf("%s: %d files checked, %s\n", name.constData(), report.checked,
                report.ok() ? "verified" : "FAILED");
    if (!report.sealed.ok())
        return fail(1, folder + QStringLiteral(": the history can't be sealed: ") +
                           report.sealed.message());
    if (seal_)
        std::printf("%s: sealed as a new generation of its history\n", name.constData());
    return report.ok() ? 0 : 1;
}
