// What qel does on top of the module, run as a user runs it: no file is lost
// when IN is left out, palette and bilevel files give the pictures of their
// expanded forms, alpha survives resample, add and copy, rotation turns
// clockwise with exact quarter and half turns, curves round alike both ways,
// the everyday sizes, help, and a gallery with no ruined result.
#include <cctype>
#include <cmath>
#include <set>

#include "qel/version.h"
#include "support/qel_cli.h"

namespace {

using namespace qeltest;

constexpr int kWidth = 24, kHeight = 16;
constexpr int kOperations = 51;  // as qel list shows them

class People : public QelRun {
protected:
    // A 64-colour palette image and a bilevel one of stripes and checks, as
    // pal.png and bw.png, with their expanded forms as pal.pam (RGB) and bw.pam (grey 0/255).
    void WritePalettesAndTwins() {
        std::string palette, indices, bits(kWidth / 8 * kHeight, '\0');
        Samples colours, grey;
        for (int i = 0; i < 64; ++i) palette += {char(i * 4), char(255 - i * 4), char(i * 37 % 256)};
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                const int index = (x + 3 * y) % 64;
                indices += char(index);
                colours.insert(colours.end(), palette.begin() + index * 3, palette.begin() + index * 3 + 3);
                const bool white = (x / 3 + y / 2) % 2 == 1 || x == y;
                if (white) bits[y * kWidth / 8 + x / 8] |= char(0x80 >> (x % 8));
                grey.push_back(white ? 255 : 0);
            }
        WriteFile(Path("pal.png"), Png(kWidth, kHeight, 8, 3, indices, PngChunk("PLTE", palette)));
        WriteFile(Path("pal.pam"), Pam(kWidth, kHeight, 3, "RGB", colours));
        WriteFile(Path("bw.png"), Png(kWidth, kHeight, 1, 0, bits));
        WriteFile(Path("bw.pam"), Pam(kWidth, kHeight, 1, "GRAYSCALE", grey));
    }
};

TEST_F(People, LeavingOutInNeverWritesOverAFile) {
    WriteFile(Path("photo.png"), Png(2, 1, 8, 2, std::string("\0\1\2\3\4\5", 6)));
    ExpectFailure(
        "blur photo.png", 2,
        "qel: no input was given and photo.png exists, so it is not written over; did you mean 'qel "
        "photo.png blur OUT'? (name 'sample' as IN to draw on the built-in chart)\n");
    // Also through -o; with IN named, or OUT new, the run goes ahead.
    ExpectFailure("median 3 -o photo.png", 2, "qel: no input was given and photo.png exists");
    Ok("qel blur chart.png && qel sample blur photo.png");
    ExpectResult("photo.png", "320x240, 32-bit ARGB");
}

TEST_F(People, PaletteAndBilevelFilesGiveThePicturesOfTheirExpandedForms) {
    WritePalettesAndTwins();
    ExpectResult("pal.png", "24x16, 24-bit BGR");
    ExpectResult("pal.png --keep-palette", "24x16, 8-bit with a palette of 64 colours");
    for (const std::string step :
         {"mirror", "rotate 90", "rotate -90", "resample 12x8", "resample 200%", "threshold 100", "negative",
          "grayscale", "flip", "gamma 2", "median 3", "depth 24", "rotate 180"})
        for (const std::string pair : {"pal", "bw"}) {
            ExpectSameFile("qel " + pair + ".png " + step + " a.pam",
                           "qel " + pair + ".pam " + step + " b.pam");
            // Not the dark grey of indices nor a black page.
            const Samples result = PamSamples("a.pam");
            EXPECT_GT(*std::max_element(result.begin(), result.end()), 150) << pair << " " << step;
        }
}

TEST_F(People, AlphaSurvivesResampleAddAndCopy) {
    // The built-in chart has fully and partly transparent pixels.
    Ok("qel sample resample 32x32 logo.pam");
    const Samples rgba = PamSamples("logo.pam");
    double sourceAlpha = 0;
    for (size_t i = 3; i < rgba.size(); i += 4) sourceAlpha += rgba[i] / (32.0 * 32);
    for (const std::string size : {"50%", "25%", "10x7", "64x64"}) {
        Ok("qel logo.pam resample " + size + " small.pam");
        const Samples small = PamSamples("small.pam");
        double alpha = 0;
        for (size_t i = 3; i < small.size(); i += 4) alpha += small[i] * 4.0 / small.size();
        EXPECT_NEAR(alpha, sourceAlpha, sourceAlpha / 100) << size;
    }
    // Each 2x2 box of a half-size result averages the box's alpha, truncating.
    Ok("qel logo.pam resample 16x16 half.pam");
    EXPECT_EQ(PamSamples("half.pam")[3], (rgba[3] + rgba[7] + rgba[32 * 4 + 3] + rgba[32 * 4 + 7]) / 4);
    // An image without alpha gains no transparent pixel.
    Ok("qel logo.pam swaprb rgb.ppm && qel rgb.ppm resample 50% rotate 30 copy logo.pam out.pam");
    EXPECT_NE(ReadFile(Path("out.pam")).find("\nTUPLTYPE RGB\n"), std::string::npos);
    // add: every sample of both planes, alpha included, is the sum, clamped at 255.
    WriteFile(Path("a.pam"), Pam(3, 1, 4, "RGB_ALPHA", {10, 200, 250, 100, 0, 128, 255, 1, 7, 8, 9, 10}));
    WriteFile(Path("b.pam"), Pam(3, 1, 4, "RGB_ALPHA", {5, 100, 10, 200, 0, 127, 1, 254, 1, 2, 3, 4}));
    Ok("qel a.pam add b.pam sum.pam");
    EXPECT_EQ(PamSamples("sum.pam"), (Samples{15, 255, 255, 255, 0, 255, 255, 255, 8, 10, 12, 14}));
    // copy lays an image with alpha over another; --no-blend copies it as it is.
    WriteFile(Path("grey.pam"), Pam(3, 1, 3, "RGB", Samples(9, 100)));
    WriteFile(Path("over.pam"), Pam(3, 1, 4, "RGB_ALPHA", {200, 0, 0, 255, 200, 0, 0, 0, 200, 0, 0, 128}));
    Ok("qel grey.pam copy over.pam blend.pam && qel grey.pam copy over.pam --no-blend plain.pam");
    EXPECT_EQ(PamSamples("blend.pam"), (Samples{200, 0, 0, 100, 100, 100, 150, 50, 50}));
    EXPECT_EQ(PamSamples("plain.pam"), (Samples{200, 0, 0, 200, 0, 0, 200, 0, 0}));
}

// A white 3x3 mark 10 pixels right of the centre of a black 41x31 image must
// land 10 pixels from the result's centre in the clockwise direction; a half
// turn is a flip and a mirror, on every depth.
TEST_F(People, RotateTurnsClockwiseForEveryAngleAndHalfTurnsExactly) {
    Samples image(41 * 31 * 3, 0);
    for (int y = 14; y <= 16; ++y)
        for (int x = 29; x <= 31; ++x)
            for (int c = 0; c < 3; ++c) image[(y * 41 + x) * 3 + c] = 255;
    WriteFile(Path("mark.pam"), Pam(41, 31, 3, "RGB", image));
    int width = 0, height = 0;
    for (const std::string angle : {"30", "89", "90", "91", "180", "-45", "12.5", "400"}) {
        Ok("qel mark.pam rotate " + angle + " turned.pam");
        // A grey picture is written as grey: the first sample of each pixel is its red.
        const Samples turned = PamSamples("turned.pam", &width, &height);
        const size_t depth = turned.size() / (width * height);
        double weight = 0, sumX = 0, sumY = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const double v = turned[(y * width + x) * depth];
                weight += v, sumX += v * (x + 0.5), sumY += v * (y + 0.5);
            }
        ASSERT_GT(weight, 0) << angle;
        const double radians = std::stod(angle) * M_PI / 180;
        EXPECT_NEAR(sumX / weight, width / 2.0 + 10 * std::cos(radians), 0.75) << angle;
        EXPECT_NEAR(sumY / weight, height / 2.0 + 10 * std::sin(radians), 0.75) << angle;
    }
    // Corners take the background asked for; on an image with alpha they are transparent.
    Ok("qel mark.pam rotate 30 --background 00FF00 green.pam && qel mark.pam rotate 30.5 --alpha clear.pam");
    const Samples green = PamSamples("green.pam");
    EXPECT_EQ(Samples(green.begin(), green.begin() + 3), (Samples{0, 255, 0}));
    const Samples clear = PamSamples("clear.pam", &width, &height);
    EXPECT_NE(ReadFile(Path("clear.pam")).find("\nTUPLTYPE RGB_ALPHA\n"), std::string::npos);
    EXPECT_EQ(clear[3], 0);
    EXPECT_EQ(clear[(height / 2 * width + width / 2) * 4 + 3], 255);  // the middle stays opaque
    // Half turns are exact on every depth.
    const std::pair<int, const char*> kinds[] = {{1, "GRAYSCALE"}, {3, "RGB"}, {4, "RGB_ALPHA"}};
    for (const auto& [depth, tuple] : kinds) {
        WriteFile(Path("in.pam"), Pam(5, 3, depth, tuple, Gradient(5, 3, depth)));
        ExpectSameFile("qel in.pam rotate 180 half.pam", "qel in.pam flip mirror both.pam");
    }
    // The pixels of the last, with alpha, in reverse order.
    Ok("qel in.pam rotate -180 half.pam");
    const Samples source = Gradient(5, 3, 4), half = PamSamples("half.pam");
    for (int n = 0; n < 15; ++n)
        for (int c = 0; c < 4; ++c) ASSERT_EQ(half[n * 4 + c], source[(14 - n) * 4 + c]) << n;
}

TEST_F(People, CurvesThresholdAndGreyScaleOnEveryGreyLevel) {
    // Every grey level once, out of order.
    const Samples levels = Gradient(256, 1, 1);
    WriteFile(Path("ramp.pam"), Pam(256, 1, 1, "GRAYSCALE", levels));
    ExpectSameFile("qel ramp.pam lut 0:255,255:0 lut.pam", "qel ramp.pam negative negative.pam");
    // Each pixel on its own: white exactly above the level; grey stays as it is.
    Ok("qel ramp.pam threshold 100 bw.pam && qel ramp.pam grayscale grey.pam");
    Samples bw;
    for (const uint8_t level : levels) bw.push_back(level > 100 ? 255 : 0);
    EXPECT_EQ(PamSamples("bw.pam"), bw);
    EXPECT_EQ(PamSamples("grey.pam"), levels);
    // Half-way values round up on both kinds of segment: 0:0,2:1 gives 1 at 1; 0:1,2:0 gives 1 at 1.
    WriteFile(Path("three.pam"), Pam(3, 1, 1, "GRAYSCALE", {0, 1, 2}));
    Ok("qel three.pam lut 0:0,2:1 up.pam && qel three.pam lut 0:1,2:0 down.pam");
    EXPECT_EQ(PamSamples("up.pam"), (Samples{0, 1, 1}));
    EXPECT_EQ(PamSamples("down.pam"), (Samples{1, 1, 0}));
}

TEST_F(People, EverydaySizesAndCrop) {
    WriteFile(Path("wide.pam"), Pam(40, 30, 3, "RGB", Gradient(40, 30, 3)));
    WriteFile(Path("tall.pam"), Pam(30, 40, 3, "RGB", Gradient(30, 40, 3)));
    // Every result is 24-bit BGR like its source.
    const std::pair<const char*, const char*> sizes[] = {
        {"wide.pam resample 300x", "300x225"},         {"wide.pam resample x200", "267x200"},
        {"wide.pam resample 100x100 --fit", "100x75"}, {"tall.pam resample 100x100 --fit", "75x100"},
        {"wide.pam resample 20x --nearest", "20x15"},  {"wide.pam crop 50%x50%+25%+25%", "20x15"},
        {"wide.pam crop 15x15+30+20", "10x10"},        {"wide.pam rotate 90", "30x40"}};
    for (const auto& [arguments, size] : sizes) ExpectResult(arguments, size + std::string(", 24-bit BGR"));
    // A crop copies its pixels exactly.
    Ok("qel wide.pam crop 7x4+11+5 cut.pam");
    // Moving the origin to 11,5 adds 11 * 37 + 5 * 91 to every sample of the gradient.
    Samples expected = Gradient(7, 4, 3);
    for (uint8_t& sample : expected) sample += 11 * 37 + 5 * 91;
    EXPECT_EQ(PamSamples("cut.pam"), expected);
}

TEST_F(People, HelpVersionAndTheGuideSayWhatWasMeant) {
    // Methods by name are their numbers.
    ExpectSameFile("qel sample rotate 30 --method lanczos a.pam", "qel sample rotate 30 --method 5 b.pam");
    ExpectResult("--version", std::string("qel ") + QEL_VERSION);
    for (const std::string line : {"blur --help", "sample rotate --help", "help rotate"}) {
        const Outcome help = Run(line);
        EXPECT_EQ(help.status, 0) << line;
        EXPECT_EQ(help.out.substr(0, help.out.find(':')), line.find("blur") != line.npos ? "blur" : "rotate");
    }
    EXPECT_NE(Run("help rotate").out.find("calls:   QELTransform::Rotate (quarter turns;"),
              std::string::npos);
    EXPECT_NE(Run("--help").out.find("qel gallery [IN] -o DIR"), std::string::npos);
    const Outcome median = Run("help median");
    EXPECT_EQ(median.status, 0);
    for (const char* part : {"usage: qel IN median [SIZE] OUT", "(default 3)",
                             "accepts: ", "example: qel in.png median 5 out.png"})
        EXPECT_NE(median.out.find(part), std::string::npos) << median.out;
    // The guide's operation list is the table's.
    const std::string cache = ReadFile("CMakeCache.txt"), key = "CMAKE_HOME_DIRECTORY:INTERNAL=";
    const size_t at = cache.find(key);
    ASSERT_NE(at, std::string::npos);
    const std::string guide =
        ReadFile(cache.substr(at + key.size(), cache.find('\n', at) - at - key.size()) + "/docs/qel.md");
    const size_t start = guide.find("```\nQELColorTransform\n");
    ASSERT_NE(start, std::string::npos);
    const std::string listed = guide.substr(start + 4, guide.find("```", start + 4) - start - 4);
    EXPECT_EQ(listed, Run("list").out);
}

// The gallery of every operation, on the built-in chart and on a palette, a
// bilevel and an RGBA file: a figure for each operation, and from the files
// no result black, fully transparent or, from the colour palette, all grey,
// unless the operation makes it so on purpose.
TEST_F(People, GalleryResultsAreNeverRuinedPictures) {
    WritePalettesAndTwins();
    Ok("qel sample resample 24x16 rgba.png");
    // An empty image, grey, black and white, and 32-bit MONO only.
    const std::set<std::string> onPurpose = {"blank", "grayscale", "threshold", "scale8"};
    for (const std::string input : {"", "pal.png", "bw.png", "rgba.png"}) {
        SCOPED_TRACE(input);
        Ok("rm -rf g && qel gallery " + input + " -o g");
        const std::string page = ReadFile(Path("g/index.html"));
        EXPECT_NE(page.find("src=\"original.png\""), std::string::npos);
        if (input.empty()) ExpectResult("g/contact-sheet.png", "1334x1252, 24-bit BGR");
        int pictures = 0, checked = 0;
        for (size_t at = 0; (at = page.find("<img src=\"", at)) != std::string::npos;) {
            at += 10;
            const std::string file = page.substr(at, page.find('"', at) - at),
                              op = file.substr(3, file.size() - 7);
            EXPECT_EQ(ReadFile(Path("g/" + file)).substr(0, 4), "\x89PNG") << file;
            if (!std::isdigit(file[0])) continue;
            ++pictures;
            if (onPurpose.count(op) != 0) continue;
            ++checked;
            if (input.empty()) continue;  // the chart's results are the guide's pictures
            Ok("qel g/" + file + " depth 32 r.pam");
            const Samples r = PamSamples("r.pam");
            bool black = true, transparent = true, grey = true;
            for (size_t i = 0; i + 3 < r.size(); i += 4) {
                black = black && r[i] + r[i + 1] + r[i + 2] < 30;
                transparent = transparent && r[i + 3] == 0;
                grey = grey && r[i] == r[i + 1] && r[i + 1] == r[i + 2];
            }
            EXPECT_FALSE(black) << op;
            EXPECT_FALSE(transparent) << op;
            EXPECT_FALSE(grey && input == "pal.png") << op;
        }
        EXPECT_EQ(pictures, kOperations);
        EXPECT_EQ(checked, kOperations - static_cast<int>(onPurpose.size()));  // all but those on purpose
    }
}

}  // namespace
