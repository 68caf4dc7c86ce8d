// BMP, read and written here: Debian has no C library for it. Reads
// uncompressed 1-, 4-, 8-, 16-, 24- and 32-bit files (bit fields included)
// with the core, info and V4/V5 headers, top-down or bottom-up; writes
// palette images as they are, RGB as 24-bit and RGBA as 32-bit with a V4
// header and an alpha mask.
#include <cstdio>
#include <cstring>
#include <vector>

#include "tools/codecs.h"
#include "tools/image_metadata.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

uint32_t Little32(const uint8_t* b) { return b[0] | b[1] << 8 | b[2] << 16 | static_cast<uint32_t>(b[3]) << 24; }
uint16_t Little16(const uint8_t* b) { return static_cast<uint16_t>(b[0] | b[1] << 8); }

constexpr uint32_t kRgb = 0, kBitFields = 3, kAlphaBitFields = 6;

// The value of `pixel` under `mask`, scaled to 0-255 (255 when the mask is empty).
uint8_t Channel(uint32_t pixel, uint32_t mask) {
    if (mask == 0) return 255;
    int shift = 0;
    while (((mask >> shift) & 1u) == 0) ++shift;
    const uint32_t top = mask >> shift;
    return static_cast<uint8_t>(((pixel & mask) >> shift) * 255u / top);
}

}  // namespace

SmartPtr<IQEL> ReadBmp(FILE* file, const qel::Host& host, long long maxPixels, std::string* error) {
    std::fseek(file, 0, SEEK_END);
    const long fileSize = std::ftell(file);
    std::rewind(file);
    uint8_t header[14 + 124] = {0};
    if (fileSize < 26 || std::fread(header, 1, 18, file) != 18) {
        *error = "truncated BMP";
        return SmartPtr<IQEL>();
    }
    const uint32_t dataOffset = Little32(header + 10);
    const uint32_t infoSize = Little32(header + 14);
    if (infoSize != 12 && infoSize != 40 && infoSize != 52 && infoSize != 56 && infoSize != 108 && infoSize != 124) {
        *error = "unsupported BMP header of " + std::to_string(infoSize) + " bytes";
        return SmartPtr<IQEL>();
    }
    if (std::fread(header + 18, 1, infoSize - 4, file) != infoSize - 4) {
        *error = "truncated BMP";
        return SmartPtr<IQEL>();
    }
    const uint8_t* info = header + 14;
    long long width, height;
    int bits;
    uint32_t compression = kRgb, colours = 0;
    if (infoSize == 12) {
        width = Little16(info + 4), height = Little16(info + 6), bits = Little16(info + 10);
    } else {
        width = static_cast<int32_t>(Little32(info + 4));
        height = static_cast<int32_t>(Little32(info + 8));
        bits = Little16(info + 14);
        compression = Little32(info + 16);
        colours = Little32(info + 32);
    }
    const bool topDown = height < 0;
    if (topDown) height = -height;
    if (width <= 0 || height <= 0) {
        *error = "corrupt BMP: bad image size";
        return SmartPtr<IQEL>();
    }
    if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) {
        *error = "unsupported BMP depth of " + std::to_string(bits) + " bits";
        return SmartPtr<IQEL>();
    }
    uint32_t masks[4] = {0, 0, 0, 0};  // red, green, blue, alpha
    if (compression == kBitFields || compression == kAlphaBitFields) {
        if (bits != 16 && bits != 32) {
            *error = "corrupt BMP: bit fields on a " + std::to_string(bits) + "-bit image";
            return SmartPtr<IQEL>();
        }
        const int count = compression == kAlphaBitFields ? 4 : 3;
        uint8_t fields[16];
        if (infoSize >= 52) {
            std::memcpy(fields, info + 40, infoSize >= 56 ? 16 : 12);
        } else if (std::fread(fields, 1, 4 * count, file) != static_cast<size_t>(4 * count)) {
            *error = "truncated BMP";
            return SmartPtr<IQEL>();
        }
        for (int i = 0; i < count || (i < 4 && infoSize >= 56); ++i) masks[i] = Little32(fields + 4 * i);
    } else if (compression != kRgb) {
        *error = "compressed BMP (RLE, JPEG or PNG inside) is not supported";
        return SmartPtr<IQEL>();
    } else if (bits == 16) {
        masks[0] = 0x7C00, masks[1] = 0x03E0, masks[2] = 0x001F;
    } else if (bits == 32) {
        masks[0] = 0x00FF0000, masks[1] = 0x0000FF00, masks[2] = 0x000000FF;
        // A V4 or V5 header may give the alpha mask even without bit fields.
        if (infoSize >= 108) masks[3] = Little32(info + 52);
    }
    if (!WithinPixelLimit(width, height, maxPixels, "image", error)) return SmartPtr<IQEL>();
    // The palette follows the headers (and any separate bit fields).
    std::vector<RGBQUAD> palette;
    if (bits <= 8) {
        const uint32_t entries = colours == 0 || colours > (1u << bits) ? 1u << bits : colours;
        const size_t entrySize = infoSize == 12 ? 3 : 4;
        for (uint32_t i = 0; i < entries; ++i) {
            uint8_t e[4];
            if (std::fread(e, 1, entrySize, file) != entrySize) {
                *error = "truncated BMP";
                return SmartPtr<IQEL>();
            }
            palette.push_back(RGBQUAD{e[0], e[1], e[2], 0});
        }
    }
    const size_t stride = (static_cast<size_t>(width) * bits + 31) / 32 * 4;
    if (dataOffset > static_cast<unsigned long>(fileSize) ||
        static_cast<unsigned long long>(fileSize - dataOffset) < stride * static_cast<unsigned long long>(height)) {
        *error = "truncated BMP";
        return SmartPtr<IQEL>();
    }
    const bool alpha = masks[3] != 0;
    const int bitCount = bits <= 8 ? (bits == 4 ? 8 : bits) : alpha ? 32 : 24;
    SmartPtr<IQELImageDIB> image = NewReadImage(host, width, height, bitCount, error);
    if (!image) return SmartPtr<IQEL>();
    if (!palette.empty()) image->SetPalette(palette.data(), static_cast<unsigned>(palette.size()));
    const qel::Pixels p = qel::PixelsOf(image.Get());
    std::vector<uint8_t> row(stride);
    std::fseek(file, static_cast<long>(dataOffset), SEEK_SET);
    for (long long n = 0; n < height; ++n) {
        if (std::fread(row.data(), 1, stride, file) != stride) {
            *error = "truncated BMP";
            return SmartPtr<IQEL>();
        }
        uint8_t* out = p.Row(static_cast<int>(topDown ? n : height - 1 - n));
        for (long long x = 0; x < width; ++x) {
            if (bits == 1 || bits == 24 || bits == 8) break;
            if (bits == 4) {
                out[x] = static_cast<uint8_t>(x & 1 ? row[x / 2] & 0x0F : row[x / 2] >> 4);
                continue;
            }
            const uint32_t v = bits == 16 ? Little16(&row[2 * x]) : Little32(&row[4 * x]);
            uint8_t* o = out + x * (bitCount / 8);
            o[0] = Channel(v, masks[2]), o[1] = Channel(v, masks[1]), o[2] = Channel(v, masks[0]);
            if (alpha) o[3] = Channel(v, masks[3]);
        }
        // These depths are stored as the module keeps them.
        if (bits == 1 || bits == 8 || bits == 24) std::memcpy(out, row.data(), p.RowBytes());
    }
    return SmartPtr<IQEL>(image.Detach());
}

namespace {

void PutLittle32(std::vector<uint8_t>* b, uint32_t v) {
    for (int k = 0; k < 4; ++k) b->push_back(static_cast<uint8_t>(v >> (8 * k)));
}
void PutLittle16(std::vector<uint8_t>* b, uint16_t v) {
    b->push_back(static_cast<uint8_t>(v)), b->push_back(static_cast<uint8_t>(v >> 8));
}

}  // namespace

bool WriteBmp(FILE* file, IQEL* image, std::string* error) {
    const qel::Pixels p = qel::PixelsOf(image);
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) {
        *error = "the image is empty";
        return false;
    }
    const bool indexed = p.bitCount == 1 || p.bitCount == 4 || p.bitCount == 8;
    Raster raster;
    if (!indexed) raster = ToRaster(image);
    const int bits = indexed ? p.bitCount : raster.alpha ? 32 : 24;
    std::vector<RGBQUAD> palette = indexed ? PaletteOf(image) : std::vector<RGBQUAD>();
    if (indexed && palette.empty())
        for (unsigned i = 0; i < (1u << bits); ++i) {
            const auto grey = static_cast<uint8_t>(i * 255u / ((1u << bits) - 1u));
            palette.push_back(RGBQUAD{grey, grey, grey, 0});
        }
    const uint32_t infoSize = bits == 32 ? 108 : 40;
    const size_t stride = (static_cast<size_t>(p.width) * bits + 31) / 32 * 4;
    const unsigned long long dataOffset = 14 + infoSize + 4 * palette.size();
    const unsigned long long total = dataOffset + stride * static_cast<unsigned long long>(p.height);
    if (total > 0xFFFFFFFFull) {
        *error = "too large for a BMP file (4 GiB at most)";
        return false;
    }
    std::vector<uint8_t> head;
    head.push_back('B'), head.push_back('M');
    PutLittle32(&head, static_cast<uint32_t>(total));
    PutLittle32(&head, 0);
    PutLittle32(&head, static_cast<uint32_t>(dataOffset));
    PutLittle32(&head, infoSize);
    PutLittle32(&head, static_cast<uint32_t>(p.width));
    PutLittle32(&head, static_cast<uint32_t>(p.height));  // bottom-up
    PutLittle16(&head, 1);
    PutLittle16(&head, static_cast<uint16_t>(bits));
    PutLittle32(&head, bits == 32 ? kBitFields : kRgb);
    PutLittle32(&head, static_cast<uint32_t>(stride * p.height));
    PutLittle32(&head, 2835), PutLittle32(&head, 2835);  // 72 dots per inch
    PutLittle32(&head, static_cast<uint32_t>(palette.size()));
    PutLittle32(&head, 0);
    if (bits == 32) {
        for (uint32_t mask : {0x00FF0000u, 0x0000FF00u, 0x000000FFu, 0xFF000000u}) PutLittle32(&head, mask);
        PutLittle32(&head, 0x73524742);  // 'sRGB'
        head.resize(14 + infoSize, 0);   // end points and gamma unused
    }
    for (const RGBQUAD& q : palette) head.insert(head.end(), {q.rgbBlue, q.rgbGreen, q.rgbRed, 0});
    if (std::fwrite(head.data(), 1, head.size(), file) != head.size()) {
        *error = "write failed";
        return false;
    }
    std::vector<uint8_t> row(stride, 0);
    for (int y = p.height - 1; y >= 0; --y) {
        if (indexed) {
            std::memcpy(row.data(), p.Row(y), p.RowBytes());
        } else {
            for (int x = 0; x < p.width; ++x) {
                const uint8_t* c = raster.At(x, y);
                uint8_t* o = &row[static_cast<size_t>(x) * (bits / 8)];
                o[0] = c[2], o[1] = c[1], o[2] = c[0];
                if (bits == 32) o[3] = c[3];
            }
        }
        if (std::fwrite(row.data(), 1, stride, file) != stride) {
            *error = "write failed";
            return false;
        }
    }
    return true;
}

}  // namespace qeltool
