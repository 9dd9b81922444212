// SPDX-License-Identifier: MIT
// Attributes that hold a list: the numeric lists, the pair list and the
// string list.
//
// A list of fixed-width elements (numbers, pairs of numbers) is packed as a
// 32-bit count and the elements' bytes, and sent with
// SteeringVector::SendArray as a 64-bit count and the elements as one value.
// The numeric lists and AttributeVectorULong2ULong differ only by element
// type, so they share the list rules below.
#include "quor/attributeVector.h"

#include "quor/attributeTransitionConnection.h"
#include "quor/coding.h"
#include "quor/steeringvector.h"

namespace quor {

namespace {

// The list as a SteeringVector::SendArray: the 64-bit count, then (if not 0)
// the elements as one value. Lists are sent only through a SteeringVector;
// any other SteeringBase (or none) gives FAILURE and moves no byte.
template <typename T>
unsigned int SendFixedList(SteeringBase* p_pcCommunicator, const std::vector<T>& p_aList) {
  SteeringVector* l_pcVector = dynamic_cast<SteeringVector*>(p_pcCommunicator);
  CHECK_POINTER(l_pcVector, return FAILURE);
  return l_pcVector->SendArray(p_aList.empty() ? NULL : p_aList.data(), p_aList.size(),
                               sizeof(T));
}

// The mirror of SendFixedList (SteeringBase::ReceiveArray): the list is
// emptied first; a count that cannot be received gives FAILURE (not the
// transport's code); a count of 0 leaves the list empty and gives 1;
// otherwise the elements are received straight into the list once they have
// arrived. A count whose elements would not fit one value, or would cost
// more than the communicator's value limit, is refused with "Error: cannot
// allocate memory" and FAILURE before anything is sized by it.
template <typename T>
unsigned int ReceiveFixedList(SteeringBase* p_pcCommunicator, std::vector<T>& p_aList) {
  CHECK_POINTER(p_pcCommunicator, return FAILURE);
  return p_pcCommunicator->ReceiveArray(p_aList);
}

// A packed count of 0 leaves the list as it was; any other count replaces
// it. On a refused read the list is unchanged.
template <typename T>
unsigned int UnPackFixedList(const void* p_pBuffer, std::vector<T>& p_aList) {
  coding::Reader l_cReader(p_pBuffer);
  unsigned int l_nCount = 0;
  if (l_cReader.GetCount(&l_nCount, sizeof(T), sizeof(T)) && l_nCount != 0) {
    l_cReader.GetArray(l_nCount, &p_aList);
  }
  return l_cReader.Consumed();
}

// The count and the elements; returns the bytes written.
template <typename T>
unsigned int PackFixedList(void* p_pBuffer, const std::vector<T>& p_aList) {
  const char* l_pEnd = coding::PutArray(static_cast<char*>(p_pBuffer), p_aList);
  return static_cast<unsigned int>(l_pEnd - static_cast<char*>(p_pBuffer));
}

// A new list of the class of p_pcThis with its name, value string and a copy
// of its elements.
template <typename C>
Attribute* CloneList(C* p_pcThis) {
  C* l_pcCopy = new C(p_pcThis->GetName());
  p_pcThis->Clone(l_pcCopy);
  l_pcCopy->SetValue(p_pcThis->GetValue());
  return l_pcCopy;
}

}  // namespace

// Numeric lists.

template <typename T, unsigned int TypeCode>
unsigned int AttributeVectorNumeric<T, TypeCode>::SendValue(SteeringBase* p_pcCommunicator) {
  return SendFixedList(p_pcCommunicator, m_aValue);
}

template <typename T, unsigned int TypeCode>
unsigned int AttributeVectorNumeric<T, TypeCode>::ReceiveValue(SteeringBase* p_pcCommunicator) {
  return ReceiveFixedList(p_pcCommunicator, m_aValue);
}

template <typename T, unsigned int TypeCode>
unsigned int AttributeVectorNumeric<T, TypeCode>::GetPackungSize() {
  return coding::PackedArraySize(m_aValue);
}

template <typename T, unsigned int TypeCode>
unsigned int AttributeVectorNumeric<T, TypeCode>::PackValue(void* p_pBuffer) {
  return PackFixedList(p_pBuffer, m_aValue);
}

template <typename T, unsigned int TypeCode>
unsigned int AttributeVectorNumeric<T, TypeCode>::UnPackValue(const void* p_pBuffer) {
  return UnPackFixedList(p_pBuffer, m_aValue);
}

template class AttributeVectorNumeric<int, ATTRIBUTE_VECTOR_INT>;
template class AttributeVectorNumeric<unsigned long long, ATTRIBUTE_VECTOR_ULONG>;
template class AttributeVectorNumeric<double, ATTRIBUTE_VECTOR_DOUBLE>;

AttributeVectorInt::AttributeVectorInt(const wxString& p_sName) : AttributeVectorNumeric(p_sName) {}
Attribute* AttributeVectorInt::Clone() { return CloneList(this); }

AttributeVectorULong::AttributeVectorULong(const wxString& p_sName)
    : AttributeVectorNumeric(p_sName) {}
Attribute* AttributeVectorULong::Clone() { return CloneList(this); }

AttributeVectorDouble::AttributeVectorDouble(const wxString& p_sName)
    : AttributeVectorNumeric(p_sName) {}
Attribute* AttributeVectorDouble::Clone() { return CloneList(this); }

// Pairs of unsigned 64-bit numbers: 16 bytes each, first then second.

static_assert(sizeof(ULong2ULong) == 16, "a pair is two 8-byte numbers with no gap");

AttributeVectorULong2ULong::AttributeVectorULong2ULong(const wxString& p_sName)
    : Attribute(p_sName, wxT("")) {
  m_nType = ATTRIBUTE_VECTOR_ULONG2ULONG;
}

unsigned int AttributeVectorULong2ULong::SendValue(SteeringBase* p_pcCommunicator) {
  return SendFixedList(p_pcCommunicator, m_aValue);
}

unsigned int AttributeVectorULong2ULong::ReceiveValue(SteeringBase* p_pcCommunicator) {
  return ReceiveFixedList(p_pcCommunicator, m_aValue);
}

unsigned int AttributeVectorULong2ULong::GetPackungSize() {
  return coding::PackedArraySize(m_aValue);
}

unsigned int AttributeVectorULong2ULong::PackValue(void* p_pBuffer) {
  return PackFixedList(p_pBuffer, m_aValue);
}

unsigned int AttributeVectorULong2ULong::UnPackValue(const void* p_pBuffer) {
  return UnPackFixedList(p_pBuffer, m_aValue);
}

Attribute* AttributeVectorULong2ULong::Clone() { return CloneList(this); }

std::vector<ULong2ULong>& AttributeVectorULong2ULong::GetValue() { return m_aValue; }

void AttributeVectorULong2ULong::SetValue(const std::vector<ULong2ULong>& p_aValue) {
  if (&p_aValue != &m_aValue) m_aValue = p_aValue;
}

void AttributeVectorULong2ULong::SetElementValue(const unsigned long long& p_nIndex,
                                                 const unsigned long long& p_nFirst,
                                                 const unsigned long long& p_nSecond) {
  if (p_nIndex >= m_aValue.size()) return;
  m_aValue[p_nIndex].first = p_nFirst;
  m_aValue[p_nIndex].second = p_nSecond;
}

void AttributeVectorULong2ULong::AddElement(const unsigned long long& p_nFirst,
                                            const unsigned long long& p_nSecond) {
  m_aValue.push_back(ULong2ULong{p_nFirst, p_nSecond});
}

void AttributeVectorULong2ULong::GetElementValue(const unsigned long long& p_nIndex,
                                                 unsigned long long& p_nFirst,
                                                 unsigned long long& p_nSecond) {
  if (p_nIndex >= m_aValue.size()) return;
  p_nFirst = m_aValue[p_nIndex].first;
  p_nSecond = m_aValue[p_nIndex].second;
}

void AttributeVectorULong2ULong::assign(const unsigned int& p_nCount) {
  m_aValue.assign(p_nCount, ULong2ULong{0, 0});
}

// Strings: a 32-bit count, then each string as a packed text.

AttributeVectorString::AttributeVectorString(const wxString& p_sName)
    : Attribute(p_sName, wxT("")) {
  m_nType = ATTRIBUTE_VECTOR_STRING;
}

unsigned int AttributeVectorString::SendValue(SteeringBase* p_pcCommunicator) {
  SteeringVector* l_pcVector = dynamic_cast<SteeringVector*>(p_pcCommunicator);
  CHECK_POINTER(l_pcVector, return FAILURE);
  return l_pcVector->SendVectorString(m_aValue);
}

unsigned int AttributeVectorString::ReceiveValue(SteeringBase* p_pcCommunicator) {
  SteeringVector* l_pcVector = dynamic_cast<SteeringVector*>(p_pcCommunicator);
  CHECK_POINTER(l_pcVector, return FAILURE);
  return l_pcVector->ReceiveVectorString(m_aValue);
}

unsigned int AttributeVectorString::GetPackungSize() {
  unsigned int l_nSize = 4;
  for (const wxString& l_sValue : m_aValue) l_nSize += coding::PackedTextSize(l_sValue);
  return l_nSize;
}

unsigned int AttributeVectorString::PackValue(void* p_pBuffer) {
  char* l_pPosition = coding::PutCount(static_cast<char*>(p_pBuffer), m_aValue.size());
  for (const wxString& l_sValue : m_aValue) l_pPosition = coding::PutText(l_pPosition, l_sValue);
  return static_cast<unsigned int>(l_pPosition - static_cast<char*>(p_pBuffer));
}

// A count of 0 empties the list. The strings are decoded into a new list
// that replaces this one only when every string was read: on a refused read
// the list is unchanged. The count has been checked against the bytes
// already in the block and charged at a string's cost, so the list is sized
// for it at once.
unsigned int AttributeVectorString::UnPackValue(const void* p_pBuffer) {
  coding::Reader l_cReader(p_pBuffer);
  unsigned int l_nCount = 0;
  if (!l_cReader.GetCount(&l_nCount, 4, coding::TEXT_COST)) return l_cReader.Consumed();
  std::vector<wxString> l_asValue;
  l_asValue.reserve(l_nCount);
  for (unsigned int l_n = 0; l_n < l_nCount; ++l_n) {
    wxString l_sValue;
    if (!UnPackText(l_cReader, &l_sValue)) return l_cReader.Consumed();
    l_asValue.push_back(l_sValue);
  }
  m_aValue.swap(l_asValue);
  return l_cReader.Consumed();
}

Attribute* AttributeVectorString::Clone() { return CloneList(this); }

}  // namespace quor
