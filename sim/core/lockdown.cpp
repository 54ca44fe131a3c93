#include "core/lockdown.h"

#include "core/device.h"
#include "core/plist_util.h"
#include "core/socket_io.h"
#include "core/tls_channel.h"

#include <openssl/rand.h>

#include <arpa/inet.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

namespace zsim {
namespace {

// Lockdown messages are small; anything near this is a confused peer.
constexpr uint32_t kMaxMessage = 4u << 20;

std::string newSessionId() {
    unsigned char b[16];
    RAND_bytes(b, sizeof(b));
    char out[40];
    snprintf(out, sizeof(out), "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0], b[1],
             b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
    return out;
}

class LockdownConnection {
public:
    LockdownConnection(int fd, Device& device, const std::atomic<bool>& closing)
        : fd_(fd), device_(device), closing_(closing) {}

    void run() {
        while (!closing_.load()) {
            PlistPtr request = receive();
            if (!request) return;
            while (device_.stalled.load() && !closing_.load())
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            if (closing_.load()) return;
            if (!handle(request.get())) return;
        }
    }

private:
    bool readBytes(void* buf, size_t n) {
        if (!tls_.active()) return readFull(fd_, buf, n);
        auto* p = static_cast<char*>(buf);
        while (n > 0) {
            ssize_t got = tls_.read(p, n);
            if (got <= 0) return false;
            p += got;
            n -= static_cast<size_t>(got);
        }
        return true;
    }

    bool writeBytes(const void* buf, size_t n) { return tls_.active() ? tls_.write(buf, n) : writeFull(fd_, buf, n); }

    PlistPtr receive() {
        uint32_t beLength = 0;
        if (!readBytes(&beLength, 4)) return nullptr;
        uint32_t length = ntohl(beLength);
        if (length == 0 || length > kMaxMessage) return nullptr;
        std::string body(length, '\0');
        if (!readBytes(body.data(), length)) return nullptr;
        return parsePlist(body.data(), body.size());
    }

    bool send(plist_t answer) {
        std::string xml = toXml(answer);
        uint32_t beLength = htonl(static_cast<uint32_t>(xml.size()));
        return writeBytes(&beLength, 4) && writeBytes(xml.data(), xml.size());
    }

    static PlistPtr answerFor(const std::string& request) {
        PlistPtr a = adopt(plist_new_dict());
        plist_dict_set_item(a.get(), "Request", plist_new_string(request.c_str()));
        return a;
    }

    bool fail(const std::string& request, const std::string& error) {
        PlistPtr a = answerFor(request);
        plist_dict_set_item(a.get(), "Error", plist_new_string(error.c_str()));
        return send(a.get());
    }

    bool handle(plist_t request) {
        if (plist_get_node_type(request) != PLIST_DICT) return false;
        std::string name = dictString(request, "Request").value_or("");
        if (name == "QueryType") {
            PlistPtr a = answerFor(name);
            plist_dict_set_item(a.get(), "Type", plist_new_string("com.apple.mobile.lockdown"));
            return send(a.get());
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
        if (name == "Goodbye") {
            PlistPtr a = answerFor(name);
            send(a.get());
            return false;
        }
        if (name.empty()) return fail("", "MissingRequest");
        return fail(name, "InvalidRequest");
    }

    bool getValue(plist_t request) {
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
        return send(a.get());
    }

    bool setValue(plist_t request) {
        if (!inSession_) return fail("SetValue", "NoRunningSession");
        std::string domain = dictString(request, "Domain").value_or("");
        std::string key = dictString(request, "Key").value_or("");
        std::string error;
        if (!device_.setValue(domain, key, plist_dict_get_item(request, "Value"), error))
            return fail("SetValue", error);
        return send(answerFor("SetValue").get());
    }

    bool removeValue(plist_t request) {
        if (!inSession_) return fail("RemoveValue", "NoRunningSession");
        std::string error;
        if (!device_.removeValue(dictString(request, "Domain").value_or(""), dictString(request, "Key").value_or(""),
                                 error))
            return fail("RemoveValue", error);
        return send(answerFor("RemoveValue").get());
    }

    bool pair(plist_t request) {
        plist_t record = dictDict(request, "PairRecord");
        if (!record) return fail("Pair", "InvalidPairRecord");
        PairOutcome outcome = device_.pair(record);
        if (!outcome.error.empty()) return fail("Pair", outcome.error);
        PlistPtr a = answerFor("Pair");
        plist_dict_set_item(a.get(), "EscrowBag", plist_new_data(outcome.escrowBag.data(), outcome.escrowBag.size()));
        return send(a.get());
    }

    bool validatePair(plist_t request) {
        std::string host = dictString(dictDict(request, "PairRecord"), "HostID").value_or("");
        if (!device_.knowsHost(host)) return fail("ValidatePair", "InvalidHostID");
        return send(answerFor("ValidatePair").get());
    }

    bool unpair(plist_t request) {
        std::string host = dictString(dictDict(request, "PairRecord"), "HostID").value_or("");
        if (!device_.unpair(host)) return fail("Unpair", "InvalidHostID");
        return send(answerFor("Unpair").get());
    }

    bool startSession(plist_t request) {
        std::string host = dictString(request, "HostID").value_or("");
        if (!device_.knowsHost(host)) return fail("StartSession", "InvalidHostID");
        if (inSession_) return fail("StartSession", "SessionActive");
        std::string sessionId = newSessionId();
        PlistPtr a = answerFor("StartSession");
        plist_dict_set_item(a.get(), "SessionID", plist_new_string(sessionId.c_str()));
        plist_dict_set_item(a.get(), "EnableSessionSSL", plist_new_bool(1));
        if (!send(a.get())) return false;

        std::string key = device_.privateKeyPem();
        std::string error;
        if (!tls_.accept(fd_, device_.certificateFor(host), key, error)) {
            if (error.rfind("TLS handshake", 0) == 0) {
                fprintf(stderr, "zebrelo-sim: %s: %s\n", device_.udid().c_str(), error.c_str());
                return false;
            }
            // The host gave a certificate that is not for this key: fall
            // back to one of the device's own.
            if (!tls_.accept(fd_, device_.certificateFor(""), key, error)) {
                fprintf(stderr, "zebrelo-sim: %s: %s\n", device_.udid().c_str(), error.c_str());
                return false;
            }
        }
        inSession_ = true;
        hostId_ = host;
        return true;
    }

    bool stopSession() {
        if (!inSession_) return fail("StopSession", "NoRunningSession");
        if (!send(answerFor("StopSession").get())) return false;
        tls_.shutdown();
        inSession_ = false;
        hostId_.clear();
        return true;
    }

    bool startService(plist_t request) {
        std::string service = dictString(request, "Service").value_or("");
        if (!inSession_) return fail("StartService", "NoRunningSession");
        bool allowed = findService(service) != nullptr;
        // The whole file system is only reachable on a jailbroken device.
        if (service == "com.apple.afc2" && !device_.isJailbroken()) allowed = false;
        if (!allowed) {
            PlistPtr a = answerFor("StartService");
            plist_dict_set_item(a.get(), "Service", plist_new_string(service.c_str()));
            plist_dict_set_item(a.get(), "Error", plist_new_string("InvalidService"));
            return send(a.get());
        }
        if (device_.isServiceRefused(service)) {
            PlistPtr a = answerFor("StartService");
            plist_dict_set_item(a.get(), "Service", plist_new_string(service.c_str()));
            plist_dict_set_item(a.get(), "Error", plist_new_string("ServiceProhibited"));
            return send(a.get());
        }
        uint16_t port = device_.openServicePort(service);
        PlistPtr a = answerFor("StartService");
        plist_dict_set_item(a.get(), "Service", plist_new_string(service.c_str()));
        plist_dict_set_item(a.get(), "Port", plist_new_uint(port));
        plist_dict_set_item(a.get(), "EnableServiceSSL", plist_new_bool(0));
        return send(a.get());
    }

    int fd_;
    Device& device_;
    const std::atomic<bool>& closing_;
    TlsChannel tls_;
    bool inSession_ = false;
    std::string hostId_;
};

}  // namespace

void runLockdown(int fd, Device& device, const std::atomic<bool>& closing) {
    LockdownConnection(fd, device, closing).run();
}

}  // namespace zsim
