// The editing-application link: XML escaping, version numbers, the document written beside
// the project and handed over, and queries that answer nothing.
#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

#include "FakeProcessRunner.h"
#include "LogTail.h"
#include "QVAppleEvents.h"
#include "QVLocalPaths.h"
#include "SettingsKeys.h"
#include "TestFiles.h"

namespace {

// Escaping is checked where the document is written, below.
TEST(QVAppleEvents, Versions) {
    using E = QVAppleEvents;
    const std::tuple<const char*, int, int> versions[] = {
        // version, major version, xmeml version
        {"4.5", 4, 1},   {"5.0", 5, 3}, {"5.1", 5, 2},  {"5.1.1", 5, 2}, {"5.1.2", 5, 3},
        {"6.0.6", 6, 4}, {"7", 7, 5},   {"10.1", 1, 5}, {"", 7, 1},
    };
    for (const auto& [version, major, xmeml] : versions) {
        EXPECT_EQ(E::majorVersionFromString(version), major) << version;
        EXPECT_EQ(E::xmemlVersionFromString(version), xmeml) << version;
    }
}

TEST(QVAppleEvents, SendWritesBesideTheProjectHandsOverAndOtherQueriesAnswerNothing) {
    QTemporaryDir dir;
    SettingsStore store(dir.filePath("settings.plist"));
    FakeProcessRunner runner;
    runner.answer("true", FakeProcessRunner::exited(0));
    const QVAppleEvents events(store, runner);
    const QString project = dir.filePath("Show $(x) 'a'.fcp");
    TestFiles::write(project, "");
    const QString xml = "<xmeml><clip><name>Tête\r</name></clip></xmeml>";

    // No editing application set: written only.
    EXPECT_TRUE(events.sendXMLToFCP(xml, project, "CARD 1"));
    EXPECT_EQ(TestFiles::read(dir.filePath("CARD 1 Clips.xml")),
              "<xmeml><clip><name>T&#234;te&#13;</name></clip></xmeml>");
    EXPECT_TRUE(runner.calls().empty());
    store.set(SettingsKey::editingApplication, "/bin/true");
    EXPECT_TRUE(events.sendXMLToFCP(xml, project, "CARD 1"));
    EXPECT_EQ(runner.commandLines(), QStringList{"/bin/true " + dir.filePath("CARD 1 Clips.xml")});
    EXPECT_EQ(runner.calls().at(0).arguments.size(), 1);

    // A bare name is looked up on PATH; one that is nowhere is logged, the file still written.
    store.set(SettingsKey::editingApplication, "cardsweep-no-such-editor");
    const LogTail log;
    EXPECT_TRUE(events.sendXMLToFCP(xml, project, "CARD 2"));
    EXPECT_EQ(runner.calls().size(), 1u);
    EXPECT_TRUE(QFile::exists(dir.filePath("CARD 2 Clips.xml")));
    EXPECT_TRUE(log.text().contains("cardsweep-no-such-editor not found"));
    // A project that is not there: the Documents folder. A place that can't take the file: false.
    EXPECT_TRUE(events.sendXMLToFCP(xml, dir.filePath("gone.fcp"), "CARD 4"));
    EXPECT_TRUE(QFile::exists(QVLocalPaths::documentDirectory(true) + "/CARD 4 Clips.xml"));
    ASSERT_TRUE(QDir().mkpath(dir.filePath("CARD 5 Clips.xml")));
    EXPECT_FALSE(events.sendXMLToFCP(xml, project, "CARD 5"));

    EXPECT_FALSE(events.isFCPRunning() || events.listOfOpenFCPProjects() ||
                 events.getProjectXML(project) || events.getItemXML("item", project, true) ||
                 events.getTOC(project, true) || events.sequencesInProject(project) ||
                 events.openItem("item", project, true) || events.saveProject(project) ||
                 events.closeProject(project, true));
    EXPECT_EQ(log.text().count("Error: Final Cut Pro is not running."), 3);
    EXPECT_EQ(log.text().count("Unable to communicate with Final Cut Pro."), 4);
}

}  // namespace
