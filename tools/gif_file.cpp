// GIF through giflib: one frame as stored (the first unless another is asked
// for) on the logical screen, as an 8-bit palette image, or 32-bit when the
// frame has a transparent colour. Writing keeps up to 256 colours exactly and
// reduces more with giflib's quantizer.
#include <gif_lib.h>

#include <cstdio>
#include <map>
#include <vector>

#include "tools/codecs.h"
#include "tools/image_metadata.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

int ReadFromFile(GifFileType* gif, GifByteType* bytes, int count) {
    return static_cast<int>(std::fread(bytes, 1, static_cast<size_t>(count), static_cast<FILE*>(gif->UserData)));
}
int WriteToFile(GifFileType* gif, const GifByteType* bytes, int count) {
    return static_cast<int>(std::fwrite(bytes, 1, static_cast<size_t>(count), static_cast<FILE*>(gif->UserData)));
}

std::string Failure(int code) {
    const char* text = GifErrorString(code);
    return std::string("corrupt or truncated GIF (") + (text != nullptr ? text : "unknown error") + ")";
}

struct GifReader {
    GifFileType* gif = nullptr;
    ~GifReader() {
        int ignored = 0;
        if (gif != nullptr) DGifCloseFile(gif, &ignored);
    }
};

// Skips the compressed data of a frame that is not wanted.
bool SkipFrame(GifFileType* gif) {
    int codeSize = 0;
    GifByteType* block = nullptr;
    if (DGifGetCode(gif, &codeSize, &block) == GIF_ERROR) return false;
    while (block != nullptr)
        if (DGifGetCodeNext(gif, &block) == GIF_ERROR) return false;
    return true;
}

}  // namespace

SmartPtr<IQEL> ReadGif(FILE* file, const qel::Host& host, long long maxPixels, int frame,
                       ImageMetadata* metadata, std::string* error) {
    int code = 0;
    GifReader in;
    in.gif = DGifOpen(file, ReadFromFile, &code);
    if (in.gif == nullptr) {
        *error = Failure(code);
        return SmartPtr<IQEL>();
    }
    GifFileType* gif = in.gif;
    const int width = gif->SWidth, height = gif->SHeight;
    if (width <= 0 || height <= 0) {
        *error = "corrupt GIF: no screen size";
        return SmartPtr<IQEL>();
    }
    if (!WithinPixelLimit(width, height, maxPixels, "image", error)) return SmartPtr<IQEL>();
    int transparent = NO_TRANSPARENT_COLOR;
    int frames = 0;
    std::vector<GifByteType> indices;
    const ColorMapObject* map = nullptr;
    int left = 0, top = 0, frameWidth = 0, frameHeight = 0;
    for (bool done = false; !done;) {
        GifRecordType record;
        if (DGifGetRecordType(gif, &record) == GIF_ERROR) {
            *error = Failure(gif->Error);
            return SmartPtr<IQEL>();
        }
        if (record == TERMINATE_RECORD_TYPE) break;
        if (record == EXTENSION_RECORD_TYPE) {
            int kind = 0;
            GifByteType* extension = nullptr;
            if (DGifGetExtension(gif, &kind, &extension) == GIF_ERROR) {
                *error = Failure(gif->Error);
                return SmartPtr<IQEL>();
            }
            GraphicsControlBlock control;
            if (kind == GRAPHICS_EXT_FUNC_CODE && extension != nullptr && frames == frame &&
                DGifExtensionToGCB(extension[0], extension + 1, &control) == GIF_OK)
                transparent = control.TransparentColor;
            while (extension != nullptr)
                if (DGifGetExtensionNext(gif, &extension) == GIF_ERROR) {
                    *error = Failure(gif->Error);
                    return SmartPtr<IQEL>();
                }
            continue;
        }
        if (record != IMAGE_DESC_RECORD_TYPE) continue;
        if (DGifGetImageDesc(gif) == GIF_ERROR) {
            *error = Failure(gif->Error);
            return SmartPtr<IQEL>();
        }
        if (frames++ != frame) {
            if (!SkipFrame(gif)) {
                *error = Failure(gif->Error);
                return SmartPtr<IQEL>();
            }
            continue;
        }
        const GifImageDesc& d = gif->Image;
        if (d.Width <= 0 || d.Height <= 0 || d.Left < 0 || d.Top < 0 ||
            !WithinPixelLimit(d.Width, d.Height, maxPixels, "frame", error)) {
            if (error->empty()) *error = "corrupt GIF: bad frame size";
            return SmartPtr<IQEL>();
        }
        left = d.Left, top = d.Top, frameWidth = d.Width, frameHeight = d.Height;
        map = d.ColorMap != nullptr ? d.ColorMap : gif->SColorMap;
        indices.assign(static_cast<size_t>(frameWidth) * frameHeight, 0);
        // Interlaced frames arrive in four passes over the rows.
        static const int kStart[] = {0, 4, 2, 1}, kStep[] = {8, 8, 4, 2};
        const int passes = d.Interlace ? 4 : 1;
        for (int pass = 0; pass < passes; ++pass)
            for (int y = d.Interlace ? kStart[pass] : 0; y < frameHeight; y += d.Interlace ? kStep[pass] : 1)
                if (DGifGetLine(gif, &indices[static_cast<size_t>(y) * frameWidth], frameWidth) == GIF_ERROR) {
                    *error = Failure(gif->Error);
                    return SmartPtr<IQEL>();
                }
        done = true;
    }
    if (indices.empty()) {
        *error = frame == 0 ? "GIF without an image"
                            : "no frame " + std::to_string(frame) + " (the file has " + std::to_string(frames) +
                                  ", counted from 0)";
        return SmartPtr<IQEL>();
    }
    if (map == nullptr || map->Colors == nullptr || map->ColorCount <= 0) {
        *error = "corrupt GIF: no colour table";
        return SmartPtr<IQEL>();
    }
    std::vector<RGBQUAD> palette;
    for (int i = 0; i < map->ColorCount && i < 256; ++i)
        palette.push_back(RGBQUAD{map->Colors[i].Blue, map->Colors[i].Green, map->Colors[i].Red, 0});
    const bool alpha = transparent != NO_TRANSPARENT_COLOR;
    SmartPtr<IQELImageDIB> image = NewReadImage(host, width, height, alpha ? 32 : 8, error);
    if (!image) return SmartPtr<IQEL>();
    if (!alpha) image->SetPalette(palette.data(), static_cast<unsigned>(palette.size()));
    // Outside the frame the screen shows its background (transparent when the frame has transparency).
    const int background = alpha ? transparent : gif->SBackGroundColor;
    const qel::Pixels p = qel::PixelsOf(image.Get());
    for (int y = 0; y < height; ++y) {
        uint8_t* row = p.Row(y);
        for (int x = 0; x < width; ++x) {
            const bool inside = x >= left && x < left + frameWidth && y >= top && y < top + frameHeight;
            int index = inside ? indices[static_cast<size_t>(y - top) * frameWidth + (x - left)] : background;
            if (index >= static_cast<int>(palette.size()) && index != transparent) index = 0;
            if (!alpha) {
                row[x] = static_cast<uint8_t>(index);
                continue;
            }
            const RGBQUAD q = index < static_cast<int>(palette.size()) ? palette[index] : RGBQUAD{0, 0, 0, 0};
            uint8_t* out = row + 4 * x;
            out[0] = q.rgbBlue, out[1] = q.rgbGreen, out[2] = q.rgbRed;
            out[3] = index == transparent ? 0 : 255;
        }
    }
    metadata->pages = frames;
    return SmartPtr<IQEL>(image.Detach());
}

namespace {

struct GifWriter {
    GifFileType* gif = nullptr;
    ColorMapObject* map = nullptr;
    ~GifWriter() {
        int ignored = 0;
        if (gif != nullptr) EGifCloseFile(gif, &ignored);
        if (map != nullptr) GifFreeMapObject(map);
    }
};

// Indices and colours for the file: exact for up to 256 colours (a fully
// transparent pixel takes one slot), otherwise giflib's median cut.
bool IndexImage(IQEL* image, std::vector<GifByteType>* indices, std::vector<GifColorType>* colours,
                int* transparent) {
    const qel::Pixels p = qel::PixelsOf(image);
    const size_t count = static_cast<size_t>(p.width) * p.height;
    indices->assign(count, 0);
    const Raster raster = ToRaster(image);
    std::map<uint32_t, int> slots;
    *transparent = NO_TRANSPARENT_COLOR;
    bool exact = true;
    for (size_t i = 0; i < count && exact; ++i) {
        const uint8_t* c = &raster.rgba[4 * i];
        const bool clear = raster.alpha && c[3] < 128;
        const uint32_t key = clear ? 0xFFFFFFFFu : static_cast<uint32_t>(c[0] << 16 | c[1] << 8 | c[2]);
        auto found = slots.find(key);
        if (found == slots.end()) {
            exact = slots.size() < 256;
            if (!exact) break;
            found = slots.emplace(key, static_cast<int>(slots.size())).first;
            colours->push_back(GifColorType{c[0], c[1], c[2]});
            if (clear) *transparent = found->second;
        }
        (*indices)[i] = static_cast<GifByteType>(found->second);
    }
    if (exact) return true;
    std::vector<GifByteType> red(count), green(count), blue(count);
    for (size_t i = 0; i < count; ++i)
        red[i] = raster.rgba[4 * i], green[i] = raster.rgba[4 * i + 1], blue[i] = raster.rgba[4 * i + 2];
    int size = 256;
    colours->assign(256, GifColorType{0, 0, 0});
    *transparent = NO_TRANSPARENT_COLOR;
    return GifQuantizeBuffer(static_cast<unsigned>(p.width), static_cast<unsigned>(p.height), &size, red.data(),
                             green.data(), blue.data(), indices->data(), colours->data()) == GIF_OK;
}

}  // namespace

bool WriteGif(FILE* file, IQEL* image, std::string* error) {
    const qel::Pixels p = qel::PixelsOf(image);
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) {
        *error = "the image is empty";
        return false;
    }
    if (p.width > 65535 || p.height > 65535) {
        *error = "GIF holds at most 65535 pixels a side";
        return false;
    }
    std::vector<GifByteType> indices;
    std::vector<GifColorType> colours;
    int transparent = NO_TRANSPARENT_COLOR;
    if (!IndexImage(image, &indices, &colours, &transparent)) {
        *error = "cannot reduce the image to 256 colours";
        return false;
    }
    int bits = 1;
    while ((1 << bits) < static_cast<int>(colours.size())) ++bits;
    colours.resize(static_cast<size_t>(1) << bits, GifColorType{0, 0, 0});
    GifWriter out;
    int code = 0;
    out.map = GifMakeMapObject(1 << bits, colours.data());
    out.gif = EGifOpen(file, WriteToFile, &code);
    if (out.map == nullptr || out.gif == nullptr) {
        *error = "cannot write GIF (" + std::string(GifErrorString(code) ? GifErrorString(code) : "") + ")";
        return false;
    }
    GifFileType* gif = out.gif;
    EGifSetGifVersion(gif, true);
    bool ok = EGifPutScreenDesc(gif, p.width, p.height, bits, 0, out.map) == GIF_OK;
    if (ok && transparent != NO_TRANSPARENT_COLOR) {
        GraphicsControlBlock control{};
        control.DisposalMode = DISPOSAL_UNSPECIFIED;
        control.TransparentColor = transparent;
        GifByteType extension[4];
        const size_t length = EGifGCBToExtension(&control, extension);
        ok = EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(length), extension) == GIF_OK;
    }
    ok = ok && EGifPutImageDesc(gif, 0, 0, p.width, p.height, false, nullptr) == GIF_OK;
    for (int y = 0; ok && y < p.height; ++y)
        ok = EGifPutLine(gif, &indices[static_cast<size_t>(y) * p.width], p.width) == GIF_OK;
    const int failure = gif->Error;
    int closeCode = 0;
    out.gif = nullptr;
    if (EGifCloseFile(gif, &closeCode) == GIF_ERROR && ok) {
        ok = false;
        code = closeCode;
    } else if (!ok) {
        code = failure;
    }
    if (!ok) *error = "cannot write GIF (" + std::string(GifErrorString(code) ? GifErrorString(code) : "") + ")";
    return ok;
}

}  // namespace qeltool
