// The download module's C interface: the names the worker looks up in
// libzebrelo-download.so and the forms it calls them in.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
typedef size_t (*ZebreloWriteFunction)(char* data, size_t size, size_t count, void* userData);
// The length the server states (HEAD, no redirects); 0 when unknown or 404.
typedef uint64_t (*ZebreloRemoteFileSize)(const char* url, const char* caBundle);
// libcurl's result code of a GET through `write`.
typedef int (*ZebreloFetchUrl)(const char* url, const char* caBundle, ZebreloWriteFunction write, void* userData);
}

#define ZEBRELO_DOWNLOAD_MODULE "libzebrelo-download.so"
