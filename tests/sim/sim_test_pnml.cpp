// SPDX-License-Identifier: MIT
// The PNML loader: the shipped example nets, and malformed files, each
// rejected with a message that names the file and the problem.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "simcore/builtinModels.h"
#include "simcore/pnmlLoader.h"
#include "simcore/simulator.h"
#include "sim_test_util.h"

using namespace quor::sim;

namespace {

const std::string kModels = QUOR_MODELS_DIR;

// A PNML document around the given net content.
std::string Document(const std::string& p_sNetContent,
                     const std::string& p_sType = "http://www.pnml.org/version-2009/grammar/ptnet") {
  return "<?xml version=\"1.0\"?>\n"
         "<pnml xmlns=\"http://www.pnml.org/version-2009/grammar/pnml\">\n"
         "<net id=\"n\" type=\"" + p_sType + "\">\n" + p_sNetContent + "</net>\n</pnml>\n";
}

// Two places and a transition between them, with room for more.
std::string SmallNet(const std::string& p_sArcs, const std::string& p_sExtra = std::string()) {
  return Document(
      "<page id=\"g\">\n"
      "<place id=\"p1\"><initialMarking><text>3</text></initialMarking></place>\n"
      "<place id=\"p2\"/>\n"
      "<transition id=\"t1\"/>\n" + p_sArcs + p_sExtra + "</page>\n");
}

// Writes p_sText to a file in the test's temporary directory.
class TempFile {
 public:
  TempFile(const std::string& p_sName, const std::string& p_sText)
      // The process id keeps parallel test programs out of each other's files.
      : m_sPath(::testing::TempDir() + "sim-" + std::to_string(::getpid()) + "-" + p_sName) {
    std::ofstream l_cOut(m_sPath, std::ios::binary);
    l_cOut << p_sText;
  }
  ~TempFile() { std::remove(m_sPath.c_str()); }
  const std::string& Path() const { return m_sPath; }

 private:
  std::string m_sPath;
};

// Loads the text as file "bad.pnml" and expects a rejection that names the
// file and contains p_sProblem.
void ExpectRejected(const std::string& p_sText, const std::string& p_sProblem) {
  TempFile l_cFile("bad.pnml", p_sText);
  PnmlLoadResult l_cResult = LoadPnmlFile(l_cFile.Path());
  EXPECT_FALSE(l_cResult.ok);
  EXPECT_FALSE(l_cResult);
  EXPECT_EQ(l_cResult.error.rfind(l_cFile.Path() + ": ", 0), 0u) << l_cResult.error;
  EXPECT_NE(l_cResult.error.find(p_sProblem), std::string::npos)
      << "expected '" << p_sProblem << "' in: " << l_cResult.error;
}

}  // namespace

TEST(PnmlLoader, LoadsTheShippedSirNet) {
  PnmlLoadResult l_cResult = LoadPnmlFile(kModels + "/sir.pnml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  EXPECT_EQ(l_rNet.id, "sir");
  EXPECT_EQ(l_rNet.name, "SIR epidemic");
  EXPECT_EQ(l_rNet.source, kModels + "/sir.pnml");
  ASSERT_EQ(l_rNet.places.size(), 3u);
  EXPECT_EQ(l_rNet.places[0].name, "S");
  EXPECT_EQ(l_rNet.places[1].name, "I");
  EXPECT_EQ(l_rNet.places[2].name, "R");
  EXPECT_EQ(l_rNet.places[0].initialMarking, 990.0);
  EXPECT_EQ(l_rNet.places[1].initialMarking, 10.0);
  EXPECT_EQ(l_rNet.places[2].initialMarking, 0.0);
  ASSERT_EQ(l_rNet.transitions.size(), 2u);
  EXPECT_EQ(l_rNet.transitions[0].name, "infection");
  EXPECT_EQ(l_rNet.transitions[0].rateKind, RateKind::Parameter);
  EXPECT_EQ(l_rNet.transitions[0].parameterName, "beta");
  EXPECT_EQ(l_rNet.transitions[0].parameter, 0u);
  EXPECT_EQ(l_rNet.transitions[1].parameter, 1u);
  ASSERT_EQ(l_rNet.parameters.size(), 2u);
  EXPECT_EQ(l_rNet.parameters[0].name, "beta");
  EXPECT_EQ(l_rNet.parameters[0].value, 0.0003);
  EXPECT_EQ(l_rNet.parameters[1].name, "gamma");
  EXPECT_EQ(l_rNet.parameters[1].value, 0.1);
  ASSERT_EQ(l_rNet.arcs.size(), 5u);
  const Arc& l_rBack = l_rNet.arcs[2];  // infection -> I, weight 2
  EXPECT_EQ(l_rBack.id, "a3");
  EXPECT_FALSE(l_rBack.input);
  EXPECT_EQ(l_rBack.place, 1u);
  EXPECT_EQ(l_rBack.transition, 0u);
  EXPECT_EQ(l_rBack.weight, 2.0);
  EXPECT_TRUE(l_rNet.arcs[0].input);
  EXPECT_EQ(l_rNet.arcs[0].weight, 1.0);
  EXPECT_EQ(l_rNet.grid.start, 0.0);
  EXPECT_EQ(l_rNet.grid.end, 50.0);
  EXPECT_EQ(l_rNet.grid.step, 0.25);
}

TEST(PnmlLoader, ShippedSirNetEqualsTheBuiltInOne) {
  PnmlLoadResult l_cResult = LoadPnmlFile(kModels + "/sir.pnml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  Net l_cBuiltIn = SirNet();
  std::unique_ptr<Simulator> l_pFromFile = CreateSimulator("continuous", l_cResult.net);
  std::unique_ptr<Simulator> l_pBuiltIn = CreateSimulator("continuous", l_cBuiltIn);
  ASSERT_TRUE(l_pFromFile && l_pBuiltIn);
  RunResult l_cA = RunSimulation(*l_pFromFile, l_cResult.net.grid);
  RunResult l_cB = RunSimulation(*l_pBuiltIn, l_cBuiltIn.grid);
  ASSERT_EQ(l_cA.status, RunStatus::Completed);
  EXPECT_EQ(l_cA.times, l_cB.times);
  EXPECT_EQ(l_cA.marking, l_cB.marking);
  EXPECT_EQ(l_cA.rates, l_cB.rates);
}

TEST(PnmlLoader, LoadsTheShippedLotkaVolterraNet) {
  PnmlLoadResult l_cResult = LoadPnmlFile(kModels + "/lotka-volterra.pnml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  ASSERT_EQ(l_rNet.places.size(), 2u);
  EXPECT_EQ(l_rNet.places[0].name, "Prey");
  EXPECT_EQ(l_rNet.places[1].name, "Predator");
  ASSERT_EQ(l_rNet.transitions.size(), 3u);
  EXPECT_EQ(l_rNet.transitions[0].id, "birth");
  EXPECT_EQ(l_rNet.transitions[1].id, "predation");
  EXPECT_EQ(l_rNet.transitions[2].id, "death");
  ASSERT_EQ(l_rNet.parameters.size(), 3u);
  EXPECT_EQ(l_rNet.parameters[1].name, "beta");
  EXPECT_EQ(l_rNet.parameters[1].value, 0.01);
  ASSERT_EQ(l_rNet.arcs.size(), 6u);
  double l_dOutOfBirth = 0.0, l_dOutOfPredation = 0.0;
  for (const Arc& l_rArc : l_rNet.arcs) {
    if (!l_rArc.input && l_rArc.transition == 0) l_dOutOfBirth += l_rArc.weight;
    if (!l_rArc.input && l_rArc.transition == 1) l_dOutOfPredation += l_rArc.weight;
  }
  EXPECT_EQ(l_dOutOfBirth, 2.0);
  EXPECT_EQ(l_dOutOfPredation, 2.0);
  // Death has an input arc and no output arc.
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", l_rNet);
  ASSERT_TRUE(l_pSimulator);
  const CompiledTransition& l_rDeath = l_pSimulator->Compiled()[2];
  ASSERT_EQ(l_rDeath.change.size(), 1u);
  EXPECT_EQ(l_rDeath.change[0].first, 1u);
  EXPECT_EQ(l_rDeath.change[0].second, -1.0);
  RunResult l_cRun = RunSimulation(*l_pSimulator, l_rNet.grid);
  ASSERT_EQ(l_cRun.status, RunStatus::Completed) << l_cRun.error;
  EXPECT_EQ(l_cRun.times.size(), 301u);
}

TEST(PnmlLoader, LoadsNestedPagesReferencesAndConstantRates) {
  PnmlLoadResult l_cResult = LoadPnmlFile(kModels + "/immigration-death.pnml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  ASSERT_EQ(l_rNet.places.size(), 1u);
  ASSERT_EQ(l_rNet.transitions.size(), 2u);
  EXPECT_EQ(l_rNet.transitions[0].id, "immigration");
  EXPECT_EQ(l_rNet.transitions[0].rateKind, RateKind::Constant);
  EXPECT_EQ(l_rNet.transitions[0].rateValue, 10.0);
  EXPECT_EQ(l_rNet.transitions[1].id, "death");  // from the inner page
  EXPECT_EQ(l_rNet.transitions[1].parameterName, "mu");
  ASSERT_EQ(l_rNet.arcs.size(), 2u);
  EXPECT_EQ(l_rNet.arcs[1].id, "out");  // through the reference place
  EXPECT_TRUE(l_rNet.arcs[1].input);
  EXPECT_EQ(l_rNet.arcs[1].place, 0u);
  EXPECT_EQ(l_rNet.arcs[1].transition, 1u);
  // Stationary mean lambda / mu = 100 in the continuous limit.
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", l_rNet);
  ASSERT_TRUE(l_pSimulator);
  ASSERT_EQ(l_pSimulator->AdvanceTo(200.0), AdvanceStatus::Reached);
  EXPECT_NEAR(l_pSimulator->Marking()[0], 100.0, 1e-4);
}

TEST(PnmlLoader, DefaultsForMissingLabels) {
  PnmlLoadResult l_cResult = LoadPnmlText(
      SmallNet("<arc id=\"a1\" source=\"p1\" target=\"t1\"/>\n"
               "<arc id=\"a2\" source=\"t1\" target=\"p2\"><inscription><text> 2.5 </text></inscription></arc>\n"),
      "small.pnml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  EXPECT_EQ(l_rNet.name, "n");
  EXPECT_EQ(l_rNet.places[0].name, "p1");  // no name: the id
  EXPECT_EQ(l_rNet.places[0].initialMarking, 3.0);
  EXPECT_EQ(l_rNet.places[1].initialMarking, 0.0);
  EXPECT_EQ(l_rNet.transitions[0].rateKind, RateKind::Constant);
  EXPECT_EQ(l_rNet.transitions[0].rateValue, 1.0);
  EXPECT_EQ(l_rNet.arcs[0].weight, 1.0);
  EXPECT_EQ(l_rNet.arcs[1].weight, 2.5);
  EXPECT_EQ(l_rNet.grid.start, 0.0);
  EXPECT_EQ(l_rNet.grid.end, 100.0);
  EXPECT_EQ(l_rNet.grid.step, 1.0);
  EXPECT_EQ(l_rNet.source, "small.pnml");
}

TEST(PnmlLoader, IgnoresOtherToolsAndPrefixedElements) {
  std::string l_sText =
      "<pnml:pnml xmlns:pnml=\"http://www.pnml.org/version-2009/grammar/pnml\">\n"
      "<pnml:net id=\"n\" type=\"http://www.pnml.org/version-2009/grammar/ptnet\">\n"
      "<pnml:toolspecific tool=\"other\" version=\"9\"><parameter name=\"x\"/><weird/></pnml:toolspecific>\n"
      "<pnml:page id=\"g\">\n"
      "<pnml:place id=\"p\"><pnml:graphics><pnml:position x=\"1\" y=\"2\"/></pnml:graphics></pnml:place>\n"
      "<pnml:transition id=\"t\">\n"
      "  <pnml:toolspecific tool=\"other\"><rate value=\"-5\"/></pnml:toolspecific>\n"
      "  <pnml:toolspecific tool=\"QUOR\" version=\"1\"><rate value=\"0.25\"/></pnml:toolspecific>\n"
      "</pnml:transition>\n"
      "<pnml:arc id=\"a\" source=\"p\" target=\"t\"/>\n"
      "</pnml:page></pnml:net></pnml:pnml>\n";
  PnmlLoadResult l_cResult = LoadPnmlText(l_sText, "prefixed.pnml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  EXPECT_EQ(l_cResult.net.places.size(), 1u);
  EXPECT_TRUE(l_cResult.net.parameters.empty());
  EXPECT_EQ(l_cResult.net.transitions[0].rateValue, 0.25);
  EXPECT_EQ(l_cResult.net.arcs.size(), 1u);
}

TEST(PnmlLoader, RejectsFilesThatAreNotPnml) {
  ExpectRejected("", "the file is empty");
  ExpectRejected("place p1 -> t1\n", "not an XML document");
  ExpectRejected("<pnml><net id=\"n\"><page id=\"g\"></net></pnml>", "not a well-formed XML document");
  ExpectRejected("<pnml><net id=\"n\"><page id=\"g\"></net></pnml>", "at line 1");
  ExpectRejected("<?xml version=\"1.0\"?><petrinet/>", "the root element is <petrinet>, not <pnml>");
  ExpectRejected("<pnml></pnml>", "contains no <net>");
  ExpectRejected("<pnml><net id=\"a\"/><net id=\"b\"/></pnml>", "only one net per file");
  PnmlLoadResult l_cMissing = LoadPnmlFile(::testing::TempDir() + "no-such-file.pnml");
  EXPECT_FALSE(l_cMissing);
  EXPECT_NE(l_cMissing.error.find("no-such-file.pnml: cannot open the file"), std::string::npos)
      << l_cMissing.error;
}

TEST(PnmlLoader, RejectsOtherNetTypes) {
  ExpectRejected(Document("", "http://www.pnml.org/version-2009/grammar/highlevelnet"),
                 "only place/transition nets");
  ExpectRejected(Document("", "http://www.pnml.org/version-2009/grammar/highlevelnet"),
                 "net 'n' is a high-level net (type "
                 "'http://www.pnml.org/version-2009/grammar/highlevelnet')");
  ExpectRejected(Document("", "http://www.pnml.org/version-2009/grammar/symmetricnet"),
                 "net 'n' is a symmetric net (type "
                 "'http://www.pnml.org/version-2009/grammar/symmetricnet')");
  ExpectRejected(Document("", "http://www.pnml.org/version-2009/grammar/pt-hlpng"),
                 "net 'n' is a place/transition net in high-level notation");
  ExpectRejected(Document("", "Coloured Petri Net"), "net 'n' is a coloured net");
  ExpectRejected(Document("", "urn:workflow"), "net 'n' is a net of another type (type 'urn:workflow')");
  // Older grammar versions of place/transition nets are fine.
  EXPECT_TRUE(LoadPnmlText(Document("", "http://www.informatik.hu-berlin.de/top/pntd/ptNetb"),
                           "old.pnml"));
}

TEST(PnmlLoader, RejectsBrokenArcs) {
  ExpectRejected(SmallNet("<arc id=\"a1\" source=\"p1\"/>\n"), "arc 'a1' has no target");
  ExpectRejected(SmallNet("<arc id=\"a1\" target=\"t1\"/>\n"), "arc 'a1' has no source");
  ExpectRejected(SmallNet("<arc id=\"a1\" source=\"p1\" target=\"nowhere\"/>\n"),
                 "arc 'a1' has the target 'nowhere', which is no node of the net");
  ExpectRejected(SmallNet("<arc id=\"a1\" source=\"p1\" target=\"p2\"/>\n"),
                 "arc 'a1' joins two places");
  ExpectRejected(SmallNet("<arc id=\"a1\" source=\"t1\" target=\"t2\"/>\n",
                          "<transition id=\"t2\"/>\n"),
                 "arc 'a1' joins two transitions");
  ExpectRejected(SmallNet("<arc id=\"a1\" source=\"g\" target=\"t1\"/>\n"),
                 "which is not a place or a transition");
  ExpectRejected(SmallNet("<arc id=\"a1\" source=\"p1\" target=\"t1\">"
                          "<inscription><text>-1</text></inscription></arc>\n"),
                 "arc 'a1' has the negative weight -1");
  ExpectRejected(SmallNet("<arc id=\"a1\" source=\"p1\" target=\"t1\">"
                          "<inscription><text>two</text></inscription></arc>\n"),
                 "arc 'a1' has the weight 'two', which is not a number");
  ExpectRejected(SmallNet("<arc id=\"a1\" source=\"r\" target=\"t1\"/>\n",
                          "<referencePlace id=\"r\" ref=\"ghost\"/>\n"),
                 "a reference to the unknown node 'ghost'");
  ExpectRejected(SmallNet("<arc id=\"a1\" source=\"r\" target=\"t1\"/>\n",
                          "<referencePlace id=\"r\" ref=\"t1\"/>\n"),
                 "which is not a place");
}

TEST(PnmlLoader, RejectsBadMarkingsAndIds) {
  ExpectRejected(Document("<page id=\"g\"><place id=\"p\"><initialMarking><text>-2</text>"
                          "</initialMarking></place></page>"),
                 "place 'p' has the negative initial marking -2");
  ExpectRejected(Document("<page id=\"g\"><place id=\"p\"><initialMarking><text>lots</text>"
                          "</initialMarking></place></page>"),
                 "place 'p' has the initial marking 'lots', which is not a number");
  ExpectRejected(Document("<page id=\"g\"><place id=\"p\"><initialMarking><text>inf</text>"
                          "</initialMarking></place></page>"),
                 "is not a number");
  ExpectRejected(SmallNet("", "<place id=\"p1\"/>\n"), "duplicate id 'p1'");
  ExpectRejected(SmallNet("", "<transition id=\"g\"/>\n"), "duplicate id 'g'");
  ExpectRejected(SmallNet("", "<place/>\n"), "a place has no id");
}

TEST(PnmlLoader, RejectsBadRatesAndParameters) {
  const std::string l_sTool = "<toolspecific tool=\"quor\" version=\"1\">";
  ExpectRejected(SmallNet("", "<transition id=\"t2\">" + l_sTool +
                                  "<rate parameter=\"delta\"/></toolspecific></transition>\n"),
                 "transition 't2' refers to the unknown parameter 'delta'");
  ExpectRejected(SmallNet("", "<transition id=\"t2\">" + l_sTool +
                                  "<rate value=\"-0.1\"/></toolspecific></transition>\n"),
                 "transition 't2' has the negative rate -0.1");
  ExpectRejected(SmallNet("", "<transition id=\"t2\">" + l_sTool +
                                  "<rate value=\"fast\"/></toolspecific></transition>\n"),
                 "transition 't2' has the rate 'fast', which is not a number");
  ExpectRejected(SmallNet("", "<transition id=\"t2\">" + l_sTool +
                                  "<rate value=\"1\" parameter=\"k\"/></toolspecific></transition>\n"),
                 "exactly one of the attributes value, parameter and function");
  ExpectRejected(SmallNet("", "<transition id=\"t2\">" + l_sTool +
                                  "<rate value=\"1\"/><rate value=\"2\"/></toolspecific></transition>\n"),
                 "more than one <rate>");
  ExpectRejected(SmallNet("", "<transition id=\"t2\"><toolspecific tool=\"quor\" version=\"2\">"
                                  "<rate value=\"1\"/></toolspecific></transition>\n"),
                 "only version 1 is supported");
  ExpectRejected(Document(l_sTool + "<parameter name=\"k\" value=\"1\"/><parameter name=\"k\" "
                                    "value=\"2\"/></toolspecific>"),
                 "parameter 'k' is defined twice");
  ExpectRejected(Document(l_sTool + "<parameter name=\"k\" value=\"-1\"/></toolspecific>"),
                 "parameter 'k' has the negative value -1");
  ExpectRejected(Document(l_sTool + "<parameter name=\"k\" value=\"1e\"/></toolspecific>"),
                 "parameter 'k' has the value '1e', which is not a number");
  ExpectRejected(Document(l_sTool + "<parameter value=\"1\"/></toolspecific>"),
                 "a <parameter> has no name");
  ExpectRejected(Document(l_sTool + "<interval start=\"0\" end=\"10\" step=\"0\"/></toolspecific>"),
                 "the output step must be greater than 0");
  ExpectRejected(Document(l_sTool + "<constant name=\"k\" value=\"1\"/></toolspecific>"),
                 "unknown element <constant>");
}

TEST(PnmlLoader, ErrorsGiveTheLine) {
  PnmlLoadResult l_cResult = LoadPnmlText(
      SmallNet("<arc id=\"a1\" source=\"p1\" target=\"nowhere\"/>\n"), "lines.pnml");
  ASSERT_FALSE(l_cResult);
  // Line 1 is the XML declaration; the arc is on line 8.
  EXPECT_EQ(l_cResult.error.rfind("lines.pnml: line 8: ", 0), 0u) << l_cResult.error;
}

TEST(PnmlLoader, ABadFileLeavesOtherLoadsAlone) {
  PnmlLoadResult l_cGood = LoadPnmlFile(kModels + "/sir.pnml");
  PnmlLoadResult l_cBad = LoadPnmlText(SmallNet("<arc id=\"a1\" source=\"p1\"/>\n"), "bad.pnml");
  PnmlLoadResult l_cGoodAgain = LoadPnmlFile(kModels + "/sir.pnml");
  ASSERT_TRUE(l_cGood) << l_cGood.error;
  ASSERT_FALSE(l_cBad);
  ASSERT_TRUE(l_cGoodAgain) << l_cGoodAgain.error;
  EXPECT_TRUE(l_cGood.error.empty());
  EXPECT_EQ(l_cGoodAgain.net.places.size(), 3u);
  EXPECT_EQ(l_cGoodAgain.net.arcs.size(), l_cGood.net.arcs.size());
}

TEST(PnmlLoader, WorksOnAWorkerThread) {
  PnmlLoadResult l_cGood, l_cBad;
  std::thread l_cWorker([&]() {
    l_cGood = LoadPnmlFile(kModels + "/lotka-volterra.pnml");
    l_cBad = LoadPnmlText("<pnml><net id=\"n\">\n<page id=\"g\"></net></pnml>", "thread.pnml");
  });
  l_cWorker.join();
  ASSERT_TRUE(l_cGood) << l_cGood.error;
  EXPECT_EQ(l_cGood.net.transitions.size(), 3u);
  ASSERT_FALSE(l_cBad);
  EXPECT_EQ(l_cBad.error.rfind("thread.pnml: not a well-formed XML document", 0), 0u) << l_cBad.error;
  // The parser's own diagnosis, with its line, is passed on.
  EXPECT_NE(l_cBad.error.find("line 2"), std::string::npos) << l_cBad.error;
}

TEST(PnmlLoader, TheDocumentedExampleLoadsAndBehaves) {
  // The example net of the README's PNML section.
  std::ifstream l_cIn(QUOR_README);
  ASSERT_TRUE(l_cIn.good());
  std::string l_sDoc((std::istreambuf_iterator<char>(l_cIn)), std::istreambuf_iterator<char>());
  const std::size_t l_nNet = l_sDoc.find("<net id=\"inflow-decay\"");
  ASSERT_NE(l_nNet, std::string::npos);
  std::size_t l_nStart = l_sDoc.rfind("```xml\n", l_nNet);
  ASSERT_NE(l_nStart, std::string::npos);
  l_nStart += 7;
  std::size_t l_nEnd = l_sDoc.find("```", l_nStart);
  ASSERT_NE(l_nEnd, std::string::npos);
  PnmlLoadResult l_cResult = LoadPnmlText(l_sDoc.substr(l_nStart, l_nEnd - l_nStart), "README.md");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  EXPECT_EQ(l_cResult.net.id, "inflow-decay");
  ASSERT_EQ(l_cResult.net.transitions.size(), 2u);
  EXPECT_EQ(l_cResult.net.transitions[0].rateValue, 5.0);
  EXPECT_EQ(l_cResult.net.transitions[1].parameterName, "k");
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", l_cResult.net);
  ASSERT_TRUE(l_pSimulator);
  ASSERT_EQ(l_pSimulator->AdvanceTo(300.0), AdvanceStatus::Reached);
  EXPECT_NEAR(l_pSimulator->Marking()[0], 50.0, 1e-4);
}

TEST(PnmlLoader, FunctionRatesAreReadAndCheckedWithTheirLine) {
  const std::string l_sTool = "<toolspecific tool=\"quor\" version=\"1\">";
  const std::string l_sParameters = l_sTool +
                                    "<parameter name=\"Vmax\" value=\"2\"/>"
                                    "<parameter name=\"Km\" value=\"0.5\"/></toolspecific>\n";
  auto l_fNet = [&](const std::string& p_sRate) {
    return Document(l_sParameters +
                    "<page id=\"g\">\n"
                    "<place id=\"S\"><initialMarking><text>3</text></initialMarking></place>\n"
                    "<place id=\"P\"/>\n"
                    "<transition id=\"conversion\">" + l_sTool + p_sRate +
                    "</toolspecific></transition>\n"
                    "<arc id=\"a1\" source=\"S\" target=\"conversion\"/>\n"
                    "<arc id=\"a2\" source=\"conversion\" target=\"P\"/>\n"
                    "</page>\n");
  };
  PnmlLoadResult l_cResult =
      LoadPnmlText(l_fNet("<rate function=\"mm(S, Vmax, Km)\"/>"), "mm.pnml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  EXPECT_EQ(l_cResult.net.transitions[0].rateKind, RateKind::Function);
  EXPECT_EQ(l_cResult.net.transitions[0].function, "mm(S, Vmax, Km)");
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", l_cResult.net);
  ASSERT_TRUE(l_pSimulator);
  EXPECT_DOUBLE_EQ(l_pSimulator->Rates()[0], 2.0 * 3.0 / 3.5);
  // A number or a parameter name alone is mass action, as in a model.
  l_cResult = LoadPnmlText(l_fNet("<rate function=\" Km \"/>"), "k.pnml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  EXPECT_EQ(l_cResult.net.transitions[0].rateKind, RateKind::Parameter);
  EXPECT_EQ(l_cResult.net.transitions[0].parameterName, "Km");
  l_cResult = LoadPnmlText(l_fNet("<rate function=\"2.5\"/>"), "c.pnml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  EXPECT_EQ(l_cResult.net.transitions[0].rateKind, RateKind::Constant);
  EXPECT_EQ(l_cResult.net.transitions[0].rateValue, 2.5);
  // Bad functions: the line of the transition and the reason.
  ExpectRejected(l_fNet("<rate function=\"Vmax * Glucose\"/>"),
                 "line 8: transition 'conversion': unknown name 'Glucose' in the rate function "
                 "'Vmax * Glucose'");
  ExpectRejected(l_fNet("<rate function=\"Vmax * (S\"/>"), "line 8: transition 'conversion': ");
  ExpectRejected(l_fNet("<rate function=\"Vmax / P\"/>"),
                 "line 8: transition 'conversion': the rate function 'Vmax / P' gives inf in the "
                 "initial state");
  ExpectRejected(l_fNet("<rate function=\"Vmax\" value=\"1\"/>"),
                 "exactly one of the attributes value, parameter and function");
}

namespace {

// A net as PIPE writes it: type "P/T net", labels as <value> with the
// token class, graphics everywhere, PIPE's own transition attributes.
std::string PipeNet(const std::string& p_sArcType) {
  return "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><pnml>\n"
         "<net id=\"Net-One\" type=\"P/T net\">\n"
         "<token id=\"Default\" enabled=\"true\" red=\"0\" green=\"0\" blue=\"0\"/>\n"
         "<place id=\"P0\">\n"
         "<graphics><position x=\"135.0\" y=\"105.0\"/></graphics>\n"
         "<name><value>Waiting</value><graphics><offset x=\"0.0\" y=\"0.0\"/></graphics></name>\n"
         "<initialMarking><value>Default,4</value><graphics><offset x=\"0.0\" y=\"0.0\"/></graphics></initialMarking>\n"
         "<capacity><value>0</value></capacity>\n"
         "</place>\n"
         "<place id=\"P1\">\n"
         "<graphics><position x=\"335.0\" y=\"105.0\"/></graphics>\n"
         "<name><value>P1</value></name>\n"
         "<initialMarking><value>Default,0</value></initialMarking>\n"
         "</place>\n"
         "<transition id=\"T0\">\n"
         "<graphics><position x=\"240.0\" y=\"105.0\"/></graphics>\n"
         "<name><value>Serve</value><graphics><offset x=\"-5.0\" y=\"35.0\"/></graphics></name>\n"
         "<orientation><value>0</value></orientation>\n"
         "<rate><value>3.0</value></rate>\n"
         "<timed><value>true</value></timed>\n"
         "<infiniteServer><value>false</value></infiniteServer>\n"
         "<priority><value>1</value></priority>\n"
         "</transition>\n"
         "<arc id=\"P0 to T0\" source=\"P0\" target=\"T0\">\n"
         "<graphics/>\n"
         "<inscription><value>Default,2</value><graphics/></inscription>\n"
         "<tagged><value>false</value></tagged>\n"
         "<arcpath id=\"000\" x=\"161\" y=\"116\" curvePoint=\"false\"/>\n"
         "<arcpath id=\"001\" x=\"246\" y=\"116\" curvePoint=\"false\"/>\n"
         "<type value=\"" + p_sArcType + "\"/>\n"
         "</arc>\n"
         "<arc id=\"T0 to P1\" source=\"T0\" target=\"P1\">\n"
         "<inscription><value>Default,1</value></inscription>\n"
         "<type value=\"normal\"/>\n"
         "</arc>\n"
         "</net>\n</pnml>\n";
}

}  // namespace

TEST(PnmlLoader, ReadsNetsAsPipeWritesThem) {
  PnmlLoadResult l_cResult = LoadPnmlText(PipeNet("normal"), "pipe.xml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  ASSERT_EQ(l_rNet.places.size(), 2u);
  EXPECT_EQ(l_rNet.places[0].name, "Waiting");
  EXPECT_EQ(l_rNet.places[0].initialMarking, 4.0);
  EXPECT_EQ(l_rNet.places[1].initialMarking, 0.0);
  ASSERT_EQ(l_rNet.transitions.size(), 1u);
  EXPECT_EQ(l_rNet.transitions[0].name, "Serve");
  // PIPE's own rate is its tool's data: our default (mass action, 1).
  EXPECT_EQ(l_rNet.transitions[0].rateKind, RateKind::Constant);
  EXPECT_EQ(l_rNet.transitions[0].rateValue, 1.0);
  ASSERT_EQ(l_rNet.arcs.size(), 2u);
  EXPECT_EQ(l_rNet.arcs[0].weight, 2.0);
  EXPECT_TRUE(l_rNet.arcs[0].input);
  EXPECT_EQ(l_rNet.arcs[1].weight, 1.0);
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("stochastic", l_rNet);
  ASSERT_TRUE(l_pSimulator);
  ASSERT_EQ(l_pSimulator->AdvanceTo(1000.0), AdvanceStatus::Reached);
  EXPECT_EQ(l_pSimulator->Marking(), (std::vector<double>{0.0, 2.0}));

  // What a P/T net cannot express is refused, never dropped.
  ExpectRejected(PipeNet("inhibitor"),
                 "arc 'P0 to T0' is of the type 'inhibitor'; only standard arcs are supported");
  std::string l_sBounded = PipeNet("normal");
  l_sBounded.replace(l_sBounded.find("<capacity><value>0"), 18, "<capacity><value>3");
  ExpectRejected(l_sBounded, "place 'P0' has the capacity 3, which the engine cannot honour");
  std::string l_sColoured = PipeNet("normal");
  l_sColoured.replace(l_sColoured.find("Default,4"), 9, "Default,4,Red,2");
  ExpectRejected(l_sColoured, "tokens of several classes (a coloured net)");
}

TEST(PnmlLoader, ReadsExchangeFilesWithPagesReferencesGraphicsAndOtherTools) {
  // The shape of exchange collections and most editors: the PNML namespace
  // as default, a name and graphics on everything, tool data of others,
  // pages within pages, reference nodes across pages (and to references).
  const std::string l_sText =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!-- written by some editor -->\n"
      "<pnml xmlns=\"http://www.pnml.org/version-2009/grammar/pnml\">\n"
      "  <net id=\"Philosophers-2\" type=\"http://www.pnml.org/version-2009/grammar/ptnet\">\n"
      "    <name><text>Dining philosophers</text></name>\n"
      "    <toolspecific tool=\"Tina\" version=\"3.7\"><layout auto=\"yes\"/></toolspecific>\n"
      "    <page id=\"top\">\n"
      "      <name><text>Top</text><graphics><offset x=\"0\" y=\"0\"/></graphics></name>\n"
      "      <place id=\"fork1\">\n"
      "        <name><text>Fork 1</text><graphics><offset x=\"0\" y=\"-10\"/></graphics></name>\n"
      "        <graphics><position x=\"10\" y=\"20\"/><dimension x=\"20\" y=\"20\"/>"
      "<fill color=\"white\"/><line color=\"black\" width=\"1\" shape=\"line\"/></graphics>\n"
      "        <initialMarking><text> 1 </text><graphics><offset x=\"0\" y=\"0\"/></graphics>"
      "</initialMarking>\n"
      "        <toolspecific tool=\"GreatSPN\" version=\"3\"><tag>x</tag></toolspecific>\n"
      "      </place>\n"
      "      <place id=\"fork2\"><name><text>Fork 2</text></name>"
      "<initialMarking><text>1</text></initialMarking></place>\n"
      "      <page id=\"philosopher1\">\n"
      "        <place id=\"think1\"><initialMarking><text>1</text></initialMarking></place>\n"
      "        <place id=\"eat1\"/>\n"
      "        <referencePlace id=\"f1a\" ref=\"fork1\"/>\n"
      "        <referencePlace id=\"f1b\" ref=\"f1a\"/>\n"
      "        <referencePlace id=\"f2a\" ref=\"fork2\"/>\n"
      "        <transition id=\"take1\"><graphics><position x=\"1\" y=\"1\"/></graphics></transition>\n"
      "        <transition id=\"put1\"/>\n"
      "        <arc id=\"a1\" source=\"think1\" target=\"take1\">"
      "<graphics><position x=\"5\" y=\"5\"/></graphics>"
      "<inscription><text>1</text><graphics><offset x=\"1\" y=\"1\"/></graphics></inscription></arc>\n"
      "        <arc id=\"a2\" source=\"f1b\" target=\"take1\"/>\n"
      "        <arc id=\"a3\" source=\"f2a\" target=\"take1\"/>\n"
      "        <arc id=\"a4\" source=\"take1\" target=\"eat1\"/>\n"
      "        <arc id=\"a5\" source=\"eat1\" target=\"put1\"/>\n"
      "        <arc id=\"a6\" source=\"put1\" target=\"think1\"/>\n"
      "        <arc id=\"a7\" source=\"put1\" target=\"f1a\"/>\n"
      "        <arc id=\"a8\" source=\"put1\" target=\"fork2\"/>\n"
      "      </page>\n"
      "      <page id=\"philosopher2\">\n"
      "        <page id=\"deeper\">\n"
      "          <place id=\"think2\"><initialMarking><text>1</text></initialMarking></place>\n"
      "          <place id=\"eat2\"/>\n"
      "          <referenceTransition id=\"rtake2\" ref=\"take2\"/>\n"
      "        </page>\n"
      "        <transition id=\"take2\"/>\n"
      "        <transition id=\"put2\"/>\n"
      "        <arc id=\"b1\" source=\"think2\" target=\"rtake2\"/>\n"
      "        <arc id=\"b2\" source=\"fork1\" target=\"take2\"/>\n"
      "        <arc id=\"b3\" source=\"fork2\" target=\"take2\"/>\n"
      "        <arc id=\"b4\" source=\"take2\" target=\"eat2\"/>\n"
      "        <arc id=\"b5\" source=\"eat2\" target=\"put2\"/>\n"
      "        <arc id=\"b6\" source=\"put2\" target=\"think2\"/>\n"
      "        <arc id=\"b7\" source=\"put2\" target=\"fork1\"/>\n"
      "        <arc id=\"b8\" source=\"put2\" target=\"fork2\"/>\n"
      "      </page>\n"
      "    </page>\n"
      "  </net>\n"
      "</pnml>\n";
  PnmlLoadResult l_cResult = LoadPnmlText(l_sText, "philosophers.pnml");
  ASSERT_TRUE(l_cResult) << l_cResult.error;
  const Net& l_rNet = l_cResult.net;
  EXPECT_EQ(l_rNet.name, "Dining philosophers");
  ASSERT_EQ(l_rNet.places.size(), 6u);
  EXPECT_EQ(l_rNet.places[0].name, "Fork 1");
  EXPECT_EQ(l_rNet.places[0].initialMarking, 1.0);
  EXPECT_EQ(l_rNet.places[4].id, "think2");
  ASSERT_EQ(l_rNet.transitions.size(), 4u);
  ASSERT_EQ(l_rNet.arcs.size(), 16u);
  // The references joined the nodes they stand for.
  EXPECT_EQ(l_rNet.arcs[1].place, 0u);       // f1b -> f1a -> fork1
  EXPECT_EQ(l_rNet.arcs[8].transition, 2u);  // rtake2 -> take2
  // The forks are shared: one philosopher eats at a time, tokens are kept.
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("stochastic", l_rNet);
  ASSERT_TRUE(l_pSimulator);
  RunResult l_cRun = RunSimulation(*l_pSimulator, sim_test::Grid(0.0, 50.0, 0.5));
  ASSERT_EQ(l_cRun.status, RunStatus::Completed) << l_cRun.error;
  for (std::size_t i = 0; i < l_cRun.times.size(); ++i) {
    EXPECT_LE(l_cRun.marking[3][i] + l_cRun.marking[5][i], 1.0);                // eat1 + eat2
    EXPECT_EQ(l_cRun.marking[0][i] + l_cRun.marking[3][i] + l_cRun.marking[5][i], 1.0);  // fork1
  }
}
