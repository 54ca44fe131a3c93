#include "core/usbmux_server.h"

#include "core/device_hub.h"
#include "core/device_port.h"
#include "core/socket_io.h"
#include "core/usbmux_wire.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cstdio>

namespace zsim {
namespace {

constexpr uint16_t kLockdownPort = 62078;

class UsbmuxClient {
public:
    UsbmuxClient(int fd, DeviceHub& hub) : fd_(fd), hub_(hub) {}

    void run() {
        UsbmuxHeader header;
        std::string body;
        while (readUsbmuxMessage(fd_, header, body)) {
            if (header.version != 1 || header.message != kUsbmuxPlist) {
                // Only the property-list protocol is spoken; the host then knows to use it.
                if (!reply(header.tag, kResultBadVersion)) return;
                continue;
            }
            PlistPtr request = parsePlist(body.data(), body.size());
            std::string type = dictString(request.get(), "MessageType").value_or("");
            if (type == "ListDevices") {
                if (!listDevices(header.tag)) return;
            } else if (type == "Listen") {
                listen(header.tag);
                return;
            } else if (type == "Connect") {
                connect(header.tag, request.get());
                return;
            } else if (type == "ReadBUID") {
                PlistPtr a = adopt(plist_new_dict());
                plist_dict_set_item(a.get(), "BUID", plist_new_string(hub_.pairRecords().systemBuid().c_str()));
                if (!sendUsbmuxPlist(fd_, header.tag, a.get())) return;
            } else if (type == "ReadPairRecord") {
                if (!readPairRecord(header.tag, request.get())) return;
            } else if (type == "SavePairRecord") {
                if (!savePairRecord(header.tag, request.get())) return;
            } else if (type == "DeletePairRecord") {
                std::string udid = dictString(request.get(), "PairRecordID").value_or("");
                if (!reply(header.tag, hub_.pairRecords().remove(udid) ? kResultOk : kResultBadDevice)) return;
            } else if (type == "ListListeners") {
                PlistPtr a = adopt(plist_new_dict());
                plist_dict_set_item(a.get(), "ListenerList", plist_new_array());
                if (!sendUsbmuxPlist(fd_, header.tag, a.get())) return;
            } else {
                if (!reply(header.tag, kResultBadCommand)) return;
            }
        }
    }

private:
    bool reply(uint32_t tag, uint64_t code) { return sendUsbmuxPlist(fd_, tag, usbmuxResult(code).get()); }

    bool listDevices(uint32_t tag) {
        PlistPtr a = adopt(plist_new_dict());
        plist_t list = plist_new_array();
        for (auto& device : hub_.attachedDevices()) plist_array_append_item(list, hub_.attachedRecord(*device).release());
        plist_dict_set_item(a.get(), "DeviceList", list);
        return sendUsbmuxPlist(fd_, tag, a.get());
    }

    void listen(uint32_t tag) {
        if (!reply(tag, kResultOk)) return;
        hub_.addListener(fd_);
        // Nothing more comes from a listener; its leaving ends the subscription.
        char scratch[256];
        while (read(fd_, scratch, sizeof(scratch)) > 0) {
        }
        hub_.removeListener(fd_);
    }

    void connect(uint32_t tag, plist_t request) {
        uint32_t deviceId = static_cast<uint32_t>(dictUInt(request, "DeviceID").value_or(0));
        // The port arrives in network byte order inside the integer.
        uint16_t port = ntohs(static_cast<uint16_t>(dictUInt(request, "PortNumber").value_or(0)));
        std::shared_ptr<Device> device = hub_.attachedById(deviceId);
        if (!device) {
            reply(tag, kResultBadDevice);
            return;
        }
        std::optional<std::string> service;
        if (port != kLockdownPort) {
            service = device->takeServicePort(port);
            if (!service) {
                reply(tag, kResultConnectionRefused);
                return;
            }
        }
        if (reply(tag, kResultOk)) serveDeviceConnection(fd_, *device, service.value_or(""));
    }

    bool readPairRecord(uint32_t tag, plist_t request) {
        std::string udid = dictString(request, "PairRecordID").value_or("");
        auto data = hub_.pairRecords().read(udid);
        if (!data) return reply(tag, kResultBadDevice);
        PlistPtr a = adopt(plist_new_dict());
        plist_dict_set_item(a.get(), "PairRecordData", plist_new_data(data->data(), data->size()));
        return sendUsbmuxPlist(fd_, tag, a.get());
    }

    bool savePairRecord(uint32_t tag, plist_t request) {
        std::string udid = dictString(request, "PairRecordID").value_or("");
        auto data = dictData(request, "PairRecordData");
        if (!data || !hub_.pairRecords().save(udid, std::string(data->begin(), data->end())))
            return reply(tag, kResultBadCommand);
        if (!reply(tag, kResultOk)) return false;
        // usbmuxd tells its listeners once a host has stored a record for an attached device.
        if (auto id = dictUInt(request, "DeviceID")) {
            if (auto device = hub_.attachedById(static_cast<uint32_t>(*id)); device && device->udid() == udid)
                hub_.notifyPaired(device->deviceId());
        }
        return true;
    }

    int fd_;
    DeviceHub& hub_;
};

}  // namespace

void serveUsbmuxClient(int fd, DeviceHub& hub) {
    UsbmuxClient(fd, hub).run();
    close(fd);
}

}  // namespace zsim
