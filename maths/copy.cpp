// CreateDestImage and Copy: destination images, and pasting one image into
// another at an offset with depth conversion.
//
//   source -> dest   per pixel
//   same depth       block copy; with mask == dest only the dest's zero bytes take the source's
//   8  -> 24 / 32    grey to three bytes (and alpha 255)
//   24 -> 32         three bytes and alpha 255
//   32 -> 24         three bytes, the fourth dropped
//   24 / 32 -> 8     (b + g + r) / 3, truncating
//   16 -> 24         5-6-5 expansion, then failure reported all the same
#include <cstring>

#include "image/destination.h"
#include "image/pixel.h"
#include "maths/maths.h"
#include "maths/rows.h"

namespace {

// The copied area: `width` x `height` pixels, rows `*Step` bytes apart.
struct CopyArea {
    unsigned char* dest;
    ptrdiff_t destStep;
    const unsigned char* source;
    ptrdiff_t sourceStep;
    int width;
    int height;

    unsigned char* DestRow(int r) const { return dest + static_cast<ptrdiff_t>(r) * destStep; }
    const unsigned char* SourceRow(int r) const { return source + static_cast<ptrdiff_t>(r) * sourceStep; }
};

template <class RowFn>
void ForEachCopyRow(const CopyArea& area, RowFn&& row) {
    for (int r = 0; r < area.height; ++r) row(area.DestRow(r), area.SourceRow(r));
}

void CopyBlocks(const CopyArea& area, size_t rowBytes) {
    // memmove: the source may be the destination itself.
    ForEachCopyRow(area,
                   [&](unsigned char* out, const unsigned char* in) { std::memmove(out, in, rowBytes); });
}

// Only the destination's zero bytes take the source's byte.
void CopyIntoZeroBytes(const CopyArea& area, size_t rowBytes) {
    ForEachCopyRow(area, [&](unsigned char* out, const unsigned char* in) {
        for (size_t i = 0; i < rowBytes; ++i) out[i] = out[i] != 0 ? out[i] : in[i];
    });
}

template <int DestBytes>
void GreyToColour(const CopyArea& area) {
    ForEachCopyRow(area, [&](unsigned char* out, const unsigned char* in) {
        for (int x = 0; x < area.width; ++x) {
            out[DestBytes * x] = in[x];
            out[DestBytes * x + 1] = in[x];
            out[DestBytes * x + 2] = in[x];
            if constexpr (DestBytes == 4) out[DestBytes * x + 3] = 255;
        }
    });
}

template <int SourceBytes, int DestBytes>
void ColourToColour(const CopyArea& area) {
    ForEachCopyRow(area, [&](unsigned char* out, const unsigned char* in) {
        for (int x = 0; x < area.width; ++x) {
            out[DestBytes * x] = in[SourceBytes * x];
            out[DestBytes * x + 1] = in[SourceBytes * x + 1];
            out[DestBytes * x + 2] = in[SourceBytes * x + 2];
            if constexpr (DestBytes == 4) out[DestBytes * x + 3] = 255;
        }
    });
}

template <int SourceBytes>
void ColourToGrey(const CopyArea& area) {
    ForEachCopyRow(area, [&](unsigned char* out, const unsigned char* in) {
        for (int x = 0; x < area.width; ++x) {
            const unsigned char* pixel = in + SourceBytes * x;
            out[x] = static_cast<unsigned char>((pixel[0] + pixel[1] + pixel[2]) / 3);
        }
    });
}

// 5-6-5 pixels (blue in the low bits) to three bytes by plain shifts; the
// low bits are not filled in. `RedFirst` stores r, g, b instead of b, g, r.
template <bool RedFirst>
void Expand565(const CopyArea& area) {
    ForEachCopyRow(area, [&](unsigned char* out, const unsigned char* in) {
        for (int x = 0; x < area.width; ++x) {
            const unsigned v = static_cast<unsigned>(in[2 * x] | in[2 * x + 1] << 8);
            const auto blue = static_cast<unsigned char>((v & 0x1F) * 8);
            const auto green = static_cast<unsigned char>(((v / 32) & 0x3F) * 4);
            const auto red = static_cast<unsigned char>((v / 2048) * 8);
            out[3 * x] = RedFirst ? red : blue;
            out[3 * x + 1] = green;
            out[3 * x + 2] = RedFirst ? blue : red;
        }
    });
}

}  // namespace

QResult CQELMaths::CreateDestImage(IQEL** dest, IQEL* model, int bitCount, int colourModel) {
    if (model == nullptr) return QEL_E_INVALIDARG;
    if (dest == nullptr) return QEL_E_POINTER;
    ImageView info;
    ReadInfo(model, &info);
    ImageShape shape = ShapeOf(info);
    if (bitCount != 0) shape.bitCount = bitCount;
    if (colourModel != 0) shape.colourModel = static_cast<unsigned>(colourModel);
    Destination made = MakeDestination(shape, DestinationRoad::Collection, Writes::SomePixels);
    if (!made.image) return QEL_E_FAIL;
    *dest = made.image.Detach();
    return QEL_OK;
}

QResult CQELMaths::Copy(IQEL* dest, IQEL* source, IQEL* mask, int x, int y) {
    if (dest == nullptr || source == nullptr) return QEL_E_FAIL;
    ImageView infoDest, infoSource;
    ReadInfo(dest, &infoDest);
    ReadInfo(source, &infoSource);
    // Unsigned comparison: a negative offset is rejected too.
    if (static_cast<unsigned>(x) >= static_cast<unsigned>(infoDest.width) ||
        static_cast<unsigned>(y) >= static_cast<unsigned>(infoDest.height))
        return QEL_E_FAIL;
    const int64_t spaceRight = static_cast<int64_t>(infoDest.width) - x;
    const int64_t spaceBelow = static_cast<int64_t>(infoDest.height) - y;
    const int width = spaceRight < infoSource.width ? static_cast<int>(spaceRight) : infoSource.width;
    const int height = spaceBelow < infoSource.height ? static_cast<int>(spaceBelow) : infoSource.height;

    unsigned char* sourceBits = nullptr;
    unsigned char* destBits = nullptr;
    int sourceStride = 0, destStride = 0, reserved = 0;
    if (source->GetBits(0, &reserved, &sourceBits, &sourceStride) < 0) sourceBits = nullptr;
    if (dest->GetBits(0, &reserved, &destBits, &destStride) < 0) destBits = nullptr;
    if (height <= 0) return QEL_OK;
    if (sourceBits == nullptr || destBits == nullptr) return QEL_E_FAIL;

    const int sourceBitCount = infoSource.bitCount;
    const int destBitCount = infoDest.bitCount;
    const ptrdiff_t destBytesPerPixel = destBitCount / 8;
    CopyArea area{RowAt(destBits, y, destStride) + static_cast<ptrdiff_t>(x) * destBytesPerPixel,
                  destStride,
                  sourceBits,
                  sourceStride,
                  width < 0 ? 0 : width,
                  height};
    const size_t rowBytes = static_cast<size_t>(area.width) *
                            static_cast<size_t>(sourceBitCount / 8 > 0 ? sourceBitCount / 8 : 0);

    if (sourceBitCount == destBitCount) {
        // The mask is compared by identity only: being the destination selects the zero-byte fill.
        if (mask == dest)
            CopyIntoZeroBytes(area, rowBytes);
        else
            CopyBlocks(area, rowBytes);
        return QEL_OK;
    }
    switch (sourceBitCount) {
        case 8:
            if (destBitCount == 24) {
                GreyToColour<3>(area);
                return QEL_OK;
            }
            if (destBitCount == 32) {
                GreyToColour<4>(area);
                return QEL_OK;
            }
            return QEL_E_FAIL;
        case 24:
            if (destBitCount == 32) {
                ColourToColour<3, 4>(area);
                return QEL_OK;
            }
            if (destBitCount == 8) {
                ColourToGrey<3>(area);
                return QEL_OK;
            }
            return QEL_E_FAIL;
        case 32:
            if (destBitCount == 24) {
                ColourToColour<4, 3>(area);
                return QEL_OK;
            }
            if (destBitCount == 8) {
                ColourToGrey<4>(area);
                return QEL_OK;
            }
            return QEL_E_FAIL;
        case 16:
            if (destBitCount == 24 && infoSource.colourModel == QEL_MODEL_BGR) {
                // Source rows in 16-bit units: the stride is halved (signed) first.
                area.sourceStep = 2 * static_cast<ptrdiff_t>(sourceStride / 2);
                if (infoDest.colourModel == QEL_MODEL_BGR)
                    Expand565<false>(area);
                else if (infoDest.colourModel == 0)
                    Expand565<true>(area);
            }
            // Failure is reported even after the pixels were written: callers rely on it.
            return QEL_E_FAIL;
        default:
            return QEL_E_FAIL;
    }
}
