#include "MetadataFieldEditor.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QStyle>
#include <QTableWidget>
#include <QVBoxLayout>
#include <memory>

#include "Preferences.h"
#include "SettingsStore.h"

namespace {

enum Column { kTitle, kType, kDefault, kVisible, kInPath, kInSheet, kKey, kColumns };

const QStringList kTypeNames = {
    QStringLiteral("Text"),      QStringLiteral("Number"), QStringLiteral("Incrementing number"),
    QStringLiteral("Timestamp"), QStringLiteral("Date"),   QStringLiteral("User name")};

// Timestamp, date and user name are filled in when a card arrives.
bool isAutomatic(const MetadataField& field) {
    return field.type >= 3 && field.type <= 5;
}

QString withoutQuotes(QString text) {
    return text.remove(QLatin1Char('"'));
}

}  // namespace

MetadataFieldEditor::MetadataFieldEditor(SettingsStore& settings, QWidget* parent)
    : QWidget(parent), settings_(settings), table_(new QTableWidget(0, kColumns, this)) {
    table_->setHorizontalHeaderLabels({QStringLiteral("Title"), QStringLiteral("Kind"),
                                       QStringLiteral("Default"), QStringLiteral("In List"),
                                       QStringLiteral("In Path"), QStringLiteral("In Sheet"),
                                       QStringLiteral("Movie Tag")});
    table_->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table_->horizontalHeader()->setStretchLastSection(true);
    table_->verticalHeader()->hide();
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    connect(table_, &QTableWidget::itemChanged, this, [this](QTableWidgetItem* item) {
        if (!reloading_ && item->column() != kTitle)
            cellEdited(item->row(), item->column(), item->text());
    });
    // A title is checked on every commit, also one that leaves the text as it was (a field's
    // own title counts as taken), which the item never reports as a change.
    connect(table_->itemDelegate(), &QAbstractItemDelegate::commitData, this,
            [this](QWidget* editor) {
                const auto* line = qobject_cast<QLineEdit*>(editor);
                const QModelIndex index = table_->currentIndex();
                if (line == nullptr || index.column() != kTitle)
                    return;
                // Checked once the editor has closed: an alert or a reload must not pull the
                // cell from under an edit still being committed.
                QMetaObject::invokeMethod(
                    this,
                    [this, row = index.row(), title = withoutQuotes(line->text())] {
                        rename(row, title);
                    },
                    Qt::QueuedConnection);
            });
    auto* add = new QPushButton(QStringLiteral("Add"), this);
    auto* remove = new QPushButton(QStringLiteral("Remove"), this);
    connect(add, &QPushButton::clicked, this, &MetadataFieldEditor::add);
    connect(remove, &QPushButton::clicked, this, &MetadataFieldEditor::removeSelected);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addStretch();
    preview_ = new QHBoxLayout;
    preview_->setSpacing(2);
    auto* previewRow = new QHBoxLayout;
    previewRow->addLayout(buttons);
    previewRow->addStretch();
    previewRow->addWidget(new QLabel(QStringLiteral("Folders:"), this));
    previewRow->addLayout(preview_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(table_);
    layout->addLayout(previewRow);
    reload();
}

const std::vector<MetadataFieldEditor::KeyChoice>& MetadataFieldEditor::qtMetaCache() {
    static const std::vector<KeyChoice> choices = [] {
        std::vector<KeyChoice> read;
        QFile file(QStringLiteral(":/cardsweep/metadata.plist"));
        if (!file.open(QIODevice::ReadOnly))
            return read;
        const PropertyList groups = PropertyList::fromXml(file.readAll());
        for (const PropertyList& group : groups.toArray()) {
            const QString groupName = group[QStringLiteral("name")].toString();
            for (const PropertyList& entry : group[QStringLiteral("keys")].toArray())
                read.push_back(
                    {groupName + QStringLiteral(": ") + entry[QStringLiteral("name")].toString(),
                     entry[QStringLiteral("key")].toString()});
        }
        return read;
    }();
    return choices;
}

std::vector<MetadataField> MetadataFieldEditor::fields() const {
    return MetadataField::listFrom(settings_.get(SettingsKey::metadata));
}

void MetadataFieldEditor::save(const std::vector<MetadataField>& fields) {
    settings_.set(SettingsKey::metadata, MetadataField::toArray(fields));
    Q_EMIT fieldsChanged();
}

void MetadataFieldEditor::store(const std::vector<MetadataField>& fields) {
    save(fields);
    // The cells are made again once the edit that led here has returned: the pop-up or check
    // box that sent it must not go while it is still sending.
    QMetaObject::invokeMethod(this, &MetadataFieldEditor::reload, Qt::QueuedConnection);
}

void MetadataFieldEditor::reload() {
    reloading_ = true;
    const std::vector<MetadataField> list = fields();
    table_->setRowCount(int(list.size()));
    for (int row = 0; row < int(list.size()); ++row) {
        const MetadataField& field = list[std::size_t(row)];
        table_->setItem(row, kTitle, new QTableWidgetItem(field.title));
        table_->setCellWidget(row, kType, typePopup(row, field));
        auto* value =
            new QTableWidgetItem(isAutomatic(field) ? QStringLiteral("(auto)") : field.defaultVal);
        if (isAutomatic(field))
            value->setFlags(Qt::NoItemFlags);
        table_->setItem(row, kDefault, value);
        const std::pair<int, qint64> switches[] = {{kVisible, field.visible},
                                                   {kInPath, field.useInPath},
                                                   {kInSheet, field.useInSpreadsheet}};
        for (const auto& [column, on] : switches) {
            auto* box = new QCheckBox(table_);
            box->setChecked(on == 1);
            connect(box, &QCheckBox::toggled, this,
                    [this, row, column = column](bool ticked) { setSwitch(row, column, ticked); });
            table_->setCellWidget(row, column, box);
        }
        table_->setCellWidget(row, kKey, keyPopup(row, field));
    }
    reloading_ = false;
    showPreview();
}

QWidget* MetadataFieldEditor::typePopup(int row, const MetadataField& field) {
    auto* popup = new QComboBox(table_);
    popup->addItems(kTypeNames);
    popup->setCurrentIndex(int(std::clamp<qint64>(field.type, 0, kTypeNames.size() - 1)));
    connect(popup, &QComboBox::activated, this, [this, row](int index) {
        std::vector<MetadataField> list = fields();
        if (std::size_t(row) >= list.size())
            return;
        list[std::size_t(row)].type = index;
        store(list);
    });
    return popup;
}

QWidget* MetadataFieldEditor::keyPopup(int row, const MetadataField& field) {
    auto* popup = new QComboBox(table_);
    popup->addItem(QStringLiteral("(None)"));
    for (const KeyChoice& choice : qtMetaCache())
        popup->addItem(choice.name, choice.key);
    const int found = field.qtMetadataKey ? popup->findData(*field.qtMetadataKey) : -1;
    popup->setCurrentIndex(found < 0 ? 0 : found);
    connect(popup, &QComboBox::activated, this, [this, row, popup](int index) {
        std::vector<MetadataField> list = fields();
        if (std::size_t(row) >= list.size())
            return;
        if (index == 0)
            list[std::size_t(row)].qtMetadataKey.reset();
        else
            list[std::size_t(row)].qtMetadataKey = popup->itemData(index).toString();
        store(list);
    });
    return popup;
}

void MetadataFieldEditor::add() {
    std::vector<MetadataField> list = fields();
    const auto taken = [&list](const QString& title) {
        return std::any_of(list.begin(), list.end(),
                           [&](const MetadataField& field) { return field.title == title; });
    };
    QString title = QStringLiteral("Untitled");
    for (int counter = 2; taken(title); ++counter)
        title = QStringLiteral("Untitled-%1").arg(counter);
    MetadataField field;
    field.title = title;
    field.visible = 1;
    list.push_back(field);
    save(list);
    reload();
    table_->setCurrentCell(table_->rowCount() - 1, kTitle);
    table_->editItem(table_->item(table_->rowCount() - 1, kTitle));
}

void MetadataFieldEditor::removeSelected() {
    std::vector<int> rows;
    for (const QModelIndex& index : table_->selectionModel()->selectedRows())
        rows.push_back(index.row());
    if (rows.empty())
        return;
    std::sort(rows.rbegin(), rows.rend());
    std::vector<MetadataField> list = fields();
    for (const int row : rows) {
        if (std::size_t(row) < list.size())
            list.erase(list.begin() + row);
    }
    save(list);
    reload();
}

void MetadataFieldEditor::cellEdited(int row, int column, const QString& text) {
    std::vector<MetadataField> list = fields();
    if (column != kDefault || std::size_t(row) >= list.size())
        return;
    list[std::size_t(row)].defaultVal = withoutQuotes(text);
    store(list);
}

void MetadataFieldEditor::rename(int row, const QString& title) {
    std::vector<MetadataField> list = fields();
    if (std::size_t(row) >= list.size())
        return;
    const bool taken = std::any_of(
        list.begin(), list.end(), [&](const MetadataField& field) { return field.title == title; });
    if (MetadataField::spacelessTitle(title).isEmpty() || taken) {
        if (taken) {
            QMessageBox alert(QMessageBox::Warning, window()->windowTitle(),
                              QStringLiteral("This metadata field already exists"), QMessageBox::Ok,
                              window());
            alert.setWindowModality(Qt::WindowModal);
            alert.setInformativeText(QStringLiteral("Please choose a different title."));
            alert.exec();
        }
        reload();  // the cell goes back to the title the field keeps
        return;
    }
    list[std::size_t(row)].title = title;
    store(list);
}

void MetadataFieldEditor::setSwitch(int row, int column, bool on) {
    std::vector<MetadataField> list = fields();
    if (std::size_t(row) >= list.size())
        return;
    MetadataField& field = list[std::size_t(row)];
    const qint64 value = on ? 1 : 0;
    if (column == kVisible)
        field.visible = value;
    else if (column == kInPath)
        field.useInPath = value;
    else
        field.useInSpreadsheet = value;
    store(list);
}

QString MetadataFieldEditor::pathPreview() const {
    QString path;
    for (const MetadataField& field : fields()) {
        if (field.useInPath == 1)
            path += QLatin1Char('/') + field.title;
    }
    return path.isEmpty() ? QStringLiteral("/") : path;
}

void MetadataFieldEditor::showPreview() {
    while (preview_->count() > 0) {
        const std::unique_ptr<QLayoutItem> item(preview_->takeAt(0));
        if (item->widget() != nullptr)
            item->widget()->deleteLater();
    }
    const QIcon folder =
        QIcon::fromTheme(QStringLiteral("folder"), style()->standardIcon(QStyle::SP_DirIcon));
    const QStringList parts = pathPreview().split(QLatin1Char('/'), Qt::SkipEmptyParts);
    if (parts.isEmpty())
        preview_->addWidget(new QLabel(QStringLiteral("/"), this));
    for (const QString& part : parts) {
        auto* icon = new QLabel(this);
        icon->setPixmap(folder.pixmap(16, 16));
        preview_->addWidget(icon);
        preview_->addWidget(new QLabel(part, this));
    }
}
