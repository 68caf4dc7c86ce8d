// Destination creation and result handover shared by every filter.
#include "filter/filter_common.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "module/host_services.h"
#include "module/iids.h"

QResult MakeFilterTarget(IQEL* source, DestinationRoad road, Writes writes, FilterTarget* target) {
    target->source = ReadImageView(source);
    const Writes overwrite = writes == Writes::EveryPixel && HasDirectKind(target->source)
                                 ? Writes::EveryPixel
                                 : Writes::SomePixels;
    Destination made = MakeDestination(ShapeOf(target->source), road, overwrite);
    if (!made.image) return QEL_E_FAIL;
    target->image = std::move(made.image);
    target->destination = made.view;
    target->writable = made.writable;
    return QEL_OK;
}

void FillOutsideRow(const ImageView& view, int bytes, unsigned char* row) {
    const uint32_t outside = OutsideColour(view);
    const unsigned char channels[4] = {
        static_cast<unsigned char>(BlueOf(outside)), static_cast<unsigned char>(GreenOf(outside)),
        static_cast<unsigned char>(RedOf(outside)), static_cast<unsigned char>(AlphaOf(outside))};
    // One pixel, then the filled part copied after itself until the row is full.
    const size_t lanes = static_cast<size_t>(view.width) * bytes;
    std::memcpy(row, channels, static_cast<size_t>(bytes));
    for (size_t filled = static_cast<size_t>(bytes); filled < lanes; filled *= 2)
        std::memcpy(row + filled, row, std::min(filled, lanes - filled));
}

QResult HandOverResult(IQEL* source, SmartPtr<IQELImage>* image, IQEL** result) {
    if (result != nullptr) {
        *result = image->Detach();
        return QEL_OK;
    }
    SmartPtr<IQELImage> sourceImage = QueryAs<IQELImage>(source, IID_IQELImage);
    if (sourceImage) sourceImage->Assign(image->Get(), 0);
    image->Reset();
    return QEL_OK;
}
