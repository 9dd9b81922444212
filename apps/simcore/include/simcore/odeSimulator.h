// SPDX-License-Identifier: MIT
// Continuous simulation: the mass-action ODEs of the net,
//   dx_p/dt = sum_j (post_jp - pre_jp) * k_j * prod_q max(x_q, 0)^pre_jq,
// integrated with the embedded Runge-Kutta pair of Dormand and Prince (order
// 5 with an order-4 error estimate, FSAL) under adaptive step control.
//
// The error of a step is measured per place against
// AbsoluteTolerance + RelativeTolerance * |x_p| (root mean square over the
// places); a step is accepted when that norm is <= 1. Each AdvanceTo ends
// exactly on the requested time (the last step is shortened), so no output
// point is ever interpolated or skipped. Tiny negative values that the
// error allows are set to 0 after each step, since amounts cannot be
// negative. After a steering change (marking, parameter) or a new tolerance
// the step control starts afresh, as the solution may have a kink there.
#ifndef QUOR_SIMCORE_ODESIMULATOR_H
#define QUOR_SIMCORE_ODESIMULATOR_H

#include "simcore/simulator.h"

namespace quor {
namespace sim {

class OdeSimulator final : public Simulator {
 public:
  // Throws std::invalid_argument when the net does not validate.
  explicit OdeSimulator(const Net& p_rNet);

  std::string Kind() const override { return "continuous"; }

  // AbsoluteTolerance (default 1e-9), RelativeTolerance (default 1e-7),
  // MaxStep (default 0 = no limit besides the distance to the next output
  // point). Tolerances must be > 0 (relative: at most 1), max step >= 0.
  std::vector<SettingInfo> Settings() const override;
  bool ApplySetting(const std::string& p_sName, const std::string& p_sValue,
                    std::string* p_psError = nullptr) override;

  AdvanceStatus AdvanceTo(double p_dTime) override;

  double AbsoluteTolerance() const { return m_dAbsTol; }
  double RelativeTolerance() const { return m_dRelTol; }
  double MaxStep() const { return m_dMaxStep; }

  // Accepted and rejected steps since construction (for diagnostics).
  unsigned long long AcceptedSteps() const { return m_nAccepted; }
  unsigned long long RejectedSteps() const { return m_nRejected; }

  // The right-hand side at marking p_rdX into p_rdDx (sized by the caller).
  void Derivative(const std::vector<double>& p_rdX, std::vector<double>& p_rdDx) const;

 protected:
  void StateChanged(bool p_bReset) override;
  double Rate(std::size_t p_nTransition, const std::vector<double>& p_rdX) const override;

 private:
  double ErrorNorm(const std::vector<double>& p_rdY, const std::vector<double>& p_rdYNew,
                   const std::vector<double>& p_rdError) const;
  double InitialStep(double p_dSpan);

  double m_dAbsTol = 1e-9;
  double m_dRelTol = 1e-7;
  double m_dMaxStep = 0.0;

  double m_dStep = 0.0;      // proposed next step; 0: choose afresh
  bool m_bHaveSlope = false; // m_adK[0] holds f at the current state
  std::vector<double> m_adK[7];
  std::vector<double> m_adStage, m_adNew, m_adError;
  unsigned long long m_nAccepted = 0;
  unsigned long long m_nRejected = 0;
};

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_ODESIMULATOR_H
