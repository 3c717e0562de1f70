// Captures assertion reports while in scope, so a test can check both the report and the
// fallback the asserting code takes. Restores the previous handler on exit.
#pragma once

#include <string>
#include <vector>

#include "Cmn_Assert.h"

class AssertCapture {
public:
    AssertCapture() {
        mPrevious = Cmn_Assert::SetHandler([this](const char* iText, int) { mTexts.emplace_back(iText); });
    }
    ~AssertCapture() { Cmn_Assert::SetHandler(std::move(mPrevious)); }
    AssertCapture(const AssertCapture&) = delete;
    AssertCapture& operator=(const AssertCapture&) = delete;

    size_t Count() const { return mTexts.size(); }
    const std::vector<std::string>& Texts() const { return mTexts; }
    // The condition part of report iIndex (before the marker).
    std::string Condition(size_t iIndex = 0) const { return mTexts.at(iIndex).substr(0, mTexts.at(iIndex).find("@$^$@")); }
    void Clear() { mTexts.clear(); }

private:
    Cmn_Assert::Handler mPrevious;
    std::vector<std::string> mTexts;
};
