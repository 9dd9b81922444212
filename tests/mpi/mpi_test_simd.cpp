// SPDX-License-Identifier: MIT
// quor-simd under mpirun: one steering endpoint for the whole job, the
// runs of an ensemble and the values of a scan shared out among the ranks,
// steering and pause reaching every rank at the same output point, and a
// rank that fails ending the job with rank 0 saying why.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "quor/simulatorState.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringclient.h"
#include "simd/netModel.h"
#include "simd_test_util.h"

using namespace quor;
using namespace simd_test;

namespace {

const std::string PROGRAM = QUOR_SIMD_PROGRAM;
const std::string LISTENING = "quor-simd listening on port ";
const std::string DECAY = std::string(QUOR_MODELS_DIR) + "/decay.pnml";

// mpirun --oversubscribe -np N [-x VAR=VALUE] quor-simd --port 0 --model
// decay.pnml [options]. Root may run it only when it says so.
std::vector<std::string> Job(int p_nRanks, const std::vector<std::string>& p_asOptions,
                             const std::string& p_sFault = std::string()) {
  std::vector<std::string> l_asArgs = {QUOR_MPIEXEC, "--oversubscribe"};
  if (::geteuid() == 0) l_asArgs.push_back("--allow-run-as-root");
  l_asArgs.insert(l_asArgs.end(), {"-np", std::to_string(p_nRanks)});
  if (!p_sFault.empty()) l_asArgs.insert(l_asArgs.end(), {"-x", "QUOR_SIMD_RANK_FAULT=" + p_sFault});
  // Open MPI unloads its plugins when the job ends, so what they keep can no
  // longer be told from the job's own memory by the leak checker of a
  // sanitized build: the ranks check everything else.
  const char* l_pOptions = std::getenv("ASAN_OPTIONS");
  l_asArgs.insert(l_asArgs.end(),
                  {"-x", "ASAN_OPTIONS=" + (l_pOptions ? std::string(l_pOptions) + ":" : "") +
                             "detect_leaks=0"});
  l_asArgs.insert(l_asArgs.end(), {PROGRAM, "--port", "0", "--model", DECAY});
  l_asArgs.insert(l_asArgs.end(), p_asOptions.begin(), p_asOptions.end());
  return l_asArgs;
}

// A client of the job's one model.
class Client {
 public:
  explicit Client(unsigned int p_nPort)
      : m_cClient(wxT("127.0.0.1"), wxString::Format(wxT("%u"), p_nPort)) {
    m_cClient.SetTimeout(30);
    m_bReady = m_cClient.ConnectToServer(true) == 1 && m_cClient.Initialize(0) == 1;
  }
  ~Client() { delete m_cClient.GetModel(); }
  bool Ready() const { return m_bReady; }
  SteeringClient& operator*() { return m_cClient; }
  SteeringClient* operator->() { return &m_cClient; }

 private:
  SteeringClient m_cClient;
  bool m_bReady = false;
};

void WriteSettings(SteeringClient& p_rClient, const wxString& p_sSimulator,
                   const std::vector<std::pair<std::string, std::string>>& p_aSettings) {
  SimulatorAttribute l_cWrite;
  for (const auto& l_rSetting : p_aSettings)
    l_cWrite.AddAttribute(wxString::FromUTF8(l_rSetting.first.c_str()), wxT(""),
                          wxString::FromUTF8(l_rSetting.second.c_str()), 0, 0, 0);
  ASSERT_EQ(p_rClient.SendSimulatorSetting(p_sSimulator, &l_cWrite), 1u);
}

// Ends the job through rank 0 (the process the log names): every rank
// ends and the job's status is 0.
void EndJob(Child& p_rJob) {
  const std::string l_sKey = "rank 0 is process ";
  // The line may still be in the pipe: read on (the job keeps running).
  for (int i = 0; i < 100 && p_rJob.Err().find(l_sKey) == std::string::npos; ++i)
    p_rJob.Wait(100);
  const std::size_t l_nAt = p_rJob.Err().find(l_sKey);
  ASSERT_NE(l_nAt, std::string::npos) << p_rJob.Err();
  const long l_nPid = std::stol(p_rJob.Err().substr(l_nAt + l_sKey.size()));
  ASSERT_GT(l_nPid, 1);
  ::kill(static_cast<pid_t>(l_nPid), SIGTERM);
  EXPECT_EQ(p_rJob.Wait(), 0) << p_rJob.Err();
  EXPECT_NE(p_rJob.Err().find("quor-simd stopped"), std::string::npos) << p_rJob.Err();
}

// An ensemble of 400 decay runs of seed 7 from 0 to 1 on p_nRanks ranks:
// its result matrix.
Matrix Ensemble(int p_nRanks) {
  Child l_cJob(Job(p_nRanks, {}));
  const unsigned int l_nPort = WaitForPort(l_cJob, LISTENING);
  EXPECT_NE(l_nPort, 0u) << l_cJob.Err();
  if (l_nPort == 0) return Matrix();
  Matrix l_aadResults;
  {
    Client c(l_nPort);
    EXPECT_TRUE(c.Ready());
    WriteSettings(*c, wxT("stochastic"), {{"Seed", "7"}, {"Runs", "400"}});
    EXPECT_EQ(c->CMD_Start(wxT("stochastic"), 0, 1, 0.5), 1u);
    Stats l_cStats;
    EXPECT_TRUE(WaitForState(*c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    l_aadResults = ReadResults(*c);
    wxString l_sLog;
    EXPECT_EQ(c->ReadLogMessage(l_sLog), 1u);
    EXPECT_NE(Text(l_sLog).find(std::to_string(400) + " runs on " + std::to_string(p_nRanks) +
                                " ranks"),
              std::string::npos)
        << Text(l_sLog);
  }
  EndJob(l_cJob);
  return l_aadResults;
}

}  // namespace

TEST(MpiSimd, AnEnsembleOf400RunsOverFourRanksIsTheEnsembleOfOneProcess) {
  const Matrix l_aadFour = Ensemble(4);
  ASSERT_EQ(l_aadFour.size(), 1u);
  ASSERT_EQ(l_aadFour[0].size(), 3u);
  // X(1) of one run is binomial: 100 tries, probability exp(-1).
  const double l_dP = std::exp(-1.0);
  const double l_dStandardError = std::sqrt(100.0 * l_dP * (1.0 - l_dP) / 400.0);
  EXPECT_EQ(l_aadFour[0][0], 100.0);
  EXPECT_NEAR(l_aadFour[0][2], 100.0 * l_dP, 5.0 * l_dStandardError);

  // The same seed list on one rank, and in the engine's own ensemble.
  EXPECT_EQ(Ensemble(1), l_aadFour);
  const simd::LoadedNets l_cNets = simd::LoadNets({DECAY});
  ASSERT_EQ(l_cNets.nets.size(), 1u);
  EXPECT_EQ(Reference(l_cNets.nets[0], "stochastic", Grid(0, 1, 0.5),
                      [](std::size_t, sim::Simulator&) {}, {{"Seed", "7"}, {"Runs", "400"}}),
            l_aadFour);
}

// A scan of k over 0, 0.1, 0.2, 0.3 on two ranks (blocks 0 and 2 on rank 0,
// 1 and 3 on rank 1): paused, the run stays at one output point; changes
// made then (X = 50, k = 1) show in every block from the next point on;
// stop ends the run on every rank, and the next run goes on all of them.
TEST(MpiSimd, PauseAndSteeringReachEveryRankAtTheSameOutputPointAndStopEndsTheRun) {
  Child l_cJob(Job(2, {"--scan", "k=0:0.3:4"}));
  const unsigned int l_nPort = WaitForPort(l_cJob, LISTENING);
  ASSERT_NE(l_nPort, 0u) << l_cJob.Err();
  {
    Client c(l_nPort);
    ASSERT_TRUE(c.Ready());
    ASSERT_EQ(c->ChanageSimulatorSpeed(20), 1u);  // 20 output points a second
    ASSERT_EQ(c->CMD_Start(wxT("continuous"), 0, 100, 0.1), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForStats(*c, [](const Stats& p_rStats) { return p_rStats.progress > 0.2; },
                             &l_cStats))
        << l_cStats.state;
    ASSERT_EQ(c->CMD_Pause(), 1u);
    ASSERT_TRUE(WaitForState(*c, SIMULATOR_PAUSED, &l_cStats)) << l_cStats.state;
    const Matrix l_aadPaused = ReadResults(*c);
    ASSERT_EQ(l_aadPaused.size(), 4u);
    const std::size_t l_nPaused = Columns(l_aadPaused);
    ASSERT_GE(l_nPaused, 2u);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // 10 points if it ran on
    EXPECT_EQ(Columns(ReadResults(*c)), l_nPaused);

    ASSERT_EQ(c->ChangeCurrentPlaceValues(0, 50.0), 1u);
    ASSERT_EQ(c->ChangeCurrentParameterValues(0, 1.0), 1u);
    ASSERT_EQ(c->CMD_Resume(), 1u);
    ASSERT_TRUE(WaitForStats(
        *c,
        [&](const Stats& p_rStats) { return p_rStats.progress * 10.0 > l_nPaused + 5.0; },
        &l_cStats))
        << l_cStats.state;
    ASSERT_EQ(c->CMD_Stop(), 1u);
    ASSERT_TRUE(WaitForState(*c, SIMULATOR_STOPPED, &l_cStats)) << l_cStats.state;
    const Matrix l_aadResults = ReadResults(*c);
    ASSERT_EQ(l_aadResults.size(), 4u);
    const std::size_t l_nColumns = Columns(l_aadResults);
    ASSERT_GT(l_nColumns, l_nPaused + 2);
    ASSERT_LT(l_nColumns, 1001u);  // stopped before the end
    const double l_dPausedAt = 0.1 * static_cast<double>(l_nPaused - 1);
    for (std::size_t b = 0; b < 4; ++b) {
      const double l_dK = 0.1 * static_cast<double>(b);
      for (std::size_t j = 0; j < l_nColumns; ++j) {
        const double l_dT = 0.1 * static_cast<double>(j);
        const double l_dExpected = j < l_nPaused ? 100.0 * std::exp(-l_dK * l_dT)
                                                 : 50.0 * std::exp(-(l_dT - l_dPausedAt));
        ASSERT_NEAR(l_aadResults[b][j], l_dExpected, 1e-3 * l_dExpected + 1e-6)
            << "block " << b << ", column " << j << " of " << l_nColumns << ", paused at "
            << l_nPaused;
      }
    }

    // Every rank left the stopped run: the next one runs on all of them.
    ASSERT_EQ(c->ChanageSimulatorSpeed(0), 1u);
    ASSERT_EQ(c->CMD_Start(wxT("continuous"), 0, 1, 0.5), 1u);
    ASSERT_TRUE(WaitForState(*c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    const Matrix l_aadAgain = ReadResults(*c);
    ASSERT_EQ(l_aadAgain.size(), 4u);
    EXPECT_NEAR(l_aadAgain[3][2], 100.0 * std::exp(-0.3), 0.1);
  }
  EndJob(l_cJob);
}

namespace {

// A job of two ranks whose rank 1 misbehaves at output point 2 of a run:
// the job's exit status; its stderr in p_rsLog.
int FaultyJob(const std::string& p_sWhat, const std::vector<std::string>& p_asOptions,
              std::string& p_rsLog) {
  Child l_cJob(Job(2, p_asOptions, "1:2:" + p_sWhat));
  const unsigned int l_nPort = WaitForPort(l_cJob, LISTENING);
  EXPECT_NE(l_nPort, 0u) << l_cJob.Err();
  if (l_nPort != 0) {
    Client c(l_nPort);
    EXPECT_TRUE(c.Ready());
    WriteSettings(*c, wxT("stochastic"), {{"Runs", "4"}});
    EXPECT_EQ(c->CMD_Start(wxT("stochastic"), 0, 10, 0.5), 1u);
  }
  // Far above the socket timeout plus the start of a job.
  const int l_nStatus = l_cJob.Wait(60000);
  p_rsLog = l_cJob.Err();
  return l_nStatus;
}

}  // namespace

TEST(MpiSimd, ARankThatFailsEndsTheJobAndRankZeroSaysWhy) {
  std::string l_sLog;
  EXPECT_GT(FaultyJob("fail", {}, l_sLog), 0) << l_sLog;
  EXPECT_NE(l_sLog.find("Error: rank 1 of 2 failed at output point 2: the simulation failed here"),
            std::string::npos)
      << l_sLog;
}

TEST(MpiSimd, ARankThatHangsEndsTheJobAfterTheRankTimeout) {
  std::string l_sLog;
  EXPECT_GT(FaultyJob("hang", {"--rank-timeout", "2"}, l_sLog), 0) << l_sLog;
  EXPECT_NE(l_sLog.find("Error: a rank did not reach output point 2 within 2 s"),
            std::string::npos)
      << l_sLog;
}

TEST(MpiSimd, ARankThatAbortsEndsTheJobAndRankZeroSaysWhere) {
  std::string l_sLog;
  EXPECT_GT(FaultyJob("abort", {}, l_sLog), 0) << l_sLog;
  // mpirun asks rank 0 to end; rank 0 says where the job stood.
  EXPECT_NE(l_sLog.find("Error: a rank did not reach output point 2 before this process was "
                        "asked to end (did a rank die?)"),
            std::string::npos)
      << l_sLog;
}
