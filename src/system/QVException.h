#pragma once
// Named failures and their one-line log form. Components never let exceptions cross
// their boundary: entry points catch and log them here.

#include <QString>
#include <exception>
#include <stdexcept>

class QVException : public std::runtime_error {
  public:
    QVException(const QString& name, const QString& reason);

    QString name() const { return name_; }
    QString reason() const { return reason_; }

    /// Logs "Exception in METHOD. NAME - REASON." (and prints it); returns the message.
    static QString logException(const std::exception& exception, const char* method);

    /// True when the failure was a time-out talking to another program.
    static bool didTimeout(const std::exception& exception);

    /// Installs the handler that logs an uncaught exception and flushes the log.
    static void installUncaughtExceptionHandler();

    static QString nameOf(const std::exception& exception);
    static QString reasonOf(const std::exception& exception);

  private:
    QString name_;
    QString reason_;
};
