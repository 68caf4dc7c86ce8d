// Helpers shared by the component tables.
#include "tools/operation_kit.h"

#include <algorithm>
#include <cstdlib>

#include "tools/raster.h"

namespace qeltool {

const char* const kAnyImage = "any image";
const char* const kWholeByteImages = "any image (not 1- or 4-bit ones kept by --keep-depth)";
const Param kAlphaFlag{
    "--alpha", ParamKind::Flag, nullptr, 0, 0, "make the result 32-bit with an alpha channel"};

QResult Refuse(Call& call, const std::string& why) {
    if (!why.empty()) *call.note = why;
    call.refused = true;
    return QEL_E_FAIL;
}

QResult TakeResult(QResult result, SmartPtr<IQEL>& image, SmartPtr<IQEL>& made) {
    if (result >= 0) {
        if (!made) return QEL_E_POINTER;
        image = std::move(made);
    }
    return result;
}

void EnsureAlpha(OperationContext& context, SmartPtr<IQEL>& image) {
    const qel::Pixels p = qel::PixelsOf(image.Get());
    if (p.bitCount == 32 && p.colourModel != QEL_MODEL_MONO) return;
    SmartPtr<IQEL> converted = FromRaster(context.Host(), ToRaster(image.Get()), 32, QEL_MODEL_ARGB);
    if (converted) image = std::move(converted);
}

SmartPtr<IQEL> Conform(OperationContext& context, SmartPtr<IQEL> second, IQEL* like) {
    const qel::Pixels target = qel::PixelsOf(like);
    const qel::Pixels p = qel::PixelsOf(second.Get());
    if (p.bitCount == target.bitCount && p.colourModel == target.colourModel) return second;
    return FromRaster(context.Host(), ToRaster(second.Get()), target.bitCount, target.colourModel);
}

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

bool OptionalMask(Call& call, SmartPtr<IQEL>* mask) {
    if (!call.args.Has("--mask")) return true;
    *mask = LoadMask(call.context, call.args.Text("--mask"), call.image.Get(), call.note);
    return static_cast<bool>(*mask);
}

SmartPtr<IQEL> Destination(OperationContext& context, IQEL* image) {
    return CopyImage(context.Host(), image);
}

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

QResult AffineTransform::QueryInterface(const IID& iid, void** object) {
    if (object == nullptr) return QEL_E_POINTER;
    if (iid == qel::iid::IUnknown || iid == qel::iid::ITransform) {
        *object = static_cast<ITransform*>(this);
        AddRef();
        return QEL_OK;
    }
    *object = nullptr;
    return QEL_E_NOINTERFACE;
}

QResult AffineTransform::TransformPoint(double* x, double* y, double* /*z*/) {
    const double px = *x, py = *y;
    *x = m_[0] * px + m_[1] * py + m_[2];
    *y = m_[3] * px + m_[4] * py + m_[5];
    return QEL_OK;
}

std::vector<double> MatrixOf(const Arguments& args) {
    std::vector<double> m;
    for (const std::string& part : Split(args.Text("matrix"), ','))
        m.push_back(std::strtod(part.c_str(), nullptr));
    return m;
}

}  // namespace qeltool
