// Interface identifiers derived from names.
#include <gtest/gtest.h>

#include "module/iids.h"

namespace {

uint8_t ByteOf(const IID& iid, int index) {
    return static_cast<uint8_t>(iid.words[index / 4] >> (8 * (index % 4)));
}

void ExpectBytes(const IID& iid, std::initializer_list<uint8_t> leading) {
    int index = 0;
    for (const uint8_t expected : leading) {
        EXPECT_EQ(ByteOf(iid, index), expected) << "byte " << index;
        ++index;
    }
    for (; index < 16; ++index) EXPECT_EQ(ByteOf(iid, index), 0) << "byte " << index;
}

TEST(IIDOfc, EmptyNameIsNull) { EXPECT_EQ(__IIDOfc(""), IID_NULL); }

TEST(IIDOfc, LettersPackFiveBitsEach) {
    ExpectBytes(__IIDOfc("A"), {0x01});
    ExpectBytes(__IIDOfc("AB"), {0x41, 0x00});
    // "ABC": 1 | 2 << 5 | 3 << 10 -> 0x0C41
    ExpectBytes(__IIDOfc("ABC"), {0x41, 0x0C});
    // "Z" is 26.
    ExpectBytes(__IIDOfc("Z"), {0x1A});
}

TEST(IIDOfc, OtherCharactersShareCode27) {
    ExpectBytes(__IIDOfc("_"), {0x1B});
    ExpectBytes(__IIDOfc("9"), {0x1B});
    ExpectBytes(__IIDOfc("5"), {0x1B});
    ExpectBytes(__IIDOfc("\xC3"), {0x1B});
    ExpectBytes(__IIDOfc("0"), {28});
    ExpectBytes(__IIDOfc("3"), {31});
}

TEST(IIDOfc, FourIsSixBitsWideAndOverlapsTheNextField) {
    // '4' is 32 (bit 5); 'A' at offset 5 sets the same bit.
    ExpectBytes(__IIDOfc("4A"), {0x20});
    ExpectBytes(__IIDOfc("4"), {0x20});
    // "B4": 2 | 32 << 5 = 0x0402
    ExpectBytes(__IIDOfc("B4"), {0x02, 0x04});
}

TEST(IIDOfc, CaseIsFolded) {
    EXPECT_EQ(__IIDOfc("IObjectInfo"), __IIDOfc("iobjectinfo"));
    EXPECT_EQ(__IIDOfc("IQELImage"), __IIDOfc("IQELIMAGE"));
    EXPECT_NE(__IIDOfc("IQELImage"), __IIDOfc("IQELImageDIB"));
}

TEST(IIDOfc, OnlyTheFirst25CharactersCount) {
    EXPECT_EQ(__IIDOfc("ABCDEFGHIJKLMNOPQRSTUVWXY"), __IIDOfc("ABCDEFGHIJKLMNOPQRSTUVWXYZZZ"));
    EXPECT_NE(__IIDOfc("ABCDEFGHIJKLMNOPQRSTUVWX"), __IIDOfc("ABCDEFGHIJKLMNOPQRSTUVWXY"));
    // 25 letters 'Z' (26 = 11010b) fill 125 bits: the top three bits of byte 15 stay clear.
    const IID full = __IIDOfc("ZZZZZZZZZZZZZZZZZZZZZZZZZ");
    EXPECT_EQ(ByteOf(full, 15) & 0xE0, 0);
    EXPECT_NE(ByteOf(full, 15), 0);
}

TEST(ModuleIdentifiers, AreComputedAtLoadFromTheirNames) {
    EXPECT_EQ(IID_IObjectInfo, __IIDOfc("IObjectInfo"));
    EXPECT_EQ(IID_IQELImage, __IIDOfc("IQELImage"));
    EXPECT_EQ(IID_IQELMaths, qel::iid::IQELMaths);
    EXPECT_EQ(IID_IComponentCollection, __IIDOfc("IComponentCollection"));
    // The conventional IUnknown identifier, 00000000-0000-0000-C000-000000000046.
    ExpectBytes(IID_IUnknown, {0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46});
    ExpectBytes(IID_NULL, {});
}

}  // namespace
