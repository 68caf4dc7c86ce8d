// FillVoids: fill the empty (zero) pixels left by forward mapping from their
// neighbours, in place, in one raster pass over the interior.
//
// bit count  a void is      filled from                         when
// 8          a zero byte    mean of the non-zero of left, right,   at least 1 is non-zero
//                           next row, previous row
// 24         a zero byte    the same channel of those four         at least 3 are non-zero
// 32         a zero pixel   right neighbour, else next row's       the first non-zero one
//                           (opaque when the image has alpha)
#include <cstring>

#include "transform/fill_voids_kernel.h"
#include "transform/image_transform.h"

namespace {

// Bytes of `bytesPerSample`-spaced samples: the 8-bit rule (minCount 1) and
// the 24-bit per-channel rule (minCount 3) differ only in the threshold.
void FillByteVoids(const ImageView& view, int first, int last, int step, int minCount) {
    for (int y = 1; y < view.height - 1; ++y) {
        unsigned char* row = view.Row(y);
        const unsigned char* above = view.Row(y - 1);
        const unsigned char* below = view.Row(y + 1);
        for (int i = first; i <= last; ++i) {
            if (row[i] != 0) continue;
            const int neighbours[4] = {row[i - step], row[i + step], below[i], above[i]};
            int sum = 0, count = 0;
            for (int value : neighbours) {
                if (value == 0) continue;
                sum += value;
                ++count;
            }
            if (count >= minCount) row[i] = static_cast<unsigned char>(sum / count);
        }
    }
}

void FillPixelVoids(const ImageView& view) {
    // Pixels are read as 32-bit units through the byte stride, which is the
    // same as stepping the stride in 32-bit units when it is a multiple of 4
    // (as every host image's is) and stays on the rows when it is not.
    const uint32_t opaque = view.HasAlpha() ? 0xFF000000u : 0;
    const uint32_t keep = view.HasAlpha() ? 0x00FFFFFFu : 0xFFFFFFFFu;
    for (int y = 1; y < view.height - 1; ++y) {
        unsigned char* row = view.Row(y);
        const unsigned char* below = view.Row(y + 1);
        for (int x = 1; x < view.width - 1; ++x) {
            uint32_t pixel;
            std::memcpy(&pixel, row + 4 * x, 4);
            if (pixel != 0) continue;
            std::memcpy(&pixel, row + 4 * (x + 1), 4);
            if (pixel == 0) std::memcpy(&pixel, below + 4 * x, 4);
            if (pixel == 0) continue;
            pixel = (pixel & keep) | opaque;
            std::memcpy(row + 4 * x, &pixel, 4);
        }
    }
}

}  // namespace

QResult FillVoidsPixels(const ImageView& view) {
    if (view.bitCount != 8 && view.bitCount != 24 && view.bitCount != 32) return QEL_E_FAIL;
    if (view.bits == nullptr || view.width < 3 || view.height < 3) return QEL_OK;
    switch (view.bitCount) {
        case 8:
            FillByteVoids(view, 1, view.width - 2, 1, 1);
            break;
        case 24:
            FillByteVoids(view, 3, 3 * view.width - 4, 3, 3);
            break;
        default:
            FillPixelVoids(view);
            break;
    }
    return QEL_OK;
}

QResult CQELImageTransform::FillVoids(IQEL* image) {
    // The operation does not otherwise test the image; null is a failure here.
    if (image == nullptr) return QEL_E_FAIL;
    return FillVoidsPixels(ReadImageView(image));
}
