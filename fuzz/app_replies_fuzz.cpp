// Installation proxy and springboard frames through the app reply handler,
// in the mode the first byte picks: browse pages, disk usage, icons,
// progress of uninstall/install/archive, and the CF forms. Events are built
// as the parent would get them.
#include "zeb_app_reply.h"
#include "zeb_mobile_export_fun.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstddef>
#include <cstdint>

namespace {

void buildEvent(const EventEnvelope& envelope, IPCPacket1*) {
    std::string text = zeb::buildEventText(envelope);
    const auto* tail = static_cast<const volatile uint8_t*>(envelope.tail);
    uint8_t sum = 0;
    for (uint64_t i = 0; tail && i < envelope.tailLength; i += 4096) sum ^= tail[i];
    (void)sum;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool bound = CMobileExportFun::GetInstance().Init();
    if (!bound || size < 1) return 0;
    CMobileExportFun& cf = CMobileExportFun::GetInstance();
    IPCPacket1 command{};
    command.taskId = 7;
    command.commandType = 501;
    std::vector<CFTypeRef> apps;
    AppReplyContext reply;
    reply.mode = data[0] % 8;
    reply.udid = "00008030-000000000000001E";
    reply.bundle_id = "com.example.app";
    reply.command = &command;
    reply.sink = buildEvent;
    reply.apps_out = &apps;
    // Two frames from one input: the listing reads its second page into
    // the objects of the first.
    const size_t half = (size - 1) / 2;
    const uint8_t* frames[] = {data + 1, data + 1 + half};
    const uint32_t lengths[] = {static_cast<uint32_t>(half), static_cast<uint32_t>(size - 1 - half)};
    for (int i = 0; i < 2; ++i) {
        bool keepWaiting = true;
        uint8_t result = 0;
        AppReplyHandler(&reply, frames[i], lengths[i], &keepWaiting, &result);
        if (reply.mode == kAppBrowseAttributes) reply.mode = kAppBrowseDiskUsage;
    }
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    reply.apps.Accept(writer);
    for (CFTypeRef app : apps) cf.CFRelease(app);
    if (reply.cf_reply) cf.CFRelease(reply.cf_reply);
    return 0;
}
