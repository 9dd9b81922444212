// SPDX-License-Identifier: MIT
#include "simcore/odeSimulator.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "cvodeIntegrator.h"
#include "simcore/textNumbers.h"

namespace quor {
namespace sim {

namespace {

// Dormand-Prince 5(4) tableau.
const double c2 = 1.0 / 5.0, c3 = 3.0 / 10.0, c4 = 4.0 / 5.0, c5 = 8.0 / 9.0;
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
const Limits kStepLimitLimits = {1.0, 1e9};

// The texts of the choices, in the order of the enumerations.
const char* const kMethodNames[] = {"BDF", "Adams", "Dormand-Prince"};
const char* const kSolverNames[] = {"automatic", "dense", "sparse", "iterative"};

void SetError(std::string* p_psError, const std::string& p_sMessage) {
  if (p_psError) *p_psError = p_sMessage;
}

bool SameText(const std::string& p_sLeft, const std::string& p_sRight) {
  if (p_sLeft.size() != p_sRight.size()) return false;
  for (std::size_t i = 0; i < p_sLeft.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(p_sLeft[i])) !=
        std::tolower(static_cast<unsigned char>(p_sRight[i])))
      return false;
  return true;
}

// The position of p_sValue (any case) among p_asChoices, or -1.
template <std::size_t N>
int Choice(const char* const (&p_asChoices)[N], const std::string& p_sValue) {
  for (std::size_t i = 0; i < N; ++i)
    if (SameText(Trim(p_sValue), p_asChoices[i])) return static_cast<int>(i);
  return -1;
}

template <std::size_t N>
std::string ChoiceList(const char* const (&p_asChoices)[N]) {
  std::string l_sList;
  for (std::size_t i = 0; i < N; ++i) l_sList += (i ? ", " : "") + std::string(p_asChoices[i]);
  return l_sList;
}

}  // namespace

OdeSimulator::OdeSimulator(const Net& p_rNet) : Simulator(p_rNet) {
  const std::size_t n = m_adMarking.size();
  for (std::vector<double>& l_rK : m_adK) l_rK.assign(n, 0.0);
  m_adStage.assign(n, 0.0);
  m_adNew.assign(n, 0.0);
  m_adError.assign(n, 0.0);
  m_adScratch.assign(n, 0.0);
  BuildJacobianPattern();
  Reset();
}

OdeSimulator::~OdeSimulator() = default;

std::vector<SettingInfo> OdeSimulator::Settings() const {
  auto l_fNumber = [](const char* p_sName, const char* p_sCaption, const std::string& p_sValue,
                      unsigned int p_nGuiType, const Limits& p_cLimits) {
    SettingInfo l_cInfo;
    l_cInfo.name = p_sName;
    l_cInfo.caption = p_sCaption;
    l_cInfo.value = p_sValue;
    l_cInfo.guiType = p_nGuiType;
    l_cInfo.min = p_cLimits.min;
    l_cInfo.max = p_cLimits.max;
    return l_cInfo;
  };
  auto l_fChoice = [](const char* p_sName, const char* p_sCaption, const char* p_sValue,
                      std::vector<std::string> p_asChoices) {
    SettingInfo l_cInfo;
    l_cInfo.name = p_sName;
    l_cInfo.caption = p_sCaption;
    l_cInfo.value = p_sValue;
    l_cInfo.guiType = GUI_TYPE_CHOICE;
    l_cInfo.possibleValues = std::move(p_asChoices);
    return l_cInfo;
  };
  return {
      l_fNumber("AbsoluteTolerance", "Absolute tolerance", FormatDouble(m_dAbsTol),
                GUI_TYPE_DOUBLE, kAbsTolLimits),
      l_fNumber("RelativeTolerance", "Relative tolerance", FormatDouble(m_dRelTol),
                GUI_TYPE_DOUBLE, kRelTolLimits),
      l_fNumber("MaxStep", "Maximum step size (0: no limit)", FormatDouble(m_dMaxStep),
                GUI_TYPE_DOUBLE, kMaxStepLimits),
      l_fChoice("Method",
                "Method: BDF (CVODE, stiff and non-stiff), Adams (CVODE, non-stiff), "
                "Dormand-Prince (explicit Runge-Kutta 5(4))",
                kMethodNames[static_cast<int>(m_eMethod)],
                std::vector<std::string>(std::begin(kMethodNames), std::end(kMethodNames))),
      l_fNumber("StepLimit", "Most internal steps between two output points",
                std::to_string(m_nStepLimit), GUI_TYPE_INTEGER, kStepLimitLimits),
      l_fChoice("LinearSolver",
                "Linear solver of BDF: automatic (dense up to 100 places, else sparse "
                "unless its factors fill in, then iterative), dense, sparse (KLU), "
                "iterative (GMRES)",
                kSolverNames[static_cast<int>(m_eLinearSolver)],
                std::vector<std::string>(std::begin(kSolverNames), std::end(kSolverNames)))};
}

bool OdeSimulator::ApplySetting(const std::string& p_sName, const std::string& p_sValue,
                                std::string* p_psError) {
  if (p_sName == "Method" || p_sName == "LinearSolver") {
    const bool l_bMethod = p_sName == "Method";
    const int l_nChoice =
        l_bMethod ? Choice(kMethodNames, p_sValue) : Choice(kSolverNames, p_sValue);
    if (l_nChoice < 0) {
      SetError(p_psError, p_sName + ": '" + p_sValue + "' is none of " +
                              (l_bMethod ? ChoiceList(kMethodNames) : ChoiceList(kSolverNames)));
      return false;
    }
    if (l_bMethod)
      m_eMethod = static_cast<Method>(l_nChoice);
    else
      m_eLinearSolver = static_cast<LinearSolver>(l_nChoice);
  } else if (p_sName == "StepLimit") {
    std::uint64_t l_nValue = 0;
    if (!ParseUInt64(p_sValue, l_nValue) || l_nValue < kStepLimitLimits.min ||
        l_nValue > kStepLimitLimits.max) {
      SetError(p_psError, p_sName + ": '" + p_sValue + "' is not a whole number from 1 to " +
                              FormatDouble(kStepLimitLimits.max));
      return false;
    }
    m_nStepLimit = static_cast<unsigned long>(l_nValue);
  } else {
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
                              "' (it has AbsoluteTolerance, RelativeTolerance, MaxStep, Method, "
                              "StepLimit, LinearSolver)");
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
  }
  // The integrator starts afresh with the new setting; the step size
  // history belongs to the old settings.
  m_bFresh = true;
  m_dStep = 0.0;
  return true;
}

OdeSimulator::LinearSolver OdeSimulator::EffectiveLinearSolver() const {
  if (m_eLinearSolver != LinearSolver::Automatic) return m_eLinearSolver;
  if (m_adMarking.size() <= kDenseLimit) return LinearSolver::Dense;
  const double l_dFill = SparseFill();
  const double l_dEntries = static_cast<double>(m_anRows.size());
  return l_dFill <= kFillFactor * l_dEntries && l_dFill <= kFillLimit ? LinearSolver::Sparse
                                                                       : LinearSolver::Iterative;
}

double OdeSimulator::SparseFill() const {
  if (m_dSparseFill < 0.0) m_dSparseFill = CvodeIntegrator::SparseFill(m_anColumnStarts, m_anRows);
  return m_dSparseFill;
}

unsigned long long OdeSimulator::AcceptedSteps() const {
  return m_nAccepted + m_nCvodeSteps + (m_pcCvode ? m_pcCvode->Steps() : 0);
}

unsigned long long OdeSimulator::RejectedSteps() const {
  return m_nRejected + m_nCvodeRejected + (m_pcCvode ? m_pcCvode->ErrorTestFailures() : 0);
}

void OdeSimulator::StateChanged(bool p_bReset) {
  // CVODE compares the state with the one it left (AdvanceCvode).
  if (p_bReset) m_bFresh = true;
  m_dStep = 0.0;
  m_bHaveSlope = false;
}

double OdeSimulator::Rate(std::size_t p_nTransition, const double* p_pdX, double p_dTime) const {
  const CompiledTransition& l_rCompiled = m_acTransitions[p_nTransition];
  if (l_rCompiled.function)
    return l_rCompiled.function->Evaluate(p_pdX, m_adParameters.data(), p_dTime);
  return MassActionFlux(l_rCompiled, p_pdX);
}

bool OdeSimulator::Flux(std::size_t p_nTransition, const double* p_pdX, double p_dTime,
                        double& p_rdFlux) const {
  const CompiledTransition& l_rCompiled = m_acTransitions[p_nTransition];
  if (l_rCompiled.function)
    return FunctionRate(p_nTransition, p_pdX, p_dTime, p_rdFlux, &m_sRateError);
  p_rdFlux = MassActionFlux(l_rCompiled, p_pdX);
  return true;
}

bool OdeSimulator::RightHandSide(double p_dTime, const double* p_pdX, double* p_pdDx) const {
  if (AbortRequested()) {
    m_bAbortSeen = true;
    return false;
  }
  std::fill(p_pdDx, p_pdDx + m_adMarking.size(), 0.0);
  for (std::size_t j = 0; j < m_acTransitions.size(); ++j) {
    const CompiledTransition& l_rCompiled = m_acTransitions[j];
    if (l_rCompiled.change.empty()) continue;
    double l_dFlux = 0.0;
    if (!Flux(j, p_pdX, p_dTime, l_dFlux)) return false;
    if (l_dFlux == 0.0) continue;
    for (const std::pair<std::size_t, double>& l_rChange : l_rCompiled.change)
      p_pdDx[l_rChange.first] += l_rChange.second * l_dFlux;
  }
  // Only a failure of the last evaluation counts (an integrator may have
  // recovered from one at a trial state).
  m_sRateError.clear();
  return true;
}

void OdeSimulator::Derivative(const std::vector<double>& p_rdX, std::vector<double>& p_rdDx) const {
  RightHandSide(m_dTime, p_rdX.data(), p_rdDx.data());
}

void OdeSimulator::BuildJacobianPattern() {
  const std::size_t n = m_adMarking.size();
  // (column, row) of every entry that a transition reaches, and the diagonal.
  std::vector<std::pair<std::size_t, std::size_t>> l_acEntries;
  for (std::size_t c = 0; c < n; ++c) l_acEntries.emplace_back(c, c);
  for (const CompiledTransition& l_rCompiled : m_acTransitions)
    for (std::size_t q : l_rCompiled.reads)
      for (const std::pair<std::size_t, double>& l_rChange : l_rCompiled.change)
        l_acEntries.emplace_back(q, l_rChange.first);
  std::sort(l_acEntries.begin(), l_acEntries.end());
  l_acEntries.erase(std::unique(l_acEntries.begin(), l_acEntries.end()), l_acEntries.end());
  m_anColumnStarts.assign(n + 1, 0);
  m_anRows.resize(l_acEntries.size());
  for (std::size_t e = 0; e < l_acEntries.size(); ++e) {
    m_anRows[e] = l_acEntries[e].second;
    ++m_anColumnStarts[l_acEntries[e].first + 1];
  }
  for (std::size_t c = 0; c < n; ++c) m_anColumnStarts[c + 1] += m_anColumnStarts[c];
  m_aaacTerms.assign(m_acTransitions.size(), {});
  for (std::size_t j = 0; j < m_acTransitions.size(); ++j) {
    const CompiledTransition& l_rCompiled = m_acTransitions[j];
    m_aaacTerms[j].resize(l_rCompiled.reads.size());
    for (std::size_t i = 0; i < l_rCompiled.reads.size(); ++i) {
      const std::size_t q = l_rCompiled.reads[i];
      for (const std::pair<std::size_t, double>& l_rChange : l_rCompiled.change) {
        const std::vector<std::size_t>::const_iterator l_itBegin =
            m_anRows.begin() + static_cast<std::ptrdiff_t>(m_anColumnStarts[q]);
        const std::vector<std::size_t>::const_iterator l_itEnd =
            m_anRows.begin() + static_cast<std::ptrdiff_t>(m_anColumnStarts[q + 1]);
        const std::size_t l_nEntry = static_cast<std::size_t>(
            std::lower_bound(l_itBegin, l_itEnd, l_rChange.first) - m_anRows.begin());
        m_aaacTerms[j][i].push_back(JacobianTerm{l_nEntry, l_rChange.second});
      }
    }
  }
}

bool OdeSimulator::Jacobian(double p_dTime, const double* p_pdX, double* p_pdValues) const {
  if (AbortRequested()) {
    m_bAbortSeen = true;
    return false;
  }
  std::fill(p_pdValues, p_pdValues + m_anRows.size(), 0.0);
  std::copy(p_pdX, p_pdX + m_adMarking.size(), m_adScratch.begin());
  const double l_dRoot = std::sqrt(std::numeric_limits<double>::epsilon());
  for (std::size_t j = 0; j < m_acTransitions.size(); ++j) {
    const CompiledTransition& l_rCompiled = m_acTransitions[j];
    const std::vector<std::vector<JacobianTerm>>& l_rTerms = m_aaacTerms[j];
    if (l_rCompiled.change.empty()) continue;
    double l_dBase = 0.0;
    if (l_rCompiled.function && !Flux(j, p_pdX, p_dTime, l_dBase)) return false;
    for (std::size_t i = 0; i < l_rCompiled.reads.size(); ++i) {
      double l_dPartial = 0.0;
      if (l_rCompiled.function) {
        // Forward difference (markings are read as at least 0).
        const std::size_t q = l_rCompiled.reads[i];
        const double l_dX = std::max(p_pdX[q], 0.0);
        const double l_dH = l_dRoot * std::max(l_dX, m_dAbsTol / m_dRelTol);
        m_adScratch[q] = l_dX + l_dH;
        const double l_dShifted =
            l_rCompiled.function->Evaluate(m_adScratch.data(), m_adParameters.data(), p_dTime);
        m_adScratch[q] = p_pdX[q];
        l_dPartial = (l_dShifted - l_dBase) / l_dH;
      } else {
        // d/dx_i of k prod_r x_r^w_r.
        l_dPartial = Constant(l_rCompiled);
        for (std::size_t r = 0; r < l_rCompiled.inputs.size() && l_dPartial != 0.0; ++r) {
          const double l_dX = std::max(p_pdX[l_rCompiled.inputs[r].first], 0.0);
          const double l_dW = l_rCompiled.inputs[r].second;
          if (r == i)
            l_dPartial *= l_dW == 1.0 ? 1.0 : l_dW * std::pow(l_dX, l_dW - 1.0);
          else
            l_dPartial *= l_dW == 1.0 ? l_dX : std::pow(l_dX, l_dW);
        }
      }
      if (!std::isfinite(l_dPartial)) l_dPartial = 0.0;
      if (l_dPartial == 0.0) continue;
      for (const JacobianTerm& l_rTerm : l_rTerms[i])
        p_pdValues[l_rTerm.entry] += l_rTerm.factor * l_dPartial;
    }
  }
  return true;
}

AdvanceStatus OdeSimulator::AdvanceTo(double p_dTime) {
  if (!CheckTarget(p_dTime)) return AdvanceStatus::Failed;
  if (p_dTime == m_dTime) return AdvanceStatus::Reached;
  if (m_adMarking.empty()) {
    m_dTime = p_dTime;
    return AdvanceStatus::Reached;
  }
  m_sRateError.clear();
  m_bAbortSeen = false;
  if (m_eMethod == Method::DormandPrince) return AdvanceDormandPrince(p_dTime);
  return AdvanceCvode(p_dTime);
}

AdvanceStatus OdeSimulator::AdvanceCvode(double p_dTime) {
  const std::string l_sMethod = kMethodNames[static_cast<int>(m_eMethod)];
  CvodeIntegrator::Options l_cOptions;
  l_cOptions.method = m_eMethod;
  l_cOptions.solver = EffectiveLinearSolver();
  l_cOptions.relTol = m_dRelTol;
  l_cOptions.absTol = m_dAbsTol;
  l_cOptions.maxStep = m_dMaxStep;
  l_cOptions.stepLimit = m_nStepLimit;
  const bool l_bMoved = m_dTime != m_dLeftTime || m_adMarking != m_adLeftMarking ||
                        m_adParameters != m_adLeftParameters;
  if (m_bFresh || l_bMoved || !m_pcCvode || !m_pcCvode->Fits(l_cOptions)) {
    // CVODE will not start on an interval within rounding of its start.
    const double l_dResolution = 4.0 * std::numeric_limits<double>::epsilon() *
                                 std::max(std::fabs(m_dTime), std::fabs(p_dTime));
    if (p_dTime - m_dTime <= l_dResolution) {
      m_dTime = p_dTime;
      return AdvanceStatus::Reached;
    }
    std::string l_sProblem;
    bool l_bReady = false;
    if (m_pcCvode && m_pcCvode->Fits(l_cOptions)) {
      m_nCvodeSteps += m_pcCvode->Steps();
      m_nCvodeRejected += m_pcCvode->ErrorTestFailures();
      l_bReady = m_pcCvode->Restart(l_cOptions, m_dTime, m_adMarking, &l_sProblem);
    } else {
      if (m_pcCvode) {
        m_nCvodeSteps += m_pcCvode->Steps();
        m_nCvodeRejected += m_pcCvode->ErrorTestFailures();
      }
      m_pcCvode = CvodeIntegrator::Create(*this, l_cOptions, m_dTime, m_adMarking, &l_sProblem);
      l_bReady = m_pcCvode != nullptr;
    }
    if (!l_bReady) {
      m_pcCvode.reset();
      return Fail(l_sProblem);
    }
    m_bFresh = false;
  }
  double l_dTime = m_dTime;
  std::string l_sProblem;
  const CvodeIntegrator::Outcome l_eOutcome =
      m_pcCvode->Advance(p_dTime, l_dTime, m_adMarking, &l_sProblem);
  // Amounts below 0 are noise within the tolerance; CVODE goes on from its
  // own state.
  for (double& l_rdX : m_adMarking)
    if (l_rdX < 0.0) l_rdX = 0.0;
  m_dTime = l_dTime;
  m_dLeftTime = m_dTime;
  m_adLeftMarking = m_adMarking;
  m_adLeftParameters = m_adParameters;
  if (l_eOutcome == CvodeIntegrator::Outcome::Reached) return AdvanceStatus::Reached;
  // A new start, if any, picks up from the last state reached.
  m_bFresh = true;
  if (l_eOutcome == CvodeIntegrator::Outcome::Aborted) return AdvanceStatus::Aborted;
  return Fail(l_sMethod + " (CVODE) stopped at t = " + FormatDouble(m_dTime) + ": " + l_sProblem);
}

bool OdeSimulator::DpDerivative(const std::vector<double>& p_rdX, double p_dTime,
                                std::vector<double>& p_rdDx) {
  return RightHandSide(p_dTime, p_rdX.data(), p_rdDx.data());
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
// 0 when a rate function failed on the way (the caller finds out at the
// next stage).
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
  if (!DpDerivative(l_adY1, m_dTime + l_dH0, l_adF1)) return l_dH0;
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

AdvanceStatus OdeSimulator::AdvanceDormandPrince(double p_dTime) {
  const std::size_t n = m_adMarking.size();
  // A right-hand side that fails ends the step: the abort flag, or a rate
  // function that gave a value that is negative or not finite.
  auto l_fStopped = [this]() {
    if (m_bAbortSeen) return AdvanceStatus::Aborted;
    return Fail("Dormand-Prince stopped: " + m_sRateError);
  };
  std::vector<double>& y = m_adMarking;
  std::vector<double>* K = m_adK;
  if (!m_bHaveSlope) {
    if (!DpDerivative(y, m_dTime, K[0])) return l_fStopped();
    m_bHaveSlope = true;
  }
  if (!(m_dStep > 0.0)) m_dStep = InitialStep(p_dTime - m_dTime);

  bool l_bRejectedBefore = false;
  unsigned long long l_nTries = 0;
  const double l_dFrom = m_dTime;
  std::vector<double>& Y = m_adStage;
  while (m_dTime < p_dTime) {
    if (++l_nTries > m_nStepLimit)
      return Fail("Dormand-Prince stopped at t = " + FormatDouble(m_dTime) +
                  ": too much work: more than " + std::to_string(m_nStepLimit) +
                  " steps between t = " + FormatDouble(l_dFrom) + " and t = " +
                  FormatDouble(p_dTime) +
                  " (raise the setting StepLimit, or take the method BDF if the net is stiff)");
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

    const double t = m_dTime;
    const double l_dEnd = l_bLast ? p_dTime : t + h;
    for (std::size_t i = 0; i < n; ++i) Y[i] = y[i] + h * a21 * K[0][i];
    if (!DpDerivative(Y, t + c2 * h, K[1])) return l_fStopped();
    for (std::size_t i = 0; i < n; ++i) Y[i] = y[i] + h * (a31 * K[0][i] + a32 * K[1][i]);
    if (!DpDerivative(Y, t + c3 * h, K[2])) return l_fStopped();
    for (std::size_t i = 0; i < n; ++i)
      Y[i] = y[i] + h * (a41 * K[0][i] + a42 * K[1][i] + a43 * K[2][i]);
    if (!DpDerivative(Y, t + c4 * h, K[3])) return l_fStopped();
    for (std::size_t i = 0; i < n; ++i)
      Y[i] = y[i] + h * (a51 * K[0][i] + a52 * K[1][i] + a53 * K[2][i] + a54 * K[3][i]);
    if (!DpDerivative(Y, t + c5 * h, K[4])) return l_fStopped();
    for (std::size_t i = 0; i < n; ++i)
      Y[i] = y[i] + h * (a61 * K[0][i] + a62 * K[1][i] + a63 * K[2][i] + a64 * K[3][i] +
                         a65 * K[4][i]);
    if (!DpDerivative(Y, l_dEnd, K[5])) return l_fStopped();
    for (std::size_t i = 0; i < n; ++i)
      m_adNew[i] = y[i] + h * (b1 * K[0][i] + b3 * K[2][i] + b4 * K[3][i] + b5 * K[4][i] +
                               b6 * K[5][i]);
    if (!DpDerivative(m_adNew, l_dEnd, K[6])) return l_fStopped();
    for (std::size_t i = 0; i < n; ++i)
      m_adError[i] = h * (e1 * K[0][i] + e3 * K[2][i] + e4 * K[3][i] + e5 * K[4][i] +
                          e6 * K[5][i] + e7 * K[6][i]);
    double l_dNorm = ErrorNorm(y, m_adNew, m_adError);

    if (l_dNorm <= 1.0) {
      ++m_nAccepted;
      m_dTime = l_dEnd;
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
