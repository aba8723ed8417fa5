#pragma once
// The text of an errno value, safe from any thread.

#include <QString>
#include <system_error>

class SystemError {
  public:
    static QString text(int code) {
        return QString::fromStdString(std::generic_category().message(code));
    }
};
