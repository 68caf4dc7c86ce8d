// The five operation interfaces of the imaging module, in binding slot order.
// Every operation returns a result code; out-parameters are marked /*out*/.
#pragma once

#include "qel/image.h"

struct IQELColorTransform : IUnknown {
    virtual QResult Colorize(IQEL* image, unsigned char hue, unsigned char saturation,
                             float blend) = 0;                                // slot 3
    virtual QResult Lut(IQEL* image, unsigned char* table) = 0;               // slot 4
    virtual QResult Negative(IQEL* image) = 0;                                // slot 5
    virtual QResult GrayScale(IQEL* image) = 0;                               // slot 6
    virtual QResult ShiftRGB(IQEL* image, int red, int green, int blue) = 0;  // slot 7
    virtual QResult Gamma(IQEL* image, float gamma) = 0;                      // slot 8
    virtual QResult Light(IQEL* image, int brightness, int contrast) = 0;     // slot 9
    virtual QResult SetImageAlpha(IQEL* image, int alpha, int unused) = 0;    // slot 10
    virtual QResult SetImageAlphaTransparency(IQEL* image, int alpha,
                                              unsigned int keyColour) = 0;              // slot 11
    virtual QResult SetImageTransparentPixel(IQEL* image, unsigned int keyColour) = 0;  // slot 12
    virtual QResult Threshold(IQEL* image, int level) = 0;                              // slot 13

protected:
    ~IQELColorTransform() = default;
};

struct IQELTransform : IUnknown {
    virtual QResult Flip(IQEL* source, IQEL** result /*out*/) = 0;    // slot 3
    virtual QResult Mirror(IQEL* source, IQEL** result /*out*/) = 0;  // slot 4
    virtual QResult Rotate(IQEL* source, IQEL** result /*out*/, int angle, int method, int forceAlpha,
                           int keepSize) = 0;  // slot 5
    virtual QResult Skew(IQEL* source, IQEL** result /*out*/, float xGain, float yGain, int xPivot,
                         int yPivot, int reserved, int forceAlpha) = 0;  // slot 6
    virtual QResult Resample(IQEL* source, IQEL** result /*out*/, int newWidth, int newHeight, int method,
                             int nearestOnly) = 0;  // slot 7
    virtual QResult IncreaseBpp(IQEL* source, IQEL** result /*out*/, int bitCount,
                                unsigned int colourModel) = 0;  // slot 8
    virtual QResult RotatePaste(IQEL* source, IQEL* target, double angle, int method,
                                int keyColour) = 0;  // slot 9
    virtual QResult FlipBits(IQEL* image) = 0;       // slot 10
    virtual QResult Quad(IQEL* source, IQEL** result /*out*/, double x1, double y1, double x2, double y2,
                         double x3, double y3, double x4, double y4, unsigned int newWidth,
                         unsigned int newHeight, short blend) = 0;  // slot 11
    virtual QResult Transform(ITransform* transform, IQEL* source, IQEL** result /*out*/, int xOffset,
                              int yOffset, unsigned int newWidth, unsigned int newHeight, short unused1,
                              short unused2) = 0;  // slot 12
    virtual QResult TransformPaste(ITransform* transform, IQEL* source, IQEL* target, int xOffset,
                                   int yOffset, short fillVoids,
                                   short unused) = 0;   // slot 13
    virtual QResult FlipImageAndBits(IQEL* image) = 0;  // slot 14

protected:
    ~IQELTransform() = default;
};

struct IQELDeform : IUnknown {
    virtual QResult CircleTransform(IQEL* image, int mode, int withAlpha, float factor) = 0;  // slot 3

protected:
    ~IQELDeform() = default;
};

struct IQELFilterTransform : IUnknown {
    virtual QResult Erode(IQEL* image, int size, IQEL** result /*out*/) = 0;   // slot 3
    virtual QResult Edge(IQEL* image, int size, IQEL** result /*out*/) = 0;    // slot 4
    virtual QResult Dilate(IQEL* image, int size, IQEL** result /*out*/) = 0;  // slot 5
    virtual QResult Filter(IQEL* image, int* kernel, int size, int divisor, int offset,
                           IQEL** result /*out*/) = 0;                                // slot 6
    virtual QResult Contour(IQEL* image, IQEL** result /*out*/) = 0;                  // slot 7
    virtual QResult Jitter(IQEL* image, int amount, IQEL** result /*out*/) = 0;       // slot 8
    virtual QResult Noise(IQEL* image, int amount, IQEL** result /*out*/) = 0;        // slot 9
    virtual QResult Median(IQEL* image, int size, IQEL** result /*out*/) = 0;         // slot 10
    virtual QResult Emboss(IQEL* image, IQEL** result /*out*/) = 0;                   // slot 11
    virtual QResult Blur(IQEL* image, IQEL** result /*out*/) = 0;                     // slot 12
    virtual QResult Soften(IQEL* image, IQEL** result /*out*/) = 0;                   // slot 13
    virtual QResult Sharpen(IQEL* image, IQEL** result /*out*/) = 0;                  // slot 14
    virtual QResult GaussianBlur(IQEL* image, int level, IQEL** result /*out*/) = 0;  // slot 15

protected:
    ~IQELFilterTransform() = default;
};

struct IQELMaths : IUnknown {
    virtual QResult Equal(IQEL* image, IQEL* mask, int value) = 0;                 // slot 3
    virtual QResult Copy(IQEL* dest, IQEL* source, IQEL* mask, int x, int y) = 0;  // slot 4
    virtual QResult AddScale(IQEL* dest, IQEL* a, IQEL* b, IQEL* mask, float factorA, float factorB,
                             float offset) = 0;  // slot 5
    virtual QResult Scale(IQEL* dest, IQEL* source, IQEL* mask, float factor,
                          float offset) = 0;                                // slot 6
    virtual QResult Subtract(IQEL* dest, IQEL* a, IQEL* b, int flags) = 0;  // slot 7
    virtual QResult CreateDestImage(IQEL** dest /*out*/, IQEL* model, int bitCount,
                                    int colourModel) = 0;                                  // slot 8
    virtual QResult Add(IQELImage* dest, IQEL* a, IQEL* b, float divisor) = 0;             // slot 9
    virtual QResult Scale8(IQELImage* dest, IQEL* source, int offset, double factor) = 0;  // slot 10

protected:
    ~IQELMaths() = default;
};
