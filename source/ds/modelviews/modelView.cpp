// SPDX-License-Identifier: MIT
#include "quor/modelView.h"

#include <functional>
#include <memory>
#include <utility>

#include "quor/keys.h"

namespace quor {

namespace {

// Enters a new attribute of class A under its own name.
template <class A, class V>
void AddSetting(SteeringVector* p_pcView, const wxChar* p_sKey, const V& p_Value) {
  p_pcView->AddAttribute(p_sKey, new A(p_sKey, p_Value));
}

// Stores a typed value into a field of class A; false for a field of
// another class.
template <class A, class V>
std::function<bool(Attribute*)> Typed(const V& p_Value) {
  return [p_Value](Attribute* p_pcField) {
    A* l_pcTyped = dynamic_cast<A*>(p_pcField);
    if (l_pcTyped == NULL) return false;
    l_pcTyped->SetValue(p_Value);
    return true;
  };
}

// Stores a text as the value string of a field of any class.
std::function<bool(Attribute*)> Text(const wxString& p_sValue) {
  return [p_sValue](Attribute* p_pcField) {
    p_pcField->SetValueString(p_sValue);
    return true;
  };
}

}  // namespace

ModelView::ModelView(const wxString& p_sName, wxSocketBase* p_pcSocket)
    : SteeringVector(p_pcSocket), m_pcCurveProtoType(NULL) {
  CHECK_POINTER(m_pcAttributeList, return);

  AddSetting<Attribute>(this, keys::VIEW_NAME, p_sName);
  AddSetting<Attribute>(this, keys::VIEW_TITLE, wxString());
  AddSetting<Attribute>(this, keys::X_AXIS_LABEL, wxString());
  AddSetting<Attribute>(this, keys::Y_AXIS_LABEL, wxString());
  AddSetting<AttributeInt>(this, keys::X_AXIS_VAR_TYPE, 0);
  AddSetting<Attribute>(this, keys::X_AXIS_VAR_NAME, wxString());
  AddSetting<AttributeUint>(this, keys::VIEWER_TYPE, 0u);
  AddSetting<AttributeUint>(this, keys::VIEW_MATRIX_TYPE, 0u);
  AddSetting<AttributeInt>(this, keys::DEFAULT_LINE_WIDTH, 2);
  AddSetting<AttributeInt>(this, keys::DEFAULT_LINE_STYLE, 100);
  AddSetting<AttributeBool>(this, keys::SHOW_LEGEND, true);
  AddSetting<AttributeInt>(this, keys::LEGEND_HORIZONTAL_POSITION, 32);
  // The lower-case 'l' is part of the key: peers look it up by this text.
  AddSetting<AttributeInt>(this, keys::LEGEND_VERTICAl_POSITION, 1);
  AddSetting<AttributeBool>(this, keys::FIXED_X_ADJUSTMENT, false);
  AddSetting<AttributeBool>(this, keys::FIXED_Y_ADJUSTMENT, false);
  AddSetting<AttributeDouble>(this, keys::MIN_X_VALUE, 0.0);
  AddSetting<AttributeDouble>(this, keys::MAX_X_VALUE, 1.0);
  AddSetting<AttributeDouble>(this, keys::MIN_Y_VALUE, 0.0);
  AddSetting<AttributeDouble>(this, keys::MAX_Y_VALUE, 1.0);
  AddSetting<AttributeInt>(this, keys::SORT_CURVE_BY, 1);

  // The curve record. Its packed form follows the key order of the field
  // names, not the order in which they are added here.
  m_pcCurveProtoType = new AttributeStruct(keys::CURVE_INFO_PROTOTYPE);
  m_pcCurveProtoType->AddField(new AttributeUlong(keys::CURVE_INDEX, 0));
  m_pcCurveProtoType->AddField(new AttributeInt(keys::CURVE_LINE_WIDTH, 0));
  m_pcCurveProtoType->AddField(new AttributeInt(keys::CURVE_LINE_STYLE, 0));
  m_pcCurveProtoType->AddField(new Attribute(keys::CURVE_NAME, wxT("")));
  m_pcCurveProtoType->AddField(new Attribute(keys::CURVE_COLOR_NAME, wxT("")));
  m_pcCurveProtoType->AddField(new AttributeUint(keys::CURVE_TYPE, 0));
  m_pcCurveProtoType->AddField(new AttributeBool(keys::CURVE_SHOW, false));
  AddSetting<AttributeVectorAttribute>(this, keys::CURVE_INFO,
                                       static_cast<Attribute*>(m_pcCurveProtoType));
}

ModelView::~ModelView() {
  delete m_pcCurveProtoType;
  m_pcCurveProtoType = NULL;
}

Attribute* ModelView::GetAttribute(const wxString& p_sName) {
  if (m_pcAttributeList == NULL) return NULL;
  return (*m_pcAttributeList)[p_sName];
}

wxString ModelView::GetName() { return GetAttributeValueString(keys::VIEW_NAME); }

void ModelView::SetName(const wxString& p_sName) {
  SetAttributeValue(keys::VIEW_NAME, p_sName);
}

wxString ModelView::GetTitle() { return GetAttributeValueString(keys::VIEW_TITLE); }

void ModelView::SetTitle(const wxString& p_sTitle) {
  SetAttributeValue(keys::VIEW_TITLE, p_sTitle);
}

AttributeVectorAttribute* ModelView::GetCurves() {
  return FindAttribute<AttributeVectorAttribute>(keys::CURVE_INFO);
}

void ModelView::AddNewCurve(const unsigned long long& p_nIndex, wxString& p_sName,
                            const int& p_nLineWidth, const int& p_nLineStyle,
                            const RM_ROW_TYPE& p_eCurveType,
                            const wxString& p_sColourName, bool p_bShow) {
  // The copy is ours until the curve list takes it; an unfinished record is
  // freed on the way out.
  std::unique_ptr<Attribute> l_pcCopy(
      m_pcCurveProtoType != NULL ? m_pcCurveProtoType->Clone() : NULL);
  AttributeStruct* l_pcCurve = dynamic_cast<AttributeStruct*>(l_pcCopy.get());
  CHECK_POINTER(l_pcCurve, return);

  const std::pair<const wxChar*, std::function<bool(Attribute*)> > l_aFields[] = {
      {keys::CURVE_INDEX, Typed<AttributeUlong>(p_nIndex)},
      {keys::CURVE_NAME, Text(p_sName)},
      {keys::CURVE_TYPE, Typed<AttributeUint>(static_cast<unsigned int>(p_eCurveType))},
      {keys::CURVE_LINE_WIDTH, Typed<AttributeInt>(p_nLineWidth)},
      {keys::CURVE_LINE_STYLE, Typed<AttributeInt>(p_nLineStyle)},
      {keys::CURVE_COLOR_NAME, Text(p_sColourName)},
      {keys::CURVE_SHOW, Typed<AttributeBool>(p_bShow)}};
  for (const auto& l_cField : l_aFields) {
    Attribute* l_pcAttribute = l_pcCurve->GetField(l_cField.first);
    // A field of the wrong class counts as missing.
    if (l_pcAttribute != NULL && !l_cField.second(l_pcAttribute)) l_pcAttribute = NULL;
    CHECK_POINTER(l_pcAttribute, return);
  }

  AttributeVectorAttribute* l_pcCurves = GetCurves();
  CHECK_POINTER(l_pcCurves, return);
  l_pcCurves->AddElement(l_pcCopy.release());
}

void ModelView::RemoveAllCurves() {
  AttributeVectorAttribute* l_pcCurves = GetCurves();
  if (l_pcCurves != NULL) l_pcCurves->clear();
}

ModelView* ModelView::Clone() {
  CHECK_POINTER(m_pcAttributeList, return NULL);
  std::unique_ptr<ModelView> l_pcCopy(new ModelView(wxT(""), NULL));
  AttributeList& l_rTarget = *l_pcCopy->m_pcAttributeList;

  for (AttributeList::iterator l_itAttribute = m_pcAttributeList->begin();
       l_itAttribute != m_pcAttributeList->end(); ++l_itAttribute) {
    CHECK_POINTER(l_itAttribute->second, return NULL);
    Attribute*& l_rSlot = l_rTarget[l_itAttribute->first];
    delete l_rSlot;  // the copy's default
    l_rSlot = l_itAttribute->second->Clone();
  }

  // A cloned list shares its source's prototype; the copy grows its curves
  // from its own so that it outlives this view.
  AttributeVectorAttribute* l_pcCurves = l_pcCopy->GetCurves();
  if (l_pcCurves != NULL && l_pcCurves->GetProtoType() == m_pcCurveProtoType)
    l_pcCurves->SetProtoType(l_pcCopy->m_pcCurveProtoType);
  return l_pcCopy.release();
}

unsigned int ModelView::SendView(wxSocketBase* p_pcSocket) {
  SetClientSocket(p_pcSocket);
  return SendAttributes();
}

unsigned int ModelView::ReceiveView(wxSocketBase* p_pcSocket) {
  SetClientSocket(p_pcSocket);
  return ReceiveAttributes();
}

unsigned long long ModelView::MemoryOfOne() {
  static const unsigned long long s_nMemory = [] {
    ModelView l_cView(wxT(""), NULL);
    unsigned long long l_nMemory = sizeof(ModelView) + ClonedMemory(l_cView.m_pcCurveProtoType);
    for (AttributeList::value_type& l_cEntry : *l_cView.m_pcAttributeList)
      l_nMemory += ClonedMemory(l_cEntry.second);
    return l_nMemory;
  }();
  return s_nMemory;
}

}  // namespace quor
