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

// Mode 0: one app with its attributes and its store metadata.
void addApp(AppReplyContext& reply, const PlistVariant& app) {
    Allocator& allocator = reply.apps.GetAllocator();
    rapidjson::Value object(rapidjson::kObjectType);
    const PlistVariant* type = member(app, "ApplicationType");
    const std::string typeText = type && type->tag() == VariantTag::String ? type->text() : std::string();
    object.AddMember("ApplicationType", rapidjson::Value(typeText.c_str(), typeText.size(), allocator), allocator);

    const PlistVariant* identifier = member(app, "CFBundleIdentifier");
    if (!identifier || identifier->tag() != VariantTag::String) return;  // dropped
    const std::string& id = identifier->text();
    for (const char* key : {"CFBundleIdentifier", "CFBundleDisplayName", "CFBundleName", "CFBundleShortVersionString",
                            "CFBundleVersion", "Path"}) {
        const PlistVariant* value = member(app, key);
        if (value && value->tag() == VariantTag::String)
            object.AddMember(rapidjson::Value(key, allocator),
                             rapidjson::Value(value->text().c_str(), value->text().size(), allocator), allocator);
    }
    const PlistVariant* metadata = member(app, "iTunesMetadata");
    if (metadata && metadata->tag() == VariantTag::String) {
        std::string bytes;
        PlistVariant decoded;
        if (zeb::decodeBase64(metadata->text(), bytes) && !bytes.empty() &&
            DecodeFrame(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), decoded))
            if (const PlistVariant* dictionary = firstDictionary(decoded))
                zeb::addMetadataMembers(*dictionary, object, allocator);
    }
    // One member per identifier: a repeated one replaces the first.
    auto existing = reply.apps.FindMember(id.c_str());
    if (existing != reply.apps.MemberEnd())
        existing->value = object;
    else
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
void addSizes(AppReplyContext& reply, const PlistVariant& app) {
    const PlistVariant* identifier = member(app, "CFBundleIdentifier");
    if (!identifier || identifier->tag() != VariantTag::String) return;
    auto found = reply.apps.FindMember(identifier->text().c_str());
    if (found == reply.apps.MemberEnd() || !found->value.IsObject()) return;
    int64_t size = 0;
    const PlistVariant* dynamic = member(app, "DynamicDiskUsage");
    if (dynamic && dynamic->ToInteger(size)) setSize(found->value, "data-size", size, reply.apps.GetAllocator());
    const PlistVariant* fixed = member(app, "StaticDiskUsage");
    if (fixed && fixed->ToInteger(size)) setSize(found->value, "app-size", size, reply.apps.GetAllocator());
}

// Modes 0 and 5: one page of a Browse answer.
void browsePage(AppReplyContext& reply, const PlistVariant& message, bool* keepWaiting) {
    const PlistVariant* status = member(message, "Status");
    // A device that answers with an error sends nothing after it.
    if (textIs(status, "Complete") || member(message, "Error")) {
        *keepWaiting = false;
        return;
    }
    const PlistVariant* list = member(message, "CurrentList");
    if (!list || list->tag() != VariantTag::Array) return;
    for (const PlistVariant& app : list->array()) {
        if (app.tag() != VariantTag::Dictionary || !app.dictionary()) continue;
        if (reply.mode == kAppBrowseAttributes)
            addApp(reply, app);
        else
            addSizes(reply, app);
    }
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

    PlistVariant decoded;
    if (!DecodeFrame(bytes, length, decoded) || decoded.tag() != VariantTag::Array) return;
    const PlistVariant* message = firstDictionary(decoded);
    if (!message) return;  // nothing to read: wait for the next frame
    switch (reply.mode) {
        case kAppBrowseAttributes:
        case kAppBrowseDiskUsage: browsePage(reply, *message, keepWaiting); break;
        case kAppIconToParent: iconToParent(reply, *message, keepWaiting); break;
        case kAppUninstall:
        case kAppInstall:
        case kAppArchive: progress(reply, *message, keepWaiting); break;
        default: *keepWaiting = false;
    }
}
