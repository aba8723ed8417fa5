#include "OffloadCommand.h"

#include <CLI/CLI.hpp>

#include "AppContext.h"
#include "DigestContext.h"
#include "OffloadRunner.h"
#include "TransferRequest.h"

namespace {

std::string digestProblem(const std::string& value) {
    for (const QString& name : QString::fromStdString(value).split(u','))
        if (!DigestContext::fromName(name.trimmed()))
            return "not a digest: " + name.toStdString() + " (xxh64, xxh3, xxh128, md5 or sha1)";
    return {};
}

}  // namespace

OffloadCommand::OffloadCommand()
    : CliCommand("offload", "Copy a card to every destination, verified") {}

void OffloadCommand::declareOptions(CLI::App& command) {
    command.add_option("SOURCE", source_, "The card's mount point or a folder")->required();
    command.add_option("--dest", destinations_, "A destination folder (repeat for more)")
        ->required()
        ->take_all();
    command.add_option("--project", project_, "Project name for this run");
    command
        .add_option("--checksum", checksum_,
                    "Digest for this run: xxh64, xxh3, xxh128, md5 or sha1; more after commas "
                    "(md5,xxh128) are made from the same read and kept in the history")
        ->check(digestProblem, "DIGEST[,DIGEST...]");
    command.add_flag("--only-movies", onlyMovies_, "Copy only the QuickTime movies");
    command.add_flag("--inline", inlineCheck_,
                     "Check each write as it is made instead of reading the copies back from "
                     "the media");
    actions_.addTo(command);
}

int OffloadCommand::run(AppContext& context) {
    OffloadRunner::Request request;
    request.source = QString::fromStdString(source_);
    request.destinations = toStrings(destinations_);
    request.project = QString::fromStdString(project_);
    request.checksum = QString::fromStdString(checksum_);
    request.onlyMovies = onlyMovies_;
    request.inlineCheck = inlineCheck_;
    if (const auto problem = TransferRequest::problem(context.files(), request.source,
                                                      request.destinations, request.onlyMovies))
        return fail(2, problem->line);
    actions_.applyTo(context.settings());
    return OffloadRunner::run(context, context.settings(), request);
}
