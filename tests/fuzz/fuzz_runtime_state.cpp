// SPDX-License-Identifier: MIT
// Runtime state: a ModelRuntimeState receives a peer's state (one
// attribute-list message), on its own or as the model statistics of a
// control message.
//
// Input: a mode byte (mode & 1: 0 ModelRuntimeState::ReceiveAttributes, 1
// SteeringControl::ReceiveModelStatistics; 0x80 set: the receiving state
// holds values first), then the script of the peer's bytes. A received
// state must pack again and go through a store.
#include "fuzz_support.h"

#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/steeringcontrol.h"
#include "quor/steeringmodelstore.h"

using namespace quor;
using namespace quor_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Reception l_cPeer(p_pData, p_nSize);
  ModelRuntimeState l_cState;
  if (l_cPeer.Header() & 0x80) FillRuntimeState(l_cState);
  unsigned int l_nResult;
  if (l_cPeer.Header() & 1) {
    SteeringControl l_cControl(l_cPeer.Socket());
    l_nResult = l_cControl.ReceiveModelStatistics(l_cState);
  } else {
    l_nResult = l_cState.ReceiveAttributes(l_cPeer.Socket());
  }
  l_cPeer.GetFeed().Finish();
  l_cState.SetClientSocket(nullptr);
  if (l_nResult != 1) return 0;
  CheckPacks(l_cState);
  SteeringModelStore l_cStore;
  const int l_nId = l_cStore.AddModel(SampleModel());
  l_cStore.SetRuntimeState(l_nId, l_cState);
  ModelRuntimeState l_cCopy;
  l_cStore.GetRuntimeState(l_nId, l_cCopy);
  CheckPacks(l_cCopy);
  return 0;
}
