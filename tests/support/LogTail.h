#pragma once
// What the process's log gained since this object was made (a log is opened first when there
// is none), so a test can check the lines a step wrote.

#include <QString>

class LogTail {
  public:
    LogTail();
    /// Waits until every queued line is written, then returns the new text.
    QString text() const;

  private:
    qint64 start_ = 0;
};
