// Pixel access for every bit count: reading, writing and the integer-position
// bilinear sampler.
//
// bit count   layout                                      read as
// 32          blue, green, red, alpha                     the four bytes
// 24 and up   blue, green, red (also 25-31 and above 32)  reserved 0
// 8           one byte                                    DefaultPalette[byte]
// 4           byte (x*4)>>3, high nibble for even x       DefaultPalette[nibble]
// 1           byte x>>3, bit 7 - x%8                      DefaultPalette[bit]
// other < 24  nothing                                     DefaultPalette[0]
#include "image/pixel.h"

namespace {

constexpr uint32_t kOutsideMarker = static_cast<uint32_t>(kOutsideAlpha) << 24;

inline uint32_t PaletteColor(int index) { return static_cast<uint32_t>(index) * 0x010101u; }

// Reads a pixel known to be inside the image.
uint32_t ReadInside(const unsigned char* row, int x, int bpp) {
    if (bpp == 32) {
        const unsigned char* p = row + static_cast<ptrdiff_t>(x) * 4;
        return PackColor(p[0], p[1], p[2], p[3]);
    }
    if (bpp >= 24) {
        const unsigned char* p = row + static_cast<ptrdiff_t>(x) * 3;
        return PackColor(p[0], p[1], p[2], 0);
    }
    switch (bpp) {
        case 8:
            return PaletteColor(row[x]);
        case 4: {
            const unsigned char byte = row[(x * 4) >> 3];
            return PaletteColor((x & 1) == 0 ? byte >> 4 : byte & 0x0F);
        }
        case 1:
            return PaletteColor((row[x >> 3] >> (7 - (x & 7))) & 1);
        default:
            return PaletteColor(0);
    }
}

}  // namespace

const RGBQUAD DefaultPalette[256] = {
#define QEL_GREY(i) \
    { i, i, i, 0 }
#define QEL_GREY4(i) QEL_GREY(i), QEL_GREY(i + 1), QEL_GREY(i + 2), QEL_GREY(i + 3)
#define QEL_GREY16(i) QEL_GREY4(i), QEL_GREY4(i + 4), QEL_GREY4(i + 8), QEL_GREY4(i + 12)
#define QEL_GREY64(i) QEL_GREY16(i), QEL_GREY16(i + 16), QEL_GREY16(i + 32), QEL_GREY16(i + 48)
    QEL_GREY64(0), QEL_GREY64(64), QEL_GREY64(128), QEL_GREY64(192)
#undef QEL_GREY64
#undef QEL_GREY16
#undef QEL_GREY4
#undef QEL_GREY
};

uint32_t GetPixelColor(unsigned char* bits, int x, int y, int width, int height, int stride, int bpp) {
    if (width == 0 || height == 0) return 0;
    if (bits == nullptr) return kOutsideMarker;
    if (x < 0 || x >= width || y < 0 || y >= height)
        return (ReadInside(bits, 0, bpp) & 0x00FFFFFFu) | kOutsideMarker;
    return ReadInside(RowAt(bits, y, stride), x, bpp);
}

void SetPixelColor(unsigned char* bits, int x, int y, int width, int height, int stride, uint32_t color,
                   int bpp) {
    // Greater than, not greater or equal: one past the last column or row is written.
    if (x < 0 || y < 0 || bits == nullptr || x > width || y > height) return;
    unsigned char* row = RowAt(bits, y, stride);
    if (bpp >= 24) {
        if (bpp == 32) {
            unsigned char* p = row + static_cast<ptrdiff_t>(x) * 4;
            p[0] = static_cast<unsigned char>(BlueOf(color));
            p[1] = static_cast<unsigned char>(GreenOf(color));
            p[2] = static_cast<unsigned char>(RedOf(color));
            p[3] = static_cast<unsigned char>(AlphaOf(color));
        } else {
            unsigned char* p = row + static_cast<ptrdiff_t>(x) * 3;
            p[0] = static_cast<unsigned char>(BlueOf(color));
            p[1] = static_cast<unsigned char>(GreenOf(color));
            p[2] = static_cast<unsigned char>(RedOf(color));
        }
        return;
    }
    const int index = NearestGreyIndex(BlueOf(color), GreenOf(color), RedOf(color));
    switch (bpp) {
        case 8:
            row[x] = static_cast<unsigned char>(index);
            break;
        case 4: {
            unsigned char& byte = row[(x * 4) >> 3];
            byte = (x & 1) == 0 ? static_cast<unsigned char>((byte & 0x0F) | (index & 0x0F) << 4)
                                : static_cast<unsigned char>((byte & 0xF0) | (index & 0x0F));
            break;
        }
        case 1: {
            unsigned char& byte = row[x >> 3];
            const int shift = 7 - (x & 7);
            byte = static_cast<unsigned char>((byte & ~(1 << shift)) | (index & 1) << shift);
            break;
        }
        default:
            break;
    }
}

uint32_t GetBilinearColor(unsigned char* bits, int x, int y, int width, int height, int stride, int bpp) {
    if (x < 0 || y < 0 || x >= width || y >= height)
        return GetPixelColor(bits, -1, -1, width, height, stride, bpp);  // the outside colour
    if (x + 1 < width && y + 1 < height && bpp >= 24) {
        const unsigned char* p = RowAt(bits, y, stride) + static_cast<ptrdiff_t>(x) * (bpp == 32 ? 4 : 3);
        return PackColor(p[0], p[1], p[2], 255);
    }
    // The blend of the 2x2 block with both weights zero is pixel (x, y) itself:
    // each channel is c00 * 1 + c10 * 0 + c01 * 0 + c11 * 0, truncated.
    return GetPixelColor(bits, x, y, width, height, stride, bpp);
}
