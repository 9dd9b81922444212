// SPDX-License-Identifier: MIT
// CVODE (SUNDIALS) behind the continuous simulator: one integration of the
// net's ODEs from a start state, with BDF and Newton iteration (dense or
// KLU sparse linear solver, the simulator's Jacobian) or Adams-Moulton and
// fixed-point iteration. Private to the engine.
#ifndef QUOR_SIMCORE_CVODEINTEGRATOR_H
#define QUOR_SIMCORE_CVODEINTEGRATOR_H

#include <memory>
#include <string>
#include <vector>

#include "simcore/odeSimulator.h"

namespace quor {
namespace sim {

class CvodeIntegrator {
 public:
  struct Options {
    OdeSimulator::Method method = OdeSimulator::Method::BDF;
    OdeSimulator::LinearSolver solver = OdeSimulator::LinearSolver::Dense;
    double relTol = 1e-7;
    double absTol = 1e-9;
    double maxStep = 0.0;  // 0: no limit
    unsigned long stepLimit = 100000;
  };

  // An integrator of p_rSystem's ODEs starting at (p_dTime, p_rdState);
  // nullptr with a message when CVODE cannot be set up. p_rSystem must
  // outlive it.
  static std::unique_ptr<CvodeIntegrator> Create(const OdeSimulator& p_rSystem,
                                                 const Options& p_rOptions, double p_dTime,
                                                 const std::vector<double>& p_rdState,
                                                 std::string* p_psError);
  ~CvodeIntegrator();
  CvodeIntegrator(const CvodeIntegrator&) = delete;
  CvodeIntegrator& operator=(const CvodeIntegrator&) = delete;

  // Same method and linear solver: starts over from (p_dTime, p_rdState)
  // with the options' tolerances and limits.
  bool Restart(const Options& p_rOptions, double p_dTime, const std::vector<double>& p_rdState,
               std::string* p_psError);
  bool Fits(const Options& p_rOptions) const {
    return p_rOptions.method == m_cOptions.method &&
           (p_rOptions.method != OdeSimulator::Method::BDF || p_rOptions.solver == m_cOptions.solver);
  }

  enum class Outcome { Reached, Aborted, Failed };
  // Integrates to p_dTime and puts the state there into p_rdState. On
  // Aborted and Failed, p_rdTime and p_rdState hold the last state that
  // CVODE reached (p_rdTime <= p_dTime) and *p_psError says why.
  Outcome Advance(double p_dTime, double& p_rdTime, std::vector<double>& p_rdState,
                  std::string* p_psError);

  // KLU's estimate of the entries of L and U for a matrix of this pattern
  // (compressed columns); infinity when it cannot tell.
  static double SparseFill(const std::vector<std::size_t>& p_anColumnStarts,
                           const std::vector<std::size_t>& p_anRows);

  unsigned long long Steps() const;
  unsigned long long ErrorTestFailures() const;

 private:
  CvodeIntegrator(const OdeSimulator& p_rSystem, const Options& p_rOptions);
  bool SetUp(double p_dTime, const std::vector<double>& p_rdState, std::string* p_psError);
  bool ApplyOptions(std::string* p_psError);
  std::string Describe(int p_nFlag, double p_dFrom, double p_dTo) const;

  struct Handles;
  const OdeSimulator& m_rSystem;
  Options m_cOptions;
  std::unique_ptr<Handles> m_pcHandles;
  std::string m_sMessage;  // CVODE's last error message
};

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_CVODEINTEGRATOR_H
