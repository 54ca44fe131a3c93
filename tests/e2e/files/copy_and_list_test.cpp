// Commands 701 (copy device items to the computer) and 704 (list a folder).
#include "file_fixture.h"
#include "zeb_zip.h"

#include <algorithm>
#include <set>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

TEST_F(FileCommands, CopyBringsFilesFoldersAndBooksWithCleanUniqueNames) {
    putOnDevice("/Downloads/note.txt", "hello");
    putOnDevice("/Downloads/tree/a.bin", patternBytes(5000));
    putOnDevice("/Downloads/tree/sub/b.txt", "deep");
    for (const char* book : {"/Books/story.epub", "/Books/LOUD.EPUB"}) {
        putOnDevice(std::string(book) + "/mimetype", "application/epub+zip");
        putOnDevice(std::string(book) + "/OEBPS/chapter1.xhtml", "<html/>");
    }
    // A name already taken locally: the copy gets "(1)".
    writeLocal(local() / "taken.txt", "mine");

    std::vector<zparent::CopyRequest> items = {
        {"note", "/Downloads/note.txt", local().string()},
        {"tree", "/Downloads/tree", local().string()},
        {"story", "/Books/story.epub", local().string()},
        {"loud", "/Books/LOUD.EPUB", local().string()},
        {"a>b", "/Downloads/note.txt", local().string()},
        {"../x/y:z", "/Downloads/note.txt", local().string()},
        {"taken", "/Downloads/note.txt", local().string()},
        {"missing", "/Downloads/none.txt", local().string()},
    };
    auto result = zparent::copyItems(worker->link, ++nextTask, udid, items, 30s);
    ASSERT_EQ(result.code, 0);
    std::vector<std::string> expected = {
        (local() / "note.txt").string(),  (local() / "tree").string(),      (local() / "story.epub").string(),
        (local() / "loud.EPUB").string(), (local() / "a>b.txt").string(),   (local() / ".._x_y_z.txt").string(),
        (local() / "taken(1).txt").string(),
    };
    EXPECT_EQ(result.copied, expected);

    EXPECT_EQ(readLocal(local() / "note.txt"), "hello");
    EXPECT_EQ(readLocal(local() / "tree/a.bin"), patternBytes(5000));
    EXPECT_EQ(readLocal(local() / "tree/sub/b.txt"), "deep");
    EXPECT_EQ(readLocal(local() / "taken.txt"), "mine");
    EXPECT_EQ(readLocal(local() / "taken(1).txt"), "hello");
    // Nothing landed beside the folder.
    EXPECT_FALSE(fs::exists(local().parent_path() / "x"));
    for (const char* zip : {"story.epub", "loud.EPUB"}) {
        auto names = zeb::listZipEntries(local() / zip);
        std::set<std::string> members(names.begin(), names.end());
        EXPECT_EQ(members, (std::set<std::string>{"mimetype", "OEBPS/chapter1.xhtml"})) << zip;
        std::string chapter;
        EXPECT_TRUE(zeb::readZipEntry(chapter, local() / zip, "OEBPS/chapter1.xhtml"));
        EXPECT_EQ(chapter, "<html/>");
    }
    // The staging copies of the books are gone.
    EXPECT_FALSE(fs::exists(local() / "story"));
    EXPECT_FALSE(fs::exists(local() / "loud"));
}

TEST_F(FileCommands, CopyNeverWritesThroughALinkInTheFolder) {
    putOnDevice("/Downloads/note.txt", "hello");
    putOnDevice("/Downloads/tree/a.txt", "leaf");
    putOnDevice("/Books/story.epub/mimetype", "application/epub+zip");
    const fs::path outside = local() / "outside";
    const fs::path dest = local() / "dest";
    fs::create_directories(outside);
    fs::create_directories(dest);
    // Links that lead nowhere yet, where each item (and the book's staging
    // copy) would go.
    for (const char* name : {"note.txt", "tree", "story.epub", "story"})
        fs::create_symlink(outside / (std::string("planted-") + name), dest / name);

    auto result = zparent::copyItems(worker->link, ++nextTask, udid,
                                     {{"note", "/Downloads/note.txt", dest.string()},
                                      {"tree", "/Downloads/tree", dest.string()},
                                      {"story", "/Books/story.epub", dest.string()}},
                                     30s);
    ASSERT_EQ(result.code, 0);
    EXPECT_EQ(result.copied, (std::vector<std::string>{(dest / "note(1).txt").string(), (dest / "tree(1)").string(),
                                                       (dest / "story(1).epub").string()}));
    EXPECT_TRUE(fs::is_empty(outside));
    EXPECT_EQ(readLocal(dest / "note(1).txt"), "hello");
    EXPECT_EQ(readLocal(dest / "tree(1)/a.txt"), "leaf");
    EXPECT_EQ(zeb::listZipEntries(dest / "story(1).epub"), std::vector<std::string>{"mimetype"});
}

TEST_F(FileCommands, CopyRefusesParentPathsAndBadTails) {
    putOnDevice("/Downloads/note.txt", "hello");
    auto refused = zparent::copyItems(worker->link, ++nextTask, udid,
                                      {{"up", "/Downloads/../Downloads/note.txt", local().string()},
                                       {"ok", "/Downloads/note.txt", local().string()}},
                                      30s);
    EXPECT_EQ(refused.code, 8);
    EXPECT_EQ(refused.copied, std::vector<std::string>{(local() / "ok.txt").string()});

    auto events = worker->run(701, e2e::commandJson(udid), std::string("not json"));
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().code, 8);
}

TEST_F(FileCommands, ListGivesEntriesAndErrorCodes) {
    putOnDevice("/Downloads/list/one.txt", "12345");
    putOnDevice("/Downloads/list/inner/x", "x");
    fs::create_symlink("one.txt", media() / "Downloads/list/link");

    auto listing = zparent::listFolder(worker->link, ++nextTask, udid, "/Downloads/list", 20s);
    ASSERT_EQ(listing.code, 0);
    std::sort(listing.entries.begin(), listing.entries.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    ASSERT_EQ(listing.entries.size(), 3u);
    EXPECT_EQ(listing.entries[0].name, "inner");
    EXPECT_EQ(listing.entries[0].type, "folder");
    EXPECT_EQ(listing.entries[1].name, "link");
    EXPECT_EQ(listing.entries[1].type, "link");
    EXPECT_EQ(listing.entries[1].target, "one.txt");
    EXPECT_EQ(listing.entries[2].name, "one.txt");
    EXPECT_EQ(listing.entries[2].type, "file");
    EXPECT_EQ(listing.entries[2].size, 5);
    EXPECT_GT(listing.entries[2].mtime, 1600000000);

    EXPECT_EQ(zparent::listFolder(worker->link, ++nextTask, udid, "/Downloads/none", 20s).code, 60);
    EXPECT_EQ(zparent::listFolder(worker->link, ++nextTask, udid, "/Downloads/list/one.txt", 20s).code, 60);
    EXPECT_EQ(zparent::listFolder(worker->link, ++nextTask, udid, "/Downloads/../..", 20s).code, 8);
    auto events = worker->run(704, e2e::commandJson(udid), std::string("[1,"));
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().code, 8);
}
