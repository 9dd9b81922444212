// SPDX-License-Identifier: MIT
#include "quor/model.h"

#include <algorithm>

#include "quor/attributeVector.h"
#include "quor/keys.h"
#include "quor/modelView.h"

namespace quor {

Model::Model(wxSocketBase* p_pcSocket, const wxString& p_sModelName,
             const unsigned long long& p_nTransitionCount,
             const unsigned long long& p_nPlaceCount)
    : SteeringVector(p_pcSocket), m_apcModelViews(NULL), m_pcTransitionPtr(NULL) {
  // Element counts of the pre-filled lists are 32-bit: the low bits of the
  // 64-bit counts.
  const unsigned int l_nTransitions = static_cast<unsigned int>(p_nTransitionCount);
  const unsigned int l_nPlaces = static_cast<unsigned int>(p_nPlaceCount);

  RegisterAttribute<AttributeUint>(keys::MODEL_TYPE, PLAIN_MODEL_TYPE);
  RegisterAttribute<Attribute>(keys::MODEL_NAME, p_sModelName);
  RegisterAttribute<AttributeUlong>(keys::TRANSITION_COUNT, p_nTransitionCount);
  RegisterAttribute<AttributeUlong>(keys::PLACE_COUNT, p_nPlaceCount);
  RegisterAttribute<AttributeVectorString>(keys::PLACE_NAMES);
  RegisterAttribute<AttributeVectorString>(keys::TRANSITION_NAMES);
  RegisterAttribute<AttributeVectorString>(keys::TRANSITION_FUNCTIONS)
      ->assign(l_nTransitions, wxT("0"));
  RegisterAttribute<AttributeVectorString>(keys::PARAMETER_NAMES);
  RegisterAttribute<AttributeDouble>(keys::START_OUTPUT_POINT, 0.0);
  RegisterAttribute<AttributeDouble>(keys::END_OUTPUT_POINT, 100.0);
  RegisterAttribute<AttributeDouble>(keys::SAMPLE_POINT_SIZE, 1.0);
  RegisterAttribute<AttributeUint>(keys::CURRENT_ACTIVE_VIEW, 0u);
  RegisterAttribute<AttributeVectorDouble>(keys::INITIAL_PARAM_VALUES);
  RegisterAttribute<AttributeVectorDouble>(keys::CURRENT_PARAM_VALUES);
  RegisterAttribute<AttributeVectorDouble>(keys::INITIAL_MARKING)->assign(l_nPlaces, 0.0);
  RegisterAttribute<AttributeVectorDouble>(keys::CURRENT_MARKING)->assign(l_nPlaces, 0.0);
  RegisterAttribute<AttributeVectorInt>(keys::TRANSITION_TYPES)->assign(l_nTransitions, 0);
  RegisterAttribute<AttributeVectorInt>(keys::PLACE_TYPES)->assign(l_nPlaces, 0);
  RegisterAttribute<AttributeVectorULong>(keys::STEERED_PARAM);
  RegisterAttribute<AttributeVectorULong>(keys::STEERED_PLACES);
  RegisterAttribute<AttributeUint>(keys::NET_TYPE, 0u);
  // Arc edits go straight into the attribute's list.
  m_pcTransitionPtr = &RegisterAttribute<AttributeTransitionConnection>(
                           keys::TRANSITION_CONNECTION, l_nTransitions)
                           ->GetValue();
  m_apcModelViews = new std::vector<ModelView*>();
}

Model::~Model() {
  DeleteModelViews();
  delete m_apcModelViews;
  m_apcModelViews = NULL;
  // The arc list belongs to its attribute, which the set deletes.
}

void Model::DeleteModelViews() {
  CHECK_POINTER(m_apcModelViews, return);
  for (ModelView*& l_pcView : *m_apcModelViews) {
    delete l_pcView;
    l_pcView = NULL;
  }
  m_apcModelViews->clear();
}

void Model::AddModelView(ModelView* p_pcView) {
  CHECK_POINTER(p_pcView, return);
  CHECK_POINTER(m_apcModelViews, delete p_pcView; return);
  // The view is ours from here on, also when it cannot be entered.
  TRY_ALLOC(m_apcModelViews->push_back(p_pcView), delete p_pcView; return);
}

// Whole-model transfer.

unsigned int Model::SendModel() {
  unsigned int l_nModelType = GetModelType();
  unsigned int l_nResult = SendValue(&l_nModelType, sizeof(l_nModelType));
  if (l_nResult != SUCCESS) return l_nResult;
  l_nResult = SendAttributes();
  if (l_nResult != SUCCESS) return l_nResult;
  return SendModelViews();
}

unsigned int Model::ReceiveModel() {
  // The model type has been read by the caller, which chose the class.
  const unsigned int l_nResult = ReceiveAttributes();
  if (l_nResult != SUCCESS) return l_nResult;
  return ReceiveModelViews();
}

unsigned int Model::SendModelViews() {
  CHECK_POINTER(m_apcModelViews, return FAILURE);
  // A NULL slot is neither counted nor sent, so that the count always
  // matches the views that follow it.
  unsigned int l_nViewCount = static_cast<unsigned int>(
      m_apcModelViews->size() -
      std::count(m_apcModelViews->begin(), m_apcModelViews->end(), nullptr));
  SendValue(&l_nViewCount, sizeof(l_nViewCount));
  for (ModelView* l_pcView : *m_apcModelViews) {
    if (l_pcView != NULL) l_pcView->SendView(m_pcClientSocket);
  }
  unsigned int l_nActiveView = GetActiveView();
  SendValue(&l_nActiveView, sizeof(l_nActiveView));
  // Only the receipt of the acknowledgement counts, not its value.
  unsigned int l_nAcknowledgement = 1;
  return ReceiveValue(&l_nAcknowledgement, sizeof(l_nAcknowledgement));
}

unsigned int Model::ReceiveOneView() {
  std::unique_ptr<ModelView> l_pcView(new ModelView(wxT(""), NULL));
  // The view reads on the model's connection and under its limits.
  ReceivingFor l_cFor(*l_pcView, *this);
  const unsigned int l_nResult = l_pcView->ReceiveView(m_pcClientSocket);
  m_apcModelViews->push_back(l_pcView.get());
  l_pcView.release();
  return l_nResult;
}

unsigned int Model::ReceiveModelViews() {
  CHECK_POINTER(m_apcModelViews, return FAILURE);
  unsigned int l_nViewCount = 0;
  unsigned int l_nResult = ReceiveValue(&l_nViewCount, sizeof(l_nViewCount));
  if (l_nResult != SUCCESS) return l_nResult;
  // The views are built one at a time as they arrive; more of them than the
  // value limit can hold are refused before the first.
  TRY_ALLOC(RequireAffordable(coding::Product(l_nViewCount, ModelView::MemoryOfOne())),
            return FAILURE);
  // The received views replace the ones held so far, which the model owns.
  DeleteModelViews();
  for (unsigned int l_nView = 0; l_nView < l_nViewCount; ++l_nView) {
    TRY_ALLOC(l_nResult = ReceiveOneView(), return FAILURE);
    // The view that failed stays in the list with what it received; after a
    // broken frame the stream is out of step, so no further view is read.
    if (l_nResult != SUCCESS) return l_nResult;
  }
  unsigned int l_nActiveView = GetActiveView();
  ReceiveValue(&l_nActiveView, sizeof(l_nActiveView));
  SetActiveView(l_nActiveView);
  unsigned int l_nAcknowledgement = 1;
  return SendValue(&l_nAcknowledgement, sizeof(l_nAcknowledgement));
}

// Scalar accessors.

void Model::SetModelName(const wxString& p_sName) {
  SetAttributeValue(keys::MODEL_NAME, p_sName);
}

wxString Model::GetModelName() { return GetAttributeValueString(keys::MODEL_NAME); }

unsigned long long Model::GetPlaceCount() {
  return GetAttributeValueULong(keys::PLACE_COUNT);
}

unsigned long long Model::GetTransitionCount() {
  return GetAttributeValueULong(keys::TRANSITION_COUNT);
}

unsigned int Model::GetModelType() { return GetAttributeValueUInt(keys::MODEL_TYPE); }

unsigned int Model::GetActiveView() {
  return GetAttributeValueUInt(keys::CURRENT_ACTIVE_VIEW);
}

void Model::SetActiveView(const unsigned int& p_nView) {
  SetAttributeValue(keys::CURRENT_ACTIVE_VIEW, p_nView);
}

void Model::SetOutputStartPoint(const double& p_dValue) {
  SetAttributeValue(keys::START_OUTPUT_POINT, p_dValue);
}

void Model::SetOutputEndPoint(const double& p_dValue) {
  SetAttributeValue(keys::END_OUTPUT_POINT, p_dValue);
}

void Model::SetOutputSamplingSize(const double& p_dValue) {
  SetAttributeValue(keys::SAMPLE_POINT_SIZE, p_dValue);
}

// Names and positions. The maps are filled insert-if-absent: for a name
// given twice the first position wins, and names mapped by an earlier call
// keep their positions.

void Model::SetPlaceNames(const std::vector<wxString>& p_asNames) {
  SetAttributeValue(keys::PLACE_NAMES, p_asNames);
  MapPlaceName2Positions(p_asNames);
}

void Model::SetTransitionNames(const std::vector<wxString>& p_asNames) {
  SetAttributeValue(keys::TRANSITION_NAMES, p_asNames);
  MapTransitionNames2Positions(p_asNames);
}

namespace {
void MapNames(const std::vector<wxString>& p_asNames,
              std::map<wxString, unsigned long long>& p_mName2Position) {
  for (unsigned long long l_nPos = 0; l_nPos < p_asNames.size(); ++l_nPos) {
    p_mName2Position.insert(std::make_pair(p_asNames[l_nPos], l_nPos));
  }
}
}  // namespace

void Model::MapPlaceName2Positions(const std::vector<wxString>& p_asNames) {
  MapNames(p_asNames, m_mPlaceName2Position);
}

void Model::MapTransitionNames2Positions(const std::vector<wxString>& p_asNames) {
  MapNames(p_asNames, m_mTransitionName2Position);
}

void Model::MapNames2Positions(const std::vector<wxString>& p_asPlaceNames,
                               const std::vector<wxString>& p_asTransitionNames) {
  MapPlaceName2Positions(p_asPlaceNames);
  MapTransitionNames2Positions(p_asTransitionNames);
}

// Arcs.

void Model::AddArc(const unsigned long long& p_nTransitionPos,
                   const unsigned long long& p_nPlacePos, const ConnectionType& p_eType,
                   const double& p_dWeight, bool p_bPre) {
  // The bound admits a position equal to the count.
  if (p_nTransitionPos > GetTransitionCount() || p_nPlacePos > GetPlaceCount()) return;
  CHECK_POINTER(m_pcTransitionPtr, return);
  // There is one record per transition (and a received model may hold fewer
  // records than its count says): a position without a record is ignored.
  if (p_nTransitionPos >= m_pcTransitionPtr->size()) return;
  Transitions& l_cRecord = (*m_pcTransitionPtr)[p_nTransitionPos];
  const PlaceTransitionConnection l_cArc = {p_eType, p_dWeight};
  (p_bPre ? l_cRecord.m_acPreConnections : l_cRecord.m_acPostConnections).push_back(l_cArc);
  (p_bPre ? l_cRecord.m_anPrePlacePositions : l_cRecord.m_anPostPlacePositions)
      .push_back(p_nPlacePos);
}

void Model::SetTransitionPreConnection(const unsigned long long& p_nTransitionPos,
                                       const unsigned long long& p_nPlacePos,
                                       const ConnectionType& p_eType,
                                       const double& p_dWeight) {
  AddArc(p_nTransitionPos, p_nPlacePos, p_eType, p_dWeight, true);
}

// An unknown name enters its map at position 0, and the arc goes there.
void Model::SetTransitionPreConnection(const wxString& p_sTransitionName,
                                       const wxString& p_sPlaceName,
                                       const ConnectionType& p_eType,
                                       const double& p_dWeight) {
  SetTransitionPreConnection(m_mTransitionName2Position[p_sTransitionName],
                             m_mPlaceName2Position[p_sPlaceName], p_eType, p_dWeight);
}

// Post-arcs are always standard arcs.
void Model::SetTransitionPostConnection(const unsigned long long& p_nTransitionPos,
                                        const unsigned long long& p_nPlacePos,
                                        const double& p_dWeight) {
  AddArc(p_nTransitionPos, p_nPlacePos, CONNECTION_STANDARD_ARC, p_dWeight, false);
}

void Model::SetTransitionPostConnection(const wxString& p_sTransitionName,
                                        const wxString& p_sPlaceName,
                                        const double& p_dWeight) {
  SetTransitionPostConnection(m_mTransitionName2Position[p_sTransitionName],
                              m_mPlaceName2Position[p_sPlaceName], p_dWeight);
}

std::vector<unsigned long long> Model::CopyArcPlaces(
    const unsigned long long& p_nTransitionPos,
    std::vector<unsigned long long> Transitions::*p_pList) {
  // Unlike the setters, the readers admit only positions below the count.
  if (p_nTransitionPos >= GetTransitionCount() ||
      p_nTransitionPos >= m_pcTransitionPtr->size()) {
    return std::vector<unsigned long long>();
  }
  return (*m_pcTransitionPtr)[p_nTransitionPos].*p_pList;
}

std::vector<unsigned long long> Model::GetTransitionPrePlaces(
    unsigned long long p_nTransitionPos) {
  std::vector<unsigned long long> l_anPrePlacePos;
  CHECK_POINTER(m_pcTransitionPtr, return l_anPrePlacePos);
  return CopyArcPlaces(p_nTransitionPos, &Transitions::m_anPrePlacePositions);
}

std::vector<unsigned long long> Model::GetTransitionPostPlaces(
    unsigned long long p_nTransitionPos) {
  std::vector<unsigned long long> l_anPostPlacePos;
  CHECK_POINTER(m_pcTransitionPtr, return l_anPostPlacePos);
  return CopyArcPlaces(p_nTransitionPos, &Transitions::m_anPostPlacePositions);
}

std::vector<Transitions>* Model::GetTransitions() { return m_pcTransitionPtr; }

void Model::SetTransitions(const std::vector<Transitions>& p_aTransitions) {
  AttributeTransitionConnection* l_pcAttribute =
      FindAttribute<AttributeTransitionConnection>(keys::TRANSITION_CONNECTION);
  CHECK_POINTER(l_pcAttribute, return);
  // The attribute keeps its list object, so m_pcTransitionPtr stays valid.
  l_pcAttribute->SetValue(p_aTransitions);
}

// Place and transition types. A missing list is left alone (setters) or
// read as NULL (getters).

void Model::SetPlaceTypes(const std::vector<PlaceType>& p_aeTypes) {
  AttributeVectorInt* l_pcAttribute = FindAttribute<AttributeVectorInt>(keys::PLACE_TYPES);
  if (l_pcAttribute != NULL) {
    l_pcAttribute->SetValue(std::vector<int>(p_aeTypes.begin(), p_aeTypes.end()));
  }
}

std::vector<int>* Model::GetPlaceType() {
  AttributeVectorInt* l_pcAttribute = FindAttribute<AttributeVectorInt>(keys::PLACE_TYPES);
  return l_pcAttribute != NULL ? &l_pcAttribute->GetValue() : NULL;
}

void Model::SetTransitionTypes(const std::vector<TransType>& p_aeTypes) {
  AttributeVectorInt* l_pcAttribute =
      FindAttribute<AttributeVectorInt>(keys::TRANSITION_TYPES);
  if (l_pcAttribute != NULL) {
    l_pcAttribute->SetValue(std::vector<int>(p_aeTypes.begin(), p_aeTypes.end()));
  }
}

void Model::SetTransitionType(const unsigned long long& p_nTransitionPos,
                              const TransType& p_eType) {
  std::vector<int>* l_panTypes = GetTransitionTypes();
  // A position outside the list is ignored.
  if (l_panTypes != NULL && p_nTransitionPos < l_panTypes->size()) {
    (*l_panTypes)[p_nTransitionPos] = p_eType;
  }
}

std::vector<int>* Model::GetTransitionTypes() {
  AttributeVectorInt* l_pcAttribute =
      FindAttribute<AttributeVectorInt>(keys::TRANSITION_TYPES);
  return l_pcAttribute != NULL ? &l_pcAttribute->GetValue() : NULL;
}

// Markings and parameters. Setting an initial list resets its current list
// too; a missing list is skipped (setters) or read as NULL (getters).

namespace {
void SetDoubles(AttributeVectorDouble* p_pcAttribute, const std::vector<double>& p_adValues) {
  if (p_pcAttribute != NULL) p_pcAttribute->SetValue(p_adValues);
}

std::vector<double>* Doubles(AttributeVectorDouble* p_pcAttribute) {
  return p_pcAttribute != NULL ? &p_pcAttribute->GetValue() : NULL;
}
}  // namespace

void Model::SetInitialMarking(const std::vector<double>& p_adMarking) {
  SetDoubles(FindAttribute<AttributeVectorDouble>(keys::INITIAL_MARKING), p_adMarking);
  SetCurrentMarking(p_adMarking);
}

std::vector<double>* Model::GetInitialMarking() {
  return Doubles(FindAttribute<AttributeVectorDouble>(keys::INITIAL_MARKING));
}

void Model::SetCurrentMarking(const std::vector<double>& p_adMarking) {
  SetDoubles(FindAttribute<AttributeVectorDouble>(keys::CURRENT_MARKING), p_adMarking);
}

std::vector<double>* Model::GetCurrentMarking() {
  return Doubles(FindAttribute<AttributeVectorDouble>(keys::CURRENT_MARKING));
}

void Model::SetInitialParameterValues(const std::vector<double>& p_adValues) {
  SetDoubles(FindAttribute<AttributeVectorDouble>(keys::INITIAL_PARAM_VALUES), p_adValues);
  SetCurrentParameterValues(p_adValues);
}

void Model::SetCurrentParameterValues(const std::vector<double>& p_adValues) {
  SetDoubles(FindAttribute<AttributeVectorDouble>(keys::CURRENT_PARAM_VALUES), p_adValues);
}

void Model::CopyValues(const wxString& p_sInitialKey, const wxString& p_sCurrentKey) {
  AttributeVectorDouble* l_pcAttribute1 = FindAttribute<AttributeVectorDouble>(p_sInitialKey);
  AttributeVectorDouble* l_pcAttribute2 = FindAttribute<AttributeVectorDouble>(p_sCurrentKey);
  CHECK_POINTER(l_pcAttribute1, return);
  CHECK_POINTER(l_pcAttribute2, return);
  l_pcAttribute2->SetValue(l_pcAttribute1->GetValue());
}

void Model::ResetCurrentMarking() {
  CopyValues(keys::INITIAL_MARKING, keys::CURRENT_MARKING);
}

void Model::ResetParameterValues() {
  CopyValues(keys::INITIAL_PARAM_VALUES, keys::CURRENT_PARAM_VALUES);
}

void Model::SetCurrentValue(const wxString& p_sKey, const unsigned long long& p_nPosition,
                            const double& p_dValue) {
  AttributeVectorDouble* l_pcAttribute = FindAttribute<AttributeVectorDouble>(p_sKey);
  CHECK_POINTER(l_pcAttribute, return);
  try {
    l_pcAttribute->GetValue().at(p_nPosition) = p_dValue;
  } catch (...) {
    // One message for markings and parameters alike.
    LOG(1, wxT("Unexpected error while changing the parameter values"));
    QUOR_TRY_REPORT("return");
    return;
  }
}

void Model::SetParameterValue(const unsigned long long& p_nPosition, const double& p_dValue) {
  SetCurrentValue(keys::CURRENT_PARAM_VALUES, p_nPosition, p_dValue);
}

void Model::SetMarkingValue(const unsigned long long& p_nPosition, const double& p_dValue) {
  SetCurrentValue(keys::CURRENT_MARKING, p_nPosition, p_dValue);
}

}  // namespace quor
