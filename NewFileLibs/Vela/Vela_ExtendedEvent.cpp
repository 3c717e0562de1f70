// Extended events and display items.
#include "Vela_ExtendedEvent.h"

#include "Cmn_Assert.h"

// ---------------------------------------------------------------- Vela_NoteWithDurationExtendedEvent

Vela_NoteWithDurationExtendedEvent::Vela_NoteWithDurationExtendedEvent(const Time_Typed& iTime,
                                                                       const Vela_NoteWithDurationEvent& iNote,
                                                                       bool iMuted)
    : Vela_NoteWithDurationExtendedEvent(iTime, iNote, Time_TypedLength(0, iTime.GetType()), iNote, iMuted) {}

Vela_NoteWithDurationExtendedEvent::Vela_NoteWithDurationExtendedEvent(const Time_Typed& iTime,
                                                                       const Vela_NoteWithDurationEvent& iNote,
                                                                       const Time_TypedLength& iQuantizeTimeDelta,
                                                                       const Vela_NoteWithDurationEvent& iOrigNote,
                                                                       bool iMuted)
    : Vela_ExtendedEvent(iTime, iNote) {
    mExtendedType = kNoteWithDuration;
    mQuantizeTimeDelta = iQuantizeTimeDelta;
    SetOrigEvent(iOrigNote);
    mMuted = iMuted;
}

void Vela_NoteWithDurationExtendedEvent::AdjustQuantizeTimeDelta(const Time_TypedLength& iDelta) {
    const bool bFail = iDelta.GetType() != mQuantizeTimeDelta.GetType();
    VELA_ASSERT(!bFail);
    if (!bFail) mQuantizeTimeDelta += iDelta;
}

Vela_NoteWithDurationEvent Vela_NoteWithDurationExtendedEvent::GetOrigEvent() const {
    return Vela_NoteWithDurationEvent(mOrigPitch, mOrigDuration, mOrigAttackVelocity, mOrigReleaseVelocity);
}

void Vela_NoteWithDurationExtendedEvent::SetOrigEvent(const Vela_NoteWithDurationEvent& iOrigNote) {
    mOrigPitch = iOrigNote.GetPitch();
    mOrigAttackVelocity = iOrigNote.GetOnVelocity();
    mOrigReleaseVelocity = iOrigNote.GetOffVelocity();
    mOrigDuration = iOrigNote.GetDuration();
}

// ---------------------------------------------------------------- Vela_DisplayItem

bool Vela_DisplayItem::sMIDIDisplayPropertyEffects = true;

Vela_DisplayItem::Vela_DisplayItem(const Vela_ExtendedEvent& iFirst, const Vela_ExtendedEvent& iSecond, bool iFlag,
                                   int iTag)
    : mFirstEvent(iFirst), mSecondEvent(iSecond), mFlag(iFlag), mTag(iTag) {
    mDisplayTime = GetDisplayedEvent().GetTime();
}

const Vela_ExtendedEvent& Vela_DisplayItem::GetDisplayedEvent() const {
    if (mFirstEvent.GetEvent().GetType() == Vela_Event::kPitchToMIDINoteWithDuration) return mFirstEvent;
    return sMIDIDisplayPropertyEffects ? mFirstEvent : mSecondEvent;
}

bool Vela_DisplayItem::PlaybackOrdering(const Vela_DisplayItem& iA, const Vela_DisplayItem& iB) {
    if (iA.mDisplayTime != iB.mDisplayTime) return iA.mDisplayTime < iB.mDisplayTime;
    const Vela_Event& a = iA.GetDisplayedEvent().GetEvent();
    const Vela_Event& b = iB.GetDisplayedEvent().GetEvent();
    const int priorityA = a.GetPlaybackPriority();
    const int priorityB = b.GetPlaybackPriority();
    if (priorityA != priorityB) return priorityA < priorityB;
    const int8_t kindA = static_cast<int8_t>(a.GetType());
    const int8_t kindB = static_cast<int8_t>(b.GetType());
    if (kindA != kindB) return kindA < kindB;
    return a < b;
}
