#include "zeb_app_reply.h"

#include "zeb_app_metadata.h"
#include "zeb_mobile_export_fun.h"
#include "zeb_plist_bridge.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace {

using zeb::firstDictionary;
using Allocator = rapidjson::Document::AllocatorType;

CMobileExportFun& api() { return CMobileExportFun::GetInstance(); }

const PlistVariant* member(const PlistVariant& dictionary, const char* key) {
    if (dictionary.tag() != VariantTag::Dictionary || !dictionary.dictionary()) return nullptr;
    return dictionary.dictionary()->Find(key);
}

bool textIs(const PlistVariant* value, const char* text) {
    return value && value->tag() == VariantTag::String && value->text() == text;
}

void send(AppReplyContext& reply, const EventEnvelope& envelope, uint16_t packetStatus) {
    if (!reply.sink || !reply.command) return;
    IPCPacket1 frame{};
    frame.taskId = reply.command->taskId;
    frame.commandType = reply.command->commandType;
    frame.packetStatus = packetStatus;
    reply.sink(envelope, &frame);
}

// Browse answers run to megabytes for a full device: they are read from the
// CF property list itself, member by member, rather than turned whole into a
// value tree (which would also round-trip every metadata blob through text).
bool cfIs(const void* value, CFTypeID type) { return value && api().CFGetTypeID(value) == type; }

// The member of `apps` for an identifier, or null.
rapidjson::Value* appObject(AppReplyContext& reply, const std::string& id) {
    auto found = reply.app_index.find(id);
    return found == reply.app_index.end() ? nullptr : &(reply.apps.MemberBegin() + found->second)->value;
}

// Mode 0: one app with its attributes and its store metadata.
void addApp(AppReplyContext& reply, CFTypeRef app) {
    std::string id;
    if (!CfMemberText(CfDictionaryValue(app, "CFBundleIdentifier"), id)) return;  // dropped
    Allocator& allocator = reply.apps.GetAllocator();
    rapidjson::Value object(rapidjson::kObjectType);
    std::string text;
    if (!CfMemberText(CfDictionaryValue(app, "ApplicationType"), text)) text.clear();
    object.AddMember("ApplicationType", rapidjson::Value(text.c_str(), text.size(), allocator), allocator);
    for (const char* key : {"CFBundleIdentifier", "CFBundleDisplayName", "CFBundleName", "CFBundleShortVersionString",
                            "CFBundleVersion", "Path"}) {
        if (CfMemberText(CfDictionaryValue(app, key), text))
            object.AddMember(rapidjson::Value(key, allocator), rapidjson::Value(text.c_str(), text.size(), allocator),
                             allocator);
    }
    // The store metadata is a property list held as data.
    const void* metadata = CfDictionaryValue(app, "iTunesMetadata");
    if (cfIs(metadata, kZebCFDataTypeID))
        zeb::addMetadataMembers(api().CFDataGetBytePtr(metadata), static_cast<size_t>(api().CFDataGetLength(metadata)),
                                object, allocator);
    // One member per identifier: a repeated one replaces the first.
    if (rapidjson::Value* existing = appObject(reply, id)) {
        *existing = object;
        return;
    }
    reply.app_index.emplace(id, reply.apps.MemberCount());
    reply.apps.AddMember(rapidjson::Value(id.c_str(), id.size(), allocator), object, allocator);
}

void setSize(rapidjson::Value& object, const char* name, int64_t size, Allocator& allocator) {
    auto existing = object.FindMember(name);
    if (existing != object.MemberEnd())
        existing->value.SetInt64(size);
    else
        object.AddMember(rapidjson::Value(name, allocator), rapidjson::Value(size), allocator);
}

// Mode 5: sizes for apps the first pass found; others are ignored.
void addSizes(AppReplyContext& reply, CFTypeRef app) {
    std::string id;
    if (!CfMemberText(CfDictionaryValue(app, "CFBundleIdentifier"), id)) return;
    rapidjson::Value* found = appObject(reply, id);
    if (!found || !found->IsObject()) return;
    int64_t size = 0;
    Allocator& allocator = reply.apps.GetAllocator();
    if (CfWholeNumber(CfDictionaryValue(app, "DynamicDiskUsage"), size)) setSize(*found, "data-size", size, allocator);
    if (CfWholeNumber(CfDictionaryValue(app, "StaticDiskUsage"), size)) setSize(*found, "app-size", size, allocator);
}

// Modes 0 and 5: one page of a Browse answer.
void browsePage(AppReplyContext& reply, const uint8_t* bytes, uint32_t length, bool* keepWaiting) {
    CFTypeRef message = CfFromFrame(bytes, length);
    if (!message) return;
    if (!cfIs(message, kZebCFDictionaryTypeID)) return api().CFRelease(message);  // wait for the next frame
    std::string status;
    // A device that answers with an error sends nothing after it.
    const bool complete = CfMemberText(CfDictionaryValue(message, "Status"), status) && status == "Complete";
    if (complete || CfDictionaryValue(message, "Error")) {
        *keepWaiting = false;
        return api().CFRelease(message);
    }
    const void* list = CfDictionaryValue(message, "CurrentList");
    if (cfIs(list, kZebCFArrayTypeID)) {
        for (CFIndex i = 0, count = api().CFArrayGetCount(list); i < count; ++i) {
            const void* app = api().CFArrayGetValueAtIndex(list, i);
            if (!cfIs(app, kZebCFDictionaryTypeID)) continue;
            if (reply.mode == kAppBrowseAttributes)
                addApp(reply, app);
            else
                addSizes(reply, app);
        }
    }
    api().CFRelease(message);
}

// Mode 1: the icon goes to the parent as a raw tail; one answer ends it.
void iconToParent(AppReplyContext& reply, const PlistVariant& message, bool* keepWaiting) {
    *keepWaiting = false;
    const PlistVariant* png = member(message, "pngData");
    std::string bytes;
    if (!png || png->tag() != VariantTag::String || !zeb::decodeBase64(png->text(), bytes)) return;
    rapidjson::StringBuffer info;
    rapidjson::Writer<rapidjson::StringBuffer> writer(info);
    writer.StartObject();
    writer.Key("bundle_id");
    writer.String(reply.bundle_id.c_str(), static_cast<rapidjson::SizeType>(reply.bundle_id.size()));
    writer.EndObject();
    EventEnvelope envelope;
    envelope.uuid = reply.udid.c_str();
    envelope.type = 1;
    envelope.info = info.GetString();
    envelope.tail = bytes.data();
    envelope.tailLength = bytes.size();
    send(reply, envelope, 2);
}

// Modes 2, 3 and 4: one progress step, or the end with its verdict.
void progress(AppReplyContext& reply, const PlistVariant& message, bool* keepWaiting) {
    EventEnvelope envelope;
    uint16_t packetStatus = 2;
    int64_t percent = 0;
    const PlistVariant* step = member(message, "PercentComplete");
    if (step && step->ToInteger(percent)) {
        envelope.code = percent;
    } else {
        *keepWaiting = false;
        if (!textIs(member(message, "Status"), "Complete")) packetStatus = 6;
    }
    envelope.uuid = reply.udid.c_str();
    envelope.stage = reply.mode == kAppInstall ? 2 : 0;
    std::string quoted;
    if (reply.mode == kAppUninstall) {
        quoted = "\"" + zeb::escapeJsonText(reply.bundle_id) + "\"";
        envelope.info = quoted.c_str();
    }
    send(reply, envelope, packetStatus);
}

// Mode 6: each page is kept as an owned CF dictionary.
void browseToCf(AppReplyContext& reply, const uint8_t* bytes, uint32_t length, bool* keepWaiting) {
    CFDataRef data = api().CFDataCreate(nullptr, bytes, static_cast<CFIndex>(length));
    if (!data) {
        *keepWaiting = false;
        return;
    }
    CFPropertyListRef list = api().CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
    api().CFRelease(data);
    char status[256] = {0};
    const void* value = list ? api().CFDictionaryGetValue(static_cast<CFDictionaryRef>(list),
                                                          api().__CFStringMakeConstantString("Status"))
                             : nullptr;
    if (!value || !api().CFStringGetCString(static_cast<CFStringRef>(value), status, sizeof status,
                                            kZebCFStringEncodingUTF8)) {
        if (list) api().CFRelease(list);
        *keepWaiting = false;
        return;
    }
    if (std::string(status) == "Complete" || !reply.apps_out) {
        api().CFRelease(list);
        *keepWaiting = false;
        return;
    }
    reply.apps_out->push_back(list);
}

}  // namespace

void AppReplyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    auto& reply = *static_cast<AppReplyContext*>(context);
    *keepWaiting = true;
    *result = 0;
    if (reply.mode == kAppBrowseToCf) return browseToCf(reply, bytes, length, keepWaiting);
    if (reply.mode == kAppIconToCf) {
        *keepWaiting = false;
        CFDataRef data = api().CFDataCreate(nullptr, bytes, static_cast<CFIndex>(length));
        if (!data) return;
        if (reply.cf_reply) api().CFRelease(reply.cf_reply);
        reply.cf_reply = api().CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
        api().CFRelease(data);
        return;
    }

    if (reply.mode == kAppBrowseAttributes || reply.mode == kAppBrowseDiskUsage)
        return browsePage(reply, bytes, length, keepWaiting);

    PlistVariant decoded;
    if (!DecodeFrame(bytes, length, decoded) || decoded.tag() != VariantTag::Array) return;
    const PlistVariant* message = firstDictionary(decoded);
    if (!message) return;  // nothing to read: wait for the next frame
    switch (reply.mode) {
        case kAppIconToParent: iconToParent(reply, *message, keepWaiting); break;
        case kAppUninstall:
        case kAppInstall:
        case kAppArchive: progress(reply, *message, keepWaiting); break;
        default: *keepWaiting = false;
    }
}
