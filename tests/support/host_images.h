// Images made by the runtime as a host makes them, for the transform tests:
// given bytes, colours that name their position, and one pixel's bytes.
#pragma once

#include "support/component_test.h"

namespace qeltest {

// A runtime image of ModelFor(bitCount), its pixel rows set from `bytes` unless empty.
inline SmartPtr<IQELImageDIB> HostImage(int width, int height, int bitCount, const Bytes& bytes) {
    SmartPtr<IQELImageDIB> image = TestHost().NewImage(width, height, bitCount, ModelFor(bitCount));
    if (!bytes.empty()) SetPixelBytes(image.Get(), bytes);
    return image;
}

// Pixel (x, y) is blue x, green y, red 200 (alpha 9 at 32 bits): a result's
// colours name the source pixel they came from.
inline SmartPtr<IQELImageDIB> Positions(int width, int height, int bitCount = 32) {
    SmartPtr<IQELImageDIB> image = HostImage(width, height, bitCount, {});
    const qel::Pixels p = qel::PixelsOf(image.Get());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            unsigned char* px = p.Row(y) + x * (bitCount / 8);
            px[0] = static_cast<unsigned char>(x), px[1] = static_cast<unsigned char>(y), px[2] = 200;
            if (bitCount == 32) px[3] = 9;
        }
    return image;
}

// The bytes of pixel (x, y) of an image of 8 bits or more.
inline Bytes PixelOf(IQEL* image, int x, int y) {
    const qel::Pixels p = qel::PixelsOf(image);
    const int n = p.bitCount / 8;
    return Bytes(p.Row(y) + x * n, p.Row(y) + x * n + n);
}

}  // namespace qeltest
