// SPDX-License-Identifier: MIT
// Shared pieces of the simulation server's tests: a server in-process with
// its event loop on the test's main thread, clients on threads of their
// own, polling of the runtime state with generous deadlines, and the
// engine's own runs as the reference that served results must match.
#ifndef QUOR_TESTS_SIMD_TEST_UTIL_H
#define QUOR_TESTS_SIMD_TEST_UTIL_H

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/steeringclient.h"
#include "child_process.h"
#include "server_harness.h"
#include "steering_clients.h"
#include "simcore/builtinModels.h"
#include "simcore/simulator.h"
#include "simd/simdCommon.h"
#include "simd/simdServer.h"

namespace simd_test {

using quor::SteeringClient;
using quor::sim::Matrix;

using quor_test::CLIENT_DEADLINE_MS;
const int DEADLINE_MS = CLIENT_DEADLINE_MS;

inline std::string Text(const wxString& p_s) { return quor::simd::ToStd(p_s); }

// A file below the test's temporary folder, removed with the object.
class TempFile {
 public:
  TempFile(const std::string& p_sName, const std::string& p_sContent)
      : m_sPath(::testing::TempDir() + "simd-" + std::to_string(::getpid()) + "-" + p_sName) {
    std::ofstream l_cFile(m_sPath.c_str());
    l_cFile << p_sContent;
  }
  ~TempFile() { std::remove(m_sPath.c_str()); }
  const std::string& Path() const { return m_sPath; }

 private:
  std::string m_sPath;
};

// Programs run as child processes (tests/support/child_process.h).
using quor_test::Child;

// Waits for the line "<p_sPrefix><port>" on the child's stdout; the port,
// or 0 when none came.
inline unsigned int WaitForPort(Child& p_rChild, const std::string& p_sPrefix) {
  return quor_test::ListeningPort(p_rChild.WaitForLine(p_sPrefix));
}

// The runtime state and its polling (tests/support/steering_clients.h).
typedef quor_test::RunStats Stats;
inline Stats ReadStats(SteeringClient& p_rClient) { return quor_test::ReadRunStats(p_rClient); }
inline bool WaitForStats(SteeringClient& p_rClient, const std::function<bool(const Stats&)>& p_fDone,
                         Stats* p_pcLast = nullptr, int p_nTimeoutMs = DEADLINE_MS) {
  return quor_test::WaitForRunStats(p_rClient, p_fDone, p_pcLast, p_nTimeoutMs);
}
inline bool WaitForState(SteeringClient& p_rClient, int p_nState, Stats* p_pcLast = nullptr) {
  return quor_test::WaitForRunState(p_rClient, p_nState, p_pcLast);
}

inline Matrix ReadResults(SteeringClient& p_rClient) {
  Matrix l_aadResults;
  EXPECT_EQ(p_rClient.ReadResultMatrix(l_aadResults), 1u);
  return l_aadResults;
}

inline std::size_t Columns(const Matrix& p_rMatrix) {
  return p_rMatrix.empty() ? 0 : p_rMatrix[0].size();
}

// The engine's own run of a net, steered by p_fSteer at each output point
// (after the point was recorded, as the server does).
inline Matrix Reference(
    const quor::sim::Net& p_rNet, const std::string& p_sKind, const quor::sim::OutputGrid& p_rGrid,
    const std::function<void(std::size_t, quor::sim::Simulator&)>& p_fSteer =
        [](std::size_t, quor::sim::Simulator&) {},
    const std::vector<std::pair<std::string, std::string> >& p_aSettings = {}) {
  std::string l_sError;
  std::unique_ptr<quor::sim::Simulator> l_pcSimulator =
      quor::sim::CreateSimulator(p_sKind, p_rNet, &l_sError);
  EXPECT_TRUE(l_pcSimulator) << l_sError;
  if (!l_pcSimulator) return Matrix();
  for (const auto& l_cSetting : p_aSettings)
    EXPECT_TRUE(l_pcSimulator->ApplySetting(l_cSetting.first, l_cSetting.second));
  quor::sim::NetState l_cState = p_rNet.InitialState();
  l_cState.time = p_rGrid.start;
  EXPECT_TRUE(l_pcSimulator->Reset(l_cState));
  quor::sim::RunResult l_cResult = quor::sim::RunSimulation(
      *l_pcSimulator, p_rGrid,
      [&](std::size_t p_nIndex, double, quor::sim::Simulator& p_rSimulator) {
        p_fSteer(p_nIndex, p_rSimulator);
        return true;
      },
      true);
  EXPECT_EQ(l_cResult.status, quor::sim::RunStatus::Completed) << l_cResult.error;
  return l_cResult.marking;
}

inline quor::sim::OutputGrid Grid(double p_dStart, double p_dEnd, double p_dStep) {
  quor::sim::OutputGrid l_cGrid;
  l_cGrid.start = p_dStart;
  l_cGrid.end = p_dEnd;
  l_cGrid.step = p_dStep;
  return l_cGrid;
}

// Equal up to rounding (both sides run the same code on the same numbers).
inline void ExpectSameMatrix(const Matrix& p_rExpected, const Matrix& p_rActual) {
  ASSERT_EQ(p_rActual.size(), p_rExpected.size());
  for (std::size_t r = 0; r < p_rExpected.size(); ++r) {
    ASSERT_EQ(p_rActual[r].size(), p_rExpected[r].size()) << "row " << r;
    for (std::size_t c = 0; c < p_rExpected[r].size(); ++c)
      ASSERT_NEAR(p_rActual[r][c], p_rExpected[r][c], 1e-9 * (1.0 + std::fabs(p_rExpected[r][c])))
          << "row " << r << ", column " << c;
  }
}

// A SimdServer with the built-in SIR net, listening on a free port, whose
// event loop runs on the test's main thread while clients run.
class SimdTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_pcServer.reset(new quor::simd::SimdServer);
    m_nModel = m_pcServer->AddNet(quor::sim::SirNet());
    ASSERT_TRUE(m_pcServer->Start(0));
    m_nPort = m_pcServer->GetPort();
    ASSERT_NE(m_nPort, 0u);
  }
  void TearDown() override {
    m_pcServer->Shutdown();
    m_pcServer.reset();
  }

  wxString Service() const { return wxString::Format(wxT("%u"), m_nPort); }

  // Runs each body on a thread of its own with a client attached to model
  // p_nIndex, while the main thread runs the event loop.
  void RunClients(const std::vector<std::function<void(SteeringClient&)> >& p_afBodies,
                  int p_nIndex = 0) {
    EXPECT_TRUE(quor_test::RunClientThreads(Service(), p_afBodies, p_nIndex));
  }
  void RunClient(const std::function<void(SteeringClient&)>& p_fBody, int p_nIndex = 0) {
    RunClients({p_fBody}, p_nIndex);
  }

  std::unique_ptr<quor::simd::SimdServer> m_pcServer;
  int m_nModel = -1;
  unsigned int m_nPort = 0;
};

}  // namespace simd_test

#endif  // QUOR_TESTS_SIMD_TEST_UTIL_H
