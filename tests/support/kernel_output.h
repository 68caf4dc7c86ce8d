// The two sides of a vector-against-scalar comparison: what a view kernel
// writes into a fresh padded image, and a source of hard edges that makes
// weighted sums clamp at both ends.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "image/image_view.h"
#include "support/test_image.h"

namespace qeltest {

// The pixel bytes `kernel(view)` writes into a new width x height image with
// `padding` bytes after each row (pre-filled from `fillSeed` unless 0); the
// guards around the image must be intact afterwards.
template <class Kernel>
std::vector<unsigned char> KernelOutput(int width, int height, int bitCount, int padding, Kernel&& kernel,
                                        uint32_t fillSeed = 0) {
    SmartPtr<BufferImage> dest(BufferImage::Make(width, height, bitCount, QEL_MODEL_BGR, padding));
    if (fillSeed != 0) dest->FillRandom(fillSeed);
    kernel(ReadImageView(dest.Get()));
    EXPECT_TRUE(dest->GuardsIntact());
    return PixelBytes(dest.Get());
}

// White with black every fifth column and every seventh row: kernels with
// lobes above one overflow on the white and go below zero beside the black.
inline SmartPtr<BufferImage> HardEdges(int width, int height, int bitCount) {
    SmartPtr<BufferImage> image(BufferImage::Make(width, height, bitCount, QEL_MODEL_BGR));
    const int bytes = bitCount / 8;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * bytes; ++x)
            image->Row(y)[x] = static_cast<unsigned char>(((x / bytes) % 5 == 2 || y % 7 == 3) ? 0 : 255);
    return image;
}

}  // namespace qeltest
