#include "ReportCommand.h"

#include <CLI/CLI.hpp>
#include <QSaveFile>
#include <cstdio>

#include "AppContext.h"
#include "PathText.h"
#include "TransferReport.h"

ReportCommand::ReportCommand()
    : CliCommand("report",
                 "Write an earlier transfer's report again, from its copy's ASC MHL history") {}

void ReportCommand::declareOptions(CLI::App& command) {
    command.add_option("DEST_FOLDER", folder_, "A transferred folder")->required();
    command.add_option("--output", output_, "Write the HTML here instead of to the terminal");
}

int ReportCommand::run(AppContext& context) {
    const QString folder = QString::fromStdString(folder_);
    const auto content = TransferReport::fromFolder(context.files(), PathText::bytes(folder));
    if (!content)
        return fail(2, folder + QStringLiteral(": ") + content.status().message());
    // A report from a partly damaged history is still written, with what could not be read said.
    if (!content->unreadable.ok())
        warn(folder + QStringLiteral(": ") + content->unreadable.message());
    if (output_.empty()) {
        TransferReport::write(*content, [](const QByteArray& piece) {
            std::fwrite(piece.constData(), 1, std::size_t(piece.size()), stdout);
        });
        return 0;
    }
    const QString output = QString::fromStdString(output_);
    QSaveFile file(output);
    bool written = file.open(QIODevice::WriteOnly);
    TransferReport::write(*content, [&](const QByteArray& piece) {
        written = written && file.write(piece) == piece.size();
    });
    if (!written || !file.commit())
        return fail(1, output + QStringLiteral(": ") + file.errorString());
    std::printf("%s: report written\n", output.toUtf8().constData());
    return 0;
}
