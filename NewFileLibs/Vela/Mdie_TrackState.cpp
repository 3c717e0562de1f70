#include "Mdie_TrackState.h"

#include <algorithm>
#include <new>

#include "Cmn_Assert.h"
#include "Vela_Trace.h"

#define TRACK_TRACE(text, ...) VELA_TRACE(kVela_TraceCategory, "Mdie_TrackState %p " text, static_cast<const void*>(this) __VA_OPT__(, ) __VA_ARGS__)

// The transition's argument checks keep the line numbers they have always been reported with,
// so reports stay comparable across versions of this file.
#define TRANSITION_ASSERT(cond, line) Cmn_Assert::HandleMagicAssert((cond) != nullptr, #cond CMN_ASSERT_MARKER __FILE__, line)

namespace {

class NoteOffMatcher : public Mdie_TrackState_Matcher {
public:
    explicit NoteOffMatcher(int8_t iPitch) : mPitch(iPitch) {}
    bool Matches(const Mdie_NoteInProgress& iNote) const override { return iNote.mPitch == mPitch; }

private:
    int8_t mPitch;
};

class ClearNoteInProgressMatcher : public Mdie_TrackState_Matcher {
public:
    explicit ClearNoteInProgressMatcher(const Mdie_TimedEvent& iEvent) : mEvent(iEvent) {}
    bool Matches(const Mdie_NoteInProgress& iNote) const override {
        const Vela_NoteWithDurationBase& note = mEvent.GetEvent().AsClearNoteInProgress();
        return iNote.mReleaseTime == mEvent.GetTime() + note.GetDuration() && iNote.mPitch == note.GetPitch() &&
               iNote.mOnVelocity == note.GetOnVelocity() && iNote.mOffVelocity == note.GetOffVelocity();
    }

private:
    Mdie_TimedEvent mEvent;
};

}  // namespace

// ---------------------------------------------------------------- the list

Mdie_TrackState& Mdie_TrackState::operator=(const Mdie_TrackState& iOther) {
    if (this == &iOther) return *this;
    DeleteNotesInProgress();
    Mdie_NoteInProgress** tailPP = &mHeadP;
    for (const Mdie_NoteInProgress* srcP = iOther.mHeadP; srcP != nullptr; srcP = srcP->mNextP) {
        Mdie_NoteInProgress* copyP = Mdie_NoteInProgress::Alloc();
        if (copyP == nullptr) break;
        *copyP = *srcP;
        copyP->mNextP = nullptr;
        *tailPP = copyP;
        tailPP = &copyP->mNextP;
    }
    return *this;
}

void Mdie_TrackState::DeleteNotesInProgress() {
    while (mHeadP != nullptr) PopNoteOff();
}

void Mdie_TrackState::PopNoteOff() {
    if (mHeadP == nullptr) return;
    Mdie_NoteInProgress* noteP = mHeadP;
    mHeadP = noteP->mNextP;
    noteP->Free();
}

void Mdie_TrackState::OffsetTimes(const Time_TypedLength& iLength) {
    for (Mdie_NoteInProgress* noteP = mHeadP; noteP != nullptr; noteP = noteP->mNextP) noteP->mReleaseTime += iLength;
}

void Mdie_TrackState::AddNoteInProgress(Time_Typed iStart, const Vela_NoteWithDurationBase& iNote) {
    Mdie_NoteInProgress* newP = Mdie_NoteInProgress::Alloc();
    if (newP == nullptr) return;
    newP->mPitch = iNote.GetPitch();
    newP->mOnVelocity = iNote.GetOnVelocity();
    newP->mOffVelocity = iNote.GetOffVelocity();
    newP->mReleaseTime = iStart + iNote.GetDuration();
    Mdie_NoteInProgress** linkPP = &mHeadP;
    while (*linkPP != nullptr && (*linkPP)->mReleaseTime < newP->mReleaseTime) linkPP = &(*linkPP)->mNextP;
    newP->mNextP = *linkPP;
    *linkPP = newP;
}

void Mdie_TrackState::RemoveMatchingNoteInProgress(const Mdie_TrackState_Matcher& iMatcher) {
    for (Mdie_NoteInProgress** linkPP = &mHeadP; *linkPP != nullptr; linkPP = &(*linkPP)->mNextP) {
        if (!iMatcher.Matches(**linkPP)) continue;
        Mdie_NoteInProgress* foundP = *linkPP;
        *linkPP = foundP->mNextP;
        TRACK_TRACE("RemoveMatchingNoteInProgress found");
        foundP->Free();
        return;
    }
    TRACK_TRACE("RemoveMatchingNoteInProgress not found");
}

void Mdie_TrackState::FilterNotesInProgress(const NoteInProgressFilter& iFilter) {
    Mdie_NoteInProgress* srcP = mHeadP;
    mHeadP = nullptr;
    Mdie_NoteInProgress* destTailP = nullptr;
    while (srcP != nullptr) {
        Mdie_NoteInProgress* nextP = srcP->mNextP;
        if (!iFilter.Keep(*srcP)) {
            srcP->Free();
        } else {
            srcP->mNextP = nullptr;
            if (destTailP == nullptr) {
                mHeadP = srcP;
            } else {
                VELA_ASSERT(srcP->mReleaseTime >= destTailP->mReleaseTime);
                destTailP->mNextP = srcP;
            }
            destTailP = srcP;
        }
        srcP = nextP;
    }
}

// ---------------------------------------------------------------- receiving events

void Mdie_TrackState::ReceiveEvent(const Vela_Event& iEvent) {
    switch (iEvent.GetType()) {
        case Vela_Event::kNoteOn: {
            const Vela_NoteOnEvent& on = iEvent.AsNoteOn();
            TRACK_TRACE("ReceiveEvent note on %d", on.GetPitch());
            const Vela_NoteWithDurationEvent note(on.GetPitch(), Time_TypedLength(1, kTime_Samples), on.GetVelocity(), 64);
            AddNoteInProgress(Time_Typed(0, kTime_Samples), note);
            break;
        }
        case Vela_Event::kNoteOff:
            TRACK_TRACE("ReceiveEvent note off %d", iEvent.AsNoteOff().GetPitch());
            RemoveMatchingNoteInProgress(NoteOffMatcher(iEvent.AsNoteOff().GetPitch()));
            break;
        default:
            break;
    }
}

void Mdie_TrackState::ReceiveEvent(const Mdie_TimedEvent& iEvent) {
    const Vela_Event& event = iEvent.GetEvent();
    switch (event.GetType()) {
        case Vela_Event::kNoteOff:
            TRACK_TRACE("ReceiveTimedEvent note off %d", event.AsNoteOff().GetPitch());
            RemoveMatchingNoteInProgress(NoteOffMatcher(event.AsNoteOff().GetPitch()));
            break;
        case Vela_Event::kNoteWithDuration:
            TRACK_TRACE("ReceiveTimedEvent note on %d", event.AsNoteWithDuration().GetPitch());
            AddNoteInProgress(iEvent.GetTime(), event.AsNoteWithDuration());
            break;
        case Vela_Event::kClearNoteInProgress:
            TRACK_TRACE("ReceiveTimedEvent clear note %d", event.AsClearNoteInProgress().GetPitch());
            RemoveMatchingNoteInProgress(ClearNoteInProgressMatcher(iEvent));
            break;
        case Vela_Event::kAddNoteInProgress:
            TRACK_TRACE("ReceiveTimedEvent add note %d", event.AsAddNoteInProgress().GetPitch());
            AddNoteInProgress(iEvent.GetTime(), event.AsAddNoteInProgress());
            break;
        default:
            break;
    }
}

// ---------------------------------------------------------------- transitions

namespace {

// Copies of up to Mdie_TrackState::kMaxPairedNotes notes of a state, the first in release
// order, read back in ascending pitch. Copies, not pointers, so that pairing reads nothing of
// the states while the paired events go out. The array is left uninitialized; sorting moves two-byte keys
// (pitch, then copy index), so a transition costs little more than the notes it pairs.
class PairingCopy {
public:
    static constexpr int kMax = Mdie_TrackState::kMaxPairedNotes;
    static_assert(kMax <= 256, "a copy index fits the key's low byte");

    // Notes beyond kMax are handed to iOverflow, in list order.
    template <class TOverflow>
    PairingCopy(const Mdie_NoteInProgress* iHeadP, TOverflow iOverflow) {
        for (const Mdie_NoteInProgress* noteP = iHeadP; noteP != nullptr; noteP = noteP->mNextP) {
            if (mCount == kMax) {
                iOverflow(*noteP);
                continue;
            }
            new (&mNotes[mCount]) Mdie_NoteInProgress(*noteP);
            mKeys[mCount] = static_cast<uint16_t>((static_cast<uint8_t>(noteP->mPitch) ^ 0x80) << 8 | mCount);
            ++mCount;
        }
        std::sort(mKeys, mKeys + mCount);
    }

    int Count() const { return mCount; }
    const Mdie_NoteInProgress& operator[](int iIndex) const { return mNotes[mKeys[iIndex] & 0xFF]; }

private:
    union {
        Mdie_NoteInProgress mNotes[kMax];
    };
    uint16_t mKeys[kMax];
    int mCount = 0;
};

void SendNoteOff(Mdie_EventReceiver& iOutput, const Mdie_NoteInProgress& iNote) {
    iOutput.ReceiveEvent(Vela_NoteOffEvent(iNote.mPitch, iNote.mOffVelocity));
}

void SendNoteOn(Mdie_EventReceiver& iOutput, const Mdie_NoteInProgress& iNote) {
    iOutput.ReceiveEvent(Vela_NoteOnEvent(iNote.mPitch, iNote.mOnVelocity));
}

}  // namespace

void Mdie_TrackState::ComputeNoteTransitions(Mdie_TrackState* iNewStateP, Mdie_EventReceiver* iOutputP,
                                             ETransitionMode iMode, Time_Typed iNow) {
    TRANSITION_ASSERT(iOutputP, 273);
    TRANSITION_ASSERT(iNewStateP, 274);
    if (iOutputP == nullptr) return;
    Mdie_EventReceiver& output = *iOutputP;
    const Mdie_NoteInProgress* newHeadP = iNewStateP ? iNewStateP->mHeadP : nullptr;

    const PairingCopy oldNotes(mHeadP, [&](const Mdie_NoteInProgress& n) { SendNoteOff(output, n); });
    const PairingCopy newNotes(newHeadP, [&](const Mdie_NoteInProgress& n) { SendNoteOn(output, n); });
    const int oldCount = oldNotes.Count();
    const int newCount = newNotes.Count();

    int a = 0;
    int b = 0;
    while (a < oldCount || b < newCount) {
        if (b == newCount || (a < oldCount && oldNotes[a].mPitch < newNotes[b].mPitch)) {
            SendNoteOff(output, oldNotes[a++]);
            continue;
        }
        const Mdie_NoteInProgress& newNote = newNotes[b++];
        if (a == oldCount || oldNotes[a].mPitch > newNote.mPitch) {
            if (iMode == kTransitionNotesInProgress && newNote.mReleaseTime > iNow) {
                output.ReceiveEvent(Vela_NoteWithDurationEvent(newNote.mPitch, newNote.mReleaseTime - iNow,
                                                               newNote.mOnVelocity, newNote.mOffVelocity));
            } else if (iMode == kTransitionNoteOns) {
                SendNoteOn(output, newNote);
            }
            continue;
        }
        const Mdie_NoteInProgress& oldNote = oldNotes[a++];
        if (iMode != kTransitionNotesInProgress) continue;  // the note keeps sounding
        output.ReceiveEvent(Vela_ClearNoteInProgressEvent(oldNote.mPitch, oldNote.mReleaseTime - iNow,
                                                          oldNote.mOnVelocity, oldNote.mOffVelocity));
        output.ReceiveEvent(Vela_AddNoteInProgressEvent(newNote.mPitch, newNote.mReleaseTime - iNow,
                                                        newNote.mOnVelocity, newNote.mOffVelocity));
    }
}

void Mdie_TrackState::ComputeTransitionToNewState(Mdie_TrackState* iNewStateP, Mdie_EventReceiver* iOutputP,
                                                  const Mdie_ChaseSpec& iChase, bool iAdoptNewState) {
    if (!iChase.mChaseNotes) return;
    if (iOutputP != nullptr) ComputeNoteTransitions(iNewStateP, iOutputP, iChase.mTransitionMode, iChase.mChaseTime);
    if (iAdoptNewState && iNewStateP != nullptr) *this = *iNewStateP;
}
