// Localized text helpers: wide strings (as loaded from a string table) to UTF-8.
// wchar_t is read as UTF-16 where it is 2 bytes wide and as UTF-32 where it is 4; a lone
// surrogate or a value beyond U+10FFFF becomes U+FFFD, so the output is always valid UTF-8.
// Threads: pure functions, callable anywhere. Not for real-time use (they allocate).
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

class I18N_Utils {
public:
    static std::string ToUTF8(std::wstring_view iText);

    // iFormat with "%1" to "%9" replaced by the matching argument (a placeholder without an
    // argument is kept as it stands) and "%%" by "%", as UTF-8.
    static std::string FormatL10nString(std::wstring_view iFormat, std::initializer_list<std::wstring_view> iArguments = {});
};

// Holds the UTF-8 form of a wide string for as long as it is in scope, for APIs that take a
// const char*. A null pointer gives the empty text.
class I18N_StUTF8Buffer {
public:
    explicit I18N_StUTF8Buffer(const wchar_t* iText) : mText(iText ? I18N_Utils::ToUTF8(iText) : std::string()) {}
    explicit I18N_StUTF8Buffer(std::wstring_view iText) : mText(I18N_Utils::ToUTF8(iText)) {}

    const char* c_str() const { return mText.c_str(); }
    operator const char*() const { return mText.c_str(); }
    const std::string& str() const { return mText; }
    size_t size() const { return mText.size(); }

private:
    std::string mText;
};
