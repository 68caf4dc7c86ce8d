// A small host of the imaging module: reads a binary PPM (P6, maxval 255),
// blurs it with the 3x3 Blur of "QELFilterTransform" and writes a PPM.
//
//   qel-blur-ppm in.ppm out.ppm
//
// It finds the installed module through qel::FindModuleFolder(), from any
// working directory.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "qel/host.h"

namespace {

struct Rgb {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> bytes;  // rows top-down, R G B per pixel
};

// Skips whitespace and '#' comments, then reads one decimal number.
bool ReadNumber(const std::string& data, size_t* at, int* value) {
    while (*at < data.size()) {
        if (data[*at] == '#') {
            while (*at < data.size() && data[*at] != '\n') ++*at;
        } else if (std::strchr(" \t\r\n", data[*at]) != nullptr) {
            ++*at;
        } else {
            break;
        }
    }
    long number = 0;
    const size_t start = *at;
    while (*at < data.size() && data[*at] >= '0' && data[*at] <= '9' && number < 1000000)
        number = number * 10 + (data[(*at)++] - '0');
    *value = static_cast<int>(number);
    return *at > start && number < 1000000;
}

bool ReadPpm(const char* path, Rgb* image, std::string* error) {
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open()) return *error = "cannot open the file", false;
    const std::string data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    size_t at = 2;
    int maxValue = 0;
    if (data.compare(0, 2, "P6") != 0 || !ReadNumber(data, &at, &image->width) ||
        !ReadNumber(data, &at, &image->height) || !ReadNumber(data, &at, &maxValue) ||
        image->width <= 0 || image->height <= 0 || maxValue != 255)
        return *error = "not a binary PPM with 8 bits per sample", false;
    const size_t size = static_cast<size_t>(image->width) * image->height * 3;
    if (data.size() < at + 1 + size) return *error = "the pixel data is cut short", false;
    image->bytes.assign(data.begin() + at + 1, data.begin() + at + 1 + size);  // one whitespace ends the header
    return true;
}

bool WritePpm(const char* path, const qel::Pixels& pixels) {
    FILE* file = std::fopen(path, "wb");
    if (file == nullptr) return false;
    std::fprintf(file, "P6\n%d %d\n255\n", pixels.width, pixels.height);
    std::vector<unsigned char> row(static_cast<size_t>(pixels.width) * 3);
    for (int y = 0; y < pixels.height; ++y) {
        const unsigned char* bgr = pixels.Row(y);
        for (int x = 0; x < pixels.width; ++x) {
            row[3 * x] = bgr[3 * x + 2];
            row[3 * x + 1] = bgr[3 * x + 1];
            row[3 * x + 2] = bgr[3 * x];
        }
        std::fwrite(row.data(), 1, row.size(), file);
    }
    return std::fclose(file) == 0;
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "qel-blur-ppm: %s\n", message.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return Fail("usage: qel-blur-ppm in.ppm out.ppm");
    Rgb input;
    std::string error;
    if (!ReadPpm(argv[1], &input, &error)) return Fail(std::string(argv[1]) + ": " + error);

    qel::Host host;
    const std::string folder = qel::FindModuleFolder();
    if (!host.Load(folder, &error)) return Fail("cannot load the imaging module from " + folder + ": " + error);
    SmartPtr<IQELFilterTransform> filters =
        host.Create<IQELFilterTransform>(L"QELFilterTransform", qel::iid::IQELFilterTransform);
    SmartPtr<IQELImageDIB> image = host.NewImage(input.width, input.height, 24, QEL_MODEL_BGR);
    if (!filters || !image) return Fail("the module made no filter component or image");

    // The runtime image holds B G R, rows top-down and padded.
    const qel::Pixels pixels = qel::PixelsOf(image.Get());
    for (int y = 0; y < input.height; ++y) {
        const unsigned char* rgb = &input.bytes[static_cast<size_t>(y) * input.width * 3];
        unsigned char* bgr = pixels.Row(y);
        for (int x = 0; x < input.width; ++x) {
            bgr[3 * x] = rgb[3 * x + 2];
            bgr[3 * x + 1] = rgb[3 * x + 1];
            bgr[3 * x + 2] = rgb[3 * x];
        }
    }

    SmartPtr<IQEL> blurred;
    const QResult result = filters->Blur(image.Get(), blurred.Out());
    if (result != QEL_OK || !blurred) {
        char code[16];
        std::snprintf(code, sizeof(code), "0x%08X", static_cast<unsigned>(result));
        return Fail(std::string("Blur failed with ") + code);
    }
    if (!WritePpm(argv[2], qel::PixelsOf(blurred.Get()))) return Fail(std::string(argv[2]) + ": cannot write");
    return 0;
}
