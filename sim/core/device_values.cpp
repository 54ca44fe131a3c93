// Lockdown values of a device: the profile's domains, the host's changes
// (kept in the state folder), and the few values that are computed.
#include "core/device.h"

#include "core/backup_settings.h"
#include "core/device_keys.h"
#include "services/afc_partition.h"

#include <chrono>
#include <cstdlib>
#include <set>

namespace zsim {
namespace {

// What a device gives to a host that has no session yet.
const std::set<std::string> kOpenKeys = {
    "ActivationState", "BasebandCertId", "BasebandKeyHashInformation", "BasebandSerialNumber",
    "BasebandVersion", "BoardId", "BuildVersion", "CPUArchitecture", "ChipID", "DeviceClass",
    "DeviceColor", "DeviceName", "DevicePublicKey", "DieID", "FirmwareVersion", "HardwareModel",
    "HardwarePlatform", "HasSiDP", "HostAttached", "PartitionType", "ProductName", "ProductType",
    "ProductVersion", "ProductionSOC", "ProtocolVersion", "SerialNumber", "SoftwareBehavior",
    "SupportedDeviceFamilies", "TelephonyCapability", "UniqueChipID", "UniqueDeviceID", "WiFiAddress",
};

// Keys computed at the moment they are asked for.
const char* const kDynamicKeys[] = {"UniqueDeviceID", "DevicePublicKey", "TimeIntervalSince1970",
                                    "PasswordProtected", "HostAttached", "TrustedHostAttached"};

// Its WillEncrypt follows the backup service's encryption setting.
const char* const kBackupDomain = "com.apple.mobile.backup";
// Its capacity and free space follow a media partition with a size.
const char* const kDiskUsageDomain = "com.apple.disk_usage";
const char* const kPartitionKeys[] = {"TotalDataCapacity", "TotalDataAvailable", "AmountDataAvailable"};

const char* overrideSlot(const std::string& domain) { return domain.empty() ? "DefaultDomain" : domain.c_str(); }

int majorVersion(plist_t values) {
    auto v = dictString(values, "ProductVersion");
    return v ? std::atoi(v->c_str()) : 0;
}

}  // namespace

PlistPtr Device::dynamicValue(const std::string& key) {
    if (key == "UniqueDeviceID") return adopt(plist_new_string(udid_.c_str()));
    if (key == "DevicePublicKey") {
        std::string pem = publicKeyPem();
        return pem.empty() ? nullptr : adopt(plist_new_data(pem.data(), pem.size()));
    }
    if (key == "TimeIntervalSince1970") {
        double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
        // iOS 4 gave whole seconds; later systems give fractions.
        if (majorVersion(dictDict(profile_.get(), "Values")) < 5)
            return adopt(plist_new_uint(static_cast<uint64_t>(now)));
        return adopt(plist_new_real(now));
    }
    if (key == "PasswordProtected") {
        std::lock_guard<std::mutex> lock(mutex_);
        return adopt(plist_new_bool(trust_ == TrustMode::Locked));
    }
    if (key == "HostAttached" || key == "TrustedHostAttached") return adopt(plist_new_bool(1));
    return nullptr;
}

PlistPtr Device::partitionUsage(const std::string& domain, const std::string& key) {
    if (domain != kDiskUsageDomain) return nullptr;
    MediaPartition* partition = mediaPartitionFor(mediaRoot_, profile_.get());
    if (!partition) return nullptr;
    if (key == "TotalDataCapacity") return adopt(plist_new_uint(partition->capacity()));
    if (key == "TotalDataAvailable" || key == "AmountDataAvailable")
        return adopt(plist_new_uint(partition->freeBytes()));
    return nullptr;
}

plist_t Device::domainValues(const std::string& domain) {
    if (domain.empty()) return dictDict(profile_.get(), "Values");
    return dictDict(dictDict(profile_.get(), "Domains"), domain.c_str());
}

std::string Device::deviceName() {
    std::string error;
    PlistPtr v = getValue("", "DeviceName", true, error);
    return stringValue(v.get()).value_or("");
}

PlistPtr Device::getValue(const std::string& domain, const std::string& key, bool inSession, std::string& error) {
    // The whole domain as the device sees it now: profile, then the host's changes.
    plist_t base = domainValues(domain);
    PlistPtr overrides;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        plist_t slot = dictDict(dictDict(memory_.get(), "Overrides"), overrideSlot(domain));
        if (slot) overrides = adopt(plist_copy(slot));
    }
    if (!base && !overrides) {
        error = "MissingValue";
        return nullptr;
    }
    if (!inSession && !domain.empty()) {
        error = "GetProhibited";
        return nullptr;
    }

    if (!key.empty()) {
        if (!inSession && !kOpenKeys.count(key)) {
            bool exists = (base && plist_dict_get_item(base, key.c_str())) || dynamicValue(key) != nullptr;
            error = exists ? "GetProhibited" : "MissingValue";
            return nullptr;
        }
        if (domain == kBackupDomain && key == "WillEncrypt")
            return adopt(plist_new_bool(backupSettingsFor(stateDir_, udid_, profile_.get()).willEncrypt()));
        if (PlistPtr usage = partitionUsage(domain, key)) return usage;
        if (overrides && plist_dict_get_item(overrides.get(), key.c_str()))
            return adopt(plist_copy(plist_dict_get_item(overrides.get(), key.c_str())));
        if (domain.empty()) {
            if (PlistPtr dyn = dynamicValue(key)) return dyn;
        }
        if (base && plist_dict_get_item(base, key.c_str()))
            return adopt(plist_copy(plist_dict_get_item(base, key.c_str())));
        error = "MissingValue";
        return nullptr;
    }

    if (inSession && !givesWholeDomains()) {
        error = "MissingValue";
        return nullptr;
    }
    PlistPtr all = adopt(base ? plist_copy(base) : plist_new_dict());
    if (domain.empty()) {
        for (const char* dyn : kDynamicKeys) {
            if (PlistPtr v = dynamicValue(dyn)) plist_dict_set_item(all.get(), dyn, v.release());
        }
    }
    mergeDict(all.get(), overrides.get());
    for (const char* key : kPartitionKeys)
        if (PlistPtr usage = partitionUsage(domain, key)) plist_dict_set_item(all.get(), key, usage.release());
    if (domain == kBackupDomain)
        plist_dict_set_item(all.get(), "WillEncrypt",
                            plist_new_bool(backupSettingsFor(stateDir_, udid_, profile_.get()).willEncrypt()));
    if (!inSession) {
        // Before a session the device shows only its public face.
        PlistPtr open = adopt(plist_new_dict());
        for (const auto& k : kOpenKeys) {
            if (plist_t v = plist_dict_get_item(all.get(), k.c_str())) plist_dict_set_item(open.get(), k.c_str(), plist_copy(v));
        }
        return open;
    }
    return all;
}

bool Device::setValue(const std::string& domain, const std::string& key, plist_t value, std::string& error) {
    if (!value) {
        error = "MissingValue";
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    plist_t overrides = dictDict(memory_.get(), "Overrides");
    plist_t slot = dictDict(overrides, overrideSlot(domain));
    if (!slot) {
        plist_dict_set_item(overrides, overrideSlot(domain), plist_new_dict());
        slot = dictDict(overrides, overrideSlot(domain));
    }
    if (key.empty()) {
        // A value without a key replaces keys of the domain one by one.
        if (plist_get_node_type(value) != PLIST_DICT) {
            error = "MissingKey";
            return false;
        }
        mergeDict(slot, value);
    } else {
        plist_dict_set_item(slot, key.c_str(), plist_copy(value));
    }
    saveMemory();
    return true;
}

bool Device::removeValue(const std::string& domain, const std::string& key, std::string& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    plist_t slot = dictDict(dictDict(memory_.get(), "Overrides"), overrideSlot(domain));
    if (!slot || key.empty() || !plist_dict_get_item(slot, key.c_str())) {
        error = "MissingValue";
        return false;
    }
    plist_dict_remove_item(slot, key.c_str());
    saveMemory();
    return true;
}

}  // namespace zsim
