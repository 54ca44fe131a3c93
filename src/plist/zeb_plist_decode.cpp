// Received property lists: CF parses the bytes and the CF tree is walked
// into the value tree, giving what walking CF's XML text of it would give
// (an earlier form of this bridge did exactly that; the walk skips the text
// for speed, since device batches run to megabytes). The walk keeps the
// dictionary and array rules apart on purpose: a "real" in a dictionary and a
// "date" or "data" in an array are dropped, while a dictionary keeps "date"
// and "data" as their XML text; empty strings and empty arrays are dropped
// as XML with no text in them would be.
#include <strings.h>
#include <tinyxml2.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "zeb_mobile_export_fun.h"
#include "zeb_plist_bridge.h"

namespace {

constexpr int kMaxDepth = 512;  // deeper documents are cut off, not recursed into


// The text of an element's first child, or null if that child is not text.
const char* FirstChildText(const tinyxml2::XMLElement* e) {
    const tinyxml2::XMLNode* child = e->FirstChild();
    const tinyxml2::XMLText* text = child ? child->ToText() : nullptr;
    return text ? text->Value() : nullptr;
}

PlistVariant CfArrayToVariant(CMobileExportFun& cf, CFTypeRef array, int depth);
PlistVariant CfDictToVariant(CMobileExportFun& cf, CFTypeRef dict, int depth);

// A date as the XML writer prints it: whole seconds of UTC.
bool CfDateText(CMobileExportFun& cf, CFTypeRef value, std::string& out) {
    const time_t moment = static_cast<time_t>(static_cast<int64_t>(cf.CFDateGetAbsoluteTime(value)) + 978307200);
    tm fields{};
    if (!gmtime_r(&moment, &fields)) return false;
    char text[32];
    if (strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &fields) == 0) return false;
    out = text;
    return true;
}

// Data as the XML writer prints it (base64 lines with their layout): the
// writer is asked for this one value, which is rare in device messages.
bool CfDataText(CMobileExportFun& cf, CFTypeRef value, std::string& out) {
    CFDataRef xml = cf.CFPropertyListCreateXMLData(nullptr, value);
    if (!xml) return false;
    tinyxml2::XMLDocument document;
    const bool parsed = document.Parse(reinterpret_cast<const char*>(cf.CFDataGetBytePtr(xml)),
                                       static_cast<size_t>(cf.CFDataGetLength(xml))) == tinyxml2::XML_SUCCESS;
    cf.CFRelease(xml);
    const tinyxml2::XMLElement* root = parsed ? document.RootElement() : nullptr;
    const tinyxml2::XMLElement* data = root ? root->FirstChildElement() : nullptr;
    const char* text = data ? FirstChildText(data) : nullptr;
    if (!text) return false;
    out = text;
    return true;
}

bool IsReal(CMobileExportFun& cf, CFTypeRef number) {
    const CFIndex type = cf.CFNumberGetType(number);
    return type == 5 || type == 6 || type == 12 || type == 13;
}

// An integer as the XML text would carry it; unsigned values beyond the
// signed range read back as the largest signed one.
int64_t CfInteger(CMobileExportFun& cf, CFTypeRef number) {
    int64_t value = 0;
    cf.CFNumberGetValue(number, kZebCFNumberSInt64Type, &value);
    return value;
}

PlistVariant CfDictToVariant(CMobileExportFun& cf, CFTypeRef dict, int depth) {
    auto dictionary = std::make_shared<CIOSDictionary>();
    if (depth > kMaxDepth) return PlistVariant::Dictionary(dictionary);
    const CFIndex count = cf.CFDictionaryGetCount(dict);
    std::vector<const void*> keys(static_cast<size_t>(count)), values(static_cast<size_t>(count));
    if (count > 0) cf.CFDictionaryGetKeysAndValues(dict, keys.data(), values.data());
    std::string key, text;
    for (CFIndex i = 0; i < count; ++i) {
        if (!keys[i] || !values[i] || cf.CFGetTypeID(keys[i]) != kZebCFStringTypeID || !CfFrameText(keys[i], key))
            continue;
        const void* value = values[i];
        switch (cf.CFGetTypeID(value)) {
            case kZebCFStringTypeID:
            case kZebCFDateTypeID:
            case kZebCFDataTypeID:
                if (CfMemberText(value, text)) dictionary->Insert(key, PlistVariant::String(text));
                break;
            case kZebCFNumberTypeID: {
                int64_t number = 0;
                if (CfWholeNumber(value, number)) dictionary->Insert(key, PlistVariant::Int64(number));
                break;
            }
            case kZebCFBooleanTypeID:
                dictionary->Insert(key, PlistVariant::Bool(cf.CFBooleanGetValue(value) != 0));
                break;
            case kZebCFArrayTypeID: dictionary->Insert(key, CfArrayToVariant(cf, value, depth + 1)); break;
            case kZebCFDictionaryTypeID: dictionary->Insert(key, CfDictToVariant(cf, value, depth + 1)); break;
            default: break;
        }
    }
    return PlistVariant::Dictionary(dictionary);
}

// Appends the value to `result` under the array rules.
void AppendArrayItem(CMobileExportFun& cf, CFTypeRef item, int depth, PlistVariant& result) {
    std::string text;
    switch (cf.CFGetTypeID(item)) {
        case kZebCFStringTypeID:
            if (CfFrameText(item, text)) result.array().push_back(PlistVariant::String(std::move(text)));
            break;
        case kZebCFNumberTypeID:
            if (IsReal(cf, item)) {
                double real = 0;
                cf.CFNumberGetValue(item, kZebCFNumberFloat64Type, &real);
                result.array().push_back(PlistVariant::Double(real));
            } else {
                result.array().push_back(PlistVariant::Int64(CfInteger(cf, item)));
            }
            break;
        case kZebCFBooleanTypeID: result.array().push_back(PlistVariant::Bool(cf.CFBooleanGetValue(item) != 0)); break;
        case kZebCFArrayTypeID: result.array().push_back(CfArrayToVariant(cf, item, depth + 1)); break;
        case kZebCFDictionaryTypeID: result.array().push_back(CfDictToVariant(cf, item, depth + 1)); break;
        default: break;  // dates and data have no place in an array
    }
}

PlistVariant CfArrayToVariant(CMobileExportFun& cf, CFTypeRef array, int depth) {
    PlistVariant result;  // stays empty when nothing is appended
    if (depth > kMaxDepth) return result;
    const CFIndex count = cf.CFArrayGetCount(array);
    for (CFIndex i = 0; i < count; ++i) {
        CFTypeRef item = cf.CFArrayGetValueAtIndex(array, i);
        if (item) AppendArrayItem(cf, item, depth, result);
    }
    return result;
}

// Received bytes as CF's XML text; empty on failure.
std::string BytesToXml(const uint8_t* bytes, size_t length) {
    auto& cf = CMobileExportFun::GetInstance();
    CFPropertyListRef list = CfFromFrame(bytes, length);
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

bool CfFrameText(CFTypeRef value, std::string& out) {
    auto& cf = CMobileExportFun::GetInstance();
    if (!value || cf.CFGetTypeID(value) != kZebCFStringTypeID) return false;
    const CFIndex units = cf.CFStringGetLength(value);
    if (units <= 0) return false;
    thread_local std::vector<char> buffer;
    const size_t size = static_cast<size_t>(units) * 3 + 1;
    if (buffer.size() < size) buffer.resize(size);
    if (!cf.CFStringGetCString(value, buffer.data(), static_cast<CFIndex>(size), kZebCFStringEncodingUTF8))
        return false;
    const char* text = buffer.data();
    out.clear();
    if (!strchr(text, '\r')) {
        out.assign(text);
        return !out.empty();
    }
    for (const char* c = text; *c; ++c) {
        if (*c != '\r') {
            out += *c;
        } else {
            out += '\n';
            if (c[1] == '\n') ++c;
        }
    }
    return !out.empty();
}

bool CfMemberText(CFTypeRef value, std::string& out) {
    auto& cf = CMobileExportFun::GetInstance();
    if (!value) return false;
    switch (cf.CFGetTypeID(value)) {
        case kZebCFStringTypeID: return CfFrameText(value, out);
        case kZebCFDateTypeID: return CfDateText(cf, value, out);
        case kZebCFDataTypeID: return CfDataText(cf, value, out);
        default: return false;
    }
}

bool CfWholeNumber(CFTypeRef value, int64_t& out) {
    auto& cf = CMobileExportFun::GetInstance();
    if (!value || cf.CFGetTypeID(value) != kZebCFNumberTypeID || IsReal(cf, value)) return false;
    out = CfInteger(cf, value);
    return true;
}

CFTypeRef CfFromFrame(const uint8_t* bytes, size_t length) {
    auto& cf = CMobileExportFun::GetInstance();
    if (!cf.initialised || !bytes || length == 0) return nullptr;
    CFDataRef data = cf.CFDataCreate(nullptr, bytes, static_cast<CFIndex>(length));
    if (!data) return nullptr;
    CFPropertyListRef list = cf.CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
    cf.CFRelease(data);
    return list;
}

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
    auto& cf = CMobileExportFun::GetInstance();
    CFPropertyListRef list = CfFromFrame(bytes, length);
    if (!list) return false;
    // The plist element is read as an array: element 0 is the message.
    variant = PlistVariant();
    AppendArrayItem(cf, list, 0, variant);
    cf.CFRelease(list);
    return true;
}
