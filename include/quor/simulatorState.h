// SPDX-License-Identifier: MIT
// The codes a steerable simulation reports in its runtime state: the
// simulator state ("SIMULATOR_STATE", also read with ReadSimulatorState)
// and the error state ("ERROR_STATE"). The library carries them as plain
// 32-bit numbers; these values are the convention of the library's run
// helper, its reference server and its clients.
#ifndef QUOR_SIMULATORSTATE_H
#define QUOR_SIMULATORSTATE_H

#include "quor/export.h"

namespace quor {

enum SimulatorState : int {
  SIMULATOR_IDLE = 0,      // loaded, not run yet
  SIMULATOR_RUNNING = 1,   // a run is going on
  SIMULATOR_PAUSED = 2,    // the run waits at an output point for a resume
  SIMULATOR_STOPPED = 3,   // the last run was stopped before its end
  SIMULATOR_FINISHED = 4,  // the last run produced every output point
  SIMULATOR_FAILED = 5     // the last run could not start or could not go on
};

enum SimulatorErrorState : int {
  SIMULATOR_ERROR_NONE = 0,     // nothing went wrong since the last start
  SIMULATOR_ERROR_REFUSED = 1,  // a command or a change was refused
  SIMULATOR_ERROR_RUN = 2       // the run failed
};

// "idle", "running", "paused", "stopped", "finished", "failed"; "unknown"
// for any other code.
QUOR_API const char* SimulatorStateName(int p_nState);
// "none", "refused", "run failed"; "unknown" for any other code.
QUOR_API const char* SimulatorErrorStateName(int p_nErrorState);
// The state of a name as SimulatorStateName gives it (case ignored); false
// for any other text.
QUOR_API bool ParseSimulatorState(const char* p_sName, int* p_pnState);

// True for the states in which a run goes on (running or paused).
inline bool IsRunActive(int p_nState) {
  return p_nState == SIMULATOR_RUNNING || p_nState == SIMULATOR_PAUSED;
}

}  // namespace quor

#endif  // QUOR_SIMULATORSTATE_H
