// SPDX-License-Identifier: MIT
// Every byte-level rule of the wire in one place.
//
// Numbers travel in the sender's native byte order (little-endian on every
// host the library serves) at their natural width, unaligned. A text travels
// as "character count, then that many bytes of the multibyte form": the
// count is the number of characters of the wxString, and the multibyte form
// is cut (or padded with zero bytes) to exactly that many bytes. Both ends
// must keep this rule as it is, even where it cuts non-ASCII text.
#ifndef QUOR_CODING_H
#define QUOR_CODING_H

#include <wx/string.h>
#include <wx/strconv.h>

#include <wx/defs.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "quor/export.h"

namespace quor {

// Frames.
//
// A value whose size both ends already know travels as one frame: up to
// RAW_FRAME_LIMIT bytes raw, larger ones as an 8-byte length (itself a
// frame) followed by zlib's stream of the value. The receiver acknowledges
// every frame with FRAME_ACK. A frame's size is an unsigned 32-bit count, so
// one frame carries at most MAX_FRAME_SIZE bytes; a size a peer announces
// beyond it cannot be honest.
constexpr unsigned int RAW_FRAME_LIMIT = 100;
constexpr char FRAME_ACK = 'a';
constexpr unsigned long long MAX_FRAME_SIZE = 0xFFFFFFFFull;

// The most memory one received value may cost by default: its bytes and
// what the receiver builds from them (texts, lists, records, rows). A
// communicator can be given another limit (SteeringCommunicator::
// SetMaxValueSize); a value beyond it is refused as an allocation failure
// before anything is sized by it.
constexpr unsigned long long DEFAULT_MAX_VALUE_SIZE = 1ull << 30;

namespace coding {

// p_nCount elements of p_nWidth bytes as the length of one frame. False when
// the product overflows or exceeds MAX_FRAME_SIZE.
inline bool FrameLength(unsigned long long p_nCount, unsigned long long p_nWidth,
                        unsigned int* p_pnLength) {
  unsigned long long l_nProduct = 0;
  if (__builtin_mul_overflow(p_nCount, p_nWidth, &l_nProduct) || l_nProduct > MAX_FRAME_SIZE)
    return false;
  *p_pnLength = static_cast<unsigned int>(l_nProduct);
  return true;
}

// p_nCount * p_nWidth, or all bits set when the product overflows: a cost
// that no limit admits.
inline unsigned long long Product(unsigned long long p_nCount, unsigned long long p_nWidth) {
  unsigned long long l_nProduct = 0;
  return __builtin_mul_overflow(p_nCount, p_nWidth, &l_nProduct) ? ~0ull : l_nProduct;
}

// What received elements cost in memory once they are built, for the checks
// made before anything is sized by a count a peer announced. A text packs in
// 4 bytes plus its characters but costs a wxString and then a wide character
// per byte; decoding n received bytes needs them zero-terminated and then
// wide twice over (the converter's buffer and the string's).
constexpr unsigned long long TEXT_COST = sizeof(wxString);
constexpr unsigned long long TEXT_CHARACTER_COST = sizeof(wxChar);
inline unsigned long long DecodedTextCost(unsigned long long p_nBytes) {
  return Product(p_nBytes + 1, 1 + 2 * sizeof(wxChar));
}

// REQUIRES: dst has room for sizeof(T) bytes. Returns the byte after it.
template <typename T>
inline char* PutFixed(char* dst, const T& value) {
  static_assert(std::is_trivially_copyable<T>::value, "raw bytes only");
  std::memcpy(dst, &value, sizeof(T));
  return dst + sizeof(T);
}

// REQUIRES: src holds sizeof(T) readable bytes. Returns the byte after it.
template <typename T>
inline const char* GetFixed(const char* src, T* value) {
  static_assert(std::is_trivially_copyable<T>::value, "raw bytes only");
  std::memcpy(value, src, sizeof(T));
  return src + sizeof(T);
}

// A bool travels as one byte, 0 or 1. A byte that a peer wrote may hold any
// value, and copying it into a bool as it is would make a bool that is
// neither true nor false: any byte other than 0 reads as true.
inline const char* GetFixed(const char* src, bool* value) {
  unsigned char l_nByte;
  std::memcpy(&l_nByte, src, 1);
  *value = l_nByte != 0;
  return src + 1;
}

// Writes the bytes of a text by the character-count rule to dst: exactly
// p_sText.length() bytes, taken from the front of its multibyte form in the
// given conversion. A multibyte form that is shorter (or a conversion that
// fails) is padded with zero bytes, so the result never reads past the
// converted buffer. Text of ASCII characters alone (whose multibyte form in
// every conversion the library meets is the characters themselves) is
// written straight, without a converted copy. REQUIRES: dst has room for
// p_sText.length() bytes. Returns the byte after them.
inline char* PutCharCountBytes(char* dst, const wxString& p_sText, const wxMBConv& p_cConv) {
  const size_t l_nCount = p_sText.length();
  if (l_nCount == 0) return dst;
  size_t l_nAscii = 0;
  for (wxString::const_iterator l_it = p_sText.begin(); l_it != p_sText.end(); ++l_it) {
    const wxUniChar l_cChar = *l_it;
    if (!l_cChar.IsAscii()) break;
    dst[l_nAscii++] = static_cast<char>(l_cChar.GetValue());
  }
  if (l_nAscii == l_nCount) return dst + l_nCount;
  const wxCharBuffer l_cBuffer = p_sText.mb_str(p_cConv);
  const size_t l_nAvailable = l_cBuffer.data() ? l_cBuffer.length() : 0;
  const size_t l_nTaken = l_nAvailable < l_nCount ? l_nAvailable : l_nCount;
  if (l_nTaken != 0) std::memcpy(dst, l_cBuffer.data(), l_nTaken);
  if (l_nTaken < l_nCount) std::memset(dst + l_nTaken, 0, l_nCount - l_nTaken);
  return dst + l_nCount;
}

// The same bytes as a string.
inline std::string CharCountBytes(const wxString& p_sText, const wxMBConv& p_cConv) {
  std::string l_sBytes(p_sText.length(), '\0');
  if (!l_sBytes.empty()) PutCharCountBytes(&l_sBytes[0], p_sText, p_cConv);
  return l_sBytes;
}

// Received text: the p_nCount bytes at p_pData up to the first zero byte,
// decoded as UTF-8; bytes that are not UTF-8 are taken one character per byte
// (Latin-1), so that no text is lost. Text is encoded in the sender's locale
// (CharCountBytes) and decoded here: for ASCII the two agree.
QUOR_API wxString DecodeText(const char* p_pData, size_t p_nCount);

// Packed counts and texts.
//
// A packed count is an unsigned 32-bit number: counts of 2^32 or more are
// cut to their low 32 bits. A packed text is its character count as a
// packed count, then CharCountBytes of the text in the current conversion
// (wxConvCurrent, the conversion of wxString::mbc_str()).

// Bytes that PutText writes (computed in 32 bits, as every packed size is).
inline unsigned int PackedTextSize(const wxString& p_sText) {
  return 4u + static_cast<unsigned int>(p_sText.length());
}

// REQUIRES: dst has room for sizeof(uint32_t) bytes.
inline char* PutCount(char* dst, unsigned long long p_nCount) {
  return PutFixed(dst, static_cast<uint32_t>(p_nCount));
}

// REQUIRES: dst has room for PackedTextSize(p_sText) bytes.
inline char* PutText(char* dst, const wxString& p_sText) {
  dst = PutCount(dst, p_sText.length());
  return PutCharCountBytes(dst, p_sText, *wxConvCurrent);
}

// Lists of fixed-width elements: a packed count, then the elements' bytes
// back to back. Only for elements whose bytes are their whole value (no
// padding, no pointers, no bool).
template <typename T>
inline unsigned int PackedArraySize(const std::vector<T>& p_aList) {
  return 4u + static_cast<unsigned int>(p_aList.size() * sizeof(T));
}

// REQUIRES: dst has room for PackedArraySize(p_aList) bytes.
template <typename T>
inline char* PutArray(char* dst, const std::vector<T>& p_aList) {
  static_assert(std::is_trivially_copyable<T>::value && !std::is_same<T, bool>::value,
                "raw bytes only");
  dst = PutCount(dst, p_aList.size());
  if (!p_aList.empty()) std::memcpy(dst, p_aList.data(), p_aList.size() * sizeof(T));
  return dst + p_aList.size() * sizeof(T);
}


// Bounded unpacking.
//
// UnPackValue(const void*) carries no length: called directly it trusts its
// buffer. A receiver that unpacks bytes from a peer opens an UnpackBounds
// scope over the received block; while the scope lives, every Reader on the
// same thread refuses to read outside the block, and the scope remembers
// that a read was refused. The receiver then checks Overrun() after each
// attribute and stops. Scopes nest; the innermost one applies.
//
// A scope also holds a memory budget: what the objects built from the block
// may cost (DEFAULT_MAX_VALUE_SIZE unless the receiver says otherwise).
// Whoever sizes something by a count read from the block charges the
// count's real cost in memory first (Reader::GetCount); a charge beyond the
// budget is refused like a read outside the block, and OutOfMemory() tells
// the receiver to take its allocation-failure path.
class QUOR_API UnpackBounds {
 public:
  UnpackBounds(const void* p_pBegin, unsigned long long p_nSize,
               unsigned long long p_nBudget = DEFAULT_MAX_VALUE_SIZE);
  ~UnpackBounds();

  bool Overrun() const { return m_bOverrun; }
  bool OutOfMemory() const { return m_bOutOfMemory; }
  // Bytes left in the block from p_pPosition on (0 outside the block).
  unsigned long long Remaining(const char* p_pPosition) const;

  // The innermost scope of this thread, or NULL.
  static UnpackBounds* Current();
  // True when [p_pPosition, p_pPosition + p_nSize) may be read: always
  // without a scope; inside the block with one. A refused read marks the
  // scope as overrun.
  static bool Allow(const char* p_pPosition, unsigned long long p_nSize);
  // True when p_nBytes more memory fit the budget of the current scope (and
  // always without a scope); the bytes are then taken from the budget. A
  // refused charge marks the scope as out of memory and as overrun, so that
  // the unpack stops.
  static bool Charge(unsigned long long p_nBytes);

 private:
  UnpackBounds(const UnpackBounds&) = delete;
  UnpackBounds& operator=(const UnpackBounds&) = delete;

  const char* m_pBegin;
  const char* m_pEnd;
  unsigned long long m_nBudget;
  bool m_bOverrun = false;
  bool m_bOutOfMemory = false;
  UnpackBounds* m_pcOuter;
};

// Reads the packed form from a position, checked against the current
// UnpackBounds scope. After the first refused read every further read fails
// too, and Ok() is false; the caller stops and changes nothing it has not
// changed yet.
class QUOR_API Reader {
 public:
  explicit Reader(const void* p_pBuffer)
      : m_pStart(static_cast<const char*>(p_pBuffer)), m_pPosition(m_pStart) {}

  template <typename T>
  bool Get(T* p_Value) {
    if (!Take(sizeof(T))) return false;
    m_pPosition = GetFixed(m_pPosition, p_Value);
    return true;
  }
  // p_nSize raw bytes: *p_ppData points at them inside the buffer.
  bool Bytes(unsigned long long p_nSize, const char** p_ppData) {
    if (!Take(p_nSize)) return false;
    *p_ppData = m_pPosition;
    m_pPosition += p_nSize;
    return true;
  }
  // True when p_nCount elements of at least p_nMinWidth bytes each can still
  // be in the block; call it before sizing anything by a received count. A
  // width of 0 is taken as 1, so that a count never exceeds the bytes left.
  bool CountFits(unsigned long long p_nCount, unsigned long long p_nMinWidth) {
    if (!m_bOk) return false;
    UnpackBounds* l_pcBounds = UnpackBounds::Current();
    if (l_pcBounds == NULL) return true;
    const unsigned long long l_nWidth = p_nMinWidth ? p_nMinWidth : 1;
    if (p_nCount <= l_pcBounds->Remaining(m_pPosition) / l_nWidth) return true;
    return Take(~0ull);
  }

  // A packed count, refused (before the caller sizes anything by it) when
  // the rest of the block cannot hold that many elements of at least
  // p_nMinWidth bytes, or when that many elements of p_nMemoryCost bytes
  // each (what one costs once built) do not fit the scope's budget.
  bool GetCount(unsigned int* p_nCount, unsigned long long p_nMinWidth,
                unsigned long long p_nMemoryCost) {
    if (!Get(p_nCount) || !CountFits(*p_nCount, p_nMinWidth)) return false;
    if (UnpackBounds::Charge(Product(*p_nCount, p_nMemoryCost))) return true;
    m_bOk = false;
    return false;
  }
  // A packed text: *p_ppData points at its *p_nCount bytes inside the
  // buffer (not zero-terminated). Its characters are charged to the budget.
  bool GetText(const char** p_ppData, unsigned int* p_nCount) {
    if (!Get(p_nCount) || !Bytes(*p_nCount, p_ppData)) return false;
    if (UnpackBounds::Charge(Product(*p_nCount, TEXT_CHARACTER_COST))) return true;
    m_bOk = false;
    return false;
  }
  // p_nCount fixed-width elements (see PutArray). On success *p_aList holds
  // exactly them; on a refused read it is unchanged.
  template <typename T>
  bool GetArray(unsigned int p_nCount, std::vector<T>* p_aList) {
    static_assert(std::is_trivially_copyable<T>::value && !std::is_same<T, bool>::value,
                  "raw bytes only");
    const char* l_pData = NULL;
    if (!Bytes(static_cast<unsigned long long>(p_nCount) * sizeof(T), &l_pData)) return false;
    p_aList->resize(p_nCount);
    if (p_nCount != 0) std::memcpy(p_aList->data(), l_pData, p_nCount * sizeof(T));
    return true;
  }

  bool Ok() const { return m_bOk; }
  const char* Position() const { return m_pPosition; }
  unsigned int Consumed() const { return static_cast<unsigned int>(m_pPosition - m_pStart); }
  // Moves past bytes that a nested unpack consumed.
  void Skip(unsigned long long p_nSize) {
    if (Take(p_nSize)) m_pPosition += p_nSize;
  }

 private:
  bool Take(unsigned long long p_nSize) {
    if (m_bOk && !UnpackBounds::Allow(m_pPosition, p_nSize)) m_bOk = false;
    return m_bOk;
  }

  const char* m_pStart;
  const char* m_pPosition;
  bool m_bOk = true;
};

// True when a bounded unpack is in progress on this thread and a read has
// been refused: a composite that unpacks its parts one after the other stops
// at the first part that ran past the block.
inline bool UnpackRefused() {
  const UnpackBounds* l_pcBounds = UnpackBounds::Current();
  return l_pcBounds != NULL && l_pcBounds->Overrun();
}

}  // namespace coding
}  // namespace quor

#endif  // QUOR_CODING_H
