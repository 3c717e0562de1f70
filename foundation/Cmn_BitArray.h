// Cmn_BitArray<N>: N flags in 32-bit words (N = 128: four words). Plain value, raw-copyable.
#pragma once

#include <cstdint>

template <int N>
class Cmn_BitArray {
public:
    static constexpr int kNumWords = (N + 31) / 32;

    bool Get(int iIndex) const { return (mWords[iIndex >> 5] >> (iIndex & 31)) & 1u; }
    void Set(int iIndex, bool iValue) {
        const uint32_t bit = 1u << (iIndex & 31);
        if (iValue)
            mWords[iIndex >> 5] |= bit;
        else
            mWords[iIndex >> 5] &= ~bit;
    }
    void SetAll() {
        for (uint32_t& word : mWords) word = ~0u;
        ClearUnused();
    }
    void ClearAll() {
        for (uint32_t& word : mWords) word = 0;
    }
    void InvertAll() {
        for (uint32_t& word : mWords) word = ~word;
        ClearUnused();
    }
    uint32_t GetWord(int iWord) const { return mWords[iWord]; }
    bool operator==(const Cmn_BitArray& iOther) const {
        for (int i = 0; i < kNumWords; ++i)
            if (mWords[i] != iOther.mWords[i]) return false;
        return true;
    }
    bool operator!=(const Cmn_BitArray& iOther) const { return !(*this == iOther); }

private:
    // Bits beyond N stay clear so that equality compares only real flags.
    void ClearUnused() {
        if (N % 32) mWords[kNumWords - 1] &= (1u << (N % 32)) - 1u;
    }
    uint32_t mWords[kNumWords] = {};
};
