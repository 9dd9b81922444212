// SPDX-License-Identifier: MIT
#include "quor/steeringserver.h"

#include <wx/utils.h>

namespace quor {

namespace {
// LOG takes its text as a format string; a text made of names that come
// from the system must not carry a conversion into it.
wxString Literal(const wxString& p_sText) {
  wxString l_sText = p_sText;
  l_sText.Replace(wxT("%"), wxT("%%"));
  return l_sText;
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
  l_cAddress.Service(static_cast<unsigned short>(m_nPort));
  TRY_ALLOC(m_pcServer = new wxSocketServer(l_cAddress, wxSOCKET_REUSEADDR), return false);
  if (!m_pcServer->IsOk()) {
    LOG(3, wxT("The server can't be Started!"));
    return false;
  }

  m_pcServer->SetEventHandler(*this, 0);
  m_pcServer->SetNotify(wxSOCKET_CONNECTION_FLAG);
  m_pcServer->Notify(true);
  LOG(3, wxT("The server has been Started!"));

  wxIPV4address l_cHost;
  l_cHost.Hostname(wxGetHostName());
  const wxString l_sHostAddress = l_cHost.IPAddress();
  m_pcServer->GetLocal(l_cHost);
  const wxString l_sService = wxString::Format(wxT("%d"), static_cast<int>(l_cHost.Service()));
  LOG(3, Literal(wxT("Server Name: ") + wxGetFullHostName() + wxT("(") + l_sHostAddress +
                 wxT("), Service: ") + l_sService));
  return true;
}

bool SteeringServer::DoStopServer() { return true; }

bool SteeringServer::DoRestartServer() { return true; }

void SteeringServer::SetPort(unsigned int p_nPort) { m_nPort = p_nPort; }

unsigned int SteeringServer::GetPort() {
  if (m_pcServer == NULL || !m_pcServer->IsOk()) return m_nPort;
  wxIPV4address l_cAddress;
  if (!m_pcServer->GetLocal(l_cAddress)) return m_nPort;
  return l_cAddress.Service();
}

}  // namespace quor
