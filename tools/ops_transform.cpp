// The operations of the geometry component ("QELTransform"), one entry each,
// with the size of the result where the arguments decide it.
#include <algorithm>
#include <cmath>
#include <vector>

#include "tools/operation_kit.h"
#include "tools/operations.h"

namespace qeltool {
namespace {

using K = ParamKind;
using Geometry = IQELTransform;

const char* const kAllDepths = "1-, 4-, 8-, 24- and 32-bit images";
const char* const kColourDepths = "8-, 24- and 32-bit images";
const char* const kMatrixHelp = "six numbers A,B,C,D,E,F: x' = A x + B y + C, y' = D x + E y + F";

Extent ResampleExtent(const Arguments& args, const qel::Pixels& p) {
    Extent size;
    args.Size("size", p.width, p.height, &size.width, &size.height);
    return size;
}

// Rotate keeps the size under --keep-size and for 0 and 180 degrees, swaps it
// for quarter turns and otherwise makes the bounding box of the turned
// rectangle, measured between pixel edges in single precision as the module
// measures it.
Extent RotateExtent(const Arguments& args, const qel::Pixels& p) {
    const int angle = args.Int("angle");
    if (args.Has("--keep-size") || angle == 0 || angle == 180) return {p.width, p.height};
    if (angle == 90 || angle == -90 || angle == 270) return {p.height, p.width};
    const float theta = -static_cast<float>(angle) * 1.5707964f / 90.0f;
    const float k = static_cast<float>(std::cos(static_cast<double>(theta)));
    const float s = static_cast<float>(std::sin(static_cast<double>(theta)));
    const float right = static_cast<float>(p.width) - 0.5f, bottom = static_cast<float>(p.height) - 0.5f;
    const float cornerX[4] = {-0.5f, right, -0.5f, right};
    const float cornerY[4] = {-0.5f, -0.5f, bottom, bottom};
    float minX = 0.0f, maxX = 0.0f, minY = 0.0f, maxY = 0.0f;
    for (int i = 0; i < 4; ++i) {
        const float x = k * cornerX[i] - s * cornerY[i];
        const float y = s * cornerX[i] + k * cornerY[i];
        if (i == 0 || x < minX) minX = x;
        if (i == 0 || x > maxX) maxX = x;
        if (i == 0 || y < minY) minY = y;
        if (i == 0 || y > maxY) maxY = y;
    }
    return {static_cast<long long>(std::floor(maxX - minX + 0.5f)),
            static_cast<long long>(std::floor(maxY - minY + 0.5f))};
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
                    K::Int,
                    "3",
                    0,
                    15,
                    "interpolation: 0 nearest, 1 pixel, 2 B-spline, 3 cubic, "
                    "4 Catmull-Rom, 5 Lanczos, 6 box, 7 Hermite, 8 damped Hermite, "
                    "9 sinc, 10 cosine sum, 11 Bessel, 12 Gaussian, 13 quadratic, "
                    "14 Mitchell, 15 Catmull-Rom (signed)"};
const Param kAlphaFlag{"--alpha", K::Flag, nullptr, 0, 0, "make the result 32-bit with an alpha channel"};

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
             kColourDepths,
             "qel in.png mirror out.png",
             "mirror",
             [](Call& c) {
                 SmartPtr<IQEL> made;
                 return TakeResult(c.As<Geometry>()->Mirror(c.image.Get(), made.Out()), c.image, made);
             }},
            {"rotate",
             "Rotate",
             "Rotate",
             "rotate clockwise by whole degrees; the image grows to hold the result",
             {{"angle", K::Int, nullptr, -3600, 3600, "degrees, clockwise"},
              kMethod,
              {"--alpha", K::Flag, nullptr, 0, 0, "make the result 32-bit with alpha"},
              {"--keep-size", K::Flag, nullptr, 0, 0, "keep the image's size, turning about its centre"}},
             kColourDepths,
             "qel in.png rotate 30 --method 3 out.png",
             "rotate 30 --method 3",
             [](Call& c) {
                 SmartPtr<IQEL> made;
                 return TakeResult(c.As<Geometry>()->Rotate(
                                       c.image.Get(), made.Out(), c.args.Int("angle"), c.args.Int("--method"),
                                       c.args.Has("--alpha") ? 1 : 0, c.args.Has("--keep-size") ? 1 : 0),
                                   c.image, made);
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
             kAllDepths,
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
             "scale to a new size",
             {{"size", K::Size, nullptr, 0, 0, "new size WxH, or a percentage such as 50%"},
              kMethod,
              {"--nearest", K::Flag, nullptr, 0, 0, "copy nearest pixels only"}},
             kAllDepths,
             "qel in.png resample 640x480 out.png",
             "resample 150% --method 3",
             [](Call& c) {
                 // RunStep has held the size to the pixel limit, so each side fits an int.
                 const Extent size = ResampleExtent(c.args, qel::PixelsOf(c.image.Get()));
                 SmartPtr<IQEL> made;
                 return TakeResult(
                     c.As<Geometry>()->Resample(c.image.Get(), made.Out(), static_cast<int>(size.width),
                                                static_cast<int>(size.height), c.args.Int("--method"),
                                                c.args.Has("--nearest") ? 1 : 0),
                     c.image, made);
             },
             ResampleExtent},
            {"depth",
             "increasebpp IncreaseBpp",
             "IncreaseBpp",
             "convert to 24- or 32-bit colour (palette colours are used)",
             {{"bits", K::Int, nullptr, 24, 32, "24 or 32"},
              {"--model", K::Model, nullptr, 0, 0,
               "colour model of the result (default BGR for 24, ARGB for 32)"}},
             "1-, 4-, 8- and 24-bit images",
             "qel palette.png depth 24 out.png",
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
             "24- and 32-bit images (32-bit blends by alpha)",
             "qel logo.png rotatepaste 20 --onto photo.jpg out.png",
             "rotatepaste 20 --onto pattern",
             [](Call& c) {
                 SmartPtr<IQEL> target = PasteTarget(c.context, c.args, c.image.Get(), 24, c.note);
                 if (!target) return QEL_E_FAIL;
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
             "24- and 32-bit images",
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
             kColourDepths,
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
             kColourDepths,
             "qel in.png transform 0.9,0.2,0,-0.2,0.9,40 out.png",
             "transform 0.9,0.25,0,-0.25,0.9,60",
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
             kColourDepths,
             "qel in.png transformpaste 1.2,0.3,0,-0.3,1.2,0 --fill-voids out.png",
             "transformpaste 0.8,0.3,0,-0.3,0.8,70 --fill-voids",
             [](Call& c) {
                 const qel::Pixels p = qel::PixelsOf(c.image.Get());
                 SmartPtr<IQEL> target = PasteTarget(c.context, c.args, c.image.Get(), 8, c.note);
                 if (!target) return QEL_E_FAIL;
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
             "24- and 32-bit images",
             "qel in.png flipall out.png",
             "flipall",
             [](Call& c) { return c.As<Geometry>()->FlipImageAndBits(c.image.Get()); }},
        }};
}

}  // namespace qeltool
