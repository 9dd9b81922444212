// SPDX-License-Identifier: MIT
// The programs as a user and a script see them, run as child processes:
// every program answers --help and --version on stdout with status 0 and
// a usage error on stderr with status 2; the installed ones have a manual
// page; quor-simd listens where --bind says; the client example steers a
// run of quor-simd from start to end.
#include <gtest/gtest.h>
#include <wx/string.h>

#include <arpa/inet.h>
#include <signal.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "child_process.h"
#include "quor/model.h"
#include "quor/simulatorState.h"
#include "quor/steeringclient.h"
#include "quor/version.h"

using quor_test::Child;
using quor_test::ListeningPort;

namespace {

// QUOR_PROGRAMS: "name=path,name=path,...".
std::map<std::string, std::string> ProgramPaths() {
  std::map<std::string, std::string> l_mPaths;
  std::stringstream l_cList(QUOR_PROGRAMS);
  for (std::string l_sEntry; std::getline(l_cList, l_sEntry, ',');) {
    const std::size_t l_nAt = l_sEntry.find('=');
    if (l_nAt != std::string::npos) l_mPaths[l_sEntry.substr(0, l_nAt)] = l_sEntry.substr(l_nAt + 1);
  }
  return l_mPaths;
}

std::vector<std::string> ProgramNames() {
  std::vector<std::string> l_asNames;
  for (const auto& l_cEntry : ProgramPaths()) l_asNames.push_back(l_cEntry.first);
  return l_asNames;
}

std::string PathOf(const std::string& p_sName) { return ProgramPaths()[p_sName]; }

std::string FirstLine(const std::string& p_sText) { return p_sText.substr(0, p_sText.find('\n')); }

bool Contains(const std::string& p_sText, const std::string& p_sPart) {
  return p_sText.find(p_sPart) != std::string::npos;
}

class Conventions : public ::testing::TestWithParam<std::string> {
 protected:
  std::string Path() const { return PathOf(GetParam()); }
};

TEST_P(Conventions, VersionGoesToStdoutWithStatus0) {
  Child l_cChild({Path(), "--version"});
  ASSERT_EQ(l_cChild.Wait(), 0) << l_cChild.Err();
  EXPECT_EQ(FirstLine(l_cChild.Out()), GetParam() + " " + QUOR_VERSION_STRING);
  EXPECT_EQ(l_cChild.Err(), "");
}

TEST_P(Conventions, HelpGoesToStdoutWithStatus0) {
  Child l_cChild({Path(), "--help"});
  ASSERT_EQ(l_cChild.Wait(), 0) << l_cChild.Err();
  EXPECT_TRUE(Contains(l_cChild.Out(), "Usage: " + GetParam())) << l_cChild.Out();
  EXPECT_TRUE(Contains(l_cChild.Out(), "--help")) << l_cChild.Out();
  EXPECT_TRUE(Contains(l_cChild.Out(), "--version")) << l_cChild.Out();
  EXPECT_EQ(l_cChild.Err(), "");
}

TEST_P(Conventions, AUsageErrorGoesToStderrWithStatus2) {
  Child l_cChild({Path(), "--no-such-option"});
  EXPECT_EQ(l_cChild.Wait(), 2);
  EXPECT_EQ(l_cChild.Out(), "");
  EXPECT_TRUE(Contains(l_cChild.Err(), GetParam())) << l_cChild.Err();
  EXPECT_TRUE(Contains(l_cChild.Err(), "Usage: ")) << l_cChild.Err();
}

INSTANTIATE_TEST_SUITE_P(Every, Conventions, ::testing::ValuesIn(ProgramNames()),
                         [](const ::testing::TestParamInfo<std::string>& p_rInfo) {
                           std::string l_sName = p_rInfo.param;
                           std::replace(l_sName.begin(), l_sName.end(), '-', '_');
                           return l_sName;
                         });

TEST(Programs, EveryProgramIsChecked) {
  const std::vector<std::string> l_asNames = ProgramNames();
  for (const char* l_sName : {"quor-simd", "quor-steer-demo", "quor-wire-demo",
                              "quor-example-client", "quor-example-sim", "quor-example-run"})
    EXPECT_NE(std::find(l_asNames.begin(), l_asNames.end(), l_sName), l_asNames.end())
        << l_sName;
}

TEST(Programs, UsageErrorsFoundAfterParsingHaveStatus2) {
  Child l_cPort({PathOf("quor-simd"), "--port", "70000"});
  EXPECT_EQ(l_cPort.Wait(), 2);
  EXPECT_TRUE(Contains(l_cPort.Err(), "quor-simd: --port 70000")) << l_cPort.Err();
  EXPECT_TRUE(Contains(l_cPort.Err(), "Try 'quor-simd --help'")) << l_cPort.Err();
  Child l_cSpeed({PathOf("quor-steer-demo"), "--speed", "0"});
  EXPECT_EQ(l_cSpeed.Wait(), 2);
  EXPECT_TRUE(Contains(l_cSpeed.Err(), "quor-steer-demo: --speed")) << l_cSpeed.Err();
  Child l_cClient({PathOf("quor-example-client"), "127.0.0.1"});
  EXPECT_EQ(l_cClient.Wait(), 2);
  Child l_cWire({PathOf("quor-wire-demo"), "surplus"});
  EXPECT_EQ(l_cWire.Wait(), 2);
}

TEST(Programs, ARunTimeFailureHasStatus1) {
  // Nobody listens on port 1 of this machine.
  Child l_cDemo({PathOf("quor-steer-demo"), "--port", "1"});
  EXPECT_EQ(l_cDemo.Wait(), 1);
  EXPECT_TRUE(Contains(l_cDemo.Err(), "quor-steer-demo: cannot connect")) << l_cDemo.Err();
  Child l_cClient({PathOf("quor-example-client"), "127.0.0.1", "1"});
  EXPECT_EQ(l_cClient.Wait(), 1);
  EXPECT_TRUE(Contains(l_cClient.Err(), "quor-example-client: connecting failed"))
      << l_cClient.Err();
}

#ifdef QUOR_MAN_PAGES
// The installed programs' manual pages, written from --help and --version.
TEST(Programs, InstalledProgramsHaveAManualPage) {
  std::stringstream l_cList(QUOR_INSTALLED_PROGRAMS);
  int l_nPages = 0;
  for (std::string l_sName; std::getline(l_cList, l_sName, ',');) {
    std::ifstream l_cPage(std::string(QUOR_MAN_DIR) + "/" + l_sName + ".1");
    ASSERT_TRUE(l_cPage.good()) << l_sName;
    const std::string l_sText((std::istreambuf_iterator<char>(l_cPage)),
                              std::istreambuf_iterator<char>());
    EXPECT_TRUE(Contains(l_sText, ".TH " + wxString(l_sName).Upper().ToStdString()))
        << l_sName;
    EXPECT_TRUE(Contains(l_sText, std::string(QUOR_VERSION_STRING))) << l_sName;
    EXPECT_TRUE(Contains(l_sText, "\\-\\-version")) << l_sName;
    if (l_sName == "quor-simd") {
      EXPECT_TRUE(Contains(l_sText, "\\-\\-bind")) << l_sText;
    }
    ++l_nPages;
  }
  EXPECT_GE(l_nPages, 3);
}
#endif

// The local address of the listening TCP socket on p_nPort, as
// /proc/net/tcp shows it ("0100007F" is 127.0.0.1); "" when there is none.
std::string ListeningAddress(unsigned int p_nPort) {
  std::ifstream l_cTable("/proc/net/tcp");
  std::string l_sLine;
  std::getline(l_cTable, l_sLine);  // the header
  while (std::getline(l_cTable, l_sLine)) {
    std::istringstream l_cFields(l_sLine);
    std::string l_sSlot, l_sLocal, l_sRemote, l_sState;
    l_cFields >> l_sSlot >> l_sLocal >> l_sRemote >> l_sState;
    const std::size_t l_nColon = l_sLocal.find(':');
    if (l_nColon == std::string::npos || l_sState != "0A") continue;  // 0A: listening
    if (std::stoul(l_sLocal.substr(l_nColon + 1), nullptr, 16) == p_nPort)
      return l_sLocal.substr(0, l_nColon);
  }
  return "";
}

TEST(QuorSimd, ListensOnLoopbackUnlessToldOtherwise) {
  Child l_cDefault({PathOf("quor-simd"), "--port", "0"});
  const unsigned int l_nPort = ListeningPort(l_cDefault.WaitForLine("listening on port"));
  ASSERT_NE(l_nPort, 0u) << l_cDefault.Err();
  EXPECT_EQ(ListeningAddress(l_nPort), "0100007F");

  Child l_cEvery({PathOf("quor-simd"), "--port", "0", "--bind", "0.0.0.0"});
  const unsigned int l_nEveryPort = ListeningPort(l_cEvery.WaitForLine("listening on port"));
  ASSERT_NE(l_nEveryPort, 0u) << l_cEvery.Err();
  EXPECT_EQ(ListeningAddress(l_nEveryPort), "00000000");

  l_cDefault.Signal(SIGTERM);
  l_cEvery.Signal(SIGTERM);
  EXPECT_EQ(l_cDefault.Wait(), 0);
  EXPECT_EQ(l_cEvery.Wait(), 0);
}

TEST(QuorSimd, AnAddressItCannotListenOnIsARunTimeFailure) {
  // 192.0.2.1 (TEST-NET-1) belongs to no interface of this machine.
  Child l_cForeign({PathOf("quor-simd"), "--port", "0", "--bind", "192.0.2.1"});
  EXPECT_EQ(l_cForeign.Wait(), 1);
  EXPECT_EQ(l_cForeign.Out(), "");
  EXPECT_TRUE(Contains(l_cForeign.Err(), "cannot listen on port 0 of 192.0.2.1"))
      << l_cForeign.Err();

  Child l_cEmpty({PathOf("quor-simd"), "--bind", ""});
  EXPECT_EQ(l_cEmpty.Wait(), 2);
  EXPECT_TRUE(Contains(l_cEmpty.Err(), "--bind")) << l_cEmpty.Err();
}

TEST(ExampleClient, SteersARunOfQuorSimdFromStartToEnd) {
  Child l_cServer({PathOf("quor-simd"), "--port", "0"});
  const unsigned int l_nPort = ListeningPort(l_cServer.WaitForLine("listening on port"));
  ASSERT_NE(l_nPort, 0u) << l_cServer.Err();

  Child l_cClient({PathOf("quor-example-client"), "127.0.0.1", std::to_string(l_nPort)});
  ASSERT_EQ(l_cClient.Wait(), 0) << l_cClient.Err();
  const std::string& l_sOut = l_cClient.Out();
  EXPECT_TRUE(Contains(l_sOut, "model: SIR epidemic\n")) << l_sOut;
  EXPECT_TRUE(Contains(l_sOut, "parameter beta = 0.0003\n")) << l_sOut;
  // Everyone is somewhere at the end: S + I + R is the population.
  double l_dTotal = 0.0;
  int l_nPlaces = 0;
  std::istringstream l_cLines(l_sOut);
  for (std::string l_sLine; std::getline(l_cLines, l_sLine);) {
    if (l_sLine.compare(0, 6, "final ") != 0) continue;
    l_dTotal += std::stod(l_sLine.substr(l_sLine.find(" = ") + 3));
    ++l_nPlaces;
  }
  EXPECT_EQ(l_nPlaces, 3) << l_sOut;
  EXPECT_NEAR(l_dTotal, 1000.0, 1e-3) << l_sOut;

  // The server kept the halved parameter and finished the run.
  quor::SteeringClient l_cCheck(wxT("127.0.0.1"), wxString::Format(wxT("%u"), l_nPort));
  ASSERT_EQ(l_cCheck.ConnectToServer(true), quor::SUCCESS);
  ASSERT_EQ(l_cCheck.Initialize(0), quor::SUCCESS);
  std::vector<double> l_adValues;
  ASSERT_EQ(l_cCheck.ReadCurrentParameterValues(l_adValues), quor::SUCCESS);
  ASSERT_FALSE(l_adValues.empty());
  EXPECT_DOUBLE_EQ(l_adValues[0], 0.00015);
  int l_nState = -1;
  ASSERT_EQ(l_cCheck.ReadSimulatorState(l_nState), quor::SUCCESS);
  EXPECT_EQ(l_nState, quor::SIMULATOR_FINISHED);
  delete l_cCheck.GetModel();
  l_cCheck.DisConnectFromServer();

  l_cServer.Signal(SIGTERM);
  EXPECT_EQ(l_cServer.Wait(), 0) << l_cServer.Err();
}

TEST(ExampleSim, ServesItsModelOnTheFreePortItPrints) {
  Child l_cServer({PathOf("quor-example-sim"), "--port", "0"});
  const unsigned int l_nPort = ListeningPort(l_cServer.WaitForLine("listening on port"));
  ASSERT_NE(l_nPort, 0u) << l_cServer.Err();
  quor::SteeringClient l_cClient(wxT("127.0.0.1"), wxString::Format(wxT("%u"), l_nPort));
  ASSERT_EQ(l_cClient.ConnectToServer(true), quor::SUCCESS);
  std::vector<wxString> l_asNames;
  ASSERT_EQ(l_cClient.GetRuningModelNames(l_asNames), quor::SUCCESS);
  ASSERT_EQ(l_asNames.size(), 1u);
  EXPECT_EQ(l_asNames[0], wxT("decay"));
  l_cClient.DisConnectFromServer();
}

}  // namespace
