// Requests a host could send to the simulator's lockdown: 4-byte big-endian
// lengths and property lists, answered by the request handler of one
// connection without sockets (a StartSession's TLS handshake counts as
// done). The first byte picks how the device trusts new hosts. Each input
// gets a fresh device on the built-in profile, its key made once.
#include "core/device.h"
#include "core/device_keys.h"
#include "core/lockdown_requests.h"
#include "core/profile.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;
using namespace zsim;

namespace {

void noFiles(ServiceStream&, const ServiceContext&) {}
void noDiagnostics(ServiceStream&, const ServiceContext&) {}
// StartService succeeds for these names, as for the services built in.
ZSIM_REGISTER_SERVICE("com.apple.afc", noFiles);
ZSIM_REGISTER_SERVICE("com.apple.mobile.diagnostics_relay", noDiagnostics);

const char* const kTrust[] = {"trusted", "untrusted", "password"};

struct Scratch {
    fs::path path = fs::temp_directory_path() / ("zsim-fuzz-lockdown-" + std::to_string(getpid()));
    std::string key = generatePrivateKeyPem(1024);
    ~Scratch() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
};

std::unique_ptr<Device> freshDevice(const Scratch& scratch, const char* trust) {
    const fs::path state = scratch.path / "device";
    fs::remove_all(state);
    fs::create_directories(state);
    // The key is made once; the media partition is not needed here.
    PlistPtr memory = adopt(plist_new_dict());
    plist_dict_set_item(memory.get(), "PrivateKey", plist_new_string(scratch.key.c_str()));
    writePlistFile(state / "device.plist", memory.get());
    fclose(fopen((state / "media.ready").c_str(), "w"));

    static const Profile builtin = builtinProfile();
    PlistPtr profile = parsePlist(builtin.plistText.data(), builtin.plistText.size());
    plist_dict_set_item(profile.get(), "Trust", plist_new_string(trust));
    auto device = std::make_unique<Device>("00008110-001A2B3C4D5E601E", std::move(profile), state, fs::path());
    std::string error;
    if (!device->load(error)) abort();
    return device;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Scratch scratch;
    if (size < 1) return 0;
    std::unique_ptr<Device> device = freshDevice(scratch, kTrust[data[0] % 3]);
    LockdownRequests requests(*device);
    size_t at = 1;
    while (size - at >= 4) {
        auto length = lockdownFrameLength(data + at);
        if (!length) break;  // the connection is dropped
        at += 4;
        if (*length > size - at) break;  // the connection would wait for the rest
        PlistPtr request = parsePlist(reinterpret_cast<const char*>(data + at), *length);
        at += *length;
        if (!request) break;
        LockdownReply reply = requests.handle(request.get());
        if (reply.answer && toXml(reply.answer.get()).empty()) abort();
        if (reply.step == LockdownStep::Close) break;
        if (reply.step == LockdownStep::StartTls) requests.sessionStarted();
    }
    return 0;
}
