// SPDX-License-Identifier: MIT
#include "quor/modelruntimestate.h"

#include "quor/keys.h"

namespace quor {

namespace {

// Enters a new attribute of class A under its own name.
template <class A, class V>
void AddState(SteeringVector* p_pcState, const wxChar* p_sKey, const V& p_Value) {
  p_pcState->AddAttribute(p_sKey, new A(p_sKey, p_Value));
}

}  // namespace

ModelRuntimeState::ModelRuntimeState() : SteeringVector(NULL) {
  AddState<AttributeInt>(this, keys::SIMULATOR_STATE, 0);
  AddState<AttributeDouble>(this, keys::SIMULATOR_RUNTIME, 0.0);
  AddState<AttributeDouble>(this, keys::SIMULATOR_PROGRESS, 0.0);
  AddState<AttributeInt>(this, keys::ERROR_STATE, 0);
  AddState<Attribute>(this, keys::SIMULATOR_CATEGORY, wxString());
  AddState<Attribute>(this, keys::CURRENT_SIMULATOR_ALGORITHM, wxString());
  AddState<AttributeInt>(this, keys::SIMULATOR_SPEED, 0);
}

ModelRuntimeState::~ModelRuntimeState() {}

unsigned int ModelRuntimeState::SendAttributes(wxSocketBase* p_pcSocket) {
  SetClientSocket(p_pcSocket);
  return SteeringVector::SendAttributes();
}

unsigned int ModelRuntimeState::ReceiveAttributes(wxSocketBase* p_pcSocket) {
  SetClientSocket(p_pcSocket);
  return SteeringVector::ReceiveAttributes();
}

}  // namespace quor
