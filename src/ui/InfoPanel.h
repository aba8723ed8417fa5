#pragma once
// The information panel: a card's facts as label and value rows, in a window of its own that
// stays open beside the main window. Main thread only.

#include <QDialog>
#include <utility>
#include <vector>

class QTableWidget;

class InfoPanel : public QDialog {
    Q_OBJECT

  public:
    explicit InfoPanel(QWidget* parent = nullptr);

    void show(const QString& title, const std::vector<std::pair<QString, QString>>& rows);
    QTableWidget& table() { return *table_; }

  private:
    QTableWidget* table_;  // owned by this dialog
};
