// SPDX-License-Identifier: MIT
// The run of one model: a thread that advances the model's state from one
// output time to the next with the application's step function, paced,
// paused, resumed, stopped and restarted by any thread, steered at its
// output points, and shown to clients through a SteeringModelStore.
//
// The application supplies the step function; the runner does the rest:
//
//   bool Decay(quor::SteeringStep& p_rStep) {   // x' = -k x
//     const double l_dK = p_rStep.Parameters()[0];
//     p_rStep.Marking()[0] *= std::exp(-l_dK * (p_rStep.GetTo() - p_rStep.GetFrom()));
//     return true;
//   }
//   quor::SteeringRunPlan l_cPlan;
//   l_cPlan.m_fStep = Decay;
//   l_cPlan.m_dStart = 0; l_cPlan.m_dEnd = 50; l_cPlan.m_dSampling = 0.5;
//   quor::SteeringRunner l_cRunner(l_cStore, l_nModel);
//   l_cRunner.Start(l_cPlan, false, &l_sReason);    // returns at once
//
// SteeringRunHandler (steeringrunhandler.h) does this for every model that
// clients start; most applications use that and never see a runner.
//
// A run. Its output points are start + i * sampling, i = 0, 1, ..., up to
// the end (GetPointCount). It starts from the model's initial marking
// ("INITIAL_MARKING") and current parameter values ("CURRENT_PARAM_VALUES")
// as they are when the run begins. The step function is called once per
// output point, in order: the first call reaches the start point itself
// (GetFrom() == GetTo(), nothing to advance; IsStart()), each later call
// advances from the previous point to the next. After each call the runner
// records the marking as a column of the result matrix (and the rates, if
// the step gave them, as a column of the rate matrix), then applies the
// steered changes that arrived since the last point: a change holds from
// that point on, so it first shows in the next column. Then the run waits
// as long as its pace asks, and while it is paused; a change that arrives
// meanwhile is applied at once, at the current point.
//
// Commands (Pause, Resume, Stop, SetSpeed, the changes) return at once;
// they act at the run's next output point. Stop and a restart also ask the
// step in progress to give up (SteeringStep::ShouldStop); a step that
// returns false then ends the run as stopped, with the results recorded so
// far. A step that fails (returns false or calls Fail) or throws ends the
// run as failed: the reason becomes the model's error message
// (ReceiveErrorMessage) with "ERROR_STATE" SIMULATOR_ERROR_RUN, the log
// message of the model and an error line in the log. No exception leaves
// the runner.
//
// What the store shows ("publishing"): the result matrix (one row per
// place, one column per output point so far), the rate matrix (one row per
// transition), the result-matrix info (row p is place p), the model's
// current marking (the run's marking, when it has one value per place) and
// the runtime state: "SIMULATOR_STATE" (SimulatorState codes),
// "SIMULATOR_PROGRESS" (percent of the output points done),
// "SIMULATOR_RUNTIME" (seconds of running, pauses not counted),
// "SIMULATOR_SPEED", "SIMULATOR_CATEGORY" and
// "CURRENT_SIMULATOR_ALGORITHM" (the plan's names) and "ERROR_STATE". A
// paced run publishes at every output point, an unpaced one at least every
// PUBLISH_INTERVAL; every run publishes when it starts, pauses and ends.
//
// Threads. Every public operation may be called from any thread. The step
// function and the hooks run on the runner's thread with no lock of the
// runner held: for one runner they are never called on two threads at
// once, and never after Join (or the destructor) has returned. Start with a
// restart, Join and the destructor wait for the step in progress to return:
// their caller must not hold anything that the step function needs (a
// Python interpreter lock, say). The step function and the hooks may call
// the runner's commands; Start refuses and Join returns at once when called
// from them (they would wait for themselves). The runner calls the store with its own
// lock held; the store's functions (WithModel, ...) must not call back into
// the runner.
#ifndef QUOR_STEERINGRUNNER_H
#define QUOR_STEERINGRUNNER_H

#include <wx/string.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "quor/export.h"
#include "quor/steeringmodelstore.h"

namespace quor {

// The state of a run at an output point, handed to the step function.
class QUOR_API SteeringStep {
 public:
  // The time of the last output point (where the marking is now) and of the
  // one to reach. Equal for the first call (IsStart).
  double GetFrom() const { return m_dFrom; }
  double GetTo() const { return m_dTo; }
  // The output point to reach (0 for the start point) and how many the run
  // has.
  size_t GetPoint() const { return m_nPoint; }
  size_t GetPointCount() const { return m_nPointCount; }
  bool IsStart() const { return m_nPoint == 0; }

  // One value per place: at GetFrom() on entry, to be left at GetTo(). The
  // number of values must not change.
  std::vector<double>& Marking() { return m_adMarking; }
  // The parameter values that hold for this step (steered values
  // included).
  const std::vector<double>& Parameters() const { return m_adParameters; }
  // Optional: the rate of each transition at GetTo(), one value per
  // transition of the model. Empty on entry; left empty, the run has no
  // rate matrix. A step function that gives rates gives them at every
  // point.
  std::vector<double>& Rates() { return m_adRates; }

  // True once the run is asked to end (stop, restart, removal of the
  // model, shutdown). A step that takes long asks now and then and returns
  // false when it is true; the run then ends as stopped. Cheap: one
  // atomic load.
  bool ShouldStop() const { return m_pbGiveUp->load(std::memory_order_relaxed); }
  // The same as a flag, for engines that watch a flag of their own.
  const std::atomic<bool>* GetStopFlag() const { return m_pbGiveUp; }

  // Ends the run as failed with the reason; returns false, so that a step
  // function can `return p_rStep.Fail("...")`.
  bool Fail(const wxString& p_sReason);
  const wxString& GetFailure() const { return m_sFailure; }

 private:
  friend class SteeringRunner;
  SteeringStep(const std::atomic<bool>* p_pbGiveUp, size_t p_nPointCount)
      : m_pbGiveUp(p_pbGiveUp), m_nPointCount(p_nPointCount) {}

  const std::atomic<bool>* m_pbGiveUp;
  size_t m_nPointCount;
  size_t m_nPoint = 0;
  double m_dFrom = 0.0;
  double m_dTo = 0.0;
  std::vector<double> m_adMarking;
  std::vector<double> m_adParameters;
  std::vector<double> m_adRates;
  wxString m_sFailure;
};

// A steered change as the run applies it: one value of the marking or of
// the parameters. A reset to the initial values is one change per value.
struct QUOR_API SteeringChange {
  enum Kind { PARAMETER, PLACE };
  Kind m_eKind;
  size_t m_nPosition;
  double m_dValue;
};

// What a run does: the interval, the step function, the names shown in the
// runtime state, and hooks for applications that follow the run step by
// step (a job that mirrors each step on other processes, say). Every
// function runs on the runner's thread, in this order: m_fBegin, then per
// output point m_fStep and (when changes took hold there) m_fSteered, and
// last m_fEnd.
struct QUOR_API SteeringRunPlan {
  // Advances the state from one output point to the next; true when it
  // reached GetTo(). REQUIRES: set.
  std::function<bool(SteeringStep&)> m_fStep;
  // The output points: m_dStart + i * m_dSampling up to m_dEnd.
  double m_dStart = 0.0;
  double m_dEnd = 0.0;
  double m_dSampling = 1.0;
  // "SIMULATOR_CATEGORY" and "CURRENT_SIMULATOR_ALGORITHM" of the run.
  wxString m_sCategory;
  wxString m_sAlgorithm;
  // Optional. Before the first step, with the step at the start point (its
  // marking and parameters are the state the run starts from, and may be
  // changed here). False (or Fail) ends the run as failed. It may also
  // change the number of marking values: the run then records that many
  // rows (one per value, within MAX_RESULT_VALUES, else the run fails), the
  // model's current marking is no longer published, and the hook describes
  // the rows itself (SteeringModelStore::SetResultMatrixInfo; the run's
  // start described one row per place).
  std::function<bool(SteeringStep&)> m_fBegin;
  // Optional. At an output point where steered changes took hold, with
  // those changes in the order they came, before the next step.
  std::function<void(const std::vector<SteeringChange>&)> m_fSteered;
  // Optional. After the last step, with the state the run ends in
  // (SIMULATOR_FINISHED, SIMULATOR_STOPPED or SIMULATOR_FAILED); before
  // that state is published.
  std::function<void(int)> m_fEnd;
  // Optional. After m_fEnd: a few words on what the run did beyond its
  // output points (the runs of an ensemble, say), added to the line that
  // ends the run as "; " and the words. Empty adds nothing.
  std::function<wxString()> m_fSummary;
};

class QUOR_API SteeringRunner {
 public:
  // The most output points a run may have, and the most values (output
  // points times places, and times transitions) its result and rate
  // matrices may hold: a client chooses the interval, and these bound what
  // its choice can cost.
  static constexpr size_t MAX_OUTPUT_POINTS = 10000000;
  static constexpr unsigned long long MAX_RESULT_VALUES = 1ull << 27;
  // How often an unpaced run publishes its results at least.
  static constexpr std::chrono::milliseconds PUBLISH_INTERVAL{100};

  // The runner of model p_nModel of the store; idle. Takes the speed that
  // the model's runtime state holds. The store must outlive the runner.
  SteeringRunner(SteeringModelStore& p_rStore, int p_nModel);
  // Stops a run that goes on and waits for its thread.
  ~SteeringRunner();

  // Empty when the interval gives a usable grid of output points (finite
  // numbers, sampling > 0, end >= start, at most MAX_OUTPUT_POINTS points);
  // else what is wrong with it.
  static wxString CheckInterval(double p_dStart, double p_dEnd, double p_dSampling);
  // The number of output points (0 when CheckInterval fails). An interval
  // that falls short of a whole sampling step by rounding only still
  // reaches its end.
  static size_t CountPoints(double p_dStart, double p_dEnd, double p_dSampling);

  // Starts a run of the plan. A run that goes on (running or paused) makes
  // the start fail, unless p_bRestart: then it is stopped first and its
  // thread waited for. False, with the reason in *p_psReason (if given),
  // when the start is refused: a run goes on, no step function, an
  // unusable interval, results that would exceed MAX_RESULT_VALUES, no
  // such model, or no thread to be had.
  bool Start(const SteeringRunPlan& p_rPlan, bool p_bRestart, wxString* p_psReason);
  // Whether Start would find a run in its way right now (false, with the
  // reason, when a run goes on and p_bRestart is false).
  bool CanStart(bool p_bRestart, wxString* p_psReason);

  // Commands; each returns at once. False, with the reason, when there is
  // nothing they apply to: Pause and Stop need a run that goes on (and is
  // not stopping), Resume a paused one (or one about to pause).
  bool Pause(wxString* p_psReason);
  bool Resume(wxString* p_psReason);
  bool Stop(wxString* p_psReason);
  // Waits until the thread of the last run has ended.
  void Join();

  // Output points per second of wall-clock time; 0 runs as fast as the
  // step function goes. Holds for later runs too; acts at once.
  void SetSpeed(unsigned int p_nPointsPerSecond);
  unsigned int GetSpeed();

  // Steering. Each changes the store's model at once ("CURRENT_PARAM_VALUES",
  // "CURRENT_MARKING") and a run that goes on at its next output point (at
  // once while it is paused or waits for its pace). False, with the reason,
  // for a position out of range or a value that is negative or not finite;
  // nothing changes then.
  bool ChangeParameter(unsigned long long p_nPosition, double p_dValue, wxString* p_psReason);
  bool ChangeMarking(unsigned long long p_nPosition, double p_dValue, wxString* p_psReason);
  // Back to the initial values ("INITIAL_PARAM_VALUES", "INITIAL_MARKING").
  void ResetParameters();
  void ResetMarking();

  // The state of the last run (SimulatorState); IsActive while it goes on,
  // from the start until its thread has published its end.
  int GetState();
  bool IsActive();

 private:
  typedef std::chrono::steady_clock Clock;
  enum Outcome { GO_ON, FINISH, STOP };

  // The run's thread, with the run's state.
  void Work(std::unique_ptr<SteeringStep> p_pcStep);
  // Calls the step function for every output point; returns the state the
  // run ends in, with the reason of a failure in p_rsFailure.
  int RunSteps(SteeringStep& p_rStep, wxString& p_rsFailure);
  // Calls a function of the plan; false when it failed or threw (the
  // reason goes into the step).
  bool Call(const std::function<bool()>& p_fCall, SteeringStep& p_rStep, const wxChar* p_sWhat);
  // After a start that changed the number of marking values: the result
  // matrix gets that many rows. False, with the reason, when they would
  // hold too many values.
  bool Resize(SteeringStep& p_rStep, wxString& p_rsFailure);
  // At an output point: records it, applies the changes, publishes, waits
  // for the pace and while paused. The changes applied go to p_racApplied.
  Outcome AtOutputPoint(SteeringStep& p_rStep, std::vector<SteeringChange>& p_racApplied);
  // True when called by the step function or a hook of the run going on.
  bool OnRunThread();
  // REQUIRES: m_cMutex is held (MayStart, Prepare). Prepare checks the
  // plan against the model and sets the run up; false, with the reason,
  // when it cannot run.
  bool MayStart(bool p_bRestart, wxString* p_psReason);
  bool Prepare(const SteeringRunPlan& p_rPlan, SteeringStep& p_rStep, wxString* p_psReason);
  // Stops the run's clock and returns the line that reports its end.
  wxString EndLine(int p_nState, const wxString& p_sFailure, const wxString& p_sSummary);
  // Publishes the end of the run, with p_sLine as its log (and, when it
  // failed, error) message.
  void Finish(int p_nState, const wxString& p_sLine);
  // Queues a change for the run (REQUIRES: m_cMutex is held).
  void Queue(SteeringChange::Kind p_eKind, size_t p_nPosition, double p_dValue);
  bool Change(SteeringChange::Kind p_eKind, unsigned long long p_nPosition, double p_dValue,
              wxString* p_psReason);
  void Reset(SteeringChange::Kind p_eKind);
  // REQUIRES: m_cMutex is held (these three).
  void ApplyChanges(SteeringStep& p_rStep, std::vector<SteeringChange>& p_racApplied);
  void Publish(bool p_bResults);
  double RunSeconds(Clock::time_point p_tNow) const;
  // "model 'NAME': " for log lines.
  wxString Prefix() const;

  SteeringModelStore& m_rStore;
  const int m_nModel;

  std::mutex m_cControl;  // one start or join at a time; taken before m_cMutex
  std::thread m_cThread;
  std::thread::id m_cThreadId;  // of the run going on (under m_cMutex)
  SteeringRunPlan m_cPlan;  // of the run; read by its thread only while it runs
  std::atomic<bool> m_bGiveUp;

  std::mutex m_cMutex;  // everything below
  std::condition_variable m_cWake;
  wxString m_sModelName;
  size_t m_nPoints;    // of the run
  size_t m_nDone;      // points recorded
  size_t m_nTransitions;
  int m_nState;
  bool m_bActive;
  bool m_bPause;
  bool m_bStop;
  bool m_bSpeedChanged;
  unsigned int m_nSpeed;
  std::vector<SteeringChange> m_acChanges;  // waiting for the next output point
  std::vector<double> m_adMarking;          // the run's marking, as published
  // Output points recorded since the last publication, one column (and its
  // rates, possibly none) each: publishing appends them to the store's
  // matrices, which are the run's only full copy.
  SteeringMatrix m_aadPendingResults;
  SteeringMatrix m_aadPendingRates;
  size_t m_nRows;                // of the run's result matrix
  bool m_bResultsStarted;        // the store's matrices were reset for the run
  double m_dRunSeconds;  // running time before m_tRunningSince
  bool m_bRunning;       // the clock runs (not paused)
  Clock::time_point m_tRunningSince;
  Clock::time_point m_tLastPoint;
  Clock::time_point m_tLastPublish;

  SteeringRunner(const SteeringRunner&) = delete;
  SteeringRunner& operator=(const SteeringRunner&) = delete;
};

}  // namespace quor

#endif  // QUOR_STEERINGRUNNER_H
