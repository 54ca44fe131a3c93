#include "core/jpeg_writer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace zsim {
namespace {

// Code lengths of the usual luminance DC table (categories 0..11).
constexpr std::array<uint8_t, 16> kDcCounts = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
// Every block is flat, so the only AC symbol ever written is end-of-block.
constexpr std::array<uint8_t, 16> kAcCounts = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
constexpr int kDcQuant = 8;

struct Code {
    uint16_t bits = 0;
    uint8_t length = 0;
};

// Canonical Huffman codes from the per-length counts, in symbol order.
std::vector<Code> canonicalCodes(const std::array<uint8_t, 16>& counts) {
    std::vector<Code> codes;
    uint16_t code = 0;
    for (int len = 1; len <= 16; ++len) {
        for (int i = 0; i < counts[len - 1]; ++i) codes.push_back({code++, static_cast<uint8_t>(len)});
        code <<= 1;
    }
    return codes;
}

class BitWriter {
public:
    explicit BitWriter(std::string& out) : out_(out) {}
    void put(uint32_t bits, int length) {
        for (int i = length - 1; i >= 0; --i) {
            acc_ = static_cast<uint8_t>((acc_ << 1) | ((bits >> i) & 1));
            if (++count_ == 8) flushByte();
        }
    }
    void finish() {
        while (count_ != 0) put(1, 1);  // pad with ones
    }

private:
    void flushByte() {
        out_.push_back(static_cast<char>(acc_));
        if (acc_ == 0xFF) out_.push_back(0);  // byte stuffing
        acc_ = 0;
        count_ = 0;
    }
    std::string& out_;
    uint8_t acc_ = 0;
    int count_ = 0;
};

void marker(std::string& out, uint8_t m, const std::vector<uint8_t>& body) {
    out.push_back(static_cast<char>(0xFF));
    out.push_back(static_cast<char>(m));
    size_t len = body.size() + 2;
    out.push_back(static_cast<char>(len >> 8));
    out.push_back(static_cast<char>(len & 0xFF));
    out.append(body.begin(), body.end());
}

void huffmanTable(std::vector<uint8_t>& body, uint8_t classAndId, const std::array<uint8_t, 16>& counts,
                  int symbols) {
    body.push_back(classAndId);
    body.insert(body.end(), counts.begin(), counts.end());
    for (int s = 0; s < symbols; ++s) body.push_back(static_cast<uint8_t>(s));
}

int category(int v) {
    int a = std::abs(v), c = 0;
    while (a) {
        ++c;
        a >>= 1;
    }
    return c;
}

}  // namespace

std::string makeMosaicJpeg(int width, int height, uint32_t seed) {
    width = std::clamp(width, 8, 4096) / 8 * 8;
    height = std::clamp(height, 8, 4096) / 8 * 8;
    std::string out;
    out += "\xFF\xD8";
    marker(out, 0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
    std::vector<uint8_t> dqt{0};
    dqt.insert(dqt.end(), 64, kDcQuant);
    marker(out, 0xDB, dqt);
    marker(out, 0xC0, {8, static_cast<uint8_t>(height >> 8), static_cast<uint8_t>(height & 0xFF),
                       static_cast<uint8_t>(width >> 8), static_cast<uint8_t>(width & 0xFF), 3,
                       1, 0x11, 0, 2, 0x11, 0, 3, 0x11, 0});
    std::vector<uint8_t> dht;
    huffmanTable(dht, 0x00, kDcCounts, 12);
    huffmanTable(dht, 0x10, kAcCounts, 1);
    marker(out, 0xC4, dht);
    marker(out, 0xDA, {3, 1, 0x00, 2, 0x00, 3, 0x00, 0, 63, 0});

    const auto dc = canonicalCodes(kDcCounts);
    const auto ac = canonicalCodes(kAcCounts);
    BitWriter bits(out);
    int previous[3] = {0, 0, 0};
    uint32_t state = seed * 2654435761u + 1;
    for (int by = 0; by < height / 8; ++by) {
        for (int bx = 0; bx < width / 8; ++bx) {
            // A soft gradient with a little noise: looks like a picture, not a test card.
            state = state * 1103515245u + 12345u;
            int noise = static_cast<int>((state >> 16) % 24);
            double r = std::min(255, 40 + bx * 180 / std::max(1, width / 8) + noise);
            double g = std::min(255, 60 + by * 150 / std::max(1, height / 8) + noise);
            double b = std::min(255, 90 + static_cast<int>(seed * 37 % 120) + noise / 2);
            double ycc[3] = {0.299 * r + 0.587 * g + 0.114 * b,
                             128 - 0.168736 * r - 0.331264 * g + 0.5 * b,
                             128 + 0.5 * r - 0.418688 * g - 0.081312 * b};
            for (int c = 0; c < 3; ++c) {
                // A flat block's DC coefficient is 8 x (value - 128).
                int coef = static_cast<int>(std::lround(8.0 * (ycc[c] - 128.0) / kDcQuant));
                int diff = coef - previous[c];
                previous[c] = coef;
                int cat = category(diff);
                bits.put(dc[cat].bits, dc[cat].length);
                if (cat) bits.put(static_cast<uint32_t>(diff < 0 ? diff - 1 : diff) & ((1u << cat) - 1), cat);
                bits.put(ac[0].bits, ac[0].length);
            }
        }
    }
    bits.finish();
    out += "\xFF\xD9";
    return out;
}

}  // namespace zsim
