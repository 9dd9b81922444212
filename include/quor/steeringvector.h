// A named, owned set of attributes that travels as one message, and the bulk
// transfers (string lists, arrays, matrices of doubles) over the same
// connection.
//
// The set is ordered by wxString's less-than of the keys, and that order is
// the order of the attribute-list message: an 8-byte total, then the packed
// values of all attributes back to back. Both peers build the same schema;
// only the values travel.
#ifndef QUOR_STEERINGVECTOR_H
#define QUOR_STEERINGVECTOR_H

#include <map>
#include <vector>

#include "quor/attribute.h"
#include "quor/steeringBase.h"

namespace quor {

typedef std::map<wxString, Attribute*> AttributeList;

class SteeringVector : public SteeringBase {
 public:
  explicit SteeringVector(wxSocketBase* p_pcSocket);
  // Deletes every attribute of the set.
  ~SteeringVector() override;

  // Typed accessors, in the order of their slots. Each looks the name up
  // through the virtual GetAttribute; a missing name gives false (setters)
  // or the fallback (getters) and leaves a NULL entry under the name. The
  // attribute's class is the caller's contract and is not checked.
  virtual bool SetAttributeValue(const wxString& p_sName, const unsigned int& p_nValue);
  virtual unsigned int GetAttributeValueUInt(const wxString& p_sName);
  virtual bool SetAttributeValue(const wxString& p_sName, const int& p_nValue);
  virtual int GetAttributeValueInt(const wxString& p_sName);
  virtual bool SetAttributeValue(const wxString& p_sName, const double& p_dValue);
  virtual double GetAttributeValueDouble(const wxString& p_sName);
  // The value string of any class (not the typed value).
  virtual bool SetAttributeValue(const wxString& p_sName, const wxString& p_sValue);
  virtual wxString GetAttributeValueString(const wxString& p_sName);
  virtual bool SetAttributeValue(const wxString& p_sName, const long long& p_nValue);
  virtual long long GetAttributeValueLong(const wxString& p_sName);
  virtual bool SetAttributeValue(const wxString& p_sName, const unsigned long long& p_nValue);
  virtual unsigned long long GetAttributeValueULong(const wxString& p_sName);
  virtual bool SetAttributeValue(const wxString& p_sName, const std::vector<wxString>& p_asValue);
  // REQUIRES: the name holds an AttributeVectorString.
  virtual std::vector<wxString>& GetAttributeValueVectorString(const wxString& p_sName);
  virtual bool SetAttributeValue(const wxString& p_sName, const bool& p_bValue);
  // Stores the attribute under the key, taking ownership; an attribute
  // already under the key is replaced and not deleted.
  virtual void AddAttribute(const wxString& p_sName, Attribute* p_pcAttribute);
  // The attribute under the key, or NULL (leaving a NULL entry).
  virtual Attribute* GetAttribute(const wxString& p_sName);
  // The attribute-list message. 1 on success, the failing frame's code, or
  // FAILURE.
  virtual unsigned int SendAttributes();
  virtual unsigned int ReceiveAttributes();

  bool GetAttributeValueBool(const wxString& p_sName);

  // The set itself, in key order.
  AttributeList* GetAttributeList() { return m_pcAttributeList; }

  // Bulk transfers.
  // A 64-bit element count, then (if not 0) count * elementSize bytes as one
  // value.
  unsigned int SendArray(const void* p_pData, const unsigned long long& p_nCount,
                         const int& p_nElementSize);
  // Total bytes (u32), count (u64), 16-bit lengths, then the bytes.
  unsigned int SendVectorString(const std::vector<wxString>& p_asValue);
  unsigned int ReceiveVectorString(std::vector<wxString>& p_asValue);
  // Rows (u64), columns (u64), then rows * columns doubles row by row.
  unsigned int SendVector2D(const std::vector<std::vector<double> >& p_aadValue);
  unsigned int ReceiveVector2D(std::vector<std::vector<double> >& p_aadValue);
  // Builds the sub-matrix of the listed columns and then *receives* into it
  // (and discards it): the operation is kept exactly as the protocol has it.
  unsigned int SendSubVector2D(const std::vector<std::vector<double> >& p_aadValue,
                               const std::vector<long long>& p_anColumns);

 protected:
  AttributeList* m_pcAttributeList;
};

}  // namespace quor

#endif  // QUOR_STEERINGVECTOR_H
