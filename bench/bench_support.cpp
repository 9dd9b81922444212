// SPDX-License-Identifier: MIT
#include "bench_support.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#ifdef QUOR_HAVE_LIBDEFLATE
#include <libdeflate.h>
#endif

#include <wx/app.h>
#include <wx/apptrait.h>
#include <wx/evtloop.h>
#include <wx/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <random>
#include <string>
#include <utility>

#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/steeringclient.h"
#include "quor/steeringcmd.h"
#include "quor/steeringdispatcher.h"

namespace quor_bench {

void Fail(const char* p_sMessage) {
  std::fprintf(stderr, "benchmark setup failed: %s\n", p_sMessage);
  std::abort();
}

namespace {

void SetNoDelay(int p_nFd) {
  int l_nOn = 1;
  setsockopt(p_nFd, IPPROTO_TCP, TCP_NODELAY, &l_nOn, sizeof(l_nOn));
}

bool ReadAll(int p_nFd, char* p_pData, size_t p_nSize) {
  while (p_nSize > 0) {
    const ssize_t l_n = ::recv(p_nFd, p_pData, p_nSize, 0);
    if (l_n < 0 && errno == EINTR) continue;
    if (l_n <= 0) return false;
    p_pData += l_n;
    p_nSize -= static_cast<size_t>(l_n);
  }
  return true;
}

bool WriteAll(int p_nFd, const char* p_pData, size_t p_nSize) {
  while (p_nSize > 0) {
    // No SIGPIPE when the peer has gone: the write just fails.
    const ssize_t l_n = ::send(p_nFd, p_pData, p_nSize, MSG_NOSIGNAL);
    if (l_n < 0 && errno == EINTR) continue;
    if (l_n <= 0) return false;
    p_pData += l_n;
    p_nSize -= static_cast<size_t>(l_n);
  }
  return true;
}

// One side of a raw script: sends the frames of its own direction and
// acknowledges the others.
bool PlayScript(int p_nFd, const std::vector<RawFrame>& p_aScript, bool p_bServer,
                std::vector<char>& p_aBuffer) {
  char l_cAck = 'a';
  for (const RawFrame& l_cFrame : p_aScript) {
    const bool l_bSend = l_cFrame.m_bToServer != p_bServer;
    if (l_bSend) {
      if (!WriteAll(p_nFd, p_aBuffer.data(), l_cFrame.m_nSize)) return false;
      if (!ReadAll(p_nFd, &l_cAck, 1)) return false;
    } else {
      if (!ReadAll(p_nFd, p_aBuffer.data(), l_cFrame.m_nSize)) return false;
      if (!WriteAll(p_nFd, &l_cAck, 1)) return false;
    }
  }
  return true;
}

const wxSocketFlags BLOCKING_FLAGS = wxSOCKET_WAITALL | wxSOCKET_BLOCK;

}  // namespace

// ---------------------------------------------------------------------------
// DispatcherServer

namespace {

// Runs the main thread's event loop until the function, run on a thread of
// its own meanwhile, has returned.
void WhileRunningEvents(const std::function<void()>& p_fWork) {
  std::atomic<bool> l_bDone{false};
  std::thread l_cWorker([&] {
    p_fWork();
    l_bDone = true;
  });
  wxAppConsole* l_pcApp = wxAppConsole::GetInstance();
  std::unique_ptr<wxEventLoopBase> l_pcLoop(l_pcApp->GetTraits()->CreateEventLoop());
  wxEventLoopActivator l_cActive(l_pcLoop.get());
  while (!l_bDone.load()) {
    l_pcLoop->DispatchTimeout(10);
    l_pcApp->ProcessPendingEvents();
  }
  l_cWorker.join();
}

}  // namespace

DispatcherServer::DispatcherServer(const Matrix& p_aadResults)
    : m_pcServer(new quor::SteeringServer), m_pcHandler(new quor::SteeringHandler) {
  quor::Model* l_pcNet = new quor::Model(NULL, wxT("net"), 2, 3);
  l_pcNet->SetPlaceNames({wxT("A"), wxT("B"), wxT("C")});
  l_pcNet->SetTransitionNames({wxT("t1"), wxT("t2")});
  std::vector<wxString> l_asParameters;
  for (int i = 0; i < 16; ++i) l_asParameters.push_back(wxString::Format(wxT("k%d"), i));
  l_pcNet->SetAttributeValue(wxT("PARAMETER_NAMES"), l_asParameters);
  l_pcNet->SetInitialParameterValues(std::vector<double>(16, 0.5));
  l_pcNet->SetCurrentParameterValues(std::vector<double>(16, 0.5));
  const int l_nNet = m_pcHandler->GetStore().AddModel(l_pcNet);
  m_pcHandler->GetStore().SetResultMatrix(l_nNet, p_aadResults);
  m_pcHandler->GetStore().SetSimulatorState(l_nNet, 1);

  m_pcServer->SetPort(0);
  m_pcServer->SetAddress(wxT("127.0.0.1"));
  if (!m_pcServer->DoStartServer(0)) Fail("cannot listen on 127.0.0.1");
  m_pcDispatcher.reset(new quor::SteeringDispatcher(*m_pcServer, *m_pcHandler));
  m_pcDispatcher->SetTimeout(SOCKET_TIMEOUT_SECONDS);
  if (!m_pcDispatcher->Start()) Fail("the dispatcher does not start");
}

DispatcherServer::~DispatcherServer() {
  m_pcDispatcher.reset();
  m_pcServer->GetServerSocket()->Destroy();
}

void ClientDeleter::operator()(quor::SteeringClient* p_pcClient) const {
  delete p_pcClient->GetModel();
  delete p_pcClient;
}

RegisteredClient DispatcherServer::Connect() {
  std::vector<RegisteredClient> l_apcClients = ConnectMany(1);
  return std::move(l_apcClients.front());
}

std::vector<RegisteredClient> DispatcherServer::ConnectMany(size_t p_nClients) {
  std::vector<RegisteredClient> l_apcClients;
  const wxString l_sService = wxString::Format(wxT("%u"), m_pcServer->GetPort());
  for (size_t i = 0; i < p_nClients; ++i) {
    l_apcClients.emplace_back(new quor::SteeringClient(wxT("127.0.0.1"), l_sService));
    l_apcClients.back()->SetTimeout(SOCKET_TIMEOUT_SECONDS);
  }
  std::atomic<size_t> l_nFailed{0};
  WhileRunningEvents([&] {
    for (RegisteredClient& l_pcClient : l_apcClients) {
      if (l_pcClient->ConnectToServer(true) != 1 || l_pcClient->Initialize(0) != 1) ++l_nFailed;
    }
  });
  if (l_nFailed.load() != 0) Fail("a client cannot connect through the dispatcher");
  return l_apcClients;
}

// ---------------------------------------------------------------------------
// LoopbackServer

LoopbackServer::LoopbackServer(const Matrix* p_pcMatrix, quor::Model* p_pcModel)
    : m_pcMatrix(p_pcMatrix), m_pcModel(p_pcModel), m_nPort(0) {
  std::promise<unsigned short> l_cPort;
  std::future<unsigned short> l_cPortReady = l_cPort.get_future();
  // The promise moves into the thread: it is still in use there for a
  // moment after the port has been handed over.
  m_cThread = std::thread([this](std::promise<unsigned short> l_cPort) {
    wxIPV4address l_cAddress;
    l_cAddress.Hostname(wxT("127.0.0.1"));
    l_cAddress.Service(0);
    wxSocketServer* l_pcListener = new wxSocketServer(l_cAddress, BLOCKING_FLAGS);
    if (!l_pcListener->IsOk()) {
      l_cPort.set_value(0);
      delete l_pcListener;
      return;
    }
    wxIPV4address l_cLocal;
    l_pcListener->GetLocal(l_cLocal);
    l_cPort.set_value(l_cLocal.Service());
    wxSocketBase* l_pcSocket = l_pcListener->Accept(true);
    l_pcListener->Close();
    delete l_pcListener;
    if (l_pcSocket == NULL) return;
    Serve(l_pcSocket);
    l_pcSocket->Close();
    delete l_pcSocket;
  }, std::move(l_cPort));
  m_nPort = l_cPortReady.get();
  if (m_nPort == 0) {
    m_cThread.join();
    Fail("cannot listen on 127.0.0.1");
  }
}

LoopbackServer::~LoopbackServer() { Join(); }

void LoopbackServer::Join() {
  if (m_cThread.joinable()) m_cThread.join();
}

wxString LoopbackServer::Service() const { return wxString::Format(wxT("%u"), m_nPort); }

// What a simulation application does with the server-side halves of the
// library, minus the simulation: every request is answered as soon as its
// frames are in.
void LoopbackServer::Serve(void* p_pcRawSocket) {
  wxSocketBase* l_pcSocket = static_cast<wxSocketBase*>(p_pcRawSocket);
  l_pcSocket->SetFlags(BLOCKING_FLAGS);
  l_pcSocket->SetTimeout(SOCKET_TIMEOUT_SECONDS);
  int l_nOn = 1;
  l_pcSocket->SetOption(IPPROTO_TCP, TCP_NODELAY, &l_nOn, sizeof(l_nOn));

  quor::SteeringCMD l_cHalves(l_pcSocket);
  const unsigned int l_nVersion = quor::STEERING_PROTOCOL_VERSION;
  if (l_cHalves.SendValue(&l_nVersion, 4) != 1) return;

  for (;;) {
    int l_nCode = 0;
    if (l_cHalves.ReceiveValue(&l_nCode, 4) != 1) return;
    switch (l_nCode) {
      case quor::REQUEST_READ_RESULT_MATRIX: {
        if (m_pcMatrix == NULL) return;
        if (l_cHalves.SendVector2D(*m_pcMatrix) != 1) return;
        break;
      }
      case quor::REQUEST_INITIALIZE: {
        const unsigned int l_nReply = 1;
        if (l_cHalves.SendValue(&l_nReply, 4) != 1) return;
        break;
      }
      case quor::REQUEST_STEERING_OPTION: {
        int l_nOption = 0;
        if (l_cHalves.ReceiveValue(&l_nOption, 4) != 1) return;
        if (l_nOption == quor::STEERING_NEW_MODEL) {
          quor::Model* l_pcModel = l_cHalves._ReceiveExistingModel(l_pcSocket);
          if (l_pcModel == NULL) return;
          delete l_pcModel;
        } else {
          int l_nIndex = 0;
          if (l_cHalves.ReceiveValue(&l_nIndex, 4) != 1 || m_pcModel == NULL) return;
          m_pcModel->SetClientSocket(l_pcSocket);
          const unsigned int l_nResult = l_cHalves._SendExistingModel(m_pcModel);
          m_pcModel->SetClientSocket(NULL);
          if (l_nResult != 1) return;
        }
        break;
      }
      default:
        return;
    }
  }
}

// ---------------------------------------------------------------------------
// LoopbackSession

LoopbackSession::LoopbackSession(const Matrix* p_pcMatrix, quor::Model* p_pcModel)
    : m_cServer(p_pcMatrix, p_pcModel),
      m_pcClient(new quor::SteeringClient(wxT("127.0.0.1"), m_cServer.Service())) {
  m_pcClient->SetTimeout(SOCKET_TIMEOUT_SECONDS);
  if (m_pcClient->ConnectToServer(true) != 1) Fail("the client cannot connect");
}

LoopbackSession::~LoopbackSession() {
  // Closing the client's connection ends the server's loop.
  m_pcClient->DisConnectFromServer();
  m_cServer.Join();
  m_pcClient.reset();
}

// ---------------------------------------------------------------------------
// RawPingPong

RawPingPong::RawPingPong(const std::vector<RawFrame>& p_aScript)
    : m_aScript(p_aScript), m_nClientFd(-1) {
  size_t l_nLargest = 1;
  for (const RawFrame& l_cFrame : m_aScript) l_nLargest = std::max(l_nLargest, l_cFrame.m_nSize);
  m_aBuffer.assign(l_nLargest, 'x');

  const int l_nListener = ::socket(AF_INET, SOCK_STREAM, 0);
  if (l_nListener < 0) Fail("socket()");
  sockaddr_in l_cAddress;
  std::memset(&l_cAddress, 0, sizeof(l_cAddress));
  l_cAddress.sin_family = AF_INET;
  l_cAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  l_cAddress.sin_port = 0;
  socklen_t l_nLength = sizeof(l_cAddress);
  if (::bind(l_nListener, reinterpret_cast<sockaddr*>(&l_cAddress), sizeof(l_cAddress)) != 0 ||
      ::listen(l_nListener, 1) != 0 ||
      ::getsockname(l_nListener, reinterpret_cast<sockaddr*>(&l_cAddress), &l_nLength) != 0)
    Fail("cannot listen on 127.0.0.1");

  m_cThread = std::thread([this, l_nListener, l_nLargest] {
    const int l_nFd = ::accept(l_nListener, NULL, NULL);
    ::close(l_nListener);
    if (l_nFd < 0) return;
    SetNoDelay(l_nFd);
    std::vector<char> l_aBuffer(l_nLargest, 'y');
    while (PlayScript(l_nFd, m_aScript, true, l_aBuffer)) {
    }
    ::close(l_nFd);
  });

  m_nClientFd = ::socket(AF_INET, SOCK_STREAM, 0);
  if (m_nClientFd < 0 ||
      ::connect(m_nClientFd, reinterpret_cast<sockaddr*>(&l_cAddress), sizeof(l_cAddress)) != 0)
    Fail("cannot connect to 127.0.0.1");
  SetNoDelay(m_nClientFd);
}

RawPingPong::~RawPingPong() {
  if (m_nClientFd >= 0) {
    ::shutdown(m_nClientFd, SHUT_RDWR);
    ::close(m_nClientFd);
  }
  if (m_cThread.joinable()) m_cThread.join();
}

bool RawPingPong::Run() { return PlayScript(m_nClientFd, m_aScript, false, m_aBuffer); }

// ---------------------------------------------------------------------------
// Data

Matrix SmoothMatrix(size_t p_nRows, size_t p_nColumns) {
  std::mt19937_64 l_cRandom(20261122u);
  std::uniform_real_distribution<double> l_cUnit(0.0, 1.0);
  Matrix l_aadMatrix(p_nRows, std::vector<double>(p_nColumns));
  for (size_t l_nRow = 0; l_nRow < p_nRows; ++l_nRow) {
    const double l_dAmplitude = 1.0 + 99.0 * l_cUnit(l_cRandom);
    const double l_dDecay = 0.1 + 2.0 * l_cUnit(l_cRandom);
    const double l_dWave = 0.5 + 5.0 * l_cUnit(l_cRandom);
    const double l_dPhase = 6.283185307179586 * l_cUnit(l_cRandom);
    const double l_dDamping = 0.05 * l_cUnit(l_cRandom);
    const double l_dLevel = 50.0 * l_cUnit(l_cRandom);
    const double l_dRise = 0.2 + l_cUnit(l_cRandom);
    std::vector<double>& l_adRow = l_aadMatrix[l_nRow];
    for (size_t l_nColumn = 0; l_nColumn < p_nColumns; ++l_nColumn) {
      const double l_dTime = 0.01 * static_cast<double>(l_nColumn);
      l_adRow[l_nColumn] = l_dAmplitude * std::exp(-l_dDecay * l_dTime) +
                           0.3 * l_dAmplitude * std::exp(-l_dDamping * l_dTime) *
                               std::sin(l_dWave * l_dTime + l_dPhase) +
                           l_dLevel * (1.0 - std::exp(-l_dRise * l_dTime));
    }
  }
  return l_aadMatrix;
}

namespace {
std::vector<wxString> Names(char p_cPrefix, size_t p_nCount) {
  std::vector<wxString> l_asNames;
  l_asNames.reserve(p_nCount);
  char l_sText[32];
  for (size_t i = 0; i < p_nCount; ++i) {
    std::snprintf(l_sText, sizeof(l_sText), "%c_%06zu", p_cPrefix, i);
    l_asNames.push_back(wxString::FromAscii(l_sText));
  }
  return l_asNames;
}

quor::ModelView* BuildView(const wxString& p_sName, const std::vector<wxString>& p_asCurves,
                           quor::RM_ROW_TYPE p_eType) {
  quor::ModelView* l_pcView = new quor::ModelView(p_sName, NULL);
  l_pcView->SetTitle(p_sName + wxT(" over time"));
  static const char* const COLOURS[] = {"red", "green", "blue", "black", "orange"};
  const size_t l_nCurves = std::min<size_t>(10, p_asCurves.size());
  for (size_t i = 0; i < l_nCurves; ++i) {
    wxString l_sCurve = p_asCurves[i];
    l_pcView->AddNewCurve(i, l_sCurve, 1, 0, p_eType, wxString::FromAscii(COLOURS[i % 5]), true);
  }
  return l_pcView;
}
}  // namespace

std::unique_ptr<quor::Model> BuildNet(size_t p_nSize) {
  const unsigned long long l_nSize = p_nSize;
  std::unique_ptr<quor::Model> l_pcModel(new quor::Model(
      NULL, wxString::Format(wxT("net_%zu"), p_nSize), l_nSize, l_nSize));
  const std::vector<wxString> l_asPlaces = Names('P', p_nSize);
  const std::vector<wxString> l_asTransitions = Names('T', p_nSize);
  l_pcModel->SetPlaceNames(l_asPlaces);
  l_pcModel->SetTransitionNames(l_asTransitions);
  for (unsigned long long t = 0; t < l_nSize; ++t) {
    l_pcModel->SetTransitionPreConnection(t, t, quor::CONNECTION_STANDARD_ARC, 1.0);
    if (t % 10 == 0)
      l_pcModel->SetTransitionPreConnection(t, (t + 2) % l_nSize, quor::CONNECTION_READ_ARC, 1.0);
    l_pcModel->SetTransitionPostConnection(t, (t + 1) % l_nSize, 1.0);
  }
  std::vector<double> l_adMarking(p_nSize);
  for (size_t i = 0; i < p_nSize; ++i) l_adMarking[i] = static_cast<double>(i % 7);
  l_pcModel->SetInitialMarking(l_adMarking);

  const std::vector<wxString> l_asParameters = Names('k', 10);
  l_pcModel->SetAttributeValue(wxT("PARAMETER_NAMES"), l_asParameters);
  l_pcModel->SetInitialParameterValues(std::vector<double>(10, 0.5));

  l_pcModel->AddModelView(BuildView(wxT("Places"), l_asPlaces, quor::RM_ROW_TYPE_PLACE));
  l_pcModel->AddModelView(
      BuildView(wxT("Transitions"), l_asTransitions, quor::RM_ROW_TYPE_TRANSITION));
  l_pcModel->SetActiveView(0);
  return l_pcModel;
}

size_t PackSet(quor::SteeringVector& p_cSet, std::vector<char>& p_aBuffer) {
  size_t l_nTotal = 0;
  for (auto& l_cEntry : *p_cSet.GetAttributeList())
    if (l_cEntry.second != NULL) l_nTotal += l_cEntry.second->GetPackungSize();
  if (p_aBuffer.size() < l_nTotal) p_aBuffer.resize(l_nTotal);
  size_t l_nOffset = 0;
  for (auto& l_cEntry : *p_cSet.GetAttributeList())
    if (l_cEntry.second != NULL) l_nOffset += l_cEntry.second->PackValue(&p_aBuffer[l_nOffset]);
  return l_nOffset;
}

void UnpackSet(quor::SteeringVector& p_cSet, const std::vector<char>& p_aBuffer) {
  size_t l_nOffset = 0;
  for (auto& l_cEntry : *p_cSet.GetAttributeList())
    if (l_cEntry.second != NULL) l_nOffset += l_cEntry.second->UnPackValue(&p_aBuffer[l_nOffset]);
}

size_t ZlibRoundTrip(const void* p_pData, size_t p_nSize, std::vector<unsigned char>& p_aPacked,
                     std::vector<unsigned char>& p_aUnpacked) {
  const uLong l_nBound = compressBound(static_cast<uLong>(p_nSize));
  if (p_aPacked.size() < l_nBound) p_aPacked.resize(l_nBound);
  if (p_aUnpacked.size() < p_nSize) p_aUnpacked.resize(p_nSize);
  uLongf l_nPacked = l_nBound;
  if (compress(p_aPacked.data(), &l_nPacked, static_cast<const Bytef*>(p_pData),
               static_cast<uLong>(p_nSize)) != Z_OK)
    return 0;
  uLongf l_nUnpacked = static_cast<uLongf>(p_nSize);
  if (uncompress(p_aUnpacked.data(), &l_nUnpacked, p_aPacked.data(), l_nPacked) != Z_OK)
    return 0;
  return l_nPacked;
}

size_t DeflateRoundTrip(const void* p_pData, size_t p_nSize,
                        std::vector<unsigned char>& p_aPacked,
                        std::vector<unsigned char>& p_aUnpacked) {
#ifdef QUOR_HAVE_LIBDEFLATE
  static thread_local libdeflate_compressor* s_pcCompressor = libdeflate_alloc_compressor(6);
  static thread_local libdeflate_decompressor* s_pcDecompressor = libdeflate_alloc_decompressor();
  const size_t l_nBound = compressBound(static_cast<uLong>(p_nSize));
  if (p_aPacked.size() < l_nBound) p_aPacked.resize(l_nBound);
  if (p_aUnpacked.size() < p_nSize) p_aUnpacked.resize(p_nSize);
  const size_t l_nPacked = libdeflate_zlib_compress(s_pcCompressor, p_pData, p_nSize,
                                                    p_aPacked.data(), l_nBound);
  if (l_nPacked == 0) return 0;
  if (libdeflate_zlib_decompress(s_pcDecompressor, p_aPacked.data(), l_nPacked,
                                 p_aUnpacked.data(), p_nSize, NULL) != LIBDEFLATE_SUCCESS)
    return 0;
  return l_nPacked;
#else
  return ZlibRoundTrip(p_pData, p_nSize, p_aPacked, p_aUnpacked);
#endif
}

const char* DeflateName() {
#ifdef QUOR_HAVE_LIBDEFLATE
  return "libdeflate";
#else
  return "zlib";
#endif
}

}  // namespace quor_bench
