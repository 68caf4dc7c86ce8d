// What a person means, in the module's exact operations. The module keeps
// its own semantics (palette indices read as grey levels, box averaging that
// leaves alpha as created, angles turned anticlockwise, a 24-bit half turn
// shifted by a column, Add covering three quarters of a 32-bit row); these
// functions wrap its calls so that every kind of image a person opens gives
// the picture they expect. They take plain module images and need no command
// line, so every host (qel, the Python package) shares them.
//
// | Kind of image        | What is done                                          |
// |----------------------|-------------------------------------------------------|
// | palette (any depth)  | expanded to 24-bit colour (32-bit with alpha when the |
// |                      | palette carries it) on reading                        |
// | 1- and 4-bit grey    | expanded to 8-bit grey, 0/255 for bilevel, on reading |
// | 32-bit with alpha    | resample, rotate and add treat alpha as its own plane |
// |                      | so that it survives; copy blends by it                |
// | any                  | rotate turns clockwise; a half turn is exact          |
#pragma once

#include <string>
#include <vector>

#include "qel/host.h"

namespace qeltool {

// How images are read. Both expansions are on unless a person asks to keep
// the file's own layout (--keep-palette, --keep-depth).
struct ReadingChoices {
    bool keepPalette = false;
    bool keepDepth = false;
};

// The image as a person sees it: a palette image becomes 24-bit "BGR " (or
// 32-bit "ARGB" when its palette holds alpha other than fully opaque), a 1-
// or 4-bit image without a palette becomes 8-bit "MONO" with its levels
// spread over 0-255 (bilevel: 0 and 255). Anything else is returned as is.
SmartPtr<IQEL> ExpandForViewing(const qel::Host& host, SmartPtr<IQEL> image, const ReadingChoices& choices);

// Whether the image carries an alpha channel (32-bit, not "MONO" integers).
bool HasAlpha(IQEL* image);

// The alpha bytes of a 32-bit image as an 8-bit "MONO" image of its size.
SmartPtr<IQEL> AlphaPlane(const qel::Host& host, IQEL* image);
// The colour of a 32-bit image as a 24-bit "BGR " image of its size.
SmartPtr<IQEL> ColourPlane(const qel::Host& host, IQEL* image);
// A 32-bit "ARGB" image from a 24-bit colour plane and an 8-bit alpha plane
// of at least its size.
SmartPtr<IQEL> JoinPlanes(const qel::Host& host, IQEL* colour, IQEL* alpha);

// Resample that keeps alpha: the module's Resample on the image, and on an
// image with alpha the alpha plane resampled as its own 8-bit image with the
// same method and put back (box averaging leaves a 32-bit result's alpha as
// created). Images without alpha are resampled as they are.
QResult ResampleKeepingAlpha(IQELTransform* transform, const qel::Host& host, IQEL* image, int width,
                             int height, int method, bool nearestOnly, SmartPtr<IQEL>* result);

// How a rotation fills the corners it uncovers.
struct RotateOptions {
    int method = 3;         // interpolation of whole-degree angles (module method number)
    bool addAlpha = false;  // give an image without alpha an alpha channel first
    bool keepSize = false;  // the result has the image's size, turned about its centre
    bool hasBackground = false;
    unsigned background = 0;  // 0x00RRGGBB, opaque, when hasBackground
};

// The size RotateClockwise makes.
void RotatedSize(int width, int height, double degrees, bool keepSize, long long* newWidth,
                 long long* newHeight);

// Turns the image clockwise by `degrees` (any real number):
//   multiples of 90  exact quarter turns (Rotate; Flip and Mirror for the half turn)
//   whole degrees    Rotate with the chosen interpolation, on a copy with a
//                    five-pixel replicated border so that the picture reaches
//                    its edges, then cut to the turned rectangle
//   other angles     Transform with the affine map (nearest pixel)
// Corners the picture leaves uncovered are transparent on images with alpha
// and the top-left pixel's colour otherwise, unless a background is given.
QResult RotateClockwise(IQELTransform* transform, const qel::Host& host, IQEL* image, double degrees,
                        const RotateOptions& options, SmartPtr<IQEL>* result);

// GrayScale and Threshold as people mean them on 8-bit grey images (no
// palette, or the grey ramp): the module's 8-bit GrayScale, which Threshold
// starts with, mixes each byte with the two after it, as if they were one
// pixel's blue, green and red. Such an image is already grey, so GrayScale
// leaves it; Threshold runs on its 24-bit twin, and the result comes back as
// grey. Other images go to the module as they are.
QResult GrayScaleOfPixels(IQELColorTransform* colour, IQEL* image);
QResult ThresholdOfPixels(IQELColorTransform* colour, const qel::Host& host, int level,
                          SmartPtr<IQEL>* image);

// Add with the whole image computed: on 32-bit images the module leaves the
// last quarter of every row as created, so colour and alpha are added as two
// images (24-bit and 8-bit) and joined. `b` has the format of `a`.
QResult AddWholeImage(IQELMaths* maths, const qel::Host& host, IQEL* a, IQEL* b, float divisor,
                      SmartPtr<IQEL>* result);

// Pastes `source` into `dest` at (x, y), blending by the source's alpha as an
// overlay does (the result's alpha is the union of both). Pixels outside
// `dest` are dropped; returns false when nothing of the source lands in it.
bool BlendOnto(const qel::Host& host, SmartPtr<IQEL>& dest, IQEL* source, int x, int y);

// The lookup table of a curve through the points (IN increasing), straight
// between them, flat before the first and after the last. Every segment,
// rising or falling, rounds half up: a falling 0:255,255:0 is the negative.
void CurveTable(const std::vector<std::pair<int, int>>& points, unsigned char table[256]);

}  // namespace qeltool
