#include "Mdie_SubStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "BlockBytes.h"
#include "StreamValues.h"
#include "Vela_Init.h"

namespace {

// A sub-stream's block: the type code, then the sub-index.
ByteVector MdssBlock(int8_t iCode, int32_t iIndex) {
    ByteVector body;
    Append(body, iCode, 1);
    Append(body, iIndex, 4);
    return Block("Mdss", 1, body);
}

TEST(Mdie_SubStream, EveryTypeRoundTripsTheEndsOfItsRangeThroughItsEventAndItsBlock) {
    const struct { Mdie_SubStream mSubStream; Vela_Event::EEventType mKind; int32_t mGlobalIndex, mMin, mMax; } kTypes[] = {
        {Mdie_SubStream::PitchBend(), Vela_Event::kPitchBend, 0, -8192, 8191},
        {Mdie_SubStream::Controller(1), Vela_Event::kController, 1, 0, 127},
        {Mdie_SubStream::Controller(119), Vela_Event::kController, 119, 0, 127},
        {Mdie_SubStream::Program(), Vela_Event::kProgram, 121, 0, 16777215},
        {Mdie_SubStream::MonoPressure(), Vela_Event::kMonoPressure, 120, 0, 127},
        {Mdie_SubStream::PolyPressure(0), Vela_Event::kPolyPressure, 122, 0, 127},
        {Mdie_SubStream::PolyPressure(127), Vela_Event::kPolyPressure, 249, 0, 127},
    };
    AssertCapture asserts;
    for (const auto& c : kTypes) {
        SCOPED_TRACE(c.mGlobalIndex);
        Mdie_SubStream_ValueRange range;
        c.mSubStream.GetValueRange(range);
        EXPECT_EQ(std::make_pair(range.mMin, range.mMax), std::make_pair(c.mMin, c.mMax));
        EXPECT_EQ(c.mSubStream.GetIndex(), c.mGlobalIndex);
        for (int32_t value : {c.mMin, c.mMax}) {
            const Vela_Event event = c.mSubStream.MakeEvent(value);
            EXPECT_EQ(event.GetType(), c.mKind);
            EXPECT_EQ(c.mSubStream.GetValueFromEvent(event), value);
            EXPECT_EQ(Mdie_SubStream(event), c.mSubStream);
        }
        const ByteVector bytes = StreamedBytes(c.mSubStream);
        Mdie_SubStream read;
        EXPECT_EQ(StreamInFrom(bytes, read), static_cast<int64_t>(bytes.size()));
        EXPECT_EQ(read, c.mSubStream);
    }
    EXPECT_EQ(asserts.Count(), 0u);
    EXPECT_EQ(Mdie_SubStream::GetNumIndices(), 250);
    EXPECT_EQ(StreamedBytes(Mdie_SubStream::Controller(64)), MdssBlock(2, 64));

    // A program's value packs the bank word above the program byte, disabled flags included.
    EXPECT_EQ(Mdie_SubStream::Program().MakeEvent(74565).AsProgram().GetFullProgram(), 69);
    EXPECT_EQ(Mdie_SubStream::Program().MakeEvent(74565).AsProgram().GetFullBank(), 291);
    const Vela_ProgramEvent flagged(static_cast<int8_t>(0x85), static_cast<int16_t>(0xC000 | 291));
    const int32_t value = Mdie_SubStream::Program().GetValueFromEvent(flagged);
    EXPECT_EQ(value, ((0xC000 | 291) << 8) | 0x85);
    const Vela_Event back = Mdie_SubStream::Program().MakeEvent(value);
    EXPECT_EQ(back.AsProgram().GetFullProgram(), flagged.GetFullProgram());
    EXPECT_EQ(back.AsProgram().GetFullBank(), flagged.GetFullBank());
}

TEST(Mdie_SubStream, OnlyControllers1To119AndPolyPressureGiveSubStreamsFromEvents) {
    for (int number = 0; number < 128; ++number) {
        const Mdie_SubStream subStream{Vela_ControllerEvent(static_cast<int8_t>(number), 5)};
        const bool valid = number >= 1 && number <= 119;
        int8_t kind = -1, controller = -1;
        subStream.GetInfo(kind, controller);
        EXPECT_EQ(subStream.IsNull(), !valid) << number;
        EXPECT_EQ(subStream.GetSubIndex(), number);  // kept even when null
        EXPECT_EQ(kind, valid ? Vela_Event::kController : 0);
        EXPECT_EQ(controller, valid ? number : -1);  // left untouched when null
    }
    EXPECT_EQ(Mdie_SubStream(Vela_PolyPressureEvent(60, 1)), Mdie_SubStream::PolyPressure(60));
    EXPECT_TRUE(Mdie_SubStream(Vela_NoteOnEvent(60, 1)).IsNull());
    EXPECT_TRUE(Mdie_SubStream(Vela_StopEvent()).IsNull());
}

TEST(Mdie_SubStream, NullTypeReportsEveryOperationAndAnswersNeutralValues) {
    AssertCapture asserts;
    const Mdie_SubStream null;
    Mdie_SubStream_ValueRange range{5, 5};
    null.GetValueRange(range);
    EXPECT_TRUE(null.GetIndex() == 0 && null.MakeEvent(7).GetType() == Vela_Event::kNull && null.GetValueFromEvent(Vela_ControllerEvent(1, 9)) == 0);
    EXPECT_TRUE(range.mMin == 0 && range.mMax == 0 && null.GetType()->GetTypeCode() == 0 && null.GetType()->IsValidSubType(-12345));
    ASSERT_EQ(asserts.Count(), 6u);
    for (const std::string& text : asserts.Texts()) EXPECT_EQ(text, "0@$^$@NewFileLibs/Vela/Mdie_SubStream.cpp");
}

TEST(Mdie_SubStream, SortsByGlobalIndexThenTypeCode) {
    const std::vector<Mdie_SubStream> sorted = {Mdie_SubStream(),          Mdie_SubStream::PitchBend(),    Mdie_SubStream::Controller(1),
                                                Mdie_SubStream::Controller(7), Mdie_SubStream::MonoPressure(), Mdie_SubStream::Program(),
                                                Mdie_SubStream::PolyPressure(3)};
    std::vector<Mdie_SubStream> list(sorted.rbegin(), sorted.rend());
    std::swap(list[1], list[4]);
    AssertCapture asserts;
    std::sort(list.begin(), list.end());
    EXPECT_EQ(list, sorted);
    EXPECT_EQ(asserts.Count(), 0u);  // ordering never asks the null type
    EXPECT_NE(Mdie_SubStream::Controller(7), Mdie_SubStream::Controller(8));
    EXPECT_NE(Mdie_SubStream::PitchBend(), Mdie_SubStream());
}

// Every rejected block throws its message and leaves the target as it was.
TEST(Mdie_SubStream, RejectsUnknownTypeCodesAndInvalidSubIndices) {
    const struct {
        int8_t mCode;
        int32_t mIndex;
        int mMessageID;
    } kCases[] = {{6, 0, 202}, {-1, 0, 202}, {127, 1, 202}, {2, 0, 201}, {2, 120, 201}, {5, 128, 201}, {5, -1, 201}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << int(c.mCode) << " " << c.mIndex);
        Mdie_SubStream target = Mdie_SubStream::Controller(9);
        try {
            StreamInFrom(MdssBlock(c.mCode, c.mIndex), target);
            ADD_FAILURE() << "accepted";
        } catch (const Cmn_LocalizedException& e) {
            EXPECT_EQ(e.GetMessageID(), c.mMessageID);
            EXPECT_STREQ(e.what(), c.mMessageID == 201 ? "bad subtype encountered" : "bad data encountered");
        }
        EXPECT_EQ(target, Mdie_SubStream::Controller(9));
    }
}

const Time_TypedLength kLength(10, kTime_Ticks);

TEST(Mdie_Filter, DefaultFilterJudgesEveryEventKindWithoutAllocatingAndInversionFlipsTheGovernedOnes) {
    Mdie_Filter filter;
    filter.SetDefault();
    const unsigned char sysex[20] = {1, 2};
    const std::pair<Vela_Event, bool> cases[] = {
        {Vela_Event(), true},
        {Vela_NoteOnEvent(60, 100), true},
        {Vela_NoteOffEvent(60, 30), true},
        {Vela_NoteWithDurationEvent(60, kLength, 100, 30), true},
        {Vela_PitchBendEvent(100), true},
        {Vela_ControllerEvent(0, 1), true},
        {Vela_ControllerEvent(127, 1), true},
        {Vela_ProgramEvent(3, 0), true},
        {Vela_MonoPressureEvent(3), false},
        {Vela_PolyPressureEvent(60, 3), false},
        {Vela_SongPositionEvent(4), false},
        {Vela_StartEvent(), false},
        {Vela_ContinueEvent(), false},
        {Vela_StopEvent(), false},
        {Vela_TimingClockEvent(), false},
        {Vela_SysexEvent(2, sysex), false},
        {Vela_SysexEvent(20, sysex), false},  // long form
        {Vela_SysexPacketEvent(2, sysex, nullptr), false},
        {Vela_ReleaseControllerEvent(3), true},
        {Vela_AllNotesOffEvent(), true},
        {Vela_QuarterFrameEvent(0x12), true},
        {Vela_ClipEvent("clip", kLength), true},
    };
    Mdie_Filter inverted = filter;
    inverted.InvertAll();
    AllocCounter counter;  // range iteration filters on the playback thread
    for (const auto& [event, passes] : cases) {
        Vela_Event copy = event;
        EXPECT_EQ(filter.FilterEvent(&copy), passes) << int(event.GetType());
        copy = event;
        const bool governed = event.GetType() >= 1 && event.GetType() <= 16;
        EXPECT_EQ(inverted.FilterEvent(&copy), governed ? !passes : true) << int(event.GetType());
    }
    EXPECT_TRUE(filter.FilterSubStream(Mdie_SubStream::Program()));
    EXPECT_EQ(counter.Count(), 0u);
}

TEST(Mdie_Filter, DroppedVelocitiesAreRewrittenPerNoteKind) {
    Vela_NoteOnEvent::SetDefaultVelocity(80);
    Mdie_Filter filter;
    filter.Set(Mdie_Filter::kNotes, true);  // both velocity flags off
    Vela_Event on = Vela_NoteOnEvent(60, 100), off = Vela_NoteOffEvent(60, 30);
    Vela_Event note = Vela_NoteWithDurationEvent(60, kLength, 100, 30);
    ASSERT_TRUE(filter.FilterEvent(&on) && filter.FilterEvent(&off) && filter.FilterEvent(&note));
    EXPECT_TRUE(on == Vela_NoteOnEvent(60, 80));  // the default velocity
    EXPECT_TRUE(off == Vela_NoteOffEvent(60, 64));
    EXPECT_TRUE(note == Vela_NoteWithDurationEvent(60, kLength, 64, 64));  // not the default velocity

    filter.Set(Mdie_Filter::kNoteOnVelocity, true).Set(Mdie_Filter::kNoteOffVelocity, true);
    Vela_Event kept = Vela_NoteWithDurationEvent(60, kLength, 100, 30);
    ASSERT_TRUE(filter.FilterEvent(&kept));
    EXPECT_TRUE(kept == Vela_NoteWithDurationEvent(60, kLength, 100, 30));
    // A blocked note is left alone.
    filter.Set(Mdie_Filter::kNotes, false).Set(Mdie_Filter::kNoteOffVelocity, false);
    Vela_Event blocked = Vela_NoteOffEvent(60, 30);
    EXPECT_FALSE(filter.FilterEvent(&blocked));
    EXPECT_TRUE(blocked == Vela_NoteOffEvent(60, 30));
}

TEST(Mdie_Filter, SubStreamsAreJudgedByTheirOwnBit) {
    Mdie_Filter filter;
    Cmn_BitArray<128> bits;
    bits.Set(7, true);
    bits.Set(127, true);
    filter.SetControllers(bits);
    for (int number = 0; number < 128; ++number) {
        Vela_Event event = Vela_ControllerEvent(static_cast<int8_t>(number), 1);
        EXPECT_EQ(filter.FilterEvent(&event), number == 7 || number == 127) << number;
    }
    EXPECT_TRUE(filter.FilterSubStream(Mdie_SubStream::Controller(7)));
    EXPECT_FALSE(filter.FilterSubStream(Mdie_SubStream::Controller(8)));
    EXPECT_FALSE(filter.FilterSubStream(Mdie_SubStream::PitchBend()));
    filter.Set(Mdie_Filter::kPitchBend, true);
    EXPECT_TRUE(filter.FilterSubStream(Mdie_SubStream::PitchBend()));
    AssertCapture asserts;
    EXPECT_TRUE(Mdie_Filter().FilterSubStream(Mdie_SubStream()));  // a null sub-stream passes, reported
    EXPECT_GT(asserts.Count(), 0u);
}

TEST(Mdie_Filter, EqualityAndInversionSeeEverySingleBit) {
    Mdie_Filter base;
    base.SetDefault();
    for (int bit = 0; bit < 128 + Mdie_Filter::kNumDataTypes; ++bit) {
        Mdie_Filter flipped = base;
        if (bit < 128) {
            Cmn_BitArray<128> bits = flipped.GetControllers();
            bits.Set(bit, !bits.Get(bit));
            flipped.SetControllers(bits);
        } else {
            const auto type = static_cast<Mdie_Filter::EDataType>(bit - 128);
            flipped.Set(type, !flipped.Get(type));
        }
        EXPECT_NE(flipped, base) << bit;
    }
    Mdie_Filter twice = base;
    twice.InvertAll();
    EXPECT_NE(twice, base);
    twice.InvertAll();
    EXPECT_EQ(twice, base);
    Mdie_Filter all, none;
    all.SetAll();
    none.InvertAll();
    EXPECT_EQ(all, none);
}

}  // namespace
