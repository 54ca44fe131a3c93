#include "zeb_parent_frame_reader.h"

#include <algorithm>
#include <cstring>

namespace zparent {

namespace {

constexpr size_t kHeaderSize = 36;
// The worker's text is at most 64 KiB; with the version and two NULs it
// stands within this many bytes of the payload's start.
constexpr size_t kTextRoom = 65536 + 16;
// The worker's own reader checks these eight bytes and no more; so does this one.
const char kMark[8] = {'k', 'C', 'o', 'm', 'm', 'a', 'n', 'd'};
const char kHeart[8] = {0x16, 0x16, 0x16, 0x16, 0x16, 0x16, 0x16, 0x16};

uint64_t readLittleEndian(const char* at, size_t size) {
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) value |= static_cast<uint64_t>(static_cast<unsigned char>(at[i])) << (8 * i);
    return value;
}

// The three fields of the header at `at` (its mark already checked).
void readHeaderFields(const char* at, Frame& frame) {
    frame.taskId = readLittleEndian(at + 14, 8);
    frame.commandType = static_cast<uint32_t>(readLittleEndian(at + 22, 4));
    frame.packetStatus = static_cast<uint16_t>(readLittleEndian(at + 26, 2));
}

}  // namespace

char* FrameReader::room(size_t& want) {
    if (fillingApart()) {
        if (apartFilled == apart.tail.size())
            apart.tail.resize(std::min(apartLength, std::max<size_t>(apart.tail.size() * 2, kTailRoomAhead)));
        want = std::min(want, apart.tail.size() - apartFilled);
        return apart.tail.data() + apartFilled;
    }
    if (start == end) start = end = 0;
    if (bytes.size() - end < want && start > 0) {
        // Move the unread rest to the front before growing.
        memmove(bytes.data(), bytes.data() + start, end - start);
        end -= start;
        start = 0;
    }
    if (bytes.size() - end < want) bytes.resize(std::max(end + want, bytes.size() * 2));
    return bytes.data() + end;
}

void FrameReader::commit(size_t written) {
    if (fillingApart()) apartFilled += written;
    else end += written;
}

void FrameReader::append(const char* data, size_t length) {
    // Bytes behind a tail received apart begin the next frame.
    while (length > 0) {
        size_t now = length;
        char* into = room(now);  // may lower `now`: taken before it is read
        memcpy(into, data, now);
        commit(now);
        data += now;
        length -= now;
    }
}

size_t FrameReader::missing() const {
    if (receivingApart) return fillingApart() ? apartLength - apartFilled : 1;
    size_t have = end - start;
    if (have < kHeaderSize) return kHeaderSize - have;
    uint64_t payload = readLittleEndian(bytes.data() + start + 28, 8);
    if (payload > kMaxPayload) return 1;
    // A large frame's text comes first, in a read of the usual size; its
    // tail then goes to a block of its own.
    if (payload >= kTailApartFrom && have - kHeaderSize < kTextRoom) return 1;
    return have < kHeaderSize + payload ? static_cast<size_t>(kHeaderSize + payload - have) : 1;
}

bool FrameReader::splitTail() {
    const char* payload = bytes.data() + start + kHeaderSize;
    const size_t buffered = end - start - kHeaderSize;
    // Only where the text can stand: a frame without it is taken whole.
    const size_t searched = std::min(buffered, kTextRoom);
    const char* firstNul = static_cast<const char*>(memchr(payload, 0, searched));
    const char* secondNul =
        firstNul ? static_cast<const char*>(memchr(firstNul + 1, 0, searched - (firstNul + 1 - payload))) : nullptr;
    if (!secondNul) return false;
    const char* at = bytes.data() + start;
    const size_t text = static_cast<size_t>(secondNul + 1 - payload);
    const size_t whole = static_cast<size_t>(readLittleEndian(at + 28, 8));
    readHeaderFields(at, apart);
    apart.payload.assign(payload, text);
    apartLength = whole - text;
    apartFilled = buffered - text;  // the frame is not whole, so this is less than the tail
    apart.tail.resize(std::min<size_t>(apartLength, std::max<size_t>(apartFilled, kTailRoomAhead)));
    memcpy(apart.tail.data(), secondNul + 1, apartFilled);
    start = end;
    receivingApart = true;
    return true;
}

FrameReader::Step FrameReader::take(Frame& frame) {
    if (isBroken) return Step::broken;
    if (receivingApart) {
        if (apartFilled < apartLength) return Step::needMore;
        frame = std::move(apart);
        apart = Frame();
        apartFilled = apartLength = 0;
        receivingApart = false;
        return Step::frame;
    }
    while (end - start >= sizeof kHeart && memcmp(bytes.data() + start, kHeart, sizeof kHeart) == 0)
        start += sizeof kHeart;
    const size_t have = end - start;
    const char* at = bytes.data() + start;
    // A partial mark is checked too: a stream that can't be the worker's
    // ends now, not after a header's worth of bytes.
    if (memcmp(at, kMark, std::min(have, sizeof kMark)) != 0) {
        // A keep-alive may still be arriving.
        if (have < sizeof kHeart && memcmp(at, kHeart, have) == 0) return Step::needMore;
        isBroken = true;
        return Step::broken;
    }
    if (have < kHeaderSize) return Step::needMore;
    uint64_t payload = readLittleEndian(at + 28, 8);
    if (payload > kMaxPayload) {
        isBroken = true;
        return Step::broken;
    }
    if (have < kHeaderSize + payload) {
        if (payload >= kTailApartFrom) splitTail();
        return Step::needMore;
    }
    readHeaderFields(at, frame);
    frame.payload.assign(at + kHeaderSize, static_cast<size_t>(payload));
    start += kHeaderSize + static_cast<size_t>(payload);
    return Step::frame;
}

}  // namespace zparent
