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
// only its own worker.
//
// Time: a client may stay idle between requests for as long as it likes
// (unless an idle limit is set). Once a request has begun (its first byte
// has arrived), it has the timeout to end: a client that stops or trickles
// in the middle of a request, or that does not acknowledge the version, is
// dropped when the timeout has passed. The time the handler's operations
// take is not counted.
//
// A connection ends when the client closes it between requests (a notice in
// the log), or with one error line ("Error: Steering session 3: unknown
// request code 99; closing the connection") on an unknown request code, a
// broken frame, a client that vanishes or runs out of time in the middle of
// a request, or a model index that names no running model. The dispatcher
// then closes the connection, tells the handler (OnDisconnect) and serves
// the others on.
//
// Limits: a peer cannot push the server past them, and the server never
// exits because of a peer. A connection beyond the connection limit is
// closed at once, before the version, with one warning line. When no worker
// thread can be started or no descriptor is free, the connection waiting is
// closed likewise with one error line, and the dispatcher accepts again
// only after a pause (0.1 s, doubling up to 1.6 s while it lasts).
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
#include <wx/timer.h>

#include <atomic>
#include <map>
#include <memory>

#include "quor/export.h"
#include "quor/steeringhandler.h"
#include "quor/steeringserver.h"

namespace quor {

class SteeringConnection;

class QUOR_API SteeringDispatcher {
 public:
  // Seconds one request or the version handshake may take.
  static constexpr int DEFAULT_TIMEOUT_SECONDS = 10;
  // Connections served at the same time.
  static constexpr unsigned int DEFAULT_MAX_CONNECTIONS = 256;
  // Seconds a connection may stay idle between requests: 0, no limit.
  static constexpr int DEFAULT_IDLE_LIMIT_SECONDS = 0;

  // Serves the clients of p_cServer with p_cHandler; neither is owned, and
  // both must outlive the dispatcher's Shutdown. REQUIRES: the main thread.
  SteeringDispatcher(SteeringServer& p_cServer, SteeringHandler& p_cHandler);
  // Shutdown.
  ~SteeringDispatcher();

  // The settings below apply to the connections accepted from then on.
  //
  // Seconds (at least 1) that one request may take from its first byte to
  // its last, and the version handshake from the accept on; also the
  // socket's own timeout for each transfer. A large transfer over a slow
  // link needs a larger value.
  void SetTimeout(int p_nSeconds);
  // Seconds a connection may wait between two requests before it is closed
  // (with a notice); 0 (the default) lets idle clients stay.
  void SetIdleLimit(int p_nSeconds);
  // The most connections served at the same time (at least 1); another
  // connection is refused.
  void SetMaxConnections(unsigned int p_nConnections);
  // The most bytes one received value may take
  // (DEFAULT_MAX_VALUE_SIZE by default); a request that
  // announces more ends its connection.
  void SetMaxValueSize(unsigned long long p_nBytes);

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
  void OnSocketEvent(wxSocketEvent& p_cEvent);
  void OnBackOffOver(wxTimerEvent& p_cEvent);
  // Accepts and starts every connection that waits, refusing those beyond
  // the limits, until none waits or the resources run out.
  void Accept();
  // One waiting connection; false when the dispatcher must back off.
  bool AcceptOne();
  // Closes the connection that waits when no descriptor is free for it.
  void RefuseWithoutDescriptor(int p_nError);
  void BackOff(const wxString& p_sRefusal);
  // Joins the worker of an ended connection and frees the connection.
  void Reap(unsigned int p_nConnection);

  SteeringServer& m_rServer;
  SteeringHandler& m_rHandler;
  int m_nTimeout;
  int m_nIdleLimit;
  unsigned int m_nMaxConnections;
  unsigned long long m_nMaxValueSize;
  bool m_bStarted;
  bool m_bStopped;
  // Set by Shutdown: connections that end from now on are not reported.
  std::atomic<bool> m_bStopping;
  // The wake-up pipe: written once by Shutdown, watched by every idle worker.
  int m_anWakeUp[2];
  // A descriptor held back for the moment none is free: given up to accept
  // and close a connection that could not be served otherwise.
  int m_nReserve;
  // The pause after a refusal for want of resources.
  bool m_bBackingOff;
  int m_nBackOffMillis;
  unsigned int m_nLastConnection;
  std::map<unsigned int, std::unique_ptr<SteeringConnection> > m_mSessions;
  // Receives the workers' "ended" notes and the end of a pause on the main
  // thread.
  wxEvtHandler m_cMainThread;
  wxTimer m_cBackOff;

  SteeringDispatcher(const SteeringDispatcher&) = delete;
  SteeringDispatcher& operator=(const SteeringDispatcher&) = delete;
};

}  // namespace quor

#endif  // QUOR_STEERINGDISPATCHER_H
