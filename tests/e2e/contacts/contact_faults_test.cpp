// Bad input from the parent and faults of the device: every contact command
// still ends with one report, or with none when its envelope is unreadable.
#include "contact_fixture.h"

namespace {

size_t reports(const std::vector<zparent::Event>& events) {
    size_t n = 0;
    for (const auto& event : events) n += zparent::isFinalReport(event);
    return n;
}

TEST_F(ContactCommands, BadInputGetsItsCodeAndAnUnreadableEnvelopeNoReport) {
    startBuiltin();
    EXPECT_EQ(change(103, "no-such-device", zparent::removeTail("1")).code, 7);
    EXPECT_EQ(list("no-such-device").code, 7);
    EXPECT_EQ(change(103, kBuiltinUdid, "not json").code, 8);
    EXPECT_EQ(change(104, kBuiltinUdid, "{\"id\":\"only\"}").code, 21);

    const uint64_t taskId = worker->nextTaskId();
    ASSERT_TRUE(worker->link.sendCommand(taskId, 100, "{\"uuid\":", std::nullopt));
    for (const auto& event : worker->drain(std::chrono::milliseconds(1500)))
        EXPECT_NE(event.frame.taskId, taskId) << "an unreadable command was answered";
    EXPECT_EQ(list(kBuiltinUdid).code, 0);  // and the worker goes on
}

TEST_F(ContactCommands, ARefusedServiceGives13AndNothingIsSent) {
    startBuiltin();
    ASSERT_EQ(sim->control(std::string("refuse-service ") + kBuiltinUdid + " com.apple.mobilesync on"), "ok");
    const ContactListing listing = list(kBuiltinUdid);
    EXPECT_EQ(listing.code, 13);
    EXPECT_EQ(listing.events.size(), 1u);  // the report alone
    const ChangeOutcome added = change(102, kBuiltinUdid, zparent::contactAddTail(zparent::draftFromName("A B"), "P"));
    EXPECT_EQ(added.code, 13);
    EXPECT_EQ(added.replies, 0u);
    ASSERT_EQ(sim->control(std::string("refuse-service ") + kBuiltinUdid + " com.apple.mobilesync off"), "ok");
    EXPECT_EQ(list(kBuiltinUdid).code, 0);
}

// A copy of the 250-contact profile with fault switches of its sync service.
std::unique_ptr<e2e::ProfileVariant> faultyProfile(const std::string& switches) {
    return std::make_unique<e2e::ProfileVariant>(
        "iphone13-ios17-contacts250",
        std::vector<std::pair<std::string, std::string>>{{"<key>BatchSize</key>", switches + "<key>BatchSize</key>"}});
}

TEST_F(ContactCommands, AReadCutOffByTheDeviceGivesWhatArrivedAndCode2) {
    start({"iphone13-ios17-contacts250"}, {kContacts250Udid});
    for (const char* action : {"break", "detach"}) {
        // Two pages of 60 records go out (the groups and the first
        // contacts), then the link breaks or the device is pulled out.
        ASSERT_EQ(sim->control(std::string("fault ") + kContacts250Udid + " sync-page after 2 " + action), "ok");
        const ContactListing listing = list(kContacts250Udid);
        EXPECT_EQ(reports(listing.events), 1u) << action;
        EXPECT_EQ(listing.code, 2) << action;
        EXPECT_EQ(listing.groups.count, 3) << action;
        EXPECT_GT(listing.contacts.count, 0) << action;
        EXPECT_LT(listing.contacts.count, 250) << action;
        EXPECT_EQ(static_cast<int64_t>(listing.contacts.records.MemberCount()), listing.contacts.count) << action;
    }
}

TEST_F(ContactCommands, AFrameLargerThanTenMegabytesEndsTheRead) {
    auto profile = std::make_unique<e2e::ProfileVariant>(
        "iphone13-ios17-contacts250",
        std::vector<std::pair<std::string, std::string>>{
            {"<key>BatchSize</key>\n\t\t<integer>60</integer>", "<key>BatchSize</key><integer>300</integer>"},
            {"<key>ChildrenPerContact</key>", "<key>NotesBytes</key><integer>50000</integer><key>ChildrenPerContact</key>"}});
    start({profile->path()}, {kContacts250Udid});
    const ContactListing listing = list(kContacts250Udid);
    EXPECT_EQ(reports(listing.events), 1u);
    EXPECT_EQ(listing.code, 0);
    EXPECT_EQ(listing.contacts.count, -1);  // nothing arrived, and the device has an account
    // The device is still there for the next command.
    EXPECT_EQ(change(103, kContacts250Udid, zparent::removeTail("1")).code, 0);
}

TEST_F(ContactCommands, ADeviceGoneDuringAnAddGives28) {
    auto profile = faultyProfile("<key>DropOnHostChanges</key><true/>");
    start({profile->path()}, {kContacts250Udid});
    zparent::ContactDraft draft = zparent::draftFromName("Lost Person");
    draft.phones = {{"mobile", "1"}};
    const ChangeOutcome added = change(102, kContacts250Udid, zparent::contactAddTail(draft, "P-1"));
    EXPECT_TRUE(added.reported);
    EXPECT_EQ(added.code, 28);
    EXPECT_EQ(added.replies, 0u);
}

}  // namespace
