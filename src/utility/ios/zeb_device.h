// The attached device and the shared objects below it: the lockdown link,
// a session on it, and started services. Each lower object keeps the one
// above alive; the last release undoes the library state in reverse order.
#pragma once

#include "zeb_mobile_export_fun.h"
#include "zeb_plist_variant.h"
#include "zeb_task_table.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

using DeviceHandle = AMDeviceRef;

enum DeviceState : int32_t {
    kDeviceReady = 1,
    kDeviceDisconnected = 2,
    kDeviceCreated = 3,
    kDeviceTrustAnswered = 4,
};

// Device-layer codes the monitor and the modules pass on.
enum DeviceError : int32_t {
    kErrorTooOld = 3,
    kErrorAfcServiceFailed = 12,
    kErrorDeviceInfoFailed = 17,
    kErrorNoConnection = 24,
    kErrorNotPaired = 25,
    kErrorValidatePairing = 26,
    kErrorStartSession = 27,
    kErrorServiceLocked = 48,
    kErrorNoSession = 49,
};

class ZEBDevice {
public:
    explicit ZEBDevice(DeviceHandle handle) : handle(handle) {}

    std::atomic<int32_t> state{kDeviceCreated};
    const DeviceHandle handle;
    // One bring-up at a time per device (attach, then a trust answer); other
    // devices come up beside it on the pool.
    std::mutex bringUp;
    int64_t data_physical_size = 0;
    int64_t data_free_size = 0;
    std::string model;
    std::string product_version;
    int32_t version_number = 0;
    std::string device_name;
    std::string udid;  // empty until the device has been read
    std::string serial_number;
    std::string device_class;
    std::string unique_chip_id;
    std::string product_version_utf8;
    // Local copies of device files, kept by the modules that stage them.
    std::string staged_photos_db, staged_media_library, staged_itunes_cdb, staged_ringtones_plist,
        staged_books_plist, staged_purchases_plist, staged_recordings_db, staged_asset_manifest,
        staged_library_itdb, staged_locations_itdb, staged_sms_db;
    TaskTable taskTable;

    // The device-ready event's info object, keys in the parent's order.
    std::string readyInfoJson() const;
};

class ZEBDeviceConnection {
public:
    explicit ZEBDeviceConnection(DeviceHandle handle) : handle(handle) {}
    ~ZEBDeviceConnection();
    uint32_t connection_id = 0;
    const DeviceHandle handle;
};

class ZEBDeviceSession {
public:
    ZEBDeviceSession(DeviceHandle handle, std::shared_ptr<ZEBDeviceConnection> connection)
        : handle(handle), connection(std::move(connection)) {}
    ~ZEBDeviceSession();
    const DeviceHandle handle;
    std::shared_ptr<ZEBDeviceConnection> connection;
};

class ZEBDeviceService {
public:
    ZEBDeviceService(AMDServiceConnectionRef connection, AFCConnectionRef afc, std::string name, DeviceHandle handle,
                     std::shared_ptr<ZEBDeviceSession> session);
    ~ZEBDeviceService();
    // True once the link under the service can carry no more exchanges: the
    // device closed it, or the provider gave up on a silent one. Asks the
    // device nothing.
    bool linkBroken() const;
    AMDServiceConnectionRef connection;
    AFCConnectionRef afc;
    const std::string name;
    const DeviceHandle handle;
    std::shared_ptr<ZEBDeviceSession> session;
};

using DevicePtr = std::shared_ptr<ZEBDevice>;
using ConnectionPtr = std::shared_ptr<ZEBDeviceConnection>;
using SessionPtr = std::shared_ptr<ZEBDeviceSession>;
using ServicePtr = std::shared_ptr<ZEBDeviceService>;

namespace zeb {

// Every vendor operation goes through the one binding record.
inline CMobileExportFun& api() { return CMobileExportFun::GetInstance(); }

ConnectionPtr GetConnection(DeviceHandle handle);
ConnectionPtr ReopenConnection(DeviceHandle handle);
SessionPtr GetSession(DeviceHandle handle, int32_t& error);
SessionPtr RenewSession(DeviceHandle handle, int32_t& error);
// Drops the cache entries of a device that has gone; holders keep theirs.
void ForgetDevice(DeviceHandle handle);
// The one way to start a service. "com.apple.afc" is shared per device
// until its link breaks; each device waits only for its own starts.
ServicePtr StartService(DeviceHandle handle, int32_t& error, const char* name, CFDictionaryRef options, bool openAfc);
// Drops the shared service of a device that has gone; holders keep it.
void ForgetServices(DeviceHandle handle);

// Fills the device from its lockdown values and its AFC device info.
int32_t ReadDevice(ZEBDevice& device);
// major * 10 + minor: "4.2.1" is 42, "12.4" is 124, "4.10" is 50.
int32_t VersionNumber(const std::string& productVersion);

bool ReadValue(DeviceHandle handle, const char* key, const char* domain, PlistVariant& value);
CFTypeRef CopyValue(DeviceHandle handle, const char* key);
CFTypeRef CopyDomainValue(DeviceHandle handle, const char* key, const char* domain);
bool ReadStringValue(DeviceHandle handle, const char* key, const char* domain, std::string& value);
bool ReadIntegerValue(DeviceHandle handle, const char* key, int64_t& value, const char* domain);
bool ReadDeviceFamilies(DeviceHandle handle, std::vector<int64_t>& families);
bool HasSyncAccount(DeviceHandle handle, const char* className);
// The typed reads of a value already copied (text: CfStringText); false
// (nothing written) for a null or a value of another type. Families are true
// for a non-array too.
bool IntegerFromCF(CFTypeRef value, int64_t& number);
bool FlagFromCF(CFTypeRef value, int& flag);
bool FamiliesFromCF(CFTypeRef value, std::vector<int64_t>& families);

// A whole lockdown domain copied from the device in one request, for readers
// of many keys: each key is then a lookup, not a round trip to the device.
class DomainValues {
public:
    DomainValues(DeviceHandle handle, const char* domain);
    ~DomainValues();
    DomainValues(const DomainValues&) = delete;
    DomainValues& operator=(const DomainValues&) = delete;
    // False when the device would not give the domain as a whole.
    bool read() const { return values_ != nullptr; }
    // The key's value, owned by this object; null when the domain lacks it.
    CFTypeRef find(const char* key) const;

private:
    CFTypeRef values_;
};
// The integer in a CF number, by the number's own type; false for types
// that don't hold one.
bool NumberToInteger(CFNumberRef number, int64_t& value);

}  // namespace zeb
