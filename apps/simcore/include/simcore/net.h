// SPDX-License-Identifier: MIT
// The place/transition net that the simulation engine runs: places with an
// initial marking, transitions with a rate (a mass-action rate constant, a
// number or a named parameter, or a rate function), weighted arcs, named
// parameters and a suggested output grid.
//
// Places, transitions and parameters keep the order in which they were
// defined (for a PNML file: document order, pages included), and everything
// else (steering, result matrices) addresses them by that 0-based position.
// All text is UTF-8. The types are plain values without any wxWidgets
// dependency, safe to copy between threads.
#ifndef QUOR_SIMCORE_NET_H
#define QUOR_SIMCORE_NET_H

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace quor {
namespace sim {

// Marks "no position" in the index fields below.
constexpr std::size_t kNoIndex = std::numeric_limits<std::size_t>::max();

struct Place {
  std::string id;
  std::string name;             // the id when the file gives no name
  double initialMarking = 0.0;  // finite, >= 0
};

// How a transition's rate is given.
enum class RateKind {
  Constant,   // mass action with the number in Transition::rateValue
  Parameter,  // mass action with the current value of Transition::parameter
  Function    // the value of the expression Transition::function (see rateFunction.h)
};

struct Transition {
  std::string id;
  std::string name;
  RateKind rateKind = RateKind::Constant;
  double rateValue = 1.0;           // used when rateKind == Constant; >= 0
  std::string parameterName;        // used when rateKind == Parameter
  std::size_t parameter = kNoIndex; // position of parameterName in Net::parameters
  std::string function;             // used when rateKind == Function

  // The rate as text, as it travels in a model's "TRANSITION_FUNCTIONS":
  // the number ("0.25"), the parameter's name, or the function.
  std::string RateText() const;
  // "transition 'name'", with the id as well when it differs from the name.
  std::string Describe() const;
};

// An arc joins a place and a transition. input == true: place -> transition
// (the transition consumes `weight` tokens and its rate depends on the
// place); input == false: transition -> place (it produces `weight`).
// Several arcs between the same place and transition in the same direction
// add up.
struct Arc {
  std::string id;
  std::size_t place = kNoIndex;
  std::size_t transition = kNoIndex;
  bool input = true;
  double weight = 1.0;  // finite, >= 0
};

struct Parameter {
  std::string name;
  double value = 0.0;  // finite, >= 0
};

// Output times start, start + step, start + 2 step, ... up to end (end
// itself belongs to the grid when (end - start) / step is a whole number up
// to rounding). Each time is computed as start + i * step, never summed up.
struct OutputGrid {
  double start = 0.0;
  double end = 100.0;
  double step = 1.0;

  // Largest grid accepted, so that a typo cannot ask for an absurd matrix.
  static constexpr std::size_t kMaxPoints = 10000000;

  // Empty when start/end/step describe a usable grid (finite, step > 0,
  // end >= start, at most kMaxPoints points), else what is wrong.
  std::string Check() const;
  std::size_t Count() const;  // 0 when Check() fails
  double At(std::size_t p_nIndex) const { return start + static_cast<double>(p_nIndex) * step; }
};

// A moment of a simulation: time, marking (one value per place) and
// parameter values (one per parameter).
struct NetState {
  double time = 0.0;
  std::vector<double> marking;
  std::vector<double> parameters;
};

struct Net {
  std::string id;
  std::string name;
  std::string source;  // file it came from, or "built-in:<id>"
  std::vector<Place> places;
  std::vector<Transition> transitions;
  std::vector<Arc> arcs;
  std::vector<Parameter> parameters;
  OutputGrid grid;  // suggested output grid

  std::size_t FindPlace(const std::string& p_sId) const;       // by id, or kNoIndex
  std::size_t FindTransition(const std::string& p_sId) const;  // by id, or kNoIndex
  std::size_t FindParameter(const std::string& p_sName) const; // by name, or kNoIndex

  // Builders for nets written in code. AddParameter and AddPlace return the
  // new position; the Add*Transition functions too. Weight defaults to 1.
  std::size_t AddPlace(const std::string& p_sId, double p_dMarking);
  std::size_t AddParameter(const std::string& p_sName, double p_dValue);
  std::size_t AddTransition(const std::string& p_sId, double p_dRate);
  std::size_t AddParameterTransition(const std::string& p_sId, const std::string& p_sParameter);
  std::size_t AddFunctionTransition(const std::string& p_sId, const std::string& p_sFunction);
  // A transition whose rate is given as text (SetRate below).
  std::size_t AddRateTransition(const std::string& p_sId, const std::string& p_sRate);
  void AddInputArc(const std::string& p_sPlace, const std::string& p_sTransition,
                   double p_dWeight = 1.0);
  void AddOutputArc(const std::string& p_sTransition, const std::string& p_sPlace,
                    double p_dWeight = 1.0);
  // Throws std::invalid_argument for an unknown place or transition.
  void AddArc(const std::string& p_sPlace, const std::string& p_sTransition, double p_dWeight,
              bool p_bInput);
  // The same by positions, in constant time (for large nets); Validate
  // checks them.
  void AddArc(std::size_t p_nPlace, std::size_t p_nTransition, double p_dWeight, bool p_bInput);

  // Sets the rate of transition p_nTransition from text, the way a rate
  // travels in "TRANSITION_FUNCTIONS": a number means mass action with
  // that constant, the name of one of the net's parameters (exactly, blanks
  // around it aside) mass action with that parameter, anything else is a
  // rate function. Define the parameters first.
  void SetRate(std::size_t p_nTransition, const std::string& p_sRate);
  // The same for a transition that is not (yet) part of the net.
  void SetRate(Transition& p_rTransition, const std::string& p_sRate) const;

  // Empty when the net is consistent (unique ids, arcs and parameter
  // references resolved, numbers finite and not negative, rate functions
  // that compile and give a finite rate >= 0 in the initial state, usable
  // grid); else the first problem found. Resolves Transition::parameter
  // from parameterName on the way.
  std::string Validate();

  // Time grid.start, the initial marking and the parameter values.
  NetState InitialState() const;
};

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_NET_H
