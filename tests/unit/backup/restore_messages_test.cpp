// A restore from the host's side: the request, what the device's messages
// leave in the session, and the bytes each requested file goes out as.
#include "zeb_restore_download.h"
#include "zeb_restore_messages.h"
#include "zeb_scripted_service.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

PlistVariant messageOf(const std::string& body) {
    PlistVariant frame = DecodeXml(Plist(body));
    return frame.At(0) ? *frame.At(0) : PlistVariant();
}

// The request's dictionary as the device decodes it from the binary frame.
PlistVariant requestBody(const std::string& text) {
    SyncMessage* encoded = EncodeMessage(text.c_str());
    EXPECT_NE(encoded, nullptr) << text;
    PlistVariant decoded;
    if (encoded) {
        EXPECT_TRUE(DecodeFrame(encoded->bytes, encoded->length, decoded));
    }
    FreeSyncMessage(encoded);
    const PlistVariant* body = decoded.At(0) ? decoded.At(0)->At(1) : nullptr;
    return body ? *body : PlistVariant();
}

TEST(RestoreRequest, CarriesBothIdsAndThePasswordOnlyWhenEncrypted) {
    BoundProvider();
    const PlistVariant plain = requestBody(backup::restoreRequestText("SRC", "TGT", false, "secret"));
    ASSERT_EQ(plain.tag(), VariantTag::Dictionary);
    EXPECT_EQ(plain.Find("MessageName")->text(), "Restore");
    EXPECT_EQ(plain.Find("SourceIdentifier")->text(), "SRC");
    EXPECT_EQ(plain.Find("TargetIdentifier")->text(), "TGT");
    EXPECT_TRUE(plain.Find("Options")->Find("RestoreDontCopyBackup")->boolean());
    EXPECT_EQ(plain.Find("Options")->Find("Password"), nullptr);

    const PlistVariant encrypted = requestBody(backup::restoreRequestText("S<1>", "T&2", true, "p<&>w"));
    ASSERT_EQ(encrypted.tag(), VariantTag::Dictionary);
    EXPECT_EQ(encrypted.Find("Options")->Find("Password")->text(), "p<&>w");
    EXPECT_EQ(encrypted.Find("SourceIdentifier")->text(), "S<1>");
    EXPECT_EQ(encrypted.Find("TargetIdentifier")->text(), "T&2");
}

TEST(RestoreMessages, DownloadRequestsBecomeRecordsBehindTheSourceId) {
    BackupSession session;
    session.source_id = "SRC";
    ASSERT_TRUE(backup::applyRestoreMessage(
        session, messageOf("<array><string>DLMessageDownloadFiles</string><array><string>SRC/Status.plist</string>"
                           "<string>OTHER/x</string><string>SRC</string><string>SRC/ab/abcdef</string></array>"
                           "<dict/><real>12.5</real><array/><array><string>SRC/late</string></array></array>")));
    EXPECT_EQ(session.kind, kBackupDownloadFiles);
    EXPECT_DOUBLE_EQ(session.progress, 12.5);
    ASSERT_EQ(session.downloads.size(), 2u);  // the empty array ends the walk
    EXPECT_EQ(session.downloads[0].device_path, "SRC/Status.plist");
    EXPECT_EQ(session.downloads[0].local_path, "Status.plist");
    EXPECT_EQ(session.downloads[1].local_path, "ab/abcdef");
}

TEST(RestoreMessages, AnyElementNamesTheMessageAndAZeroErrorCodeIsAVerdict) {
    BackupSession session;
    EXPECT_TRUE(backup::applyRestoreMessage(session, messageOf("<array><integer>1</integer>"
                                                               "<string>DLMessageDisconnect</string></array>")));
    EXPECT_EQ(session.kind, kBackupDisconnect);

    EXPECT_TRUE(backup::applyRestoreMessage(
        session, messageOf("<array><string>DLMessageProcessMessage</string><dict><key>ErrorCode</key>"
                           "<integer>0</integer><key>ErrorDescription</key><string>fine</string></dict></array>")));
    EXPECT_EQ(session.kind, kBackupProcessMessage);
    EXPECT_TRUE(session.has_error);
    EXPECT_EQ(session.error_code, 0);
    EXPECT_EQ(session.error_description, "fine");

    BackupSession progressOnly;
    EXPECT_TRUE(backup::applyRestoreMessage(
        progressOnly, messageOf("<array><string>DLMessageProcessMessage</string><real>40</real><dict><key>ErrorCode"
                                "</key><integer>9</integer></dict></array>")));
    EXPECT_FALSE(progressOnly.has_error);  // the real ends the walk
    EXPECT_DOUBLE_EQ(progressOnly.progress, 40.0);

    // The backup's other messages are not a restore's business.
    EXPECT_FALSE(backup::applyRestoreMessage(
        session, messageOf("<array><string>DLMessageCreateDirectory</string><string>x</string></array>")));
}

class DownloadStream : public ::testing::Test {
protected:
    void SetUp() override {
        BoundProvider();
        root_ = fs::temp_directory_path() / ("zeb-restore-download-" + std::to_string(getpid()));
        fs::remove_all(root_);
        fs::create_directories(root_ / "backup" / "ab");
        base_ = (root_ / "backup" / "").string();
    }
    void TearDown() override { fs::remove_all(root_); }

    void write(const fs::path& file, size_t size) {
        std::ofstream out(file, std::ios::binary);
        for (size_t i = 0; i < size; ++i) out.put(static_cast<char>(i * 7));
    }
    static void expectLength(const std::vector<uint8_t>& bytes, size_t at, uint32_t value) {
        ASSERT_LE(at + 4, bytes.size());
        EXPECT_EQ((uint32_t{bytes[at]} << 24) | (uint32_t{bytes[at + 1]} << 16) | (uint32_t{bytes[at + 2]} << 8) |
                      bytes[at + 3],
                  value)
            << "at " << at;
    }

    ScriptedPeer device_;
    ScriptedService service_{device_};
    fs::path root_;
    std::string base_;
};

TEST_F(DownloadStream, AFileGoesAsItsPathThenPiecesOf32KiBThenTheEnd) {
    write(root_ / "backup" / "ab" / "file", 70000);
    ASSERT_EQ(backup::sendDownloadFile(nullptr, base_, {"SRC/ab/file", "ab/file"}), 0);
    const auto& bytes = device_.sent;
    expectLength(bytes, 0, 11);
    EXPECT_EQ(std::string(bytes.begin() + 4, bytes.begin() + 15), "SRC/ab/file");
    size_t at = 15;
    for (uint32_t piece : {32768u, 32768u, 4464u}) {
        expectLength(bytes, at, piece + 1);
        EXPECT_EQ(bytes[at + 4], 12);
        EXPECT_EQ(bytes[at + 5], 0);  // the file's first byte of this piece: i * 7 at i = 0, 32768, 65536
        at += 5 + piece;
    }
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + static_cast<long>(at), bytes.end()),
              (std::vector<uint8_t>{0, 0, 0, 1, 0}));
}

TEST_F(DownloadStream, AnEmptyFileIsItsPathAndTheEndAndAMissingOneAnErrorBlock) {
    write(root_ / "backup" / "empty", 0);
    ASSERT_EQ(backup::sendDownloadFile(nullptr, base_, {"S/empty", "empty"}), 0);
    EXPECT_EQ(device_.sent, (std::vector<uint8_t>{0, 0, 0, 7, 'S', '/', 'e', 'm', 'p', 't', 'y', 0, 0, 0, 1, 0}));

    device_.sent.clear();
    EXPECT_EQ(backup::sendDownloadFile(nullptr, base_, {"S/gone", "gone"}), -1);
    std::vector<uint8_t> expected{0, 0, 0, 6, 'S', '/', 'g', 'o', 'n', 'e', 0, 0, 0, 26, 6};
    const std::string reason = "No such file or directory";
    expected.insert(expected.end(), reason.begin(), reason.end());
    EXPECT_EQ(device_.sent, expected);
}

TEST_F(DownloadStream, RequestsThatClimbOutOfTheFolderGetAnErrorBlockNotTheFile) {
    write(root_ / "secret", 10);
    for (const char* escape : {"../secret", "ab/../../secret", "/etc/passwd"}) {
        device_.sent.clear();
        EXPECT_EQ(backup::sendDownloadFile(nullptr, base_, {std::string("S/") + escape, escape}), -1) << escape;
        const std::string sent(device_.sent.begin(), device_.sent.end());
        EXPECT_NE(sent.find("Permission denied"), std::string::npos) << escape;
        EXPECT_EQ(sent.find(std::string(1, static_cast<char>(12))), std::string::npos) << "no data block for " << escape;
    }
}

TEST_F(DownloadStream, AFailedFileEndsItsBatchWhichStillClosesWithTheStatus) {
    write(root_ / "backup" / "one", 3);
    write(root_ / "backup" / "three", 3);
    BackupSession session;
    session.downloads = {{"S/one", "one"}, {"S/two", "two"}, {"S/three", "three"}};
    backup::answerDownloads(session, base_);
    EXPECT_TRUE(session.downloads.empty());
    const std::string sent(device_.sent.begin(), device_.sent.end());
    EXPECT_NE(sent.find("S/one"), std::string::npos);
    EXPECT_NE(sent.find("S/two"), std::string::npos);
    EXPECT_EQ(sent.find("S/three"), std::string::npos);
    const size_t batchEnd = sent.find(std::string("directory") + std::string(4, '\0'));
    ASSERT_NE(batchEnd, std::string::npos) << "four zero bytes close the batch";
    PlistVariant status;
    const size_t frame = batchEnd + 9 + 4;
    ASSERT_TRUE(DecodeFrame(device_.sent.data() + frame + 4, device_.sent.size() - frame - 4, status));
    EXPECT_EQ(status.At(0)->At(0)->text(), "DLMessageStatusResponse");
}

}  // namespace
