// SPDX-License-Identifier: MIT
// The common interface of the simulators, and RunSimulation(), which drives
// one over an output grid.
//
// A simulator owns a compiled copy of a net and a current state (time,
// marking, parameter values). It moves forward with AdvanceTo(); between two
// calls its owner may change markings and parameters (steering), and these
// changes act from the current time on. A simulator is not thread-safe: one
// thread (the server's worker) calls it, and other threads hand their
// changes to that thread. The only thing another thread may touch is the
// abort flag given to SetAbortFlag().
//
// Rate law. Mass action: transition j with rate constant k_j and input
// arcs of weight w_p from places p:
//   continuous: flux_j = k_j * prod_p max(x_p, 0)^w_p
//   stochastic: propensity_j = k_j * prod_p C(x_p, w_p), C the binomial
//               coefficient (0 when x_p < w_p)
// For weights 0 and 1 both agree; for weight 2 the stochastic law counts
// unordered pairs (x(x-1)/2), so the continuous limit of a stochastic run
// is k x^2 / 2, not k x^2.
// A rate function is the flux (continuous) or the propensity (stochastic;
// 0 while an input place holds fewer tokens than its arc's weight) itself.
// It must give a finite value >= 0: anything else ends the run with an
// error that names the transition and the time.
#ifndef QUOR_SIMCORE_SIMULATOR_H
#define QUOR_SIMCORE_SIMULATOR_H

#include <atomic>
#include <cmath>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "simcore/net.h"
#include "simcore/rateFunction.h"

namespace quor {
namespace sim {

// Which input control a client should offer for a setting.
enum GuiType : unsigned int {
  GUI_TYPE_TEXT = 0,     // free text
  GUI_TYPE_INTEGER = 1,  // whole number within [min, max]
  GUI_TYPE_DOUBLE = 2,   // real number within [min, max]
  GUI_TYPE_CHOICE = 3,   // one of possibleValues
  GUI_TYPE_BOOL = 4      // "0" or "1"
};

// One setting of a simulator as offered to clients.
struct SettingInfo {
  std::string name;     // key for ApplySetting
  std::string caption;  // for people
  std::string value;    // current value as text
  unsigned int guiType = GUI_TYPE_TEXT;
  double min = 0.0;
  double max = 0.0;
  std::vector<std::string> possibleValues;  // for GUI_TYPE_CHOICE
};

// A transition with its arcs summed up per place.
struct CompiledTransition {
  std::vector<std::pair<std::size_t, double>> inputs;  // (place, weight), weight > 0
  std::vector<std::pair<std::size_t, double>> change;  // (place, post - pre), != 0
  std::size_t parameter = kNoIndex;  // rate constant from this parameter, or
  double constant = 1.0;             // this number when parameter == kNoIndex
  std::unique_ptr<RateFunction> function;  // the rate, when given by a function
  std::vector<std::size_t> reads;  // places the rate depends on, ascending
};

enum class AdvanceStatus {
  Reached,  // Time() is now the requested time
  Aborted,  // the abort flag was raised; Time() lies before the requested time
  Failed    // the simulation cannot go on; LastError() says why
};

class Simulator {
 public:
  explicit Simulator(const Net& p_rNet);
  virtual ~Simulator();
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  // "continuous" or "stochastic".
  virtual std::string Kind() const = 0;

  // The settings with their current values, in a fixed order.
  virtual std::vector<SettingInfo> Settings() const = 0;
  // Sets one setting by name from text. False, with p_psError (if given)
  // telling why, for an unknown name or a value that is unreadable or out of
  // range; nothing changes then. Takes effect at once (tolerances) or at
  // the next Reset (seed), as documented by each simulator.
  virtual bool ApplySetting(const std::string& p_sName, const std::string& p_sValue,
                            std::string* p_psError = nullptr) = 0;

  // Starts over from p_rState (sizes must match the net; values finite and
  // not negative). False with a message otherwise, nothing changed.
  bool Reset(const NetState& p_rState, std::string* p_psError = nullptr);
  // Starts over from the net's initial state.
  void Reset();

  // Simulates up to time p_dTime (>= Time()).
  virtual AdvanceStatus AdvanceTo(double p_dTime) = 0;
  const std::string& LastError() const { return m_sLastError; }

  double Time() const { return m_dTime; }
  const std::vector<double>& Marking() const { return m_adMarking; }
  const std::vector<double>& ParameterValues() const { return m_adParameters; }
  // The current rate of each transition under this simulator's rate law.
  virtual std::vector<double> Rates() const;
  // The mass-action rate constant that transition p_nTransition uses now
  // (NaN for a transition with a rate function).
  double RateConstant(std::size_t p_nTransition) const;

  // Steering: the value holds from the current time on. False with a
  // message for a position out of range or a negative/non-finite value.
  // The stochastic simulator rounds markings to whole numbers.
  bool SetMarking(std::size_t p_nPlace, double p_dValue, std::string* p_psError = nullptr);
  bool SetParameter(std::size_t p_nParameter, double p_dValue, std::string* p_psError = nullptr);

  // What a run of this simulator did beyond its output points, for the
  // log ("400 runs"); empty when there is nothing to say.
  virtual std::string Summary() const { return std::string(); }

  // While *p_pbFlag is true, AdvanceTo returns Aborted soon (it looks at the
  // flag every few hundred steps or events). nullptr: no flag.
  void SetAbortFlag(const std::atomic<bool>* p_pbFlag) { m_pbAbort = p_pbFlag; }

  const Net& GetNet() const { return m_cNet; }
  const std::vector<CompiledTransition>& Compiled() const { return m_acTransitions; }

 protected:
  // Rounds or otherwise adapts a marking value before it is stored.
  virtual double AdaptMarking(double p_dValue) const { return p_dValue; }
  // Called after Reset, SetMarking and SetParameter: forget whatever was
  // prepared for the old state (step size, pending event).
  virtual void StateChanged(bool p_bReset) = 0;
  // Called by SetMarking and SetParameter after the value was stored, before
  // StateChanged(false); for simulators that keep more than one state.
  virtual void MarkingSet(std::size_t p_nPlace) { (void)p_nPlace; }
  virtual void ParameterSet(std::size_t p_nParameter) { (void)p_nParameter; }
  // One transition's rate under this simulator's law at marking p_pdX and
  // time p_dTime.
  virtual double Rate(std::size_t p_nTransition, const double* p_pdX, double p_dTime) const = 0;

  // The mass-action part of the laws: the rate constant now, the
  // continuous flux and the stochastic propensity of a transition without
  // a rate function.
  double Constant(const CompiledTransition& p_rCompiled) const {
    return p_rCompiled.parameter == kNoIndex ? p_rCompiled.constant
                                             : m_adParameters[p_rCompiled.parameter];
  }
  // (Inline: they are what the simulators spend their time in.)
  double MassActionFlux(const CompiledTransition& p_rCompiled, const double* p_pdX) const {
    double l_dRate = Constant(p_rCompiled);
    for (const std::pair<std::size_t, double>& l_rInput : p_rCompiled.inputs) {
      if (l_dRate == 0.0) break;
      const double l_dX = p_pdX[l_rInput.first] > 0.0 ? p_pdX[l_rInput.first] : 0.0;
      const double l_dW = l_rInput.second;
      if (l_dW == 1.0)
        l_dRate *= l_dX;
      else if (l_dW == 2.0)
        l_dRate *= l_dX * l_dX;
      else
        l_dRate *= std::pow(l_dX, l_dW);
    }
    return l_dRate;
  }
  double MassActionPropensity(const CompiledTransition& p_rCompiled, const double* p_pdX) const {
    double l_dRate = Constant(p_rCompiled);
    for (const std::pair<std::size_t, double>& l_rInput : p_rCompiled.inputs) {
      const double l_dX = p_pdX[l_rInput.first];
      const double l_dW = l_rInput.second;
      if (l_dW == 1.0) {
        l_dRate *= l_dX;  // 0 when the place is empty
      } else {
        if (l_dX < l_dW) return 0.0;
        // C(x, w) = prod_{i<w} (x - i) / (i + 1), in doubles (no overflow
        // of an integer type for large markings).
        for (double i = 0.0; i < l_dW; i += 1.0) l_dRate *= (l_dX - i) / (i + 1.0);
      }
    }
    return l_dRate;
  }
  // The value of a rate function; with p_psError a value that is negative
  // or not finite gives false and the message (naming the transition and
  // the time), else true.
  bool FunctionRate(std::size_t p_nTransition, const double* p_pdX, double p_dTime,
                    double& p_rdRate, std::string* p_psError) const;

  bool AbortRequested() const {
    return m_pbAbort && m_pbAbort->load(std::memory_order_relaxed);
  }
  AdvanceStatus Fail(const std::string& p_sMessage) {
    m_sLastError = p_sMessage;
    return AdvanceStatus::Failed;
  }
  // False, with the reason in LastError(), for a target time of AdvanceTo
  // that is not finite or lies before Time().
  bool CheckTarget(double p_dTime);

  Net m_cNet;
  std::vector<CompiledTransition> m_acTransitions;
  double m_dTime = 0.0;
  std::vector<double> m_adMarking;
  std::vector<double> m_adParameters;
  std::string m_sLastError;

 private:
  const std::atomic<bool>* m_pbAbort = nullptr;
};

// The simulators this engine has.
struct SimulatorKind {
  std::string name;     // "continuous", "stochastic"
  std::string caption;  // for people
};
std::vector<SimulatorKind> AvailableSimulators();

// A simulator of the kind p_sKind for the net (validated on the way), reset
// to the net's initial state; nullptr with a message for an unknown kind or
// a net that this kind cannot run (e.g. fractional weights for the
// stochastic simulator).
std::unique_ptr<Simulator> CreateSimulator(const std::string& p_sKind, const Net& p_rNet,
                                           std::string* p_psError = nullptr);

// Rows are places (or transitions), columns output points.
typedef std::vector<std::vector<double>> Matrix;

enum class RunStatus {
  Completed,  // every output point was produced
  Stopped,    // the callback asked to stop
  Aborted,    // the abort flag was raised
  Failed      // AdvanceTo failed or the grid is unusable; see error
};

struct RunResult {
  RunStatus status = RunStatus::Failed;
  std::string error;
  std::vector<double> times;  // one per column produced
  Matrix marking;             // one row per place
  Matrix rates;               // one row per transition
};

// Called at each output point after the state of that point was recorded;
// may read and steer the simulator (changes act from this point on) and
// may block (pause). Returns false to stop the run.
typedef std::function<bool(std::size_t p_nIndex, double p_dTime, Simulator& p_rSimulator)>
    OutputCallback;

// Runs from the simulator's current state through every point of p_rGrid:
// AdvanceTo(point), record marking and rates, call p_rCallback. The
// simulator's time must not lie after p_rGrid.start (normally it was just
// Reset to the grid's start). With p_bRecord false the matrices stay empty
// (for callers that stream points from the callback).
RunResult RunSimulation(Simulator& p_rSimulator, const OutputGrid& p_rGrid,
              const OutputCallback& p_rCallback = OutputCallback(), bool p_bRecord = true);

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_SIMULATOR_H
