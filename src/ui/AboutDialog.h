#pragma once
// The About box: the version, and the libraries the program is built on with their licences.

#include <QDialog>

class AboutDialog : public QDialog {
    Q_OBJECT

  public:
    explicit AboutDialog(QWidget* parent = nullptr);
    /// The text it shows (for tests and the log).
    static QString text();
};
