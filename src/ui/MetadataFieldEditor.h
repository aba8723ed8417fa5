#pragma once
// The editor of the user's metadata fields (title, kind, default, shown in the list, used in
// the folder path or the spreadsheet, the movie tag key) with the path the fields give copies.
// Every change is stored at once; fieldsChanged lets the main window rebuild its columns.
// Main thread only.

#include <QWidget>
#include <vector>

#include "MetadataField.h"

class QHBoxLayout;
class QTableWidget;
class SettingsStore;

class MetadataFieldEditor : public QWidget {
    Q_OBJECT

  public:
    /// The key choices offered for movie tags: name "Group: Name", and the key.
    struct KeyChoice {
        QString name;
        QString key;
    };

    explicit MetadataFieldEditor(SettingsStore& settings, QWidget* parent = nullptr);

    /// Appends "Untitled" (or "Untitled-2", "Untitled-3", ... while taken) and edits its title.
    void add();
    /// Removes the selected fields.
    void removeSelected();
    /// "/Day/Reel/Timestamp": the folders the fields in the path give, in order.
    QString pathPreview() const;

    QTableWidget& table() { return *table_; }
    std::vector<MetadataField> fields() const;
    static const std::vector<KeyChoice>& qtMetaCache();

  Q_SIGNALS:
    void fieldsChanged();

  private:
    void reload();
    /// Stores the fields and tells the main window; the caller remakes the cells.
    void save(const std::vector<MetadataField>& fields);
    /// Stores the fields at once; the table follows on the next turn of the event loop.
    void store(const std::vector<MetadataField>& fields);
    void cellEdited(int row, int column, const QString& text);
    void rename(int row, const QString& title);
    void setSwitch(int row, int column, bool on);
    QWidget* typePopup(int row, const MetadataField& field);
    QWidget* keyPopup(int row, const MetadataField& field);
    void showPreview();

    SettingsStore& settings_;
    QTableWidget* table_;   // owned by this widget
    QHBoxLayout* preview_;  // owned by this widget's layout
    bool reloading_ = false;
};
