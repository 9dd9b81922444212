// SPDX-License-Identifier: MIT
// The simulation of one model: a run of the engine on a thread of its own,
// steered by the connections' worker threads, its results and state fed into
// the steering store as the run goes.
//
// A run goes through the output points of its grid. At each point it
// records the marking (a column of the result matrix) and the transition
// rates (a column of the rate matrix), then applies the changes that
// arrived since the last point (parameters, marking, settings): a change
// holds from that point on. Then it waits for as long as the speed asks,
// and while it is paused; changes that arrive meanwhile are applied at
// once, from the current point on.
//
// Speed: output points per second of wall-clock time; 0 runs as fast as
// the simulator goes.
//
// What the store shows while a run goes: the result and rate matrices (one
// row per place / transition, one column per point so far), the current
// marking of the model, and the runtime state ("SIMULATOR_STATE",
// "SIMULATOR_PROGRESS" in percent of the points, "SIMULATOR_RUNTIME" in
// seconds of running, pauses not counted, "SIMULATOR_SPEED",
// "SIMULATOR_CATEGORY", "CURRENT_SIMULATOR_ALGORITHM"). They are published
// at every point of a paced run, at least ten times a second otherwise,
// when the run pauses and when it ends.
//
// Threads: every public operation may be called from any thread. Locks:
// the control lock (starting, joining) is taken before the state lock, and
// the store is called with the state lock held, never the other way round.
#ifndef QUOR_SIMD_MODELRUN_H
#define QUOR_SIMD_MODELRUN_H

#include <wx/string.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "quor/steeringmodelstore.h"
#include "simcore/simulator.h"

namespace quor {
namespace simd {

class ModelRun {
 public:
  // The run of the model p_nModel of the store; idle. The store must
  // outlive the object.
  ModelRun(SteeringModelStore& p_rStore, int p_nModel);
  // Stops a run that goes on and waits for its thread.
  ~ModelRun();

  // Starts a run of p_pcSimulator (set up and reset to the start state by
  // the caller; from now on used only by the run's thread) over the grid.
  // With p_bRestart a run that goes on is stopped first; without it, such a
  // run makes the start fail. False, with the reason in *p_psError, when
  // the start is refused.
  bool Start(std::unique_ptr<sim::Simulator> p_pcSimulator, const sim::OutputGrid& p_rGrid,
             const wxString& p_sCategory, const wxString& p_sSimulator, bool p_bRestart,
             std::string* p_psError);

  // Commands. False when there is no run that they apply to (no run going
  // on; Resume: no run paused or about to pause).
  bool Pause();
  bool Resume();
  // Asks a run that goes on to stop (at the next output point, or sooner
  // inside a long simulation step). Does not wait for it.
  bool Stop();
  // Waits until the thread of the last run has ended.
  void Join();

  void SetSpeed(unsigned int p_nPointsPerSecond);
  unsigned int GetSpeed();

  // Steering. Each updates the store's model at once and, while a run goes
  // on, hands the change to the run. The caller has checked the values
  // (positions in range, numbers finite and not negative).
  void ChangeParameter(std::size_t p_nPosition, double p_dValue);
  void ChangeMarking(std::size_t p_nPosition, double p_dValue);
  // The whole lists (a reset to the initial values).
  void SetParameters(const std::vector<double>& p_adValues);
  void SetMarking(const std::vector<double>& p_adValues);
  // A simulator setting for the run, if it runs that simulator.
  void ApplySetting(const wxString& p_sSimulator, const std::string& p_sName,
                    const std::string& p_sValue);

  // True from a start until the run's thread has published its end.
  bool IsActive();
  int GetState();

 private:
  // A change waiting for the run's thread.
  struct Change {
    enum Kind { PARAMETER, MARKING, ALL_PARAMETERS, ALL_MARKING, SETTING } kind;
    std::size_t position;
    double value;
    std::vector<double> values;
    std::string name, text;
  };
  typedef std::chrono::steady_clock Clock;

  // The run's thread.
  void Work();
  // Called by the engine at each output point, on the run's thread.
  bool AtOutputPoint(std::size_t p_nIndex, sim::Simulator& p_rSimulator);
  // REQUIRES: m_cMutex is held (these three).
  void ApplyChanges(sim::Simulator& p_rSimulator);
  void Publish(bool p_bResults);
  double RunSeconds(Clock::time_point p_tNow) const;
  void Queue(Change p_cChange);

  SteeringModelStore& m_rStore;
  const int m_nModel;

  std::mutex m_cControl;  // one start or join at a time
  std::thread m_cThread;

  std::mutex m_cMutex;  // everything below
  std::condition_variable m_cWake;
  std::unique_ptr<sim::Simulator> m_pcSimulator;
  sim::OutputGrid m_cGrid;
  std::size_t m_nPoints;  // output points of the run
  wxString m_sCategory, m_sSimulator;
  int m_nState;
  bool m_bActive;
  bool m_bPause;
  bool m_bStop;
  bool m_bSpeedChanged;
  std::atomic<bool> m_bAbort;
  unsigned int m_nSpeed;
  std::vector<Change> m_acChanges;
  SteeringMatrix m_aadResults;
  SteeringMatrix m_aadRates;
  std::vector<double> m_adMarking;  // the simulator's marking, as published
  std::size_t m_nDone;              // points recorded
  double m_dRunSeconds;             // running time before m_tRunningSince
  bool m_bRunning;                  // the clock runs (not paused)
  Clock::time_point m_tRunningSince;
  Clock::time_point m_tLastPoint;    // when the last point was recorded
  Clock::time_point m_tLastPublish;

  ModelRun(const ModelRun&) = delete;
  ModelRun& operator=(const ModelRun&) = delete;
};

}  // namespace simd
}  // namespace quor

#endif  // QUOR_SIMD_MODELRUN_H
