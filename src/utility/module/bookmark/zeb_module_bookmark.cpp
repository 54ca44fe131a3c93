#include "zeb_module_bookmark.h"

#include "zeb_bookmark_texts.h"
#include "zeb_bookmark_tree.h"
#include "zeb_paged_reply.h"
#include "zeb_sync_changes.h"
#include "zeb_sync_service.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

int ZEBModuleBookmark::execute(IPCPacket1* packet) {
    DispatchRules rules;
    rules.releaseMemoryAfter = packet->commandType == 1400;
    dispatch(packet, rules, [this](CommandContext& context) -> int64_t {
        switch (context.packet->commandType) {
            case 1400: return query(context);
            case 1401: return addBookmarks(context);
            default: return removeRecord(context);
        }
    });
    return 0;
}

int64_t ZEBModuleBookmark::query(CommandContext& context) {
    BookmarkReplyContext reply;
    reply.deviceId = context.device->udid;
    // The first batch is all that is read.
    const SyncRecordReader reader(BookmarkReplyHandler, &reply, &reply.mode, kBookmarkRead, kBookmarkRead, false);
    const int64_t read = zeb::ReadAllSyncRecords(context, "Bookmark", bookmark::kListTexts, reader);
    if (read == kCodeSyncServiceFailed) return read;
    bookmark::sortTree(reply);

    const zeb::PagedReply list{context.packet, 1400, context.device->udid};
    const std::string info = zeb::countInfo(zeb::syncListCount(*context.device, "Bookmarks", reply.count));
    zeb::sendReplyEvent(list, 0, info.c_str(), nullptr);
    for (const BookmarkNode* root : reply.roots) {
        rapidjson::Document tree;
        bookmark::treeJson(*root, tree);
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        tree.Accept(writer);
        const std::string tail(buffer.GetString(), buffer.GetSize());
        zeb::sendReplyEvent(list, 1, info.c_str(), &tail);
    }
    return read;  // a list the device cut off went out as far as it came
}

int64_t ZEBModuleBookmark::addBookmarks(CommandContext& context) {
    // The parent wrote the whole change message; it goes as it came. A tail
    // that does not inflate, or inflates past the bound, is bad input.
    std::string text;
    if (context.tailLength != 0 && !context.tailText(text)) return kCodeBadTail;
    BookmarkReplyContext reply;
    SyncSession session(nullptr);
    if (!zeb::BeginSyncChange(context, bookmark::kAddTexts, bookmark::kAddWaits, session))
        return kCodeSyncServiceFailed;
    reply.mode = kBookmarkAdd;
    session.sendChanges(text, BookmarkReplyHandler, &reply);
    session.finish(bookmark::kAddTexts);
    return kCodeSuccess;
}

int64_t ZEBModuleBookmark::removeRecord(CommandContext& context) {
    rapidjson::Document request;
    if (!context.readTail(request)) return kCodeBadTail;
    if (!request.IsObject() || !request.HasMember("id") || !request["id"].IsString()) return kCodeBadJson;
    BookmarkReplyContext reply;
    SyncSession session(nullptr);
    if (!zeb::BeginSyncChange(context, bookmark::kRemoveTexts, bookmark::kRemoveWaits, session))
        return kCodeSyncServiceFailed;
    reply.mode = kBookmarkRemoval;
    session.sendChanges(zeb::fillTemplate(bookmark::kRemoveTemplate, request["id"].GetString()), BookmarkReplyHandler,
                        &reply);
    session.finish(bookmark::kRemoveTexts);
    return kCodeSuccess;
}
