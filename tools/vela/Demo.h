// The demo song of the vela tool, made in memory: four tracks (conductor, piano with sustain
// and expression, bass with a pitch bend, drums on channel 10), eight bars of 4/4 at 100 BPM.
#pragma once

#include "Vela_SmfCodec.h"

Vela_SmfSong MakeDemoSong();
