#include "zeb_app_metadata.h"

#include "zeb_format.h"

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

void addMetadataMembers(const PlistVariant& metadata, rapidjson::Value& object,
                        rapidjson::Document::AllocatorType& allocator) {
    if (!object.IsObject()) return;
    static const char* const kIfMissing[][2] = {
        {"softwareVersionBundleId", "CFBundleIdentifier"},
        {"bundleShortVersionString", "CFBundleShortVersionString"},
        {"bundleVersion", "CFBundleVersion"},
        {"bundleDisplayName", "CFBundleDisplayName"},
    };
    for (const auto& pair : kIfMissing) {
        const std::string* text = textMember(metadata, pair[0]);
        if (text && !object.HasMember(pair[1])) addText(object, pair[1], *text, allocator);
    }
    if (const std::string* date = textMember(metadata, "releaseDate"))
        addText(object, "releaseDate", storeTimeText(*date), allocator);
    static const char* const kCopied[][2] = {
        {"artistName", "artistName"},
        {"itemName", "itemName"},
        {"softwareIcon57x57URL", "softwareIcon57x57URL"},
        {"appleId", "AppleID"},
    };
    for (const auto& pair : kCopied)
        if (const std::string* text = textMember(metadata, pair[0])) addText(object, pair[1], *text, allocator);

    const PlistVariant* download = member(metadata, "com.apple.iTunesStore.downloadInfo");
    if (!download) return;
    if (const std::string* date = textMember(*download, "purchaseDate"))
        addText(object, "purchaseDate", storeTimeText(*date), allocator);
    if (const PlistVariant* account = member(*download, "accountInfo"))
        if (const std::string* appleId = textMember(*account, "AppleID"))
            addText(object, "AppleID", *appleId, allocator);
}

const PlistVariant* firstDictionary(const PlistVariant& decoded) {
    if (decoded.tag() != VariantTag::Array) return nullptr;
    for (const PlistVariant& element : decoded.array())
        if (element.tag() == VariantTag::Dictionary && element.dictionary()) return &element;
    return nullptr;
}

}  // namespace zeb
