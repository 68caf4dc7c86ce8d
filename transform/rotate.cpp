// Rotate and RotatePaste: turning an image by any angle through the shared sampler.
#include <cmath>
#include <cstdint>

#include "image/destination.h"
#include "image/image_view.h"
#include "module/host_services.h"
#include "transform/image_transform.h"
#include "transform/rotate_drawing.h"

QResult CQELImageTransform::Rotate(IQEL* source, IQEL** result, int angle, int method, int forceAlpha,
                                   int keepSize) {
    if (source == nullptr) return QEL_E_FAIL;
    if (result == nullptr) return QEL_E_POINTER;
    if (angle == 0) {
        source->AddRef();
        *result = source;
        return QEL_OK;
    }
    if (angle == -90) angle = 270;
    if (angle == 90 || angle == 180 || angle == 270) {
        SmartPtr<IQELImageDIB> turned = NewImageDIB();
        if (!turned) return QEL_E_FAIL;
        const QResult rotated = Rotate4(source, turned.Get(), angle);
        *result = turned.Detach();
        return rotated;
    }

    // Whole degrees, turned the other way in this frame.
    const float theta = -static_cast<float>(angle) * 1.5707964f / 90.0f;
    TurnMap turn;
    turn.cosine = static_cast<float>(std::cos(static_cast<double>(theta)));
    turn.sine = static_cast<float>(std::sin(static_cast<double>(theta)));

    const ImageView from = ReadImageView(source);
    const int outBitCount = forceAlpha != 0 ? 32 : from.bitCount;
    const unsigned int outModel = forceAlpha != 0 ? 0u : from.colourModel;
    TurnedFrame frame;
    if (keepSize != 0) {
        // The unturned rectangle, turned about its centre.
        frame.width = from.width;
        frame.height = from.height;
        frame.startX = -static_cast<float>(from.width) * 0.5f;
        frame.startY = -static_cast<float>(from.height) * 0.5f;
        turn.shiftX = static_cast<float>(frame.width) * 0.5f;
        turn.shiftY = static_cast<float>(frame.height) * 0.5f;
    } else {
        frame = TurnRectangle(from.width, from.height, turn.cosine, turn.sine);
    }
    turn.startX = frame.startX;
    turn.startY = frame.startY;

    Destination turned =
        MakeDestination(ImageShape{frame.width, frame.height, from.planes, outBitCount, outModel},
                        DestinationRoad::ImageDIB, Writes::SomePixels);
    if (!turned.image) return QEL_E_FAIL;
    if (turned.created >= 0) {  // a failed Create is handed over undrawn
        turned.dib->Fill(GetPixelColor(from.bits, 0, 0, from.width, from.height, from.stride, from.bitCount) |
                         0xFF000000u);
        if (const ImageView* canvas = turned.Canvas()) DrawRotated(from, *canvas, turn, method);
    }
    *result = turned.image.Detach();
    return QEL_OK;
}

QResult CQELImageTransform::RotatePaste(IQEL* source, IQEL* target, double angle, int method, int keyColour) {
    if (source == nullptr) return QEL_E_FAIL;
    if (target == nullptr) return QEL_E_POINTER;
    TurnMap turn;
    turn.cosine = static_cast<float>(std::cos(angle));
    turn.sine = static_cast<float>(std::sin(angle));
    const ImageView from = ReadImageView(source);
    const ImageView to = ReadImageView(target);
    // Pixels are written as 3 or 4 bytes: other target depths would be overrun.
    if (to.bitCount != 24 && to.bitCount != 32) return QEL_E_INVALIDARG;
    if (to.bits == nullptr) return QEL_OK;
    const TurnedFrame frame = TurnRectangle(from.width, from.height, turn.cosine, turn.sine);
    turn.startX = frame.startX;
    turn.startY = frame.startY;
    PasteRotated(from, to, turn, frame.width, frame.height, method, static_cast<uint32_t>(keyColour));
    return QEL_OK;
}
