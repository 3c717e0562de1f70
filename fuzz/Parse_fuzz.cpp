// The MIDI byte parser, fed the input in slices whose size the first input byte chooses.
// Properties: the messages delivered do not depend on the slicing (the same bytes fed one at a
// time give the same messages); the delivered messages, concatenated and parsed again, give
// themselves back; and the events the event parser builds, encoded again with their channel,
// parse back to the same events.
#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "HandlerRecorder.h"
#include "Mdi_Parse.h"

namespace {

using Message = std::pair<std::string, std::vector<unsigned char>>;  // handler, bytes

class RecordingParser : public HandlerRecorder {
public:
    std::vector<Message> mMessages;

protected:
    bool Record(const char* iHandler, const unsigned char* iMessage, int iLength) override {
        mMessages.emplace_back(iHandler, std::vector<unsigned char>(iMessage, iMessage + iLength));
        return true;
    }
};

struct Received {
    Vela_Event mEvent;
    short mChannel;
    bool operator==(const Received& iOther) const { return mEvent == iOther.mEvent && mChannel == iOther.mChannel; }
};

class EventRecorder : public Mdie_EventReceiver {
public:
    explicit EventRecorder(const Mdi_Parse& iParser) : mParser(iParser) {}
    void ReceiveEvent(const Vela_Event& iEvent) override { mReceived.push_back({iEvent, mParser.GetChannel()}); }
    std::vector<Received> mReceived;

private:
    const Mdi_Parse& mParser;
};

template <class TParser>
void Feed(TParser& ioParser, const unsigned char* iBytes, size_t iSize, size_t iSlice) {
    for (size_t done = 0; done < iSize; done += iSlice) {
        ioParser.MidiStream(iBytes + done, static_cast<short>(std::min(iSlice, iSize - done)));
    }
}

std::vector<Message> Messages(const unsigned char* iBytes, size_t iSize, size_t iSlice) {
    RecordingParser parser;
    Feed(parser, iBytes, iSize, iSlice);
    return parser.mMessages;
}

std::vector<Received> Events(const unsigned char* iBytes, size_t iSize, size_t iSlice) {
    Mdi_ParseToEventReceiver parser;
    EventRecorder recorder(parser);
    parser.SetEventReceiver(&recorder);
    Feed(parser, iBytes, iSize, iSlice);
    return recorder.mReceived;
}

void Require(bool iOk, const char* iWhat) {
    if (!iOk) throw std::logic_error(iWhat);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* iData, size_t iSize) {
    if (iSize < 1 || iSize > 0x7FFF) return 0;
    const size_t slice = iData[0] % 32 + 1;
    const unsigned char* bytes = iData + 1;
    const size_t size = iSize - 1;

    const std::vector<Message> messages = Messages(bytes, size, slice);
    Require(Messages(bytes, size, 1) == messages, "slicing changed the messages");
    std::vector<unsigned char> again;
    for (const Message& message : messages) again.insert(again.end(), message.second.begin(), message.second.end());
    Require(Messages(again.data(), again.size(), again.size() + 1) == messages, "messages parsed again differ");

    const std::vector<Received> events = Events(bytes, size, slice);
    std::vector<unsigned char> encoded;
    for (const Received& received : events) {
        for (int i = 0; i < received.mEvent.GetNumMessages(); ++i) {
            std::vector<signed char> message(static_cast<size_t>(received.mEvent.GetMessageLength(i)));
            received.mEvent.GetMessageData(message.data(), i);
            if (!message.empty()) message[0] = static_cast<signed char>(message[0] | received.mChannel);
            encoded.insert(encoded.end(), message.begin(), message.end());
        }
    }
    Require(Events(encoded.data(), encoded.size(), encoded.size() + 1) == events, "encoded events parse back differently");

    int used = 0;
    signed char channel = 0;
    Mdi_ParseSingleEvent(&channel, &used, bytes, static_cast<int>(size));
    Require(used >= 0 && static_cast<size_t>(used) <= size, "single event used bytes outside the input");
    return 0;
}
