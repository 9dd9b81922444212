// SPDX-License-Identifier: MIT
// The pieces of the Python module `quor` (its compiled part, quor._quor):
// the runtime that owns wxWidgets, text conversion, and the errors raised
// into Python.
//
// Threads. wxWidgets is initialised on a thread of the module's own, the
// runtime thread, which runs one event loop for as long as the process
// lives (the interpreter's exit does not end it): it accepts the connections of served simulations and hands the
// library's log lines to Python's `logging`. Python threads are never
// wxWidgets' main thread, so every socket they use is a blocking one.
// Whoever waits for the runtime thread, for the network or for a run does
// so without the GIL: the runtime thread, the connection workers and the
// runs of served simulations take the GIL when they call into Python.
#ifndef QUOR_PYTHON_QUORPY_H
#define QUOR_PYTHON_QUORPY_H

#include <pybind11/pybind11.h>
#include <wx/string.h>

#include <functional>
#include <memory>
#include <string>

namespace quor {
namespace python {

namespace py = pybind11;

// UTF-8 text of Python and wxString of the library.
inline wxString FromPy(const std::string& p_sText) { return wxString::FromUTF8(p_sText.c_str()); }
inline std::string ToPy(const wxString& p_sText) {
  const wxScopedCharBuffer l_cBuffer = p_sText.utf8_str();
  return std::string(l_cBuffer.data(), l_cBuffer.length());
}

// Raises quor.errors.<p_sClass>(p_sText) in Python. REQUIRES: the GIL.
[[noreturn]] void Raise(const char* p_sClass, const std::string& p_sText);

class Serving;

class Runtime {
 public:
  // The runtime, started on first use (wxWidgets and its sockets ready).
  // Raises RuntimeError when wxWidgets cannot start, after Shutdown, and,
  // with p_bNeedLoop, in a process forked from one that had started it (its
  // runtime thread did not come along; blocking sockets work without it).
  // REQUIRES: the GIL (released while the runtime starts).
  static Runtime& Get(bool p_bNeedLoop);
  // Stops every served simulation and stops handing log lines to Python;
  // the runtime thread and its event loop go on until the process ends.
  // Called when the interpreter exits; safe to call again.
  static void Shutdown();

  // Runs the task on the runtime thread and waits for it, without the GIL;
  // an exception of the task is thrown here. On the runtime thread itself
  // the task runs at once (and without the GIL too).
  void Call(const std::function<void()>& p_fTask);
  // Queues the task for the runtime thread and returns at once.
  void Post(const std::function<void()>& p_fTask);
  bool OnRuntimeThread();

  // Served simulations that Shutdown stops.
  void Register(const std::shared_ptr<Serving>& p_pcServing);
  void Unregister(const Serving* p_pcServing);

 private:
  Runtime();
  void Main();

  struct State;
  State* m_pcState;
};

// Releases the GIL for its lifetime when the calling thread holds it.
class WithoutGil {
 public:
  WithoutGil();
  ~WithoutGil();

 private:
  PyThreadState* m_pcSaved;
  WithoutGil(const WithoutGil&) = delete;
  WithoutGil& operator=(const WithoutGil&) = delete;
};

// The bindings of each part.
void BindClient(py::module_& p_rModule);
void BindServer(py::module_& p_rModule);
void BindNames(py::module_& p_rModule);

}  // namespace python
}  // namespace quor

#endif  // QUOR_PYTHON_QUORPY_H
