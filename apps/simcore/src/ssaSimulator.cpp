// SPDX-License-Identifier: MIT
#include "simcore/ssaSimulator.h"

#include <cmath>
#include <limits>
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

}  // namespace

std::string SsaSimulator::CheckNet(const Net& p_rNet) {
  for (const Arc& l_rArc : p_rNet.arcs) {
    if (l_rArc.weight != std::floor(l_rArc.weight) || l_rArc.weight > kMaxWeight)
      return "arc '" + l_rArc.id + "' has the weight " + FormatDouble(l_rArc.weight) +
             "; the stochastic simulator needs whole-number weights (at most 1e6)";
  }
  return std::string();
}

SsaSimulator::SsaSimulator(const Net& p_rNet, std::uint64_t p_nSeed)
    : Simulator(p_rNet), m_nSeed(p_nSeed), m_cEngine(p_nSeed) {
  std::string l_sProblem = CheckNet(m_cNet);
  if (!l_sProblem.empty()) throw std::invalid_argument(l_sProblem);
  m_adPropensities.assign(m_acTransitions.size(), 0.0);
  Reset();
}

std::vector<SettingInfo> SsaSimulator::Settings() const {
  SettingInfo l_cSeed;
  l_cSeed.name = "Seed";
  l_cSeed.caption = "Random seed";
  l_cSeed.value = std::to_string(m_nSeed);
  l_cSeed.guiType = GUI_TYPE_INTEGER;
  l_cSeed.min = 0.0;
  l_cSeed.max = static_cast<double>(std::numeric_limits<std::uint64_t>::max());
  return {l_cSeed};
}

bool SsaSimulator::ApplySetting(const std::string& p_sName, const std::string& p_sValue,
                                std::string* p_psError) {
  if (p_sName != "Seed") {
    SetError(p_psError, "the stochastic simulator has no setting '" + p_sName + "' (it has Seed)");
    return false;
  }
  std::uint64_t l_nSeed = 0;
  if (!ParseUInt64(p_sValue, l_nSeed)) {
    SetError(p_psError, "Seed: '" + p_sValue +
                            "' is not a whole number between 0 and 18446744073709551615");
    return false;
  }
  m_nSeed = l_nSeed;
  return true;
}

double SsaSimulator::AdaptMarking(double p_dValue) const { return std::round(p_dValue); }

void SsaSimulator::StateChanged(bool p_bReset) {
  if (p_bReset) {
    m_cEngine.seed(m_nSeed);
    m_nEvents = 0;
  }
  m_bPending = false;
}

double SsaSimulator::Rate(std::size_t p_nTransition, const std::vector<double>& p_rdX) const {
  const CompiledTransition& l_rCompiled = m_acTransitions[p_nTransition];
  double l_dRate = l_rCompiled.parameter == kNoIndex ? l_rCompiled.constant
                                                     : m_adParameters[l_rCompiled.parameter];
  for (const std::pair<std::size_t, double>& l_rInput : l_rCompiled.inputs) {
    if (l_dRate == 0.0) break;
    double l_dX = p_rdX[l_rInput.first];
    double l_dW = l_rInput.second;
    if (l_dX < l_dW) return 0.0;
    if (l_dW == 1.0) {
      l_dRate *= l_dX;
    } else {
      // C(x, w) = prod_{i<w} (x - i) / (i + 1), in doubles (no overflow of
      // an integer type for large markings).
      for (double i = 0.0; i < l_dW; i += 1.0) l_dRate *= (l_dX - i) / (i + 1.0);
    }
  }
  return l_dRate;
}

double SsaSimulator::Uniform() {
  return static_cast<double>(m_cEngine() >> 11) * (1.0 / 9007199254740992.0);
}

void SsaSimulator::Fire(std::size_t p_nTransition) {
  for (const std::pair<std::size_t, double>& l_rChange : m_acTransitions[p_nTransition].change) {
    double& l_rdX = m_adMarking[l_rChange.first];
    l_rdX += l_rChange.second;
    // Inputs enable the transition only with enough tokens; guard anyway
    // against rounding in huge markings.
    if (l_rdX < 0.0) l_rdX = 0.0;
  }
  ++m_nEvents;
}

AdvanceStatus SsaSimulator::AdvanceTo(double p_dTime) {
  if (!std::isfinite(p_dTime))
    return Fail("the target time " + FormatDouble(p_dTime) + " is not finite");
  if (p_dTime < m_dTime)
    return Fail("cannot go back in time from " + FormatDouble(m_dTime) + " to " +
                FormatDouble(p_dTime));
  unsigned long long l_nSteps = 0;
  const std::size_t l_nTransitions = m_acTransitions.size();
  for (;;) {
    if ((++l_nSteps & 0x3ff) == 0 && AbortRequested()) return AdvanceStatus::Aborted;
    if (!m_bPending) {
      m_dTotal = 0.0;
      for (std::size_t j = 0; j < l_nTransitions; ++j) {
        m_adPropensities[j] = Rate(j, m_adMarking);
        m_dTotal += m_adPropensities[j];
      }
      if (!std::isfinite(m_dTotal))
        return Fail("the total propensity is not finite at t = " + FormatDouble(m_dTime) +
                    " (the marking grew without bound)");
      if (m_dTotal <= 0.0) {
        // Nothing can happen until a steering change.
        m_dTime = p_dTime;
        return AdvanceStatus::Reached;
      }
      // 1 - U lies in (0, 1], so the logarithm is finite.
      double l_dWait = -std::log(1.0 - Uniform()) / m_dTotal;
      m_dNextEvent = m_dTime + l_dWait;
      m_bPending = true;
    }
    if (m_dNextEvent > p_dTime) {
      m_dTime = p_dTime;
      return AdvanceStatus::Reached;
    }
    double l_dPick = Uniform() * m_dTotal;
    std::size_t l_nChosen = l_nTransitions;
    double l_dSum = 0.0;
    for (std::size_t j = 0; j < l_nTransitions; ++j) {
      if (m_adPropensities[j] <= 0.0) continue;
      l_nChosen = j;  // the last enabled one, should rounding leave l_dPick above the sum
      l_dSum += m_adPropensities[j];
      if (l_dPick < l_dSum) break;
    }
    // The event time may equal the current time only if the wait rounded
    // to 0; time never decreases.
    if (m_dNextEvent > m_dTime) m_dTime = m_dNextEvent;
    m_bPending = false;
    Fire(l_nChosen);
  }
}

}  // namespace sim
}  // namespace quor
