#pragma once
// Compares copies of a card by their checksum manifests: folders are dropped in (or added), and
// the files whose checksums differ from the first folder's are listed with both checksums.
// Main thread only.

#include <QDialog>
#include <QStringList>

class FileLayer;
class QLabel;
class QListWidget;
class QMimeData;
class QTableWidget;

class ChecksumComparisonWindow : public QDialog {
    Q_OBJECT

  public:
    /// Manifests are read through files, which outlives the window.
    explicit ChecksumComparisonWindow(FileLayer& files, QWidget* parent = nullptr);

    /// A drop is taken only as a list of paths none of which is an existing non-folder
    /// (paths that don't exist are let through; an empty list is fine).
    static bool acceptsDrop(const QStringList& paths);
    /// Appended in order, the same folder again included.
    void addFolders(const QStringList& folders);
    /// Compares the listed folders' manifests and lists what differs.
    void compare();

    const QStringList& sourceFolders() const { return folders_; }
    QTableWidget& results() { return *results_; }
    QLabel& summary() { return *summary_; }

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    static QStringList pathsIn(const QMimeData& data, bool* isList);
    void chooseFolder();

    FileLayer& files_;
    QStringList folders_;
    QListWidget* list_;      // owned by this window
    QTableWidget* results_;  // owned by this window
    QLabel* summary_;        // owned by this window
};
