// Downloads over libcurl's easy interface, one handle per call.
#include "zeb_download.h"

#include "zeb_paths.h"

#include <curl/curl.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <mutex>

namespace zeb {

namespace {

struct EasyCleanup {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
using Easy = std::unique_ptr<CURL, EasyCleanup>;

// Common settings: only web protocols (URLs may come from package metadata),
// no signals (pool threads), and limits so that a silent server can't hold
// the caller for ever.
void commonOptions(CURL* curl, const std::string& url) {
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 30L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, 60L);
}

// The certificate step: a bundle shipped beside the executable wins; without
// it the system's CA store checks the peer.
void certificateStep(CURL* curl) {
    auto bundle = exeFolder() / "curl-ca-bundle.crt";
    std::error_code error;
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    if (std::filesystem::exists(bundle, error)) curl_easy_setopt(curl, CURLOPT_CAINFO, bundle.c_str());
}

int64_t steadySeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

static Easy newEasy() {
    // Global set-up once, before any thread makes a handle.
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    return Easy(curl_easy_init());
}

uint64_t remoteFileSize(const std::string& url) {
    Easy curl = newEasy();
    if (!curl) return 0;
    std::string headers;
    commonOptions(curl.get(), url);
    curl_easy_setopt(curl.get(), CURLOPT_HEADER, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_NOBODY, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &appendToString);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &headers);
    certificateStep(curl.get());
    if (curl_easy_perform(curl.get()) != CURLE_OK) return 0;
    long response = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &response);
    // A missing file's error page has a length too; it is not the file's.
    if (response == 404) return 0;
    curl_off_t length = -1;
    if (curl_easy_getinfo(curl.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length) != CURLE_OK || length < 0) return 0;
    return static_cast<uint64_t>(length);
}

int fetchUrl(const std::string& url, WriteFunction writeFunction, void* userData) {
    Easy curl = newEasy();
    if (!curl) return CURLE_FAILED_INIT;
    commonOptions(curl.get(), url);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, writeFunction);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, userData);
    curl_easy_setopt(curl.get(), CURLOPT_MAXREDIRS, 5L);
    curl_easy_setopt(curl.get(), CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_NOPROGRESS, 1L);
    // An error page is not the file asked for.
    curl_easy_setopt(curl.get(), CURLOPT_FAILONERROR, 1L);
    certificateStep(curl.get());
    return curl_easy_perform(curl.get());
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
    if (code != CURLE_OK) body.clear();
    return code;
}

}  // namespace zeb
