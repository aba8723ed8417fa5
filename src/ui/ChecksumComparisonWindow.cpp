#include "ChecksumComparisonWindow.h"

#include <QDialogButtonBox>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QMimeData>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "FileLayer.h"
#include "ManifestComparison.h"

ChecksumComparisonWindow::ChecksumComparisonWindow(FileLayer& files, QWidget* parent)
    : QDialog(parent),
      files_(files),
      list_(new QListWidget(this)),
      results_(new QTableWidget(0, 4, this)),
      summary_(new QLabel(this)) {
    setWindowTitle(QStringLiteral("Compare Copies"));
    setAcceptDrops(true);
    auto* hint = new QLabel(
        QStringLiteral("Drop the folders of a card's copies here; the first is the reference."),
        this);
    results_->setHorizontalHeaderLabels({QStringLiteral("File"), QStringLiteral("Checksum"),
                                         QStringLiteral("Source checksum"),
                                         QStringLiteral("Folder")});
    results_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    results_->verticalHeader()->hide();
    results_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    QPushButton* add =
        buttons->addButton(QStringLiteral("Add Folder…"), QDialogButtonBox::ActionRole);
    QPushButton* run = buttons->addButton(QStringLiteral("Compare"), QDialogButtonBox::ActionRole);
    connect(add, &QPushButton::clicked, this, &ChecksumComparisonWindow::chooseFolder);
    connect(run, &QPushButton::clicked, this, &ChecksumComparisonWindow::compare);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(hint);
    layout->addWidget(list_, 1);
    layout->addWidget(summary_);
    layout->addWidget(results_, 2);
    layout->addWidget(buttons);
    resize(760, 480);
}

bool ChecksumComparisonWindow::acceptsDrop(const QStringList& paths) {
    return std::none_of(paths.begin(), paths.end(), [](const QString& path) {
        const QFileInfo info(path);
        return info.exists() && !info.isDir();
    });
}

QStringList ChecksumComparisonWindow::pathsIn(const QMimeData& data, bool* isList) {
    *isList = data.hasUrls();
    QStringList paths;
    for (const QUrl& url : data.urls()) {
        if (!url.isLocalFile()) {
            *isList = false;
            return {};
        }
        paths << url.toLocalFile();
    }
    return paths;
}

void ChecksumComparisonWindow::dragEnterEvent(QDragEnterEvent* event) {
    dragMoveEvent(event);
}

void ChecksumComparisonWindow::dragMoveEvent(QDragMoveEvent* event) {
    bool isList = false;
    const QStringList paths = pathsIn(*event->mimeData(), &isList);
    if (isList && acceptsDrop(paths))
        event->acceptProposedAction();
    else
        event->ignore();
}

void ChecksumComparisonWindow::dropEvent(QDropEvent* event) {
    bool isList = false;
    const QStringList paths = pathsIn(*event->mimeData(), &isList);
    if (!isList || !acceptsDrop(paths)) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    addFolders(paths);
}

void ChecksumComparisonWindow::addFolders(const QStringList& folders) {
    folders_ << folders;
    list_->addItems(folders);
}

void ChecksumComparisonWindow::chooseFolder() {
    const QString folder = QFileDialog::getExistingDirectory(this, QStringLiteral("Add Folder"));
    if (!folder.isEmpty())
        addFolders({folder});
}

void ChecksumComparisonWindow::compare() {
    results_->setRowCount(0);
    if (folders_.size() < 2) {
        summary_->setText(QStringLiteral("Add two folders or more to compare."));
        return;
    }
    const ManifestComparison::Result result = ManifestComparison::compare(folders_, files_);
    results_->setRowCount(int(result.differences.size()));
    for (int row = 0; row < int(result.differences.size()); ++row) {
        const auto& difference = result.differences[std::size_t(row)];
        const QStringList cells = {difference.file, difference.checksum, difference.sourceChecksum,
                                   difference.folder};
        for (int column = 0; column < cells.size(); ++column)
            results_->setItem(row, column, new QTableWidgetItem(cells[column]));
    }
    if (!result.withoutManifest.isEmpty()) {
        summary_->setText(QStringLiteral("No checksums.txt in: %1")
                              .arg(result.withoutManifest.join(QStringLiteral(", "))));
        return;
    }
    const auto count = result.differences.size();
    summary_->setText(result.same()
                          ? QStringLiteral("%1 files: every copy is the same.").arg(result.files)
                          : QStringLiteral("%1 files: %2 difference%3.")
                                .arg(result.files)
                                .arg(count)
                                .arg(count == 1 ? QString() : QStringLiteral("s")));
}
