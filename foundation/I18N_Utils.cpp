#include "I18N_Utils.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char32_t iUnit) { return iUnit >= 0xD800 && iUnit <= 0xDBFF; }
bool IsLowSurrogate(char32_t iUnit) { return iUnit >= 0xDC00 && iUnit <= 0xDFFF; }

// Reads one code point at ioIndex and moves past it.
char32_t NextCodePoint(std::wstring_view iText, size_t& ioIndex) {
    char32_t unit = static_cast<char32_t>(iText[ioIndex++]);
    if constexpr (sizeof(wchar_t) == 2) {
        unit &= 0xFFFF;
        if (IsHighSurrogate(unit) && ioIndex < iText.size()) {
            char32_t low = static_cast<char32_t>(iText[ioIndex]) & 0xFFFF;
            if (IsLowSurrogate(low)) {
                ++ioIndex;
                return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
            }
        }
    }
    if (IsHighSurrogate(unit) || IsLowSurrogate(unit) || unit > 0x10FFFF) return kReplacement;
    return unit;
}

void AppendUTF8(char32_t iCode, std::string& ioText) {
    auto put = [&](char32_t iByte) { ioText += static_cast<char>(iByte); };
    if (iCode < 0x80) {
        put(iCode);
    } else if (iCode < 0x800) {
        put(0xC0 | (iCode >> 6));
        put(0x80 | (iCode & 0x3F));
    } else if (iCode < 0x10000) {
        put(0xE0 | (iCode >> 12));
        put(0x80 | ((iCode >> 6) & 0x3F));
        put(0x80 | (iCode & 0x3F));
    } else {
        put(0xF0 | (iCode >> 18));
        put(0x80 | ((iCode >> 12) & 0x3F));
        put(0x80 | ((iCode >> 6) & 0x3F));
        put(0x80 | (iCode & 0x3F));
    }
}

}  // namespace

std::string I18N_Utils::ToUTF8(std::wstring_view iText) {
    std::string result;
    result.reserve(iText.size());
    for (size_t i = 0; i < iText.size();) AppendUTF8(NextCodePoint(iText, i), result);
    return result;
}

std::string I18N_Utils::FormatL10nString(std::wstring_view iFormat, std::initializer_list<std::wstring_view> iArguments) {
    std::wstring expanded;
    for (size_t i = 0; i < iFormat.size(); ++i) {
        wchar_t c = iFormat[i];
        wchar_t next = i + 1 < iFormat.size() ? iFormat[i + 1] : L'\0';
        if (c == L'%' && next == L'%') {
            expanded += L'%';
            ++i;
        } else if (c == L'%' && next >= L'1' && next <= L'9' && static_cast<size_t>(next - L'1') < iArguments.size()) {
            expanded += iArguments.begin()[next - L'1'];
            ++i;
        } else {
            expanded += c;
        }
    }
    return ToUTF8(expanded);
}
