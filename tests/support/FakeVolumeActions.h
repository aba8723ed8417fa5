#pragma once
// VolumeActions that touch nothing: every call is recorded, and each kind of action answers
// as the test scripted it (success unless told otherwise). Safe from any thread.

#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "VolumeActions.h"

class FakeVolumeActions : public VolumeActions {
  public:
    enum class Action { Unmount, UnmountAndEject, Erase };
    struct Call {
        Action action = Action::Unmount;
        QString mountPoint;
        QString name;  // erase only
        QStringList protectedPaths;
    };
    /// Decides one call: true for success, else false with *error filled in.
    using Script = std::function<bool(const Call& call, QString* error)>;

    /// Every call of action succeeds (ok) or fails with error.
    void answer(Action action, bool ok, const QString& error = {});
    void answer(Action action, Script script);

    bool unmount(const QString& mountPoint, QString* error, QString* device = nullptr) override;
    bool unmountAndEject(const QString& mountPoint, QString* error) override;
    bool erase(const QString& mountPoint, const QString& name, const QStringList& protectedPaths,
               QString* error) override;

    std::vector<Call> calls() const;

  private:
    bool record(const Call& call, QString* error);

    mutable std::mutex mutex_;
    std::vector<Call> calls_;           // guarded by mutex_
    std::map<Action, Script> scripts_;  // guarded by mutex_
};
