// SPDX-License-Identifier: MIT
#include "quor/steeringBase.h"

#include "quor/coding.h"

#include <memory>

namespace quor {

SteeringBase::SteeringBase(wxSocketBase* p_pcSocket)
    : SteeringCommunicator(p_pcSocket) {}

SteeringBase::~SteeringBase() {}

unsigned int SteeringBase::SendValue(const void* data, const unsigned int& size) {
  CHECK_POINTER(m_pcClientSocket, return FAILURE);

  unsigned int l_nResult;
  if (size <= RAW_FRAME_LIMIT) {
    l_nResult = SendBytes(data, size);
  } else {
    unsigned long long l_nLength = size;
    char* l_pCompressedBuffer = static_cast<char*>(Compress(data, l_nLength));
    CHECK_POINTER(l_pCompressedBuffer, return FAILURE);
    // The length frame's own result is not examined: a broken connection
    // shows in the transfer of the block that follows.
    SendValue(&l_nLength, sizeof(l_nLength));
    l_nResult = SendBytes(l_pCompressedBuffer, l_nLength);
    delete[] l_pCompressedBuffer;
  }
  if (l_nResult != 1) return l_nResult;

  char l_cAck = 0;
  return ReceiveBytes(&l_cAck, 1);
}

unsigned int SteeringBase::ReceiveValue(void* data, const unsigned int& size) {
  CHECK_POINTER(m_pcClientSocket, return FAILURE);

  unsigned int l_nResult;
  if (size <= RAW_FRAME_LIMIT) {
    l_nResult = ReceiveBytes(data, size);
  } else {
    unsigned long long l_nLength = 0;
    ReceiveValue(&l_nLength, sizeof(l_nLength));
    char* l_pBuffer = NULL;
    // The length comes from the peer: NewBlock refuses sizes no frame can
    // have, so a corrupt length is an allocation failure, not a crash.
    TRY_ALLOC(l_pBuffer = NewBlock(l_nLength), return 0);
    std::unique_ptr<char[]> l_cOwner(l_pBuffer);
    l_nResult = ReceiveBytes(l_pBuffer, l_nLength);
    if (l_nResult == 1) {
      // A corrupt stream is not detected: zlib writes at most `size` bytes.
      Uncompress(l_pBuffer, data, l_nLength, size);
    }
  }
  if (l_nResult != 1) return l_nResult;

  return SendBytes("a", 1);
}

unsigned int SteeringBase::SendString(const wxString& value) {
  CHECK_POINTER(m_pcClientSocket, return FAILURE);

  unsigned long long l_nLength = value.length();
  unsigned int l_nResult = SendValue(&l_nLength, sizeof(l_nLength));
  if (l_nResult != 1) return l_nResult;

  const std::string l_sBytes = coding::CharCountBytes(value, wxConvLibc);
  return SendValue(l_sBytes.data(), static_cast<unsigned int>(l_nLength));
}

unsigned int SteeringBase::ReceiveString(wxString& value) {
  unsigned long long l_nLength = 0;
  unsigned int l_nResult = ReceiveValue(&l_nLength, sizeof(l_nLength));
  if (l_nResult != 1) return l_nResult;

  // One frame carries at most 4 GiB - 1 bytes; a longer count cannot be
  // honest and is refused as an allocation failure.
  char* l_pBuffer = NULL;
  TRY_ALLOC(l_pBuffer = NewBlock(l_nLength > 0xFFFFFFFFull ? ~0ull
                                                           : l_nLength + 1),
            return 0);
  std::unique_ptr<char[]> l_cOwner(l_pBuffer);
  l_nResult = ReceiveValue(l_pBuffer, static_cast<unsigned int>(l_nLength));
  if (l_nResult != 1) return l_nResult;

  l_pBuffer[l_nLength] = '\0';
  value = StrTowxString(l_pBuffer);
  return 1;
}

wxString SteeringBase::StrTowxString(char* text) {
  wxString l_sResult;
  {
    wxMBConvUTF8 l_cConverter;
    l_sResult = wxString(text, l_cConverter);
  }
  if (l_sResult.empty()) {
    // Not UTF-8 (or empty): one character per byte, of the same code.
    const unsigned char* l_pByte = reinterpret_cast<const unsigned char*>(text);
    for (; *l_pByte != 0; ++l_pByte) l_sResult += static_cast<wxChar>(*l_pByte);
  }
  return l_sResult;
}

}  // namespace quor
