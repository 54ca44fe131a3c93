#include "zeb_module_basicinfo.h"

#include "zeb_client.h"
#include "zeb_device_monitor.h"
#include "zeb_device_overview.h"
#include "zeb_storage_query.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>

namespace {

using zeb::api;

constexpr int64_t kRenameFailed = 31;

std::string storageJson(ZEBDevice& device) {
    StorageReport report;
    zeb::QueryStorage(device, report);
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    report.json.Accept(writer);
    return text.GetString();
}

}  // namespace

int ZEBModuleBasicInfo::execute(IPCPacket1* packet) {
    DispatchRules rules;
    rules.findByHandleToo = true;
    dispatch(packet, rules, [this](CommandContext& context) -> int64_t {
        switch (context.packet->commandType) {
            case 15:
                if (context.device->state == kDeviceReady) return kCodeSuccess;
                return ZEBDeviceMonitor::instance().readDevice(context.device);
            case 300: return overview(context);
            case 303: return rename(context);
            default: return kCodeSuccess;
        }
    });
    return 0;
}

void ZEBModuleBasicInfo::sendObject(const CommandContext& context, const std::string& json) {
    EventEnvelope envelope;
    envelope.uuid = context.device->udid.c_str();
    envelope.tail = json.data();
    envelope.tailLength = json.size();
    IPCPacket1 frame{};
    frame.taskId = context.packet->taskId;
    frame.commandType = 300;
    frame.packetStatus = 2;
    ZEBClient::instance()->sendEvent(envelope, &frame);
}

int64_t ZEBModuleBasicInfo::overview(CommandContext& context) {
    int32_t error = 0;
    // Held to the end: it also keeps the session up for both objects.
    ServicePtr afc = zeb::StartService(context.device->handle, error, "com.apple.afc", nullptr, true);
    if (!afc) return kCodeServiceFailed;
    sendObject(context, zeb::BuildDeviceOverview(*context.device));
    sendObject(context, storageJson(*context.device));
    return kCodeSuccess;
}

int64_t ZEBModuleBasicInfo::rename(CommandContext& context) {
    rapidjson::Document tail;
    if (!context.readTail(tail) || !tail.IsObject()) return kCodeBadTail;
    std::string name;
    auto found = tail.FindMember("name");
    if (found != tail.MemberEnd() && found->value.IsString()) name = found->value.GetString();
    int32_t error = 0;
    ServicePtr afc = zeb::StartService(context.device->handle, error, "com.apple.afc", nullptr, true);
    if (!afc) return kCodeServiceFailed;
    CFStringRef value = api().CFStringCreateWithCString(nullptr, name.c_str(), kZebCFStringEncodingUTF8);
    CFStringRef key = api().__CFStringMakeConstantString("DeviceName");
    int32_t result = api().AMDeviceSetValue(context.device->handle, nullptr, key, value);
    if (value) api().CFRelease(value);
    return result == 0 ? kCodeSuccess : kRenameFailed;
}

namespace zeb {

void printDeviceOverview(ZEBDevice& device) {
    printf("overview: %s\n", BuildDeviceOverview(device).c_str());
    printf("storage: %s\n", storageJson(device).c_str());
    fflush(stdout);
}

}  // namespace zeb
