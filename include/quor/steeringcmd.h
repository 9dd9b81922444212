// SPDX-License-Identifier: MIT
// The start command, the control message that starts (or restarts) a
// simulation: the model name and the simulation interval. The common base
// of the client and the server.
#ifndef QUOR_STEERINGCMD_H
#define QUOR_STEERINGCMD_H

#include "quor/export.h"
#include "quor/steeringcontrol.h"

namespace quor {

class QUOR_API SteeringCMD : public SteeringControl {
 public:
  explicit SteeringCMD(wxSocketBase* p_pcSocket);
  ~SteeringCMD() override;

  // The name as a string frame (its result is not examined), then the
  // simulation interval (24 bytes). Returns the interval's result.
  unsigned int SendStartCMD(const wxString& p_sName, const double& p_dStart,
                            const double& p_dEnd, const double& p_dSampling);
  // The mirror; returns the interval's result (1 or FAILURE).
  unsigned int ReceiveStartCMD(wxString& p_sName, double& p_dStart, double& p_dEnd,
                               double& p_dSampling);
};

}  // namespace quor

#endif  // QUOR_STEERINGCMD_H
