// SPDX-License-Identifier: MIT
// The simulation server end to end: a SimdServer in-process with its event
// loop on the main thread, SteeringClients on threads of their own that
// attach to the built-in SIR net, start, steer, pause, resume, stop and
// read results. Served results are compared with the engine's own runs,
// steered at the same output point.
#include <gtest/gtest.h>

#include <set>

#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"
#include "simd/netModel.h"
#include "simd_test_util.h"

using namespace quor;
using namespace quor::simd;
using namespace simd_test;

namespace {

const double BETA = 0.0003;
const double LOWER_BETA = 0.0001;
const sim::OutputGrid SIR_GRID = Grid(0, 100, 0.5);  // 201 points

bool Running(const Stats& p_rStats) { return p_rStats.state == SIMULATOR_RUNNING; }

// Sets the pace (output points per second), starts the continuous simulator
// over 0..100 every 0.5 and waits until the run is running and at least
// p_dProgress percent along.
::testing::AssertionResult StartPaced(SteeringClient& p_rClient, unsigned int p_nSpeed,
                                      double p_dProgress, Stats* p_pcStats) {
  if (p_rClient.ChanageSimulatorSpeed(p_nSpeed) != 1u)
    return ::testing::AssertionFailure() << "the speed request failed";
  if (p_rClient.CMD_Start(wxT("continuous"), 0, 100, 0.5) != 1u)
    return ::testing::AssertionFailure() << "the start request failed";
  if (!WaitForStats(
          p_rClient,
          [p_dProgress](const Stats& s) { return Running(s) && s.progress >= p_dProgress; },
          p_pcStats))
    return ::testing::AssertionFailure() << "the run did not get " << p_dProgress
                                         << " % along (state " << p_pcStats->state << ")";
  return ::testing::AssertionSuccess();
}

// The settings of a simulator as (name, value) pairs.
std::vector<std::pair<std::string, std::string> > Settings(SteeringClient& p_rClient,
                                                           const wxString& p_sSimulator) {
  SimulatorAttribute l_cSettings;
  EXPECT_EQ(p_rClient.ReceiveSimulatorSetting(p_sSimulator, &l_cSettings), 1u);
  std::vector<std::pair<std::string, std::string> > l_aSettings;
  for (unsigned int i = 0; i < l_cSettings.size(); ++i) {
    wxString l_sName, l_sCaption, l_sValue;
    unsigned int l_nGui = 0;
    double l_dMin = 0, l_dMax = 0;
    l_cSettings.GetAttribute(i, l_sName, l_sCaption, l_sValue, l_nGui, l_dMin, l_dMax);
    l_aSettings.emplace_back(Text(l_sName), Text(l_sValue));
  }
  return l_aSettings;
}

std::string ErrorMessage(SteeringClient& p_rClient) { return quor_test::ErrorMessageOf(p_rClient); }

}  // namespace

TEST_F(SimdTest, AttachedModelDescribesTheSirNet) {
  RunClient([](SteeringClient& c) {
    std::vector<wxString> l_asNames;
    ASSERT_EQ(c.GetRuningModelNames(l_asNames), 1u);
    ASSERT_EQ(l_asNames.size(), 1u);
    EXPECT_EQ(Text(l_asNames[0]), "SIR epidemic");
    Model* m = c.GetModel();
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Text(m->GetModelName()), "SIR epidemic");
    EXPECT_EQ(m->GetPlaceCount(), 3u);
    EXPECT_EQ(m->GetAttributeValueVectorString(wxT("PARAMETER_NAMES")).size(), 2u);
    EXPECT_EQ((*m->GetTransitions())[0].m_acPostConnections.at(0).weight, 2.0);
    ASSERT_EQ(m->GetModelViews()->size(), 1u);
    EXPECT_EQ((*m->GetModelViews())[0]->GetCurves()->size(), 3u);

    // Idle, with the default simulator and no pace.
    const Stats l_cStats = ReadStats(c);
    ASSERT_EQ(l_cStats.result, 1u);
    EXPECT_EQ(l_cStats.state, SIMULATOR_IDLE);
    EXPECT_EQ(l_cStats.category, "Continuous");
    EXPECT_EQ(l_cStats.algorithm, "continuous");
    EXPECT_EQ(l_cStats.speed, 0);
    int l_nState = -1;
    ASSERT_EQ(c.ReadSimulatorState(l_nState), 1u);
    EXPECT_EQ(l_nState, SIMULATOR_IDLE);
    wxString l_sFirst, l_sSecond;
    ASSERT_EQ(c.ReadCurrentSimulatorName(l_sFirst, l_sSecond), 1u);
    EXPECT_EQ(Text(l_sFirst), "Continuous");
    EXPECT_EQ(Text(l_sSecond), "continuous");

    std::vector<double> l_adMarking;
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adMarking), 1u);
    EXPECT_EQ(l_adMarking, (std::vector<double>{990, 10, 0}));
    ASSERT_EQ(c.ChanageSimulatorSpeed(30), 1u);
    EXPECT_EQ(ReadStats(c).speed, 30);
  });
  // The rows of the result matrix, as the store describes them.
  quor_test::ExpectPlaceRows(m_pcServer->Handler().GetStore(), m_nModel, 3);
}

TEST_F(SimdTest, AnUnpacedRunFinishesWithTheEnginesResults) {
  RunClient([](SteeringClient& c) {
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 100, 0.5), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.progress, 100.0);
    EXPECT_GE(l_cStats.runtime, 0.0);
    EXPECT_EQ(l_cStats.error, 0);
    const Matrix l_aadResults = ReadResults(c);
    ExpectSameMatrix(Reference(sim::SirNet(), "continuous", SIR_GRID), l_aadResults);
    // Transition rates, one row per transition: infection = beta S I.
    Matrix l_aadRates;
    ASSERT_EQ(c.ReadRateMatrix(l_aadRates), 1u);
    ASSERT_EQ(l_aadRates.size(), 2u);
    ASSERT_EQ(l_aadRates[0].size(), 201u);
    EXPECT_NEAR(l_aadRates[0][0], BETA * 990 * 10, 1e-12);
    EXPECT_NEAR(l_aadRates[1][200], 0.1 * l_aadResults[1][200], 1e-12);
    // The current marking is the end of the run.
    std::vector<double> l_adMarking;
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adMarking), 1u);
    ASSERT_EQ(l_adMarking.size(), 3u);
    for (std::size_t p = 0; p < 3; ++p) EXPECT_EQ(l_adMarking[p], l_aadResults[p][200]);
  });
}

TEST_F(SimdTest, PauseChangeResumeFollowsTheSteeredTrajectory) {
  RunClient([](SteeringClient& c) {
    ASSERT_EQ(c.ChanageSimulatorSpeed(40), 1u);
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 100, 0.5), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForStats(
        c, [](const Stats& s) { return Running(s) && s.progress >= 10.0; }, &l_cStats))
        << l_cStats.state;
    ASSERT_EQ(c.CMD_Pause(), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_PAUSED, &l_cStats)) << l_cStats.state;

    // Paused: the results hold still and the marking is that of the last point.
    const Matrix l_aadPaused = ReadResults(c);
    const std::size_t l_nPoints = Columns(l_aadPaused);
    ASSERT_GT(l_nPoints, 0u);
    ASSERT_LT(l_nPoints, 201u);
    std::vector<double> l_adMarking;
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adMarking), 1u);
    ASSERT_EQ(l_adMarking.size(), 3u);
    for (std::size_t p = 0; p < 3; ++p) EXPECT_EQ(l_adMarking[p], l_aadPaused[p][l_nPoints - 1]);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(Columns(ReadResults(c)), l_nPoints);
    EXPECT_EQ(ReadStats(c).state, SIMULATOR_PAUSED);

    ASSERT_EQ(c.ChangeCurrentParameterValues(0, LOWER_BETA), 1u);
    std::vector<double> l_adParameters;
    ASSERT_EQ(c.ReadCurrentParameterValues(l_adParameters), 1u);
    EXPECT_EQ(l_adParameters, (std::vector<double>{LOWER_BETA, 0.1}));
    // The rest of the run as fast as it goes.
    ASSERT_EQ(c.ChanageSimulatorSpeed(0), 1u);
    ASSERT_EQ(c.CMD_Resume(), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.progress, 100.0);
    EXPECT_EQ(l_cStats.speed, 0);

    const Matrix l_aadResults = ReadResults(c);
    // The run up to the pause is as it was, and beta is lower from there on.
    const Matrix l_aadExpected = Reference(
        sim::SirNet(), "continuous", SIR_GRID, [&](std::size_t p_nIndex, sim::Simulator& s) {
          if (p_nIndex + 1 == l_nPoints) s.SetParameter(0, LOWER_BETA);
        });
    ExpectSameMatrix(l_aadExpected, l_aadResults);
    // Far fewer infections than without the change: more stay susceptible.
    const Matrix l_aadUnsteered = Reference(sim::SirNet(), "continuous", SIR_GRID);
    EXPECT_GT(l_aadResults[0][200], l_aadUnsteered[0][200] + 100.0);
    EXPECT_LT(l_aadResults[2][200], l_aadUnsteered[2][200] - 100.0);
  });
}

TEST_F(SimdTest, AParameterChangeWhileRunningActsFromAnOutputPointOn) {
  RunClient([](SteeringClient& c) {
    ASSERT_EQ(c.ChanageSimulatorSpeed(20), 1u);
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 100, 0.5), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForStats(
        c, [](const Stats& s) { return Running(s) && s.progress >= 5.0; }, &l_cStats))
        << l_cStats.state;
    ASSERT_EQ(c.ChangeCurrentParameterValues(0, LOWER_BETA), 1u);
    ASSERT_EQ(c.ChanageSimulatorSpeed(0), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    const Matrix l_aadResults = ReadResults(c);
    ASSERT_EQ(Columns(l_aadResults), 201u);

    // The first point that differs from the unsteered run follows the point
    // at which the change took hold.
    const Matrix l_aadUnsteered = Reference(sim::SirNet(), "continuous", SIR_GRID);
    std::size_t l_nFirst = 0;
    while (l_nFirst < 201 && std::fabs(l_aadResults[0][l_nFirst] - l_aadUnsteered[0][l_nFirst]) <
                                 1e-9 * l_aadUnsteered[0][l_nFirst])
      ++l_nFirst;
    ASSERT_LT(l_nFirst, 201u) << "the change had no effect";
    ASSERT_GT(l_nFirst, 10u) << "the change acted before it was made";
    ExpectSameMatrix(Reference(sim::SirNet(), "continuous", SIR_GRID,
                               [&](std::size_t p_nIndex, sim::Simulator& s) {
                                 if (p_nIndex + 1 == l_nFirst) s.SetParameter(0, LOWER_BETA);
                               }),
                     l_aadResults);
    EXPECT_GT(l_aadResults[0][200], l_aadUnsteered[0][200]);
  });
}

TEST_F(SimdTest, AMarkingChangeWhilePausedHoldsFromThatPoint) {
  RunClient([](SteeringClient& c) {
    Stats l_cStats;
    ASSERT_TRUE(StartPaced(c, 40, 5.0, &l_cStats));
    ASSERT_EQ(c.CMD_Pause(), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_PAUSED, &l_cStats)) << l_cStats.state;
    const std::size_t l_nPoints = Columns(ReadResults(c));
    ASSERT_GT(l_nPoints, 0u);
    // Nobody is susceptible any more.
    ASSERT_EQ(c.ChangeCurrentPlaceValues(0, 0.0), 1u);
    std::vector<double> l_adMarking;
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adMarking), 1u);
    ASSERT_EQ(l_adMarking.size(), 3u);
    EXPECT_EQ(l_adMarking[0], 0.0);
    ASSERT_EQ(c.ChanageSimulatorSpeed(0), 1u);
    ASSERT_EQ(c.CMD_Resume(), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    const Matrix l_aadResults = ReadResults(c);
    ASSERT_EQ(Columns(l_aadResults), 201u);
    EXPECT_GT(l_aadResults[0][l_nPoints - 1], 0.0);
    for (std::size_t j = l_nPoints; j < 201; ++j) ASSERT_EQ(l_aadResults[0][j], 0.0) << j;
    ExpectSameMatrix(Reference(sim::SirNet(), "continuous", SIR_GRID,
                               [&](std::size_t p_nIndex, sim::Simulator& s) {
                                 if (p_nIndex + 1 == l_nPoints) s.SetMarking(0, 0.0);
                               }),
                     l_aadResults);
  });
}

TEST_F(SimdTest, StopEndsTheRunEarlyAndRestartRunsAnew) {
  RunClient([](SteeringClient& c) {
    Stats l_cStats;
    ASSERT_TRUE(StartPaced(c, 20, 5.0, &l_cStats));
    ASSERT_EQ(c.CMD_Stop(), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_STOPPED, &l_cStats)) << l_cStats.state;
    EXPECT_LT(l_cStats.progress, 100.0);
    const std::size_t l_nPoints = Columns(ReadResults(c));
    EXPECT_GT(l_nPoints, 0u);
    EXPECT_LT(l_nPoints, 201u);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(Columns(ReadResults(c)), l_nPoints);
    EXPECT_EQ(ReadStats(c).state, SIMULATOR_STOPPED);

    // A restart over another interval, unpaced, starts from the initial state.
    ASSERT_EQ(c.ChanageSimulatorSpeed(0), 1u);
    ASSERT_EQ(c.CMD_Restart(wxT("continuous"), 0, 50, 1), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    ExpectSameMatrix(Reference(sim::SirNet(), "continuous", Grid(0, 50, 1)), ReadResults(c));
    // The interval of the last start is the model's.
    double l_dStart = -1, l_dEnd = -1, l_dStep = -1;
    c.ReadSimulationInterval(l_dStart, l_dEnd, l_dStep);
    EXPECT_EQ(l_dEnd, 50.0);
    EXPECT_EQ(l_dStep, 1.0);
  });
}

TEST_F(SimdTest, RestartWhileRunningReplacesTheRun) {
  RunClient([](SteeringClient& c) {
    Stats l_cStats;
    ASSERT_TRUE(StartPaced(c, 20, 0.0, &l_cStats));
    // A second start is refused; the run goes on.
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 10, 1), 1u);
    EXPECT_NE(ErrorMessage(c).find("a run is going on"), std::string::npos);
    l_cStats = ReadStats(c);
    EXPECT_EQ(l_cStats.state, SIMULATOR_RUNNING);
    EXPECT_EQ(l_cStats.error, SIMULATOR_ERROR_REFUSED);
    // A restart replaces it.
    ASSERT_EQ(c.ChanageSimulatorSpeed(0), 1u);
    ASSERT_EQ(c.CMD_Restart(wxT("continuous"), 0, 10, 1), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.error, SIMULATOR_ERROR_NONE);
    EXPECT_EQ(ErrorMessage(c), "");
    ExpectSameMatrix(Reference(sim::SirNet(), "continuous", Grid(0, 10, 1)), ReadResults(c));
  });
}

TEST_F(SimdTest, RefusedRequestsLeaveAReasonAndChangeNothing) {
  RunClient([](SteeringClient& c) {
    // Nothing to pause, resume or stop.
    ASSERT_EQ(c.CMD_Pause(), 1u);
    EXPECT_NE(ErrorMessage(c).find("pause refused"), std::string::npos);
    EXPECT_EQ(ReadStats(c).error, SIMULATOR_ERROR_REFUSED);
    ASSERT_EQ(c.CMD_Resume(), 1u);
    EXPECT_NE(ErrorMessage(c).find("resume refused"), std::string::npos);
    ASSERT_EQ(c.CMD_Stop(), 1u);
    EXPECT_NE(ErrorMessage(c).find("stop refused"), std::string::npos);

    // An unusable interval.
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 100, 0), 1u);
    EXPECT_NE(ErrorMessage(c).find("step"), std::string::npos);
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 10, 5, 1), 1u);
    EXPECT_NE(ErrorMessage(c).find("start refused"), std::string::npos);
    EXPECT_EQ(ReadStats(c).state, SIMULATOR_IDLE);

    // Positions out of range and negative values.
    ASSERT_EQ(c.ChangeCurrentParameterValues(2, 1.0), 1u);
    EXPECT_NE(ErrorMessage(c).find("out of range"), std::string::npos);
    ASSERT_EQ(c.ChangeCurrentParameterValues(0, -1.0), 1u);
    EXPECT_NE(ErrorMessage(c).find("negative"), std::string::npos);
    ASSERT_EQ(c.ChangeCurrentPlaceValues(3, 1.0), 1u);
    EXPECT_NE(ErrorMessage(c).find("out of range"), std::string::npos);
    std::vector<double> l_adValues;
    ASSERT_EQ(c.ReadCurrentParameterValues(l_adValues), 1u);
    EXPECT_EQ(l_adValues, (std::vector<double>{BETA, 0.1}));
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adValues), 1u);
    EXPECT_EQ(l_adValues, (std::vector<double>{990, 10, 0}));

    // Unknown simulators and state codes.
    ASSERT_EQ(c.WriteCurrentSimulatorName(wxT("Hybrid"), wxT("tau-leaping")), 1u);
    EXPECT_NE(ErrorMessage(c).find("tau-leaping"), std::string::npos);
    ASSERT_EQ(c.WriteSimulatorState(SIMULATOR_FINISHED), 1u);
    EXPECT_NE(ErrorMessage(c).find("cannot be written"), std::string::npos);
    EXPECT_EQ(ReadStats(c).state, SIMULATOR_IDLE);
    // The list of simulators is the server's.
    ASSERT_EQ(c.WriteAvailableSimulators({}), 1u);
    std::vector<QU_SimulatorCategory> l_aSimulators;
    ASSERT_EQ(c.ReadAvailableSimulators(l_aSimulators), 1u);
    EXPECT_EQ(l_aSimulators.size(), 2u);

    // A good start clears the error.
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 5, 1), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.error, SIMULATOR_ERROR_NONE);
  });
}

TEST_F(SimdTest, ResetsReturnToTheInitialValuesAlsoDuringARun) {
  RunClient([](SteeringClient& c) {
    ASSERT_EQ(c.ChangeCurrentParameterValues(0, LOWER_BETA), 1u);
    ASSERT_EQ(c.ChangeCurrentPlaceValues(1, 500), 1u);
    std::vector<double> l_adValues;
    ASSERT_EQ(c.ReadCurrentParameterValues(l_adValues), 1u);
    EXPECT_EQ(l_adValues, (std::vector<double>{LOWER_BETA, 0.1}));
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adValues), 1u);
    EXPECT_EQ(l_adValues, (std::vector<double>{990, 500, 0}));
    ASSERT_EQ(c.ResetParameterValues(), 1u);
    ASSERT_EQ(c.ResetMarkingValues(), 1u);
    ASSERT_EQ(c.ReadCurrentParameterValues(l_adValues), 1u);
    EXPECT_EQ(l_adValues, (std::vector<double>{BETA, 0.1}));
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adValues), 1u);
    EXPECT_EQ(l_adValues, (std::vector<double>{990, 10, 0}));

    // During a run: steer, pause, reset; the run goes on with beta as it was.
    Stats l_cStats;
    ASSERT_TRUE(StartPaced(c, 40, 5.0, &l_cStats));
    ASSERT_EQ(c.CMD_Pause(), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_PAUSED, &l_cStats));
    ASSERT_EQ(c.ChangeCurrentParameterValues(0, LOWER_BETA), 1u);
    ASSERT_EQ(c.ResetParameterValues(), 1u);
    ASSERT_EQ(c.ReadCurrentParameterValues(l_adValues), 1u);
    EXPECT_EQ(l_adValues, (std::vector<double>{BETA, 0.1}));
    ASSERT_EQ(c.ChanageSimulatorSpeed(0), 1u);
    ASSERT_EQ(c.CMD_Resume(), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats));
    ExpectSameMatrix(Reference(sim::SirNet(), "continuous", SIR_GRID), ReadResults(c));
  });
}

TEST_F(SimdTest, WritingTheStateCommandsTheRun) {
  RunClient([](SteeringClient& c) {
    ASSERT_EQ(c.ChanageSimulatorSpeed(20), 1u);
    ASSERT_EQ(c.CMD_Start(wxT(""), 0, 100, 0.5), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForStats(c, Running, &l_cStats));
    ASSERT_EQ(c.WriteSimulatorState(SIMULATOR_PAUSED), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_PAUSED, &l_cStats)) << l_cStats.state;
    ASSERT_EQ(c.WriteSimulatorState(SIMULATOR_RUNNING), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_RUNNING, &l_cStats)) << l_cStats.state;
    // Statistics written by a client change the speed only.
    ModelRuntimeState l_cWritten;
    l_cWritten.SetAttributeValue(wxT("SIMULATOR_SPEED"), 0);
    l_cWritten.SetAttributeValue(wxT("SIMULATOR_STATE"), static_cast<int>(SIMULATOR_FAILED));
    ASSERT_EQ(c.WriteModelStatistics(l_cWritten), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.speed, 0);
    EXPECT_EQ(Columns(ReadResults(c)), 201u);
    ASSERT_EQ(c.WriteSimulatorState(SIMULATOR_STOPPED), 1u);
    EXPECT_NE(ErrorMessage(c).find("stop refused"), std::string::npos);
  });
}

TEST_F(SimdTest, SettingsAreCheckedByNameAndTheStochasticSimulatorUsesThem) {
  RunClient([](SteeringClient& c) {
    std::vector<QU_SimulatorCategory> l_aSimulators;
    ASSERT_EQ(c.ReadAvailableSimulators(l_aSimulators), 1u);
    ASSERT_EQ(l_aSimulators.size(), 2u);
    EXPECT_EQ(Text(l_aSimulators[0].m_sCategoryName), "Continuous");
    EXPECT_EQ(Text(l_aSimulators[1].m_asSimulatorNames.at(0)), "stochastic");

    const auto l_aContinuous = Settings(c, wxT("continuous"));
    std::set<std::string> l_asNames;
    for (const auto& l_cSetting : l_aContinuous) l_asNames.insert(l_cSetting.first);
    EXPECT_EQ(l_asNames,
              (std::set<std::string>{"AbsoluteTolerance", "RelativeTolerance", "MaxStep", "Method",
                                     "StepLimit", "LinearSolver"}));
    EXPECT_EQ(Settings(c, wxT("stochastic")),
              (std::vector<std::pair<std::string, std::string> >{{"Seed", "1"}, {"Runs", "1"}}));

    // One good setting and one out of range: the good one is taken.
    SimulatorAttribute l_cWrite;
    l_cWrite.AddAttribute(wxT("MaxStep"), wxT(""), wxT("0.25"), 2, 0, 0);
    l_cWrite.AddAttribute(wxT("RelativeTolerance"), wxT(""), wxT("-1"), 2, 0, 0);
    ASSERT_EQ(c.SendSimulatorSetting(wxT("continuous"), &l_cWrite), 1u);
    EXPECT_NE(ErrorMessage(c).find("RelativeTolerance"), std::string::npos);
    for (const auto& l_cSetting : Settings(c, wxT("continuous"))) {
      if (l_cSetting.first == "MaxStep") {
        EXPECT_EQ(l_cSetting.second, "0.25");
      }
      if (l_cSetting.first == "RelativeTolerance") {
        EXPECT_EQ(l_cSetting.second, "1e-07");
      }
    }
    SimulatorAttribute l_cSeed;
    l_cSeed.AddAttribute(wxT("Seed"), wxT("Random seed"), wxT("42"), 1, 0, 0);
    ASSERT_EQ(c.SendSimulatorSetting(wxT("Stochastic"), &l_cSeed), 1u);
    EXPECT_EQ(Settings(c, wxT("stochastic")),
              (std::vector<std::pair<std::string, std::string> >{{"Seed", "42"}, {"Runs", "1"}}));

    // The stochastic simulator becomes the model's, and a start that names
    // the model (no simulator) uses it.
    ASSERT_EQ(c.WriteCurrentSimulatorName(wxT("Stochastic"), wxT("stochastic")), 1u);
    wxString l_sFirst, l_sSecond;
    ASSERT_EQ(c.ReadCurrentSimulatorName(l_sFirst, l_sSecond), 1u);
    EXPECT_EQ(Text(l_sSecond), "stochastic");
    ASSERT_EQ(c.CMD_Start(wxT("SIR epidemic"), 0, 40, 1), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.category, "Stochastic");
    EXPECT_EQ(l_cStats.algorithm, "stochastic");
    const Matrix l_aadResults = ReadResults(c);
    ASSERT_EQ(Columns(l_aadResults), 41u);
    for (std::size_t j = 0; j < 41; ++j) {
      EXPECT_EQ(l_aadResults[0][j] + l_aadResults[1][j] + l_aadResults[2][j], 1000.0);
      EXPECT_EQ(l_aadResults[1][j], std::round(l_aadResults[1][j]));
    }
    // Seed 42, bit for bit.
    EXPECT_EQ(l_aadResults, Reference(sim::SirNet(), "stochastic", Grid(0, 40, 1),
                                      [](std::size_t, sim::Simulator&) {}, {{"Seed", "42"}}));
  });
}

TEST_F(SimdTest, TwoClientsSeeTheSameRun) {
  std::atomic<bool> l_bStarted{false};
  std::atomic<bool> l_bWatched{false};
  RunClients({[&](SteeringClient& c) {
                ASSERT_EQ(c.ChanageSimulatorSpeed(10), 1u);
                ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 100, 0.5), 1u);
                Stats l_cStats;
                EXPECT_TRUE(WaitForStats(c, Running, &l_cStats));
                l_bStarted = true;
                // Until the watcher has paused the run.
                EXPECT_TRUE(WaitForState(c, SIMULATOR_PAUSED, &l_cStats)) << l_cStats.state;
                ASSERT_EQ(c.ChanageSimulatorSpeed(0), 1u);
                ASSERT_EQ(c.CMD_Resume(), 1u);
                EXPECT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
                const auto l_tDeadline =
                    std::chrono::steady_clock::now() + std::chrono::milliseconds(DEADLINE_MS);
                while (!l_bWatched && std::chrono::steady_clock::now() < l_tDeadline)
                  std::this_thread::sleep_for(std::chrono::milliseconds(5));
              },
              [&](SteeringClient& c) {
                const auto l_tDeadline =
                    std::chrono::steady_clock::now() + std::chrono::milliseconds(DEADLINE_MS);
                while (!l_bStarted && std::chrono::steady_clock::now() < l_tDeadline)
                  std::this_thread::sleep_for(std::chrono::milliseconds(5));
                ASSERT_EQ(c.CMD_Pause(), 1u);
                Stats l_cStats;
                EXPECT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
                ExpectSameMatrix(Reference(sim::SirNet(), "continuous", SIR_GRID),
                                 ReadResults(c));
                l_bWatched = true;
              }});
}

TEST_F(SimdTest, AnUploadedModelRunsToo) {
  // The client brings the SIR net with another recovery rate.
  std::unique_ptr<Model> l_pcModel(NetToModel(sim::SirNet(), wxT("my SIR")));
  l_pcModel->SetInitialParameterValues({BETA, 0.2});
  std::atomic<bool> l_bDone{false};
  auto l_fBody = [&] {
    SteeringClient c(wxT("127.0.0.1"), Service());
    c.SetTimeout(30);
    ASSERT_EQ(c.ConnectToServer(true), 1u);
    ASSERT_EQ(c.Initialize(l_pcModel.get()), 1u);
    std::vector<wxString> l_asNames;
    ASSERT_EQ(c.GetRuningModelNames(l_asNames), 1u);
    EXPECT_EQ(l_asNames.size(), 2u);
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 20, 1), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    sim::Net l_cNet = sim::SirNet();
    l_cNet.parameters[1].value = 0.2;
    ExpectSameMatrix(Reference(l_cNet, "continuous", Grid(0, 20, 1)), ReadResults(c));
  };
  std::thread l_cClient([&] {
    l_fBody();
    l_bDone = true;
  });
  EXPECT_TRUE(quor_test::RunEventLoopUntil([&] { return l_bDone.load(); }, 4 * DEADLINE_MS));
  l_cClient.join();
}

TEST_F(SimdTest, RemovingAModelStopsItsRun) {
  RunClient([](SteeringClient& c) {
    Stats l_cStats;
    ASSERT_TRUE(StartPaced(c, 20, 0.0, &l_cStats));
    int l_nResult = 0;
    ASSERT_EQ(c.RemoveModel(wxT("SIR epidemic"), l_nResult), 1u);
    EXPECT_EQ(l_nResult, 1);
    std::vector<wxString> l_asNames;
    ASSERT_EQ(c.GetRuningModelNames(l_asNames), 1u);
    EXPECT_TRUE(l_asNames.empty());
  });
  EXPECT_EQ(m_pcServer->Handler().GetRunner(m_nModel), nullptr);
}

TEST(SimdServerModels, ServesTheNetsThatLoadedAndNamesTheFileThatDidNot) {
  TempFile l_cBroken("unreadable.pnml", "<pnml><net id=\"x\"><place id=\"p\"></net>");
  const LoadedNets l_cLoaded =
      LoadNets({l_cBroken.Path(), std::string(QUOR_MODELS_DIR) + "/sir.pnml"});
  ASSERT_EQ(l_cLoaded.errors.size(), 1u);
  EXPECT_NE(l_cLoaded.errors[0].find(l_cBroken.Path()), std::string::npos) << l_cLoaded.errors[0];

  SimdServer l_cServer;
  for (const sim::Net& l_rNet : l_cLoaded.nets) l_cServer.AddNet(l_rNet);
  ASSERT_TRUE(l_cServer.Start(0));
  std::atomic<bool> l_bDone{false};
  std::vector<wxString> l_asNames;
  unsigned int l_nResult = 0;
  std::thread l_cClient([&] {
    {
      SteeringClient c(wxT("127.0.0.1"), wxString::Format(wxT("%u"), l_cServer.GetPort()));
      if (c.ConnectToServer(true) == 1) l_nResult = c.GetRuningModelNames(l_asNames);
    }
    l_bDone = true;
  });
  EXPECT_TRUE(quor_test::RunEventLoopUntil([&] { return l_bDone.load(); }, DEADLINE_MS));
  l_cClient.join();
  l_cServer.Shutdown();
  ASSERT_EQ(l_nResult, 1u);
  ASSERT_EQ(l_asNames.size(), 1u);
  EXPECT_EQ(Text(l_asNames[0]), Text(FromStd(l_cLoaded.nets[0].name)));
}
