// Orientation: Flip, Mirror, FlipBits, FlipImageAndBits and the quarter turns of Rotate4.
#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "image/cpu.h"
#include "image/image_view.h"
#include "module/host_services.h"
#include "transform/image_transform.h"

namespace {

// A new image of the source's geometry and format, or an empty holder; left
// uncleared where the host allows when the caller writes every row byte.
SmartPtr<IQELImage> NewImageLike(const ImageView& source, bool writesEveryByte) {
    SmartPtr<IQELImage> image = NewImageThroughCollection();
    if (!image) return image;
    if (writesEveryByte)
        CreateToOverwrite(image.Get(), source.width, source.height, source.planes, source.bitCount,
                          source.colourModel);
    else
        image->Create(source.width, source.height, source.planes, source.bitCount, source.colourModel);
    return image;
}

void FlipRows(const ImageView& source, const ImageView& dest) {
    // Whole stored rows, padding included; never more than the smaller row holds.
    const size_t rowBytes = static_cast<size_t>(std::min(std::abs(source.stride), std::abs(dest.stride)));
    for (int i = 0; i < source.height; ++i)
        std::memcpy(dest.Row(i), source.Row(source.height - 1 - i), rowBytes);
}

// 3-byte pixels, four a step: a 16-byte load ending at the last byte of the
// step's first source pixel, its last 12 bytes shuffled into reverse pixel
// order and stored whole; the 4 bytes past the step land on the next pixels,
// which the following steps or the caller's loop write again. Runs while at
// least 6 pixels remain, so neither the load nor the store leaves the row.
// Returns the pixels done.
__attribute__((target("ssse3"))) int MirrorRow24Ssse3(const unsigned char* row, unsigned char* to,
                                                      int width) {
    const __m128i reverse = _mm_setr_epi8(13, 14, 15, 10, 11, 12, 7, 8, 9, 4, 5, 6, 0, 0, 0, 0);
    int x = 0;
    for (; x + 6 <= width; x += 4, to += 12) {
        const unsigned char* last = row + static_cast<ptrdiff_t>(width - 1 - x) * 3 + 2;
        const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(last - 15));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_shuffle_epi8(pixels, reverse));
    }
    return x;
}

template <int kBytes>
void MirrorRows(const ImageView& source, const ImageView& dest) {
    const bool shuffles = kBytes == 3 && SimdRuns(SimdTier::Ssse3);
    for (int y = 0; y < source.height; ++y) {
        const int done = shuffles ? MirrorRow24Ssse3(source.Row(y), dest.Row(y), source.width) : 0;
        const unsigned char* from = source.Row(y) + static_cast<ptrdiff_t>(source.width - 1 - done) * kBytes;
        unsigned char* to = dest.Row(y) + static_cast<ptrdiff_t>(done) * kBytes;
        for (int x = done; x < source.width; ++x, from -= kBytes, to += kBytes) std::memcpy(to, from, kBytes);
    }
}

template <int kBytes>
void SwapFirstAndThirdBytes(const ImageView& image) {
    for (int y = 0; y < image.height; ++y) {
        unsigned char* pixel = image.Row(y);
        for (int x = 0; x < image.width; ++x, pixel += kBytes) std::swap(pixel[0], pixel[2]);
    }
}

template <int kBytes>
void FlipRowsAndSwapBytes(const ImageView& image) {
    for (int y = 0; y < image.height / 2; ++y) {
        unsigned char* top = image.Row(y);
        unsigned char* bottom = image.Row(image.height - 1 - y);
        for (int x = 0; x < image.width; ++x, top += kBytes, bottom += kBytes) {
            // Bytes 0-2 change rows reversed; a fourth (alpha) byte stays in its row.
            const unsigned char t0 = top[0], t1 = top[1], t2 = top[2];
            top[0] = bottom[2];
            top[1] = bottom[1];
            top[2] = bottom[0];
            bottom[0] = t2;
            bottom[1] = t1;
            bottom[2] = t0;
        }
    }
    // The middle row of an odd height is treated over half its width, stepping
    // 4 bytes even for 3-byte pixels; the result depends on this, so it stays.
    if (image.height % 2 == 1 && image.width >= 2) {
        unsigned char* pixel = image.Row(image.height / 2);
        for (int x = 0; x < image.width / 2; ++x, pixel += 4) std::swap(pixel[0], pixel[2]);
    }
}

// Where a destination pixel of a quarter turn reads from, in source pixels.
struct QuarterTurn {
    int angle, sourceWidth, sourceHeight;
    // The 180-degree turn of 3-byte and odd-sized pixels reads one pixel further
    // left, so the last pixel of a row comes from just before the source row.
    bool shiftLeft;
    void SourceOf(int x, int y, int* sx, int* sy) const {
        switch (angle) {
            case 180:
                *sx = sourceWidth - (shiftLeft ? 2 : 1) - x;
                *sy = sourceHeight - 1 - y;
                break;
            case 270:
                *sx = sourceWidth - 1 - y;
                *sy = x;
                break;
            default:  // 90
                *sx = y;
                *sy = sourceHeight - 1 - x;
                break;
        }
    }
};

// Moves whole pixels of one plane (kBytes 0: a run of pixelBytes). 4-byte
// pixels are addressed in 32-bit words, both strides converted to words by
// signed division.
template <int kBytes>
void TurnPlane(const QuarterTurn& turn, unsigned char* sourceBits, int sourceStride, unsigned char* destBits,
               int destStride, int destWidth, int destHeight, int pixelBytes) {
    const ptrdiff_t sourceStep = kBytes == 4 ? static_cast<ptrdiff_t>(sourceStride / 4) * 4 : sourceStride;
    const ptrdiff_t destStep = kBytes == 4 ? static_cast<ptrdiff_t>(destStride / 4) * 4 : destStride;
    // The lowest address of the source's rows: bytes before it are not the image's.
    const unsigned char* blockStart =
        sourceStep >= 0 ? sourceBits : sourceBits + sourceStep * (turn.sourceHeight - 1);
    const size_t size = kBytes > 0 ? static_cast<size_t>(kBytes) : static_cast<size_t>(pixelBytes);
    for (int y = 0; y < destHeight; ++y) {
        unsigned char* to = destBits + destStep * y;
        for (int x = 0; x < destWidth; ++x, to += size) {
            int sx = 0, sy = 0;
            turn.SourceOf(x, y, &sx, &sy);
            const unsigned char* from =
                sourceBits + sourceStep * sy + static_cast<ptrdiff_t>(sx) * static_cast<ptrdiff_t>(size);
            if (from < blockStart) continue;  // the shifted read before the first row in memory
            std::memcpy(to, from, size);
        }
    }
}

}  // namespace

QResult CQELImageTransform::Flip(IQEL* source, IQEL** result) {
    if (source == nullptr) return QEL_E_FAIL;
    const ImageView from = ReadImageView(source);
    // Every depth is copied as whole rows.
    SmartPtr<IQELImage> flipped = NewImageLike(from, from.bits != nullptr);
    if (!flipped) return QEL_E_FAIL;
    const ImageView to = ReadImageView(flipped.Get());
    if (from.bits != nullptr && to.bits != nullptr && to.height == from.height) FlipRows(from, to);
    if (result != nullptr) *result = flipped.Detach();
    return QEL_OK;
}

QResult CQELImageTransform::Mirror(IQEL* source, IQEL** result) {
    if (source == nullptr) return QEL_E_FAIL;
    const ImageView from = ReadImageView(source);
    SmartPtr<IQELImage> mirrored = NewImageLike(
        from, from.bits != nullptr && (from.bitCount == 8 || from.bitCount == 24 || from.bitCount == 32));
    if (!mirrored) return QEL_E_FAIL;
    const ImageView to = ReadImageView(mirrored.Get());
    if (from.bits != nullptr && to.bits != nullptr && to.width == from.width && to.height == from.height) {
        switch (from.bitCount) {
            case 8:
                MirrorRows<1>(from, to);
                break;
            case 24:
                MirrorRows<3>(from, to);
                break;
            case 32:
                MirrorRows<4>(from, to);
                break;
            default:  // other depths stay as created
                break;
        }
    }
    if (result != nullptr) *result = mirrored.Detach();
    return QEL_OK;
}

QResult CQELImageTransform::FlipBits(IQEL* image) {
    if (image == nullptr) return QEL_E_FAIL;
    const ImageView view = ReadImageView(image);
    if (view.bits == nullptr) return QEL_OK;
    if (view.bitCount == 24) SwapFirstAndThirdBytes<3>(view);
    if (view.bitCount == 32) SwapFirstAndThirdBytes<4>(view);
    return QEL_OK;
}

QResult CQELImageTransform::FlipImageAndBits(IQEL* image) {
    if (image == nullptr) return QEL_E_FAIL;
    const ImageView view = ReadImageView(image);
    if (view.bits == nullptr) return QEL_OK;
    if (view.bitCount == 24) FlipRowsAndSwapBytes<3>(view);
    if (view.bitCount == 32) FlipRowsAndSwapBytes<4>(view);
    return QEL_OK;
}

QResult CQELImageTransform::Rotate4(IQEL* source, IQELImage* dest, int angle) {
    if (source == nullptr || dest == nullptr) return QEL_E_FAIL;
    int bitCount = 0, reserved = 0;
    unsigned int colourModel = 0;
    const QResult format = source->GetFormat(&bitCount, &colourModel, &reserved);
    if (format < 0) return format;
    int width = 0, height = 0, planes = 0;
    source->GetSize(&width, &height, &planes);
    const int pixelBytes = bitCount / 8;

    int destWidth = height, destHeight = width;
    if (angle == 180) {
        destWidth = width;
        destHeight = height;
    } else if (angle != 90 && angle != 270) {
        return QEL_OK;
    }
    dest->Create(destWidth, destHeight, planes, bitCount, colourModel);
    if (pixelBytes < 1) return QEL_OK;

    const QuarterTurn turn{angle, width, height, angle == 180 && pixelBytes != 1 && pixelBytes != 4};
    for (int plane = 0; plane < planes; ++plane) {
        unsigned char* destBits = nullptr;
        unsigned char* sourceBits = nullptr;
        int destStride = 0, sourceStride = 0;
        dest->GetBits(plane, &reserved, &destBits, &destStride);
        source->GetBits(plane, &reserved, &sourceBits, &sourceStride);
        if (destBits == nullptr || sourceBits == nullptr) continue;
        if (pixelBytes == 1)
            TurnPlane<1>(turn, sourceBits, sourceStride, destBits, destStride, destWidth, destHeight, 1);
        else if (pixelBytes == 4)
            TurnPlane<4>(turn, sourceBits, sourceStride, destBits, destStride, destWidth, destHeight, 4);
        else
            TurnPlane<0>(turn, sourceBits, sourceStride, destBits, destStride, destWidth, destHeight,
                         pixelBytes);
    }
    return QEL_OK;
}
