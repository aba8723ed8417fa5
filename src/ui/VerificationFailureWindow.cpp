#include "VerificationFailureWindow.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "AppController.h"
#include "CopyInfo.h"
#include "QVVolume.h"

VerificationFailureWindow::VerificationFailureWindow(QWidget* parent)
    : QDialog(parent), label_(new QLabel(this)), table_(new QTableWidget(0, 3, this)) {
    setWindowTitle(QStringLiteral("Verification Failed"));
    label_->setWordWrap(true);
    table_->setHorizontalHeaderLabels(
        {QStringLiteral("File"), QStringLiteral("Card checksum"), QStringLiteral("Copy checksum")});
    table_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    table_->horizontalHeader()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    table_->horizontalHeader()->setSectionResizeMode(2, QHeaderView::ResizeToContents);
    table_->verticalHeader()->hide();
    // Long paths keep their file name in sight.
    table_->setTextElideMode(Qt::ElideMiddle);
    table_->setWordWrap(false);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    QPushButton* restart =
        buttons->addButton(QStringLiteral("Restart Transfer"), QDialogButtonBox::ActionRole);
    connect(restart, &QPushButton::clicked, this, &VerificationFailureWindow::restartTransfer);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(label_);
    layout->addWidget(table_);
    layout->addWidget(buttons);
    resize(820, 360);
}

void VerificationFailureWindow::showVerificationFailureForVolume(
    const std::shared_ptr<QVVolume>& volume) {
    volume_ = volume;
    label_->setText(
        QStringLiteral("Verification failed on the volume %1. The failed files are listed below.")
            .arg(volume->name()));
    const auto failed = volume->failedFiles();
    table_->setRowCount(int(failed.size()));
    QList<QStringList> rows;
    for (int row = 0; row < int(failed.size()); ++row) {
        const CopyInfo& file = *failed[std::size_t(row)];
        const QStringList cells = {file.failedFile.value_or(file.source),
                                   file.sourceChecksum.value_or(QString()),
                                   file.destChecksum.value_or(QString())};
        for (int column = 0; column < cells.size(); ++column)
            table_->setItem(row, column, new QTableWidgetItem(cells[column]));
        rows << cells;
    }
    show();
    raise();
    activateWindow();
    Q_EMIT reviewShown(volume->name(), rows);
}

void VerificationFailureWindow::restartTransfer() {
    QMessageBox ask(QMessageBox::Warning, windowTitle(),
                    QStringLiteral("Are you sure you wish to restart the transfer?"),
                    QMessageBox::NoButton, this);
    ask.setWindowModality(Qt::WindowModal);
    ask.setInformativeText(
        QStringLiteral("This will cancel the current transfer and requeue the "
                       "volume."));
    QPushButton* restart =
        ask.addButton(QStringLiteral("Restart Transfer"), QMessageBox::AcceptRole);
    ask.setDefaultButton(restart);
    ask.setEscapeButton(ask.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole));
    ask.exec();
    if (ask.clickedButton() != restart || !volume_)
        return;
    if (controller_ != nullptr)
        controller_->addVolumeToQueue(volume_);
    close();
}
