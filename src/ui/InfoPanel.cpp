#include "InfoPanel.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QTableWidget>
#include <QVBoxLayout>

InfoPanel::InfoPanel(QWidget* parent) : QDialog(parent), table_(new QTableWidget(this)) {
    table_->setColumnCount(2);
    table_->setHorizontalHeaderLabels({QStringLiteral("Property"), QStringLiteral("Value")});
    table_->horizontalHeader()->setStretchLastSection(true);
    table_->verticalHeader()->hide();
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(table_);
    layout->addWidget(buttons);
    resize(520, 420);
}

void InfoPanel::show(const QString& title, const std::vector<std::pair<QString, QString>>& rows) {
    setWindowTitle(title);
    table_->setRowCount(int(rows.size()));
    for (int row = 0; row < int(rows.size()); ++row) {
        table_->setItem(row, 0, new QTableWidgetItem(rows[std::size_t(row)].first));
        table_->setItem(row, 1, new QTableWidgetItem(rows[std::size_t(row)].second));
    }
    table_->resizeColumnToContents(0);
    QDialog::show();
    raise();
    activateWindow();
}
