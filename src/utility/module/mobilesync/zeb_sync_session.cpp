#include "zeb_sync_session.h"

#include "zeb_device.h"
#include "zeb_sync_matchers.h"

#include <memory>

namespace {

struct MessageDeleter {
    void operator()(SyncMessage* message) const { FreeSyncMessage(message); }
};
using MessagePtr = std::unique_ptr<SyncMessage, MessageDeleter>;

constexpr size_t kVersionBuffer = 1024;

}  // namespace

void SyncSession::readDeviceVersion() {
    // The device speaks first. Its version message is not looked at, but
    // it is read whole so the next frame starts where it should.
    uint8_t prefix[4];
    size_t got = 0;
    while (got < sizeof prefix) {
        ssize_t n = zeb::api().AMDServiceConnectionReceive(connection_, prefix + got, sizeof prefix - got);
        if (n < 1) {
            lost_ = linkFailed_ = true;
            return;
        }
        got += static_cast<size_t>(n);
    }
    const uint32_t length = (uint32_t{prefix[0]} << 24) | (uint32_t{prefix[1]} << 16) | (uint32_t{prefix[2]} << 8) |
                            uint32_t{prefix[3]};
    if (length > kSyncMaxFrame) {
        lost_ = true;
        return;
    }
    uint8_t buffer[kVersionBuffer] = {0};
    size_t left = length;
    while (left > 0) {
        const size_t chunk = left < sizeof buffer ? left : sizeof buffer;
        ssize_t n = zeb::api().AMDServiceConnectionReceive(connection_, buffer, chunk);
        if (n < 1) {
            lost_ = linkFailed_ = true;
            return;
        }
        left -= static_cast<size_t>(n);
    }
}

uint8_t SyncSession::exchange(const SyncMessage* message, SyncMessageHandler handler, void* context) {
    if (lost_ || !message) return 0;
    SyncReceiveEnd end = SyncReceiveEnd::Handled;
    uint8_t result = SyncExchange(connection_, message, handler, context, &end);
    lost_ = end != SyncReceiveEnd::Handled;
    linkFailed_ = end == SyncReceiveEnd::LinkFailed;
    return result;
}

uint8_t SyncSession::exchangeText(const char* text, SyncMessageHandler handler, void* context) {
    if (lost_) return 0;
    MessagePtr message(EncodeMessage(text));
    return exchange(message.get(), handler, context);
}

uint8_t SyncSession::waitFor(const char* text, const char* name) {
    if (!name) return exchangeText(text, AnyMessageMatcher, nullptr);
    return exchangeText(text, MessageNameMatcher, const_cast<char*>(name));
}

void SyncSession::open(const SyncTexts& texts, const char* startWait, const SyncClock& clock) {
    readDeviceVersion();
    waitFor(texts.versionAnswer, "DLMessageDeviceReady");
    waitFor(zeb::syncStartText(texts.start, clock).c_str(), startWait);
}

bool SyncSession::readAll(const SyncTexts& texts, const SyncRecordReader& reader) {
    *reader.mode = reader.firstBatchMode;
    exchangeText(texts.getAll, reader.handler, reader.context);
    // Built once: the loop sends the same bytes after every batch.
    MessagePtr acknowledge(EncodeMessage(texts.acknowledge));
    if (reader.readsEveryBatch) {
        *reader.mode = reader.furtherBatchMode;
        // A broken link ends this loop as the last batch does; only
        // linkFailed_ tells the two apart.
        while (exchange(acknowledge.get(), reader.handler, reader.context)) {
        }
    }
    // Every batch the reader takes is in by now: what the link does from
    // here on no longer cuts the list.
    const bool whole = !linkFailed_;
    if (!reader.readsEveryBatch) exchange(acknowledge.get(), AnyMessageMatcher, nullptr);
    waitFor(texts.finish, nullptr);
    return whole;
}

void SyncSession::prepareChanges(const SyncTexts& texts, const SyncWriteWaits& waits) {
    waitFor(texts.getChanges, waits.afterGetChanges);
    MessagePtr acknowledge(EncodeMessage(texts.acknowledge));
    exchange(acknowledge.get(), waits.afterFirstAcknowledge ? MessageNameMatcher : AnyMessageMatcher,
             const_cast<char*>(waits.afterFirstAcknowledge));
    if (waits.secondAcknowledge)
        exchange(acknowledge.get(), MessageNameMatcher, const_cast<char*>("SDMessageDeviceReadyToReceiveChanges"));
    if (lost_) return;
    MessagePtr ping(EncodeMessage(texts.ping));
    if (ping) SyncSendOnly(connection_, ping.get());
}

uint8_t SyncSession::sendChanges(const std::string& text, SyncMessageHandler handler, void* context) {
    if (lost_) return 0;
    MessagePtr message(EncodeMessage(text.data(), static_cast<long>(text.size())));
    return exchange(message.get(), handler, context);
}

void SyncSession::finish(const SyncTexts& texts) { waitFor(texts.finish, "SDMessageDeviceFinishedSession"); }
