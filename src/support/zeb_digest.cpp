#include "zeb_digest.h"

#include <openssl/evp.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace zeb {

std::string fileMd5(const std::filesystem::path& path) {
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) {
        printf("Error opening file %s\nError: %d\n", path.c_str(), errno);
        return {};
    }
    std::unique_ptr<FILE, int (*)(FILE*)> closer(file, fclose);
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr) != 1) {
        printf("CryptAcquireContext failed: %d\n", 0);
        return {};
    }
    unsigned char block[64 * 1024];
    size_t got = 0;
    while ((got = fread(block, 1, sizeof block, file)) > 0) {
        if (EVP_DigestUpdate(context.get(), block, got) != 1) {
            printf("CryptHashData failed: %d\n", 0);
            return {};
        }
    }
    if (ferror(file)) {
        printf("ReadFile failed: %d\n", errno);
        return {};
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_DigestFinal_ex(context.get(), digest, &size) != 1) {
        printf("CryptGetHashParam failed: %d\n", 0);
        return {};
    }
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        text.push_back(digits[digest[i] >> 4]);
        text.push_back(digits[digest[i] & 0xF]);
    }
    return text;
}

}  // namespace zeb
