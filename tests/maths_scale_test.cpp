// Scale and Scale8: every case of the depth table with exact bytes on padded
// images, and the in-place row road against the staged one.
#include <gtest/gtest.h>

#include "maths/maths_kernels.h"
#include "support/test_image.h"

using qeltest::BufferImage;
using qeltest::HexRows;
using qeltest::PixelBytes;
using Bytes = std::vector<unsigned char>;

namespace {

IQELMaths* Maths() {
    static SmartPtr<IQELMaths> maths =
        qeltest::TestHost().Create<IQELMaths>(L"QELMaths", qel::iid::IQELMaths);
    return maths.Get();
}

SmartPtr<BufferImage> Image(int width, int height, int bitCount, unsigned model, const Bytes& bytes,
                            int padding, bool bottomUp = false, int planes = 1) {
    SmartPtr<BufferImage> image(BufferImage::Make(width, height, bitCount, model, padding, bottomUp, planes));
    image->FillRandom(5);
    qeltest::SetPixelBytes(image.Get(), bytes);
    return image;
}

// Little-endian bytes of 32-bit integers.
Bytes Ints(std::initializer_list<int32_t> values) {
    Bytes bytes;
    for (const int32_t v : values)
        for (int k = 0; k < 4; ++k)
            bytes.push_back(static_cast<unsigned char>(static_cast<uint32_t>(v) >> (8 * k)));
    return bytes;
}

void ExpectPixels(BufferImage* image, const Bytes& expected) {
    const size_t rowBytes = qel::PixelsOf(image).RowBytes();
    EXPECT_EQ(PixelBytes(image), expected) << "got\n"
                                           << HexRows(PixelBytes(image), rowBytes) << "expected\n"
                                           << HexRows(expected, rowBytes);
    EXPECT_TRUE(image->GuardsIntact());
}

// A 2 x 2 source scaled into a 2 x 2 destination filled with 0xEE.
struct ScaleRow {
    int sourceBits;
    unsigned sourceModel;
    Bytes source;
    int destBits;
    unsigned destModel;
    float factor;
    float offset;
    QResult result;
    Bytes expected;
};

void RunScaleRow(const ScaleRow& c) {
    SCOPED_TRACE(testing::Message() << c.sourceBits << " bits " << std::hex << c.sourceModel << " -> "
                                    << std::dec << c.destBits << " bits " << std::hex << c.destModel);
    // Word-addressed images keep a stride of whole words; the others get odd padding.
    const bool sourceWords = c.sourceBits == 32 && c.sourceModel == QEL_MODEL_MONO;
    const bool destWords = c.destBits == 32 && c.destModel == QEL_MODEL_MONO;
    auto source = Image(2, 2, c.sourceBits, c.sourceModel, c.source, sourceWords ? 4 : 3, true);
    auto dest = Image(2, 2, c.destBits, c.destModel, Bytes(c.destBits / 2, 0xEE), destWords ? 8 : 1);
    EXPECT_EQ(Maths()->Scale(dest.Get(), source.Get(), nullptr, c.factor, c.offset), c.result);
    ExpectPixels(dest.Get(), c.expected);
}

const unsigned char E = 0xEE;
const Bytes kMono = Ints({-5, 100, 300, 7});
const Bytes kBGRA = {200, 1, 128, 100, 0, 255, 3, 50, 10, 20, 30, 40, 5, 6, 7, 8};
const Bytes kBGR = {10, 20, 30, 255, 255, 255, 1, 1, 1, 0, 0, 3};
const Bytes kGrey = {5, 100, 200, 7};

}  // namespace

TEST(MathsScale, FromThirtyTwoBitIntegers) {
    const ScaleRow rows[] = {
        {32, QEL_MODEL_MONO, kMono, 8, QEL_MODEL_MONO, 1.0f, 0.5f, QEL_OK, {0, 100, 255, 7}},
        {32,
         QEL_MODEL_MONO,
         kMono,
         24,
         QEL_MODEL_BGR,
         1.0f,
         0.0f,
         QEL_OK,
         {0, 0, 0, 100, 100, 100, 255, 255, 255, 7, 7, 7}},
        {32, QEL_MODEL_MONO, Ints({-5, 100000, 3, 7}), 32, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_OK,
         Ints({0, 100000, 3, 7})},
        {32, QEL_MODEL_MONO, Ints({-5, 100000, 3, 7}), 32, QEL_MODEL_MONO, 3.0f, 0.25f, QEL_OK,
         Ints({0, 300000, 9, 21})},
        {32,
         QEL_MODEL_MONO,
         kMono,
         32,
         QEL_MODEL_ARGB,
         1.0f,
         0.0f,
         QEL_OK,
         {0, 0, 0, E, 100, 100, 100, E, 255, 255, 255, E, 7, 7, 7, E}},
        {32, QEL_MODEL_MONO, kMono, 16, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_E_FAIL, Bytes(8, E)},
    };
    for (const ScaleRow& row : rows) RunScaleRow(row);
}

TEST(MathsScale, FromThirtyTwoBitColour) {
    const ScaleRow rows[] = {
        // Grey: the factor is divided by 3 and applied to b + g + r.
        {32, QEL_MODEL_ARGB, kBGRA, 8, QEL_MODEL_MONO, 1.5f, 0.0f, QEL_OK, {164, 129, 30, 9}},
        {32,
         QEL_MODEL_ARGB,
         kBGRA,
         24,
         QEL_MODEL_BGR,
         2.0f,
         -10.0f,
         QEL_OK,
         {255, 0, 246, 0, 255, 0, 10, 30, 50, 0, 2, 4}},
        // Every byte, alpha too; values above 255 keep their low 8 bits.
        {32,
         QEL_MODEL_ARGB,
         kBGRA,
         32,
         QEL_MODEL_ABGR,
         2.0f,
         -1.0f,
         QEL_OK,
         {143, 1, 255, 199, 0, 253, 5, 99, 19, 39, 59, 79, 9, 11, 13, 15}},
        {32, QEL_MODEL_ARGB, kBGRA, 16, QEL_MODEL_BGR, 1.0f, 0.0f, QEL_E_FAIL, Bytes(8, E)},
    };
    for (const ScaleRow& row : rows) RunScaleRow(row);
}

TEST(MathsScale, FromTwentyFourBitColour) {
    const ScaleRow rows[] = {
        {24, QEL_MODEL_BGR, kBGR, 8, QEL_MODEL_MONO, 1.5f, 0.0f, QEL_OK, {30, 255, 1, 1}},
        {24,
         QEL_MODEL_BGR,
         kBGR,
         24,
         QEL_MODEL_BGR,
         2.0f,
         -10.0f,
         QEL_OK,
         {10, 30, 50, 255, 255, 255, 0, 0, 0, 0, 0, 0}},
        // Only the first pixel of each row, wrapping above 255.
        {24,
         QEL_MODEL_BGR,
         kBGR,
         32,
         QEL_MODEL_ARGB,
         20.0f,
         0.0f,
         QEL_OK,
         {200, 144, 88, E, E, E, E, E, 20, 20, 20, E, E, E, E, E}},
        {24, QEL_MODEL_MONO, kBGR, 8, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_E_FAIL, Bytes(4, E)},
        {24, QEL_MODEL_BGR, kBGR, 16, QEL_MODEL_BGR, 1.0f, 0.0f, QEL_E_FAIL, Bytes(8, E)},
    };
    for (const ScaleRow& row : rows) RunScaleRow(row);
}

TEST(MathsScale, FromEightBitAndOtherDepths) {
    const ScaleRow rows[] = {
        {8, QEL_MODEL_MONO, kGrey, 8, QEL_MODEL_MONO, 2.0f, -10.0f, QEL_OK, {0, 190, 255, 4}},
        {8,
         QEL_MODEL_MONO,
         kGrey,
         24,
         QEL_MODEL_BGR,
         2.0f,
         -10.0f,
         QEL_OK,
         {0, 0, 0, 190, 190, 190, 255, 255, 255, 4, 4, 4}},
        {8, QEL_MODEL_MONO, kGrey, 32, QEL_MODEL_ARGB, 1.0f, 0.0f, QEL_E_FAIL, Bytes(16, E)},
        {8, QEL_MODEL_MONO, kGrey, 16, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_E_FAIL, Bytes(8, E)},
        {16, QEL_MODEL_MONO, Bytes(8, 1), 8, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_E_FAIL, Bytes(4, E)},
        {1, QEL_MODEL_MONO, Bytes(2, 0xFF), 8, QEL_MODEL_MONO, 1.0f, 0.0f, QEL_E_FAIL, Bytes(4, E)},
    };
    for (const ScaleRow& row : rows) RunScaleRow(row);
}

TEST(MathsScale, ReadsAnEightBitSourceAsIntegersAndZeroBeyondIt) {
    // Row r of the source is read at 4 * r * stride: row 0 takes the first
    // eight bytes of the 8-bit image as two integers; row 1 lies past the
    // image and reads as 0.
    SmartPtr<BufferImage> source(BufferImage::Make(2, 2, 8, QEL_MODEL_MONO, 4));
    ASSERT_EQ(source->Stride(), 8);
    source->FillRandom(9);
    const Bytes firstRow = Ints({258, -5});
    std::copy(firstRow.begin(), firstRow.end(), source->Row(0));
    auto dest = Image(2, 2, 32, QEL_MODEL_MONO, Bytes(16, E), 0);
    EXPECT_EQ(Maths()->Scale(dest.Get(), source.Get(), nullptr, 1.0f, 7.0f), QEL_OK);
    ExpectPixels(dest.Get(), Ints({265, 2, 7, 7}));
    EXPECT_TRUE(source->GuardsIntact());
}

TEST(MathsScale, AddressesIntegerRowsInWholeWords) {
    // Stride 7 is cut to one word: row 1 is read from byte 4, in the padding of row 0.
    SmartPtr<BufferImage> source(BufferImage::Make(1, 2, 32, QEL_MODEL_MONO, 3));
    ASSERT_EQ(source->Stride(), 7);
    source->FillRandom(9);
    const Bytes rows = Ints({40, 10});
    std::copy(rows.begin(), rows.begin() + 4, source->Row(0));
    std::copy(rows.begin() + 4, rows.begin() + 7, source->Row(0) + 4);
    source->Row(1)[0] = 0;
    auto dest = Image(1, 2, 8, QEL_MODEL_MONO, {E, E}, 3);
    EXPECT_EQ(Maths()->Scale(dest.Get(), source.Get(), nullptr, 1.0f, 0.0f), QEL_OK);
    ExpectPixels(dest.Get(), {40, 10});
}

TEST(MathsScale, MaskPlanesAndCommonArea) {
    auto source = Image(2, 2, 8, QEL_MODEL_MONO, kGrey, 3, false, 2);
    auto zeros = Image(2, 2, 8, QEL_MODEL_MONO, Bytes(4, 0), 2);
    auto mask = Image(2, 2, 8, QEL_MODEL_MONO, {0, 1, 9, 0}, 2, true);
    auto dest = Image(2, 2, 8, QEL_MODEL_MONO, Bytes(4, E), 1, false, 2);
    const Bytes secondPlane = dest->Snapshot(1);
    EXPECT_EQ(Maths()->Scale(dest.Get(), source.Get(), zeros.Get(), 2.0f, -10.0f), QEL_OK);
    ExpectPixels(dest.Get(), Bytes(4, E));
    EXPECT_EQ(Maths()->Scale(dest.Get(), source.Get(), mask.Get(), 2.0f, -10.0f), QEL_OK);
    ExpectPixels(dest.Get(), {E, 190, 255, E});
    EXPECT_EQ(dest->Snapshot(1), secondPlane);  // 8 to 8 works on plane 0 only

    // Other cases run every plane; the area is the smaller of the two images.
    auto wide = Image(1, 3, 24, QEL_MODEL_BGR, Bytes(9, E), 3, false, 2);
    EXPECT_EQ(Maths()->Scale(wide.Get(), source.Get(), nullptr, 1.0f, 1.0f), QEL_OK);
    ExpectPixels(wide.Get(), {6, 6, 6, 201, 201, 201, E, E, E});
    const Bytes second = wide->Snapshot(1);
    const auto scaled = static_cast<unsigned char>(std::min(source->Row(0, 1)[0] + 1, 255));
    EXPECT_EQ(Bytes(second.begin(), second.begin() + 3), Bytes(3, scaled));
}

TEST(MathsScale8, TurnsIntegersIntoGreyBytes) {
    auto source = Image(3, 2, 32, QEL_MODEL_MONO, Ints({101, -100, 1000, 0, 21, -21}), 4, true);
    SmartPtr<IQELImageDIB> dest = qeltest::TestHost().NewImage(1, 1, 24, QEL_MODEL_BGR);
    EXPECT_EQ(Maths()->Scale8(dest.Get(), source.Get(), 10, 0.5), QEL_OK);
    const qel::Pixels p = qel::PixelsOf(dest.Get());
    EXPECT_EQ(std::vector<int>({p.width, p.height, p.bitCount}), std::vector<int>({3, 2, 8}));
    EXPECT_EQ(p.colourModel, QEL_MODEL_MONO);
    EXPECT_EQ(PixelBytes(dest.Get()), Bytes({60, 0, 255, 10, 20, 0}));  // 10.5 -> 10 and -10.5 -> -10 first

    // A 16-bit "MONO" source is read as integers too, zero past its end.
    auto narrow = Image(2, 1, 16, QEL_MODEL_MONO, {0x10, 0x00, 0x20, 0x00}, 0);
    EXPECT_EQ(Maths()->Scale8(dest.Get(), narrow.Get(), 1, 1.0 / 65536.0), QEL_OK);
    EXPECT_EQ(PixelBytes(dest.Get()), Bytes({33, 1}));

    // An 8-bit source: a fresh, unfilled 8-bit image.
    auto grey = Image(2, 1, 8, QEL_MODEL_MONO, {50, 60}, 3);
    EXPECT_EQ(Maths()->Scale8(dest.Get(), grey.Get(), 10, 1.0), QEL_OK);
    EXPECT_EQ(PixelBytes(dest.Get()), Bytes({0, 0}));

    // A colour source fails and leaves the destination as it was.
    auto colour = Image(4, 4, 32, QEL_MODEL_ARGB, Bytes(64, 1), 0);
    EXPECT_EQ(Maths()->Scale8(dest.Get(), colour.Get(), 10, 1.0), QEL_E_NOT_MONO);
    EXPECT_EQ(qel::PixelsOf(dest.Get()).width, 2);
    EXPECT_EQ(source->RefCount(), 1u);
}

namespace {

MathsPlane PlaneOfImage(BufferImage* image) {
    ImageInfo info;
    ReadSize(image, &info);
    ReadFormat(image, &info);
    return GetPlane(image, 0, info);
}

}  // namespace

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
                source->FillRandom(21);
                mask->FillRandom(22);
                SmartPtr<BufferImage> direct(BufferImage::Make(w, h, to.first, to.second, 2, false));
                SmartPtr<BufferImage> staged(BufferImage::Make(w, h, to.first, to.second, 2, false));
                direct->FillRandom(23);
                staged->FillRandom(23);
                ImageInfo infoSource, infoDest;
                ReadFormat(source.Get(), &infoSource);
                ReadFormat(direct.Get(), &infoDest);
                const ScaleCase scaleCase = ChooseScaleCase(infoSource, infoDest);
                const MathsPlane planeSource = PlaneOfImage(source.Get()),
                                 planeMask = PlaneOfImage(mask.Get());
                RowStage inPlace, throughScratch(true);
                for (RowStage* stage : {&inPlace, &throughScratch}) {
                    BufferImage* dest = stage == &inPlace ? direct.Get() : staged.Get();
                    ScaleRows(scaleCase, PlaneOfImage(dest), planeSource, &planeMask, w, h, 1.7f, -20.5f,
                              *stage);
                    ScaleRows(scaleCase, PlaneOfImage(dest), planeSource, nullptr, w, h, -0.3f, 300.0f,
                              *stage);
                    if (from.second == QEL_MODEL_MONO && from.first >= 8)
                        Scale8Rows(PlaneOfImage(dest), planeSource, w, h, from.first, -3, 1e-3, *stage);
                }
                EXPECT_EQ(direct->Snapshot(), staged->Snapshot());
                EXPECT_TRUE(direct->GuardsIntact() && staged->GuardsIntact() && source->GuardsIntact());
            }
        }
    }
}
