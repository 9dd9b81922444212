// SPDX-License-Identifier: MIT
// quor-wire-demo: two library endpoints exchange a few values and strings
// over loopback through a relay that prints every byte it forwards.
//
//   sender (SteeringBase) --> relay (prints) --> receiver (SteeringBase)
//
// The sender runs on the main thread and the receiver on a worker thread;
// both use blocking wx sockets, so neither needs an event loop.
#include <quor/quor.h>

#include <wx/cmdline.h>
#include <wx/socket.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "quorapp/console.h"
#include "quorapp/program.h"

namespace {

int ListenLoopback(unsigned short* p_pnPort) {
  int l_nFd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in l_cAddr{};
  l_cAddr.sin_family = AF_INET;
  l_cAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (l_nFd < 0 || ::bind(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), sizeof(l_cAddr)) != 0 ||
      ::listen(l_nFd, 1) != 0) {
    std::perror("quor-wire-demo: listening on loopback");
    std::exit(1);
  }
  socklen_t l_nLen = sizeof(l_cAddr);
  ::getsockname(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), &l_nLen);
  *p_pnPort = ntohs(l_cAddr.sin_port);
  return l_nFd;
}

wxSocketClient* ConnectTo(unsigned short p_nPort) {
  wxSocketClient* l_pcSocket = new wxSocketClient(wxSOCKET_WAITALL | wxSOCKET_BLOCK);
  l_pcSocket->SetTimeout(10);
  wxIPV4address l_cAddress;
  l_cAddress.Hostname(wxT("127.0.0.1"));
  l_cAddress.Service(p_nPort);
  l_pcSocket->Connect(l_cAddress, true);
  return l_pcSocket;
}

void PrintChunk(const char* p_sArrow, const unsigned char* p_pData, ssize_t p_nSize) {
  std::printf("  %s %3zd bytes:", p_sArrow, p_nSize);
  const ssize_t l_nShown = p_nSize > 24 ? 24 : p_nSize;
  for (ssize_t i = 0; i < l_nShown; ++i) std::printf(" %02x", p_pData[i]);
  if (l_nShown < p_nSize) std::printf(" ...");
  std::printf("\n");
  std::fflush(stdout);
}

// Forwards bytes both ways until either side closes, printing each chunk.
void Relay(int p_nSender, int p_nReceiver) {
  unsigned char l_aBuffer[65536];
  pollfd l_aPoll[2] = {{p_nSender, POLLIN, 0}, {p_nReceiver, POLLIN, 0}};
  for (;;) {
    if (::poll(l_aPoll, 2, 15000) <= 0) return;
    for (int i = 0; i < 2; ++i) {
      if (!(l_aPoll[i].revents & (POLLIN | POLLHUP))) continue;
      ssize_t l_nGot = ::recv(l_aPoll[i].fd, l_aBuffer, sizeof(l_aBuffer), 0);
      if (l_nGot <= 0) return;
      PrintChunk(i == 0 ? "-->" : "<--", l_aBuffer, l_nGot);
      ::send(l_aPoll[1 - i].fd, l_aBuffer, static_cast<size_t>(l_nGot), MSG_NOSIGNAL);
    }
  }
}

void Step(const char* p_sWhat) { std::printf("%s\n", p_sWhat); std::fflush(stdout); }

}  // namespace

const quor::app::ProgramInfo PROGRAM = {
    "quor-wire-demo",
    "Two library endpoints exchange a few values and strings over loopback through a relay "
    "that prints every byte, acknowledgements and compressed frames included."};

int main(int argc, char** argv) {
  quor::app::Console l_cConsole(argc, argv);
  if (!l_cConsole.IsOk()) return quor::app::EXIT_STATUS_FAILURE;
  wxCmdLineParser l_cParser(l_cConsole.GetArgc(), l_cConsole.GetArgv());
  quor::app::AddStandardOptions(l_cParser, PROGRAM);
  wxString l_sMessage;
  const quor::app::ParseOutcome l_eOutcome =
      quor::app::ParseCommandLine(l_cParser, PROGRAM, l_sMessage);
  if (l_eOutcome != quor::app::ParseOutcome::RUN)
    return quor::app::FinishParse(l_eOutcome, l_sMessage);

  unsigned short l_nSenderPort = 0, l_nReceiverPort = 0;
  int l_nSenderListen = ListenLoopback(&l_nSenderPort);
  int l_nReceiverListen = ListenLoopback(&l_nReceiverPort);

  wxSocketClient* l_pcSenderSocket = ConnectTo(l_nSenderPort);
  wxSocketClient* l_pcReceiverSocket = ConnectTo(l_nReceiverPort);
  int l_nSenderFd = ::accept(l_nSenderListen, nullptr, nullptr);
  int l_nReceiverFd = ::accept(l_nReceiverListen, nullptr, nullptr);
  std::thread l_cRelay(Relay, l_nSenderFd, l_nReceiverFd);

  std::printf("QUOR wire demo: every value is one frame, acknowledged with 0x61 ('a').\n"
              "--> sender to receiver, <-- receiver to sender.\n\n");

  const std::string l_sLong(300, 'x');
  std::vector<double> l_adCurve(64);
  for (size_t i = 0; i < l_adCurve.size(); ++i) l_adCurve[i] = 100.0 / (1.0 + i);

  // The receiver reads exactly what the sender sends, in the same order.
  std::atomic<bool> l_bReceivedOk{true};
  std::thread l_cReceiver([&] {
    l_pcReceiverSocket->Notify(false);
    quor::SteeringBase l_cEnd(l_pcReceiverSocket);
    int l_nCode = 0;
    double l_dRate = 0;
    wxString l_sName, l_sText;
    std::vector<double> l_adGot(l_adCurve.size());
    bool l_bOk = l_cEnd.ReceiveValue(&l_nCode, 4) == 1 &&
                 l_cEnd.ReceiveValue(&l_dRate, 8) == 1 &&
                 l_cEnd.ReceiveString(l_sName) == 1 &&
                 l_cEnd.ReceiveString(l_sText) == 1 &&
                 l_cEnd.ReceiveValue(l_adGot.data(), l_adGot.size() * 8) == 1;
    l_bOk = l_bOk && l_nCode == 16 && l_dRate == 0.25 && l_sName == wxT("SIR") &&
            l_sText.length() == l_sLong.size() && l_adGot == l_adCurve;
    l_bReceivedOk = l_bOk;
  });

  quor::SteeringBase l_cSender(l_pcSenderSocket);
  unsigned int l_nResult = 1;
  int l_nCode = 16;
  double l_dRate = 0.25;
  Step("a 4-byte value (16): raw, then the acknowledgement");
  l_nResult &= l_cSender.SendValue(&l_nCode, 4) == 1;
  Step("an 8-byte double (0.25)");
  l_nResult &= l_cSender.SendValue(&l_dRate, 8) == 1;
  Step("the string \"SIR\": its 8-byte character count, then its 3 bytes");
  l_nResult &= l_cSender.SendString(wxT("SIR")) == 1;
  Step("a string of 300 characters: the count, then the text compressed\n"
       "  (an 8-byte compressed length, then the zlib stream)");
  l_nResult &= l_cSender.SendString(wxString(l_sLong)) == 1;
  Step("64 doubles (512 bytes) as one compressed value");
  l_nResult &= l_cSender.SendValue(l_adCurve.data(), l_adCurve.size() * 8) == 1;

  l_cReceiver.join();
  l_pcSenderSocket->Close();
  l_pcReceiverSocket->Close();
  l_cRelay.join();
  delete l_pcSenderSocket;
  delete l_pcReceiverSocket;
  ::close(l_nSenderFd);
  ::close(l_nReceiverFd);
  ::close(l_nSenderListen);
  ::close(l_nReceiverListen);

  const bool l_bOk = l_nResult == 1 && l_bReceivedOk;
  std::printf("\n%s\n", l_bOk ? "All values arrived intact." : "The exchange FAILED.");
  return l_bOk ? quor::app::EXIT_STATUS_SUCCESS : quor::app::EXIT_STATUS_FAILURE;
}
