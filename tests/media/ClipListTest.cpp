// The clip list: the timing tool's output, clip names and path URLs, the movies found in a
// destination, and the xmeml document with and without usable timing.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <pugixml.hpp>

#include "ClipList.h"
#include "PosixProcessRunner.h"
#include "QVAppleEvents.h"
#include "TestFiles.h"
#include "TestMovies.h"

namespace {

const QString kHeader5 = QStringLiteral(
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE xmeml><xmeml version=\"5\">");

class Settings {
  public:
    Settings() : store_(dir_.filePath(QStringLiteral("settings.plist"))) {}
    SettingsStore& store() { return store_; }

  private:
    QTemporaryDir dir_;
    SettingsStore store_;
};

TEST(ClipList, ToolOutputParsing) {
    // output, timebase, ntsc, drop frame
    const std::vector<std::tuple<const char*, int, bool, bool>> cases = {
        {"30 1 1\n", 30, true, true}, {"25 0 0\n", 25, false, false},
        {"60 yes T", 60, true, true}, {"30 01 no", 30, true, false},
        {"", 30, false, false},       {"30  1 1", 30, false, false},  // four parts
        {"x y z", 0, true, false},                                    // "y" reads as yes
    };
    for (const auto& [output, timebase, ntsc, dropFrame] : cases) {
        const QTMovie::Timing timing = ClipList::timingFromToolOutput(QString::fromLatin1(output));
        EXPECT_EQ(std::tie(timing.timebase, timing.ntsc, timing.dropFrame),
                  std::tie(timebase, ntsc, dropFrame))
            << output;
    }
}

TEST(ClipList, NamesAndPathURLs) {
    EXPECT_EQ(ClipList::percentEscapedPath(QStringLiteral("/a/Café 100%/\"x\"<>[]{}|^`\\.mov")),
              QStringLiteral("/a/Caf%C3%A9%20100%25/%22x%22%3C%3E%5B%5D%7B%7D%7C%5E%60%5C.mov"));
    EXPECT_EQ(ClipList::percentEscapedPath(QStringLiteral("/a/b#1&c=d;e,f+g@h~i.mov")),
              QStringLiteral("/a/b#1&c=d;e,f+g@h~i.mov"));
    EXPECT_EQ(ClipList::percentEscapedPath(QStringLiteral("/a\nb")), QStringLiteral("/a%0Ab"));

    EXPECT_EQ(ClipList::clipName(QStringLiteral("/x/take.2.MOV")), QStringLiteral("take.2"));
    EXPECT_EQ(ClipList::clipName(QStringLiteral("/x.d/noext")), QStringLiteral("noext"));
    EXPECT_EQ(ClipList::clipName(QStringLiteral("/x/.mov")), QStringLiteral(".mov"));
}

TEST(ClipList, MoviesInDestinationFolder) {
    QTemporaryDir dir;
    const QString root = dir.path();
    for (const char* name :
         {"CLIP.MOV", "a.qt", "b.Mp4", "c.m4v", ".hidden.mov", "sub/deeper/e.mov", "d.txt", "noext",
          "mov", "sub/g.mxf", "empty/.keep"})
        TestFiles::write(root + u'/' + QString::fromLatin1(name));
    QDir().mkpath(root + QStringLiteral("/folder.mov"));
    TestFiles::write(root + QStringLiteral("/outside/linked.mov"));
    ASSERT_TRUE(QFile::link(root + QStringLiteral("/outside"), root + QStringLiteral("/link")));

    QStringList found = ClipList::qtMoviesInFolder(root);
    found.sort();
    QStringList expected;
    for (const char* name : {".hidden.mov", "CLIP.MOV", "a.qt", "b.Mp4", "c.m4v",
                             "outside/linked.mov", "sub/deeper/e.mov"})
        expected << root + u'/' + QString::fromLatin1(name);
    EXPECT_EQ(found, expected);
    EXPECT_TRUE(ClipList::qtMoviesInFolder(root + QStringLiteral("/missing")).isEmpty());
}

TEST(ClipList, DocumentWithoutUsableTiming) {
    Settings settings;
    // The tool is found beside the running program, as the application ships it.
    PosixProcessRunner processes;
    const ClipList clips(settings.store(), processes);
    EXPECT_TRUE(QFileInfo(clips.toolPath()).isExecutable()) << clips.toolPath().toStdString();
    EXPECT_EQ(clips.xmlForClips({}), kHeader5 + QStringLiteral("</xmeml>"));

    const QString versionKey = QString::fromLatin1(QVAppleEvents::editingApplicationVersionKey);
    settings.store().setObject(versionKey, QStringLiteral("5.1.1"));
    EXPECT_TRUE(clips.xmlForClips({}).contains(QStringLiteral("<xmeml version=\"2\">")));
    settings.store().remove(versionKey);

    // A file that is no movie, or a tool that is not there: 30 / FALSE and no frames.
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("My Clips/A001C002.mov"));
    TestFiles::write(path, "not a movie");
    const QString url = ClipList::percentEscapedPath(path);
    ASSERT_TRUE(url.endsWith(QStringLiteral("/My%20Clips/A001C002.mov")));
    const QString expected =
        kHeader5 +
        QStringLiteral(
            "<clip id =\"A001C002\"><name>A001C002</name><duration>0</duration><rate>"
            "<ntsc>FALSE</ntsc><timebase>30</timebase></rate><file id=\"A001C0021\">"
            "<name>A001C0021</name><pathurl>file://localhost") +
        url +
        QStringLiteral(
            "</pathurl><rate><timebase>30</timebase><ntsc>FALSE</ntsc></rate>"
            "<duration>0</duration></file></clip></xmeml>");
    EXPECT_EQ(clips.xmlForClips({path}), expected);
    const ClipList noTool(settings.store(), processes,
                          dir.filePath(QStringLiteral("QTTimecodeTool")));
    EXPECT_EQ(noTool.xmlForClips({path}), expected);
}

TEST(ClipList, DocumentDescribesEachMovie) {
    const auto movies = TestMovies::create();
    if (!movies)
        GTEST_SKIP() << "ffmpeg/ffprobe not installed; cannot make test movies";
    // name, rate, seconds, timecode, frames
    const std::vector<std::tuple<const char*, const char*, const char*, const char*, int>>
        expected = {
            {"Day 1/A001C002.mov", "30000/1001", "1", "01:00:00;00", 30},
            {"Day 2/B001C001.mp4", "25", "2", "", 50},
        };
    QStringList paths;
    for (const auto& [name, rate, seconds, timecode, frames] : expected) {
        paths << movies->file(QString::fromLatin1(name));
        QDir().mkpath(QFileInfo(paths.last()).absolutePath());
        ASSERT_TRUE(movies->make(paths.last(), QString::fromLatin1(rate),
                                 QString::fromLatin1(seconds), QString::fromLatin1(timecode)));
    }
    Settings settings;
    PosixProcessRunner processes;
    const QByteArray xml = ClipList(settings.store(), processes).xmlForClips(paths).toUtf8();

    pugi::xml_document document;
    ASSERT_TRUE(document.load_buffer(xml.constData(), static_cast<size_t>(xml.size())))
        << xml.constData();
    pugi::xml_node clip = document.child("xmeml").first_child();
    for (qsizetype i = 0; i < paths.size(); ++i, clip = clip.next_sibling()) {
        const int frames = std::get<4>(expected[size_t(i)]);
        ASSERT_TRUE(clip) << i;
        EXPECT_EQ(clip.attribute("id").value(), ClipList::clipName(paths[i]).toStdString());
        EXPECT_EQ(clip.child("duration").text().as_int(), frames);
        const pugi::xml_node file = clip.child("file");
        EXPECT_EQ(file.child("duration").text().as_int(), frames);
        EXPECT_EQ(QString::fromUtf8(file.child("pathurl").text().get()),
                  QStringLiteral("file://localhost") + ClipList::percentEscapedPath(paths[i]));
    }
    EXPECT_FALSE(clip);  // no more clips than movies
}

}  // namespace
