// Orientation: Flip, Mirror, FlipBits, FlipImageAndBits and the quarter turns of Rotate4.
#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "image/cpu.h"
#include "image/destination.h"
#include "image/image_view.h"
#include "transform/image_transform.h"

namespace {

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

// 1-byte pixels, sixteen a step reversed by one byte shuffle. Returns the pixels done.
__attribute__((target("ssse3"))) int MirrorRow8Ssse3(const unsigned char* row, unsigned char* to, int width) {
    const __m128i reverse = _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + (width - 16 - x)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + x), _mm_shuffle_epi8(pixels, reverse));
    }
    return x;
}

// 4-byte pixels, four a step reversed as words. Returns the pixels done.
int MirrorRow32Sse2(const unsigned char* row, unsigned char* to, int width) {
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i pixels = _mm_loadu_si128(
            reinterpret_cast<const __m128i*>(row + static_cast<ptrdiff_t>(width - 4 - x) * 4));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + static_cast<ptrdiff_t>(x) * 4),
                         _mm_shuffle_epi32(pixels, _MM_SHUFFLE(0, 1, 2, 3)));
    }
    return x;
}

template <int kBytes>
int MirrorRowSteps(const unsigned char* row, unsigned char* to, int width, bool vectors) {
    if (!vectors) return 0;
    if (kBytes == 1) return MirrorRow8Ssse3(row, to, width);
    if (kBytes == 3) return MirrorRow24Ssse3(row, to, width);
    return MirrorRow32Sse2(row, to, width);
}

template <int kBytes>
void MirrorRows(const ImageView& source, const ImageView& dest) {
    const bool vectors = SimdRuns(kBytes == 4 ? SimdTier::Sse2 : SimdTier::Ssse3);
    for (int y = 0; y < source.height; ++y) {
        const int done = MirrorRowSteps<kBytes>(source.Row(y), dest.Row(y), source.width, vectors);
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

// Where destination pixel (x, y) of a quarter turn reads from, in source pixels.
// The 180-degree turn of 3-byte and odd-sized pixels (kShiftLeft) reads one
// pixel further left, so the last pixel of a row comes from just before the
// source row.
template <int kAngle, bool kShiftLeft>
void QuarterTurnSource(int x, int y, int sourceWidth, int sourceHeight, int* sx, int* sy) {
    if (kAngle == 180) {
        *sx = sourceWidth - (kShiftLeft ? 2 : 1) - x;
        *sy = sourceHeight - 1 - y;
    } else if (kAngle == 270) {
        *sx = sourceWidth - 1 - y;
        *sy = x;
    } else {  // 90
        *sx = y;
        *sy = sourceHeight - 1 - x;
    }
}

// 8 x 8 bytes or 4 x 4 words transposed in registers: out[k] holds word or
// byte k of every row in[0..n-1], in row order.
void TransposeBytes8(const __m128i in[8], __m128i out[4]) {
    const __m128i a0 = _mm_unpacklo_epi8(in[0], in[1]), a1 = _mm_unpacklo_epi8(in[2], in[3]);
    const __m128i a2 = _mm_unpacklo_epi8(in[4], in[5]), a3 = _mm_unpacklo_epi8(in[6], in[7]);
    const __m128i b0 = _mm_unpacklo_epi16(a0, a1), b1 = _mm_unpackhi_epi16(a0, a1);
    const __m128i b2 = _mm_unpacklo_epi16(a2, a3), b3 = _mm_unpackhi_epi16(a2, a3);
    out[0] = _mm_unpacklo_epi32(b0, b2);  // columns 0 and 1, 8 bytes each
    out[1] = _mm_unpackhi_epi32(b0, b2);  // 2 and 3
    out[2] = _mm_unpacklo_epi32(b1, b3);  // 4 and 5
    out[3] = _mm_unpackhi_epi32(b1, b3);  // 6 and 7
}

// One block of a quarter turn by 90 or 270 degrees whose destination starts
// at (x, y): 8 x 8 pixels of one byte or 4 x 4 of four.
template <int kBytes, int kAngle>
void TurnBlock(const ImageView& source, ptrdiff_t sourceStep, unsigned char* destBits, ptrdiff_t destStep,
               int x, int y) {
    constexpr int kSide = kBytes == 1 ? 8 : 4;
    // Destination column x + c comes from one source row; its kSide pixels
    // start at column y (90) or end at column width - 1 - y (270).
    const unsigned char* rows[kSide];
    for (int c = 0; c < kSide; ++c) {
        const int row = kAngle == 90 ? source.height - 1 - x - c : x + c;
        const int column = kAngle == 90 ? y : source.width - kSide - y;
        rows[c] = source.bits + sourceStep * row + static_cast<ptrdiff_t>(column) * kBytes;
    }
    // Transposed row k holds source column k of the block; at 270 the order is reversed.
    auto destRow = [&](int k) {
        return destBits + destStep * (y + (kAngle == 90 ? k : kSide - 1 - k)) +
               static_cast<ptrdiff_t>(x) * kBytes;
    };
    if (kBytes == 1) {
        __m128i in[8], out[4];
        for (int c = 0; c < 8; ++c) in[c] = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(rows[c]));
        TransposeBytes8(in, out);
        for (int k = 0; k < 4; ++k) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(destRow(2 * k)), out[k]);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(destRow(2 * k + 1)),
                             _mm_unpackhi_epi64(out[k], out[k]));
        }
    } else {
        __m128i in[4];
        for (int c = 0; c < 4; ++c) in[c] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[c]));
        const __m128i t0 = _mm_unpacklo_epi32(in[0], in[1]), t1 = _mm_unpacklo_epi32(in[2], in[3]);
        const __m128i t2 = _mm_unpackhi_epi32(in[0], in[1]), t3 = _mm_unpackhi_epi32(in[2], in[3]);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destRow(0)), _mm_unpacklo_epi64(t0, t1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destRow(1)), _mm_unpackhi_epi64(t0, t1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destRow(2)), _mm_unpacklo_epi64(t2, t3));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destRow(3)), _mm_unpackhi_epi64(t2, t3));
    }
}

// Moves whole pixels of one plane (kBytes 0: runs of `pixelBytes`), in square
// tiles so that the rows a quarter turn reads down stay in the cache. 4-byte
// pixels are addressed in 32-bit words, both strides converted to words by
// signed division. Turns by 90 and 270 of 1- and 4-byte pixels move whole
// blocks by register transposes (`blocks`); the pixel loop does the rest and
// is the reference.
template <int kBytes, int kAngle, bool kShiftLeft>
void TurnPlane(const ImageView& source, const ImageView& dest, int pixelBytes, bool blocks) {
    const ptrdiff_t sourceStep = kBytes == 4 ? static_cast<ptrdiff_t>(source.stride / 4) * 4 : source.stride;
    const ptrdiff_t destStep = kBytes == 4 ? static_cast<ptrdiff_t>(dest.stride / 4) * 4 : dest.stride;
    // The lowest address of the source's rows: bytes before it are not the image's.
    const unsigned char* blockStart =
        sourceStep >= 0 ? source.bits : source.bits + sourceStep * (source.height - 1);
    const size_t size = kBytes > 0 ? static_cast<size_t>(kBytes) : static_cast<size_t>(pixelBytes);
    constexpr bool kHasBlocks = kAngle != 180 && (kBytes == 1 || kBytes == 4);
    constexpr int kSide = kBytes == 1 ? 8 : 4;
    constexpr int kTile = 32;
    for (int y0 = 0; y0 < dest.height; y0 += kTile) {
        const int yEnd = std::min(y0 + kTile, dest.height);
        for (int x0 = 0; x0 < dest.width; x0 += kTile) {
            const int xEnd = std::min(x0 + kTile, dest.width);
            // Whole blocks first, then the pixels they leave on the right and below.
            int yBlocks = y0, xBlocks = x0;
            if (kHasBlocks && blocks) {
                yBlocks = y0 + (yEnd - y0) / kSide * kSide;
                xBlocks = x0 + (xEnd - x0) / kSide * kSide;
                for (int y = y0; y < yBlocks; y += kSide)
                    for (int x = x0; x < xBlocks; x += kSide)
                        TurnBlock<kBytes, kAngle>(source, sourceStep, dest.bits, destStep, x, y);
            }
            for (int y = y0; y < yEnd; ++y) {
                const int xStart = y < yBlocks ? xBlocks : x0;
                unsigned char* to =
                    dest.bits + destStep * y + static_cast<ptrdiff_t>(xStart) * static_cast<ptrdiff_t>(size);
                for (int x = xStart; x < xEnd; ++x, to += size) {
                    int sx = 0, sy = 0;
                    QuarterTurnSource<kAngle, kShiftLeft>(x, y, source.width, source.height, &sx, &sy);
                    const unsigned char* from = source.bits + sourceStep * sy +
                                                static_cast<ptrdiff_t>(sx) * static_cast<ptrdiff_t>(size);
                    if (kShiftLeft && from < blockStart) continue;  // the read before the first row in memory
                    std::memcpy(to, from, size);
                }
            }
        }
    }
}

template <int kBytes>
void TurnPlaneBy(int angle, const ImageView& source, const ImageView& dest, int pixelBytes) {
    const bool blocks = SimdRuns(SimdTier::Sse2);
    if (angle == 90)
        TurnPlane<kBytes, 90, false>(source, dest, pixelBytes, blocks);
    else if (angle == 270)
        TurnPlane<kBytes, 270, false>(source, dest, pixelBytes, blocks);
    else if (kBytes == 1 || kBytes == 4)
        TurnPlane<kBytes, 180, false>(source, dest, pixelBytes, blocks);
    else
        TurnPlane<kBytes, 180, true>(source, dest, pixelBytes, blocks);
}

// One plane of a quarter turn by 90, 180 or 270 degrees; `dest` has the turned size.
void TurnQuarter(const ImageView& source, const ImageView& dest, int angle) {
    const int pixelBytes = source.bitCount / 8;
    if (pixelBytes == 1)
        TurnPlaneBy<1>(angle, source, dest, 1);
    else if (pixelBytes == 3)
        TurnPlaneBy<3>(angle, source, dest, 3);
    else if (pixelBytes == 4)
        TurnPlaneBy<4>(angle, source, dest, 4);
    else if (pixelBytes > 0)
        TurnPlaneBy<0>(angle, source, dest, pixelBytes);
}

// `view` moved to plane `plane` of `image`.
ImageView PlaneOf(IQEL* image, ImageView view, int plane) {
    int reserved = 0;
    view.bits = nullptr;
    image->GetBits(plane, &reserved, &view.bits, &view.stride);
    return view;
}

}  // namespace

QResult CQELImageTransform::Flip(IQEL* source, IQEL** result) {
    if (source == nullptr) return QEL_E_FAIL;
    const ImageView from = ReadImageView(source);
    // Every depth is copied as whole rows.
    Destination flipped = MakeDestination(ShapeOf(from), DestinationRoad::Collection,
                                          from.bits != nullptr ? Writes::EveryPixel : Writes::SomePixels);
    if (!flipped.image) return QEL_E_FAIL;
    if (from.bits != nullptr && flipped.Canvas() != nullptr) FlipRows(from, *flipped.Canvas());
    if (result != nullptr) *result = flipped.image.Detach();
    return QEL_OK;
}

QResult CQELImageTransform::Mirror(IQEL* source, IQEL** result) {
    if (source == nullptr) return QEL_E_FAIL;
    const ImageView from = ReadImageView(source);
    const bool mirrors =
        from.bits != nullptr && (from.bitCount == 8 || from.bitCount == 24 || from.bitCount == 32);
    Destination mirrored = MakeDestination(ShapeOf(from), DestinationRoad::Collection,
                                           mirrors ? Writes::EveryPixel : Writes::SomePixels);
    if (!mirrored.image) return QEL_E_FAIL;
    if (mirrors && mirrored.Canvas() != nullptr) {
        const ImageView& to = *mirrored.Canvas();
        switch (from.bitCount) {
            case 8:
                MirrorRows<1>(from, to);
                break;
            case 24:
                MirrorRows<3>(from, to);
                break;
            default:
                MirrorRows<4>(from, to);
                break;
        }
    }  // other depths stay as created
    if (result != nullptr) *result = mirrored.image.Detach();
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
    ImageView from;
    int reserved = 0;
    const QResult format = source->GetFormat(&from.bitCount, &from.colourModel, &reserved);
    if (format < 0) return format;
    source->GetSize(&from.width, &from.height, &from.planes);
    if (angle != 90 && angle != 180 && angle != 270) return QEL_OK;
    const bool sideways = angle != 180;
    dest->Create(sideways ? from.height : from.width, sideways ? from.width : from.height, from.planes,
                 from.bitCount, from.colourModel);
    if (from.bitCount < 8) return QEL_OK;
    ImageView to = ReadImageView(dest);
    if (to.width != (sideways ? from.height : from.width) ||
        to.height != (sideways ? from.width : from.height) || to.bitCount != from.bitCount)
        return QEL_OK;  // not made as asked: nothing to fill
    for (int plane = 0; plane < from.planes; ++plane) {
        const ImageView destPlane = PlaneOf(dest, to, plane);
        const ImageView sourcePlane = PlaneOf(source, from, plane);
        if (destPlane.bits != nullptr && sourcePlane.bits != nullptr)
            TurnQuarter(sourcePlane, destPlane, angle);
    }
    return QEL_OK;
}
