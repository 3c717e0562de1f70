// Notifications the library posts through the process-wide sender (Cmn_N10nCenter::Sender()).
// Hosts subscribe with Cmn_Subscribable<message class>. Delivery is synchronous on the posting
// thread, which is always an editing or document-reading thread, never a real-time one.
#pragma once

#include "Cmn_N10n.h"

// Notes with an on-velocity of 0 (the mark of a note to be removed) were found, for example
// while a note list was read from a document. The host may tell the user or clean up.
class Vela_N10n_MIDIZeroOnVelocitiesFound : public Cmn_MsgBase {};
