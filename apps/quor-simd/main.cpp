// SPDX-License-Identifier: MIT
// quor-simd: the steerable Petri-net simulation server.
//
//   quor-simd [--port N] [--bind ADDR] [--model FILE]... [--help] [--version]
//
// Under mpirun (when built with MPI) every rank loads the nets, rank 0
// serves, and the runs go on every rank (simd/simdMpi.h); --scan and
// --rank-timeout belong to that mode.
//
// Serves the nets of the PNML files given (the built-in SIR net without
// any), prints "quor-simd listening on port N" on stdout once it listens,
// logs to stderr, and runs until SIGINT or SIGTERM. Exit status: 0 after a
// signal, --help or --version; 1 when no net could be loaded from the files
// given or the address and port cannot be used; 2 when the command line is
// wrong.
#include <wx/app.h>
#include <wx/log.h>
#include <wx/timer.h>

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <vector>

#include "quorapp/console.h"
#include "quorapp/text.h"
#include "simd/netModel.h"
#include "simd/simdCommon.h"
#include "simd/simdOptions.h"
#include "simd/simdServer.h"

#ifdef QUOR_SIMD_WITH_MPI
#include <mpi.h>

#include "simd/simdMpi.h"
#endif

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
    quor::app::PrepareConsoleApp();
    CatchStopSignals();

    quor::simd::SimdOptions l_cOptions;
    wxString l_sMessage;
    const quor::simd::ParseOutcome l_eOutcome =
        quor::simd::ParseSimdOptions(argc, argv, l_cOptions, l_sMessage);
    if (l_eOutcome != quor::simd::ParseOutcome::RUN) {
      m_nExitCode = quor::app::FinishParse(l_eOutcome, l_sMessage);
      return true;
    }

    if (!StartMpi(l_cOptions)) return true;

    const quor::simd::LoadedNets l_cLoaded = quor::simd::LoadNets(l_cOptions.models);
    for (const std::string& l_sError : l_cLoaded.errors)
      quor::simd::Log(1, wxT("cannot load a model: ") + quor::app::FromStd(l_sError));
    if (l_cLoaded.nets.empty()) {
      quor::simd::Log(1, wxT("no model could be loaded; giving up"));
      wxLog::FlushActive();
      m_nExitCode = quor::app::EXIT_STATUS_FAILURE;
      return true;
    }

#ifdef QUOR_SIMD_WITH_MPI
    if (m_bMpi) {
      m_pcJob.reset(new quor::simd::MpiJob(l_cLoaded.nets, l_cOptions));
      if (!m_pcJob->IsRoot()) {
        m_bFollow = true;
        return true;
      }
    }
#endif
    m_pcServer.reset(new quor::simd::SimdServer);
    std::vector<int> l_anModels;
    for (const quor::sim::Net& l_rNet : l_cLoaded.nets) {
      l_anModels.push_back(m_pcServer->AddNet(l_rNet));
      quor::simd::Log(3, wxT("serving ") + quor::app::FromStd(l_rNet.source));
    }
#ifdef QUOR_SIMD_WITH_MPI
    if (m_pcJob) {
      m_pcJob->Attach(*m_pcServer, l_anModels);
      // SIGTERM or SIGINT to this process ends the job with status 0 (one
      // to mpirun ends it too, but mpirun then reports 1).
      quor::simd::Log(3, wxString::Format(wxT("runs go on %d MPI ranks; rank 0 is process %ld"),
                                          m_pcJob->GetRanks(), static_cast<long>(::getpid())));
    }
#endif
    const wxString l_sAddress = quor::app::FromStd(l_cOptions.address);
    if (!m_pcServer->Start(l_cOptions.port, l_sAddress)) {
      quor::simd::Log(1, wxString::Format(wxT("cannot listen on port %u of %s"),
                                          l_cOptions.port, l_sAddress));
      wxLog::FlushActive();
      m_nExitCode = quor::app::EXIT_STATUS_FAILURE;
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
#ifdef QUOR_SIMD_WITH_MPI
    if (m_bFollow) {
      m_pcJob->Follow();  // until rank 0 ends the job
      return m_nExitCode;
    }
#endif
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
#ifdef QUOR_SIMD_WITH_MPI
    // The runs have ended: the other ranks may leave.
    if (m_pcJob && m_pcJob->IsRoot()) m_pcJob->Shutdown();
    m_pcJob.reset();
    if (m_bMpi) MPI_Finalize();
#endif
    wxLog::FlushActive();
    return wxAppConsole::OnExit();
  }

 private:
  // Starts MPI when an MPI launcher started the program; false (with the
  // exit code set) when the program cannot go on.
  bool StartMpi(const quor::simd::SimdOptions& p_rOptions) {
#ifdef QUOR_SIMD_WITH_MPI
    if (!quor::simd::StartedByMpi() && p_rOptions.scanParameter.empty()) return true;
    int l_nProvided = 0;
    if (MPI_Init_thread(NULL, NULL, MPI_THREAD_SERIALIZED, &l_nProvided) != MPI_SUCCESS) {
      quor::simd::Log(1, wxT("MPI cannot be started"));
      m_nExitCode = quor::app::EXIT_STATUS_FAILURE;
      return false;
    }
    m_bMpi = true;
    if (l_nProvided < MPI_THREAD_SERIALIZED) {
      quor::simd::Log(1, wxT("this MPI cannot be called from the threads of the runs "
                             "(MPI_THREAD_SERIALIZED)"));
      m_nExitCode = quor::app::EXIT_STATUS_FAILURE;
      return false;
    }
    return true;
#else
    if (p_rOptions.scanParameter.empty()) return true;
    quor::simd::Log(1, wxT("--scan needs a quor-simd built with MPI, started by mpirun"));
    m_nExitCode = quor::app::EXIT_STATUS_USAGE;
    return false;
#endif
  }

  void OnSignalTimer(wxTimerEvent&) {
    // Log lines of the worker threads wait for the main thread.
    wxLog::FlushActive();
    if (g_nStopSignal == 0) return;
    quor::simd::Log(3, wxString::Format(wxT("signal %d received; shutting down"),
                                        static_cast<int>(g_nStopSignal)));
    m_pcSignalTimer->Stop();
#ifdef QUOR_SIMD_WITH_MPI
    if (m_pcJob) m_pcJob->Interrupt();
#endif
    ExitMainLoop();
  }

  int m_nExitCode;
  bool m_bServe;
  bool m_bMpi = false;     // MPI was started (and is finalised at the end)
  bool m_bFollow = false;  // a rank other than 0: follows rank 0's runs
#ifdef QUOR_SIMD_WITH_MPI
  std::unique_ptr<quor::simd::MpiJob> m_pcJob;
#endif
  std::unique_ptr<quor::simd::SimdServer> m_pcServer;
  // Looks at the signal flag (made once the application runs).
  std::unique_ptr<wxTimer> m_pcSignalTimer;
};

}  // namespace

wxIMPLEMENT_APP_CONSOLE(SimdApp);
