// SPDX-License-Identifier: MIT
// A record: named fields, each an attribute, walked in the key order of the
// field names (wxString's less-than). Packed and sent as its fields' values
// back to back, with no count and no names.
//
// A NULL entry in the map (left by GetField of a missing name) makes
// GetPackungSize, PackValue, UnPackValue, SendValue and ReceiveValue return
// FAILURE when the walk reaches it; the fields before it are already done.
// So does a field whose own GetPackungSize, PackValue or UnPackValue returns
// FAILURE (a record inside a record). Clone leaves NULL entries out of the
// copy. In a bounded unpack the walk stops at the first field whose read was
// refused: the fields before it hold their new values, the rest keep theirs.
#ifndef QUOR_ATTRIBUTESTRUCT_H
#define QUOR_ATTRIBUTESTRUCT_H

#include <map>

#include "quor/export.h"
#include "quor/attribute.h"

namespace quor {

typedef std::map<wxString, Attribute*> AttributeMap;

class QUOR_API AttributeStruct : public Attribute {
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

 private:
  // Calls p_fStep(field) for every field in key order until it returns
  // false. FAILURE when the map is missing or the walk meets a NULL field,
  // else 1.
  template <typename F>
  unsigned int ForEachField(F p_fStep);
  // The sum of p_fPart(field, sum so far) over the fields in key order, as
  // ForEachField walks them; FAILURE as soon as a part is FAILURE. The walk
  // stops early when a bounded unpack has refused a read.
  template <typename F>
  unsigned int SumFields(F p_fPart);
  // Sends or receives every field in key order, returning the first result
  // other than 1 at once; 1 when all succeed.
  unsigned int TransferFields(unsigned int (Attribute::*p_pfTransfer)(SteeringBase*),
                              SteeringBase* p_pcCommunicator);
};

}  // namespace quor

#endif  // QUOR_ATTRIBUTESTRUCT_H
