// Shared sysex data objects and the two sysex views of Vela_Event.
#include "Mdie_SysexDataBase.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "Cmn_Assert.h"
#include "Cmn_PolyVector.h"
#include "Vela_Event.h"
#include "Vela_Init.h"
#include "Vela_Trace.h"

namespace {

constexpr unsigned char kSysexStart = 0xF0;
constexpr unsigned char kSysexEnd = 0xF7;

// The bytes a packet holds as stored (type 15: the shared buffer; type 16: inline).
struct PacketBytes {
    const unsigned char* mDataP;
    int mLength;
    bool StartsMessage() const { return mLength > 0 && mDataP[0] == kSysexStart; }
    bool EndsMessage() const { return mLength > 0 && mDataP[mLength - 1] == kSysexEnd; }
    bool IsWholeMessage() const { return mLength >= 2 && StartsMessage() && EndsMessage(); }
};

PacketBytes LongBytes(const Mdie_SysexDataBase* iDataP) {
    return iDataP != nullptr ? PacketBytes{iDataP->GetData(), iDataP->GetLength()} : PacketBytes{nullptr, 0};
}

}  // namespace

// ---------------------------------------------------------------- data objects

Mdie_SysexDataBase::Mdie_SysexDataBase(int32_t iLength, unsigned char* iDataP) : mLength(iLength), mDataP(iDataP) {
    VELA_ASSERT(mDataP != 0);
}

Mdie_SysexData::Mdie_SysexData(int32_t iLength, unsigned char* iDataP) : Mdie_SysexDataBase(iLength, iDataP) {}

Mdie_SysexData::~Mdie_SysexData() { delete[] mDataP; }

// The last release may come from a real-time thread: the heap is touched later, elsewhere.
void Mdie_SysexData::ReleaseWhenUnreferenced() { DelayedDelete(); }

Mdie_SysexDataRT* Mdie_SysexDataRT::New(Mem2_MasterAllocator* iAllocatorP, unsigned char* iBuffer, int32_t iLength) {
    if (iAllocatorP == nullptr) return nullptr;
    void* storageP = iAllocatorP->Alloc(static_cast<int>(sizeof(Mdie_SysexDataRT)), &gVela_SysexDataRTTag);
    VELA_TRACE(kVela_TraceCategory, "Mdie_SysexDataRT::New %p %d", storageP, static_cast<int>(sizeof(Mdie_SysexDataRT)));
    if (storageP == nullptr) return nullptr;
    return new (storageP) Mdie_SysexDataRT(iAllocatorP, iBuffer, iLength);
}

Mdie_SysexDataRT::Mdie_SysexDataRT(Mem2_MasterAllocator* iAllocatorP, unsigned char* iBuffer, int32_t iLength)
    : Mdie_SysexDataBase(iLength, iBuffer), mAllocatorP(iAllocatorP) {}

Mdie_SysexDataRT::~Mdie_SysexDataRT() {
    VELA_TRACE(kVela_TraceCategory, "Mdie_SysexDataRT free %p", static_cast<void*>(mDataP));
    mAllocatorP->Free(mDataP, &gVela_SysexDataRTTag);
}

void Mdie_SysexDataRT::ReleaseWhenUnreferenced() {
    Mem2_MasterAllocator* allocatorP = mAllocatorP;
    this->~Mdie_SysexDataRT();
    allocatorP->Free(this, &gVela_SysexDataRTTag);
}

// ---------------------------------------------------------------- Vela_Event sysex queries

bool Vela_Event::GetSysexPayload(const unsigned char*& oDataP, int& oLength) const {
    oDataP = nullptr;
    oLength = 0;
    if (mU.mBase.mType == kSysex) {
        // A damaged length must never let a reader run past the inline bytes.
        oDataP = mU.mShortSysex.mBytes;
        oLength = std::clamp<int>(mU.mShortSysex.mLength, 0, kMaxShortSysex);
        return true;
    }
    if (mU.mBase.mType == kLongSysex) {
        const PacketBytes bytes = LongBytes(mU.mLongSysex.mDataP);
        if (bytes.mLength < 2) return false;
        oDataP = bytes.mDataP + 1;
        oLength = bytes.mLength - 2;
        return true;
    }
    return false;
}

bool Vela_Event::IsCompleteLongSysex() const {
    return mU.mBase.mType == kLongSysex && LongBytes(mU.mLongSysex.mDataP).IsWholeMessage();
}

// ---------------------------------------------------------------- Vela_SysexEvent

Vela_SysexEvent::Vela_SysexEvent(int iLength, const unsigned char* iPayload) { SetData(iLength, iPayload); }

Vela_SysexEvent::Vela_SysexEvent(Cmn_PolyVector<unsigned char, 0>* iPayload) {
    if (iPayload != nullptr)
        SetData(static_cast<int>(iPayload->GetSize()), iPayload->begin());
    else
        SetData(0, nullptr);
}

void Vela_SysexEvent::SetData(int iLength, const unsigned char* iPayload) {
    MakeNull();
    const int length = std::max(iLength, 0);
    if (length > kMaxShortSysex) {
        std::unique_ptr<unsigned char[]> bufferP(new unsigned char[size_t(length) + 2]);
        bufferP[0] = kSysexStart;
        std::memcpy(bufferP.get() + 1, iPayload, size_t(length));
        bufferP[size_t(length) + 1] = kSysexEnd;
        mU.mLongSysex.mDataP = new Mdie_SysexData(length + 2, bufferP.get());
        bufferP.release();
        mU.mBase.mType = kLongSysex;
        return;
    }
    if (length > 0) std::memcpy(mU.mShortSysex.mBytes, iPayload, size_t(length));
    mU.mShortSysex.mLength = static_cast<int8_t>(length);
    mU.mBase.mType = kSysex;
}

int Vela_SysexEvent::GetLength() const {
    if (mU.mBase.mType == kLongSysex) return LongBytes(mU.mLongSysex.mDataP).mLength - 2;
    return mU.mShortSysex.mLength;
}

void Vela_SysexEvent::GetData(unsigned char* oData, int iStart, int iEnd) const {
    const unsigned char* payloadP = nullptr;
    int length = 0;
    if (!GetSysexPayload(payloadP, length)) return;
    const int start = std::max(iStart, 0);
    const int end = std::min(iEnd, length);
    if (end > start) std::memcpy(oData, payloadP + start, size_t(end - start));
}

const unsigned char* Vela_SysexEvent::GetDirectDataPtr() const {
    VELA_ASSERT(mU.mBase.mType == kLongSysex);
    // Fallback on another type: no buffer (its pointer field holds no data object).
    if (mU.mBase.mType != kLongSysex) return nullptr;
    return LongBytes(mU.mLongSysex.mDataP).mDataP;
}

const unsigned char* Vela_SysexEvent::GetInternalDataPtr() const {
    switch (mU.mBase.mType) {
        case kSysex:
        case kSysexPacket:
            return mU.mShortSysex.mBytes;
        case kLongSysex: {
            const PacketBytes bytes = LongBytes(mU.mLongSysex.mDataP);
            return bytes.StartsMessage() ? bytes.mDataP + 1 : bytes.mDataP;
        }
        default:
            return nullptr;
    }
}

// ---------------------------------------------------------------- Vela_SysexPacketEvent

Vela_SysexPacketEvent::Vela_SysexPacketEvent(int iLength, const unsigned char* iBytes,
                                             Mem2_MasterAllocator* iAllocatorP) {
    const int length = std::max(iLength, 0);
    const PacketBytes packet{iBytes, length};
    if (packet.IsWholeMessage() && length - 2 <= kMaxShortSysex) {
        std::memcpy(mU.mShortSysex.mBytes, iBytes + 1, size_t(length - 2));
        mU.mShortSysex.mLength = static_cast<int8_t>(length - 2);
        mU.mBase.mType = kSysex;
        return;
    }
    if (length > kMaxShortSysex) {
        if (iAllocatorP == nullptr) return;
        auto* bufferP = static_cast<unsigned char*>(iAllocatorP->Alloc(length, &gVela_SysexDataRTTag));
        VELA_TRACE(kVela_TraceCategory, "Vela_SysexPacketEvent alloc %p %d", static_cast<void*>(bufferP), length);
        if (bufferP == nullptr) return;
        Mdie_SysexDataRT* dataP = Mdie_SysexDataRT::New(iAllocatorP, bufferP, length);
        if (dataP == nullptr) {
            VELA_TRACE(kVela_TraceCategory, "Vela_SysexPacketEvent free %p", static_cast<void*>(bufferP));
            iAllocatorP->Free(bufferP, &gVela_SysexDataRTTag);
            return;
        }
        std::memcpy(bufferP, iBytes, size_t(length));
        mU.mLongSysex.mDataP = dataP;
        mU.mBase.mType = kLongSysex;
        return;
    }
    if (length > 0) std::memcpy(mU.mShortSysex.mBytes, iBytes, size_t(length));
    mU.mShortSysex.mLength = static_cast<int8_t>(length);
    mU.mBase.mType = kSysexPacket;
}

Vela_SysexPacketEvent::Vela_SysexPacketEvent(InitWithBlock, unsigned char* iBlock, int iLength,
                                             Mem2_MasterAllocator* iAllocatorP) {
    if (iBlock == nullptr || iAllocatorP == nullptr) return;
    Mdie_SysexDataRT* dataP = Mdie_SysexDataRT::New(iAllocatorP, iBlock, std::max(iLength, 0));
    if (dataP == nullptr) {
        // The block was handed over: without a wrapper nobody else would return it.
        iAllocatorP->Free(iBlock, &gVela_SysexDataRTTag);
        return;
    }
    mU.mLongSysex.mDataP = dataP;
    mU.mBase.mType = kLongSysex;
}

void Vela_SysexPacketEvent::GetRawBytes(const unsigned char*& oDataP, int& oLength) const {
    PacketBytes bytes{nullptr, 0};
    if (mU.mBase.mType == kLongSysex) bytes = LongBytes(mU.mLongSysex.mDataP);
    if (mU.mBase.mType == kSysexPacket) bytes = PacketBytes{mU.mShortSysex.mBytes, mU.mShortSysex.mLength};
    oDataP = bytes.mDataP;
    oLength = bytes.mLength;
}

int Vela_SysexPacketEvent::GetLength() const {
    switch (mU.mBase.mType) {
        case kSysex:
            return mU.mShortSysex.mLength + 2;
        case kLongSysex:
            return LongBytes(mU.mLongSysex.mDataP).mLength;
        case kSysexPacket:
            return mU.mShortSysex.mLength;
        default:
            return 0;
    }
}

void Vela_SysexPacketEvent::GetData(unsigned char* oData, int iStart, int iEnd) const {
    int start = std::max(iStart, 0);
    int end = std::min(iEnd, GetLength());
    if (end <= start) return;
    if (mU.mBase.mType != kSysex) {
        PacketBytes bytes{nullptr, 0};
        GetRawBytes(bytes.mDataP, bytes.mLength);
        if (bytes.mDataP != nullptr) std::memcpy(oData, bytes.mDataP + start, size_t(end - start));
        return;
    }
    // A whole short message, presented as F0, payload, F7.
    if (start == 0) {
        *oData++ = kSysexStart;
        start = 1;
    }
    if (start < end && end == mU.mShortSysex.mLength + 2) {
        oData[end - start - 1] = kSysexEnd;
        --end;
    }
    if (end > start) std::memcpy(oData, mU.mShortSysex.mBytes + start - 1, size_t(end - start));
}

const unsigned char* Vela_SysexPacketEvent::GetDirectDataPtr() const {
    return mU.mBase.mType == kLongSysex ? LongBytes(mU.mLongSysex.mDataP).mDataP : nullptr;
}

bool Vela_SysexPacketEvent::IsBeginningPacket() const {
    if (mU.mBase.mType == kSysex) return true;
    PacketBytes bytes{nullptr, 0};
    GetRawBytes(bytes.mDataP, bytes.mLength);
    if (mU.mBase.mType == kLongSysex) return bytes.StartsMessage() && !bytes.EndsMessage();
    return bytes.StartsMessage();
}

bool Vela_SysexPacketEvent::IsEndingPacket() const {
    if (mU.mBase.mType == kSysex) return true;
    PacketBytes bytes{nullptr, 0};
    GetRawBytes(bytes.mDataP, bytes.mLength);
    if (mU.mBase.mType == kLongSysex) return bytes.mLength > 0 && !bytes.StartsMessage() && bytes.EndsMessage();
    return bytes.EndsMessage();
}

bool Vela_SysexPacketEvent::IsComplete() const { return mU.mBase.mType == kSysex || IsCompleteLongSysex(); }
