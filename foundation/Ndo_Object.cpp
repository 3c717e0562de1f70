#include "Ndo_Object.h"

#include "Ndo_Manager.h"

Ndo_State::~Ndo_State() = default;

Ndo_Object* Ndo_State::Recreate() const { return nullptr; }

Ndo_Object::Ndo_Object(EUndoFlag iUndo, bool iFlag) : mFlag(iFlag) {
    if (iUndo == kUndoable) Ndo_gManager.Register(this);
}

Ndo_Object::Ndo_Object(const Ndo_Object& iOther) : mFlag(iOther.mFlag) {
    if (iOther.NdoIsUndoable()) Ndo_gManager.Register(this);
}

Ndo_Object::~Ndo_Object() {
    if (NdoIsUndoable()) Ndo_gManager.Unregister(this);
}

void Ndo_Object::NdoDelete() { Ndo_gManager.Dispose(this); }

Ndo_State* Ndo_Object::NdoGetState() { return nullptr; }

void Ndo_Object::NdoRestoreState(Ndo_State*) {}

void Ndo_Object::NdoCleanup() {}

void Ndo_Object::NdoAboutToModify() { Ndo_gManager.AboutToModify(this); }
