// SPDX-License-Identifier: MIT
#include "simcore/simulator.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <stdexcept>

#include "simcore/odeSimulator.h"
#include "simcore/ssaSimulator.h"
#include "simcore/textNumbers.h"

namespace quor {
namespace sim {

namespace {

void SetError(std::string* p_psError, const std::string& p_sMessage) {
  if (p_psError) *p_psError = p_sMessage;
}

bool IsUsableNumber(double p_dValue) { return std::isfinite(p_dValue) && p_dValue >= 0.0; }

}  // namespace

Simulator::Simulator(const Net& p_rNet) : m_cNet(p_rNet) {
  std::string l_sProblem = m_cNet.Validate();
  if (!l_sProblem.empty()) throw std::invalid_argument(l_sProblem);
  m_acTransitions.resize(m_cNet.transitions.size());
  std::vector<std::map<std::size_t, double>> l_acInputs(m_cNet.transitions.size());
  std::vector<std::map<std::size_t, double>> l_acChange(m_cNet.transitions.size());
  for (const Arc& l_rArc : m_cNet.arcs) {
    if (l_rArc.input) {
      l_acInputs[l_rArc.transition][l_rArc.place] += l_rArc.weight;
      l_acChange[l_rArc.transition][l_rArc.place] -= l_rArc.weight;
    } else {
      l_acChange[l_rArc.transition][l_rArc.place] += l_rArc.weight;
    }
  }
  std::unique_ptr<RateSymbols> l_pcSymbols;
  for (std::size_t j = 0; j < m_acTransitions.size(); ++j) {
    CompiledTransition& l_rCompiled = m_acTransitions[j];
    for (const std::pair<const std::size_t, double>& l_rInput : l_acInputs[j])
      if (l_rInput.second > 0.0) l_rCompiled.inputs.emplace_back(l_rInput.first, l_rInput.second);
    for (const std::pair<const std::size_t, double>& l_rChange : l_acChange[j])
      if (l_rChange.second != 0.0) l_rCompiled.change.emplace_back(l_rChange.first, l_rChange.second);
    const Transition& l_rTransition = m_cNet.transitions[j];
    l_rCompiled.parameter = l_rTransition.rateKind == RateKind::Parameter ? l_rTransition.parameter
                                                                           : kNoIndex;
    l_rCompiled.constant = l_rTransition.rateValue;
    std::set<std::size_t> l_anReads;
    for (const std::pair<std::size_t, double>& l_rInput : l_rCompiled.inputs)
      l_anReads.insert(l_rInput.first);
    if (l_rTransition.rateKind == RateKind::Function) {
      if (!l_pcSymbols) l_pcSymbols.reset(new RateSymbols(m_cNet));
      std::string l_sProblem;
      l_rCompiled.function = CompileTransitionRate(l_rTransition, *l_pcSymbols, &l_sProblem);
      // Validate compiled it already.
      if (!l_rCompiled.function) throw std::invalid_argument(l_sProblem);
      l_anReads.insert(l_rCompiled.function->Places().begin(), l_rCompiled.function->Places().end());
    }
    l_rCompiled.reads.assign(l_anReads.begin(), l_anReads.end());
  }
  NetState l_cState = m_cNet.InitialState();
  m_dTime = l_cState.time;
  m_adMarking = l_cState.marking;
  m_adParameters = l_cState.parameters;
}

Simulator::~Simulator() = default;

bool Simulator::Reset(const NetState& p_rState, std::string* p_psError) {
  if (!std::isfinite(p_rState.time)) {
    SetError(p_psError, "the start time is not finite");
    return false;
  }
  if (p_rState.marking.size() != m_cNet.places.size()) {
    SetError(p_psError, "the marking has " + std::to_string(p_rState.marking.size()) +
                            " values, the net has " + std::to_string(m_cNet.places.size()) +
                            " places");
    return false;
  }
  if (p_rState.parameters.size() != m_cNet.parameters.size()) {
    SetError(p_psError, "there are " + std::to_string(p_rState.parameters.size()) +
                            " parameter values, the net has " +
                            std::to_string(m_cNet.parameters.size()) + " parameters");
    return false;
  }
  for (std::size_t i = 0; i < p_rState.marking.size(); ++i)
    if (!IsUsableNumber(p_rState.marking[i])) {
      SetError(p_psError, "the marking of place '" + m_cNet.places[i].id +
                              "' is negative or not finite");
      return false;
    }
  for (std::size_t i = 0; i < p_rState.parameters.size(); ++i)
    if (!IsUsableNumber(p_rState.parameters[i])) {
      SetError(p_psError, "the value of parameter '" + m_cNet.parameters[i].name +
                              "' is negative or not finite");
      return false;
    }
  m_dTime = p_rState.time;
  m_adMarking.resize(p_rState.marking.size());
  for (std::size_t i = 0; i < p_rState.marking.size(); ++i)
    m_adMarking[i] = AdaptMarking(p_rState.marking[i]);
  m_adParameters = p_rState.parameters;
  m_sLastError.clear();
  StateChanged(true);
  return true;
}

void Simulator::Reset() {
  // The net was validated on construction, so its initial state is usable.
  Reset(m_cNet.InitialState());
}

double Simulator::RateConstant(std::size_t p_nTransition) const {
  const CompiledTransition& l_rCompiled = m_acTransitions.at(p_nTransition);
  return l_rCompiled.function ? std::nan("") : Constant(l_rCompiled);
}

std::vector<double> Simulator::Rates() const {
  std::vector<double> l_adRates(m_acTransitions.size());
  for (std::size_t j = 0; j < m_acTransitions.size(); ++j)
    l_adRates[j] = Rate(j, m_adMarking.data(), m_dTime);
  return l_adRates;
}

bool Simulator::FunctionRate(std::size_t p_nTransition, const double* p_pdX, double p_dTime,
                             double& p_rdRate, std::string* p_psError) const {
  const RateFunction& l_rFunction = *m_acTransitions[p_nTransition].function;
  p_rdRate = l_rFunction.Evaluate(p_pdX, m_adParameters.data(), p_dTime);
  if (IsUsableNumber(p_rdRate)) return true;
  SetError(p_psError, m_cNet.transitions[p_nTransition].Describe() + ": the rate function '" +
                          l_rFunction.Text() + "' gave " + FormatDouble(p_rdRate) + " at t = " +
                          FormatDouble(p_dTime) + " (a rate must be a finite number >= 0)");
  return false;
}

bool Simulator::CheckTarget(double p_dTime) {
  if (!std::isfinite(p_dTime)) {
    Fail("the target time " + FormatDouble(p_dTime) + " is not finite");
    return false;
  }
  if (p_dTime < m_dTime) {
    Fail("cannot go back in time from " + FormatDouble(m_dTime) + " to " + FormatDouble(p_dTime));
    return false;
  }
  return true;
}

bool Simulator::SetMarking(std::size_t p_nPlace, double p_dValue, std::string* p_psError) {
  if (p_nPlace >= m_adMarking.size()) {
    SetError(p_psError, "there is no place at position " + std::to_string(p_nPlace) +
                            " (the net has " + std::to_string(m_adMarking.size()) + ")");
    return false;
  }
  if (!IsUsableNumber(p_dValue)) {
    SetError(p_psError, "the marking " + FormatDouble(p_dValue) + " for place '" +
                            m_cNet.places[p_nPlace].id + "' is negative or not finite");
    return false;
  }
  m_adMarking[p_nPlace] = AdaptMarking(p_dValue);
  MarkingSet(p_nPlace);
  StateChanged(false);
  return true;
}

bool Simulator::SetParameter(std::size_t p_nParameter, double p_dValue, std::string* p_psError) {
  if (p_nParameter >= m_adParameters.size()) {
    SetError(p_psError, "there is no parameter at position " + std::to_string(p_nParameter) +
                            " (the net has " + std::to_string(m_adParameters.size()) + ")");
    return false;
  }
  if (!IsUsableNumber(p_dValue)) {
    SetError(p_psError, "the value " + FormatDouble(p_dValue) + " for parameter '" +
                            m_cNet.parameters[p_nParameter].name + "' is negative or not finite");
    return false;
  }
  m_adParameters[p_nParameter] = p_dValue;
  ParameterSet(p_nParameter);
  StateChanged(false);
  return true;
}

std::vector<SimulatorKind> AvailableSimulators() {
  return {{"continuous", "Continuous: ODEs, CVODE (BDF, Adams) or Dormand-Prince 5(4)"},
          {"stochastic", "Stochastic: Gillespie's direct method, ensembles of runs"}};
}

std::unique_ptr<Simulator> CreateSimulator(const std::string& p_sKind, const Net& p_rNet,
                                           std::string* p_psError) {
  Net l_cNet = p_rNet;
  std::string l_sProblem = l_cNet.Validate();
  if (!l_sProblem.empty()) {
    SetError(p_psError, l_sProblem);
    return nullptr;
  }
  if (p_sKind == "continuous") return std::unique_ptr<Simulator>(new OdeSimulator(l_cNet));
  if (p_sKind == "stochastic") {
    l_sProblem = SsaSimulator::CheckNet(l_cNet);
    if (!l_sProblem.empty()) {
      SetError(p_psError, l_sProblem);
      return nullptr;
    }
    return std::unique_ptr<Simulator>(new SsaSimulator(l_cNet));
  }
  SetError(p_psError, "unknown simulator '" + p_sKind + "' (known: continuous, stochastic)");
  return nullptr;
}

RunResult RunSimulation(Simulator& p_rSimulator, const OutputGrid& p_rGrid,
                        const OutputCallback& p_rCallback, bool p_bRecord) {
  RunResult l_cResult;
  std::string l_sProblem = p_rGrid.Check();
  if (!l_sProblem.empty()) {
    l_cResult.error = l_sProblem;
    return l_cResult;
  }
  if (p_rSimulator.Time() > p_rGrid.start) {
    l_cResult.error = "the simulation is at time " + FormatDouble(p_rSimulator.Time()) +
                      ", after the start of the output grid (" + FormatDouble(p_rGrid.start) + ")";
    return l_cResult;
  }
  const std::size_t l_nPoints = p_rGrid.Count();
  const std::size_t l_nPlaces = p_rSimulator.Marking().size();
  const std::size_t l_nTransitions = p_rSimulator.Compiled().size();
  if (p_bRecord) {
    l_cResult.times.reserve(l_nPoints);
    l_cResult.marking.assign(l_nPlaces, std::vector<double>());
    l_cResult.rates.assign(l_nTransitions, std::vector<double>());
    for (std::vector<double>& l_rRow : l_cResult.marking) l_rRow.reserve(l_nPoints);
    for (std::vector<double>& l_rRow : l_cResult.rates) l_rRow.reserve(l_nPoints);
  }
  for (std::size_t i = 0; i < l_nPoints; ++i) {
    double l_dTime = p_rGrid.At(i);
    AdvanceStatus l_eStatus = p_rSimulator.AdvanceTo(l_dTime);
    if (l_eStatus == AdvanceStatus::Aborted) {
      l_cResult.status = RunStatus::Aborted;
      return l_cResult;
    }
    if (l_eStatus == AdvanceStatus::Failed) {
      l_cResult.status = RunStatus::Failed;
      l_cResult.error = p_rSimulator.LastError();
      return l_cResult;
    }
    if (p_bRecord) {
      l_cResult.times.push_back(l_dTime);
      const std::vector<double>& l_rdMarking = p_rSimulator.Marking();
      for (std::size_t p = 0; p < l_nPlaces; ++p) l_cResult.marking[p].push_back(l_rdMarking[p]);
      std::vector<double> l_adRates = p_rSimulator.Rates();
      for (std::size_t j = 0; j < l_nTransitions; ++j) l_cResult.rates[j].push_back(l_adRates[j]);
    }
    if (p_rCallback && !p_rCallback(i, l_dTime, p_rSimulator)) {
      l_cResult.status = RunStatus::Stopped;
      return l_cResult;
    }
  }
  l_cResult.status = RunStatus::Completed;
  return l_cResult;
}

}  // namespace sim
}  // namespace quor
