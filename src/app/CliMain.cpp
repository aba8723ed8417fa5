// cardsweep-cli: the offload engine without a window.

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <cstdio>
#include <memory>
#include <vector>

#include "AppContext.h"
#include "CompareCommand.h"
#include "DemoCommand.h"
#include "GatherLogsCommand.h"
#include "OffloadCommand.h"
#include "PathsCommand.h"
#include "ReportCommand.h"
#include "SettingsCommand.h"
#include "VerifyCommand.h"
#include "WatchCommand.h"

namespace {

// In the order the help lists them.
std::vector<std::unique_ptr<CliCommand>> makeCommands() {
    std::vector<std::unique_ptr<CliCommand>> commands;
    commands.push_back(std::make_unique<PathsCommand>());
    commands.push_back(std::make_unique<SettingsCommand>());
    commands.push_back(std::make_unique<OffloadCommand>());
    commands.push_back(std::make_unique<VerifyCommand>());
    commands.push_back(std::make_unique<CompareCommand>());
    commands.push_back(std::make_unique<ReportCommand>());
    commands.push_back(std::make_unique<WatchCommand>());
    commands.push_back(std::make_unique<GatherLogsCommand>());
    commands.push_back(std::make_unique<DemoCommand>());
    return commands;
}

void sayCrash(const QString& report) {
    std::fprintf(stderr, "cardsweep-cli: the last run crashed; its report is %s\n",
                 report.toUtf8().constData());
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App cli{"Cardsweep: offload camera cards to several destinations, verified."};
    cli.set_version_flag("--version", std::string("cardsweep-cli ") + CARDSWEEP_VERSION);
    cli.require_subcommand(0, 1);
    const std::vector<std::unique_ptr<CliCommand>> commands = makeCommands();
    for (const auto& command : commands)
        command->addTo(cli);
    try {
        cli.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return cli.exit(error) == 0 ? 0 : 2;
    }

    QCoreApplication app(argc, argv);
    AppContext context;
    context.startBugReporter(sayCrash);
    if (const QString problem = context.settingsProblem(); !problem.isEmpty())
        std::fprintf(stderr, "cardsweep-cli: %s\n", problem.toUtf8().constData());
    for (const auto& command : commands) {
        if (command->chosen())
            return command->run(context);
    }
    std::fputs(cli.help().c_str(), stdout);
    return 0;
}
