// SPDX-License-Identifier: MIT
#include "simd/modelRun.h"

#include <algorithm>
#include <climits>
#include <system_error>
#include <utility>

#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "simd/simdCommon.h"

namespace quor {
namespace simd {

namespace {

// How often an unpaced run shows its progress.
const std::chrono::milliseconds PUBLISH_INTERVAL(100);

// Columns reserved up front, at most (a long grid grows as it goes).
const std::size_t RESERVED_COLUMNS = 1 << 14;

}  // namespace

ModelRun::ModelRun(SteeringModelStore& p_rStore, int p_nModel)
    : m_rStore(p_rStore),
      m_nModel(p_nModel),
      m_nPoints(0),
      m_nState(STATE_IDLE),
      m_bActive(false),
      m_bPause(false),
      m_bStop(false),
      m_bSpeedChanged(false),
      m_bAbort(false),
      m_nSpeed(0),
      m_nDone(0),
      m_dRunSeconds(0.0),
      m_bRunning(false) {
  // Whatever the store says of the model so far (a speed chosen before).
  m_rStore.WithRuntimeState(m_nModel, [this](ModelRuntimeState& p_rState) {
    const int l_nSpeed = p_rState.GetAttributeValueInt(wxT("SIMULATOR_SPEED"));
    m_nSpeed = l_nSpeed > 0 ? static_cast<unsigned int>(l_nSpeed) : 0;
    m_nState = p_rState.GetAttributeValueInt(wxT("SIMULATOR_STATE"));
  });
  m_tRunningSince = m_tLastPoint = m_tLastPublish = Clock::now();
}

ModelRun::~ModelRun() {
  Stop();
  Join();
}

bool ModelRun::Start(std::unique_ptr<sim::Simulator> p_pcSimulator,
                     const sim::OutputGrid& p_rGrid, const wxString& p_sCategory,
                     const wxString& p_sSimulator, bool p_bRestart, std::string* p_psError) {
  std::lock_guard<std::mutex> l_cControl(m_cControl);
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    if (m_bActive && !p_bRestart) {
      if (p_psError != NULL)
        *p_psError = std::string("a run is going on (") + StateName(m_nState) +
                     "); stop it first, or restart";
      return false;
    }
    if (m_bActive) {
      m_bStop = true;
      m_bAbort = true;
      m_cWake.notify_all();
    }
  }
  if (m_cThread.joinable()) m_cThread.join();

  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_pcSimulator = std::move(p_pcSimulator);
  m_cGrid = p_rGrid;
  m_nPoints = p_rGrid.Count();
  m_sCategory = p_sCategory;
  m_sSimulator = p_sSimulator;
  const sim::Net& l_rNet = m_pcSimulator->GetNet();
  m_aadResults.assign(l_rNet.places.size(), std::vector<double>());
  m_aadRates.assign(l_rNet.transitions.size(), std::vector<double>());
  const std::size_t l_nReserve = std::min(m_nPoints, RESERVED_COLUMNS);
  for (std::vector<double>& l_rRow : m_aadResults) l_rRow.reserve(l_nReserve);
  for (std::vector<double>& l_rRow : m_aadRates) l_rRow.reserve(l_nReserve);
  m_adMarking = m_pcSimulator->Marking();
  m_acChanges.clear();
  m_nDone = 0;
  m_bPause = m_bStop = m_bSpeedChanged = false;
  m_bAbort = false;
  m_nState = STATE_RUNNING;
  m_bActive = true;
  m_dRunSeconds = 0.0;
  m_bRunning = true;
  m_tRunningSince = m_tLastPoint = Clock::now();
  Publish(true);
  m_rStore.SetErrorMessage(m_nModel, wxString());
  m_rStore.WithRuntimeState(m_nModel, [](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(wxT("ERROR_STATE"), static_cast<int>(ERROR_NONE));
  });
  try {
    m_cThread = std::thread(&ModelRun::Work, this);
  } catch (const std::system_error& l_cError) {
    m_bActive = false;
    m_bRunning = false;
    m_nState = STATE_FAILED;
    Publish(false);
    if (p_psError != NULL) *p_psError = std::string("cannot start a thread: ") + l_cError.what();
    return false;
  }
  return true;
}

bool ModelRun::Pause() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  if (!m_bActive || m_bStop) return false;
  m_bPause = true;
  m_cWake.notify_all();
  return true;
}

bool ModelRun::Resume() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  if (!m_bActive || m_bStop || !m_bPause) return false;
  m_bPause = false;
  m_cWake.notify_all();
  return true;
}

bool ModelRun::Stop() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  if (!m_bActive || m_bStop) return false;
  m_bStop = true;
  m_bAbort = true;
  m_cWake.notify_all();
  return true;
}

void ModelRun::Join() {
  std::lock_guard<std::mutex> l_cControl(m_cControl);
  if (m_cThread.joinable()) m_cThread.join();
}

void ModelRun::SetSpeed(unsigned int p_nPointsPerSecond) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_nSpeed = p_nPointsPerSecond;
  m_bSpeedChanged = true;
  m_cWake.notify_all();
  Publish(false);
}

unsigned int ModelRun::GetSpeed() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  return m_nSpeed;
}

void ModelRun::Queue(Change p_cChange) {
  if (!m_bActive) return;
  m_acChanges.push_back(std::move(p_cChange));
  m_cWake.notify_all();
}

void ModelRun::ChangeParameter(std::size_t p_nPosition, double p_dValue) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_rStore.WithModel(m_nModel,
                     [&](Model& p_rModel) { p_rModel.SetParameterValue(p_nPosition, p_dValue); });
  Change l_cChange{Change::PARAMETER, p_nPosition, p_dValue, {}, {}, {}};
  Queue(std::move(l_cChange));
}

void ModelRun::ChangeMarking(std::size_t p_nPosition, double p_dValue) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_rStore.WithModel(m_nModel,
                     [&](Model& p_rModel) { p_rModel.SetMarkingValue(p_nPosition, p_dValue); });
  Change l_cChange{Change::MARKING, p_nPosition, p_dValue, {}, {}, {}};
  Queue(std::move(l_cChange));
}

void ModelRun::SetParameters(const std::vector<double>& p_adValues) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_rStore.WithModel(m_nModel,
                     [&](Model& p_rModel) { p_rModel.SetCurrentParameterValues(p_adValues); });
  Change l_cChange{Change::ALL_PARAMETERS, 0, 0.0, p_adValues, {}, {}};
  Queue(std::move(l_cChange));
}

void ModelRun::SetMarking(const std::vector<double>& p_adValues) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_rStore.WithModel(m_nModel,
                     [&](Model& p_rModel) { p_rModel.SetCurrentMarking(p_adValues); });
  Change l_cChange{Change::ALL_MARKING, 0, 0.0, p_adValues, {}, {}};
  Queue(std::move(l_cChange));
}

void ModelRun::ApplySetting(const wxString& p_sSimulator, const std::string& p_sName,
                            const std::string& p_sValue) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  if (p_sSimulator != m_sSimulator) return;
  Change l_cChange{Change::SETTING, 0, 0.0, {}, p_sName, p_sValue};
  Queue(std::move(l_cChange));
}

bool ModelRun::IsActive() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  return m_bActive;
}

int ModelRun::GetState() {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  return m_nState;
}

double ModelRun::RunSeconds(Clock::time_point p_tNow) const {
  double l_dSeconds = m_dRunSeconds;
  if (m_bRunning) l_dSeconds += std::chrono::duration<double>(p_tNow - m_tRunningSince).count();
  return l_dSeconds;
}

void ModelRun::Publish(bool p_bResults) {
  const Clock::time_point l_tNow = Clock::now();
  if (p_bResults) {
    m_rStore.SetResultMatrix(m_nModel, m_aadResults);
    m_rStore.SetRateMatrix(m_nModel, m_aadRates);
    m_rStore.WithModel(m_nModel, [this](Model& p_rModel) {
      if (m_adMarking.size() == p_rModel.GetPlaceCount()) p_rModel.SetCurrentMarking(m_adMarking);
    });
    m_tLastPublish = l_tNow;
  }
  const double l_dProgress =
      m_nPoints > 0 ? 100.0 * static_cast<double>(m_nDone) / static_cast<double>(m_nPoints) : 0.0;
  const int l_nSpeed = m_nSpeed > static_cast<unsigned int>(INT_MAX) ? INT_MAX
                                                                      : static_cast<int>(m_nSpeed);
  const double l_dRuntime = RunSeconds(l_tNow);
  m_rStore.WithRuntimeState(m_nModel, [&](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(wxT("SIMULATOR_STATE"), m_nState);
    p_rState.SetAttributeValue(wxT("SIMULATOR_PROGRESS"), l_dProgress);
    p_rState.SetAttributeValue(wxT("SIMULATOR_RUNTIME"), l_dRuntime);
    p_rState.SetAttributeValue(wxT("SIMULATOR_SPEED"), l_nSpeed);
    if (!m_sSimulator.empty()) {
      p_rState.SetAttributeValue(wxT("SIMULATOR_CATEGORY"), m_sCategory);
      p_rState.SetAttributeValue(wxT("CURRENT_SIMULATOR_ALGORITHM"), m_sSimulator);
    }
  });
}

void ModelRun::ApplyChanges(sim::Simulator& p_rSimulator) {
  std::string l_sError;
  for (const Change& l_cChange : m_acChanges) {
    bool l_bOk = true;
    switch (l_cChange.kind) {
      case Change::PARAMETER:
        l_bOk = p_rSimulator.SetParameter(l_cChange.position, l_cChange.value, &l_sError);
        break;
      case Change::MARKING:
        l_bOk = p_rSimulator.SetMarking(l_cChange.position, l_cChange.value, &l_sError);
        break;
      case Change::ALL_PARAMETERS:
        for (std::size_t i = 0; i < l_cChange.values.size() && l_bOk; ++i)
          l_bOk = p_rSimulator.SetParameter(i, l_cChange.values[i], &l_sError);
        break;
      case Change::ALL_MARKING:
        for (std::size_t i = 0; i < l_cChange.values.size() && l_bOk; ++i)
          l_bOk = p_rSimulator.SetMarking(i, l_cChange.values[i], &l_sError);
        break;
      case Change::SETTING:
        l_bOk = p_rSimulator.ApplySetting(l_cChange.name, l_cChange.text, &l_sError);
        break;
    }
    if (!l_bOk) Log(2, wxT("a change was not applied to the run: ") + FromStd(l_sError));
  }
  m_acChanges.clear();
  m_adMarking = p_rSimulator.Marking();
}

bool ModelRun::AtOutputPoint(std::size_t p_nIndex, sim::Simulator& p_rSimulator) {
  std::unique_lock<std::mutex> l_cLock(m_cMutex);
  m_tLastPoint = Clock::now();
  const std::vector<double>& l_adMarking = p_rSimulator.Marking();
  for (std::size_t l_nRow = 0; l_nRow < m_aadResults.size() && l_nRow < l_adMarking.size();
       ++l_nRow)
    m_aadResults[l_nRow].push_back(l_adMarking[l_nRow]);
  const std::vector<double> l_adRates = p_rSimulator.Rates();
  for (std::size_t l_nRow = 0; l_nRow < m_aadRates.size() && l_nRow < l_adRates.size(); ++l_nRow)
    m_aadRates[l_nRow].push_back(l_adRates[l_nRow]);
  m_nDone = p_nIndex + 1;
  // Changes hold from this point on.
  ApplyChanges(p_rSimulator);

  if (m_nDone >= m_nPoints) return true;  // the end is published by Work
  if (m_bStop) return false;
  if (m_nSpeed > 0 || m_tLastPoint - m_tLastPublish >= PUBLISH_INTERVAL) Publish(true);

  // Pauses and pacing; changes that arrive meanwhile act from this point.
  for (;;) {
    if (m_bStop) return false;
    if (m_bPause) {
      if (m_bRunning) {
        m_dRunSeconds = RunSeconds(Clock::now());
        m_bRunning = false;
      }
      m_nState = STATE_PAUSED;
      Publish(true);
      m_cWake.wait(l_cLock, [this] { return m_bStop || !m_bPause || !m_acChanges.empty(); });
      if (!m_acChanges.empty()) {
        ApplyChanges(p_rSimulator);
        Publish(true);
      }
      if (!m_bPause && !m_bStop) {
        m_nState = STATE_RUNNING;
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
      ApplyChanges(p_rSimulator);
      Publish(true);
    }
  }
  return true;
}

void ModelRun::Work() {
  sim::Simulator& l_rSimulator = *m_pcSimulator;
  l_rSimulator.SetAbortFlag(&m_bAbort);
  const sim::RunResult l_cResult = sim::RunSimulation(
      l_rSimulator, m_cGrid,
      [this](std::size_t p_nIndex, double, sim::Simulator& p_rSimulator) {
        return AtOutputPoint(p_nIndex, p_rSimulator);
      },
      false);

  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  if (m_bRunning) {
    m_dRunSeconds = RunSeconds(Clock::now());
    m_bRunning = false;
  }
  // Changes that came after the last point still show in the end state.
  ApplyChanges(l_rSimulator);
  wxString l_sName;
  m_rStore.WithModel(m_nModel, [&](Model& p_rModel) { l_sName = p_rModel.GetModelName(); });
  wxString l_sText;
  switch (l_cResult.status) {
    case sim::RunStatus::Completed:
      m_nState = STATE_FINISHED;
      l_sText = wxString::Format(wxT("model '%s': run finished (%zu output points, %.3f s)"),
                                 l_sName, m_nDone, m_dRunSeconds);
      break;
    case sim::RunStatus::Stopped:
    case sim::RunStatus::Aborted:
      m_nState = STATE_STOPPED;
      l_sText = wxString::Format(wxT("model '%s': run stopped after %zu of %zu output points"),
                                 l_sName, m_nDone, m_nPoints);
      break;
    case sim::RunStatus::Failed:
      m_nState = STATE_FAILED;
      l_sText = wxString::Format(wxT("model '%s': run failed after %zu of %zu output points: "),
                                 l_sName, m_nDone, m_nPoints) +
                FromStd(l_cResult.error);
      break;
  }
  // What the simulator did beyond the points (an ensemble's runs).
  const std::string l_sSummary = l_rSimulator.Summary();
  if (!l_sSummary.empty()) l_sText += wxT("; ") + FromStd(l_sSummary);
  m_bActive = false;
  m_bPause = false;
  Publish(true);
  if (m_nState == STATE_FAILED) {
    m_rStore.SetErrorMessage(m_nModel, l_sText);
    m_rStore.WithRuntimeState(m_nModel, [](ModelRuntimeState& p_rState) {
      p_rState.SetAttributeValue(wxT("ERROR_STATE"), static_cast<int>(ERROR_RUN));
    });
  }
  m_rStore.SetLogMessage(m_nModel, l_sText);
  Log(m_nState == STATE_FAILED ? 1 : 3, l_sText);
  m_cWake.notify_all();
}

}  // namespace simd
}  // namespace quor
