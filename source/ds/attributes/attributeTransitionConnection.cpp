// SPDX-License-Identifier: MIT
// The arcs of a net: for every transition its pre- and post-places and the
// properties of those arcs. (AttributeVectorULong2ULong, declared with it, is
// a list of fixed-width elements and lives with the other such lists in
// attributeVector.cpp.)
#include "quor/attributeTransitionConnection.h"

#include "quor/coding.h"

#include <cstdint>

namespace quor {

namespace {
// One connection on the wire: the 32-bit type, then the weight, no gap.
constexpr unsigned int PACKED_CONNECTION_SIZE = 4 + 8;
// One record with four empty lists: four counts.
constexpr unsigned int PACKED_EMPTY_RECORD_SIZE = 4 * 4;
}  // namespace

AttributeTransitionConnection::AttributeTransitionConnection(
    const wxString& p_sName, const unsigned int& p_nTransitionCount)
    : Attribute(p_sName, wxT("")), m_aValue(p_nTransitionCount) {
  m_nType = ATTRIBUTE_TRANSITION_CONNECTION;
}

// The arcs travel only inside an attribute-list message.
unsigned int AttributeTransitionConnection::SendValue(SteeringBase*) { return 1; }

unsigned int AttributeTransitionConnection::ReceiveValue(SteeringBase*) { return 1; }

unsigned int AttributeTransitionConnection::GetPackungSize() {
  unsigned int l_nSize = 4;
  for (const Transitions& l_cRecord : m_aValue) {
    l_nSize += PACKED_EMPTY_RECORD_SIZE +
               8 * static_cast<unsigned int>(l_cRecord.m_anPrePlacePositions.size() +
                                             l_cRecord.m_anPostPlacePositions.size()) +
               PACKED_CONNECTION_SIZE *
                   static_cast<unsigned int>(l_cRecord.m_acPreConnections.size() +
                                             l_cRecord.m_acPostConnections.size());
  }
  return l_nSize;
}

unsigned int AttributeTransitionConnection::PackValue(void* p_pBuffer) {
  char* l_pBuffer = static_cast<char*>(p_pBuffer);
  char* l_pPosition = coding::PutCount(l_pBuffer, m_aValue.size());
  for (const Transitions& l_cRecord : m_aValue) {
    l_pPosition += PackVector(l_pPosition, l_cRecord.m_anPrePlacePositions);
    l_pPosition += PackVector(l_pPosition, l_cRecord.m_anPostPlacePositions);
    l_pPosition += PackVectorConnection(l_pPosition, l_cRecord.m_acPreConnections);
    l_pPosition += PackVectorConnection(l_pPosition, l_cRecord.m_acPostConnections);
  }
  return static_cast<unsigned int>(l_pPosition - l_pBuffer);
}

// The records are read into a new list that replaces this one only when all
// of it was read: on a refused read the arcs are unchanged. The count has
// been checked against the bytes already in the block and charged at a
// record's cost, so the list is sized for it at once.
unsigned int AttributeTransitionConnection::UnPackValue(const void* p_pBuffer) {
  coding::Reader l_cReader(p_pBuffer);
  unsigned int l_nCount = 0;
  if (!l_cReader.GetCount(&l_nCount, PACKED_EMPTY_RECORD_SIZE, sizeof(Transitions)))
    return l_cReader.Consumed();
  std::vector<Transitions> l_aValue;
  l_aValue.reserve(l_nCount);
  for (unsigned int l_n = 0; l_n < l_nCount; ++l_n) {
    l_aValue.emplace_back();
    Transitions& l_cRecord = l_aValue.back();
    l_cReader.Skip(UnPackVector(l_cReader.Position(), l_cRecord.m_anPrePlacePositions));
    l_cReader.Skip(UnPackVector(l_cReader.Position(), l_cRecord.m_anPostPlacePositions));
    l_cReader.Skip(UnPackVectorConnection(l_cReader.Position(), l_cRecord.m_acPreConnections));
    l_cReader.Skip(UnPackVectorConnection(l_cReader.Position(), l_cRecord.m_acPostConnections));
    if (coding::UnpackRefused()) return l_cReader.Consumed();
  }
  m_aValue.swap(l_aValue);
  return l_cReader.Consumed();
}

// The copy's value string stays empty: only the arcs are copied.
Attribute* AttributeTransitionConnection::Clone() {
  AttributeTransitionConnection* l_pcCopy = new AttributeTransitionConnection(m_sName, 0);
  l_pcCopy->SetValue(m_aValue);
  return l_pcCopy;
}

void AttributeTransitionConnection::SetValue(const std::vector<Transitions>& p_aValue) {
  if (&p_aValue != &m_aValue) m_aValue = p_aValue;
}

std::vector<Transitions>& AttributeTransitionConnection::GetValue() { return m_aValue; }

unsigned int AttributeTransitionConnection::PackVector(
    void* p_pBuffer, const std::vector<unsigned long long>& p_anList) {
  const char* l_pEnd = coding::PutArray(static_cast<char*>(p_pBuffer), p_anList);
  return static_cast<unsigned int>(l_pEnd - static_cast<char*>(p_pBuffer));
}

unsigned int AttributeTransitionConnection::PackVectorConnection(
    void* p_pBuffer, const std::vector<PlaceTransitionConnection>& p_acList) {
  char* l_pBuffer = static_cast<char*>(p_pBuffer);
  char* l_pPosition = coding::PutCount(l_pBuffer, p_acList.size());
  for (const PlaceTransitionConnection& l_cConnection : p_acList) {
    l_pPosition = coding::PutFixed(l_pPosition, static_cast<int32_t>(l_cConnection.type));
    l_pPosition = coding::PutFixed(l_pPosition, l_cConnection.weight);
  }
  return static_cast<unsigned int>(l_pPosition - l_pBuffer);
}

// The list becomes exactly the positions read (a count of 0 empties it); on
// a refused read it is unchanged.
unsigned int AttributeTransitionConnection::UnPackVector(
    const void* p_pBuffer, std::vector<unsigned long long>& p_anList) {
  coding::Reader l_cReader(p_pBuffer);
  unsigned int l_nCount = 0;
  if (l_cReader.GetCount(&l_nCount, sizeof(unsigned long long), sizeof(unsigned long long))) {
    l_cReader.GetArray(l_nCount, &p_anList);
  }
  return l_cReader.Consumed();
}

// As UnPackVector, with 12-byte connections read field by field.
unsigned int AttributeTransitionConnection::UnPackVectorConnection(
    const void* p_pBuffer, std::vector<PlaceTransitionConnection>& p_acList) {
  coding::Reader l_cReader(p_pBuffer);
  unsigned int l_nCount = 0;
  if (!l_cReader.GetCount(&l_nCount, PACKED_CONNECTION_SIZE, sizeof(PlaceTransitionConnection)))
    return l_cReader.Consumed();
  std::vector<PlaceTransitionConnection> l_acList;
  l_acList.reserve(l_nCount);  // checked against the block and charged, as above
  for (unsigned int l_n = 0; l_n < l_nCount; ++l_n) {
    int32_t l_nType = 0;
    double l_dWeight = 0.0;
    if (!l_cReader.Get(&l_nType) || !l_cReader.Get(&l_dWeight)) return l_cReader.Consumed();
    l_acList.push_back(PlaceTransitionConnection{static_cast<ConnectionType>(l_nType), l_dWeight});
  }
  p_acList.swap(l_acList);
  return l_cReader.Consumed();
}

}  // namespace quor
