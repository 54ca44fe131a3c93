// The orders of a session against a scripted device: the binding's send and
// receive slots point at an in-memory peer for each test.
#include "zeb_scripted_service.h"
#include "zeb_contact_reader.h"
#include "zeb_contact_texts.h"
#include "zeb_sync_matchers.h"
#include "zeb_sync_session.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

class SessionOrder : public ::testing::Test {
protected:
    void queue(const std::string& body) { device_.queueFrame(Plist(body)); }
    void queueMessage(const char* name, const std::string& rest = "") {
        queue(std::string("<array><string>") + name + "</string><string>com.apple.Contacts</string>" + rest +
              "</array>");
    }
    void queueOpening() {
        queue("<array><string>DLMessageVersionExchange</string><integer>300</integer><integer>100</integer></array>");
        queue("<array><string>DLMessageDeviceReady</string></array>");
        queueMessage("SDMessageSyncDataClassWithComputer");
    }

    // The first element of every message the session sent, in order.
    std::vector<std::string> sentNames() {
        std::vector<std::string> names;
        size_t at = 0;
        const auto& bytes = device_.sent;
        while (at + 4 <= bytes.size()) {
            const uint32_t length = (uint32_t{bytes[at]} << 24) | (uint32_t{bytes[at + 1]} << 16) |
                                    (uint32_t{bytes[at + 2]} << 8) | bytes[at + 3];
            PlistVariant frame;
            EXPECT_TRUE(DecodeFrame(bytes.data() + at + 4, length, frame));
            const PlistVariant* message = zeb::syncMessageOf(frame);
            names.push_back(message && message->At(0) ? message->At(0)->text() : "?");
            at += 4 + length;
        }
        return names;
    }

    ScriptedPeer device_;
    ScriptedService service_{device_};
};

const std::string kPerson =
    "<dict><key>1</key><dict><key>com.apple.syncservices.RecordEntityName</key>"
    "<string>com.apple.contacts.Contact</string><key>first name</key><string>Ann</string></dict></dict>";
const std::string kPhone =
    "<dict><key>3/1/0</key><dict><key>com.apple.syncservices.RecordEntityName</key>"
    "<string>com.apple.contacts.Phone Number</string><key>contact</key><array><string>1</string></array>"
    "<key>value</key><string>555</string></dict></dict>";

// True when the read came to the list's end.
bool readContacts(ChangeReplyContext& reply) {
    SyncSession session(nullptr);
    session.open(contact::kQueryTexts, nullptr);
    SyncRecordReader reader;
    reader.handler = ContactReplyHandler;
    reader.context = &reply;
    reader.mode = &reply.mode;
    return session.readAll(contact::kQueryTexts, reader);
}

TEST_F(SessionOrder, ReadAcknowledgesEveryBatchAndOnceMore) {
    // A long version message must be read whole, or every frame after it
    // would start in the wrong place.
    queue("<array><string>DLMessageVersionExchange</string><string>" + std::string(3000, 'v') +
          "</string></array>");
    queue("<array><string>DLMessageDeviceReady</string></array>");
    queueMessage("SDMessageSyncDataClassWithComputer");
    queueMessage("SDMessageProcessChanges", kPerson + "<true/>");
    queueMessage("SDMessageProcessChanges", kPhone + "<true/>");
    queueMessage("SDMessageDeviceReadyToReceiveChanges");
    queueMessage("SDMessageDeviceFinishedSession");
    ChangeReplyContext reply;
    EXPECT_TRUE(readContacts(reply));
    EXPECT_EQ(sentNames(), (std::vector<std::string>{"DLMessageVersionExchange", "SDMessageSyncDataClassWithDevice",
                                                    "SDMessageGetAllRecordsFromDevice",
                                                    "SDMessageAcknowledgeChangesFromDevice",
                                                    "SDMessageAcknowledgeChangesFromDevice",
                                                    "SDMessageFinishSessionOnDevice"}));
    ASSERT_TRUE(reply.contacts.HasMember("1"));
    EXPECT_EQ(reply.contacts["1"]["com.apple.contacts.Phone Number"].Size(), 1u);
    EXPECT_EQ(device_.readPosition, device_.incoming.size());
}

TEST_F(SessionOrder, OnlyALinkThatEndsBeforeTheLastBatchCutsTheList) {
    queueOpening();
    queueMessage("SDMessageProcessChanges", kPerson + "<true/>");
    // The link ends where the next batch would come.
    ChangeReplyContext cut;
    EXPECT_FALSE(readContacts(cut));
    EXPECT_TRUE(cut.contacts.HasMember("1"));  // what came is kept

    // Ending while the finish is awaited, after the last batch, cuts nothing.
    device_ = ScriptedPeer();
    queueOpening();
    queueMessage("SDMessageProcessChanges", kPerson + "<true/>");
    queueMessage("SDMessageDeviceReadyToReceiveChanges");
    ChangeReplyContext whole;
    EXPECT_TRUE(readContacts(whole));
}

TEST_F(SessionOrder, NameWaitsDropOtherMessagesAndMatchAnyElementInAnyCase) {
    queueOpening();
    queueMessage("SDMessageProcessChanges", kPerson);  // answer to get-changes
    queueMessage("SDMessagePing");                    // dropped: not the awaited name
    queue("<array><string>x</string><string>sdMESSAGEprocessCHANGES</string></array>");
    queueMessage("SDMessageDeviceReadyToReceiveChanges");
    queueMessage("SDMessageRemapRecordIdentifiers", "<dict><key>X</key><string>9</string></dict>");
    queueMessage("SDMessageDeviceFinishedSession");
    SyncSession session(nullptr);
    session.open(contact::kRemoveTexts, contact::kChangeWaits.afterStart);
    session.prepareChanges(contact::kRemoveTexts, contact::kChangeWaits);
    ChangeReplyContext reply;
    reply.mode = kContactEntityIds;
    session.sendChanges(zeb::fillTemplate(contact::kRemoveTemplate, "X"), ContactReplyHandler, &reply);
    session.finish(contact::kRemoveTexts);
    EXPECT_FALSE(session.lost());
    EXPECT_EQ(reply.idMaps[0], (zeb::SyncIdMap{{"X", "9"}}));
    EXPECT_EQ(sentNames(), (std::vector<std::string>{"DLMessageVersionExchange", "SDMessageSyncDataClassWithDevice",
                                                    "SDMessageGetChangesFromDevice",
                                                    "SDMessageAcknowledgeChangesFromDevice",
                                                    "SDMessageAcknowledgeChangesFromDevice", "DLMessagePing",
                                                    "SDMessageProcessChanges", "SDMessageFinishSessionOnDevice"}));
}

TEST_F(SessionOrder, AnOversizedFrameEndsTheDialogueWithoutReadingOn) {
    queueOpening();
    queueMessage("SDMessageProcessChanges", kPerson + "<true/>");
    device_.queueLength(kSyncMaxFrame + 1);
    // Whatever follows can no longer be told apart from frame bodies.
    queueMessage("SDMessageProcessChanges", kPhone + "<true/>");
    ChangeReplyContext reply;
    EXPECT_TRUE(readContacts(reply));  // a length out of bounds ends the read with no error; only a failed receive cuts
    EXPECT_TRUE(reply.contacts.HasMember("1"));
    const auto names = sentNames();
    ASSERT_EQ(names.size(), 4u);  // version, start, get all, the one acknowledge
    EXPECT_EQ(names.back(), "SDMessageAcknowledgeChangesFromDevice");
}

TEST_F(SessionOrder, ATextThatIsNoPropertyListIsNotSentAndNotAwaited) {
    queueOpening();
    queueMessage("SDMessageDeviceFinishedSession");
    SyncSession session(nullptr);
    session.open(contact::kAddTexts, nullptr);
    ChangeReplyContext reply;
    reply.mode = kContactEntityIds;
    EXPECT_EQ(session.sendChanges("<plist><array><string>broken", ContactReplyHandler, &reply), 0);
    session.finish(contact::kAddTexts);
    EXPECT_FALSE(session.lost());
    EXPECT_EQ(sentNames().back(), "SDMessageFinishSessionOnDevice");
}

}  // namespace
