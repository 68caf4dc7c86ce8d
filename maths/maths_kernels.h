// Pixel kernels of the maths component, on plain plane views: the interface
// methods read images and call these; tests call them directly to compare
// the in-place and the staged row roads.
#pragma once

#include <cstdint>

#include "maths/rows.h"

// Add: the first `rowBytes` bytes of each row, sum then divisor rule.
void AddRows(const MathsPlane& dest, const MathsPlane& a, const MathsPlane& b, int height, size_t rowBytes,
             float divisor, RowStage& stage);

// Subtract for 8-, 24- and 32-bit pixels; returns the tally of stored
// values of 2 or more (counted at 24 and 32 bits only).
uint64_t SubtractRows(const MathsPlane& dest, const MathsPlane& a, const MathsPlane& b, int width, int height,
                      int bitCount, int flags, RowStage& stage);

struct LinearMix {
    float factorA;
    float factorB;
    float offset;
};
// One AddScale row of `count` bytes: a vector step takes the leading bytes
// and returns how many; MixRow finishes the rest with the scalar rule.
size_t MixRowVector(unsigned char* out, const unsigned char* a, const unsigned char* b, size_t count,
                    const LinearMix& mix);
void MixRow(unsigned char* out, const unsigned char* a, const unsigned char* b, size_t count,
            const LinearMix& mix);
// AddScale with one bit count: `bytesPerPixel` bytes of each selected pixel.
void AddScaleSameDepth(const MathsPlane& dest, const MathsPlane& a, const MathsPlane& b,
                       const MathsPlane* mask, int width, int height, int bytesPerPixel, LinearMix mix,
                       RowStage& stage);
// AddScale across depths: bytes 0 to 2 of pixels `*Step` bytes apart.
void AddScaleMixedDepth(const MathsPlane& dest, const MathsPlane& a, const MathsPlane& b,
                        const MathsPlane* mask, int width, int height, int destStep, int aStep, int bStep,
                        LinearMix mix, RowStage& stage);

enum class ScaleCase {
    kMonoToGrey,      // 32-bit integers to bytes
    kMonoToBGR,       // 32-bit integers to 3-byte pixels
    kMonoToMono,      // 32-bit integers to 32-bit integers
    kMonoToBGRA,      // 32-bit integers to bytes 0..2 of 4-byte pixels
    kBGRAToGrey,      // 4-byte colour to grey
    kBGRAToBGR,       // 4-byte colour to 3-byte colour
    kBGRAToBGRA,      // every byte, wrapping above 255
    kBGRToGrey,       // 3-byte colour to grey
    kBGRToBGR,        // every byte
    kBGRToBGRAFirst,  // the first pixel of each row only, wrapping
    kGreyToGrey,      // plane 0 only, optional mask
    kGreyToBGR,       // one byte to three
    kGreyToMono,      // the source read as 32-bit integers
    kUnsupported,
};
ScaleCase ChooseScaleCase(const ImageView& source, const ImageView& dest);
// One plane of a Scale case (planes carry their strides; the case sets the
// row addressing).
void ScaleRows(ScaleCase scaleCase, const MathsPlane& dest, const MathsPlane& source, const MathsPlane* mask,
               int width, int height, float factor, float offset, RowStage& stage);

// One plane of Scale8: the source's samples read as 32-bit integers.
void Scale8Rows(const MathsPlane& dest, const MathsPlane& source, int width, int height, int sourceBitCount,
                int offset, double factor, RowStage& stage);

// One plane of Equal.
void EqualRows(const MathsPlane& image, const MathsPlane* mask, int width, int height, int bitCount,
               unsigned colourModel, int value, RowStage& stage);
