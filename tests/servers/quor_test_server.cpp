// SPDX-License-Identifier: MIT
// quor-test-server: a steering server for the tests that need one in a
// process of its own (process and descriptor limits, memory over many
// connections). It serves one model "net" (3 places, 2 transitions) from the
// default handler's store through SteeringDispatcher on 127.0.0.1.
//
//   quor-test-server [--timeout S] [--max-connections N] [--quiet]
//
// Prints "listening on port N" on stdout once it listens (an ephemeral
// port), writes every log line to stderr as it is (one line each, no time
// stamp; --quiet: warnings and errors only), and stops cleanly on SIGTERM or
// SIGINT (exit status 0). Status 1: it cannot listen; 2: a wrong command
// line.
#include <wx/app.h>
#include <wx/log.h>
#include <wx/timer.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "quor/model.h"
#include "quor/steeringdispatcher.h"

namespace {

std::atomic<bool> g_bStop{false};
// The exit status of a run that ends before the event loop (-1: it ran).
int g_nEarlyStatus = -1;

void OnSignal(int) { g_bStop.store(true); }

// Each record as one line on stderr, flushed at once.
class LineLog : public wxLog {
 protected:
  void DoLogRecord(wxLogLevel, const wxString& p_sMessage, const wxLogRecordInfo&) override {
    std::fprintf(stderr, "%s\n", static_cast<const char*>(p_sMessage.utf8_str()));
    std::fflush(stderr);
  }
};

const char USAGE[] = "usage: quor-test-server [--timeout S] [--max-connections N] [--quiet]\n";

}  // namespace

class TestServerApp : public wxAppConsole {
 public:
  bool OnInit() override {
    int l_nTimeout = quor::SteeringDispatcher::DEFAULT_TIMEOUT_SECONDS;
    unsigned int l_nMaxConnections = quor::SteeringDispatcher::DEFAULT_MAX_CONNECTIONS;
    bool l_bQuiet = false;
    for (int i = 1; i < argc; ++i) {
      const std::string l_sArgument = argv[i].ToStdString();
      const bool l_bValue = i + 1 < argc;
      if (l_sArgument == "--help") {
        std::fputs(USAGE, stdout);
        g_nEarlyStatus = 0;
        return false;
      } else if (l_sArgument == "--version") {
        std::puts("quor-test-server 1");
        g_nEarlyStatus = 0;
        return false;
      } else if (l_sArgument == "--quiet") {
        l_bQuiet = true;
      } else if (l_sArgument == "--timeout" && l_bValue) {
        l_nTimeout = std::atoi(argv[++i].mb_str());
      } else if (l_sArgument == "--max-connections" && l_bValue) {
        l_nMaxConnections = static_cast<unsigned int>(std::atoi(argv[++i].mb_str()));
      } else {
        std::fputs(USAGE, stderr);
        g_nEarlyStatus = 2;
        return false;
      }
    }
    delete wxLog::SetActiveTarget(new LineLog);
    if (l_bQuiet) wxLog::SetLogLevel(wxLOG_Warning);
    std::signal(SIGTERM, OnSignal);
    std::signal(SIGINT, OnSignal);

    quor::Model* l_pcModel = new quor::Model(NULL, wxT("net"), 2, 3);
    l_pcModel->SetPlaceNames({wxT("A"), wxT("B"), wxT("C")});
    l_pcModel->SetTransitionNames({wxT("t1"), wxT("t2")});
    l_pcModel->SetInitialMarking({10, 20, 30});
    l_pcModel->SetCurrentMarking({10, 20, 30});
    m_cHandler.GetStore().AddModel(l_pcModel);

    m_pcServer.reset(new quor::SteeringServer);
    m_pcServer->SetPort(0);
    m_pcServer->SetAddress(wxT("127.0.0.1"));
    if (!m_pcServer->DoStartServer(0)) {
      g_nEarlyStatus = 1;
      return false;
    }
    m_pcDispatcher.reset(new quor::SteeringDispatcher(*m_pcServer, m_cHandler));
    m_pcDispatcher->SetTimeout(l_nTimeout);
    m_pcDispatcher->SetMaxConnections(l_nMaxConnections);
    if (!m_pcDispatcher->Start()) {
      g_nEarlyStatus = 1;
      return false;
    }
    std::printf("listening on port %u\n", m_pcServer->GetPort());
    std::fflush(stdout);
    m_cStopCheck.Bind(wxEVT_TIMER, [this](wxTimerEvent&) {
      if (g_bStop.load()) ExitMainLoop();
    });
    m_cStopCheck.Start(50);
    return true;
  }

  int OnExit() override {
    m_cStopCheck.Stop();
    m_pcDispatcher.reset();
    if (m_pcServer && m_pcServer->GetServerSocket()) m_pcServer->GetServerSocket()->Destroy();
    wxLog::FlushActive();
    return 0;
  }


 private:
  quor::SteeringHandler m_cHandler;
  std::unique_ptr<quor::SteeringServer> m_pcServer;
  std::unique_ptr<quor::SteeringDispatcher> m_pcDispatcher;
  wxTimer m_cStopCheck;
};

wxIMPLEMENT_APP_NO_MAIN(TestServerApp);

int main(int argc, char** argv) {
  // wxEntry gives 255 for any run that ends in OnInit; the status says why.
  const int l_nStatus = wxEntry(argc, argv);
  return g_nEarlyStatus >= 0 ? g_nEarlyStatus : l_nStatus;
}
