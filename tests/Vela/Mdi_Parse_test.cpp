#include "Mdi_Parse.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "AllocCounter.h"
#include "HandlerRecorder.h"

namespace {

using Bytes = std::vector<unsigned char>;

// "90 3C 40" -> the bytes.
Bytes Hex(const char* iText) {
    Bytes bytes;
    for (char* endP = nullptr; *iText != '\0'; iText = endP) bytes.push_back(static_cast<unsigned char>(std::strtol(iText, &endP, 16)));
    return bytes;
}

Bytes Concat(std::initializer_list<Bytes> iParts) {
    Bytes all;
    for (const Bytes& part : iParts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes Sysex(int iDataBytes) {
    Bytes bytes{0xF0};
    for (int i = 0; i < iDataBytes; ++i) bytes.push_back(static_cast<unsigned char>(i & 0x7F));
    bytes.push_back(0xF7);
    return bytes;
}

// One handler call as text: the handler, the message it was given, GetChannel() at the call.
// "On 90 3C 40 /0", "RT F8 /-".
std::string CallText(const char* iHandler, const unsigned char* iMessage, int iLength, short iChannel) {
    std::string text = iHandler;
    char hex[4];
    for (int i = 0; i < iLength; ++i) {
        std::snprintf(hex, sizeof hex, " %02X", iMessage[i]);
        text += hex;
    }
    return text + (iChannel < 0 ? " /-" : " /" + std::to_string(iChannel));
}

// Logs every handler call, comma-separated; returns mResult from each.
class RecordingParser : public HandlerRecorder {
public:
    std::string mLog;
    bool mResult = true;

protected:
    bool Record(const char* iHandler, const unsigned char* iMessage, int iLength) override {
        mLog += (mLog.empty() ? "" : ", ") + CallText(iHandler, iMessage, iLength, GetChannel());
        return mResult;
    }
};

bool Feed(Mdi_Parse& ioParser, const Bytes& iBytes) { return ioParser.MidiStream(iBytes.data(), static_cast<short>(iBytes.size())); }

std::string Parse(const Bytes& iBytes) {
    RecordingParser parser;
    Feed(parser, iBytes);
    return parser.mLog;
}

// ---------------------------------------------------------------- dispatch

TEST(MdiParse, EachInputReachesTheRightHandlersWithTheRightBytes) {
    const struct { const char *mInput, *mCalls; } kCases[] = {
        // Every message kind, and the controller / channel mode border (119 | 120).
        {"83 3C 10", "Off 83 3C 10 /3"}, {"94 3C 40", "On 94 3C 40 /4"}, {"A5 3C 22", "PP A5 3C 22 /5"},
        {"B6 77 7F", "CC B6 77 7F /6"}, {"B6 78 00", "CM B6 78 00 /6"}, {"B0 7B 00", "CM B0 7B 00 /0"},
        {"C7 05", "PC C7 05 /7"}, {"DF 33", "CP DF 33 /15"}, {"E1 00 40", "PB E1 00 40 /1"},
        {"F1 35", "TC F1 35 /-"}, {"F2 01 02", "SP F2 01 02 /-"}, {"F3 09", "SS F3 09 /-"}, {"F6", "TR F6 /-"},
        {"F8", "RT F8 /-"}, {"FA", "RT FA /-"}, {"FF", "RT FF /-"},
        {"F0 7E 01 F7", "SX F0 7E 01 F7 /-"}, {"F0 F7", "SX F0 F7 /-"},
        // Running status supplies the missing status byte; a new status replaces it.
        {"90 3C 40 3E 40", "On 90 3C 40 /0, On 90 3E 40 /0"},
        {"C2 01 02 03", "PC C2 01 /2, PC C2 02 /2, PC C2 03 /2"},
        {"90 3C 40 B1 07 64 0A 20", "On 90 3C 40 /0, CC B1 07 64 /1, CC B1 0A 20 /1"},
        // System common messages (and the undefined F4, F5, a lone F7, a sysex) cancel it.
        {"90 3C 40 F1 10 3E 40", "On 90 3C 40 /0, TC F1 10 /-"},
        {"90 3C 40 F2 00 00 3E 40", "On 90 3C 40 /0, SP F2 00 00 /-"},
        {"90 3C 40 F3 01 3E 40", "On 90 3C 40 /0, SS F3 01 /-"},
        {"90 3C 40 F6 3E 40", "On 90 3C 40 /0, TR F6 /-"},
        {"90 3C 40 F4 3E 40", "On 90 3C 40 /0"}, {"90 3C 40 F5 3E 40", "On 90 3C 40 /0"},
        {"90 3C 40 F7 3E 40", "On 90 3C 40 /0"}, {"90 3C 40 F0 01 F7 3E 40", "On 90 3C 40 /0, SX F0 01 F7 /-"},
        // Real-time bytes may fall anywhere, also inside a sysex; they are delivered first.
        {"90 3C F8 40", "RT F8 /0, On 90 3C 40 /0"},
        {"F0 01 FE 02 F7", "RT FE /-, SX F0 01 02 F7 /-"},
        {"C0 01 FC 02", "PC C0 01 /0, RT FC /0, PC C0 02 /0"},
        // Stray data and partial messages are dropped; a status byte drops the message in progress.
        {"3C 40 01", ""}, {"F3 01 02 03", "SS F3 01 /-"},
        {"90 3C 80 3D 10", "Off 80 3D 10 /0"}, {"F0 01 02 92 3C 40", "On 92 3C 40 /2"},
        {"90 3C F4 40", ""}, {"90 3C F5 40", ""}, {"90 3C F7 40", ""},
        // A note-on with velocity 0 becomes a note-off with velocity 64.
        {"97 3C 00", "Off 87 3C 40 /7"},
    };
    for (const auto& c : kCases) EXPECT_EQ(Parse(Hex(c.mInput)), c.mCalls) << c.mInput;

    RecordingParser parser;
    parser.SetConvertNoteOnZero(false);
    Feed(parser, Hex("97 3C 00"));
    EXPECT_EQ(parser.mLog, "On 97 3C 00 /7");

    // The real-time handler is given the byte in the caller's input, not a copy.
    struct Parser : Mdi_Parse {
        const unsigned char* mSeen = nullptr;
        bool ParseRealTime(const unsigned char* iByte) override { return mSeen = iByte, true; }
    } inPlace;
    const unsigned char input[] = {0x90, 0xF8, 0x3C};
    inPlace.MidiStream(input, 3);
    EXPECT_EQ(inPlace.mSeen, &input[1]);
}

TEST(MdiParse, SysexUpTo256BytesBeforeTheEndIsDeliveredLongerIsDropped) {
    const Bytes longest = Sysex(255);  // F0 + 255 data bytes = 256 bytes before the F7
    EXPECT_EQ(Parse(longest), CallText("SX", longest.data(), static_cast<int>(longest.size()), -1));
    EXPECT_EQ(Parse(Sysex(256)), "");  // its F7 is then a lone F7
    // The parser recovers at the next status byte; running status does not survive.
    EXPECT_EQ(Parse(Concat({Sysex(300), Hex("91 3C 40")})), "On 91 3C 40 /1");
}

TEST(MdiParse, MidiStreamReturnsTheLastHandlersResult) {
    RecordingParser parser;
    const unsigned char note[] = {0x90, 0x3C, 0x40};
    EXPECT_FALSE(parser.MidiStream(note, 0));
    EXPECT_FALSE(parser.MidiStream(note, -1));
    EXPECT_FALSE(parser.MidiStream(note, 2));  // incomplete: no handler
    EXPECT_TRUE(parser.MidiStream(note + 2, 1));
    parser.mResult = false;
    EXPECT_FALSE(Feed(parser, {0x3C, 0x40}));
    // Only the last call counts: a true real-time result and a false note.
    struct Mixed : RecordingParser {
        bool ParseRealTime(const unsigned char*) override { return true; }
    } mixed;
    mixed.mResult = false;
    EXPECT_TRUE(Feed(mixed, Hex("90 3C 40 F8")));
    EXPECT_FALSE(Feed(mixed, Hex("F8 3C 40")));
    EXPECT_TRUE(Feed(mixed, Hex("F8 3C")));  // no handler after the clock
    Mdi_Parse base;  // base handlers all answer false
    EXPECT_FALSE(Feed(base, Hex("90 3C 40 F8 F6")));
}

TEST(MdiParse, ResetAndClearRunningStatusDropState) {
    for (bool useReset : {false, true}) {
        RecordingParser parser;
        Feed(parser, Hex("90 3C 40 3E"));
        useReset ? parser.Reset() : parser.ClearRunningStatus();
        EXPECT_EQ(parser.GetChannel(), -1);
        Feed(parser, Hex("40 3C 40"));
        EXPECT_EQ(parser.mLog, "On 90 3C 40 /0");
    }
}

TEST(MdiParse, ACopyContinuesTheMessageInProgress) {
    const struct { const char *mPrefix, *mRest, *mCalls; } kCases[] = {
        {"93 3C 40 3D", "00", "On 93 3D 00 /3"},            // running status, the conversion flag and a data byte
        {"F0 01 02", "03 F7", "SX F0 01 02 03 F7 /-"},  // a sysex in progress
    };
    for (const auto& c : kCases) {
        RecordingParser original;
        original.SetConvertNoteOnZero(false);
        Feed(original, Hex(c.mPrefix));
        RecordingParser copy(original), assigned;
        assigned = original;
        for (RecordingParser* parser : {&original, &copy, &assigned}) {
            parser->mLog.clear();
            Feed(*parser, Hex(c.mRest));
            EXPECT_EQ(parser->mLog, c.mCalls);
        }
    }
}

TEST(MdiParse, AHandlerMayClearTheRunningStatus) {
    // Whether the note arrives whole or byte by byte, the reset inside the handler holds.
    struct Parser : RecordingParser {
        bool ParseNoteOn(const unsigned char* iMessage) override {
            ClearRunningStatus();
            return RecordingParser::ParseNoteOn(iMessage);
        }
    } whole, byByte;
    const Bytes input = Hex("90 3C 40 3E 40 3F 40");
    Feed(whole, input);
    for (unsigned char b : input) byByte.MidiStream(&b, 1);
    EXPECT_EQ(whole.mLog, "On 90 3C 40 /-");
    EXPECT_EQ(byByte.mLog, whole.mLog);
}

// A stream of every kind of byte: valid messages, running status, real time, sysex (some too
// long), stray data, undefined and interrupting status bytes.
Bytes MixedStream(uint32_t iSeed, size_t iLength) {
    std::mt19937 rng(iSeed);
    Bytes bytes;
    while (bytes.size() < iLength) {
        const unsigned r = rng() % 100;
        if (r < 99) {
            bytes.push_back(static_cast<unsigned char>(r < 60 ? rng() & 0x7F : r < 85 ? 0x80 + rng() % 0x70 : 0xF0 + rng() % 16));
        } else {
            const Bytes sysex = Sysex(static_cast<int>(rng() % 300));
            bytes.insert(bytes.end(), sysex.begin(), sysex.end());
        }
    }
    return bytes;
}

TEST(MdiParse, SlicingTheInputDoesNotChangeTheMessages) {
    const Bytes stream = MixedStream(7, 20000);
    const std::string whole = Parse(stream);
    ASSERT_GT(whole.size(), 2000u * 10);

    RecordingParser byByte, sliced;
    for (unsigned char b : stream) byByte.MidiStream(&b, 1);
    EXPECT_EQ(byByte.mLog, whole);
    std::mt19937 rng(11);
    for (size_t at = 0; at < stream.size();) {
        const size_t n = std::min<size_t>(stream.size() - at, rng() % 40);
        sliced.MidiStream(stream.data() + at, static_cast<short>(n));
        at += n;
    }
    EXPECT_EQ(sliced.mLog, whole);
}

// ---------------------------------------------------------------- events

struct Received {
    Vela_Event mEvent;
    short mChannel;
};

// Records events with the channel at delivery. Meddling, it also changes the parser's state in
// the middle of a stream every so often: clears the running status, flips the note-on zero rule.
class RecordingReceiver : public Mdie_EventReceiver {
public:
    explicit RecordingReceiver(Mdi_Parse& iParser, bool iMeddle = false) : mParser(iParser), mMeddle(iMeddle) {}
    void ReceiveEvent(const Vela_Event& iEvent) override {
        mReceived.push_back({iEvent, mParser.GetChannel()});
        if (mMeddle && mReceived.size() % 97 == 0) mParser.ClearRunningStatus();
        if (mMeddle && mReceived.size() % 89 == 0) mParser.SetConvertNoteOnZero(!mParser.GetConvertNoteOnZero());
    }
    std::vector<Received> mReceived;

private:
    Mdi_Parse& mParser;
    bool mMeddle;
};

std::vector<Received> ParseEvents(const Bytes& iBytes) {
    Mdi_ParseToEventReceiver parser;
    RecordingReceiver receiver(parser);
    parser.SetEventReceiver(&receiver);
    EXPECT_TRUE(Feed(parser, iBytes));
    return receiver.mReceived;
}

TEST(MdiParseToEventReceiver, ProgramsComeWithoutBankZeroNoteOnsAsNoteOffAndTheRestIsIgnored) {
    std::vector<Received> got = ParseEvents(Hex("C3 05 9F 3C 00"));
    ASSERT_EQ(got.size(), 2u);
    EXPECT_TRUE(got[0].mEvent == Vela_ProgramEvent(5, static_cast<int16_t>(0xC000)));
    EXPECT_EQ(static_cast<uint16_t>(got[0].mEvent.AsProgram().GetFullBank()), 0xC000);  // both halves disabled
    EXPECT_EQ(got[0].mChannel, 3);
    EXPECT_TRUE(got[1].mEvent == Vela_NoteOffEvent(60, 64));
    EXPECT_EQ(got[1].mChannel, 15);
    // Everything that is no channel voice event is answered true and delivers nothing.
    for (const Bytes& ignored : {Hex("B0 7B 00"), Hex("F8"), Hex("FF"), Hex("F1 01"), Hex("F2 01 02"), Hex("F3 01"), Hex("F6"), Sysex(20)})
        EXPECT_TRUE(ParseEvents(ignored).empty()) << int(ignored[0]);
    Mdi_ParseToEventReceiver withoutReceiver;
    EXPECT_TRUE(Feed(withoutReceiver, Hex("90 3C 40 C0 01 E0 00 40")));
}

// Every channel voice event, turned into bytes by the event's own encoding and parsed back,
// comes out as the same event on the same channel.
TEST(MdiParseToEventReceiver, EncodedChannelEventsParseBackToThemselves) {
    const Vela_Event events[] = {Vela_NoteOnEvent(60, 100),   Vela_NoteOffEvent(0, 0),      Vela_NoteOffEvent(127, 127),
                                 Vela_PolyPressureEvent(64, 3), Vela_ControllerEvent(1, 127), Vela_ControllerEvent(119, 0),
                                 Vela_ProgramEvent(0x15, static_cast<int16_t>(0xC000)), Vela_MonoPressureEvent(77),
                                 Vela_PitchBendEvent(0),        Vela_PitchBendEvent(8191),    Vela_PitchBendEvent(-8192),
                                 Vela_PitchBendEvent(-1)};
    for (const Vela_Event& event : events) {
        for (int channel : {0, 9, 15}) {
            ASSERT_EQ(event.GetNumMessages(), 1) << "type " << int(event.GetType());
            signed char data[16] = {};
            event.GetMessageData(data, 0);
            Bytes wire(data, data + event.GetMessageLength(0));
            wire[0] = static_cast<unsigned char>(wire[0] | channel);
            const std::vector<Received> got = ParseEvents(wire);
            ASSERT_EQ(got.size(), 1u);
            EXPECT_TRUE(got[0].mEvent == event) << "type " << int(event.GetType()) << " channel " << channel;
            EXPECT_EQ(got[0].mChannel, channel);
        }
    }
}

// Mostly whole channel messages, with and without their status byte, as a live input carries
// them; now and then a clock byte inside a message, a sysex, or a burst of mixed bytes.
Bytes ChannelHeavyStream(uint32_t iSeed, size_t iLength) {
    std::mt19937 rng(iSeed);
    Bytes bytes;
    unsigned runningStatus = 0;
    while (bytes.size() < iLength) {
        const unsigned r = rng() % 1000;
        if (r < 15) {
            const Bytes burst = r < 10 ? MixedStream(rng(), 1 + rng() % 8) : Sysex(static_cast<int>(rng() % 40));
            bytes.insert(bytes.end(), burst.begin(), burst.end());
            runningStatus = 0;  // unknown afterwards: restate it
            continue;
        }
        const unsigned status = runningStatus != 0 && rng() % 2 == 0 ? runningStatus : 0x80 + rng() % 0x70;
        if (status != runningStatus) bytes.push_back(static_cast<unsigned char>(status));
        runningStatus = status;
        for (int i = (status >> 4) == 0xC || (status >> 4) == 0xD ? 1 : 0; i < 2; ++i) {
            if (rng() % 100 == 0) bytes.push_back(0xF8);
            bytes.push_back(static_cast<unsigned char>(rng() % 8 == 0 ? 0 : rng() & 0x7F));
        }
    }
    return bytes;
}

// Overrides nothing, so the parser goes through its virtual handlers.
class Mdi_HandlerRouteParser : public Mdi_ParseToEventReceiver {};

// An event parser of exactly Mdi_ParseToEventReceiver frames channel messages without calling
// its handlers; it must deliver what the handlers deliver, with the same channel and results.
TEST(MdiParseToEventReceiver, TheDirectRouteDeliversWhatTheHandlersDoAndNothingAllocates) {
    const Bytes stream = Concat({ChannelHeavyStream(5, 200000), MixedStream(9, 20000)});
    auto parse = [&stream](Mdi_ParseToEventReceiver& ioParser, std::vector<bool>& oResults, unsigned iSliceBound) {
        RecordingReceiver receiver(ioParser, true);
        ioParser.SetEventReceiver(&receiver);
        std::mt19937 rng(13);
        for (size_t at = 0; at < stream.size();) {
            const size_t n = std::min<size_t>(stream.size() - at, rng() % iSliceBound);
            oResults.push_back(ioParser.MidiStream(stream.data() + at, static_cast<short>(n)));
            at += n;
        }
        return receiver.mReceived;
    };
    Mdi_ParseToEventReceiver direct, byteAtATime;
    Mdi_HandlerRouteParser viaHandlers;
    std::vector<bool> directResults, handlerResults, byteResults;
    const std::vector<Received> got = parse(direct, directResults, 300);
    const std::vector<Received> expected = parse(viaHandlers, handlerResults, 300);
    EXPECT_EQ(directResults, handlerResults);
    // Fed at most one byte at a time, no message is ever framed whole: the plain state machine.
    const std::vector<Received> byBytes = parse(byteAtATime, byteResults, 2);

    ASSERT_GT(expected.size(), 50000u);
    for (const std::vector<Received>* other : {&expected, &byBytes}) {
        ASSERT_EQ(got.size(), other->size());
        for (size_t i = 0; i < got.size(); ++i) {
            ASSERT_TRUE(got[i].mEvent.GetType() == (*other)[i].mEvent.GetType() && got[i].mEvent == (*other)[i].mEvent) << "event " << i;
            ASSERT_EQ(got[i].mChannel, (*other)[i].mChannel) << "event " << i;
        }
    }

    // Parsing allocates nothing, on the direct route or through the base handlers.
    struct CountingReceiver : Mdie_EventReceiver {
        size_t mCount = 0;
        void ReceiveEvent(const Vela_Event&) override { ++mCount; }
    } counting;
    Mdi_ParseToEventReceiver quiet;
    quiet.SetEventReceiver(&counting);
    Mdi_Parse base;
    AllocCounter counter;
    for (size_t at = 0; at < stream.size(); at += 1000) {
        const short n = static_cast<short>(std::min<size_t>(1000, stream.size() - at));
        quiet.MidiStream(stream.data() + at, n);
        base.MidiStream(stream.data() + at, n);
    }
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_GT(counting.mCount, 50000u);
}

// ---------------------------------------------------------------- single event

// Scans to the first complete message: a channel voice event, or the null event when that
// message is ignored, incomplete or absent. Reports the bytes used and the channel.
TEST(MdiParseSingleEvent, StopsAtTheFirstCompleteMessage) {
    const Bytes note = Hex("90 3C 40");
    const struct { Bytes mInput; Vela_Event mEvent; int mUsed, mChannel; } kCases[] = {
        {Hex("3C FE 3C 95 3C 40 3E 40"), Vela_Event(), 2, -1},  // stray byte skipped, active sensing ends the scan
        {Hex("3C 95 3C 40 3E 40"), Vela_NoteOnEvent(0x3C, 0x40), 4, 5},
        {Concat({Sysex(30), note}), Vela_Event(), 32, -1},
        {Concat({Hex("F6"), note}), Vela_Event(), 1, -1},
        {Concat({Hex("B3 79 00"), note}), Vela_Event(), 3, -1},
        {Concat({Hex("F3 02"), note}), Vela_Event(), 2, -1},
        {Hex("90 3C"), Vela_Event(), 2, -1},
        {Bytes(), Vela_Event(), 0, -1},
    };
    for (const auto& c : kCases) {
        signed char channel = 0;
        int used = -5;
        const Vela_Event event = Mdi_ParseSingleEvent(&channel, &used, c.mInput.data(), static_cast<int>(c.mInput.size()));
        EXPECT_TRUE(event.GetType() == c.mEvent.GetType() && event == c.mEvent) << "case " << &c - kCases;
        EXPECT_EQ(used, c.mUsed);
        EXPECT_EQ(channel, c.mChannel);
    }
    int used = -5;
    EXPECT_EQ(Mdi_ParseSingleEvent(nullptr, &used, nullptr, -1).GetType(), Vela_Event::kNull);
    EXPECT_EQ(used, 0);
    const unsigned char bend[] = {0xE0, 0x00, 0x40};  // the out-pointers are optional
    EXPECT_EQ(Mdi_ParseSingleEvent(nullptr, nullptr, bend, 3).GetType(), Vela_Event::kPitchBend);
}

}  // namespace
