// What the worker reads out of an app's store metadata (the device's
// "iTunesMetadata" data, or a package's iTunesMetadata.plist) into the JSON
// object that the parent shows for the app.
#pragma once

#include "zeb_mobile_device_api.h"
#include "zeb_plist_variant.h"

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace zeb {

// Standard-alphabet base64 to bytes; line breaks and other white space are
// skipped. False for text that is not base64.
bool decodeBase64(const std::string& text, std::string& bytes);

// "YYYY-MM-DDThh:mm:ssZ" (read by position, as UTC) as local
// "YYYY-MM-DD hh:mm:ss"; empty for a text shorter than 19 characters.
std::string storeTimeText(const std::string& text);

// Adds the metadata members of `metadata` (a dictionary) to `object`:
// identifier, versions and display name only when the object lacks them,
// then the release date, artist, item name, icon URL, account and purchase
// date. The account is added a second time when the download information
// carries one as well, as the parent expects.
void addMetadataMembers(const PlistVariant& metadata, rapidjson::Value& object,
                        rapidjson::Document::AllocatorType& allocator);
// The same from the bytes of a property list (XML or binary) that holds the
// metadata dictionary; nothing for bytes that hold none.
void addMetadataMembers(const uint8_t* bytes, size_t length, rapidjson::Value& object,
                        rapidjson::Document::AllocatorType& allocator);

// The message dictionary of a decoded property list: the first dictionary
// in the array that DecodeFrame gives, or null.
const PlistVariant* firstDictionary(const PlistVariant& decoded);

}  // namespace zeb
