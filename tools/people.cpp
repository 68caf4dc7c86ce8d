// The translation between what a person means and the module's operations.
#include "tools/people.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "tools/image_metadata.h"
#include "tools/operation_kit.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

int BytesPerPixel(int bitCount) { return bitCount / 8; }

SmartPtr<IQEL> NewPlain(const qel::Host& host, int width, int height, int bitCount, unsigned model) {
    SmartPtr<IQELImageDIB> image = host.NewImage(width, height, bitCount, model);
    return SmartPtr<IQEL>(image.Detach());
}

// A palette carries alpha when its reserved bytes are not all 0 (the usual
// "unused") and not all 255.
bool PaletteHasAlpha(const std::vector<RGBQUAD>& palette) {
    bool zero = true, opaque = true;
    for (const RGBQUAD& entry : palette) {
        zero = zero && entry.rgbReserved == 0;
        opaque = opaque && entry.rgbReserved == 255;
    }
    return !zero && !opaque;
}

// A copy of an 8-, 24- or 32-bit image with `margin` pixels on every side,
// each repeating the nearest edge pixel, so that a warp reading near the edge
// sees the picture continue rather than a fill.
SmartPtr<IQEL> PadByRepeating(const qel::Host& host, IQEL* image, int margin) {
    const qel::Pixels p = qel::PixelsOf(image);
    const int bytes = BytesPerPixel(p.bitCount);
    if (p.width <= 0 || p.height <= 0) return SmartPtr<IQEL>();
    SmartPtr<IQEL> padded =
        NewPlain(host, p.width + 2 * margin, p.height + 2 * margin, p.bitCount, p.colourModel);
    if (!padded) return padded;
    const qel::Pixels q = qel::PixelsOf(padded.Get());
    for (int y = 0; y < q.height; ++y) {
        const uint8_t* from = p.Row(std::clamp(y - margin, 0, p.height - 1));
        uint8_t* to = q.Row(y);
        for (int x = 0; x < q.width; ++x)
            std::memcpy(to + static_cast<size_t>(x) * bytes,
                        from + static_cast<size_t>(std::clamp(x - margin, 0, p.width - 1)) * bytes, bytes);
    }
    return padded;
}

// The colour of uncovered corners, as the bytes of one pixel of `image`.
void BackgroundBytes(IQEL* image, const RotateOptions& options, uint8_t out[4]) {
    const qel::Pixels p = qel::PixelsOf(image);
    const int bytes = BytesPerPixel(p.bitCount);
    std::memset(out, 0, 4);
    if (options.hasBackground) {
        const uint8_t r = options.background >> 16 & 0xFF, g = options.background >> 8 & 0xFF,
                      b = options.background & 0xFF;
        if (bytes == 1) {
            out[0] = static_cast<uint8_t>((77 * r + 150 * g + 29 * b + 128) >> 8);
        } else {
            out[0] = b, out[1] = g, out[2] = r, out[3] = 255;
        }
        return;
    }
    if (HasAlpha(image)) return;  // transparent
    std::memcpy(out, p.Row(0), static_cast<size_t>(bytes));
}

// The rotation of a whole-degree angle through the module's Rotate, which
// turns by minus its angle and never samples a margin of about four pixels
// along the source's edges: it runs on a copy with a replicated border and
// the result is cut to the turned rectangle of the image itself.
QResult RotateInterpolated(IQELTransform* transform, const qel::Host& host, IQEL* image, int degrees,
                           const RotateOptions& options, long long width, long long height,
                           SmartPtr<IQEL>* result) {
    constexpr int kMargin = 5;
    const qel::Pixels p = qel::PixelsOf(image);
    SmartPtr<IQEL> padded = PadByRepeating(host, image, kMargin);
    if (!padded) return QEL_E_OUTOFMEMORY;
    SmartPtr<IQEL> turned;
    const QResult rotated = transform->Rotate(padded.Get(), turned.Out(), -degrees, options.method, 0, 0);
    if (rotated < 0) return rotated;
    if (!turned) return QEL_E_POINTER;
    const qel::Pixels t = qel::PixelsOf(turned.Get());
    // The module's turned frame, in single precision as it computes it.
    const float theta = static_cast<float>(degrees) * 1.5707964f / 90.0f;
    const float k = static_cast<float>(std::cos(static_cast<double>(theta)));
    const float s = static_cast<float>(std::sin(static_cast<double>(theta)));
    const auto frame = [&](int w, int h, int newW, int newH, float* startX, float* startY) {
        const float right = static_cast<float>(w) - 0.5f, bottom = static_cast<float>(h) - 0.5f;
        const float cx[4] = {-0.5f, right, -0.5f, right}, cy[4] = {-0.5f, -0.5f, bottom, bottom};
        float minX = 0, maxX = 0, minY = 0, maxY = 0;
        for (int i = 0; i < 4; ++i) {
            const float x = k * cx[i] - s * cy[i], y = s * cx[i] + k * cy[i];
            minX = i == 0 ? x : std::min(minX, x), maxX = i == 0 ? x : std::max(maxX, x);
            minY = i == 0 ? y : std::min(minY, y), maxY = i == 0 ? y : std::max(maxY, y);
        }
        *startX = (minX + maxX - static_cast<float>(newW - 1)) * 0.5f;
        *startY = (minY + maxY - static_cast<float>(newH - 1)) * 0.5f;
    };
    float paddedX = 0, paddedY = 0, wantedX = 0, wantedY = 0;
    frame(p.width + 2 * kMargin, p.height + 2 * kMargin, t.width, t.height, &paddedX, &paddedY);
    frame(p.width, p.height, static_cast<int>(width), static_cast<int>(height), &wantedX, &wantedY);
    // The border moves the image's origin by (margin, margin), which the turn
    // carries into the turned frame.
    const float shiftX = static_cast<float>(kMargin) * (k - s),
                shiftY = static_cast<float>(kMargin) * (s + k);
    const int offsetX = static_cast<int>(std::lround(wantedX + shiftX - paddedX));
    const int offsetY = static_cast<int>(std::lround(wantedY + shiftY - paddedY));

    SmartPtr<IQEL> cut =
        NewPlain(host, static_cast<int>(width), static_cast<int>(height), t.bitCount, t.colourModel);
    if (!cut) return QEL_E_OUTOFMEMORY;
    const qel::Pixels c = qel::PixelsOf(cut.Get());
    const int bytes = BytesPerPixel(t.bitCount);
    uint8_t background[4];
    BackgroundBytes(image, options, background);
    for (int y = 0; y < c.height; ++y) {
        uint8_t* to = c.Row(y);
        for (int x = 0; x < c.width; ++x, to += bytes) {
            const int i = x + offsetX, j = y + offsetY;
            // Where the drawn pixel was sampled, in the image's own pixels.
            const float X = paddedX + static_cast<float>(i), Y = paddedY + static_cast<float>(j);
            const float sx = k * X + s * Y - kMargin, sy = k * Y - s * X - kMargin;
            const bool covered = i >= 0 && j >= 0 && i < t.width && j < t.height && sx >= -0.5f &&
                                 sy >= -0.5f && sx < static_cast<float>(p.width) - 0.5f &&
                                 sy < static_cast<float>(p.height) - 0.5f;
            std::memcpy(to, covered ? t.Row(j) + static_cast<size_t>(i) * bytes : background,
                        static_cast<size_t>(bytes));
        }
    }
    *result = std::move(cut);
    return QEL_OK;
}

// Any other angle through Transform: each result pixel's centre is turned
// back about the centres of both images and the source pixel under it copied.
QResult RotateNearest(IQELTransform* transform, IQEL* image, double degrees, const RotateOptions& options,
                      long long width, long long height, SmartPtr<IQEL>* result) {
    const qel::Pixels p = qel::PixelsOf(image);
    const double radians = degrees * M_PI / 180.0;
    const double k = std::cos(radians), s = std::sin(radians);
    const double cx = static_cast<double>(width) / 2 - 0.5, cy = static_cast<double>(height) / 2 - 0.5;
    AffineTransform map({k, s, p.width / 2.0 - k * cx - s * cy, -s, k, p.height / 2.0 + s * cx - k * cy});
    SmartPtr<IQEL> turned;
    const QResult done = transform->Transform(&map, image, turned.Out(), 0, 0, static_cast<unsigned>(width),
                                              static_cast<unsigned>(height), 0, 0);
    if (done < 0) return done;
    if (!turned) return QEL_E_POINTER;
    const qel::Pixels t = qel::PixelsOf(turned.Get());
    const int bytes = BytesPerPixel(t.bitCount);
    uint8_t background[4];
    BackgroundBytes(image, options, background);
    for (int y = 0; y < t.height; ++y) {
        uint8_t* row = t.Row(y);
        for (int x = 0; x < t.width; ++x) {
            double X = x, Y = y, Z = 0;
            map.TransformPoint(&X, &Y, &Z);  // the very test Transform made
            if (!(X >= 0 && X < p.width && Y >= 0 && Y < p.height))
                std::memcpy(row + static_cast<size_t>(x) * bytes, background, static_cast<size_t>(bytes));
        }
    }
    *result = std::move(turned);
    return QEL_OK;
}

// Floor of a / b for b > 0.
int FloorDivide(int a, int b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

}  // namespace

bool HasAlpha(IQEL* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    return p.bitCount == 32 && p.colourModel != QEL_MODEL_MONO;
}

SmartPtr<IQEL> ExpandForViewing(const qel::Host& host, SmartPtr<IQEL> image, const ReadingChoices& choices) {
    if (!image) return image;
    const qel::Pixels p = qel::PixelsOf(image.Get());
    if (p.bitCount > 8) return image;
    const std::vector<RGBQUAD> palette = PaletteOf(image.Get());
    // Grey 1- and 4-bit images keep their bits, whether or not the file spelled out the grey ramp.
    if (choices.keepDepth && p.bitCount < 8 && IsGreyPalette(palette, p.bitCount)) return image;
    if (!palette.empty()) {
        if (choices.keepPalette) return image;
        Raster raster = ToRaster(image.Get());
        if (!PaletteHasAlpha(palette)) return FromRaster(host, raster, 24, QEL_MODEL_BGR);
        const unsigned mask = (1u << p.bitCount) - 1;
        for (int y = 0; y < p.height; ++y)
            for (int x = 0; x < p.width; ++x) {
                const int bit = x * p.bitCount;
                const unsigned index =
                    p.bitCount == 8 ? p.Row(y)[x] : p.Row(y)[bit / 8] >> (8 - p.bitCount - bit % 8) & mask;
                raster.At(x, y)[3] = index < palette.size() ? palette[index].rgbReserved : 0;
            }
        return FromRaster(host, raster, 32, QEL_MODEL_ARGB);
    }
    if (p.bitCount == 8) return image;
    return FromRaster(host, ToRaster(image.Get()), 8, QEL_MODEL_MONO);
}

SmartPtr<IQEL> AlphaPlane(const qel::Host& host, IQEL* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    SmartPtr<IQEL> alpha = NewPlain(host, p.width, p.height, 8, QEL_MODEL_MONO);
    if (!alpha) return alpha;
    const qel::Pixels a = qel::PixelsOf(alpha.Get());
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x) a.Row(y)[x] = p.Row(y)[4 * x + 3];
    return alpha;
}

SmartPtr<IQEL> ColourPlane(const qel::Host& host, IQEL* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    SmartPtr<IQEL> colour = NewPlain(host, p.width, p.height, 24, QEL_MODEL_BGR);
    if (!colour) return colour;
    const qel::Pixels c = qel::PixelsOf(colour.Get());
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x) std::memcpy(c.Row(y) + 3 * x, p.Row(y) + 4 * x, 3);
    return colour;
}

SmartPtr<IQEL> JoinPlanes(const qel::Host& host, IQEL* colour, IQEL* alpha) {
    const qel::Pixels c = qel::PixelsOf(colour), a = qel::PixelsOf(alpha);
    SmartPtr<IQEL> joined = NewPlain(host, c.width, c.height, 32, QEL_MODEL_ARGB);
    if (!joined || a.width < c.width || a.height < c.height) return SmartPtr<IQEL>();
    const qel::Pixels j = qel::PixelsOf(joined.Get());
    for (int y = 0; y < c.height; ++y)
        for (int x = 0; x < c.width; ++x) {
            std::memcpy(j.Row(y) + 4 * x, c.Row(y) + 3 * x, 3);
            j.Row(y)[4 * x + 3] = a.Row(y)[x];
        }
    return joined;
}

QResult ResampleKeepingAlpha(IQELTransform* transform, const qel::Host& host, IQEL* image, int width,
                             int height, int method, bool nearestOnly, SmartPtr<IQEL>* result) {
    SmartPtr<IQEL> made;
    const QResult resampled =
        transform->Resample(image, made.Out(), width, height, method, nearestOnly ? 1 : 0);
    if (resampled < 0) return resampled;
    if (!made) return QEL_E_POINTER;
    if (HasAlpha(image)) {
        SmartPtr<IQEL> alpha = AlphaPlane(host, image), smallAlpha;
        if (!alpha) return QEL_E_OUTOFMEMORY;
        const QResult plane =
            transform->Resample(alpha.Get(), smallAlpha.Out(), width, height, method, nearestOnly ? 1 : 0);
        if (plane < 0) return plane;
        if (!smallAlpha) return QEL_E_POINTER;
        const qel::Pixels m = qel::PixelsOf(made.Get()), a = qel::PixelsOf(smallAlpha.Get());
        for (int y = 0; y < m.height; ++y)
            for (int x = 0; x < m.width; ++x) m.Row(y)[4 * x + 3] = a.Row(y)[x];
    }
    *result = std::move(made);
    return QEL_OK;
}

void RotatedSize(int width, int height, double degrees, bool keepSize, long long* newWidth,
                 long long* newHeight) {
    *newWidth = width, *newHeight = height;
    if (keepSize) return;
    const double turns = std::remainder(degrees, 360.0);
    if (turns == 90 || turns == -90) {
        *newWidth = height, *newHeight = width;
        return;
    }
    if (turns == 0 || turns == 180 || turns == -180) return;
    if (turns == std::floor(turns)) {
        // Whole degrees: the turned rectangle as the module measures it.
        const float theta = static_cast<float>(turns) * 1.5707964f / 90.0f;
        const float k = std::fabs(static_cast<float>(std::cos(static_cast<double>(theta))));
        const float s = std::fabs(static_cast<float>(std::sin(static_cast<double>(theta))));
        *newWidth = static_cast<long long>(std::floor(k * width + s * height + 0.5f));
        *newHeight = static_cast<long long>(std::floor(s * width + k * height + 0.5f));
        return;
    }
    const double radians = turns * M_PI / 180.0;
    const double k = std::fabs(std::cos(radians)), s = std::fabs(std::sin(radians));
    *newWidth = std::max(1LL, std::llround(k * width + s * height));
    *newHeight = std::max(1LL, std::llround(s * width + k * height));
}

QResult RotateClockwise(IQELTransform* transform, const qel::Host& host, IQEL* image, double degrees,
                        const RotateOptions& options, SmartPtr<IQEL>* result) {
    SmartPtr<IQEL> source(image);
    image->AddRef();
    if (options.addAlpha && !HasAlpha(image)) {
        source = FromRaster(host, ToRaster(image), 32, QEL_MODEL_ARGB);
        if (!source) return QEL_E_OUTOFMEMORY;
    }
    const double turns = std::remainder(degrees, 360.0);  // -180 to 180
    const bool half = turns == 180 || turns == -180, quarter = turns == 90 || turns == -90;
    if (turns == 0 || half || (quarter && !options.keepSize)) {
        SmartPtr<IQEL> made;
        QResult done = QEL_OK;
        if (turns == 0) {
            made = CopyImage(host, source.Get());
        } else if (half) {
            // Rotate's own half turn is shifted by a column on 24-bit images.
            SmartPtr<IQEL> flipped;
            done = transform->Flip(source.Get(), flipped.Out());
            if (done >= 0 && !flipped) done = QEL_E_POINTER;
            if (done >= 0) done = transform->Mirror(flipped.Get(), made.Out());
        } else {
            // The module's quarter turn by 90 is clockwise, by 270 anticlockwise.
            done = transform->Rotate(source.Get(), made.Out(), turns == 90 ? 90 : 270, 0, 0, 0);
        }
        if (done < 0) return done;
        if (!made) return QEL_E_POINTER;
        *result = std::move(made);
        return QEL_OK;
    }
    const qel::Pixels p = qel::PixelsOf(source.Get());
    long long width = 0, height = 0;
    RotatedSize(p.width, p.height, turns, options.keepSize, &width, &height);
    const bool whole = turns == std::floor(turns);
    if (whole && p.bitCount >= 8)
        return RotateInterpolated(transform, host, source.Get(), static_cast<int>(turns), options, width,
                                  height, result);
    return RotateNearest(transform, source.Get(), turns, options, width, height, result);
}

namespace {
bool IsGreyEightBit(IQEL* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    return p.bitCount == 8 && p.colourModel == QEL_MODEL_MONO && IsGreyPalette(PaletteOf(image), 8);
}
}  // namespace

QResult GrayScaleOfPixels(IQELColorTransform* colour, IQEL* image) {
    return image != nullptr && IsGreyEightBit(image) ? QEL_OK : colour->GrayScale(image);
}

QResult ThresholdOfPixels(IQELColorTransform* colour, const qel::Host& host, int level,
                          SmartPtr<IQEL>* image) {
    if (!*image || !IsGreyEightBit(image->Get())) return colour->Threshold(image->Get(), level);
    SmartPtr<IQEL> twin = FromRaster(host, ToRaster(image->Get()), 24, QEL_MODEL_BGR);
    if (!twin) return QEL_E_OUTOFMEMORY;
    const QResult result = colour->Threshold(twin.Get(), level);
    if (result < 0) return result;
    SmartPtr<IQEL> grey = FromRaster(host, ToRaster(twin.Get()), 8, QEL_MODEL_MONO);
    if (!grey) return QEL_E_OUTOFMEMORY;
    *image = std::move(grey);
    return result;
}

QResult AddWholeImage(IQELMaths* maths, const qel::Host& host, IQEL* a, IQEL* b, float divisor,
                      SmartPtr<IQEL>* result) {
    if (!HasAlpha(a)) {
        SmartPtr<IQELImageDIB> dest = host.NewImage();
        if (!dest) return QEL_E_OUTOFMEMORY;
        const QResult added = maths->Add(dest.Get(), a, b, divisor);
        if (added >= 0) result->Reset(dest.Detach());
        return added;
    }
    SmartPtr<IQEL> planes[2][2] = {{ColourPlane(host, a), AlphaPlane(host, a)},
                                   {ColourPlane(host, b), AlphaPlane(host, b)}};
    SmartPtr<IQELImageDIB> sums[2] = {host.NewImage(), host.NewImage()};
    for (int plane = 0; plane < 2; ++plane) {
        if (!planes[0][plane] || !planes[1][plane] || !sums[plane]) return QEL_E_OUTOFMEMORY;
        const QResult added =
            maths->Add(sums[plane].Get(), planes[0][plane].Get(), planes[1][plane].Get(), divisor);
        if (added < 0) return added;
    }
    SmartPtr<IQEL> joined = JoinPlanes(host, sums[0].Get(), sums[1].Get());
    if (!joined) return QEL_E_OUTOFMEMORY;
    *result = std::move(joined);
    return QEL_OK;
}

bool BlendOnto(const qel::Host& host, SmartPtr<IQEL>& dest, IQEL* source, int x, int y) {
    const qel::Pixels d = qel::PixelsOf(dest.Get());
    if (x >= d.width || y >= d.height) return false;
    Raster under = ToRaster(dest.Get());
    const Raster over = ToRaster(source);
    for (int row = std::max(0, -y); row < over.height && row + y < d.height; ++row)
        for (int col = std::max(0, -x); col < over.width && col + x < d.width; ++col) {
            const uint8_t* s = over.At(col, row);
            uint8_t* t = under.At(col + x, row + y);
            const unsigned a = s[3], rest = 255 - a;
            for (int channel = 0; channel < 3; ++channel)
                t[channel] = static_cast<uint8_t>((s[channel] * a + t[channel] * rest + 127) / 255);
            t[3] = static_cast<uint8_t>(a + (t[3] * rest + 127) / 255);
            if (t[0] != t[1] || t[1] != t[2]) under.grey = false;
        }
    SmartPtr<IQEL> blended = FromRaster(host, under, d.bitCount, d.colourModel);
    if (!blended) return false;
    dest = std::move(blended);
    return true;
}

void CurveTable(const std::vector<std::pair<int, int>>& points, unsigned char table[256]) {
    for (int i = 0; i < 256; ++i) {
        int value = i < points.front().first ? points.front().second : points.back().second;
        for (size_t k = 0; k + 1 < points.size(); ++k) {
            const int from = points[k].first, to = points[k + 1].first;
            if (i < from || i >= to) continue;
            const int span = to - from, rise = points[k + 1].second - points[k].second;
            // Rounded half up on rising and falling segments alike.
            value = points[k].second + FloorDivide(2 * rise * (i - from) + span, 2 * span);
            break;
        }
        table[i] = static_cast<unsigned char>(value);
    }
}

}  // namespace qeltool
