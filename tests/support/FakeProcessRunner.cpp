#include "FakeProcessRunner.h"

#include <gtest/gtest.h>

#include <QFileInfo>

#include "PosixProcessRunner.h"
#include "QVException.h"

namespace {

QString nameOf(const QString& program) {
    return QFileInfo(program).fileName();
}

}  // namespace

void FakeProcessRunner::answer(const QString& program, const ProcessResult& result) {
    answer(program, [result](const QStringList&) { return result; });
}

void FakeProcessRunner::answer(const QString& program, Script script) {
    const std::lock_guard lock(mutex_);
    scripts_.insert(nameOf(program), std::move(script));
}

void FakeProcessRunner::hang(const QString& program) {
    ProcessResult hung = exited(128 + 9);
    hung.timedOut = true;
    answer(program, hung);
}

ProcessResult FakeProcessRunner::exited(int exitCode, const QByteArray& output) {
    ProcessResult result;
    result.started = true;
    result.exitCode = exitCode;
    result.output = output;
    return result;
}

void FakeProcessRunner::setRunsAsRoot(bool root) {
    const std::lock_guard lock(mutex_);
    root_ = root;
}

ProcessResult FakeProcessRunner::run(const QString& program, const QStringList& arguments,
                                     double timeoutSeconds) {
    Script script;
    {
        const std::lock_guard lock(mutex_);
        calls_.push_back(Call{program, arguments, timeoutSeconds, true});
        script = scripts_.value(nameOf(program));
    }
    // Outside the lock: a script may act on other fakes that call back in.
    if (!script) {
        return {};
    }
    ProcessResult result = script(arguments);
    if (result.timedOut && timeoutSeconds <= 0) {
        ADD_FAILURE() << program.toStdString() << " hangs and was run without a time-out";
    }
    return result;
}

bool FakeProcessRunner::start(const QString& program, const QStringList& arguments) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(Call{program, arguments, 0, false});
    return scripts_.contains(nameOf(program));
}

bool FakeProcessRunner::runsAsRoot() const {
    const std::lock_guard lock(mutex_);
    return root_;
}

std::vector<FakeProcessRunner::Call> FakeProcessRunner::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

QStringList FakeProcessRunner::commandLines() const {
    QStringList lines;
    for (const Call& call : calls()) {
        lines << (QStringList{call.program} + call.arguments).join(u' ');
    }
    return lines;
}

void FakeProcessRunner::passThrough(const QString& launchPath) {
    const std::lock_guard lock(mutex_);
    passedThrough_ << launchPath;
}

std::shared_ptr<ChildProcess> FakeProcessRunner::makeChild(const ChildProcess::Setup& setup) {
    {
        const std::lock_guard lock(mutex_);
        if (passedThrough_.contains(setup.launchPath))
            return PosixProcessRunner().makeChild(setup);
    }
    throw QVException(QStringLiteral("FakeProcessRunner"),
                      QStringLiteral("no child is made for %1").arg(setup.launchPath));
}

bool FakeProcessRunner::isExecutable(const QString& path) const {
    const std::lock_guard lock(mutex_);
    return scripts_.contains(nameOf(path));
}
