// The raw upload stream on crafted input: every file lands inside the
// backup folder or nowhere, and the stream stays in step.
#include "zeb_backup_upload.h"
#include "zeb_scripted_service.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace {

class UploadStream : public ::testing::Test {
protected:
    void SetUp() override {
        base_ = fs::temp_directory_path() / ("zeb-upload-" + std::to_string(getpid()));
        fs::remove_all(base_);
        fs::create_directories(base_ / "root");
        session_.device_id = "UDID";
        session_.folder_suffix = "-1";
        session_.root_dir = base_ / "root" / "";
        device_.largestRead = 5;  // every length and block arrives in pieces
    }
    void TearDown() override { fs::remove_all(base_); }

    void text(const std::string& value) {
        device_.queueLength(static_cast<uint32_t>(value.size()));
        device_.incoming.insert(device_.incoming.end(), value.begin(), value.end());
    }
    void block(uint8_t code, const std::string& data) {
        device_.queueLength(static_cast<uint32_t>(data.size() + 1));
        device_.incoming.push_back(code);
        device_.incoming.insert(device_.incoming.end(), data.begin(), data.end());
    }
    void file(const std::string& path, const std::vector<std::string>& pieces) {
        text("iPhone");
        text(path);
        for (const auto& piece : pieces) block(12, piece);
        block(0, "");
    }
    std::string read(const fs::path& path) const {
        std::ifstream in(path, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }

    ScriptedPeer device_;
    ScriptedService service_{device_};
    BackupSession session_;
    fs::path base_;
};

TEST_F(UploadStream, FilesLandBehindTheSuffixedIdAndEscapesAreReadThrough) {
    file("UDID/ab/abcdef", {"hello ", "world"});
    file("../escape", {"must not land"});
    file("/tmp/absolute", {"nor this"});
    file("Manifest.plist", {"no id in the path"});
    file("UDID/empty", {""});  // a data block with no data
    text("iPhone");
    text("UDID/with-error");
    block(11, "disk full");
    text("iPhone");
    text("UDID/odd-code");
    block(7, "ignored bytes");
    file("UDID/last", {"tail"});
    device_.queueLength(0);  // the device name of nothing: the upload is over
    EXPECT_EQ(backup::receiveUploadedFiles(session_), 0);

    const fs::path folder = base_ / "root" / "UDID-1";
    EXPECT_EQ(read(folder / "ab" / "abcdef"), "hello world");
    EXPECT_EQ(read(base_ / "root" / "Manifest.plist"), "no id in the path");
    EXPECT_TRUE(fs::exists(folder / "empty"));
    EXPECT_EQ(read(folder / "last"), "tail");
    EXPECT_FALSE(fs::exists(base_ / "escape"));
    EXPECT_FALSE(fs::exists("/tmp/absolute"));
    EXPECT_EQ(device_.readPosition, device_.incoming.size());
}

TEST_F(UploadStream, AStreamThatBreaksInsideAFileLeavesNoPartOfIt) {
    text("iPhone");
    text("UDID/partial");
    device_.queueLength(1001);
    device_.incoming.push_back(12);
    device_.incoming.insert(device_.incoming.end(), 300, 'x');  // and then the link ends
    EXPECT_EQ(backup::receiveUploadedFiles(session_), kCodeDeviceDisconnected);
    EXPECT_FALSE(fs::exists(base_ / "root" / "UDID-1" / "partial"));
}

TEST_F(UploadStream, OverlongNamesEndTheUpload) {
    text("iPhone");
    text(std::string(5000, 'n'));
    EXPECT_EQ(backup::receiveUploadedFiles(session_), 0);
}

TEST_F(UploadStream, TheSnapshotKeepsOnlyTheFilesItWants) {
    file("UDID/3d/3d0d7e5fb2ce288813306e4d4636395e047a3d28", {"messages"});
    file("UDID/aa/aaaa", {"other"});
    device_.queueLength(0);
    std::string written;
    auto [code, found] =
        backup::receiveSelectedFiles(session_, {"3d0d7e5fb2ce288813306e4d4636395e047a3d28"}, &written);
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(found);
    EXPECT_EQ(read(written), "messages");
    EXPECT_FALSE(fs::exists(base_ / "root" / "UDID-1" / "aa" / "aaaa"));
}

}  // namespace
