// SPDX-License-Identifier: MIT
// Attributes that hold a list of values of one type.
//
// Packed form: a 32-bit element count, then the elements. Numeric lists are
// sent with SteeringVector::SendArray (a 64-bit count, then the elements as
// one value); string lists with SteeringVector::SendVectorString. Lists are
// sent (and string lists received) only through a SteeringVector: given any
// other SteeringBase, SendValue/ReceiveValue move nothing and return FAILURE.
//
// Unpacking is all or nothing: when a bounded unpack refuses a read, the
// list keeps the elements it had.
#ifndef QUOR_ATTRIBUTEVECTOR_H
#define QUOR_ATTRIBUTEVECTOR_H

#include <vector>

#include "quor/export.h"
#include "quor/attribute.h"

namespace quor {

// Lists of fixed-width numbers share one implementation (attributeVector.cpp,
// instantiated there for the three classes below).
template <typename T, unsigned int TypeCode>
class QUOR_API AttributeVectorNumeric : public Attribute {
 public:
  using Attribute::Clone;

  unsigned int SendValue(SteeringBase* p_pcCommunicator) override;
  unsigned int ReceiveValue(SteeringBase* p_pcCommunicator) override;
  unsigned int GetPackungSize() override;
  unsigned int PackValue(void* p_pBuffer) override;
  // A packed count of 0 leaves the list as it was.
  unsigned int UnPackValue(const void* p_pBuffer) override;

  // The live list; the caller may change it in place.
  virtual std::vector<T>& GetValue() { return m_aValue; }
  virtual void SetValue(const std::vector<T>& p_aValue) {
    if (&p_aValue != &m_aValue) m_aValue = p_aValue;
  }
  virtual void assign(const unsigned int& p_nCount, const T& p_Value) {
    m_aValue.assign(p_nCount, p_Value);
  }

 protected:
  explicit AttributeVectorNumeric(const wxString& p_sName)
      : Attribute(p_sName, wxT("")) {
    m_nType = TypeCode;
  }

  std::vector<T> m_aValue;
};

// Signed 32-bit integers, type 8.
class QUOR_API AttributeVectorInt : public AttributeVectorNumeric<int, ATTRIBUTE_VECTOR_INT> {
 public:
  using Attribute::Clone;
  explicit AttributeVectorInt(const wxString& p_sName);
  Attribute* Clone() override;
};

// Unsigned 64-bit integers, type 10.
class QUOR_API AttributeVectorULong
    : public AttributeVectorNumeric<unsigned long long, ATTRIBUTE_VECTOR_ULONG> {
 public:
  using Attribute::Clone;
  explicit AttributeVectorULong(const wxString& p_sName);
  Attribute* Clone() override;
};

// Doubles, type 7.
class QUOR_API AttributeVectorDouble
    : public AttributeVectorNumeric<double, ATTRIBUTE_VECTOR_DOUBLE> {
 public:
  using Attribute::Clone;
  explicit AttributeVectorDouble(const wxString& p_sName);
  Attribute* Clone() override;
};

// Strings, type 11. Packed: a 32-bit count, then each string as its 32-bit
// character count and that many bytes. A packed count of 0 empties the list.
class QUOR_API AttributeVectorString : public Attribute {
 public:
  using Attribute::Clone;
  explicit AttributeVectorString(const wxString& p_sName);

  unsigned int SendValue(SteeringBase* p_pcCommunicator) override;
  unsigned int ReceiveValue(SteeringBase* p_pcCommunicator) override;
  unsigned int GetPackungSize() override;
  unsigned int PackValue(void* p_pBuffer) override;
  unsigned int UnPackValue(const void* p_pBuffer) override;
  Attribute* Clone() override;

  virtual std::vector<wxString>& GetValue() { return m_aValue; }
  virtual void SetValue(const std::vector<wxString>& p_aValue) {
    if (&p_aValue != &m_aValue) m_aValue = p_aValue;
  }
  virtual void assign(const unsigned int& p_nCount, const wxString& p_sValue) {
    m_aValue.assign(p_nCount, p_sValue);
  }

 protected:
  std::vector<wxString> m_aValue;
};

}  // namespace quor

#endif  // QUOR_ATTRIBUTEVECTOR_H
