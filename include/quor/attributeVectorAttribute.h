// SPDX-License-Identifier: MIT
// A list of records of one shape, grown by cloning a prototype. The list
// owns its elements but not the prototype.
//
// Packed: a 32-bit count, then each element's packed value. Sent: a 64-bit
// count, then each element's own frames.
//
// Unpacking and receiving reuse the elements the list has and clone the
// prototype for each further element only when its value is about to be
// read, so that a count that a peer announced costs memory only as far as
// values for it arrive.
//
// A list that cannot be packed returns FAILURE from GetPackungSize,
// PackValue and UnPackValue, as a record does: when an element is NULL, when
// an element's own operation returns FAILURE (a record with a NULL field), or
// when the list cannot grow to the count it read (no prototype). PackValue
// then writes nothing; SendValue and ReceiveValue of a list with a NULL
// element return FAILURE before anything moves. (Without its element vector
// the list returns 0 from the three.)
#ifndef QUOR_ATTRIBUTEVECTORATTRIBUTE_H
#define QUOR_ATTRIBUTEVECTORATTRIBUTE_H

#include <vector>

#include "quor/export.h"
#include "quor/attribute.h"

namespace quor {

class QUOR_API AttributeVectorAttribute : public Attribute {
 public:
  using Attribute::Clone;
  AttributeVectorAttribute(const wxString& p_sName, Attribute* p_pcProtoType);
  ~AttributeVectorAttribute() override;

  unsigned int SendValue(SteeringBase* p_pcCommunicator) override;
  unsigned int ReceiveValue(SteeringBase* p_pcCommunicator) override;
  unsigned int GetPackungSize() override;
  unsigned int PackValue(void* p_pBuffer) override;
  unsigned int UnPackValue(const void* p_pBuffer) override;
  // Shares the prototype with this list.
  Attribute* Clone() override;

  virtual std::vector<Attribute*>* GetElements();
  // Appends, taking ownership.
  virtual void AddElement(Attribute* p_pcElement);
  // Deletes every element.
  virtual void clear();
  // Grows with clones of the prototype (stopping early when there is no
  // prototype or a clone fails); shrinking cuts the list and deletes the
  // elements cut off.
  virtual void resize(const unsigned int& p_nSize);
  virtual unsigned long long size();
  // Element i, or NULL when i is past the end.
  virtual Attribute* GetElement(const unsigned long long& p_nIndex);

  Attribute* GetProtoType() const { return m_pcProtoType; }
  // Points the list at another prototype (not owned); used by a cloned view
  // so that its curve list grows from its own prototype.
  void SetProtoType(Attribute* p_pcProtoType) { m_pcProtoType = p_pcProtoType; }

 protected:
  std::vector<Attribute*>* m_pcElements;
  Attribute* m_pcProtoType;

 private:
  // True (after a null-pointer report) when an element is NULL.
  bool HasNullElement();
  // Element i for a value about to be read: grows the list with resize to
  // hold it when needed. NULL when it cannot be had.
  Attribute* ElementToFill(unsigned int p_nIndex);
};

// About what one clone of p_pcAttribute costs in memory: the object and its
// two texts, a record's fields each with its entry and key in the record's
// map, and a list's values. Lists of records charge it for every element
// that a received count announces before they clone anything.
QUOR_API unsigned long long ClonedMemory(Attribute* p_pcAttribute);

}  // namespace quor

#endif  // QUOR_ATTRIBUTEVECTORATTRIBUTE_H
