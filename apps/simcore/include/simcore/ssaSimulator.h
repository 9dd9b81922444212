// SPDX-License-Identifier: MIT
// Stochastic simulation: Gillespie's direct method.
//
// Markings are whole numbers of tokens. In a state x the propensity of
// transition j is a_j = k_j * prod_p C(x_p, w_p) over its input places p
// with weights w_p (C the binomial coefficient: the number of ways to pick
// the consumed tokens; 0 when x_p < w_p). With a_0 = sum_j a_j > 0 the
// waiting time to the next event is exponential with rate a_0 and the event
// is transition j with probability a_j / a_0; firing moves the tokens as
// the arcs say. With a_0 = 0 nothing happens any more until a steering
// change.
//
// The state at an output time is the state after the last event at or
// before it. The next event, once drawn, is kept across AdvanceTo calls,
// so the trajectory of a seed does not depend on the output grid; a
// steering change discards it and draws anew from the changed state (the
// exponential waiting time has no memory, so this is exact).
//
// Random numbers: std::mt19937_64 seeded with the Seed setting at every
// Reset, turned into uniform numbers by taking the top 53 bits; the same
// seed gives the same trajectory bit for bit on every platform.
#ifndef QUOR_SIMCORE_SSASIMULATOR_H
#define QUOR_SIMCORE_SSASIMULATOR_H

#include <cstdint>
#include <random>

#include "simcore/simulator.h"

namespace quor {
namespace sim {

class SsaSimulator final : public Simulator {
 public:
  // Empty when the stochastic simulator can run the net (all arc weights
  // whole numbers), else why not.
  static std::string CheckNet(const Net& p_rNet);

  // Throws std::invalid_argument when the net does not validate or
  // CheckNet objects. Initial markings are rounded to whole numbers.
  explicit SsaSimulator(const Net& p_rNet, std::uint64_t p_nSeed = kDefaultSeed);

  static constexpr std::uint64_t kDefaultSeed = 1;

  std::string Kind() const override { return "stochastic"; }

  // Seed (unsigned 64-bit integer, default 1): used from the next Reset on.
  std::vector<SettingInfo> Settings() const override;
  bool ApplySetting(const std::string& p_sName, const std::string& p_sValue,
                    std::string* p_psError = nullptr) override;

  AdvanceStatus AdvanceTo(double p_dTime) override;

  std::uint64_t Seed() const { return m_nSeed; }
  void SetSeed(std::uint64_t p_nSeed) { m_nSeed = p_nSeed; }

  // Events fired since the last Reset.
  unsigned long long Events() const { return m_nEvents; }

 protected:
  double AdaptMarking(double p_dValue) const override;
  void StateChanged(bool p_bReset) override;
  double Rate(std::size_t p_nTransition, const std::vector<double>& p_rdX) const override;

 private:
  double Uniform();  // in [0, 1)
  void Fire(std::size_t p_nTransition);

  std::uint64_t m_nSeed;
  std::mt19937_64 m_cEngine;
  bool m_bPending = false;      // m_dNextEvent and m_adPropensities are valid
  double m_dNextEvent = 0.0;
  double m_dTotal = 0.0;        // a_0 of the pending event
  std::vector<double> m_adPropensities;
  unsigned long long m_nEvents = 0;
};

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_SSASIMULATOR_H
