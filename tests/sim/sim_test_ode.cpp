// SPDX-License-Identifier: MIT
// The continuous simulator against closed-form solutions, invariants and
// steering changes, with each of its methods (BDF and Adams through CVODE,
// Dormand-Prince), and what belongs to one method alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <atomic>
#include <cmath>
#include <memory>

#include "simcore/builtinModels.h"
#include "simcore/odeSimulator.h"
#include "simcore/pnmlLoader.h"
#include "simcore/simulator.h"
#include "sim_test_util.h"

using namespace quor::sim;
using sim_test::Grid;

namespace {

// A -> (nothing) with rate constant k, given as a number or as parameter "k".
Net DecayNet(double p_dA0, double p_dK, bool p_bAsParameter) {
  Net l_cNet;
  l_cNet.id = "decay";
  l_cNet.AddPlace("A", p_dA0);
  if (p_bAsParameter) {
    l_cNet.AddParameter("k", p_dK);
    l_cNet.AddParameterTransition("decay", "k");
  } else {
    l_cNet.AddTransition("decay", p_dK);
  }
  l_cNet.AddInputArc("A", "decay");
  return l_cNet;
}

void Tighten(Simulator& p_rSimulator) {
  ASSERT_TRUE(p_rSimulator.ApplySetting("AbsoluteTolerance", "1e-12"));
  ASSERT_TRUE(p_rSimulator.ApplySetting("RelativeTolerance", "1e-10"));
}

const char* const kMethods[] = {"BDF", "Adams", "Dormand-Prince"};

}  // namespace

// The tests that every method must pass; the parameter is the method.
class OdeMethod : public ::testing::TestWithParam<const char*> {
 protected:
  void Use(Simulator& p_rSimulator) { ASSERT_TRUE(p_rSimulator.ApplySetting("Method", GetParam())); }
  void UseTight(Simulator& p_rSimulator) {
    Use(p_rSimulator);
    Tighten(p_rSimulator);
  }
};

INSTANTIATE_TEST_SUITE_P(Methods, OdeMethod, ::testing::ValuesIn(kMethods),
                         [](const ::testing::TestParamInfo<const char*>& p_rInfo) {
                           std::string l_sName = p_rInfo.param;
                           l_sName.erase(std::remove(l_sName.begin(), l_sName.end(), '-'),
                                         l_sName.end());
                           return l_sName;
                         });

TEST_P(OdeMethod, ExponentialDecayMatchesClosedForm) {
  const double l_dA0 = 100.0, l_dK = 0.3;
  OdeSimulator l_cSimulator(DecayNet(l_dA0, l_dK, false));
  UseTight(l_cSimulator);
  RunResult l_cResult = RunSimulation(l_cSimulator, Grid(0.0, 20.0, 0.5));
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  ASSERT_EQ(l_cResult.times.size(), 41u);
  ASSERT_EQ(l_cResult.marking.size(), 1u);
  ASSERT_EQ(l_cResult.rates.size(), 1u);
  for (std::size_t i = 0; i < l_cResult.times.size(); ++i) {
    double t = l_cResult.times[i];
    double l_dExact = l_dA0 * std::exp(-l_dK * t);
    EXPECT_NEAR(l_cResult.marking[0][i], l_dExact, 1e-7 * l_dA0) << "t = " << t;
    EXPECT_NEAR(l_cResult.rates[0][i], l_dK * l_dExact, 1e-7 * l_dA0) << "t = " << t;
  }
  EXPECT_GT(l_cSimulator.AcceptedSteps(), 0u);
}

TEST_P(OdeMethod, LinearChainMatchesClosedForm) {
  // A -> B -> C with k1 = 0.5, k2 = 0.2:
  //   A = A0 e^{-k1 t}, B = A0 k1 / (k2 - k1) (e^{-k1 t} - e^{-k2 t}), C = A0 - A - B.
  const double l_dA0 = 50.0, l_dK1 = 0.5, l_dK2 = 0.2;
  Net l_cNet;
  l_cNet.AddPlace("A", l_dA0);
  l_cNet.AddPlace("B", 0.0);
  l_cNet.AddPlace("C", 0.0);
  l_cNet.AddTransition("t1", l_dK1);
  l_cNet.AddTransition("t2", l_dK2);
  l_cNet.AddInputArc("A", "t1");
  l_cNet.AddOutputArc("t1", "B");
  l_cNet.AddInputArc("B", "t2");
  l_cNet.AddOutputArc("t2", "C");
  std::string l_sError;
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", l_cNet, &l_sError);
  ASSERT_TRUE(l_pSimulator) << l_sError;
  UseTight(*l_pSimulator);
  RunResult l_cResult = RunSimulation(*l_pSimulator, Grid(0.0, 30.0, 0.25));
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  ASSERT_EQ(l_cResult.times.size(), 121u);
  double l_dMaxB = 0.0;
  for (std::size_t i = 0; i < l_cResult.times.size(); ++i) {
    double t = l_cResult.times[i];
    double l_dA = l_dA0 * std::exp(-l_dK1 * t);
    double l_dB = l_dA0 * l_dK1 / (l_dK2 - l_dK1) * (std::exp(-l_dK1 * t) - std::exp(-l_dK2 * t));
    double l_dC = l_dA0 - l_dA - l_dB;
    EXPECT_NEAR(l_cResult.marking[0][i], l_dA, 1e-7) << "t = " << t;
    EXPECT_NEAR(l_cResult.marking[1][i], l_dB, 1e-7) << "t = " << t;
    EXPECT_NEAR(l_cResult.marking[2][i], l_dC, 1e-7) << "t = " << t;
    EXPECT_NEAR(l_cResult.rates[1][i], l_dK2 * l_dB, 1e-7) << "t = " << t;
    l_dMaxB = std::max(l_dMaxB, l_cResult.marking[1][i]);
  }
  EXPECT_GT(l_dMaxB, 10.0);  // the intermediate really rises and falls
}

TEST_P(OdeMethod, LotkaVolterraKeepsItsInvariant) {
  // birth: x -> 2x (alpha), predation: x + y -> 2y (beta), death: y -> (gamma).
  //   x' = alpha x - beta x y,  y' = beta x y - gamma y
  // conserve V = beta x - gamma ln x + beta y - alpha ln y.
  const double l_dAlpha = 1.0, l_dBeta = 0.01, l_dGamma = 1.0;
  Net l_cNet;
  l_cNet.AddParameter("alpha", l_dAlpha);
  l_cNet.AddParameter("beta", l_dBeta);
  l_cNet.AddParameter("gamma", l_dGamma);
  l_cNet.AddPlace("prey", 150.0);
  l_cNet.AddPlace("predator", 100.0);
  l_cNet.AddParameterTransition("birth", "alpha");
  l_cNet.AddParameterTransition("predation", "beta");
  l_cNet.AddParameterTransition("death", "gamma");
  l_cNet.AddInputArc("prey", "birth");
  l_cNet.AddOutputArc("birth", "prey", 2.0);
  l_cNet.AddInputArc("prey", "predation");
  l_cNet.AddInputArc("predator", "predation");
  l_cNet.AddOutputArc("predation", "predator", 2.0);
  l_cNet.AddInputArc("predator", "death");
  OdeSimulator l_cSimulator(l_cNet);
  UseTight(l_cSimulator);
  auto l_Invariant = [&](double x, double y) {
    return l_dBeta * x - l_dGamma * std::log(x) + l_dBeta * y - l_dAlpha * std::log(y);
  };
  const double l_dV0 = l_Invariant(150.0, 100.0);
  RunResult l_cResult = RunSimulation(l_cSimulator, Grid(0.0, 30.0, 0.1));
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  double l_dMinPrey = 1e300, l_dMaxPrey = 0.0;
  int l_nUpCrossings = 0;
  for (std::size_t i = 0; i < l_cResult.times.size(); ++i) {
    double x = l_cResult.marking[0][i], y = l_cResult.marking[1][i];
    EXPECT_NEAR(l_Invariant(x, y), l_dV0, 1e-8 * std::fabs(l_dV0)) << "t = " << l_cResult.times[i];
    l_dMinPrey = std::min(l_dMinPrey, x);
    l_dMaxPrey = std::max(l_dMaxPrey, x);
    if (i > 0 && l_cResult.marking[0][i - 1] < 100.0 && x >= 100.0) ++l_nUpCrossings;
  }
  // A few periods really happened, with the amplitude of the start.
  EXPECT_GE(l_nUpCrossings, 4);
  EXPECT_NEAR(l_dMaxPrey, 150.0, 1.0);
  EXPECT_LT(l_dMinPrey, 70.0);
}

TEST_P(OdeMethod, TighterTolerancesGiveSmallerErrors) {
  // The largest relative error of exponential decay over 0..20 for a loose
  // and a tight tolerance: both within what was asked, the tight one far
  // smaller, at the price of more steps.
  const double l_dK = 0.7;
  auto l_MaxError = [&](const char* p_sTolerance, unsigned long long& p_rnSteps) {
    OdeSimulator l_cSimulator(DecayNet(1.0, l_dK, false));
    Use(l_cSimulator);
    EXPECT_TRUE(l_cSimulator.ApplySetting("AbsoluteTolerance", p_sTolerance));
    EXPECT_TRUE(l_cSimulator.ApplySetting("RelativeTolerance", p_sTolerance));
    RunResult l_cResult = RunSimulation(l_cSimulator, Grid(0.0, 20.0, 1.0));
    EXPECT_EQ(l_cResult.status, RunStatus::Completed);
    double l_dMax = 0.0;
    for (std::size_t i = 0; i < l_cResult.times.size(); ++i) {
      double l_dExact = std::exp(-l_dK * l_cResult.times[i]);
      l_dMax = std::max(l_dMax, std::fabs(l_cResult.marking[0][i] - l_dExact));
    }
    p_rnSteps = l_cSimulator.AcceptedSteps();
    return l_dMax;
  };
  unsigned long long l_nLooseSteps = 0, l_nTightSteps = 0;
  double l_dLoose = l_MaxError("1e-4", l_nLooseSteps);
  double l_dTight = l_MaxError("1e-10", l_nTightSteps);
  EXPECT_LT(l_dLoose, 1e-3);
  EXPECT_GT(l_dLoose, 1e-8);
  EXPECT_LT(l_dTight, 1e-9);
  EXPECT_LT(l_dTight * 1000.0, l_dLoose);
  EXPECT_GT(l_nTightSteps, 3 * l_nLooseSteps);
}

TEST_P(OdeMethod, OutputPointsAreExactAndNoneIsSkipped) {
  OdeSimulator l_cSimulator(DecayNet(10.0, 1.0, false));
  Use(l_cSimulator);
  OutputGrid l_cGrid = Grid(1.0, 4.0, 0.1);  // 0.1 is not exact in binary
  l_cSimulator.Reset(NetState{1.0, {10.0}, {}});
  std::vector<double> l_adSeen;
  RunResult l_cResult = RunSimulation(l_cSimulator, l_cGrid, [&](std::size_t i, double t, Simulator& s) {
    EXPECT_EQ(s.Time(), t);
    EXPECT_EQ(t, 1.0 + static_cast<double>(i) * 0.1);
    l_adSeen.push_back(t);
    return true;
  });
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  ASSERT_EQ(l_adSeen.size(), 31u);
  EXPECT_EQ(l_cResult.times, l_adSeen);
  EXPECT_DOUBLE_EQ(l_adSeen.back(), 4.0);
  EXPECT_NEAR(l_cResult.marking[0].back(), 10.0 * std::exp(-3.0), 1e-6);
}

TEST(OdeSimulator, MaxStepLimitsTheDormandPrinceStepSize) {
  OdeSimulator l_cSimulator(DecayNet(10.0, 0.01, false));
  ASSERT_TRUE(l_cSimulator.ApplySetting("Method", "Dormand-Prince"));
  ASSERT_TRUE(l_cSimulator.ApplySetting("MaxStep", "0.01"));
  ASSERT_EQ(l_cSimulator.AdvanceTo(10.0), AdvanceStatus::Reached);
  EXPECT_GE(l_cSimulator.AcceptedSteps(), 1000u);
  OdeSimulator l_cFree(DecayNet(10.0, 0.01, false));
  ASSERT_TRUE(l_cFree.ApplySetting("Method", "Dormand-Prince"));
  ASSERT_EQ(l_cFree.AdvanceTo(10.0), AdvanceStatus::Reached);
  EXPECT_LT(l_cFree.AcceptedSteps(), 100u);
  EXPECT_NEAR(l_cSimulator.Marking()[0], l_cFree.Marking()[0], 1e-6);
}

TEST_P(OdeMethod, ParameterChangeTakesEffectAtOnce) {
  const double l_dK = 0.4;
  OdeSimulator l_cSimulator(DecayNet(100.0, l_dK, true));
  UseTight(l_cSimulator);
  // At t = 5 the decay stops; at t = 10 it resumes at twice the rate.
  RunResult l_cResult =
      RunSimulation(l_cSimulator, Grid(0.0, 15.0, 0.5), [&](std::size_t, double t, Simulator& s) {
        if (t == 5.0) {
          EXPECT_TRUE(s.SetParameter(0, 0.0));
        }
        if (t == 10.0) {
          EXPECT_TRUE(s.SetParameter(0, 2.0 * l_dK));
        }
        return true;
      });
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  const double l_dAt5 = 100.0 * std::exp(-l_dK * 5.0);
  for (std::size_t i = 0; i < l_cResult.times.size(); ++i) {
    double t = l_cResult.times[i], l_dA = l_cResult.marking[0][i];
    if (t <= 5.0) {
      EXPECT_NEAR(l_dA, 100.0 * std::exp(-l_dK * t), 1e-6) << "t = " << t;
    } else if (t <= 10.0) {
      EXPECT_NEAR(l_dA, l_dAt5, 1e-6) << "t = " << t;
      EXPECT_EQ(l_cResult.rates[0][i], 0.0);
    } else {
      EXPECT_NEAR(l_dA, l_dAt5 * std::exp(-2.0 * l_dK * (t - 10.0)), 1e-6) << "t = " << t;
    }
  }
  EXPECT_EQ(l_cSimulator.ParameterValues()[0], 2.0 * l_dK);
}

TEST_P(OdeMethod, MarkingChangeTakesEffectAtOnce) {
  const double l_dK = 0.2;
  OdeSimulator l_cSimulator(DecayNet(100.0, l_dK, false));
  UseTight(l_cSimulator);
  RunResult l_cResult =
      RunSimulation(l_cSimulator, Grid(0.0, 10.0, 1.0), [&](std::size_t, double t, Simulator& s) {
        if (t == 4.0) {
          EXPECT_TRUE(s.SetMarking(0, 500.0));
        }
        return true;
      });
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  // The recorded point at t = 4 is the state before the change.
  EXPECT_NEAR(l_cResult.marking[0][4], 100.0 * std::exp(-4.0 * l_dK), 1e-6);
  for (std::size_t i = 5; i < l_cResult.times.size(); ++i) {
    double t = l_cResult.times[i];
    EXPECT_NEAR(l_cResult.marking[0][i], 500.0 * std::exp(-l_dK * (t - 4.0)), 1e-6) << "t = " << t;
  }
}

TEST(OdeSimulator, SteeringRejectsBadValues) {
  OdeSimulator l_cSimulator(DecayNet(1.0, 1.0, true));
  std::string l_sError;
  EXPECT_FALSE(l_cSimulator.SetMarking(1, 1.0, &l_sError));
  EXPECT_NE(l_sError.find("no place at position 1"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_cSimulator.SetMarking(0, -1.0, &l_sError));
  EXPECT_NE(l_sError.find("negative"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_cSimulator.SetMarking(0, std::nan(""), &l_sError));
  EXPECT_FALSE(l_cSimulator.SetParameter(3, 1.0, &l_sError));
  EXPECT_NE(l_sError.find("no parameter at position 3"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_cSimulator.SetParameter(0, -0.5, &l_sError));
  EXPECT_NE(l_sError.find("'k'"), std::string::npos) << l_sError;
  EXPECT_EQ(l_cSimulator.Marking()[0], 1.0);
  EXPECT_EQ(l_cSimulator.ParameterValues()[0], 1.0);
  EXPECT_FALSE(l_cSimulator.Reset(NetState{0.0, {1.0, 2.0}, {1.0}}, &l_sError));
  EXPECT_NE(l_sError.find("2 values"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_cSimulator.Reset(NetState{0.0, {1.0}, {}}, &l_sError));
  EXPECT_TRUE(l_cSimulator.Reset(NetState{2.0, {7.0}, {3.0}}, &l_sError)) << l_sError;
  EXPECT_EQ(l_cSimulator.Time(), 2.0);
  EXPECT_EQ(l_cSimulator.Marking()[0], 7.0);
  EXPECT_EQ(l_cSimulator.RateConstant(0), 3.0);
}

TEST(OdeSimulator, SettingsAreListedAndValidated) {
  OdeSimulator l_cSimulator(DecayNet(1.0, 1.0, false));
  std::vector<SettingInfo> l_acSettings = l_cSimulator.Settings();
  // The first three keep their positions; the others are appended.
  ASSERT_EQ(l_acSettings.size(), 6u);
  EXPECT_EQ(l_acSettings[0].name, "AbsoluteTolerance");
  EXPECT_EQ(l_acSettings[0].value, "1e-09");
  EXPECT_EQ(l_acSettings[1].name, "RelativeTolerance");
  EXPECT_EQ(l_acSettings[1].value, "1e-07");
  EXPECT_EQ(l_acSettings[2].name, "MaxStep");
  EXPECT_EQ(l_acSettings[2].value, "0");
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(l_acSettings[i].guiType, GUI_TYPE_DOUBLE);
    EXPECT_LT(l_acSettings[i].min, l_acSettings[i].max);
  }
  EXPECT_EQ(l_acSettings[3].name, "Method");
  EXPECT_EQ(l_acSettings[3].value, "BDF");
  EXPECT_EQ(l_acSettings[3].guiType, GUI_TYPE_CHOICE);
  EXPECT_EQ(l_acSettings[3].possibleValues,
            (std::vector<std::string>{"BDF", "Adams", "Dormand-Prince"}));
  EXPECT_EQ(l_acSettings[4].name, "StepLimit");
  EXPECT_EQ(l_acSettings[4].value, "100000");
  EXPECT_EQ(l_acSettings[4].guiType, GUI_TYPE_INTEGER);
  EXPECT_EQ(l_acSettings[4].min, 1.0);
  EXPECT_EQ(l_acSettings[5].name, "LinearSolver");
  EXPECT_EQ(l_acSettings[5].value, "automatic");
  EXPECT_EQ(l_acSettings[5].guiType, GUI_TYPE_CHOICE);
  EXPECT_EQ(l_acSettings[5].possibleValues,
            (std::vector<std::string>{"automatic", "dense", "sparse", "iterative"}));
  for (const SettingInfo& l_rSetting : l_acSettings) EXPECT_FALSE(l_rSetting.caption.empty());

  std::string l_sError;
  EXPECT_TRUE(l_cSimulator.ApplySetting("RelativeTolerance", " 1e-6 ", &l_sError)) << l_sError;
  EXPECT_EQ(l_cSimulator.RelativeTolerance(), 1e-6);
  EXPECT_EQ(l_cSimulator.Settings()[1].value, "1e-06");
  EXPECT_TRUE(l_cSimulator.ApplySetting("Method", "dormand-prince", &l_sError)) << l_sError;
  EXPECT_EQ(l_cSimulator.GetMethod(), OdeSimulator::Method::DormandPrince);
  EXPECT_EQ(l_cSimulator.Settings()[3].value, "Dormand-Prince");
  EXPECT_TRUE(l_cSimulator.ApplySetting("StepLimit", "500", &l_sError)) << l_sError;
  EXPECT_EQ(l_cSimulator.StepLimit(), 500u);
  EXPECT_TRUE(l_cSimulator.ApplySetting("LinearSolver", "Sparse", &l_sError)) << l_sError;
  EXPECT_EQ(l_cSimulator.Settings()[5].value, "sparse");
  EXPECT_EQ(l_cSimulator.EffectiveLinearSolver(), OdeSimulator::LinearSolver::Sparse);

  EXPECT_FALSE(l_cSimulator.ApplySetting("RelativeTolerance", "abc", &l_sError));
  EXPECT_NE(l_sError.find("RelativeTolerance: 'abc' is not a number"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_cSimulator.ApplySetting("AbsoluteTolerance", "-1", &l_sError));
  EXPECT_NE(l_sError.find("outside"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_cSimulator.ApplySetting("AbsoluteTolerance", "0", &l_sError));
  EXPECT_FALSE(l_cSimulator.ApplySetting("RelativeTolerance", "2", &l_sError));
  EXPECT_FALSE(l_cSimulator.ApplySetting("MaxStep", "-0.1", &l_sError));
  EXPECT_FALSE(l_cSimulator.ApplySetting("MaxStep", "1,5", &l_sError));
  EXPECT_FALSE(l_cSimulator.ApplySetting("Method", "RK4", &l_sError));
  EXPECT_NE(l_sError.find("'RK4' is none of BDF, Adams, Dormand-Prince"), std::string::npos)
      << l_sError;
  EXPECT_FALSE(l_cSimulator.ApplySetting("StepLimit", "0", &l_sError));
  EXPECT_NE(l_sError.find("StepLimit: '0'"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_cSimulator.ApplySetting("StepLimit", "2.5", &l_sError));
  EXPECT_FALSE(l_cSimulator.ApplySetting("LinearSolver", "banded", &l_sError));
  EXPECT_FALSE(l_cSimulator.ApplySetting("Stiffness", "1", &l_sError));
  EXPECT_NE(l_sError.find("no setting 'Stiffness'"), std::string::npos) << l_sError;
  EXPECT_EQ(l_cSimulator.AbsoluteTolerance(), 1e-9);
  EXPECT_EQ(l_cSimulator.RelativeTolerance(), 1e-6);
  EXPECT_EQ(l_cSimulator.MaxStep(), 0.0);
  EXPECT_EQ(l_cSimulator.GetMethod(), OdeSimulator::Method::DormandPrince);
  EXPECT_EQ(l_cSimulator.StepLimit(), 500u);
}

TEST_P(OdeMethod, CallbackCanStopAndAbortFlagInterrupts) {
  OdeSimulator l_cSimulator(DecayNet(1.0, 1.0, false));
  Use(l_cSimulator);
  RunResult l_cResult = RunSimulation(l_cSimulator, Grid(0.0, 10.0, 1.0),
                            [](std::size_t i, double, Simulator&) { return i < 3; });
  EXPECT_EQ(l_cResult.status, RunStatus::Stopped);
  EXPECT_EQ(l_cResult.times.size(), 4u);
  EXPECT_EQ(l_cResult.marking[0].size(), 4u);
  EXPECT_EQ(l_cSimulator.Time(), 3.0);

  std::atomic<bool> l_bAbort(true);
  l_cSimulator.Reset();
  ASSERT_TRUE(l_cSimulator.ApplySetting("MaxStep", "1e-5"));
  l_cSimulator.SetAbortFlag(&l_bAbort);
  EXPECT_EQ(l_cSimulator.AdvanceTo(100.0), AdvanceStatus::Aborted);
  EXPECT_LT(l_cSimulator.Time(), 100.0);
  l_cSimulator.Reset();
  EXPECT_EQ(RunSimulation(l_cSimulator, Grid(0.0, 100.0, 1.0)).status, RunStatus::Aborted);
  l_bAbort = false;
  ASSERT_TRUE(l_cSimulator.ApplySetting("MaxStep", "0"));
  EXPECT_EQ(l_cSimulator.AdvanceTo(20.0), AdvanceStatus::Reached);
  EXPECT_EQ(l_cSimulator.Time(), 20.0);
}

TEST_P(OdeMethod, FailuresAreReportedNotHidden) {
  OdeSimulator l_cDecay(DecayNet(1.0, 1.0, false));
  Use(l_cDecay);
  ASSERT_EQ(l_cDecay.AdvanceTo(2.0), AdvanceStatus::Reached);
  EXPECT_EQ(l_cDecay.AdvanceTo(1.0), AdvanceStatus::Failed);
  EXPECT_NE(l_cDecay.LastError().find("back in time"), std::string::npos) << l_cDecay.LastError();
  l_cDecay.Reset();
  RunResult l_cLate = RunSimulation(l_cDecay, Grid(-1.0, 1.0, 0.5));
  EXPECT_EQ(l_cLate.status, RunStatus::Failed);
  EXPECT_NE(l_cLate.error.find("after the start"), std::string::npos) << l_cLate.error;
  RunResult l_cBadGrid = RunSimulation(l_cDecay, Grid(5.0, 4.0, 0.5));
  EXPECT_EQ(l_cBadGrid.status, RunStatus::Failed);
  EXPECT_NE(l_cBadGrid.error.find("before it starts"), std::string::npos) << l_cBadGrid.error;

  // 2 A -> 3 A with k = 1: x' = x^2, x(0) = 1 blows up at t = 1.
  Net l_cNet;
  l_cNet.AddPlace("A", 1.0);
  l_cNet.AddTransition("grow", 1.0);
  l_cNet.AddInputArc("A", "grow", 2.0);
  l_cNet.AddOutputArc("grow", "A", 3.0);
  OdeSimulator l_cBlowUp(l_cNet);
  Use(l_cBlowUp);
  EXPECT_EQ(l_cBlowUp.AdvanceTo(0.5), AdvanceStatus::Reached);
  EXPECT_NEAR(l_cBlowUp.Marking()[0], 2.0, 1e-5);
  EXPECT_EQ(l_cBlowUp.AdvanceTo(2.0), AdvanceStatus::Failed);
  EXPECT_FALSE(l_cBlowUp.LastError().empty());
  EXPECT_LT(l_cBlowUp.Time(), 1.0 + 1e-6);
}

TEST_P(OdeMethod, BuiltInSirShowsAnEpidemic) {
  Net l_cNet = SirNet();
  std::string l_sError;
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", l_cNet, &l_sError);
  ASSERT_TRUE(l_pSimulator) << l_sError;
  Use(*l_pSimulator);
  RunResult l_cResult = RunSimulation(*l_pSimulator, l_cNet.grid);
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  ASSERT_EQ(l_cResult.times.size(), 201u);
  std::size_t l_nPeak = 0;
  for (std::size_t i = 0; i < l_cResult.times.size(); ++i) {
    double l_dTotal = l_cResult.marking[0][i] + l_cResult.marking[1][i] + l_cResult.marking[2][i];
    EXPECT_NEAR(l_dTotal, 1000.0, 1e-6);
    if (l_cResult.marking[1][i] > l_cResult.marking[1][l_nPeak]) l_nPeak = i;
  }
  EXPECT_GT(l_cResult.marking[1][l_nPeak], 200.0);
  EXPECT_GT(l_cResult.times[l_nPeak], 10.0);
  EXPECT_LT(l_cResult.times[l_nPeak], 50.0);
  // By the end of its interval the epidemic is well past its peak.
  EXPECT_LT(l_cResult.marking[1].back(), 0.5 * l_cResult.marking[1][l_nPeak]);
  EXPECT_GT(l_cResult.marking[2].back(), 600.0);
  // The infection flux is beta * S * I.
  EXPECT_NEAR(l_cResult.rates[0][0], 0.0003 * 990.0 * 10.0, 1e-12);
}

TEST(OdeSimulator, FactoryRejectsUnknownKindsAndBrokenNets) {
  std::string l_sError;
  EXPECT_FALSE(CreateSimulator("hybrid", SirNet(), &l_sError));
  EXPECT_NE(l_sError.find("unknown simulator 'hybrid'"), std::string::npos) << l_sError;
  Net l_cNet = DecayNet(1.0, 1.0, true);
  l_cNet.transitions[0].parameterName = "nope";
  EXPECT_FALSE(CreateSimulator("continuous", l_cNet, &l_sError));
  EXPECT_NE(l_sError.find("unknown parameter 'nope'"), std::string::npos) << l_sError;
  EXPECT_THROW(OdeSimulator l_cBroken(l_cNet), std::invalid_argument);
  ASSERT_EQ(AvailableSimulators().size(), 2u);
  EXPECT_EQ(AvailableSimulators()[0].name, "continuous");
  EXPECT_EQ(AvailableSimulators()[1].name, "stochastic");
}

namespace {

// Robertson's stiff chemical kinetics as a net:
//   A -> B (k1 = 0.04), 2 B -> B + C (k2 = 3e7), B + C -> A + C (k3 = 1e4),
// that is y1' = -k1 y1 + k3 y2 y3, y2' = k1 y1 - k3 y2 y3 - k2 y2^2,
// y3' = k2 y2^2, from (1, 0, 0).
Net RobertsonNet() {
  Net l_cNet;
  l_cNet.id = "robertson";
  l_cNet.AddPlace("A", 1.0);
  l_cNet.AddPlace("B", 0.0);
  l_cNet.AddPlace("C", 0.0);
  l_cNet.AddParameter("k1", 0.04);
  l_cNet.AddParameter("k2", 3e7);
  l_cNet.AddParameter("k3", 1e4);
  l_cNet.AddParameterTransition("r1", "k1");
  l_cNet.AddInputArc("A", "r1");
  l_cNet.AddOutputArc("r1", "B");
  l_cNet.AddParameterTransition("r2", "k2");
  l_cNet.AddInputArc("B", "r2", 2.0);
  l_cNet.AddOutputArc("r2", "B");
  l_cNet.AddOutputArc("r2", "C");
  l_cNet.AddParameterTransition("r3", "k3");
  l_cNet.AddInputArc("B", "r3");
  l_cNet.AddInputArc("C", "r3");
  l_cNet.AddOutputArc("r3", "A");
  l_cNet.AddOutputArc("r3", "C");
  return l_cNet;
}

// A -> B -> ... along a chain of p_nPlaces places, rate constants 1, 1.5,
// 2, ..., with a back reaction 2 P_{i+1} -> P_i + P_{i+1} every third
// place: a mass-action net with weights 1 and 2 and a Jacobian that is
// not triangular.
Net ChainNet(std::size_t p_nPlaces) {
  Net l_cNet;
  for (std::size_t i = 0; i < p_nPlaces; ++i)
    l_cNet.AddPlace("P" + std::to_string(i), i == 0 ? 100.0 : 1.0);
  for (std::size_t i = 0; i + 1 < p_nPlaces; ++i) {
    const std::string l_sT = "t" + std::to_string(i);
    l_cNet.AddTransition(l_sT, 1.0 + 0.5 * static_cast<double>(i % 7));
    l_cNet.AddInputArc("P" + std::to_string(i), l_sT);
    l_cNet.AddOutputArc(l_sT, "P" + std::to_string(i + 1));
    if (i % 3 == 0) {
      const std::string l_sBack = "b" + std::to_string(i);
      l_cNet.AddTransition(l_sBack, 0.01);
      l_cNet.AddInputArc("P" + std::to_string(i + 1), l_sBack, 2.0);
      l_cNet.AddOutputArc(l_sBack, "P" + std::to_string(i + 1));
      l_cNet.AddOutputArc(l_sBack, "P" + std::to_string(i));
    }
  }
  return l_cNet;
}

RunResult RunWith(const Net& p_rNet, const OutputGrid& p_rGrid,
                  const std::vector<std::pair<std::string, std::string>>& p_aSettings) {
  OdeSimulator l_cSimulator(p_rNet);
  for (const auto& l_rSetting : p_aSettings) {
    std::string l_sError;
    EXPECT_TRUE(l_cSimulator.ApplySetting(l_rSetting.first, l_rSetting.second, &l_sError))
        << l_sError;
  }
  return RunSimulation(l_cSimulator, p_rGrid);
}

// The largest difference of two runs, relative to 1 + |value|.
double Distance(const RunResult& p_rA, const RunResult& p_rB) {
  EXPECT_EQ(p_rA.marking.size(), p_rB.marking.size());
  double l_dMax = 0.0;
  for (std::size_t p = 0; p < p_rA.marking.size() && p < p_rB.marking.size(); ++p) {
    EXPECT_EQ(p_rA.marking[p].size(), p_rB.marking[p].size());
    for (std::size_t i = 0; i < p_rA.marking[p].size() && i < p_rB.marking[p].size(); ++i)
      l_dMax = std::max(l_dMax, std::fabs(p_rA.marking[p][i] - p_rB.marking[p][i]) /
                                    (1.0 + std::fabs(p_rB.marking[p][i])));
  }
  return l_dMax;
}

}  // namespace

TEST(OdeSimulator, BdfIsTheDefaultAndSolvesRobertson) {
  OdeSimulator l_cSimulator(RobertsonNet());
  EXPECT_EQ(l_cSimulator.GetMethod(), OdeSimulator::Method::BDF);
  EXPECT_EQ(l_cSimulator.EffectiveLinearSolver(), OdeSimulator::LinearSolver::Dense);
  ASSERT_EQ(l_cSimulator.AdvanceTo(40.0), AdvanceStatus::Reached) << l_cSimulator.LastError();
  // Literature values at t = 40.
  EXPECT_NEAR(l_cSimulator.Marking()[0], 0.7158, 1e-3 * 0.7158);
  EXPECT_NEAR(l_cSimulator.Marking()[1], 9.185e-6, 1e-3 * 9.185e-6);
  EXPECT_NEAR(l_cSimulator.Marking()[2], 0.2842, 1e-3 * 0.2842);
  // Far out: almost all of A has become C, B is tiny; mass is conserved.
  l_cSimulator.Reset();
  RunResult l_cLong = RunSimulation(l_cSimulator, Grid(0.0, 4e10, 4e9));
  ASSERT_EQ(l_cLong.status, RunStatus::Completed) << l_cLong.error;
  EXPECT_EQ(l_cSimulator.Time(), 4e10);
  const std::vector<double>& x = l_cSimulator.Marking();
  EXPECT_NEAR(x[0] + x[1] + x[2], 1.0, 1e-6);
  EXPECT_LT(x[0], 1e-6);
  EXPECT_LT(x[1], 1e-9);
  EXPECT_GT(x[2], 0.999);
  // Stiffness costs BDF little: a few thousand steps at most.
  EXPECT_LT(l_cSimulator.AcceptedSteps(), 5000u);
}

TEST(OdeSimulator, ExplicitMethodsRunIntoTheStepLimitOnAStiffNetAndSaySo) {
  for (const char* l_sMethod : {"Dormand-Prince", "Adams"}) {
    OdeSimulator l_cSimulator(RobertsonNet());
    ASSERT_TRUE(l_cSimulator.ApplySetting("Method", l_sMethod));
    ASSERT_TRUE(l_cSimulator.ApplySetting("StepLimit", "2000"));
    EXPECT_EQ(l_cSimulator.AdvanceTo(4e4), AdvanceStatus::Failed) << l_sMethod;
    const std::string& l_sError = l_cSimulator.LastError();
    EXPECT_NE(l_sError.find(l_sMethod), std::string::npos) << l_sError;
    EXPECT_NE(l_sError.find("too much work"), std::string::npos) << l_sError;
    EXPECT_NE(l_sError.find("2000"), std::string::npos) << l_sError;
    EXPECT_NE(l_sError.find("StepLimit"), std::string::npos) << l_sError;
    EXPECT_NE(l_sError.find("BDF"), std::string::npos) << "advises the stiff method: " << l_sError;
    EXPECT_LT(l_cSimulator.Time(), 4e4);
  }
  // BDF too, when the limit is absurdly low.
  OdeSimulator l_cBdf(RobertsonNet());
  ASSERT_TRUE(l_cBdf.ApplySetting("StepLimit", "5"));
  EXPECT_EQ(l_cBdf.AdvanceTo(40.0), AdvanceStatus::Failed);
  EXPECT_NE(l_cBdf.LastError().find("BDF (CVODE) stopped at t = "), std::string::npos)
      << l_cBdf.LastError();
  EXPECT_NE(l_cBdf.LastError().find("more than 5 internal steps"), std::string::npos)
      << l_cBdf.LastError();
  // The run can go on from where it stopped with a higher limit.
  const double l_dStopped = l_cBdf.Time();
  EXPECT_GT(l_dStopped, 0.0);
  ASSERT_TRUE(l_cBdf.ApplySetting("StepLimit", "100000"));
  ASSERT_EQ(l_cBdf.AdvanceTo(40.0), AdvanceStatus::Reached) << l_cBdf.LastError();
  EXPECT_NEAR(l_cBdf.Marking()[0], 0.7158, 1e-3 * 0.7158);
}

TEST(OdeSimulator, CvodeAndDormandPrinceAgreeOnNonStiffNets) {
  // Mass-action nets give the results of the Dormand-Prince integrator
  // (the only one before CVODE) within the tolerances, with the default
  // settings as with tight ones.
  std::vector<Net> l_acNets = {SirNet(), DecayNet(50.0, 0.3, true), ChainNet(12)};
  for (const char* l_sFile : {"lotka-volterra.pnml", "immigration-death.pnml"}) {
    PnmlLoadResult l_cLoaded = LoadPnmlFile(std::string(QUOR_MODELS_DIR) + "/" + l_sFile);
    ASSERT_TRUE(l_cLoaded) << l_cLoaded.error;
    l_acNets.push_back(l_cLoaded.net);
  }
  for (const Net& l_rNet : l_acNets) {
    const OutputGrid l_cGrid = Grid(0.0, 30.0, 0.5);
    RunResult l_cDp = RunWith(l_rNet, l_cGrid, {{"Method", "Dormand-Prince"}});
    RunResult l_cDpTight = RunWith(
        l_rNet, l_cGrid,
        {{"Method", "Dormand-Prince"}, {"AbsoluteTolerance", "1e-12"}, {"RelativeTolerance", "1e-11"}});
    for (const char* l_sMethod : {"BDF", "Adams"}) {
      RunResult l_cCvode = RunWith(l_rNet, l_cGrid, {{"Method", l_sMethod}});
      ASSERT_EQ(l_cCvode.status, RunStatus::Completed) << l_cCvode.error;
      EXPECT_LT(Distance(l_cCvode, l_cDp), 1e-4) << l_sMethod << " on " << l_rNet.places.size();
      RunResult l_cTight = RunWith(
          l_rNet, l_cGrid,
          {{"Method", l_sMethod}, {"AbsoluteTolerance", "1e-12"}, {"RelativeTolerance", "1e-11"}});
      EXPECT_LT(Distance(l_cTight, l_cDpTight), 1e-7) << l_sMethod << " on " << l_rNet.places.size();
    }
  }
}

TEST(OdeSimulator, SparseAndDenseLinearSolversGiveTheSameRun) {
  const Net l_cNet = ChainNet(150);
  OdeSimulator l_cProbe(l_cNet);
  EXPECT_EQ(l_cProbe.EffectiveLinearSolver(), OdeSimulator::LinearSolver::Sparse)
      << "more than 100 places";
  const OutputGrid l_cGrid = Grid(0.0, 20.0, 1.0);
  RunResult l_cSparse = RunWith(l_cNet, l_cGrid, {{"LinearSolver", "sparse"}});
  RunResult l_cDense = RunWith(l_cNet, l_cGrid, {{"LinearSolver", "dense"}});
  ASSERT_EQ(l_cSparse.status, RunStatus::Completed) << l_cSparse.error;
  ASSERT_EQ(l_cDense.status, RunStatus::Completed) << l_cDense.error;
  EXPECT_LT(Distance(l_cSparse, l_cDense), 1e-6);
  RunResult l_cReference = RunWith(
      l_cNet, l_cGrid,
      {{"Method", "Dormand-Prince"}, {"AbsoluteTolerance", "1e-12"}, {"RelativeTolerance", "1e-11"}});
  EXPECT_LT(Distance(l_cSparse, l_cReference), 1e-4);
}

TEST(OdeSimulator, NetsWhoseFactorsWouldFillInGetTheIterativeSolver) {
  // 1,200 places, each reacting with random far-away partners: sparse LU
  // factors of such a Jacobian are nearly dense.
  Net l_cNet;
  const std::size_t n = 1200;
  std::uint64_t l_nState = 7;
  auto l_fRandom = [&](std::size_t p_nBelow) {
    l_nState = l_nState * 6364136223846793005ull + 1442695040888963407ull;
    return static_cast<std::size_t>((l_nState >> 33) % p_nBelow);
  };
  for (std::size_t i = 0; i < n; ++i) l_cNet.AddPlace("P" + std::to_string(i), 1.0 + i % 7);
  for (std::size_t i = 0; i < n; ++i) {
    const std::string l_sT = "t" + std::to_string(i);
    l_cNet.AddTransition(l_sT, 0.01);
    l_cNet.AddInputArc("P" + std::to_string(i), l_sT);
    l_cNet.AddInputArc("P" + std::to_string(l_fRandom(n)), l_sT);
    l_cNet.AddOutputArc(l_sT, "P" + std::to_string(l_fRandom(n)));
    l_cNet.AddOutputArc(l_sT, "P" + std::to_string(l_fRandom(n)));
  }
  OdeSimulator l_cSimulator(l_cNet);
  EXPECT_GT(l_cSimulator.SparseFill(),
            OdeSimulator::kFillFactor * static_cast<double>(l_cSimulator.JacobianRows().size()));
  EXPECT_EQ(l_cSimulator.EffectiveLinearSolver(), OdeSimulator::LinearSolver::Iterative);
  // A chain's factors stay sparse.
  OdeSimulator l_cChain(ChainNet(300));
  EXPECT_LT(l_cChain.SparseFill(), 3.0 * static_cast<double>(l_cChain.JacobianRows().size()));
  EXPECT_EQ(l_cChain.EffectiveLinearSolver(), OdeSimulator::LinearSolver::Sparse);
  // GMRES gives the run the other methods give.
  const OutputGrid l_cGrid = Grid(0.0, 3.0, 0.5);
  RunResult l_cIterative = RunWith(l_cNet, l_cGrid, {});
  ASSERT_EQ(l_cIterative.status, RunStatus::Completed) << l_cIterative.error;
  RunResult l_cReference = RunWith(
      l_cNet, l_cGrid,
      {{"Method", "Adams"}, {"AbsoluteTolerance", "1e-12"}, {"RelativeTolerance", "1e-11"}});
  EXPECT_LT(Distance(l_cIterative, l_cReference), 1e-4);
}

TEST(OdeSimulator, JacobianMatchesFiniteDifferencesOfTheRightHandSide) {
  // Mass action with weights 1, 2 and 1.5, a parameter rate and a rate
  // function that reads a place that is not an input.
  Net l_cNet = ChainNet(7);
  l_cNet.AddParameter("v", 2.0);
  l_cNet.AddFunctionTransition("f", "v * mm(P2, 3, 0.5) * (1 + P5 ^ 2)");
  l_cNet.AddInputArc("P2", "f");
  l_cNet.AddOutputArc("f", "P4", 1.5);
  l_cNet.AddParameterTransition("g", "v");
  l_cNet.AddInputArc("P6", "g", 1.5);
  l_cNet.AddOutputArc("g", "P0");
  ASSERT_EQ(l_cNet.Validate(), "");
  OdeSimulator l_cSimulator(l_cNet);
  const std::size_t n = l_cNet.places.size();
  std::vector<double> x = {3.0, 0.7, 1.3, 2.0, 0.4, 1.1, 2.5};
  const std::vector<std::size_t>& l_anStarts = l_cSimulator.JacobianColumnStarts();
  const std::vector<std::size_t>& l_anRows = l_cSimulator.JacobianRows();
  ASSERT_EQ(l_anStarts.size(), n + 1);
  std::vector<double> l_adValues(l_anRows.size());
  ASSERT_TRUE(l_cSimulator.Jacobian(0.0, x.data(), l_adValues.data()));
  std::vector<double> l_adDense(n * n, 0.0);
  for (std::size_t c = 0; c < n; ++c) {
    // Every diagonal entry is there, rows ascend within a column.
    bool l_bDiagonal = false;
    for (std::size_t e = l_anStarts[c]; e < l_anStarts[c + 1]; ++e) {
      l_adDense[l_anRows[e] * n + c] = l_adValues[e];
      l_bDiagonal = l_bDiagonal || l_anRows[e] == c;
      if (e > l_anStarts[c]) {
        EXPECT_LT(l_anRows[e - 1], l_anRows[e]);
      }
    }
    EXPECT_TRUE(l_bDiagonal) << "column " << c;
  }
  std::vector<double> l_adPlus(n), l_adMinus(n);
  for (std::size_t c = 0; c < n; ++c) {
    const double h = 1e-6 * std::max(1.0, x[c]);
    std::vector<double> l_adX = x;
    l_adX[c] = x[c] + h;
    ASSERT_TRUE(l_cSimulator.RightHandSide(0.0, l_adX.data(), l_adPlus.data()));
    l_adX[c] = x[c] - h;
    ASSERT_TRUE(l_cSimulator.RightHandSide(0.0, l_adX.data(), l_adMinus.data()));
    for (std::size_t r = 0; r < n; ++r) {
      const double l_dExpected = (l_adPlus[r] - l_adMinus[r]) / (2.0 * h);
      EXPECT_NEAR(l_adDense[r * n + c], l_dExpected, 1e-5 * (1.0 + std::fabs(l_dExpected)))
          << "d f_" << r << " / d x_" << c;
    }
  }
}

TEST(OdeSimulator, BdfHonoursMaxStep) {
  OdeSimulator l_cSimulator(DecayNet(10.0, 0.01, false));
  ASSERT_TRUE(l_cSimulator.ApplySetting("MaxStep", "0.01"));
  ASSERT_EQ(l_cSimulator.AdvanceTo(10.0), AdvanceStatus::Reached);
  EXPECT_GE(l_cSimulator.AcceptedSteps(), 1000u);
  OdeSimulator l_cFree(DecayNet(10.0, 0.01, false));
  ASSERT_EQ(l_cFree.AdvanceTo(10.0), AdvanceStatus::Reached);
  EXPECT_LT(l_cFree.AcceptedSteps(), 200u);
  EXPECT_NEAR(l_cSimulator.Marking()[0], 10.0 * std::exp(-0.1), 1e-4);
}

TEST(OdeSimulator, AMethodChosenDuringARunTakesOverFromThatPoint) {
  const double l_dK = 0.3;
  OdeSimulator l_cSimulator(DecayNet(100.0, l_dK, false));
  Tighten(l_cSimulator);
  RunResult l_cResult =
      RunSimulation(l_cSimulator, Grid(0.0, 12.0, 0.5), [&](std::size_t, double t, Simulator& s) {
        if (t == 4.0) {
          EXPECT_TRUE(s.ApplySetting("Method", "Dormand-Prince"));
        }
        if (t == 8.0) {
          EXPECT_TRUE(s.ApplySetting("Method", "Adams"));
        }
        return true;
      });
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  for (std::size_t i = 0; i < l_cResult.times.size(); ++i)
    EXPECT_NEAR(l_cResult.marking[0][i], 100.0 * std::exp(-l_dK * l_cResult.times[i]), 1e-6)
        << "t = " << l_cResult.times[i];
  EXPECT_EQ(l_cSimulator.GetMethod(), OdeSimulator::Method::Adams);
}

TEST(OdeSimulator, AChangeUndoneAtTheSamePointLeavesCvodesRunAsItWas) {
  const OutputGrid l_cGrid = Grid(0.0, 50.0, 0.5);
  OdeSimulator l_cPlain(SirNet());
  RunResult l_cExpected = RunSimulation(l_cPlain, l_cGrid);
  OdeSimulator l_cSteered(SirNet());
  RunResult l_cResult = RunSimulation(l_cSteered, l_cGrid, [](std::size_t, double t, Simulator& s) {
    if (t == 10.0) {
      EXPECT_TRUE(s.SetParameter(0, 0.0001));
      EXPECT_TRUE(s.SetMarking(1, 7.0));
      EXPECT_TRUE(s.SetParameter(0, 0.0003));
      EXPECT_TRUE(s.SetMarking(1, s.Marking()[1]));
    }
    return true;
  });
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  EXPECT_NE(l_cResult.marking, l_cExpected.marking) << "a marking change does act";
  // Undone completely, the integration goes on undisturbed, bit for bit.
  OdeSimulator l_cUndone(SirNet());
  double l_dI = 0.0;
  l_cResult = RunSimulation(l_cUndone, l_cGrid, [&](std::size_t, double t, Simulator& s) {
    if (t == 10.0) {
      l_dI = s.Marking()[1];
      EXPECT_TRUE(s.SetParameter(0, 0.0001));
      EXPECT_TRUE(s.SetMarking(1, 7.0));
      EXPECT_TRUE(s.SetParameter(0, 0.0003));
      EXPECT_TRUE(s.SetMarking(1, l_dI));
    }
    return true;
  });
  EXPECT_EQ(l_cResult.marking, l_cExpected.marking);
}
