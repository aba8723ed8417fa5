#include "SignalPipe.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace {

// The handler can reach nothing else: the write end of the live pipe, or -1.
volatile sig_atomic_t writeEnd = -1;

void onSignalCaught(int signal) {
    const char byte = char(signal);
    const ssize_t written = ::write(int(writeEnd), &byte, 1);
    static_cast<void>(written);
}

void setHandler(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

SignalPipe::SignalPipe(std::function<void(int signal)> onSignal) : onSignal_(std::move(onSignal)) {
    if (::pipe2(fds_, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    writeEnd = fds_[1];
    notifier_ = std::make_unique<QSocketNotifier>(fds_[0], QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] {
        char byte = 0;
        while (::read(fds_[0], &byte, 1) == 1) {
            if (caught_ != 0)
                continue;
            caught_ = int(static_cast<unsigned char>(byte));
            if (onSignal_)
                onSignal_(caught_);
        }
    });
    setHandler(onSignalCaught);
}

SignalPipe::~SignalPipe() {
    restoreDefaults();
    writeEnd = -1;
    notifier_.reset();
    for (const int fd : fds_) {
        if (fd >= 0)
            ::close(fd);
    }
}

void SignalPipe::restoreDefaults() {
    setHandler(SIG_DFL);
}
