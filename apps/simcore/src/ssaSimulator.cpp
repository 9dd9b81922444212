// SPDX-License-Identifier: MIT
#include "simcore/ssaSimulator.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <stdexcept>

#include "simcore/textNumbers.h"

namespace quor {
namespace sim {

namespace {

void SetError(std::string* p_psError, const std::string& p_sMessage) {
  if (p_psError) *p_psError = p_sMessage;
}

// Weights above this are surely a mistake and would make C(x, w) loops long.
const double kMaxWeight = 1e6;

// What the markings and sum trees of an ensemble may take together.
const double kMaxEnsembleBytes = 1024.0 * 1024.0 * 1024.0;

bool IsUsableNumber(double p_dValue) { return std::isfinite(p_dValue) && p_dValue >= 0.0; }

}  // namespace

std::string SsaSimulator::CheckNet(const Net& p_rNet) {
  for (const Arc& l_rArc : p_rNet.arcs) {
    if (l_rArc.weight != std::floor(l_rArc.weight) || l_rArc.weight > kMaxWeight)
      return "arc '" + l_rArc.id + "' has the weight " + FormatDouble(l_rArc.weight) +
             "; the stochastic simulator needs whole-number weights (at most 1e6)";
  }
  std::unique_ptr<RateSymbols> l_pcSymbols;
  for (const Transition& l_rTransition : p_rNet.transitions) {
    if (l_rTransition.rateKind != RateKind::Function) continue;
    if (!l_pcSymbols) l_pcSymbols.reset(new RateSymbols(p_rNet));
    std::string l_sProblem;
    std::unique_ptr<RateFunction> l_pcFunction =
        CompileTransitionRate(l_rTransition, *l_pcSymbols, &l_sProblem);
    if (!l_pcFunction) return l_sProblem;
    if (l_pcFunction->UsesTime())
      return l_rTransition.Describe() + ": the rate function '" + l_rTransition.function +
             "' reads the time t; the stochastic simulator needs rates that change only when "
             "markings or parameters do";
  }
  return std::string();
}

// SplitMix64 at position r of the sequence that starts at the ensemble's
// seed.
std::uint64_t SsaSimulator::RunSeed(std::uint64_t p_nSeed, std::size_t p_nRun) {
  if (p_nRun == 0) return p_nSeed;
  std::uint64_t z = p_nSeed + static_cast<std::uint64_t>(p_nRun) * 0x9E3779B97F4A7C15ull;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

SsaSimulator::SsaSimulator(const Net& p_rNet, std::uint64_t p_nSeed)
    : Simulator(p_rNet), m_nSeed(p_nSeed) {
  std::string l_sProblem = CheckNet(m_cNet);
  if (!l_sProblem.empty()) throw std::invalid_argument(l_sProblem);
  const std::size_t l_nTransitions = m_acTransitions.size();
  while (m_nLeaves < l_nTransitions) m_nLeaves *= 2;
  // Who reads which place, and from that whom a firing touches.
  m_aanReaders.assign(m_adMarking.size(), {});
  for (std::size_t j = 0; j < l_nTransitions; ++j)
    for (std::size_t p : m_acTransitions[j].reads) m_aanReaders[p].push_back(j);
  m_anDependentStart.assign(1, 0);
  for (std::size_t j = 0; j < l_nTransitions; ++j) {
    std::set<std::size_t> l_anDependents;
    for (const std::pair<std::size_t, double>& l_rChange : m_acTransitions[j].change)
      l_anDependents.insert(m_aanReaders[l_rChange.first].begin(),
                            m_aanReaders[l_rChange.first].end());
    m_anDependents.insert(m_anDependents.end(), l_anDependents.begin(), l_anDependents.end());
    m_anDependentStart.push_back(m_anDependents.size());
  }
  Reset();
}

std::vector<SettingInfo> SsaSimulator::Settings() const {
  auto l_fInteger = [](const char* p_sName, const char* p_sCaption, std::uint64_t p_nValue,
                       double p_dMin, double p_dMax) {
    SettingInfo l_cInfo;
    l_cInfo.name = p_sName;
    l_cInfo.caption = p_sCaption;
    l_cInfo.value = std::to_string(p_nValue);
    l_cInfo.guiType = GUI_TYPE_INTEGER;
    l_cInfo.min = p_dMin;
    l_cInfo.max = p_dMax;
    return l_cInfo;
  };
  return {l_fInteger("Seed", "Random seed", m_nSeed, 0.0,
                     static_cast<double>(std::numeric_limits<std::uint64_t>::max())),
          l_fInteger("Runs", "Runs of the ensemble (results are their mean)", m_nRunsSetting, 1.0,
                     static_cast<double>(kMaxRuns))};
}

bool SsaSimulator::ApplySetting(const std::string& p_sName, const std::string& p_sValue,
                                std::string* p_psError) {
  std::uint64_t l_nValue = 0;
  if (p_sName == "Seed") {
    if (!ParseUInt64(p_sValue, l_nValue)) {
      SetError(p_psError, "Seed: '" + p_sValue +
                              "' is not a whole number between 0 and 18446744073709551615");
      return false;
    }
    m_nSeed = l_nValue;
    return true;
  }
  if (p_sName == "Runs") {
    if (!ParseUInt64(p_sValue, l_nValue) || l_nValue < 1 || l_nValue > kMaxRuns) {
      SetError(p_psError, "Runs: '" + p_sValue + "' is not a whole number between 1 and " +
                              std::to_string(kMaxRuns));
      return false;
    }
    const double l_dBytes = static_cast<double>(l_nValue) *
                            static_cast<double>(m_adMarking.size() + 2 * m_nLeaves) *
                            sizeof(double);
    if (l_dBytes > kMaxEnsembleBytes) {
      SetError(p_psError, "Runs: " + p_sValue + " runs of this net would take " +
                              FormatDouble(std::round(l_dBytes / 1048576.0)) +
                              " MB; at most 1024 MB are allowed");
      return false;
    }
    m_nRunsSetting = static_cast<unsigned long>(l_nValue);
    return true;
  }
  SetError(p_psError,
           "the stochastic simulator has no setting '" + p_sName + "' (it has Seed, Runs)");
  return false;
}

double SsaSimulator::AdaptMarking(double p_dValue) const { return std::round(p_dValue); }

double SsaSimulator::Uniform(std::mt19937_64& p_rEngine) {
  return static_cast<double>(p_rEngine() >> 11) * (1.0 / 9007199254740992.0);
}

double SsaSimulator::Rate(std::size_t p_nTransition, const double* p_pdX, double p_dTime) const {
  const CompiledTransition& l_rCompiled = m_acTransitions[p_nTransition];
  if (!l_rCompiled.function) return MassActionPropensity(l_rCompiled, p_pdX);
  for (const std::pair<std::size_t, double>& l_rInput : l_rCompiled.inputs)
    if (p_pdX[l_rInput.first] < l_rInput.second) return 0.0;
  return l_rCompiled.function->Evaluate(p_pdX, m_adParameters.data(), p_dTime);
}

double SsaSimulator::Propensity(Run& p_rRun, std::size_t p_nTransition) {
  const CompiledTransition& l_rCompiled = m_acTransitions[p_nTransition];
  if (!l_rCompiled.function) return MassActionPropensity(l_rCompiled, p_rRun.marking.data());
  const double l_dRate = Rate(p_nTransition, p_rRun.marking.data(), p_rRun.time);
  if (IsUsableNumber(l_dRate)) return l_dRate;
  if (m_sLastError.empty()) {
    double l_dValue = 0.0;
    FunctionRate(p_nTransition, p_rRun.marking.data(), p_rRun.time, l_dValue, &m_sLastError);
  }
  return 0.0;
}

void SsaSimulator::Update(Run& p_rRun, std::size_t p_nTransition) {
  std::vector<double>& l_rTree = p_rRun.tree;
  std::size_t i = m_nLeaves + p_nTransition;
  l_rTree[i] = Propensity(p_rRun, p_nTransition);
  for (i /= 2; i >= 1; i /= 2) l_rTree[i] = l_rTree[2 * i] + l_rTree[2 * i + 1];
}

void SsaSimulator::UpdateAll(Run& p_rRun) {
  std::vector<double>& l_rTree = p_rRun.tree;
  l_rTree.assign(2 * m_nLeaves, 0.0);
  for (std::size_t j = 0; j < m_acTransitions.size(); ++j)
    l_rTree[m_nLeaves + j] = Propensity(p_rRun, j);
  for (std::size_t i = m_nLeaves - 1; i >= 1; --i) l_rTree[i] = l_rTree[2 * i] + l_rTree[2 * i + 1];
}

std::size_t SsaSimulator::Select(const Run& p_rRun, double p_dPick) const {
  const std::vector<double>& l_rTree = p_rRun.tree;
  std::size_t i = 1;
  while (i < m_nLeaves) {
    const double l_dLeft = l_rTree[2 * i];
    // Rounding may leave the pick at or above a node's sum: never step into
    // an empty subtree.
    if (p_dPick < l_dLeft || !(l_rTree[2 * i + 1] > 0.0)) {
      i = 2 * i;
    } else {
      p_dPick -= l_dLeft;
      i = 2 * i + 1;
    }
  }
  return i - m_nLeaves;
}

void SsaSimulator::StateChanged(bool p_bReset) {
  if (p_bReset) {
    m_sLastError.clear();
    m_acRuns.assign(m_nRunsSetting, Run());
    for (std::size_t r = 0; r < m_acRuns.size(); ++r) {
      Run& l_rRun = m_acRuns[r];
      l_rRun.marking = m_adMarking;
      l_rRun.engine.seed(RunSeed(m_nSeed, r));
      l_rRun.time = m_dTime;
      UpdateAll(l_rRun);
    }
    Publish();
  }
  for (Run& l_rRun : m_acRuns) l_rRun.pending = false;
}

void SsaSimulator::MarkingSet(std::size_t p_nPlace) {
  for (Run& l_rRun : m_acRuns) {
    l_rRun.marking[p_nPlace] = m_adMarking[p_nPlace];
    for (std::size_t j : m_aanReaders[p_nPlace]) Update(l_rRun, j);
  }
}

void SsaSimulator::ParameterSet(std::size_t p_nParameter) {
  (void)p_nParameter;
  for (Run& l_rRun : m_acRuns) UpdateAll(l_rRun);
}

void SsaSimulator::Publish() {
  if (m_acRuns.size() == 1) {
    m_adMarking = m_acRuns.front().marking;
    return;
  }
  std::fill(m_adMarking.begin(), m_adMarking.end(), 0.0);
  for (const Run& l_rRun : m_acRuns)
    for (std::size_t p = 0; p < m_adMarking.size(); ++p) m_adMarking[p] += l_rRun.marking[p];
  const double l_dRuns = static_cast<double>(m_acRuns.size());
  for (double& l_rdValue : m_adMarking) l_rdValue /= l_dRuns;
}

std::vector<double> SsaSimulator::Rates() const {
  std::vector<double> l_adRates(m_acTransitions.size(), 0.0);
  for (const Run& l_rRun : m_acRuns)
    for (std::size_t j = 0; j < l_adRates.size(); ++j) l_adRates[j] += l_rRun.tree[m_nLeaves + j];
  if (m_acRuns.size() > 1) {
    const double l_dRuns = static_cast<double>(m_acRuns.size());
    for (double& l_rdRate : l_adRates) l_rdRate /= l_dRuns;
  }
  return l_adRates;
}

std::string SsaSimulator::Summary() const {
  if (m_acRuns.size() <= 1) return std::string();
  return std::to_string(m_acRuns.size()) + " runs";
}

unsigned long long SsaSimulator::Events() const {
  unsigned long long l_nEvents = 0;
  for (const Run& l_rRun : m_acRuns) l_nEvents += l_rRun.events;
  return l_nEvents;
}

AdvanceStatus SsaSimulator::Advance(Run& p_rRun, double p_dTime, unsigned long long& p_rnSteps) {
  for (;;) {
    if ((++p_rnSteps & 0x3ff) == 0 && AbortRequested()) return AdvanceStatus::Aborted;
    if (!p_rRun.pending) {
      if (!m_sLastError.empty()) return AdvanceStatus::Failed;
      const double l_dTotal = p_rRun.tree[1];
      if (!std::isfinite(l_dTotal))
        return Fail("the total propensity is not finite at t = " + FormatDouble(p_rRun.time) +
                    " (the marking grew without bound)");
      if (l_dTotal <= 0.0) {
        // Nothing can happen until a steering change.
        p_rRun.time = p_dTime;
        return AdvanceStatus::Reached;
      }
      // 1 - U lies in (0, 1], so the logarithm is finite.
      p_rRun.nextEvent = p_rRun.time - std::log(1.0 - Uniform(p_rRun.engine)) / l_dTotal;
      p_rRun.total = l_dTotal;
      p_rRun.pending = true;
    }
    if (p_rRun.nextEvent > p_dTime) {
      p_rRun.time = p_dTime;
      return AdvanceStatus::Reached;
    }
    const std::size_t l_nChosen = Select(p_rRun, Uniform(p_rRun.engine) * p_rRun.total);
    // The event time may equal the current time only if the wait rounded
    // to 0; time never decreases.
    if (p_rRun.nextEvent > p_rRun.time) p_rRun.time = p_rRun.nextEvent;
    p_rRun.pending = false;
    for (const std::pair<std::size_t, double>& l_rChange : m_acTransitions[l_nChosen].change) {
      double& l_rdX = p_rRun.marking[l_rChange.first];
      l_rdX += l_rChange.second;
      // Inputs enable the transition only with enough tokens; guard anyway
      // against rounding in huge markings.
      if (l_rdX < 0.0) l_rdX = 0.0;
    }
    for (std::size_t d = m_anDependentStart[l_nChosen]; d < m_anDependentStart[l_nChosen + 1]; ++d)
      Update(p_rRun, m_anDependents[d]);
    ++p_rRun.events;
  }
}

AdvanceStatus SsaSimulator::AdvanceTo(double p_dTime) {
  if (!CheckTarget(p_dTime)) return AdvanceStatus::Failed;
  unsigned long long l_nSteps = 0;
  for (Run& l_rRun : m_acRuns) {
    const AdvanceStatus l_eStatus = Advance(l_rRun, p_dTime, l_nSteps);
    if (l_eStatus != AdvanceStatus::Reached) return l_eStatus;
  }
  m_dTime = p_dTime;
  Publish();
  return AdvanceStatus::Reached;
}

}  // namespace sim
}  // namespace quor
