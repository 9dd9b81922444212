// SPDX-License-Identifier: MIT
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

#include <cstdint>
#include <map>
#include <vector>

#include "quor/export.h"
#include "quor/attribute.h"
#include "quor/steeringBase.h"

namespace quor {

typedef std::map<wxString, Attribute*> AttributeList;

// The most rows (of a matrix) or strings (of a string list) that a receive
// accepts from a peer. A count costs the peer eight bytes (the rows may be
// empty, the strings too), but the receiver one bookkeeping record per
// entry; a larger count is refused as an allocation failure before anything
// is sized by it.
constexpr unsigned long long MAX_RECEIVED_ROWS = 1ull << 24;
// The most rows of a matrix without columns: such rows cost the receiver a
// row each while the peer sends nothing for them (a simulation that has just
// started has one empty row per place).
constexpr unsigned long long MAX_RECEIVED_EMPTY_ROWS = 1ull << 20;

class QUOR_API SteeringVector : public SteeringBase {
 public:
  explicit SteeringVector(wxSocketBase* p_pcSocket);
  // Deletes every attribute of the set.
  ~SteeringVector() override;

  // Typed accessors, in the order of their slots. Each looks the name up
  // through the virtual GetAttribute; a missing name gives false (setters)
  // or the fallback (getters) and leaves a NULL entry under the name. An
  // attribute of another class than the accessor's is treated like a
  // missing one: it is left untouched and the fallback is returned.
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
  // The live list of the AttributeVectorString under the name. Without one
  // (a caller error): an empty scratch list of this thread, emptied on
  // every such call.
  virtual std::vector<wxString>& GetAttributeValueVectorString(const wxString& p_sName);
  virtual bool SetAttributeValue(const wxString& p_sName, const bool& p_bValue);
  // Stores the attribute under the key, taking ownership; an attribute
  // already under the key is replaced and not deleted.
  virtual void AddAttribute(const wxString& p_sName, Attribute* p_pcAttribute);
  // The attribute under the key, or NULL (leaving a NULL entry).
  virtual Attribute* GetAttribute(const wxString& p_sName);
  // The attribute-list message (SteeringBase::SendBlock/ReceiveBlock). 1 on
  // success, the failing frame's code, or FAILURE. Entries without an
  // attribute are skipped on both sides. SendAttributes packs the whole
  // block before the first frame, so a set that cannot be packed (a record
  // with a missing field) or that does not fit one frame leaves nothing
  // half-sent. ReceiveAttributes unpacks inside the bounds of the received
  // block and stops with FAILURE at the first attribute that would read past
  // its end; the attributes before it keep their new values. Bytes after the
  // last attribute are ignored. What the attributes build from the block
  // (texts, lists, records) is bounded by the value limit: beyond it,
  // "Error: cannot allocate memory" and FAILURE.
  virtual unsigned int SendAttributes();
  virtual unsigned int ReceiveAttributes();

  bool GetAttributeValueBool(const wxString& p_sName);

  // The walk of ReceiveAttributes over a received block: each attribute
  // unpacks where the one before it stopped, in key order. False when an
  // attribute was refused (it read past the block, or what it built went
  // beyond the budget). REQUIRES: an UnpackBounds scope over the block
  // (SteeringBase::UnpackBlock opens one); without one the block is trusted
  // as UnPackValue trusts its buffer.
  bool UnPackAttributes(const char* p_pBlock, unsigned long long p_nSize);

  // The set itself, in key order.
  AttributeList* GetAttributeList() { return m_pcAttributeList; }

  // The attribute under the key if it is of class T, else NULL. Unlike
  // GetAttribute and the typed accessors, a missing key leaves nothing
  // behind: the set is not changed.
  template <typename T = Attribute>
  T* FindAttribute(const wxString& p_sName) const {
    if (m_pcAttributeList == NULL) return NULL;
    AttributeList::const_iterator l_it = m_pcAttributeList->find(p_sName);
    return l_it == m_pcAttributeList->end() ? NULL : dynamic_cast<T*>(l_it->second);
  }
  // The value of the attribute under the key if it is of class T, else
  // p_Fallback; the set is not changed. For the scalar classes and the
  // lists (T::GetValue()).
  template <typename T, typename V>
  V FindValue(const wxString& p_sName, const V& p_Fallback) const {
    T* l_pcAttribute = FindAttribute<T>(p_sName);
    return l_pcAttribute == NULL ? p_Fallback : static_cast<V>(l_pcAttribute->GetValue());
  }

  // Bulk transfers. Every size a peer announces is checked before anything
  // is sized by it.
  //
  // A 64-bit element count, then (if not 0) count * elementSize bytes as one
  // value. A negative element size, or elements that cannot travel as one
  // frame, give FAILURE before anything is sent.
  unsigned int SendArray(const void* p_pData, const unsigned long long& p_nCount,
                         const int& p_nElementSize);
  // Total bytes (u32), count (u64), 16-bit lengths, then the bytes. A text
  // of 32768 characters or more cannot be told in 16 bits: the list is
  // refused with FAILURE before anything is sent.
  unsigned int SendVectorString(const std::vector<wxString>& p_asValue);
  // Receives the whole message before judging it: lengths that are negative
  // or run past the received text give FAILURE with the caller's list as it
  // was. Text left after the last string is ignored. More than
  // MAX_RECEIVED_ROWS strings, or a list that would cost more than the value
  // limit, give "cannot allocate memory" and FAILURE before anything is
  // sized.
  unsigned int ReceiveVectorString(std::vector<wxString>& p_asValue);
  // The last step of ReceiveVectorString: the strings of the received
  // lengths and text, decoded into p_asValue (replacing its list) when the
  // lengths are not negative and fit the p_nTotal bytes of text; else
  // FAILURE with p_asValue unchanged.
  static unsigned int DecodeVectorString(const std::vector<int16_t>& p_anLengths,
                                         const char* p_pText, unsigned long long p_nTotal,
                                         std::vector<wxString>& p_asValue);
  // Rows (u64), columns (u64), then rows * columns doubles row by row. The
  // columns are the first row's length: longer rows are cut to it, shorter
  // rows padded with 0.0. Once the sizes are sent the result is 1 whatever
  // the sends report; a matrix whose values cannot travel as one frame
  // gives "cannot allocate memory" and FAILURE before anything is sent.
  unsigned int SendVector2D(const std::vector<std::vector<double> >& p_aadValue);
  // More than MAX_RECEIVED_ROWS rows (MAX_RECEIVED_EMPTY_ROWS without
  // columns), values that cannot travel as one frame, or a matrix that would
  // cost more than the value limit give "cannot allocate memory" and FAILURE
  // before the caller's matrix is touched. The values inflate straight into
  // the caller's rows as they arrive (the matrix is resized once the first
  // values are here); a row that cannot be sized gives "Cannot resize
  // vector." and FAILURE, with the rest of the frame still read.
  unsigned int ReceiveVector2D(std::vector<std::vector<double> >& p_aadValue);
  // Builds the sub-matrix of the listed columns and then *receives* into it
  // (and discards it): the operation is kept exactly as the protocol has it.
  // A column index outside a row gives FAILURE before anything is received.
  unsigned int SendSubVector2D(const std::vector<std::vector<double> >& p_aadValue,
                               const std::vector<long long>& p_anColumns);

 protected:
  AttributeList* m_pcAttributeList;
};

}  // namespace quor

#endif  // QUOR_STEERINGVECTOR_H
