// SPDX-License-Identifier: MIT
#include "simd/simdServer.h"

namespace quor {
namespace simd {

SimdServer::SimdServer() : m_pcServer(new SteeringServer), m_bStarted(false) {}

SimdServer::~SimdServer() { Shutdown(); }

int SimdServer::AddNet(const sim::Net& p_rNet) { return m_cHandler.AddNet(p_rNet); }

bool SimdServer::Start(unsigned int p_nPort, const wxString& p_sAddress) {
  if (m_bStarted || !m_pcServer) return false;
  m_bStarted = true;
  m_pcServer->SetPort(p_nPort);
  m_pcServer->SetAddress(p_sAddress);
  // The argument is not used: the port is the one just set.
  if (!m_pcServer->DoStartServer(p_nPort)) return false;
  m_pcDispatcher.reset(new SteeringDispatcher(*m_pcServer, m_cHandler));
  return m_pcDispatcher->Start();
}

unsigned int SimdServer::GetPort() { return m_pcServer ? m_pcServer->GetPort() : 0; }

void SimdServer::Shutdown() {
  if (m_pcDispatcher) m_pcDispatcher->Shutdown();
  m_cHandler.StopAllRuns();
  m_pcDispatcher.reset();
  if (m_pcServer) {
    // The listening socket is the application's: it delivers its events to
    // the server object, so it goes first.
    wxSocketServer* l_pcSocket = m_pcServer->GetServerSocket();
    if (l_pcSocket != NULL) {
      l_pcSocket->Notify(false);
      delete l_pcSocket;
    }
    m_pcServer.reset();
  }
}

}  // namespace simd
}  // namespace quor
