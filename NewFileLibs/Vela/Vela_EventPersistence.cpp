// Streamed form of a system-exclusive event, and the raw-image protocol of Vela_Event.
//
// Streamed form, one block per event, empty tag "", version 1 (little-endian, inside the
// block framing):
//   int8   null flag   0: a sysex payload follows; any other value read back means the null
//                      event. StreamOut writes only 0; StreamOutReadable writes 1 for an event
//                      that is not a sysex (and then nothing else), so a timed event list that
//                      held one still reads back, with the null event in its place
//   int32  length n    payload bytes, without F0 and F7
//   n bytes            the payload
// A long sysex (type 15) writes its stored bytes after the leading F0 and leaves out the final
// F7; they go out in pieces of at most kStreamPieceSize bytes, back to back, so the pieces are
// invisible in the stream. Readers skip whatever a newer writer appended to the block.
// Reading answers a payload of at most 14 bytes as a short sysex (type 14), a longer one as a
// long sysex whose new data object holds F0, payload, F7.
//
// Bad data: a negative length, or one larger than what remains of the block, throws
// Sys_StreamException (as a truncated block does) before anything is allocated for it. A
// scratch buffer that cannot be had throws std::bad_alloc with the text "bad allocation".
#include <algorithm>
#include <memory>
#include <new>

#include "Cmn_Assert.h"
#include "Cmn_Exception.h"
#include "Mdie_SysexDataBase.h"
#include "Sys_StdStreamHeader.h"
#include "Sys_TypedStream.h"
#include "Vela_Event.h"

namespace {

constexpr const char* kEventStreamTag = "";
constexpr short kEventStreamVersion = 1;
constexpr int kStreamPieceSize = 1024;
constexpr int8_t kPayloadFollows = 0;
constexpr int8_t kNullEventFollows = 1;

class BadAllocation : public std::bad_alloc {
public:
    const char* what() const noexcept override { return "bad allocation"; }
};

void WritePayloadHeader(Sys_TypedOutStream& iStream, int32_t iLength) {
    iStream.Write(kPayloadFollows);
    iStream.Write(iLength);
}

void WriteInPieces(Sys_TypedOutStream& iStream, const unsigned char* iBytes, int32_t iLength) {
    for (int32_t done = 0; done < iLength; done += kStreamPieceSize) {
        iStream.WriteBlock(iBytes + done, std::min(kStreamPieceSize, iLength - done));
    }
}

// The payload length must be something the rest of the block can hold.
int32_t ReadPayloadLength(Sys_TypedInStream& iStream) {
    int32_t length = 0;
    iStream.Read(length);
    if (length < 0) throw Sys_StreamException("sysex event: negative payload length");
    if (length > iStream.GetLimit() - iStream.GetPos()) {
        throw Sys_StreamException("sysex event: payload length beyond the end of its block");
    }
    return length;
}

std::unique_ptr<unsigned char[]> AllocateScratch(int32_t iLength) {
    // At least one byte, so that an empty payload still has a valid address to pass on.
    std::unique_ptr<unsigned char[]> bytes(new (std::nothrow) unsigned char[std::max(iLength, 1)]);
    if (!bytes) throw BadAllocation();
    return bytes;
}

}  // namespace

void Vela_Event::StreamOut(Sys_TypedOutStream& iStream) const { StreamOutBlock(iStream, false); }

void Vela_Event::StreamOutReadable(Sys_TypedOutStream& iStream) const { StreamOutBlock(iStream, true); }

void Vela_Event::StreamOutBlock(Sys_TypedOutStream& iStream, bool iOthersAsNull) const {
    Sys_StdStreamHeaderWriter header(iStream, kEventStreamTag, kEventStreamVersion);
    const unsigned char* payloadP = nullptr;
    int payloadLength = 0;
    if (GetType() == kSysex || GetType() == kLongSysex) {
        // A long form shorter than its two framing bytes (only a damaged packet could be)
        // has no payload and writes an empty one.
        GetSysexPayload(payloadP, payloadLength);
        WritePayloadHeader(iStream, payloadLength);
        WriteInPieces(iStream, payloadP, payloadLength);
    } else {
        VELA_ASSERT(0);
        if (iOthersAsNull) iStream.Write(kNullEventFollows);
    }
    header.PatchSize();
}

void Vela_Event::StreamIn(Sys_TypedInStream& iStream) {
    Sys_StdStreamHeaderReader header(iStream, kEventStreamTag);
    header.CheckVersion(kEventStreamVersion, kEventStreamVersion);
    int8_t nullFlag = 0;
    iStream.Read(nullFlag);
    if (nullFlag != kPayloadFollows) {
        MakeNull();
    } else {
        const int32_t length = ReadPayloadLength(iStream);
        std::unique_ptr<unsigned char[]> bytes = AllocateScratch(length);
        iStream.ReadBlock(bytes.get(), length);
        *this = Vela_SysexEvent(length, bytes.get());
    }
    header.SkipTheRest();
}

void Vela_Event::PrepareToImageOut() const {
    if (GetType() == kLongSysex) mU.mLongSysex.mDataP->AddReference();
}

void Vela_Event::PrepareToImageIn() { MakeNull(); }
