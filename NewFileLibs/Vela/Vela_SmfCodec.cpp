#include "Vela_SmfCodec.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <tuple>

#include "Mdie_SubStream.h"
#include "Vela_Event.h"

namespace {

constexpr int kNumChannels = 16;
constexpr int kNumPitches = 128;
constexpr int8_t kNeutralReleaseVelocity = 64;
constexpr int64_t kMaxDelta = 0x0FFFFFFF;  // the largest four-byte variable-length number

std::string Hex(unsigned iByte) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", iByte & 0xFFu);
    return text;
}

// Bounds-checked big-endian reading of one file; every failure names the offset it reached.
class ByteReader {
public:
    ByteReader(const unsigned char* iData, size_t iLength) : mData(iData), mEnd(iLength) {}

    size_t Offset() const { return mPos; }
    bool AtEnd() const { return mPos >= mEnd; }
    [[noreturn]] void Fail(const std::string& iReason) const { throw Vela_SmfError(mPos, iReason); }

    void Need(size_t iCount, const char* iWhat) const {
        if (mEnd - mPos < iCount) Fail(std::string("file ends inside ") + iWhat);
    }
    unsigned U8(const char* iWhat) {
        Need(1, iWhat);
        return mData[mPos++];
    }
    unsigned Peek() const { return mData[mPos]; }
    uint32_t Big(int iBytes, const char* iWhat) {
        Need(static_cast<size_t>(iBytes), iWhat);
        uint32_t value = 0;
        for (int i = 0; i < iBytes; ++i) value = (value << 8) | mData[mPos++];
        return value;
    }
    // A variable-length number: at most four bytes, seven bits each.
    uint32_t Vlq(const char* iWhat) {
        const size_t start = mPos;
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            const unsigned byte = U8(iWhat);
            value = (value << 7) | (byte & 0x7F);
            if ((byte & 0x80) == 0) return value;
        }
        throw Vela_SmfError(start, std::string("variable-length number of more than four bytes in ") + iWhat);
    }
    std::string Bytes(size_t iCount, const char* iWhat) {
        Need(iCount, iWhat);
        std::string bytes(reinterpret_cast<const char*>(mData + mPos), iCount);
        mPos += iCount;
        return bytes;
    }
    // Narrows the readable range to the next iLength bytes (a chunk); returns the old end.
    size_t Limit(size_t iLength) {
        const size_t oldEnd = mEnd;
        mEnd = mPos + iLength;
        return oldEnd;
    }
    void Unlimit(size_t iOldEnd) {
        mPos = mEnd;
        mEnd = iOldEnd;
    }

private:
    const unsigned char* mData;
    size_t mEnd;
    size_t mPos = 0;
};

// ---------------------------------------------------------------- writing

void PutBig(std::vector<unsigned char>& ioOut, uint32_t iValue, int iBytes) {
    for (int i = iBytes - 1; i >= 0; --i) ioOut.push_back(static_cast<unsigned char>(iValue >> (8 * i)));
}
void PutVlq(std::vector<unsigned char>& ioOut, uint64_t iValue) {
    unsigned char bytes[10];
    int count = 0;
    do {
        bytes[count++] = static_cast<unsigned char>(iValue & 0x7F);
        iValue >>= 7;
    } while (iValue != 0);
    while (count > 1) ioOut.push_back(bytes[--count] | 0x80);
    ioOut.push_back(bytes[0]);
}
void PutData(std::vector<unsigned char>& ioOut, const std::string& iData) {
    PutVlq(ioOut, iData.size());
    ioOut.insert(ioOut.end(), iData.begin(), iData.end());
}

// One event of a file track before writing: sorted by time, then track (the file track's
// first track first: the reader gives the metas and sysex to the track of the first channel
// message, so that track's events must lead at the first tick), then class, key and order.
struct Item {
    enum EClass { kSide, kNoteOff, kChannelSide, kOther, kNoteOn, kZeroNoteOff };
    int64_t mTick;
    int mClass;
    int64_t mKey;
    size_t mOrder;
    std::vector<unsigned char> mBytes;
    size_t mTrack = 0;  // rank of the track within its file track
    bool operator<(const Item& iOther) const {
        return std::tie(mTick, mTrack, mClass, mKey, mOrder) <
               std::tie(iOther.mTick, iOther.mTrack, iOther.mClass, iOther.mKey, iOther.mOrder);
    }
};

// The file bytes of a channel or sysex event: its messages joined by zero delta times, the
// channel OR-ed into channel statuses, sysex as F0, length, payload and F7.
std::vector<unsigned char> EventBytes(const Vela_Event& iEvent, int iChannel) {
    std::vector<unsigned char> bytes;
    std::vector<signed char> message;
    for (int i = 0; i < iEvent.GetNumMessages(); ++i) {
        const int size = iEvent.GetMessageLength(i);
        if (size <= 0) continue;
        message.resize(static_cast<size_t>(size));
        iEvent.GetMessageData(message.data(), i);
        if (!bytes.empty()) bytes.push_back(0);  // the delta time before a further message
        if (iEvent.IsMessageSysex(i)) {
            bytes.push_back(0xF0);
            PutVlq(bytes, static_cast<uint64_t>(size) - 1);
        } else {
            message[0] = static_cast<signed char>(static_cast<unsigned char>(message[0]) | (iChannel & 0x0F));
            bytes.push_back(static_cast<unsigned char>(message[0]));
        }
        bytes.insert(bytes.end(), message.begin() + 1, message.end());
    }
    return bytes;
}

struct OpenNote {
    int mTrack;     // index into the song's tracks
    size_t mEvent;  // index into that track's events
};

// Reads one track chunk into the song, splitting it by channel.
class TrackReader {
public:
    TrackReader(ByteReader& ioReader, Vela_SmfSong& ioSong, int iFileTrack, int iDivision)
        : mIn(ioReader), mSong(ioSong), mFileTrack(iFileTrack), mDivision(iDivision) {
        mChannelTrack.fill(-1);
        mProgramTick.fill(-1);
    }

    void Read() {
        bool ended = false;
        while (!mIn.AtEnd() && !ended) {
            mFileTick += mIn.Vlq("a delta time");
            if (mFileTick > kTime_MaxCount / Time_cTicksPerQuarter) Fail(mIn.Offset(), "delta times add up past the library's time range");
            mTick = Vela_SmfCodec::ToLibraryTicks(mFileTick, mDivision);
            const unsigned first = mIn.U8("an event");
            if (first == 0xFF) ended = ReadMeta();
            else if (first == 0xF0 || first == 0xF7) ReadSysex(first);
            else if (first >= 0xF0) Fail(mIn.Offset() - 1, "status byte " + Hex(first) + " is not allowed in a file");
            else ReadChannelMessage(first);
        }
        EndOpenNotes();
        MainTrack();  // a file track with no events still counts
        for (int track = FirstTrack(); track < static_cast<int>(mSong.mTracks.size()); ++track) {
            Vela_SmfTrack& done = mSong.mTracks[static_cast<size_t>(track)];
            done.mEndTick = mTick;
            // The values that later ones replaced were cleared, not erased (see AddValue).
            std::erase_if(done.mEvents, [](const Mdie_TimedEvent& iEvent) { return iEvent.GetEvent().GetType() == Vela_Event::kNull; });
            Vela_SmfCodec::PutInReadingOrder(done);
        }
    }

private:
    [[noreturn]] void Fail(size_t iOffset, const std::string& iReason) { throw Vela_SmfError(iOffset, iReason); }

    int FirstTrack() const { return mFirstTrack < 0 ? static_cast<int>(mSong.mTracks.size()) : mFirstTrack; }

    // The first track of this file track, made on demand; it takes the first channel seen.
    Vela_SmfTrack& MainTrack() {
        if (mFirstTrack < 0) {
            mFirstTrack = static_cast<int>(mSong.mTracks.size());
            mSong.mTracks.emplace_back();
            mSong.mTracks.back().mFileTrack = mFileTrack;
            mSong.mTracks.back().mChannel = -1;
        }
        return mSong.mTracks[static_cast<size_t>(mFirstTrack)];
    }
    int TrackOfChannel(int iChannel) {
        int& track = mChannelTrack[static_cast<size_t>(iChannel)];
        if (track >= 0) return track;
        Vela_SmfTrack& main = MainTrack();
        if (main.mChannel < 0) {
            main.mChannel = iChannel;
            track = mFirstTrack;
        } else {
            track = static_cast<int>(mSong.mTracks.size());
            mSong.mTracks.emplace_back();
            mSong.mTracks.back().mFileTrack = mFileTrack;
            mSong.mTracks.back().mChannel = iChannel;
        }
        return track;
    }
    Vela_SmfTrack& Track(int iIndex) { return mSong.mTracks[static_cast<size_t>(iIndex)]; }

    void AddSide(Vela_SmfTrack& ioTrack, Vela_SmfSideEvent::EKind iKind, uint8_t iMetaType, std::string iData) {
        ioTrack.mSide.push_back({mTick, iKind, iMetaType, std::move(iData)});
    }

    // Returns true at the end of the track.
    bool ReadMeta() {
        const auto type = static_cast<uint8_t>(mIn.U8("a meta event"));
        const uint32_t length = mIn.Vlq("a meta event");
        std::string data = mIn.Bytes(length, "a meta event");
        if (type == 0x2F) return true;
        AddSide(MainTrack(), Vela_SmfSideEvent::kMeta, type, std::move(data));
        return false;
    }

    void ReadSysex(unsigned iStatus) {
        const uint32_t length = mIn.Vlq("a system-exclusive event");
        std::string data = mIn.Bytes(length, "a system-exclusive event");
        Vela_SmfTrack& main = MainTrack();
        if (iStatus == 0xF7) {
            AddSide(main, Vela_SmfSideEvent::kEscape, 0, std::move(data));
        } else if (!data.empty() && static_cast<unsigned char>(data.back()) == 0xF7) {
            const auto* payload = reinterpret_cast<const unsigned char*>(data.data());
            main.mEvents.emplace_back(Time_Typed(mTick, kTime_Ticks),
                                      Vela_SysexEvent(static_cast<int>(data.size()) - 1, payload));
        } else {
            AddSide(main, Vela_SmfSideEvent::kSysexPart, 0, std::move(data));
        }
    }

    unsigned DataByte() {
        const size_t at = mIn.Offset();
        const unsigned byte = mIn.U8("a channel message");
        if (byte & 0x80) Fail(at, "status byte " + Hex(byte) + " where a data byte was expected");
        return byte;
    }

    void ReadChannelMessage(unsigned iFirst) {
        unsigned status = iFirst;
        unsigned data1 = 0;
        if (iFirst < 0x80) {
            if (mRunningStatus == 0) Fail(mIn.Offset() - 1, "data byte " + Hex(iFirst) + " without a status");
            status = mRunningStatus;
            data1 = iFirst;
        } else {
            mRunningStatus = iFirst;
            data1 = DataByte();
        }
        const unsigned kind = status >> 4;
        const int channel = static_cast<int>(status & 0x0F);
        const unsigned data2 = (kind == 0xC || kind == 0xD) ? 0 : DataByte();
        const int track = TrackOfChannel(channel);
        const auto d1 = static_cast<int8_t>(data1);
        const auto d2 = static_cast<int8_t>(data2);
        switch (kind) {
            case 0x8: NoteOff(track, status, data1, data2, d2); break;
            case 0x9:
                if (data2 == 0) NoteOff(track, status, data1, data2, kNeutralReleaseVelocity);
                else NoteOn(track, channel, d1, d2);
                break;
            case 0xA: AddValue(track, Vela_PolyPressureEvent(d1, d2), status); break;
            case 0xB:
                if (data1 == 0 || data1 == 32) BankSelect(track, channel, data1 == 0, d2);
                else if (data1 >= 120)
                    AddSide(Track(track), Vela_SmfSideEvent::kChannelMessage, 0,
                            std::string{static_cast<char>(status), static_cast<char>(data1), static_cast<char>(data2)});
                else AddValue(track, Vela_ControllerEvent(d1, d2), status);
                break;
            case 0xC: ProgramGroup(track, channel).SetFullProgram(d1); break;
            case 0xD: AddValue(track, Vela_MonoPressureEvent(d1), status); break;
            default: AddValue(track, Vela_PitchBendEvent(static_cast<int16_t>(int((data2 << 7) | data1) - 8192)), status); break;
        }
    }

    void Add(int iTrack, const Vela_Event& iEvent) {
        Track(iTrack).mEvents.emplace_back(Time_Typed(mTick, kTime_Ticks), iEvent);
    }
    // A continuous value: one that an earlier value of its sub-stream at this tick gave way to
    // is kept beside the events as bytes (a chunk holds one value per sub-stream and time), at
    // the place among the side events where the file had it. The later value goes last, where
    // the file put it. So writing back, which puts the channel messages kept aside before a
    // tick's other events, reads to the same song.
    void AddValue(int iTrack, const Vela_Event& iEvent, unsigned iStatus) {
        if (mValuesTick != mTick) {
            mValues.clear();
            mValuesTick = mTick;
        }
        auto& events = Track(iTrack).mEvents;
        const int32_t index = Mdie_SubStream(iEvent).GetIndex();
        for (size_t r = 0; r < mValues.size(); ++r) {
            const ValueRead read = mValues[r];
            if (read.mTrack != iTrack) continue;
            Vela_Event& earlier = events[read.mEvent].GetEvent();
            if (earlier.GetType() != iEvent.GetType() || Mdie_SubStream(earlier).GetIndex() != index) continue;
            const std::vector<unsigned char> bytes = EventBytes(earlier, static_cast<int>(iStatus & 0x0F));
            auto& side = Track(iTrack).mSide;
            side.insert(side.begin() + static_cast<ptrdiff_t>(read.mSide),
                        {mTick, Vela_SmfSideEvent::kChannelMessage, 0, std::string(bytes.begin(), bytes.end())});
            for (size_t j = 0; j < mValues.size(); ++j) {  // the values read after it now follow it
                if (mValues[j].mTrack == iTrack && (mValues[j].mSide > read.mSide || (mValues[j].mSide == read.mSide && j > r))) ++mValues[j].mSide;
            }
            mValues.erase(mValues.begin() + static_cast<ptrdiff_t>(r));
            // Cleared, not erased: open notes and program groups hold indices into the events.
            earlier = Vela_Event();
            break;
        }
        mValues.push_back({iTrack, events.size(), Track(iTrack).mSide.size()});
        Add(iTrack, iEvent);
    }

    // The program event of this channel at this tick, made (every part disabled) on demand.
    Vela_ProgramEvent& ProgramGroup(int iTrack, int iChannel) {
        auto& events = Track(iTrack).mEvents;
        if (mProgramTick[static_cast<size_t>(iChannel)] != mTick) {
            mProgramTick[static_cast<size_t>(iChannel)] = mTick;
            mProgramEvent[static_cast<size_t>(iChannel)] = events.size();
            Vela_ProgramEvent program(0, 0);
            program.SetProgramEnable(false);
            program.SetMSBBankEnable(false);
            program.SetLSBBankEnable(false);
            Add(iTrack, program);
        }
        return events[mProgramEvent[static_cast<size_t>(iChannel)]].GetEvent().AsProgram();
    }
    void BankSelect(int iTrack, int iChannel, bool iMSB, int8_t iValue) {
        Vela_ProgramEvent& program = ProgramGroup(iTrack, iChannel);
        if (iMSB) {
            program.SetMSBBank(iValue);
            program.SetMSBBankEnable(true);
        } else {
            program.SetLSBBank(iValue);
            program.SetLSBBankEnable(true);
        }
    }

    void NoteOn(int iTrack, int iChannel, int8_t iPitch, int8_t iVelocity) {
        const Vela_NoteWithDurationEvent note(iPitch, Time_TypedLength(0, kTime_Ticks), iVelocity,
                                              kNeutralReleaseVelocity);
        mOpen[static_cast<size_t>(iChannel * kNumPitches + iPitch)].push_back({iTrack, Track(iTrack).mEvents.size()});
        Add(iTrack, note);
    }
    // An unmatched note-off is kept aside as its bytes.
    void NoteOff(int iTrack, unsigned iStatus, unsigned iPitch, unsigned iData2, int8_t iVelocity) {
        auto& open = mOpen[static_cast<size_t>(iStatus & 0x0F) * kNumPitches + iPitch];
        if (open.empty()) {
            ++mSong.mUnmatchedNoteOffs;
            AddSide(Track(iTrack), Vela_SmfSideEvent::kChannelMessage, 0,
                    std::string{static_cast<char>(iStatus), static_cast<char>(iPitch), static_cast<char>(iData2)});
            return;
        }
        End(open.front(), iVelocity);
        open.erase(open.begin());
    }
    void End(const OpenNote& iNote, int8_t iVelocity) {
        Mdie_TimedEvent& timed = Track(iNote.mTrack).mEvents[iNote.mEvent];
        auto& note = timed.GetEvent().AsNoteWithDuration();
        note.SetDuration(Time_TypedLength(mTick - timed.GetTime().AsInt64(), kTime_Ticks));
        note.SetOffVelocity(iVelocity);
    }
    void EndOpenNotes() {
        for (auto& open : mOpen)
            for (const OpenNote& note : open) End(note, kNeutralReleaseVelocity);
    }

    ByteReader& mIn;
    Vela_SmfSong& mSong;
    int mFileTrack;
    int mDivision;
    int mFirstTrack = -1;
    int64_t mFileTick = 0;
    int64_t mTick = 0;
    unsigned mRunningStatus = 0;
    std::array<int, kNumChannels> mChannelTrack{};
    std::array<int64_t, kNumChannels> mProgramTick{};
    std::array<size_t, kNumChannels> mProgramEvent{};
    // Sounding notes per channel and pitch, oldest first (vectors: empty ones cost nothing).
    std::array<std::vector<OpenNote>, kNumChannels * kNumPitches> mOpen;
    // The values read at mValuesTick, in file order: where each is and how many side events its
    // track had when it was read.
    struct ValueRead {
        int mTrack;
        size_t mEvent;
        size_t mSide;
    };
    std::vector<ValueRead> mValues;
    int64_t mValuesTick = -1;
};

void AddTrackItems(const Vela_SmfTrack& iTrack, std::vector<Item>& ioItems) {
    for (const Vela_SmfSideEvent& side : iTrack.mSide) {
        std::vector<unsigned char> bytes;
        switch (side.mKind) {
            case Vela_SmfSideEvent::kMeta:
                bytes = {0xFF, side.mMetaType};
                PutData(bytes, side.mData);
                break;
            case Vela_SmfSideEvent::kChannelMessage: bytes.assign(side.mData.begin(), side.mData.end()); break;
            case Vela_SmfSideEvent::kSysexPart:
                bytes = {0xF0};
                PutData(bytes, side.mData);
                break;
            case Vela_SmfSideEvent::kEscape:
                bytes = {0xF7};
                PutData(bytes, side.mData);
                break;
        }
        const int kind = side.mKind == Vela_SmfSideEvent::kChannelMessage ? Item::kChannelSide : Item::kSide;
        ioItems.push_back({side.mTick, kind, 0, ioItems.size(), std::move(bytes)});
    }
    for (const Mdie_TimedEvent& timed : iTrack.mEvents) {
        const Vela_Event& event = timed.GetEvent();
        const int64_t start = timed.GetTime().AsInt64();
        if (event.GetType() != Vela_Event::kNoteWithDuration) {
            ioItems.push_back(
                {start, Item::kOther, event.GetPlaybackPriority(), ioItems.size(), EventBytes(event, iTrack.mChannel)});
            continue;
        }
        const auto& note = event.AsNoteWithDuration();
        const int64_t end = start + Time_Convert::ToType(note.GetDuration(), kTime_Ticks).AsInt64();
        // Same-pitch notes pair first-in-first-out on reading: ons at one tick go in the order
        // of their ends, offs in the order of their starts.
        ioItems.push_back({start, Item::kNoteOn, end, ioItems.size(),
                           EventBytes(Vela_NoteOnEvent(note.GetPitch(), note.GetOnVelocity()), iTrack.mChannel)});
        ioItems.push_back({end, end == start ? Item::kZeroNoteOff : Item::kNoteOff, start, ioItems.size(),
                           EventBytes(Vela_NoteOffEvent(note.GetPitch(), note.GetOffVelocity()), iTrack.mChannel)});
    }
}

void WriteTrack(const std::vector<const Vela_SmfTrack*>& iTracks, int iDivision, std::vector<unsigned char>& ioOut) {
    std::vector<Item> items;
    int64_t end = 0;
    for (size_t rank = 0; rank < iTracks.size(); ++rank) {
        const size_t first = items.size();
        AddTrackItems(*iTracks[rank], items);
        for (size_t i = first; i < items.size(); ++i) items[i].mTrack = rank;
        end = std::max(end, iTracks[rank]->mEndTick);
    }
    std::stable_sort(items.begin(), items.end());
    std::vector<unsigned char> body;
    int64_t fileTick = 0;
    auto put = [&](int64_t iTick, const std::vector<unsigned char>& iBytes) {
        const int64_t at = std::max(fileTick, Vela_SmfCodec::ToFileTicks(std::max<int64_t>(iTick, 0), iDivision));
        for (; at - fileTick > kMaxDelta; fileTick += kMaxDelta) {  // a delta has at most 28 bits: bridge with empty texts
            PutVlq(body, kMaxDelta);
            body.insert(body.end(), {0xFF, 0x01, 0x00});
        }
        PutVlq(body, static_cast<uint64_t>(at - fileTick));
        fileTick = at;
        body.insert(body.end(), iBytes.begin(), iBytes.end());
    };
    for (const Item& item : items)
        if (!item.mBytes.empty()) put(item.mTick, item.mBytes);
    put(end, {0xFF, 0x2F, 0x00});
    ioOut.insert(ioOut.end(), {'M', 'T', 'r', 'k'});
    PutBig(ioOut, static_cast<uint32_t>(body.size()), 4);
    ioOut.insert(ioOut.end(), body.begin(), body.end());
}

}  // namespace

Vela_SmfError::Vela_SmfError(size_t iOffset, const std::string& iReason)
    : std::runtime_error("byte " + std::to_string(iOffset) + ": " + iReason), mOffset(iOffset) {}

std::string Vela_SmfTrack::NameIn(const std::vector<Vela_SmfSideEvent>& iSide) {
    for (const Vela_SmfSideEvent& side : iSide)
        if (side.mKind == Vela_SmfSideEvent::kMeta && side.mMetaType == 0x03) return side.mData;
    return {};
}

bool Vela_SmfCodec::SameContent(const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB) {
    if (!iA.GetEvent().IsMessageSysex(0) || !iB.GetEvent().IsMessageSysex(0)) return iA == iB;
    return iA.GetTime() == iB.GetTime() && EventBytes(iA.GetEvent(), 0) == EventBytes(iB.GetEvent(), 0);
}

bool operator==(const Vela_SmfTrack& iA, const Vela_SmfTrack& iB) {
    return iA.mChannel == iB.mChannel && iA.mFileTrack == iB.mFileTrack && iA.mEndTick == iB.mEndTick &&
           iA.mSide == iB.mSide &&
           std::equal(iA.mEvents.begin(), iA.mEvents.end(), iB.mEvents.begin(), iB.mEvents.end(), Vela_SmfCodec::SameContent);
}

int64_t Vela_SmfCodec::ToLibraryTicks(int64_t iFileTicks, int iDivision) {
    const __int128 scaled = static_cast<__int128>(iFileTicks) * Time_cTicksPerQuarter * 2 + iDivision;
    return static_cast<int64_t>(scaled / (2 * iDivision));
}

// Files put one tick's events in any order; a track holds them as the writer puts them out:
// other events by playback priority, then notes by their end, each in file order among equals.
// Sorted once a track is read (a program's priority is known only when its bank selects and
// program change have all been seen), so a file written from the song reads back to the same
// song. At one tick, the channel messages kept aside follow the other side events (each group
// in file order), as the writer puts them: after the tick's note-offs, so that an unmatched
// note-off written back cannot end a note that a note-off of the same tick ended.
void Vela_SmfCodec::PutInReadingOrder(Vela_SmfTrack& ioTrack) {
    auto key = [](const Mdie_TimedEvent& iEvent) {
        const bool note = iEvent.IsNoteWithDurationEvent();
        const int64_t rank = note ? (iEvent.GetTime() + iEvent.GetDuration()).AsInt64() : iEvent.GetEvent().GetPlaybackPriority();
        return std::make_tuple(iEvent.GetTime().AsInt64(), note, rank);
    };
    std::stable_sort(ioTrack.mEvents.begin(), ioTrack.mEvents.end(),
                     [&](const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB) { return key(iA) < key(iB); });
    auto sideKey = [](const Vela_SmfSideEvent& iSide) {
        return std::make_pair(iSide.mTick, iSide.mKind == Vela_SmfSideEvent::kChannelMessage);
    };
    std::stable_sort(ioTrack.mSide.begin(), ioTrack.mSide.end(),
                     [&](const Vela_SmfSideEvent& iA, const Vela_SmfSideEvent& iB) { return sideKey(iA) < sideKey(iB); });
}

int64_t Vela_SmfCodec::ToFileTicks(int64_t iLibraryTicks, int iDivision) {
    const __int128 scaled = static_cast<__int128>(iLibraryTicks) * iDivision * 2 + Time_cTicksPerQuarter;
    return static_cast<int64_t>(scaled / (2 * Time_cTicksPerQuarter));
}

Vela_SmfSong Vela_SmfCodec::Read(const unsigned char* iData, size_t iLength) {
    ByteReader in(iData, iLength);
    Vela_SmfSong song;
    if (in.Bytes(4, "the header chunk") != "MThd") throw Vela_SmfError(0, "not a MIDI file (no MThd header)");
    const uint32_t headerLength = in.Big(4, "the header chunk");
    if (headerLength < 6) throw Vela_SmfError(4, "header chunk length " + std::to_string(headerLength) + " is below 6");
    in.Need(headerLength, "the header chunk");
    const size_t formatAt = in.Offset();
    song.mFormat = static_cast<int>(in.Big(2, "the header chunk"));
    const uint32_t trackCount = in.Big(2, "the header chunk");
    const uint32_t division = in.Big(2, "the header chunk");
    if (song.mFormat > 1) throw Vela_SmfError(formatAt, "format " + std::to_string(song.mFormat) + " is not supported (only 0 and 1)");
    if (division & 0x8000) throw Vela_SmfError(formatAt + 4, "time-code division is not supported");
    if (division == 0) throw Vela_SmfError(formatAt + 4, "division of 0 ticks per quarter");
    if (song.mFormat == 0 && trackCount != 1) throw Vela_SmfError(formatAt + 2, "format 0 with " + std::to_string(trackCount) + " tracks");
    song.mDivision = static_cast<int>(division);
    in.Bytes(headerLength - 6, "the header chunk");

    uint32_t tracksRead = 0;
    while (!in.AtEnd()) {
        const size_t chunkAt = in.Offset();
        const std::string type = in.Bytes(4, "a chunk header");
        const uint32_t length = in.Big(4, "a chunk header");
        in.Need(length, ("the chunk at byte " + std::to_string(chunkAt) + " (length " + std::to_string(length) + ")").c_str());
        const size_t outer = in.Limit(length);
        if (type == "MTrk") {
            if (tracksRead == trackCount)
                throw Vela_SmfError(chunkAt, "more track chunks than the " + std::to_string(trackCount) + " the header names");
            TrackReader(in, song, static_cast<int>(tracksRead++), song.mDivision).Read();
        }
        in.Unlimit(outer);  // chunks of other types are skipped
    }
    if (tracksRead != trackCount)
        throw Vela_SmfError(iLength, "file ends after " + std::to_string(tracksRead) + " of " + std::to_string(trackCount) + " tracks");
    for (Vela_SmfTrack& track : song.mTracks)
        if (track.mChannel < 0) track.mChannel = 0;
    return song;
}

std::vector<unsigned char> Vela_SmfCodec::Write(const Vela_SmfSong& iSong) {
    std::vector<std::vector<const Vela_SmfTrack*>> fileTracks;
    std::vector<int> fileTrackIds;
    for (const Vela_SmfTrack& track : iSong.mTracks) {
        auto found = std::find(fileTrackIds.begin(), fileTrackIds.end(), track.mFileTrack);
        if (found == fileTrackIds.end()) {
            fileTrackIds.push_back(track.mFileTrack);
            fileTracks.emplace_back();
            found = fileTrackIds.end() - 1;
        }
        fileTracks[static_cast<size_t>(found - fileTrackIds.begin())].push_back(&track);
    }
    std::vector<unsigned char> out = {'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, 1};
    PutBig(out, static_cast<uint32_t>(fileTracks.size()), 2);
    PutBig(out, static_cast<uint32_t>(iSong.mDivision), 2);
    for (const auto& tracks : fileTracks) WriteTrack(tracks, iSong.mDivision, out);
    return out;
}
