#include "core/sync_generated_notes.h"

#include <string>

namespace zsim {
namespace {

const char* const kSubjects[] = {"Shopping list", "Meeting notes", "Packing list", "Ideas", "Books to read",
                                 "Recipe", "Gift ideas", "To do"};
const char* const kLines[] = {"Milk, eggs, bread and coffee.", "Ask about the budget for next quarter.",
                              "Passport, charger, sunscreen.", "A garden shed with a green roof.",
                              "The one about the lighthouse keeper."};

// 2024-02-01 08:00 UTC.
constexpr int64_t kFirstCreated = 1706774400;

}  // namespace

void generateNotes(plist_t generate, GeneratedIds& ids, SyncRecordList& out) {
    const uint64_t count = dictUInt(generate, "Count").value_or(0);
    out.reserve(out.size() + count);
    for (uint64_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(i + 1);
        const std::string line = kLines[i % countOf(kLines)];
        plist_t note = newSyncRecord("com.apple.notes.Note");
        setString(note, "subject", std::string(kSubjects[i % countOf(kSubjects)]) + " " + number);
        if (i % 4 == 3) {
            setString(note, "content", "<div>" + line + "</div><div>Note " + number + "</div>");
            setString(note, "contentType", "text/html");
        } else {
            setString(note, "content", line + "\nNote " + number);
            setString(note, "contentType", "text/plain");
        }
        if (i % 10 != 9) setString(note, "author", "owner@example.com");
        const int64_t created = kFirstCreated + static_cast<int64_t>(i) * 3600;
        setDate(note, "dateCreated", created);
        setDate(note, "dateModified", created + static_cast<int64_t>(i % 60) * 60);
        out.emplace_back(ids.next("n-"), adopt(note));
    }
}

}  // namespace zsim
