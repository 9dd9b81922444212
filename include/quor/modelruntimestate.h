// SPDX-License-Identifier: MIT
// The status record of a running simulation: state, runtime, progress,
// error state, simulator category and algorithm, speed.
#ifndef QUOR_MODELRUNTIMESTATE_H
#define QUOR_MODELRUNTIMESTATE_H

#include "quor/export.h"
#include "quor/steeringvector.h"

namespace quor {

class QUOR_API ModelRuntimeState : public SteeringVector {
 public:
  ModelRuntimeState();
  ~ModelRuntimeState() override;

  using SteeringVector::ReceiveAttributes;
  using SteeringVector::SendAttributes;
  // Store the socket (it stays stored), then exchange the attribute list.
  unsigned int SendAttributes(wxSocketBase* p_pcSocket);
  unsigned int ReceiveAttributes(wxSocketBase* p_pcSocket);
};

}  // namespace quor

#endif  // QUOR_MODELRUNTIMESTATE_H
