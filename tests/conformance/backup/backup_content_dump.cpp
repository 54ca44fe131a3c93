// Prints the files of the simulator's small backup content as sha1sum
// would for a backup folder ("<sha1>  <xx>/<fileID>"), from the same
// generator the device streams from, so that scripts can check a backup
// the stock tool made with `sha1sum -c`.
#include "core/backup_content.h"
#include "core/backup_file_data.h"

#include <openssl/evp.h>

#include <cstdio>
#include <memory>
#include <vector>

int main() {
    const zsim::BackupContent& content = zsim::backupContent(zsim::BackupContentKind::Small);
    std::vector<char> buffer(64 << 10);
    for (const zsim::BackupItem& item : content.items) {
        if (item.directory) continue;
        std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
        EVP_DigestInit_ex(ctx.get(), EVP_sha1(), nullptr);
        zsim::BackupFileReader reader(item);
        // Odd piece sizes on purpose: the bytes must not depend on how they are read.
        for (size_t n; (n = reader.read(buffer.data(), 1000 + item.size % 7)) > 0;)
            EVP_DigestUpdate(ctx.get(), buffer.data(), n);
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned length = 0;
        EVP_DigestFinal_ex(ctx.get(), digest, &length);
        for (unsigned i = 0; i < length; ++i) printf("%02x", digest[i]);
        printf("  %s/%s\n", item.fileID.substr(0, 2).c_str(), item.fileID.c_str());
    }
    return 0;
}
