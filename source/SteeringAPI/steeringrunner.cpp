// SPDX-License-Identifier: MIT
#include "quor/steeringrunner.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <exception>
#include <utility>

#include "quor/attributeVector.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorState.h"
#include "quor/utilities.h"

namespace quor {

namespace {

wxString Number(double p_dValue) { return wxString::Format(wxT("%g"), p_dValue); }

// The text of an exception, which need not be UTF-8.
wxString ExceptionText(const char* p_sWhat) {
  if (p_sWhat == NULL || *p_sWhat == '\0') return wxT("no reason given");
  wxString l_sText = wxString::FromUTF8(p_sWhat);
  return l_sText.empty() ? wxString::From8BitData(p_sWhat) : l_sText;
}

bool Refuse(wxString* p_psReason, const wxString& p_sText) {
  if (p_psReason != NULL) *p_psReason = p_sText;
  return false;
}

std::vector<double> Doubles(Model& p_rModel, const wxChar* p_sKey) {
  return p_rModel.FindValue<AttributeVectorDouble>(p_sKey, std::vector<double>());
}

const wxChar* KeyOf(SteeringChange::Kind p_eKind, bool p_bInitial) {
  if (p_eKind == SteeringChange::PARAMETER)
    return p_bInitial ? keys::INITIAL_PARAM_VALUES : keys::CURRENT_PARAM_VALUES;
  return p_bInitial ? keys::INITIAL_MARKING : keys::CURRENT_MARKING;
}

}  // namespace

bool SteeringStep::Fail(const wxString& p_sReason) {
  m_sFailure = p_sReason.empty() ? wxString(wxT("the step failed")) : p_sReason;
  return false;
}

SteeringRunner::SteeringRunner(SteeringModelStore& p_rStore, int p_nModel)
    : m_rStore(p_rStore),
      m_nModel(p_nModel),
      m_bGiveUp(false),
      m_nPoints(0),
      m_nDone(0),
      m_nTransitions(0),
      m_nState(SIMULATOR_IDLE),
      m_bActive(false),
      m_bPause(false),
      m_bStop(false),
      m_bSpeedChanged(false),
      m_nSpeed(0),
      m_nRows(0),
      m_bResultsStarted(false),
      m_dRunSeconds(0.0),
      m_bRunning(false) {
  m_rStore.WithRuntimeState(m_nModel, [this](ModelRuntimeState& p_rState) {
    const int l_nSpeed = p_rState.FindValue<AttributeInt>(keys::SIMULATOR_SPEED, 0);
    m_nSpeed = l_nSpeed > 0 ? static_cast<unsigned int>(l_nSpeed) : 0;
    m_nState = p_rState.FindValue<AttributeInt>(keys::SIMULATOR_STATE,
                                                static_cast<int>(SIMULATOR_IDLE));
  });
  // A run that went on when the runner went away is not going on now.
  if (IsRunActive(m_nState)) m_nState = SIMULATOR_STOPPED;
  m_tRunningSince = m_tLastPoint = m_tLastPublish = Clock::now();
}

SteeringRunner::~SteeringRunner() {
  Stop(NULL);
  Join();
}

// The grid.

wxString SteeringRunner::CheckInterval(double p_dStart, double p_dEnd, double p_dSampling) {
  if (!std::isfinite(p_dStart) || !std::isfinite(p_dEnd) || !std::isfinite(p_dSampling))
    return wxT("the output interval must consist of finite numbers");
  if (!(p_dSampling > 0.0))
    return wxT("the output step must be greater than 0 (it is ") + Number(p_dSampling) + wxT(")");
  if (p_dEnd < p_dStart)
    return wxT("the output interval ends (") + Number(p_dEnd) + wxT(") before it starts (") +
           Number(p_dStart) + wxT(")");
  const double l_dIntervals = (p_dEnd - p_dStart) / p_dSampling;
  if (!(l_dIntervals < static_cast<double>(MAX_OUTPUT_POINTS)))
    return wxString::Format(wxT("the output interval would have more than %zu points"),
                            MAX_OUTPUT_POINTS);
  return wxString();
}

size_t SteeringRunner::CountPoints(double p_dStart, double p_dEnd, double p_dSampling) {
  if (!CheckInterval(p_dStart, p_dEnd, p_dSampling).empty()) return 0;
  const double l_dIntervals = (p_dEnd - p_dStart) / p_dSampling;
  const double l_dWhole = std::floor(l_dIntervals + 1e-9 * (1.0 + l_dIntervals));
  return static_cast<size_t>(l_dWhole) + 1;
}

// Starting and joining.

bool SteeringRunner::Start(const SteeringRunPlan& p_rPlan, bool p_bRestart,
                           wxString* p_psReason) {
  if (!p_rPlan.m_fStep) return Refuse(p_psReason, wxT("there is no step function"));
  const wxString l_sProblem = CheckInterval(p_rPlan.m_dStart, p_rPlan.m_dEnd, p_rPlan.m_dSampling);
  if (!l_sProblem.empty()) return Refuse(p_psReason, l_sProblem);
  const size_t l_nPoints = CountPoints(p_rPlan.m_dStart, p_rPlan.m_dEnd, p_rPlan.m_dSampling);
  if (OnRunThread())
    return Refuse(p_psReason, wxT("a run cannot start another one from its own thread"));

  std::lock_guard<std::mutex> l_cControl(m_cControl);
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    if (!MayStart(p_bRestart, p_psReason)) return false;
    if (m_bActive) {
      m_bStop = true;
      m_bGiveUp = true;
      m_cWake.notify_all();
    }
  }
  if (m_cThread.joinable()) m_cThread.join();

  wxString l_sText;
  try {
    std::unique_ptr<SteeringStep> l_pcStep(new SteeringStep(&m_bGiveUp, l_nPoints));
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    if (!Prepare(p_rPlan, *l_pcStep, p_psReason)) return false;
    l_sText = wxString::Format(
        wxT("model '%s': run started%s, output from %s to %s every %s (%zu points), speed %u "
            "points/s"),
        m_sModelName,
        m_cPlan.m_sAlgorithm.empty() ? wxString() : wxT(" with ") + m_cPlan.m_sAlgorithm,
        Number(m_cPlan.m_dStart), Number(m_cPlan.m_dEnd), Number(m_cPlan.m_dSampling),
        m_nPoints, m_nSpeed);
    m_rStore.SetLogMessage(m_nModel, l_sText);
    m_bActive = true;
    Publish(true);
    m_cThread = std::thread(&SteeringRunner::Work, this, std::move(l_pcStep));
    m_cThreadId = m_cThread.get_id();
  } catch (const std::exception& l_cError) {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    m_bActive = false;
    m_bRunning = false;
    m_nState = SIMULATOR_FAILED;
    try {
      Publish(false);
    } catch (const std::exception&) {
    }
    return Refuse(p_psReason, wxT("the run cannot start: ") + ExceptionText(l_cError.what()));
  }
  LogText(3, l_sText);
  return true;
}

bool SteeringRunner::Prepare(const SteeringRunPlan& p_rPlan, SteeringStep& p_rStep,
                             wxString* p_psReason) {
  wxString l_sName;
  unsigned long long l_nTransitions = 0;
  if (!m_rStore.WithModel(m_nModel, [&](Model& p_rModel) {
        l_sName = p_rModel.GetModelName();
        l_nTransitions = p_rModel.GetTransitionCount();
        p_rStep.m_adMarking = Doubles(p_rModel, keys::INITIAL_MARKING);
        p_rStep.m_adParameters = Doubles(p_rModel, keys::CURRENT_PARAM_VALUES);
      }))
    return Refuse(p_psReason, wxT("the model is no longer there"));
  const size_t l_nPoints = p_rStep.m_nPointCount;
  const size_t l_nRows = p_rStep.m_adMarking.size();
  const unsigned long long l_nLargest = std::max<unsigned long long>(l_nRows, l_nTransitions);
  if (l_nLargest > 0 && l_nPoints > MAX_RESULT_VALUES / l_nLargest)
    return Refuse(p_psReason,
                  wxString::Format(wxT("%zu output points of %llu rows would be more than the "
                                       "%llu values a run may produce"),
                                   l_nPoints, l_nLargest, MAX_RESULT_VALUES));

  m_cPlan = p_rPlan;
  m_sModelName = l_sName;
  m_nPoints = l_nPoints;
  m_nDone = 0;
  m_nTransitions = static_cast<size_t>(l_nTransitions);
  m_nRows = l_nRows;
  m_aadPendingResults.clear();
  m_aadPendingRates.clear();
  m_bResultsStarted = false;
  m_adMarking = p_rStep.m_adMarking;
  m_acChanges.clear();
  m_bPause = m_bStop = m_bSpeedChanged = false;
  m_bGiveUp = false;
  m_nState = SIMULATOR_RUNNING;
  m_dRunSeconds = 0.0;
  m_bRunning = true;
  m_tRunningSince = m_tLastPoint = Clock::now();

  ResultMatrixInfo l_cRows(static_cast<unsigned int>(l_nRows));
  for (unsigned int l_nRow = 0; l_nRow < l_nRows; ++l_nRow)
    l_cRows.SetRowInfo(l_nRow, l_nRow, RM_ROW_TYPE_PLACE);
  m_rStore.SetResultMatrixInfo(m_nModel, l_cRows);
  m_rStore.SetErrorMessage(m_nModel, wxString());
  m_rStore.WithRuntimeState(m_nModel, [](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(keys::ERROR_STATE, static_cast<int>(SIMULATOR_ERROR_NONE));
  });
  return true;
}

bool SteeringRunner::MayStart(bool p_bRestart, wxString* p_psReason) {
  if (!m_bActive || p_bRestart) return true;
  return Refuse(p_psReason, wxString(wxT("a run is going on (")) + SimulatorStateName(m_nState) +
                                wxT("); stop it first, or restart"));
}

bool SteeringRunner::CanStart(bool p_bRestart, wxString* p_psReason) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  return MayStart(p_bRestart, p_psReason);
}

bool SteeringRunner::OnRunThread() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  return m_bActive && m_cThreadId == std::this_thread::get_id();
}

void SteeringRunner::Join() {
  if (OnRunThread()) return;  // it would wait for itself
  std::lock_guard<std::mutex> l_cControl(m_cControl);
  if (m_cThread.joinable()) m_cThread.join();
}

// Commands.

bool SteeringRunner::Pause(wxString* p_psReason) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  if (!m_bActive || m_bStop) return Refuse(p_psReason, wxT("no run is going on"));
  m_bPause = true;
  m_cWake.notify_all();
  return true;
}

bool SteeringRunner::Resume(wxString* p_psReason) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  if (!m_bActive || m_bStop || !m_bPause) return Refuse(p_psReason, wxT("no run is paused"));
  m_bPause = false;
  m_cWake.notify_all();
  return true;
}

bool SteeringRunner::Stop(wxString* p_psReason) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  if (!m_bActive || m_bStop) return Refuse(p_psReason, wxT("no run is going on"));
  m_bStop = true;
  m_bGiveUp = true;
  m_cWake.notify_all();
  return true;
}

void SteeringRunner::SetSpeed(unsigned int p_nPointsPerSecond) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_nSpeed = p_nPointsPerSecond;
  m_bSpeedChanged = true;
  m_cWake.notify_all();
  Publish(false);
}

unsigned int SteeringRunner::GetSpeed() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  return m_nSpeed;
}

int SteeringRunner::GetState() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  return m_nState;
}

bool SteeringRunner::IsActive() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  return m_bActive;
}

// Steering.

void SteeringRunner::Queue(SteeringChange::Kind p_eKind, size_t p_nPosition, double p_dValue) {
  if (!m_bActive) return;
  m_acChanges.push_back(SteeringChange{p_eKind, p_nPosition, p_dValue});
  m_cWake.notify_all();
}

bool SteeringRunner::Change(SteeringChange::Kind p_eKind, unsigned long long p_nPosition,
                            double p_dValue, wxString* p_psReason) {
  const bool l_bPlace = p_eKind == SteeringChange::PLACE;
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  size_t l_nCount = 0;
  bool l_bChanged = false;
  const bool l_bModel = m_rStore.WithModel(m_nModel, [&](Model& p_rModel) {
    AttributeVectorDouble* l_pcValues =
        p_rModel.FindAttribute<AttributeVectorDouble>(KeyOf(p_eKind, false));
    if (l_pcValues == NULL) return;
    l_nCount = l_pcValues->GetValue().size();
    if (p_nPosition >= l_nCount || !std::isfinite(p_dValue) || p_dValue < 0.0) return;
    l_pcValues->GetValue()[static_cast<size_t>(p_nPosition)] = p_dValue;
    l_bChanged = true;
  });
  if (!l_bModel) return Refuse(p_psReason, wxT("the model is no longer there"));
  if (p_nPosition >= l_nCount)
    return Refuse(p_psReason, wxString::Format(wxT("position %llu is out of range (the model has "
                                                   "%zu %s)"),
                                               p_nPosition, l_nCount,
                                               l_bPlace ? wxT("places") : wxT("parameters")));
  if (!l_bChanged)
    return Refuse(p_psReason,
                  wxT("the value ") + Number(p_dValue) + wxT(" is negative or not finite"));
  Queue(p_eKind, static_cast<size_t>(p_nPosition), p_dValue);
  return true;
}

bool SteeringRunner::ChangeParameter(unsigned long long p_nPosition, double p_dValue,
                                     wxString* p_psReason) {
  return Change(SteeringChange::PARAMETER, p_nPosition, p_dValue, p_psReason);
}

bool SteeringRunner::ChangeMarking(unsigned long long p_nPosition, double p_dValue,
                                   wxString* p_psReason) {
  return Change(SteeringChange::PLACE, p_nPosition, p_dValue, p_psReason);
}

void SteeringRunner::Reset(SteeringChange::Kind p_eKind) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  std::vector<double> l_adInitial;
  m_rStore.WithModel(m_nModel, [&](Model& p_rModel) {
    AttributeVectorDouble* l_pcCurrent =
        p_rModel.FindAttribute<AttributeVectorDouble>(KeyOf(p_eKind, false));
    if (l_pcCurrent == NULL) return;
    l_adInitial = Doubles(p_rModel, KeyOf(p_eKind, true));
    l_pcCurrent->SetValue(l_adInitial);
  });
  for (size_t l_nPosition = 0; l_nPosition < l_adInitial.size(); ++l_nPosition)
    Queue(p_eKind, l_nPosition, l_adInitial[l_nPosition]);
}

void SteeringRunner::ResetParameters() { Reset(SteeringChange::PARAMETER); }

void SteeringRunner::ResetMarking() { Reset(SteeringChange::PLACE); }

// The run's thread.

double SteeringRunner::RunSeconds(Clock::time_point p_tNow) const {
  double l_dSeconds = m_dRunSeconds;
  if (m_bRunning) l_dSeconds += std::chrono::duration<double>(p_tNow - m_tRunningSince).count();
  return l_dSeconds;
}

wxString SteeringRunner::Prefix() const { return wxT("model '") + m_sModelName + wxT("': "); }

void SteeringRunner::Publish(bool p_bResults) {
  const Clock::time_point l_tNow = Clock::now();
  if (p_bResults) {
    // The run's matrices start with one empty row per place and no rates;
    // each output point is then appended as a column, so that publishing
    // costs one value per row and point, however long the run.
    if (!m_bResultsStarted) {
      m_rStore.SetResultMatrix(m_nModel, SteeringMatrix(m_nRows));
      m_rStore.SetRateMatrix(m_nModel, SteeringMatrix());
      m_bResultsStarted = true;
    }
    for (size_t l_nPoint = 0; l_nPoint < m_aadPendingResults.size(); ++l_nPoint)
      m_rStore.AppendOutputPoint(m_nModel, m_aadPendingResults[l_nPoint],
                                 m_aadPendingRates[l_nPoint]);
    m_aadPendingResults.clear();
    m_aadPendingRates.clear();
    m_rStore.WithModel(m_nModel, [this](Model& p_rModel) {
      AttributeVectorDouble* l_pcMarking =
          p_rModel.FindAttribute<AttributeVectorDouble>(keys::CURRENT_MARKING);
      if (l_pcMarking != NULL && l_pcMarking->GetValue().size() == m_adMarking.size())
        l_pcMarking->SetValue(m_adMarking);
    });
    m_tLastPublish = l_tNow;
  }
  const double l_dProgress =
      m_nPoints > 0 ? 100.0 * static_cast<double>(m_nDone) / static_cast<double>(m_nPoints) : 0.0;
  const int l_nSpeed = m_nSpeed > static_cast<unsigned int>(INT_MAX) ? INT_MAX
                                                                      : static_cast<int>(m_nSpeed);
  const double l_dRuntime = RunSeconds(l_tNow);
  const bool l_bNames = m_nPoints > 0;  // a run has set them
  m_rStore.WithRuntimeState(m_nModel, [&](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(keys::SIMULATOR_STATE, m_nState);
    p_rState.SetAttributeValue(keys::SIMULATOR_PROGRESS, l_dProgress);
    p_rState.SetAttributeValue(keys::SIMULATOR_RUNTIME, l_dRuntime);
    p_rState.SetAttributeValue(keys::SIMULATOR_SPEED, l_nSpeed);
    if (l_bNames) {
      p_rState.SetAttributeValue(keys::SIMULATOR_CATEGORY, m_cPlan.m_sCategory);
      p_rState.SetAttributeValue(keys::CURRENT_SIMULATOR_ALGORITHM, m_cPlan.m_sAlgorithm);
    }
  });
}

void SteeringRunner::ApplyChanges(SteeringStep& p_rStep,
                                  std::vector<SteeringChange>& p_racApplied) {
  for (const SteeringChange& l_cChange : m_acChanges) {
    std::vector<double>& l_radValues =
        l_cChange.m_eKind == SteeringChange::PLACE ? p_rStep.m_adMarking : p_rStep.m_adParameters;
    if (l_cChange.m_nPosition >= l_radValues.size()) continue;
    l_radValues[l_cChange.m_nPosition] = l_cChange.m_dValue;
    p_racApplied.push_back(l_cChange);
  }
  m_acChanges.clear();
  m_adMarking = p_rStep.m_adMarking;
}

bool SteeringRunner::Call(const std::function<bool()>& p_fCall, SteeringStep& p_rStep,
                          const wxChar* p_sWhat) {
  try {
    if (p_fCall()) return true;
    if (p_rStep.m_sFailure.empty())
      p_rStep.m_sFailure = wxString(p_sWhat) + wxT(" failed and gave no reason");
  } catch (const std::exception& l_cError) {
    p_rStep.m_sFailure = wxString(p_sWhat) + wxT(" threw an exception: ") +
                         ExceptionText(l_cError.what());
  } catch (...) {
    p_rStep.m_sFailure = wxString(p_sWhat) + wxT(" threw an exception of an unknown kind");
  }
  return false;
}

int SteeringRunner::RunSteps(SteeringStep& p_rStep, wxString& p_rsFailure) {
  size_t l_nMarking = p_rStep.m_adMarking.size();
  size_t l_nRates = 0;  // per point, fixed by the start point
  for (size_t l_nPoint = 0; l_nPoint < m_nPoints; ++l_nPoint) {
    p_rStep.m_nPoint = l_nPoint;
    p_rStep.m_dTo = m_cPlan.m_dStart + static_cast<double>(l_nPoint) * m_cPlan.m_dSampling;
    p_rStep.m_dFrom = l_nPoint == 0 ? p_rStep.m_dTo : p_rStep.m_dFrom;
    p_rStep.m_adRates.clear();
    bool l_bOk = true;
    if (l_nPoint == 0 && m_cPlan.m_fBegin) {
      l_bOk = Call([&] { return m_cPlan.m_fBegin(p_rStep); }, p_rStep, wxT("the run's start"));
      // The start may give the run another number of rows.
      if (l_bOk && p_rStep.m_adMarking.size() != l_nMarking && !Resize(p_rStep, p_rsFailure))
        return SIMULATOR_FAILED;
      l_nMarking = p_rStep.m_adMarking.size();
    }
    if (l_bOk)
      l_bOk = Call([&] { return m_cPlan.m_fStep(p_rStep); }, p_rStep, wxT("the step function"));
    if (!l_bOk) {
      if (p_rStep.ShouldStop()) return SIMULATOR_STOPPED;
      p_rsFailure = wxString::Format(wxT("the step to t = %s (output point %zu): "),
                                     Number(p_rStep.m_dTo), l_nPoint) +
                    p_rStep.m_sFailure;
      return SIMULATOR_FAILED;
    }
    if (p_rStep.m_adMarking.size() != l_nMarking) {
      p_rsFailure = wxString::Format(wxT("the step function left %zu marking values instead of "
                                         "%zu"),
                                     p_rStep.m_adMarking.size(), l_nMarking);
      return SIMULATOR_FAILED;
    }
    if (l_nPoint == 0) {
      l_nRates = p_rStep.m_adRates.size();
      if (l_nRates != 0 && l_nRates != m_nTransitions) {
        p_rsFailure = wxString::Format(wxT("the step function gave %zu rates for a model of %zu "
                                           "transitions"),
                                       l_nRates, m_nTransitions);
        return SIMULATOR_FAILED;
      }
    } else if (p_rStep.m_adRates.size() != l_nRates) {
      p_rsFailure = wxString::Format(wxT("the step function gave %zu rates at output point %zu "
                                         "and %zu at the start"),
                                     p_rStep.m_adRates.size(), l_nPoint, l_nRates);
      return SIMULATOR_FAILED;
    }

    std::vector<SteeringChange> l_acApplied;
    const Outcome l_eOutcome = AtOutputPoint(p_rStep, l_acApplied);
    if (l_eOutcome == FINISH) return SIMULATOR_FINISHED;
    if (l_eOutcome == STOP) return SIMULATOR_STOPPED;
    if (!l_acApplied.empty() && m_cPlan.m_fSteered &&
        !Call(
            [&] {
              m_cPlan.m_fSteered(l_acApplied);
              return true;
            },
            p_rStep, wxT("the steering hook"))) {
      p_rsFailure = p_rStep.m_sFailure;
      return SIMULATOR_FAILED;
    }
    p_rStep.m_dFrom = p_rStep.m_dTo;
  }
  return SIMULATOR_FINISHED;  // a run of no points
}

bool SteeringRunner::Resize(SteeringStep& p_rStep, wxString& p_rsFailure) {
  const size_t l_nRows = p_rStep.m_adMarking.size();
  if (l_nRows > 0 && m_nPoints > MAX_RESULT_VALUES / l_nRows) {
    p_rsFailure = wxString::Format(wxT("the run's start asked for %zu rows: %zu output points "
                                       "of them would be more than the %llu values a run may "
                                       "produce"),
                                   l_nRows, m_nPoints, MAX_RESULT_VALUES);
    return false;
  }
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  // The matrices published so far had the old rows: the next publication
  // starts them again with the new ones.
  m_nRows = l_nRows;
  m_aadPendingResults.clear();
  m_aadPendingRates.clear();
  m_bResultsStarted = false;
  m_adMarking = p_rStep.m_adMarking;
  return true;
}

SteeringRunner::Outcome SteeringRunner::AtOutputPoint(SteeringStep& p_rStep,
                                                      std::vector<SteeringChange>& p_racApplied) {
  std::unique_lock<std::mutex> l_cLock(m_cMutex);
  m_tLastPoint = Clock::now();
  m_aadPendingResults.emplace_back(
      p_rStep.m_adMarking.begin(),
      p_rStep.m_adMarking.begin() +
          static_cast<long>(std::min(m_nRows, p_rStep.m_adMarking.size())));
  m_aadPendingRates.push_back(p_rStep.m_adRates);
  m_nDone = p_rStep.m_nPoint + 1;
  // Changes hold from this point on.
  ApplyChanges(p_rStep, p_racApplied);

  if (m_nDone >= m_nPoints) return FINISH;  // the end is published by Finish
  if (m_bStop) return STOP;
  if (m_nSpeed > 0 || m_tLastPoint - m_tLastPublish >= PUBLISH_INTERVAL) Publish(true);

  // Pauses and pacing; changes that arrive meanwhile act from this point.
  for (;;) {
    if (m_bStop) return STOP;
    if (m_bPause) {
      if (m_bRunning) {
        m_dRunSeconds = RunSeconds(Clock::now());
        m_bRunning = false;
      }
      m_nState = SIMULATOR_PAUSED;
      Publish(true);
      m_cWake.wait(l_cLock, [this] { return m_bStop || !m_bPause || !m_acChanges.empty(); });
      if (!m_acChanges.empty()) {
        ApplyChanges(p_rStep, p_racApplied);
        Publish(true);
      }
      if (!m_bPause && !m_bStop) {
        m_nState = SIMULATOR_RUNNING;
        m_bRunning = true;
        m_tRunningSince = m_tLastPoint = Clock::now();
        Publish(false);
      }
      continue;
    }
    if (m_nSpeed == 0) break;
    const Clock::time_point l_tDue =
        m_tLastPoint + std::chrono::duration_cast<Clock::duration>(
                           std::chrono::duration<double>(1.0 / m_nSpeed));
    if (Clock::now() >= l_tDue) break;
    m_bSpeedChanged = false;
    m_cWake.wait_until(l_cLock, l_tDue, [this] {
      return m_bStop || m_bPause || m_bSpeedChanged || !m_acChanges.empty();
    });
    if (!m_acChanges.empty()) {
      ApplyChanges(p_rStep, p_racApplied);
      Publish(true);
    }
  }
  return GO_ON;
}

wxString SteeringRunner::EndLine(int p_nState, const wxString& p_sFailure,
                                const wxString& p_sSummary) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  if (m_bRunning) {
    m_dRunSeconds = RunSeconds(Clock::now());
    m_bRunning = false;
  }
  wxString l_sText;
  switch (p_nState) {
    case SIMULATOR_FINISHED:
      l_sText = Prefix() + wxString::Format(wxT("run finished (%zu output points, %.3f s)"),
                                            m_nDone, m_dRunSeconds);
      break;
    case SIMULATOR_STOPPED:
      l_sText = Prefix() + wxString::Format(wxT("run stopped after %zu of %zu output points"),
                                            m_nDone, m_nPoints);
      break;
    default:
      l_sText = Prefix() +
                wxString::Format(wxT("run failed after %zu of %zu output points: "), m_nDone,
                                 m_nPoints) +
                p_sFailure;
      break;
  }
  if (!p_sSummary.empty()) l_sText += wxT("; ") + p_sSummary;
  return l_sText;
}

void SteeringRunner::Finish(int p_nState, const wxString& p_sLine) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_bActive = false;
  m_bPause = false;
  m_nState = p_nState;
  try {
    // The reason first, then the state: a client that sees the run ended
    // finds why it ended.
    if (p_nState == SIMULATOR_FAILED) {
      m_rStore.SetErrorMessage(m_nModel, p_sLine);
      m_rStore.WithRuntimeState(m_nModel, [](ModelRuntimeState& p_rState) {
        p_rState.SetAttributeValue(keys::ERROR_STATE, static_cast<int>(SIMULATOR_ERROR_RUN));
      });
    }
    m_rStore.SetLogMessage(m_nModel, p_sLine);
    Publish(true);
  } catch (const std::exception&) {
    // Out of memory for the copies: the state above is what counts.
  }
  m_cWake.notify_all();
}

void SteeringRunner::Work(std::unique_ptr<SteeringStep> p_pcStep) {
  int l_nState = SIMULATOR_FAILED;
  wxString l_sFailure;
  try {
    l_nState = RunSteps(*p_pcStep, l_sFailure);
    if (l_nState != SIMULATOR_FAILED) {
      // Changes that came after the last point still show in the end state.
      std::vector<SteeringChange> l_acApplied;
      std::lock_guard<std::mutex> l_cLock(m_cMutex);
      ApplyChanges(*p_pcStep, l_acApplied);
    }
  } catch (const std::exception& l_cError) {
    l_nState = SIMULATOR_FAILED;
    l_sFailure = wxT("the run broke off: ") + ExceptionText(l_cError.what());
  }
  wxString l_sEndProblem;
  if (m_cPlan.m_fEnd) {
    p_pcStep->m_sFailure.clear();
    if (!Call(
            [&] {
              m_cPlan.m_fEnd(l_nState);
              return true;
            },
            *p_pcStep, wxT("the run's end")))
      l_sEndProblem = p_pcStep->m_sFailure;
  }
  wxString l_sSummary;
  if (m_cPlan.m_fSummary && l_sEndProblem.empty()) {
    p_pcStep->m_sFailure.clear();
    if (!Call(
            [&] {
              l_sSummary = m_cPlan.m_fSummary();
              return true;
            },
            *p_pcStep, wxT("the run's summary")))
      l_sEndProblem = p_pcStep->m_sFailure;
  }
  // Logged before the end is published, so that whoever sees the run ended
  // finds its line in the server's log; and with no lock held: off the
  // main thread, LOG may wait for the main thread's GUI lock.
  const wxString l_sText = EndLine(l_nState, l_sFailure, l_sSummary);
  LogText(l_nState == SIMULATOR_FAILED ? 1 : 3, l_sText);
  if (!l_sEndProblem.empty()) LogText(2, Prefix() + l_sEndProblem);
  Finish(l_nState, l_sText);
}

}  // namespace quor
