#include "PathsCommand.h"

#include <cstdio>

#include "AppContext.h"
#include "Preferences.h"
#include "QVLog.h"
#include "SettingsStore.h"

namespace {

void printLine(const char* label, const QString& value) {
    std::printf("%-18s %s\n", label, value.toUtf8().constData());
}

}  // namespace

PathsCommand::PathsCommand() : CliCommand("paths", "Show where settings and logs are kept") {}

int PathsCommand::run(AppContext& context) {
    printLine("Settings:", context.settings().path());
    printLine("Analytics switch:", Preferences::qcFilePath());
    printLine("Log folder:", QVLog::logFolder());
    for (const QString& log : QVLog::availableLogs())
        printLine("Log:", log);
    return 0;
}
