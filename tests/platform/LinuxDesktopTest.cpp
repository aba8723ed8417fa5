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
    return QDBusConnection(QStringLiteral("cardsweep-no-bus"));
}

}  // namespace

TEST(LinuxDesktopTest, FallsBackThroughTheToolsAndLogsWhatItCannotDo) {
    FakeProcessRunner nothing;
    LinuxDesktop bare(nothing, noBus());
    const LogTail log;
    EXPECT_FALSE(bare.revealFolder(u"/media/card/PROJECT"_qs));
    EXPECT_FALSE(bare.openFiles({u"/d/a.mov"_qs}));
    EXPECT_TRUE(bare.openFiles({}));
    bare.requestAttention();
    bare.noteFileSystemChanged(u"/d"_qs);
    const QString lines = log.text();
    EXPECT_TRUE(lines.contains(u"Desktop: no file manager to show /media/card/PROJECT"_qs));
    EXPECT_TRUE(lines.contains(u"Desktop: no application to open 1 file(s)"_qs));
    EXPECT_TRUE(lines.contains(u"Desktop: no window to ask for attention"_qs));

    FakeProcessRunner xdgOnly;
    xdgOnly.answer(u"xdg-open"_qs, FakeProcessRunner::exited(0));
    LinuxDesktop xdg(xdgOnly, noBus());
    EXPECT_TRUE(xdg.revealFolder(u"/d/My Card #1"_qs));
    EXPECT_TRUE(xdg.openFiles({u"/d/a b.mov"_qs, u"/d/c.mov"_qs}));
    EXPECT_EQ(xdgOnly.commandLines(),
              (QStringList{u"xdg-open /d/My Card #1"_qs, u"gio open /d/a b.mov /d/c.mov"_qs,
                           u"xdg-open /d/a b.mov"_qs, u"xdg-open /d/c.mov"_qs}));
    for (const FakeProcessRunner::Call& call : xdgOnly.calls()) {
        EXPECT_FALSE(call.waited) << call.program.toStdString();
    }

    FakeProcessRunner full;
    full.answer(u"gio"_qs, FakeProcessRunner::exited(0));
    full.answer(u"canberra-gtk-play"_qs, FakeProcessRunner::exited(0));
    LinuxDesktop desktop(full, noBus());
    EXPECT_TRUE(desktop.openFiles({u"/d/a.mov"_qs}));
    EXPECT_TRUE(desktop.playSound(u"complete"_qs));
    EXPECT_EQ(full.commandLines(),
              (QStringList{u"gio open /d/a.mov"_qs, u"canberra-gtk-play -i complete"_qs}));

    std::atomic<int> alerts = 0;
    desktop.setAttentionHandler([&alerts] { ++alerts; });
    std::thread worker([&desktop] { desktop.requestAttention(); });
    worker.join();
    EXPECT_EQ(alerts, 1);
}

TEST(LinuxDesktopTest, RevealsThroughTheFileManagerServiceWhenTheBusHasOne) {
    PrivateBus bus;
    if (!bus.error().isEmpty()) {
        GTEST_SKIP() << bus.error().toStdString();
    }
    FakeProcessRunner processes;
    processes.answer(u"xdg-open"_qs, FakeProcessRunner::exited(0));
    LinuxDesktop desktop(processes, bus.connect(u"client"_qs));

    // No file manager on the bus yet: the tool is the fall-back.
    EXPECT_TRUE(desktop.revealFolder(u"/d/first"_qs));
    EXPECT_EQ(processes.commandLines(), QStringList{u"xdg-open /d/first"_qs});

    FakeFileManager fileManager;
    ASSERT_TRUE(fileManager.registerOn(bus.connect(u"file-manager"_qs)));
    const QTemporaryDir dir;
    const QString folder = QDir(dir.path()).filePath(u"Day 1 #A & ü"_qs);
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
