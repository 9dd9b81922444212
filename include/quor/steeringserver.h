// SPDX-License-Identifier: MIT
// The listening end of the steering protocol, held by a simulation
// application.
//
// The library opens the listening socket, routes its connection events to
// this object (a wxEvtHandler, socket event id 0) and announces itself in the
// log. Everything else is the application's: it binds a handler for
// wxEVT_SOCKET on this object, accepts the connection from
// GetServerSocket(), makes the accepted socket blocking (and, for speed,
// TCP_NODELAY: every frame waits for a one-byte acknowledgement), points the
// inherited connection at it (SetClientSocket), sends the protocol version
// (STEERING_PROTOCOL_VERSION, 4 bytes) at once, and then answers each
// REQUEST_TYPE with the inherited send/receive halves.
#ifndef QUOR_STEERINGSERVER_H
#define QUOR_STEERINGSERVER_H

#include <wx/event.h>
#include <wx/socket.h>

#include "quor/export.h"
#include "quor/steeringcmd.h"

namespace quor {

// The port a server listens on unless the application chooses another one.
constexpr unsigned int STEERING_DEFAULT_PORT = 3000;

class QUOR_API SteeringServer : public SteeringCMD, public wxEvtHandler {
 public:
  // No connection yet, port 3000, not listening. Initialises wxWidgets'
  // sockets; REQUIRES: called on the main thread.
  SteeringServer();
  // The listening socket is not closed or deleted here: it belongs to the
  // application from the first DoStartServer on (see GetServerSocket).
  // Since it delivers its events to this object, the application destroys
  // it (or at least calls Notify(false) on it) before this object goes.
  ~SteeringServer() override;

  // Starts listening on the port chosen with SetPort (3000 by default), on
  // the address chosen with SetAddress (any local address by default), with
  // address reuse and a listen backlog of the system's maximum, so that a
  // burst of clients connecting at once is queued, not dropped. The argument is not used: the
  // port is the one chosen with SetPort. Logs "Notice: The server has been
  // Started!" and the address line and returns true; returns false with
  // "Notice: The server can't be Started!" when the socket cannot listen.
  // Once a start has been tried (successfully or not), every later call logs
  // "Notice: The server is Already running" and returns true.
  bool DoStartServer(const unsigned int& p_nPort);
  // Placeholders: nothing is stopped or restarted; both return true.
  bool DoStopServer();
  bool DoRestartServer();

  // The port of the next DoStartServer; 0 asks the system for any free
  // port. A server that has tried to start once never starts again, so the
  // port matters only before the first DoStartServer.
  void SetPort(unsigned int p_nPort);
  // The local address of the next DoStartServer: a host name or a dotted
  // IPv4 address ("127.0.0.1" to accept local clients only); empty (the
  // default) means every local address. An address that cannot be resolved
  // makes the start fail ("Notice: The server can't be Started!", false)
  // without creating a socket.
  void SetAddress(const wxString& p_sAddress);
  wxString GetAddress() const { return m_sAddress; }
  // The port the server listens on after a successful start (the one the
  // system picked when 0 was chosen); before that, the chosen port.
  unsigned int GetPort();
  // The listening socket: NULL before the first DoStartServer; set (and not
  // necessarily usable, see IsOk) afterwards. The application accepts
  // connections from it, and may Destroy() it when it is done listening;
  // this object never frees it.
  wxSocketServer* GetServerSocket() { return m_pcServer; }

 protected:
  unsigned int m_nPort;
  wxSocketServer* m_pcServer;
  wxString m_sAddress;
};

}  // namespace quor

#endif  // QUOR_STEERINGSERVER_H
