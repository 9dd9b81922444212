// SPDX-License-Identifier: MIT
// A list of records of one shape, grown by cloning a prototype that the list
// does not own.
#include "quor/attributeVectorAttribute.h"

#include "quor/attributeStruct.h"
#include "quor/coding.h"
#include "quor/steeringBase.h"

namespace quor {

namespace {

// The fewest bytes an element of the prototype's shape packs into: a
// scalar's width, a record's fields together, a count for a text or a list.
unsigned long long LeastPackedSize(Attribute* p_pcPrototype) {
  if (p_pcPrototype == NULL) return 1;
  switch (p_pcPrototype->GetAttributeType()) {
    case ATTRIBUTE_INT:
    case ATTRIBUTE_UINT:
    case ATTRIBUTE_LONG:
    case ATTRIBUTE_ULONG:
    case ATTRIBUTE_DOUBLE:
    case ATTRIBUTE_BOOL:
      return p_pcPrototype->GetPackungSize();
    case ATTRIBUTE_STRUCT: {
      AttributeMap* l_pcFields = static_cast<AttributeStruct*>(p_pcPrototype)->GetAllFields();
      unsigned long long l_nSize = 0;
      if (l_pcFields != NULL) {
        for (AttributeMap::value_type& l_cField : *l_pcFields)
          l_nSize += LeastPackedSize(l_cField.second);
      }
      return l_nSize != 0 ? l_nSize : 1;
    }
    case ATTRIBUTE_STRING:
    case ATTRIBUTE_VECTOR_DOUBLE:
    case ATTRIBUTE_VECTOR_INT:
    case ATTRIBUTE_VECTOR_ULONG:
    case ATTRIBUTE_VECTOR_STRING:
    case ATTRIBUTE_VECTOR_ATTRIBUTE:
    case ATTRIBUTE_VECTOR_ULONG2ULONG:
    case ATTRIBUTE_TRANSITION_CONNECTION:
      return 4;
    default:
      return 1;
  }
}

// A heap block's bookkeeping, on top of what it holds.
constexpr unsigned long long HEAP_BLOCK_OVERHEAD = 16;

unsigned long long TextMemory(const wxString& p_sText) {
  return (p_sText.length() + 1) * coding::TEXT_CHARACTER_COST + HEAP_BLOCK_OVERHEAD;
}

}  // namespace

unsigned long long ClonedMemory(Attribute* p_pcPrototype) {
  if (p_pcPrototype == NULL) return 0;
  unsigned long long l_nSize = sizeof(AttributeVectorAttribute) + HEAP_BLOCK_OVERHEAD +
                               TextMemory(p_pcPrototype->GetName()) +
                               TextMemory(p_pcPrototype->GetValueString());
  if (p_pcPrototype->GetAttributeType() != ATTRIBUTE_STRUCT) {
    const unsigned int l_nPacked = p_pcPrototype->GetPackungSize();
    return l_nSize + (l_nPacked == FAILURE ? 0 : l_nPacked * coding::TEXT_CHARACTER_COST);
  }
  AttributeMap* l_pcFields = static_cast<AttributeStruct*>(p_pcPrototype)->GetAllFields();
  if (l_pcFields == NULL) return l_nSize;
  l_nSize += sizeof(AttributeMap) + HEAP_BLOCK_OVERHEAD;
  for (AttributeMap::value_type& l_cField : *l_pcFields) {
    l_nSize += sizeof(AttributeMap::value_type) + 4 * sizeof(void*) + HEAP_BLOCK_OVERHEAD +
               TextMemory(l_cField.first) + ClonedMemory(l_cField.second);
  }
  return l_nSize;
}

AttributeVectorAttribute::AttributeVectorAttribute(const wxString& p_sName,
                                                   Attribute* p_pcProtoType)
    : Attribute(p_sName, wxT("")),
      m_pcElements(new std::vector<Attribute*>()),
      m_pcProtoType(p_pcProtoType) {
  m_nType = ATTRIBUTE_VECTOR_ATTRIBUTE;
}

AttributeVectorAttribute::~AttributeVectorAttribute() {
  CHECK_POINTER(m_pcElements, return);
  clear();
  delete m_pcElements;
  m_pcElements = NULL;
}

bool AttributeVectorAttribute::HasNullElement() {
  for (Attribute* l_pcElement : *m_pcElements) {
    CHECK_POINTER(l_pcElement, return true);
  }
  return false;
}

Attribute* AttributeVectorAttribute::ElementToFill(unsigned int p_nIndex) {
  if (p_nIndex >= m_pcElements->size()) resize(p_nIndex + 1);
  if (p_nIndex >= m_pcElements->size()) return NULL;
  return (*m_pcElements)[p_nIndex];
}

unsigned int AttributeVectorAttribute::SendValue(SteeringBase* p_pcCommunicator) {
  CHECK_POINTER(m_pcElements, return FAILURE);
  CHECK_POINTER(p_pcCommunicator, return FAILURE);
  if (HasNullElement()) return FAILURE;

  unsigned long long l_nCount = m_pcElements->size();
  unsigned int l_nResult = p_pcCommunicator->SendValue(&l_nCount, sizeof(l_nCount));
  if (l_nResult != 1) return l_nResult;
  for (Attribute* l_pcElement : *m_pcElements) {
    l_nResult = l_pcElement->SendValue(p_pcCommunicator);
    if (l_nResult != 1) return l_nResult;
  }
  return 1;
}

// The count travels in 64 bits and is cut to 32 bits here, as resize takes
// it.
unsigned int AttributeVectorAttribute::ReceiveValue(SteeringBase* p_pcCommunicator) {
  CHECK_POINTER(m_pcElements, return FAILURE);
  CHECK_POINTER(p_pcCommunicator, return FAILURE);
  if (HasNullElement()) return FAILURE;

  unsigned long long l_nCount = 0;
  unsigned int l_nResult = p_pcCommunicator->ReceiveValue(&l_nCount, sizeof(l_nCount));
  if (l_nResult != 1) return l_nResult;
  const unsigned int l_nSize = static_cast<unsigned int>(l_nCount);
  // The list grows one element at a time as the elements arrive; a count of
  // more elements than the value limit can hold is refused before any.
  TRY_ALLOC(p_pcCommunicator->RequireAffordable(
                coding::Product(l_nSize, ClonedMemory(m_pcProtoType))),
            return FAILURE);
  if (l_nSize < m_pcElements->size()) resize(l_nSize);
  for (unsigned int l_nIndex = 0; l_nIndex < l_nSize; ++l_nIndex) {
    Attribute* l_pcElement = ElementToFill(l_nIndex);
    CHECK_POINTER(l_pcElement, return FAILURE);
    l_nResult = l_pcElement->ReceiveValue(p_pcCommunicator);
    if (l_nResult != 1) return l_nResult;
  }
  return 1;
}

unsigned int AttributeVectorAttribute::GetPackungSize() {
  CHECK_POINTER(m_pcElements, return 0);
  if (HasNullElement()) return FAILURE;
  unsigned int l_nSize = 4;
  for (Attribute* l_pcElement : *m_pcElements) {
    const unsigned int l_nElement = l_pcElement->GetPackungSize();
    if (l_nElement == FAILURE) return FAILURE;
    l_nSize += l_nElement;
  }
  return l_nSize;
}

// Writes nothing when the list cannot be packed, so that it never writes
// more than GetPackungSize() said.
unsigned int AttributeVectorAttribute::PackValue(void* p_pBuffer) {
  CHECK_POINTER(m_pcElements, return 0);
  if (AttributeVectorAttribute::GetPackungSize() == FAILURE) return FAILURE;
  char* l_pBuffer = static_cast<char*>(p_pBuffer);
  unsigned int l_nOffset =
      static_cast<unsigned int>(coding::PutCount(l_pBuffer, m_pcElements->size()) - l_pBuffer);
  for (Attribute* l_pcElement : *m_pcElements) {
    const unsigned int l_nElement = l_pcElement->PackValue(l_pBuffer + l_nOffset);
    if (l_nElement == FAILURE) return FAILURE;
    l_nOffset += l_nElement;
  }
  return l_nOffset;
}

// In a bounded unpack a count that the rest of the block cannot hold (at the
// least packed size of the prototype's shape an element), or whose clones
// would go beyond the memory budget, is refused before the list changes, and
// the walk stops at the first element whose read was refused: the elements
// before it hold their new values, the list has grown up to it.
unsigned int AttributeVectorAttribute::UnPackValue(const void* p_pBuffer) {
  CHECK_POINTER(m_pcElements, return 0);
  if (HasNullElement()) return FAILURE;

  coding::Reader l_cReader(p_pBuffer);
  unsigned int l_nSize = 0;
  if (!l_cReader.GetCount(&l_nSize, LeastPackedSize(m_pcProtoType), ClonedMemory(m_pcProtoType)))
    return l_cReader.Consumed();
  if (l_nSize < m_pcElements->size()) resize(l_nSize);
  for (unsigned int l_nIndex = 0; l_nIndex < l_nSize; ++l_nIndex) {
    Attribute* l_pcElement = ElementToFill(l_nIndex);
    CHECK_POINTER(l_pcElement, return FAILURE);
    const unsigned int l_nElement = l_pcElement->UnPackValue(l_cReader.Position());
    if (l_nElement == FAILURE) return FAILURE;
    l_cReader.Skip(l_nElement);
    if (coding::UnpackRefused()) break;
  }
  return l_cReader.Consumed();
}

Attribute* AttributeVectorAttribute::Clone() {
  CHECK_POINTER(m_pcElements, return NULL);
  AttributeVectorAttribute* l_pcCopy = new AttributeVectorAttribute(m_sName, m_pcProtoType);
  Clone(l_pcCopy);
  for (Attribute* l_pcElement : *m_pcElements) {
    l_pcCopy->AddElement(l_pcElement != NULL ? l_pcElement->Clone() : NULL);
  }
  return l_pcCopy;
}

std::vector<Attribute*>* AttributeVectorAttribute::GetElements() { return m_pcElements; }

void AttributeVectorAttribute::AddElement(Attribute* p_pcElement) {
  CHECK_POINTER(m_pcElements, return);
  m_pcElements->push_back(p_pcElement);
}

void AttributeVectorAttribute::clear() {
  CHECK_POINTER(m_pcElements, return);
  for (Attribute* l_pcElement : *m_pcElements) delete l_pcElement;
  m_pcElements->clear();
}

void AttributeVectorAttribute::resize(const unsigned int& p_nSize) {
  CHECK_POINTER(m_pcElements, return);
  if (p_nSize < m_pcElements->size()) {
    for (size_t l_nIndex = p_nSize; l_nIndex < m_pcElements->size(); ++l_nIndex) {
      delete (*m_pcElements)[l_nIndex];
    }
    m_pcElements->resize(p_nSize);
    return;
  }
  if (p_nSize == m_pcElements->size()) return;
  CHECK_POINTER(m_pcProtoType, return);
  while (m_pcElements->size() < p_nSize) {
    Attribute* l_pcClone = NULL;
    TRY_ALLOC(l_pcClone = m_pcProtoType->Clone(), return);
    CHECK_POINTER(l_pcClone, return);
    TRY_ALLOC(m_pcElements->push_back(l_pcClone), delete l_pcClone; return);
  }
}

unsigned long long AttributeVectorAttribute::size() {
  CHECK_POINTER(m_pcElements, return 0);
  return m_pcElements->size();
}

Attribute* AttributeVectorAttribute::GetElement(const unsigned long long& p_nIndex) {
  CHECK_POINTER(m_pcElements, return NULL);
  if (p_nIndex >= m_pcElements->size()) return NULL;
  return (*m_pcElements)[p_nIndex];
}

}  // namespace quor
