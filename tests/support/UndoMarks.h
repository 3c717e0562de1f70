// Runs one edit in its own undo group and answers whether it announced a change of iObject, so
// tests can check which edits mark an undoable object and which deliberately do not.
#pragma once

#include "Ndo_Manager.h"

template <class TObject, class TEdit>
bool MarkedBy(TObject& ioObject, TEdit iEdit) {
    Ndo_gManager.BeginGroup();
    iEdit();
    const bool marked = Ndo_gManager.IsMarked(&ioObject);
    Ndo_gManager.EndGroup();
    return marked;
}
