// The piano-roll picture of the vela tool: plain SVG, readable in any browser. Notes of
// [iFrom, iTo) as bars on a pitch grid (one colour per track, brighter for louder), bar lines
// numbered from 1, and below them one lane per controller, pitch bend or pressure stream in
// use, drawn as steps.
#pragma once

#include <cstdint>
#include <string>

#include "Vela_Song.h"

std::string RenderRoll(const Vela_Song& iSong, int64_t iFrom, int64_t iTo);
