// Pixel access: the one place that turns a pixel of any depth into a packed
// colour and back. Colours are packed 32-bit values: blue in bits 0-7, then
// green, red and the reserved byte (alpha of 32-bit images) in bits 24-31.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qel/types.h"

// The fixed grey ramp through which palette pixels (8, 4 and 1 bits) are read
// and written: entry i is (i, i, i, 0).
extern const RGBQUAD DefaultPalette[256];

// The reserved byte every point outside an image reads with.
constexpr int kOutsideAlpha = 1;

// Colour of pixel (x, y). Outside the image: pixel (0, 0)'s colour with
// reserved byte kOutsideAlpha; 0 for an empty image, kOutsideAlpha alone
// (0x01000000) for a null buffer.
uint32_t GetPixelColor(unsigned char* bits, int x, int y, int width, int height, int stride, int bpp);

// Stores `color` at (x, y). A write at x == width or y == height is carried
// out (callers keep their coordinates inside); palette depths store the
// nearest grey level, truncated to the depth's low bits.
void SetPixelColor(unsigned char* bits, int x, int y, int width, int height, int stride, uint32_t color,
                   int bpp);

// Pixel (x, y) as the integer-position bilinear sampler sees it: alpha 255
// on the direct-colour interior fast path, the stored alpha otherwise.
uint32_t GetBilinearColor(unsigned char* bits, int x, int y, int width, int height, int stride, int bpp);

// Index of the DefaultPalette entry nearest to (blue, green, red) by squared
// distance, ties to the lower index. The distance is a convex quadratic in the
// index whose minimum lies at the channel mean and never falls on a half, so
// the walk over the ramp reduces to rounding the mean.
inline int NearestGreyIndex(int blue, int green, int red) { return (blue + green + red + 1) / 3; }

inline uint32_t PackColor(int blue, int green, int red, int reserved) {
    return static_cast<uint32_t>(blue & 0xFF) | static_cast<uint32_t>(green & 0xFF) << 8 |
           static_cast<uint32_t>(red & 0xFF) << 16 | static_cast<uint32_t>(reserved & 0xFF) << 24;
}
inline int BlueOf(uint32_t color) { return static_cast<int>(color & 0xFF); }
inline int GreenOf(uint32_t color) { return static_cast<int>((color >> 8) & 0xFF); }
inline int RedOf(uint32_t color) { return static_cast<int>((color >> 16) & 0xFF); }
inline int AlphaOf(uint32_t color) { return static_cast<int>(color >> 24); }

// Start of row y; the stride is signed and the product is taken in 64 bits.
inline unsigned char* RowAt(unsigned char* bits, int y, int stride) {
    return bits + static_cast<ptrdiff_t>(y) * static_cast<ptrdiff_t>(stride);
}
