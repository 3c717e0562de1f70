#include "Vela_MidiBlock.h"

#include <cstring>

Vela_MidiBlock::Vela_MidiBlock(size_t iMaxMessages, size_t iMaxBytes) : mMessages(iMaxMessages), mBytes(iMaxBytes) {}

void Vela_MidiBlock::Clear() {
    mCount = 0;
    mUsedBytes = 0;
}

bool Vela_MidiBlock::Add(uint32_t iFrame, const unsigned char* iBytes, size_t iLength) {
    if (iLength == 0 || mCount == mMessages.size() || iLength > mBytes.size() - mUsedBytes) {
        ++mDropped;
        return false;
    }
    if (mCount > 0 && iFrame < mMessages[mCount - 1].mFrame) iFrame = mMessages[mCount - 1].mFrame;
    std::memcpy(mBytes.data() + mUsedBytes, iBytes, iLength);
    mMessages[mCount++] = {iFrame, static_cast<uint32_t>(mUsedBytes), static_cast<uint32_t>(iLength)};
    mUsedBytes += iLength;
    return true;
}
