#include "core/sync_generated_contacts.h"

#include "core/sync_generated_fields.h"

#include <cctype>
#include <cstdio>
#include <string>

namespace zsim {
namespace {

const char* const kFirstNames[] = {"Anna",  "Ben",   "Carla", "David", "Elena", "Farid", "Grace",
                                   "Hugo",  "Ines",  "Jonas", "Keiko", "Liam",  "Maya",  "Noah",
                                   "Olga",  "Pablo", "Quinn", "Rosa",  "Sven",  "Tara"};
const char* const kLastNames[] = {"Adams", "Berg",   "Costa",  "Dubois", "Evans",  "Fischer", "Garcia",
                                  "Hansen", "Ito",   "Jensen", "Kowalski", "Larsen", "Moreau", "Novak",
                                  "Olsen", "Petrov", "Quist",  "Rossi",  "Silva",  "Tanaka", "Urban"};
constexpr size_t kFirstCount = countOf(kFirstNames);
constexpr size_t kLastCount = countOf(kLastNames);

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string noteText(uint64_t bytes) {
    static const std::string kLine = "Met at the spring fair; call back about the garden project. ";
    std::string text;
    text.reserve(bytes);
    while (text.size() < bytes) text += kLine;
    text.resize(bytes);
    return text;
}

}  // namespace

void generateContacts(plist_t generate, uint64_t firstId, SyncRecordList& out) {
    const uint64_t count = dictUInt(generate, "Count").value_or(0);
    const uint64_t children = dictUInt(generate, "ChildrenPerContact").value_or(0);
    const uint64_t noteBytes = dictUInt(generate, "NotesBytes").value_or(0);
    const std::string notes = noteBytes ? noteText(noteBytes) : std::string();
    out.reserve(out.size() + count * (1 + children));
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t n = firstId + i;
        const std::string id = std::to_string(n);
        const std::string first = kFirstNames[i % kFirstCount];
        const std::string last = kLastNames[(i / kFirstCount) % kLastCount];
        plist_t contact = newSyncRecord("com.apple.contacts.Contact");
        setString(contact, "first name", first);
        setString(contact, "last name", last);
        setString(contact, "display as company", "person");
        // Each contact's notes differ from the next one's: a binary property
        // list stores equal strings once, and the notes are there to make
        // pages big.
        if (!notes.empty()) setString(contact, "notes", (id + " " + notes).substr(0, notes.size()));
        out.emplace_back(id, adopt(contact));
        for (uint64_t k = 0; k < children; ++k) {
            const uint64_t index = k / 2;
            const bool phone = k % 2 == 0;
            plist_t child = newSyncRecord(phone ? "com.apple.contacts.Phone Number" : "com.apple.contacts.Email Address");
            setLink(child, "contact", id);
            char value[64];
            if (phone) {
                const uint64_t number = n * 4 + index;
                snprintf(value, sizeof value, "+1 555 01%02u %04u", unsigned(number / 10000 % 100),
                         unsigned(number % 10000));
                setString(child, "type", "mobile");
            } else {
                const std::string suffix = index ? "." + std::to_string(index) : "";
                snprintf(value, sizeof value, "%s.%s.%llu%s@example.net", lower(first).c_str(), lower(last).c_str(),
                         static_cast<unsigned long long>(n), suffix.c_str());
                setString(child, "type", "home");
            }
            setString(child, "value", value);
            out.emplace_back((phone ? "3/" : "4/") + id + "/" + std::to_string(index), adopt(child));
        }
    }
}

}  // namespace zsim
