// SPDX-License-Identifier: MIT
// SteeringServer: the listening socket, its notices and its kept quirks, and
// a whole exchange between a real server (wxWidgets event loop on the main
// thread) and a real client (on a second thread).
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include <wx/utils.h>

#include <memory>
#include <thread>

#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/steeringclient.h"
#include "quor/steeringserver.h"
#include "log_capture.h"
#include "raw_peer.h"
#include "server_harness.h"

using namespace quor;
using namespace quor_test;

namespace {

// The address line a started server logs for the given port.
std::string AddressLine(unsigned int p_nPort) {
  wxIPV4address l_cHost;
  l_cHost.Hostname(wxGetHostName());
  return std::string("Notice: Server Name: ") + wxGetFullHostName().ToStdString() + "(" +
         l_cHost.IPAddress().ToStdString() + "), Service: " + std::to_string(p_nPort);
}

// True when a plain TCP connection to 127.0.0.1:port comes up.
bool CanConnect(unsigned int p_nPort) {
  int l_nFd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in l_cAddr{};
  l_cAddr.sin_family = AF_INET;
  l_cAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  l_cAddr.sin_port = htons(static_cast<unsigned short>(p_nPort));
  const bool l_bOk = ::connect(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), sizeof(l_cAddr)) == 0;
  ::close(l_nFd);
  return l_bOk;
}

// A listening socket on any address and a free port, made without address
// reuse, so that nothing else can listen on that port while it lives.
class PortBlocker {
 public:
  PortBlocker() {
    m_nFd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in l_cAddr{};
    l_cAddr.sin_family = AF_INET;
    l_cAddr.sin_addr.s_addr = htonl(INADDR_ANY);
    l_cAddr.sin_port = 0;
    socklen_t l_nLen = sizeof(l_cAddr);
    if (::bind(m_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), sizeof(l_cAddr)) == 0 &&
        ::listen(m_nFd, 4) == 0 &&
        ::getsockname(m_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), &l_nLen) == 0)
      m_nPort = ntohs(l_cAddr.sin_port);
  }
  ~PortBlocker() { ::close(m_nFd); }
  unsigned int Port() const { return m_nPort; }

 private:
  int m_nFd = -1;
  unsigned int m_nPort = 0;
};

// A server whose listening socket is freed with it.
struct ServerFixture {
  SteeringServer server;
  ~ServerFixture() { ReleaseListeningSocket(server); }
};

}  // namespace

TEST(Server, ConstructionHasPort3000NoSocketsAndPlaceholdersSucceed) {
  LogCapture l_cLog;
  ServerFixture f;
  EXPECT_EQ(f.server.GetPort(), 3000u);
  EXPECT_EQ(f.server.GetServerSocket(), nullptr);
  EXPECT_EQ(f.server.GetClientSocket(), nullptr);
  EXPECT_TRUE(f.server.DoStopServer());
  EXPECT_TRUE(f.server.DoRestartServer());
  EXPECT_EQ(f.server.GetServerSocket(), nullptr);
  EXPECT_TRUE(l_cLog.Records().empty());
}

TEST(ServerPort3000, StartIgnoresItsArgumentAndListensOnTheServersPort) {
  LogCapture l_cLog;
  ServerFixture f;
  ASSERT_TRUE(f.server.DoStartServer(5000));
  ASSERT_NE(f.server.GetServerSocket(), nullptr);
  EXPECT_TRUE(f.server.GetServerSocket()->IsOk());
  EXPECT_EQ(f.server.GetPort(), 3000u);
  EXPECT_TRUE(CanConnect(3000));
  EXPECT_EQ(l_cLog.Records(),
            (std::vector<LogLine>{{3, "Notice: The server has been Started!"},
                                  {3, AddressLine(3000)}}));
}

TEST(Server, PortZeroPicksAFreePortThatIsReadableAfterwards) {
  LogCapture l_cLog;
  ServerFixture f;
  f.server.SetPort(0);
  EXPECT_EQ(f.server.GetPort(), 0u);
  ASSERT_TRUE(f.server.DoStartServer(3000));
  const unsigned int l_nPort = f.server.GetPort();
  EXPECT_NE(l_nPort, 0u);
  EXPECT_NE(l_nPort, 3000u);
  EXPECT_TRUE(CanConnect(l_nPort));
  EXPECT_EQ(l_cLog.Records(),
            (std::vector<LogLine>{{3, "Notice: The server has been Started!"},
                                  {3, AddressLine(l_nPort)}}));
}

TEST(Server, ASecondStartLogsAlreadyRunningAndMakesNoOtherSocket) {
  LogCapture l_cLog;
  ServerFixture f;
  f.server.SetPort(0);
  ASSERT_TRUE(f.server.DoStartServer(0));
  wxSocketServer* l_pcSocket = f.server.GetServerSocket();
  const unsigned int l_nPort = f.server.GetPort();
  ASSERT_EQ(l_cLog.Records().size(), 2u);
  l_cLog.Clear();
  f.server.SetPort(0);
  EXPECT_TRUE(f.server.DoStartServer(0));
  EXPECT_EQ(f.server.GetServerSocket(), l_pcSocket);
  EXPECT_EQ(f.server.GetPort(), l_nPort);
  EXPECT_EQ(l_cLog.Records(),
            (std::vector<LogLine>{{3, "Notice: The server is Already running"}}));
}

TEST(Server, AfterAFailedStartEveryLaterStartReportsRunningAndIsTrue) {
  PortBlocker l_cBlocker;
  ASSERT_NE(l_cBlocker.Port(), 0u);
  LogCapture l_cLog;
  ServerFixture f;
  f.server.SetPort(l_cBlocker.Port());
  EXPECT_FALSE(f.server.DoStartServer(0));
  ASSERT_NE(f.server.GetServerSocket(), nullptr);
  EXPECT_FALSE(f.server.GetServerSocket()->IsOk());
  EXPECT_EQ(f.server.GetPort(), l_cBlocker.Port());
  EXPECT_TRUE(f.server.DoStartServer(0));
  EXPECT_TRUE(f.server.DoStartServer(0));
  EXPECT_EQ(l_cLog.Records(),
            (std::vector<LogLine>{{3, "Notice: The server can't be Started!"},
                                  {3, "Notice: The server is Already running"},
                                  {3, "Notice: The server is Already running"}}));
}

TEST(ServerEndToEnd, ARealClientUploadsStartsAndReadsFromARealServer) {
  LogCapture l_cLog;
  WxAssertCounter l_cAsserts;
  ServerFixture f;
  SteeringServer& l_cServer = f.server;
  l_cServer.SetPort(0);
  ASSERT_TRUE(l_cServer.DoStartServer(0));
  const unsigned int l_nPort = l_cServer.GetPort();

  // The application's connection handler: accept, make the connection
  // blocking, use it, announce the protocol version.
  wxSocketBase* l_pcAccepted = nullptr;
  l_cServer.Bind(wxEVT_SOCKET, [&](wxSocketEvent& p_cEvent) {
    if (p_cEvent.GetSocketEvent() != wxSOCKET_CONNECTION || l_pcAccepted) return;
    l_pcAccepted = l_cServer.GetServerSocket()->Accept(false);
    if (!l_pcAccepted) return;
    l_pcAccepted->Notify(false);
    l_pcAccepted->SetFlags(wxSOCKET_WAITALL | wxSOCKET_BLOCK);
    l_pcAccepted->SetTimeout(10);
    int l_nNoDelay = 1;
    l_pcAccepted->SetOption(IPPROTO_TCP, TCP_NODELAY, &l_nNoDelay, sizeof(l_nNoDelay));
    l_cServer.SetClientSocket(l_pcAccepted);
    const unsigned int l_nVersion = STEERING_PROTOCOL_VERSION;
    l_cServer.SendValue(&l_nVersion, sizeof(l_nVersion));
  });

  // The steering application, on its own thread.
  struct {
    unsigned int connect = 0, init = 0, start = 0, interval = 0, stats = 0, state = 0;
    double start_point = 0, end_point = 0, sampling = 0, model_start = 0;
    int simulator_state = 0, speed = 0;
    wxString algorithm;
  } r;
  std::thread l_cClientThread([&r, l_nPort] {
    SteeringClient l_cClient(wxT("127.0.0.1"), wxString::Format(wxT("%u"), l_nPort));
    r.connect = l_cClient.ConnectToServer(true);
    if (r.connect != 1) return;
    Model l_cModel(NULL, wxT("uploaded"), 2, 3);
    r.init = l_cClient.Initialize(&l_cModel);
    r.start = l_cClient.CMD_Start(wxT("uploaded"), 0.0, 50.0, 0.5);
    r.interval = l_cClient.ReadSimulationInterval(r.start_point, r.end_point, r.sampling);
    r.model_start = l_cModel.GetAttributeValueDouble(wxT("START_OUTPUT_POINT"));
    ModelRuntimeState l_cState;
    r.stats = l_cClient.ReadModelStatistics(l_cState);
    r.speed = l_cState.GetAttributeValueInt(wxT("SIMULATOR_SPEED"));
    r.algorithm = l_cState.GetAttributeValueString(wxT("CURRENT_SIMULATOR_ALGORITHM"));
    r.state = l_cClient.ReadSimulatorState(r.simulator_state);
  });

  const bool l_bAccepted = RunEventLoopUntil([&] { return l_pcAccepted != nullptr; });
  EXPECT_TRUE(l_bAccepted);
  // The request loop of the application, answered with the control halves
  // (a failed assertion leaves the lambda, and the client thread still
  // gets joined).
  auto l_fServe = [&] {
    auto l_fCode = [&] {
      int32_t l_nCode = 0;
      l_cServer.ReceiveValue(&l_nCode, sizeof(l_nCode));
      return l_nCode;
    };
    EXPECT_EQ(l_fCode(), REQUEST_INITIALIZE);
    const unsigned int l_nReply = 1;
    EXPECT_EQ(l_cServer.SendValue(&l_nReply, sizeof(l_nReply)), 1u);
    EXPECT_EQ(l_fCode(), REQUEST_STEERING_OPTION);
    int32_t l_nOption = 0;
    l_cServer.ReceiveValue(&l_nOption, sizeof(l_nOption));
    EXPECT_EQ(l_nOption, STEERING_NEW_MODEL);
    std::unique_ptr<Model> l_pcModel(l_cServer._ReceiveExistingModel(l_pcAccepted));
    ASSERT_NE(l_pcModel, nullptr);
    EXPECT_EQ(l_pcModel->GetModelName(), wxT("uploaded"));
    EXPECT_EQ(l_pcModel->GetPlaceCount(), 3u);
    EXPECT_EQ(l_pcModel->GetTransitionCount(), 2u);

    EXPECT_EQ(l_fCode(), REQUEST_SEND_CMD);
    int32_t l_nCmd = 0;
    l_cServer.ReceiveValue(&l_nCmd, sizeof(l_nCmd));
    EXPECT_EQ(l_nCmd, CMD_START);
    wxString l_sName;
    double a = 0, b = 0, c = 0;
    EXPECT_EQ(l_cServer.ReceiveStartCMD(l_sName, a, b, c), 1u);
    EXPECT_EQ(l_sName, wxT("uploaded"));
    EXPECT_EQ(a, 0.0);
    EXPECT_EQ(b, 50.0);
    EXPECT_EQ(c, 0.5);

    EXPECT_EQ(l_fCode(), REQUEST_READ_SIMULATION_INTERVAL);
    EXPECT_EQ(l_cServer.SendSimulationInterval(5.0, 60.0, 0.25), 1u);

    EXPECT_EQ(l_fCode(), REQUEST_READ_MODEL_STATISTICS);
    ModelRuntimeState l_cState;
    l_cState.SetAttributeValue(wxT("SIMULATOR_SPEED"), 7);
    l_cState.SetAttributeValue(wxT("CURRENT_SIMULATOR_ALGORITHM"), wxString(wxT("gillespie")));
    EXPECT_EQ(l_cServer.SendModelStatistics(l_cState), 1u);

    EXPECT_EQ(l_fCode(), REQUEST_READ_SIMULATOR_STATE);
    const int l_nState = 2;
    EXPECT_EQ(l_cServer.SendValue(&l_nState, sizeof(l_nState)), 1u);
  };
  if (l_bAccepted) l_fServe();
  l_cClientThread.join();
  if (l_pcAccepted) l_pcAccepted->Destroy();

  EXPECT_EQ(r.connect, 1u);
  EXPECT_EQ(r.init, 1u);
  EXPECT_EQ(r.start, 1u);
  EXPECT_EQ(r.interval, FAILURE);
  EXPECT_EQ(r.start_point, 5.0);
  EXPECT_EQ(r.end_point, 60.0);
  EXPECT_EQ(r.sampling, 0.25);
  EXPECT_EQ(r.model_start, 5.0);
  EXPECT_EQ(r.stats, 1u);
  EXPECT_EQ(r.speed, 7);
  EXPECT_EQ(r.algorithm, wxT("gillespie"));
  EXPECT_EQ(r.state, 1u);
  EXPECT_EQ(r.simulator_state, 2);

  const std::vector<LogLine> l_aLog = l_cLog.Records();
  ASSERT_EQ(l_aLog.size(), 2u);
  EXPECT_EQ(l_aLog[0], (LogLine{3, "Notice: The server has been Started!"}));
  EXPECT_EQ(l_aLog[1], (LogLine{3, AddressLine(l_nPort)}));
  EXPECT_EQ(l_cAsserts.Count(), 0);
}

namespace {
// The local address the server's listening socket is bound to.
std::string BoundAddress(SteeringServer& p_rServer) {
  sockaddr_in l_cAddr{};
  socklen_t l_nLen = sizeof(l_cAddr);
  ::getsockname(static_cast<int>(p_rServer.GetServerSocket()->GetSocket()),
                reinterpret_cast<sockaddr*>(&l_cAddr), &l_nLen);
  char l_sText[INET_ADDRSTRLEN] = {0};
  ::inet_ntop(AF_INET, &l_cAddr.sin_addr, l_sText, sizeof(l_sText));
  return l_sText;
}
}  // namespace

TEST(Server, ListensOnEveryLocalAddressByDefault) {
  ServerFixture f;
  f.server.SetPort(0);
  EXPECT_EQ(f.server.GetAddress(), wxT(""));
  ASSERT_TRUE(f.server.DoStartServer(0));
  EXPECT_EQ(BoundAddress(f.server), "0.0.0.0");
}

TEST(Server, ListensOnTheAddressChosenWithSetAddress) {
  ServerFixture f;
  f.server.SetPort(0);
  f.server.SetAddress(wxT("127.0.0.1"));
  ASSERT_TRUE(f.server.DoStartServer(0));
  EXPECT_EQ(BoundAddress(f.server), "127.0.0.1");
  EXPECT_TRUE(CanConnect(f.server.GetPort()));
}

TEST(Server, AnAddressThatCannotBeResolvedFailsTheStartWithoutASocket) {
  LogCapture l_cLog;
  ServerFixture f;
  f.server.SetPort(0);
  f.server.SetAddress(wxT("no.such.host.invalid"));
  EXPECT_FALSE(f.server.DoStartServer(0));
  EXPECT_EQ(f.server.GetServerSocket(), nullptr);
  EXPECT_EQ(l_cLog.Records(), (std::vector<LogLine>{{3, "Notice: The server can't be Started!"}}));
}

// A burst of clients that connect before any is accepted all complete
// their connection: the accept queue is as long as the system allows, not
// the five places wxWidgets asks for.
TEST(Server, ABurstOfClientsIsQueuedUntilAccepted) {
  ServerFixture f;
  f.server.SetPort(0);
  f.server.SetAddress(wxT("127.0.0.1"));
  ASSERT_TRUE(f.server.DoStartServer(0));
  sockaddr_in l_cAddr{};
  l_cAddr.sin_family = AF_INET;
  l_cAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  l_cAddr.sin_port = htons(static_cast<unsigned short>(f.server.GetPort()));
  std::vector<int> l_anFds;
  int l_nConnected = 0;
  for (int i = 0; i < 64; ++i) {
    const int l_nFd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    l_anFds.push_back(l_nFd);
    if (::connect(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), sizeof(l_cAddr)) == 0 ||
        errno == EINPROGRESS)
      ++l_nConnected;
  }
  // Each handshake completes in the kernel; a full queue would leave the
  // later ones waiting for a SYN retry instead.
  int l_nWritable = 0;
  for (int l_nFd : l_anFds) {
    pollfd l_cPoll = {l_nFd, POLLOUT, 0};
    int l_nError = 0;
    socklen_t l_nLen = sizeof(l_nError);
    if (::poll(&l_cPoll, 1, 500) == 1 &&
        ::getsockopt(l_nFd, SOL_SOCKET, SO_ERROR, &l_nError, &l_nLen) == 0 && l_nError == 0)
      ++l_nWritable;
  }
  for (int l_nFd : l_anFds) ::close(l_nFd);
  EXPECT_EQ(l_nConnected, 64);
  EXPECT_EQ(l_nWritable, 64);
}
