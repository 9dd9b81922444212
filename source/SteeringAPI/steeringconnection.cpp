// SPDX-License-Identifier: MIT
#include "steeringconnection.h"

#include <wx/log.h>
#include <wx/thread.h>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "quor/steeringdeadline.h"
#include "steeringserverprotocol.h"

namespace quor {

// The worker is a wxThread rather than a std::thread: wxWidgets keeps state
// for every thread that logs (or merely asks whether it may), and frees it
// only when one of its own threads ends. A std::thread would leave that
// state behind with every connection.
class SteeringConnection::Worker : public wxThread {
 public:
  explicit Worker(SteeringConnection& p_cConnection)
      : wxThread(wxTHREAD_JOINABLE), m_rConnection(p_cConnection) {}
  ExitCode Entry() override {
    m_rConnection.Run();
    return 0;
  }

 private:
  SteeringConnection& m_rConnection;
};

SteeringConnection::SteeringConnection(SteeringHandler& p_cHandler, unsigned int p_nId,
                                       wxSocketBase* p_pcSocket, int p_nFd,
                                       const SteeringConnectionLimits& p_cLimits, int p_nWakeUp,
                                       const std::atomic<bool>& p_bStopping, EndNote p_fEnded)
    : m_rHandler(p_cHandler),
      m_nId(p_nId),
      m_pcSocket(p_pcSocket),
      m_nFd(p_nFd),
      m_cLimits(p_cLimits),
      m_nWakeUp(p_nWakeUp),
      m_bStopping(p_bStopping),
      m_fEnded(std::move(p_fEnded)) {}

SteeringConnection::~SteeringConnection() {
  Close();
  if (m_pcWorker) m_pcWorker->Wait();
  m_pcWorker.reset();
  // The worker has ended: nothing uses the socket or the descriptor now.
  delete m_pcSocket;
  ::close(m_nFd);
}

bool SteeringConnection::Start() {
  std::unique_ptr<Worker> l_pcWorker;
  try {
    l_pcWorker.reset(new Worker(*this));
  } catch (...) {
    return false;
  }
  // wxWidgets may log a failure of its own; the caller logs one line.
  wxLogNull l_cQuiet;
  if (l_pcWorker->Create() != wxTHREAD_NO_ERROR) return false;
  if (l_pcWorker->Run() != wxTHREAD_NO_ERROR) return false;
  m_pcWorker = std::move(l_pcWorker);
  return true;
}

void SteeringConnection::Close() { ::shutdown(m_nFd, SHUT_RDWR); }

void SteeringConnection::Run() {
  try {
    SteeringServerProtocol l_cProtocol(m_rHandler, m_nId, m_pcSocket);
    l_cProtocol.SetMaxValueSize(m_cLimits.m_nMaxValueSize);
    if (Handshake(l_cProtocol)) {
      m_rHandler.OnConnect(m_nId);
      while (ServeNextRequest(l_cProtocol)) {
      }
      m_rHandler.OnDisconnect(m_nId);
    }
  } catch (...) {
    // A handler's OnConnect or OnDisconnect that throws ends the connection.
    Fail(wxT("an exception was thrown"));
  }
  Close();
  m_bEnded.store(true);
  if (m_fEnded) m_fEnded(m_nId);
}

// The version, acknowledged within one request's time.
bool SteeringConnection::Handshake(SteeringServerProtocol& p_cProtocol) {
  SteeringDeadline l_cDeadline(
      m_nFd, SteeringDeadline::Clock::now() + std::chrono::seconds(m_cLimits.m_nTimeout));
  const unsigned int l_nResult = p_cProtocol.SendVersion();
  if (l_nResult == SUCCESS) return true;
  if (l_cDeadline.Late())
    return Fail(wxString::Format(wxT("the protocol version was not acknowledged within %d s"),
                                 m_cLimits.m_nTimeout));
  return Fail(wxString::Format(wxT("the protocol version was not acknowledged (result %d)"),
                               static_cast<int>(l_nResult)));
}

bool SteeringConnection::ServeNextRequest(SteeringServerProtocol& p_cProtocol) {
  switch (WaitForRequest()) {
    case WAIT_STOPPED: return false;
    case WAIT_CLOSED: return Report(3, wxT("closed by the peer"));
    case WAIT_IDLE:
      return Report(3, wxString::Format(wxT("idle for %d s; closing the connection"),
                                        m_cLimits.m_nIdleLimit));
    case WAIT_REQUEST: break;
  }
  // The request has begun: from its first byte on it has one timeout to end.
  SteeringDeadline l_cDeadline(
      m_nFd, SteeringDeadline::Clock::now() + std::chrono::seconds(m_cLimits.m_nTimeout));
  const wxString l_sLate =
      wxString::Format(wxT(" within %d s"), m_cLimits.m_nTimeout);

  int l_nCode = 0;
  unsigned int l_nResult = p_cProtocol.ReceiveRequestCode(l_nCode);
  if (l_nResult != SUCCESS) {
    if (l_cDeadline.Late()) return Fail(wxT("a request code did not arrive") + l_sLate);
    // Not a byte of a request: the peer closed between requests.
    if (m_pcSocket->LastCount() == 0) return Report(3, wxT("closed by the peer"));
    return Fail(wxString::Format(wxT("broken request code frame (result %d)"),
                                 static_cast<int>(l_nResult)));
  }
  if (l_nCode < REQUEST_FIRST || l_nCode > REQUEST_LAST)
    return Fail(wxString::Format(wxT("unknown request code %d"), l_nCode));

  l_nResult = p_cProtocol.Answer(l_nCode, &l_cDeadline);
  // Some halves report success whatever their frames did; the socket
  // remembers the last transfer's error.
  if (l_nResult == SUCCESS && !m_pcSocket->Error() && !l_cDeadline.Expired()) return true;
  const wxString l_sRequest = wxString::Format(wxT("request %d"), l_nCode);
  if (l_cDeadline.Late()) return Fail(l_sRequest + wxT(" did not complete") + l_sLate);
  if (!p_cProtocol.Problem().empty()) return Fail(l_sRequest + wxT(": ") + p_cProtocol.Problem());
  return Fail(l_sRequest +
              wxString::Format(wxT(" broke off (result %d)"), static_cast<int>(l_nResult)));
}

// Readability of the connection or of the wake-up descriptor, for at most
// the idle limit. A peer that has closed its side with nothing left to read
// is a normal end. Readable without the end flagged is taken for a request
// without a look at the bytes (a system call less per request); the end can
// be readable a moment before it is flagged, and the request code then
// finds it (ServeNextRequest).
SteeringConnection::Wait SteeringConnection::WaitForRequest() {
  typedef std::chrono::steady_clock Clock;
  const bool l_bLimited = m_cLimits.m_nIdleLimit > 0;
  const Clock::time_point l_cEnd = Clock::now() + std::chrono::seconds(m_cLimits.m_nIdleLimit);
  pollfd l_acPoll[2] = {{m_nFd, POLLIN | POLLRDHUP, 0}, {m_nWakeUp, POLLIN, 0}};
  for (;;) {
    int l_nMillis = -1;
    if (l_bLimited) {
      const auto l_cLeft = std::chrono::duration_cast<std::chrono::milliseconds>(l_cEnd - Clock::now());
      l_nMillis = l_cLeft.count() > 0 ? static_cast<int>(l_cLeft.count()) : 0;
    }
    const int l_nReady = ::poll(l_acPoll, 2, l_nMillis);
    if (l_nReady < 0) {
      if (errno == EINTR) continue;
      return WAIT_CLOSED;
    }
    if (l_nReady == 0) return WAIT_IDLE;
    if (l_acPoll[1].revents != 0) return WAIT_STOPPED;
    const short l_nEvents = l_acPoll[0].revents;
    if ((l_nEvents & POLLIN) != 0 && (l_nEvents & (POLLRDHUP | POLLHUP | POLLERR)) == 0)
      return WAIT_REQUEST;  // most often; the end may still follow (see above)
    // Bytes may wait before the peer's end: a request sent just before a
    // close is answered (its reply then fails).
    char l_cByte = 0;
    const ssize_t l_nPeeked = ::recv(m_nFd, &l_cByte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (l_nPeeked > 0) return WAIT_REQUEST;
    if (l_nPeeked < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) continue;
    return WAIT_CLOSED;
  }
}

bool SteeringConnection::Report(unsigned long p_nLevel, const wxString& p_sText) {
  if (m_bStopping.load()) return false;
  LogText(p_nLevel, wxString::Format(wxT("Steering session %u: "), m_nId) + p_sText);
  return false;
}

bool SteeringConnection::Fail(const wxString& p_sText) {
  return Report(1, p_sText + wxT("; closing the connection"));
}

}  // namespace quor
