#pragma once
// Answers the window's next sheets as a user would, by clicking the named button of the
// modal message box when it appears, and keeps the texts it saw. Main thread only.

#include <QObject>
#include <QStringList>
#include <QTimer>

class SheetAnswerer : public QObject {
  public:
    SheetAnswerer();
    /// The next sheet that appears is answered with this button, or with the Return key for
    /// "Return".
    void answerWith(const QString& button) { answers_ << button; }
    /// "message | button, button..." of every sheet answered.
    const QStringList& seen() const { return seen_; }

  private:
    void poll();

    QTimer timer_;
    QStringList answers_;
    QStringList seen_;
};
