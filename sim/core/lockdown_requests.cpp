#include "core/lockdown_requests.h"

#include "core/device.h"
#include "service.h"

#include <openssl/rand.h>

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

namespace zsim {
namespace {

std::string newSessionId() {
    unsigned char b[16];
    RAND_bytes(b, sizeof(b));
    char out[40];
    snprintf(out, sizeof(out), "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0], b[1],
             b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
    return out;
}

PlistPtr answerFor(const std::string& request) {
    PlistPtr a = adopt(plist_new_dict());
    plist_dict_set_item(a.get(), "Request", plist_new_string(request.c_str()));
    return a;
}

LockdownReply reply(PlistPtr answer, LockdownStep step = LockdownStep::Continue) {
    return LockdownReply{std::move(answer), step};
}

LockdownReply fail(const std::string& request, const std::string& error) {
    PlistPtr a = answerFor(request);
    plist_dict_set_item(a.get(), "Error", plist_new_string(error.c_str()));
    return reply(std::move(a));
}

LockdownReply serviceError(const std::string& service, const char* error) {
    PlistPtr a = answerFor("StartService");
    plist_dict_set_item(a.get(), "Service", plist_new_string(service.c_str()));
    plist_dict_set_item(a.get(), "Error", plist_new_string(error));
    return reply(std::move(a));
}

}  // namespace

std::optional<uint32_t> lockdownFrameLength(const unsigned char* fourBytes) {
    uint32_t be = 0;
    memcpy(&be, fourBytes, sizeof(be));
    uint32_t length = ntohl(be);
    if (length == 0 || length > kLockdownMaxMessage) return std::nullopt;
    return length;
}

LockdownReply LockdownRequests::handle(plist_t request) {
    if (!request || plist_get_node_type(request) != PLIST_DICT) return reply(nullptr, LockdownStep::Close);
    std::string name = dictString(request, "Request").value_or("");
    if (name == "QueryType") {
        PlistPtr a = answerFor(name);
        plist_dict_set_item(a.get(), "Type", plist_new_string("com.apple.mobile.lockdown"));
        return reply(std::move(a));
    }
    if (name == "GetValue") return getValue(request);
    if (name == "SetValue") return setValue(request);
    if (name == "RemoveValue") return removeValue(request);
    if (name == "Pair") return pair(request);
    if (name == "ValidatePair") return validatePair(request);
    if (name == "Unpair") return unpair(request);
    if (name == "StartSession") return startSession(request);
    if (name == "StopSession") return stopSession();
    if (name == "StartService") return startService(request);
    if (name == "Goodbye") return reply(answerFor(name), LockdownStep::Close);
    if (name.empty()) return fail("", "MissingRequest");
    return fail(name, "InvalidRequest");
}

void LockdownRequests::sessionStarted() { inSession_ = true; }

LockdownReply LockdownRequests::getValue(plist_t request) {
    std::string domain = dictString(request, "Domain").value_or("");
    std::string key = dictString(request, "Key").value_or("");
    std::string error;
    PlistPtr value = device_.getValue(domain, key, inSession_, error);
    PlistPtr a = answerFor("GetValue");
    if (!domain.empty()) plist_dict_set_item(a.get(), "Domain", plist_new_string(domain.c_str()));
    if (!key.empty()) plist_dict_set_item(a.get(), "Key", plist_new_string(key.c_str()));
    if (value) {
        plist_dict_set_item(a.get(), "Value", value.release());
    } else {
        plist_dict_set_item(a.get(), "Error", plist_new_string(error.c_str()));
    }
    return reply(std::move(a));
}

LockdownReply LockdownRequests::setValue(plist_t request) {
    if (!inSession_) return fail("SetValue", "NoRunningSession");
    std::string domain = dictString(request, "Domain").value_or("");
    std::string key = dictString(request, "Key").value_or("");
    std::string error;
    if (!device_.setValue(domain, key, plist_dict_get_item(request, "Value"), error)) return fail("SetValue", error);
    return reply(answerFor("SetValue"));
}

LockdownReply LockdownRequests::removeValue(plist_t request) {
    if (!inSession_) return fail("RemoveValue", "NoRunningSession");
    std::string error;
    if (!device_.removeValue(dictString(request, "Domain").value_or(""), dictString(request, "Key").value_or(""),
                             error))
        return fail("RemoveValue", error);
    return reply(answerFor("RemoveValue"));
}

LockdownReply LockdownRequests::pair(plist_t request) {
    plist_t record = dictDict(request, "PairRecord");
    if (!record) return fail("Pair", "InvalidPairRecord");
    PairOutcome outcome = device_.pair(record);
    if (!outcome.error.empty()) return fail("Pair", outcome.error);
    PlistPtr a = answerFor("Pair");
    plist_dict_set_item(a.get(), "EscrowBag", plist_new_data(outcome.escrowBag.data(), outcome.escrowBag.size()));
    return reply(std::move(a));
}

LockdownReply LockdownRequests::validatePair(plist_t request) {
    std::string host = dictString(dictDict(request, "PairRecord"), "HostID").value_or("");
    if (!device_.knowsHost(host)) return fail("ValidatePair", "InvalidHostID");
    return reply(answerFor("ValidatePair"));
}

LockdownReply LockdownRequests::unpair(plist_t request) {
    std::string host = dictString(dictDict(request, "PairRecord"), "HostID").value_or("");
    if (!device_.unpair(host)) return fail("Unpair", "InvalidHostID");
    return reply(answerFor("Unpair"));
}

LockdownReply LockdownRequests::startSession(plist_t request) {
    std::string host = dictString(request, "HostID").value_or("");
    if (!device_.knowsHost(host)) return fail("StartSession", "InvalidHostID");
    if (inSession_) return fail("StartSession", "SessionActive");
    hostId_ = host;
    PlistPtr a = answerFor("StartSession");
    plist_dict_set_item(a.get(), "SessionID", plist_new_string(newSessionId().c_str()));
    plist_dict_set_item(a.get(), "EnableSessionSSL", plist_new_bool(1));
    return reply(std::move(a), LockdownStep::StartTls);
}

LockdownReply LockdownRequests::stopSession() {
    if (!inSession_) return fail("StopSession", "NoRunningSession");
    inSession_ = false;
    hostId_.clear();
    return reply(answerFor("StopSession"), LockdownStep::StopTls);
}

// EscrowBag is optional: a host that has none is served the same.
LockdownReply LockdownRequests::startService(plist_t request) {
    std::string service = dictString(request, "Service").value_or("");
    if (!inSession_) return fail("StartService", "NoRunningSession");
    bool allowed = findService(service) != nullptr;
    // The whole file system is only reachable on a jailbroken device.
    if (service == "com.apple.afc2" && !device_.isJailbroken()) allowed = false;
    if (!allowed) return serviceError(service, "InvalidService");
    if (device_.isServiceRefused(service)) return serviceError(service, "ServiceProhibited");
    uint16_t port = device_.openServicePort(service);
    PlistPtr a = answerFor("StartService");
    plist_dict_set_item(a.get(), "Service", plist_new_string(service.c_str()));
    plist_dict_set_item(a.get(), "Port", plist_new_uint(port));
    plist_dict_set_item(a.get(), "EnableServiceSSL", plist_new_bool(0));
    return reply(std::move(a));
}

}  // namespace zsim
