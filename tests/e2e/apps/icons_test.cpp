// Command 502: icons as raw PNG tails, byte for byte what springboard gives.
#include "app_fixture.h"

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/sbservices.h>

#include <cstdlib>

namespace {

// The icon as the stock library reads it from the same device.
std::string springboardIcon(const std::string& socketPath, const std::string& udid, const std::string& id) {
    setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + socketPath).c_str(), 1);
    idevice_t device = nullptr;
    std::string png;
    if (idevice_new_with_options(&device, udid.c_str(), IDEVICE_LOOKUP_USBMUX) != IDEVICE_E_SUCCESS) return png;
    sbservices_client_t client = nullptr;
    if (sbservices_client_start_service(device, &client, "app-e2e") == SBSERVICES_E_SUCCESS) {
        char* data = nullptr;
        uint64_t size = 0;
        if (sbservices_get_icon_pngdata(client, id.c_str(), &data, &size) == SBSERVICES_E_SUCCESS && data)
            png.assign(data, size);
        free(data);
        sbservices_client_free(client);
    }
    idevice_free(device);
    return png;
}

}  // namespace

TEST_F(AppCommands, IconsComeInOrderAsTheDeviceServesThem) {
    start(e2e::profileDir(kApps23), kApps23Udid);
    const std::vector<std::string> ids = {"net.lumen.reader", "com.northwindlabs.notes"};
    auto events = run(502, jsonArray({ids[0], "com.example.not-installed", ids[1]}));
    ASSERT_EQ(events.size(), 3u);  // two icons and the report; nothing for the unknown one
    for (size_t i = 0; i < 2; ++i) {
        const auto& icon = events[i];
        EXPECT_EQ(icon.stage, 0);
        EXPECT_EQ(icon.type, 1);
        EXPECT_EQ(icon.frame.packetStatus, 2);
        EXPECT_EQ(icon.frame.commandType, 502u);
        EXPECT_STREQ(parseJson(icon.info)["bundle_id"].GetString(), ids[i].c_str());
        ASSERT_GT(icon.tail.size(), 8u);
        EXPECT_EQ(icon.tail.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
        EXPECT_EQ(icon.tail, springboardIcon(sim->socketPath(), udid, ids[i])) << ids[i];
    }
    EXPECT_NE(events[0].tail, events[1].tail);
    EXPECT_EQ(events.back().code, 0);
}

TEST_F(AppCommands, IconFaultsEndWithTheirCodes) {
    start(e2e::profileDir(kApps23), kApps23Udid);
    auto notArray = run(502, std::string("{\"id\":\"net.lumen.reader\"}"));
    ASSERT_EQ(notArray.size(), 1u);
    EXPECT_EQ(notArray[0].code, 8);
    auto notJson = run(502, std::string("net.lumen.reader"));
    ASSERT_EQ(notJson.size(), 1u);
    EXPECT_EQ(notJson[0].code, 8);

    // Texts that XML would take as markup reach the device as plain text.
    auto markup = run(502, jsonArray({"a<b&c", "net.lumen.reader"}));
    ASSERT_EQ(markup.size(), 2u);
    EXPECT_STREQ(parseJson(markup[0].info)["bundle_id"].GetString(), "net.lumen.reader");

    ASSERT_EQ(sim->control("refuse-service " + udid + " com.apple.springboardservices on"), "ok");
    auto refused = run(502, jsonArray({"net.lumen.reader"}));
    ASSERT_EQ(refused.size(), 1u);
    EXPECT_EQ(refused[0].code, 14);
}
