// The editing-application link: XML escaping, version numbers, the document written beside
// the project and handed over, queries that answer nothing, and sequences in a document.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QUuid>
#include <pugixml.hpp>

#include "FakeProcessRunner.h"
#include "LogPlaces.h"
#include "LogTail.h"
#include "QVAppleEvents.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "TestFiles.h"

namespace {

class Link {
  public:
    Link() : store_(dir_.filePath(QStringLiteral("settings.plist"))), events_(store_, runner_) {
        runner_.answer(QStringLiteral("true"), FakeProcessRunner::exited(0));
    }
    void set(const char* key, const QString& value) {
        store_.setObject(QString::fromLatin1(key), value);
    }
    const QVAppleEvents& events() const { return events_; }
    std::vector<std::pair<QString, QStringList>> launches() const {
        std::vector<std::pair<QString, QStringList>> launched;
        for (const FakeProcessRunner::Call& call : runner_.calls())
            launched.emplace_back(call.program, call.arguments);
        return launched;
    }
    QString folder() const { return dir_.path(); }

  private:
    QTemporaryDir dir_;
    SettingsStore store_;
    FakeProcessRunner runner_;
    QVAppleEvents events_;
};

TEST(QVAppleEvents, EscapingAndData) {
    using E = QVAppleEvents;
    EXPECT_EQ(E::escapeCharactersInXMLString(QStringLiteral("a\r\nb&amp;\"<>Café")),
              QStringLiteral("a&#13;\nb&amp;\"<>Caf&#233;"));
    // Units up to 159 stay; from 160 on, one reference per unit (two for a surrogate pair).
    EXPECT_EQ(E::escapeCharactersInXMLString(QString(QChar(159)) + QChar(160)),
              QString(QChar(159)) + QStringLiteral("&#160;"));
    EXPECT_EQ(E::escapeCharactersInXMLString(QString::fromUtf8("\xF0\x9F\x8E\xAC")),
              QStringLiteral("&#55356;&#57260;"));

    EXPECT_EQ(E::formatData(QByteArray()), QByteArray());
    EXPECT_EQ(E::formatData(QByteArray("a\0\0", 3)), QByteArray("a\0", 2));
    EXPECT_EQ(E::formatData(QByteArray("abc")), QByteArray("abc"));

    const QString uuid = E::generateUUID();
    EXPECT_TRUE(!QUuid::fromString(uuid).isNull() && uuid == uuid.toUpper()) << uuid.toStdString();
}

TEST(QVAppleEvents, VersionTable) {
    const std::vector<std::tuple<const char*, int, int>> cases = {
        // version, major version, xmeml version
        {"4.5", 4, 1},   {"5.0", 5, 3}, {"5.1", 5, 2},  {"5.1.1", 5, 2}, {"5.1.2", 5, 3},
        {"6.0.6", 6, 4}, {"7", 7, 5},   {"10.1", 1, 5}, {"", 7, 1},
    };
    for (const auto& [version, major, xmeml] : cases) {
        const QString text = QString::fromLatin1(version);
        EXPECT_EQ(QVAppleEvents::majorVersionFromString(text), major) << version;
        EXPECT_EQ(QVAppleEvents::xmemlVersionFromString(text), xmeml) << version;
    }
}

TEST(QVAppleEvents, SendWritesBesideProjectAndHandsOver) {
    Link link;
    const QString project = link.folder() + QStringLiteral("/Show $(x) 'a'.fcp");
    ASSERT_TRUE(QFile(project).open(QIODevice::WriteOnly));
    const QString xml = QStringLiteral("<xmeml><clip><name>Tête\r</name></clip></xmeml>");
    const QString beside = link.folder() + QStringLiteral("/CARD 1 Clips.xml");

    // No editing application set: written only.
    EXPECT_TRUE(link.events().sendXMLToFCP(xml, project, QStringLiteral("CARD 1")));
    EXPECT_EQ(TestFiles::read(beside),
              QByteArray("<xmeml><clip><name>T&#234;te&#13;</name></clip></xmeml>"));
    EXPECT_TRUE(link.launches().empty());

    link.set(QVAppleEvents::editingApplicationKey, QStringLiteral("/bin/true"));
    EXPECT_TRUE(link.events().sendXMLToFCP(xml, project, QStringLiteral("CARD 1")));
    ASSERT_EQ(link.launches().size(), 1u);
    EXPECT_EQ(link.launches()[0].first, QStringLiteral("/bin/true"));
    EXPECT_EQ(link.launches()[0].second, QStringList{beside});

    // A bare name is looked up on PATH; one that is nowhere is logged, the file still written.
    link.set(QVAppleEvents::editingApplicationKey, QStringLiteral("cardsweep-no-such-editor"));
    const LogTail log;
    EXPECT_TRUE(link.events().sendXMLToFCP(xml, project, QStringLiteral("CARD 2")));
    EXPECT_EQ(link.launches().size(), 1u);
    EXPECT_TRUE(QFile::exists(link.folder() + QStringLiteral("/CARD 2 Clips.xml")));
    EXPECT_TRUE(log.text().contains(QStringLiteral("cardsweep-no-such-editor not found")));

    // A project that is not there: the Documents folder.
    EXPECT_TRUE(link.events().sendXMLToFCP(xml, link.folder() + QStringLiteral("/gone.fcp"),
                                           QStringLiteral("CARD 4")));
    EXPECT_TRUE(
        QFile::exists(QVLocalPaths::documentDirectory(true) + QStringLiteral("/CARD 4 Clips.xml")));

    // A place that cannot take the file: false.
    ASSERT_TRUE(QDir().mkpath(link.folder() + QStringLiteral("/CARD 5 Clips.xml")));
    EXPECT_FALSE(link.events().sendXMLToFCP(xml, project, QStringLiteral("CARD 5")));
}

TEST(QVAppleEvents, QueriesAnswerNothing) {
    Link link;
    const QVAppleEvents& events = link.events();
    const QString project = link.folder() + QStringLiteral("/Show.fcp");
    const LogTail log;
    EXPECT_FALSE(events.isFCPRunning() || events.listOfOpenFCPProjects() ||
                 events.getProjectXML(project) ||
                 events.getItemXML(QStringLiteral("item"), project, true) ||
                 events.getTOC(project, true) || events.sequencesInProject(project) ||
                 events.openItem(QStringLiteral("item"), project, true) ||
                 events.saveProject(project) || events.closeProject(project, true));
    const QString text = log.text();
    EXPECT_EQ(text.count(QStringLiteral("Error: Final Cut Pro is not running.")), 3);
    EXPECT_EQ(text.count(QStringLiteral("Unable to communicate with Final Cut Pro.")), 4);
}

TEST(QVAppleEvents, SequencesInDocument) {
    const QByteArray document =
        "<?xml version=\"1.0\"?><!DOCTYPE xmeml><xmeml version=\"5\">"
        "<sequence id=\"s1\"><name>Day 1</name><media/></sequence>"
        "<bin><children><sequence id=\"s2\"><name>Selects</name><name>second</name></sequence>"
        "<sequence id=\"unnamed\"><duration>3</duration></sequence></children></bin>"
        "<clip><name>not a sequence</name></clip></xmeml>";
    const auto sequences = QVAppleEvents::sequencesInDocument(document);
    ASSERT_TRUE(sequences);
    std::vector<std::string> ids;
    for (const QString& text : *sequences) {
        pugi::xml_document one;
        ASSERT_TRUE(one.load_string(text.toUtf8().constData())) << text.toStdString();
        EXPECT_STREQ(one.first_child().name(), "sequence");
        ids.push_back(one.first_child().attribute("id").value());
    }
    EXPECT_EQ(ids, (std::vector<std::string>{"s1", "s2"}));

    EXPECT_EQ(QVAppleEvents::sequencesInDocument("<xmeml/>"), QStringList());
    EXPECT_FALSE(QVAppleEvents::sequencesInDocument(QByteArray()));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(QVAppleEvents::sequencesInDocument("<xmeml><sequence></xmeml>"));
    EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("Error: ", 0), 0u);
}

}  // namespace
