// SPDX-License-Identifier: MIT
#include "server.h"

#include <pybind11/stl.h>

#include <atomic>
#include <stdexcept>

#include "netdata.h"
#include "quor/model.h"
#include "quor/steeringdispatcher.h"
#include "quor/steeringrunhandler.h"
#include "quor/steeringserver.h"

namespace quor {
namespace python {

namespace {

// The step that the calling thread runs (for should_stop).
thread_local const SteeringStep* t_pcCurrentStep = NULL;

class CurrentStep {
 public:
  explicit CurrentStep(const SteeringStep& p_rStep) : m_pcOuter(t_pcCurrentStep) {
    t_pcCurrentStep = &p_rStep;
  }
  ~CurrentStep() { t_pcCurrentStep = m_pcOuter; }

 private:
  const SteeringStep* m_pcOuter;
};

bool InterpreterGone() {
#if PY_VERSION_HEX >= 0x030D0000
  return !Py_IsInitialized() || Py_IsFinalizing();
#else
  return !Py_IsInitialized() || _Py_IsFinalizing();
#endif
}

}  // namespace

bool ShouldStop() { return t_pcCurrentStep != NULL && t_pcCurrentStep->ShouldStop(); }

Serving::Serving(py::object p_cAdapter) : m_cAdapter(std::move(p_cAdapter)), m_bClosed(false) {}

Serving::~Serving() {
  if (InterpreterGone()) {
    // Left to the process's end.
    m_cAdapter.release();
    return;
  }
  py::gil_scoped_acquire l_cGil;
  m_cAdapter = py::object();
}

void Serving::Close() {
  if (m_bClosed.exchange(true)) return;
  if (m_pcDispatcher) m_pcDispatcher->Shutdown();
  m_pcHandler->StopAllRuns();
  m_pcDispatcher.reset();
  if (m_pcServer) {
    // The listening socket delivers its events to the server object: it
    // goes first.
    wxSocketServer* l_pcSocket = m_pcServer->GetServerSocket();
    if (l_pcSocket != NULL) {
      l_pcSocket->Notify(false);
      delete l_pcSocket;
    }
    m_pcServer.reset();
  }
}

ServerHandle::ServerHandle(py::object p_cAdapter, const py::dict& p_rNet,
                           const std::string& p_sBind, unsigned int p_nPort,
                           const std::string& p_sCategory, const std::string& p_sName)
    : m_nPort(0) {
  if (p_nPort > 65535) throw py::value_error("a port is a number from 0 to 65535");
  const NetData l_cNet = NetFromDict(p_rNet);
  Runtime& l_rRuntime = Runtime::Get(true);
  std::shared_ptr<Serving> l_pcServing = std::make_shared<Serving>(std::move(p_cAdapter));
  Serving* l_pcRaw = l_pcServing.get();  // the handler lives inside it
  l_pcServing->m_pcHandler.reset(
      new SteeringRunHandler([l_pcRaw](SteeringStep& p_rStep) { return l_pcRaw->Step(p_rStep); }));
  l_pcServing->m_pcHandler->SetSimulatorName(FromPy(p_sCategory), FromPy(p_sName));
  l_pcServing->m_pcHandler->AddModel(BuildModel(l_cNet).release());

  bool l_bListening = false;
  l_rRuntime.Call([&] {
    l_pcRaw->m_pcServer.reset(new SteeringServer);
    l_pcRaw->m_pcServer->SetPort(p_nPort);
    l_pcRaw->m_pcServer->SetAddress(FromPy(p_sBind));
    if (l_pcRaw->m_pcServer->DoStartServer(p_nPort)) {
      l_pcRaw->m_pcDispatcher.reset(
          new SteeringDispatcher(*l_pcRaw->m_pcServer, *l_pcRaw->m_pcHandler));
      l_bListening = l_pcRaw->m_pcDispatcher->Start();
      m_nPort = l_pcRaw->m_pcServer->GetPort();
    }
  });
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    m_pcServing = l_pcServing;
  }
  l_rRuntime.Register(l_pcServing);
  l_pcServing.reset();
  if (!l_bListening) {
    Stop();
    PyErr_SetString(PyExc_OSError, ("cannot listen on " + p_sBind + ":" + std::to_string(p_nPort) +
                                    " (the port is in use, or the address is not one of this "
                                    "machine's)")
                                       .c_str());
    throw py::error_already_set();
  }
}

ServerHandle::~ServerHandle() {
  try {
    Stop();
  } catch (const std::exception&) {
    // The runtime has gone already; there is nothing left to stop.
  }
}

bool ServerHandle::IsServing() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  return m_pcServing && !m_pcServing->IsClosed();
}

void ServerHandle::Stop() {
  if (t_pcCurrentStep != NULL)
    throw std::runtime_error("a step function cannot stop the server that runs it");
  std::shared_ptr<Serving> l_pcServing;
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    l_pcServing.swap(m_pcServing);
  }
  // Stopped already (here, or by the runtime as the interpreter exits).
  if (!l_pcServing || l_pcServing->IsClosed()) return;
  Runtime& l_rRuntime = Runtime::Get(false);
  l_rRuntime.Unregister(l_pcServing.get());
  if (l_rRuntime.OnRuntimeThread()) {
    // Here while the runtime thread hands a log line to Python, perhaps
    // within an event of this very server's sockets: the server is closed
    // from the event loop next, and freed there.
    l_rRuntime.Post([l_pcServing] { l_pcServing->Close(); });
    return;
  }
  // Waits without the GIL: the run's step function needs it to give up.
  l_rRuntime.Call([&] { l_pcServing->Close(); });
}

bool Serving::Step(SteeringStep& p_rStep) {
  // The start point is where the run begins: nothing to advance.
  if (p_rStep.IsStart()) return true;
  if (InterpreterGone()) return p_rStep.Fail(wxT("the Python interpreter is exiting"));
  py::gil_scoped_acquire l_cGil;
  CurrentStep l_cCurrent(p_rStep);
  try {
    py::object l_cResult = m_cAdapter(p_rStep.GetFrom(), p_rStep.GetTo(), p_rStep.Marking(),
                                      p_rStep.Parameters());
    if (l_cResult.is_none()) return false;
    if (py::isinstance<py::str>(l_cResult)) return p_rStep.Fail(FromPy(l_cResult.cast<std::string>()));
    std::vector<double> l_adMarking = l_cResult.cast<std::vector<double> >();
    if (l_adMarking.size() != p_rStep.Marking().size())
      return p_rStep.Fail(wxString::Format(wxT("the step gave %zu values for %zu places"),
                                           l_adMarking.size(), p_rStep.Marking().size()));
    p_rStep.Marking() = std::move(l_adMarking);
    return true;
  } catch (py::error_already_set& l_cError) {
    return p_rStep.Fail(FromPy(std::string("the step function failed: ") + l_cError.what()));
  } catch (const std::exception& l_cError) {
    return p_rStep.Fail(FromPy(std::string("the step function failed: ") + l_cError.what()));
  }
}

void BindServer(py::module_& p_rModule) {
  py::class_<ServerHandle>(p_rModule, "ServerHandle",
                           "A simulation served to steering clients (quor.Server wraps it).")
      .def(py::init<py::object, const py::dict&, const std::string&, unsigned int,
                    const std::string&, const std::string&>(),
           py::arg("adapter"), py::arg("net"), py::arg("bind"), py::arg("port"),
           py::arg("category"), py::arg("simulator"))
      .def_property_readonly("port", &ServerHandle::GetPort)
      .def_property_readonly("serving", &ServerHandle::IsServing)
      .def("stop", &ServerHandle::Stop);
  p_rModule.def("should_stop", &ShouldStop,
                "True while a step function runs whose run is asked to end.");
}

}  // namespace python
}  // namespace quor
