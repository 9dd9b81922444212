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

}  // namespace coding
}  // namespace quor

#endif  // QUOR_CODING_H
