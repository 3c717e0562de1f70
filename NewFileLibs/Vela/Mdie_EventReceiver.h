// Sinks of events: the parser's target, the chase tracker's output, the track state's output.
// Implementations say themselves whether they are real-time safe.
#pragma once

#include "Vela_Event.h"

class Mdie_EventReceiver {
public:
    virtual ~Mdie_EventReceiver() = default;
    // Called once per delivered event.
    virtual void ReceiveEvent(const Vela_Event& iEvent) = 0;
};
