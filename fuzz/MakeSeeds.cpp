// Writes the seed corpus of every fuzz target: small valid documents made by the library's own
// writers (a chunk with notes, streams and sysex, and every block nested in it), plus a few
// MIDI byte streams for the parser and a few Standard MIDI Files. Usage: vela_fuzz_seeds <directory>; one subdirectory per
// target.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "Cmn_Assert.h"
#include "FuzzCodecs.h"
#include "RandomSong.h"

namespace {

using namespace VelaFuzz;

std::filesystem::path gRoot;

void Save(const std::string& iTarget, const Bytes& iBytes) {
    const std::filesystem::path dir = gRoot / iTarget;
    std::filesystem::create_directories(dir);
    const std::filesystem::path file = dir / ("seed" + std::to_string(std::distance(std::filesystem::directory_iterator(dir), {})));
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(iBytes.data()), static_cast<std::streamsize>(iBytes.size()));
}

void SaveChunkAndItsBlocks(const Vela_Chunk& iChunk) {
    Save("Chunk", Written<ChunkCodec>(iChunk));
    Save("NoteList", Written<NoteListCodec>(*iChunk.GetNoteList()));
    for (const auto& entry : iChunk.GetContinuousList()) {
        Save("ContinuousDataStream", Written<ContinuousDataStreamCodec>(*entry.Get()));
        Save("ContinuousData", Written<ContinuousDataCodec>(*entry->GetData()));
        Save("SubStream", Written<SubStreamCodec>(entry->GetSubStream()));
    }
    const Vela_EventStream& events = *iChunk.GetEventStream();
    Save("EventStream", Written<EventStreamCodec>(events));
    Save("TimedEventList", Written<TimedEventListCodec>(events.GetEvents()));
    for (const Mdie_TimedEvent& timed : events.GetEvents()) Save("Event", Written<EventCodec>(timed.GetEvent()));
}

}  // namespace

int main(int iArgc, char** iArgv) {
    if (iArgc != 2) {
        std::fprintf(stderr, "usage: %s <directory>\n", iArgv[0]);
        return 2;
    }
    gRoot = iArgv[1];
    Cmn_Assert::SetHandler([](const char*, int) {});  // the null event's write reports itself
    std::filesystem::remove_all(gRoot);
    SaveChunkAndItsBlocks(*SampleChunk());
    SaveChunkAndItsBlocks(*std::unique_ptr<Vela_Chunk>(Vela_Chunk::New(kNoUndo, false)));
    Save("Event", Written<EventCodec>(Vela_Event()));
    // Parser input: the slice-size byte, then running status, a note-on of velocity 0, real
    // time inside a sysex, system common messages, a stray data byte and an unfinished message.
    Save("Parse", {3, 0x90, 60, 100, 62, 0, 0xB1, 7, 100, 121, 0, 0xF0, 0x7E, 0xF8, 0x01, 0xF7, 0xE2, 0, 64,
                   0xC3, 5, 0xD4, 9, 0xA5, 60, 20, 0xF1, 0x10, 0xF2, 1, 2, 0xF3, 4, 0xF6, 0x45, 0xFA, 0x80, 60});
    Save("Parse", {0, 0xF0, 0x43, 0x10, 0x4C, 0x00, 0x00, 0x7E, 0x00, 0xF7, 0xF4, 0xF5, 0x90, 0x3C});
    std::mt19937 random(14);
    for (int i = 0; i < 4; ++i) Save("Smf", Vela_SmfCodec::Write(random_song::Make(random, 8)));
    return 0;
}
