// The per-format readers and writers behind image_file.h. Readers take an
// open file and return a runtime image or set `error`; writers write to an
// open file and report failure through `error`. Readers refuse an image of
// more than `maxPixels` pixels before allocating its pixels.
#pragma once

#include <cstdio>
#include <string>

#include "qel/host.h"

namespace qeltool {

SmartPtr<IQEL> ReadPng(FILE* file, const qel::Host& host, long long maxPixels, std::string* error);
bool WritePng(FILE* file, IQEL* image, std::string* error);

SmartPtr<IQEL> ReadJpeg(FILE* file, const qel::Host& host, long long maxPixels, std::string* error);
bool WriteJpeg(FILE* file, IQEL* image, int quality, std::string* error);

SmartPtr<IQEL> ReadNetpbm(FILE* file, const qel::Host& host, long long maxPixels, std::string* error);
// kind: 'g' PGM, 'p' PPM, 'n' PGM or PPM as the image needs, 'a' PAM.
bool WriteNetpbm(FILE* file, IQEL* image, char kind, std::string* error);

}  // namespace qeltool
