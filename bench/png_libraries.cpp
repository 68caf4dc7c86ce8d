// PNG reading and writing through libpng (as qel does) and through libspng,
// on the same pixels with each library's default compression, best of N runs.
// Built and run by bench/png_libraries.
#include <png.h>
#include <spng.h>

#include <ctime>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// Processor time of this process: the machine may be shared.
double Now() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Smooth gradients with a little noise, like a photograph.
std::vector<unsigned char> Photo(int width, int height) {
    std::vector<unsigned char> rgba(static_cast<size_t>(width) * height * 4);
    unsigned seed = 1;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            unsigned char* p = &rgba[(static_cast<size_t>(y) * width + x) * 4];
            seed = seed * 1103515245u + 12345u;
            const int noise = static_cast<int>(seed >> 28) - 8;
            p[0] = static_cast<unsigned char>(std::min(255, std::max(0, x * 255 / width + noise)));
            p[1] = static_cast<unsigned char>(std::min(255, std::max(0, y * 255 / height + noise)));
            p[2] = static_cast<unsigned char>(std::min(255, std::max(0, (x + y) * 127 / (width + height) + 64 + noise)));
            p[3] = 255;
        }
    return rgba;
}

std::string EncodeLibpng(const std::vector<unsigned char>& rgba, int width, int height) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = width, image.height = height, image.format = PNG_FORMAT_RGBA;
    png_alloc_size_t size = 0;
    png_image_write_get_memory_size(image, size, 0, rgba.data(), 0, nullptr);
    std::string out(size, '\0');
    png_image_write_to_memory(&image, &out[0], &size, 0, rgba.data(), 0, nullptr);
    out.resize(size);
    return out;
}

void DecodeLibpng(const std::string& file, std::vector<unsigned char>* rgba) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    png_image_begin_read_from_memory(&image, file.data(), file.size());
    image.format = PNG_FORMAT_RGBA;
    rgba->resize(PNG_IMAGE_SIZE(image));
    png_image_finish_read(&image, nullptr, rgba->data(), 0, nullptr);
}

std::string EncodeSpng(const std::vector<unsigned char>& rgba, int width, int height) {
    spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
    spng_set_option(ctx, SPNG_ENCODE_TO_BUFFER, 1);
    spng_ihdr ihdr{};
    ihdr.width = width, ihdr.height = height, ihdr.bit_depth = 8, ihdr.color_type = SPNG_COLOR_TYPE_TRUECOLOR_ALPHA;
    spng_set_ihdr(ctx, &ihdr);
    spng_encode_image(ctx, rgba.data(), rgba.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
    size_t size = 0;
    int error = 0;
    void* buffer = spng_get_png_buffer(ctx, &size, &error);
    std::string out(static_cast<const char*>(buffer), size);
    std::free(buffer);
    spng_ctx_free(ctx);
    return out;
}

void DecodeSpng(const std::string& file, std::vector<unsigned char>* rgba) {
    spng_ctx* ctx = spng_ctx_new(0);
    spng_set_png_buffer(ctx, file.data(), file.size());
    size_t size = 0;
    spng_decoded_image_size(ctx, SPNG_FMT_RGBA8, &size);
    rgba->resize(size);
    spng_decode_image(ctx, rgba->data(), size, SPNG_FMT_RGBA8, 0);
    spng_ctx_free(ctx);
}

template <class Call>
double Best(int runs, Call call) {
    double best = 1e9;
    for (int i = 0; i < runs; ++i) {
        const double start = Now();
        call();
        best = std::min(best, Now() - start);
    }
    return best;
}

}  // namespace

int main(int argc, char** argv) {
    const int width = argc > 1 ? std::atoi(argv[1]) : 4000, height = argc > 2 ? std::atoi(argv[2]) : 3000;
    const int runs = argc > 3 ? std::atoi(argv[3]) : 3;
    const std::vector<unsigned char> photo = Photo(width, height);
    std::string byLibpng, bySpng;
    std::vector<unsigned char> back;
    const double writeLibpng = Best(runs, [&] { byLibpng = EncodeLibpng(photo, width, height); });
    const double writeSpng = Best(runs, [&] { bySpng = EncodeSpng(photo, width, height); });
    // Both read the same file (libpng's), and each other's output must decode to the same pixels.
    const double readLibpng = Best(runs, [&] { DecodeLibpng(byLibpng, &back); });
    const bool libpngExact = back == photo;
    const double readSpng = Best(runs, [&] { DecodeSpng(byLibpng, &back); });
    const bool spngExact = back == photo;
    std::printf("%dx%d RGBA, best of %d, processor time\n", width, height, runs);
    std::printf("write  libpng %.3f s (%zu bytes)   libspng %.3f s (%zu bytes)\n", writeLibpng, byLibpng.size(),
                writeSpng, bySpng.size());
    std::printf("read   libpng %.3f s%s   libspng %.3f s%s\n", readLibpng, libpngExact ? "" : " (WRONG PIXELS)",
                readSpng, spngExact ? "" : " (WRONG PIXELS)");
    return libpngExact && spngExact ? 0 : 1;
}
