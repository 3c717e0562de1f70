// vela: the project's command-line program. Reads Standard MIDI Files and Vela documents, shows
// them, plays them through the library's reference player and draws them; with no arguments it
// runs a demo on a song it makes itself. "vela help" lists the commands, "vela CMD --help"
// explains one. Errors are one line on stderr: exit status 1 for a failure, 2 for a bad command
// line. Commands over several files show their progress on stderr.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Cmn_Exception.h"
#include "Cmn_XMLNode.h"
#include "Audio.h"
#include "Demo.h"
#include "Mdi_Parse.h"
#include "Mdie_NoteInProgress.h"
#include "Mdie_TraceUtil.h"
#include "Mem2_MasterAllocator.h"
#include "Roll.h"
#include "Sys_TypedStream.h"
#include "Vela_Event.h"
#include "Vela_EventStream.h"
#include "Vela_Init.h"
#include "Vela_NoteList.h"
#include "Vela_ReferencePlayer.h"
#include "Vela_Song.h"

namespace {

constexpr int kFailure = 1;
constexpr int kUsageError = 2;

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// ---------------------------------------------------------------- command line

// Positional arguments, options with a value (repeatable) and flags.
class Args {
public:
    Args(int iCount, char** iArgs, const std::set<std::string>& iValued, const std::set<std::string>& iFlags) {
        for (int i = 0; i < iCount; ++i) {
            const std::string arg = iArgs[i];
            if (iValued.count(arg)) {
                if (i + 1 == iCount) throw UsageError(arg + " needs a value");
                mOptions[arg].push_back(iArgs[++i]);
            } else if (iFlags.count(arg) || arg == "--help" || arg == "-h") {
                mFlags.insert(arg == "-h" ? "--help" : arg);
            } else if (arg.size() > 1 && arg[0] == '-' && !std::isdigit(static_cast<unsigned char>(arg[1]))) {
                throw UsageError("unknown option " + arg);
            } else {
                mPositional.push_back(arg);
            }
        }
    }
    bool Flag(const std::string& iName) const { return mFlags.count(iName) != 0; }
    std::vector<std::string> All(const std::string& iName) const {
        const auto found = mOptions.find(iName);
        return found == mOptions.end() ? std::vector<std::string>{} : found->second;
    }
    std::string Get(const std::string& iName, const std::string& iDefault = "") const {
        const auto values = All(iName);
        return values.empty() ? iDefault : values.back();
    }
    const std::vector<std::string>& Positional() const { return mPositional; }

private:
    std::vector<std::string> mPositional;
    std::map<std::string, std::vector<std::string>> mOptions;
    std::set<std::string> mFlags;
};

// ---------------------------------------------------------------- files

std::vector<unsigned char> ReadBytes(const std::string& iPath) {
    FILE* file = std::fopen(iPath.c_str(), "rb");
    if (!file) throw Failure("cannot open " + iPath + ": " + std::strerror(errno));
    std::vector<unsigned char> bytes;
    unsigned char buffer[65536];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, file)) > 0;) bytes.insert(bytes.end(), buffer, buffer + got);
    std::fclose(file);
    return bytes;
}

void WriteBytes(const std::string& iPath, const void* iData, size_t iSize) {
    FILE* file = std::fopen(iPath.c_str(), "wb");
    if (!file || std::fwrite(iData, 1, iSize, file) != iSize || std::fclose(file) != 0)
        throw Failure("cannot write " + iPath + ": " + std::strerror(errno));
}

// A MIDI file or a Vela document, told apart by their first bytes.
Vela_Song LoadSong(const std::string& iPath) {
    const std::vector<unsigned char> bytes = ReadBytes(iPath);
    try {
        if (bytes.size() >= 4 && std::memcmp(bytes.data(), "MThd", 4) == 0)
            return Vela_Song::FromSmf(Vela_SmfCodec::Read(bytes.data(), bytes.size()));
        Sys_MemoryInStream in(bytes.data(), bytes.size());
        return Vela_Song::StreamIn(in);
    } catch (const Vela_SmfError& error) {
        throw Failure(iPath + ": " + error.what());
    } catch (const Cmn_Exception& error) {
        throw Failure(iPath + ": not a MIDI file or Vela document (" + error.what() + ")");
    }
}

void SaveDocument(const Vela_Song& iSong, const std::string& iPath) {
    Sys_MemoryOutStream out;
    iSong.StreamOut(out);
    WriteBytes(iPath, out.GetBytes().data(), out.GetBytes().size());
}

void SaveMidi(const Vela_SmfSong& iSong, const std::string& iPath) {
    const std::vector<unsigned char> bytes = Vela_SmfCodec::Write(iSong);
    WriteBytes(iPath, bytes.data(), bytes.size());
}

std::string WithExtension(const std::string& iPath, const char* iExtension) {
    return std::filesystem::path(iPath).replace_extension(iExtension).string();
}

// Runs iWork on every file, with progress on stderr when there are several.
void ForEachFile(const std::vector<std::string>& iFiles, const std::function<void(const std::string&)>& iWork) {
    if (iFiles.empty()) throw UsageError("no file given");
    for (size_t i = 0; i < iFiles.size(); ++i) {
        if (iFiles.size() > 1) std::fprintf(stderr, "[%zu/%zu] %s\n", i + 1, iFiles.size(), iFiles[i].c_str());
        iWork(iFiles[i]);
    }
}

// ---------------------------------------------------------------- times

// "N" is bar N (1-based, fractions allowed); "N:B" is beat B (1-based quarters) of bar N.
int64_t ParseTime(const Vela_Song& iSong, const std::string& iText) {
    char* end = nullptr;
    const double bar = std::strtod(iText.c_str(), &end);
    double beat = 1;
    if (end != iText.c_str() && *end == ':') beat = std::strtod(end + 1, &end);
    if (end == iText.c_str() || *end != '\0' || !(bar >= 1 && bar <= 1e6) || !(beat >= 1 && beat <= 1e6))
        throw UsageError("bad time '" + iText + "': give a bar (3, 4.5) or bar:beat (3:2)");
    return iSong.GetTickAtBars(bar - 1) + static_cast<int64_t>((beat - 1) * Time_cTicksPerQuarter + 0.5);
}

std::string BarText(const Vela_Song& iSong, int64_t iTick) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", iSong.GetBars(iTick) + 1);
    return text;
}

// ---------------------------------------------------------------- commands

struct Counts {
    size_t mNotes = 0, mStreams = 0, mEvents = 0;
};
Counts CountTrack(const Vela_SongTrack& iTrack) {
    return {iTrack.mChunkP->GetNoteList()->GetNumNotes(), iTrack.mChunkP->GetContinuousList().GetSize(),
            iTrack.mChunkP->GetEventStream()->Size()};
}

void PrintInfo(const Vela_Song& iSong, const std::string& iName) {
    Counts total;
    size_t side = 0;
    for (const Vela_SongTrack& track : iSong.mTracks) {
        const Counts counts = CountTrack(track);
        total.mNotes += counts.mNotes;
        total.mStreams += counts.mStreams;
        total.mEvents += counts.mEvents;
        side += track.mSide.size();
    }
    const double seconds = iSong.GetSeconds(iSong.GetLength());
    std::printf("%s: %zu tracks, %d ticks per quarter in the file\n", iName.c_str(), iSong.mTracks.size(), iSong.mDivision);
    std::printf("  length %.2f bars, %d:%04.1f (%.1f s)\n", iSong.GetBars(iSong.GetLength()), int(seconds) / 60,
                seconds - 60 * (int(seconds) / 60), seconds);
    std::printf("  %zu notes, %zu controller streams, %zu system-exclusive events, %zu events kept beside the chunks\n",
                total.mNotes, total.mStreams, total.mEvents, side);
    if (iSong.mUnmatchedNoteOffs) std::printf("  %d note-offs found no note (kept as they were)\n", iSong.mUnmatchedNoteOffs);
    std::printf("  %5s %3s  %-20s %7s %8s %7s\n", "track", "ch", "name", "notes", "streams", "events");
    for (size_t t = 0; t < iSong.mTracks.size(); ++t) {
        const Vela_SongTrack& track = iSong.mTracks[t];
        const Counts counts = CountTrack(track);
        std::printf("  %5zu %3d  %-20.20s %7zu %8zu %7zu\n", t + 1, track.mChannel + 1, track.GetName().c_str(), counts.mNotes,
                    counts.mStreams, counts.mEvents);
    }
}

// Each input loaded as a song and saved by iSave, to -o or next to the input with iExtension.
template <class TSave>
int Convert(const Args& iArgs, const char* iExtension, TSave iSave) {
    const auto& files = iArgs.Positional();
    if (!iArgs.Get("-o").empty() && files.size() != 1) throw UsageError("-o takes one input file");
    ForEachFile(files, [&](const std::string& iPath) {
        const std::string out = iArgs.Get("-o", WithExtension(iPath, iExtension));
        iSave(LoadSong(iPath), out);
        std::printf("%s -> %s\n", iPath.c_str(), out.c_str());
    });
    return 0;
}

int Import(const Args& iArgs) { return Convert(iArgs, ".vela", SaveDocument); }

int Export(const Args& iArgs) {
    return Convert(iArgs, ".mid", [](const Vela_Song& iSong, const std::string& iOut) { SaveMidi(iSong.ToSmf(), iOut); });
}

int Info(const Args& iArgs) {
    ForEachFile(iArgs.Positional(), [](const std::string& iPath) { PrintInfo(LoadSong(iPath), iPath); });
    return 0;
}

int Dump(const Args& iArgs) {
    if (iArgs.Positional().size() != 1) throw UsageError("give one file");
    const Vela_Song song = LoadSong(iArgs.Positional()[0]);
    for (size_t t = 0; t < song.mTracks.size(); ++t) {
        const Vela_SongTrack& track = song.mTracks[t];
        if (iArgs.Flag("--xml")) {
            std::cout << track.mChunkP->GetAsXML()->ToString() << "\n";
            continue;
        }
        std::cout << "track " << t + 1 << ", channel " << track.mChannel + 1 << ", \"" << track.GetName() << "\"\n";
        Mdie_TimedEventList list;
        for (const Mdie_TimedEvent& event : Vela_Song::GetEvents(track)) list.PushBack(event);
        Mdie_TraceUtil::PrintTimedEventList(&list, std::cout);
    }
    return 0;
}

// ---- play

// Prints each message as a line, keeps a MIDI file of them if asked, and counts what sounds.
class Printer : public Vela_PlayerOutput {
public:
    Printer(const Vela_Song& iSong, bool iQuiet, size_t iLimit) : mSong(iSong), mQuiet(iQuiet), mLimit(iLimit) {}

    void Send(int64_t iOutputTick, int64_t iSongTick, const unsigned char* iBytes, int iLength) override {
        const int kind = iBytes[0] >> 4;
        if (kind == 0x9 && iLength == 3 && iBytes[2]) ++mSounding;
        else if ((kind == 0x8 || kind == 0x9) && mSounding > 0) --mSounding;
        else if (kind == 0xB && iBytes[1] == 64) mSustain[iBytes[0] & 0x0F] = iBytes[2];
        else if (kind == 0xE) mBend[iBytes[0] & 0x0F] = iBytes[1] | (iBytes[2] << 7);
        mFile.mSide.push_back({iOutputTick, iBytes[0] == 0xF0 ? Vela_SmfSideEvent::kSysexPart : Vela_SmfSideEvent::kChannelMessage,
                               0, std::string(reinterpret_cast<const char*>(iBytes) + (iBytes[0] == 0xF0), size_t(iLength) - (iBytes[0] == 0xF0))});
        mFile.mEndTick = iOutputTick;
        ++mTotal;
        if (mQuiet) return;
        if (mSectionPrinted++ >= mLimit) {
            ++mSkipped;
            return;
        }
        std::string hex;
        for (int i = 0; i < iLength && i < 8; ++i) hex += Hex(iBytes[i]);
        if (iLength > 8) hex += "...";
        signed char channel = -1;
        int used = 0;
        char text[Mdie_TraceUtil::kLineSize] = "channel mode";
        if (iBytes[0] != 0xF0) {
            const Vela_Event event = Mdi_ParseSingleEvent(&channel, &used, iBytes, iLength);
            if (event.GetType() != Vela_Event::kNull) Mdie_TraceUtil::FormatMidiEvent(text, sizeof text, event);
        } else {
            std::snprintf(text, sizeof text, "system exclusive, %d bytes", iLength);
        }
        std::printf("  %9.3f  %8s  ch %2d  %-12s %s\n", double(iOutputTick) / Time_cTicksPerQuarter, BarText(mSong, iSongTick).c_str(),
                    (iBytes[0] & 0x0F) + 1, hex.c_str(), text);
    }
    // Starts a section of the output, under a heading.
    void Note(const char* iWhat) {
        EndSection();
        if (!mQuiet) std::printf("  -- %s\n", iWhat);
        mSectionPrinted = 0;
    }
    void EndSection() {
        if (mSkipped) std::printf("     (%zu more)\n", mSkipped);
        mSkipped = 0;
    }
    // "" when nothing sounds and sustain and pitch bend are at rest.
    std::string RestReport() const {
        std::string report;
        if (mSounding) report += std::to_string(mSounding) + " notes still sounding; ";
        for (const auto& [channel, value] : mSustain)
            if (value) report += "sustain down on channel " + std::to_string(channel + 1) + "; ";
        for (const auto& [channel, value] : mBend)
            if (value != 8192) report += "pitch bend off centre on channel " + std::to_string(channel + 1) + "; ";
        return report;
    }
    size_t Total() const { return mTotal; }
    // The messages as a one-track MIDI file, with the tempo in force at the song's start.
    Vela_SmfSong TakeFile(const Vela_Song& iSong) const {
        Vela_SmfSong song;
        song.mDivision = 960;
        song.mTracks.assign(1, mFile);
        const int64_t tempo = iSong.GetTempoAt(0);  // the tempo the player plays at
        const std::string bytes{char(tempo >> 16), char(tempo >> 8), char(tempo)};
        std::vector<Vela_SmfSideEvent>& side = song.mTracks[0].mSide;
        side.insert(side.begin(), {0, Vela_SmfSideEvent::kMeta, 0x51, bytes});
        return song;
    }

private:
    static std::string Hex(unsigned char iByte) {
        char text[4];
        std::snprintf(text, sizeof text, "%02X ", iByte);
        return text;
    }
    const Vela_Song& mSong;
    bool mQuiet;
    size_t mLimit;
    size_t mTotal = 0;
    size_t mSectionPrinted = 0;
    size_t mSkipped = 0;
    int mSounding = 0;
    std::map<int, int> mSustain, mBend;
    Vela_SmfTrack mFile;
};

struct PlayPlan {
    int64_t mFrom = 0, mTo = 0, mLoopStart = 0, mLoopEnd = 0, mLength = 0;
    int mLoops = 2;
    std::vector<int64_t> mLocates;
    bool mRestrike = true;
};

// Start at the beginning, play to the end (the loop passes first, when there is one), then
// each locate followed by the given length of play; stop.
void RunPlan(Vela_ReferencePlayer& ioPlayer, Printer& ioPrinter, const Vela_Song& iSong, const PlayPlan& iPlan) {
    ioPlayer.SetRestrike(iPlan.mRestrike);
    ioPlayer.Locate(iPlan.mFrom);
    ioPrinter.Note(("start at bar " + BarText(iSong, iPlan.mFrom) + " (chased values first)").c_str());
    ioPlayer.Start();
    if (iPlan.mLoopEnd > iPlan.mLoopStart) {
        ioPlayer.Run(std::max<int64_t>(iPlan.mLoopStart - iPlan.mFrom, 0));
        ioPrinter.Note(("loop bars " + BarText(iSong, iPlan.mLoopStart) + " to " + BarText(iSong, iPlan.mLoopEnd) + ", " +
                        std::to_string(iPlan.mLoops) + " times").c_str());
        ioPlayer.SetLoop(iPlan.mLoopStart, iPlan.mLoopEnd);
        ioPlayer.Locate(iPlan.mLoopStart);
        ioPlayer.Run((iPlan.mLoopEnd - iPlan.mLoopStart) * iPlan.mLoops - 1);
        ioPlayer.SetLoop(0, 0);
        ioPlayer.Run(1);
    }
    ioPlayer.Run(std::max<int64_t>(iPlan.mTo - ioPlayer.GetPosition(), 0));
    for (int64_t locate : iPlan.mLocates) {
        ioPrinter.Note(("locate to bar " + BarText(iSong, locate) + (iPlan.mRestrike ? " (notes there restruck)" : "")).c_str());
        ioPlayer.Locate(locate);
        ioPlayer.Run(iPlan.mLength);
    }
    ioPrinter.Note("stop (every note released, sustain and pitch bend back to rest)");
    ioPlayer.Stop();
    ioPrinter.EndSection();
}

PlayPlan MakePlan(const Vela_Song& iSong, const Args& iArgs) {
    PlayPlan plan;
    plan.mFrom = ParseTime(iSong, iArgs.Get("--from", "1"));
    plan.mTo = iArgs.Get("--to").empty() ? iSong.GetLength() : ParseTime(iSong, iArgs.Get("--to"));
    if (plan.mTo < plan.mFrom) throw UsageError("--to lies before --from");
    const std::string loop = iArgs.Get("--loop");
    if (!loop.empty()) {
        const size_t dots = loop.find("..");
        if (dots == std::string::npos) throw UsageError("--loop wants A..B, e.g. 3..5");
        plan.mLoopStart = ParseTime(iSong, loop.substr(0, dots));
        plan.mLoopEnd = ParseTime(iSong, loop.substr(dots + 2));
        if (plan.mLoopEnd <= plan.mLoopStart) throw UsageError("--loop end must come after its start");
    }
    plan.mLoops = std::atoi(iArgs.Get("--loops", "2").c_str());
    if (plan.mLoops < 1) throw UsageError("--loops wants a count of 1 or more");
    for (const std::string& locate : iArgs.All("--locate")) plan.mLocates.push_back(ParseTime(iSong, locate));
    plan.mLength = iSong.GetTickAtBars(std::atof(iArgs.Get("--length", "1").c_str())) ;
    plan.mRestrike = !iArgs.Flag("--no-restrike");
    return plan;
}

// The plan of RunPlan as transport commands at output times, for players that run on their
// own clock (a JACK callback, the renderer).
AudioPlan MakeAudioPlan(const PlayPlan& iPlan) {
    using C = Vela_TransportCommand;
    AudioPlan audio;
    audio.mRestrike = iPlan.mRestrike;
    int64_t at = 0, position = iPlan.mFrom;
    audio.mCommands = {{0, {C::eLocate, iPlan.mFrom}}, {0, {C::eStart}}};
    if (iPlan.mLoopEnd > iPlan.mLoopStart) {
        at += std::max<int64_t>(iPlan.mLoopStart - iPlan.mFrom, 0);
        audio.mCommands.push_back({at, {C::eLoop, iPlan.mLoopStart, iPlan.mLoopEnd}});
        audio.mCommands.push_back({at, {C::eLocate, iPlan.mLoopStart}});
        at += (iPlan.mLoopEnd - iPlan.mLoopStart) * iPlan.mLoops - 1;
        audio.mCommands.push_back({at, {C::eLoop}});  // the last pass plays on past the loop's end
        at += 1;
        position = iPlan.mLoopEnd;
    }
    at += std::max<int64_t>(iPlan.mTo - position, 0);
    for (int64_t locate : iPlan.mLocates) {
        audio.mCommands.push_back({at, {C::eLocate, locate}});
        at += iPlan.mLength;
    }
    audio.mEndTick = at;
    return audio;
}

int Play(const Args& iArgs) {
    if (iArgs.Positional().size() != 1) throw UsageError("give one file");
    const Vela_Song song = LoadSong(iArgs.Positional()[0]);
    const PlayPlan plan = MakePlan(song, iArgs);
    if (iArgs.Flag("--jack")) {
        if (!VELA_HAVE_JACK) throw Failure("this vela was built without JACK (install libjack-jackd2-dev and rebuild)");
        return PlayJack(song, MakeAudioPlan(plan), iArgs.Get("--server"), iArgs.Get("--connect"));
    }
    const std::string out = iArgs.Get("-o");
    Printer printer(song, !out.empty(), SIZE_MAX);
    Vela_ReferencePlayer player(song, printer);
    if (out.empty()) std::printf("  %9s  %8s  %5s  %-12s %s\n", "quarters", "bar", "", "bytes", "event");
    RunPlan(player, printer, song, plan);
    if (!out.empty()) {
        SaveMidi(printer.TakeFile(song), out);
        std::printf("wrote the output to %s\n", out.c_str());
    }
    const std::string rest = printer.RestReport();
    if (!rest.empty()) throw Failure("not at rest after stop: " + rest);
    return 0;
}

int Render(const Args& iArgs) {
    if (iArgs.Positional().size() != 1) throw UsageError("give one file");
    if (iArgs.Get("-o").empty()) throw UsageError("give the WAV file's name with -o, e.g. -o song.wav");
    if (!VELA_HAVE_FLUIDSYNTH) throw Failure("this vela was built without fluidsynth (install libfluidsynth-dev and rebuild)");
    const Vela_Song song = LoadSong(iArgs.Positional()[0]);
    return RenderSong(song, MakeAudioPlan(MakePlan(song, iArgs)), iArgs.Get("-o"), iArgs.Get("--soundfont"), iArgs.Get("--picture"));
}

int Roll(const Args& iArgs) {
    if (iArgs.Positional().size() != 1) throw UsageError("give one file");
    if (iArgs.Get("-o").empty()) throw UsageError("give the picture's name with -o, e.g. -o roll.svg");
    const Vela_Song song = LoadSong(iArgs.Positional()[0]);
    const int64_t from = ParseTime(song, iArgs.Get("--from", "1"));
    const int64_t to = iArgs.Get("--to").empty() ? song.GetLength() : ParseTime(song, iArgs.Get("--to"));
    const std::string svg = RenderRoll(song, from, to);
    WriteBytes(iArgs.Get("-o"), svg.data(), svg.size());
    std::printf("wrote %s\n", iArgs.Get("-o").c_str());
    return 0;
}

int Demo(const Args&) {
    std::puts("Vela demo: a four-track song made in memory, written as a MIDI file and imported again.\n");
    const Vela_SmfSong made = MakeDemoSong();
    const std::vector<unsigned char> file = Vela_SmfCodec::Write(made);
    const Vela_Song song = Vela_Song::FromSmf(Vela_SmfCodec::Read(file.data(), file.size()));
    PrintInfo(song, "demo.mid");

    std::puts("\nPlaying from bar 3, looping bar 4 twice, then locating back into bar 2 (quarters, bar, message):");
    Printer printer(song, false, 6);
    Vela_ReferencePlayer player(song, printer);
    PlayPlan plan;
    plan.mFrom = song.GetTickAtBars(2);
    plan.mTo = song.GetTickAtBars(4);
    plan.mLoopStart = song.GetTickAtBars(3);
    plan.mLoopEnd = song.GetTickAtBars(4);
    plan.mLocates = {song.GetTickAtBars(1.5)};
    plan.mLength = song.GetTickAtBars(0.5);
    RunPlan(player, printer, song, plan);
    const std::string rest = printer.RestReport();
    std::printf("  %zu messages in all; after the stop: %s\n", printer.Total(),
                rest.empty() ? "no note sounding, sustain up, pitch bend centred" : rest.c_str());

    const std::string here = std::filesystem::current_path().string() + "/";
    WriteBytes("demo.mid", file.data(), file.size());
    const std::string svg = RenderRoll(song, 0, song.GetLength());
    WriteBytes("demo-roll.svg", svg.data(), svg.size());
    std::printf("\nWrote %sdemo.mid and %sdemo-roll.svg (open it in a browser).\n", here.c_str(), here.c_str());
    std::puts("Try: vela info demo.mid, vela play demo.mid --from 2 --to 3 --locate 5, vela help.");
    return rest.empty() ? 0 : kFailure;
}

// ---------------------------------------------------------------- the small byte tools

bool ReadHex(const std::vector<std::string>& iArgs, std::vector<unsigned char>& oBytes) {
    std::string digits;
    for (const std::string& arg : iArgs)
        for (char c : arg) {
            if (std::isspace(static_cast<unsigned char>(c))) continue;
            if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
            digits += c;
        }
    if (digits.empty() || digits.size() % 2 != 0) return false;
    for (size_t i = 0; i < digits.size(); i += 2)
        oBytes.push_back(static_cast<unsigned char>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
    return true;
}

class EventPrinter : public Mdie_EventReceiver {
public:
    explicit EventPrinter(const Mdi_Parse& iParser) : mParser(iParser) {}
    void ReceiveEvent(const Vela_Event& iEvent) override {
        char text[Mdie_TraceUtil::kLineSize];
        Mdie_TraceUtil::FormatMidiEvent(text, sizeof text, iEvent);
        std::printf("  channel %2d  %s\n", mParser.GetChannel() + 1, text);
        ++mCount;
    }
    int mCount = 0;

private:
    const Mdi_Parse& mParser;
};

int Parse(const Args& iArgs) {
    std::vector<unsigned char> bytes;
    if (!ReadHex(iArgs.Positional(), bytes) || bytes.size() > 32767) throw UsageError("give the bytes as pairs of hex digits, e.g. 90 3C 64");
    Mdi_ParseToEventReceiver parser;
    EventPrinter printer(parser);
    parser.SetEventReceiver(&printer);
    parser.MidiStream(bytes.data(), static_cast<short>(bytes.size()));
    std::printf("%d event(s) from %zu byte(s)\n", printer.mCount, bytes.size());
    return 0;
}

int Strings(const Args&) {
    for (int id = 100; id <= 300; ++id)
        if (*Vela_GetLocalizedString(id) != '\0') std::printf("%d  %s\n", id, Vela_GetLocalizedString(id));
    return 0;
}

// ---------------------------------------------------------------- dispatch

struct Command {
    const char* mName;
    const char* mUsage;
    const char* mHelp;
    std::set<std::string> mValued;
    std::set<std::string> mFlags;
    int (*mRun)(const Args&);
};

const Command kCommands[] = {
    {"import", "vela import FILE.mid... [-o FILE.vela]",
     "Reads Standard MIDI Files (format 0 or 1) and writes each as a Vela document: one chunk per\n"
     "channel of each file track, with tempo, signatures, names and the like kept beside them.\n"
     "Without -o the document goes next to the file, with the extension .vela.",
     {"-o"}, {}, Import},
    {"export", "vela export FILE... [-o FILE.mid]",
     "Writes a Vela document (or a MIDI file, read and written again) as a format-1 MIDI file.\n"
     "Without -o the file goes next to the input, with the extension .mid.",
     {"-o"}, {}, Export},
    {"info", "vela info FILE...", "Tracks, notes, controller streams, events and the length in bars and seconds.", {}, {}, Info},
    {"dump", "vela dump FILE [--xml | --trace]",
     "Every event of every track as the library's trace lines (the default), or each chunk's XML node.", {}, {"--xml", "--trace"},
     Dump},
    {"play", "vela play FILE [--from T] [--to T] [--loop A..B [--loops N]] [--locate T]... [--length BARS]\n"
             "                [--no-restrike] [-o OUT.mid | --jack [--server NAME] [--connect PORT]]",
     "Plays the song through the reference player and prints every MIDI message with its output\n"
     "time (quarters) and song position (bar): from --from (default bar 1) to --to (default the\n"
     "end), passing the loop A..B N times (default 2) when it is reached, then for each --locate\n"
     "jumps there and plays --length bars (default 1), then stops. Times are bars (3, 4.5) or\n"
     "bar:beat (3:2). Notes that span a locate are struck again unless --no-restrike. With -o the\n"
     "messages go into a MIDI file instead. Fails if anything is left sounding after the stop.\n"
     "With --jack it plays in real time on the JACK client vela (port vela:out) of the default\n"
     "server (or --server NAME), connected to --connect PORT, at the song's opening tempo, and\n"
     "prints the process callback's times against the period's budget.",
     {"--from", "--to", "--loop", "--loops", "--locate", "--length", "-o", "--server", "--connect"}, {"--no-restrike", "--jack"}, Play},
    {"render", "vela render FILE -o SONG.wav [--soundfont SF2] [--picture WAVE.svg] [play's --from --to --loop ...]",
     "Renders what vela play would play through a General MIDI synthesizer into a 16-bit stereo\n"
     "WAV file at 44100 Hz, followed by the release tail after the stop (at most two seconds).\n"
     "The soundfont defaults to the timgm6mb-soundfont package's. --picture also draws the\n"
     "waveform's envelope over a time axis in seconds. The song plays at its opening tempo.",
     {"-o", "--soundfont", "--picture", "--from", "--to", "--loop", "--loops", "--locate", "--length"}, {"--no-restrike"}, Render},
    {"roll", "vela roll FILE -o ROLL.svg [--from T] [--to T]",
     "Draws the notes and controller lanes of the song (or of bars T to T) as an SVG picture.",
     {"-o", "--from", "--to"}, {}, Roll},
    {"parse", "vela parse HEX...", "Parses raw MIDI bytes (\"90 3C 64\" or 903C64) into the library's events.", {}, {}, Parse},
    {"strings", "vela strings", "Prints the library's message table.", {}, {}, Strings},
};

void PrintOverview(FILE* iOut) {
    std::fputs("vela: Standard MIDI Files in and out, Vela documents, a reference player and piano rolls.\n"
               "Run with no arguments for a demo. Commands:\n",
               iOut);
    for (const Command& command : kCommands) std::fprintf(iOut, "  %s\n", command.mUsage);
    std::fputs("\"vela COMMAND --help\" explains one.\n", iOut);
}

}  // namespace

int main(int argc, char** argv) {
    Vela_Init::Init();
    Mem2_MasterAllocator allocator(16u << 20);
    Mdie_NoteInProgress::SetAllocator(&allocator);
    const std::string name = argc > 1 ? argv[1] : "";
    int status = 0;
    const Command* command = nullptr;
    for (const Command& candidate : kCommands)
        if (name == candidate.mName) command = &candidate;
    try {
        if (name.empty()) {
            status = Demo(Args(0, nullptr, {}, {}));
        } else if (name == "help" || name == "--help" || name == "-h") {
            PrintOverview(stdout);
        } else if (!command) {
            throw UsageError("unknown command '" + name + "' (vela help lists them)");
        } else {
            const Args args(argc - 2, argv + 2, command->mValued, command->mFlags);
            if (args.Flag("--help")) std::printf("usage: %s\n\n%s\n", command->mUsage, command->mHelp);
            else status = command->mRun(args);
        }
    } catch (const UsageError& error) {
        std::fprintf(stderr, "vela%s%s: %s\n", command ? " " : "", command ? command->mName : "", error.what());
        status = kUsageError;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vela%s%s: %s\n", command ? " " : "", command ? command->mName : "", error.what());
        status = kFailure;
    }
    Mdie_NoteInProgress::SetAllocator(nullptr);
    Vela_Init::Free();
    return status;
}
