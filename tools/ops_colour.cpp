// The operations of the colour component ("QELColorTransform"), one entry
// each: name, aliases, parameters, help, example and the call.
#include <cstdlib>
#include <vector>

#include "tools/operation_kit.h"
#include "tools/operations.h"
#include "tools/people.h"

namespace qeltool {
namespace {

using K = ParamKind;
using Colour = IQELColorTransform;

// The key colour of the alpha operations has red in its lowest byte.
unsigned KeyColour(unsigned rgb) { return (rgb >> 16 & 0xFF) | (rgb & 0xFF00) | (rgb & 0xFF) << 16; }

// The points of a curve argument, IN:OUT.
std::vector<std::pair<int, int>> CurvePoints(const std::string& curve) {
    std::vector<std::pair<int, int>> points;
    for (const std::string& point : Split(curve, ',')) {
        const std::vector<std::string> io = Split(point, ':');
        points.emplace_back(std::atoi(io[0].c_str()), std::atoi(io[1].c_str()));
    }
    return points;
}

}  // namespace

OperationGroup ColourOperations() {
    return {
        "QELColorTransform",
        {
            {"colorize",
             "colourise colourize Colorize",
             "Colorize",
             "tint to one hue and saturation, keeping lightness",
             {{"hue", K::Int, nullptr, 0, 255, "hue, 0-255 for 0-360 degrees"},
              {"saturation", K::Int, "255", 0, 255, "saturation, 0-255"},
              {"--blend", K::Float, "1", -10, 10, "share of the tint, 0 to 1"}},
             kAnyImage,
             "qel photo.jpg colorize 30 180 --blend 0.6 sepia.jpg",
             "colorize 160 200 --blend 0.7",
             [](Call& c) {
                 return c.As<Colour>()->Colorize(c.image.Get(), static_cast<unsigned char>(c.args.Int("hue")),
                                                 static_cast<unsigned char>(c.args.Int("saturation")),
                                                 static_cast<float>(c.args.Float("--blend")));
             }},
            {"lut",
             "curve Lut",
             "Lut",
             "map every colour byte through a curve",
             {{"curve", K::Curve, nullptr, 0, 0,
               "points IN:OUT joined by straight lines, such as 0:0,64:128,255:255"}},
             kWholeByteImages,
             "qel in.png lut 0:0,64:128,192:160,255:255 out.png",
             "lut 0:0,64:128,192:160,255:255",
             [](Call& c) {
                 unsigned char table[256];
                 CurveTable(CurvePoints(c.args.Text("curve")), table);
                 return c.As<Colour>()->Lut(c.image.Get(), table);
             }},
            {"negative",
             "invert Negative",
             "Negative",
             "invert the colours (alpha kept)",
             {},
             kWholeByteImages,
             "qel in.png negative out.png",
             "negative",
             [](Call& c) { return c.As<Colour>()->Negative(c.image.Get()); }},
            {"grayscale",
             "greyscale grey gray GrayScale",
             "GrayScale",
             "turn colours to grey (the mean of red, green and blue)",
             {},
             kWholeByteImages,
             "qel in.png grayscale out.png",
             "grayscale",
             [](Call& c) { return GrayScaleOfPixels(c.As<Colour>(), c.image.Get()); }},
            {"shiftrgb",
             "ShiftRGB",
             "ShiftRGB",
             "add an offset to red, green and blue",
             {{"red", K::Int, nullptr, -255, 255, "added to red"},
              {"green", K::Int, "0", -255, 255, "added to green"},
              {"blue", K::Int, "0", -255, 255, "added to blue"}},
             kAnyImage,
             "qel in.png shiftrgb 40 0 -40 warmer.png",
             "shiftrgb 60 0 -40",
             [](Call& c) {
                 return c.As<Colour>()->ShiftRGB(c.image.Get(), c.args.Int("red"), c.args.Int("green"),
                                                 c.args.Int("blue"));
             }},
            {"gamma",
             "Gamma",
             "Gamma",
             "gamma correction; above 1 brightens",
             {{"gamma", K::Float, nullptr, 0.01, 100, "gamma"}},
             kWholeByteImages,
             "qel in.png gamma 2.2 out.png",
             "gamma 2.2",
             [](Call& c) {
                 return c.As<Colour>()->Gamma(c.image.Get(), static_cast<float>(c.args.Float("gamma")));
             }},
            {"light",
             "brightness Light",
             "Light",
             "change brightness and contrast",
             {{"brightness", K::Int, nullptr, -255, 255, "added brightness"},
              {"contrast", K::Int, "0", -100, 1000, "contrast change in percent"}},
             kWholeByteImages,
             "qel in.png light 20 40 out.png",
             "light 10 50",
             [](Call& c) {
                 return c.As<Colour>()->Light(c.image.Get(), c.args.Int("brightness"),
                                              c.args.Int("contrast"));
             }},
            {"alpha",
             "SetImageAlpha",
             "SetImageAlpha",
             "set the same alpha everywhere (an image without alpha gets one first)",
             {{"alpha", K::Int, nullptr, 0, 255, "alpha, 0 transparent to 255 opaque (0 is stored as 1)"}},
             "any; the result is 32-bit ARGB",
             "qel in.png alpha 128 half.png",
             "alpha 128",
             [](Call& c) {
                 EnsureAlpha(c.context, c.image);
                 return c.As<Colour>()->SetImageAlpha(c.image.Get(), c.args.Int("alpha"), 0);
             }},
            {"transparent",
             "SetImageTransparentPixel",
             "SetImageTransparentPixel",
             "make every pixel of one colour fully transparent",
             {{"colour", K::Colour, nullptr, 0, 0, "the colour RRGGBB"}},
             "any; the result is 32-bit ARGB",
             "qel logo.png transparent FFFFFF logo-clear.png",
             "transparent FFFFFF",
             [](Call& c) {
                 EnsureAlpha(c.context, c.image);
                 return c.As<Colour>()->SetImageTransparentPixel(c.image.Get(),
                                                                 KeyColour(c.args.Colour("colour")));
             }},
            {"alphakey",
             "SetImageAlphaTransparency",
             "SetImageAlphaTransparency",
             "set one alpha everywhere and make one colour fully transparent",
             {{"alpha", K::Int, nullptr, 0, 255, "alpha of the other pixels"},
              {"colour", K::Colour, nullptr, 0, 0, "the colour RRGGBB made transparent"}},
             "any; the result is 32-bit ARGB",
             "qel logo.png alphakey 200 FFFFFF out.png",
             "alphakey 160 000000",
             [](Call& c) {
                 EnsureAlpha(c.context, c.image);
                 return c.As<Colour>()->SetImageAlphaTransparency(c.image.Get(), c.args.Int("alpha"),
                                                                  KeyColour(c.args.Colour("colour")));
             }},
            {"threshold",
             "Threshold",
             "Threshold",
             "black and white: white where the grey level is above the level",
             {{"level", K::Int, "128", 0, 255, "grey level"}},
             kAnyImage,
             "qel scan.png threshold 128 bw.png",
             "threshold 128",
             [](Call& c) {
                 return ThresholdOfPixels(c.As<Colour>(), c.context.Host(), c.args.Int("level"), &c.image);
             }},
        }};
}

}  // namespace qeltool
