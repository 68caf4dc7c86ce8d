// End-to-end tests of the qel command-line tool: they run the built ./qel from
// the build folder as a user would and check its files, output and status.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/tool_files.h"

namespace {

using qeltest::BigEndian;
using qeltest::Exists;
using qeltest::ReadFile;
using qeltest::WriteFile;

struct Outcome {
    int status = -1;
    std::string out, err;
};

// A fresh folder per test, removed afterwards.
class QelTool : public qeltest::ScratchFolderTest {
protected:
    // Runs ./qel with the arguments (split on spaces; names without a slash
    // are taken from the test folder when they exist there or end in an
    // image extension).
    Outcome Qel(const std::string& arguments) {
        std::string command = "./qel";
        std::istringstream words(arguments);
        for (std::string word; words >> word;) {
            const bool file = word.find('.') != std::string::npos && word[0] != '-' &&
                              word.find('/') == std::string::npos && word.find(',') == std::string::npos &&
                              !std::isdigit(static_cast<unsigned char>(word[0]));
            command += " '" + (file ? Path(word) : word) + "'";
        }
        command += " >'" + Path("stdout") + "' 2>'" + Path("stderr") + "'";
        Outcome outcome;
        const int raw = std::system(command.c_str());
        outcome.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
        outcome.out = ReadFile(Path("stdout"));
        outcome.err = ReadFile(Path("stderr"));
        return outcome;
    }

    // Files of the test folder other than the captured output.
    std::vector<std::string> Listing() {
        const std::string listing = Path("listing");
        std::system(
            ("ls -A '" + dir_ + "' | grep -v -e '^stdout$' -e '^stderr$' -e '^listing$' >'" + listing + "'")
                .c_str());
        std::vector<std::string> names;
        std::istringstream in(ReadFile(listing));
        for (std::string name; std::getline(in, name);) names.push_back(name);
        return names;
    }
};

// ---- fixtures written without the tool ------------------------------------

std::string Pam(int width, int height, int depth, const char* tuple, const std::vector<uint8_t>& samples,
                int maxval = 255) {
    std::string pam = "P7\nWIDTH " + std::to_string(width) + "\nHEIGHT " + std::to_string(height) +
                      "\nDEPTH " + std::to_string(depth) + "\nMAXVAL " + std::to_string(maxval) +
                      "\nTUPLTYPE " + tuple + "\nENDHDR\n";
    return pam + std::string(samples.begin(), samples.end());
}

// The samples of a PAM written by qel, with its tuple type.
std::vector<uint8_t> PamSamples(const std::string& bytes, std::string* tuple) {
    const size_t end = bytes.find("ENDHDR\n");
    if (end == std::string::npos) return {};
    const size_t t = bytes.find("TUPLTYPE ");
    *tuple = bytes.substr(t + 9, bytes.find('\n', t) - t - 9);
    return std::vector<uint8_t>(bytes.begin() + static_cast<long>(end + 7), bytes.end());
}

// A PNG whose image data is one stored (uncompressed) deflate block, so the
// fixture does not depend on the codec under test. `rows` hold filter byte 0
// and the packed samples of each row.
std::string Png(int width, int height, int depth, int colourType, const std::string& rows,
                const std::string& palette = "") {
    std::string header = BigEndian(static_cast<uint32_t>(width)) + BigEndian(static_cast<uint32_t>(height));
    header += static_cast<char>(depth);
    header += static_cast<char>(colourType);
    header += std::string(3, '\0');
    uint32_t a = 1, b = 0;
    for (unsigned char byte : rows) a = (a + byte) % 65521, b = (b + a) % 65521;
    const uint16_t length = static_cast<uint16_t>(rows.size());
    std::string zlib = "\x78\x01\x01";
    zlib += static_cast<char>(length & 0xFF), zlib += static_cast<char>(length >> 8);
    zlib += static_cast<char>(~length & 0xFF), zlib += static_cast<char>((~length >> 8) & 0xFF);
    zlib += rows + BigEndian(b << 16 | a);
    std::string png = "\x89PNG\r\n\x1a\n";
    png += qeltest::PngChunk("IHDR", header);
    if (!palette.empty()) png += qeltest::PngChunk("PLTE", palette);
    return png + qeltest::PngChunk("IDAT", zlib) + qeltest::PngChunk("IEND", "");
}

std::vector<uint8_t> Gradient(int width, int height, int depth) {
    std::vector<uint8_t> samples;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < depth; ++c) samples.push_back(static_cast<uint8_t>(x * 37 + y * 91 + c * 53));
    return samples;
}

// ---- round trips -----------------------------------------------------------

TEST_F(QelTool, LosslessFormatsRoundTripPixelForPixel) {
    struct Case {
        const char* tuple;
        int depth;
        const char* described;
    };
    const Case cases[] = {{"GRAYSCALE", 1, "7x5, 8-bit MONO"},
                          {"RGB", 3, "7x5, 24-bit BGR"},
                          {"RGB_ALPHA", 4, "7x5, 32-bit ARGB"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tuple);
        const std::vector<uint8_t> samples = Gradient(7, 5, c.depth);
        WriteFile(Path("in.pam"), Pam(7, 5, c.depth, c.tuple, samples));
        EXPECT_EQ(Qel("in.pam").out, std::string(c.described) + "\n");
        for (const char* kind : {"png", "pam", c.depth == 1 ? "pgm" : c.depth == 3 ? "ppm" : "png"}) {
            SCOPED_TRACE(kind);
            const std::string middle = std::string("middle.") + kind;
            ASSERT_EQ(Qel("in.pam " + middle).status, 0);
            ASSERT_EQ(Qel(middle + " back.pam").status, 0);
            std::string tuple;
            EXPECT_EQ(PamSamples(ReadFile(Path("back.pam")), &tuple), samples);
            EXPECT_EQ(tuple, c.tuple);
        }
    }
}

TEST_F(QelTool, GreyAlphaAndBilevelKeepTheirValues) {
    // Grey with alpha becomes a 32-bit ARGB image and comes back as RGB_ALPHA.
    WriteFile(Path("ga.pam"), Pam(2, 1, 2, "GRAYSCALE_ALPHA", {10, 200, 250, 7}));
    EXPECT_EQ(Qel("ga.pam").out, "2x1, 32-bit ARGB\n");
    ASSERT_EQ(Qel("ga.pam ga.png").status, 0);
    ASSERT_EQ(Qel("ga.png back.pam").status, 0);
    std::string tuple;
    EXPECT_EQ(PamSamples(ReadFile(Path("back.pam")), &tuple),
              (std::vector<uint8_t>{10, 10, 10, 200, 250, 250, 250, 7}));
    // A 1-bit PNG stays 1-bit through PNG and PAM.
    WriteFile(Path("bw.png"), Png(10, 2, 1, 0, std::string("\0\xA5\x40\0\x0F\xC0", 6)));
    EXPECT_EQ(Qel("bw.png").out, "10x2, 1-bit MONO\n");
    ASSERT_EQ(Qel("bw.png bw2.png").status, 0);
    ASSERT_EQ(Qel("bw2.png bw.pam").status, 0);
    EXPECT_EQ(PamSamples(ReadFile(Path("bw.pam")), &tuple),
              (std::vector<uint8_t>{1, 0, 1, 0, 0, 1, 0, 1, 0, 1, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1}));
    EXPECT_EQ(tuple, "BLACKANDWHITE");
}

TEST_F(QelTool, NetpbmSamplesScaleToBytesAndAlphaSurvives) {
    // 16-bit grey+alpha: 0x0000, 0x01FF, 0x8080, 0xFFFF scale to 0, 2, 128, 255.
    WriteFile(Path("ga16.pam"),
              Pam(2, 1, 2, "GRAYSCALE_ALPHA", {0x01, 0xFF, 0x80, 0x80, 0xFF, 0xFF, 0x00, 0x00}, 65535));
    EXPECT_EQ(Qel("ga16.pam").out, "2x1, 32-bit ARGB\n");
    ASSERT_EQ(Qel("ga16.pam once.pam").status, 0);
    ASSERT_EQ(Qel("once.pam twice.pam").status, 0);
    std::string tuple;
    EXPECT_EQ(PamSamples(ReadFile(Path("twice.pam")), &tuple),
              (std::vector<uint8_t>{2, 2, 2, 128, 255, 255, 255, 0}));
    EXPECT_EQ(tuple, "RGB_ALPHA");
    EXPECT_EQ(ReadFile(Path("twice.pam")), ReadFile(Path("once.pam")));
    // Plain PGM with maxval 1000: 500 rounds up to 128, 999 to 255.
    WriteFile(Path("plain.pgm"), "P2\n# a comment\n4 1\n1000\n0 500 999 1000\n");
    ASSERT_EQ(Qel("plain.pgm plain.pam").status, 0);
    EXPECT_EQ(PamSamples(ReadFile(Path("plain.pam")), &tuple), (std::vector<uint8_t>{0, 128, 255, 255}));
    // PBM marks black with 1; the 1-bit image and the PAM mark white.
    WriteFile(Path("raw.pbm"), std::string("P4\n10 1\n\xA5\x40", 10));
    WriteFile(Path("plain.pbm"), "P1\n10 1\n1010010101\n");
    for (const char* file : {"raw.pbm", "plain.pbm"}) {
        SCOPED_TRACE(file);
        EXPECT_EQ(Qel(file).out, "10x1, 1-bit MONO\n");
        ASSERT_EQ(Qel(std::string(file) + " bw.pam").status, 0);
        EXPECT_EQ(PamSamples(ReadFile(Path("bw.pam")), &tuple),
                  (std::vector<uint8_t>{0, 1, 0, 1, 1, 0, 1, 0, 1, 0}));
        EXPECT_EQ(tuple, "BLACKANDWHITE");
    }
}

TEST_F(QelTool, PalettePngKeepsItsPaletteAndSixteenBitIsReduced) {
    const std::string palette("\xFF\x00\x00\x00\x80\x00\x10\x20\x30", 9);  // red, dark green, (16,32,48)
    WriteFile(Path("pal.png"), Png(3, 1, 8, 3, std::string("\0\x02\x00\x01", 4), palette));
    EXPECT_EQ(Qel("pal.png").out, "3x1, 8-bit MONO with palette\n");
    ASSERT_EQ(Qel("pal.png same.png").status, 0);
    EXPECT_EQ(Qel("same.png").out, "3x1, 8-bit MONO with palette\n");
    ASSERT_EQ(Qel("same.png colours.pam").status, 0);
    std::string tuple;
    EXPECT_EQ(PamSamples(ReadFile(Path("colours.pam")), &tuple),
              (std::vector<uint8_t>{16, 32, 48, 255, 0, 0, 0, 128, 0}));
    // 16-bit grey samples 0x0000, 0x01FF, 0xFFFF scale to 0, 2, 255.
    WriteFile(Path("deep.png"), Png(3, 1, 16, 0, std::string("\0\x00\x00\x01\xFF\xFF\xFF", 7)));
    EXPECT_EQ(Qel("deep.png").out, "3x1, 8-bit MONO\n");
    ASSERT_EQ(Qel("deep.png deep.pam").status, 0);
    EXPECT_EQ(PamSamples(ReadFile(Path("deep.pam")), &tuple), (std::vector<uint8_t>{0, 2, 255}));
}

TEST_F(QelTool, JpegRoundTripStaysClose) {
    std::vector<uint8_t> samples;
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            samples.push_back(static_cast<uint8_t>(x * 8)), samples.push_back(static_cast<uint8_t>(y * 8)),
                samples.push_back(100);
    WriteFile(Path("in.pam"), Pam(16, 16, 3, "RGB", samples));
    ASSERT_EQ(Qel("in.pam a.jpg --quality 95").status, 0);
    EXPECT_EQ(Qel("a.jpg").out, "16x16, 24-bit BGR\n");
    ASSERT_EQ(Qel("a.jpg back.pam").status, 0);
    std::string tuple;
    const std::vector<uint8_t> back = PamSamples(ReadFile(Path("back.pam")), &tuple);
    ASSERT_EQ(back.size(), samples.size());
    int worst = 0;
    for (size_t i = 0; i < back.size(); ++i) worst = std::max(worst, std::abs(back[i] - samples[i]));
    EXPECT_LE(worst, 12);
    // Grey images give grey JPEGs.
    ASSERT_EQ(Qel("in.pam grey.pgm").status, 0);
    ASSERT_EQ(Qel("grey.pgm g.jpeg").status, 0);
    EXPECT_EQ(Qel("g.jpeg").out, "16x16, 8-bit MONO\n");
}

// ---- operations and chains -------------------------------------------------

// One invocation per operation with its required values. An operation whose
// component code has not landed yet fails with "not implemented"; anything
// else must succeed.
TEST_F(QelTool, EveryOperationNameIsReachable) {
    const char* steps[] = {"colorize 30",
                           "lut 0:255,255:0",
                           "negative",
                           "grayscale",
                           "shiftrgb 10 0 -10",
                           "gamma 2.2",
                           "light 10",
                           "alpha 128",
                           "transparent FFFFFF",
                           "alphakey 100 000000",
                           "threshold",
                           "flip",
                           "mirror",
                           "rotate 30",
                           "skew 0.2",
                           "resample 40x30",
                           "depth 24",
                           "rotatepaste 15",
                           "swaprb",
                           "quad 0,0 100,0 0,80 100,80",
                           "transform 1,0,5,0,1,5",
                           "transformpaste 1,0,5,0,1,5",
                           "flipall",
                           "bulge",
                           "pinch",
                           "swirl",
                           "polar",
                           "fold",
                           "circle 2",
                           "erode",
                           "edge",
                           "dilate",
                           "filter 1,1,1,1,1,1,1,1,1",
                           "contour",
                           "jitter",
                           "noise",
                           "median",
                           "emboss",
                           "blur",
                           "soften",
                           "sharpen",
                           "gaussian",
                           "fill 0",
                           "copy pattern",
                           "addscale pattern",
                           "scale 2",
                           "subtract pattern",
                           "blank",
                           "add pattern",
                           "resample 50% --nearest",
                           "Median 3",
                           "GaussianBlur 2"};
    const std::string list = Qel("list").out;
    for (const char* step : steps) {
        SCOPED_TRACE(step);
        const std::string name(step, std::string(step).find(' ') == std::string::npos
                                         ? std::string(step).size()
                                         : std::string(step).find(' '));
        const Outcome outcome = Qel(std::string("sample ") + step + " out.png");
        if (outcome.status == 1 && outcome.err.find("not implemented") != std::string::npos) continue;
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_EQ(outcome.err, "");
        EXPECT_TRUE(Exists(Path("out.png")));
    }
    // The list shows every operation under its component.
    for (const char* heading :
         {"QELColorTransform\n", "QELTransform\n", "QELDeform\n", "QELFilterTransform\n", "QELMaths\n"})
        EXPECT_NE(list.find(heading), std::string::npos) << heading;
    EXPECT_NE(list.find("  median [SIZE]"), std::string::npos);
}

TEST_F(QelTool, ChainEqualsTheStepsRunOneAfterAnother) {
    const Outcome chained = Qel("sample blur rotate 30 gamma 1.4 chain.pam");
    if (chained.status == 1 && chained.err.find("not implemented") != std::string::npos)
        GTEST_SKIP() << chained.err;
    ASSERT_EQ(chained.status, 0) << chained.err;
    ASSERT_EQ(Qel("sample blur one.pam").status, 0);
    ASSERT_EQ(Qel("one.pam rotate 30 two.pam").status, 0);
    ASSERT_EQ(Qel("two.pam gamma 1.4 three.pam").status, 0);
    const std::string expected = ReadFile(Path("three.pam"));
    ASSERT_GT(expected.size(), 1000u);
    EXPECT_TRUE(ReadFile(Path("chain.pam")) == expected);
}

TEST_F(QelTool, TimeOptionReportsEachStep) {
    const Outcome outcome = Qel("sample --time flip negative out.png");
    if (outcome.status == 1 && outcome.err.find("not implemented") != std::string::npos)
        GTEST_SKIP() << outcome.err;
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    for (const char* step : {"ms  read sample\n", "ms  flip\n", "ms  negative\n", "ms  write "})
        EXPECT_NE(outcome.err.find(step), std::string::npos) << outcome.err;
}

TEST_F(QelTool, GalleryWritesItsPageAndImagesFromTheSample) {
    const Outcome outcome = Qel("gallery -o " + Path("gallery"));
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const std::string page = ReadFile(Path("gallery/index.html"));
    ASSERT_NE(page.find("<html>"), std::string::npos);
    const std::string list = Qel("list").out;
    size_t operations = 0, figures = 0;
    for (size_t at = 0; (at = list.find("\n  ", at)) != std::string::npos; ++at) ++operations;
    for (size_t at = 0; (at = page.find("<figure>", at)) != std::string::npos; ++at) ++figures;
    EXPECT_EQ(figures, operations);
    EXPECT_NE(page.find("src=\"original.png\""), std::string::npos);
    for (const char* file : {"gallery/original.png", "gallery/contact-sheet.png"})
        EXPECT_EQ(ReadFile(Path(file)).substr(0, 4), "\x89PNG") << file;
    // Every result named on the page exists.
    for (size_t at = 0; (at = page.find("<img src=\"", at)) != std::string::npos;) {
        at += 10;
        const std::string file = page.substr(at, page.find('"', at) - at);
        EXPECT_TRUE(Exists(Path("gallery/" + file))) << file;
    }
    EXPECT_EQ(Qel(Path("gallery/contact-sheet.png")).out, "1334x1252, 24-bit BGR\n");
}

// ---- errors ----------------------------------------------------------------

TEST_F(QelTool, BadInputFilesFailWithOneLineAndNoOutput) {
    std::string png;
    ASSERT_EQ(Qel("sample good.png").status, 0);
    png = ReadFile(Path("good.png"));
    ASSERT_EQ(Qel("sample good.jpg").status, 0);
    const std::string jpeg = ReadFile(Path("good.jpg"));
    WriteFile(Path("truncated.png"), png.substr(0, png.size() / 2));
    std::string corrupt = png;
    corrupt[png.size() / 2] = static_cast<char>(corrupt[png.size() / 2] ^ 0x5A);
    WriteFile(Path("corrupt.png"), corrupt);
    WriteFile(Path("truncated.jpg"), jpeg.substr(0, jpeg.size() / 2));
    WriteFile(Path("truncated.pam"), Pam(4, 4, 3, "RGB", Gradient(4, 3, 3)));
    WriteFile(Path("truncated.pgm"), std::string("P5\n4 2\n255\n\1\2\3\4\5", 16));
    WriteFile(Path("corrupt.pam"), "P7\nWIDTH 2\nHEIGHT x\nDEPTH 1\nMAXVAL 255\nENDHDR\n\1\2");
    WriteFile(Path("overmax.pgm"), "P2\n2 1\n100\n50 200\n");
    WriteFile(Path("picture.gif"), "GIF89a\x01\x00\x01\x00");
    WriteFile(Path("empty.png"), "");
    struct Case {
        const char* file;
        const char* reason;
    };
    const Case cases[] = {{"missing.png", "cannot open: No such file or directory"},
                          {"truncated.png", "corrupt or truncated PNG"},
                          {"corrupt.png", "corrupt or truncated PNG"},
                          {"truncated.jpg", "corrupt or truncated JPEG"},
                          {"truncated.pam", "truncated file"},
                          {"truncated.pgm", "truncated file"},
                          {"corrupt.pam", "corrupt netpbm file: "},
                          {"overmax.pgm", "corrupt netpbm file: "},
                          {"picture.gif", "unsupported file format"},
                          {"empty.png", "empty file"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        const Outcome outcome = Qel(std::string(c.file) + " out.png");
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err.rfind("qel: " + Path(c.file) + ": " + c.reason, 0), 0u) << outcome.err;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        EXPECT_FALSE(Exists(Path("out.png")));
    }
}

TEST_F(QelTool, CommandLineMistakesExitWithStatusTwo) {
    struct Case {
        const char* arguments;
        const char* message;
    };
    const Case cases[] = {
        {"sample frobnicate out.png", "qel: unknown operation 'frobnicate' (qel list shows them all)\n"},
        {"sample rotate out.png", "qel: rotate: bad angle"},
        {"sample rotate", "qel: rotate: missing angle"},
        {"sample median 99 out.png", "qel: median: bad size '99': expected a whole number from 1 to 15\n"},
        {"sample rotate 30 --method 16 out.png", "qel: rotate: bad --method '16'"},
        {"sample blur --bogus out.png", "qel: unknown option '--bogus' for blur\n"},
        {"sample blur out.bmp", "out.bmp: unsupported output format"},
        {"help frobnicate", "qel: unknown operation 'frobnicate'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Outcome outcome = Qel(c.arguments);
        EXPECT_EQ(outcome.status, 2);
        const std::string message = std::string(c.message).rfind("out.bmp", 0) == 0
                                        ? "qel: " + Path(c.message)
                                        : std::string(c.message);
        EXPECT_EQ(outcome.err.rfind(message, 0), 0u) << outcome.err;
        EXPECT_EQ(Listing(), std::vector<std::string>());
    }
}

TEST_F(QelTool, FailingOperationLeavesAnExistingOutputAlone) {
    WriteFile(Path("out.png"), "keep me");
    // Scale8 reads integer MONO images only: the 32-bit colour chart fails.
    const Outcome outcome = Qel("sample blur scale8 0.5 out.png");
    EXPECT_EQ(outcome.status, 1);
    const bool notImplemented = outcome.err.find("not implemented") != std::string::npos;
    if (!notImplemented) {
        EXPECT_EQ(
            outcome.err,
            "qel: scale8: failed with 0xF0040031 (the image is not MONO) on a 320x240, 32-bit ARGB image "
            "(accepts 32-bit MONO images)\n");
    }
    EXPECT_EQ(ReadFile(Path("out.png")), "keep me");
    EXPECT_EQ(Listing(), std::vector<std::string>{"out.png"});
    // A second input that cannot be read names itself.
    const Outcome missing = Qel("sample add nothere.png out.png");
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find(Path("nothere.png") + ": cannot open"), std::string::npos) << missing.err;
    EXPECT_EQ(ReadFile(Path("out.png")), "keep me");
}

TEST_F(QelTool, HelpTeaches) {
    const Outcome help = Qel("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("qel gallery [IN] -o DIR"), std::string::npos);
    const Outcome median = Qel("help median");
    EXPECT_EQ(median.status, 0);
    EXPECT_NE(median.out.find("usage: qel IN median [SIZE] OUT"), std::string::npos) << median.out;
    EXPECT_NE(median.out.find("(default 3)"), std::string::npos);
    EXPECT_NE(median.out.find("accepts: "), std::string::npos);
    EXPECT_NE(median.out.find("example: qel in.png median 5 out.png"), std::string::npos);
}

}  // namespace
