// SPDX-License-Identifier: MIT
#include "quor/steeringBase.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>

namespace quor {

namespace {
// A compressed stream is read in pieces: the first of this size (or less),
// then each as large as all before it, so that the block never holds much
// more than what has arrived and a long stream takes few reads.
constexpr unsigned long long FIRST_STREAM_PIECE = 64 * 1024;

// A stream inflated as it arrives (ReceiveValueInParts) is read in pieces
// of this size at most.
constexpr unsigned long long STREAM_PIECE = 256 * 1024;

// Throws std::bad_alloc (for TRY_ALLOC) when a compressed length is more
// than zlib's stream of p_nSize bytes can ever need.
// Deflate's largest expansion: a stream gives at most about 1032 bytes per
// byte of its own (a 258-byte match from a 2-bit code), plus its header.
constexpr unsigned long long MAX_INFLATE_RATIO = 1032;
constexpr unsigned long long INFLATE_SLACK = 1024;

// A stream longer than compressBound of its value, or too short to ever give
// the whole value, cannot be a clean frame of it: refused before anything is
// sized by the value (a few bytes must not make a receiver commit what they
// announce).
void RequireStreamFits(unsigned long long p_nLength, unsigned int p_nSize) {
  if (p_nLength > compressBound(p_nSize)) throw std::bad_alloc();
  if (p_nSize > MAX_INFLATE_RATIO * p_nLength + INFLATE_SLACK) throw std::bad_alloc();
}
}  // namespace

class SteeringBase::FixedStorage : public FrameStorage {
 public:
  explicit FixedStorage(void* p_pData) : m_pData(static_cast<char*>(p_pData)) {}
  char* Fixed() override { return m_pData; }
  char* Make(unsigned int) override { return m_pData; }

 private:
  char* m_pData;
};

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
  FixedStorage l_cStorage(data);
  return ReceiveFrame(size, l_cStorage);
}

unsigned int SteeringBase::ReceiveFrame(unsigned int p_nSize, FrameStorage& p_cStorage) {
  CHECK_POINTER(m_pcClientSocket, return FAILURE);

  char* l_pData = p_cStorage.Fixed();
  if (p_nSize <= RAW_FRAME_LIMIT) {
    char l_aRaw[RAW_FRAME_LIMIT];
    const unsigned int l_nResult = ReceiveBytes(l_pData != NULL ? l_pData : l_aRaw, p_nSize);
    if (l_nResult != 1) return l_nResult;
    if (l_pData == NULL) {
      TRY_ALLOC(l_pData = p_cStorage.Make(p_nSize), return 0);
      if (p_nSize != 0) std::memcpy(l_pData, l_aRaw, p_nSize);
    }
    NoteFrame(true);
  } else {
    unsigned long long l_nLength = 0;
    const unsigned int l_nLengthResult = ReceiveStreamLength(p_nSize, &l_nLength);
    if (l_nLengthResult != 1) return l_nLengthResult;
    std::unique_ptr<char[]> l_cStream;
    const unsigned int l_nResult = ReceiveStream(l_nLength, &l_cStream);
    if (l_nResult != 1) return l_nResult;
    TRY_ALLOC(l_pData = p_cStorage.Make(p_nSize), return 0);
    NoteFrame(InflateFrame(l_cStream.get(), l_nLength, l_pData, p_nSize));
  }
  return SendBytes(&FRAME_ACK, 1);
}

namespace {
// Inflates a zlib stream that arrives in pieces into consecutive parts, and
// judges it as InflateFrame does: clean when it is exactly the frame's size
// with nothing after it.
class PartInflater {
 public:
  PartInflater(unsigned int p_nSize, unsigned int p_nPart,
               const SteeringBase::PartMaker& p_fPart)
      : m_nSize(p_nSize), m_nPart(p_nPart), m_rfPart(p_fPart) {
    m_cStream.zalloc = Z_NULL;
    m_cStream.zfree = Z_NULL;
    m_cStream.opaque = Z_NULL;
    m_cStream.next_in = Z_NULL;
    m_cStream.avail_in = 0;
    if (inflateInit(&m_cStream) != Z_OK) throw std::bad_alloc();
  }
  ~PartInflater() { inflateEnd(&m_cStream); }

  // Feeds the next piece of the stream.
  void Feed(const char* p_pPiece, unsigned int p_nLength) {
    if (m_bEnded) {
      // Bytes after the end of the stream, or after an error.
      if (p_nLength != 0) m_bClean = false;
      return;
    }
    m_cStream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(p_pPiece));
    m_cStream.avail_in = p_nLength;
    while (m_cStream.avail_in > 0 && !m_bEnded) Step();
  }

  // After the last piece: every part is made, and what the stream did not
  // fill is zeroed. False when a part could not be made.
  bool Finish() {
    // A stream whose last output filled the last part may still have its
    // end to tell.
    if (!m_bEnded) Step();
    if (!m_bEnded) End(false);  // the stream stopped short
    if (m_bNoPart) return false;
    if (!m_bSpare && m_cStream.avail_out != 0)
      std::memset(m_cStream.next_out, 0, m_cStream.avail_out);
    m_cStream.avail_out = 0;
    while (m_nMade * m_nPart < m_nSize) {
      if (!NextPart()) return false;
      std::memset(m_cStream.next_out, 0, m_cStream.avail_out);
      m_cStream.avail_out = 0;
    }
    return true;
  }

  bool Clean() const { return m_bClean && !m_bNoPart; }

 private:
  // One call of inflate, with room to write into.
  void Step() {
    if (m_cStream.avail_out == 0 && !NextPart()) return;
    const int l_nCode = inflate(&m_cStream, Z_NO_FLUSH);
    if (m_bSpare && m_cStream.avail_out == 0)
      End(false);  // the stream holds more than the frame's size
    else if (l_nCode == Z_STREAM_END)
      End(m_cStream.avail_in == 0);
    else if (l_nCode != Z_OK && !(l_nCode == Z_BUF_ERROR && m_cStream.avail_in == 0))
      End(false);
    else if (l_nCode == Z_BUF_ERROR && m_cStream.avail_out != 0 && m_cStream.avail_in != 0)
      End(false);  // no progress is possible
  }

  bool NextPart() {
    if (m_nMade * m_nPart >= m_nSize) {
      // Every part is full: one more byte tells whether the stream runs on.
      m_bSpare = true;
      m_cStream.next_out = &m_cSpare;
      m_cStream.avail_out = 1;
      return true;
    }
    char* l_pPart = m_rfPart(m_nMade);
    if (l_pPart == NULL) {
      m_bNoPart = true;
      End(false);
      return false;
    }
    ++m_nMade;
    m_cStream.next_out = reinterpret_cast<Bytef*>(l_pPart);
    m_cStream.avail_out = m_nPart;
    return true;
  }

  // The stream ended (cleanly or not), or cannot go on.
  void End(bool p_bClean) {
    m_bEnded = true;
    m_bClean = p_bClean && m_nMade * m_nPart == m_nSize &&
               m_cStream.avail_out == (m_bSpare ? 1u : 0u);
  }

  z_stream m_cStream{};
  const unsigned long long m_nSize;
  const unsigned int m_nPart;
  const SteeringBase::PartMaker& m_rfPart;
  unsigned long long m_nMade = 0;
  Bytef m_cSpare = 0;
  bool m_bEnded = false;
  bool m_bClean = false;
  bool m_bSpare = false;  // every part is full; the spare byte is the room
  bool m_bNoPart = false;
};
}  // namespace

unsigned int SteeringBase::ReceiveValueInParts(unsigned int p_nSize, unsigned int p_nPart,
                                               const PartMaker& p_fPart) {
  CHECK_POINTER(m_pcClientSocket, return FAILURE);

  bool l_bMade = true;
  if (p_nSize <= RAW_FRAME_LIMIT) {
    char l_aRaw[RAW_FRAME_LIMIT];
    const unsigned int l_nResult = ReceiveBytes(l_aRaw, p_nSize);
    if (l_nResult != 1) return l_nResult;
    for (unsigned long long l_nIndex = 0; l_bMade && l_nIndex * p_nPart < p_nSize; ++l_nIndex) {
      char* l_pPart = p_fPart(l_nIndex);
      if (l_pPart == NULL)
        l_bMade = false;
      else
        std::memcpy(l_pPart, l_aRaw + l_nIndex * p_nPart, p_nPart);
    }
    NoteFrame(true);
  } else {
    unsigned long long l_nLength = 0;
    const unsigned int l_nLengthResult = ReceiveStreamLength(p_nSize, &l_nLength);
    if (l_nLengthResult != 1) return l_nLengthResult;
    std::unique_ptr<PartInflater> l_cInflater;
    std::unique_ptr<char[]> l_cPiece;
    const unsigned long long l_nPiece = std::min(l_nLength, STREAM_PIECE);
    TRY_ALLOC(l_cInflater.reset(new PartInflater(p_nSize, p_nPart, p_fPart));
              l_cPiece.reset(NewBlock(l_nPiece)), return 0);
    for (unsigned long long l_nHave = 0; l_nHave < l_nLength;) {
      const unsigned long long l_nNext = std::min(l_nPiece, l_nLength - l_nHave);
      const unsigned int l_nResult = ReceiveBytes(l_cPiece.get(), l_nNext);
      if (l_nResult != 1) return l_nResult;
      l_cInflater->Feed(l_cPiece.get(), static_cast<unsigned int>(l_nNext));
      l_nHave += l_nNext;
    }
    l_bMade = l_cInflater->Finish();
    NoteFrame(l_cInflater->Clean());
  }
  const unsigned int l_nAck = SendBytes(&FRAME_ACK, 1);
  return l_bMade ? l_nAck : FAILURE;
}

unsigned int SteeringBase::ReceiveStreamLength(unsigned int p_nSize,
                                               unsigned long long* p_pnLength) {
  // The length frame's own result is not examined: a broken connection
  // leaves the length at 0, which no stream has.
  *p_pnLength = 0;
  ReceiveValue(p_pnLength, sizeof(*p_pnLength));
  if (*p_pnLength == 0) return FAILURE;
  TRY_ALLOC(RequireStreamFits(*p_pnLength, p_nSize), return 0);
  return 1;
}

unsigned int SteeringBase::ReceiveStream(unsigned long long p_nLength,
                                         std::unique_ptr<char[]>* p_pcStream) {
  std::unique_ptr<char[]> l_cBlock;
  unsigned long long l_nRoom = 0;
  unsigned long long l_nHave = 0;
  while (l_nHave < p_nLength) {
    const unsigned long long l_nNext =
        std::min(p_nLength, std::max(FIRST_STREAM_PIECE, 2 * l_nRoom));
    std::unique_ptr<char[]> l_cLarger;
    TRY_ALLOC(l_cLarger.reset(NewBlock(l_nNext)), return 0);
    if (l_nHave != 0) std::memcpy(l_cLarger.get(), l_cBlock.get(), l_nHave);
    l_cBlock.swap(l_cLarger);
    l_nRoom = l_nNext;

    const unsigned int l_nResult = ReceiveBytes(l_cBlock.get() + l_nHave, l_nRoom - l_nHave);
    if (l_nResult != 1) return l_nResult;
    l_nHave = l_nRoom;
  }
  p_pcStream->swap(l_cBlock);
  return 1;
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

  // One frame carries at most MAX_FRAME_SIZE bytes; a longer count cannot be
  // honest.
  TRY_ALLOC(RequireAffordable(l_nLength > MAX_FRAME_SIZE ? ~0ull
                                                         : coding::DecodedTextCost(l_nLength)),
            return 0);
  std::unique_ptr<char[]> l_cText;
  l_nResult = ReceiveValueInto(static_cast<unsigned int>(l_nLength), [&](unsigned int p_nSize) {
    l_cText.reset(new char[p_nSize + 1ull]);
    return l_cText.get();
  });
  if (l_nResult != 1) return l_nResult;

  TRY_ALLOC(value = coding::DecodeText(l_cText.get(), static_cast<size_t>(l_nLength)), return 0);
  return 1;
}

wxString SteeringBase::StrTowxString(char* text) {
  if (text == NULL) return wxString();
  return coding::DecodeText(text, std::strlen(text));
}

unsigned int SteeringBase::SendBlock(const void* p_pBlock, unsigned long long p_nSize) {
  unsigned int l_nResult = SendValue(&p_nSize, sizeof(p_nSize));
  if (l_nResult != 1) return l_nResult;
  return SendValue(p_pBlock, static_cast<unsigned int>(p_nSize));
}

unsigned int SteeringBase::ReceiveBlock(const BlockUnpacker& p_fUnpack) {
  unsigned long long l_nTotal = 0;
  unsigned int l_nResult = ReceiveValue(&l_nTotal, sizeof(l_nTotal));
  if (l_nResult != 1) return l_nResult;

  unsigned int l_nLength = 0;
  TRY_ALLOC(l_nLength = AffordableFrame(l_nTotal, 1), return FAILURE);
  std::unique_ptr<char[]> l_cBlock;
  l_nResult = ReceiveValueInto(l_nLength, [&](unsigned int p_nSize) {
    l_cBlock.reset(new char[p_nSize != 0 ? p_nSize : 1]);
    return l_cBlock.get();
  });
  if (l_nResult != 1) return NoMemoryIsFailure(l_nResult);
  return UnpackBlock(l_cBlock.get(), l_nLength, GetMaxValueSize(), p_fUnpack);
}

unsigned int SteeringBase::UnpackBlock(const char* p_pBlock, unsigned long long p_nSize,
                                       unsigned long long p_nBudget,
                                       const BlockUnpacker& p_fUnpack) {
  bool l_bRead = false;
  bool l_bOutOfMemory = false;
  try {
    coding::UnpackBounds l_cBounds(p_pBlock, p_nSize, p_nBudget);
    l_bRead = p_fUnpack(p_pBlock, p_nSize) && !l_cBounds.Overrun();
    l_bOutOfMemory = l_cBounds.OutOfMemory();
  } catch (const std::bad_alloc&) {
    l_bOutOfMemory = true;
  } catch (const std::length_error&) {
    l_bOutOfMemory = true;
  }
  if (l_bOutOfMemory) {
    LOG(1, wxT("cannot allocate memory"));
    QUOR_TRY_REPORT("return FAILURE");
    return FAILURE;
  }
  return l_bRead ? 1 : FAILURE;
}

unsigned int SteeringBase::AffordableFrame(unsigned long long p_nCount,
                                           unsigned long long p_nWidth) const {
  if (!Affords(p_nCount, p_nWidth)) throw std::bad_alloc();
  return static_cast<unsigned int>(p_nCount * p_nWidth);
}

bool SteeringBase::Affords(unsigned long long p_nCount, unsigned long long p_nWidth) const {
  unsigned int l_nLength = 0;
  return coding::FrameLength(p_nCount, p_nWidth, &l_nLength) && l_nLength <= GetMaxValueSize();
}

void SteeringBase::RequireAffordable(unsigned long long p_nBytes) const {
  if (p_nBytes > GetMaxValueSize()) throw std::bad_alloc();
}

}  // namespace quor
