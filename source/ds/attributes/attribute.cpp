// SPDX-License-Identifier: MIT
// The base attribute (a plain string attribute) and the scalar attributes.
//
// Every attribute class reads its packed texts through UnPackText and
// UnPackString below, so that a text is decoded the same way wherever it
// stands in a packed value.
#include "quor/attribute.h"

#include "quor/coding.h"
#include "quor/steeringBase.h"

namespace quor {

Attribute::Attribute(const wxString& p_sName, const wxString& p_sValue)
    : m_sValue(p_sValue), m_nType(ATTRIBUTE_STRING), m_sName(p_sName) {}

Attribute::~Attribute() {}

void Attribute::Clone(Attribute* p_pcAttribute) {
  CHECK_POINTER(p_pcAttribute, return);
  p_pcAttribute->SetValueString(m_sValue);
}

wxString Attribute::GetName() { return m_sName; }

wxString Attribute::GetValueString() { return m_sValue; }

void Attribute::SetValueString(const wxString& p_sValue) {
  if (&p_sValue != &m_sValue) m_sValue = p_sValue;
}

unsigned int Attribute::SendValue(SteeringBase* p_pcCommunicator) {
  CHECK_POINTER(p_pcCommunicator, return FAILURE);
  return p_pcCommunicator->SendString(m_sValue);
}

unsigned int Attribute::ReceiveValue(SteeringBase* p_pcCommunicator) {
  CHECK_POINTER(p_pcCommunicator, return FAILURE);
  return p_pcCommunicator->ReceiveString(m_sValue);
}

unsigned int Attribute::GetPackungSize() {
  return coding::PackedTextSize(m_sValue);
}

unsigned int Attribute::PackValue(void* p_pBuffer) {
  char* l_pEnd = coding::PutText(static_cast<char*>(p_pBuffer), m_sValue);
  return static_cast<unsigned int>(l_pEnd - static_cast<char*>(p_pBuffer));
}

unsigned int Attribute::UnPackValue(const void* p_pBuffer) {
  coding::Reader l_cReader(p_pBuffer);
  UnPackText(l_cReader, &m_sValue);
  return l_cReader.Consumed();
}

Attribute* Attribute::Clone() {
  Attribute* l_pcCopy = new Attribute(m_sName, wxT(""));
  Clone(l_pcCopy);
  return l_pcCopy;
}

unsigned int Attribute::GetAttributeType() { return m_nType; }

// The reader refuses a count that runs past a bounded block before any
// byte of the text is copied.
bool Attribute::UnPackText(coding::Reader& p_cReader, wxString* p_sValue) {
  const char* l_pData = NULL;
  unsigned int l_nCount = 0;
  if (!p_cReader.GetText(&l_pData, &l_nCount)) return false;
  *p_sValue = UnPackString(l_pData, l_nCount);
  return true;
}

// The received bytes are decoded (UTF-8, with one character per byte when
// the bytes are not UTF-8); a zero byte among them ends the text there.
//
// When the text cannot be allocated it is "" ("Error: cannot allocate
// memory" is logged), and the caller still moves past the n bytes.
wxString Attribute::UnPackString(const char* p_pData, const unsigned int& p_nCount) {
  if (p_nCount == 0) return wxT("");
  CHECK_POINTER(p_pData, return wxT(""));

  wxString l_sText;
  TRY_ALLOC(l_sText = coding::DecodeText(p_pData, p_nCount), return wxT(""));
  return l_sText;
}

// Scalars: the value's own bytes, at the width of its type.

template <typename T, unsigned int TypeCode>
unsigned int AttributeScalar<T, TypeCode>::SendValue(SteeringBase* p_pcCommunicator) {
  CHECK_POINTER(p_pcCommunicator, return FAILURE);
  return p_pcCommunicator->SendValue(&m_Value, sizeof(T));
}

// The frame is received into a copy of the value's bytes and decoded from
// there, so that a bool never holds a byte other than 0 or 1. The value ends
// as the transport left those bytes, on success and on failure alike.
template <typename T, unsigned int TypeCode>
unsigned int AttributeScalar<T, TypeCode>::ReceiveValue(SteeringBase* p_pcCommunicator) {
  CHECK_POINTER(p_pcCommunicator, return FAILURE);
  char l_aBytes[sizeof(T)];
  coding::PutFixed(l_aBytes, m_Value);
  const unsigned int l_nResult = p_pcCommunicator->ReceiveValue(l_aBytes, sizeof(T));
  coding::GetFixed(l_aBytes, &m_Value);
  return l_nResult;
}

template <typename T, unsigned int TypeCode>
unsigned int AttributeScalar<T, TypeCode>::GetPackungSize() {
  return sizeof(T);
}

template <typename T, unsigned int TypeCode>
unsigned int AttributeScalar<T, TypeCode>::PackValue(void* p_pBuffer) {
  coding::PutFixed(static_cast<char*>(p_pBuffer), m_Value);
  return sizeof(T);
}

template <typename T, unsigned int TypeCode>
unsigned int AttributeScalar<T, TypeCode>::UnPackValue(const void* p_pBuffer) {
  coding::Reader l_cReader(p_pBuffer);
  l_cReader.Get(&m_Value);
  return l_cReader.Consumed();
}

static_assert(sizeof(int) == 4 && sizeof(unsigned int) == 4, "32-bit int");
static_assert(sizeof(long long) == 8 && sizeof(unsigned long long) == 8, "64-bit long long");
static_assert(sizeof(double) == 8 && sizeof(bool) == 1, "8-byte double, 1-byte bool");

template class AttributeScalar<int, ATTRIBUTE_INT>;
template class AttributeScalar<unsigned int, ATTRIBUTE_UINT>;
template class AttributeScalar<long long, ATTRIBUTE_LONG>;
template class AttributeScalar<unsigned long long, ATTRIBUTE_ULONG>;
template class AttributeScalar<double, ATTRIBUTE_DOUBLE>;
template class AttributeScalar<bool, ATTRIBUTE_BOOL>;

namespace {
// A new scalar of the class of p_pcThis with its name, value and value
// string.
template <typename C>
Attribute* CloneScalar(C* p_pcThis) {
  C* l_pcCopy = new C(p_pcThis->GetName(), p_pcThis->GetValue());
  p_pcThis->Clone(l_pcCopy);
  return l_pcCopy;
}
}  // namespace

AttributeInt::AttributeInt(const wxString& p_sName, const int& p_nValue)
    : AttributeScalar(p_sName, p_nValue) {}
Attribute* AttributeInt::Clone() { return CloneScalar(this); }

AttributeUint::AttributeUint(const wxString& p_sName, const unsigned int& p_nValue)
    : AttributeScalar(p_sName, p_nValue) {}
Attribute* AttributeUint::Clone() { return CloneScalar(this); }

AttributeLong::AttributeLong(const wxString& p_sName, const long long& p_nValue)
    : AttributeScalar(p_sName, p_nValue) {}
Attribute* AttributeLong::Clone() { return CloneScalar(this); }

AttributeUlong::AttributeUlong(const wxString& p_sName, const unsigned long long& p_nValue)
    : AttributeScalar(p_sName, p_nValue) {}
Attribute* AttributeUlong::Clone() { return CloneScalar(this); }

AttributeDouble::AttributeDouble(const wxString& p_sName, const double& p_dValue)
    : AttributeScalar(p_sName, p_dValue) {}
Attribute* AttributeDouble::Clone() { return CloneScalar(this); }

AttributeBool::AttributeBool(const wxString& p_sName, const bool& p_bValue)
    : AttributeScalar(p_sName, p_bValue) {}
Attribute* AttributeBool::Clone() { return CloneScalar(this); }

}  // namespace quor
