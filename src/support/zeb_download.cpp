// Downloads through the download module, loaded on the first request.
#include "zeb_download.h"

#include "zeb_paths.h"

#include "zeb_download_module.h"
#include "zeb_module_search.h"

#include <dlfcn.h>
#include <glog/logging.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <mutex>

namespace zeb {

namespace {

// The module, bound once on the first download; null entries when it can't
// be found or loaded (the calls then fail as libcurl's set-up would).
struct DownloadModule {
    ZebreloRemoteFileSize remoteFileSize = nullptr;
    ZebreloFetchUrl fetchUrl = nullptr;
};

const DownloadModule& module() {
    static DownloadModule bound;
    static std::once_flag once;
    std::call_once(once, [] {
        for (const auto& candidate : shippedLibraryCandidates(exeFolder(), ZEBRELO_DOWNLOAD_MODULE)) {
            if (!worthLoading(candidate)) continue;
            void* library = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (!library) {
                LOG(WARNING) << "download module " << candidate << " did not load: " << dlerror();
                continue;
            }
            bound.remoteFileSize = reinterpret_cast<ZebreloRemoteFileSize>(dlsym(library, "zebrelo_remote_file_size"));
            bound.fetchUrl = reinterpret_cast<ZebreloFetchUrl>(dlsym(library, "zebrelo_fetch_url"));
            return;
        }
        LOG(WARNING) << "no download module (" << ZEBRELO_DOWNLOAD_MODULE << ") was found";
    });
    return bound;
}

// A bundle shipped beside the executable wins over the system's CA store.
std::string caBundle() {
    auto bundle = exeFolder() / "curl-ca-bundle.crt";
    std::error_code error;
    return std::filesystem::exists(bundle, error) ? bundle.string() : std::string();
}

int64_t steadySeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

uint64_t remoteFileSize(const std::string& url) {
    auto call = module().remoteFileSize;
    return call ? call(url.c_str(), caBundle().c_str()) : 0;
}

int fetchUrl(const std::string& url, WriteFunction writeFunction, void* userData) {
    auto call = module().fetchUrl;
    return call ? call(url.c_str(), caBundle().c_str(), writeFunction, userData) : kFetchNotLoaded;
}

size_t appendToString(char* data, size_t size, size_t count, void* text) {
    static_cast<std::string*>(text)->append(data, size * count);
    return size * count;
}

size_t writeToFile(char* data, size_t size, size_t count, void* userData) {
    auto* download = static_cast<DownloadData*>(userData);
    // Any count other than the one given stops libcurl with a write error.
    if (download->cancelled && download->cancelled()) return static_cast<size_t>(-2);
    size_t bytes = size * count;
    if (download->file && std::fwrite(data, 1, bytes, download->file) != bytes) return 0;
    download->received += static_cast<int64_t>(bytes);
    int64_t now = download->clock ? download->clock() : steadySeconds();
    if (now - download->last_report < 3) return bytes;
    download->last_report = now;
    if (download->progress) download->progress(download, download->total, download->received);
    return bytes;
}

int fetchToString(const std::string& url, std::string& body) {
    body.clear();
    int code = fetchUrl(url, &appendToString, &body);
    if (code != 0) body.clear();
    return code;
}

}  // namespace zeb
