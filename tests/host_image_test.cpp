// The host runtime: the "QELImageDIB" image, strings, locators and the
// global collection, used through their interfaces as a host would.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "support/component_test.h"
#include "support/test_image.h"

namespace {

using namespace qeltest;

// The bits of one plane, or null when the image refuses the plane.
unsigned char* PlaneBits(IQEL* image, int plane) {
    unsigned char* bits = nullptr;
    int stride = 0, reserved = 0;
    image->GetBits(plane, &reserved, &bits, &stride);
    return bits;
}

// Create lays out zeroed top-down rows padded to four bytes; Fill writes the
// colour in each depth's form to every row and leaves padding and slack alone.
TEST(ImageDIB, CreateLaysOutZeroedPaddedRowsAndFillHonoursEveryDepth) {
    struct Case {
        int width, bitCount;
        std::vector<unsigned char> row;
    };
    const unsigned colour = 0x80C86432;  // alpha 0x80, red 200, green 100, blue 50
    // grey (50 + 100 + 200 + 1) / 3 = 117: 117 & 15 = 5, 117 & 1 = 1; a row's last byte is filled whole.
    const Case cases[] = {
        {3, 32, {0x32, 0x64, 0xC8, 0x80, 0x32, 0x64, 0xC8, 0x80, 0x32, 0x64, 0xC8, 0x80}},
        {3, 24, {0x32, 0x64, 0xC8, 0x32, 0x64, 0xC8, 0x32, 0x64, 0xC8, 0, 0, 0}},
        {3, 16, {0x26, 0xCB, 0x26, 0xCB, 0x26, 0xCB, 0, 0}},  // 5-6-5: 11001 011001 00110
        {5, 8, {117, 117, 117, 117, 117, 0, 0, 0}},
        {9, 4, {0x55, 0x55, 0x55, 0x55, 0x55, 0, 0, 0}},
        {33, 1, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0}},
        {1, 1, {0xFF, 0, 0, 0}},
    };
    for (const Case& c : cases) {
        SmartPtr<IQELImageDIB> image = TestHost().NewImage();
        ASSERT_EQ(image->Create(c.width, 3, 1, c.bitCount, 0), QEL_OK);
        const qel::Pixels p = qel::PixelsOf(image.Get());
        ASSERT_EQ(p.stride, static_cast<int>(c.row.size())) << c.width << "x" << c.bitCount;
        for (int i = 0; i < 3 * p.stride + 16; ++i)
            ASSERT_EQ(p.bits[i], 0) << c.bitCount << " bits, byte " << i;
        ASSERT_EQ(image->Fill(colour), QEL_OK);
        for (int y = 0; y < 3; ++y) {
            const std::vector<unsigned char> row(p.Row(y), p.Row(y) + p.stride);
            EXPECT_EQ(row, c.row) << c.bitCount << " bits, row " << y << ":\n" << HexRows(row, row.size());
        }
        for (int i = 3 * p.stride; i < 3 * p.stride + 16; ++i) ASSERT_EQ(p.bits[i], 0) << "slack byte " << i;
    }
}

TEST(ImageDIB, ReportsWhatWasCreatedAndKeepsItWhenRefusingBadGeometry) {
    SmartPtr<IQELImageDIB> image = TestHost().NewImage();
    ASSERT_EQ(image->Create(7, 4, 2, 32, QEL_MODEL_ARGB), QEL_OK);
    int width = 0, height = 0, planes = 0, bitCount = 0, reserved = -1;
    unsigned model = 0;
    image->GetSize(&width, &height, &planes);
    image->GetFormat(&bitCount, &model, &reserved);
    EXPECT_EQ(std::vector<int>({width, height, planes, bitCount, int(model), reserved}),
              std::vector<int>({7, 4, 2, 32, QEL_MODEL_ARGB, 0}));
    unsigned char *plane0 = nullptr, *plane1 = nullptr, *none = reinterpret_cast<unsigned char*>(1);
    int stride = 0;
    EXPECT_EQ(image->GetBits(0, &reserved, &plane0, &stride), QEL_OK);
    EXPECT_EQ(image->GetBits(1, &reserved, &plane1, &stride), QEL_OK);
    EXPECT_NE(plane0, plane1);
    EXPECT_EQ(image->GetBits(2, &reserved, &none, &stride), QEL_E_INVALIDARG);
    EXPECT_EQ(none, nullptr);
    plane0[0] = 42;

    EXPECT_EQ(image->Create(-1, 2, 1, 8, QEL_MODEL_MONO), QEL_E_INVALIDARG);
    EXPECT_EQ(image->Create(2, -1, 1, 8, QEL_MODEL_MONO), QEL_E_INVALIDARG);
    for (int badPlanes : {0, 17})
        EXPECT_EQ(image->Create(2, 2, badPlanes, 8, QEL_MODEL_MONO), QEL_E_INVALIDARG) << badPlanes;
    for (int badBitCount : {0, 2, 7, 12, 25, 31, 33, 64, -8})
        EXPECT_EQ(image->Create(2, 2, 1, badBitCount, QEL_MODEL_MONO), QEL_E_INVALIDARG) << badBitCount;
    // Byte counts that do not fit: a stride beyond INT_MAX, and rows times stride beyond memory.
    EXPECT_EQ(image->Create(INT_MAX, 1, 1, 32, QEL_MODEL_BGR), QEL_E_INVALIDARG);
    EXPECT_EQ(image->Create(INT_MAX / 4, INT_MAX, 16, 32, QEL_MODEL_BGR), QEL_E_INVALIDARG);
    // 64 TiB is refused before any allocation is tried.
    EXPECT_EQ(image->Create(1 << 20, 1 << 20, 16, 32, QEL_MODEL_BGR), QEL_E_OUTOFMEMORY);
    EXPECT_EQ(SizeAndFormat(image.Get()), std::vector<int>({7, 4, 32, QEL_MODEL_ARGB}));
    EXPECT_EQ(qel::PixelsOf(image.Get()).bits[0], 42);

    // An empty image has no pixels to fill or clear.
    EXPECT_EQ(image->Create(0, 5, 1, 24, QEL_MODEL_BGR), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(image.Get()).stride, 0);
    EXPECT_EQ(image->Fill(0xFFFFFFFF), QEL_OK);
    EXPECT_EQ(image->Clear(), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(image.Get()).bits, nullptr);
}

TEST(ImageDIB, AssignCopiesSizeFormatPixelsAndPalette) {
    SmartPtr<BufferImage> source = Random(3, 2, 8, 11, 5, true);
    SmartPtr<IQELImageDIB> target = TestHost().NewImage(9, 9, 32, QEL_MODEL_ARGB);
    ASSERT_EQ(target->Assign(source.Get(), 0), QEL_OK);
    EXPECT_EQ(SizeAndFormat(target.Get()), std::vector<int>({3, 2, 8, QEL_MODEL_MONO}));
    EXPECT_EQ(qel::PixelsOf(target.Get()).stride, 4) << "the runtime's own rows";
    EXPECT_EQ(PixelBytes(target.Get()), PixelBytes(source.Get()));

    // A palette travels with Assign; the palette interface is answered only while one is set.
    SmartPtr<IQELImageDIB> paletted = TestHost().NewImage(2, 1, 8, QEL_MODEL_MONO);
    EXPECT_FALSE(QueryAs<IQELImagePalette>(paletted.Get(), qel::iid::IQELImagePalette));
    const RGBQUAD entries[3] = {{1, 2, 3, 0}, {4, 5, 6, 0}, {7, 8, 9, 0}};
    ASSERT_EQ(paletted->SetPalette(entries, 3), QEL_OK);
    ASSERT_EQ(target->Assign(paletted.Get(), 0), QEL_OK);
    SmartPtr<IQELImagePalette> palette = QueryAs<IQELImagePalette>(target.Get(), qel::iid::IQELImagePalette);
    ASSERT_TRUE(palette);
    RGBQUAD* got = nullptr;
    unsigned count = 0;
    ASSERT_EQ(palette->GetPalette(&got, &count), QEL_OK);
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(got[2].rgbRed, 9);
    ASSERT_EQ(target->Assign(TestHost().NewImage(2, 1, 8, QEL_MODEL_MONO).Get(), 0), QEL_OK);
    EXPECT_FALSE(QueryAs<IQELImagePalette>(target.Get(), qel::iid::IQELImagePalette)) << "and leaves with it";
    ASSERT_EQ(target->Assign(paletted.Get(), 0), QEL_OK);
    EXPECT_EQ(paletted->SetPalette(entries, 257), QEL_E_INVALIDARG);
    EXPECT_EQ(paletted->SetPalette(nullptr, 2), QEL_E_POINTER);
    EXPECT_EQ(paletted->SetPalette(nullptr, 0), QEL_OK);
    EXPECT_FALSE(QueryAs<IQELImagePalette>(paletted.Get(), qel::iid::IQELImagePalette));

    EXPECT_EQ(target->Assign(target.Get(), 0), QEL_OK) << "assigning to itself changes nothing";
    EXPECT_EQ(qel::PixelsOf(target.Get()).width, 2);
}

// Assign, Create and CreateUninitialised over an image of the same geometry
// reuse its block: what it held before must not show through.
TEST(ImageDIB, SameGeometryAssignAndCreateReuseTheBlockWithNothingShowingThrough) {
    for (const int bitCount : {1, 4, 8, 16, 24, 32}) {
        // Width 5 leaves row padding at every depth but 32, and a bottom-up
        // source with its own padding checks the row walk.
        BufferImage* raw = BufferImage::Make(5, 3, bitCount, QEL_MODEL_BGR, 7, true, 2);
        SmartPtr<IQELImageDIB> source(raw);
        raw->FillRandom(static_cast<uint32_t>(bitCount));

        SmartPtr<IQELImageDIB> reused = TestHost().NewImage(5, 3, bitCount, QEL_MODEL_MONO, 2);
        unsigned char* before = qel::PixelsOf(reused.Get()).bits;
        const size_t stride = static_cast<size_t>(qel::PixelsOf(reused.Get()).stride),
                     bytes = 3 * stride + 16, rowBytes = (5 * bitCount + 7) / 8;
        auto Dirty = [&] {  // old content, padding and slack
            for (int plane = 0; plane < 2; ++plane) std::memset(PlaneBits(reused.Get(), plane), 0xA5, bytes);
        };
        // Both planes of the same block, in `model`: `pixel` in the rows' pixel bytes, zero elsewhere.
        auto ExpectBlock = [&](unsigned model, const std::function<int(int, size_t)>& pixel) {
            ASSERT_EQ(qel::PixelsOf(reused.Get()).bits, before) << "the block is kept";
            EXPECT_EQ(qel::PixelsOf(reused.Get()).colourModel, model);
            for (int plane = 0; plane < 2; ++plane)
                for (size_t i = 0; i < bytes; ++i) {
                    const bool pixelByte = i < bytes - 16 && i % stride < rowBytes;
                    ASSERT_EQ(PlaneBits(reused.Get(), plane)[i], pixelByte ? pixel(plane, i) : 0)
                        << bitCount << " bits, model " << model << ", plane " << plane << ", byte " << i;
                }
        };
        Dirty();
        ASSERT_EQ(reused->Assign(source.Get(), 0), QEL_OK);
        ExpectBlock(QEL_MODEL_BGR, [&](int plane, size_t i) {
            return raw->Row(static_cast<int>(i / stride), plane)[i % stride];
        });

        // For callers that write every row byte themselves: the pixel bytes
        // are kept, while row padding and slack are zero again.
        SmartPtr<IQELImageUninitialised> uninitialised =
            QueryAs<IQELImageUninitialised>(reused.Get(), qel::iid::IQELImageUninitialised);
        ASSERT_TRUE(uninitialised);
        Dirty();
        ASSERT_EQ(uninitialised->CreateUninitialised(5, 3, 2, bitCount, QEL_MODEL_ARGB), QEL_OK);
        ExpectBlock(QEL_MODEL_ARGB, [](int, size_t) { return 0xA5; });
        EXPECT_EQ(uninitialised->CreateUninitialised(-1, 3, 2, bitCount, QEL_MODEL_ARGB), QEL_E_INVALIDARG);

        // Create clears everything and takes the new model.
        Dirty();
        ASSERT_EQ(reused->Create(5, 3, 2, bitCount, QEL_MODEL_BGR), QEL_OK);
        ExpectBlock(QEL_MODEL_BGR, [](int, size_t) { return 0; });
    }
}

// Large images take blocks that earlier images gave back: Create still hands
// out zeros, and CreateUninitialised still clears padding and slack.
TEST(ImageDIB, LargeImagesOnReusedBlocksKeepWhatCreatePromises) {
    // 1001 pixels of 24 bits: 3003 bytes and one of padding per row, 1.2 MB.
    const int width = 1001, height = 400, stride = 3004;
    const size_t bytes = static_cast<size_t>(stride) * height + 16;
    SmartPtr<IQELImageDIB> previous = TestHost().NewImage(width, height, 24, QEL_MODEL_BGR);
    unsigned char* const dirty = qel::PixelsOf(previous.Get()).bits;
    std::memset(dirty, 0xA5, bytes);
    previous.Reset();
    SmartPtr<IQELImageDIB> zeroed = TestHost().NewImage(width, height, 24, QEL_MODEL_BGR);
    ASSERT_EQ(qel::PixelsOf(zeroed.Get()).bits, dirty) << "the block given back is taken again";
    for (size_t n = 0; n < bytes; ++n) ASSERT_EQ(dirty[n], 0) << "byte " << n;
    std::memset(dirty, 0xA5, bytes);
    zeroed.Reset();

    SmartPtr<IQELImageDIB> raw = TestHost().NewImage();
    SmartPtr<IQELImageUninitialised> uninitialised =
        QueryAs<IQELImageUninitialised>(raw.Get(), qel::iid::IQELImageUninitialised);
    ASSERT_EQ(uninitialised->CreateUninitialised(width, height, 1, 24, QEL_MODEL_BGR), QEL_OK);
    const qel::Pixels p = qel::PixelsOf(raw.Get());
    ASSERT_EQ(p.bits, dirty);
    for (int y = 0; y < height; ++y) ASSERT_EQ(p.Row(y)[3003], 0) << "padding of row " << y;
    for (size_t n = bytes - 16; n < bytes; ++n) ASSERT_EQ(p.bits[n], 0) << "slack byte " << n;
}

// Assign from another runtime image hands its pixel block over without a
// copy; whichever image then asks for its bits gets a block of its own, and
// whatever one image does to its block leaves the other's alone.
TEST(ImageDIBSharing, AssignedImagesStayIndependent) {
    SmartPtr<IQELImageDIB> source = TestHost().NewImage(5, 3, 24, QEL_MODEL_BGR, 2),
                           target = TestHost().NewImage(9, 9, 8, QEL_MODEL_MONO);
    unsigned char* sourceBits = qel::PixelsOf(source.Get()).bits;
    for (int i = 0; i < 3 * 16; ++i) sourceBits[i] = static_cast<unsigned char>(i + 1);

    ASSERT_EQ(target->Assign(source.Get(), 0), QEL_OK);
    const qel::Pixels got = qel::PixelsOf(target.Get());
    EXPECT_EQ(SizeAndFormat(target.Get()), std::vector<int>({5, 3, 24, QEL_MODEL_BGR}));
    EXPECT_NE(got.bits, sourceBits) << "the target asked for its bits while the source still holds them";
    EXPECT_EQ(PixelBytes(target.Get()), PixelBytes(source.Get()));
    EXPECT_EQ(got.bits[3 * 16 + 5], 0) << "slack after the copied rows";

    // Writes through either image's bits reach that image only, on every plane.
    got.bits[0] = 200;
    EXPECT_EQ(qel::PixelsOf(source.Get()).bits[0], 1);
    ASSERT_EQ(source->Fill(0x00070809), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(target.Get()).bits[1], 2);
    ASSERT_NE(PlaneBits(target.Get(), 1), nullptr);
    EXPECT_NE(PlaneBits(target.Get(), 1), PlaneBits(source.Get(), 1));

    // A temporary's block passes to the image assigned from it, the last holder.
    SmartPtr<IQELImageDIB> result = TestHost().NewImage(4, 2, 32, QEL_MODEL_ARGB);
    unsigned char* resultBits = qel::PixelsOf(result.Get()).bits;
    resultBits[7] = 99;
    ASSERT_EQ(target->Assign(result.Get(), 0), QEL_OK);
    result.Reset();
    EXPECT_EQ(qel::PixelsOf(target.Get()).bits, resultBits) << "the last holder keeps the block itself";
    EXPECT_EQ(qel::PixelsOf(target.Get()).bits[7], 99);

    // Create and Clear on a sharing image leave the other image's pixels alone.
    ASSERT_EQ(source->Assign(target.Get(), 0), QEL_OK);
    ASSERT_EQ(source->Create(4, 2, 1, 32, QEL_MODEL_ARGB), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(source.Get()).bits[7], 0) << "a cleared block of its own";
    EXPECT_EQ(qel::PixelsOf(target.Get()).bits[7], 99);
    ASSERT_EQ(source->Assign(target.Get(), 0), QEL_OK);
    ASSERT_EQ(source->Clear(), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(target.Get()).bits[7], 99);
    EXPECT_EQ(qel::PixelsOf(source.Get()).bits, nullptr);
}

// Threads that only read an image may ask for its bits at the same time,
// also while its block is shared and is being copied for one of them.
TEST(ImageDIBSharing, ReadersOnSeveralThreadsAgreeOnTheBits) {
    for (int round = 0; round < 50; ++round) {
        SmartPtr<IQELImageDIB> source = TestHost().NewImage(64, 64, 24, QEL_MODEL_BGR),
                               reader = TestHost().NewImage();
        qel::PixelsOf(source.Get()).bits[100] = 7;
        ASSERT_EQ(reader->Assign(source.Get(), 0), QEL_OK);
        std::atomic<unsigned char*> seen[4] = {};
        std::vector<std::thread> threads;
        for (auto& slot : seen) threads.emplace_back([&reader, &slot] { slot = PlaneBits(reader.Get(), 0); });
        for (std::thread& thread : threads) thread.join();
        for (auto& slot : seen) {
            EXPECT_EQ(slot.load(), seen[0].load());
            EXPECT_EQ(slot.load()[100], 7);
        }
    }
}

// The collection makes components by name and finds none for an unknown
// name. Its road from a string to a locator to an image is the one the
// module's own image creation takes (tests/host_services_test.cpp).
TEST(RuntimeCollection, CreatesComponentsByNameAndRefusesUnknownNames) {
    IComponentCollection* collection = TestHost().Collection();
    SmartPtr<IQELMaths> maths;
    SmartPtr<IUnknown> none;
    EXPECT_EQ(collection->CreateComponent(qel::REF(L"QELMaths"), &qel::iid::IQELMaths, maths.OutVoid()),
              QEL_OK);
    EXPECT_TRUE(maths);
    EXPECT_EQ(collection->CreateComponent(qel::REF(L"Nothing"), &qel::iid::IUnknown, none.OutVoid()),
              QEL_E_FAIL);
    EXPECT_FALSE(none);

    SmartPtr<ICreatableString> text;
    ASSERT_EQ(collection->CreateComponent(qel::REF(L"CreatableString"), &qel::iid::ICreatableString,
                                          text.OutVoid()),
              QEL_OK);
    text->SetString(qel::REF(L"NoSuchComponent"));
    int index = -1;
    EXPECT_LT(collection->FindItem(text.Get(), &index), 0);
    EXPECT_EQ(index, -1);
}

}  // namespace
