// Writes then reads a large file through libimobiledevice's AFC client
// against zebrelo-sim and prints the rates beside a plain unix-socket copy
// of the same bytes. Each figure is the best of a few rounds, the machine
// being shared. Usage: afc_throughput [--size MiB] [--chunk KiB] [--rounds N]
#include "sim_process.h"
#include "socket_copy.h"

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct Options {
    size_t sizeMiB = 256;
    size_t chunkKiB = 1024;
    size_t rounds = 3;
};

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if ((a == "--size" || a == "--chunk" || a == "--rounds") && i + 1 < argc) {
            const long v = std::strtol(argv[++i], nullptr, 10);
            if (v <= 0) return false;
            (a == "--size" ? o.sizeMiB : a == "--chunk" ? o.chunkKiB : o.rounds) = static_cast<size_t>(v);
        } else {
            return false;
        }
    }
    return o.chunkKiB * 1024 <= UINT32_MAX;
}

using Clock = std::chrono::steady_clock;

double since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

// Seconds for the whole transfer, or negative on an AFC error.
double afcWrite(afc_client_t afc, const char* path, const std::vector<char>& data, size_t chunk) {
    uint64_t h = 0;
    if (afc_file_open(afc, path, AFC_FOPEN_WRONLY, &h) != AFC_E_SUCCESS) return -1;
    const auto start = Clock::now();
    for (size_t off = 0; off < data.size(); off += chunk) {
        const uint32_t n = static_cast<uint32_t>(std::min(chunk, data.size() - off));
        uint32_t written = 0;
        if (afc_file_write(afc, h, data.data() + off, n, &written) != AFC_E_SUCCESS || written != n) return -1;
    }
    const bool closed = afc_file_close(afc, h) == AFC_E_SUCCESS;
    return closed ? since(start) : -1;
}

double afcRead(afc_client_t afc, const char* path, const std::vector<char>& expected, size_t chunk) {
    uint64_t h = 0;
    if (afc_file_open(afc, path, AFC_FOPEN_RDONLY, &h) != AFC_E_SUCCESS) return -1;
    std::vector<char> buf(chunk);
    size_t total = 0;
    bool same = true;
    const auto start = Clock::now();
    for (;;) {
        uint32_t got = 0;
        if (afc_file_read(afc, h, buf.data(), static_cast<uint32_t>(chunk), &got) != AFC_E_SUCCESS) return -1;
        if (got == 0) break;
        // A cheap spot check keeps the loop honest without costing a full compare.
        same = same && total + got <= expected.size() && buf[got - 1] == expected[total + got - 1];
        total += got;
    }
    const double seconds = since(start);
    afc_file_close(afc, h);
    return (same && total == expected.size()) ? seconds : -1;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!parse(argc, argv, o)) {
        std::fprintf(stderr, "usage: %s [--size MiB] [--chunk KiB] [--rounds N]\n", argv[0]);
        return 2;
    }
    const size_t size = o.sizeMiB << 20;
    const size_t chunk = o.chunkKiB << 10;
    std::vector<char> data(size);
    for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>((i * 2654435761u) >> 13);

    simtest::SimProcess sim;
    if (!sim.ready()) {
        std::fprintf(stderr, "%s\n", sim.failure().c_str());
        return 1;
    }
    idevice_t device = nullptr;
    lockdownd_client_t lockdown = nullptr;
    lockdownd_service_descriptor_t svc = nullptr;
    afc_client_t afc = nullptr;
    if (idevice_new_with_options(&device, nullptr, IDEVICE_LOOKUP_USBMUX) != IDEVICE_E_SUCCESS ||
        lockdownd_client_new_with_handshake(device, &lockdown, "afc_throughput") != LOCKDOWN_E_SUCCESS ||
        lockdownd_start_service(lockdown, AFC_SERVICE_NAME, &svc) != LOCKDOWN_E_SUCCESS ||
        afc_client_new(device, svc, &afc) != AFC_E_SUCCESS) {
        std::fprintf(stderr, "cannot reach the simulated device's AFC service\n");
        return 1;
    }

    // The reference copies the same bytes from a local file.
    const std::string local = sim.stateDir() + "/socket_copy.bin";
    const std::string sink = sim.stateDir() + "/socket_sink.bin";
    { std::ofstream(local, std::ios::binary).write(data.data(), static_cast<std::streamsize>(size)); }

    const char* path = "/afc_throughput.bin";
    auto best = [](double current, double t) { return t < 0 || current < 0 ? -1.0 : (current == 0 ? t : std::min(current, t)); };
    double writeSeconds = 0, readSeconds = 0, plainSeconds = 0, plainToFileSeconds = 0;
    for (size_t r = 0; r < o.rounds; ++r) {
        plainSeconds = best(plainSeconds, bench::timeSocketCopy(local, chunk));
        plainToFileSeconds = best(plainToFileSeconds, bench::timeSocketCopy(local, chunk, sink));
        ::unlink(sink.c_str());
        writeSeconds = best(writeSeconds, afcWrite(afc, path, data, chunk));
        readSeconds = best(readSeconds, afcRead(afc, path, data, chunk));
        afc_remove_path(afc, path);
    }
    ::unlink(local.c_str());

    afc_client_free(afc);
    lockdownd_service_descriptor_free(svc);
    lockdownd_client_free(lockdown);
    idevice_free(device);

    if (writeSeconds < 0 || readSeconds < 0 || plainSeconds < 0 || plainToFileSeconds < 0) {
        std::fprintf(stderr, "a transfer failed\n");
        return 1;
    }
    const double mb = static_cast<double>(size) / 1e6;
    const double plain = mb / plainSeconds, plainToFile = mb / plainToFileSeconds;
    const double write = mb / writeSeconds, read = mb / readSeconds;
    std::printf("afc_throughput: %zu MiB in %zu KiB pieces, best of %zu rounds\n", o.sizeMiB, o.chunkKiB, o.rounds);
    std::printf("  plain unix socket copy          %9.1f MB/s\n", plain);
    std::printf("  plain socket copy into a file   %9.1f MB/s\n", plainToFile);
    std::printf("  AFC read                        %9.1f MB/s   ratio to plain copy %.2f (target >= 0.50)\n", read,
                read / plain);
    std::printf("  AFC write                       %9.1f MB/s   ratio to plain copy %.2f, to copy into a file %.2f\n",
                write, write / plain, write / plainToFile);
    return 0;
}
