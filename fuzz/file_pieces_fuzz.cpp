// Bytes from a peer through every parser of file pieces: the piece info, an
// upload description, and a device state file taken up for resume; then a
// write of the piece the info names.
#include "memory_piece_store.h"
#include "zeb_file_packet.h"
#include "zeb_file_packet_writer.h"
#include "zeb_json_parse.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    rapidjson::Document json;
    zeb::parseJson(json, text.c_str(), text.size());
    if (json.HasParseError()) return 0;

    FilePacket packet;
    packet.readInfo(json);
    FileHeader description;
    description.readDescription(json);
    (void)description.writeDescription();

    auto store = std::make_shared<MemoryPieceStore>();
    FileHeader templ = description;
    templ.size = description.size & 0xFFFF;  // keep the fake device small
    templ.connection = store;
    templ.path_source = "/D/f.bin";
    templ.path = "/D/f.bin.bak";
    templ.path_project = "/D/f.bin.bak.json";
    store->files[templ.path] = std::string(static_cast<size_t>(templ.size), '\0');
    store->files[templ.path_project] = text;  // the state file under resume

    FilePacketWriter writer;
    if (writer.open(templ) == kWriterReady) {
        std::string bytes(static_cast<size_t>(packet.offset_length & 0xFFFF), 'x');
        packet.buffer = reinterpret_cast<unsigned char*>(bytes.data());
        packet.buffer_size = bytes.size();
        writer.write(packet);
        (void)writer.firstUnfinished();
    }
    return 0;
}
