// SPDX-License-Identifier: MIT
#include "raw_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <stdexcept>

namespace quor_test {

Bytes Hex(const std::string& p_sHex) {
  Bytes l_a;
  int l_nHigh = -1;
  for (char l_c : p_sHex) {
    int l_nDigit;
    if (l_c >= '0' && l_c <= '9') l_nDigit = l_c - '0';
    else if (l_c >= 'a' && l_c <= 'f') l_nDigit = l_c - 'a' + 10;
    else if (l_c >= 'A' && l_c <= 'F') l_nDigit = l_c - 'A' + 10;
    else continue;
    if (l_nHigh < 0) {
      l_nHigh = l_nDigit;
    } else {
      l_a.push_back(static_cast<uint8_t>(l_nHigh * 16 + l_nDigit));
      l_nHigh = -1;
    }
  }
  if (l_nHigh >= 0) throw std::invalid_argument("odd number of hex digits");
  return l_a;
}

std::string ToHex(const Bytes& p_aBytes) {
  static const char* s_sDigits = "0123456789abcdef";
  std::string l_s;
  for (size_t i = 0; i < p_aBytes.size(); ++i) {
    if (i) l_s += ' ';
    l_s += s_sDigits[p_aBytes[i] >> 4];
    l_s += s_sDigits[p_aBytes[i] & 15];
  }
  return l_s;
}

Bytes Cat(std::initializer_list<Bytes> p_aParts) {
  Bytes l_a;
  for (const Bytes& l_aPart : p_aParts) l_a.insert(l_a.end(), l_aPart.begin(), l_aPart.end());
  return l_a;
}

Bytes Text(const std::string& p_s) { return Bytes(p_s.begin(), p_s.end()); }

RawPeer::RawPeer(int p_nFd) : m_nFd(p_nFd) {
  int l_nOne = 1;
  setsockopt(m_nFd, IPPROTO_TCP, TCP_NODELAY, &l_nOne, sizeof(l_nOne));
}

RawPeer::~RawPeer() { Close(); }

void RawPeer::Close() {
  if (m_nFd >= 0) {
    ::close(m_nFd);
    m_nFd = -1;
  }
}

Bytes RawPeer::Read(size_t n) {
  Bytes l_a(n);
  size_t l_nDone = 0;
  while (l_nDone < n && m_nFd >= 0) {
    pollfd l_cPoll{m_nFd, POLLIN, 0};
    int l_nReady = ::poll(&l_cPoll, 1, m_nTimeoutMillis);
    if (l_nReady < 0 && errno == EINTR) continue;
    if (l_nReady <= 0) break;
    ssize_t l_nGot = ::recv(m_nFd, l_a.data() + l_nDone, n - l_nDone, 0);
    if (l_nGot < 0 && errno == EINTR) continue;
    if (l_nGot <= 0) break;
    l_nDone += static_cast<size_t>(l_nGot);
  }
  l_a.resize(l_nDone);
  m_aReceived.insert(m_aReceived.end(), l_a.begin(), l_a.end());
  if (l_nDone < n) m_bFailed = true;
  return l_a;
}

bool RawPeer::Write(const Bytes& p_aBytes) {
  size_t l_nDone = 0;
  while (l_nDone < p_aBytes.size() && m_nFd >= 0) {
    ssize_t l_nPut = ::send(m_nFd, p_aBytes.data() + l_nDone,
                            p_aBytes.size() - l_nDone, MSG_NOSIGNAL);
    if (l_nPut < 0 && errno == EINTR) continue;
    if (l_nPut <= 0) break;
    l_nDone += static_cast<size_t>(l_nPut);
  }
  m_aSent.insert(m_aSent.end(), p_aBytes.begin(), p_aBytes.begin() + l_nDone);
  if (l_nDone < p_aBytes.size()) m_bFailed = true;
  return l_nDone == p_aBytes.size();
}

Bytes RawPeer::RecvFrame(size_t n) {
  if (n <= 100) {
    Bytes l_a = Read(n);
    if (l_a.size() == n) Ack();
    return l_a;
  }
  Bytes l_aLength = Read(8);
  if (l_aLength.size() != 8) return {};
  Ack();
  uint64_t l_nCompressed = 0;
  std::memcpy(&l_nCompressed, l_aLength.data(), 8);
  Bytes l_aStream = Read(static_cast<size_t>(l_nCompressed));
  if (l_aStream.size() != l_nCompressed) return {};
  Ack();
  Bytes l_aValue(n);
  uLongf l_nLength = static_cast<uLongf>(n);
  if (uncompress(l_aValue.data(), &l_nLength, l_aStream.data(),
                 static_cast<uLong>(l_aStream.size())) != Z_OK ||
      l_nLength != n) {
    m_bFailed = true;
    return {};
  }
  return l_aValue;
}

std::string RawPeer::RecvString() {
  uint64_t l_nCount = RecvValue<uint64_t>();
  Bytes l_a = RecvFrame(static_cast<size_t>(l_nCount));
  return std::string(l_a.begin(), l_a.end());
}

bool RawPeer::SendFrame(const Bytes& p_aValue) {
  if (p_aValue.size() <= 100) {
    if (!Write(p_aValue)) return false;
    return Read(1).size() == 1;
  }
  uLongf l_nBound = compressBound(static_cast<uLong>(p_aValue.size()));
  Bytes l_aStream(l_nBound);
  compress(l_aStream.data(), &l_nBound, p_aValue.data(),
           static_cast<uLong>(p_aValue.size()));
  l_aStream.resize(l_nBound);
  uint64_t l_nLength = l_nBound;
  if (!Write(Le(l_nLength)) || Read(1).size() != 1) return false;
  if (!Write(l_aStream)) return false;
  return Read(1).size() == 1;
}

bool RawPeer::SendString(const std::string& p_sText) {
  uint64_t l_nCount = p_sText.size();
  return SendValue(l_nCount) && SendFrame(Text(p_sText));
}

Bytes RawPeer::ReceivedFrom(size_t p_nOffset) const {
  if (p_nOffset >= m_aReceived.size()) return {};
  return Bytes(m_aReceived.begin() + p_nOffset, m_aReceived.end());
}

bool RawPeer::WaitForClose(int p_nMillis) {
  pollfd l_cPoll{m_nFd, POLLIN, 0};
  if (::poll(&l_cPoll, 1, p_nMillis) <= 0) return false;
  char l_c;
  return ::recv(m_nFd, &l_c, 1, MSG_PEEK) == 0;
}

namespace {
int ListenLoopback(int p_nBacklog, unsigned short* p_pnPort) {
  int l_nFd = ::socket(AF_INET, SOCK_STREAM, 0);
  if (l_nFd < 0) throw std::runtime_error("socket() failed");
  sockaddr_in l_cAddr{};
  l_cAddr.sin_family = AF_INET;
  l_cAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  l_cAddr.sin_port = 0;
  if (::bind(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), sizeof(l_cAddr)) != 0 ||
      ::listen(l_nFd, p_nBacklog) != 0) {
    ::close(l_nFd);
    throw std::runtime_error("bind/listen on loopback failed");
  }
  socklen_t l_nLen = sizeof(l_cAddr);
  ::getsockname(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), &l_nLen);
  *p_pnPort = ntohs(l_cAddr.sin_port);
  return l_nFd;
}

int AcceptWithin(int p_nListenFd, int p_nMillis) {
  pollfd l_cPoll{p_nListenFd, POLLIN, 0};
  if (::poll(&l_cPoll, 1, p_nMillis) <= 0) return -1;
  return ::accept(p_nListenFd, nullptr, nullptr);
}
}  // namespace

RawListener::RawListener(int p_nBacklog) { m_nFd = ListenLoopback(p_nBacklog, &m_nPort); }

RawListener::~RawListener() {
  if (m_nFd >= 0) ::close(m_nFd);
}

std::unique_ptr<RawPeer> RawListener::Accept(int p_nTimeoutMillis) {
  int l_nFd = AcceptWithin(m_nFd, p_nTimeoutMillis);
  if (l_nFd < 0) return nullptr;
  return std::make_unique<RawPeer>(l_nFd);
}

LoopbackPair::LoopbackPair(int p_nTimeoutSeconds) {
  RawListener l_cListener;
  m_pcSocket = new wxSocketClient(wxSOCKET_WAITALL | wxSOCKET_BLOCK);
  m_pcSocket->SetTimeout(p_nTimeoutSeconds);
  wxIPV4address l_cAddress;
  l_cAddress.Hostname(wxT("127.0.0.1"));
  l_cAddress.Service(l_cListener.Port());
  // A blocking connect on loopback completes at once: the listener's
  // backlog accepts it before Accept() is called.
  m_pcSocket->Connect(l_cAddress, true);
  m_pcPeer = l_cListener.Accept();
  if (!m_pcSocket->IsConnected() || !m_pcPeer)
    throw std::runtime_error("loopback connection failed");
  // Lock-step frames would otherwise wait for delayed TCP acknowledgements.
  int l_nOne = 1;
  setsockopt(m_pcSocket->GetSocket(), IPPROTO_TCP, TCP_NODELAY, &l_nOne, sizeof(l_nOne));
}

LoopbackPair::~LoopbackPair() {
  Join();
  m_pcPeer.reset();
  // Deleted at once: no event can be pending for a socket that never
  // notified, and a test process may have no event loop to run Destroy().
  delete m_pcSocket;
}

void LoopbackPair::Run(std::function<void(RawPeer&)> p_fScript) {
  Join();
  m_cThread = std::thread([this, p_fScript] { p_fScript(*m_pcPeer); });
}

void LoopbackPair::Join() {
  if (m_cThread.joinable()) m_cThread.join();
}

}  // namespace quor_test
