// SPDX-License-Identifier: MIT
// Attribute: a value of one fixed type under a name, and the scalar
// attribute classes.
//
// An attribute can send or receive its value on its own through a
// SteeringBase, and write it into or read it from a caller's buffer in the
// packed form that a SteeringVector uses to move a whole set of attributes
// as one block. The packed form holds only the value (no name, no type code,
// no padding): the receiver must already hold an attribute of the same class.
#ifndef QUOR_ATTRIBUTE_H
#define QUOR_ATTRIBUTE_H

#include <wx/string.h>

#include "quor/export.h"
#include "quor/utilities.h"

namespace quor {

class SteeringBase;
namespace coding {
class Reader;
}

// Type codes returned by GetAttributeType(). Code 9 belongs to no class.
enum AttributeTypeCode : unsigned int {
  ATTRIBUTE_STRING = 0,
  ATTRIBUTE_INT = 1,
  ATTRIBUTE_UINT = 2,
  ATTRIBUTE_LONG = 3,
  ATTRIBUTE_ULONG = 4,
  ATTRIBUTE_DOUBLE = 5,
  ATTRIBUTE_BOOL = 6,
  ATTRIBUTE_VECTOR_DOUBLE = 7,
  ATTRIBUTE_VECTOR_INT = 8,
  ATTRIBUTE_VECTOR_ULONG = 10,
  ATTRIBUTE_VECTOR_STRING = 11,
  ATTRIBUTE_VECTOR_ATTRIBUTE = 12,
  ATTRIBUTE_VECTOR_ULONG2ULONG = 13,
  ATTRIBUTE_STRUCT = 14,
  ATTRIBUTE_TRANSITION_CONNECTION = 15
};

// The base class, usable on its own as a string-valued attribute (type 0).
// The order of the virtual operations below is part of the binary
// interface; subclasses append theirs behind GetAttributeType.
class QUOR_API Attribute {
 public:
  // Name first, value string second.
  Attribute(const wxString& p_sName, const wxString& p_sValue);

  // Copies this attribute's value string into p_pcAttribute through its
  // SetValueString.
  virtual void Clone(Attribute* p_pcAttribute);
  // Decodes n bytes (not zero-terminated) as received text (UTF-8 with a
  // byte-wise fallback). Logs "Error: cannot allocate memory" and returns
  // "" when the copy cannot be allocated.
  virtual wxString UnPackString(const char* p_pData, const unsigned int& p_nCount);
  virtual ~Attribute();
  virtual wxString GetName();
  virtual wxString GetValueString();
  virtual void SetValueString(const wxString& p_sValue);
  virtual unsigned int SendValue(SteeringBase* p_pcCommunicator);
  virtual unsigned int ReceiveValue(SteeringBase* p_pcCommunicator);
  // Bytes that PackValue writes.
  virtual unsigned int GetPackungSize();
  // REQUIRES: p_pBuffer has GetPackungSize() bytes. Returns bytes written.
  virtual unsigned int PackValue(void* p_pBuffer);
  // Reads a packed value; returns bytes consumed. Trusts the buffer unless a
  // bounded unpack is in progress on this thread (see coding.h).
  virtual unsigned int UnPackValue(const void* p_pBuffer);
  // A new attribute of the same class, owned by the caller.
  virtual Attribute* Clone();
  virtual unsigned int GetAttributeType();

 protected:
  // Reads one packed text through the reader and decodes it with
  // UnPackString. False (and *p_sValue unchanged) when the reader refuses.
  bool UnPackText(coding::Reader& p_cReader, wxString* p_sValue);

  wxString m_sValue;
  unsigned int m_nType;
  wxString m_sName;

 private:
  Attribute(const Attribute&) = delete;
  Attribute& operator=(const Attribute&) = delete;
};

// The scalar classes share one implementation and differ only by value type,
// width (the size of the value type) and type code. Their members are
// defined in attribute.cpp and instantiated there for the six classes below.
template <typename T, unsigned int TypeCode>
class QUOR_API AttributeScalar : public Attribute {
 public:
  using Attribute::Clone;

  unsigned int SendValue(SteeringBase* p_pcCommunicator) override;
  unsigned int ReceiveValue(SteeringBase* p_pcCommunicator) override;
  unsigned int GetPackungSize() override;
  unsigned int PackValue(void* p_pBuffer) override;
  unsigned int UnPackValue(const void* p_pBuffer) override;

  virtual T GetValue() { return m_Value; }
  virtual void SetValue(const T& p_Value) { m_Value = p_Value; }

 protected:
  AttributeScalar(const wxString& p_sName, const T& p_Value)
      : Attribute(p_sName, wxT("")), m_Value(p_Value) {
    m_nType = TypeCode;
  }

  T m_Value;
};

// Signed 32-bit integer, 4 bytes, type 1.
class QUOR_API AttributeInt : public AttributeScalar<int, ATTRIBUTE_INT> {
 public:
  using Attribute::Clone;
  AttributeInt(const wxString& p_sName, const int& p_nValue);
  Attribute* Clone() override;
};

// Unsigned 32-bit integer, 4 bytes, type 2.
class QUOR_API AttributeUint : public AttributeScalar<unsigned int, ATTRIBUTE_UINT> {
 public:
  using Attribute::Clone;
  AttributeUint(const wxString& p_sName, const unsigned int& p_nValue);
  Attribute* Clone() override;
};

// Signed 64-bit integer, 8 bytes, type 3.
class QUOR_API AttributeLong : public AttributeScalar<long long, ATTRIBUTE_LONG> {
 public:
  using Attribute::Clone;
  AttributeLong(const wxString& p_sName, const long long& p_nValue);
  Attribute* Clone() override;
};

// Unsigned 64-bit integer, 8 bytes, type 4.
class QUOR_API AttributeUlong : public AttributeScalar<unsigned long long, ATTRIBUTE_ULONG> {
 public:
  using Attribute::Clone;
  AttributeUlong(const wxString& p_sName, const unsigned long long& p_nValue);
  Attribute* Clone() override;
};

// IEEE 754 double, 8 bytes, type 5.
class QUOR_API AttributeDouble : public AttributeScalar<double, ATTRIBUTE_DOUBLE> {
 public:
  using Attribute::Clone;
  AttributeDouble(const wxString& p_sName, const double& p_dValue);
  Attribute* Clone() override;
};

// bool, 1 byte (0 or 1), type 6. A byte other than 0 that is unpacked or
// received reads as true.
class QUOR_API AttributeBool : public AttributeScalar<bool, ATTRIBUTE_BOOL> {
 public:
  using Attribute::Clone;
  AttributeBool(const wxString& p_sName, const bool& p_bValue);
  Attribute* Clone() override;
};

}  // namespace quor

#endif  // QUOR_ATTRIBUTE_H
