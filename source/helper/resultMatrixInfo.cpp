// SPDX-License-Identifier: MIT
#include "quor/resultMatrixInfo.h"

#include <memory>
#include <vector>

#include "quor/coding.h"
#include "quor/steeringBase.h"

namespace quor {

namespace {

// The packed row count is a fixed 4 bytes.
constexpr unsigned long long ROW_COUNT_SIZE = 4;

// Bytes of a packed list of 4-byte integers, counted in 64 bits.
unsigned long long PackedSize(AttributeVectorInt& p_cList) {
  return 4 + 4ull * p_cList.GetValue().size();
}

}  // namespace

ResultMatrixInfo::ResultMatrixInfo(const unsigned int& p_nRowCount)
    : m_nRowCount(wxT(""), 0), m_anRowPositions(wxT("")), m_anRowTypes(wxT("")) {
  SetRowCount(p_nRowCount);
}

ResultMatrixInfo::~ResultMatrixInfo() {}

void ResultMatrixInfo::SetRowCount(const unsigned int& p_nRowCount) {
  // Both lists are built before the object changes. A count too large to
  // hold leaves no rows at all, so that the lists always match the count.
  unsigned int l_nRowCount = p_nRowCount;
  std::vector<int> l_anPositions;
  std::vector<int> l_anTypes;
  TRY_ALLOC(l_anPositions.assign(l_nRowCount, 0); l_anTypes.assign(l_nRowCount, 0),
            l_nRowCount = 0; l_anPositions = std::vector<int>());
  m_nRowCount.SetValue(l_nRowCount);
  m_anRowPositions.GetValue().swap(l_anPositions);
  m_anRowTypes.GetValue().swap(l_anTypes);
}

bool ResultMatrixInfo::HasRow(const unsigned int& p_nRow) {
  // A received description may hold fewer entries than its row count.
  return p_nRow < m_nRowCount.GetValue() && p_nRow < m_anRowPositions.GetValue().size() &&
         p_nRow < m_anRowTypes.GetValue().size();
}

void ResultMatrixInfo::SetRowInfo(const unsigned int& p_nRow, const unsigned int& p_nPosition,
                                  const RM_ROW_TYPE& p_eType) {
  if (!HasRow(p_nRow)) return;
  m_anRowPositions.GetValue()[p_nRow] = static_cast<int>(p_nPosition);
  m_anRowTypes.GetValue()[p_nRow] = static_cast<int>(p_eType);
}

void ResultMatrixInfo::GetRowInfo(const unsigned int& p_nRow, unsigned int& p_nPosition,
                                  RM_ROW_TYPE& p_eType) {
  if (!HasRow(p_nRow)) return;
  p_nPosition = static_cast<unsigned int>(m_anRowPositions.GetValue()[p_nRow]);
  p_eType = static_cast<RM_ROW_TYPE>(m_anRowTypes.GetValue()[p_nRow]);
}

unsigned int ResultMatrixInfo::SendValue(SteeringBase* p_pcCommunicator) {
  CHECK_POINTER(p_pcCommunicator, return FAILURE);

  const unsigned long long l_nSize =
      ROW_COUNT_SIZE + PackedSize(m_anRowPositions) + PackedSize(m_anRowTypes);
  // More than one frame can carry; the packed sizes would wrap.
  if (l_nSize > MAX_FRAME_SIZE) return FAILURE;
  char* l_pBuffer = NULL;
  TRY_ALLOC(l_pBuffer = NewBlock(l_nSize), return FAILURE);
  std::unique_ptr<char[]> l_cOwner(l_pBuffer);

  unsigned long long l_nLength = m_nRowCount.PackValue(l_pBuffer);
  l_nLength += m_anRowPositions.PackValue(l_pBuffer + l_nLength);
  l_nLength += m_anRowTypes.PackValue(l_pBuffer + l_nLength);
  return p_pcCommunicator->SendBlock(l_pBuffer, l_nLength);
}

unsigned int ResultMatrixInfo::ReceiveValue(SteeringBase* p_pcCommunicator) {
  CHECK_POINTER(p_pcCommunicator, return FAILURE);
  return p_pcCommunicator->ReceiveBlock([this](const char* p_pBlock, unsigned long long p_nSize) {
    return UnPackValue(p_pBlock, p_nSize);
  });
}

// Unpacks into fresh attributes; the object changes only when the whole
// description was read.
bool ResultMatrixInfo::UnPackValue(const char* p_pBlock, unsigned long long p_nSize) {
  AttributeUint l_nRowCount(wxT(""), 0);
  AttributeVectorInt l_anRowPositions(wxT(""));
  AttributeVectorInt l_anRowTypes(wxT(""));
  unsigned long long l_nOffset = 0;
  Attribute* const l_apcParts[] = {&l_nRowCount, &l_anRowPositions, &l_anRowTypes};
  for (Attribute* l_pcPart : l_apcParts) {
    const unsigned int l_nUsed = l_pcPart->UnPackValue(p_pBlock + l_nOffset);
    if (coding::UnpackRefused() || l_nUsed > p_nSize - l_nOffset) return false;
    l_nOffset += l_nUsed;
  }
  m_nRowCount.SetValue(l_nRowCount.GetValue());
  m_anRowPositions.GetValue().swap(l_anRowPositions.GetValue());
  m_anRowTypes.GetValue().swap(l_anRowTypes.GetValue());
  return true;
}

}  // namespace quor
