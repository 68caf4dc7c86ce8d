// Mirror of 24-bit rows, whose four-pixel vector steps store past the step:
// every width from 1 to 40, padded and bottom-up sources, each output pixel
// the source pixel at the other end of its row.
#include <gtest/gtest.h>

#include <vector>

#include "support/component_test.h"

namespace {

using namespace qeltest;

TEST(MirrorVectorRows, EveryWidthReversesItsPixels) {
    uint32_t seed = 11;
    for (int width = 1; width <= 40; ++width) {
        const int height = 1 + width % 3;
        BufferImage* source =
            BufferImage::Make(width, height, 24, QEL_MODEL_BGR, static_cast<int>(seed % 4), (seed & 1) != 0);
        source->FillRandom(seed++);
        SmartPtr<IQEL> mirrored;
        ASSERT_EQ(Transform()->Mirror(source, mirrored.Out()), QEL_OK);
        const qel::Pixels out = qel::PixelsOf(mirrored.Get());
        for (int y = 0; y < height; ++y) {
            std::vector<unsigned char> expected, actual(out.Row(y), out.Row(y) + 3 * width);
            for (int x = width - 1; x >= 0; --x)
                expected.insert(expected.end(), source->Row(y) + 3 * x, source->Row(y) + 3 * x + 3);
            ASSERT_EQ(actual, expected) << "width " << width << " row " << y;
        }
        EXPECT_TRUE(source->GuardsIntact());
        source->Release();
    }
}

}  // namespace
