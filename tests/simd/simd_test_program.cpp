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

#include "quor/steeringclient.h"
#include "simd_test_util.h"

using namespace quor;
using namespace simd_test;

namespace {

typedef std::chrono::steady_clock Clock;

// A child process with its stdout and stderr read through pipes. The
// destructor kills it if it still runs.
class Child {
 public:
  explicit Child(const std::vector<std::string>& p_asArgs) {
    int l_anOut[2], l_anErr[2];
    if (::pipe(l_anOut) != 0 || ::pipe(l_anErr) != 0) return;
    std::vector<char*> l_apArgs;
    for (const std::string& l_sArg : p_asArgs) l_apArgs.push_back(const_cast<char*>(l_sArg.c_str()));
    l_apArgs.push_back(nullptr);
    m_nPid = ::fork();
    if (m_nPid == 0) {
      ::dup2(l_anOut[1], 1);
      ::dup2(l_anErr[1], 2);
      ::close(l_anOut[0]);
      ::close(l_anErr[0]);
      ::close(l_anOut[1]);
      ::close(l_anErr[1]);
      ::execv(l_apArgs[0], l_apArgs.data());
      ::_exit(127);
    }
    ::close(l_anOut[1]);
    ::close(l_anErr[1]);
    m_nOut = l_anOut[0];
    m_nErr = l_anErr[0];
  }
  ~Child() {
    if (m_nPid > 0 && m_nStatus < 0) {
      ::kill(m_nPid, SIGKILL);
      int l_nStatus = 0;
      ::waitpid(m_nPid, &l_nStatus, 0);
    }
    if (m_nOut >= 0) ::close(m_nOut);
    if (m_nErr >= 0) ::close(m_nErr);
  }

  bool Started() const { return m_nPid > 0; }
  void Signal(int p_nSignal) { ::kill(m_nPid, p_nSignal); }

  // Waits for a whole line on stdout that contains p_sText; returns it, or
  // "" when the deadline passed or the program ended first.
  std::string WaitForLine(const std::string& p_sText, int p_nTimeoutMs = DEADLINE_MS) {
    const Clock::time_point l_tDeadline = Clock::now() + std::chrono::milliseconds(p_nTimeoutMs);
    for (;;) {
      std::size_t l_nStart = 0;
      for (std::size_t l_nEnd; (l_nEnd = m_sOut.find('\n', l_nStart)) != std::string::npos;
           l_nStart = l_nEnd + 1) {
        const std::string l_sLine = m_sOut.substr(l_nStart, l_nEnd - l_nStart);
        if (l_sLine.find(p_sText) != std::string::npos) return l_sLine;
      }
      if (Clock::now() > l_tDeadline || !Drain(50)) return "";
    }
  }

  // Waits for the program to end; its exit status, or -1 when it did not
  // end in time (or ended by a signal).
  int Wait(int p_nTimeoutMs = DEADLINE_MS) {
    const Clock::time_point l_tDeadline = Clock::now() + std::chrono::milliseconds(p_nTimeoutMs);
    while (m_nStatus < 0 && Clock::now() < l_tDeadline) {
      int l_nStatus = 0;
      if (::waitpid(m_nPid, &l_nStatus, WNOHANG) == m_nPid) {
        m_nStatus = l_nStatus;
        break;
      }
      Drain(20);
    }
    while (Drain(0)) {
    }
    if (m_nStatus < 0 || !WIFEXITED(m_nStatus)) return -1;
    return WEXITSTATUS(m_nStatus);
  }

  const std::string& Out() const { return m_sOut; }
  const std::string& Err() const { return m_sErr; }

 private:
  // Reads what is there (waiting up to p_nMillis); false once both pipes
  // are closed and empty.
  bool Drain(int p_nMillis) {
    pollfd l_acFds[2] = {{m_nOut, POLLIN, 0}, {m_nErr, POLLIN, 0}};
    if (m_nOut < 0 && m_nErr < 0) {
      if (p_nMillis > 0) std::this_thread::sleep_for(std::chrono::milliseconds(p_nMillis));
      return false;
    }
    if (::poll(l_acFds, 2, p_nMillis) <= 0) return true;
    bool l_bAny = false;
    int* l_apnFds[2] = {&m_nOut, &m_nErr};
    std::string* l_apsTexts[2] = {&m_sOut, &m_sErr};
    for (int i = 0; i < 2; ++i) {
      if (*l_apnFds[i] < 0 || l_acFds[i].revents == 0) continue;
      char l_acBuffer[4096];
      const ssize_t l_nRead = ::read(*l_apnFds[i], l_acBuffer, sizeof(l_acBuffer));
      if (l_nRead > 0) {
        l_apsTexts[i]->append(l_acBuffer, static_cast<std::size_t>(l_nRead));
        l_bAny = true;
      } else {
        ::close(*l_apnFds[i]);
        *l_apnFds[i] = -1;
      }
    }
    return l_bAny || m_nOut >= 0 || m_nErr >= 0;
  }

  pid_t m_nPid = -1;
  int m_nOut = -1, m_nErr = -1;
  int m_nStatus = -1;
  std::string m_sOut, m_sErr;
};

unsigned int PortOf(const std::string& p_sLine) {
  const std::string l_sPrefix = "quor-simd listening on port ";
  if (p_sLine.compare(0, l_sPrefix.size(), l_sPrefix) != 0) return 0;
  return static_cast<unsigned int>(std::stoul(p_sLine.substr(l_sPrefix.size())));
}

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

}  // namespace

TEST(SimdProgram, PrintsTheFreePortItListensOnAndEndsOnSigterm) {
  Child l_cServer({PROGRAM, "--port", "0"});
  ASSERT_TRUE(l_cServer.Started());
  const std::string l_sLine = l_cServer.WaitForLine("listening");
  const unsigned int l_nPort = PortOf(l_sLine);
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
  const unsigned int l_nPort = PortOf(l_cServer.WaitForLine("listening"));
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
  const unsigned int l_nPort = PortOf(l_cServer.WaitForLine("listening"));
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
  EXPECT_EQ(l_cBad.Wait(), 1);
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
