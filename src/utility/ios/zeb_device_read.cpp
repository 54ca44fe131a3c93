// Reading what a device is when it becomes ready.
#include "zeb_device.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "zeb_plist_bridge.h"
#include "zeb_settings.h"

namespace zeb {

namespace {

// The default domain is copied once for the six keys below; a device that will
// not give it whole is asked key by key.
bool readKey(DeviceHandle handle, const DomainValues& domain, const char* key, PlistVariant& value) {
    if (!domain.read()) return ReadValue(handle, key, nullptr, value);
    CFTypeRef found = domain.find(key);
    return found && CfToVariant(found, value);
}

void readText(DeviceHandle handle, const DomainValues& domain, const char* key, std::string& into) {
    PlistVariant value;
    if (readKey(handle, domain, key, value) && value.tag() == VariantTag::String) into = value.text();
}
}  // namespace

int32_t VersionNumber(const std::string& productVersion) {
    const char* text = productVersion.c_str();
    int major = atoi(text);
    const char* dot = strchr(text, '.');
    // With no dot the whole text serves as both parts.
    int minor = dot ? atoi(dot + 1) : major;
    return minor + major * 10;
}

int32_t ReadDevice(ZEBDevice& device) {
    int32_t error = 0;
    SessionPtr session = GetSession(device.handle, error);
    if (!session) return error ? error : kErrorNoSession;

    {
        DomainValues values(device.handle, nullptr);
        readText(device.handle, values, "ProductVersion", device.product_version);
        readText(device.handle, values, "DeviceName", device.device_name);
        readText(device.handle, values, "UniqueDeviceID", device.udid);
        readText(device.handle, values, "SerialNumber", device.serial_number);
        readText(device.handle, values, "DeviceClass", device.device_class);
        PlistVariant chip;
        if (readKey(device.handle, values, "UniqueChipID", chip) && chip.tag() == VariantTag::Int64)
            device.unique_chip_id = std::to_string(chip.int64());
    }

    device.version_number = VersionNumber(device.product_version);
    if ((device.device_class == "iPod" || device.device_class == "iPhone") && device.version_number < 42)
        return kErrorTooOld;

    ServicePtr afc = StartService(device.handle, error, "com.apple.afc", nullptr, true);
    if (!afc) return error ? error : kErrorAfcServiceFailed;
    AFCKeyValueRef info = nullptr;
    if (!afc->afc || api().AFCDeviceInfoOpen(afc->afc, &info) != 0) return kErrorDeviceInfoFailed;
    char* key = nullptr;
    char* value = nullptr;
    while (api().AFCKeyValueRead(info, &key, &value) == 0 && key) {
        if (!value) continue;
        if (strcmp(key, "FSTotalBytes") == 0) device.data_physical_size = strtoll(value, nullptr, 10);
        else if (strcmp(key, "FSFreeBytes") == 0) device.data_free_size = strtoll(value, nullptr, 10);
        else if (strcmp(key, "Model") == 0) device.model = value;
    }
    api().AFCKeyValueClose(info);
    return 0;
}

}  // namespace zeb

std::string ZEBDevice::readyInfoJson() const {
    // Written by hand in the parent's key order; the texts are escaped only
    // where they would break the JSON.
    auto text = [](const std::string& value) {
        std::string out;
        for (char c : value) {
            if (c == '"' || c == '\\') out.push_back('\\');
            if (static_cast<unsigned char>(c) >= 0x20) out.push_back(c);
        }
        return out;
    };
    char numbers[160];
    snprintf(numbers, sizeof numbers, "\"Data_FreeSize\":%llu,\"Data_PhysicalSize\":%llu,\"Pid\":%d,\"TaskId\":%lld,",
             static_cast<unsigned long long>(data_free_size), static_cast<unsigned long long>(data_physical_size),
             static_cast<int>(getpid()), static_cast<long long>(zeb::settings().taskId));
    return "{\"Model\":\"" + text(model) + "\",\"FirmVersion\":\"" + text(product_version) + "\",\"Type\":\"" +
           text(device_class) + "\"," + numbers + "\"SerialNumber\":\"" + text(serial_number) + "\"}";
}

