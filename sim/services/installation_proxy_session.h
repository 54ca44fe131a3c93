// One host connection to "com.apple.mobile.installation_proxy": the
// commands it runs and how it reports to the host. Every message but a
// final error carries "Status" (libimobiledevice 1.3.0 stops reading at the
// first message without one); a command ends with exactly one
// {Status: Complete} or one {Error, ErrorDescription, ErrorDetail}.
#pragma once

#include "../service.h"
#include "core/app_registry.h"
#include "core/plist_util.h"

#include <chrono>
#include <filesystem>
#include <string>

namespace zsim::instproxy {

class Session {
public:
    Session(ServiceStream& stream, const ServiceContext& ctx);

    // Runs one command; false when the connection is over.
    bool run(plist_t command);

    // Reporting.
    bool progress(const char* status, unsigned percent);
    bool complete(plist_t extra = nullptr);
    bool error(const char* name, const std::string& description);

    AppRegistry& apps() { return apps_; }
    const ServiceContext& context() const { return ctx_; }
    const std::string& command() const { return command_; }

    // The package a host staged, from its PackagePath; empty when the path
    // leaves the media partition.
    std::filesystem::path packageFile(const std::string& packagePath) const;

private:
    bool browse(plist_t options);
    bool lookup(plist_t options);
    bool lookupArchives();

    ServiceStream& stream_;
    const ServiceContext& ctx_;
    AppRegistry& apps_;
    std::string command_;
    std::chrono::milliseconds stepDelay_{0};
};

// Commands that change the device, each in its own file.
bool install(Session& session, plist_t request, bool upgrade);
bool uninstall(Session& session, plist_t request);
bool archive(Session& session, plist_t request);
bool restore(Session& session, plist_t request);
bool removeArchive(Session& session, plist_t request);

// Identifiers that may name files on the device (archives are files).
bool isUsableIdentifier(const std::string& id);

}  // namespace zsim::instproxy
