// SPDX-License-Identifier: MIT
// The README's steerable simulation (apps/examples/quor-example-run) as a
// child process: a client paces and starts its decay, pauses it, lowers and
// raises k while it waits, resumes and stops it, and the results follow the
// steered k from the paused point on.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "quor/steeringclient.h"
#include "simd_test_util.h"

using namespace quor;
using namespace simd_test;

namespace {

const std::string PROGRAM = QUOR_EXAMPLE_RUN_PROGRAM;

// Column j of X follows column j - 1 by the factor exp(-k) (one time unit).
void ExpectDecay(const std::vector<double>& p_adX, std::size_t p_nFrom, std::size_t p_nTo,
                 double p_dK) {
  for (std::size_t j = p_nFrom; j < p_nTo; ++j)
    EXPECT_DOUBLE_EQ(p_adX[j], p_adX[j - 1] * std::exp(-p_dK)) << "column " << j;
}

}  // namespace

TEST(ExampleRun, AClientStartsSteersPausesResumesAndStopsIt) {
  Child l_cProgram({PROGRAM});
  ASSERT_TRUE(l_cProgram.Started());
  const unsigned int l_nPort = WaitForPort(l_cProgram, "listening on port ");
  ASSERT_NE(l_nPort, 0u) << l_cProgram.Err();

  SteeringClient c(wxT("127.0.0.1"), wxString::Format(wxT("%u"), l_nPort));
  c.SetTimeout(30);
  ASSERT_EQ(c.ConnectToServer(true), 1u);
  ASSERT_EQ(c.Initialize(0), 1u);
  EXPECT_EQ(Text(c.GetModel()->GetModelName()), "decay");

  // 101 points at 20 per second: five seconds.
  ASSERT_EQ(c.ChanageSimulatorSpeed(20), 1u);
  ASSERT_EQ(c.CMD_Start(wxT("decay"), 0, 100, 1), 1u);
  Stats l_cStats;
  ASSERT_TRUE(WaitForStats(
      c, [](const Stats& s) { return s.state == SIMULATOR_RUNNING && s.progress >= 5; },
      &l_cStats))
      << l_cStats.state;
  ASSERT_EQ(c.CMD_Pause(), 1u);
  ASSERT_TRUE(WaitForState(c, SIMULATOR_PAUSED, &l_cStats)) << l_cStats.state;
  const std::size_t l_nPaused = Columns(ReadResults(c));
  ASSERT_GE(l_nPaused, 5u);
  ASSERT_LT(l_nPaused, 101u);

  // While it waits: k = 0.5 from the paused point on.
  ASSERT_EQ(c.ChangeCurrentParameterValues(0, 0.5), 1u);
  std::vector<double> l_adK;
  ASSERT_EQ(c.ReadCurrentParameterValues(l_adK), 1u);
  EXPECT_EQ(l_adK, (std::vector<double>{0.5}));
  ASSERT_EQ(c.CMD_Resume(), 1u);
  ASSERT_TRUE(WaitForStats(
      c,
      [&](const Stats& s) {
        return s.state == SIMULATOR_RUNNING && s.progress * 101 / 100 >= l_nPaused + 3;
      },
      &l_cStats))
      << l_cStats.state;
  ASSERT_EQ(c.CMD_Stop(), 1u);
  ASSERT_TRUE(WaitForState(c, SIMULATOR_STOPPED, &l_cStats)) << l_cStats.state;

  const Matrix l_aadResults = ReadResults(c);
  ASSERT_EQ(l_aadResults.size(), 1u);
  const std::vector<double>& l_adX = l_aadResults[0];
  ASSERT_GE(l_adX.size(), l_nPaused + 3);
  ASSERT_LT(l_adX.size(), 101u);
  EXPECT_EQ(l_adX[0], 100.0);
  ExpectDecay(l_adX, 1, l_nPaused, 0.1);
  ExpectDecay(l_adX, l_nPaused, l_adX.size(), 0.5);
  wxString l_sLog;
  ASSERT_EQ(c.ReadLogMessage(l_sLog), 1u);
  EXPECT_NE(Text(l_sLog).find("run stopped after"), std::string::npos) << Text(l_sLog);
  delete c.GetModel();
}

// The README's guide shows the program as it stands (all but its licence line).
TEST(ExampleRun, IsTheProgramOfTheReadme) {
  std::ifstream l_cProgram(QUOR_EXAMPLE_RUN_SOURCE), l_cReadme(QUOR_README);
  ASSERT_TRUE(l_cProgram && l_cReadme);
  std::stringstream l_cSource, l_cGuide;
  l_cSource << l_cProgram.rdbuf();
  l_cGuide << l_cReadme.rdbuf();
  const std::string l_sSource = l_cSource.str();
  const std::string l_sShown = l_sSource.substr(l_sSource.find('\n') + 1);
  EXPECT_NE(l_cGuide.str().find("```cpp\n" + l_sShown + "```\n"), std::string::npos)
      << "README.md does not show apps/examples/quor-example-run.cpp";
}
