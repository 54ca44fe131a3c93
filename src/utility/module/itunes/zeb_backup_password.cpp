// Command 1605: the backup password, set through the stock backup tool
// pointed at the same usbmuxd (the environment the worker was started with).
#include "zeb_child_process.h"
#include "zeb_module_itunes.h"

#include <glog/logging.h>

namespace {

// A word for the shell, in single quotes.
std::string shellWord(const std::string& word) {
    std::string out = "'";
    for (char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string member(const rapidjson::Document& request, const char* key) {
    auto found = request.FindMember(key);
    return found != request.MemberEnd() && found->value.IsString() ? found->value.GetString() : std::string();
}

}  // namespace

int64_t ZEBModuleiTunes::changePassword(CommandContext& context, const rapidjson::Document& request) {
    ZEBDevice& device = *context.device;
    const std::string password = member(request, "password"), old = member(request, "oldPassword");
    const bool encrypting = zeb::DeviceFlag(device, "WillEncrypt", "com.apple.mobile.backup");
    std::string action;
    if (!password.empty() && !encrypting)
        action = "encryption on " + shellWord(password);
    else if (!password.empty())
        action = "changepw " + shellWord(old) + " " + shellWord(password);
    else if (encrypting)
        action = "encryption off " + shellWord(old);
    if (!action.empty()) {
        // Standard input is closed: the tool must never wait for a typed password.
        const std::string command = "idevicebackup2 -u " + shellWord(device.udid) + " " + action + " < /dev/null";
        SyncRedirector child;
        int exitCode = -1;
        child.run(command, exitCode);
        if (exitCode != 0) LOG(WARNING) << __FILE__ << " idevicebackup2 ended with " << exitCode << ": " << child.output;
    }
    return zeb::DeviceFlag(device, "WillEncrypt", "com.apple.mobile.backup") ? 0 : 1;
}
