// SPDX-License-Identifier: MIT
// ResultMatrixInfo: row descriptions and their message (an 8-byte length and
// one packed buffer) as the raw peer sees it.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "log_capture.h"
#include "quor/resultMatrixInfo.h"
#include "quor/steeringBase.h"
#include "raw_peer.h"

using namespace quor;
using namespace quor_test;

namespace {

// Opens the lists for inspection.
class Probe : public ResultMatrixInfo {
 public:
  explicit Probe(unsigned int p_nRows) : ResultMatrixInfo(p_nRows) {}
  std::vector<int>& Positions() { return m_anRowPositions.GetValue(); }
  std::vector<int>& Types() { return m_anRowTypes.GetValue(); }
};

// A packed list of 32-bit integers.
Bytes Ints(const std::vector<int32_t>& p_an) {
  Bytes l_a = Le<uint32_t>(static_cast<uint32_t>(p_an.size()));
  for (int32_t l_n : p_an) l_a = Cat({l_a, Le(l_n)});
  return l_a;
}

Bytes Description(uint32_t p_nRows, const std::vector<int32_t>& p_anPositions,
                  const std::vector<int32_t>& p_anTypes) {
  return Cat({Le(p_nRows), Ints(p_anPositions), Ints(p_anTypes)});
}

// Three rows: (4, transition), (7, observer), (0, place).
void Describe(ResultMatrixInfo& p_cInfo) {
  p_cInfo.SetRowCount(3);
  p_cInfo.SetRowInfo(0, 4, RM_ROW_TYPE_TRANSITION);
  p_cInfo.SetRowInfo(1, 7, RM_ROW_TYPE_OBSERVER);
}

void ExpectDescribed(Probe& p_cInfo) {
  EXPECT_EQ(p_cInfo.GetRowCount(), 3u);
  EXPECT_EQ(p_cInfo.Positions(), (std::vector<int>{4, 7, 0}));
  EXPECT_EQ(p_cInfo.Types(), (std::vector<int>{1, 3, 0}));
}

// What GetRowInfo leaves in outputs preset to position 55 and type
// RM_ROW_TYPE_PARAMETER (2).
typedef std::pair<unsigned int, int> Row;
const Row g_cUntouched(55, RM_ROW_TYPE_PARAMETER);
Row RowInfo(ResultMatrixInfo& p_cInfo, unsigned int p_nRow) {
  unsigned int l_nPosition = g_cUntouched.first;
  RM_ROW_TYPE l_eType = RM_ROW_TYPE_PARAMETER;
  p_cInfo.GetRowInfo(p_nRow, l_nPosition, l_eType);
  return Row(l_nPosition, l_eType);
}

// Sends the length and the buffer as the peer would.
void Script(LoopbackPair& p_cPair, uint64_t p_nLength, const Bytes& p_aBuffer) {
  p_cPair.Run([p_nLength, p_aBuffer](RawPeer& p_cPeer) {
    p_cPeer.SendValue(p_nLength);
    p_cPeer.SendFrame(p_aBuffer);
  });
}

// Receives one scripted description into p_cInfo.
unsigned int ReceiveScripted(Probe& p_cInfo, uint64_t p_nLength, const Bytes& p_aBuffer) {
  LoopbackPair l_cPair;
  SteeringBase l_cLink(l_cPair.Socket());
  Script(l_cPair, p_nLength, p_aBuffer);
  const unsigned int l_nResult = p_cInfo.ReceiveValue(&l_cLink);
  l_cPair.Join();
  return l_nResult;
}

// Sends p_cInfo and returns what the raw peer received.
Bytes SendToPeer(ResultMatrixInfo& p_cInfo, uint64_t* p_pnLength, Bytes* p_paBuffer) {
  LoopbackPair l_cPair;
  SteeringBase l_cLink(l_cPair.Socket());
  l_cPair.Run([=](RawPeer& p_cPeer) {
    *p_pnLength = p_cPeer.RecvValue<uint64_t>();
    *p_paBuffer = p_cPeer.RecvFrame(static_cast<size_t>(*p_pnLength));
  });
  EXPECT_EQ(p_cInfo.SendValue(&l_cLink), 1u);
  l_cPair.Join();
  return l_cPair.Peer().Received();
}

}  // namespace

TEST(ResultMatrixInfo, ZeroRowsSendTheCountAndTwoEmptyLists) {
  Probe l_cInfo(0);
  uint64_t l_nLength = 0;
  Bytes l_aBuffer;
  const Bytes l_aWire = SendToPeer(l_cInfo, &l_nLength, &l_aBuffer);
  EXPECT_EQ(l_nLength, 12u);
  EXPECT_EQ(ToHex(l_aWire), ToHex(Cat({Le<uint64_t>(12), Hex("00 00 00 00 00 00 00 00 00 00 00 00")})));

  // A described receiver ends with no rows and empty lists.
  Probe l_cReceiver(3);
  Describe(l_cReceiver);
  EXPECT_EQ(ReceiveScripted(l_cReceiver, l_nLength, l_aBuffer), 1u);
  EXPECT_EQ(l_cReceiver.GetRowCount(), 0u);
  EXPECT_TRUE(l_cReceiver.Positions().empty());
  EXPECT_TRUE(l_cReceiver.Types().empty());
}

TEST(ResultMatrixInfo, NewRowsAreZeroAndOneRowCanBeDescribed) {
  Probe l_cInfo(3);
  EXPECT_EQ(l_cInfo.GetRowCount(), 3u);
  EXPECT_EQ(l_cInfo.Positions(), (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(l_cInfo.Types(), (std::vector<int>{0, 0, 0}));

  l_cInfo.SetRowInfo(1, 7, RM_ROW_TYPE_OBSERVER);
  EXPECT_EQ(RowInfo(l_cInfo, 1), Row(7, RM_ROW_TYPE_OBSERVER));
  EXPECT_EQ(RowInfo(l_cInfo, 0), Row(0, 0));
  EXPECT_EQ(RowInfo(l_cInfo, 2), Row(0, 0));
}

TEST(ResultMatrixInfo, ARowAtTheCountIsIgnored) {
  Probe l_cInfo(3);
  Describe(l_cInfo);
  l_cInfo.SetRowInfo(3, 9, RM_ROW_TYPE_PARAMETER);
  ExpectDescribed(l_cInfo);
  EXPECT_EQ(RowInfo(l_cInfo, 3), g_cUntouched);
}

TEST(ResultMatrixInfo, SetRowCountResetsEveryRow) {
  Probe l_cInfo(3);
  Describe(l_cInfo);
  l_cInfo.SetRowCount(3);
  EXPECT_EQ(l_cInfo.GetRowCount(), 3u);
  EXPECT_EQ(l_cInfo.Positions(), (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(l_cInfo.Types(), (std::vector<int>{0, 0, 0}));
  l_cInfo.SetRowCount(1);
  EXPECT_EQ(l_cInfo.Positions(), (std::vector<int>{0}));
  EXPECT_EQ(l_cInfo.Types(), (std::vector<int>{0}));
}

TEST(ResultMatrixInfo, SendPutsTheLengthAndThePackedBufferOnTheWire) {
  Probe l_cInfo(1);
  Describe(l_cInfo);
  uint64_t l_nLength = 0;
  Bytes l_aBuffer;
  const Bytes l_aWire = SendToPeer(l_cInfo, &l_nLength, &l_aBuffer);
  const Bytes l_aExpected = Description(3, {4, 7, 0}, {1, 3, 0});
  EXPECT_EQ(l_nLength, 36u);
  EXPECT_EQ(ToHex(l_aWire), ToHex(Cat({Le<uint64_t>(36), l_aExpected})));
  ExpectDescribed(l_cInfo);
}

TEST(ResultMatrixInfo, AReceiverTakesTheSendersRowCountAndEntries) {
  Probe l_cReceiver(5);
  const Bytes l_aBuffer = Description(3, {4, 7, 0}, {1, 3, 0});
  LoopbackPair l_cPair;
  SteeringBase l_cLink(l_cPair.Socket());
  Script(l_cPair, l_aBuffer.size(), l_aBuffer);
  EXPECT_EQ(l_cReceiver.ReceiveValue(&l_cLink), 1u);
  l_cPair.Join();
  ExpectDescribed(l_cReceiver);
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), "61 61");
}

TEST(ResultMatrixInfo, ADescriptionSentByOneObjectIsReceivedByAnother) {
  Probe l_cSender(1);
  Describe(l_cSender);
  uint64_t l_nLength = 0;
  Bytes l_aBuffer;
  SendToPeer(l_cSender, &l_nLength, &l_aBuffer);
  Probe l_cReceiver(8);
  EXPECT_EQ(ReceiveScripted(l_cReceiver, l_nLength, l_aBuffer), 1u);
  ExpectDescribed(l_cReceiver);
}

TEST(ResultMatrixInfo, BytesBeyondTheDescriptionAreIgnored) {
  Probe l_cReceiver(0);
  const Bytes l_aBuffer = Cat({Description(3, {4, 7, 0}, {1, 3, 0}), Hex("de ad be ef")});
  EXPECT_EQ(ReceiveScripted(l_cReceiver, l_aBuffer.size(), l_aBuffer), 1u);
  ExpectDescribed(l_cReceiver);
}

TEST(ResultMatrixInfo, ATruncatedBufferFailsAndChangesNothing) {
  Probe l_cReceiver(1);
  Describe(l_cReceiver);
  // The types list announces 2 entries but the buffer ends after one.
  const Bytes l_aBuffer = Cat({Le<uint32_t>(2), Ints({9, 9}), Le<uint32_t>(2), Le<int32_t>(2)});
  EXPECT_EQ(ReceiveScripted(l_cReceiver, l_aBuffer.size(), l_aBuffer), FAILURE);
  ExpectDescribed(l_cReceiver);

  // The buffer ends inside the row count.
  EXPECT_EQ(ReceiveScripted(l_cReceiver, 2, Hex("02 00")), FAILURE);
  ExpectDescribed(l_cReceiver);
}

TEST(ResultMatrixInfo, AHugeListCountFailsWithoutAllocatingIt) {
  Probe l_cReceiver(1);
  Describe(l_cReceiver);
  const Bytes l_aBuffer = Cat({Le<uint32_t>(2), Le<uint32_t>(0x40000000u), Le<int32_t>(9)});
  EXPECT_EQ(ReceiveScripted(l_cReceiver, l_aBuffer.size(), l_aBuffer), FAILURE);
  ExpectDescribed(l_cReceiver);
}

TEST(ResultMatrixInfo, ALengthNoFrameCanCarryIsAnAllocationFailure) {
  Probe l_cReceiver(1);
  Describe(l_cReceiver);
  LogCapture l_cLog;
  LoopbackPair l_cPair;
  SteeringBase l_cLink(l_cPair.Socket());
  l_cPair.Run([](RawPeer& p_cPeer) { p_cPeer.SendValue<uint64_t>(0x100000000ull); });
  EXPECT_EQ(l_cReceiver.ReceiveValue(&l_cLink), FAILURE);
  l_cPair.Join();
  ExpectDescribed(l_cReceiver);
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), "61");  // the length only
}

TEST(ResultMatrixInfo, AFailedReceiveOfTheBufferChangesNothing) {
  Probe l_cReceiver(1);
  Describe(l_cReceiver);
  LoopbackPair l_cPair;
  SteeringBase l_cLink(l_cPair.Socket());
  l_cPair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint64_t>(36);
    p_cPeer.Write(Hex("03 00 00 00"));
    p_cPeer.Close();
  });
  EXPECT_NE(l_cReceiver.ReceiveValue(&l_cLink), 1u);
  l_cPair.Join();
  ExpectDescribed(l_cReceiver);
}

TEST(ResultMatrixInfo, ListsShorterThanTheRowCountAreNeverIndexedPastTheirEnd) {
  // Taken as it comes: 3 rows but one entry in each list.
  Probe l_cReceiver(0);
  const Bytes l_aBuffer = Description(3, {4}, {1});
  EXPECT_EQ(ReceiveScripted(l_cReceiver, l_aBuffer.size(), l_aBuffer), 1u);
  EXPECT_EQ(l_cReceiver.GetRowCount(), 3u);
  EXPECT_EQ(l_cReceiver.Positions(), (std::vector<int>{4}));

  l_cReceiver.SetRowInfo(2, 9, RM_ROW_TYPE_OBSERVER);
  EXPECT_EQ(RowInfo(l_cReceiver, 2), g_cUntouched);
  EXPECT_EQ(RowInfo(l_cReceiver, 0), Row(4, RM_ROW_TYPE_TRANSITION));
  EXPECT_EQ(l_cReceiver.Positions(), (std::vector<int>{4}));
  EXPECT_EQ(l_cReceiver.Types(), (std::vector<int>{1}));
}

TEST(ResultMatrixInfo, NoConnectionFails) {
  Probe l_cInfo(1);
  Describe(l_cInfo);
  ReportCapture l_cReports;
  EXPECT_EQ(l_cInfo.SendValue(NULL), FAILURE);
  EXPECT_EQ(l_cInfo.ReceiveValue(NULL), FAILURE);
  ExpectDescribed(l_cInfo);
  const std::vector<std::string> l_asReports = l_cReports.Reports();
  ASSERT_EQ(l_asReports.size(), 2u);
  for (const std::string& l_s : l_asReports) {
    EXPECT_NE(l_s.find("../source/helper/resultMatrixInfo.cpp"), std::string::npos);
    EXPECT_NE(l_s.find("p_pcCommunicator is NULL, we return FAILURE"), std::string::npos);
  }
}

#if !defined(__SANITIZE_ADDRESS__)
// Caps the address space, then asks for far more rows than fit: the object
// is left with no rows, the allocation failure is logged and nothing is
// thrown. Exits with 0 when all of that holds.
void GrowBeyondMemory() {
  rlimit l_cLimit;
  l_cLimit.rlim_cur = l_cLimit.rlim_max = 1ull << 31;
  setrlimit(RLIMIT_AS, &l_cLimit);
  LogCapture l_cLog;
  Probe l_cInfo(2);
  l_cInfo.SetRowCount(0xF0000000u);
  const bool l_bOk = l_cInfo.GetRowCount() == 0 && l_cInfo.Positions().empty() &&
                     l_cInfo.Types().empty() &&
                     l_cLog.Texts() == std::vector<std::string>{"Error: cannot allocate memory"};
  std::exit(l_bOk ? 0 : 1);
}

TEST(ResultMatrixInfoDeathTest, ARowCountTooLargeToHoldLeavesNoRows) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(GrowBeyondMemory(), ::testing::ExitedWithCode(0), "");
}
#endif
