// SPDX-License-Identifier: MIT
#include "webLink.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "quor/keys.h"
#include "quor/modelruntimestate.h"
#include "quor/simulatorState.h"
#include "quor/simulatorattribute.h"
#include "quor/utilities.h"
#include "quorapp/text.h"

namespace quor {
namespace web {

using nlohmann::json;
using quor::app::FromStd;
using quor::app::ToStd;

namespace {

// p_nDigits 17 keeps every bit; 15 reads better and is what a CSV needs.
std::string Number(double p_dValue, int p_nDigits = 17) {
  char l_acText[40];
  std::snprintf(l_acText, sizeof l_acText, "%.*g", p_nDigits, p_dValue);
  return l_acText;
}

std::vector<std::string> Lines(const wxString& p_sText) {
  std::vector<std::string> l_asLines;
  std::stringstream l_cText(ToStd(p_sText));
  for (std::string l_sLine; std::getline(l_cText, l_sLine);)
    if (!l_sLine.empty()) l_asLines.push_back(l_sLine);
  return l_asLines;
}

Outcome Failure(int p_nStatus, const std::string& p_sWhy) {
  Outcome l_cOutcome;
  l_cOutcome.nStatus = p_nStatus;
  l_cOutcome.cBody = {{"error", p_sWhy}};
  return l_cOutcome;
}

std::string NoSettings(const std::string& p_sSimulator) {
  return "the server has no settings for '" + p_sSimulator + "'";
}

}  // namespace

WebLink::WebLink(const std::string& p_sHost, const std::string& p_sService, EventHub& p_rEvents)
    : m_sHost(p_sHost), m_sService(p_sService), m_rEvents(p_rEvents) {
  m_sConnection = "connecting to " + m_sHost + ":" + m_sService;
}

WebLink::~WebLink() { Stop(); }

void WebLink::Start() {
  {
    std::lock_guard<std::mutex> l_cGuard(m_cLock);
    Connect();
  }
  m_cWatcher = std::thread([this] { Watch(); });
}

void WebLink::Stop() {
  {
    std::lock_guard<std::mutex> l_cGuard(m_cStopLock);
    m_bStop = true;
  }
  m_cStopped.notify_all();
  if (m_cWatcher.joinable()) m_cWatcher.join();
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  if (m_pcClient && m_pcClient->IsConnected()) m_pcClient->DisConnectFromServer();
  m_pcClient.reset();
}

bool WebLink::Connect() {
  std::unique_ptr<SteeringClient> l_pcClient(new SteeringClient(FromStd(m_sHost), FromStd(m_sService)));
  l_pcClient->SetTimeout(STEERING_TIMEOUT_S);
  const unsigned int l_nResult = l_pcClient->ConnectToServer(true);
  if (l_nResult != SUCCESS) {
    const std::string l_sWhy = "cannot reach the simulation server " + m_sHost + ":" + m_sService +
                               " (" + ToStd(ResultName(l_nResult)) + "); trying again";
    if (m_sConnection != l_sWhy) {
      m_sConnection = l_sWhy;
      m_rEvents.Publish(json({{"type", "connection"}, {"connected", false}, {"message", l_sWhy}}));
    }
    return false;
  }
  m_pcClient = std::move(l_pcClient);
  m_bConnected = true;
  std::string l_sMessage = "connected to " + m_sHost + ":" + m_sService;
  if (!m_sAttached.empty()) {
    std::string l_sWhy;
    if (AttachLocked(m_sAttached, l_sWhy))
      l_sMessage += "; attached to '" + m_sAttached + "' again";
    else
      l_sMessage += "; " + l_sWhy;
  }
  m_sConnection = l_sMessage;
  Message("connection", l_sMessage);
  m_rEvents.Publish(json({{"type", "snapshot"}, {"state", SnapshotLocked()}}));
  return true;
}

void WebLink::Drop(const std::string& p_sWhy) {
  if (!m_bConnected) return;
  m_bConnected = false;
  m_pcClient.reset();
  m_sConnection = "lost the simulation server " + m_sHost + ":" + m_sService + " (" + p_sWhy +
                  "); connecting again";
  Message("connection", m_sConnection);
  m_rEvents.Publish(json({{"type", "connection"}, {"connected", false}, {"message", m_sConnection}}));
}

bool WebLink::Lost(unsigned int p_nResult) {
  if (p_nResult == SUCCESS || !m_pcClient) return !m_pcClient;
  const bool l_bLost = !m_pcClient->IsConnected() || p_nResult == CONNECTION_NOT_CONNECTED ||
                       p_nResult == TRANSFER_NOT_CONNECTED || p_nResult == TRANSFER_SOCKET_ERROR ||
                       p_nResult == TRANSFER_SHORT_WRITE;
  if (l_bLost) Drop(ToStd(ResultName(p_nResult)));
  return l_bLost;
}

bool WebLink::AttachLocked(const std::string& p_sName, std::string& p_rsWhy) {
  std::vector<wxString> l_asNames;
  unsigned int l_nResult = m_pcClient->GetRuningModelNames(l_asNames);
  if (l_nResult != SUCCESS) {
    Lost(l_nResult);
    p_rsWhy = "cannot list the models (" + ToStd(ResultName(l_nResult)) + ")";
    return false;
  }
  int l_nIndex = -1;
  for (std::size_t i = 0; i < l_asNames.size(); ++i)
    if (ToStd(l_asNames[i]) == p_sName) l_nIndex = static_cast<int>(i);
  if (l_nIndex < 0) {
    p_rsWhy = "the server runs no model '" + p_sName + "'";
    return false;
  }
  // A connection attaches once: attaching to another model takes a fresh one.
  if (m_pcClient->GetModel() != nullptr) {
    m_pcClient->DisConnectFromServer();
    std::unique_ptr<SteeringClient> l_pcClient(new SteeringClient(FromStd(m_sHost), FromStd(m_sService)));
    l_pcClient->SetTimeout(STEERING_TIMEOUT_S);
    l_nResult = l_pcClient->ConnectToServer(true);
    if (l_nResult != SUCCESS) {
      m_pcClient.reset();
      Lost(l_nResult);
      p_rsWhy = "cannot connect again (" + ToStd(ResultName(l_nResult)) + ")";
      return false;
    }
    m_pcClient = std::move(l_pcClient);
  }
  l_nResult = m_pcClient->Initialize(l_nIndex);
  if (l_nResult != SUCCESS) {
    Lost(l_nResult);
    p_rsWhy = "cannot attach to '" + p_sName + "' (" + ToStd(ResultName(l_nResult)) + ")";
    return false;
  }
  m_pcModel.reset(m_pcClient->GetModel());
  m_sAttached = p_sName;
  m_nPublished = 0;
  m_aadResults.clear();
  m_nState = -1;
  m_bFailureReported = false;
  m_adParameters.clear();
  m_adMarking.clear();
  m_pcClient->ReadCurrentParameterValues(m_adParameters);
  m_adInitialParameters = m_adParameters;
  ReadInterval();
  WatchOnce();
  return true;
}

void WebLink::ReadInterval() {
  double l_dStart = 0, l_dEnd = 0, l_dStep = 0;
  // The request reports FAILURE even when it worked: judge by the values.
  m_pcClient->ReadSimulationInterval(l_dStart, l_dEnd, l_dStep);
  if (std::isfinite(l_dStart) && std::isfinite(l_dStep) && l_dStep > 0) {
    m_dStart = l_dStart;
    m_dEnd = l_dEnd;
    m_dStep = l_dStep;
  } else if (m_pcModel) {
    m_dStart = m_pcModel->GetAttributeValueDouble(keys::START_OUTPUT_POINT);
    m_dEnd = m_pcModel->GetAttributeValueDouble(keys::END_OUTPUT_POINT);
    m_dStep = m_pcModel->GetAttributeValueDouble(keys::SAMPLE_POINT_SIZE);
    if (!(m_dStep > 0)) m_dStep = 1;
  }
}

void WebLink::NewRun() {
  m_nPublished = 0;
  m_aadResults.clear();
  m_bFailureReported = false;
  ReadInterval();
  m_rEvents.Publish(json({{"type", "run"}, {"interval", {m_dStart, m_dEnd, m_dStep}}}));
}

void WebLink::Watch() {
  for (;;) {
    int l_nWait = WATCH_PERIOD_MS;
    {
      std::lock_guard<std::mutex> l_cGuard(m_cLock);
      if (!m_bConnected) {
        if (!Connect()) l_nWait = RECONNECT_PERIOD_MS;
      } else if (m_pcModel) {
        WatchOnce();
      }
    }
    std::unique_lock<std::mutex> l_cGuard(m_cStopLock);
    if (m_cStopped.wait_for(l_cGuard, std::chrono::milliseconds(l_nWait), [this] { return m_bStop; }))
      return;
  }
}

void WebLink::WatchOnce() {
  if (!m_bConnected || !m_pcModel) return;
  ModelRuntimeState l_cState;
  unsigned int l_nResult = m_pcClient->ReadModelStatistics(l_cState);
  if (Lost(l_nResult) || l_nResult != SUCCESS) return;
  const int l_nState = l_cState.GetAttributeValueInt(keys::SIMULATOR_STATE);
  const bool l_bWasActive = IsRunActive(m_nState);

  std::vector<std::vector<double> > l_aadResults;
  l_nResult = m_pcClient->ReadResultMatrix(l_aadResults);
  if (Lost(l_nResult)) return;
  const std::size_t l_nColumns = l_aadResults.empty() ? 0 : l_aadResults[0].size();
  if ((IsRunActive(l_nState) && !l_bWasActive && m_nState >= 0) || l_nColumns < m_nPublished)
    NewRun();

  wxString l_sFirst, l_sSecond, l_sLog;
  m_pcClient->ReadCurrentSimulatorName(l_sFirst, l_sSecond);
  l_nResult = m_pcClient->ReadLogMessage(l_sLog);
  if (Lost(l_nResult)) return;
  std::vector<double> l_adParameters, l_adMarking;
  m_pcClient->ReadCurrentParameterValues(l_adParameters);
  l_nResult = m_pcClient->ReadCurrentPlaceValues(l_adMarking);
  if (Lost(l_nResult)) return;

  const json l_cOldStatus = StatusJson();
  m_nState = l_nState;
  m_nErrorState = l_cState.GetAttributeValueInt(keys::ERROR_STATE);
  m_nSpeed = l_cState.GetAttributeValueInt(keys::SIMULATOR_SPEED);
  m_dProgress = l_cState.GetAttributeValueDouble(keys::SIMULATOR_PROGRESS);
  m_dRuntime = l_cState.GetAttributeValueDouble(keys::SIMULATOR_RUNTIME);
  m_sCategory = ToStd(l_cState.GetAttributeValueString(keys::SIMULATOR_CATEGORY));
  m_sAlgorithm = ToStd(l_cState.GetAttributeValueString(keys::CURRENT_SIMULATOR_ALGORITHM));
  m_sChosenCategory = ToStd(l_sFirst);
  m_sChosenSimulator = ToStd(l_sSecond);
  const std::string l_sNewLog = ToStd(l_sLog);
  if (!l_sNewLog.empty() && l_sNewLog != m_sLog) Message("log", l_sNewLog);
  m_sLog = l_sNewLog;
  const json l_cStatus = StatusJson();
  if (l_cStatus != l_cOldStatus) m_rEvents.Publish(json({{"type", "status"}, {"status", l_cStatus}}));

  if (l_adParameters != m_adParameters || l_adMarking != m_adMarking) {
    m_adParameters = l_adParameters;
    m_adMarking = l_adMarking;
    m_rEvents.Publish(json({{"type", "values"}, {"values", ValuesJson()}}));
  }

  m_aadResults = std::move(l_aadResults);
  if (l_nColumns > m_nPublished) {
    m_rEvents.Publish(json({{"type", "points"}, {"points", PointsJson(m_nPublished)}}));
    m_nPublished = l_nColumns;
  }

  if (m_nState == SIMULATOR_FAILED && m_nErrorState == 2 && !m_bFailureReported) {
    m_bFailureReported = true;
    for (const std::string& l_sLine : Refusals()) Message("error", l_sLine);
  }
}

json WebLink::StatusJson() const {
  return {{"connected", m_bConnected},
          {"connection", m_sConnection},
          {"model", m_sAttached},
          {"state", m_nState < 0 ? 0 : m_nState},
          {"stateName", SimulatorStateName(m_nState < 0 ? 0 : m_nState)},
          {"errorState", m_nErrorState},
          {"progress", m_dProgress},
          {"runtime", m_dRuntime},
          {"speed", m_nSpeed},
          {"category", m_sCategory},
          {"algorithm", m_sAlgorithm},
          {"chosenCategory", m_sChosenCategory},
          {"chosenSimulator", m_sChosenSimulator},
          {"log", m_sLog},
          {"interval", {m_dStart, m_dEnd, m_dStep}}};
}

json WebLink::ValuesJson() const { return {{"parameters", m_adParameters}, {"marking", m_adMarking}}; }

std::vector<std::string> WebLink::Names(const wxChar* p_sKey) const {
  std::vector<std::string> l_asNames;
  if (!m_pcModel) return l_asNames;
  for (const wxString& l_sName : m_pcModel->GetAttributeValueVectorString(p_sKey))
    l_asNames.push_back(ToStd(l_sName));
  return l_asNames;
}

json WebLink::ModelJson() const {
  if (!m_pcModel) return nullptr;
  return {{"name", m_sAttached},
          {"places", Names(keys::PLACE_NAMES)},
          {"transitions", Names(keys::TRANSITION_NAMES)},
          {"parameters", Names(keys::PARAMETER_NAMES)},
          {"initialParameters", m_adInitialParameters},
          {"interval", {m_dStart, m_dEnd, m_dStep}}};
}

json WebLink::PointsJson(std::size_t p_nFrom) const {
  json l_cTimes = json::array();
  json l_cRows = json::array();
  const std::size_t l_nColumns = m_aadResults.empty() ? 0 : m_aadResults[0].size();
  for (std::size_t c = p_nFrom; c < l_nColumns; ++c)
    l_cTimes.push_back(m_dStart + static_cast<double>(c) * m_dStep);
  for (const std::vector<double>& l_adRow : m_aadResults) {
    json l_cRow = json::array();
    for (std::size_t c = p_nFrom; c < l_adRow.size() && c < l_nColumns; ++c) l_cRow.push_back(l_adRow[c]);
    l_cRows.push_back(l_cRow);
  }
  return {{"from", p_nFrom}, {"t", l_cTimes}, {"rows", l_cRows}};
}

void WebLink::Message(const std::string& p_sLevel, const std::string& p_sText,
                      const std::string& p_sControl) {
  json l_cMessage = {{"level", p_sLevel}, {"text", p_sText}, {"control", p_sControl}};
  m_acMessages.push_back(l_cMessage);
  while (m_acMessages.size() > MESSAGES_KEPT) m_acMessages.pop_front();
  m_rEvents.Publish(json({{"type", "message"}, {"message", l_cMessage}}));
}

json WebLink::Snapshot() {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  return SnapshotLocked();
}

json WebLink::SnapshotLocked() const {
  json l_cMessages = json::array();
  for (const json& l_cMessage : m_acMessages) l_cMessages.push_back(l_cMessage);
  return {{"server", m_sHost + ":" + m_sService},
          {"status", StatusJson()},
          {"model", ModelJson()},
          {"values", ValuesJson()},
          {"points", PointsJson(0)},
          {"messages", l_cMessages}};
}

std::vector<std::string> WebLink::Refusals() {
  wxString l_sWhy;
  if (!m_pcClient || m_pcClient->ReceiveErrorMessage(l_sWhy) != SUCCESS) return {};
  return Lines(l_sWhy);
}

bool WebLink::Ready(Outcome& p_rcOutcome) const {
  if (!m_bConnected) {
    p_rcOutcome = Failure(503, m_sConnection);
    return false;
  }
  if (!m_pcModel) {
    p_rcOutcome = Failure(409, "attach to a model first");
    return false;
  }
  return true;
}

Outcome WebLink::Steered(unsigned int p_nResult, const std::string& p_sControl) {
  if (Lost(p_nResult)) return Failure(503, m_sConnection);
  if (p_nResult != SUCCESS)
    return Failure(502, "the simulation server did not take the request (" +
                            ToStd(ResultName(p_nResult)) + ")");
  Outcome l_cOutcome;
  const std::vector<std::string> l_asRefusals = Refusals();
  for (const std::string& l_sLine : l_asRefusals) Message("refusal", l_sLine, p_sControl);
  l_cOutcome.cBody = {{"ok", l_asRefusals.empty()}, {"refusals", l_asRefusals}};
  // The pages see the change at once, not at the next look.
  WatchOnce();
  return l_cOutcome;
}

long long WebLink::PositionOf(const wxChar* p_sKey, const std::string& p_sName) const {
  const std::vector<std::string> l_asNames = Names(p_sKey);
  const auto l_iAt = std::find(l_asNames.begin(), l_asNames.end(), p_sName);
  return l_iAt == l_asNames.end() ? -1 : static_cast<long long>(l_iAt - l_asNames.begin());
}

Outcome WebLink::Models() {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  if (!m_bConnected) return Failure(503, m_sConnection);
  std::vector<wxString> l_asNames;
  const unsigned int l_nResult = m_pcClient->GetRuningModelNames(l_asNames);
  if (Lost(l_nResult)) return Failure(503, m_sConnection);
  if (l_nResult != SUCCESS) return Failure(502, "cannot list the models (" + ToStd(ResultName(l_nResult)) + ")");
  Outcome l_cOutcome;
  json l_cNames = json::array();
  for (const wxString& l_sName : l_asNames) l_cNames.push_back(ToStd(l_sName));
  l_cOutcome.cBody = {{"models", l_cNames}, {"attached", m_sAttached}};
  return l_cOutcome;
}

Outcome WebLink::Attach(const std::string& p_sName) {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  if (!m_bConnected) return Failure(503, m_sConnection);
  std::string l_sWhy;
  if (!AttachLocked(p_sName, l_sWhy))
    return Failure(m_bConnected ? 404 : 503, l_sWhy);
  Message("connection", "attached to '" + p_sName + "'");
  m_rEvents.Publish(json({{"type", "snapshot"}, {"state", SnapshotLocked()}}));
  Outcome l_cOutcome;
  l_cOutcome.cBody = {{"ok", true}, {"model", ModelJson()}};
  return l_cOutcome;
}

Outcome WebLink::Model() {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  Outcome l_cOutcome;
  if (!m_pcModel) return Failure(409, "attach to a model first");
  l_cOutcome.cBody = {{"model", ModelJson()}, {"values", ValuesJson()}, {"status", StatusJson()}};
  // The simulators the server offers.
  json l_cSimulators = json::array();
  if (m_bConnected) {
    std::vector<QU_SimulatorCategory> l_aCategories;
    const unsigned int l_nResult = m_pcClient->ReadAvailableSimulators(l_aCategories);
    if (Lost(l_nResult)) return Failure(503, m_sConnection);
    for (const QU_SimulatorCategory& l_cCategory : l_aCategories) {
      json l_cNames = json::array();
      for (const wxString& l_sName : l_cCategory.m_asSimulatorNames) l_cNames.push_back(ToStd(l_sName));
      l_cSimulators.push_back({{"category", ToStd(l_cCategory.m_sCategoryName)}, {"simulators", l_cNames}});
    }
  }
  l_cOutcome.cBody["simulators"] = l_cSimulators;
  return l_cOutcome;
}

Outcome WebLink::Command(const std::string& p_sCommand, const std::string& p_sSimulator,
                         double p_dStart, double p_dEnd, double p_dStep) {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  Outcome l_cOutcome;
  if (!Ready(l_cOutcome)) return l_cOutcome;
  unsigned int l_nResult = FAILURE;
  if (p_sCommand == "start" || p_sCommand == "restart") {
    l_nResult = p_sCommand == "start"
                    ? m_pcClient->CMD_Start(FromStd(p_sSimulator), p_dStart, p_dEnd, p_dStep)
                    : m_pcClient->CMD_Restart(FromStd(p_sSimulator), p_dStart, p_dEnd, p_dStep);
    if (l_nResult == SUCCESS) {
      // A refused start leaves the last run's results on the page.
      int l_nState = 0;
      m_pcClient->ReadSimulatorState(l_nState);
      if (IsRunActive(l_nState)) NewRun();
    }
  } else if (p_sCommand == "pause") {
    l_nResult = m_pcClient->CMD_Pause();
  } else if (p_sCommand == "resume") {
    l_nResult = m_pcClient->CMD_Resume();
  } else {
    l_nResult = m_pcClient->CMD_Stop();
  }
  return Steered(l_nResult, p_sCommand);
}

Outcome WebLink::Speed(unsigned int p_nSpeed) {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  Outcome l_cOutcome;
  if (!Ready(l_cOutcome)) return l_cOutcome;
  return Steered(m_pcClient->ChanageSimulatorSpeed(p_nSpeed), "speed");
}

Outcome WebLink::ChangeParameter(const std::string& p_sName, double p_dValue) {
  return ChangeValue(keys::PARAMETER_NAMES, "parameter", p_sName, p_dValue);
}

Outcome WebLink::ChangeMarking(const std::string& p_sPlace, double p_dValue) {
  return ChangeValue(keys::PLACE_NAMES, "place", p_sPlace, p_dValue);
}

Outcome WebLink::ChangeValue(const wxChar* p_sNamesKey, const std::string& p_sKind,
                             const std::string& p_sName, double p_dValue) {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  Outcome l_cOutcome;
  if (!Ready(l_cOutcome)) return l_cOutcome;
  const long long l_nAt = PositionOf(p_sNamesKey, p_sName);
  if (l_nAt < 0) return Failure(404, "the model has no " + p_sKind + " '" + p_sName + "'");
  const unsigned long long l_nPosition = static_cast<unsigned long long>(l_nAt);
  const bool l_bParameter = p_sKind == "parameter";
  return Steered(l_bParameter ? m_pcClient->ChangeCurrentParameterValues(l_nPosition, p_dValue)
                              : m_pcClient->ChangeCurrentPlaceValues(l_nPosition, p_dValue),
                 (l_bParameter ? "parameter:" : "marking:") + p_sName);
}

Outcome WebLink::Reset(const std::string& p_sWhat) {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  Outcome l_cOutcome;
  if (!Ready(l_cOutcome)) return l_cOutcome;
  return Steered(p_sWhat == "parameters" ? m_pcClient->ResetParameterValues()
                                         : m_pcClient->ResetMarkingValues(),
                 "reset:" + p_sWhat);
}

Outcome WebLink::ChooseSimulator(const std::string& p_sCategory, const std::string& p_sSimulator) {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  Outcome l_cOutcome;
  if (!Ready(l_cOutcome)) return l_cOutcome;
  return Steered(m_pcClient->WriteCurrentSimulatorName(FromStd(p_sCategory), FromStd(p_sSimulator)),
                 "simulator");
}

Outcome WebLink::ReadSettings(const std::string& p_sSimulator) {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  Outcome l_cOutcome;
  if (!Ready(l_cOutcome)) return l_cOutcome;
  SimulatorAttribute l_cSettings;
  const unsigned int l_nResult = m_pcClient->ReceiveSimulatorSetting(FromStd(p_sSimulator), &l_cSettings);
  if (Lost(l_nResult)) return Failure(503, m_sConnection);
  if (l_nResult != SUCCESS)
    return Failure(502, "cannot read the settings (" + ToStd(ResultName(l_nResult)) + ")");
  const std::vector<std::string> l_asRefusals = Refusals();
  if (!l_asRefusals.empty() || l_cSettings.size() == 0) {
    l_cOutcome = Failure(404, l_asRefusals.empty() ? NoSettings(p_sSimulator) : l_asRefusals.front());
    l_cOutcome.cBody["refusals"] = l_asRefusals;
    return l_cOutcome;
  }
  json l_cList = json::array();
  for (unsigned int i = 0; i < l_cSettings.size(); ++i) {
    wxString l_sName, l_sCaption, l_sValue;
    unsigned int l_nType = 0;
    double l_dMin = 0, l_dMax = 0;
    if (!l_cSettings.GetAttribute(i, l_sName, l_sCaption, l_sValue, l_nType, l_dMin, l_dMax)) continue;
    json l_cChoices = json::array();
    for (const wxString& l_sChoice : l_cSettings.GetPossibleValues(i)) l_cChoices.push_back(ToStd(l_sChoice));
    json l_cEntry = {{"name", ToStd(l_sName)}, {"caption", ToStd(l_sCaption)},
                     {"value", ToStd(l_sValue)}, {"type", l_nType}, {"choices", l_cChoices}};
    // Bounds that are not numbers (an open range) are left out.
    if (std::isfinite(l_dMin)) l_cEntry["min"] = l_dMin;
    if (std::isfinite(l_dMax)) l_cEntry["max"] = l_dMax;
    l_cList.push_back(l_cEntry);
  }
  l_cOutcome.cBody = {{"simulator", p_sSimulator}, {"settings", l_cList}};
  return l_cOutcome;
}

Outcome WebLink::WriteSettings(const std::string& p_sSimulator, const json& p_cValues) {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  Outcome l_cOutcome;
  if (!Ready(l_cOutcome)) return l_cOutcome;
  SimulatorAttribute l_cSettings;
  unsigned int l_nResult = m_pcClient->ReceiveSimulatorSetting(FromStd(p_sSimulator), &l_cSettings);
  if (Lost(l_nResult)) return Failure(503, m_sConnection);
  const std::vector<std::string> l_asUnknown = Refusals();
  if (l_nResult != SUCCESS || !l_asUnknown.empty() || l_cSettings.size() == 0)
    return Failure(404, l_asUnknown.empty() ? NoSettings(p_sSimulator) : l_asUnknown.front());
  for (auto l_iValue = p_cValues.begin(); l_iValue != p_cValues.end(); ++l_iValue) {
    bool l_bFound = false;
    for (unsigned int i = 0; i < l_cSettings.size() && !l_bFound; ++i) {
      wxString l_sName, l_sCaption, l_sValue;
      unsigned int l_nType = 0;
      double l_dMin = 0, l_dMax = 0;
      l_cSettings.GetAttribute(i, l_sName, l_sCaption, l_sValue, l_nType, l_dMin, l_dMax);
      if (ToStd(l_sName) != l_iValue.key()) continue;
      l_bFound = true;
      l_sValue = FromStd(l_iValue->is_string() ? l_iValue->get<std::string>() : Number(l_iValue->get<double>()));
      l_cSettings.UpdateAttribute(i, l_sName, l_sCaption, l_sValue, l_nType, l_dMin, l_dMax);
    }
    if (!l_bFound) return Failure(404, "the simulator '" + p_sSimulator + "' has no setting '" + l_iValue.key() + "'");
  }
  l_nResult = m_pcClient->SendSimulatorSetting(FromStd(p_sSimulator), &l_cSettings);
  l_cOutcome = Steered(l_nResult, "settings");
  if (l_cOutcome.nStatus == 200)
    m_rEvents.Publish(json({{"type", "settings"}, {"simulator", p_sSimulator}}));
  return l_cOutcome;
}

bool WebLink::ResultsCsv(std::string& p_rsCsv) {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  if (!m_pcModel) return false;
  const std::vector<std::string> l_asPlaces = Names(keys::PLACE_NAMES);
  std::string l_sCsv = "time";
  for (const std::string& l_sPlace : l_asPlaces) {
    // A name with a comma or a quote is quoted, its quotes doubled.
    if (l_sPlace.find_first_of(",\"\n") == std::string::npos) {
      l_sCsv += "," + l_sPlace;
    } else {
      std::string l_sQuoted;
      for (char l_cChar : l_sPlace) l_sQuoted += l_cChar == '"' ? std::string("\"\"") : std::string(1, l_cChar);
      l_sCsv += ",\"" + l_sQuoted + "\"";
    }
  }
  l_sCsv += "\n";
  const std::size_t l_nColumns = m_aadResults.empty() ? 0 : m_aadResults[0].size();
  for (std::size_t c = 0; c < l_nColumns; ++c) {
    l_sCsv += Number(m_dStart + static_cast<double>(c) * m_dStep, 15);
    for (const std::vector<double>& l_adRow : m_aadResults)
      l_sCsv += "," + (c < l_adRow.size() ? Number(l_adRow[c], 15) : std::string());
    l_sCsv += "\n";
  }
  p_rsCsv = l_sCsv;
  return true;
}

}  // namespace web
}  // namespace quor
