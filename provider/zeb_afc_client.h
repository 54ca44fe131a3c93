// The AFC protocol on a service socket: one request, one answer, under the
// connection's lock, so that several threads may share one connection.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace zebprov {

enum class AfcOp : uint64_t {
    Status = 0x01,
    Data = 0x02,
    ReadDir = 0x03,
    RemovePath = 0x08,
    MakeDir = 0x09,
    GetFileInfo = 0x0a,
    GetDeviceInfo = 0x0b,
    FileOpen = 0x0d,
    FileOpenResult = 0x0e,
    FileRead = 0x0f,
    FileWrite = 0x10,
    FileSeek = 0x11,
    FileTell = 0x12,
    FileTellResult = 0x13,
    FileClose = 0x14,
    FileSetSize = 0x15,
    RenamePath = 0x18,
    FileLock = 0x1b,
};

struct AfcReply {
    AfcOp op = AfcOp::Status;
    std::vector<uint8_t> payload;
};

class AfcClient {
public:
    explicit AfcClient(int fd) : fd_(fd) {}

    // Sends op with its parameters (and, for writes, the data behind them)
    // and reads the answer. 0, or the device's status code, or a host-side
    // AFC error. A broken exchange poisons the connection for good, since
    // the stream can no longer be trusted to be in step.
    int32_t Call(AfcOp op, const std::vector<uint8_t>& params, const void* data, size_t dataLength,
                 AfcReply& reply);

    // Reads of one open file (`handle`), `piece` bytes each, all sent before
    // the first answer is read, each answer landing straight in `buffer`.
    // `got` counts the bytes up to the first short answer (the file's end).
    int32_t ReadPipelined(uint64_t handle, uint8_t* buffer, uint32_t wanted, uint32_t piece, uint32_t& got);
    // Writes of `piece` bytes each, all sent before the first status is
    // read; the first failing status is the result.
    int32_t WritePipelined(uint64_t handle, const uint8_t* data, uint32_t length, uint32_t piece);

    // A call whose answer is NUL-separated strings.
    int32_t CallForStrings(AfcOp op, const std::vector<uint8_t>& params, std::vector<std::string>& out);

private:
    // Marks the connection broken for good and shuts its socket down.
    void Poison();
    // Header and parameters in one send, then the data; false when the
    // link failed (the connection is then broken for good).
    bool SendRequest(AfcOp op, const uint8_t* params, size_t paramsLength, const void* data, size_t dataLength,
                     uint64_t number, int silenceMs);
    // The answer's header: its op and payload length; 0, or the error that
    // broke the connection.
    int32_t ReceiveHeader(uint64_t number, AfcOp& op, uint64_t& payloadLength, int silenceMs);
    // Reads a payload of `length` bytes: up to `capacity` into `into`, the
    // rest thrown away.
    bool ReceivePayload(uint8_t* into, size_t capacity, uint64_t length, int silenceMs);

    int fd_;
    std::mutex lock_;
    uint64_t packetNumber_ = 0;
    bool broken_ = false;
};

// Parameter building.
void PutU64(std::vector<uint8_t>& out, uint64_t value);
void PutText(std::vector<uint8_t>& out, const char* text);  // with its NUL
uint64_t GetU64(const std::vector<uint8_t>& in);             // first 8 bytes, 0 if short

// Pairs out of a flat key, value, key, value ... list.
std::vector<std::pair<std::string, std::string>> PairUp(const std::vector<std::string>& flat);

}  // namespace zebprov
