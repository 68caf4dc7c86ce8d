// TIFF through libtiff: any page of a multi-page file, every photometric and
// depth the library's RGBA reader knows, turned back into the layout the file
// meant (bilevel, grey, palette, RGB, RGBA); written with lossless deflate.
#include <tiffio.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <vector>

#include "tools/codecs.h"
#include "tools/image_metadata.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

// The last error libtiff reported on this thread, for the one-line message.
thread_local std::string t_tiffError;

void OnTiffError(const char* module, const char* format, va_list args) {
    char text[512];
    std::vsnprintf(text, sizeof(text), format, args);
    t_tiffError = module != nullptr && *module != '\0' ? std::string(module) + ": " + text : text;
}
void OnTiffWarning(const char*, const char*, va_list) {}

void PrepareLibrary() {
    static std::once_flag once;
    std::call_once(once, [] {
        TIFFSetErrorHandler(OnTiffError);
        TIFFSetWarningHandler(OnTiffWarning);
    });
}

// libtiff closes the descriptor it was given; it gets its own copy.
TIFF* OpenTiff(FILE* file, const char* mode) {
    // The stream may have read ahead; libtiff starts where the descriptor is.
    std::fflush(file);
    const int descriptor = dup(fileno(file));
    if (descriptor < 0) return nullptr;
    if (lseek(descriptor, ftello(file), SEEK_SET) < 0) {
        close(descriptor);
        return nullptr;
    }
    TIFF* tiff = TIFFFdOpen(descriptor, "image", mode);
    if (tiff == nullptr) close(descriptor);
    return tiff;
}

struct TiffCloser {
    TIFF* tiff;
    ~TiffCloser() {
        if (tiff != nullptr) TIFFClose(tiff);
    }
};

std::string Failure(const std::string& what) {
    return t_tiffError.empty() ? what : what + " (" + t_tiffError + ")";
}

void KeepTiffMetadata(TIFF* tiff, ImageMetadata* metadata) {
    uint32_t size = 0;
    void* data = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &size, &data) == 1 && data != nullptr)
        metadata->icc.assign(static_cast<const char*>(data), size);
    if (TIFFGetField(tiff, TIFFTAG_XMLPACKET, &size, &data) == 1 && data != nullptr)
        metadata->xmp.assign(static_cast<const char*>(data), size);
    uint16_t orientation = 1;
    if (TIFFGetField(tiff, TIFFTAG_ORIENTATION, &orientation) == 1 && orientation >= 1 && orientation <= 8)
        metadata->orientation = orientation;
}

}  // namespace

SmartPtr<IQEL> ReadTiff(FILE* file, const qel::Host& host, long long maxPixels, int page,
                        ImageMetadata* metadata, std::string* error) {
    PrepareLibrary();
    t_tiffError.clear();
    TiffCloser in{OpenTiff(file, "rm")};
    if (in.tiff == nullptr) {
        *error = Failure("corrupt or truncated TIFF");
        return SmartPtr<IQEL>();
    }
    metadata->pages = TIFFNumberOfDirectories(in.tiff);
    if (page > 0 && (page >= metadata->pages || !TIFFSetDirectory(in.tiff, static_cast<tdir_t>(page)))) {
        *error = "no page " + std::to_string(page) + " (the file has " + std::to_string(metadata->pages) +
                 ", counted from 0)";
        return SmartPtr<IQEL>();
    }
    uint32_t width = 0, height = 0;
    uint16_t bits = 1, samples = 1, photometric = PHOTOMETRIC_MINISBLACK, extraCount = 0;
    uint16_t* extra = nullptr;
    TIFFGetField(in.tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(in.tiff, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(in.tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(in.tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(in.tiff, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    TIFFGetField(in.tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    if (width == 0 || height == 0) {
        *error = Failure("corrupt TIFF: no image size");
        return SmartPtr<IQEL>();
    }
    if (!WithinPixelLimit(width, height, maxPixels, "image", error)) return SmartPtr<IQEL>();
    metadata->bitsPerSample = bits;
    KeepTiffMetadata(in.tiff, metadata);

    const bool grey = samples - extraCount == 1 &&
                      (photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE);
    const bool palette = photometric == PHOTOMETRIC_PALETTE && samples == 1 && bits <= 8;
    const bool alpha = extraCount > 0 && !palette;
    const int bitCount = palette ? 8 : grey && bits == 1 && !alpha ? 1 : grey && !alpha ? 8 : alpha ? 32 : 24;
    SmartPtr<IQELImageDIB> image = NewReadImage(host, width, height, bitCount, error);
    if (!image) return SmartPtr<IQEL>();
    const qel::Pixels p = qel::PixelsOf(image.Get());
    // 8-bit grey, RGB and RGBA in strips are read as stored: the library's
    // RGBA reader would premultiply an unassociated alpha.
    uint16_t planar = PLANARCONFIG_CONTIG, format = SAMPLEFORMAT_UINT;
    TIFFGetFieldDefaulted(in.tiff, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(in.tiff, TIFFTAG_SAMPLEFORMAT, &format);
    const bool asStored = bits == 8 && planar == PLANARCONFIG_CONTIG && format == SAMPLEFORMAT_UINT &&
                          !TIFFIsTiled(in.tiff) && extraCount <= 1 &&
                          ((grey && photometric == PHOTOMETRIC_MINISBLACK && samples == 1) ||
                           (photometric == PHOTOMETRIC_RGB && (samples == 3 || samples == 4)));
    if (asStored) {
        const tmsize_t lineSize = TIFFScanlineSize(in.tiff);
        if (lineSize < static_cast<tmsize_t>(width) * samples) {
            *error = Failure("corrupt TIFF: short rows");
            return SmartPtr<IQEL>();
        }
        std::vector<uint8_t> line(static_cast<size_t>(lineSize));
        for (uint32_t y = 0; y < height; ++y) {
            if (TIFFReadScanline(in.tiff, line.data(), y, 0) < 0) {
                *error = Failure("corrupt or truncated TIFF");
                return SmartPtr<IQEL>();
            }
            uint8_t* row = p.Row(static_cast<int>(y));
            for (uint32_t x = 0; x < width; ++x) {
                const uint8_t* s = &line[static_cast<size_t>(x) * samples];
                if (bitCount == 8) {
                    row[x] = s[0];
                    continue;
                }
                uint8_t* o = row + static_cast<size_t>(x) * (bitCount / 8);
                o[0] = s[2], o[1] = s[1], o[2] = s[0];
                if (bitCount == 32) o[3] = s[3];
            }
        }
        return SmartPtr<IQEL>(image.Detach());
    }

    char message[1024] = {0};
    TIFFRGBAImage decoder;
    if (!TIFFRGBAImageOK(in.tiff, message) || !TIFFRGBAImageBegin(&decoder, in.tiff, 0, message)) {
        *error = std::string("unsupported TIFF: ") + message;
        return SmartPtr<IQEL>();
    }
    // Rows as stored: the orientation is applied, or kept, by the caller.
    decoder.req_orientation = decoder.orientation;
    std::vector<uint32_t> rgba(static_cast<size_t>(width) * height);
    const int got = TIFFRGBAImageGet(&decoder, rgba.data(), width, height);
    TIFFRGBAImageEnd(&decoder);
    if (!got) {
        *error = Failure("corrupt or truncated TIFF");
        return SmartPtr<IQEL>();
    }

    // The colour map gives each index's colour; the reader's colours map back.
    std::map<uint32_t, uint8_t> indexOf;
    if (palette) {
        uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
        std::vector<RGBQUAD> entries;
        if (TIFFGetField(in.tiff, TIFFTAG_COLORMAP, &red, &green, &blue) == 1) {
            for (unsigned i = 0; i < (1u << bits); ++i) {
                const RGBQUAD q{static_cast<uint8_t>(blue[i] >> 8), static_cast<uint8_t>(green[i] >> 8),
                                static_cast<uint8_t>(red[i] >> 8), 0};
                entries.push_back(q);
                const uint32_t key = 0xFF000000u | q.rgbBlue << 16 | q.rgbGreen << 8 | q.rgbRed;
                indexOf.emplace(key, static_cast<uint8_t>(i));
            }
        }
        image->SetPalette(entries.data(), static_cast<unsigned>(entries.size()));
    }
    for (uint32_t y = 0; y < height; ++y) {
        const uint32_t* source = &rgba[static_cast<size_t>(y) * width];
        uint8_t* row = p.Row(static_cast<int>(y));
        for (uint32_t x = 0; x < width; ++x) {
            const uint32_t v = source[x];
            if (bitCount == 1) {
                if (TIFFGetR(v) >= 128) row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | 0x80 >> (x & 7));
            } else if (palette) {
                const auto found = indexOf.find(v | 0xFF000000u);
                row[x] = found != indexOf.end() ? found->second : 0;
            } else if (bitCount == 8) {
                row[x] = static_cast<uint8_t>(TIFFGetR(v));
            } else {
                const size_t bytes = bitCount / 8;
                row[x * bytes] = static_cast<uint8_t>(TIFFGetB(v));
                row[x * bytes + 1] = static_cast<uint8_t>(TIFFGetG(v));
                row[x * bytes + 2] = static_cast<uint8_t>(TIFFGetR(v));
                if (bytes == 4) row[x * bytes + 3] = static_cast<uint8_t>(TIFFGetA(v));
            }
        }
    }
    return SmartPtr<IQEL>(image.Detach());
}

bool WriteTiff(FILE* file, IQEL* image, const ImageMetadata* metadata, std::string* error) {
    PrepareLibrary();
    t_tiffError.clear();
    const qel::Pixels p = qel::PixelsOf(image);
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) {
        *error = "the image is empty";
        return false;
    }
    const std::vector<RGBQUAD> palette = PaletteOf(image);
    const bool indexed = p.bitCount == 1 || p.bitCount == 4 || p.bitCount == 8;
    const bool greyIndexed = indexed && IsGreyPalette(palette, p.bitCount);
    Raster raster;
    if (!indexed) raster = ToRaster(image);
    const int channels = indexed ? 1 : (raster.grey ? 1 : 3) + (raster.alpha ? 1 : 0);

    TiffCloser out{OpenTiff(file, "w")};
    if (out.tiff == nullptr) {
        *error = Failure("cannot write TIFF");
        return false;
    }
    TIFF* t = out.tiff;
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(p.width));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(p.height));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, static_cast<uint16_t>(indexed ? p.bitCount : 8));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, static_cast<uint16_t>(channels));
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    const uint16_t photometric = indexed && !greyIndexed ? PHOTOMETRIC_PALETTE
                                 : channels <= 2         ? PHOTOMETRIC_MINISBLACK
                                                         : PHOTOMETRIC_RGB;
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
    if (!indexed && raster.alpha) {
        const uint16_t kind = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &kind);
    }
    std::vector<uint16_t> colourMap;
    if (photometric == PHOTOMETRIC_PALETTE) {
        const size_t entries = size_t{1} << p.bitCount;
        colourMap.assign(3 * entries, 0);
        for (size_t i = 0; i < entries && i < palette.size(); ++i) {
            colourMap[i] = static_cast<uint16_t>(palette[i].rgbRed * 257);
            colourMap[entries + i] = static_cast<uint16_t>(palette[i].rgbGreen * 257);
            colourMap[2 * entries + i] = static_cast<uint16_t>(palette[i].rgbBlue * 257);
        }
        TIFFSetField(t, TIFFTAG_COLORMAP, &colourMap[0], &colourMap[entries], &colourMap[2 * entries]);
    }
    if (metadata != nullptr) {
        TIFFSetField(t, TIFFTAG_ORIENTATION, static_cast<uint16_t>(metadata->orientation));
        if (!metadata->icc.empty())
            TIFFSetField(t, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(metadata->icc.size()), metadata->icc.data());
        if (!metadata->xmp.empty())
            TIFFSetField(t, TIFFTAG_XMLPACKET, static_cast<uint32_t>(metadata->xmp.size()), metadata->xmp.data());
    }
    std::vector<uint8_t> row(indexed ? p.RowBytes() : static_cast<size_t>(p.width) * channels);
    for (int y = 0; y < p.height; ++y) {
        if (indexed) {
            std::copy(p.Row(y), p.Row(y) + row.size(), row.begin());
        } else {
            PackRasterRow(raster, y, row.data());
        }
        if (TIFFWriteScanline(t, row.data(), static_cast<uint32_t>(y), 0) < 0) {
            *error = Failure("cannot write TIFF");
            return false;
        }
    }
    if (!TIFFWriteDirectory(t)) {
        *error = Failure("cannot write TIFF");
        return false;
    }
    return true;
}

}  // namespace qeltool
