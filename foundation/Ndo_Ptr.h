// Pointers to undoable objects.
// - Ndo_Ptr<T>: a member pointer kept with its pointee's undo id (kNdo_NoId when null), so a
//   saved state can name the member and a restore can find it again. It does not own.
// - Ndo_StateRef<T>: the reference to a member inside a saved state: the undo id only,
//   resolved through the history when the state is restored.
// - Ndo_AutoPtr<T>: an owning pointer passed by value; whoever receives it takes the object and
//   leaves the argument empty. An object still owned when the pointer dies is deleted (it was
//   never handed to a data structure, so nothing in the history refers to it).
// - Ndo_ExternalRefBase: a copyable reference held outside the data model. It asks the history
//   on every access, so it yields null while an undo step keeps the object out of sight and the
//   object again once a redo brings it back. A reference to an object that is not undoable
//   always yields that object.
// Threads: editing thread; GetObjPtr allocates nothing and takes no lock (see Ndo_Manager.h).
#pragma once

#include <cstdint>

#include "Ndo_Manager.h"
#include "Ndo_Object.h"

template <class T>
class Ndo_Ptr {
public:
    Ndo_Ptr() = default;
    explicit Ndo_Ptr(T* iObjectP) { Set(iObjectP); }

    void Set(T* iObjectP) {
        mObjectP = iObjectP;
        mUndoId = iObjectP ? iObjectP->NdoGetUndoId() : kNdo_NoId;
    }
    // Points at the object in sight with iUndoId when it is a T; otherwise becomes null.
    // Returns whether it found one.
    bool SetFromUndoId(uint64_t iUndoId) {
        Set(dynamic_cast<T*>(Ndo_gManager.LookupObject(iUndoId)));
        return mObjectP != nullptr;
    }

    T* Get() const { return mObjectP; }
    T* operator->() const { return mObjectP; }
    T& operator*() const { return *mObjectP; }
    explicit operator bool() const { return mObjectP != nullptr; }
    uint64_t GetUndoId() const { return mUndoId; }

    bool operator==(const Ndo_Ptr& iOther) const { return mObjectP == iOther.mObjectP; }

private:
    T* mObjectP = nullptr;
    uint64_t mUndoId = kNdo_NoId;
};

template <class T>
class Ndo_StateRef {
public:
    Ndo_StateRef() = default;
    explicit Ndo_StateRef(uint64_t iUndoId) : mUndoId(iUndoId) {}
    explicit Ndo_StateRef(const Ndo_Ptr<T>& iPtr) : mUndoId(iPtr.GetUndoId()) {}
    explicit Ndo_StateRef(const T* iObjectP) : mUndoId(iObjectP ? iObjectP->NdoGetUndoId() : kNdo_NoId) {}

    uint64_t GetUndoId() const { return mUndoId; }
    bool IsNull() const { return mUndoId == kNdo_NoId; }
    // The object in sight with this id when it is a T, else null.
    T* Resolve() const { return dynamic_cast<T*>(Ndo_gManager.LookupObject(mUndoId)); }

private:
    uint64_t mUndoId = kNdo_NoId;
};

template <class T>
class Ndo_AutoPtr {
public:
    Ndo_AutoPtr() = default;
    explicit Ndo_AutoPtr(T* iObjectP) : mObjectP(iObjectP) {}
    // Copying transfers: the source is left empty.
    Ndo_AutoPtr(Ndo_AutoPtr& ioOther) : mObjectP(ioOther.Release()) {}
    Ndo_AutoPtr(Ndo_AutoPtr&& ioOther) noexcept : mObjectP(ioOther.Release()) {}
    template <class U>
    Ndo_AutoPtr(Ndo_AutoPtr<U>& ioOther) : mObjectP(ioOther.Release()) {}
    template <class U>
    Ndo_AutoPtr(Ndo_AutoPtr<U>&& ioOther) : mObjectP(ioOther.Release()) {}
    Ndo_AutoPtr& operator=(Ndo_AutoPtr& ioOther) {
        Reset(ioOther.Release());
        return *this;
    }
    Ndo_AutoPtr& operator=(Ndo_AutoPtr&& ioOther) noexcept {
        Reset(ioOther.Release());
        return *this;
    }
    ~Ndo_AutoPtr() { delete mObjectP; }

    T* Get() const { return mObjectP; }
    T* operator->() const { return mObjectP; }
    T& operator*() const { return *mObjectP; }
    explicit operator bool() const { return mObjectP != nullptr; }
    // Hands the object over; the pointer is left empty.
    T* Release() {
        T* objectP = mObjectP;
        mObjectP = nullptr;
        return objectP;
    }
    void Reset(T* iObjectP = nullptr) {
        if (iObjectP == mObjectP) return;
        delete mObjectP;
        mObjectP = iObjectP;
    }

private:
    T* mObjectP = nullptr;
};

class Ndo_ExternalRefBase {
public:
    Ndo_ExternalRefBase() = default;
    explicit Ndo_ExternalRefBase(Ndo_Object* iObjectP)
        : mObjectP(iObjectP), mUndoId(iObjectP ? iObjectP->NdoGetUndoId() : kNdo_NoId) {}

    Ndo_Object* GetObjPtr() const { return mUndoId == kNdo_NoId ? mObjectP : Ndo_gManager.LookupObject(mUndoId); }
    uint64_t GetUndoId() const { return mUndoId; }

private:
    Ndo_Object* mObjectP = nullptr;  // used only for objects that are not undoable
    uint64_t mUndoId = kNdo_NoId;
};
