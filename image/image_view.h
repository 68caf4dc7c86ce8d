// Plain views of host images: what the pixel kernels work on, so that a
// kernel never touches an interface and can be tested without a host.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/pixel.h"
#include "qel/image.h"

struct ImageView {
    unsigned char* bits = nullptr;
    int stride = 0;  // signed bytes per row
    int width = 0;
    int height = 0;
    int planes = 0;
    int bitCount = 0;
    unsigned int colourModel = 0;

    unsigned char* Row(int y) const { return RowAt(bits, y, stride); }
    bool Empty() const { return width == 0 || height == 0; }
    // Bytes one row of pixels occupies (without padding).
    size_t RowBytes() const { return (static_cast<size_t>(width) * static_cast<size_t>(bitCount) + 7) / 8; }
    // Just past the last pixel byte in memory: the image holds no padding after its last row.
    unsigned char* End() const { return Row(stride >= 0 ? height - 1 : 0) + RowBytes(); }
    bool HasAlpha() const {
        return bitCount == 32 && (colourModel == QEL_MODEL_ARGB || colourModel == QEL_MODEL_ABGR);
    }
};

// The colour every point outside `view` reads as (see GetPixelColor).
inline uint32_t OutsideColour(const ImageView& view) {
    return GetPixelColor(view.bits, -1, -1, view.width, view.height, view.stride, view.bitCount);
}

// Reads size, format and plane 0 of `image` (results of the slots are not checked).
inline ImageView ReadImageView(IQEL* image) {
    ImageView view;
    int reserved = 0;
    image->GetSize(&view.width, &view.height, &view.planes);
    image->GetFormat(&view.bitCount, &view.colourModel, &reserved);
    image->GetBits(0, &reserved, &view.bits, &view.stride);
    return view;
}
