// qel's file handling run as a user runs it: every lossless format round
// trips, layouts qel does not write read as stored, EXIF orientation and
// carried metadata, pipes, batches, info and TIFF pages, and hostile files of
// every format refused with one line.
#include <random>
#include <tuple>

#include "support/qel_cli.h"

namespace {

using namespace qeltest;

std::string Little16(unsigned v) { return std::string{char(v), char(v >> 8)}; }
std::string Little32(uint32_t v) { return Little16(v & 0xFFFF) + Little16(v >> 16); }

// A JPEG segment inserted after SOI.
std::string WithJpegSegment(const std::string& jpeg, int marker, const std::string& data) {
    return jpeg.substr(0, 2) + char(0xFF) + char(marker) + Big16(static_cast<unsigned>(data.size() + 2)) +
           data + jpeg.substr(2);
}
// An EXIF block (big-endian TIFF header, IFD0 with one Orientation entry).
std::string ExifWithOrientation(int orientation) {
    return "MM" + Big16(42) + Big32(8) + Big16(1) + Big16(0x0112) + Big16(3) + Big32(1) + Big16(orientation) +
           Big16(0) + Big32(0);
}
// An ICC profile libpng accepts: an RGB monitor header and one tag of
// incompressible bytes (libpng refuses very short compressed profiles).
std::string IccProfile() {
    const uint32_t size = 132 + 12 + 400;
    std::string p = Big32(size) + std::string(4, '\0') + Big32(0x02100000) + "mntrRGB XYZ " +
                    std::string(12, '\0') + "acsp";
    p.resize(68, '\0');
    p += Big32(0xF6D6) + Big32(0x10000) + Big32(0xD32D);
    p.resize(128, '\0');
    p += Big32(1) + "zzzz" + Big32(144) + Big32(400);
    for (uint32_t i = 0, r = 7; i < 400; ++i) r = r * 1103515245u + 12345u, p += char(r >> 16);
    return p;
}
// A little-endian TIFF of uncompressed 8-bit grey pages of width x height,
// page n's samples being n*16 + x; `data` false leaves the samples out.
std::string GreyTiffPages(int pages, uint32_t width, uint32_t height = 1, bool data = true) {
    std::string file = "II" + Little16(42) + Little32(8);
    auto entry = [](unsigned tag, unsigned type, uint32_t value) {
        return Little16(tag) + Little16(type) + Little32(1) +
               (type == 3 ? Little16(value) + Little16(0) : Little32(value));
    };
    for (int page = 0; page < pages; ++page) {
        const uint32_t samples = static_cast<uint32_t>(file.size()) + 2 + 8 * 12 + 4;
        const uint32_t next = page + 1 < pages ? samples + width * height : 0;
        file += Little16(8) + entry(256, 4, width) + entry(257, 4, height) + entry(258, 3, 8) +
                entry(259, 3, 1) + entry(262, 3, 1) + entry(273, 4, samples) + entry(278, 4, height) +
                entry(279, 4, width * height) + Little32(next);
        for (uint32_t i = 0; data && i < width * height; ++i) file += char(page * 16 + i % width);
    }
    return file;
}

// A BMP file: the info header (40 bytes, or 108 with the masks of a V4
// header), then `table` (palette or bit fields) and the pixel rows.
std::string Bmp(int32_t width, int32_t height, int bits, uint32_t compression, const std::string& masks,
                const std::string& table, const std::string& pixels) {
    std::string info = Little32(masks.empty() ? 40 : 108) + Little32(static_cast<uint32_t>(width)) +
                       Little32(static_cast<uint32_t>(height)) + Little16(1) + Little16(bits) +
                       Little32(compression) + std::string(20, '\0');
    if (!masks.empty()) info += masks + std::string(108 - 40 - masks.size(), '\0');
    const uint32_t offset = static_cast<uint32_t>(14 + info.size() + table.size());
    return "BM" + Little32(static_cast<uint32_t>(offset + pixels.size())) + Little32(0) + Little32(offset) +
           info + table + pixels;
}

using QelFiles = QelRun;

// Grey, colour, bilevel, and RGBA with fully and partly transparent pixels
// (from the built-in chart) come back from every lossless format as they went
// in; each PNG has the bit depth and colour type of its image.
TEST_F(QelFiles, LosslessFormatsKeepEveryPixel) {
    WriteFile(Path("grey.pam"), Pam(7, 5, 1, "GRAYSCALE", Gradient(7, 5, 1)));
    WriteFile(Path("rgb.pam"), Pam(7, 5, 3, "RGB", Gradient(7, 5, 3)));
    Ok("qel sample resample 37x23 rgba.pam && qel grey.pam threshold 100 bilevel.pbm && "
       "qel bilevel.pbm --keep-depth bilevel.pam");
    // threshold gives 8-bit 0/255 (white above 100); the PBM holds it as 1 bit, a set bit black.
    EXPECT_EQ(ReadFile(Path("bilevel.pbm")), std::string("P4\n7 5\n\xE0\x86\x38\xE0\x0E", 12));
    const struct {
        std::string source, options, described;
        char pngDepth, pngColourType;
        const char* formats;
    } rows[] = {{"grey.pam", "", "7x5, 8-bit MONO", 8, 0, "png pam pgm tif bmp gif"},
                {"rgb.pam", "", "7x5, 24-bit BGR", 8, 2, "png pam ppm tif webp bmp"},
                {"rgba.pam", "", "37x23, 32-bit ARGB", 8, 6, "png pam tif webp bmp"},
                {"bilevel.pam", " --keep-depth", "7x5, 1-bit MONO", 1, 0, "png pam pbm tif bmp"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.source);
        ExpectResult(row.source + row.options, row.described);
        std::istringstream formats(row.formats);
        for (std::string format; formats >> format;) {
            Ok("qel " + row.source + row.options + " a." + format + " && qel a." + format + row.options +
               " back.pam");
            EXPECT_EQ(ReadFile(Path("back.pam")), ReadFile(Path(row.source))) << format;
        }
        EXPECT_EQ(ReadFile(Path("a.png")).substr(24, 2), (std::string{row.pngDepth, row.pngColourType}));
    }
    // GIF holds a bilevel image as two palette colours, and up to 256 colours exactly.
    ExpectSameFile("qel bilevel.pbm --keep-depth b.gif && qel b.gif back.pbm", "bilevel.pbm");
    ExpectSameFile("qel sample resample 16x12 few.ppm", "qel few.ppm f.gif && qel f.gif back.ppm");
    // With --keep-palette, the GIF's palette image keeps its palette through TIFF, BMP and PNG.
    for (const std::string format : {"tif", "bmp", "png"}) {
        SCOPED_TRACE(format);
        ExpectSameFile("qel f.gif --keep-palette p." + format + " && qel p." + format + " again.ppm",
                       "few.ppm");
        ExpectResult("p." + format + " --keep-palette", "16x12, 8-bit with a palette of 256 colours");
    }
}

// Layouts qel does not write itself, each read with its options: the picture
// that info gives and the PAM qel writes of it.
TEST_F(QelFiles, FilesReadAsStored) {
    const std::string palette = std::string("\0\0\xFF\0\0\xFF\0\0\xFF\0\0\0", 12) + std::string(13 * 4, '\0');
    const std::string masks =
        Little32(0x00FF0000) + Little32(0x0000FF00) + Little32(0x000000FF) + Little32(0xFF000000);
    // PBM marks black with 1; the 1-bit PNG and the PAM mark white.
    const std::string grey = Pam(10, 1, 1, "GRAYSCALE", {0, 255, 0, 255, 255, 0, 255, 0, 255, 0}),
                      bits = Pam(10, 1, 1, "BLACKANDWHITE", {0, 1, 0, 1, 1, 0, 1, 0, 1, 0}, 1);
    const std::string rows[][5] = {
        // Grey with alpha becomes 32-bit ARGB; 16-bit samples 0x01FF, 0x8080, 0xFFFF scale to 2, 128, 255.
        {"ga.pam", Pam(2, 1, 2, "GRAYSCALE_ALPHA", {0x01, 0xFF, 0x80, 0x80, 0xFF, 0xFF, 0, 0}, 65535),
         " --quiet", "2x1, 32-bit ARGB", Pam(2, 1, 4, "RGB_ALPHA", {2, 2, 2, 128, 255, 255, 255, 0})},
        // Plain PGM with maxval 1000: 500 rounds up to 128, 999 to 255.
        {"plain.pgm", "P2\n# a comment\n4 1\n1000\n0 500 999 1000\n", " --quiet", "4x1, 8-bit MONO",
         Pam(4, 1, 1, "GRAYSCALE", {0, 128, 255, 255})},
        // 1-bit images are widened to grey in one place after reading, so the
        // other 1-bit readers are checked at their bits.
        {"raw.pbm", std::string("P4\n10 1\n\xA5\x40", 10), "", "10x1, 8-bit MONO", grey},
        {"raw.pbm", "", " --keep-depth", "10x1, 1-bit MONO", bits},
        {"plain.pbm", "P1\n10 1\n1010010101\n", " --keep-depth", "10x1, 1-bit MONO", bits},
        {"bw.png", Png(10, 1, 1, 0, "\x5A\xBF"), " --keep-depth", "10x1, 1-bit MONO", bits},
        // 16-bit PNG samples: the high byte, rounded by the low one; 0xFFFF stays 255.
        {"deep.png",
         Png(3, 2, 16, 0,
             Big16(0x0000) + Big16(0x01FF) + Big16(0xFFFF) + Big16(0x1234) + Big16(0x2468) + Big16(0x1335)),
         " --quiet", "3x2, 8-bit MONO", Pam(3, 2, 1, "GRAYSCALE", {0, 2, 255, 0x12, 0x24, 0x13})},
        // BMP: 4-bit bottom-up, rows red green blue / blue green red.
        {"four.bmp", Bmp(3, 2, 4, 0, "", palette, std::string("\x21\x00\0\0\x01\x20\0\0", 8)), "",
         "3x2, 24-bit BGR",
         Pam(3, 2, 3, "RGB", {255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 255, 0, 255, 0, 255, 0, 0})},
        // 16-bit 5-5-5, top-down.
        {"sixteen.bmp",
         Bmp(2, -2, 16, 0, "", "", Little16(0x7C00) + Little16(0x03E0) + Little16(0x0010) + Little16(0x7FFF)),
         "", "2x2, 24-bit BGR", Pam(2, 2, 3, "RGB", {255, 0, 0, 0, 255, 0, 0, 0, 0x83, 255, 255, 255})},
        // 32-bit with bit fields and an alpha mask in a V4 header.
        {"alpha.bmp", Bmp(1, 1, 32, 3, masks, "", Little32(0x80102030)), "", "1x1, 32-bit ARGB",
         Pam(1, 1, 4, "RGB_ALPHA", {0x10, 0x20, 0x30, 0x80})}};
    for (const auto& [name, bytes, options, described, expected] : rows) {
        if (!bytes.empty()) WriteFile(Path(name), bytes);
        ExpectResult(name + options, described);
        Ok("qel " + name + options + " out.pam");
        EXPECT_EQ(ReadFile(Path("out.pam")), expected) << name << options;
    }
    // Without --quiet, 16-bit samples are noted.
    EXPECT_EQ(Run("deep.png out.pam").err,
              "qel: deep.png: 16-bit samples read as 8-bit (the module works on 8-bit channels)\n");
}

// A 3x2 grey image 1 2 3 / 4 5 6 stored with each EXIF orientation comes
// out as a viewer shows it.
TEST_F(QelFiles, ExifOrientationTurnsThePixels) {
    // The pixels as shown for orientations 1 to 8; from 5 on the image is 2x3.
    const std::string shown[] = {"\x01\x02\x03\x04\x05\x06", "\x03\x02\x01\x06\x05\x04",
                                 "\x06\x05\x04\x03\x02\x01", "\x04\x05\x06\x01\x02\x03",
                                 "\x01\x04\x02\x05\x03\x06", "\x04\x01\x05\x02\x06\x03",
                                 "\x06\x03\x05\x02\x04\x01", "\x03\x06\x02\x05\x01\x04"};
    for (int orientation = 1; orientation <= 8; ++orientation) {
        SCOPED_TRACE(orientation);
        const std::string expected =
            (orientation < 5 ? "P5\n3 2\n255\n" : "P5\n2 3\n255\n") + shown[orientation - 1];
        WriteFile(Path("o.png"),
                  Png(3, 2, 8, 0, shown[0], PngChunk("eXIf", ExifWithOrientation(orientation))));
        // The written file shows the same way: its orientation is reset.
        Ok("qel o.png out.pgm && qel o.png --no-autorotate kept.pgm && qel o.png turned.png && "
           "qel turned.png again.pgm");
        EXPECT_EQ(ReadFile(Path("out.pgm")), expected);
        EXPECT_EQ(ReadFile(Path("kept.pgm")), "P5\n3 2\n255\n" + shown[0]);
        EXPECT_EQ(ReadFile(Path("again.pgm")), expected);
    }
}

TEST_F(QelFiles, JpegMetadataSurvivesAChain) {
    Ok("qel sample resample 40x20 plain.jpg");
    const std::string profile = IccProfile();
    const std::string xmp = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>";
    std::string jpeg = ReadFile(Path("plain.jpg"));
    jpeg = WithJpegSegment(jpeg, 0xE2, std::string("ICC_PROFILE\0\x01\x01", 14) + profile);
    jpeg = WithJpegSegment(jpeg, 0xE1, std::string("http://ns.adobe.com/xap/1.0/\0", 29) + xmp);
    jpeg = WithJpegSegment(jpeg, 0xE1, std::string("Exif\0\0", 6) + ExifWithOrientation(6));
    WriteFile(Path("phone.jpg"), jpeg);
    Ok("qel phone.jpg blur out.jpg && qel phone.jpg blur out.png && qel phone.jpg out.tif && "
       "qel phone.jpg out.webp && qel phone.jpg --no-autorotate kept.jpg");
    const Outcome info = Run("info phone.jpg out.jpg out.png out.tif out.webp kept.jpg --json");
    EXPECT_EQ(info.status, 0) << info.err;
    // Each file, its format, whether it was turned upright, and its EXIF bytes (TIFF carries none).
    const std::tuple<const char*, const char*, bool, int> files[] = {
        {"phone.jpg", "JPEG", false, 26}, {"out.jpg", "JPEG", true, 26},  {"out.png", "PNG", true, 26},
        {"out.tif", "TIFF", true, 0},     {"out.webp", "WebP", true, 26}, {"kept.jpg", "JPEG", false, 26}};
    std::string expected = "[\n";
    for (const auto& [file, format, turned, exif] : files)
        expected += std::string(expected.size() > 2 ? ",\n" : "") + "  {\"file\": \"" + file +
                    "\", \"format\": \"" + format +
                    (turned ? "\", \"width\": 20, \"height\": 40" : "\", \"width\": 40, \"height\": 20") +
                    ", \"bits_per_sample\": 8, \"bit_count\": 24, \"colour_model\": \"BGR\", \"palette\": 0, "
                    "\"alpha\": false, \"orientation\": " +
                    (turned ? "1" : "6") + ", \"icc_bytes\": 544, \"exif_bytes\": " + std::to_string(exif) +
                    ", \"xmp_bytes\": 37, \"pages\": 1}";
    EXPECT_EQ(info.out, expected + "\n]\n");
    // The profile is carried byte for byte.
    EXPECT_NE(ReadFile(Path("out.jpg")).find(profile), std::string::npos);
}

TEST_F(QelFiles, PipesGiveTheSameBytesAsFiles) {
    Ok("qel sample resample 50x30 in.png");
    ExpectSameFile("qel in.png median 3 file.png", "cat in.png | qel - median 3 --format png - > piped.png");
    ExpectSameFile("cat in.png | qel /dev/stdin median 3 devstdin.png", "file.png");
    const std::string message =
        "qel: say the format of standard output with --format (png, jpg, tif, webp, ...)\n";
    EXPECT_EQ(ExpectFailure("in.png -", 2, message).out, "");
}

// A batch writes every good file as a single run would, names the bad one,
// and gives each file the noise a single run gives it.
TEST_F(QelFiles, BatchesRunAsSingleRunsDoAndNameTheBadFile) {
    Ok("mkdir in && for i in $(seq 1 40); do qel sample resample $((20 + i))x17 in/f$i.png || exit 1; done");
    WriteFile(Path("in/f17.png"), ReadFile(Path("in/f17.png")).substr(0, 90));
    const Outcome outcome = Run("batch in/*.png -o out -j 2 -- median 3 rotate 90");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err.rfind("qel: in/f17.png: corrupt or truncated PNG", 0), 0u) << outcome.err;
    EXPECT_NE(outcome.err.find("\nqel: 39 of 40 files written to out, 1 failed in "), std::string::npos)
        << outcome.err;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 2) << outcome.err;
    EXPECT_EQ(Contents("out").size(), 39u);
    EXPECT_EQ(Contents("out").count("f17.png"), 0u);
    for (const std::string name : {"f1.png", "f16.png", "f18.png", "f40.png"})
        ExpectSameFile("qel in/" + name + " median 3 rotate 90 single.png", "out/" + name);
    const Outcome noisy = Run("batch in/f1.png in/f2.png -o noisy --format png -j 2 -- noise 30");
    EXPECT_EQ(noisy.status, 0);
    EXPECT_EQ(noisy.err.rfind("qel: noise and jitter share one random sequence", 0), 0u) << noisy.err;
    ExpectSameFile("qel in/f2.png noise 30 single.png", "noisy/f2.png");
    for (const std::string wrong : {"in/f1.png -o out", "in/f1.png -- blur", "in/f1.png -o out -- blur -j 2",
                                    "in/f1.png in/f2.png/f1.png -o out -- blur"})
        ExpectFailure("batch " + wrong, 2, "qel: batch: ");
}

TEST_F(QelFiles, InfoDescribesEachFileAndTiffPagesAreReadByNumber) {
    WriteFile(Path("pages.tif"), GreyTiffPages(3, 4));
    Ok("qel sample resample 8x6 c.png && qel sample resample 8x6 g.pgm && qel g.pgm threshold 100 b.gif && "
       "qel pages.tif[2] p2.pgm && qel pages.tif p0.pgm");
    EXPECT_EQ(ReadFile(Path("p2.pgm")), std::string("P5\n4 1\n255\n") + "\x20\x21\x22\x23");
    EXPECT_EQ(ReadFile(Path("p0.pgm")), std::string("P5\n4 1\n255\n") + std::string("\x00\x01\x02\x03", 4));
    ExpectFailure("pages.tif[3] out.png", 1, "qel: pages.tif[3]: no page 3 (the file has 3, counted from 0)");
    const Outcome outcome = Run("info c.png g.pgm b.gif pages.tif missing.png");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(
        outcome.out,
        "c.png: PNG 8x6, 8 bits per sample, read as 32-bit ARGB, no palette, alpha, orientation 1, no ICC "
        "profile\n"
        "g.pgm: netpbm 8x6, 8 bits per sample, read as 8-bit MONO, no palette, no alpha, orientation 1, "
        "no ICC profile\n"
        "b.gif: GIF 8x6, 8 bits per sample, read as 8-bit MONO, palette of 2, no alpha, orientation 1, no "
        "ICC profile\n"
        "pages.tif: TIFF 4x1, 8 bits per sample, read as 8-bit MONO, no palette, no alpha, orientation 1, "
        "no ICC profile, 3 pages\n");
    EXPECT_EQ(outcome.err, "qel: missing.png: cannot open: No such file or directory\n");
}

// Every reader refuses cut and nonsense files, and headers whose sizes
// overflow or pass the pixel limit before anything is allocated, with one
// line naming the file; a copy with four bytes overwritten may still decode,
// but never crashes qel.
TEST_F(QelFiles, HostileFilesAreRefusedWithOneLine) {
    // Each format and the reason a file of it cut short is refused for.
    const std::string formats[][2] = {{"png", "corrupt or truncated PNG"},
                                      {"jpg", "corrupt or truncated JPEG"},
                                      {"ppm", "truncated file"},
                                      {"pam", "truncated file"},
                                      {"tif", "corrupt or truncated TIFF"},
                                      {"webp", "corrupt or truncated WebP"},
                                      {"gif", "corrupt or truncated GIF"},
                                      {"bmp", "truncated BMP"}};
    for (const auto& [format, cutShort] : formats) {
        SCOPED_TRACE(format);
        Ok("qel sample resample 37x23 good." + format);
        const std::string good = ReadFile(Path("good." + format));
        std::string damaged = good;
        std::mt19937 random(7);
        for (int flips = 0; flips < 4; ++flips) damaged[random() % damaged.size()] = char(random());
        // Cut within the header (but for PPM) and half-way; a start like the format's, then nonsense.
        const std::string files[][3] = {{"cut.", good.substr(0, 20), cutShort},
                                        {"half.", good.substr(0, good.size() / 2), cutShort},
                                        {"bad.", good.substr(0, 4) + std::string(200, '\xA5'), ""},
                                        {"damaged.", damaged, ""}};
        for (const auto& [name, bytes, reason] : files) {
            WriteFile(Path(name + format), bytes);
            if (name != "damaged." || Run(name + format + " blur out.png").status != 0)
                ExpectFailure(name + format + " blur out.png", 1, "qel: " + name + format + ": " + reason);
        }
    }
    std::string bmp = ReadFile(Path("good.bmp")), png = ReadFile(Path("good.png"));
    png[png.size() / 2] ^= 0x5A;
    bmp.replace(18, 8, Little32(1u << 30) + Little32(1u << 20));
    // Start of frame with 65535 x 65535, then nothing.
    const std::string jpeg(
        "\xFF\xD8\xFF\xC0\x00\x11\x08\xFF\xFF\xFF\xFF\x03\x01\x22\x00\x02\x11\x01\x03\x11\x01\xFF\xD9", 23);
    // Each file's name, bytes, and the reason it is refused for.
    const std::string headers[][3] = {
        {"huge.png", Png(0x7FFFFFFF, 0x7FFFFFFF, 8, 2, ""), "corrupt or truncated PNG"},
        {"wide.png", Png(0x7FFFFFFF, 1, 8, 2, ""), "corrupt or truncated PNG"},
        {"zero.png", Png(0, 0, 8, 2, ""), "corrupt or truncated PNG"},
        {"corrupt.png", png, "corrupt or truncated PNG"},
        {"empty.png", "", "empty file\n"},
        {"picture.psd", "8BPS\x00\x01", "unsupported file format"},
        {"huge.ppm", "P6\n2147483647 2147483647\n255\n", "corrupt netpbm file: "},
        {"wrap.ppm", "P6\n4294967297 1\n255\nabc", "corrupt netpbm file: "},
        {"negative.pgm", "P5\n-3 2\n255\nabcdef", "corrupt netpbm file: "},
        {"zero.pgm", "P5\n0 0\n255\n", "corrupt netpbm file: "},
        {"maxval.pgm", "P5\n2 2\n0\nabcd", "corrupt netpbm file: "},
        {"overmax.pgm", "P2\n2 1\n100\n50 200\n", "corrupt netpbm file: "},
        {"short.pgm", "P5\n3 3\n255\nab", "truncated file"},
        {"text.pgm", "P2\n2 2\n255\n1 2 x 4\n", "corrupt netpbm file: "},
        {"huge.pam", "P7\nWIDTH 99999999\nHEIGHT 99999999\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n",
         "corrupt netpbm file: "},
        {"deep.pam", "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 4000000000\nMAXVAL 255\nENDHDR\nx",
         "unsupported netpbm dimensions, depth or maximum value"},
        {"huge.jpg", jpeg, "corrupt or truncated JPEG"},
        {"huge.tif", GreyTiffPages(1, 4000000u, 4000000u, false), "image 4000000x4000000 is above"},
        {"huge.gif", "GIF89a" + Little16(65535) + Little16(65535) + std::string("\0\0\0;", 4),
         "image 65535x65535 is above"},
        {"huge.bmp", bmp, "image 1073741824x1048576 is above the pixel limit 268435456 (--max-pixels)\n"},
        {"rle.bmp", Bmp(2, 2, 8, 1, "", std::string(64, '\0'), std::string(8, '\0')),
         "compressed BMP (RLE, JPEG or PNG inside) is not supported"},
        // A palette cut short.
        {"short.bmp", Bmp(3, 2, 4, 0, "", std::string(64, '\0'), "").substr(0, 60), "truncated BMP"}};
    for (const auto& [name, bytes, reason] : headers) {
        WriteFile(Path(name), bytes);
        ExpectFailure(name + " out.png", 1, "qel: " + name + ": " + reason);
    }
}

}  // namespace
