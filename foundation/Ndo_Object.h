// Undoable objects and their saved states.
// An Ndo_Object is a data object whose changes the undo history (Ndo_Manager.h) can take back.
// Before its first change in an open group an object calls NdoAboutToModify(); the manager then
// keeps the state NdoGetState() returns and, on undo, hands it back through NdoRestoreState()
// (keeping the state it replaces for redo). Each undoable object has a 64-bit undo id, unique for
// the life of the process; saved states name other objects by these ids, never by address.
// Disposal: an owner gives up an undoable object with NdoDelete(), not delete, so that the
// history can keep it while a step may still bring it back.
// Threads: editing thread only (see Ndo_Manager.h); nothing here is real-time safe.
#pragma once

#include <cstdint>

class Ndo_Object;

// The undo id of "no object": all ones.
constexpr uint64_t kNdo_NoId = ~uint64_t(0);

// Base class of a saved state. States are owned by the history; each data class derives its
// own and ignores states of other classes.
class Ndo_State {
public:
    Ndo_State() = default;
    Ndo_State(const Ndo_State&) = default;
    Ndo_State& operator=(const Ndo_State&) = default;
    virtual ~Ndo_State();

    // Builds an empty object of the class that saved this state, for an undo or redo step that
    // needs an object the history no longer holds (it was destroyed outside any group). The
    // history gives the new object the old undo id and then restores this state into it, so the
    // shell should create no undoable members of its own: the restore looks them up by id.
    // The object's later state was lost with it, so a redo of that step starts from the shell.
    // Returns a new object owned by whoever the restored state makes its owner; the default
    // returns null, and the step then leaves that object out.
    virtual Ndo_Object* Recreate() const;
};

class Ndo_Object {
public:
    enum EUndoFlag : int32_t { kNotUndoable = 0, kUndoable = 1 };

    // iFlag is kept for the owner (data classes pass their quantize flag); the framework only
    // stores it. An undoable object built while a group is open is recorded as created in that
    // group: undoing the group takes it out of sight, redoing brings it back.
    Ndo_Object(EUndoFlag iUndo, bool iFlag);
    // A copy is a new object: it gets its own undo id (when the original has one).
    Ndo_Object(const Ndo_Object& iOther);
    // Assignment copies nothing of the identity.
    Ndo_Object& operator=(const Ndo_Object&) { return *this; }
    virtual ~Ndo_Object();

    // Gives the object up. With a group open the history keeps an undoable object (hidden from
    // LookupObject) until the step that disposed of it falls off the history; otherwise the
    // object is cleaned up and destroyed at once.
    virtual void NdoDelete();
    // A new state describing this object, owned by the caller. Default: null (nothing to save).
    virtual Ndo_State* NdoGetState();
    // Takes back a state made by NdoGetState of this class; the caller keeps ownership.
    virtual void NdoRestoreState(Ndo_State* iStateP);
    // Called just before the framework finally destroys an object it disposed of. Default: nothing.
    virtual void NdoCleanup();

    uint64_t NdoGetUndoId() const { return mUndoId; }
    bool NdoIsUndoable() const { return mUndoId != kNdo_NoId; }
    bool NdoGetFlag() const { return mFlag; }

    // Announces a change; call it before modifying. Records this object's state the first time
    // in an open group; does nothing without an open group, during undo/redo, for objects
    // created in the open group, and for objects that are not undoable.
    void NdoAboutToModify();

private:
    friend class Ndo_Manager;

    uint64_t mUndoId = kNdo_NoId;
    // Serial of the group in which the change was last announced, or in which the object was
    // created: either way a later announcement in that group has nothing to save.
    uint64_t mMarkedGroup = 0;
    bool mFlag = false;
};
