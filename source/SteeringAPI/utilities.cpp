// SPDX-License-Identifier: MIT
#include "quor/utilities.h"

#include <wx/app.h>
#include <wx/log.h>
#include <wx/thread.h>

#include <atomic>
#include <cstring>

namespace quor {

namespace {
std::atomic<ReportSink> g_pfReportSink{nullptr};

// The GUI mutex protects a GUI log target from being entered by two threads
// at once. Only a GUI application's main loop ever releases that mutex; in a
// console application nothing would, so there the lock is not taken (wxLog
// itself queues lines logged off the main thread until the main thread
// flushes them). Before wxWidgets knows its main thread the id is 0 and no
// lock is taken either.
bool NeedsGuiMutex() {
  return wxThread::GetMainId() != 0 && !wxThread::IsMain() &&
         wxAppConsole::GetInstance() != NULL && wxAppConsole::GetInstance()->IsGUI();
}

// Holds the GUI mutex (when needed, see above) for the duration of a
// logging call.
class GuiLogLock {
 public:
  GuiLogLock() : m_bHeld(NeedsGuiMutex()) {
    if (m_bHeld) wxMutexGuiEnter();
  }
  ~GuiLogLock() {
    if (m_bHeld) wxMutexGuiLeave();
  }

 private:
  const bool m_bHeld;
};

// The prefixes of levels 1, 2 and 3; any other level has none.
const wxChar* const LEVEL_PREFIXES[] = {wxT("Error: "), wxT("Warning: "), wxT("Notice: ")};
}  // namespace

const wxChar* LogLevelPrefix(unsigned long p_nLevel) {
  return p_nLevel >= 1 && p_nLevel <= 3 ? LEVEL_PREFIXES[p_nLevel - 1] : wxT("");
}

void LOG(unsigned long p_nLevel, const wxString& p_sMessage) {
  GuiLogLock l_cLock;
  // The text is the format string, with no arguments: a '%' in it is a
  // conversion, exactly as the callers of LOG expect.
  const wxString l_sText = LogLevelPrefix(p_nLevel) + p_sMessage;
  wxLogGeneric(static_cast<wxLogLevel>(p_nLevel), l_sText);
}

void LogText(unsigned long p_nLevel, const wxString& p_sText) {
  GuiLogLock l_cLock;
  wxLogGeneric(static_cast<wxLogLevel>(p_nLevel), wxT("%s"), LogLevelPrefix(p_nLevel) + p_sText);
}

void SetReportSink(ReportSink p_pfSink) { g_pfReportSink.store(p_pfSink); }

void DropReport(const wxString& p_sReport) {
  ReportSink l_pfSink = g_pfReportSink.load();
  if (l_pfSink != nullptr) l_pfSink(p_sReport);
}

wxString ReportSourcePath(const char* p_sFile) {
  const char* l_sFound = nullptr;
  for (const char* l_p = std::strstr(p_sFile, "source/"); l_p != nullptr;
       l_p = std::strstr(l_p + 1, "source/")) {
    l_sFound = l_p;
  }
  if (l_sFound == nullptr) {
    const char* l_sSlash = std::strrchr(p_sFile, '/');
    return wxString::FromUTF8(l_sSlash ? l_sSlash + 1 : p_sFile);
  }
  return wxT("../") + wxString::FromUTF8(l_sFound);
}

wxString ResultName(unsigned int p_nResult) {
  switch (p_nResult) {
    case SUCCESS: return wxT("success");
    case FAILURE: return wxT("failure");
    case CONNECTION_NOT_CONNECTED: return wxT("no connection");
    case VERSION_MISMATCH: return wxT("version mismatch");
    case TRANSFER_NOT_CONNECTED: return wxT("not connected");
    case TRANSFER_SOCKET_ERROR: return wxT("socket error");
    case TRANSFER_SHORT_WRITE: return wxT("short write");
    default: return wxString::Format(wxT("result %u"), p_nResult);
  }
}

char* NewBlock(unsigned long long p_nSize) {
  if (p_nSize > MAX_BLOCK_SIZE) throw std::bad_alloc();
  return new char[static_cast<size_t>(p_nSize)];
}

}  // namespace quor
