// SPDX-License-Identifier: MIT
// quor-web: watch and steer a simulation in the browser. A steering client
// of one simulation server (any server that speaks the steering protocol)
// and an HTTP server for the dashboard page; see webLink.h and webServer.h.
// It runs until SIGINT or SIGTERM. Exit status: 0 after a signal, --help or
// --version; 1 when it cannot listen; 2 on a usage error.
#include <signal.h>
#include <unistd.h>
#include <wx/cmdline.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <iostream>
#include <thread>

#include "quorapp/console.h"
#include "quorapp/program.h"
#include "quorapp/text.h"
#include "webServer.h"

namespace {

const quor::app::ProgramInfo PROGRAM = {
    "quor-web",
    "Serves a dashboard that watches and steers the runs of a QUOR simulation server in the browser."};

// "HOST:PORT" (an IPv6 address in brackets: "[::1]:8080"); false unless
// both parts are there and the port is a number up to 65535.
bool SplitAddress(const std::string& p_sText, std::string& p_rsHost, int& p_rnPort) {
  const std::size_t l_nColon = p_sText.rfind(':');
  if (l_nColon == std::string::npos || l_nColon == 0 || l_nColon + 1 == p_sText.size()) return false;
  p_rsHost = p_sText.substr(0, l_nColon);
  if (p_rsHost.size() > 2 && p_rsHost.front() == '[' && p_rsHost.back() == ']')
    p_rsHost = p_rsHost.substr(1, p_rsHost.size() - 2);
  const std::string l_sPort = p_sText.substr(l_nColon + 1);
  if (l_sPort.size() > 5 || l_sPort.find_first_not_of("0123456789") != std::string::npos) return false;
  p_rnPort = std::stoi(l_sPort);
  return p_rnPort <= 65535;
}

}  // namespace

int main(int argc, char** argv) {
  // The signals that end the program wait for the thread that takes them;
  // every thread made later inherits the mask.
  sigset_t l_cSignals;
  sigemptyset(&l_cSignals);
  sigaddset(&l_cSignals, SIGINT);
  sigaddset(&l_cSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &l_cSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  quor::app::Console l_cConsole(argc, argv);
  if (!l_cConsole.IsOk()) return quor::app::EXIT_STATUS_FAILURE;

  wxCmdLineParser l_cParser(l_cConsole.GetArgc(), l_cConsole.GetArgv());
  quor::app::AddStandardOptions(l_cParser, PROGRAM);
  l_cParser.AddOption(wxT(""), wxT("server"), wxT("the simulation server, HOST:PORT (needed)"));
  l_cParser.AddOption(wxT(""), wxT("listen"),
                      wxT("where the page is served, ADDR:PORT (default 127.0.0.1:8080; port 0 picks a "
                          "free one). Any address other than loopback needs the token printed at start "
                          "for every change"));
  l_cParser.AddOption(wxT(""), wxT("token"),
                      wxT("the token for changes (default: a random one, made when the address is not "
                          "loopback)"));
  wxString l_sMessage;
  quor::app::ParseOutcome l_eOutcome = quor::app::ParseCommandLine(l_cParser, PROGRAM, l_sMessage);
  if (l_eOutcome != quor::app::ParseOutcome::RUN) return quor::app::FinishParse(l_eOutcome, l_sMessage);

  wxString l_sText;
  std::string l_sServerHost;
  int l_nServerPort = 0;
  if (!l_cParser.Found(wxT("server"), &l_sText))
    l_eOutcome = quor::app::UsageError(l_cParser, PROGRAM, wxT("--server HOST:PORT is needed"), l_sMessage);
  else if (!SplitAddress(quor::app::ToStd(l_sText), l_sServerHost, l_nServerPort) || l_nServerPort == 0)
    l_eOutcome = quor::app::UsageError(l_cParser, PROGRAM,
                                       wxT("--server takes HOST:PORT, the port from 1 to 65535"), l_sMessage);
  quor::web::ServerOptions l_cOptions;
  if (l_eOutcome == quor::app::ParseOutcome::RUN && l_cParser.Found(wxT("listen"), &l_sText) &&
      !SplitAddress(quor::app::ToStd(l_sText), l_cOptions.sHost, l_cOptions.nPort))
    l_eOutcome = quor::app::UsageError(l_cParser, PROGRAM,
                                       wxT("--listen takes ADDR:PORT, the port from 0 to 65535"), l_sMessage);
  if (l_eOutcome == quor::app::ParseOutcome::RUN && l_cParser.Found(wxT("token"), &l_sText)) {
    l_cOptions.sToken = quor::app::ToStd(l_sText);
    if (l_cOptions.sToken.empty() || l_cOptions.sToken.size() > quor::web::MAX_NAME_LENGTH ||
        l_cOptions.sToken.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_") !=
            std::string::npos)
      l_eOutcome = quor::app::UsageError(l_cParser, PROGRAM,
                                         wxT("--token takes letters, digits, '-' and '_' only"), l_sMessage);
  }
  if (l_eOutcome != quor::app::ParseOutcome::RUN) return quor::app::FinishParse(l_eOutcome, l_sMessage);
  if (l_cOptions.sToken.empty() && !quor::web::IsLoopback(l_cOptions.sHost))
    l_cOptions.sToken = quor::web::MakeToken();
  l_cOptions.sPageDir = quor::web::FindPageDir(argv[0]);

  quor::web::EventHub l_cEvents;
  quor::web::WebLink l_cLink(l_sServerHost, std::to_string(l_nServerPort), l_cEvents);
  quor::web::WebServer l_cServer(l_cLink, l_cEvents, l_cOptions);
  std::string l_sWhy;
  if (!l_cServer.Bind(l_sWhy)) {
    quor::app::PrintError(PROGRAM, quor::app::FromStd(l_sWhy));
    return quor::app::EXIT_STATUS_FAILURE;
  }
  l_cLink.Start();

  std::string l_sUrlHost = l_cOptions.sHost;
  if (l_sUrlHost == "0.0.0.0" || l_sUrlHost == "::") {
    char l_acName[HOST_NAME_MAX + 1] = {0};
    l_sUrlHost = gethostname(l_acName, HOST_NAME_MAX) == 0 ? l_acName : "localhost";
  }
  if (l_sUrlHost.find(':') != std::string::npos) l_sUrlHost = "[" + l_sUrlHost + "]";
  std::string l_sUrl = "http://" + l_sUrlHost + ":" + std::to_string(l_cServer.Port()) + "/";
  if (!l_cOptions.sToken.empty()) l_sUrl += "?token=" + l_cOptions.sToken;
  std::cout << "quor-web listening on port " << l_cServer.Port() << "\n"
            << "quor-web: open " << l_sUrl << std::endl;

  // A stop asked for before the server answers is lost: the waiter asks
  // again until Run has returned.
  std::atomic<bool> l_bDone{false};
  std::thread l_cSignalWaiter([&l_cSignals, &l_cServer, &l_bDone] {
    int l_nSignal = 0;
    sigwait(&l_cSignals, &l_nSignal);
    while (!l_bDone) {
      l_cServer.Stop();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  });
  l_cServer.Run();
  // Run ends by Stop (a signal) or when listening fails: the waiter ends
  // either way.
  l_bDone = true;
  kill(getpid(), SIGTERM);
  l_cSignalWaiter.join();
  l_cLink.Stop();
  return quor::app::EXIT_STATUS_SUCCESS;
}
