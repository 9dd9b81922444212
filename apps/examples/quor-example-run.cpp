// SPDX-License-Identifier: MIT
#include <wx/app.h>

#include <cmath>
#include <cstdio>
#include <memory>

#include "quor/quor.h"

// X decays at the rate k: advances X from one output time to the next.
bool Decay(quor::SteeringStep& p_rStep) {
  const double l_dK = p_rStep.Parameters()[0];
  p_rStep.Marking()[0] *= std::exp(-l_dK * (p_rStep.GetTo() - p_rStep.GetFrom()));
  return true;
}

class DecayApp : public wxAppConsole {
 public:
  bool OnInit() override {
    quor::Model* l_pcModel = new quor::Model(NULL, wxT("decay"), 1, 1);  // 1 transition, 1 place
    l_pcModel->SetPlaceNames({wxT("X")});
    l_pcModel->SetTransitionNames({wxT("decay")});
    l_pcModel->SetAttributeValue(quor::keys::PARAMETER_NAMES, std::vector<wxString>{wxT("k")});
    l_pcModel->SetInitialParameterValues({0.1});
    l_pcModel->SetInitialMarking({100.0});
    l_pcModel->SetOutputEndPoint(50.0);  // the interval it suggests: 0 to 50 every 0.5
    l_pcModel->SetOutputSamplingSize(0.5);
    m_cSimulation.AddModel(l_pcModel);  // the store owns it now

    m_pcServer.reset(new quor::SteeringServer);
    m_pcServer->SetPort(0);  // any free port; DoStartServer's argument is not used
    if (!m_pcServer->DoStartServer(0)) return true;  // OnRun then fails
    std::printf("listening on port %u\n", m_pcServer->GetPort());
    std::fflush(stdout);
    m_pcDispatcher.reset(new quor::SteeringDispatcher(*m_pcServer, m_cSimulation));
    return m_pcDispatcher->Start();
  }
  // Serves the clients until the program is stopped (Ctrl-C); 1 if it could not listen.
  int OnRun() override { return m_pcDispatcher ? wxAppConsole::OnRun() : 1; }
  int OnExit() override {
    m_pcDispatcher.reset();  // closes the connections
    m_cSimulation.StopAllRuns();
    m_pcServer->GetServerSocket()->Destroy();
    return 0;
  }

 private:
  quor::SteeringRunHandler m_cSimulation{Decay};  // runs every model with Decay
  std::unique_ptr<quor::SteeringServer> m_pcServer;
  std::unique_ptr<quor::SteeringDispatcher> m_pcDispatcher;
};

wxIMPLEMENT_APP_CONSOLE(DecayApp);
