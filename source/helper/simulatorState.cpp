// SPDX-License-Identifier: MIT
#include "quor/simulatorState.h"

#include <strings.h>

namespace quor {

namespace {
const char* const STATE_NAMES[] = {"idle", "running", "paused", "stopped", "finished", "failed"};
const int STATE_COUNT = static_cast<int>(sizeof(STATE_NAMES) / sizeof(STATE_NAMES[0]));
}  // namespace

const char* SimulatorStateName(int p_nState) {
  return p_nState >= 0 && p_nState < STATE_COUNT ? STATE_NAMES[p_nState] : "unknown";
}

const char* SimulatorErrorStateName(int p_nErrorState) {
  switch (p_nErrorState) {
    case SIMULATOR_ERROR_NONE: return "none";
    case SIMULATOR_ERROR_REFUSED: return "refused";
    case SIMULATOR_ERROR_RUN: return "run failed";
    default: return "unknown";
  }
}

bool ParseSimulatorState(const char* p_sName, int* p_pnState) {
  if (p_sName == nullptr) return false;
  for (int l_nState = 0; l_nState < STATE_COUNT; ++l_nState) {
    if (strcasecmp(p_sName, STATE_NAMES[l_nState]) == 0) {
      if (p_pnState != nullptr) *p_pnState = l_nState;
      return true;
    }
  }
  return false;
}

}  // namespace quor
