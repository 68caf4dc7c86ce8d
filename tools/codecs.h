// The per-format readers and writers behind image_file.h. Readers take an
// open, seekable file and return a runtime image or set `error`; they fill
// `metadata` with what the file says beside the pixels. Writers write to an
// open file and report failure through `error`; `metadata` may be null.
// Readers refuse an image of more than `maxPixels` pixels before allocating
// its pixels.
#pragma once

#include <cstdio>
#include <string>

#include "qel/host.h"
#include "tools/image_file.h"
#include "tools/raster.h"

namespace qeltool {

// A new image for a reader: 32-bit "ARGB", 24-bit "BGR " or 1-, 4- or 8-bit
// "MONO" by bit count; null with `error` set when the module cannot make it.
SmartPtr<IQELImageDIB> NewReadImage(const qel::Host& host, long long width, long long height, int bitCount,
                                    std::string* error);

// Row y of a raster packed to the channels a file holds: grey or red, green,
// blue, then alpha when the raster has it. `out` has room for them.
void PackRasterRow(const Raster& raster, int y, uint8_t* out);

SmartPtr<IQEL> ReadPng(FILE* file, const qel::Host& host, long long maxPixels, ImageMetadata* metadata,
                       std::string* error);
bool WritePng(FILE* file, IQEL* image, const ImageMetadata* metadata, std::string* error);

SmartPtr<IQEL> ReadJpeg(FILE* file, const qel::Host& host, long long maxPixels, ImageMetadata* metadata,
                        std::string* error);
bool WriteJpeg(FILE* file, IQEL* image, int quality, const ImageMetadata* metadata, std::string* error);

SmartPtr<IQEL> ReadNetpbm(FILE* file, const qel::Host& host, long long maxPixels, ImageMetadata* metadata,
                          std::string* error);
// kind: 'b' PBM, 'g' PGM, 'p' PPM, 'n' PGM or PPM as the image needs, 'a' PAM.
bool WriteNetpbm(FILE* file, IQEL* image, char kind, std::string* error);

SmartPtr<IQEL> ReadTiff(FILE* file, const qel::Host& host, long long maxPixels, int page,
                        ImageMetadata* metadata, std::string* error);
bool WriteTiff(FILE* file, IQEL* image, const ImageMetadata* metadata, std::string* error);

SmartPtr<IQEL> ReadWebp(FILE* file, const qel::Host& host, long long maxPixels, ImageMetadata* metadata,
                        std::string* error);
bool WriteWebp(FILE* file, IQEL* image, int quality, bool lossless, const ImageMetadata* metadata,
               std::string* error);

SmartPtr<IQEL> ReadGif(FILE* file, const qel::Host& host, long long maxPixels, int frame,
                       ImageMetadata* metadata, std::string* error);
bool WriteGif(FILE* file, IQEL* image, std::string* error);

SmartPtr<IQEL> ReadBmp(FILE* file, const qel::Host& host, long long maxPixels, std::string* error);
bool WriteBmp(FILE* file, IQEL* image, std::string* error);

}  // namespace qeltool
