// QuickTime metadata written in place by the QTMetaTool helper: on movies ffmpeg makes with the
// movie header at the end and at the start, with and without metadata already there, twice in
// a row; the media payload never changes; damaged and foreign files are left exactly as they were.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QJsonObject>
#include <QTemporaryDir>

#include "PosixProcessRunner.h"
#include "QTMetadataWriter.h"
#include "TestFiles.h"
#include "TestMovies.h"

namespace {

class QTMetaToolTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!movies_)
            GTEST_SKIP() << "ffmpeg and ffprobe are needed to make and read test movies";
    }
    QString path(const QString& name) const { return dir_.filePath(name); }
    bool ffmpeg(const QStringList& arguments) {
        return processes_.run("ffmpeg", QStringList{"-v", "error", "-y"} + arguments, 120)
                   .exitCode == 0;
    }
    QByteArray payload(const QString& movie) { return movies_->payloadDigest(movie); }
    QJsonObject tags(const QString& movie) { return movies_->tags(movie); }
    int tool(const QString& movie, const QString& text) {
        return processes_
            .run(QCoreApplication::applicationDirPath() + "/QTMetaTool", {movie, text}, 10)
            .exitCode;
    }

    QTemporaryDir dir_;
    PosixProcessRunner processes_;
    const std::optional<TestMovies> movies_ = TestMovies::create();
};

}  // namespace

TEST_F(QTMetaToolTest, WritesTagsInPlaceWhereverTheHeaderIsAndLeavesTheMediaAlone) {
    ASSERT_TRUE(
        ffmpeg({"-f", "lavfi", "-i", "testsrc=duration=1:size=160x120:rate=25", "-f", "lavfi", "-i",
                "sine=duration=1", "-c:v", "mpeg4", "-c:a", "aac", "-shortest", path("end.mov")}));
    ASSERT_TRUE(
        ffmpeg({"-i", path("end.mov"), "-c", "copy", "-movflags", "faststart", path("start.mov")}));
    ASSERT_TRUE(
        ffmpeg({"-i", path("end.mov"), "-c", "copy", "-movflags", "use_metadata_tags", "-metadata",
                "com.camera.reel=old", "-metadata", "com.camera.kept=kept", path("tagged.mov")}));
    for (const QString name : {"end.mov", "start.mov", "tagged.mov"}) {
        SCOPED_TRACE(name.toStdString());
        const QString movie = path(name);
        const QByteArray media = payload(movie);
        ASSERT_FALSE(media.isEmpty());
        ASSERT_EQ(
            tool(movie,
                 "\"com.camera.reel\"=\"A001\";\"com.quorvant.note\"=\"Café; \\\"day 1\\\"\";"),
            0);
        // Twice in a row: the header that grew once moves again, the media still doesn't.
        ASSERT_EQ(tool(movie, "\"com.camera.reel\"=\"A002\";"), 0);
        const QJsonObject written = tags(movie);
        EXPECT_EQ(written["com.camera.reel"].toString(), "A002");
        EXPECT_EQ(written["com.quorvant.note"].toString(), "Café; \\\"day 1\\\"");
        if (name == "tagged.mov") {
            EXPECT_EQ(written["com.camera.kept"].toString(), "kept") << "other keys are kept";
        }
        EXPECT_EQ(payload(movie), media);
        const QTMetadataWriter::Pairs pairs = QTMetadataWriter::read(movie);
        EXPECT_EQ(std::count_if(pairs.begin(), pairs.end(),
                                [](const auto& pair) { return pair.first == "com.camera.reel"; }),
                  1)
            << "a key is replaced, never repeated";
    }
}

TEST_F(QTMetaToolTest, DamagedOrForeignFilesAndBadTextLeaveTheFileAsItWas) {
    ASSERT_TRUE(ffmpeg({"-f", "lavfi", "-i", "testsrc=duration=1:size=160x120:rate=25", "-c:v",
                        "mpeg4", path("whole.mov")}));
    const QByteArray whole = TestFiles::read(path("whole.mov"));
    TestFiles::write(path("truncated.mov"), whole.left(whole.size() - 100));
    TestFiles::write(path("notes.mov"), "not a movie at all\n");
    for (const QString name : {"truncated.mov", "notes.mov"}) {
        const QByteArray before = TestFiles::read(path(name));
        EXPECT_EQ(tool(path(name), "\"a\"=\"b\";"), 1) << name.toStdString();
        EXPECT_EQ(TestFiles::read(path(name)), before) << name.toStdString();
    }
    EXPECT_EQ(tool(path("whole.mov"), "a=b"), 2) << "not pairs";
    EXPECT_EQ(TestFiles::read(path("whole.mov")), whole);
    EXPECT_EQ(tool(path("whole.mov"), ""), 0) << "nothing to write";
    EXPECT_EQ(TestFiles::read(path("whole.mov")), whole);
}
