// One piece in flight: what the parent asked for or sent, and the buffer
// it is read into or written from. Lives on the stack of one packet.
#pragma once

#include "zeb_file_piece_store.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <memory>

struct FilePacket {
    int64_t id = 0;
    std::shared_ptr<FilePieceStore> connection;
    FileStoreRef file = 0;
    int64_t offset = 0;
    int64_t offset_length = 0;
    unsigned char* buffer = nullptr;
    uint64_t buffer_size = 0;  // bytes in the buffer, or its capacity
    uint64_t result_size = 0;  // bytes really read or written

    // The piece info: "id", "offset", "offset_length" in any order; a
    // missing or non-integer key reads as 0.
    void readInfo(const rapidjson::Value& json);
};
