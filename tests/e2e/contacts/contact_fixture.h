// A simulator with contact profiles, the worker as its parent's child, and
// the contact commands as a parent runs them.
#pragma once

#include "sim_harness.h"
#include "zeb_parent_contacts.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <memory>
#include <string>
#include <vector>

inline constexpr char kBuiltinUdid[] = "00008110-001A2B3C4D5E601E";
inline constexpr char kContacts250Udid[] = "00008110-001A2B3C4D5E6250";
inline constexpr char kNoAppsUdid[] = "00008110-001A2B3C4D5E6000";   // a contacts account, no records
inline constexpr char kIphone4Udid[] = "3b7d9f0e1c2a4b5d6e7f8091a2b3c4d5e6f70812";  // no account, no records

// What command 100 gave: both lists and the report.
struct ContactListing {
    zparent::PagedList groups, contacts;
    std::vector<zparent::Event> events;
    int64_t code = -1;
    bool reported = false;
};

// What a change command gave: its one reply tail (when any) and the report.
struct ChangeOutcome {
    rapidjson::Document reply;
    size_t replies = 0;
    int64_t code = -1;
    bool reported = false;
};

class ContactCommands : public ::testing::Test {
protected:
    void TearDown() override;
    // The simulator with these profile folders (names under sim/profiles, or
    // paths) and the worker; waits for every UDID given.
    void start(const std::vector<std::string>& profiles, const std::vector<std::string>& udids);
    void startBuiltin();

    ContactListing list(const std::string& udid);
    ChangeOutcome change(uint32_t command, const std::string& udid, const std::string& tail);

    std::unique_ptr<e2e::Simulator> sim;
    std::unique_ptr<e2e::Worker> worker;
};

// The one contact whose field `key` is `value`; null when none or several.
const rapidjson::Value* findContact(const rapidjson::Value& contacts, const char* key, const std::string& value);
