// The note list's streamed form ("MdNLB", version 3), its XML dump and its undo state.
//
// Block body (inside the standard block framing; times are Time_TypedDefs raw saved words):
//   int32 n
//   n times: start, int8 pitch, duration, int8 on velocity, int8 off velocity,
//            quantize delta, duration delta (current duration minus original duration)
//   int32 n, int32 11 (section mark)
//   n times: int8 original pitch, original duration, int8 original on and off velocities
//   int32 n, int16 1, int32 1 (muted section version and mark)
//   n times: bool muted
#include <algorithm>
#include <vector>

#include "Cmn_N10n.h"
#include "Cmn_XMLNode.h"
#include "Sys_StdStreamHeader.h"
#include "Sys_TypedStream.h"
#include "Vela_Init.h"
#include "Vela_N10n.h"
#include "Vela_NoteList.h"

namespace {

using Note = Vela_NoteListBase_Note;

constexpr int32_t kOriginalsMark = 11;
constexpr int16_t kMutedVersion = 1;
constexpr int32_t kMutedMark = 1;
// The fewest bytes a note takes in section 1 (version 1: three words are two times and bytes).
constexpr int64_t kMinNoteBytes = 8 + 1 + 8 + 1 + 1;

template <class TLength>
void WriteTime(Sys_TypedOutBuffer& ioStream, const TLength& iTime) {
    ioStream.Write(Time_TypedDefs::GetRawDataForSave(iTime.mCount, iTime.mType));
}

template <class TLength>
TLength TimeFromRaw(int64_t iRaw) {
    TLength time;
    Time_TypedDefs::SetFromRawSavedData(iRaw, &time.mCount, &time.mType);
    return time;
}

int32_t ReadCount(Sys_TypedInStream& ioStream) {
    int32_t count = 0;
    ioStream.Read(count);
    if (count < 0) Vela_ThrowLocalized(kVelaMsg_BadData);
    return count;
}

const Vela_NoteWithDurationEvent& Current(const Note& iNote) { return Vela_NoteListBase::NoteOf(iNote); }
const Vela_NoteWithDurationEvent& Original(const Note& iNote) { return iNote.origEvent.AsNoteWithDuration(); }

Time_TypedLength DurationDelta(const Note& iNote) {
    Time_TypedLength delta = Current(iNote).GetDuration();
    delta -= Original(iNote).GetDuration();
    return delta;
}

}  // namespace

void Vela_NoteListBase::StreamOut(Sys_TypedOutStream& iStream) const {
    Sys_StdStreamHeaderWriter header(iStream, kStreamTag, kStreamVersion);
    const auto count = static_cast<int32_t>(mNotes.GetSize());
    // Notes are many and small: encode them in blocks.
    Sys_TypedOutBuffer out(iStream);
    out.Write(count);
    mNotes.ForEach([&out](const Note& note) {
        WriteTime(out, note.start);
        out.Write(Current(note).GetPitch());
        WriteTime(out, Current(note).GetDuration());
        out.Write(Current(note).GetOnVelocity());
        out.Write(Current(note).GetOffVelocity());
        WriteTime(out, note.quantizeTimeDelta);
        WriteTime(out, DurationDelta(note));
    });
    out.Write(count);
    out.Write(kOriginalsMark);
    mNotes.ForEach([&out](const Note& note) {
        out.Write(Original(note).GetPitch());
        WriteTime(out, Original(note).GetDuration());
        out.Write(Original(note).GetOnVelocity());
        out.Write(Original(note).GetOffVelocity());
    });
    out.Write(count);
    out.Write(kMutedVersion);
    out.Write(kMutedMark);
    mNotes.ForEach([&out](const Note& note) { out.Write(note.muted); });
    out.Flush();
    header.PatchSize();
}

void Vela_NoteListBase::StreamIn(Sys_TypedInStream& iStream) {
    std::vector<Note> notes;
    {
        Sys_StdStreamHeaderReader header(iStream, kStreamTag);
        header.CheckVersion(kStreamVersion, kStreamVersion);
        const short version = header.GetVersion();
        const int32_t count = ReadCount(iStream);
        // A damaged count must not reserve more than the block could hold.
        notes.reserve(static_cast<size_t>(std::min<int64_t>(count, header.GetBodySize() / kMinNoteBytes)));
        // Each note is one record: its fields are read with one bounds check.
        const size_t recordBytes = static_cast<size_t>(kMinNoteBytes) + (version >= 2 ? 2 * 8 : 0);
        for (int32_t i = 0; i < count; ++i) {
            Sys_TypedInRecord record(iStream, recordBytes);
            Note note;
            note.start = TimeFromRaw<Time_Typed>(record.Get<int64_t>());
            const int8_t pitch = record.Get<int8_t>();
            const auto duration = TimeFromRaw<Time_TypedLength>(record.Get<int64_t>());
            const int8_t onVelocity = record.Get<int8_t>();
            const int8_t offVelocity = record.Get<int8_t>();
            if (onVelocity == 0) Cmn_N10nCenter::Sender()->Send(Vela_N10n_MIDIZeroOnVelocitiesFound());
            note.quantizeTimeDelta = Time_TypedLength(0, note.start.GetType());
            Time_TypedLength originalDuration = duration;
            if (version >= 2) {
                note.quantizeTimeDelta = TimeFromRaw<Time_TypedLength>(record.Get<int64_t>());
                originalDuration -= TimeFromRaw<Time_TypedLength>(record.Get<int64_t>());
            }
            note.event = Vela_NoteWithDurationEvent(pitch, duration, onVelocity, offVelocity);
            note.origEvent = Vela_NoteWithDurationEvent(pitch, originalDuration, onVelocity, offVelocity);
            notes.push_back(note);
        }
        // A section whose mark is unknown cannot be stepped over: the rest is skipped.
        bool sectionsUnderstood = true;
        if (version >= 3 && header.IsMoreLeft()) {
            const int32_t sectionCount = ReadCount(iStream);
            int32_t mark = 0;
            iStream.Read(mark);
            sectionsUnderstood = mark == kOriginalsMark;
            if (sectionsUnderstood && sectionCount != count) Vela_ThrowLocalized(kVelaMsg_BadData);
            for (Note& note : notes) {
                if (!sectionsUnderstood) break;
                Sys_TypedInRecord record(iStream, 1 + 8 + 1 + 1);
                const int8_t pitch = record.Get<int8_t>();
                const auto duration = TimeFromRaw<Time_TypedLength>(record.Get<int64_t>());
                const int8_t onVelocity = record.Get<int8_t>();
                note.origEvent = Vela_NoteWithDurationEvent(pitch, duration, onVelocity, record.Get<int8_t>());
            }
        }
        if (sectionsUnderstood && header.IsMoreLeft()) {
            const int32_t sectionCount = ReadCount(iStream);
            int16_t mutedVersion = 0;
            int32_t mark = 0;
            iStream.Read(mutedVersion);
            iStream.Read(mark);
            if (mutedVersion == kMutedVersion) {
                if (sectionCount != count) Vela_ThrowLocalized(kVelaMsg_BadData);
                for (Note& note : notes) iStream.Read(note.muted);
            }
        }
        header.SkipTheRest();
    }
    // Only a block read whole replaces the notes, so a damaged one loses nothing. In start order
    // (equal starts as read), as adding them one by one would place them: one step, not one
    // search and insertion per note.
    const auto byStart = [](const Note& iA, const Note& iB) { return StartsBefore(iA.start, iB.start); };
    if (!std::is_sorted(notes.begin(), notes.end(), byStart)) std::stable_sort(notes.begin(), notes.end(), byStart);
    ReplaceNotes(notes.data(), notes.size());
}

Cmn_XMLNodePtr Vela_NoteListBase::GetAsXML() const {
    Cmn_XMLNodePtr root = Cmn_CreateXMLNode("MIDI_NoteList");
    root->AppendChild(Cmn_CreateXMLNode("nNumNotes", static_cast<int>(mNotes.GetSize()), 0));
    for (const Note& note : mNotes) {
        Cmn_XMLNodePtr node = Cmn_CreateXMLNode("Note");
        node->AppendChild(note.start.GetAsXML("Start"));
        node->AppendChild(Cmn_CreateXMLNode("nPitch", Current(note).GetPitch(), 0));
        node->AppendChild(Current(note).GetDuration().GetAsXML("Duration"));
        node->AppendChild(Cmn_CreateXMLNode("nOnVel", Current(note).GetOnVelocity(), 0));
        node->AppendChild(Cmn_CreateXMLNode("nOffVel", Current(note).GetOffVelocity(), 0));
        node->AppendChild(note.quantizeTimeDelta.GetAsXML("QuantizeTimeDelta"));
        node->AppendChild(DurationDelta(note).GetAsXML("DurationDeltaFromOriginal"));
        node->AppendChild(Cmn_CreateXMLNode("nOriginalPitch", Original(note).GetPitch(), 0));
        node->AppendChild(Original(note).GetDuration().GetAsXML("OriginalDuration"));
        node->AppendChild(Cmn_CreateXMLNode("nOriginalOnVel", Original(note).GetOnVelocity(), 0));
        node->AppendChild(Cmn_CreateXMLNode("nOriginalOffVel", Original(note).GetOffVelocity(), 0));
        node->AppendChild(Cmn_CreateXMLNode("bMuted", static_cast<int>(note.muted), 0));
        root->AppendChild(node);
    }
    return root;
}

Ndo_State* Vela_NoteListBase::NdoGetState() {
    auto* stateP = new Vela_NoteListBase_NdoState;
    stateP->mNotes.Assign(mNotes);
    stateP->mMaxUnindexedDuration = mMaxUnindexedDuration;
    return stateP;
}

void Vela_NoteListBase::NdoRestoreState(Ndo_State* iStateP) {
    const auto* stateP = dynamic_cast<const Vela_NoteListBase_NdoState*>(iStateP);
    if (!stateP) return;
    mNotes.Assign(stateP->mNotes);
    mMaxUnindexedDuration = stateP->mMaxUnindexedDuration;
}
