#include "FakeDesktop.h"

bool FakeDesktop::revealFolder(const QString& folder) {
    record(QStringLiteral("reveal ") + folder);
    return true;
}

bool FakeDesktop::openFiles(const QStringList& files) {
    record(QStringLiteral("open ") + files.join(u' '));
    return true;
}

bool FakeDesktop::playSound(const QString& name) {
    record(QStringLiteral("sound ") + name);
    return true;
}

void FakeDesktop::requestAttention() {
    record(QStringLiteral("attention"));
}

void FakeDesktop::noteFileSystemChanged(const QString& folder) {
    record(QStringLiteral("changed ") + folder);
}

QStringList FakeDesktop::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

void FakeDesktop::record(const QString& line) {
    const std::lock_guard lock(mutex_);
    requests_ << line;
}
