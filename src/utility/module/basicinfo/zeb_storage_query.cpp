// The storage query: two service conversations that fill one JSON object.
#include "zeb_storage_query.h"

#include "zeb_afc.h"
#include "zeb_plist_bridge.h"
#include "zeb_plist_templates.h"
#include "zeb_sync_frames.h"

#include <cstring>

namespace zeb {

namespace {

const char kCycleCountRequest[] = ZEB_PLIST_PLAIN_OLD_OWNER
    "<dict><key>EntryClass</key><string>IOPMPowerSource</string><key>Request</key><string>IORegistry</string>"
    "</dict>" ZEB_PLIST_END;

const char kPowerAssertion[] = ZEB_PLIST_PLAIN_OLD_OWNER
    "<dict><key>Command</key><string>PowerAssertion</string><key>Params</key><dict><key>Enabled</key><true/></dict>"
    "<key>Session</key><integer>0</integer></dict>" ZEB_PLIST_END;

// Starts a service outside the shared service path; the caller holds the
// session for the conversation and invalidates the connection after it.
AMDServiceConnectionRef openService(DeviceHandle handle, const char* name, SessionPtr& session) {
    CFStringRef serviceName = api().__CFStringMakeConstantString(name);
    if (!serviceName) return nullptr;
    int32_t error = 0;
    session = GetSession(handle, error);
    AMDServiceConnectionRef connection = nullptr;
    int32_t result = api().AMDeviceSecureStartService(handle, serviceName, nullptr, &connection);
    if (result != 0) {
        session = RenewSession(handle, error);
        if (session) result = api().AMDeviceSecureStartService(handle, serviceName, nullptr, &connection);
    }
    if (result != 0) {
        api().CFRelease(serviceName);
        return nullptr;
    }
    return connection;
}

const PlistVariant* member(const PlistVariant* dictionary, const char* key) {
    if (!dictionary || dictionary->tag() != VariantTag::Dictionary || !dictionary->dictionary()) return nullptr;
    return dictionary->dictionary()->Find(key);
}

// Both conversations end on their first answer.
void handleAnswer(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    auto& report = *static_cast<StorageReport*>(context);
    *keepWaiting = false;
    *result = 0;
    PlistVariant decoded;
    if (!DecodeFrame(bytes, length, decoded) || decoded.tag() != VariantTag::Array) return;
    const PlistVariant* message = decoded.At(0);
    if (!message || message->tag() != VariantTag::Dictionary) return;
    if (report.mode == 0) {
        const PlistVariant* cycles = member(member(member(message, "Diagnostics"), "IORegistry"), "CycleCount");
        if (cycles && cycles->tag() == VariantTag::Int64)
            report.json.AddMember("CycleCount", rapidjson::Value(cycles->int64()), report.json.GetAllocator());
    } else {
        const PlistVariant* params = member(message, "Params");
        if (params && params->tag() == VariantTag::Dictionary && params->dictionary())
            CollectAssetMetrics(*params->dictionary(), report);
    }
    *result = 1;
}

void readCycleCount(ZEBDevice& device, StorageReport& report) {
    SessionPtr session;
    AMDServiceConnectionRef relay = openService(device.handle, "com.apple.mobile.diagnostics_relay", session);
    if (!relay) return;
    SyncMessage* request = EncodeMessage(kCycleCountRequest);
    if (request) {
        report.mode = 0;
        SyncExchange(relay, request, handleAnswer, &report);
        FreeSyncMessage(request);
    }
    api().AMDServiceConnectionInvalidate(relay);
}

bool receiveExact(AMDServiceConnectionRef connection, void* into, size_t length) {
    auto* bytes = static_cast<unsigned char*>(into);
    size_t done = 0;
    while (done < length) {
        ssize_t got = api().AMDServiceConnectionReceive(connection, bytes + done, length - done);
        if (got <= 0) return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

// Reads AirTraffic frames (little-endian lengths) until the metrics, a
// Ping or IdleExit, or the end of the link.
void readAssetMetrics(AMDServiceConnectionRef atc, StorageReport& report) {
    unsigned char* buffer = threadTransferBuffer();
    for (;;) {
        uint32_t length = 0;
        if (!receiveExact(atc, &length, sizeof length) || length == 0) return;
        // A frame longer than the transfer buffer is not a message we take.
        if (length > kTransferBufferSize) return;
        if (!receiveExact(atc, buffer, length)) return;
        // The message's name, its first value, read before a full decoding.
        std::string command;
        DecodeToXml(buffer, length, command);
        if (command == "IdleExit" || command == "Ping") return;
        if (command == "AssetMetrics") {
            report.mode = 1;
            bool keepWaiting = false;
            uint8_t result = 0;
            handleAnswer(&report, buffer, length, &keepWaiting, &result);
            return;
        }
    }
}

}  // namespace

bool QueryStorage(ZEBDevice& device, StorageReport& report) {
    report.udid = device.udid;
    readCycleCount(device, report);

    SessionPtr session;
    AMDServiceConnectionRef atc = openService(device.handle, "com.apple.atc", session);
    if (!atc) return false;
    SyncMessage* assertion = EncodeMessage(kPowerAssertion);
    if (assertion) {
        uint32_t length = assertion->length;  // little-endian, as it stands in memory
        api().AMDServiceConnectionSend(atc, &length, sizeof length);
        api().AMDServiceConnectionSend(atc, assertion->bytes, assertion->length);
        FreeSyncMessage(assertion);
        readAssetMetrics(atc, report);
    }
    api().AMDServiceConnectionInvalidate(atc);
    WriteStorageMembers(report);
    return true;
}

}  // namespace zeb
