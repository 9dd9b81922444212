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
// (The byte rules themselves are in coding.h.)
//
// What a receive commits grows with the bytes that arrive: a compressed
// stream is read in pieces into a block that grows as they come, and a
// value's storage is made only once its bytes are there. Sizes a peer
// announces are checked against the frame rules and against the
// communicator's value limit (GetMaxValueSize) before anything is sized by
// them.
#ifndef QUOR_STEERINGBASE_H
#define QUOR_STEERINGBASE_H

#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

#include "quor/coding.h"
#include "quor/export.h"
#include "quor/steeringcommunicator.h"

namespace quor {

class QUOR_API SteeringBase : public SteeringCommunicator {
 public:
  explicit SteeringBase(wxSocketBase* p_pcSocket);
  ~SteeringBase() override;

  // Sends `size` bytes as one frame and waits for the acknowledgement.
  // Returns 1, the failing transfer's code, or FAILURE without a socket.
  unsigned int SendValue(const void* data, const unsigned int& size);

  // Receives one frame of `size` bytes into `data` (REQUIRES: `data` holds
  // `size` bytes) and acknowledges it. Returns 1, the failing transfer's
  // code, FAILURE without a socket or for a compressed length of 0 (no
  // stream is empty, so the frame was cut short), or 0 after "Error: cannot
  // allocate memory" when the compressed length is more than zlib needs for
  // `size` bytes (compressBound) or its block cannot be allocated. A stream
  // that is corrupt, ends early or runs on is not refused: the frame reports
  // 1, `data` holds what the stream produced and zeros after it, and
  // LastFrameClean() is false.
  unsigned int ReceiveValue(void* data, const unsigned int& size);

  // The same frame, received into storage that p_fStorage(p_nSize) makes: a
  // char* to p_nSize writable bytes (it may throw std::bad_alloc). The
  // storage is made only once the frame's bytes are here (for a compressed
  // frame, its whole stream), so a peer that announces a value and sends
  // nothing costs nothing, and a failed frame leaves the storage unmade. 0
  // after "Error: cannot allocate memory" when the storage cannot be made.
  template <typename F>
  unsigned int ReceiveValueInto(unsigned int p_nSize, F p_fStorage) {
    MadeStorage<F> l_cStorage(p_fStorage);
    return ReceiveFrame(p_nSize, l_cStorage);
  }

  // Where ReceiveValueInParts puts part p_nIndex of a frame: a char* to the
  // part's writable bytes, or NULL when the part cannot be made (its maker
  // has said why).
  typedef std::function<char*(unsigned long long p_nIndex)> PartMaker;

  // The same frame, received straight into consecutive parts of p_nPart
  // bytes (REQUIRES: p_nPart > 0 and divides p_nSize) that p_fPart makes
  // in order once the frame's bytes reach them. A compressed frame's stream
  // is read in pieces of at most STREAM_PIECE bytes and inflated as it
  // comes, so that besides the parts the receiver holds one piece. Parts
  // that the stream does not reach are still made, and zeroed (the frame is
  // then not clean, as ReceiveValue's). Results as ReceiveValue's; FAILURE,
  // with the rest of the frame still read and acknowledged, when a part
  // cannot be made.
  unsigned int ReceiveValueInParts(unsigned int p_nSize, unsigned int p_nPart,
                                   const PartMaker& p_fPart);

  // The character count (8 bytes), then that many bytes of the text in the
  // C library's locale encoding.
  unsigned int SendString(const wxString& value);

  // The mirror of SendString; `value` is unchanged on failure. A count that
  // no frame can carry, or whose text would cost more than the value limit,
  // gives "Error: cannot allocate memory" and 0 before the text is read.
  unsigned int ReceiveString(wxString& value);

  // Decodes received text (coding::DecodeText): UTF-8, falling back to one
  // character per byte (Latin-1) when the text is not valid UTF-8.
  static wxString StrTowxString(char* text);

  // The receiving half of SteeringVector::SendArray: the element count (8
  // bytes), then, if it is not 0, count * sizeof(T) bytes as one value,
  // straight into p_aList. The list is emptied first. Results: FAILURE when
  // the count cannot be received; 1 for a count of 0; "Error: cannot
  // allocate memory" and FAILURE when the elements cannot travel as one frame
  // or would cost more than the value limit (checked before the list is
  // sized) or cannot be allocated; otherwise the elements' frame result.
  template <typename T>
  unsigned int ReceiveArray(std::vector<T>& p_aList) {
    p_aList.clear();
    unsigned long long l_nCount = 0;
    if (ReceiveValue(&l_nCount, sizeof(l_nCount)) != 1) return FAILURE;
    return ReceiveArrayOf(l_nCount, p_aList);
  }

  // The second half of ReceiveArray, for a receiver that has read the count
  // itself: the list is emptied, and for a count other than 0 the elements
  // are received as ReceiveArray receives them, with the same results.
  template <typename T>
  unsigned int ReceiveArrayOf(unsigned long long l_nCount, std::vector<T>& p_aList) {
    static_assert(std::is_trivially_copyable<T>::value && !std::is_same<T, bool>::value,
                  "raw bytes only");
    p_aList.clear();
    if (l_nCount == 0) return 1;
    unsigned int l_nLength = 0;
    TRY_ALLOC(l_nLength = AffordableFrame(l_nCount, sizeof(T)), return FAILURE);
    return NoMemoryIsFailure(ReceiveValueInto(l_nLength, [&](unsigned int) {
      p_aList.resize(l_nCount);
      return reinterpret_cast<char*>(p_aList.data());
    }));
  }

  // A packed block: its size as an 8-byte total, then the block as one
  // value. 1, or the first failing frame's result.
  unsigned int SendBlock(const void* p_pBlock, unsigned long long p_nSize);

  // Unpacks a received block: gets the block and its size; true when every
  // part was read.
  typedef std::function<bool(const char* p_pBlock, unsigned long long p_nSize)> BlockUnpacker;

  // The mirror of SendBlock. The total is checked before anything is sized
  // by it (more than one frame carries, or more than the value limit:
  // "Error: cannot allocate memory" and FAILURE); the block is received and
  // then unpacked with UnpackBlock under this communicator's value limit.
  // Returns the total's or the block's failing frame result, or
  // UnpackBlock's result.
  unsigned int ReceiveBlock(const BlockUnpacker& p_fUnpack);

  // Runs p_fUnpack over a block that came from a peer, inside an
  // UnpackBounds scope over exactly the block whose memory budget is
  // p_nBudget. 1 when it read every part within the block; "Error: cannot
  // allocate memory" and FAILURE when what it built would exceed the budget
  // (or an allocation failed); FAILURE when it ran past the block. Usable
  // without a connection (a fuzz target feeds it bytes).
  static unsigned int UnpackBlock(const char* p_pBlock, unsigned long long p_nSize,
                                  unsigned long long p_nBudget,
                                  const BlockUnpacker& p_fUnpack);

  // p_nCount elements of p_nWidth bytes as one frame's length. Throws
  // std::bad_alloc (for TRY_ALLOC) when they do not fit one frame or would
  // cost more than the value limit.
  unsigned int AffordableFrame(unsigned long long p_nCount, unsigned long long p_nWidth) const;
  // The same judgement without throwing: true when AffordableFrame accepts.
  bool Affords(unsigned long long p_nCount, unsigned long long p_nWidth) const;
  // Throws std::bad_alloc (for TRY_ALLOC) when p_nBytes exceed the value
  // limit.
  void RequireAffordable(unsigned long long p_nBytes) const;

 protected:
  // A frame's 0 (its storage could not be made, already logged) as the
  // FAILURE of the operations whose allocation failures are FAILURE.
  static unsigned int NoMemoryIsFailure(unsigned int p_nResult) {
    return p_nResult == 0 ? FAILURE : p_nResult;
  }

 private:
  // Where a received frame's bytes go.
  class FrameStorage {
   public:
    // The caller's own destination, written as bytes arrive; NULL when the
    // storage is made once they are here.
    virtual char* Fixed() { return NULL; }
    // REQUIRES: Fixed() is NULL. p_nSize writable bytes; may throw.
    virtual char* Make(unsigned int p_nSize) = 0;

   protected:
    ~FrameStorage() {}
  };
  template <typename F>
  class MadeStorage : public FrameStorage {
   public:
    explicit MadeStorage(F& p_fMake) : m_rMake(p_fMake) {}
    char* Make(unsigned int p_nSize) override { return m_rMake(p_nSize); }

   private:
    F& m_rMake;
  };
  class FixedStorage;

  unsigned int ReceiveFrame(unsigned int p_nSize, FrameStorage& p_cStorage);
  // A compressed frame's length, for a value of p_nSize bytes: 1; FAILURE
  // for a length of 0 (no stream is empty: the frame was cut short); 0
  // after "Error: cannot allocate memory" for a length that no stream of
  // p_nSize bytes needs (more than compressBound).
  unsigned int ReceiveStreamLength(unsigned int p_nSize, unsigned long long* p_pnLength);
  // Reads a compressed frame's stream of p_nLength bytes in pieces into a
  // block that grows as they arrive. 1, the failing read's code, or 0 after
  // "Error: cannot allocate memory".
  unsigned int ReceiveStream(unsigned long long p_nLength, std::unique_ptr<char[]>* p_pcStream);
};

}  // namespace quor

#endif  // QUOR_STEERINGBASE_H
