// Index tables over 8-, 4- and 1-bit pixels, a whole byte at a time.
#include "color/color_kernels.h"

namespace color {

namespace {

// Rewrites the first `fullBytes` bytes of each row through `byteMap`; when
// `tailMask` is non-zero the next byte holds the row's last pixels in its
// masked high bits, and only those bits change.
void MapRowBytes(const ImageView& image, const unsigned char byteMap[256], int fullBytes,
                 unsigned char tailMask) {
    for (int y = 0; y < image.height; ++y) {
        unsigned char* row = image.Row(y);
        LookupBytes(row, row, static_cast<size_t>(fullBytes), byteMap);
        if (tailMask != 0) {
            unsigned char& tail = row[fullBytes];
            tail = static_cast<unsigned char>((byteMap[tail] & tailMask) | (tail & ~tailMask));
        }
    }
}

}  // namespace

void MapPaletteIndices(const ImageView& image, const unsigned char indexMap[256]) {
    if (!HasPixels(image)) return;
    unsigned char byteMap[256];
    switch (image.bitCount) {
        case 8:
            MapRowBytes(image, indexMap, image.width, 0);
            break;
        case 4:
            // Two pixels per byte, the even one in the high nibble; a new
            // index keeps its low 4 bits.
            for (int byte = 0; byte < 256; ++byte)
                byteMap[byte] = static_cast<unsigned char>((indexMap[byte >> 4] & 0x0F) << 4 |
                                                           (indexMap[byte & 0x0F] & 0x0F));
            MapRowBytes(image, byteMap, image.width / 2, (image.width & 1) != 0 ? 0xF0 : 0);
            break;
        case 1: {
            // Eight pixels per byte, the leftmost in the top bit; a new index
            // keeps its low bit.
            for (int byte = 0; byte < 256; ++byte) {
                int mapped = 0;
                for (int bit = 0; bit < 8; ++bit) mapped |= (indexMap[(byte >> bit) & 1] & 1) << bit;
                byteMap[byte] = static_cast<unsigned char>(mapped);
            }
            const int tailPixels = image.width % 8;
            MapRowBytes(image, byteMap, image.width / 8, static_cast<unsigned char>(0xFF00 >> tailPixels));
            break;
        }
        default:
            break;  // no palette layout: nothing is written
    }
}

}  // namespace color
