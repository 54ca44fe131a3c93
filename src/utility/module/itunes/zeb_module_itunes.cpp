#include "zeb_module_itunes.h"

#include "zeb_child_process.h"
#include "zeb_paged_reply.h"

namespace {

bool needsDevice(uint32_t command) { return command == 1600 || command == 1601 || (command >= 1603 && command <= 1605); }

}  // namespace

int ZEBModuleiTunes::execute(IPCPacket1* packet) {
    DispatchRules rules;
    rules.needsDevice = needsDevice(packet->commandType);
    rules.longTask = rules.needsDevice;
    dispatch(packet, rules, [this](CommandContext& context) -> int64_t {
        TaskResult result;
        const uint32_t command = context.packet->commandType;
        rapidjson::Document request;
        const bool readsTail = command <= 1602 || command == 1605;
        // The keys ride in the command's own JSON; a tail, when there is
        // one, has the last word.
        if (readsTail) {
            request.CopyFrom(context.json, request.GetAllocator());
            rapidjson::Document tail;
            if (context.tail && context.tailLength) {
                if (!context.readTail(tail) || !tail.IsObject()) {
                    result.code = kCodeBadTail;
                } else {
                    for (auto& member : tail.GetObject()) {
                        request.RemoveMember(member.name);
                        request.AddMember(rapidjson::Value(member.name, request.GetAllocator()),
                                          rapidjson::Value(member.value, request.GetAllocator()), request.GetAllocator());
                    }
                }
            }
        }
        if (result.code == 0) {
            switch (command) {
                case 1600: result = backup(context, request); break;
                case 1601: {
                    const zeb::PagedReply events{context.packet, command, context.uuid};
                    result = restoreBackup(*context.device, request, [&](int64_t hundredths) {
                        zeb::sendReplyEvent(events, 1, nullptr, nullptr, hundredths);
                    });
                    break;
                }
                case 1602: result.code = static_cast<int32_t>(listBackups(context, request)); break;
                case 1603: result.code = zeb::DeviceFlag(*context.device, "IsAssociated", "com.apple.fmip") ? 0 : 1; break;
                case 1604:
                    result.code = zeb::DeviceFlag(*context.device, "WillEncrypt", "com.apple.mobile.backup") ? 0 : 1;
                    break;
                case 1605: result.code = static_cast<int32_t>(changePassword(context, request)); break;
                case 1606: result.code = 1; break;  // no desktop media program runs on this system
                default: break;                      // 1607: nothing to stop
            }
        }
        report(context.packet, context.uuid.c_str(), result.code, backup::resultInfo(result).c_str());
        return kAlreadyReported;
    });
    return 0;
}

namespace zeb {

bool DeviceFlag(ZEBDevice& device, const char* key, const char* domain) {
    // These domains are read inside a session only.
    int32_t error = 0;
    SessionPtr session = GetSession(device.handle, error);
    PlistVariant value;
    if (!ReadValue(device.handle, key, domain, value)) return false;
    int64_t number = 0;
    if (value.tag() == VariantTag::Bool) return value.boolean();
    return value.ToInteger(number) && number != 0;
}

}  // namespace zeb
