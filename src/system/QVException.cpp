#include "QVException.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

#include "QVLog.h"

QVException::QVException(const QString& name, const QString& reason)
    : std::runtime_error(reason.toStdString()), name_(name), reason_(reason) {}

QString QVException::nameOf(const std::exception& exception) {
    if (const auto* named = dynamic_cast<const QVException*>(&exception)) {
        return named->name();
    }
    int status = 0;
    const char* mangled = typeid(exception).name();
    const std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    return QString::fromUtf8(status == 0 && demangled ? demangled.get() : mangled);
}

QString QVException::reasonOf(const std::exception& exception) {
    if (const auto* named = dynamic_cast<const QVException*>(&exception)) {
        return named->reason();
    }
    return QString::fromUtf8(exception.what());
}

QString QVException::logException(const std::exception& exception, const char* method) {
    const QString message = QVFormat::format(u"Exception in %s. %@ - %@.", method,
                                             nameOf(exception), reasonOf(exception));
    QVLog::appendLogAndPrint(u"%@", message);
    return message;
}

bool QVException::didTimeout(const std::exception& exception) {
    return nameOf(exception) == QStringLiteral("NSPortTimeoutException");
}

namespace {

[[noreturn]] void logUncaughtException() {
    if (const std::exception_ptr current = std::current_exception()) {
        try {
            std::rethrow_exception(current);
        } catch (const std::exception& exception) {
            QVLog::appendLogAndPrint(u"%@", QVException::reasonOf(exception));
        } catch (...) {
            QVLog::appendLogAndPrint(u"Unknown exception");
        }
        QVLog::finishWriting();
    }
    std::abort();
}

}  // namespace

void QVException::installUncaughtExceptionHandler() {
    std::set_terminate(logUncaughtException);
}
