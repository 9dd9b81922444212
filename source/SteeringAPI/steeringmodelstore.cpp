// SPDX-License-Identifier: MIT
#include "quor/steeringmodelstore.h"

#include <algorithm>
#include <utility>

#include "quor/coloredmodel.h"
#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"

namespace quor {

namespace {

// Copies every attribute value of one set into the attribute of the same
// key and class of another, through their packed form (the way a receiver
// gets them); an attribute the target lacks is cloned into it.
void CopyAttributes(SteeringVector& p_cSource, SteeringVector& p_cTarget) {
  AttributeList& l_rTarget = *p_cTarget.GetAttributeList();
  for (const auto& l_cEntry : *p_cSource.GetAttributeList()) {
    Attribute* l_pcSource = l_cEntry.second;
    if (l_pcSource == NULL) continue;
    Attribute*& l_rSlot = l_rTarget[l_cEntry.first];
    if (l_rSlot == NULL || l_rSlot->GetAttributeType() != l_pcSource->GetAttributeType()) {
      delete l_rSlot;
      l_rSlot = l_pcSource->Clone();
      continue;
    }
    std::vector<char> l_aPacked(l_pcSource->GetPackungSize());
    l_pcSource->PackValue(l_aPacked.data());
    l_rSlot->UnPackValue(l_aPacked.data());
  }
}

void ReplaceViews(Model& p_cSource, Model& p_cTarget) {
  std::vector<ModelView*>& l_rTarget = *p_cTarget.GetModelViews();
  for (ModelView* l_pcView : l_rTarget) delete l_pcView;
  l_rTarget.clear();
  for (ModelView* l_pcView : *p_cSource.GetModelViews()) {
    ModelView* l_pcCopy = l_pcView != NULL ? l_pcView->Clone() : NULL;
    if (l_pcCopy == NULL) continue;
    l_pcCopy->SetClientSocket(p_cTarget.GetClientSocket());
    p_cTarget.AddModelView(l_pcCopy);
  }
  p_cTarget.SetActiveView(p_cSource.GetActiveView());
}

void CopyRowInfo(ResultMatrixInfo& p_cSource, ResultMatrixInfo& p_cTarget) {
  const unsigned int l_nRows = p_cSource.GetRowCount();
  p_cTarget.SetRowCount(l_nRows);
  for (unsigned int l_nRow = 0; l_nRow < l_nRows; ++l_nRow) {
    unsigned int l_nPosition = 0;
    RM_ROW_TYPE l_eType = RM_ROW_TYPE_PLACE;
    p_cSource.GetRowInfo(l_nRow, l_nPosition, l_eType);
    p_cTarget.SetRowInfo(l_nRow, l_nPosition, l_eType);
  }
}

void CopySettings(SimulatorAttribute& p_cSource, SimulatorAttribute& p_cTarget) {
  p_cTarget.Clear();
  for (unsigned int l_nIndex = 0; l_nIndex < p_cSource.size(); ++l_nIndex) {
    wxString l_sName, l_sCaption, l_sValue;
    unsigned int l_nGuiType = 0;
    double l_dMin = 0.0, l_dMax = 0.0;
    p_cSource.GetAttribute(l_nIndex, l_sName, l_sCaption, l_sValue, l_nGuiType, l_dMin, l_dMax);
    p_cTarget.AddAttribute(l_sName, l_sCaption, l_sValue, l_nGuiType, l_dMin, l_dMax);
    p_cTarget.SetPossibleValues(l_nIndex, p_cSource.GetPossibleValues(l_nIndex));
  }
}

std::vector<double> DoubleList(Model& p_cModel, const wxChar* p_sKey) {
  AttributeVectorDouble* l_pcValues =
      dynamic_cast<AttributeVectorDouble*>(p_cModel.GetAttribute(p_sKey));
  return l_pcValues != NULL ? l_pcValues->GetValue() : std::vector<double>();
}

}  // namespace

struct SteeringModelStore::Entry {
  int m_nId = NO_MODEL;
  std::unique_ptr<Model> m_pcModel;
  SteeringMatrix m_aadResults;
  SteeringMatrix m_aadRates;
  ResultMatrixInfo m_cRowInfo{0};
  ModelRuntimeState m_cState;
  wxString m_sSimulatorFirst;
  wxString m_sSimulatorSecond;
  wxString m_sError;
  wxString m_sLog;
};

SteeringModelStore::SteeringModelStore() : m_nNextId(0) {}

SteeringModelStore::~SteeringModelStore() {}

SteeringModelStore::Entry* SteeringModelStore::Find(int p_nId) {
  for (const std::unique_ptr<Entry>& l_pcEntry : m_apcModels)
    if (l_pcEntry->m_nId == p_nId) return l_pcEntry.get();
  return NULL;
}

bool SteeringModelStore::WithEntry(int p_nId, const std::function<void(Entry&)>& p_fAction) {
  wxMutexLocker l_cLock(m_cMutex);
  Entry* l_pcEntry = Find(p_nId);
  if (l_pcEntry == NULL) return false;
  p_fAction(*l_pcEntry);
  return true;
}

template <typename T>
void SteeringModelStore::Put(int p_nId, T Entry::*p_pField, const T& p_Value) {
  WithEntry(p_nId, [&](Entry& p_rEntry) { p_rEntry.*p_pField = p_Value; });
}

template <typename T>
T SteeringModelStore::Take(int p_nId, T Entry::*p_pField) {
  T l_Value{};
  WithEntry(p_nId, [&](Entry& p_rEntry) { l_Value = p_rEntry.*p_pField; });
  return l_Value;
}

// Running models.

int SteeringModelStore::AddModel(Model* p_pcModel) {
  if (p_pcModel == NULL) return NO_MODEL;
  std::unique_ptr<Entry> l_pcEntry(new Entry);
  l_pcEntry->m_pcModel.reset(p_pcModel);
  Detach(*p_pcModel);
  wxMutexLocker l_cLock(m_cMutex);
  l_pcEntry->m_nId = m_nNextId++;
  m_apcModels.push_back(std::move(l_pcEntry));
  return m_apcModels.back()->m_nId;
}

bool SteeringModelStore::RemoveModel(const wxString& p_sName) {
  std::unique_ptr<Entry> l_pcRemoved;
  {
    wxMutexLocker l_cLock(m_cMutex);
    auto l_it = std::find_if(m_apcModels.begin(), m_apcModels.end(),
                             [&](const std::unique_ptr<Entry>& p_pcEntry) {
                               return p_pcEntry->m_pcModel->GetModelName() == p_sName;
                             });
    if (l_it == m_apcModels.end()) return false;
    l_pcRemoved = std::move(*l_it);
    m_apcModels.erase(l_it);
    for (auto& l_cCurrent : m_mCurrentModel)
      if (l_cCurrent.second == l_pcRemoved->m_nId) l_cCurrent.second = NO_MODEL;
  }
  return true;
}

std::vector<wxString> SteeringModelStore::GetModelNames() {
  wxMutexLocker l_cLock(m_cMutex);
  std::vector<wxString> l_asNames;
  for (const std::unique_ptr<Entry>& l_pcEntry : m_apcModels)
    l_asNames.push_back(l_pcEntry->m_pcModel->GetModelName());
  return l_asNames;
}

int SteeringModelStore::GetModelId(int p_nIndex) {
  wxMutexLocker l_cLock(m_cMutex);
  if (p_nIndex < 0 || static_cast<size_t>(p_nIndex) >= m_apcModels.size()) return NO_MODEL;
  return m_apcModels[p_nIndex]->m_nId;
}

Model* SteeringModelStore::CopyModel(int p_nId) {
  Model* l_pcCopy = NULL;
  WithModel(p_nId, [&](Model& p_rModel) {
    // Built as a receiver builds it, then filled with the values.
    if (dynamic_cast<ColoredModel*>(&p_rModel) != NULL)
      l_pcCopy = new ColoredModel(NULL, wxT(""), 0, 0, 0, 0);
    else
      l_pcCopy = new Model(NULL, wxT(""), 0, 0);
    CopyAttributes(p_rModel, *l_pcCopy);
    ReplaceViews(p_rModel, *l_pcCopy);
  });
  return l_pcCopy;
}

void SteeringModelStore::Detach(Model& p_cModel) {
  p_cModel.SetClientSocket(NULL);
  for (ModelView* l_pcView : *p_cModel.GetModelViews())
    if (l_pcView != NULL) l_pcView->SetClientSocket(NULL);
}

bool SteeringModelStore::WithModel(int p_nId, const std::function<void(Model&)>& p_fAction) {
  return WithEntry(p_nId, [&](Entry& p_rEntry) { p_fAction(*p_rEntry.m_pcModel); });
}

// Connections.

void SteeringModelStore::SetCurrentModel(unsigned int p_nConnection, int p_nId) {
  wxMutexLocker l_cLock(m_cMutex);
  m_mCurrentModel[p_nConnection] = p_nId;
}

int SteeringModelStore::GetCurrentModel(unsigned int p_nConnection) {
  wxMutexLocker l_cLock(m_cMutex);
  auto l_it = m_mCurrentModel.find(p_nConnection);
  return l_it != m_mCurrentModel.end() ? l_it->second : NO_MODEL;
}

void SteeringModelStore::ForgetConnection(unsigned int p_nConnection) {
  wxMutexLocker l_cLock(m_cMutex);
  m_mCurrentModel.erase(p_nConnection);
  m_mRefusals.erase(p_nConnection);
}

void SteeringModelStore::AddRefusal(unsigned int p_nConnection, const wxString& p_sText) {
  wxString l_sText = p_sText.length() > MAX_REFUSAL_LENGTH
                         ? p_sText.Left(MAX_REFUSAL_LENGTH - 3) + wxT("...")
                         : p_sText;
  // One refusal is one line of what ReceiveErrorMessage returns.
  l_sText.Replace(wxT("\n"), wxT(" "));
  wxMutexLocker l_cLock(m_cMutex);
  std::deque<wxString>& l_rQueue = m_mRefusals[p_nConnection];
  if (l_rQueue.size() >= MAX_QUEUED_REFUSALS) l_rQueue.pop_front();
  l_rQueue.push_back(l_sText);
}

std::vector<wxString> SteeringModelStore::TakeRefusals(unsigned int p_nConnection) {
  wxMutexLocker l_cLock(m_cMutex);
  std::vector<wxString> l_asRefusals;
  auto l_it = m_mRefusals.find(p_nConnection);
  if (l_it == m_mRefusals.end()) return l_asRefusals;
  l_asRefusals.assign(l_it->second.begin(), l_it->second.end());
  m_mRefusals.erase(l_it);
  return l_asRefusals;
}

// Values kept in the model.

std::vector<double> SteeringModelStore::GetParameterValues(int p_nId) {
  std::vector<double> l_adValues;
  WithModel(p_nId, [&](Model& p_rModel) {
    l_adValues = DoubleList(p_rModel, wxT("CURRENT_PARAM_VALUES"));
  });
  return l_adValues;
}

std::vector<double> SteeringModelStore::GetMarking(int p_nId) {
  std::vector<double> l_adValues;
  WithModel(p_nId,
            [&](Model& p_rModel) { l_adValues = DoubleList(p_rModel, wxT("CURRENT_MARKING")); });
  return l_adValues;
}

void SteeringModelStore::SetSimulationInterval(int p_nId, double p_dStart, double p_dEnd,
                                               double p_dSampling) {
  WithModel(p_nId, [&](Model& p_rModel) {
    p_rModel.SetOutputStartPoint(p_dStart);
    p_rModel.SetOutputEndPoint(p_dEnd);
    p_rModel.SetOutputSamplingSize(p_dSampling);
  });
}

void SteeringModelStore::GetSimulationInterval(int p_nId, double& p_dStart, double& p_dEnd,
                                               double& p_dSampling) {
  WithModel(p_nId, [&](Model& p_rModel) {
    p_dStart = p_rModel.GetAttributeValueDouble(wxT("START_OUTPUT_POINT"));
    p_dEnd = p_rModel.GetAttributeValueDouble(wxT("END_OUTPUT_POINT"));
    p_dSampling = p_rModel.GetAttributeValueDouble(wxT("SAMPLE_POINT_SIZE"));
  });
}

void SteeringModelStore::CopyViews(int p_nId, Model& p_cTarget) {
  WithModel(p_nId, [&](Model& p_rModel) { ReplaceViews(p_rModel, p_cTarget); });
}

void SteeringModelStore::SetViews(int p_nId, Model& p_cSource) {
  WithModel(p_nId, [&](Model& p_rModel) { ReplaceViews(p_cSource, p_rModel); });
}

// Results and state.

void SteeringModelStore::SetResultMatrix(int p_nId, const SteeringMatrix& p_aadMatrix) {
  Put(p_nId, &Entry::m_aadResults, p_aadMatrix);
}

SteeringMatrix SteeringModelStore::GetResultMatrix(int p_nId) {
  return Take(p_nId, &Entry::m_aadResults);
}

void SteeringModelStore::SetRateMatrix(int p_nId, const SteeringMatrix& p_aadMatrix) {
  Put(p_nId, &Entry::m_aadRates, p_aadMatrix);
}

SteeringMatrix SteeringModelStore::GetRateMatrix(int p_nId) {
  return Take(p_nId, &Entry::m_aadRates);
}

void SteeringModelStore::SetResultMatrixInfo(int p_nId, ResultMatrixInfo& p_cInfo) {
  WithEntry(p_nId, [&](Entry& p_rEntry) { CopyRowInfo(p_cInfo, p_rEntry.m_cRowInfo); });
}

void SteeringModelStore::GetResultMatrixInfo(int p_nId, ResultMatrixInfo& p_cInfo) {
  WithEntry(p_nId, [&](Entry& p_rEntry) { CopyRowInfo(p_rEntry.m_cRowInfo, p_cInfo); });
}

void SteeringModelStore::SetRuntimeState(int p_nId, ModelRuntimeState& p_cState) {
  WithRuntimeState(p_nId, [&](ModelRuntimeState& p_rState) { CopyAttributes(p_cState, p_rState); });
}

void SteeringModelStore::GetRuntimeState(int p_nId, ModelRuntimeState& p_cState) {
  WithRuntimeState(p_nId, [&](ModelRuntimeState& p_rState) { CopyAttributes(p_rState, p_cState); });
}

bool SteeringModelStore::WithRuntimeState(
    int p_nId, const std::function<void(ModelRuntimeState&)>& p_fAction) {
  return WithEntry(p_nId, [&](Entry& p_rEntry) { p_fAction(p_rEntry.m_cState); });
}

void SteeringModelStore::SetSimulatorState(int p_nId, int p_nState) {
  WithRuntimeState(p_nId, [&](ModelRuntimeState& p_rState) {
    p_rState.SetAttributeValue(wxT("SIMULATOR_STATE"), p_nState);
  });
}

int SteeringModelStore::GetSimulatorState(int p_nId) {
  int l_nState = 0;
  WithRuntimeState(p_nId, [&](ModelRuntimeState& p_rState) {
    l_nState = p_rState.GetAttributeValueInt(wxT("SIMULATOR_STATE"));
  });
  return l_nState;
}

void SteeringModelStore::SetCurrentSimulatorName(int p_nId, const wxString& p_sFirst,
                                                 const wxString& p_sSecond) {
  WithEntry(p_nId, [&](Entry& p_rEntry) {
    p_rEntry.m_sSimulatorFirst = p_sFirst;
    p_rEntry.m_sSimulatorSecond = p_sSecond;
  });
}

void SteeringModelStore::GetCurrentSimulatorName(int p_nId, wxString& p_sFirst,
                                                 wxString& p_sSecond) {
  WithEntry(p_nId, [&](Entry& p_rEntry) {
    p_sFirst = p_rEntry.m_sSimulatorFirst;
    p_sSecond = p_rEntry.m_sSimulatorSecond;
  });
}

void SteeringModelStore::SetErrorMessage(int p_nId, const wxString& p_sMessage) {
  Put(p_nId, &Entry::m_sError, p_sMessage);
}

wxString SteeringModelStore::GetErrorMessage(int p_nId) { return Take(p_nId, &Entry::m_sError); }

void SteeringModelStore::SetLogMessage(int p_nId, const wxString& p_sMessage) {
  Put(p_nId, &Entry::m_sLog, p_sMessage);
}

wxString SteeringModelStore::GetLogMessage(int p_nId) { return Take(p_nId, &Entry::m_sLog); }

// Simulators.

void SteeringModelStore::SetAvailableSimulators(const std::vector<QU_SimulatorCategory>& p_aList) {
  wxMutexLocker l_cLock(m_cMutex);
  m_aSimulators = p_aList;
}

std::vector<QU_SimulatorCategory> SteeringModelStore::GetAvailableSimulators() {
  wxMutexLocker l_cLock(m_cMutex);
  return m_aSimulators;
}

void SteeringModelStore::SetSimulatorSettings(const wxString& p_sSimulator,
                                              SimulatorAttribute& p_cSettings) {
  std::unique_ptr<SimulatorAttribute> l_pcCopy(new SimulatorAttribute);
  CopySettings(p_cSettings, *l_pcCopy);
  wxMutexLocker l_cLock(m_cMutex);
  m_mSettings[p_sSimulator] = std::move(l_pcCopy);
}

bool SteeringModelStore::GetSimulatorSettings(const wxString& p_sSimulator,
                                              SimulatorAttribute& p_cSettings) {
  wxMutexLocker l_cLock(m_cMutex);
  auto l_it = m_mSettings.find(p_sSimulator);
  if (l_it == m_mSettings.end()) return false;
  CopySettings(*l_it->second, p_cSettings);
  return true;
}

}  // namespace quor
