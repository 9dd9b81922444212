// SPDX-License-Identifier: MIT
#include "quor/simulatorattribute.h"

#include <memory>

#include "quor/attributeVector.h"
#include "quor/attributeVectorAttribute.h"
#include "quor/keys.h"
#include "quor/steeringBase.h"

namespace quor {

namespace {

// Entry p_nIndex, or NULL when the index is at or past the end.
AttributeStruct* Entry(const std::vector<AttributeStruct*>& p_apcList,
                       const unsigned int& p_nIndex) {
  return p_nIndex < p_apcList.size() ? p_apcList[p_nIndex] : NULL;
}

// The six scalar fields of a settings record, found by name and checked for
// their classes. Every record is a clone of the prototype, so a record that
// lacks one is not ours and is left alone.
struct SettingFields {
  Attribute* m_pcName = NULL;
  Attribute* m_pcCaption = NULL;
  Attribute* m_pcValue = NULL;
  AttributeUint* m_pcGuiType = NULL;
  AttributeDouble* m_pcMinValue = NULL;
  AttributeDouble* m_pcMaxValue = NULL;

  bool Find(AttributeStruct* p_pcRecord) {
    m_pcName = p_pcRecord->GetField(keys::SETTING_NAME);
    m_pcCaption = p_pcRecord->GetField(keys::SETTING_CAPTION);
    m_pcValue = p_pcRecord->GetField(keys::SETTING_VALUE);
    m_pcGuiType = dynamic_cast<AttributeUint*>(p_pcRecord->GetField(keys::SETTING_GUI_TYPE));
    m_pcMinValue = dynamic_cast<AttributeDouble*>(p_pcRecord->GetField(keys::SETTING_MIN_VALUE));
    m_pcMaxValue = dynamic_cast<AttributeDouble*>(p_pcRecord->GetField(keys::SETTING_MAX_VALUE));
    return m_pcName && m_pcCaption && m_pcValue && m_pcGuiType && m_pcMinValue &&
           m_pcMaxValue;
  }

  // REQUIRES: Find succeeded.
  void Write(const wxString& p_sName, const wxString& p_sCaption, const wxString& p_sValue,
             const unsigned int& p_nGuiType, const double& p_dMinValue,
             const double& p_dMaxValue) {
    m_pcName->SetValueString(p_sName);
    m_pcCaption->SetValueString(p_sCaption);
    m_pcValue->SetValueString(p_sValue);
    m_pcGuiType->SetValue(p_nGuiType);
    m_pcMinValue->SetValue(p_dMinValue);
    m_pcMaxValue->SetValue(p_dMaxValue);
  }
};

// The fields of entry p_nIndex; false for an index at or past the end.
bool FindEntry(const std::vector<AttributeStruct*>& p_apcList, const unsigned int& p_nIndex,
               SettingFields* p_pcFields) {
  AttributeStruct* l_pcAttribute = Entry(p_apcList, p_nIndex);
  CHECK_POINTER(l_pcAttribute, return false);
  return p_pcFields->Find(l_pcAttribute);
}

// The list of possible values of a record, or NULL.
AttributeVectorString* PossibleValues(AttributeStruct* p_pcRecord) {
  if (p_pcRecord == NULL) return NULL;
  return dynamic_cast<AttributeVectorString*>(p_pcRecord->GetField(keys::SETTING_POSSIBLE_VALUES));
}

}  // namespace

SimulatorAttribute::SimulatorAttribute()
    : m_pcProtoType(new AttributeStruct(keys::SETTING_PROTOTYPE)) {
  // Entries are packed and sent in the key order of these names.
  m_pcProtoType->AddField(new Attribute(keys::SETTING_NAME, wxT("")));
  m_pcProtoType->AddField(new Attribute(keys::SETTING_CAPTION, wxT("")));
  m_pcProtoType->AddField(new Attribute(keys::SETTING_VALUE, wxT("")));
  m_pcProtoType->AddField(new AttributeUint(keys::SETTING_GUI_TYPE, 0));
  m_pcProtoType->AddField(new AttributeDouble(keys::SETTING_MIN_VALUE, 0.0));
  m_pcProtoType->AddField(new AttributeDouble(keys::SETTING_MAX_VALUE, 0.0));
  m_pcProtoType->AddField(new AttributeVectorString(keys::SETTING_POSSIBLE_VALUES));
}

SimulatorAttribute::~SimulatorAttribute() {
  delete m_pcProtoType;
  m_pcProtoType = NULL;
  Clear();
}

bool SimulatorAttribute::AddAttribute(const wxString& p_sName, const wxString& p_sCaption,
                                      const wxString& p_sValue,
                                      const unsigned int& p_nGuiType,
                                      const double& p_dMinValue,
                                      const double& p_dMaxValue) {
  CHECK_POINTER(m_pcProtoType, return false);
  std::unique_ptr<Attribute> l_pcCopy(m_pcProtoType->Clone());
  AttributeStruct* l_pcEntry = dynamic_cast<AttributeStruct*>(l_pcCopy.get());
  SettingFields l_cFields;
  if (l_pcEntry == NULL || !l_cFields.Find(l_pcEntry)) return false;
  l_cFields.Write(p_sName, p_sCaption, p_sValue, p_nGuiType, p_dMinValue, p_dMaxValue);
  m_apcSimulatorAttributes.push_back(l_pcEntry);
  l_pcCopy.release();
  return true;
}

bool SimulatorAttribute::GetAttribute(const unsigned int& p_nIndex, wxString& p_sName,
                                      wxString& p_sCaption, wxString& p_sValue,
                                      unsigned int& p_nGuiType, double& p_dMinValue,
                                      double& p_dMaxValue) {
  SettingFields l_cFields;
  if (!FindEntry(m_apcSimulatorAttributes, p_nIndex, &l_cFields)) return false;
  p_sName = l_cFields.m_pcName->GetValueString();
  p_sCaption = l_cFields.m_pcCaption->GetValueString();
  p_sValue = l_cFields.m_pcValue->GetValueString();
  p_nGuiType = l_cFields.m_pcGuiType->GetValue();
  p_dMinValue = l_cFields.m_pcMinValue->GetValue();
  p_dMaxValue = l_cFields.m_pcMaxValue->GetValue();
  return true;
}

bool SimulatorAttribute::UpdateAttribute(const unsigned int& p_nIndex, wxString& p_sName,
                                         wxString& p_sCaption, wxString& p_sValue,
                                         unsigned int& p_nGuiType, double& p_dMinValue,
                                         double& p_dMaxValue) {
  SettingFields l_cFields;
  if (!FindEntry(m_apcSimulatorAttributes, p_nIndex, &l_cFields)) return false;
  l_cFields.Write(p_sName, p_sCaption, p_sValue, p_nGuiType, p_dMinValue, p_dMaxValue);
  return true;
}

unsigned long long SimulatorAttribute::size() { return m_apcSimulatorAttributes.size(); }

unsigned int SimulatorAttribute::SendAttributes(SteeringBase* p_pcCommunicator) {
  CHECK_POINTER(p_pcCommunicator, return FAILURE);
  const unsigned int l_nCount = static_cast<unsigned int>(m_apcSimulatorAttributes.size());
  unsigned int l_nResult = p_pcCommunicator->SendValue(&l_nCount, sizeof(l_nCount));
  if (l_nResult != 1) return l_nResult;
  for (unsigned int l_n = 0; l_n < l_nCount; ++l_n) {
    AttributeStruct* l_pcAttribute = m_apcSimulatorAttributes[l_n];
    CHECK_POINTER(l_pcAttribute, return FAILURE);
    l_nResult = l_pcAttribute->SendValue(p_pcCommunicator);
    if (l_nResult != 1) return l_nResult;
  }
  return 1;
}

unsigned int SimulatorAttribute::ReceiveAttributes(SteeringBase* p_pcCommunicator) {
  CHECK_POINTER(m_pcProtoType, return FAILURE);
  CHECK_POINTER(p_pcCommunicator, return FAILURE);
  Clear();

  unsigned int l_nCount = 0;
  unsigned int l_nResult = p_pcCommunicator->ReceiveValue(&l_nCount, sizeof(l_nCount));
  if (l_nResult != 1) return l_nResult;
  // The count comes from the peer: the list grows one received entry at a
  // time and is never sized by the count alone; more entries than the value
  // limit can hold are refused before the first.
  TRY_ALLOC(p_pcCommunicator->RequireAffordable(
                coding::Product(l_nCount, ClonedMemory(m_pcProtoType))),
            return FAILURE);
  for (unsigned int l_n = 0; l_n < l_nCount; ++l_n) {
    std::unique_ptr<Attribute> l_pcCopy;
    TRY_ALLOC(l_pcCopy.reset(m_pcProtoType->Clone()), return FAILURE);
    AttributeStruct* l_pcEntry = dynamic_cast<AttributeStruct*>(l_pcCopy.get());
    CHECK_POINTER(l_pcEntry, return FAILURE);
    l_nResult = l_pcEntry->ReceiveValue(p_pcCommunicator);
    if (l_nResult != 1) return l_nResult;
    TRY_ALLOC(m_apcSimulatorAttributes.push_back(l_pcEntry), return FAILURE);
    l_pcCopy.release();
  }
  return 1;
}

void SimulatorAttribute::SetPossibleValues(const unsigned int& p_nIndex,
                                           const std::vector<wxString>& p_asValues) {
  AttributeVectorString* l_pcPossibleValues =
      PossibleValues(Entry(m_apcSimulatorAttributes, p_nIndex));
  CHECK_POINTER(l_pcPossibleValues, return);
  l_pcPossibleValues->SetValue(p_asValues);
}

std::vector<wxString> SimulatorAttribute::GetPossibleValues(const unsigned int& p_nIndex) {
  AttributeVectorString* l_pcPossibleValues =
      PossibleValues(Entry(m_apcSimulatorAttributes, p_nIndex));
  if (l_pcPossibleValues == NULL) return std::vector<wxString>();
  return l_pcPossibleValues->GetValue();
}

void SimulatorAttribute::Clear() {
  for (AttributeStruct* l_pcEntry : m_apcSimulatorAttributes) delete l_pcEntry;
  m_apcSimulatorAttributes.clear();
}

}  // namespace quor
