// com.apple.mobilesync driven over a socket pair in its raw wire form: the
// orders of messages other hosts use that libimobiledevice's client cannot
// produce, the device's ids for what hosts send, and values coming back
// exactly as they went in.
#include "core/plist_util.h"
#include "plist_frames.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <thread>

using namespace wiretest;
using zsim::adopt;
using zsim::PlistPtr;
namespace fs = std::filesystem;

namespace {

const char* const kEmpty = "___EmptyParameterString___";
const char* const kContacts = "com.apple.Contacts";
const char* const kEntity = "com.apple.syncservices.RecordEntityName";

// Ann with a phone number, in a group; two records to a page.
const char* const kProfile = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
  <key>Sync</key><dict>
    <key>BatchSize</key><integer>2</integer>
    %EXTRA%
    <key>Contacts</key><dict><key>Records</key><dict>
      <key>1</key><dict>
        <key>com.apple.syncservices.RecordEntityName</key><string>com.apple.contacts.Contact</string>
        <key>first name</key><string>Ann</string>
        <key>display as company</key><string>person</string></dict>
      <key>3/1/0</key><dict>
        <key>com.apple.syncservices.RecordEntityName</key><string>com.apple.contacts.Phone Number</string>
        <key>contact</key><array><string>1</string></array>
        <key>type</key><string>mobile</string>
        <key>value</key><string>+1 555 0100 0001</string></dict>
      <key>Group/1</key><dict>
        <key>com.apple.syncservices.RecordEntityName</key><string>com.apple.contacts.Group</string>
        <key>name</key><string>Friends</string>
        <key>members</key><array><string>1</string></array></dict>
    </dict></dict>
  </dict>
</dict></plist>)";

plist_t str(const std::string& s) { return plist_new_string(s.c_str()); }

plist_t array(std::initializer_list<plist_t> items) {
    plist_t a = plist_new_array();
    for (plist_t item : items) plist_array_append_item(a, item);
    return a;
}

plist_t dict(std::initializer_list<std::pair<const char*, plist_t>> items) {
    plist_t d = plist_new_dict();
    for (auto& [key, value] : items) plist_dict_set_item(d, key, value);
    return d;
}

plist_t contact(const std::string& firstName) {
    return dict({{kEntity, str("com.apple.contacts.Contact")},
                 {"first name", str(firstName)},
                 {"display as company", str("person")}});
}

plist_t phone(const std::string& owner, const std::string& number) {
    return dict({{kEntity, str("com.apple.contacts.Phone Number")},
                 {"contact", array({str(owner)})},
                 {"type", str("mobile")},
                 {"value", str(number)}});
}

std::string at(plist_t message, uint32_t i) {
    plist_t item = message && i < plist_array_get_size(message) ? plist_array_get_item(message, i) : nullptr;
    if (!item || plist_get_node_type(item) != PLIST_STRING) return "<none>";
    return plist_get_string_ptr(item, nullptr);
}

plist_t item(plist_t message, uint32_t i) {
    return message && i < plist_array_get_size(message) ? plist_array_get_item(message, i) : nullptr;
}

bool more(plist_t page) {
    uint8_t value = 0;
    plist_get_bool_val(item(page, 3), &value);
    return value != 0;
}

// {key: value} of a remap answer, or empty for EMPTY.
std::map<std::string, std::string> remapOf(plist_t message) {
    std::map<std::string, std::string> out;
    plist_t ids = item(message, 2);
    if (!ids || plist_get_node_type(ids) != PLIST_DICT) return out;
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(ids, &it);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(ids, it, &key, &value);
        if (!key) break;
        out[key] = plist_get_string_ptr(value, nullptr);
        free(key);
    }
    free(it);
    return out;
}

// The host's end of one connection, past the version exchange.
class Host {
public:
    Host(const zsim::ServiceContext& ctx, std::initializer_list<plist_t> versionAnswer = {},
         bool xmlAnswer = false)
        : run_(std::make_unique<ServiceRun>("com.apple.mobilesync", ctx)) {
        bool binary = false;
        PlistPtr offer = adopt(receivePlist(*run_, Endian::Big, 3000, &binary));
        EXPECT_TRUE(binary);
        EXPECT_EQ(at(offer.get(), 0), "DLMessageVersionExchange");
        uint64_t major = 0, minor = 0;
        plist_get_uint_val(item(offer.get(), 1), &major);
        plist_get_uint_val(item(offer.get(), 2), &minor);
        EXPECT_EQ(major, 300u);
        EXPECT_EQ(minor, 100u);
        PlistPtr answer = adopt(versionAnswer.size() ? array(versionAnswer)
                                                     : array({str("DLMessageVersionExchange"), str("DLVersionsOk"),
                                                              plist_new_uint(300)}));
        sendPlist(*run_, answer.get(), Endian::Big, !xmlAnswer);
        PlistPtr ready = receive();
        EXPECT_EQ(at(ready.get(), 0), "DLMessageDeviceReady");
    }

    void send(std::initializer_list<plist_t> elements, bool xml = false) {
        PlistPtr message = adopt(array(elements));
        ASSERT_TRUE(sendPlist(*run_, message.get(), Endian::Big, !xml));
    }
    PlistPtr receive() { return adopt(receivePlist(*run_, Endian::Big, 3000)); }
    PlistPtr ask(std::initializer_list<plist_t> elements, bool xml = false) {
        send(elements, xml);
        return receive();
    }

    PlistPtr start(const std::string& dataClass, const std::string& deviceAnchor,
                   const std::string& computerAnchor = "host-1", uint64_t version = 106) {
        return ask({str("SDMessageSyncDataClassWithDevice"), str(dataClass), str(deviceAnchor), str(computerAnchor),
                    plist_new_uint(version), str(kEmpty)});
    }
    PlistPtr acknowledge(const std::string& dataClass = kContacts) {
        return ask({str("SDMessageAcknowledgeChangesFromDevice"), str(dataClass)});
    }
    PlistPtr changes(plist_t records, bool moreToCome = false, bool xml = false) {
        return ask({str("SDMessageProcessChanges"), str(kContacts), records, plist_new_bool(moreToCome),
                    dict({{"SyncDeviceLinkEntityNamesKey", array({str("com.apple.contacts.Contact")})}})},
                   xml);
    }
    PlistPtr finish(const std::string& dataClass = kContacts) {
        return ask({str("SDMessageFinishSessionOnDevice"), str(dataClass)});
    }

    // GetAll, every page acknowledged: the records of all pages together.
    PlistPtr readAll() {
        PlistPtr all = adopt(plist_new_dict());
        PlistPtr page = ask({str("SDMessageGetAllRecordsFromDevice"), str(kContacts)});
        for (;;) {
            EXPECT_EQ(at(page.get(), 0), "SDMessageProcessChanges");
            if (!page) return all;
            zsim::mergeDict(all.get(), item(page.get(), 2));
            const bool last = !more(page.get());
            page = acknowledge();
            if (last) break;
        }
        EXPECT_EQ(at(page.get(), 0), "SDMessageDeviceReadyToReceiveChanges");
        return all;
    }

    ServiceRun& run() { return *run_; }

private:
    std::unique_ptr<ServiceRun> run_;
};

class MobileSyncWire : public ::testing::Test {
protected:
    void SetUp() override { useProfile(""); }
    void TearDown() override { plist_free(profile); }

    void useProfile(const std::string& extraSettings) {
        std::string xml = kProfile;
        xml.replace(xml.find("%EXTRA%"), 7, extraSettings);
        plist_free(profile);
        profile = dictFromXml(xml);
        ASSERT_NE(profile, nullptr);
        ctx.profile = profile;
        ctx.udid = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        // A state folder of its own per test: its own stores.
        ctx.stateDir = dir.path() / ("state" + std::to_string(++states));
        fs::create_directories(ctx.stateDir);
    }

    TempDir dir;
    plist_t profile = nullptr;
    zsim::ServiceContext ctx;
    int states = 0;
};

TEST_F(MobileSyncWire, VersionAnswersOfEveryLengthAndFormAreTaken) {
    Host two(ctx, {str("DLMessageVersionExchange"), str("DLVersionsOk")});
    Host four(ctx, {str("DLMessageVersionExchange"), str("DLVersionsOk"), plist_new_uint(300), plist_new_uint(100)},
              true);
    PlistPtr reply = four.start(kContacts, "---");
    EXPECT_EQ(at(reply.get(), 0), "SDMessageSyncDataClassWithComputer");
}

TEST_F(MobileSyncWire, FullReadListsParentsFirstInPagesOfTheProfilesSize) {
    Host host(ctx);
    PlistPtr reply = host.start(kContacts, "---");
    ASSERT_EQ(plist_array_get_size(reply.get()), 7u);
    EXPECT_EQ(at(reply.get(), 2), kEmpty);  // no host anchor remembered yet
    EXPECT_EQ(at(reply.get(), 4), "SDSyncTypeSlow");
    EXPECT_EQ(at(reply.get(), 6), kEmpty);

    PlistPtr page = host.ask({str("SDMessageGetAllRecordsFromDevice"), str(kContacts)});
    EXPECT_TRUE(more(page.get()));
    EXPECT_EQ(plist_dict_get_size(item(page.get(), 2)), 2u);
    EXPECT_NE(plist_dict_get_item(item(page.get(), 2), "Group/1"), nullptr);
    plist_t names = plist_dict_get_item(item(page.get(), 4), "SyncDeviceLinkEntityNamesKey");
    ASSERT_EQ(plist_array_get_size(names), 2u);
    EXPECT_EQ(at(names, 0), "com.apple.contacts.Contact");
    EXPECT_EQ(at(names, 1), "com.apple.contacts.Group");

    page = host.acknowledge();
    EXPECT_FALSE(more(page.get()));
    EXPECT_NE(plist_dict_get_item(item(page.get(), 2), "3/1/0"), nullptr);
    EXPECT_EQ(at(host.acknowledge().get(), 0), "SDMessageDeviceReadyToReceiveChanges");
}

TEST_F(MobileSyncWire, FastSessionsReportChangesInTwoPagesForContactsAndOneOtherwise) {
    Host host(ctx);
    PlistPtr first = host.start(kContacts, "---", "host-anchor-1");
    const std::string anchor = at(first.get(), 3);
    EXPECT_EQ(at(host.finish().get(), 0), "SDMessageDeviceFinishedSession");

    // Written in a session that never finished: news to the next fast one.
    host.start(kContacts, "---");
    PlistPtr remap = host.changes(dict({{"H1", contact("Bob")}, {"H2", phone("H1", "+1 555 0100 0002")}}));
    EXPECT_EQ(remapOf(remap.get()), (std::map<std::string, std::string>{{"H1", "2"}, {"H2", "3/2/0"}}));
    host.send({str("SDMessageCancelSession"), str(kContacts), str("changed my mind")});

    PlistPtr fast = host.start(kContacts, anchor);
    EXPECT_EQ(at(fast.get(), 4), "SDSyncTypeFast");
    EXPECT_EQ(at(fast.get(), 2), "host-anchor-1");
    PlistPtr parents = host.ask({str("SDMessageGetChangesFromDevice"), str(kContacts)});
    EXPECT_TRUE(more(parents.get()));
    ASSERT_EQ(plist_dict_get_size(item(parents.get(), 2)), 1u);
    EXPECT_NE(plist_dict_get_item(item(parents.get(), 2), "2"), nullptr);
    PlistPtr children = host.acknowledge();
    EXPECT_FALSE(more(children.get()));
    ASSERT_EQ(plist_dict_get_size(item(children.get(), 2)), 1u);
    EXPECT_NE(plist_dict_get_item(item(children.get(), 2), "3/2/0"), nullptr);
    EXPECT_EQ(at(host.acknowledge().get(), 0), "SDMessageDeviceReadyToReceiveChanges");
    host.finish();

    PlistPtr calendars = host.start("com.apple.Calendars", "---");
    uint64_t version = 0;
    plist_get_uint_val(item(calendars.get(), 5), &version);
    EXPECT_EQ(version, 110u);
    PlistPtr only = host.ask({str("SDMessageGetChangesFromDevice"), str("com.apple.Calendars")});
    EXPECT_FALSE(more(only.get()));
    EXPECT_EQ(plist_dict_get_size(item(only.get(), 2)), 0u);
    EXPECT_EQ(at(host.acknowledge("com.apple.Calendars").get(), 0), "SDMessageDeviceReadyToReceiveChanges");
}

TEST_F(MobileSyncWire, HostBatchesAreTakenWhileTheDeviceWaitsForAnAck) {
    Host host(ctx);
    host.start(kContacts, "---");
    // Straight after the start, without reading anything first.
    EXPECT_EQ(remapOf(host.changes(dict({{"EARLY", contact("Early")}}), true).get()).at("EARLY"), "2");

    host.ask({str("SDMessageGetChangesFromDevice"), str(kContacts)});
    PlistPtr last = host.acknowledge();
    EXPECT_FALSE(more(last.get()));
    // The last page stays unacknowledged.
    host.send({str("DLMessagePing"), str("Preparing to get changes for device")});
    PlistPtr remap = host.changes(dict({{"LATE", contact("Late")}}), true);
    EXPECT_EQ(at(remap.get(), 0), "SDMessageRemapRecordIdentifiers");
    EXPECT_EQ(remapOf(remap.get()).at("LATE"), "3");
    EXPECT_EQ(at(host.finish().get(), 0), "SDMessageDeviceFinishedSession");
}

TEST_F(MobileSyncWire, RemovalsTakeChildrenAndGroupMembershipsAlong) {
    Host host(ctx);
    host.start(kContacts, "---");
    // A removal batch has no "more" and no actions; a missing id is no error.
    PlistPtr remap = host.ask({str("SDMessageProcessChanges"), str(kContacts),
                               dict({{"1", str(kEmpty)}, {"999", str(kEmpty)}})});
    EXPECT_EQ(at(remap.get(), 0), "SDMessageRemapRecordIdentifiers");
    EXPECT_EQ(at(remap.get(), 2), kEmpty);
    PlistPtr all = host.readAll();
    ASSERT_EQ(plist_dict_get_size(all.get()), 1u);
    plist_t group = plist_dict_get_item(all.get(), "Group/1");
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(plist_array_get_size(plist_dict_get_item(group, "members")), 0u);
}

TEST_F(MobileSyncWire, GroupsGetDeviceIdsAndUpdatesAnswerWithTheirOwn) {
    EXPECT_FALSE(fs::exists(ctx.stateDir / "sync/Contacts.plist"));
    Host host(ctx);
    host.start(kContacts, "---");
    plist_t club = dict({{kEntity, str("com.apple.contacts.Group")}, {"name", str("Club")},
                         {"members", array({str("1")})}});
    EXPECT_EQ(remapOf(host.changes(dict({{"Group/abc", club}}), true).get()),
              (std::map<std::string, std::string>{{"Group/abc", "Group/2"}}));
    plist_t renamed = dict({{kEntity, str("com.apple.contacts.Group")}, {"name", str("Book Club")}});
    // An update naming another entity leaves the record what it was.
    plist_t anna = dict({{kEntity, str("com.apple.contacts.Group")}, {"first name", str("Anna")}});
    EXPECT_EQ(remapOf(host.changes(dict({{"Group/2", renamed}, {"1", anna}})).get()),
              (std::map<std::string, std::string>{{"Group/2", "Group/2"}, {"1", "1"}}));

    PlistPtr all = host.readAll();
    EXPECT_EQ(stringAt(plist_dict_get_item(all.get(), "Group/2"), "name"), "Book Club");
    EXPECT_EQ(stringAt(plist_dict_get_item(all.get(), "1"), kEntity), "com.apple.contacts.Contact");
    EXPECT_EQ(stringAt(plist_dict_get_item(all.get(), "1"), "first name"), "Anna");
    // Written to the state folder from the first change on.
    PlistPtr saved = zsim::readPlistFile(ctx.stateDir / "sync/Contacts.plist");
    ASSERT_NE(saved, nullptr);
    EXPECT_NE(plist_dict_get_item(zsim::dictDict(saved.get(), "Records"), "Group/2"), nullptr);
}

TEST_F(MobileSyncWire, LinksResolveThroughTheSessionsRemapAndOrphansAreDropped) {
    Host host(ctx);
    host.start(kContacts, "---");
    EXPECT_EQ(remapOf(host.changes(dict({{"HOST-A", contact("Ada")}}), true).get()).at("HOST-A"), "2");
    plist_t family = dict({{kEntity, str("com.apple.contacts.Group")}, {"name", str("Family")},
                           {"members", array({str("HOST-A"), str("1"), str("ghost")})}});
    plist_t noEntity = dict({{"first name", str("Nobody")}});
    PlistPtr remap = host.changes(dict({{"HOST-P", phone("HOST-A", "+1 555 0100 0003")},
                                        {"HOST-Q", phone("ghost", "+1 555 0100 0004")},
                                        {"HOST-R", noEntity},
                                        {"HOST-G", family},
                                        {"HOST-P2", phone("2", "+1 555 0100 0005")}}),
                                   true);
    EXPECT_EQ(remapOf(remap.get()), (std::map<std::string, std::string>{
                                        {"HOST-P", "3/2/0"}, {"HOST-P2", "3/2/1"}, {"HOST-G", "Group/2"}}));
    PlistPtr all = host.readAll();
    EXPECT_EQ(plist_dict_get_size(all.get()), 7u);
    plist_t members = plist_dict_get_item(plist_dict_get_item(all.get(), "Group/2"), "members");
    ASSERT_EQ(plist_array_get_size(members), 2u);
    EXPECT_EQ(at(members, 0), "2");
    EXPECT_EQ(at(members, 1), "1");
    EXPECT_EQ(at(plist_dict_get_item(plist_dict_get_item(all.get(), "3/2/0"), "contact"), 0), "2");
    host.finish();

    // The host's ids last one session.
    host.start(kContacts, "---");
    EXPECT_EQ(at(host.changes(dict({{"HOST-P3", phone("HOST-A", "+1 555 0100 0006")}})).get(), 2), kEmpty);
}

TEST_F(MobileSyncWire, ValuesComeBackAsTheyWereSent) {
    Host host(ctx);
    host.start(kContacts, "---");
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
    plist_t record = dict({{kEntity, str("com.apple.contacts.Contact")},
                           {"first name", str("<b>Zoë & \"Ünal\"</b>")},
                           {"notes", str("line one\nline two\ttabbed 😀")},
                           {"birthday", plist_new_date(-1000000000, 0)},
                           {"image", plist_new_data(bytes.data(), bytes.size())},
                           {"rank", plist_new_uint(42)},
                           {"favourite", plist_new_bool(1)},
                           {"extra", dict({{"nested", array({str("a"), str("b")})}})}});
    PlistPtr sent = adopt(plist_copy(record));
    // This host writes XML.
    PlistPtr remap = host.changes(dict({{"HOST-Z", record}}), false, true);
    const std::string id = remapOf(remap.get()).at("HOST-Z");
    PlistPtr all = host.readAll();
    plist_t back = plist_dict_get_item(all.get(), id.c_str());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(zsim::toXml(back), zsim::toXml(sent.get()));
}

TEST_F(MobileSyncWire, FinishIsAnsweredInEveryState) {
    Host host(ctx);
    EXPECT_EQ(at(host.finish().get(), 0), "SDMessageDeviceFinishedSession");

    PlistPtr refused = host.start("com.apple.MailAccounts", "---");
    EXPECT_EQ(at(refused.get(), 0), "SDMessageRefuseToSyncDataClassWithComputer");
    EXPECT_EQ(at(refused.get(), 2), "No Data Store available for data class");
    PlistPtr finished = host.finish("com.apple.MailAccounts");
    EXPECT_EQ(at(finished.get(), 1), "com.apple.MailAccounts");

    host.start(kContacts, "---");
    PlistPtr page = host.ask({str("SDMessageGetAllRecordsFromDevice"), str(kContacts)});
    EXPECT_TRUE(more(page.get()));
    EXPECT_EQ(at(host.finish().get(), 0), "SDMessageDeviceFinishedSession");

    // A host that leaves without reading the answer is a normal end.
    host.start(kContacts, "---");
    host.send({str("SDMessageFinishSessionOnDevice"), str(kContacts)});
    host.run().closeHost();
    for (int i = 0; i < 100 && !host.run().handlerFinished(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(host.run().handlerFinished());
}

TEST_F(MobileSyncWire, DropOnHostChangesClosesInsteadOfAnswering) {
    useProfile("<key>DropOnHostChanges</key><true/>");
    Host host(ctx);
    host.start(kContacts, "---");
    host.send({str("SDMessageProcessChanges"), str(kContacts), dict({{"X", contact("Lost")}}), plist_new_bool(0),
               str(kEmpty)});
    EXPECT_TRUE(host.run().peerClosed());
    Host again(ctx);
    again.start(kContacts, "---");
    EXPECT_EQ(plist_dict_get_size(again.readAll().get()), 3u);
}

}  // namespace
