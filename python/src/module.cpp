// SPDX-License-Identifier: MIT
// quor._quor, the compiled part of the Python module quor: the library's
// client, its run helper behind a served simulation, and its public names.
// The pure-Python part (python/quor) builds the user's API on these.
#include <pybind11/stl.h>

#include "quor/netTypes.h"
#include "quor/simulatorState.h"
#include "quor/steeringcontrol.h"
#include "quor/steeringserver.h"
#include "quor/utilities.h"
#include "quor/version.h"
#include "quorpy.h"

namespace quor {
namespace python {

void BindNames(py::module_& p_rModule) {
  p_rModule.attr("VERSION") = GetVersionString();
  p_rModule.attr("PROTOCOL_VERSION") = STEERING_PROTOCOL_VERSION;
  p_rModule.attr("DEFAULT_PORT") = STEERING_DEFAULT_PORT;
  p_rModule.def(
      "result_name", [](unsigned int p_nResult) { return ToPy(ResultName(p_nResult)); },
      py::arg("result"), "The library's short text for a transfer result code.");
  p_rModule.def("simulator_state_name", &SimulatorStateName, py::arg("code"),
                "The name of a simulator state code (\"idle\", \"running\", ...).");
  p_rModule.def("simulator_error_state_name", &SimulatorErrorStateName, py::arg("code"),
                "The name of an error state code (\"none\", \"refused\", \"run failed\").");

  py::enum_<SimulatorState>(p_rModule, "SimulatorState")
      .value("SIMULATOR_IDLE", SIMULATOR_IDLE)
      .value("SIMULATOR_RUNNING", SIMULATOR_RUNNING)
      .value("SIMULATOR_PAUSED", SIMULATOR_PAUSED)
      .value("SIMULATOR_STOPPED", SIMULATOR_STOPPED)
      .value("SIMULATOR_FINISHED", SIMULATOR_FINISHED)
      .value("SIMULATOR_FAILED", SIMULATOR_FAILED);
  py::enum_<ConnectionType>(p_rModule, "ConnectionType")
      .value("CONNECTION_NONE", CONNECTION_NONE)
      .value("CONNECTION_READ_ARC", CONNECTION_READ_ARC)
      .value("CONNECTION_STANDARD_ARC", CONNECTION_STANDARD_ARC)
      .value("CONNECTION_INHIBITOR_ARC", CONNECTION_INHIBITOR_ARC)
      .value("CONNECTION_RESET_ARC", CONNECTION_RESET_ARC)
      .value("CONNECTION_EQUAL_ARC", CONNECTION_EQUAL_ARC)
      .value("CONNECTION_MODIFIER_ARC", CONNECTION_MODIFIER_ARC);
  py::enum_<RM_ROW_TYPE>(p_rModule, "RM_ROW_TYPE")
      .value("RM_ROW_TYPE_PLACE", RM_ROW_TYPE_PLACE)
      .value("RM_ROW_TYPE_TRANSITION", RM_ROW_TYPE_TRANSITION)
      .value("RM_ROW_TYPE_PARAMETER", RM_ROW_TYPE_PARAMETER)
      .value("RM_ROW_TYPE_OBSERVER", RM_ROW_TYPE_OBSERVER);
  py::enum_<CMD_TYPE>(p_rModule, "CMD_TYPE")
      .value("CMD_PAUSE", CMD_PAUSE)
      .value("CMD_RESUME", CMD_RESUME)
      .value("CMD_START", CMD_START)
      .value("CMD_STOP", CMD_STOP)
      .value("CMD_RESTART", CMD_RESTART);
}

}  // namespace python
}  // namespace quor

PYBIND11_MODULE(_quor, m) {
  using namespace quor::python;
  m.doc() = "The compiled part of quor: the steering library's classes for Python.";
  BindNames(m);
  BindClient(m);
  BindServer(m);
  m.def(
      "shutdown", [] { Runtime::Shutdown(); },
      "Stops every served simulation and quor's runtime thread (done when the interpreter "
      "exits).");
}
