// SPDX-License-Identifier: MIT
// Logging, result codes and the report-and-act macros shared by the whole
// library.
//
// The library never throws to its caller and never shows a dialog. Errors are
// signalled by result codes; the only texts that reach wxLog are the ones
// passed to LOG (allocation failures, the protocol-version mismatch and the
// server's start notices).
#ifndef QUOR_UTILITIES_H
#define QUOR_UTILITIES_H

#include <wx/string.h>

#include <new>
#include <stdexcept>

#include "quor/coding.h"

#include "quor/export.h"

namespace quor {

// Result codes. A result is an unsigned 32-bit value: 1 is success, FAILURE
// has all bits set, CONNECTION_NOT_CONNECTED is 0. The raw transfers add 2
// (not connected), 3 (socket error) and 4 (short write); the version check of
// the client adds VERSION_MISMATCH.
constexpr unsigned int SUCCESS = 1;
constexpr unsigned int FAILURE = 0xFFFFFFFFu;
constexpr unsigned int CONNECTION_NOT_CONNECTED = 0;
constexpr unsigned int VERSION_MISMATCH = 0xFFFFFFFEu;  // -2
// The raw transfers' own failures.
constexpr unsigned int TRANSFER_NOT_CONNECTED = 2;   // the socket is not connected
constexpr unsigned int TRANSFER_SOCKET_ERROR = 3;    // the socket reported an error
constexpr unsigned int TRANSFER_SHORT_WRITE = 4;     // fewer bytes were written

// A short text for a result code, for messages: "success", "failure",
// "not connected", "socket error", "short write", "version mismatch",
// "no connection"; "result N" for any other code.
QUOR_API wxString ResultName(unsigned int p_nResult);

// Hands a line to wxLog at the given level. Levels 1, 2 and 3 are prefixed
// with "Error: ", "Warning: " and "Notice: "; any other level passes the
// message unchanged. The text is handed to wxLog as its format string, so a
// '%' in a message is a printf conversion: callers must not put one there
// unless they mean it (write "%%" for a literal percent sign).
// Off the main thread the call holds the wxWidgets GUI mutex.
QUOR_API void LOG(unsigned long p_nLevel, const wxString& p_sMessage);

// The text that LOG and LogText put before a message of a level: "Error: "
// (1), "Warning: " (2), "Notice: " (3), nothing for any other level. For
// programs that format log lines of their own in the library's words.
QUOR_API const wxChar* LogLevelPrefix(unsigned long p_nLevel);

// Like LOG, but the text is taken as it is: a '%' in it is a percent sign,
// never a conversion. For texts that carry names, addresses or anything
// else the library did not write itself.
QUOR_API void LogText(unsigned long p_nLevel, const wxString& p_sText);

// The reports of CHECK_POINTER and TRY_ALLOC are formatted and then dropped:
// the caller learns of the failure from the returned value alone. A test or a
// debugging session can install a sink that sees every dropped report; with
// no sink (the default) the text goes nowhere. The sink is process-wide and
// must be installed before threads that use the library start.
typedef void (*ReportSink)(const wxString& p_sReport);
QUOR_API void SetReportSink(ReportSink p_pfSink);
QUOR_API void DropReport(const wxString& p_sReport);

// "../source/SteeringAPI/steeringBase.cpp" for a __FILE__ that names a file
// below a "source/" folder; the file name alone otherwise.
QUOR_API wxString ReportSourcePath(const char* p_sFile);

// The largest block the library allocates in one piece for a size that a
// peer announced: the largest frame plus room for a terminator and zlib's
// worst-case growth of it. A larger announcement cannot be honest; it is
// treated as an allocation failure.
constexpr unsigned long long MAX_BLOCK_SIZE = MAX_FRAME_SIZE + (MAX_FRAME_SIZE >> 10);

// new[] of p_nSize bytes. Throws std::bad_alloc when the size exceeds
// MAX_BLOCK_SIZE or the allocator fails; meant to be used inside TRY_ALLOC.
// The caller frees the block with delete[].
QUOR_API char* NewBlock(unsigned long long p_nSize);

}  // namespace quor

// If the pointer is NULL: build the null-pointer report, drop it, and perform
// the action (for example `return FAILURE`, `return NULL`, `return`).
#define CHECK_POINTER(p_pointer, p_action)                                     \
  do {                                                                         \
    if ((p_pointer) == NULL) {                                                 \
      ::quor::DropReport(wxString::Format(                                     \
          wxT("pointer error in %s(%d): %s is NULL, we %s"),                   \
          ::quor::ReportSourcePath(__FILE__), static_cast<int>(__LINE__),      \
          wxString(wxT(#p_pointer)), wxString(wxT(#p_action))));               \
      p_action;                                                                \
    }                                                                          \
  } while (0)

// Run an allocating statement. If the allocation throws (std::bad_alloc, or
// std::length_error for a size no container can hold), log
// "Error: cannot allocate memory", build and drop the try report, and perform
// the action. Variables the statement assigns must be declared before it.
#define TRY_ALLOC(p_statement, p_action)                                       \
  do {                                                                         \
    bool l_bQuorAllocFailed = false;                                           \
    try {                                                                      \
      p_statement;                                                             \
    } catch (const std::bad_alloc&) {                                          \
      l_bQuorAllocFailed = true;                                               \
    } catch (const std::length_error&) {                                       \
      l_bQuorAllocFailed = true;                                               \
    }                                                                          \
    if (l_bQuorAllocFailed) {                                                  \
      ::quor::LOG(1, wxT("cannot allocate memory"));                           \
      ::quor::DropReport(wxString::Format(wxT("Try error in %s(%d), we %s"),   \
                                          ::quor::ReportSourcePath(__FILE__),  \
                                          static_cast<int>(__LINE__),          \
                                          wxString(wxT(#p_action))));          \
      p_action;                                                                \
    }                                                                          \
  } while (0)

// The same report for a caught error other than an allocation failure: the
// caller logs its own message first and then performs the action.
#define QUOR_TRY_REPORT(p_actionText)                                          \
  ::quor::DropReport(wxString::Format(wxT("Try error in %s(%d), we %s"),       \
                                      ::quor::ReportSourcePath(__FILE__),      \
                                      static_cast<int>(__LINE__),              \
                                      wxString(wxT(p_actionText))))

#endif  // QUOR_UTILITIES_H
