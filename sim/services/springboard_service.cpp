// "com.apple.springboardservices": the home screen. Hosts send binary
// property lists with a lower-case "command"; the device answers each in
// the form it was asked. Icons are drawn from the app's identifier, so each
// app has its own picture (core/app_icon.h). setIconState gets no answer,
// as libimobiledevice 1.3.0 reads none.
#include "../service.h"
#include "core/app_icon.h"
#include "core/app_registry.h"
#include "core/app_service_frames.h"

#include <string>
#include <vector>

namespace zsim {
namespace {

constexpr size_t kDockSize = 4;
constexpr size_t kIconsPerPage = 24;

plist_t iconItem(plist_t app) {
    plist_t item = plist_new_dict();
    const std::string id = dictString(app, "CFBundleIdentifier").value_or("");
    const std::string name = dictString(app, "CFBundleDisplayName").value_or(id);
    plist_dict_set_item(item, "displayName", plist_new_string(name.c_str()));
    plist_dict_set_item(item, "displayIdentifier", plist_new_string(id.c_str()));
    plist_dict_set_item(item, "bundleIdentifier", plist_new_string(id.c_str()));
    const std::string version = dictString(app, "CFBundleVersion").value_or("");
    plist_dict_set_item(item, "bundleVersion", plist_new_string(version.c_str()));
    return item;
}

// The dock, then pages of the remaining apps, system apps first.
PlistPtr iconState(AppRegistry& apps) {
    std::vector<PlistPtr> ordered;
    apps.forEach([&](plist_t app) {
        if (dictString(app, "ApplicationType") == std::string("System")) ordered.push_back(adopt(iconItem(app)));
    });
    apps.forEach([&](plist_t app) {
        if (dictString(app, "ApplicationType") != std::string("System")) ordered.push_back(adopt(iconItem(app)));
    });
    PlistPtr state = adopt(plist_new_array());
    plist_t page = plist_new_array();
    size_t onPage = 0;
    size_t limit = kDockSize;
    for (auto& item : ordered) {
        plist_array_append_item(page, item.release());
        if (++onPage == limit) {
            plist_array_append_item(state.get(), page);
            page = plist_new_array();
            onPage = 0;
            limit = kIconsPerPage;
        }
    }
    if (onPage > 0 || plist_array_get_size(state.get()) == 0)
        plist_array_append_item(state.get(), page);
    else
        plist_free(page);
    return state;
}

PlistPtr answerFor(plist_t request, AppRegistry& apps) {
    const std::string command = dictString(request, "command").value_or("");
    PlistPtr answer = adopt(plist_new_dict());
    if (command == "getIconPNGData") {
        const std::string id = dictString(request, "bundleId").value_or("");
        // An identifier the device does not know gets an answer without data.
        if (!id.empty() && apps.find(id)) {
            const std::string png = makeIconPng(id);
            plist_dict_set_item(answer.get(), "pngData", plist_new_data(png.data(), png.size()));
        }
    } else if (command == "getHomeScreenWallpaperPNGData") {
        const std::string png = makeWallpaperPng(160, 320);
        plist_dict_set_item(answer.get(), "pngData", plist_new_data(png.data(), png.size()));
    } else if (command == "getInterfaceOrientation") {
        plist_dict_set_item(answer.get(), "interfaceOrientation", plist_new_uint(1));  // portrait
    } else if (command == "getIconState") {
        return iconState(apps);
    } else if (command == "setIconState") {
        return nullptr;
    } else {
        plist_dict_set_item(answer.get(), "Error", plist_new_string("UnknownCommand"));
    }
    return answer;
}

void serveSpringboard(ServiceStream& stream, const ServiceContext& ctx) {
    AppRegistry& apps = appRegistryFor(ctx);
    std::vector<char> scratch;
    while (!deviceClosing(ctx)) {
        Frame request = readFrame(stream, scratch);
        if (!request.plist) return;
        PlistPtr answer = answerFor(request.plist.get(), apps);
        if (!answer) continue;
        if (!waitWhileStalled(ctx) || !sendFrame(stream, answer.get(), request.binary)) return;
    }
}

ZSIM_REGISTER_SERVICE("com.apple.springboardservices", serveSpringboard);

}  // namespace
}  // namespace zsim
