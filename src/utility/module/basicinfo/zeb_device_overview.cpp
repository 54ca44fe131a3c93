#include "zeb_device_overview.h"

#include "zeb_afc.h"
#include "zeb_plist_bridge.h"

#include <glog/logging.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
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

// Each domain is copied from the device once and its members looked up in the
// copy; a device that will not give a domain whole is asked key by key.
class OverviewSources {
public:
    explicit OverviewSources(DeviceHandle handle) : handle_(handle) {}

    template <typename Convert>
    bool read(const Member& member, Convert convert) {
        const DomainValues& values = domain(member.domain);
        if (values.read()) return convert(values.find(member.key));
        CFTypeRef copied = CopyDomainValue(handle_, member.key, member.domain);
        bool ok = convert(copied);
        if (copied) api().CFRelease(copied);
        return ok;
    }

private:
    const DomainValues& domain(const char* name) {
        std::string key = name ? name : "";
        for (auto& [copiedName, values] : domains_)
            if (copiedName == key) return *values;
        domains_.emplace_back(key, std::make_unique<DomainValues>(handle_, name));
        return *domains_.back().second;
    }

    DeviceHandle handle_;
    std::vector<std::pair<std::string, std::unique_ptr<DomainValues>>> domains_;
};

}  // namespace

std::string BuildDeviceOverview(ZEBDevice& device) {
    rapidjson::Document json(rapidjson::kObjectType);
    auto& allocator = json.GetAllocator();
    OverviewSources sources(device.handle);
    for (const Member& member : kMembers) {
        rapidjson::Value key(member.key, allocator);
        switch (member.kind) {
            case Kind::Text: {
                std::string text;
                if (!sources.read(member, [&](CFTypeRef value) { return CfStringText(value, text); })) break;
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
                if (sources.read(member, [&](CFTypeRef value) { return FlagFromCF(value, flag); }))
                    json.AddMember(key, flag, allocator);
                break;
            }
            case Kind::Number: {
                int64_t number = 0;
                if (sources.read(member, [&](CFTypeRef value) { return IntegerFromCF(value, number); }))
                    json.AddMember(key, rapidjson::Value(number), allocator);
                break;
            }
            case Kind::Families: {
                std::vector<int64_t> families;
                if (!sources.read(member, [&](CFTypeRef value) { return FamiliesFromCF(value, families); })) break;
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
