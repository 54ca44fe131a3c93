// The reference for AFC throughput: the same bytes read from a file and
// sent over a plain unix stream socket to a reader, with no protocol.
#pragma once

#include <cstddef>
#include <string>

namespace bench {

// Seconds taken to move the file's bytes, in pieces of `chunk`, from a
// sender thread to the caller through a socket pair; with a `sink` the
// caller also writes what it receives to that file (the reference for
// writes, which end on the device's disk). Negative on failure.
double timeSocketCopy(const std::string& file, size_t chunk, const std::string& sink = "");

}  // namespace bench
