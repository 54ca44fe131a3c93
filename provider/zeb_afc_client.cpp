#include "zeb_afc_client.h"

#include <sys/socket.h>

#include <algorithm>
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

void AfcClient::Poison() {
    broken_ = true;
    // The socket stays its service connection's, but no exchange will run
    // on it again: shut down, it tells the device the host is gone, and it
    // tells the host's own holders that the link is broken without asking.
    shutdown(fd_, SHUT_RDWR);
}

bool AfcClient::SendRequest(AfcOp op, const uint8_t* params, size_t paramsLength, const void* data,
                            size_t dataLength, uint64_t number, int silenceMs) {
    uint8_t head[kHeaderSize + 64];
    std::vector<uint8_t> large;
    uint8_t* header = head;
    if (paramsLength > sizeof head - kHeaderSize) {
        large.resize(kHeaderSize + paramsLength);
        header = large.data();
    }
    std::memcpy(header, kMagic, 8);
    WriteLe64(header + 8, kHeaderSize + paramsLength + dataLength);  // whole packet
    WriteLe64(header + 16, kHeaderSize + paramsLength);              // header and parameters
    WriteLe64(header + 24, number);
    WriteLe64(header + 32, static_cast<uint64_t>(op));
    if (paramsLength) std::memcpy(header + kHeaderSize, params, paramsLength);
    const bool sent = SendAll(fd_, header, kHeaderSize + paramsLength, silenceMs, nullptr) &&
                      (dataLength == 0 || SendAll(fd_, data, dataLength, silenceMs, nullptr));
    if (!sent) Poison();
    return sent;
}

int32_t AfcClient::ReceiveHeader(uint64_t number, AfcOp& op, uint64_t& payloadLength, int silenceMs) {
    uint8_t answer[kHeaderSize];
    if (!ReceiveAll(fd_, answer, kHeaderSize, silenceMs, nullptr)) {
        Poison();
        return kZebAFCIoError;
    }
    const uint64_t whole = ReadLe64(answer + 8);
    if (std::memcmp(answer, kMagic, 8) != 0 || whole < kHeaderSize || whole - kHeaderSize > kMaxReply ||
        ReadLe64(answer + 24) != number) {
        Poison();
        return kZebAFCProtocolError;
    }
    op = static_cast<AfcOp>(ReadLe64(answer + 32));
    payloadLength = whole - kHeaderSize;
    return 0;
}

bool AfcClient::ReceivePayload(uint8_t* into, size_t capacity, uint64_t length, int silenceMs) {
    const size_t kept = static_cast<size_t>(std::min<uint64_t>(capacity, length));
    if (kept && !ReceiveAll(fd_, into, kept, silenceMs, nullptr)) {
        Poison();
        return false;
    }
    uint8_t sink[4096];
    for (uint64_t rest = length - kept; rest > 0;) {
        const size_t now = static_cast<size_t>(std::min<uint64_t>(rest, sizeof sink));
        if (!ReceiveAll(fd_, sink, now, silenceMs, nullptr)) {
            Poison();
            return false;
        }
        rest -= now;
    }
    return true;
}

namespace {

int32_t StatusResult(const uint8_t* payload, size_t length) {
    const uint64_t status = length >= 8 ? ReadLe64(payload) : 0;
    return status == 0 ? 0 : static_cast<int32_t>(status & 0x7fffffff);
}

}  // namespace

int32_t AfcClient::Call(AfcOp op, const std::vector<uint8_t>& params, const void* data, size_t dataLength,
                        AfcReply& reply) {
    std::lock_guard<std::mutex> hold(lock_);
    if (broken_) return kZebAFCIoError;
    const int silenceMs = IoTimeoutMs(kAfcSilenceMs);
    const uint64_t number = packetNumber_++;
    uint64_t length = 0;
    if (!SendRequest(op, params.data(), params.size(), data, dataLength, number, silenceMs)) return kZebAFCIoError;
    if (int32_t failed = ReceiveHeader(number, reply.op, length, silenceMs)) return failed;
    reply.payload.resize(length);
    if (!ReceivePayload(reply.payload.data(), reply.payload.size(), length, silenceMs)) return kZebAFCIoError;
    if (reply.op == AfcOp::Status) return StatusResult(reply.payload.data(), reply.payload.size());
    return 0;
}

int32_t AfcClient::ReadPipelined(uint64_t handle, uint8_t* buffer, uint32_t wanted, uint32_t piece, uint32_t& got) {
    got = 0;
    std::lock_guard<std::mutex> hold(lock_);
    if (broken_) return kZebAFCIoError;
    const int silenceMs = IoTimeoutMs(kAfcSilenceMs);
    const uint64_t first = packetNumber_;
    uint32_t requests = 0;
    for (uint32_t at = 0; at < wanted; at += piece, ++requests) {
        uint8_t params[16];
        WriteLe64(params, handle);
        WriteLe64(params + 8, std::min(piece, wanted - at));
        if (!SendRequest(AfcOp::FileRead, params, sizeof params, nullptr, 0, packetNumber_++, silenceMs))
            return kZebAFCIoError;
    }
    // Every answer is read, even after the file's end, to stay in step.
    int32_t result = 0;
    bool ended = false;
    for (uint32_t i = 0; i < requests; ++i) {
        const uint32_t at = i * piece, asked = std::min(piece, wanted - at);
        AfcOp op = AfcOp::Status;
        uint64_t length = 0;
        if (int32_t failed = ReceiveHeader(first + i, op, length, silenceMs)) return got > 0 ? 0 : failed;
        if (op == AfcOp::Data && !ended) {
            if (!ReceivePayload(buffer + at, asked, length, silenceMs)) return got > 0 ? 0 : kZebAFCIoError;
            const uint32_t arrived = static_cast<uint32_t>(std::min<uint64_t>(length, asked));
            got += arrived;
            ended = arrived < asked;
        } else {
            uint8_t status[8] = {0};
            if (!ReceivePayload(status, sizeof status, length, silenceMs)) return got > 0 ? 0 : kZebAFCIoError;
            if (op == AfcOp::Status && !ended && result == 0) result = StatusResult(status, std::min<uint64_t>(length, 8));
            else if (op != AfcOp::Data && op != AfcOp::Status && result == 0) result = kZebAFCProtocolError;
            ended = true;
        }
    }
    return got > 0 ? 0 : result;
}

int32_t AfcClient::WritePipelined(uint64_t handle, const uint8_t* data, uint32_t length, uint32_t piece) {
    std::lock_guard<std::mutex> hold(lock_);
    if (broken_) return kZebAFCIoError;
    const int silenceMs = IoTimeoutMs(kAfcSilenceMs);
    const uint64_t first = packetNumber_;
    uint32_t requests = 0;
    uint8_t params[8];
    WriteLe64(params, handle);
    uint32_t at = 0;
    do {
        const uint32_t now = std::min(piece, length - at);
        if (!SendRequest(AfcOp::FileWrite, params, sizeof params, data + at, now, packetNumber_++, silenceMs))
            return kZebAFCIoError;
        at += now;
        ++requests;
    } while (at < length);
    int32_t result = 0;
    for (uint32_t i = 0; i < requests; ++i) {
        AfcOp op = AfcOp::Status;
        uint64_t answer = 0;
        uint8_t status[8] = {0};
        if (int32_t failed = ReceiveHeader(first + i, op, answer, silenceMs)) return failed;
        if (!ReceivePayload(status, sizeof status, answer, silenceMs)) return kZebAFCIoError;
        if (result == 0 && op == AfcOp::Status) result = StatusResult(status, std::min<uint64_t>(answer, 8));
        else if (result == 0 && op != AfcOp::Status) result = kZebAFCProtocolError;
    }
    return result;
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
