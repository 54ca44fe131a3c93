#include "core/control_server.h"

#include "core/device_hub.h"
#include "core/fault_command.h"
#include "core/profile.h"
#include "core/socket_io.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <vector>

namespace zsim {
namespace {

constexpr size_t kMaxLine = 4096;

// Names travel inside one space-separated line: escape what would break it.
std::string escapeField(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (c <= 0x20 || c == ',' || c == '%' || c == 0x7F) {
            char hex[4];
            snprintf(hex, sizeof(hex), "%%%02X", c);
            out += hex;
        } else {
            out.push_back(static_cast<char>(c));
        }
    }
    return out;
}

std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> out;
    std::string w;
    while (in >> w) out.push_back(w);
    return out;
}

std::string attach(const std::vector<std::string>& args, const std::string& line, DeviceHub& hub) {
    if (args.size() < 2) return "error: attach needs builtin, a UDID or a profile folder";
    std::string target = line.substr(line.find(args[1]));  // a folder may contain spaces
    while (!target.empty() && (target.back() == ' ' || target.back() == '\r')) target.pop_back();
    std::string error;
    if (target == "builtin") {
        auto device = hub.attachNew(builtinProfile(), error);
        return device ? "ok " + device->udid() : "error: " + error;
    }
    if (hub.find(target)) return hub.reattach(target, error) ? "ok " + target : "error: " + error;
    auto profile = loadProfile(target, error);
    if (!profile) return "error: " + error;
    auto device = hub.attachNew(*profile, error);
    return device ? "ok " + device->udid() : "error: " + error;
}

std::string list(DeviceHub& hub) {
    auto entries = hub.allDevices();
    std::string out = "ok " + std::to_string(entries.size());
    for (auto& e : entries) {
        Device& d = *e.device;
        out += " " + d.udid() + "," + (d.isNetwork() ? "Network" : "USB") + "," + d.trustStateName() + "," +
               (e.attached ? "attached" : "detached") + "," + escapeField(d.deviceName());
    }
    return out;
}

}  // namespace

std::string runControlCommand(const std::string& line, DeviceHub& hub) {
    auto args = words(line);
    if (args.empty()) return "error: empty command";
    const std::string& cmd = args[0];
    if (cmd == "attach") return attach(args, line, hub);
    if (cmd == "list") return list(hub);
    if (cmd == "ping") return "ok";
    if (args.size() < 2) return "error: " + cmd + " needs a UDID";
    std::shared_ptr<Device> device = hub.find(args[1]);
    if (!device) return "error: unknown device " + args[1];
    if (cmd == "detach") return hub.detach(args[1]) ? "ok" : "error: not attached";
    if (cmd == "trust" || cmd == "refuse") {
        device->answerDialog(cmd == "trust");
        return "ok";
    }
    if (cmd == "break") {
        device->breakConnections();
        return "ok";
    }
    if (cmd == "stall") {
        if (args.size() < 3 || (args[2] != "on" && args[2] != "off")) return "error: stall needs on or off";
        device->stalled.store(args[2] == "on");
        return "ok";
    }
    if (cmd == "fault") return runFaultCommand(args, device, hub);
    if (cmd == "refuse-service") {
        if (args.size() < 4 || (args[3] != "on" && args[3] != "off"))
            return "error: refuse-service needs a service name and on or off";
        device->setServiceRefused(args[2], args[3] == "on");
        return "ok";
    }
    return "error: unknown command " + cmd;
}

void serveControlClient(int fd, DeviceHub& hub) {
    std::string pending;
    char buf[512];
    for (;;) {
        ssize_t got = read(fd, buf, sizeof(buf));
        if (got <= 0) break;
        pending.append(buf, static_cast<size_t>(got));
        size_t nl;
        while ((nl = pending.find('\n')) != std::string::npos) {
            std::string line = pending.substr(0, nl);
            pending.erase(0, nl + 1);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            std::string answer = runControlCommand(line, hub) + "\n";
            if (!writeFull(fd, answer.data(), answer.size())) {
                close(fd);
                return;
            }
        }
        if (pending.size() > kMaxLine) {
            const char* tooLong = "error: line too long\n";
            writeFull(fd, tooLong, strlen(tooLong));
            break;
        }
    }
    close(fd);
}

}  // namespace zsim
