#include "zeb_bookmark_tree.h"

#include "zeb_plist_bridge.h"
#include "zeb_sync_matchers.h"

#include <algorithm>
#include <set>

namespace {

using Allocator = rapidjson::Document::AllocatorType;

const char kEntityKey[] = "com.apple.syncservices.RecordEntityName";
const char kBookmarkEntity[] = "com.apple.bookmarks.Bookmark";
// A device that names its folders in a circle gets a tree cut off here.
constexpr int kDeepest = 256;

BookmarkNode& nodeOf(BookmarkReplyContext& reply, const std::string& id) {
    BookmarkNode& node = reply.nodes[id];
    node.id = id;
    return node;
}

rapidjson::Value str(const std::string& value, Allocator& allocator) {
    return rapidjson::Value(value.data(), static_cast<rapidjson::SizeType>(value.size()), allocator);
}

rapidjson::Value nodeJson(const BookmarkNode& node, Allocator& allocator, std::set<const BookmarkNode*>& path,
                          int depth) {
    rapidjson::Value object(rapidjson::kObjectType);
    object.AddMember("id", str(node.id, allocator), allocator);
    object.AddMember("name", str(node.name, allocator), allocator);
    object.AddMember("url", str(node.url, allocator), allocator);
    object.AddMember("com_apple_syncservices_RecordEntityName", str(node.entity, allocator), allocator);
    object.AddMember("position", node.position, allocator);
    rapidjson::Value children(rapidjson::kArrayType);
    path.insert(&node);
    if (depth < kDeepest)
        for (const BookmarkNode* child : node.children)
            if (!path.count(child)) children.PushBack(nodeJson(*child, allocator, path, depth + 1), allocator);
    path.erase(&node);
    object.AddMember("children", children, allocator);
    return object;
}

}  // namespace

namespace bookmark {

void readRecords(BookmarkReplyContext& reply, const PlistVariant& message) {
    if (message.tag() != VariantTag::Array) return;
    const CIOSDictionary* records = nullptr;
    for (const PlistVariant& element : message.array())
        if (!records && element.tag() == VariantTag::Dictionary && element.dictionary())
            records = element.dictionary().get();
    if (!records) return;
    for (const auto& [id, value] : *records) {
        if (value.tag() != VariantTag::Dictionary || !value.dictionary() || !value.dictionary()->Find(kEntityKey))
            continue;
        BookmarkNode& node = nodeOf(reply, id);
        if (!value.dictionary()->Find("parent")) reply.roots.push_back(&node);
        for (const auto& [key, field] : *value.dictionary()) {
            if (field.tag() == VariantTag::String) {
                if (key == "name") node.name = field.text();
                if (key == kEntityKey) {
                    node.entity = field.text();
                    if (node.entity == kBookmarkEntity) ++reply.count;
                }
                if (key == "url") node.url = field.text();
            } else if (field.tag() == VariantTag::Int64 && key == "position") {
                node.position = field.int64();
            } else if (field.tag() == VariantTag::Array && key == "parent") {
                for (const PlistVariant& parent : field.array()) {
                    if (parent.tag() != VariantTag::String) continue;
                    node.parents.push_back(parent.text());
                    // A parent read later fills in this same node.
                    nodeOf(reply, parent.text()).children.push_back(&node);
                }
            }
        }
    }
}

void sortTree(BookmarkReplyContext& reply) {
    auto byPosition = [](const BookmarkNode* a, const BookmarkNode* b) { return a->position < b->position; };
    std::stable_sort(reply.roots.begin(), reply.roots.end(), byPosition);
    for (auto& [id, node] : reply.nodes)
        if (node.children.size() > 1) std::stable_sort(node.children.begin(), node.children.end(), byPosition);
}

void treeJson(const BookmarkNode& root, rapidjson::Document& out) {
    std::set<const BookmarkNode*> path;
    rapidjson::Value tree = nodeJson(root, out.GetAllocator(), path, 0);
    static_cast<rapidjson::Value&>(out) = tree;
}

}  // namespace bookmark

void BookmarkReplyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    auto& reply = *static_cast<BookmarkReplyContext*>(context);
    *keepWaiting = false;
    if (reply.mode != kBookmarkRead) return;  // the answers to changes are not read
    PlistVariant frame;
    if (!DecodeFrame(bytes, length, frame)) return;
    if (const PlistVariant* message = zeb::syncMessageOf(frame)) bookmark::readRecords(reply, *message);
}
