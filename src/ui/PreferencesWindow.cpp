#include "PreferencesWindow.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QSpinBox>
#include <QStorageInfo>
#include <QStyle>
#include <QTabWidget>
#include <QTableWidget>
#include <QTreeView>
#include <QVBoxLayout>

#include "AppController.h"
#include "MetadataFieldEditor.h"
#include "Preferences.h"
#include "QVAppleEvents.h"
#include "QVFileManager.h"
#include "SettingsStore.h"

namespace {

// "Size: 1.82 TB, Free: 640.12 GB" of the file system the folder is (or will be made) on.
QString sizeText(const QString& path) {
    QFileInfo existing(path);
    while (!existing.exists() && !existing.isRoot() &&
           existing.absolutePath() != existing.absoluteFilePath())
        existing = QFileInfo(existing.absolutePath());
    const QStorageInfo storage(existing.absoluteFilePath());
    const bool known = storage.isValid() && storage.isReady();
    return QStringLiteral("Size: %1, Free: %2")
        .arg(QVFileManager::formatFileSize(known ? double(storage.bytesTotal()) : 0),
             QVFileManager::formatFileSize(known ? double(storage.bytesAvailable()) : 0));
}

QWidget* page(QLayout* layout) {
    auto* widget = new QWidget;  // handed to the tab widget, which owns it
    widget->setLayout(layout);
    return widget;
}

}  // namespace

PreferencesWindow::PreferencesWindow(AppController& controller, QWidget* parent)
    : QDialog(parent),
      controller_(controller),
      tabs_(new QTabWidget(this)),
      destinations_(nullptr),
      fields_(nullptr),
      projectPath_(nullptr) {
    setWindowTitle(QStringLiteral("Preferences"));
    tabs_->addTab(destinationsPage(), QStringLiteral("Destinations"));
    tabs_->addTab(transferPage(), QStringLiteral("Transfer"));
    tabs_->addTab(afterTransferPage(), QStringLiteral("After Transfer"));
    fields_ = new MetadataFieldEditor(controller.settings(), this);
    connect(fields_, &MetadataFieldEditor::fieldsChanged, this, &PreferencesWindow::fieldsChanged);
    tabs_->addTab(fields_, QStringLiteral("Metadata"));
    tabs_->addTab(privacyPage(), QStringLiteral("Privacy"));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs_);
    layout->addWidget(buttons);
    resize(720, 480);
}

QWidget* PreferencesWindow::destinationsPage() {
    destinations_ = new QTableWidget(0, 3, this);
    destinations_->setHorizontalHeaderLabels({QString(), QStringLiteral("Folder"), QString()});
    destinations_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    destinations_->horizontalHeader()->setSectionResizeMode(1, QHeaderView::Stretch);
    destinations_->horizontalHeader()->setSectionResizeMode(2, QHeaderView::ResizeToContents);
    destinations_->verticalHeader()->hide();
    destinations_->setSelectionBehavior(QAbstractItemView::SelectRows);
    destinations_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    connect(destinations_, &QTableWidget::itemChanged, this, [this](QTableWidgetItem* item) {
        if (item->column() == 0)
            destinationTicked(item->row(), item->checkState() == Qt::Checked);
    });
    reloadDestinations();
    auto* add = new QPushButton(QStringLiteral("Add…"), this);
    auto* remove = new QPushButton(QStringLiteral("Remove"), this);
    connect(add, &QPushButton::clicked, this, &PreferencesWindow::chooseDestinations);
    connect(remove, &QPushButton::clicked, this, &PreferencesWindow::removeSelectedDestinations);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addStretch();
    auto* layout = new QVBoxLayout;
    layout->addWidget(
        new QLabel(QStringLiteral("Every ticked folder receives a verified copy of each card.")));
    layout->addWidget(destinations_);
    layout->addLayout(buttons);
    return page(layout);
}

void PreferencesWindow::reloadDestinations() {
    const QSignalBlocker quiet(destinations_);
    const std::vector<DestinationEntry> list = controller_.destinationList();
    destinations_->setRowCount(int(list.size()));
    for (int row = 0; row < int(list.size()); ++row) {
        const DestinationEntry& entry = list[std::size_t(row)];
        auto* tick = new QTableWidgetItem;
        tick->setFlags(Qt::ItemIsUserCheckable | Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        tick->setCheckState(entry.isSelected() ? Qt::Checked : Qt::Unchecked);
        auto* path = new QTableWidgetItem(
            QIcon::fromTheme(QStringLiteral("folder"), style()->standardIcon(QStyle::SP_DirIcon)),
            entry.path);
        path->setToolTip(entry.path);
        auto* size = new QTableWidgetItem(sizeText(entry.path));
        size->setForeground(Qt::gray);
        destinations_->setItem(row, 0, tick);
        destinations_->setItem(row, 1, path);
        destinations_->setItem(row, 2, size);
    }
}

void PreferencesWindow::refreshSizes() {
    const QSignalBlocker quiet(destinations_);
    for (int row = 0; row < destinations_->rowCount(); ++row) {
        QTableWidgetItem* path = destinations_->item(row, 1);
        QTableWidgetItem* size = destinations_->item(row, 2);
        if (path != nullptr && size != nullptr)
            size->setText(sizeText(path->text()));
    }
}

void PreferencesWindow::showEvent(QShowEvent* event) {
    refreshSizes();
    QDialog::showEvent(event);
}

void PreferencesWindow::destinationTicked(int row, bool ticked) {
    std::vector<DestinationEntry> list = controller_.destinationList();
    if (row < 0 || std::size_t(row) >= list.size())
        return;
    list[std::size_t(row)].selected = ticked ? 1 : 0;
    controller_.changeDestinationList(list);
    Q_EMIT destinationsChanged();
}

void PreferencesWindow::addDestinations(const QStringList& folders) {
    controller_.addDestinations(folders);
    reloadDestinations();
    Q_EMIT destinationsChanged();
}

void PreferencesWindow::removeSelectedDestinations() {
    std::vector<int> rows;
    for (const QModelIndex& index : destinations_->selectionModel()->selectedRows())
        rows.push_back(index.row());
    if (rows.empty())
        return;
    std::sort(rows.rbegin(), rows.rend());
    std::vector<DestinationEntry> list = controller_.destinationList();
    for (const int row : rows) {
        if (std::size_t(row) < list.size())
            list.erase(list.begin() + row);
    }
    controller_.changeDestinationList(list);
    reloadDestinations();
    Q_EMIT destinationsChanged();
}

void PreferencesWindow::chooseDestinations() {
    // Qt's own dialog, so several folders can be chosen at once.
    QFileDialog dialog(this, QStringLiteral("Add Destinations"));
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    for (auto* view : dialog.findChildren<QAbstractItemView*>()) {
        if (qobject_cast<QListView*>(view) || qobject_cast<QTreeView*>(view))
            view->setSelectionMode(QAbstractItemView::ExtendedSelection);
    }
    if (dialog.exec() == QDialog::Accepted)
        addDestinations(dialog.selectedFiles());
}

QCheckBox* PreferencesWindow::addSwitch(QFormLayout& form, const QString& text,
                                        const Setting<IntegerSwitch>& key) {
    auto* box = new QCheckBox(text, this);
    box->setChecked(controller_.settings().get(key));
    connect(box, &QCheckBox::toggled, this,
            [this, key](bool on) { controller_.settings().set(key, on); });
    form.addRow(box);
    return box;
}

void PreferencesWindow::addChoice(QFormLayout& form, const QString& label,
                                  const QStringList& choices, const Setting<qint64>& key,
                                  int shown) {
    auto* popup = new QComboBox(this);
    popup->addItems(choices);
    popup->setCurrentIndex(shown);
    connect(popup, &QComboBox::currentIndexChanged, this,
            [this, key](int index) { controller_.settings().set(key, index); });
    form.addRow(label, popup);
}

QWidget* PreferencesWindow::transferPage() {
    SettingsStore& settings = controller_.settings();
    auto* form = new QFormLayout;
    addChoice(*form, QStringLiteral("Checksum:"),
              {QStringLiteral("MD5"), QStringLiteral("SHA-1"), QStringLiteral("XXH64"),
               QStringLiteral("XXH3 (64-bit)"), QStringLiteral("XXH128")},
              SettingsKey::checksumFormat,
              int(std::clamp<qint64>(settings.get(SettingsKey::checksumFormat), 0, 4)));
    addChoice(*form, QStringLiteral("Transfer:"),
              {QStringLiteral("Copy the files"), QStringLiteral("Image the whole card")},
              SettingsKey::transferType, settings.get(SettingsKey::transferType) == 0 ? 0 : 1);
    auto* threads = new QSpinBox(this);
    threads->setRange(1, 8);
    threads->setValue(int(std::clamp<qint64>(settings.get(SettingsKey::concurrentThreads), 1, 8)));
    connect(threads, &QSpinBox::valueChanged, this,
            [&settings](int value) { settings.set(SettingsKey::concurrentThreads, value); });
    form->addRow(QStringLiteral("Cards at once:"), threads);
    QCheckBox* sizes =
        addSwitch(*form, QStringLiteral("Verify file sizes"), SettingsKey::verifyFileSizes);
    QCheckBox* checksums =
        addSwitch(*form, QStringLiteral("Verify checksums"), SettingsKey::verifyFileChecksums);
    verificationWarning_ = new QLabel(
        QStringLiteral(
            "With a check switched off, copies are not verified: their status, report "
            "and verdict say \"copied, not verified\", and their cards can't be erased."),
        this);
    verificationWarning_->setWordWrap(true);
    verificationWarning_->setStyleSheet(QStringLiteral("color: #a05a00; font-weight: bold;"));
    form->addRow(verificationWarning_);
    const auto warn = [this, sizes, checksums] {
        verificationWarning_->setVisible(!sizes->isChecked() || !checksums->isChecked());
    };
    connect(sizes, &QCheckBox::toggled, this, warn);
    connect(checksums, &QCheckBox::toggled, this, warn);
    warn();
    addSwitch(*form, QStringLiteral("Check each write at once instead of reading copies back"),
              SettingsKey::inlineVerification);
    addSwitch(*form, QStringLiteral("Keep an ASC MHL history with each copy"),
              SettingsKey::writeAscMhl);
    addSwitch(*form, QStringLiteral("Copy only QuickTime movies"), SettingsKey::onlyCopyQTMovies);
    addSwitch(*form, QStringLiteral("Mark transferred cards"), SettingsKey::writeDoneFlag);
    return page(form);
}

void PreferencesWindow::chooseArchiveFolder() {
    const QString chosen =
        QFileDialog::getExistingDirectory(this, QStringLiteral("Archive Folder"));
    if (!chosen.isEmpty())
        controller_.settings().set(SettingsKey::archiveDirectory, chosen);
}

void PreferencesWindow::browseProject() {
    const QString chosen = QFileDialog::getOpenFileName(
        this, QStringLiteral("Editing Project"), QFileInfo(projectPath_->currentText()).path(),
        QStringLiteral("Editing projects (*.fcp *.xml);;All files (*)"));
    if (!chosen.isEmpty())
        changeProjectPath(chosen);
}

void PreferencesWindow::changeProjectPath(const QString& path) {
    SettingsStore& settings = controller_.settings();
    if (!path.isEmpty())
        settings.set(SettingsKey::fcpProjectPath, path);
    const QStringList history =
        Preferences(settings).addToHistory(SettingsKey::recentProjectPaths, path);
    const QSignalBlocker quiet(projectPath_);
    projectPath_->clear();
    projectPath_->addItems(history);
    projectPath_->setEditText(settings.get(SettingsKey::fcpProjectPath));
}

// The editing project that receives clip lists (its history kept), and the program that opens
// them; with no program the clip list is only written beside the project.
void PreferencesWindow::addEditingRows(QFormLayout& form) {
    SettingsStore& settings = controller_.settings();
    projectPath_ = new QComboBox(this);
    projectPath_->setEditable(true);
    projectPath_->setInsertPolicy(QComboBox::NoInsert);
    projectPath_->setMinimumWidth(320);
    projectPath_->lineEdit()->setPlaceholderText(QStringLiteral("No project"));
    changeProjectPath(QString());  // fills the history in
    connect(projectPath_->lineEdit(), &QLineEdit::editingFinished, this,
            [this] { changeProjectPath(projectPath_->currentText().trimmed()); });
    connect(projectPath_, &QComboBox::activated, this,
            [this] { changeProjectPath(projectPath_->currentText()); });
    auto* browse = new QPushButton(QStringLiteral("Choose…"), this);
    connect(browse, &QPushButton::clicked, this, &PreferencesWindow::browseProject);
    auto* row = new QHBoxLayout;
    row->addWidget(projectPath_, 1);
    row->addWidget(browse);
    form.addRow(QStringLiteral("Editing project:"), row);
    auto* application = new QLineEdit(settings.get(SettingsKey::editingApplication), this);
    application->setPlaceholderText(QStringLiteral("Only write the clip list"));
    connect(application, &QLineEdit::editingFinished, this, [&settings, application] {
        settings.set(SettingsKey::editingApplication, application->text().trimmed());
    });
    form.addRow(QStringLiteral("Editing application:"), application);
}

QWidget* PreferencesWindow::afterTransferPage() {
    SettingsStore& settings = controller_.settings();
    auto* form = new QFormLayout;
    addSwitch(*form, QStringLiteral("Write the project's metadata spreadsheet"),
              SettingsKey::actionProjectMetadata);
    addSwitch(*form, QStringLiteral("Write metadata into QuickTime movies"),
              SettingsKey::actionEmbedQTMetadata);
    addSwitch(*form, QStringLiteral("Show the copy in the file manager"),
              SettingsKey::actionShowFinder);
    addSwitch(*form, QStringLiteral("Open the movies"), SettingsKey::actionOpenQTPlayer);
    addSwitch(*form, QStringLiteral("Send a clip list to the editing application"),
              SettingsKey::actionSendFCP);
    addEditingRows(*form);
    addSwitch(*form, QStringLiteral("Archive the first copy"), SettingsKey::actionArchive);
    addChoice(*form, QStringLiteral("Archive as:"),
              {QStringLiteral("Disk image (squashfs)"), QStringLiteral("Zip")},
              SettingsKey::actionArchiveType,
              settings.get(SettingsKey::actionArchiveType) == 0 ? 0 : 1);
    addSwitch(*form, QStringLiteral("Archive into a folder of my own"),
              SettingsKey::archiveToCustomDir);
    auto* archiveFolder = new QPushButton(QStringLiteral("Choose Archive Folder…"), this);
    connect(archiveFolder, &QPushButton::clicked, this, &PreferencesWindow::chooseArchiveFolder);
    form->addRow(archiveFolder);
    addSwitch(*form, QStringLiteral("Eject the card"), SettingsKey::actionEject);
    addSwitch(*form, QStringLiteral("Play a sound"), SettingsKey::actionSound);
    addSwitch(*form, QStringLiteral("Show a notification"), SettingsKey::actionGrowl);
    addSwitch(*form, QStringLiteral("Ask for attention"), SettingsKey::actionBounceDock);
    return page(form);
}

QWidget* PreferencesWindow::privacyPage() {
    auto* form = new QFormLayout;
    auto* analytics = new QCheckBox(QStringLiteral("Send anonymous usage figures"), this);
    analytics->setChecked(Preferences::qcLoggingEnabled());
    connect(analytics, &QCheckBox::toggled, this, [](bool on) { Preferences::setQCLogging(on); });
    form->addRow(analytics);
    auto* reset = new QPushButton(QStringLiteral("Reset Ignored Volumes"), this);
    connect(reset, &QPushButton::clicked, this, [this] { controller_.resetIgnoredVolumes(); });
    form->addRow(reset);
    return page(form);
}
