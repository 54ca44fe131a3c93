#include "zeb_afc_client.h"

#include <cstring>

#include "zeb_mobile_device_api.h"
#include "zeb_socket_io.h"

namespace zebprov {

namespace {

constexpr char kMagic[8] = {'C', 'F', 'A', '6', 'L', 'P', 'A', 'A'};
constexpr size_t kHeaderSize = 40;
constexpr uint64_t kMaxReply = 64ull << 20;  // no honest answer is larger
constexpr int kAfcSilenceMs = 60000;

uint64_t ReadLe64(const uint8_t* p) {
    uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = (v << 8) | p[i];
    return v;
}

void WriteLe64(uint8_t* p, uint64_t v) {
    for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace

void PutU64(std::vector<uint8_t>& out, uint64_t value) {
    uint8_t b[8];
    WriteLe64(b, value);
    out.insert(out.end(), b, b + 8);
}

void PutText(std::vector<uint8_t>& out, const char* text) {
    out.insert(out.end(), text, text + std::strlen(text) + 1);
}

uint64_t GetU64(const std::vector<uint8_t>& in) { return in.size() >= 8 ? ReadLe64(in.data()) : 0; }

std::vector<std::pair<std::string, std::string>> PairUp(const std::vector<std::string>& flat) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (size_t i = 0; i + 1 < flat.size(); i += 2) pairs.emplace_back(flat[i], flat[i + 1]);
    return pairs;
}

int32_t AfcClient::Call(AfcOp op, const std::vector<uint8_t>& params, const void* data, size_t dataLength,
                        AfcReply& reply) {
    std::lock_guard<std::mutex> hold(lock_);
    if (broken_) return kZebAFCIoError;
    int silenceMs = IoTimeoutMs(kAfcSilenceMs);
    uint64_t number = packetNumber_++;

    uint8_t header[kHeaderSize];
    std::memcpy(header, kMagic, 8);
    WriteLe64(header + 8, kHeaderSize + params.size() + dataLength);  // whole packet
    WriteLe64(header + 16, kHeaderSize + params.size());              // header and parameters
    WriteLe64(header + 24, number);
    WriteLe64(header + 32, static_cast<uint64_t>(op));
    bool sent = SendAll(fd_, header, kHeaderSize, silenceMs, nullptr) &&
                (params.empty() || SendAll(fd_, params.data(), params.size(), silenceMs, nullptr)) &&
                (dataLength == 0 || SendAll(fd_, data, dataLength, silenceMs, nullptr));
    if (!sent) {
        broken_ = true;
        return kZebAFCIoError;
    }

    uint8_t answer[kHeaderSize];
    if (!ReceiveAll(fd_, answer, kHeaderSize, silenceMs, nullptr)) {
        broken_ = true;
        return kZebAFCIoError;
    }
    uint64_t whole = ReadLe64(answer + 8);
    if (std::memcmp(answer, kMagic, 8) != 0 || whole < kHeaderSize || whole - kHeaderSize > kMaxReply ||
        ReadLe64(answer + 24) != number) {
        broken_ = true;
        return kZebAFCProtocolError;
    }
    reply.op = static_cast<AfcOp>(ReadLe64(answer + 32));
    reply.payload.resize(whole - kHeaderSize);
    if (!reply.payload.empty() && !ReceiveAll(fd_, reply.payload.data(), reply.payload.size(), silenceMs, nullptr)) {
        broken_ = true;
        return kZebAFCIoError;
    }
    if (reply.op == AfcOp::Status) {
        uint64_t status = GetU64(reply.payload);
        return status == 0 ? 0 : static_cast<int32_t>(status & 0x7fffffff);
    }
    return 0;
}

int32_t AfcClient::CallForStrings(AfcOp op, const std::vector<uint8_t>& params, std::vector<std::string>& out) {
    AfcReply reply;
    int32_t result = Call(op, params, nullptr, 0, reply);
    if (result != 0) return result;
    if (reply.op != AfcOp::Data) return kZebAFCProtocolError;
    out.clear();
    size_t start = 0;
    for (size_t i = 0; i < reply.payload.size(); ++i) {
        if (reply.payload[i] == 0) {
            out.emplace_back(reinterpret_cast<const char*>(reply.payload.data()) + start, i - start);
            start = i + 1;
        }
    }
    return 0;
}

}  // namespace zebprov
