#include "core/device_keys.h"

#include <openssl/bio.h>
#include <openssl/encoder.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>

namespace zsim {
namespace {

using BioPtr = std::unique_ptr<BIO, decltype(&BIO_free)>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

std::string drain(BIO* bio) {
    char* data = nullptr;
    long len = BIO_get_mem_data(bio, &data);
    return len > 0 ? std::string(data, static_cast<size_t>(len)) : std::string();
}

PkeyPtr loadKey(const std::string& pem) {
    BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
    return PkeyPtr(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr) : nullptr,
                   EVP_PKEY_free);
}

}  // namespace

std::string generatePrivateKeyPem(int bits) {
    PkeyPtr key(EVP_RSA_gen(static_cast<unsigned>(bits)), EVP_PKEY_free);
    if (!key) return {};
    BioPtr bio(BIO_new(BIO_s_mem()), BIO_free);
    if (!PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr)) return {};
    return drain(bio.get());
}

std::string publicKeyPkcs1Pem(const std::string& privateKeyPem) {
    PkeyPtr key = loadKey(privateKeyPem);
    if (!key) return {};
    // "type-specific" output of an RSA public key is PKCS#1, which is what
    // the host's certificate code parses.
    OSSL_ENCODER_CTX* ctx =
        OSSL_ENCODER_CTX_new_for_pkey(key.get(), EVP_PKEY_PUBLIC_KEY, "PEM", "type-specific", nullptr);
    if (!ctx) return {};
    BioPtr bio(BIO_new(BIO_s_mem()), BIO_free);
    bool ok = OSSL_ENCODER_to_bio(ctx, bio.get()) == 1;
    OSSL_ENCODER_CTX_free(ctx);
    return ok ? drain(bio.get()) : std::string();
}

std::string selfSignedCertificatePem(const std::string& privateKeyPem, const std::string& commonName) {
    PkeyPtr key = loadKey(privateKeyPem);
    if (!key) return {};
    std::unique_ptr<X509, decltype(&X509_free)> cert(X509_new(), X509_free);
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 60L * 60 * 24 * 365 * 10);
    X509_set_pubkey(cert.get(), key.get());
    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0);
    X509_set_issuer_name(cert.get(), name);
    if (!X509_sign(cert.get(), key.get(), EVP_sha256())) return {};
    BioPtr bio(BIO_new(BIO_s_mem()), BIO_free);
    if (!PEM_write_bio_X509(bio.get(), cert.get())) return {};
    return drain(bio.get());
}

}  // namespace zsim
