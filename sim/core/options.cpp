#include "core/options.h"

#include <cstdlib>
#include <cstring>
#include <system_error>

namespace zsim {

const char* usageText() {
    return "usage: zebrelo-sim --socket PATH [--profile DIR]... [--builtin] [--state DIR] [--control PATH]\n"
           "  --socket PATH   usbmuxd socket to listen on (hosts use USBMUXD_SOCKET_ADDRESS=UNIX:PATH)\n"
           "  --profile DIR   add a device from a profile folder (repeatable)\n"
           "  --builtin       add the built-in device too (it is the default without --profile)\n"
           "  --state DIR     keep pair records, names and media writes there (default: a temporary folder)\n"
           "  --control PATH  control socket: attach, detach, trust, refuse, list, break, stall\n";
}

bool parseOptions(int argc, char** argv, Options& options, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) {
                error = arg + " needs a value";
                return false;
            }
            out = argv[++i];
            return true;
        };
        std::string v;
        if (arg == "--socket") {
            if (!value(options.socketPath)) return false;
        } else if (arg == "--control") {
            if (!value(options.controlPath)) return false;
        } else if (arg == "--profile") {
            if (!value(v)) return false;
            options.profiles.emplace_back(v);
        } else if (arg == "--state") {
            if (!value(v)) return false;
            options.stateDir = v;
        } else if (arg == "--builtin") {
            options.builtin = true;
        } else if (arg == "--help" || arg == "-h") {
            options.help = true;
            return true;
        } else {
            error = "unknown option " + arg;
            return false;
        }
    }
    if (options.socketPath.empty()) {
        error = "--socket is required";
        return false;
    }
    std::error_code ec;
    if (options.stateDir.empty()) {
        std::string tmpl = (std::filesystem::temp_directory_path(ec) / "zebrelo-sim-XXXXXX").string();
        if (!mkdtemp(tmpl.data())) {
            error = "cannot create a temporary state folder";
            return false;
        }
        options.stateDir = tmpl;
        options.stateIsTemporary = true;
    } else {
        std::filesystem::create_directories(options.stateDir, ec);
        if (ec) {
            error = "cannot create state folder " + options.stateDir.string() + ": " + ec.message();
            return false;
        }
    }
    options.stateDir = std::filesystem::absolute(options.stateDir, ec);
    return true;
}

}  // namespace zsim
