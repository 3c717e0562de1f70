#include "Roll.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "Mdie_SubStream.h"

namespace {

constexpr double kLeft = 70, kWidth = 1100, kLaneHeight = 36, kLaneGap = 8;
constexpr int kMaxLanes = 16;
const char* const kColours[] = {"#e4572e", "#29335c", "#669bbc", "#f3a712", "#a8c686", "#8e5572", "#2a9d8f", "#6d597a"};

std::string Format(const char* iFormat, double iA = 0, double iB = 0, double iC = 0, double iD = 0) {
    char text[256];
    std::snprintf(text, sizeof text, iFormat, iA, iB, iC, iD);
    return text;
}

std::string Escape(const std::string& iText) {
    std::string out;
    for (char c : iText) {
        if (c == '<') out += "&lt;";
        else if (c == '>') out += "&gt;";
        else if (c == '&') out += "&amp;";
        else if (static_cast<unsigned char>(c) >= 0x20) out += c;
    }
    return out;
}

// One lane: a stream's name and its (time, value 0..1) steps.
struct Lane {
    std::string mName;
    std::vector<std::pair<int64_t, double>> mSteps;
};

std::string LaneName(const Vela_Event& iEvent) {
    switch (iEvent.GetType()) {
        case Vela_Event::kController: return "cc " + std::to_string(iEvent.AsController().GetControllerNumber());
        case Vela_Event::kPitchBend: return "pitch bend";
        case Vela_Event::kMonoPressure: return "pressure";
        default: return "";
    }
}

}  // namespace

std::string RenderRoll(const Vela_Song& iSong, int64_t iFrom, int64_t iTo) {
    iTo = std::max(iTo, iFrom + 1);
    struct Note { int64_t mStart, mEnd; int mPitch, mVelocity; size_t mTrack; };
    std::vector<Note> notes;
    std::map<std::pair<size_t, int32_t>, Lane> lanes;  // by track and sub-stream
    int low = 127, high = 0;
    for (size_t t = 0; t < iSong.mTracks.size(); ++t) {
        for (const Mdie_TimedEvent& timed : Vela_Song::GetEvents(iSong.mTracks[t])) {
            const Vela_Event& event = timed.GetEvent();
            const int64_t start = timed.GetTime().AsInt64();
            if (timed.IsNoteWithDurationEvent()) {
                const int64_t end = start + timed.GetDuration().AsInt64();
                if (end < iFrom || start >= iTo) continue;
                const auto& note = event.AsNoteWithDuration();
                notes.push_back({start, end, note.GetPitch(), note.GetOnVelocity(), t});
                low = std::min<int>(low, note.GetPitch());
                high = std::max<int>(high, note.GetPitch());
            } else if (!LaneName(event).empty() && start < iTo) {
                const Mdie_SubStream subStream(event);
                const auto range = [&] { Mdie_SubStream_ValueRange r; subStream.GetValueRange(r); return r; }();
                Lane& lane = lanes[{t, event.GetType() * 1000 + subStream.GetIndex()}];
                lane.mName = iSong.mTracks[t].GetName() + ": " + LaneName(event);
                lane.mSteps.emplace_back(start, double(subStream.GetValueFromEvent(event) - range.mMin) / (range.mMax - range.mMin));
            }
        }
    }
    if (low > high) low = 60, high = 72;
    low = std::max(low - 2, 0);
    high = std::min(high + 2, 127);
    const double keyHeight = std::clamp(480.0 / (high - low + 1), 3.0, 12.0);
    const double rollHeight = keyHeight * (high - low + 1);
    const int laneCount = std::min<int>(static_cast<int>(lanes.size()), kMaxLanes);
    const double height = 40 + rollHeight + 30 + laneCount * (kLaneHeight + kLaneGap) + 10;
    auto x = [&](int64_t iTick) { return kLeft + kWidth * double(std::clamp(iTick, iFrom, iTo) - iFrom) / double(iTo - iFrom); };
    auto y = [&](int iPitch) { return 30 + (high - iPitch) * keyHeight; };

    std::string svg = Format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" font-family=\"sans-serif\" font-size=\"11\">\n",
                             kLeft + kWidth + 20, height);
    svg += Format("<rect width=\"100%%\" height=\"100%%\" fill=\"#fbfaf7\"/>\n<text x=\"%.0f\" y=\"18\" font-size=\"13\">", kLeft);
    svg += Format("Bars %.2f to %.2f, %.0f notes</text>\n", iSong.GetBars(iFrom) + 1, iSong.GetBars(iTo) + 1, double(notes.size()));
    for (int pitch = low; pitch <= high; ++pitch) {
        if (pitch % 12 == 1 || pitch % 12 == 3 || pitch % 12 == 6 || pitch % 12 == 8 || pitch % 12 == 10)
            svg += Format("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.0f\" height=\"%.1f\" fill=\"#efece6\"/>\n", kLeft, y(pitch), kWidth, keyHeight);
        if (pitch % 12 == 0)
            svg += Format("<text x=\"8\" y=\"%.1f\">C%.0f</text>\n", y(pitch) + keyHeight, pitch / 12 - 1.0);
    }
    for (double bar = std::floor(iSong.GetBars(iFrom)); iSong.GetTickAtBars(bar) < iTo; bar += 1) {
        const int64_t tick = iSong.GetTickAtBars(bar);
        if (tick < iFrom) continue;
        svg += Format("<line x1=\"%.1f\" y1=\"24\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#c9c3b8\"/>\n", x(tick), x(tick), height - 10);
        svg += Format("<text x=\"%.1f\" y=\"%.1f\" fill=\"#8a8170\">%.0f</text>\n", x(tick) + 3, 40 + rollHeight - 10, bar + 1);
    }
    for (const Note& note : notes)
        svg += Format("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" rx=\"1.5\" ", x(note.mStart), y(note.mPitch),
                      std::max(x(note.mEnd) - x(note.mStart), 1.5), keyHeight - 0.5) +
               "fill=\"" + kColours[note.mTrack % 8] + Format("\" fill-opacity=\"%.2f\"/>\n", 0.35 + 0.65 * note.mVelocity / 127.0);
    double top = 40 + rollHeight + 20;
    int drawn = 0;
    for (const auto& [key, lane] : lanes) {
        if (drawn++ == kMaxLanes) break;
        const char* colour = kColours[key.first % 8];
        svg += Format("<rect x=\"%.0f\" y=\"%.1f\" width=\"%.0f\" height=\"%.0f\" fill=\"#f2efe9\"/>\n", kLeft, top, kWidth, kLaneHeight);
        svg += "<text x=\"4\" y=\"" + Format("%.1f", top + 14) + "\" font-size=\"9\">" + Escape(lane.mName).substr(0, 14) + "</text>\n";
        std::string points;
        double value = -1;
        for (const auto& [tick, level] : lane.mSteps) {
            const double py = top + kLaneHeight - 2 - level * (kLaneHeight - 4);
            if (tick < iFrom) {
                value = py;
                continue;
            }
            if (value >= 0) points += Format("%.1f,%.1f ", x(tick), value);
            else points += Format("%.1f,%.1f ", x(iFrom), py);
            points += Format("%.1f,%.1f ", x(tick), py);
            value = py;
        }
        if (value >= 0) {
            if (points.empty()) points = Format("%.1f,%.1f ", x(iFrom), value);
            points += Format("%.1f,%.1f", x(iTo), value);
            svg += "<polyline fill=\"none\" stroke-width=\"1.5\" stroke=\"" + std::string(colour) + "\" points=\"" + points + "\"/>\n";
        }
        top += kLaneHeight + kLaneGap;
    }
    return svg + "</svg>\n";
}
