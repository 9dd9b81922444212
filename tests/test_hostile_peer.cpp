// SPDX-License-Identifier: MIT
// Receives facing a hostile peer: what a receiver commits grows only with
// the bytes that arrive and stays within the value limit, a zlib stream
// that falls short leaves zeros (never earlier memory), a stream that runs
// on costs no more than its value, and every request of a client survives a
// server that sends oversized counts, truncated frames or corrupt streams.
//
// The bytes a receive commits are counted by the allocation hook below: the
// live bytes that the test's own thread holds through operator new, and
// their peak while a CommitWatch lives. The raw peers run on threads of
// their own, so their allocations do not count.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "allocation_hook.h"
#include "log_capture.h"
#include "quor/attributeStruct.h"
#include "quor/attributeTransitionConnection.h"
#include "quor/attributeVector.h"
#include "quor/attributeVectorAttribute.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringclient.h"
#include "raw_peer.h"
#include "server_harness.h"

using namespace quor_test;
using quor::FAILURE;

// ------------------------------------------------------------ allocation hook

QUOR_TEST_ALLOCATION_HOOK()

namespace {

constexpr long long KiB = 1024;
constexpr long long MiB = 1024 * 1024;

// A zlib stream of the bytes, at the default level.
Bytes Deflate(const Bytes& p_aValue) {
  uLongf l_nLength = compressBound(static_cast<uLong>(p_aValue.size()));
  Bytes l_aStream(l_nLength);
  compress(l_aStream.data(), &l_nLength, p_aValue.data(), static_cast<uLong>(p_aValue.size()));
  l_aStream.resize(l_nLength);
  return l_aStream;
}

// The peer sends a compressed frame of its own making: the 8-byte length,
// then the stream (each acknowledged, as far as the library reads).
void SendStream(RawPeer& p, uint64_t p_nLength, const Bytes& p_aStream) {
  p.Write(Le(p_nLength));
  p.Read(1);
  p.Write(p_aStream);
  p.Read(1);
}

// A stream that once disclosed heap memory: a zlib header, a stored block
// that is not the last one and carries 40 bytes, the 40 bytes, and nothing
// after them: it inflates to 40 bytes and never ends.
Bytes FortyByteStreamThatStops() {
  Bytes l_a = Hex("78 01 00 28 00 d7 ff");
  for (int i = 0; i < 40; ++i) l_a.push_back(static_cast<uint8_t>('a' + i % 26));
  return l_a;
}

// Fills freed heap blocks of p_nSize bytes with 'X', so that a block the
// library allocates next is likely to hold them unless it is cleared.
void LeaveOldBytesInTheHeap(size_t p_nSize) {
  std::vector<char*> l_apBlocks;
  for (int i = 0; i < 32; ++i) {
    char* l_p = new char[p_nSize];
    std::memset(l_p, 'X', p_nSize);
    l_apBlocks.push_back(l_p);
  }
  for (char* l_p : l_apBlocks) delete[] l_p;
}

}  // namespace

// ================================================================ frames

// A stream that stops after 40 of 300 bytes: the frame reports success as
// a frame does, the destination holds the peer's 40 bytes and then zeros,
// and the communicator can tell that the stream was not clean.
TEST(HostileFrame, StreamThatStopsEarlyLeavesThePeersBytesThenZeros) {
  LoopbackPair l_cPair;
  quor::SteeringBase l_cBase(l_cPair.Socket());
  const Bytes l_aStream = FortyByteStreamThatStops();
  l_cPair.Run([&](RawPeer& p) { SendStream(p, l_aStream.size(), l_aStream); });
  Bytes l_aIn(300, 0xAA);
  EXPECT_EQ(l_cBase.ReceiveValue(l_aIn.data(), 300), 1u);
  l_cPair.Join();
  EXPECT_EQ(ToHex(Bytes(l_aIn.begin(), l_aIn.begin() + 40)),
            ToHex(Bytes(l_aStream.begin() + 7, l_aStream.end())));
  EXPECT_EQ(ToHex(Bytes(l_aIn.begin() + 40, l_aIn.end())), ToHex(Bytes(260, 0)));
  EXPECT_FALSE(l_cBase.LastFrameClean());
  EXPECT_EQ(l_cBase.UncleanFrames(), 1u);
  EXPECT_EQ(l_cPair.Peer().Received(), Hex("61 61"));
}

// The disclosure as it was found: a 300-character name whose text travels
// as that stream. The name is the peer's 40 characters: none of the 'X' that
// an earlier block of that size left in the heap.
TEST(HostileFrame, TruncatedNameIsThePeersTextNeverOldHeapContents) {
  LoopbackPair l_cPair;
  quor::SteeringBase l_cBase(l_cPair.Socket());
  const Bytes l_aStream = FortyByteStreamThatStops();
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(300);
    SendStream(p, l_aStream.size(), l_aStream);
  });
  LeaveOldBytesInTheHeap(301);
  wxString l_sName;
  EXPECT_EQ(l_cBase.ReceiveString(l_sName), 1u);
  l_cPair.Join();
  EXPECT_EQ(std::string(l_sName.utf8_str().data()),
            std::string(l_aStream.begin() + 7, l_aStream.end()));
  EXPECT_FALSE(l_cBase.LastFrameClean());
}

// The same for storage that the receiver makes: whatever it held before,
// the bytes the stream did not produce are zero.
TEST(HostileFrame, MadeStorageHoldsThePeersBytesThenZeros) {
  LoopbackPair l_cPair;
  quor::SteeringBase l_cBase(l_cPair.Socket());
  const Bytes l_aStream = FortyByteStreamThatStops();
  l_cPair.Run([&](RawPeer& p) { SendStream(p, l_aStream.size(), l_aStream); });
  std::unique_ptr<char[]> l_cStorage;
  EXPECT_EQ(l_cBase.ReceiveValueInto(300,
                                     [&](unsigned int p_nSize) {
                                       l_cStorage.reset(new char[p_nSize]);
                                       std::memset(l_cStorage.get(), 'X', p_nSize);
                                       return l_cStorage.get();
                                     }),
            1u);
  l_cPair.Join();
  ASSERT_TRUE(l_cStorage != nullptr);
  EXPECT_EQ(std::string(l_cStorage.get(), 40), std::string(l_aStream.begin() + 7, l_aStream.end()));
  EXPECT_EQ(std::string(l_cStorage.get() + 40, 260), std::string(260, '\0'));
}

// A list received from such a stream: the peer's values, then zeros.
TEST(HostileFrame, ListFromAStreamThatStopsEndsInZeros) {
  LoopbackPair l_cPair;
  quor::SteeringBase l_cBase(l_cPair.Socket());
  const Bytes l_aStream = FortyByteStreamThatStops();
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(50);  // 400 bytes of doubles
    SendStream(p, l_aStream.size(), l_aStream);
  });
  std::vector<double> l_adList{7.0};
  EXPECT_EQ(l_cBase.ReceiveArray(l_adList), 1u);
  l_cPair.Join();
  ASSERT_EQ(l_adList.size(), 50u);
  EXPECT_EQ(std::memcmp(l_adList.data(), l_aStream.data() + 7, 40), 0);
  for (size_t i = 5; i < 50; ++i) EXPECT_EQ(l_adList[i], 0.0) << i;
}

TEST(HostileFrame, CleanStreamIsCleanAndBytesAfterItAreNot) {
  LoopbackPair l_cPair;
  quor::SteeringBase l_cBase(l_cPair.Socket());
  const Bytes l_aValue(200, 0x11);
  const Bytes l_aStream = Deflate(l_aValue);
  const Bytes l_aLonger = Cat({l_aStream, Hex("00")});
  l_cPair.Run([&](RawPeer& p) {
    SendStream(p, l_aStream.size(), l_aStream);
    SendStream(p, l_aLonger.size(), l_aLonger);
  });
  Bytes l_aIn(200);
  EXPECT_EQ(l_cBase.ReceiveValue(l_aIn.data(), 200), 1u);
  EXPECT_TRUE(l_cBase.LastFrameClean());
  EXPECT_EQ(l_aIn, l_aValue);
  EXPECT_EQ(l_cBase.ReceiveValue(l_aIn.data(), 200), 1u);
  EXPECT_FALSE(l_cBase.LastFrameClean());
  EXPECT_EQ(l_aIn, l_aValue);
  l_cPair.Join();
  EXPECT_EQ(l_cBase.UncleanFrames(), 1u);
}

// No zlib stream is empty: a compressed length of 0 is a frame cut short,
// not a whole one. Only the length frame is acknowledged.
TEST(HostileFrame, CompressedLengthZeroIsNotAWholeFrame) {
  LoopbackPair l_cPair;
  quor::SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.Write(Le<uint64_t>(0));
    p.Read(1);
  });
  Bytes l_aIn(200, 0xAA);
  EXPECT_EQ(l_cBase.ReceiveValue(l_aIn.data(), 200), FAILURE);
  l_cPair.Join();
  EXPECT_EQ(l_aIn, Bytes(200, 0xAA));
  EXPECT_EQ(l_cPair.Peer().Received(), Hex("61"));
}

// A zlib stream of N bytes never needs more than compressBound(N): a longer
// announcement is an allocation failure before anything is reserved.
TEST(HostileFrame, CompressedLengthAboveTheBoundIsRefusedBeforeAnythingIsReserved) {
  for (uint64_t l_nLength : {static_cast<uint64_t>(compressBound(200)) + 1, uint64_t{1} << 31}) {
    SCOPED_TRACE(l_nLength);
    LogCapture l_cLog;
    LoopbackPair l_cPair;
    quor::SteeringBase l_cBase(l_cPair.Socket());
    l_cPair.Run([&](RawPeer& p) {
      p.Write(Le(l_nLength));
      p.Read(1);
    });
    Bytes l_aIn(200);
    long long l_nPeak = 0;
    {
      CommitWatch l_cWatch;
      EXPECT_EQ(l_cBase.ReceiveValue(l_aIn.data(), 200), 0u);
      l_nPeak = l_cWatch.Peak();
    }
    l_cPair.Join();
    EXPECT_LT(l_nPeak, 4 * KiB);
    EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
  }
}

// A stream far too short to give its value (deflate gives at most about
// 1032 bytes per byte) is refused the same way, before the value is sized:
// 16 bytes never make a receiver commit the 64 MiB block they announce.
TEST(HostileFrame, CompressedLengthTooShortForTheValueIsRefusedBeforeTheValueIsSized) {
  LogCapture l_cLog;
  LoopbackPair l_cPair;
  quor::SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(64 * MiB);  // the block's total
    p.Write(Le<uint64_t>(16));        // the stream's length
    p.Read(1);
  });
  long long l_nPeak = 0;
  unsigned int l_nResult = 1;
  {
    CommitWatch l_cWatch;
    l_nResult = l_cBase.ReceiveBlock([](const char*, unsigned long long) { return true; });
    l_nPeak = l_cWatch.Peak();
  }
  l_cPair.Join();
  EXPECT_NE(l_nResult, 1u);
  EXPECT_LT(l_nPeak, 4 * KiB);
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
}

// A stream announced at its largest honest length that stops after a few
// bytes costs what arrived (the block grows with the pieces), not the
// announced length.
TEST(HostileFrame, StreamBlockGrowsOnlyAsItsBytesArrive) {
  const unsigned int l_nSize = 16 * MiB;
  LoopbackPair l_cPair(2);
  quor::SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.Write(Le<uint64_t>(compressBound(l_nSize)));
    p.Read(1);
    p.Write(Bytes(1000, 0x78));
    p.Close();
  });
  std::vector<char> l_aIn(l_nSize);
  long long l_nPeak = 0;
  {
    CommitWatch l_cWatch;
    EXPECT_NE(l_cBase.ReceiveValue(l_aIn.data(), l_nSize), 1u);
    l_nPeak = l_cWatch.Peak();
  }
  l_cPair.Join();
  EXPECT_LT(l_nPeak, 256 * KiB);
}

// A stream that would inflate far beyond the value (2 MiB of zeros for a
// value of 4000 bytes, in a stream no longer than zlib may need for 4000
// bytes) costs no more than the value and its own bytes; the value is its
// first 4000 bytes and the stream counts as unclean.
TEST(HostileFrame, StreamThatRunsOnCostsNoMoreThanTheValue) {
  const Bytes l_aBomb = Deflate(Bytes(2 * MiB, 0));
  ASSERT_LE(l_aBomb.size(), compressBound(4000));
  LoopbackPair l_cPair;
  quor::SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) { SendStream(p, l_aBomb.size(), l_aBomb); });
  std::vector<double> l_adList;
  long long l_nPeak = 0;
  {
    CommitWatch l_cWatch;
    const unsigned int l_nResult = l_cBase.ReceiveValueInto(4000, [&](unsigned int p_nSize) {
      l_adList.assign(p_nSize / 8, 1.0);
      return reinterpret_cast<char*>(l_adList.data());
    });
    EXPECT_EQ(l_nResult, 1u);
    l_nPeak = l_cWatch.Peak();
  }
  l_cPair.Join();
  EXPECT_LT(l_nPeak, 4000 + 2 * static_cast<long long>(l_aBomb.size()) + 4 * KiB);
  EXPECT_EQ(l_adList, std::vector<double>(500, 0.0));
  EXPECT_FALSE(l_cBase.LastFrameClean());
}

// ================================================================ value limit

TEST(ValueLimit, IsOneGibibyteUnlessSetAndHelpersTakeTheirOwners) {
  quor::SteeringBase l_cOwner(nullptr);
  quor::SteeringBase l_cHelper(nullptr);
  EXPECT_EQ(l_cOwner.GetMaxValueSize(), 1ull << 30);
  EXPECT_EQ(quor::DEFAULT_MAX_VALUE_SIZE, 1ull << 30);
  l_cOwner.SetMaxValueSize(12345);
  EXPECT_EQ(l_cOwner.GetMaxValueSize(), 12345u);
  EXPECT_EQ(l_cHelper.GetMaxValueSize(), 1ull << 30);
  {
    quor::SteeringCommunicator::ReceivingFor l_cFor(l_cHelper, l_cOwner);
    EXPECT_EQ(l_cHelper.GetMaxValueSize(), 12345u);
  }
  EXPECT_EQ(l_cHelper.GetMaxValueSize(), 1ull << 30);
}

// A helper that receives for an owner reports its unclean frames to it.
TEST(ValueLimit, UncleanFramesOfAHelperAreCountedByItsOwner) {
  LoopbackPair l_cPair;
  quor::SteeringBase l_cOwner(l_cPair.Socket());
  quor::ModelRuntimeState l_cState;
  const Bytes l_aStream = FortyByteStreamThatStops();
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(300);  // a block of 300 bytes, of which 40 arrive
    SendStream(p, l_aStream.size(), l_aStream);
  });
  {
    quor::SteeringCommunicator::ReceivingFor l_cFor(l_cState, l_cOwner);
    l_cState.ReceiveAttributes(l_cPair.Socket());
  }
  l_cPair.Join();
  EXPECT_EQ(l_cOwner.UncleanFrames(), 1u);
  EXPECT_FALSE(l_cOwner.LastFrameClean());
  EXPECT_EQ(l_cState.UncleanFrames(), 1u);
}

// Texts, arrays and blocks beyond the limit are allocation failures before
// the peer's bytes are read: a text costs its bytes and then a wide
// character per byte twice over while it is decoded.
TEST(ValueLimit, TextArrayAndBlockBeyondTheLimitAreRefusedBeforeTheirBytes) {
  LogCapture l_cLog;
  LoopbackPair l_cPair;
  quor::SteeringBase l_cBase(l_cPair.Socket());
  l_cBase.SetMaxValueSize(1000);
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(111);   // 112 * 9 bytes to decode: more than 1000
    p.SendValue<uint64_t>(126);   // 1008 bytes of doubles
    p.SendValue<uint64_t>(1001);  // a block of 1001 bytes
    p.SendString(std::string(100, 'k'));  // 101 * 9 bytes: fits
  });
  wxString l_s = wxT("kept");
  EXPECT_EQ(l_cBase.ReceiveString(l_s), 0u);
  EXPECT_EQ(l_s, wxT("kept"));
  std::vector<double> l_ad{1.0};
  EXPECT_EQ(l_cBase.ReceiveArray(l_ad), FAILURE);
  EXPECT_TRUE(l_ad.empty());
  EXPECT_EQ(l_cBase.ReceiveBlock([](const char*, unsigned long long) { return true; }), FAILURE);
  EXPECT_EQ(l_cBase.ReceiveString(l_s), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_s, wxString(wxT('k'), 100));
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>(3, "Error: cannot allocate memory"));
}

// ================================================================ amplification
//
// The cases that cost a receiver far more than the bytes a peer sent, each
// with a bound on what the receiver commits now.

namespace {

// An attribute that packs the bytes it is given, to craft blocks.
class CraftedValue : public quor::Attribute {
 public:
  explicit CraftedValue(const Bytes& p_aBytes) : Attribute(wxT("crafted"), wxT("")), m_aBytes(p_aBytes) {}
  unsigned int GetPackungSize() override { return static_cast<unsigned int>(m_aBytes.size()); }
  unsigned int PackValue(void* p_pBuffer) override {
    if (!m_aBytes.empty()) std::memcpy(p_pBuffer, m_aBytes.data(), m_aBytes.size());
    return static_cast<unsigned int>(m_aBytes.size());
  }

 private:
  Bytes m_aBytes;
};

// The attribute block of a fresh model (no places, no transitions) whose
// values under the given keys are replaced by crafted bytes.
Bytes ModelBlockWith(const std::vector<std::pair<const wxChar*, Bytes> >& p_aValues) {
  quor::Model l_cModel(nullptr, wxT("m"), 0, 0);
  for (const auto& l_cValue : p_aValues) {
    delete l_cModel.FindAttribute(l_cValue.first);
    l_cModel.AddAttribute(l_cValue.first, new CraftedValue(l_cValue.second));
  }
  return PackedAttributes(l_cModel);
}

// What receiving a model's attribute block costs a model whose value limit
// is p_nLimit; *p_pnResult is the result.
long long ModelBlockCost(const Bytes& p_aBlock, unsigned long long p_nLimit,
                         unsigned int* p_pnResult) {
  LoopbackPair l_cPair;
  quor::Model l_cModel(l_cPair.Socket(), wxT(""), 0, 0);
  l_cModel.SetMaxValueSize(p_nLimit);
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(p_aBlock.size());
    p.SendFrame(p_aBlock);
  });
  CommitWatch l_cWatch;
  *p_pnResult = l_cModel.ReceiveAttributes();
  const long long l_nPeak = l_cWatch.Peak();
  l_cPair.Join();
  return l_nPeak;
}

}  // namespace

// Eight bytes announced 2^24 empty strings and the receiver made them
// before anything else arrived (+819 MB). Now it commits nothing until the
// lengths arrive.
TEST(Amplification, StringCountAloneCommitsNothing) {
  LoopbackPair l_cPair(2);
  quor::SteeringVector l_cVector(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint32_t>(0);
    p.SendValue<uint64_t>(1ull << 24);
    p.Close();
  });
  std::vector<wxString> l_asList{wxT("keep")};
  CommitWatch l_cWatch;
  EXPECT_NE(l_cVector.ReceiveVectorString(l_asList), 1u);
  EXPECT_LT(l_cWatch.Peak(), 64 * KiB);
  l_cPair.Join();
  EXPECT_EQ(l_asList, std::vector<wxString>{wxT("keep")});
}

// A list whose strings would cost more than the value limit is refused
// before its lengths are read.
TEST(Amplification, StringListBeyondTheLimitIsRefusedBeforeItsLengths) {
  LogCapture l_cLog;
  LoopbackPair l_cPair;
  quor::SteeringVector l_cVector(l_cPair.Socket());
  l_cVector.SetMaxValueSize(16 * MiB);
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint32_t>(0);
    p.SendValue<uint64_t>(1ull << 20);  // a wxString each: about 50 MiB
  });
  std::vector<wxString> l_asList;
  CommitWatch l_cWatch;
  EXPECT_EQ(l_cVector.ReceiveVectorString(l_asList), FAILURE);
  EXPECT_LT(l_cWatch.Peak(), 4 * KiB);
  l_cPair.Join();
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
}

// Sixteen bytes of matrix size made the receiver zero-fill the values and
// size the rows before any value arrived (+393 MB kept). Now nothing is
// committed until the values arrive, and rows without columns are capped.
TEST(Amplification, MatrixSizePairCommitsNothingUntilTheValuesArrive) {
  LoopbackPair l_cPair(2);
  quor::SteeringVector l_cVector(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(1ull << 24);
    p.SendValue<uint64_t>(1);
    p.Close();
  });
  std::vector<std::vector<double> > l_aadMatrix{{1.0}};
  CommitWatch l_cWatch;
  EXPECT_NE(l_cVector.ReceiveVector2D(l_aadMatrix), 1u);
  EXPECT_LT(l_cWatch.Peak(), 64 * KiB);
  l_cPair.Join();
  EXPECT_EQ(l_aadMatrix, (std::vector<std::vector<double> >{{1.0}}));
}

// A received matrix inflates straight into its rows, its stream read in
// pieces: the receiver holds the matrix and one piece, not the values a
// second time (nor the whole stream).
TEST(Amplification, ReceivedMatrixCostsLittleMoreThanItself) {
  const uint64_t l_nRows = 200, l_nColumns = 2000;
  Bytes l_aValues(l_nRows * l_nColumns * sizeof(double));
  for (size_t i = 0; i < l_aValues.size(); ++i)
    l_aValues[i] = static_cast<uint8_t>((i * 2654435761u) >> 13);  // compresses poorly
  LoopbackPair l_cPair;
  quor::SteeringVector l_cVector(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(l_nRows);
    p.SendValue<uint64_t>(l_nColumns);
    p.SendFrame(l_aValues);
  });
  std::vector<std::vector<double> > l_aadMatrix;
  CommitWatch l_cWatch;
  EXPECT_EQ(l_cVector.ReceiveVector2D(l_aadMatrix), 1u);
  const long long l_nMatrix = static_cast<long long>(
      l_aValues.size() + l_nRows * sizeof(std::vector<double>));
  EXPECT_LE(l_cWatch.Peak(), l_nMatrix + 256 * KiB + 64 * KiB);
  l_cPair.Join();
  EXPECT_TRUE(l_cVector.LastFrameClean());
  ASSERT_EQ(l_aadMatrix.size(), l_nRows);
  for (size_t r = 0; r < l_nRows; ++r)
    ASSERT_EQ(std::memcmp(l_aadMatrix[r].data(),
                          l_aValues.data() + r * l_nColumns * sizeof(double),
                          l_nColumns * sizeof(double)),
              0)
        << r;
}

namespace {
// A matrix of 3 rows of 40 columns received from a stream of the peer's
// making; the values the peer meant are 0, 1, 2, ... as doubles.
Bytes CountingValues(size_t p_nValues) {
  Bytes l_a;
  for (size_t i = 0; i < p_nValues; ++i) {
    const Bytes l_aOne = Le(static_cast<double>(i));
    l_a.insert(l_a.end(), l_aOne.begin(), l_aOne.end());
  }
  return l_a;
}

std::vector<std::vector<double> > MatrixFromStream(const Bytes& p_aStream, bool* p_pbClean) {
  LoopbackPair l_cPair;
  quor::SteeringVector l_cVector(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(3);
    p.SendValue<uint64_t>(40);
    SendStream(p, p_aStream.size(), p_aStream);
  });
  std::vector<std::vector<double> > l_aadMatrix{{7.0}};
  EXPECT_EQ(l_cVector.ReceiveVector2D(l_aadMatrix), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_cPair.Peer().Received(), Bytes(4, 0x61));
  *p_pbClean = l_cVector.LastFrameClean();
  return l_aadMatrix;
}

// The matrix that the first p_nBytes of the values and zeros after them
// make.
std::vector<std::vector<double> > PrefixMatrix(const Bytes& p_aValues, size_t p_nBytes) {
  Bytes l_a(3 * 40 * sizeof(double), 0);
  std::memcpy(l_a.data(), p_aValues.data(), std::min(p_nBytes, l_a.size()));
  std::vector<std::vector<double> > l_aad(3, std::vector<double>(40));
  for (size_t r = 0; r < 3; ++r)
    std::memcpy(l_aad[r].data(), l_a.data() + r * 40 * sizeof(double), 40 * sizeof(double));
  return l_aad;
}
}  // namespace

TEST(HostileMatrixStream, CleanStreamFillsEveryRow) {
  const Bytes l_aValues = CountingValues(120);
  bool l_bClean = false;
  EXPECT_EQ(MatrixFromStream(Deflate(l_aValues), &l_bClean), PrefixMatrix(l_aValues, 960));
  EXPECT_TRUE(l_bClean);
}

// What the stream produced stays; the rows it did not reach are zeros.
TEST(HostileMatrixStream, StreamThatStopsShortLeavesZerosAfterWhatItProduced) {
  const Bytes l_aValues = CountingValues(120);
  Bytes l_aStream = Deflate(l_aValues);
  l_aStream.resize(l_aStream.size() / 2);
  // zlib's own count of what the half stream produces.
  Bytes l_aOut(960);
  uLongf l_nProduced = 960;
  uLong l_nConsumed = static_cast<uLong>(l_aStream.size());
  uncompress2(l_aOut.data(), &l_nProduced, l_aStream.data(), &l_nConsumed);
  ASSERT_LT(l_nProduced, 960u);
  bool l_bClean = true;
  EXPECT_EQ(MatrixFromStream(l_aStream, &l_bClean), PrefixMatrix(l_aValues, l_nProduced));
  EXPECT_FALSE(l_bClean);
}

TEST(HostileMatrixStream, StreamThatNeverEndsGivesItsBytesAndZeros) {
  bool l_bClean = true;
  const Bytes l_aForty = FortyByteStreamThatStops();
  const Bytes l_aText(l_aForty.end() - 40, l_aForty.end());
  EXPECT_EQ(MatrixFromStream(l_aForty, &l_bClean), PrefixMatrix(l_aText, 40));
  EXPECT_FALSE(l_bClean);
}

TEST(HostileMatrixStream, LongerStreamIsCutToTheMatrix) {
  const Bytes l_aValues = CountingValues(200);
  bool l_bClean = true;
  EXPECT_EQ(MatrixFromStream(Deflate(l_aValues), &l_bClean), PrefixMatrix(l_aValues, 960));
  EXPECT_FALSE(l_bClean);
}

TEST(HostileMatrixStream, BytesAfterTheStreamMakeItUnclean) {
  const Bytes l_aValues = CountingValues(120);
  bool l_bClean = true;
  EXPECT_EQ(MatrixFromStream(Cat({Deflate(l_aValues), Hex("00 01 02")}), &l_bClean),
            PrefixMatrix(l_aValues, 960));
  EXPECT_FALSE(l_bClean);
}

TEST(HostileMatrixStream, CorruptStreamGivesZerosWhereItFailed) {
  const Bytes l_aValues = CountingValues(120);
  Bytes l_aStream = Deflate(l_aValues);
  l_aStream[l_aStream.size() / 2] ^= 0xff;
  l_aStream[l_aStream.size() / 2 + 1] ^= 0x5a;
  Bytes l_aOut(960);
  uLongf l_nProduced = 960;
  uLong l_nConsumed = static_cast<uLong>(l_aStream.size());
  const int l_nCode = uncompress2(l_aOut.data(), &l_nProduced, l_aStream.data(), &l_nConsumed);
  ASSERT_NE(l_nCode, Z_OK);
  bool l_bClean = true;
  const std::vector<std::vector<double> > l_aadGot = MatrixFromStream(l_aStream, &l_bClean);
  EXPECT_FALSE(l_bClean);
  // The bytes zlib produced before it gave up, then zeros.
  Bytes l_aFlat(960, 0);
  std::memcpy(l_aFlat.data(), l_aOut.data(), l_nProduced);
  EXPECT_EQ(l_aadGot, PrefixMatrix(l_aFlat, 960));
}

TEST(Amplification, RowsWithoutColumnsAreCapped) {
  LogCapture l_cLog;
  LoopbackPair l_cPair;
  quor::SteeringVector l_cVector(l_cPair.Socket());
  const unsigned long long l_nMost = quor::MAX_RECEIVED_EMPTY_ROWS;
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(l_nMost + 1);
    p.SendValue<uint64_t>(0);
    p.SendValue<uint64_t>(l_nMost);
    p.SendValue<uint64_t>(0);
    p.SendFrame(Bytes());
  });
  std::vector<std::vector<double> > l_aadMatrix;
  {
    CommitWatch l_cWatch;
    EXPECT_EQ(l_cVector.ReceiveVector2D(l_aadMatrix), FAILURE);
    EXPECT_LT(l_cWatch.Peak(), 4 * KiB);
  }
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
  {
    // At the cap, the rows cost what they are and nothing more.
    CommitWatch l_cWatch;
    EXPECT_EQ(l_cVector.ReceiveVector2D(l_aadMatrix), 1u);
    EXPECT_LE(l_cWatch.Peak(), static_cast<long long>(l_nMost * sizeof(std::vector<double>)) + KiB);
  }
  l_cPair.Join();
  EXPECT_EQ(l_aadMatrix.size(), l_nMost);
}

// 7.5 KB of compressed view made the receiver clone 2^18 curve records
// (+1.36 GB kept). The records are charged at their cost in memory before
// the first is cloned: beyond the value limit, nothing is cloned.
TEST(Amplification, CurveRecordsBeyondTheLimitAreRefusedBeforeAnyClone) {
  quor::ModelView l_cDefault(wxT(""), nullptr);
  const Bytes l_aDefault = PackedAttributes(l_cDefault);
  ASSERT_EQ(ToHex(Bytes(l_aDefault.begin(), l_aDefault.begin() + 4)), "00 00 00 00");  // the curves come first
  const size_t l_nRecords = 1u << 18;
  const size_t l_nRecordSize = 29;  // two empty texts, three 4-byte numbers, an index, a flag
  const Bytes l_aBlock = Cat({Le<uint32_t>(l_nRecords), Bytes(l_nRecords * l_nRecordSize, 0),
                              Bytes(l_aDefault.begin() + 4, l_aDefault.end())});
  ASSERT_LT(Deflate(l_aBlock).size(), 16 * KiB);

  LogCapture l_cLog;
  LoopbackPair l_cPair;
  quor::ModelView l_cView(wxT(""), nullptr);
  l_cView.SetMaxValueSize(64 * MiB);
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(l_aBlock.size());
    p.SendFrame(l_aBlock);
  });
  long long l_nPeak = 0;
  {
    CommitWatch l_cWatch;
    EXPECT_EQ(l_cView.ReceiveView(l_cPair.Socket()), FAILURE);
    l_nPeak = l_cWatch.Peak();
  }
  l_cPair.Join();
  EXPECT_LT(l_nPeak, static_cast<long long>(l_aBlock.size()) + MiB);
  EXPECT_EQ(l_cView.GetCurves()->size(), 0u);
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
}

// A model upload of some hundred bytes with a place count of 2^26 made the
// store size its lists by it (+1.05 GB). A received model never sizes
// anything by its counts.
TEST(Amplification, ModelCountsAloneCommitNothing) {
  const Bytes l_aBlock = ModelBlockWith({{quor::keys::PLACE_COUNT, Le<uint64_t>(1ull << 26)},
                                         {quor::keys::TRANSITION_COUNT, Le<uint64_t>(1ull << 26)}});
  unsigned int l_nResult = 0;
  EXPECT_LT(ModelBlockCost(l_aBlock, quor::DEFAULT_MAX_VALUE_SIZE, &l_nResult), 64 * KiB);
  EXPECT_EQ(l_nResult, 1u);
}

namespace {

// A received count of p_nCount elements that pack in p_nWidth bytes each,
// under the key, in a model whose value limit holds the block but not what
// the elements cost: refused as an allocation failure, and the receiver
// commits no more than the block.
void ExpectRefusedAtTheirCost(const wxChar* p_sKey, unsigned int p_nCount,
                              unsigned long long p_nWidth, unsigned long long p_nLimit) {
  const Bytes l_aBlock = ModelBlockWith(
      {{p_sKey, Cat({Le<uint32_t>(p_nCount), Bytes(p_nWidth * p_nCount, 0)})}});
  LogCapture l_cLog;
  unsigned int l_nResult = 0;
  const long long l_nPeak = ModelBlockCost(l_aBlock, p_nLimit, &l_nResult);
  EXPECT_EQ(l_nResult, FAILURE);
  EXPECT_LT(l_nPeak, static_cast<long long>(l_aBlock.size()) + MiB);
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
}

}  // namespace

// A parameter-name count of 2^27 (522 KB compressed) made the receiver size
// 2^27 strings, and the exception killed the client. A count of strings is
// charged at what a string costs: beyond the value limit it is an
// allocation failure, and nothing is thrown. (2^20 strings: 4 MiB packed,
// 48 MiB as strings.)
TEST(Amplification, StringCountIsChargedAtTheCostOfAString) {
  ExpectRefusedAtTheirCost(quor::keys::PARAMETER_NAMES, 1u << 20, 4, 16 * MiB);
}

// The same for the arcs: a record packs in 16 bytes and costs 96. (2^18
// records: 4 MiB packed, 24 MiB as records.)
TEST(Amplification, ArcRecordCountIsChargedAtTheCostOfARecord) {
  ExpectRefusedAtTheirCost(quor::keys::TRANSITION_CONNECTION, 1u << 18, 16, 8 * MiB);
}

// Within the limit, a received list of records costs a small factor of its
// packed size: an arc record packs in 16 bytes and costs 96, an empty
// string packs in 4 and costs 48; on top of that, the block itself.
TEST(Amplification, ReceivedRecordsCostASmallFactorOfTheirPackedSize) {
  const unsigned int l_nCount = 1u << 16;
  for (const auto& l_cCase : {std::make_pair(quor::keys::TRANSITION_CONNECTION, 16ull),
                              std::make_pair(quor::keys::PARAMETER_NAMES, 4ull)}) {
    SCOPED_TRACE(wxString(l_cCase.first).ToStdString());
    const Bytes l_aValue = Cat({Le<uint32_t>(l_nCount), Bytes(l_cCase.second * l_nCount, 0)});
    const Bytes l_aBlock = ModelBlockWith({{l_cCase.first, l_aValue}});
    unsigned int l_nResult = 0;
    const long long l_nPeak = ModelBlockCost(l_aBlock, quor::DEFAULT_MAX_VALUE_SIZE, &l_nResult);
    EXPECT_EQ(l_nResult, 1u);
    // The block itself, and what is built from it.
    EXPECT_LT(l_nPeak, static_cast<long long>(l_aBlock.size()) * 15);
  }
}

// The costs charged for records and views are close to what they cost.
TEST(Amplification, ChargedCostsAreCloseToTheRealOnes) {
  quor::ModelView l_cView(wxT(""), nullptr);
  quor::AttributeVectorAttribute* l_pcCurves = l_cView.GetCurves();
  long long l_nCurves = 0;
  {
    CommitWatch l_cWatch;
    l_pcCurves->resize(1000);
    l_nCurves = l_cWatch.Peak() / 1000;
  }
  const long long l_nCharged = static_cast<long long>(quor::ClonedMemory(l_pcCurves->GetProtoType()));
  EXPECT_GT(l_nCharged * 2, l_nCurves);
  EXPECT_LT(l_nCharged, l_nCurves * 2);

  std::vector<std::unique_ptr<quor::ModelView> > l_acViews;
  long long l_nViews = 0;
  {
    CommitWatch l_cWatch;
    for (int i = 0; i < 100; ++i) l_acViews.emplace_back(new quor::ModelView(wxT(""), nullptr));
    l_nViews = l_cWatch.Peak() / 100;
  }
  const long long l_nViewCharge = static_cast<long long>(quor::ModelView::MemoryOfOne());
  EXPECT_GT(l_nViewCharge * 2, l_nViews);
  EXPECT_LT(l_nViewCharge, l_nViews * 2);
}

// ================================================================ hostile server
//
// Every request of a registered client whose answer comes from the server,
// against a server that answers with oversized counts, with a frame cut
// short, or with corrupt compressed streams: the client returns, does not
// crash, and commits little.

namespace {

struct ClientOp {
  const char* name;
  // Reads the request's frames after the code.
  std::function<void(RawPeer&)> request;
  std::function<unsigned int(quor::SteeringClient&)> call;
  // The size of the first frame the client reads back.
  size_t reply;
};

void Nothing(RawPeer&) {}
void Name(RawPeer& p) { p.RecvString(); }
void Index(RawPeer& p) { p.RecvValue<uint32_t>(); }

std::vector<ClientOp> ReadingOps() {
  using C = quor::SteeringClient;
  static std::vector<wxString> s_asNames;
  static std::vector<std::vector<double> > s_aadMatrix;
  static std::vector<double> s_adValues;
  static std::vector<unsigned long long> s_anPositions;
  static std::vector<quor::QU_SimulatorCategory> s_acCategories;
  static wxString s_sFirst, s_sSecond;
  static double s_d1, s_d2, s_d3;
  static int s_n;
  return {
      {"GetRuningModelNames", Nothing, [](C& c) { return c.GetRuningModelNames(s_asNames); }, 4},
      {"ReadResultMatrix", Nothing, [](C& c) { return c.ReadResultMatrix(s_aadMatrix); }, 8},
      {"ReadRateMatrix", Nothing, [](C& c) { return c.ReadRateMatrix(s_aadMatrix); }, 8},
      {"_ChangeCurrentModel", Index, [](C& c) { return c._ChangeCurrentModel(0); }, 4},
      {"ReadSimulatorState", Nothing, [](C& c) { return c.ReadSimulatorState(s_n); }, 4},
      {"ReadSimulationInterval", Nothing,
       [](C& c) { return c.ReadSimulationInterval(s_d1, s_d2, s_d3); }, 24},
      {"ReadAvailableSimulators", Nothing,
       [](C& c) { return c.ReadAvailableSimulators(s_acCategories); }, 4},
      {"ReadCurrentSimulatorName", Nothing,
       [](C& c) { return c.ReadCurrentSimulatorName(s_sFirst, s_sSecond); }, 8},
      {"ReadModelViews", Nothing, [](C& c) { return c.ReadModelViews(); }, 4},
      {"ReadModelStatistics", Nothing,
       [](C& c) {
         quor::ModelRuntimeState l_cState;
         return c.ReadModelStatistics(l_cState);
       },
       8},
      {"ReadCurrentParameterValues", Nothing,
       [](C& c) { return c.ReadCurrentParameterValues(s_adValues); }, 8},
      {"ReadCurrentPlaceValues", Nothing, [](C& c) { return c.ReadCurrentPlaceValues(s_adValues); },
       8},
      {"RemoveModel", Name, [](C& c) { return c.RemoveModel(wxT("m"), s_n); }, 4},
      {"ReceiveSimulatorSetting", Name,
       [](C& c) {
         quor::SimulatorAttribute l_cSettings;
         return c.ReceiveSimulatorSetting(wxT("s"), &l_cSettings);
       },
       4},
      {"ReceiveErrorMessage", Nothing, [](C& c) { return c.ReceiveErrorMessage(s_sFirst); }, 8},
      {"ReceiveSteeredParamPositions", Nothing,
       [](C& c) { return c.ReceiveSteeredParamPositions(s_anPositions); }, 8},
      {"ReceiveSteeredPlacePositions", Nothing,
       [](C& c) { return c.ReceiveSteeredPlacePositions(s_anPositions); }, 8},
      {"ReadLogMessage", Nothing, [](C& c) { return c.ReadLogMessage(s_sFirst); }, 8},
  };
}

// The server's answers.
struct Hostility {
  const char* name;
  std::function<void(RawPeer&, size_t)> answer;
};

std::vector<Hostility> Hostilities() {
  return {
      // Every frame the client reads holds all bits set: counts, lengths
      // and sizes at their largest.
      {"oversized",
       [](RawPeer& p, size_t p_nFirst) {
         if (!p.SendFrame(Bytes(p_nFirst, 0xFF))) return;
         for (int i = 0; i < 16 && p.SendFrame(Bytes(8, 0xFF)); ++i) {
         }
       }},
      // Half of the first frame, then the connection ends.
      {"truncated",
       [](RawPeer& p, size_t p_nFirst) {
         p.Write(Bytes(p_nFirst / 2, 0x7F));
         p.Close();
       }},
      // A count of 1000, then compressed frames whose streams are garbage,
      // as long as the client reads them; then the connection ends.
      {"corrupt streams",
       [](RawPeer& p, size_t p_nFirst) {
         Bytes l_aFirst(p_nFirst, 0);
         const uint32_t l_nCount = 1000;
         std::memcpy(l_aFirst.data(), &l_nCount, 4);
         const Bytes l_aGarbage = Hex("78 9c de ad be ef 01 02 03 04 05 06 07 08 09 0a");
         p.SetTimeoutMillis(300);
         if (p.SendFrame(l_aFirst)) {
           for (int i = 0; i < 16; ++i) {
             if (!p.Write(Le<uint64_t>(l_aGarbage.size())) || p.Read(1).size() != 1) break;
             if (!p.Write(l_aGarbage) || p.Read(1).size() != 1) break;
           }
         }
         p.Close();
       }},
  };
}

}  // namespace

TEST(HostileServer, EveryReadingRequestReturnsAndCommitsLittle) {
  for (const ClientOp& l_cOp : ReadingOps()) {
    for (const Hostility& l_cHostility : Hostilities()) {
      SCOPED_TRACE(std::string(l_cOp.name) + ", " + l_cHostility.name);
      quor::Model* l_pcModel = new quor::Model(nullptr, wxT("m"), 2, 2);
      quor::Model* l_pcAfter = nullptr;
      long long l_nPeak = 0;
      {
        ClientSession l_cSession([&](RawPeer& p) {
          p.SetTimeoutMillis(2000);
          ServeUpload(p);
          p.RecvValue<int32_t>();  // the request code
          l_cOp.request(p);
          l_cHostility.answer(p, l_cOp.reply);
        });
        ASSERT_EQ(l_cSession.Connected(), 1u);
        l_cSession.Client().SetTimeout(2);
        ASSERT_EQ(l_cSession.Client().Initialize(l_pcModel), 1u);
        {
          CommitWatch l_cWatch;
          l_cOp.call(l_cSession.Client());
          l_nPeak = l_cWatch.Peak();
        }
        l_pcAfter = l_cSession.Client().GetModel();
      }
      // _ChangeCurrentModel deleted the uploaded model; the model now held
      // (if any) is the caller's.
      delete l_pcAfter;
      EXPECT_LT(l_nPeak, 4 * MiB);
    }
  }
}

// Registration against the same server: its reply, then the model.
TEST(HostileServer, RegistrationReturnsAndCommitsLittle) {
  for (bool l_bAtTheModel : {false, true}) {
    for (const Hostility& l_cHostility : Hostilities()) {
      SCOPED_TRACE(std::string(l_bAtTheModel ? "model, " : "reply, ") + l_cHostility.name);
      long long l_nPeak = 0;
      quor::Model* l_pcAfter = nullptr;
      {
        ClientSession l_cSession([&](RawPeer& p) {
          p.SetTimeoutMillis(2000);
          p.RecvValue<int32_t>();  // 24
          if (l_bAtTheModel) {
            p.SendValue<uint32_t>(1);
            p.RecvValue<int32_t>();  // 6
            p.RecvValue<int32_t>();  // the option
            p.RecvValue<int32_t>();  // the index
          }
          l_cHostility.answer(p, 4);
        });
        ASSERT_EQ(l_cSession.Connected(), 1u);
        l_cSession.Client().SetTimeout(2);
        {
          CommitWatch l_cWatch;
          EXPECT_NE(l_cSession.Client().Initialize(0), 1u);
          l_nPeak = l_cWatch.Peak();
        }
        l_pcAfter = l_cSession.Client().GetModel();
      }
      delete l_pcAfter;
      EXPECT_LT(l_nPeak, 4 * MiB);
    }
  }
}

// ================================================================ per connection
//
// A model, a view or a runtime state that a client receives reads under the
// client's value limit and reports its unclean frames to the client.

TEST(ConnectionLimits, ModelsViewsAndStatisticsReceiveUnderTheClientsLimit) {
  quor::Model l_cSource(nullptr, wxT("net"), 1, 1);
  const WireModel l_cImage = ImageOf(l_cSource);
  const Bytes l_aStream = FortyByteStreamThatStops();
  ClientSession l_cSession([&](RawPeer& p) {
    // Initialize(0): a model whose block is larger than the client admits.
    p.RecvValue<int32_t>();
    p.SendValue<uint32_t>(1);
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
    p.SendValue<uint32_t>(0);
    p.SendValue<uint64_t>(5000);
    // Initialize(0) again: the model, with views.
    p.RecvValue<int32_t>();
    p.SendValue<uint32_t>(1);
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
    SendModel(p, l_cImage);
    // ReadModelViews: more views than the client admits.
    p.RecvValue<int32_t>();
    p.SendValue<uint32_t>(1000);
    // ReadModelStatistics: a block whose stream stops early.
    p.RecvValue<int32_t>();
    p.SendValue<uint64_t>(300);
    SendStream(p, l_aStream.size(), l_aStream);
  });
  ASSERT_EQ(l_cSession.Connected(), 1u);
  quor::SteeringClient& l_rClient = l_cSession.Client();
  l_rClient.SetMaxValueSize(4000);
  LogCapture l_cLog;
  EXPECT_EQ(l_rClient.Initialize(0), FAILURE);
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
  l_rClient.SetMaxValueSize(100 * quor::ModelView::MemoryOfOne());
  ASSERT_EQ(l_rClient.Initialize(0), 1u);
  EXPECT_EQ(l_rClient.ReadModelViews(), FAILURE);
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>(2, "Error: cannot allocate memory"));
  EXPECT_EQ(l_rClient.UncleanFrames(), 0u);
  quor::ModelRuntimeState l_cState;
  l_rClient.ReadModelStatistics(l_cState);
  EXPECT_EQ(l_rClient.UncleanFrames(), 1u);
  EXPECT_FALSE(l_rClient.LastFrameClean());
  delete l_rClient.GetModel();
}

// Without a current model, the requests that need one send nothing; the
// reads that also store into it still return what they read.
TEST(ConnectionLimits, RequestsThatNeedAModelAreSafeWithoutOne) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();  // 9
    p.SendFrame(Doubles({1.0, 2.0, 3.0}));
    p.RecvValue<int32_t>();  // 18
    p.SendValue<uint64_t>(2);
    p.SendFrame(Doubles({4.0, 5.0}));
  });
  ASSERT_EQ(l_cSession.Connected(), 1u);
  quor::SteeringClient& l_rClient = l_cSession.Client();
  EXPECT_EQ(l_rClient.ReadModelViews(), FAILURE);
  EXPECT_EQ(l_rClient.WriteModelViews(), FAILURE);
  double l_dStart = 0, l_dEnd = 0, l_dStep = 0;
  EXPECT_EQ(l_rClient.ReadSimulationInterval(l_dStart, l_dEnd, l_dStep), FAILURE);
  EXPECT_EQ(l_dEnd, 2.0);
  std::vector<double> l_adValues;
  EXPECT_EQ(l_rClient.ReadCurrentParameterValues(l_adValues), 1u);
  EXPECT_EQ(l_adValues, (std::vector<double>{4.0, 5.0}));
  EXPECT_EQ(ToHex(l_cSession.FromClient()),
            ToHex(Cat({Le<int32_t>(9), Acks(1), Le<int32_t>(18), Acks(2)})));
}

// ================================================================ on their own
//
// The receive paths after the bytes have arrived take a block and no
// connection, so that they can be fed bytes directly (a fuzz target does).

TEST(StandaloneReceive, BlocksUnpackWithinTheirBoundsAndBudget) {
  quor::ResultMatrixInfo l_cSource(2);
  l_cSource.SetRowInfo(1, 7, quor::RM_ROW_TYPE_TRANSITION);
  const Bytes l_aBlock = Hex("02 00 00 00 02 00 00 00 00 00 00 00 07 00 00 00 "
                             "02 00 00 00 00 00 00 00 01 00 00 00");
  quor::ResultMatrixInfo l_cInfo(0);
  auto l_fUnpack = [&](const char* p_pBlock, unsigned long long p_nSize) {
    return l_cInfo.UnPackValue(p_pBlock, p_nSize);
  };
  const char* l_pBlock = reinterpret_cast<const char*>(l_aBlock.data());
  EXPECT_EQ(quor::SteeringBase::UnpackBlock(l_pBlock, l_aBlock.size() - 1, 1 << 20, l_fUnpack),
            FAILURE);
  EXPECT_EQ(l_cInfo.GetRowCount(), 0u);
  {
    LogCapture l_cLog;
    EXPECT_EQ(quor::SteeringBase::UnpackBlock(l_pBlock, l_aBlock.size(), 8, l_fUnpack), FAILURE);
    EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
  }
  EXPECT_EQ(quor::SteeringBase::UnpackBlock(l_pBlock, l_aBlock.size(), 1 << 20, l_fUnpack), 1u);
  unsigned int l_nPosition = 0;
  quor::RM_ROW_TYPE l_eType = quor::RM_ROW_TYPE_PLACE;
  l_cInfo.GetRowInfo(1, l_nPosition, l_eType);
  EXPECT_EQ(l_nPosition, 7u);
  EXPECT_EQ(l_eType, quor::RM_ROW_TYPE_TRANSITION);

  quor::ModelRuntimeState l_cSent, l_cState;
  l_cSent.SetAttributeValue(wxString(quor::keys::SIMULATOR_STATE), 4);
  const Bytes l_aState = PackedAttributes(l_cSent);
  EXPECT_EQ(quor::SteeringBase::UnpackBlock(
                reinterpret_cast<const char*>(l_aState.data()), l_aState.size(), 1 << 20,
                [&](const char* p_p, unsigned long long p_n) { return l_cState.UnPackAttributes(p_p, p_n); }),
            1u);
  EXPECT_EQ(l_cState.GetAttributeValueInt(quor::keys::SIMULATOR_STATE), 4);
}

TEST(StandaloneReceive, StringListsAreDecodedFromTheirLengthsAndText) {
  std::vector<wxString> l_asList{wxT("keep")};
  const std::string l_sText = "abcdef";
  EXPECT_EQ(quor::SteeringVector::DecodeVectorString({3, 0, 2}, l_sText.data(), 6, l_asList), 1u);
  EXPECT_EQ(l_asList, (std::vector<wxString>{wxT("abc"), wxT(""), wxT("de")}));
  EXPECT_EQ(quor::SteeringVector::DecodeVectorString({3, 4}, l_sText.data(), 6, l_asList), FAILURE);
  EXPECT_EQ(quor::SteeringVector::DecodeVectorString({-1}, l_sText.data(), 6, l_asList), FAILURE);
  EXPECT_EQ(l_asList.size(), 3u);
}

TEST(StandaloneReceive, InflatingAFrameNeverWritesPastItAndZeroesTheRest) {
  const Bytes l_aStream = FortyByteStreamThatStops();
  std::vector<char> l_aDest(64, 'X');
  EXPECT_FALSE(quor::SteeringCommunicator::InflateFrame(l_aStream.data(), l_aStream.size(),
                                                        l_aDest.data(), 50));
  EXPECT_EQ(std::string(l_aDest.data() + 40, 10), std::string(10, '\0'));
  EXPECT_EQ(std::string(l_aDest.data() + 50, 14), std::string(14, 'X'));
  const Bytes l_aValue(50, 0x42);
  const Bytes l_aClean = Deflate(l_aValue);
  EXPECT_TRUE(quor::SteeringCommunicator::InflateFrame(l_aClean.data(), l_aClean.size(),
                                                       l_aDest.data(), 50));
  EXPECT_EQ(Bytes(l_aDest.begin(), l_aDest.begin() + 50), l_aValue);
  EXPECT_FALSE(quor::SteeringCommunicator::InflateFrame(l_aClean.data(), l_aClean.size(),
                                                        l_aDest.data(), 49));
  EXPECT_EQ(std::string(l_aDest.data() + 50, 14), std::string(14, 'X'));
}
