#include "contact_fixture.h"

#include <filesystem>

namespace fs = std::filesystem;

void ContactCommands::start(const std::vector<std::string>& profiles, const std::vector<std::string>& udids) {
    std::vector<std::string> arguments;
    for (const auto& profile : profiles) {
        arguments.push_back("--profile");
        arguments.push_back(fs::path(profile).is_absolute() ? profile : e2e::profileDir(profile));
    }
    sim = std::make_unique<e2e::Simulator>(arguments);
    ASSERT_TRUE(sim->ready());
    worker = std::make_unique<e2e::Worker>(*sim);
    ASSERT_TRUE(worker->connected());
    for (const auto& udid : udids) ASSERT_TRUE(worker->waitForReady(udid).has_value()) << udid << " never became ready";
}

void ContactCommands::startBuiltin() { start({"iphone13-ios17"}, {kBuiltinUdid}); }

void ContactCommands::TearDown() {
    worker.reset();
    sim.reset();
}

ContactListing ContactCommands::list(const std::string& udid) {
    ContactListing listing;
    listing.events = worker->run(100, e2e::commandJson(udid), std::nullopt, std::chrono::seconds(60));
    for (const auto& event : listing.events) {
        if (zparent::isFinalReport(event)) {
            listing.code = event.code;
            listing.reported = true;
        } else if (!zparent::addToPagedList(listing.groups, event, 101)) {
            zparent::addToPagedList(listing.contacts, event, 100);
        }
    }
    return listing;
}

ChangeOutcome ContactCommands::change(uint32_t command, const std::string& udid, const std::string& tail) {
    ChangeOutcome outcome;
    for (const auto& event : worker->run(command, e2e::commandJson(udid), tail, std::chrono::seconds(60))) {
        if (zparent::isFinalReport(event)) {
            outcome.code = event.code;
            outcome.reported = true;
        } else if (event.stage == 0 && event.frame.packetStatus == 2 && event.frame.commandType == command) {
            outcome.reply.Parse(event.tail.c_str(), event.tail.size());
            ++outcome.replies;
        }
    }
    return outcome;
}

const rapidjson::Value* findContact(const rapidjson::Value& contacts, const char* key, const std::string& value) {
    const rapidjson::Value* found = nullptr;
    for (const auto& contact : contacts.GetObject()) {
        auto field = contact.value.FindMember(key);
        if (field == contact.value.MemberEnd() || !field->value.IsString() || value != field->value.GetString()) continue;
        if (found) return nullptr;
        found = &contact.value;
    }
    return found;
}
