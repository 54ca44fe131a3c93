// One mobilesync dialogue on a started "com.apple.mobilesync" service: the
// opening, the read of all records, the steps ahead of a change, the
// change messages and the finish. A session lives for one command; the
// modules differ only in their texts, their waits and their readers.
#pragma once

#include "zeb_sync_clock.h"
#include "zeb_sync_frames.h"
#include "zeb_sync_texts.h"

#include <cstdint>
#include <string>

// The waits of a change command between its start and its ping. A null
// name waits for any message.
struct SyncWriteWaits {
    const char* afterStart;
    const char* afterGetChanges;
    const char* afterFirstAcknowledge;
    // A second acknowledge, answered by "SDMessageDeviceReadyToReceiveChanges".
    bool secondAcknowledge;
};

// How a read hands the device's batches to a module's record reader.
struct SyncRecordReader {
    SyncRecordReader() = default;
    SyncRecordReader(SyncMessageHandler handler, void* context, int32_t* mode, int32_t firstBatchMode,
                     int32_t furtherBatchMode, bool readsEveryBatch)
        : handler(handler), context(context), mode(mode), firstBatchMode(firstBatchMode),
          furtherBatchMode(furtherBatchMode), readsEveryBatch(readsEveryBatch) {}

    SyncMessageHandler handler = nullptr;
    void* context = nullptr;
    int32_t* mode = nullptr;  // the reader's step, set ahead of each exchange
    int32_t firstBatchMode = 0;
    int32_t furtherBatchMode = 1;
    // Acknowledge and read again while the reader reports another batch;
    // otherwise one acknowledge whose answer is dropped unread.
    bool readsEveryBatch = true;
};

class SyncSession {
public:
    explicit SyncSession(AMDServiceConnectionRef connection) : connection_(connection) {}

    // The device's version message, the version answer (until
    // "DLMessageDeviceReady"), then the start message and its wait.
    void open(const SyncTexts& texts, const char* startWait, const SyncClock& clock);
    void open(const SyncTexts& texts, const char* startWait) { open(texts, startWait, zeb::syncClockNow()); }

    // After open: all records through the reader, acknowledges, finish.
    // False when the device went away or the link broke before the
    // reader's last batch was in (the opening included): the reader then
    // holds only part of the list.
    bool readAll(const SyncTexts& texts, const SyncRecordReader& reader);

    // After open: the device's pending changes asked for and acknowledged
    // unread, then the ping; the device then takes changes.
    void prepareChanges(const SyncTexts& texts, const SyncWriteWaits& waits);

    // One change message answered by one frame for `handler`. A text that
    // is no property list is not sent and nothing is awaited; the result is
    // then 0.
    uint8_t sendChanges(const std::string& text, SyncMessageHandler handler, void* context);

    // The finish message, waiting for "SDMessageDeviceFinishedSession".
    void finish(const SyncTexts& texts);

    // True once the link failed or a frame could not be delimited: every
    // later wait returns at once, as it would on a closed connection.
    bool lost() const { return lost_; }

private:
    uint8_t exchange(const SyncMessage* message, SyncMessageHandler handler, void* context);
    uint8_t exchangeText(const char* text, SyncMessageHandler handler, void* context);
    uint8_t waitFor(const char* text, const char* name);
    void readDeviceVersion();

    AMDServiceConnectionRef connection_;
    bool lost_ = false;
    // The stream ended because a receive failed, not at a bad length.
    bool linkFailed_ = false;
};
