#pragma once
// Writes every change of what the volume list shows (name, card type, status) as a line to a
// file, and each review of failed files, so end-to-end runs and support can follow the window
// without looking at it. Main thread only.

#include <QFile>
#include <QObject>
#include <map>

class VolumeTableModel;

class ListTrace : public QObject {
  public:
    ListTrace(VolumeTableModel& model, const QString& path);

    /// "review", the volume and then a row's cells, tab-separated, for each row.
    void recordReview(const QString& volumeName, const QList<QStringList>& rows);

  private:
    void record();

    VolumeTableModel& model_;
    QFile file_;
    std::map<QString, QString> shown_;  // by volume path, the last line written
};
