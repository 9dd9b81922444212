// SPDX-License-Identifier: MIT
// Views: a ModelView receives a peer's view (its settings and its curve
// records, one attribute-list message).
//
// Input: a byte (0x80 set: the receiving view holds three curves), then the
// script of the peer's bytes. A received view must pack again, and so must
// its clone.
#include "fuzz_support.h"

#include "quor/modelView.h"

using namespace quor;
using namespace quor_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Reception l_cPeer(p_pData, p_nSize);
  std::unique_ptr<ModelView> l_pcView((l_cPeer.Header() & 0x80) ? SampleView()
                                                                  : new ModelView(wxT(""), nullptr));
  if (l_pcView->ReceiveView(l_cPeer.Socket()) != 1) return 0;
  l_cPeer.GetFeed().Finish();
  CheckPacks(*l_pcView);
  std::unique_ptr<ModelView> l_pcClone(l_pcView->Clone());
  if (!l_pcClone) Fail("a received view cannot be cloned");
  CheckPacks(*l_pcClone);
  l_pcView.reset();
  // The clone lives on without the view it was made from.
  AttributeVectorAttribute* l_pcCurves = l_pcClone->GetCurves();
  if (l_pcCurves != nullptr) {
    l_pcCurves->resize(static_cast<unsigned int>(l_pcCurves->size() + 1));
    CheckPacks(*l_pcClone);
  }
  return 0;
}
