// SPDX-License-Identifier: MIT
// The quor-simd program as a script sees it: started as a child process,
// it prints the port it listens on, serves clients, reports unusable model
// files and options, and ends cleanly on SIGTERM and SIGINT.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "child_process.h"
#include "quor/steeringclient.h"
#include "simd_test_util.h"

using namespace quor;
using namespace simd_test;

namespace {

std::vector<std::string> Names(unsigned int p_nPort, unsigned int& p_rnResult) {
  SteeringClient c(wxT("127.0.0.1"), wxString::Format(wxT("%u"), p_nPort));
  c.SetTimeout(30);
  std::vector<wxString> l_asNames;
  p_rnResult = c.ConnectToServer(true);
  if (p_rnResult == 1) p_rnResult = c.GetRuningModelNames(l_asNames);
  std::vector<std::string> l_asResult;
  for (const wxString& l_sName : l_asNames) l_asResult.push_back(Text(l_sName));
  return l_asResult;
}

const std::string PROGRAM = QUOR_SIMD_PROGRAM;
const std::string LISTENING = "quor-simd listening on port ";

}  // namespace

TEST(SimdProgram, PrintsTheFreePortItListensOnAndEndsOnSigterm) {
  Child l_cServer({PROGRAM, "--port", "0"});
  ASSERT_TRUE(l_cServer.Started());
  const unsigned int l_nPort = WaitForPort(l_cServer, LISTENING);
  ASSERT_NE(l_nPort, 0u) << "stdout: " << l_cServer.Out() << "\nstderr: " << l_cServer.Err();
  ASSERT_NE(l_nPort, 3000u);

  unsigned int l_nResult = 0;
  EXPECT_EQ(Names(l_nPort, l_nResult), (std::vector<std::string>{"SIR epidemic"}));
  EXPECT_EQ(l_nResult, 1u);

  l_cServer.Signal(SIGTERM);
  EXPECT_EQ(l_cServer.Wait(), 0) << l_cServer.Err();
  EXPECT_NE(l_cServer.Err().find("The server has been Started!"), std::string::npos);
  EXPECT_NE(l_cServer.Err().find("quor-simd stopped"), std::string::npos) << l_cServer.Err();
}

TEST(SimdProgram, EndsCleanlyOnSigintWhileARunGoesOn) {
  Child l_cServer({PROGRAM, "--port", "0"});
  ASSERT_TRUE(l_cServer.Started());
  const unsigned int l_nPort = WaitForPort(l_cServer, LISTENING);
  ASSERT_NE(l_nPort, 0u) << l_cServer.Err();
  {
    SteeringClient c(wxT("127.0.0.1"), wxString::Format(wxT("%u"), l_nPort));
    c.SetTimeout(30);
    ASSERT_EQ(c.ConnectToServer(true), 1u);
    ASSERT_EQ(c.Initialize(0), 1u);
    ASSERT_EQ(c.ChanageSimulatorSpeed(2), 1u);  // 100 seconds for the run
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 100, 0.5), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForState(c, quor::SIMULATOR_RUNNING, &l_cStats)) << l_cStats.state;
    delete c.GetModel();
    // The client stays connected while the server goes.
    l_cServer.Signal(SIGINT);
    EXPECT_EQ(l_cServer.Wait(), 0) << l_cServer.Err();
  }
  EXPECT_NE(l_cServer.Err().find("signal 2"), std::string::npos) << l_cServer.Err();
}

TEST(SimdProgram, BadModelsAreNamedAndTheGoodOnesServed) {
  TempFile l_cBroken("program-broken.pnml", "<pnml><net id=\"x\">");
  Child l_cServer({PROGRAM, "--port", "0", "--model", l_cBroken.Path(), "--model",
                   std::string(QUOR_MODELS_DIR) + "/lotka-volterra.pnml"});
  ASSERT_TRUE(l_cServer.Started());
  const unsigned int l_nPort = WaitForPort(l_cServer, LISTENING);
  ASSERT_NE(l_nPort, 0u) << l_cServer.Err();
  unsigned int l_nResult = 0;
  EXPECT_EQ(Names(l_nPort, l_nResult).size(), 1u);
  EXPECT_EQ(l_nResult, 1u);
  l_cServer.Signal(SIGTERM);
  EXPECT_EQ(l_cServer.Wait(), 0);
  EXPECT_NE(l_cServer.Err().find("Error: cannot load a model: " + l_cBroken.Path()),
            std::string::npos)
      << l_cServer.Err();
}

TEST(SimdProgram, WithoutAnyUsableModelItEndsWithTheErrors) {
  TempFile l_cBroken("program-only.pnml", "not a net at all");
  const std::string l_sMissing = ::testing::TempDir() + "simd-program-missing.pnml";
  Child l_cServer({PROGRAM, "--port", "0", "--model", l_cBroken.Path(), "-m", l_sMissing});
  ASSERT_TRUE(l_cServer.Started());
  EXPECT_EQ(l_cServer.Wait(), 1);
  EXPECT_EQ(l_cServer.Out().find("listening"), std::string::npos) << l_cServer.Out();
  EXPECT_NE(l_cServer.Err().find(l_cBroken.Path()), std::string::npos) << l_cServer.Err();
  EXPECT_NE(l_cServer.Err().find(l_sMissing), std::string::npos) << l_cServer.Err();
  EXPECT_NE(l_cServer.Err().find("no model could be loaded"), std::string::npos);
}

TEST(SimdProgram, HelpAndBadOptions) {
  Child l_cHelp({PROGRAM, "--help"});
  EXPECT_EQ(l_cHelp.Wait(), 0);
  EXPECT_NE(l_cHelp.Out().find("--port"), std::string::npos) << l_cHelp.Out();
  EXPECT_NE(l_cHelp.Out().find("--model"), std::string::npos);

  Child l_cBad({PROGRAM, "--prot", "0"});
  EXPECT_EQ(l_cBad.Wait(), 2);
  EXPECT_NE(l_cBad.Err().find("prot"), std::string::npos) << l_cBad.Err();
  EXPECT_NE(l_cBad.Err().find("Usage"), std::string::npos) << l_cBad.Err();
}

TEST(SimdProgram, APortInUseIsAnError) {
  // A listener of our own holds an ephemeral port.
  const int l_nFd = ::socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(l_nFd, 0);
  sockaddr_in l_cAddr{};
  l_cAddr.sin_family = AF_INET;
  l_cAddr.sin_addr.s_addr = htonl(INADDR_ANY);
  l_cAddr.sin_port = 0;
  ASSERT_EQ(::bind(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), sizeof(l_cAddr)), 0);
  ASSERT_EQ(::listen(l_nFd, 1), 0);
  socklen_t l_nLength = sizeof(l_cAddr);
  ASSERT_EQ(::getsockname(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), &l_nLength), 0);
  const std::string l_sPort = std::to_string(ntohs(l_cAddr.sin_port));

  Child l_cServer({PROGRAM, "--port", l_sPort});
  EXPECT_EQ(l_cServer.Wait(), 1);
  ::close(l_nFd);
  EXPECT_NE(l_cServer.Err().find("cannot listen on port " + l_sPort), std::string::npos)
      << l_cServer.Err();
}
