// Scale and Scale8: every case of the depth table with exact bytes on padded
// images, and the in-place row road against the staged one.
#include "support/component_test.h"
#include "support/maths_planes.h"

namespace {

using namespace qeltest;

const unsigned char E = 0xEE;

// One destination format of the depth table: a 2 x 2 source scaled into a
// 2 x 2 destination filled with 0xEE.
struct ScaleRow {
    int destBits;
    unsigned destModel;
    float factor, offset;
    QResult result;
    Bytes expected;
};

void ExpectScaleRows(int sourceBits, unsigned sourceModel, const Bytes& source,
                     std::initializer_list<ScaleRow> rows) {
    for (const ScaleRow& c : rows) {
        SCOPED_TRACE(testing::Message() << sourceBits << " bits " << std::hex << sourceModel << " -> "
                                        << std::dec << c.destBits << " bits " << std::hex << c.destModel);
        // Word-addressed images keep a stride of whole words; the others get odd padding.
        const bool sourceWords = sourceBits == 32 && sourceModel == QEL_MODEL_MONO;
        const bool destWords = c.destBits == 32 && c.destModel == QEL_MODEL_MONO;
        auto image = ImageOf(2, 2, sourceBits, sourceModel, source, sourceWords ? 4 : 3, true);
        auto dest = ImageOf(2, 2, c.destBits, c.destModel, Bytes(c.destBits / 2, E), destWords ? 8 : 1);
        EXPECT_EQ(Maths()->Scale(dest.Get(), image.Get(), nullptr, c.factor, c.offset), c.result);
        ExpectPixels(dest.Get(), c.expected);
    }
}

const Bytes kGrey = {5, 100, 200, 7};

TEST(MathsScale, EveryRowOfTheDepthTable) {
    ExpectScaleRows(
        32, QEL_MODEL_MONO, Ints({-5, 100, 300, 7}),
        {{8, QEL_MODEL_MONO, 1.0f, 0.5f, QEL_OK, {0, 100, 255, 7}},
         {24, QEL_MODEL_BGR, 1.0f, 0.0f, QEL_OK, {0, 0, 0, 100, 100, 100, 255, 255, 255, 7, 7, 7}},
         {32,
          QEL_MODEL_ARGB,
          1.0f,
          0.0f,
          QEL_OK,
          {0, 0, 0, E, 100, 100, 100, E, 255, 255, 255, E, 7, 7, 7, E}},
         {16, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_E_FAIL, Bytes(8, E)}});
    ExpectScaleRows(32, QEL_MODEL_MONO, Ints({-5, 100000, 3, 7}),
                    {{32, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_OK, Ints({0, 100000, 3, 7})},
                     {32, QEL_MODEL_MONO, 3.0f, 0.25f, QEL_OK, Ints({0, 300000, 9, 21})}});
    // Colour to grey: the factor is divided by 3 and applied to b + g + r. 32
    // to 32 scales every byte, alpha too; values above 255 keep their low 8 bits.
    ExpectScaleRows(32, QEL_MODEL_ARGB, {200, 1, 128, 100, 0, 255, 3, 50, 10, 20, 30, 40, 5, 6, 7, 8},
                    {{8, QEL_MODEL_MONO, 1.5f, 0.0f, QEL_OK, {164, 129, 30, 9}},
                     {24, QEL_MODEL_BGR, 2.0f, -10.0f, QEL_OK, {255, 0, 246, 0, 255, 0, 10, 30, 50, 0, 2, 4}},
                     {32,
                      QEL_MODEL_ABGR,
                      2.0f,
                      -1.0f,
                      QEL_OK,
                      {143, 1, 255, 199, 0, 253, 5, 99, 19, 39, 59, 79, 9, 11, 13, 15}},
                     {16, QEL_MODEL_BGR, 1.0f, 0.0f, QEL_E_FAIL, Bytes(8, E)}});
    // 24 to 32 bits: only the first pixel of each row, wrapping above 255.
    const Bytes rgb = {10, 20, 30, 255, 255, 255, 1, 1, 1, 0, 0, 3};
    ExpectScaleRows(
        24, QEL_MODEL_BGR, rgb,
        {{8, QEL_MODEL_MONO, 1.5f, 0.0f, QEL_OK, {30, 255, 1, 1}},
         {24, QEL_MODEL_BGR, 2.0f, -10.0f, QEL_OK, {10, 30, 50, 255, 255, 255, 0, 0, 0, 0, 0, 0}},
         {32, QEL_MODEL_ARGB, 20.0f, 0.0f, QEL_OK, {200, 144, 88, E, E, E, E, E, 20, 20, 20, E, E, E, E, E}},
         {16, QEL_MODEL_BGR, 1.0f, 0.0f, QEL_E_FAIL, Bytes(8, E)}});
    ExpectScaleRows(24, QEL_MODEL_MONO, rgb, {{8, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_E_FAIL, Bytes(4, E)}});
    ExpectScaleRows(
        8, QEL_MODEL_MONO, kGrey,
        {{8, QEL_MODEL_MONO, 2.0f, -10.0f, QEL_OK, {0, 190, 255, 4}},
         {24, QEL_MODEL_BGR, 2.0f, -10.0f, QEL_OK, {0, 0, 0, 190, 190, 190, 255, 255, 255, 4, 4, 4}},
         {32, QEL_MODEL_ARGB, 1.0f, 0.0f, QEL_E_FAIL, Bytes(16, E)},
         {16, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_E_FAIL, Bytes(8, E)}});
    ExpectScaleRows(16, QEL_MODEL_MONO, Bytes(8, 1),
                    {{8, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_E_FAIL, Bytes(4, E)}});
    ExpectScaleRows(1, QEL_MODEL_MONO, Bytes(2, 0xFF),
                    {{8, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_E_FAIL, Bytes(4, E)}});
}

TEST(MathsScale, RowsAddressedInWholeWords) {
    // An 8-bit source into integers: row r is read at 4 * r * stride, so row 0
    // takes the first eight bytes as two integers and row 1 lies past the image.
    SmartPtr<BufferImage> grey(BufferImage::Make(2, 2, 8, QEL_MODEL_MONO, 4));
    ASSERT_EQ(grey->Stride(), 8);
    grey->FillRandom(9);
    const Bytes firstRow = Ints({258, -5});
    std::copy(firstRow.begin(), firstRow.end(), grey->Row(0));
    auto integers = ImageOf(2, 2, 32, QEL_MODEL_MONO, Bytes(16, E), 0);
    EXPECT_EQ(Maths()->Scale(integers.Get(), grey.Get(), nullptr, 1.0f, 7.0f), QEL_OK);
    ExpectPixels(integers.Get(), Ints({265, 2, 7, 7}));
    EXPECT_TRUE(grey->GuardsIntact());

    // Stride 7 is cut to one word: row 1 is read from byte 4, in the padding of row 0.
    SmartPtr<BufferImage> source(BufferImage::Make(1, 2, 32, QEL_MODEL_MONO, 3));
    ASSERT_EQ(source->Stride(), 7);
    source->FillRandom(9);
    const Bytes rows = Ints({40, 10});
    std::copy(rows.begin(), rows.begin() + 7, source->Row(0));
    source->Row(1)[0] = 0;
    auto dest = ImageOf(1, 2, 8, QEL_MODEL_MONO, {E, E});
    EXPECT_EQ(Maths()->Scale(dest.Get(), source.Get(), nullptr, 1.0f, 0.0f), QEL_OK);
    ExpectPixels(dest.Get(), {40, 10});
}

TEST(MathsScale, MaskPlanesAndCommonArea) {
    auto source = ImageOf(2, 2, 8, QEL_MODEL_MONO, kGrey, 3, false, 2);
    auto dest = ImageOf(2, 2, 8, QEL_MODEL_MONO, Bytes(4, E), 1, false, 2);
    const Bytes secondPlane = dest->Snapshot(1);
    EXPECT_EQ(Maths()->Scale(dest.Get(), source.Get(), ImageOf(2, 2, 8, QEL_MODEL_MONO, Bytes(4, 0), 2).Get(),
                             2.0f, -10.0f),
              QEL_OK);
    ExpectPixels(dest.Get(), Bytes(4, E));
    auto mask = ImageOf(2, 2, 8, QEL_MODEL_MONO, {0, 1, 9, 0}, 2, true);
    EXPECT_EQ(Maths()->Scale(dest.Get(), source.Get(), mask.Get(), 2.0f, -10.0f), QEL_OK);
    ExpectPixels(dest.Get(), {E, 190, 255, E});
    EXPECT_EQ(dest->Snapshot(1), secondPlane);  // 8 to 8 works on plane 0 only

    // Other cases run every plane; the area is the smaller of the two images.
    auto wide = ImageOf(1, 3, 24, QEL_MODEL_BGR, Bytes(9, E), 3, false, 2);
    EXPECT_EQ(Maths()->Scale(wide.Get(), source.Get(), nullptr, 1.0f, 1.0f), QEL_OK);
    ExpectPixels(wide.Get(), {6, 6, 6, 201, 201, 201, E, E, E});
    const Bytes second = wide->Snapshot(1);
    const auto scaled = static_cast<unsigned char>(std::min(source->Row(0, 1)[0] + 1, 255));
    EXPECT_EQ(Bytes(second.begin(), second.begin() + 3), Bytes(3, scaled));
}

TEST(MathsScale8, TurnsIntegersIntoGreyBytes) {
    auto source = ImageOf(3, 2, 32, QEL_MODEL_MONO, Ints({101, -100, 1000, 0, 21, -21}), 4, true);
    SmartPtr<IQELImageDIB> dest = TestHost().NewImage(1, 1, 24, QEL_MODEL_BGR);
    EXPECT_EQ(Maths()->Scale8(dest.Get(), source.Get(), 10, 0.5), QEL_OK);
    const qel::Pixels p = qel::PixelsOf(dest.Get());
    EXPECT_EQ(
        std::vector<unsigned>({unsigned(p.width), unsigned(p.height), unsigned(p.bitCount), p.colourModel}),
        std::vector<unsigned>({3, 2, 8, QEL_MODEL_MONO}));
    EXPECT_EQ(PixelBytes(dest.Get()), Bytes({60, 0, 255, 10, 20, 0}));  // 10.5 -> 10 and -10.5 -> -10 first

    // A 16-bit "MONO" source is read as integers too, zero past its end.
    EXPECT_EQ(Maths()->Scale8(dest.Get(), ImageOf(2, 1, 16, QEL_MODEL_MONO, {0x10, 0, 0x20, 0}, 0).Get(), 1,
                              1.0 / 65536.0),
              QEL_OK);
    EXPECT_EQ(PixelBytes(dest.Get()), Bytes({33, 1}));
    // An 8-bit source: a fresh, unfilled 8-bit image.
    EXPECT_EQ(Maths()->Scale8(dest.Get(), ImageOf(2, 1, 8, QEL_MODEL_MONO, {50, 60}).Get(), 10, 1.0), QEL_OK);
    EXPECT_EQ(PixelBytes(dest.Get()), Bytes({0, 0}));
    // A colour source fails and leaves the destination as it was.
    EXPECT_EQ(Maths()->Scale8(dest.Get(), ImageOf(4, 4, 32, QEL_MODEL_ARGB, Bytes(64, 1), 0).Get(), 10, 1.0),
              QEL_E_NOT_MONO);
    EXPECT_EQ(qel::PixelsOf(dest.Get()).width, 2);
    EXPECT_EQ(source->RefCount(), 1u);
}

TEST(MathsScaleKernels, InPlaceAndStagedRowsAgree) {
    const int sizes[][2] = {{1, 1}, {2, 1}, {1, 3}, {7, 5}, {13, 4}};
    const std::pair<int, unsigned> formats[] = {{8, QEL_MODEL_MONO},  {24, QEL_MODEL_BGR},
                                                {32, QEL_MODEL_ARGB}, {32, QEL_MODEL_MONO},
                                                {16, QEL_MODEL_MONO}, {1, QEL_MODEL_MONO}};
    for (const auto& size : sizes) {
        for (const auto& from : formats) {
            for (const auto& to : formats) {
                const int w = size[0], h = size[1];
                SCOPED_TRACE(testing::Message()
                             << w << " x " << h << ": " << from.first << " -> " << to.first);
                SmartPtr<BufferImage> source(BufferImage::Make(w, h, from.first, from.second, 3, true));
                SmartPtr<BufferImage> mask(BufferImage::Make(w - (w > 1), h, 8, QEL_MODEL_MONO, 1, false));
                SmartPtr<BufferImage> direct(BufferImage::Make(w, h, to.first, to.second, 2, false));
                SmartPtr<BufferImage> staged(BufferImage::Make(w, h, to.first, to.second, 2, false));
                source->FillRandom(21), mask->FillRandom(22), direct->FillRandom(23), staged->FillRandom(23);
                ImageInfo infoSource, infoDest;
                ReadFormat(source.Get(), &infoSource);
                ReadFormat(direct.Get(), &infoDest);
                const ScaleCase scaleCase = ChooseScaleCase(infoSource, infoDest);
                const MathsPlane planeSource = PlaneOf(source.Get()), planeMask = PlaneOf(mask.Get());
                RowStage inPlace, throughScratch(true);
                for (RowStage* stage : {&inPlace, &throughScratch}) {
                    const MathsPlane dest = PlaneOf(stage == &inPlace ? direct.Get() : staged.Get());
                    ScaleRows(scaleCase, dest, planeSource, &planeMask, w, h, 1.7f, -20.5f, *stage);
                    ScaleRows(scaleCase, dest, planeSource, nullptr, w, h, -0.3f, 300.0f, *stage);
                    if (from.second == QEL_MODEL_MONO && from.first >= 8)
                        Scale8Rows(dest, planeSource, w, h, from.first, -3, 1e-3, *stage);
                }
                EXPECT_EQ(direct->Snapshot(), staged->Snapshot());
                EXPECT_TRUE(direct->GuardsIntact() && staged->GuardsIntact() && source->GuardsIntact());
            }
        }
    }
}

}  // namespace
