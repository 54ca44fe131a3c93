// Zip archives: folder round trip, exclusions, unsafe entry names.
#include "zeb_zip.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <random>

namespace fs = std::filesystem;

namespace {

class ZipTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder = fs::temp_directory_path() / ("zeb-zip-" + std::to_string(getpid()));
        fs::create_directories(folder);
    }
    void TearDown() override { fs::remove_all(folder); }

    fs::path write(const fs::path& path, const std::string& content) {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    static std::string read(const fs::path& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    fs::path folder;
};

std::string randomBytes(size_t size) {
    std::mt19937 generator(7);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(generator());
    return bytes;
}

TEST_F(ZipTest, RoundTripLeavesOutExcludedExtensionsWhateverTheirCase) {
    auto source = folder / "source";
    std::string binary = randomBytes(100000);
    write(source / "a.txt", "alpha");
    write(source / "sub" / "deeper" / "b.bin", binary);
    write(source / "noext", "no extension");
    write(source / "c.ZIP", "excluded");
    write(source / "d.exe", "excluded");
    write(source / "e.zipx", "kept: only whole extensions match");

    zeb::ZipFileList list(source);
    auto zip = folder / "out.zip";
    ASSERT_TRUE(zeb::writeZip(list, zip, ";.zip;.exe;"));
    EXPECT_EQ(zeb::listZipEntries(zip),
              (std::vector<std::string>{"a.txt", "e.zipx", "noext", "sub/deeper/b.bin"}));

    auto target = folder / "target";
    ASSERT_TRUE(zeb::ZipReader().extract(zip, target));
    EXPECT_EQ(read(target / "a.txt"), "alpha");
    EXPECT_EQ(read(target / "sub" / "deeper" / "b.bin"), binary);
    EXPECT_EQ(read(target / "noext"), "no extension");
    EXPECT_FALSE(fs::exists(target / "c.ZIP"));

    std::string entry;
    ASSERT_TRUE(zeb::readZipEntry(entry, zip, "sub/deeper/b.bin"));
    EXPECT_EQ(entry, binary);

    // Without a list nothing is excluded; a parent name prefixes every entry.
    ASSERT_TRUE(zeb::writeZip(zeb::ZipFileList(source, "Payload"), zip));
    EXPECT_EQ(zeb::listZipEntries(zip).size(), 6u);
    EXPECT_TRUE(zeb::readZipEntry(entry, zip, "Payload/c.ZIP"));
    EXPECT_EQ(entry, "excluded");
}

TEST_F(ZipTest, EntriesKeepCallerOrderAndStoredFlag) {
    zeb::ZipFileList list;
    list.files.push_back({write(folder / "m", "application/epub+zip"), "mimetype", true});
    list.files.push_back({write(folder / "x.xhtml", "<html/>"), "OEBPS/x.xhtml", false});
    list.files.push_back({write(folder / "own-name.txt", "named by file"), "", false});
    auto zip = folder / "book.epub";
    ASSERT_TRUE(zeb::writeZip(list, zip));
    EXPECT_EQ(zeb::listZipEntries(zip), (std::vector<std::string>{"mimetype", "OEBPS/x.xhtml", "own-name.txt"}));
    // A stored entry's bytes stand uncompressed at the start of the file.
    EXPECT_NE(read(zip).find("mimetypeapplication/epub+zip"), std::string::npos);
}

TEST_F(ZipTest, ExtractionOverwritesExistingFiles) {
    auto zip = folder / "one.zip";
    zeb::ZipFileList list;
    list.files.push_back({write(folder / "short", "new"), "f.txt", false});
    ASSERT_TRUE(zeb::writeZip(list, zip));
    auto target = folder / "target";
    write(target / "f.txt", "a much longer old content");
    ASSERT_TRUE(zeb::ZipReader().extract(zip, target));
    EXPECT_EQ(read(target / "f.txt"), "new");
}

TEST_F(ZipTest, UnsafeEntriesAreRefusedAndTheRestIsExtracted) {
    auto payload = write(folder / "payload", "payload");
    zeb::ZipFileList list;
    for (const char* name : {"../escaped.txt", "ok/../../escaped2.txt", "/tmp/zeb-absolute-entry.txt",
                             "C:/drive.txt", "ok\\..\\..\\escaped3.txt", "link/through.txt", "ok/fine.txt"})
        list.files.push_back({payload, name, false});
    auto zip = folder / "evil.zip";
    ASSERT_TRUE(zeb::writeZip(list, zip));

    auto target = folder / "nest" / "target";
    auto outside = folder / "outside";
    fs::create_directories(target);
    fs::create_directories(outside);
    fs::create_directory_symlink(outside, target / "link");

    EXPECT_FALSE(zeb::ZipReader().extract(zip, target));
    EXPECT_EQ(read(target / "ok" / "fine.txt"), "payload");
    EXPECT_FALSE(fs::exists(folder / "nest" / "escaped.txt"));
    EXPECT_FALSE(fs::exists(folder / "nest" / "escaped2.txt"));
    EXPECT_FALSE(fs::exists(folder / "nest" / "escaped3.txt"));
    EXPECT_FALSE(fs::exists("/tmp/zeb-absolute-entry.txt"));
    EXPECT_FALSE(fs::exists(outside / "through.txt"));

    EXPECT_TRUE(zeb::isUnsafeEntryName(".."));
    EXPECT_TRUE(zeb::isUnsafeEntryName(""));
    EXPECT_FALSE(zeb::isUnsafeEntryName("a/..b/c..d"));
}

TEST_F(ZipTest, MissingEntriesAndBadArchivesGiveEmptyResults) {
    zeb::ZipFileList list;
    list.files.push_back({write(folder / "a", "content"), "a", false});
    auto zip = folder / "a.zip";
    ASSERT_TRUE(zeb::writeZip(list, zip));
    std::string out = "stale";
    EXPECT_FALSE(zeb::readZipEntry(out, zip, "missing"));
    EXPECT_EQ(out, "");
    EXPECT_FALSE(zeb::readZipEntry(out, zip, "A"));  // names are exact
    out = "stale";
    EXPECT_FALSE(zeb::readZipEntry(out, zip, "a", 3));  // larger than allowed
    EXPECT_EQ(out, "");

    auto notZip = write(folder / "not.zip", "this is not an archive");
    EXPECT_FALSE(zeb::readZipEntry(out, notZip, "a"));
    EXPECT_FALSE(zeb::ZipReader().extract(notZip, folder / "t"));
    EXPECT_FALSE(zeb::ZipReader().extract(folder / "absent.zip", folder / "t"));
    EXPECT_TRUE(zeb::listZipEntries(notZip).empty());

    // A damaged entry is refused, not handed out half read.
    std::string bytes = read(zip);
    auto field = [&](size_t at) { return size_t(uint8_t(bytes[at])) | size_t(uint8_t(bytes[at + 1])) << 8; };
    size_t at = 30 + field(26) + field(28);  // the data follow the local header, name and extra field
    bytes[at] = static_cast<char>(bytes[at] ^ 0x55);
    write(zip, bytes);
    EXPECT_FALSE(zeb::readZipEntry(out, zip, "a"));
    EXPECT_EQ(out, "");

    EXPECT_FALSE(zeb::writeZip(list, folder / "no" / "such" / "folder.zip"));
}

}  // namespace
