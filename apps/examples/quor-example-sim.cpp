// SPDX-License-Identifier: MIT
// A steerable simulation in a few lines: one model (X decays at rate k) is
// served through the handler's store, and a client's start command fills
// the result matrix with x(t) = x0 * exp(-k t).
//
//   quor-example-sim [--port N]   (3000 by default, 0 for any free port;
//                                  stop it with Ctrl-C)
#include <wx/app.h>

#include <cmath>
#include <cstdio>
#include <memory>

#include "quor/keys.h"
#include "quor/model.h"
#include "quor/steeringdispatcher.h"
#include "quor/version.h"

class DecaySimulation : public quor::SteeringHandler {
 public:
  // Runs on the worker thread of the client that sent the command. The store
  // locks itself, so there is nothing else to lock here.
  void OnStart(unsigned int p_nConnection, const wxString& p_sName, double p_dStart, double p_dEnd,
               double p_dSampling) override {
    SteeringHandler::OnStart(p_nConnection, p_sName, p_dStart, p_dEnd, p_dSampling);
    quor::SteeringModelStore& l_cStore = GetStore();
    const int l_nModel = CurrentModel(p_nConnection);
    const std::vector<double> l_adK = l_cStore.GetParameterValues(l_nModel);
    const std::vector<double> l_adX0 = l_cStore.GetMarking(l_nModel);
    if (l_adK.empty() || l_adX0.empty() || p_dSampling <= 0.0) return;
    quor::SteeringMatrix l_aadResult(1);  // one row: the place X over time
    for (double t = p_dStart; t <= p_dEnd; t += p_dSampling)
      l_aadResult[0].push_back(l_adX0[0] * std::exp(-l_adK[0] * t));
    l_cStore.SetResultMatrix(l_nModel, l_aadResult);
  }
};

class ExampleApp : public wxAppConsole {
 public:
  bool OnInit() override {
    // --help, --version, --port N; exit status 2 for anything else.
    unsigned long l_nPort = quor::STEERING_DEFAULT_PORT;
    for (int i = 1; i < argc; ++i) {
      const wxString l_sArg = argv[i];
      if (l_sArg == wxT("--help")) {
        std::printf("Usage: quor-example-sim [--port N]\n"
                    "Serves one steerable model (X decays at rate k) until Ctrl-C.\n"
                    "  --port N   the port to listen on (3000 by default, 0: any free port)\n"
                    "  --help     show this help and exit\n"
                    "  --version  show the version and exit\n");
        return Finish(0);
      }
      if (l_sArg == wxT("--version")) {
        std::printf("quor-example-sim %s\n", quor::GetVersionString());
        return Finish(0);
      }
      if (l_sArg != wxT("--port") || i + 1 == argc || !wxString(argv[++i]).ToULong(&l_nPort) ||
          l_nPort > 65535) {
        std::fprintf(stderr, "Usage: quor-example-sim [--port N] (or --help, --version)\n");
        return Finish(2);
      }
    }

    quor::Model* l_pcModel = new quor::Model(NULL, wxT("decay"), 1, 1);
    l_pcModel->SetPlaceNames({wxT("X")});
    l_pcModel->SetTransitionNames({wxT("decay")});
    l_pcModel->SetAttributeValue(quor::keys::PARAMETER_NAMES, std::vector<wxString>{wxT("k")});
    l_pcModel->SetInitialParameterValues({0.1});
    l_pcModel->SetCurrentParameterValues({0.1});
    l_pcModel->SetInitialMarking({100.0});
    l_pcModel->SetCurrentMarking({100.0});
    m_cSimulation.GetStore().AddModel(l_pcModel);

    m_pcServer.reset(new quor::SteeringServer);
    m_pcServer->SetPort(l_nPort);
    m_pcServer->SetAddress(wxT("127.0.0.1"));  // this machine's clients only
    m_pcDispatcher.reset(new quor::SteeringDispatcher(*m_pcServer, m_cSimulation));
    if (!m_pcServer->DoStartServer(0) || !m_pcDispatcher->Start()) {
      std::fprintf(stderr, "quor-example-sim: cannot listen on port %lu\n", l_nPort);
      return Finish(1);
    }
    std::printf("quor-example-sim listening on port %u\n", m_pcServer->GetPort());
    std::fflush(stdout);
    return true;  // then wxWidgets runs the event loop
  }
  int OnRun() override { return m_nExitCode >= 0 ? m_nExitCode : wxAppConsole::OnRun(); }
  int OnExit() override {
    m_pcDispatcher.reset();
    if (m_pcServer && m_pcServer->GetServerSocket()) m_pcServer->GetServerSocket()->Destroy();
    return 0;
  }

 private:
  // Ends the program with this exit status instead of running the loop.
  bool Finish(int p_nExitCode) {
    m_nExitCode = p_nExitCode;
    return true;
  }

  int m_nExitCode = -1;
  DecaySimulation m_cSimulation;
  std::unique_ptr<quor::SteeringServer> m_pcServer;
  std::unique_ptr<quor::SteeringDispatcher> m_pcDispatcher;
};

wxIMPLEMENT_APP_CONSOLE(ExampleApp);
