#pragma once
// printf-style formatting in which "%@" takes any argument as text, so the system's
// message templates can be used as they are written. A directive without a matching
// argument formats as 0 (numbers) or "(null)" (text) instead of reading garbage.

#include <QString>
#include <QVariant>
#include <vector>

class QVFormat {
  public:
    static QString formatList(QStringView format, const std::vector<QVariant>& arguments);

    template <typename... Args>
    static QString format(QStringView format, const Args&... arguments) {
        return formatList(format, {toVariant(arguments)...});
    }

  private:
    template <typename T>
    static QVariant toVariant(const T& value) {
        return QVariant::fromValue(value);
    }
    static QVariant toVariant(const char* value) { return QString::fromUtf8(value); }
    static QVariant toVariant(const std::string& value) { return QString::fromStdString(value); }
};
