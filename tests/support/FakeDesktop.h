#pragma once
// A Desktop that shows nothing: it records each request in order as one line ("reveal
// /a/b", "open /a/x.mov /a/y.mov", "sound complete", "attention", "changed /a/b").
// Safe from any thread.

#include <mutex>

#include "Desktop.h"

class FakeDesktop : public Desktop {
  public:
    bool revealFolder(const QString& folder) override;
    bool openFiles(const QStringList& files) override;
    bool playSound(const QString& name) override;
    void requestAttention() override;
    void noteFileSystemChanged(const QString& folder) override;

    QStringList requests() const;

  private:
    void record(const QString& line);

    mutable std::mutex mutex_;
    QStringList requests_;  // guarded by mutex_
};
