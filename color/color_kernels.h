// Pixel kernels of the colour component, over plain image views: byte tables,
// per-pixel colour maps, the grey conversion and the alpha writers.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "image/clamp.h"
#include "image/cpu.h"
#include "image/image_view.h"

namespace color {

// True when there are pixels to walk: rows and columns are taken as signed.
inline bool HasPixels(const ImageView& image) {
    return image.bits != nullptr && image.width > 0 && image.height > 0;
}

// ---- Byte tables (Lut, Negative) -------------------------------------------
// 8 bits: every pixel byte; 24 bits: all three bytes of every pixel; 32 bits:
// the three colour bytes (alpha kept). Other bit counts are left alone.
// Rows run 64 bytes a step with AVX-512 VBMI two-table byte permutes, 32 with
// AVX2 byte shuffles over slices of the table, or one byte at a time: the
// widest that `widest` and the tier in use allow.
void ApplyByteTable(const ImageView& image, const unsigned char table[256],
                    SimdTier widest = SimdTier::Avx512);
void InvertColourBytes(const ImageView& image);
// One row of `count` bytes through `table` with the same lanes; `out` may be `in`.
void LookupBytes(unsigned char* out, const unsigned char* in, size_t count, const unsigned char table[256],
                 SimdTier widest = SimdTier::Avx512);

// ---- Per-pixel colour maps (ShiftRGB, Threshold, Colorize) -----------------
// A map rewrites the blue, green, red bytes it is handed. MapPixels runs it
// over every pixel: 4-byte pixels for exactly 32 bits (alpha kept), 3-byte
// pixels for any other count of 24 or more; 8-, 4- and 1-bit indices stand
// for the grey DefaultPalette entry and take back the nearest grey index of
// the mapped colour (its low 4 bits or low bit for 4 and 1 bits); other
// counts below 24 are not written.

// Runs an index-to-index table over the 8-, 4- or 1-bit pixels of an image.
void MapPaletteIndices(const ImageView& image, const unsigned char indexMap[256]);

template <class Map>
void BuildIndexMap(const Map& map, unsigned char indexMap[256]) {
    for (int index = 0; index < 256; ++index) {
        unsigned char bgr[3] = {static_cast<unsigned char>(index), static_cast<unsigned char>(index),
                                static_cast<unsigned char>(index)};
        map(bgr);
        indexMap[index] = static_cast<unsigned char>(NearestGreyIndex(bgr[0], bgr[1], bgr[2]));
    }
}

template <int kPixelBytes, class Map>
void MapDirectPixels(const ImageView& image, const Map& map) {
    for (int y = 0; y < image.height; ++y) {
        unsigned char* pixel = image.Row(y);
        for (int x = 0; x < image.width; ++x, pixel += kPixelBytes) map(pixel);
    }
}

// MapPixels over 24- and 32-bit rows that first go through a vector step:
// `wideRow(row, width, bytes)` maps a row's leading pixels and returns how
// many (`bytes` is std::integral_constant<int, 3 or 4>); `map` takes the rest.
template <class Map, class WideRow>
void MapPixelsAfterWideRows(const ImageView& image, const Map& map, const WideRow& wideRow) {
    const auto walk = [&](auto bytes) {
        for (int y = 0; y < image.height; ++y) {
            unsigned char* row = image.Row(y);
            for (int x = wideRow(row, image.width, bytes); x < image.width; ++x)
                map(row + static_cast<ptrdiff_t>(x) * bytes());
        }
    };
    if (image.bitCount == 32)
        walk(std::integral_constant<int, 4>{});
    else
        walk(std::integral_constant<int, 3>{});
}

template <class Map>
void MapPixels(const ImageView& image, const Map& map) {
    if (!HasPixels(image)) return;
    if (image.bitCount == 32) {
        MapDirectPixels<4>(image, map);
    } else if (image.bitCount >= 24) {
        MapDirectPixels<3>(image, map);
    } else {
        unsigned char indexMap[256];
        BuildIndexMap(map, indexMap);
        MapPaletteIndices(image, indexMap);
    }
}

// Adds a signed offset to each channel, clamped to a byte.
class ChannelShift {
public:
    ChannelShift(int red, int green, int blue);
    void operator()(unsigned char* bgr) const {
        bgr[0] = blue_[bgr[0]];
        bgr[1] = green_[bgr[1]];
        bgr[2] = red_[bgr[2]];
    }

    // 0 blue, 1 green, 2 red: the channel's table.
    const unsigned char* Table(int channel) const {
        return channel == 0 ? blue_ : channel == 1 ? green_ : red_;
    }

private:
    unsigned char blue_[256], green_[256], red_[256];
};

// MapPixels with `shift`; with AVX-512 allowed, 3- and 4-byte pixels first
// take 64 pixels a step through the byte-table lanes.
void ShiftChannels(const ImageView& image, const ChannelShift& shift, SimdTier widest = SimdTier::Avx512);

// White when blue + green + red exceeds three times the level, else black.
class BlackWhiteThreshold {
public:
    explicit BlackWhiteThreshold(int level)
        // Sums lie in 0..765, so the bound can be pinned there without
        // changing a result, and a huge level cannot overflow.
        : bound_(static_cast<int>(std::clamp<int64_t>(int64_t{level} * 3, -1, 765))) {}
    void operator()(unsigned char* bgr) const {
        const unsigned char value = bgr[0] + bgr[1] + bgr[2] > bound_ ? 255 : 0;
        bgr[0] = bgr[1] = bgr[2] = value;
    }

private:
    int bound_;
};

// Keeps each pixel's lightness, takes the given hue and saturation, and mixes
// the result with the old colour by 256ths.
class ColorizeTint {
public:
    ColorizeTint(unsigned char hue, unsigned char saturation, float blend);
    void operator()(unsigned char* bgr) const {
        const int blue = bgr[0], green = bgr[1], red = bgr[2];
        const int lightness = (std::max({blue, green, red}) + std::min({blue, green, red}) + 1) >> 1;
        bgr[0] = static_cast<unsigned char>((tintBlue_[lightness] * newWeight_ + blue * oldWeight_) >> 8);
        bgr[1] = static_cast<unsigned char>((tintGreen_[lightness] * newWeight_ + green * oldWeight_) >> 8);
        bgr[2] = static_cast<unsigned char>((tintRed_[lightness] * newWeight_ + red * oldWeight_) >> 8);
    }

    // 0 blue, 1 green, 2 red: the channel's tint by lightness.
    const unsigned char* Tint(int channel) const {
        return channel == 0 ? tintBlue_ : channel == 1 ? tintGreen_ : tintRed_;
    }
    int NewWeight() const { return newWeight_; }
    int OldWeight() const { return oldWeight_; }

private:
    unsigned char tintBlue_[256], tintGreen_[256], tintRed_[256];  // by lightness 0..255
    int newWeight_ = 0, oldWeight_ = 256;
};

// MapPixels with `tint`; with AVX-512 allowed, 3- and 4-byte pixels first
// take 64 pixels a step with VBMI byte permutes.
void ColorizePixels(const ImageView& image, const ColorizeTint& tint, SimdTier widest = SimdTier::Avx512);

// ---- Grey conversion --------------------------------------------------------
// Writes the grey version of `source` into `grey`, an image of the same size
// and bit count. 8 bits: a weighted sum of the pixel's byte and the two bytes
// after it (so the last two pixels of a row read past its width); 24 and 32
// bits: the channel mean in all three channels, alpha copied. Other bit counts
// write nothing. With SSSE3 allowed, 24 bits take eight pixels a step with
// byte shuffles and 32 bits four; with AVX-512 allowed, 24 bits first take
// 32 pixels a step with VBMI byte permutes, and 8 bits 32 pixels a step with
// word multiply-adds.
void WriteGreyInto(const ImageView& source, const ImageView& grey, SimdTier widest = SimdTier::Avx512);

// ---- Alpha ------------------------------------------------------------------
// Stores `alpha` in byte 3 of every 4-byte step of a 4 x width span per row,
// whatever the bit count, cut at the end of the pixel block.
void FillAlphaBytes(const ImageView& image, unsigned char alpha);
// 32-bit images: alpha 0 for the pixels whose colour is `keyBgr` (packed
// blue, green, red); `otherAlpha` for the rest, or their alpha kept when
// `otherAlpha` is negative.
void SetKeyAlpha(const ImageView& image, uint32_t keyBgr, int otherAlpha);

}  // namespace color
