// The qel command-line tool run as a user runs it, from the build folder:
// file formats round trip, operations and chains, one-line errors with their
// exit status, hostile files and arguments refused without a crash, and the
// pixel limit refused one pixel over and accepted exactly at it.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

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
using Qel = qeltest::QelRun;

TEST_F(Qel, LosslessFormatsRoundTripPixelForPixel) {
    const struct {
        const char* tuple;
        int depth;
        const char* described;
    } cases[] = {{"GRAYSCALE", 1, "7x5, 8-bit MONO"},
                 {"RGB", 3, "7x5, 24-bit BGR"},
                 {"RGB_ALPHA", 4, "7x5, 32-bit ARGB"}};
    for (const auto& c : cases) {
        const Samples samples = Gradient(7, 5, c.depth);
        WriteFile(Path("in.pam"), Pam(7, 5, c.depth, c.tuple, samples));
        EXPECT_EQ(Run("in.pam").out, std::string(c.described) + "\n");
        for (const char* kind : {"png", "pam", c.depth == 1 ? "pgm" : c.depth == 3 ? "ppm" : "png"}) {
            ASSERT_EQ(Run("in.pam middle." + std::string(kind)).status, 0);
            ASSERT_EQ(Run("middle." + std::string(kind) + " back.pam").status, 0);
            std::string tuple;
            EXPECT_EQ(PamSamples("back.pam", &tuple), samples) << kind;
            EXPECT_EQ(tuple, c.tuple);
        }
    }
}

TEST_F(Qel, GreyAlphaBilevelPaletteAndDeepSamplesKeepTheirValues) {
    std::string tuple;
    // Grey with alpha becomes 32-bit ARGB; 16-bit samples 0x01FF, 0x8080, 0xFFFF scale to 2, 128, 255.
    WriteFile(Path("ga.pam"),
              Pam(2, 1, 2, "GRAYSCALE_ALPHA", {0x01, 0xFF, 0x80, 0x80, 0xFF, 0xFF, 0, 0}, 65535));
    EXPECT_EQ(Run("ga.pam").out, "2x1, 32-bit ARGB\n");
    ASSERT_EQ(Run("ga.pam ga.png").status, 0);
    ASSERT_EQ(Run("ga.png once.pam").status, 0);
    ASSERT_EQ(Run("once.pam twice.pam").status, 0);
    EXPECT_EQ(PamSamples("twice.pam", &tuple), (Samples{2, 2, 2, 128, 255, 255, 255, 0}));
    EXPECT_EQ(tuple, "RGB_ALPHA");
    EXPECT_EQ(ReadFile(Path("twice.pam")), ReadFile(Path("once.pam")));
    // Plain PGM with maxval 1000: 500 rounds up to 128, 999 to 255.
    WriteFile(Path("plain.pgm"), "P2\n# a comment\n4 1\n1000\n0 500 999 1000\n");
    ASSERT_EQ(Run("plain.pgm plain.pam").status, 0);
    EXPECT_EQ(PamSamples("plain.pam"), (Samples{0, 128, 255, 255}));
    // PBM marks black with 1; the 1-bit image and the PAM mark white. Read as grey 0/255, or kept
    // 1-bit with --keep-depth, when a 1-bit PNG stays 1-bit.
    WriteFile(Path("raw.pbm"), std::string("P4\n10 1\n\xA5\x40", 10));
    WriteFile(Path("plain.pbm"), "P1\n10 1\n1010010101\n");
    WriteFile(Path("bw.png"), Png(10, 1, 1, 0, std::string("\0\x5A\xBF", 3)));
    for (const char* file : {"raw.pbm", "plain.pbm", "bw.png"}) {
        EXPECT_EQ(Run(file).out, "10x1, 8-bit MONO\n");
        ASSERT_EQ(Run(std::string(file) + " grey.pam").status, 0);
        EXPECT_EQ(PamSamples("grey.pam", &tuple), (Samples{0, 255, 0, 255, 255, 0, 255, 0, 255, 0})) << file;
        EXPECT_EQ(tuple, "GRAYSCALE");
        EXPECT_EQ(Run(std::string(file) + " --keep-depth").out, "10x1, 1-bit MONO\n");
        ASSERT_EQ(Run(std::string(file) + " bw2.png --keep-depth").status, 0);
        ASSERT_EQ(Run("bw2.png bw.pam --keep-depth").status, 0);
        EXPECT_EQ(PamSamples("bw.pam", &tuple), (Samples{0, 1, 0, 1, 1, 0, 1, 0, 1, 0})) << file;
        EXPECT_EQ(tuple, "BLACKANDWHITE");
    }
    // A palette PNG keeps its palette; 16-bit grey 0x0000, 0x01FF, 0xFFFF scales to 0, 2, 255.
    WriteFile(Path("pal.png"), Png(3, 1, 8, 3, std::string("\0\x02\x00\x01", 4),
                                   std::string("\xFF\0\0\0\x80\0\x10\x20\x30", 9)));
    ASSERT_EQ(Run("pal.png same.png --keep-palette").status, 0);
    EXPECT_EQ(Run("same.png --keep-palette").out, "3x1, 8-bit with a palette of 3 colours\n");
    EXPECT_EQ(Run("same.png").out, "3x1, 24-bit BGR\n");
    ASSERT_EQ(Run("same.png colours.pam").status, 0);
    EXPECT_EQ(PamSamples("colours.pam"), (Samples{16, 32, 48, 255, 0, 0, 0, 128, 0}));
    WriteFile(Path("deep.png"), Png(3, 1, 16, 0, std::string("\0\x00\x00\x01\xFF\xFF\xFF", 7)));
    EXPECT_EQ(Run("deep.png").out, "3x1, 8-bit MONO\n");
    ASSERT_EQ(Run("deep.png deep.pam").status, 0);
    EXPECT_EQ(PamSamples("deep.pam"), (Samples{0, 2, 255}));
}

TEST_F(Qel, JpegRoundTripStaysCloseAndGreyStaysGrey) {
    Samples samples;
    for (int n = 0; n < 256; ++n)
        samples.insert(samples.end(), {uint8_t(n % 16 * 8), uint8_t(n / 16 * 8), 100});
    WriteFile(Path("in.pam"), Pam(16, 16, 3, "RGB", samples));
    ASSERT_EQ(Run("in.pam a.jpg --quality 95").status, 0);
    EXPECT_EQ(Run("a.jpg").out, "16x16, 24-bit BGR\n");
    ASSERT_EQ(Run("a.jpg back.pam").status, 0);
    const Samples back = PamSamples("back.pam");
    ASSERT_EQ(back.size(), samples.size());
    for (size_t i = 0; i < back.size(); ++i) ASSERT_LE(std::abs(back[i] - samples[i]), 12) << i;
    ASSERT_EQ(Run("in.pam grey.pgm").status, 0);
    ASSERT_EQ(Run("grey.pgm g.jpeg").status, 0);
    EXPECT_EQ(Run("g.jpeg").out, "16x16, 8-bit MONO\n");
}

// Every operation runs in the gallery tests; here a chain equals its steps.
TEST_F(Qel, ChainsEqualTheirStepsAndAreTimed) {
    ASSERT_EQ(Run("sample blur rotate 30 gamma 1.4 chain.pam").status, 0);
    ASSERT_EQ(Run("sample blur one.pam").status, 0);
    ASSERT_EQ(Run("one.pam rotate 30 two.pam").status, 0);
    ASSERT_EQ(Run("two.pam gamma 1.4 three.pam").status, 0);
    ASSERT_GT(ReadFile(Path("three.pam")).size(), 1000u);
    EXPECT_TRUE(ReadFile(Path("chain.pam")) == ReadFile(Path("three.pam")));
    const Outcome timed = Run("sample --time flip negative out.png");
    for (const char* step : {"ms  read sample\n", "ms  flip\n", "ms  negative\n", "ms  write "})
        EXPECT_NE(timed.err.find(step), std::string::npos) << timed.err;
}

TEST_F(Qel, GalleryAndHelp) {
    ASSERT_EQ(Run({"gallery", "-o", Path("gallery")}).status, 0);
    const std::string page = ReadFile(Path("gallery/index.html")), list = Run("list").out;
    size_t operations = 0, figures = 0;
    for (size_t at = 0; (at = list.find("\n  ", at)) != std::string::npos; ++at) ++operations;
    for (size_t at = 0; (at = page.find("<figure>", at)) != std::string::npos; ++at) ++figures;
    EXPECT_EQ(figures, operations);
    for (size_t at = 0; (at = page.find("<img src=\"", at)) != std::string::npos;) {
        at += 10;
        const std::string file = page.substr(at, page.find('"', at) - at);
        EXPECT_EQ(ReadFile(Path("gallery/" + file)).substr(0, 4), "\x89PNG") << file;
    }
    EXPECT_NE(page.find("src=\"original.png\""), std::string::npos);
    EXPECT_EQ(Run({Path("gallery/contact-sheet.png")}).out, "1334x1252, 24-bit BGR\n");
    EXPECT_NE(Run("--help").out.find("qel gallery [IN] -o DIR"), std::string::npos);
    const Outcome median = Run("help median");
    EXPECT_EQ(median.status, 0);
    for (const char* part : {"usage: qel IN median [SIZE] OUT", "(default 3)",
                             "accepts: ", "example: qel in.png median 5 out.png"})
        EXPECT_NE(median.out.find(part), std::string::npos) << median.out;
}

TEST_F(Qel, BadFilesAndMistakesFailWithOneLineAndTheirStatus) {
    const std::pair<const char*, std::string> mistakes[] = {
        {"sample frobnicate out.png", "qel: unknown operation 'frobnicate' (qel list shows them all)\n"},
        {"sample rotate out.png", "qel: rotate: bad angle"},
        {"sample rotate", "qel: rotate: missing angle"},
        {"sample median 99 out.png", "qel: median: bad size '99': expected a whole number from 1 to 15\n"},
        {"sample rotate 30 --method 16 out.png", "qel: rotate: bad --method '16'"},
        {"sample blur --bogus out.png", "qel: unknown option '--bogus' for blur\n"},
        {"sample blur out.xcf", "qel: " + Path("out.xcf") + ": unsupported output format"},
        {"help frobnicate", "qel: unknown operation 'frobnicate'"}};
    for (const auto& m : mistakes) {
        ExpectFailure(Words(m.first), 2, m.second);
        EXPECT_EQ(Listing(), std::vector<std::string>());
    }
    ASSERT_EQ(Run("sample good.png").status, 0);
    ASSERT_EQ(Run("sample good.jpg").status, 0);
    const std::string png = ReadFile(Path("good.png")), jpeg = ReadFile(Path("good.jpg"));
    std::string corrupt = png;
    corrupt[png.size() / 2] ^= 0x5A;
    const std::pair<const char*, std::string> files[] = {
        {"truncated.png", png.substr(0, png.size() / 2)},
        {"corrupt.png", corrupt},
        {"truncated.jpg", jpeg.substr(0, jpeg.size() / 2)},
        {"truncated.pam", Pam(4, 4, 3, "RGB", Gradient(4, 3, 3))},
        {"truncated.pgm", std::string("P5\n4 2\n255\n\1\2\3\4\5", 16)},
        {"corrupt.pam", "P7\nWIDTH 2\nHEIGHT x\nDEPTH 1\nMAXVAL 255\nENDHDR\n\1\2"},
        {"overmax.pgm", "P2\n2 1\n100\n50 200\n"},
        {"picture.psd", "8BPS\x00\x01"},
        {"empty.png", ""}};
    for (const auto& file : files) WriteFile(Path(file.first), file.second);
    const std::pair<const char*, const char*> reasons[] = {
        {"missing.png", "cannot open: No such file or directory"},
        {"truncated.png", "corrupt or truncated PNG"},
        {"corrupt.png", "corrupt or truncated PNG"},
        {"truncated.jpg", "corrupt or truncated JPEG"},
        {"truncated.pam", "truncated file"},
        {"truncated.pgm", "truncated file"},
        {"corrupt.pam", "corrupt netpbm file: "},
        {"overmax.pgm", "corrupt netpbm file: "},
        {"picture.psd", "unsupported file format"},
        {"empty.png", "empty file"}};
    for (const auto& r : reasons)
        ExpectFailure({Path(r.first), Path("out.png")}, 1, "qel: " + Path(r.first) + ": " + r.second);
    // A failing operation leaves an existing output alone; a second input that cannot be read names itself.
    WriteFile(Path("out.png"), "keep me");
    const size_t before = Listing().size();
    const Outcome failed = Run("sample blur scale8 0.5 out.png");
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.err,
              "qel: scale8: failed with 0xF0040031 (the image is not MONO) on a 320x240, 32-bit ARGB image "
              "(accepts 32-bit MONO images)\n");
    const Outcome missing = Run("sample add nothere.png out.png");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "qel: add: " + Path("nothere.png") + ": cannot open: No such file or directory\n");
    EXPECT_EQ(ReadFile(Path("out.png")), "keep me");
    EXPECT_EQ(Listing().size(), before);
}

// A file that must be refused with status 1 and a message naming it, or (a
// damaged copy that may still decode) must at least not crash qel.
TEST_F(Qel, HostileFilesEndInAnErrorNeverInACrash) {
    const auto expectRefused = [&](const std::string& name, const std::string& bytes, bool mayDecode) {
        WriteFile(Path(name), bytes);
        const Outcome outcome = Run({Path(name), "blur", Path("out.png")});
        EXPECT_TRUE(outcome.status == 1 || (mayDecode && outcome.status == 0))
            << name << ": " << outcome.status;
        if (outcome.status == 1) {
            EXPECT_EQ(outcome.err.rfind("qel: ", 0), 0u) << outcome.err;
            EXPECT_NE(outcome.err.find(name), std::string::npos) << outcome.err;
            EXPECT_FALSE(Exists(Path("out.png"))) << name;
        }
        std::remove(Path("out.png").c_str());
    };
    for (const std::string extension : {"png", "jpg", "ppm", "pam"}) {
        const std::string good = Path("good." + extension);
        ASSERT_EQ(Run({"sample", "resample", "37x23", good}).status, 0);
        const std::string bytes = ReadFile(good);
        // Cut after 20 bytes (within the header but for PPM), and four bytes overwritten.
        expectRefused("cut." + extension, bytes.substr(0, 20), false);
        std::string damaged = bytes;
        std::mt19937 random(7);
        for (int flips = 0; flips < 4; ++flips) damaged[random() % damaged.size()] = char(random());
        expectRefused("damaged." + extension, damaged, true);
    }
    // Headers whose byte counts overflow are refused before anything is allocated.
    const std::pair<const char*, std::string> headers[] = {
        {"huge.png", Png(0x7FFFFFFF, 0x7FFFFFFF, 8, 2, "")},
        {"wide.png", Png(0x7FFFFFFF, 1, 8, 2, "")},
        {"zero.png", Png(0, 0, 8, 2, "")},
        {"huge.ppm", "P6\n2147483647 2147483647\n255\n"},
        {"wrap.ppm", "P6\n4294967297 1\n255\nabc"},
        {"negative.pgm", "P5\n-3 2\n255\nabcdef"},
        {"zero.pgm", "P5\n0 0\n255\n"},
        {"maxval.pgm", "P5\n2 2\n0\nabcd"},
        {"short.pgm", "P5\n3 3\n255\nab"},
        {"text.pgm", "P2\n2 2\n255\n1 2 x 4\n"},
        {"huge.pam",
         "P7\nWIDTH 99999999\nHEIGHT 99999999\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n"},
        {"deep.pam", "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 4000000000\nMAXVAL 255\nENDHDR\nx"},
        // Start of frame with 65535 x 65535, then nothing.
        {"huge.jpg",
         std::string(
             "\xFF\xD8\xFF\xC0\x00\x11\x08\xFF\xFF\xFF\xFF\x03\x01\x22\x00\x02\x11\x01\x03\x11\x01\xFF\xD9",
             23)}};
    for (const auto& header : headers) expectRefused(header.first, header.second, false);
}

TEST_F(Qel, AbsurdArgumentsAreUsageErrors) {
    const std::string chains =
        "resample 2147483648x2|resample 65536x65536|resample 0x5|resample nan%|gamma nan|gamma inf|"
        "median 1000000|rotate 2147483648|light 1e999 0|resample -5x-5|noise 99999999999999999999";
    std::istringstream each(chains);
    for (std::string chain; std::getline(each, chain, '|');)
        ExpectFailure(Words("sample " + chain + " out.png"), 2, "qel: ");
    for (const std::string value :
         {"0", "-5", "abc", "", "1e9", "12x", "+7", " 7", "0x100", "99999999999999999999"})
        ExpectFailure({"--max-pixels", value, "sample", "blur", Path("out.png")}, 2,
                      "qel: bad --max-pixels '" + value + "': expected a whole number of pixels from 1 up\n");
    ExpectFailure({"sample", "blur", "--max-pixels"}, 2, "qel: --max-pixels needs a value\n");
}

// Each result is refused one pixel above the limit and made at it, so the size
// qel works out must be the size the module would make.
TEST_F(Qel, ThePixelLimitHoldsForResultsAndFilesOnePixelOverAndExactlyAt) {
    const std::string out = Path("out.png"), tiny = Path("tiny.pgm");
    const auto above = [](const std::string& what, const std::string& size, const std::string& limit) {
        return "qel: " + what + ": result " + size + " is above the pixel limit " + limit +
               " (--max-pixels)\n";
    };
    // Two 1000% steps of the 320x240 chart: 768 million pixels, above the default.
    ExpectFailure({"sample", "resample", "1000%", "resample", "1000%", out}, 1,
                  above("resample", "32000x24000", "268435456"));
    ExpectFailure({"--max-pixels", "7679999", "sample", "resample", "1000%", out}, 1,
                  above("resample", "3200x2400", "7679999"));
    ExpectResult({"--max-pixels", "7680000", "sample", "resample", "1000%"}, "3200x2400, 32-bit ARGB");
    WriteFile(tiny, "P5\n20 10\n255\n" + std::string(200, '\x40'));
    ExpectFailure({tiny, "resample", "1000%", "resample", "1000%", "--max-pixels", "1999999", out}, 1,
                  above("resample", "2000x1000", "1999999"));
    ExpectResult({tiny, "resample", "1000%", "resample", "1000%", "--max-pixels", "2000000"},
                 "2000x1000, 8-bit MONO");
    // Rotate by 45 degrees: the chart's bounding box is 396x396.
    ExpectFailure({"--max-pixels", "156815", "sample", "rotate", "45", out}, 1,
                  above("rotate", "396x396", "156815"));
    ExpectResult({"--max-pixels", "156816", "sample", "rotate", "45"}, "396x396, 32-bit ARGB");
    ExpectResult({"--max-pixels", "76800", "sample", "rotate", "45", "--keep-size"}, "320x240, 32-bit ARGB");
    // Quad without a size takes the shorter opposite edges: top 150, bottom 201, left 100, right 130.
    ExpectFailure({"sample", "quad", "0,0", "1000000,0", "0,1000000", "1000000,1000000", out}, 1,
                  above("quad", "1000000x1000000", "268435456"));
    ExpectFailure({"--max-pixels", "14999", tiny, "quad", "0,0", "150,0", "0,100", "200,120", out}, 1,
                  above("quad", "150x100", "14999"));
    ExpectResult({"--max-pixels", "15000", tiny, "quad", "0,0", "150,0", "0,100", "200,120"},
                 "150x100, 8-bit MONO");
    ExpectFailure(
        {"--max-pixels", "9999", tiny, "quad", "0,0", "5,0", "0,5", "5,5", "--size", "100x100", out}, 1,
        above("quad", "100x100", "9999"));
    ExpectFailure({"sample", "transform", "1,0,0,0,1,0", "--size", "30000x30000", out}, 1,
                  above("transform", "30000x30000", "268435456"));
    ExpectResult({"--max-pixels", "76800", "sample", "transform", "1,0,0,0,1,0"}, "320x240, 32-bit ARGB");
    // Files are held to it in every format before their pixels are read: 37x23 is 851 pixels.
    for (const std::string extension : {"png", "jpg", "ppm", "pam"}) {
        const std::string file = Path("37x23." + extension);
        ASSERT_EQ(Run({"sample", "resample", "37x23", file}).status, 0);
        ExpectFailure({"--max-pixels", "850", file, "negative", out}, 1,
                      "qel: " + file + ": image 37x23 is above the pixel limit 850 (--max-pixels)\n");
        ExpectResult({"--max-pixels", "851", file, "negative"},
                     extension == "png" || extension == "pam" ? "37x23, 32-bit ARGB" : "37x23, 24-bit BGR");
    }
    // Second images and the built-in chart too.
    ExpectFailure({"--max-pixels", "850", tiny, "subtract", Path("37x23.png"), out}, 1,
                  "qel: subtract: " + Path("37x23.png") +
                      ": image 37x23 is above the pixel limit 850 (--max-pixels)\n");
    ExpectFailure({"--max-pixels", "76799", "sample", "blur", out}, 1,
                  "qel: sample: image 320x240 is above the pixel limit 76799 (--max-pixels)\n");
}

}  // namespace
