// vela play --jack and vela render: the reference player's output in real time through a JACK
// server, or through a synthesizer into a WAV file. Both take the transport plan as commands at
// output times in ticks, ending with a stop at iEndTick.
#pragma once

#include <string>
#include <vector>

#include "Vela_SongBlockPlayer.h"

struct AudioPlan {
    std::vector<Vela_ScheduledCommand> mCommands;
    int64_t mEndTick = 0;
    bool mRestrike = true;
};

// Plays in real time on a JACK client "vela" (output port "vela:out"), connected to iConnect
// when given; prints the callback's times against the period's budget at the end.
int PlayJack(const Vela_Song& iSong, const AudioPlan& iPlan, const std::string& iServer, const std::string& iConnect);

// Writes the rendered song to iWav and, when iPicture is given, its waveform envelope as SVG.
int RenderSong(const Vela_Song& iSong, const AudioPlan& iPlan, const std::string& iWav, const std::string& iSoundFont,
               const std::string& iPicture);
