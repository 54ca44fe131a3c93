#include "zeb_module.h"

#include "zeb_client.h"

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
