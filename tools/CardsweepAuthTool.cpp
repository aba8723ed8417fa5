// The privileged runner: run as the superuser (through pkexec or sudo), it executes argument
// vectors for Cardsweep, never through a shell, and only Cardsweep's own requests: its tools
// with the arguments it gives them, on the places it writes for the user who asked (see
// PrivilegedToolPolicy). Anything else is refused with status 126 and a line on stderr and in
// the system log, whoever calls.
//
//   CardsweepAuthTool TOOL [ARG...]   runs one request; its exit status is the tool's
//   CardsweepAuthTool --serve         prints "ready", then reads requests on stdin (a word count
//                                     and that many words, each ending in a NUL) and answers
//                                     each with the tool's exit status on a line of its own
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QString>
#include <QStringList>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "PrivilegedToolPolicy.h"
#include "SystemLog.h"

extern char** environ;

namespace {

constexpr int kRefused = 126;

// Runs the request with the tool's output on our stderr, so it never mixes with answers.
int execute(const PrivilegedToolPolicy& policy, const std::vector<std::string>& words) {
    QStringList arguments;
    for (std::size_t i = 1; i < words.size(); ++i)
        arguments << QString::fromLocal8Bit(words[i]);
    const QString tool = QString::fromLocal8Bit(words.front());
    if (const QString refusal = policy.refusal(tool, arguments); !refusal.isEmpty()) {
        const QString line = QStringLiteral("CardsweepAuthTool: refused %1: %2").arg(tool, refusal);
        std::fprintf(stderr, "%s\n", line.toLocal8Bit().constData());
        SystemLog::write(line);
        return kRefused;
    }
    std::vector<char*> argv;
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", 0, 0);
    pid_t pid = -1;
    const int spawned = ::posix_spawn(&pid, argv.front(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        std::fprintf(stderr, "CardsweepAuthTool: cannot run %s\n", argv.front());
        return 127;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return 127;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool readWord(std::string* word) {
    word->clear();
    for (int c = std::getchar(); c != EOF; c = std::getchar()) {
        if (c == '\0')
            return true;
        word->push_back(char(c));
    }
    return false;
}

int serve(const PrivilegedToolPolicy& policy) {
    std::printf("ready\n");
    std::fflush(stdout);
    std::string count;
    while (readWord(&count)) {
        const long words = std::strtol(count.c_str(), nullptr, 10);
        if (words < 1 || words > 100000)
            return 2;
        std::vector<std::string> request(static_cast<std::size_t>(words));
        for (std::string& word : request) {
            if (!readWord(&word))
                return 2;
        }
        std::printf("%d\n", execute(policy, request));
        std::fflush(stdout);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const PrivilegedToolPolicy policy(PrivilegedToolPolicy::callerOfThisProcess());
    if (argc == 2 && std::string(argv[1]) == "--serve")
        return serve(policy);
    if (argc < 2) {
        std::fprintf(stderr, "usage: CardsweepAuthTool TOOL [ARG...] | --serve\n");
        return 2;
    }
    return execute(policy, std::vector<std::string>(argv + 1, argv + argc));
}
