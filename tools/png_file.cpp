// PNG through libpng. libpng reports errors by longjmp, so each codec call
// runs in a function whose state lives in a struct owned by the caller: no
// C++ object is skipped or left half-changed by the jump.
#include <png.h>

#include <csetjmp>
#include <vector>

#include "tools/codecs.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

struct PngState {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::string message;
    std::string refusal;  // reader: why a well-formed file is refused, shown as it stands
    std::vector<png_bytep> rows;
    SmartPtr<IQELImageDIB> image;
    std::vector<png_color> palette;
    Raster raster;  // writer: pixels converted for the file, packed to its channels
};

void OnPngError(png_structp png, png_const_charp message) {
    static_cast<PngState*>(png_get_error_ptr(png))->message = message;
    png_longjmp(png, 1);
}
void OnPngWarning(png_structp, png_const_charp) {}

// Sets the read transforms and returns the module format the rows will have.
void ChooseReadFormat(PngState* s, int* bitCount, unsigned* model, bool* keepPalette) {
    const int colourType = png_get_color_type(s->png, s->info);
    const int depth = png_get_bit_depth(s->png, s->info);
    const bool transparency = png_get_valid(s->png, s->info, PNG_INFO_tRNS) != 0;
    *keepPalette = false;
    if (depth == 16) png_set_scale_16(s->png);
    if (colourType == PNG_COLOR_TYPE_PALETTE && !transparency) {
        *keepPalette = true;
        *model = QEL_MODEL_MONO;
        *bitCount = depth == 1 ? 1 : 8;
        if (depth > 1 && depth < 8) png_set_packing(s->png);
        return;
    }
    if ((colourType == PNG_COLOR_TYPE_GRAY) && !transparency) {
        *model = QEL_MODEL_MONO;
        *bitCount = depth == 1 ? 1 : 8;
        if (depth > 1 && depth < 8) png_set_expand_gray_1_2_4_to_8(s->png);
        return;
    }
    if (colourType == PNG_COLOR_TYPE_RGB && !transparency) {
        png_set_bgr(s->png);
        *model = QEL_MODEL_BGR;
        *bitCount = 24;
        return;
    }
    // Everything with alpha or transparency becomes blue, green, red, alpha.
    png_set_expand(s->png);
    if (colourType == PNG_COLOR_TYPE_GRAY || colourType == PNG_COLOR_TYPE_GRAY_ALPHA)
        png_set_gray_to_rgb(s->png);
    png_set_add_alpha(s->png, 0xFF, PNG_FILLER_AFTER);
    png_set_bgr(s->png);
    *model = QEL_MODEL_ARGB;
    *bitCount = 32;
}

bool DecodePng(PngState* s, FILE* file, const qel::Host* host, long long maxPixels) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_init_io(s->png, file);
    // Only IHDR, PLTE, tRNS, IDAT and IEND are read; every other chunk is
    // skipped unread. libpng allocates a whole suggested-palette or text
    // chunk at the length its header claims, so a few bytes claiming 2 GB
    // made it allocate 2 GB.
    png_set_keep_unknown_chunks(s->png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
    png_read_info(s->png, s->info);
    const png_uint_32 width = png_get_image_width(s->png, s->info);
    const png_uint_32 height = png_get_image_height(s->png, s->info);
    if (!WithinPixelLimit(width, height, maxPixels, "image", &s->refusal)) return false;
    int bitCount = 0;
    unsigned model = 0;
    bool keepPalette = false;
    ChooseReadFormat(s, &bitCount, &model, &keepPalette);
    png_set_interlace_handling(s->png);
    png_read_update_info(s->png, s->info);
    if (keepPalette) {
        png_colorp entries = nullptr;
        int count = 0;
        if (png_get_PLTE(s->png, s->info, &entries, &count) != 0 && entries != nullptr)
            s->palette.assign(entries, entries + count);
    }
    s->image = host->NewImage(static_cast<int>(width), static_cast<int>(height), bitCount, model);
    if (!s->image) {
        s->message = "cannot make an image of that size";
        return false;
    }
    const qel::Pixels p = qel::PixelsOf(s->image.Get());
    if (png_get_rowbytes(s->png, s->info) > p.RowBytes()) {
        s->message = "unexpected row layout";
        return false;
    }
    s->rows.resize(height);
    for (png_uint_32 y = 0; y < height; ++y) s->rows[y] = p.Row(static_cast<int>(y));
    png_read_image(s->png, s->rows.data());
    png_read_end(s->png, nullptr);
    return true;
}

}  // namespace

SmartPtr<IQEL> ReadPng(FILE* file, const qel::Host& host, long long maxPixels, std::string* error) {
    PngState s;
    s.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &s, OnPngError, OnPngWarning);
    if (s.png != nullptr) s.info = png_create_info_struct(s.png);
    if (s.info == nullptr) {
        png_destroy_read_struct(&s.png, nullptr, nullptr);
        *error = "out of memory";
        return SmartPtr<IQEL>();
    }
    const bool ok = DecodePng(&s, file, &host, maxPixels);
    png_destroy_read_struct(&s.png, &s.info, nullptr);
    if (!ok) {
        *error = !s.refusal.empty() ? s.refusal : "corrupt or truncated PNG (" + s.message + ")";
        return SmartPtr<IQEL>();
    }
    if (!s.palette.empty()) {
        std::vector<RGBQUAD> entries;
        for (const png_color& c : s.palette) entries.push_back(RGBQUAD{c.blue, c.green, c.red, 0});
        s.image->SetPalette(entries.data(), static_cast<unsigned>(entries.size()));
    }
    return SmartPtr<IQEL>(s.image.Detach());
}

namespace {

bool EncodePng(PngState* s, FILE* file, IQEL* image) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_init_io(s->png, file);
    const qel::Pixels p = qel::PixelsOf(image);
    const int height = p.height;
    const bool raw = !s->rows.empty();  // rows point into the image itself
    int colourType = PNG_COLOR_TYPE_GRAY, depth = 8;
    if (raw) {
        depth = p.bitCount == 1 ? 1 : p.bitCount == 4 ? 4 : 8;
        colourType = p.bitCount == 24     ? PNG_COLOR_TYPE_RGB
                     : p.bitCount == 32   ? PNG_COLOR_TYPE_RGB_ALPHA
                     : s->palette.empty() ? PNG_COLOR_TYPE_GRAY
                                          : PNG_COLOR_TYPE_PALETTE;
    } else {
        colourType = s->raster.grey ? (s->raster.alpha ? PNG_COLOR_TYPE_GRAY_ALPHA : PNG_COLOR_TYPE_GRAY)
                                    : (s->raster.alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB);
    }
    png_set_IHDR(s->png, s->info, static_cast<png_uint_32>(p.width), static_cast<png_uint_32>(height), depth,
                 colourType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (colourType == PNG_COLOR_TYPE_PALETTE)
        png_set_PLTE(s->png, s->info, s->palette.data(), static_cast<int>(s->palette.size()));
    png_write_info(s->png, s->info);
    if (raw && (p.bitCount == 24 || p.bitCount == 32)) png_set_bgr(s->png);
    if (!raw) {
        const size_t rowBytes = s->raster.rgba.size() / static_cast<size_t>(height);
        s->rows.resize(static_cast<size_t>(height));
        for (int y = 0; y < height; ++y)
            s->rows[static_cast<size_t>(y)] = &s->raster.rgba[static_cast<size_t>(y) * rowBytes];
    }
    png_write_image(s->png, s->rows.data());
    png_write_end(s->png, nullptr);
    return true;
}

}  // namespace

bool WritePng(FILE* file, IQEL* image, std::string* error) {
    PngState s;
    const qel::Pixels p = qel::PixelsOf(image);
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) {
        *error = "the image is empty";
        return false;
    }
    const bool indexed = p.bitCount == 1 || p.bitCount == 4 || p.bitCount == 8;
    const bool direct = p.bitCount == 24 || (p.bitCount == 32 && p.colourModel != QEL_MODEL_MONO);
    if (indexed || direct) {
        if (indexed) {
            for (const RGBQUAD& q : PaletteOf(image))
                s.palette.push_back(png_color{q.rgbRed, q.rgbGreen, q.rgbBlue});
            if (s.palette.size() > (1u << p.bitCount)) s.palette.resize(1u << p.bitCount);
        }
        s.rows.resize(static_cast<size_t>(p.height));
        for (int y = 0; y < p.height; ++y) s.rows[static_cast<size_t>(y)] = p.Row(y);
    } else {
        s.raster = ToRaster(image);
        // Pack the raster to the channels the file will hold.
        const int channels = (s.raster.grey ? 1 : 3) + (s.raster.alpha ? 1 : 0);
        std::vector<uint8_t> packed(static_cast<size_t>(s.raster.width) *
                                    static_cast<size_t>(s.raster.height) * static_cast<size_t>(channels));
        size_t out = 0;
        for (size_t i = 0; i < s.raster.rgba.size(); i += 4) {
            packed[out++] = s.raster.rgba[i];
            if (!s.raster.grey) packed[out++] = s.raster.rgba[i + 1], packed[out++] = s.raster.rgba[i + 2];
            if (s.raster.alpha) packed[out++] = s.raster.rgba[i + 3];
        }
        s.raster.rgba = std::move(packed);
    }
    s.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &s, OnPngError, OnPngWarning);
    if (s.png != nullptr) s.info = png_create_info_struct(s.png);
    if (s.info == nullptr) {
        png_destroy_write_struct(&s.png, nullptr);
        *error = "out of memory";
        return false;
    }
    const bool ok = EncodePng(&s, file, image);
    png_destroy_write_struct(&s.png, &s.info);
    if (!ok) *error = "cannot write PNG (" + s.message + ")";
    return ok;
}

}  // namespace qeltool
