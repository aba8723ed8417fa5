#include "PrivilegedSession.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QStandardPaths>
#include <vector>

extern char** environ;

namespace {

bool writeAll(int fd, const QByteArray& data) {
    qsizetype done = 0;
    while (done < data.size()) {
        const ssize_t wrote = ::write(fd, data.constData() + done, std::size_t(data.size() - done));
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0)
            return false;
        done += wrote;
    }
    return true;
}

}  // namespace

PrivilegedSession::PrivilegedSession(const QStringList& prefix, const QString& runner,
                                     const QByteArray& input) {
    QStringList command = prefix;
    command << runner << QStringLiteral("--serve");
    const QString program = command.front().startsWith(u'/')
                                ? command.front()
                                : QStandardPaths::findExecutable(command.front());
    if (program.isEmpty())
        return;
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0)
        return;
    if (::pipe2(out, O_CLOEXEC) != 0) {
        ::close(in[0]);
        ::close(in[1]);
        return;
    }
    std::vector<QByteArray> words;
    for (const QString& word : command)
        words.push_back(word.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    const QByteArray path = program.toLocal8Bit();
    const int spawned =
        ::posix_spawn(&pid_, path.constData(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    toRunner_ = in[1];
    fromRunner_ = out[0];
    if (spawned != 0) {
        pid_ = -1;
        end();
        return;
    }
    // A runner that died must not kill us through a broken pipe.
    ::signal(SIGPIPE, SIG_IGN);
    if (!input.isEmpty())
        writeAll(toRunner_, input);
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
    if (toRunner_ >= 0)
        ::close(toRunner_);
    if (fromRunner_ >= 0)
        ::close(fromRunner_);
    toRunner_ = fromRunner_ = -1;
    ready_ = false;
    if (pid_ > 0) {
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
    }
    pid_ = -1;
}

bool PrivilegedSession::readLine(QByteArray* line) {
    line->clear();
    char c = 0;
    for (;;) {
        const ssize_t got = ::read(fromRunner_, &c, 1);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        if (c == '\n')
            return true;
        line->append(c);
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
    if (!writeAll(toRunner_, request) || !readLine(&answer)) {
        end();
        return -1;
    }
    bool ok = false;
    const int status = answer.toInt(&ok);
    return ok ? status : -1;
}
