// SPDX-License-Identifier: MIT
// Attribute-list messages (an 8-byte total, then the packed values of a set
// in key order), and every attribute class's own frames.
//
// Input: a mode byte (with 0x80 set the receiving attributes hold values
// first), a class byte, then the script of the peer's bytes. Mode & 3:
//   0 (and 3): the message of a set holding one attribute of every class;
//   1: the message of a set holding the one attribute of that class;
//   2: that attribute's own frames (Attribute::ReceiveValue).
// What was received must pack again (see CheckPacks).
#include "fuzz_support.h"

#include "quor/attribute.h"
#include "quor/steeringvector.h"

using namespace quor;
using namespace quor_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Reception l_cPeer(p_pData, p_nSize, 2);
  const uint8_t l_nMode = l_cPeer.Header(0);
  const bool l_bFilled = (l_nMode & 0x80) != 0;
  // The prototypes of lists of records outlive the set that holds the lists.
  std::vector<Specimen> l_acKeep;
  Specimen l_cOwn = MakeSpecimen(l_cPeer.Header(1), l_bFilled);
  SteeringVector l_cSet(l_cPeer.Socket());
  switch (l_nMode & 3) {
    case 1: {
      Attribute* l_pcAttribute = l_cOwn.m_pcAttribute.release();
      l_cSet.AddAttribute(l_pcAttribute->GetName(), l_pcAttribute);
      if (l_cSet.ReceiveAttributes() == 1) CheckPacks(l_cSet);
      break;
    }
    case 2:
      if (l_cOwn.m_pcAttribute->ReceiveValue(&l_cSet) == 1) CheckPacks(*l_cOwn.m_pcAttribute);
      break;
    default:
      AddAllSpecimens(l_cSet, l_acKeep, l_bFilled);
      if (l_cSet.ReceiveAttributes() == 1) CheckPacks(l_cSet);
      break;
  }
  return 0;
}
