// SPDX-License-Identifier: MIT
// Rate functions: the syntax, names that need brackets, what is refused at
// load, and runs of both simulators with function rates (Michaelis-Menten
// against its closed form, values that stop a run).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <memory>

#include "simcore/odeSimulator.h"
#include "simcore/rateFunction.h"
#include "simcore/simulator.h"
#include "simcore/ssaSimulator.h"
#include "sim_test_util.h"

using namespace quor::sim;
using sim_test::Grid;

namespace {

// Places S 1 (4), E (2), t (3), Ca2+ (1.5); parameters Vmax (3), Km (0.5).
Net Symbols() {
  Net l_cNet;
  l_cNet.AddPlace("S 1", 4.0);
  l_cNet.AddPlace("E", 2.0);
  l_cNet.AddPlace("t", 3.0);
  l_cNet.AddPlace("Ca2+", 1.5);
  l_cNet.AddParameter("Vmax", 3.0);
  l_cNet.AddParameter("Km", 0.5);
  return l_cNet;
}

// The value of p_sText for Symbols() at time p_dTime, or the error.
std::string Evaluate(const std::string& p_sText, double& p_rdValue, double p_dTime = 7.0) {
  const Net l_cNet = Symbols();
  const RateSymbols l_cSymbols(l_cNet);
  std::string l_sError;
  std::unique_ptr<RateFunction> l_pcFunction = RateFunction::Compile(p_sText, l_cSymbols, &l_sError);
  if (!l_pcFunction) return l_sError;
  const NetState l_cState = l_cNet.InitialState();
  p_rdValue = l_pcFunction->Evaluate(l_cState.marking.data(), l_cState.parameters.data(), p_dTime);
  return std::string();
}

double Value(const std::string& p_sText, double p_dTime = 7.0) {
  double l_dValue = std::nan("");
  const std::string l_sError = Evaluate(p_sText, l_dValue, p_dTime);
  EXPECT_EQ(l_sError, "") << p_sText;
  return l_dValue;
}

std::string Error(const std::string& p_sText) {
  double l_dValue = 0.0;
  return Evaluate(p_sText, l_dValue);
}

// w with w e^w = x, for x >= 0 (Halley's iteration).
double LambertW(double x) {
  double w = std::log1p(x);
  for (int i = 0; i < 100; ++i) {
    const double e = std::exp(w), f = w * e - x;
    const double l_dStep = f / (e * (w + 1.0) - (w + 2.0) * f / (2.0 * w + 2.0));
    w -= l_dStep;
    if (std::fabs(l_dStep) < 1e-15 * (1.0 + std::fabs(w))) break;
  }
  return w;
}

}  // namespace

TEST(RateFunction, ArithmeticFunctionsNamesAndTime) {
  EXPECT_DOUBLE_EQ(Value("Vmax * E / (Km + E)"), 3.0 * 2.0 / 2.5);
  EXPECT_DOUBLE_EQ(Value("mm(E, Vmax, Km)"), 3.0 * 2.0 / 2.5);
  EXPECT_DOUBLE_EQ(Value("hill(E, Vmax, Km, 4)"), 3.0 * 16.0 / (0.0625 + 16.0));
  EXPECT_DOUBLE_EQ(Value("pow(E, 3) + E^2"), 12.0);
  EXPECT_DOUBLE_EQ(Value("exp(0) + log(_e) + ln(1) + log10(100) + sqrt(16) + abs(-2)"), 10.0);
  EXPECT_DOUBLE_EQ(Value("min(E, Vmax, 7) + max(E, Vmax)"), 5.0);
  EXPECT_DOUBLE_EQ(Value("E > 1 ? 10 : 20"), 10.0);
  EXPECT_DOUBLE_EQ(Value("1e-3 * 2"), 0.002);
  // Time and names that need brackets.
  EXPECT_DOUBLE_EQ(Value("t", 7.0), 7.0);
  EXPECT_DOUBLE_EQ(Value("[t]"), 3.0);
  EXPECT_DOUBLE_EQ(Value("[S 1] * [Ca2+]"), 6.0);
  EXPECT_DOUBLE_EQ(Value("[E] + E"), 4.0);
  EXPECT_DOUBLE_EQ(Value("2*[t]+t", 1.0), 7.0);
}

TEST(RateFunction, DependenciesAreThePlacesAndParametersRead) {
  const Net l_cNet = Symbols();
  const RateSymbols l_cSymbols(l_cNet);
  std::unique_ptr<RateFunction> l_pcFunction =
      RateFunction::Compile("Vmax * [Ca2+] / ([Ca2+] + [S 1]) + 0 * t", l_cSymbols);
  ASSERT_TRUE(l_pcFunction);
  EXPECT_EQ(l_pcFunction->Places(), (std::vector<std::size_t>{0, 3}));
  EXPECT_EQ(l_pcFunction->Parameters(), (std::vector<std::size_t>{0}));
  EXPECT_TRUE(l_pcFunction->UsesTime());
  l_pcFunction = RateFunction::Compile("Km * E", l_cSymbols);
  ASSERT_TRUE(l_pcFunction);
  EXPECT_EQ(l_pcFunction->Places(), (std::vector<std::size_t>{1}));
  EXPECT_FALSE(l_pcFunction->UsesTime());
  // Markings below 0 read as 0.
  const double l_adMarking[] = {0.0, -1e-12, 0.0, 0.0};
  const double l_adParameters[] = {3.0, 0.5};
  EXPECT_EQ(l_pcFunction->Evaluate(l_adMarking, l_adParameters, 0.0), 0.0);
}

TEST(RateFunction, BadExpressionsAreRefusedWithTheReason) {
  EXPECT_EQ(Error("Vmax * foo"), "unknown name 'foo'");
  EXPECT_EQ(Error("michaelis(E, 1, 2)"), "unknown name 'michaelis'");
  EXPECT_EQ(Error("[S 2]"), "unknown name 'S 2'");
  EXPECT_NE(Error("Vmax * (E + 1"), "");
  EXPECT_NE(Error("E +"), "");
  EXPECT_NE(Error("E +").find("position"), std::string::npos) << Error("E +");
  EXPECT_NE(Error("3 E"), "");
  EXPECT_EQ(Error(""), "the rate function is empty");
  EXPECT_EQ(Error("  "), "the rate function is empty");
  EXPECT_NE(Error("[E * 2").find("no closing ']'"), std::string::npos);
  EXPECT_NE(Error("E] * 2").find("']' without '['"), std::string::npos);
  EXPECT_NE(Error("[] * 2").find("empty name"), std::string::npos);
  EXPECT_NE(Error("mm(E, 1)"), "") << "too few arguments";
  // A message of the parser shows a bracketed name as it was written.
  EXPECT_NE(Error("[S 1] [Ca2+]").find("[Ca2+]"), std::string::npos) << Error("[S 1] [Ca2+]");

  Net l_cNet = Symbols();
  l_cNet.AddPlace("E", 1.0);  // a second place named E
  l_cNet.AddParameter("Ca2+", 1.0);
  const RateSymbols l_cSymbols(l_cNet);
  std::string l_sError;
  EXPECT_FALSE(RateFunction::Compile("2 * E", l_cSymbols, &l_sError));
  EXPECT_EQ(l_sError, "the name 'E' is shared by 2 places");
  EXPECT_FALSE(RateFunction::Compile("[Ca2+]", l_cSymbols, &l_sError));
  EXPECT_EQ(l_sError, "the name 'Ca2+' is both a place and a parameter");
}

TEST(RateFunction, NamesAreWrittenBareWhenTheyCanBe) {
  EXPECT_TRUE(IsPlainName("S1"));
  EXPECT_TRUE(IsPlainName("_x"));
  EXPECT_FALSE(IsPlainName("1S"));
  EXPECT_FALSE(IsPlainName("S 1"));
  EXPECT_FALSE(IsPlainName("t"));
  EXPECT_FALSE(IsPlainName("exp"));
  EXPECT_FALSE(IsPlainName("mm"));
  EXPECT_FALSE(IsPlainName("_pi"));
  EXPECT_FALSE(IsPlainName(""));
  EXPECT_FALSE(IsPlainName("\xc3\xa9t\xc3\xa9"));
  EXPECT_EQ(WriteName("S1"), "S1");
  EXPECT_EQ(WriteName("t"), "[t]");
  EXPECT_EQ(WriteName("Ca2+"), "[Ca2+]");
}

TEST(NetRates, TextIsAConstantAParameterOrAFunction) {
  Net l_cNet;
  l_cNet.AddPlace("A", 1.0);
  l_cNet.AddParameter("k", 2.0);
  l_cNet.AddParameter("k 2", 3.0);
  l_cNet.AddRateTransition("a", " 0.25 ");
  l_cNet.AddRateTransition("b", "k");
  l_cNet.AddRateTransition("c", " k 2 ");
  l_cNet.AddRateTransition("d", "(k)");
  l_cNet.AddRateTransition("e", "k*A");
  EXPECT_EQ(l_cNet.transitions[0].rateKind, RateKind::Constant);
  EXPECT_EQ(l_cNet.transitions[0].rateValue, 0.25);
  EXPECT_EQ(l_cNet.transitions[1].rateKind, RateKind::Parameter);
  EXPECT_EQ(l_cNet.transitions[1].parameterName, "k");
  EXPECT_EQ(l_cNet.transitions[2].rateKind, RateKind::Parameter);
  EXPECT_EQ(l_cNet.transitions[2].parameterName, "k 2");
  EXPECT_EQ(l_cNet.transitions[3].rateKind, RateKind::Function);
  EXPECT_EQ(l_cNet.transitions[4].rateKind, RateKind::Function);
  EXPECT_EQ(l_cNet.transitions[4].function, "k*A");
  EXPECT_EQ(l_cNet.transitions[0].RateText(), "0.25");
  EXPECT_EQ(l_cNet.transitions[1].RateText(), "k");
  EXPECT_EQ(l_cNet.transitions[4].RateText(), "k*A");
  EXPECT_EQ(l_cNet.Validate(), "");
  // "(k)" is a constant flux k; "k" is mass action k * A.
  l_cNet.AddInputArc("A", "b");
  l_cNet.AddInputArc("A", "d");
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", l_cNet);
  ASSERT_TRUE(l_pSimulator);
  ASSERT_TRUE(l_pSimulator->SetMarking(0, 5.0));
  const std::vector<double> l_adRates = l_pSimulator->Rates();
  EXPECT_EQ(l_adRates[1], 10.0);
  EXPECT_EQ(l_adRates[3], 2.0);
  EXPECT_EQ(l_adRates[4], 10.0);
  EXPECT_EQ(l_pSimulator->RateConstant(1), 2.0);
  EXPECT_TRUE(std::isnan(l_pSimulator->RateConstant(4)));
}

TEST(NetRates, BadFunctionsAreRefusedAtLoadNamingTheTransition) {
  auto l_fProblem = [](const std::string& p_sFunction, double p_dMarking) {
    Net l_cNet;
    l_cNet.AddPlace("S", p_dMarking);
    l_cNet.AddParameter("k", 2.0);
    l_cNet.AddFunctionTransition("uptake", p_sFunction);
    l_cNet.transitions[0].name = "glucose uptake";
    l_cNet.AddInputArc("S", "uptake");
    return l_cNet.Validate();
  };
  EXPECT_EQ(l_fProblem("k * S", 1.0), "");
  EXPECT_EQ(l_fProblem("k * X", 1.0),
            "transition 'glucose uptake' (id 'uptake'): unknown name 'X' in the rate function "
            "'k * X'");
  EXPECT_NE(l_fProblem("k * (S", 1.0).find("transition 'glucose uptake'"), std::string::npos);
  // Division by zero in the initial state gives inf.
  const std::string l_sInf = l_fProblem("k / S", 0.0);
  EXPECT_NE(l_sInf.find("transition 'glucose uptake'"), std::string::npos) << l_sInf;
  EXPECT_NE(l_sInf.find("gives inf in the initial state"), std::string::npos) << l_sInf;
  EXPECT_NE(l_fProblem("sqrt(S - 2)", 1.0).find("gives nan"), std::string::npos);
  EXPECT_NE(l_fProblem("S - 2", 1.0).find("gives -1"), std::string::npos);
  EXPECT_NE(l_fProblem("", 1.0).find("the rate function is empty"), std::string::npos);
  // The factory says the same.
  Net l_cNet;
  l_cNet.AddPlace("S", 1.0);
  l_cNet.AddFunctionTransition("f", "2 * nothing");
  std::string l_sError;
  EXPECT_FALSE(CreateSimulator("continuous", l_cNet, &l_sError));
  EXPECT_NE(l_sError.find("unknown name 'nothing'"), std::string::npos) << l_sError;
  EXPECT_FALSE(CreateSimulator("stochastic", l_cNet, &l_sError));
  EXPECT_NE(l_sError.find("unknown name 'nothing'"), std::string::npos) << l_sError;
}

class FunctionOdeMethod : public ::testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Methods, FunctionOdeMethod,
                         ::testing::Values("BDF", "Adams", "Dormand-Prince"),
                         [](const ::testing::TestParamInfo<const char*>& p_rInfo) {
                           std::string l_sName = p_rInfo.param;
                           return l_sName == "Dormand-Prince" ? std::string("DormandPrince")
                                                              : l_sName;
                         });

TEST_P(FunctionOdeMethod, MichaelisMentenMatchesItsClosedForm) {
  // S -> P at mm(S, Vmax, Km): S' = -Vmax S / (Km + S), so
  // S(t) = Km W(S0 / Km exp((S0 - Vmax t) / Km)).
  const double l_dS0 = 10.0, l_dVmax = 2.0, l_dKm = 1.5;
  Net l_cNet;
  l_cNet.AddPlace("S", l_dS0);
  l_cNet.AddPlace("P", 0.0);
  l_cNet.AddParameter("Vmax", l_dVmax);
  l_cNet.AddParameter("Km", l_dKm);
  l_cNet.AddFunctionTransition("conversion", "mm(S, Vmax, Km)");
  l_cNet.AddInputArc("S", "conversion");
  l_cNet.AddOutputArc("conversion", "P");
  OdeSimulator l_cSimulator(l_cNet);
  ASSERT_TRUE(l_cSimulator.ApplySetting("Method", GetParam()));
  ASSERT_TRUE(l_cSimulator.ApplySetting("AbsoluteTolerance", "1e-12"));
  ASSERT_TRUE(l_cSimulator.ApplySetting("RelativeTolerance", "1e-10"));
  RunResult l_cResult = RunSimulation(l_cSimulator, Grid(0.0, 12.0, 0.5));
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  for (std::size_t i = 0; i < l_cResult.times.size(); ++i) {
    const double t = l_cResult.times[i];
    const double l_dS = l_dKm * LambertW(l_dS0 / l_dKm * std::exp((l_dS0 - l_dVmax * t) / l_dKm));
    EXPECT_NEAR(l_cResult.marking[0][i], l_dS, 1e-6) << "t = " << t;
    EXPECT_NEAR(l_cResult.marking[1][i], l_dS0 - l_dS, 1e-6) << "t = " << t;
    EXPECT_NEAR(l_cResult.rates[0][i], l_dVmax * l_dS / (l_dKm + l_dS), 1e-6) << "t = " << t;
  }
  // A steered Vmax acts at once.
  ASSERT_TRUE(l_cSimulator.SetParameter(0, 0.0));
  const double l_dHeld = l_cSimulator.Marking()[0];
  ASSERT_EQ(l_cSimulator.AdvanceTo(20.0), AdvanceStatus::Reached);
  EXPECT_NEAR(l_cSimulator.Marking()[0], l_dHeld, 1e-12);
}

TEST_P(FunctionOdeMethod, FunctionsOfTimeAreIntegrated) {
  // A source at rate 2 t fills A with t^2.
  Net l_cNet;
  l_cNet.AddPlace("A", 0.0);
  l_cNet.AddFunctionTransition("source", "2 * t");
  l_cNet.AddOutputArc("source", "A");
  OdeSimulator l_cSimulator(l_cNet);
  ASSERT_TRUE(l_cSimulator.ApplySetting("Method", GetParam()));
  RunResult l_cResult = RunSimulation(l_cSimulator, Grid(0.0, 5.0, 0.5));
  ASSERT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  for (std::size_t i = 0; i < l_cResult.times.size(); ++i) {
    const double t = l_cResult.times[i];
    EXPECT_NEAR(l_cResult.marking[0][i], t * t, 1e-5 * (1.0 + t * t)) << "t = " << t;
    EXPECT_DOUBLE_EQ(l_cResult.rates[0][i], 2.0 * t);
  }
}

TEST_P(FunctionOdeMethod, ANegativeRateStopsTheRunNamingTransitionAndTime) {
  // The source's rate 2.5 - t turns negative after t = 2.5.
  Net l_cNet;
  l_cNet.AddPlace("A", 0.0);
  l_cNet.AddFunctionTransition("source", "2.5 - t");
  l_cNet.AddOutputArc("source", "A");
  OdeSimulator l_cSimulator(l_cNet);
  ASSERT_TRUE(l_cSimulator.ApplySetting("Method", GetParam()));
  RunResult l_cResult = RunSimulation(l_cSimulator, Grid(0.0, 10.0, 1.0));
  ASSERT_EQ(l_cResult.status, RunStatus::Failed);
  const std::string& l_sError = l_cResult.error;
  EXPECT_NE(l_sError.find("transition 'source': the rate function '2.5 - t' gave -"),
            std::string::npos)
      << l_sError;
  EXPECT_NE(l_sError.find("a rate must be a finite number >= 0"), std::string::npos) << l_sError;
  // The time named is where the rate failed: just after 2.5, within the
  // step that tried to go beyond it.
  const std::size_t l_nAt = l_sError.rfind(" at t = ");
  ASSERT_NE(l_nAt, std::string::npos) << l_sError;
  const double l_dAt = std::strtod(l_sError.c_str() + l_nAt + 8, nullptr);
  EXPECT_GT(l_dAt, 2.5) << l_sError;
  EXPECT_LE(l_dAt, 3.0) << l_sError;
  // Points up to t = 2 are there; the run stopped before t = 3.
  EXPECT_EQ(l_cResult.times.size(), 3u);
  EXPECT_NEAR(l_cResult.marking[0].back(), 3.0, 1e-4);
  EXPECT_LT(l_cSimulator.Time(), 3.0);
}

TEST(FunctionSsa, FunctionRatesAreThePropensitiesAndInputsStillEnable) {
  // A source whose propensity is k * Y (Y only read), and a sink of X by
  // twos at the constant propensity 4 that stops below 2 tokens.
  Net l_cNet;
  l_cNet.AddPlace("X", 0.0);
  l_cNet.AddPlace("Y", 3.0);
  l_cNet.AddPlace("Sunk", 0.0);
  l_cNet.AddParameter("k", 2.0);
  l_cNet.AddFunctionTransition("source", "k * Y");
  l_cNet.AddOutputArc("source", "X");
  l_cNet.AddFunctionTransition("sink", "4 + 0 * X");
  l_cNet.AddInputArc("X", "sink", 2.0);
  l_cNet.AddOutputArc("sink", "Sunk", 2.0);
  SsaSimulator l_cSimulator(l_cNet, 5);
  std::vector<double> l_adRates = l_cSimulator.Rates();
  EXPECT_EQ(l_adRates, (std::vector<double>{6.0, 0.0}));
  ASSERT_EQ(l_cSimulator.AdvanceTo(10.0), AdvanceStatus::Reached) << l_cSimulator.LastError();
  // About 60 tokens came; the sink took them two by two.
  const std::vector<double>& x = l_cSimulator.Marking();
  EXPECT_NEAR(x[0] + x[2], 60.0, 5.0 * std::sqrt(60.0));
  EXPECT_EQ(std::fmod(x[2], 2.0), 0.0);
  // Steering the read place changes the source's propensity at once.
  ASSERT_TRUE(l_cSimulator.SetMarking(1, 0.0));
  ASSERT_TRUE(l_cSimulator.SetMarking(0, 1.0));
  EXPECT_EQ(l_cSimulator.Rates(), (std::vector<double>{0.0, 0.0}));
  const double l_dSunk = l_cSimulator.Marking()[2];
  ASSERT_EQ(l_cSimulator.AdvanceTo(20.0), AdvanceStatus::Reached);
  EXPECT_EQ(l_cSimulator.Marking()[0], 1.0);
  EXPECT_EQ(l_cSimulator.Marking()[2], l_dSunk);
}

TEST(FunctionSsa, ANegativePropensityStopsTheRunAndTimeIsRefused) {
  // Y's source has propensity 3 - X while X grows.
  Net l_cNet;
  l_cNet.AddPlace("X", 0.0);
  l_cNet.AddPlace("Y", 0.0);
  l_cNet.AddTransition("grow", 1.0);
  l_cNet.AddOutputArc("grow", "X");
  l_cNet.AddFunctionTransition("make Y", "3 - X");
  l_cNet.AddOutputArc("make Y", "Y");
  SsaSimulator l_cSimulator(l_cNet, 1);
  RunResult l_cResult = RunSimulation(l_cSimulator, Grid(0.0, 100.0, 1.0));
  ASSERT_EQ(l_cResult.status, RunStatus::Failed);
  EXPECT_NE(l_cResult.error.find("transition 'make Y': the rate function '3 - X' gave -1 at t = "),
            std::string::npos)
      << l_cResult.error;

  Net l_cTimed;
  l_cTimed.AddPlace("X", 0.0);
  l_cTimed.AddFunctionTransition("pulse", "t < 5 ? 1 : 0");
  l_cTimed.AddOutputArc("pulse", "X");
  std::string l_sError;
  EXPECT_FALSE(CreateSimulator("stochastic", l_cTimed, &l_sError));
  EXPECT_NE(l_sError.find("transition 'pulse': the rate function 't < 5 ? 1 : 0' reads the time t"),
            std::string::npos)
      << l_sError;
  EXPECT_TRUE(CreateSimulator("continuous", l_cTimed, &l_sError)) << l_sError;
}

TEST(RateFunction, TheReadmeExamplesCompile) {
  std::ifstream l_cIn(QUOR_README);
  ASSERT_TRUE(l_cIn.good());
  const std::string l_sReadme((std::istreambuf_iterator<char>(l_cIn)), std::istreambuf_iterator<char>());
  const std::size_t l_nSection = l_sReadme.find("\n## Rate functions\n");
  ASSERT_NE(l_nSection, std::string::npos);
  const std::size_t l_nStart = l_sReadme.find("```\n", l_nSection) + 4;
  const std::size_t l_nEnd = l_sReadme.find("```", l_nStart);
  ASSERT_NE(l_nEnd, std::string::npos);
  Net l_cNet;
  for (const char* l_sPlace : {"S", "E", "TF", "Ca2+"}) l_cNet.AddPlace(l_sPlace, 1.0);
  for (const char* l_sParameter : {"kcat", "Km", "k1", "k"}) l_cNet.AddParameter(l_sParameter, 1.0);
  const RateSymbols l_cSymbols(l_cNet);
  std::istringstream l_cBlock(l_sReadme.substr(l_nStart, l_nEnd - l_nStart));
  std::size_t l_nExamples = 0;
  for (std::string l_sLine; std::getline(l_cBlock, l_sLine);) {
    // The expression, then two or more blanks and what it is.
    const std::string l_sExpression = l_sLine.substr(0, l_sLine.find("  "));
    std::string l_sError;
    EXPECT_TRUE(RateFunction::Compile(l_sExpression, l_cSymbols, &l_sError))
        << l_sExpression << ": " << l_sError;
    Transition l_cTransition;
    l_cNet.SetRate(l_cTransition, l_sExpression);
    EXPECT_EQ(l_cTransition.rateKind, RateKind::Function) << l_sExpression;
    ++l_nExamples;
  }
  EXPECT_EQ(l_nExamples, 5u);
}
