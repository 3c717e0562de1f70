#include "Vela_ScrubList.h"

// ---------------------------------------------------------------- pool

Vela_ScrubEventPool* Vela_ScrubEventPool::sFirstPool = nullptr;
Vela_ScrubEvent* Vela_ScrubEventPool::sFirstEvent = nullptr;

Vela_ScrubEventPool::Vela_ScrubEventPool() : mNextP(sFirstPool) {
    sFirstPool = this;
    for (int i = 0; i + 1 < kEventsPerBlock; ++i) mEvents[i].mNextP = &mEvents[i + 1];
    mEvents[kEventsPerBlock - 1].mNextP = sFirstEvent;
    sFirstEvent = &mEvents[0];
}

Vela_ScrubEvent* Vela_ScrubEventPool::GetEvent() {
    if (sFirstEvent == nullptr) new Vela_ScrubEventPool;  // links itself in
    Vela_ScrubEvent* eventP = sFirstEvent;
    sFirstEvent = eventP->mNextP;
    return eventP;
}

Vela_ScrubEvent* Vela_ScrubEventPool::ReleaseEvent(Vela_ScrubEvent* iEventP) {
    Vela_ScrubEvent* nextP = iEventP->mNextP;
    iEventP->mNextP = sFirstEvent;
    sFirstEvent = iEventP;
    return nextP;
}

void Vela_ScrubEventPool::Free() {
    while (sFirstPool != nullptr) {
        Vela_ScrubEventPool* nextP = sFirstPool->mNextP;
        delete sFirstPool;
        sFirstPool = nextP;
    }
}

// ---------------------------------------------------------------- list

namespace {

Vela_ScrubEvent* NewEvent(int64_t iTime, Vela_ScrubEvent::EKind iKind, uint16_t iValue, uint8_t iOnVelocity,
                          uint8_t iOffVelocity) {
    Vela_ScrubEvent* eventP = Vela_ScrubEventPool::GetEvent();
    eventP->mTime = iTime;
    eventP->mKind = iKind;
    eventP->mValue = iValue;
    eventP->mOnVelocity = iOnVelocity;
    eventP->mOffVelocity = iOffVelocity;
    return eventP;
}

}  // namespace

bool Vela_ScrubList::EventIsAfterTime(const Vela_ScrubEvent& iEvent, int64_t iTime) {
    if (iEvent.mTime != iTime) return iEvent.mTime > iTime;
    return iEvent.GetKind() >= Vela_ScrubEvent::kBendAfter;
}

void Vela_ScrubList::AddNote(const Mdie_TimedEvent& iNote, bool iFromEnd) {
    const Vela_NoteWithDurationBase& note = iNote.GetEvent().AsNoteWithDuration();
    const auto onVelocity = static_cast<uint8_t>(note.GetOnVelocity());
    const auto offVelocity = static_cast<uint8_t>(note.GetOffVelocity());
    const auto value = static_cast<uint16_t>(static_cast<uint8_t>(note.GetPitch()) | onVelocity << 8);
    const int64_t start = iNote.GetTime().AsInt64();
    Vela_ScrubEvent* onP = NewEvent(start, Vela_ScrubEvent::kNoteOn, value, onVelocity, offVelocity);
    Vela_ScrubEvent* offP =
        NewEvent(start + iNote.GetDuration().AsInt64(), Vela_ScrubEvent::kNoteOff, value, onVelocity, offVelocity);
    AddPair(onP, offP, iFromEnd);
}

void Vela_ScrubList::AddPitchBend(const Mdie_TimedEvent& iBend, short iValueBefore, bool iFromEnd) {
    const int64_t time = iBend.GetTime().AsInt64();
    const auto after = static_cast<uint16_t>(iBend.GetEvent().AsPitchBend().GetBendValue());
    AddPair(NewEvent(time, Vela_ScrubEvent::kBendBefore, static_cast<uint16_t>(iValueBefore), 0, 0),
            NewEvent(time, Vela_ScrubEvent::kBendAfter, after, 0, 0), iFromEnd);
}

void Vela_ScrubList::AddPair(Vela_ScrubEvent* iFirstP, Vela_ScrubEvent* iSecondP, bool iFromEnd) {
    if (mHeadP == nullptr) {
        Link(iFirstP, nullptr, nullptr);
        Link(iSecondP, iFirstP, nullptr);
    } else if (iFromEnd) {
        Vela_ScrubEvent* positionP = mTailP;
        InsertBefore(iSecondP, positionP);
        positionP = mTailP;
        InsertBefore(iFirstP, positionP);
    } else {
        Vela_ScrubEvent* positionP = mHeadP;
        InsertAfter(iFirstP, positionP);
        InsertAfter(iSecondP, positionP);
    }
}

void Vela_ScrubList::InsertAfter(Vela_ScrubEvent* iEventP, Vela_ScrubEvent*& ioPositionP) {
    Vela_ScrubEvent* nextP = ioPositionP;
    while (nextP != nullptr && nextP->GoesBefore(*iEventP)) nextP = nextP->mNextP;
    Link(iEventP, nextP ? nextP->mPrevP : mTailP, nextP);
    ioPositionP = iEventP;
}

void Vela_ScrubList::InsertBefore(Vela_ScrubEvent* iEventP, Vela_ScrubEvent*& ioPositionP) {
    Vela_ScrubEvent* prevP = ioPositionP;
    while (prevP != nullptr && !prevP->GoesBefore(*iEventP)) prevP = prevP->mPrevP;
    Link(iEventP, prevP, prevP ? prevP->mNextP : mHeadP);
    ioPositionP = iEventP;
}

void Vela_ScrubList::Link(Vela_ScrubEvent* iEventP, Vela_ScrubEvent* iPrevP, Vela_ScrubEvent* iNextP) {
    iEventP->mPrevP = iPrevP;
    iEventP->mNextP = iNextP;
    (iPrevP ? iPrevP->mNextP : mHeadP) = iEventP;
    (iNextP ? iNextP->mPrevP : mTailP) = iEventP;
    // The cursor is the first event after the current time: a new event right in front of it,
    // or at the end of a list without one, may take its place.
    if (iNextP == mCurrentP && EventIsAfterTime(*iEventP, mCurrentTime)) mCurrentP = iEventP;
}

Vela_ScrubEvent* Vela_ScrubList::MoveTowards(Time_Typed iTime) {
    const int64_t time = iTime.AsInt64();
    if (mHeadP == nullptr) {
        mCurrentTime = time;
        return nullptr;
    }
    if (mCurrentP != nullptr && !EventIsAfterTime(*mCurrentP, time)) {  // forward over the cursor's event
        Vela_ScrubEvent* eventP = mCurrentP;
        mCurrentP = eventP->mNextP;
        mCurrentTime = eventP->mTime;
        return eventP;
    }
    if (mCurrentP != nullptr || time <= mCurrentTime) {  // backward over the event before the cursor
        Vela_ScrubEvent* prevP = mCurrentP ? mCurrentP->mPrevP : mTailP;
        if (prevP != nullptr && EventIsAfterTime(*prevP, time)) {
            mCurrentP = prevP;
            mCurrentTime = prevP->mTime;
            return prevP;
        }
    }
    mCurrentTime = time;
    return nullptr;
}

void Vela_ScrubList::Clear() {
    for (Vela_ScrubEvent* eventP = mHeadP; eventP != nullptr;) eventP = Vela_ScrubEventPool::ReleaseEvent(eventP);
    mHeadP = mTailP = mCurrentP = nullptr;
}
