// A list of records of one shape, grown by cloning a prototype. The list
// owns its elements but not the prototype.
//
// Packed: a 32-bit count, then each element's packed value. Sent: a 64-bit
// count, then each element's own frames.
#ifndef QUOR_ATTRIBUTEVECTORATTRIBUTE_H
#define QUOR_ATTRIBUTEVECTORATTRIBUTE_H

#include <vector>

#include "quor/attribute.h"

namespace quor {

class AttributeVectorAttribute : public Attribute {
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
  // Grows with clones of the prototype; shrinking cuts the list.
  virtual void resize(const unsigned int& p_nSize);
  virtual unsigned long long size();
  // REQUIRES: p_nIndex < size().
  virtual Attribute* GetElement(const unsigned long long& p_nIndex);

  Attribute* GetProtoType() const { return m_pcProtoType; }
  // Points the list at another prototype (not owned); used by a cloned view
  // so that its curve list grows from its own prototype.
  void SetProtoType(Attribute* p_pcProtoType) { m_pcProtoType = p_pcProtoType; }

 protected:
  std::vector<Attribute*>* m_pcElements;
  Attribute* m_pcProtoType;
};

}  // namespace quor

#endif  // QUOR_ATTRIBUTEVECTORATTRIBUTE_H
