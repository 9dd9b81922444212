// SPDX-License-Identifier: MIT
// What each row of a result matrix stands for: a position and a row type.
// Sent as an 8-byte length and one packed buffer (row count, positions,
// types).
#ifndef QUOR_RESULTMATRIXINFO_H
#define QUOR_RESULTMATRIXINFO_H

#include "quor/export.h"
#include "quor/attribute.h"
#include "quor/attributeVector.h"
#include "quor/netTypes.h"

namespace quor {

class SteeringBase;

class QUOR_API ResultMatrixInfo {
 public:
  explicit ResultMatrixInfo(const unsigned int& p_nRowCount);
  virtual ~ResultMatrixInfo();

  // Sets the count and resets every row to position 0 and type 0.
  void SetRowCount(const unsigned int& p_nRowCount);
  unsigned int GetRowCount() { return m_nRowCount.GetValue(); }
  // Ignored for a row at or past the row count.
  void SetRowInfo(const unsigned int& p_nRow, const unsigned int& p_nPosition,
                  const RM_ROW_TYPE& p_eType);
  // Leaves the outputs untouched for a row at or past the row count.
  void GetRowInfo(const unsigned int& p_nRow, unsigned int& p_nPosition, RM_ROW_TYPE& p_eType);
  // Makes this description a copy of p_rSource as it stands: its row count
  // and the rows its lists hold. A received description may announce more
  // rows than it carries; the copy costs what was carried, not what was
  // announced, and reads and sends exactly like the source. False (and
  // this description unchanged) when memory runs out.
  bool CopyFrom(ResultMatrixInfo& p_rSource);

  // The description as a packed block behind its 8-byte length
  // (SteeringBase::SendBlock). 1, FAILURE for a NULL communicator or a
  // description that does not fit one frame, or the failing frame's result.
  unsigned int SendValue(SteeringBase* p_pcCommunicator);
  // The mirror (SteeringBase::ReceiveBlock). The object changes only when
  // the whole description was read within the block; results as
  // ReceiveBlock's.
  unsigned int ReceiveValue(SteeringBase* p_pcCommunicator);
  // The unpacking step of ReceiveValue over a received block: true (and the
  // object replaced) when the row count and both lists were read within it.
  // REQUIRES: an UnpackBounds scope over the block (SteeringBase::
  // UnpackBlock opens one); without one the block is trusted.
  bool UnPackValue(const char* p_pBlock, unsigned long long p_nSize);

 protected:
  AttributeUint m_nRowCount;
  AttributeVectorInt m_anRowPositions;
  AttributeVectorInt m_anRowTypes;

 private:
  // True when the row is below the count and inside both lists.
  bool HasRow(const unsigned int& p_nRow);

  ResultMatrixInfo(const ResultMatrixInfo&) = delete;
  ResultMatrixInfo& operator=(const ResultMatrixInfo&) = delete;
};

}  // namespace quor

#endif  // QUOR_RESULTMATRIXINFO_H
