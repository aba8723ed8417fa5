// The desktop application as a crew starts it, on a virtual X display: a real loop card
// mounted while it runs is listed with its format, transferred to both destinations, verified
// and shown "Done". With CARDSWEEP_SCREENSHOT=FILE.png (and ImageMagick's import) the screen
// is saved while the card copies.
#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QThread>

#include "CardTest.h"
#include "Preferences.h"
#include "SettingsStore.h"
#include "TestFiles.h"

namespace {

// A private X server; display() is empty when it could not start.
class VirtualDisplay {
  public:
    VirtualDisplay() {
        const QString server = LoopCard::findTool("Xvfb");
        if (server.isEmpty())
            return;
        server_.start(server,
                      {"-displayfd", "1", "-screen", "0", "1280x720x24", "-nolisten", "tcp"});
        if (server_.waitForReadyRead(15000))
            display_ = ":" + QString::fromLatin1(server_.readLine()).trimmed();
    }
    ~VirtualDisplay() {
        server_.kill();
        server_.waitForFinished();
    }
    QString display() const { return display_; }

  private:
    QProcess server_;
    QString display_;
};

// Waits until the file holds the text; false after the time-out.
bool waitForLine(const QString& file, const QString& text, int seconds) {
    const QDeadlineTimer deadline(seconds * 1000);
    while (!TestFiles::read(file).contains(text.toUtf8())) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(50);
    }
    return true;
}

// Every file of that name under root.
QStringList filesNamed(const QString& root, const QString& name) {
    QStringList found;
    QDirIterator it(root, {name}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        found << it.next();
    return found;
}

void screenshot(const QString& display) {
    const QString target = qEnvironmentVariable("CARDSWEEP_SCREENSHOT");
    const QString import = LoopCard::findTool("import");
    if (target.isEmpty() || import.isEmpty())
        return;
    QProcess grab;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DISPLAY", display);
    grab.setProcessEnvironment(environment);
    grab.start(import, {"-window", "root", "-crop", "980x460+0+0", "+repage", target});
    grab.waitForFinished(20000);
}

}  // namespace

class DesktopAppE2E : public CardTest {};

TEST_F(DesktopAppE2E, AMountedCardIsListedTransferredVerifiedAndShownDone) {
    VirtualDisplay x;
    if (x.display().isEmpty())
        GTEST_SKIP() << "no virtual X display (Xvfb is not installed or did not start)";
    // A card already in at start-up is listed, not transferred; once it shows, the start-up
    // listing is done and a card mounted next is the program's to take.
    const auto present = mountCard("PRESENT");
    const auto card = mountCard("EOS_DIGITAL");
    ASSERT_TRUE(present && card);
    TestFiles::write(present->mountPoint() + "/DCIM/100EOS5D/MVI_0009.MOV", "left alone");
    const QByteArray clip = TestFiles::randomBytes(48 * 1024 * 1024 + 5, 21);
    TestFiles::write(card->mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV", clip);
    TestFiles::write(card->mountPoint() + "/DCIM/100EOS5D/IMG_0002.JPG", "still");
    ASSERT_TRUE(card->unmount());

    {
        SettingsStore settings(SettingsStore::defaultPath());
        Preferences(settings).registerAndMigrate();
        Preferences(settings).setDestinationList(
            {{1, workPath("Shuttle A")}, {1, workPath("Shuttle B")}});
        settings.setObject("cardsweepEnabled", PropertyList(qint64(1)));
        settings.setObject(SettingsKey::projectName, PropertyList(QString("Night Shoot")));
        settings.synchronize();
    }
    const QString trace = workPath("list.txt");
    QProcess app;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DISPLAY", x.display());
    environment.insert("QT_QPA_PLATFORM", "xcb");
    environment.insert("CARDSWEEP_LIST_TRACE", trace);
    environment.insert("ASAN_OPTIONS", "detect_leaks=0");  // the X libraries keep their caches
    app.setProcessEnvironment(environment);
    app.setProcessChannelMode(QProcess::MergedChannels);
    app.start(CARDSWEEP_GUI_PATH, QStringList{});
    ASSERT_TRUE(app.waitForStarted());
    const bool shown = waitForLine(trace, "list shown", 60);
    const bool listed = shown && waitForLine(trace, "PRESENT\tEOSHD\tWaiting", 60) &&
                        card->remount() && waitForLine(trace, "EOS_DIGITAL\tEOSHD\t", 60);
    if (listed && waitForLine(trace, "\tCopying", 30)) {
        QThread::msleep(250);  // some way into the copy
        screenshot(x.display());
    }
    const bool done = listed && waitForLine(trace, "EOS_DIGITAL\tEOSHD\tDone", 120);
    app.terminate();
    app.waitForFinished(10000);
    const QString lines = QString::fromUtf8(TestFiles::read(trace));
    ASSERT_TRUE(done) << "list:\n"
                      << lines.toStdString() << "output:\n"
                      << app.readAll().toStdString();
    EXPECT_FALSE(lines.contains("Failed")) << lines.toStdString();
    EXPECT_FALSE(lines.contains("PRESENT\tEOSHD\tCopying")) << lines.toStdString();

    for (const QString& destination : {workPath("Shuttle A"), workPath("Shuttle B")}) {
        const QStringList copies = filesNamed(destination, "MVI_0001.MOV");
        ASSERT_EQ(copies.size(), 1) << destination.toStdString();
        EXPECT_TRUE(copies.front().contains("/Night Shoot/")) << copies.front().toStdString();
        EXPECT_EQ(TestFiles::read(copies.front()), clip);
    }
}
