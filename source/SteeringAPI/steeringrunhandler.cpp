// SPDX-License-Identifier: MIT
#include "quor/steeringrunhandler.h"

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

// One log line about a connection, its text as it stands.
void LogSession(unsigned long p_nLevel, unsigned int p_nConnection, const wxString& p_sText) {
  LogText(p_nLevel, wxString::Format(wxT("Steering session %u: "), p_nConnection) + p_sText);
}

// Entry p_nPosition of a list of names of the model, or "#<position>".
wxString NameAt(SteeringModelStore& p_rStore, int p_nModel, const wxChar* p_sKey,
                unsigned long long p_nPosition) {
  wxString l_sName = wxString::Format(wxT("#%llu"), p_nPosition);
  p_rStore.WithModel(p_nModel, [&](Model& p_rModel) {
    AttributeVectorString* l_pcNames = p_rModel.FindAttribute<AttributeVectorString>(p_sKey);
    if (l_pcNames != NULL && p_nPosition < l_pcNames->GetValue().size())
      l_sName = l_pcNames->GetValue()[static_cast<size_t>(p_nPosition)];
  });
  return l_sName;
}

}  // namespace

SteeringRunHandler::SteeringRunHandler(StepFunction p_fStep) : m_fStep(std::move(p_fStep)) {}

SteeringRunHandler::~SteeringRunHandler() { StopAllRuns(); }

void SteeringRunHandler::SetSimulatorName(const wxString& p_sCategory,
                                          const wxString& p_sAlgorithm) {
  m_sCategory = p_sCategory;
  m_sAlgorithm = p_sAlgorithm;
  if (p_sCategory.empty() || p_sAlgorithm.empty()) return;
  QU_SimulatorCategory l_cCategory;
  l_cCategory.m_sCategoryName = p_sCategory;
  l_cCategory.m_nCategoryId = 0;
  l_cCategory.m_asSimulatorNames.push_back(p_sAlgorithm);
  GetStore().SetAvailableSimulators({l_cCategory});
}

int SteeringRunHandler::AddModel(Model* p_pcModel) {
  const int l_nModel = GetStore().AddModel(p_pcModel);
  if (l_nModel != SteeringModelStore::NO_MODEL) PrepareModel(l_nModel);
  return l_nModel;
}

void SteeringRunHandler::PrepareModel(int p_nModel) {
  SteeringModelStore& l_rStore = GetStore();
  size_t l_nRows = 0;
  if (!l_rStore.WithModel(p_nModel, [&](Model& p_rModel) {
        l_nRows =
            p_rModel.FindValue<AttributeVectorDouble>(keys::INITIAL_MARKING, std::vector<double>())
                .size();
      }))
    return;
  ResultMatrixInfo l_cRows(static_cast<unsigned int>(l_nRows));
  for (unsigned int l_nRow = 0; l_nRow < l_nRows; ++l_nRow)
    l_cRows.SetRowInfo(l_nRow, l_nRow, RM_ROW_TYPE_PLACE);
  l_rStore.SetResultMatrixInfo(p_nModel, l_cRows);
  l_rStore.SetResultMatrix(p_nModel, SteeringMatrix());
  l_rStore.SetRateMatrix(p_nModel, SteeringMatrix());
  l_rStore.SetCurrentSimulatorName(p_nModel, m_sCategory, m_sAlgorithm);
  l_rStore.WithRuntimeState(p_nModel, [&](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(keys::SIMULATOR_STATE, static_cast<int>(SIMULATOR_IDLE));
    p_rState.SetAttributeValue(keys::SIMULATOR_PROGRESS, 0.0);
    p_rState.SetAttributeValue(keys::SIMULATOR_RUNTIME, 0.0);
    p_rState.SetAttributeValue(keys::ERROR_STATE, static_cast<int>(SIMULATOR_ERROR_NONE));
    p_rState.SetAttributeValue(keys::SIMULATOR_CATEGORY, m_sCategory);
    p_rState.SetAttributeValue(keys::CURRENT_SIMULATOR_ALGORITHM, m_sAlgorithm);
    p_rState.SetAttributeValue(keys::SIMULATOR_SPEED, 0);
  });
}

std::shared_ptr<SteeringRunner> SteeringRunHandler::GetRunner(int p_nModel) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  auto l_it = m_mRunners.find(p_nModel);
  if (l_it != m_mRunners.end()) return l_it->second;
  if (!GetStore().WithModel(p_nModel, [](Model&) {})) return nullptr;
  std::shared_ptr<SteeringRunner> l_pcRunner =
      std::make_shared<SteeringRunner>(GetStore(), p_nModel);
  m_mRunners[p_nModel] = l_pcRunner;
  return l_pcRunner;
}

void SteeringRunHandler::StopAllRuns() {
  std::vector<std::shared_ptr<SteeringRunner> > l_apcRunners;
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    for (auto& l_rEntry : m_mRunners) l_apcRunners.push_back(l_rEntry.second);
  }
  for (const std::shared_ptr<SteeringRunner>& l_pcRunner : l_apcRunners) l_pcRunner->Stop(NULL);
  for (const std::shared_ptr<SteeringRunner>& l_pcRunner : l_apcRunners) l_pcRunner->Join();
}

void SteeringRunHandler::RefuseRequest(unsigned int p_nConnection, const wxString& p_sReason) {
  Refuse(p_nConnection, p_sReason);
  LogSession(2, p_nConnection, p_sReason);
}

std::shared_ptr<SteeringRunner> SteeringRunHandler::RunnerOf(unsigned int p_nConnection,
                                                             const wxChar* p_sRequest,
                                                             int* p_pnModel) {
  const int l_nModel = CurrentModel(p_nConnection);
  if (p_pnModel != NULL) *p_pnModel = l_nModel;
  std::shared_ptr<SteeringRunner> l_pcRunner;
  if (l_nModel != SteeringModelStore::NO_MODEL) l_pcRunner = GetRunner(l_nModel);
  if (!l_pcRunner)
    RefuseRequest(p_nConnection, wxString(p_sRequest) + wxT(" refused: the connection has no model"));
  return l_pcRunner;
}

// Models.

void SteeringRunHandler::OnUploadModel(unsigned int p_nConnection, Model* p_pcModel) {
  SteeringHandler::OnUploadModel(p_nConnection, p_pcModel);
  PrepareModel(CurrentModel(p_nConnection));
}

int SteeringRunHandler::OnRemoveModel(unsigned int p_nConnection, const wxString& p_sName) {
  int l_nModel = SteeringModelStore::NO_MODEL;
  const std::vector<wxString> l_asNames = GetStore().GetModelNames();
  for (size_t l_nIndex = 0; l_nIndex < l_asNames.size(); ++l_nIndex) {
    if (l_asNames[l_nIndex] == p_sName) {
      l_nModel = GetStore().GetModelId(static_cast<int>(l_nIndex));
      break;
    }
  }
  const int l_nResult = SteeringHandler::OnRemoveModel(p_nConnection, p_sName);
  if (l_nResult != 1) return l_nResult;
  std::shared_ptr<SteeringRunner> l_pcRunner;
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    auto l_it = m_mRunners.find(l_nModel);
    if (l_it != m_mRunners.end()) {
      l_pcRunner = l_it->second;
      m_mRunners.erase(l_it);
    }
  }
  if (l_pcRunner) {
    l_pcRunner->Stop(NULL);
    l_pcRunner->Join();
  }
  LogSession(3, p_nConnection, wxT("model '") + p_sName + wxT("' removed"));
  return l_nResult;
}

// Commands.

bool SteeringRunHandler::PrepareRun(unsigned int, int, const wxString&, SteeringRunPlan& p_rPlan,
                                    wxString& p_rsRefusal) {
  if (p_rPlan.m_fStep) return true;
  p_rsRefusal = wxT("the model has no step function");
  return false;
}

void SteeringRunHandler::StartRun(unsigned int p_nConnection, const wxString& p_sName,
                                  double p_dStart, double p_dEnd, double p_dSampling,
                                  bool p_bRestart) {
  const wxString l_sRefused = p_bRestart ? wxT("restart refused: ") : wxT("start refused: ");
  int l_nModel = SteeringModelStore::NO_MODEL;
  std::shared_ptr<SteeringRunner> l_pcRunner =
      RunnerOf(p_nConnection, p_bRestart ? wxT("restart") : wxT("start"), &l_nModel);
  if (!l_pcRunner) return;
  // Checked before PrepareRun, which may cost the application something.
  wxString l_sReason = SteeringRunner::CheckInterval(p_dStart, p_dEnd, p_dSampling);
  if (!l_sReason.empty() || !l_pcRunner->CanStart(p_bRestart, &l_sReason)) {
    RefuseRequest(p_nConnection, l_sRefused + l_sReason);
    return;
  }
  SteeringRunPlan l_cPlan;
  l_cPlan.m_fStep = m_fStep;
  l_cPlan.m_dStart = p_dStart;
  l_cPlan.m_dEnd = p_dEnd;
  l_cPlan.m_dSampling = p_dSampling;
  GetStore().GetCurrentSimulatorName(l_nModel, l_cPlan.m_sCategory, l_cPlan.m_sAlgorithm);
  if (!PrepareRun(p_nConnection, l_nModel, p_sName, l_cPlan, l_sReason) ||
      !l_pcRunner->Start(l_cPlan, p_bRestart, &l_sReason)) {
    RefuseRequest(p_nConnection, l_sRefused + l_sReason);
    return;
  }
  GetStore().SetSimulationInterval(l_nModel, p_dStart, p_dEnd, p_dSampling);
}

void SteeringRunHandler::OnStart(unsigned int p_nConnection, const wxString& p_sName,
                                 double p_dStart, double p_dEnd, double p_dSampling) {
  StartRun(p_nConnection, p_sName, p_dStart, p_dEnd, p_dSampling, false);
}

void SteeringRunHandler::OnRestart(unsigned int p_nConnection, const wxString& p_sName,
                                   double p_dStart, double p_dEnd, double p_dSampling) {
  StartRun(p_nConnection, p_sName, p_dStart, p_dEnd, p_dSampling, true);
}

void SteeringRunHandler::OnPause(unsigned int p_nConnection) {
  std::shared_ptr<SteeringRunner> l_pcRunner = RunnerOf(p_nConnection, wxT("pause"));
  wxString l_sReason;
  if (l_pcRunner && !l_pcRunner->Pause(&l_sReason))
    RefuseRequest(p_nConnection, wxT("pause refused: ") + l_sReason);
}

void SteeringRunHandler::OnResume(unsigned int p_nConnection) {
  std::shared_ptr<SteeringRunner> l_pcRunner = RunnerOf(p_nConnection, wxT("resume"));
  wxString l_sReason;
  if (l_pcRunner && !l_pcRunner->Resume(&l_sReason))
    RefuseRequest(p_nConnection, wxT("resume refused: ") + l_sReason);
}

void SteeringRunHandler::OnStop(unsigned int p_nConnection) {
  std::shared_ptr<SteeringRunner> l_pcRunner = RunnerOf(p_nConnection, wxT("stop"));
  wxString l_sReason;
  if (l_pcRunner && !l_pcRunner->Stop(&l_sReason))
    RefuseRequest(p_nConnection, wxT("stop refused: ") + l_sReason);
}

void SteeringRunHandler::OnChangeSimulatorSpeed(unsigned int p_nConnection,
                                                unsigned int p_nSpeed) {
  std::shared_ptr<SteeringRunner> l_pcRunner = RunnerOf(p_nConnection, wxT("speed change"));
  if (!l_pcRunner) return;
  l_pcRunner->SetSpeed(p_nSpeed);
  LogSession(3, p_nConnection,
             wxString::Format(wxT("speed set to %u output points per second%s"), p_nSpeed,
                              p_nSpeed == 0 ? wxT(" (unpaced)") : wxT("")));
}

// Steering.

void SteeringRunHandler::ChangeValue(unsigned int p_nConnection, unsigned long long p_nPosition,
                                     double p_dValue, bool p_bPlace) {
  const wxChar* l_sRequest = p_bPlace ? wxT("marking change") : wxT("parameter change");
  int l_nModel = SteeringModelStore::NO_MODEL;
  std::shared_ptr<SteeringRunner> l_pcRunner = RunnerOf(p_nConnection, l_sRequest, &l_nModel);
  if (!l_pcRunner) return;
  wxString l_sReason;
  const bool l_bChanged = p_bPlace ? l_pcRunner->ChangeMarking(p_nPosition, p_dValue, &l_sReason)
                                   : l_pcRunner->ChangeParameter(p_nPosition, p_dValue, &l_sReason);
  if (!l_bChanged) {
    RefuseRequest(p_nConnection, wxString(l_sRequest) + wxT(" refused: ") + l_sReason);
    return;
  }
  const wxString l_sName = NameAt(GetStore(), l_nModel,
                                  p_bPlace ? keys::PLACE_NAMES : keys::PARAMETER_NAMES, p_nPosition);
  LogSession(3, p_nConnection,
             (p_bPlace ? wxT("marking of ") : wxT("parameter ")) + l_sName + wxT(" set to ") +
                 wxString::Format(wxT("%g"), p_dValue));
}

void SteeringRunHandler::OnChangeCurrentParameterValues(unsigned int p_nConnection,
                                                        unsigned long long p_nPosition,
                                                        double p_dValue) {
  ChangeValue(p_nConnection, p_nPosition, p_dValue, false);
}

void SteeringRunHandler::OnChangeCurrentPlaceValues(unsigned int p_nConnection,
                                                    unsigned long long p_nPosition,
                                                    double p_dValue) {
  ChangeValue(p_nConnection, p_nPosition, p_dValue, true);
}

void SteeringRunHandler::OnResetParameterValues(unsigned int p_nConnection) {
  std::shared_ptr<SteeringRunner> l_pcRunner = RunnerOf(p_nConnection, wxT("parameter reset"));
  if (!l_pcRunner) return;
  l_pcRunner->ResetParameters();
  LogSession(3, p_nConnection, wxT("parameters reset"));
}

void SteeringRunHandler::OnResetMarkingValues(unsigned int p_nConnection) {
  std::shared_ptr<SteeringRunner> l_pcRunner = RunnerOf(p_nConnection, wxT("marking reset"));
  if (!l_pcRunner) return;
  l_pcRunner->ResetMarking();
  LogSession(3, p_nConnection, wxT("marking reset"));
}

// The simulator.

void SteeringRunHandler::OnWriteSimulatorState(unsigned int p_nConnection, int p_nState) {
  switch (p_nState) {
    case SIMULATOR_RUNNING: OnResume(p_nConnection); return;
    case SIMULATOR_PAUSED: OnPause(p_nConnection); return;
    case SIMULATOR_STOPPED: OnStop(p_nConnection); return;
    default: break;
  }
  RefuseRequest(p_nConnection,
                wxString::Format(wxT("state %d cannot be written (only %d to resume, %d to pause "
                                     "and %d to stop)"),
                                 p_nState, static_cast<int>(SIMULATOR_RUNNING),
                                 static_cast<int>(SIMULATOR_PAUSED),
                                 static_cast<int>(SIMULATOR_STOPPED)));
}

void SteeringRunHandler::OnWriteModelStatistics(unsigned int p_nConnection,
                                                ModelRuntimeState& p_cState) {
  const int l_nSpeed = p_cState.FindValue<AttributeInt>(keys::SIMULATOR_SPEED, 0);
  if (l_nSpeed < 0) {
    RefuseRequest(p_nConnection, wxString::Format(wxT("speed %d refused: it is negative"), l_nSpeed));
    return;
  }
  OnChangeSimulatorSpeed(p_nConnection, static_cast<unsigned int>(l_nSpeed));
}

}  // namespace quor
