// Pixel memory of the runtime's images. Blocks of 1 MiB and more come from
// anonymous mappings aligned to 2 MiB and advised for transparent huge pages,
// so that a new 8 MB image costs four page faults instead of two thousand;
// freed large blocks are kept for the next image of the same size (in steps
// of 2 MiB), so a chain of operations in a fresh process soon faults in
// nothing at all.
// Smaller blocks go to malloc, which already reuses them. Thread-safe.
#pragma once

#include <cstddef>

namespace qelhost {

// `bytes` of memory, all zero when `zeroed`, otherwise as they come; null
// when memory is short (after the kept blocks were given back and the
// request tried once more).
unsigned char* AcquirePixelMemory(size_t bytes, bool zeroed);

// Gives back a block of AcquirePixelMemory, with the same `bytes`.
void ReleasePixelMemory(unsigned char* memory, size_t bytes);

// Hands every kept block back to the system.
void ReleaseKeptPixelMemory();

struct KeptPixelMemory {
    size_t blocks = 0;
    size_t bytes = 0;
};
// What is kept for reuse at the moment.
KeptPixelMemory KeptPixelMemoryNow();

}  // namespace qelhost
