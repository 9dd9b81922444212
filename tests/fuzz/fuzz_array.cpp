// SPDX-License-Identifier: MIT
// Arrays: the numeric list attributes and the list of pairs receive a
// peer's array (an 8-byte count, then count elements as one frame).
//
// Input: a class byte (b & 3: 0 ints, 1 unsigned 64-bit, 2 doubles, 3 pairs;
// 0x80 set: the receiving list holds elements first), then the script of
// the peer's bytes.
//
// A list reported as received is compared with an independent reading of
// the same frames: the peer's count of elements, and their bytes (zeros
// where a compressed stream stopped early, never earlier contents).
#include "fuzz_support.h"

#include "quor/attributeTransitionConnection.h"
#include "quor/attributeVector.h"
#include "quor/steeringvector.h"

using namespace quor;
using namespace quor_fuzz;

namespace {

template <typename A, typename T>
void Receive(SteeringVector& p_cSet, const Bytes& p_aWire, bool p_bFilled,
             const std::vector<T>& p_aFill) {
  A l_cAttribute(wxT("array"));
  if (p_bFilled) l_cAttribute.SetValue(p_aFill);
  const unsigned int l_nResult = l_cAttribute.ReceiveValue(&p_cSet);
  p_cSet.SetClientSocket(nullptr);
  if (l_nResult != 1) return;

  FrameReader l_cReader(p_aWire);
  uint64_t l_nCount = 0;
  if (!l_cReader.Number(&l_nCount)) Fail("an array was reported received whose count never came");
  const std::vector<T>& l_aValue = l_cAttribute.GetValue();
  if (l_aValue.size() != l_nCount)
    Fail("received %zu elements where the peer announced %llu", l_aValue.size(),
         static_cast<unsigned long long>(l_nCount));
  if (l_nCount == 0) return;
  if (l_nCount > 0xFFFFFFFFull / sizeof(T)) Fail("an array longer than one frame was accepted");
  Bytes l_aExpected;
  bool l_bExact = true;
  if (!l_cReader.Value(static_cast<uint32_t>(l_nCount * sizeof(T)), &l_aExpected, &l_bExact))
    Fail("an array was reported received whose elements never came");
  CheckReceived("array", reinterpret_cast<const uint8_t*>(l_aValue.data()), l_aExpected, l_bExact);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Reception l_cPeer(p_pData, p_nSize);
  const uint8_t l_nClass = l_cPeer.Header();
  const bool l_bFilled = (l_nClass & 0x80) != 0;
  const Bytes& l_aWire = l_cPeer.Wire();
  SteeringVector l_cSet(l_cPeer.Socket());
  switch (l_nClass & 3) {
    case 0: Receive<AttributeVectorInt>(l_cSet, l_aWire, l_bFilled, std::vector<int>{1, -1, 7}); break;
    case 1:
      Receive<AttributeVectorULong>(l_cSet, l_aWire, l_bFilled,
                                    std::vector<unsigned long long>{0, 1, ~0ULL});
      break;
    case 2:
      Receive<AttributeVectorDouble>(l_cSet, l_aWire, l_bFilled, std::vector<double>{0.5, -1.0});
      break;
    default:
      Receive<AttributeVectorULong2ULong>(l_cSet, l_aWire, l_bFilled,
                                          std::vector<ULong2ULong>{{1, 2}, {3, 4}});
      break;
  }
  return 0;
}
