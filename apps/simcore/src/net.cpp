// SPDX-License-Identifier: MIT
#include "simcore/net.h"

#include <cmath>
#include <memory>
#include <set>
#include <stdexcept>

#include "simcore/rateFunction.h"
#include "simcore/textNumbers.h"

namespace quor {
namespace sim {

std::string OutputGrid::Check() const {
  if (!std::isfinite(start) || !std::isfinite(end) || !std::isfinite(step))
    return "the output interval must consist of finite numbers";
  if (!(step > 0.0)) return "the output step must be greater than 0 (it is " + FormatDouble(step) + ")";
  if (end < start)
    return "the output interval ends (" + FormatDouble(end) + ") before it starts (" +
           FormatDouble(start) + ")";
  double l_dIntervals = (end - start) / step;
  if (!(l_dIntervals < static_cast<double>(kMaxPoints)))
    return "the output grid would have more than " + std::to_string(kMaxPoints) + " points";
  return std::string();
}

std::size_t OutputGrid::Count() const {
  if (!Check().empty()) return 0;
  // A grid whose last interval falls short of a whole step by rounding only
  // still reaches end.
  double l_dIntervals = (end - start) / step;
  double l_dWhole = std::floor(l_dIntervals + 1e-9 * (1.0 + l_dIntervals));
  return static_cast<std::size_t>(l_dWhole) + 1;
}

std::string Transition::RateText() const {
  switch (rateKind) {
    case RateKind::Parameter: return parameterName;
    case RateKind::Function: return function;
    case RateKind::Constant: break;
  }
  return FormatDouble(rateValue);
}

std::string Transition::Describe() const {
  if (name.empty() || name == id) return "transition '" + id + "'";
  return "transition '" + name + "' (id '" + id + "')";
}

std::size_t Net::FindPlace(const std::string& p_sId) const {
  for (std::size_t i = 0; i < places.size(); ++i)
    if (places[i].id == p_sId) return i;
  return kNoIndex;
}

std::size_t Net::FindTransition(const std::string& p_sId) const {
  for (std::size_t i = 0; i < transitions.size(); ++i)
    if (transitions[i].id == p_sId) return i;
  return kNoIndex;
}

std::size_t Net::FindParameter(const std::string& p_sName) const {
  for (std::size_t i = 0; i < parameters.size(); ++i)
    if (parameters[i].name == p_sName) return i;
  return kNoIndex;
}

std::size_t Net::AddPlace(const std::string& p_sId, double p_dMarking) {
  Place l_cPlace;
  l_cPlace.id = p_sId;
  l_cPlace.name = p_sId;
  l_cPlace.initialMarking = p_dMarking;
  places.push_back(l_cPlace);
  return places.size() - 1;
}

std::size_t Net::AddParameter(const std::string& p_sName, double p_dValue) {
  Parameter l_cParameter;
  l_cParameter.name = p_sName;
  l_cParameter.value = p_dValue;
  parameters.push_back(l_cParameter);
  return parameters.size() - 1;
}

std::size_t Net::AddTransition(const std::string& p_sId, double p_dRate) {
  Transition l_cTransition;
  l_cTransition.id = p_sId;
  l_cTransition.name = p_sId;
  l_cTransition.rateKind = RateKind::Constant;
  l_cTransition.rateValue = p_dRate;
  transitions.push_back(l_cTransition);
  return transitions.size() - 1;
}

std::size_t Net::AddParameterTransition(const std::string& p_sId,
                                        const std::string& p_sParameter) {
  Transition l_cTransition;
  l_cTransition.id = p_sId;
  l_cTransition.name = p_sId;
  l_cTransition.rateKind = RateKind::Parameter;
  l_cTransition.parameterName = p_sParameter;
  l_cTransition.parameter = FindParameter(p_sParameter);
  transitions.push_back(l_cTransition);
  return transitions.size() - 1;
}

std::size_t Net::AddFunctionTransition(const std::string& p_sId, const std::string& p_sFunction) {
  std::size_t l_nTransition = AddTransition(p_sId, 1.0);
  transitions[l_nTransition].rateKind = RateKind::Function;
  transitions[l_nTransition].function = p_sFunction;
  return l_nTransition;
}

std::size_t Net::AddRateTransition(const std::string& p_sId, const std::string& p_sRate) {
  std::size_t l_nTransition = AddTransition(p_sId, 1.0);
  SetRate(l_nTransition, p_sRate);
  return l_nTransition;
}

void Net::SetRate(std::size_t p_nTransition, const std::string& p_sRate) {
  SetRate(transitions.at(p_nTransition), p_sRate);
}

void Net::SetRate(Transition& p_rTransition, const std::string& p_sRate) const {
  const std::string l_sRate = Trim(p_sRate);
  double l_dValue = 0.0;
  p_rTransition.parameter = kNoIndex;
  p_rTransition.parameterName.clear();
  p_rTransition.function.clear();
  if (ParseDouble(l_sRate, l_dValue)) {
    p_rTransition.rateKind = RateKind::Constant;
    p_rTransition.rateValue = l_dValue;
  } else if (!l_sRate.empty() && FindParameter(l_sRate) != kNoIndex) {
    p_rTransition.rateKind = RateKind::Parameter;
    p_rTransition.parameterName = l_sRate;
    p_rTransition.parameter = FindParameter(l_sRate);
  } else {
    p_rTransition.rateKind = RateKind::Function;
    p_rTransition.function = p_sRate;
  }
}

void Net::AddInputArc(const std::string& p_sPlace, const std::string& p_sTransition,
                      double p_dWeight) {
  AddArc(p_sPlace, p_sTransition, p_dWeight, true);
}

void Net::AddOutputArc(const std::string& p_sTransition, const std::string& p_sPlace,
                       double p_dWeight) {
  AddArc(p_sPlace, p_sTransition, p_dWeight, false);
}

void Net::AddArc(const std::string& p_sPlace, const std::string& p_sTransition,
                 double p_dWeight, bool p_bInput) {
  const std::size_t l_nPlace = FindPlace(p_sPlace);
  const std::size_t l_nTransition = FindTransition(p_sTransition);
  if (l_nPlace == kNoIndex) throw std::invalid_argument("no place '" + p_sPlace + "'");
  if (l_nTransition == kNoIndex) throw std::invalid_argument("no transition '" + p_sTransition + "'");
  AddArc(l_nPlace, l_nTransition, p_dWeight, p_bInput);
}

void Net::AddArc(std::size_t p_nPlace, std::size_t p_nTransition, double p_dWeight, bool p_bInput) {
  Arc l_cArc;
  l_cArc.place = p_nPlace;
  l_cArc.transition = p_nTransition;
  const std::string l_sPlace = p_nPlace < places.size() ? places[p_nPlace].id : "?";
  const std::string l_sTransition =
      p_nTransition < transitions.size() ? transitions[p_nTransition].id : "?";
  l_cArc.id = p_bInput ? l_sPlace + "->" + l_sTransition : l_sTransition + "->" + l_sPlace;
  l_cArc.input = p_bInput;
  l_cArc.weight = p_dWeight;
  arcs.push_back(l_cArc);
}

namespace {

bool IsUsableNumber(double p_dValue) { return std::isfinite(p_dValue) && p_dValue >= 0.0; }

}  // namespace

std::string Net::Validate() {
  std::set<std::string> l_cIds;
  for (const Place& l_rPlace : places) {
    if (l_rPlace.id.empty()) return "a place has an empty id";
    if (!l_cIds.insert(l_rPlace.id).second) return "the id '" + l_rPlace.id + "' is used twice";
    if (!IsUsableNumber(l_rPlace.initialMarking))
      return "place '" + l_rPlace.id + "' has an initial marking that is negative or not finite";
  }
  for (const Transition& l_rTransition : transitions) {
    if (l_rTransition.id.empty()) return "a transition has an empty id";
    if (!l_cIds.insert(l_rTransition.id).second)
      return "the id '" + l_rTransition.id + "' is used twice";
  }
  std::set<std::string> l_cNames;
  for (const Parameter& l_rParameter : parameters) {
    if (l_rParameter.name.empty()) return "a parameter has an empty name";
    if (!l_cNames.insert(l_rParameter.name).second)
      return "the parameter '" + l_rParameter.name + "' is defined twice";
    if (!IsUsableNumber(l_rParameter.value))
      return "parameter '" + l_rParameter.name + "' has a value that is negative or not finite";
  }
  std::unique_ptr<RateSymbols> l_pcSymbols;
  NetState l_cInitial;
  for (Transition& l_rTransition : transitions) {
    if (l_rTransition.rateKind == RateKind::Function) {
      l_rTransition.parameter = kNoIndex;
      if (!l_pcSymbols) {
        l_pcSymbols.reset(new RateSymbols(*this));
        l_cInitial = InitialState();
      }
      std::string l_sProblem;
      std::unique_ptr<RateFunction> l_pcFunction =
          CompileTransitionRate(l_rTransition, *l_pcSymbols, &l_sProblem);
      if (!l_pcFunction) return l_sProblem;
      const double l_dRate = l_pcFunction->Evaluate(
          l_cInitial.marking.data(), l_cInitial.parameters.data(), l_cInitial.time);
      if (!IsUsableNumber(l_dRate))
        return l_rTransition.Describe() + ": the rate function '" +
               l_rTransition.function + "' gives " + FormatDouble(l_dRate) +
               " in the initial state (a rate must be a finite number >= 0)";
    } else if (l_rTransition.rateKind == RateKind::Constant) {
      if (!IsUsableNumber(l_rTransition.rateValue))
        return "transition '" + l_rTransition.id + "' has a rate that is negative or not finite";
      l_rTransition.parameter = kNoIndex;
    } else {
      l_rTransition.parameter = FindParameter(l_rTransition.parameterName);
      if (l_rTransition.parameter == kNoIndex)
        return "transition '" + l_rTransition.id + "' refers to the unknown parameter '" +
               l_rTransition.parameterName + "'";
    }
  }
  for (const Arc& l_rArc : arcs) {
    if (l_rArc.place >= places.size() || l_rArc.transition >= transitions.size())
      return "arc '" + l_rArc.id + "' does not join a place of this net and a transition of it";
    if (!IsUsableNumber(l_rArc.weight))
      return "arc '" + l_rArc.id + "' has a weight that is negative or not finite";
  }
  return grid.Check();
}

NetState Net::InitialState() const {
  NetState l_cState;
  l_cState.time = grid.start;
  l_cState.marking.reserve(places.size());
  for (const Place& l_rPlace : places) l_cState.marking.push_back(l_rPlace.initialMarking);
  l_cState.parameters.reserve(parameters.size());
  for (const Parameter& l_rParameter : parameters) l_cState.parameters.push_back(l_rParameter.value);
  return l_cState;
}

}  // namespace sim
}  // namespace quor
