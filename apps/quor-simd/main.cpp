// SPDX-License-Identifier: MIT
// quor-simd: the steerable Petri-net simulation server.
//
//   quor-simd [--port N] [--model FILE]... [--help]
//
// Serves the nets of the PNML files given (the built-in SIR net without
// any), prints "quor-simd listening on port N" on stdout once it listens,
// logs to stderr, and runs until SIGINT or SIGTERM. Exit status: 0 after a
// signal or --help; 1 when the command line is wrong, no net could be
// loaded from the files given, or the port cannot be used.
#include <wx/app.h>
#include <wx/log.h>
#include <wx/timer.h>

#include <csignal>
#include <cstdio>
#include <memory>

#include "simd/netModel.h"
#include "simd/simdCommon.h"
#include "simd/simdOptions.h"
#include "simd/simdServer.h"

namespace {

// Set by SIGINT and SIGTERM; the main loop looks at it.
volatile std::sig_atomic_t g_nStopSignal = 0;

extern "C" void OnStopSignal(int p_nSignal) { g_nStopSignal = p_nSignal; }

void CatchStopSignals() {
  struct sigaction l_cAction = {};
  l_cAction.sa_handler = OnStopSignal;
  sigemptyset(&l_cAction.sa_mask);
  sigaction(SIGINT, &l_cAction, NULL);
  sigaction(SIGTERM, &l_cAction, NULL);
}

class SimdApp : public wxAppConsole {
 public:
  SimdApp() : m_nExitCode(0), m_bServe(false) {}

  bool OnInit() override {
    wxLogStderr* l_pcLog = new wxLogStderr;
    delete l_pcLog->SetFormatter(new quor::simd::PrefixedLogFormatter);
    delete wxLog::SetActiveTarget(l_pcLog);
    CatchStopSignals();

    quor::simd::SimdOptions l_cOptions;
    wxString l_sMessage;
    switch (quor::simd::ParseSimdOptions(argc, argv, l_cOptions, l_sMessage)) {
      case quor::simd::ParseOutcome::HELP:
        std::fputs(l_sMessage.utf8_str(), stdout);
        return true;
      case quor::simd::ParseOutcome::ERROR:
        std::fputs(l_sMessage.utf8_str(), stderr);
        m_nExitCode = 1;
        return true;
      case quor::simd::ParseOutcome::RUN:
        break;
    }

    const quor::simd::LoadedNets l_cLoaded = quor::simd::LoadNets(l_cOptions.models);
    for (const std::string& l_sError : l_cLoaded.errors)
      quor::simd::Log(1, wxT("cannot load a model: ") + quor::simd::FromStd(l_sError));
    if (l_cLoaded.nets.empty()) {
      quor::simd::Log(1, wxT("no model could be loaded; giving up"));
      wxLog::FlushActive();
      m_nExitCode = 1;
      return true;
    }

    m_pcServer.reset(new quor::simd::SimdServer);
    for (const quor::sim::Net& l_rNet : l_cLoaded.nets) {
      m_pcServer->AddNet(l_rNet);
      quor::simd::Log(3, wxT("serving ") + quor::simd::FromStd(l_rNet.source));
    }
    if (!m_pcServer->Start(l_cOptions.port)) {
      quor::simd::Log(1, wxString::Format(wxT("cannot listen on port %u"), l_cOptions.port));
      wxLog::FlushActive();
      m_nExitCode = 1;
      return true;
    }
    wxLog::FlushActive();
    std::printf("%s\n", static_cast<const char*>(
                            quor::simd::ListeningLine(m_pcServer->GetPort()).utf8_str()));
    std::fflush(stdout);

    m_bServe = true;
    m_pcSignalTimer.reset(new wxTimer);
    m_pcSignalTimer->Bind(wxEVT_TIMER, &SimdApp::OnSignalTimer, this);
    m_pcSignalTimer->Start(100);
    return true;
  }

  int OnRun() override {
    if (!m_bServe) return m_nExitCode;
    wxAppConsole::OnRun();
    return m_nExitCode;
  }

  int OnExit() override {
    m_pcSignalTimer.reset();
    if (m_pcServer) {
      m_pcServer->Shutdown();
      m_pcServer.reset();
      quor::simd::Log(3, wxT("quor-simd stopped"));
    }
    wxLog::FlushActive();
    return wxAppConsole::OnExit();
  }

 private:
  void OnSignalTimer(wxTimerEvent&) {
    // Log lines of the worker threads wait for the main thread.
    wxLog::FlushActive();
    if (g_nStopSignal == 0) return;
    quor::simd::Log(3, wxString::Format(wxT("signal %d received; shutting down"),
                                        static_cast<int>(g_nStopSignal)));
    m_pcSignalTimer->Stop();
    ExitMainLoop();
  }

  int m_nExitCode;
  bool m_bServe;
  std::unique_ptr<quor::simd::SimdServer> m_pcServer;
  // Looks at the signal flag (made once the application runs).
  std::unique_ptr<wxTimer> m_pcSignalTimer;
};

}  // namespace

wxIMPLEMENT_APP_CONSOLE(SimdApp);
