// Pixel kernels of the filters, on plain views: the component's operations
// call them, and tests call them directly to compare the fast and general paths.
#pragma once

#include "filter/filter_common.h"

// Weighted sum of each size x size neighbourhood, divided, offset and clamped.
// `destination` has the source's geometry and depth.
void ConvolveView(const ImageView& source, const ImageView& destination, const int* kernel, int size,
                  int divisor, int offset, FilterPath path);

enum class Extremum { Minimum, Maximum, Range };
// Channel-wise minimum, maximum or maximum minus minimum of each neighbourhood.
void MorphologyView(const ImageView& source, const ImageView& destination, Extremum extremum, int size,
                    FilterPath path);
// The inverted 3 x 3 contour comparison against each centre pixel.
void ContourView(const ImageView& source, const ImageView& destination, FilterPath path);

// Key by which the median ranks colours: luma in 10-bit fixed point.
inline int ColorKey(uint32_t color) {
    return (117 * BlueOf(color) + 601 * GreenOf(color) + 306 * RedOf(color)) >> 10;
}
// The colour of middle rank, by ColorKey, of each neighbourhood.
void MedianView(const ImageView& source, const ImageView& destination, int size, FilterPath path);

// Orders two 4-byte colour records (blue, green, red, alpha) by ColorKey;
// alpha takes no part. The comparison function of a qsort over records.
int CompareColors(const void* a, const void* b);
