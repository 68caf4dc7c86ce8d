// The operations the stress driver calls: every public operation of the five
// components, with random images and random (sometimes absurd) parameters.
#include <cmath>
#include <cstring>
#include <limits>

#include "stress/stress_check.h"

namespace stress {
namespace {

struct Components {
    SmartPtr<IQELColorTransform> colour;
    SmartPtr<IQELTransform> transform;
    SmartPtr<IQELDeform> deform;
    SmartPtr<IQELFilterTransform> filter;
    SmartPtr<IQELMaths> maths;
};

Components& Get() {
    static Components* components = [] {
        auto* made = new Components();
        qel::Host& host = qeltest::TestHost();
        made->colour = host.Create<IQELColorTransform>(L"QELColorTransform", qel::iid::IQELColorTransform);
        made->transform = host.Create<IQELTransform>(L"QELTransform", qel::iid::IQELTransform);
        made->deform = host.Create<IQELDeform>(L"QELDeform", qel::iid::IQELDeform);
        made->filter = host.Create<IQELFilterTransform>(L"QELFilterTransform", qel::iid::IQELFilterTransform);
        made->maths = host.Create<IQELMaths>(L"QELMaths", qel::iid::IQELMaths);
        return made;
    }();
    return *components;
}

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
    uint32_t refs_ = 1;

private:
    double coefficients_[6];
    double wild_;
};

// Result sizes the caller may ask for: mostly small, sometimes negative, and
// sometimes so large that the runtime refuses the image (the byte count is far
// above its limit) rather than allocating gigabytes.
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

// ---- colour ----
void Colorize(Call& call, Draw& d) {
    IQEL* image = call.Input(true);
    const QResult r =
        Get().colour->Colorize(image, static_cast<unsigned char>(d.Int(0, 255)),
                               static_cast<unsigned char>(d.Int(0, 255)), F(d.RealParam(-0.5, 1.5)));
    if (image == nullptr && r != QEL_E_FAIL) call.Fail("null image not refused");
    call.Finish();
}
void Lut(Call& call, Draw& d) {
    IQEL* image = call.Input(true);
    unsigned char table[256];
    for (unsigned char& entry : table) entry = static_cast<unsigned char>(d.Bits32());
    Get().colour->Lut(image, d.Chance(0.05) ? nullptr : table);
    call.Finish();
}
void Negative(Call& call, Draw&) {
    Get().colour->Negative(call.Input(true));
    call.Finish();
}
void GrayScale(Call& call, Draw&) {
    Get().colour->GrayScale(call.Input(true));
    call.Finish();
}
void ShiftRGB(Call& call, Draw& d) {
    Get().colour->ShiftRGB(call.Input(true), d.Param(-300, 300), d.Param(-300, 300), d.Param(-300, 300));
    call.Finish();
}
void Gamma(Call& call, Draw& d) {
    Get().colour->Gamma(call.Input(true), F(d.RealParam(-1, 5)));
    call.Finish();
}
void Light(Call& call, Draw& d) {
    Get().colour->Light(call.Input(true), d.Param(-300, 300), d.Param(-300, 300));
    call.Finish();
}
void SetImageAlpha(Call& call, Draw& d) {
    Get().colour->SetImageAlpha(call.Input(true), d.Param(-10, 300), d.Param(-1, 1));
    call.Finish();
}
void SetImageAlphaTransparency(Call& call, Draw& d) {
    Get().colour->SetImageAlphaTransparency(call.Input(true), d.Param(-10, 300), d.Bits32());
    call.Finish();
}
void SetImageTransparentPixel(Call& call, Draw& d) {
    Get().colour->SetImageTransparentPixel(call.Input(true),
                                           d.Chance(0.5) ? d.Bits32() & 0xFFFFFF : d.Bits32());
    call.Finish();
}
void Threshold(Call& call, Draw& d) {
    Get().colour->Threshold(call.Input(true), d.Param(-10, 300));
    call.Finish();
}

// ---- orientation, rotation, resampling, depth ----
template <QResult (IQELTransform::*Method)(IQEL*, IQEL**)>
void NewImageOf(Call& call, Draw&) {
    IQEL* source = call.Input(false);
    SmartPtr<IQEL> result;
    (Get().transform.Get()->*Method)(source, result.Out());
    call.Finish(result.Get());
}
void Rotate(Call& call, Draw& d) {
    IQEL* source = call.Input(false);
    SmartPtr<IQEL> result;
    const int angle =
        d.Chance(0.3) ? d.Pick<int>({0, 90, -90, 180, 270, 360, -180, 450}) : d.Param(-720, 720);
    const QResult r = Get().transform->Rotate(source, d.Chance(0.03) ? nullptr : result.Out(), angle,
                                              d.Param(-2, 17), d.Int(0, 1), d.Int(0, 1));
    (void)r;
    call.Finish(result.Get());
}
void Skew(Call& call, Draw& d) {
    IQEL* source = call.Input(false);
    SmartPtr<IQEL> result;
    Get().transform->Skew(source, result.Out(), F(d.RealParam(-3, 3)), F(d.RealParam(-3, 3)),
                          d.Param(-70, 70), d.Param(-70, 70), 0, d.Int(0, 1));
    call.Finish(result.Get());
}
void Resample(Call& call, Draw& d) {
    IQEL* source = call.Input(false);
    SmartPtr<IQEL> result;
    int width = 0, height = 0;
    ResultSize(d, &width, &height);
    Get().transform->Resample(source, result.Out(), width, height, d.Param(-2, 17), d.Chance(0.3));
    call.Finish(result.Get());
}
void IncreaseBpp(Call& call, Draw& d) {
    IQEL* source = call.Input(false);
    SmartPtr<IQEL> result;
    const int bitCount = d.Chance(0.8) ? d.Pick<int>({1, 4, 8, 16, 24, 32}) : d.Param(-5, 40);
    Get().transform->IncreaseBpp(source, result.Out(), bitCount,
                                 d.Pick<unsigned>({QEL_MODEL_BGR, QEL_MODEL_ARGB, 0u}));
    call.Finish(result.Get());
}
void RotatePaste(Call& call, Draw& d) {
    IQEL* source = call.Input(false);
    IQEL* target = call.Input(true);
    Get().transform->RotatePaste(source, target, d.RealParam(-7, 7), d.Param(-2, 17),
                                 static_cast<int>(d.Bits32()));
    call.Finish();
}
void FlipBits(Call& call, Draw&) {
    Get().transform->FlipBits(call.Input(true));
    call.Finish();
}
void FlipImageAndBits(Call& call, Draw&) {
    Get().transform->FlipImageAndBits(call.Input(true));
    call.Finish();
}
void Quad(Call& call, Draw& d) {
    IQEL* source = call.Input(false);
    SmartPtr<IQEL> result;
    unsigned width = static_cast<unsigned>(d.Int(1, 96)), height = static_cast<unsigned>(d.Int(1, 96));
    if (d.Chance(0.1)) width = d.Pick<unsigned>({0u, 65536u, 70000u, 0xFFFFFFFFu});
    if (d.Chance(0.1)) height = d.Pick<unsigned>({0u, 65536u, 70000u, 0xFFFFFFFFu});
    // A size derived from the corners is as large as the caller's corners make
    // it (a caller's side of the contract): absurd corners only with given sizes.
    const bool derived = width == 0 || width >= 65536 || height == 0 || height >= 65536;
    double points[8];
    for (double& p : points) p = derived ? d.Real(-20, 90) : d.RealParam(-20, 90);
    Get().transform->Quad(source, result.Out(), points[0], points[1], points[2], points[3], points[4],
                          points[5], points[6], points[7], width, height, static_cast<short>(d.Int(0, 1)));
    call.Finish(result.Get());
}
void Transform(Call& call, Draw& d) {
    IQEL* source = call.Input(false);
    RandomTransform transform(d);
    SmartPtr<IQEL> result;
    int width = 0, height = 0;
    ResultSize(d, &width, &height);
    Get().transform->Transform(d.Chance(0.03) ? nullptr : &transform, source, result.Out(), d.Param(-40, 40),
                               d.Param(-40, 40), static_cast<unsigned>(width), static_cast<unsigned>(height),
                               0, 0);
    if (transform.refs_ != 1) call.Fail("the caller's transform lost or gained a reference");
    call.Finish(result.Get());
}
void TransformPaste(Call& call, Draw& d) {
    IQEL* source = call.Input(false);
    IQEL* target = call.Input(true);
    RandomTransform transform(d);
    Get().transform->TransformPaste(d.Chance(0.03) ? nullptr : &transform, source, target, d.Param(-40, 40),
                                    d.Param(-40, 40), static_cast<short>(d.Int(0, 1)), 0);
    if (transform.refs_ != 1) call.Fail("the caller's transform lost or gained a reference");
    call.Finish();
}
void CircleTransform(Call& call, Draw& d) {
    Get().deform->CircleTransform(call.Input(true), d.Param(-2, 6), d.Int(0, 1), F(d.RealParam(-50, 50)));
    call.Finish();
}

// ---- filters: the result comes back through `result`, or replaces the source ----
template <class Invoke>
void Filtered(Call& call, Draw& d, Invoke invoke) {
    const bool inPlace = d.Chance(0.3);
    IQEL* image = call.Input(inPlace);
    SmartPtr<IQEL> result;
    invoke(image, inPlace ? nullptr : result.Out());
    call.Finish(result.Get());
}
int FilterSize(Draw& d) {
    return d.Chance(0.05) ? d.Pick<int>({-3, 0, 1000000, std::numeric_limits<int>::max()}) : d.Int(-1, 9);
}
void Erode(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Erode(i, FilterSize(d), r); });
}
void Dilate(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Dilate(i, FilterSize(d), r); });
}
void Edge(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Edge(i, FilterSize(d), r); });
}
void Median(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Median(i, FilterSize(d), r); });
}
void Filter(Call& call, Draw& d) {
    // The kernel holds size * size entries: the caller's side of the contract.
    const int size = d.Int(-2, 7);
    std::vector<int> kernel(static_cast<size_t>(size > 0 ? size * size : 0));
    for (int& k : kernel) k = d.Chance(0.05) ? d.Param(0, 0) : d.Int(-20, 20);
    const int divisor = d.Chance(0.2) ? d.Pick<int>({0, -1, 1}) : d.Param(-50, 50);
    Filtered(call, d, [&](IQEL* i, IQEL** r) {
        Get().filter->Filter(i, kernel.empty() ? nullptr : kernel.data(), size, divisor, d.Param(-300, 300),
                             r);
    });
}
void Contour(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Contour(i, r); });
}
void Jitter(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Jitter(i, d.Param(-70, 70), r); });
}
void Noise(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Noise(i, d.Param(-300, 300), r); });
}
void Emboss(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Emboss(i, r); });
}
void Blur(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Blur(i, r); });
}
void Soften(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Soften(i, r); });
}
void Sharpen(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->Sharpen(i, r); });
}
void GaussianBlur(Call& call, Draw& d) {
    Filtered(call, d, [&](IQEL* i, IQEL** r) { Get().filter->GaussianBlur(i, d.Param(-1, 4), r); });
}

// ---- maths ----
// A mask or second operand: often the first image's size, sometimes any size.
Shape Like(Draw& d, const IQEL* first, const Shape& shape) {
    Shape other = RandomShape(d);
    if (first != nullptr && d.Chance(0.6)) {
        other.width = shape.width;
        other.height = shape.height;
    }
    if (d.Chance(0.4)) other.bitCount = shape.bitCount;
    if (d.Chance(0.4)) other.colourModel = shape.colourModel;
    return other;
}
void Equal(Call& call, Draw& d) {
    const Shape shape = RandomShape(d);
    IQEL* image = call.Image(shape, true);
    IQEL* mask = d.Chance(0.5) ? call.Image(Like(d, image, shape), false) : nullptr;
    if (Get().maths->Equal(image, mask, static_cast<int>(d.Bits32())) != QEL_OK)
        call.Fail("Equal did not answer 0");
    call.Finish();
}
void Copy(Call& call, Draw& d) {
    const Shape shape = RandomShape(d);
    IQEL* dest = call.Image(shape, true);
    IQEL* source = call.Image(Like(d, dest, shape), false);
    IQEL* mask = d.Chance(0.3) ? call.Image(false) : nullptr;
    Get().maths->Copy(dest, source, mask, d.Param(-70, 70), d.Param(-70, 70));
    call.Finish();
}
void AddScale(Call& call, Draw& d) {
    const Shape shape = RandomShape(d);
    IQEL* dest = call.Image(shape, true);
    IQEL* a = call.Image(Like(d, dest, shape), false);
    IQEL* b = call.Image(Like(d, dest, shape), false);
    IQEL* mask = d.Chance(0.4) ? call.Image(Like(d, dest, shape), false) : nullptr;
    Get().maths->AddScale(dest, a, b, mask, F(d.RealParam(-2, 2)), F(d.RealParam(-2, 2)),
                          F(d.RealParam(-300, 300)));
    call.Finish();
}
void Scale(Call& call, Draw& d) {
    const Shape shape = RandomShape(d);
    IQEL* dest = call.Image(shape, true);
    IQEL* source = call.Image(Like(d, dest, shape), false);
    IQEL* mask = d.Chance(0.4) ? call.Image(Like(d, dest, shape), false) : nullptr;
    Get().maths->Scale(dest, source, mask, F(d.RealParam(-3, 3)), F(d.RealParam(-300, 300)));
    call.Finish();
}
void Subtract(Call& call, Draw& d) {
    const Shape shape = RandomShape(d);
    IQEL* dest = d.Chance(0.03) ? nullptr : call.Image(shape, true);
    IQEL* a = call.Image(Like(d, dest, shape), false);
    IQEL* b = call.Image(Like(d, dest, shape), false);
    Get().maths->Subtract(dest, a, b, d.Int(0, 3));
    call.Finish();
}
void CreateDestImage(Call& call, Draw& d) {
    IQEL* model = call.Input(false);
    SmartPtr<IQEL> dest;
    const int bitCount = d.Chance(0.7) ? d.Pick<int>({0, 1, 4, 8, 16, 24, 32}) : d.Param(-5, 40);
    Get().maths->CreateDestImage(dest.Out(), model, bitCount, static_cast<int>(d.Bits32()));
    call.Finish(dest.Get());
}
void Add(Call& call, Draw& d) {
    const Shape shape = RandomShape(d);
    IQELImage* dest = call.Image(true);
    IQEL* a = call.Image(shape, false);
    IQEL* b = call.Image(Like(d, a, shape), false);
    Get().maths->Add(dest, a, b, F(d.RealParam(-3, 3)));
    call.Finish();
}
void Scale8(Call& call, Draw& d) {
    IQELImage* dest = call.Image(true);
    IQEL* source = call.Image(false);
    Get().maths->Scale8(dest, source, d.Param(-300, 300), d.RealParam(-3, 3));
    call.Finish();
}

using Operation = void (*)(Call&, Draw&);
struct Entry {
    const char* name;
    Operation run;
};
const Entry kOperations[] = {
    {"Colorize", Colorize},
    {"Lut", Lut},
    {"Negative", Negative},
    {"GrayScale", GrayScale},
    {"ShiftRGB", ShiftRGB},
    {"Gamma", Gamma},
    {"Light", Light},
    {"SetImageAlpha", SetImageAlpha},
    {"SetImageAlphaTransparency", SetImageAlphaTransparency},
    {"SetImageTransparentPixel", SetImageTransparentPixel},
    {"Threshold", Threshold},
    {"Flip", NewImageOf<&IQELTransform::Flip>},
    {"Mirror", NewImageOf<&IQELTransform::Mirror>},
    {"Rotate", Rotate},
    {"Skew", Skew},
    {"Resample", Resample},
    {"IncreaseBpp", IncreaseBpp},
    {"RotatePaste", RotatePaste},
    {"FlipBits", FlipBits},
    {"Quad", Quad},
    {"Transform", Transform},
    {"TransformPaste", TransformPaste},
    {"FlipImageAndBits", FlipImageAndBits},
    {"CircleTransform", CircleTransform},
    {"Erode", Erode},
    {"Edge", Edge},
    {"Dilate", Dilate},
    {"Filter", Filter},
    {"Contour", Contour},
    {"Jitter", Jitter},
    {"Noise", Noise},
    {"Median", Median},
    {"Emboss", Emboss},
    {"Blur", Blur},
    {"Soften", Soften},
    {"Sharpen", Sharpen},
    {"GaussianBlur", GaussianBlur},
    {"Equal", Equal},
    {"Copy", Copy},
    {"AddScale", AddScale},
    {"Scale", Scale},
    {"Subtract", Subtract},
    {"CreateDestImage", CreateDestImage},
    {"Add", Add},
    {"Scale8", Scale8},
};
constexpr int kOperationCount = static_cast<int>(sizeof(kOperations) / sizeof(kOperations[0]));
int gOnly = -1;

// SplitMix64: independent call seeds from (run seed, call number).
uint64_t Mix(uint64_t value) {
    value += 0x9E3779B97F4A7C15ull;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
    return value ^ (value >> 31);
}

}  // namespace

std::vector<std::string> OperationNames() {
    std::vector<std::string> names;
    for (const Entry& entry : kOperations) names.push_back(entry.name);
    return names;
}

bool OnlyOperation(const std::string& name) {
    for (int i = 0; i < kOperationCount; ++i)
        if (name == kOperations[i].name) gOnly = i;
    return gOnly >= 0;
}

const char* RunOneCall(uint64_t runSeed, uint64_t index) {
    const uint64_t callSeed = Mix(runSeed ^ Mix(index));
    Draw draw(callSeed);
    const Entry& entry = kOperations[gOnly >= 0 ? gOnly : draw.Int(0, kOperationCount - 1)];
    Call call(entry.name, callSeed, draw);
    entry.run(call, draw);
    return entry.name;
}

}  // namespace stress
