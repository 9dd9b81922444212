// SPDX-License-Identifier: MIT
// One accepted steering connection: its socket, its own descriptor, its
// worker thread, and the loop that waits for requests and has the server's
// half of the protocol answer them.
//
// The connection owns a duplicate of the socket's descriptor. Everything
// the connection does to the descriptor outside the socket's own transfers
// (waiting for a request, the request's deadline, ending the connection from
// another thread) uses the duplicate, which it closes exactly once, after
// the worker has ended and the socket is gone. The socket may close its own
// descriptor when it sees the peer gone; the number may then be reused at
// once by the next accepted connection, and nothing here ever touches it.
//
// Created, started, closed and destroyed on the main thread; the loop runs
// on the worker.
#ifndef QUOR_STEERINGCONNECTION_H
#define QUOR_STEERINGCONNECTION_H

#include <wx/socket.h>
#include <wx/string.h>

#include <atomic>
#include <functional>
#include <memory>

#include "quor/steeringhandler.h"

namespace quor {

class SteeringServerProtocol;

// What every connection of a dispatcher keeps to (see SteeringDispatcher
// for the defaults).
struct SteeringConnectionLimits {
  // Seconds one request (or the version handshake) may take, from its first
  // byte to its last. At least 1.
  int m_nTimeout;
  // Seconds a connection may wait between requests; 0: as long as it likes.
  int m_nIdleLimit;
  // The most bytes one received value may take.
  unsigned long long m_nMaxValueSize;
};

class SteeringConnection {
 public:
  // Called on the worker once the connection has ended, with its number.
  typedef std::function<void(unsigned int)> EndNote;

  // Takes the accepted socket (blocking, without notifications) and p_nFd,
  // a duplicate of its descriptor. p_nWakeUp is a descriptor that becomes
  // readable when every connection must end; p_bStopping is true from then
  // on (the connection ends without a log line). Nothing happens until
  // Start. REQUIRES: the handler, the wake-up descriptor and the flag
  // outlive this object.
  SteeringConnection(SteeringHandler& p_cHandler, unsigned int p_nId, wxSocketBase* p_pcSocket,
                     int p_nFd, const SteeringConnectionLimits& p_cLimits, int p_nWakeUp,
                     const std::atomic<bool>& p_bStopping, EndNote p_fEnded);
  // Closes the connection, waits for the worker, frees the socket and
  // closes the descriptor.
  ~SteeringConnection();

  // Starts the worker: it announces the version and serves requests. False
  // when no thread can be started (nothing has run then).
  bool Start();
  // Ends the connection under a worker that may be waiting in a transfer:
  // both directions are shut down. Any thread, any time before destruction.
  void Close();
  // True once the worker has finished with the connection.
  bool Ended() const { return m_bEnded.load(); }

 private:
  class Worker;
  enum Wait { WAIT_REQUEST, WAIT_CLOSED, WAIT_STOPPED, WAIT_IDLE };

  void Run();
  bool Handshake(SteeringServerProtocol& p_cProtocol);
  // Waits for the next request and answers it. False when the connection
  // ends.
  bool ServeNextRequest(SteeringServerProtocol& p_cProtocol);
  Wait WaitForRequest();
  // Logs a line about this connection (unless every connection is ending)
  // and returns false, the end of the loop.
  bool Report(unsigned long p_nLevel, const wxString& p_sText);
  bool Fail(const wxString& p_sText);

  SteeringHandler& m_rHandler;
  const unsigned int m_nId;
  wxSocketBase* const m_pcSocket;
  const int m_nFd;
  const SteeringConnectionLimits m_cLimits;
  const int m_nWakeUp;
  const std::atomic<bool>& m_bStopping;
  EndNote m_fEnded;
  std::atomic<bool> m_bEnded{false};
  std::unique_ptr<Worker> m_pcWorker;

  SteeringConnection(const SteeringConnection&) = delete;
  SteeringConnection& operator=(const SteeringConnection&) = delete;
};

}  // namespace quor

#endif  // QUOR_STEERINGCONNECTION_H
