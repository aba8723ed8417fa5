#pragma once
// The outcome of an operation that can fail: success, or what failed (a short phrase such as
// "write" or "the history folder can't be made"), the path it failed on and why (an errno, or a
// reason in words). One shape for the engine's errors, so a failure travels up unchanged and
// is told to the user as one line. Plain value, any thread.

#include <QByteArray>
#include <QString>

class Status {
  public:
    /// Success.
    Status() = default;

    /// A failure with errno code; path may be empty when the caller names the file itself.
    static Status fromErrno(const QString& what, const QString& path, int code);
    static Status fromErrno(const QString& what, const QByteArray& path, int code);
    /// A failure that has no errno: reason says why in words.
    static Status failure(const QString& what, const QString& reason = {},
                          const QString& path = {});

    bool ok() const { return !failed_; }
    const QString& what() const { return what_; }
    const QString& path() const { return path_; }
    /// The errno, 0 when the failure has none.
    int code() const { return code_; }
    /// The errno's text, or the reason given.
    QString reason() const;
    /// The line the user sees: "what path: reason", each part only when present; empty on success.
    QString message() const;

  private:
    bool failed_ = false;
    QString what_;
    QString path_;
    int code_ = 0;
    QString reason_;
};
