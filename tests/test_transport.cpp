// SPDX-License-Identifier: MIT
// Diagnostics, raw socket transfers, compression and the value and string
// frames, checked against an independent raw-socket peer.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <zlib.h>

#include <wx/thread.h>

#include <atomic>
#include <cctype>
#include <memory>
#include <thread>

#include "log_capture.h"
#include "quor/steeringBase.h"
#include "raw_peer.h"

using namespace quor_test;
using quor::FAILURE;
using quor::SteeringBase;
using quor::SteeringCommunicator;

namespace {

Bytes Pattern(size_t n) {
  Bytes l_a(n);
  for (size_t i = 0; i < n; ++i) l_a[i] = static_cast<uint8_t>((i * 7 + 3) & 0xff);
  return l_a;
}

// The bytes a raw receiver sees for one frame carrying `value`, given the
// compressed stream the sender produced (read back from the recording).
struct FrameParts {
  uint64_t compressedLength = 0;
  Bytes stream;
};

FrameParts SplitCompressedFrame(const Bytes& p_aWire) {
  FrameParts l_c;
  if (p_aWire.size() < 8) return l_c;
  std::memcpy(&l_c.compressedLength, p_aWire.data(), 8);
  l_c.stream.assign(p_aWire.begin() + 8, p_aWire.end());
  return l_c;
}

Bytes Inflate(const Bytes& p_aStream, size_t p_nSize) {
  Bytes l_a(p_nSize);
  uLongf l_nLength = static_cast<uLongf>(p_nSize);
  int l_nCode = uncompress(l_a.data(), &l_nLength, p_aStream.data(),
                           static_cast<uLong>(p_aStream.size()));
  EXPECT_EQ(l_nCode, Z_OK);
  l_a.resize(l_nLength);
  return l_a;
}

// True when the report reads p_sBefore, "(", a line number, ")", p_sAfter.
bool MatchesReport(const std::string& p_sReport, const std::string& p_sBefore,
                   const std::string& p_sAfter) {
  if (p_sReport.compare(0, p_sBefore.size() + 1, p_sBefore + "(") != 0) return false;
  size_t l_nPos = p_sBefore.size() + 1;
  const size_t l_nDigits = l_nPos;
  while (l_nPos < p_sReport.size() && std::isdigit(static_cast<unsigned char>(p_sReport[l_nPos])))
    ++l_nPos;
  return l_nPos > l_nDigits && p_sReport.substr(l_nPos) == ")" + p_sAfter;
}

}  // namespace

// ---------------------------------------------------------------- LOG

TEST(Log, NoticeAtLevelThreeIsPrefixed) {
  LogCapture l_cLog;
  quor::LOG(3, wxT("abc"));
  ASSERT_EQ(l_cLog.Records(), (std::vector<LogLine>{{3, "Notice: abc"}}));
}

TEST(Log, ErrorAndWarningPrefixes) {
  LogCapture l_cLog;
  quor::LOG(1, wxT("x"));
  quor::LOG(2, wxT("y"));
  ASSERT_EQ(l_cLog.Records(), (std::vector<LogLine>{{1, "Error: x"}, {2, "Warning: y"}}));
}

TEST(Log, OtherLevelsPassTheMessageUnchanged) {
  LogCapture l_cLog;
  quor::LOG(5, wxT("abc"));
  ASSERT_EQ(l_cLog.Records(), (std::vector<LogLine>{{5, "abc"}}));
}

TEST(Log, MessageIsTheFormatString) {
  // A percent sign is a conversion: "%%" reaches the log as one '%'.
  LogCapture l_cLog;
  quor::LOG(1, wxT("100%% sure"));
  ASSERT_EQ(l_cLog.Texts(), (std::vector<std::string>{"Error: 100% sure"}));
}

TEST(Log, LinesFromAnotherThreadArriveAfterAFlush) {
  LogCapture l_cLog;
  std::thread l_cWorker([] { quor::LOG(3, wxT("from a worker")); });
  l_cWorker.join();
  ASSERT_EQ(l_cLog.Texts(), (std::vector<std::string>{"Notice: from a worker"}));
}

// ---------------------------------------------------------------- reports

namespace {
unsigned int NullCheck(void* p_pPointer) {
  CHECK_POINTER(p_pPointer, return FAILURE);
  return 1;
}

unsigned int AllocateHuge() {
  char* l_pBlock = NULL;
  TRY_ALLOC(l_pBlock = quor::NewBlock(1ull << 60), return 7);
  delete[] l_pBlock;
  return 1;
}
}  // namespace

TEST(Reports, NullPointerLeavesNothingInTheLogOnlyTheResult) {
  LogCapture l_cLog;
  ReportCapture l_cReports;
  EXPECT_EQ(NullCheck(nullptr), FAILURE);
  EXPECT_TRUE(l_cLog.Records().empty());
  ASSERT_EQ(l_cReports.Reports().size(), 1u);
  EXPECT_TRUE(MatchesReport(l_cReports.Reports()[0],
                            "pointer error in test_transport.cpp", ": p_pPointer is NULL, we return FAILURE"))
      << l_cReports.Reports()[0];
  int l_n = 0;
  EXPECT_EQ(NullCheck(&l_n), 1u);
  EXPECT_EQ(l_cReports.Reports().size(), 1u);
}

TEST(Reports, AllocationFailureLogsExactlyOneLine) {
  LogCapture l_cLog;
  ReportCapture l_cReports;
  EXPECT_EQ(AllocateHuge(), 7u);
  ASSERT_EQ(l_cLog.Records(), (std::vector<LogLine>{{1, "Error: cannot allocate memory"}}));
  ASSERT_EQ(l_cReports.Reports().size(), 1u);
  EXPECT_TRUE(MatchesReport(l_cReports.Reports()[0],
                            "Try error in test_transport.cpp", ", we return 7"))
      << l_cReports.Reports()[0];
}

TEST(Reports, LibrarySourcesAreNamedRelativeToTheSourceTree) {
  EXPECT_EQ(quor::ReportSourcePath("/x/y/source/SteeringAPI/steeringBase.cpp"),
            wxT("../source/SteeringAPI/steeringBase.cpp"));
  EXPECT_EQ(quor::ReportSourcePath("source/ds/model.cpp"), wxT("../source/ds/model.cpp"));
}

// ---------------------------------------------------------------- raw transfers

TEST(Communicator, SendWithoutSocketFailsSilently) {
  LogCapture l_cLog;
  ReportCapture l_cReports;
  SteeringCommunicator l_cCom(nullptr);
  const char l_a[4] = {1, 2, 3, 4};
  EXPECT_EQ(l_cCom.SendBytes(l_a, 4), FAILURE);
  EXPECT_TRUE(l_cLog.Records().empty());
  ASSERT_EQ(l_cReports.Reports().size(), 1u);
  EXPECT_TRUE(MatchesReport(
      l_cReports.Reports()[0],
      "pointer error in ../source/SteeringAPI/steeringcommunicator.cpp",
      ": m_pcClientSocket is NULL, we return FAILURE"))
      << l_cReports.Reports()[0];
}

TEST(Communicator, TransfersOnAnUnconnectedSocketGiveTwo) {
  wxSocketClient l_cSocket(wxSOCKET_WAITALL | wxSOCKET_BLOCK);
  SteeringCommunicator l_cCom(&l_cSocket);
  char l_a[4] = {0, 0, 0, 0};
  EXPECT_FALSE(l_cCom.IsConnected());
  EXPECT_EQ(l_cCom.SendBytes(l_a, 4), 2u);
  EXPECT_EQ(l_cCom.ReceiveBytes(l_a, 4), 2u);
  EXPECT_EQ(l_cSocket.LastCount(), 0u);
}

TEST(Communicator, WritesAndReadsExactBytes) {
  LoopbackPair l_cPair;
  SteeringCommunicator l_cCom(l_cPair.Socket());
  EXPECT_TRUE(l_cCom.IsConnected());
  const Bytes l_aOut = Hex("de ad be ef 00 01");
  EXPECT_EQ(l_cCom.SendBytes(l_aOut.data(), l_aOut.size()), 1u);
  EXPECT_EQ(l_cPair.Peer().Read(6), l_aOut);
  l_cPair.Peer().Write(Hex("01 02 03"));
  Bytes l_aIn(3);
  EXPECT_EQ(l_cCom.ReceiveBytes(l_aIn.data(), 3), 1u);
  EXPECT_EQ(l_aIn, Hex("01 02 03"));
}

TEST(Communicator, ShortReadGivesFailure) {
  // The size handed to the socket is cut to 32 bits: asking for 2^32 + 2
  // bytes reads 2, which is short of the size asked for.
  LoopbackPair l_cPair;
  SteeringCommunicator l_cCom(l_cPair.Socket());
  l_cPair.Peer().Write(Hex("aa bb"));
  Bytes l_aIn(2);
  EXPECT_EQ(l_cCom.ReceiveBytes(l_aIn.data(), (1ull << 32) + 2), FAILURE);
  EXPECT_EQ(l_aIn, Hex("aa bb"));
}

TEST(Communicator, ShortWriteGivesFour) {
  LoopbackPair l_cPair;
  SteeringCommunicator l_cCom(l_cPair.Socket());
  const Bytes l_aOut = Hex("11 22");
  EXPECT_EQ(l_cCom.SendBytes(l_aOut.data(), (1ull << 32) + 2), 4u);
  EXPECT_EQ(l_cPair.Peer().Read(2), l_aOut);
}

TEST(Communicator, ReadFromAPeerThatClosesEarlyReturnsWithinTheTimeout) {
  LoopbackPair l_cPair(2);
  SteeringCommunicator l_cCom(l_cPair.Socket());
  l_cPair.Peer().Write(Hex("01 02"));
  l_cPair.Peer().Close();
  Bytes l_aIn(4);
  const unsigned int l_nResult = l_cCom.ReceiveBytes(l_aIn.data(), 4);
  EXPECT_EQ(l_nResult, 3u);  // the socket reports the closed connection
}

TEST(Communicator, SocketErrorsAreNotLogged) {
  LogCapture l_cLog;
  SteeringCommunicator l_cCom(nullptr);
  for (int l_nCode = -1; l_nCode <= 10; ++l_nCode) l_cCom.ShowSocketError(l_nCode);
  EXPECT_TRUE(l_cLog.Records().empty());
}

// The deflate bytes inside a stream are the compressor's own (zlib versions
// differ in them too); the header is the default level's, and zlib decodes
// the stream.
TEST(Communicator, CompressOfNothingIsAZlibStreamOfNothing) {
  SteeringCommunicator l_cCom(nullptr);
  unsigned long long l_nSize = 0;
  char l_c = 0;
  char* l_pBlock = static_cast<char*>(l_cCom.Compress(&l_c, l_nSize));
  ASSERT_NE(l_pBlock, nullptr);
  ASSERT_GE(l_nSize, 2u);
  EXPECT_LE(l_nSize, compressBound(0));
  EXPECT_EQ(Bytes(l_pBlock, l_pBlock + 2), Hex("78 9c"));
  Bytes l_aBack(1, 0x55);
  uLongf l_nBack = 1;
  EXPECT_EQ(uncompress(l_aBack.data(), &l_nBack, reinterpret_cast<const Bytef*>(l_pBlock),
                       static_cast<uLong>(l_nSize)),
            Z_OK);
  EXPECT_EQ(l_nBack, 0u);
  delete[] l_pBlock;
}

TEST(Communicator, EveryCompressedBlockIsADefaultLevelZlibStream) {
  for (size_t l_nLength : {1, 16, 101, 5000, 300000}) {
    const Bytes l_aData = Pattern(l_nLength);
    unsigned long long l_nSize = l_aData.size();
    std::unique_ptr<char[]> l_pBlock(
        static_cast<char*>(SteeringCommunicator(nullptr).Compress(l_aData.data(), l_nSize)));
    ASSERT_NE(l_pBlock, nullptr);
    EXPECT_LE(l_nSize, compressBound(static_cast<uLong>(l_aData.size())));
    EXPECT_EQ(Bytes(l_pBlock.get(), l_pBlock.get() + 2), Hex("78 9c")) << l_nLength;
    EXPECT_EQ(Inflate(Bytes(l_pBlock.get(), l_pBlock.get() + l_nSize), l_nLength), l_aData)
        << l_nLength;
  }
}

TEST(Communicator, CompressAndUncompressRoundTrip) {
  SteeringCommunicator l_cCom(nullptr);
  const Bytes l_aData = Pattern(5000);
  unsigned long long l_nSize = l_aData.size();
  char* l_pBlock = static_cast<char*>(l_cCom.Compress(l_aData.data(), l_nSize));
  ASSERT_NE(l_pBlock, nullptr);
  EXPECT_LE(l_nSize, compressBound(static_cast<uLong>(l_aData.size())));
  Bytes l_aBack(l_aData.size());
  EXPECT_EQ(l_cCom.Uncompress(l_pBlock, l_aBack.data(), l_nSize, l_aBack.size()), Z_OK);
  EXPECT_EQ(l_aBack, l_aData);
  // A damaged stream gives zlib's own error code.
  l_pBlock[2] ^= 0x55;
  l_pBlock[3] ^= 0x55;
  EXPECT_NE(l_cCom.Uncompress(l_pBlock, l_aBack.data(), l_nSize, l_aBack.size()), Z_OK);
  delete[] l_pBlock;
}

// ---------------------------------------------------------------- value frames

class ValueFrame : public ::testing::TestWithParam<size_t> {};

TEST_P(ValueFrame, FollowsTheHundredByteRule) {
  const size_t l_nSize = GetParam();
  const Bytes l_aValue = Pattern(l_nSize);
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  Bytes l_aGot;
  l_cPair.Run([&](RawPeer& p) { l_aGot = p.RecvFrame(l_nSize); });
  EXPECT_EQ(l_cBase.SendValue(l_aValue.data(), static_cast<unsigned int>(l_nSize)), 1u);
  l_cPair.Join();
  RawPeer& l_cPeer = l_cPair.Peer();
  EXPECT_EQ(l_aGot, l_aValue);
  if (l_nSize <= 100) {
    EXPECT_EQ(l_cPeer.Received(), l_aValue);
    EXPECT_EQ(l_cPeer.Sent(), Hex("61"));
  } else {
    FrameParts l_cParts = SplitCompressedFrame(l_cPeer.Received());
    EXPECT_EQ(l_cParts.compressedLength, l_cParts.stream.size());
    EXPECT_EQ(Inflate(l_cParts.stream, l_nSize), l_aValue);
    EXPECT_EQ(l_cPeer.Sent(), Hex("61 61"));
  }
}

TEST_P(ValueFrame, IsReceivedAndAcknowledged) {
  const size_t l_nSize = GetParam();
  const Bytes l_aValue = Pattern(l_nSize);
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  bool l_bSent = false;
  l_cPair.Run([&](RawPeer& p) { l_bSent = p.SendFrame(l_aValue); });
  Bytes l_aIn(l_nSize);
  EXPECT_EQ(l_cBase.ReceiveValue(l_aIn.data(), static_cast<unsigned int>(l_nSize)), 1u);
  l_cPair.Join();
  EXPECT_TRUE(l_bSent);
  EXPECT_EQ(l_aIn, l_aValue);
  EXPECT_EQ(l_cPair.Peer().Received(), l_nSize <= 100 ? Hex("61") : Hex("61 61"));
}

INSTANTIATE_TEST_SUITE_P(Sizes, ValueFrame, ::testing::Values(1, 4, 8, 99, 100, 101, 4096));

TEST(ValueFrameEdges, HundredBytesGoRawAndOneHundredAndOneCompressed) {
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  const Bytes l_aHundred(100, 0x20), l_aHundredOne(101, 0x20);
  l_cPair.Run([&](RawPeer& p) {
    p.RecvFrame(100);
    p.RecvFrame(101);
  });
  EXPECT_EQ(l_cBase.SendValue(l_aHundred.data(), 100), 1u);
  EXPECT_EQ(l_cBase.SendValue(l_aHundredOne.data(), 101), 1u);
  l_cPair.Join();
  const Bytes& l_aWire = l_cPair.Peer().Received();
  ASSERT_GT(l_aWire.size(), 108u);
  EXPECT_EQ(Bytes(l_aWire.begin(), l_aWire.begin() + 100), l_aHundred);
  FrameParts l_cParts = SplitCompressedFrame(Bytes(l_aWire.begin() + 100, l_aWire.end()));
  EXPECT_EQ(l_cParts.compressedLength, l_cParts.stream.size());
  EXPECT_LT(l_cParts.stream.size(), 101u);
  EXPECT_EQ(Inflate(l_cParts.stream, 101), l_aHundredOne);
  EXPECT_EQ(l_cPair.Peer().Sent(), Hex("61 61 61"));
}

TEST(ValueFrameEdges, NoSocketMeansFailureAndNothingOnTheWire) {
  SteeringBase l_cBase(nullptr);
  int l_n = 5;
  wxString l_s;
  EXPECT_EQ(l_cBase.SendValue(&l_n, 4), FAILURE);
  EXPECT_EQ(l_cBase.ReceiveValue(&l_n, 4), FAILURE);
  EXPECT_EQ(l_cBase.SendString(wxT("abc")), FAILURE);
}

TEST(ValueFrameEdges, FailedAcknowledgementIsReturnedAfterTheValueWasWritten) {
  LoopbackPair l_cPair(2);
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.Read(4);
    p.Close();  // no acknowledgement
  });
  const int l_n = 0x01020304;
  const unsigned int l_nResult = l_cBase.SendValue(&l_n, 4);
  l_cPair.Join();
  EXPECT_NE(l_nResult, 1u);
  EXPECT_EQ(l_nResult, 3u);  // the socket reports the closed connection
  EXPECT_EQ(l_cPair.Peer().Received(), Hex("04 03 02 01"));
}

TEST(ValueFrameEdges, PeerClosingInTheMiddleOfARawFrameFailsWithinTheTimeout) {
  LoopbackPair l_cPair(2);
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Peer().Write(Hex("01 02 03"));
  l_cPair.Peer().Close();
  unsigned long long l_n = 0;
  const unsigned int l_nResult = l_cBase.ReceiveValue(&l_n, 8);
  EXPECT_EQ(l_nResult, 3u);  // the socket reports the closed connection
}

TEST(ValueFrameEdges, PeerClosingInTheMiddleOfACompressedFrameFailsWithinTheTimeout) {
  LoopbackPair l_cPair(2);
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.Write(Le<uint64_t>(50));
    p.Read(1);
    p.Write(Hex("78 9c 01 02"));  // 4 of the 50 announced bytes
    p.Close();
  });
  Bytes l_aIn(500);
  const unsigned int l_nResult = l_cBase.ReceiveValue(l_aIn.data(), 500);
  l_cPair.Join();
  EXPECT_EQ(l_nResult, 3u);  // the socket reports the closed connection
  EXPECT_EQ(l_cPair.Peer().Received(), Hex("61"));
}

TEST(ValueFrameEdges, SilentPeerTimesOutInsteadOfHanging) {
  LoopbackPair l_cPair(1);
  SteeringBase l_cBase(l_cPair.Socket());
  int l_n = 0;
  const unsigned int l_nResult = l_cBase.ReceiveValue(&l_n, 4);
  EXPECT_EQ(l_nResult, 3u);
  EXPECT_EQ(l_cPair.Socket()->LastError(), wxSOCKET_TIMEDOUT);
  EXPECT_EQ(l_cPair.Peer().Sent().size(), 0u);
}

TEST(ValueFrameEdges, UnallocatableCompressedLengthLogsAndGivesZero) {
  LogCapture l_cLog;
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.Write(Le<uint64_t>(1ull << 62));
    p.Read(1);
  });
  Bytes l_aIn(200);
  EXPECT_EQ(l_cBase.ReceiveValue(l_aIn.data(), 200), 0u);
  l_cPair.Join();
  EXPECT_EQ(l_cPair.Peer().Received(), Hex("61"));
  EXPECT_EQ(l_cLog.Records(), (std::vector<LogLine>{{1, "Error: cannot allocate memory"}}));
}

TEST(ValueFrameEdges, CorruptCompressedBlockIsNotDetected) {
  // The receiver acknowledges and reports success; the destination holds
  // whatever zlib produced.
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.Write(Le<uint64_t>(4));
    p.Read(1);
    p.Write(Hex("00 11 22 33"));
    p.Read(1);
  });
  Bytes l_aIn(120, 0x7f);
  EXPECT_EQ(l_cBase.ReceiveValue(l_aIn.data(), 120), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_cPair.Peer().Received(), Hex("61 61"));
}

// ---------------------------------------------------------------- string frames

TEST(StringFrame, AsciiTextIsCountThenBytes) {
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  std::string l_sGot;
  l_cPair.Run([&](RawPeer& p) { l_sGot = p.RecvString(); });
  EXPECT_EQ(l_cBase.SendString(wxT("SIR")), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_sGot, "SIR");
  EXPECT_EQ(l_cPair.Peer().Received(), Hex("03 00 00 00 00 00 00 00 53 49 52"));
  EXPECT_EQ(l_cPair.Peer().Sent(), Hex("61 61"));
}

TEST(StringFrame, EmptyStringIsAZeroCountAndAnEmptyValue) {
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.Read(8);
    p.Ack();
    p.Ack();  // the zero-byte payload is acknowledged too
  });
  EXPECT_EQ(l_cBase.SendString(wxString()), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_cPair.Peer().Received(), Hex("00 00 00 00 00 00 00 00"));
  EXPECT_EQ(l_cPair.Peer().Sent(), Hex("61 61"));
}

TEST(StringFrame, EmptyStringIsReceived) {
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(0);
    p.Read(1);  // acknowledgement of the zero-byte payload
  });
  wxString l_s = wxT("old");
  EXPECT_EQ(l_cBase.ReceiveString(l_s), 1u);
  l_cPair.Join();
  EXPECT_TRUE(l_s.empty());
  EXPECT_EQ(l_cPair.Peer().Received(), Hex("61 61"));
}

TEST(StringFrame, HundredAndFiftyCharactersAreCompressed) {
  const std::string l_sText(150, 'q');
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  std::string l_sGot;
  l_cPair.Run([&](RawPeer& p) { l_sGot = p.RecvString(); });
  EXPECT_EQ(l_cBase.SendString(wxString(l_sText)), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_sGot, l_sText);
  const Bytes& l_aWire = l_cPair.Peer().Received();
  ASSERT_GE(l_aWire.size(), 16u);
  EXPECT_EQ(Bytes(l_aWire.begin(), l_aWire.begin() + 8), Le<uint64_t>(150));
  FrameParts l_cParts = SplitCompressedFrame(Bytes(l_aWire.begin() + 8, l_aWire.end()));
  EXPECT_EQ(l_cParts.compressedLength, l_cParts.stream.size());
  EXPECT_EQ(Inflate(l_cParts.stream, 150), Text(l_sText));
  EXPECT_EQ(l_cPair.Peer().Sent(), Hex("61 61 61"));
}

TEST(StringFrame, LongTextIsReceivedFromACompressedFrame) {
  const std::string l_sText(300, 'z');
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) { p.SendString(l_sText); });
  wxString l_s;
  EXPECT_EQ(l_cBase.ReceiveString(l_s), 1u);
  l_cPair.Join();
  EXPECT_EQ(std::string(l_s.utf8_str().data()), l_sText);
}

TEST(StringFrame, CountIsCharactersAndTheMultibyteFormIsCut) {
  // "aé" has 2 characters and 3 bytes in UTF-8: 2 bytes go on the wire.
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) { p.RecvString(); });
  EXPECT_EQ(l_cBase.SendString(wxString::FromUTF8("a\xc3\xa9")), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_cPair.Peer().Received(), Hex("02 00 00 00 00 00 00 00 61 c3"));
}

TEST(StringFrame, BytesThatAreNotUtf8DecodeBytewise) {
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) { p.SendString(std::string("caf\xe9")); });
  wxString l_s;
  EXPECT_EQ(l_cBase.ReceiveString(l_s), 1u);
  l_cPair.Join();
  ASSERT_EQ(l_s.length(), 4u);
  EXPECT_EQ(static_cast<unsigned>(l_s[3].GetValue()), 0xE9u);
}

TEST(StringFrame, Utf8TextIsDecoded) {
  char l_aText[] = "\xc3\xa9t\xc3\xa9";
  const wxString l_s = SteeringBase::StrTowxString(l_aText);
  ASSERT_EQ(l_s.length(), 3u);
  EXPECT_EQ(static_cast<unsigned>(l_s[0].GetValue()), 0xE9u);
  char l_aLatin[] = "\xe9";
  EXPECT_EQ(static_cast<unsigned>(SteeringBase::StrTowxString(l_aLatin)[0].GetValue()), 0xE9u);
  char l_aEmpty[] = "";
  EXPECT_TRUE(SteeringBase::StrTowxString(l_aEmpty).empty());
}

TEST(StringFrame, FailedCountLeavesTheStringUnchanged) {
  LoopbackPair l_cPair(2);
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Peer().Write(Hex("05 00"));
  l_cPair.Peer().Close();
  wxString l_s = wxT("kept");
  EXPECT_NE(l_cBase.ReceiveString(l_s), 1u);
  EXPECT_EQ(l_s, wxT("kept"));
}

TEST(StringFrame, ImpossibleLengthIsAnAllocationFailure) {
  LogCapture l_cLog;
  LoopbackPair l_cPair;
  SteeringBase l_cBase(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) { p.SendValue<uint64_t>(~0ull); });
  wxString l_s = wxT("kept");
  EXPECT_EQ(l_cBase.ReceiveString(l_s), 0u);
  l_cPair.Join();
  EXPECT_EQ(l_s, wxT("kept"));
  EXPECT_EQ(l_cLog.Texts(), (std::vector<std::string>{"Error: cannot allocate memory"}));
}

TEST(StringFrame, TwoLibraryEndsAgree) {
  // Both ends through the library, on two threads.
  LoopbackPair l_cPair;
  SteeringBase l_cSender(l_cPair.Socket());
  std::string l_sRelayed;
  l_cPair.Run([&](RawPeer& p) {
    // The raw peer relays the sender's string back unchanged.
    l_sRelayed = p.RecvString();
    p.SendString(l_sRelayed);
  });
  EXPECT_EQ(l_cSender.SendString(wxT("Lotka-Volterra")), 1u);
  wxString l_sBack;
  EXPECT_EQ(l_cSender.ReceiveString(l_sBack), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_sBack, wxT("Lotka-Volterra"));
}

// ------------------------------------------------------------ kernel timeouts
//
// A blocking socket waits inside the kernel; its send and receive timeouts
// bound those waits by the socket's timeout. They are set once per socket
// (and again when the socket, its descriptor or its timeout change), not on
// every transfer.

namespace {
long KernelTimeout(wxSocketBase* p_pcSocket, int p_nOption) {
  timeval l_cTimeout{};
  socklen_t l_nSize = sizeof(l_cTimeout);
  getsockopt(static_cast<int>(p_pcSocket->GetSocket()), SOL_SOCKET, p_nOption, &l_cTimeout,
             &l_nSize);
  return static_cast<long>(l_cTimeout.tv_sec);
}

// Sends one raw frame and has the peer acknowledge it.
void OneFrame(LoopbackPair& p_cPair, SteeringBase& p_cBase) {
  p_cPair.Run([](RawPeer& p) { p.RecvFrame(4); });
  const uint32_t l_nValue = 7;
  EXPECT_EQ(p_cBase.SendValue(&l_nValue, 4), 1u);
  p_cPair.Join();
}
}  // namespace

TEST(KernelTimeouts, AreSetOnceForASocketWhoseTimeoutStaysTheSame) {
  LoopbackPair l_cPair(5);
  SteeringBase l_cBase(l_cPair.Socket());
  for (int i = 0; i < 5; ++i) OneFrame(l_cPair, l_cBase);
  EXPECT_EQ(l_cBase.TimeoutsApplied(), 1u);
  EXPECT_EQ(KernelTimeout(l_cPair.Socket(), SO_RCVTIMEO), 5);
  EXPECT_EQ(KernelTimeout(l_cPair.Socket(), SO_SNDTIMEO), 5);
}

TEST(KernelTimeouts, AreSetAgainWhenTheSocketsTimeoutChanges) {
  LoopbackPair l_cPair(5);
  SteeringBase l_cBase(l_cPair.Socket());
  OneFrame(l_cPair, l_cBase);
  l_cPair.Socket()->SetTimeout(9);
  OneFrame(l_cPair, l_cBase);
  EXPECT_EQ(l_cBase.TimeoutsApplied(), 2u);
  EXPECT_EQ(KernelTimeout(l_cPair.Socket(), SO_RCVTIMEO), 9);
  EXPECT_EQ(KernelTimeout(l_cPair.Socket(), SO_SNDTIMEO), 9);
}

TEST(KernelTimeouts, AreSetOnAnotherSocketHandedToTheCommunicator) {
  LoopbackPair l_cFirst(5);
  SteeringBase l_cBase(l_cFirst.Socket());
  OneFrame(l_cFirst, l_cBase);
  {
    // Same timeout, another descriptor.
    LoopbackPair l_cSecond(5);
    l_cBase.SetClientSocket(l_cSecond.Socket());
    OneFrame(l_cSecond, l_cBase);
    EXPECT_EQ(KernelTimeout(l_cSecond.Socket(), SO_RCVTIMEO), 5);
    EXPECT_EQ(KernelTimeout(l_cSecond.Socket(), SO_SNDTIMEO), 5);
    l_cBase.SetClientSocket(l_cFirst.Socket());
  }
  EXPECT_EQ(l_cBase.TimeoutsApplied(), 2u);
  // The first socket handed back is set again: whoever hands a socket over
  // may have connected it anew in between.
  OneFrame(l_cFirst, l_cBase);
  EXPECT_EQ(l_cBase.TimeoutsApplied(), 3u);
}

// A descriptor number comes back with the next socket made after a close,
// and a new object may sit where a deleted one was: the same pointer, the
// same number and the same timeout are then a new kernel socket whose
// timeouts are unset. Whoever makes sockets says so (SocketsRenewed), as the
// client does after every connect and the server after every accept.
TEST(KernelTimeouts, AreSetAgainAfterSocketsWereRenewed) {
  LoopbackPair l_cPair(5);
  SteeringBase l_cBase(l_cPair.Socket());
  SteeringBase l_cOther(l_cPair.Socket());
  OneFrame(l_cPair, l_cBase);
  OneFrame(l_cPair, l_cOther);
  timeval l_cNone{};
  setsockopt(static_cast<int>(l_cPair.Socket()->GetSocket()), SOL_SOCKET, SO_RCVTIMEO, &l_cNone,
             sizeof(l_cNone));
  setsockopt(static_cast<int>(l_cPair.Socket()->GetSocket()), SOL_SOCKET, SO_SNDTIMEO, &l_cNone,
             sizeof(l_cNone));
  SteeringCommunicator::SocketsRenewed();
  OneFrame(l_cPair, l_cBase);
  EXPECT_EQ(l_cBase.TimeoutsApplied(), 2u);
  EXPECT_EQ(l_cOther.TimeoutsApplied(), 1u);  // not used since
  EXPECT_EQ(KernelTimeout(l_cPair.Socket(), SO_RCVTIMEO), 5);
  EXPECT_EQ(KernelTimeout(l_cPair.Socket(), SO_SNDTIMEO), 5);
  OneFrame(l_cPair, l_cOther);
  EXPECT_EQ(l_cOther.TimeoutsApplied(), 2u);
}
