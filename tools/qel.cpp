// qel: a command-line host of the imaging module. It loads the module and
// the host runtime from _binLIN64/ beside itself, as any host would.
#include <cstdio>
#include <cstring>
#include <string>

#include "qel/host.h"

namespace {

struct ComponentInfo {
    const wchar_t* name;
    const IID* iid;
    const char* operations;
};

const ComponentInfo kComponents[] = {
    {L"QELColorTransform", &qel::iid::IQELColorTransform,
     "Colorize Lut Negative GrayScale ShiftRGB Gamma Light SetImageAlpha SetImageAlphaTransparency "
     "SetImageTransparentPixel Threshold"},
    {L"QELTransform", &qel::iid::IQELTransform,
     "Flip Mirror Rotate Skew Resample IncreaseBpp RotatePaste FlipBits Quad Transform TransformPaste "
     "FlipImageAndBits"},
    {L"QELDeform", &qel::iid::IQELDeform, "CircleTransform"},
    {L"QELFilterTransform", &qel::iid::IQELFilterTransform,
     "Erode Edge Dilate Filter Contour Jitter Noise Median Emboss Blur Soften Sharpen GaussianBlur"},
    {L"QELMaths", &qel::iid::IQELMaths, "Equal Copy AddScale Scale Subtract CreateDestImage Add Scale8"},
};

int ListComponents(qel::Host& host) {
    for (const ComponentInfo& component : kComponents) {
        SmartPtr<IUnknown> object = host.Create<IUnknown>(component.name, *component.iid);
        SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object.Get(), qel::iid::IObjectInfo);
        if (!info) {
            std::printf("%ls: not available\n", component.name);
            continue;
        }
        tagREFString name{};
        info->GetName(0, &name);
        std::printf("%.*ls\n  %s\n", static_cast<int>(name.length), name.text, component.operations);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    qel::Host host;
    std::string error;
    if (!host.Load(qel::DefaultModuleFolder(), &error)) {
        std::fprintf(stderr, "qel: cannot load the imaging module: %s\n", error.c_str());
        return 2;
    }
    if (argc < 2 || std::strcmp(argv[1], "list") == 0) return ListComponents(host);
    std::fprintf(stderr, "qel: unknown command '%s' (try: qel list)\n", argv[1]);
    return 2;
}
