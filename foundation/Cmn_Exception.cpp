#include "Cmn_Exception.h"

Cmn_TypedException<L10N_ExceptionData>::Cmn_TypedException(const L10N_ExceptionData& iData) : mData(iData) {
    // The text is resolved once, here, so what() never fails and never allocates.
    const char* text = (mData.mModuleP && mData.mModuleP->mLookup) ? mData.mModuleP->mLookup(mData.mMessageID) : nullptr;
    mDescription.mText = text ? text : "";
}
