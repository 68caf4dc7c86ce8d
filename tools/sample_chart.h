// The built-in images: a colourful test chart (so that qel works with nothing
// to download) and a second pattern for the two-image operations; plus the
// small bitmap font that labels the chart and the gallery's contact sheet.
#pragma once

#include <string>

#include "tools/raster.h"

namespace qeltool {

constexpr int kSampleWidth = 320;
constexpr int kSampleHeight = 240;

// Gradients, colour bars, fine lines and edges, lettering and, on the right,
// an alpha ramp from transparent to opaque. 32-bit "ARGB" as a module image.
Raster SampleChart();

// The chart as a module image, held to the pixel limit like an image read from
// a file; on refusal `error` begins with "sample: ".
SmartPtr<IQEL> LoadSampleChart(const qel::Host& host, long long maxPixels, std::string* error);

// Concentric rings, every other one black, coloured in a checkerboard; opaque.
Raster SamplePattern(int width, int height);

// Draws text in a 5x7 bitmap font (upper-case letters, digits and a little
// punctuation; lower case is drawn as upper case), `scale` pixels per dot.
void DrawText(Raster* raster, int x, int y, const std::string& text, const uint8_t rgba[4], int scale = 1);

}  // namespace qeltool
