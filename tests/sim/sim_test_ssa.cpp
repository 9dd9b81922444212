// SPDX-License-Identifier: MIT
// The stochastic simulator: statistics against closed forms, seeds,
// propensities and steering changes.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "simcore/builtinModels.h"
#include "simcore/simulator.h"
#include "simcore/ssaSimulator.h"
#include "sim_test_util.h"

using namespace quor::sim;
using sim_test::Grid;

namespace {

// (nothing) -> A at rate lambda, A -> (nothing) with rate constant mu.
Net ImmigrationDeathNet(double p_dLambda, double p_dMu) {
  Net l_cNet;
  l_cNet.AddPlace("A", 0.0);
  l_cNet.AddParameter("lambda", p_dLambda);
  l_cNet.AddParameter("mu", p_dMu);
  l_cNet.AddParameterTransition("immigration", "lambda");
  l_cNet.AddParameterTransition("death", "mu");
  l_cNet.AddOutputArc("immigration", "A");
  l_cNet.AddInputArc("A", "death");
  return l_cNet;
}

Net DecayNet(double p_dA0, double p_dK) {
  Net l_cNet;
  l_cNet.AddPlace("A", p_dA0);
  l_cNet.AddParameter("k", p_dK);
  l_cNet.AddParameterTransition("decay", "k");
  l_cNet.AddInputArc("A", "decay");
  return l_cNet;
}

bool IsWhole(double p_dValue) { return p_dValue == std::floor(p_dValue); }

}  // namespace

TEST(SsaSimulator, ImmigrationDeathMeanAndVarianceMatchTheory) {
  // Starting empty, A(t) is Poisson with mean lambda / mu (1 - e^{-mu t}).
  const double l_dLambda = 10.0, l_dMu = 1.0;
  const int l_nRuns = 400;
  const OutputGrid l_cGrid = Grid(0.0, 4.0, 0.5);
  const std::size_t l_nPoints = l_cGrid.Count();
  ASSERT_EQ(l_nPoints, 9u);
  std::vector<double> l_adSum(l_nPoints, 0.0), l_adSumSquares(l_nPoints, 0.0);
  SsaSimulator l_cSimulator(ImmigrationDeathNet(l_dLambda, l_dMu));
  for (int r = 0; r < l_nRuns; ++r) {
    l_cSimulator.SetSeed(1000 + static_cast<std::uint64_t>(r));
    l_cSimulator.Reset();
    RunResult l_cResult = RunSimulation(l_cSimulator, l_cGrid);
    ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
    for (std::size_t i = 0; i < l_nPoints; ++i) {
      double x = l_cResult.marking[0][i];
      ASSERT_TRUE(IsWhole(x));
      l_adSum[i] += x;
      l_adSumSquares[i] += x * x;
    }
  }
  EXPECT_EQ(l_adSum[0], 0.0);
  for (std::size_t i = 1; i < l_nPoints; ++i) {
    double t = l_cGrid.At(i);
    double l_dMean = l_dLambda / l_dMu * (1.0 - std::exp(-l_dMu * t));
    double l_dSampleMean = l_adSum[i] / l_nRuns;
    double l_dStandardError = std::sqrt(l_dMean / l_nRuns);
    EXPECT_NEAR(l_dSampleMean, l_dMean, 5.0 * l_dStandardError) << "t = " << t;
    if (i + 1 == l_nPoints) {
      // Poisson: the variance equals the mean. The sample variance has a
      // standard error of about sqrt((m + 2 m^2) / n).
      double l_dVariance =
          (l_adSumSquares[i] - l_nRuns * l_dSampleMean * l_dSampleMean) / (l_nRuns - 1);
      EXPECT_NEAR(l_dVariance, l_dMean, 5.0 * std::sqrt((l_dMean + 2 * l_dMean * l_dMean) / l_nRuns));
    }
  }
}

TEST(SsaSimulator, CompetingTransitionsFireInProportionToTheirRates) {
  // A -> B (k = 1) and A -> C (k = 3): each token goes to B with probability 1/4.
  Net l_cNet;
  l_cNet.AddPlace("A", 2000.0);
  l_cNet.AddPlace("B", 0.0);
  l_cNet.AddPlace("C", 0.0);
  l_cNet.AddTransition("toB", 1.0);
  l_cNet.AddTransition("toC", 3.0);
  l_cNet.AddInputArc("A", "toB");
  l_cNet.AddOutputArc("toB", "B");
  l_cNet.AddInputArc("A", "toC");
  l_cNet.AddOutputArc("toC", "C");
  SsaSimulator l_cSimulator(l_cNet, 7);
  ASSERT_EQ(l_cSimulator.AdvanceTo(50.0), AdvanceStatus::Reached);
  EXPECT_EQ(l_cSimulator.Marking()[0], 0.0);
  EXPECT_EQ(l_cSimulator.Marking()[1] + l_cSimulator.Marking()[2], 2000.0);
  EXPECT_EQ(l_cSimulator.Events(), 2000u);
  double l_dSd = std::sqrt(2000.0 * 0.25 * 0.75);
  EXPECT_NEAR(l_cSimulator.Marking()[1], 500.0, 5.0 * l_dSd);
}

TEST(SsaSimulator, SameSeedSameTrajectoryOtherSeedOtherTrajectory) {
  Net l_cNet = SirNet();
  SsaSimulator l_cFirst(l_cNet, 42), l_cSecond(l_cNet, 42), l_cThird(l_cNet, 43);
  RunResult l_cA = RunSimulation(l_cFirst, l_cNet.grid);
  RunResult l_cB = RunSimulation(l_cSecond, l_cNet.grid);
  RunResult l_cC = RunSimulation(l_cThird, l_cNet.grid);
  ASSERT_EQ(l_cA.status, RunStatus::Completed);
  EXPECT_EQ(l_cA.marking, l_cB.marking);
  EXPECT_EQ(l_cA.rates, l_cB.rates);
  EXPECT_EQ(l_cFirst.Events(), l_cSecond.Events());
  EXPECT_NE(l_cA.marking, l_cC.marking);
  // A Reset with the same seed repeats the run as well.
  l_cFirst.Reset();
  RunResult l_cAgain = RunSimulation(l_cFirst, l_cNet.grid);
  EXPECT_EQ(l_cA.marking, l_cAgain.marking);
  // Tokens are whole and conserved: S + I + R = 1000 at every point.
  for (std::size_t i = 0; i < l_cA.times.size(); ++i) {
    EXPECT_TRUE(IsWhole(l_cA.marking[1][i]));
    EXPECT_EQ(l_cA.marking[0][i] + l_cA.marking[1][i] + l_cA.marking[2][i], 1000.0);
  }
  EXPECT_GT(l_cFirst.Events(), 100u);
}

TEST(SsaSimulator, TrajectoryDoesNotDependOnTheOutputGrid) {
  Net l_cNet = SirNet();
  SsaSimulator l_cCoarse(l_cNet, 5), l_cFine(l_cNet, 5);
  RunResult l_cA = RunSimulation(l_cCoarse, Grid(0.0, 60.0, 2.0));
  RunResult l_cB = RunSimulation(l_cFine, Grid(0.0, 60.0, 0.25));
  ASSERT_EQ(l_cA.times.size(), 31u);
  ASSERT_EQ(l_cB.times.size(), 241u);
  for (std::size_t i = 0; i < l_cA.times.size(); ++i)
    for (std::size_t p = 0; p < 3; ++p)
      EXPECT_EQ(l_cA.marking[p][i], l_cB.marking[p][8 * i]) << "t = " << l_cA.times[i];
}

TEST(SsaSimulator, PropensitiesUseBinomialCoefficients) {
  Net l_cNet;
  l_cNet.AddPlace("A", 5.0);
  l_cNet.AddPlace("B", 6.0);
  l_cNet.AddPlace("C", 2.0);
  l_cNet.AddTransition("dimerise", 0.5);  // 2 A -> (nothing)
  l_cNet.AddTransition("triple", 2.0);    // 3 B + C -> (nothing)
  l_cNet.AddTransition("lone", 4.0);      // 3 C -> (nothing): not enabled
  l_cNet.AddTransition("source", 1.5);    // (nothing) -> A
  l_cNet.AddInputArc("A", "dimerise", 2.0);
  l_cNet.AddInputArc("B", "triple", 3.0);
  l_cNet.AddInputArc("C", "triple");
  l_cNet.AddInputArc("C", "lone", 3.0);
  l_cNet.AddOutputArc("source", "A");
  SsaSimulator l_cSsa(l_cNet);
  std::vector<double> l_adRates = l_cSsa.Rates();
  ASSERT_EQ(l_adRates.size(), 4u);
  EXPECT_DOUBLE_EQ(l_adRates[0], 0.5 * 10.0);       // C(5, 2) = 10
  EXPECT_DOUBLE_EQ(l_adRates[1], 2.0 * 20.0 * 2.0);  // C(6, 3) = 20, C(2, 1) = 2
  EXPECT_EQ(l_adRates[2], 0.0);
  EXPECT_EQ(l_adRates[3], 1.5);
  // The continuous law on the same state: k * x^w.
  std::unique_ptr<Simulator> l_pOde = CreateSimulator("continuous", l_cNet);
  ASSERT_TRUE(l_pOde);
  l_adRates = l_pOde->Rates();
  EXPECT_DOUBLE_EQ(l_adRates[0], 0.5 * 25.0);
  EXPECT_DOUBLE_EQ(l_adRates[1], 2.0 * 216.0 * 2.0);
  EXPECT_DOUBLE_EQ(l_adRates[2], 4.0 * 8.0);
}

TEST(SsaSimulator, ArcWeightsMoveTokens) {
  // 2 A -> 3 B fires until fewer than 2 A are left.
  Net l_cNet;
  l_cNet.AddPlace("A", 7.0);
  l_cNet.AddPlace("B", 0.0);
  l_cNet.AddTransition("t", 1.0);
  l_cNet.AddInputArc("A", "t", 2.0);
  l_cNet.AddOutputArc("t", "B", 3.0);
  SsaSimulator l_cSsa(l_cNet);
  ASSERT_EQ(l_cSsa.AdvanceTo(1000.0), AdvanceStatus::Reached);
  EXPECT_EQ(l_cSsa.Marking()[0], 1.0);
  EXPECT_EQ(l_cSsa.Marking()[1], 9.0);
  EXPECT_EQ(l_cSsa.Events(), 3u);
  EXPECT_EQ(l_cSsa.Time(), 1000.0);
}

TEST(SsaSimulator, ParameterChangeTakesEffectAtOnce) {
  SsaSimulator l_cSimulator(DecayNet(1000.0, 0.5), 11);
  double l_dAtChange = -1.0;
  RunResult l_cResult = RunSimulation(
      l_cSimulator, Grid(0.0, 10.0, 0.5), [&](std::size_t, double t, Simulator& s) {
        if (t == 1.0) {
          l_dAtChange = s.Marking()[0];
          EXPECT_TRUE(s.SetParameter(0, 0.0));
        }
        if (t == 6.0) {
          EXPECT_TRUE(s.SetMarking(0, 42.0));
        }
        return true;
      });
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  EXPECT_LT(l_dAtChange, 1000.0);  // it did decay before the change
  EXPECT_GT(l_dAtChange, 400.0);
  for (std::size_t i = 0; i < l_cResult.times.size(); ++i) {
    double t = l_cResult.times[i];
    if (t > 1.0 && t <= 6.0) {
      EXPECT_EQ(l_cResult.marking[0][i], l_dAtChange) << "t = " << t;
    }
    if (t > 6.0) {
      EXPECT_EQ(l_cResult.marking[0][i], 42.0) << "t = " << t;
    }
    if (t > 1.0) {
      EXPECT_EQ(l_cResult.rates[0][i], 0.0);
    }
  }
  // Back on: it decays again.
  ASSERT_TRUE(l_cSimulator.SetParameter(0, 1.0));
  ASSERT_EQ(l_cSimulator.AdvanceTo(30.0), AdvanceStatus::Reached);
  EXPECT_LT(l_cSimulator.Marking()[0], 42.0);
}

TEST(SsaSimulator, MarkingsAreWholeNumbers) {
  Net l_cNet = DecayNet(2.6, 0.0);
  SsaSimulator l_cSsa(l_cNet);
  EXPECT_EQ(l_cSsa.Marking()[0], 3.0);
  ASSERT_TRUE(l_cSsa.SetMarking(0, 10.4));
  EXPECT_EQ(l_cSsa.Marking()[0], 10.0);
  std::string l_sError;
  EXPECT_FALSE(l_cSsa.SetMarking(0, -3.0, &l_sError));
  EXPECT_NE(l_sError.find("negative"), std::string::npos) << l_sError;
  // With every propensity 0 time simply moves on.
  EXPECT_EQ(l_cSsa.AdvanceTo(1e6), AdvanceStatus::Reached);
  EXPECT_EQ(l_cSsa.Marking()[0], 10.0);
  EXPECT_EQ(l_cSsa.Events(), 0u);
}

TEST(SsaSimulator, FractionalWeightsAreRejected) {
  Net l_cNet = DecayNet(10.0, 1.0);
  l_cNet.arcs[0].weight = 1.5;
  l_cNet.arcs[0].id = "half";
  std::string l_sError;
  EXPECT_FALSE(CreateSimulator("stochastic", l_cNet, &l_sError));
  EXPECT_NE(l_sError.find("arc 'half'"), std::string::npos) << l_sError;
  EXPECT_NE(l_sError.find("whole-number weights"), std::string::npos) << l_sError;
  EXPECT_THROW(SsaSimulator l_cSsa(l_cNet), std::invalid_argument);
  EXPECT_TRUE(CreateSimulator("continuous", l_cNet, &l_sError)) << l_sError;
}

TEST(SsaSimulator, SeedSettingIsValidatedAndUsedAtReset) {
  Net l_cNet = SirNet();
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("stochastic", l_cNet);
  ASSERT_TRUE(l_pSimulator);
  EXPECT_EQ(l_pSimulator->Kind(), "stochastic");
  std::vector<SettingInfo> l_acSettings = l_pSimulator->Settings();
  ASSERT_EQ(l_acSettings.size(), 2u);
  EXPECT_EQ(l_acSettings[0].name, "Seed");
  EXPECT_EQ(l_acSettings[0].value, "1");
  EXPECT_EQ(l_acSettings[0].guiType, GUI_TYPE_INTEGER);
  EXPECT_EQ(l_acSettings[1].name, "Runs");
  EXPECT_EQ(l_acSettings[1].value, "1");
  EXPECT_EQ(l_acSettings[1].guiType, GUI_TYPE_INTEGER);
  EXPECT_EQ(l_acSettings[1].min, 1.0);
  EXPECT_EQ(l_acSettings[1].max, static_cast<double>(SsaSimulator::kMaxRuns));
  std::string l_sError;
  EXPECT_FALSE(l_pSimulator->ApplySetting("Seed", "abc", &l_sError));
  EXPECT_NE(l_sError.find("Seed: 'abc'"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_pSimulator->ApplySetting("Seed", "-1", &l_sError));
  EXPECT_FALSE(l_pSimulator->ApplySetting("Seed", "1.5", &l_sError));
  EXPECT_FALSE(l_pSimulator->ApplySetting("Seed", "18446744073709551616", &l_sError));
  EXPECT_FALSE(l_pSimulator->ApplySetting("Repeats", "3", &l_sError));
  EXPECT_NE(l_sError.find("no setting 'Repeats'"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_pSimulator->ApplySetting("Runs", "0", &l_sError));
  EXPECT_NE(l_sError.find("Runs: '0'"), std::string::npos) << l_sError;
  EXPECT_FALSE(l_pSimulator->ApplySetting("Runs", "2.5", &l_sError));
  EXPECT_FALSE(l_pSimulator->ApplySetting("Runs", "100001", &l_sError));
  EXPECT_EQ(l_pSimulator->Settings()[1].value, "1");
  EXPECT_EQ(l_pSimulator->Settings()[0].value, "1");
  ASSERT_TRUE(l_pSimulator->ApplySetting("Seed", "18446744073709551615", &l_sError)) << l_sError;
  EXPECT_EQ(l_pSimulator->Settings()[0].value, "18446744073709551615");
  ASSERT_TRUE(l_pSimulator->ApplySetting("Seed", "123", &l_sError)) << l_sError;
  l_pSimulator->Reset();
  RunResult l_cA = RunSimulation(*l_pSimulator, l_cNet.grid);
  SsaSimulator l_cReference(l_cNet, 123);
  RunResult l_cB = RunSimulation(l_cReference, l_cNet.grid);
  EXPECT_EQ(l_cA.marking, l_cB.marking);
}

TEST(SsaSimulator, ManyCompetingTransitionsAreChosenInProportionToTheirPropensities) {
  // 64 000 tokens leave A through 100 transitions with rate constants 1 to
  // 100: place B_i ends with a multinomial count of mean N c_i / sum c.
  Net l_cNet;
  const double l_dTokens = 64000.0;
  l_cNet.AddPlace("A", l_dTokens);
  const int l_nTransitions = 100;
  for (int i = 0; i < l_nTransitions; ++i) {
    l_cNet.AddPlace("B" + std::to_string(i), 0.0);
    l_cNet.AddTransition("t" + std::to_string(i), i + 1.0);
    l_cNet.AddInputArc("A", "t" + std::to_string(i));
    l_cNet.AddOutputArc("t" + std::to_string(i), "B" + std::to_string(i));
  }
  SsaSimulator l_cSimulator(l_cNet, 11);
  ASSERT_EQ(l_cSimulator.AdvanceTo(1.0), AdvanceStatus::Reached);
  EXPECT_EQ(l_cSimulator.Marking()[0], 0.0);
  EXPECT_EQ(l_cSimulator.Events(), 64000u);
  const double l_dSum = l_nTransitions * (l_nTransitions + 1) / 2.0;
  double l_dChiSquare = 0.0;
  for (int i = 0; i < l_nTransitions; ++i) {
    const double p = (i + 1.0) / l_dSum;
    const double l_dExpected = l_dTokens * p;
    const double l_dCount = l_cSimulator.Marking()[1 + i];
    EXPECT_NEAR(l_dCount, l_dExpected, 5.0 * std::sqrt(l_dTokens * p * (1.0 - p))) << "t" << i;
    l_dChiSquare += (l_dCount - l_dExpected) * (l_dCount - l_dExpected) / l_dExpected;
  }
  // 99 degrees of freedom: mean 99, standard deviation 14.
  EXPECT_LT(l_dChiSquare, 99.0 + 5.0 * 14.1);
}

TEST(SsaSimulator, AFiringUpdatesExactlyTheTransitionsThatReadWhatItChanged) {
  // source -> X; X -> Y; Y + Z -> Z (Z only read). A Y stuck in the tree
  // with a stale propensity would show as Y not draining once X is empty.
  Net l_cNet;
  l_cNet.AddPlace("X", 0.0);
  l_cNet.AddPlace("Y", 0.0);
  l_cNet.AddPlace("Z", 5.0);
  l_cNet.AddParameter("inflow", 50.0);
  l_cNet.AddParameterTransition("source", "inflow");
  l_cNet.AddOutputArc("source", "X");
  l_cNet.AddTransition("move", 1.0);
  l_cNet.AddInputArc("X", "move");
  l_cNet.AddOutputArc("move", "Y");
  l_cNet.AddTransition("drain", 0.2);
  l_cNet.AddInputArc("Y", "drain");
  l_cNet.AddInputArc("Z", "drain");
  l_cNet.AddOutputArc("drain", "Z");
  SsaSimulator l_cSimulator(l_cNet, 3);
  ASSERT_EQ(l_cSimulator.AdvanceTo(5.0), AdvanceStatus::Reached);
  EXPECT_GT(l_cSimulator.Marking()[0] + l_cSimulator.Marking()[1], 10.0);
  // Rates at every point equal the propensities of the marking shown.
  const std::vector<double> l_adRates = l_cSimulator.Rates();
  const std::vector<double>& x = l_cSimulator.Marking();
  EXPECT_EQ(l_adRates[0], 50.0);
  EXPECT_EQ(l_adRates[1], x[0]);
  EXPECT_DOUBLE_EQ(l_adRates[2], 0.2 * x[1] * x[2]);
  ASSERT_TRUE(l_cSimulator.SetParameter(0, 0.0));
  EXPECT_EQ(l_cSimulator.Rates()[0], 0.0);
  ASSERT_EQ(l_cSimulator.AdvanceTo(100.0), AdvanceStatus::Reached);
  EXPECT_EQ(l_cSimulator.Marking()[0], 0.0);
  EXPECT_EQ(l_cSimulator.Marking()[1], 0.0);
  EXPECT_EQ(l_cSimulator.Marking()[2], 5.0);
  EXPECT_EQ(l_cSimulator.Rates(), (std::vector<double>{0.0, 0.0, 0.0}));
}

TEST(SsaEnsemble, MeanOfADecayNetMatchesItsExpectation) {
  // A -> (nothing), k = 1, A(0) = 100: A(1) is binomial(100, e^-1).
  const double l_dA0 = 100.0, l_dK = 1.0;
  const unsigned l_nRuns = 400;
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("stochastic", DecayNet(l_dA0, l_dK));
  ASSERT_TRUE(l_pSimulator);
  ASSERT_TRUE(l_pSimulator->ApplySetting("Runs", std::to_string(l_nRuns)));
  ASSERT_TRUE(l_pSimulator->ApplySetting("Seed", "2024"));
  l_pSimulator->Reset();
  RunResult l_cResult = RunSimulation(*l_pSimulator, Grid(0.0, 1.0, 0.25));
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  EXPECT_EQ(l_cResult.marking[0][0], l_dA0);
  for (std::size_t i = 0; i < l_cResult.times.size(); ++i) {
    const double p = std::exp(-l_dK * l_cResult.times[i]);
    const double l_dStandardError = std::sqrt(l_dA0 * p * (1.0 - p) / l_nRuns);
    EXPECT_NEAR(l_cResult.marking[0][i], l_dA0 * p, 5.0 * l_dStandardError + 1e-12)
        << "t = " << l_cResult.times[i];
    // The mean of 400 whole numbers: a multiple of 1/400.
    EXPECT_DOUBLE_EQ(l_cResult.marking[0][i] * l_nRuns, std::round(l_cResult.marking[0][i] * l_nRuns));
    // The rate is the mean propensity, k times the mean marking.
    EXPECT_DOUBLE_EQ(l_cResult.rates[0][i], l_dK * l_cResult.marking[0][i]);
  }
  // Not every run did the same.
  EXPECT_NE(l_cResult.marking[0].back(), std::round(l_cResult.marking[0].back()));
  EXPECT_EQ(l_pSimulator->Summary(), "400 runs");
  // Reproducible for the seed, different for another.
  l_pSimulator->Reset();
  EXPECT_EQ(RunSimulation(*l_pSimulator, Grid(0.0, 1.0, 0.25)).marking, l_cResult.marking);
  ASSERT_TRUE(l_pSimulator->ApplySetting("Seed", "2025"));
  l_pSimulator->Reset();
  EXPECT_NE(RunSimulation(*l_pSimulator, Grid(0.0, 1.0, 0.25)).marking, l_cResult.marking);
}

TEST(SsaEnsemble, OneRunIsTheSingleRunOfTheSeed) {
  Net l_cNet = SirNet();
  SsaSimulator l_cSingle(l_cNet, 77);
  SsaSimulator l_cEnsemble(l_cNet, 77);
  ASSERT_TRUE(l_cEnsemble.ApplySetting("Runs", "3"));
  ASSERT_TRUE(l_cEnsemble.ApplySetting("Runs", "1"));
  l_cEnsemble.Reset();
  EXPECT_EQ(l_cEnsemble.Runs(), 1u);
  EXPECT_EQ(l_cEnsemble.Summary(), "");
  EXPECT_EQ(RunSimulation(l_cSingle, l_cNet.grid).marking,
            RunSimulation(l_cEnsemble, l_cNet.grid).marking);
  // The Runs setting waits for the next Reset.
  ASSERT_TRUE(l_cEnsemble.ApplySetting("Runs", "5"));
  EXPECT_EQ(l_cEnsemble.Runs(), 1u);
  l_cEnsemble.Reset();
  EXPECT_EQ(l_cEnsemble.Runs(), 5u);
  EXPECT_EQ(l_cEnsemble.Summary(), "5 runs");
}

TEST(SsaEnsemble, SteeringChangesApplyToEveryRunFromThatPointOn) {
  Net l_cNet = ImmigrationDeathNet(10.0, 1.0);
  SsaSimulator l_cSimulator(l_cNet, 9);
  ASSERT_TRUE(l_cSimulator.ApplySetting("Runs", "200"));
  l_cSimulator.Reset();
  std::vector<double> l_adAfterChange;
  RunResult l_cResult =
      RunSimulation(l_cSimulator, Grid(0.0, 6.0, 1.0), [&](std::size_t, double t, Simulator& s) {
        if (t == 2.0) {
          // Every run now holds 50 tokens, and nothing comes in any more.
          EXPECT_TRUE(s.SetMarking(0, 50.0));
          EXPECT_TRUE(s.SetParameter(0, 0.0));
          l_adAfterChange = s.Marking();
        }
        if (t == 4.0) {
          // Nothing leaves either: the mean stays as it is from here on.
          EXPECT_TRUE(s.SetParameter(1, 0.0));
        }
        return true;
      });
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  // At t = 2 the point was recorded before the change (mean near 10 (1 - e^-2)).
  EXPECT_NEAR(l_cResult.marking[0][2], 10.0 * (1.0 - std::exp(-2.0)), 1.5);
  ASSERT_EQ(l_adAfterChange.size(), 1u);
  EXPECT_EQ(l_adAfterChange[0], 50.0);
  // Pure death from 50 at t = 2: mean 50 e^{-(t - 2)} at t = 3 and 4.
  for (std::size_t i = 3; i <= 4; ++i) {
    const double p = std::exp(-(static_cast<double>(i) - 2.0));
    EXPECT_NEAR(l_cResult.marking[0][i], 50.0 * p, 5.0 * std::sqrt(50.0 * p * (1.0 - p) / 200.0))
        << "t = " << i;
  }
  EXPECT_EQ(l_cResult.marking[0][5], l_cResult.marking[0][4]);
  EXPECT_EQ(l_cResult.marking[0][6], l_cResult.marking[0][4]);
}

TEST(SsaEnsemble, RunsThatWouldNotFitInMemoryAreRefused) {
  Net l_cNet;
  for (int i = 0; i < 20000; ++i) l_cNet.AddPlace("P" + std::to_string(i), 1.0);
  SsaSimulator l_cSimulator(l_cNet);
  std::string l_sError;
  EXPECT_FALSE(l_cSimulator.ApplySetting("Runs", "100000", &l_sError));
  EXPECT_NE(l_sError.find("MB"), std::string::npos) << l_sError;
  EXPECT_TRUE(l_cSimulator.ApplySetting("Runs", "100", &l_sError)) << l_sError;
}
