// Nearest-pixel reading and writing for the warps that copy whole pixels
// (Skew, CircleTransform), with the depth chosen once per call.
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "image/image_view.h"
#include "image/pixel.h"

// Which pixel code a kernel runs: the direct path for 8, 24 and 32 bits where it
// applies, or the general pixel helpers everywhere (the reference the fast
// path must match byte for byte).
enum class PixelPath { Fast, General };

// A coordinate that cannot be a pixel of any image: used for sample points
// that came out of the arithmetic as NaN, infinite or beyond int.
constexpr int kNowhere = std::numeric_limits<int>::min();

// trunc(v) as an int, or kNowhere when v is not a number or does not fit.
inline int TruncOrNowhere(double v) {
    if (!(v > -2147483648.0 && v < 2147483648.0)) return kNowhere;
    return static_cast<int>(v);
}

// Reads pixel (x, y) exactly as GetPixelColor does. Depth is 32, 24 or 8 for
// a view of exactly that bit count (inside pixels come straight from the
// row), 0 for any depth (every pixel through GetPixelColor).
template <int Depth>
inline uint32_t ReadNearest(const ImageView& view, int x, int y) {
    if (Depth != 0 && x >= 0 && y >= 0 && x < view.width && y < view.height) {
        const unsigned char* p = view.Row(y) + static_cast<ptrdiff_t>(x) * (Depth / 8);
        if (Depth == 8) return static_cast<uint32_t>(p[0]) * 0x010101u;  // the grey ramp entry
        if (Depth == 32) {
            uint32_t color;
            std::memcpy(&color, p, 4);  // blue in the low byte: the packed colour's byte order
            return color;
        }
        return PackColor(p[0], p[1], p[2], 0);
    }
    return GetPixelColor(view.bits, x, y, view.width, view.height, view.stride, view.bitCount);
}

// Writes pixel (x, y), which the caller keeps inside the view, as
// SetPixelColor does. Depth as for ReadNearest.
template <int Depth>
inline void WriteNearest(const ImageView& view, int x, int y, uint32_t color) {
    if (Depth == 0) {
        SetPixelColor(view.bits, x, y, view.width, view.height, view.stride, color, view.bitCount);
        return;
    }
    unsigned char* p = view.Row(y) + static_cast<ptrdiff_t>(x) * (Depth / 8);
    if (Depth == 8) {
        p[0] = static_cast<unsigned char>(NearestGreyIndex(BlueOf(color), GreenOf(color), RedOf(color)));
    } else if (Depth == 32) {
        std::memcpy(p, &color, 4);
    } else {
        p[0] = static_cast<unsigned char>(BlueOf(color));
        p[1] = static_cast<unsigned char>(GreenOf(color));
        p[2] = static_cast<unsigned char>(RedOf(color));
    }
}

// The depth template argument that serves a view on the given path.
inline int FastDepthOf(const ImageView& view, PixelPath path) {
    if (path == PixelPath::General) return 0;
    return view.bitCount == 32 || view.bitCount == 24 || view.bitCount == 8 ? view.bitCount : 0;
}

// Calls kernel.template Run<SourceDepth, TargetDepth>() with the depths
// chosen once for the whole call.
template <class Kernel>
inline void DispatchNearest(Kernel& kernel, int sourceDepth, int targetDepth) {
    auto withTarget = [&](auto sourceTag) {
        constexpr int S = decltype(sourceTag)::value;
        switch (targetDepth) {
            case 32:
                kernel.template Run<S, 32>();
                break;
            case 24:
                kernel.template Run<S, 24>();
                break;
            case 8:
                kernel.template Run<S, 8>();
                break;
            default:
                kernel.template Run<S, 0>();
                break;
        }
    };
    switch (sourceDepth) {
        case 32:
            withTarget(std::integral_constant<int, 32>{});
            break;
        case 24:
            withTarget(std::integral_constant<int, 24>{});
            break;
        case 8:
            withTarget(std::integral_constant<int, 8>{});
            break;
        default:
            withTarget(std::integral_constant<int, 0>{});
            break;
    }
}

// True when `view` has the geometry and depth an operation asked its new
// image for, so that writing into it stays inside its memory.
inline bool HasLayout(const ImageView& view, int width, int height, int bitCount) {
    return view.width == width && view.height == height && view.bitCount == bitCount &&
           (view.bits != nullptr || width == 0 || height == 0);
}
