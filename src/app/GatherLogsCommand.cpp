#include "GatherLogsCommand.h"

#include <cstdio>

#include "AppContext.h"

GatherLogsCommand::GatherLogsCommand()
    : CliCommand("gather-logs",
                 "Put the logs, crash reports and settings in a zip on the desktop, for support") {}

int GatherLogsCommand::run(AppContext& context) {
    const QString zip = context.gatherLogs(true);
    if (zip.isEmpty()) {
        return fail(1, QStringLiteral("there were no logs to gather, or the zip could not be "
                                      "written (see the log)"));
    }
    std::printf("%s\n", zip.toUtf8().constData());
    return 0;
}
