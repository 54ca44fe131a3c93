#include "afc_paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <vector>

namespace zsim::afc {
namespace {

constexpr int kMaxLinkHops = 32;

void splitInto(std::string_view path, std::deque<std::string>& out, bool atFront) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string_view::npos) end = path.size();
        if (end > start) parts.emplace_back(path.substr(start, end - start));
        start = end + 1;
    }
    if (atFront) {
        out.insert(out.begin(), parts.begin(), parts.end());
    } else {
        out.insert(out.end(), parts.begin(), parts.end());
    }
}

// True when nothing but "." remains: the current component is the last.
bool onlyDotsLeft(const std::deque<std::string>& pending) {
    for (const auto& c : pending)
        if (c != ".") return false;
    return true;
}

std::string joinUnder(const std::string& root, const std::vector<std::string>& parts) {
    std::string out = root;
    for (const auto& p : parts) {
        if (out.back() != '/') out += '/';  // a root of "/" has its slash
        out += p;
    }
    return out;
}

}  // namespace

RootedPaths::RootedPaths(const std::string& root) {
    char buf[PATH_MAX];
    if (!root.empty() && ::realpath(root.c_str(), buf) != nullptr) root_ = buf;
}

Status RootedPaths::resolve(std::string_view hostPath, const ResolveOptions& options,
                            std::string& real) const {
    if (root_.empty()) return kPermDenied;
    std::deque<std::string> pending;
    splitInto(hostPath, pending, false);
    std::vector<std::string> parts;  // resolved components, none a link
    int hops = 0;
    // Below a missing directory nothing exists: components from this depth
    // on are taken as they are.
    size_t missingFrom = SIZE_MAX;

    while (!pending.empty()) {
        std::string c = std::move(pending.front());
        pending.pop_front();
        if (c == ".") continue;
        if (c == "..") {
            if (parts.empty()) return kPermDenied;
            parts.pop_back();
            if (parts.size() <= missingFrom) missingFrom = SIZE_MAX;
            continue;
        }
        const bool last = onlyDotsLeft(pending);
        if (missingFrom != SIZE_MAX) {
            parts.push_back(std::move(c));
            continue;
        }
        parts.push_back(c);
        const std::string candidate = joinUnder(root_, parts);
        struct stat st {};
        if (::lstat(candidate.c_str(), &st) != 0) {
            if (errno != ENOENT) return statusFromErrno(errno);
            if (last) break;
            if (!options.allowMissingParents) return kObjectNotFound;
            missingFrom = parts.size() - 1;
            continue;
        }
        if (S_ISLNK(st.st_mode) && (!last || options.followLast)) {
            if (++hops > kMaxLinkHops) return kPermDenied;
            char target[PATH_MAX];
            ssize_t n = ::readlink(candidate.c_str(), target, sizeof target - 1);
            if (n <= 0) return kObjectNotFound;
            parts.pop_back();
            std::string_view t(target, static_cast<size_t>(n));
            // An absolute target names a path of the device, which starts
            // at the root like every host path.
            if (t.front() == '/') parts.clear();
            splitInto(t, pending, true);
            continue;
        }
        if (!last && !S_ISDIR(st.st_mode)) return kObjectNotFound;
    }
    real = joinUnder(root_, parts);
    return kSuccess;
}

}  // namespace zsim::afc
