#include <cstdio>

#include "Vela.h"

int main() {
    Vela_Init::Init();
    const unsigned char noteOn[] = {0x90, 0x3C, 0x64};
    signed char channel = -1;
    const Vela_Event event = Mdi_ParseSingleEvent(&channel, nullptr, noteOn, sizeof noteOn);
    std::printf("type %d channel %d: %s\n", event.GetType(), channel, Vela_GetLocalizedString(100));
    Vela_Init::Free();
    return event.GetType() == Vela_Event::kNoteOn && channel == 0 ? 0 : 1;
}
