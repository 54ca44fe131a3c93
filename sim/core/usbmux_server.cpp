#include "core/usbmux_server.h"

#include "core/device_hub.h"
#include "core/device_port.h"
#include "core/socket_io.h"
#include "core/usbmux_request.h"
#include "core/usbmux_wire.h"

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
            UsbmuxRequest request = parseUsbmuxRequest(header, body.data(), body.size());
            if (request.plist) protocol_ = UsbmuxProtocol::Plist;
            using Kind = UsbmuxRequest::Kind;
            switch (request.kind) {
            case Kind::Listen:
                listen(header.tag);
                return;
            case Kind::Connect:
                connect(header.tag, request);
                return;
            case Kind::Invalid:
                if (!reply(header.tag, request.result)) return;
                break;
            case Kind::ListDevices:
                if (!listDevices(header.tag)) return;
                break;
            case Kind::ReadBuid: {
                PlistPtr a = adopt(plist_new_dict());
                plist_dict_set_item(a.get(), "BUID", plist_new_string(hub_.pairRecords().systemBuid().c_str()));
                if (!sendUsbmuxPlist(fd_, header.tag, a.get())) return;
                break;
            }
            case Kind::ReadPairRecord:
                if (!readPairRecord(header.tag, request)) return;
                break;
            case Kind::SavePairRecord:
                if (!savePairRecord(header.tag, request)) return;
                break;
            case Kind::DeletePairRecord:
                if (!reply(header.tag, hub_.pairRecords().remove(request.recordId) ? kResultOk : kResultBadDevice))
                    return;
                break;
            case Kind::ListListeners: {
                PlistPtr a = adopt(plist_new_dict());
                plist_dict_set_item(a.get(), "ListenerList", plist_new_array());
                if (!sendUsbmuxPlist(fd_, header.tag, a.get())) return;
                break;
            }
            }
        }
    }

private:
    bool reply(uint32_t tag, uint64_t code) {
        return sendUsbmuxPacket(fd_, usbmuxResultPacket(protocol_, tag, code));
    }

    bool listDevices(uint32_t tag) {
        PlistPtr a = adopt(plist_new_dict());
        plist_t list = plist_new_array();
        for (auto& device : hub_.attachedDevices()) plist_array_append_item(list, hub_.attachedRecord(*device).release());
        plist_dict_set_item(a.get(), "DeviceList", list);
        return sendUsbmuxPlist(fd_, tag, a.get());
    }

    void listen(uint32_t tag) {
        if (!reply(tag, kResultOk)) return;
        hub_.addListener(fd_, protocol_);
        // Nothing more comes from a listener; its leaving ends the subscription.
        char scratch[256];
        while (read(fd_, scratch, sizeof(scratch)) > 0) {
        }
        hub_.removeListener(fd_);
    }

    void connect(uint32_t tag, const UsbmuxRequest& request) {
        std::shared_ptr<Device> device = hub_.attachedById(request.deviceId);
        if (!device) {
            reply(tag, kResultBadDevice);
            return;
        }
        std::optional<std::string> service;
        if (request.port != kLockdownPort) {
            service = device->takeServicePort(request.port);
            if (!service) {
                reply(tag, kResultConnectionRefused);
                return;
            }
        }
        if (reply(tag, kResultOk)) serveDeviceConnection(fd_, *device, service.value_or(""));
    }

    bool readPairRecord(uint32_t tag, const UsbmuxRequest& request) {
        auto data = hub_.pairRecords().read(request.recordId);
        if (!data) return reply(tag, kResultBadDevice);
        PlistPtr a = adopt(plist_new_dict());
        plist_dict_set_item(a.get(), "PairRecordData", plist_new_data(data->data(), data->size()));
        return sendUsbmuxPlist(fd_, tag, a.get());
    }

    bool savePairRecord(uint32_t tag, const UsbmuxRequest& request) {
        const std::string& udid = request.recordId;
        const auto& data = request.recordData;
        if (!data || !hub_.pairRecords().save(udid, std::string(data->begin(), data->end())))
            return reply(tag, kResultBadCommand);
        if (!reply(tag, kResultOk)) return false;
        // usbmuxd tells its listeners once a host has stored a record for an attached device.
        if (request.hasDeviceId) {
            if (auto device = hub_.attachedById(request.deviceId); device && device->udid() == udid)
                hub_.notifyPaired(device->deviceId());
        }
        return true;
    }

    int fd_;
    DeviceHub& hub_;
    UsbmuxProtocol protocol_ = UsbmuxProtocol::Binary;
};

}  // namespace

void serveUsbmuxClient(int fd, DeviceHub& hub) {
    UsbmuxClient(fd, hub).run();
    close(fd);
}

}  // namespace zsim
