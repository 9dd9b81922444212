// SPDX-License-Identifier: MIT
// String lists: the total of their bytes (4), the count (8), the 16-bit
// lengths and the bytes, received by SteeringVector::ReceiveVectorString
// on its own or for an AttributeVectorString.
//
// Input: a mode byte (mode & 1: 0 ReceiveVectorString, 1
// AttributeVectorString::ReceiveValue; 0x80 set: the receiving list holds
// three strings first), then the script of the peer's bytes.
//
// A list reported as received is compared with an independent reading of
// the same frames; a list refused for its lengths (negative, or running past
// the bytes) must be left as it was.
#include "fuzz_support.h"

#include "quor/attributeVector.h"
#include "quor/steeringvector.h"

using namespace quor;
using namespace quor_fuzz;

namespace {

// The list that the peer's bytes give, as far as they go. *p_pbWhole: all
// frames arrived; *p_pbValid: and the lengths fit the bytes; *p_pbExact: no
// frame was a corrupt stream.
std::vector<wxString> Expected(const Bytes& p_aWire, bool* p_pbWhole, bool* p_pbValid,
                               bool* p_pbExact) {
  FrameReader l_cReader(p_aWire);
  std::vector<wxString> l_asList;
  *p_pbWhole = *p_pbValid = false;
  *p_pbExact = true;
  uint32_t l_nTotal = 0;
  uint64_t l_nCount = 0;
  if (!l_cReader.Number(&l_nTotal) || !l_cReader.Number(&l_nCount)) return l_asList;
  if (l_nCount > 0xFFFFFFFFull / 2) return l_asList;
  Bytes l_aLengths, l_aText;
  bool l_bExact = true;
  if (l_nCount != 0 && !l_cReader.Value(static_cast<uint32_t>(l_nCount * 2), &l_aLengths, &l_bExact))
    return l_asList;
  *p_pbExact = l_bExact;
  if (!l_cReader.Value(l_nTotal, &l_aText, &l_bExact)) return l_asList;
  *p_pbExact = *p_pbExact && l_bExact;
  *p_pbWhole = true;
  size_t l_nAt = 0;
  for (uint64_t i = 0; i < l_nCount; ++i) {
    int16_t l_nLength = 0;
    std::memcpy(&l_nLength, &l_aLengths[2 * i], 2);
    if (l_nLength < 0 || l_nAt + static_cast<size_t>(l_nLength) > l_aText.size()) return {};
    std::string l_sText(reinterpret_cast<const char*>(l_aText.data()) + l_nAt,
                        static_cast<size_t>(l_nLength));
    l_asList.push_back(SteeringBase::StrTowxString(&l_sText[0]));
    l_nAt += static_cast<size_t>(l_nLength);
  }
  *p_pbValid = true;
  return l_asList;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Reception l_cPeer(p_pData, p_nSize);
  const uint8_t l_nMode = l_cPeer.Header();
  SteeringVector l_cSet(l_cPeer.Socket());
  std::vector<wxString> l_asBefore;
  if (l_nMode & 0x80) l_asBefore = {wxT("one"), wxT(""), wxT("three")};
  AttributeVectorString l_cAttribute(wxT("list"));
  l_cAttribute.SetValue(l_asBefore);
  std::vector<wxString> l_asList = l_asBefore;
  unsigned int l_nResult;
  if (l_nMode & 1) {
    l_nResult = l_cAttribute.ReceiveValue(&l_cSet);
    l_asList = l_cAttribute.GetValue();
  } else {
    l_nResult = l_cSet.ReceiveVectorString(l_asList);
  }
  l_cPeer.GetFeed().Finish();

  bool l_bWhole = false, l_bValid = false, l_bExact = true;
  const std::vector<wxString> l_asExpected =
      Expected(l_cPeer.Wire(), &l_bWhole, &l_bValid, &l_bExact);
  if (l_nResult == 1) {
    if (!l_bWhole) Fail("a string list was reported received whose bytes never came");
    if (!l_bValid) Fail("a string list whose lengths do not fit its bytes was accepted");
    if (l_bExact && l_asList != l_asExpected)
      Fail("received %zu strings where the peer's bytes give %zu (or other texts)",
           l_asList.size(), l_asExpected.size());
    if (!l_bExact && l_asList.size() != l_asExpected.size())
      Fail("received %zu strings where the peer's bytes give %zu", l_asList.size(),
           l_asExpected.size());
  } else if (l_bWhole && !l_bValid && (l_nMode & 1) == 0 && l_asList != l_asBefore) {
    Fail("a string list refused for its lengths changed the caller's list");
  }
  return 0;
}
