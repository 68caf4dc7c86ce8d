// One output row of the 2 x 2 box average: each output channel the sum of the
// four source bytes of its block, shifted right by 2.
#pragma once

#include <cstddef>

enum class BoxLanes {
    Scalar,  // one pixel at a time
    Ssse3    // 24 output bytes a step, for blocks that follow each other in the row
};

// Ssse3 where the processor has it, else Scalar.
BoxLanes BestBoxLanes();

// Writes `width` output pixels of `bytes` (1, 3 or 4) bytes: channel c of
// pixel x averages the bytes c and c + bytes at top + starts[x] and at
// bottom + starts[x]. One-byte pixels write one channel, the others three
// (a fourth byte is left alone). Ssse3 covers 1- and 3-byte pixels and may be
// asked for only where BlocksFollowEachOther; Scalar runs the rest.
void HalveRow(const unsigned char* top, const unsigned char* bottom, const ptrdiff_t* starts,
              unsigned char* out, int width, int bytes, BoxLanes lanes);

// True when starts[x] == 2 * x * bytes for every x < width.
bool BlocksFollowEachOther(const ptrdiff_t* starts, int width, int bytes);
