// File helpers for the tests that run the qel tool: whole-file reads and
// writes, and the pieces of a PNG file built by hand (so that test inputs do
// not depend on the codec under test).
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace qeltest {

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

inline bool Exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

inline uint32_t Crc32(const std::string& bytes) {
    uint32_t crc = 0xFFFFFFFFu;
    for (const unsigned char byte : bytes) {
        crc ^= byte;
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

inline std::string BigEndian(uint32_t value) {
    return std::string{static_cast<char>(value >> 24), static_cast<char>(value >> 16),
                       static_cast<char>(value >> 8), static_cast<char>(value)};
}

// One PNG chunk: length, type, data and the CRC over type and data.
inline std::string PngChunk(const std::string& type, const std::string& data) {
    return BigEndian(static_cast<uint32_t>(data.size())) + type + data + BigEndian(Crc32(type + data));
}

// A test with a fresh scratch folder of its own, removed afterwards.
class ScratchFolderTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/qel-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }
    std::string Path(const std::string& name) const { return dir_ + "/" + name; }

    std::string dir_;
};

}  // namespace qeltest
