// Recorded output digests of the filter operations: every depth, odd sizes
// from 1 to 40, padded and bottom-up strides. Any change in any output byte,
// on any path, changes a digest. Run with QEL_DIGEST_RECORD=1 to print the
// table for the current code.
#include "support/component_test.h"
#include "support/digest.h"

namespace {

using qeltest::CheckDigests;

TEST(FilterDigests, Convolutions) {
    IQELFilterTransform* f = qeltest::Filters();
    // Kernels the fixed filters do not cover: an even size with negative
    // weights, and a 7 x 7 one wider than the smallest images.
    static int even4[16] = {1, -2, 3, 0, 2, 5, -1, 4, 0, 3, 7, -3, 1, 1, 2, 6};
    static int wide7[49];
    for (int n = 0; n < 49; ++n) wide7[n] = (n * 37) % 11 - 3;
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
    });
    // clang-format on
}

TEST(FilterDigests, Extremes) {
    IQELFilterTransform* f = qeltest::Filters();
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
    });
    // clang-format on
}

TEST(FilterDigests, Medians) {
    IQELFilterTransform* f = qeltest::Filters();
    // clang-format off
    CheckDigests({
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
