// The device's own RSA identity: the key whose public half lockdown gives
// out as DevicePublicKey and that signs nothing but serves the TLS sessions.
#pragma once

#include <string>

namespace zsim {

// A fresh RSA private key as PEM (empty on failure).
std::string generatePrivateKeyPem(int bits = 2048);
// The public half as a PKCS#1 "RSA PUBLIC KEY" PEM, the form hosts expect.
std::string publicKeyPkcs1Pem(const std::string& privateKeyPem);
// A self-signed certificate for the key, used until a host has given the
// device a certificate of its own.
std::string selfSignedCertificatePem(const std::string& privateKeyPem, const std::string& commonName);

}  // namespace zsim
