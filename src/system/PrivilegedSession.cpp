#include "PrivilegedSession.h"

#include <signal.h>

#include <QStandardPaths>

#include "ChildProcess.h"
#include "ProcessRunner.h"
#include "QVException.h"

PrivilegedSession::PrivilegedSession(ProcessRunner& processes, const QStringList& prefix,
                                     const QString& runner, const QByteArray& input) {
    QStringList command = prefix;
    command << runner << QStringLiteral("--serve");
    const QString program = command.front().startsWith(u'/')
                                ? command.front()
                                : QStandardPaths::findExecutable(command.front());
    if (program.isEmpty())
        return;
    ChildProcess::Setup setup;
    setup.launchPath = program;
    setup.arguments = command.mid(1);
    setup.input = ChildProcess::Channel::Pipe;
    setup.output = ChildProcess::Channel::Pipe;
    child_ = processes.makeChild(setup);
    try {
        child_->launch();
    } catch (const QVException&) {
        child_.reset();
        return;
    }
    // A runner that died must not kill us through a broken pipe.
    ::signal(SIGPIPE, SIG_IGN);
    if (!input.isEmpty())
        child_->writeInput(input);
    QByteArray line;
    ready_ = readLine(&line) && line == "ready";
    if (!ready_)
        end();
}

PrivilegedSession::~PrivilegedSession() {
    const std::lock_guard lock(mutex_);
    end();
}

void PrivilegedSession::end() {
    ready_ = false;
    if (!child_)
        return;
    // The runner ends when its stdin does.
    child_->closeInput();
    child_->closeOutput();
    child_->waitUntilExit();
    child_.reset();
}

bool PrivilegedSession::readLine(QByteArray* line) {
    for (;;) {
        if (const qsizetype end = pending_.indexOf('\n'); end >= 0) {
            *line = pending_.left(end);
            pending_.remove(0, end + 1);
            return true;
        }
        QByteArray more;
        try {
            more = child_->readOutput();
        } catch (const QVException&) {
            return false;
        }
        if (more.isEmpty())
            return false;
        pending_ += more;
    }
}

int PrivilegedSession::execute(const QString& tool, const QStringList& arguments) {
    const std::lock_guard lock(mutex_);
    if (!ready_)
        return -1;
    // The number of words, then each word; every one ends in a NUL, which no word can hold.
    QByteArray request = QByteArray::number(arguments.size() + 1) + '\0';
    request += tool.toLocal8Bit() + '\0';
    for (const QString& argument : arguments)
        request += argument.toLocal8Bit() + '\0';
    QByteArray answer;
    if (!child_->writeInput(request) || !readLine(&answer)) {
        end();
        return -1;
    }
    bool ok = false;
    const int status = answer.toInt(&ok);
    return ok ? status : -1;
}
