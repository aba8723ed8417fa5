#include "QVLog.h"

#include <unistd.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <cstdio>

#include "Clock.h"
#include "MainThread.h"
#include "PropertyList.h"
#include "QVOSDetect.h"

namespace {

constexpr std::uint64_t kRolloverBytes = 500000;
constexpr std::size_t kMaxPendingAtExit = 20;
constexpr int kLogCount = 5;

void printToStdout(const QString& text) {
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

QString formattedTimestamp(const QDateTime& moment) {
    const QDateTime now = moment.toLocalTime();
    const int offset = now.offsetFromUtc();
    const int magnitude = offset < 0 ? -offset : offset;
    return now.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss ")) + (offset < 0 ? u'-' : u'+') +
           QStringLiteral("%1%2")
               .arg(magnitude / 3600, 2, 10, QLatin1Char('0'))
               .arg((magnitude % 3600) / 60, 2, 10, QLatin1Char('0'));
}

// Lines come in bursts of many a second; the stamp is formatted once a second per thread.
QString timestamp(const Clock& clock) {
    thread_local qint64 second = -1;
    thread_local QString text;
    const QDateTime moment = clock.now();
    const qint64 now = moment.toSecsSinceEpoch();
    if (now != second) {
        text = formattedTimestamp(moment);
        second = now;
    }
    return text;
}

QString executablePath() {
    return QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
}

QString systemVersionText() {
    const QString distribution = QVOSDetect::distributionName();
    return distribution.isEmpty()
               ? QVOSDetect::osxVersion()
               : QVOSDetect::osxVersion() + QStringLiteral(" (") + distribution + u')';
}

double physicalMemoryGB() {
    const double pages = static_cast<double>(sysconf(_SC_PHYS_PAGES));
    const double pageSize = static_cast<double>(sysconf(_SC_PAGESIZE));
    return pages * pageSize / 1024.0 / 1024.0 / 1024.0;
}

// The switch shared by all of the maker's applications: the string "1" or the number 1.
bool loggingSwitchedOff(const QString& path) {
    const PropertyList value = PropertyList::readFile(path)[QStringLiteral("disable-logging")];
    switch (value.type()) {
        case PropertyList::Type::String:
            return value.toString() == QStringLiteral("1");
        case PropertyList::Type::Integer:
        case PropertyList::Type::Real:
        case PropertyList::Type::Boolean:
            return value.toDouble() == 1.0;
        default:
            return false;
    }
}

}  // namespace

QVLog& QVLog::sharedController() {
    static QVLog instance;
    return instance;
}

QVLog::QVLog() : writer_([this] { runQueue(); }) {}

QVLog::~QVLog() {
    willTerminate();
    {
        const std::lock_guard lock(queueMutex_);
        stopping_ = true;
        writeQueue_.clear();
    }
    workArrived_.notify_all();
    becameIdle_.notify_all();
    operationRan_.notify_all();
    writer_.join();
}

QString QVLog::appName() const {
    const std::lock_guard lock(nameMutex_);
    if (!appName_.isNull()) {
        return appName_;
    }
    return QFileInfo(executablePath()).completeBaseName();
}

void QVLog::setAppName(const QString& name) {
    const std::lock_guard lock(nameMutex_);
    appName_ = name;
}

QString QVLog::logFolder() {
    QVLog& log = sharedController();
    const std::lock_guard lock(log.nameMutex_);
    return log.places_.folder;
}

QString QVLog::logPathForIndex(const QString& folder, int index) const {
    return QVFormat::format(u"%@/%@.%li.log", folder, appName(), index);
}

// As the superuser only the path moves to the machine's log area; the folder that is
// created and rotated stays the user's.
QString QVLog::currentLogPath() const {
    QString folder;
    {
        const std::lock_guard lock(nameMutex_);
        folder = places_.currentFolder.isEmpty() ? places_.folder : places_.currentFolder;
    }
    return logPathForIndex(folder, 1);
}

QStringList QVLog::availableLogs() {
    const QVLog& log = sharedController();
    QStringList paths;
    for (int index = 1; index <= kLogCount; ++index) {
        const QString path = log.logPathForIndex(logFolder(), index);
        if (QFileInfo::exists(path)) {
            paths << path;
        }
    }
    return paths;
}

void QVLog::createNewLog(const Places& places, std::shared_ptr<const Clock> clock,
                         const QString& name) {
    QVLog& log = sharedController();
    {
        const std::lock_guard lock(log.nameMutex_);
        log.places_ = places;
    }
    if (log.onWriterThread()) {
        log.clock_ = std::move(clock);
        log.startNewLog(name);
        return;
    }
    // Run on the writer so the file handle has a single owner.
    log.runOnWriter([&log, &name, &clock] {
        log.clock_ = std::move(clock);
        log.startNewLog(name);
    });
}

void QVLog::startNewLog(const QString& name) {
    QString globalSettings;
    {
        const std::lock_guard lock(nameMutex_);
        globalSettings = places_.globalSettingsFile;
    }
    if (loggingSwitchedOff(globalSettings)) {
        printToStdout(QStringLiteral("Logging is disabled\n"));
        loggingDisabled_ = true;
        return;
    }
    loggingDisabled_ = false;
    {
        const std::lock_guard lock(nameMutex_);
        if (!name.isEmpty() && appName_.isNull()) {
            appName_ = name;
        }
    }
    fileHandle_.reset();
    bytesWritten_ = 0;
    if (appName().isEmpty()) {
        setAppName(QStringLiteral("Unknown"));
    }

    const QString folder = logFolder();
    if (!QDir().mkpath(folder)) {
        printToStdout(QVFormat::format(u"Unable to create folder %s.\n", folder));
        return;
    }
    if (QFileInfo::exists(logPathForIndex(folder, 1))) {
        QFile::remove(logPathForIndex(folder, kLogCount));
        for (int n = kLogCount - 1; n >= 1; --n) {
            const QString from = logPathForIndex(folder, n);
            const QString to = logPathForIndex(folder, n + 1);
            if (QFileInfo::exists(from) && !QFile::rename(from, to)) {
                printToStdout(QVFormat::format(u"Unable to move file %s to %s.\n", from, to));
                return;
            }
        }
    }

    const QString path = currentLogPath();
    QSaveFile empty(path);
    if (!empty.open(QIODevice::WriteOnly) || !empty.commit()) {
        printToStdout(
            QVFormat::format(u"Unable to create log file %s - %s\n", path, empty.errorString()));
        return;
    }
    auto handle = std::make_unique<QFile>(path);
    if (!handle->open(QIODevice::WriteOnly | QIODevice::Append)) {
        return;
    }
    fileHandle_ = std::move(handle);
    writeHeader();
}

void QVLog::writeHeader() {
    writeLine(QVFormat::format(u"Log started: %@", timestamp(*clock_)));
    writeLine(QVFormat::format(u"Version: %@", QStringLiteral(CARDSWEEP_VERSION)));
    writeLine(QVFormat::format(u"Path: %@", executablePath()));
    writeLine(QVFormat::format(u"System: Linux %@, %li CPU(s), %0.2f GB RAM", systemVersionText(),
                               static_cast<long>(sysconf(_SC_NPROCESSORS_ONLN)),
                               physicalMemoryGB()));
    writeLine(sizeof(void*) == 8 ? QStringLiteral("Running in 64-bit mode")
                                 : QStringLiteral("Running in 32-bit mode"));
}

void QVLog::appendTextToLog(const QString& text) {
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return;
    }
    bytesInQueue_ += static_cast<std::uint64_t>(trimmed.size());
    enqueue([this, trimmed] { appendLogOnThread(trimmed); });
}

void QVLog::appendFormatted(const QString& text, bool mayWait) {
    appendTextToLog(text);
    // Short lines from workers reach the disk before the worker goes on, so its log
    // keeps step with its actions.
    const bool shortLine = !text.isEmpty() && text.size() < 100;
    if (mayWait && shortLine && bytesInQueue_ <= 99 && !MainThread::isMainThread() &&
        !onWriterThread()) {
        finishWriting();
    }
}

void QVLog::logAndPrint(const QString& text) {
    const QString trimmed = text.trimmed();
    // The text goes through the format path once more, "%" sequences included.
    appendFormatted(QVFormat::format(trimmed), true);

    QString printable = trimmed;
    printable.remove(QStringLiteral("%@"));
    printable.replace(u'%', QStringLiteral("%%"));
    printable.remove(QChar(u'\0'));
    printToStdout(printable + u'\n');
}

void QVLog::appendLogOnThread(const QString& text) {
    if (loggingDisabled_) {
        return;
    }
    try {
        if (!fileHandle_) {
            // Only a log that createNewLog started: a file made here would have no header.
            auto handle = std::make_unique<QFile>(currentLogPath());
            if (handle->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::ExistingOnly)) {
                fileHandle_ = std::move(handle);
            } else {
                printToStdout(
                    QVFormat::format(u"Unable to log the following information: %s\n", text));
                printToStdout(QStringLiteral("Unable to open log for output\n"));
            }
        }
        if (fileHandle_) {
            writeLine(text);
            if (bytesWritten_ >= kRolloverBytes) {
                startNewLog(appName());
                // The switch may have been turned off meanwhile; then the line is dropped.
                if (!loggingDisabled_) {
                    writeLine(QStringLiteral("Log truncated at 500KB"));
                }
            }
        }
        bytesInQueue_ -= static_cast<std::uint64_t>(text.size());
    } catch (const std::exception& exception) {
        if (!loggingDisabled_) {
            printToStdout(QVFormat::format(u"Exception writing to log: %s\n",
                                           QString::fromUtf8(exception.what())));
        }
    }
}

void QVLog::writeLine(const QString& text) {
    if (!fileHandle_) {
        return;
    }
    const QByteArray line = QVFormat::format(u"%@ - %@\n", timestamp(*clock_), text).toUtf8();
    const qint64 written = fileHandle_->write(line);
    // A burst of lines reaches the file together; the last of them at once.
    if (queueIsEmpty()) {
        fileHandle_->flush();
    }
    if (written > 0) {
        bytesWritten_ += static_cast<std::uint64_t>(written);
    }
}

void QVLog::enqueue(std::function<void()> operation) {
    bool wake = false;
    {
        const std::lock_guard lock(queueMutex_);
        writeQueue_.push_back(std::move(operation));
        wake = writerAsleep_;
    }
    if (wake) {
        workArrived_.notify_one();
    }
}

// The wait is on the queue's lock, not a promise: a promise wakes its waiter through a futex
// ThreadSanitizer can't see, so the waiter's stack, reused at once, looked raced by the writer.
void QVLog::runOnWriter(std::function<void()> operation) {
    const auto ran = std::make_shared<bool>(false);  // guarded by queueMutex_
    enqueue([this, operation = std::move(operation), ran] {
        operation();
        const std::lock_guard lock(queueMutex_);
        *ran = true;
        operationRan_.notify_all();
    });
    std::unique_lock lock(queueMutex_);
    operationRan_.wait(lock, [this, &ran] { return *ran || stopping_; });
}

void QVLog::runQueue() {
    std::unique_lock lock(queueMutex_);
    for (;;) {
        writerAsleep_ = true;
        workArrived_.wait(lock, [this] { return stopping_ || !writeQueue_.empty(); });
        writerAsleep_ = false;
        if (writeQueue_.empty()) {
            return;
        }
        std::function<void()> operation = std::move(writeQueue_.front());
        writeQueue_.pop_front();
        busy_ = true;
        lock.unlock();
        operation();
        lock.lock();
        busy_ = false;
        if (writeQueue_.empty() && idleWaiters_ > 0) {
            becameIdle_.notify_all();
        }
    }
}

bool QVLog::queueIsEmpty() {
    const std::lock_guard lock(queueMutex_);
    return writeQueue_.empty();
}

bool QVLog::onWriterThread() const {
    return std::this_thread::get_id() == writer_.get_id();
}

void QVLog::waitUntilIdle() {
    std::unique_lock lock(queueMutex_);
    ++idleWaiters_;
    becameIdle_.wait(lock, [this] { return stopping_ || (writeQueue_.empty() && !busy_); });
    --idleWaiters_;
}

void QVLog::finishWriting() {
    QVLog& log = sharedController();
    if (log.onWriterThread()) {
        return;
    }
    log.waitUntilIdle();
}

void QVLog::willTerminate() {
    if (onWriterThread()) {
        return;
    }
    {
        // A long backlog is dropped rather than holding up the exit.
        const std::lock_guard lock(queueMutex_);
        if (writeQueue_.size() >= kMaxPendingAtExit) {
            writeQueue_.clear();
        }
    }
    waitUntilIdle();
    // Close the file on the writer so no line is half-written when the handle goes.
    runOnWriter([this] { fileHandle_.reset(); });
}
