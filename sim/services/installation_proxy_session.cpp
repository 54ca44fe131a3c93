#include "installation_proxy_session.h"

#include "core/app_service_frames.h"
#include "core/fault_points.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <thread>
#include <vector>

namespace zsim::instproxy {
namespace fs = std::filesystem;

namespace {

// Browse pages: a device sends its list in slices of about this many apps.
constexpr size_t kPageSize = 20;

// Error names the host knows, with the detail code sent beside them.
const std::map<std::string, unsigned> kErrorDetails = {
    {"UnknownCommand", 1},           {"MissingCommand", 2},         {"MissingPackagePath", 3},
    {"PackageExtractionFailed", 4},  {"PackageInspectionFailed", 5}, {"MissingBundleVersion", 6},
    {"MissingApplicationIdentifier", 7}, {"LookupFailed", 8},       {"AlreadyArchived", 9},
    {"UninstallProhibited", 10},     {"ArchiveDestructionFailed", 11}, {"APIInternalError", 12},
};

bool isStringArray(plist_t node) {
    if (!node || plist_get_node_type(node) != PLIST_ARRAY || plist_array_get_size(node) == 0) return false;
    for (uint32_t i = 0; i < plist_array_get_size(node); ++i)
        if (plist_get_node_type(plist_array_get_item(node, i)) != PLIST_STRING) return false;
    return true;
}

// The attributes the host asked for; without a list, everything but the
// disk usage, which a device only computes on request.
PlistPtr selectAttributes(plist_t app, plist_t wanted) {
    PlistPtr out = adopt(plist_new_dict());
    if (isStringArray(wanted)) {
        for (uint32_t i = 0; i < plist_array_get_size(wanted); ++i) {
            std::string key = stringValue(plist_array_get_item(wanted, i)).value_or("");
            if (plist_t value = plist_dict_get_item(app, key.c_str()))
                plist_dict_set_item(out.get(), key.c_str(), plist_copy(value));
        }
        return out;
    }
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(app, &it);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(app, it, &key, &value);
        if (!key) break;
        const std::string name = key;
        free(key);
        if (name != "StaticDiskUsage" && name != "DynamicDiskUsage")
            plist_dict_set_item(out.get(), name.c_str(), plist_copy(value));
    }
    free(it);
    return out;
}

bool typeMatches(plist_t app, plist_t options) {
    const std::string wanted = dictString(options, "ApplicationType").value_or("Any");
    return wanted == "Any" || dictString(app, "ApplicationType").value_or("") == wanted;
}

std::chrono::milliseconds stepDelayOf(plist_t profile) {
    const uint64_t ms = dictUInt(dictDict(profile, "Apps"), "StepMilliseconds").value_or(0);
    return std::chrono::milliseconds(std::min<uint64_t>(ms, 10000));
}

}  // namespace

bool isUsableIdentifier(const std::string& id) {
    return !id.empty() && id != "." && id != ".." && id.find('/') == std::string::npos &&
           id.find('\0') == std::string::npos;
}

Session::Session(ServiceStream& stream, const ServiceContext& ctx)
    : stream_(stream), ctx_(ctx), apps_(appRegistryFor(ctx)), stepDelay_(stepDelayOf(ctx.profile)) {}

bool Session::progress(const char* status, unsigned percent) {
    if (stepDelay_.count() > 0) std::this_thread::sleep_for(stepDelay_);
    if (!waitWhileStalled(ctx_)) return false;
    PlistPtr m = adopt(plist_new_dict());
    plist_dict_set_item(m.get(), "PercentComplete", plist_new_uint(percent));
    plist_dict_set_item(m.get(), "Status", plist_new_string(status));
    return sendFrame(stream_, m.get(), false);
}

bool Session::complete(plist_t extra) {
    if (!waitWhileStalled(ctx_)) return false;
    PlistPtr m = adopt(extra ? plist_copy(extra) : plist_new_dict());
    plist_dict_set_item(m.get(), "Status", plist_new_string("Complete"));
    return sendFrame(stream_, m.get(), false);
}

bool Session::error(const char* name, const std::string& description) {
    if (!waitWhileStalled(ctx_)) return false;
    PlistPtr m = adopt(plist_new_dict());
    plist_dict_set_item(m.get(), "Error", plist_new_string(name));
    plist_dict_set_item(m.get(), "ErrorDescription", plist_new_string(description.c_str()));
    auto detail = kErrorDetails.find(name);
    plist_dict_set_item(m.get(), "ErrorDetail", plist_new_uint(detail == kErrorDetails.end() ? 0 : detail->second));
    return sendFrame(stream_, m.get(), false);
}

fs::path Session::packageFile(const std::string& packagePath) const {
    std::string rel = packagePath;
    // Hosts give the path relative to the media partition, some with the
    // partition's own location in front.
    for (const char* root : {"/private/var/mobile/Media/", "/var/mobile/Media/"}) {
        if (rel.rfind(root, 0) == 0) rel = rel.substr(std::string(root).size());
    }
    while (!rel.empty() && rel[0] == '/') rel.erase(0, 1);
    fs::path relative(rel);
    if (rel.empty()) return {};
    for (const auto& part : relative)
        if (part == "..") return {};
    std::error_code ec;
    const fs::path root = fs::weakly_canonical(ctx_.mediaRoot, ec);
    const fs::path file = fs::weakly_canonical(ctx_.mediaRoot / relative, ec);
    if (ec) return {};
    // Links inside the partition must not lead out of it.
    auto [r, f] = std::mismatch(root.begin(), root.end(), file.begin(), file.end());
    if (r != root.end()) return {};
    return file;
}

bool Session::run(plist_t request) {
    command_ = dictString(request, "Command").value_or("");
    plist_t options = dictDict(request, "ClientOptions");
    if (command_.empty()) return error("MissingCommand", "The request has no Command");
    if (command_ == "Browse") return browse(options);
    if (command_ == "Lookup") return lookup(options);
    if (command_ == "LookupArchives") return lookupArchives();
    if (command_ == "Install") return install(*this, request, false);
    if (command_ == "Upgrade") return install(*this, request, true);
    if (command_ == "Uninstall") return uninstall(*this, request);
    if (command_ == "Archive") return archive(*this, request);
    if (command_ == "Restore") return restore(*this, request);
    if (command_ == "RemoveArchive") return removeArchive(*this, request);
    if (command_ == "CheckCapabilitiesMatch") {
        PlistPtr answer = adopt(plist_new_dict());
        plist_dict_set_item(answer.get(), "LookupResult", plist_new_bool(1));
        return complete(answer.get());
    }
    return error("UnknownCommand", "Unknown command " + command_);
}

bool Session::browse(plist_t options) {
    plist_t wanted = plist_dict_get_item(options, "ReturnAttributes");
    std::vector<PlistPtr> entries;
    apps_.forEach([&](plist_t app) {
        if (typeMatches(app, options)) entries.push_back(selectAttributes(app, wanted));
    });
    for (size_t first = 0; first < entries.size(); first += kPageSize) {
        passFaultPoint(ctx_.udid, "browse-page", 1);
        if (!waitWhileStalled(ctx_)) return false;
        const size_t amount = std::min(kPageSize, entries.size() - first);
        PlistPtr page = adopt(plist_new_dict());
        plist_t list = plist_new_array();
        for (size_t i = first; i < first + amount; ++i) plist_array_append_item(list, entries[i].release());
        plist_dict_set_item(page.get(), "CurrentAmount", plist_new_uint(amount));
        plist_dict_set_item(page.get(), "CurrentIndex", plist_new_uint(first));
        plist_dict_set_item(page.get(), "CurrentList", list);
        plist_dict_set_item(page.get(), "Status", plist_new_string("BrowsingApplications"));
        plist_dict_set_item(page.get(), "Total", plist_new_uint(entries.size()));
        if (!sendFrame(stream_, page.get(), false)) return false;
    }
    return complete();
}

bool Session::lookup(plist_t options) {
    plist_t wanted = plist_dict_get_item(options, "ReturnAttributes");
    plist_t ids = plist_dict_get_item(options, "BundleIDs");
    std::vector<std::string> only;
    if (isStringArray(ids)) {
        for (uint32_t i = 0; i < plist_array_get_size(ids); ++i) {
            only.push_back(stringValue(plist_array_get_item(ids, i)).value_or(""));
        }
    }
    PlistPtr result = adopt(plist_new_dict());
    apps_.forEach([&](plist_t app) {
        const std::string id = dictString(app, "CFBundleIdentifier").value_or("");
        const bool listed = only.empty() ? typeMatches(app, options)
                                         : std::find(only.begin(), only.end(), id) != only.end();
        if (listed) plist_dict_set_item(result.get(), id.c_str(), selectAttributes(app, wanted).release());
    });
    PlistPtr answer = adopt(plist_new_dict());
    plist_dict_set_item(answer.get(), "LookupResult", result.release());
    return complete(answer.get());
}

bool Session::lookupArchives() {
    PlistPtr answer = adopt(plist_new_dict());
    plist_dict_set_item(answer.get(), "LookupResult", apps_.archives().release());
    return complete(answer.get());
}

}  // namespace zsim::instproxy
