// The desktop pieces fall back in order and a missing piece is a logged no-op; the file
// manager is reached over a private bus with a fake.

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>
#include <QUrl>
#include <atomic>
#include <thread>

#include "FakeFileManager.h"
#include "FakeProcessRunner.h"
#include "LinuxDesktop.h"
#include "LogTail.h"
#include "PrivateBus.h"
#include "QtPrinters.h"
#include "WaitUntil.h"

using namespace Qt::StringLiterals;

namespace {

// A connection that never reaches a bus: a session without D-Bus.
QDBusConnection noBus() {
    return QDBusConnection("cardsweep-no-bus");
}

}  // namespace

TEST(LinuxDesktopTest, FallsBackThroughTheToolsAndLogsWhatItCannotDo) {
    FakeProcessRunner nothing;
    LinuxDesktop bare(nothing, noBus());
    const LogTail log;
    EXPECT_FALSE(bare.revealFolder("/media/card/PROJECT"));
    EXPECT_FALSE(bare.openFiles({"/d/a.mov"}));
    EXPECT_TRUE(bare.openFiles({}));
    bare.requestAttention();
    for (const char* line :
         {"Desktop: no file manager to show /media/card/PROJECT",
          "Desktop: no application to open 1 file(s)", "Desktop: no window to ask for attention"})
        EXPECT_TRUE(log.text().contains(line)) << line;

    // Each tool tried in turn, started and never waited for.
    FakeProcessRunner tools;
    tools.answer("xdg-open", FakeProcessRunner::exited(0));
    LinuxDesktop xdg(tools, noBus());
    EXPECT_TRUE(xdg.revealFolder("/d/My Card #1"));
    EXPECT_TRUE(xdg.openFiles({"/d/a b.mov", "/d/c.mov"}));
    tools.answer("gio", FakeProcessRunner::exited(0));
    tools.answer("canberra-gtk-play", FakeProcessRunner::exited(0));
    EXPECT_TRUE(xdg.openFiles({"/d/a.mov"}));
    EXPECT_TRUE(xdg.playSound("complete"));
    EXPECT_EQ(tools.commandLines(),
              (QStringList{"xdg-open /d/My Card #1", "gio open /d/a b.mov /d/c.mov",
                           "xdg-open /d/a b.mov", "xdg-open /d/c.mov", "gio open /d/a.mov",
                           "canberra-gtk-play -i complete"}));
    for (const FakeProcessRunner::Call& call : tools.calls())
        EXPECT_FALSE(call.waited) << call.program.toStdString();

    std::atomic<int> alerts = 0;
    xdg.setAttentionHandler([&alerts] { ++alerts; });
    std::thread([&xdg] { xdg.requestAttention(); }).join();
    EXPECT_EQ(alerts, 1);
}

TEST(LinuxDesktopTest, RevealsThroughTheFileManagerServiceWhenTheBusHasOne) {
    PrivateBus bus;
    if (!bus.error().isEmpty()) {
        GTEST_SKIP() << bus.error().toStdString();
    }
    FakeProcessRunner processes;
    processes.answer("xdg-open", FakeProcessRunner::exited(0));
    LinuxDesktop desktop(processes, bus.connect("client"));

    // No file manager on the bus yet: the tool is the fall-back.
    EXPECT_TRUE(desktop.revealFolder("/d/first"));
    EXPECT_EQ(processes.commandLines(), QStringList{"xdg-open /d/first"});

    FakeFileManager fileManager;
    ASSERT_TRUE(fileManager.registerOn(bus.connect("file-manager")));
    const QTemporaryDir dir;
    const QString folder = QDir(dir.path()).filePath("Day 1 #A & ü");
    // The post actions reveal from a transfer thread while the window's loop runs.
    std::atomic<bool> done = false;
    std::atomic<bool> revealed = false;
    std::thread worker([&] {
        revealed = desktop.revealFolder(folder);
        done = true;
    });
    EXPECT_TRUE(waitUntil([&] { return done.load(); }));
    worker.join();
    EXPECT_TRUE(revealed);
    ASSERT_EQ(fileManager.shown().size(), 1);
    EXPECT_EQ(QUrl(fileManager.shown().constFirst()).toLocalFile(), folder);
    EXPECT_EQ(processes.commandLines().size(), 1);
}
