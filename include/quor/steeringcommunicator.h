// SPDX-License-Identifier: MIT
// The root of the wire stack: one socket pointer, one mutex, and the only raw
// transfers of the library (one blocking write or read of a byte block), plus
// one-shot compression into zlib streams (libdeflate's where the library was
// built with it, zlib's otherwise; both write the default level's header 78
// 9C, and zlib's uncompress decodes either).
#ifndef QUOR_STEERINGCOMMUNICATOR_H
#define QUOR_STEERINGCOMMUNICATOR_H

#include <wx/socket.h>
#include <wx/thread.h>

#include "quor/export.h"
#include "quor/utilities.h"

namespace quor {

class QUOR_API SteeringCommunicator {
 public:
  // Stores the socket (NULL allowed). The socket is not owned: the
  // communicator never closes or deletes it.
  explicit SteeringCommunicator(wxSocketBase* p_pcSocket);

  // Slot order: destructor, IsConnected.
  virtual ~SteeringCommunicator();

  // The socket's own connected flag. REQUIRES: a socket is set.
  virtual bool IsConnected();

  // One write of `size` bytes (the count handed to the socket is cut to 32
  // bits). Returns 1 when all bytes moved, 2 when the socket is not
  // connected, 3 on a socket error, 4 on a short write, and FAILURE when no
  // socket is set. Holds m_cMutex for the call.
  unsigned int SendBytes(const void* data, unsigned long long size);

  // One read of `size` bytes into `data` (cut to 32 bits). Returns 1 when all
  // bytes arrived, 2 when not connected, 3 on a socket error and FAILURE on a
  // short read. REQUIRES: a socket is set (callers go through SteeringBase,
  // which tests it). Holds m_cMutex for the call.
  unsigned int ReceiveBytes(void* data, const unsigned long long& size);

  // Selects the library's text for a wxSocketError code (0..9) and drops it:
  // socket errors are reported to callers by result code alone.
  void ShowSocketError(const int& error);

  // A zlib stream at the default level into a new[] block of
  // compressBound(size) bytes; `size` becomes the compressed length. Returns
  // NULL (after logging "Error: cannot allocate memory") when the block
  // cannot be allocated. The caller frees the block with delete[].
  void* Compress(const void* source, unsigned long long& size);

  // A zlib stream at the default level of p_nSize bytes at p_pSource into
  // p_pDest; returns its length. REQUIRES: p_nRoom >= compressBound(p_nSize)
  // (then the stream always fits).
  static unsigned long long CompressInto(const void* p_pSource, unsigned long long p_nSize,
                                         void* p_pDest, unsigned long long p_nRoom);

  // zlib uncompress() of `sourceSize` bytes into at most `destSize` bytes;
  // returns zlib's code (Z_OK is 0).
  int Uncompress(const void* source, void* dest,
                 const unsigned long long& sourceSize,
                 const unsigned long long& destSize);

  // Inflates a received frame's zlib stream of p_nStreamSize bytes into
  // exactly p_nSize bytes at p_pDest, never writing past them. Whatever the
  // stream did not produce is zeroed, so the destination holds the peer's
  // bytes and zeros, never earlier memory. True when the stream was a clean
  // zlib stream of exactly p_nSize bytes with nothing after it.
  static bool InflateFrame(const void* p_pStream, unsigned long long p_nStreamSize,
                           void* p_pDest, unsigned int p_nSize);

  wxSocketBase* GetClientSocket() const { return m_pcClientSocket; }
  // Hands the communicator a socket (NULL allowed). Whoever connects a
  // socket again (a new descriptor behind the same object) hands it again,
  // or calls SocketsRenewed, so that its kernel timeouts are set anew.
  void SetClientSocket(wxSocketBase* p_pcSocket);

  // Tells every communicator that a socket it holds may have a new
  // descriptor: each sets the socket's kernel timeouts again before its next
  // transfer. (The client calls it after every connect.)
  static void SocketsRenewed();

  // How often this communicator has set a socket's kernel timeouts: once per
  // socket, and again when the socket, its descriptor or its timeout change.
  unsigned long long TimeoutsApplied() const { return m_nTimeoutsApplied; }

  // The most memory one value received through this communicator may cost
  // (DEFAULT_MAX_VALUE_SIZE at construction): a text, list, matrix or block
  // whose announced size would cost more is refused as an allocation failure
  // before anything is sized by it. While the communicator receives for
  // another one (ReceivingFor), that one's limit applies.
  void SetMaxValueSize(unsigned long long p_nBytes) { m_nMaxValueSize = p_nBytes; }
  unsigned long long GetMaxValueSize() const;

  // Compressed frames whose stream was not a clean zlib stream of exactly
  // the frame's size (a corrupt, short or overlong stream, or bytes after
  // it). Such a frame still reports what a frame reports, with zeros where
  // the stream fell short; a receiver that wants to part with such a peer
  // asks here. LastFrameClean() is about the last frame received (raw frames
  // are clean); UncleanFrames() counts since construction, including the
  // frames received for this communicator by others (ReceivingFor).
  bool LastFrameClean() const { return m_bLastFrameClean; }
  unsigned long long UncleanFrames() const { return m_nUncleanFrames; }

  // While it lives, p_cHelper receives on behalf of p_cOwner on the same
  // connection (a model, a view or a runtime state that a client or a
  // server reads): p_cHelper takes p_cOwner's value limit and reports its
  // unclean frames to p_cOwner as well.
  class ReceivingFor {
   public:
    ReceivingFor(SteeringCommunicator& p_cHelper, SteeringCommunicator& p_cOwner);
    ~ReceivingFor();

   private:
    ReceivingFor(const ReceivingFor&) = delete;
    ReceivingFor& operator=(const ReceivingFor&) = delete;
    SteeringCommunicator& m_rHelper;
    SteeringCommunicator* m_pcPreviousOwner;
  };

 protected:
  // Records how the frame just received ended.
  void NoteFrame(bool p_bClean);
  // Sets the socket's kernel send and receive timeouts to its timeout unless
  // they are set already. REQUIRES: m_cMutex is held, a socket is set.
  void BoundKernelWaits();

  wxMutex m_cMutex;
  wxSocketBase* m_pcClientSocket;

 private:
  SteeringCommunicator(const SteeringCommunicator&) = delete;
  SteeringCommunicator& operator=(const SteeringCommunicator&) = delete;

  // The socket whose kernel timeouts this communicator set last, and what
  // they were set for.
  struct TimedSocket {
    wxSocketBase* m_pcSocket = NULL;
    long m_nFd = -1;
    long m_nSeconds = -1;
    unsigned long long m_nGeneration = 0;
  };
  TimedSocket m_cTimed;
  unsigned long long m_nTimeoutsApplied = 0;
  unsigned long long m_nMaxValueSize = DEFAULT_MAX_VALUE_SIZE;
  bool m_bLastFrameClean = true;
  unsigned long long m_nUncleanFrames = 0;
  SteeringCommunicator* m_pcOwner = NULL;
};

}  // namespace quor

#endif  // QUOR_STEERINGCOMMUNICATOR_H
