// Running the built qel as a user runs it, in a folder of its own, on small
// files a test writes itself: PNGs written byte by byte (so that inputs do not
// depend on the codecs under test), PAMs, and the samples of a PAM qel wrote.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace qeltest {

using Samples = std::vector<uint8_t>;

inline std::string ReadFile(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}
inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}
inline std::string Big16(unsigned v) { return std::string{char(v >> 8), char(v)}; }
inline std::string Big32(uint32_t v) { return Big16(v >> 16) + Big16(v & 0xFFFF); }
// One PNG chunk: length, type, data and the CRC over type and data.
inline std::string PngChunk(const std::string& type, const std::string& data) {
    uint32_t crc = 0xFFFFFFFFu;
    for (const unsigned char byte : type + data) {
        crc ^= byte;
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return Big32(static_cast<uint32_t>(data.size())) + type + data + Big32(~crc);
}
// A PNG of packed samples whose image data is one stored deflate block with
// filter byte 0 on every row, so that inputs do not depend on the codec under
// test; `chunks` (a palette, EXIF, ...) go before the image data.
inline std::string Png(uint32_t width, uint32_t height, int depth, int colourType, const std::string& samples,
                       const std::string& chunks = "") {
    const std::string header =
        Big32(width) + Big32(height) + char(depth) + char(colourType) + std::string(3, '\0');
    const uint64_t channels[] = {1, 0, 3, 1, 2, 0, 4},
                   rowBytes = (width * channels[colourType] * depth + 7) / 8;
    std::string rows;
    for (size_t at = 0; at < samples.size(); at += rowBytes) rows += '\0' + samples.substr(at, rowBytes);
    uint32_t a = 1, b = 0;
    for (unsigned char byte : rows) a = (a + byte) % 65521, b = (b + a) % 65521;
    const uint16_t n = static_cast<uint16_t>(rows.size());
    const std::string zlib = std::string("\x78\x01\x01", 3) + char(n & 0xFF) + char(n >> 8) +
                             char(~n & 0xFF) + char((~n >> 8) & 0xFF) + rows + Big32(b << 16 | a);
    return "\x89PNG\r\n\x1a\n" + PngChunk("IHDR", header) + chunks +
           PngChunk("IDAT", rows.empty() ? "" : zlib) + PngChunk("IEND", "");
}
inline std::string Pam(int width, int height, int depth, const char* tuple, const Samples& samples,
                       int maxval = 255) {
    return "P7\nWIDTH " + std::to_string(width) + "\nHEIGHT " + std::to_string(height) + "\nDEPTH " +
           std::to_string(depth) + "\nMAXVAL " + std::to_string(maxval) + "\nTUPLTYPE " + tuple +
           "\nENDHDR\n" + std::string(samples.begin(), samples.end());
}
inline Samples Gradient(int width, int height, int depth) {
    Samples samples;
    for (int n = 0; n < width * height * depth; ++n)
        samples.push_back(
            static_cast<uint8_t>(n / depth % width * 37 + n / depth / width * 91 + n % depth * 53));
    return samples;
}

struct Outcome {
    int status = -1;  // 128 + signal when killed
    std::string out, err;
};

class QelRun : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/qel-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }
    std::string Path(const std::string& name) const { return dir_ + "/" + name; }

    // A shell command line run in the test folder, where "qel" is the built
    // qel of the build folder the test runs in.
    Outcome Shell(const std::string& line) {
        WriteFile(Path(".run"),
                  "qel() { \"$Q\" \"$@\"; }\ncd '" + dir_ + "' && { " + line + "\n} >.out 2>.err\n");
        const int raw = std::system(("Q=\"$PWD/qel\" bash '" + Path(".run") + "'").c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw), ReadFile(Path(".out")),
                ReadFile(Path(".err"))};
    }
    Outcome Run(const std::string& arguments) { return Shell("qel " + arguments); }
    void Ok(const std::string& line) {
        const Outcome outcome = Shell(line);
        ASSERT_EQ(outcome.status, 0) << line << "\n" << outcome.err;
    }
    // Two command lines that must write the same bytes, each to the file it
    // names last; the second may be just the name of a file there is.
    void ExpectSameFile(const std::string& one, const std::string& other) {
        Ok(other.find(' ') == std::string::npos ? one : one + " && " + other);
        const std::string first = ReadFile(Path(one.substr(one.rfind(' ') + 1)));
        EXPECT_NE(first, "") << one;
        EXPECT_EQ(first, ReadFile(Path(other.substr(other.rfind(' ') + 1)))) << one << "\n" << other;
    }
    // The samples of a PAM written by qel, and its size when asked for.
    Samples PamSamples(const std::string& name, int* width = nullptr, int* height = nullptr) {
        const std::string bytes = ReadFile(Path(name));
        if (width != nullptr) std::sscanf(bytes.c_str(), "P7 WIDTH %d HEIGHT %d", width, height);
        const size_t end = bytes.find("ENDHDR\n");
        if (end == std::string::npos) return {};
        return Samples(bytes.begin() + static_cast<long>(end + 7), bytes.end());
    }
    // The files of the test folder (or of a folder in it) with their bytes,
    // besides the captured output; qel's own temporary files (".qel-") too.
    std::map<std::string, std::string> Contents(const std::string& folder = "") {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(Path(folder))) {
            const std::string name = entry.path().filename();
            if (name[0] != '.' || name.find(".qel-") != std::string::npos)
                files[name] = ReadFile(entry.path());
        }
        return files;
    }
    // A failure with this status and one "qel: " line starting with `message`
    // that writes, changes and leaves behind no file.
    Outcome ExpectFailure(const std::string& arguments, int status, const std::string& message) {
        const auto before = Contents();
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.status, status) << arguments << ": " << outcome.err;
        // A message that ends its line is the whole of standard error.
        EXPECT_EQ(message.back() == '\n' ? outcome.err : outcome.err.substr(0, message.size()), message)
            << arguments;
        if (status == 1) {
            EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        }
        EXPECT_TRUE(Contents() == before) << arguments;
        return outcome;
    }
    // A run that succeeds without a note and describes its result as `format`.
    void ExpectResult(const std::string& arguments, const std::string& format) {
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.status, 0) << arguments << ": " << outcome.err;
        EXPECT_EQ(outcome.err, "") << arguments;
        EXPECT_EQ(outcome.out, format + "\n") << arguments;
    }

    std::string dir_;
};

}  // namespace qeltest
