// The clip list: the timing tool's output, clip names and path URLs, the movies found in a
// destination, and the xmeml document with and without usable timing.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "ClipList.h"
#include "PosixProcessRunner.h"
#include "QVAppleEvents.h"
#include "SettingsKeys.h"
#include "TestFiles.h"
#include "TestMovies.h"

namespace {

const QString kHeader5 = QStringLiteral(
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE xmeml><xmeml version=\"5\">");

class ClipListTest : public testing::Test {
  protected:
    QTemporaryDir dir_;
    SettingsStore settings_{dir_.filePath("settings.plist")};
    PosixProcessRunner processes_;
};

TEST(ClipList, ToolOutputNamesAndPathURLs) {
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
    EXPECT_EQ(ClipList::percentEscapedPath("/a/Café 100%/\"x\"<>[]{}|^`\\.mov"),
              "/a/Caf%C3%A9%20100%25/%22x%22%3C%3E%5B%5D%7B%7D%7C%5E%60%5C.mov");
    EXPECT_EQ(ClipList::percentEscapedPath("/a/b#1&c=d;e,f+g@h~i.mov"), "/a/b#1&c=d;e,f+g@h~i.mov");
    EXPECT_EQ(ClipList::percentEscapedPath("/a\nb"), "/a%0Ab");

    EXPECT_EQ(ClipList::clipName("/x/take.2.MOV") + "," + ClipList::clipName("/x.d/noext") + "," +
                  ClipList::clipName("/x/.mov"),
              "take.2,noext,.mov");
}

TEST(ClipList, MoviesInDestinationFolder) {
    QTemporaryDir dir;
    const QString root = dir.path();
    for (const char* name :
         {"CLIP.MOV", "a.qt", "b.Mp4", "c.m4v", ".hidden.mov", "sub/deeper/e.mov", "d.txt", "noext",
          "mov", "sub/g.mxf", "empty/.keep"})
        TestFiles::write(root + u'/' + QString::fromLatin1(name));
    QDir().mkpath(root + "/folder.mov");
    TestFiles::write(root + "/outside/linked.mov");
    ASSERT_TRUE(QFile::link(root + "/outside", root + "/link"));

    QStringList found = ClipList::qtMoviesInFolder(root);
    found.sort();
    QStringList expected;
    for (const char* name : {".hidden.mov", "CLIP.MOV", "a.qt", "b.Mp4", "c.m4v",
                             "outside/linked.mov", "sub/deeper/e.mov"})
        expected << root + u'/' + QString::fromLatin1(name);
    EXPECT_EQ(found, expected);
    EXPECT_TRUE(ClipList::qtMoviesInFolder(root + "/missing").isEmpty());
}

// One clip as the document holds it: its name, rate and duration, and its file's path URL.
QString clipXml(const QString& path, const QString& ntsc, int duration) {
    const QString name = ClipList::clipName(path);
    const QString rate = "<ntsc>" + ntsc + "</ntsc><timebase>30</timebase>";
    const QString length = "<duration>" + QString::number(duration) + "</duration>";
    return "<clip id =\"" + name + "\"><name>" + name + "</name>" + length + "<rate>" + rate +
           "</rate><file id=\"" + name + "1\"><name>" + name + "1</name><pathurl>file://localhost" +
           ClipList::percentEscapedPath(path) + "</pathurl><rate><timebase>30</timebase><ntsc>" +
           ntsc + "</ntsc></rate>" + length + "</file></clip>";
}

// A file that is no movie, or a tool that is not there: 30 / FALSE and no frames; a real
// movie's timing and frame count reach its clip.
TEST_F(ClipListTest, DocumentDescribesEachClipWithOrWithoutUsableTiming) {
    // The tool is found beside the running program, as the application ships it.
    const ClipList clips(settings_, processes_);
    EXPECT_TRUE(QFileInfo(clips.toolPath()).isExecutable()) << clips.toolPath().toStdString();
    EXPECT_EQ(clips.xmlForClips({}), kHeader5 + "</xmeml>");
    settings_.set(SettingsKey::editingApplicationVersion, "5.1.1");
    EXPECT_TRUE(clips.xmlForClips({}).contains("<xmeml version=\"2\">"));
    settings_.remove(SettingsKey::editingApplicationVersion);

    const QString path = TestFiles::write(dir_.filePath("My Clips/A001C002.mov"), "not a movie");
    ASSERT_TRUE(ClipList::percentEscapedPath(path).endsWith("/My%20Clips/A001C002.mov"));
    const QString expected = kHeader5 + clipXml(path, "FALSE", 0) + "</xmeml>";
    EXPECT_EQ(clips.xmlForClips({path}), expected);
    EXPECT_EQ(ClipList(settings_, processes_, dir_.filePath("QTTimecodeTool")).xmlForClips({path}),
              expected);

    const auto movies = TestMovies::create();
    if (!movies)
        GTEST_SKIP() << "ffmpeg/ffprobe not installed; cannot make test movies";
    const QString movie = movies->file("A001C002.mov");
    ASSERT_TRUE(movies->make(movie, "30000/1001", "1", "01:00:00;00"));
    EXPECT_EQ(clips.xmlForClips({movie, movie}),
              kHeader5 + clipXml(movie, "TRUE", 30) + clipXml(movie, "TRUE", 30) + "</xmeml>");
}

}  // namespace
