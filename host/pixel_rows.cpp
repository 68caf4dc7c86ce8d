#include "host/pixel_rows.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace qelhost {

bool RowsOverlap(const unsigned char* rows, int stride, int height, size_t rowBytes,
                 const unsigned char* buffer, size_t bufferBytes) {
    if (height <= 0) return false;
    const ptrdiff_t lastRow = static_cast<ptrdiff_t>(height - 1) * stride;
    const auto begin =
        reinterpret_cast<uintptr_t>(rows) + static_cast<uintptr_t>(std::min<ptrdiff_t>(lastRow, 0));
    const auto end = reinterpret_cast<uintptr_t>(rows) +
                     static_cast<uintptr_t>(std::max<ptrdiff_t>(lastRow, 0)) + rowBytes;
    const auto bufferBegin = reinterpret_cast<uintptr_t>(buffer);
    return begin < bufferBegin + bufferBytes && bufferBegin < end;
}

void FillRow(unsigned char* row, int width, int bitCount, unsigned colour) {
    const auto blue = static_cast<unsigned char>(colour & 0xFF);
    const auto green = static_cast<unsigned char>((colour >> 8) & 0xFF);
    const auto red = static_cast<unsigned char>((colour >> 16) & 0xFF);
    const auto alpha = static_cast<unsigned char>(colour >> 24);
    // Palette depths store the nearest grey of the fixed ramp, as pixel writes do.
    const int grey = (blue + green + red + 1) / 3;
    switch (bitCount) {
        case 32:
            for (int x = 0; x < width; ++x) {
                row[4 * x] = blue;
                row[4 * x + 1] = green;
                row[4 * x + 2] = red;
                row[4 * x + 3] = alpha;
            }
            break;
        case 24:
            for (int x = 0; x < width; ++x) {
                row[3 * x] = blue;
                row[3 * x + 1] = green;
                row[3 * x + 2] = red;
            }
            break;
        case 16: {
            // 5-6-5: red in the top bits, blue in the low bits.
            const unsigned value = static_cast<unsigned>((red >> 3) << 11 | (green >> 2) << 5 | (blue >> 3));
            for (int x = 0; x < width; ++x) {
                row[2 * x] = static_cast<unsigned char>(value & 0xFF);
                row[2 * x + 1] = static_cast<unsigned char>(value >> 8);
            }
            break;
        }
        case 8:
            std::memset(row, grey, static_cast<size_t>(width));
            break;
        case 4:
            std::memset(row, (grey & 0x0F) * 0x11, (static_cast<size_t>(width) + 1) / 2);
            break;
        case 1:
            std::memset(row, (grey & 1) ? 0xFF : 0x00, (static_cast<size_t>(width) + 7) / 8);
            break;
        default:
            break;
    }
}

}  // namespace qelhost
