// SPDX-License-Identifier: MIT
// Value and string frames.
//
// A value whose size both ends already know travels as one frame: up to 100
// bytes raw, 101 bytes and more as an 8-byte compressed length (itself a
// frame) followed by the zlib stream. The receiver acknowledges every frame
// with the byte 0x61. A string is an 8-byte character count frame followed
// by a frame of that many bytes. There is no type tag and no resynchronising:
// both ends call matching operations in the same order with the same sizes,
// and a failure in the middle of a frame leaves the connection unusable.
#ifndef QUOR_STEERINGBASE_H
#define QUOR_STEERINGBASE_H

#include "quor/steeringcommunicator.h"

namespace quor {

// Values of up to this many bytes travel uncompressed.
constexpr unsigned int RAW_FRAME_LIMIT = 100;
// The acknowledgement byte.
constexpr char FRAME_ACK = 'a';

class SteeringBase : public SteeringCommunicator {
 public:
  explicit SteeringBase(wxSocketBase* p_pcSocket);
  ~SteeringBase() override;

  // Sends `size` bytes as one frame and waits for the acknowledgement.
  // Returns 1, the failing transfer's code, or FAILURE without a socket.
  unsigned int SendValue(const void* data, const unsigned int& size);

  // Receives one frame of `size` bytes into `data` (REQUIRES: `data` holds
  // `size` bytes) and acknowledges it. Returns 1, the failing transfer's
  // code, FAILURE without a socket, or 0 after "Error: cannot allocate
  // memory" when the announced compressed length cannot be allocated.
  unsigned int ReceiveValue(void* data, const unsigned int& size);

  // The character count (8 bytes), then that many bytes of the text in the
  // C library's locale encoding.
  unsigned int SendString(const wxString& value);

  // The mirror of SendString; `value` is unchanged on failure.
  unsigned int ReceiveString(wxString& value);

  // Decodes received text as UTF-8, falling back to one character per byte
  // (Latin-1) when the text is not valid UTF-8.
  static wxString StrTowxString(char* text);
};

}  // namespace quor

#endif  // QUOR_STEERINGBASE_H
