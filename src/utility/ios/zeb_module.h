// ZEBModule: the base of every module. One object serves all its command
// numbers for all devices on all pool threads, so it keeps no per-command
// state.
#pragma once

#include "zeb_command_context.h"
#include "zeb_packet.h"

#include <cstdint>
#include <functional>
#include <list>
#include <mutex>

class ZEBModule {
public:
    using Callback = void (*)(void* argument, void* callbackData, int flag, void* argument2);

    virtual ~ZEBModule() = default;
    virtual int notifyBegin(void* argument);
    // Runs one command. The packet belongs to the pool task that called.
    virtual int execute(IPCPacket1* packet);
    virtual int reserved() { return 0; }
    virtual int executeFromHelper(IPCPacket1* packet) { return 0; }
    // The command's one final answer: stage 0, and a packetStatus derived
    // from the code (0 success, 6 cancelled, anything else an error).
    int report(const IPCPacket1* packet, const char* uuid, int64_t code, const char* info);

    using Operation = std::function<int64_t(CommandContext&)>;
    // The routine every command runs first (parse, device, task, version),
    // then `operation`, then the final report unless it answered itself.
    void dispatch(IPCPacket1* packet, const DispatchRules& rules, const Operation& operation);

protected:
    std::list<void*> items;
    uint64_t itemCount = 0;
    Callback callback = nullptr;
    void* callbackData = nullptr;
    std::mutex lock;

private:
    void runDispatched(IPCPacket1* packet, const DispatchRules& rules, const Operation& operation);
};

namespace zeb {
uint16_t packetStatusForCode(int64_t code);
}
