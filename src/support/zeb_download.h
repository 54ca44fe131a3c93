// Downloads over HTTP(S): a size query and a fetch through a write function.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>

namespace zeb {

// What travels with a download into writeToFile.
struct DownloadData {
    int64_t total = 0;        // expected size, from remoteFileSize
    int64_t received = 0;     // bytes written so far
    FILE* file = nullptr;     // the open target
    int64_t last_report = 0;  // clock seconds of the last progress call
    // Called at most once in three seconds while data comes, never at the end.
    std::function<void(DownloadData*, int64_t total, int64_t received)> progress;
    // True when the task is cancelled: the download stops at the next write.
    // The worker passes [&] { return zeb::isCancelled(table, task); }.
    std::function<bool()> cancelled;
    // Seconds for the progress rule; a steady clock when empty.
    std::function<int64_t()> clock;
};

// libcurl's write function form.
using WriteFunction = size_t (*)(char* data, size_t size, size_t count, void* userData);

// The size the server states for `url` (HEAD request, no redirects); 0 when
// unknown, on a failure, or on a 404 answer whatever length it states.
uint64_t remoteFileSize(const std::string& url);

// Fetches `url` (http or https, up to 5 redirects) through `writeFunction`
// with `userData`. Gives libcurl's code: 0 (CURLE_OK) on success, 22 for an
// HTTP error answer (400 and up), 23 when the write function stopped it, 47
// for too many redirects.
// libcurl runs in a module loaded on the first request; without it the
// answer is 2 (CURLE_FAILED_INIT).
int fetchUrl(const std::string& url, WriteFunction writeFunction, void* userData);
constexpr int kFetchNotLoaded = 2;

// Write function appending to the std::string at `text`.
size_t appendToString(char* data, size_t size, size_t count, void* text);
// Write function for a DownloadData at `download`: checks the cancel, writes
// to `file`, counts and reports progress.
size_t writeToFile(char* data, size_t size, size_t count, void* download);

// Convenience: the body of `url` into `body`; the libcurl code as fetchUrl.
int fetchToString(const std::string& url, std::string& body);

}  // namespace zeb
