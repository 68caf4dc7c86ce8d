// Index expansion behind IncreaseBpp: grey and palette images of 8 bits or
// fewer written as 24- or 32-bit colour.
#pragma once

#include "image/cpu.h"
#include "image/image_view.h"

// Colours of palette indices; without a palette an index is a grey level.
struct IndexColours {
    const RGBQUAD* entries = nullptr;
    unsigned int count = 0;
    bool HasPalette() const { return entries != nullptr && count != 0; }
};

// Writes every pixel of `dest` (24 or 32 bits, the source's size) with the
// colour of the source's index: the palette entry, or grey (i, i, i) with
// alpha 255 when there is no palette; palette colours leave a fourth byte
// as it is. 8-bit sources take a colour table per row, and grey ones 16
// pixels a step where `widest` and the tier in use allow AVX-512.
void ExpandIndices(const ImageView& source, const ImageView& dest, const IndexColours& colours,
                   SimdTier widest = SimdTier::Avx512);
