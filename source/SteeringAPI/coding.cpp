// SPDX-License-Identifier: MIT
#include "quor/coding.h"

namespace quor {
namespace coding {

wxString DecodeText(const char* p_pData, size_t p_nCount) {
  if (p_nCount == 0 || p_pData == NULL) return wxString();
  const void* l_pZero = std::memchr(p_pData, 0, p_nCount);
  const size_t l_nLength =
      l_pZero ? static_cast<size_t>(static_cast<const char*>(l_pZero) - p_pData) : p_nCount;
  if (l_nLength == 0) return wxString();

  // Short ASCII text (names, mostly) is the same in UTF-8 and Latin-1:
  // widened on the stack, it costs the string alone.
  constexpr size_t SHORT_TEXT = 256;
  if (l_nLength <= SHORT_TEXT) {
    wchar_t l_acWide[SHORT_TEXT];
    size_t i = 0;
    while (i < l_nLength && static_cast<unsigned char>(p_pData[i]) < 0x80) {
      l_acWide[i] = static_cast<wchar_t>(p_pData[i]);
      ++i;
    }
    if (i == l_nLength) return wxString(l_acWide, l_nLength);
  }

  wxString l_sText;
  {
    wxMBConvUTF8 l_cConverter;
    l_sText = wxString(p_pData, l_cConverter, l_nLength);
  }
  if (!l_sText.empty()) return l_sText;
  // Not UTF-8: one character per byte, of the same code.
  l_sText.reserve(l_nLength);
  for (size_t i = 0; i < l_nLength; ++i)
    l_sText += static_cast<wxChar>(static_cast<unsigned char>(p_pData[i]));
  return l_sText;
}

namespace {
thread_local UnpackBounds* t_pcCurrentBounds = NULL;
}  // namespace

UnpackBounds::UnpackBounds(const void* p_pBegin, unsigned long long p_nSize,
                           unsigned long long p_nBudget)
    : m_pBegin(static_cast<const char*>(p_pBegin)),
      m_pEnd(static_cast<const char*>(p_pBegin) + p_nSize),
      m_nBudget(p_nBudget),
      m_pcOuter(t_pcCurrentBounds) {
  t_pcCurrentBounds = this;
}

UnpackBounds::~UnpackBounds() { t_pcCurrentBounds = m_pcOuter; }

unsigned long long UnpackBounds::Remaining(const char* p_pPosition) const {
  if (p_pPosition < m_pBegin || p_pPosition > m_pEnd) return 0;
  return static_cast<unsigned long long>(m_pEnd - p_pPosition);
}

UnpackBounds* UnpackBounds::Current() { return t_pcCurrentBounds; }

bool UnpackBounds::Allow(const char* p_pPosition, unsigned long long p_nSize) {
  UnpackBounds* l_pcBounds = t_pcCurrentBounds;
  if (l_pcBounds == NULL) return true;
  if (p_nSize <= l_pcBounds->Remaining(p_pPosition) &&
      p_pPosition >= l_pcBounds->m_pBegin)
    return true;
  l_pcBounds->m_bOverrun = true;
  return false;
}

bool UnpackBounds::Charge(unsigned long long p_nBytes) {
  UnpackBounds* l_pcBounds = t_pcCurrentBounds;
  if (l_pcBounds == NULL) return true;
  if (p_nBytes <= l_pcBounds->m_nBudget) {
    l_pcBounds->m_nBudget -= p_nBytes;
    return true;
  }
  l_pcBounds->m_bOutOfMemory = true;
  l_pcBounds->m_bOverrun = true;
  return false;
}

}  // namespace coding
}  // namespace quor
