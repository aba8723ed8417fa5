#include "TempHome.h"

#include <QDir>

TempHome::TempHome() {
    const QByteArray home = dir_.path().toLocal8Bit();
    setEnv("HOME", home);
    setEnv("XDG_CONFIG_HOME", home + "/.config");
    setEnv("XDG_DATA_HOME", home + "/.local/share");
    setEnv("XDG_CACHE_HOME", home + "/.cache");
    setEnv("XDG_STATE_HOME", home + "/.local/state");
    setEnv("SUDO_USER", QByteArray());
    QDir(dir_.path()).mkpath(QStringLiteral(".config"));
}

TempHome::~TempHome() {
    for (const auto& [name, value] : saved_) {
        if (value.first)
            qputenv(name.constData(), value.second);
        else
            qunsetenv(name.constData());
    }
}

void TempHome::setEnv(const char* name, const QByteArray& value) {
    if (saved_.count(name) == 0)
        saved_[name] = {qEnvironmentVariableIsSet(name), qgetenv(name)};
    if (value.isNull())
        qunsetenv(name);
    else
        qputenv(name, value);
}
