#include "MainWindow.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QStatusBar>
#include <QTableView>
#include <QTimer>
#include <QToolBar>

#include "AboutDialog.h"
#include "AppController.h"
#include "ChecksumComparisonWindow.h"
#include "Desktop.h"
#include "InfoPanel.h"
#include "LauncherEntry.h"
#include "Preferences.h"
#include "PreferencesWindow.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "VerificationFailureWindow.h"
#include "VolumeItemDelegate.h"
#include "VolumeTableModel.h"

namespace {

constexpr int kSpinnerIntervalMs = 120;
constexpr int kSpaceIntervalMs = 5000;
const QString kAppTitle = QStringLiteral("Cardsweep");

// A button shows its text as given: a lone "&" would otherwise mark a shortcut and vanish.
QString buttonText(QString text) {
    return text.replace(u'&', QStringLiteral("&&"));
}

QIcon themed(const char* name, QStyle::StandardPixmap fallback) {
    return QIcon::fromTheme(QString::fromLatin1(name),
                            QApplication::style()->standardIcon(fallback));
}

}  // namespace

MainWindow::MainWindow(Desktop& desktop, FileLayer& files, QWidget* parent)
    : QMainWindow(parent),
      desktop_(desktop),
      files_(files),
      model_(new VolumeTableModel(this)),
      delegate_(new VolumeItemDelegate(*model_, this)),
      failureReview_(new VerificationFailureWindow(this)),
      launcher_(std::make_unique<LauncherEntry>()) {
    QMainWindow::setWindowTitle(kAppTitle);
    setWindowIcon(QIcon::fromTheme(QStringLiteral("cardsweep")));
    setAcceptDrops(true);
    buildActions();
    buildMenus();
    buildToolbar();
    setCentralWidget(buildCentre());
    space_ = new QLabel(statusBar());
    statusBar()->addPermanentWidget(space_);
    spinner_ = new QTimer(this);
    spinner_->setInterval(kSpinnerIntervalMs);
    connect(spinner_, &QTimer::timeout, this, &MainWindow::turnSpinners);
    spinner_->start();
    spaceTimer_ = new QTimer(this);
    spaceTimer_->setInterval(kSpaceIntervalMs);
    connect(spaceTimer_, &QTimer::timeout, this, &MainWindow::refreshSpaceWhileBusy);
    spaceTimer_->start();
    connect(model_, &QAbstractItemModel::modelReset, this, &MainWindow::showSummaryWhileEmpty);
    connect(model_, &QAbstractItemModel::rowsInserted, this, &MainWindow::showSummaryWhileEmpty);
    connect(model_, &QAbstractItemModel::rowsRemoved, this, &MainWindow::showSummaryWhileEmpty);
    connect(delegate_, &VolumeItemDelegate::cancelClicked, this, &MainWindow::cancelRow);
    resize(980, 460);
}

MainWindow::~MainWindow() {
    // The widgets go with the base classes, and would tell this half-gone window (a field that
    // loses focus finishes its editing, a table that goes clears its selection).
    disconnect(table_->selectionModel(), nullptr, this, nullptr);
    for (QObject* child : findChildren<QObject*>())
        disconnect(child, nullptr, this, nullptr);
    controller_ = nullptr;
}

void MainWindow::buildActions() {
    const auto make = [this](const QString& text, const QIcon& icon, auto slot) {
        auto* action = new QAction(icon, text, this);
        connect(action, &QAction::triggered, this, slot);
        return action;
    };
    transfer_ = make(QStringLiteral("Transfer"), themed("go-down", QStyle::SP_ArrowDown),
                     [this] { controller_->transfer(); });
    erase_ = make(QStringLiteral("Erase"), themed("edit-clear", QStyle::SP_TrashIcon),
                  [this] { controller_->erase(); });
    info_ =
        make(QStringLiteral("Info"), themed("dialog-information", QStyle::SP_MessageBoxInformation),
             [this] { controller_->showInfo(); });
    eject_ = make(QStringLiteral("Eject"), themed("media-eject", QStyle::SP_DriveCDIcon),
                  [this] { controller_->eject(); });
    ignore_ = make(QStringLiteral("Ignore"), themed("list-remove", QStyle::SP_DialogDiscardButton),
                   [this] { controller_->ignore(); });
    automatic_ =
        make(QStringLiteral("Automatic"), themed("media-playlist-repeat", QStyle::SP_BrowserReload),
             [this] { controller_->toggleCardsweep(); });
    automatic_->setCheckable(true);
    automatic_->setToolTip(
        QStringLiteral("Transfer every recognised card as soon as it is mounted"));
    reveal_ = make(QStringLiteral("Show in File Manager"), QIcon(), [this] { revealSelected(); });
    revealTransferred_ =
        make(QStringLiteral("Show Transferred Files"), QIcon(), [this] { revealTransferred(); });
    // Keys that act on the list itself, never while a cell is being edited.
    transfer_->setShortcuts({Qt::Key_Return, Qt::Key_Enter});
    ignore_->setShortcut(QKeySequence::Delete);
    reveal_->setShortcut(Qt::Key_Space);
    for (QAction* action : {transfer_, ignore_, reveal_})
        action->setShortcutContext(Qt::WidgetShortcut);
}

void MainWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    QAction* add = file->addAction(QStringLiteral("Add Folder…"), this, &MainWindow::addFolders);
    add->setShortcut(QKeySequence::Open);
    file->addAction(QStringLiteral("Compare Copies…"), this, [this] {
        ChecksumComparisonWindow& window = comparisonWindow();
        window.show();
        window.raise();
        window.activateWindow();
    });
    file->addSeparator();
    file->addAction(QStringLiteral("Close Window"), QKeySequence::Close, this, &QWidget::close);
    QAction* quit =
        file->addAction(QStringLiteral("Quit"), QKeySequence::Quit, this, &QWidget::close);
    quit->setMenuRole(QAction::QuitRole);

    QMenu* edit = menuBar()->addMenu(QStringLiteral("&Edit"));
    QAction* preferences = edit->addAction(QStringLiteral("Preferences…"), this, [this] {
        PreferencesWindow& window = preferencesWindow();
        window.show();
        window.raise();
        window.activateWindow();
    });
    preferences->setShortcut(QKeySequence::Preferences);

    QMenu* volume = menuBar()->addMenu(QStringLiteral("&Volume"));
    volume->addAction(transfer_);
    volume->addAction(erase_);
    volume->addAction(eject_);
    volume->addAction(info_);
    volume->addSeparator();
    volume->addAction(reveal_);
    volume->addAction(revealTransferred_);
    volume->addSeparator();
    volume->addAction(ignore_);
    volume->addAction(QStringLiteral("Reset Ignored Volumes"), this,
                      [this] { controller_->resetIgnoredVolumes(); });
    volume->addAction(automatic_);

    QMenu* help = menuBar()->addMenu(QStringLiteral("&Help"));
    help->addAction(QStringLiteral("Gather Logs for Support"), this,
                    &MainWindow::gatherLogsRequested);
    help->addAction(QStringLiteral("View Log"), this, &MainWindow::viewLogRequested);
    help->addSeparator();
    help->addAction(QStringLiteral("About Cardsweep"), this, [this] {
        AboutDialog about(this);
        about.exec();
    });
}

void MainWindow::buildToolbar() {
    QToolBar* toolbar = addToolBar(QStringLiteral("Volumes"));
    toolbar->setObjectName(QStringLiteral("volumes"));
    toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    toolbar->setMovable(false);
    for (QAction* action : {transfer_, erase_, info_, eject_, ignore_})
        toolbar->addAction(action);
    auto* spacer = new QWidget(toolbar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolbar->addWidget(spacer);
    toolbar->addAction(automatic_);
}

QWidget* MainWindow::buildCentre() {
    auto* centre = new QWidget(this);
    project_ = new QComboBox(centre);
    project_->setEditable(true);
    project_->setInsertPolicy(QComboBox::NoInsert);
    project_->setMinimumWidth(280);
    project_->lineEdit()->setPlaceholderText(QStringLiteral("Untitled Project"));
    connect(project_->lineEdit(), &QLineEdit::editingFinished, this, &MainWindow::projectEdited);
    connect(project_, &QComboBox::activated, this, &MainWindow::projectEdited);
    auto* label = new QLabel(QStringLiteral("Project:"), centre);
    label->setBuddy(project_);
    auto* projectRow = new QHBoxLayout;
    projectRow->addWidget(label);
    projectRow->addWidget(project_);
    projectRow->addStretch();

    table_ = new QTableView(centre);
    table_->setModel(model_);
    table_->setItemDelegate(delegate_);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    table_->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::SelectedClicked |
                            QAbstractItemView::EditKeyPressed);
    table_->setShowGrid(false);
    table_->setAlternatingRowColors(true);
    table_->verticalHeader()->hide();
    table_->verticalHeader()->setDefaultSectionSize(46);
    table_->horizontalHeader()->setHighlightSections(false);
    table_->setContextMenuPolicy(Qt::ActionsContextMenu);
    for (QAction* action : {transfer_, reveal_, revealTransferred_, info_, ignore_})
        table_->addAction(action);
    connect(model_, &QAbstractItemModel::modelReset, this, &MainWindow::sizeColumns);
    connect(table_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &MainWindow::selectionChanged);

    // Before the first card: where copies will go, and the way to change it.
    summaryRow_ = new QWidget(centre);
    summary_ = new QLabel(summaryRow_);
    summary_->setWordWrap(true);
    summary_->setTextFormat(Qt::PlainText);
    auto* change = new QPushButton(QStringLiteral("Destinations…"), summaryRow_);
    connect(change, &QPushButton::clicked, this, &MainWindow::showDestinationPreferences);
    auto* summaryLayout = new QHBoxLayout(summaryRow_);
    summaryLayout->setContentsMargins(0, 0, 0, 0);
    summaryLayout->addWidget(summary_, 1);
    summaryLayout->addWidget(change);

    auto* layout = new QVBoxLayout(centre);
    layout->addLayout(projectRow);
    layout->addWidget(summaryRow_);
    layout->addWidget(table_);
    return centre;
}

void MainWindow::sizeColumns() {
    QHeaderView* header = table_->horizontalHeader();
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->resizeSection(0, 240);
    header->resizeSection(1, 130);
    header->resizeSection(2, 400);  // room for a reason such as "No space left on ..."
    header->setSectionResizeMode(3, QHeaderView::Fixed);
    header->resizeSection(3, 40);
    for (int column = 4; column < model_->columnCount(); ++column)
        header->resizeSection(column, 70);
}

void MainWindow::attach(AppController& controller) {
    controller_ = &controller;
    model_->setController(&controller);
    failureReview_->setController(&controller);
    sizeColumns();
    SettingsStore& settings = controller.settings();
    project_->addItems(settings.get(SettingsKey::recentProjects));
    project_->setEditText(settings.get(SettingsKey::projectName));
    automatic_->setChecked(controller.cardsweepEnabled());
    controller.updateToolbarForTableSelection();
    controller.refreshTotalRemainingSpace();
}

void MainWindow::reloadVolumeList() {
    if (controller_ == nullptr)
        return;
    QStringList selected;
    for (const int row : selectedRows()) {
        if (const auto volume = model_->volumeAt(row))
            selected << volume->path;
    }
    std::vector<std::shared_ptr<const VolumeSnapshot>> snapshots;
    for (const auto& volume : controller_->dataArray())
        snapshots.push_back(volume->snapshot());
    if (!model_->reload(std::move(snapshots)))
        return;
    // The rows moved: select the same volumes again, wherever they are now.
    QItemSelection selection;
    for (const QString& path : selected) {
        const int row = model_->rowOfPath(path);
        if (row >= 0)
            selection.select(model_->index(row, 0), model_->index(row, model_->columnCount() - 1));
    }
    table_->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
}

void MainWindow::volumesChanged(const std::vector<std::shared_ptr<const VolumeSnapshot>>& volumes) {
    model_->update(volumes);
}

int MainWindow::showSheet(const SheetRequest& sheet) {
    // A sheet asked for from the preferences (resetting ignored volumes) belongs on them.
    const bool onPreferences = !preferences_.isNull() && preferences_->isActiveWindow();
    QMessageBox box(onPreferences ? static_cast<QWidget*>(preferences_.data()) : this);
    box.setWindowModality(Qt::WindowModal);
    box.setIcon(sheet.icon == SheetRequest::Icon::Information ? QMessageBox::Information
                                                              : QMessageBox::Warning);
    box.setWindowTitle(kAppTitle);
    box.setText(sheet.message);
    box.setInformativeText(sheet.informativeText);
    QPushButton* defaultButton = box.addButton(
        buttonText(sheet.defaultButton.isEmpty() ? QStringLiteral("OK") : sheet.defaultButton),
        QMessageBox::AcceptRole);
    QPushButton* alternate = nullptr;
    if (!sheet.alternateButton.isEmpty()) {
        alternate = box.addButton(buttonText(sheet.alternateButton), QMessageBox::RejectRole);
        box.setEscapeButton(alternate);
    }
    QPushButton* other = sheet.otherButton.isEmpty() ? nullptr
                                                     : box.addButton(buttonText(sheet.otherButton),
                                                                     QMessageBox::DestructiveRole);
    if (sheet.defaultAnswer == 0 && alternate != nullptr)
        box.setDefaultButton(alternate);
    else if (sheet.defaultAnswer == -1 && other != nullptr)
        box.setDefaultButton(other);
    else
        box.setDefaultButton(defaultButton);
    box.exec();
    const QAbstractButton* clicked = box.clickedButton();
    if (clicked == defaultButton)
        return 1;
    if (other != nullptr && clicked == other)
        return -1;
    return alternate != nullptr ? 0 : 1;
}

std::vector<int> MainWindow::selectedRows() const {
    std::vector<int> rows;
    for (const QModelIndex& index : table_->selectionModel()->selectedRows())
        rows.push_back(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void MainWindow::setToolbarState(const ToolbarState& state) {
    transfer_->setText(state.transferLabel);
    transfer_->setIcon(state.transferCancels ? themed("process-stop", QStyle::SP_BrowserStop)
                                             : themed("go-down", QStyle::SP_ArrowDown));
    transfer_->setEnabled(state.transferEnabled);
    erase_->setEnabled(state.eraseEnabled);
    info_->setEnabled(state.infoEnabled);
    eject_->setEnabled(state.ejectEnabled);
    ignore_->setEnabled(state.ignoreEnabled);
    reveal_->setEnabled(state.infoEnabled);
    revealTransferred_->setEnabled(state.revealTransferredEnabled);
}

void MainWindow::setBadge(const QString& badge) {
    launcher_->setBadge(badge);
}

void MainWindow::setWindowTitle(const QString& title) {
    QMainWindow::setWindowTitle(title);
}

void MainWindow::setRemainingSpaceText(const QString& text) {
    space_->setText(text);
    if (!preferences_.isNull() && preferences_->isVisible())
        preferences_->refreshSizes();
}

void MainWindow::setDestinationSummary(const QString& text, bool warning) {
    summary_->setText(text);
    summary_->setStyleSheet(warning ? QStringLiteral("color: #a05a00; font-weight: bold;")
                                    : QString());
}

void MainWindow::showSummaryWhileEmpty() {
    summaryRow_->setVisible(model_->rowCount() == 0);
}

void MainWindow::showDestinationPreferences() {
    PreferencesWindow& window = preferencesWindow();
    window.tabs().setCurrentIndex(0);
    window.show();
    window.raise();
    window.activateWindow();
}

bool MainWindow::anyRowBusy() const {
    for (int row = 0; row < model_->rowCount(); ++row) {
        if (model_->index(row, 0).data(VolumeTableModel::BusyRole).toBool())
            return true;
    }
    return false;
}

void MainWindow::refreshSpaceWhileBusy() {
    if (controller_ != nullptr && anyRowBusy())
        controller_->refreshTotalRemainingSpace();
}

void MainWindow::showInfo(const QString& title,
                          const std::vector<std::pair<QString, QString>>& rows) {
    if (infoPanel_.isNull())
        infoPanel_ = new InfoPanel(this);  // owned by this window
    infoPanel_->show(title, rows);
}

void MainWindow::showVerificationFailureForVolume(const std::shared_ptr<QVVolume>& volume) {
    failureReview_->showVerificationFailureForVolume(volume);
}

PreferencesWindow& MainWindow::preferencesWindow() {
    if (preferences_.isNull()) {
        preferences_ = new PreferencesWindow(*controller_, this);  // owned by this window
        connect(preferences_, &PreferencesWindow::destinationsChanged, model_,
                &VolumeTableModel::refreshColumns);
        connect(preferences_, &PreferencesWindow::fieldsChanged, model_,
                &VolumeTableModel::refreshColumns);
    }
    return *preferences_;
}

ChecksumComparisonWindow& MainWindow::comparisonWindow() {
    if (comparison_.isNull())
        comparison_ = new ChecksumComparisonWindow(files_, this);  // owned by this window
    return *comparison_;
}

void MainWindow::setAutomaticModeSelected(bool selected) {
    automatic_->setChecked(selected);
}

void MainWindow::postActionDone(const VolumeSnapshot& volume, const QString& what) {
    statusBar()->showMessage(volume.name + QStringLiteral(": ") + what, 10000);
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (controller_ != nullptr && !controller_->applicationShouldTerminate()) {
        event->ignore();
        return;
    }
    event->accept();
}

QStringList MainWindow::foldersIn(const QMimeData& data) {
    QStringList folders;
    for (const QUrl& url : data.urls()) {
        if (url.isLocalFile() && QFileInfo(url.toLocalFile()).isDir())
            folders << url.toLocalFile();
    }
    return folders;
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (!foldersIn(*event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    const QStringList folders = foldersIn(*event->mimeData());
    if (folders.isEmpty())
        return;
    event->acceptProposedAction();
    controller_->importFolders(folders);
}

void MainWindow::selectionChanged() {
    if (controller_ != nullptr)
        controller_->updateToolbarForTableSelection();
}

void MainWindow::cancelRow(int row) {
    // The badge acts on its own row only.
    table_->selectionModel()->select(
        QItemSelection(model_->index(row, 0), model_->index(row, model_->columnCount() - 1)),
        QItemSelectionModel::ClearAndSelect);
    controller_->cancelSelectedTransfers();
}

void MainWindow::addFolders() {
    const QString folder = QFileDialog::getExistingDirectory(this, QStringLiteral("Add Folder"));
    if (!folder.isEmpty())
        controller_->importFolders({folder});
}

void MainWindow::revealSelected() {
    for (const int row : selectedRows()) {
        if (const auto volume = model_->volumeAt(row))
            reveal(volume->name, {volume->path}, QStringLiteral("Unable to show '%1'"));
    }
}

void MainWindow::revealTransferred() {
    // A row not yet transferred has nothing to show; it is passed over rather than waited for.
    for (const int row : selectedRows()) {
        const auto volume = model_->volumeAt(row);
        if (!volume || volume->status == VolumeStatus::Idle ||
            volume->status == VolumeStatus::Unrecognised)
            continue;
        reveal(volume->name, volume->destinations,
               QStringLiteral("Unable to show the transferred files of '%1'"));
    }
}

void MainWindow::reveal(const QString& name, const QStringList& folders, const QString& failure) {
    QStringList unopened;
    for (const QString& folder : folders) {
        if (!desktop_.revealFolder(folder))
            unopened << folder;
    }
    if (unopened.isEmpty())
        return;
    showSheet(
        {failure.arg(name),
         QStringLiteral("OK"),
         {},
         {},
         QStringLiteral("No program could open %1.").arg(unopened.join(QStringLiteral(", ")))});
}

void MainWindow::projectEdited() {
    const QString name = project_->currentText().trimmed();
    SettingsStore& settings = controller_->settings();
    if (name == settings.get(SettingsKey::projectName))
        return;
    settings.set(SettingsKey::projectName, name);
    const QStringList history =
        Preferences(settings).addToHistory(SettingsKey::recentProjects, name);
    const QSignalBlocker quiet(project_);
    project_->clear();
    project_->addItems(history);
    project_->setEditText(name);
}

void MainWindow::turnSpinners() {
    if (!anyRowBusy())
        return;
    delegate_->advanceSpinner();
    table_->viewport()->update();
}
