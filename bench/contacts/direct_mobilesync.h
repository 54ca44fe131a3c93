// The reference a contact listing is measured against: libimobiledevice's
// own mobilesync client reading every record of a class, as a host
// program would, with no worker in between.
#pragma once

#include <string>

struct DirectRead {
    bool ok = false;
    size_t records = 0;
    size_t pages = 0;
    std::string error;
};

// Reads all records of `dataClass` from the device through usbmuxd (found
// through USBMUXD_SOCKET_ADDRESS), acknowledging every page.
DirectRead readAllRecords(const std::string& udid, const char* dataClass);
