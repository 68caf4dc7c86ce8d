// IncreaseBpp: conversion of grey, palette and 24-bit images to deeper formats.
#include "transform/depth.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "image/destination.h"
#include "module/host_services.h"
#include "transform/image_transform.h"

namespace {

// One byte per pixel is read from depths of 8 bits or less. Below 8 bits that
// runs past the packed row; bytes beyond the pixel block read as 0.
class IndexReader {
public:
    explicit IndexReader(const ImageView& source) : source_(source) {
        const ptrdiff_t stride = source.stride;
        firstOffset_ = stride >= 0 ? 0 : stride * (source.height - 1);
        endOffset_ = firstOffset_ + (stride >= 0 ? stride : -stride) * source.height;
    }
    unsigned char At(int x, int y) const {
        const ptrdiff_t offset = static_cast<ptrdiff_t>(y) * source_.stride + x;
        return offset >= firstOffset_ && offset < endOffset_ ? source_.bits[offset] : 0;
    }

private:
    const ImageView& source_;
    ptrdiff_t firstOffset_ = 0, endOffset_ = 0;
};

template <int kDestBytes>
void ExpandIndicesPlain(const ImageView& source, const ImageView& dest, const IndexColours& colours) {
    const IndexReader reader(source);
    for (int y = 0; y < source.height; ++y) {
        unsigned char* to = dest.Row(y);
        for (int x = 0; x < source.width; ++x, to += kDestBytes) {
            const unsigned char index = reader.At(x, y);
            if (!colours.HasPalette()) {
                to[0] = to[1] = to[2] = index;
                if (kDestBytes == 4) to[3] = 255;
                continue;
            }
            // Indices past the palette's end have no colour of their own: grey.
            const RGBQUAD entry = index < colours.count ? colours.entries[index] : DefaultPalette[index];
            to[0] = entry.rgbBlue;
            to[1] = entry.rgbGreen;
            to[2] = entry.rgbRed;
            // The fourth byte of a palette colour is left as created.
        }
    }
}

// The colour of every index as the plain loop writes it, in the order of
// the destination's bytes.
void FillColourTable(const IndexColours& colours, int destBytes, uint32_t* table) {
    for (int index = 0; index < 256; ++index) {
        if (!colours.HasPalette()) {
            table[index] = static_cast<uint32_t>(index) * 0x010101u | (destBytes == 4 ? 0xFF000000u : 0u);
            continue;
        }
        const RGBQUAD entry =
            static_cast<unsigned int>(index) < colours.count ? colours.entries[index] : DefaultPalette[index];
        table[index] = PackColor(entry.rgbBlue, entry.rgbGreen, entry.rgbRed, 0);
    }
}

// One 8-bit row through the table from pixel `from` on; a palette colour
// keeps the fourth byte the destination holds.
template <int kDestBytes>
void ExpandRowByTable(const unsigned char* in, unsigned char* out, int from, int width, const uint32_t* table,
                      bool keepFourth) {
    out += static_cast<ptrdiff_t>(from) * kDestBytes;
    for (int x = from; x < width; ++x, out += kDestBytes) {
        uint32_t colour = table[in[x]];
        if (kDestBytes == 4 && keepFourth) colour |= static_cast<uint32_t>(out[3]) << 24;
        std::memcpy(out, &colour, kDestBytes);
    }
}

// The index byte each output byte of a grey step copies: output block k of
// a 64-pixel step holds bytes 64k to 64k + 63, pixel n / destBytes.
struct GreySpread {
    alignas(64) unsigned char order[4][64];
    explicit GreySpread(int destBytes) {
        for (int k = 0; k < 4; ++k)
            for (int n = 0; n < 64; ++n) order[k][n] = static_cast<unsigned char>((64 * k + n) / destBytes);
    }
};

#if defined(__x86_64__)
// A grey row, 64 pixels a step and then 16: each index byte repeated into
// blue, green and red by byte permutes, alpha 255 added for 32 bits.
// Returns the pixels written.
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) int ExpandGreyRowAvx512(const unsigned char* in,
                                                                               unsigned char* out, int width,
                                                                               const GreySpread& spread,
                                                                               int destBytes) {
    const __m512i alpha = _mm512_set1_epi32(destBytes == 4 ? static_cast<int>(0xFF000000u) : 0);
    const __m512i first = _mm512_load_si512(spread.order[0]);
    int x = 0;
    for (; x + 64 <= width; x += 64, out += 64 * destBytes) {
        const __m512i indices = _mm512_loadu_si512(in + x);
        for (int k = 0; k < destBytes; ++k) {
            const __m512i order = _mm512_load_si512(spread.order[k]);
            _mm512_storeu_si512(
                out + 64 * k,
                _mm512_or_si512(_mm512_maskz_permutexvar_epi8(~__mmask64{0}, order, indices), alpha));
        }
    }
    const __mmask64 stored = destBytes == 4 ? ~__mmask64{0} : (__mmask64{1} << 48) - 1;
    for (; x + 16 <= width; x += 16, out += 16 * destBytes) {
        const __m512i indices = _mm512_maskz_loadu_epi8(0xFFFF, in + x);
        const __m512i pixels =
            _mm512_or_si512(_mm512_maskz_permutexvar_epi8(~__mmask64{0}, first, indices), alpha);
        _mm512_mask_storeu_epi8(out, stored, pixels);
    }
    return x;
}
#else
int ExpandGreyRowAvx512(const unsigned char*, unsigned char*, int, const GreySpread&, int) { return 0; }
#endif

void AddOpaqueAlpha(const ImageView& source, const ImageView& dest) {
    for (int y = 0; y < source.height; ++y) {
        const unsigned char* from = source.Row(y);
        unsigned char* to = dest.Row(y);
        for (int x = 0; x < source.width; ++x, from += 3, to += 4) {
            to[0] = from[0];
            to[1] = from[1];
            to[2] = from[2];
            to[3] = 255;
        }
    }
}

}  // namespace

void ExpandIndices(const ImageView& source, const ImageView& dest, const IndexColours& colours,
                   SimdTier widest) {
    const int destBytes = dest.bitCount == 32 ? 4 : 3;
    if (source.bitCount != 8) {
        if (destBytes == 4)
            ExpandIndicesPlain<4>(source, dest, colours);
        else
            ExpandIndicesPlain<3>(source, dest, colours);
        return;
    }
    uint32_t table[256];
    FillColourTable(colours, destBytes, table);
    const bool grey = !colours.HasPalette();
    const bool wide = grey && SimdRuns(SimdTier::Avx512, widest);
    const GreySpread spread(destBytes);
    for (int y = 0; y < source.height; ++y) {
        const unsigned char* in = source.Row(y);
        unsigned char* out = dest.Row(y);
        const int done = wide ? ExpandGreyRowAvx512(in, out, source.width, spread, destBytes) : 0;
        if (destBytes == 4)
            ExpandRowByTable<4>(in, out, done, source.width, table, !grey);
        else
            ExpandRowByTable<3>(in, out, done, source.width, table, false);
    }
}

QResult CQELImageTransform::IncreaseBpp(IQEL* source, IQEL** result, int bitCount, unsigned int colourModel) {
    if (source == nullptr) return QEL_E_FAIL;
    if (result == nullptr) return QEL_E_POINTER;
    const ImageView from = ReadImageView(source);
    // Compared unsigned: a negative count asks for a conversion.
    if (static_cast<unsigned int>(bitCount) <= static_cast<unsigned int>(from.bitCount)) {
        source->AddRef();
        *result = source;
        return QEL_NOTHING_TO_DO;
    }

    SmartPtr<IQELImagePalette> palette = QueryAs<IQELImagePalette>(source, IID_IQELImagePalette);
    IndexColours colours;
    if (palette) {
        RGBQUAD* entries = nullptr;
        palette->GetPalette(&entries, &colours.count);
        colours.entries = entries;
    }
    const bool expands = from.bitCount <= 8 && (bitCount == 24 || bitCount == 32);
    const bool addsAlpha = from.bitCount == 24 && bitCount == 32;
    // Every byte is written unless a palette colour leaves the fourth as
    // created or there is nothing to convert.
    const bool everyByte =
        from.bits != nullptr && ((expands && (bitCount == 24 || !colours.HasPalette())) || addsAlpha);
    Destination converted =
        MakeDestination(ImageShape{from.width, from.height, from.planes, bitCount, colourModel},
                        DestinationRoad::Collection, everyByte ? Writes::EveryPixel : Writes::SomePixels);
    if (!converted.image) return QEL_E_FAIL;
    if (converted.created < 0) return converted.created;

    const ImageView* to = converted.Canvas();
    if (from.bits != nullptr && to != nullptr) {
        if (expands) ExpandIndices(from, *to, colours);
        if (addsAlpha) AddOpaqueAlpha(from, *to);
    }
    *result = converted.image.Detach();
    return QEL_OK;
}
