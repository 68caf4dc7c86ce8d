// The operations the stress driver calls: every public operation of the five
// components, with random images and random (sometimes absurd) parameters.
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>

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
class RandomTransform final : public ITransform {
public:
    explicit RandomTransform(Draw& draw) {
        for (double& c : coefficients_) c = draw.Real(-2, 2);
        coefficients_[2] = draw.Real(-40, 40);
        coefficients_[5] = draw.Real(-40, 40);
        wild_ = draw.Chance(0.1) ? draw.RealParam(0, 0) : 0.0;
    }
    QResult QueryInterface(const IID&, void** object) override {
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }
    uint32_t AddRef() override { return ++refs_; }
    uint32_t Release() override { return --refs_; }  // lives on the stack
    QResult TransformPoint(double* x, double* y, double* z) override {
        const double u = *x, v = *y;
        *x = coefficients_[0] * u + coefficients_[1] * v + coefficients_[2] + wild_;
        *y = coefficients_[3] * u + coefficients_[4] * v + coefficients_[5] + wild_;
        *z = 0;
        return QEL_OK;
    }
    void CheckBalanced(Call& call) const {
        if (refs_ != 1) call.Fail("the caller's transform lost or gained a reference");
    }

private:
    uint32_t refs_ = 1;
    double coefficients_[6];
    double wild_;
};

// Result sizes a caller may ask for: mostly small, sometimes negative, and
// sometimes so large that the runtime refuses the image rather than allocate.
void ResultSize(Draw& draw, int* width, int* height) {
    *width = draw.Int(0, 96);
    *height = draw.Int(0, 96);
    if (draw.Chance(0.05)) *width = -draw.Int(1, 5);
    if (draw.Chance(0.05)) *height = -draw.Int(1, 5);
    if (draw.Chance(0.03)) {
        *width = draw.Pick<int>({1 << 20, std::numeric_limits<int>::max()});
        *height = draw.Pick<int>({0, 1 << 20, std::numeric_limits<int>::max()});
    }
}

float F(double value) { return static_cast<float>(value); }
int FilterSize(Draw& d) {
    return d.Chance(0.05) ? d.Pick<int>({-3, 0, 1000000, std::numeric_limits<int>::max()}) : d.Int(-1, 9);
}
// A filter's result comes back through `result`, or replaces the source.
template <class Invoke>
void Filtered(Call& call, Draw& d, Invoke invoke) {
    const bool inPlace = d.Chance(0.3);
    IQEL* image = call.Input(inPlace);
    invoke(image, inPlace ? nullptr : call.result.Out());
}
// The filters whose only parameter, if any, is a size.
template <QResult (IQELFilterTransform::*Method)(IQEL*, IQEL**)>
void PlainFilter(Call& c, Draw& d) {
    Filtered(c, d, [](IQEL* i, IQEL** r) { (Filters()->*Method)(i, r); });
}
template <QResult (IQELFilterTransform::*Method)(IQEL*, int, IQEL**)>
void SizedFilter(Call& c, Draw& d) {
    Filtered(c, d, [&](IQEL* i, IQEL** r) { (Filters()->*Method)(i, FilterSize(d), r); });
}
// A mask or second operand: often the first image's size, sometimes any size.
Shape Like(Draw& d, const IQEL* first, const Shape& shape) {
    Shape other = RandomShape(d);
    if (first != nullptr && d.Chance(0.6)) other.width = shape.width, other.height = shape.height;
    if (d.Chance(0.4)) other.bitCount = shape.bitCount;
    if (d.Chance(0.4)) other.colourModel = shape.colourModel;
    return other;
}

using Operation = void (*)(Call&, Draw&);
struct Entry {
    const char* name;
    Operation run;
};
const Entry kOperations[] = {
    // ---- colour, in place ----
    {"Colorize",
     [](Call& c, Draw& d) {
         IQEL* image = c.Input(true);
         const QResult r =
             Colours()->Colorize(image, static_cast<unsigned char>(d.Int(0, 255)),
                                 static_cast<unsigned char>(d.Int(0, 255)), F(d.RealParam(-0.5, 1.5)));
         if (image == nullptr && r != QEL_E_FAIL) c.Fail("null image not refused");
     }},
    {"Lut",
     [](Call& c, Draw& d) {
         unsigned char table[256];
         for (unsigned char& entry : table) entry = static_cast<unsigned char>(d.Bits32());
         Colours()->Lut(c.Input(true), d.Chance(0.05) ? nullptr : table);
     }},
    {"Negative", [](Call& c, Draw&) { Colours()->Negative(c.Input(true)); }},
    {"GrayScale", [](Call& c, Draw&) { Colours()->GrayScale(c.Input(true)); }},
    {"ShiftRGB",
     [](Call& c, Draw& d) {
         Colours()->ShiftRGB(c.Input(true), d.Param(-300, 300), d.Param(-300, 300), d.Param(-300, 300));
     }},
    {"Gamma", [](Call& c, Draw& d) { Colours()->Gamma(c.Input(true), F(d.RealParam(-1, 5))); }},
    {"Light",
     [](Call& c, Draw& d) { Colours()->Light(c.Input(true), d.Param(-300, 300), d.Param(-300, 300)); }},
    {"SetImageAlpha",
     [](Call& c, Draw& d) { Colours()->SetImageAlpha(c.Input(true), d.Param(-10, 300), d.Param(-1, 1)); }},
    {"SetImageAlphaTransparency",
     [](Call& c, Draw& d) {
         Colours()->SetImageAlphaTransparency(c.Input(true), d.Param(-10, 300), d.Bits32());
     }},
    {"SetImageTransparentPixel",
     [](Call& c, Draw& d) {
         Colours()->SetImageTransparentPixel(c.Input(true),
                                             d.Chance(0.5) ? d.Bits32() & 0xFFFFFF : d.Bits32());
     }},
    {"Threshold", [](Call& c, Draw& d) { Colours()->Threshold(c.Input(true), d.Param(-10, 300)); }},
    // ---- orientation, rotation, resampling, depth ----
    {"Flip", [](Call& c, Draw&) { Transform()->Flip(c.Input(false), c.result.Out()); }},
    {"Mirror", [](Call& c, Draw&) { Transform()->Mirror(c.Input(false), c.result.Out()); }},
    {"Rotate",
     [](Call& c, Draw& d) {
         IQEL* source = c.Input(false);
         const int angle =
             d.Chance(0.3) ? d.Pick<int>({0, 90, -90, 180, 270, 360, -180, 450}) : d.Param(-720, 720);
         Transform()->Rotate(source, d.Chance(0.03) ? nullptr : c.result.Out(), angle, d.Param(-2, 17),
                             d.Int(0, 1), d.Int(0, 1));
     }},
    {"Skew",
     [](Call& c, Draw& d) {
         IQEL* source = c.Input(false);
         Transform()->Skew(source, c.result.Out(), F(d.RealParam(-3, 3)), F(d.RealParam(-3, 3)),
                           d.Param(-70, 70), d.Param(-70, 70), 0, d.Int(0, 1));
     }},
    {"Resample",
     [](Call& c, Draw& d) {
         IQEL* source = c.Input(false);
         int width = 0, height = 0;
         ResultSize(d, &width, &height);
         Transform()->Resample(source, c.result.Out(), width, height, d.Param(-2, 17), d.Chance(0.3));
     }},
    {"IncreaseBpp",
     [](Call& c, Draw& d) {
         IQEL* source = c.Input(false);
         const int bitCount = d.Chance(0.8) ? d.Pick<int>({1, 4, 8, 16, 24, 32}) : d.Param(-5, 40);
         Transform()->IncreaseBpp(source, c.result.Out(), bitCount,
                                  d.Pick<unsigned>({QEL_MODEL_BGR, QEL_MODEL_ARGB, 0u}));
     }},
    {"RotatePaste",
     [](Call& c, Draw& d) {
         IQEL* source = c.Input(false);
         IQEL* target = c.Input(true);
         Transform()->RotatePaste(source, target, d.RealParam(-7, 7), d.Param(-2, 17),
                                  static_cast<int>(d.Bits32()));
     }},
    {"FlipBits", [](Call& c, Draw&) { Transform()->FlipBits(c.Input(true)); }},
    {"Quad",
     [](Call& c, Draw& d) {
         IQEL* source = c.Input(false);
         unsigned width = static_cast<unsigned>(d.Int(1, 96)), height = static_cast<unsigned>(d.Int(1, 96));
         if (d.Chance(0.1)) width = d.Pick<unsigned>({0u, 65536u, 70000u, 0xFFFFFFFFu});
         if (d.Chance(0.1)) height = d.Pick<unsigned>({0u, 65536u, 70000u, 0xFFFFFFFFu});
         // A size derived from the corners is as large as the caller's corners
         // make it (the caller's side of the contract): absurd corners only with given sizes.
         const bool derived = width == 0 || width >= 65536 || height == 0 || height >= 65536;
         double p[8];
         for (double& v : p) v = derived ? d.Real(-20, 90) : d.RealParam(-20, 90);
         Transform()->Quad(source, c.result.Out(), p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], width,
                           height, static_cast<short>(d.Int(0, 1)));
     }},
    {"Transform",
     [](Call& c, Draw& d) {
         IQEL* source = c.Input(false);
         RandomTransform map(d);
         int width = 0, height = 0;
         ResultSize(d, &width, &height);
         Transform()->Transform(d.Chance(0.03) ? nullptr : &map, source, c.result.Out(), d.Param(-40, 40),
                                d.Param(-40, 40), static_cast<unsigned>(width), static_cast<unsigned>(height),
                                0, 0);
         map.CheckBalanced(c);
     }},
    {"TransformPaste",
     [](Call& c, Draw& d) {
         IQEL* source = c.Input(false);
         IQEL* target = c.Input(true);
         RandomTransform map(d);
         Transform()->TransformPaste(d.Chance(0.03) ? nullptr : &map, source, target, d.Param(-40, 40),
                                     d.Param(-40, 40), static_cast<short>(d.Int(0, 1)), 0);
         map.CheckBalanced(c);
     }},
    {"FlipImageAndBits", [](Call& c, Draw&) { Transform()->FlipImageAndBits(c.Input(true)); }},
    {"CircleTransform",
     [](Call& c, Draw& d) {
         Deform()->CircleTransform(c.Input(true), d.Param(-2, 6), d.Int(0, 1), F(d.RealParam(-50, 50)));
     }},
    // ---- filters ----
    {"Erode", SizedFilter<&IQELFilterTransform::Erode>},
    {"Edge", SizedFilter<&IQELFilterTransform::Edge>},
    {"Dilate", SizedFilter<&IQELFilterTransform::Dilate>},
    {"Filter",
     [](Call& c, Draw& d) {
         // The kernel holds size * size entries: the caller's side of the contract.
         const int size = d.Int(-2, 7);
         std::vector<int> kernel(static_cast<size_t>(size > 0 ? size * size : 0));
         for (int& k : kernel) k = d.Chance(0.05) ? d.Param(0, 0) : d.Int(-20, 20);
         const int divisor = d.Chance(0.2) ? d.Pick<int>({0, -1, 1}) : d.Param(-50, 50);
         Filtered(c, d, [&](IQEL* i, IQEL** r) {
             Filters()->Filter(i, kernel.empty() ? nullptr : kernel.data(), size, divisor, d.Param(-300, 300),
                               r);
         });
     }},
    {"Contour", PlainFilter<&IQELFilterTransform::Contour>},
    {"Jitter",
     [](Call& c, Draw& d) {
         Filtered(c, d, [&](IQEL* i, IQEL** r) { Filters()->Jitter(i, d.Param(-70, 70), r); });
     }},
    {"Noise",
     [](Call& c, Draw& d) {
         Filtered(c, d, [&](IQEL* i, IQEL** r) { Filters()->Noise(i, d.Param(-300, 300), r); });
     }},
    {"Median", SizedFilter<&IQELFilterTransform::Median>},
    {"Emboss", PlainFilter<&IQELFilterTransform::Emboss>},
    {"Blur", PlainFilter<&IQELFilterTransform::Blur>},
    {"Soften", PlainFilter<&IQELFilterTransform::Soften>},
    {"Sharpen", PlainFilter<&IQELFilterTransform::Sharpen>},
    {"GaussianBlur",
     [](Call& c, Draw& d) {
         Filtered(c, d, [&](IQEL* i, IQEL** r) { Filters()->GaussianBlur(i, d.Param(-1, 4), r); });
     }},
    // ---- maths ----
    {"Equal",
     [](Call& c, Draw& d) {
         const Shape shape = RandomShape(d);
         IQEL* image = c.Image(shape, true);
         IQEL* mask = d.Chance(0.5) ? c.Image(Like(d, image, shape), false) : nullptr;
         if (Maths()->Equal(image, mask, static_cast<int>(d.Bits32())) != QEL_OK)
             c.Fail("Equal did not answer 0");
     }},
    {"Copy",
     [](Call& c, Draw& d) {
         const Shape shape = RandomShape(d);
         IQEL* dest = c.Image(shape, true);
         IQEL* source = c.Image(Like(d, dest, shape), false);
         IQEL* mask = d.Chance(0.3) ? c.Image(false) : nullptr;
         Maths()->Copy(dest, source, mask, d.Param(-70, 70), d.Param(-70, 70));
     }},
    {"AddScale",
     [](Call& c, Draw& d) {
         const Shape shape = RandomShape(d);
         IQEL* dest = c.Image(shape, true);
         IQEL* a = c.Image(Like(d, dest, shape), false);
         IQEL* b = c.Image(Like(d, dest, shape), false);
         IQEL* mask = d.Chance(0.4) ? c.Image(Like(d, dest, shape), false) : nullptr;
         Maths()->AddScale(dest, a, b, mask, F(d.RealParam(-2, 2)), F(d.RealParam(-2, 2)),
                           F(d.RealParam(-300, 300)));
     }},
    {"Scale",
     [](Call& c, Draw& d) {
         const Shape shape = RandomShape(d);
         IQEL* dest = c.Image(shape, true);
         IQEL* source = c.Image(Like(d, dest, shape), false);
         IQEL* mask = d.Chance(0.4) ? c.Image(Like(d, dest, shape), false) : nullptr;
         Maths()->Scale(dest, source, mask, F(d.RealParam(-3, 3)), F(d.RealParam(-300, 300)));
     }},
    {"Subtract",
     [](Call& c, Draw& d) {
         const Shape shape = RandomShape(d);
         IQEL* dest = d.Chance(0.03) ? nullptr : c.Image(shape, true);
         IQEL* a = c.Image(Like(d, dest, shape), false);
         IQEL* b = c.Image(Like(d, dest, shape), false);
         Maths()->Subtract(dest, a, b, d.Int(0, 3));
     }},
    {"CreateDestImage",
     [](Call& c, Draw& d) {
         IQEL* model = c.Input(false);
         const int bitCount = d.Chance(0.7) ? d.Pick<int>({0, 1, 4, 8, 16, 24, 32}) : d.Param(-5, 40);
         Maths()->CreateDestImage(c.result.Out(), model, bitCount, static_cast<int>(d.Bits32()));
     }},
    {"Add",
     [](Call& c, Draw& d) {
         const Shape shape = RandomShape(d);
         IQELImage* dest = c.Image(true);
         IQEL* a = c.Image(shape, false);
         IQEL* b = c.Image(Like(d, a, shape), false);
         Maths()->Add(dest, a, b, F(d.RealParam(-3, 3)));
     }},
    {"Scale8",
     [](Call& c, Draw& d) {
         IQELImage* dest = c.Image(true);
         IQEL* source = c.Image(false);
         Maths()->Scale8(dest, source, d.Param(-300, 300), d.RealParam(-3, 3));
     }},
};

// SplitMix64: independent call seeds from (run seed, call number).
uint64_t Mix(uint64_t value) {
    value += 0x9E3779B97F4A7C15ull;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
    return value ^ (value >> 31);
}

}  // namespace

void RunOneCall(uint64_t runSeed, uint64_t index) {
    const uint64_t callSeed = Mix(runSeed ^ Mix(index));
    Draw draw(callSeed);
    RunCall(draw, callSeed);
}

void RunCall(Draw& draw, uint64_t callSeed) {
    const Entry& entry = kOperations[draw.Int(0, int(std::size(kOperations)) - 1)];
    Call call(entry.name, callSeed, draw);
    entry.run(call, draw);
    call.Finish();
}

}  // namespace stress
