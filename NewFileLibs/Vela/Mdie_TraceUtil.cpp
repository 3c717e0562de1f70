#include "Mdie_TraceUtil.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <ostream>

#include "Mdie_TrackState.h"

Mdi_AppCallback* Mdie_TraceUtil::sCallback = nullptr;

namespace {

// Appends printf-style text to a caller's buffer, truncating at its end; the text stays
// NUL-terminated and Length() is what the buffer really holds.
class LineWriter {
public:
    LineWriter(char* oBuffer, size_t iSize) : mBufferP(oBuffer), mSize(iSize) {
        if (mSize > 0) mBufferP[0] = '\0';
    }

    void Append(const char* iFormat, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
    {
        if (mLength + 1 >= mSize) return;
        va_list arguments;
        va_start(arguments, iFormat);
        const int written = std::vsnprintf(mBufferP + mLength, mSize - mLength, iFormat, arguments);
        va_end(arguments);
        if (written > 0) mLength = std::min(mLength + size_t(written), mSize - 1);
    }

    ptrdiff_t Length() const { return ptrdiff_t(mLength); }

private:
    char* mBufferP;
    size_t mSize;
    size_t mLength = 0;
};

int ByteOf(const Vela_SysexPacketEvent& iPacket, int iIndex) {
    unsigned char byte = 0;
    iPacket.GetData(&byte, iIndex, iIndex + 1);
    return byte;
}

// The packet's bytes in hex, bounded by the budget (the buffer's size, less room for the
// INCOMPLETE mark): the leading bytes that fit, then " ..." and the last four bytes when
// there is room. A stop after the final byte still counts as cut short.
void FormatSysex(LineWriter& ioLine, ptrdiff_t iBudget, const Vela_SysexPacketEvent& iPacket) {
    ioLine.Append("Sysex -");
    if (!iPacket.IsComplete()) {
        ioLine.Append(" INCOMPLETE");
        iBudget -= 11;
    }
    const int length = iPacket.GetLength();
    bool cutShort = false;
    for (int i = 0; i < length && !cutShort; ++i) {
        ioLine.Append(" %02x", ByteOf(iPacket, i));
        cutShort = ioLine.Length() > iBudget - 26;
    }
    if (!cutShort) return;
    if (ioLine.Length() < iBudget - 5) ioLine.Append(" ...");
    if (ioLine.Length() < iBudget - 14)
        for (int i = length - 4; i < length; ++i) ioLine.Append(" %02x", ByteOf(iPacket, i));
}

void FormatEvent(LineWriter& ioLine, ptrdiff_t iBudget, const Vela_Event& iEvent) {
    switch (iEvent.GetType()) {
        case Vela_Event::kNoteOn:
            return ioLine.Append("NoteOn(%d, %d)", iEvent.AsNoteOn().GetPitch(), iEvent.AsNoteOn().GetVelocity());
        case Vela_Event::kNoteOff:
            return ioLine.Append("NoteOff(%d, %d)", iEvent.AsNoteOff().GetPitch(), iEvent.AsNoteOff().GetVelocity());
        case Vela_Event::kNoteWithDuration: {
            const Vela_NoteWithDurationEvent& note = iEvent.AsNoteWithDuration();
            const Time_TypedLength duration = note.GetDuration();
            return ioLine.Append("NoteWithDuration(p: %d, d: %" PRId64 "%s, on: %d, off: %d)", note.GetPitch(),
                                 duration.AsInt64(), duration.GetType() != kTime_Samples ? "t" : "s",
                                 note.GetOnVelocity(), note.GetOffVelocity());
        }
        case Vela_Event::kPitchBend:
            return ioLine.Append("PitchBend(%d)", iEvent.AsPitchBend().GetBendValue());
        case Vela_Event::kController:
            return ioLine.Append("Controller(%d: %d)", iEvent.AsController().GetControllerNumber(),
                                 iEvent.AsController().GetValue());
        case Vela_Event::kProgram: {
            const Vela_ProgramEvent& program = iEvent.AsProgram();
            return ioLine.Append("Program(%d, bank %d%s%s)", program.GetFullProgram() & 0x7F,
                                 program.GetFullBank() & 0x3FFF, program.IsMSBBankEnabled() ? " MSB" : "",
                                 program.IsLSBBankEnabled() ? " LSB" : "");
        }
        case Vela_Event::kMonoPressure:
            return ioLine.Append("MonoPressure(%d)", iEvent.AsMonoPressure().GetPressure());
        case Vela_Event::kPolyPressure:
            return ioLine.Append("PolyPressure(%d: %d)", iEvent.AsPolyPressure().GetPitch(),
                                 iEvent.AsPolyPressure().GetPressure());
        case Vela_Event::kSongPosition:
            return ioLine.Append("Song Position(%d)", iEvent.AsSongPosition().GetPosition());
        case Vela_Event::kStart:
            return ioLine.Append("Start");
        case Vela_Event::kContinue:
            return ioLine.Append("Continue");
        case Vela_Event::kStop:
            return ioLine.Append("Stop");
        case Vela_Event::kTimingClock:
            return ioLine.Append("TimingClock");
        case Vela_Event::kSysex:
        case Vela_Event::kLongSysex:
        case Vela_Event::kSysexPacket:
            return FormatSysex(ioLine, iBudget, iEvent.AsSysexPacket());
        default:
            return ioLine.Append("UnknownEvent(%d)", iEvent.GetType());
    }
}

bool HasFailed(const std::ostream& iStream) { return iStream.fail(); }

}  // namespace

void Mdie_TraceUtil::FormatMidiEvent(char* oBuffer, size_t iSize, const Vela_Event& iEvent) {
    if (iSize == 0) return;
    oBuffer[iSize - 1] = '\0';
    LineWriter line(oBuffer, iSize);
    FormatEvent(line, ptrdiff_t(iSize), iEvent);
}

void Mdie_TraceUtil::FormatTimedMidiEvent(char* oBuffer, size_t iSize, const Mdie_TimedEvent& iEvent) {
    if (iSize == 0) return;
    oBuffer[iSize - 1] = '\0';
    LineWriter line(oBuffer, iSize);
    line.Append("<sample: %" PRId64 "> ", iEvent.GetTime().AsInt64());
    const size_t used = size_t(line.Length());
    FormatMidiEvent(oBuffer + used, iSize - used, iEvent.GetEvent());
}

void Mdie_TraceUtil::FormatMidiTimestamp(char* oBuffer, size_t iSize, int64_t iMicroseconds, Time_Sample iSample) {
    LineWriter line(oBuffer, iSize);
    line.Append("[%d.%d.%d, %lld]", int(iMicroseconds / 1000000 % 10), int(iMicroseconds / 1000 % 1000),
                int(iMicroseconds / 100 % 10), static_cast<long long>(iSample.mCount));
}

void Mdie_TraceUtil::PrintMidiEvent(const Vela_Event& iEvent, std::ostream& ioStream) {
    if (HasFailed(ioStream)) return;
    char text[kLineSize];
    FormatMidiEvent(text, sizeof text, iEvent);
    ioStream << text;
}

void Mdie_TraceUtil::PrintTimedEventList(Mdie_TimedEventList* iListP, std::ostream& ioStream) {
    if (HasFailed(ioStream) || iListP == nullptr || iListP->IsEmpty()) return;
    for (const Mdie_TimedEvent& event : *iListP) {
        ioStream << event.GetTime().AsInt64() << (event.GetTime().GetType() != kTime_Samples ? "t  " : "s  ");
        PrintMidiEvent(event.GetEvent(), ioStream);
        ioStream << '\n';
    }
}

void Mdie_TraceUtil::PrintTrackState(Mdie_TrackState* iStateP, std::ostream& ioStream) {
    ioStream << "Begin Mdie_TrackState:\n";
    if (iStateP == nullptr) return;
    for (const Mdie_NoteInProgress* noteP = iStateP->NextNoteOff(); noteP != nullptr; noteP = noteP->mNextP) {
        ioStream << "\t(" << int(noteP->mPitch) << ", " << int(noteP->mOnVelocity) << ", " << int(noteP->mOffVelocity)
                 << ", " << noteP->mReleaseTime.AsInt64() << ")\n";
    }
}

void Mdie_TraceUtil::TraceMidiEventList(Mdie_TimedEventList* iListP) {
    if (iListP == nullptr) return;
    for (const Mdie_TimedEvent& event : *iListP) {
        char text[kLineSize];
        FormatMidiEvent(text, sizeof text, event.GetEvent());
    }
}
