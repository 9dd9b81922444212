// SPDX-License-Identifier: MIT
// Value frames (raw and compressed) and string frames, received one after
// the other by a SteeringBase.
//
// Input: a frame count byte (1 + b % 4); per frame a kind byte (even: a
// value, odd: a string) and a 4-byte size (a value's size, modulo
// MAX_VALUE_SIZE + 1); then the script of the peer's bytes.
//
// Besides the sanitizers, every frame that the library reports as received
// is compared with an independent reading of the same bytes: a value must be
// the peer's bytes (for a compressed frame, what zlib makes of them, zeros
// where the stream stopped early), a string their decoding. No byte that the
// peer did not send, neither what the destination held before nor stale heap
// contents, may reach the caller, and a frame whose bytes never came may not
// be reported as received.
#include "fuzz_support.h"

#include "quor/steeringBase.h"

using namespace quor;
using namespace quor_fuzz;

namespace {
constexpr uint32_t MAX_VALUE_SIZE = 1u << 16;
constexpr unsigned int MAX_FRAMES = 4;
// What a destination holds before a value is received into it.
constexpr uint8_t STALE_BYTE = 0xA5;

struct FrameShape {
  bool m_bString;
  uint32_t m_nSize;
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Initialize();
  Input l_cInput(p_pData, p_nSize);
  const unsigned int l_nFrames = 1 + l_cInput.Byte() % MAX_FRAMES;
  FrameShape l_acFrames[MAX_FRAMES];
  for (unsigned int i = 0; i < l_nFrames; ++i) {
    l_acFrames[i].m_bString = (l_cInput.Byte() & 1) != 0;
    l_acFrames[i].m_nSize = l_cInput.Number() % (MAX_VALUE_SIZE + 1);
  }
  const Bytes l_aWire = l_cInput.Wire();

  AllocationBound l_cBound(p_nSize);
  Feed l_cFeed(l_aWire);
  SteeringBase l_cBase(l_cFeed.Socket());
  FrameReader l_cReference(l_aWire);
  for (unsigned int i = 0; i < l_nFrames; ++i) {
    const FrameShape& l_cFrame = l_acFrames[i];
    if (l_cFrame.m_bString) {
      const wxString l_sBefore = wxT("stale text");
      wxString l_sValue = l_sBefore;
      const unsigned int l_nResult = l_cBase.ReceiveString(l_sValue);
      if (l_nResult != 1) {
        if (l_sValue != l_sBefore) Fail("frame %u: a failed string receive changed the string", i);
        break;
      }
      // Asked only now: the reference would make the string the peer
      // announced, which may be larger than the library accepts.
      wxString l_sExpected;
      bool l_bExact = true;
      const bool l_bThere = l_cReference.String(&l_sExpected, &l_bExact);
      if (!l_bThere) Fail("frame %u: a string was reported received whose bytes never came", i);
      if (l_sValue != l_sExpected && (l_bExact || !l_sValue.empty()))
        Fail("frame %u: received the string \"%s\" where the peer's bytes give \"%s\"", i,
             static_cast<const char*>(l_sValue.utf8_str()),
             static_cast<const char*>(l_sExpected.utf8_str()));
    } else {
      // Exactly the frame's size, so that a write past it is caught.
      std::unique_ptr<uint8_t[]> l_cValue(new uint8_t[l_cFrame.m_nSize]);
      std::memset(l_cValue.get(), STALE_BYTE, l_cFrame.m_nSize);
      const unsigned int l_nResult = l_cBase.ReceiveValue(l_cValue.get(), l_cFrame.m_nSize);
      Bytes l_aExpected;
      bool l_bExact = true;
      const bool l_bThere = l_cReference.Value(l_cFrame.m_nSize, &l_aExpected, &l_bExact);
      if (l_nResult != 1) break;
      if (!l_bThere) Fail("frame %u: a value was reported received whose bytes never came", i);
      CheckReceived("value frame", l_cValue.get(), l_aExpected, l_bExact);
    }
  }
  return 0;
}
