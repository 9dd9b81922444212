// SPDX-License-Identifier: MIT
// SteeringDispatcher end to end: a real SteeringServer with its event loop on
// the main thread, real SteeringClients on threads of their own, and raw
// peers for the clients that misbehave. Every client operation is checked on
// both sides: what the client wrote arrives in the handler or the store, and
// what the store holds arrives at the client.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "quor/coloredmodel.h"
#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringclient.h"
#include "quor/steeringdispatcher.h"
#include "connect_peer.h"
#include "log_capture.h"
#include "raw_peer.h"
#include "server_harness.h"

using namespace quor;
using namespace quor_test;

namespace {

const int PARAMETERS = 16;  // 128 bytes of values: they travel compressed

// A net of 2 transitions, 3 places and 16 parameters, with one view.
Model* MakeModel(const wxString& p_sName, double p_dBase = 0.0) {
  Model* l_pcModel = new Model(NULL, p_sName, 2, 3);
  l_pcModel->SetPlaceNames({wxT("A"), wxT("B"), wxT("C")});
  l_pcModel->SetTransitionNames({wxT("t1"), wxT("t2")});
  std::vector<wxString> l_asNames;
  std::vector<double> l_adValues;
  for (int i = 0; i < PARAMETERS; ++i) {
    l_asNames.push_back(wxString::Format(wxT("k%d"), i));
    l_adValues.push_back(p_dBase + i);
  }
  l_pcModel->SetAttributeValue(wxT("PARAMETER_NAMES"), l_asNames);
  l_pcModel->SetInitialParameterValues(l_adValues);
  l_pcModel->SetCurrentParameterValues(l_adValues);
  l_pcModel->SetInitialMarking({10, 20, 30});
  l_pcModel->SetCurrentMarking({10, 20, 30});
  ModelView* l_pcView = new ModelView(wxT("marking"), NULL);
  l_pcView->SetTitle(p_sName + wxT(" over time"));
  wxString l_sCurve = wxT("A");
  l_pcView->AddNewCurve(0, l_sCurve, 2, 0, RM_ROW_TYPE_PLACE, wxT("red"), true);
  l_pcModel->AddModelView(l_pcView);
  return l_pcModel;
}

void ExpectSameModel(Model& p_cExpected, Model& p_cActual) {
  const WireModel l_cExpected = ImageOf(p_cExpected);
  const WireModel l_cActual = ImageOf(p_cActual);
  EXPECT_EQ(l_cActual.type, l_cExpected.type);
  EXPECT_EQ(ToHex(l_cActual.attributes), ToHex(l_cExpected.attributes));
  EXPECT_EQ(l_cActual.views, l_cExpected.views);
  EXPECT_EQ(l_cActual.activeView, l_cExpected.activeView);
}

std::string Text(const wxString& p_s) { return p_s.ToStdString(); }

// The default handler, recording the calls that the store does not show.
class RecordingHandler : public SteeringHandler {
 public:
  std::vector<std::string> Calls() {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    return m_asCalls;
  }
  std::vector<unsigned int> Connections() {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    return m_anConnected;
  }

  void OnConnect(unsigned int p_nConnection) override {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    m_anConnected.push_back(p_nConnection);
  }
  void OnStart(unsigned int c, const wxString& n, double a, double b, double s) override {
    Record(c, "start " + Text(n), a, b, s);
    SteeringHandler::OnStart(c, n, a, b, s);
  }
  void OnRestart(unsigned int c, const wxString& n, double a, double b, double s) override {
    Record(c, "restart " + Text(n), a, b, s);
    SteeringHandler::OnRestart(c, n, a, b, s);
  }
  void OnPause(unsigned int c) override { Record(c, "pause"); }
  void OnResume(unsigned int c) override { Record(c, "resume"); }
  void OnStop(unsigned int c) override {
    Record(c, "stop");
    if (m_bStopThrows) throw std::runtime_error("cannot stop");
  }
  std::atomic<bool> m_bStopThrows{false};
  void OnCommand(unsigned int c, CMD_TYPE p_eCommand, double p_dValue) override {
    Record(c, "command " + std::to_string(p_eCommand), p_dValue);
  }
  int OnRemoveModel(unsigned int c, const wxString& p_sName) override {
    Record(c, "remove " + Text(p_sName));
    return SteeringHandler::OnRemoveModel(c, p_sName);
  }
  void OnChangeSimulatorSpeed(unsigned int c, unsigned int p_nSpeed) override {
    Record(c, "speed " + std::to_string(p_nSpeed));
    SteeringHandler::OnChangeSimulatorSpeed(c, p_nSpeed);
  }
  // The next read of the simulator state takes this long.
  std::atomic<int> m_nSlowStateMillis{0};
  int OnReadSimulatorState(unsigned int c) override {
    const int l_nMillis = m_nSlowStateMillis.exchange(0);
    if (l_nMillis > 0) std::this_thread::sleep_for(std::chrono::milliseconds(l_nMillis));
    return SteeringHandler::OnReadSimulatorState(c);
  }

 private:
  template <typename... D>
  void Record(unsigned int p_nConnection, const std::string& p_sWhat, D... p_adValues) {
    std::ostringstream l_cLine;
    l_cLine << p_nConnection << ": " << p_sWhat;
    ((l_cLine << ' ' << p_adValues), ...);
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    m_asCalls.push_back(l_cLine.str());
  }

  std::mutex m_cMutex;
  std::vector<std::string> m_asCalls;
  std::vector<unsigned int> m_anConnected;
};

// A peer that never read: the version is waiting for it, then the end.
bool ClosedAfterTheVersion(RawPeer& p_cPeer) {
  return p_cPeer.Read(4) == Le<uint32_t>(STEERING_PROTOCOL_VERSION) && p_cPeer.WaitForClose(10000);
}

// A one-shot signal between a client thread and the test.
class Signal {
 public:
  void Raise() {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    m_bRaised = true;
    m_cRaised.notify_all();
  }
  bool Raised() {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    return m_bRaised;
  }
  void Wait() {
    std::unique_lock<std::mutex> l_cLock(m_cMutex);
    m_cRaised.wait(l_cLock, [this] { return m_bRaised; });
  }

 private:
  std::mutex m_cMutex;
  std::condition_variable m_cRaised;
  bool m_bRaised = false;
};

// A client on a thread of its own that registers with model 0, idles until
// released, then reads the current marking.
class IdleClient {
 public:
  explicit IdleClient(unsigned int p_nPort)
      : m_cThread([this, p_nPort] {
          SteeringClient c(wxT("127.0.0.1"), wxString::Format(wxT("%u"), p_nPort));
          if (c.ConnectToServer(true) == 1) m_nInit = c.Initialize(0);
          m_cRegistered.Raise();
          m_cGo.Wait();
          m_nLater = c.ReadCurrentPlaceValues(m_adMarking);
          delete c.GetModel();
        }) {}
  ~IdleClient() { Finish(); }
  bool Registered() { return m_cRegistered.Raised(); }
  // Lets the client send its last request and waits for it.
  void Finish() {
    m_cGo.Raise();
    if (m_cThread.joinable()) m_cThread.join();
  }

  unsigned int m_nInit = 0, m_nLater = 0;
  std::vector<double> m_adMarking;

 private:
  Signal m_cRegistered, m_cGo;
  std::thread m_cThread;
};

typedef std::function<void(SteeringClient&)> ClientBody;

class DispatcherTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_cServer.SetPort(0);
    ASSERT_TRUE(m_cServer.DoStartServer(0));
    m_nPort = m_cServer.GetPort();
    m_pcDispatcher.reset(new SteeringDispatcher(m_cServer, m_cHandler));
    m_pcDispatcher->SetTimeout(Timeout());
    ASSERT_TRUE(m_pcDispatcher->Start());
    m_nNet = Store().AddModel(MakeModel(wxT("net")));
  }
  void TearDown() override {
    m_pcDispatcher.reset();
    ReleaseListeningSocket(m_cServer);
    EXPECT_EQ(m_cAsserts.Count(), 0);
  }
  virtual int Timeout() { return 10; }

  SteeringModelStore& Store() { return m_cHandler.GetStore(); }

  // Runs each body on a thread of its own with a client connected to the
  // server (the model it ends with is deleted afterwards), while the main
  // thread runs the event loop, until every body has returned and its
  // connection has ended on the server too. (A client's write returns with
  // the acknowledgement of its last frame, maybe before the handler has run;
  // the end of the connection comes after.)
  void RunClients(const std::vector<ClientBody>& p_afBodies) {
    const unsigned int l_nOthers = m_pcDispatcher->GetConnectionCount();
    std::atomic<size_t> l_nDone{0};
    std::vector<std::thread> l_acThreads;
    for (const ClientBody& l_fBody : p_afBodies) {
      l_acThreads.emplace_back([this, &l_nDone, l_fBody] {
        {
          SteeringClient l_cClient(wxT("127.0.0.1"), wxString::Format(wxT("%u"), m_nPort));
          if (l_cClient.ConnectToServer(true) == 1) {
            l_fBody(l_cClient);
          } else {
            ADD_FAILURE() << "no connection";
          }
          delete l_cClient.GetModel();
        }
        ++l_nDone;
      });
    }
    EXPECT_TRUE(RunEventLoopUntil(
        [&] {
          return l_nDone == p_afBodies.size() && m_pcDispatcher->GetConnectionCount() <= l_nOthers;
        },
        120000));
    for (std::thread& l_cThread : l_acThreads) l_cThread.join();
  }
  void RunClient(const ClientBody& p_fBody) { RunClients({p_fBody}); }

  // A raw peer that has been accepted and has acknowledged the version.
  std::unique_ptr<RawPeer> AnnouncedPeer() {
    std::unique_ptr<RawPeer> l_pcPeer = AcceptedPeer();
    if (l_pcPeer) {
      EXPECT_EQ(l_pcPeer->RecvValue<uint32_t>(), STEERING_PROTOCOL_VERSION);
    }
    return l_pcPeer;
  }
  // A raw peer that has been accepted (and has not read anything).
  std::unique_ptr<RawPeer> AcceptedPeer() {
    const unsigned int l_nBefore = m_pcDispatcher->GetConnectionCount();
    std::unique_ptr<RawPeer> l_pcPeer = ConnectRaw(m_nPort);
    EXPECT_NE(l_pcPeer, nullptr);
    EXPECT_TRUE(
        RunEventLoopUntil([&] { return m_pcDispatcher->GetConnectionCount() == l_nBefore + 1; }));
    return l_pcPeer;
  }

  // A registered client that idles (see IdleClient).
  std::unique_ptr<IdleClient> StartIdleClient() {
    std::unique_ptr<IdleClient> l_pcClient(new IdleClient(m_nPort));
    EXPECT_TRUE(RunEventLoopUntil([&] { return l_pcClient->Registered(); }));
    return l_pcClient;
  }

  // The line that ends a connection for a reason.
  static std::vector<std::string> Dropped(unsigned int p_nSession, const std::string& p_sWhy) {
    return {"Error: Steering session " + std::to_string(p_nSession) + ": " + p_sWhy +
            "; closing the connection"};
  }

  // Every error and warning logged so far (the library's and wxWidgets').
  std::vector<std::string> Errors() {
    std::vector<std::string> l_asErrors;
    for (const LogLine& l_cLine : m_cLog.Records())
      if (l_cLine.level <= wxLOG_Warning) l_asErrors.push_back(l_cLine.text);
    return l_asErrors;
  }
  bool Logged(const std::string& p_sLine) {
    for (const std::string& l_sLine : m_cLog.Texts())
      if (l_sLine == p_sLine) return true;
    return false;
  }

  LogCapture m_cLog;
  WxAssertCounter m_cAsserts;
  SteeringServer m_cServer;
  unsigned int m_nPort = 0;
  RecordingHandler m_cHandler;
  std::unique_ptr<SteeringDispatcher> m_pcDispatcher;
  int m_nNet = SteeringModelStore::NO_MODEL;
};

// Registration.

TEST_F(DispatcherTest, AttachingToARunningModelReceivesTheServersModel) {
  std::unique_ptr<Model> l_pcExpected(Store().CopyModel(m_nNet));
  std::vector<wxString> l_asNames;
  unsigned int l_nInit = 0, l_nNames = 0;
  RunClient([&](SteeringClient& c) {
    l_nInit = c.Initialize(0);
    ASSERT_NE(c.GetModel(), nullptr);
    ExpectSameModel(*l_pcExpected, *c.GetModel());
    EXPECT_EQ(c.GetModel()->GetModelName(), wxT("net"));
    l_nNames = c.GetRuningModelNames(l_asNames);
  });
  EXPECT_EQ(l_nInit, 1u);
  EXPECT_EQ(l_nNames, 1u);
  EXPECT_EQ(l_asNames, std::vector<wxString>{wxT("net")});
  EXPECT_EQ(m_cHandler.Connections(), std::vector<unsigned int>{1});
  EXPECT_TRUE(Logged("Notice: Steering session 1: connected from 127.0.0.1"));
  EXPECT_TRUE(Logged("Notice: Steering session 1: closed by the peer"));
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

TEST_F(DispatcherTest, AnUploadedModelRunsInTheStoreAndChangingTheModelSwitchesBack) {
  Model* l_pcUpload = MakeModel(wxT("mine"), 100.0);
  std::unique_ptr<Model> l_pcNet(Store().CopyModel(m_nNet));
  unsigned int l_nInit = 0, l_nChange = 0, l_nValue = 0;
  std::vector<wxString> l_asNames;
  RunClient([&](SteeringClient& c) {
    l_nInit = c.Initialize(l_pcUpload);
    // The uploaded model is current: a change lands in it.
    l_nValue = c.ChangeCurrentParameterValues(3, -1.0);
    c.GetRuningModelNames(l_asNames);
    l_nChange = c._ChangeCurrentModel(0);  // deletes the uploaded model
    ASSERT_NE(c.GetModel(), nullptr);
    ExpectSameModel(*l_pcNet, *c.GetModel());
  });
  EXPECT_EQ(l_nInit, 1u);
  EXPECT_EQ(l_nValue, 1u);
  EXPECT_EQ(l_nChange, 1u);
  EXPECT_EQ(l_asNames, (std::vector<wxString>{wxT("net"), wxT("mine")}));
  const int l_nMine = Store().GetModelId(1);
  ASSERT_NE(l_nMine, SteeringModelStore::NO_MODEL);
  std::unique_ptr<Model> l_pcStored(Store().CopyModel(l_nMine));
  EXPECT_EQ(l_pcStored->GetModelName(), wxT("mine"));
  EXPECT_EQ(l_pcStored->GetPlaceCount(), 3u);
  EXPECT_EQ(l_pcStored->GetModelViews()->size(), 1u);
  EXPECT_EQ(l_pcStored->GetClientSocket(), nullptr);
  std::vector<double> l_adExpected;
  for (int i = 0; i < PARAMETERS; ++i) l_adExpected.push_back(i == 3 ? -1.0 : 100.0 + i);
  EXPECT_EQ(Store().GetParameterValues(l_nMine), l_adExpected);
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

TEST_F(DispatcherTest, AColouredModelIsServedAsOne) {
  ColoredModel* l_pcColoured = new ColoredModel(NULL, wxT("coloured"), 2, 4, 2, 1);
  l_pcColoured->SetColoredPlaceNames({wxT("P"), wxT("Q")});
  l_pcColoured->SetColorPlaceRange(1, 2, 3);
  Store().AddModel(l_pcColoured);
  std::unique_ptr<Model> l_pcExpected(Store().CopyModel(Store().GetModelId(1)));
  ASSERT_NE(dynamic_cast<ColoredModel*>(l_pcExpected.get()), nullptr);
  unsigned int l_nInit = 0;
  RunClient([&](SteeringClient& c) {
    l_nInit = c.Initialize(1);
    ASSERT_NE(dynamic_cast<ColoredModel*>(c.GetModel()), nullptr);
    ExpectSameModel(*l_pcExpected, *c.GetModel());
    unsigned long long l_nStart = 0, l_nEnd = 0;
    dynamic_cast<ColoredModel*>(c.GetModel())->GetColorPlaceRange(1, l_nStart, l_nEnd);
    EXPECT_EQ(l_nStart, 2u);
    EXPECT_EQ(l_nEnd, 3u);
  });
  EXPECT_EQ(l_nInit, 1u);
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

TEST_F(DispatcherTest, RemoveModelAnswersWhetherAModelOfThatNameRan) {
  Store().AddModel(MakeModel(wxT("other")));
  int l_nRemoved = -5, l_nMissing = -5;
  unsigned int l_nFirst = 0, l_nSecond = 0;
  RunClient([&](SteeringClient& c) {
    l_nFirst = c.RemoveModel(wxT("other"), l_nRemoved);
    l_nSecond = c.RemoveModel(wxT("nothing"), l_nMissing);
  });
  EXPECT_EQ(l_nFirst, 1u);
  EXPECT_EQ(l_nSecond, 1u);
  EXPECT_EQ(l_nRemoved, 1);
  EXPECT_EQ(l_nMissing, 0);
  EXPECT_EQ(Store().GetModelNames(), std::vector<wxString>{wxT("net")});
}

// Commands.

TEST_F(DispatcherTest, CommandsReachTheHandlerInOrderWithTheirValues) {
  std::vector<unsigned int> l_anResults;
  RunClient([&](SteeringClient& c) {
    l_anResults.push_back(c.Initialize(0));
    l_anResults.push_back(c.CMD_Start(wxT("net"), 0.0, 10.0, 0.5));
    l_anResults.push_back(c.CMD_Pause());
    l_anResults.push_back(c.CMD_Resume());
    l_anResults.push_back(c.ChanageSimulatorSpeed(7));
    l_anResults.push_back(c.CMD_Restart(wxT("net"), 1.0, 20.0, 0.25));
    l_anResults.push_back(c.CMD_Stop());
    l_anResults.push_back(c.Send_CMD(CMD_PAUSE));
    l_anResults.push_back(c.Send_CMD(static_cast<CMD_TYPE>(9), 2.5));
  });
  EXPECT_EQ(l_anResults, std::vector<unsigned int>(9, 1u));
  EXPECT_EQ(m_cHandler.Calls(),
            (std::vector<std::string>{"1: start net 0 10 0.5", "1: pause", "1: resume",
                                      "1: speed 7", "1: restart net 1 20 0.25", "1: stop",
                                      "1: pause", "1: command 9 2.5"}));
  // The defaults keep the last interval and the speed.
  double l_dStart = -1, l_dEnd = -1, l_dSampling = -1;
  Store().GetSimulationInterval(m_nNet, l_dStart, l_dEnd, l_dSampling);
  EXPECT_EQ(l_dStart, 1.0);
  EXPECT_EQ(l_dEnd, 20.0);
  EXPECT_EQ(l_dSampling, 0.25);
  ModelRuntimeState l_cState;
  Store().GetRuntimeState(m_nNet, l_cState);
  EXPECT_EQ(l_cState.GetAttributeValueInt(wxT("SIMULATOR_SPEED")), 7);
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

// Values of the current model.

TEST_F(DispatcherTest, ParameterAndMarkingValuesAreChangedReadAndReset) {
  std::vector<double> l_adParameters, l_adMarking, l_adAfterReset, l_adMarkingAfterReset;
  std::vector<double> l_adModelParameters, l_adModelMarking;
  std::vector<double> l_adStoredParameters, l_adStoredMarking;
  std::vector<unsigned int> l_anResults;
  RunClient([&](SteeringClient& c) {
    l_anResults.push_back(c.Initialize(0));
    l_anResults.push_back(c.ChangeCurrentParameterValues(2, 9.5));
    l_anResults.push_back(c.ChangeCurrentPlaceValues(1, 7.0));
    l_anResults.push_back(c.ReadCurrentParameterValues(l_adParameters));
    l_anResults.push_back(c.ReadCurrentPlaceValues(l_adMarking));
    // Answered requests: the changes before them have been handled.
    l_adStoredParameters = Store().GetParameterValues(m_nNet);
    l_adStoredMarking = Store().GetMarking(m_nNet);
    l_adModelParameters = dynamic_cast<AttributeVectorDouble*>(
                              c.GetModel()->GetAttribute(wxT("CURRENT_PARAM_VALUES")))
                              ->GetValue();
    l_adModelMarking = *c.GetModel()->GetCurrentMarking();
    l_anResults.push_back(c.ResetParameterValues());
    l_anResults.push_back(c.ResetMarkingValues());
    l_anResults.push_back(c.ReadCurrentParameterValues(l_adAfterReset));
    l_anResults.push_back(c.ReadCurrentPlaceValues(l_adMarkingAfterReset));
  });
  EXPECT_EQ(l_anResults, std::vector<unsigned int>(9, 1u));
  std::vector<double> l_adInitial;
  for (int i = 0; i < PARAMETERS; ++i) l_adInitial.push_back(i);
  std::vector<double> l_adChanged = l_adInitial;
  l_adChanged[2] = 9.5;
  EXPECT_EQ(l_adStoredParameters, l_adChanged);
  EXPECT_EQ(l_adStoredMarking, (std::vector<double>{10, 7, 30}));
  EXPECT_EQ(l_adParameters, l_adChanged);
  EXPECT_EQ(l_adMarking, (std::vector<double>{10, 7, 30}));
  EXPECT_EQ(l_adModelParameters, l_adChanged);
  EXPECT_EQ(l_adModelMarking, (std::vector<double>{10, 7, 30}));
  EXPECT_EQ(l_adAfterReset, l_adInitial);
  EXPECT_EQ(l_adMarkingAfterReset, (std::vector<double>{10, 20, 30}));
  EXPECT_EQ(Store().GetParameterValues(m_nNet), l_adInitial);
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

TEST_F(DispatcherTest, SteeredPositionsTravelBothWays) {
  std::vector<unsigned long long> l_anParameters, l_anPlaces, l_anNone;
  std::vector<unsigned int> l_anResults;
  std::vector<unsigned long long> l_anMany;
  for (unsigned long long i = 0; i < 20; ++i) l_anMany.push_back(i * 3);
  RunClient([&](SteeringClient& c) {
    l_anResults.push_back(c.Initialize(0));
    l_anResults.push_back(c.ReceiveSteeredPlacePositions(l_anNone));
    l_anResults.push_back(c.SendSteeredParamPositions(l_anMany));
    l_anResults.push_back(c.SendSteeredPlacePositions({2, 0}));
    l_anResults.push_back(c.ReceiveSteeredParamPositions(l_anParameters));
    l_anResults.push_back(c.ReceiveSteeredPlacePositions(l_anPlaces));
  });
  EXPECT_EQ(l_anResults, std::vector<unsigned int>(6, 1u));
  EXPECT_TRUE(l_anNone.empty());
  EXPECT_EQ(l_anParameters, l_anMany);
  EXPECT_EQ(l_anPlaces, (std::vector<unsigned long long>{2, 0}));
  std::vector<unsigned long long> l_anStored;
  Store().WithModel(m_nNet, [&](Model& m) {
    l_anStored =
        dynamic_cast<AttributeVectorULong*>(m.GetAttribute(wxT("STEERED_PLACES")))->GetValue();
  });
  EXPECT_EQ(l_anStored, (std::vector<unsigned long long>{2, 0}));
}

TEST_F(DispatcherTest, ViewsAreReadFromAndWrittenToTheStore) {
  // The server's views change after the client has registered.
  std::unique_ptr<Model> l_pcNewer(MakeModel(wxT("net")));
  l_pcNewer->AddModelView(new ModelView(wxT("rates"), NULL));
  l_pcNewer->SetActiveView(1);
  Store().SetViews(m_nNet, *l_pcNewer);
  std::unique_ptr<Model> l_pcExpected(Store().CopyModel(m_nNet));
  unsigned int l_nRead = 0, l_nWrite = 0;
  std::vector<Bytes> l_aReadViews, l_aWrittenViews;
  RunClient([&](SteeringClient& c) {
    ASSERT_EQ(c.Initialize(0), 1u);
    l_nRead = c.ReadModelViews();
    l_aReadViews = ImageOf(*c.GetModel()).views;
    EXPECT_EQ(c.GetModel()->GetActiveView(), 1u);
    ModelView* l_pcThird = new ModelView(wxT("third"), NULL);
    l_pcThird->SetTitle(wxT("written"));
    c.GetModel()->AddModelView(l_pcThird);
    c.GetModel()->SetActiveView(2);
    l_aWrittenViews = ImageOf(*c.GetModel()).views;
    l_nWrite = c.WriteModelViews();
  });
  EXPECT_EQ(l_nRead, 1u);
  EXPECT_EQ(l_nWrite, 1u);
  EXPECT_EQ(l_aReadViews, ImageOf(*l_pcExpected).views);
  ASSERT_EQ(l_aWrittenViews.size(), 3u);
  std::unique_ptr<Model> l_pcStored(Store().CopyModel(m_nNet));
  EXPECT_EQ(ImageOf(*l_pcStored).views, l_aWrittenViews);
  EXPECT_EQ(l_pcStored->GetActiveView(), 2u);
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

// Results.

TEST_F(DispatcherTest, MatricesTheIntervalAndTheRowInfoTravel) {
  Store().SetResultMatrix(m_nNet, {{1, 2}, {3, 4}});
  Store().SetRateMatrix(m_nNet, {{0.5}, {0.25}, {0.125}});
  Store().SetSimulationInterval(m_nNet, 2.0, 40.0, 0.5);
  SteeringMatrix l_aadResults, l_aadRates;
  double l_dStart = 0, l_dEnd = 0, l_dSampling = 0, l_dModelEnd = 0;
  std::vector<unsigned int> l_anResults;
  RunClient([&](SteeringClient& c) {
    l_anResults.push_back(c.Initialize(0));
    l_anResults.push_back(c.ReadResultMatrix(l_aadResults));
    l_anResults.push_back(c.ReadRateMatrix(l_aadRates));
    SteeringMatrix l_aadWritten = {{5, 6, 7}, {8, 9, 10}};
    l_anResults.push_back(c.WriteResultMatrix(l_aadWritten));
    // Kept from the protocol: FAILURE after a success; the outputs tell.
    l_anResults.push_back(c.ReadSimulationInterval(l_dStart, l_dEnd, l_dSampling));
    l_dModelEnd = c.GetModel()->GetAttributeValueDouble(wxT("END_OUTPUT_POINT"));
    ResultMatrixInfo l_cInfo(2);
    l_cInfo.SetRowInfo(0, 2, RM_ROW_TYPE_PLACE);
    l_cInfo.SetRowInfo(1, 1, RM_ROW_TYPE_TRANSITION);
    l_anResults.push_back(c.UpdateResultMatrixInfo(&l_cInfo));
  });
  EXPECT_EQ(l_anResults, (std::vector<unsigned int>{1, 1, 1, 1, FAILURE, 1}));
  EXPECT_EQ(l_aadResults, (SteeringMatrix{{1, 2}, {3, 4}}));
  EXPECT_EQ(l_aadRates, (SteeringMatrix{{0.5}, {0.25}, {0.125}}));
  EXPECT_EQ(Store().GetResultMatrix(m_nNet), (SteeringMatrix{{5, 6, 7}, {8, 9, 10}}));
  EXPECT_EQ(l_dStart, 2.0);
  EXPECT_EQ(l_dEnd, 40.0);
  EXPECT_EQ(l_dSampling, 0.5);
  EXPECT_EQ(l_dModelEnd, 40.0);
  ResultMatrixInfo l_cStored(0);
  Store().GetResultMatrixInfo(m_nNet, l_cStored);
  ASSERT_EQ(l_cStored.GetRowCount(), 2u);
  unsigned int l_nPosition = 99;
  RM_ROW_TYPE l_eType = RM_ROW_TYPE_OBSERVER;
  l_cStored.GetRowInfo(1, l_nPosition, l_eType);
  EXPECT_EQ(l_nPosition, 1u);
  EXPECT_EQ(l_eType, RM_ROW_TYPE_TRANSITION);
  l_cStored.GetRowInfo(0, l_nPosition, l_eType);
  EXPECT_EQ(l_nPosition, 2u);
  EXPECT_EQ(l_eType, RM_ROW_TYPE_PLACE);
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

// The simulator.

TEST_F(DispatcherTest, SimulatorStateStatisticsNamesAndMessagesTravel) {
  ModelRuntimeState l_cFed;
  l_cFed.SetAttributeValue(wxT("SIMULATOR_RUNTIME"), 12.5);
  l_cFed.SetAttributeValue(wxT("SIMULATOR_CATEGORY"), wxString(wxT("stochastic")));
  Store().SetRuntimeState(m_nNet, l_cFed);
  Store().SetSimulatorState(m_nNet, 4);
  Store().SetCurrentSimulatorName(m_nNet, wxT("continuous"), wxT("rk45"));
  Store().SetErrorMessage(m_nNet, wxT("step size too small"));
  Store().SetLogMessage(m_nNet, wxT("t = 12.5"));
  int l_nState = 0, l_nStateAfter = 0;
  double l_dRuntime = 0;
  wxString l_sCategory, l_sFirst, l_sSecond, l_sError, l_sLog;
  std::vector<unsigned int> l_anResults;
  RunClient([&](SteeringClient& c) {
    l_anResults.push_back(c.Initialize(0));
    l_anResults.push_back(c.ReadSimulatorState(l_nState));
    ModelRuntimeState l_cRead;
    l_anResults.push_back(c.ReadModelStatistics(l_cRead));
    l_dRuntime = l_cRead.GetAttributeValueDouble(wxT("SIMULATOR_RUNTIME"));
    l_sCategory = l_cRead.GetAttributeValueString(wxT("SIMULATOR_CATEGORY"));
    l_anResults.push_back(c.ReadCurrentSimulatorName(l_sFirst, l_sSecond));
    l_anResults.push_back(c.ReceiveErrorMessage(l_sError));
    l_anResults.push_back(c.ReadLogMessage(l_sLog));
    ModelRuntimeState l_cWritten;
    l_cWritten.SetAttributeValue(wxT("SIMULATOR_PROGRESS"), 0.75);
    l_cWritten.SetAttributeValue(wxT("SIMULATOR_STATE"), 3);
    l_anResults.push_back(c.WriteModelStatistics(l_cWritten));
    l_anResults.push_back(c.WriteSimulatorState(2));
    l_anResults.push_back(c.ReadSimulatorState(l_nStateAfter));
    l_anResults.push_back(c.WriteCurrentSimulatorName(wxT("stochastic"), wxT("ssa")));
  });
  EXPECT_EQ(l_anResults, std::vector<unsigned int>(10, 1u));
  EXPECT_EQ(l_nState, 4);
  EXPECT_EQ(l_dRuntime, 12.5);
  EXPECT_EQ(l_sCategory, wxT("stochastic"));
  EXPECT_EQ(l_sFirst, wxT("continuous"));
  EXPECT_EQ(l_sSecond, wxT("rk45"));
  EXPECT_EQ(l_sError, wxT("step size too small"));
  EXPECT_EQ(l_sLog, wxT("t = 12.5"));
  EXPECT_EQ(l_nStateAfter, 2);
  ModelRuntimeState l_cStored;
  Store().GetRuntimeState(m_nNet, l_cStored);
  EXPECT_EQ(l_cStored.GetAttributeValueDouble(wxT("SIMULATOR_PROGRESS")), 0.75);
  EXPECT_EQ(l_cStored.GetAttributeValueInt(wxT("SIMULATOR_STATE")), 2);
  wxString l_sStoredFirst, l_sStoredSecond;
  Store().GetCurrentSimulatorName(m_nNet, l_sStoredFirst, l_sStoredSecond);
  EXPECT_EQ(l_sStoredFirst, wxT("stochastic"));
  EXPECT_EQ(l_sStoredSecond, wxT("ssa"));
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

TEST_F(DispatcherTest, SimulatorListsAndSettingsTravelBothWays) {
  QU_SimulatorCategory l_cOde;
  l_cOde.m_sCategoryName = wxT("ODE");
  l_cOde.m_nCategoryId = 1;
  l_cOde.m_asSimulatorNames = {wxT("rk45"), wxT("euler")};
  Store().SetAvailableSimulators({l_cOde});
  SimulatorAttribute l_cFed;
  l_cFed.AddAttribute(wxT("seed"), wxT("Seed"), wxT("42"), 1, 0.0, 1000.0);
  l_cFed.AddAttribute(wxT("method"), wxT("Method"), wxT("direct"), 2, 0.0, 0.0);
  l_cFed.SetPossibleValues(1, {wxT("direct"), wxT("tau")});
  Store().SetSimulatorSettings(wxT("ssa"), l_cFed);

  std::vector<QU_SimulatorCategory> l_aRead;
  std::vector<unsigned int> l_anResults;
  wxString l_sName, l_sCaption, l_sValue;
  unsigned int l_nGui = 0;
  double l_dMin = 0, l_dMax = 0;
  std::vector<wxString> l_asPossible;
  unsigned long long l_nUnknownSize = 99;
  RunClient([&](SteeringClient& c) {
    l_anResults.push_back(c.Initialize(0));
    l_anResults.push_back(c.ReadAvailableSimulators(l_aRead));
    QU_SimulatorCategory l_cSsa;
    l_cSsa.m_sCategoryName = wxT("Stochastic");
    l_cSsa.m_nCategoryId = 2;
    l_cSsa.m_asSimulatorNames = {wxT("ssa")};
    l_anResults.push_back(c.WriteAvailableSimulators({l_cOde, l_cSsa}));
    SimulatorAttribute l_cReceived;
    l_anResults.push_back(c.ReceiveSimulatorSetting(wxT("ssa"), &l_cReceived));
    if (l_cReceived.size() == 2) {
      l_cReceived.GetAttribute(1, l_sName, l_sCaption, l_sValue, l_nGui, l_dMin, l_dMax);
      l_asPossible = l_cReceived.GetPossibleValues(1);
    }
    SimulatorAttribute l_cUnknown;
    l_cUnknown.AddAttribute(wxT("x"), wxT("X"), wxT("1"), 0, 0.0, 1.0);
    l_anResults.push_back(c.ReceiveSimulatorSetting(wxT("nobody"), &l_cUnknown));
    l_nUnknownSize = l_cUnknown.size();
    SimulatorAttribute l_cSent;
    l_cSent.AddAttribute(wxT("step"), wxT("Step"), wxT("0.01"), 1, 0.0, 1.0);
    l_anResults.push_back(c.SendSimulatorSetting(wxT("rk45"), &l_cSent));
  });
  EXPECT_EQ(l_anResults, std::vector<unsigned int>(6, 1u));
  ASSERT_EQ(l_aRead.size(), 1u);
  EXPECT_EQ(l_aRead[0].m_sCategoryName, wxT("ODE"));
  EXPECT_EQ(l_aRead[0].m_nCategoryId, 1);
  EXPECT_EQ(l_aRead[0].m_asSimulatorNames, l_cOde.m_asSimulatorNames);
  const std::vector<QU_SimulatorCategory> l_aStored = Store().GetAvailableSimulators();
  ASSERT_EQ(l_aStored.size(), 2u);
  EXPECT_EQ(l_aStored[1].m_sCategoryName, wxT("Stochastic"));
  EXPECT_EQ(l_aStored[1].m_nCategoryId, 2);
  EXPECT_EQ(l_sName, wxT("method"));
  EXPECT_EQ(l_sCaption, wxT("Method"));
  EXPECT_EQ(l_sValue, wxT("direct"));
  EXPECT_EQ(l_nGui, 2u);
  EXPECT_EQ(l_asPossible, (std::vector<wxString>{wxT("direct"), wxT("tau")}));
  EXPECT_EQ(l_nUnknownSize, 0u);
  SimulatorAttribute l_cStored;
  ASSERT_TRUE(Store().GetSimulatorSettings(wxT("rk45"), l_cStored));
  ASSERT_EQ(l_cStored.size(), 1u);
  l_cStored.GetAttribute(0, l_sName, l_sCaption, l_sValue, l_nGui, l_dMin, l_dMax);
  EXPECT_EQ(l_sName, wxT("step"));
  EXPECT_EQ(l_sValue, wxT("0.01"));
  EXPECT_EQ(l_dMax, 1.0);
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

// Many clients.

TEST_F(DispatcherTest, EightClientsSteerAtOnceWithoutCrossTalk) {
  const int CLIENTS = 8;
  std::mutex l_cMutex;
  std::condition_variable l_cAllThere;
  int l_nThere = 0;
  std::vector<ClientBody> l_afBodies;
  std::vector<std::vector<double>> l_aadOwn(CLIENTS), l_aadShared(CLIENTS);
  std::vector<int> l_anStates(CLIENTS, -1);
  std::vector<unsigned int> l_anFailures(CLIENTS, 0);
  for (int k = 0; k < CLIENTS; ++k) {
    l_afBodies.push_back([&, k](SteeringClient& c) {
      auto l_fCheck = [&](unsigned int r) {
        if (r != 1) ++l_anFailures[k];
      };
      l_fCheck(c.Initialize(MakeModel(wxString::Format(wxT("own%d"), k), 100.0 * k)));
      {
        // Every client is connected and registered before any steers.
        std::unique_lock<std::mutex> l_cLock(l_cMutex);
        if (++l_nThere == CLIENTS) l_cAllThere.notify_all();
        l_cAllThere.wait(l_cLock, [&] { return l_nThere == CLIENTS; });
      }
      l_fCheck(c.ChangeCurrentParameterValues(0, -k));
      l_fCheck(c.WriteSimulatorState(k));
      SteeringMatrix l_aadMine = {{double(k)}};
      l_fCheck(c.WriteResultMatrix(l_aadMine));
      l_fCheck(c.ReadCurrentParameterValues(l_aadOwn[k]));
      l_fCheck(c.ReadSimulatorState(l_anStates[k]));
      // Then all steer the shared model, each its own parameter.
      l_fCheck(c._ChangeCurrentModel(0));
      l_fCheck(c.ChangeCurrentParameterValues(k, 1000.0 + k));
      l_fCheck(c.ReadCurrentParameterValues(l_aadShared[k]));
    });
  }
  RunClients(l_afBodies);
  EXPECT_EQ(m_cHandler.Connections().size(), size_t(CLIENTS));
  std::vector<double> l_adShared = Store().GetParameterValues(m_nNet);
  ASSERT_EQ(l_adShared.size(), size_t(PARAMETERS));
  for (int k = 0; k < CLIENTS; ++k) {
    SCOPED_TRACE(k);
    EXPECT_EQ(l_anFailures[k], 0u);
    ASSERT_EQ(l_aadOwn[k].size(), size_t(PARAMETERS));
    EXPECT_EQ(l_aadOwn[k][0], -k);
    EXPECT_EQ(l_aadOwn[k][1], 100.0 * k + 1);
    EXPECT_EQ(l_anStates[k], k);
    ASSERT_EQ(l_aadShared[k].size(), size_t(PARAMETERS));
    EXPECT_EQ(l_aadShared[k][k], 1000.0 + k);
    EXPECT_EQ(l_adShared[k], 1000.0 + k);
    const std::vector<wxString> l_asNames = Store().GetModelNames();
    const auto l_it =
        std::find(l_asNames.begin(), l_asNames.end(), wxString::Format(wxT("own%d"), k));
    ASSERT_NE(l_it, l_asNames.end());
    const int l_nOwn = Store().GetModelId(static_cast<int>(l_it - l_asNames.begin()));
    EXPECT_EQ(Store().GetParameterValues(l_nOwn)[0], -k);
    EXPECT_EQ(Store().GetSimulatorState(l_nOwn), k);
    EXPECT_EQ(Store().GetResultMatrix(l_nOwn), (SteeringMatrix{{double(k)}}));
  }
  for (int k = CLIENTS; k < PARAMETERS; ++k) EXPECT_EQ(l_adShared[k], k);
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

// Faults. A short socket timeout: a request that stalls is dropped soon.

class DispatcherFaultTest : public DispatcherTest {
 protected:
  int Timeout() override { return 1; }

  // The connection that misbehaved has gone with this one line, and a new
  // client is served as before.
  void ExpectDroppedAndOthersServed(unsigned int p_nSession, const std::string& p_sWhy) {
    // The peer may see the end (a request out of time is cut at once)
    // before the worker has written its line.
    EXPECT_TRUE(RunEventLoopUntil([&] { return m_pcDispatcher->GetConnectionCount() == 0; }));
    EXPECT_EQ(Errors(), Dropped(p_nSession, p_sWhy));
    EXPECT_EQ(ServeOneClient(), 1u);
    EXPECT_EQ(Errors(), Dropped(p_nSession, p_sWhy));
  }

  // A real client that registers and then answers one more request.
  unsigned int ServeOneClient() {
    std::vector<double> l_adMarking;
    unsigned int l_nResult = 0;
    RunClient([&](SteeringClient& c) {
      if (c.Initialize(0) == 1) l_nResult = c.ReadCurrentPlaceValues(l_adMarking);
    });
    EXPECT_EQ(l_adMarking, (std::vector<double>{10, 20, 30}));
    return l_nResult;
  }
};

TEST_F(DispatcherFaultTest, AnUnknownRequestCodeClosesThatConnectionOnly) {
  std::unique_ptr<RawPeer> l_pcPeer = AnnouncedPeer();
  ASSERT_NE(l_pcPeer, nullptr);
  EXPECT_TRUE(l_pcPeer->SendValue<int32_t>(99));
  EXPECT_TRUE(l_pcPeer->WaitForClose(10000));
  ExpectDroppedAndOthersServed(1, "unknown request code 99");
}

TEST_F(DispatcherFaultTest, HalfACodeFrameIsABrokenFrame) {
  std::unique_ptr<RawPeer> l_pcPeer = AnnouncedPeer();
  ASSERT_NE(l_pcPeer, nullptr);
  EXPECT_TRUE(l_pcPeer->Write(Bytes{0x10, 0x00}));
  l_pcPeer->Close();
  EXPECT_TRUE(RunEventLoopUntil([&] { return m_pcDispatcher->GetConnectionCount() == 0; }));
  ExpectDroppedAndOthersServed(1, "broken request code frame (result 3)");
}

TEST_F(DispatcherFaultTest, APeerThatVanishesInTheMiddleOfARequestIsDropped) {
  std::unique_ptr<RawPeer> l_pcPeer = AnnouncedPeer();
  ASSERT_NE(l_pcPeer, nullptr);
  EXPECT_TRUE(l_pcPeer->SendValue<int32_t>(REQUEST_CHANGE_CURRENT_PLACE_VALUES));
  EXPECT_TRUE(l_pcPeer->Write(Bytes{1, 0, 0}));  // three of the position's eight bytes
  l_pcPeer->Close();
  EXPECT_TRUE(RunEventLoopUntil([&] { return m_pcDispatcher->GetConnectionCount() == 0; }));
  EXPECT_EQ(Store().GetMarking(m_nNet), (std::vector<double>{10, 20, 30}));
  ExpectDroppedAndOthersServed(1, "request 17 broke off (result 3)");
}

TEST_F(DispatcherFaultTest, AnImpossibleCountOfPositionsIsRefusedBeforeAnythingIsSized) {
  std::unique_ptr<RawPeer> l_pcPeer = AnnouncedPeer();
  ASSERT_NE(l_pcPeer, nullptr);
  EXPECT_TRUE(l_pcPeer->SendValue<int32_t>(REQUEST_SEND_STEERED_PARAM_POSITIONS));
  EXPECT_TRUE(l_pcPeer->SendValue<uint64_t>(1ull << 40));
  EXPECT_TRUE(l_pcPeer->WaitForClose(10000));
  ExpectDroppedAndOthersServed(1, "request 27: 1099511627776 positions announced");
}

TEST_F(DispatcherFaultTest, APeerThatStallsInTheMiddleOfARequestIsDroppedAfterTheTimeout) {
  std::unique_ptr<RawPeer> l_pcPeer = AnnouncedPeer();
  ASSERT_NE(l_pcPeer, nullptr);
  EXPECT_TRUE(l_pcPeer->SendValue<int32_t>(REQUEST_CHANGE_CURRENT_PLACE_VALUES));
  EXPECT_TRUE(l_pcPeer->SendValue<uint64_t>(1));
  // The value never comes.
  EXPECT_TRUE(l_pcPeer->WaitForClose(30000));
  ExpectDroppedAndOthersServed(1, "request 17 did not complete within 1 s");
}

TEST_F(DispatcherFaultTest, ASilentPeerHoldsNoOneUpAndAnIdleClientStaysConnected) {
  // Session 1: a client that registers and then idles.
  std::unique_ptr<IdleClient> l_pcIdle = StartIdleClient();
  // Session 2: connects and never reads or writes a byte.
  std::unique_ptr<RawPeer> l_pcSilent = AcceptedPeer();
  ASSERT_NE(l_pcSilent, nullptr);
  // Session 3 is served meanwhile.
  EXPECT_EQ(ServeOneClient(), 1u);
  // The silent peer never acknowledged the version: it goes after the
  // timeout, while the idle client, idle as long, stays.
  EXPECT_TRUE(RunEventLoopUntil([&] { return m_pcDispatcher->GetConnectionCount() == 1; }, 30000));
  EXPECT_TRUE(ClosedAfterTheVersion(*l_pcSilent));
  l_pcIdle->Finish();
  EXPECT_EQ(l_pcIdle->m_nInit, 1u);
  EXPECT_EQ(l_pcIdle->m_nLater, 1u);
  EXPECT_EQ(l_pcIdle->m_adMarking, (std::vector<double>{10, 20, 30}));
  EXPECT_EQ(Errors(), Dropped(2, "the protocol version was not acknowledged within 1 s"));
}

TEST_F(DispatcherFaultTest, AHandlerThatThrowsEndsItsOwnConnectionOnly) {
  m_cHandler.m_bStopThrows = true;
  unsigned int l_nStop = 0, l_nAfter = 0;
  int l_nState = 0;
  RunClient([&](SteeringClient& c) {
    l_nStop = c.CMD_Stop();
    l_nAfter = c.ReadSimulatorState(l_nState);
  });
  // The frames went through before the handler threw; the next request
  // finds the connection closed.
  EXPECT_EQ(l_nStop, 1u);
  EXPECT_NE(l_nAfter, 1u);
  m_cHandler.m_bStopThrows = false;
  ExpectDroppedAndOthersServed(1, "request 1: an exception was thrown");
}

TEST_F(DispatcherFaultTest, AModelIndexThatNamesNoModelDropsTheConnection) {
  unsigned int l_nInit = 0;
  RunClient([&](SteeringClient& c) { l_nInit = c.Initialize(5); });
  EXPECT_EQ(l_nInit, FAILURE);
  ExpectDroppedAndOthersServed(1, "request 6: no running model at index 5");
}

TEST_F(DispatcherTest, ShutdownClosesEveryConnectionAndJoinsItsWorker) {
  // An idle registered client, a peer in the middle of a request and a
  // peer that never acknowledged the version.
  std::unique_ptr<IdleClient> l_pcIdle = StartIdleClient();
  std::unique_ptr<RawPeer> l_pcMidRequest = AnnouncedPeer();
  ASSERT_NE(l_pcMidRequest, nullptr);
  EXPECT_TRUE(l_pcMidRequest->SendValue<int32_t>(REQUEST_CHANGE_SIMULATOR_SPEED));
  std::unique_ptr<RawPeer> l_pcSilent = AcceptedPeer();
  ASSERT_NE(l_pcSilent, nullptr);
  EXPECT_EQ(m_pcDispatcher->GetConnectionCount(), 3u);

  m_pcDispatcher->Shutdown();
  EXPECT_EQ(m_pcDispatcher->GetConnectionCount(), 0u);
  EXPECT_TRUE(l_pcMidRequest->WaitForClose(10000));
  l_pcSilent->Read(4);  // the version, if it went out before the shutdown
  EXPECT_TRUE(l_pcSilent->WaitForClose(10000));
  l_pcIdle->Finish();
  EXPECT_NE(l_pcIdle->m_nLater, 1u);
  m_pcDispatcher->Shutdown();
  EXPECT_FALSE(m_pcDispatcher->Start());
  EXPECT_EQ(Errors(), std::vector<std::string>());
  EXPECT_EQ(m_cHandler.Connections(), (std::vector<unsigned int>{1, 2}));
}

// Connections at the limits of the server.

// The server's ends (in this process) of the connection whose client end
// is p_cPeer.
std::vector<int> ServerEnds(RawPeer& p_cPeer) {
  sockaddr_in l_cClient{};
  socklen_t l_nLength = sizeof(l_cClient);
  ::getsockname(p_cPeer.Fd(), reinterpret_cast<sockaddr*>(&l_cClient), &l_nLength);
  std::vector<int> l_anEnds;
  for (int l_nFd = 0; l_nFd < 4096; ++l_nFd) {
    sockaddr_in l_cPeer{};
    l_nLength = sizeof(l_cPeer);
    if (l_nFd == p_cPeer.Fd() ||
        ::getpeername(l_nFd, reinterpret_cast<sockaddr*>(&l_cPeer), &l_nLength) != 0 ||
        l_cPeer.sin_family != AF_INET)
      continue;
    if (l_cPeer.sin_port == l_cClient.sin_port && l_cPeer.sin_addr.s_addr == l_cClient.sin_addr.s_addr)
      l_anEnds.push_back(l_nFd);
  }
  return l_anEnds;
}

TEST_F(DispatcherTest, AcceptedSocketsCarryTcpNoDelay) {
  std::unique_ptr<RawPeer> l_pcPeer = AnnouncedPeer();
  ASSERT_NE(l_pcPeer, nullptr);
  const std::vector<int> l_anEnds = ServerEnds(*l_pcPeer);
  ASSERT_FALSE(l_anEnds.empty());
  for (int l_nFd : l_anEnds) {
    int l_nNoDelay = 0;
    socklen_t l_nLength = sizeof(l_nNoDelay);
    ASSERT_EQ(::getsockopt(l_nFd, IPPROTO_TCP, TCP_NODELAY, &l_nNoDelay, &l_nLength), 0);
    EXPECT_NE(l_nNoDelay, 0) << "descriptor " << l_nFd;
  }
}

TEST_F(DispatcherTest, SixtyFourClientsConnectingAtOnceAllGetTheVersionAndAnAnswer) {
  const int CLIENTS = 64;
  std::atomic<int> l_nReady{0}, l_nConnected{0}, l_nServed{0}, l_nFinished{0};
  std::atomic<bool> l_bGo{false};
  std::vector<std::thread> l_acClients;
  for (int k = 0; k < CLIENTS; ++k) {
    l_acClients.emplace_back([&] {
      SteeringClient l_cClient(wxT("127.0.0.1"), wxString::Format(wxT("%u"), m_nPort));
      ++l_nReady;
      while (!l_bGo.load()) std::this_thread::yield();
      if (l_cClient.ConnectToServer(true) == 1) {
        ++l_nConnected;
        int l_nState = -1;
        if (l_cClient.ReadSimulatorState(l_nState) == 1) ++l_nServed;
      }
      ++l_nFinished;
    });
  }
  while (l_nReady.load() < CLIENTS) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  l_bGo = true;
  EXPECT_TRUE(RunEventLoopUntil([&] { return l_nFinished.load() == CLIENTS; }, 60000));
  for (std::thread& l_cClient : l_acClients) l_cClient.join();
  EXPECT_EQ(l_nConnected.load(), CLIENTS);
  EXPECT_EQ(l_nServed.load(), CLIENTS);
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

// A connection that ends in a fault, and at once a fresh one: the fault's
// teardown must never touch the fresh connection, which may get the same
// descriptor number.
TEST_F(DispatcherTest, AFaultyClientNeverHarmsTheClientThatComesRightAfterIt) {
  const int ROUNDS = 200;
  std::atomic<int> l_nServed{0};
  std::atomic<bool> l_bDone{false};
  std::thread l_cClients([&] {
    for (int l_nRound = 0; l_nRound < ROUNDS; ++l_nRound) {
      {
        std::unique_ptr<RawPeer> l_pcFault = ConnectRaw(m_nPort);
        if (!l_pcFault) continue;
        switch (l_nRound % 3) {
          case 0:  // a request code, then gone
            l_pcFault->RecvValue<uint32_t>();
            l_pcFault->Write(Le<int32_t>(REQUEST_READ_SIMULATOR_STATE));
            break;
          case 1:  // half a code frame
            l_pcFault->RecvValue<uint32_t>();
            l_pcFault->Write(Bytes{0x08, 0x00});
            break;
          default:  // the version read, never acknowledged
            l_pcFault->Read(4);
            break;
        }
      }  // closed here
      std::unique_ptr<RawPeer> l_pcFresh = ConnectRaw(m_nPort);
      if (l_pcFresh && CompletesARequest(*l_pcFresh)) ++l_nServed;
    }
    l_bDone = true;
  });
  EXPECT_TRUE(RunEventLoopUntil([&] { return l_bDone.load(); }, 120000));
  l_cClients.join();
  EXPECT_EQ(l_nServed.load(), ROUNDS);
}

TEST_F(DispatcherTest, AConnectionBeyondTheLimitIsRefusedWithOneLineAndTheOthersAreServed) {
  m_pcDispatcher->SetMaxConnections(2);
  std::unique_ptr<IdleClient> l_pcFirst = StartIdleClient();
  std::unique_ptr<IdleClient> l_pcSecond = StartIdleClient();
  std::unique_ptr<RawPeer> l_pcThird = ConnectRaw(m_nPort);
  ASSERT_NE(l_pcThird, nullptr);
  const std::string l_sRefused =
      "Warning: Steering: a connection from 127.0.0.1 was refused: the limit of 2 connections "
      "is reached";
  EXPECT_TRUE(RunEventLoopUntil([&] { return Logged(l_sRefused); }));
  EXPECT_TRUE(ClosedUnserved(*l_pcThird));
  // A place comes free.
  l_pcFirst->Finish();
  EXPECT_EQ(l_pcFirst->m_nLater, 1u);
  EXPECT_TRUE(RunEventLoopUntil([&] { return m_pcDispatcher->GetConnectionCount() == 1; }));
  std::unique_ptr<RawPeer> l_pcFourth = AcceptedPeer();
  ASSERT_NE(l_pcFourth, nullptr);
  EXPECT_TRUE(CompletesARequest(*l_pcFourth));
  l_pcSecond->Finish();
  EXPECT_EQ(l_pcSecond->m_nLater, 1u);
  EXPECT_EQ(Errors(), std::vector<std::string>{l_sRefused});
}

TEST_F(DispatcherTest, AnUploadBeyondTheCapIsReadOffTheWireAndRefusedReadably) {
  Store().SetMaxUploadedModels(1);
  unsigned int l_nFirst = 0, l_nSecond = 0, l_nAfter = 0;
  wxString l_sRefusal;
  int l_nState = -1;
  RunClient([&](SteeringClient& c) { l_nFirst = c.Initialize(MakeModel(wxT("one"))); });
  RunClient([&](SteeringClient& c) {
    // The protocol has no refusal: the upload itself succeeds.
    l_nSecond = c.Initialize(MakeModel(wxT("two")));
    c.ReceiveErrorMessage(l_sRefusal);
    // The connection is still in step.
    l_nAfter = c.ReadSimulatorState(l_nState);
  });
  EXPECT_EQ(l_nFirst, 1u);
  EXPECT_EQ(l_nSecond, 1u);
  EXPECT_EQ(l_sRefusal, wxT("upload refused: the limit of 1 uploaded models is reached"));
  EXPECT_EQ(l_nAfter, 1u);
  EXPECT_EQ(l_nState, 0);
  EXPECT_EQ(Store().GetModelNames(), (std::vector<wxString>{wxT("net"), wxT("one")}));
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

TEST_F(DispatcherTest, AnUploadWhoseCountsItsListsDoNotBackIsRefused) {
  Model* l_pcModel = new Model(NULL, wxT("big"), 0, 0);
  l_pcModel->SetAttributeValue(wxT("PLACE_COUNT"), static_cast<unsigned long long>(1ull << 26));
  unsigned int l_nInit = 0;
  wxString l_sRefusal;
  RunClient([&](SteeringClient& c) {
    l_nInit = c.Initialize(l_pcModel);
    c.ReceiveErrorMessage(l_sRefusal);
  });
  EXPECT_EQ(l_nInit, 1u);
  EXPECT_EQ(l_sRefusal,
            wxT("upload refused: the model announces 67108864 places but carries fewer"));
  EXPECT_EQ(Store().GetModelNames(), std::vector<wxString>{wxT("net")});
}

TEST_F(DispatcherFaultTest, APeerThatTricklesInTheMiddleOfARequestIsDroppedAfterTheTimeout) {
  std::unique_ptr<RawPeer> l_pcPeer = AnnouncedPeer();
  ASSERT_NE(l_pcPeer, nullptr);
  EXPECT_TRUE(l_pcPeer->SendValue<int32_t>(REQUEST_CHANGE_CURRENT_PLACE_VALUES));
  // The position, one byte every 0.3 s: every single wait of the server
  // ends long before the socket's own timeout (1 s), the request does not.
  const Bytes l_aPosition = Le<uint64_t>(1);
  size_t l_nSent = 0;
  while (l_nSent < l_aPosition.size() && !l_pcPeer->WaitForClose(300) &&
         l_pcPeer->Write(Bytes{l_aPosition[l_nSent]}))
    ++l_nSent;
  // Dropped while the peer was still in the middle of the request.
  EXPECT_LT(l_nSent, l_aPosition.size());
  EXPECT_EQ(Store().GetMarking(m_nNet), (std::vector<double>{10, 20, 30}));
  ExpectDroppedAndOthersServed(1, "request 17 did not complete within 1 s");
}

TEST_F(DispatcherFaultTest, AnIdleLimitClosesAClientThatWaitsLonger) {
  m_pcDispatcher->SetIdleLimit(1);
  std::unique_ptr<IdleClient> l_pcIdle = StartIdleClient();
  EXPECT_TRUE(RunEventLoopUntil([&] { return m_pcDispatcher->GetConnectionCount() == 0; }, 30000));
  l_pcIdle->Finish();
  EXPECT_EQ(l_pcIdle->m_nInit, 1u);
  EXPECT_NE(l_pcIdle->m_nLater, 1u);
  EXPECT_TRUE(Logged("Notice: Steering session 1: idle for 1 s; closing the connection"));
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

TEST_F(DispatcherFaultTest, TheTimeTheHandlerTakesIsNotTheClients) {
  // Far longer than the request's timeout (1 s).
  m_cHandler.m_nSlowStateMillis = 2500;
  unsigned int l_nSlow = 0, l_nNext = 0;
  int l_nState = -1;
  RunClient([&](SteeringClient& c) {
    l_nSlow = c.ReadSimulatorState(l_nState);
    l_nNext = c.ReadSimulatorState(l_nState);
  });
  EXPECT_EQ(l_nSlow, 1u);
  EXPECT_EQ(l_nNext, 1u);
  EXPECT_EQ(Errors(), std::vector<std::string>());
}

TEST_F(DispatcherFaultTest, AListBeyondTheValueSizeLimitEndsTheConnection) {
  m_pcDispatcher->SetMaxValueSize(64);
  unsigned int l_nSent = 0;
  RunClient([&](SteeringClient& c) {
    l_nSent = c.SendSteeredParamPositions(std::vector<unsigned long long>(20, 1));
  });
  EXPECT_NE(l_nSent, 1u);
  ExpectDroppedAndOthersServed(1, "request 27: 20 positions announced");
}

// A name whose compressed text stops after 40 of its 300 bytes: the frame
// itself succeeds with zeros in place of the rest, but the application never
// sees such a name and the connection is dropped with the reason.
TEST_F(DispatcherFaultTest, ANameFromAStreamThatStopsEarlyNeverReachesTheHandler) {
  std::unique_ptr<RawPeer> l_pcPeer = AnnouncedPeer();
  ASSERT_NE(l_pcPeer, nullptr);
  Bytes l_aStream = Hex("78 01 00 28 00 d7 ff");
  for (int i = 0; i < 40; ++i) l_aStream.push_back(static_cast<uint8_t>('a' + i % 26));
  EXPECT_TRUE(l_pcPeer->SendValue<int32_t>(REQUEST_REMOVE_MODEL));
  EXPECT_TRUE(l_pcPeer->SendValue<uint64_t>(300));
  EXPECT_TRUE(l_pcPeer->Write(Le<uint64_t>(l_aStream.size())));
  EXPECT_EQ(l_pcPeer->Read(1), Bytes{0x61});
  EXPECT_TRUE(l_pcPeer->Write(l_aStream));
  EXPECT_EQ(l_pcPeer->Read(1), Bytes{0x61});
  // No answer (the 4-byte count of removed models) follows: only the end.
  EXPECT_TRUE(l_pcPeer->WaitForClose(10000));
  EXPECT_EQ(m_cHandler.Calls(), std::vector<std::string>());
  ExpectDroppedAndOthersServed(1, "request 20: a compressed value was not a clean zlib stream");
}

TEST(Dispatcher, StartNeedsAListeningServer) {
  SteeringServer l_cServer;
  SteeringHandler l_cHandler;
  SteeringDispatcher l_cDispatcher(l_cServer, l_cHandler);
  EXPECT_FALSE(l_cDispatcher.Start());
  EXPECT_EQ(l_cDispatcher.GetConnectionCount(), 0u);
  l_cDispatcher.Shutdown();
}

}  // namespace
