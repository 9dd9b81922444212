// SPDX-License-Identifier: MIT
// quor._quor.ServerHandle: a simulation written in Python, served to every
// steering client through the library's dispatcher and run helper.
#ifndef QUOR_PYTHON_SERVER_H
#define QUOR_PYTHON_SERVER_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "quorpy.h"

namespace quor {

class SteeringDispatcher;
class SteeringRunHandler;
class SteeringServer;
class SteeringStep;

namespace python {

// The simulation being served: the step adapter, the run handler, the
// listening server and its dispatcher. Shared by its ServerHandle and the
// runtime (which stops it when the interpreter exits); whoever lets go of
// it last frees it.
class Serving {
 public:
  explicit Serving(py::object p_cAdapter);
  // Frees the adapter with the GIL (taken here); once the interpreter has
  // gone, the adapter is left to the end of the process.
  ~Serving();

  bool IsClosed() const { return m_bClosed; }
  // The run's step function: calls the adapter with the GIL.
  bool Step(SteeringStep& p_rStep);
  // Closes every connection, stops the runs (a step in progress is asked
  // to give up and waited for) and closes the listening socket. Safe to
  // call again. REQUIRES: the runtime thread, outside the events of this
  // server's sockets; the GIL not held.
  void Close();

  py::object m_cAdapter;  // used with the GIL only
  std::unique_ptr<SteeringRunHandler> m_pcHandler;
  // Made, used and destroyed on the runtime thread.
  std::unique_ptr<SteeringServer> m_pcServer;
  std::unique_ptr<SteeringDispatcher> m_pcDispatcher;

 private:
  std::atomic<bool> m_bClosed;

  Serving(const Serving&) = delete;
  Serving& operator=(const Serving&) = delete;
};

class ServerHandle {
 public:
  // Serves the net (a net dict, see netdata.h) on p_sBind:p_nPort (0: a
  // free port), its runs stepped by p_cAdapter and shown as the simulator
  // p_sName of the category p_sCategory. p_cAdapter(t, t_next, marking,
  // parameters) is called with the GIL on a run's thread for every output
  // interval and returns the marking at t_next (a list of floats), a text
  // (the run fails with it as the reason) or None (the step gave up, the
  // run ends as stopped). Raises OSError when the address cannot be
  // listened on. REQUIRES: the GIL.
  ServerHandle(py::object p_cAdapter, const py::dict& p_rNet, const std::string& p_sBind,
               unsigned int p_nPort, const std::string& p_sCategory, const std::string& p_sName);
  // Stop.
  ~ServerHandle();

  unsigned int GetPort() const { return m_nPort; }
  bool IsServing();
  // Closes every connection, stops the run (a step in progress is asked to
  // give up and waited for) and closes the listening socket. Safe to call
  // again. Raises RuntimeError when called by a step function. Called on
  // the runtime thread (by a logging handler, or a collection there), it
  // returns at once and the runtime thread stops the server next.
  void Stop();

 private:
  unsigned int m_nPort;
  std::mutex m_cMutex;  // m_pcServing
  std::shared_ptr<Serving> m_pcServing;  // NULL once stopped

  ServerHandle(const ServerHandle&) = delete;
  ServerHandle& operator=(const ServerHandle&) = delete;
};

// True while the calling thread runs a step function whose run is asked
// to end.
bool ShouldStop();

}  // namespace python
}  // namespace quor

#endif  // QUOR_PYTHON_SERVER_H
