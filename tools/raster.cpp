// Host-side pixel conversions between module images and 8-bit RGBA rasters.
#include "tools/raster.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace qeltool {

std::vector<RGBQUAD> PaletteOf(IQEL* image) {
    std::vector<RGBQUAD> palette;
    SmartPtr<IQELImagePalette> source = QueryAs<IQELImagePalette>(image, qel::iid::IQELImagePalette);
    RGBQUAD* entries = nullptr;
    unsigned count = 0;
    if (source && source->GetPalette(&entries, &count) >= 0 && entries != nullptr)
        palette.assign(entries, entries + std::min(count, 256u));
    return palette;
}

std::string ModelName(unsigned colourModel) {
    switch (colourModel) {
        case QEL_MODEL_MONO:
            return "MONO";
        case QEL_MODEL_BGR:
            return "BGR";
        case QEL_MODEL_ARGB:
            return "ARGB";
        case QEL_MODEL_ABGR:
            return "ABGR";
        default: {
            char text[16];
            std::snprintf(text, sizeof(text), "0x%08X", colourModel);
            return text;
        }
    }
}

std::string DescribeFormat(IQEL* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    char text[96];
    std::snprintf(text, sizeof(text), "%dx%d, %d-bit %s", p.width, p.height, p.bitCount,
                  ModelName(p.colourModel).c_str());
    const size_t colours = PaletteOf(image).size();
    if (colours == 0) return text;
    // The colour model of a palette image says nothing to a person.
    std::snprintf(text, sizeof(text), "%dx%d, %d-bit with a palette of %zu colours", p.width, p.height,
                  p.bitCount, colours);
    return text;
}

namespace {

// Index of pixel x in a row of 1-, 4- or 8-bit pixels.
unsigned IndexAt(const uint8_t* row, int x, int bitCount) {
    switch (bitCount) {
        case 1:
            return (row[x >> 3] >> (7 - (x & 7))) & 1u;
        case 4:
            return (x & 1) ? row[x >> 1] & 0x0Fu : row[x >> 1] >> 4;
        default:
            return row[x];
    }
}

uint8_t ClampByte(long long v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

}  // namespace

Raster ToRaster(IQEL* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) return Raster();
    Raster raster(p.width, p.height);
    const std::vector<RGBQUAD> palette = PaletteOf(image);
    const bool indexed = p.bitCount == 1 || p.bitCount == 4 || p.bitCount == 8;
    // Without a palette, 1- and 4-bit indices span black to white.
    const unsigned indexScale = p.bitCount == 1 ? 255u : p.bitCount == 4 ? 17u : 1u;
    const bool monoIntegers = p.bitCount == 32 && p.colourModel == QEL_MODEL_MONO;
    raster.alpha = p.bitCount == 32 && !monoIntegers;
    for (int y = 0; y < p.height; ++y) {
        const uint8_t* row = p.Row(y);
        for (int x = 0; x < p.width; ++x) {
            uint8_t* out = raster.At(x, y);
            uint8_t r = 0, g = 0, b = 0, a = 255;
            if (indexed) {
                const unsigned index = IndexAt(row, x, p.bitCount);
                if (!palette.empty()) {
                    const RGBQUAD entry = index < palette.size() ? palette[index] : RGBQUAD{0, 0, 0, 0};
                    r = entry.rgbRed, g = entry.rgbGreen, b = entry.rgbBlue;
                } else {
                    r = g = b = static_cast<uint8_t>(std::min(index * indexScale, 255u));
                }
            } else if (p.bitCount == 16) {
                const unsigned v = static_cast<unsigned>(row[2 * x] | row[2 * x + 1] << 8);
                r = static_cast<uint8_t>((v >> 11) << 3), g = static_cast<uint8_t>(((v >> 5) & 0x3F) << 2),
                b = static_cast<uint8_t>((v & 0x1F) << 3);
            } else if (monoIntegers) {
                int32_t v;
                std::memcpy(&v, row + 4 * x, 4);
                r = g = b = ClampByte(v);
            } else if (p.bitCount == 32) {
                b = row[4 * x], g = row[4 * x + 1], r = row[4 * x + 2], a = row[4 * x + 3];
            } else if (p.bitCount == 24) {
                b = row[3 * x], g = row[3 * x + 1], r = row[3 * x + 2];
            }
            out[0] = r, out[1] = g, out[2] = b, out[3] = a;
            if (r != g || g != b) raster.grey = false;
        }
    }
    return raster;
}

SmartPtr<IQEL> FromRaster(const qel::Host& host, const Raster& raster, int bitCount, unsigned colourModel) {
    SmartPtr<IQELImageDIB> image = host.NewImage(raster.width, raster.height, bitCount, colourModel);
    if (!image) return SmartPtr<IQEL>();
    const qel::Pixels p = qel::PixelsOf(image.Get());
    for (int y = 0; y < raster.height; ++y) {
        uint8_t* row = p.Row(y);
        for (int x = 0; x < raster.width; ++x) {
            const uint8_t* in = raster.At(x, y);
            // Rec. 601 luma in 8-bit fixed point, the weights summing to 256.
            const uint8_t grey =
                raster.grey ? in[0]
                            : static_cast<uint8_t>((77 * in[0] + 150 * in[1] + 29 * in[2] + 128) >> 8);
            switch (bitCount) {
                case 1:
                    if (grey >= 128) row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | 0x80 >> (x & 7));
                    break;
                case 8:
                    row[x] = grey;
                    break;
                case 24:
                    row[3 * x] = in[2], row[3 * x + 1] = in[1], row[3 * x + 2] = in[0];
                    break;
                case 32:
                    if (colourModel == QEL_MODEL_MONO) {
                        const int32_t v = grey;
                        std::memcpy(row + 4 * x, &v, 4);
                    } else {
                        row[4 * x] = in[2], row[4 * x + 1] = in[1], row[4 * x + 2] = in[0],
                                row[4 * x + 3] = in[3];
                    }
                    break;
                default:
                    break;
            }
        }
    }
    return SmartPtr<IQEL>(image.Detach());
}

SmartPtr<IQEL> CopyImage(const qel::Host& host, IQEL* image) {
    SmartPtr<IQELImageDIB> copy = host.NewImage();
    if (!copy || copy->Assign(image, 0) < 0) return SmartPtr<IQEL>();
    return SmartPtr<IQEL>(copy.Detach());
}

Raster Thumbnail(const Raster& source, int maxSide) {
    const int longest = std::max(source.width, source.height);
    if (longest <= maxSide || longest == 0) return source;
    const int width = std::max(1, static_cast<int>(static_cast<long long>(source.width) * maxSide / longest));
    const int height =
        std::max(1, static_cast<int>(static_cast<long long>(source.height) * maxSide / longest));
    Raster thumb(width, height);
    thumb.grey = source.grey, thumb.alpha = source.alpha;
    for (int y = 0; y < height; ++y) {
        const int y0 = static_cast<int>(static_cast<long long>(y) * source.height / height);
        const int y1 =
            std::max(y0 + 1, static_cast<int>(static_cast<long long>(y + 1) * source.height / height));
        for (int x = 0; x < width; ++x) {
            const int x0 = static_cast<int>(static_cast<long long>(x) * source.width / width);
            const int x1 =
                std::max(x0 + 1, static_cast<int>(static_cast<long long>(x + 1) * source.width / width));
            unsigned sum[4] = {0, 0, 0, 0};
            for (int sy = y0; sy < y1; ++sy)
                for (int sx = x0; sx < x1; ++sx)
                    for (int c = 0; c < 4; ++c) sum[c] += source.At(sx, sy)[c];
            const unsigned count = static_cast<unsigned>((x1 - x0) * (y1 - y0));
            for (int c = 0; c < 4; ++c)
                thumb.At(x, y)[c] = static_cast<uint8_t>((sum[c] + count / 2) / count);
        }
    }
    return thumb;
}

}  // namespace qeltool
