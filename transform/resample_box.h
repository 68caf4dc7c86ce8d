// One output row of the 2 x 2 box average: each output channel the sum of the
// four source bytes of its block, shifted right by 2.
#pragma once

#include <cstddef>

#include "image/cpu.h"

// Writes `width` output pixels of `bytes` (1, 3 or 4) bytes: channel c of
// pixel x averages the bytes c and c + bytes at top + starts[x] and at
// bottom + starts[x]. One-byte pixels write one channel, the others three
// (a fourth byte is left alone). Where `widest` and the tier in use allow
// SSSE3, 1- and 3-byte pixels take 24 output bytes a step, with AVX-512 30
// or 32: allowed only where BlocksFollowEachOther; the scalar loop runs the
// rest.
void HalveRow(const unsigned char* top, const unsigned char* bottom, const ptrdiff_t* starts,
              unsigned char* out, int width, int bytes, SimdTier widest);

// True when starts[x] == 2 * x * bytes for every x < width.
bool BlocksFollowEachOther(const ptrdiff_t* starts, int width, int bytes);
