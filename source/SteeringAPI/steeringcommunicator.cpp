// SPDX-License-Identifier: MIT
#include "quor/steeringcommunicator.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <zlib.h>

#include <atomic>
#include <cstring>

#ifdef QUOR_HAVE_LIBDEFLATE
#include <libdeflate.h>
#endif

namespace quor {

namespace {
// Bumped whenever a socket may have been made anew behind a pointer that a
// communicator still holds (a client that connects again makes a new
// descriptor inside the same wxSocketClient, often with the same number).
std::atomic<unsigned long long> g_nSocketGeneration{1};

// The zlib header that zlib itself writes at the default level; the stream
// that follows it is deflate's.
constexpr int DEFAULT_LEVEL = 6;

#ifdef QUOR_HAVE_LIBDEFLATE
// One compressor per thread, made on first use and kept: making one costs
// more than compressing a small value.
struct Deflater {
  libdeflate_compressor* m_pcCompressor = NULL;
  libdeflate_decompressor* m_pcDecompressor = NULL;
  ~Deflater() {
    if (m_pcCompressor != NULL) libdeflate_free_compressor(m_pcCompressor);
    if (m_pcDecompressor != NULL) libdeflate_free_decompressor(m_pcDecompressor);
  }
  libdeflate_compressor* Compressor() {
    if (m_pcCompressor == NULL) m_pcCompressor = libdeflate_alloc_compressor(DEFAULT_LEVEL);
    return m_pcCompressor;
  }
  libdeflate_decompressor* Decompressor() {
    if (m_pcDecompressor == NULL) m_pcDecompressor = libdeflate_alloc_decompressor();
    return m_pcDecompressor;
  }
};
thread_local Deflater t_cDeflater;
#endif
}  // namespace

void SteeringCommunicator::SocketsRenewed() { ++g_nSocketGeneration; }

// wxWidgets applies a socket's timeout while it waits on a non-blocking
// descriptor. A socket with wxSOCKET_BLOCK waits inside the kernel instead,
// where a silent peer would hold the caller forever; the kernel's own send
// and receive timeouts bound that wait by the socket's timeout too. They are
// set when this communicator first uses a socket, and again when the socket,
// its descriptor, its timeout or the generation of sockets changed since.
// REQUIRES: m_cMutex is held.
void SteeringCommunicator::BoundKernelWaits() {
  const wxSOCKET_T l_nFd = m_pcClientSocket->GetSocket();
  if (l_nFd == wxSOCKET_T(-1)) return;
  const long l_nSeconds = m_pcClientSocket->GetTimeout();
  const unsigned long long l_nGeneration = g_nSocketGeneration.load(std::memory_order_relaxed);
  if (m_cTimed.m_pcSocket == m_pcClientSocket && m_cTimed.m_nFd == static_cast<long>(l_nFd) &&
      m_cTimed.m_nSeconds == l_nSeconds && m_cTimed.m_nGeneration == l_nGeneration)
    return;
  timeval l_cTimeout;
  l_cTimeout.tv_sec = l_nSeconds;
  l_cTimeout.tv_usec = 0;
  setsockopt(l_nFd, SOL_SOCKET, SO_RCVTIMEO, &l_cTimeout, sizeof(l_cTimeout));
  setsockopt(l_nFd, SOL_SOCKET, SO_SNDTIMEO, &l_cTimeout, sizeof(l_cTimeout));
  m_cTimed.m_pcSocket = m_pcClientSocket;
  m_cTimed.m_nFd = static_cast<long>(l_nFd);
  m_cTimed.m_nSeconds = l_nSeconds;
  m_cTimed.m_nGeneration = l_nGeneration;
  ++m_nTimeoutsApplied;
}

void SteeringCommunicator::SetClientSocket(wxSocketBase* p_pcSocket) {
  m_pcClientSocket = p_pcSocket;
  m_cTimed = TimedSocket();
}

SteeringCommunicator::SteeringCommunicator(wxSocketBase* p_pcSocket)
    : m_cMutex(wxMUTEX_DEFAULT), m_pcClientSocket(p_pcSocket) {}

SteeringCommunicator::~SteeringCommunicator() {}

bool SteeringCommunicator::IsConnected() {
  return m_pcClientSocket->IsConnected();
}

unsigned int SteeringCommunicator::SendBytes(const void* data,
                                             unsigned long long size) {
  wxMutexLocker l_cLock(m_cMutex);
  CHECK_POINTER(m_pcClientSocket, return FAILURE);
  if (!m_pcClientSocket->IsConnected()) return 2;

  BoundKernelWaits();
  m_pcClientSocket->Write(data, static_cast<wxUint32>(size));
  if (m_pcClientSocket->LastError() != wxSOCKET_NOERROR) {
    ShowSocketError(m_pcClientSocket->LastError());
    return 3;
  }
  return m_pcClientSocket->LastCount() == size ? 1 : 4;
}

unsigned int SteeringCommunicator::ReceiveBytes(void* data,
                                                const unsigned long long& size) {
  wxMutexLocker l_cLock(m_cMutex);
  if (!m_pcClientSocket->IsConnected()) return 2;

  BoundKernelWaits();
  m_pcClientSocket->Read(data, static_cast<wxUint32>(size));
  if (m_pcClientSocket->LastError() != wxSOCKET_NOERROR) {
    ShowSocketError(m_pcClientSocket->LastError());
    return 3;
  }
  return m_pcClientSocket->LastCount() == size ? 1 : FAILURE;
}

void SteeringCommunicator::ShowSocketError(const int& error) {
  static const wxChar* const s_asTexts[] = {
      wxT("Communication error: No error happened"),
      wxT("Communication error: Invalid operation"),
      wxT("Communication error: Input/Output error"),
      wxT("Communication error: Invalid address passed to wxSocket"),
      wxT("Communication error: Invalid socket (uninitialized)"),
      wxT("Communication error: No corresponding host"),
      wxT("Communication error: Invalid port"),
      wxT("Communication error: The socket is non-blocking and the operation "
          "would block"),
      wxT("Communication error: The timeout for this operation expired"),
      wxT("Communication error: Memory exhausted"),
  };
  if (error < 0 || error > 9) return;
  // The text is selected and dropped on purpose: socket errors reach the
  // caller as result code 3, never as a log line.
  wxString l_sText(s_asTexts[error]);
  (void)l_sText;
}

void* SteeringCommunicator::Compress(const void* source,
                                     unsigned long long& size) {
  uLongf l_nBound = compressBound(static_cast<uLong>(size));
  Bytef* l_pDest = NULL;
  TRY_ALLOC(l_pDest = new Bytef[l_nBound], return NULL);
  size = CompressInto(source, size, l_pDest, l_nBound);
  return l_pDest;
}

unsigned long long SteeringCommunicator::CompressInto(const void* p_pSource,
                                                      unsigned long long p_nSize, void* p_pDest,
                                                      unsigned long long p_nRoom) {
#ifdef QUOR_HAVE_LIBDEFLATE
  libdeflate_compressor* l_pcCompressor = t_cDeflater.Compressor();
  if (l_pcCompressor != NULL) {
    const size_t l_nLength = libdeflate_zlib_compress(l_pcCompressor, p_pSource,
                                                      static_cast<size_t>(p_nSize), p_pDest,
                                                      static_cast<size_t>(p_nRoom));
    if (l_nLength != 0) return l_nLength;
    // Did not fit the room (never so with compressBound's): zlib's stream.
  }
#endif
  uLongf l_nLength = static_cast<uLongf>(p_nRoom);
  compress2(static_cast<Bytef*>(p_pDest), &l_nLength, static_cast<const Bytef*>(p_pSource),
            static_cast<uLong>(p_nSize), DEFAULT_LEVEL);
  return l_nLength;
}

bool SteeringCommunicator::InflateFrame(const void* p_pStream,
                                        unsigned long long p_nStreamSize, void* p_pDest,
                                        unsigned int p_nSize) {
#ifdef QUOR_HAVE_LIBDEFLATE
  // A clean stream of exactly p_nSize bytes decodes here; anything else
  // (which libdeflate leaves half-written) is decoded again by zlib below,
  // which tells how far the stream went.
  libdeflate_decompressor* l_pcDecompressor = t_cDeflater.Decompressor();
  if (l_pcDecompressor != NULL) {
    size_t l_nConsumed = 0;
    size_t l_nProduced = 0;
    if (libdeflate_zlib_decompress_ex(l_pcDecompressor, p_pStream,
                                      static_cast<size_t>(p_nStreamSize), p_pDest, p_nSize,
                                      &l_nConsumed, &l_nProduced) == LIBDEFLATE_SUCCESS &&
        l_nProduced == p_nSize && l_nConsumed == p_nStreamSize)
      return true;
  }
#endif
  uLongf l_nProduced = p_nSize;
  uLong l_nConsumed = static_cast<uLong>(p_nStreamSize);
  const int l_nCode = uncompress2(static_cast<Bytef*>(p_pDest), &l_nProduced,
                                  static_cast<const Bytef*>(p_pStream), &l_nConsumed);
  if (l_nProduced > p_nSize) l_nProduced = 0;  // not a count zlib gives; trust nothing
  if (l_nProduced < p_nSize)
    std::memset(static_cast<char*>(p_pDest) + l_nProduced, 0, p_nSize - l_nProduced);
  return l_nCode == Z_OK && l_nProduced == p_nSize && l_nConsumed == p_nStreamSize;
}

unsigned long long SteeringCommunicator::GetMaxValueSize() const {
  return m_pcOwner != NULL ? m_pcOwner->GetMaxValueSize() : m_nMaxValueSize;
}

void SteeringCommunicator::NoteFrame(bool p_bClean) {
  for (SteeringCommunicator* l_pc = this; l_pc != NULL; l_pc = l_pc->m_pcOwner) {
    l_pc->m_bLastFrameClean = p_bClean;
    if (!p_bClean) ++l_pc->m_nUncleanFrames;
  }
}

SteeringCommunicator::ReceivingFor::ReceivingFor(SteeringCommunicator& p_cHelper,
                                                 SteeringCommunicator& p_cOwner)
    : m_rHelper(p_cHelper), m_pcPreviousOwner(p_cHelper.m_pcOwner) {
  if (&p_cHelper != &p_cOwner) m_rHelper.m_pcOwner = &p_cOwner;
}

SteeringCommunicator::ReceivingFor::~ReceivingFor() { m_rHelper.m_pcOwner = m_pcPreviousOwner; }

int SteeringCommunicator::Uncompress(const void* source, void* dest,
                                     const unsigned long long& sourceSize,
                                     const unsigned long long& destSize) {
  uLongf l_nLength = static_cast<uLongf>(destSize);
  return uncompress(static_cast<Bytef*>(dest), &l_nLength,
                    static_cast<const Bytef*>(source),
                    static_cast<uLong>(sourceSize));
}

}  // namespace quor
