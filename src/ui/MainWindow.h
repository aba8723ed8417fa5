#pragma once
// The main window a crew works in: the volume list, the toolbar, the project name and the
// free space of the destinations, over the controller it shows (as its AppView). Sheets are
// window-modal dialogs. Main thread only.

#include <QMainWindow>
#include <QPointer>
#include <memory>

#include "AppView.h"

class AppController;
class ChecksumComparisonWindow;
class Desktop;
class FileLayer;
class InfoPanel;
class LauncherEntry;
class PreferencesWindow;
class QAction;
class QComboBox;
class QLabel;
class QMimeData;
class QTableView;
class QTimer;
class VerificationFailureWindow;
class VolumeItemDelegate;
class VolumeTableModel;

class MainWindow : public QMainWindow, public AppView {
    Q_OBJECT

  public:
    /// files is what manifests are compared through; it outlives the window.
    MainWindow(Desktop& desktop, FileLayer& files, QWidget* parent = nullptr);
    ~MainWindow() override;

    /// The controller this window shows and commands; set once, before it is shown.
    void attach(AppController& controller);

    // AppView
    void reloadVolumeList() override;
    int showSheet(const SheetRequest& sheet) override;
    std::vector<int> selectedRows() const override;
    void setToolbarState(const ToolbarState& state) override;
    void setBadge(const QString& badge) override;
    void setWindowTitle(const QString& title) override;
    void setRemainingSpaceText(const QString& text) override;
    void setDestinationSummary(const QString& text, bool warning) override;
    void showInfo(const QString& title,
                  const std::vector<std::pair<QString, QString>>& rows) override;
    void showVerificationFailureForVolume(const std::shared_ptr<QVVolume>& volume) override;
    void volumesChanged(const std::vector<std::shared_ptr<const VolumeSnapshot>>& volumes) override;
    void setAutomaticModeSelected(bool selected) override;
    void postActionDone(const VolumeSnapshot& volume, const QString& what) override;

    // For tests and the menus.
    QTableView& table() { return *table_; }
    VolumeTableModel& model() { return *model_; }
    VolumeItemDelegate& delegate() { return *delegate_; }
    QAction& transferAction() { return *transfer_; }
    QAction& eraseAction() { return *erase_; }
    QAction& ejectAction() { return *eject_; }
    QAction& infoAction() { return *info_; }
    QAction& ignoreAction() { return *ignore_; }
    QAction& automaticAction() { return *automatic_; }
    QLabel& remainingSpaceLabel() { return *space_; }
    /// The line over the empty list saying where copies go.
    QLabel& destinationSummaryLabel() { return *summary_; }
    QWidget& destinationSummary() { return *summaryRow_; }
    QComboBox& projectField() { return *project_; }
    VerificationFailureWindow& failureReview() { return *failureReview_; }
    /// The preferences, made on first use.
    PreferencesWindow& preferencesWindow();
    /// The copy comparison window, made on first use.
    ChecksumComparisonWindow& comparisonWindow();

  Q_SIGNALS:
    /// Help ▸ Gather Logs for Support and Help ▸ View Log.
    void gatherLogsRequested();
    void viewLogRequested();

  protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    void buildActions();
    void buildMenus();
    void buildToolbar();
    QWidget* buildCentre();
    void sizeColumns();
    void selectionChanged();
    void cancelRow(int row);
    void addFolders();
    void revealSelected();
    void revealTransferred();
    /// Opens each folder in the file manager; a sheet names those nothing could open.
    void reveal(const QString& name, const QStringList& folders, const QString& failure);
    void projectEdited();
    void turnSpinners();
    /// While anything runs the destinations fill up: their free space is shown again.
    void refreshSpaceWhileBusy();
    void showSummaryWhileEmpty();
    /// Opens the preferences on their Destinations page.
    void showDestinationPreferences();
    bool anyRowBusy() const;
    static QStringList foldersIn(const QMimeData& data);

    Desktop& desktop_;
    FileLayer& files_;
    AppController* controller_ = nullptr;
    VolumeTableModel* model_;       // owned by this window
    VolumeItemDelegate* delegate_;  // owned by this window
    QTableView* table_ = nullptr;   // owned by this window
    QLabel* space_ = nullptr;       // owned by the status bar
    QComboBox* project_ = nullptr;  // owned by this window
    QTimer* spinner_ = nullptr;     // owned by this window

    QTimer* spaceTimer_ = nullptr;   // owned by this window
    QWidget* summaryRow_ = nullptr;  // owned by this window
    QLabel* summary_ = nullptr;      // owned by summaryRow_

    QAction* transfer_ = nullptr;
    QAction* erase_ = nullptr;
    QAction* info_ = nullptr;
    QAction* eject_ = nullptr;
    QAction* ignore_ = nullptr;
    QAction* automatic_ = nullptr;
    QAction* reveal_ = nullptr;
    QAction* revealTransferred_ = nullptr;
    QPointer<InfoPanel> infoPanel_;
    QPointer<ChecksumComparisonWindow> comparison_;
    QPointer<PreferencesWindow> preferences_;
    VerificationFailureWindow* failureReview_;  // owned by this window; one for the application
    std::unique_ptr<LauncherEntry> launcher_;
    bool quitting_ = false;
};
