// What qel does on top of the module, run as a user runs it: no file is lost
// when IN is left out, palette and bilevel files give the pictures of their
// expanded forms, alpha survives resample, add and copy, rotation turns
// clockwise with exact quarter and half turns, curves round alike both ways,
// the everyday sizes, the messages, and a gallery with no ruined result.
#include <cmath>
#include <map>

#include "qel/version.h"
#include "support/qel_cli.h"

namespace {

using qeltest::Exists;
using qeltest::Gradient;
using qeltest::Outcome;
using qeltest::Pam;
using qeltest::Png;
using qeltest::ReadFile;
using qeltest::Samples;
using qeltest::WriteFile;
using People = qeltest::QelRun;

constexpr int kWidth = 24, kHeight = 16;

// PNG rows with filter byte 0 from packed samples of `rowBytes` each.
std::string PngRows(const Samples& samples, size_t rowBytes) {
    std::string rows;
    for (size_t at = 0; at < samples.size(); at += rowBytes)
        rows += '\0' + std::string(samples.begin() + static_cast<long>(at),
                                   samples.begin() + static_cast<long>(at + rowBytes));
    return rows;
}

// A 64-colour palette image and its colours as an RGB PAM.
void WritePalettePair(const std::string& png, const std::string& pam) {
    std::string palette;
    for (int i = 0; i < 64; ++i) palette += {char(i * 4), char(255 - i * 4), char(i * 37 % 256)};
    Samples indices, colours;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const int index = (x + 3 * y) % 64;
            indices.push_back(uint8_t(index));
            colours.insert(colours.end(),
                           {uint8_t(index * 4), uint8_t(255 - index * 4), uint8_t(index * 37 % 256)});
        }
    WriteFile(png, Png(kWidth, kHeight, 8, 3, PngRows(indices, kWidth), palette));
    WriteFile(pam, Pam(kWidth, kHeight, 3, "RGB", colours));
}

// A bilevel PNG of stripes and checks and its grey 0/255 twin as a PAM.
void WriteBilevelPair(const std::string& png, const std::string& pam) {
    Samples bits(kWidth / 8 * kHeight, 0), grey;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const bool white = (x / 3 + y / 2) % 2 == 1 || x == y;
            if (white) bits[y * kWidth / 8 + x / 8] |= uint8_t(0x80 >> (x % 8));
            grey.push_back(white ? 255 : 0);
        }
    WriteFile(png, Png(kWidth, kHeight, 1, 0, PngRows(bits, kWidth / 8)));
    WriteFile(pam, Pam(kWidth, kHeight, 1, "GRAYSCALE", grey));
}

// RGBA with colours and alpha varying across the image.
Samples RgbaSamples(int width, int height) {
    Samples samples;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            samples.insert(samples.end(), {uint8_t(x * 9), uint8_t(y * 13), uint8_t(200 - x * 3),
                                           uint8_t(30 + (x * 7 + y * 5) % 220)});
    return samples;
}

double MeanOfChannel(const Samples& samples, int channels, int channel) {
    double sum = 0;
    for (size_t i = channel; i < samples.size(); i += channels) sum += samples[i];
    return sum / static_cast<double>(samples.size() / channels);
}

// Pixels of a PAM as red, green, blue, alpha: qel writes grey pictures as grey.
Samples AsRgba(const Samples& samples, const std::string& tuple) {
    const size_t channels = tuple == "RGB_ALPHA"         ? 4
                            : tuple == "RGB"             ? 3
                            : tuple == "GRAYSCALE_ALPHA" ? 2
                                                         : 1;
    Samples rgba;
    for (size_t i = 0; i + channels <= samples.size(); i += channels) {
        const bool grey = channels < 3;
        const uint8_t alpha = channels == 4 ? samples[i + 3] : channels == 2 ? samples[i + 1] : 255;
        rgba.insert(rgba.end(),
                    {samples[i], samples[i + (grey ? 0 : 1)], samples[i + (grey ? 0 : 2)], alpha});
    }
    return rgba;
}

// The width and height of a PAM qel wrote.
std::pair<int, int> PamSize(const std::string& bytes) {
    const size_t w = bytes.find("WIDTH "), h = bytes.find("HEIGHT ");
    return {std::atoi(bytes.c_str() + w + 6), std::atoi(bytes.c_str() + h + 7)};
}

TEST_F(People, LeavingOutInNeverWritesOverAFile) {
    WriteFile(Path("photo.png"), Png(2, 1, 8, 2, std::string("\0\1\2\3\4\5\6", 7)));
    const std::string before = ReadFile(Path("photo.png"));
    const Outcome outcome = Run("blur photo.png");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "qel: no input was given and " + Path("photo.png") +
                               " exists, so it is not written over; did you mean 'qel " + Path("photo.png") +
                               " blur OUT'? (name 'sample' as IN to draw on the built-in chart)\n");
    EXPECT_EQ(ReadFile(Path("photo.png")), before);
    // Also through -o; with IN named, or OUT new, the run goes ahead.
    EXPECT_EQ(Run("median 3 -o photo.png").status, 2);
    EXPECT_EQ(ReadFile(Path("photo.png")), before);
    EXPECT_EQ(Run("blur chart.png").status, 0);
    EXPECT_EQ(Run("sample blur photo.png").status, 0);
    EXPECT_NE(ReadFile(Path("photo.png")), before);
}

TEST_F(People, PaletteAndBilevelFilesGiveThePicturesOfTheirExpandedForms) {
    WritePalettePair(Path("pal.png"), Path("pal.pam"));
    WriteBilevelPair(Path("bw.png"), Path("bw.pam"));
    WriteFile(Path("bw.pbm"), "P1\n3 2\n1 0 1\n0 1 0\n");
    EXPECT_EQ(Run("pal.png").out, "24x16, 24-bit BGR\n");
    EXPECT_EQ(Run("pal.png --keep-palette").out, "24x16, 8-bit with a palette of 64 colours\n");
    EXPECT_EQ(Run("bw.png").out, "24x16, 8-bit MONO\n");
    ASSERT_EQ(Run("bw.pbm bw3.pam").status, 0);
    EXPECT_EQ(PamSamples("bw3.pam"), (Samples{0, 255, 0, 255, 0, 255}));
    for (const char* step :
         {"mirror", "rotate 90", "rotate -90", "resample 12x8", "resample 200%", "threshold 100", "negative",
          "grayscale", "flip", "gamma 2", "median 3", "depth 24"})
        for (const char* pair : {"pal", "bw"}) {
            const std::string file = std::string(pair) + ".png", twin = std::string(pair) + ".pam";
            ASSERT_EQ(Run(file + " " + step + " a.pam").status, 0) << file << " " << step;
            ASSERT_EQ(Run(twin + " " + step + " b.pam").status, 0) << twin << " " << step;
            EXPECT_EQ(ReadFile(Path("a.pam")), ReadFile(Path("b.pam"))) << file << " " << step;
            // Not the dark grey of indices nor a black page.
            const Samples result = PamSamples("a.pam");
            EXPECT_GT(*std::max_element(result.begin(), result.end()), 150) << file << " " << step;
        }
}

TEST_F(People, AlphaSurvivesResampleAddAndCopy) {
    const Samples rgba = RgbaSamples(32, 32);
    WriteFile(Path("logo.pam"), Pam(32, 32, 4, "RGB_ALPHA", rgba));
    for (const char* size : {"50%", "25%", "10x7", "64x64"}) {
        ASSERT_EQ(Run("logo.pam resample " + std::string(size) + " small.pam").status, 0);
        const double source = MeanOfChannel(rgba, 4, 3),
                     result = MeanOfChannel(PamSamples("small.pam"), 4, 3);
        EXPECT_NEAR(result, source, source / 100) << size;
    }
    // Each 2x2 box of a half-size result averages the box's alpha, truncating.
    ASSERT_EQ(Run("logo.pam resample 16x16 half.pam").status, 0);
    const Samples half = PamSamples("half.pam");
    EXPECT_EQ(half[3], (rgba[3] + rgba[7] + rgba[32 * 4 + 3] + rgba[32 * 4 + 7]) / 4);
    // An image without alpha gains no transparent pixel.
    ASSERT_EQ(Run("logo.pam swaprb rgb.ppm").status, 0);
    ASSERT_EQ(Run("rgb.ppm resample 50% rotate 30 copy logo.pam out.pam").status, 0);
    std::string tuple;
    PamSamples("out.pam", &tuple);
    EXPECT_EQ(tuple, "RGB");

    // add: every sample of both planes, alpha included, is the clamped sum.
    Samples a = Gradient(7, 3, 4), b = Gradient(7, 3, 4);
    for (uint8_t& v : b) v = uint8_t(v / 3);
    WriteFile(Path("a.pam"), Pam(7, 3, 4, "RGB_ALPHA", a));
    WriteFile(Path("b.pam"), Pam(7, 3, 4, "RGB_ALPHA", b));
    ASSERT_EQ(Run("a.pam add b.pam sum.pam").status, 0);
    Samples sum;
    for (size_t i = 0; i < a.size(); ++i) sum.push_back(uint8_t(std::min(255, a[i] + b[i])));
    EXPECT_EQ(PamSamples("sum.pam"), sum);

    // copy lays an image with alpha over another; --no-blend copies it as it is.
    WriteFile(Path("grey.pam"), Pam(3, 1, 3, "RGB", Samples(9, 100)));
    WriteFile(Path("over.pam"), Pam(3, 1, 4, "RGB_ALPHA", {200, 0, 0, 255, 200, 0, 0, 0, 200, 0, 0, 128}));
    ASSERT_EQ(Run("grey.pam copy over.pam blend.pam").status, 0);
    EXPECT_EQ(PamSamples("blend.pam"), (Samples{200, 0, 0, 100, 100, 100, 150, 50, 50}));
    ASSERT_EQ(Run("grey.pam copy over.pam --no-blend plain.pam").status, 0);
    EXPECT_EQ(PamSamples("plain.pam"), (Samples{200, 0, 0, 200, 0, 0, 200, 0, 0}));
}

// A white 3x3 mark 10 pixels right of the centre of a black 41x31 image must
// land 10 pixels from the result's centre in the clockwise direction.
TEST_F(People, RotateTurnsClockwiseForEveryAngle) {
    Samples image(41 * 31 * 3, 0);
    for (int y = 14; y <= 16; ++y)
        for (int x = 29; x <= 31; ++x)
            for (int c = 0; c < 3; ++c) image[(y * 41 + x) * 3 + c] = 255;
    WriteFile(Path("mark.pam"), Pam(41, 31, 3, "RGB", image));
    for (const double degrees : {30.0, 89.0, 90.0, 91.0, 180.0, -45.0, 12.5, 400.0}) {
        char angle[16];
        std::snprintf(angle, sizeof(angle), "%g", degrees);
        ASSERT_EQ(Run("mark.pam rotate " + std::string(angle) + " turned.pam").status, 0) << angle;
        const auto [width, height] = PamSize(ReadFile(Path("turned.pam")));
        std::string tuple;
        const Samples raw = PamSamples("turned.pam", &tuple), turned = AsRgba(raw, tuple);
        double weight = 0, sumX = 0, sumY = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const double v = turned[(y * width + x) * 4];
                weight += v, sumX += v * (x + 0.5), sumY += v * (y + 0.5);
            }
        ASSERT_GT(weight, 0) << angle;
        const double radians = degrees * M_PI / 180;
        EXPECT_NEAR(sumX / weight, width / 2.0 + 10 * std::cos(radians), 0.75) << angle;
        EXPECT_NEAR(sumY / weight, height / 2.0 + 10 * std::sin(radians), 0.75) << angle;
    }
    // Corners take the background asked for; on an image with alpha they are transparent.
    ASSERT_EQ(Run("mark.pam rotate 30 --background 00FF00 green.pam").status, 0);
    const Samples green = PamSamples("green.pam");
    EXPECT_EQ(Samples(green.begin(), green.begin() + 3), (Samples{0, 255, 0}));
    ASSERT_EQ(Run("mark.pam rotate 30.5 --alpha clear.pam").status, 0);
    std::string tuple;
    const Samples clear = AsRgba(PamSamples("clear.pam", &tuple), tuple);
    const auto [width, height] = PamSize(ReadFile(Path("clear.pam")));
    EXPECT_EQ(tuple, "RGB_ALPHA");
    EXPECT_EQ(clear[3], 0);
    EXPECT_EQ(clear[(height / 2 * width + width / 2) * 4 + 3], 255);  // the middle stays opaque
}

TEST_F(People, HalfTurnIsExactOnEveryDepth) {
    WritePalettePair(Path("pal.png"), Path("pal.pam"));
    WriteBilevelPair(Path("bw.png"), Path("bw.pam"));
    WriteFile(Path("grey.pam"), Pam(5, 3, 1, "GRAYSCALE", Gradient(5, 3, 1)));
    WriteFile(Path("rgb.pam"), Pam(5, 3, 3, "RGB", Gradient(5, 3, 3)));
    WriteFile(Path("rgba.pam"), Pam(5, 3, 4, "RGB_ALPHA", Gradient(5, 3, 4)));
    for (const char* file : {"grey.pam", "rgb.pam", "rgba.pam", "pal.png", "bw.png"}) {
        ASSERT_EQ(Run(std::string(file) + " rotate 180 half.pam").status, 0) << file;
        ASSERT_EQ(Run(std::string(file) + " flip mirror both.pam").status, 0) << file;
        EXPECT_EQ(ReadFile(Path("half.pam")), ReadFile(Path("both.pam"))) << file;
    }
    // The colour image's pixels in reverse order.
    ASSERT_EQ(Run("rgb.pam rotate -180 half.pam").status, 0);
    const Samples source = Gradient(5, 3, 3), half = PamSamples("half.pam");
    for (int n = 0; n < 15; ++n)
        for (int c = 0; c < 3; ++c) ASSERT_EQ(half[n * 3 + c], source[(14 - n) * 3 + c]) << n;
}

TEST_F(People, CurvesRoundAlikeRisingAndFalling) {
    WriteFile(Path("ramp.pam"), Pam(256, 1, 1, "GRAYSCALE", Gradient(256, 1, 1)));
    Samples ramp;
    for (int v = 0; v < 256; ++v) ramp.push_back(uint8_t(v * 37 % 256));
    WriteFile(Path("ramp.pam"), Pam(256, 1, 1, "GRAYSCALE", ramp));
    ASSERT_EQ(Run("ramp.pam lut 0:255,255:0 lut.pam").status, 0);
    ASSERT_EQ(Run("ramp.pam negative negative.pam").status, 0);
    EXPECT_EQ(ReadFile(Path("lut.pam")), ReadFile(Path("negative.pam")));
    // Half-way values round up on both kinds of segment: 0:0,2:1 gives 1 at 1; 0:1,2:0 gives 1 at 1.
    WriteFile(Path("three.pam"), Pam(3, 1, 1, "GRAYSCALE", {0, 1, 2}));
    ASSERT_EQ(Run("three.pam lut 0:0,2:1 up.pam").status, 0);
    ASSERT_EQ(Run("three.pam lut 0:1,2:0 down.pam").status, 0);
    EXPECT_EQ(PamSamples("up.pam"), (Samples{0, 1, 1}));
    EXPECT_EQ(PamSamples("down.pam"), (Samples{1, 1, 0}));
}

TEST_F(People, EverydaySizesAndCrop) {
    WriteFile(Path("wide.pam"), Pam(40, 30, 3, "RGB", Gradient(40, 30, 3)));
    WriteFile(Path("tall.pam"), Pam(30, 40, 3, "RGB", Gradient(30, 40, 3)));
    const std::pair<const char*, const char*> sizes[] = {
        {"wide.pam resample 300x", "300x225, 24-bit BGR\n"},
        {"wide.pam resample x200", "267x200, 24-bit BGR\n"},
        {"wide.pam resample 100x100 --fit", "100x75, 24-bit BGR\n"},
        {"tall.pam resample 100x100 --fit", "75x100, 24-bit BGR\n"},
        {"wide.pam resample 20x --nearest", "20x15, 24-bit BGR\n"},
        {"wide.pam crop 50%x50%+25%+25%", "20x15, 24-bit BGR\n"},
        {"wide.pam crop 15x15+30+20", "10x10, 24-bit BGR\n"},
        {"wide.pam rotate 90", "30x40, 24-bit BGR\n"}};
    for (const auto& size : sizes) EXPECT_EQ(Run(size.first).out, size.second) << size.first;
    // A crop copies its pixels exactly.
    ASSERT_EQ(Run("wide.pam crop 7x4+11+5 cut.pam").status, 0);
    const Samples source = Gradient(40, 30, 3);
    Samples expected;
    for (int y = 5; y < 9; ++y)
        expected.insert(expected.end(), source.begin() + (y * 40 + 11) * 3,
                        source.begin() + (y * 40 + 18) * 3);
    EXPECT_EQ(PamSamples("cut.pam"), expected);
    const Outcome outside = Run("wide.pam crop 5x5+40+0 out.png");
    EXPECT_EQ(outside.status, 1);
    EXPECT_EQ(outside.err, "qel: crop: the area 5x5+40+0 lies outside the 40x30 image\n");
}

TEST_F(People, MessagesSayWhatWasMeant) {
    const std::string kernel17 = [] {
        std::string k = "1";
        for (int i = 1; i < 17 * 17; ++i) k += ",1";
        return k;
    }();
    const std::pair<std::string, std::string> mistakes[] = {
        {"sample blur 3 out.png", "qel: blur takes no value, so '3' is left over (qel help blur)\n"},
        {"sample median 3 5 out.png", "qel: median takes 1 value; '5' is one too many (qel help median)\n"},
        {"sample info", "qel: info is a command, not an operation: qel info sample (qel --help)\n"},
        {"sample nosuch", "qel: unknown operation 'nosuch' (qel list shows them all)\n"},
        {"sample filter " + kernel17 + " out.png",
         "qel: filter: bad kernel '1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1...': expected a kernel of at most "
         "15x15 "
         "(225 weights); this one is 17x17\n"},
        {"sample rotate 30 --method sharpest out.png",
         "qel: rotate: bad --method 'sharpest': expected a method"}};
    for (const auto& m : mistakes) ExpectFailure(Words(m.first), 2, m.second);
    // Methods by name are their numbers.
    ASSERT_EQ(Run("sample rotate 30 --method lanczos a.pam").status, 0);
    ASSERT_EQ(Run("sample rotate 30 --method 5 b.pam").status, 0);
    EXPECT_EQ(ReadFile(Path("a.pam")), ReadFile(Path("b.pam")));
    EXPECT_EQ(Run("--version").out, std::string("qel ") + QEL_VERSION + "\n");
    for (const char* line : {"blur --help", "sample rotate --help", "help rotate"}) {
        const Outcome help = Run(line);
        EXPECT_EQ(help.status, 0) << line;
        EXPECT_EQ(help.out.substr(0, help.out.find(':')),
                  std::string(line).find("blur") != std::string::npos ? "blur" : "rotate");
    }
    EXPECT_NE(Run("help rotate").out.find("calls:   QELTransform::Rotate (quarter turns;"),
              std::string::npos);
}

// The gallery of every operation on a palette, a bilevel and an RGBA file: no
// result is black, fully transparent or, from the colour palette, all grey,
// unless the operation makes it so on purpose.
TEST_F(People, GalleryResultsAreNeverRuinedPictures) {
    WritePalettePair(Path("pal.png"), Path("pal.pam"));
    WriteBilevelPair(Path("bw.png"), Path("bw.pam"));
    WriteFile(Path("rgba.png"),
              Png(kWidth, kHeight, 8, 6, PngRows(RgbaSamples(kWidth, kHeight), kWidth * 4)));
    const std::map<std::string, std::string> purpose = {{"blank", "an empty image"},
                                                        {"grayscale", "grey"},
                                                        {"threshold", "black and white"},
                                                        {"scale8", "32-bit MONO only"}};
    for (const char* input : {"pal.png", "bw.png", "rgba.png"}) {
        ASSERT_EQ(Run({"gallery", Path(input), "-o", Path("g")}).status, 0) << input;
        int checked = 0;
        for (const std::string& file : Listing("g")) {
            if (file.size() < 8 || file.substr(file.size() - 4) != ".png" || file[0] < '0' || file[0] > '9')
                continue;
            const std::string op = file.substr(3, file.size() - 7);
            if (purpose.count(op) != 0) continue;
            ASSERT_EQ(Run({Path("g/" + file), Path("r.pam")}).status, 0) << file;
            std::string tuple;
            const Samples raw = PamSamples("r.pam", &tuple), r = AsRgba(raw, tuple);
            bool black = true, transparent = true, grey = true;
            for (size_t i = 0; i + 3 < r.size(); i += 4) {
                black = black && r[i] + r[i + 1] + r[i + 2] < 30;
                transparent = transparent && r[i + 3] == 0;
                grey = grey && r[i] == r[i + 1] && r[i + 1] == r[i + 2];
            }
            EXPECT_FALSE(black) << input << " " << op;
            EXPECT_FALSE(transparent) << input << " " << op;
            if (std::string(input) == "pal.png") {
                EXPECT_FALSE(grey) << op;
            }
            ++checked;
        }
        EXPECT_EQ(checked, 51 - static_cast<int>(purpose.size())) << input;  // all but those on purpose
        std::system(("rm -rf '" + Path("g") + "'").c_str());
    }
}

// The source folder, as the build folder's cache records it.
std::string SourceFolder() {
    const std::string cache = ReadFile("CMakeCache.txt"), key = "CMAKE_HOME_DIRECTORY:INTERNAL=";
    const size_t at = cache.find(key);
    if (at == std::string::npos) return ".";
    return cache.substr(at + key.size(), cache.find('\n', at) - at - key.size());
}

// The guide's operation list is the table's.
TEST_F(People, TheGuideListsEveryOperation) {
    const std::string guide = ReadFile(SourceFolder() + "/docs/qel.md");
    const size_t start = guide.find("```\nQELColorTransform\n");
    ASSERT_NE(start, std::string::npos);
    const std::string listed = guide.substr(start + 4, guide.find("```", start + 4) - start - 4);
    EXPECT_EQ(listed, Run("list").out);
}

}  // namespace
