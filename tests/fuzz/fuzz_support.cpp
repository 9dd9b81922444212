// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <wx/app.h>
#include <wx/apptrait.h>
#include <wx/evtloop.h>
#include <wx/init.h>
#include <wx/log.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "quor/attributeStruct.h"
#include "quor/attributeTransitionConnection.h"
#include "quor/attributeVector.h"
#include "quor/attributeVectorAttribute.h"
#include "quor/coding.h"
#include "quor/coloredmodel.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringBase.h"
#include "quor/steeringclient.h"
#include "quor/steeringmodelstore.h"
#include "quor/steeringserver.h"

#if defined(__SANITIZE_ADDRESS__)
#define QUOR_FUZZ_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QUOR_FUZZ_ASAN 1
#endif
#endif

#ifdef QUOR_FUZZ_ASAN
// The sanitizer allocator's interface (declared here: GCC ships no header
// for it).
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*p_pfMalloc)(const volatile void*, size_t),
                                              void (*p_pfFree)(const volatile void*));
size_t __sanitizer_get_allocated_size(const volatile void* p_p);
}
#endif

using namespace quor;

namespace quor_fuzz {

// Diagnostics and set-up.

void Fail(const char* p_sFormat, ...) {
  std::fprintf(stderr, "quor-fuzz: ");
  va_list l_cArgs;
  va_start(l_cArgs, p_sFormat);
  std::vfprintf(stderr, p_sFormat, l_cArgs);
  va_end(l_cArgs);
  std::fprintf(stderr, "\n");
  std::fflush(stderr);
  std::abort();
}

namespace {

// Drops every log line, or prints it when QUOR_FUZZ_LOG is set.
class FuzzLog : public wxLog {
 public:
  explicit FuzzLog(bool p_bPrint) : m_bPrint(p_bPrint) {}

 protected:
  void DoLogTextAtLevel(wxLogLevel p_nLevel, const wxString& p_sText) override {
    if (m_bPrint)
      std::fprintf(stderr, "log %lu: %s\n", static_cast<unsigned long>(p_nLevel),
                   static_cast<const char*>(p_sText.utf8_str()));
  }

 private:
  bool m_bPrint;
};

// A wxWidgets assertion means the library misused wxWidgets on a peer's
// bytes: a finding.
void AbortOnAssert(const wxString& p_sFile, int p_nLine, const wxString& p_sFunction,
                   const wxString& p_sCondition, const wxString& p_sMessage) {
  Fail("wxWidgets assertion %s(%d) in %s: %s %s",
       static_cast<const char*>(p_sFile.utf8_str()), p_nLine,
       static_cast<const char*>(p_sFunction.utf8_str()),
       static_cast<const char*>(p_sCondition.utf8_str()),
       static_cast<const char*>(p_sMessage.utf8_str()));
}

#ifdef QUOR_FUZZ_ASAN
std::atomic<long long> g_nInUse{0};
std::atomic<long long> g_nPeak{0};
// While an AllocationBound lives: the heap in use that no allocation may
// take it above.
std::atomic<bool> g_bBounded{false};
std::atomic<long long> g_nLimit{0};
std::atomic<long long> g_nStart{0};
std::atomic<size_t> g_nInputSize{0};
thread_local bool g_bReporting = false;

void OnMalloc(const volatile void*, size_t p_nSize) {
  const long long l_nNow =
      g_nInUse.fetch_add(static_cast<long long>(p_nSize), std::memory_order_relaxed) +
      static_cast<long long>(p_nSize);
  long long l_nPeak = g_nPeak.load(std::memory_order_relaxed);
  while (l_nNow > l_nPeak &&
         !g_nPeak.compare_exchange_weak(l_nPeak, l_nNow, std::memory_order_relaxed)) {
  }
  // Fails right here, so that the report's stack shows who allocated.
  if (g_bBounded.load(std::memory_order_relaxed) && l_nNow > g_nLimit.load(std::memory_order_relaxed) &&
      !g_bReporting) {
    g_bReporting = true;
    Fail("%zu input bytes made the library allocate %lld bytes at once (allowed: %lld); "
         "the allocation of %zu bytes that went past the bound:",
         g_nInputSize.load(), l_nNow - g_nStart.load(), g_nLimit.load() - g_nStart.load(), p_nSize);
  }
}

// Runs before the block is released, while its size is still known.
void OnFree(const volatile void* p_p) {
  if (p_p == nullptr) return;
  g_nInUse.fetch_sub(static_cast<long long>(__sanitizer_get_allocated_size(p_p)),
                     std::memory_order_relaxed);
}
#endif

// Kept for the whole process (the fuzzer never returns from its loop).
wxInitializer* g_pcInitializer = nullptr;
wxEventLoopBase* g_pcLoop = nullptr;

}  // namespace

void Initialize() {
  static bool s_bDone = false;
  if (s_bDone) return;
  s_bDone = true;
  g_pcInitializer = new wxInitializer();
  if (!g_pcInitializer->IsOk()) Fail("wxWidgets cannot be initialised");
  std::setlocale(LC_ALL, "C.UTF-8");
  wxSocketBase::Initialize();
  delete wxLog::SetActiveTarget(new FuzzLog(std::getenv("QUOR_FUZZ_LOG") != nullptr));
  wxSetAssertHandler(AbortOnAssert);
  std::signal(SIGPIPE, SIG_IGN);
  g_pcLoop = wxAppConsole::GetInstance()->GetTraits()->CreateEventLoop();
#ifdef QUOR_FUZZ_ASAN
  __sanitizer_install_malloc_and_free_hooks(OnMalloc, OnFree);
#endif
}

void PumpEvents(int p_nMillis) {
  wxEventLoopActivator l_cActivator(g_pcLoop);
  g_pcLoop->DispatchTimeout(p_nMillis);
  wxAppConsole::GetInstance()->ProcessPendingEvents();
}

void WakeUpEvents() { g_pcLoop->WakeUp(); }

// Inputs and scripts.

uint8_t Input::Byte() { return m_pNext < m_pEnd ? *m_pNext++ : 0; }

uint32_t Input::Number() {
  uint32_t l_nValue = 0;
  for (int i = 0; i < 4; ++i) l_nValue |= static_cast<uint32_t>(Byte()) << (8 * i);
  return l_nValue;
}

Bytes Input::Wire() const { return WireOf(m_pNext, RestSize()); }

Bytes CompressedBody(const Bytes& p_aValue) {
  uLongf l_nLength = compressBound(static_cast<uLong>(p_aValue.size()));
  Bytes l_aBody(8 + l_nLength);
  compress(l_aBody.data() + 8, &l_nLength, p_aValue.data(), static_cast<uLong>(p_aValue.size()));
  const uint64_t l_nLength64 = l_nLength;
  std::memcpy(l_aBody.data(), &l_nLength64, 8);
  l_aBody.resize(8 + l_nLength);
  return l_aBody;
}

Bytes WireOf(const uint8_t* p_pScript, size_t p_nSize) {
  Bytes l_aWire;
  size_t l_nAt = 0;
  while (l_nAt < p_nSize) {
    const uint8_t l_nTag = p_pScript[l_nAt++];
    uint32_t l_nLength = 0;
    for (int i = 0; i < 4 && l_nAt < p_nSize; ++i)
      l_nLength |= static_cast<uint32_t>(p_pScript[l_nAt++]) << (8 * i);
    const size_t l_nTaken = std::min<size_t>(l_nLength, p_nSize - l_nAt);
    const Bytes l_aPiece(p_pScript + l_nAt, p_pScript + l_nAt + l_nTaken);
    l_nAt += l_nTaken;
    if (l_nTag & SCRIPT_COMPRESSED) {
      const Bytes l_aBody = CompressedBody(l_aPiece);
      l_aWire.insert(l_aWire.end(), l_aBody.begin(), l_aBody.end());
    } else {
      l_aWire.insert(l_aWire.end(), l_aPiece.begin(), l_aPiece.end());
    }
  }
  return l_aWire;
}

void AppendPiece(Bytes& p_aScript, ScriptTag p_eTag, const Bytes& p_aBytes) {
  p_aScript.push_back(p_eTag);
  const uint32_t l_nLength = static_cast<uint32_t>(p_aBytes.size());
  for (int i = 0; i < 4; ++i) p_aScript.push_back(static_cast<uint8_t>(l_nLength >> (8 * i)));
  p_aScript.insert(p_aScript.end(), p_aBytes.begin(), p_aBytes.end());
}

namespace {

// The value of a compressed frame body at p_nAt (see ScriptOf), or false.
bool CompressedBodyAt(const Bytes& p_aWire, size_t p_nAt, Bytes* p_paValue, size_t* p_pnNext) {
  if (p_aWire.size() - p_nAt < 10) return false;
  uint64_t l_nLength = 0;
  std::memcpy(&l_nLength, &p_aWire[p_nAt], 8);
  if (l_nLength < 2 || l_nLength > p_aWire.size() - p_nAt - 8) return false;
  const uint8_t* l_pStream = &p_aWire[p_nAt + 8];
  if ((l_pStream[0] & 0x0f) != Z_DEFLATED || ((l_pStream[0] << 8) | l_pStream[1]) % 31 != 0)
    return false;

  z_stream l_cStream;
  std::memset(&l_cStream, 0, sizeof(l_cStream));
  if (inflateInit(&l_cStream) != Z_OK) return false;
  l_cStream.next_in = const_cast<Bytef*>(l_pStream);
  l_cStream.avail_in = static_cast<uInt>(l_nLength);
  Bytes l_aValue;
  int l_nCode = Z_OK;
  while (l_nCode == Z_OK && l_aValue.size() < (64u << 20)) {
    uint8_t l_anChunk[16384];
    l_cStream.next_out = l_anChunk;
    l_cStream.avail_out = sizeof(l_anChunk);
    l_nCode = inflate(&l_cStream, Z_NO_FLUSH);
    l_aValue.insert(l_aValue.end(), l_anChunk, l_anChunk + (sizeof(l_anChunk) - l_cStream.avail_out));
  }
  const bool l_bWhole = l_nCode == Z_STREAM_END && l_cStream.avail_in == 0;
  inflateEnd(&l_cStream);
  // A stream that inflates whole and ends exactly at its announced length is
  // a compressed frame of that value. Its deflate bytes need not be zlib's
  // (the library may compress with another deflate implementation): the
  // script keeps the value, and a replay compresses it again.
  if (!l_bWhole) return false;
  *p_paValue = l_aValue;
  *p_pnNext = p_nAt + 8 + l_nLength;
  return true;
}

}  // namespace

Bytes ScriptOf(const Bytes& p_aWire) {
  Bytes l_aScript;
  Bytes l_aRaw;
  size_t l_nAt = 0;
  while (l_nAt < p_aWire.size()) {
    Bytes l_aValue;
    size_t l_nNext = 0;
    if (CompressedBodyAt(p_aWire, l_nAt, &l_aValue, &l_nNext)) {
      if (!l_aRaw.empty()) AppendPiece(l_aScript, SCRIPT_RAW, l_aRaw);
      l_aRaw.clear();
      AppendPiece(l_aScript, SCRIPT_COMPRESSED, l_aValue);
      l_nAt = l_nNext;
    } else {
      l_aRaw.push_back(p_aWire[l_nAt++]);
    }
  }
  if (!l_aRaw.empty()) AppendPiece(l_aScript, SCRIPT_RAW, l_aRaw);
  return l_aScript;
}

// Reference frames.

bool FrameReader::Value(uint32_t p_nSize, Bytes* p_paValue, bool* p_pbExact) {
  *p_pbExact = true;
  if (p_nSize <= RAW_FRAME_LIMIT) {
    if (m_aWire.size() - m_nAt < p_nSize) return false;
    p_paValue->assign(m_aWire.begin() + m_nAt, m_aWire.begin() + m_nAt + p_nSize);
    m_nAt += p_nSize;
    return true;
  }
  uint64_t l_nLength = 0;
  if (!Number(&l_nLength) || l_nLength > m_aWire.size() - m_nAt) return false;
  // The library refuses a stream too short to ever give the whole value
  // (deflate gives at most about 1032 bytes per byte), before sizing it.
  if (p_nSize > 1032ull * l_nLength + 1024) return false;
  p_paValue->assign(p_nSize, 0);
  uLongf l_nProduced = p_nSize;
  const int l_nCode = uncompress(p_paValue->data(), &l_nProduced, m_aWire.data() + m_nAt,
                                 static_cast<uLong>(l_nLength));
  *p_pbExact = l_nCode == Z_OK;
  m_nAt += static_cast<size_t>(l_nLength);
  return true;
}

bool FrameReader::String(wxString* p_psValue, bool* p_pbExact) {
  uint64_t l_nCount = 0;
  if (!Number(&l_nCount) || l_nCount > 0xFFFFFFFFull) return false;
  Bytes l_aText;
  if (!Value(static_cast<uint32_t>(l_nCount), &l_aText, p_pbExact)) return false;
  l_aText.push_back(0);
  *p_psValue = SteeringBase::StrTowxString(reinterpret_cast<char*>(l_aText.data()));
  return true;
}

void CheckReceived(const char* p_sWhat, const uint8_t* p_pReceived, const Bytes& p_aExpected,
                   bool p_bExact) {
  for (size_t i = 0; i < p_aExpected.size(); ++i) {
    if (p_pReceived[i] == p_aExpected[i] || (!p_bExact && p_pReceived[i] == 0)) continue;
    Fail("%s: byte %zu of %zu is 0x%02x where the peer's bytes give 0x%02x%s", p_sWhat, i,
         p_aExpected.size(), p_pReceived[i], p_aExpected[i],
         p_bExact ? "" : " (or 0: the stream was corrupt)");
  }
}

// Connections.

void AckAtOnce(int p_nFd) {
  int l_nOne = 1;
  ::setsockopt(p_nFd, IPPROTO_TCP, TCP_QUICKACK, &l_nOne, sizeof(l_nOne));
}

Bytes Converse(int p_nFd, const Bytes& p_aOut, int p_nIdleMillis, bool p_bFailOnIdle) {
  ::fcntl(p_nFd, F_SETFL, ::fcntl(p_nFd, F_GETFL) | O_NONBLOCK);
  Bytes l_aIn;
  size_t l_nSent = 0;
  bool l_bSending = true;
  if (p_aOut.empty()) {
    ::shutdown(p_nFd, SHUT_WR);
    l_bSending = false;
  }
  for (;;) {
    pollfd l_cPoll = {p_nFd, static_cast<short>(POLLIN | (l_bSending ? POLLOUT : 0)), 0};
    const int l_nReady = ::poll(&l_cPoll, 1, p_nIdleMillis);
    if (l_nReady < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (l_nReady == 0) {
      if (p_bFailOnIdle)
        Fail("the library neither read nor closed its connection for %d ms", p_nIdleMillis);
      break;
    }
    if (l_cPoll.revents & (POLLIN | POLLHUP | POLLERR)) {
      uint8_t l_anChunk[65536];
      const ssize_t l_nGot = ::recv(p_nFd, l_anChunk, sizeof(l_anChunk), 0);
      if (l_nGot > 0) {
        l_aIn.insert(l_aIn.end(), l_anChunk, l_anChunk + l_nGot);
        AckAtOnce(p_nFd);
      } else if (l_nGot == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
        break;  // the other end closed (or reset) the connection
      }
    }
    if (l_bSending && (l_cPoll.revents & POLLOUT)) {
      const ssize_t l_nPut =
          ::send(p_nFd, p_aOut.data() + l_nSent, p_aOut.size() - l_nSent, MSG_NOSIGNAL);
      if (l_nPut > 0) l_nSent += static_cast<size_t>(l_nPut);
      if ((l_nPut < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) ||
          l_nSent == p_aOut.size()) {
        ::shutdown(p_nFd, SHUT_WR);
        l_bSending = false;
      }
    }
  }
  return l_aIn;
}

Listener& Listener::Get() {
  static Listener* s_pcListener = new Listener();
  return *s_pcListener;
}

Listener::Listener() {
  for (size_t i = 0; i < SOCKETS; ++i) {
    m_anFds[i] = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in l_cAddress;
    std::memset(&l_cAddress, 0, sizeof(l_cAddress));
    l_cAddress.sin_family = AF_INET;
    l_cAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t l_nLength = sizeof(l_cAddress);
    if (m_anFds[i] < 0 ||
        ::bind(m_anFds[i], reinterpret_cast<sockaddr*>(&l_cAddress), l_nLength) != 0 ||
        ::listen(m_anFds[i], 64) != 0 ||
        ::getsockname(m_anFds[i], reinterpret_cast<sockaddr*>(&l_cAddress), &l_nLength) != 0)
      Fail("cannot listen on the loopback interface: %s", std::strerror(errno));
    m_anPorts[i] = ntohs(l_cAddress.sin_port);
  }
}

namespace {
// Fills the headers from the front of the input; returns the wire bytes of
// the rest.
Bytes SplitInput(const uint8_t* p_pData, size_t p_nSize, std::vector<uint8_t>& p_anHeaders) {
  Input l_cInput(p_pData, p_nSize);
  for (uint8_t& l_nHeader : p_anHeaders) l_nHeader = l_cInput.Byte();
  return l_cInput.Wire();
}

void NoDelay(int p_nFd) {
  int l_nOne = 1;
  ::setsockopt(p_nFd, IPPROTO_TCP, TCP_NODELAY, &l_nOne, sizeof(l_nOne));
}
}  // namespace

int Listener::Accept(int p_nMillis) {
  const size_t l_nTurn = m_nTurn.load();
  const int l_nFd = AcceptOn(l_nTurn, p_nMillis);
  if (l_nFd >= 0) m_nTurn.store((l_nTurn + 1) % SOCKETS);
  return l_nFd;
}

int Listener::AcceptOn(size_t p_nSocket, int p_nMillis) {
  pollfd l_cPoll = {m_anFds[p_nSocket], POLLIN, 0};
  if (::poll(&l_cPoll, 1, p_nMillis) <= 0) return -1;
  const int l_nFd = ::accept4(m_anFds[p_nSocket], nullptr, nullptr, SOCK_CLOEXEC);
  if (l_nFd >= 0) NoDelay(l_nFd);
  return l_nFd;
}

Feed::Feed(const Bytes& p_aWire)
    : m_pcSocket(new wxSocketClient(wxSOCKET_WAITALL | wxSOCKET_BLOCK)),
      m_nPeer(-1),
      m_bFinished(false) {
  // A blocking connect on loopback completes at once: the listener's
  // backlog takes it before it is accepted. wxWidgets reports an I/O error
  // when a signal (libFuzzer's timer) interrupts its wait for the
  // connection, although the connection was made: the feed then tries
  // again with a fresh socket.
  for (int l_nTry = 0; l_nTry < 10; ++l_nTry) {
    if (l_nTry > 0) {
      if (m_nPeer >= 0) ::close(m_nPeer);
      delete m_pcSocket;
      m_pcSocket = new wxSocketClient(wxSOCKET_WAITALL | wxSOCKET_BLOCK);
    }
    m_pcSocket->SetTimeout(SOCKET_TIMEOUT_SECONDS);
    wxIPV4address l_cAddress;
    l_cAddress.Hostname(wxT("127.0.0.1"));
    l_cAddress.Service(Listener::Get().Port());
    m_pcSocket->Connect(l_cAddress, true);
    m_nPeer = Listener::Get().Accept(10000);
    if (m_pcSocket->IsConnected() && m_nPeer >= 0) break;
  }
  if (!m_pcSocket->IsConnected() || m_nPeer < 0)
    Fail("no loopback connection (wxSocketError %d, accepted %d)",
         static_cast<int>(m_pcSocket->LastError()), m_nPeer);
  NoDelay(static_cast<int>(m_pcSocket->GetSocket()));
  if (p_aWire.size() <= FEED_DIRECT_LIMIT) {
    size_t l_nSent = 0;
    while (l_nSent < p_aWire.size()) {
      const ssize_t l_nPut = ::send(m_nPeer, p_aWire.data() + l_nSent, p_aWire.size() - l_nSent,
                                    MSG_NOSIGNAL | MSG_DONTWAIT);
      if (l_nPut <= 0) break;
      l_nSent += static_cast<size_t>(l_nPut);
    }
    if (l_nSent == p_aWire.size()) {
      ::shutdown(m_nPeer, SHUT_WR);
      return;
    }
  }
  const int l_nPeer = m_nPeer;
  m_nPeer = -1;
  m_cPeer = std::thread([this, l_nPeer, p_aWire] {
    m_aSent = Converse(l_nPeer, p_aWire, 60000, true);
    ::close(l_nPeer);
  });
}

const Bytes& Feed::Finish() {
  if (!m_bFinished) {
    m_bFinished = true;
    m_pcSocket->Close();
    if (m_cPeer.joinable()) {
      m_cPeer.join();
    } else {
      // Everything the library sent is in the peer's buffer already.
      for (;;) {
        uint8_t l_anChunk[65536];
        const ssize_t l_nGot = ::recv(m_nPeer, l_anChunk, sizeof(l_anChunk), MSG_DONTWAIT);
        if (l_nGot <= 0) break;
        m_aSent.insert(m_aSent.end(), l_anChunk, l_anChunk + l_nGot);
      }
      ::close(m_nPeer);
    }
  }
  return m_aSent;
}

Feed::~Feed() {
  Finish();
  // Deleted at once: a socket that never notified has no event pending.
  delete m_pcSocket;
}

Reception::Reception(const uint8_t* p_pData, size_t p_nSize, unsigned int p_nHeaders)
    : m_anHeaders((Initialize(), p_nHeaders)),
      m_aWire(SplitInput(p_pData, p_nSize, m_anHeaders)),
      m_cBound(p_nSize),
      m_cFeed(m_aWire) {}

SteeringServer& LoopbackServer() {
  static SteeringServer* s_pcServer = nullptr;
  if (s_pcServer == nullptr) {
    s_pcServer = new SteeringServer();
    s_pcServer->SetAddress(wxT("127.0.0.1"));
    s_pcServer->SetPort(0);
    if (!s_pcServer->DoStartServer(0)) Fail("the steering server cannot listen");
  }
  return *s_pcServer;
}

int ConnectLoopback(unsigned short p_nPort) {
  const int l_nFd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in l_cAddress;
  std::memset(&l_cAddress, 0, sizeof(l_cAddress));
  l_cAddress.sin_family = AF_INET;
  l_cAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  l_cAddress.sin_port = htons(p_nPort);
  if (l_nFd < 0 ||
      ::connect(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddress), sizeof(l_cAddress)) != 0)
    Fail("cannot connect to port %u: %s", static_cast<unsigned int>(p_nPort), std::strerror(errno));
  NoDelay(l_nFd);
  return l_nFd;
}

ScriptedServer::ScriptedServer(const Bytes& p_aWire) : m_bFinished(false) {
  Listener::Get();
  m_cThread = std::thread([this, p_aWire] {
    Listener& l_rListener = Listener::Get();
    const size_t l_nSocket = l_rListener.Turn();
    int l_nFd = l_rListener.Accept(10000);
    const uint32_t l_nVersion = STEERING_PROTOCOL_VERSION;
    Bytes l_aOut(4);
    std::memcpy(l_aOut.data(), &l_nVersion, 4);
    l_aOut.insert(l_aOut.end(), p_aWire.begin(), p_aWire.end());
    while (l_nFd >= 0) {
      m_aFromClient = Converse(l_nFd, l_aOut, 60000, true);
      ::close(l_nFd);
      // A client acknowledges the version first. A connection on which it
      // sent nothing at all is one it gave up unread: a signal interrupted
      // its connect, and it connects again to the same port. That next
      // connection is the one served.
      if (!m_aFromClient.empty()) break;
      l_nFd = l_rListener.AcceptOn(l_nSocket, 1000);
    }
  });
}

wxString ScriptedServer::Service() const {
  return wxString::Format(wxT("%u"), static_cast<unsigned int>(Listener::Get().Port()));
}

const Bytes& ScriptedServer::Finish() {
  if (!m_bFinished) {
    m_bFinished = true;
    m_cThread.join();
  }
  return m_aFromClient;
}

ScriptedServer::~ScriptedServer() { Finish(); }

// The allocation bound.

#ifdef QUOR_FUZZ_ASAN
namespace {
size_t Allowance() {
  static const size_t s_nAllowance = [] {
    const char* l_sMegabytes = std::getenv("QUOR_FUZZ_ALLOWANCE_MB");
    return l_sMegabytes != nullptr ? static_cast<size_t>(std::strtoull(l_sMegabytes, nullptr, 10)) << 20
                                   : ALLOWANCE_BASE;
  }();
  return s_nAllowance;
}
}  // namespace
#endif

bool AllocationBound::Measured() {
#ifdef QUOR_FUZZ_ASAN
  return true;
#else
  return false;
#endif
}

AllocationBound::AllocationBound(size_t p_nInputSize) : m_nInputSize(p_nInputSize), m_nStart(0) {
#ifdef QUOR_FUZZ_ASAN
  m_nStart = g_nInUse.load();
  g_nPeak.store(m_nStart);
  g_nStart.store(m_nStart);
  g_nInputSize.store(p_nInputSize);
  g_nLimit.store(m_nStart + static_cast<long long>(Allowance() + ALLOWANCE_PER_BYTE * p_nInputSize));
  g_bBounded.store(true);
#endif
}

AllocationBound::~AllocationBound() {
#ifdef QUOR_FUZZ_ASAN
  g_bBounded.store(false);
  const long long l_nGrowth = g_nPeak.load() - m_nStart;
  const long long l_nAllowed =
      static_cast<long long>(Allowance() + ALLOWANCE_PER_BYTE * m_nInputSize);
  if (l_nGrowth > l_nAllowed)
    Fail("%zu input bytes made the library allocate %lld bytes at once (allowed: %lld)",
         m_nInputSize, l_nGrowth, l_nAllowed);
#endif
}

// Packing checks.

void CheckPacks(Attribute& p_cAttribute) {
  const unsigned int l_nSize = p_cAttribute.GetPackungSize();
  if (l_nSize == FAILURE) return;
  const wxCharBuffer l_sName = p_cAttribute.GetName().utf8_str();
  // Exactly the size announced: a longer write is a heap overflow.
  std::unique_ptr<char[]> l_cBlock(new char[l_nSize]);
  const unsigned int l_nWritten = p_cAttribute.PackValue(l_cBlock.get());
  if (l_nWritten != l_nSize)
    Fail("%s: PackValue wrote %u bytes, GetPackungSize announced %u",
         static_cast<const char*>(l_sName), l_nWritten, l_nSize);
  std::unique_ptr<Attribute> l_pcCopy(p_cAttribute.Clone());
  if (!l_pcCopy) Fail("%s: Clone failed", static_cast<const char*>(l_sName));
  coding::UnpackBounds l_cBounds(l_cBlock.get(), l_nSize);
  const unsigned int l_nRead = l_pcCopy->UnPackValue(l_cBlock.get());
  if (l_cBounds.Overrun() || l_nRead != l_nSize)
    Fail("%s: its own %u packed bytes unpack as %u bytes%s", static_cast<const char*>(l_sName),
         l_nSize, l_nRead, l_cBounds.Overrun() ? " (and read past them)" : "");
}

void CheckPacks(SteeringVector& p_cSet) {
  AttributeList* l_pcList = p_cSet.GetAttributeList();
  if (l_pcList == nullptr) return;
  for (AttributeList::value_type& l_cEntry : *l_pcList)
    if (l_cEntry.second != nullptr) CheckPacks(*l_cEntry.second);
}

void CheckModelPacks(Model& p_cModel) {
  CheckPacks(p_cModel);
  std::vector<ModelView*>* l_apcViews = p_cModel.GetModelViews();
  if (l_apcViews == nullptr) return;
  for (ModelView* l_pcView : *l_apcViews)
    if (l_pcView != nullptr) CheckPacks(*l_pcView);
}

void UseModel(Model& p_cModel) {
  const unsigned long long l_nTransitions =
      std::min<unsigned long long>(p_cModel.GetTransitionCount(), 64);
  for (unsigned long long i = 0; i < l_nTransitions; ++i) {
    p_cModel.GetTransitionPrePlaces(i);
    p_cModel.GetTransitionPostPlaces(i);
  }
  p_cModel.GetModelName();
  p_cModel.GetPlaceCount();
  p_cModel.GetActiveView();
  std::vector<wxString> l_asPlaces =
      p_cModel.FindValue<AttributeVectorString, std::vector<wxString> >(keys::PLACE_NAMES, {});
  std::vector<wxString> l_asTransitions =
      p_cModel.FindValue<AttributeVectorString, std::vector<wxString> >(keys::TRANSITION_NAMES, {});
  p_cModel.MapNames2Positions(l_asPlaces, l_asTransitions);
  p_cModel.SetMarkingValue(0, 1.0);
  p_cModel.SetParameterValue(0, 1.0);
  p_cModel.ResetCurrentMarking();
  p_cModel.ResetParameterValues();
  if (ColoredModel* l_pcColoured = dynamic_cast<ColoredModel*>(&p_cModel)) {
    unsigned long long l_nStart = 0, l_nEnd = 0;
    const unsigned long long l_nPlaces =
        std::min<unsigned long long>(l_pcColoured->GetColoredPlaceCount(), 64);
    for (unsigned long long i = 0; i < l_nPlaces; ++i)
      l_pcColoured->GetColorPlaceRange(i, l_nStart, l_nEnd);
    const unsigned long long l_nColouredTransitions =
        std::min<unsigned long long>(l_pcColoured->GetColoredTransitionCount(), 64);
    for (unsigned long long i = 0; i < l_nColouredTransitions; ++i)
      l_pcColoured->GetColorTransitionRange(i, l_nStart, l_nEnd);
  }
  std::vector<ModelView*>* l_apcViews = p_cModel.GetModelViews();
  if (l_apcViews == nullptr) return;
  for (ModelView* l_pcView : *l_apcViews) {
    if (l_pcView == nullptr) continue;
    l_pcView->GetName();
    l_pcView->GetTitle();
    AttributeVectorAttribute* l_pcCurves = l_pcView->GetCurves();
    if (l_pcCurves == nullptr) continue;
    const unsigned long long l_nCurves = std::min<unsigned long long>(l_pcCurves->size(), 64);
    for (unsigned long long i = 0; i < l_nCurves; ++i) l_pcCurves->GetElement(i);
  }
}

// Sample data.

namespace {

// A record with a field of every scalar class, a text and a list of texts.
AttributeStruct* MakeRecord(const wxString& p_sName, bool p_bFilled) {
  AttributeStruct* l_pcRecord = new AttributeStruct(p_sName);
  l_pcRecord->AddField(new AttributeBool(wxT("Bool"), p_bFilled));
  l_pcRecord->AddField(new AttributeDouble(wxT("Double"), p_bFilled ? -0.25 : 0.0));
  l_pcRecord->AddField(new AttributeInt(wxT("Int"), p_bFilled ? -7 : 0));
  AttributeVectorString* l_pcList = new AttributeVectorString(wxT("List"));
  if (p_bFilled) l_pcList->SetValue({wxT("one"), wxT(""), wxT("three")});
  l_pcRecord->AddField(l_pcList);
  l_pcRecord->AddField(new AttributeLong(wxT("Long"), p_bFilled ? -(1LL << 40) : 0));
  l_pcRecord->AddField(new Attribute(wxT("Text"), p_bFilled ? wxT("record") : wxT("")));
  l_pcRecord->AddField(new AttributeUint(wxT("Uint"), p_bFilled ? 42u : 0u));
  l_pcRecord->AddField(new AttributeUlong(wxT("Ulong"), p_bFilled ? (1ULL << 50) : 0ULL));
  return l_pcRecord;
}

Transitions SampleArcs(unsigned long long p_nFirstPlace) {
  Transitions l_cArcs;
  l_cArcs.m_anPrePlacePositions = {p_nFirstPlace};
  l_cArcs.m_acPreConnections = {{CONNECTION_STANDARD_ARC, 1.0}};
  l_cArcs.m_anPostPlacePositions = {p_nFirstPlace + 1, p_nFirstPlace + 2};
  l_cArcs.m_acPostConnections = {{CONNECTION_STANDARD_ARC, 2.0},
                                 {CONNECTION_INHIBITOR_ARC, 0.5}};
  return l_cArcs;
}

}  // namespace

Specimen MakeSpecimen(unsigned int p_nClass, bool p_bFilled) {
  Specimen l_cSpecimen;
  Attribute* l_pcAttribute = nullptr;
  switch (p_nClass % ATTRIBUTE_CLASS_COUNT) {
    case 0:
      l_pcAttribute = new Attribute(wxT("Attribute"), p_bFilled ? wxString::FromUTF8("t\xc3\xa9xt") : wxT(""));
      break;
    case 1: l_pcAttribute = new AttributeInt(wxT("AttributeInt"), p_bFilled ? -5 : 0); break;
    case 2: l_pcAttribute = new AttributeUint(wxT("AttributeUint"), p_bFilled ? 0xFFFFFFFFu : 0u); break;
    case 3: l_pcAttribute = new AttributeLong(wxT("AttributeLong"), p_bFilled ? LLONG_MIN : 0LL); break;
    case 4: l_pcAttribute = new AttributeUlong(wxT("AttributeUlong"), p_bFilled ? ULLONG_MAX : 0ULL); break;
    case 5: l_pcAttribute = new AttributeDouble(wxT("AttributeDouble"), p_bFilled ? 1.5 : 0.0); break;
    case 6: l_pcAttribute = new AttributeBool(wxT("AttributeBool"), p_bFilled); break;
    case 7: {
      AttributeVectorDouble* l_pc = new AttributeVectorDouble(wxT("AttributeVectorDouble"));
      if (p_bFilled) l_pc->SetValue({0.5, 1e300, -0.0});
      l_pcAttribute = l_pc;
      break;
    }
    case 8: {
      AttributeVectorInt* l_pc = new AttributeVectorInt(wxT("AttributeVectorInt"));
      if (p_bFilled) l_pc->SetValue({1, -1, 7});
      l_pcAttribute = l_pc;
      break;
    }
    case 9: {
      AttributeVectorULong* l_pc = new AttributeVectorULong(wxT("AttributeVectorULong"));
      if (p_bFilled) l_pc->SetValue({0ULL, 1ULL, ULLONG_MAX});
      l_pcAttribute = l_pc;
      break;
    }
    case 10: {
      AttributeVectorString* l_pc = new AttributeVectorString(wxT("AttributeVectorString"));
      if (p_bFilled) l_pc->SetValue({wxT("ab"), wxT(""), wxString::FromUTF8("\xc3\xa9")});
      l_pcAttribute = l_pc;
      break;
    }
    case 11: {
      l_cSpecimen.m_pcPrototype.reset(MakeRecord(wxT("Prototype"), false));
      AttributeVectorAttribute* l_pc =
          new AttributeVectorAttribute(wxT("AttributeVectorAttribute"), l_cSpecimen.m_pcPrototype.get());
      if (p_bFilled) {
        l_pc->AddElement(MakeRecord(wxT("Prototype"), true));
        l_pc->AddElement(MakeRecord(wxT("Prototype"), false));
      }
      l_pcAttribute = l_pc;
      break;
    }
    case 12: {
      AttributeVectorULong2ULong* l_pc = new AttributeVectorULong2ULong(wxT("AttributeVectorULong2ULong"));
      if (p_bFilled) {
        l_pc->AddElement(1, 2);
        l_pc->AddElement(3, ULLONG_MAX);
      }
      l_pcAttribute = l_pc;
      break;
    }
    case 13: l_pcAttribute = MakeRecord(wxT("AttributeStruct"), p_bFilled); break;
    default: {
      AttributeTransitionConnection* l_pc =
          new AttributeTransitionConnection(wxT("AttributeTransitionConnection"), p_bFilled ? 2 : 0);
      if (p_bFilled) l_pc->SetValue({SampleArcs(0), SampleArcs(1)});
      l_pcAttribute = l_pc;
      break;
    }
  }
  l_cSpecimen.m_pcAttribute.reset(l_pcAttribute);
  return l_cSpecimen;
}

void AddAllSpecimens(SteeringVector& p_cSet, std::vector<Specimen>& p_acKeep, bool p_bFilled) {
  for (unsigned int l_nClass = 0; l_nClass < ATTRIBUTE_CLASS_COUNT; ++l_nClass) {
    Specimen l_cSpecimen = MakeSpecimen(l_nClass, p_bFilled);
    Attribute* l_pcAttribute = l_cSpecimen.m_pcAttribute.release();
    p_cSet.AddAttribute(l_pcAttribute->GetName(), l_pcAttribute);
    p_acKeep.push_back(std::move(l_cSpecimen));
  }
}

ModelView* SampleView() {
  ModelView* l_pcView = new ModelView(wxT("Marking"), nullptr);
  l_pcView->SetTitle(wxT("Marking over time"));
  l_pcView->SetAttributeValue(wxString(keys::X_AXIS_LABEL), wxString(wxT("time")));
  const wxChar* l_asNames[] = {wxT("S"), wxT("I"), wxT("R")};
  const wxChar* l_asColours[] = {wxT("blue"), wxT("red"), wxT("green")};
  for (unsigned long long i = 0; i < 3; ++i) {
    wxString l_sName = l_asNames[i];
    l_pcView->AddNewCurve(i, l_sName, 2, 100, RM_ROW_TYPE_PLACE, l_asColours[i], i != 2);
  }
  return l_pcView;
}

namespace {
void FillNet(Model& p_cModel) {
  p_cModel.SetPlaceNames({wxT("S"), wxT("I"), wxT("R")});
  p_cModel.SetTransitionNames({wxT("infect"), wxT("recover")});
  p_cModel.SetAttributeValue(wxString(keys::PARAMETER_NAMES),
                             std::vector<wxString>{wxT("beta"), wxT("gamma")});
  p_cModel.SetAttributeValue(wxString(keys::TRANSITION_FUNCTIONS),
                             std::vector<wxString>{wxT("beta"), wxT("gamma")});
  p_cModel.SetInitialMarking({990.0, 10.0, 0.0});
  p_cModel.SetInitialParameterValues({0.0003, 0.1});
  p_cModel.SetTransitionPreConnection(0ULL, 0ULL, CONNECTION_STANDARD_ARC, 1.0);
  p_cModel.SetTransitionPreConnection(0ULL, 1ULL, CONNECTION_STANDARD_ARC, 1.0);
  p_cModel.SetTransitionPostConnection(0ULL, 1ULL, 2.0);
  p_cModel.SetTransitionPreConnection(1ULL, 1ULL, CONNECTION_STANDARD_ARC, 1.0);
  p_cModel.SetTransitionPostConnection(1ULL, 2ULL, 1.0);
  p_cModel.SetOutputStartPoint(0.0);
  p_cModel.SetOutputEndPoint(50.0);
  p_cModel.SetOutputSamplingSize(0.25);
  AttributeVectorULong* l_pcSteered = p_cModel.FindAttribute<AttributeVectorULong>(keys::STEERED_PARAM);
  if (l_pcSteered != nullptr) l_pcSteered->SetValue({0ULL});
  p_cModel.AddModelView(SampleView());
}
}  // namespace

Model* SampleModel() {
  Model* l_pcModel = new Model(nullptr, wxT("sir"), 2, 3);
  FillNet(*l_pcModel);
  return l_pcModel;
}

ColoredModel* SampleColoredModel() {
  ColoredModel* l_pcModel = new ColoredModel(nullptr, wxT("coloured sir"), 2, 3, 2, 1);
  FillNet(*l_pcModel);
  l_pcModel->SetColoredPlaceNames({wxT("People"), wxT("Gone")});
  l_pcModel->SetColoredTransitionNames({wxT("Change")});
  l_pcModel->SetColorPlaceRange(0, 0, 1);
  l_pcModel->SetColorPlaceRange(1, 2, 2);
  l_pcModel->SetColorTransitionRange(0, 0, 1);
  return l_pcModel;
}

void FillSettings(SimulatorAttribute& p_cSettings) {
  p_cSettings.AddAttribute(wxT("steps"), wxT("Steps"), wxT("100"), 1, 0.0, 1e6);
  p_cSettings.AddAttribute(wxT("method"), wxT("Method"), wxT("rk45"), 2, 0.0, 0.0);
  p_cSettings.SetPossibleValues(1, {wxT("rk45"), wxT("euler")});
}

void FillRuntimeState(ModelRuntimeState& p_cState) {
  p_cState.SetAttributeValue(wxString(keys::SIMULATOR_STATE), 1);
  p_cState.SetAttributeValue(wxString(keys::SIMULATOR_RUNTIME), 2.5);
  p_cState.SetAttributeValue(wxString(keys::SIMULATOR_PROGRESS), 0.5);
  p_cState.SetAttributeValue(wxString(keys::SIMULATOR_CATEGORY), wxString(wxT("Continuous")));
  p_cState.SetAttributeValue(wxString(keys::CURRENT_SIMULATOR_ALGORITHM), wxString(wxT("rk45")));
  p_cState.SetAttributeValue(wxString(keys::SIMULATOR_SPEED), 25);
}

std::vector<QU_SimulatorCategory> SampleSimulators() {
  std::vector<QU_SimulatorCategory> l_aList(2);
  l_aList[0].m_sCategoryName = wxT("Continuous");
  l_aList[0].m_nCategoryId = 1;
  l_aList[0].m_asSimulatorNames = {wxT("continuous")};
  l_aList[1].m_sCategoryName = wxT("Stochastic");
  l_aList[1].m_nCategoryId = 2;
  l_aList[1].m_asSimulatorNames = {wxT("stochastic"), wxT("tau-leaping")};
  return l_aList;
}

std::vector<std::vector<double> > SampleMatrix(size_t p_nRows, size_t p_nColumns) {
  std::vector<std::vector<double> > l_aadMatrix(p_nRows, std::vector<double>(p_nColumns));
  for (size_t i = 0; i < p_nRows; ++i)
    for (size_t j = 0; j < p_nColumns; ++j) l_aadMatrix[i][j] = 0.5 + static_cast<double>(i * p_nColumns + j);
  return l_aadMatrix;
}

void FillStore(SteeringModelStore& p_cStore) {
  const int l_nModel = p_cStore.AddModel(SampleModel());
  const int l_nColoured = p_cStore.AddModel(SampleColoredModel());
  for (int l_nId : {l_nModel, l_nColoured}) {
    p_cStore.SetResultMatrix(l_nId, SampleMatrix(3, 5));
    p_cStore.SetRateMatrix(l_nId, SampleMatrix(2, 5));
    ResultMatrixInfo l_cInfo(3);
    for (unsigned int l_nRow = 0; l_nRow < 3; ++l_nRow) l_cInfo.SetRowInfo(l_nRow, l_nRow, RM_ROW_TYPE_PLACE);
    p_cStore.SetResultMatrixInfo(l_nId, l_cInfo);
    ModelRuntimeState l_cState;
    FillRuntimeState(l_cState);
    p_cStore.SetRuntimeState(l_nId, l_cState);
    p_cStore.SetCurrentSimulatorName(l_nId, wxT("Continuous"), wxT("continuous"));
    p_cStore.SetErrorMessage(l_nId, wxT("the last run ended early"));
    p_cStore.SetLogMessage(l_nId, wxT("run 1 finished"));
  }
  p_cStore.SetAvailableSimulators(SampleSimulators());
  SimulatorAttribute l_cSettings;
  FillSettings(l_cSettings);
  p_cStore.SetSimulatorSettings(wxT("continuous"), l_cSettings);
}

// Client operations.

const char* ClientOpName(ClientOp p_eOp) {
  static const char* const s_asNames[CLIENT_OP_COUNT] = {
      "attach-0", "attach-1", "upload", "change-model",
      "pause", "resume", "stop", "start", "restart", "command", "command-value",
      "running-model-names", "read-result-matrix", "read-rate-matrix", "write-result-matrix",
      "read-simulator-state", "read-simulation-interval", "read-available-simulators",
      "write-available-simulators", "read-current-simulator-name", "read-model-views",
      "write-model-views", "read-model-statistics", "change-parameter", "change-place",
      "read-parameters", "read-places", "remove-model", "send-settings", "receive-settings",
      "update-result-matrix-info", "receive-error-message", "change-speed",
      "send-steered-params", "send-steered-places", "receive-steered-params",
      "receive-steered-places", "reset-parameters", "reset-marking", "read-log-message",
      "write-current-simulator-name", "write-simulator-state", "write-model-statistics"};
  return p_eOp < CLIENT_OP_COUNT ? s_asNames[p_eOp] : "unknown";
}

bool NeedsModel(ClientOp p_eOp) {
  switch (p_eOp) {
    case OP_READ_SIMULATION_INTERVAL:
    case OP_READ_MODEL_VIEWS:
    case OP_WRITE_MODEL_VIEWS:
    case OP_READ_PARAMETERS:
    case OP_READ_PLACES:
      return true;
    default:
      return false;
  }
}

namespace {
// A matrix that a receive reported as whole has rows of one length.
void CheckMatrix(unsigned int p_nResult, const std::vector<std::vector<double> >& p_aadMatrix) {
  if (p_nResult != 1) return;
  for (const std::vector<double>& l_adRow : p_aadMatrix)
    if (l_adRow.size() != p_aadMatrix[0].size())
      Fail("a received matrix has rows of %zu and %zu values", p_aadMatrix[0].size(), l_adRow.size());
}
}  // namespace

ClientRun::~ClientRun() {
  Model* l_pcCurrent = m_rClient.GetModel();
  bool l_bOurs = false;
  for (const std::unique_ptr<Model>& l_pcModel : m_apcUploaded)
    l_bOurs = l_bOurs || l_pcModel.get() == l_pcCurrent;
  if (!l_bOurs) delete l_pcCurrent;
}

unsigned int ClientRun::Run(ClientOp p_eOp) {
  SteeringClient& l_cClient = m_rClient;
  if (NeedsModel(p_eOp) && l_cClient.GetModel() == nullptr) return FAILURE;
  // After a model was received: the model must pack again.
  auto Received = [&l_cClient](unsigned int p_nResult) {
    if (p_nResult == 1 && l_cClient.GetModel() != nullptr) {
      CheckModelPacks(*l_cClient.GetModel());
      UseModel(*l_cClient.GetModel());
    }
    return p_nResult;
  };
  switch (p_eOp) {
    case OP_ATTACH_0: return Received(l_cClient.Initialize(0));
    case OP_ATTACH_1: return Received(l_cClient.Initialize(1));
    case OP_UPLOAD:
      m_apcUploaded.emplace_back(SampleModel());
      return l_cClient.Initialize(m_apcUploaded.back().get());
    case OP_CHANGE_MODEL: {
      Model* l_pcBefore = l_cClient.GetModel();
      const unsigned int l_nResult = l_cClient._ChangeCurrentModel(0);
      if (l_cClient.GetModel() != l_pcBefore) {
        // The client deleted its current model: if it was ours, it is gone.
        for (size_t i = 0; i < m_apcUploaded.size(); ++i)
          if (m_apcUploaded[i].get() == l_pcBefore) {
            m_apcUploaded[i].release();
            m_apcUploaded.erase(m_apcUploaded.begin() + static_cast<long>(i));
            break;
          }
      }
      return Received(l_nResult);
    }
    case OP_PAUSE: return l_cClient.CMD_Pause();
    case OP_RESUME: return l_cClient.CMD_Resume();
    case OP_STOP: return l_cClient.CMD_Stop();
    case OP_START: return l_cClient.CMD_Start(wxT("continuous"), 0.0, 10.0, 1.0);
    case OP_RESTART: return l_cClient.CMD_Restart(wxT("continuous"), 0.0, 10.0, 1.0);
    case OP_COMMAND: return l_cClient.Send_CMD(static_cast<CMD_TYPE>(7));
    case OP_COMMAND_VALUE: return l_cClient.Send_CMD(static_cast<CMD_TYPE>(7), 2.5);
    case OP_RUNNING_MODEL_NAMES: {
      std::vector<wxString> l_asNames;
      return l_cClient.GetRuningModelNames(l_asNames);
    }
    case OP_READ_RESULT_MATRIX:
    case OP_READ_RATE_MATRIX: {
      std::vector<std::vector<double> > l_aadMatrix;
      const unsigned int l_nResult = p_eOp == OP_READ_RESULT_MATRIX ? l_cClient.ReadResultMatrix(l_aadMatrix)
                                                                    : l_cClient.ReadRateMatrix(l_aadMatrix);
      CheckMatrix(l_nResult, l_aadMatrix);
      return l_nResult;
    }
    case OP_WRITE_RESULT_MATRIX: {
      std::vector<std::vector<double> > l_aadMatrix = SampleMatrix(2, 3);
      return l_cClient.WriteResultMatrix(l_aadMatrix);
    }
    case OP_READ_SIMULATOR_STATE: {
      int l_nState = 0;
      return l_cClient.ReadSimulatorState(l_nState);
    }
    case OP_READ_SIMULATION_INTERVAL: {
      double l_dStart = 0, l_dEnd = 0, l_dSampling = 0;
      return l_cClient.ReadSimulationInterval(l_dStart, l_dEnd, l_dSampling);
    }
    case OP_READ_AVAILABLE_SIMULATORS: {
      std::vector<QU_SimulatorCategory> l_aList;
      return l_cClient.ReadAvailableSimulators(l_aList);
    }
    case OP_WRITE_AVAILABLE_SIMULATORS: return l_cClient.WriteAvailableSimulators(SampleSimulators());
    case OP_READ_CURRENT_SIMULATOR_NAME: {
      wxString l_sFirst, l_sSecond;
      return l_cClient.ReadCurrentSimulatorName(l_sFirst, l_sSecond);
    }
    case OP_READ_MODEL_VIEWS: return Received(l_cClient.ReadModelViews());
    case OP_WRITE_MODEL_VIEWS: return l_cClient.WriteModelViews();
    case OP_READ_MODEL_STATISTICS: {
      ModelRuntimeState l_cState;
      const unsigned int l_nResult = l_cClient.ReadModelStatistics(l_cState);
      if (l_nResult == 1) CheckPacks(l_cState);
      return l_nResult;
    }
    case OP_CHANGE_PARAMETER: return l_cClient.ChangeCurrentParameterValues(0, 1.5);
    case OP_CHANGE_PLACE: return l_cClient.ChangeCurrentPlaceValues(1, 2.0);
    case OP_READ_PARAMETERS: {
      std::vector<double> l_adValues;
      return l_cClient.ReadCurrentParameterValues(l_adValues);
    }
    case OP_READ_PLACES: {
      std::vector<double> l_adValues;
      return l_cClient.ReadCurrentPlaceValues(l_adValues);
    }
    case OP_REMOVE_MODEL: {
      int l_nRemoved = 0;
      return l_cClient.RemoveModel(wxT("no such model"), l_nRemoved);
    }
    case OP_SEND_SETTINGS: {
      SimulatorAttribute l_cSettings;
      FillSettings(l_cSettings);
      return l_cClient.SendSimulatorSetting(wxT("continuous"), &l_cSettings);
    }
    case OP_RECEIVE_SETTINGS: {
      SimulatorAttribute l_cSettings;
      const unsigned int l_nResult = l_cClient.ReceiveSimulatorSetting(wxT("continuous"), &l_cSettings);
      for (unsigned int i = 0; i < l_cSettings.size(); ++i) {
        wxString l_sName, l_sCaption, l_sValue;
        unsigned int l_nGui = 0;
        double l_dMin = 0, l_dMax = 0;
        l_cSettings.GetAttribute(i, l_sName, l_sCaption, l_sValue, l_nGui, l_dMin, l_dMax);
        l_cSettings.GetPossibleValues(i);
      }
      return l_nResult;
    }
    case OP_UPDATE_RESULT_MATRIX_INFO: {
      ResultMatrixInfo l_cInfo(3);
      l_cInfo.SetRowInfo(1, 7, RM_ROW_TYPE_TRANSITION);
      return l_cClient.UpdateResultMatrixInfo(&l_cInfo);
    }
    case OP_RECEIVE_ERROR_MESSAGE: {
      wxString l_sMessage;
      return l_cClient.ReceiveErrorMessage(l_sMessage);
    }
    case OP_CHANGE_SPEED: return l_cClient.ChanageSimulatorSpeed(5);
    case OP_SEND_STEERED_PARAMS: return l_cClient.SendSteeredParamPositions({0ULL, 1ULL});
    case OP_SEND_STEERED_PLACES: return l_cClient.SendSteeredPlacePositions({2ULL});
    case OP_RECEIVE_STEERED_PARAMS:
    case OP_RECEIVE_STEERED_PLACES: {
      std::vector<unsigned long long> l_anPositions;
      return p_eOp == OP_RECEIVE_STEERED_PARAMS ? l_cClient.ReceiveSteeredParamPositions(l_anPositions)
                                                : l_cClient.ReceiveSteeredPlacePositions(l_anPositions);
    }
    case OP_RESET_PARAMETERS: return l_cClient.ResetParameterValues();
    case OP_RESET_MARKING: return l_cClient.ResetMarkingValues();
    case OP_READ_LOG_MESSAGE: {
      wxString l_sMessage;
      return l_cClient.ReadLogMessage(l_sMessage);
    }
    case OP_WRITE_CURRENT_SIMULATOR_NAME:
      return l_cClient.WriteCurrentSimulatorName(wxT("Continuous"), wxT("continuous"));
    case OP_WRITE_SIMULATOR_STATE: return l_cClient.WriteSimulatorState(1);
    case OP_WRITE_MODEL_STATISTICS: {
      ModelRuntimeState l_cState;
      FillRuntimeState(l_cState);
      return l_cClient.WriteModelStatistics(l_cState);
    }
    case CLIENT_OP_COUNT: break;
  }
  return FAILURE;
}

}  // namespace quor_fuzz
