// SPDX-License-Identifier: MIT
// Result-matrix info: a ResultMatrixInfo receives a peer's description of
// the result matrix's rows (an 8-byte length, then the packed row count,
// positions and types).
//
// Input: a byte (0x80 set: the receiving description has three rows), then
// the script of the peer's bytes. Every row below the received row count
// must be readable, and the description must go through a store.
#include "fuzz_support.h"

#include <algorithm>

#include "quor/resultMatrixInfo.h"
#include "quor/steeringBase.h"
#include "quor/steeringmodelstore.h"

using namespace quor;
using namespace quor_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Reception l_cPeer(p_pData, p_nSize);
  const bool l_bFilled = (l_cPeer.Header() & 0x80) != 0;
  SteeringBase l_cBase(l_cPeer.Socket());
  ResultMatrixInfo l_cInfo(l_bFilled ? 3 : 0);
  if (l_bFilled) l_cInfo.SetRowInfo(1, 7, RM_ROW_TYPE_TRANSITION);
  const unsigned int l_nResult = l_cInfo.ReceiveValue(&l_cBase);
  l_cPeer.GetFeed().Finish();
  const unsigned int l_nRows = std::min(l_cInfo.GetRowCount(), 4096u);
  for (unsigned int l_nRow = 0; l_nRow < l_nRows; ++l_nRow) {
    unsigned int l_nPosition = 0;
    RM_ROW_TYPE l_eType = RM_ROW_TYPE_PLACE;
    l_cInfo.GetRowInfo(l_nRow, l_nPosition, l_eType);
  }
  if (l_nResult == 1) {
    SteeringModelStore l_cStore;
    const int l_nId = l_cStore.AddModel(SampleModel());
    l_cStore.SetResultMatrixInfo(l_nId, l_cInfo);
    ResultMatrixInfo l_cCopy(0);
    l_cStore.GetResultMatrixInfo(l_nId, l_cCopy);
    if (l_cCopy.GetRowCount() != l_cInfo.GetRowCount())
      Fail("a received description does not come out of the store as it went in");
  }
  return 0;
}
