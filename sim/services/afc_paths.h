// Confines host paths to a service root. Every component is resolved here
// against the root, symbolic links included, so nothing the host names can
// reach a file outside it: an absolute path starts at the root, ".." stops
// being allowed at the root, and a link whose target climbs out is refused.
#pragma once

#include "afc_protocol.h"

#include <string>
#include <string_view>

namespace zsim::afc {

struct ResolveOptions {
    // Follow a symbolic link named by the last component (open, read a
    // directory) or act on the link itself (info, remove, rename).
    bool followLast = true;
    // Accept missing directories on the way (make directory creates them).
    bool allowMissingParents = false;
};

class RootedPaths {
public:
    // The root must exist; it is canonicalised once.
    explicit RootedPaths(const std::string& root);

    bool valid() const { return !root_.empty(); }
    const std::string& root() const { return root_; }

    // On success `real` is the local path (which may not exist yet when
    // only its last component, or with allowMissingParents its parents, is
    // missing).
    Status resolve(std::string_view hostPath, const ResolveOptions& options, std::string& real) const;

    bool isRoot(const std::string& real) const { return real == root_; }

private:
    std::string root_;
};

}  // namespace zsim::afc
