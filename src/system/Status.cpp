#include "Status.h"

#include <QFile>

#include "SystemError.h"

Status Status::fromErrno(const QString& what, const QString& path, int code) {
    Status status = failure(what, {}, path);
    status.code_ = code;
    return status;
}

Status Status::fromErrno(const QString& what, const QByteArray& path, int code) {
    return fromErrno(what, QFile::decodeName(path), code);
}

Status Status::failure(const QString& what, const QString& reason, const QString& path) {
    Status status;
    status.failed_ = true;
    status.what_ = what;
    status.path_ = path;
    status.reason_ = reason;
    return status;
}

QString Status::reason() const {
    return code_ != 0 ? SystemError::text(code_) : reason_;
}

QString Status::message() const {
    if (!failed_)
        return {};
    QString head = what_;
    if (!path_.isEmpty())
        head += head.isEmpty() ? path_ : u' ' + path_;
    const QString why = reason();
    if (head.isEmpty() || why.isEmpty())
        return head + why;
    return head + QStringLiteral(": ") + why;
}
