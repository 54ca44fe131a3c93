#include "zeb_client.h"

#include "zeb_command_table.h"
#include "zeb_module.h"
#include "zeb_quit.h"
#include "zeb_settings.h"
#include "zeb_thread_pool.h"
#include "zeb_zlib_buffer.h"

#include <glog/logging.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

namespace zeb {

namespace {
std::atomic<int> helperPortValue{0};
}

int helperPort() { return helperPortValue.load(); }

void runCommandPacket(IPCPacket1* packet, bool fromHelper) {
    if (ZEBModule* module = findModule(packet->commandType)) {
        if (fromHelper)
            module->executeFromHelper(packet);
        else
            module->execute(packet);
    }
}

namespace {

// The packet goes with the task that carries it, whether the task runs or
// is dropped with a pool that ends first.
void queueCommandPacket(IPCPacket1* packet, bool fromHelper) {
    if (zeb::quitting()) {
        bas::freePacket(packet);
        return;
    }
    std::shared_ptr<IPCPacket1> held(packet, bas::freePacket);
    BASThreadPool::instance()->addTask([held, fromHelper] { runCommandPacket(held.get(), fromHelper); });
}

}  // namespace

}  // namespace zeb

ZEBClient* ZEBClient::instance() {
    static ZEBClient* client = new ZEBClient;  // lives until the process ends
    return client;
}

bool ZEBClient::connectToParent() {
    commandChannel.setPacketHandler(&ZEBClient::onCommandPacket);
    const int port = zeb::settings().parentPort;
    if (port == 0) return false;
    bas::SocketRecord* record = commandChannel.connect(port);
    for (int attempt = 0; !record && attempt < 10; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(connectRetryDelay));
        record = commandChannel.connect(port);
    }
    if (!record) return false;
    record->accepted = 0;
    return true;
}

bool ZEBClient::startHelperListener() {
    helperChannel.setPacketHandler(&ZEBClient::onHelperPacket);
    helperChannel.setEventCallback(&ZEBClient::onHelperEvent);
    int port = bas::IPCChannel::freePort();
    zeb::helperPortValue = port;
    return helperChannel.listen(port) != nullptr;
}

bool ZEBClient::helperMissing() { return zeb::helperPort() == 0 || helperChannel.socketCount() == 0; }

void ZEBClient::onCommandPacket(IPCPacket1* packet) { zeb::queueCommandPacket(packet, false); }

void ZEBClient::onHelperPacket(IPCPacket1* packet) { zeb::queueCommandPacket(packet, true); }

int ZEBClient::onHelperEvent(bas::ChannelEvent* event) {
    if (event->type != bas::kAccepted) return 0;
    ZEBClient* client = instance();
    std::deque<IPCPacket1*> waiting;
    {
        std::lock_guard<std::mutex> hold(client->sendLock);
        waiting.swap(client->pendingCommands);
    }
    for (IPCPacket1* packet : waiting) onCommandPacket(packet);
    return 0;
}

int ZEBClient::sendEvent(const EventEnvelope& envelope, IPCPacket1* packet) {
    std::string text = zeb::buildEventText(envelope);
    if (text.size() >= zeb::kEventTextLimit) {
        // Cut to 16 bits, the text would put the stream out of step; what
        // could not be said whole is answered as bad input instead.
        LOG(ERROR) << "Event text of " << text.size() << " bytes for command " << packet->commandType
                   << " refused";
        EventEnvelope refused;
        refused.stage = envelope.stage;
        refused.code = 21;
        packet->packetStatus = 6;
        return sendEvent(refused, packet);
    }
    const void* tail = envelope.tail;
    uint64_t tailLength = envelope.tailLength;
    std::string compressed;
    if (envelope.type == 0 && tailLength != 0) {
        // A failure leaves what was compressed so far; the event still goes.
        bas::compressBuffer(compressed, tail, tailLength);
        tail = compressed.data();
        tailLength = compressed.size();
    }

    std::lock_guard<std::mutex> hold(sendLock);
    auto sockets = commandChannel.socketsSnapshot();
    if (sockets.empty()) return -1;
    for (bas::SocketRecord* socket : sockets) {
        if (socket->accepted != 0) continue;
        packet->socket = socket;
        packet->data = reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
        packet->length = (tailLength << 32) | (text.size() & 0xFFFFFFFFu);
        commandChannel.sendTextPacket(packet, tailLength != 0 ? tail : nullptr);
    }
    packet->data = nullptr;
    return 0;
}

void ZEBClient::sendToHelper(bas::IPCPacketChannel& channel, IPCPacket1* packet) {
    std::lock_guard<std::mutex> hold(sendLock);
    for (bas::SocketRecord* socket : channel.socketsSnapshot()) {
        if (socket->accepted != 1) continue;
        packet->socket = socket;
        channel.sendPacket(packet);
    }
}
