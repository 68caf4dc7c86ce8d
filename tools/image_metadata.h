// EXIF orientation: reading it (libexif), rewriting it inside a kept EXIF
// block, and turning pixels so that they show as the orientation says.
#pragma once

#include <string>

#include "qel/host.h"

namespace qeltool {

// The Orientation tag (1-8) of an EXIF block (from its TIFF header on);
// 1 when the block has none or a value out of range.
int ExifOrientation(const std::string& exif);

// Rewrites the Orientation value of IFD0 in place, leaving every other byte
// as it was (re-encoding the block would rewrite maker notes). Returns false
// when the block has no Orientation entry.
bool SetExifOrientation(std::string* exif, int orientation);

// A new image showing `image` as a viewer honouring `orientation` would:
// 6 turns a quarter clockwise, 8 anticlockwise, 3 a half turn, 2 and 4 mirror
// and flip, 5 and 7 transpose. Palette and format are kept; 1 returns a copy.
SmartPtr<IQEL> ApplyOrientation(const qel::Host& host, IQEL* image, int orientation);

}  // namespace qeltool

#include "tools/image_file.h"

namespace qeltool {

// The EXIF block to write for `metadata` (empty when there is none), its
// Orientation set to metadata.orientation.
std::string ExifForWriting(const ImageMetadata& metadata);

// Whether a 1-, 4- or 8-bit image's palette is empty or the plain grey ramp
// (black to white in even steps), so that the image is grey as it stands.
bool IsGreyPalette(const std::vector<RGBQUAD>& palette, int bitCount);

}  // namespace qeltool
