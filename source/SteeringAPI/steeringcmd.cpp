// SPDX-License-Identifier: MIT
#include "quor/steeringcmd.h"

namespace quor {

SteeringCMD::SteeringCMD(wxSocketBase* p_pcSocket) : SteeringControl(p_pcSocket) {}

SteeringCMD::~SteeringCMD() {}

unsigned int SteeringCMD::SendStartCMD(const wxString& p_sName, const double& p_dStart,
                                       const double& p_dEnd, const double& p_dSampling) {
  // The name's result is not examined: the interval's result tells.
  SendString(p_sName);
  return SendSimulationInterval(p_dStart, p_dEnd, p_dSampling);
}

unsigned int SteeringCMD::ReceiveStartCMD(wxString& p_sName, double& p_dStart,
                                          double& p_dEnd, double& p_dSampling) {
  ReceiveString(p_sName);
  return ReceiveSimulationInterval(p_dStart, p_dEnd, p_dSampling);
}

}  // namespace quor
