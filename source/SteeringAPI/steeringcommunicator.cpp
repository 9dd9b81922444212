// SPDX-License-Identifier: MIT
#include "quor/steeringcommunicator.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <zlib.h>

#include <cstring>

namespace quor {

namespace {
// wxWidgets applies a socket's timeout while it waits on a non-blocking
// descriptor. A socket with wxSOCKET_BLOCK waits inside the kernel instead,
// where a silent peer would hold the caller forever; the kernel's own send
// and receive timeouts bound that wait by the socket's timeout too.
void BoundKernelWaits(wxSocketBase* p_pcSocket) {
  const wxSOCKET_T l_nFd = p_pcSocket->GetSocket();
  if (l_nFd == wxSOCKET_T(-1)) return;
  timeval l_cTimeout;
  l_cTimeout.tv_sec = p_pcSocket->GetTimeout();
  l_cTimeout.tv_usec = 0;
  setsockopt(l_nFd, SOL_SOCKET, SO_RCVTIMEO, &l_cTimeout, sizeof(l_cTimeout));
  setsockopt(l_nFd, SOL_SOCKET, SO_SNDTIMEO, &l_cTimeout, sizeof(l_cTimeout));
}
}  // namespace

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

  BoundKernelWaits(m_pcClientSocket);
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

  BoundKernelWaits(m_pcClientSocket);
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
  // compress() cannot fail with a buffer of compressBound bytes.
  compress(l_pDest, &l_nBound, static_cast<const Bytef*>(source),
           static_cast<uLong>(size));
  size = l_nBound;
  return l_pDest;
}

bool SteeringCommunicator::InflateFrame(const void* p_pStream,
                                        unsigned long long p_nStreamSize, void* p_pDest,
                                        unsigned int p_nSize) {
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
