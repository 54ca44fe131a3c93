// The events that tell the parent about devices coming and going.
#include "zeb_client.h"

#include "zeb_settings.h"
#include "zeb_test_module.h"
#include "zeb_thread_pool.h"

#include <glog/logging.h>

#include <unistd.h>

namespace {

int64_t handleCode(DeviceHandle handle) { return reinterpret_cast<int64_t>(handle); }

}  // namespace

void ZEBClient::onDeviceEvent(const DevicePtr& device, uint32_t message) {
    const zeb::Settings& settings = zeb::settings();
    EventEnvelope envelope;
    envelope.stage = settings.runMode;
    envelope.code = handleCode(device->handle);
    envelope.uuid = device->udid.c_str();
    IPCPacket1 frame{};
    frame.packetStatus = 2;
    if (message == 1) {
        if (settings.testModuleEnabled) {
            DevicePtr held = device;
            BASThreadPool::instance()->addTask([held] { zeb::runTestModule(held); });
        }
        const std::string info = device->readyInfoJson();
        envelope.info = info.c_str();
        frame.commandType = 1;
        sendEvent(envelope, &frame);
    } else if (message == 2) {
        const std::string info = "{\"PID\":" + std::to_string(getpid()) + "}";
        envelope.info = info.c_str();
        frame.commandType = 8;
        sendEvent(envelope, &frame);
    }
}

void ZEBClient::sendStatusEvent(uint32_t number, int64_t code) {
    EventEnvelope envelope;
    envelope.code = code;
    IPCPacket1 frame{};
    frame.commandType = number;
    frame.packetStatus = 1;
    sendEvent(envelope, &frame);
}

void ZEBClient::sendDeviceErrorEvent(const ZEBDevice& device, int32_t error) {
    LOG(INFO) << "error code: " << error;
    const std::string info = "\"" + std::to_string(error) + "\"";
    const std::string tail = "{\"DeviceName\":\"" + zeb::escapeJsonText(device.device_name) + "\"}";
    EventEnvelope envelope;
    envelope.code = handleCode(device.handle);
    envelope.uuid = device.udid.c_str();
    envelope.info = info.c_str();
    envelope.tail = tail.data();
    envelope.tailLength = tail.size();
    IPCPacket1 frame{};
    frame.commandType = 12;
    frame.packetStatus = 1;
    sendEvent(envelope, &frame);
}
