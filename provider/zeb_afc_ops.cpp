// The AFC operations of the contract, over AfcClient.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "zeb_afc_client.h"
#include "zeb_exports.h"

using namespace zebprov;

namespace {

struct AfcConnection {
    explicit AfcConnection(int fd) : client(fd) {}
    AfcClient client;
};

struct AfcDirectory {
    std::vector<std::string> names;
    size_t next = 0;
};

struct AfcKeyValue {
    std::vector<std::pair<std::string, std::string>> pairs;
    size_t next = 0;
};

// Larger transfers go in pieces of this size, each its own exchange.
constexpr uint32_t kPieceSize = 256 * 1024;

// AFC's own open modes for ours: 1 read, 2 write (created, emptied),
// 3 read and write (created, kept).
uint64_t DeviceOpenMode(uint64_t mode) {
    switch (mode) {
        case 1: return 1;  // read only
        case 2: return 3;  // write only, create, truncate
        case 3: return 2;  // read and write, create
        default: return 0;
    }
}

AfcClient* ClientOf(AFCConnectionRef ref) {
    return ref ? &reinterpret_cast<AfcConnection*>(ref)->client : nullptr;
}

int32_t SimpleCall(AFCConnectionRef ref, AfcOp op, const std::vector<uint8_t>& params) {
    AfcClient* client = ClientOf(ref);
    if (!client) return kZebAFCBadArgument;
    AfcReply reply;
    return client->Call(op, params, nullptr, 0, reply);
}

std::vector<uint8_t> PathParams(const char* path) {
    std::vector<uint8_t> params;
    PutText(params, path);
    return params;
}

std::vector<uint8_t> HandleParams(AFCFileRef file) {
    std::vector<uint8_t> params;
    PutU64(params, file);
    return params;
}

int32_t OpenKeyValues(AFCConnectionRef ref, AfcOp op, const std::vector<uint8_t>& params, AFCKeyValueRef* out) {
    AfcClient* client = ClientOf(ref);
    if (!client || !out) return kZebAFCBadArgument;
    *out = nullptr;
    std::vector<std::string> flat;
    int32_t result = client->CallForStrings(op, params, flat);
    if (result != 0) return result;
    auto* iterator = new AfcKeyValue();
    iterator->pairs = PairUp(flat);
    *out = reinterpret_cast<AFCKeyValueRef>(iterator);
    return 0;
}

}  // namespace

extern "C" {

int32_t AFCConnectionOpen(int socket, uint32_t, AFCConnectionRef* out) {
    if (socket < 0 || !out) return kZebAFCBadArgument;
    // The socket stays owned by its service connection.
    *out = reinterpret_cast<AFCConnectionRef>(new AfcConnection(socket));
    return 0;
}

int32_t AFCConnectionClose(AFCConnectionRef ref) {
    if (!ref) return kZebAFCBadArgument;
    delete reinterpret_cast<AfcConnection*>(ref);
    return 0;
}

int32_t AFCConnectionSetSecureContext(AFCConnectionRef, void*) {
    return kZebAFCBadArgument;  // AFC runs on plain service sockets only
}

int32_t AFCDirectoryOpen(AFCConnectionRef ref, const char* path, AFCDirectoryRef* out) {
    AfcClient* client = ClientOf(ref);
    if (!client || !path || !out) return kZebAFCBadArgument;
    *out = nullptr;
    std::vector<std::string> names;
    int32_t result = client->CallForStrings(AfcOp::ReadDir, PathParams(path), names);
    if (result != 0) return result;
    auto* directory = new AfcDirectory();
    directory->names = std::move(names);
    *out = reinterpret_cast<AFCDirectoryRef>(directory);
    return 0;
}

int32_t AFCDirectoryRead(AFCConnectionRef, AFCDirectoryRef ref, char** name) {
    if (!ref || !name) return kZebAFCBadArgument;
    auto* directory = reinterpret_cast<AfcDirectory*>(ref);
    // The name stays valid until the directory is closed.
    *name = directory->next < directory->names.size() ? directory->names[directory->next++].data() : nullptr;
    return 0;
}

int32_t AFCDirectoryClose(AFCConnectionRef, AFCDirectoryRef ref) {
    if (!ref) return kZebAFCBadArgument;
    delete reinterpret_cast<AfcDirectory*>(ref);
    return 0;
}

int32_t AFCDirectoryCreate(AFCConnectionRef ref, const char* path) {
    if (!path) return kZebAFCBadArgument;
    return SimpleCall(ref, AfcOp::MakeDir, PathParams(path));
}

int32_t AFCRemovePath(AFCConnectionRef ref, const char* path) {
    if (!path) return kZebAFCBadArgument;
    return SimpleCall(ref, AfcOp::RemovePath, PathParams(path));
}

int32_t AFCRenamePath(AFCConnectionRef ref, const char* from, const char* to) {
    if (!from || !to) return kZebAFCBadArgument;
    std::vector<uint8_t> params;
    PutText(params, from);
    PutText(params, to);
    return SimpleCall(ref, AfcOp::RenamePath, params);
}

int32_t AFCFileInfoOpen(AFCConnectionRef ref, const char* path, AFCKeyValueRef* out) {
    if (!path) return kZebAFCBadArgument;
    return OpenKeyValues(ref, AfcOp::GetFileInfo, PathParams(path), out);
}

int32_t AFCDeviceInfoOpen(AFCConnectionRef ref, AFCKeyValueRef* out) {
    return OpenKeyValues(ref, AfcOp::GetDeviceInfo, {}, out);
}

int32_t AFCKeyValueRead(AFCKeyValueRef ref, char** key, char** value) {
    if (!ref || !key || !value) return kZebAFCBadArgument;
    auto* iterator = reinterpret_cast<AfcKeyValue*>(ref);
    if (iterator->next >= iterator->pairs.size()) {
        *key = nullptr;
        *value = nullptr;
        return 0;
    }
    auto& pair = iterator->pairs[iterator->next++];
    *key = pair.first.data();
    *value = pair.second.data();
    return 0;
}

int32_t AFCKeyValueClose(AFCKeyValueRef ref) {
    if (!ref) return kZebAFCBadArgument;
    delete reinterpret_cast<AfcKeyValue*>(ref);
    return 0;
}

int32_t AFCFileRefOpen(AFCConnectionRef ref, const char* path, uint64_t mode, AFCFileRef* out) {
    AfcClient* client = ClientOf(ref);
    uint64_t deviceMode = DeviceOpenMode(mode);
    if (!client || !path || !out || deviceMode == 0) return kZebAFCBadArgument;
    *out = 0;
    std::vector<uint8_t> params;
    PutU64(params, deviceMode);
    PutText(params, path);
    AfcReply reply;
    int32_t result = client->Call(AfcOp::FileOpen, params, nullptr, 0, reply);
    if (result != 0) return result;
    if (reply.op != AfcOp::FileOpenResult || reply.payload.size() < 8) return kZebAFCProtocolError;
    *out = GetU64(reply.payload);
    return 0;
}

int32_t AFCFileRefClose(AFCConnectionRef ref, AFCFileRef file) {
    return SimpleCall(ref, AfcOp::FileClose, HandleParams(file));
}

int32_t AFCFileRefLock(AFCConnectionRef ref, AFCFileRef file) {
    std::vector<uint8_t> params = HandleParams(file);
    PutU64(params, 2 | 4);  // exclusive, without waiting
    return SimpleCall(ref, AfcOp::FileLock, params);
}

int32_t AFCFileRefUnlock(AFCConnectionRef ref, AFCFileRef file) {
    std::vector<uint8_t> params = HandleParams(file);
    PutU64(params, 8 | 4);
    return SimpleCall(ref, AfcOp::FileLock, params);
}

int32_t AFCFileRefRead(AFCConnectionRef ref, AFCFileRef file, void* buffer, uint32_t* length) {
    AfcClient* client = ClientOf(ref);
    if (!client || !length || (!buffer && *length)) return kZebAFCBadArgument;
    const uint32_t wanted = *length;
    *length = 0;
    if (wanted == 0) return 0;
    // The whole request in flight at once: the device answers piece after
    // piece without waiting for the host between them.
    return client->ReadPipelined(file, static_cast<uint8_t*>(buffer), wanted, kPieceSize, *length);
}

int32_t AFCFileRefWrite(AFCConnectionRef ref, AFCFileRef file, const void* buffer, uint32_t length) {
    AfcClient* client = ClientOf(ref);
    if (!client || (!buffer && length)) return kZebAFCBadArgument;
    return client->WritePipelined(file, static_cast<const uint8_t*>(buffer), length, kPieceSize);
}

int32_t AFCFlushData(AFCConnectionRef ref, AFCFileRef) {
    return ref ? 0 : kZebAFCBadArgument;  // every write already waited for the device
}

int32_t AFCFileRefTell(AFCConnectionRef ref, AFCFileRef file, uint64_t* position) {
    AfcClient* client = ClientOf(ref);
    if (!client || !position) return kZebAFCBadArgument;
    AfcReply reply;
    int32_t result = client->Call(AfcOp::FileTell, HandleParams(file), nullptr, 0, reply);
    if (result != 0) return result;
    if (reply.op != AfcOp::FileTellResult || reply.payload.size() < 8) return kZebAFCProtocolError;
    *position = GetU64(reply.payload);
    return 0;
}

int32_t AFCFileRefSeek(AFCConnectionRef ref, AFCFileRef file, int64_t offset, uint64_t origin) {
    if (origin > 2) return kZebAFCBadArgument;
    std::vector<uint8_t> params = HandleParams(file);
    PutU64(params, origin);  // 0 start, 1 current position, 2 end
    PutU64(params, static_cast<uint64_t>(offset));
    return SimpleCall(ref, AfcOp::FileSeek, params);
}

int32_t AFCFileRefSetFileSize(AFCConnectionRef ref, AFCFileRef file, uint64_t size) {
    std::vector<uint8_t> params = HandleParams(file);
    PutU64(params, size);
    return SimpleCall(ref, AfcOp::FileSetSize, params);
}

}  // extern "C"
