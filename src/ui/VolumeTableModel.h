#pragma once
// The volume list as a table: one row per volume snapshot, the columns name, destination,
// status and cancel, then one per visible metadata field. Edits go to the controller, which
// answers with fresh snapshots. Main thread only.

#include <QAbstractTableModel>
#include <memory>
#include <vector>

#include "DestinationEntry.h"
#include "MetadataField.h"
#include "VolumeSnapshot.h"

class AppController;

class VolumeTableModel : public QAbstractTableModel {
    Q_OBJECT

  public:
    enum Role {
        SubtitleRole = Qt::UserRole + 1,  // gray line under the name or the status
        BusyRole,                         // bool: copying, verifying, formatting, unmounting
        ProgressRole,                     // double 0..1, or -1 when indeterminate
        PathRole,                         // the volume's path
    };
    static inline const QString colName = QStringLiteral("colName");
    static inline const QString colDestination = QStringLiteral("colDestination");
    static inline const QString colStatus = QStringLiteral("colStatus");
    static inline const QString colCancel = QStringLiteral("colCancel");
    static inline const QString kAll = QStringLiteral("All");

    explicit VolumeTableModel(QObject* parent = nullptr);

    /// Where edits go and where the fields and destinations are read; none: read-only.
    void setController(AppController* controller);
    /// Reads the visible metadata fields and the ticked destinations again.
    void refreshColumns();
    /// The whole list again, in the controller's order; true when the rows changed (the view's
    /// selection is then lost).
    bool reload(std::vector<std::shared_ptr<const VolumeSnapshot>> volumes);
    /// Only these volumes changed; rows are found by path.
    void update(const std::vector<std::shared_ptr<const VolumeSnapshot>>& volumes);

    QString columnId(int column) const;
    int columnOf(const QString& id) const;
    std::shared_ptr<const VolumeSnapshot> volumeAt(int row) const;
    int rowOfPath(const QString& path) const;
    /// The destination pop-up: "All" (empty path), then each ticked destination.
    std::vector<std::pair<QString, QString>> destinationChoices() const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  private:
    QVariant nameData(const VolumeSnapshot& volume, int role) const;
    QVariant statusData(const VolumeSnapshot& volume, int role) const;
    QString destinationTitle(const VolumeSnapshot& volume) const;
    QString metadataText(const VolumeSnapshot& volume, const MetadataField& field) const;

    AppController* controller_ = nullptr;
    std::vector<std::shared_ptr<const VolumeSnapshot>> volumes_;
    std::vector<MetadataField> fields_;  // the visible ones, in order
    std::vector<DestinationEntry> ticked_;
};
