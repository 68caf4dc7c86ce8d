// The table from method names to calls of the five components, with each
// number converted to the type of its parameter.
#include "operations.h"

#include <cmath>
#include <cstdint>
#include <map>

namespace qelpy {
namespace {

// Numbers arrive as doubles; whole numbers up to 2^32 are exact. Values out
// of range were refused by the Python layer, NaN passes to float parameters.
int I(const CallArguments& a, size_t k) { return static_cast<int>(static_cast<int64_t>(a.numbers[k])); }
unsigned U(const CallArguments& a, size_t k) {
    return static_cast<unsigned>(static_cast<uint32_t>(static_cast<int64_t>(a.numbers[k])));
}
float F(const CallArguments& a, size_t k) { return static_cast<float>(a.numbers[k]); }
double D(const CallArguments& a, size_t k) { return a.numbers[k]; }

IQELImage* AsImage(IQEL* image, SmartPtr<IQELImage>* holder) {
    if (image != nullptr) image->QueryInterface(qel::iid::IQELImage, holder->OutVoid());
    return holder->Get();
}

struct Entry {
    size_t images;   // how many image arguments
    size_t numbers;  // how many numbers (SIZE_MAX: any count, for Lut and Filter)
    QResult (*run)(const Components& c, const CallArguments& a, IQEL** made);
};

constexpr size_t kAny = SIZE_MAX;

const std::map<std::string, Entry>& Table() {
    using C = const Components&;
    using A = const CallArguments&;
    static const std::map<std::string, Entry> table = {
        // QELColorTransform: in place on image 0
        {"Colorize", {1, 3, [](C c, A a, IQEL**) {
             return c.colours->Colorize(a.images[0], static_cast<unsigned char>(I(a, 0)),
                                        static_cast<unsigned char>(I(a, 1)), F(a, 2));
         }}},
        {"Lut", {1, 256, [](C c, A a, IQEL**) {
             unsigned char bytes[256];
             for (size_t i = 0; i < 256; ++i) bytes[i] = static_cast<unsigned char>(I(a, i));
             return c.colours->Lut(a.images[0], bytes);
         }}},
        {"Negative", {1, 0, [](C c, A a, IQEL**) { return c.colours->Negative(a.images[0]); }}},
        {"GrayScale", {1, 0, [](C c, A a, IQEL**) { return c.colours->GrayScale(a.images[0]); }}},
        {"ShiftRGB", {1, 3, [](C c, A a, IQEL**) {
             return c.colours->ShiftRGB(a.images[0], I(a, 0), I(a, 1), I(a, 2));
         }}},
        {"Gamma", {1, 1, [](C c, A a, IQEL**) { return c.colours->Gamma(a.images[0], F(a, 0)); }}},
        {"Light", {1, 2, [](C c, A a, IQEL**) { return c.colours->Light(a.images[0], I(a, 0), I(a, 1)); }}},
        {"SetImageAlpha", {1, 1, [](C c, A a, IQEL**) {
             return c.colours->SetImageAlpha(a.images[0], I(a, 0), 0);
         }}},
        {"SetImageAlphaTransparency", {1, 2, [](C c, A a, IQEL**) {
             return c.colours->SetImageAlphaTransparency(a.images[0], I(a, 0), U(a, 1));
         }}},
        {"SetImageTransparentPixel", {1, 1, [](C c, A a, IQEL**) {
             return c.colours->SetImageTransparentPixel(a.images[0], U(a, 0));
         }}},
        {"Threshold", {1, 1, [](C c, A a, IQEL**) { return c.colours->Threshold(a.images[0], I(a, 0)); }}},
        // QELTransform
        {"Flip", {1, 0, [](C c, A a, IQEL** r) { return c.transform->Flip(a.images[0], r); }}},
        {"Mirror", {1, 0, [](C c, A a, IQEL** r) { return c.transform->Mirror(a.images[0], r); }}},
        {"Rotate", {1, 4, [](C c, A a, IQEL** r) {
             return c.transform->Rotate(a.images[0], r, I(a, 0), I(a, 1), I(a, 2), I(a, 3));
         }}},
        {"Skew", {1, 5, [](C c, A a, IQEL** r) {
             return c.transform->Skew(a.images[0], r, F(a, 0), F(a, 1), I(a, 2), I(a, 3), 0, I(a, 4));
         }}},
        {"Resample", {1, 4, [](C c, A a, IQEL** r) {
             return c.transform->Resample(a.images[0], r, I(a, 0), I(a, 1), I(a, 2), I(a, 3));
         }}},
        {"IncreaseBpp", {1, 2, [](C c, A a, IQEL** r) {
             return c.transform->IncreaseBpp(a.images[0], r, I(a, 0), U(a, 1));
         }}},
        {"RotatePaste", {2, 3, [](C c, A a, IQEL**) {
             return c.transform->RotatePaste(a.images[0], a.images[1], D(a, 0), I(a, 1), I(a, 2));
         }}},
        {"FlipBits", {1, 0, [](C c, A a, IQEL**) { return c.transform->FlipBits(a.images[0]); }}},
        {"Quad", {1, 11, [](C c, A a, IQEL** r) {
             return c.transform->Quad(a.images[0], r, D(a, 0), D(a, 1), D(a, 2), D(a, 3), D(a, 4), D(a, 5),
                                      D(a, 6), D(a, 7), U(a, 8), U(a, 9), static_cast<short>(I(a, 10)));
         }}},
        {"Transform", {1, 4, [](C c, A a, IQEL** r) {
             return c.transform->Transform(a.transform, a.images[0], r, I(a, 0), I(a, 1), U(a, 2), U(a, 3), 0, 0);
         }}},
        {"TransformPaste", {2, 3, [](C c, A a, IQEL**) {
             return c.transform->TransformPaste(a.transform, a.images[0], a.images[1], I(a, 0), I(a, 1),
                                                static_cast<short>(I(a, 2)), 0);
         }}},
        {"FlipImageAndBits", {1, 0, [](C c, A a, IQEL**) { return c.transform->FlipImageAndBits(a.images[0]); }}},
        // QELDeform
        {"CircleTransform", {1, 3, [](C c, A a, IQEL**) {
             return c.deform->CircleTransform(a.images[0], I(a, 0), I(a, 1), F(a, 2));
         }}},
        // QELFilterTransform: a new image through the result pointer
        {"Erode", {1, 1, [](C c, A a, IQEL** r) { return c.filters->Erode(a.images[0], I(a, 0), r); }}},
        {"Edge", {1, 1, [](C c, A a, IQEL** r) { return c.filters->Edge(a.images[0], I(a, 0), r); }}},
        {"Dilate", {1, 1, [](C c, A a, IQEL** r) { return c.filters->Dilate(a.images[0], I(a, 0), r); }}},
        {"Filter", {1, kAny, [](C c, A a, IQEL** r) {
             // divisor, offset, then the size x size weights
             std::vector<int> kernel;
             for (size_t i = 2; i < a.numbers.size(); ++i) kernel.push_back(I(a, i));
             const int size = static_cast<int>(std::lround(std::sqrt(static_cast<double>(kernel.size()))));
             return c.filters->Filter(a.images[0], kernel.data(), size, I(a, 0), I(a, 1), r);
         }}},
        {"Contour", {1, 0, [](C c, A a, IQEL** r) { return c.filters->Contour(a.images[0], r); }}},
        {"Jitter", {1, 1, [](C c, A a, IQEL** r) { return c.filters->Jitter(a.images[0], I(a, 0), r); }}},
        {"Noise", {1, 1, [](C c, A a, IQEL** r) { return c.filters->Noise(a.images[0], I(a, 0), r); }}},
        {"Median", {1, 1, [](C c, A a, IQEL** r) { return c.filters->Median(a.images[0], I(a, 0), r); }}},
        {"Emboss", {1, 0, [](C c, A a, IQEL** r) { return c.filters->Emboss(a.images[0], r); }}},
        {"Blur", {1, 0, [](C c, A a, IQEL** r) { return c.filters->Blur(a.images[0], r); }}},
        {"Soften", {1, 0, [](C c, A a, IQEL** r) { return c.filters->Soften(a.images[0], r); }}},
        {"Sharpen", {1, 0, [](C c, A a, IQEL** r) { return c.filters->Sharpen(a.images[0], r); }}},
        {"GaussianBlur", {1, 1, [](C c, A a, IQEL** r) {
             return c.filters->GaussianBlur(a.images[0], I(a, 0), r);
         }}},
        // QELMaths: destinations first, as the interface takes them
        {"Equal", {2, 1, [](C c, A a, IQEL**) { return c.maths->Equal(a.images[0], a.images[1], I(a, 0)); }}},
        {"Copy", {3, 2, [](C c, A a, IQEL**) {
             return c.maths->Copy(a.images[0], a.images[1], a.images[2], I(a, 0), I(a, 1));
         }}},
        {"AddScale", {4, 3, [](C c, A a, IQEL**) {
             return c.maths->AddScale(a.images[0], a.images[1], a.images[2], a.images[3], F(a, 0), F(a, 1),
                                      F(a, 2));
         }}},
        {"Scale", {3, 2, [](C c, A a, IQEL**) {
             return c.maths->Scale(a.images[0], a.images[1], a.images[2], F(a, 0), F(a, 1));
         }}},
        {"Subtract", {3, 1, [](C c, A a, IQEL**) {
             return c.maths->Subtract(a.images[0], a.images[1], a.images[2], I(a, 0));
         }}},
        {"CreateDestImage", {1, 2, [](C c, A a, IQEL** r) {
             return c.maths->CreateDestImage(r, a.images[0], I(a, 0), I(a, 1));
         }}},
        {"Add", {3, 1, [](C c, A a, IQEL**) {
             SmartPtr<IQELImage> dest;
             return c.maths->Add(AsImage(a.images[0], &dest), a.images[1], a.images[2], F(a, 0));
         }}},
        {"Scale8", {2, 2, [](C c, A a, IQEL**) {
             SmartPtr<IQELImage> dest;
             return c.maths->Scale8(AsImage(a.images[0], &dest), a.images[1], I(a, 0), D(a, 1));
         }}},
    };
    return table;
}

}  // namespace

bool RunOperation(const Components& components, const std::string& method, const CallArguments& args,
                  QResult* result, SmartPtr<IQEL>* made) {
    const auto found = Table().find(method);
    if (found == Table().end()) return false;
    const Entry& entry = found->second;
    if (args.images.size() != entry.images) return false;
    if (entry.numbers == kAny ? args.numbers.size() < 2 : args.numbers.size() != entry.numbers) return false;
    *result = entry.run(components, args, made->Out());
    return true;
}

std::vector<std::string> OperationNames() {
    std::vector<std::string> names;
    for (const auto& entry : Table()) names.push_back(entry.first);
    return names;
}

AffineTransform::AffineTransform(const double (&m)[6]) {
    for (int i = 0; i < 6; ++i) m_[i] = m[i];
}

QResult AffineTransform::QueryInterface(const IID& iid, void** object) {
    if (object == nullptr) return QEL_E_POINTER;
    if (iid == qel::iid::IUnknown || iid == qel::iid::ITransform) {
        *object = static_cast<ITransform*>(this);
        return QEL_OK;
    }
    *object = nullptr;
    return QEL_E_NOINTERFACE;
}

QResult AffineTransform::TransformPoint(double* x, double* y, double*) {
    const double px = *x, py = *y;
    *x = m_[0] * px + m_[1] * py + m_[2];
    *y = m_[3] * px + m_[4] * py + m_[5];
    return QEL_OK;
}

}  // namespace qelpy
