#include "LogTail.h"

#include <QFile>
#include <QFileInfo>

#include "LogPlaces.h"
#include "QVLog.h"
#include "SystemClock.h"
#include "TestFiles.h"

LogTail::LogTail() {
    const QString path = QVLog::sharedController().currentLogPath();
    if (!QFile::exists(path))
        QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared(),
                            QStringLiteral("tests"));
    QVLog::finishWriting();
    start_ = QFileInfo(QVLog::sharedController().currentLogPath()).size();
}

QString LogTail::text() const {
    QVLog::finishWriting();
    return QString::fromUtf8(
        TestFiles::read(QVLog::sharedController().currentLogPath()).mid(start_));
}
