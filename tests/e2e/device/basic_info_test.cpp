// Commands 15, 300, 303 and 600 against simulated devices.
#include "sim_harness.h"

#include <plist/plist.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;
using e2e::Simulator;
using e2e::Worker;
using zparent::Event;

namespace {

struct ReadyDevice {
    std::unique_ptr<Simulator> sim;
    std::unique_ptr<Worker> worker;
    std::string udid;
    int64_t handle = 0;
    std::string readyInfo;
};

// A simulator with the given profiles, a worker, and the first device ready.
ReadyDevice startWith(const std::vector<std::string>& profiles) {
    ReadyDevice ready;
    std::vector<std::string> args;
    for (const auto& profile : profiles) {
        args.push_back("--profile");
        args.push_back(profile);
    }
    ready.sim = std::make_unique<Simulator>(args);
    ready.worker = std::make_unique<Worker>(*ready.sim);
    auto event = ready.worker->waitFor([](const Event& e) { return e.frame.commandType == 1; });
    if (event) {
        ready.udid = event->uuid;
        ready.handle = event->code;
        ready.readyInfo = event->info;
    }
    return ready;
}

rapidjson::Document parse(const std::string& text) {
    rapidjson::Document document;
    document.Parse(text.c_str());
    return document;
}

// The AirTraffic metrics a profile gives, to check the storage object by:
// a kind's own figure, or with `withSubKinds` its own plus its sub-kinds'.
int64_t profileMetric(const std::string& profile, const std::string& kind, const char* field, bool withSubKinds = false) {
    std::ifstream in(profile + "/profile.plist");
    std::stringstream text;
    text << in.rdbuf();
    const std::string xml = text.str();
    plist_t root = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &root);
    plist_t group = plist_access_path(root, 3, "AirTraffic", "AssetMetrics", kind.c_str());
    auto read = [](plist_t node) {
        uint64_t value = 0;
        if (node && plist_get_node_type(node) == PLIST_UINT) plist_get_uint_val(node, &value);
        return static_cast<int64_t>(value);
    };
    int64_t total = read(group && field ? plist_dict_get_item(group, field) : group);
    if (withSubKinds && group && plist_get_node_type(group) == PLIST_DICT) {
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(group, &it);
        char* key = nullptr;
        plist_t sub = nullptr;
        for (plist_dict_next_item(group, it, &key, &sub); sub; plist_dict_next_item(group, it, &key, &sub)) {
            if (plist_get_node_type(sub) == PLIST_DICT) total += read(plist_dict_get_item(sub, field));
            free(key);
        }
        free(it);
    }
    plist_free(root);
    return total;
}

TEST(Overview, ThreePacketsInOrderWithMembersFromTheDevice) {
    const std::string profile = e2e::profileDir("iphone13-ios17");
    ReadyDevice device = startWith({profile});
    ASSERT_FALSE(device.udid.empty());
    auto events = device.worker->run(300, e2e::commandJson(device.udid));
    ASSERT_EQ(events.size(), 3u);
    for (const Event& e : events) EXPECT_EQ(e.frame.commandType, 300u);
    EXPECT_EQ(events[0].frame.packetStatus, 2);
    EXPECT_EQ(events[1].frame.packetStatus, 2);
    EXPECT_EQ(events[2].frame.packetStatus, 1);
    EXPECT_EQ(events[2].code, 0);

    rapidjson::Document first = parse(events[0].tail);
    ASSERT_TRUE(first.IsObject()) << events[0].tail;
    EXPECT_STREQ(first["UniqueDeviceID"].GetString(), device.udid.c_str());
    EXPECT_STREQ(first["ProductVersion"].GetString(), "17.5.1");
    EXPECT_STREQ(first["DeviceClass"].GetString(), "iPhone");
    // Flags travel as numbers, never as JSON booleans.
    ASSERT_TRUE(first.HasMember("PasswordProtected"));
    EXPECT_TRUE(first["PasswordProtected"].IsInt());
    EXPECT_TRUE(first["BatteryIsCharging"].IsInt());
    EXPECT_TRUE(first["TimeIntervalSince1970"].IsInt64());
    EXPECT_TRUE(first["SupportedDeviceFamilies"].IsArray());
    EXPECT_EQ(first["IsJailbreak"].GetInt(), 0);
    EXPECT_TRUE(first.HasMember("TotalDiskCapacity"));
    std::string last;
    for (auto& member : first.GetObject()) last = member.name.GetString();
    EXPECT_EQ(last, "IsJailbreak");

    rapidjson::Document storage = parse(events[1].tail);
    ASSERT_TRUE(storage.IsObject()) << events[1].tail;
    EXPECT_TRUE(storage.HasMember("CycleCount"));
    EXPECT_EQ(storage["Data_PhysicalSize"].GetInt64(), profileMetric(profile, "_PhysicalSize", nullptr));
    EXPECT_EQ(storage["Data_FreeSize"].GetInt64(), profileMetric(profile, "_FreeSize", nullptr));
    EXPECT_EQ(storage["Application_Count"].GetInt64(), profileMetric(profile, "Application", "_Count"));
    // A kind's figures add its sub-kinds' to its own.
    EXPECT_EQ(storage["Photo_Count"].GetInt64(), profileMetric(profile, "Photo", "_Count", true));
    // Sub-kinds count as kinds of their own: Music inside Media, CameraRoll
    // inside Photo; what has no place of its own comes as an extra pair.
    EXPECT_EQ(storage["Music_Count"].GetInt64(), 198);
    EXPECT_EQ(storage["CameraRoll_Count"].GetInt64(), 384);
    EXPECT_EQ(storage["Media_Count"].GetInt64(), profileMetric(profile, "Media", "_Count", true));
    EXPECT_EQ(storage["Media_PhysicalSize"].GetInt64(), profileMetric(profile, "Media", "_PhysicalSize", true));
    int64_t kinds = 0;
    for (const char* kind : {"Application", "Photo", "CameraRoll", "Movie", "Book", "Music", "Ringtone"})
        kinds += storage[(std::string(kind) + "_PhysicalSize").c_str()].GetInt64();
    EXPECT_EQ(storage["Data_Others_PhysicalSize"].GetInt64(),
              storage["Data_PhysicalSize"].GetInt64() - storage["Data_FreeSize"].GetInt64() - kinds);
}

TEST(Overview, ADeviceThatGivesItsDomainsOnlyKeyByKeyIsReadTheSame) {
    const std::string profile = e2e::profileDir("iphone13-ios17");
    e2e::ProfileVariant keyByKey(
        "iphone13-ios17", {{"<key>Values</key>", "<key>WholeDomainReads</key><false/><key>Values</key>"}});
    ReadyDevice whole = startWith({profile});
    ReadyDevice single = startWith({keyByKey.path()});
    ASSERT_FALSE(whole.udid.empty());
    ASSERT_FALSE(single.udid.empty()) << "the bring-up must read the values one by one";
    rapidjson::Document readyWhole = parse(whole.readyInfo), readySingle = parse(single.readyInfo);
    ASSERT_TRUE(readyWhole.IsObject() && readySingle.IsObject()) << single.readyInfo;
    readyWhole.RemoveMember("Pid");  // each worker its own
    readySingle.RemoveMember("Pid");
    EXPECT_EQ(readySingle, readyWhole) << single.readyInfo;

    auto first = [](ReadyDevice& device) {
        auto events = device.worker->run(300, e2e::commandJson(device.udid));
        return events.size() == 3 ? parse(events[0].tail) : rapidjson::Document();
    };
    rapidjson::Document fromWhole = first(whole);
    rapidjson::Document fromSingle = first(single);
    ASSERT_TRUE(fromWhole.IsObject());
    ASSERT_TRUE(fromSingle.IsObject());
    ASSERT_EQ(fromSingle.MemberCount(), fromWhole.MemberCount());
    for (auto a = fromWhole.MemberBegin(), b = fromSingle.MemberBegin(); a != fromWhole.MemberEnd(); ++a, ++b) {
        ASSERT_STREQ(b->name.GetString(), a->name.GetString()) << "members in the same order";
        if (std::string(a->name.GetString()) != "TimeIntervalSince1970")
            EXPECT_EQ(b->value, a->value) << a->name.GetString();
    }
}

TEST(Overview, JailbreakMissingValuesIdleExitAndUnknownKinds) {
    e2e::ProfileVariant quiet("ipad-air-ios15", {{"<string>metrics</string>", "<string>idleexit</string>"}});
    e2e::ProfileVariant extra("iphonex-ios14-jailbroken",
                              {{"<key>AssetMetrics</key>\n\t\t<dict>",
                                "<key>AssetMetrics</key>\n\t\t<dict>\n\t\t\t<key>Widget</key><dict><key>_Count</key>"
                                "<integer>3</integer><key>_PhysicalSize</key><integer>100</integer></dict>"}});
    ReadyDevice pad = startWith({quiet.path()});
    ASSERT_FALSE(pad.udid.empty());
    auto events = pad.worker->run(300, e2e::commandJson(pad.udid));
    ASSERT_EQ(events.size(), 3u);
    rapidjson::Document first = parse(events[0].tail);
    EXPECT_FALSE(first.HasMember("PhoneNumber")) << "an iPad without telephony has no phone number";
    EXPECT_FALSE(first.HasMember("InternationalMobileEquipmentIdentity"));
    rapidjson::Document storage = parse(events[1].tail);
    for (auto& member : storage.GetObject())
        if (std::string(member.name.GetString()) != "CycleCount") EXPECT_EQ(member.value.GetInt64(), 0) << member.name.GetString();

    ReadyDevice jailbroken = startWith({extra.path()});
    ASSERT_FALSE(jailbroken.udid.empty());
    events = jailbroken.worker->run(300, e2e::commandJson(jailbroken.udid));
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(parse(events[0].tail)["IsJailbreak"].GetInt(), 1);
    storage = parse(events[1].tail);
    ASSERT_TRUE(storage.HasMember("Widget_Count")) << events[1].tail;
    EXPECT_EQ(storage["Widget_Count"].GetInt64(), 3);
    EXPECT_EQ(storage["Widget_PhysicalSize"].GetInt64(), 100);
}

TEST(Commands, RenameReadyCheckVersionsAndBadInput) {
    ReadyDevice device = startWith({e2e::profileDir("iphone13-ios17")});
    ASSERT_FALSE(device.udid.empty());
    Worker& worker = *device.worker;

    auto renamed = worker.run(303, e2e::commandJson(device.udid), std::string("{\"name\":\"Kitchen Phone\"}"));
    ASSERT_FALSE(renamed.empty());
    EXPECT_EQ(renamed.back().code, 0);
    EXPECT_NE(device.sim->control("list").find("Kitchen%20Phone"), std::string::npos) << device.sim->control("list");

    // A payload of version 2 does nothing and answers 0.
    zparent::Frame frame;
    frame.taskId = worker.nextTaskId();
    frame.commandType = 303;
    frame.payload = std::string("2\0", 2) + e2e::commandJson(device.udid) + std::string("\0", 1);
    ASSERT_TRUE(worker.link.send(zparent::encodeFrame(frame)));
    auto answer = worker.waitFor([&](const Event& e) { return e.frame.taskId == frame.taskId; });
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, 0);

    EXPECT_EQ(worker.run(15, e2e::commandJson(device.udid)).back().code, 0);
    EXPECT_EQ(worker.run(15, e2e::commandJson("", device.handle)).back().code, 0) << "the handle finds it too";
    auto unknown = worker.run(300, e2e::commandJson("0000-NOT-A-DEVICE"));
    EXPECT_EQ(unknown.back().code, 7);
    EXPECT_EQ(unknown.back().frame.packetStatus, 6);
    auto bad = worker.run(300, "{\"uuid\":");
    EXPECT_EQ(bad.back().code, 21);
    EXPECT_EQ(bad.back().uuid, "");
    EXPECT_EQ(worker.run(303, e2e::commandJson(device.udid), std::string("not json")).back().code, 8);
}

TEST(Commands, CancelAnswersForUnknownTasksAndGoneDevices) {
    ReadyDevice device = startWith({e2e::profileDir("iphone13-ios17")});
    ASSERT_FALSE(device.udid.empty());
    Worker& worker = *device.worker;
    EXPECT_EQ(worker.run(600, e2e::commandJson(device.udid, 987654)).back().code, 0);
    EXPECT_EQ(worker.run(600, e2e::commandJson("", 987654)).back().code, 0);
    ASSERT_EQ(device.sim->control("detach " + device.udid), "ok");
    ASSERT_TRUE(worker.waitFor([](const Event& e) { return e.frame.commandType == 8; }));
    auto gone = worker.run(600, e2e::commandJson(device.udid, 1));
    EXPECT_EQ(gone.back().code, 7);
}

TEST(Commands, ADevicePulledOutDuringTheOverviewEndsTheCommandAndTheWorkerStays) {
    ReadyDevice device = startWith({e2e::profileDir("iphone13-ios17")});
    ASSERT_FALSE(device.udid.empty());
    Worker& worker = *device.worker;
    ASSERT_EQ(device.sim->control("stall " + device.udid + " on"), "ok");
    const uint64_t taskId = worker.nextTaskId();
    ASSERT_TRUE(worker.link.sendCommand(taskId, 300, e2e::commandJson(device.udid)));
    std::this_thread::sleep_for(500ms);
    ASSERT_EQ(device.sim->control("detach " + device.udid), "ok");
    auto report = worker.waitFor([&](const Event& e) { return e.frame.taskId == taskId && zparent::isFinalReport(e); }, 60s);
    ASSERT_TRUE(report) << "the overview never ended";
    ASSERT_TRUE(worker.waitFor([](const Event& e) { return e.frame.commandType == 8; }, 20s));
    // Still answering: a command for the gone device gets its 7.
    EXPECT_EQ(worker.run(300, e2e::commandJson(device.udid)).back().code, 7);
}

TEST(Commands, TwoDevicesAnswerInterleavedCommands) {
    ReadyDevice pair = startWith({e2e::profileDir("iphone13-ios17"), e2e::profileDir("iphone6s-ios9")});
    ASSERT_FALSE(pair.udid.empty());
    auto second = pair.worker->waitFor([&](const Event& e) { return e.frame.commandType == 1 && e.uuid != pair.udid; });
    ASSERT_TRUE(second);
    Worker& worker = *pair.worker;
    const uint64_t firstTask = worker.nextTaskId();
    const uint64_t secondTask = worker.nextTaskId();
    ASSERT_TRUE(worker.link.sendCommand(firstTask, 300, e2e::commandJson(pair.udid)));
    ASSERT_TRUE(worker.link.sendCommand(secondTask, 300, e2e::commandJson(second->uuid)));
    std::map<uint64_t, std::vector<Event>> byTask;
    for (int done = 0; done < 2;) {
        auto event = worker.waitFor([&](const Event& e) { return e.frame.taskId == firstTask || e.frame.taskId == secondTask; }, 30s);
        ASSERT_TRUE(event);
        byTask[event->frame.taskId].push_back(*event);
        done += zparent::isFinalReport(*event);
    }
    ASSERT_EQ(byTask[firstTask].size(), 3u);
    ASSERT_EQ(byTask[secondTask].size(), 3u);
    // Devices come up in either order; each answer is its own device's.
    for (const auto& [task, udid] : {std::pair{firstTask, pair.udid}, std::pair{secondTask, second->uuid}}) {
        auto overview = parse(byTask[task][0].tail);
        EXPECT_STREQ(overview["UniqueDeviceID"].GetString(), udid.c_str());
        const bool six = udid == "a1b2c3d4e5f60718293a4b5c6d7e8f9012345678";
        EXPECT_STREQ(overview["ProductVersion"].GetString(), six ? "9.3.5" : "17.5.1") << udid;
    }
}

}  // namespace

namespace {

TEST(Commands, ManyCommandsAtOnceShareTheDevicesLockdownLinkAndEachGetsItsOwnWholeAnswer) {
    // Sixteen overviews and a rename check sent without waiting: the pool
    // runs them side by side on the one cached lockdown session. Each must
    // come back whole and as its own, none mixed with another's reply.
    ReadyDevice ready = startWith({e2e::profileDir("iphone13-ios17")});
    ASSERT_FALSE(ready.udid.empty());
    Worker& worker = *ready.worker;
    std::set<uint64_t> tasks;
    for (int i = 0; i < 16; ++i) {
        const uint64_t task = worker.nextTaskId();
        ASSERT_TRUE(worker.link.sendCommand(task, 300, e2e::commandJson(ready.udid)));
        tasks.insert(task);
    }
    std::map<uint64_t, std::vector<Event>> byTask;
    for (size_t done = 0; done < tasks.size();) {
        auto event = worker.waitFor([&](const Event& e) { return tasks.count(e.frame.taskId) != 0; }, 60s);
        ASSERT_TRUE(event) << done << " of " << tasks.size() << " answered";
        byTask[event->frame.taskId].push_back(*event);
        done += zparent::isFinalReport(*event);
    }
    std::string firstOverview;
    for (uint64_t task : tasks) {
        const std::vector<Event>& events = byTask[task];
        ASSERT_EQ(events.size(), 3u) << "task " << task;
        EXPECT_EQ(events.back().code, 0) << "task " << task;
        auto overview = parse(events[0].tail);
        ASSERT_TRUE(overview.IsObject()) << "task " << task;
        EXPECT_STREQ(overview["UniqueDeviceID"].GetString(), ready.udid.c_str());
        EXPECT_STREQ(overview["ProductVersion"].GetString(), "17.5.1");
        // The device's clock is the one value that may move between reads.
        overview.RemoveMember("TimeIntervalSince1970");
        rapidjson::StringBuffer text;
        rapidjson::Writer<rapidjson::StringBuffer> writer(text);
        overview.Accept(writer);
        if (firstOverview.empty()) firstOverview = text.GetString();
        EXPECT_EQ(text.GetString(), firstOverview) << "task " << task << " read other values";
    }
    // The link is still good for a command after the burst.
    const std::vector<Event> after = worker.run(300, e2e::commandJson(ready.udid));
    ASSERT_FALSE(after.empty());
    EXPECT_EQ(after.back().code, 0);
}

}  // namespace
