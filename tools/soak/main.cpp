// vela_soak: repeats a realistic mix of library work for a given time, as a long-running host
// does, and checks that resident memory stays flat once warmed up.
//
//   vela_soak [seconds] [--warmup seconds] [--phases name,...] [--limit-mib N] [--no-limit]
//
// seconds: total run time (default 60). Warm-up: a tenth of it, at least 1 s and at most 30 s
// (and at most half the run).
// The phases of kPhases (all by default) run one round each in turn, with the library set up
// as a host sets it up (Vela_Init::Init, nothing else: no drain call anywhere). The program
// prints resident memory after warm-up, every tenth of the run and at the end, its peak, the
// rounds per phase, and the deferred deletions still queued at the end and after Free.
// Exit: 0 memory stayed flat and every round's checks held; 1 resident memory at the end grew
// by more than 5% over its level after warm-up (or by more than --limit-mib MiB; --no-limit
// only reports); 2 bad command line; 3 a round's check failed.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#if defined(__linux__)
#include <unistd.h>
#endif

#include "Soak.h"
#include "Sys_RefCount.h"
#include "Vela_Init.h"

namespace {

struct PhaseEntry {
    const char* mName;
    std::unique_ptr<Soak_Phase> (*mMake)();
};

// Every phase, in the order they take turns.
constexpr PhaseEntry kPhases[] = {
    {"parse", &Soak_MakeParsePhase},
    {"sysex-copies", &Soak_MakeSysexCopyPhase},
    {"timed-lists", &Soak_MakeTimedListPhase},
    {"sysex-churn", &Soak_MakeSysexChurnPhase},
};

constexpr double kDefaultGrowthLimit = 0.05;
constexpr int kUsageError = 2;
constexpr int kCheckFailed = 3;

using Clock = std::chrono::steady_clock;

// Resident memory in bytes, or -1 where the system does not tell.
long long ResidentBytes() {
#if defined(__linux__)
    long long pages = 0;
    long long resident = 0;
    if (std::FILE* statm = std::fopen("/proc/self/statm", "r")) {
        const int read = std::fscanf(statm, "%lld %lld", &pages, &resident);
        std::fclose(statm);
        if (read == 2) return resident * sysconf(_SC_PAGESIZE);
    }
#endif
    return -1;
}

double MiB(long long iBytes) { return double(iBytes) / (1024.0 * 1024.0); }

struct Options {
    double mSeconds = 60;
    double mWarmup = -1;       // negative: derived from mSeconds
    double mLimitMiB = -1;     // negative: the 5% rule
    bool mNoLimit = false;
    std::vector<const PhaseEntry*> mPhases;
};

const PhaseEntry* FindPhase(const std::string& iName) {
    for (const PhaseEntry& entry : kPhases)
        if (iName == entry.mName) return &entry;
    return nullptr;
}

bool ReadSeconds(const char* iText, double& oValue) {
    char* end = nullptr;
    oValue = std::strtod(iText, &end);
    return end != iText && *end == '\0' && oValue >= 0;
}

bool ReadPhases(const std::string& iList, std::vector<const PhaseEntry*>& oPhases) {
    size_t start = 0;
    while (start <= iList.size()) {
        const size_t comma = std::min(iList.find(',', start), iList.size());
        const PhaseEntry* entryP = FindPhase(iList.substr(start, comma - start));
        if (entryP == nullptr) return false;
        oPhases.push_back(entryP);
        start = comma + 1;
    }
    return !oPhases.empty();
}

bool ReadOptions(int iCount, char** iArgs, Options& oOptions) {
    bool sawSeconds = false;
    for (int i = 0; i < iCount; ++i) {
        const std::string arg = iArgs[i];
        const bool hasValue = i + 1 < iCount;
        if (arg == "--warmup" && hasValue) {
            if (!ReadSeconds(iArgs[++i], oOptions.mWarmup)) return false;
        } else if (arg == "--limit-mib" && hasValue) {
            if (!ReadSeconds(iArgs[++i], oOptions.mLimitMiB)) return false;
        } else if (arg == "--phases" && hasValue) {
            if (!ReadPhases(iArgs[++i], oOptions.mPhases)) return false;
        } else if (arg == "--no-limit") {
            oOptions.mNoLimit = true;
        } else if (!sawSeconds && arg[0] != '-') {
            if (!ReadSeconds(iArgs[i], oOptions.mSeconds)) return false;
            sawSeconds = true;
        } else {
            return false;
        }
    }
    if (oOptions.mWarmup < 0) oOptions.mWarmup = std::min(std::clamp(oOptions.mSeconds / 10, 1.0, 30.0), oOptions.mSeconds / 2);
    if (oOptions.mPhases.empty())
        for (const PhaseEntry& entry : kPhases) oOptions.mPhases.push_back(&entry);
    return oOptions.mWarmup < oOptions.mSeconds;
}

int Usage() {
    std::fputs("usage: vela_soak [seconds] [--warmup seconds] [--phases name,...] [--limit-mib N] [--no-limit]\nphases:", stderr);
    for (const PhaseEntry& entry : kPhases) std::fprintf(stderr, " %s", entry.mName);
    std::fputs("\n", stderr);
    return kUsageError;
}

struct Phase {
    const PhaseEntry* mEntryP;
    std::unique_ptr<Soak_Phase> mPhaseP;
    long long mRounds = 0;
};

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ReadOptions(argc - 1, argv + 1, options)) return Usage();

    Vela_Init::Init();
    std::vector<Phase> phases;
    std::printf("vela_soak: %.0f s, warm-up %.0f s, phases:", options.mSeconds, options.mWarmup);
    for (const PhaseEntry* entryP : options.mPhases) {
        phases.push_back({entryP, entryP->mMake()});
        std::printf(" %s", entryP->mName);
    }
    std::printf("\n");

    std::mt19937 random(1);
    const auto start = Clock::now();
    const auto seconds = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
    const double reportEvery = options.mSeconds / 10;
    double nextReport = options.mWarmup;
    long long warmResident = -1;
    long long peakResident = -1;
    bool checksHold = true;
    for (size_t turn = 0; checksHold && seconds() < options.mSeconds; ++turn) {
        Phase& phase = phases[turn % phases.size()];
        checksHold = phase.mPhaseP->RunRound(random);
        ++phase.mRounds;
        if (!checksHold) std::printf("check failed in phase %s, round %lld\n", phase.mEntryP->mName, phase.mRounds);
        const double now = seconds();
        if (now < nextReport) continue;
        const long long resident = ResidentBytes();
        if (warmResident < 0) warmResident = resident;
        peakResident = std::max(peakResident, resident);
        std::printf("%6.1f s  resident %8.1f MiB  queued deletions %zu\n", now, MiB(resident),
                    Sys_DelayedDeletionObject::GetPendingCount());
        std::fflush(stdout);
        nextReport = now + reportEvery;
    }
    const long long endResident = ResidentBytes();
    peakResident = std::max(peakResident, endResident);
    const size_t queuedAtEnd = Sys_DelayedDeletionObject::GetPendingCount();
    Vela_Init::Free();

    std::printf("rounds:");
    for (const Phase& phase : phases) std::printf(" %s %lld", phase.mEntryP->mName, phase.mRounds);
    std::printf("\nresident after warm-up %.1f MiB, at end %.1f MiB (%+.1f MiB, %+.1f%%), peak %.1f MiB\n",
                MiB(warmResident), MiB(endResident), MiB(endResident - warmResident),
                warmResident > 0 ? 100.0 * double(endResident - warmResident) / double(warmResident) : 0.0,
                MiB(peakResident));
    std::printf("deferred deletions queued at end %zu, after Vela_Init::Free %zu\n", queuedAtEnd,
                Sys_DelayedDeletionObject::GetPendingCount());
    if (!checksHold) return kCheckFailed;

    const long long allowed = options.mLimitMiB >= 0 ? static_cast<long long>(options.mLimitMiB * 1024 * 1024)
                                                     : static_cast<long long>(double(warmResident) * kDefaultGrowthLimit);
    const bool grew = warmResident >= 0 && endResident - warmResident > allowed;
    std::printf("memory %s (allowed growth %.1f MiB%s)\n", grew ? "GREW" : "flat", MiB(allowed),
                options.mNoLimit ? ", not enforced" : "");
    return grew && !options.mNoLimit ? 1 : 0;
}
