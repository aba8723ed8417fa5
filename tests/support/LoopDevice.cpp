#include "LoopDevice.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <optional>

#include "QVTaskEx.h"
#include "SystemTool.h"

LoopDevice::LoopDevice(const QString& imagePath)
    : imagePath_(QFileInfo(imagePath).canonicalFilePath()) {
    if (imagePath_.isEmpty()) {
        error_ = QStringLiteral("no image at %1").arg(imagePath);
        return;
    }
    const std::optional<QByteArray> output = QVTaskEx::dataFromTask(
        SystemTool::find(QStringLiteral("losetup")),
        {QStringLiteral("--find"), QStringLiteral("--show"), imagePath_}, nullptr);
    const QString device = output ? QString::fromUtf8(*output).trimmed() : QString();
    static const QRegularExpression loopName(QStringLiteral("^/dev/loop[0-9]+$"));
    if (!loopName.match(device).hasMatch()) {
        error_ = QStringLiteral("losetup did not attach %1: %2").arg(imagePath_, device);
        return;
    }
    if (!isOwn(device)) {
        error_ = QStringLiteral("%1 is not backed by %2").arg(device, imagePath_);
        return;
    }
    device_ = device;
}

LoopDevice::~LoopDevice() {
    if (!device().isEmpty())
        SystemTool::run(QStringLiteral("losetup"), {QStringLiteral("-d"), device_});
}

QString LoopDevice::device() const {
    return isOwn(device_) ? device_ : QString();
}

// The kernel names the file behind each loop device in sysfs.
bool LoopDevice::isOwn(const QString& device) const {
    if (device.isEmpty())
        return false;
    QFile backing(
        QStringLiteral("/sys/block/%1/loop/backing_file").arg(QFileInfo(device).fileName()));
    if (!backing.open(QIODevice::ReadOnly))
        return false;
    return QFile::decodeName(backing.readAll().trimmed()) == imagePath_;
}
