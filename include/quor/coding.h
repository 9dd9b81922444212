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
#include <cstring>
#include <string>
#include <type_traits>

namespace quor {
namespace coding {

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

// The bytes of a text by the character-count rule: exactly
// p_sText.length() bytes, taken from the front of its multibyte form in the
// given conversion. A multibyte form that is shorter (or a conversion that
// fails) is padded with zero bytes, so the result never reads past the
// converted buffer.
inline std::string CharCountBytes(const wxString& p_sText,
                                  const wxMBConv& p_cConv) {
  const size_t l_nCount = p_sText.length();
  std::string l_sBytes(l_nCount, '\0');
  if (l_nCount == 0) return l_sBytes;
  const wxCharBuffer l_cBuffer = p_sText.mb_str(p_cConv);
  const size_t l_nAvailable = l_cBuffer.data() ? l_cBuffer.length() : 0;
  std::memcpy(&l_sBytes[0], l_cBuffer.data() ? l_cBuffer.data() : "",
              l_nAvailable < l_nCount ? l_nAvailable : l_nCount);
  return l_sBytes;
}


// Bounded unpacking.
//
// UnPackValue(const void*) carries no length: called directly it trusts its
// buffer. A receiver that unpacks bytes from a peer opens an UnpackBounds
// scope over the received block; while the scope lives, every Reader on the
// same thread refuses to read outside the block, and the scope remembers
// that a read was refused. The receiver then checks Overrun() after each
// attribute and stops. Scopes nest; the innermost one applies.
class UnpackBounds {
 public:
  UnpackBounds(const void* p_pBegin, unsigned long long p_nSize);
  ~UnpackBounds();

  bool Overrun() const { return m_bOverrun; }
  // Bytes left in the block from p_pPosition on (0 outside the block).
  unsigned long long Remaining(const char* p_pPosition) const;

  // The innermost scope of this thread, or NULL.
  static UnpackBounds* Current();
  // True when [p_pPosition, p_pPosition + p_nSize) may be read: always
  // without a scope; inside the block with one. A refused read marks the
  // scope as overrun.
  static bool Allow(const char* p_pPosition, unsigned long long p_nSize);

 private:
  UnpackBounds(const UnpackBounds&) = delete;
  UnpackBounds& operator=(const UnpackBounds&) = delete;

  const char* m_pBegin;
  const char* m_pEnd;
  bool m_bOverrun = false;
  UnpackBounds* m_pcOuter;
};

// Reads the packed form from a position, checked against the current
// UnpackBounds scope. After the first refused read every further read fails
// too, and Ok() is false; the caller stops and changes nothing it has not
// changed yet.
class Reader {
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

}  // namespace coding
}  // namespace quor

#endif  // QUOR_CODING_H
