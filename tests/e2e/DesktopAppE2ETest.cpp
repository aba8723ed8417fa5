// The desktop application as a crew starts it, on a virtual X display: a real loop card
// mounted while it runs is listed with its format, transferred to both destinations, verified
// and shown "Done". With CARDSWEEP_SCREENSHOTS=FOLDER (and ImageMagick's import) the screen is
// saved into FOLDER while a card copies.
#include <gtest/gtest.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

#include "CardTest.h"
#include "Preferences.h"
#include "QVLocalPaths.h"
#include "SettingsStore.h"
#include "SystemTool.h"
#include "TestFiles.h"
#include "WaitUntil.h"

namespace {

// A private X server; display() is empty when it could not start.
class VirtualDisplay {
  public:
    VirtualDisplay() {
        const QString server = SystemTool::find("Xvfb");
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
    return waitUntil([&] { return TestFiles::read(file).contains(text.toUtf8()); }, seconds * 1000);
}

// Every file of that name under root.
QStringList filesNamed(const QString& root, const QString& name) {
    QStringList found;
    QDirIterator it(root, {name}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        found << it.next();
    return found;
}

// Saves the screen's top-left `area` ("WxH+0+0") as FOLDER/name.
void screenshot(const QString& display, const QString& name, const QString& area) {
    const QString folder = qEnvironmentVariable("CARDSWEEP_SCREENSHOTS");
    const QString import = SystemTool::find("import");
    if (folder.isEmpty() || import.isEmpty())
        return;
    QProcess grab;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DISPLAY", display);
    grab.setProcessEnvironment(environment);
    grab.start(import, {"-window", "root", "-crop", area, "+repage", folder + "/" + name});
    grab.waitForFinished(20000);
}

}  // namespace

class DesktopAppE2E : public CardTest {
  protected:
    // The settings a crew would have made: these destinations, the project "Night Shoot".
    static void configure(const std::vector<DestinationEntry>& destinations) {
        SettingsStore settings(SettingsStore::defaultPath());
        Preferences(settings).registerAndMigrate();
        Preferences(settings).setDestinationList(destinations);
        settings.setObject(SettingsKey::projectName, PropertyList(QString("Night Shoot")));
        settings.synchronize();
        // The automatic mode is on while the listener unit is installed.
        const QString units = QVLocalPaths::prefsDirectory(true) + "/systemd/user";
        QDir().mkpath(units);
        TestFiles::write(units + "/com.quorvant.Cardsweep.service", "[Service]\n");
    }

    // Starts cardsweep on the display, tracing its list into trace.
    static void start(QProcess& app, const QString& display, const QString& trace) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DISPLAY", display);
        environment.insert("QT_QPA_PLATFORM", "xcb");
        environment.insert("CARDSWEEP_LIST_TRACE", trace);
        environment.insert("ASAN_OPTIONS", "detect_leaks=0");  // the X libraries keep caches
        // Where the one running instance answers later starts: this test's own.
        const QString runtime = QFileInfo(trace).path() + "/run";
        QDir().mkpath(runtime);
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        environment.insert("XDG_RUNTIME_DIR", runtime);
        app.setProcessEnvironment(environment);
        app.setProcessChannelMode(QProcess::MergedChannels);
        app.start(CARDSWEEP_GUI_PATH, QStringList{});
    }

    static void stop(QProcess& app) {
        app.terminate();
        app.waitForFinished(10000);
    }
};

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

    configure({{1, workPath("Shuttle A")}, {1, workPath("Shuttle B")}});
    const QString trace = workPath("list.txt");
    QProcess app;
    start(app, x.display(), trace);
    ASSERT_TRUE(app.waitForStarted());
    const bool shown = waitForLine(trace, "list shown", 60);
    const bool listed = shown && waitForLine(trace, "PRESENT\tEOSHD\tWaiting", 60) &&
                        card->remount() && waitForLine(trace, "EOS_DIGITAL\tEOSHD\t", 60);
    if (listed && waitForLine(trace, "\tCopying", 30)) {
        QThread::msleep(250);  // some way into the copy
        screenshot(x.display(), "main-window-transfer.png", "980x460+0+0");
    }
    const bool done = listed && waitForLine(trace, "EOS_DIGITAL\tEOSHD\tDone", 120);
    // Started again, as the helper does on a mount: the running window takes the card.
    QProcess again;
    again.setProcessEnvironment(app.processEnvironment());
    again.setProcessChannelMode(QProcess::MergedChannels);
    again.start(CARDSWEEP_GUI_PATH, {"-cardsweepVolume", card->mountPoint()});
    const bool handed = again.waitForFinished(30000) &&
                        again.exitStatus() == QProcess::NormalExit && again.exitCode() == 0;
    const QByteArray againSaid = again.readAll();
    stop(app);
    const QString lines = QString::fromUtf8(TestFiles::read(trace));
    ASSERT_TRUE(done) << "list:\n"
                      << lines.toStdString() << "output:\n"
                      << app.readAll().toStdString();
    EXPECT_FALSE(lines.contains("Failed")) << lines.toStdString();
    EXPECT_FALSE(lines.contains("PRESENT\tEOSHD\tCopying")) << lines.toStdString();
    EXPECT_TRUE(handed && againSaid.contains("handed over to the running instance"))
        << againSaid.toStdString();
    EXPECT_FALSE(
        lines.contains("EOS_DIGITAL\tEOSHD\tCopying...\nEOS_DIGITAL\tEOSHD\tDone\n"
                       "EOS_DIGITAL\tEOSHD\tCopying"))
        << "a card already listed is not transferred again";

    for (const QString& destination : {workPath("Shuttle A"), workPath("Shuttle B")}) {
        const QStringList copies = filesNamed(destination, "MVI_0001.MOV");
        ASSERT_EQ(copies.size(), 1) << destination.toStdString();
        EXPECT_TRUE(copies.front().contains("/Night Shoot/")) << copies.front().toStdString();
        EXPECT_EQ(TestFiles::read(copies.front()), clip);
    }
}
