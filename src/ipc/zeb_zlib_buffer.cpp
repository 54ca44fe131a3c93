#include "zeb_zlib_buffer.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <sstream>

namespace bas {

namespace {

constexpr size_t kOutputStep = 1024;

// Runs deflate or inflate to the end, appending each step's output; stops
// with Z_MEM_ERROR once the output would pass `limit`.
template <typename Step>
int pump(z_stream& stream, std::string& out, Step step, size_t limit = SIZE_MAX) {
    int result = Z_OK;
    do {
        const size_t before = out.size();
        const size_t room = std::min(kOutputStep, limit - before);
        if (room == 0) return Z_MEM_ERROR;
        out.resize(before + room);
        stream.next_out = reinterpret_cast<Bytef*>(out.data() + before);
        stream.avail_out = static_cast<uInt>(room);
        result = step();
        out.resize(before + (room - stream.avail_out));
    } while (result == Z_OK);
    return result;
}

}  // namespace

bool compressBuffer(std::string& out, const void* data, size_t length) {
    out.clear();
    z_stream stream{};
    if (deflateInit(&stream, 9) != Z_OK) return false;
    stream.next_in = static_cast<Bytef*>(const_cast<void*>(data));
    stream.avail_in = static_cast<uInt>(length);
    int result = pump(stream, out, [&] { return deflate(&stream, Z_FINISH); });
    deflateEnd(&stream);
    if (result == Z_STREAM_END) return true;
    std::ostringstream text;  // kept for a debugger; nobody reads it
    text << "Exception during zlib compression: (" << result << ") " << (stream.msg ? stream.msg : "");
    return false;
}

bool decompressBuffer(std::string& out, const void* data, size_t length, size_t limit) {
    out.clear();
    if (length == 0) return false;
    z_stream stream{};
    if (inflateInit(&stream) != Z_OK) return false;
    stream.next_in = static_cast<Bytef*>(const_cast<void*>(data));
    stream.avail_in = static_cast<uInt>(length);
    int result = pump(stream, out, [&] { return inflate(&stream, Z_NO_FLUSH); }, limit);
    inflateEnd(&stream);
    if (result == Z_STREAM_END) return true;
    if (result == Z_MEM_ERROR) out.clear();
    std::ostringstream text;
    text << "Exception during zlib decompression: (" << result << ") " << (stream.msg ? stream.msg : "");
    return false;
}

}  // namespace bas
