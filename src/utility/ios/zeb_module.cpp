#include "zeb_module.h"

#include "zeb_client.h"
#include "zeb_device_monitor.h"
#include "zeb_event.h"
#include "zeb_json_parse.h"

#include <malloc.h>

namespace zeb {

uint16_t packetStatusForCode(int64_t code) {
    if (code == 0) return 1;
    if (code == 6) return 5;
    return 6;
}

}  // namespace zeb

int ZEBModule::notifyBegin(void* argument) {
    if (callback) callback(argument, callbackData, 0, argument);
    return 0;
}

int ZEBModule::execute(IPCPacket1* packet) {
    if (callback) callback(packet, callbackData, 1, packet);
    return 0;
}

int ZEBModule::report(const IPCPacket1* packet, const char* uuid, int64_t code, const char* info) {
    EventEnvelope envelope;
    envelope.stage = 0;
    envelope.code = code;
    envelope.uuid = uuid;
    envelope.info = info;
    envelope.type = 0;
    IPCPacket1 frame{};
    frame.taskId = packet->taskId;
    frame.commandType = packet->commandType;
    frame.packetStatus = zeb::packetStatusForCode(code);
    return ZEBClient::instance()->sendEvent(envelope, &frame);
}

void ZEBModule::dispatch(IPCPacket1* packet, const DispatchRules& rules, const Operation& operation) {
    runDispatched(packet, rules, operation);
    if (rules.releaseMemoryAfter) malloc_trim(0);
}

void ZEBModule::runDispatched(IPCPacket1* packet, const DispatchRules& rules, const Operation& operation) {
    CommandContext context;
    context.packet = packet;
    std::string text;
    bool hasText = zeb::splitPayload(packet, context.version, text, context.tail, context.tailLength);
    if (hasText) zeb::parseJson(context.json, text.c_str(), text.size());
    const bool isObject = hasText && !context.json.HasParseError() && context.json.IsObject();
    if (isObject) {
        auto uuid = context.json.FindMember("uuid");
        if (uuid != context.json.MemberEnd() && uuid->value.IsString())
            context.uuid.assign(uuid->value.GetString(), uuid->value.GetStringLength());
    }
    // A "uuid" past the bound would not fit the frame of the answer that
    // repeats it: bad input, like a text that does not parse.
    if (!isObject || context.uuid.size() > zeb::kUuidLimit) {
        if (rules.silentParseFailure) {
            packet->packetStatus = 6;
            return;
        }
        report(packet, "", kCodeBadJson, nullptr);
        return;
    }
    auto code = context.json.FindMember("code");
    if (code != context.json.MemberEnd() && code->value.IsInt64()) context.code = code->value.GetInt64();
    else if (code != context.json.MemberEnd() && code->value.IsUint64()) context.code = static_cast<int64_t>(code->value.GetUint64());

    if (rules.needsDevice) {
        ZEBDeviceMonitor& monitor = ZEBDeviceMonitor::instance();
        {
            std::lock_guard<std::mutex> hold(monitor.lock);
            if (!context.uuid.empty()) context.device = monitor.FindByUdid(context.uuid);
            if (!context.device && rules.findByHandleToo && context.code != 0)
                context.device = monitor.FindByHandle(reinterpret_cast<DeviceHandle>(context.code));
        }
        if (!context.device) {
            if (rules.silentWithoutDevice) return;
            report(packet, context.uuid.c_str(), kCodeNoDevice, nullptr);
            return;
        }
        if (rules.longTask) {
            auto entered = zeb::enterTask(context.device->taskTable, static_cast<int64_t>(packet->taskId),
                                          packet->commandType, context.uuid, &context.task);
            if (entered == zeb::TaskEntry::Cancelled) return;  // the cancel came first
        }
    }

    // A command that overtakes the device monitor's start still finds the
    // provider bound; without one there is nothing it could do. Control
    // (cancel) needs none.
    if (!rules.anyVersion && !zeb::api().Init()) {
        report(packet, context.uuid.c_str(), kCodeNoProvider, nullptr);
        return;
    }
    int64_t result = kCodeSuccess;
    if (context.version == 1 || rules.anyVersion) result = operation(context);
    if (result != kAlreadyReported) report(packet, context.uuid.c_str(), result, nullptr);
}
