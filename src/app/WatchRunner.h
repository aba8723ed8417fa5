#pragma once
// Automatic mode without a window: lists the cards already mounted, transfers every
// recognised card as it is mounted, prints each verdict, and ejects verified cards on request.
// Ends on SIGINT or SIGTERM, reporting any transfer it had to stop.

#include <QStringList>

class AppContext;

class WatchRunner {
  public:
    struct Request {
        QStringList destinations;  // empty: the ticked destinations of the settings
        bool image = false;
    };

    /// Runs until a signal; the exit status is 0, or 1 when any transfer failed or was stopped.
    static int run(AppContext& app, const Request& request);
};
