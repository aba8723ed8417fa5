#pragma once
// Points HOME and the XDG folders at a fresh temporary folder for as long as it lives,
// so nothing a test does reaches the real user's files.

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>
#include <map>

class TempHome {
  public:
    TempHome();
    ~TempHome();
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    QString path() const { return dir_.path(); }
    QString file(const QString& relative) const { return dir_.filePath(relative); }

    /// Sets (or, with a null value, unsets) a variable until this object goes.
    void setEnv(const char* name, const QByteArray& value);

  private:
    QTemporaryDir dir_;
    std::map<QByteArray, std::pair<bool, QByteArray>> saved_;
};
