#include "afc_session.h"

#include "core/fault_points.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace zsim::afc {
namespace {

// Requests that are fault points of their own (core/fault_points.h).
const char* requestFaultPoint(uint64_t op) {
    switch (op) {
    case kOpFileOpen: return "afc-open";
    case kOpDeviceInfo: return "afc-device-info";
    default: return nullptr;
    }
}

}  // namespace

Session::Session(ServiceStream& stream, const ServiceContext& ctx, const std::string& root,
                 MediaPartition* partition)
    : stream_(stream), ctx_(ctx), paths_(root), partition_(partition) {
    buffer_.resize(64u << 10);
}

Session::~Session() {
    for (auto& [handle, file] : files_) ::close(file.fd);
}

void Session::run() {
    if (!paths_.valid()) return;  // no tree to serve: the host sees the pipe close
    while (!(ctx_.closing && ctx_.closing->load())) {
        if (!readRequest()) return;
        // A fault that fires here stalls the request or ends the connection unanswered.
        if (const char* point = requestFaultPoint(request_.operation)) passFaultPoint(ctx_.udid, point, 1);
        if (!waitWhileStalled()) return;
        if (!dispatch()) return;
    }
}

bool Session::readRequest() {
    unsigned char raw[kHeaderSize];
    if (!stream_.readExact(raw, sizeof raw)) return false;
    if (!decodeHeader(raw, request_)) return false;  // not an AFC peer: drop it
    const uint64_t fixedBytes = request_.thisLength - kHeaderSize;
    if (fixedBytes > kMaxFixedData) return false;
    fixed_.resize(fixedBytes);
    if (fixedBytes > 0 && !stream_.readExact(fixed_.data(), fixedBytes)) return false;
    payloadLeft_ = request_.entireLength - request_.thisLength;
    return true;
}

// A stalled device keeps the connection but answers nothing until released.
bool Session::waitWhileStalled() const {
    while (ctx_.stalled && ctx_.stalled->load()) {
        if (ctx_.closing && ctx_.closing->load()) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return !(ctx_.closing && ctx_.closing->load());
}

bool Session::drainPayload() {
    while (payloadLeft_ > 0) {
        size_t n = static_cast<size_t>(std::min<uint64_t>(payloadLeft_, buffer_.size()));
        if (!stream_.readExact(buffer_.data(), n)) return false;
        payloadLeft_ -= n;
    }
    return true;
}

// Some hosts send a path as payload after a bare header; it joins the fixed
// data. A payload too large for a request's data is left to be dropped.
bool Session::absorbPayload() {
    if (payloadLeft_ == 0 || fixed_.size() + payloadLeft_ > kMaxFixedData) return true;
    const size_t at = fixed_.size();
    fixed_.resize(at + static_cast<size_t>(payloadLeft_));
    if (!stream_.readExact(fixed_.data() + at, static_cast<size_t>(payloadLeft_))) return false;
    payloadLeft_ = 0;
    return true;
}

bool Session::dispatch() {
    if (carriesPath(request_.operation) && !absorbPayload()) return false;
    bool ok = true;
    switch (request_.operation) {
    case kOpReadDir: ok = opReadDir(); break;
    case kOpFileInfo: ok = opFileInfo(); break;
    case kOpDeviceInfo: ok = opDeviceInfo(); break;
    case kOpMakeDir: ok = opMakeDir(); break;
    case kOpRemovePath: ok = opRemovePath(false); break;
    case kOpRemovePathAndContents: ok = opRemovePath(true); break;
    case kOpRenamePath: ok = opRenamePath(); break;
    case kOpMakeLink: ok = opMakeLink(); break;
    case kOpSetFileTime: ok = opSetFileTime(); break;
    case kOpTruncatePath: ok = opTruncatePath(); break;
    case kOpFileOpen: ok = opFileOpen(); break;
    case kOpRead: ok = opRead(); break;
    case kOpWrite: ok = opWrite(); break;
    case kOpSeek: ok = opSeek(); break;
    case kOpTell: ok = opTell(); break;
    case kOpSetSize: ok = opSetSize(); break;
    case kOpClose: ok = opClose(); break;
    case kOpFileLock: ok = opLock(); break;
    case kOpSetFsBlockSize:
    case kOpSetSocketBlockSize:
        // Tuning hints the device accepts; this connection's sizes are fixed.
        ok = sendStatus(kSuccess);
        break;
    default: ok = sendStatus(kUnsupported); break;
    }
    // Whatever payload an operation did not consume is dropped before the
    // next request header.
    return ok && drainPayload();
}

unsigned char* Session::answerSpace(size_t dataBytes) {
    const size_t need = kHeaderSize + dataBytes;
    if (buffer_.size() < need) buffer_.resize(std::max(need, buffer_.size() * 2));
    return buffer_.data() + kHeaderSize;
}

bool Session::sendStatus(uint64_t status) { return sendU64(kOpStatus, status); }

// Status, open result and tell result carry one number as fixed data.
bool Session::sendU64(uint64_t op, uint64_t value) {
    unsigned char out[kHeaderSize + 8];
    Header h{sizeof out, sizeof out, request_.packetNum, op};
    encodeHeader(out, h);
    storeLE64(out + kHeaderSize, value);
    return stream_.writeAll(out, sizeof out);
}

// The host takes data answers as payload after a bare header; header and
// bytes leave in one write so the host's first read sees a whole header.
bool Session::sendBuilt(size_t dataBytes) {
    Header h{kHeaderSize + dataBytes, kHeaderSize, request_.packetNum, kOpData};
    encodeHeader(buffer_.data(), h);
    return stream_.writeAll(buffer_.data(), kHeaderSize + dataBytes);
}

void Session::appendString(size_t& used, std::string_view s) {
    unsigned char* base = answerSpace(used + s.size() + 1);
    std::copy(s.begin(), s.end(), base + used);
    base[used + s.size()] = 0;
    used += s.size() + 1;
}

bool Session::fixedU64(size_t index, uint64_t& value) const {
    if (fixed_.size() < (index + 1) * 8) return false;
    value = loadLE64(fixed_.data() + index * 8);
    return true;
}

bool Session::fixedString(size_t offset, std::string_view& out, size_t* next) const {
    // No byte left at all is a missing string, not an empty one.
    if (offset >= fixed_.size()) return false;
    const auto* begin = fixed_.data() + offset;
    const auto* dataEnd = fixed_.data() + fixed_.size();
    const auto* end = std::find(begin, dataEnd, 0);
    out = std::string_view(reinterpret_cast<const char*>(begin), static_cast<size_t>(end - begin));
    if (next) *next = static_cast<size_t>(end - fixed_.data()) + (end == dataEnd ? 0 : 1);
    return true;
}

int Session::fileFd(uint64_t handle) const {
    auto it = files_.find(handle);
    return it == files_.end() ? -1 : it->second.fd;
}

}  // namespace zsim::afc
