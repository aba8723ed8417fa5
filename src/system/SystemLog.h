#pragma once
// The system log (syslog(3), so the journal): diagnostics of the copy engine and the file layer,
// apart from the application's own log. Tests hold a Capture to see the lines.

#include <QString>
#include <QStringList>

#include "QVFormat.h"

class SystemLog {
  public:
    template <typename... Args>
    static void log(QStringView format, const Args&... arguments) {
        write(QVFormat::format(format, arguments...));
    }

    static void write(const QString& line);

    /// Collects every line written, from any thread, while it lives, in place of the system log.
    class Capture {
      public:
        Capture();
        ~Capture();
        Capture(const Capture&) = delete;
        Capture& operator=(const Capture&) = delete;
        QStringList lines() const;
        bool contains(const QString& line) const { return lines().contains(line); }
        qsizetype count(const QString& line) const { return lines().count(line); }
    };
};
