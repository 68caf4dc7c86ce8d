// The built-in test chart and pattern, drawn by arithmetic, and a 5x7 font.
#include "tools/sample_chart.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>

#include "tools/pixel_limit.h"

namespace qeltool {
namespace {

// Seven rows of five dots each, the top bit of five being the leftmost dot.
struct Glyph {
    char c;
    uint8_t rows[7];
};

const Glyph kFont[] = {
    {'A', {14, 17, 17, 31, 17, 17, 17}}, {'B', {30, 17, 17, 30, 17, 17, 30}},
    {'C', {14, 17, 16, 16, 16, 17, 14}}, {'D', {30, 17, 17, 17, 17, 17, 30}},
    {'E', {31, 16, 16, 30, 16, 16, 31}}, {'F', {31, 16, 16, 30, 16, 16, 16}},
    {'G', {14, 17, 16, 23, 17, 17, 15}}, {'H', {17, 17, 17, 31, 17, 17, 17}},
    {'I', {14, 4, 4, 4, 4, 4, 14}},      {'J', {7, 2, 2, 2, 2, 18, 12}},
    {'K', {17, 18, 20, 24, 20, 18, 17}}, {'L', {16, 16, 16, 16, 16, 16, 31}},
    {'M', {17, 27, 21, 21, 17, 17, 17}}, {'N', {17, 17, 25, 21, 19, 17, 17}},
    {'O', {14, 17, 17, 17, 17, 17, 14}}, {'P', {30, 17, 17, 30, 16, 16, 16}},
    {'Q', {14, 17, 17, 17, 21, 18, 13}}, {'R', {30, 17, 17, 30, 20, 18, 17}},
    {'S', {15, 16, 16, 14, 1, 1, 30}},   {'T', {31, 4, 4, 4, 4, 4, 4}},
    {'U', {17, 17, 17, 17, 17, 17, 14}}, {'V', {17, 17, 17, 17, 17, 10, 4}},
    {'W', {17, 17, 17, 21, 21, 21, 10}}, {'X', {17, 17, 10, 4, 10, 17, 17}},
    {'Y', {17, 17, 10, 4, 4, 4, 4}},     {'Z', {31, 1, 2, 4, 8, 16, 31}},
    {'0', {14, 17, 19, 21, 25, 17, 14}}, {'1', {4, 12, 4, 4, 4, 4, 14}},
    {'2', {14, 17, 1, 2, 4, 8, 31}},     {'3', {31, 2, 4, 2, 1, 17, 14}},
    {'4', {2, 6, 10, 18, 31, 2, 2}},     {'5', {31, 16, 30, 1, 1, 17, 14}},
    {'6', {6, 8, 16, 30, 17, 17, 14}},   {'7', {31, 1, 2, 4, 8, 8, 8}},
    {'8', {14, 17, 17, 14, 17, 17, 14}}, {'9', {14, 17, 17, 15, 1, 2, 12}},
    {'.', {0, 0, 0, 0, 0, 12, 12}},      {',', {0, 0, 0, 0, 12, 4, 8}},
    {'-', {0, 0, 0, 31, 0, 0, 0}},       {'+', {0, 4, 4, 31, 4, 4, 0}},
    {':', {0, 12, 12, 0, 12, 12, 0}},    {'/', {0, 1, 2, 4, 8, 16, 0}},
    {'(', {2, 4, 8, 8, 8, 4, 2}},        {')', {8, 4, 2, 2, 2, 4, 8}},
    {'=', {0, 0, 31, 0, 31, 0, 0}},      {'%', {24, 25, 2, 4, 8, 19, 3}},
    {'_', {0, 0, 0, 0, 0, 0, 31}},       {'?', {14, 17, 1, 2, 4, 0, 4}},
};

const Glyph* FindGlyph(char c) {
    const char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    for (const Glyph& glyph : kFont)
        if (glyph.c == upper) return &glyph;
    return nullptr;
}

void Put(Raster* raster, int x, int y, uint8_t r, uint8_t g, uint8_t b, uint8_t a = 255) {
    if (x < 0 || y < 0 || x >= raster->width || y >= raster->height) return;
    uint8_t* p = raster->At(x, y);
    p[0] = r, p[1] = g, p[2] = b, p[3] = a;
}

uint8_t Byte(double v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v + 0.5); }

// A fully saturated colour of the hue wheel, h in [0, 1).
void Hue(double h, uint8_t* r, uint8_t* g, uint8_t* b) {
    const double k[3] = {std::fmod(5 + h * 6, 6), std::fmod(3 + h * 6, 6), std::fmod(1 + h * 6, 6)};
    uint8_t* out[3] = {r, g, b};
    for (int i = 0; i < 3; ++i)
        *out[i] = Byte(255 * (1 - std::fmax(0, std::fmin(std::fmin(k[i], 4 - k[i]), 1))));
}

}  // namespace

void DrawText(Raster* raster, int x, int y, const std::string& text, const uint8_t rgba[4], int scale) {
    for (char c : text) {
        if (const Glyph* glyph = FindGlyph(c)) {
            for (int row = 0; row < 7; ++row)
                for (int col = 0; col < 5; ++col)
                    if (glyph->rows[row] & (16 >> col))
                        for (int dy = 0; dy < scale; ++dy)
                            for (int dx = 0; dx < scale; ++dx)
                                Put(raster, x + col * scale + dx, y + row * scale + dy, rgba[0], rgba[1],
                                    rgba[2], rgba[3]);
        }
        x += 6 * scale;
    }
}

Raster SampleChart() {
    const int w = kSampleWidth, h = kSampleHeight;
    Raster chart(w, h);
    chart.grey = false;
    chart.alpha = true;
    // Top band: the hue wheel left to right, fading to white towards the top.
    for (int y = 0; y < 60; ++y)
        for (int x = 0; x < 256; ++x) {
            uint8_t r, g, b;
            Hue(x / 256.0, &r, &g, &b);
            const double t = y / 59.0;
            Put(&chart, x, y, Byte(255 + (r - 255) * t), Byte(255 + (g - 255) * t),
                Byte(255 + (b - 255) * t));
        }
    // Grey ramp, then red, green and blue ramps.
    for (int x = 0; x < 256; ++x) {
        const uint8_t v = static_cast<uint8_t>(x);
        for (int y = 60; y < 76; ++y) Put(&chart, x, y, v, v, v);
        for (int y = 76; y < 86; ++y) Put(&chart, x, y, v, 0, 0);
        for (int y = 86; y < 96; ++y) Put(&chart, x, y, 0, v, 0);
        for (int y = 96; y < 106; ++y) Put(&chart, x, y, 0, 0, v);
    }
    // Colour bars with hard vertical edges.
    const uint8_t bars[8][3] = {{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0},
                                {255, 0, 255},   {255, 0, 0},   {0, 0, 255},   {0, 0, 0}};
    for (int y = 106; y < 146; ++y)
        for (int x = 0; x < 256; ++x) Put(&chart, x, y, bars[x / 32][0], bars[x / 32][1], bars[x / 32][2]);
    // Fine detail: one-pixel lines at widening spacing, a checkerboard and a diagonal.
    for (int y = 146; y < 186; ++y)
        for (int x = 0; x < 256; ++x) {
            bool on;
            if (x < 96)
                on = (x % (2 + x / 24)) == 0;
            else if (x < 176)
                on = ((x / 4) + (y / 4)) % 2 == 0;
            else
                on = std::abs((x - 176) - (y - 146) * 2) < 2 || ((x - 176) % 16 == 0);
            const uint8_t v = on ? 230 : 25;
            Put(&chart, x, y, v, v, static_cast<uint8_t>(on ? 200 : 60));
        }
    // Lettering on a dark band: text-like detail of several sizes.
    for (int y = 186; y < h; ++y)
        for (int x = 0; x < 256; ++x) Put(&chart, x, y, 32, 40, 64);
    const uint8_t white[4] = {255, 255, 255, 255}, yellow[4] = {255, 220, 40, 255};
    DrawText(&chart, 6, 192, "QEL TEST CHART", white, 2);
    DrawText(&chart, 6, 212, "0123456789 ABCDEFGHIJKLMNOPQRSTUVWXYZ", yellow, 1);
    DrawText(&chart, 6, 224, "THE QUICK BROWN FOX, 3.14 + 2/7 = ?", white, 1);
    // Right strip: an alpha ramp over a colour disc, transparent at the top.
    for (int y = 0; y < h; ++y)
        for (int x = 256; x < w; ++x) {
            const double dx = x - 288.0, dy = (y % 64) - 32.0;
            uint8_t r = 200, g = 200, b = 210;
            if (dx * dx + dy * dy < 26 * 26) Hue(std::atan2(dy, dx) / (2 * M_PI) + 0.5, &r, &g, &b);
            Put(&chart, x, y, r, g, b, static_cast<uint8_t>(y * 255 / (h - 1)));
        }
    return chart;
}

Raster SamplePattern(int width, int height) {
    Raster pattern(width, height);
    pattern.grey = false;
    const double cx = width / 2.0, cy = height / 2.0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double d = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy));
            const bool ring = static_cast<int>(d / 12) % 2 == 0;
            const bool check = ((x / 20) + (y / 20)) % 2 == 0;
            // Every other ring is black, so that the pattern also serves as a mask.
            if (!ring) {
                Put(&pattern, x, y, 0, 0, 0);
                continue;
            }
            Put(&pattern, x, y, 190, static_cast<uint8_t>(check ? 190 : 65),
                static_cast<uint8_t>(x * 255 / std::max(1, width - 1)));
        }
    return pattern;
}

SmartPtr<IQEL> LoadSampleChart(const qel::Host& host, long long maxPixels, std::string* error) {
    std::string reason;
    if (!WithinPixelLimit(kSampleWidth, kSampleHeight, maxPixels, "image", &reason)) {
        *error = "sample: " + reason;
        return SmartPtr<IQEL>();
    }
    return FromRaster(host, SampleChart(), 32, QEL_MODEL_ARGB);
}

}  // namespace qeltool
