// SPDX-License-Identifier: MIT
// A ready request loop for a SteeringServer: it accepts every client that
// connects, announces the protocol version and answers each request with the
// frames that the client's operation expects, asking a SteeringHandler for
// the values.
//
// Threads: connections are accepted on the thread that runs the wxWidgets
// event loop (the main thread), each connection is then served by a worker
// thread of its own, and the handler's operations run on those workers (see
// steeringhandler.h for what to lock). A slow, idle or broken client holds
// only its own worker. A client may stay idle between requests for as long
// as it likes; a client that stops in the middle of a request is dropped
// once a frame has waited for the socket timeout.
//
// A connection ends when the client closes it between requests (a notice in
// the log), or with one error line ("Error: Steering session 3: unknown
// request code 99; closing the connection") on an unknown request code, a
// broken frame, a client that vanishes or stalls in the middle of a request,
// or a model index that names no running model. The dispatcher then closes
// the connection, tells the handler (OnDisconnect) and serves the others on.
//
// Use (main thread):
//   server.DoStartServer(0);
//   quor::SteeringDispatcher dispatcher(server, handler);
//   dispatcher.Start();
//   ... run the event loop ...
//   dispatcher.Shutdown();   // or let the destructor do it
#ifndef QUOR_STEERINGDISPATCHER_H
#define QUOR_STEERINGDISPATCHER_H

#include <wx/event.h>

#include <atomic>
#include <map>
#include <memory>

#include "quor/steeringhandler.h"
#include "quor/steeringserver.h"

namespace quor {

class SteeringDispatcher {
 public:
  // Serves the clients of p_cServer with p_cHandler; neither is owned, and
  // both must outlive the dispatcher's Shutdown. REQUIRES: the main thread.
  SteeringDispatcher(SteeringServer& p_cServer, SteeringHandler& p_cHandler);
  // Shutdown.
  ~SteeringDispatcher();

  // The socket timeout in seconds (10 by default) of the connections
  // accepted from now on: how long one frame may keep a request waiting.
  void SetTimeout(int p_nSeconds);

  // Starts accepting: binds the server's socket events. False when the
  // server is not listening (DoStartServer not done or failed), after
  // Shutdown, or when already started. REQUIRES: the main thread.
  bool Start();

  // Stops accepting (the listening socket stays the application's), closes
  // every connection, wakes its worker and waits for it. Safe to call again.
  // The handler's operations still running are waited for, so they must not
  // wait for the main thread. REQUIRES: the main thread.
  void Shutdown();

  // The connections being served (accepted and not yet ended). REQUIRES:
  // the main thread.
  unsigned int GetConnectionCount();

 private:
  class Session;

  void OnSocketEvent(wxSocketEvent& p_cEvent);
  void Accept();
  // Joins the worker of an ended connection and frees the connection.
  void Reap(unsigned int p_nConnection);

  SteeringServer& m_rServer;
  SteeringHandler& m_rHandler;
  int m_nTimeout;
  bool m_bStarted;
  bool m_bStopped;
  // Set by Shutdown: connections that end from now on are not reported.
  std::atomic<bool> m_bStopping;
  // The wake-up pipe: written once by Shutdown, watched by every idle worker.
  int m_anWakeUp[2];
  unsigned int m_nLastConnection;
  std::map<unsigned int, std::unique_ptr<Session> > m_mSessions;
  // Receives the workers' "ended" notes on the main thread.
  wxEvtHandler m_cMainThread;

  SteeringDispatcher(const SteeringDispatcher&) = delete;
  SteeringDispatcher& operator=(const SteeringDispatcher&) = delete;
};

}  // namespace quor

#endif  // QUOR_STEERINGDISPATCHER_H
