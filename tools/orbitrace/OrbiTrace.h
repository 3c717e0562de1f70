// OrbiTrace: a small file-based trace library, loaded at run time by the Vela trace client.
//
// Configuration is read from the environment when the library is loaded and again on
// OrbiTraceReloadConfigsFunc / OrbiTraceRestart:
//   ORBITRACE_FILE        the file every line is appended to. Unset: tracing is off, every
//                         is-active query answers 0 and nothing is written.
//   ORBITRACE_CATEGORIES  optional comma-separated list of hexadecimal categories
//                         ("2000f27,10"); when set, only those categories are active.
//
// Line format: the category as 8 lower-case hex digits, a space, the text, a line break:
//   "02000f27 Mdie_NoteInProgress alloc 0x7f... 32"
// FormatQuiet and Puts-style writes use the same prefix; FormatTimestamp inserts the
// microseconds since the library was loaded ("[123456] ") after the prefix. Lines longer than
// 4095 bytes are truncated.
//
// Threads: every entry point may be called from any thread. Each line is one append write, so
// lines from several threads or processes sharing a file never interleave. Reloading the
// configuration while other threads trace is safe (a lock guards the file).
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(_WIN32)
#define ORBITRACE_API extern "C" __declspec(dllexport)
#else
#define ORBITRACE_API extern "C" __attribute__((visibility("default")))
#endif

#if defined(__GNUC__)
#define ORBITRACE_PRINTF(f, a) __attribute__((format(printf, f, a)))
#else
#define ORBITRACE_PRINTF(f, a)
#endif

using OrbiTraceHandler = void (*)(unsigned int iCategory, const char* iLine);
using OrbiTraceClock = uint64_t (*)();

// Whether lines of iCategory are written (1) or dropped (0).
ORBITRACE_API int OrbiTraceIsActiveFunc(unsigned int iCategory);
// Reads the environment again and reopens the file.
ORBITRACE_API void OrbiTraceReloadConfigsFunc();
// Writes one printf-formatted line when iCategory is active.
ORBITRACE_API void OrbiTraceFormat(unsigned int iCategory, const char* iFormat, ...) ORBITRACE_PRINTF(2, 3);
// As OrbiTraceFormat; never passes the line to registered handlers.
ORBITRACE_API void OrbiTraceFormatQuiet(unsigned int iCategory, const char* iFormat, ...) ORBITRACE_PRINTF(2, 3);
// As OrbiTraceFormat with a timestamp after the category.
ORBITRACE_API void OrbiTraceFormatTimestamp(unsigned int iCategory, const char* iFormat, ...) ORBITRACE_PRINTF(2, 3);
// Writes iText as it is (its own line breaks included).
ORBITRACE_API void OrbiTracePuts(unsigned int iCategory, const char* iText);
// Writes iText with its line breaks turned into spaces.
ORBITRACE_API void OrbiTracePutsNoBreaks(unsigned int iCategory, const char* iText);
// Writes iLength bytes at iDataP as hex.
ORBITRACE_API void OrbiTraceMem(unsigned int iCategory, const void* iDataP, size_t iLength);
// Writes a stack trace; this build has no symbolizer and writes "(stack trace unavailable)".
ORBITRACE_API void OrbiTraceStack(unsigned int iCategory);
// Facility priorities are accepted and ignored; answers 0.
ORBITRACE_API int OrbiTraceChangeFacilityPriorityFunc(unsigned int iCategory, int iPriority);
// Registers one handler that also receives every written line (null removes it); answers 0.
ORBITRACE_API int OrbiTraceRegisterHandlerFunc(OrbiTraceHandler iHandler);
// Same answer as OrbiTraceIsActiveFunc.
ORBITRACE_API int OrbiTraceFacilityOnFunc(unsigned int iCategory);
// Replaces the clock of FormatTimestamp (microseconds; null restores the default).
ORBITRACE_API void OrbiTraceSetClockCallbackFunc(OrbiTraceClock iClock);
// Writes the number of lines written so far as a line of category 0.
ORBITRACE_API void OrbiTraceDumpWriteStatsFunc();
// Names the process in the "started" line written on (re)start.
ORBITRACE_API void OrbiTraceSetNameFunc(const char* iName);
// Text of an OS error code (strerror); valid until the next call on the same thread.
ORBITRACE_API const char* OrbiTraceOSErrToString(int iError);
// Older entry point: a format without category, written under category 0.
ORBITRACE_API void OrbiTraceLegacyFormat(const char* iFormat, ...) ORBITRACE_PRINTF(1, 2);
// The file lines go to, or "" when tracing is off.
ORBITRACE_API const char* OrbiTraceGetTracePath();
// Facilities are categories here; answers iCategory.
ORBITRACE_API unsigned int OrbiTraceRegisterFacility(const char* iName, unsigned int iCategory);
// As OrbiTraceReloadConfigsFunc.
ORBITRACE_API void OrbiTraceRestart();
// A machine identifier is not available: writes "" (when iSize > 0) and answers 0.
ORBITRACE_API int OrbiTraceGetMachineUUID(char* oBuffer, size_t iSize);
// Microseconds since load, or the registered clock's answer.
ORBITRACE_API uint64_t OrbiTraceGetTimestamp();
// Trace clients are accepted and not tracked; answer 0.
ORBITRACE_API int OrbiTraceAddTraceClient(const char* iName);
ORBITRACE_API int OrbiTraceRemoveTraceClient(const char* iName);
// Stack trace symbols: a flag only (see OrbiTraceStack).
ORBITRACE_API void OrbiTraceEnableStackTraceSymbols(int iEnable);
ORBITRACE_API int OrbiTraceEnabledStackTraceSymbols();
