// The device's memory of the hosts it trusts, and its trust dialog.
#include "core/device.h"

#include "core/device_keys.h"

#include <openssl/rand.h>

namespace zsim {
namespace {

constexpr size_t kEscrowBagSize = 128;

std::string dataAsString(plist_t dict, const char* key) {
    auto d = dictData(dict, key);
    return d ? std::string(d->begin(), d->end()) : std::string();
}

}  // namespace

PairOutcome Device::pair(plist_t record) {
    PairOutcome out;
    auto hostId = dictString(record, "HostID");
    auto hostCert = dictData(record, "HostCertificate");
    auto deviceCert = dictData(record, "DeviceCertificate");
    if (!hostId || hostId->empty() || !hostCert || !deviceCert) {
        out.error = "InvalidPairRecord";
        return out;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    plist_t hosts = dictDict(memory_.get(), "TrustedHosts");
    bool known = plist_dict_get_item(hosts, hostId->c_str()) != nullptr;
    if (!known && trust_ != TrustMode::Trusted) {
        if (trust_ == TrustMode::Locked) {
            out.error = "PasswordProtected";
            return out;
        }
        switch (dialog_) {
            case DialogState::Accepted:
                dialog_ = DialogState::None;
                break;
            case DialogState::Refused:
                // The dialog is gone; the next attempt shows it again.
                dialog_ = DialogState::None;
                out.error = "UserDeniedPairing";
                return out;
            case DialogState::None:
            case DialogState::Pending:
                dialog_ = DialogState::Pending;
                out.error = "PairingDialogResponsePending";
                return out;
        }
    }

    // Re-pairing a known host keeps its escrow bag, as the device does.
    std::vector<char> bag = known ? dictData(dictDict(hosts, hostId->c_str()), "EscrowBag").value_or(std::vector<char>())
                                  : std::vector<char>();
    if (bag.empty()) {
        bag.resize(kEscrowBagSize);
        RAND_bytes(reinterpret_cast<unsigned char*>(bag.data()), static_cast<int>(bag.size()));
    }
    plist_t entry = plist_new_dict();
    plist_dict_set_item(entry, "HostCertificate", plist_new_data(hostCert->data(), hostCert->size()));
    plist_dict_set_item(entry, "DeviceCertificate", plist_new_data(deviceCert->data(), deviceCert->size()));
    if (auto root = dictData(record, "RootCertificate"))
        plist_dict_set_item(entry, "RootCertificate", plist_new_data(root->data(), root->size()));
    if (auto buid = dictString(record, "SystemBUID")) plist_dict_set_item(entry, "SystemBUID", plist_new_string(buid->c_str()));
    plist_dict_set_item(entry, "EscrowBag", plist_new_data(bag.data(), bag.size()));
    plist_dict_set_item(hosts, hostId->c_str(), entry);
    saveMemory();
    out.escrowBag = std::move(bag);
    return out;
}

bool Device::knowsHost(const std::string& hostId) {
    std::lock_guard<std::mutex> lock(mutex_);
    return !hostId.empty() && plist_dict_get_item(dictDict(memory_.get(), "TrustedHosts"), hostId.c_str()) != nullptr;
}

bool Device::unpair(const std::string& hostId) {
    std::lock_guard<std::mutex> lock(mutex_);
    plist_t hosts = dictDict(memory_.get(), "TrustedHosts");
    if (hostId.empty() || !plist_dict_get_item(hosts, hostId.c_str())) return false;
    plist_dict_remove_item(hosts, hostId.c_str());
    saveMemory();
    return true;
}

void Device::answerDialog(bool trust) {
    std::lock_guard<std::mutex> lock(mutex_);
    // A locked device is unlocked by the same user who answers the dialog.
    if (trust_ == TrustMode::Locked) {
        trust_ = TrustMode::Untrusted;
        plist_dict_set_item(memory_.get(), "TrustMode", plist_new_string("untrusted"));
        saveMemory();
    }
    dialog_ = trust ? DialogState::Accepted : DialogState::Refused;
}

std::string Device::certificateFor(const std::string& hostId) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::string cert = dataAsString(dictDict(dictDict(memory_.get(), "TrustedHosts"), hostId.c_str()),
                                        "DeviceCertificate");
        if (!cert.empty()) return cert;
    }
    return selfSignedCertificatePem(privateKeyPem(), udid_);
}

}  // namespace zsim
