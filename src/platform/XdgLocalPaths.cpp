#include "XdgLocalPaths.h"

XdgLocalPaths::XdgLocalPaths(const QProcessEnvironment& environment)
    : rules_(environment, LocalPathRules::processIdentity(), &LocalPathRules::logindSessionOwner) {}

XdgLocalPaths XdgLocalPaths::fromProcess() {
    return XdgLocalPaths(QProcessEnvironment::systemEnvironment());
}

QString XdgLocalPaths::pathForDirectory(QVLocalPaths::Directory kind, bool userDomain) const {
    return rules_.pathForDirectory(kind, userDomain);
}

QString XdgLocalPaths::tempDirectory() const {
    return rules_.tempDirectory();
}

QString XdgLocalPaths::username() const {
    return rules_.username();
}

QStringList XdgLocalPaths::mediaRoots() const {
    return rules_.mediaRoots();
}

bool XdgLocalPaths::isConfiguredMediaRoot(const QString& root) const {
    return rules_.isConfiguredMediaRoot(root);
}

bool XdgLocalPaths::isPathSystemDirectory(const QString& path, bool exactMatch) const {
    return rules_.isPathSystemDirectory(path, exactMatch);
}
