#include "core/sync_generated_bookmarks.h"

#include <cctype>
#include <string>
#include <vector>

namespace zsim {
namespace {

const char* const kTopics[] = {"News", "Travel", "Recipes", "Work", "Shopping", "Music", "Sports", "Science"};
constexpr size_t kTopicCount = countOf(kTopics);

std::string topic(uint64_t folder) {
    std::string name = kTopics[folder % kTopicCount];
    if (folder >= kTopicCount) name += " " + std::to_string(folder / kTopicCount + 1);
    return name;
}

std::string slug(std::string s) {
    for (char& c : s) c = c == ' ' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

}  // namespace

void generateBookmarks(plist_t generate, GeneratedIds& ids, SyncRecordList& out) {
    const uint64_t folders = dictUInt(generate, "Folders").value_or(0);
    const uint64_t count = dictUInt(generate, "Count").value_or(0);
    out.reserve(out.size() + folders + count);
    std::vector<std::string> folderIds;
    for (uint64_t i = 0; i < folders; ++i) {
        plist_t folder = newSyncRecord("com.apple.bookmarks.Folder");
        setString(folder, "name", topic(i));
        setInteger(folder, "position", static_cast<int64_t>(i));
        folderIds.push_back(ids.next("f-"));
        out.emplace_back(folderIds.back(), adopt(folder));
    }
    for (uint64_t j = 0; j < count; ++j) {
        const uint64_t folder = folders ? j % folders : 0;
        const std::string name = topic(folder);
        plist_t bookmark = newSyncRecord("com.apple.bookmarks.Bookmark");
        setString(bookmark, "name", name + " link " + std::to_string(j + 1));
        setString(bookmark, "url", "https://www.example.com/" + slug(name) + "/" + std::to_string(j + 1));
        setInteger(bookmark, "position", static_cast<int64_t>(folders ? j / folders : j));
        if (folders) setLink(bookmark, "parent", folderIds[folder]);
        out.emplace_back(ids.next("b-"), adopt(bookmark));
    }
}

}  // namespace zsim
