// vela: a small command-line tour of the library.
//   vela                     runs a short demo (parse a sample stream, encode an event)
//   vela parse <hex bytes>   parses raw MIDI bytes ("90 3C 64" or "903C64") into events
//   vela encode <kind> <a> <b>  encodes one event: noteon|noteoff|cc|bend (bend: -8192..8191)
//   vela strings             prints the library's string table
// Exit codes: 0 success, 2 bad command line.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Mdi_Parse.h"
#include "Vela_Event.h"
#include "Vela_Init.h"

namespace {

constexpr int kUsageError = 2;

const char* const kTypeNames[Vela_Event::kNumTypes] = {
    "null",          "note on",        "note off",        "note with duration", "pitch bend",   "controller",
    "program",       "mono pressure",  "poly pressure",   "song position",      "start",        "continue",
    "stop",          "timing clock",   "sysex",           "long sysex",         "sysex packet", "clear note in progress",
    "add note in progress", "release controller", "all notes off", "quarter frame", "pitch to note", "clip",
};

int Usage(FILE* iOut) {
    std::fputs(
        "usage: vela                       run a short demo\n"
        "       vela parse <hex bytes>     parse raw MIDI bytes, e.g. vela parse 90 3C 64 B0 07 50\n"
        "       vela encode <kind> <a> <b> encode noteon|noteoff <pitch> <velocity>, cc <number> <value>,\n"
        "                                  or bend <value -8192..8191>\n"
        "       vela strings               print the library's string table\n",
        iOut);
    return iOut == stdout ? 0 : kUsageError;
}

// The event's MIDI bytes, status on iChannel (ignored for system messages).
std::string Bytes(const Vela_Event& iEvent, int iChannel) {
    std::vector<signed char> data(Vela_Event::kMaxFixedWireLength);
    const int length = iEvent.WriteMessages(data.data(), static_cast<int>(data.size()), iChannel);
    if (length > static_cast<int>(data.size())) {  // a sysex longer than the first guess
        data.resize(static_cast<size_t>(length));
        iEvent.WriteMessages(data.data(), length, iChannel);
    }
    data.resize(static_cast<size_t>(length));
    std::string text;
    for (signed char byte : data) {
        char hex[4];
        std::snprintf(hex, sizeof hex, "%02X ", static_cast<unsigned char>(byte));
        text += hex;
    }
    if (!text.empty()) text.pop_back();
    return text;
}

const char* TypeName(const Vela_Event& iEvent) {
    const int type = iEvent.GetType();
    return (type >= 0 && type < Vela_Event::kNumTypes) ? kTypeNames[type] : "unknown";
}

// Prints each event the parser delivers, with the channel the parser reports for it.
class PrintingReceiver : public Mdie_EventReceiver {
public:
    explicit PrintingReceiver(const Mdi_Parse& iParser) : mParser(iParser) {}
    void ReceiveEvent(const Vela_Event& iEvent) override {
        const int channel = mParser.GetChannel();
        std::printf("  channel %2d  %-14s %s\n", channel + 1, TypeName(iEvent), Bytes(iEvent, channel).c_str());
        ++mCount;
    }
    int Count() const { return mCount; }

private:
    const Mdi_Parse& mParser;
    int mCount = 0;
};

// Reads hex digits from every argument, two per byte; spaces inside an argument are allowed.
bool ReadHex(int iCount, char** iArgs, std::vector<unsigned char>& oBytes) {
    std::string digits;
    for (int i = 0; i < iCount; ++i)
        for (const char* c = iArgs[i]; *c; ++c) {
            if (std::isspace(static_cast<unsigned char>(*c))) continue;
            if (!std::isxdigit(static_cast<unsigned char>(*c))) return false;
            digits += *c;
        }
    if (digits.empty() || digits.size() % 2 != 0) return false;
    for (size_t i = 0; i < digits.size(); i += 2)
        oBytes.push_back(static_cast<unsigned char>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
    return true;
}

void Parse(const std::vector<unsigned char>& iBytes) {
    Mdi_ParseToEventReceiver parser;
    PrintingReceiver printer(parser);
    parser.SetEventReceiver(&printer);
    parser.MidiStream(iBytes.data(), static_cast<short>(iBytes.size()));
    std::printf("%d event(s) from %zu byte(s)\n", printer.Count(), iBytes.size());
}

int ParseCommand(int iCount, char** iArgs) {
    std::vector<unsigned char> bytes;
    if (!ReadHex(iCount, iArgs, bytes) || bytes.size() > 32767) {
        std::fputs("vela parse: give the bytes as pairs of hex digits, e.g. 90 3C 64\n", stderr);
        return kUsageError;
    }
    Parse(bytes);
    return 0;
}

bool ReadNumber(const char* iText, long iMin, long iMax, long& oValue) {
    char* end = nullptr;
    oValue = std::strtol(iText, &end, 0);
    return end != iText && *end == '\0' && oValue >= iMin && oValue <= iMax;
}

int EncodeCommand(int iCount, char** iArgs) {
    const std::string kind = iCount > 0 ? iArgs[0] : "";
    long a = 0;
    long b = 0;
    Vela_Event event;
    if (kind == "bend" && iCount == 2 && ReadNumber(iArgs[1], -8192, 8191, a)) {
        event = Vela_PitchBendEvent(static_cast<int16_t>(a));
    } else if (iCount == 3 && ReadNumber(iArgs[1], 0, 127, a) && ReadNumber(iArgs[2], 0, 127, b)) {
        const auto first = static_cast<int8_t>(a);
        const auto second = static_cast<int8_t>(b);
        if (kind == "noteon") event = Vela_NoteOnEvent(first, second);
        else if (kind == "noteoff") event = Vela_NoteOffEvent(first, second);
        else if (kind == "cc") event = Vela_ControllerEvent(first, second);
    }
    if (event.GetType() == Vela_Event::kNull) {
        std::fputs("vela encode: expected noteon|noteoff|cc <0..127> <0..127> or bend <-8192..8191>\n", stderr);
        return kUsageError;
    }
    std::printf("%s: %s\n", TypeName(event), Bytes(event, 0).c_str());
    return 0;
}

int StringsCommand() {
    for (int id = 100; id <= 300; ++id)
        if (*Vela_GetLocalizedString(id) != '\0') std::printf("%d  %s\n", id, Vela_GetLocalizedString(id));
    return 0;
}

int Demo() {
    std::puts("Vela demo: parsing 90 3C 64 3E 64 F8 B0 07 50 (two note-ons by running status, a clock, a volume)");
    Parse({0x90, 0x3C, 0x64, 0x3E, 0x64, 0xF8, 0xB0, 0x07, 0x50});
    const Vela_ControllerEvent volume(7, 100);
    std::printf("Encoding a volume controller of 100: %s\n", Bytes(volume, 0).c_str());
    std::printf("String 203 of the table: \"%s\"\n", Vela_GetLocalizedString(203));
    std::puts("Run 'vela help' for the commands.");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Vela_Init::Init();
    const std::string command = argc > 1 ? argv[1] : "";
    int result = 0;
    if (command.empty()) result = Demo();
    else if (command == "parse") result = ParseCommand(argc - 2, argv + 2);
    else if (command == "encode") result = EncodeCommand(argc - 2, argv + 2);
    else if (command == "strings") result = StringsCommand();
    else if (command == "help" || command == "--help" || command == "-h") result = Usage(stdout);
    else result = Usage(stderr);
    Vela_Init::Free();
    return result;
}
