// The message id of the localized exception a call throws, 0 when it throws none, so a table of
// damaged inputs can name the error each one must raise.
#pragma once

#include "Cmn_Exception.h"

template <class TCall>
int LocalizedMessageIdOf(TCall iCall) {
    try {
        iCall();
    } catch (const Cmn_LocalizedException& e) {
        return e.GetMessageID();
    }
    return 0;
}
