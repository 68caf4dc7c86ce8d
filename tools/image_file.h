// Reading and writing image files: PNG (libpng), JPEG (libjpeg-turbo) and the
// netpbm formats. Loading picks the module format a user expects; saving picks
// the file format by the name's extension and never leaves a partial file.
#pragma once

#include <string>

#include "qel/host.h"

namespace qeltool {

// Loads `path` into a new runtime image:
//   grey (any depth but 1)        -> 8-bit "MONO"
//   1-bit grey PNG, PBM           -> 1-bit "MONO" (bit set = white)
//   palette PNG                   -> 8-bit (1-bit for 1-bit palettes) with its palette set
//   RGB                           -> 24-bit "BGR "
//   RGBA, grey+alpha, transparency-> 32-bit "ARGB"
// 16-bit samples are reduced to 8. An image of more than `maxPixels` pixels is
// refused before its pixels are allocated. On failure returns an empty pointer
// and sets `error` to the reason (the caller adds the file name).
SmartPtr<IQEL> LoadImageFile(const qel::Host& host, const std::string& path, long long maxPixels,
                             std::string* error);

// True when the name ends in an extension that SaveImageFile can write.
bool IsWritableImageName(const std::string& path);

// Writes the image to `path` by its extension (.png, .jpg/.jpeg, .pgm, .ppm,
// .pnm, .pam). The file is written under a temporary name in the same folder
// and renamed only when complete. `quality` (1-100) is used for JPEG.
bool SaveImageFile(IQEL* image, const std::string& path, int quality, std::string* error);

}  // namespace qeltool

namespace qeltool {

// Writes text to `path` through a temporary file renamed into place.
bool SaveTextFile(const std::string& text, const std::string& path, std::string* error);

}  // namespace qeltool
