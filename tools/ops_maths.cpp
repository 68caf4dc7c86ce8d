// The operations of the arithmetic component ("QELMaths"). Second images are
// brought to the first one's format before the call.
#include "tools/operation_kit.h"
#include "tools/operations.h"
#include "tools/people.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

using K = ParamKind;
using Maths = IQELMaths;

// The second image of a two-image operation, in the first one's format.
SmartPtr<IQEL> Second(Call& c) {
    SmartPtr<IQEL> second = c.context.LoadSecond(c.args.Text("file"), c.image.Get(), c.note);
    if (second) second = Conform(c.context, std::move(second), c.image.Get());
    return second;
}

}  // namespace

OperationGroup MathsOperations() {
    return {
        "QELMaths",
        {
            {"fill",
             "equal Equal",
             "Equal",
             "set pixels to one value, optionally through a mask",
             {{"value", K::Int, nullptr, -2147483648.0, 4294967295.0,
               "the value (hex allowed: 0x336699 is red 33, green 66, blue 99 on 24-bit)"},
              {"--mask", K::File, nullptr, 0, 0, "only where this image is not black"}},
             kWholeByteImages,
             "qel in.png fill 0x336699 --mask shape.png out.png",
             "fill 0xFF2060C0 --mask pattern",
             [](Call& c) {
                 SmartPtr<IQEL> mask;
                 if (!OptionalMask(c, &mask)) return Refuse(c);
                 return c.As<Maths>()->Equal(c.image.Get(), mask.Get(), c.args.Int("value"));
             }},
            {"copy",
             "paste Copy",
             "Copy",
             "paste another image in; one with alpha is laid over, blending by its alpha",
             {{"file", K::File, nullptr, 0, 0, "the image pasted"},
              {"--at", K::Point, nullptr, 0, 0, "where its top-left corner goes (default 0,0)"},
              {"--into-zeros", K::Flag, nullptr, 0, 0, "write only into zero bytes"},
              {"--no-blend", K::Flag, nullptr, 0, 0, "copy an image with alpha as it is, alpha included"}},
             "any image (not 1- or 4-bit ones kept by --keep-depth); one with alpha blends (qel's own "
             "compositing) unless "
             "--no-blend",
             "qel photo.jpg copy logo.png --at 10,10 out.jpg",
             "copy pattern --at 50%,50%",
             [](Call& c) {
                 SmartPtr<IQEL> source = c.context.LoadSecond(c.args.Text("file"), c.image.Get(), c.note);
                 if (!source) return Refuse(c);
                 const qel::Pixels p = qel::PixelsOf(c.image.Get());
                 double x = 0, y = 0;
                 if (c.args.Has("--at")) c.args.Point("--at", p.width, p.height, &x, &y);
                 if (HasAlpha(source.Get()) && !c.args.Has("--no-blend") && !c.args.Has("--into-zeros")) {
                     if (x < 0 || y < 0 || x >= p.width || y >= p.height)
                         return Refuse(c, "--at must lie inside the image");
                     if (!BlendOnto(c.context.Host(), c.image, source.Get(), static_cast<int>(x),
                                    static_cast<int>(y)))
                         return QEL_E_OUTOFMEMORY;
                     return QEL_OK;
                 }
                 IQEL* mask = c.args.Has("--into-zeros") ? c.image.Get() : nullptr;
                 return c.As<Maths>()->Copy(c.image.Get(), source.Get(), mask, static_cast<int>(x),
                                            static_cast<int>(y));
             }},
            {"addscale",
             "mix AddScale",
             "AddScale",
             "weighted sum of this image and another",
             {{"file", K::File, nullptr, 0, 0, "the second image"},
              {"--a", K::Float, "0.5", -1000, 1000, "weight of this image"},
              {"--b", K::Float, "0.5", -1000, 1000, "weight of the second image"},
              {"--offset", K::Float, "0", -1000, 1000, "added to the sum"},
              {"--mask", K::File, nullptr, 0, 0, "only where this image is not black"}},
             kWholeByteImages,
             "qel a.png addscale b.png --a 0.7 --b 0.3 mix.png",
             "addscale pattern --a 0.6 --b 0.4",
             [](Call& c) {
                 SmartPtr<IQEL> second = Second(c);
                 if (!second) return Refuse(c);
                 SmartPtr<IQEL> mask;
                 if (!OptionalMask(c, &mask)) return Refuse(c);
                 SmartPtr<IQEL> dest = Destination(c.context, c.image.Get());
                 const QResult result = c.As<Maths>()->AddScale(
                     dest.Get(), c.image.Get(), second.Get(), mask.Get(),
                     static_cast<float>(c.args.Float("--a")), static_cast<float>(c.args.Float("--b")),
                     static_cast<float>(c.args.Float("--offset")));
                 if (result >= 0) c.image = std::move(dest);
                 return result;
             }},
            {"scale",
             "Scale",
             "Scale",
             "multiply every sample and add an offset",
             {{"factor", K::Float, nullptr, -1e6, 1e6, "factor"},
              {"--offset", K::Float, "0", -1e6, 1e6, "added after multiplying"},
              {"--bits", K::Int, nullptr, 8, 32, "bit count of the result (default the image's)"},
              {"--model", K::Model, nullptr, 0, 0, "colour model of the result"},
              {"--mask", K::File, nullptr, 0, 0, "only where this image is not black (8-bit images)"}},
             "any image, and 32-bit MONO integers",
             "qel in.png scale 1.5 --offset -40 out.png",
             "scale 1.5 --offset -40",
             [](Call& c) {
                 SmartPtr<IQEL> mask;
                 if (!OptionalMask(c, &mask)) return Refuse(c);
                 const qel::Pixels p = qel::PixelsOf(c.image.Get());
                 SmartPtr<IQEL> dest;
                 if (c.args.Has("--bits") || c.args.Has("--model")) {
                     const int bits = c.args.Has("--bits") ? c.args.Int("--bits") : p.bitCount;
                     const unsigned model = c.args.Has("--model") ? c.args.Model("--model") : p.colourModel;
                     dest.Reset(c.context.Host().NewImage(p.width, p.height, bits, model).Detach());
                 } else {
                     dest = Destination(c.context, c.image.Get());
                 }
                 if (!dest) return QEL_E_FAIL;
                 const QResult result = c.As<Maths>()->Scale(dest.Get(), c.image.Get(), mask.Get(),
                                                             static_cast<float>(c.args.Float("factor")),
                                                             static_cast<float>(c.args.Float("--offset")));
                 if (result >= 0) c.image = std::move(dest);
                 return result;
             }},
            {"subtract",
             "difference Subtract",
             "Subtract",
             "difference of this image and another",
             {{"file", K::File, nullptr, 0, 0, "the image subtracted"},
              {"--abs", K::Flag, nullptr, 0, 0, "absolute difference"},
              {"--flags", K::Int, nullptr, 0, 3, "1 absolute, 2 transparent result on 32-bit images"}},
             kWholeByteImages,
             "qel a.png subtract b.png --abs diff.png",
             "subtract pattern --abs",
             [](Call& c) {
                 SmartPtr<IQEL> second = Second(c);
                 if (!second) return Refuse(c);
                 SmartPtr<IQEL> dest = Destination(c.context, c.image.Get());
                 int flags = c.args.Has("--flags") ? c.args.Int("--flags") : 0;
                 if (c.args.Has("--abs")) flags |= 1;
                 const QResult result =
                     c.As<Maths>()->Subtract(dest.Get(), c.image.Get(), second.Get(), flags);
                 if (result >= 0) {
                     c.image = std::move(dest);
                     if (qel::PixelsOf(c.image.Get()).bitCount >= 24)
                         *c.note = std::to_string(result) + " samples differ by 2 or more";
                 }
                 return result;
             }},
            {"blank",
             "createdestimage CreateDestImage",
             "CreateDestImage",
             "an empty image of the same size",
             {{"--bits", K::Int, "0", 0, 32, "bit count (default the image's)"},
              {"--model", K::Model, nullptr, 0, 0, "colour model (default the image's)"}},
             "any",
             "qel in.png blank --bits 8 --model MONO black.png",
             "blank",
             [](Call& c) {
                 SmartPtr<IQEL> made;
                 return TakeResult(c.As<Maths>()->CreateDestImage(
                                       made.Out(), c.image.Get(), c.args.Int("--bits"),
                                       static_cast<int>(c.args.Has("--model") ? c.args.Model("--model") : 0)),
                                   c.image, made);
             }},
            {"add",
             "Add",
             "Add",
             "sum of this image and another, divided",
             {{"file", K::File, nullptr, 0, 0, "the second image, at least as large"},
              {"--divisor", K::Float, "0", -1e6, 1e6,
               "divides the sum; 0 none (2 is a special case that brightens)"}},
             "any image (not 1- or 4-bit ones kept by --keep-depth); with alpha, colour and alpha are added "
             "as two images so that "
             "the whole row is computed",
             "qel a.png add b.png --divisor 1.5 sum.png",
             "add pattern --divisor 1.8",
             [](Call& c) {
                 SmartPtr<IQEL> second = Second(c);
                 if (!second) return Refuse(c);
                 const qel::Pixels a = qel::PixelsOf(c.image.Get()), b = qel::PixelsOf(second.Get());
                 if (b.width < a.width || b.height < a.height) {
                     return Refuse(c, "the second image is smaller than the first");
                 }
                 SmartPtr<IQEL> made;
                 const QResult result =
                     AddWholeImage(c.As<Maths>(), c.context.Host(), c.image.Get(), second.Get(),
                                   static_cast<float>(c.args.Float("--divisor")), &made);
                 return TakeResult(result, c.image, made);
             }},
            {"scale8",
             "Scale8",
             "Scale8",
             "32-bit MONO integers to 8-bit grey: sample x factor + offset",
             {{"factor", K::Float, nullptr, -1e6, 1e6, "factor"},
              {"--offset", K::Int, "0", -100000, 100000, "offset"}},
             "32-bit MONO images",
             "qel depth.pam scale8 0.25 out.png",
             "scale8 0.25",
             [](Call& c) {
                 const qel::Pixels p = qel::PixelsOf(c.image.Get());
                 // The integers of a "MONO" image are read as 32-bit samples: other depths
                 // of "MONO" would be read past their rows.
                 if (p.colourModel == QEL_MODEL_MONO && p.bitCount != 32 && p.bitCount != 8)
                     return QEL_E_INVALIDARG;
                 SmartPtr<IQELImageDIB> dest = c.context.Host().NewImage();
                 if (!dest) return QEL_E_FAIL;
                 const QResult result = c.As<Maths>()->Scale8(dest.Get(), c.image.Get(),
                                                              c.args.Int("--offset"), c.args.Float("factor"));
                 if (result >= 0) c.image.Reset(dest.Detach());
                 return result;
             }},
        }};
}

}  // namespace qeltool
