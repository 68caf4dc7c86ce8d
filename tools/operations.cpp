// The operation table, the parsing of one chain step and the component calls.
#include "tools/operations.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "tools/image_file.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"
#include "tools/sample_chart.h"

namespace qeltool {
namespace {

// ---- value parsing ---------------------------------------------------------

bool ParseLong(const std::string& text, long long* value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0') return false;
    *value = v;
    return true;
}

bool ParseDouble(const std::string& text, double* value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(v)) return false;
    *value = v;
    return true;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t at = text.find(separator, start);
        parts.push_back(text.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos) return parts;
        start = at + 1;
    }
}

// A coordinate: a number, or a percentage of the image's extent.
bool ParseCoordinate(const std::string& text, double* value, bool* percent) {
    *percent = !text.empty() && text.back() == '%';
    return ParseDouble(*percent ? text.substr(0, text.size() - 1) : text, value);
}

bool ParseModel(const std::string& text, unsigned* model) {
    std::string upper;
    for (char c : text) upper.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    if (upper == "MONO")
        *model = QEL_MODEL_MONO;
    else if (upper == "BGR")
        *model = QEL_MODEL_BGR;
    else if (upper == "ARGB")
        *model = QEL_MODEL_ARGB;
    else if (upper == "ABGR")
        *model = QEL_MODEL_ABGR;
    else if (upper == "0")
        *model = 0;
    else
        return false;
    return true;
}

// Checks `text` as a value of `param`; on failure says what was expected.
bool CheckValue(const Param& param, const std::string& text, std::string* expected) {
    switch (param.kind) {
        case ParamKind::Int: {
            long long v = 0;
            char range[96];
            std::snprintf(range, sizeof(range), "a whole number from %g to %g", param.min, param.max);
            *expected = range;
            return ParseLong(text, &v) && v >= param.min && v <= param.max;
        }
        case ParamKind::Float: {
            double v = 0;
            char range[96];
            std::snprintf(range, sizeof(range), "a number from %g to %g", param.min, param.max);
            *expected = range;
            return ParseDouble(text, &v) && v >= param.min && v <= param.max;
        }
        case ParamKind::Size: {
            *expected = "a size WxH (1 to 32768 each) or a percentage such as 50%";
            double v = 0;
            if (!text.empty() && text.back() == '%')
                return ParseDouble(text.substr(0, text.size() - 1), &v) && v > 0 && v <= 1000;
            const std::vector<std::string> parts = Split(text, 'x');
            long long w = 0, h = 0;
            // The pixel count is held to the pixel limit when the step runs.
            return parts.size() == 2 && ParseLong(parts[0], &w) && ParseLong(parts[1], &h) && w >= 1 &&
                   h >= 1 && w <= 32768 && h <= 32768;
        }
        case ParamKind::Point: {
            *expected = "a point X,Y (pixels, or percentages such as 10%,20%)";
            const std::vector<std::string> parts = Split(text, ',');
            double x = 0, y = 0;
            bool px = false, py = false;
            return parts.size() == 2 && ParseCoordinate(parts[0], &x, &px) &&
                   ParseCoordinate(parts[1], &y, &py) && std::fabs(x) <= 1e6 && std::fabs(y) <= 1e6;
        }
        case ParamKind::IntList: {
            *expected = "comma-separated whole numbers, a square count of them (1, 9, 25, 49, ...)";
            const std::vector<std::string> parts = Split(text, ',');
            for (const std::string& part : parts) {
                long long v = 0;
                if (!ParseLong(part, &v) || v < -100000 || v > 100000) return false;
            }
            const size_t side =
                static_cast<size_t>(std::lround(std::sqrt(static_cast<double>(parts.size()))));
            return side * side == parts.size() && side % 2 == 1 && side <= 15;
        }
        case ParamKind::Curve: {
            *expected =
                "points IN:OUT separated by commas, each 0 to 255, IN increasing (such as "
                "0:0,128:200,255:255)";
            long long last = -1;
            for (const std::string& point : Split(text, ',')) {
                const std::vector<std::string> io = Split(point, ':');
                long long in = 0, out = 0;
                if (io.size() != 2 || !ParseLong(io[0], &in) || !ParseLong(io[1], &out) || in <= last ||
                    in > 255 || out < 0 || out > 255)
                    return false;
                last = in;
            }
            return true;
        }
        case ParamKind::Colour: {
            *expected = "a colour RRGGBB in hex (such as FF8000)";
            std::string hex = text;
            if (!hex.empty() && hex[0] == '#') hex.erase(0, 1);
            return hex.size() == 6 && std::all_of(hex.begin(), hex.end(), [](char c) {
                       return std::isxdigit(static_cast<unsigned char>(c)) != 0;
                   });
        }
        case ParamKind::Model: {
            *expected = "a colour model: MONO, BGR, ARGB, ABGR or 0";
            unsigned model = 0;
            return ParseModel(text, &model);
        }
        case ParamKind::Matrix: {
            *expected = "six comma-separated numbers A,B,C,D,E,F";
            const std::vector<std::string> parts = Split(text, ',');
            double v = 0;
            return parts.size() == 6 && std::all_of(parts.begin(), parts.end(), [&](const std::string& p) {
                       return ParseDouble(p, &v) && std::fabs(v) <= 1e6;
                   });
        }
        case ParamKind::File:
            *expected = "an image file, 'sample' or 'pattern'";
            return !text.empty();
        case ParamKind::Flag:
            return true;
    }
    return false;
}

// ---- calling the components ------------------------------------------------

template <class I>
I* Get(OperationContext& context, const char* objectName, QResult* failure) {
    std::string ignored;
    IUnknown* component = context.Component(objectName, &ignored);
    if (component == nullptr) *failure = QEL_E_NOINTERFACE;
    return static_cast<I*>(component);
}

#define QEL_COMPONENT(Interface, name)                              \
    QResult failure = QEL_OK;                                       \
    Interface* component = Get<Interface>(context, name, &failure); \
    if (component == nullptr) return failure;

// Replaces the image by an operation's new result.
QResult TakeResult(QResult result, SmartPtr<IQEL>& image, SmartPtr<IQEL>& made) {
    if (result >= 0) {
        if (!made) return QEL_E_POINTER;
        image = std::move(made);
    }
    return result;
}

// Gives a 32-bit "ARGB" copy of an image that has no alpha channel yet.
void EnsureAlpha(OperationContext& context, SmartPtr<IQEL>& image) {
    const qel::Pixels p = qel::PixelsOf(image.Get());
    if (p.bitCount == 32 && p.colourModel != QEL_MODEL_MONO) return;
    SmartPtr<IQEL> converted = FromRaster(context.Host(), ToRaster(image.Get()), 32, QEL_MODEL_ARGB);
    if (converted) image = std::move(converted);
}

// Brings a second image to the bit count and colour model of the first.
SmartPtr<IQEL> Conform(OperationContext& context, SmartPtr<IQEL> second, IQEL* like) {
    const qel::Pixels target = qel::PixelsOf(like);
    const qel::Pixels p = qel::PixelsOf(second.Get());
    if (p.bitCount == target.bitCount && p.colourModel == target.colourModel) return second;
    return FromRaster(context.Host(), ToRaster(second.Get()), target.bitCount, target.colourModel);
}

// An 8-bit mask of at least the image's size.
SmartPtr<IQEL> LoadMask(OperationContext& context, const std::string& name, IQEL* like, std::string* error) {
    SmartPtr<IQEL> mask = context.LoadSecond(name, like, error);
    if (!mask) return mask;
    const qel::Pixels p = qel::PixelsOf(like), m = qel::PixelsOf(mask.Get());
    if (m.width < p.width || m.height < p.height) {
        *error = "the mask is smaller than the image";
        return SmartPtr<IQEL>();
    }
    if (m.bitCount == 8) return mask;
    return FromRaster(context.Host(), ToRaster(mask.Get()), 8, QEL_MODEL_MONO);
}

// A copy of the image, used as the destination of in-place arithmetic so that
// pixels the operation leaves alone keep their values.
SmartPtr<IQEL> Destination(OperationContext& context, IQEL* image) {
    return CopyImage(context.Host(), image);
}

// The affine map of `transform` and `transformpaste`: (x, y) becomes
// (a x + b y + c, d x + e y + f).
class AffineTransform final : public ITransform {
public:
    explicit AffineTransform(const std::vector<double>& m) : m_(m) {}
    QResult QueryInterface(const IID& iid, void** object) override {
        if (object == nullptr) return QEL_E_POINTER;
        if (iid == qel::iid::IUnknown || iid == qel::iid::ITransform) {
            *object = static_cast<ITransform*>(this);
            AddRef();
            return QEL_OK;
        }
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }
    // Lives on the caller's stack for the duration of one call.
    uint32_t AddRef() override { return ++references_; }
    uint32_t Release() override { return --references_; }
    QResult TransformPoint(double* x, double* y, double* /*z*/) override {
        const double px = *x, py = *y;
        *x = m_[0] * px + m_[1] * py + m_[2];
        *y = m_[3] * px + m_[4] * py + m_[5];
        return QEL_OK;
    }

private:
    std::vector<double> m_;
    uint32_t references_ = 1;
};

std::vector<double> Matrix(const Arguments& args) {
    std::vector<double> m;
    for (const std::string& part : Split(args.Text("matrix"), ','))
        m.push_back(std::strtod(part.c_str(), nullptr));
    return m;
}

// Where the paste operations draw: the --onto image, or black of the same size.
SmartPtr<IQEL> PasteTarget(OperationContext& context, const Arguments& args, IQEL* image, int minimumBits,
                           std::string* error) {
    if (args.Has("--onto")) {
        SmartPtr<IQEL> target = context.LoadSecond(args.Text("--onto"), image, error);
        if (!target) return target;
        target = Conform(context, std::move(target), image);
        // RotatePaste writes three or four bytes per target pixel.
        if (target && qel::PixelsOf(target.Get()).bitCount < minimumBits)
            target = FromRaster(context.Host(), ToRaster(target.Get()), 24, QEL_MODEL_BGR);
        return target;
    }
    const qel::Pixels p = qel::PixelsOf(image);
    const int bits = std::max(p.bitCount, minimumBits);
    SmartPtr<IQELImageDIB> blank =
        context.Host().NewImage(p.width, p.height, bits, bits == p.bitCount ? p.colourModel : QEL_MODEL_BGR);
    return SmartPtr<IQEL>(blank.Detach());
}

// ---- sizes of results ------------------------------------------------------

// The size of an image an operation makes, in 64 bits so that no argument can
// wrap it before it is checked against the pixel limit.
struct Extent {
    long long width = 0, height = 0;
};

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

// ---- the runners -----------------------------------------------------------

QResult RunColorize(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    return component->Colorize(image.Get(), static_cast<unsigned char>(args.Int("hue")),
                               static_cast<unsigned char>(args.Int("saturation")),
                               static_cast<float>(args.Float("--blend")));
}

QResult RunLut(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    std::vector<std::pair<int, int>> points;
    for (const std::string& point : Split(args.Text("curve"), ',')) {
        const std::vector<std::string> io = Split(point, ':');
        points.emplace_back(std::atoi(io[0].c_str()), std::atoi(io[1].c_str()));
    }
    // Piecewise linear through the points, flat before the first and after the last.
    unsigned char table[256];
    for (int i = 0; i < 256; ++i) {
        int value = points.front().second;
        for (size_t k = 0; k < points.size(); ++k) {
            if (i >= points[k].first) value = points[k].second;
            if (k + 1 < points.size() && i >= points[k].first && i < points[k + 1].first) {
                const int span = points[k + 1].first - points[k].first;
                value = points[k].second +
                        ((points[k + 1].second - points[k].second) * (i - points[k].first) + span / 2) / span;
                break;
            }
        }
        table[i] = static_cast<unsigned char>(value);
    }
    return component->Lut(image.Get(), table);
}

QResult RunNegative(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    return component->Negative(image.Get());
}

QResult RunGrayScale(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    return component->GrayScale(image.Get());
}

QResult RunShiftRGB(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    return component->ShiftRGB(image.Get(), args.Int("red"), args.Int("green"), args.Int("blue"));
}

QResult RunGamma(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    return component->Gamma(image.Get(), static_cast<float>(args.Float("gamma")));
}

QResult RunLight(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    return component->Light(image.Get(), args.Int("brightness"), args.Int("contrast"));
}

// The key colour of the alpha operations has red in its lowest byte.
unsigned KeyColour(unsigned rgb) { return (rgb >> 16 & 0xFF) | (rgb & 0xFF00) | (rgb & 0xFF) << 16; }

QResult RunAlpha(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    EnsureAlpha(context, image);
    return component->SetImageAlpha(image.Get(), args.Int("alpha"), 0);
}

QResult RunTransparent(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image,
                       std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    EnsureAlpha(context, image);
    return component->SetImageTransparentPixel(image.Get(), KeyColour(args.Colour("colour")));
}

QResult RunAlphaKey(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    EnsureAlpha(context, image);
    return component->SetImageAlphaTransparency(image.Get(), args.Int("alpha"),
                                                KeyColour(args.Colour("colour")));
}

QResult RunThreshold(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELColorTransform, "QELColorTransform");
    return component->Threshold(image.Get(), args.Int("level"));
}

QResult RunFlip(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    SmartPtr<IQEL> made;
    return TakeResult(component->Flip(image.Get(), made.Out()), image, made);
}

QResult RunMirror(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    SmartPtr<IQEL> made;
    return TakeResult(component->Mirror(image.Get(), made.Out()), image, made);
}

QResult RunRotate(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    SmartPtr<IQEL> made;
    return TakeResult(component->Rotate(image.Get(), made.Out(), args.Int("angle"), args.Int("--method"),
                                        args.Has("--alpha") ? 1 : 0, args.Has("--keep-size") ? 1 : 0),
                      image, made);
}

QResult RunSkew(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    const qel::Pixels p = qel::PixelsOf(image.Get());
    double px = 0, py = 0;
    if (args.Has("--pivot")) args.Point("--pivot", p.width, p.height, &px, &py);
    SmartPtr<IQEL> made;
    return TakeResult(component->Skew(image.Get(), made.Out(), static_cast<float>(args.Float("xgain")),
                                      static_cast<float>(args.Float("ygain")), static_cast<int>(px),
                                      static_cast<int>(py), 0, args.Has("--alpha") ? 1 : 0),
                      image, made);
}

QResult RunResample(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    // RunStep has held the size to the pixel limit, so each side fits an int.
    const Extent size = ResampleExtent(args, qel::PixelsOf(image.Get()));
    SmartPtr<IQEL> made;
    return TakeResult(component->Resample(image.Get(), made.Out(), static_cast<int>(size.width),
                                          static_cast<int>(size.height), args.Int("--method"),
                                          args.Has("--nearest") ? 1 : 0),
                      image, made);
}

QResult RunDepth(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    const int bits = args.Int("bits");
    const unsigned model = args.Has("--model") ? args.Model("--model")
                           : bits == 32        ? QEL_MODEL_ARGB
                                               : QEL_MODEL_BGR;
    SmartPtr<IQEL> made;
    return TakeResult(component->IncreaseBpp(image.Get(), made.Out(), bits, model), image, made);
}

QResult RunRotatePaste(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image,
                       std::string* note) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    SmartPtr<IQEL> target = PasteTarget(context, args, image.Get(), 24, note);
    if (!target) return QEL_E_FAIL;
    const double radians = args.Float("angle") * M_PI / 180.0;
    const int key = args.Has("--key") ? static_cast<int>(args.Colour("--key")) : -1;
    const QResult result =
        component->RotatePaste(image.Get(), target.Get(), radians, args.Int("--method"), key);
    if (result >= 0) image = std::move(target);
    return result;
}

QResult RunSwapRB(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    return component->FlipBits(image.Get());
}

QResult RunQuad(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    const qel::Pixels p = qel::PixelsOf(image.Get());
    const QuadCorners c = QuadCornersOf(args, p);
    const Extent asked = AskedSize(args, p);
    SmartPtr<IQEL> made;
    return TakeResult(component->Quad(image.Get(), made.Out(), c.x[0], c.y[0], c.x[1], c.y[1], c.x[2], c.y[2],
                                      c.x[3], c.y[3], SizeArgument(asked.width), SizeArgument(asked.height),
                                      args.Has("--blend") ? 1 : 0),
                      image, made);
}

QResult RunTransform(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    const qel::Pixels p = qel::PixelsOf(image.Get());
    AffineTransform transform(Matrix(args));
    double ox = 0, oy = 0;
    if (args.Has("--offset")) args.Point("--offset", p.width, p.height, &ox, &oy);
    const Extent asked = AskedSize(args, p);
    SmartPtr<IQEL> made;
    return TakeResult(
        component->Transform(&transform, image.Get(), made.Out(), static_cast<int>(ox), static_cast<int>(oy),
                             SizeArgument(asked.width), SizeArgument(asked.height), 0, 0),
        image, made);
}

QResult RunTransformPaste(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image,
                          std::string* note) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    const qel::Pixels p = qel::PixelsOf(image.Get());
    SmartPtr<IQEL> target = PasteTarget(context, args, image.Get(), 8, note);
    if (!target) return QEL_E_FAIL;
    AffineTransform transform(Matrix(args));
    double ox = 0, oy = 0;
    if (args.Has("--offset")) args.Point("--offset", p.width, p.height, &ox, &oy);
    const QResult result =
        component->TransformPaste(&transform, image.Get(), target.Get(), static_cast<int>(ox),
                                  static_cast<int>(oy), args.Has("--fill-voids") ? 1 : 0, 0);
    if (result >= 0) image = std::move(target);
    return result;
}

QResult RunFlipAll(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELTransform, "QELTransform");
    return component->FlipImageAndBits(image.Get());
}

QResult Circle(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, int mode,
               float factor) {
    QEL_COMPONENT(IQELDeform, "QELDeform");
    return component->CircleTransform(image.Get(), mode, args.Has("--alpha") ? 1 : 0, factor);
}
QResult RunBulge(OperationContext& c, const Arguments& a, SmartPtr<IQEL>& i, std::string*) {
    return Circle(c, a, i, 0, 1.0f);
}
QResult RunPinch(OperationContext& c, const Arguments& a, SmartPtr<IQEL>& i, std::string*) {
    return Circle(c, a, i, 1, 1.0f);
}
QResult RunSwirl(OperationContext& c, const Arguments& a, SmartPtr<IQEL>& i, std::string*) {
    return Circle(c, a, i, 2, static_cast<float>(a.Float("factor")));
}
QResult RunPolar(OperationContext& c, const Arguments& a, SmartPtr<IQEL>& i, std::string*) {
    return Circle(c, a, i, 3, 1.0f);
}
QResult RunFold(OperationContext& c, const Arguments& a, SmartPtr<IQEL>& i, std::string*) {
    return Circle(c, a, i, 4, 1.0f);
}
QResult RunCircle(OperationContext& c, const Arguments& a, SmartPtr<IQEL>& i, std::string*) {
    return Circle(c, a, i, a.Int("mode"), static_cast<float>(a.Float("--factor")));
}

// Filters deliver a new image through their result pointer.
#define QEL_FILTER(Call)                                      \
    QEL_COMPONENT(IQELFilterTransform, "QELFilterTransform"); \
    SmartPtr<IQEL> made;                                      \
    return TakeResult(component->Call, image, made);

QResult RunErode(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Erode(image.Get(), args.Int("size"), made.Out()));
}
QResult RunEdge(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Edge(image.Get(), args.Int("size"), made.Out()));
}
QResult RunDilate(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Dilate(image.Get(), args.Int("size"), made.Out()));
}
QResult RunFilter(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    std::vector<int> kernel = args.IntList("kernel");
    const int size = static_cast<int>(std::lround(std::sqrt(static_cast<double>(kernel.size()))));
    int divisor = 0;
    if (args.Has("--divisor")) {
        divisor = args.Int("--divisor");
    } else {
        for (int w : kernel) divisor += w;  // normalise by the weights' sum when it is not 0
    }
    QEL_FILTER(Filter(image.Get(), kernel.data(), size, divisor, args.Int("--offset"), made.Out()));
}
QResult RunContour(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Contour(image.Get(), made.Out()));
}
QResult RunJitter(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Jitter(image.Get(), args.Int("amount"), made.Out()));
}
QResult RunNoise(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Noise(image.Get(), args.Int("amount"), made.Out()));
}
QResult RunMedian(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Median(image.Get(), args.Int("size"), made.Out()));
}
QResult RunEmboss(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Emboss(image.Get(), made.Out()));
}
QResult RunBlur(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Blur(image.Get(), made.Out()));
}
QResult RunSoften(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Soften(image.Get(), made.Out()));
}
QResult RunSharpen(OperationContext& context, const Arguments&, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(Sharpen(image.Get(), made.Out()));
}
QResult RunGaussian(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_FILTER(GaussianBlur(image.Get(), args.Int("level"), made.Out()));
}

QResult RunFill(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string* note) {
    QEL_COMPONENT(IQELMaths, "QELMaths");
    SmartPtr<IQEL> mask;
    if (args.Has("--mask") && !(mask = LoadMask(context, args.Text("--mask"), image.Get(), note)))
        return QEL_E_FAIL;
    return component->Equal(image.Get(), mask.Get(), args.Int("value"));
}

QResult RunCopy(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string* note) {
    QEL_COMPONENT(IQELMaths, "QELMaths");
    SmartPtr<IQEL> source = context.LoadSecond(args.Text("file"), image.Get(), note);
    if (!source) return QEL_E_FAIL;
    const qel::Pixels p = qel::PixelsOf(image.Get());
    double x = 0, y = 0;
    if (args.Has("--at")) args.Point("--at", p.width, p.height, &x, &y);
    IQEL* mask = args.Has("--into-zeros") ? image.Get() : nullptr;
    return component->Copy(image.Get(), source.Get(), mask, static_cast<int>(x), static_cast<int>(y));
}

QResult RunAddScale(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image,
                    std::string* note) {
    QEL_COMPONENT(IQELMaths, "QELMaths");
    SmartPtr<IQEL> second = context.LoadSecond(args.Text("file"), image.Get(), note);
    if (second) second = Conform(context, std::move(second), image.Get());
    if (!second) return QEL_E_FAIL;
    SmartPtr<IQEL> mask;
    if (args.Has("--mask") && !(mask = LoadMask(context, args.Text("--mask"), image.Get(), note)))
        return QEL_E_FAIL;
    SmartPtr<IQEL> dest = Destination(context, image.Get());
    const QResult result = component->AddScale(
        dest.Get(), image.Get(), second.Get(), mask.Get(), static_cast<float>(args.Float("--a")),
        static_cast<float>(args.Float("--b")), static_cast<float>(args.Float("--offset")));
    if (result >= 0) image = std::move(dest);
    return result;
}

QResult RunScale(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string* note) {
    QEL_COMPONENT(IQELMaths, "QELMaths");
    SmartPtr<IQEL> mask;
    if (args.Has("--mask") && !(mask = LoadMask(context, args.Text("--mask"), image.Get(), note)))
        return QEL_E_FAIL;
    const qel::Pixels p = qel::PixelsOf(image.Get());
    SmartPtr<IQEL> dest;
    if (args.Has("--bits") || args.Has("--model")) {
        const int bits = args.Has("--bits") ? args.Int("--bits") : p.bitCount;
        const unsigned model = args.Has("--model") ? args.Model("--model") : p.colourModel;
        dest.Reset(context.Host().NewImage(p.width, p.height, bits, model).Detach());
    } else {
        dest = Destination(context, image.Get());
    }
    if (!dest) return QEL_E_FAIL;
    const QResult result =
        component->Scale(dest.Get(), image.Get(), mask.Get(), static_cast<float>(args.Float("factor")),
                         static_cast<float>(args.Float("--offset")));
    if (result >= 0) image = std::move(dest);
    return result;
}

QResult RunSubtract(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image,
                    std::string* note) {
    QEL_COMPONENT(IQELMaths, "QELMaths");
    SmartPtr<IQEL> second = context.LoadSecond(args.Text("file"), image.Get(), note);
    if (second) second = Conform(context, std::move(second), image.Get());
    if (!second) return QEL_E_FAIL;
    SmartPtr<IQEL> dest = Destination(context, image.Get());
    int flags = args.Has("--flags") ? args.Int("--flags") : 0;
    if (args.Has("--abs")) flags |= 1;
    const QResult result = component->Subtract(dest.Get(), image.Get(), second.Get(), flags);
    if (result >= 0) {
        image = std::move(dest);
        const qel::Pixels p = qel::PixelsOf(image.Get());
        if (p.bitCount >= 24) *note = std::to_string(result) + " samples differ by 2 or more";
    }
    return result;
}

QResult RunBlank(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELMaths, "QELMaths");
    SmartPtr<IQEL> made;
    return TakeResult(
        component->CreateDestImage(made.Out(), image.Get(), args.Int("--bits"),
                                   static_cast<int>(args.Has("--model") ? args.Model("--model") : 0)),
        image, made);
}

QResult RunAdd(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string* note) {
    QEL_COMPONENT(IQELMaths, "QELMaths");
    SmartPtr<IQEL> second = context.LoadSecond(args.Text("file"), image.Get(), note);
    if (second) second = Conform(context, std::move(second), image.Get());
    if (!second) return QEL_E_FAIL;
    const qel::Pixels a = qel::PixelsOf(image.Get()), b = qel::PixelsOf(second.Get());
    if (b.width < a.width || b.height < a.height) {
        *note = "the second image is smaller than the first";
        return QEL_E_INVALIDARG;
    }
    SmartPtr<IQELImageDIB> dest = context.Host().NewImage();
    if (!dest) return QEL_E_FAIL;
    const QResult result =
        component->Add(dest.Get(), image.Get(), second.Get(), static_cast<float>(args.Float("--divisor")));
    if (result >= 0) image.Reset(dest.Detach());
    return result;
}

QResult RunScale8(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image, std::string*) {
    QEL_COMPONENT(IQELMaths, "QELMaths");
    const qel::Pixels p = qel::PixelsOf(image.Get());
    // The integers of a "MONO" image are read as 32-bit samples: other depths
    // of "MONO" would be read past their rows.
    if (p.colourModel == QEL_MODEL_MONO && p.bitCount != 32 && p.bitCount != 8) return QEL_E_INVALIDARG;
    SmartPtr<IQELImageDIB> dest = context.Host().NewImage();
    if (!dest) return QEL_E_FAIL;
    const QResult result =
        component->Scale8(dest.Get(), image.Get(), args.Int("--offset"), args.Float("factor"));
    if (result >= 0) image.Reset(dest.Detach());
    return result;
}

// ---- the pixel limit --------------------------------------------------------

// The operations whose result size comes from the caller's arguments. Every
// other operation makes an image of its input's size or draws into one of the
// same size or into a second image, and every image read is held to the limit
// as it is loaded.
struct SizedOperation {
    RunFunction run;
    Extent (*extent)(const Arguments& args, const qel::Pixels& image);
};
const SizedOperation kSizedOperations[] = {
    {RunResample, ResampleExtent},
    {RunRotate, RotateExtent},
    {RunQuad, QuadExtent},
    {RunTransform, TransformExtent},
};

// Refuses a step whose result would be above the pixel limit, before the
// module is asked to make it.
bool ResultWithinLimit(const OperationContext& context, const Step& step, IQEL* image, std::string* error) {
    for (const SizedOperation& sized : kSizedOperations) {
        if (sized.run != step.operation->run) continue;
        const Extent size = sized.extent(step.args, qel::PixelsOf(image));
        return WithinPixelLimit(size.width, size.height, context.PixelLimit(), "result", error);
    }
    return true;
}

// ---- the table -------------------------------------------------------------

const char* const kAllDepths = "1-, 4-, 8-, 24- and 32-bit images";
const char* const kColourDepths = "8-, 24- and 32-bit images";
const char* const kMatrixHelp = "six numbers A,B,C,D,E,F: x' = A x + B y + C, y' = D x + E y + F";

std::vector<OperationSpec> MakeTable() {
    using K = ParamKind;
    const Param method{"--method",
                       K::Int,
                       "3",
                       0,
                       15,
                       "interpolation: 0 nearest, 1 pixel, 2 B-spline, 3 cubic, "
                       "4 Catmull-Rom, 5 Lanczos, 6 box, 7 Hermite, 8 damped Hermite, "
                       "9 sinc, 10 cosine sum, 11 Bessel, 12 Gaussian, 13 quadratic, "
                       "14 Mitchell, 15 Catmull-Rom (signed)"};
    const Param alphaFlag{"--alpha", K::Flag, nullptr, 0, 0, "make the result 32-bit with an alpha channel"};
    const Param neighbourhood{"size", K::Int, "3", 1, 15, "side of the square neighbourhood in pixels"};
    return {
        // QELColorTransform
        {"colorize",
         "colourise colourize Colorize",
         "QELColorTransform",
         "Colorize",
         "tint to one hue and saturation, keeping lightness",
         {{"hue", K::Int, nullptr, 0, 255, "hue, 0-255 for 0-360 degrees"},
          {"saturation", K::Int, "255", 0, 255, "saturation, 0-255"},
          {"--blend", K::Float, "1", -10, 10, "share of the tint, 0 to 1"}},
         kAllDepths,
         "qel photo.jpg colorize 30 180 --blend 0.6 sepia.jpg",
         "colorize 160 200 --blend 0.7",
         RunColorize},
        {"lut",
         "curve Lut",
         "QELColorTransform",
         "Lut",
         "map every colour byte through a curve",
         {{"curve", K::Curve, nullptr, 0, 0,
           "points IN:OUT joined by straight lines, such as 0:0,64:128,255:255"}},
         kColourDepths,
         "qel in.png lut 0:0,64:128,192:160,255:255 out.png",
         "lut 0:0,64:128,192:160,255:255",
         RunLut},
        {"negative",
         "invert Negative",
         "QELColorTransform",
         "Negative",
         "invert the colours (alpha kept)",
         {},
         kColourDepths,
         "qel in.png negative out.png",
         "negative",
         RunNegative},
        {"grayscale",
         "greyscale grey gray GrayScale",
         "QELColorTransform",
         "GrayScale",
         "turn colours to grey (the mean of red, green and blue)",
         {},
         kColourDepths,
         "qel in.png grayscale out.png",
         "grayscale",
         RunGrayScale},
        {"shiftrgb",
         "ShiftRGB",
         "QELColorTransform",
         "ShiftRGB",
         "add an offset to red, green and blue",
         {{"red", K::Int, nullptr, -255, 255, "added to red"},
          {"green", K::Int, "0", -255, 255, "added to green"},
          {"blue", K::Int, "0", -255, 255, "added to blue"}},
         kAllDepths,
         "qel in.png shiftrgb 40 0 -40 warmer.png",
         "shiftrgb 60 0 -40",
         RunShiftRGB},
        {"gamma",
         "Gamma",
         "QELColorTransform",
         "Gamma",
         "gamma correction; above 1 brightens",
         {{"gamma", K::Float, nullptr, 0.01, 100, "gamma"}},
         kColourDepths,
         "qel in.png gamma 2.2 out.png",
         "gamma 2.2",
         RunGamma},
        {"light",
         "brightness Light",
         "QELColorTransform",
         "Light",
         "change brightness and contrast",
         {{"brightness", K::Int, nullptr, -255, 255, "added brightness"},
          {"contrast", K::Int, "0", -100, 1000, "contrast change in percent"}},
         kColourDepths,
         "qel in.png light 20 40 out.png",
         "light 10 50",
         RunLight},
        {"alpha",
         "SetImageAlpha",
         "QELColorTransform",
         "SetImageAlpha",
         "set the same alpha everywhere (an image without alpha gets one first)",
         {{"alpha", K::Int, nullptr, 0, 255, "alpha, 0 transparent to 255 opaque (0 is stored as 1)"}},
         "any; the result is 32-bit ARGB",
         "qel in.png alpha 128 half.png",
         "alpha 128",
         RunAlpha},
        {"transparent",
         "SetImageTransparentPixel",
         "QELColorTransform",
         "SetImageTransparentPixel",
         "make every pixel of one colour fully transparent",
         {{"colour", K::Colour, nullptr, 0, 0, "the colour RRGGBB"}},
         "any; the result is 32-bit ARGB",
         "qel logo.png transparent FFFFFF logo-clear.png",
         "transparent FFFFFF",
         RunTransparent},
        {"alphakey",
         "SetImageAlphaTransparency",
         "QELColorTransform",
         "SetImageAlphaTransparency",
         "set one alpha everywhere and make one colour fully transparent",
         {{"alpha", K::Int, nullptr, 0, 255, "alpha of the other pixels"},
          {"colour", K::Colour, nullptr, 0, 0, "the colour RRGGBB made transparent"}},
         "any; the result is 32-bit ARGB",
         "qel logo.png alphakey 200 FFFFFF out.png",
         "alphakey 160 000000",
         RunAlphaKey},
        {"threshold",
         "Threshold",
         "QELColorTransform",
         "Threshold",
         "black and white: white where the grey level is above the level",
         {{"level", K::Int, "128", 0, 255, "grey level"}},
         kAllDepths,
         "qel scan.png threshold 128 bw.png",
         "threshold 128",
         RunThreshold},
        // QELTransform
        {"flip",
         "Flip",
         "QELTransform",
         "Flip",
         "turn upside down",
         {},
         "any",
         "qel in.png flip out.png",
         "flip",
         RunFlip},
        {"mirror",
         "Mirror",
         "QELTransform",
         "Mirror",
         "mirror left to right",
         {},
         kColourDepths,
         "qel in.png mirror out.png",
         "mirror",
         RunMirror},
        {"rotate",
         "Rotate",
         "QELTransform",
         "Rotate",
         "rotate clockwise by whole degrees; the image grows to hold the result",
         {{"angle", K::Int, nullptr, -3600, 3600, "degrees, clockwise"},
          method,
          {"--alpha", K::Flag, nullptr, 0, 0, "make the result 32-bit with alpha"},
          {"--keep-size", K::Flag, nullptr, 0, 0, "keep the image's size, turning about its centre"}},
         kColourDepths,
         "qel in.png rotate 30 --method 3 out.png",
         "rotate 30 --method 3",
         RunRotate},
        {"skew",
         "shear Skew",
         "QELTransform",
         "Skew",
         "shear about a pivot, keeping the size",
         {{"xgain", K::Float, nullptr, -100, 100, "horizontal shift per row from the pivot"},
          {"ygain", K::Float, "0", -100, 100, "vertical shift per column from the pivot"},
          {"--pivot", K::Point, nullptr, 0, 0, "pivot X,Y (default the centre)"},
          alphaFlag},
         kAllDepths,
         "qel in.png skew 0.3 0.1 out.png",
         "skew 0.3 0.1",
         RunSkew},
        {"resample",
         "resize scale-to Resample",
         "QELTransform",
         "Resample",
         "scale to a new size",
         {{"size", K::Size, nullptr, 0, 0, "new size WxH, or a percentage such as 50%"},
          method,
          {"--nearest", K::Flag, nullptr, 0, 0, "copy nearest pixels only"}},
         kAllDepths,
         "qel in.png resample 640x480 out.png",
         "resample 150% --method 3",
         RunResample},
        {"depth",
         "increasebpp IncreaseBpp",
         "QELTransform",
         "IncreaseBpp",
         "convert to 24- or 32-bit colour (palette colours are used)",
         {{"bits", K::Int, nullptr, 24, 32, "24 or 32"},
          {"--model", K::Model, nullptr, 0, 0,
           "colour model of the result (default BGR for 24, ARGB for 32)"}},
         "1-, 4-, 8- and 24-bit images",
         "qel palette.png depth 24 out.png",
         "depth 32",
         RunDepth},
        {"rotatepaste",
         "RotatePaste",
         "QELTransform",
         "RotatePaste",
         "draw the image rotated onto another, at its top-left corner",
         {{"angle", K::Float, nullptr, -3600, 3600, "degrees, anticlockwise"},
          {"--onto", K::File, nullptr, 0, 0, "the image drawn on (default black of the same size)"},
          method,
          {"--key", K::Colour, nullptr, 0, 0, "a colour RRGGBB left undrawn (24-bit images)"}},
         "24- and 32-bit images (32-bit blends by alpha)",
         "qel logo.png rotatepaste 20 --onto photo.jpg out.png",
         "rotatepaste 20 --onto pattern",
         RunRotatePaste},
        {"swaprb",
         "flipbits FlipBits",
         "QELTransform",
         "FlipBits",
         "exchange red and blue",
         {},
         "24- and 32-bit images",
         "qel in.png swaprb out.png",
         "swaprb",
         RunSwapRB},
        {"quad",
         "Quad",
         "QELTransform",
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
         RunQuad},
        {"transform",
         "affine Transform",
         "QELTransform",
         "Transform",
         "warp by an affine map from result to source pixels",
         {{"matrix", K::Matrix, nullptr, 0, 0, kMatrixHelp},
          {"--offset", K::Point, nullptr, 0, 0, "added to result coordinates before mapping"},
          {"--size", K::Size, nullptr, 0, 0, "size of the result (default the image's)"}},
         kColourDepths,
         "qel in.png transform 0.9,0.2,0,-0.2,0.9,40 out.png",
         "transform 0.9,0.25,0,-0.25,0.9,60",
         RunTransform},
        {"transformpaste",
         "TransformPaste",
         "QELTransform",
         "TransformPaste",
         "paste forwards through an affine map onto another image",
         {{"matrix", K::Matrix, nullptr, 0, 0, kMatrixHelp},
          {"--onto", K::File, nullptr, 0, 0, "the image drawn on (default black of the same size)"},
          {"--offset", K::Point, nullptr, 0, 0, "added to the mapped coordinates"},
          {"--fill-voids", K::Flag, nullptr, 0, 0, "fill the holes the mapping leaves"}},
         kColourDepths,
         "qel in.png transformpaste 1.2,0.3,0,-0.3,1.2,0 --fill-voids out.png",
         "transformpaste 0.8,0.3,0,-0.3,0.8,70 --fill-voids",
         RunTransformPaste},
        {"flipall",
         "flipimageandbits FlipImageAndBits",
         "QELTransform",
         "FlipImageAndBits",
         "turn upside down and exchange red and blue",
         {},
         "24- and 32-bit images",
         "qel in.png flipall out.png",
         "flipall",
         RunFlipAll},
        // QELDeform
        {"bulge",
         "",
         "QELDeform",
         "CircleTransform",
         "magnify the centre like a lens",
         {alphaFlag},
         kAllDepths,
         "qel face.jpg bulge out.jpg",
         "bulge",
         RunBulge},
        {"pinch",
         "",
         "QELDeform",
         "CircleTransform",
         "pull the picture in towards the centre",
         {alphaFlag},
         kAllDepths,
         "qel in.png pinch out.png",
         "pinch",
         RunPinch},
        {"swirl",
         "",
         "QELDeform",
         "CircleTransform",
         "twist around the centre; larger factors twist less",
         {{"factor", K::Float, "1", -1000, 1000, "swirl factor"}, alphaFlag},
         kAllDepths,
         "qel in.png swirl 1.5 out.png",
         "swirl 1.5",
         RunSwirl},
        {"polar",
         "",
         "QELDeform",
         "CircleTransform",
         "unwrap the picture from polar coordinates",
         {alphaFlag},
         kAllDepths,
         "qel in.png polar out.png",
         "polar",
         RunPolar},
        {"fold",
         "",
         "QELDeform",
         "CircleTransform",
         "fold the columns in strips of 32 pixels",
         {alphaFlag},
         kAllDepths,
         "qel in.png fold out.png",
         "fold",
         RunFold},
        {"circle",
         "circletransform CircleTransform",
         "QELDeform",
         "CircleTransform",
         "circle transform by mode number (0 bulge, 1 pinch, 2 swirl, 3 polar, 4 fold)",
         {{"mode", K::Int, nullptr, 0, 4, "mode"},
          {"--factor", K::Float, "1", -1000, 1000, "swirl factor"},
          alphaFlag},
         kAllDepths,
         "qel in.png circle 2 --factor 3 out.png",
         "circle 2 --factor 4",
         RunCircle},
        // QELFilterTransform
        {"erode",
         "Erode",
         "QELFilterTransform",
         "Erode",
         "darken: the minimum of each neighbourhood",
         {neighbourhood},
         kAllDepths,
         "qel in.png erode 3 out.png",
         "erode 3",
         RunErode},
        {"edge",
         "Edge",
         "QELFilterTransform",
         "Edge",
         "edges: maximum minus minimum of each neighbourhood",
         {neighbourhood},
         kAllDepths,
         "qel in.png edge 3 out.png",
         "edge 3",
         RunEdge},
        {"dilate",
         "Dilate",
         "QELFilterTransform",
         "Dilate",
         "brighten: the maximum of each neighbourhood",
         {neighbourhood},
         kAllDepths,
         "qel in.png dilate 3 out.png",
         "dilate 3",
         RunDilate},
        {"filter",
         "convolve Filter",
         "QELFilterTransform",
         "Filter",
         "convolve with a square kernel",
         {{"kernel", K::IntList, nullptr, 0, 0, "weights row by row, comma-separated: 9, 25, 49 ... of them"},
          {"--divisor", K::Int, nullptr, -100000, 100000,
           "divides the sums (default the weights' sum; 0 none)"},
          {"--offset", K::Int, "0", -1000, 1000, "added after dividing"}},
         kAllDepths,
         "qel in.png filter 0,-1,0,-1,5,-1,0,-1,0 out.png",
         "filter 0,-1,0,-1,5,-1,0,-1,0",
         RunFilter},
        {"contour",
         "Contour",
         "QELFilterTransform",
         "Contour",
         "dark outlines of the shapes",
         {},
         kAllDepths,
         "qel in.png contour out.png",
         "contour",
         RunContour},
        {"jitter",
         "Jitter",
         "QELFilterTransform",
         "Jitter",
         "move every pixel by a random small amount",
         {{"amount", K::Int, "3", 0, 1000, "largest move in pixels"}},
         kAllDepths,
         "qel in.png jitter 4 out.png",
         "jitter 3",
         RunJitter},
        {"noise",
         "Noise",
         "QELFilterTransform",
         "Noise",
         "add random noise to every channel",
         {{"amount", K::Int, "40", 0, 1000, "spread of the noise"}},
         kAllDepths,
         "qel in.png noise 40 out.png",
         "noise 40",
         RunNoise},
        {"median",
         "Median",
         "QELFilterTransform",
         "Median",
         "median of each neighbourhood: removes specks",
         {neighbourhood},
         kAllDepths,
         "qel in.png median 5 out.png",
         "median 5",
         RunMedian},
        {"emboss",
         "Emboss",
         "QELFilterTransform",
         "Emboss",
         "relief effect",
         {},
         kAllDepths,
         "qel in.png emboss out.png",
         "emboss",
         RunEmboss},
        {"blur",
         "Blur",
         "QELFilterTransform",
         "Blur",
         "3x3 box blur",
         {},
         kAllDepths,
         "qel in.png blur out.png",
         "blur",
         RunBlur},
        {"soften",
         "Soften",
         "QELFilterTransform",
         "Soften",
         "gentle 3x3 blur",
         {},
         kAllDepths,
         "qel in.png soften out.png",
         "soften",
         RunSoften},
        {"sharpen",
         "Sharpen",
         "QELFilterTransform",
         "Sharpen",
         "3x3 sharpening",
         {},
         kAllDepths,
         "qel in.png sharpen out.png",
         "sharpen",
         RunSharpen},
        {"gaussian",
         "gaussianblur GaussianBlur",
         "QELFilterTransform",
         "GaussianBlur",
         "Gaussian blur",
         {{"level", K::Int, "1", 0, 3, "0 (3x3) to 3 (5x5, widest)"}},
         kAllDepths,
         "qel in.png gaussian 2 out.png",
         "gaussian 2",
         RunGaussian},
        // QELMaths
        {"fill",
         "equal Equal",
         "QELMaths",
         "Equal",
         "set pixels to one value, optionally through a mask",
         {{"value", K::Int, nullptr, -2147483648.0, 4294967295.0,
           "the value (hex allowed: 0x336699 is red 33, green 66, blue 99 on 24-bit)"},
          {"--mask", K::File, nullptr, 0, 0, "only where this image is not black"}},
         "8-, 24- and 32-bit images",
         "qel in.png fill 0x336699 --mask shape.png out.png",
         "fill 0xFF2060C0 --mask pattern",
         RunFill},
        {"copy",
         "paste Copy",
         "QELMaths",
         "Copy",
         "paste another image in, converting its depth",
         {{"file", K::File, nullptr, 0, 0, "the image pasted"},
          {"--at", K::Point, nullptr, 0, 0, "where its top-left corner goes (default 0,0)"},
          {"--into-zeros", K::Flag, nullptr, 0, 0, "write only into zero bytes"}},
         "8-, 24- and 32-bit images",
         "qel photo.jpg copy logo.png --at 10,10 out.jpg",
         "copy pattern --at 50%,50%",
         RunCopy},
        {"addscale",
         "mix AddScale",
         "QELMaths",
         "AddScale",
         "weighted sum of this image and another",
         {{"file", K::File, nullptr, 0, 0, "the second image"},
          {"--a", K::Float, "0.5", -1000, 1000, "weight of this image"},
          {"--b", K::Float, "0.5", -1000, 1000, "weight of the second image"},
          {"--offset", K::Float, "0", -1000, 1000, "added to the sum"},
          {"--mask", K::File, nullptr, 0, 0, "only where this image is not black"}},
         "8-, 24- and 32-bit images",
         "qel a.png addscale b.png --a 0.7 --b 0.3 mix.png",
         "addscale pattern --a 0.6 --b 0.4",
         RunAddScale},
        {"scale",
         "Scale",
         "QELMaths",
         "Scale",
         "multiply every sample and add an offset",
         {{"factor", K::Float, nullptr, -1e6, 1e6, "factor"},
          {"--offset", K::Float, "0", -1e6, 1e6, "added after multiplying"},
          {"--bits", K::Int, nullptr, 8, 32, "bit count of the result (default the image's)"},
          {"--model", K::Model, nullptr, 0, 0, "colour model of the result"},
          {"--mask", K::File, nullptr, 0, 0, "only where this image is not black (8-bit images)"}},
         "8-, 24- and 32-bit images, 32-bit MONO integers",
         "qel in.png scale 1.5 --offset -40 out.png",
         "scale 1.5 --offset -40",
         RunScale},
        {"subtract",
         "difference Subtract",
         "QELMaths",
         "Subtract",
         "difference of this image and another",
         {{"file", K::File, nullptr, 0, 0, "the image subtracted"},
          {"--abs", K::Flag, nullptr, 0, 0, "absolute difference"},
          {"--flags", K::Int, nullptr, 0, 3, "1 absolute, 2 transparent result on 32-bit images"}},
         "8-, 24- and 32-bit images",
         "qel a.png subtract b.png --abs diff.png",
         "subtract pattern --abs",
         RunSubtract},
        {"blank",
         "createdestimage CreateDestImage",
         "QELMaths",
         "CreateDestImage",
         "an empty image of the same size",
         {{"--bits", K::Int, "0", 0, 32, "bit count (default the image's)"},
          {"--model", K::Model, nullptr, 0, 0, "colour model (default the image's)"}},
         "any",
         "qel in.png blank --bits 8 --model MONO black.png",
         "blank",
         RunBlank},
        {"add",
         "Add",
         "QELMaths",
         "Add",
         "sum of this image and another, divided",
         {{"file", K::File, nullptr, 0, 0, "the second image, at least as large"},
          {"--divisor", K::Float, "0", -1e6, 1e6,
           "divides the sum; 0 none (2 is a special case that brightens)"}},
         "8-, 24- and 32-bit images",
         "qel a.png add b.png --divisor 1.5 sum.png",
         "add pattern --divisor 1.8",
         RunAdd},
        {"scale8",
         "Scale8",
         "QELMaths",
         "Scale8",
         "32-bit MONO integers to 8-bit grey: sample x factor + offset",
         {{"factor", K::Float, nullptr, -1e6, 1e6, "factor"},
          {"--offset", K::Int, "0", -100000, 100000, "offset"}},
         "32-bit MONO images",
         "qel depth.pam scale8 0.25 out.png",
         "scale8 0.25",
         RunScale8},
    };
}

}  // namespace

// ---- Arguments -------------------------------------------------------------

const std::string& Arguments::Text(const std::string& name) const {
    static const std::string empty;
    const auto it = values_.find(name);
    return it == values_.end() ? empty : it->second;
}
// Values up to 0xFFFFFFFF are accepted where a colour is packed into an int.
int Arguments::Int(const std::string& name) const {
    return static_cast<int>(static_cast<uint32_t>(std::strtoll(Text(name).c_str(), nullptr, 0)));
}
double Arguments::Float(const std::string& name) const { return std::strtod(Text(name).c_str(), nullptr); }
void Arguments::Size(const std::string& name, int width, int height, long long* w, long long* h) const {
    const std::string& text = Text(name);
    if (!text.empty() && text.back() == '%') {
        const double percent = std::strtod(text.c_str(), nullptr);
        *w = std::max(1LL, std::llround(width * percent / 100));
        *h = std::max(1LL, std::llround(height * percent / 100));
        return;
    }
    const std::vector<std::string> parts = Split(text, 'x');
    *w = std::atoll(parts[0].c_str());
    *h = std::atoll(parts[1].c_str());
}
void Arguments::Point(const std::string& name, int width, int height, double* x, double* y) const {
    const std::vector<std::string> parts = Split(Text(name), ',');
    bool px = false, py = false;
    ParseCoordinate(parts[0], x, &px);
    ParseCoordinate(parts[1], y, &py);
    if (px) *x = *x * width / 100;
    if (py) *y = *y * height / 100;
}
std::vector<int> Arguments::IntList(const std::string& name) const {
    std::vector<int> list;
    for (const std::string& part : Split(Text(name), ',')) list.push_back(std::atoi(part.c_str()));
    return list;
}
unsigned Arguments::Colour(const std::string& name) const {
    std::string hex = Text(name);
    if (!hex.empty() && hex[0] == '#') hex.erase(0, 1);
    return static_cast<unsigned>(std::strtoul(hex.c_str(), nullptr, 16));
}
unsigned Arguments::Model(const std::string& name) const {
    unsigned model = 0;
    ParseModel(Text(name), &model);
    return model;
}

// ---- lookup, parsing, running ----------------------------------------------

const std::vector<OperationSpec>& Operations() {
    static const std::vector<OperationSpec> table = MakeTable();
    return table;
}

const OperationSpec* FindOperation(const std::string& name) {
    for (const OperationSpec& op : Operations()) {
        if (name == op.name) return &op;
        for (const std::string& alias : Split(op.aliases, ' '))
            if (!alias.empty() && (name == alias)) return &op;
    }
    // Method names are also accepted in lower case.
    std::string lower;
    for (char c : name) lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    if (lower != name) return FindOperation(lower);
    return nullptr;
}

namespace {

bool CheckParam(const Param& param, const std::string& text, std::string* expected) {
    return CheckValue(param, text, expected);
}

// Whether a word can be an optional positional value (and not the next operation or the output).
bool LooksLikeValue(const Param& param, const std::string& word) {
    std::string expected;
    if (param.kind == ParamKind::File) return false;
    return CheckParam(param, word, &expected);
}

}  // namespace

bool ParseStep(const std::vector<std::string>& words, size_t* index, Step* step, std::string* error) {
    const std::string& name = words[*index];
    const OperationSpec* op = FindOperation(name);
    if (op == nullptr) {
        *error = "unknown operation '" + name + "' (qel list shows them all)";
        return false;
    }
    step->operation = op;
    step->args = Arguments();
    step->text = op->name;
    size_t i = *index + 1;
    for (const Param& param : op->params) {
        if (param.name[0] == '-') {
            if (param.defaultValue != nullptr) step->args.Set(param.name, param.defaultValue);
            continue;
        }
        std::string expected;
        const bool present = i < words.size() && words[i].rfind("--", 0) != 0;
        if (present && param.defaultValue == nullptr && words[i] == "-o") {
            *error = std::string(op->name) + ": missing " + param.name + " (" + param.help + ")";
            return false;
        }
        if (param.defaultValue == nullptr) {
            if (!present) {
                *error = std::string(op->name) + ": missing " + param.name + " (" + param.help +
                         "; see qel help " + op->name + ")";
                return false;
            }
            if (!CheckParam(param, words[i], &expected)) {
                *error = std::string(op->name) + ": bad " + param.name + " '" + words[i] + "': expected " +
                         expected;
                return false;
            }
        } else {
            // An optional value is there unless the word is the next operation
            // or the output file.
            const bool isOutput = i < words.size() && words[i].find('.') != std::string::npos &&
                                  IsWritableImageName(words[i]) && !LooksLikeValue(param, words[i]);
            if (!present || words[i] == "-o" || FindOperation(words[i]) != nullptr || isOutput) {
                step->args.Set(param.name, param.defaultValue);
                continue;
            }
            if (!CheckParam(param, words[i], &expected)) {
                *error = std::string(op->name) + ": bad " + param.name + " '" + words[i] + "': expected " +
                         expected;
                return false;
            }
        }
        step->args.Set(param.name, words[i]);
        step->text += " " + words[i];
        ++i;
    }
    // Options of this operation, in any order.
    while (i < words.size() && words[i].rfind("--", 0) == 0) {
        const Param* option = nullptr;
        for (const Param& param : op->params)
            if (words[i] == param.name) option = &param;
        if (option == nullptr) break;  // perhaps a global option; the caller decides
        step->text += " " + words[i];
        if (option->kind == ParamKind::Flag) {
            step->args.Set(option->name, "1");
            ++i;
            continue;
        }
        std::string expected;
        if (i + 1 >= words.size()) {
            *error = std::string(op->name) + ": " + option->name + " needs a value (" + option->help + ")";
            return false;
        }
        if (!CheckParam(*option, words[i + 1], &expected)) {
            *error = std::string(op->name) + ": bad " + option->name + " '" + words[i + 1] + "': expected " +
                     expected;
            return false;
        }
        step->args.Set(option->name, words[i + 1]);
        step->text += " " + words[i + 1];
        i += 2;
    }
    *index = i;
    return true;
}

IUnknown* OperationContext::Component(const char* objectName, std::string* error) {
    auto it = components_.find(objectName);
    if (it != components_.end()) return it->second.Get();
    static const struct {
        const char* name;
        const wchar_t* wide;
        const IID* iid;
    } kComponents[] = {
        {"QELColorTransform", L"QELColorTransform", &qel::iid::IQELColorTransform},
        {"QELTransform", L"QELTransform", &qel::iid::IQELTransform},
        {"QELDeform", L"QELDeform", &qel::iid::IQELDeform},
        {"QELFilterTransform", L"QELFilterTransform", &qel::iid::IQELFilterTransform},
        {"QELMaths", L"QELMaths", &qel::iid::IQELMaths},
    };
    for (const auto& known : kComponents)
        if (std::strcmp(known.name, objectName) == 0) {
            // Each interface derives from IUnknown alone, so its pointer is also an IUnknown pointer.
            SmartPtr<IUnknown> component = host_.Create<IUnknown>(known.wide, *known.iid);
            if (!component) break;
            IUnknown* raw = component.Get();
            components_[objectName] = std::move(component);
            return raw;
        }
    *error = std::string("the module offers no component ") + objectName;
    return nullptr;
}

SmartPtr<IQEL> OperationContext::LoadSecond(const std::string& name, IQEL* like, std::string* error) {
    if (name == "sample") return LoadSampleChart(host_, pixelLimit_, error);
    if (name == "pattern") {
        const qel::Pixels p = qel::PixelsOf(like);
        const int bits = p.bitCount == 8 || p.bitCount == 24 || p.bitCount == 32 ? p.bitCount : 24;
        return FromRaster(host_, SamplePattern(std::max(1, p.width), std::max(1, p.height)), bits,
                          bits == p.bitCount ? p.colourModel : QEL_MODEL_BGR);
    }
    std::string reason;
    SmartPtr<IQEL> image = LoadImageFile(host_, name, pixelLimit_, &reason);
    if (!image) *error = name + ": " + reason;
    return image;
}

std::string DescribeResult(QResult result) {
    char code[16];
    std::snprintf(code, sizeof(code), "0x%08X", static_cast<unsigned>(result));
    const char* meaning = "failure";
    switch (result) {
        case QEL_E_NOTIMPL:
            meaning = "not implemented in this build of the module";
            break;
        case QEL_E_FAIL:
            meaning = "the operation failed; the image's format may not be supported";
            break;
        case QEL_E_POINTER:
            meaning = "no result was delivered";
            break;
        case QEL_E_INVALIDARG:
            meaning = "invalid argument";
            break;
        case QEL_E_OUTOFMEMORY:
            meaning = "out of memory";
            break;
        case QEL_E_NOINTERFACE:
            meaning = "the component is not available";
            break;
        case QEL_E_NOT_MONO:
            meaning = "the image is not MONO";
            break;
        default:
            break;
    }
    return std::string(code) + " (" + meaning + ")";
}

bool RunStep(OperationContext& context, const Step& step, SmartPtr<IQEL>& image, std::string* note,
             std::string* error) {
    note->clear();
    std::string refusal;
    if (!ResultWithinLimit(context, step, image.Get(), &refusal)) {
        *error = std::string(step.operation->name) + ": " + refusal;
        return false;
    }
    const std::string before = DescribeFormat(image.Get());
    const QResult result = step.operation->run(context, step.args, image, note);
    if (result >= 0) return true;
    *error = std::string(step.operation->name) + ": failed with " + DescribeResult(result);
    if (!note->empty())
        *error += ": " + *note;
    else if (result == QEL_E_FAIL || result == QEL_E_INVALIDARG || result == QEL_E_NOT_MONO)
        *error += " on a " + before + " image (accepts " + step.operation->accepts + ")";
    note->clear();
    return false;
}

// ---- help ------------------------------------------------------------------

namespace {
std::string Upper(const char* text) {
    std::string upper;
    for (const char* c = text; *c != '\0'; ++c)
        upper.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(*c))));
    return upper;
}
}  // namespace

void PrintOperationList(FILE* out) {
    const char* component = "";
    for (const OperationSpec& op : Operations()) {
        if (std::strcmp(component, op.component) != 0) {
            component = op.component;
            std::fprintf(out, "%s%s\n", op.component == Operations().front().component ? "" : "\n",
                         component);
        }
        std::string usage = op.name;
        for (const Param& param : op.params)
            if (param.name[0] != '-')
                usage += param.defaultValue ? " [" + Upper(param.name) + "]" : " " + Upper(param.name);
        std::fprintf(out, "  %-28s %s\n", usage.c_str(), op.summary);
    }
}

bool PrintOperationHelp(FILE* out, const std::string& name) {
    const OperationSpec* op = FindOperation(name);
    if (op == nullptr) return false;
    std::fprintf(out, "%s: %s\n", op->name, op->summary);
    std::string usage = std::string("qel IN ") + op->name;
    for (const Param& param : op->params) {
        std::string shown = param.name[0] != '-' ? Upper(param.name) : param.name;
        if (param.name[0] == '-' && param.kind != ParamKind::Flag) shown += " VALUE";
        usage += (param.defaultValue != nullptr || param.name[0] == '-') ? " [" + shown + "]" : " " + shown;
    }
    std::fprintf(out, "\nusage: %s OUT\n\nparameters:\n", usage.c_str());
    if (op->params.empty()) std::fprintf(out, "  none\n");
    for (const Param& param : op->params) {
        const std::string shown = param.name[0] != '-' ? Upper(param.name) : param.name;
        std::string line = "  " + shown;
        line.resize(std::max<size_t>(line.size() + 1, 18), ' ');
        line += param.help;
        if (param.defaultValue != nullptr)
            line += std::string(" (default ") + param.defaultValue + ")";
        else if (param.name[0] != '-')
            line += " (required)";
        std::fprintf(out, "%s\n", line.c_str());
    }
    std::fprintf(out, "\naccepts: %s\ncalls:   %s::%s\nexample: %s\n", op->accepts, op->component, op->method,
                 op->example);
    if (op->aliases[0] != '\0') std::fprintf(out, "also:    %s\n", op->aliases);
    return true;
}

}  // namespace qeltool
