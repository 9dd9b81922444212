// SPDX-License-Identifier: MIT
#include "quor/steeringvector.h"

#include "quor/attributeVector.h"
#include "quor/coding.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace quor {

namespace {

// The longest text a string list can carry: its length travels as a signed
// 16-bit number.
constexpr size_t MAX_LISTED_TEXT = 0x7FFF;

// p_nCount elements of p_nWidth bytes as the length of one frame; an
// impossible size throws std::bad_alloc, so that inside TRY_ALLOC it takes
// the ordinary allocation-failure path.
unsigned int FrameLengthOrThrow(unsigned long long p_nCount, unsigned long long p_nWidth) {
  unsigned int l_nLength = 0;
  if (!coding::FrameLength(p_nCount, p_nWidth, &l_nLength)) throw std::bad_alloc();
  return l_nLength;
}

// The bytes of a matrix of doubles as one frame; throws like
// FrameLengthOrThrow.
unsigned int MatrixLengthOrThrow(unsigned long long p_nRows, unsigned long long p_nColumns) {
  return FrameLengthOrThrow(FrameLengthOrThrow(p_nRows, p_nColumns), sizeof(double));
}

// A peer-announced number of rows or strings, refused with std::bad_alloc
// above p_nMost.
unsigned long long ReceivedRows(unsigned long long p_nCount,
                                unsigned long long p_nMost = MAX_RECEIVED_ROWS) {
  if (p_nCount > p_nMost) throw std::bad_alloc();
  return p_nCount;
}

// A zeroed block of p_nSize bytes (NewBlock's limits apply), for a block
// that is sent: bytes that packing leaves alone go out as zeros, never as
// earlier heap contents.
std::unique_ptr<char[]> NewZeroedBlock(unsigned long long p_nSize) {
  std::unique_ptr<char[]> l_cBlock(NewBlock(p_nSize));
  std::memset(l_cBlock.get(), 0, static_cast<size_t>(p_nSize));
  return l_cBlock;
}

// Runs a statement that resizes a list. If it cannot allocate: logs
// p_sText at level 1, drops the try report and yields false.
template <typename F>
bool TryResize(F p_fResize, const wxChar* p_sText) {
  try {
    p_fResize();
    return true;
  } catch (const std::bad_alloc&) {
    LOG(1, p_sText);
    QUOR_TRY_REPORT("return FAILURE");
    return false;
  }
}

// The attribute under the name if it is of class T, else NULL (a missing
// name leaves its NULL entry, as every lookup does).
template <typename T>
T* Lookup(SteeringVector* p_pcSet, const wxString& p_sName) {
  return dynamic_cast<T*>(p_pcSet->GetAttribute(p_sName));
}

// The typed accessors. A name without an attribute of class T gives the
// fallback after the report for "l_pcAttribute"; the getters' action texts
// ("return 0" or "return false") are part of the interface, whatever the
// getter returns.
template <typename T, typename V>
bool SetTyped(SteeringVector* p_pcSet, const wxString& p_sName, const V& p_Value) {
  T* l_pcAttribute = Lookup<T>(p_pcSet, p_sName);
  CHECK_POINTER(l_pcAttribute, return false);
  l_pcAttribute->SetValue(p_Value);
  return true;
}

template <typename T>
auto GetTypedOr0(SteeringVector* p_pcSet, const wxString& p_sName)
    -> decltype(Lookup<T>(p_pcSet, p_sName)->GetValue()) {
  T* l_pcAttribute = Lookup<T>(p_pcSet, p_sName);
  CHECK_POINTER(l_pcAttribute, return 0);
  return l_pcAttribute->GetValue();
}

template <typename T>
auto GetTypedOrFalse(SteeringVector* p_pcSet, const wxString& p_sName)
    -> decltype(Lookup<T>(p_pcSet, p_sName)->GetValue()) {
  T* l_pcAttribute = Lookup<T>(p_pcSet, p_sName);
  CHECK_POINTER(l_pcAttribute, return false);
  return l_pcAttribute->GetValue();
}

}  // namespace

SteeringVector::SteeringVector(wxSocketBase* p_pcSocket)
    : SteeringBase(p_pcSocket), m_pcAttributeList(new AttributeList) {}

SteeringVector::~SteeringVector() {
  CHECK_POINTER(m_pcAttributeList, return);
  for (AttributeList::value_type& l_cEntry : *m_pcAttributeList)
    delete l_cEntry.second;
  delete m_pcAttributeList;
  m_pcAttributeList = NULL;
}

bool SteeringVector::SetAttributeValue(const wxString& p_sName, const unsigned int& p_nValue) {
  return SetTyped<AttributeUint>(this, p_sName, p_nValue);
}

unsigned int SteeringVector::GetAttributeValueUInt(const wxString& p_sName) {
  return GetTypedOr0<AttributeUint>(this, p_sName);
}

bool SteeringVector::SetAttributeValue(const wxString& p_sName, const int& p_nValue) {
  return SetTyped<AttributeInt>(this, p_sName, p_nValue);
}

int SteeringVector::GetAttributeValueInt(const wxString& p_sName) {
  return GetTypedOr0<AttributeInt>(this, p_sName);
}

bool SteeringVector::SetAttributeValue(const wxString& p_sName, const double& p_dValue) {
  return SetTyped<AttributeDouble>(this, p_sName, p_dValue);
}

double SteeringVector::GetAttributeValueDouble(const wxString& p_sName) {
  return GetTypedOrFalse<AttributeDouble>(this, p_sName);
}

// The string pair works on the value string of any class.
bool SteeringVector::SetAttributeValue(const wxString& p_sName, const wxString& p_sValue) {
  Attribute* l_pcAttribute = GetAttribute(p_sName);
  CHECK_POINTER(l_pcAttribute, return false);
  l_pcAttribute->SetValueString(p_sValue);
  return true;
}

wxString SteeringVector::GetAttributeValueString(const wxString& p_sName) {
  Attribute* l_pcAttribute = GetAttribute(p_sName);
  CHECK_POINTER(l_pcAttribute, return wxString(wxT("")));
  return l_pcAttribute->GetValueString();
}

bool SteeringVector::SetAttributeValue(const wxString& p_sName, const long long& p_nValue) {
  return SetTyped<AttributeLong>(this, p_sName, p_nValue);
}

long long SteeringVector::GetAttributeValueLong(const wxString& p_sName) {
  return GetTypedOr0<AttributeLong>(this, p_sName);
}

bool SteeringVector::SetAttributeValue(const wxString& p_sName,
                                       const unsigned long long& p_nValue) {
  return SetTyped<AttributeUlong>(this, p_sName, p_nValue);
}

unsigned long long SteeringVector::GetAttributeValueULong(const wxString& p_sName) {
  return GetTypedOrFalse<AttributeUlong>(this, p_sName);
}

bool SteeringVector::SetAttributeValue(const wxString& p_sName,
                                       const std::vector<wxString>& p_asValue) {
  return SetTyped<AttributeVectorString>(this, p_sName, p_asValue);
}

std::vector<wxString>& SteeringVector::GetAttributeValueVectorString(
    const wxString& p_sName) {
  AttributeVectorString* l_pcAttribute = Lookup<AttributeVectorString>(this, p_sName);
  if (l_pcAttribute != NULL) return l_pcAttribute->GetValue();
  // No string list under the name: a scratch list of this thread, emptied
  // on every such call, so that the caller gets an empty list to read (or
  // even write) instead of a reference to nothing.
  static thread_local std::vector<wxString> t_asNoList;
  t_asNoList.clear();
  return t_asNoList;
}

bool SteeringVector::SetAttributeValue(const wxString& p_sName, const bool& p_bValue) {
  return SetTyped<AttributeBool>(this, p_sName, p_bValue);
}

bool SteeringVector::GetAttributeValueBool(const wxString& p_sName) {
  return GetTypedOr0<AttributeBool>(this, p_sName);
}

void SteeringVector::AddAttribute(const wxString& p_sName, Attribute* p_pcAttribute) {
  (*m_pcAttributeList)[p_sName] = p_pcAttribute;
}

Attribute* SteeringVector::GetAttribute(const wxString& p_sName) {
  CHECK_POINTER(m_pcAttributeList, return NULL);
  Attribute* l_pcAttribute = (*m_pcAttributeList)[p_sName];
  CHECK_POINTER(l_pcAttribute, return NULL);
  return l_pcAttribute;
}

// The attribute-list message: the total (8 bytes), then the packed values in
// key order as one value. Entries without an attribute (left by lookups of
// missing names) carry no value and are skipped on both sides.
//
// The block is measured, allocated and packed before the first frame goes
// out, so that a set that cannot be packed leaves nothing half-sent.
unsigned int SteeringVector::SendAttributes() {
  CHECK_POINTER(m_pcAttributeList, return FAILURE);

  unsigned long long l_nTotal = 0;
  for (AttributeList::value_type& l_cEntry : *m_pcAttributeList) {
    if (l_cEntry.second == NULL) continue;
    const unsigned int l_nSize = l_cEntry.second->GetPackungSize();
    // A record with a missing field reports FAILURE as its size.
    if (l_nSize == FAILURE) return FAILURE;
    l_nTotal += l_nSize;
  }

  std::unique_ptr<char[]> l_cBlock;
  TRY_ALLOC(l_cBlock = NewZeroedBlock(FrameLengthOrThrow(l_nTotal, 1)),
            return FAILURE);

  unsigned long long l_nOffset = 0;
  for (AttributeList::value_type& l_cEntry : *m_pcAttributeList) {
    if (l_cEntry.second == NULL) continue;
    const unsigned int l_nWritten = l_cEntry.second->PackValue(l_cBlock.get() + l_nOffset);
    if (l_nWritten > l_nTotal - l_nOffset) return FAILURE;
    l_nOffset += l_nWritten;
  }
  if (l_nOffset != l_nTotal) return FAILURE;

  return SendBlock(l_cBlock.get(), l_nTotal);
}

unsigned int SteeringVector::ReceiveAttributes() {
  return ReceiveBlock([this](const char* p_pBlock, unsigned long long p_nSize) {
    return UnPackAttributes(p_pBlock, p_nSize);
  });
}

// The attributes unpack inside the block's bounds, and the walk stops at the
// first attribute that would read past its end (the attributes before it
// hold their new values, that one and the ones after it their old values).
// Bytes left over after the last attribute are ignored.
bool SteeringVector::UnPackAttributes(const char* p_pBlock, unsigned long long p_nSize) {
  CHECK_POINTER(m_pcAttributeList, return false);
  unsigned long long l_nOffset = 0;
  for (AttributeList::value_type& l_cEntry : *m_pcAttributeList) {
    if (l_cEntry.second == NULL) continue;
    const unsigned int l_nRead = l_cEntry.second->UnPackValue(p_pBlock + l_nOffset);
    if (coding::UnpackRefused() || l_nRead > p_nSize - l_nOffset) return false;
    l_nOffset += l_nRead;
  }
  return true;
}

// Bulk transfers.

unsigned int SteeringVector::SendArray(const void* p_pData,
                                       const unsigned long long& p_nCount,
                                       const int& p_nElementSize) {
  // Elements that cannot travel as one frame are refused before the count
  // goes out.
  unsigned int l_nLength = 0;
  if (p_nElementSize < 0 ||
      !coding::FrameLength(p_nCount, static_cast<unsigned long long>(p_nElementSize), &l_nLength))
    return FAILURE;

  const unsigned long long l_nCount = p_nCount;
  unsigned int l_nResult = SendValue(&l_nCount, sizeof(l_nCount));
  if (l_nResult != 1 || l_nCount == 0) return l_nResult;
  return SendValue(p_pData, l_nLength);
}

// A list holding a text longer than MAX_LISTED_TEXT characters cannot be
// told in 16-bit lengths; it is refused with FAILURE before anything is
// sent.
unsigned int SteeringVector::SendVectorString(const std::vector<wxString>& p_asValue) {
  const unsigned long long l_nCount = p_asValue.size();
  std::vector<int16_t> l_anLengths;
  if (!TryResize([&] { l_anLengths.resize(l_nCount); }, wxT("cannot resize the vector")))
    return FAILURE;

  unsigned long long l_nTotal = 0;
  for (size_t i = 0; i < p_asValue.size(); ++i) {
    const size_t l_nLength = p_asValue[i].length();
    if (l_nLength > MAX_LISTED_TEXT) return FAILURE;
    l_anLengths[i] = static_cast<int16_t>(l_nLength);
    l_nTotal += l_nLength;
  }
  unsigned int l_nLengthsSize = 0;
  if (!coding::FrameLength(l_nCount, sizeof(int16_t), &l_nLengthsSize)) return FAILURE;

  std::unique_ptr<char[]> l_cBlock;
  TRY_ALLOC(l_cBlock = NewZeroedBlock(FrameLengthOrThrow(l_nTotal, 1)), return FAILURE);
  char* l_pNext = l_cBlock.get();
  for (const wxString& l_sText : p_asValue)
    l_pNext = coding::PutCharCountBytes(l_pNext, l_sText, wxConvLibc);

  const unsigned int l_nTotal32 = static_cast<unsigned int>(l_nTotal);
  unsigned int l_nResult = SendValue(&l_nTotal32, sizeof(l_nTotal32));
  if (l_nResult != 1) return l_nResult;
  l_nResult = SendValue(&l_nCount, sizeof(l_nCount));
  if (l_nResult != 1) return l_nResult;
  if (l_nCount != 0) {
    l_nResult = SendValue(l_anLengths.data(), l_nLengthsSize);
    if (l_nResult != 1) return l_nResult;
  }
  l_nResult = SendValue(l_cBlock.get(), l_nTotal32);
  if (l_nResult != 1) return l_nResult;
  return 1;
}

// Every frame of the message is received before the lengths are judged, so
// that a list whose lengths run past its text (or are negative) is refused
// with FAILURE with the connection still in step and the caller's list as it
// was. More than MAX_RECEIVED_ROWS strings, or a list that would cost more
// than the value limit (its lengths, its text, and a wxString for each entry
// holding its text decoded), are refused as an allocation failure before
// anything is sized; the lengths and the text are allocated only once they
// have arrived.
unsigned int SteeringVector::ReceiveVectorString(std::vector<wxString>& p_asValue) {
  unsigned int l_nTotal = 0;
  unsigned int l_nResult = ReceiveValue(&l_nTotal, sizeof(l_nTotal));
  if (l_nResult != 1) return l_nResult;

  unsigned long long l_nCount = 0;
  if (ReceiveValue(&l_nCount, sizeof(l_nCount)) != 1) return FAILURE;
  unsigned int l_nLengthsSize = 0;
  TRY_ALLOC(l_nLengthsSize = AffordableFrame(ReceivedRows(l_nCount), sizeof(int16_t));
            RequireAffordable(coding::Product(l_nCount, sizeof(int16_t) + coding::TEXT_COST) +
                              l_nTotal + coding::Product(l_nTotal, coding::TEXT_CHARACTER_COST)),
            return FAILURE);

  std::vector<int16_t> l_anLengths;
  if (l_nCount != 0) {
    l_nResult = ReceiveValueInto(l_nLengthsSize, [&](unsigned int) {
      l_anLengths.resize(l_nCount);
      return reinterpret_cast<char*>(l_anLengths.data());
    });
    if (l_nResult != 1) return NoMemoryIsFailure(l_nResult);
  }

  std::unique_ptr<char[]> l_cText;
  l_nResult = ReceiveValueInto(l_nTotal, [&](unsigned int p_nSize) {
    l_cText.reset(new char[p_nSize != 0 ? p_nSize : 1]);
    return l_cText.get();
  });
  if (l_nResult != 1) return NoMemoryIsFailure(l_nResult);
  return DecodeVectorString(l_anLengths, l_cText.get(), l_nTotal, p_asValue);
}

unsigned int SteeringVector::DecodeVectorString(const std::vector<int16_t>& p_anLengths,
                                                const char* p_pText, unsigned long long p_nTotal,
                                                std::vector<wxString>& p_asValue) {
  unsigned long long l_nNeeded = 0;
  for (int16_t l_nLength : p_anLengths) {
    if (l_nLength < 0) return FAILURE;
    l_nNeeded += static_cast<unsigned long long>(l_nLength);
  }
  if (l_nNeeded > p_nTotal) return FAILURE;

  std::vector<wxString> l_asValue;
  TRY_ALLOC(l_asValue.reserve(p_anLengths.size());
            const char* l_pNext = p_pText;
            for (int16_t l_nLength : p_anLengths) {
              l_asValue.push_back(coding::DecodeText(l_pNext, static_cast<size_t>(l_nLength)));
              l_pNext += l_nLength;
            },
            return FAILURE);
  p_asValue.swap(l_asValue);
  return 1;
}

// A row shorter than the first is sent padded with 0.0, so that the peer
// always gets rows * columns values. A matrix whose values cannot travel as
// one frame (or cannot be allocated) is refused with "cannot allocate
// memory" and FAILURE before anything is sent. Once the sizes are out, the
// result is 1 whatever the sends report. The rows are copied once into one
// block, which is compressed as it is (only the padding of short rows is
// written as zeros); a matrix of one row is sent from the row itself.
unsigned int SteeringVector::SendVector2D(const std::vector<std::vector<double> >& p_aadValue) {
  const unsigned long long l_nRows = p_aadValue.size();
  const unsigned long long l_nColumns = p_aadValue.empty() ? 0 : p_aadValue[0].size();

  unsigned int l_nLength = 0;
  std::unique_ptr<char[]> l_cBlock;
  const char* l_pValues = NULL;
  TRY_ALLOC(l_nLength = MatrixLengthOrThrow(l_nRows, l_nColumns), return FAILURE);
  if (l_nRows == 1) {
    l_pValues = reinterpret_cast<const char*>(p_aadValue[0].data());
  } else {
    TRY_ALLOC(l_cBlock.reset(NewBlock(l_nLength != 0 ? l_nLength : 1)), return FAILURE);
    char* l_pNext = l_cBlock.get();
    for (const std::vector<double>& l_adRow : p_aadValue) {
      const size_t l_nTaken = l_adRow.size() < l_nColumns ? l_adRow.size() : l_nColumns;
      if (l_nTaken != 0) std::memcpy(l_pNext, l_adRow.data(), l_nTaken * sizeof(double));
      if (l_nTaken < l_nColumns)
        std::memset(l_pNext + l_nTaken * sizeof(double), 0,
                    (l_nColumns - l_nTaken) * sizeof(double));
      l_pNext += l_nColumns * sizeof(double);
    }
    l_pValues = l_cBlock.get();
  }

  SendValue(&l_nRows, sizeof(l_nRows));
  SendValue(&l_nColumns, sizeof(l_nColumns));
  SendValue(l_pValues, l_nLength);
  return 1;
}

// Rows and columns come from the peer. More than MAX_RECEIVED_ROWS rows (or
// more than MAX_RECEIVED_EMPTY_ROWS rows without columns), values that
// cannot travel as one frame, or a matrix that would cost more than the
// value limit (its rows and their values) are refused with "cannot allocate
// memory" and FAILURE before anything is sized. The values are received
// straight into the caller's rows: the matrix is resized to its rows once
// the first values have arrived, and each row is sized as the values reach
// it, so that the receiver holds the matrix and one piece of the stream,
// and a peer that announces rows and sends nothing changes nothing. After a
// frame that fails in the middle, the matrix has its new size and partly
// old contents.
unsigned int SteeringVector::ReceiveVector2D(std::vector<std::vector<double> >& p_aadValue) {
  unsigned long long l_nRows = 0;
  unsigned int l_nResult = ReceiveValue(&l_nRows, sizeof(l_nRows));
  if (l_nResult != 1) return l_nResult;
  unsigned long long l_nColumns = 0;
  l_nResult = ReceiveValue(&l_nColumns, sizeof(l_nColumns));
  if (l_nResult != 1) return l_nResult;

  unsigned int l_nLength = 0;
  TRY_ALLOC(ReceivedRows(l_nRows, l_nColumns == 0 ? MAX_RECEIVED_EMPTY_ROWS : MAX_RECEIVED_ROWS);
            l_nLength = MatrixLengthOrThrow(l_nRows, l_nColumns);
            RequireAffordable(coding::Product(l_nRows, sizeof(std::vector<double>)) + l_nLength),
            return FAILURE);

  auto l_fResize = [&]() {
    return TryResize([&] { p_aadValue.resize(l_nRows); }, wxT("Cannot resize vector."));
  };
  if (l_nLength == 0) {
    // No values: an empty frame, then rows without columns (or no rows).
    l_nResult = ReceiveValue(NULL, 0);
    if (l_nResult != 1) return l_nResult;
    if (!l_fResize()) return FAILURE;
    for (std::vector<double>& l_adRow : p_aadValue) l_adRow.clear();
    return 1;
  }
  const unsigned int l_nRowBytes = static_cast<unsigned int>(l_nColumns * sizeof(double));
  return ReceiveValueInParts(l_nLength, l_nRowBytes, [&](unsigned long long p_nRow) -> char* {
    if (p_nRow == 0 && !l_fResize()) return NULL;
    std::vector<double>& l_adRow = p_aadValue[p_nRow];
    if (!TryResize([&] { l_adRow.assign(l_nColumns, 0.0); }, wxT("Cannot resize vector.")))
      return NULL;
    return reinterpret_cast<char*>(l_adRow.data());
  });
}

// Builds the sub-matrix of the listed columns and then receives a matrix
// from the peer into it, discarding it: the operation is kept as the
// protocol has it. A column index outside a row is refused with FAILURE
// before anything is received.
unsigned int SteeringVector::SendSubVector2D(const std::vector<std::vector<double> >& p_aadValue,
                                             const std::vector<long long>& p_anColumns) {
  std::vector<std::vector<double> > l_aadSub;
  TRY_ALLOC(l_aadSub.resize(p_aadValue.size()), return FAILURE);
  for (size_t i = 0; i < p_aadValue.size(); ++i) {
    const std::vector<double>& l_adRow = p_aadValue[i];
    TRY_ALLOC(l_aadSub[i].reserve(p_anColumns.size()), return FAILURE);
    for (long long l_nColumn : p_anColumns) {
      if (l_nColumn < 0 || static_cast<unsigned long long>(l_nColumn) >= l_adRow.size())
        return FAILURE;
      l_aadSub[i].push_back(l_adRow[static_cast<size_t>(l_nColumn)]);
    }
  }
  return ReceiveVector2D(l_aadSub);
}

}  // namespace quor
