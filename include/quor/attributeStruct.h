// A record: named fields, each an attribute, walked in the key order of the
// field names (wxString's less-than). Packed and sent as its fields' values
// back to back, with no count and no names.
#ifndef QUOR_ATTRIBUTESTRUCT_H
#define QUOR_ATTRIBUTESTRUCT_H

#include <map>

#include "quor/attribute.h"

namespace quor {

typedef std::map<wxString, Attribute*> AttributeMap;

class AttributeStruct : public Attribute {
 public:
  using Attribute::Clone;
  explicit AttributeStruct(const wxString& p_sName);
  ~AttributeStruct() override;

  unsigned int SendValue(SteeringBase* p_pcCommunicator) override;
  unsigned int ReceiveValue(SteeringBase* p_pcCommunicator) override;
  unsigned int GetPackungSize() override;
  unsigned int PackValue(void* p_pBuffer) override;
  unsigned int UnPackValue(const void* p_pBuffer) override;
  Attribute* Clone() override;

  // The field under the name; a missing name yields NULL and leaves a NULL
  // entry under that name.
  virtual Attribute* GetField(const wxString& p_sName);
  // Stores the field under its own name, taking ownership. A field already
  // stored under that name is replaced and not deleted.
  virtual void AddField(Attribute* p_pcField);
  // The record's own map; the caller may walk and change it.
  virtual AttributeMap* GetAllFields();

 protected:
  AttributeMap* m_pcFields;
};

}  // namespace quor

#endif  // QUOR_ATTRIBUTESTRUCT_H
