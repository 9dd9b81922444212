// SPDX-License-Identifier: MIT
// Matrices of doubles: rows (8), columns (8), then rows * columns doubles
// as one frame, received by SteeringVector::ReceiveVector2D, also inside
// SendSubVector2D (which receives, as the protocol has it).
//
// Input: a mode byte (mode & 1: 0 ReceiveVector2D, 1 SendSubVector2D; 0x80
// set: the receiving matrix holds values first), then the script of the
// peer's bytes.
//
// A matrix reported as received is compared with an independent reading of
// the same frames: the peer's shape and values (zeros where a compressed
// stream stopped early, never earlier contents).
#include "fuzz_support.h"

#include "quor/steeringvector.h"

using namespace quor;
using namespace quor_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Reception l_cPeer(p_pData, p_nSize);
  const uint8_t l_nMode = l_cPeer.Header();
  SteeringVector l_cSet(l_cPeer.Socket());
  if (l_nMode & 1) {
    l_cSet.SendSubVector2D(SampleMatrix(3, 4), {0, 2});
    return 0;
  }
  std::vector<std::vector<double> > l_aadMatrix;
  if (l_nMode & 0x80) l_aadMatrix = SampleMatrix(2, 3);
  const unsigned int l_nResult = l_cSet.ReceiveVector2D(l_aadMatrix);
  l_cPeer.GetFeed().Finish();
  if (l_nResult != 1) return 0;

  FrameReader l_cReader(l_cPeer.Wire());
  uint64_t l_nRows = 0, l_nColumns = 0;
  if (!l_cReader.Number(&l_nRows) || !l_cReader.Number(&l_nColumns))
    Fail("a matrix was reported received whose shape never came");
  if (l_aadMatrix.size() != l_nRows)
    Fail("received %zu rows where the peer announced %llu", l_aadMatrix.size(),
         static_cast<unsigned long long>(l_nRows));
  if (l_nColumns != 0 && l_nRows > 0xFFFFFFFFull / 8 / l_nColumns)
    Fail("a matrix larger than one frame was accepted");
  Bytes l_aExpected;
  bool l_bExact = true;
  if (!l_cReader.Value(static_cast<uint32_t>(l_nRows * l_nColumns * 8), &l_aExpected, &l_bExact))
    Fail("a matrix was reported received whose values never came");
  for (uint64_t i = 0; i < l_nRows; ++i) {
    if (l_aadMatrix[i].size() != l_nColumns)
      Fail("row %llu has %zu values where the peer announced %llu",
           static_cast<unsigned long long>(i), l_aadMatrix[i].size(),
           static_cast<unsigned long long>(l_nColumns));
    const Bytes l_aRow(l_aExpected.begin() + static_cast<long>(i * l_nColumns * 8),
                       l_aExpected.begin() + static_cast<long>((i + 1) * l_nColumns * 8));
    CheckReceived("matrix", reinterpret_cast<const uint8_t*>(l_aadMatrix[i].data()), l_aRow, l_bExact);
  }
  return 0;
}
