// cardsweep-cli: the offload engine without a window.

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <cstdio>

#include "CliCommands.h"
#include "DetachedThreads.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVLog.h"
#include "SettingsStore.h"

int main(int argc, char** argv) {
    CLI::App cli{"Cardsweep: offload camera cards to several destinations, verified."};
    cli.set_version_flag("--version", std::string("cardsweep-cli ") + CARDSWEEP_VERSION);
    cli.require_subcommand(0, 1);
    CLI::App* paths = cli.add_subcommand("paths", "Show where settings and logs are kept");
    CLI::App* settings = cli.add_subcommand("settings", "Print the settings in effect");
    CLI11_PARSE(cli, argc, argv);

    QCoreApplication app(argc, argv);
    QVException::installUncaughtExceptionHandler();
    QVLog::createNewLog();

    SettingsStore store(SettingsStore::defaultPath());
    Preferences preferences(store);
    preferences.registerAndMigrate();
    const CliCommands commands(preferences);

    int status = 0;
    if (paths->parsed()) {
        status = commands.paths();
    } else if (settings->parsed()) {
        status = commands.settings();
    } else {
        std::fputs(cli.help().c_str(), stdout);
    }
    DetachedThreads::joinAll();
    QVLog::sharedController().willTerminate();
    return status;
}
