// The qel command-line tool run as a user runs it: JPEG round trips, chains,
// one-line errors with their exit status that leave every file as it was, and
// the pixel limit refused one pixel over and accepted exactly at it.
#include "support/qel_cli.h"

namespace {

using namespace qeltest;
using Qel = QelRun;

TEST_F(Qel, JpegRoundTripStaysCloseAndGreyStaysGrey) {
    Samples samples;
    for (int n = 0; n < 256; ++n)
        samples.insert(samples.end(), {uint8_t(n % 16 * 8), uint8_t(n / 16 * 8), 100});
    WriteFile(Path("in.pam"), Pam(16, 16, 3, "RGB", samples));
    Ok("qel in.pam a.jpg --quality 95 && qel a.jpg back.pam && qel in.pam grey.pgm && qel grey.pgm g.jpeg");
    ExpectResult("a.jpg", "16x16, 24-bit BGR");
    const Samples back = PamSamples("back.pam");
    ASSERT_EQ(back.size(), samples.size());
    for (size_t i = 0; i < back.size(); ++i) ASSERT_LE(std::abs(back[i] - samples[i]), 12) << i;
    ExpectResult("g.jpeg", "16x16, 8-bit MONO");
}

// Every operation runs in the gallery tests; here a chain equals its steps.
TEST_F(Qel, ChainsEqualTheirStepsAndAreTimed) {
    ExpectSameFile(
        "qel sample blur rotate 30 gamma 1.4 chain.pam",
        "qel sample blur one.pam && qel one.pam rotate 30 two.pam && qel two.pam gamma 1.4 three.pam");
    const Outcome timed = Run("sample --time flip negative out.png");
    for (const char* step : {"ms  read sample\n", "ms  flip\n", "ms  negative\n", "ms  write "})
        EXPECT_NE(timed.err.find(step), std::string::npos) << timed.err;
}

// Each mistake: its exit status and the start of its one line.
TEST_F(Qel, MistakesFailWithOneLineAndTheirStatus) {
    WriteFile(Path("out.png"), "keep me");
    std::string kernel17 = "1";
    for (int i = 1; i < 17 * 17; ++i) kernel17 += ",1";
    const struct {
        std::string arguments;
        int status;
        std::string message;
    } rows[] = {
        {"sample frobnicate out.png", 2, "qel: unknown operation 'frobnicate' (qel list shows them all)\n"},
        {"sample rotate out.png", 2, "qel: rotate: bad angle"},
        {"sample rotate", 2, "qel: rotate: missing angle"},
        {"sample median 99 out.png", 2, "qel: median: bad size '99': expected a whole number from 1 to 15\n"},
        {"sample rotate 30 --method 16 out.png", 2, "qel: rotate: bad --method '16'"},
        {"sample rotate 30 --method sharpest out.png", 2,
         "qel: rotate: bad --method 'sharpest': expected a method"},
        {"sample blur --bogus out.png", 2, "qel: unknown option '--bogus' for blur\n"},
        {"sample blur out.xcf", 2, "qel: out.xcf: unsupported output format"},
        {"help frobnicate", 2, "qel: unknown operation 'frobnicate'"},
        {"sample blur 3 out.png", 2, "qel: blur takes no value, so '3' is left over (qel help blur)\n"},
        {"sample median 3 5 out.png", 2,
         "qel: median takes 1 value; '5' is one too many (qel help median)\n"},
        {"sample info", 2, "qel: info is a command, not an operation: qel info sample (qel --help)\n"},
        {"sample filter " + kernel17 + " out.png", 2,
         "qel: filter: bad kernel '1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1...': expected a kernel of at most "
         "15x15 (225 weights); this one is 17x17\n"},
        {"sample blur --max-pixels", 2, "qel: --max-pixels needs a value\n"},
        {"missing.png out.png", 1, "qel: missing.png: cannot open: No such file or directory\n"},
        {"sample crop 5x5+320+0 out.png", 1,
         "qel: crop: the area 5x5+320+0 lies outside the 320x240 image\n"},
        {"sample add nothere.png out.png", 1,
         "qel: add: nothere.png: cannot open: No such file or directory\n"},
        {"sample blur scale8 0.5 out.png", 1,
         "qel: scale8: failed with 0xF0040031 (the image is not MONO) on a 320x240, 32-bit ARGB image "
         "(accepts 32-bit MONO images)\n"}};
    for (const auto& row : rows) ExpectFailure(row.arguments, row.status, row.message);
    // Values no image could take are usage errors too.
    std::istringstream chains(
        "resample 2147483648x2|resample 65536x65536|resample 0x5|resample nan%|gamma nan|gamma inf|"
        "median 1000000|rotate 2147483648|light 1e999 0|resample -5x-5|noise 99999999999999999999");
    for (std::string chain; std::getline(chains, chain, '|');) ExpectFailure("sample " + chain, 2, "qel: ");
    for (const std::string value :
         {"0", "-5", "abc", "", "1e9", "12x", "+7", " 7", "0x100", "99999999999999999999"})
        ExpectFailure("--max-pixels '" + value + "' sample blur out.png", 2,
                      "qel: bad --max-pixels '" + value + "': expected a whole number of pixels from 1 up\n");
}

// Each result is refused one pixel above the limit and made at it, so the size
// qel works out must be the size the module would make.
TEST_F(Qel, ThePixelLimitHoldsForResultsAndFilesOnePixelOverAndExactlyAt) {
    WriteFile(Path("tiny.pgm"), "P5\n20 10\n255\n" + std::string(200, '\x40'));
    const auto above = [](const std::string& what, const std::string& size, const std::string& limit) {
        return "qel: " + what + ": result " + size + " is above the pixel limit " + limit +
               " (--max-pixels)\n";
    };
    // The limit goes where LIMIT stands; the chart is 320x240.
    const struct {
        std::string arguments, operation, size;
        int limit;
        std::string described;
    } rows[] = {
        {"--max-pixels LIMIT sample resample 1000%", "resample", "3200x2400", 7680000, "32-bit ARGB"},
        {"tiny.pgm resample 1000% resample 1000% --max-pixels LIMIT", "resample", "2000x1000", 2000000,
         "8-bit MONO"},
        // Rotate by 45 degrees: the chart's bounding box is 396x396.
        {"--max-pixels LIMIT sample rotate 45", "rotate", "396x396", 156816, "32-bit ARGB"},
        // Quad without a size takes the shorter opposite edges: top 150, bottom 201, left 100, right 130.
        {"--max-pixels LIMIT tiny.pgm quad 0,0 150,0 0,100 200,120", "quad", "150x100", 15000, "8-bit MONO"},
        {"--max-pixels LIMIT tiny.pgm quad 0,0 5,0 0,5 5,5 --size 100x100", "quad", "100x100", 10000,
         "8-bit MONO"}};
    for (const auto& row : rows) {
        const size_t at = row.arguments.find("LIMIT");
        const std::string over = std::string(row.arguments).replace(at, 5, std::to_string(row.limit - 1));
        ExpectFailure(over + " out.png", 1, above(row.operation, row.size, std::to_string(row.limit - 1)));
        ExpectResult(std::string(row.arguments).replace(at, 5, std::to_string(row.limit)),
                     row.size + ", " + row.described);
    }
    // At the default limit: two 1000% steps of the chart are 768 million pixels.
    ExpectFailure("sample resample 1000% resample 1000% out.png", 1,
                  above("resample", "32000x24000", "268435456"));
    ExpectFailure("sample quad 0,0 1000000,0 0,1000000 1000000,1000000 out.png", 1,
                  above("quad", "1000000x1000000", "268435456"));
    ExpectFailure("sample transform 1,0,0,0,1,0 --size 30000x30000 out.png", 1,
                  above("transform", "30000x30000", "268435456"));
    ExpectResult("--max-pixels 76800 sample rotate 45 --keep-size", "320x240, 32-bit ARGB");
    ExpectResult("--max-pixels 76800 sample transform 1,0,0,0,1,0", "320x240, 32-bit ARGB");
    // Files are held to it in every format before their pixels are read: 37x23 is 851 pixels.
    const std::pair<std::string, const char*> formats[] = {
        {"png", "32-bit ARGB"}, {"jpg", "24-bit BGR"},   {"ppm", "24-bit BGR"}, {"pam", "32-bit ARGB"},
        {"tif", "32-bit ARGB"}, {"webp", "32-bit ARGB"}, {"gif", "24-bit BGR"}, {"bmp", "32-bit ARGB"}};
    for (const auto& [extension, described] : formats) {
        const std::string file = "37x23." + extension;
        Ok("qel sample resample 37x23 " + file);
        ExpectFailure("--max-pixels 850 " + file + " negative out.png", 1,
                      "qel: " + file + ": image 37x23 is above the pixel limit 850 (--max-pixels)\n");
        ExpectResult("--max-pixels 851 " + file + " negative", std::string("37x23, ") + described);
    }
    // Second images and the built-in chart too.
    ExpectFailure("--max-pixels 850 tiny.pgm subtract 37x23.png out.png", 1,
                  "qel: subtract: 37x23.png: image 37x23 is above the pixel limit 850 (--max-pixels)\n");
    ExpectFailure("--max-pixels 76799 sample blur out.png", 1,
                  "qel: sample: image 320x240 is above the pixel limit 76799 (--max-pixels)\n");
}

}  // namespace
