// Host-side pixel conversions: any module image to an 8-bit RGBA raster (for
// codecs that need one, thumbnails and the gallery) and back to a module image.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qel/host.h"

namespace qeltool {

// Four bytes per pixel in memory order red, green, blue, alpha; rows packed.
struct Raster {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgba;
    bool grey = true;    // every pixel has red == green == blue
    bool alpha = false;  // the image it came from carries an alpha channel

    Raster() = default;
    Raster(int w, int h)
        : width(w), height(h), rgba(static_cast<size_t>(w) * static_cast<size_t>(h) * 4, 0) {}
    uint8_t* At(int x, int y) {
        return &rgba[(static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) * 4];
    }
    const uint8_t* At(int x, int y) const {
        return &rgba[(static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) * 4];
    }
};

// The palette an image carries (empty when it has none).
std::vector<RGBQUAD> PaletteOf(IQEL* image);

// "MONO", "BGR ", "ARGB", "ABGR" or the code in hex.
std::string ModelName(unsigned colourModel);

// "320x240, 24-bit BGR" for messages and summaries.
std::string DescribeFormat(IQEL* image);

// What a viewer shows: palette indices through the image's palette (or as
// grey levels scaled to 0-255 for 1- and 4-bit images without one), 16-bit
// pixels as 5-6-5, 32-bit "MONO" integers clamped to 0-255.
Raster ToRaster(IQEL* image);

// A new runtime image of the given format holding the raster's pixels:
// 1 (bit set where grey >= 128), 8 ("MONO" grey), 24 ("BGR ") or 32 bits
// (alpha kept; a 32-bit "MONO" image gets the grey level as its integer).
SmartPtr<IQEL> FromRaster(const qel::Host& host, const Raster& raster, int bitCount, unsigned colourModel);

// An independent copy of an image (pixels, format and palette).
SmartPtr<IQEL> CopyImage(const qel::Host& host, IQEL* image);

// Shrinks by box averaging so that neither side exceeds maxSide; never enlarges.
Raster Thumbnail(const Raster& source, int maxSide);

}  // namespace qeltool
