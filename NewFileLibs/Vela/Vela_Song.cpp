#include "Vela_Song.h"

#include <algorithm>

#include "Sys_StdStreamHeader.h"
#include "Sys_TypedStream.h"
#include "Vela_ExtendedEventList.h"
#include "Vela_Init.h"

namespace {

constexpr uint8_t kTempoMeta = 0x51;
constexpr uint8_t kTimeSignatureMeta = 0x58;

int32_t ReadCount(Sys_TypedInStream& iStream, int64_t iMinBytesEach) {
    int32_t count = 0;
    iStream.Read(count);
    if (count < 0 || count > (iStream.GetLimit() - iStream.GetPos()) / iMinBytesEach) Vela_ThrowLocalized(kVelaMsg_BadData2);
    return count;
}

}  // namespace

std::string Vela_SongTrack::GetName() const { return Vela_SmfTrack::NameIn(mSide); }

Vela_Song Vela_Song::FromSmf(const Vela_SmfSong& iSmf) {
    Vela_Song song;
    song.mDivision = iSmf.mDivision;
    song.mUnmatchedNoteOffs = iSmf.mUnmatchedNoteOffs;
    for (const Vela_SmfTrack& smfTrack : iSmf.mTracks) {
        Vela_SongTrack track;
        track.mChannel = smfTrack.mChannel;
        track.mFileTrack = smfTrack.mFileTrack;
        track.mEndTick = smfTrack.mEndTick;
        track.mSide = smfTrack.mSide;
        track.mChunkP.reset(Vela_Chunk::New(Ndo_Object::kNotUndoable, false));
        for (const Mdie_TimedEvent& timed : smfTrack.mEvents) {
            if (timed.IsNoteWithDurationEvent()) {
                const auto& note = timed.GetEvent().AsNoteWithDuration();
                const Vela_NoteWithDurationEvent copy(note.GetPitch(), note.GetDuration(), note.GetOnVelocity(), note.GetOffVelocity());
                track.mChunkP->AddEvent(Vela_NoteWithDurationExtendedEvent(timed.GetTime(), copy, false));
            } else {
                track.mChunkP->AddEvent(Vela_ExtendedEvent(timed));
            }
        }
        song.mTracks.push_back(std::move(track));
    }
    return song;
}

std::vector<Mdie_TimedEvent> Vela_Song::GetEvents(const Vela_SongTrack& iTrack) {
    Mdie_TimedEventList list;
    Vela_EventListWrapper output(list);
    iTrack.mChunkP->GetMidiEventsInRange(&output, Time_TypedLength(0, kTime_Ticks), Time_Typed::MinTime(kTime_Ticks),
                                         Time_Typed::MaxTime(kTime_Ticks), false, nullptr, nullptr, kNoteOffNone);
    std::vector<Mdie_TimedEvent> events(list.begin(), list.end());
    // The range query sorts by playback order only; ordering equals by their type, then their
    // content, makes the result (and so an exported file) the same however the chunk was filled.
    // (The events' own order compares only events of one type.)
    std::stable_sort(events.begin(), events.end(), [](const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB) {
        if (Mdie_TimedEvent::PlaybackOrdering(iA, iB)) return true;
        if (Mdie_TimedEvent::PlaybackOrdering(iB, iA)) return false;
        const Vela_Event& a = iA.GetEvent();
        const Vela_Event& b = iB.GetEvent();
        return a.GetType() != b.GetType() ? a.GetType() < b.GetType() : a < b;
    });
    return events;
}

Vela_SmfSong Vela_Song::ToSmf() const {
    Vela_SmfSong smf;
    smf.mDivision = mDivision;
    for (const Vela_SongTrack& track : mTracks) {
        Vela_SmfTrack smfTrack;
        smfTrack.mChannel = track.mChannel;
        smfTrack.mFileTrack = track.mFileTrack;
        smfTrack.mEndTick = track.mEndTick;
        smfTrack.mSide = track.mSide;
        smfTrack.mEvents = GetEvents(track);
        smf.mTracks.push_back(std::move(smfTrack));
    }
    return smf;
}

void Vela_Song::StreamOut(Sys_TypedOutStream& iStream) const {
    {
        Sys_StdStreamHeaderWriter writer(iStream, kStreamTag, kStreamVersion);
        iStream.Write(static_cast<int32_t>(mDivision));
        iStream.Write(static_cast<int32_t>(mTracks.size()));
        for (const Vela_SongTrack& track : mTracks) {
            iStream.Write(static_cast<int32_t>(track.mChannel));
            iStream.Write(static_cast<int32_t>(track.mFileTrack));
            iStream.Write(track.mEndTick);
            iStream.Write(static_cast<int32_t>(track.mSide.size()));
            for (const Vela_SmfSideEvent& side : track.mSide) {
                iStream.Write(side.mTick);
                iStream.Write(static_cast<int8_t>(side.mKind));
                iStream.Write(static_cast<int8_t>(side.mMetaType));
                iStream.Write(static_cast<int32_t>(side.mData.size()));
                iStream.WriteBlock(side.mData.data(), static_cast<int>(side.mData.size()));
            }
        }
        writer.PatchSize();
    }
    for (const Vela_SongTrack& track : mTracks) track.mChunkP->StreamOut(iStream);
}

Vela_Song Vela_Song::StreamIn(Sys_TypedInStream& iStream) {
    Vela_Song song;
    {
        Sys_StdStreamHeaderReader reader(iStream, kStreamTag);
        reader.CheckVersion(kStreamVersion, kStreamVersion);
        int32_t division = 0;
        iStream.Read(division);
        if (division < 1 || division > 32767) Vela_ThrowLocalized(kVelaMsg_BadData2);
        song.mDivision = division;
        const int32_t tracks = ReadCount(iStream, 20);
        for (int32_t t = 0; t < tracks; ++t) {
            Vela_SongTrack track;
            int32_t channel = 0, fileTrack = 0;
            iStream.Read(channel);
            iStream.Read(fileTrack);
            iStream.Read(track.mEndTick);
            if (channel < 0 || channel > 15 || fileTrack < 0 || track.mEndTick < 0) Vela_ThrowLocalized(kVelaMsg_BadData2);
            track.mChannel = channel;
            track.mFileTrack = fileTrack;
            for (int32_t i = ReadCount(iStream, 14); i > 0; --i) {
                Vela_SmfSideEvent side;
                int8_t kind = 0, metaType = 0;
                iStream.Read(side.mTick);
                iStream.Read(kind);
                iStream.Read(metaType);
                if (kind < Vela_SmfSideEvent::kMeta || kind > Vela_SmfSideEvent::kEscape) Vela_ThrowLocalized(kVelaMsg_BadData2);
                side.mKind = static_cast<Vela_SmfSideEvent::EKind>(kind);
                side.mMetaType = static_cast<uint8_t>(metaType);
                side.mData.resize(static_cast<size_t>(ReadCount(iStream, 1)));
                iStream.ReadBlock(side.mData.data(), static_cast<int>(side.mData.size()));
                track.mSide.push_back(std::move(side));
            }
            song.mTracks.push_back(std::move(track));
        }
        reader.SkipTheRest();
    }
    for (Vela_SongTrack& track : song.mTracks)
        track.mChunkP.reset(Vela_Chunk::StreamIn(iStream, Ndo_Object::kNotUndoable, false));
    return song;
}

int64_t Vela_Song::GetLength() const {
    int64_t length = 0;
    for (const Vela_SongTrack& track : mTracks) length = std::max(length, track.mEndTick);
    return length;
}

std::vector<std::pair<int64_t, std::string>> Vela_Song::Metas(uint8_t iType, size_t iMinLength) const {
    std::vector<std::pair<int64_t, std::string>> metas;
    for (const Vela_SongTrack& track : mTracks)
        for (const Vela_SmfSideEvent& side : track.mSide)
            if (side.mKind == Vela_SmfSideEvent::kMeta && side.mMetaType == iType && side.mData.size() >= iMinLength)
                metas.emplace_back(side.mTick, side.mData);
    std::stable_sort(metas.begin(), metas.end(), [](const auto& iA, const auto& iB) { return iA.first < iB.first; });
    return metas;
}

namespace {
int64_t TempoOf(const std::string& iData) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(iData.data());
    return (bytes[0] << 16) | (bytes[1] << 8) | bytes[2];
}
}  // namespace

double Vela_Song::GetSeconds(int64_t iTick) const {
    double seconds = 0;
    int64_t from = 0;
    double tempo = kDefaultTempo;
    for (const auto& [tick, data] : Metas(kTempoMeta, 3)) {
        if (tick >= iTick) break;
        seconds += double(tick - from) / Time_cTicksPerQuarter * tempo / 1e6;
        from = tick;
        tempo = double(TempoOf(data));
    }
    return seconds + double(iTick - from) / Time_cTicksPerQuarter * tempo / 1e6;
}

int64_t Vela_Song::GetTempoAt(int64_t iTick) const {
    int64_t tempo = kDefaultTempo;
    for (const auto& [tick, data] : Metas(kTempoMeta, 3)) {
        if (tick > iTick) break;
        tempo = TempoOf(data);
    }
    return tempo;
}

// Walks the time signatures until iStop says the wanted point lies in the current one; returns
// the bars counted and the tick where that signature (of barTicks per bar) began.
template <class TStop>
static void WalkSignatures(const std::vector<std::pair<int64_t, std::string>>& iSignatures, TStop iStop, double& oBars,
                           int64_t& oFrom, double& oBarTicks) {
    oBars = 0;
    oFrom = 0;
    oBarTicks = 4.0 * Time_cTicksPerQuarter;
    for (const auto& [tick, data] : iSignatures) {
        const double barsThere = oBars + double(tick - oFrom) / oBarTicks;
        if (iStop(tick, barsThere)) break;
        oBars = barsThere;
        oFrom = tick;
        const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
        if (bytes[0] > 0 && bytes[1] < 8) oBarTicks = bytes[0] * 4.0 * Time_cTicksPerQuarter / double(1 << bytes[1]);
    }
}

double Vela_Song::GetBars(int64_t iTick) const {
    double bars = 0, barTicks = 0;
    int64_t from = 0;
    WalkSignatures(Metas(kTimeSignatureMeta, 2), [&](int64_t iAt, double) { return iAt >= iTick; }, bars, from, barTicks);
    return bars + double(iTick - from) / barTicks;
}

int64_t Vela_Song::GetTickAtBars(double iBars) const {
    double bars = 0, barTicks = 0;
    int64_t from = 0;
    WalkSignatures(Metas(kTimeSignatureMeta, 2), [&](int64_t, double iBarsThere) { return iBarsThere >= iBars; }, bars, from,
                   barTicks);
    return from + static_cast<int64_t>((iBars - bars) * barTicks + 0.5);
}
