// The module's clamps, one name for each meaning.
#pragma once

#include <cstdint>
#include <type_traits>

// An integer sum to a byte: above 255 gives 255, below 0 gives 0.
template <class Int>
constexpr unsigned char ClampToByte(Int value) {
    static_assert(std::is_integral<Int>::value, "floats have ClampFloatToByte");
    return static_cast<unsigned char>(value > 255 ? 255 : value < 0 ? 0 : value);
}

// A float to a byte: below 0 and NaN give 0, above 255 gives 255, the rest is truncated.
inline unsigned char ClampFloatToByte(float v) {
    float clamped = v > 0.0f ? v : 0.0f;
    clamped = clamped < 255.0f ? clamped : 255.0f;
    return static_cast<unsigned char>(static_cast<int>(clamped));
}
