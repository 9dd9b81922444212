// SPDX-License-Identifier: MIT
// Net-structure attributes: the arcs of every transition, and lists of pairs
// of unsigned 64-bit numbers (the position ranges of a coloured net).
#ifndef QUOR_ATTRIBUTETRANSITIONCONNECTION_H
#define QUOR_ATTRIBUTETRANSITIONCONNECTION_H

#include <vector>

#include "quor/export.h"
#include "quor/attribute.h"
#include "quor/netTypes.h"

namespace quor {

// A pair of unsigned 64-bit numbers (for a range: start, end).
struct QUOR_API ULong2ULong {
  unsigned long long first;
  unsigned long long second;
};

// One arc's properties. On the wire 12 bytes: the 32-bit type, then the
// weight, with no gap.
struct QUOR_API PlaceTransitionConnection {
  ConnectionType type;
  double weight;
};

// All arcs of one transition. The pre lists are parallel (entry i of both
// describes one arc), and so are the post lists.
struct QUOR_API Transitions {
  std::vector<unsigned long long> m_anPrePlacePositions;
  std::vector<unsigned long long> m_anPostPlacePositions;
  std::vector<PlaceTransitionConnection> m_acPreConnections;
  std::vector<PlaceTransitionConnection> m_acPostConnections;

  Transitions() = default;
  Transitions(const Transitions& p_cOther) = default;
  Transitions& operator=(const Transitions& p_cOther) = default;
  ~Transitions() = default;
};

// The arcs of a net, one record per transition, type 15. Travels only inside
// an attribute-list message: its own SendValue/ReceiveValue move nothing and
// report success.
class QUOR_API AttributeTransitionConnection : public Attribute {
 public:
  using Attribute::Clone;
  AttributeTransitionConnection(const wxString& p_sName,
                                const unsigned int& p_nTransitionCount);

  unsigned int SendValue(SteeringBase* p_pcCommunicator) override;
  unsigned int ReceiveValue(SteeringBase* p_pcCommunicator) override;
  unsigned int GetPackungSize() override;
  unsigned int PackValue(void* p_pBuffer) override;
  unsigned int UnPackValue(const void* p_pBuffer) override;
  // The clone's value string is empty: only the arcs are copied.
  Attribute* Clone() override;

  virtual void SetValue(const std::vector<Transitions>& p_aValue);
  virtual std::vector<Transitions>& GetValue();

  // One position list: its 32-bit count and the 64-bit positions. Return the
  // bytes written or consumed.
  unsigned int PackVector(void* p_pBuffer, const std::vector<unsigned long long>& p_anList);
  unsigned int PackVectorConnection(void* p_pBuffer,
                                    const std::vector<PlaceTransitionConnection>& p_acList);
  unsigned int UnPackVector(const void* p_pBuffer, std::vector<unsigned long long>& p_anList);
  unsigned int UnPackVectorConnection(const void* p_pBuffer,
                                      std::vector<PlaceTransitionConnection>& p_acList);

 protected:
  std::vector<Transitions> m_aValue;
};

// Pairs of unsigned 64-bit numbers, type 13. A packed count of 0 leaves the
// list as it was. Packed, sent and received by the same rules as the numeric
// lists (a list of 16-byte elements), with which its members are defined in
// attributeVector.cpp.
class QUOR_API AttributeVectorULong2ULong : public Attribute {
 public:
  using Attribute::Clone;
  explicit AttributeVectorULong2ULong(const wxString& p_sName);

  unsigned int SendValue(SteeringBase* p_pcCommunicator) override;
  unsigned int ReceiveValue(SteeringBase* p_pcCommunicator) override;
  unsigned int GetPackungSize() override;
  unsigned int PackValue(void* p_pBuffer) override;
  unsigned int UnPackValue(const void* p_pBuffer) override;
  Attribute* Clone() override;

  virtual std::vector<ULong2ULong>& GetValue();
  virtual void SetValue(const std::vector<ULong2ULong>& p_aValue);
  // Sets pair i; an index past the end is ignored.
  virtual void SetElementValue(const unsigned long long& p_nIndex,
                               const unsigned long long& p_nFirst,
                               const unsigned long long& p_nSecond);
  virtual void AddElement(const unsigned long long& p_nFirst,
                          const unsigned long long& p_nSecond);
  // Reads pair i; for an index past the end the outputs are left as they
  // are.
  virtual void GetElementValue(const unsigned long long& p_nIndex,
                               unsigned long long& p_nFirst,
                               unsigned long long& p_nSecond);
  // n pairs of zeros.
  virtual void assign(const unsigned int& p_nCount);

 protected:
  std::vector<ULong2ULong> m_aValue;
};

}  // namespace quor

#endif  // QUOR_ATTRIBUTETRANSITIONCONNECTION_H
