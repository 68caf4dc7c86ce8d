// Calls one method of the module straight through its interface, for the
// Python tests to compare the package's results with, byte for byte.
//
//   qel_python_reference FOLDER METHOD NUMBER... < IMAGES > RESULTS
//
// Standard input holds the image arguments as raw image records (below).
// Standard output gets the int32 result code, then the record of every image
// argument after the call and last that of the delivered image. Filter takes
// divisor, offset and size before the weights; Transform and TransformPaste
// take their six affine numbers last; Noise and Jitter take the seed of rand
// after the amount.
// Raw image record: int32 width, height, bit count and colour model, then the
// rows' bytes without padding. Width -1 stands for a null pointer, width 0 for
// a runtime image without a format.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "qel/host.h"

namespace {

qel::Host g_host;

SmartPtr<IQEL> ReadRaw(std::istream& in) {
    int32_t header[4] = {};
    in.read(reinterpret_cast<char*>(header), sizeof(header));
    if (header[0] < 0) return SmartPtr<IQEL>();
    if (header[0] == 0) return SmartPtr<IQEL>(g_host.NewImage().Detach());
    SmartPtr<IQELImageDIB> image =
        g_host.NewImage(header[0], header[1], header[2], static_cast<unsigned>(header[3]));
    const qel::Pixels p = qel::PixelsOf(image.Get());
    for (int y = 0; y < p.height; ++y)
        in.read(reinterpret_cast<char*>(p.Row(y)), static_cast<std::streamsize>(p.RowBytes()));
    return SmartPtr<IQEL>(image.Detach());
}

void WriteRaw(IQEL* image, std::ostream& out) {
    const qel::Pixels p = image != nullptr ? qel::PixelsOf(image) : qel::Pixels();
    const int32_t header[4] = {image != nullptr ? p.width : -1, p.height, p.bitCount,
                               static_cast<int32_t>(p.colourModel)};
    out.write(reinterpret_cast<const char*>(header), sizeof(header));
    for (int y = 0; y < p.height && p.bits != nullptr; ++y)
        out.write(reinterpret_cast<const char*>(p.Row(y)), static_cast<std::streamsize>(p.RowBytes()));
}

// The affine map of six numbers: x' = m0 x + m1 y + m2, y' = m3 x + m4 y + m5.
// It lives on the stack, so it counts no references.
struct Affine final : ITransform {
    explicit Affine(const double* numbers) : m(numbers) {}
    QResult QueryInterface(const IID&, void** object) override {
        *object = this;
        return QEL_OK;
    }
    uint32_t AddRef() override { return 2; }
    uint32_t Release() override { return 1; }
    QResult TransformPoint(double* x, double* y, double*) override {
        const double px = *x, py = *y;
        *x = m[0] * px + m[1] * py + m[2];
        *y = m[3] * px + m[4] * py + m[5];
        return QEL_OK;
    }
    const double* m;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    std::string error;
    if (!g_host.Load(argv[1], &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 2;
    }
    const std::string method = argv[2];
    std::vector<double> n;
    for (int i = 3; i < argc; ++i) n.push_back(std::strtod(argv[i], nullptr));
    std::vector<SmartPtr<IQEL>> images;
    while (std::cin.peek() != EOF) images.push_back(ReadRaw(std::cin));
    auto im = [&](size_t k) { return images[k].Get(); };
    // Whole numbers; each argument then converts to its parameter's type, as a caller's would.
    auto in = [&](size_t k) { return static_cast<int>(static_cast<long long>(n[k])); };

    auto c = g_host.Create<IQELColorTransform>(L"QELColorTransform", qel::iid::IQELColorTransform);
    auto t = g_host.Create<IQELTransform>(L"QELTransform", qel::iid::IQELTransform);
    auto d = g_host.Create<IQELDeform>(L"QELDeform", qel::iid::IQELDeform);
    auto f = g_host.Create<IQELFilterTransform>(L"QELFilterTransform", qel::iid::IQELFilterTransform);
    auto m = g_host.Create<IQELMaths>(L"QELMaths", qel::iid::IQELMaths);
    SmartPtr<IQEL> made;
    unsigned char table[256];
    for (size_t k = 0; k < 256 && k < n.size(); ++k) table[k] = static_cast<unsigned char>(in(k));
    std::vector<int> kernel;
    for (size_t k = 3; k < n.size(); ++k) kernel.push_back(in(k));
    Affine affine(n.size() >= 6 ? &n[n.size() - 6] : nullptr);  // the last six numbers
    SmartPtr<IQELImage> dest;
    if (!images.empty() && images[0]) images[0]->QueryInterface(qel::iid::IQELImage, dest.OutVoid());

    // One row per method: the call on the images and numbers given.
    const std::map<std::string, std::function<QResult()>> calls = {
        {"Colorize", [&] { return c->Colorize(im(0), in(0), in(1), n[2]); }},
        {"Lut", [&] { return c->Lut(im(0), table); }},
        {"Negative", [&] { return c->Negative(im(0)); }},
        {"GrayScale", [&] { return c->GrayScale(im(0)); }},
        {"ShiftRGB", [&] { return c->ShiftRGB(im(0), in(0), in(1), in(2)); }},
        {"Gamma", [&] { return c->Gamma(im(0), n[0]); }},
        {"Light", [&] { return c->Light(im(0), in(0), in(1)); }},
        {"SetImageAlpha", [&] { return c->SetImageAlpha(im(0), in(0), 0); }},
        {"SetImageAlphaTransparency", [&] { return c->SetImageAlphaTransparency(im(0), in(0), in(1)); }},
        {"SetImageTransparentPixel", [&] { return c->SetImageTransparentPixel(im(0), in(0)); }},
        {"Threshold", [&] { return c->Threshold(im(0), in(0)); }},
        {"Flip", [&] { return t->Flip(im(0), made.Out()); }},
        {"Mirror", [&] { return t->Mirror(im(0), made.Out()); }},
        {"Rotate", [&] { return t->Rotate(im(0), made.Out(), in(0), in(1), in(2), in(3)); }},
        {"Skew", [&] { return t->Skew(im(0), made.Out(), n[0], n[1], in(2), in(3), 0, in(4)); }},
        {"Resample", [&] { return t->Resample(im(0), made.Out(), in(0), in(1), in(2), in(3)); }},
        {"IncreaseBpp", [&] { return t->IncreaseBpp(im(0), made.Out(), in(0), in(1)); }},
        {"RotatePaste", [&] { return t->RotatePaste(im(0), im(1), n[0], in(1), in(2)); }},
        {"FlipBits", [&] { return t->FlipBits(im(0)); }},
        {"Quad",
         [&] {
             return t->Quad(im(0), made.Out(), n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], in(8), in(9),
                            in(10));
         }},
        {"Transform",
         [&] { return t->Transform(&affine, im(0), made.Out(), in(0), in(1), in(2), in(3), 0, 0); }},
        {"TransformPaste", [&] { return t->TransformPaste(&affine, im(0), im(1), in(0), in(1), in(2), 0); }},
        {"FlipImageAndBits", [&] { return t->FlipImageAndBits(im(0)); }},
        {"CircleTransform", [&] { return d->CircleTransform(im(0), in(0), in(1), n[2]); }},
        {"Erode", [&] { return f->Erode(im(0), in(0), made.Out()); }},
        {"Edge", [&] { return f->Edge(im(0), in(0), made.Out()); }},
        {"Dilate", [&] { return f->Dilate(im(0), in(0), made.Out()); }},
        {"Filter", [&] { return f->Filter(im(0), kernel.data(), in(2), in(0), in(1), made.Out()); }},
        {"Contour", [&] { return f->Contour(im(0), made.Out()); }},
        {"Noise", [&] { return std::srand(in(1)), f->Noise(im(0), in(0), made.Out()); }},
        {"Jitter", [&] { return std::srand(in(1)), f->Jitter(im(0), in(0), made.Out()); }},
        {"Median", [&] { return f->Median(im(0), in(0), made.Out()); }},
        {"Emboss", [&] { return f->Emboss(im(0), made.Out()); }},
        {"Blur", [&] { return f->Blur(im(0), made.Out()); }},
        {"Soften", [&] { return f->Soften(im(0), made.Out()); }},
        {"Sharpen", [&] { return f->Sharpen(im(0), made.Out()); }},
        {"GaussianBlur", [&] { return f->GaussianBlur(im(0), in(0), made.Out()); }},
        {"Equal", [&] { return m->Equal(im(0), im(1), in(0)); }},
        {"Copy", [&] { return m->Copy(im(0), im(1), im(2), in(0), in(1)); }},
        {"AddScale", [&] { return m->AddScale(im(0), im(1), im(2), im(3), n[0], n[1], n[2]); }},
        {"Scale", [&] { return m->Scale(im(0), im(1), im(2), n[0], n[1]); }},
        {"Subtract", [&] { return m->Subtract(im(0), im(1), im(2), in(0)); }},
        {"CreateDestImage", [&] { return m->CreateDestImage(made.Out(), im(0), in(0), in(1)); }},
        {"Add", [&] { return m->Add(dest.Get(), im(1), im(2), n[0]); }},
        {"Scale8", [&] { return m->Scale8(dest.Get(), im(1), in(0), n[1]); }},
    };
    const auto call = calls.find(method);
    if (call == calls.end()) return 3;
    const QResult r = call->second();

    std::cout.write(reinterpret_cast<const char*>(&r), sizeof(r));
    for (size_t k = 0; k < images.size(); ++k) WriteRaw(im(k), std::cout);
    WriteRaw(made.Get(), std::cout);
    return 0;
}
