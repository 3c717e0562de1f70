#include "Vela_ReferencePlayer.h"

#include <algorithm>
#include <utility>

#include "Vela_EventStream.h"
#include "Vela_ExtendedEventList.h"
#include "Vela_NoteList.h"

namespace {

bool IsEmpty(const Vela_Chunk& iChunk) {
    return iChunk.GetNoteList()->GetNumNotes() == 0 && iChunk.GetContinuousList().GetSize() == 0 &&
           iChunk.GetEventStream()->Size() == 0;
}

}  // namespace

struct Vela_ReferencePlayer::TrackPlayer {
    TrackPlayer(const Vela_SongTrack& iTrack, const Mdie_ChaseTrackerMap& iMap)
        : mTrack(iTrack), mTrackerP(new Mdie_ChaseTracker(&iMap)), mSpareP(new Mdie_ChaseTracker(&iMap)) {}

    const Vela_SongTrack& mTrack;
    std::unique_ptr<Mdie_ChaseTracker> mTrackerP;  // what the output holds
    std::unique_ptr<Mdie_ChaseTracker> mSpareP;    // the next position's state, during a chase
    Mdie_TrackState mNotes;                        // the notes sounding on the output
};

// Turns events into messages on one track's channel at one time.
class Vela_ReferencePlayer::Emitter : public Mdie_EventReceiver {
public:
    Emitter(std::vector<Message>& ioPending, std::vector<unsigned char>& ioBytes) : mPending(ioPending), mBytes(ioBytes) {}

    void SetPlace(int iChannel, int64_t iOutputTick, int64_t iSongTick, bool iChase = false) {
        mChannel = iChannel;
        mOutputTick = iOutputTick;
        mSongTick = iSongTick;
        mChase = iChase;
    }
    void ReceiveEvent(const Vela_Event& iEvent) override {
        for (int i = 0; i < iEvent.GetNumMessages(); ++i) {
            const int length = iEvent.GetMessageLength(i);
            if (length <= 0) continue;
            const size_t offset = mBytes.size();
            mBytes.resize(offset + static_cast<size_t>(length));
            unsigned char* bytes = mBytes.data() + offset;
            iEvent.GetMessageData(reinterpret_cast<signed char*>(bytes), i);
            if (bytes[0] < 0xF0) bytes[0] = static_cast<unsigned char>(bytes[0] | mChannel);
            mPending.push_back({mOutputTick, mSongTick, static_cast<uint32_t>(offset), static_cast<uint32_t>(length),
                                static_cast<uint32_t>(mPending.size()), mChase});
        }
    }

private:
    std::vector<Message>& mPending;
    std::vector<unsigned char>& mBytes;
    int mChannel = 0;
    int64_t mOutputTick = 0;
    int64_t mSongTick = 0;
    bool mChase = false;
};

Vela_ReferencePlayer::Vela_ReferencePlayer(const Vela_Song& iSong, Vela_PlayerOutput& iOutput, int64_t iBlockTicks)
    : mSong(iSong), mOutput(iOutput), mBlockTicks(std::max<int64_t>(iBlockTicks, 1)), mEmitterP(new Emitter(mPending, mPendingBytes)) {
    mPending.reserve(kReservedMessages);
    mPendingBytes.reserve(kReservedBytes);
    mBlockEvents.Reserve(kReservedMessages);
    for (auto& channel : mHeld) channel.fill(-1);
    for (const Vela_SongTrack& track : mSong.mTracks)
        if (!IsEmpty(*track.mChunkP)) mTracks.push_back(std::make_unique<TrackPlayer>(track, mMap));
}

Vela_ReferencePlayer::~Vela_ReferencePlayer() = default;

void Vela_ReferencePlayer::SetLoop(int64_t iStart, int64_t iEnd) {
    mLoopStart = std::max<int64_t>(iStart, 0);
    mLoopEnd = std::max(iEnd, mLoopStart);
}

void Vela_ReferencePlayer::Start() {
    if (mPlaying) return;
    mPlaying = true;
    ChaseAt(mPosition);
    Flush();
}

void Vela_ReferencePlayer::Stop() {
    if (!mPlaying) return;
    mPlaying = false;
    Mdie_TrackState silence;
    for (auto& track : mTracks) {
        mEmitterP->SetPlace(track->mTrack.mChannel, mOutputTime, mPosition, true);
        track->mNotes.ComputeTransitionToNewState(&silence, mEmitterP.get(),
                                                  {true, Mdie_TrackState::kTransitionNoteOns, Time_Typed(mPosition, kTime_Ticks)}, true);
        track->mTrackerP->Release(*mEmitterP, Mdie_ChaseTracker::kReleaseAndDeactivate);
    }
    Flush();
}

void Vela_ReferencePlayer::Locate(int64_t iTick) {
    mPosition = std::max<int64_t>(iTick, 0);
    if (!mPlaying) return;
    ChaseAt(mPosition);
    Flush();
}

void Vela_ReferencePlayer::Run(int64_t iTicks) {
    while (iTicks > 0) {
        int64_t end = mPosition + std::min(iTicks, mBlockTicks);
        const bool looping = mPlaying && mLoopEnd > mLoopStart && mPosition < mLoopEnd;
        if (looping) end = std::min(end, mLoopEnd);
        if (mPlaying) PlayBlock(mPosition, end);
        iTicks -= end - mPosition;
        mOutputTime += end - mPosition;
        mPosition = end;
        if (looping && mPosition == mLoopEnd) {
            mPosition = mLoopStart;
            ChaseAt(mPosition);
        }
        Flush();
    }
}

// Brings every track's output to what is in force at iTick: chased values, then notes.
void Vela_ReferencePlayer::ChaseAt(int64_t iTick) {
    const Time_Typed at(iTick, kTime_Ticks);
    const Time_Typed origin = Time_Typed::MinTime(kTime_Ticks);
    for (auto& track : mTracks) {
        const Vela_Chunk& chunk = *track->mTrack.mChunkP;
        mEmitterP->SetPlace(track->mTrack.mChannel, mOutputTime, iTick, true);
        // Notes that started before the position and still sound there (those starting at it
        // are played by the first block).
        Mdie_TrackState next;
        if (mRestrike) chunk.AddNoteStateAtTime(&next, at, origin, at, Time_TypedLength(0, kTime_Ticks), false);
        track->mNotes.ComputeTransitionToNewState(&next, mEmitterP.get(), {true, Mdie_TrackState::kTransitionNoteOns, at}, true);
        chunk.GetChaseStateAtTime(track->mSpareP.get(), at, origin);
        track->mSpareP->ChaseAndRelease(track->mTrackerP.get(), *mEmitterP);
        std::swap(track->mTrackerP, track->mSpareP);
        // The hand-over ends with the old tracker's release, which always sends the first
        // entry's rest value (controller 1 on the standard map), in force or not: send the
        // value in force again after it.
        Mdie_ChaseTracker_ChasingEntry first;
        if (mMap.GetNumChasingIndices() > 0 && track->mTrackerP->GetChasingEntry(first, mMap.GetEntrySubStream(0)) && first.mActive)
            mEmitterP->ReceiveEvent(first.mSubStream.MakeEvent(first.mValue));
    }
}

void Vela_ReferencePlayer::SendNoteOffs(TrackPlayer& ioTrack, int64_t iBlockStart, int64_t iUntil, bool iInclusive) {
    for (const Mdie_NoteInProgress* note = ioTrack.mNotes.NextNoteOff(); note != nullptr; note = ioTrack.mNotes.NextNoteOff()) {
        const int64_t release = std::max(note->mReleaseTime.AsInt64(), iBlockStart);
        if (iInclusive ? release > iUntil : release >= iUntil) break;
        mEmitterP->SetPlace(ioTrack.mTrack.mChannel, mOutputTime + release - iBlockStart, release);
        mEmitterP->ReceiveEvent(Vela_NoteOffEvent(note->mPitch, note->mOffVelocity));
        ioTrack.mNotes.PopNoteOff();
    }
}

void Vela_ReferencePlayer::PlayBlock(int64_t iStart, int64_t iEnd) {
    for (auto& track : mTracks) {
        mBlockEvents.Init();
        Vela_EventListWrapper output(mBlockEvents);
        track->mTrack.mChunkP->GetMidiEventsInRange(&output, Time_TypedLength(0, kTime_Ticks), Time_Typed(iStart, kTime_Ticks),
                                                    Time_Typed(iEnd, kTime_Ticks), false, track->mTrackerP.get(), &mMap,
                                                    kNoteOffNone);
        for (const Mdie_TimedEvent& timed : mBlockEvents) {
            const int64_t time = timed.GetTime().AsInt64();
            SendNoteOffs(*track, iStart, time, true);
            mEmitterP->SetPlace(track->mTrack.mChannel, mOutputTime + time - iStart, time);
            if (timed.IsNoteWithDurationEvent()) {
                const auto& note = timed.GetEvent().AsNoteWithDuration();
                mEmitterP->ReceiveEvent(Vela_NoteOnEvent(note.GetPitch(), note.GetOnVelocity()));
                track->mNotes.ReceiveEvent(timed);
            } else {
                mEmitterP->ReceiveEvent(timed.GetEvent());
            }
        }
        SendNoteOffs(*track, iStart, iEnd, false);
    }
}

void Vela_ReferencePlayer::Flush() {
    // Ties keep the order the messages were made in; std::sort, unlike std::stable_sort, needs
    // no buffer, so a block that fits the reserved room allocates nothing.
    std::sort(mPending.begin(), mPending.end(), [](const Message& iA, const Message& iB) {
        return iA.mOutputTick != iB.mOutputTick ? iA.mOutputTick < iB.mOutputTick : iA.mSequence < iB.mSequence;
    });
    for (const Message& message : mPending) {
        const unsigned char* bytes = mPendingBytes.data() + message.mOffset;
        if (!Repeats(bytes, message.mLength) || !message.mChase)
            mOutput.Send(message.mOutputTick, message.mSongTick, bytes, static_cast<int>(message.mLength));
    }
    mPending.clear();
    mPendingBytes.clear();
}

bool Vela_ReferencePlayer::Repeats(const unsigned char* iBytes, size_t iLength) {
    const unsigned kind = iBytes[0] >> 4;
    int slot = -1;
    if (kind == 0xB && iLength == 3) slot = iBytes[1];
    else if (kind == 0xC) slot = kProgramSlot;
    else if (kind == 0xD) slot = kPressureSlot;
    else if (kind == 0xE && iLength == 3) slot = kBendSlot;
    if (slot < 0) return false;
    const int value = iLength == 3 && kind != 0xB ? iBytes[1] | (iBytes[2] << 7) : iBytes[iLength - 1];
    int& held = mHeld[iBytes[0] & 0x0F][slot];
    if (held == value) return true;
    held = value;
    return false;
}
