// PNG writing through libspng, which writes the same files about twice as
// fast as libpng (bench/png_libraries). Colour images keep their colour
// type, grey and bilevel images become grey PNGs of 8 or 1 bits, palette
// images keep their palette; EXIF, ICC and XMP are carried.
#include <spng.h>

#include <cstring>
#include <vector>

#include "tools/codecs.h"
#include "tools/image_metadata.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

const char kXmpKeyword[] = "XML:com.adobe.xmp";

struct SpngContext {
    spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
    ~SpngContext() {
        if (ctx != nullptr) spng_ctx_free(ctx);
    }
};

// Sets the EXIF, ICC and XMP chunks; the blocks must outlive the encoding.
int SetMetadata(spng_ctx* ctx, const ImageMetadata& metadata, std::string* exif, std::string* xmp) {
    *exif = ExifForWriting(metadata);
    if (!exif->empty()) {
        spng_exif chunk{exif->size(), &(*exif)[0]};
        if (const int result = spng_set_exif(ctx, &chunk)) return result;
    }
    if (!metadata.icc.empty()) {
        spng_iccp chunk{};
        std::strcpy(chunk.profile_name, "ICC profile");
        chunk.profile_len = metadata.icc.size();
        chunk.profile = const_cast<char*>(metadata.icc.data());
        if (const int result = spng_set_iccp(ctx, &chunk)) return result;
    }
    if (!metadata.xmp.empty()) {
        *xmp = metadata.xmp;
        spng_text chunk{};
        std::strcpy(chunk.keyword, kXmpKeyword);
        chunk.type = SPNG_ITXT;
        chunk.length = xmp->size();
        chunk.text = &(*xmp)[0];
        chunk.language_tag = const_cast<char*>("");
        chunk.translated_keyword = const_cast<char*>("");
        if (const int result = spng_set_text(ctx, &chunk, 1)) return result;
    }
    return 0;
}

}  // namespace

bool WritePng(FILE* file, IQEL* image, const ImageMetadata* metadata, std::string* error) {
    const qel::Pixels p = qel::PixelsOf(image);
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) {
        *error = "the image is empty";
        return false;
    }
    const bool indexed = p.bitCount == 1 || p.bitCount == 4 || p.bitCount == 8;
    const bool direct = p.bitCount == 24 || (p.bitCount == 32 && p.colourModel != QEL_MODEL_MONO);
    spng_ihdr header{};
    header.width = static_cast<uint32_t>(p.width);
    header.height = static_cast<uint32_t>(p.height);
    header.bit_depth = 8;
    spng_plte palette{};
    Raster raster;
    int channels = 1;
    if (indexed) {
        // A grey image stays a grey PNG, a bilevel one of 1 bit.
        const std::vector<RGBQUAD> entries = PaletteOf(image);
        const bool grey = IsGreyPalette(entries, p.bitCount);
        header.bit_depth = static_cast<uint8_t>(p.bitCount);
        header.color_type = grey ? SPNG_COLOR_TYPE_GRAYSCALE : SPNG_COLOR_TYPE_INDEXED;
        for (size_t i = 0; !grey && i < entries.size() && i < (1u << p.bitCount); ++i)
            palette.entries[palette.n_entries++] = spng_plte_entry{entries[i].rgbRed, entries[i].rgbGreen,
                                                                   entries[i].rgbBlue, 0};
    } else if (direct) {
        channels = p.bitCount / 8;
        header.color_type = channels == 4 ? SPNG_COLOR_TYPE_TRUECOLOR_ALPHA : SPNG_COLOR_TYPE_TRUECOLOR;
    } else {
        raster = ToRaster(image);
        channels = (raster.grey ? 1 : 3) + (raster.alpha ? 1 : 0);
        header.color_type = raster.grey ? (raster.alpha ? SPNG_COLOR_TYPE_GRAYSCALE_ALPHA : SPNG_COLOR_TYPE_GRAYSCALE)
                                        : (raster.alpha ? SPNG_COLOR_TYPE_TRUECOLOR_ALPHA : SPNG_COLOR_TYPE_TRUECOLOR);
    }
    SpngContext encoder;
    if (encoder.ctx == nullptr) {
        *error = "out of memory";
        return false;
    }
    spng_ctx* ctx = encoder.ctx;
    std::string exif, xmp;
    int result = spng_set_png_file(ctx, file);
    if (result == 0) result = spng_set_ihdr(ctx, &header);
    if (result == 0 && palette.n_entries > 0) result = spng_set_plte(ctx, &palette);
    if (result == 0 && metadata != nullptr) result = SetMetadata(ctx, *metadata, &exif, &xmp);
    if (result == 0)
        result = spng_encode_image(ctx, nullptr, 0, SPNG_FMT_PNG, SPNG_ENCODE_PROGRESSIVE | SPNG_ENCODE_FINALIZE);
    const size_t rowBytes = indexed ? p.RowBytes() : static_cast<size_t>(p.width) * channels;
    std::vector<uint8_t> row(rowBytes);
    for (int y = 0; result == 0 && y < p.height; ++y) {
        const uint8_t* in = p.Row(y);
        if (indexed) {
            std::memcpy(row.data(), in, rowBytes);
        } else if (direct) {
            // The module keeps blue first; PNG wants red first.
            for (size_t x = 0; x < static_cast<size_t>(p.width); ++x) {
                const uint8_t* s = in + x * channels;
                uint8_t* o = &row[x * channels];
                o[0] = s[2], o[1] = s[1], o[2] = s[0];
                if (channels == 4) o[3] = s[3];
            }
        } else {
            PackRasterRow(raster, y, row.data());
        }
        result = spng_encode_row(ctx, row.data(), rowBytes);
    }
    if (result == SPNG_EOI) result = 0;
    if (result != 0) *error = std::string("cannot write PNG (") + spng_strerror(result) + ")";
    return result == 0;
}

}  // namespace qeltool
