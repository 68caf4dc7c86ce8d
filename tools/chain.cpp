// Running a chain step: the operation table put together from the component
// files, lookup by name, the components, second images and the pixel limit.
#include <cctype>
#include <cstring>

#include "tools/image_file.h"
#include "tools/operation_kit.h"
#include "tools/operations.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"
#include "tools/sample_chart.h"

namespace qeltool {

namespace {

// The table, component by component in the order of their interfaces.
std::vector<OperationSpec> MakeTable() {
    std::vector<OperationSpec> table;
    for (OperationGroup group : {ColourOperations(), TransformOperations(), DeformOperations(),
                                 FilterOperations(), MathsOperations()})
        for (OperationSpec& op : group.operations) {
            op.component = group.component;
            table.push_back(std::move(op));
        }
    return table;
}

// Refuses a step whose result would be above the pixel limit, before the
// module is asked to make it. Operations without a size function make an
// image of their input's size or draw into one of the same size or into a
// second image, and every image read is held to the limit as it is loaded.
bool ResultWithinLimit(const OperationContext& context, const Step& step, IQEL* image, std::string* error) {
    if (step.operation->extent == nullptr) return true;
    const Extent size = step.operation->extent(step.args, qel::PixelsOf(image));
    return WithinPixelLimit(size.width, size.height, context.PixelLimit(), "result", error);
}

}  // namespace

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
    if (!image) {
        *error = name + ": " + reason;
        return image;
    }
    return ExpandForViewing(host_, std::move(image), reading_);
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
    std::string unavailable;
    IUnknown* component = context.Component(step.operation->component, &unavailable);
    QResult result = QEL_E_NOINTERFACE;
    bool refused = false;
    if (component != nullptr) {
        Call call{context, step.args, image, note, component};
        result = step.operation->run(call);
        refused = call.refused;
    }
    if (result >= 0) return true;
    if (refused) {
        *error = std::string(step.operation->name) + ": " + *note;
        note->clear();
        return false;
    }
    *error = std::string(step.operation->name) + ": failed with " + DescribeResult(result);
    if (!note->empty())
        *error += ": " + *note;
    else if (result == QEL_E_FAIL || result == QEL_E_INVALIDARG || result == QEL_E_NOT_MONO)
        *error += " on a " + before + " image (accepts " + step.operation->accepts + ")";
    note->clear();
    return false;
}

}  // namespace qeltool
