// SPDX-License-Identifier: MIT
#include "quor/steeringhandler.h"

#include "quor/attributeVector.h"
#include "quor/keys.h"
#include "quor/simulatorState.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/simulatorattribute.h"

namespace quor {

namespace {

// The steered positions of a model ("STEERED_PARAM", "STEERED_PLACES").
AttributeVectorULong* Steered(Model& p_cModel, const wxChar* p_sKey) {
  return p_cModel.FindAttribute<AttributeVectorULong>(p_sKey);
}

std::vector<unsigned long long> SteeredPositions(SteeringModelStore& p_cStore, int p_nId,
                                                 const wxChar* p_sKey) {
  std::vector<unsigned long long> l_anPositions;
  p_cStore.ReadModel(p_nId, [&](Model& p_rModel) {
    if (AttributeVectorULong* l_pcList = Steered(p_rModel, p_sKey))
      l_anPositions = l_pcList->GetValue();
  });
  return l_anPositions;
}

void SetSteeredPositions(SteeringModelStore& p_cStore, int p_nId, const wxChar* p_sKey,
                         const std::vector<unsigned long long>& p_anPositions) {
  p_cStore.WithModel(p_nId, [&](Model& p_rModel) {
    if (AttributeVectorULong* l_pcList = Steered(p_rModel, p_sKey))
      l_pcList->SetValue(p_anPositions);
  });
}

}  // namespace

SteeringHandler::SteeringHandler() {}

SteeringHandler::~SteeringHandler() {}

int SteeringHandler::CurrentModel(unsigned int p_nConnection) {
  return m_cStore.GetCurrentModel(p_nConnection);
}

void SteeringHandler::Refuse(unsigned int p_nConnection, const wxString& p_sReason) {
  m_cStore.AddRefusal(p_nConnection, p_sReason);
  m_cStore.WithRuntimeState(CurrentModel(p_nConnection), [](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(keys::ERROR_STATE, static_cast<int>(SIMULATOR_ERROR_REFUSED));
  });
}

void SteeringHandler::WithCurrentModel(unsigned int p_nConnection,
                                       const std::function<void(Model&)>& p_fAction) {
  m_cStore.WithModel(CurrentModel(p_nConnection), p_fAction);
}

// The connection's life and registration.

void SteeringHandler::OnConnect(unsigned int) {}

void SteeringHandler::OnDisconnect(unsigned int p_nConnection) {
  m_cStore.ForgetConnection(p_nConnection);
}

unsigned int SteeringHandler::OnInitialize(unsigned int) { return 1; }

void SteeringHandler::OnUploadModel(unsigned int p_nConnection, Model* p_pcModel) {
  wxString l_sRefusal;
  const int l_nId = m_cStore.AddUploadedModel(p_pcModel, &l_sRefusal);
  m_cStore.SetCurrentModel(p_nConnection, l_nId);
  if (l_nId == SteeringModelStore::NO_MODEL) Refuse(p_nConnection, l_sRefusal);
}

ModelSnapshot SteeringHandler::OnAttachModel(unsigned int p_nConnection, int p_nIndex) {
  const int l_nId = m_cStore.GetModelId(p_nIndex);
  ModelSnapshot l_pcModel = m_cStore.ShareModel(l_nId);
  if (l_pcModel) m_cStore.SetCurrentModel(p_nConnection, l_nId);
  return l_pcModel;
}

// Commands.

void SteeringHandler::OnStart(unsigned int p_nConnection, const wxString&, double p_dStart,
                              double p_dEnd, double p_dSampling) {
  m_cStore.SetSimulationInterval(CurrentModel(p_nConnection), p_dStart, p_dEnd, p_dSampling);
}

void SteeringHandler::OnRestart(unsigned int p_nConnection, const wxString& p_sName,
                                double p_dStart, double p_dEnd, double p_dSampling) {
  SteeringHandler::OnStart(p_nConnection, p_sName, p_dStart, p_dEnd, p_dSampling);
}

void SteeringHandler::OnPause(unsigned int) {}

void SteeringHandler::OnResume(unsigned int) {}

void SteeringHandler::OnStop(unsigned int) {}

void SteeringHandler::OnCommand(unsigned int, CMD_TYPE, double) {}

void SteeringHandler::OnChangeSimulatorSpeed(unsigned int p_nConnection, unsigned int p_nSpeed) {
  m_cStore.WithRuntimeState(CurrentModel(p_nConnection), [&](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(wxT("SIMULATOR_SPEED"), static_cast<int>(p_nSpeed));
  });
}

// Models and results.

std::vector<wxString> SteeringHandler::OnGetRunningModelNames(unsigned int) {
  return m_cStore.GetModelNames();
}

int SteeringHandler::OnRemoveModel(unsigned int, const wxString& p_sName) {
  return m_cStore.RemoveModel(p_sName) ? 1 : 0;
}

SteeringMatrixSnapshot SteeringHandler::OnReadResultMatrix(unsigned int p_nConnection) {
  return m_cStore.ShareResultMatrix(CurrentModel(p_nConnection));
}

SteeringMatrixSnapshot SteeringHandler::OnReadRateMatrix(unsigned int p_nConnection) {
  return m_cStore.ShareRateMatrix(CurrentModel(p_nConnection));
}

void SteeringHandler::OnWriteResultMatrix(unsigned int p_nConnection,
                                          const SteeringMatrix& p_aadMatrix) {
  m_cStore.SetResultMatrix(CurrentModel(p_nConnection), p_aadMatrix);
}

void SteeringHandler::OnUpdateResultMatrixInfo(unsigned int p_nConnection,
                                               ResultMatrixInfo& p_cInfo) {
  m_cStore.SetResultMatrixInfo(CurrentModel(p_nConnection), p_cInfo);
}

// The current model's values.

void SteeringHandler::OnReadSimulationInterval(unsigned int p_nConnection, double& p_dStart,
                                               double& p_dEnd, double& p_dSampling) {
  m_cStore.GetSimulationInterval(CurrentModel(p_nConnection), p_dStart, p_dEnd, p_dSampling);
}

void SteeringHandler::OnReadModelViews(unsigned int p_nConnection, Model& p_cViews) {
  m_cStore.CopyViews(CurrentModel(p_nConnection), p_cViews);
}

void SteeringHandler::OnWriteModelViews(unsigned int p_nConnection, Model& p_cViews) {
  m_cStore.SetViews(CurrentModel(p_nConnection), p_cViews);
}

void SteeringHandler::OnChangeCurrentParameterValues(unsigned int p_nConnection,
                                                     unsigned long long p_nPosition,
                                                     double p_dValue) {
  WithCurrentModel(p_nConnection,
                   [&](Model& p_rModel) { p_rModel.SetParameterValue(p_nPosition, p_dValue); });
}

void SteeringHandler::OnChangeCurrentPlaceValues(unsigned int p_nConnection,
                                                 unsigned long long p_nPosition, double p_dValue) {
  WithCurrentModel(p_nConnection,
                   [&](Model& p_rModel) { p_rModel.SetMarkingValue(p_nPosition, p_dValue); });
}

std::vector<double> SteeringHandler::OnReadCurrentParameterValues(unsigned int p_nConnection) {
  return m_cStore.GetParameterValues(CurrentModel(p_nConnection));
}

std::vector<double> SteeringHandler::OnReadCurrentPlaceValues(unsigned int p_nConnection) {
  return m_cStore.GetMarking(CurrentModel(p_nConnection));
}

void SteeringHandler::OnResetParameterValues(unsigned int p_nConnection) {
  WithCurrentModel(p_nConnection, [](Model& p_rModel) { p_rModel.ResetParameterValues(); });
}

void SteeringHandler::OnResetMarkingValues(unsigned int p_nConnection) {
  WithCurrentModel(p_nConnection, [](Model& p_rModel) { p_rModel.ResetCurrentMarking(); });
}

void SteeringHandler::OnSendSteeredParamPositions(
    unsigned int p_nConnection, const std::vector<unsigned long long>& p_anPositions) {
  SetSteeredPositions(m_cStore, CurrentModel(p_nConnection), wxT("STEERED_PARAM"), p_anPositions);
}

void SteeringHandler::OnSendSteeredPlacePositions(
    unsigned int p_nConnection, const std::vector<unsigned long long>& p_anPositions) {
  SetSteeredPositions(m_cStore, CurrentModel(p_nConnection), wxT("STEERED_PLACES"), p_anPositions);
}

std::vector<unsigned long long> SteeringHandler::OnReceiveSteeredParamPositions(
    unsigned int p_nConnection) {
  return SteeredPositions(m_cStore, CurrentModel(p_nConnection), wxT("STEERED_PARAM"));
}

std::vector<unsigned long long> SteeringHandler::OnReceiveSteeredPlacePositions(
    unsigned int p_nConnection) {
  return SteeredPositions(m_cStore, CurrentModel(p_nConnection), wxT("STEERED_PLACES"));
}

// The simulator.

int SteeringHandler::OnReadSimulatorState(unsigned int p_nConnection) {
  return m_cStore.GetSimulatorState(CurrentModel(p_nConnection));
}

void SteeringHandler::OnWriteSimulatorState(unsigned int p_nConnection, int p_nState) {
  m_cStore.SetSimulatorState(CurrentModel(p_nConnection), p_nState);
}

void SteeringHandler::OnReadModelStatistics(unsigned int p_nConnection,
                                            ModelRuntimeState& p_cState) {
  m_cStore.GetRuntimeState(CurrentModel(p_nConnection), p_cState);
}

void SteeringHandler::OnWriteModelStatistics(unsigned int p_nConnection,
                                             ModelRuntimeState& p_cState) {
  m_cStore.SetRuntimeState(CurrentModel(p_nConnection), p_cState);
}

void SteeringHandler::OnReadCurrentSimulatorName(unsigned int p_nConnection, wxString& p_sFirst,
                                                 wxString& p_sSecond) {
  m_cStore.GetCurrentSimulatorName(CurrentModel(p_nConnection), p_sFirst, p_sSecond);
}

void SteeringHandler::OnWriteCurrentSimulatorName(unsigned int p_nConnection,
                                                  const wxString& p_sFirst,
                                                  const wxString& p_sSecond) {
  m_cStore.SetCurrentSimulatorName(CurrentModel(p_nConnection), p_sFirst, p_sSecond);
}

wxString SteeringHandler::OnReceiveErrorMessage(unsigned int p_nConnection) {
  const std::vector<wxString> l_asRefusals = m_cStore.TakeRefusals(p_nConnection);
  if (l_asRefusals.empty()) return m_cStore.GetErrorMessage(CurrentModel(p_nConnection));
  wxString l_sText;
  for (const wxString& l_sRefusal : l_asRefusals) {
    if (!l_sText.empty()) l_sText += wxT("\n");
    l_sText += l_sRefusal;
  }
  return l_sText;
}

wxString SteeringHandler::OnReadLogMessage(unsigned int p_nConnection) {
  return m_cStore.GetLogMessage(CurrentModel(p_nConnection));
}

// Simulators.

std::vector<QU_SimulatorCategory> SteeringHandler::OnReadAvailableSimulators(unsigned int) {
  return m_cStore.GetAvailableSimulators();
}

void SteeringHandler::OnWriteAvailableSimulators(unsigned int,
                                                 const std::vector<QU_SimulatorCategory>& p_aList) {
  m_cStore.SetAvailableSimulators(p_aList);
}

void SteeringHandler::OnSendSimulatorSetting(unsigned int p_nConnection,
                                             const wxString& p_sSimulator,
                                             SimulatorAttribute& p_cSettings) {
  if (!m_cStore.SetSimulatorSettings(p_sSimulator, p_cSettings))
    Refuse(p_nConnection,
           wxString::Format(wxT("settings refused: settings of %zu simulators are kept already"),
                            SteeringModelStore::MAX_SIMULATOR_SETTINGS));
}

void SteeringHandler::OnReceiveSimulatorSetting(unsigned int, const wxString& p_sSimulator,
                                                SimulatorAttribute& p_cSettings) {
  m_cStore.GetSimulatorSettings(p_sSimulator, p_cSettings);
}

}  // namespace quor
