#pragma once
// The preferences, grouped as a crew thinks of them: destinations, transfer and verification,
// what happens after a transfer, privacy. Every change is stored at once and counts from the
// next transfer. Main thread only.

#include <QDialog>

#include "Setting.h"

class AppController;
class MetadataFieldEditor;
class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QTableWidget;
class QTabWidget;

class PreferencesWindow : public QDialog {
    Q_OBJECT

  public:
    PreferencesWindow(AppController& controller, QWidget* parent = nullptr);

    /// Adds the folders as destinations (one already listed is not added again).
    void addDestinations(const QStringList& folders);
    /// Removes the selected destinations.
    void removeSelectedDestinations();
    /// Reads the destination list again into the table.
    void reloadDestinations();
    /// Reads each destination's size and free space again (they change as cards are copied).
    void refreshSizes();
    /// The editing project that receives clip lists: stored, and put first in its history.
    void changeProjectPath(const QString& path);

    QTableWidget& destinations() { return *destinations_; }
    QTabWidget& tabs() { return *tabs_; }
    MetadataFieldEditor& fieldEditor() { return *fields_; }
    QComboBox& projectPath() { return *projectPath_; }
    /// Shown while a verification check is switched off.
    QLabel& verificationWarning() { return *verificationWarning_; }

  Q_SIGNALS:
    /// The destination list changed (the main window's pop-ups follow).
    void destinationsChanged();
    /// The metadata fields changed (the main window's columns follow).
    void fieldsChanged();

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    QWidget* destinationsPage();
    QWidget* transferPage();
    QWidget* afterTransferPage();
    QWidget* privacyPage();
    /// A check box that stores 1 or 0 under key as it is clicked.
    QCheckBox* addSwitch(QFormLayout& form, const QString& text, const Setting<IntegerSwitch>& key);
    /// A pop-up of choices that stores the chosen index under key; shown is the index to show.
    void addChoice(QFormLayout& form, const QString& label, const QStringList& choices,
                   const Setting<qint64>& key, int shown);
    void destinationTicked(int row, bool ticked);
    void chooseDestinations();
    void chooseArchiveFolder();
    void browseProject();
    void addEditingRows(QFormLayout& form);

    AppController& controller_;
    QTabWidget* tabs_;             // owned by this window
    QTableWidget* destinations_;   // owned by this window
    MetadataFieldEditor* fields_;  // owned by this window
    QComboBox* projectPath_;       // owned by this window
    QLabel* verificationWarning_;  // owned by this window
};
