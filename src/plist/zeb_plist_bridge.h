// Property lists in both directions: outgoing messages are written as XML
// text and re-encoded as binary property lists; incoming ones are turned
// into XML text and walked into the value tree. Lockdown values go from CF
// straight to the value tree. Nothing here logs: failures are null, false
// or an empty string.
#pragma once

#include <cstdint>
#include <string>

#include "zeb_mobile_device_api.h"
#include "zeb_plist_variant.h"

// One encoded outgoing message. bytes point into owner.
struct SyncMessage {
    const uint8_t* bytes = nullptr;
    uint32_t length = 0;
    CFDataRef owner = nullptr;
};

// Releases owner and deletes the record; null is allowed.
void FreeSyncMessage(SyncMessage* message);

// An owned CF property list from XML text, or null.
CFPropertyListRef XmlToPlist(const char* text, size_t length);

// The XML text as a binary property list, or null. A negative length means
// the text's own length.
SyncMessage* EncodeMessage(const char* text, long length = -1);

// A CF value in the given format (200 binary, 100 XML), or null.
SyncMessage* EncodeValue(CFPropertyListRef value, CFIndex format);

// The text of the first value of the top dictionary of a received property
// list: a message's name read before the full decoding. Empty on failure.
void DecodeToXml(const uint8_t* bytes, size_t length, std::string& text);

// Received bytes (binary or XML property list) to the value tree. The result
// is an array of one element that holds the message.
bool DecodeFrame(const uint8_t* bytes, size_t length, PlistVariant& variant);

// The text of the first value in the top dictionary of XML text, or empty.
std::string FirstValueText(const std::string& xml);

// The value under `key` (one of the code's own names: it is interned) of a
// CF dictionary (not owned), or null when there is none or `dict` is no
// dictionary.
const void* CfDictionaryValue(CFTypeRef dict, const char* key);

// A CF string as UTF-8; false when the value is no string.
bool CfStringText(const void* value, std::string& out);

// A CF string as DecodeFrame puts it in the value tree: UTF-8 with "\r\n" and
// "\r" read as "\n"; false for no string or an empty one, which the tree
// leaves out.
bool CfFrameText(CFTypeRef value, std::string& out);
// A dictionary member as text the way DecodeFrame keeps it: strings as above,
// dates as "YYYY-MM-DDThh:mm:ssZ", data as its base64 lines; false otherwise.
bool CfMemberText(CFTypeRef value, std::string& out);

// A CF number as the value tree keeps a dictionary's number: whole numbers
// only (unsigned ones beyond the signed range read as the largest); false for
// reals and for anything that is no number.
bool CfWholeNumber(CFTypeRef value, int64_t& out);

// Received bytes (binary or XML property list) as an owned CF value, for
// readers that pick a few members out of large messages; null on failure.
CFTypeRef CfFromFrame(const uint8_t* bytes, size_t length);

// A lockdown value to the value tree. Strings must be ASCII and shorter than
// 260 bytes, and data becomes upper-case hexadecimal; anything else that
// can't be converted is left out (variant stays empty, result false).
bool CfToVariant(CFTypeRef value, PlistVariant& variant);
