// SPDX-License-Identifier: MIT
// Continuous simulation: the ODEs of the net,
//   dx_p/dt = sum_j (post_jp - pre_jp) * flux_j(x, t),
// with flux_j the mass-action flux k_j * prod_q max(x_q, 0)^pre_jq or the
// transition's rate function. Three methods (the setting Method):
//
// - BDF (the default): CVODE's variable-order backward differentiation
//   formulas with Newton iteration, for stiff and non-stiff nets alike.
//   The linear systems are solved with a dense LU (nets of up to
//   kDenseLimit places), with KLU's sparse LU (larger nets whose LU factors
//   stay sparse), or with GMRES (larger nets whose factors would fill in,
//   as those with many far-reaching arcs do); the setting LinearSolver
//   chooses otherwise. The Jacobian is exact for mass action and taken by
//   finite differences for rate functions; GMRES needs only its products
//   with vectors, by differences of the right-hand side.
// - Adams: CVODE's Adams-Moulton formulas with fixed-point iteration, for
//   non-stiff nets.
// - Dormand-Prince: the embedded Runge-Kutta pair of Dormand and Prince
//   (order 5 with an order-4 error estimate, FSAL) under adaptive step
//   control; explicit, so stiff nets take it very many steps.
//
// Errors are measured per place against
// AbsoluteTolerance + RelativeTolerance * |x_p| (root mean square over the
// places). Each AdvanceTo ends exactly on the requested time: CVODE steps
// past it and interpolates the state there (its next steps go on from
// where it got to, unless the state is steered), Dormand-Prince shortens
// its last step to end there. Values below 0 that the tolerance allows
// are shown as 0 in Marking(). StepLimit bounds the internal steps between
// two output points: a run that needs more fails with a message ("too much
// work") instead of running on for ever; so do other step failures (error
// test or Newton iteration failing repeatedly, a rate function that gives a
// negative or non-finite value), each with a message that says where. After
// a steering change (marking, parameter) or a new setting the integrator
// starts afresh from the current state, as the solution may have a kink
// there; changes that leave the state as it was do not count.
#ifndef QUOR_SIMCORE_ODESIMULATOR_H
#define QUOR_SIMCORE_ODESIMULATOR_H

#include "simcore/simulator.h"

namespace quor {
namespace sim {

class CvodeIntegrator;

class OdeSimulator final : public Simulator {
 public:
  enum class Method { BDF, Adams, DormandPrince };
  enum class LinearSolver { Automatic, Dense, Sparse, Iterative };

  // Nets of up to this many places get the dense linear solver when
  // LinearSolver is "automatic", larger ones the sparse one, unless KLU's
  // analysis expects LU factors of more than kFillFactor times the
  // Jacobian's entries (or more than kFillLimit entries): then GMRES.
  static constexpr std::size_t kDenseLimit = 100;
  static constexpr double kFillFactor = 20.0;
  static constexpr double kFillLimit = 2e7;

  // Throws std::invalid_argument when the net does not validate.
  explicit OdeSimulator(const Net& p_rNet);
  ~OdeSimulator() override;

  std::string Kind() const override { return "continuous"; }

  // In this order (appended to, never reordered: clients address settings
  // by position):
  //   AbsoluteTolerance (default 1e-9, > 0), RelativeTolerance (1e-7, > 0,
  //   at most 1), MaxStep (0 = no limit), Method (BDF, Adams,
  //   Dormand-Prince), StepLimit (100000 internal steps between two output
  //   points), LinearSolver (automatic, dense, sparse, iterative).
  // All take effect at once.
  std::vector<SettingInfo> Settings() const override;
  bool ApplySetting(const std::string& p_sName, const std::string& p_sValue,
                    std::string* p_psError = nullptr) override;

  AdvanceStatus AdvanceTo(double p_dTime) override;

  double AbsoluteTolerance() const { return m_dAbsTol; }
  double RelativeTolerance() const { return m_dRelTol; }
  double MaxStep() const { return m_dMaxStep; }
  Method GetMethod() const { return m_eMethod; }
  unsigned long StepLimit() const { return m_nStepLimit; }
  // The linear solver that BDF uses for this net (never Automatic).
  LinearSolver EffectiveLinearSolver() const;
  // KLU's estimate of the entries of the LU factors of the Jacobian's
  // pattern (computed once).
  double SparseFill() const;

  // Accepted and rejected (error test failed) steps since construction.
  unsigned long long AcceptedSteps() const;
  unsigned long long RejectedSteps() const;

  // The right-hand side at marking p_rdX and the current time into p_rdDx
  // (sized by the caller).
  void Derivative(const std::vector<double>& p_rdX, std::vector<double>& p_rdDx) const;

  // The integrators' view of the net: the right-hand side at (p_dTime,
  // p_pdX) into p_pdDx, and the Jacobian d(dx)/dx as the values of the
  // entries of JacobianRows()/JacobianColumns() (compressed columns, the
  // diagonal always present). False when a rate function gives a value
  // that is negative or not finite (LastRateError() says which, until the
  // next right-hand side that succeeds) or when the abort flag is up
  // (AbortSeen()).
  bool RightHandSide(double p_dTime, const double* p_pdX, double* p_pdDx) const;
  bool Jacobian(double p_dTime, const double* p_pdX, double* p_pdValues) const;
  const std::vector<std::size_t>& JacobianColumnStarts() const { return m_anColumnStarts; }
  const std::vector<std::size_t>& JacobianRows() const { return m_anRows; }
  const std::string& LastRateError() const { return m_sRateError; }
  bool AbortSeen() const { return m_bAbortSeen; }

 protected:
  void StateChanged(bool p_bReset) override;
  double Rate(std::size_t p_nTransition, const double* p_pdX, double p_dTime) const override;

 private:
  bool Flux(std::size_t p_nTransition, const double* p_pdX, double p_dTime, double& p_rdFlux) const;
  void BuildJacobianPattern();
  AdvanceStatus AdvanceCvode(double p_dTime);
  AdvanceStatus AdvanceDormandPrince(double p_dTime);
  double ErrorNorm(const std::vector<double>& p_rdY, const std::vector<double>& p_rdYNew,
                   const std::vector<double>& p_rdError) const;
  double InitialStep(double p_dSpan);
  bool DpDerivative(const std::vector<double>& p_rdX, double p_dTime, std::vector<double>& p_rdDx);

  double m_dAbsTol = 1e-9;
  double m_dRelTol = 1e-7;
  double m_dMaxStep = 0.0;
  Method m_eMethod = Method::BDF;
  unsigned long m_nStepLimit = 100000;
  LinearSolver m_eLinearSolver = LinearSolver::Automatic;

  // The Jacobian's sparsity: entry e lies in row m_anRows[e], and column c
  // holds the entries m_anColumnStarts[c] .. m_anColumnStarts[c + 1] - 1.
  std::vector<std::size_t> m_anColumnStarts;
  std::vector<std::size_t> m_anRows;
  // Per transition j, per place q it reads (CompiledTransition::reads, in
  // order): the entries that d flux_j / d x_q adds to, with the factor.
  struct JacobianTerm {
    std::size_t entry;
    double factor;
  };
  std::vector<std::vector<std::vector<JacobianTerm>>> m_aaacTerms;
  mutable std::vector<double> m_adScratch;  // a marking for finite differences
  mutable double m_dSparseFill = -1.0;       // SparseFill(), once known

  mutable std::string m_sRateError;
  mutable bool m_bAbortSeen = false;

  // CVODE, created at the first AdvanceTo and afresh after a change.
  std::unique_ptr<CvodeIntegrator> m_pcCvode;
  bool m_bFresh = true;  // the integrator must start from the current state
  // The state CVODE was left in by the last AdvanceTo: a steering change
  // that leaves it as it was (a value changed and changed back) does not
  // disturb the integration.
  double m_dLeftTime = 0.0;
  std::vector<double> m_adLeftMarking, m_adLeftParameters;
  unsigned long long m_nCvodeSteps = 0, m_nCvodeRejected = 0;  // of integrators gone

  // Dormand-Prince.
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
