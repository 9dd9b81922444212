// SPDX-License-Identifier: MIT
// The run helper: SteeringRunner and SteeringRunHandler with a test step
// function. Most tests go through the protocol: a SteeringServer and a
// SteeringDispatcher in this process (event loop on the main thread) and
// SteeringClients on threads of their own, as a steering application would
// use them. The step function can hold a step until the test lets it go,
// which shows causally that a command came back while the run was still
// mid-way.
//
// The test model ("growth"): place X grows at the parameter "rate" per
// time unit, place Y keeps its marking, and the one transition "grow" has
// the rate "rate". Started over 0..10 every 1, column i of X is the sum of
// the rates over the first i steps.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "log_capture.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/simulatorState.h"
#include "quor/steeringclient.h"
#include "quor/steeringdispatcher.h"
#include "quor/steeringrunhandler.h"
#include "quor/steeringrunner.h"
#include "server_harness.h"
#include "steering_clients.h"

using namespace quor;
using namespace quor_test;

namespace {

const size_t NOWHERE = static_cast<size_t>(-1);
typedef std::chrono::steady_clock Clock;

Model* GrowthModel() {
  Model* l_pcModel = new Model(NULL, wxT("growth"), 1, 2);
  l_pcModel->SetPlaceNames({wxT("X"), wxT("Y")});
  l_pcModel->SetTransitionNames({wxT("grow")});
  l_pcModel->SetAttributeValue(keys::PARAMETER_NAMES, std::vector<wxString>{wxT("rate")});
  l_pcModel->SetInitialParameterValues({1.0});
  l_pcModel->SetInitialMarking({0.0, 5.0});
  l_pcModel->SetOutputStartPoint(0.0);
  l_pcModel->SetOutputEndPoint(10.0);
  l_pcModel->SetOutputSamplingSize(1.0);
  return l_pcModel;
}

// The growth model's step function, with what a test asks of it: hold the
// step to one output point until the test lets it go (or the run is asked
// to give up), fail or throw at a point. It counts its calls and how many
// run at once.
class Growth {
 public:
  bool Step(SteeringStep& p_rStep) {
    const int l_nInside = ++m_nInside;
    int l_nMost = m_nMostInside.load();
    while (l_nInside > l_nMost && !m_nMostInside.compare_exchange_weak(l_nMost, l_nInside)) {
    }
    const bool l_bOk = Advance(p_rStep);
    --m_nInside;
    return l_bOk;
  }

  // The step to output point p_nPoint waits for Release (once).
  void HoldAt(size_t p_nPoint) {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    m_nHoldAt = p_nPoint;
    m_bReleased = false;
  }
  void Release() {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    m_bReleased = true;
    m_cChanged.notify_all();
  }
  // Waits (60 s at most) until a step is held; false when none came.
  bool WaitUntilHeld() {
    std::unique_lock<std::mutex> l_cLock(m_cMutex);
    return m_cChanged.wait_for(l_cLock, std::chrono::milliseconds(CLIENT_DEADLINE_MS),
                               [this] { return m_bHeld; });
  }
  bool IsHeld() {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    return m_bHeld;
  }
  // A held step ended because the run asked it to give up / because
  // nobody let it go for a minute.
  bool GaveUp() {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    return m_bGaveUp;
  }
  bool TimedOut() {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    return m_bTimedOut;
  }

  std::atomic<size_t> m_nFailAt{NOWHERE};
  std::atomic<size_t> m_nThrowAt{NOWHERE};
  std::atomic<bool> m_bThrowOther{false};  // an exception that is no std::exception
  std::atomic<int> m_nCalls{0};
  std::atomic<int> m_nInside{0};
  std::atomic<int> m_nMostInside{0};

 private:
  bool Advance(SteeringStep& p_rStep) {
    ++m_nCalls;
    if (!Hold(p_rStep)) return false;
    if (p_rStep.GetPoint() == m_nFailAt) return p_rStep.Fail(wxT("the growth went wrong"));
    if (p_rStep.GetPoint() == m_nThrowAt) {
      if (m_bThrowOther) throw 42;
      throw std::runtime_error("growth exploded");
    }
    const double l_dRate = p_rStep.Parameters().at(0);
    p_rStep.Marking().at(0) += l_dRate * (p_rStep.GetTo() - p_rStep.GetFrom());
    p_rStep.Rates().assign(1, l_dRate);
    return true;
  }

  bool Hold(SteeringStep& p_rStep) {
    std::unique_lock<std::mutex> l_cLock(m_cMutex);
    if (p_rStep.GetPoint() != m_nHoldAt) return true;
    m_nHoldAt = NOWHERE;
    m_bHeld = true;
    m_cChanged.notify_all();
    const Clock::time_point l_tGiveUp = Clock::now() + std::chrono::milliseconds(CLIENT_DEADLINE_MS);
    bool l_bGoOn = true;
    while (!m_bReleased) {
      if (p_rStep.ShouldStop()) {
        m_bGaveUp = true;
        l_bGoOn = false;
        break;
      }
      if (Clock::now() > l_tGiveUp) {
        m_bTimedOut = true;
        break;
      }
      m_cChanged.wait_for(l_cLock, std::chrono::milliseconds(1));
    }
    m_bHeld = false;
    return l_bGoOn;
  }

  std::mutex m_cMutex;
  std::condition_variable m_cChanged;
  size_t m_nHoldAt = NOWHERE;
  bool m_bReleased = false;
  bool m_bHeld = false;
  bool m_bGaveUp = false;
  bool m_bTimedOut = false;
};

SteeringMatrix Results(SteeringClient& p_rClient) {
  SteeringMatrix l_aadResults;
  EXPECT_EQ(p_rClient.ReadResultMatrix(l_aadResults), 1u);
  return l_aadResults;
}

size_t Columns(const SteeringMatrix& p_rMatrix) {
  return p_rMatrix.empty() ? 0 : p_rMatrix[0].size();
}

// A write request comes back once its frames are acknowledged, which may be
// just before the server has acted on it; the answer to a read request on
// the same connection comes after every request before it was handled.
void Served(SteeringClient& p_rClient) {
  int l_nState = -1;
  EXPECT_EQ(p_rClient.ReadSimulatorState(l_nState), 1u);
}

std::string Utf8(const wxString& p_sText) { return std::string(p_sText.utf8_str()); }

bool Contains(const std::string& p_sText, const std::string& p_sPart) {
  return p_sText.find(p_sPart) != std::string::npos;
}

// The growth model served by a SteeringRunHandler on a free port.
class RunHandlerTest : public ::testing::Test {
 protected:
  RunHandlerTest() : m_cHandler([this](SteeringStep& p_rStep) { return m_cGrowth.Step(p_rStep); }) {}

  void SetUp() override {
    m_cHandler.SetSimulatorName(wxT("Test"), wxT("growth"));
    m_nModel = m_cHandler.AddModel(GrowthModel());
    m_pcServer.reset(new SteeringServer);
    m_pcServer->SetPort(0);
    ASSERT_TRUE(m_pcServer->DoStartServer(0));
    m_pcDispatcher.reset(new SteeringDispatcher(*m_pcServer, m_cHandler));
    ASSERT_TRUE(m_pcDispatcher->Start());
  }
  void TearDown() override {
    m_cGrowth.Release();
    m_pcDispatcher->Shutdown();
    m_cHandler.StopAllRuns();
    ReleaseListeningSocket(*m_pcServer);
  }

  void RunClients(const std::vector<std::function<void(SteeringClient&)> >& p_afBodies) {
    EXPECT_TRUE(RunClientThreads(wxString::Format(wxT("%u"), m_pcServer->GetPort()), p_afBodies));
  }
  void RunClient(const std::function<void(SteeringClient&)>& p_fBody) { RunClients({p_fBody}); }
  // Starts a run over 0..p_dEnd every 1 whose step to point p_nPoint is
  // held, and waits until it is.
  ::testing::AssertionResult StartHeldAt(SteeringClient& p_rClient, size_t p_nPoint,
                                         double p_dEnd = 10) {
    m_cGrowth.HoldAt(p_nPoint);
    if (p_rClient.CMD_Start(wxT("growth"), 0, p_dEnd, 1) != 1u)
      return ::testing::AssertionFailure() << "the start request failed";
    if (!m_cGrowth.WaitUntilHeld())
      return ::testing::AssertionFailure() << "no step was held at point " << p_nPoint;
    return ::testing::AssertionSuccess();
  }

  Growth m_cGrowth;  // outlives the handler, whose runs call it
  SteeringRunHandler m_cHandler;
  std::unique_ptr<SteeringServer> m_pcServer;
  std::unique_ptr<SteeringDispatcher> m_pcDispatcher;
  int m_nModel = SteeringModelStore::NO_MODEL;
};

// Pause, resume and stop come back while the run is mid-way.

TEST_F(RunHandlerTest, PauseResumeAndStopComeBackWhileAThreeSecondRunIsMidway) {
  RunClient([this](SteeringClient& c) {
    // 31 points at 10 per second: three seconds.
    ASSERT_EQ(c.ChanageSimulatorSpeed(10), 1u);
    ASSERT_TRUE(StartHeldAt(c, 5, 30));

    // The step to point 5 goes on until the test lets it go: the pause is
    // back before the run got past it.
    ASSERT_EQ(c.CMD_Pause(), 1u);
    EXPECT_TRUE(m_cGrowth.IsHeld());
    Served(c);
    m_cGrowth.Release();
    RunStats l_cStats;
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_PAUSED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(Columns(Results(c)), 6u);  // points 0 to 5

    // Resumed, the run goes on to point 8 and is held there.
    m_cGrowth.HoldAt(8);
    ASSERT_EQ(c.CMD_Resume(), 1u);
    ASSERT_TRUE(m_cGrowth.WaitUntilHeld());
    EXPECT_EQ(ReadRunStats(c).state, SIMULATOR_RUNNING);

    // The stop comes back, and the held step gives up because the run asks
    // it to (it would otherwise wait a minute).
    ASSERT_EQ(c.CMD_Stop(), 1u);
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_STOPPED, &l_cStats)) << l_cStats.state;
    EXPECT_TRUE(m_cGrowth.GaveUp());
    EXPECT_FALSE(m_cGrowth.TimedOut());
    const SteeringMatrix l_aadResults = Results(c);
    ASSERT_EQ(Columns(l_aadResults), 8u);  // the step to point 8 gave up
    for (size_t i = 0; i < 8; ++i) EXPECT_EQ(l_aadResults[0][i], static_cast<double>(i));
    EXPECT_LT(l_cStats.progress, 100.0);
  });
}

TEST_F(RunHandlerTest, AStopDuringALongStepComesBackThroughTheGiveUpQuery) {
  RunClient([this](SteeringClient& c) {
    ASSERT_TRUE(StartHeldAt(c, 2));  // never let go: only giving up ends the step
    ASSERT_EQ(c.CMD_Stop(), 1u);
    RunStats l_cStats;
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_STOPPED, &l_cStats)) << l_cStats.state;
    EXPECT_TRUE(m_cGrowth.GaveUp());
    EXPECT_FALSE(m_cGrowth.TimedOut());
    EXPECT_EQ(Columns(Results(c)), 2u);
    EXPECT_EQ(l_cStats.error, SIMULATOR_ERROR_NONE);  // stopped, not failed
  });
}

TEST_F(RunHandlerTest, ARestartDuringALongStepReplacesTheRun) {
  RunClient([this](SteeringClient& c) {
    ASSERT_TRUE(StartHeldAt(c, 3));
    ASSERT_EQ(c.CMD_Restart(wxT("growth"), 0, 4, 1), 1u);
    RunStats l_cStats;
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_TRUE(m_cGrowth.GaveUp());
    EXPECT_FALSE(m_cGrowth.TimedOut());
    EXPECT_EQ(Results(c), (SteeringMatrix{{0, 1, 2, 3, 4}, {5, 5, 5, 5, 5}}));
    double l_dStart = -1, l_dEnd = -1, l_dSampling = -1;
    c.ReadSimulationInterval(l_dStart, l_dEnd, l_dSampling);
    EXPECT_EQ(l_dEnd, 4.0);  // the interval of the run that started
  });
  EXPECT_EQ(m_cGrowth.m_nMostInside.load(), 1);
}

// Steering at output points.

TEST_F(RunHandlerTest, SteeredValuesTakeHoldAtTheNextOutputPoint) {
  RunClient([this](SteeringClient& c) {
    ASSERT_TRUE(StartHeldAt(c, 4));
    // While the step to point 4 goes on.
    ASSERT_EQ(c.ChangeCurrentParameterValues(0, 10.0), 1u);
    ASSERT_EQ(c.ChangeCurrentPlaceValues(1, 7.0), 1u);
    // The model shows them at once.
    std::vector<double> l_adValues;
    ASSERT_EQ(c.ReadCurrentParameterValues(l_adValues), 1u);
    EXPECT_EQ(l_adValues, (std::vector<double>{10.0}));
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adValues), 1u);
    ASSERT_EQ(l_adValues.size(), 2u);
    EXPECT_EQ(l_adValues[1], 7.0);
    m_cGrowth.Release();
    RunStats l_cStats;
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    // Point 4 is as before; from point 5 on, X grows by 10 and Y is 7.
    EXPECT_EQ(Results(c), (SteeringMatrix{{0, 1, 2, 3, 4, 14, 24, 34, 44, 54, 64},
                                          {5, 5, 5, 5, 5, 7, 7, 7, 7, 7, 7}}));
    SteeringMatrix l_aadRates;
    ASSERT_EQ(c.ReadRateMatrix(l_aadRates), 1u);
    EXPECT_EQ(l_aadRates, (SteeringMatrix{{1, 1, 1, 1, 1, 10, 10, 10, 10, 10, 10}}));
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adValues), 1u);
    EXPECT_EQ(l_adValues, (std::vector<double>{64.0, 7.0}));
  });
}

TEST_F(RunHandlerTest, AChangeWhilePausedActsAtOnceFromThePausedPoint) {
  RunClient([this](SteeringClient& c) {
    ASSERT_TRUE(StartHeldAt(c, 3));
    ASSERT_EQ(c.CMD_Pause(), 1u);
    Served(c);
    m_cGrowth.Release();
    RunStats l_cStats;
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_PAUSED, &l_cStats)) << l_cStats.state;
    ASSERT_EQ(Columns(Results(c)), 4u);
    ASSERT_EQ(c.ChangeCurrentPlaceValues(0, 100.0), 1u);
    ASSERT_EQ(c.ChangeCurrentParameterValues(0, 2.0), 1u);
    // The run shows the changed marking at once and stays where it is.
    std::vector<double> l_adMarking;
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adMarking), 1u);
    EXPECT_EQ(l_adMarking, (std::vector<double>{100.0, 5.0}));
    EXPECT_EQ(Results(c), (SteeringMatrix{{0, 1, 2, 3}, {5, 5, 5, 5}}));
    EXPECT_EQ(ReadRunStats(c).state, SIMULATOR_PAUSED);
    ASSERT_EQ(c.CMD_Resume(), 1u);
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(Results(c)[0], (std::vector<double>{0, 1, 2, 3, 102, 104, 106, 108, 110, 112, 114}));
  });
}

TEST_F(RunHandlerTest, ResetsReturnToTheInitialValuesAtTheNextOutputPoint) {
  RunClient([this](SteeringClient& c) {
    ASSERT_EQ(c.ChangeCurrentParameterValues(0, 3.0), 1u);
    ASSERT_TRUE(StartHeldAt(c, 2, 5));
    ASSERT_EQ(c.ChangeCurrentPlaceValues(1, 9.0), 1u);
    ASSERT_EQ(c.ResetParameterValues(), 1u);
    ASSERT_EQ(c.ResetMarkingValues(), 1u);
    Served(c);
    m_cGrowth.Release();
    RunStats l_cStats;
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    // Steered rate 3 up to point 2; there X and Y go back to 0 and 5 and
    // the rate to 1.
    EXPECT_EQ(Results(c), (SteeringMatrix{{0, 3, 6, 1, 2, 3}, {5, 5, 5, 5, 5, 5}}));
  });
}

TEST_F(RunHandlerTest, ARestartBeginsAgainFromTheInitialMarking) {
  RunClient([this](SteeringClient& c) {
    ASSERT_TRUE(StartHeldAt(c, 3));
    ASSERT_EQ(c.ChangeCurrentPlaceValues(1, 7.0), 1u);
    ASSERT_EQ(c.ChangeCurrentParameterValues(0, 2.0), 1u);
    ASSERT_EQ(c.CMD_Stop(), 1u);
    RunStats l_cStats;
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_STOPPED, &l_cStats)) << l_cStats.state;
    std::vector<double> l_adMarking;
    ASSERT_EQ(c.ReadCurrentPlaceValues(l_adMarking), 1u);
    EXPECT_EQ(l_adMarking, (std::vector<double>{2.0, 7.0}));  // the stopped run's
    // From the initial marking, with the steered rate (a parameter change
    // holds until a reset).
    ASSERT_EQ(c.CMD_Restart(wxT("growth"), 0, 3, 1), 1u);
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(Results(c), (SteeringMatrix{{0, 2, 4, 6}, {5, 5, 5, 5}}));
    EXPECT_EQ(l_cStats.progress, 100.0);
  });
}

// Pace.

TEST_F(RunHandlerTest, TheSpeedPacesTheOutputPoints) {
  RunClient([](SteeringClient& c) {
    // 21 points at 20 per second. The run's own clock ("SIMULATOR_RUNTIME")
    // never shows more points than the pace allows.
    ASSERT_EQ(c.ChanageSimulatorSpeed(20), 1u);
    ASSERT_EQ(c.CMD_Start(wxT("growth"), 0, 20, 1), 1u);
    RunStats l_cStats;
    int l_nStates = 0;
    ASSERT_TRUE(WaitForRunStats(
        c,
        [&](const RunStats& s) {
          ++l_nStates;
          const double l_dDone = s.progress * 21 / 100;
          EXPECT_LE(l_dDone - 1, s.runtime * 20 + 1e-6) << "state " << l_nStates;
          return s.state == SIMULATOR_FINISHED;
        },
        &l_cStats));
    EXPECT_EQ(l_cStats.speed, 20);
    EXPECT_GE(l_cStats.runtime, 20 / 20.0 - 1e-6);
    EXPECT_GT(l_nStates, 1);
  });
}

TEST_F(RunHandlerTest, ASpeedChangeActsAtOnce) {
  RunClient([](SteeringClient& c) {
    // One point a second would take 100 seconds, more than the deadline.
    ASSERT_EQ(c.ChanageSimulatorSpeed(1), 1u);
    ASSERT_EQ(c.CMD_Start(wxT("growth"), 0, 100, 1), 1u);
    RunStats l_cStats;
    ASSERT_TRUE(WaitForRunStats(
        c, [](const RunStats& s) { return s.state == SIMULATOR_RUNNING && s.progress > 0; },
        &l_cStats));
    EXPECT_LT(Columns(Results(c)), 101u);
    ASSERT_EQ(c.ChanageSimulatorSpeed(0), 1u);
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.progress;
    EXPECT_EQ(l_cStats.speed, 0);
    EXPECT_EQ(Columns(Results(c)), 101u);
  });
}

// Failures.

TEST_F(RunHandlerTest, AFailingStepEndsTheRunAsFailedWithItsReasonForEveryClient) {
  LogCapture l_cLog;
  m_cGrowth.m_nFailAt = 3;
  std::atomic<bool> l_bFailed{false};
  RunClients({[&](SteeringClient& c) {
                ASSERT_EQ(c.CMD_Start(wxT("growth"), 0, 10, 1), 1u);
                RunStats l_cStats;
                EXPECT_TRUE(WaitForRunState(c, SIMULATOR_FAILED, &l_cStats)) << l_cStats.state;
                EXPECT_EQ(l_cStats.error, SIMULATOR_ERROR_RUN);
                EXPECT_EQ(Columns(Results(c)), 3u);
                l_bFailed = true;
              },
              [&](SteeringClient& c) {
                // Another client, which did not start the run, reads why it failed.
                RunStats l_cStats;
                EXPECT_TRUE(WaitForRunState(c, SIMULATOR_FAILED, &l_cStats)) << l_cStats.state;
                const auto l_tDeadline = Clock::now() + std::chrono::milliseconds(CLIENT_DEADLINE_MS);
                while (!l_bFailed && Clock::now() < l_tDeadline)
                  std::this_thread::sleep_for(std::chrono::milliseconds(2));
                const std::string l_sMessage = ErrorMessageOf(c);
                EXPECT_TRUE(Contains(l_sMessage, "the growth went wrong")) << l_sMessage;
                EXPECT_TRUE(Contains(l_sMessage, "output point 3")) << l_sMessage;
                wxString l_sLog;
                ASSERT_EQ(c.ReadLogMessage(l_sLog), 1u);
                EXPECT_EQ(Utf8(l_sLog), l_sMessage);
              }});
  bool l_bLogged = false;
  for (const LogLine& l_cLine : l_cLog.Records())
    l_bLogged = l_bLogged ||
                (l_cLine.level == 1 &&
                 Contains(l_cLine.text, "Error: model 'growth': run failed after 3 of 11 output "
                                        "points: the step to t = 3 (output point 3): the growth "
                                        "went wrong"));
  EXPECT_TRUE(l_bLogged);
}

TEST_F(RunHandlerTest, AThrowingStepEndsTheRunAsFailedAndTheNextStartRuns) {
  RunClient([this](SteeringClient& c) {
    m_cGrowth.m_nThrowAt = 2;
    ASSERT_EQ(c.CMD_Start(wxT("growth"), 0, 10, 1), 1u);
    RunStats l_cStats;
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_FAILED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.error, SIMULATOR_ERROR_RUN);
    std::string l_sMessage = ErrorMessageOf(c);
    EXPECT_TRUE(Contains(l_sMessage, "the step function threw an exception: growth exploded"))
        << l_sMessage;

    // Failed at point 4 this time (the request may come back before the
    // run has started, while the state still shows the last run).
    m_cGrowth.m_bThrowOther = true;
    m_cGrowth.m_nThrowAt = 4;
    ASSERT_EQ(c.CMD_Start(wxT("growth"), 0, 10, 1), 1u);
    ASSERT_TRUE(WaitForRunStats(
        c, [](const RunStats& s) { return s.state == SIMULATOR_FAILED && s.progress > 30; },
        &l_cStats))
        << l_cStats.state;
    l_sMessage = ErrorMessageOf(c);
    EXPECT_TRUE(Contains(l_sMessage, "an exception of an unknown kind")) << l_sMessage;

    // A good run clears the error.
    m_cGrowth.m_nThrowAt = NOWHERE;
    ASSERT_EQ(c.CMD_Start(wxT("growth"), 0, 10, 1), 1u);
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.error, SIMULATOR_ERROR_NONE);
    EXPECT_EQ(ErrorMessageOf(c), "");
  });
}

// Refusals.

TEST_F(RunHandlerTest, RefusalsGoToTheConnectionThatAsked) {
  std::atomic<bool> l_bRefused{false};
  RunClients(
      {[&](SteeringClient& c) {
         ASSERT_EQ(c.CMD_Pause(), 1u);
         ASSERT_EQ(c.CMD_Resume(), 1u);
         ASSERT_EQ(c.CMD_Stop(), 1u);
         ASSERT_EQ(c.ChangeCurrentParameterValues(1, 1.0), 1u);
         ASSERT_EQ(c.ChangeCurrentParameterValues(0, -1.0), 1u);
         ASSERT_EQ(c.ChangeCurrentPlaceValues(0, std::numeric_limits<double>::quiet_NaN()), 1u);
         ASSERT_EQ(c.ChangeCurrentPlaceValues(1, std::numeric_limits<double>::infinity()), 1u);
         ASSERT_EQ(c.CMD_Start(wxT("growth"), 0, 10, 0), 1u);
         ASSERT_EQ(c.WriteSimulatorState(SIMULATOR_FINISHED), 1u);
         EXPECT_EQ(ReadRunStats(c).error, SIMULATOR_ERROR_REFUSED);
         EXPECT_EQ(ErrorMessageOf(c),
                   "pause refused: no run is going on\n"
                   "resume refused: no run is paused\n"
                   "stop refused: no run is going on\n"
                   "parameter change refused: position 1 is out of range (the model has 1 "
                   "parameters)\n"
                   "parameter change refused: the value -1 is negative or not finite\n"
                   "marking change refused: the value nan is negative or not finite\n"
                   "marking change refused: the value inf is negative or not finite\n"
                   "start refused: the output step must be greater than 0 (it is 0)\n"
                   "state 4 cannot be written (only 1 to resume, 2 to pause and 3 to stop)");
         EXPECT_EQ(ErrorMessageOf(c), "");
         // Nothing changed.
         std::vector<double> l_adValues;
         ASSERT_EQ(c.ReadCurrentParameterValues(l_adValues), 1u);
         EXPECT_EQ(l_adValues, (std::vector<double>{1.0}));
         ASSERT_EQ(c.ReadCurrentPlaceValues(l_adValues), 1u);
         EXPECT_EQ(l_adValues, (std::vector<double>{0.0, 5.0}));
         double l_dStart = -1, l_dEnd = -1, l_dSampling = -1;
         c.ReadSimulationInterval(l_dStart, l_dEnd, l_dSampling);
         EXPECT_EQ(l_dSampling, 1.0);
         EXPECT_EQ(ReadRunStats(c).state, SIMULATOR_IDLE);
         l_bRefused = true;
       },
       [&](SteeringClient& c) {
         const auto l_tDeadline = Clock::now() + std::chrono::milliseconds(CLIENT_DEADLINE_MS);
         while (!l_bRefused && Clock::now() < l_tDeadline)
           std::this_thread::sleep_for(std::chrono::milliseconds(2));
         EXPECT_EQ(ErrorMessageOf(c), "");
       }});
}

TEST_F(RunHandlerTest, AStartWhileARunGoesOnIsRefused) {
  RunClient([this](SteeringClient& c) {
    ASSERT_TRUE(StartHeldAt(c, 1));
    ASSERT_EQ(c.CMD_Start(wxT("growth"), 0, 20, 1), 1u);
    EXPECT_EQ(ErrorMessageOf(c),
              "start refused: a run is going on (running); stop it first, or restart");
    m_cGrowth.Release();
    RunStats l_cStats;
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(Columns(Results(c)), 11u);
  });
}

// The bytes of a refusal: the request's frames are acknowledged as always,
// and the reason comes back as the connection's error message.
TEST_F(RunHandlerTest, ARefusalOnTheWire) {
  std::unique_ptr<RawPeer> l_pcPeer = ConnectRawPeer(m_pcServer->GetPort());
  ASSERT_TRUE(l_pcPeer);
  ASSERT_TRUE(RunEventLoopUntil([&] { return m_pcDispatcher->GetConnectionCount() == 1; }));
  RawPeer& l_rPeer = *l_pcPeer;
  EXPECT_EQ(l_rPeer.RecvValue<uint32_t>(), 7u);
  // No model chosen: pause (request 1, CMD_TYPE 1), then request 25.
  ASSERT_TRUE(l_rPeer.SendValue<int32_t>(1));
  ASSERT_TRUE(l_rPeer.SendValue<int32_t>(1));
  ASSERT_TRUE(l_rPeer.SendValue<int32_t>(25));
  const std::string l_sReason = "pause refused: the connection has no model";
  EXPECT_EQ(l_rPeer.RecvString(), l_sReason);
  EXPECT_EQ(ToHex(l_rPeer.Received()),
            ToHex(Cat({Le<uint32_t>(7), Hex("61 61 61"), Le<uint64_t>(l_sReason.size()),
                       quor_test::Text(l_sReason)})));
  EXPECT_EQ(ToHex(l_rPeer.Sent()),
            ToHex(Cat({Hex("61"), Le<int32_t>(1), Le<int32_t>(1), Le<int32_t>(25), Hex("61 61")})));
}

// What the runner publishes besides the results.
TEST_F(RunHandlerTest, ARunShowsItsSimulatorAndItsRows) {
  RunClient([](SteeringClient& c) {
    RunStats l_cStats = ReadRunStats(c);
    EXPECT_EQ(l_cStats.state, SIMULATOR_IDLE);
    EXPECT_EQ(l_cStats.category, "Test");
    EXPECT_EQ(l_cStats.algorithm, "growth");
    std::vector<QU_SimulatorCategory> l_aSimulators;
    ASSERT_EQ(c.ReadAvailableSimulators(l_aSimulators), 1u);
    ASSERT_EQ(l_aSimulators.size(), 1u);
    EXPECT_EQ(Utf8(l_aSimulators[0].m_sCategoryName), "Test");
    ASSERT_EQ(c.CMD_Start(wxT("growth"), 2, 4, 0.5), 1u);
    ASSERT_TRUE(WaitForRunState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.category, "Test");
    EXPECT_EQ(l_cStats.algorithm, "growth");
    EXPECT_EQ(l_cStats.progress, 100.0);
    EXPECT_EQ(Results(c), (SteeringMatrix{{0, 0.5, 1, 1.5, 2}, {5, 5, 5, 5, 5}}));
    wxString l_sLog;
    ASSERT_EQ(c.ReadLogMessage(l_sLog), 1u);
    EXPECT_TRUE(Contains(Utf8(l_sLog), "run finished (5 output points")) << Utf8(l_sLog);
  });
  ExpectPlaceRows(m_cHandler.GetStore(), m_nModel, 2);
}

TEST_F(RunHandlerTest, RemovingAModelStopsItsRun) {
  RunClient([this](SteeringClient& c) {
    ASSERT_TRUE(StartHeldAt(c, 2));
    int l_nResult = 0;
    ASSERT_EQ(c.RemoveModel(wxT("growth"), l_nResult), 1u);
    EXPECT_EQ(l_nResult, 1);
    EXPECT_TRUE(m_cGrowth.GaveUp());
  });
  EXPECT_EQ(m_cHandler.GetRunner(m_nModel), nullptr);
}

// The runner on its own, without a connection.

class RunnerTest : public ::testing::Test {
 protected:
  void SetUp() override { m_nModel = m_cStore.AddModel(GrowthModel()); }

  SteeringRunPlan Plan(double p_dEnd = 5) {
    SteeringRunPlan l_cPlan;
    l_cPlan.m_fStep = [this](SteeringStep& p_rStep) { return m_cGrowth.Step(p_rStep); };
    l_cPlan.m_dStart = 0;
    l_cPlan.m_dEnd = p_dEnd;
    l_cPlan.m_dSampling = 1;
    return l_cPlan;
  }
  // Runs the plan to its end; the state it ended in.
  int Run(const SteeringRunPlan& p_rPlan) {
    SteeringRunner l_cRunner(m_cStore, m_nModel);
    wxString l_sReason;
    EXPECT_TRUE(l_cRunner.Start(p_rPlan, false, &l_sReason)) << Utf8(l_sReason);
    l_cRunner.Join();
    return l_cRunner.GetState();
  }
  std::string Error() { return Utf8(m_cStore.GetErrorMessage(m_nModel)); }

  Growth m_cGrowth;
  SteeringModelStore m_cStore;
  int m_nModel = SteeringModelStore::NO_MODEL;
};

TEST_F(RunnerTest, NoExceptionLeavesTheRunner) {
  SteeringRunPlan l_cPlan = Plan();
  l_cPlan.m_fBegin = [](SteeringStep&) -> bool { throw std::runtime_error("no start"); };
  EXPECT_EQ(Run(l_cPlan), SIMULATOR_FAILED);
  EXPECT_TRUE(Contains(Error(), "the run's start threw an exception: no start")) << Error();

  l_cPlan = Plan();
  l_cPlan.m_fEnd = [](int) { throw std::bad_alloc(); };
  EXPECT_EQ(Run(l_cPlan), SIMULATOR_FINISHED);

  l_cPlan = Plan();
  m_cGrowth.HoldAt(2);
  l_cPlan.m_fSteered = [](const std::vector<SteeringChange>&) { throw 1; };
  {
    SteeringRunner l_cRunner(m_cStore, m_nModel);
    ASSERT_TRUE(l_cRunner.Start(l_cPlan, false, NULL));
    ASSERT_TRUE(m_cGrowth.WaitUntilHeld());
    ASSERT_TRUE(l_cRunner.ChangeParameter(0, 2.0, NULL));
    m_cGrowth.Release();
    l_cRunner.Join();
    EXPECT_EQ(l_cRunner.GetState(), SIMULATOR_FAILED);
    EXPECT_TRUE(Contains(Error(), "the steering hook threw an exception of an unknown kind"))
        << Error();
  }

  l_cPlan = Plan();
  l_cPlan.m_fStep = [](SteeringStep& p_rStep) {
    p_rStep.Marking().push_back(1.0);
    return true;
  };
  EXPECT_EQ(Run(l_cPlan), SIMULATOR_FAILED);
  EXPECT_TRUE(Contains(Error(), "left 3 marking values instead of 2")) << Error();

  l_cPlan = Plan();
  l_cPlan.m_fStep = [](SteeringStep& p_rStep) {
    p_rStep.Rates().assign(p_rStep.IsStart() ? 1 : 2, 0.0);
    return true;
  };
  EXPECT_EQ(Run(l_cPlan), SIMULATOR_FAILED);
  EXPECT_TRUE(Contains(Error(), "gave 2 rates at output point 1 and 1 at the start")) << Error();
  l_cPlan.m_fStep = [](SteeringStep& p_rStep) {
    p_rStep.Rates().assign(3, 0.0);
    return true;
  };
  EXPECT_EQ(Run(l_cPlan), SIMULATOR_FAILED);
  EXPECT_TRUE(Contains(Error(), "gave 3 rates for a model of 1 transitions")) << Error();

  l_cPlan.m_fStep = [](SteeringStep&) { return false; };
  EXPECT_EQ(Run(l_cPlan), SIMULATOR_FAILED);
  EXPECT_TRUE(Contains(Error(), "the step function failed and gave no reason")) << Error();
}

TEST_F(RunnerTest, HooksFollowTheRunInOrder) {
  std::mutex l_cMutex;
  std::vector<std::string> l_asEvents;
  auto l_fNote = [&](const std::string& p_sEvent) {
    std::lock_guard<std::mutex> l_cLock(l_cMutex);
    l_asEvents.push_back(p_sEvent);
  };
  SteeringRunPlan l_cPlan = Plan(3);
  l_cPlan.m_fBegin = [&](SteeringStep& p_rStep) {
    l_fNote("begin at " + std::to_string(static_cast<int>(p_rStep.GetTo())) + " with X = " +
            std::to_string(static_cast<int>(p_rStep.Marking()[0])));
    p_rStep.Marking()[0] = 10;  // the state the run starts from
    return true;
  };
  l_cPlan.m_fStep = [&](SteeringStep& p_rStep) {
    l_fNote("step to " + std::to_string(p_rStep.GetPoint()));
    return m_cGrowth.Step(p_rStep);
  };
  l_cPlan.m_fSteered = [&](const std::vector<SteeringChange>& p_acChanges) {
    for (const SteeringChange& l_cChange : p_acChanges)
      l_fNote(std::string(l_cChange.m_eKind == SteeringChange::PLACE ? "place " : "parameter ") +
              std::to_string(l_cChange.m_nPosition) + " = " +
              std::to_string(static_cast<int>(l_cChange.m_dValue)));
  };
  l_cPlan.m_fEnd = [&](int p_nState) { l_fNote("end " + std::to_string(p_nState)); };
  m_cGrowth.HoldAt(1);
  SteeringRunner l_cRunner(m_cStore, m_nModel);
  ASSERT_TRUE(l_cRunner.Start(l_cPlan, false, NULL));
  ASSERT_TRUE(m_cGrowth.WaitUntilHeld());
  ASSERT_TRUE(l_cRunner.ChangeParameter(0, 4.0, NULL));
  ASSERT_TRUE(l_cRunner.ChangeMarking(1, 6.0, NULL));
  m_cGrowth.Release();
  l_cRunner.Join();
  EXPECT_EQ(l_cRunner.GetState(), SIMULATOR_FINISHED);
  EXPECT_EQ(l_asEvents, (std::vector<std::string>{"begin at 0 with X = 0", "step to 0", "step to 1",
                                                  "parameter 0 = 4", "place 1 = 6", "step to 2",
                                                  "step to 3", "end 4"}));
  EXPECT_EQ(m_cStore.GetResultMatrix(m_nModel), (SteeringMatrix{{10, 11, 15, 19}, {5, 5, 6, 6}}));
}

// The summary follows the end hook and ends the run's line; a summary
// that throws leaves the line as it is and is reported on its own.
TEST_F(RunnerTest, TheSummaryEndsTheLineOfTheRunsEnd) {
  std::vector<std::string> l_asEvents;
  SteeringRunPlan l_cPlan = Plan(2);
  l_cPlan.m_fEnd = [&](int) { l_asEvents.push_back("end"); };
  l_cPlan.m_fSummary = [&] {
    l_asEvents.push_back("summary");
    return wxString(wxT("3 runs"));
  };
  {
    SteeringRunner l_cRunner(m_cStore, m_nModel);
    ASSERT_TRUE(l_cRunner.Start(l_cPlan, false, NULL));
    l_cRunner.Join();
  }
  EXPECT_EQ(l_asEvents, (std::vector<std::string>{"end", "summary"}));
  const std::string l_sLine = m_cStore.GetLogMessage(m_nModel).ToStdString();
  EXPECT_NE(l_sLine.find("run finished ("), std::string::npos) << l_sLine;
  EXPECT_EQ(l_sLine.substr(l_sLine.size() - 8), "; 3 runs") << l_sLine;

  l_cPlan.m_fSummary = []() -> wxString { throw std::runtime_error("no summary"); };
  SteeringRunner l_cRunner(m_cStore, m_nModel);
  ASSERT_TRUE(l_cRunner.Start(l_cPlan, false, NULL));
  l_cRunner.Join();
  EXPECT_EQ(l_cRunner.GetState(), SIMULATOR_FINISHED);
  const std::string l_sPlain = m_cStore.GetLogMessage(m_nModel).ToStdString();
  EXPECT_EQ(l_sPlain.back(), ')') << l_sPlain;
}

TEST_F(RunnerTest, TheStepFunctionNeverRunsOnTwoThreadsAtOnce) {
  SteeringRunner l_cRunner(m_cStore, m_nModel);
  SteeringRunPlan l_cPlan = Plan(50);
  l_cPlan.m_fStep = [this](SteeringStep& p_rStep) {
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    return m_cGrowth.Step(p_rStep);
  };
  auto l_fRestarts = [&] {
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(l_cRunner.Start(l_cPlan, true, NULL));
  };
  std::thread l_cFirst(l_fRestarts), l_cSecond(l_fRestarts);
  l_cFirst.join();
  l_cSecond.join();
  l_cRunner.Join();
  EXPECT_EQ(m_cGrowth.m_nMostInside.load(), 1);
  EXPECT_GT(m_cGrowth.m_nCalls.load(), 40);
  EXPECT_EQ(l_cRunner.GetState(), SIMULATOR_FINISHED);
}

TEST_F(RunnerTest, AStepMayCommandItsOwnRunner) {
  SteeringRunner l_cRunner(m_cStore, m_nModel);
  wxString l_sReason;
  bool l_bStarted = true;
  SteeringRunPlan l_cPlan = Plan(10);
  l_cPlan.m_fStep = [&](SteeringStep& p_rStep) {
    if (p_rStep.GetPoint() == 3) {
      l_cRunner.Join();  // would wait for itself: returns at once
      l_bStarted = l_cRunner.Start(Plan(), true, &l_sReason);
      EXPECT_TRUE(l_cRunner.Stop(NULL));
    }
    return m_cGrowth.Step(p_rStep);
  };
  ASSERT_TRUE(l_cRunner.Start(l_cPlan, false, NULL));
  l_cRunner.Join();
  EXPECT_FALSE(l_bStarted);
  EXPECT_EQ(Utf8(l_sReason), "a run cannot start another one from its own thread");
  EXPECT_EQ(l_cRunner.GetState(), SIMULATOR_STOPPED);
  EXPECT_EQ(m_cStore.GetResultMatrix(m_nModel), (SteeringMatrix{{0, 1, 2, 3}, {5, 5, 5, 5}}));
}

// A start may give the run rows of its own (a job that shows one block of
// rows per scan point, say): the run records that many, and a later step
// must keep them.
TEST_F(RunnerTest, TheStartMayChooseTheNumberOfRows) {
  SteeringRunPlan l_cPlan = Plan(2);
  l_cPlan.m_fBegin = [](SteeringStep& p_rStep) {
    p_rStep.Marking().assign(3, 7.0);
    return true;
  };
  l_cPlan.m_fStep = [](SteeringStep& p_rStep) {
    for (double& l_rdValue : p_rStep.Marking()) l_rdValue += 1.0;
    return true;
  };
  EXPECT_EQ(Run(l_cPlan), SIMULATOR_FINISHED) << Error();
  EXPECT_EQ(m_cStore.GetResultMatrix(m_nModel),
            (SteeringMatrix{{8, 9, 10}, {8, 9, 10}, {8, 9, 10}}));

  l_cPlan = Plan(1e6);  // a million points and a few rows more than they may have
  l_cPlan.m_fBegin = [](SteeringStep& p_rStep) {
    p_rStep.Marking().assign(SteeringRunner::MAX_RESULT_VALUES / 1000000 + 1, 0.0);
    return true;
  };
  EXPECT_EQ(Run(l_cPlan), SIMULATOR_FAILED);
  EXPECT_TRUE(Contains(Error(), "would be more than the")) << Error();
}

TEST_F(RunnerTest, StartsThatCannotRunAreRefused) {
  SteeringRunner l_cRunner(m_cStore, m_nModel);
  wxString l_sReason;
  SteeringRunPlan l_cPlan = Plan();
  l_cPlan.m_fStep = nullptr;
  EXPECT_FALSE(l_cRunner.Start(l_cPlan, false, &l_sReason));
  EXPECT_EQ(Utf8(l_sReason), "there is no step function");
  l_cPlan = Plan();
  l_cPlan.m_dEnd = -1;
  EXPECT_FALSE(l_cRunner.Start(l_cPlan, false, &l_sReason));
  EXPECT_EQ(Utf8(l_sReason), "the output interval ends (-1) before it starts (0)");
  l_cPlan.m_dEnd = 1e300;
  EXPECT_FALSE(l_cRunner.Start(l_cPlan, false, &l_sReason));
  EXPECT_EQ(Utf8(l_sReason), "the output interval would have more than 10000000 points");
  l_cPlan.m_dEnd = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(l_cRunner.Start(l_cPlan, false, &l_sReason));
  EXPECT_EQ(Utf8(l_sReason), "the output interval must consist of finite numbers");
  // A model of many places may not make the results exceed the limit.
  std::vector<double> l_adMarking(1000, 0.0);
  m_cStore.WithModel(m_nModel, [&](Model& p_rModel) { p_rModel.SetInitialMarking(l_adMarking); });
  l_cPlan.m_dEnd = 9999999;
  EXPECT_FALSE(l_cRunner.Start(l_cPlan, false, &l_sReason));
  EXPECT_TRUE(Contains(Utf8(l_sReason), "10000000 output points of 1000 rows")) << Utf8(l_sReason);
  EXPECT_EQ(l_cRunner.GetState(), SIMULATOR_IDLE);
  EXPECT_EQ(m_cGrowth.m_nCalls.load(), 0);
}

// Each output point is appended to the store's matrix as a column: while
// nobody holds a snapshot, the published matrix stays the same object from
// point to point instead of being replaced by a copy of the whole run.
TEST_F(RunnerTest, EachOutputPointIsAppendedToThePublishedMatrix) {
  // A paced run publishes at every output point.
  m_cStore.WithRuntimeState(m_nModel, [](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(keys::SIMULATOR_SPEED, 100000);
  });
  std::vector<const void*> l_apMatrices;
  std::vector<size_t> l_anColumns;
  SteeringRunPlan l_cPlan = Plan(4);
  l_cPlan.m_fStep = [&](SteeringStep& p_rStep) {
    if (p_rStep.GetPoint() >= 1) {
      const SteeringMatrixSnapshot l_pcMatrix = m_cStore.ShareResultMatrix(m_nModel);
      l_apMatrices.push_back(l_pcMatrix.get());
      l_anColumns.push_back(l_pcMatrix->empty() ? 0 : (*l_pcMatrix)[0].size());
    }
    return m_cGrowth.Step(p_rStep);
  };
  EXPECT_EQ(Run(l_cPlan), SIMULATOR_FINISHED);
  EXPECT_EQ(l_anColumns, (std::vector<size_t>{1, 2, 3, 4}));
  ASSERT_EQ(l_apMatrices.size(), 4u);
  for (size_t i = 1; i < l_apMatrices.size(); ++i) EXPECT_EQ(l_apMatrices[i], l_apMatrices[0]);
  const SteeringMatrix l_aadResults = m_cStore.GetResultMatrix(m_nModel);
  ASSERT_EQ(l_aadResults.size(), 2u);
  EXPECT_EQ(l_aadResults[0].size(), 5u);
}

TEST(RunnerGrid, CountsThePointsOfAnInterval) {
  EXPECT_EQ(SteeringRunner::CountPoints(0, 100, 0.5), 201u);
  EXPECT_EQ(SteeringRunner::CountPoints(0, 1, 0.1), 11u);  // 1 / 0.1 falls short by rounding
  EXPECT_EQ(SteeringRunner::CountPoints(2, 2, 1), 1u);
  EXPECT_EQ(SteeringRunner::CountPoints(0, 10, 3), 4u);
  EXPECT_EQ(SteeringRunner::CountPoints(0, 10, 0), 0u);
}

}  // namespace
