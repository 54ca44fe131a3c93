// The parent-to-worker leg of an upload alone: frames of one piece each
// sent by the parent's link to the worker's own packet channel, which reads
// them in its 4 KiB reads, copies each into its packet and answers with a
// short frame before the next piece comes. No device is involved: this is
// the part of a 703 piece's turn that the device's write cannot overlap.
#pragma once

#include <cstddef>

// Seconds for `bytes` in pieces of `piece`; negative on failure.
double linkLegSeconds(size_t bytes, size_t piece);
