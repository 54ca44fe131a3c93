#include "zeb_sync_changes.h"

#include "zeb_format.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <tinyxml2.h>

#include <regex>

namespace zeb {

std::string fillTemplate(const char* text, const std::string& value) {
    // The buffer grows with the value: a long id is never cut off.
    const std::string escaped = escapeXmlText(value);
    std::string out(text);
    const size_t slot = out.find("%s");
    if (slot != std::string::npos) out.replace(slot, 2, escaped);
    return out;
}

std::string replaceProposedId(const std::string& text, const std::string& proposedId, const std::string& deviceId) {
    if (proposedId.empty()) return text;
    try {
        const std::regex pattern(proposedId);
        // The device's id goes in as it stands: "$" would start a back-reference.
        std::string replacement;
        for (char c : deviceId) replacement += c == '$' ? std::string("$$") : std::string(1, c);
        return std::regex_replace(text, pattern, replacement);
    } catch (const std::regex_error&) {
        std::string out;
        size_t from = 0;
        for (size_t at = text.find(proposedId); at != std::string::npos; at = text.find(proposedId, from)) {
            out.append(text, from, at - from).append(deviceId);
            from = at + proposedId.size();
        }
        return out.append(text, from, std::string::npos);
    }
}

std::string idMapReplyText(const std::vector<std::pair<const char*, const SyncIdMap*>>& entities) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    for (size_t n = 0; n < entities.size(); ++n) {
        const auto& [entity, map] = entities[n];
        if (n > 0 && map->empty()) continue;
        writer.Key(entity);
        writer.StartObject();
        for (const auto& [proposed, given] : *map) {
            writer.Key(proposed.c_str(), static_cast<rapidjson::SizeType>(proposed.size()));
            writer.String(given.c_str(), static_cast<rapidjson::SizeType>(given.size()));
        }
        writer.EndObject();
    }
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

void collectIdMap(const PlistVariant& message, SyncIdMap& map) {
    if (message.tag() != VariantTag::Array) return;
    for (const PlistVariant& element : message.array()) {
        if (element.tag() != VariantTag::Dictionary || !element.dictionary()) continue;
        for (const auto& [key, value] : *element.dictionary())
            if (value.tag() == VariantTag::String) map[key] = value.text();
    }
}

SyncRecordEdit::SyncRecordEdit(const std::string& text) : document_(std::make_unique<tinyxml2::XMLDocument>()) {
    if (document_->Parse(text.data(), text.size()) != tinyxml2::XML_SUCCESS) return;
    tinyxml2::XMLElement* plist = document_->RootElement();
    tinyxml2::XMLElement* message = plist ? plist->FirstChildElement("array") : nullptr;
    tinyxml2::XMLElement* records = message ? message->FirstChildElement("dict") : nullptr;
    record_ = records ? records->FirstChildElement("dict") : nullptr;
}

SyncRecordEdit::~SyncRecordEdit() = default;

void SyncRecordEdit::addString(const char* key, const std::string& value) {
    if (!record_) return;
    record_->InsertNewChildElement("key")->SetText(key);
    record_->InsertNewChildElement("string")->SetText(value.c_str());
}

void SyncRecordEdit::addStringArray(const char* key, const std::vector<std::string>& values) {
    if (!record_) return;
    record_->InsertNewChildElement("key")->SetText(key);
    tinyxml2::XMLElement* array = record_->InsertNewChildElement("array");
    for (const std::string& value : values) array->InsertNewChildElement("string")->SetText(value.c_str());
}

std::string SyncRecordEdit::print() const {
    if (!record_) return {};
    tinyxml2::XMLPrinter printer;
    document_->Print(&printer);
    return std::string(printer.CStr(), static_cast<size_t>(printer.CStrSize() > 0 ? printer.CStrSize() - 1 : 0));
}

}  // namespace zeb
