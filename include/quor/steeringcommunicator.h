// SPDX-License-Identifier: MIT
// The root of the wire stack: one socket pointer, one mutex, and the only raw
// transfers of the library (one blocking write or read of a byte block), plus
// zlib's one-shot compression.
#ifndef QUOR_STEERINGCOMMUNICATOR_H
#define QUOR_STEERINGCOMMUNICATOR_H

#include <wx/socket.h>
#include <wx/thread.h>

#include "quor/utilities.h"

namespace quor {

class SteeringCommunicator {
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

  // zlib compress() at the default level into a new[] block of
  // compressBound(size) bytes; `size` becomes the compressed length. Returns
  // NULL (after logging "Error: cannot allocate memory") when the block
  // cannot be allocated. The caller frees the block with delete[].
  void* Compress(const void* source, unsigned long long& size);

  // zlib uncompress() of `sourceSize` bytes into at most `destSize` bytes;
  // returns zlib's code (Z_OK is 0).
  int Uncompress(const void* source, void* dest,
                 const unsigned long long& sourceSize,
                 const unsigned long long& destSize);

  wxSocketBase* GetClientSocket() const { return m_pcClientSocket; }
  void SetClientSocket(wxSocketBase* p_pcSocket) { m_pcClientSocket = p_pcSocket; }

 protected:
  wxMutex m_cMutex;
  wxSocketBase* m_pcClientSocket;

 private:
  SteeringCommunicator(const SteeringCommunicator&) = delete;
  SteeringCommunicator& operator=(const SteeringCommunicator&) = delete;
};

}  // namespace quor

#endif  // QUOR_STEERINGCOMMUNICATOR_H
