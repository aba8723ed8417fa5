#include "CrashHandler.h"

#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <array>
#include <cstring>
#include <ctime>

namespace {

// Everything the handler needs, prepared beforehand: it may not allocate.
char folderPath[2048];
char appName[128];
long utcOffset = 0;  // seconds east of UTC when installed
std::array<char, 64 * 1024> alternateStack;

constexpr std::array<int, 5> kSignals = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};

const char* signalName(int number) {
    switch (number) {
        case SIGSEGV:
            return "SIGSEGV (segmentation fault)";
        case SIGBUS:
            return "SIGBUS (bus error)";
        case SIGILL:
            return "SIGILL (illegal instruction)";
        case SIGFPE:
            return "SIGFPE (arithmetic error)";
        case SIGABRT:
            return "SIGABRT (abort)";
        default:
            return "unknown signal";
    }
}

// Appends text at *end, never past limit.
void append(char* buffer, std::size_t* end, std::size_t limit, const char* text) {
    while (*text != '\0' && *end + 1 < limit)
        buffer[(*end)++] = *text++;
    buffer[*end] = '\0';
}

void appendNumber(char* buffer, std::size_t* end, std::size_t limit, long value, int width) {
    char digits[24];
    int count = 0;
    do {
        digits[count++] = char('0' + value % 10);
        value /= 10;
    } while (value > 0 && count < 20);
    while (count < width && count < 20)
        digits[count++] = '0';
    char text[24];
    for (int i = 0; i < count; ++i)
        text[i] = digits[count - 1 - i];
    text[count] = '\0';
    append(buffer, end, limit, text);
}

// "YYYY-MM-DD-HHMMSS" of local time, from days since 1970 (Howard Hinnant's civil_from_days).
void appendStamp(char* buffer, std::size_t* end, std::size_t limit, time_t now) {
    const long seconds = long(now) + utcOffset;
    long days = seconds / 86400;
    long rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        days -= 1;
    }
    days += 719468;
    const long era = (days >= 0 ? days : days - 146096) / 146097;
    const long dayOfEra = days - era * 146097;
    const long yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const long monthIndex = (5 * dayOfYear + 2) / 153;
    const long day = dayOfYear - (153 * monthIndex + 2) / 5 + 1;
    const long month = monthIndex < 10 ? monthIndex + 3 : monthIndex - 9;
    const long year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
    appendNumber(buffer, end, limit, year, 4);
    append(buffer, end, limit, "-");
    appendNumber(buffer, end, limit, month, 2);
    append(buffer, end, limit, "-");
    appendNumber(buffer, end, limit, day, 2);
    append(buffer, end, limit, "-");
    appendNumber(buffer, end, limit, rest / 3600, 2);
    appendNumber(buffer, end, limit, rest / 60 % 60, 2);
    appendNumber(buffer, end, limit, rest % 60, 2);
}

void writeText(int fd, const char* text) {
    std::size_t length = 0;
    while (text[length] != '\0')
        ++length;
    while (length > 0) {
        const ssize_t wrote = ::write(fd, text, length);
        if (wrote <= 0)
            return;
        text += wrote;
        length -= std::size_t(wrote);
    }
}

void onCrash(int number) {
    const time_t now = ::time(nullptr);
    char path[2400];
    std::size_t end = 0;
    append(path, &end, sizeof path, folderPath);
    append(path, &end, sizeof path, "/");
    append(path, &end, sizeof path, appName);
    append(path, &end, sizeof path, "_");
    appendStamp(path, &end, sizeof path, now);
    append(path, &end, sizeof path, ".crash");
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd >= 0) {
        char header[512];
        std::size_t used = 0;
        append(header, &used, sizeof header, "Process: ");
        append(header, &used, sizeof header, appName);
        append(header, &used, sizeof header, "\nPID: ");
        appendNumber(header, &used, sizeof header, long(::getpid()), 1);
        append(header, &used, sizeof header, "\nDate: ");
        appendStamp(header, &used, sizeof header, now);
        append(header, &used, sizeof header, "\nSignal: ");
        append(header, &used, sizeof header, signalName(number));
        append(header, &used, sizeof header, "\n\nBacktrace:\n");
        writeText(fd, header);
        void* frames[64];
        const int count = ::backtrace(frames, 64);
        ::backtrace_symbols_fd(frames, count, fd);
        ::fsync(fd);
        ::close(fd);
    }
    // Ends the process the way the signal would have, core dump and all.
    ::signal(number, SIG_DFL);
    ::raise(number);
}

}  // namespace

bool CrashHandler::install(const QString& folder, const QString& name) {
    if (!QDir().mkpath(folder))
        return false;
    const QByteArray encodedFolder = QFile::encodeName(folder);
    const QByteArray encodedName = name.toUtf8();
    if (std::size_t(encodedFolder.size()) >= sizeof folderPath ||
        std::size_t(encodedName.size()) >= sizeof appName)
        return false;
    std::memcpy(folderPath, encodedFolder.constData(), std::size_t(encodedFolder.size()) + 1);
    std::memcpy(appName, encodedName.constData(), std::size_t(encodedName.size()) + 1);
    const time_t now = ::time(nullptr);
    struct tm local {};
    ::localtime_r(&now, &local);
    utcOffset = local.tm_gmtoff;
    // The first backtrace loads the unwinder; it must not happen inside the handler.
    void* frames[4];
    ::backtrace(frames, 4);
    stack_t stack{};
    stack.ss_sp = alternateStack.data();
    stack.ss_size = alternateStack.size();
    ::sigaltstack(&stack, nullptr);  // a stack overflow still gets its report
    struct sigaction action {};
    action.sa_handler = onCrash;
    action.sa_flags = SA_ONSTACK | SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    for (const int number : kSignals)
        ::sigaction(number, &action, nullptr);
    return true;
}
