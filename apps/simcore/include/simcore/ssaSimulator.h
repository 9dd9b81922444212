// SPDX-License-Identifier: MIT
// Stochastic simulation: Gillespie's direct method, and ensembles of
// independent runs.
//
// Markings are whole numbers of tokens. In a state x the propensity of
// transition j is a_j = k_j * prod_p C(x_p, w_p) over its input places p
// with weights w_p (C the binomial coefficient: the number of ways to pick
// the consumed tokens; 0 when x_p < w_p), or the value of its rate function
// (0 while an input place holds fewer tokens than its arc's weight). With
// a_0 = sum_j a_j > 0 the waiting time to the next event is exponential
// with rate a_0 and the event is transition j with probability a_j / a_0;
// firing moves the tokens as the arcs say. With a_0 = 0 nothing happens any
// more until a steering change.
//
// Cost per event: logarithmic in the number of transitions. The
// propensities sit in the leaves of a sum tree (each inner node holds the
// sum of its two children, recomputed from them, so no rounding drift
// accumulates); the event is found by one descent from the root, and after
// a firing only the propensities that read a place whose marking changed
// (the dependency graph, built once) are recomputed, each with the sums on
// its way to the root.
//
// The state at an output time is the state after the last event at or
// before it. The next event, once drawn, is kept across AdvanceTo calls,
// so the trajectory of a seed does not depend on the output grid; a
// steering change discards it and draws anew from the changed state (the
// exponential waiting time has no memory, so this is exact).
//
// Ensembles (setting Runs > 1): that many independent runs go side by
// side; Marking() and Rates() are their means at each output time (so are
// the result matrices of a run), and a steering change applies to every
// run. Run 0 uses the seed itself, so Runs = 1 is the single run of that
// seed; run r > 0 uses a seed derived from (Seed, r) by SplitMix64.
//
// Random numbers: std::mt19937_64 per run, seeded at every Reset, turned
// into uniform numbers by taking the top 53 bits; the same seed gives the
// same trajectory bit for bit on every platform.
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
  // whole numbers, no rate function that reads the time t), else why not.
  static std::string CheckNet(const Net& p_rNet);

  // Throws std::invalid_argument when the net does not validate or
  // CheckNet objects. Initial markings are rounded to whole numbers.
  explicit SsaSimulator(const Net& p_rNet, std::uint64_t p_nSeed = kDefaultSeed);

  static constexpr std::uint64_t kDefaultSeed = 1;
  // The seed of run p_nRun of an ensemble of seed p_nSeed (run 0: the seed
  // itself). A single run of this seed is run p_nRun of the ensemble, so
  // the runs of one ensemble can be shared out among processes.
  static std::uint64_t RunSeed(std::uint64_t p_nSeed, std::size_t p_nRun);
  // Most runs of an ensemble (each keeps a marking and a sum tree).
  static constexpr unsigned long kMaxRuns = 100000;

  std::string Kind() const override { return "stochastic"; }

  // Seed (unsigned 64-bit integer, default 1) and Runs (1 to kMaxRuns,
  // default 1), in this order: used from the next Reset on.
  std::vector<SettingInfo> Settings() const override;
  bool ApplySetting(const std::string& p_sName, const std::string& p_sValue,
                    std::string* p_psError = nullptr) override;

  AdvanceStatus AdvanceTo(double p_dTime) override;
  std::vector<double> Rates() const override;
  // "N runs" for an ensemble, else empty.
  std::string Summary() const override;

  std::uint64_t Seed() const { return m_nSeed; }
  void SetSeed(std::uint64_t p_nSeed) { m_nSeed = p_nSeed; }
  unsigned long RunsSetting() const { return m_nRunsSetting; }
  // The runs of the current ensemble (the setting at the last Reset).
  std::size_t Runs() const { return m_acRuns.size(); }

  // Events fired since the last Reset, over all runs.
  unsigned long long Events() const;

 protected:
  double AdaptMarking(double p_dValue) const override;
  void StateChanged(bool p_bReset) override;
  void MarkingSet(std::size_t p_nPlace) override;
  void ParameterSet(std::size_t p_nParameter) override;
  double Rate(std::size_t p_nTransition, const double* p_pdX, double p_dTime) const override;

 private:
  // One run: its own marking, propensities and random numbers.
  struct Run {
    std::vector<double> marking;
    std::vector<double> tree;  // leaves at [m_nLeaves + j]; node i = sum of 2i and 2i + 1
    std::mt19937_64 engine;
    double time = 0.0;         // how far this run has got
    bool pending = false;      // nextEvent and total are valid
    double nextEvent = 0.0;
    double total = 0.0;        // a_0 when the pending event was drawn
    unsigned long long events = 0;
  };

  static double Uniform(std::mt19937_64& p_rEngine);  // in [0, 1)
  // The propensity of transition j in run p_rRun, stored with the sums
  // above it. A rate function that gives a value that is negative or not
  // finite leaves 0 there and its message in m_sLastError, which stops the
  // run at its next step.
  void Update(Run& p_rRun, std::size_t p_nTransition);
  void UpdateAll(Run& p_rRun);
  double Propensity(Run& p_rRun, std::size_t p_nTransition);
  // The leaf whose interval of [0, a_0) holds p_dPick.
  std::size_t Select(const Run& p_rRun, double p_dPick) const;
  AdvanceStatus Advance(Run& p_rRun, double p_dTime, unsigned long long& p_rnSteps);
  void Publish();  // the mean marking of the runs into m_adMarking

  std::uint64_t m_nSeed;
  unsigned long m_nRunsSetting = 1;
  std::size_t m_nLeaves = 1;  // a power of two >= the number of transitions
  // For each transition j, the transitions whose propensity reads a place
  // it changes (itself included when it does): m_anDependents from
  // m_anDependentStart[j] to m_anDependentStart[j + 1] - 1 (flat, for
  // speed).
  std::vector<std::size_t> m_anDependents, m_anDependentStart;
  // For each place, the transitions that read it.
  std::vector<std::vector<std::size_t>> m_aanReaders;
  std::vector<Run> m_acRuns;
};

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_SSASIMULATOR_H
