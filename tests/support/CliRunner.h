#pragma once
// Runs cardsweep-cli as a user would, from the build's bin folder, and gathers what it says.

#include <QString>
#include <QStringList>

class CliRunner {
  public:
    struct Run {
        int status = -1;
        QString output;  // standard output, then standard error
        /// The "Destination: " lines' paths, in order.
        QStringList destinations() const;
    };

    /// cardsweep-cli with these arguments (each one argument, no shell); waits for its end.
    static Run run(const QStringList& arguments);
};
