#pragma once
// SIGINT and SIGTERM caught while it lives and handed to the main loop through a pipe, so a
// transfer is stopped there, its folders marked, and the program ends with 128 + the signal.
// One at a time per process; made and used on the main thread. A second signal while stopping
// ends the program at once (the default action is back by then).

#include <QObject>
#include <QSocketNotifier>
#include <functional>
#include <memory>

class SignalPipe {
  public:
    /// onSignal runs on the main loop with the signal's number.
    explicit SignalPipe(std::function<void(int signal)> onSignal);
    ~SignalPipe();
    SignalPipe(const SignalPipe&) = delete;
    SignalPipe& operator=(const SignalPipe&) = delete;

    /// The signal that arrived first, 0 when none did.
    int caught() const { return caught_; }
    /// 130 for SIGINT, 143 for SIGTERM; `otherwise` when no signal arrived.
    int exitStatus(int otherwise) const { return caught_ != 0 ? 128 + caught_ : otherwise; }
    /// Back to the default actions: a further signal ends the program at once.
    static void restoreDefaults();

  private:
    int fds_[2] = {-1, -1};
    int caught_ = 0;
    std::function<void(int)> onSignal_;
    std::unique_ptr<QSocketNotifier> notifier_;
};
