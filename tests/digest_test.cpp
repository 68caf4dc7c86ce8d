// Recorded output digests of every operation: every depth, odd sizes from 1
// to 40, padded and bottom-up strides. Any change in any output byte, on any
// path and under any vector tier, changes a digest. Run with
// QEL_DIGEST_RECORD=1 to print the tables for the current code.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/component_test.h"

namespace {

using namespace qeltest;
using Owned = SmartPtr<BufferImage>;

// ---- the harness: each operation over a fixed set of random images ----

struct Shape {
    int width, height, padding;
    bool bottomUp;
};
// Tiny, odd, one-row and one-column shapes, shapes smaller than the largest
// windows, and 40-pixel sides; padded and bottom-up rows among them.
const Shape kShapes[] = {{1, 1, 0, false},   {2, 1, 3, true},    {1, 3, 0, false},   {3, 3, 1, false},
                         {5, 4, 0, true},    {7, 9, 2, false},   {13, 11, 0, false}, {17, 23, 5, true},
                         {40, 37, 0, false}, {31, 40, 3, false}, {40, 1, 0, false},  {1, 40, 2, true}};
// The depths digests are recorded at, in the order of RecordedDigest::digests.
const int kDigestDepths[6] = {1, 4, 8, 16, 24, 32};

using DigestRun = std::function<QResult(IQEL* source, IQEL** result)>;

struct RecordedDigest {
    const char* operation;
    DigestRun run;
    uint64_t digests[6];
};

// ARGB at 32 bits, BGR at 16 and 24, MONO below (the digests depend on it).
unsigned DigestModelFor(int depth) {
    return depth == 32 ? QEL_MODEL_ARGB : depth >= 16 ? QEL_MODEL_BGR : QEL_MODEL_MONO;
}

uint64_t Mix(uint64_t hash, uint64_t value) {
    for (int n = 0; n < 8; ++n) {
        hash ^= (value >> (8 * n)) & 0xFF;
        hash *= 1099511628211ull;
    }
    return hash;
}

// One digest over every shape at one depth: the result code, the result's
// pixel bytes, and the source's (which must not change).
uint64_t DigestOf(const RecordedDigest& entry, int depth) {
    uint64_t hash = 1469598103934665603ull;
    uint32_t seed = static_cast<uint32_t>(depth) * 1000u;
    for (const Shape& shape : kShapes) {
        Owned source(BufferImage::Make(shape.width, shape.height, depth, DigestModelFor(depth), shape.padding,
                                       shape.bottomUp));
        source->FillRandom(++seed);
        SmartPtr<IQEL> result;
        hash = Mix(hash, static_cast<uint32_t>(entry.run(source.Get(), result.Out())));
        hash = Mix(hash, result ? PixelDigest(result.Get()) : 0);
        hash = Mix(hash, PixelDigest(source.Get()));
    }
    return hash;
}

// Expects each operation's digest at every depth to equal the recorded one;
// with QEL_DIGEST_RECORD set in the environment, prints the table instead.
void CheckDigests(const std::vector<RecordedDigest>& table) {
    const bool record = std::getenv("QEL_DIGEST_RECORD") != nullptr;
    for (const RecordedDigest& entry : table) {
        std::string line = std::string("{\"") + entry.operation + "\", ..., {";
        for (size_t d = 0; d < 6; ++d) {
            const uint64_t digest = DigestOf(entry, kDigestDepths[d]);
            char text[32];
            std::snprintf(text, sizeof(text), "0x%016" PRIx64 "ull%s", digest, d < 5 ? ", " : "");
            line += text;
            if (!record) {
                EXPECT_EQ(digest, entry.digests[d])
                    << entry.operation << " at " << kDigestDepths[d] << " bits: got " << text;
            }
        }
        if (record) std::printf("%s}},\n", line.c_str());
    }
}

// ---- images and calls the operations share ----

// A second image of the source's shape and depth, filled from its bytes.
Owned Partner(IQEL* source, bool bottomUp) {
    const qel::Pixels p = qel::PixelsOf(source);
    Owned image(
        BufferImage::Make(p.width, p.height, p.bitCount, DigestModelFor(p.bitCount), p.width % 4, bottomUp));
    image->FillRandom(static_cast<uint32_t>(PixelDigest(source)));
    return image;
}

// An image of the source's size at another depth and colour model, filled from its bytes.
Owned Other(IQEL* source, int bitCount, unsigned model, int widthExtra = 0) {
    const qel::Pixels p = qel::PixelsOf(source);
    Owned image(BufferImage::Make(p.width + widthExtra, p.height, bitCount, model, 1, true));
    image->FillRandom(static_cast<uint32_t>(PixelDigest(source)) + 5);
    return image;
}

// A one-byte mask of the source's size, about half of it selected.
Owned MaskFor(IQEL* source) {
    const qel::Pixels p = qel::PixelsOf(source);
    return Random(p.width, p.height, 8, 7, 2, false, 0x80);
}

// The colour of the source's first pixel (alpha dropped), so a key matches at least once.
unsigned int FirstColour(IQEL* source) { return ColourAt(source, 0, 0) & 0xFFFFFFu; }

// A run whose result is a destination made from the source, which `call` then writes.
DigestRun Into(std::function<Owned(IQEL* source)> make,
               std::function<QResult(IQEL* source, BufferImage* dest)> call) {
    return [=](IQEL* s, IQEL** r) {
        Owned dest = make(s);
        const QResult code = call(s, dest.Get());
        *r = dest.Detach();
        return code;
    };
}
// A 1 x 1 grey destination, for operations that make it over.
Owned Tiny(IQEL*) { return Owned(BufferImage::Make(1, 1, 8, QEL_MODEL_MONO, 3)); }

// A caller's warp: a slight turn and shear with a quadratic bend.
PointMap warp([](double& x, double& y) {
    const double u = x, v = y;
    x = 0.93 * u + 0.21 * v - 1.5 + 0.004 * v * v;
    y = -0.17 * u + 1.08 * v + 0.75 + 0.003 * u * v;
});

TEST(OperationDigests, Colour) {
    IQELColorTransform* c = Colours();
    static unsigned char table[256];
    for (int i = 0; i < 256; ++i) table[i] = static_cast<unsigned char>((i * 7 + 3) ^ 0x5A);
    // clang-format off
    CheckDigests({
        {"Lut", [c](IQEL* s, IQEL**) { return c->Lut(s, table); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x9a635ad9f99f6627ull, 0xe0e6d2c8a7f8a981ull, 0xcb0e2ce4138e306full, 0x97f91d29bcc49606ull}},
        {"GrayScale", [c](IQEL* s, IQEL**) { return c->GrayScale(s); }, {0x1d08cdf7bc8835acull, 0xf8325c3be99eb002ull, 0x0284f3c9f0f8b2ffull, 0x322e6aef799f96faull, 0x5e09e6ea7de5828cull, 0x0937f12f123220b4ull}},
        {"Negative", [c](IQEL* s, IQEL**) { return c->Negative(s); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x6eb13bfcc61a4a85ull, 0xe0e6d2c8a7f8a981ull, 0x1088df9e441cdabbull, 0x6a897f74974c212bull}},
        {"Light", [c](IQEL* s, IQEL**) { return c->Light(s, 17, 35); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x2954f170c854aa81ull, 0xe0e6d2c8a7f8a981ull, 0xd2452e9a470517d6ull, 0x4a86f85f5c117b91ull}},
        {"Gamma", [c](IQEL* s, IQEL**) { return c->Gamma(s, 1.7f); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x5eeac9a0a134995eull, 0xe0e6d2c8a7f8a981ull, 0xb48987c05c905767ull, 0xbcbfc079eef87f22ull}},
        {"ShiftRGB", [c](IQEL* s, IQEL**) { return c->ShiftRGB(s, 40, -30, 90); }, {0x8ca4ee1c3e7f92ceull, 0xf16ac8a02fdd6821ull, 0x478b572ef19747efull, 0xe0e6d2c8a7f8a981ull, 0x77d9a2898decead8ull, 0x49e5f4775e365f3cull}},
        {"Threshold", [c](IQEL* s, IQEL**) { return c->Threshold(s, 100); }, {0x1d08cdf7bc8835acull, 0xf8325c3be99eb002ull, 0x86b690ba932abefbull, 0x322e6aef799f96faull, 0xbd07d8a976b2493bull, 0x35b9dd868045066aull}},
        {"Colorize", [c](IQEL* s, IQEL**) { return c->Colorize(s, 200, 180, 0.6f); }, {0xd0209a061629e35cull, 0x19404a3bdc1ec6adull, 0xc970aa60f5d56f96ull, 0xe0e6d2c8a7f8a981ull, 0x0f4421603b52f9edull, 0x2b53cb11e6decb66ull}},
        {"ColorizeWhole", [c](IQEL* s, IQEL**) { return c->Colorize(s, 13, 255, 1.0f); }, {0xd0209a061629e35cull, 0x79579c026d7e0131ull, 0x97bee90e6aeae318ull, 0xe0e6d2c8a7f8a981ull, 0x6832d5691a1e0fd2ull, 0x1d301235512b29d8ull}},
        {"SetImageAlpha", [c](IQEL* s, IQEL**) { return c->SetImageAlpha(s, 77, 0); }, {0x85ea73b102bfd018ull, 0x0d9280c917456f1cull, 0xe966ca7734d58050ull, 0x3df5295954d6e7e1ull, 0x60005111b1e3649full, 0xde4216520b79535eull}},
        {"SetImageAlphaTransparency", [c](IQEL* s, IQEL**) { return c->SetImageAlphaTransparency(s, 130, FirstColour(s)); }, {0x85ea73b102bfd018ull, 0x0d9280c917456f1cull, 0xe966ca7734d58050ull, 0x3df5295954d6e7e1ull, 0x60005111b1e3649full, 0x329b1a7064fb4b3eull}},
        {"SetImageAlphaKeepOthers", [c](IQEL* s, IQEL**) { return c->SetImageAlphaTransparency(s, -1, FirstColour(s)); }, {0x85ea73b102bfd018ull, 0x0d9280c917456f1cull, 0xe966ca7734d58050ull, 0x3df5295954d6e7e1ull, 0x60005111b1e3649full, 0xeef03a8515bed9a7ull}},
        {"SetImageTransparentPixel", [c](IQEL* s, IQEL**) { return c->SetImageTransparentPixel(s, FirstColour(s)); }, {0x85ea73b102bfd018ull, 0x0d9280c917456f1cull, 0xe966ca7734d58050ull, 0x3df5295954d6e7e1ull, 0x60005111b1e3649full, 0xb50577416efcfb2dull}},
    });
    // clang-format on
}

TEST(OperationDigests, OrientationResampleAndRotate) {
    IQELTransform* t = Transform();
    auto resample = [t](int method, int nearest, int num, int den, int extra) {
        return [=](IQEL* s, IQEL** r) {
            const qel::Pixels p = qel::PixelsOf(s);
            return t->Resample(s, r, p.width * num / den + extra, p.height * num / den + extra, method,
                               nearest);
        };
    };
    // clang-format off
    CheckDigests({
        {"Flip", [t](IQEL* s, IQEL** r) { return t->Flip(s, r); }, {0x72b024789a8d8318ull, 0x66bc03767eecd296ull, 0x226664ae0955597bull, 0x8346a3b5378995d1ull, 0x381ebe94085381b9ull, 0x888b410f4d191ebeull}},
        {"Mirror", [t](IQEL* s, IQEL** r) { return t->Mirror(s, r); }, {0xc2856be9b59e3427ull, 0xb2da50bed0e74031ull, 0xc6dc4043ed2a446full, 0x2f71bdc4e187e718ull, 0x63a2cf16ffa75928ull, 0x42c11bff76ff0772ull}},
        {"FlipBits", [t](IQEL* s, IQEL**) { return t->FlipBits(s); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x48bfa1957e4681e4ull, 0xe0e6d2c8a7f8a981ull, 0x758e5f1feed2257full, 0x6f33e1231896612bull}},
        {"FlipImageAndBits", [t](IQEL* s, IQEL**) { return t->FlipImageAndBits(s); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x48bfa1957e4681e4ull, 0xe0e6d2c8a7f8a981ull, 0x880af429adb27dadull, 0x5260fb8bbe9f37daull}},
        {"Rotate90", [t](IQEL* s, IQEL** r) { return t->Rotate(s, r, 90, 0, 0, 0); }, {0xa24dabaff4750e10ull, 0x0000fafe89e671f6ull, 0xa3643e457ae3861dull, 0x00dc9e94c8195d1cull, 0x41055cd9f53f7482ull, 0x2bfdc7e8727befecull}},
        {"Rotate180", [t](IQEL* s, IQEL** r) { return t->Rotate(s, r, 180, 0, 0, 0); }, {0xc2856be9b59e3427ull, 0xb2da50bed0e74031ull, 0x8ace27e51496ee46ull, 0xb6ae9b0edad9ac56ull, 0xbea8422799dc5b82ull, 0xa918dc22c2db24a0ull}},
        {"Rotate270", [t](IQEL* s, IQEL** r) { return t->Rotate(s, r, -90, 0, 0, 0); }, {0xa24dabaff4750e10ull, 0x0000fafe89e671f6ull, 0x91dac47af3dbbc85ull, 0x49c676120d2cc33dull, 0x439945811c578287ull, 0xa331ec3e31091045ull}},
        {"HalfArea", resample(0, 0, 1, 2, 1), {0x9ccf0f0bf3628a03ull, 0x881ce910ece3a7f3ull, 0x7f1c97579139c55eull, 0x529e31fbfd940fefull, 0xd74db50bd2983684ull, 0xff3ba73bc18ecd18ull}},
        {"ThirdArea", resample(2, 0, 1, 3, 1), {0x6af78c44a9274f01ull, 0x8e1f2c27424921edull, 0x5899befea978e099ull, 0x0611b0c86205646aull, 0x031177e8d184960dull, 0xe97aa110b2cd03f3ull}},
        {"HalfAreaExact", resample(4, 0, 1, 2, 0), {0x1ade56781926bfa7ull, 0xba96e1a6035a3404ull, 0x2f38cca2a2ef6c7dull, 0xd325c56fabaab0c6ull, 0xada1caa520b14d86ull, 0xf1087f062cddddc6ull}},
        {"QuarterArea", resample(0, 0, 1, 4, 0), {0xc09015cd49f42118ull, 0x96eb340cd68a35f6ull, 0x0861479392d946a4ull, 0x42c110f8077eff77ull, 0xe41bdd3f7624152aull, 0xcb39aba2c4ccededull}},
        {"DoubleNearest", resample(0, 0, 2, 1, 1), {0x70b2335a9a12d663ull, 0xffdbd04718d56dccull, 0x17b4060fbb481fe5ull, 0xf84f8cf07b11630eull, 0xa2227ec6f2a54fa3ull, 0x6318babad8441ecdull}},
        {"DoubleLinear", resample(1, 0, 2, 1, -1), {0xe1d34792825ec7feull, 0x8d11db290f0e6e4dull, 0x89d462afd7b4cf18ull, 0x10c325a3fd187a57ull, 0x56f21aacc1d1730full, 0x4537195ca6ed08bcull}},
        {"DoubleCubic", resample(3, 0, 2, 1, 1), {0xa108b5147e125231ull, 0xc37d1ac0650a6e2full, 0xd5d1bc543ec592aaull, 0x3924bb4d8a5cf88eull, 0x0b5ec0f9decb20aeull, 0x2f371b61b7501f66ull}},
        {"DoubleLanczos", resample(5, 0, 2, 1, 0), {0x1fa8051f64f0ebecull, 0x3a864f295534dc99ull, 0x23dfba25e71ce508ull, 0x82866ca5b3f8df29ull, 0x7b7bb522094ef2abull, 0xbb4c9dd21916af23ull}},
        {"NearestOnly", resample(3, 1, 2, 3, 2), {0x115902f76a1899f0ull, 0xccd41f2f18523471ull, 0xeb8ce4cbdeaed78full, 0x7134dd8cdf64fc31ull, 0xf0aae069ea4c9d6cull, 0x6cd3868b3584e873ull}},
        {"Rotate30Cubic", [t](IQEL* s, IQEL** r) { return t->Rotate(s, r, 30, 3, 0, 1); }, {0x37b9ff17375357fcull, 0xfb2b39cb3a7dda21ull, 0xd350effc950819beull, 0x2f71bdc4e187e718ull, 0x6b16eaacd772161aull, 0x772a2b5a471caa01ull}},
        {"Rotate75Linear", [t](IQEL* s, IQEL** r) { return t->Rotate(s, r, -75, 1, 0, 0); }, {0x0e33af9fcda6d33bull, 0x899840d9ef6ab296ull, 0x4c185f4fd26bc060ull, 0xb521e944405f4f9eull, 0x9d7efac7e43f3249ull, 0x42e6ca89ba531f01ull}},
        {"Rotate10Alpha", [t](IQEL* s, IQEL** r) { return t->Rotate(s, r, 10, 0, 1, 0); }, {0x246f0ca60c531ea9ull, 0xe3bc7609f2064b72ull, 0x4c480f5938095d1dull, 0x00ea67627ffb4e57ull, 0xb74399f2eaa61ceaull, 0xd8dd41d93f986cdeull}},
    });
    // clang-format on
}

TEST(OperationDigests, DepthSkewQuadAndWarps) {
    IQELTransform* t = Transform();
    IQELDeform* d = Deform();
    auto quad = [t](short blend, bool sized) {
        return [=](IQEL* s, IQEL** r) {
            const qel::Pixels p = qel::PixelsOf(s);
            const double w = p.width, h = p.height;
            return t->Quad(s, r, 0.6, 1.3, w - 1.2, 0.4, 1.7, h - 0.8, w - 0.3, h - 2.1,
                           sized ? p.width + 3 : 0, sized ? p.height / 2 + 1 : 0, blend);
        };
    };
    auto paste = [t](short fillVoids) {
        return Into([](IQEL* s) { return Partner(s, false); },
                    [=](IQEL* s, BufferImage* target) {
                        return t->TransformPaste(&warp, s, target, 2, -1, fillVoids, 0);
                    });
    };
    auto rotatePaste = [t](double angle, int method, bool keyed) {
        return Into([](IQEL* s) { return Partner(s, true); },
                    [=](IQEL* s, BufferImage* target) {
                        return t->RotatePaste(s, target, angle, method, keyed ? int(FirstColour(s)) : -1);
                    });
    };
    auto circle = [d](int mode, int withAlpha, float factor) {
        return [=](IQEL* s, IQEL**) { return d->CircleTransform(s, mode, withAlpha, factor); };
    };
    // clang-format off
    CheckDigests({
        {"IncreaseBpp24", [t](IQEL* s, IQEL** r) { return t->IncreaseBpp(s, r, 24, QEL_MODEL_BGR); }, {0xffdadf38b399b4c9ull, 0x83d4b3f84b7d42abull, 0x244f377eb7087f49ull, 0x4dd0557f920251b3ull, 0x275ca02954b6c917ull, 0x9c0a6b6d1e65f473ull}},
        {"IncreaseBpp32", [t](IQEL* s, IQEL** r) { return t->IncreaseBpp(s, r, 32, QEL_MODEL_ARGB); }, {0xce74c1798bef6ab5ull, 0xbaa06f5d535f9ab3ull, 0xf9c252d6916e4d8full, 0xb4166b5ece4fc1aaull, 0x778f965f58f13e1bull, 0x9c0a6b6d1e65f473ull}},
        {"Skew", [t](IQEL* s, IQEL** r) { return t->Skew(s, r, 0.37f, -0.21f, 3, 2, 0, 0); }, {0x98ff235c3feed444ull, 0x3d5889bfcd5dee95ull, 0x59ed13b5f6b1427dull, 0x2f71bdc4e187e718ull, 0x71cce1145d375039ull, 0xa61ba401917c8ea4ull}},
        {"SkewAlpha", [t](IQEL* s, IQEL** r) { return t->Skew(s, r, -0.6f, 0.45f, 0, 5, 0, 1); }, {0xe6768bbdb6991859ull, 0xf0c1e404a9935f9eull, 0x90dab203152d782full, 0x3fa04d6853b0d597ull, 0x6eab4d2d2a985290ull, 0xf2b9312e4662cf92ull}},
        {"Quad", quad(0, false), {0xf83c79c751c75601ull, 0x85811c028e4aad5dull, 0x64dd7e259abad6b9ull, 0xf204a932f89cfe5aull, 0xcc0b384e2faf5eaaull, 0xf111ab1032ee83a1ull}},
        {"QuadBlend", quad(1, true), {0x5cb8ef99444b7287ull, 0x7333c5a22b163d3bull, 0x9c89892ec86d4950ull, 0xb8525c0668a3139full, 0x1212a798529e2cd3ull, 0xfd4dd5eb86aae049ull}},
        {"Transform", [t](IQEL* s, IQEL** r) { return t->Transform(&warp, s, r, 1, -2, 0, 0, 0, 0); }, {0xc2856be9b59e3427ull, 0xb2da50bed0e74031ull, 0x02d98f0bfe6decb6ull, 0x2f71bdc4e187e718ull, 0x4273a6fc84cfec97ull, 0x6917fda3aef4a746ull}},
        {"TransformSized", [t](IQEL* s, IQEL** r) { const qel::Pixels p = qel::PixelsOf(s); return t->Transform(&warp, s, r, -3, 1, unsigned(p.width) + 5, unsigned(p.height) / 2 + 1, 0, 0); }, {0xd2aa584c4b30fe10ull, 0x8dc113591be08ad3ull, 0x192d51940c2b9b79ull, 0xb8471c13fbe01793ull, 0xe6b798d83af884d8ull, 0x598de6855dfdeeb4ull}},
        {"TransformPaste", paste(0), {0x7baa028ac781d6eeull, 0xe002832041c685c2ull, 0x9ca2a87c5eb2bf86ull, 0xa31f3841822b35e8ull, 0xcecc278990bf7c81ull, 0xbca4350f30485e19ull}},
        {"TransformPasteFill", paste(1), {0x7baa028ac781d6eeull, 0xe002832041c685c2ull, 0x9ca2a87c5eb2bf86ull, 0xa31f3841822b35e8ull, 0xcb75c867aff50f57ull, 0xa7d6ad4a3f3ce4b9ull}},
        {"RotatePaste33Cubic", rotatePaste(33.5, 3, false), {0x38f34cbe6b677865ull, 0x380b65287686d0a6ull, 0x912013b1c5302d6eull, 0x799e99ad2fafecbbull, 0x8287310a1ae2af5cull, 0x370078eac4862dbaull}},
        {"RotatePaste120Lanczos", rotatePaste(-120.25, 5, true), {0x38f34cbe6b677865ull, 0x380b65287686d0a6ull, 0x912013b1c5302d6eull, 0x799e99ad2fafecbbull, 0xdcc9ff4659e6d5c1ull, 0x414d6bf8a975752aull}},
        {"RotatePaste200Spline", rotatePaste(200.0, 2, false), {0x38f34cbe6b677865ull, 0x380b65287686d0a6ull, 0x912013b1c5302d6eull, 0x799e99ad2fafecbbull, 0xc100dcb79b42df26ull, 0x24cb35fb3665d2f1ull}},
        {"Circle0", circle(0, 0, 0.8f), {0xfd492eff63f74ac5ull, 0x23f59113ab45bcd6ull, 0x064b122e8bf2e858ull, 0x322e6aef799f96faull, 0x9ea6a215ff8dbe58ull, 0xc723cfb8e3d7fea3ull}},
        {"Circle1", circle(1, 1, 0.5f), {0x6e544baada8b9827ull, 0x0ca3fcb6441693acull, 0x295960c02de67bc6ull, 0x00f6c94ba507f4ccull, 0x5c8f76189aea74b8ull, 0x8253deea2d9aa9d5ull}},
        {"Circle2", circle(2, 0, 1.7f), {0xce7e2559277b03a1ull, 0xe228cfd6d2ece4cfull, 0x927b418a765d4e62ull, 0x322e6aef799f96faull, 0xfa149c483633bdd5ull, 0x915766a0efe97860ull}},
        {"Circle3", circle(3, 1, -0.9f), {0x9ad7a6bb84b296d8ull, 0x0c1b94d57ba6ad25ull, 0xbf9c48b6921963e9ull, 0x074de13d1a09968dull, 0xc705af8e86ed6a2cull, 0xdbda6b918460bec2ull}},
        {"Circle4", circle(4, 0, 1.0f), {0xf70a1f2900fb552cull, 0xd22545f7ff0b8cc0ull, 0x924b705ae4e5f686ull, 0x322e6aef799f96faull, 0x4cfe9252e34da8b6ull, 0x965f087930b862dcull}},
    });
    // clang-format on
}

TEST(OperationDigests, Maths) {
    IQELMaths* m = Maths();
    auto add = [m](float divisor) {
        return Into(Tiny, [=](IQEL* s, BufferImage* dest) {
            return m->Add(dest, s, Partner(s, true).Get(), divisor);
        });
    };
    auto addScale = [m](float fa, float fb, float offset, bool masked) {
        return Into([](IQEL* s) { return Partner(Partner(s, false).Get(), true); },
                    [=](IQEL* s, BufferImage* dest) {
                        const qel::Pixels p = qel::PixelsOf(s);
                        Owned mask = Random(p.width, p.height, 8, 7);
                        return m->AddScale(dest, s, Partner(s, false).Get(), masked ? mask.Get() : nullptr,
                                           fa, fb, offset);
                    });
    };
    auto copy = [m](int bitCount, unsigned model, bool masked, int x, int y) {
        return Into([=](IQEL* s) { return bitCount == 0 ? Partner(s, true) : Other(s, bitCount, model, 2); },
                    [=](IQEL* s, BufferImage* dest) {
                        return m->Copy(dest, s, masked ? MaskFor(dest).Get() : nullptr, x, y);
                    });
    };
    auto scale = [m](int bitCount, unsigned model, bool masked, float factor, float offset) {
        return Into([=](IQEL* s) { return Other(s, bitCount, model); },
                    [=](IQEL* s, BufferImage* dest) {
                        return m->Scale(dest, s, masked ? MaskFor(s).Get() : nullptr, factor, offset);
                    });
    };
    auto scale8 = [m](int offset, double factor) {
        return Into(Tiny, [=](IQEL* s, BufferImage* dest) { return m->Scale8(dest, s, offset, factor); });
    };
    auto subtract = [m](int flags) {
        return Into(
            [](IQEL* s) { return Partner(Partner(s, true).Get(), false); },
            [=](IQEL* s, BufferImage* dest) { return m->Subtract(dest, s, Partner(s, true).Get(), flags); });
    };
    auto equal = [m](bool masked, int value) {
        return [=](IQEL* s, IQEL**) { return m->Equal(s, masked ? MaskFor(s).Get() : nullptr, value); };
    };
    // clang-format off
    CheckDigests({
        {"Add0", add(0.0f), {0xc2856be9b59e3427ull, 0xb2da50bed0e74031ull, 0x375c229ac44e5bfbull, 0x2f71bdc4e187e718ull, 0xeaca5dde23a3a485ull, 0xcd3322f50d3b6441ull}},
        {"Add2", add(2.0f), {0xc2856be9b59e3427ull, 0xb2da50bed0e74031ull, 0xf22e06fbb32c9b2full, 0x2f71bdc4e187e718ull, 0xee0c44c6e11dc76bull, 0xb759621dd4a5b57cull}},
        {"Add3", add(3.0f), {0xc2856be9b59e3427ull, 0xb2da50bed0e74031ull, 0xbc6ce63eb87d6a7eull, 0x2f71bdc4e187e718ull, 0x64da51abc5f84913ull, 0xaed32eb5c11d14ddull}},
        {"AddScaleHalf", addScale(0.5f, 0.5f, 0.0f, false), {0x1fa5b58185390ddfull, 0x52838b32ca99d406ull, 0x626653a4a385cd51ull, 0x9f469b7fb7c2bd79ull, 0x40007f9ef6b1ab3aull, 0x44324b4071d0b62dull}},
        {"AddScaleOdd", addScale(0.7f, -0.3f, 12.5f, false), {0x1fa5b58185390ddfull, 0x52838b32ca99d406ull, 0x913d8ca93510e86bull, 0x2049d4ad43207733ull, 0x21cd6f2f0cca8d86ull, 0x1eea4e0a0bb4601cull}},
        {"AddScaleMasked", addScale(1.25f, 0.4f, -3.0f, true), {0x1fa5b58185390ddfull, 0x52838b32ca99d406ull, 0x8d88da099bcff26full, 0x55279ffd6ec96f20ull, 0x52592ed1b241d206ull, 0xce74e89cf06a0627ull}},
        {"Copy", copy(0, 0, false, 3, -2), {0x1ace07a46a8fd4a9ull, 0x892b216fc023088eull, 0xd8939f235f2eeefeull, 0x11568c5055b6ed0bull, 0x12c626032efb556cull, 0x7c2bd5c9b2ae3664ull}},
        {"CopyMasked", copy(0, 0, true, -1, 2), {0x1ace07a46a8fd4a9ull, 0x892b216fc023088eull, 0xd8939f235f2eeefeull, 0x11568c5055b6ed0bull, 0x12c626032efb556cull, 0x7c2bd5c9b2ae3664ull}},
        {"CopyInto8", copy(8, QEL_MODEL_MONO, false, 1, 1), {0x50eb2da767d59763ull, 0x85005ebbcac9f8bcull, 0xae28ca07ef1630a4ull, 0xda1cfff99c277545ull, 0xe466d1a3842a117aull, 0x5c3e1b80c79c60e7ull}},
        {"CopyInto24", copy(24, QEL_MODEL_BGR, false, -2, 0), {0xed96fa68a3abc2f9ull, 0xaacd3a09e1abdde9ull, 0x0d877649564f94c9ull, 0x6fc22a421a245cfaull, 0x45e6f3bd67b74328ull, 0x8939bf8a34af3d92ull}},
        {"CopyInto32", copy(32, QEL_MODEL_ARGB, false, 0, 3), {0x505f0017f38c7d99ull, 0x5cc609f5b44cb9d3ull, 0x9efce469be25f199ull, 0x3c88918d05f85434ull, 0xfa3bfb1f799bde8bull, 0x5ebecc063da85218ull}},
        {"ScaleInto8", scale(8, QEL_MODEL_MONO, false, 0.7f, 9.5f), {0x3ac49a7eb8cf297bull, 0xf3d36f8a9206061eull, 0xc6919082d0cc925eull, 0xf565a7c991ba806dull, 0x9763605ae7d80bd7ull, 0x37dd25aa632f7773ull}},
        {"ScaleInto24Masked", scale(24, QEL_MODEL_BGR, true, 1.3f, -20.0f), {0xf0df445f4f0745c8ull, 0x04e047d0b7f22c07ull, 0x0264f55d495bf7a3ull, 0x76604804fa411df0ull, 0x17bc8cf603f1309aull, 0xc8b6271de38eb973ull}},
        {"ScaleInto32", scale(32, QEL_MODEL_ARGB, false, 2.2f, 3.0f), {0x9c65727716b0e8f5ull, 0xb7608d1dac737993ull, 0x5e065edcd52b6618ull, 0x9e6df64cbe3e23cbull, 0xb1ac9c5b8acfcd3bull, 0x1588ef6ab535d166ull}},
        {"ScaleInto32Mono", scale(32, QEL_MODEL_MONO, false, 0.4f, -7.25f), {0x9c65727716b0e8f5ull, 0xb7608d1dac737993ull, 0x279e649c3a58e440ull, 0x9e6df64cbe3e23cbull, 0x4a3d4fa3974b2b94ull, 0x36109941c5a63ca7ull}},
        {"Scale8", scale8(12, 0.45), {0x3f462e5097011c34ull, 0x6f153e9e008744a8ull, 0xcaa75f115d3764e8ull, 0x8f933959b6fa009dull, 0xa41851475c786247ull, 0xe4d3fe04e06624b1ull}},
        {"Scale8Negative", scale8(-300, 3.5), {0x3f462e5097011c34ull, 0x6f153e9e008744a8ull, 0xcaa75f115d3764e8ull, 0x8f933959b6fa009dull, 0xa41851475c786247ull, 0xe4d3fe04e06624b1ull}},
        {"Subtract0", subtract(0), {0xd7ff8fae70ed07fcull, 0x97bacafce9624cf9ull, 0xec3029d5b3dac904ull, 0x2c123df26ea0dff7ull, 0x578fb50e1f23a04bull, 0xf91bd92ff9614b82ull}},
        {"Subtract1", subtract(1), {0xd7ff8fae70ed07fcull, 0x97bacafce9624cf9ull, 0x1421ad5694bdf4a8ull, 0x2c123df26ea0dff7ull, 0x34666bf2e89b7101ull, 0xdb63b96180844547ull}},
        {"Subtract2", subtract(2), {0xd7ff8fae70ed07fcull, 0x97bacafce9624cf9ull, 0x1421ad5694bdf4a8ull, 0x2c123df26ea0dff7ull, 0x34666bf2e89b7101ull, 0x5b0ee53074dc0bc3ull}},
        {"Subtract3", subtract(3), {0xd7ff8fae70ed07fcull, 0x97bacafce9624cf9ull, 0x1421ad5694bdf4a8ull, 0x2c123df26ea0dff7ull, 0x34666bf2e89b7101ull, 0x9d87f958ff27e375ull}},
        {"Equal", equal(false, 0x12345678), {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x0b975213b4a25d72ull, 0xe0e6d2c8a7f8a981ull, 0x4302714cce66cb00ull, 0x8286fd4d5e3a5b4cull}},
        {"EqualMasked", equal(true, -5), {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0xe363a5d7c12c001full, 0xe0e6d2c8a7f8a981ull, 0xb672bfb95d40a5e6ull, 0x920785ee7e37c75eull}},
    });
    // clang-format on
}

TEST(FilterDigests, ConvolutionsKernelsNoiseAndJitter) {
    IQELFilterTransform* f = Filters();
    // Kernels the fixed filters do not cover: an even size with negative
    // weights, and a 7 x 7 one wider than the smallest images.
    static int even4[16] = {1, -2, 3, 0, 2, 5, -1, 4, 0, 3, 7, -3, 1, 1, 2, 6};
    static int wide7[49];
    for (int n = 0; n < 49; ++n) wide7[n] = (n * 37) % 11 - 3;
    // A single tap, a 3 x 3 without divisor and with an offset, and a 5 x 5
    // binomial (separable, power-of-two divisor).
    static int single[1] = {3};
    static int sharp3[9] = {-1, -2, -1, -2, 13, -2, -1, -2, -1};
    static int binomial5[25];
    const int row[5] = {1, 4, 6, 4, 1};
    for (int n = 0; n < 25; ++n) binomial5[n] = row[n / 5] * row[n % 5];
    // Noise and Jitter draw from rand: each call starts from a fixed seed.
    auto seeded = [](unsigned seed, std::function<QResult(IQEL*, IQEL**)> run) {
        return [=](IQEL* s, IQEL** r) {
            std::srand(seed);
            return run(s, r);
        };
    };
    // clang-format off
    CheckDigests({
        {"Blur", [f](IQEL* s, IQEL** r) { return f->Blur(s, r); }, {0xfe05fac7ff506da1ull, 0x439477fa6582394full, 0xe404dd59d117b9f6ull, 0x2f71bdc4e187e718ull, 0x8dd9db362b035cf4ull, 0x8c9a3c44dab00fffull}},
        {"Soften", [f](IQEL* s, IQEL** r) { return f->Soften(s, r); }, {0xfe05fac7ff506da1ull, 0xb8c6a14fd7927dd1ull, 0x659b69e42a2ac410ull, 0x2f71bdc4e187e718ull, 0xd463053ff6b0b5b9ull, 0x2c781d7356e4037bull}},
        {"Sharpen", [f](IQEL* s, IQEL** r) { return f->Sharpen(s, r); }, {0x8da5d9d0e7bd037bull, 0xeaf6f3a2126b8b30ull, 0x433e7ec07abbf983ull, 0x2f71bdc4e187e718ull, 0xfab81beb4bb95943ull, 0x1c8bb743a2531438ull}},
        {"Emboss", [f](IQEL* s, IQEL** r) { return f->Emboss(s, r); }, {0x28f921837e2d9470ull, 0xa7609d3cdc9a21c0ull, 0xd8b53a5261eee87aull, 0x2f71bdc4e187e718ull, 0x2135a798c5bc69aaull, 0x7a6654631ac1b279ull}},
        {"Gaussian0", [f](IQEL* s, IQEL** r) { return f->GaussianBlur(s, 0, r); }, {0xfe05fac7ff506da1ull, 0xf00a274c1808378bull, 0x7bc9db1c055cd516ull, 0x2f71bdc4e187e718ull, 0xf3cd3f852ef4afc0ull, 0x1aef50407050a981ull}},
        {"Gaussian1", [f](IQEL* s, IQEL** r) { return f->GaussianBlur(s, 1, r); }, {0xc2856be9b59e3427ull, 0xdc66df7c83a340d0ull, 0x7955f68f593a5282ull, 0x2f71bdc4e187e718ull, 0xf37f3c9921f14530ull, 0x92e028ca37d7cad7ull}},
        {"Gaussian2", [f](IQEL* s, IQEL** r) { return f->GaussianBlur(s, 2, r); }, {0xc2856be9b59e3427ull, 0x1620bbc2742d7727ull, 0x739d9c9a20a33548ull, 0x2f71bdc4e187e718ull, 0x02bb49e8f21b3225ull, 0x6886b9aedebee535ull}},
        {"Gaussian3", [f](IQEL* s, IQEL** r) { return f->GaussianBlur(s, 3, r); }, {0xc2856be9b59e3427ull, 0x5e9b0b8ef5b6adf9ull, 0x47924337679d65a7ull, 0x2f71bdc4e187e718ull, 0xf3671bc18d7772f9ull, 0x365f8bd608055d06ull}},
        {"Even4", [f](IQEL* s, IQEL** r) { return f->Filter(s, even4, 4, -3, 9, r); }, {0x44b4bdf6e6ac93f2ull, 0x5b7147fdc8af4828ull, 0xcaa75f115d3764e8ull, 0x2f71bdc4e187e718ull, 0xf1e83827e5305256ull, 0xa9d0f7e2c83822e5ull}},
        {"Wide7", [f](IQEL* s, IQEL** r) { return f->Filter(s, wide7, 7, 5, -2, r); }, {0xc000cb4a7aaaa742ull, 0x4fd7269dae91025aull, 0xd3e3df303283f2a1ull, 0x2f71bdc4e187e718ull, 0xa177c5c09857c49full, 0x038c428a55d908acull}},
        {"KernelSingle", [f](IQEL* s, IQEL** r) { return f->Filter(s, single, 1, 2, 1, r); }, {0x9c50c8d5731705adull, 0x9e75631cd70c5a71ull, 0xd86d58847953a15aull, 0x2f71bdc4e187e718ull, 0x79ffa0ada9759af2ull, 0x33e60aba0493aed6ull}},
        {"KernelNoDivisor", [f](IQEL* s, IQEL** r) { return f->Filter(s, sharp3, 3, 0, 20, r); }, {0x47fc4abfcc37bedfull, 0x6bb7669467f7025full, 0xb342956ffb4e7a44ull, 0x2f71bdc4e187e718ull, 0x1a2b47e843518dd9ull, 0x384888278438962dull}},
        {"KernelBinomial5", [f](IQEL* s, IQEL** r) { return f->Filter(s, binomial5, 5, 256, 0, r); }, {0xc2856be9b59e3427ull, 0xc4266cfe387baa43ull, 0x61e005bbf97ff89cull, 0x2f71bdc4e187e718ull, 0x548e9def942f9b0dull, 0x9b1c227c2f3bb8e9ull}},
        {"Noise", seeded(11, [f](IQEL* s, IQEL** r) { return f->Noise(s, 60, r); }), {0x184cbdcb7c797762ull, 0x2aaefb1513507df9ull, 0xeada3069ec9eeb9eull, 0x2f71bdc4e187e718ull, 0xf92f0c0a3a7bb65dull, 0x48a33170d303f7e3ull}},
        {"NoiseInPlace", seeded(12, [f](IQEL* s, IQEL**) { return f->Noise(s, 200, nullptr); }), {0x54ed983ff9049529ull, 0x029813e0754d87a2ull, 0x94b262c3cf099433ull, 0x322e6aef799f96faull, 0x319a08a5971820fdull, 0xeaa24de32fdc835eull}},
        {"Jitter", seeded(13, [f](IQEL* s, IQEL** r) { return f->Jitter(s, 3, r); }), {0xca6ce5c2db0586b6ull, 0x4159ef0f2a3c4d7bull, 0x4372e8fdba1b42aeull, 0x2f71bdc4e187e718ull, 0x72b1f15ad90cc586ull, 0xd24aa5262ade052dull}},
        {"JitterWide", seeded(14, [f](IQEL* s, IQEL** r) { return f->Jitter(s, 40, r); }), {0x899bc968b5c7f29bull, 0xcd38a98e1b295626ull, 0xcf1a3fa653472ce4ull, 0x2f71bdc4e187e718ull, 0xda476ad0886687a8ull, 0xcde08c95b6de323bull}},
    });
    // clang-format on
}

TEST(FilterDigests, ExtremesAndMedians) {
    IQELFilterTransform* f = Filters();
    // clang-format off
    CheckDigests({
        {"Erode1", [f](IQEL* s, IQEL** r) { return f->Erode(s, 1, r); }, {0x887267332eee11b4ull, 0xbbc90032bbaf5819ull, 0xe5891e3efd3a969full, 0x2f71bdc4e187e718ull, 0x66b6f5f9173037cfull, 0xca3142a95846e5ebull}},
        {"Erode2", [f](IQEL* s, IQEL** r) { return f->Erode(s, 2, r); }, {0xfcafad352545cfacull, 0xd740c600bb13c7f0ull, 0x9ab8ec4b94a892d2ull, 0x2f71bdc4e187e718ull, 0x0f1447457c09cee7ull, 0x0c9ccbe3ea99ec8aull}},
        {"Erode3", [f](IQEL* s, IQEL** r) { return f->Erode(s, 3, r); }, {0xfe05fac7ff506da1ull, 0xa378c08b50653a47ull, 0x4aca07ee562294c6ull, 0x2f71bdc4e187e718ull, 0x8b1446091e207e6bull, 0x96a880a057322936ull}},
        {"Erode6", [f](IQEL* s, IQEL** r) { return f->Erode(s, 6, r); }, {0xc2856be9b59e3427ull, 0x45ddf0804905a782ull, 0xa8d790d565c4cbfaull, 0x2f71bdc4e187e718ull, 0xb1b9c1a26cdae6c1ull, 0xf27d18040792743cull}},
        {"Dilate3", [f](IQEL* s, IQEL** r) { return f->Dilate(s, 3, r); }, {0x2740f61551acc476ull, 0x9aac1d1db533caf9ull, 0x94d4f917fbbfbe58ull, 0x2f71bdc4e187e718ull, 0xe0545a60a844b8f4ull, 0x4f224d120a3bd856ull}},
        {"Dilate5", [f](IQEL* s, IQEL** r) { return f->Dilate(s, 5, r); }, {0xc16c9915fec307cdull, 0x23bfbff3a798d174ull, 0xde1e3d16e8ff3651ull, 0x2f71bdc4e187e718ull, 0xf888927f759a6c33ull, 0xb48cd7141769b282ull}},
        {"Edge3", [f](IQEL* s, IQEL** r) { return f->Edge(s, 3, r); }, {0x22dc6205a93d4df5ull, 0xf240ab4b565b711full, 0x71d7b2cc49943a21ull, 0x2f71bdc4e187e718ull, 0x6bb4223101fcab8cull, 0x3987c193a7e60fb6ull}},
        {"Edge4", [f](IQEL* s, IQEL** r) { return f->Edge(s, 4, r); }, {0x2a09cad3c990f114ull, 0x653741503c5dbeb4ull, 0xcad941002e740822ull, 0x2f71bdc4e187e718ull, 0x505f043607acc5a5ull, 0x77e7134f115f82efull}},
        {"Contour", [f](IQEL* s, IQEL** r) { return f->Contour(s, r); }, {0x92e102eed8664f49ull, 0x6c52f95a1da542fcull, 0x94496ffb27b3ee3dull, 0x2f71bdc4e187e718ull, 0x4e24e90a582be89dull, 0xfa6bfb46d83d0eb1ull}},
        {"Median1", [f](IQEL* s, IQEL** r) { return f->Median(s, 1, r); }, {0x887267332eee11b4ull, 0xbbc90032bbaf5819ull, 0xe5891e3efd3a969full, 0x2f71bdc4e187e718ull, 0x66b6f5f9173037cfull, 0xca3142a95846e5ebull}},
        {"Median2", [f](IQEL* s, IQEL** r) { return f->Median(s, 2, r); }, {0xacec263a71d96051ull, 0xe3b31d52b61770c4ull, 0xcc302c20e86167bbull, 0x2f71bdc4e187e718ull, 0x6f1ef2df94f021d9ull, 0x036728de29625b42ull}},
        {"Median3", [f](IQEL* s, IQEL** r) { return f->Median(s, 3, r); }, {0xed22e348fdce0a2cull, 0x33ea74790aebdf37ull, 0x80623cce3f71afc4ull, 0x2f71bdc4e187e718ull, 0xbf4d9f14ed3601c4ull, 0xcbb8d9894497ac35ull}},
        {"Median4", [f](IQEL* s, IQEL** r) { return f->Median(s, 4, r); }, {0xec2e8a6b5c387985ull, 0xba9fb156bfa697a1ull, 0x393dce97e5affb11ull, 0x2f71bdc4e187e718ull, 0x1d5efb745856b462ull, 0xdc20526109bb2032ull}},
        {"Median5", [f](IQEL* s, IQEL** r) { return f->Median(s, 5, r); }, {0xb9cf2e11ea034273ull, 0x9b8b3684a1cbf65bull, 0x4e4de1bd0f9f6be4ull, 0x2f71bdc4e187e718ull, 0xe466d4d1852f5274ull, 0x7fe39d2a9aa4c125ull}},
        {"Median15", [f](IQEL* s, IQEL** r) { return f->Median(s, 15, r); }, {0x63d05fd56bf45b84ull, 0xfb5a1a67a1fa4715ull, 0xd7d899001f50cf14ull, 0x2f71bdc4e187e718ull, 0xbe5dad49282e0840ull, 0xd204bf19b6daf96full}},
    });
    // clang-format on
}

}  // namespace
