// Events as MIDI wire messages: each type's bytes, program parts, sysex framing and slicing,
// the types that have no wire form, and that none of it allocates. Every event encoded here
// goes through both the message interface and the one-call path, which must agree.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "EventBytes.h"
#include "Mem2_MasterAllocator.h"
#include "Vela_Event.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Messages = std::vector<Bytes>;

// The one-call path's answer and what it wrote in iRoom bytes: nothing when it does not fit, and
// never past the room (nor past the answer in a room below kMaxFixedWireLength).
std::pair<int, Bytes> OneCall(const Vela_Event& iEvent, int iChannel, int iRoom) {
    std::vector<signed char> out(size_t(iRoom) + Vela_Event::kMaxFixedWireLength, 0x55);
    const int length = iEvent.WriteMessages(out.data(), iRoom, iChannel);
    const bool fits = length <= iRoom;
    const int clean = !fits ? 0 : iRoom < Vela_Event::kMaxFixedWireLength ? length : iRoom;
    EXPECT_TRUE(std::all_of(out.begin() + clean, out.end(), [](signed char iByte) { return iByte == 0x55; }))
        << "wrote outside the room of " << iRoom;
    return {length, fits ? Bytes(out.begin(), out.begin() + length) : Bytes()};
}

// Every message of the event, in the calling order an output port uses. The one-call path must
// give them back to back, the channel in each channel message's status, in any room.
Messages Encode(const Vela_Event& iEvent) {
    constexpr int kChannel = 16 + 11;  // only the low 4 bits count
    Messages messages;
    Bytes joined;
    for (int i = 0; i < iEvent.GetNumMessages(); ++i) {
        std::vector<signed char> out(size_t(iEvent.GetMessageLength(i)) + 1, 0x55);
        iEvent.GetMessageData(out.data(), i);
        EXPECT_EQ(out.back(), 0x55) << "wrote past the message length";
        messages.emplace_back(out.begin(), out.end() - 1);
        const size_t at = joined.size();
        joined.insert(joined.end(), out.begin(), out.end() - 1);
        if (joined.size() > at && joined[at] < 0xF0) joined[at] |= kChannel & 0x0F;
    }
    const int length = int(joined.size());
    for (int room : {length + 16, length, length - 1}) {
        SCOPED_TRACE(testing::Message() << "one call, room " << room);
        const auto [answer, bytes] = OneCall(iEvent, kChannel, std::max(room, 0));
        EXPECT_EQ(answer, length);
        EXPECT_EQ(bytes, room >= length ? joined : Bytes());
    }
    return messages;
}

Bytes Single(const Vela_Event& iEvent) {
    const Messages messages = Encode(iEvent);
    EXPECT_EQ(messages.size(), 1u);
    return messages.empty() ? Bytes() : messages[0];
}

// Message 0 streamed in slices of iSlice bytes.
Bytes Sliced(const Vela_Event& iEvent, int iSlice) {
    const int length = iEvent.GetMessageLength(0);
    std::vector<signed char> out(size_t(length) + 1, 0x55);
    for (int offset = 0; offset < length; offset += iSlice)
        iEvent.GetPartialMessageData(out.data() + offset, 0, offset, std::min(iSlice, length - offset));
    EXPECT_EQ(out.back(), 0x55) << "wrote past the message length";
    return Bytes(out.begin(), out.end() - 1);
}

Bytes Partial(const Vela_Event& iEvent, int iIndex, int iOffset, int iCount) {
    std::vector<signed char> out(size_t(iCount), 0x55);
    iEvent.GetPartialMessageData(out.data(), iIndex, iOffset, iCount);
    return Bytes(out.begin(), out.end());
}

Vela_Event WithRawType(int iType) {
    Vela_Event event;
    const int8_t type = static_cast<int8_t>(iType);
    std::memcpy(static_cast<void*>(&event), &type, 1);
    return event;
}

const struct SingleCase {
    Vela_Event mEvent;
    Bytes mBytes;
} kSingleMessages[] = {
    {Vela_NoteOnEvent(60, 100), {0x90, 60, 100}},
    {Vela_NoteOnEvent(-56, 1), {0x90, 200, 1}},       // out of range goes out as stored, unmasked
    {Vela_NoteOffEvent(60, 64), {0x90, 0x3C, 0x00}},  // the neutral note-off is a note-on at 0
    {Vela_NoteOffEvent(60, 0), {0x80, 0x3C, 0x00}},
    {Vela_NoteOffEvent(60, 65), {0x80, 0x3C, 0x41}},
    {Vela_ControllerEvent(7, 127), {0xB0, 7, 127}},
    {Vela_MonoPressureEvent(33), {0xD0, 33}},
    {Vela_PolyPressureEvent(61, 44), {0xA0, 61, 44}},
    {Vela_AllNotesOffEvent(), {0xB0, 0x7B, 0x00}},
    {Vela_PitchBendEvent(0), {0xE0, 0x00, 0x40}},
    {Vela_PitchBendEvent(-8192), {0xE0, 0x00, 0x00}},
    {Vela_PitchBendEvent(8191), {0xE0, 0x7F, 0x7F}},
    {Vela_SongPositionEvent(0x3FFF), {0xF2, 0x7F, 0x7F}},
    {Vela_SongPositionEvent(200), {0xF2, 200 & 0x7F, 200 >> 7}},
    {Vela_StartEvent(), {0xFA}},
    {Vela_ContinueEvent(), {0xFB}},
    {Vela_StopEvent(), {0xFC}},
    {Vela_TimingClockEvent(), {0xF8}},
    {Vela_QuarterFrameEvent(Vela_Event::kMinutesLow, 0xA), {0xF1, 0x4A}},
};

}  // namespace

TEST(EventEncoding, EachSingleMessageTypeHasItsWireBytes) {
    for (const SingleCase& c : kSingleMessages) {
        SCOPED_TRACE(testing::Message() << "type " << int(c.mEvent.GetType()));
        EXPECT_EQ(Single(c.mEvent), c.mBytes);
        EXPECT_EQ(Sliced(c.mEvent, 1), c.mBytes);
    }
}

TEST(EventEncoding, ProgramSendsOnlyItsEnabledPartsInOrder) {
    const Messages parts = {{0xB0, 0x00, 0x01}, {0xB0, 0x20, 0x02}, {0xC0, 0x05}};
    for (int enabled = 0; enabled < 8; ++enabled) {
        SCOPED_TRACE(testing::Message() << "enabled parts " << enabled);
        Vela_ProgramEvent program(5, Bank(1, 2));
        program.SetMSBBankEnable(enabled & 1);
        program.SetLSBBankEnable(enabled & 2);
        program.SetProgramEnable(enabled & 4);
        Messages expected;
        for (int part = 0; part < 3; ++part)
            if (enabled >> part & 1) expected.push_back(parts[size_t(part)]);
        EXPECT_EQ(Encode(program), expected);
        // An index beyond the enabled parts names nothing and writes nothing.
        signed char untouched[3] = {0x55, 0x55, 0x55};
        program.GetMessageData(untouched, int(expected.size()));
        EXPECT_EQ(program.GetMessageLength(int(expected.size())), 0);
        EXPECT_EQ(untouched[0], 0x55);
    }
    // Slices of a program message come from the message it names.
    const Vela_ProgramEvent full(9, Bank(3, 4));
    EXPECT_EQ(Partial(full, 1, 1, 2), (Bytes{0x20, 0x04}));
    EXPECT_EQ(Partial(full, 2, 0, 2), (Bytes{0xC0, 0x09}));
}

TEST(EventEncoding, SysexIsFramedAndSlicesOfAnySizeConcatenateToTheWholeMessage) {
    const unsigned char payload4[] = {0x7E, 0x7F, 0x09, 0x01};
    const Vela_SysexEvent sysex(4, payload4);
    EXPECT_TRUE(sysex.IsMessageSysex(7));
    EXPECT_EQ(Single(sysex), (Bytes{0xF0, 0x7E, 0x7F, 0x09, 0x01, 0xF7}));
    // A slice ending on the last payload byte has no F7; the next one is the F7 alone.
    EXPECT_EQ(Partial(sysex, 0, 1, 4), (Bytes{0x7E, 0x7F, 0x09, 0x01}));
    EXPECT_EQ(Partial(sysex, 0, 5, 1), (Bytes{0xF7}));

    std::vector<unsigned char> payload(300);
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<unsigned char>(i & 0x7F);
    for (int payloadLength : {0, 1, 13, 14, 15, 40, 300}) {
        const Vela_SysexEvent sysex(payloadLength, payload.data());
        const Bytes whole = Single(sysex);
        ASSERT_EQ(whole.size(), size_t(payloadLength) + 2);
        EXPECT_EQ(Bytes({whole.front(), whole.back()}), (Bytes{0xF0, 0xF7}));
        for (int slice : {1, 2, 3, 5, 7, 16, 64, 1000}) {
            SCOPED_TRACE(testing::Message() << payloadLength << " payload bytes, slices of " << slice);
            EXPECT_EQ(Sliced(sysex, slice), whole);
        }
    }
}

TEST(EventEncoding, LongSysexFromPacketsIsSentOnlyWhenComplete) {
    Mem2_MasterAllocator allocator(1 << 16);
    Bytes bytes(20, 0x22);
    bytes.front() = 0xF0;
    const Vela_SysexPacketEvent noEnd(20, bytes.data(), &allocator);
    ASSERT_EQ(noEnd.GetType(), Vela_Event::kLongSysex);
    EXPECT_EQ(Encode(noEnd), Messages{});
    EXPECT_TRUE(noEnd.IsMessageSysex(0));

    bytes.back() = 0xF7;
    const Vela_SysexPacketEvent complete(20, bytes.data(), &allocator);
    EXPECT_EQ(Single(complete), bytes);
    for (int slice : {1, 4, 19, 20}) EXPECT_EQ(Sliced(complete, slice), bytes);

    // A short packet is never a message, and counting it is legal.
    const Vela_SysexPacketEvent shortPacket(3, bytes.data(), &allocator);
    AssertCapture asserts;
    EXPECT_FALSE(shortPacket.IsMessageSysex(0));
    EXPECT_EQ(shortPacket.GetNumMessages(), 0);
    EXPECT_EQ(asserts.Count(), 0u);
}

// Types without a wire form write nothing; the ones that should never reach an output port
// also report it, on every access.
TEST(EventEncoding, TypesWithoutMessageFormWriteNothingAndInternalOnesAssert) {
    const Time_TypedLength length(480, kTime_Ticks);
    const unsigned char packetBytes[] = {0xF0, 0x01};
    const struct {
        Vela_Event mEvent;
        size_t mCountAsserts, mAccessAsserts;
    } kCases[] = {
        {Vela_Event(), 0, 0},
        {Vela_NoteWithDurationEvent(60, length, 100, 64), 0, 0},
        {Vela_ReleaseControllerEvent(4), 0, 0},
        {Vela_SysexPacketEvent(2, packetBytes, nullptr), 0, 3},
        {Vela_ClearNoteInProgressEvent(60, length, 90, 64), 1, 3},
        {Vela_AddNoteInProgressEvent(60, length, 90, 64), 1, 3},
        {Vela_PitchToMIDINoteWithDuration(60, length, 90, 64, 0.5f), 1, 3},
        {Vela_ClipEvent("clip", length), 1, 3},
        {WithRawType(40), 1, 3},
        {WithRawType(-3), 1, 3},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << "type " << int(c.mEvent.GetType()));
        AssertCapture asserts;
        EXPECT_EQ(c.mEvent.GetNumMessages(), 0);
        EXPECT_EQ(OneCall(c.mEvent, 3, 16), std::make_pair(0, Bytes()));
        EXPECT_EQ(asserts.Count(), 2 * c.mCountAsserts);
        asserts.Clear();
        EXPECT_EQ(c.mEvent.GetMessageLength(0), 0);
        signed char out[4] = {0x55, 0x55, 0x55, 0x55};
        c.mEvent.GetMessageData(out, 0);
        c.mEvent.GetPartialMessageData(out, 0, 0, 2);
        EXPECT_EQ(out[0], 0x55);
        ASSERT_EQ(asserts.Count(), c.mAccessAsserts);
        for (size_t i = 0; i < asserts.Count(); ++i)
            EXPECT_EQ(asserts.Texts()[i].substr(0, 33), "0@$^$@NewFileLibs/Vela/Vela_Event") << asserts.Texts()[i];
    }
}

TEST(EventEncoding, EncodingEveryTypeNeverAllocates) {
    Mem2_MasterAllocator allocator(1 << 16);
    std::vector<unsigned char> bytes(64, 0x11);
    bytes.front() = 0xF0;
    bytes.back() = 0xF7;
    std::vector<Vela_Event> events = {Vela_ProgramEvent(3, Bank(1, 2)), Vela_SysexEvent(5, bytes.data() + 1),
                                      Vela_SysexEvent(40, bytes.data() + 1), Vela_SysexPacketEvent(64, bytes.data(), &allocator)};
    for (const SingleCase& c : kSingleMessages) events.push_back(c.mEvent);
    signed char out[128];
    AllocCounter counter;
    for (const Vela_Event& event : events) {
        event.WriteMessages(out, sizeof out, 5);
        for (int i = 0; i < event.GetNumMessages(); ++i) {
            event.GetMessageData(out, i);
            for (int offset = 0; offset < event.GetMessageLength(i); offset += 2) event.GetPartialMessageData(out, i, offset, 2);
        }
    }
    EXPECT_EQ(counter.Count(), 0u);
}
