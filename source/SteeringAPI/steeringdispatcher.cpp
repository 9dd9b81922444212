// SPDX-License-Identifier: MIT
#include "quor/steeringdispatcher.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "quor/steeringvaluecodec.h"
#include "steeringconnection.h"

namespace quor {

namespace {

// The first pause after a refusal for want of resources, and the longest.
constexpr int FIRST_BACK_OFF_MILLIS = 100;
constexpr int LAST_BACK_OFF_MILLIS = 1600;

// True when a descriptor has something to read (or has ended) right now.
bool Readable(int p_nFd) {
  pollfd l_cPoll = {p_nFd, POLLIN, 0};
  return ::poll(&l_cPoll, 1, 0) > 0;
}

int OpenReserve() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

// The beginning of the line that refuses a connection, and the reason for
// want of descriptors.
wxString Refused(const wxString& p_sPeer) {
  return wxT("Steering: a connection from ") + p_sPeer + wxT(" was refused: ");
}

wxString NoDescriptor(int p_nError) {
  return wxT("no file descriptor is free (") + wxString::FromUTF8(std::strerror(p_nError)) +
         wxT(")");
}

}  // namespace

SteeringDispatcher::SteeringDispatcher(SteeringServer& p_cServer, SteeringHandler& p_cHandler)
    : m_rServer(p_cServer),
      m_rHandler(p_cHandler),
      m_nTimeout(DEFAULT_TIMEOUT_SECONDS),
      m_nIdleLimit(DEFAULT_IDLE_LIMIT_SECONDS),
      m_nMaxConnections(DEFAULT_MAX_CONNECTIONS),
      m_nMaxValueSize(DEFAULT_MAX_VALUE_SIZE),
      m_bStarted(false),
      m_bStopped(false),
      m_bStopping(false),
      m_anWakeUp{-1, -1},
      m_nReserve(-1),
      m_bBackingOff(false),
      m_nBackOffMillis(FIRST_BACK_OFF_MILLIS),
      m_nLastConnection(0),
      m_cBackOff(&m_cMainThread) {
  if (::pipe2(m_anWakeUp, O_CLOEXEC) != 0) m_anWakeUp[0] = m_anWakeUp[1] = -1;
  m_nReserve = OpenReserve();
  m_cMainThread.Bind(wxEVT_TIMER, &SteeringDispatcher::OnBackOffOver, this);
}

SteeringDispatcher::~SteeringDispatcher() {
  Shutdown();
  for (int l_nFd : m_anWakeUp)
    if (l_nFd >= 0) ::close(l_nFd);
  if (m_nReserve >= 0) ::close(m_nReserve);
}

void SteeringDispatcher::SetTimeout(int p_nSeconds) { m_nTimeout = std::max(p_nSeconds, 1); }

void SteeringDispatcher::SetIdleLimit(int p_nSeconds) { m_nIdleLimit = std::max(p_nSeconds, 0); }

void SteeringDispatcher::SetMaxConnections(unsigned int p_nConnections) {
  m_nMaxConnections = std::max(p_nConnections, 1u);
}

void SteeringDispatcher::SetMaxValueSize(unsigned long long p_nBytes) {
  m_nMaxValueSize = p_nBytes;
}

bool SteeringDispatcher::Start() {
  wxSocketServer* l_pcListener = m_rServer.GetServerSocket();
  if (m_bStarted || m_bStopped || m_anWakeUp[0] < 0 || l_pcListener == NULL ||
      !l_pcListener->IsOk())
    return false;
  m_rServer.Bind(wxEVT_SOCKET, &SteeringDispatcher::OnSocketEvent, this);
  m_bStarted = true;
  // Clients that connected before the start wait in the listening queue.
  Accept();
  return true;
}

void SteeringDispatcher::Shutdown() {
  if (m_bStarted) m_rServer.Unbind(wxEVT_SOCKET, &SteeringDispatcher::OnSocketEvent, this);
  m_bStarted = false;
  m_bStopped = true;
  m_cBackOff.Stop();
  if (m_bStopping.exchange(true)) return;
  // Idle workers wake up on the pipe, the others when their socket ends.
  if (m_anWakeUp[1] >= 0) {
    const ssize_t l_nWritten = ::write(m_anWakeUp[1], "x", 1);
    (void)l_nWritten;  // a full pipe is awake already
  }
  for (auto& l_cSession : m_mSessions) l_cSession.second->Close();
  m_mSessions.clear();
}

unsigned int SteeringDispatcher::GetConnectionCount() {
  unsigned int l_nCount = 0;
  for (auto& l_cSession : m_mSessions)
    if (!l_cSession.second->Ended()) ++l_nCount;
  return l_nCount;
}

void SteeringDispatcher::OnSocketEvent(wxSocketEvent& p_cEvent) {
  if (p_cEvent.GetSocketEvent() == wxSOCKET_CONNECTION)
    Accept();
  else
    p_cEvent.Skip();
}

void SteeringDispatcher::OnBackOffOver(wxTimerEvent&) {
  m_bBackingOff = false;
  if (m_bStarted) Accept();
}

// Each round ends with an accept that finds nothing (or a pause): wxWidgets
// tells of the next connection only after an accept.
void SteeringDispatcher::Accept() {
  if (m_bBackingOff) return;
  while (m_bStarted) {
    try {
      if (!AcceptOne()) return;
    } catch (...) {
      BackOff(wxT("Steering: a connection could not be served"));
      return;
    }
  }
}

bool SteeringDispatcher::AcceptOne() {
  wxSocketServer* l_pcListener = m_rServer.GetServerSocket();
  const int l_nListener = static_cast<int>(l_pcListener->GetSocket());
  // Blocking from the start, the socket never joins the event loop: its
  // worker may use it without one.
  std::unique_ptr<wxSocketBase> l_pcSocket(
      new wxSocketBase(wxSOCKET_WAITALL | wxSOCKET_BLOCK, wxSOCKET_BASE));
  errno = 0;
  if (!l_pcListener->AcceptWith(*l_pcSocket, false)) {
    const int l_nError = errno;
    switch (l_nError) {
      case EAGAIN:  // nothing waits (a connection that comes now is told anew)
        return false;
      case ECONNABORTED:  // gone before it was accepted
      case EINTR:
        return true;
      case EMFILE:
      case ENFILE:
      case ENOBUFS:
      case ENOMEM:
        RefuseWithoutDescriptor(l_nError);
        return false;
    }
    // Anything else, with a connection still waiting, would come back at
    // once: pause.
    if (Readable(l_nListener)) BackOff(wxT("Steering: no connection can be accepted (") +
                                       wxString::FromUTF8(std::strerror(l_nError)) + wxT(")"));
    return false;
  }
  l_pcSocket->Notify(false);
  l_pcSocket->SetTimeout(m_nTimeout);
  // The descriptor's number may be one a closed connection had.
  SteeringCommunicator::SocketsRenewed();
  wxIPV4address l_cPeer;
  l_pcSocket->GetPeer(l_cPeer);
  const wxString l_sRefused = Refused(l_cPeer.IPAddress());

  if (GetConnectionCount() >= m_nMaxConnections) {
    LogText(2, l_sRefused + wxString::Format(wxT("the limit of %u connections is reached"),
                                             m_nMaxConnections));
    l_pcSocket->Close();
    m_nBackOffMillis = FIRST_BACK_OFF_MILLIS;
    return true;
  }
  // The connection's own descriptor (see SteeringConnection).
  const int l_nFd = ::fcntl(static_cast<int>(l_pcSocket->GetSocket()), F_DUPFD_CLOEXEC, 0);
  if (l_nFd < 0) {
    const int l_nError = errno;
    l_pcSocket->Close();
    BackOff(l_sRefused + NoDescriptor(l_nError));
    return false;
  }
  // Every frame waits for its one-byte acknowledgement: a reply must not
  // wait for the peer's delayed acknowledgement of the frame before it.
  int l_nNoDelay = 1;
  ::setsockopt(l_nFd, IPPROTO_TCP, TCP_NODELAY, &l_nNoDelay, sizeof(l_nNoDelay));

  const unsigned int l_nId = m_nLastConnection + 1;
  SteeringConnectionLimits l_cLimits;
  l_cLimits.m_nTimeout = m_nTimeout;
  l_cLimits.m_nIdleLimit = m_nIdleLimit;
  l_cLimits.m_nMaxValueSize = m_nMaxValueSize;
  SteeringDispatcher* l_pcDispatcher = this;
  wxEvtHandler* l_pcMainThread = &m_cMainThread;
  std::unique_ptr<SteeringConnection> l_pcConnection;
  try {
    l_pcConnection.reset(new SteeringConnection(
        m_rHandler, l_nId, l_pcSocket.get(), l_nFd, l_cLimits, m_anWakeUp[0], m_bStopping,
        [l_pcDispatcher, l_pcMainThread](unsigned int p_nConnection) {
          // The main thread frees the connection (after joining its worker).
          l_pcMainThread->CallAfter([l_pcDispatcher, p_nConnection] {
            l_pcDispatcher->Reap(p_nConnection);
          });
        }));
  } catch (...) {
    ::close(l_nFd);
    throw;
  }
  l_pcSocket.release();  // the connection's now
  if (!l_pcConnection->Start()) {
    BackOff(l_sRefused + wxT("no worker thread can be started"));
    return false;
  }
  // Lines logged on other threads reach the log target when the main thread
  // flushes them, so this one comes before any of the worker's.
  LogText(3, wxString::Format(wxT("Steering session %u: connected from "), l_nId) +
                 l_cPeer.IPAddress());
  m_nLastConnection = l_nId;
  m_mSessions[l_nId] = std::move(l_pcConnection);
  m_nBackOffMillis = FIRST_BACK_OFF_MILLIS;
  return true;
}

void SteeringDispatcher::RefuseWithoutDescriptor(int p_nError) {
  const wxString l_sWhy = NoDescriptor(p_nError);
  // The reserve makes room for the one accept that closes the connection;
  // without it the connection waits until the pause is over.
  if (m_nReserve >= 0) {
    ::close(m_nReserve);
    m_nReserve = -1;
    sockaddr_in l_cPeer{};
    socklen_t l_nLength = sizeof(l_cPeer);
    const int l_nFd = ::accept4(static_cast<int>(m_rServer.GetServerSocket()->GetSocket()),
                                reinterpret_cast<sockaddr*>(&l_cPeer), &l_nLength, SOCK_CLOEXEC);
    if (l_nFd >= 0) ::close(l_nFd);
    m_nReserve = OpenReserve();
    if (l_nFd >= 0) {
      char l_sAddress[INET_ADDRSTRLEN] = "";
      ::inet_ntop(AF_INET, &l_cPeer.sin_addr, l_sAddress, sizeof(l_sAddress));
      BackOff(Refused(wxString::FromAscii(l_sAddress)) + l_sWhy);
      return;
    }
  }
  BackOff(wxT("Steering: no connection can be accepted: ") + l_sWhy);
}

void SteeringDispatcher::BackOff(const wxString& p_sRefusal) {
  LogText(1, p_sRefusal + wxString::Format(wxT("; accepting again in %.1f s"),
                                           m_nBackOffMillis / 1000.0));
  m_bBackingOff = true;
  m_cBackOff.StartOnce(m_nBackOffMillis);
  m_nBackOffMillis = std::min(m_nBackOffMillis * 2, LAST_BACK_OFF_MILLIS);
}

void SteeringDispatcher::Reap(unsigned int p_nConnection) { m_mSessions.erase(p_nConnection); }

}  // namespace quor
