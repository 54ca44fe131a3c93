// Bytes a usbmuxd client could send to the simulator, cut into messages as
// it reads them and parsed in either protocol. Pair record requests reach
// the record store, which must keep every file inside its own folder, and
// every answer must frame as a client reads it.
#include "core/pair_records.h"
#include "core/usbmux_request.h"
#include "core/usbmux_wire.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;
using namespace zsim;

namespace {

void checkFraming(const std::string& packet, size_t payloadSize) {
    UsbmuxHeader back;
    if (packet.size() != kUsbmuxHeaderSize + payloadSize) abort();
    if (!decodeUsbmuxHeader(reinterpret_cast<const unsigned char*>(packet.data()), back)) abort();
    if (back.length != packet.size()) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    struct Scratch {
        fs::path path = fs::temp_directory_path() / ("zsim-fuzz-usbmux-" + std::to_string(getpid()));
        ~Scratch() {
            std::error_code ignored;
            fs::remove_all(path, ignored);
        }
    };
    static const Scratch scratch;
    const fs::path records = scratch.path / "usbmuxd";
    fs::remove_all(scratch.path);
    fs::create_directories(records);
    PairRecordStore store(records);

    UsbmuxProtocol protocol = UsbmuxProtocol::Binary;
    size_t at = 0;
    while (size - at >= kUsbmuxHeaderSize) {
        UsbmuxHeader header;
        if (!decodeUsbmuxHeader(data + at, header)) break;  // the simulator drops such a client
        at += kUsbmuxHeaderSize;
        const size_t bodySize = std::min<size_t>(header.length - kUsbmuxHeaderSize, size - at);
        UsbmuxRequest request = parseUsbmuxRequest(header, reinterpret_cast<const char*>(data + at), bodySize);
        at += bodySize;
        if (request.plist) protocol = UsbmuxProtocol::Plist;

        using Kind = UsbmuxRequest::Kind;
        switch (request.kind) {
        case Kind::ReadPairRecord: store.read(request.recordId); break;
        case Kind::SavePairRecord:
            if (request.recordData)
                store.save(request.recordId, std::string(request.recordData->begin(), request.recordData->end()));
            break;
        case Kind::DeletePairRecord: store.remove(request.recordId); break;
        case Kind::Connect:
            if (!request.hasDeviceId) abort();
            break;
        default: break;
        }
        std::string answer = usbmuxResultPacket(protocol, header.tag, request.result);
        if (protocol == UsbmuxProtocol::Binary) checkFraming(answer, 4);
        std::string record = usbmuxDeviceRecord(request.deviceId, request.port, request.recordId, header.tag);
        if (record.size() != kUsbmuxDeviceRecordSize || record[4 + 2 + 255] != '\0') abort();
        checkFraming(usbmuxPacket(protocol, kUsbmuxDeviceAdd, 0, record), kUsbmuxDeviceRecordSize);
    }

    // Nothing lands beside the record folder, and only records inside it.
    for (const auto& entry : fs::directory_iterator(scratch.path))
        if (entry.path().filename() != "usbmuxd") abort();
    for (const auto& entry : fs::directory_iterator(records))
        if (entry.path().extension() != ".plist" || !entry.is_regular_file()) abort();
    return 0;
}
