// A transfer keeps the settings it was admitted with, whatever changes while it runs.
#include <gtest/gtest.h>

#include <QFileInfo>
#include <atomic>

#include "OffloadFixture.h"
#include "Preferences.h"
#include "TestFiles.h"

namespace {

// Calls `change` once, at the first read of a file of the card: the transfer is under way.
class ChangingLayer : public FaultyFileLayer {
  public:
    std::function<void()> change;
    ssize_t read(int fd, void* buffer, size_t size, off_t offset) override {
        if (change && !changed_.exchange(true))
            change();
        return FaultyFileLayer::read(fd, buffer, size, offset);
    }

  private:
    std::atomic<bool> changed_{false};
};

}  // namespace

class TransferOptionsTest : public OffloadFixture {};

TEST_F(TransferOptionsTest, SettingsChangedMidTransferCountFromTheNextOne) {
    ChangingLayer layer;
    layer.change = [this] {
        settings_.setObject(SettingsKey::checksumFormat, 1);  // SHA-1
        settings_.setObject(SettingsKey::verifyFileChecksums, 0);
        settings_.setObject(SettingsKey::writeAscMhl, 0);
        settings_.setObject(SettingsKey::writeDoneFlag, 0);
        settings_.setObject(SettingsKey::metadata, PropertyList::Array{});
    };
    makeController(layer);
    const auto volume = card("A001");
    ASSERT_TRUE(offload({volume}));
    drainWorkers();
    ASSERT_EQ(volume->status(), QVVolume::Done);
    for (const QString& destination : volume->destinations()) {
        EXPECT_TRUE(QFileInfo::exists(destination + "/checksums.md5")) << destination.toStdString();
        EXPECT_FALSE(QFileInfo::exists(destination + "/checksums.sha1"))
            << destination.toStdString();
        EXPECT_TRUE(QFileInfo::exists(destination + "/ascmhl")) << destination.toStdString();
        EXPECT_TRUE(TestFiles::read(destination + "/Transfer Report.html")
                        .contains("read back from the media"))
            << destination.toStdString();
    }
    EXPECT_TRUE(QFileInfo::exists(volume->path() + "/.cardsweep"));
    EXPECT_TRUE(volume->transferChecks().completeAndVerified);
}
