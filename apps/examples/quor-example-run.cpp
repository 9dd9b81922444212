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
    if (argc > 1) {  // --help and --version; anything else is a usage error
      const wxString l_sArg = argv[1];
      if (l_sArg == wxT("--help"))
        std::printf("Usage: quor-example-run [--help | --version]\n"
                    "Serves the decay model on a free port until Ctrl-C.\n");
      else if (l_sArg == wxT("--version"))
        std::printf("quor-example-run %s\n", quor::GetVersionString());
      else
        std::fprintf(stderr, "Usage: quor-example-run (or --help, --version)\n");
      m_nExitCode = l_sArg == wxT("--help") || l_sArg == wxT("--version") ? 0 : 2;
      return true;
    }
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
    std::printf("quor-example-run listening on port %u\n", m_pcServer->GetPort());
    std::fflush(stdout);
    m_pcDispatcher.reset(new quor::SteeringDispatcher(*m_pcServer, m_cSimulation));
    return m_pcDispatcher->Start();
  }
  // Serves the clients until the program is stopped (Ctrl-C); 1 if it could not listen.
  int OnRun() override {
    if (m_nExitCode >= 0) return m_nExitCode;
    return m_pcDispatcher ? wxAppConsole::OnRun() : 1;
  }
  int OnExit() override {
    m_pcDispatcher.reset();  // closes the connections
    m_cSimulation.StopAllRuns();
    if (m_pcServer && m_pcServer->GetServerSocket()) m_pcServer->GetServerSocket()->Destroy();
    return 0;
  }

 private:
  int m_nExitCode = -1;  // set when the program ends without serving
  quor::SteeringRunHandler m_cSimulation{Decay};  // runs every model with Decay
  std::unique_ptr<quor::SteeringServer> m_pcServer;
  std::unique_ptr<quor::SteeringDispatcher> m_pcDispatcher;
};

wxIMPLEMENT_APP_CONSOLE(DecayApp);
