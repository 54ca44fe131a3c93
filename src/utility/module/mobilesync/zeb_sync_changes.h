// What every change command of a data class shares: filling ids into the
// parent's texts, editing a record inside a change message, and reading
// the ids the device gave back.
#pragma once

#include "zeb_plist_variant.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tinyxml2 {
class XMLDocument;
class XMLElement;
}  // namespace tinyxml2

namespace zeb {

using SyncIdMap = std::map<std::string, std::string>;

// A template with one "%s" filled with `value` escaped for XML.
std::string fillTemplate(const char* text, const std::string& value);

// Every match of `proposedId`, taken as a regular expression, replaced by
// the device's id. An id that is no valid expression is replaced as text.
std::string replaceProposedId(const std::string& text, const std::string& proposedId, const std::string& deviceId);

// The device's answer to a change: every string entry of every dictionary
// in the message, as proposed id -> device id.
void collectIdMap(const PlistVariant& message, SyncIdMap& map);

// The reply to an add: {entity: {proposed id: device id}} for the first
// entity always and for each later one whose map is not empty, in order.
std::string idMapReplyText(const std::vector<std::pair<const char*, const SyncIdMap*>>& entities);

// A change message parsed for editing its first record dictionary; the
// printer escapes whatever is added.
class SyncRecordEdit {
public:
    explicit SyncRecordEdit(const std::string& text);
    ~SyncRecordEdit();
    bool ok() const { return record_ != nullptr; }
    void addString(const char* key, const std::string& value);
    void addStringArray(const char* key, const std::vector<std::string>& values);
    // The edited text, or empty when the text did not parse.
    std::string print() const;

private:
    std::unique_ptr<tinyxml2::XMLDocument> document_;
    tinyxml2::XMLElement* record_ = nullptr;
};

}  // namespace zeb
