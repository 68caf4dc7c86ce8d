// The operations the stress driver calls: every public operation of the five
// components, with random images and random (sometimes absurd) parameters.
#include <climits>
#include <iterator>
#include <utility>

#include "stress/stress_check.h"
#include "support/component_test.h"

namespace stress {
namespace {

using qeltest::Colours;
using qeltest::Deform;
using qeltest::Filters;
using qeltest::Maths;
using qeltest::Transform;

// A caller's coordinate map: a random affine map, sometimes one that answers
// NaN, infinities or points far outside any image.
qeltest::PointMap RandomMap(Call& call) {
    double k[6];
    for (double& v : k) v = call.Real(-2, 2);
    const double wild = call.Chance(0.1) ? call.RealParam(0, 0) : 0.0;
    k[2] = call.Real(-40, 40) + wild, k[5] = call.Real(-40, 40) + wild;
    return qeltest::PointMap([=](double& x, double& y) {
        const double u = x, v = y;
        x = k[0] * u + k[1] * v + k[2], y = k[3] * u + k[4] * v + k[5];
    });
}
void ExpectHandedBack(Call& call, const qeltest::PointMap& map) {
    if (map.refs != 1) call.Fail("the caller's transform lost or gained a reference");
}

// Result sizes a caller may ask for: mostly small, sometimes negative, and
// sometimes so large that the runtime refuses the image rather than allocate.
std::pair<int, int> ResultSize(Call& c) {
    if (c.Chance(0.03)) return {c.Pick<int>({1 << 20, INT_MAX}), c.Pick<int>({0, 1 << 20, INT_MAX})};
    const auto extent = [&c] { return c.Chance(0.05) ? -c.Int(1, 5) : c.Int(0, 96); };
    return {extent(), extent()};
}

// A filter's result comes back through `result`, or replaces the source.
template <class Invoke>
void Filtered(Call& c, Invoke invoke) {
    const bool inPlace = c.Chance(0.3);
    IQEL* image = c.Input(inPlace);
    invoke(image, inPlace ? nullptr : c.result.Out());
}
template <QResult (IQELFilterTransform::*Method)(IQEL*, IQEL**)>
void PlainFilter(Call& c) {
    Filtered(c, [](IQEL* i, IQEL** r) { (Filters()->*Method)(i, r); });
}
// The filters of one number (a size, an amount or a radius), mostly in [lo, hi].
template <QResult (IQELFilterTransform::*Method)(IQEL*, int, IQEL**), int lo, int hi>
void SizedFilter(Call& c) {
    Filtered(c, [&](IQEL* i, IQEL** r) { (Filters()->*Method)(i, c.Param(lo, hi), r); });
}

using Operation = void (*)(Call&);
struct Entry {
    const char* name;
    Operation run;
    // Maths: how many operands to make beside the destination, and how often a mask.
    int operands = -1;
    double maskChance = 0;
};
const Entry kOperations[] = {
    // ---- colour, in place ----
    {"Colorize",
     [](Call& c) {
         Colours()->Colorize(c.Input(true), c.Int(0, 255), c.Int(0, 255), c.RealParam(-0.5, 1.5));
     }},
    {"Lut",
     [](Call& c) {
         unsigned char table[256];
         for (unsigned char& entry : table) entry = static_cast<unsigned char>(c.Bits32());
         Colours()->Lut(c.Input(true), c.Chance(0.05) ? nullptr : table);
     }},
    {"Negative", [](Call& c) { Colours()->Negative(c.Input(true)); }},
    {"GrayScale", [](Call& c) { Colours()->GrayScale(c.Input(true)); }},
    {"ShiftRGB",
     [](Call& c) {
         Colours()->ShiftRGB(c.Input(true), c.Param(-300, 300), c.Param(-300, 300), c.Param(-300, 300));
     }},
    {"Gamma", [](Call& c) { Colours()->Gamma(c.Input(true), c.RealParam(-1, 5)); }},
    {"Light", [](Call& c) { Colours()->Light(c.Input(true), c.Param(-300, 300), c.Param(-300, 300)); }},
    {"SetImageAlpha",
     [](Call& c) { Colours()->SetImageAlpha(c.Input(true), c.Param(-10, 300), c.Param(-1, 1)); }},
    {"SetImageAlphaTransparency",
     [](Call& c) { Colours()->SetImageAlphaTransparency(c.Input(true), c.Param(-10, 300), c.Bits32()); }},
    {"SetImageTransparentPixel",
     [](Call& c) {
         Colours()->SetImageTransparentPixel(c.Input(true), c.Bits32() & (c.Chance(0.5) ? 0xFFFFFFu : ~0u));
     }},
    {"Threshold", [](Call& c) { Colours()->Threshold(c.Input(true), c.Param(-10, 300)); }},
    // ---- orientation, rotation, resampling, depth ----
    {"Flip", [](Call& c) { Transform()->Flip(c.Input(false), c.result.Out()); }},
    {"Mirror", [](Call& c) { Transform()->Mirror(c.Input(false), c.result.Out()); }},
    {"Rotate",
     [](Call& c) {
         const int angle =
             c.Chance(0.3) ? c.Pick<int>({0, 90, -90, 180, 270, 360, -180, 450}) : c.Param(-720, 720);
         Transform()->Rotate(c.Input(false), c.Chance(0.03) ? nullptr : c.result.Out(), angle,
                             c.Param(-2, 17), c.Int(0, 1), c.Int(0, 1));
     }},
    {"Skew",
     [](Call& c) {
         Transform()->Skew(c.Input(false), c.result.Out(), c.RealParam(-3, 3), c.RealParam(-3, 3),
                           c.Param(-70, 70), c.Param(-70, 70), 0, c.Int(0, 1));
     }},
    {"Resample",
     [](Call& c) {
         const auto [width, height] = ResultSize(c);
         Transform()->Resample(c.Input(false), c.result.Out(), width, height, c.Param(-2, 17), c.Chance(0.3));
     }},
    {"IncreaseBpp",
     [](Call& c) {
         const int bitCount = c.Chance(0.8) ? c.Pick<int>({1, 4, 8, 16, 24, 32}) : c.Param(-5, 40);
         Transform()->IncreaseBpp(c.Input(false), c.result.Out(), bitCount,
                                  c.Pick<unsigned>({QEL_MODEL_BGR, QEL_MODEL_ARGB, 0u}));
     }},
    {"RotatePaste",
     [](Call& c) {
         Transform()->RotatePaste(c.Input(false), c.Input(true), c.RealParam(-7, 7), c.Param(-2, 17),
                                  c.Bits32());
     }},
    {"FlipBits", [](Call& c) { Transform()->FlipBits(c.Input(true)); }},
    {"Quad",
     [](Call& c) {
         const auto side = [&c] {
             return c.Chance(0.1) ? c.Pick<unsigned>({0u, 65536u, 70000u, 0xFFFFFFFFu})
                                  : unsigned(c.Int(1, 96));
         };
         const unsigned width = side(), height = side();
         // A size derived from the corners is as large as the caller's corners
         // make it (the caller's side of the contract): absurd corners only with given sizes.
         const bool derived = width == 0 || width >= 65536 || height == 0 || height >= 65536;
         double p[8];
         for (double& v : p) v = derived ? c.Real(-20, 90) : c.RealParam(-20, 90);
         Transform()->Quad(c.Input(false), c.result.Out(), p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7],
                           width, height, c.Int(0, 1));
     }},
    {"Transform",
     [](Call& c) {
         qeltest::PointMap map = RandomMap(c);
         const auto [width, height] = ResultSize(c);
         Transform()->Transform(c.Chance(0.03) ? nullptr : &map, c.Input(false), c.result.Out(),
                                c.Param(-40, 40), c.Param(-40, 40), width, height, 0, 0);
         ExpectHandedBack(c, map);
     }},
    {"TransformPaste",
     [](Call& c) {
         qeltest::PointMap map = RandomMap(c);
         Transform()->TransformPaste(c.Chance(0.03) ? nullptr : &map, c.Input(false), c.Input(true),
                                     c.Param(-40, 40), c.Param(-40, 40), c.Int(0, 1), 0);
         ExpectHandedBack(c, map);
     }},
    {"FlipImageAndBits", [](Call& c) { Transform()->FlipImageAndBits(c.Input(true)); }},
    {"CircleTransform",
     [](Call& c) {
         Deform()->CircleTransform(c.Input(true), c.Param(-2, 6), c.Int(0, 1), c.RealParam(-50, 50));
     }},
    // ---- filters ----
    {"Erode", SizedFilter<&IQELFilterTransform::Erode, -1, 9>},
    {"Edge", SizedFilter<&IQELFilterTransform::Edge, -1, 9>},
    {"Dilate", SizedFilter<&IQELFilterTransform::Dilate, -1, 9>},
    {"Filter",
     [](Call& c) {
         // The kernel holds size * size entries: the caller's side of the contract.
         const int size = c.Int(-2, 7);
         std::vector<int> kernel(static_cast<size_t>(size > 0 ? size * size : 0));
         for (int& k : kernel) k = c.Param(-20, 20);
         const int divisor = c.Chance(0.2) ? c.Pick<int>({0, -1, 1}) : c.Param(-50, 50);
         Filtered(c, [&](IQEL* i, IQEL** r) {
             Filters()->Filter(i, kernel.empty() ? nullptr : kernel.data(), size, divisor, c.Param(-300, 300),
                               r);
         });
     }},
    {"Contour", PlainFilter<&IQELFilterTransform::Contour>},
    {"Jitter", SizedFilter<&IQELFilterTransform::Jitter, -70, 70>},
    {"Noise", SizedFilter<&IQELFilterTransform::Noise, -300, 300>},
    {"Median", SizedFilter<&IQELFilterTransform::Median, -1, 9>},
    {"Emboss", PlainFilter<&IQELFilterTransform::Emboss>},
    {"Blur", PlainFilter<&IQELFilterTransform::Blur>},
    {"Soften", PlainFilter<&IQELFilterTransform::Soften>},
    {"Sharpen", PlainFilter<&IQELFilterTransform::Sharpen>},
    {"GaussianBlur", SizedFilter<&IQELFilterTransform::GaussianBlur, -1, 4>},
    // ---- maths: a destination, then its operands and mask ----
    {"Equal",
     [](Call& c) {
         if (Maths()->Equal(c.dest, c.mask, c.Bits32()) != QEL_OK) c.Fail("Equal did not answer 0");
     },
     0, 0.5},
    {"Copy", [](Call& c) { Maths()->Copy(c.dest, c.a, c.mask, c.Param(-70, 70), c.Param(-70, 70)); }, 1, 0.3},
    {"AddScale",
     [](Call& c) {
         Maths()->AddScale(c.dest, c.a, c.b, c.mask, c.RealParam(-2, 2), c.RealParam(-2, 2),
                           c.RealParam(-300, 300));
     },
     2, 0.4},
    {"Scale",
     [](Call& c) { Maths()->Scale(c.dest, c.a, c.mask, c.RealParam(-3, 3), c.RealParam(-300, 300)); }, 1,
     0.4},
    {"Subtract", [](Call& c) { Maths()->Subtract(c.Chance(0.03) ? nullptr : c.dest, c.a, c.b, c.Int(0, 3)); },
     2},
    {"CreateDestImage",
     [](Call& c) {
         const int bitCount = c.Chance(0.7) ? c.Pick<int>({0, 1, 4, 8, 16, 24, 32}) : c.Param(-5, 40);
         Maths()->CreateDestImage(c.result.Out(), c.Input(false), bitCount, c.Bits32());
     }},
    {"Add", [](Call& c) { Maths()->Add(c.dest, c.a, c.b, c.RealParam(-3, 3)); }, 2},
    {"Scale8", [](Call& c) { Maths()->Scale8(c.dest, c.a, c.Param(-300, 300), c.RealParam(-3, 3)); }, 1},
};

}  // namespace

void RunCall(Draw draw) {
    const Entry& entry = kOperations[draw.Int(0, int(std::size(kOperations)) - 1)];
    Call call(entry.name, draw);
    if (entry.operands >= 0) call.MakeOperands(entry.operands, entry.maskChance);
    entry.run(call);
    call.Finish();
}

}  // namespace stress
