// SPDX-License-Identifier: MIT
// One deadline per exchange: SteeringDeadline itself over loopback pairs,
// and the client's requests and handshake against a raw server that
// trickles. Every wait is proved by what the peer still had to send when
// the call returned, never by a measured time.
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "quor/steeringBase.h"
#include "quor/steeringclient.h"
#include "quor/steeringdeadline.h"
#include "log_capture.h"
#include "raw_peer.h"
#include "server_harness.h"

using namespace quor;
using namespace quor_test;

namespace {

// One raw value frame of n bytes from the peer, read through the library.
unsigned int ReadFrame(wxSocketBase* p_pcSocket, size_t p_nBytes) {
  SteeringBase l_cFrames(p_pcSocket);
  std::string l_sBuffer(p_nBytes, '\0');
  return l_cFrames.ReceiveValue(&l_sBuffer[0], static_cast<unsigned int>(p_nBytes));
}

// Sends the bytes one at a time, a pause after each, until the other end
// has closed; counts what went out.
void Trickle(RawPeer& p_cPeer, const Bytes& p_aBytes, int p_nPauseMillis,
             std::atomic<size_t>& p_nSent) {
  for (uint8_t l_nByte : p_aBytes) {
    if (!p_cPeer.Write(Bytes{l_nByte})) return;
    ++p_nSent;
    if (p_cPeer.WaitForClose(p_nPauseMillis)) return;
  }
}

TEST(Deadline, ATricklingPeerCannotHoldAReadPastTheDeadline) {
  // Each single wait (one byte every 0.1 s) is far shorter than the socket's
  // own timeout (5 s).
  LoopbackPair l_cPair(5);
  std::atomic<size_t> l_nSent{0};
  l_cPair.Run([&](RawPeer& p_cPeer) { Trickle(p_cPeer, Bytes(40, 'x'), 100, l_nSent); });
  unsigned int l_nResult = 0;
  bool l_bExpired = false;
  {
    SteeringDeadline l_cDeadline(l_cPair.Socket(), 1);
    l_nResult = ReadFrame(l_cPair.Socket(), 40);
    l_bExpired = l_cDeadline.Expired();
  }
  const size_t l_nSentByThen = l_nSent.load();
  l_cPair.Join();
  EXPECT_EQ(l_nResult, TRANSFER_SOCKET_ERROR);
  EXPECT_TRUE(l_bExpired);
  EXPECT_LT(l_nSentByThen, 40u);
}

TEST(Deadline, ADeadlineThatEndsInTimeNeverTouchesItsConnection) {
  LoopbackPair l_cKept(5), l_cCut(5);
  { SteeringDeadline l_cDeadline(l_cKept.Socket(), 1); }
  {
    // A deadline as long, begun later, runs out: the first one's time is
    // up by then as well.
    SteeringDeadline l_cDeadline(l_cCut.Socket(), 1);
    EXPECT_EQ(ReadFrame(l_cCut.Socket(), 1), TRANSFER_SOCKET_ERROR);
    EXPECT_TRUE(l_cDeadline.Expired());
  }
  l_cKept.Run([](RawPeer& p_cPeer) { p_cPeer.SendValue<uint32_t>(7); });
  uint32_t l_nValue = 0;
  SteeringBase l_cFrames(l_cKept.Socket());
  EXPECT_EQ(l_cFrames.ReceiveValue(&l_nValue, 4), 1u);
  EXPECT_EQ(l_nValue, 7u);
}

TEST(Deadline, PausedTimeDoesNotCountAndTheRestRunsAfterThePause) {
  LoopbackPair l_cPaused(5), l_cOther(5);
  SteeringDeadline l_cDeadline(l_cPaused.Socket(), 1);
  {
    SteeringDeadline::Pause l_cPause(&l_cDeadline);
    // Twice the paused deadline's time runs out elsewhere; deadlines are
    // served in the order of their ends, so the paused one would have
    // been cut first.
    SteeringDeadline l_cLonger(l_cOther.Socket(), 2);
    EXPECT_EQ(ReadFrame(l_cOther.Socket(), 1), TRANSFER_SOCKET_ERROR);
    EXPECT_TRUE(l_cLonger.Expired());
    EXPECT_FALSE(l_cDeadline.Expired());
  }
  // What was left of its time runs now.
  EXPECT_EQ(ReadFrame(l_cPaused.Socket(), 1), TRANSFER_SOCKET_ERROR);
  EXPECT_TRUE(l_cDeadline.Expired());
}

TEST(Deadline, ADeadlineInsideAnotherOnTheSameSocketKeepsToTheOuterOne) {
  LoopbackPair l_cPair(5);
  SteeringDeadline l_cOuter(l_cPair.Socket(), 1);
  SteeringDeadline l_cInner(l_cPair.Socket(), 100);
  EXPECT_EQ(ReadFrame(l_cPair.Socket(), 1), TRANSFER_SOCKET_ERROR);
  EXPECT_TRUE(l_cInner.Expired());
  EXPECT_TRUE(l_cOuter.Expired());
}

TEST(Deadline, NoTimeAndNoSocketMeanNoDeadline) {
  LoopbackPair l_cPair(5);
  SteeringDeadline l_cNone(l_cPair.Socket(), 0);
  SteeringDeadline l_cNever(l_cPair.Socket(), SteeringDeadline::NEVER);
  SteeringDeadline l_cNoSocket(static_cast<wxSocketBase*>(NULL), 1);
  EXPECT_FALSE(l_cNone.Late());
  EXPECT_FALSE(l_cNever.Late());
  EXPECT_FALSE(l_cNoSocket.Expired());
  l_cPair.Run([](RawPeer& p_cPeer) { p_cPeer.SendValue<uint32_t>(7); });
  EXPECT_EQ(ReadFrame(l_cPair.Socket(), 4), 1u);
}

// The client: each request and the handshake under one deadline.

TEST(ClientDeadline, ATricklingServerCostsARequestTheTimeoutAndTheConnection) {
  std::atomic<size_t> l_nSent{0};
  // A 50-character name, one byte every 0.2 s: some 12 seconds.
  const Bytes l_aReply = Cat({Le<uint64_t>(50), Text(std::string(50, 'n'))});
  ScriptedServer l_cServer([&](RawPeer& p_cPeer) {
    p_cPeer.Read(4);  // the request code
    p_cPeer.Ack();
    Trickle(p_cPeer, l_aReply, 200, l_nSent);
  });
  SteeringClient l_cClient(wxT("127.0.0.1"), l_cServer.Service());
  l_cClient.SetTimeout(1);
  ASSERT_EQ(l_cClient.ConnectToServer(true), 1u);
  wxString l_sFirst, l_sSecond;
  const unsigned int l_nResult = l_cClient.ReadCurrentSimulatorName(l_sFirst, l_sSecond);
  const size_t l_nSentByThen = l_nSent.load();
  // The row returns its second name's result: that frame is tried after the
  // first one was cut, on a connection that is no longer connected.
  EXPECT_EQ(l_nResult, TRANSFER_NOT_CONNECTED);
  EXPECT_LT(l_nSentByThen, l_aReply.size());
  // The connection is closed: the next request fails at once.
  EXPECT_FALSE(l_cClient.IsConnected());
  wxString l_sMessage;
  EXPECT_EQ(l_cClient.ReceiveErrorMessage(l_sMessage), TRANSFER_NOT_CONNECTED);
  l_cServer.Join();
}

TEST(ClientDeadline, ARegistrationHasOneDeadline) {
  std::atomic<size_t> l_nSent{0};
  ScriptedServer l_cServer([&](RawPeer& p_cPeer) {
    p_cPeer.Read(4);  // request 24
    p_cPeer.Ack();
    Trickle(p_cPeer, Le<uint32_t>(1), 1000, l_nSent);  // its reply, slowly
  });
  SteeringClient l_cClient(wxT("127.0.0.1"), l_cServer.Service());
  l_cClient.SetTimeout(1);
  ASSERT_EQ(l_cClient.ConnectToServer(true), 1u);
  const unsigned int l_nResult = l_cClient.Initialize(0);
  const size_t l_nSentByThen = l_nSent.load();
  EXPECT_EQ(l_nResult, TRANSFER_SOCKET_ERROR);
  EXPECT_LT(l_nSentByThen, 4u);
  EXPECT_FALSE(l_cClient.IsConnected());
  l_cServer.Join();
}

TEST(ClientDeadline, AServerThatTricklesItsVersionIsRefusedAsVersionZero) {
  std::atomic<size_t> l_nSent{0};
  ScriptedServer l_cServer(
      [&](RawPeer& p_cPeer) { Trickle(p_cPeer, Le<uint32_t>(7), 1000, l_nSent); }, 7, false);
  LogCapture l_cLog;
  SteeringClient l_cClient(wxT("127.0.0.1"), l_cServer.Service());
  l_cClient.SetTimeout(1);
  const unsigned int l_nResult = l_cClient.ConnectToServer(true);
  const size_t l_nSentByThen = l_nSent.load();
  EXPECT_EQ(l_nResult, VERSION_MISMATCH);
  EXPECT_LT(l_nSentByThen, 4u);
  EXPECT_FALSE(l_cClient.IsConnected());
  EXPECT_EQ(l_cLog.Texts(),
            std::vector<std::string>{
                "Error: SteeringClient: The server and client communication versions are not "
                "the same.The server version is 0. While the client Version is 7"});
  l_cServer.Join();
}

TEST(ClientDeadline, ARequestThatEndsInTimeKeepsTheConnection) {
  ScriptedServer l_cServer([](RawPeer& p_cPeer) {
    for (int i = 0; i < 2 && !p_cPeer.Failed(); ++i) {
      p_cPeer.Read(4);
      p_cPeer.Ack();
      p_cPeer.SendValue<int32_t>(4 + i);
    }
  });
  SteeringClient l_cClient(wxT("127.0.0.1"), l_cServer.Service());
  l_cClient.SetTimeout(1);
  ASSERT_EQ(l_cClient.ConnectToServer(true), 1u);
  int l_nFirst = 0, l_nSecond = 0;
  EXPECT_EQ(l_cClient.ReadSimulatorState(l_nFirst), 1u);
  EXPECT_EQ(l_cClient.ReadSimulatorState(l_nSecond), 1u);
  EXPECT_EQ(l_nFirst, 4);
  EXPECT_EQ(l_nSecond, 5);
  EXPECT_TRUE(l_cClient.IsConnected());
  l_cServer.Join();
}

}  // namespace
