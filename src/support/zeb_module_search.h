// Where the worker finds a library that ships with it (the device library
// provider, the download module): beside its executable, then in
// ../lib/zebrelo/ of an installed tree, then through the dynamic linker's own
// search. Header-only: the provider binding uses it without linking support.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace zeb {

// The paths to try, in order. The last is the bare name, which the dynamic
// linker resolves; without a known executable folder it is the only one.
inline std::vector<std::string> shippedLibraryCandidates(const std::filesystem::path& exeFolder,
                                                         const std::string& fileName) {
    std::vector<std::string> candidates;
    if (!exeFolder.empty()) {
        candidates.push_back((exeFolder / fileName).string());
        candidates.push_back((exeFolder / ".." / "lib" / "zebrelo" / fileName).lexically_normal().string());
    }
    candidates.push_back(fileName);
    return candidates;
}

// Whether a candidate is worth a dlopen: a bare name always is (the linker
// searches), an explicit path only when the file is there.
inline bool worthLoading(const std::string& candidate) {
    std::error_code missing;
    return candidate.find('/') == std::string::npos || std::filesystem::exists(candidate, missing);
}

}  // namespace zeb
