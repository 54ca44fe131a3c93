#include "zeb_mobile_export_fun.h"
#include "zeb_plist_bridge.h"

namespace {

// Writes value into a fresh memory stream and takes the bytes out of it.
SyncMessage* WriteToNewStream(CMobileExportFun& cf, CFPropertyListRef value, CFIndex format, bool close) {
    CFWriteStreamRef stream = cf.CFWriteStreamCreateWithAllocatedBuffers(nullptr, nullptr);
    if (!stream) return nullptr;
    SyncMessage* message = nullptr;
    if (cf.CFWriteStreamOpen(stream) && cf.CFPropertyListWriteToStream(value, stream, format, nullptr) != 0) {
        CFDataRef data = cf.CFWriteStreamCopyProperty(stream, *cf.kCFStreamPropertyDataWritten);
        if (data) {
            message = new SyncMessage();
            message->owner = data;
            message->bytes = cf.CFDataGetBytePtr(data);
            message->length = static_cast<uint32_t>(cf.CFDataGetLength(data));
        }
        if (close) cf.CFWriteStreamClose(stream);
    }
    cf.CFRelease(stream);
    return message;
}

}  // namespace

void FreeSyncMessage(SyncMessage* message) {
    if (!message) return;
    if (message->owner) CMobileExportFun::GetInstance().CFRelease(message->owner);
    delete message;
}

CFPropertyListRef XmlToPlist(const char* text, size_t length) {
    auto& cf = CMobileExportFun::GetInstance();
    if (!cf.initialised || !text) return nullptr;
    CFDataRef data = cf.CFDataCreate(nullptr, reinterpret_cast<const uint8_t*>(text), static_cast<CFIndex>(length));
    if (!data) return nullptr;
    CFPropertyListRef list = cf.CFPropertyListCreateFromXMLData(nullptr, data, 0, nullptr);
    cf.CFRelease(data);
    return list;
}

SyncMessage* EncodeMessage(const char* text, long length) {
    auto& cf = CMobileExportFun::GetInstance();
    if (!cf.initialised || !text) return nullptr;
    size_t size = length < 0 ? std::char_traits<char>::length(text) : static_cast<size_t>(length);
    CFPropertyListRef list = XmlToPlist(text, size);
    if (!list) return nullptr;
    SyncMessage* message = WriteToNewStream(cf, list, kZebCFPropertyListBinaryFormat, true);
    cf.CFRelease(list);
    return message;
}

SyncMessage* EncodeValue(CFPropertyListRef value, CFIndex format) {
    auto& cf = CMobileExportFun::GetInstance();
    if (!cf.initialised || !value) return nullptr;
    return WriteToNewStream(cf, value, format, false);
}
