#include "I18N_Utils.h"

#include <gtest/gtest.h>

#include <cstring>

TEST(I18N_Utils, ConvertsNonAsciiToUTF8) {
    EXPECT_EQ(I18N_Utils::ToUTF8(L"A\u00e9\u20ac"), "A\xC3\xA9\xE2\x82\xAC");
    // Outside the basic plane: a surrogate pair where wchar_t is 16 bits, one unit otherwise.
    EXPECT_EQ(I18N_Utils::ToUTF8(L"\U0001F3B9"), "\xF0\x9F\x8E\xB9");
    I18N_StUTF8Buffer buffer(L"Gr\u00fc\u00dfe");
    EXPECT_STREQ(buffer.c_str(), "Gr\xC3\xBC\xC3\x9F" "e");
    EXPECT_STREQ(I18N_StUTF8Buffer(static_cast<const wchar_t*>(nullptr)), "");
}

TEST(I18N_Utils, InvalidCodeUnitsBecomeReplacementCharacters) {
    const wchar_t lone[] = {L'a', static_cast<wchar_t>(0xD800), L'b', 0};
    EXPECT_EQ(I18N_Utils::ToUTF8(lone), "a\xEF\xBF\xBD" "b");
    if constexpr (sizeof(wchar_t) == 4) {
        const wchar_t tooLarge[] = {static_cast<wchar_t>(0x110000), 0};
        EXPECT_EQ(I18N_Utils::ToUTF8(tooLarge), "\xEF\xBF\xBD");
    }
}

TEST(I18N_Utils, FormatReplacesPositionalArguments) {
    EXPECT_EQ(I18N_Utils::FormatL10nString(L"%2 vor %1, 100%% \u00e4", {L"eins", L"zw\u00f6lf"}),
              "zw\xC3\xB6lf vor eins, 100% \xC3\xA4");
    EXPECT_EQ(I18N_Utils::FormatL10nString(L"%1 %3 %", {L"x"}), "x %3 %");
}
