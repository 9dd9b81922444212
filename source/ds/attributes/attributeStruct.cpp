// SPDX-License-Identifier: MIT
// A record of named fields, walked in the key order of their names.
#include "quor/attributeStruct.h"

#include "quor/coding.h"

namespace quor {

AttributeStruct::AttributeStruct(const wxString& p_sName)
    : Attribute(p_sName, wxT("")), m_pcFields(new AttributeMap()) {
  m_nType = ATTRIBUTE_STRUCT;
}

AttributeStruct::~AttributeStruct() {
  CHECK_POINTER(m_pcFields, return);
  for (AttributeMap::iterator l_itAttribute = m_pcFields->begin();
       l_itAttribute != m_pcFields->end(); ++l_itAttribute) {
    delete l_itAttribute->second;
  }
  delete m_pcFields;
  m_pcFields = NULL;
}

template <typename F>
unsigned int AttributeStruct::ForEachField(F p_fStep) {
  CHECK_POINTER(m_pcFields, return FAILURE);
  for (AttributeMap::iterator l_itAttribute = m_pcFields->begin();
       l_itAttribute != m_pcFields->end(); ++l_itAttribute) {
    CHECK_POINTER(l_itAttribute->second, return FAILURE);
    if (!p_fStep(l_itAttribute->second)) break;
  }
  return 1;
}

unsigned int AttributeStruct::TransferFields(
    unsigned int (Attribute::*p_pfTransfer)(SteeringBase*), SteeringBase* p_pcCommunicator) {
  unsigned int l_nResult = 1;
  const unsigned int l_nWalk = ForEachField([&](Attribute* p_pcField) {
    l_nResult = (p_pcField->*p_pfTransfer)(p_pcCommunicator);
    return l_nResult == 1;
  });
  return l_nWalk == 1 ? l_nResult : l_nWalk;
}

unsigned int AttributeStruct::SendValue(SteeringBase* p_pcCommunicator) {
  return TransferFields(&Attribute::SendValue, p_pcCommunicator);
}

unsigned int AttributeStruct::ReceiveValue(SteeringBase* p_pcCommunicator) {
  return TransferFields(&Attribute::ReceiveValue, p_pcCommunicator);
}

template <typename F>
unsigned int AttributeStruct::SumFields(F p_fPart) {
  unsigned int l_nSum = 0;
  const unsigned int l_nWalk = ForEachField([&](Attribute* p_pcField) {
    const unsigned int l_nPart = p_fPart(p_pcField, l_nSum);
    if (l_nPart == FAILURE) {
      l_nSum = FAILURE;
      return false;
    }
    l_nSum += l_nPart;
    return !coding::UnpackRefused();
  });
  return l_nWalk == 1 ? l_nSum : l_nWalk;
}

unsigned int AttributeStruct::GetPackungSize() {
  return SumFields([](Attribute* p_pcField, unsigned int) { return p_pcField->GetPackungSize(); });
}

unsigned int AttributeStruct::PackValue(void* p_pBuffer) {
  char* l_pBuffer = static_cast<char*>(p_pBuffer);
  return SumFields([l_pBuffer](Attribute* p_pcField, unsigned int p_nOffset) {
    return p_pcField->PackValue(l_pBuffer + p_nOffset);
  });
}

unsigned int AttributeStruct::UnPackValue(const void* p_pBuffer) {
  const char* l_pBuffer = static_cast<const char*>(p_pBuffer);
  return SumFields([l_pBuffer](Attribute* p_pcField, unsigned int p_nOffset) {
    return p_pcField->UnPackValue(l_pBuffer + p_nOffset);
  });
}

Attribute* AttributeStruct::Clone() {
  CHECK_POINTER(m_pcFields, return NULL);
  AttributeStruct* l_pcCopy = new AttributeStruct(m_sName);
  Clone(l_pcCopy);
  for (AttributeMap::iterator l_itAttribute = m_pcFields->begin();
       l_itAttribute != m_pcFields->end(); ++l_itAttribute) {
    if (l_itAttribute->second != NULL) l_pcCopy->AddField(l_itAttribute->second->Clone());
  }
  return l_pcCopy;
}

Attribute* AttributeStruct::GetField(const wxString& p_sName) {
  CHECK_POINTER(m_pcFields, return NULL);
  return (*m_pcFields)[p_sName];
}

void AttributeStruct::AddField(Attribute* p_pcField) {
  CHECK_POINTER(p_pcField, return);
  CHECK_POINTER(m_pcFields, return);
  (*m_pcFields)[p_pcField->GetName()] = p_pcField;
}

AttributeMap* AttributeStruct::GetAllFields() { return m_pcFields; }

}  // namespace quor
