#include "VolumeTableModel.h"

#include <QApplication>
#include <QFileInfo>
#include <QIcon>
#include <QStyle>

#include "AppController.h"
#include "Preferences.h"
#include "SettingsStore.h"

namespace {

constexpr int kFixedColumns = 4;

QString lastComponent(const QString& path) {
    const QString name = QFileInfo(path).fileName();
    return name.isEmpty() ? path : name;
}

QIcon volumeIcon(const VolumeSnapshot& volume) {
    // Desktops without an icon theme still get the style's own drive and folder.
    const QStyle* style = QApplication::style();
    if (volume.isFolder)
        return QIcon::fromTheme(QStringLiteral("folder"), style->standardIcon(QStyle::SP_DirIcon));
    return QIcon::fromTheme(QStringLiteral("media-flash"),
                            QIcon::fromTheme(QStringLiteral("drive-removable-media"),
                                             style->standardIcon(QStyle::SP_DriveHDIcon)));
}

}  // namespace

VolumeTableModel::VolumeTableModel(QObject* parent) : QAbstractTableModel(parent) {}

void VolumeTableModel::setController(AppController* controller) {
    controller_ = controller;
    refreshColumns();
}

void VolumeTableModel::refreshColumns() {
    std::vector<MetadataField> visible;
    std::vector<DestinationEntry> ticked;
    if (controller_ != nullptr) {
        for (MetadataField& field :
             MetadataField::listFrom(controller_->settings().get(SettingsKey::metadata))) {
            if (field.visible == 1)
                visible.push_back(std::move(field));
        }
        for (const DestinationEntry& entry : controller_->destinationList()) {
            if (entry.isSelected())
                ticked.push_back(entry);
        }
    }
    ticked_ = std::move(ticked);
    const bool sameColumns =
        visible.size() == fields_.size() &&
        std::equal(visible.begin(), visible.end(), fields_.begin(),
                   [](const auto& a, const auto& b) { return a.title == b.title; });
    if (sameColumns) {
        fields_ = std::move(visible);
        if (!volumes_.empty())
            Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1));
        return;
    }
    beginResetModel();
    fields_ = std::move(visible);
    endResetModel();
}

bool VolumeTableModel::reload(std::vector<std::shared_ptr<const VolumeSnapshot>> volumes) {
    const bool samePaths =
        volumes.size() == volumes_.size() &&
        std::equal(volumes.begin(), volumes.end(), volumes_.begin(),
                   [](const auto& a, const auto& b) { return a->path == b->path; });
    if (!samePaths) {
        // The view keeps its selection by path across this (MainWindow).
        beginResetModel();
        volumes_ = std::move(volumes);
        endResetModel();
        return true;
    }
    volumes_ = std::move(volumes);
    if (!volumes_.empty())
        Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1));
    return false;
}

void VolumeTableModel::update(const std::vector<std::shared_ptr<const VolumeSnapshot>>& volumes) {
    for (const auto& volume : volumes) {
        const int row = rowOfPath(volume->path);
        if (row < 0)
            continue;
        volumes_[std::size_t(row)] = volume;
        Q_EMIT dataChanged(index(row, 0), index(row, columnCount() - 1));
    }
}

QString VolumeTableModel::columnId(int column) const {
    switch (column) {
        case 0:
            return colName;
        case 1:
            return colDestination;
        case 2:
            return colStatus;
        case 3:
            return colCancel;
        default:
            break;
    }
    const auto field = std::size_t(column - kFixedColumns);
    return field < fields_.size() ? fields_[field].identifier() : QString();
}

int VolumeTableModel::columnOf(const QString& id) const {
    for (int column = 0; column < columnCount(); ++column) {
        if (columnId(column) == id)
            return column;
    }
    return -1;
}

std::shared_ptr<const VolumeSnapshot> VolumeTableModel::volumeAt(int row) const {
    if (row < 0 || std::size_t(row) >= volumes_.size())
        return nullptr;
    return volumes_[std::size_t(row)];
}

int VolumeTableModel::rowOfPath(const QString& path) const {
    for (std::size_t row = 0; row < volumes_.size(); ++row) {
        if (volumes_[row]->path == path)
            return int(row);
    }
    return -1;
}

std::vector<std::pair<QString, QString>> VolumeTableModel::destinationChoices() const {
    std::vector<std::pair<QString, QString>> choices{{kAll, QString()}};
    for (const DestinationEntry& entry : ticked_)
        choices.emplace_back(lastComponent(entry.path), entry.path);
    return choices;
}

int VolumeTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(volumes_.size());
}

int VolumeTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : kFixedColumns + int(fields_.size());
}

QVariant VolumeTableModel::data(const QModelIndex& index, int role) const {
    const auto volume = volumeAt(index.row());
    if (!volume)
        return {};
    if (role == BusyRole)
        return volume->isBusy();
    if (role == PathRole)
        return volume->path;
    const QString id = columnId(index.column());
    if (id == colName)
        return nameData(*volume, role);
    if (id == colStatus)
        return statusData(*volume, role);
    if (id == colDestination) {
        if (role == Qt::DisplayRole)
            return destinationTitle(*volume);
        if (role == Qt::EditRole)
            return volume->outputs && !volume->outputs->isEmpty() ? volume->outputs->constFirst()
                                                                  : QString();
        return {};
    }
    if (id == colCancel)
        return {};
    if (role != Qt::DisplayRole && role != Qt::EditRole)
        return {};
    return metadataText(*volume, fields_[std::size_t(index.column() - kFixedColumns)]);
}

QVariant VolumeTableModel::nameData(const VolumeSnapshot& volume, int role) const {
    switch (role) {
        case Qt::DisplayRole:
            return volume.name;
        case Qt::DecorationRole:
            return volumeIcon(volume);
        case SubtitleRole:
            return volume.typeName;
        case Qt::ToolTipRole:
            return volume.path;
        default:
            return {};
    }
}

QVariant VolumeTableModel::statusData(const VolumeSnapshot& volume, int role) const {
    switch (role) {
        case Qt::DisplayRole:
            return volume.statusText;
        case Qt::ToolTipRole:
            return volume.errorString.value_or(volume.statusText);
        case ProgressRole:
            if (volume.indeterminate || volume.maxProgress <= 0)
                return -1.0;
            return std::clamp(volume.progress / volume.maxProgress, 0.0, 1.0);
        case SubtitleRole: {
            if (volume.status != VolumeStatus::Copying && volume.status != VolumeStatus::Verifying)
                return QString();
            if (volume.timeRemaining.isEmpty())
                return QString();
            if (volume.timeRemaining == QStringLiteral("Unknown"))
                return QStringLiteral("Calculating time remaining");
            return QStringLiteral("%1 remaining").arg(volume.timeRemaining);
        }
        default:
            return {};
    }
}

QString VolumeTableModel::destinationTitle(const VolumeSnapshot& volume) const {
    if (!volume.outputs || volume.outputs->isEmpty())
        return kAll;
    for (const auto& [title, path] : destinationChoices()) {
        if (!path.isEmpty() && path == volume.outputs->constFirst())
            return title;
    }
    return kAll;
}

QString VolumeTableModel::metadataText(const VolumeSnapshot& volume,
                                       const MetadataField& field) const {
    const auto found = volume.metadata.find(field.identifier());
    return found != volume.metadata.end() ? found->second : field.defaultVal;
}

bool VolumeTableModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (role != Qt::EditRole || controller_ == nullptr || !volumeAt(index.row()))
        return false;
    const QString id = columnId(index.column());
    if (id != colDestination && !id.startsWith(QStringLiteral("QVMeta")))
        return false;
    const QString text = value.toString();
    controller_->setVolumeListValue(index.row(), id, text);
    // Shown at once; the controller's own snapshot follows.
    auto edited = std::make_shared<VolumeSnapshot>(*volumeAt(index.row()));
    if (id == colDestination)
        edited->outputs = text.isEmpty() ? std::nullopt : std::optional(QStringList{text});
    else
        edited->metadata[id] = text;
    volumes_[std::size_t(index.row())] = std::move(edited);
    if (id != colDestination)
        refreshColumns();  // the field's default changed with it
    Q_EMIT dataChanged(index, index);
    return true;
}

Qt::ItemFlags VolumeTableModel::flags(const QModelIndex& index) const {
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    const QString id = columnId(index.column());
    if (id == colDestination || id.startsWith(QStringLiteral("QVMeta")))
        flags |= Qt::ItemIsEditable;
    return flags;
}

QVariant VolumeTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
        case 0:
            return QStringLiteral("Card");
        case 1:
            return QStringLiteral("Destination");
        case 2:
            return QStringLiteral("Status");
        case 3:
            return QString();
        default:
            break;
    }
    const auto field = std::size_t(section - kFixedColumns);
    return field < fields_.size() ? fields_[field].title : QVariant();
}
