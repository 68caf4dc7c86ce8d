// The median's algorithms on plain views; filter/median.cpp picks one per call.
// Each writes every pixel of `destination` (the source's size and depth) with
// the same bytes as the others wherever it serves.
#pragma once

#include <cstdint>

#include "filter/filter_kernels.h"

// Any depth and window, through the pixel kind `path` allows.
void MedianSlidingRows(const ImageView& source, const ImageView& destination, int64_t size, FilterPath path);

// 8-bit images, any window: the running histogram of the bytes along each row.
void MedianGreyRows(const ImageView& source, const ImageView& destination, int64_t size);

// 8-bit images: column histograms, quicker than the running one from this size.
constexpr int64_t kGreyHistogramSize = 7;
// False for windows beyond 181 (the 16-bit counts would overflow) or when no
// scratch memory could be had.
bool MedianGreyHistograms(const ImageView& source, const ImageView& destination, int64_t size, FilterPath path);

// 3 x 3 and 5 x 5 windows of 8-, 24- and 32-bit images, with the vector steps
// of `path` up to `cap` (so that tests reach the narrower steps a wider
// processor passes by). False for other windows and depths or when no scratch
// memory could be had.
bool MedianSmallWindow(const ImageView& source, const ImageView& destination, int64_t size, FilterPath path,
                       SimdTier cap = SimdTier::Avx512);
