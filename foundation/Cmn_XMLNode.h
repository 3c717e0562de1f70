// XML nodes for diagnostic dumps: a tree of named elements, each with an optional text value
// and children kept in the order they were appended. ToString()/Write() give well-formed XML:
// text is escaped, and a name that is not a valid XML name is written with every invalid
// character replaced by '_' (and a '_' in front when it cannot start a name), so a dump never
// becomes unreadable because of one odd name.
// Cmn_AliasedRefCountPtr<T>: an intrusive smart pointer over objects that count their own
// references (AddReference/RemoveReference, as Cmn_RefCountObject); the count is not atomic.
// Threads: a tree is used by one thread at a time. Not for real-time use (nodes allocate).
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "Cmn_XMLNodeFwd.h"
#include "Sys_RefCount.h"

template <class T>
class Cmn_AliasedRefCountPtr {
public:
    Cmn_AliasedRefCountPtr() = default;
    // Shares an object already owned elsewhere: adds a reference.
    explicit Cmn_AliasedRefCountPtr(T* iObjectP) : mObjectP(iObjectP) {
        if (mObjectP) mObjectP->AddReference();
    }
    // Takes over the reference a freshly created object starts with.
    static Cmn_AliasedRefCountPtr Adopt(T* iObjectP) {
        Cmn_AliasedRefCountPtr result;
        result.mObjectP = iObjectP;
        return result;
    }
    Cmn_AliasedRefCountPtr(const Cmn_AliasedRefCountPtr& iOther) : Cmn_AliasedRefCountPtr(iOther.mObjectP) {}
    Cmn_AliasedRefCountPtr(Cmn_AliasedRefCountPtr&& iOther) noexcept : mObjectP(std::exchange(iOther.mObjectP, nullptr)) {}
    Cmn_AliasedRefCountPtr& operator=(Cmn_AliasedRefCountPtr iOther) noexcept {
        std::swap(mObjectP, iOther.mObjectP);
        return *this;
    }
    ~Cmn_AliasedRefCountPtr() {
        if (mObjectP) mObjectP->RemoveReference();
    }

    T* get() const { return mObjectP; }
    T* operator->() const { return mObjectP; }
    T& operator*() const { return *mObjectP; }
    explicit operator bool() const { return mObjectP != nullptr; }
    bool operator==(const Cmn_AliasedRefCountPtr& iOther) const { return mObjectP == iOther.mObjectP; }

private:
    T* mObjectP = nullptr;
};

class Cmn_XMLNode : public Cmn_RefCountObject {
public:
    explicit Cmn_XMLNode(std::string iName) : mName(std::move(iName)) {}

    // ---- content
    const std::string& GetName() const { return mName; }
    bool HasValue() const { return mHasValue; }
    const std::string& GetValue() const { return mValue; }  // empty when there is none
    void SetValue(std::string iValue);

    // ---- children, in append order
    void AppendChild(const Cmn_XMLNodePtr& iChild);
    size_t GetChildCount() const { return mChildren.size(); }
    const Cmn_XMLNodePtr& GetChild(size_t iIndex) const { return mChildren.at(iIndex); }
    const std::vector<Cmn_XMLNodePtr>& GetChildren() const { return mChildren; }
    // The first child named iName, or a null pointer.
    Cmn_XMLNodePtr FindChild(const std::string& iName) const;

    // ---- output: indented XML without a declaration
    std::string ToString() const;
    void Write(std::ostream& ioStream) const;

private:
    std::string mName;
    std::string mValue;
    bool mHasValue = false;
    std::vector<Cmn_XMLNodePtr> mChildren;
};

std::ostream& operator<<(std::ostream& ioStream, const Cmn_XMLNode& iNode);

// Factories. The int argument of the valued forms is a set of formatting flags reserved for
// future use; it is currently ignored (callers pass 0). Numbers, including a signed char, are
// written in decimal: a signed char is a small number here, never a character.
Cmn_XMLNodePtr Cmn_CreateXMLNode(const char* iName);
Cmn_XMLNodePtr Cmn_CreateXMLNode(const char* iName, const std::string& iValue, int iFlags);
Cmn_XMLNodePtr Cmn_CreateXMLNode(const char* iName, const int& iValue, int iFlags);
Cmn_XMLNodePtr Cmn_CreateXMLNode(const char* iName, const signed char& iValue, int iFlags);
