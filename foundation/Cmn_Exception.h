// Errors of the foundation and of the libraries built on it.
// Cmn_Exception is the root (a std::exception). Sys_StreamException is what the typed streams
// and block readers throw for a wrong tag, an unreadable version, a truncated or overrunning
// block, or a failed write. Cmn_TypedException<L10N_ExceptionData> is the localized exception:
// it carries only a message id and the module whose string table holds the text; what()
// answers the text looked up through that module (I18N_Utils).
#pragma once

#include <cstdint>
#include <exception>
#include <string>

struct Cmn_ExceptionDescription {
    std::string mText;
};

// Optional stack dump attached to an exception; empty unless a platform fills it.
struct Cmn_StackDump {
    std::string mText;
};

class Cmn_Exception : public std::exception {
public:
    Cmn_Exception() = default;
    explicit Cmn_Exception(std::string iText) { mDescription.mText = std::move(iText); }
    const char* what() const noexcept override { return mDescription.mText.c_str(); }
    const Cmn_ExceptionDescription& GetDescription() const { return mDescription; }
    const Cmn_StackDump& GetStackDump() const { return mStackDump; }

protected:
    Cmn_ExceptionDescription mDescription;
    Cmn_StackDump mStackDump;
};

// Thrown by typed streams and block headers.
class Sys_StreamException : public Cmn_Exception {
public:
    explicit Sys_StreamException(std::string iText) : Cmn_Exception(std::move(iText)) {}
};

// A string table registered by a library: the platform's "resource module".
// Lookup answers the UTF-8 text of an id, or null for an id the table lacks.
struct I18N_ResourceModule {
    const char* mName;
    const char* (*mLookup)(int iMessageID);
};

struct L10N_ExceptionData {
    int mMessageID = 0;
    const I18N_ResourceModule* mModuleP = nullptr;
};

template <class TData>
class Cmn_TypedException;

template <>
class Cmn_TypedException<L10N_ExceptionData> : public Cmn_Exception {
public:
    explicit Cmn_TypedException(const L10N_ExceptionData& iData);
    int GetMessageID() const { return mData.mMessageID; }
    const L10N_ExceptionData& GetData() const { return mData; }

private:
    L10N_ExceptionData mData;
};

using Cmn_LocalizedException = Cmn_TypedException<L10N_ExceptionData>;
