// Property lists from and to bytes, and the memory write stream.
#include <plist/plist.h>

#include <cstdlib>
#include <cstring>

#include "zeb_bplist_keys.h"
#include "zeb_cf_object.h"
#include "zeb_cf_plist.h"
#include "zeb_exports.h"

using namespace zebcf;

namespace {

CFPropertyListRef ParseBytes(CFDataRef data) {
    Data* d = AsData(data);
    if (!d || d->bytes.empty() || d->bytes.size() > UINT32_MAX) return nullptr;
    if (!BinaryKeysHaveNoNul(d->bytes.data(), d->bytes.size())) return nullptr;
    plist_t root = nullptr;
    plist_from_memory(reinterpret_cast<const char*>(d->bytes.data()), static_cast<uint32_t>(d->bytes.size()),
                      &root);
    if (!root) return nullptr;
    CFPropertyListRef value = FromPlist(root);
    plist_free(root);
    return value;
}

// The serialised form of value: XML for format 100, binary for 200.
bool Serialise(CFPropertyListRef value, CFIndex format, std::vector<uint8_t>& out) {
    plist_t root = ToPlist(value);
    if (!root) return false;
    char* bytes = nullptr;
    uint32_t length = 0;
    if (format == kZebCFPropertyListXMLFormat) {
        plist_to_xml(root, &bytes, &length);
    } else if (format == kZebCFPropertyListBinaryFormat) {
        plist_to_bin(root, &bytes, &length);
    }
    plist_free(root);
    if (!bytes) return false;
    out.assign(bytes, bytes + length);
    free(bytes);
    return length > 0;
}

}  // namespace

extern "C" {

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef data, uint64_t, CFIndex* format,
                                               void** error) {
    if (error) *error = nullptr;
    Data* d = AsData(data);
    if (format && d) {
        bool binary = d->bytes.size() >= 8 && std::memcmp(d->bytes.data(), "bplist00", 8) == 0;
        *format = binary ? kZebCFPropertyListBinaryFormat : kZebCFPropertyListXMLFormat;
    }
    return ParseBytes(data);
}

CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef, CFDataRef data, uint64_t, CFStringRef* error) {
    if (error) *error = nullptr;
    return ParseBytes(data);
}

CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef, CFPropertyListRef value) {
    auto* d = new Data();
    if (!Serialise(value, kZebCFPropertyListXMLFormat, d->bytes)) {
        Release(d);
        return nullptr;
    }
    return d;
}

CFWriteStreamRef CFWriteStreamCreateWithAllocatedBuffers(CFAllocatorRef, CFAllocatorRef) {
    return new WriteStream();
}

Boolean CFWriteStreamOpen(CFWriteStreamRef value) {
    auto* s = As<WriteStream>(value, kZebCFWriteStreamTypeID);
    if (!s) return 0;
    std::lock_guard<std::mutex> hold(s->lock);
    s->open = true;
    return 1;
}

void CFWriteStreamClose(CFWriteStreamRef value) {
    auto* s = As<WriteStream>(value, kZebCFWriteStreamTypeID);
    if (!s) return;
    std::lock_guard<std::mutex> hold(s->lock);
    s->open = false;
}

CFIndex CFPropertyListWriteToStream(CFPropertyListRef value, CFWriteStreamRef stream, CFIndex format,
                                    CFStringRef* error) {
    if (error) *error = nullptr;
    auto* s = As<WriteStream>(stream, kZebCFWriteStreamTypeID);
    if (!s) return 0;
    std::vector<uint8_t> bytes;
    if (!Serialise(value, format, bytes)) return 0;
    std::lock_guard<std::mutex> hold(s->lock);
    if (!s->open) return 0;
    s->written.insert(s->written.end(), bytes.begin(), bytes.end());
    return static_cast<CFIndex>(bytes.size());
}

CFTypeRef CFWriteStreamCopyProperty(CFWriteStreamRef stream, CFStringRef key) {
    auto* s = As<WriteStream>(stream, kZebCFWriteStreamTypeID);
    if (!s || !Equal(key, kCFStreamPropertyDataWritten)) return nullptr;
    auto* d = new Data();
    std::lock_guard<std::mutex> hold(s->lock);
    d->bytes = s->written;
    return d;
}

}  // extern "C"
