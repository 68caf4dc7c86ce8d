// Recorded output digests of the colour, transform and arithmetic operations:
// every depth, odd sizes from 1 to 40, padded and bottom-up strides. Any
// change in any output byte, on any path, changes a digest. Run with
// QEL_DIGEST_RECORD=1 to print the table for the current code.
#include "support/component_test.h"
#include "support/digest.h"

namespace {

using qeltest::BufferImage;
using qeltest::CheckDigests;

// A second image of the source's shape and depth, filled from its bytes.
SmartPtr<BufferImage> Partner(IQEL* source, bool bottomUp) {
    const qel::Pixels p = qel::PixelsOf(source);
    SmartPtr<BufferImage> image(BufferImage::Make(
        p.width, p.height, p.bitCount, qeltest::DigestModelFor(p.bitCount), p.width % 4, bottomUp));
    image->FillRandom(static_cast<uint32_t>(qeltest::PixelDigest(source)));
    return image;
}

TEST(OperationDigests, Colour) {
    IQELColorTransform* c = qeltest::Colours();
    static unsigned char table[256];
    for (int i = 0; i < 256; ++i) table[i] = static_cast<unsigned char>((i * 7 + 3) ^ 0x5A);
    // clang-format off
    CheckDigests({
        {"Lut", [c](IQEL* s, IQEL**) { return c->Lut(s, table); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x9a635ad9f99f6627ull, 0xe0e6d2c8a7f8a981ull, 0xcb0e2ce4138e306full, 0x97f91d29bcc49606ull}},
        {"GrayScale", [c](IQEL* s, IQEL**) { return c->GrayScale(s); }, {0x1d08cdf7bc8835acull, 0xf8325c3be99eb002ull, 0x8b5ea5b3604523cdull, 0x322e6aef799f96faull, 0x5e09e6ea7de5828cull, 0x0937f12f123220b4ull}},
        {"Negative", [c](IQEL* s, IQEL**) { return c->Negative(s); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x6eb13bfcc61a4a85ull, 0xe0e6d2c8a7f8a981ull, 0x1088df9e441cdabbull, 0x6a897f74974c212bull}},
        {"Light", [c](IQEL* s, IQEL**) { return c->Light(s, 17, 35); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x2954f170c854aa81ull, 0xe0e6d2c8a7f8a981ull, 0xd2452e9a470517d6ull, 0x4a86f85f5c117b91ull}},
        {"Gamma", [c](IQEL* s, IQEL**) { return c->Gamma(s, 1.7f); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x5eeac9a0a134995eull, 0xe0e6d2c8a7f8a981ull, 0xb48987c05c905767ull, 0xbcbfc079eef87f22ull}},
        {"ShiftRGB", [c](IQEL* s, IQEL**) { return c->ShiftRGB(s, 40, -30, 90); }, {0x8ca4ee1c3e7f92ceull, 0xf16ac8a02fdd6821ull, 0x478b572ef19747efull, 0xe0e6d2c8a7f8a981ull, 0x77d9a2898decead8ull, 0x49e5f4775e365f3cull}},
        {"Threshold", [c](IQEL* s, IQEL**) { return c->Threshold(s, 100); }, {0x1d08cdf7bc8835acull, 0xf8325c3be99eb002ull, 0xb79629a735b0578cull, 0x322e6aef799f96faull, 0xbd07d8a976b2493bull, 0x35b9dd868045066aull}},
    });
    // clang-format on
}

TEST(OperationDigests, Orientation) {
    IQELTransform* t = qeltest::Transform();
    // clang-format off
    CheckDigests({
        {"Flip", [t](IQEL* s, IQEL** r) { return t->Flip(s, r); }, {0x72b024789a8d8318ull, 0x66bc03767eecd296ull, 0x226664ae0955597bull, 0x8346a3b5378995d1ull, 0x381ebe94085381b9ull, 0x888b410f4d191ebeull}},
        {"Mirror", [t](IQEL* s, IQEL** r) { return t->Mirror(s, r); }, {0xc2856be9b59e3427ull, 0xb2da50bed0e74031ull, 0xc6dc4043ed2a446full, 0x2f71bdc4e187e718ull, 0x63a2cf16ffa75928ull, 0x42c11bff76ff0772ull}},
        {"FlipBits", [t](IQEL* s, IQEL**) { return t->FlipBits(s); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x48bfa1957e4681e4ull, 0xe0e6d2c8a7f8a981ull, 0x758e5f1feed2257full, 0x6f33e1231896612bull}},
        {"FlipImageAndBits", [t](IQEL* s, IQEL**) { return t->FlipImageAndBits(s); }, {0xd0209a061629e35cull, 0x8209392df7d66a24ull, 0x48bfa1957e4681e4ull, 0xe0e6d2c8a7f8a981ull, 0x880af429adb27dadull, 0x5260fb8bbe9f37daull}},
    });
    // clang-format on
}

TEST(OperationDigests, ResampleAndRotate) {
    IQELTransform* t = qeltest::Transform();
    auto resample = [t](int method, int nearest, int num, int den, int extra) {
        return [=](IQEL* s, IQEL** r) {
            const qel::Pixels p = qel::PixelsOf(s);
            return t->Resample(s, r, p.width * num / den + extra, p.height * num / den + extra, method,
                               nearest);
        };
    };
    // clang-format off
    CheckDigests({
        {"HalfArea", resample(0, 0, 1, 2, 1), {0x2f8f274fdff945a2ull, 0x60abf96468a91b11ull, 0x7f1c97579139c55eull, 0x529e31fbfd940fefull, 0xd74db50bd2983684ull, 0xff3ba73bc18ecd18ull}},
        {"ThirdArea", resample(2, 0, 1, 3, 1), {0xa928a222bc46026dull, 0x8c37e0463a720e03ull, 0x5899befea978e099ull, 0x0611b0c86205646aull, 0x031177e8d184960dull, 0xe97aa110b2cd03f3ull}},
        {"HalfAreaExact", resample(4, 0, 1, 2, 0), {0x9662eee404fd8c3bull, 0x2e9dce8d80bb723full, 0x2f38cca2a2ef6c7dull, 0xd325c56fabaab0c6ull, 0xada1caa520b14d86ull, 0xf1087f062cddddc6ull}},
        {"QuarterArea", resample(0, 0, 1, 4, 0), {0xe06f3755a96899caull, 0xcd0ce31dfdc5013full, 0x0861479392d946a4ull, 0x42c110f8077eff77ull, 0xe41bdd3f7624152aull, 0xcb39aba2c4ccededull}},
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

TEST(OperationDigests, Arithmetic) {
    IQELMaths* m = qeltest::Maths();
    auto add = [m](float divisor) {
        return [=](IQEL* s, IQEL** r) {
            SmartPtr<BufferImage> b = Partner(s, true);
            SmartPtr<BufferImage> dest(BufferImage::Make(1, 1, 8, QEL_MODEL_MONO, 3));
            const QResult code = m->Add(dest.Get(), s, b.Get(), divisor);
            *r = dest.Detach();
            return code;
        };
    };
    auto addScale = [m](float fa, float fb, float offset, bool masked) {
        return [=](IQEL* s, IQEL** r) {
            SmartPtr<BufferImage> b = Partner(s, false);
            SmartPtr<BufferImage> dest = Partner(b.Get(), true);
            const qel::Pixels p = qel::PixelsOf(s);
            SmartPtr<BufferImage> mask(BufferImage::Make(p.width, p.height, 8, QEL_MODEL_MONO));
            mask->FillRandom(7);
            const QResult code =
                m->AddScale(dest.Get(), s, b.Get(), masked ? mask.Get() : nullptr, fa, fb, offset);
            *r = dest.Detach();
            return code;
        };
    };
    // clang-format off
    CheckDigests({
        {"Add0", add(0.0f), {0xc2856be9b59e3427ull, 0xb2da50bed0e74031ull, 0x375c229ac44e5bfbull, 0x2f71bdc4e187e718ull, 0xeaca5dde23a3a485ull, 0xcd3322f50d3b6441ull}},
        {"Add2", add(2.0f), {0xc2856be9b59e3427ull, 0xb2da50bed0e74031ull, 0xf22e06fbb32c9b2full, 0x2f71bdc4e187e718ull, 0xee0c44c6e11dc76bull, 0xb759621dd4a5b57cull}},
        {"Add3", add(3.0f), {0xc2856be9b59e3427ull, 0xb2da50bed0e74031ull, 0xbc6ce63eb87d6a7eull, 0x2f71bdc4e187e718ull, 0x64da51abc5f84913ull, 0xaed32eb5c11d14ddull}},
        {"AddScaleHalf", addScale(0.5f, 0.5f, 0.0f, false), {0x1fa5b58185390ddfull, 0x52838b32ca99d406ull, 0x626653a4a385cd51ull, 0x9f469b7fb7c2bd79ull, 0x40007f9ef6b1ab3aull, 0x44324b4071d0b62dull}},
        {"AddScaleOdd", addScale(0.7f, -0.3f, 12.5f, false), {0x1fa5b58185390ddfull, 0x52838b32ca99d406ull, 0x913d8ca93510e86bull, 0x2049d4ad43207733ull, 0x21cd6f2f0cca8d86ull, 0x1eea4e0a0bb4601cull}},
        {"AddScaleMasked", addScale(1.25f, 0.4f, -3.0f, true), {0x1fa5b58185390ddfull, 0x52838b32ca99d406ull, 0x8d88da099bcff26full, 0x55279ffd6ec96f20ull, 0x52592ed1b241d206ull, 0xce74e89cf06a0627ull}},
    });
    // clang-format on
}

}  // namespace
