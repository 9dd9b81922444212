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
                 "highlevelnet");
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
                 "exactly one of the attributes value and parameter");
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
