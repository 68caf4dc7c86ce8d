// The pixel limit: the largest image, counted in pixels, that qel reads from a
// file or asks the module to make. It keeps a hostile header or an argument
// such as "resample 1000%" from asking for gigabytes.
#pragma once

#include <string>

namespace qeltool {

// 2^28 pixels: 1 GiB at 32 bits per pixel.
constexpr long long kDefaultPixelLimit = 1LL << 28;

// Parses a --max-pixels value: a plain whole number from 1 up.
bool ParsePixelLimit(const std::string& text, long long* limit);

// Whether a width x height image may be made under `limit`. If not, `error`
// says why, beginning with `what`, for example
// "result 163840x163840 is above the pixel limit 268435456 (--max-pixels)".
bool WithinPixelLimit(long long width, long long height, long long limit, const std::string& what,
                      std::string* error);

}  // namespace qeltool
