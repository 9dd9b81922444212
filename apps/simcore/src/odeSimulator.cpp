// SPDX-License-Identifier: MIT
#include "simcore/odeSimulator.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "simcore/textNumbers.h"

namespace quor {
namespace sim {

namespace {

// Dormand-Prince 5(4) tableau.
const double a21 = 1.0 / 5.0;
const double a31 = 3.0 / 40.0, a32 = 9.0 / 40.0;
const double a41 = 44.0 / 45.0, a42 = -56.0 / 15.0, a43 = 32.0 / 9.0;
const double a51 = 19372.0 / 6561.0, a52 = -25360.0 / 2187.0, a53 = 64448.0 / 6561.0,
             a54 = -212.0 / 729.0;
const double a61 = 9017.0 / 3168.0, a62 = -355.0 / 33.0, a63 = 46732.0 / 5247.0,
             a64 = 49.0 / 176.0, a65 = -5103.0 / 18656.0;
// Fifth-order weights (also the last stage's row: first same as last).
const double b1 = 35.0 / 384.0, b3 = 500.0 / 1113.0, b4 = 125.0 / 192.0, b5 = -2187.0 / 6784.0,
             b6 = 11.0 / 84.0;
// Fifth minus fourth order weights: the error estimate.
const double e1 = 71.0 / 57600.0, e3 = -71.0 / 16695.0, e4 = 71.0 / 1920.0,
             e5 = -17253.0 / 339200.0, e6 = 22.0 / 525.0, e7 = -1.0 / 40.0;

// Step size controller.
const double kSafety = 0.9;
const double kMinFactor = 0.2;
const double kMaxFactor = 5.0;

struct Limits {
  double min, max;
};
const Limits kAbsTolLimits = {1e-20, 1e10};
const Limits kRelTolLimits = {1e-14, 1.0};
const Limits kMaxStepLimits = {0.0, 1e300};

void SetError(std::string* p_psError, const std::string& p_sMessage) {
  if (p_psError) *p_psError = p_sMessage;
}

}  // namespace

OdeSimulator::OdeSimulator(const Net& p_rNet) : Simulator(p_rNet) {
  const std::size_t n = m_adMarking.size();
  for (std::vector<double>& l_rK : m_adK) l_rK.assign(n, 0.0);
  m_adStage.assign(n, 0.0);
  m_adNew.assign(n, 0.0);
  m_adError.assign(n, 0.0);
  Reset();
}

std::vector<SettingInfo> OdeSimulator::Settings() const {
  auto l_fDouble = [](const char* p_sName, const char* p_sCaption, double p_dValue,
                      const Limits& p_cLimits) {
    SettingInfo l_cInfo;
    l_cInfo.name = p_sName;
    l_cInfo.caption = p_sCaption;
    l_cInfo.value = FormatDouble(p_dValue);
    l_cInfo.guiType = GUI_TYPE_DOUBLE;
    l_cInfo.min = p_cLimits.min;
    l_cInfo.max = p_cLimits.max;
    return l_cInfo;
  };
  return {l_fDouble("AbsoluteTolerance", "Absolute tolerance", m_dAbsTol, kAbsTolLimits),
          l_fDouble("RelativeTolerance", "Relative tolerance", m_dRelTol, kRelTolLimits),
          l_fDouble("MaxStep", "Maximum step size (0: no limit)", m_dMaxStep, kMaxStepLimits)};
}

bool OdeSimulator::ApplySetting(const std::string& p_sName, const std::string& p_sValue,
                                std::string* p_psError) {
  double* l_pdTarget = nullptr;
  Limits l_cLimits = {0.0, 0.0};
  if (p_sName == "AbsoluteTolerance") {
    l_pdTarget = &m_dAbsTol;
    l_cLimits = kAbsTolLimits;
  } else if (p_sName == "RelativeTolerance") {
    l_pdTarget = &m_dRelTol;
    l_cLimits = kRelTolLimits;
  } else if (p_sName == "MaxStep") {
    l_pdTarget = &m_dMaxStep;
    l_cLimits = kMaxStepLimits;
  } else {
    SetError(p_psError, "the continuous simulator has no setting '" + p_sName +
                            "' (it has AbsoluteTolerance, RelativeTolerance, MaxStep)");
    return false;
  }
  double l_dValue = 0.0;
  if (!ParseDouble(p_sValue, l_dValue)) {
    SetError(p_psError, p_sName + ": '" + p_sValue + "' is not a number");
    return false;
  }
  if (l_dValue < l_cLimits.min || l_dValue > l_cLimits.max) {
    SetError(p_psError, p_sName + ": " + p_sValue + " lies outside [" +
                            FormatDouble(l_cLimits.min) + ", " + FormatDouble(l_cLimits.max) + "]");
    return false;
  }
  *l_pdTarget = l_dValue;
  m_dStep = 0.0;  // the step size history belongs to the old settings
  return true;
}

void OdeSimulator::StateChanged(bool p_bReset) {
  (void)p_bReset;
  m_dStep = 0.0;
  m_bHaveSlope = false;
}

double OdeSimulator::Rate(std::size_t p_nTransition, const std::vector<double>& p_rdX) const {
  const CompiledTransition& l_rCompiled = m_acTransitions[p_nTransition];
  double l_dRate = l_rCompiled.parameter == kNoIndex ? l_rCompiled.constant
                                                     : m_adParameters[l_rCompiled.parameter];
  for (const std::pair<std::size_t, double>& l_rInput : l_rCompiled.inputs) {
    if (l_dRate == 0.0) break;
    double l_dX = std::max(p_rdX[l_rInput.first], 0.0);
    double l_dW = l_rInput.second;
    if (l_dW == 1.0)
      l_dRate *= l_dX;
    else if (l_dW == 2.0)
      l_dRate *= l_dX * l_dX;
    else
      l_dRate *= std::pow(l_dX, l_dW);
  }
  return l_dRate;
}

void OdeSimulator::Derivative(const std::vector<double>& p_rdX, std::vector<double>& p_rdDx) const {
  std::fill(p_rdDx.begin(), p_rdDx.end(), 0.0);
  for (std::size_t j = 0; j < m_acTransitions.size(); ++j) {
    const CompiledTransition& l_rCompiled = m_acTransitions[j];
    if (l_rCompiled.change.empty()) continue;
    double l_dFlux = Rate(j, p_rdX);
    if (l_dFlux == 0.0) continue;
    for (const std::pair<std::size_t, double>& l_rChange : l_rCompiled.change)
      p_rdDx[l_rChange.first] += l_rChange.second * l_dFlux;
  }
}

double OdeSimulator::ErrorNorm(const std::vector<double>& p_rdY, const std::vector<double>& p_rdYNew,
                               const std::vector<double>& p_rdError) const {
  double l_dSum = 0.0;
  const std::size_t n = p_rdY.size();
  for (std::size_t i = 0; i < n; ++i) {
    if (!std::isfinite(p_rdYNew[i])) return std::numeric_limits<double>::infinity();
    double l_dScale = m_dAbsTol + m_dRelTol * std::max(std::fabs(p_rdY[i]), std::fabs(p_rdYNew[i]));
    double l_dRatio = p_rdError[i] / l_dScale;
    l_dSum += l_dRatio * l_dRatio;
  }
  double l_dNorm = std::sqrt(l_dSum / static_cast<double>(n));
  return std::isfinite(l_dNorm) ? l_dNorm : std::numeric_limits<double>::infinity();
}

// The starting step of Hairer, Norsett and Wanner (Solving ODEs I, II.4):
// small enough that an explicit Euler step would stay within the tolerance.
double OdeSimulator::InitialStep(double p_dSpan) {
  const std::size_t n = m_adMarking.size();
  const std::vector<double>& y = m_adMarking;
  const std::vector<double>& f0 = m_adK[0];
  double l_dD0 = 0.0, l_dD1 = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    double l_dScale = m_dAbsTol + m_dRelTol * std::fabs(y[i]);
    l_dD0 += (y[i] / l_dScale) * (y[i] / l_dScale);
    l_dD1 += (f0[i] / l_dScale) * (f0[i] / l_dScale);
  }
  l_dD0 = std::sqrt(l_dD0 / static_cast<double>(n));
  l_dD1 = std::sqrt(l_dD1 / static_cast<double>(n));
  double l_dH0 = (l_dD0 < 1e-5 || l_dD1 < 1e-5) ? 1e-6 * p_dSpan : 0.01 * l_dD0 / l_dD1;
  l_dH0 = std::min(l_dH0, p_dSpan);
  if (m_dMaxStep > 0.0) l_dH0 = std::min(l_dH0, m_dMaxStep);
  std::vector<double>& l_adY1 = m_adStage;
  std::vector<double>& l_adF1 = m_adNew;
  for (std::size_t i = 0; i < n; ++i) l_adY1[i] = y[i] + l_dH0 * f0[i];
  Derivative(l_adY1, l_adF1);
  double l_dD2 = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    double l_dScale = m_dAbsTol + m_dRelTol * std::fabs(y[i]);
    double l_dRatio = (l_adF1[i] - f0[i]) / l_dScale;
    l_dD2 += l_dRatio * l_dRatio;
  }
  l_dD2 = std::sqrt(l_dD2 / static_cast<double>(n)) / l_dH0;
  double l_dMax = std::max(l_dD1, l_dD2);
  double l_dH1 = (!std::isfinite(l_dMax) || l_dMax <= 1e-15) ? std::max(1e-6 * p_dSpan, l_dH0 * 1e-3)
                                                             : std::pow(0.01 / l_dMax, 0.2);
  double l_dH = std::min(100.0 * l_dH0, l_dH1);
  if (!(l_dH > 0.0)) l_dH = l_dH0;
  return l_dH;
}

AdvanceStatus OdeSimulator::AdvanceTo(double p_dTime) {
  if (!std::isfinite(p_dTime))
    return Fail("the target time " + FormatDouble(p_dTime) + " is not finite");
  if (p_dTime < m_dTime)
    return Fail("cannot go back in time from " + FormatDouble(m_dTime) + " to " +
                FormatDouble(p_dTime));
  const std::size_t n = m_adMarking.size();
  if (p_dTime == m_dTime) return AdvanceStatus::Reached;
  if (n == 0) {
    m_dTime = p_dTime;
    return AdvanceStatus::Reached;
  }
  std::vector<double>& y = m_adMarking;
  std::vector<double>* K = m_adK;
  if (!m_bHaveSlope) {
    Derivative(y, K[0]);
    m_bHaveSlope = true;
  }
  if (!(m_dStep > 0.0)) m_dStep = InitialStep(p_dTime - m_dTime);

  bool l_bRejectedBefore = false;
  unsigned long long l_nTries = 0;
  std::vector<double>& Y = m_adStage;
  while (m_dTime < p_dTime) {
    if ((++l_nTries & 0xff) == 0 && AbortRequested()) return AdvanceStatus::Aborted;
    double l_dRemaining = p_dTime - m_dTime;
    double h = m_dStep;
    if (m_dMaxStep > 0.0) h = std::min(h, m_dMaxStep);
    bool l_bLast = false;
    // Within a tenth of a step of the target: go there at once instead of
    // leaving a sliver for one more step.
    if (h * 1.1 >= l_dRemaining) {
      h = l_dRemaining;
      l_bLast = true;
    }
    double l_dMinStep = 16.0 * std::numeric_limits<double>::epsilon() *
                        std::max(std::fabs(m_dTime), std::fabs(p_dTime));
    if (!l_bLast && h < l_dMinStep)
      return Fail("the step size fell below the resolution of time at t = " +
                  FormatDouble(m_dTime) + " (the solution grows without bound or is too stiff)");

    for (std::size_t i = 0; i < n; ++i) Y[i] = y[i] + h * a21 * K[0][i];
    Derivative(Y, K[1]);
    for (std::size_t i = 0; i < n; ++i) Y[i] = y[i] + h * (a31 * K[0][i] + a32 * K[1][i]);
    Derivative(Y, K[2]);
    for (std::size_t i = 0; i < n; ++i)
      Y[i] = y[i] + h * (a41 * K[0][i] + a42 * K[1][i] + a43 * K[2][i]);
    Derivative(Y, K[3]);
    for (std::size_t i = 0; i < n; ++i)
      Y[i] = y[i] + h * (a51 * K[0][i] + a52 * K[1][i] + a53 * K[2][i] + a54 * K[3][i]);
    Derivative(Y, K[4]);
    for (std::size_t i = 0; i < n; ++i)
      Y[i] = y[i] + h * (a61 * K[0][i] + a62 * K[1][i] + a63 * K[2][i] + a64 * K[3][i] +
                         a65 * K[4][i]);
    Derivative(Y, K[5]);
    for (std::size_t i = 0; i < n; ++i)
      m_adNew[i] = y[i] + h * (b1 * K[0][i] + b3 * K[2][i] + b4 * K[3][i] + b5 * K[4][i] +
                               b6 * K[5][i]);
    Derivative(m_adNew, K[6]);
    for (std::size_t i = 0; i < n; ++i)
      m_adError[i] = h * (e1 * K[0][i] + e3 * K[2][i] + e4 * K[3][i] + e5 * K[4][i] +
                          e6 * K[5][i] + e7 * K[6][i]);
    double l_dNorm = ErrorNorm(y, m_adNew, m_adError);

    if (l_dNorm <= 1.0) {
      ++m_nAccepted;
      m_dTime = l_bLast ? p_dTime : m_dTime + h;
      // Negative amounts are noise within the tolerance. The right-hand
      // side sees max(x, 0) only, so K[6] stays the slope at the clipped
      // state.
      for (std::size_t i = 0; i < n; ++i) y[i] = m_adNew[i] < 0.0 ? 0.0 : m_adNew[i];
      std::swap(K[0], K[6]);
      double l_dFactor = l_dNorm > 0.0 ? kSafety * std::pow(l_dNorm, -0.2) : kMaxFactor;
      l_dFactor = std::min(l_bRejectedBefore ? 1.0 : kMaxFactor, std::max(kMinFactor, l_dFactor));
      double l_dNext = h * l_dFactor;
      // A step shortened to meet the target says little about the step
      // size the solution allows: keep the earlier proposal if larger.
      if (l_bLast) l_dNext = std::max(l_dNext, m_dStep);
      m_dStep = l_dNext;
      l_bRejectedBefore = false;
    } else {
      ++m_nRejected;
      double l_dFactor = std::isfinite(l_dNorm) ? kSafety * std::pow(l_dNorm, -0.2) : kMinFactor;
      m_dStep = h * std::min(1.0, std::max(kMinFactor, l_dFactor));
      l_bRejectedBefore = true;
    }
  }
  return AdvanceStatus::Reached;
}

}  // namespace sim
}  // namespace quor
