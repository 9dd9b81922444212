// SPDX-License-Identifier: MIT
#include "simd/simulationHandler.h"

#include "quor/attributeVector.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/simulatorattribute.h"
#include "simcore/builtinModels.h"
#include "simd/netModel.h"
#include "simd/simdCommon.h"

namespace quor {
namespace simd {

namespace {

// A run of the engine: one simulator, used by the runner's thread only.
class EngineRun {
 public:
  EngineRun(SimulationHandler& p_rHandler, std::unique_ptr<sim::Simulator> p_pcSimulator)
      : m_rHandler(p_rHandler),
        m_pcSimulator(std::move(p_pcSimulator)),
        m_nSettingsVersion(p_rHandler.GetSettingsVersion()) {}

  // The start: the simulator starts over from the run's state.
  bool Begin(SteeringStep& p_rStep) {
    sim::NetState l_cState;
    l_cState.time = p_rStep.GetTo();
    l_cState.marking = p_rStep.Marking();
    l_cState.parameters = p_rStep.Parameters();
    std::string l_sError;
    if (!m_pcSimulator->Reset(l_cState, &l_sError)) return p_rStep.Fail(FromStd(l_sError));
    m_pcSimulator->SetAbortFlag(p_rStep.GetStopFlag());
    return true;
  }

  // What the simulator did beyond the points (an ensemble's runs).
  wxString Summary() const { return FromStd(m_pcSimulator->Summary()); }

  // One step: settings written since the last one, steered values, then
  // the simulation up to the next output point.
  bool Step(SteeringStep& p_rStep) {
    sim::Simulator& l_rSimulator = *m_pcSimulator;
    std::string l_sError;
    const unsigned int l_nVersion = m_rHandler.GetSettingsVersion();
    if (l_nVersion != m_nSettingsVersion) {
      m_nSettingsVersion = l_nVersion;
      for (const auto& l_cSetting : m_rHandler.SettingsOf(l_rSimulator.Kind()))
        if (!l_rSimulator.ApplySetting(l_cSetting.first, l_cSetting.second, &l_sError))
          Log(2, wxT("setting not applied: ") + FromStd(l_sError));
    }
    const std::vector<double>& l_adParameters = p_rStep.Parameters();
    for (size_t i = 0; i < l_adParameters.size() && i < l_rSimulator.ParameterValues().size(); ++i)
      if (l_adParameters[i] != l_rSimulator.ParameterValues()[i] &&
          !l_rSimulator.SetParameter(i, l_adParameters[i], &l_sError))
        return p_rStep.Fail(FromStd(l_sError));
    std::vector<double>& l_adMarking = p_rStep.Marking();
    for (size_t i = 0; i < l_adMarking.size() && i < l_rSimulator.Marking().size(); ++i)
      if (l_adMarking[i] != l_rSimulator.Marking()[i] &&
          !l_rSimulator.SetMarking(i, l_adMarking[i], &l_sError))
        return p_rStep.Fail(FromStd(l_sError));
    switch (l_rSimulator.AdvanceTo(p_rStep.GetTo())) {
      case sim::AdvanceStatus::Reached: break;
      case sim::AdvanceStatus::Aborted: return false;  // asked to give up
      case sim::AdvanceStatus::Failed: return p_rStep.Fail(FromStd(l_rSimulator.LastError()));
    }
    l_adMarking = l_rSimulator.Marking();
    p_rStep.Rates() = l_rSimulator.Rates();
    return true;
  }

 private:
  SimulationHandler& m_rHandler;
  std::unique_ptr<sim::Simulator> m_pcSimulator;
  unsigned int m_nSettingsVersion;
};

}  // namespace

SimulationHandler::SimulationHandler() : m_nSettingsVersion(0) {
  wxString l_sCategory, l_sSimulator;
  ResolveSimulator(FromStd(DEFAULT_SIMULATOR), l_sCategory, l_sSimulator);
  SetSimulatorName(l_sCategory, l_sSimulator);
  GetStore().SetAvailableSimulators(SimulatorCategories());
  const sim::Net l_cProbe = sim::SirNet();
  for (const sim::SimulatorKind& l_cKind : sim::AvailableSimulators()) {
    std::unique_ptr<sim::Simulator> l_pcHolder = sim::CreateSimulator(l_cKind.name, l_cProbe);
    if (!l_pcHolder) continue;
    m_mSettingHolders[l_cKind.name] = std::move(l_pcHolder);
    PublishSettings(l_cKind.name);
  }
}

SimulationHandler::~SimulationHandler() { StopAllRuns(); }

int SimulationHandler::AddNet(const sim::Net& p_rNet) {
  const wxString l_sName = ModelName(p_rNet, GetStore().GetModelNames());
  const int l_nModel = AddModel(NetToModel(p_rNet, l_sName));
  std::lock_guard<std::mutex> l_cLock(m_cNetsMutex);
  m_mNets[l_nModel] = p_rNet;
  return l_nModel;
}

bool SimulationHandler::NetOf(int p_nModel, sim::Net& p_rNet, std::string* p_psError) {
  {
    std::lock_guard<std::mutex> l_cLock(m_cNetsMutex);
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
  std::lock_guard<std::mutex> l_cLock(m_cNetsMutex);
  auto l_itHolder = m_mSettingHolders.find(p_sSimulator);
  if (l_itHolder == m_mSettingHolders.end()) return l_aSettings;
  for (const sim::SettingInfo& l_cSetting : l_itHolder->second->Settings())
    l_aSettings.emplace_back(l_cSetting.name, l_cSetting.value);
  return l_aSettings;
}

void SimulationHandler::PublishSettings(const std::string& p_sSimulator) {
  SimulatorAttribute l_cSettings;
  {
    std::lock_guard<std::mutex> l_cLock(m_cNetsMutex);
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

// Runs.

bool SimulationHandler::PrepareRun(unsigned int, int p_nModel, const wxString& p_sName,
                                   SteeringRunPlan& p_rPlan, wxString& p_rsRefusal) {
  // The plan comes with the model's current simulator.
  wxString l_sCategory, l_sSimulator;
  if (!ResolveSimulator(p_sName, l_sCategory, l_sSimulator) &&
      !ResolveSimulator(p_rPlan.m_sAlgorithm, l_sCategory, l_sSimulator) &&
      !ResolveSimulator(p_rPlan.m_sCategory, l_sCategory, l_sSimulator))
    ResolveSimulator(FromStd(DEFAULT_SIMULATOR), l_sCategory, l_sSimulator);

  std::string l_sError;
  sim::Net l_cNet;
  if (!NetOf(p_nModel, l_cNet, &l_sError)) {
    p_rsRefusal = wxT("the model cannot be simulated: ") + FromStd(l_sError);
    return false;
  }
  const std::string l_sKind = ToStd(l_sSimulator);
  std::unique_ptr<sim::Simulator> l_pcSimulator = sim::CreateSimulator(l_sKind, l_cNet, &l_sError);
  if (!l_pcSimulator) {
    p_rsRefusal = wxT("the ") + l_sSimulator + wxT(" simulator cannot run this model: ") +
                  FromStd(l_sError);
    return false;
  }
  for (const auto& l_cSetting : SettingsOf(l_sKind))
    if (!l_pcSimulator->ApplySetting(l_cSetting.first, l_cSetting.second, &l_sError))
      Log(2, wxT("setting not applied: ") + FromStd(l_sError));
  // The state the run will start from, checked now so that the start is
  // refused rather than the run failed.
  sim::NetState l_cState;
  l_cState.time = p_rPlan.m_dStart;
  GetStore().WithModel(p_nModel, [&](Model& p_rModel) {
    l_cState.marking =
        p_rModel.FindValue<AttributeVectorDouble>(keys::INITIAL_MARKING, std::vector<double>());
    l_cState.parameters =
        p_rModel.FindValue<AttributeVectorDouble>(keys::CURRENT_PARAM_VALUES, std::vector<double>());
  });
  if (!l_pcSimulator->Reset(l_cState, &l_sError)) {
    p_rsRefusal = FromStd(l_sError);
    return false;
  }

  std::shared_ptr<EngineRun> l_pcRun = std::make_shared<EngineRun>(*this, std::move(l_pcSimulator));
  p_rPlan.m_fBegin = [l_pcRun](SteeringStep& p_rStep) { return l_pcRun->Begin(p_rStep); };
  p_rPlan.m_fStep = [l_pcRun](SteeringStep& p_rStep) { return l_pcRun->Step(p_rStep); };
  p_rPlan.m_fSummary = [l_pcRun] { return l_pcRun->Summary(); };
  p_rPlan.m_sCategory = l_sCategory;
  p_rPlan.m_sAlgorithm = l_sSimulator;
  GetStore().SetCurrentSimulatorName(p_nModel, l_sCategory, l_sSimulator);
  return !m_fRunHook || m_fRunHook(p_nModel, p_rPlan, p_rsRefusal);
}

void SimulationHandler::OnCommand(unsigned int p_nConnection, CMD_TYPE p_eCommand,
                                  double p_dValue) {
  Log(2, wxString::Format(wxT("Steering session %u: command %d (value %g) is not known; "
                              "ignored"),
                          p_nConnection, static_cast<int>(p_eCommand), p_dValue));
}

// Models.

int SimulationHandler::OnRemoveModel(unsigned int p_nConnection, const wxString& p_sName) {
  const std::vector<wxString> l_asNames = GetStore().GetModelNames();
  int l_nModel = SteeringModelStore::NO_MODEL;
  for (size_t i = 0; i < l_asNames.size() && l_nModel == SteeringModelStore::NO_MODEL; ++i)
    if (l_asNames[i] == p_sName) l_nModel = GetStore().GetModelId(static_cast<int>(i));
  const int l_nResult = SteeringRunHandler::OnRemoveModel(p_nConnection, p_sName);
  if (l_nResult == 1) {
    std::lock_guard<std::mutex> l_cLock(m_cNetsMutex);
    m_mNets.erase(l_nModel);
  }
  return l_nResult;
}

// Simulators.

void SimulationHandler::OnWriteCurrentSimulatorName(unsigned int p_nConnection,
                                                    const wxString& p_sFirst,
                                                    const wxString& p_sSecond) {
  const int l_nModel = CurrentModel(p_nConnection);
  wxString l_sCategory, l_sSimulator;
  if (!ResolveSimulator(p_sSecond, l_sCategory, l_sSimulator) &&
      !ResolveSimulator(p_sFirst, l_sCategory, l_sSimulator)) {
    RefuseRequest(p_nConnection, wxT("simulator choice refused: no simulator is called '") +
                                     p_sFirst + wxT("' or '") + p_sSecond + wxT("'"));
    return;
  }
  GetStore().SetCurrentSimulatorName(l_nModel, l_sCategory, l_sSimulator);
  Log(3, wxString::Format(wxT("Steering session %u: simulator %s chosen"), p_nConnection,
                          l_sSimulator));
}

void SimulationHandler::OnWriteAvailableSimulators(unsigned int p_nConnection,
                                                   const std::vector<QU_SimulatorCategory>&) {
  RefuseRequest(p_nConnection, wxT("the list of simulators is the server's own; a client's list "
                                   "is ignored"));
}

void SimulationHandler::OnSendSimulatorSetting(unsigned int p_nConnection,
                                               const wxString& p_sSimulator,
                                               SimulatorAttribute& p_cSettings) {
  wxString l_sCategory, l_sSimulator;
  if (!ResolveSimulator(p_sSimulator, l_sCategory, l_sSimulator)) {
    RefuseRequest(p_nConnection,
                  wxT("settings refused: there is no simulator '") + p_sSimulator + wxT("'"));
    return;
  }
  const std::string l_sKind = ToStd(l_sSimulator);
  std::vector<std::pair<std::string, std::string> > l_aAccepted;
  wxString l_sProblems;
  {
    std::lock_guard<std::mutex> l_cLock(m_cNetsMutex);
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
  // Runs take them at their next step.
  if (!l_aAccepted.empty()) ++m_nSettingsVersion;

  for (const auto& l_cSetting : l_aAccepted)
    Log(3, wxString::Format(wxT("Steering session %u: %s setting %s = %s"), p_nConnection,
                            l_sSimulator, FromStd(l_cSetting.first), FromStd(l_cSetting.second)));
  if (!l_sProblems.empty()) RefuseRequest(p_nConnection, wxT("settings refused: ") + l_sProblems);
}

}  // namespace simd
}  // namespace quor
