// Timed events, their playback order, and the "MdTEL" form of the timed event list.
#include "Mdie_TimedEvent.h"

#include <algorithm>

#include "Cmn_Exception.h"
#include "Sys_StdStreamHeader.h"
#include "Sys_TypedStream.h"

namespace {

// Types that carry a note-with-duration block, and so a duration at bytes 8..19.
bool HasDurationBlock(Vela_Event::EEventType iType) {
    switch (iType) {
        case Vela_Event::kNoteWithDuration:
        case Vela_Event::kClearNoteInProgress:
        case Vela_Event::kAddNoteInProgress:
        case Vela_Event::kPitchToMIDINoteWithDuration:
            return true;
        default:
            return false;
    }
}

// The fewest bytes one streamed element can take (its time word and the event's null flag),
// so that a damaged count never reserves more room than the block could fill.
constexpr int64_t kMinStreamedElementSize = 8 + 1;

}  // namespace

Time_TypedLength Mdie_TimedEvent::GetDuration() const {
    if (!HasDurationBlock(mEvent.GetType())) return Time_TypedLength(0, kTime_Ticks);
    return mEvent.AsNoteWithDuration().GetDuration();
}

bool Mdie_TimedEvent::PlaybackOrdering(const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB) {
    if (iA.mTime != iB.mTime) return iA.mTime < iB.mTime;
    return iA.mEvent.GetPlaybackPriority() < iB.mEvent.GetPlaybackPriority();
}

bool operator==(const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB) {
    return iA.GetTime() == iB.GetTime() && iA.GetEvent() == iB.GetEvent();
}

// ---------------------------------------------------------------- Mdie_TimedEventList

void Mdie_TimedEventList::StreamOut(Sys_TypedOutStream& iStream) const {
    Sys_StdStreamHeaderWriter header(iStream, kStreamTag, kStreamVersion);
    iStream.Write(static_cast<int32_t>(GetSize()));
    for (const Mdie_TimedEvent& timed : *this) {
        iStream.Write(Time_TypedDefs::GetRawDataForSave(timed.GetTime().AsInt64(), timed.GetTime().GetType()));
        timed.GetEvent().StreamOutReadable(iStream);
    }
    header.PatchSize();
}

void Mdie_TimedEventList::StreamIn(Sys_TypedInStream& iStream) {
    Init();
    Sys_StdStreamHeaderReader header(iStream, kStreamTag);
    header.CheckVersion(kStreamVersion, kStreamVersion);
    int32_t count = 0;
    iStream.Read(count);
    if (count < 0) throw Sys_StreamException("MdTEL: negative event count");
    const int64_t room = (iStream.GetLimit() - iStream.GetPos()) / kMinStreamedElementSize;
    Reserve(static_cast<size_t>(std::min<int64_t>(count, room)));
    for (int32_t i = 0; i < count; ++i) {
        int64_t raw = 0;
        iStream.Read(raw);
        int64_t timeCount = 0;
        Time_EType timeType = kTime_Ticks;
        Time_TypedDefs::SetFromRawSavedData(raw, &timeCount, &timeType);
        Mdie_TimedEvent timed;
        timed.SetTime(Time_Typed(timeCount, timeType));
        timed.GetEvent().StreamIn(iStream);
        PushBack(timed);
    }
    header.SkipTheRest();
}

Time_Typed Mdie_TimedEventList::GetLatestNoteOff() const {
    Time_Typed latest(0, kTime_Samples);
    for (const Mdie_TimedEvent& timed : *this) {
        if (!timed.IsNoteWithDurationEvent()) continue;
        const Time_Typed end = Time_Convert::ToType(timed.GetTime() + timed.GetDuration(), latest.GetType());
        if (latest < end) latest = end;
    }
    return latest;
}
