// SPDX-License-Identifier: MIT
// The simulation server as one object: the steering server, the dispatcher
// that serves its clients and the handler that runs the models. The
// program and the tests both use it; the owner runs the wxWidgets event
// loop on the main thread, where the dispatcher accepts connections.
//
//   SimdServer l_cServer;
//   for (const sim::Net& l_rNet : l_cLoaded.nets) l_cServer.AddNet(l_rNet);
//   if (!l_cServer.Start(0)) ...;        // 0: any free port
//   ... l_cServer.GetPort() ...          // run the event loop
//   l_cServer.Shutdown();
#ifndef QUOR_SIMD_SIMDSERVER_H
#define QUOR_SIMD_SIMDSERVER_H

#include <memory>

#include "quor/steeringdispatcher.h"
#include "quor/steeringserver.h"
#include "simd/simulationHandler.h"

namespace quor {
namespace simd {

class SimdServer {
 public:
  // REQUIRES: the main thread (as all operations but Handler and AddNet).
  SimdServer();
  // Shutdown.
  ~SimdServer();

  // Serves a net (see SimulationHandler::AddNet); returns its model id.
  int AddNet(const sim::Net& p_rNet);

  // Listens on the port (0: one the system picks) of the local address
  // (see SteeringServer::SetAddress; empty: every address) and starts
  // serving. False when the port cannot be used or the server was started
  // before.
  bool Start(unsigned int p_nPort, const wxString& p_sAddress = wxT("127.0.0.1"));
  // The port listened on, after a successful Start.
  unsigned int GetPort();

  // Stops serving: closes every connection, stops the runs and waits for
  // their threads, and frees the listening socket. Safe to call again.
  void Shutdown();

  SimulationHandler& Handler() { return m_cHandler; }

 private:
  SimulationHandler m_cHandler;
  std::unique_ptr<SteeringServer> m_pcServer;
  std::unique_ptr<SteeringDispatcher> m_pcDispatcher;
  bool m_bStarted;

  SimdServer(const SimdServer&) = delete;
  SimdServer& operator=(const SimdServer&) = delete;
};

}  // namespace simd
}  // namespace quor

#endif  // QUOR_SIMD_SIMDSERVER_H
