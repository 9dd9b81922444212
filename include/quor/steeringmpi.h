// SPDX-License-Identifier: MIT
// Steering a simulation that runs across many MPI processes (target
// quor::SteeringMPI, built when MPI is found).
//
// One steering endpoint for the whole job: rank 0 runs the steering server,
// the dispatcher and a SteeringRunner as a single-process application
// does; every other rank follows rank 0's runs. A run is cut into the same
// output points on every rank, and at each one all ranks take one
// collective step:
//
// 1. rank 0 broadcasts what holds from this point on: the steered changes
//    that took hold at the last point (parameters, markings), or the end of
//    the run (stop, restart, failure, the last point);
// 2. every rank applies the changes to its share of the work and advances
//    it to the output point, adding its values to a SteeringContribution;
// 3. the contributions are summed onto rank 0 (counts, sums, sums of
//    squares), with each rank's health; rank 0 publishes the means as the
//    run's marking at that point.
//
// Pause holds every rank at the same output point: rank 0's runner waits
// there, and the other ranks wait in the broadcast of the next step. The
// speed paces rank 0's runner and so the whole job. A change made while
// the run waits or is paused is broadcast with the next step, so every
// rank applies it at the same output point.
//
// Failures. A rank whose work fails sends its reason with its
// contribution; rank 0 logs "rank R failed at output point P: reason" and
// ends the job (MPI_Abort, status 1). A rank that does not contribute
// within the deadline (it hangs, or died without the launcher noticing) is
// logged the same way ("rank R did not reach output point P within S s")
// and the job ends. A rank that dies is normally noticed by mpirun, which
// ends the job with a non-zero status itself. Collectives are non-blocking
// and polled: no rank waits in a blocking MPI call.
//
// The work of a rank is the application's (SteeringMPIWork): every rank
// makes its own from the same SteeringMPIStart, and knows its rank and the
// number of ranks to pick its share (runs of an ensemble, scan points).
//
//   // every rank: MPI_Init_thread(..., MPI_THREAD_SERIALIZED, ...)
//   quor::SteeringMPI l_cJob(MakeWork);          // MPI_COMM_WORLD
//   if (l_cJob.IsRoot()) {
//     ... a server and a SteeringRunHandler whose PrepareRun does
//     p_rPlan = l_cJob.Distribute(l_sJob, p_rPlan.m_dStart, ...);
//     ... run the event loop ...
//     l_cJob.Shutdown();                          // after the last run
//   } else {
//     l_cJob.Follow();                             // until Shutdown
//   }
//
// Threads. MPI must be initialised with MPI_THREAD_SERIALIZED or more: on
// rank 0 the collectives run on the thread of the run going on, one run
// at a time (Distribute refuses a second while one goes on). Every rank
// must be on the same architecture (values travel as native bytes).
#ifndef QUOR_STEERINGMPI_H
#define QUOR_STEERINGMPI_H

#include <mpi.h>
#include <wx/string.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "quor/steeringrunner.h"

namespace quor {

// What the ranks add to one output point: for each value (result row) the
// number of samples, their sum and the sum of their squares. Summing
// these over the ranks gives the same totals in any order when the samples
// are whole numbers (token counts), so a mean does not depend on how the
// work was shared out.
class SteeringContribution {
 public:
  // p_nValues values, with no samples.
  void Clear(size_t p_nValues) { m_adData.assign(3 * p_nValues, 0.0); }
  size_t size() const { return m_adData.size() / 3; }
  // REQUIRES: p_nValue < size().
  void Add(size_t p_nValue, double p_dSample) {
    double* l_pdValue = &m_adData[3 * p_nValue];
    l_pdValue[0] += 1.0;
    l_pdValue[1] += p_dSample;
    l_pdValue[2] += p_dSample * p_dSample;
  }
  double GetCount(size_t p_nValue) const { return m_adData[3 * p_nValue]; }
  double GetSum(size_t p_nValue) const { return m_adData[3 * p_nValue + 1]; }
  double GetSumOfSquares(size_t p_nValue) const { return m_adData[3 * p_nValue + 2]; }
  // The mean of the samples (0 without samples).
  double GetMean(size_t p_nValue) const;
  // Their sample standard deviation (0 with fewer than two samples).
  double GetStandardDeviation(size_t p_nValue) const;

  std::vector<double>& Data() { return m_adData; }

 private:
  std::vector<double> m_adData;  // count, sum, sum of squares per value
};

// A run as every rank starts it.
struct SteeringMPIStart {
  double m_dStart = 0.0;
  double m_dEnd = 0.0;
  double m_dSampling = 1.0;
  // The model's state at the start (initial marking, current parameters).
  std::vector<double> m_adMarking;
  std::vector<double> m_adParameters;
  // The application's description of the run (which model, which
  // simulator, its settings, ...), the same bytes on every rank.
  std::string m_sJob;
  int m_nRank = 0;
  int m_nRanks = 1;
};

// One rank's share of a run. Each function returns false with the reason in
// p_rsFailure when the work cannot go on; exceptions count as failures.
class SteeringMPIWork {
 public:
  virtual ~SteeringMPIWork() {}
  // The number of values of the run (the published rows), the same on
  // every rank.
  virtual size_t GetValueCount() const = 0;
  // The changes that took hold at the last output point, in order.
  virtual bool Steer(const std::vector<SteeringChange>& p_acChanges, wxString& p_rsFailure) = 0;
  // Advances from p_dFrom to p_dTo (equal at the start point) and adds this
  // rank's samples of every value at p_dTo.
  virtual bool Advance(double p_dFrom, double p_dTo, SteeringContribution& p_rContribution,
                       wxString& p_rsFailure) = 0;
};

// Makes a rank's work for a run; NULL, with the reason, when it cannot.
typedef std::function<std::unique_ptr<SteeringMPIWork>(const SteeringMPIStart&, wxString&)>
    SteeringMPIWorkFactory;

class SteeringMPI {
 public:
  // How long rank 0 waits for the other ranks' contributions to an output
  // point after its own is done: the client's socket timeout.
  static constexpr std::chrono::milliseconds DEFAULT_DEADLINE{10000};
  // The most bytes a broadcast step may carry (changes and the job).
  static constexpr unsigned long long MAX_MESSAGE_BYTES = 1ull << 26;

  // The job on the ranks of p_nComm. Collective: every rank constructs it.
  // REQUIRES: MPI is initialised (MPI_THREAD_SERIALIZED or more).
  explicit SteeringMPI(SteeringMPIWorkFactory p_fFactory, MPI_Comm p_nComm = MPI_COMM_WORLD,
                       std::chrono::milliseconds p_nDeadline = DEFAULT_DEADLINE);
  ~SteeringMPI();

  int GetRank() const { return m_nRank; }
  int GetRanks() const { return m_nRanks; }
  bool IsRoot() const { return m_nRank == 0; }

  // Rank 0: makes p_rPlan the plan of a run on every rank. It keeps the
  // plan's interval and names; each rank makes its work from p_sJob, and the
  // means of the ranks' contributions become the run's marking, one value
  // (result row) per value of the work. A m_fBegin of the plan is called
  // after the work is made (with the marking at its new size): the place to
  // describe the rows (SteeringModelStore::SetResultMatrixInfo). A failure
  // of rank 0's own work fails the run; a failure of another rank ends the
  // job. False, with the reason, on other ranks and after Shutdown.
  bool Distribute(const std::string& p_sJob, SteeringRunPlan& p_rPlan, wxString& p_rsRefusal);

  // Rank 0: the totals of the last output point (all ranks), and its index.
  SteeringContribution GetLastTotals(size_t* p_pnPoint = NULL);

  // Rank 0: ends the job: the other ranks return from Follow. REQUIRES: no
  // run goes on (stop and join the runs first). Safe to call again.
  void Shutdown();

  // Rank 0, any thread (after a signal, say): the process is asked to
  // end. A step that still waits for the other ranks gives them a quarter
  // of a second more, then ends the job as a missed deadline does: when
  // mpirun ends the job because a rank died, rank 0 still says where.
  void Interrupt() { m_bInterrupted = true; }

  // Ranks other than 0: follows rank 0's runs until Shutdown.
  void Follow();

 private:
  struct Run;
  enum Kind { BEGIN = 1, STEP = 2, END = 3, QUIT = 4 };

  // Rank 0's hooks of a distributed run.
  bool RootBegin(const std::shared_ptr<Run>& p_pcRun, SteeringStep& p_rStep);
  bool RootStep(const std::shared_ptr<Run>& p_pcRun, SteeringStep& p_rStep);
  void RootEnd(const std::shared_ptr<Run>& p_pcRun);

  // Every rank: the broadcast of one message from rank 0 (p_rsBytes on
  // rank 0 in, elsewhere out). Without a deadline: a following rank waits
  // as long as rank 0 holds the run (a pause).
  void Broadcast(std::string& p_rsBytes);
  // Every rank: the contribution to a point and this rank's health (empty
  // reason: well). On rank 0 the totals and the reasons of every rank;
  // false when a rank failed or the deadline passed (what to log in
  // p_rsFailure).
  bool Contribute(size_t p_nPoint, SteeringContribution& p_rContribution,
                  const wxString& p_sReason, wxString& p_rsFailure);
  // Waits for a request, polling; with a deadline, false when it passed.
  bool Wait(MPI_Request& p_rRequest, bool p_bDeadline);
  // The other ranks' side of one step.
  void FollowStep(std::unique_ptr<SteeringMPIWork>& p_pcWork, const std::string& p_sBytes,
                  wxString& p_rsFailure);
  // Logs the failure and ends the job.
  [[noreturn]] void Abort(const wxString& p_sWhy);

  SteeringMPIWorkFactory m_fFactory;
  MPI_Comm m_nComm;
  std::chrono::milliseconds m_nDeadline;
  int m_nRank;
  int m_nRanks;

  std::atomic<bool> m_bInterrupted;

  std::mutex m_cMutex;  // what follows
  bool m_bRunning;      // a distributed run goes on
  bool m_bShutDown;
  SteeringContribution m_cLastTotals;
  size_t m_nLastPoint;

  SteeringMPI(const SteeringMPI&) = delete;
  SteeringMPI& operator=(const SteeringMPI&) = delete;
};

}  // namespace quor

#endif  // QUOR_STEERINGMPI_H
