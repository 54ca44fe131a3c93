// ZEBClient: the process's one link to the parent. Every command enters
// here and becomes a pool task; every event leaves through sendEvent.
#pragma once

#include "zeb_device_monitor.h"
#include "zeb_event.h"
#include "zeb_ipc_packet_channel.h"

#include <deque>
#include <mutex>
#include <string>

class ZEBClient : public ZEBDeviceCallback {
public:
    static ZEBClient* instance();

    // Connects the command channel to the parent: 11 attempts a second
    // apart; none at all when the parent's port is 0.
    bool connectToParent();
    bool startHelperListener();
    bool helperMissing();

    // 0, or -1 when there is no connection. `packet` brings taskId,
    // commandType and packetStatus; the rest is filled in here.
    int sendEvent(const EventEnvelope& envelope, IPCPacket1* packet);
    void sendToHelper(bas::IPCPacketChannel& channel, IPCPacket1* packet);

    // Device ready (1) and device gone (2) become events for the parent.
    void onDeviceEvent(const DevicePtr& device, uint32_t message) override;
    // The plain status event: `number` as the command type, status 1, no
    // UDID: device arrived (11), gone before ready (8), monitor start failed.
    void sendStatusEvent(uint32_t number, int64_t code);
    // Pairing or reading failed (12): the error number as a quoted text,
    // the device name in the tail.
    void sendDeviceErrorEvent(const ZEBDevice& device, int32_t error);

    bas::IPCPacketChannel& commands() { return commandChannel; }
    bas::IPCPacketChannel& helper() { return helperChannel; }
    std::mutex& sendMutex() { return sendLock; }
    std::deque<IPCPacket1*>& pending() { return pendingCommands; }

    static void onCommandPacket(IPCPacket1* packet);
    static void onHelperPacket(IPCPacket1* packet);
    static int onHelperEvent(bas::ChannelEvent* event);

    // Tests shorten the retry delay of connectToParent.
    void setConnectRetryDelay(int milliseconds) { connectRetryDelay = milliseconds; }

private:
    ZEBClient() = default;

    bas::IPCPacketChannel commandChannel;
    bas::IPCPacketChannel helperChannel;
    std::deque<IPCPacket1*> pendingCommands;
    std::mutex sendLock;
    int connectRetryDelay = 1000;
};

namespace zeb {
// The port of the helper channel, as freePort gave it.
int helperPort();
// Runs one packet on the current thread: module lookup, execute. The
// caller keeps the packet and frees it.
void runCommandPacket(IPCPacket1* packet, bool fromHelper);
}  // namespace zeb
