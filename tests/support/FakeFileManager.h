#pragma once
// A file manager on a test bus that records the folders it is asked to show. Lives on the
// main thread.

#include <QDBusConnection>
#include <QObject>
#include <QStringList>

class FakeFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

  public:
    /// Takes the service's name on bus; false when it can't.
    bool registerOn(QDBusConnection bus);

    /// Every folder URI asked for, in order.
    const QStringList& shown() const { return shown_; }

  public Q_SLOTS:
    void ShowFolders(const QStringList& uris, const QString& startupId);

  private:
    QStringList shown_;
};
