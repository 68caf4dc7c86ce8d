// PNG reading through libpng (writing goes through libspng, png_write.cpp).
// libpng reports errors by longjmp, so each codec call runs in a function
// whose state lives in a struct owned by the caller: no C++ object is
// skipped or left half-changed by the jump.
#include <png.h>

#include <csetjmp>
#include <cstring>
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
    ImageMetadata* found = nullptr;  // what the file says beside the pixels
};

const char kXmpKeyword[] = "XML:com.adobe.xmp";

// EXIF, ICC and XMP as the reader found them, before or after the pixels.
void KeepPngMetadata(PngState* s) {
    png_bytep exif = nullptr;
    png_uint_32 exifSize = 0;
    if (png_get_eXIf_1(s->png, s->info, &exifSize, &exif) != 0 && exif != nullptr)
        s->found->exif.assign(reinterpret_cast<const char*>(exif), exifSize);
    png_charp name = nullptr;
    png_bytep profile = nullptr;
    png_uint_32 profileSize = 0;
    int compression = 0;
    if (png_get_iCCP(s->png, s->info, &name, &compression, &profile, &profileSize) != 0 && profile != nullptr)
        s->found->icc.assign(reinterpret_cast<const char*>(profile), profileSize);
    png_textp texts = nullptr;
    int count = 0;
    png_get_text(s->png, s->info, &texts, &count);
    for (int i = 0; i < count; ++i)
        if (std::strcmp(texts[i].key, kXmpKeyword) == 0 && texts[i].text != nullptr)
            s->found->xmp.assign(texts[i].text, texts[i].compression >= PNG_ITXT_COMPRESSION_NONE
                                                    ? texts[i].itxt_length
                                                    : texts[i].text_length);
}

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
    s->found->bitsPerSample = depth;
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

// libpng allocates a whole ancillary chunk (a suggested palette, a text) at
// the length its header claims, so a few bytes claiming 2 GB made it allocate
// 2 GB. Every ancillary chunk's length is therefore checked against the bytes
// the file really holds before libpng sees it. The file is left where it was.
bool ChunksFitTheFile(FILE* file) {
    const long start = std::ftell(file);
    if (start < 0 || std::fseek(file, 0, SEEK_END) != 0) return false;
    const long long end = std::ftell(file);
    long long at = start + 8;  // after the signature
    bool fit = true;
    while (fit && at + 8 <= end) {
        unsigned char header[8];
        if (std::fseek(file, static_cast<long>(at), SEEK_SET) != 0 || std::fread(header, 1, 8, file) != 8) break;
        const long long length = (static_cast<long long>(header[0]) << 24) | (header[1] << 16) | (header[2] << 8) |
                                 header[3];
        if (at + 12 + length > end) {
            // A cut pixel chunk is libpng's to report as a truncated file; an
            // ancillary chunk (lower-case first letter) would be allocated whole.
            fit = (header[4] & 0x20) == 0;
            break;
        }
        if (std::memcmp(header + 4, "IEND", 4) == 0) break;
        at += 12 + length;
    }
    std::fseek(file, start, SEEK_SET);
    return fit;
}

bool DecodePng(PngState* s, FILE* file, const qel::Host* host, long long maxPixels) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    if (!ChunksFitTheFile(file)) png_error(s->png, "a chunk is longer than the file");
    png_init_io(s->png, file);
    // Only the chunks qel uses are read: the pixels' own (IHDR, PLTE, tRNS,
    // IDAT, IEND) and the metadata carried to the output (eXIf, iCCP and the
    // text chunks that hold XMP). Every other chunk is skipped unread.
    png_set_keep_unknown_chunks(s->png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
    static const png_byte kMetadataChunks[] = {'e', 'X', 'I', 'f', '\0', 'i', 'C', 'C', 'P', '\0', 'i', 'T', 'X', 't', '\0',
                                               'z', 'T', 'X', 't', '\0', 't', 'E', 'X', 't', '\0'};
    png_set_keep_unknown_chunks(s->png, PNG_HANDLE_CHUNK_AS_DEFAULT, kMetadataChunks, 5);
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
    png_read_end(s->png, s->info);
    KeepPngMetadata(s);
    return true;
}

}  // namespace

SmartPtr<IQEL> ReadPng(FILE* file, const qel::Host& host, long long maxPixels, ImageMetadata* metadata,
                       std::string* error) {
    PngState s;
    s.found = metadata;
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

}  // namespace qeltool
