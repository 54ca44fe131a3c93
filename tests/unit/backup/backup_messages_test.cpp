// The fixed texts of the backup conversation and how the host answers the
// device's messages, against a scripted device.
#include "zeb_backup_conversation.h"
#include "zeb_backup_templates.h"
#include "zeb_scripted_service.h"
#include "zeb_sync_frames.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

TEST(BackupTemplates, EachKeepsItsLengthAndEncodes) {
    BoundProvider();
    const std::pair<const char*, size_t> templates[] = {
        {backup::kStartOptions, 223}, {backup::kVersionsOk, 285},     {backup::kHello, 391},
        {backup::kStatusOkDict, 309}, {backup::kStatusOkDictB, 308}, {backup::kStatusOkDictC, 310},
        {backup::kStatusOkString, 339},
    };
    for (const auto& [text, length] : templates) {
        EXPECT_EQ(strlen(text), length) << text;
        SyncMessage* message = EncodeMessage(text);
        EXPECT_NE(message, nullptr) << text;
        FreeSyncMessage(message);
    }
    // Ids are escaped where they are pasted in.
    const std::string request = backup::fillText(backup::kBackupRequest, "a<b&c");
    PlistVariant decoded = DecodeXml(request);
    EXPECT_EQ(decoded.At(0)->At(1)->Find("TargetIdentifier")->text(), "a<b&c");
}

class BackupLoop : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = fs::temp_directory_path() / ("zeb-backup-loop-" + std::to_string(getpid()));
        fs::remove_all(root_);
        fs::create_directories(root_);
        session_.device_id = "UDID";
        session_.folder_suffix = "-20240101000000";
        session_.root_dir = root_ / "";
    }
    void TearDown() override { fs::remove_all(root_); }

    void queue(const std::string& body) { device_.queueFrame(Plist(body)); }
    TaskResult run() {
        backup::BackupLoopRules rules;
        rules.progress = [&](int64_t hundredths) { progress_.push_back(hundredths); };
        bool clean = false;
        TaskResult result = backup::runBackupLoop(session_, rules, clean);
        clean_ = clean;
        return result;
    }
    // The first element of every frame the host sent, with raw bytes skipped.
    std::vector<std::string> answers() const {
        std::vector<std::string> names;
        const auto& bytes = device_.sent;
        for (size_t at = 0; at + 4 <= bytes.size();) {
            const uint32_t length = (uint32_t{bytes[at]} << 24) | (uint32_t{bytes[at + 1]} << 16) |
                                    (uint32_t{bytes[at + 2]} << 8) | bytes[at + 3];
            PlistVariant frame;
            if (length > 8 && at + 4 + length <= bytes.size() && DecodeFrame(bytes.data() + at + 4, length, frame) &&
                frame.At(0) && frame.At(0)->At(0)) {
                names.push_back(frame.At(0)->At(0)->text() + ":" + std::to_string(frame.At(0)->At(1)->int64()));
                at += 4 + length;
            } else {
                ++at;  // raw refusal bytes
            }
        }
        return names;
    }

    ScriptedPeer device_;
    ScriptedService service_{device_};
    BackupSession session_;
    fs::path root_;
    std::vector<int64_t> progress_;
    bool clean_ = false;
};

TEST_F(BackupLoop, AnswersEachKindAndReportsProgressOnlyWhenItGrows) {
    queue("<array><string>DLMessageCreateDirectory</string><string>UDID/ab</string><real>1.5</real></array>");
    queue("<array><string>DLContentsOfDirectory</string><string>UDID</string><real>1.0</real></array>");
    queue("<array><string>DLMessageRemoveFiles</string><array/><real>50.0</real></array>");  // no answer
    queue("<array><string>DLMessageCopyItem</string><string>a</string><string>b</string></array>");
    queue("<array><string>Unknown</string><real>99.0</real></array>");  // dropped unread
    queue("<array><string>DLMessageDownloadFiles</string><array><string>UDID/x</string><string>UDID/y</string>"
          "</array><real>0.004</real></array>");
    queue("<array><string>DLMessageProcessMessage</string><dict><key>ErrorCode</key><integer>0</integer></dict>"
          "<real>100.0</real></array>");
    queue("<array><string>DLMessageDisconnect</string><string>bye</string></array>");
    const TaskResult result = run();
    EXPECT_EQ(result.code, 0);
    EXPECT_FALSE(clean_);
    EXPECT_TRUE(fs::is_directory(root_ / "UDID-20240101000000" / "ab"));
    // 1.5 %, then nothing lower, then the end.
    EXPECT_EQ(progress_, (std::vector<int64_t>{150, 10000}));
    EXPECT_EQ(answers(), (std::vector<std::string>{"DLMessageStatusResponse:0", "DLMessageStatusResponse:0",
                                                    "DLMessageStatusResponse:-13", "DLMessageStatusResponse:0"}));
}

TEST_F(BackupLoop, ADeviceErrorShortOfTheEndIsTheResultAndTheFolderGoes) {
    queue("<array><string>DLMessageProcessMessage</string><dict><key>ErrorCode</key><integer>105</integer>"
          "<key>ErrorDescription</key><string>No space</string></dict><real>30.0</real></array>");
    const TaskResult result = run();
    EXPECT_EQ(result.code, 105);
    EXPECT_EQ(result.text, "No space");
    EXPECT_TRUE(clean_);
}

TEST_F(BackupLoop, AGoodbyeShortOfTheEndIs45AndABrokenLinkIs2) {
    queue("<array><string>DLMessageCreateDirectory</string><string>UDID</string><real>42.0</real></array>");
    queue("<array><string>DLMessageDisconnect</string></array>");
    EXPECT_EQ(run().code, 45);
    EXPECT_TRUE(clean_);

    device_ = ScriptedPeer();
    session_.progress = 0;
    device_.queueLength(kSyncMaxFrame + 1);
    const TaskResult broken = run();
    EXPECT_EQ(broken.code, 2);
    EXPECT_EQ(broken.text, "Task error.");

    // An answer that cannot go out is a link that broke, not a backup done.
    device_ = ScriptedPeer();
    session_.progress = 0;
    device_.failBodySend = true;
    queue("<array><string>DLMessageCreateDirectory</string><string>UDID</string><real>42.0</real></array>");
    const TaskResult unsent = run();
    EXPECT_EQ(unsent.code, 2);
    EXPECT_TRUE(clean_);

    // Nor may a free-space question the folder cannot answer leave the
    // device waiting: the backup ends there.
    device_ = ScriptedPeer();
    session_.progress = 0;
    session_.root_dir = root_ / "missing" / "";
    queue("<array><string>DLMessageGetFreeDiskSpace</string><string>x</string></array>");
    queue("<array><string>DLMessageProcessMessage</string><dict/><real>100.0</real></array>");
    queue("<array><string>DLMessageDisconnect</string></array>");
    EXPECT_EQ(run().code, 2);
}

TEST_F(BackupLoop, MovesAndRemovalsStayInsideTheBackupFolder) {
    const fs::path folder = root_ / "UDID-20240101000000";
    fs::create_directories(folder);
    std::ofstream(folder / "a") << "a";
    std::ofstream(folder / "b") << "b";
    std::ofstream(root_ / "outside") << "keep";
    queue("<array><string>DLMessageMoveItems</string><dict><key>UDID/a</key><string>UDID/b</string>"
          "<key>../outside</key><string>UDID/c</string></dict><real>10.0</real></array>");
    queue("<array><string>DLMessageRemoveItems</string><array><string>../outside</string><string>/etc/hosts</string>"
          "<string>UDID/b</string></array><real>20.0</real></array>");
    queue("<array><string>DLMessageDisconnect</string></array>");
    run();
    EXPECT_TRUE(fs::exists(folder / "a"));  // the target existed: nothing moved
    EXPECT_FALSE(fs::exists(folder / "b"));
    EXPECT_FALSE(fs::exists(folder / "c"));
    EXPECT_TRUE(fs::exists(root_ / "outside"));
}

TEST(BackupRefusal, BytesAreTheOnesTheDeviceExpects) {
    ScriptedPeer device;
    ScriptedService service(device);
    backup::sendDownloadRefusal(nullptr, "abc");
    std::vector<uint8_t> expected{0, 0, 0, 3, 'a', 'b', 'c', 0, 0, 0, 26, 6};
    const std::string text = "No such file or directory";
    expected.insert(expected.end(), text.begin(), text.end());
    expected.insert(expected.end(), {0, 0, 0, 0});
    EXPECT_EQ(device.sent, expected);
}

}  // namespace
