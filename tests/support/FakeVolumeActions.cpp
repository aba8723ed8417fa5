#include "FakeVolumeActions.h"

void FakeVolumeActions::answer(Action action, bool ok, const QString& error) {
    answer(action, [ok, error](const Call&, QString* reason) {
        if (!ok && reason != nullptr) {
            *reason = error;
        }
        return ok;
    });
}

void FakeVolumeActions::answer(Action action, Script script) {
    const std::lock_guard lock(mutex_);
    scripts_[action] = std::move(script);
}

bool FakeVolumeActions::record(const Call& call, QString* error) {
    Script script;
    {
        const std::lock_guard lock(mutex_);
        calls_.push_back(call);
        if (const auto found = scripts_.find(call.action); found != scripts_.end()) {
            script = found->second;
        }
    }
    if (error != nullptr) {
        error->clear();
    }
    return !script || script(call, error);
}

bool FakeVolumeActions::unmount(const QString& mountPoint, QString* error, QString* device) {
    const bool ok = record(Call{Action::Unmount, mountPoint, {}, {}}, error);
    if (ok && device != nullptr) {
        device->clear();  // no device behind a fake mount
    }
    return ok;
}

bool FakeVolumeActions::unmountAndEject(const QString& mountPoint, QString* error) {
    return record(Call{Action::UnmountAndEject, mountPoint, {}, {}}, error);
}

bool FakeVolumeActions::erase(const QString& mountPoint, const QString& name,
                              const QStringList& protectedPaths, QString* error) {
    return record(Call{Action::Erase, mountPoint, name, protectedPaths}, error);
}

std::vector<FakeVolumeActions::Call> FakeVolumeActions::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}
