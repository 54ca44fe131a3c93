#include "zeb_device_overview.h"

#include "zeb_afc.h"

#include <glog/logging.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstring>
#include <vector>

namespace zeb {

namespace {

enum class Kind { Text, Flag, Number, Families };

struct Member {
    const char* key;
    const char* domain;
    Kind kind;
};

// The members in the order the parent shows them.
const Member kMembers[] = {
    {"RegionInfo", nullptr, Kind::Text},
    {"DeviceName", nullptr, Kind::Text},
    {"DeviceClass", nullptr, Kind::Text},
    {"ProductType", nullptr, Kind::Text},
    {"ProductVersion", nullptr, Kind::Text},
    {"SerialNumber", nullptr, Kind::Text},
    {"UniqueDeviceID", nullptr, Kind::Text},
    {"ModelNumber", nullptr, Kind::Text},
    {"BuildVersion", nullptr, Kind::Text},
    {"HardwareModel", nullptr, Kind::Text},
    {"DeviceEnclosureColor", nullptr, Kind::Text},
    {"CPUArchitecture", nullptr, Kind::Text},
    {"WiFiAddress", nullptr, Kind::Text},
    {"BluetoothAddress", nullptr, Kind::Text},
    {"PartitionType", nullptr, Kind::Text},
    {"FirmwareVersion", nullptr, Kind::Text},
    {"ActivationState", nullptr, Kind::Text},
    {"ActivationStateAcknowledged", nullptr, Kind::Flag},
    {"BasebandVersion", nullptr, Kind::Text},
    {"BasebandBootloaderVersion", nullptr, Kind::Text},
    {"BasebandChipId", nullptr, Kind::Number},
    {"BasebandGoldCertId", nullptr, Kind::Number},
    {"IntegratedCircuitCardIdentity", nullptr, Kind::Text},
    {"InternationalMobileEquipmentIdentity", nullptr, Kind::Text},
    {"InternationalMobileSubscriberIdentity", nullptr, Kind::Text},
    {"MLBSerialNumber", nullptr, Kind::Text},
    {"MobileSubscriberCountryCode", nullptr, Kind::Text},
    {"MobileSubscriberNetworkCode", nullptr, Kind::Text},
    {"MobileEquipmentIdentifier", nullptr, Kind::Text},
    {"PasswordProtected", nullptr, Kind::Flag},
    {"PhoneNumber", nullptr, Kind::Text},
    {"ProductionSOC", nullptr, Kind::Flag},
    {"ProtocolVersion", nullptr, Kind::Text},
    {"SIMStatus", nullptr, Kind::Text},
    {"SupportedDeviceFamilies", nullptr, Kind::Families},
    {"TimeIntervalSince1970", nullptr, Kind::Number},
    {"TimeZone", nullptr, Kind::Text},
    {"TimeZoneOffsetFromUTC", nullptr, Kind::Number},
    {"UniqueChipID", nullptr, Kind::Number},
    {"Uses24HourClock", nullptr, Kind::Flag},
    {"BatteryIsCharging", "com.apple.mobile.battery", Kind::Flag},
    {"Keyboard", "com.apple.international", Kind::Text},
    {"BatteryCurrentCapacity", "com.apple.mobile.battery", Kind::Number},
    {"TotalDiskCapacity", "com.apple.disk_usage", Kind::Number},
    {"TotalSystemAvailable", "com.apple.disk_usage", Kind::Number},
    {"TotalSystemCapacity", "com.apple.disk_usage", Kind::Number},
};

bool readFlag(DeviceHandle handle, const char* key, const char* domain, int& flag) {
    CFTypeRef value = CopyDomainValue(handle, key, domain);
    if (!value) return false;
    bool ok = api().CFGetTypeID(value) == kZebCFBooleanTypeID;
    if (ok) flag = api().CFBooleanGetValue(value) ? 1 : 0;
    api().CFRelease(value);
    return ok;
}

}  // namespace

std::string BuildDeviceOverview(ZEBDevice& device) {
    rapidjson::Document json(rapidjson::kObjectType);
    auto& allocator = json.GetAllocator();
    for (const Member& member : kMembers) {
        rapidjson::Value key(member.key, allocator);
        switch (member.kind) {
            case Kind::Text: {
                std::string text;
                if (!ReadStringValue(device.handle, member.key, member.domain, text)) break;
                if (strcmp(member.key, "ProductType") == 0) LOG(INFO) << "ProductType: " << text;
                if (strcmp(member.key, "ModelNumber") == 0) LOG(INFO) << "ModelNumber: " << text;
                if (strcmp(member.key, "ProductVersion") == 0) {
                    LOG(INFO) << "ProductVersion: " << text;
                    device.product_version_utf8 = text;
                }
                json.AddMember(key, rapidjson::Value(text.c_str(), allocator), allocator);
                break;
            }
            case Kind::Flag: {
                int flag = 0;
                if (readFlag(device.handle, member.key, member.domain, flag)) json.AddMember(key, flag, allocator);
                break;
            }
            case Kind::Number: {
                int64_t number = 0;
                if (ReadIntegerValue(device.handle, member.key, number, member.domain))
                    json.AddMember(key, rapidjson::Value(number), allocator);
                break;
            }
            case Kind::Families: {
                std::vector<int64_t> families;
                if (!ReadDeviceFamilies(device.handle, families)) break;
                rapidjson::Value list(rapidjson::kArrayType);
                for (int64_t family : families) list.PushBack(rapidjson::Value(family), allocator);
                json.AddMember(key, list, allocator);
                break;
            }
        }
    }
    json.AddMember("IsJailbreak", IsJailbreak(device) ? 1 : 0, allocator);
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    json.Accept(writer);
    return text.GetString();
}

}  // namespace zeb
