// Received property lists: CF parses the bytes, CF writes them as XML, and
// the XML is walked into the value tree. The walk keeps the dictionary and
// array rules apart on purpose: a "real" in a dictionary and a "date" or
// "data" in an array are dropped, while a dictionary keeps "date" and
// "data" as their text.
#include <strings.h>
#include <tinyxml2.h>

#include <cstdlib>

#include "zeb_mobile_export_fun.h"
#include "zeb_plist_bridge.h"

namespace {

constexpr int kMaxDepth = 512;  // deeper documents are cut off, not recursed into

bool NameIs(const tinyxml2::XMLElement* e, const char* name) { return strcasecmp(e->Name(), name) == 0; }

// The text of an element's first child, or null if that child is not text.
const char* FirstChildText(const tinyxml2::XMLElement* e) {
    const tinyxml2::XMLNode* child = e->FirstChild();
    const tinyxml2::XMLText* text = child ? child->ToText() : nullptr;
    return text ? text->Value() : nullptr;
}

PlistVariant ArrayToVariant(const tinyxml2::XMLElement* e, int depth);

PlistVariant DictToVariant(const tinyxml2::XMLElement* e, int depth) {
    auto dictionary = std::make_shared<CIOSDictionary>();
    if (depth > kMaxDepth) return PlistVariant::Dictionary(dictionary);
    const tinyxml2::XMLElement* keyElement = e->FirstChildElement();
    while (keyElement) {
        const tinyxml2::XMLElement* valueElement = keyElement->NextSiblingElement();
        if (!valueElement) break;
        const char* key = FirstChildText(keyElement);
        if (key) {
            const char* text = FirstChildText(valueElement);
            if (NameIs(valueElement, "string") || NameIs(valueElement, "date") || NameIs(valueElement, "data")) {
                if (text) dictionary->Insert(key, PlistVariant::String(text));
            } else if (NameIs(valueElement, "integer")) {
                if (text) dictionary->Insert(key, PlistVariant::Int64(std::strtoll(text, nullptr, 10)));
            } else if (NameIs(valueElement, "true") || NameIs(valueElement, "false")) {
                dictionary->Insert(key, PlistVariant::Bool(NameIs(valueElement, "true")));
            } else if (NameIs(valueElement, "array")) {
                dictionary->Insert(key, ArrayToVariant(valueElement, depth + 1));
            } else if (NameIs(valueElement, "dict")) {
                dictionary->Insert(key, DictToVariant(valueElement, depth + 1));
            }
        }
        keyElement = valueElement->NextSiblingElement();
    }
    return PlistVariant::Dictionary(dictionary);
}

PlistVariant ArrayToVariant(const tinyxml2::XMLElement* e, int depth) {
    PlistVariant result;  // stays empty when nothing is appended
    if (depth > kMaxDepth) return result;
    for (const tinyxml2::XMLElement* item = e->FirstChildElement(); item; item = item->NextSiblingElement()) {
        const char* text = FirstChildText(item);
        if (NameIs(item, "string")) {
            if (text) result.array().push_back(PlistVariant::String(text));
        } else if (NameIs(item, "integer")) {
            if (text) result.array().push_back(PlistVariant::Int64(std::strtoll(text, nullptr, 10)));
        } else if (NameIs(item, "true") || NameIs(item, "false")) {
            result.array().push_back(PlistVariant::Bool(NameIs(item, "true")));
        } else if (NameIs(item, "array")) {
            result.array().push_back(ArrayToVariant(item, depth + 1));
        } else if (NameIs(item, "dict")) {
            result.array().push_back(DictToVariant(item, depth + 1));
        } else if (NameIs(item, "real")) {
            if (text) result.array().push_back(PlistVariant::Double(std::strtod(text, nullptr)));
        }
    }
    return result;
}

// Received bytes as CF's XML text; empty on failure.
std::string BytesToXml(const uint8_t* bytes, size_t length) {
    auto& cf = CMobileExportFun::GetInstance();
    if (!cf.initialised || !bytes || length == 0) return {};
    CFDataRef data = cf.CFDataCreate(nullptr, bytes, static_cast<CFIndex>(length));
    if (!data) return {};
    CFPropertyListRef list = cf.CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
    cf.CFRelease(data);
    if (!list) return {};
    CFDataRef xml = cf.CFPropertyListCreateXMLData(nullptr, list);
    cf.CFRelease(list);
    if (!xml) return {};
    std::string text(reinterpret_cast<const char*>(cf.CFDataGetBytePtr(xml)),
                     static_cast<size_t>(cf.CFDataGetLength(xml)));
    cf.CFRelease(xml);
    return text;
}

}  // namespace

std::string FirstValueText(const std::string& xml) {
    tinyxml2::XMLDocument document;
    if (document.Parse(xml.data(), xml.size()) != tinyxml2::XML_SUCCESS) return {};
    const tinyxml2::XMLElement* root = document.RootElement();
    const tinyxml2::XMLElement* top = root ? root->FirstChildElement() : nullptr;
    const tinyxml2::XMLElement* firstKey = top ? top->FirstChildElement() : nullptr;
    const tinyxml2::XMLElement* firstValue = firstKey ? firstKey->NextSiblingElement() : nullptr;
    const char* text = firstValue ? FirstChildText(firstValue) : nullptr;
    return text ? text : "";
}

void DecodeToXml(const uint8_t* bytes, size_t length, std::string& text) {
    // The XML of any size is kept whole: no fixed buffer bounds the message.
    text = FirstValueText(BytesToXml(bytes, length));
}

bool DecodeFrame(const uint8_t* bytes, size_t length, PlistVariant& variant) {
    std::string xml = BytesToXml(bytes, length);
    if (xml.empty()) return false;
    tinyxml2::XMLDocument document;
    if (document.Parse(xml.data(), xml.size()) != tinyxml2::XML_SUCCESS) return false;
    const tinyxml2::XMLElement* root = document.RootElement();
    if (!root) return false;
    // The root is the "plist" element, read as an array: element 0 is the
    // message.
    variant = ArrayToVariant(root, 0);
    return true;
}
