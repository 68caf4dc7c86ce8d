// Reading and writing image files: PNG (libpng), JPEG (libjpeg-turbo), TIFF
// (libtiff), WebP (libwebp), GIF (giflib), BMP and the netpbm formats. Loading
// picks the module format a user expects and the format by the bytes; saving
// picks the file format by the name's extension (or an explicit one) and never
// leaves a partial file. "-" stands for standard input or output.
#pragma once

#include <string>
#include <vector>

#include "qel/host.h"

namespace qeltool {

// What a file says about its image beyond the pixels, carried from the reader
// to the writer. Blobs are kept as the file held them.
struct ImageMetadata {
    std::string exif;  // the EXIF block from its TIFF header on (no "Exif\0\0")
    std::string xmp;   // the XMP packet
    std::string icc;   // the ICC colour profile
    int orientation = 1;         // EXIF orientation 1-8 of the pixels as they now are
    std::string format;          // "PNG", "JPEG", "TIFF", "WebP", "GIF", "BMP", "netpbm"
    int bitsPerSample = 8;       // in the file, before reduction to the module's 8
    int pages = 1;               // frames or pages in the file, where the format tells
    std::vector<std::string> notes;  // things the user may want to hear ("16-bit samples read as 8-bit")
};

struct LoadOptions {
    long long maxPixels = 0;
    bool autorotate = true;  // turn the pixels as the EXIF orientation says, then reset it to 1
    int page = 0;            // page of a multi-page TIFF (or frame of a GIF)
};

// Loads `path` into a new runtime image:
//   grey (any depth but 1)        -> 8-bit "MONO"
//   1-bit grey PNG, PBM, TIFF     -> 1-bit "MONO" (bit set = white)
//   palette PNG, GIF, BMP         -> 8-bit (1-bit for 1-bit palettes) with its palette set
//   RGB                           -> 24-bit "BGR "
//   RGBA, grey+alpha, transparency-> 32-bit "ARGB"
// 16-bit samples are reduced to 8 (with a note). An image of more than
// `maxPixels` pixels is refused before its pixels are allocated. A path ending
// in "[N]" names page N (from 0) of a multi-page file. On failure returns an
// empty pointer and sets `error` to the reason (the caller adds the file name).
SmartPtr<IQEL> LoadImageFile(const qel::Host& host, const std::string& path, const LoadOptions& options,
                             ImageMetadata* metadata, std::string* error);
SmartPtr<IQEL> LoadImageFile(const qel::Host& host, const std::string& path, long long maxPixels,
                             std::string* error);

// The extensions SaveImageFile writes, lower case.
const std::vector<std::string>& WritableExtensions();

// True when the name ends in an extension that SaveImageFile can write.
bool IsWritableImageName(const std::string& path);

struct SaveOptions {
    int quality = 90;            // JPEG, and WebP when lossy
    bool webpLossless = true;    // WebP keeps the pixels exactly unless a quality was asked for
    std::string format;          // an extension ("png") overriding the name's; needed for "-"
};

// Writes the image to `path` by its extension (.png, .jpg/.jpeg, .tif/.tiff,
// .webp, .gif, .bmp, .pbm, .pgm, .ppm, .pnm, .pam) or options.format. The file
// is written under a temporary name in the same folder and renamed only when
// complete; "-" writes standard output once the whole file is encoded.
// `metadata`, when given, supplies the EXIF, XMP and ICC blocks for formats
// that hold them; the orientation written is metadata->orientation.
bool SaveImageFile(IQEL* image, const std::string& path, const SaveOptions& options,
                   const ImageMetadata* metadata, std::string* error);
bool SaveImageFile(IQEL* image, const std::string& path, int quality, std::string* error);

}  // namespace qeltool

namespace qeltool {

// Writes text to `path` through a temporary file renamed into place.
bool SaveTextFile(const std::string& text, const std::string& path, std::string* error);

}  // namespace qeltool
