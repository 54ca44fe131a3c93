// The two requests that need libcurl, behind a C interface the worker binds
// with dlsym; one easy handle per call.
#include "zeb_download_module.h"

#include <curl/curl.h>

#include <memory>
#include <mutex>
#include <string>

namespace {

struct EasyCleanup {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
using Easy = std::unique_ptr<CURL, EasyCleanup>;

Easy newEasy() {
    // Global set-up once, before any thread makes a handle.
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    return Easy(curl_easy_init());
}

// Common settings: only web protocols (URLs may come from package metadata),
// no signals (pool threads), limits so that a silent server can't hold the
// caller for ever, and the peer checked against the bundle given or, without
// one, the system's CA store.
void commonOptions(CURL* curl, const char* url, const char* caBundle) {
    curl_easy_setopt(curl, CURLOPT_URL, url);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 30L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, 60L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    if (caBundle && *caBundle) curl_easy_setopt(curl, CURLOPT_CAINFO, caBundle);
}

size_t appendHeaders(char* data, size_t size, size_t count, void* text) {
    static_cast<std::string*>(text)->append(data, size * count);
    return size * count;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) uint64_t zebrelo_remote_file_size(const char* url,
                                                                                   const char* caBundle) {
    Easy curl = newEasy();
    if (!curl) return 0;
    std::string headers;
    commonOptions(curl.get(), url, caBundle);
    curl_easy_setopt(curl.get(), CURLOPT_HEADER, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_NOBODY, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &appendHeaders);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &headers);
    if (curl_easy_perform(curl.get()) != CURLE_OK) return 0;
    long response = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &response);
    // A missing file's error page has a length too; it is not the file's.
    if (response == 404) return 0;
    curl_off_t length = -1;
    if (curl_easy_getinfo(curl.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length) != CURLE_OK || length < 0) return 0;
    return static_cast<uint64_t>(length);
}

extern "C" __attribute__((visibility("default"))) int zebrelo_fetch_url(const char* url, const char* caBundle,
                                                                       ZebreloWriteFunction write, void* userData) {
    Easy curl = newEasy();
    if (!curl) return CURLE_FAILED_INIT;
    commonOptions(curl.get(), url, caBundle);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, write);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, userData);
    curl_easy_setopt(curl.get(), CURLOPT_MAXREDIRS, 5L);
    curl_easy_setopt(curl.get(), CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_NOPROGRESS, 1L);
    // An error page is not the file asked for.
    curl_easy_setopt(curl.get(), CURLOPT_FAILONERROR, 1L);
    return curl_easy_perform(curl.get());
}
