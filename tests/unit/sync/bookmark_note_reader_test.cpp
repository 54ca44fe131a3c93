// The bookmark tree and the note reader on batches as a device sends them.
#include "zeb_bookmark_tree.h"
#include "zeb_bound_provider.h"
#include "zeb_note_reader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

std::string record(const std::string& id, const std::string& entity, const std::string& fields) {
    return "<key>" + id + "</key><dict><key>com.apple.syncservices.RecordEntityName</key><string>" + entity +
           "</string>" + fields + "</dict>";
}

std::string parents(std::initializer_list<const char*> ids) {
    std::string text = "<key>parent</key><array>";
    for (const char* id : ids) text += std::string("<string>") + id + "</string>";
    return text + "</array>";
}

std::string position(int n) { return "<key>position</key><integer>" + std::to_string(n) + "</integer>"; }

template <typename Handler, typename Context>
void feed(Handler handler, Context& reply, const std::string& dataClass, const std::string& records) {
    const std::string xml = Plist("<array><string>SDMessageProcessChanges</string><string>" + dataClass +
                                  "</string><dict>" + records + "</dict><true/></array>");
    bool keepWaiting = true;
    uint8_t result = 0;
    handler(&reply, reinterpret_cast<const uint8_t*>(xml.data()), static_cast<uint32_t>(xml.size()), &keepWaiting,
            &result);
}

const char kFolder[] = "com.apple.bookmarks.Folder";
const char kBookmark[] = "com.apple.bookmarks.Bookmark";

TEST(BookmarkTree, RecordsInAnyOrderBuildSortedTreesPerRoot) {
    BoundProvider();
    BookmarkReplyContext reply;
    // Children ahead of their folders (ids sort that way), a bookmark in two
    // folders, an empty folder, and a child whose folder never comes.
    feed(BookmarkReplyHandler, reply, "com.apple.Bookmarks",
         record("a-late", kBookmark, "<key>name</key><string>Late</string>" + parents({"f-bar"}) + position(2)) +
             record("b-both", kBookmark, "<key>name</key><string>Both &amp; more</string><key>url</key>"
                                         "<string>https://example.org/?a=1&amp;b=2</string>" +
                                             parents({"f-bar", "f-menu"}) + position(1)) +
             record("c-lost", kBookmark, "<key>name</key><string>Lost</string>" + parents({"f-never"})) +
             record("f-bar", kFolder, "<key>name</key><string>Bar</string>" + position(1)) +
             record("f-empty", kFolder, "<key>name</key><string>Empty</string>" + parents({"f-menu"}) + position(0)) +
             record("f-menu", kFolder, "<key>name</key><string>Menu</string>" + position(0)));
    bookmark::sortTree(reply);
    EXPECT_EQ(reply.count, 3);  // bookmarks only
    ASSERT_EQ(reply.roots.size(), 2u);
    EXPECT_EQ(reply.roots[0]->id, "f-menu");

    rapidjson::Document menu, bar;
    bookmark::treeJson(*reply.roots[0], menu);
    bookmark::treeJson(*reply.roots[1], bar);
    ASSERT_EQ(menu["children"].Size(), 2u);
    EXPECT_STREQ(menu["children"][0]["id"].GetString(), "f-empty");
    EXPECT_TRUE(menu["children"][0]["children"].IsArray());
    EXPECT_EQ(menu["children"][0]["children"].Size(), 0u);
    EXPECT_STREQ(menu["children"][1]["id"].GetString(), "b-both");
    ASSERT_EQ(bar["children"].Size(), 2u);
    EXPECT_STREQ(bar["children"][0]["id"].GetString(), "b-both");
    EXPECT_STREQ(bar["children"][0]["url"].GetString(), "https://example.org/?a=1&b=2");
    EXPECT_STREQ(bar["children"][1]["name"].GetString(), "Late");
    std::vector<std::string> keys;
    for (const auto& member : bar.GetObject()) keys.emplace_back(member.name.GetString());
    EXPECT_EQ(keys, (std::vector<std::string>{"id", "name", "url", "com_apple_syncservices_RecordEntityName", "position",
                                               "children"}));
}

TEST(BookmarkTree, FoldersThatNameEachOtherDoNotLoopForever) {
    BoundProvider();
    BookmarkReplyContext reply;
    feed(BookmarkReplyHandler, reply, "com.apple.Bookmarks",
         record("f-a", kFolder, parents({"f-b"})) + record("f-b", kFolder, parents({"f-a"})) +
             record("f-root", kFolder, "") + record("f-c", kFolder, parents({"f-root", "f-c"})));
    bookmark::sortTree(reply);
    ASSERT_EQ(reply.roots.size(), 1u);
    rapidjson::Document tree;
    bookmark::treeJson(*reply.roots[0], tree);
    ASSERT_EQ(tree["children"].Size(), 1u);
    EXPECT_EQ(tree["children"][0]["children"].Size(), 0u);  // f-c under itself is cut
}

TEST(NoteReader, StringsOnlyAndDatesInBothForms) {
    BoundProvider();
    setenv("TZ", "UTC", 1);
    tzset();
    NoteReplyContext reply;
    feed(NoteReplyHandler, reply, "com.apple.Notes",
         record("n-1", "com.apple.notes.Note", "<key>subject</key><string>Tom &amp; &lt;Jerry&gt; 🎉</string>"
                                               "<key>content</key><string>line\nline</string>"
                                               "<key>dateCreated</key><date>2020-01-02T03:04:05Z</date>"
                                               "<key>author</key><integer>7</integer>") +
             "<key>n-2</key><dict><key>subject</key><string>no entity</string></dict>");
    unsetenv("TZ");
    tzset();
    ASSERT_EQ(reply.notes.size(), 1u);
    rapidjson::Document json;
    note::notesJson(reply.notes, json);
    const auto& note = json[0];
    EXPECT_STREQ(note["subject"].GetString(), "Tom & <Jerry> 🎉");
    EXPECT_STREQ(note["author"].GetString(), "");  // not a string: dropped
    EXPECT_STREQ(note["guid"].GetString(), "");
    EXPECT_STREQ(note["dateCreatedSource"].GetString(), "2020-01-02T03:04:05Z");
    EXPECT_STREQ(note["dateCreated"].GetString(), "2020-01-02 03:04:05");
    EXPECT_STREQ(note["dateModified"].GetString(), "");
}

}  // namespace
