#include "zeb_app_metadata.h"

#include "zeb_format.h"
#include "zeb_mobile_export_fun.h"
#include "zeb_plist_bridge.h"

#include <openssl/evp.h>

#include <cctype>

namespace zeb {

namespace {

const PlistVariant* member(const PlistVariant& dictionary, const char* key) {
    if (dictionary.tag() != VariantTag::Dictionary || !dictionary.dictionary()) return nullptr;
    return dictionary.dictionary()->Find(key);
}

const std::string* textMember(const PlistVariant& dictionary, const char* key) {
    const PlistVariant* value = member(dictionary, key);
    return value && value->tag() == VariantTag::String ? &value->text() : nullptr;
}

void addText(rapidjson::Value& object, const char* name, const std::string& text,
             rapidjson::Document::AllocatorType& allocator) {
    object.AddMember(rapidjson::Value(name, allocator), rapidjson::Value(text.c_str(), text.size(), allocator),
                     allocator);
}

}  // namespace

bool decodeBase64(const std::string& text, std::string& bytes) {
    bytes.clear();
    std::string compact;
    compact.reserve(text.size());
    for (char c : text)
        if (!std::isspace(static_cast<unsigned char>(c))) compact.push_back(c);
    if (compact.empty()) return true;
    if (compact.size() % 4 != 0) return false;
    bytes.resize(compact.size() / 4 * 3);
    int written = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                  reinterpret_cast<const unsigned char*>(compact.data()),
                                  static_cast<int>(compact.size()));
    if (written < 0) {
        bytes.clear();
        return false;
    }
    // EVP_DecodeBlock counts the padding as zero bytes.
    size_t padding = 0;
    for (size_t i = compact.size(); i > 0 && compact[i - 1] == '=' && padding < 2; --i) ++padding;
    bytes.resize(static_cast<size_t>(written) - padding);
    return true;
}

std::string storeTimeText(const std::string& text) {
    if (text.size() < 19) return {};
    return utcTextToLocal(text.c_str());
}

namespace {

// The two holders of a metadata dictionary, read alike: a value tree from an
// installed package, or the device's property list itself.
struct VariantFields {
    const PlistVariant* dictionary;
    explicit operator bool() const { return dictionary != nullptr; }
    bool text(const char* key, std::string& out) const {
        const std::string* found = textMember(*dictionary, key);
        if (found) out = *found;
        return found != nullptr;
    }
    VariantFields child(const char* key) const { return {member(*dictionary, key)}; }
};

struct CfFields {
    CFTypeRef dictionary;
    explicit operator bool() const { return dictionary != nullptr; }
    bool text(const char* key, std::string& out) const { return CfMemberText(CfDictionaryValue(dictionary, key), out); }
    CfFields child(const char* key) const {
        const void* value = CfDictionaryValue(dictionary, key);
        bool isDictionary = value && CMobileExportFun::GetInstance().CFGetTypeID(value) == kZebCFDictionaryTypeID;
        return {isDictionary ? value : nullptr};
    }
};

template <typename Fields>
void addMembersFrom(const Fields& metadata, rapidjson::Value& object, rapidjson::Document::AllocatorType& allocator) {
    if (!object.IsObject() || !metadata) return;
    static const char* const kIfMissing[][2] = {
        {"softwareVersionBundleId", "CFBundleIdentifier"},
        {"bundleShortVersionString", "CFBundleShortVersionString"},
        {"bundleVersion", "CFBundleVersion"},
        {"bundleDisplayName", "CFBundleDisplayName"},
    };
    std::string text;
    for (const auto& pair : kIfMissing)
        if (metadata.text(pair[0], text) && !object.HasMember(pair[1])) addText(object, pair[1], text, allocator);
    if (metadata.text("releaseDate", text)) addText(object, "releaseDate", storeTimeText(text), allocator);
    static const char* const kCopied[][2] = {
        {"artistName", "artistName"},
        {"itemName", "itemName"},
        {"softwareIcon57x57URL", "softwareIcon57x57URL"},
        {"appleId", "AppleID"},
    };
    for (const auto& pair : kCopied)
        if (metadata.text(pair[0], text)) addText(object, pair[1], text, allocator);

    const Fields download = metadata.child("com.apple.iTunesStore.downloadInfo");
    if (!download) return;
    if (download.text("purchaseDate", text)) addText(object, "purchaseDate", storeTimeText(text), allocator);
    if (const Fields account = download.child("accountInfo"); account && account.text("AppleID", text))
        addText(object, "AppleID", text, allocator);
}

}  // namespace

void addMetadataMembers(const PlistVariant& metadata, rapidjson::Value& object,
                        rapidjson::Document::AllocatorType& allocator) {
    if (metadata.tag() != VariantTag::Dictionary || !metadata.dictionary()) return;
    addMembersFrom(VariantFields{&metadata}, object, allocator);
}

void addMetadataMembers(const uint8_t* bytes, size_t length, rapidjson::Value& object,
                        rapidjson::Document::AllocatorType& allocator) {
    if (!bytes || length == 0) return;
    CFTypeRef metadata = CfFromFrame(bytes, length);
    if (!metadata) return;
    if (CMobileExportFun::GetInstance().CFGetTypeID(metadata) == kZebCFDictionaryTypeID)
        addMembersFrom(CfFields{metadata}, object, allocator);
    CMobileExportFun::GetInstance().CFRelease(metadata);
}

const PlistVariant* firstDictionary(const PlistVariant& decoded) {
    if (decoded.tag() != VariantTag::Array) return nullptr;
    for (const PlistVariant& element : decoded.array())
        if (element.tag() == VariantTag::Dictionary && element.dictionary()) return &element;
    return nullptr;
}

}  // namespace zeb
