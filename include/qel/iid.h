// Interface identifiers derived from interface names, 5 bits per character.
#pragma once

#include "qel/types.h"

// Character code of the name stream: letters 1-26 (case folded), '0'-'4'
// 28-32, anything else 27. '4' is a six-bit code whose top bit overlaps the
// next character's field; identifiers depend on that, so it stays.
constexpr int IIDCharCode(signed char c) {
    if (c >= 'A' && c <= 'Z') return c - 64;
    if (c >= 'a' && c <= 'z') return c - 96;
    if (c >= '0' && c <= '4') return c - 20;
    return 27;
}

// Derives an interface identifier from its name: the codes of the first 25
// characters form a little-endian bit stream starting at bit 0 of byte 0.
constexpr IID __IIDOfc(const char* name) {
    uint8_t bytes[17] = {};
    int cursor = 0;
    int bitOffset = 0;
    for (int i = 0; i < 25 && name[i] != 0; ++i) {
        const unsigned word = static_cast<unsigned>(IIDCharCode(static_cast<signed char>(name[i])))
                              << bitOffset;
        bytes[cursor] = static_cast<uint8_t>(bytes[cursor] | (word & 0xFF));
        bytes[cursor + 1] = static_cast<uint8_t>(bytes[cursor + 1] | ((word >> 8) & 0xFF));
        if (bitOffset + 5 > 7) {
            bitOffset -= 3;
            ++cursor;
        } else {
            bitOffset += 5;
        }
    }
    IID iid = {};
    for (int w = 0; w < 4; ++w) {
        iid.words[w] = static_cast<uint32_t>(bytes[w * 4]) | static_cast<uint32_t>(bytes[w * 4 + 1]) << 8 |
                       static_cast<uint32_t>(bytes[w * 4 + 2]) << 16 |
                       static_cast<uint32_t>(bytes[w * 4 + 3]) << 24;
    }
    return iid;
}

constexpr IID QEL_IID_NULL = {{0, 0, 0, 0}};
// 00000000-0000-0000-C000-000000000046 in memory order.
constexpr IID QEL_IID_IUNKNOWN = {{0, 0, 0x000000C0u, 0x46000000u}};

// Every interface of the shared headers, for code that wants the whole list.
#define QEL_FOR_EACH_INTERFACE(X) \
    X(IObjectInfo)                \
    X(IQELColorTransform)         \
    X(IQELTransform)              \
    X(IQELDeform)                 \
    X(IQELFilterTransform)        \
    X(IQELMaths)                  \
    X(IQEL)                       \
    X(IQELImage)                  \
    X(IQELImageDIB)               \
    X(IQELImagePalette)           \
    X(IQELImageUninitialised)     \
    X(IComponentCollection)       \
    X(IComponentString)           \
    X(ICreatableString)           \
    X(IString)                    \
    X(ITransform)

// Host-side identifiers, evaluated at compile time: qel::iid::IQELImage, ...
// (The module keeps its own IID_ globals, computed when it is loaded.)
namespace qel {
namespace iid {
#define QEL_DEFINE_HOST_IID(name) inline constexpr IID name = __IIDOfc(#name);
QEL_FOR_EACH_INTERFACE(QEL_DEFINE_HOST_IID)
#undef QEL_DEFINE_HOST_IID
inline constexpr IID IUnknown = QEL_IID_IUNKNOWN;
}  // namespace iid
}  // namespace qel
