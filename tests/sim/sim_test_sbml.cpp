// SPDX-License-Identifier: MIT
// SBML import: the files of tests/sim/sbml against closed forms, and one
// file (or document) per construct that is refused, each named with its id.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

#include "simcore/netLoader.h"
#include "simcore/sbmlLoader.h"
#include "simcore/simulator.h"
#include "sim_test_util.h"

using namespace quor::sim;
using sim_test::Grid;

namespace {

const std::string kFiles = QUOR_SBML_TEST_DIR;

NetLoadResult Load(const std::string& p_sFile) { return LoadNetFile(kFiles + "/" + p_sFile); }

RunResult RunOde(const Net& p_rNet, const OutputGrid& p_rGrid) {
  std::string l_sError;
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", p_rNet, &l_sError);
  EXPECT_TRUE(l_pSimulator) << l_sError;
  if (!l_pSimulator) return RunResult();
  EXPECT_TRUE(l_pSimulator->ApplySetting("AbsoluteTolerance", "1e-12"));
  EXPECT_TRUE(l_pSimulator->ApplySetting("RelativeTolerance", "1e-10"));
  RunResult l_cResult = RunSimulation(*l_pSimulator, p_rGrid);
  EXPECT_EQ(l_cResult.status, RunStatus::Completed) << l_cResult.error;
  return l_cResult;
}

std::size_t PlaceOf(const Net& p_rNet, const std::string& p_sId) {
  const std::size_t l_nPlace = p_rNet.FindPlace(p_sId);
  EXPECT_NE(l_nPlace, kNoIndex) << p_sId;
  return l_nPlace;
}

// The refusal of a file (or a document): names the file, and says p_sWhat.
void ExpectRefused(const NetLoadResult& p_rResult, const std::string& p_sSource,
                   const std::string& p_sWhat) {
  EXPECT_FALSE(p_rResult);
  EXPECT_EQ(p_rResult.error.rfind(p_sSource + ": ", 0), 0u) << p_rResult.error;
  EXPECT_NE(p_rResult.error.find(p_sWhat), std::string::npos)
      << "expected '" << p_sWhat << "' in: " << p_rResult.error;
}

// A Level 3 Version 1 model with species A (10) and B (0), parameter k (1)
// and the given extra content of the model element.
std::string Model(const std::string& p_sModelAttributes, const std::string& p_sSpecies,
                  const std::string& p_sReactions) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<sbml xmlns=\"http://www.sbml.org/sbml/level3/version1/core\" level=\"3\" version=\"1\">\n"
         "<model id=\"m\"" + p_sModelAttributes + ">\n"
         "<listOfCompartments><compartment id=\"cell\" spatialDimensions=\"3\" size=\"1\" "
         "constant=\"true\"/></listOfCompartments>\n"
         "<listOfSpecies>\n"
         "<species id=\"A\" compartment=\"cell\" initialAmount=\"10\" hasOnlySubstanceUnits=\"true\" "
         "boundaryCondition=\"false\" constant=\"false\"" + p_sSpecies + "/>\n"
         "<species id=\"B\" compartment=\"cell\" initialAmount=\"0\" hasOnlySubstanceUnits=\"true\" "
         "boundaryCondition=\"false\" constant=\"false\"/>\n"
         "</listOfSpecies>\n"
         "<listOfParameters><parameter id=\"k\" value=\"1\" constant=\"true\"/>"
         "<parameter id=\"cf\" value=\"2\" constant=\"true\"/></listOfParameters>\n" +
         p_sReactions + "</model>\n</sbml>\n";
}

// One reaction A -> B with the given law (MathML content).
std::string Reaction(const std::string& p_sLaw, const std::string& p_sId = "r") {
  return "<listOfReactions><reaction id=\"" + p_sId + "\" reversible=\"false\" fast=\"false\">\n"
         "<listOfReactants><speciesReference species=\"A\" stoichiometry=\"1\" constant=\"true\"/>"
         "</listOfReactants>\n"
         "<listOfProducts><speciesReference species=\"B\" stoichiometry=\"1\" constant=\"true\"/>"
         "</listOfProducts>\n"
         "<kineticLaw><math xmlns=\"http://www.w3.org/1998/Math/MathML\">" + p_sLaw +
         "</math></kineticLaw>\n"
         "</reaction></listOfReactions>\n";
}

const char* const kTimesKA = "<apply><times/><ci>k</ci><ci>A</ci></apply>";

}  // namespace

TEST(SbmlLoader, MassActionBecomesATransitionWithStoichiometricArcs) {
  NetLoadResult l_cResult = Load("mass-action.xml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  EXPECT_EQ(l_rNet.id, "decay");
  EXPECT_EQ(l_rNet.name, "Decay into pairs");
  EXPECT_EQ(l_rNet.source, kFiles + "/mass-action.xml");
  ASSERT_EQ(l_rNet.places.size(), 2u);
  EXPECT_EQ(l_rNet.places[0].name, "A");
  EXPECT_EQ(l_rNet.places[0].initialMarking, 100.0);
  ASSERT_EQ(l_rNet.parameters.size(), 2u);  // the compartment's size and k
  EXPECT_EQ(l_rNet.parameters[0].name, "cell");
  EXPECT_EQ(l_rNet.parameters[1].name, "k");
  ASSERT_EQ(l_rNet.transitions.size(), 1u);
  EXPECT_EQ(l_rNet.transitions[0].id, "split");
  EXPECT_EQ(l_rNet.transitions[0].name, "A splits");
  EXPECT_EQ(l_rNet.transitions[0].rateKind, RateKind::Function);
  EXPECT_EQ(l_rNet.transitions[0].function, "k * A");
  ASSERT_EQ(l_rNet.arcs.size(), 2u);
  EXPECT_TRUE(l_rNet.arcs[0].input);
  EXPECT_EQ(l_rNet.arcs[1].weight, 2.0);
  RunResult l_cRun = RunOde(l_rNet, Grid(0.0, 10.0, 0.5));
  for (std::size_t i = 0; i < l_cRun.times.size(); ++i) {
    const double l_dA = 100.0 * std::exp(-0.5 * l_cRun.times[i]);
    EXPECT_NEAR(l_cRun.marking[0][i], l_dA, 1e-6);
    EXPECT_NEAR(l_cRun.marking[1][i], 2.0 * (100.0 - l_dA), 1e-6);
  }
  // The stochastic simulator runs it too.
  EXPECT_TRUE(CreateSimulator("stochastic", l_rNet));
}

TEST(SbmlLoader, LocalParametersBecomeNetParametersOfTheirOwn) {
  NetLoadResult l_cResult = Load("local-parameters.xml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  ASSERT_EQ(l_rNet.parameters.size(), 4u);
  EXPECT_EQ(l_rNet.parameters[1].name, "k");
  EXPECT_EQ(l_rNet.parameters[1].value, 7.0);
  EXPECT_EQ(l_rNet.parameters[2].name, "R1_k");
  EXPECT_EQ(l_rNet.parameters[2].value, 0.5);
  EXPECT_EQ(l_rNet.parameters[3].name, "R2_k");
  EXPECT_EQ(l_rNet.parameters[3].value, 0.2);
  EXPECT_EQ(l_rNet.transitions[0].function, "R1_k * A");
  EXPECT_EQ(l_rNet.transitions[1].function, "R2_k * B");
  // A -> B -> C with 0.5 and 0.2, not with the global 7.
  RunResult l_cRun = RunOde(l_rNet, Grid(0.0, 20.0, 1.0));
  for (std::size_t i = 0; i < l_cRun.times.size(); ++i) {
    const double t = l_cRun.times[i];
    const double l_dA = 50.0 * std::exp(-0.5 * t);
    const double l_dB = 50.0 * 0.5 / (0.2 - 0.5) * (std::exp(-0.5 * t) - std::exp(-0.2 * t));
    EXPECT_NEAR(l_cRun.marking[PlaceOf(l_rNet, "A")][i], l_dA, 1e-6) << "t = " << t;
    EXPECT_NEAR(l_cRun.marking[PlaceOf(l_rNet, "B")][i], l_dB, 1e-6) << "t = " << t;
  }
}

TEST(SbmlLoader, ConcentrationsAreAmountsOverTheCompartmentSize) {
  NetLoadResult l_cResult = Load("compartment.xml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  const double V = 2.5, k = 0.3, l_dA0 = 4.0 * V;
  EXPECT_EQ(l_rNet.parameters[0].name, "cell");
  EXPECT_EQ(l_rNet.parameters[0].value, V);
  EXPECT_EQ(l_rNet.places[PlaceOf(l_rNet, "A")].initialMarking, l_dA0);
  EXPECT_EQ(l_rNet.transitions[0].function, "cell * k * (A / cell) * (B / cell)");
  // a' = -V k (a / V)^2 with a = b: a(t) = a0 / (1 + k a0 t / V).
  RunResult l_cRun = RunOde(l_rNet, Grid(0.0, 10.0, 0.5));
  for (std::size_t i = 0; i < l_cRun.times.size(); ++i) {
    const double t = l_cRun.times[i];
    const double l_dA = l_dA0 / (1.0 + k * l_dA0 * t / V);
    EXPECT_NEAR(l_cRun.marking[PlaceOf(l_rNet, "A")][i], l_dA, 1e-6) << "t = " << t;
    EXPECT_NEAR(l_cRun.marking[PlaceOf(l_rNet, "C")][i], l_dA0 - l_dA, 1e-6) << "t = " << t;
  }
}

TEST(SbmlLoader, AReversibleReactionRunsBothWays) {
  NetLoadResult l_cResult = Load("reversible.xml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  ASSERT_EQ(l_rNet.transitions.size(), 2u);
  EXPECT_EQ(l_rNet.transitions[0].id, "iso");
  EXPECT_EQ(l_rNet.transitions[1].id, "iso_reverse");
  EXPECT_EQ(l_rNet.transitions[1].name, "iso (reverse)");
  EXPECT_EQ(l_rNet.transitions[0].function, "kf * (A / cell) * cell");
  EXPECT_EQ(l_rNet.transitions[1].function, "kr * (B / cell) * cell");
  // The reverse transition consumes B and produces A.
  ASSERT_EQ(l_rNet.arcs.size(), 4u);
  for (const Arc& l_rArc : l_rNet.arcs)
    if (l_rArc.transition == 1) {
      EXPECT_EQ(l_rArc.input, l_rNet.places[l_rArc.place].id == "B");
    }
  // A(t) = A_eq + (A0 - A_eq) e^{-(kf + kr) t}, A_eq = A0 kr / (kf + kr).
  RunResult l_cRun = RunOde(l_rNet, Grid(0.0, 5.0, 0.25));
  const double l_dEq = 10.0 / 3.0;
  for (std::size_t i = 0; i < l_cRun.times.size(); ++i) {
    const double t = l_cRun.times[i];
    EXPECT_NEAR(l_cRun.marking[0][i], l_dEq + (10.0 - l_dEq) * std::exp(-3.0 * t), 1e-6)
        << "t = " << t;
  }
}

TEST(SbmlLoader, FunctionDefinitionsRulesOnParametersAndInitialAssignmentsKeepTheirMeaning) {
  NetLoadResult l_cResult = Load("functions-and-rules.xml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  // S = 2 S0 from the initial assignment; Vmax is no parameter but
  // kcat * E, written out; E (a boundary species) is only read.
  EXPECT_EQ(l_rNet.places[PlaceOf(l_rNet, "S")].initialMarking, 10.0);
  EXPECT_EQ(l_rNet.FindParameter("Vmax"), kNoIndex);
  EXPECT_EQ(l_rNet.transitions[0].function, "kcat * E * S / (Km + S)");
  for (const Arc& l_rArc : l_rNet.arcs) EXPECT_NE(l_rNet.places[l_rArc.place].id, "E");
  // S' = -Vmax S / (Km + S) with Vmax = 1.5: S + Km ln S = S0 + Km ln S0 - Vmax t.
  RunResult l_cRun = RunOde(l_rNet, Grid(0.0, 6.0, 1.0));
  for (std::size_t i = 0; i < l_cRun.times.size(); ++i) {
    const double t = l_cRun.times[i], S = l_cRun.marking[PlaceOf(l_rNet, "S")][i];
    EXPECT_NEAR(S + 1.5 * std::log(S), 10.0 + 1.5 * std::log(10.0) - 1.5 * t, 1e-6) << "t = " << t;
    EXPECT_EQ(l_cRun.marking[PlaceOf(l_rNet, "E")][i], 2.0);
  }
}

TEST(SbmlLoader, RefusesEachConstructItCannotHonourNamingIt) {
  ExpectRefused(Load("refused-event.xml"), kFiles + "/refused-event.xml",
                "event 'pulse': events are not supported");
  ExpectRefused(Load("refused-delay.xml"), kFiles + "/refused-delay.xml",
                "the kinetic law of reaction 'lagged' uses a delay, which is not supported");
  ExpectRefused(Load("refused-algebraic-rule.xml"), kFiles + "/refused-algebraic-rule.xml",
                "algebraic rule 'conservation': algebraic rules are not supported");
  ExpectRefused(Load("refused-assignment-rule.xml"), kFiles + "/refused-assignment-rule.xml",
                "the assignment rule for species 'B': assignment rules on species are not "
                "supported");
  ExpectRefused(Load("refused-fast-reaction.xml"), kFiles + "/refused-fast-reaction.xml",
                "reaction 'quick' is fast: fast reactions are not supported");
  ExpectRefused(Load("refused-rate-rule.xml"), kFiles + "/refused-rate-rule.xml",
                "the rate rule for 'k': rate rules are not supported");
  // The line of the construct comes first.
  EXPECT_NE(Load("refused-event.xml").error.find(": line "), std::string::npos);
}

TEST(SbmlLoader, RefusesWhatWouldOtherwiseChangeTheModelsMeaning) {
  ExpectRefused(LoadSbmlText(Model(" conversionFactor=\"cf\"", "", Reaction(kTimesKA)), "m.xml"),
                "m.xml", "the model's conversion factor 'cf' is not supported");
  ExpectRefused(LoadSbmlText(Model("", " conversionFactor=\"cf\"", Reaction(kTimesKA)), "m.xml"),
                "m.xml", "species 'A' has the conversion factor 'cf'");
  ExpectRefused(LoadSbmlText(Model("", "", Reaction("<apply><factorial/><ci>A</ci></apply>", "f")),
                             "m.xml"),
                "m.xml", "the kinetic law of reaction 'f' uses 'factorial'");
  ExpectRefused(LoadSbmlText(Model("", "", Reaction("<apply><times/><ci>k</ci><ci>r</ci></apply>")),
                             "m.xml"),
                "m.xml", "'r', which is a reaction or a species reference, not a value");
  ExpectRefused(LoadSbmlText(Model("", "", Reaction("<apply><minus/><ci>k</ci><cn>5</cn></apply>")),
                             "m.xml"),
                "m.xml", "gives -4 in the initial state");
  std::string l_sNegative = Model("", "", Reaction(kTimesKA));
  l_sNegative.replace(l_sNegative.find("value=\"2\""), 9, "value=\"-2\"");
  ExpectRefused(LoadSbmlText(l_sNegative, "m.xml"), "m.xml", "parameter 'cf' has the value -2");
  std::string l_sNoLaw = Model("", "", Reaction(kTimesKA));
  l_sNoLaw.replace(l_sNoLaw.find("<kineticLaw>"),
                   l_sNoLaw.find("</kineticLaw>") + 13 - l_sNoLaw.find("<kineticLaw>"), "");
  ExpectRefused(LoadSbmlText(l_sNoLaw, "m.xml"), "m.xml", "reaction 'r' has no kinetic law");
  std::string l_sNoAmount = Model("", "", Reaction(kTimesKA));
  l_sNoAmount.replace(l_sNoAmount.find(" initialAmount=\"10\""), 19, "");
  ExpectRefused(LoadSbmlText(l_sNoAmount, "m.xml"), "m.xml",
                "species 'A' has no initial amount or concentration");
  // Packages the model requires, another level, not SBML at all.
  std::string l_sComp = Model("", "", Reaction(kTimesKA));
  l_sComp.replace(l_sComp.find("level=\"3\" version=\"1\""), 21,
                  "xmlns:comp=\"http://www.sbml.org/sbml/level3/version1/comp/version1\" "
                  "comp:required=\"true\" level=\"3\" version=\"1\"");
  ExpectRefused(LoadSbmlText(l_sComp, "m.xml"), "m.xml", "requires the SBML package 'comp'");
  ExpectRefused(LoadSbmlText("<?xml version=\"1.0\"?>\n<sbml xmlns=\"http://www.sbml.org/sbml/level1\" "
                             "level=\"1\" version=\"2\"><model name=\"old\"><listOfCompartments>"
                             "<compartment name=\"c\"/></listOfCompartments></model></sbml>\n",
                             "m.xml"),
                "m.xml", "SBML Level 1 is not supported");
  ExpectRefused(LoadSbmlText("<sbml><model", "m.xml"), "m.xml", "not a usable SBML document");
}

TEST(SbmlLoader, FilesAreToldFromPnmlByTheirRootElement) {
  const std::string l_sModel = Model("", "", Reaction(kTimesKA));
  const std::string l_sText = "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!-- <pnml> -->\n" +
                              l_sModel.substr(l_sModel.find('\n') + 1);
  NetLoadResult l_cResult = LoadNetText(l_sText, "either.xml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  EXPECT_EQ(l_cResult.net.transitions[0].function, "k * A");
  // A bare parameter as the law is a constant flux, not mass action.
  l_cResult = LoadNetText(Model("", "", Reaction("<ci>k</ci>")), "flux.xml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  EXPECT_EQ(l_cResult.net.transitions[0].rateKind, RateKind::Function);
  EXPECT_EQ(l_cResult.net.transitions[0].function, "(k)");
  // PNML goes to the PNML loader (which names what it expected).
  l_cResult = LoadNetText("<?xml version=\"1.0\"?><petrinet/>", "other.xml");
  EXPECT_FALSE(l_cResult);
  EXPECT_NE(l_cResult.error.find("not <pnml>"), std::string::npos) << l_cResult.error;
}
