#include "core/app_icon.h"

#include "core/app_hash.h"

#include <zlib.h>

#include <cstdint>
#include <algorithm>
#include <functional>
#include <vector>

namespace zsim {
namespace {

void putBE32(std::string& out, uint32_t v) {
    out.push_back(static_cast<char>(v >> 24));
    out.push_back(static_cast<char>(v >> 16));
    out.push_back(static_cast<char>(v >> 8));
    out.push_back(static_cast<char>(v));
}

void putChunk(std::string& out, const char* type, const std::string& data) {
    putBE32(out, static_cast<uint32_t>(data.size()));
    std::string body(type, 4);
    body += data;
    out += body;
    putBE32(out, static_cast<uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(body.data()),
                                             static_cast<uInt>(body.size()))));
}

// `pixel(x, y, rgb)` fills three bytes per pixel; rows get the PNG filter byte 0.
std::string encodeRgb(unsigned width, unsigned height,
                      const std::function<void(unsigned, unsigned, unsigned char*)>& pixel) {
    std::vector<unsigned char> raw;
    raw.reserve(static_cast<size_t>(height) * (1 + 3 * width));
    for (unsigned y = 0; y < height; ++y) {
        raw.push_back(0);
        for (unsigned x = 0; x < width; ++x) {
            unsigned char rgb[3];
            pixel(x, y, rgb);
            raw.insert(raw.end(), rgb, rgb + 3);
        }
    }
    uLongf packedSize = compressBound(static_cast<uLong>(raw.size()));
    std::string packed(packedSize, '\0');
    compress2(reinterpret_cast<Bytef*>(packed.data()), &packedSize, raw.data(), static_cast<uLong>(raw.size()), 9);
    packed.resize(packedSize);

    std::string png("\x89PNG\r\n\x1a\n", 8);
    std::string header;
    putBE32(header, width);
    putBE32(header, height);
    header += std::string("\x08\x02\x00\x00\x00", 5);  // 8-bit RGB, no interlace
    putChunk(png, "IHDR", header);
    putChunk(png, "IDAT", packed);
    putChunk(png, "IEND", "");
    return png;
}

}  // namespace

std::string makeIconPng(const std::string& seed, unsigned size) {
    if (size < 8) size = 8;
    const uint64_t pattern = stableHash(seed);
    const uint64_t colour = stableHash(seed + "#colour");
    const unsigned char bg[3] = {static_cast<unsigned char>(64 + (colour & 0x7F)),
                                 static_cast<unsigned char>(64 + ((colour >> 8) & 0x7F)),
                                 static_cast<unsigned char>(64 + ((colour >> 16) & 0x7F))};
    const unsigned cell = size / 8;
    return encodeRgb(size, size, [&](unsigned x, unsigned y, unsigned char* rgb) {
        const unsigned bit = std::min(y / cell, 7u) * 8 + std::min(x / cell, 7u);
        const bool set = (pattern >> bit) & 1;
        for (int i = 0; i < 3; ++i) rgb[i] = set ? static_cast<unsigned char>(255 - bg[i] / 2) : bg[i];
    });
}

std::string makeWallpaperPng(unsigned width, unsigned height) {
    if (width == 0) width = 1;
    if (height == 0) height = 1;
    return encodeRgb(width, height, [&](unsigned, unsigned y, unsigned char* rgb) {
        const unsigned t = y * 255 / height;
        rgb[0] = static_cast<unsigned char>(20 + t / 4);
        rgb[1] = static_cast<unsigned char>(40 + t / 3);
        rgb[2] = static_cast<unsigned char>(120 + t / 2);
    });
}

}  // namespace zsim
