// The copy comparison window: what a drop may hold, and the differences it lists.
#include <gtest/gtest.h>

#include <QApplication>
#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QUrl>

#include "ChecksumComparisonWindow.h"
#include "FileLayer.h"
#include "TestFiles.h"

namespace {

const QByteArray kOne(32, 'a');
const QByteArray kTwo(32, 'b');
const QByteArray kThree(32, 'c');

// Drops the paths onto the window as a file manager would; true when it was taken.
bool drop(ChecksumComparisonWindow& window, const QStringList& paths) {
    QMimeData data;
    QList<QUrl> urls;
    for (const QString& path : paths)
        urls << QUrl::fromLocalFile(path);
    data.setUrls(urls);
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&window, &enter);
    if (!enter.isAccepted())
        return false;
    QDropEvent event(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&window, &event);
    return event.isAccepted();
}

}  // namespace

TEST(ChecksumComparisonWindowTest, AMixedDropIsRefusedAndTheDifferingFileIsListed) {
    QTemporaryDir dir;
    const QString a = dir.filePath("Shuttle A/Day 1");
    const QString b = dir.filePath("Shuttle B/Day 1");
    TestFiles::write(a + "/checksums.txt", kOne + "\tA001C001.MXF\n" + kTwo + "\tA001C002.MXF\n");
    TestFiles::write(b + "/checksums.txt", kOne + "\tA001C001.MXF\n" + kThree + "\tA001C002.MXF\n");
    TestFiles::write(dir.filePath("notes.txt"), "not a folder");

    ChecksumComparisonWindow window(FileLayer::posix());
    window.show();
    EXPECT_FALSE(drop(window, {a, dir.filePath("notes.txt")})) << "a file among the folders";
    EXPECT_TRUE(window.sourceFolders().isEmpty());
    EXPECT_TRUE(ChecksumComparisonWindow::acceptsDrop({}));
    EXPECT_TRUE(ChecksumComparisonWindow::acceptsDrop({dir.filePath("not there")}));

    EXPECT_TRUE(drop(window, {a, b}));
    EXPECT_TRUE(drop(window, {a}));
    EXPECT_EQ(window.sourceFolders(), (QStringList{a, b, a})) << "the same folder twice, twice";

    window.compare();
    QTableWidget& results = window.results();
    ASSERT_EQ(results.rowCount(), 1);
    EXPECT_EQ(results.item(0, 0)->text(), "A001C002.MXF");
    EXPECT_EQ(results.item(0, 1)->text(), QString(kThree));
    EXPECT_EQ(results.item(0, 2)->text(), QString(kTwo));
    EXPECT_EQ(results.item(0, 3)->text(), b);
    EXPECT_EQ(window.summary().text(), "2 files: 1 difference.");
}
