// SPDX-License-Identifier: MIT
#include "quor/steeringmodelstore.h"

#include <algorithm>
#include <utility>

#include "quor/attributeTransitionConnection.h"
#include "quor/attributeVector.h"
#include "quor/coloredmodel.h"
#include "quor/keys.h"
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
  return p_cModel.FindValue<AttributeVectorDouble>(p_sKey, std::vector<double>());
}

// A model built as a receiver builds it, then filled with the values of
// p_cSource, which is only read (other threads may read it meanwhile).
std::unique_ptr<Model> CopyOf(const Model& p_cSource) {
  Model& l_rSource = const_cast<Model&>(p_cSource);
  std::unique_ptr<Model> l_pcCopy;
  if (dynamic_cast<ColoredModel*>(&l_rSource) != NULL)
    l_pcCopy.reset(new ColoredModel(NULL, wxT(""), 0, 0, 0, 0));
  else
    l_pcCopy.reset(new Model(NULL, wxT(""), 0, 0));
  CopyAttributes(l_rSource, *l_pcCopy);
  ReplaceViews(l_rSource, *l_pcCopy);
  return l_pcCopy;
}

// A matrix copy whose rows have room to grow by appended columns.
std::unique_ptr<SteeringMatrix> CopyOf(const SteeringMatrix& p_aadSource) {
  std::unique_ptr<SteeringMatrix> l_pcCopy(new SteeringMatrix(p_aadSource.size()));
  for (size_t l_nRow = 0; l_nRow < p_aadSource.size(); ++l_nRow) {
    const std::vector<double>& l_adRow = p_aadSource[l_nRow];
    (*l_pcCopy)[l_nRow].reserve(l_adRow.size() + l_adRow.size() / 2 + 16);
    (*l_pcCopy)[l_nRow].assign(l_adRow.begin(), l_adRow.end());
  }
  return l_pcCopy;
}

// A copy of a snapshot, empty for none (or when it cannot be allocated).
SteeringMatrix CopyOut(const SteeringMatrixSnapshot& p_pcMatrix) {
  SteeringMatrix l_aadCopy;
  if (p_pcMatrix) TRY_ALLOC(l_aadCopy = *p_pcMatrix, return SteeringMatrix());
  return l_aadCopy;
}

// Appends the column; false (nothing changed) when it does not fit.
bool AppendColumn(SteeringMatrix& p_aadMatrix, const std::vector<double>& p_adColumn) {
  if (p_aadMatrix.empty()) p_aadMatrix.resize(p_adColumn.size());
  if (p_aadMatrix.size() != p_adColumn.size()) return false;
  for (size_t l_nRow = 0; l_nRow < p_adColumn.size(); ++l_nRow)
    p_aadMatrix[l_nRow].push_back(p_adColumn[l_nRow]);
  return true;
}

size_t Fits(const SteeringMatrix& p_aadMatrix, const std::vector<double>& p_adColumn) {
  return p_aadMatrix.empty() || p_aadMatrix.size() == p_adColumn.size();
}

// The longest of the lists under the keys (0 for a key that holds no list).
unsigned long long LongestList(Model& p_cModel, std::initializer_list<const wxChar*> p_asKeys) {
  unsigned long long l_nLongest = 0;
  for (const wxChar* l_sKey : p_asKeys) {
    Attribute* l_pcAttribute = p_cModel.FindAttribute(l_sKey);
    unsigned long long l_nLength = 0;
    if (AttributeVectorString* l_pcNames = dynamic_cast<AttributeVectorString*>(l_pcAttribute))
      l_nLength = l_pcNames->GetValue().size();
    else if (AttributeVectorDouble* l_pcValues = dynamic_cast<AttributeVectorDouble*>(l_pcAttribute))
      l_nLength = l_pcValues->GetValue().size();
    else if (AttributeVectorInt* l_pcTypes = dynamic_cast<AttributeVectorInt*>(l_pcAttribute))
      l_nLength = l_pcTypes->GetValue().size();
    else if (AttributeTransitionConnection* l_pcArcs =
                 dynamic_cast<AttributeTransitionConnection*>(l_pcAttribute))
      l_nLength = l_pcArcs->GetValue().size();
    l_nLongest = std::max(l_nLongest, l_nLength);
  }
  return l_nLongest;
}

// Why an uploaded model cannot be kept: a node count that none of its lists
// backs (the lists are what the peer actually sent; a count alone costs it
// eight bytes). Empty when it can.
wxString UnbackedCount(Model& p_cModel) {
  const unsigned long long l_nPlaces = p_cModel.GetPlaceCount();
  if (l_nPlaces > LongestList(p_cModel, {keys::PLACE_NAMES, keys::INITIAL_MARKING,
                                         keys::CURRENT_MARKING, keys::PLACE_TYPES}))
    return wxString::Format(wxT("the model announces %llu places but carries fewer"), l_nPlaces);
  const unsigned long long l_nTransitions = p_cModel.GetTransitionCount();
  if (l_nTransitions > LongestList(p_cModel, {keys::TRANSITION_NAMES, keys::TRANSITION_FUNCTIONS,
                                              keys::TRANSITION_TYPES,
                                              keys::TRANSITION_CONNECTION}))
    return wxString::Format(wxT("the model announces %llu transitions but carries fewer"),
                            l_nTransitions);
  return wxString();
}

}  // namespace

struct SteeringModelStore::Entry {
  int m_nId = NO_MODEL;
  bool m_bUploaded = false;
  // Never NULL.
  std::shared_ptr<Model> m_pcModel;
  std::shared_ptr<SteeringMatrix> m_pcResults = std::make_shared<SteeringMatrix>();
  std::shared_ptr<SteeringMatrix> m_pcRates = std::make_shared<SteeringMatrix>();
  ResultMatrixInfo m_cRowInfo{0};
  ModelRuntimeState m_cState;
  wxString m_sSimulatorFirst;
  wxString m_sSimulatorSecond;
  wxString m_sError;
  wxString m_sLog;
};

SteeringModelStore::SteeringModelStore()
    : m_nNextId(0), m_nMaxUploadedModels(DEFAULT_MAX_UPLOADED_MODELS) {}

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

template <typename T>
std::shared_ptr<const T> SteeringModelStore::Share(int p_nId,
                                                   std::shared_ptr<T> Entry::*p_pField) {
  std::shared_ptr<const T> l_pcShared;
  WithEntry(p_nId, [&](Entry& p_rEntry) { l_pcShared = p_rEntry.*p_pField; });
  return l_pcShared;
}

// A snapshot holder keeps the object's use count above one: the change then
// goes to a copy, made outside the lock from the version seen, which
// replaces that version unless another change came first (then the next
// round sees the newer one).
template <typename T>
bool SteeringModelStore::Change(int p_nId, std::shared_ptr<T> Entry::*p_pField,
                                const std::function<bool(T&)>& p_fChange) {
  std::shared_ptr<T> l_pcSeen, l_pcCopy;
  for (;;) {
    {
      wxMutexLocker l_cLock(m_cMutex);
      Entry* l_pcEntry = Find(p_nId);
      if (l_pcEntry == NULL) return false;
      std::shared_ptr<T>& l_rObject = l_pcEntry->*p_pField;
      if (l_pcCopy && l_rObject == l_pcSeen) l_rObject.swap(l_pcCopy);
      if (l_rObject.use_count() == 1) return p_fChange(*l_rObject);
      l_pcSeen = l_rObject;
    }
    // The old version (if swapped out) goes here, outside the lock.
    l_pcCopy.reset();
    TRY_ALLOC(l_pcCopy = CopyOf(*l_pcSeen), return false);
  }
}

template <typename M>
void SteeringModelStore::Replace(int p_nId, std::shared_ptr<SteeringMatrix> Entry::*p_pField,
                                 M&& p_aadMatrix) {
  // Copied or moved in before the lock is taken.
  std::shared_ptr<SteeringMatrix> l_pcMatrix;
  TRY_ALLOC(l_pcMatrix = std::make_shared<SteeringMatrix>(std::forward<M>(p_aadMatrix)), return);
  // The old matrix is freed outside the lock, with l_pcMatrix.
  WithEntry(p_nId, [&](Entry& p_rEntry) { (p_rEntry.*p_pField).swap(l_pcMatrix); });
}

// Running models.

int SteeringModelStore::AddModel(Model* p_pcModel) { return Add(p_pcModel, false, NULL); }

int SteeringModelStore::AddUploadedModel(Model* p_pcModel, wxString* p_psRefusal) {
  return Add(p_pcModel, true, p_psRefusal);
}

int SteeringModelStore::Add(Model* p_pcModel, bool p_bUploaded, wxString* p_psRefusal) {
  if (p_pcModel == NULL) return NO_MODEL;
  std::unique_ptr<Entry> l_pcEntry;
  TRY_ALLOC(l_pcEntry.reset(new Entry); l_pcEntry->m_pcModel.reset(p_pcModel),
            delete p_pcModel;
            return NO_MODEL);
  Detach(*p_pcModel);
  wxString l_sRefusal = p_bUploaded ? UnbackedCount(*p_pcModel) : wxString();
  {
    wxMutexLocker l_cLock(m_cMutex);
    if (l_sRefusal.empty() && p_bUploaded &&
        std::count_if(m_apcModels.begin(), m_apcModels.end(),
                      [](const std::unique_ptr<Entry>& p_pcOther) {
                        return p_pcOther->m_bUploaded;
                      }) >= static_cast<long>(m_nMaxUploadedModels))
      l_sRefusal = wxString::Format(wxT("the limit of %zu uploaded models is reached"),
                                    m_nMaxUploadedModels);
    if (l_sRefusal.empty()) {
      l_pcEntry->m_nId = m_nNextId++;
      l_pcEntry->m_bUploaded = p_bUploaded;
      m_apcModels.push_back(std::move(l_pcEntry));
      return m_apcModels.back()->m_nId;
    }
  }
  if (p_psRefusal != NULL) *p_psRefusal = wxT("upload refused: ") + l_sRefusal;
  return NO_MODEL;
}

void SteeringModelStore::SetMaxUploadedModels(size_t p_nModels) {
  wxMutexLocker l_cLock(m_cMutex);
  m_nMaxUploadedModels = p_nModels;
}

size_t SteeringModelStore::GetMaxUploadedModels() {
  wxMutexLocker l_cLock(m_cMutex);
  return m_nMaxUploadedModels;
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

ModelSnapshot SteeringModelStore::ShareModel(int p_nId) { return Share(p_nId, &Entry::m_pcModel); }

Model* SteeringModelStore::CopyModel(int p_nId) {
  const ModelSnapshot l_pcModel = ShareModel(p_nId);
  if (!l_pcModel) return NULL;
  Model* l_pcCopy = NULL;
  TRY_ALLOC(l_pcCopy = CopyOf(*l_pcModel).release(), return NULL);
  return l_pcCopy;
}

void SteeringModelStore::Detach(Model& p_cModel) {
  p_cModel.SetClientSocket(NULL);
  for (ModelView* l_pcView : *p_cModel.GetModelViews())
    if (l_pcView != NULL) l_pcView->SetClientSocket(NULL);
}

bool SteeringModelStore::WithModel(int p_nId, const std::function<void(Model&)>& p_fAction) {
  return Change<Model>(p_nId, &Entry::m_pcModel, [&](Model& p_rModel) {
    p_fAction(p_rModel);
    return true;
  });
}

bool SteeringModelStore::ReadModel(int p_nId, const std::function<void(Model&)>& p_fAction) {
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
  ReadModel(p_nId, [&](Model& p_rModel) {
    l_adValues = DoubleList(p_rModel, keys::CURRENT_PARAM_VALUES);
  });
  return l_adValues;
}

std::vector<double> SteeringModelStore::GetMarking(int p_nId) {
  std::vector<double> l_adValues;
  ReadModel(p_nId,
            [&](Model& p_rModel) { l_adValues = DoubleList(p_rModel, keys::CURRENT_MARKING); });
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
  ReadModel(p_nId, [&](Model& p_rModel) {
    p_dStart = p_rModel.FindValue<AttributeDouble>(keys::START_OUTPUT_POINT, 0.0);
    p_dEnd = p_rModel.FindValue<AttributeDouble>(keys::END_OUTPUT_POINT, 0.0);
    p_dSampling = p_rModel.FindValue<AttributeDouble>(keys::SAMPLE_POINT_SIZE, 0.0);
  });
}

void SteeringModelStore::CopyViews(int p_nId, Model& p_cTarget) {
  ReadModel(p_nId, [&](Model& p_rModel) { ReplaceViews(p_rModel, p_cTarget); });
}

void SteeringModelStore::SetViews(int p_nId, Model& p_cSource) {
  WithModel(p_nId, [&](Model& p_rModel) { ReplaceViews(p_cSource, p_rModel); });
}

// Results and state.

// The matrices: set whole (copied or moved in outside the lock), handed out
// as snapshots, or grown by a column.

void SteeringModelStore::SetResultMatrix(int p_nId, const SteeringMatrix& p_aadMatrix) {
  Replace(p_nId, &Entry::m_pcResults, p_aadMatrix);
}

void SteeringModelStore::SetResultMatrix(int p_nId, SteeringMatrix&& p_aadMatrix) {
  Replace(p_nId, &Entry::m_pcResults, std::move(p_aadMatrix));
}

SteeringMatrix SteeringModelStore::GetResultMatrix(int p_nId) {
  return CopyOut(ShareResultMatrix(p_nId));
}

SteeringMatrixSnapshot SteeringModelStore::ShareResultMatrix(int p_nId) {
  return Share(p_nId, &Entry::m_pcResults);
}

void SteeringModelStore::SetRateMatrix(int p_nId, const SteeringMatrix& p_aadMatrix) {
  Replace(p_nId, &Entry::m_pcRates, p_aadMatrix);
}

void SteeringModelStore::SetRateMatrix(int p_nId, SteeringMatrix&& p_aadMatrix) {
  Replace(p_nId, &Entry::m_pcRates, std::move(p_aadMatrix));
}

SteeringMatrix SteeringModelStore::GetRateMatrix(int p_nId) {
  return CopyOut(ShareRateMatrix(p_nId));
}

SteeringMatrixSnapshot SteeringModelStore::ShareRateMatrix(int p_nId) {
  return Share(p_nId, &Entry::m_pcRates);
}

bool SteeringModelStore::AppendOutputPoint(int p_nId, const std::vector<double>& p_adResults,
                                           const std::vector<double>& p_adRates) {
  // Both columns are checked before either matrix changes.
  bool l_bFits = false;
  WithEntry(p_nId, [&](Entry& p_rEntry) {
    l_bFits = Fits(*p_rEntry.m_pcResults, p_adResults) &&
              (p_adRates.empty() || Fits(*p_rEntry.m_pcRates, p_adRates));
  });
  if (!l_bFits) return false;
  bool l_bDone = false;
  TRY_ALLOC(l_bDone = Change<SteeringMatrix>(p_nId, &Entry::m_pcResults,
                                             [&](SteeringMatrix& p_aadMatrix) {
                                               return AppendColumn(p_aadMatrix, p_adResults);
                                             }) &&
                      (p_adRates.empty() ||
                       Change<SteeringMatrix>(p_nId, &Entry::m_pcRates,
                                              [&](SteeringMatrix& p_aadMatrix) {
                                                return AppendColumn(p_aadMatrix, p_adRates);
                                              })),
            return false);
  return l_bDone;
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

bool SteeringModelStore::SetSimulatorSettings(const wxString& p_sSimulator,
                                              SimulatorAttribute& p_cSettings) {
  std::unique_ptr<SimulatorAttribute> l_pcCopy(new SimulatorAttribute);
  CopySettings(p_cSettings, *l_pcCopy);
  wxMutexLocker l_cLock(m_cMutex);
  auto l_it = m_mSettings.find(p_sSimulator);
  if (l_it != m_mSettings.end()) {
    l_it->second.swap(l_pcCopy);
    return true;
  }
  if (m_mSettings.size() >= MAX_SIMULATOR_SETTINGS) return false;
  m_mSettings[p_sSimulator] = std::move(l_pcCopy);
  return true;
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
