// Device bytes through the backup upload reader, delivered in pieces whose
// sizes the input also picks. Afterwards nothing may exist beside the
// backup folder.
#include "zeb_backup_upload.h"
#include "zeb_mobile_export_fun.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

const uint8_t* g_data = nullptr;
size_t g_left = 0;
size_t g_piece = 1;

ssize_t Receive(AMDServiceConnectionRef, void* buffer, size_t length) {
    const size_t n = std::min({length, g_left, g_piece});
    if (n == 0) return -1;
    memcpy(buffer, g_data, n);
    g_data += n;
    g_left -= n;
    return static_cast<ssize_t>(n);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The scratch folder goes with the process.
    struct Scratch {
        fs::path path = fs::temp_directory_path() / ("zeb-fuzz-upload-" + std::to_string(getpid()));
        ~Scratch() {
            std::error_code ignored;
            fs::remove_all(path, ignored);
        }
    };
    static const Scratch scratch;
    const fs::path& base = scratch.path;
    if (size < 1) return 0;
    CMobileExportFun::GetInstance().AMDServiceConnectionReceive = Receive;
    g_piece = 1 + data[0] % 64;
    g_data = data + 1;
    g_left = size - 1;

    fs::remove_all(base);
    fs::create_directories(base / "root");
    BackupSession session;
    session.device_id = "UDID";
    session.folder_suffix = "-1";
    session.root_dir = base / "root" / "";
    backup::receiveUploadedFiles(session);
    for (const auto& entry : fs::directory_iterator(base))
        if (entry.path().filename() != "root") abort();  // written outside the backup folder
    return 0;
}
