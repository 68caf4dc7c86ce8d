// The operations of the circle-deform component ("QELDeform"): one module
// call, CircleTransform, under a name per mode.
#include "tools/operation_kit.h"
#include "tools/operations.h"

namespace qeltool {
namespace {

using K = ParamKind;

QResult Circle(Call& c, int mode, float factor) {
    return c.As<IQELDeform>()->CircleTransform(c.image.Get(), mode, c.args.Has("--alpha") ? 1 : 0, factor);
}

}  // namespace

OperationGroup DeformOperations() {
    return {"QELDeform",
            {
                {"bulge",
                 "",
                 "CircleTransform",
                 "magnify the centre like a lens",
                 {kAlphaFlag},
                 kAnyImage,
                 "qel face.jpg bulge out.jpg",
                 "bulge",
                 [](Call& c) { return Circle(c, 0, 1.0f); }},
                {"pinch",
                 "",
                 "CircleTransform",
                 "pull the picture in towards the centre",
                 {kAlphaFlag},
                 kAnyImage,
                 "qel in.png pinch out.png",
                 "pinch",
                 [](Call& c) { return Circle(c, 1, 1.0f); }},
                {"swirl",
                 "",
                 "CircleTransform",
                 "twist around the centre; larger factors twist less",
                 {{"factor", K::Float, "1", -1000, 1000, "swirl factor"}, kAlphaFlag},
                 kAnyImage,
                 "qel in.png swirl 1.5 out.png",
                 "swirl 1.5",
                 [](Call& c) { return Circle(c, 2, static_cast<float>(c.args.Float("factor"))); }},
                {"polar",
                 "",
                 "CircleTransform",
                 "unwrap the picture from polar coordinates",
                 {kAlphaFlag},
                 kAnyImage,
                 "qel in.png polar out.png",
                 "polar",
                 [](Call& c) { return Circle(c, 3, 1.0f); }},
                {"fold",
                 "",
                 "CircleTransform",
                 "fold the columns in strips of 32 pixels",
                 {kAlphaFlag},
                 kAnyImage,
                 "qel in.png fold out.png",
                 "fold",
                 [](Call& c) { return Circle(c, 4, 1.0f); }},
                {"circle",
                 "circletransform CircleTransform",
                 "CircleTransform",
                 "circle transform by mode number (0 bulge, 1 pinch, 2 swirl, 3 polar, 4 fold)",
                 {{"mode", K::Int, nullptr, 0, 4, "mode"},
                  {"--factor", K::Float, "1", -1000, 1000, "swirl factor"},
                  kAlphaFlag},
                 kAnyImage,
                 "qel in.png circle 2 --factor 3 out.png",
                 "circle 2 --factor 4",
                 [](Call& c) {
                     return Circle(c, c.args.Int("mode"), static_cast<float>(c.args.Float("--factor")));
                 }},
            }};
}

}  // namespace qeltool
