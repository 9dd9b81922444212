// SPDX-License-Identifier: MIT
#include <wx/app.h>
#include <wx/init.h>
#include <wx/log.h>
#include <wx/socket.h>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include "quorpy.h"
#include "server.h"

namespace quor {
namespace python {

namespace {

// The application object that wxWidgets wants for its event loop; it reads
// no command line.
class RuntimeApp : public wxAppConsole {
 public:
  bool OnInit() override { return true; }
};

bool IsFinalizing() {
#if PY_VERSION_HEX >= 0x030D0000
  return Py_IsFinalizing();
#else
  return _Py_IsFinalizing();
#endif
}

// Python's level for a wxWidgets level (the library logs errors at 1,
// warnings at 2 and notices at 3).
int PythonLevel(wxLogLevel p_nLevel) {
  switch (p_nLevel) {
    case wxLOG_FatalError: return 50;  // CRITICAL
    case wxLOG_Error: return 40;       // ERROR
    case wxLOG_Warning: return 30;     // WARNING
    case wxLOG_Message:
    case wxLOG_Status:
    case wxLOG_Info: return 20;  // INFO
    default: return 10;          // DEBUG
  }
}

// The text without the prefix of its level, which Python's logging shows
// by itself.
wxString WithoutPrefix(const wxString& p_sText) {
  static const wxChar* const s_asPrefixes[] = {wxT("Error: "), wxT("Warning: "), wxT("Notice: ")};
  for (const wxChar* l_sPrefix : s_asPrefixes) {
    wxString l_sRest;
    if (p_sText.StartsWith(l_sPrefix, &l_sRest)) return l_sRest;
  }
  return p_sText;
}

// False once the interpreter exits (Runtime::Shutdown).
std::atomic<bool> g_bToPython{true};

// The log target of the runtime thread: every line of the library (those
// logged on other threads arrive when the runtime thread flushes them)
// goes to the Python logger "quor".
class PythonLog : public wxLog {
 protected:
  void DoLogRecord(wxLogLevel p_nLevel, const wxString& p_sText,
                   const wxLogRecordInfo&) override {
    if (!g_bToPython || !Py_IsInitialized() || IsFinalizing()) return;
    py::gil_scoped_acquire l_cGil;
    try {
      py::module_::import("logging")
          .attr("getLogger")("quor")
          .attr("log")(PythonLevel(p_nLevel), ToPy(WithoutPrefix(p_sText)));
    } catch (py::error_already_set& l_cError) {
      l_cError.discard_as_unraisable("quor: forwarding a log line");
    }
  }
};

std::mutex g_cRuntimeMutex;  // g_pcRuntime
Runtime* g_pcRuntime = NULL;

// A process forked from one that runs the runtime thread has none of that
// process's other threads, and the locks they held at the fork stay locked
// in it. wxWidgets' static objects, destroyed when such a child exits, may
// find one of them taken and crash reporting it. A forked child therefore
// ends as multiprocessing's children do: once the interpreter has finalised
// and exit() is called, with _exit and the same status, without the C++
// destructors of what existed before the fork.
void EndForkedChild(int p_nStatus, void*) {
  std::fflush(NULL);
  ::_exit(p_nStatus);
}

void InForkedChild() { ::on_exit(&EndForkedChild, NULL); }

}  // namespace

struct Runtime::State {
  std::mutex m_cMutex;  // everything below
  std::condition_variable m_cChanged;
  std::thread m_cThread;
  std::thread::id m_cThreadId;
  pid_t m_nPid = 0;
  bool m_bReady = false;
  bool m_bFailed = false;
  bool m_bStopped = false;
  // The application object (wxWidgets owns it); through its own type, since
  // wxTheApp names the GUI's wxApp, which this module does not link.
  wxAppConsole* m_pcApp = NULL;
  std::set<std::shared_ptr<Serving> > m_apcServings;
};

WithoutGil::WithoutGil() : m_pcSaved(PyGILState_Check() ? PyEval_SaveThread() : NULL) {}

WithoutGil::~WithoutGil() {
  if (m_pcSaved != NULL) PyEval_RestoreThread(m_pcSaved);
}

void Raise(const char* p_sClass, const std::string& p_sText) {
  py::object l_cClass = py::module_::import("quor.errors").attr(p_sClass);
  PyErr_SetObject(l_cClass.ptr(), py::str(p_sText).ptr());
  throw py::error_already_set();
}

Runtime::Runtime() : m_pcState(new State) {}

Runtime& Runtime::Get(bool p_bNeedLoop) {
  std::string l_sProblem;
  Runtime* l_pcRuntime = NULL;
  {
    WithoutGil l_cNoGil;  // the runtime thread may want it while it starts
    std::lock_guard<std::mutex> l_cLock(g_cRuntimeMutex);
    if (g_pcRuntime == NULL) {
      ::pthread_atfork(NULL, NULL, &InForkedChild);
      g_pcRuntime = new Runtime;  // lives as long as the process
      State& l_rState = *g_pcRuntime->m_pcState;
      std::unique_lock<std::mutex> l_cStateLock(l_rState.m_cMutex);
      l_rState.m_nPid = ::getpid();
      l_rState.m_cThread = std::thread(&Runtime::Main, g_pcRuntime);
      l_rState.m_cChanged.wait(l_cStateLock,
                               [&] { return l_rState.m_bReady || l_rState.m_bFailed; });
    }
    l_pcRuntime = g_pcRuntime;
    State& l_rState = *l_pcRuntime->m_pcState;
    std::lock_guard<std::mutex> l_cStateLock(l_rState.m_cMutex);
    if (l_rState.m_bFailed) {
      l_sProblem = "wxWidgets could not be initialised";
    } else if (p_bNeedLoop && l_rState.m_nPid != ::getpid()) {
      l_sProblem =
          "quor cannot serve a simulation in a process forked from one that had used it; "
          "start the server in a fresh process (multiprocessing's 'spawn' or 'forkserver')";
    } else if (p_bNeedLoop && l_rState.m_bStopped) {
      l_sProblem = "quor has shut down (the interpreter is exiting)";
    }
  }
  if (!l_sProblem.empty()) throw std::runtime_error(l_sProblem);
  return *l_pcRuntime;
}

void Runtime::Main() {
  State& l_rState = *m_pcState;
  wxAppConsole* l_pcApp = new RuntimeApp;
  wxAppConsole::SetInstance(l_pcApp);
  int l_nArgc = 0;
  wxChar* l_apArgv[] = {NULL};
  bool l_bOk = wxEntryStart(l_nArgc, l_apArgv);
  if (l_bOk) {
    l_pcApp->CallOnInit();
    delete wxLog::SetActiveTarget(new PythonLog);
    l_bOk = wxSocketBase::IsInitialized() || wxSocketBase::Initialize();
  }
  {
    std::lock_guard<std::mutex> l_cLock(l_rState.m_cMutex);
    l_rState.m_cThreadId = std::this_thread::get_id();
    l_rState.m_pcApp = l_pcApp;
    (l_bOk ? l_rState.m_bReady : l_rState.m_bFailed) = true;
  }
  l_rState.m_cChanged.notify_all();
  if (!l_bOk) return;
  // Never ends (see Shutdown). wxWidgets stays initialised: clients still
  // open may close their sockets while the interpreter exits.
  l_pcApp->OnRun();
}

void Runtime::Call(const std::function<void()>& p_fTask) {
  State& l_rState = *m_pcState;
  if (std::this_thread::get_id() == l_rState.m_cThreadId) {
    // The runtime thread holds the GIL only while it hands a log line to
    // Python, which may collect a server there; the task may wait for a
    // step function, which needs the GIL.
    WithoutGil l_cNoGil;
    p_fTask();
    return;
  }
  struct Done {
    std::mutex m_cMutex;
    std::condition_variable m_cDone;
    bool m_bDone = false;
    std::exception_ptr m_pcError;
  };
  std::shared_ptr<Done> l_pcDone = std::make_shared<Done>();
  {
    std::lock_guard<std::mutex> l_cLock(l_rState.m_cMutex);
    if (l_rState.m_bStopped || l_rState.m_nPid != ::getpid())
      throw std::runtime_error("quor's runtime thread is not running");
    // Queued under the lock, so that it comes before the end of the loop.
    l_rState.m_pcApp->CallAfter([p_fTask, l_pcDone] {
      std::exception_ptr l_pcError;
      try {
        p_fTask();
      } catch (...) {
        l_pcError = std::current_exception();
      }
      std::lock_guard<std::mutex> l_cDoneLock(l_pcDone->m_cMutex);
      l_pcDone->m_pcError = l_pcError;
      l_pcDone->m_bDone = true;
      l_pcDone->m_cDone.notify_all();
    });
  }
  {
    WithoutGil l_cNoGil;
    std::unique_lock<std::mutex> l_cLock(l_pcDone->m_cMutex);
    l_pcDone->m_cDone.wait(l_cLock, [&] { return l_pcDone->m_bDone; });
  }
  if (l_pcDone->m_pcError) std::rethrow_exception(l_pcDone->m_pcError);
}

void Runtime::Post(const std::function<void()>& p_fTask) {
  State& l_rState = *m_pcState;
  std::lock_guard<std::mutex> l_cLock(l_rState.m_cMutex);
  if (l_rState.m_bStopped || l_rState.m_nPid != ::getpid())
    throw std::runtime_error("quor's runtime thread is not running");
  l_rState.m_pcApp->CallAfter([p_fTask] {
    try {
      p_fTask();
    } catch (const std::exception&) {
      // Nobody waits for a posted task; what it stops is stopped anyway.
    }
  });
}

bool Runtime::OnRuntimeThread() {
  std::lock_guard<std::mutex> l_cLock(m_pcState->m_cMutex);
  return std::this_thread::get_id() == m_pcState->m_cThreadId;
}

void Runtime::Register(const std::shared_ptr<Serving>& p_pcServing) {
  std::lock_guard<std::mutex> l_cLock(m_pcState->m_cMutex);
  m_pcState->m_apcServings.insert(p_pcServing);
}

void Runtime::Unregister(const Serving* p_pcServing) {
  std::lock_guard<std::mutex> l_cLock(m_pcState->m_cMutex);
  for (auto l_it = m_pcState->m_apcServings.begin(); l_it != m_pcState->m_apcServings.end(); ++l_it) {
    if (l_it->get() == p_pcServing) {
      m_pcState->m_apcServings.erase(l_it);
      return;
    }
  }
}

void Runtime::Shutdown() {
  Runtime* l_pcRuntime = NULL;
  {
    std::lock_guard<std::mutex> l_cLock(g_cRuntimeMutex);
    l_pcRuntime = g_pcRuntime;
  }
  if (l_pcRuntime == NULL) return;
  State& l_rState = *l_pcRuntime->m_pcState;
  {
    std::lock_guard<std::mutex> l_cLock(l_rState.m_cMutex);
    // A forked child has no runtime thread to end.
    if (l_rState.m_bStopped || !l_rState.m_bReady || l_rState.m_nPid != ::getpid()) return;
  }
  // The simulations first: they are served from the runtime thread.
  for (;;) {
    std::shared_ptr<Serving> l_pcServing;
    {
      std::lock_guard<std::mutex> l_cLock(l_rState.m_cMutex);
      if (l_rState.m_apcServings.empty()) break;
      l_pcServing = *l_rState.m_apcServings.begin();
      l_rState.m_apcServings.erase(l_rState.m_apcServings.begin());
    }
    l_pcRuntime->Call([&] { l_pcServing->Close(); });
  }
  // The event loop goes on for as long as the process: a thread that logs
  // wakes the active loop up, and a loop ended here could be freed under
  // it. Log lines stop going to Python; the round trip waits for a line
  // that is being handed over now.
  g_bToPython = false;
  l_pcRuntime->Call([] {});
  std::lock_guard<std::mutex> l_cLock(l_rState.m_cMutex);
  l_rState.m_bStopped = true;
}

}  // namespace python
}  // namespace quor
