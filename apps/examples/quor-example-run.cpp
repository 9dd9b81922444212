// SPDX-License-Identifier: MIT
// A steerable simulation: X decays at the rate k (dX/dt = -k X). Clients
// start, pause, resume, stop and pace its runs and change k and X as it runs.
//   quor-example-run [PORT]   (0, the default, picks a free port; Ctrl-C ends it)
#include <wx/app.h>

#include <cmath>
#include <cstdio>
#include <memory>

#include "quor/quor.h"

// Advances X from one output time to the next under the current k.
bool Decay(quor::SteeringStep& p_rStep) {
  const double l_dK = p_rStep.Parameters()[0];
  p_rStep.Marking()[0] *= std::exp(-l_dK * (p_rStep.GetTo() - p_rStep.GetFrom()));
  return true;
}

class DecayApp : public wxAppConsole {
 public:
  bool OnInit() override {
    const wxString l_sArg = argc > 1 ? argv[1] : wxString(wxT("0"));
    unsigned long l_nPort = 0;
    if (l_sArg == wxT("--help") || l_sArg == wxT("--version"))
      return std::printf("quor-example-run [PORT], steering protocol %u\n",
                         quor::STEERING_PROTOCOL_VERSION) > 0;
    if (argc > 2 || !l_sArg.ToULong(&l_nPort) || l_nPort > 65535) {
      std::fputs("usage: quor-example-run [PORT]\n", stderr);
      m_nExit = 2;
      return true;
    }
    quor::Model* l_pcModel = new quor::Model(NULL, wxT("decay"), 1, 1);
    l_pcModel->SetPlaceNames({wxT("X")});
    l_pcModel->SetTransitionNames({wxT("decay")});
    l_pcModel->SetAttributeValue(quor::keys::PARAMETER_NAMES, std::vector<wxString>{wxT("k")});
    l_pcModel->SetInitialParameterValues({0.1});
    l_pcModel->SetInitialMarking({100.0});
    m_cSimulation.AddModel(l_pcModel);  // the store owns it now

    m_pcServer.reset(new quor::SteeringServer);
    m_pcServer->SetPort(l_nPort);
    m_nExit = 1;
    if (!m_pcServer->DoStartServer(0)) return true;  // the port is SetPort's
    std::printf("listening on port %u\n", m_pcServer->GetPort());
    std::fflush(stdout);
    m_pcDispatcher.reset(new quor::SteeringDispatcher(*m_pcServer, m_cSimulation));
    if (m_pcDispatcher->Start()) m_nExit = 0;
    return true;
  }
  // The event loop serves the clients (until Ctrl-C).
  int OnRun() override { return m_nExit == 0 && m_pcDispatcher ? wxAppConsole::OnRun() : m_nExit; }
  int OnExit() override {
    m_pcDispatcher.reset();  // closes the connections
    m_cSimulation.StopAllRuns();
    if (m_pcServer && m_pcServer->GetServerSocket()) m_pcServer->GetServerSocket()->Destroy();
    return m_nExit;
  }

 private:
  quor::SteeringRunHandler m_cSimulation{Decay};
  std::unique_ptr<quor::SteeringServer> m_pcServer;
  std::unique_ptr<quor::SteeringDispatcher> m_pcDispatcher;
  int m_nExit = 0;
};

wxIMPLEMENT_APP_CONSOLE(DecayApp);
