#include "ListTrace.h"

#include "VolumeTableModel.h"

ListTrace::ListTrace(VolumeTableModel& model, const QString& path) : model_(model), file_(path) {
    if (!file_.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    connect(&model, &QAbstractItemModel::dataChanged, this, &ListTrace::record);
    connect(&model, &QAbstractItemModel::modelReset, this, &ListTrace::record);
    file_.write("list shown\n");
    file_.flush();
}

void ListTrace::recordReview(const QString& volumeName, const QList<QStringList>& rows) {
    for (const QStringList& row : rows) {
        const QString line = QStringLiteral("review\t") + volumeName + u'\t' + row.join(u'\t');
        file_.write((line + u'\n').toUtf8());
    }
    file_.flush();
}

void ListTrace::record() {
    for (int row = 0; row < model_.rowCount(); ++row) {
        const auto volume = model_.volumeAt(row);
        const QString line = volume->name + u'\t' + volume->typeName + u'\t' + volume->statusText;
        QString& shown = shown_[volume->path];
        if (shown == line)
            continue;
        shown = line;
        file_.write((line + u'\n').toUtf8());
    }
    file_.flush();
}
