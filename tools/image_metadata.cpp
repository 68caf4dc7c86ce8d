// EXIF orientation through libexif, and the quarter turns and mirrors that
// show stored pixels the way the orientation says.
#include "tools/image_metadata.h"

#include <libexif/exif-data.h>

#include <cstdint>

#include "tools/raster.h"

namespace qeltool {

int ExifOrientation(const std::string& exif) {
    // libexif finds the block by the "Exif\0\0" header that JPEG files put before it.
    const std::string block = std::string("Exif\0\0", 6) + exif;
    ExifData* data =
        exif_data_new_from_data(reinterpret_cast<const unsigned char*>(block.data()), static_cast<unsigned>(block.size()));
    if (data == nullptr) return 1;
    int orientation = 1;
    ExifEntry* entry = exif_content_get_entry(data->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
    if (entry != nullptr && entry->format == EXIF_FORMAT_SHORT && entry->components >= 1 && entry->size >= 2) {
        const int value = exif_get_short(entry->data, exif_data_get_byte_order(data));
        if (value >= 1 && value <= 8) orientation = value;
    }
    exif_data_unref(data);
    return orientation;
}

bool SetExifOrientation(std::string* exif, int orientation) {
    std::string& b = *exif;
    if (b.size() < 8) return false;
    const bool little = b[0] == 'I' && b[1] == 'I';
    if (!little && !(b[0] == 'M' && b[1] == 'M')) return false;
    auto byteAt = [&](size_t i) { return static_cast<uint32_t>(static_cast<unsigned char>(b[i])); };
    auto read16 = [&](size_t i) { return little ? byteAt(i) | byteAt(i + 1) << 8 : byteAt(i) << 8 | byteAt(i + 1); };
    auto read32 = [&](size_t i) {
        return little ? read16(i) | read16(i + 2) << 16 : read16(i) << 16 | read16(i + 2);
    };
    const size_t ifd = read32(4);
    if (ifd + 2 > b.size()) return false;
    const size_t count = read16(ifd);
    for (size_t n = 0; n < count; ++n) {
        const size_t entry = ifd + 2 + 12 * n;
        if (entry + 12 > b.size()) return false;
        if (read16(entry) != 0x0112 || read16(entry + 2) != 3) continue;
        const auto value = static_cast<uint16_t>(orientation);
        b[entry + 8] = static_cast<char>(little ? value & 0xFF : value >> 8);
        b[entry + 9] = static_cast<char>(little ? value >> 8 : value & 0xFF);
        return true;
    }
    return false;
}

namespace {

// Sample `bitCount`-wide pixel x of a row, as an integer (up to 32 bits).
uint32_t PixelAt(const uint8_t* row, int x, int bitCount) {
    if (bitCount < 8) {
        const int perByte = 8 / bitCount;
        const int shift = 8 - bitCount * (x % perByte + 1);
        return (row[x / perByte] >> shift) & ((1u << bitCount) - 1u);
    }
    const int bytes = bitCount / 8;
    uint32_t value = 0;
    for (int k = 0; k < bytes; ++k) value |= static_cast<uint32_t>(row[x * bytes + k]) << (8 * k);
    return value;
}

void SetPixel(uint8_t* row, int x, int bitCount, uint32_t value) {
    if (bitCount < 8) {
        const int perByte = 8 / bitCount;
        const int shift = 8 - bitCount * (x % perByte + 1);
        const uint8_t mask = static_cast<uint8_t>(((1u << bitCount) - 1u) << shift);
        row[x / perByte] = static_cast<uint8_t>((row[x / perByte] & ~mask) | ((value << shift) & mask));
        return;
    }
    const int bytes = bitCount / 8;
    for (int k = 0; k < bytes; ++k) row[x * bytes + k] = static_cast<uint8_t>(value >> (8 * k));
}

}  // namespace

SmartPtr<IQEL> ApplyOrientation(const qel::Host& host, IQEL* image, int orientation) {
    const qel::Pixels s = qel::PixelsOf(image);
    const bool swap = orientation >= 5 && orientation <= 8;
    const int width = swap ? s.height : s.width, height = swap ? s.width : s.height;
    SmartPtr<IQELImageDIB> turned = host.NewImage(width, height, s.bitCount, s.colourModel);
    if (!turned || s.bits == nullptr) return SmartPtr<IQEL>();
    std::vector<RGBQUAD> palette = PaletteOf(image);
    if (!palette.empty()) turned->SetPalette(palette.data(), static_cast<unsigned>(palette.size()));
    const qel::Pixels d = qel::PixelsOf(turned.Get());
    for (int dy = 0; dy < height; ++dy) {
        uint8_t* out = d.Row(dy);
        for (int dx = 0; dx < width; ++dx) {
            int sx = dx, sy = dy;
            switch (orientation) {
                case 2: sx = s.width - 1 - dx; break;
                case 3: sx = s.width - 1 - dx, sy = s.height - 1 - dy; break;
                case 4: sy = s.height - 1 - dy; break;
                case 5: sx = dy, sy = dx; break;
                case 6: sx = dy, sy = s.height - 1 - dx; break;
                case 7: sx = s.width - 1 - dy, sy = s.height - 1 - dx; break;
                case 8: sx = s.width - 1 - dy, sy = dx; break;
                default: break;
            }
            SetPixel(out, dx, s.bitCount, PixelAt(s.Row(sy), sx, s.bitCount));
        }
    }
    return SmartPtr<IQEL>(turned.Detach());
}

}  // namespace qeltool

namespace qeltool {

std::string ExifForWriting(const ImageMetadata& metadata) {
    std::string exif = metadata.exif;
    if (!exif.empty()) SetExifOrientation(&exif, metadata.orientation);
    return exif;
}

bool IsGreyPalette(const std::vector<RGBQUAD>& palette, int bitCount) {
    if (palette.empty()) return true;
    const unsigned levels = 1u << bitCount;
    if (bitCount > 8 || palette.size() != levels) return false;
    for (unsigned i = 0; i < levels; ++i) {
        const unsigned grey = i * 255u / (levels - 1u);
        const RGBQUAD& q = palette[i];
        if (q.rgbRed != grey || q.rgbGreen != grey || q.rgbBlue != grey) return false;
    }
    return true;
}

}  // namespace qeltool
