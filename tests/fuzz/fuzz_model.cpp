// SPDX-License-Identifier: MIT
// Whole models and coloured models, and a model's views.
//
// Input: a mode byte, then the script of the peer's bytes. Mode & 1:
//   0: a whole model as a registration or a change of model reads it (its
//      type, then a Model or a ColoredModel receives itself);
//   1: the views of a model (ReceiveModelViews) into the sample model, which
//      holds a view already.
// A received model must pack again (see CheckPacks), stand up to what an
// application does with it (UseModel), and go through a store as a
// server keeps it: stored, copied and read.
#include "fuzz_support.h"

#include "quor/model.h"
#include "quor/steeringcontrol.h"
#include "quor/steeringmodelstore.h"

using namespace quor;
using namespace quor_fuzz;

namespace {
void Keep(Model* p_pcModel) {
  SteeringModelStore l_cStore;
  SteeringModelStore::Detach(*p_pcModel);
  const int l_nId = l_cStore.AddModel(p_pcModel);
  std::unique_ptr<Model> l_pcCopy(l_cStore.CopyModel(l_nId));
  if (!l_pcCopy) Fail("a received model cannot be copied out of the store");
  CheckModelPacks(*l_pcCopy);
  l_cStore.GetModelNames();
  l_cStore.GetParameterValues(l_nId);
  l_cStore.GetMarking(l_nId);
  Model l_cViews(nullptr, wxT(""), 0, 0);
  l_cStore.CopyViews(l_nId, l_cViews);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Reception l_cPeer(p_pData, p_nSize);
  std::unique_ptr<Model> l_pcModel;
  if ((l_cPeer.Header() & 1) == 0) {
    SteeringControl l_cControl(l_cPeer.Socket());
    l_pcModel.reset(l_cControl._ReceiveExistingModel(l_cPeer.Socket()));
    if (!l_pcModel) return 0;
  } else {
    l_pcModel.reset(SampleModel());
    l_pcModel->SetClientSocket(l_cPeer.Socket());
    if (l_pcModel->ReceiveModelViews() != 1) return 0;
  }
  l_cPeer.GetFeed().Finish();
  CheckModelPacks(*l_pcModel);
  UseModel(*l_pcModel);
  Keep(l_pcModel.release());
  return 0;
}
