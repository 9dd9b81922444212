// SPDX-License-Identifier: MIT
// SteeringClient: construction, timeout, connection with the version check,
// disconnection and registration (requests 24 and 6), against a raw server.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "quor/coloredmodel.h"
#include "quor/model.h"
#include "quor/steeringclient.h"
#include "connect_peer.h"
#include "log_capture.h"
#include "raw_peer.h"
#include "server_harness.h"

using namespace quor;
using namespace quor_test;

namespace {

// Opens the client's protected state to the tests.
class ClientProbe : public SteeringClient {
 public:
  using SteeringClient::SteeringClient;
  int Timeout() const { return m_nTimeout; }
  wxString Host() const { return m_sHost; }
  wxString Service() const { return m_sService; }
  bool Locked() const { return m_bInitializeLocked; }
  void Lock() { m_bInitializeLocked = true; }
};

// Takes the client's socket away for its lifetime and gives it back.
class SocketTaken {
 public:
  explicit SocketTaken(SteeringClient& p_cClient)
      : m_cClient(p_cClient), m_pcSocket(p_cClient.GetClientSocket()) {
    m_cClient.SetClientSocket(NULL);
  }
  ~SocketTaken() { m_cClient.SetClientSocket(m_pcSocket); }

 private:
  SteeringClient& m_cClient;
  wxSocketBase* m_pcSocket;
};

// The acknowledgements a receiver sends for one whole model without views
// and then its 4-byte acknowledgement 1.
Bytes ModelAcks(const WireModel& p_cModel) {
  const size_t l_nBlockAcks = p_cModel.attributes.size() > 100 ? 2 : 1;
  return Cat({Acks(3 + l_nBlockAcks + 1), Le<uint32_t>(1)});
}

std::string MismatchLine(const std::string& p_sVersion) {
  return "Error: SteeringClient: The server and client communication versions are not the "
         "same.The server version is " + p_sVersion + ". While the client Version is 7";
}

// A port on which nothing listens.
wxString ClosedService() {
  unsigned short l_nPort;
  {
    RawListener l_cListener;
    l_nPort = l_cListener.Port();
  }
  return wxString::Format(wxT("%u"), l_nPort);
}

void IgnoreSignal(int) {}

}  // namespace

TEST(ClientConstruction, SocketIsWaitAllBlockingWithTenSecondsAndNoModel) {
  ClientProbe l_cClient(wxT("somehost"), wxT("3000"));
  ASSERT_NE(l_cClient.GetClientSocket(), nullptr);
  EXPECT_EQ(static_cast<int>(l_cClient.GetClientSocket()->GetFlags()), 28);
  EXPECT_EQ(l_cClient.GetClientSocket()->GetTimeout(), 10);
  EXPECT_EQ(l_cClient.Timeout(), 10);
  EXPECT_EQ(l_cClient.Host(), wxT("somehost"));
  EXPECT_EQ(l_cClient.Service(), wxT("3000"));
  EXPECT_FALSE(l_cClient.Locked());
  EXPECT_EQ(l_cClient.GetModel(), nullptr);
  EXPECT_FALSE(l_cClient.IsConnected());
}

TEST(ClientConstruction, SetTimeoutChangesTheMemberAndTheSocket) {
  ScriptedServer l_cServer([](RawPeer&) {});
  ClientProbe l_cClient(wxT("127.0.0.1"), l_cServer.Service());
  l_cClient.SetTimeout(30);
  EXPECT_EQ(l_cClient.Timeout(), 30);
  EXPECT_EQ(l_cClient.GetClientSocket()->GetTimeout(), 30);
  // The next connection without waiting waits (up to those 30 seconds) for
  // the connection to come up.
  EXPECT_EQ(l_cClient.ConnectToServer(false), 1u);
  EXPECT_TRUE(l_cClient.IsConnected());
}

TEST(ClientConstruction, WithoutASocketNothingIsTouchedAndNothingCrashes) {
  ClientProbe l_cClient(wxT("h"), wxT("1"));
  ReportCapture l_cReports;
  {
    SocketTaken l_cTaken(l_cClient);
    // The host/service form reports and gives CONNECTION_NOT_CONNECTED,
    // leaving host and service as they were.
    EXPECT_EQ(l_cClient.ConnectToServer(wxT("127.0.0.1"), wxT("2"), true), 0u);
    EXPECT_EQ(l_cClient.Host(), wxT("h"));
    EXPECT_EQ(l_cClient.Service(), wxT("1"));
    // The other operations refuse with FAILURE; the timeout is still kept.
    EXPECT_EQ(l_cClient.ConnectToServer(true), FAILURE);
    EXPECT_EQ(l_cClient.DisConnectFromServer(), FAILURE);
    l_cClient.SetTimeout(3);
    EXPECT_EQ(l_cClient.Timeout(), 3);
    EXPECT_EQ(l_cClient.CMD_Pause(), FAILURE);
  }
  const std::vector<std::string> l_asReports = l_cReports.Reports();
  ASSERT_FALSE(l_asReports.empty());
  EXPECT_NE(l_asReports[0].find("GetClientSocket()"), std::string::npos);
  EXPECT_NE(l_asReports[0].find("return CONNECTION_NOT_CONNECTED"), std::string::npos);
  // The socket is back and untouched by the timeout set meanwhile.
  EXPECT_EQ(l_cClient.GetClientSocket()->GetTimeout(), 10);
}

TEST(ClientConnect, VersionSevenGivesOneAndAnOpenSocket) {
  LogCapture l_cLog;
  ClientSession l_cSession([](RawPeer&) {});
  EXPECT_EQ(l_cSession.Connected(), 1u);
  EXPECT_TRUE(l_cSession.Client().IsConnected());
  // Small frames leave at once (no Nagle delay behind acknowledgements).
  int l_nNoDelay = 0;
  int l_nSize = sizeof(l_nNoDelay);
  ASSERT_TRUE(l_cSession.Client().GetClientSocket()->GetOption(IPPROTO_TCP, TCP_NODELAY,
                                                                &l_nNoDelay, &l_nSize));
  EXPECT_NE(l_nNoDelay, 0);
  l_cSession.Server().Join();
  // The only byte the client sent is the version's acknowledgement.
  ASSERT_NE(l_cSession.Server().Peer(), nullptr);
  EXPECT_TRUE(l_cSession.FromClient().empty());
  EXPECT_FALSE(l_cSession.Server().Peer()->WaitForClose(0));
  EXPECT_TRUE(l_cLog.Records().empty());
}

TEST(ClientConnect, AnotherVersionGivesMinusTwoOneLogLineAndAClosedSocket) {
  for (uint32_t l_nVersion : {6u, 8u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(l_nVersion);
    LogCapture l_cLog;
    ClientSession l_cSession([](RawPeer&) {}, l_nVersion);
    EXPECT_EQ(l_cSession.Connected(), 0xFFFFFFFEu);
    EXPECT_EQ(l_cSession.Connected(), VERSION_MISMATCH);
    EXPECT_FALSE(l_cSession.Client().IsConnected());
    l_cSession.Server().Join();
    EXPECT_TRUE(l_cSession.Server().Peer()->WaitForClose(5000));
    const std::vector<LogLine> l_aLog = l_cLog.Records();
    ASSERT_EQ(l_aLog.size(), 1u);
    EXPECT_EQ(l_aLog[0].level, 1u);
    EXPECT_EQ(l_aLog[0].text, MismatchLine(std::to_string(l_nVersion)));
  }
}

TEST(ClientConnect, VersionZeroIsAMismatchToo) {
  LogCapture l_cLog;
  ClientSession l_cSession([](RawPeer&) {}, 0);
  EXPECT_EQ(l_cSession.Connected(), VERSION_MISMATCH);
  ASSERT_EQ(l_cLog.Texts().size(), 1u);
  EXPECT_EQ(l_cLog.Texts()[0], MismatchLine("0"));
}

TEST(ClientConnect, AServerThatClosesBeforeItsVersionIsRefusedAsVersionZero) {
  LogCapture l_cLog;
  ScriptedServer l_cServer([](RawPeer& p) { p.Close(); }, 7, /*announce=*/false);
  SteeringClient l_cClient(wxT("127.0.0.1"), l_cServer.Service());
  EXPECT_EQ(l_cClient.ConnectToServer(true), VERSION_MISMATCH);
  EXPECT_FALSE(l_cClient.IsConnected());
  ASSERT_EQ(l_cLog.Texts().size(), 1u);
  EXPECT_EQ(l_cLog.Texts()[0], MismatchLine("0"));
}

TEST(ClientConnect, NoServerGivesFailureAndNoLog) {
  LogCapture l_cLog;
  WxAssertCounter l_cAsserts;
  for (bool l_bWait : {true, false}) {
    SteeringClient l_cClient(wxT("127.0.0.1"), ClosedService());
    EXPECT_EQ(l_cClient.ConnectToServer(l_bWait), FAILURE);
    EXPECT_FALSE(l_cClient.IsConnected());
  }
  EXPECT_TRUE(l_cLog.Records().empty());
  // A connection refused at once is not waited for.
  EXPECT_EQ(l_cAsserts.Count(), 0);
}

// A signal that interrupts the wait for the connection (a program's timer,
// a child process that ends) does not fail it: the kernel goes on
// connecting, and so does the client.
TEST(ClientConnect, ASignalWhileTheConnectionIsUnderWayDoesNotFailIt) {
  struct sigaction l_cAction, l_cOld;
  std::memset(&l_cAction, 0, sizeof(l_cAction));
  l_cAction.sa_handler = IgnoreSignal;
  sigemptyset(&l_cAction.sa_mask);
  l_cAction.sa_flags = 0;  // no SA_RESTART: the signal interrupts a waiting call
  ASSERT_EQ(::sigaction(SIGUSR1, &l_cAction, &l_cOld), 0);
  for (bool l_bWait : {true, false}) {
    SCOPED_TRACE(l_bWait);
    // A full accept queue: the kernel drops the client's SYN, so its
    // connection stays under way until the SYN is sent again (after about a
    // second) into a queue that has room.
    RawListener l_cListener(0);
    std::unique_ptr<RawPeer> l_pcFiller = ConnectRaw(l_cListener.Port());
    ASSERT_NE(l_pcFiller, nullptr);
    const pthread_t l_nClientThread = ::pthread_self();
    Bytes l_aFromClient;
    std::thread l_cServer([&] {
      // Signals while the client waits for its connection.
      for (int i = 0; i < 4; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ::pthread_kill(l_nClientThread, SIGUSR1);
      }
      l_cListener.Accept();  // the filler: room in the queue
      std::unique_ptr<RawPeer> l_pcPeer = l_cListener.Accept();
      if (!l_pcPeer) return;
      l_pcPeer->SendValue<uint32_t>(STEERING_PROTOCOL_VERSION);
      l_pcPeer->WaitForClose(10000);
      l_aFromClient = l_pcPeer->Received();
    });
    {
      SteeringClient l_cClient(wxT("127.0.0.1"), wxString::Format(wxT("%u"), l_cListener.Port()));
      EXPECT_EQ(l_cClient.ConnectToServer(l_bWait), 1u);
      EXPECT_TRUE(l_cClient.IsConnected());
      l_cClient.DisConnectFromServer();
    }
    l_cServer.join();
    // The version arrived and was acknowledged.
    EXPECT_EQ(l_aFromClient, Bytes{0x61});
  }
  ::sigaction(SIGUSR1, &l_cOld, nullptr);
}

TEST(ClientConnect, HostAndServiceFormStoresBothAndConnects) {
  ScriptedServer l_cServer([](RawPeer&) {});
  ClientProbe l_cClient(wxT("nowhere"), wxT("1"));
  EXPECT_EQ(l_cClient.ConnectToServer(wxT("127.0.0.1"), l_cServer.Service(), true), 1u);
  EXPECT_EQ(l_cClient.Host(), wxT("127.0.0.1"));
  EXPECT_EQ(l_cClient.Service(), l_cServer.Service());
  EXPECT_TRUE(l_cClient.IsConnected());
}

TEST(ClientConnect, DisconnectClosesTheConnectionAndKeepsTheSocketForAReconnect) {
  ClientSession l_cSession([](RawPeer&) {});
  ASSERT_EQ(l_cSession.Connected(), 1u);
  wxSocketBase* l_pcSocket = l_cSession.Client().GetClientSocket();
  EXPECT_EQ(l_cSession.Client().DisConnectFromServer(), 1u);
  EXPECT_FALSE(l_cSession.Client().IsConnected());
  l_cSession.Server().Join();
  EXPECT_TRUE(l_cSession.Server().Peer()->WaitForClose(5000));
  EXPECT_EQ(l_cSession.Client().GetClientSocket(), l_pcSocket);

  ScriptedServer l_cSecond([](RawPeer&) {});
  EXPECT_EQ(l_cSession.Client().ConnectToServer(wxT("127.0.0.1"), l_cSecond.Service(), true), 1u);
  EXPECT_EQ(l_cSession.Client().GetClientSocket(), l_pcSocket);
}

// Registration.

TEST(ClientRegistration, Code24And6UploadSendsOptionOneThenTheModel) {
  Model l_cModel(NULL, wxT("mine"), 2, 3);
  const WireModel l_cExpected = ImageOf(l_cModel);
  WireModel l_cGot;
  ClientSession l_cSession([&](RawPeer& p) {
    EXPECT_EQ(p.RecvValue<int32_t>(), 24);
    p.SendValue<uint32_t>(0x5A5A);  // any reply: its value is not examined
    EXPECT_EQ(p.RecvValue<int32_t>(), 6);
    EXPECT_EQ(p.RecvValue<int32_t>(), 1);
    l_cGot = RecvModel(p);
  });
  EXPECT_EQ(l_cSession.Client().Initialize(&l_cModel), 1u);
  const Bytes l_aFromClient = l_cSession.FromClient();
  // Code 24, the reply's acknowledgement, code 6, option 1, the model.
  const Bytes l_aHead = Cat({Le<int32_t>(24), Acks(1), Le<int32_t>(6), Le<int32_t>(1),
                             Le<uint32_t>(0), Le<uint64_t>(l_cExpected.attributes.size())});
  ASSERT_GE(l_aFromClient.size(), l_aHead.size());
  EXPECT_EQ(ToHex(Bytes(l_aFromClient.begin(), l_aFromClient.begin() + l_aHead.size())),
            ToHex(l_aHead));
  EXPECT_EQ(l_cGot.type, 0u);
  EXPECT_EQ(ToHex(l_cGot.attributes), ToHex(l_cExpected.attributes));
  EXPECT_TRUE(l_cGot.views.empty());
  EXPECT_EQ(l_cGot.activeView, 0u);
  EXPECT_EQ(l_cSession.Client().GetModel(), &l_cModel);
  EXPECT_EQ(l_cModel.GetClientSocket(), l_cSession.Client().GetClientSocket());
}

TEST(ClientRegistration, Code24And6AttachSendsOptionTwoAndIndexAndBuildsAColoredModel) {
  ColoredModel l_cServerModel(NULL, wxT("running"), 4, 3, 2, 1);
  const WireModel l_cImage = ImageOf(l_cServerModel);
  std::pair<int32_t, int32_t> l_cOptionIndex;
  ClientSession l_cSession([&](RawPeer& p) { l_cOptionIndex = ServeAttach(p, l_cImage); });
  EXPECT_EQ(l_cSession.Client().Initialize(2), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()),
            ToHex(Cat({Le<int32_t>(24), Acks(1), Le<int32_t>(6), Le<int32_t>(2), Le<int32_t>(2),
                       ModelAcks(l_cImage)})));
  EXPECT_EQ(l_cOptionIndex, std::make_pair(2, 2));
  std::unique_ptr<Model> l_pcModel(l_cSession.Client().GetModel());
  ASSERT_NE(l_pcModel, nullptr);
  ColoredModel* l_pcColored = dynamic_cast<ColoredModel*>(l_pcModel.get());
  ASSERT_NE(l_pcColored, nullptr);
  EXPECT_EQ(l_pcColored->GetModelName(), wxT("running"));
  EXPECT_EQ(l_pcColored->GetPlaceCount(), 3u);
  EXPECT_EQ(l_pcColored->GetColoredPlaceCount(), 2u);
  EXPECT_EQ(l_pcColored->GetClientSocket(), l_cSession.Client().GetClientSocket());
}

TEST(ClientRegistration, AnyOptionOtherThanOneAttachesWithItsIndex) {
  Model l_cServerModel(NULL, wxT("plain"), 1, 1);
  ClientSession l_cSession([&](RawPeer& p) { ServeAttach(p, ImageOf(l_cServerModel)); });
  Model l_cIgnored(NULL, wxT("ignored"), 0, 0);
  EXPECT_EQ(l_cSession.Client().Initialize(static_cast<STEERING_OPTION>(3), -7, &l_cIgnored), 1u);
  const Bytes l_aFromClient = l_cSession.FromClient();
  EXPECT_EQ(ToHex(Bytes(l_aFromClient.begin(), l_aFromClient.begin() + 17)),
            ToHex(Cat({Le<int32_t>(24), Acks(1), Le<int32_t>(6), Le<int32_t>(3),
                       Le<int32_t>(-7)})));
  std::unique_ptr<Model> l_pcModel(l_cSession.Client().GetModel());
  ASSERT_NE(l_pcModel, nullptr);
  EXPECT_NE(l_pcModel.get(), &l_cIgnored);
  EXPECT_EQ(dynamic_cast<ColoredModel*>(l_pcModel.get()), nullptr);
  EXPECT_EQ(l_pcModel->GetModelName(), wxT("plain"));
}

TEST(ClientRegistration, WhileLockedItRefusesAndSendsNothing) {
  ScriptedServer l_cServer([](RawPeer& p) { p.WaitForClose(5000); });
  ClientProbe l_cClient(wxT("127.0.0.1"), l_cServer.Service());
  ASSERT_EQ(l_cClient.ConnectToServer(true), 1u);
  l_cClient.Lock();
  Model l_cModel(NULL, wxT("m"), 0, 0);
  EXPECT_EQ(l_cClient.Initialize(&l_cModel), FAILURE);
  EXPECT_EQ(l_cClient.Initialize(1), FAILURE);
  EXPECT_EQ(l_cClient.GetModel(), nullptr);
  l_cClient.DisConnectFromServer();
  EXPECT_TRUE(l_cServer.FromClient().empty());
}

TEST(ClientRegistration, AFailedCode24OrReplyReturnsThatFramesCode) {
  // Not connected: the code frame gives 2 and nothing else happens.
  {
    ClientSession l_cSession([](RawPeer&) {});
    l_cSession.Client().DisConnectFromServer();
    EXPECT_EQ(l_cSession.Client().Initialize(1), 2u);
    EXPECT_TRUE(l_cSession.FromClient().empty());
  }
  // The server takes the code and goes away without a reply: the reply's
  // read fails with a socket error (3).
  {
    ClientSession l_cSession([](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.Close();
    });
    Model l_cModel(NULL, wxT("m"), 0, 0);
    EXPECT_EQ(l_cSession.Client().Initialize(&l_cModel), 3u);
    EXPECT_EQ(l_cSession.Client().GetModel(), nullptr);
  }
}

TEST(ClientRegistration, UploadingNoModelIsFailureAfterTheOption) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendValue<uint32_t>(1);
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
    p.WaitForClose(5000);
  });
  ReportCapture l_cReports;
  EXPECT_EQ(l_cSession.Client().Initialize(static_cast<Model*>(NULL)), FAILURE);
  EXPECT_EQ(l_cSession.Client().GetModel(), nullptr);
  ASSERT_EQ(l_cReports.Reports().size(), 1u);
  EXPECT_NE(l_cReports.Reports()[0].find("p_pcModel"), std::string::npos);
  l_cSession.Client().DisConnectFromServer();
  EXPECT_EQ(ToHex(l_cSession.FromClient()),
            ToHex(Cat({Le<int32_t>(24), Acks(1), Le<int32_t>(6), Le<int32_t>(1)})));
}

TEST(ClientRegistration, AFailedIndexKeepsTheModelAndAFailedModelLeavesNone) {
  Model l_cMine(NULL, wxT("mine"), 1, 1);
  ClientSession l_cSession([](RawPeer& p) {
    ServeUpload(p);
    // Second registration: the index never gets acknowledged.
    p.RecvValue<int32_t>();
    p.SendValue<uint32_t>(1);
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
    p.Close();
  });
  ASSERT_EQ(l_cSession.Client().Initialize(&l_cMine), 1u);
  EXPECT_EQ(l_cSession.Client().Initialize(5), 3u);
  EXPECT_EQ(l_cSession.Client().GetModel(), &l_cMine);

  ReportCapture l_cReports;
  ClientSession l_cOther([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendValue<uint32_t>(1);
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
    p.SendValue<uint32_t>(0);  // the model type, then nothing
    p.Close();
  });
  EXPECT_EQ(l_cOther.Client().Initialize(0), FAILURE);
  EXPECT_EQ(l_cOther.Client().GetModel(), nullptr);
  bool l_bReported = false;
  for (const std::string& l_s : l_cReports.Reports())
    l_bReported |= l_s.find("m_pcModel") != std::string::npos;
  EXPECT_TRUE(l_bReported);
}

TEST(ClientRegistration, ALaterInitializeFreesAReceivedModelButNotTheCallersModel) {
  // Received, received, the caller's, received: the client frees the two
  // received models it replaced; the caller's model is left alone (it lives
  // on this stack); the last received model is the caller's to free. The
  // leak checker of the sanitized build watches the frees.
  Model l_cServerModel(NULL, wxT("server"), 1, 1);
  const WireModel l_cImage = ImageOf(l_cServerModel);
  Model l_cMine(NULL, wxT("mine"), 1, 1);
  ClientSession l_cSession([&](RawPeer& p) {
    ServeAttach(p, l_cImage);
    ServeAttach(p, l_cImage);
    ServeUpload(p);
    ServeAttach(p, l_cImage);
  });
  SteeringClient& l_cClient = l_cSession.Client();
  ASSERT_EQ(l_cClient.Initialize(0), 1u);
  ASSERT_EQ(l_cClient.Initialize(0), 1u);
  EXPECT_NE(l_cClient.GetModel(), nullptr);
  ASSERT_EQ(l_cClient.Initialize(&l_cMine), 1u);
  EXPECT_EQ(l_cClient.GetModel(), &l_cMine);
  ASSERT_EQ(l_cClient.Initialize(0), 1u);
  std::unique_ptr<Model> l_pcLast(l_cClient.GetModel());
  ASSERT_NE(l_pcLast, nullptr);
  EXPECT_NE(l_pcLast.get(), &l_cMine);
  EXPECT_EQ(l_cMine.GetModelName(), wxT("mine"));
}

TEST(ClientRegistration, TheClientDoesNotFreeItsModelWhenDestroyed) {
  Model l_cServerModel(NULL, wxT("server"), 1, 1);
  Model* l_pcModel = nullptr;
  {
    ClientSession l_cSession([&](RawPeer& p) { ServeAttach(p, ImageOf(l_cServerModel)); });
    ASSERT_EQ(l_cSession.Client().Initialize(0), 1u);
    l_pcModel = l_cSession.Client().GetModel();
  }
  // Still alive after the client went: the caller frees it.
  ASSERT_NE(l_pcModel, nullptr);
  EXPECT_EQ(l_pcModel->GetModelName(), wxT("server"));
  delete l_pcModel;
}
