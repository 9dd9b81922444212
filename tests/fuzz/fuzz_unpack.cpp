// SPDX-License-Identifier: MIT
// Every attribute class's bounded unpack, in memory: the packed bytes that a
// peer put into an attribute-list message, read by one attribute inside the
// bounds of the block.
//
// Input: a class byte (the class is b % 15, see MakeSpecimen; with 0x80 set
// the attribute holds values before it unpacks), then the packed bytes.
//
// The bytes sit in a block of exactly their size, so that any read past them
// is caught whether or not the bounds catch it. Without a refused read the
// attribute may not consume more than the block, and what it holds
// afterwards must pack again (see CheckPacks).
#include "fuzz_support.h"

#include <cstring>

#include "quor/attribute.h"
#include "quor/coding.h"

using namespace quor;
using namespace quor_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Initialize();
  Input l_cInput(p_pData, p_nSize);
  const uint8_t l_nSelector = l_cInput.Byte();
  const size_t l_nPacked = l_cInput.RestSize();
  std::unique_ptr<uint8_t[]> l_cBlock(new uint8_t[l_nPacked]);
  if (l_nPacked != 0) std::memcpy(l_cBlock.get(), l_cInput.Rest(), l_nPacked);

  AllocationBound l_cBound(p_nSize);
  Specimen l_cSpecimen = MakeSpecimen(l_nSelector, (l_nSelector & 0x80) != 0);
  Attribute& l_cAttribute = *l_cSpecimen.m_pcAttribute;
  {
    coding::UnpackBounds l_cBounds(l_cBlock.get(), l_nPacked);
    const unsigned int l_nRead = l_cAttribute.UnPackValue(l_cBlock.get());
    if (!l_cBounds.Overrun()) {
      if (l_nRead == FAILURE)
        Fail("%s: unpacking failed without a refused read",
             static_cast<const char*>(l_cAttribute.GetName().utf8_str()));
      if (l_nRead > l_nPacked)
        Fail("%s: consumed %u of %zu bytes without a refused read",
             static_cast<const char*>(l_cAttribute.GetName().utf8_str()), l_nRead, l_nPacked);
    }
  }
  CheckPacks(l_cAttribute);
  return 0;
}
