// SPDX-License-Identifier: MIT
// The example nets of models/ do what their comments (and the README) say.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

#include "simcore/netLoader.h"
#include "simcore/simulator.h"
#include "sim_test_util.h"

using namespace quor::sim;
using sim_test::Grid;

namespace {

Net Example(const std::string& p_sFile) {
  NetLoadResult l_cResult = LoadNetFile(std::string(QUOR_MODELS_DIR) + "/" + p_sFile);
  EXPECT_TRUE(l_cResult) << l_cResult.error;
  return l_cResult.net;
}

std::unique_ptr<Simulator> Continuous(const Net& p_rNet) {
  std::string l_sError;
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", p_rNet, &l_sError);
  EXPECT_TRUE(l_pSimulator) << l_sError;
  return l_pSimulator;
}

}  // namespace

TEST(Examples, RobertsonReachesTheLiteratureValuesAndTheFarFuture) {
  const Net l_cNet = Example("robertson.pnml");
  ASSERT_EQ(l_cNet.places.size(), 3u);
  std::unique_ptr<Simulator> l_pSimulator = Continuous(l_cNet);
  ASSERT_TRUE(l_pSimulator);
  RunResult l_cRun = RunSimulation(*l_pSimulator, l_cNet.grid);
  ASSERT_EQ(l_cRun.status, RunStatus::Completed) << l_cRun.error;
  ASSERT_EQ(l_cRun.times.back(), 40.0);
  EXPECT_NEAR(l_cRun.marking[0].back(), 0.7158, 1e-3 * 0.7158);
  EXPECT_NEAR(l_cRun.marking[1].back(), 9.185e-6, 1e-3 * 9.185e-6);
  EXPECT_NEAR(l_cRun.marking[2].back(), 0.2842, 1e-3 * 0.2842);
  // The long view of the comment.
  l_pSimulator->Reset();
  l_cRun = RunSimulation(*l_pSimulator, Grid(0.0, 4e10, 4e8));
  ASSERT_EQ(l_cRun.status, RunStatus::Completed) << l_cRun.error;
  EXPECT_EQ(l_pSimulator->Time(), 4e10);
  EXPECT_GT(l_cRun.marking[2].back(), 0.999);
}

TEST(Examples, TheEnzymeSettlesWhereConversionMatchesSupplyAndSaturatesAboveIt) {
  const Net l_cNet = Example("michaelis-menten.pnml");
  ASSERT_EQ(l_cNet.transitions[1].rateKind, RateKind::Function);
  std::unique_ptr<Simulator> l_pSimulator = Continuous(l_cNet);
  ASSERT_TRUE(l_pSimulator);
  RunResult l_cRun = RunSimulation(*l_pSimulator, l_cNet.grid);
  ASSERT_EQ(l_cRun.status, RunStatus::Completed) << l_cRun.error;
  // S = Km supply / (kcat E - supply) = 20 * 2 / 3; E stays 1.
  EXPECT_NEAR(l_cRun.marking[0].back(), 40.0 / 3.0, 0.05);
  EXPECT_EQ(l_cRun.marking[1].back(), 1.0);
  // Supply 6 > kcat E = 5: S grows by about 1 per unit of time.
  ASSERT_TRUE(l_pSimulator->SetParameter(0, 6.0));
  const double l_dBefore = l_pSimulator->Marking()[0];
  ASSERT_EQ(l_pSimulator->AdvanceTo(250.0), AdvanceStatus::Reached);
  EXPECT_GT(l_pSimulator->Marking()[0] - l_dBefore, 60.0);
  // The stochastic simulator runs the function rate on whole tokens.
  std::unique_ptr<Simulator> l_pStochastic = CreateSimulator("stochastic", l_cNet);
  ASSERT_TRUE(l_pStochastic);
  ASSERT_EQ(l_pStochastic->AdvanceTo(60.0), AdvanceStatus::Reached);
  EXPECT_LT(l_pStochastic->Marking()[0], 60.0);
}

TEST(Examples, TheKinaseCascadeSwitchesWithItsSignal) {
  const Net l_cNet = Example("mapk-cascade.xml");
  ASSERT_EQ(l_cNet.places.size(), 7u);
  ASSERT_EQ(l_cNet.transitions.size(), 6u);
  const std::size_t l_nSignal = l_cNet.FindPlace("Signal"), l_nActive = l_cNet.FindPlace("Kp");
  ASSERT_NE(l_nActive, kNoIndex);
  EXPECT_EQ(l_cNet.places[l_nSignal].initialMarking, 2.0);
  auto l_fActiveAt100 = [&](double p_dSignal) {
    std::unique_ptr<Simulator> l_pSimulator = Continuous(l_cNet);
    EXPECT_TRUE(l_pSimulator->SetMarking(l_nSignal, p_dSignal));
    EXPECT_EQ(l_pSimulator->AdvanceTo(100.0), AdvanceStatus::Reached) << l_pSimulator->LastError();
    // Signal is only read.
    EXPECT_EQ(l_pSimulator->Marking()[l_nSignal], p_dSignal);
    return l_pSimulator->Marking()[l_nActive];
  };
  EXPECT_GT(l_fActiveAt100(2.0), 580.0);
  EXPECT_GT(l_fActiveAt100(1.0), 570.0);
  EXPECT_LT(l_fActiveAt100(0.6), 40.0);
}
