// The image interfaces the module reads and writes host images through.
#pragma once

#include "qel/unknown.h"

// A host image: size, format and the pixel memory of each plane.
// Row y of a plane starts at bits + y * stride (stride is signed).
struct IQEL : IUnknown {
    virtual QResult GetSize(int* width /*out*/, int* height /*out*/, int* planes /*out*/) = 0;  // slot 3
    virtual QResult GetFormat(int* bitCount /*out*/, unsigned int* colourModel /*out*/,
                              int* reserved /*out*/) = 0;  // slot 4
    virtual QResult GetBits(int plane, int* reserved /*out*/, unsigned char** bits /*out*/,
                            int* stride /*out*/) = 0;  // slot 5
    // Allocates zeroed pixel memory of that format, replacing any previous content.
    virtual QResult Create(int width, int height, int planes, int bitCount,
                           unsigned int colourModel) = 0;  // slot 6
    // Frees the pixel memory; the image becomes 0 x 0 with no format.
    virtual QResult Clear() = 0;  // slot 7

protected:
    ~IQEL() = default;
};

struct IQELImage : IQEL {
    // Replaces size, format, palette and pixels by a copy of the source's.
    virtual QResult Assign(IQEL* source, int flags) = 0;  // slot 8

protected:
    ~IQELImage() = default;
};

struct IQELImageDIB : IQELImage {
    // Sets every pixel to a packed colour (blue in the low byte, alpha high).
    virtual QResult Fill(unsigned int colour) = 0;  // slot 9
    // Sets the image's palette (copied); a count of 0 removes it. At most 256 entries.
    virtual QResult SetPalette(const RGBQUAD* entries, unsigned int count) = 0;  // slot 10

protected:
    ~IQELImageDIB() = default;
};

// Answered only by images that carry a palette.
struct IQELImagePalette : IUnknown {
    virtual QResult SetPalette(const RGBQUAD* entries, unsigned int count) = 0;              // slot 3
    virtual QResult GetPalette(RGBQUAD** entries /*out*/, unsigned int* count /*out*/) = 0;  // slot 4

protected:
    ~IQELImagePalette() = default;
};

// Optional on a host image: Create for a caller that writes every byte of
// every row itself, so that the pixel memory need not be cleared first.
// Only the pixel bytes of the rows are left unset; anything else Create
// guarantees (row padding, memory past the last row) stays as Create gives it.
struct IQELImageUninitialised : IUnknown {
    virtual QResult CreateUninitialised(int width, int height, int planes, int bitCount,
                                        unsigned int colourModel) = 0;  // slot 3

protected:
    ~IQELImageUninitialised() = default;
};

// A caller's coordinate transform: overwrites the point with its image.
struct ITransform : IUnknown {
    virtual QResult TransformPoint(double* x /*in, out*/, double* y /*in, out*/,
                                   double* z /*in, out*/) = 0;  // slot 3

protected:
    ~ITransform() = default;
};
