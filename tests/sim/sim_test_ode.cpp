// SPDX-License-Identifier: MIT
// The continuous simulator against closed-form solutions, invariants and
// steering changes.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>

#include "simcore/builtinModels.h"
#include "simcore/odeSimulator.h"
#include "simcore/simulator.h"

using namespace quor::sim;

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

OutputGrid Grid(double p_dStart, double p_dEnd, double p_dStep) {
  OutputGrid l_cGrid;
  l_cGrid.start = p_dStart;
  l_cGrid.end = p_dEnd;
  l_cGrid.step = p_dStep;
  return l_cGrid;
}

void Tighten(Simulator& p_rSimulator) {
  ASSERT_TRUE(p_rSimulator.ApplySetting("AbsoluteTolerance", "1e-12"));
  ASSERT_TRUE(p_rSimulator.ApplySetting("RelativeTolerance", "1e-10"));
}

}  // namespace

TEST(OdeSimulator, ExponentialDecayMatchesClosedForm) {
  const double l_dA0 = 100.0, l_dK = 0.3;
  OdeSimulator l_cSimulator(DecayNet(l_dA0, l_dK, false));
  Tighten(l_cSimulator);
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

TEST(OdeSimulator, LinearChainMatchesClosedForm) {
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
  Tighten(*l_pSimulator);
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

TEST(OdeSimulator, LotkaVolterraKeepsItsInvariant) {
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
  Tighten(l_cSimulator);
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

TEST(OdeSimulator, TighterTolerancesGiveSmallerErrors) {
  // The largest relative error of exponential decay over 0..20 for a loose
  // and a tight tolerance: both within what was asked, the tight one far
  // smaller, at the price of more steps.
  const double l_dK = 0.7;
  auto l_MaxError = [&](const char* p_sTolerance, unsigned long long& p_rnSteps) {
    OdeSimulator l_cSimulator(DecayNet(1.0, l_dK, false));
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

TEST(OdeSimulator, OutputPointsAreExactAndNoneIsSkipped) {
  OdeSimulator l_cSimulator(DecayNet(10.0, 1.0, false));
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

TEST(OdeSimulator, MaxStepLimitsTheStepSize) {
  OdeSimulator l_cSimulator(DecayNet(10.0, 0.01, false));
  ASSERT_TRUE(l_cSimulator.ApplySetting("MaxStep", "0.01"));
  ASSERT_EQ(l_cSimulator.AdvanceTo(10.0), AdvanceStatus::Reached);
  EXPECT_GE(l_cSimulator.AcceptedSteps(), 1000u);
  OdeSimulator l_cFree(DecayNet(10.0, 0.01, false));
  ASSERT_EQ(l_cFree.AdvanceTo(10.0), AdvanceStatus::Reached);
  EXPECT_LT(l_cFree.AcceptedSteps(), 100u);
  EXPECT_NEAR(l_cSimulator.Marking()[0], l_cFree.Marking()[0], 1e-6);
}

TEST(OdeSimulator, ParameterChangeTakesEffectAtOnce) {
  const double l_dK = 0.4;
  OdeSimulator l_cSimulator(DecayNet(100.0, l_dK, true));
  Tighten(l_cSimulator);
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

TEST(OdeSimulator, MarkingChangeTakesEffectAtOnce) {
  const double l_dK = 0.2;
  OdeSimulator l_cSimulator(DecayNet(100.0, l_dK, false));
  Tighten(l_cSimulator);
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
  ASSERT_EQ(l_acSettings.size(), 3u);
  EXPECT_EQ(l_acSettings[0].name, "AbsoluteTolerance");
  EXPECT_EQ(l_acSettings[0].value, "1e-09");
  EXPECT_EQ(l_acSettings[1].name, "RelativeTolerance");
  EXPECT_EQ(l_acSettings[1].value, "1e-07");
  EXPECT_EQ(l_acSettings[2].name, "MaxStep");
  EXPECT_EQ(l_acSettings[2].value, "0");
  for (const SettingInfo& l_rSetting : l_acSettings) {
    EXPECT_EQ(l_rSetting.guiType, GUI_TYPE_DOUBLE);
    EXPECT_FALSE(l_rSetting.caption.empty());
    EXPECT_LT(l_rSetting.min, l_rSetting.max);
  }

  std::string l_sError;
  EXPECT_TRUE(l_cSimulator.ApplySetting("RelativeTolerance", " 1e-6 ", &l_sError)) << l_sError;
  EXPECT_EQ(l_cSimulator.RelativeTolerance(), 1e-6);
  EXPECT_EQ(l_cSimulator.Settings()[1].value, "1e-06");

  EXPECT_FALSE(l_cSimulator.ApplySetting("RelativeTolerance", "abc", &l_sError));
  EXPECT_NE(l_sError.find("RelativeTolerance: 'abc' is not a number"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_cSimulator.ApplySetting("AbsoluteTolerance", "-1", &l_sError));
  EXPECT_NE(l_sError.find("outside"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_cSimulator.ApplySetting("AbsoluteTolerance", "0", &l_sError));
  EXPECT_FALSE(l_cSimulator.ApplySetting("RelativeTolerance", "2", &l_sError));
  EXPECT_FALSE(l_cSimulator.ApplySetting("MaxStep", "-0.1", &l_sError));
  EXPECT_FALSE(l_cSimulator.ApplySetting("MaxStep", "1,5", &l_sError));
  EXPECT_FALSE(l_cSimulator.ApplySetting("Stiffness", "1", &l_sError));
  EXPECT_NE(l_sError.find("no setting 'Stiffness'"), std::string::npos) << l_sError;
  EXPECT_EQ(l_cSimulator.AbsoluteTolerance(), 1e-9);
  EXPECT_EQ(l_cSimulator.RelativeTolerance(), 1e-6);
  EXPECT_EQ(l_cSimulator.MaxStep(), 0.0);
}

TEST(OdeSimulator, CallbackCanStopAndAbortFlagInterrupts) {
  OdeSimulator l_cSimulator(DecayNet(1.0, 1.0, false));
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

TEST(OdeSimulator, FailuresAreReportedNotHidden) {
  OdeSimulator l_cDecay(DecayNet(1.0, 1.0, false));
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
  EXPECT_EQ(l_cBlowUp.AdvanceTo(0.5), AdvanceStatus::Reached);
  EXPECT_NEAR(l_cBlowUp.Marking()[0], 2.0, 1e-5);
  EXPECT_EQ(l_cBlowUp.AdvanceTo(2.0), AdvanceStatus::Failed);
  EXPECT_FALSE(l_cBlowUp.LastError().empty());
  EXPECT_LT(l_cBlowUp.Time(), 1.0 + 1e-6);
}

TEST(OdeSimulator, BuiltInSirShowsAnEpidemic) {
  Net l_cNet = SirNet();
  std::string l_sError;
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", l_cNet, &l_sError);
  ASSERT_TRUE(l_pSimulator) << l_sError;
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
