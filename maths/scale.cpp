// Scale and Scale8: v = sample * factor + offset into another depth.
//
//   source            destination       computed                        clamp
//   32 "MONO"         8 / 24 / 32 other integer to byte(s)              0..255
//   32 "MONO"         32 "MONO"         integer to integer              below only
//   32 other          8 / 24            grey / bytes 0..2               0..255
//   32 other          32                every byte, alpha too           below, low 8 bits
//   24 (not "MONO")   8 / 24            grey / every byte               0..255
//   24 (not "MONO")   32                first pixel of each row only    below, low 8 bits
//   8                 8 / 24            byte(s), mask at 8 -> 8         0..255
//   8                 32 "MONO"         source read as 32-bit integers  below only
#include "maths/maths.h"
#include "maths/maths_kernels.h"

namespace {

// Start of row y when rows are addressed in 32-bit units: the byte stride is
// first cut to whole 32-bit words (signed division).
inline ptrdiff_t WordRowStep(int stride) { return 4 * static_cast<ptrdiff_t>(stride / 4); }

struct SampleMap {
    float factor;
    float offset;
    unsigned char Byte(float s) const { return ClampFloatToByte(s * factor + offset); }
    // Lower clamp only, keeping the low 8 bits: values above 255 wrap (deliberately).
    unsigned char WrappedByte(float s) const {
        return static_cast<unsigned char>(ClampBelowToInt32(s * factor + offset));
    }
    int32_t Integer(float s) const { return ClampBelowToInt32(s * factor + offset); }
};

// Integers of a 32-bit source to bytes 0..Channels-1 of DestBytes-byte pixels.
template <int DestBytes, int Channels>
void MonoToBytesRow(unsigned char* out, const unsigned char* in, int width, const SampleMap& map) {
    for (int x = 0; x < width; ++x) {
        const unsigned char v = map.Byte(static_cast<float>(LoadInt32(in + 4 * x)));
        for (int k = 0; k < Channels; ++k) out[DestBytes * x + k] = v;
    }
}

void IntegersRow(unsigned char* out, const unsigned char* in, int width, const SampleMap& map) {
    for (int x = 0; x < width; ++x)
        StoreInt32(out + 4 * x, map.Integer(static_cast<float>(LoadInt32(in + 4 * x))));
}

// Grey of bytes 0..2 of SourceBytes-byte pixels; `map.factor` is already divided by 3.
template <int SourceBytes>
void GreyRow(unsigned char* out, const unsigned char* in, int width, const SampleMap& map) {
    for (int x = 0; x < width; ++x) {
        const unsigned char* pixel = in + SourceBytes * x;
        const float sum =
            (static_cast<float>(pixel[0]) + static_cast<float>(pixel[1])) + static_cast<float>(pixel[2]);
        out[x] = map.Byte(sum);
    }
}

// Bytes 0..2 of SourceBytes-byte pixels to DestBytes-byte pixels.
template <int SourceBytes, int DestBytes>
void ChannelsRow(unsigned char* out, const unsigned char* in, int width, const SampleMap& map) {
    for (int x = 0; x < width; ++x)
        for (int k = 0; k < 3; ++k)
            out[DestBytes * x + k] = map.Byte(static_cast<float>(in[SourceBytes * x + k]));
}

template <bool Wrapped>
void EveryByteRow(unsigned char* out, const unsigned char* in, size_t count, const SampleMap& map) {
    for (size_t i = 0; i < count; ++i)
        out[i] = Wrapped ? map.WrappedByte(static_cast<float>(in[i])) : map.Byte(static_cast<float>(in[i]));
}

void MaskedBytesRow(unsigned char* out, const unsigned char* in, const unsigned char* mask, int width,
                    const SampleMap& map) {
    for (int x = 0; x < width; ++x) out[x] = mask[x] != 0 ? map.Byte(static_cast<float>(in[x])) : out[x];
}

void GreyToBGRRow(unsigned char* out, const unsigned char* in, int width, const SampleMap& map) {
    for (int x = 0; x < width; ++x) {
        const unsigned char v = map.Byte(static_cast<float>(in[x]));
        out[3 * x] = v;
        out[3 * x + 1] = v;
        out[3 * x + 2] = v;
    }
}

// Bytes a row of each case reads from the source and writes to the destination.
struct RowBytes {
    size_t source;
    size_t dest;
};
RowBytes RowBytesOf(ScaleCase scaleCase, size_t w) {
    switch (scaleCase) {
        case ScaleCase::kMonoToGrey:
            return {4 * w, w};
        case ScaleCase::kMonoToBGR:
            return {4 * w, 3 * w};
        case ScaleCase::kMonoToMono:
            return {4 * w, 4 * w};
        case ScaleCase::kMonoToBGRA:
            return {4 * w, 4 * w};
        case ScaleCase::kBGRAToGrey:
            return {4 * w, w};
        case ScaleCase::kBGRAToBGR:
            return {4 * w, 3 * w};
        case ScaleCase::kBGRAToBGRA:
            return {4 * w, 4 * w};
        case ScaleCase::kBGRToGrey:
            return {3 * w, w};
        case ScaleCase::kBGRToBGR:
            return {3 * w, 3 * w};
        case ScaleCase::kBGRToBGRAFirst:
            return {3, 3};
        case ScaleCase::kGreyToGrey:
            return {w, w};
        case ScaleCase::kGreyToBGR:
            return {w, 3 * w};
        case ScaleCase::kGreyToMono:
            return {4 * w, 4 * w};
        case ScaleCase::kUnsupported:
            break;
    }
    return {0, 0};
}

}  // namespace

ScaleCase ChooseScaleCase(const ImageInfo& source, const ImageInfo& dest) {
    const bool sourceMono = source.colourModel == QEL_MODEL_MONO;
    const bool destMono = dest.colourModel == QEL_MODEL_MONO;
    switch (source.bitCount) {
        case 32:
            if (sourceMono) {
                if (dest.bitCount == 8) return ScaleCase::kMonoToGrey;
                if (dest.bitCount == 24) return ScaleCase::kMonoToBGR;
                if (dest.bitCount == 32) return destMono ? ScaleCase::kMonoToMono : ScaleCase::kMonoToBGRA;
                return ScaleCase::kUnsupported;
            }
            if (dest.bitCount == 8) return ScaleCase::kBGRAToGrey;
            if (dest.bitCount == 24) return ScaleCase::kBGRAToBGR;
            if (dest.bitCount == 32) return ScaleCase::kBGRAToBGRA;
            return ScaleCase::kUnsupported;
        case 24:
            if (sourceMono) return ScaleCase::kUnsupported;
            if (dest.bitCount == 8) return ScaleCase::kBGRToGrey;
            if (dest.bitCount == 24) return ScaleCase::kBGRToBGR;
            if (dest.bitCount == 32) return ScaleCase::kBGRToBGRAFirst;
            return ScaleCase::kUnsupported;
        case 8:
            if (dest.bitCount == 8) return ScaleCase::kGreyToGrey;
            if (dest.bitCount == 24) return ScaleCase::kGreyToBGR;
            if (dest.bitCount == 32 && destMono) return ScaleCase::kGreyToMono;
            return ScaleCase::kUnsupported;
        default:
            return ScaleCase::kUnsupported;
    }
}

void ScaleRows(ScaleCase scaleCase, const MathsPlane& dest, const MathsPlane& source, const MathsPlane* mask,
               int width, int height, float factor, float offset, RowStage& stage) {
    if (scaleCase == ScaleCase::kUnsupported || width <= 0) return;
    MathsPlane from = source;
    MathsPlane to = dest;
    const bool sourceIntegers = scaleCase == ScaleCase::kMonoToGrey || scaleCase == ScaleCase::kMonoToBGR ||
                                scaleCase == ScaleCase::kMonoToMono || scaleCase == ScaleCase::kMonoToBGRA;
    if (sourceIntegers) from.step = WordRowStep(source.stride);
    if (scaleCase == ScaleCase::kMonoToMono || scaleCase == ScaleCase::kGreyToMono)
        to.step = WordRowStep(dest.stride);
    // An 8-bit source read as 32-bit integers, row r at 4 * r * stride: this
    // reaches far past the image, and what lies outside it reads as 0.
    if (scaleCase == ScaleCase::kGreyToMono) from.step = 4 * static_cast<ptrdiff_t>(source.stride);

    const bool greyFromColour = scaleCase == ScaleCase::kBGRAToGrey || scaleCase == ScaleCase::kBGRToGrey;
    const SampleMap map{greyFromColour ? factor / 3.0f : factor, offset};
    const RowBytes bytes = RowBytesOf(scaleCase, static_cast<size_t>(width));
    const RowSpan maskSpan = (scaleCase == ScaleCase::kGreyToGrey && mask != nullptr)
                                 ? RowSpan{mask, static_cast<size_t>(width)}
                                 : RowSpan{};
    WalkRows(
        stage, height, {&to, bytes.dest}, {&from, bytes.source}, {}, maskSpan,
        [&](unsigned char* out, const unsigned char* in, const unsigned char*, const unsigned char* rowMask) {
            switch (scaleCase) {
                case ScaleCase::kMonoToGrey:
                    MonoToBytesRow<1, 1>(out, in, width, map);
                    break;
                case ScaleCase::kMonoToBGR:
                    MonoToBytesRow<3, 3>(out, in, width, map);
                    break;
                case ScaleCase::kMonoToBGRA:
                    MonoToBytesRow<4, 3>(out, in, width, map);
                    break;
                case ScaleCase::kMonoToMono:
                case ScaleCase::kGreyToMono:
                    IntegersRow(out, in, width, map);
                    break;
                case ScaleCase::kBGRAToGrey:
                    GreyRow<4>(out, in, width, map);
                    break;
                case ScaleCase::kBGRToGrey:
                    GreyRow<3>(out, in, width, map);
                    break;
                case ScaleCase::kBGRAToBGR:
                    ChannelsRow<4, 3>(out, in, width, map);
                    break;
                case ScaleCase::kBGRAToBGRA:
                    EveryByteRow<true>(out, in, bytes.dest, map);
                    break;
                case ScaleCase::kBGRToBGR:
                    EveryByteRow<false>(out, in, bytes.dest, map);
                    break;
                case ScaleCase::kBGRToBGRAFirst:
                    EveryByteRow<true>(out, in, 3, map);
                    break;
                case ScaleCase::kGreyToGrey:
                    if (rowMask != nullptr)
                        MaskedBytesRow(out, in, rowMask, width, map);
                    else
                        EveryByteRow<false>(out, in, bytes.dest, map);
                    break;
                case ScaleCase::kGreyToBGR:
                    GreyToBGRRow(out, in, width, map);
                    break;
                case ScaleCase::kUnsupported:
                    break;
            }
        });
}

void Scale8Rows(const MathsPlane& dest, const MathsPlane& source, int width, int height, int sourceBitCount,
                int offset, double factor, RowStage& stage) {
    const int sampleBytes = sourceBitCount / 8;
    if (width <= 0 || sampleBytes <= 0) return;
    // The stride is cut to samples by unsigned 32-bit division and row y
    // starts 4 * y * samples bytes in, computed in 32-bit arithmetic (so a
    // negative stride of whole words still steps back one row at a time),
    // whatever the source's bit count; rows that land outside the source read as 0.
    const uint32_t samplesPerRow = static_cast<uint32_t>(source.stride) / static_cast<uint32_t>(sampleBytes);
    const size_t pixels = static_cast<size_t>(width);
    for (int y = 0; y < height; ++y) {
        const auto rowBytes = static_cast<int32_t>(4u * static_cast<uint32_t>(y) * samplesPerRow);
        const ptrdiff_t sourceOffset = rowBytes;
        const unsigned char* in = stage.Read(RowStage::kFirstSource, source, sourceOffset, 4 * pixels);
        const ptrdiff_t destOffset = dest.RowOffset(y);
        unsigned char* out = stage.BeginWrite(RowStage::kDest, dest, destOffset, pixels);
        if (in != nullptr && out != nullptr) {
            for (size_t x = 0; x < pixels; ++x) {
                const int32_t scaled = TruncateToInt32(static_cast<double>(LoadInt32(in + 4 * x)) * factor);
                // 32-bit integer sum, clamped after the addition.
                const auto sum =
                    static_cast<int32_t>(static_cast<uint32_t>(scaled) + static_cast<uint32_t>(offset));
                out[x] = ClampToByte(sum);
            }
        }
        stage.EndWrite(RowStage::kDest, dest, destOffset, pixels);
    }
}

QResult CQELMaths::Scale(IQEL* dest, IQEL* source, IQEL* mask, float factor, float offset) {
    if (dest == nullptr || source == nullptr) return QEL_E_FAIL;
    ImageInfo infoSource, infoDest;
    ReadFormat(source, &infoSource);
    ReadFormat(dest, &infoDest);
    ReadSize(source, &infoSource);
    ReadSize(dest, &infoDest);
    const int width = UnsignedMin(infoSource.width, infoDest.width);
    const int height = UnsignedMin(infoSource.height, infoDest.height);
    const ScaleCase scaleCase = ChooseScaleCase(infoSource, infoDest);
    if (scaleCase == ScaleCase::kUnsupported) return QEL_E_FAIL;

    // 8 to 8 works on plane 0 only, masked or not.
    const int planes =
        scaleCase == ScaleCase::kGreyToGrey ? (infoSource.planes > 0 ? 1 : 0) : infoSource.planes;
    RowStage stage;
    for (int p = 0; p < planes; ++p) {
        const MathsPlane planeSource = GetPlane(source, p, infoSource);
        const MathsPlane planeDest = GetPlane(dest, p, infoDest);
        MathsPlane planeMask;
        const bool masked = scaleCase == ScaleCase::kGreyToGrey && mask != nullptr;
        if (masked) {
            ImageInfo infoMask;
            ReadInfo(mask, &infoMask);
            planeMask = GetPlane(mask, 0, infoMask);
        }
        if (planeSource.bits == nullptr || planeDest.bits == nullptr) continue;
        ScaleRows(scaleCase, planeDest, planeSource, masked ? &planeMask : nullptr, width, height, factor,
                  offset, stage);
    }
    return stage.Failed() ? QEL_E_OUTOFMEMORY : QEL_OK;
}

QResult CQELMaths::Scale8(IQELImage* dest, IQEL* source, int offset, double factor) {
    if (dest == nullptr || source == nullptr) return QEL_E_FAIL;
    ImageInfo infoSource;
    ReadFormat(source, &infoSource);
    if (infoSource.colourModel != QEL_MODEL_MONO) return QEL_E_NOT_MONO;
    ReadSize(source, &infoSource);
    dest->Create(infoSource.width, infoSource.height, infoSource.planes, 8, QEL_MODEL_MONO);
    // An 8-bit source leaves the new image as Create made it, deliberately.
    if (infoSource.bitCount == 8) return QEL_OK;
    ImageInfo infoDest;
    ReadInfo(dest, &infoDest);
    const int width = UnsignedMin(infoSource.width, infoDest.width);
    const int height = UnsignedMin(infoSource.height, infoDest.height);
    RowStage stage;
    for (int p = 0; p < infoSource.planes; ++p) {
        const MathsPlane planeSource = GetPlane(source, p, infoSource);
        const MathsPlane planeDest = GetPlane(dest, p, infoDest);
        if (planeSource.bits == nullptr || planeDest.bits == nullptr) continue;
        Scale8Rows(planeDest, planeSource, width, height, infoSource.bitCount, offset, factor, stage);
    }
    return stage.Failed() ? QEL_E_OUTOFMEMORY : QEL_OK;
}
