// SPDX-License-Identifier: MIT
#include "quor/steeringserver.h"

#include <wx/utils.h>

#include <sys/socket.h>

#include <fstream>

namespace quor {

namespace {
// The longest accept queue the system allows (net.core.somaxconn), at
// least SOMAXCONN; the kernel cuts a longer request to its maximum.
int ListenBacklog() {
  int l_nBacklog = SOMAXCONN;
  std::ifstream l_cLimit("/proc/sys/net/core/somaxconn");
  int l_nSystem = 0;
  if (l_cLimit >> l_nSystem && l_nSystem > l_nBacklog) l_nBacklog = l_nSystem;
  return l_nBacklog;
}
}  // namespace

SteeringServer::SteeringServer()
    : SteeringCMD(NULL), wxEvtHandler(), m_nPort(STEERING_DEFAULT_PORT), m_pcServer(NULL) {
  wxSocketBase::Initialize();
}

// The listening socket is the application's to close and free.
SteeringServer::~SteeringServer() {}

bool SteeringServer::DoStartServer(const unsigned int& /* port: m_nPort is used */) {
  // A server tries to start once: after a failed start too, the socket stays
  // and later calls end here.
  if (m_pcServer != NULL) {
    LOG(3, wxT("The server is Already running"));
    return true;
  }

  wxIPV4address l_cAddress;
  if (!m_sAddress.empty() && !l_cAddress.Hostname(m_sAddress)) {
    LOG(3, wxT("The server can't be Started!"));
    return false;
  }
  l_cAddress.Service(static_cast<unsigned short>(m_nPort));
  TRY_ALLOC(m_pcServer = new wxSocketServer(l_cAddress, wxSOCKET_REUSEADDR), return false);
  if (!m_pcServer->IsOk()) {
    LOG(3, wxT("The server can't be Started!"));
    return false;
  }
  // wxWidgets listens with a short queue; clients that connect in a burst
  // would be dropped before they are accepted. Listening again on the same
  // socket only changes the length of its queue.
  ::listen(static_cast<int>(m_pcServer->GetSocket()), ListenBacklog());

  m_pcServer->SetEventHandler(*this, 0);
  m_pcServer->SetNotify(wxSOCKET_CONNECTION_FLAG);
  m_pcServer->Notify(true);
  LOG(3, wxT("The server has been Started!"));

  wxIPV4address l_cHost;
  l_cHost.Hostname(wxGetHostName());
  const wxString l_sHostAddress = l_cHost.IPAddress();
  m_pcServer->GetLocal(l_cHost);
  const wxString l_sService = wxString::Format(wxT("%d"), static_cast<int>(l_cHost.Service()));
  // Names that come from the system are text, never a format.
  LogText(3, wxT("Server Name: ") + wxGetFullHostName() + wxT("(") + l_sHostAddress +
             wxT("), Service: ") + l_sService);
  return true;
}

bool SteeringServer::DoStopServer() { return true; }

bool SteeringServer::DoRestartServer() { return true; }

void SteeringServer::SetPort(unsigned int p_nPort) { m_nPort = p_nPort; }

void SteeringServer::SetAddress(const wxString& p_sAddress) { m_sAddress = p_sAddress; }

unsigned int SteeringServer::GetPort() {
  if (m_pcServer == NULL || !m_pcServer->IsOk()) return m_nPort;
  wxIPV4address l_cAddress;
  if (!m_pcServer->GetLocal(l_cAddress)) return m_nPort;
  return l_cAddress.Service();
}

}  // namespace quor
