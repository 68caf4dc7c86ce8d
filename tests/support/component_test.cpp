// Helpers shared by the component tests.
#include "support/component_test.h"

#include <cstdlib>

#include "filter/filter_transform.h"
#include "transform/image_transform.h"

namespace qeltest {

namespace {

// One component of each interface, created through the host on first use.
template <class Interface>
Interface* Hosted(const wchar_t* name, const IID& iid) {
    static SmartPtr<Interface> component = TestHost().Create<Interface>(name, iid);
    return component.Get();
}
// One instance of a linked class, made directly rather than through the host.
template <class Class, class Interface>
Class* Linked(const IID& iid) {
    static SmartPtr<Interface> made;
    if (!made) Class::_CreateInstance(nullptr, &iid, made.OutVoid());
    return static_cast<Class*>(made.Get());
}

}  // namespace

IQELMaths* Maths() { return Hosted<IQELMaths>(L"QELMaths", qel::iid::IQELMaths); }
IQELFilterTransform* Filters() {
    return Hosted<IQELFilterTransform>(L"QELFilterTransform", qel::iid::IQELFilterTransform);
}
IQELTransform* Transform() { return Hosted<IQELTransform>(L"QELTransform", qel::iid::IQELTransform); }
IQELColorTransform* Colours() {
    return Hosted<IQELColorTransform>(L"QELColorTransform", qel::iid::IQELColorTransform);
}
IQELDeform* Deform() { return Hosted<IQELDeform>(L"QELDeform", qel::iid::IQELDeform); }
CQELImageTransform* TransformClass() { return Linked<CQELImageTransform, IQELTransform>(IID_IQELTransform); }
CQELFilterTransform* FilterClass() {
    return Linked<CQELFilterTransform, IQELFilterTransform>(IID_IQELFilterTransform);
}

QResult PointMap::QueryInterface(const IID&, void** object) {
    *object = nullptr;
    return QEL_E_NOINTERFACE;
}
QResult PointMap::TransformPoint(double* x, double* y, double* z) {
    EXPECT_EQ(*z, 0.0);
    map(*x, *y);
    return QEL_OK;
}

unsigned ModelFor(int bitCount) {
    return bitCount == 32 ? QEL_MODEL_ARGB : bitCount >= 24 ? QEL_MODEL_BGR : QEL_MODEL_MONO;
}

SmartPtr<BufferImage> ImageOf(int width, int height, int bitCount, unsigned model, const Bytes& bytes,
                              int padding, bool bottomUp, int planes) {
    SmartPtr<BufferImage> image(BufferImage::Make(width, height, bitCount, model, padding, bottomUp, planes));
    image->FillRandom(static_cast<uint32_t>(width * 131 + height * 7 + bitCount));
    SetPixelBytes(image.Get(), bytes);
    return image;
}

SmartPtr<BufferImage> Random(int width, int height, int bitCount, uint32_t seed, int padding, bool bottomUp,
                             unsigned char keep) {
    SmartPtr<BufferImage> image(
        BufferImage::Make(width, height, bitCount, ModelFor(bitCount), padding, bottomUp));
    image->FillRandom(seed);
    for (int y = 0; y < height && keep != 0xFF; ++y)
        for (int n = 0; n < std::abs(image->Stride()); ++n) image->Row(y)[n] &= keep;
    return image;
}

SmartPtr<BufferImage> Uniform(int width, int height, int bitCount, uint32_t colour, int padding) {
    SmartPtr<BufferImage> image(BufferImage::Make(width, height, bitCount, ModelFor(bitCount), padding));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) PutColour(image.Get(), x, y, colour);
    return image;
}

uint32_t ColourAt(IQEL* image, int x, int y) {
    const qel::Pixels p = qel::PixelsOf(image);
    return GetPixelColor(p.bits, x, y, p.width, p.height, p.stride, p.bitCount);
}
void PutColour(IQEL* image, int x, int y, uint32_t colour) {
    const qel::Pixels p = qel::PixelsOf(image);
    SetPixelColor(p.bits, x, y, p.width, p.height, p.stride, colour, p.bitCount);
}

Bytes Ints(std::initializer_list<int32_t> values) {
    Bytes bytes;
    for (const int32_t v : values)
        for (int k = 0; k < 4; ++k)
            bytes.push_back(static_cast<unsigned char>(static_cast<uint32_t>(v) >> (8 * k)));
    return bytes;
}

Bytes PaddingOf(BufferImage* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    Bytes bytes;
    for (int y = 0; y < p.height; ++y)
        bytes.insert(bytes.end(), image->Row(y) + p.RowBytes(), image->Row(y) + std::abs(p.stride));
    return bytes;
}

int NearestGreyByWalk(int blue, int green, int red) {
    int best = 0, bestDistance = 200000;
    for (int i = 0; i < 256; ++i) {
        const int distance = (i - blue) * (i - blue) + (i - green) * (i - green) + (i - red) * (i - red);
        if (distance == 0) return i;
        if (distance < bestDistance) best = i, bestDistance = distance;
    }
    return best;
}

void ExpectPixels(BufferImage* image, const Bytes& expected) {
    const size_t rowBytes = qel::PixelsOf(image).RowBytes();
    const Bytes actual = PixelBytes(image);
    EXPECT_EQ(actual, expected) << "got\n"
                                << HexRows(actual, rowBytes) << "expected\n"
                                << HexRows(expected, rowBytes);
    EXPECT_TRUE(image->GuardsIntact());
}

SmartPtr<IQELImageDIB> HostImage(int width, int height, int bitCount, const Bytes& bytes) {
    SmartPtr<IQELImageDIB> image = TestHost().NewImage(width, height, bitCount, ModelFor(bitCount));
    if (!bytes.empty()) SetPixelBytes(image.Get(), bytes);
    return image;
}

SmartPtr<IQELImageDIB> Positions(int width, int height, int bitCount) {
    SmartPtr<IQELImageDIB> image = HostImage(width, height, bitCount, {});
    const qel::Pixels p = qel::PixelsOf(image.Get());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            unsigned char* px = p.Row(y) + x * (bitCount / 8);
            px[0] = static_cast<unsigned char>(x), px[1] = static_cast<unsigned char>(y), px[2] = 200;
            if (bitCount == 32) px[3] = 9;
        }
    return image;
}

std::vector<int> SizeAndFormat(IQEL* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    return {p.width, p.height, p.bitCount, static_cast<int>(p.colourModel)};
}

Bytes PixelOf(IQEL* image, int x, int y) {
    const qel::Pixels p = qel::PixelsOf(image);
    const int n = p.bitCount / 8;
    return Bytes(p.Row(y) + x * n, p.Row(y) + x * n + n);
}

}  // namespace qeltest
