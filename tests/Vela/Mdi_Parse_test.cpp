#include "Mdi_Parse.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "AllocCounter.h"

namespace {

using Bytes = std::vector<unsigned char>;

enum ESlot {
    kRealTime = 1,
    kSysEx,
    kNoteOff,
    kNoteOn,
    kPolyphonic,
    kChannelMode,
    kController,
    kProgramChange,
    kChannelPressure,
    kPitchBend,
    kTimecode,
    kSongPointer,
    kSongSelect,
    kTuneRequest,
};

struct Call {
    int mSlot;
    Bytes mMessage;
    short mChannel;  // GetChannel() at the time of the call
    bool operator==(const Call& iOther) const = default;
};

void PrintTo(const Call& iCall, std::ostream* ioOut) {
    *ioOut << "slot " << iCall.mSlot << " ch " << iCall.mChannel << " [";
    for (unsigned char b : iCall.mMessage) *ioOut << std::hex << int(b) << ' ';
    *ioOut << "]";
}

// Records every handler call with the message it was given; returns mResult from each.
class RecordingParser : public Mdi_Parse {
public:
    std::vector<Call> mCalls;
    bool mResult = true;

protected:
    bool Record(int iSlot, const unsigned char* iMessage, int iLength) {
        mCalls.push_back({iSlot, Bytes(iMessage, iMessage + iLength), GetChannel()});
        return mResult;
    }
    bool ParseRealTime(const unsigned char* m) override { return Record(kRealTime, m, 1); }
    bool ParseSysEx(const unsigned char* m, short n) override { return Record(kSysEx, m, n); }
    bool ParseNoteOff(const unsigned char* m) override { return Record(kNoteOff, m, 3); }
    bool ParseNoteOn(const unsigned char* m) override { return Record(kNoteOn, m, 3); }
    bool ParsePolyphonic(const unsigned char* m) override { return Record(kPolyphonic, m, 3); }
    bool ParseChannelMode(const unsigned char* m) override { return Record(kChannelMode, m, 3); }
    bool ParseController(const unsigned char* m) override { return Record(kController, m, 3); }
    bool ParseProgramChange(const unsigned char* m) override { return Record(kProgramChange, m, 2); }
    bool ParseChannelPressure(const unsigned char* m) override { return Record(kChannelPressure, m, 2); }
    bool ParsePitchBend(const unsigned char* m) override { return Record(kPitchBend, m, 3); }
    bool ParseTimecode(const unsigned char* m) override { return Record(kTimecode, m, 2); }
    bool ParseSongPointer(const unsigned char* m) override { return Record(kSongPointer, m, 3); }
    bool ParseSongSelect(const unsigned char* m) override { return Record(kSongSelect, m, 2); }
    bool ParseTuneRequest(const unsigned char* m) override { return Record(kTuneRequest, m, 1); }
};

bool Feed(Mdi_Parse& ioParser, const Bytes& iBytes) {
    return ioParser.MidiStream(iBytes.data(), static_cast<short>(iBytes.size()));
}

std::vector<Call> Parse(const Bytes& iBytes) {
    RecordingParser parser;
    Feed(parser, iBytes);
    return parser.mCalls;
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

// ---------------------------------------------------------------- dispatch

TEST(MdiParse, EachMessageReachesItsHandlerWithItsBytes) {
    struct Case {
        Bytes mInput;
        int mSlot;
        short mChannel;
    };
    const Case cases[] = {
        {{0x83, 0x3C, 0x10}, kNoteOff, 3},
        {{0x94, 0x3C, 0x40}, kNoteOn, 4},
        {{0xA5, 0x3C, 0x22}, kPolyphonic, 5},
        {{0xB6, 0x77, 0x7F}, kController, 6},   // 119: last ordinary controller
        {{0xB6, 0x78, 0x00}, kChannelMode, 6},  // 120: first channel mode message
        {{0xB0, 0x7B, 0x00}, kChannelMode, 0},  // all notes off
        {{0xC7, 0x05}, kProgramChange, 7},
        {{0xDF, 0x33}, kChannelPressure, 15},
        {{0xE1, 0x00, 0x40}, kPitchBend, 1},
        {{0xF1, 0x35}, kTimecode, -1},
        {{0xF2, 0x01, 0x02}, kSongPointer, -1},
        {{0xF3, 0x09}, kSongSelect, -1},
        {{0xF6}, kTuneRequest, -1},
        {{0xF8}, kRealTime, -1},
        {{0xFA}, kRealTime, -1},
        {{0xFF}, kRealTime, -1},
        {{0xF0, 0x7E, 0x01, 0xF7}, kSysEx, -1},
        {{0xF0, 0xF7}, kSysEx, -1},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Parse(c.mInput), (std::vector<Call>{{c.mSlot, c.mInput, c.mChannel}})) << "first byte " << int(c.mInput[0]);
    }
}

TEST(MdiParse, RunningStatusSuppliesTheMissingStatusByte) {
    EXPECT_EQ(Parse({0x90, 0x3C, 0x40, 0x3E, 0x40}),
              (std::vector<Call>{{kNoteOn, {0x90, 0x3C, 0x40}, 0}, {kNoteOn, {0x90, 0x3E, 0x40}, 0}}));
    EXPECT_EQ(Parse({0xC2, 0x01, 0x02, 0x03}), (std::vector<Call>{{kProgramChange, {0xC2, 0x01}, 2},
                                                                  {kProgramChange, {0xC2, 0x02}, 2},
                                                                  {kProgramChange, {0xC2, 0x03}, 2}}));
    // A new channel status replaces the running status.
    EXPECT_EQ(Parse({0x90, 0x3C, 0x40, 0xB1, 0x07, 0x64, 0x0A, 0x20}),
              (std::vector<Call>{{kNoteOn, {0x90, 0x3C, 0x40}, 0},
                                 {kController, {0xB1, 0x07, 0x64}, 1},
                                 {kController, {0xB1, 0x0A, 0x20}, 1}}));
}

TEST(MdiParse, SystemCommonMessagesCancelRunningStatus) {
    for (const Bytes& system : {Bytes{0xF1, 0x10}, Bytes{0xF2, 0, 0}, Bytes{0xF3, 1}, Bytes{0xF6}, Bytes{0xF4}, Bytes{0xF5},
                                Bytes{0xF7}, Sysex(3)}) {
        RecordingParser parser;
        Feed(parser, Concat({{0x90, 0x3C, 0x40}, system}));
        EXPECT_EQ(parser.GetChannel(), -1);
        const size_t calls = parser.mCalls.size();
        Feed(parser, {0x3E, 0x40});  // data with no running status: dropped
        EXPECT_EQ(parser.mCalls.size(), calls) << "after " << int(system[0]);
    }
}

TEST(MdiParse, RealTimeBytesMayFallAnywhere) {
    // Inside a message: the clock comes first, the note-on still completes.
    EXPECT_EQ(Parse({0x90, 0x3C, 0xF8, 0x40}),
              (std::vector<Call>{{kRealTime, {0xF8}, 0}, {kNoteOn, {0x90, 0x3C, 0x40}, 0}}));
    // Between the status and data of a running-status message, and inside a sysex.
    EXPECT_EQ(Parse({0xF0, 0x01, 0xFE, 0x02, 0xF7}),
              (std::vector<Call>{{kRealTime, {0xFE}, -1}, {kSysEx, {0xF0, 0x01, 0x02, 0xF7}, -1}}));
    EXPECT_EQ(Parse({0xC0, 0x01, 0xFC, 0x02}), (std::vector<Call>{{kProgramChange, {0xC0, 0x01}, 0},
                                                                  {kRealTime, {0xFC}, 0},
                                                                  {kProgramChange, {0xC0, 0x02}, 0}}));
    // The handler is given the byte in the caller's input, not a copy.
    struct Parser : Mdi_Parse {
        const unsigned char* mSeen = nullptr;
        bool ParseRealTime(const unsigned char* iByte) override {
            mSeen = iByte;
            return true;
        }
    } parser;
    const unsigned char input[] = {0x90, 0xF8, 0x3C};
    parser.MidiStream(input, 3);
    EXPECT_EQ(parser.mSeen, &input[1]);
}

TEST(MdiParse, StrayDataAndPartialMessagesAreDropped) {
    EXPECT_TRUE(Parse({0x3C, 0x40, 0x01}).empty());
    // After a complete system common message there is nothing to run on.
    EXPECT_EQ(Parse({0xF3, 0x01, 0x02, 0x03}), (std::vector<Call>{{kSongSelect, {0xF3, 0x01}, -1}}));
    // A status byte drops the message in progress.
    EXPECT_EQ(Parse({0x90, 0x3C, 0x80, 0x3D, 0x10}), (std::vector<Call>{{kNoteOff, {0x80, 0x3D, 0x10}, 0}}));
    EXPECT_EQ(Parse({0xF0, 0x01, 0x02, 0x92, 0x3C, 0x40}), (std::vector<Call>{{kNoteOn, {0x92, 0x3C, 0x40}, 2}}));
    // F4, F5 and an F7 that ends no sysex drop the partial message too, and call nothing.
    for (unsigned char undefined : {0xF4, 0xF5, 0xF7}) {
        EXPECT_TRUE(Parse({0x90, 0x3C, undefined, 0x40}).empty()) << int(undefined);
    }
}

TEST(MdiParse, NoteOnWithVelocityZeroBecomesNoteOffUnlessDisabled) {
    EXPECT_EQ(Parse({0x97, 0x3C, 0x00}), (std::vector<Call>{{kNoteOff, {0x87, 0x3C, 0x40}, 7}}));
    RecordingParser parser;
    parser.SetConvertNoteOnZero(false);
    Feed(parser, {0x97, 0x3C, 0x00});
    EXPECT_EQ(parser.mCalls, (std::vector<Call>{{kNoteOn, {0x97, 0x3C, 0x00}, 7}}));
}

TEST(MdiParse, SysexUpTo256BytesBeforeTheEndIsDeliveredLongerIsDropped) {
    // F0 + 255 data bytes = 256 bytes before the F7: delivered whole, 257 bytes.
    const Bytes longest = Sysex(255);
    EXPECT_EQ(Parse(longest), (std::vector<Call>{{kSysEx, longest, -1}}));
    // One more data byte: dropped, and its F7 is a lone F7.
    EXPECT_TRUE(Parse(Sysex(256)).empty());
    EXPECT_TRUE(Parse(Sysex(300)).empty());
    // The parser recovers at the next status byte.
    EXPECT_EQ(Parse(Concat({Sysex(300), {0x91, 0x3C, 0x40}})), (std::vector<Call>{{kNoteOn, {0x91, 0x3C, 0x40}, 1}}));
    // Running status does not survive a sysex.
    EXPECT_EQ(Parse(Concat({{0x90, 0x3C, 0x40}, Sysex(2), {0x3C, 0x40}})).size(), 2u);
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
    // Only the last call counts: a true real-time result followed by a false note.
    struct Mixed : RecordingParser {
        bool ParseRealTime(const unsigned char*) override { return true; }
    } mixed;
    mixed.mResult = false;
    EXPECT_TRUE(Feed(mixed, {0x90, 0x3C, 0x40, 0xF8}));
    EXPECT_FALSE(Feed(mixed, {0xF8, 0x3C, 0x40}));
    EXPECT_TRUE(Feed(mixed, {0xF8, 0x3C}));  // no handler after the clock
    // Base handlers all answer false.
    Mdi_Parse base;
    EXPECT_FALSE(Feed(base, {0x90, 0x3C, 0x40, 0xF8, 0xF6}));
}

TEST(MdiParse, ResetAndClearRunningStatusDropState) {
    for (bool useReset : {false, true}) {
        RecordingParser parser;
        Feed(parser, {0x90, 0x3C, 0x40, 0x3E});
        useReset ? parser.Reset() : parser.ClearRunningStatus();
        EXPECT_EQ(parser.GetChannel(), -1);
        Feed(parser, {0x40, 0x3C, 0x40});
        EXPECT_EQ(parser.mCalls.size(), 1u);
    }
}

TEST(MdiParse, ACopyContinuesTheMessageInProgress) {
    RecordingParser original;
    original.SetConvertNoteOnZero(false);
    Feed(original, {0x93, 0x3C, 0x40, 0x3D});
    RecordingParser copy(original);
    RecordingParser assigned;
    assigned = original;
    for (RecordingParser* parser : {&original, &copy, &assigned}) {
        parser->mCalls.clear();
        Feed(*parser, {0x00});
        EXPECT_EQ(parser->mCalls, (std::vector<Call>{{kNoteOn, {0x93, 0x3D, 0x00}, 3}}));
    }
    // The same holds in the middle of a sysex.
    RecordingParser inSysex;
    Feed(inSysex, {0xF0, 0x01, 0x02});
    RecordingParser sysexCopy(inSysex);
    Feed(sysexCopy, {0x03, 0xF7});
    EXPECT_EQ(sysexCopy.mCalls, (std::vector<Call>{{kSysEx, {0xF0, 0x01, 0x02, 0x03, 0xF7}, -1}}));
}

TEST(MdiParse, AHandlerMayClearTheRunningStatus) {
    // Whether the note arrives whole or byte by byte, the reset inside the handler holds.
    struct Parser : RecordingParser {
        bool ParseNoteOn(const unsigned char* iMessage) override {
            ClearRunningStatus();
            return RecordingParser::ParseNoteOn(iMessage);
        }
    };
    const Bytes input{0x90, 0x3C, 0x40, 0x3E, 0x40, 0x3F, 0x40};
    Parser whole;
    Feed(whole, input);
    Parser byByte;
    for (unsigned char b : input) byByte.MidiStream(&b, 1);
    for (Parser* parser : {&whole, &byByte}) {
        EXPECT_EQ(parser->mCalls, (std::vector<Call>{{kNoteOn, {0x90, 0x3C, 0x40}, -1}}));
    }
}

// A stream of every kind of byte: valid messages, running status, real time, sysex (some too
// long), stray data, undefined and interrupting status bytes.
Bytes MixedStream(uint32_t iSeed, size_t iLength) {
    std::mt19937 rng(iSeed);
    Bytes bytes;
    while (bytes.size() < iLength) {
        const unsigned r = rng() % 100;
        if (r < 60) {
            bytes.push_back(static_cast<unsigned char>(rng() & 0x7F));
        } else if (r < 85) {
            bytes.push_back(static_cast<unsigned char>(0x80 + rng() % 0x70));
        } else if (r < 99) {
            bytes.push_back(static_cast<unsigned char>(0xF0 + rng() % 16));
        } else {
            const Bytes sysex = Sysex(static_cast<int>(rng() % 300));
            bytes.insert(bytes.end(), sysex.begin(), sysex.end());
        }
    }
    return bytes;
}

TEST(MdiParse, SlicingTheInputDoesNotChangeTheMessages) {
    const Bytes stream = MixedStream(7, 20000);
    const std::vector<Call> whole = Parse(stream);
    ASSERT_GT(whole.size(), 2000u);

    RecordingParser byByte;
    for (unsigned char b : stream) byByte.MidiStream(&b, 1);
    EXPECT_EQ(byByte.mCalls, whole);

    std::mt19937 rng(11);
    RecordingParser sliced;
    for (size_t at = 0; at < stream.size();) {
        const size_t n = std::min<size_t>(stream.size() - at, rng() % 40);
        sliced.MidiStream(stream.data() + at, static_cast<short>(n));
        at += n;
    }
    EXPECT_EQ(sliced.mCalls, whole);
}

// ---------------------------------------------------------------- events

struct Received {
    Vela_Event mEvent;
    short mChannel;
};

class RecordingReceiver : public Mdie_EventReceiver {
public:
    explicit RecordingReceiver(const Mdi_Parse& iParser) : mParser(iParser) {}
    void ReceiveEvent(const Vela_Event& iEvent) override { mReceived.push_back({iEvent, mParser.GetChannel()}); }
    std::vector<Received> mReceived;

private:
    const Mdi_Parse& mParser;
};

std::vector<Received> ParseEvents(const Bytes& iBytes) {
    Mdi_ParseToEventReceiver parser;
    RecordingReceiver receiver(parser);
    parser.SetEventReceiver(&receiver);
    Feed(parser, iBytes);
    return receiver.mReceived;
}

Received ParseOneEvent(const Bytes& iBytes) {
    std::vector<Received> events = ParseEvents(iBytes);
    EXPECT_EQ(events.size(), 1u);
    return events.empty() ? Received{Vela_Event(), -1} : events[0];
}

// The plain channel events are covered by the round trip below; these are the rules of input.
TEST(MdiParseToEventReceiver, ProgramsComeWithoutBankAndZeroNoteOnsAsNoteOff) {
    Received got = ParseOneEvent({0xC3, 0x05});
    ASSERT_EQ(got.mEvent.GetType(), Vela_Event::kProgram);
    const Vela_ProgramEvent& program = got.mEvent.AsProgram();
    EXPECT_EQ(program.GetProgram(), 5);
    EXPECT_TRUE(program.IsProgramEnabled());
    EXPECT_EQ(static_cast<uint16_t>(program.GetFullBank()), 0xC000);  // both halves disabled
    EXPECT_EQ(got.mChannel, 3);

    got = ParseOneEvent({0x9F, 0x3C, 0x00});
    ASSERT_EQ(got.mEvent.GetType(), Vela_Event::kNoteOff);
    EXPECT_EQ(got.mEvent.AsNoteOff().GetPitch(), 60);
    EXPECT_EQ(got.mEvent.AsNoteOff().GetVelocity(), 64);
    EXPECT_EQ(got.mChannel, 15);
}

TEST(MdiParseToEventReceiver, PitchBendIsCentredOnZero) {
    const struct {
        unsigned char mLSB, mMSB;
        int mBend;
    } cases[] = {{0x00, 0x40, 0}, {0x7F, 0x7F, 8191}, {0x00, 0x00, -8192}, {0x01, 0x40, 1}, {0x7F, 0x3F, -1}};
    for (const auto& c : cases) {
        const Received got = ParseOneEvent({0xE0, c.mLSB, c.mMSB});
        ASSERT_EQ(got.mEvent.GetType(), Vela_Event::kPitchBend);
        EXPECT_EQ(got.mEvent.AsPitchBend().GetBendValue(), c.mBend);
    }
}

TEST(MdiParseToEventReceiver, IgnoresEverythingElseButReportsIt) {
    Mdi_ParseToEventReceiver parser;
    RecordingReceiver receiver(parser);
    parser.SetEventReceiver(&receiver);
    for (const Bytes& ignored : {Bytes{0xB0, 0x7B, 0x00}, Bytes{0xF8}, Bytes{0xFF}, Sysex(20), Bytes{0xF1, 0x01},
                                 Bytes{0xF2, 0x01, 0x02}, Bytes{0xF3, 0x01}, Bytes{0xF6}}) {
        EXPECT_TRUE(Feed(parser, ignored)) << int(ignored[0]);
    }
    EXPECT_TRUE(receiver.mReceived.empty());
}

TEST(MdiParseToEventReceiver, WithoutAReceiverDeliversNothingAndStillAnswersTrue) {
    Mdi_ParseToEventReceiver parser;
    EXPECT_EQ(parser.GetEventReceiver(), nullptr);
    EXPECT_TRUE(Feed(parser, {0x90, 0x3C, 0x40, 0xC0, 0x01, 0xE0, 0x00, 0x40}));
}

// Every channel voice event, turned into bytes by the event's own encoding and parsed back,
// comes out as the same event on the same channel.
TEST(MdiParseToEventReceiver, EncodedChannelEventsParseBackToThemselves) {
    const Vela_ProgramEvent program(0x15, static_cast<int16_t>(0xC000));
    const Vela_Event events[] = {Vela_NoteOnEvent(60, 100),      Vela_NoteOffEvent(0, 0),      Vela_NoteOffEvent(127, 127),
                                 Vela_PolyPressureEvent(64, 3),  Vela_ControllerEvent(1, 127), Vela_ControllerEvent(119, 0),
                                 program,                        Vela_MonoPressureEvent(77),   Vela_PitchBendEvent(0),
                                 Vela_PitchBendEvent(8191),      Vela_PitchBendEvent(-8192),   Vela_PitchBendEvent(-1)};
    for (const Vela_Event& event : events) {
        for (int channel : {0, 9, 15}) {
            ASSERT_EQ(event.GetNumMessages(), 1) << "type " << int(event.GetType());
            signed char data[16] = {};
            event.GetMessageData(data, 0);
            Bytes wire(data, data + event.GetMessageLength(0));
            wire[0] = static_cast<unsigned char>(wire[0] | channel);
            const Received got = ParseOneEvent(wire);
            EXPECT_TRUE(got.mEvent == event) << "type " << int(event.GetType()) << " channel " << channel;
            EXPECT_EQ(got.mChannel, channel);
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
        if (r < 10) {
            const Bytes burst = MixedStream(rng(), 1 + rng() % 8);
            bytes.insert(bytes.end(), burst.begin(), burst.end());
            runningStatus = 0;  // unknown after the burst: restate it
            continue;
        }
        if (r < 15) {
            const Bytes sysex = Sysex(static_cast<int>(rng() % 40));
            bytes.insert(bytes.end(), sysex.begin(), sysex.end());
            runningStatus = 0;
            continue;
        }
        const unsigned status = runningStatus != 0 && rng() % 2 == 0 ? runningStatus : 0x80 + rng() % 0x70;
        if (status != runningStatus) bytes.push_back(static_cast<unsigned char>(status));
        runningStatus = status;
        const int dataBytes = (status >> 4) == 0xC || (status >> 4) == 0xD ? 1 : 2;
        for (int i = 0; i < dataBytes; ++i) {
            if (rng() % 100 == 0) bytes.push_back(0xF8);
            bytes.push_back(static_cast<unsigned char>(rng() % 8 == 0 ? 0 : rng() & 0x7F));
        }
    }
    return bytes;
}

// Records events, and every so often changes the parser's state in the middle of a stream:
// clears the running status or flips the note-on zero conversion.
class MeddlingReceiver : public RecordingReceiver {
public:
    explicit MeddlingReceiver(Mdi_Parse& iParser) : RecordingReceiver(iParser), mParser(iParser) {}
    void ReceiveEvent(const Vela_Event& iEvent) override {
        RecordingReceiver::ReceiveEvent(iEvent);
        if (mReceived.size() % 97 == 0) mParser.ClearRunningStatus();
        if (mReceived.size() % 89 == 0) mParser.SetConvertNoteOnZero(!mParser.GetConvertNoteOnZero());
    }

private:
    Mdi_Parse& mParser;
};

// Overrides nothing, so the parser goes through its virtual handlers.
class Mdi_HandlerRouteParser : public Mdi_ParseToEventReceiver {};

// An event parser of exactly Mdi_ParseToEventReceiver frames channel messages without calling
// its handlers; it must deliver what the handlers deliver, with the same channel and results.
TEST(MdiParseToEventReceiver, TheDirectRouteDeliversWhatTheHandlersDo) {
    Bytes stream = ChannelHeavyStream(5, 200000);
    const Bytes mixed = MixedStream(9, 20000);
    stream.insert(stream.end(), mixed.begin(), mixed.end());

    auto parse = [&stream](Mdi_ParseToEventReceiver& ioParser, std::vector<bool>& oResults, unsigned iSliceBound = 300) {
        MeddlingReceiver receiver(ioParser);
        ioParser.SetEventReceiver(&receiver);
        std::mt19937 rng(13);
        for (size_t at = 0; at < stream.size();) {
            const size_t n = std::min<size_t>(stream.size() - at, rng() % iSliceBound);
            oResults.push_back(ioParser.MidiStream(stream.data() + at, static_cast<short>(n)));
            at += n;
        }
        return receiver.mReceived;
    };
    Mdi_ParseToEventReceiver direct;
    Mdi_HandlerRouteParser viaHandlers;
    std::vector<bool> directResults, handlerResults;
    const std::vector<Received> got = parse(direct, directResults);
    const std::vector<Received> expected = parse(viaHandlers, handlerResults);
    EXPECT_EQ(directResults, handlerResults);
    // Fed at most one byte at a time, no message is ever framed whole: the plain state machine.
    Mdi_ParseToEventReceiver byteAtATime;
    std::vector<bool> byteResults;
    const std::vector<Received> byBytes = parse(byteAtATime, byteResults, 2);

    ASSERT_GT(expected.size(), 50000u);
    for (const std::vector<Received>* other : {&expected, &byBytes}) {
        ASSERT_EQ(got.size(), other->size());
        for (size_t i = 0; i < got.size(); ++i) {
            ASSERT_EQ(got[i].mEvent.GetType(), (*other)[i].mEvent.GetType()) << "event " << i;
            ASSERT_TRUE(got[i].mEvent == (*other)[i].mEvent) << "event " << i;
            ASSERT_EQ(got[i].mChannel, (*other)[i].mChannel) << "event " << i;
        }
    }
}

TEST(MdiParseToEventReceiver, ParsingAllocatesNothing) {
    struct CountingReceiver : Mdie_EventReceiver {
        int mCount = 0;
        void ReceiveEvent(const Vela_Event& iEvent) override { mCount += iEvent.GetType() != Vela_Event::kNull; }
    } receiver;
    Bytes stream = MixedStream(3, 50000);
    const Bytes channelHeavy = ChannelHeavyStream(3, 50000);
    stream.insert(stream.end(), channelHeavy.begin(), channelHeavy.end());
    Mdi_ParseToEventReceiver parser;
    parser.SetEventReceiver(&receiver);
    Mdi_Parse base;  // the base handlers, for the sysex and system paths

    AllocCounter counter;
    for (size_t at = 0; at < stream.size(); at += 1000) {
        const short n = static_cast<short>(std::min<size_t>(1000, stream.size() - at));
        parser.MidiStream(stream.data() + at, n);
        base.MidiStream(stream.data() + at, n);
    }
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_GT(receiver.mCount, 1000);
}

// ---------------------------------------------------------------- single event

TEST(MdiParseSingleEvent, StopsAtTheFirstCompleteMessage) {
    const unsigned char bytes[] = {0x3C, 0xFE, 0x3C, 0x95, 0x3C, 0x40, 0x3E, 0x40};
    signed char channel = 0;
    int used = 0;
    // The stray byte is skipped; the active-sensing byte ends the scan with no event.
    Vela_Event event = Mdi_ParseSingleEvent(&channel, &used, bytes, sizeof bytes);
    EXPECT_EQ(event.GetType(), Vela_Event::kNull);
    EXPECT_EQ(used, 2);
    EXPECT_EQ(channel, -1);

    event = Mdi_ParseSingleEvent(&channel, &used, bytes + 2, sizeof bytes - 2);
    ASSERT_EQ(event.GetType(), Vela_Event::kNoteOn);
    EXPECT_EQ(event.AsNoteOn().GetVelocity(), 0x40);
    EXPECT_EQ(used, 4);
    EXPECT_EQ(channel, 5);
}

TEST(MdiParseSingleEvent, IgnoredMessagesEndTheScanWithTheNullEvent) {
    for (const Bytes& ignored : {Sysex(30), Bytes{0xF6}, Bytes{0xB3, 0x79, 0x00}, Bytes{0xF3, 0x02}}) {
        const Bytes input = Concat({ignored, {0x90, 0x3C, 0x40}});
        signed char channel = 0;
        int used = 0;
        const Vela_Event event = Mdi_ParseSingleEvent(&channel, &used, input.data(), static_cast<int>(input.size()));
        EXPECT_EQ(event.GetType(), Vela_Event::kNull);
        EXPECT_EQ(used, static_cast<int>(ignored.size()));
        EXPECT_EQ(channel, -1);
    }
}

TEST(MdiParseSingleEvent, IncompleteOrEmptyInputGivesTheNullEvent) {
    const unsigned char partial[] = {0x90, 0x3C};
    signed char channel = 0;
    int used = -5;
    EXPECT_EQ(Mdi_ParseSingleEvent(&channel, &used, partial, 2).GetType(), Vela_Event::kNull);
    EXPECT_EQ(used, 2);
    EXPECT_EQ(channel, -1);
    EXPECT_EQ(Mdi_ParseSingleEvent(&channel, &used, partial, 0).GetType(), Vela_Event::kNull);
    EXPECT_EQ(used, 0);
    EXPECT_EQ(Mdi_ParseSingleEvent(&channel, &used, nullptr, -1).GetType(), Vela_Event::kNull);
    EXPECT_EQ(used, 0);
    // The out-pointers are optional.
    const unsigned char note[] = {0xE0, 0x00, 0x40};
    EXPECT_EQ(Mdi_ParseSingleEvent(nullptr, nullptr, note, 3).GetType(), Vela_Event::kPitchBend);
}

}  // namespace
