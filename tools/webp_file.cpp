// WebP through libwebp: still images, lossy or lossless, with alpha; ICC,
// EXIF and XMP chunks through libwebpmux.
#include <webp/decode.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <cstdio>
#include <vector>

#include "tools/codecs.h"
#include "tools/image_metadata.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

bool ReadWhole(FILE* file, std::string* bytes) {
    char chunk[1 << 16];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof(chunk), file)) > 0) bytes->append(chunk, got);
    return !std::ferror(file);
}

void KeepWebpMetadata(const std::string& bytes, ImageMetadata* metadata) {
    const WebPData data{reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
    WebPMux* mux = WebPMuxCreate(&data, 0);
    if (mux == nullptr) return;
    const std::pair<const char*, std::string*> chunks[] = {
        {"ICCP", &metadata->icc}, {"EXIF", &metadata->exif}, {"XMP ", &metadata->xmp}};
    for (const auto& chunk : chunks) {
        WebPData found{nullptr, 0};
        if (WebPMuxGetChunk(mux, chunk.first, &found) == WEBP_MUX_OK && found.bytes != nullptr)
            chunk.second->assign(reinterpret_cast<const char*>(found.bytes), found.size);
    }
    WebPMuxDelete(mux);
    // Some writers keep the "Exif\0\0" header of JPEG files in the chunk.
    if (metadata->exif.compare(0, 6, std::string("Exif\0\0", 6)) == 0) metadata->exif.erase(0, 6);
}

int OnMemoryWrite(const uint8_t* data, size_t size, const WebPPicture* picture) {
    return WebPMemoryWrite(data, size, picture);
}

}  // namespace

SmartPtr<IQEL> ReadWebp(FILE* file, const qel::Host& host, long long maxPixels, ImageMetadata* metadata,
                        std::string* error) {
    std::string bytes;
    if (!ReadWhole(file, &bytes)) {
        *error = "read failed";
        return SmartPtr<IQEL>();
    }
    const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
    WebPBitstreamFeatures features;
    if (WebPGetFeatures(data, bytes.size(), &features) != VP8_STATUS_OK) {
        *error = "corrupt or truncated WebP";
        return SmartPtr<IQEL>();
    }
    if (features.has_animation) {
        *error = "animated WebP is not supported (qel reads still WebP images)";
        return SmartPtr<IQEL>();
    }
    if (!WithinPixelLimit(features.width, features.height, maxPixels, "image", error)) return SmartPtr<IQEL>();
    KeepWebpMetadata(bytes, metadata);
    const bool alpha = features.has_alpha != 0;
    const int width = features.width, height = features.height;
    SmartPtr<IQELImageDIB> image = NewReadImage(host, width, height, alpha ? 32 : 24, error);
    if (!image) return SmartPtr<IQEL>();
    const int channels = alpha ? 4 : 3;
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * channels);
    const int stride = width * channels;
    const uint8_t* decoded =
        alpha ? WebPDecodeBGRAInto(data, bytes.size(), pixels.data(), pixels.size(), stride)
              : WebPDecodeBGRInto(data, bytes.size(), pixels.data(), pixels.size(), stride);
    if (decoded == nullptr) {
        *error = "corrupt or truncated WebP";
        return SmartPtr<IQEL>();
    }
    const qel::Pixels p = qel::PixelsOf(image.Get());
    for (int y = 0; y < height; ++y)
        std::copy(&pixels[static_cast<size_t>(y) * stride], &pixels[static_cast<size_t>(y + 1) * stride], p.Row(y));
    return SmartPtr<IQEL>(image.Detach());
}

bool WriteWebp(FILE* file, IQEL* image, int quality, bool lossless, const ImageMetadata* metadata,
               std::string* error) {
    const qel::Pixels p = qel::PixelsOf(image);
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) {
        *error = "the image is empty";
        return false;
    }
    if (p.width > WEBP_MAX_DIMENSION || p.height > WEBP_MAX_DIMENSION) {
        *error = "WebP holds at most 16383 pixels a side";
        return false;
    }
    const Raster raster = ToRaster(image);
    WebPConfig config;
    WebPPicture picture;
    if (!WebPConfigInit(&config) || !WebPPictureInit(&picture)) {
        *error = "libwebp version mismatch";
        return false;
    }
    config.lossless = lossless ? 1 : 0;
    config.quality = lossless ? 75.0f : static_cast<float>(quality);
    config.exact = 1;  // keep the colour under fully transparent pixels
    picture.use_argb = 1;
    picture.width = p.width;
    picture.height = p.height;
    WebPMemoryWriter encoded;
    WebPMemoryWriterInit(&encoded);
    picture.writer = OnMemoryWrite;
    picture.custom_ptr = &encoded;
    bool ok = WebPPictureImportRGBA(&picture, raster.rgba.data(), raster.width * 4) != 0;
    if (ok && !raster.alpha) {
        // Without alpha in the source, every pixel is opaque whatever the raster says.
        for (int i = 0; i < picture.argb_stride * picture.height; ++i) picture.argb[i] |= 0xFF000000u;
    }
    ok = ok && WebPEncode(&config, &picture) != 0;
    if (!ok) *error = "cannot write WebP (encoder error " + std::to_string(picture.error_code) + ")";
    WebPPictureFree(&picture);
    WebPData assembled{encoded.mem, encoded.size};
    WebPMux* mux = nullptr;
    const std::string exif = metadata != nullptr ? ExifForWriting(*metadata) : std::string();
    if (ok && metadata != nullptr && !(exif.empty() && metadata->icc.empty() && metadata->xmp.empty())) {
        mux = WebPMuxCreate(&assembled, 0);
        const std::pair<const char*, const std::string*> chunks[] = {
            {"ICCP", &metadata->icc}, {"EXIF", &exif}, {"XMP ", &metadata->xmp}};
        for (const auto& chunk : chunks) {
            const WebPData data{reinterpret_cast<const uint8_t*>(chunk.second->data()), chunk.second->size()};
            if (mux != nullptr && !chunk.second->empty()) WebPMuxSetChunk(mux, chunk.first, &data, 1);
        }
        WebPDataInit(&assembled);
        if (mux == nullptr || WebPMuxAssemble(mux, &assembled) != WEBP_MUX_OK) {
            *error = "cannot add the metadata to the WebP file";
            ok = false;
        }
    }
    if (ok && std::fwrite(assembled.bytes, 1, assembled.size, file) != assembled.size) {
        *error = "write failed";
        ok = false;
    }
    if (mux != nullptr) {
        WebPMuxDelete(mux);
        WebPDataClear(&assembled);
    }
    WebPMemoryWriterClear(&encoded);
    return ok;
}

}  // namespace qeltool
