// Hostile input for the qel tool: truncated and corrupt image files, headers
// whose byte counts overflow, empty images and absurd arguments must end in a
// clear error (exit status 1 or 2 and a "qel:" message), never in a crash, and
// must leave no output file behind.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
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
    bool exited = false;  // false: killed by a signal
    int status = -1;
    std::string out;
    std::string err;
};

// A PNG signature and a well-formed IHDR chunk (correct CRC) for any size,
// followed by an empty image data chunk and the end chunk.
std::string PngWithSize(uint32_t width, uint32_t height) {
    const auto chunk = qeltest::PngChunk;
    const std::string header = BigEndian(width) + BigEndian(height) + std::string("\x08\x02\x00\x00\x00", 5);
    return std::string("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", header) + chunk("IDAT", "") +
           chunk("IEND", "");
}

class QelHostile : public qeltest::ScratchFolderTest {
protected:
    Outcome Qel(const std::vector<std::string>& words) {
        std::string command = "./qel";
        for (const std::string& word : words) command += " '" + word + "'";
        command += " 2>'" + Path("stderr.txt") + "' >'" + Path("stdout.txt") + "'";
        Outcome outcome;
        const int raw = std::system(command.c_str());
        outcome.exited = WIFEXITED(raw);
        outcome.status = outcome.exited ? WEXITSTATUS(raw) : -1;
        outcome.out = ReadFile(Path("stdout.txt"));
        outcome.err = ReadFile(Path("stderr.txt"));
        return outcome;
    }
    // A run that must fail with status 1 and exactly this message, writing nothing.
    void ExpectFailure(const std::vector<std::string>& words, const std::string& message) {
        const Outcome outcome = Qel(words);
        EXPECT_TRUE(outcome.exited) << message;
        EXPECT_EQ(outcome.status, 1) << message;
        EXPECT_EQ(outcome.err, message + "\n");
        EXPECT_FALSE(Exists(Path("out.png"))) << message;
    }
    // A run that must succeed and print the result's format.
    void ExpectResult(const std::vector<std::string>& words, const std::string& format) {
        const Outcome outcome = Qel(words);
        EXPECT_EQ(outcome.status, 0) << format << ": " << outcome.err;
        EXPECT_EQ(outcome.out, format + "\n");
    }
    // A file that qel must refuse with status 1 and a message naming it.
    void ExpectRefused(const std::string& name, const std::string& bytes) {
        WriteFile(Path(name), bytes);
        const Outcome outcome = Qel({Path(name), "negative", Path("out.png")});
        EXPECT_TRUE(outcome.exited) << name << " killed qel";
        EXPECT_EQ(outcome.status, 1) << name << ": " << outcome.err;
        EXPECT_EQ(outcome.err.rfind("qel: ", 0), 0u) << name << ": " << outcome.err;
        EXPECT_NE(outcome.err.find(name), std::string::npos) << outcome.err;
        EXPECT_FALSE(Exists(Path("out.png"))) << name;
    }
    // A damaged copy may still decode; it must never crash qel.
    void ExpectNoCrash(const std::string& name, const std::string& bytes) {
        WriteFile(Path(name), bytes);
        const Outcome outcome = Qel({Path(name), "blur", Path("out.ppm")});
        EXPECT_TRUE(outcome.exited && (outcome.status == 0 || outcome.status == 1))
            << name << " status " << outcome.status << ": " << outcome.err;
        std::remove(Path("out.ppm").c_str());
    }
};

TEST_F(QelHostile, TruncatedAndCorruptFilesOfEveryFormatEndInAnError) {
    for (const std::string extension : {"png", "jpg", "ppm", "pam"}) {
        const std::string good = Path("good." + extension);
        ASSERT_EQ(Qel({"sample", "resample", "37x23", good}).status, 0);
        const std::string bytes = ReadFile(good);
        ASSERT_GT(bytes.size(), 64u);
        // Cut inside the header and at every few bytes of the data.
        for (size_t length = 1; length < bytes.size(); length += (length < 64 ? 3 : bytes.size() / 23)) {
            const std::string name = "cut" + std::to_string(length) + "." + extension;
            if (extension == "png" || length < 40)
                ExpectRefused(name, bytes.substr(0, length));
            else
                ExpectNoCrash(name, bytes.substr(0, length));
        }
        std::mt19937 random(7);
        for (int trial = 0; trial < 24; ++trial) {
            std::string damaged = bytes;
            for (int flips = 0; flips < 1 + trial % 4; ++flips)
                damaged[random() % damaged.size()] = static_cast<char>(random());
            ExpectNoCrash("damaged" + std::to_string(trial) + "." + extension, damaged);
        }
    }
}

TEST_F(QelHostile, HeadersWhoseByteCountOverflowsAreRefusedBeforeAllocating) {
    ExpectRefused("huge.png", PngWithSize(0x7FFFFFFF, 0x7FFFFFFF));
    ExpectRefused("wide.png", PngWithSize(0x7FFFFFFF, 1));
    ExpectRefused("zero.png", PngWithSize(0, 0));
    ExpectRefused("huge.ppm", "P6\n2147483647 2147483647\n255\n");
    ExpectRefused("wrap.ppm", "P6\n4294967297 1\n255\nabc");
    ExpectRefused("negative.pgm", "P5\n-3 2\n255\nabcdef");
    ExpectRefused("zero.pgm", "P5\n0 0\n255\n");
    ExpectRefused("maxval.pgm", "P5\n2 2\n0\nabcd");
    ExpectRefused("short.pgm", "P5\n3 3\n255\nab");
    ExpectRefused("text.pgm", "P2\n2 2\n255\n1 2 x 4\n");
    ExpectRefused("huge.pam",
                  "P7\nWIDTH 99999999\nHEIGHT 99999999\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n");
    ExpectRefused("deep.pam", "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 4000000000\nMAXVAL 255\nENDHDR\nx");
    // Start of frame with 65535 x 65535, then nothing.
    ExpectRefused(
        "huge.jpg",
        std::string("\xFF\xD8\xFF\xC0\x00\x11\x08\xFF\xFF\xFF\xFF\x03\x01\x22\x00\x02\x11\x01\x03\x11\x01"
                    "\xFF\xD9",
                    23));
    ExpectRefused("empty.png", "");
}

TEST_F(QelHostile, AbsurdArgumentsAreUsageErrors) {
    const std::vector<std::vector<std::string>> chains = {
        {"resample", "2147483648x2"},
        {"resample", "65536x65536"},
        {"resample", "0x5"},
        {"resample", "nan%"},
        {"gamma", "nan"},
        {"gamma", "inf"},
        {"median", "1000000"},
        {"rotate", "2147483648"},
        {"light", "1e999", "0"},
        {"resample", "-5x-5"},
        {"noise", "99999999999999999999"},
    };
    for (const std::vector<std::string>& chain : chains) {
        std::vector<std::string> words = {"sample"};
        words.insert(words.end(), chain.begin(), chain.end());
        words.push_back(Path("out.png"));
        const Outcome outcome = Qel(words);
        EXPECT_TRUE(outcome.exited) << chain[0] << " " << chain[1] << " killed qel";
        EXPECT_EQ(outcome.status, 2) << chain[0] << " " << chain[1] << ": " << outcome.err;
        EXPECT_EQ(outcome.err.rfind("qel: ", 0), 0u) << outcome.err;
        EXPECT_FALSE(Exists(Path("out.png"))) << chain[0] << " " << chain[1];
    }
}

// Each result is refused one pixel above the limit and made at the limit, so
// the size qel works out must be the size the module would make.
TEST_F(QelHostile, ResultsAboveThePixelLimitAreRefusedBeforeTheModuleMakesThem) {
    const std::string out = Path("out.png");
    const std::string limit = "(--max-pixels)";
    // Two 1000% steps from the 320x240 chart: 768 million pixels, above the default.
    ExpectFailure({"sample", "resample", "1000%", "resample", "1000%", out},
                  "qel: resample: result 32000x24000 is above the pixel limit 268435456 " + limit);
    ExpectFailure({"--max-pixels", "7679999", "sample", "resample", "1000%", out},
                  "qel: resample: result 3200x2400 is above the pixel limit 7679999 " + limit);
    ExpectResult({"--max-pixels", "7680000", "sample", "resample", "1000%"}, "3200x2400, 32-bit ARGB");
    ExpectFailure({"sample", "resample", "32768x32768", out},
                  "qel: resample: result 32768x32768 is above the pixel limit 268435456 " + limit);

    // A raised limit lets a small image grow past the default's share of it.
    WriteFile(Path("tiny.pgm"), "P5\n20 10\n255\n" + std::string(200, '\x40'));
    ExpectFailure(
        {Path("tiny.pgm"), "resample", "1000%", "resample", "1000%", "--max-pixels", "1999999", out},
        "qel: resample: result 2000x1000 is above the pixel limit 1999999 " + limit);
    ExpectResult({Path("tiny.pgm"), "resample", "1000%", "resample", "1000%", "--max-pixels", "2000000"},
                 "2000x1000, 8-bit MONO");

    // Rotate by 45 degrees: the 320x240 chart's bounding box is 396x396.
    ExpectFailure({"--max-pixels", "156815", "sample", "rotate", "45", out},
                  "qel: rotate: result 396x396 is above the pixel limit 156815 " + limit);
    ExpectResult({"--max-pixels", "156816", "sample", "rotate", "45"}, "396x396, 32-bit ARGB");
    ExpectResult({"--max-pixels", "76800", "sample", "rotate", "45", "--keep-size"}, "320x240, 32-bit ARGB");

    // Quad without a size takes the shorter opposite edges of its corners.
    ExpectFailure({"sample", "quad", "0,0", "1000000,0", "0,1000000", "1000000,1000000", out},
                  "qel: quad: result 1000000x1000000 is above the pixel limit 268435456 " + limit);
    // Top 150 and bottom 201 wide, left 100 and right 130 high: 150x100.
    const std::string tiny = Path("tiny.pgm");
    ExpectFailure({"--max-pixels", "14999", tiny, "quad", "0,0", "150,0", "0,100", "200,120", out},
                  "qel: quad: result 150x100 is above the pixel limit 14999 " + limit);
    ExpectResult({"--max-pixels", "15000", tiny, "quad", "0,0", "150,0", "0,100", "200,120"},
                 "150x100, 8-bit MONO");
    ExpectFailure(
        {"--max-pixels", "9999", tiny, "quad", "0,0", "5,0", "0,5", "5,5", "--size", "100x100", out},
        "qel: quad: result 100x100 is above the pixel limit 9999 " + limit);

    // Transform makes its --size.
    ExpectFailure({"sample", "transform", "1,0,0,0,1,0", "--size", "30000x30000", out},
                  "qel: transform: result 30000x30000 is above the pixel limit 268435456 " + limit);
    ExpectResult({"--max-pixels", "76800", "sample", "transform", "1,0,0,0,1,0"}, "320x240, 32-bit ARGB");
}

TEST_F(QelHostile, FilesAboveThePixelLimitAreRefusedInEveryFormat) {
    const std::string out = Path("out.png");
    const std::string limit = "(--max-pixels)";
    for (const std::string extension : {"png", "jpg", "ppm", "pam"}) {
        const std::string file = Path("37x23." + extension);  // 851 pixels
        ASSERT_EQ(Qel({"sample", "resample", "37x23", file}).status, 0);
        ExpectFailure({"--max-pixels", "850", file, "negative", out},
                      "qel: " + file + ": image 37x23 is above the pixel limit 850 " + limit);
        const bool alpha = extension == "png" || extension == "pam";
        ExpectResult({"--max-pixels", "851", file, "negative"},
                     alpha ? "37x23, 32-bit ARGB" : "37x23, 24-bit BGR");
    }
    // Second images are held to it too, and so is the built-in chart.
    WriteFile(Path("small.ppm"), "P6\n2 2\n255\n" + std::string(12, '\x10'));
    ExpectFailure({"--max-pixels", "850", Path("small.ppm"), "subtract", Path("37x23.png"), out},
                  "qel: subtract: failed with 0x80004005 (the operation failed; the image's format may not "
                  "be supported): " +
                      Path("37x23.png") + ": image 37x23 is above the pixel limit 850 " + limit);
    ExpectFailure({"--max-pixels", "76799", "sample", "blur", out},
                  "qel: sample: image 320x240 is above the pixel limit 76799 " + limit);
}

TEST_F(QelHostile, PixelLimitsThatAreNotPositiveWholeNumbersAreUsageErrors) {
    for (const std::string value :
         {"0", "-5", "abc", "", "1e9", "12x", "+7", " 7", "0x100", "99999999999999999999"}) {
        const Outcome outcome = Qel({"--max-pixels", value, "sample", "blur", Path("out.png")});
        EXPECT_EQ(outcome.status, 2) << "'" << value << "'";
        EXPECT_EQ(outcome.err,
                  "qel: bad --max-pixels '" + value + "': expected a whole number of pixels from 1 up\n");
        EXPECT_FALSE(Exists(Path("out.png"))) << "'" << value << "'";
    }
    const Outcome missing = Qel({"sample", "blur", "--max-pixels"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err, "qel: --max-pixels needs a value\n");
}

}  // namespace
