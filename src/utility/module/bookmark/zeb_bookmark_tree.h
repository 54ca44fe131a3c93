// The bookmark tree rebuilt from the device's flat records: each names its
// parents; folders and bookmarks hang under them, sorted by position.
#pragma once

#include "zeb_plist_variant.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct BookmarkNode {
    std::string id, name, entity, url;
    std::vector<std::string> parents;
    int64_t position = 0;
    std::vector<BookmarkNode*> children;
};

enum BookmarkReplyMode : int32_t { kBookmarkRead = 0, kBookmarkAdd = 2, kBookmarkRemoval = 3 };

struct BookmarkReplyContext {
    int32_t mode = kBookmarkRead;
    std::string deviceId;
    std::map<std::string, BookmarkNode> nodes;  // owns every node; its addresses stay put
    std::vector<BookmarkNode*> roots;
    int32_t count = 0;  // bookmarks, not folders
};

// SyncMessageHandler of every bookmark session.
void BookmarkReplyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);

namespace bookmark {
void readRecords(BookmarkReplyContext& reply, const PlistVariant& message);
// Roots and every node's children in position order.
void sortTree(BookmarkReplyContext& reply);
// One root's whole tree as JSON.
void treeJson(const BookmarkNode& root, rapidjson::Document& out);
}  // namespace bookmark
