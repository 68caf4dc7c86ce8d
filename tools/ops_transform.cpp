// The operations of the geometry component ("QELTransform"), one entry each,
// with the size of the result where the arguments decide it.
#include <algorithm>
#include <cmath>
#include <vector>

#include "tools/operation_kit.h"
#include "tools/operations.h"
#include "tools/people.h"

namespace qeltool {
namespace {

using K = ParamKind;
using Geometry = IQELTransform;

const char* const kMatrixHelp = "six numbers A,B,C,D,E,F: x' = A x + B y + C, y' = D x + E y + F";

// WxH, one side with the other in proportion, or a percentage; with --fit
// the largest size of the image's proportions inside the box.
Extent ResampleExtent(const Arguments& args, const qel::Pixels& p) {
    Extent size;
    args.Size("size", p.width, p.height, &size.width, &size.height);
    if (args.Has("--fit") && p.width > 0 && p.height > 0) {
        const double scale =
            std::min(static_cast<double>(size.width) / p.width, static_cast<double>(size.height) / p.height);
        size.width = std::max(1LL, std::llround(p.width * scale));
        size.height = std::max(1LL, std::llround(p.height * scale));
    }
    return size;
}

Extent RotateExtent(const Arguments& args, const qel::Pixels& p) {
    Extent size;
    RotatedSize(p.width, p.height, args.Float("angle"), args.Has("--keep-size"), &size.width, &size.height);
    return size;
}

// The part of a crop area inside the image (empty when it lies outside).
struct Cut {
    long long x = 0, y = 0, width = 0, height = 0;
};
Cut CropArea(const Arguments& args, const qel::Pixels& p) {
    Cut cut;
    args.Area("area", p.width, p.height, &cut.x, &cut.y, &cut.width, &cut.height);
    cut.width = std::max(0LL, std::min(cut.width, p.width - cut.x));
    cut.height = std::max(0LL, std::min(cut.height, p.height - cut.y));
    return cut;
}
Extent CropExtent(const Arguments& args, const qel::Pixels& p) {
    const Cut cut = CropArea(args, p);
    return {cut.width, cut.height};
}

// Quad and Transform read a size of 0 or of 65536 and above as "not given".
bool SizeGiven(long long side) { return side > 0 && side < 65536; }

// A side Quad derives from its corners: the shorter of two opposite edges,
// truncated.
long long QuadSide(double ax, double ay, double bx, double by, double cx, double cy, double dx, double dy) {
    const double first = std::sqrt((bx - ax) * (bx - ax) + (by - ay) * (by - ay));
    const double second = std::sqrt((dx - cx) * (dx - cx) + (dy - cy) * (dy - cy));
    const double shorter = std::fmin(first, second);
    return shorter >= 0 ? static_cast<long long>(shorter) : 0;
}

struct QuadCorners {
    double x[4], y[4];  // top-left, top-right, bottom-left, bottom-right
};

QuadCorners QuadCornersOf(const Arguments& args, const qel::Pixels& p) {
    QuadCorners c;
    const char* names[4] = {"p1", "p2", "p3", "p4"};
    for (int i = 0; i < 4; ++i) args.Point(names[i], p.width, p.height, &c.x[i], &c.y[i]);
    return c;
}

// The --size of quad and transform; 0 by 0 when it is not given.
Extent AskedSize(const Arguments& args, const qel::Pixels& p) {
    Extent size;
    if (args.Has("--size")) args.Size("--size", p.width, p.height, &size.width, &size.height);
    return size;
}

// Quad without a usable --size takes the width from the top and bottom edges
// and the height from the left and right edges.
Extent QuadExtent(const Arguments& args, const qel::Pixels& p) {
    const QuadCorners c = QuadCornersOf(args, p);
    const Extent asked = AskedSize(args, p);
    Extent size;
    size.width = SizeGiven(asked.width)
                     ? asked.width
                     : QuadSide(c.x[0], c.y[0], c.x[1], c.y[1], c.x[2], c.y[2], c.x[3], c.y[3]);
    size.height = SizeGiven(asked.height)
                      ? asked.height
                      : QuadSide(c.x[0], c.y[0], c.x[2], c.y[2], c.x[1], c.y[1], c.x[3], c.y[3]);
    return size;
}

// Transform without a usable --size keeps the image's width or height.
Extent TransformExtent(const Arguments& args, const qel::Pixels& p) {
    const Extent asked = AskedSize(args, p);
    return {SizeGiven(asked.width) ? asked.width : p.width,
            SizeGiven(asked.height) ? asked.height : p.height};
}

// A side for Quad and Transform: sizes they would ignore are passed as 0, so
// that a huge percentage cannot wrap into a small unsigned value.
unsigned SizeArgument(long long side) { return SizeGiven(side) ? static_cast<unsigned>(side) : 0u; }

double PointX(const Arguments& args, const char* name, const qel::Pixels& p, double* y) {
    double x = 0;
    *y = 0;
    if (args.Has(name)) args.Point(name, p.width, p.height, &x, y);
    return x;
}

const Param kMethod{"--method",
                    K::Method,
                    "3",
                    0,
                    15,
                    "interpolation: 0 nearest, 1 pixel, 2 B-spline, 3 cubic, "
                    "4 Catmull-Rom, 5 Lanczos, 6 box, 7 Hermite, 8 damped Hermite, "
                    "9 sinc, 10 cosine sum, 11 Bessel, 12 Gaussian, 13 quadratic, "
                    "14 Mitchell, 15 Catmull-Rom (signed); by number or name (lanczos, "
                    "catmull-rom-signed)"};

}  // namespace

OperationGroup TransformOperations() {
    return {
        "QELTransform",
        {
            {"flip",
             "Flip",
             "Flip",
             "turn upside down",
             {},
             "any",
             "qel in.png flip out.png",
             "flip",
             [](Call& c) {
                 SmartPtr<IQEL> made;
                 return TakeResult(c.As<Geometry>()->Flip(c.image.Get(), made.Out()), c.image, made);
             }},
            {"mirror",
             "Mirror",
             "Mirror",
             "mirror left to right",
             {},
             kWholeByteImages,
             "qel in.png mirror out.png",
             "mirror",
             [](Call& c) {
                 SmartPtr<IQEL> made;
                 return TakeResult(c.As<Geometry>()->Mirror(c.image.Get(), made.Out()), c.image, made);
             }},
            {"rotate",
             "Rotate",
             "Rotate (quarter turns; whole degrees on a copy with a repeated border), Flip and Mirror (half "
             "turn), Transform (fractions of a degree)",
             "rotate clockwise by any angle; the image grows to hold the result",
             {{"angle", K::Float, nullptr, -3600, 3600, "degrees, clockwise; fractions allowed"},
              kMethod,
              {"--alpha", K::Flag, nullptr, 0, 0,
               "give the result an alpha channel (uncovered corners transparent)"},
              {"--keep-size", K::Flag, nullptr, 0, 0, "keep the image's size, turning about its centre"},
              {"--background", K::Colour, nullptr, 0, 0,
               "colour RRGGBB of the uncovered corners (default: transparent on images with alpha, "
               "otherwise the top-left pixel's colour)"}},
             "any image (not 1- or 4-bit ones kept by --keep-depth); quarter and half turns are exact, whole "
             "degrees are interpolated "
             "by --method, fractions of a degree take the nearest pixel",
             "qel in.png rotate 30 --method lanczos out.png",
             "rotate 30 --method 3",
             [](Call& c) {
                 RotateOptions options;
                 options.method = c.args.Int("--method");
                 options.addAlpha = c.args.Has("--alpha");
                 options.keepSize = c.args.Has("--keep-size");
                 options.hasBackground = c.args.Has("--background");
                 options.background = c.args.Colour("--background");
                 SmartPtr<IQEL> made;
                 const QResult result = RotateClockwise(c.As<Geometry>(), c.context.Host(), c.image.Get(),
                                                        c.args.Float("angle"), options, &made);
                 return TakeResult(result, c.image, made);
             },
             RotateExtent},
            {"skew",
             "shear Skew",
             "Skew",
             "shear about a pivot, keeping the size",
             {{"xgain", K::Float, nullptr, -100, 100, "horizontal shift per row from the pivot"},
              {"ygain", K::Float, "0", -100, 100, "vertical shift per column from the pivot"},
              {"--pivot", K::Point, nullptr, 0, 0, "pivot X,Y (default the centre)"},
              kAlphaFlag},
             kAnyImage,
             "qel in.png skew 0.3 0.1 out.png",
             "skew 0.3 0.1",
             [](Call& c) {
                 double py = 0;
                 const double px = PointX(c.args, "--pivot", qel::PixelsOf(c.image.Get()), &py);
                 SmartPtr<IQEL> made;
                 return TakeResult(c.As<Geometry>()->Skew(
                                       c.image.Get(), made.Out(), static_cast<float>(c.args.Float("xgain")),
                                       static_cast<float>(c.args.Float("ygain")), static_cast<int>(px),
                                       static_cast<int>(py), 0, c.args.Has("--alpha") ? 1 : 0),
                                   c.image, made);
             }},
            {"resample",
             "resize scale-to Resample",
             "Resample",
             "scale to a new size (alpha is resampled as its own plane)",
             {{"size", K::Size, nullptr, 0, 0,
               "new size WxH, 300x or x200 (the other side in proportion), or a percentage such as 50%"},
              kMethod,
              {"--nearest", K::Flag, nullptr, 0, 0, "copy nearest pixels only"},
              {"--fit", K::Flag, nullptr, 0, 0, "the largest size of the same proportions inside WxH"}},
             "any; shrinking averages boxes of whole pixels, enlarging interpolates by --method",
             "qel photo.jpg resample 800x800 --fit small.jpg",
             "resample 150% --method 3",
             [](Call& c) {
                 // RunStep has held the size to the pixel limit, so each side fits an int.
                 const Extent size = ResampleExtent(c.args, qel::PixelsOf(c.image.Get()));
                 SmartPtr<IQEL> made;
                 const QResult result = ResampleKeepingAlpha(
                     c.As<Geometry>(), c.context.Host(), c.image.Get(), static_cast<int>(size.width),
                     static_cast<int>(size.height), c.args.Int("--method"), c.args.Has("--nearest"), &made);
                 return TakeResult(result, c.image, made);
             },
             ResampleExtent},
            {"crop",
             "cut",
             "Transform",
             "cut out an area, pixel for pixel",
             {{"area", K::Area, nullptr, 0, 0,
               "WxH+X+Y: width, height and top-left corner, each in pixels or a percentage; the part "
               "inside the image is kept"}},
             kWholeByteImages,
             "qel photo.jpg crop 640x480+100+50 out.jpg",
             "crop 50%x50%+25%+25%",
             [](Call& c) {
                 const qel::Pixels p = qel::PixelsOf(c.image.Get());
                 const Cut cut = CropArea(c.args, p);
                 if (cut.width <= 0 || cut.height <= 0) {
                     return Refuse(c, "the area " + c.args.Text("area") + " lies outside the " +
                                          std::to_string(p.width) + "x" + std::to_string(p.height) +
                                          " image");
                 }
                 // The identity map read from (x, y) on copies the area exactly.
                 AffineTransform identity({1, 0, 0, 0, 1, 0});
                 SmartPtr<IQEL> made;
                 return TakeResult(
                     c.As<Geometry>()->Transform(&identity, c.image.Get(), made.Out(),
                                                 static_cast<int>(cut.x), static_cast<int>(cut.y),
                                                 SizeArgument(cut.width), SizeArgument(cut.height), 0, 0),
                     c.image, made);
             },
             CropExtent},
            {"depth",
             "increasebpp IncreaseBpp",
             "IncreaseBpp",
             "convert to 24- or 32-bit colour (palette colours are used)",
             {{"bits", K::Int, nullptr, 24, 32, "24 or 32"},
              {"--model", K::Model, nullptr, 0, 0,
               "colour model of the result (default BGR for 24, ARGB for 32)"}},
             "any image; 32-bit ones are returned as they are",
             "qel in.jpg depth 32 out.png",
             "depth 32",
             [](Call& c) {
                 const int bits = c.args.Int("bits");
                 const unsigned model = c.args.Has("--model") ? c.args.Model("--model")
                                        : bits == 32          ? QEL_MODEL_ARGB
                                                              : QEL_MODEL_BGR;
                 SmartPtr<IQEL> made;
                 return TakeResult(c.As<Geometry>()->IncreaseBpp(c.image.Get(), made.Out(), bits, model),
                                   c.image, made);
             }},
            {"rotatepaste",
             "RotatePaste",
             "RotatePaste",
             "draw the image rotated onto another, at its top-left corner",
             {{"angle", K::Float, nullptr, -3600, 3600, "degrees, anticlockwise"},
              {"--onto", K::File, nullptr, 0, 0, "the image drawn on (default black of the same size)"},
              kMethod,
              {"--key", K::Colour, nullptr, 0, 0, "a colour RRGGBB left undrawn (24-bit images)"}},
             "any image; one with alpha blends by it",
             "qel logo.png rotatepaste 20 --onto photo.jpg out.png",
             "rotatepaste 20 --onto pattern",
             [](Call& c) {
                 SmartPtr<IQEL> target = PasteTarget(c.context, c.args, c.image.Get(), 24, c.note);
                 if (!target) return Refuse(c);
                 const double radians = c.args.Float("angle") * M_PI / 180.0;
                 const int key = c.args.Has("--key") ? static_cast<int>(c.args.Colour("--key")) : -1;
                 const QResult result = c.As<Geometry>()->RotatePaste(c.image.Get(), target.Get(), radians,
                                                                      c.args.Int("--method"), key);
                 if (result >= 0) c.image = std::move(target);
                 return result;
             }},
            {"swaprb",
             "flipbits FlipBits",
             "FlipBits",
             "exchange red and blue",
             {},
             "any image; grey ones are unchanged",
             "qel in.png swaprb out.png",
             "swaprb",
             [](Call& c) { return c.As<Geometry>()->FlipBits(c.image.Get()); }},
            {"quad",
             "Quad",
             "Quad",
             "straighten the quadrilateral P1..P4 into a rectangle",
             {{"p1", K::Point, nullptr, 0, 0, "top-left corner X,Y"},
              {"p2", K::Point, nullptr, 0, 0, "top-right corner X,Y"},
              {"p3", K::Point, nullptr, 0, 0, "bottom-left corner X,Y"},
              {"p4", K::Point, nullptr, 0, 0, "bottom-right corner X,Y"},
              {"--size", K::Size, nullptr, 0, 0, "size of the result (default from the edges)"},
              {"--blend", K::Flag, nullptr, 0, 0, "blend neighbouring pixels"}},
             kWholeByteImages,
             "qel in.png quad 10,5 300,20 5,230 310,220 out.png",
             "quad 10%,5% 95%,10% 5%,90% 90%,95% --blend",
             [](Call& c) {
                 const qel::Pixels p = qel::PixelsOf(c.image.Get());
                 const QuadCorners q = QuadCornersOf(c.args, p);
                 const Extent asked = AskedSize(c.args, p);
                 SmartPtr<IQEL> made;
                 return TakeResult(
                     c.As<Geometry>()->Quad(c.image.Get(), made.Out(), q.x[0], q.y[0], q.x[1], q.y[1], q.x[2],
                                            q.y[2], q.x[3], q.y[3], SizeArgument(asked.width),
                                            SizeArgument(asked.height), c.args.Has("--blend") ? 1 : 0),
                     c.image, made);
             },
             QuadExtent},
            {"transform",
             "affine Transform",
             "Transform",
             "warp by an affine map from result to source pixels",
             {{"matrix", K::Matrix, nullptr, 0, 0, kMatrixHelp},
              {"--offset", K::Point, nullptr, 0, 0, "added to result coordinates before mapping"},
              {"--size", K::Size, nullptr, 0, 0, "size of the result (default the image's)"}},
             kWholeByteImages,
             "qel in.png transform 0.9,0.2,0,-0.2,0.9,40 out.png",
             "transform 0.9,0.25,0,-0.25,0.9,0",
             [](Call& c) {
                 const qel::Pixels p = qel::PixelsOf(c.image.Get());
                 AffineTransform transform(MatrixOf(c.args));
                 double oy = 0;
                 const double ox = PointX(c.args, "--offset", p, &oy);
                 const Extent asked = AskedSize(c.args, p);
                 SmartPtr<IQEL> made;
                 return TakeResult(
                     c.As<Geometry>()->Transform(&transform, c.image.Get(), made.Out(), static_cast<int>(ox),
                                                 static_cast<int>(oy), SizeArgument(asked.width),
                                                 SizeArgument(asked.height), 0, 0),
                     c.image, made);
             },
             TransformExtent},
            {"transformpaste",
             "TransformPaste",
             "TransformPaste",
             "paste forwards through an affine map onto another image",
             {{"matrix", K::Matrix, nullptr, 0, 0, kMatrixHelp},
              {"--onto", K::File, nullptr, 0, 0, "the image drawn on (default black of the same size)"},
              {"--offset", K::Point, nullptr, 0, 0, "added to the mapped coordinates"},
              {"--fill-voids", K::Flag, nullptr, 0, 0, "fill the holes the mapping leaves"}},
             kWholeByteImages,
             "qel in.png transformpaste 1.2,0.3,0,-0.3,1.2,0 --fill-voids out.png",
             "transformpaste 0.8,0.3,0,0,1,0 --fill-voids",
             [](Call& c) {
                 const qel::Pixels p = qel::PixelsOf(c.image.Get());
                 SmartPtr<IQEL> target = PasteTarget(c.context, c.args, c.image.Get(), 8, c.note);
                 if (!target) return Refuse(c);
                 AffineTransform transform(MatrixOf(c.args));
                 double oy = 0;
                 const double ox = PointX(c.args, "--offset", p, &oy);
                 const QResult result = c.As<Geometry>()->TransformPaste(
                     &transform, c.image.Get(), target.Get(), static_cast<int>(ox), static_cast<int>(oy),
                     c.args.Has("--fill-voids") ? 1 : 0, 0);
                 if (result >= 0) c.image = std::move(target);
                 return result;
             }},
            {"flipall",
             "flipimageandbits FlipImageAndBits",
             "FlipImageAndBits",
             "turn upside down and exchange red and blue",
             {},
             "any image; grey ones are left as they are",
             "qel in.png flipall out.png",
             "flipall",
             [](Call& c) { return c.As<Geometry>()->FlipImageAndBits(c.image.Get()); }},
        }};
}

}  // namespace qeltool
