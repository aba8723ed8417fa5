#pragma once
// The review of a volume whose copies failed verification: the failed files with the card's
// and the copy's checksums, and a restart of the volume's transfer. One window for the whole
// application; a later failing volume takes the place of the earlier. Main thread only.

#include <QDialog>
#include <memory>

class AppController;
class QLabel;
class QTableWidget;
class QVVolume;

class VerificationFailureWindow : public QDialog {
    Q_OBJECT

  public:
    explicit VerificationFailureWindow(QWidget* parent = nullptr);

    /// Where a restart queues the volume again.
    void setController(AppController* controller) { controller_ = controller; }
    /// Lists the volume's failed files and brings the window forward.
    void showVerificationFailureForVolume(const std::shared_ptr<QVVolume>& volume);

    std::shared_ptr<QVVolume> failedVolume() const { return volume_; }
    QTableWidget& table() { return *table_; }
    QLabel& label() { return *label_; }
    /// Asks, then queues the volume again and closes; "Cancel" changes nothing.
    void restartTransfer();

  Q_SIGNALS:
    /// The window lists a volume's failed files: each row as file, card and copy checksum.
    void reviewShown(const QString& volumeName, const QList<QStringList>& rows);

  private:
    AppController* controller_ = nullptr;
    std::shared_ptr<QVVolume> volume_;
    QLabel* label_;        // owned by this window
    QTableWidget* table_;  // owned by this window
};
