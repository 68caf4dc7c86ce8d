// JPEG through libjpeg-turbo. Errors and warnings (a truncated or damaged
// stream only warns) both end the call by longjmp, with the state kept in a
// struct owned by the caller as in the PNG codec.
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

// jpeglib.h needs size_t and FILE declared first.
#include <jpeglib.h>

#include "tools/codecs.h"
#include "tools/image_metadata.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

struct JpegErrors {
    jpeg_error_mgr manager;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX] = {0};
};

void OnJpegError(j_common_ptr info) {
    auto* errors = reinterpret_cast<JpegErrors*>(info->err);
    info->err->format_message(info, errors->message);
    longjmp(errors->jump, 1);
}

// Level -1 is a warning about damaged data: the decoder would go on and fill
// the rest with grey, which a user would rather hear about.
void OnJpegMessage(j_common_ptr info, int level) {
    if (level < 0) OnJpegError(info);
}

struct JpegReadState {
    jpeg_decompress_struct info;
    JpegErrors errors;
    SmartPtr<IQELImageDIB> image;
    std::string message;
    ImageMetadata* found = nullptr;
    JOCTET* icc = nullptr;  // from jpeg_read_icc_profile, freed by the caller
};

const char kExifHeader[] = "Exif\0\0";  // 6 bytes with the terminator
const char kXmpHeader[] = "http://ns.adobe.com/xap/1.0/";  // then a zero byte

void KeepJpegMetadata(JpegReadState* s) {
    for (jpeg_saved_marker_ptr m = s->info.marker_list; m != nullptr; m = m->next) {
        if (m->marker != JPEG_APP0 + 1) continue;
        const char* data = reinterpret_cast<const char*>(m->data);
        if (m->data_length > 6 && std::memcmp(data, kExifHeader, 6) == 0 && s->found->exif.empty())
            s->found->exif.assign(data + 6, m->data_length - 6);
        else if (m->data_length > sizeof(kXmpHeader) && std::memcmp(data, kXmpHeader, sizeof(kXmpHeader)) == 0)
            s->found->xmp.assign(data + sizeof(kXmpHeader), m->data_length - sizeof(kXmpHeader));
    }
    unsigned int length = 0;
    if (jpeg_read_icc_profile(&s->info, &s->icc, &length) && s->icc != nullptr)
        s->found->icc.assign(reinterpret_cast<const char*>(s->icc), length);
}

bool DecodeJpeg(JpegReadState* s, FILE* file, const qel::Host* host, long long maxPixels) {
    if (setjmp(s->errors.jump)) return false;
    jpeg_stdio_src(&s->info, file);
    jpeg_save_markers(&s->info, JPEG_APP0 + 1, 0xFFFF);
    jpeg_save_markers(&s->info, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(&s->info, TRUE);
    KeepJpegMetadata(s);
    if (s->info.jpeg_color_space == JCS_CMYK || s->info.jpeg_color_space == JCS_YCCK) {
        s->message = "CMYK JPEG is not supported";
        return false;
    }
    const bool grey = s->info.num_components == 1;
    s->info.out_color_space = grey ? JCS_GRAYSCALE : JCS_EXT_BGR;
    // No scaling is asked for, so the output has the frame's size; refuse it
    // before the decoder sets up its row buffers.
    if (!WithinPixelLimit(s->info.image_width, s->info.image_height, maxPixels, "image", &s->message))
        return false;
    jpeg_start_decompress(&s->info);
    s->image = host->NewImage(static_cast<int>(s->info.output_width), static_cast<int>(s->info.output_height),
                              grey ? 8 : 24, grey ? QEL_MODEL_MONO : QEL_MODEL_BGR);
    if (!s->image) {
        s->message = "cannot make an image of that size";
        return false;
    }
    const qel::Pixels p = qel::PixelsOf(s->image.Get());
    while (s->info.output_scanline < s->info.output_height) {
        JSAMPROW row = p.Row(static_cast<int>(s->info.output_scanline));
        jpeg_read_scanlines(&s->info, &row, 1);
    }
    jpeg_finish_decompress(&s->info);
    return true;
}

struct JpegWriteState {
    jpeg_compress_struct info;
    JpegErrors errors;
    std::vector<uint8_t> packed;  // pixels converted for the file, when needed
    std::string exif, xmp;        // APP1 payloads with their headers
    const ImageMetadata* kept = nullptr;
};

// An APP1 segment holds at most 65533 bytes; a larger block is left out.
void WriteJpegMetadata(JpegWriteState* s) {
    if (s->kept == nullptr) return;
    const std::string exif = ExifForWriting(*s->kept);
    if (!exif.empty()) s->exif = std::string(kExifHeader, 6) + exif;
    if (!s->kept->xmp.empty()) s->xmp = std::string(kXmpHeader, sizeof(kXmpHeader)) + s->kept->xmp;
    for (const std::string* block : {&s->exif, &s->xmp})
        if (!block->empty() && block->size() <= 65533)
            jpeg_write_marker(&s->info, JPEG_APP0 + 1, reinterpret_cast<const JOCTET*>(block->data()),
                              static_cast<unsigned>(block->size()));
    if (!s->kept->icc.empty())
        jpeg_write_icc_profile(&s->info, reinterpret_cast<const JOCTET*>(s->kept->icc.data()),
                               static_cast<unsigned>(s->kept->icc.size()));
}

bool EncodeJpeg(JpegWriteState* s, FILE* file, IQEL* image, int quality) {
    if (setjmp(s->errors.jump)) return false;
    const qel::Pixels p = qel::PixelsOf(image);
    const bool raw = s->packed.empty();
    const bool grey = raw ? p.bitCount == 8 : s->packed.size() == static_cast<size_t>(p.width) * p.height;
    jpeg_stdio_dest(&s->info, file);
    s->info.image_width = static_cast<JDIMENSION>(p.width);
    s->info.image_height = static_cast<JDIMENSION>(p.height);
    s->info.input_components = grey ? 1 : 3;
    s->info.in_color_space = grey ? JCS_GRAYSCALE : raw ? JCS_EXT_BGR : JCS_RGB;
    jpeg_set_defaults(&s->info);
    jpeg_set_quality(&s->info, quality, TRUE);
    jpeg_start_compress(&s->info, TRUE);
    WriteJpegMetadata(s);
    const size_t rowBytes = static_cast<size_t>(p.width) * (grey ? 1 : 3);
    while (s->info.next_scanline < s->info.image_height) {
        const int y = static_cast<int>(s->info.next_scanline);
        JSAMPROW row = raw ? p.Row(y) : &s->packed[static_cast<size_t>(y) * rowBytes];
        jpeg_write_scanlines(&s->info, &row, 1);
    }
    jpeg_finish_compress(&s->info);
    return true;
}

}  // namespace

SmartPtr<IQEL> ReadJpeg(FILE* file, const qel::Host& host, long long maxPixels, ImageMetadata* metadata,
                        std::string* error) {
    JpegReadState s;
    s.found = metadata;
    s.info.err = jpeg_std_error(&s.errors.manager);
    s.errors.manager.error_exit = OnJpegError;
    s.errors.manager.emit_message = OnJpegMessage;
    jpeg_create_decompress(&s.info);
    const bool ok = DecodeJpeg(&s, file, &host, maxPixels);
    jpeg_destroy_decompress(&s.info);
    std::free(s.icc);
    if (!ok) {
        *error = s.message.empty() ? "corrupt or truncated JPEG (" + std::string(s.errors.message) + ")"
                                   : s.message;
        return SmartPtr<IQEL>();
    }
    return SmartPtr<IQEL>(s.image.Detach());
}

bool WriteJpeg(FILE* file, IQEL* image, int quality, const ImageMetadata* metadata, std::string* error) {
    const qel::Pixels p = qel::PixelsOf(image);
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) {
        *error = "the image is empty";
        return false;
    }
    JpegWriteState s;
    s.kept = metadata;
    const bool direct = (p.bitCount == 8 && PaletteOf(image).empty()) || p.bitCount == 24;
    if (!direct) {
        // JPEG has no alpha and no palette: write what a viewer would show.
        const Raster raster = ToRaster(image);
        for (size_t i = 0; i < raster.rgba.size(); i += 4) {
            s.packed.push_back(raster.rgba[i]);
            if (!raster.grey) s.packed.push_back(raster.rgba[i + 1]), s.packed.push_back(raster.rgba[i + 2]);
        }
    }
    s.info.err = jpeg_std_error(&s.errors.manager);
    s.errors.manager.error_exit = OnJpegError;
    jpeg_create_compress(&s.info);
    const bool ok = EncodeJpeg(&s, file, image, quality);
    jpeg_destroy_compress(&s.info);
    if (!ok) *error = "cannot write JPEG (" + std::string(s.errors.message) + ")";
    return ok;
}

}  // namespace qeltool
