// The event stream: placing order at equal times, the closed EraseRange against the half-open
// range copy, one-for-one erasing, undo marks, the "MdES" block, and the real-time range output.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "AllocCounter.h"
#include "BlockBytes.h"
#include "LocalizedError.h"
#include "Ndo_Manager.h"
#include "StreamValues.h"
#include "UndoMarks.h"
#include "Vela_EventStream.h"

namespace {

Time_Typed Tick(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }

// A short sysex whose one payload byte names it.
Mdie_TimedEvent Sysex(int64_t iTime, uint8_t iName) {
    const unsigned char payload[] = {0x7D, iName};
    return Mdie_TimedEvent(Tick(iTime), Vela_SysexEvent(2, payload));
}

// "time:name" of every event, in order.
std::string Contents(const Vela_EventStream& iStream) {
    std::string text;
    for (const Mdie_TimedEvent& event : iStream.GetEvents()) {
        unsigned char name = 0;
        event.GetEvent().AsSysex().GetData(&name, 1, 2);
        text += std::to_string(event.GetTime().AsInt64()) + ":" + std::to_string(name) + " ";
    }
    return text;
}

}  // namespace

TEST(EventStream, EditsKeepPlacingOrderAndTheirOwnRangeBounds) {
    Ndo_gManager.Clear();
    Vela_EventStream stream(Ndo_Object::kUndoable, false);
    EXPECT_TRUE(MarkedBy(stream, [&] {
        for (uint8_t name : {1, 2, 3}) stream.AddEvent(Sysex(100, name));
        stream.AddEvent(Sysex(200, 4));
    }));
    EXPECT_EQ(Contents(stream), "100:3 100:2 100:1 200:4 ");  // later adds go ahead

    Vela_EventStream source(Ndo_Object::kNotUndoable, false);
    for (uint8_t name : {5, 6}) source.AddEvent(Sysex(10, name));
    source.AddEvent(Sysex(20, 7));  // at the end of [10, 20): not copied

    struct Case {
        const char* mWhat;
        std::function<void()> mEdit;
        bool mMarks;
        const char* mAfter;
    };
    const Case cases[] = {
        {"erase absent", [&] { stream.EraseEvent(Sysex(100, 9)); }, false, "100:3 100:2 100:1 200:4 "},
        {"copy half-open", [&] { stream.AddFromStream(source, Tick(10), Tick(20), Time_TypedLength(90, kTime_Ticks)); }, true,
         "100:6 100:5 100:3 100:2 100:1 200:4 "},
        {"copy empty", [&] { stream.AddFromStream(source, Tick(11), Tick(20), Time_TypedLength(0, kTime_Ticks)); }, false, nullptr},
        {"copy again", [&] { stream.AddFromStream(source, Tick(10), Tick(11), Time_TypedLength(90, kTime_Ticks)); }, true,
         "100:6 100:5 100:6 100:5 100:3 100:2 100:1 200:4 "},
        {"erase one each", [&] { stream.EraseFromStream(source, Tick(10), Tick(20), Time_TypedLength(90, kTime_Ticks)); }, true,
         "100:6 100:5 100:3 100:2 100:1 200:4 "},
        {"erase one", [&] { stream.EraseEvent(Sysex(100, 2)); }, true, "100:6 100:5 100:3 100:1 200:4 "},
        {"erase closed", [&] { stream.EraseRange(Tick(101), Tick(200)); }, true, "100:6 100:5 100:3 100:1 "},
        {"erase nothing", [&] { stream.EraseRange(Tick(101), Tick(200)); }, false, nullptr},
        {"offset", [&] { stream.OffsetTimes(Time_TypedLength(-100, kTime_Ticks)); }, false, "0:6 0:5 0:3 0:1 "},
    };
    std::string before = Contents(stream);
    for (const Case& c : cases) {
        EXPECT_EQ(MarkedBy(stream, c.mEdit), c.mMarks) << c.mWhat;
        const std::string after = c.mAfter ? c.mAfter : before;
        EXPECT_EQ(Contents(stream), after) << c.mWhat;
        // Undo brings back the state before a marked edit; redo the one after.
        if (c.mMarks) {
            ASSERT_TRUE(Ndo_gManager.Undo());
            EXPECT_EQ(Contents(stream), before) << c.mWhat;
            ASSERT_TRUE(Ndo_gManager.Redo());
        }
        before = after;
    }
    EXPECT_TRUE(MarkedBy(stream, [&] { stream.Clear(); }));
    EXPECT_FALSE(MarkedBy(stream, [&] { stream.Clear(); }));
    Ndo_gManager.Clear();
}

TEST(EventStream, BlockRoundTripsAndDamageIsRefused) {
    Vela_EventStream stream(Ndo_Object::kNotUndoable, false);
    stream.AddEvent(Sysex(30, 1));
    stream.AddEvent(Sysex(-5, 2));
    const ByteVector bytes = StreamedBytes(stream);
    ByteVector list;
    Append(list, 2, 4);
    for (int64_t time : {-5, 30}) {
        Append(list, Time_TypedDefs::GetRawDataForSave(time, kTime_Ticks), 8);
        Append(list, SysexBlock(ByteVector{0x7D, static_cast<uint8_t>(time < 0 ? 2 : 1)}));
    }
    ASSERT_EQ(bytes, Block("MdES", 1, Block("MdTEL", 1, list)));

    Vela_EventStream read(Ndo_Object::kNotUndoable, false);
    StreamInFrom(bytes, read);
    EXPECT_TRUE(read == stream);

    // Times going backwards are bad data.
    ByteVector backwards = bytes;
    backwards[42] = 0x80;  // the first time's top byte: -5 becomes a late tick
    EXPECT_EQ(LocalizedMessageIdOf([&] { StreamInFrom(backwards, read); }), 100);
}

TEST(EventStream, RangeOutputIsHalfOpenAndAllocatesNothing) {
    const ByteVector payload = Payload(200);
    Vela_EventStream stream(Ndo_Object::kNotUndoable, false);
    stream.AddEvent(Mdie_TimedEvent(Tick(10), Vela_SysexEvent(static_cast<int>(payload.size()), payload.data())));
    stream.AddEvent(Sysex(20, 1));
    stream.AddEvent(Sysex(30, 2));
    Mdie_TimedEventList timed;
    timed.Reserve(8);
    Vela_EventListWrapper out(timed);
    AllocCounter counter;
    stream.GetEventsInRange(out, Tick(10), Tick(30), Tick(5), Time_Typed::MinTime(kTime_Ticks), nullptr, false, 0);
    EXPECT_EQ(counter.Count(), 0u);
    ASSERT_EQ(timed.GetSize(), 2u);
    EXPECT_EQ(timed[0].GetTime(), Tick(5));
    EXPECT_EQ(timed[0].GetEvent().GetType(), Vela_Event::kLongSysex);
}
