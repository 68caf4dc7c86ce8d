// Binary-interface value types shared by the module, the host runtime and hosts.
#pragma once

#include <cstddef>
#include <cstdint>

// Result codes: 32-bit signed, negative is failure.
using QResult = int32_t;

constexpr QResult QEL_OK = 0;
constexpr QResult QEL_NOTHING_TO_DO = 1;  // IncreaseBpp handing back its source
constexpr QResult QEL_E_NOTIMPL = static_cast<QResult>(0x80004001u);
constexpr QResult QEL_E_NOINTERFACE = static_cast<QResult>(0x80004002u);
constexpr QResult QEL_E_POINTER = static_cast<QResult>(0x80004003u);
constexpr QResult QEL_E_FAIL = static_cast<QResult>(0x80004005u);
constexpr QResult QEL_E_OUTOFMEMORY = static_cast<QResult>(0x8007000Eu);
constexpr QResult QEL_E_INVALIDARG = static_cast<QResult>(0x80070057u);
constexpr QResult QEL_E_NOT_MONO = static_cast<QResult>(0xF0040031u);  // Scale8 only

inline bool QEL_FAILED(QResult r) { return r < 0; }
inline bool QEL_SUCCEEDED(QResult r) { return r >= 0; }

// Colour-model codes: four characters, the first in the lowest byte.
constexpr uint32_t QEL_MODEL_MONO = 0x4F4E4F4Du;  // "MONO"
constexpr uint32_t QEL_MODEL_BGR = 0x20524742u;   // "BGR "
constexpr uint32_t QEL_MODEL_ARGB = 0x42475241u;  // "ARGB"
constexpr uint32_t QEL_MODEL_ABGR = 0x52474241u;  // "ABGR"

// Counted wide string, passed by value as (length, pointer). The receiver
// does not own the text; only the low 32 bits of the length are significant.
struct tagREFString {
    uint64_t length;
    const wchar_t* text;
};
static_assert(sizeof(tagREFString) == 16, "tagREFString is two machine words");
static_assert(sizeof(wchar_t) == 4, "wide characters are 32-bit code units");

// Builds a tagREFString over a wide literal, without the terminating zero.
template <size_t N>
constexpr tagREFString MakeREFString(const wchar_t (&text)[N]) {
    return tagREFString{N - 1, text};
}

// 16-byte interface identifier, compared as four 32-bit words.
struct IID {
    uint32_t words[4];
};
static_assert(sizeof(IID) == 16, "IID is 16 bytes");

inline bool operator==(const IID& a, const IID& b) {
    return a.words[0] == b.words[0] && a.words[1] == b.words[1] && a.words[2] == b.words[2] &&
           a.words[3] == b.words[3];
}
inline bool operator!=(const IID& a, const IID& b) { return !(a == b); }

// Blue, green, red, reserved (alpha in 32-bit images). As a packed 32-bit
// colour value blue is in bits 0-7 and the reserved byte in bits 24-31.
struct RGBQUAD {
    uint8_t rgbBlue;
    uint8_t rgbGreen;
    uint8_t rgbRed;
    uint8_t rgbReserved;
};
static_assert(sizeof(RGBQUAD) == 4, "RGBQUAD is four bytes");
