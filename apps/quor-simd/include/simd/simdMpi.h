// SPDX-License-Identifier: MIT
// The MPI mode of quor-simd: under mpirun every rank loads the same nets;
// rank 0 serves clients as the single-process server does, and each run of
// a net it serves goes on every rank (quor/steeringmpi.h):
//
// - Stochastic runs of an ensemble (setting Runs = R) share out the R runs:
//   rank q of N simulates runs R*q/N to R*(q+1)/N - 1, run r with the seed
//   of run r of the ensemble (SsaSimulator::RunSeed), so the result does
//   not depend on N. The result matrix holds the mean over all runs, the
//   same numbers as a single process's ensemble of that seed.
// - Continuous runs are simulated by rank 0 (there is nothing to share).
// - A scan (--scan NAME=FROM:TO:COUNT) runs the model once per value v_k =
//   FROM + k (TO - FROM) / (COUNT - 1) of parameter NAME, k = 0 .. COUNT-1
//   (FROM alone for COUNT = 1); rank q takes the values k with k mod N = q.
//   The result matrix has COUNT blocks of one row per place: row
//   k * places + p is place p at value v_k (its row info names place p).
//   A stochastic scan point is an ensemble of its own (Runs) on its rank.
// - Steered changes reach every run on every rank at the same output
//   point; a change of the scanned parameter sets it at every scan point.
//   Settings written during a run take effect from the next start.
// - A model that a client uploaded runs on rank 0 alone.
//
// For the tests, QUOR_SIMD_RANK_FAULT=RANK:POINT:WHAT makes rank RANK
// misbehave at output point POINT: "fail" (its work fails), "hang" (it
// never contributes) or "abort" (the process aborts).
#ifndef QUOR_SIMD_SIMDMPI_H
#define QUOR_SIMD_SIMDMPI_H

#include <memory>
#include <vector>

#include "simcore/net.h"
#include "simd/simdOptions.h"

namespace quor {

class SteeringMPI;

namespace simd {

class SimdServer;

// True when an MPI launcher (mpirun) started this process.
bool StartedByMpi();

class MpiJob {
 public:
  // REQUIRES: MPI is initialised with MPI_THREAD_SERIALIZED or more; the
  // nets are the same, in the same order, on every rank.
  MpiJob(const std::vector<sim::Net>& p_acNets, const SimdOptions& p_rOptions);
  ~MpiJob();

  bool IsRoot() const;
  int GetRanks() const;

  // Rank 0: the server's runs of the nets (model ids in the order of the
  // nets) go on every rank. REQUIRES: before the server serves.
  void Attach(SimdServer& p_rServer, const std::vector<int>& p_anModels);
  // Rank 0, after the server's runs have ended: the other ranks leave
  // Follow.
  void Shutdown();
  // Rank 0, on a signal: see SteeringMPI::Interrupt.
  void Interrupt();
  // Other ranks: follows rank 0's runs until Shutdown.
  void Follow();

 private:
  std::vector<sim::Net> m_acNets;
  SimdOptions m_cOptions;
  std::unique_ptr<SteeringMPI> m_pcJob;
};

}  // namespace simd
}  // namespace quor

#endif  // QUOR_SIMD_SIMDMPI_H
