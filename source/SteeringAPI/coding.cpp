// SPDX-License-Identifier: MIT
#include "quor/coding.h"

namespace quor {
namespace coding {

namespace {
thread_local UnpackBounds* t_pcCurrentBounds = NULL;
}  // namespace

UnpackBounds::UnpackBounds(const void* p_pBegin, unsigned long long p_nSize)
    : m_pBegin(static_cast<const char*>(p_pBegin)),
      m_pEnd(static_cast<const char*>(p_pBegin) + p_nSize),
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

}  // namespace coding
}  // namespace quor
