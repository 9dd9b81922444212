// SPDX-License-Identifier: MIT
// Small helpers shared by the engine's tests.
#ifndef QUOR_TESTS_SIM_TEST_UTIL_H
#define QUOR_TESTS_SIM_TEST_UTIL_H

#include "simcore/net.h"

namespace sim_test {

inline quor::sim::OutputGrid Grid(double p_dStart, double p_dEnd, double p_dStep) {
  quor::sim::OutputGrid l_cGrid;
  l_cGrid.start = p_dStart;
  l_cGrid.end = p_dEnd;
  l_cGrid.step = p_dStep;
  return l_cGrid;
}

}  // namespace sim_test

#endif  // QUOR_TESTS_SIM_TEST_UTIL_H
