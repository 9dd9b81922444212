// SPDX-License-Identifier: MIT
// Scripted peers for the steering endpoints.
//
// ScriptedServer is a raw server on 127.0.0.1 (an ephemeral port) that
// accepts one client, announces a protocol version the way a simulation
// application does, and then runs a test's script on its own thread, so that
// a real SteeringClient on the test thread talks to bytes the test controls.
// The model helpers read and write whole models in the wire layout without
// the library's transfer code. RunEventLoopUntil drives wxWidgets' event
// loop on the main thread for tests of the listening server.
#ifndef QUOR_TESTS_SERVER_HARNESS_H
#define QUOR_TESTS_SERVER_HARNESS_H

#include <wx/string.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "quor/steeringcontrol.h"
#include "raw_peer.h"

namespace quor {
class Model;
class SteeringClient;
class SteeringServer;
class SteeringVector;
}  // namespace quor

namespace quor_test {

class ScriptedServer {
 public:
  // After accepting, sends the 4-byte version (when p_bAnnounce) and reads
  // its acknowledgement, forgets the bytes recorded so far, and runs the
  // script.
  explicit ScriptedServer(std::function<void(RawPeer&)> p_fScript, uint32_t p_nVersion = 7,
                          bool p_bAnnounce = true);
  ~ScriptedServer();

  unsigned short Port() const { return m_cListener.Port(); }
  wxString Service() const;

  // Waits for the script. Afterwards Peer() is the accepted connection
  // (NULL when no client came); it stays open until this object goes.
  void Join();
  RawPeer* Peer() { return m_pcPeer.get(); }
  // What the client sent after the version's acknowledgement (empty when
  // no client came). Joins first.
  Bytes FromClient();

 private:
  RawListener m_cListener;
  std::unique_ptr<RawPeer> m_pcPeer;
  std::thread m_cThread;
};

// A SteeringClient on the test thread, connected (ConnectToServer with
// waiting) to a ScriptedServer that runs the given script.
class ClientSession {
 public:
  explicit ClientSession(std::function<void(RawPeer&)> p_fScript, uint32_t p_nVersion = 7);
  ~ClientSession();
  quor::SteeringClient& Client() { return *m_pcClient; }
  ScriptedServer& Server() { return m_cServer; }
  // The result of the connection.
  unsigned int Connected() const { return m_nConnected; }
  // What the client sent after the handshake (joins the script first).
  Bytes FromClient() { return m_cServer.FromClient(); }

 private:
  ScriptedServer m_cServer;
  std::unique_ptr<quor::SteeringClient> m_pcClient;
  unsigned int m_nConnected;
};

// The packed attribute block of a set, as its attribute-list message carries
// it (values only, in key order), built from the attributes' own packers.
Bytes PackedAttributes(quor::SteeringVector& p_cSet);

// A whole model as the sender puts it on the wire, read by the raw peer:
// the model type, the attribute block, every view's attribute block, the
// active view; the peer then sends the 4-byte acknowledgement 1.
struct WireModel {
  uint32_t type = 0;
  Bytes attributes;
  std::vector<Bytes> views;
  uint32_t activeView = 0;
};
WireModel RecvModel(RawPeer& p_cPeer);
// Sends a whole model and reads the receiver's 4-byte acknowledgement into
// *p_pnAck (when given). False when the connection failed.
bool SendModel(RawPeer& p_cPeer, const WireModel& p_cModel, uint32_t* p_pnAck = nullptr);
// The server's side of a registration that uploads a model (request 24 and
// its reply 0, request 6 with option 1, the model); returns the model.
// Forgets the recorded bytes afterwards.
WireModel ServeUpload(RawPeer& p_cPeer);

// The wire image of a model object (type, attribute block, views).
WireModel ImageOf(quor::Model& p_cModel);

// The server's side of a registration that attaches to a running model
// (request 24 and its reply 1, request 6, the option, the index), then the
// model; returns the option and the index the client sent.
std::pair<int32_t, int32_t> ServeAttach(RawPeer& p_cPeer, const WireModel& p_cModel);

// Wire pieces shared by the tests.
// n acknowledgements.
Bytes Acks(size_t n);
// A string frame of ASCII text: the 8-byte count, then the text.
Bytes StringFrame(const std::string& p_s);
// Doubles back to back.
Bytes Doubles(std::initializer_list<double> p_ad);
// Two simulator categories: {"ODE", 3, {"euler", "rk4"}} and {"", -1, {}}.
std::vector<quor::QU_SimulatorCategory> TwoCategories();
// Their wire bytes (without acknowledgements).
Bytes TwoCategoriesBytes();
// The peer sends them, frame by frame.
void SendTwoCategories(RawPeer& p_cPeer);
// The peer reads a list of categories, acknowledging each frame.
void RecvCategories(RawPeer& p_cPeer);

// Runs wxWidgets' event loop on the calling (main) thread until the
// predicate holds or the time is up; returns the predicate's last value.
bool RunEventLoopUntil(const std::function<bool()>& p_fDone, int p_nTimeoutMillis = 10000);

// Counts wxWidgets' own assertion failures for its lifetime (instead of
// printing them) and restores the previous handler afterwards.
class WxAssertCounter {
 public:
  WxAssertCounter();
  ~WxAssertCounter();
  int Count() const;
};

// Frees the listening socket that a SteeringServer leaves to its
// application (if it made one). Call before the server object goes.
void ReleaseListeningSocket(quor::SteeringServer& p_cServer);

}  // namespace quor_test

#endif  // QUOR_TESTS_SERVER_HARNESS_H
