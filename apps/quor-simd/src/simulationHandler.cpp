// SPDX-License-Identifier: MIT
#include "simd/simulationHandler.h"

#include <cmath>
#include <utility>

#include "quor/attributeVector.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"
#include "simcore/builtinModels.h"
#include "simcore/textNumbers.h"
#include "simd/netModel.h"
#include "simd/simdCommon.h"

namespace quor {
namespace simd {

namespace {

std::vector<double> Doubles(Model& p_rModel, const wxChar* p_sKey) {
  AttributeVectorDouble* l_pcValues =
      dynamic_cast<AttributeVectorDouble*>(p_rModel.GetAttribute(p_sKey));
  return l_pcValues != NULL ? l_pcValues->GetValue() : std::vector<double>();
}

// Entry p_nPosition of a list of names of the model, or "#<position>".
wxString NameAt(Model& p_rModel, const wxChar* p_sKey, unsigned long long p_nPosition) {
  AttributeVectorString* l_pcNames =
      dynamic_cast<AttributeVectorString*>(p_rModel.GetAttribute(p_sKey));
  if (l_pcNames != NULL && p_nPosition < l_pcNames->GetValue().size())
    return l_pcNames->GetValue()[p_nPosition];
  return wxString::Format(wxT("#%llu"), p_nPosition);
}

wxString Number(double p_dValue) { return FromStd(sim::FormatDouble(p_dValue)); }

}  // namespace

SimulationHandler::SimulationHandler() {
  GetStore().SetAvailableSimulators(SimulatorCategories());
  const sim::Net l_cProbe = sim::SirNet();
  for (const sim::SimulatorKind& l_cKind : sim::AvailableSimulators()) {
    std::unique_ptr<sim::Simulator> l_pcHolder = sim::CreateSimulator(l_cKind.name, l_cProbe);
    if (!l_pcHolder) continue;
    m_mSettingHolders[l_cKind.name] = std::move(l_pcHolder);
    PublishSettings(l_cKind.name);
  }
}

SimulationHandler::~SimulationHandler() {
  StopAllRuns();
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_mRuns.clear();
}

int SimulationHandler::AddNet(const sim::Net& p_rNet) {
  const wxString l_sName = ModelName(p_rNet, GetStore().GetModelNames());
  const int l_nModel = GetStore().AddModel(NetToModel(p_rNet, l_sName));
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    m_mNets[l_nModel] = p_rNet;
  }
  PrepareModel(l_nModel, p_rNet.places.size());
  return l_nModel;
}

void SimulationHandler::PrepareModel(int p_nModel, std::size_t p_nPlaces) {
  SteeringModelStore& l_rStore = GetStore();
  ResultMatrixInfo l_cRows(0);
  DescribePlaceRows(p_nPlaces, l_cRows);
  l_rStore.SetResultMatrixInfo(p_nModel, l_cRows);
  l_rStore.SetResultMatrix(p_nModel, SteeringMatrix());
  l_rStore.SetRateMatrix(p_nModel, SteeringMatrix());
  wxString l_sCategory, l_sSimulator;
  ResolveSimulator(FromStd(DEFAULT_SIMULATOR), l_sCategory, l_sSimulator);
  l_rStore.SetCurrentSimulatorName(p_nModel, l_sCategory, l_sSimulator);
  l_rStore.WithRuntimeState(p_nModel, [&](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(wxT("SIMULATOR_STATE"), static_cast<int>(STATE_IDLE));
    p_rState.SetAttributeValue(wxT("SIMULATOR_PROGRESS"), 0.0);
    p_rState.SetAttributeValue(wxT("SIMULATOR_RUNTIME"), 0.0);
    p_rState.SetAttributeValue(wxT("ERROR_STATE"), static_cast<int>(ERROR_NONE));
    p_rState.SetAttributeValue(wxT("SIMULATOR_CATEGORY"), l_sCategory);
    p_rState.SetAttributeValue(wxT("CURRENT_SIMULATOR_ALGORITHM"), l_sSimulator);
    p_rState.SetAttributeValue(wxT("SIMULATOR_SPEED"), 0);
  });
}

void SimulationHandler::StopAllRuns() {
  std::vector<std::shared_ptr<ModelRun> > l_apcRuns;
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    for (auto& l_rEntry : m_mRuns) l_apcRuns.push_back(l_rEntry.second);
  }
  for (const std::shared_ptr<ModelRun>& l_pcRun : l_apcRuns) l_pcRun->Stop();
  for (const std::shared_ptr<ModelRun>& l_pcRun : l_apcRuns) l_pcRun->Join();
}

std::shared_ptr<ModelRun> SimulationHandler::GetRun(int p_nModel) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  auto l_itRun = m_mRuns.find(p_nModel);
  if (l_itRun != m_mRuns.end()) return l_itRun->second;
  if (!GetStore().WithModel(p_nModel, [](Model&) {})) return nullptr;
  std::shared_ptr<ModelRun> l_pcRun = std::make_shared<ModelRun>(GetStore(), p_nModel);
  m_mRuns[p_nModel] = l_pcRun;
  return l_pcRun;
}

int SimulationHandler::ModelOf(unsigned int p_nConnection, const char* p_sRequest) {
  const int l_nModel = CurrentModel(p_nConnection);
  if (l_nModel == SteeringModelStore::NO_MODEL)
    Log(2, wxString::Format(wxT("Steering session %u: %s ignored: the connection has no model"),
                            p_nConnection, p_sRequest));
  return l_nModel;
}

void SimulationHandler::Refuse(int p_nModel, const wxString& p_sReason) {
  wxString l_sName;
  GetStore().WithModel(p_nModel, [&](Model& p_rModel) { l_sName = p_rModel.GetModelName(); });
  Log(2, l_sName.empty() ? p_sReason : wxT("model '") + l_sName + wxT("': ") + p_sReason);
  if (p_nModel == SteeringModelStore::NO_MODEL) return;
  GetStore().SetErrorMessage(p_nModel, p_sReason);
  GetStore().WithRuntimeState(p_nModel, [](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(wxT("ERROR_STATE"), static_cast<int>(ERROR_REFUSED));
  });
}

bool SimulationHandler::NetOf(int p_nModel, sim::Net& p_rNet, std::string* p_psError) {
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    auto l_itNet = m_mNets.find(p_nModel);
    if (l_itNet != m_mNets.end()) {
      p_rNet = l_itNet->second;
      return true;
    }
  }
  bool l_bOk = false;
  if (!GetStore().WithModel(p_nModel, [&](Model& p_rModel) {
        l_bOk = ModelToNet(p_rModel, p_rNet, p_psError);
      })) {
    if (p_psError != NULL) *p_psError = "the model is no longer there";
  }
  return l_bOk;
}

std::vector<std::pair<std::string, std::string> > SimulationHandler::SettingsOf(
    const std::string& p_sSimulator) {
  std::vector<std::pair<std::string, std::string> > l_aSettings;
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  auto l_itHolder = m_mSettingHolders.find(p_sSimulator);
  if (l_itHolder == m_mSettingHolders.end()) return l_aSettings;
  for (const sim::SettingInfo& l_cSetting : l_itHolder->second->Settings())
    l_aSettings.emplace_back(l_cSetting.name, l_cSetting.value);
  return l_aSettings;
}

void SimulationHandler::PublishSettings(const std::string& p_sSimulator) {
  SimulatorAttribute l_cSettings;
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    auto l_itHolder = m_mSettingHolders.find(p_sSimulator);
    if (l_itHolder == m_mSettingHolders.end()) return;
    for (const sim::SettingInfo& l_cSetting : l_itHolder->second->Settings()) {
      l_cSettings.AddAttribute(FromStd(l_cSetting.name), FromStd(l_cSetting.caption),
                               FromStd(l_cSetting.value), l_cSetting.guiType, l_cSetting.min,
                               l_cSetting.max);
      std::vector<wxString> l_asPossible;
      for (const std::string& l_sValue : l_cSetting.possibleValues)
        l_asPossible.push_back(FromStd(l_sValue));
      l_cSettings.SetPossibleValues(static_cast<unsigned int>(l_cSettings.size() - 1),
                                    l_asPossible);
    }
  }
  GetStore().SetSimulatorSettings(FromStd(p_sSimulator), l_cSettings);
}

// Registration.

void SimulationHandler::OnUploadModel(unsigned int p_nConnection, Model* p_pcModel) {
  SteeringHandler::OnUploadModel(p_nConnection, p_pcModel);
  const int l_nModel = CurrentModel(p_nConnection);
  unsigned long long l_nPlaces = 0;
  if (!GetStore().WithModel(l_nModel,
                            [&](Model& p_rModel) { l_nPlaces = p_rModel.GetPlaceCount(); }))
    return;
  PrepareModel(l_nModel, static_cast<std::size_t>(l_nPlaces));
}

// Commands.

void SimulationHandler::StartRun(unsigned int p_nConnection, const wxString& p_sName,
                                 double p_dStart, double p_dEnd, double p_dSampling,
                                 bool p_bRestart) {
  const wxString l_sCommand = p_bRestart ? wxT("restart") : wxT("start");
  const int l_nModel = ModelOf(p_nConnection, p_bRestart ? "restart" : "start");
  if (l_nModel == SteeringModelStore::NO_MODEL) return;
  SteeringModelStore& l_rStore = GetStore();

  wxString l_sCategory, l_sSimulator;
  if (!ResolveSimulator(p_sName, l_sCategory, l_sSimulator)) {
    wxString l_sFirst, l_sSecond;
    l_rStore.GetCurrentSimulatorName(l_nModel, l_sFirst, l_sSecond);
    if (!ResolveSimulator(l_sSecond, l_sCategory, l_sSimulator) &&
        !ResolveSimulator(l_sFirst, l_sCategory, l_sSimulator))
      ResolveSimulator(FromStd(DEFAULT_SIMULATOR), l_sCategory, l_sSimulator);
  }

  sim::OutputGrid l_cGrid;
  l_cGrid.start = p_dStart;
  l_cGrid.end = p_dEnd;
  l_cGrid.step = p_dSampling;
  const std::string l_sGridProblem = l_cGrid.Check();
  if (!l_sGridProblem.empty()) {
    Refuse(l_nModel, l_sCommand + wxT(" refused: ") + FromStd(l_sGridProblem));
    return;
  }

  std::string l_sError;
  sim::Net l_cNet;
  if (!NetOf(l_nModel, l_cNet, &l_sError)) {
    Refuse(l_nModel, l_sCommand + wxT(" refused: the model cannot be simulated: ") +
                         FromStd(l_sError));
    return;
  }
  sim::NetState l_cState;
  l_cState.time = p_dStart;
  wxString l_sModelName;
  l_rStore.WithModel(l_nModel, [&](Model& p_rModel) {
    l_sModelName = p_rModel.GetModelName();
    l_cState.marking = Doubles(p_rModel, wxT("INITIAL_MARKING"));
    l_cState.parameters = Doubles(p_rModel, wxT("CURRENT_PARAM_VALUES"));
  });

  const std::string l_sKind = ToStd(l_sSimulator);
  std::unique_ptr<sim::Simulator> l_pcSimulator = sim::CreateSimulator(l_sKind, l_cNet, &l_sError);
  if (!l_pcSimulator) {
    Refuse(l_nModel, l_sCommand + wxT(" refused: the ") + l_sSimulator +
                         wxT(" simulator cannot run this model: ") + FromStd(l_sError));
    return;
  }
  for (const auto& l_cSetting : SettingsOf(l_sKind)) {
    if (!l_pcSimulator->ApplySetting(l_cSetting.first, l_cSetting.second, &l_sError))
      Log(2, wxT("setting not applied: ") + FromStd(l_sError));
  }
  if (!l_pcSimulator->Reset(l_cState, &l_sError)) {
    Refuse(l_nModel, l_sCommand + wxT(" refused: ") + FromStd(l_sError));
    return;
  }

  std::shared_ptr<ModelRun> l_pcRun = GetRun(l_nModel);
  if (!l_pcRun) return;
  l_rStore.SetCurrentSimulatorName(l_nModel, l_sCategory, l_sSimulator);
  if (!l_pcRun->Start(std::move(l_pcSimulator), l_cGrid, l_sCategory, l_sSimulator, p_bRestart,
                      &l_sError)) {
    Refuse(l_nModel, l_sCommand + wxT(" refused: ") + FromStd(l_sError));
    return;
  }
  const wxString l_sText =
      wxString::Format(wxT("model '%s': run started with the %s simulator, output from %s to "
                           "%s every %s (%zu points), speed %u points/s"),
                       l_sModelName, l_sSimulator, Number(p_dStart), Number(p_dEnd),
                       Number(p_dSampling), l_cGrid.Count(), l_pcRun->GetSpeed());
  l_rStore.SetLogMessage(l_nModel, l_sText);
  Log(3, l_sText);
}

void SimulationHandler::OnStart(unsigned int p_nConnection, const wxString& p_sName,
                                double p_dStart, double p_dEnd, double p_dSampling) {
  SteeringHandler::OnStart(p_nConnection, p_sName, p_dStart, p_dEnd, p_dSampling);
  StartRun(p_nConnection, p_sName, p_dStart, p_dEnd, p_dSampling, false);
}

void SimulationHandler::OnRestart(unsigned int p_nConnection, const wxString& p_sName,
                                  double p_dStart, double p_dEnd, double p_dSampling) {
  SteeringHandler::OnRestart(p_nConnection, p_sName, p_dStart, p_dEnd, p_dSampling);
  StartRun(p_nConnection, p_sName, p_dStart, p_dEnd, p_dSampling, true);
}

void SimulationHandler::OnPause(unsigned int p_nConnection) {
  const int l_nModel = ModelOf(p_nConnection, "pause");
  std::shared_ptr<ModelRun> l_pcRun = GetRun(l_nModel);
  if (!l_pcRun) return;
  if (!l_pcRun->Pause()) Refuse(l_nModel, wxT("pause refused: no run is going on"));
}

void SimulationHandler::OnResume(unsigned int p_nConnection) {
  const int l_nModel = ModelOf(p_nConnection, "resume");
  std::shared_ptr<ModelRun> l_pcRun = GetRun(l_nModel);
  if (!l_pcRun) return;
  if (!l_pcRun->Resume()) Refuse(l_nModel, wxT("resume refused: no run is paused"));
}

void SimulationHandler::OnStop(unsigned int p_nConnection) {
  const int l_nModel = ModelOf(p_nConnection, "stop");
  std::shared_ptr<ModelRun> l_pcRun = GetRun(l_nModel);
  if (!l_pcRun) return;
  if (!l_pcRun->Stop()) Refuse(l_nModel, wxT("stop refused: no run is going on"));
}

void SimulationHandler::OnCommand(unsigned int p_nConnection, CMD_TYPE p_eCommand,
                                  double p_dValue) {
  Log(2, wxString::Format(wxT("Steering session %u: command %d (value %s) is not known; "
                              "ignored"),
                          p_nConnection, static_cast<int>(p_eCommand), Number(p_dValue)));
}

void SimulationHandler::OnChangeSimulatorSpeed(unsigned int p_nConnection, unsigned int p_nSpeed) {
  const int l_nModel = ModelOf(p_nConnection, "speed change");
  std::shared_ptr<ModelRun> l_pcRun = GetRun(l_nModel);
  if (!l_pcRun) return;
  l_pcRun->SetSpeed(p_nSpeed);
  Log(3, wxString::Format(wxT("Steering session %u: speed set to %u output points per second%s"),
                          p_nConnection, p_nSpeed, p_nSpeed == 0 ? wxT(" (unpaced)") : wxT("")));
}

// Models.

int SimulationHandler::OnRemoveModel(unsigned int p_nConnection, const wxString& p_sName) {
  int l_nModel = SteeringModelStore::NO_MODEL;
  const std::vector<wxString> l_asNames = GetStore().GetModelNames();
  for (std::size_t i = 0; i < l_asNames.size(); ++i) {
    if (l_asNames[i] == p_sName) {
      l_nModel = GetStore().GetModelId(static_cast<int>(i));
      break;
    }
  }
  const int l_nResult = SteeringHandler::OnRemoveModel(p_nConnection, p_sName);
  if (l_nResult != 1 || l_nModel == SteeringModelStore::NO_MODEL) return l_nResult;
  std::shared_ptr<ModelRun> l_pcRun;
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    auto l_itRun = m_mRuns.find(l_nModel);
    if (l_itRun != m_mRuns.end()) {
      l_pcRun = l_itRun->second;
      m_mRuns.erase(l_itRun);
    }
    m_mNets.erase(l_nModel);
  }
  if (l_pcRun) {
    l_pcRun->Stop();
    l_pcRun->Join();
  }
  Log(3, wxT("model '") + p_sName + wxT("' removed"));
  return l_nResult;
}

// Steering.

void SimulationHandler::OnChangeCurrentParameterValues(unsigned int p_nConnection,
                                                       unsigned long long p_nPosition,
                                                       double p_dValue) {
  ChangeValue(p_nConnection, p_nPosition, p_dValue, false);
}

void SimulationHandler::OnChangeCurrentPlaceValues(unsigned int p_nConnection,
                                                   unsigned long long p_nPosition,
                                                   double p_dValue) {
  ChangeValue(p_nConnection, p_nPosition, p_dValue, true);
}

void SimulationHandler::ChangeValue(unsigned int p_nConnection, unsigned long long p_nPosition,
                                    double p_dValue, bool p_bMarking) {
  const char* l_sRequest = p_bMarking ? "marking change" : "parameter change";
  const int l_nModel = ModelOf(p_nConnection, l_sRequest);
  std::shared_ptr<ModelRun> l_pcRun = GetRun(l_nModel);
  if (!l_pcRun) return;
  const std::size_t l_nCount = p_bMarking ? GetStore().GetMarking(l_nModel).size()
                                          : GetStore().GetParameterValues(l_nModel).size();
  if (p_nPosition >= l_nCount) {
    Refuse(l_nModel, wxString::Format(wxT("%s refused: position %llu is out of range (the "
                                          "model has %zu %s)"),
                                      l_sRequest, p_nPosition, l_nCount,
                                      p_bMarking ? "places" : "parameters"));
    return;
  }
  if (!std::isfinite(p_dValue) || p_dValue < 0.0) {
    Refuse(l_nModel, wxString(l_sRequest) + wxT(" refused: the value ") + Number(p_dValue) +
                         wxT(" is negative or not finite"));
    return;
  }
  const std::size_t l_nPosition = static_cast<std::size_t>(p_nPosition);
  if (p_bMarking)
    l_pcRun->ChangeMarking(l_nPosition, p_dValue);
  else
    l_pcRun->ChangeParameter(l_nPosition, p_dValue);
  wxString l_sName;
  GetStore().WithModel(l_nModel, [&](Model& p_rModel) {
    l_sName = NameAt(p_rModel, p_bMarking ? wxT("PLACE_NAMES") : wxT("PARAMETER_NAMES"),
                     p_nPosition);
  });
  Log(3, wxString::Format(p_bMarking ? wxT("Steering session %u: marking of %s set to ")
                                     : wxT("Steering session %u: parameter %s set to "),
                          p_nConnection, l_sName) +
             Number(p_dValue));
}

void SimulationHandler::OnResetParameterValues(unsigned int p_nConnection) {
  const int l_nModel = ModelOf(p_nConnection, "parameter reset");
  std::shared_ptr<ModelRun> l_pcRun = GetRun(l_nModel);
  if (!l_pcRun) return;
  std::vector<double> l_adInitial;
  GetStore().WithModel(l_nModel, [&](Model& p_rModel) {
    l_adInitial = Doubles(p_rModel, wxT("INITIAL_PARAM_VALUES"));
  });
  l_pcRun->SetParameters(l_adInitial);
  Log(3, wxString::Format(wxT("Steering session %u: parameters reset"), p_nConnection));
}

void SimulationHandler::OnResetMarkingValues(unsigned int p_nConnection) {
  const int l_nModel = ModelOf(p_nConnection, "marking reset");
  std::shared_ptr<ModelRun> l_pcRun = GetRun(l_nModel);
  if (!l_pcRun) return;
  std::vector<double> l_adInitial;
  GetStore().WithModel(l_nModel, [&](Model& p_rModel) {
    l_adInitial = Doubles(p_rModel, wxT("INITIAL_MARKING"));
  });
  l_pcRun->SetMarking(l_adInitial);
  Log(3, wxString::Format(wxT("Steering session %u: marking reset"), p_nConnection));
}

// The simulator.

void SimulationHandler::OnWriteSimulatorState(unsigned int p_nConnection, int p_nState) {
  switch (p_nState) {
    case STATE_RUNNING: OnResume(p_nConnection); return;
    case STATE_PAUSED: OnPause(p_nConnection); return;
    case STATE_STOPPED: OnStop(p_nConnection); return;
    default: break;
  }
  const int l_nModel = ModelOf(p_nConnection, "state change");
  if (l_nModel == SteeringModelStore::NO_MODEL) return;
  Refuse(l_nModel, wxString::Format(wxT("state %d cannot be written (only %d to resume, %d to "
                                        "pause and %d to stop)"),
                                    p_nState, static_cast<int>(STATE_RUNNING),
                                    static_cast<int>(STATE_PAUSED),
                                    static_cast<int>(STATE_STOPPED)));
}

void SimulationHandler::OnWriteModelStatistics(unsigned int p_nConnection,
                                               ModelRuntimeState& p_cState) {
  const int l_nSpeed = p_cState.GetAttributeValueInt(wxT("SIMULATOR_SPEED"));
  if (l_nSpeed < 0) {
    const int l_nModel = ModelOf(p_nConnection, "statistics");
    if (l_nModel != SteeringModelStore::NO_MODEL)
      Refuse(l_nModel, wxString::Format(wxT("speed %d refused: it is negative"), l_nSpeed));
    return;
  }
  OnChangeSimulatorSpeed(p_nConnection, static_cast<unsigned int>(l_nSpeed));
}

void SimulationHandler::OnWriteCurrentSimulatorName(unsigned int p_nConnection,
                                                    const wxString& p_sFirst,
                                                    const wxString& p_sSecond) {
  const int l_nModel = ModelOf(p_nConnection, "simulator choice");
  if (l_nModel == SteeringModelStore::NO_MODEL) return;
  wxString l_sCategory, l_sSimulator;
  if (!ResolveSimulator(p_sSecond, l_sCategory, l_sSimulator) &&
      !ResolveSimulator(p_sFirst, l_sCategory, l_sSimulator)) {
    Refuse(l_nModel, wxT("simulator choice refused: no simulator is called '") + p_sFirst +
                         wxT("' or '") + p_sSecond + wxT("'"));
    return;
  }
  GetStore().SetCurrentSimulatorName(l_nModel, l_sCategory, l_sSimulator);
  Log(3, wxString::Format(wxT("Steering session %u: simulator %s chosen"), p_nConnection,
                          l_sSimulator));
}

void SimulationHandler::OnWriteAvailableSimulators(unsigned int p_nConnection,
                                                   const std::vector<QU_SimulatorCategory>&) {
  const wxString l_sReason = wxT("the list of simulators is the server's own; a client's list "
                                 "is ignored");
  const int l_nModel = CurrentModel(p_nConnection);
  if (l_nModel != SteeringModelStore::NO_MODEL)
    Refuse(l_nModel, l_sReason);
  else
    Log(2, wxString::Format(wxT("Steering session %u: "), p_nConnection) + l_sReason);
}

void SimulationHandler::OnSendSimulatorSetting(unsigned int p_nConnection,
                                               const wxString& p_sSimulator,
                                               SimulatorAttribute& p_cSettings) {
  const int l_nModel = CurrentModel(p_nConnection);
  wxString l_sCategory, l_sSimulator;
  if (!ResolveSimulator(p_sSimulator, l_sCategory, l_sSimulator)) {
    Refuse(l_nModel, wxT("settings refused: there is no simulator '") + p_sSimulator + wxT("'"));
    return;
  }
  const std::string l_sKind = ToStd(l_sSimulator);
  std::vector<std::pair<std::string, std::string> > l_aAccepted;
  wxString l_sProblems;
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    auto l_itHolder = m_mSettingHolders.find(l_sKind);
    if (l_itHolder == m_mSettingHolders.end()) return;
    for (unsigned int i = 0; i < p_cSettings.size(); ++i) {
      wxString l_sName, l_sCaption, l_sValue;
      unsigned int l_nGuiType = 0;
      double l_dMin = 0.0, l_dMax = 0.0;
      if (!p_cSettings.GetAttribute(i, l_sName, l_sCaption, l_sValue, l_nGuiType, l_dMin, l_dMax))
        continue;
      std::string l_sError;
      if (l_itHolder->second->ApplySetting(ToStd(l_sName), ToStd(l_sValue), &l_sError)) {
        l_aAccepted.emplace_back(ToStd(l_sName), ToStd(l_sValue));
      } else {
        if (!l_sProblems.empty()) l_sProblems += wxT("; ");
        l_sProblems += FromStd(l_sError);
      }
    }
  }
  PublishSettings(l_sKind);

  std::vector<std::shared_ptr<ModelRun> > l_apcRuns;
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    for (auto& l_rEntry : m_mRuns) l_apcRuns.push_back(l_rEntry.second);
  }
  for (const std::shared_ptr<ModelRun>& l_pcRun : l_apcRuns)
    for (const auto& l_cSetting : l_aAccepted)
      l_pcRun->ApplySetting(l_sSimulator, l_cSetting.first, l_cSetting.second);

  for (const auto& l_cSetting : l_aAccepted)
    Log(3, wxString::Format(wxT("Steering session %u: %s setting %s = %s"), p_nConnection,
                            l_sSimulator, FromStd(l_cSetting.first), FromStd(l_cSetting.second)));
  if (!l_sProblems.empty()) Refuse(l_nModel, wxT("settings refused: ") + l_sProblems);
}

}  // namespace simd
}  // namespace quor
