// The pixel kinds kernels are templated over, and the one place that picks
// them for a call. The direct kinds read and write the buffer inline exactly
// as GetPixelColor and SetPixelColor do for a pixel inside the image;
// AnyPixels goes through those helpers and serves every depth.
#pragma once

#include <cstdint>
#include <cstring>

#include "image/image_view.h"
#include "image/pixel.h"

struct GreyPixels {
    static constexpr int kBytes = 1;
    static constexpr int kBitCount = 8;
    static uint32_t Read(const ImageView& v, int x, int y) { return v.Row(y)[x] * 0x010101u; }  // the grey ramp entry
    static void Write(const ImageView& v, int x, int y, uint32_t c) {
        v.Row(y)[x] = static_cast<unsigned char>(NearestGreyIndex(BlueOf(c), GreenOf(c), RedOf(c)));
    }
};
struct BgrPixels {
    static constexpr int kBytes = 3;
    static constexpr int kBitCount = 24;
    static uint32_t Read(const ImageView& v, int x, int y) {
        const unsigned char* p = v.Row(y) + static_cast<ptrdiff_t>(x) * 3;
        return PackColor(p[0], p[1], p[2], 0);
    }
    static void Write(const ImageView& v, int x, int y, uint32_t c) {
        unsigned char* p = v.Row(y) + static_cast<ptrdiff_t>(x) * 3;
        p[0] = static_cast<unsigned char>(BlueOf(c));
        p[1] = static_cast<unsigned char>(GreenOf(c));
        p[2] = static_cast<unsigned char>(RedOf(c));
    }
};
struct BgraPixels {
    static constexpr int kBytes = 4;
    static constexpr int kBitCount = 32;
    // Blue in the low byte: the packed colour's byte order is the stored one.
    static uint32_t Read(const ImageView& v, int x, int y) {
        uint32_t c;
        std::memcpy(&c, v.Row(y) + static_cast<ptrdiff_t>(x) * 4, 4);
        return c;
    }
    static void Write(const ImageView& v, int x, int y, uint32_t c) {
        std::memcpy(v.Row(y) + static_cast<ptrdiff_t>(x) * 4, &c, 4);
    }
};
struct AnyPixels {
    static constexpr int kBytes = 0;
    static constexpr int kBitCount = 0;
    static uint32_t Read(const ImageView& v, int x, int y) {
        return GetPixelColor(v.bits, x, y, v.width, v.height, v.stride, v.bitCount);
    }
    static void Write(const ImageView& v, int x, int y, uint32_t c) {
        SetPixelColor(v.bits, x, y, v.width, v.height, v.stride, c, v.bitCount);
    }
};

// Pixel (x, y) anywhere: inside through Kind, outside as GetPixelColor gives it.
template <class Kind>
inline uint32_t ReadOrOutside(const ImageView& v, int x, int y) {
    if (Kind::kBytes != 0 && x >= 0 && y >= 0 && x < v.width && y < v.height) return Kind::Read(v, x, y);
    return AnyPixels::Read(v, x, y);
}

// Whether `view` has a direct kind: 8, 24 or 32 bits with pixels.
inline bool HasDirectKind(const ImageView& view) {
    return view.bits != nullptr && (view.bitCount == 8 || view.bitCount == 24 || view.bitCount == 32);
}

// Calls fn(kind) with the kind serving `view`, chosen once per call: its
// direct kind when `direct` allows one, AnyPixels otherwise.
template <class Fn>
void WithPixelKind(const ImageView& view, bool direct, Fn&& fn) {
    if (direct && view.bits != nullptr) {
        switch (view.bitCount) {
            case 8:
                fn(GreyPixels{});
                return;
            case 24:
                fn(BgrPixels{});
                return;
            case 32:
                fn(BgraPixels{});
                return;
            default:
                break;
        }
    }
    fn(AnyPixels{});
}

// Calls fn(sourceKind, targetKind) for a kernel reading one image and writing
// another, both chosen once per call.
template <class Fn>
void WithPixelKinds(const ImageView& source, const ImageView& target, bool direct, Fn&& fn) {
    WithPixelKind(source, direct, [&](auto sourceKind) {
        WithPixelKind(target, direct, [&](auto targetKind) { fn(sourceKind, targetKind); });
    });
}
