// SPDX-License-Identifier: MIT
// Attributes sending and receiving themselves over a loopback connection,
// checked byte for byte against an independent raw peer.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "log_capture.h"
#include "quor/attribute.h"
#include "quor/attributeStruct.h"
#include "quor/attributeTransitionConnection.h"
#include "quor/attributeVector.h"
#include "quor/attributeVectorAttribute.h"
#include "quor/steeringvector.h"
#include "raw_peer.h"

using namespace quor_test;
using quor::Attribute;
using quor::FAILURE;

namespace {

// A connection with a plain SteeringBase and a SteeringVector on the library
// end; both use the same socket.
struct Wire {
  LoopbackPair pair;
  quor::SteeringBase base{pair.Socket()};
  quor::SteeringVector vector{pair.Socket()};

  RawPeer& Peer() { return pair.Peer(); }
  std::string Received() { return ToHex(pair.Peer().Received()); }
  std::string Sent() { return ToHex(pair.Peer().Sent()); }
};

std::unique_ptr<quor::AttributeStruct> RecordAB(int p_nA, bool p_bB) {
  std::unique_ptr<quor::AttributeStruct> l_pc(new quor::AttributeStruct(wxT("R")));
  l_pc->AddField(new quor::AttributeBool(wxT("B"), p_bB));
  l_pc->AddField(new quor::AttributeInt(wxT("A"), p_nA));
  return l_pc;
}

int IntField(Attribute* p_pcRecord, const char* p_sName) {
  auto* l_pcField = dynamic_cast<quor::AttributeInt*>(
      dynamic_cast<quor::AttributeStruct*>(p_pcRecord)->GetField(wxString(p_sName)));
  return l_pcField ? l_pcField->GetValue() : -12345;
}

bool BoolField(Attribute* p_pcRecord, const char* p_sName) {
  auto* l_pcField = dynamic_cast<quor::AttributeBool*>(
      dynamic_cast<quor::AttributeStruct*>(p_pcRecord)->GetField(wxString(p_sName)));
  return l_pcField && l_pcField->GetValue();
}

// Sends the attribute and returns the bytes that the peer read as n-byte
// value frames (acknowledging each).
template <typename... Sizes>
std::string SendAndRead(Wire& p_cWire, Attribute& p_cAttribute, quor::SteeringBase* p_pcThrough,
                        Sizes... p_anSizes) {
  p_cWire.pair.Run([=](RawPeer& p_cPeer) {
    for (size_t l_n : {static_cast<size_t>(p_anSizes)...}) p_cPeer.RecvFrame(l_n);
  });
  EXPECT_EQ(p_cAttribute.SendValue(p_pcThrough), 1u);
  p_cWire.pair.Join();
  return p_cWire.Received();
}

}  // namespace

// ------------------------------------------------------------ scalars

TEST(AttributeWireScalar, EachScalarSendsOneValueFrameOfItsWidth) {
  struct Row {
    std::unique_ptr<Attribute> attribute;
    size_t width;
    std::string bytes;
  };
  Row l_aRows[] = {
      {std::unique_ptr<Attribute>(new quor::AttributeInt(wxT("i"), 5)), 4, "05 00 00 00"},
      {std::unique_ptr<Attribute>(new quor::AttributeUint(wxT("u"), 0xFFFFFFFFu)), 4,
       "ff ff ff ff"},
      {std::unique_ptr<Attribute>(new quor::AttributeLong(wxT("l"), -2)), 8,
       "fe ff ff ff ff ff ff ff"},
      {std::unique_ptr<Attribute>(
           new quor::AttributeUlong(wxT("ul"), std::numeric_limits<unsigned long long>::max())),
       8, "ff ff ff ff ff ff ff ff"},
      {std::unique_ptr<Attribute>(new quor::AttributeDouble(wxT("d"), 1.0)), 8,
       "00 00 00 00 00 00 f0 3f"},
      {std::unique_ptr<Attribute>(new quor::AttributeBool(wxT("b"), true)), 1, "01"},
  };
  for (Row& l_cRow : l_aRows) {
    Wire l_cWire;
    EXPECT_EQ(SendAndRead(l_cWire, *l_cRow.attribute, &l_cWire.base, l_cRow.width), l_cRow.bytes);
    EXPECT_EQ(l_cWire.Sent(), "61");
  }
}

TEST(AttributeWireScalar, ReceiveTakesOneValueFrameAndAcknowledgesIt) {
  Wire l_cWire;
  quor::AttributeLong l_cLong(wxT("l"), 0);
  quor::AttributeDouble l_cDouble(wxT("d"), 0);
  quor::AttributeInt l_cInt(wxT("i"), 0);
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue(std::numeric_limits<long long>::min());
    p_cPeer.SendValue(-std::numeric_limits<double>::infinity());
    p_cPeer.SendFrame(Hex("fb ff ff ff"));
  });
  EXPECT_EQ(l_cLong.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_cDouble.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_cInt.ReceiveValue(&l_cWire.base), 1u);
  l_cWire.pair.Join();
  EXPECT_EQ(l_cLong.GetValue(), std::numeric_limits<long long>::min());
  EXPECT_EQ(l_cDouble.GetValue(), -std::numeric_limits<double>::infinity());
  EXPECT_EQ(l_cInt.GetValue(), -5);
  EXPECT_EQ(l_cWire.Received(), "61 61 61");
}

TEST(AttributeWireScalar, NanTravelsBitForBit) {
  Wire l_cWire;
  const Bytes l_aNan = Hex("23 01 00 00 00 00 f8 7f");
  quor::AttributeDouble l_cDouble(wxT("d"), 0);
  l_cWire.pair.Run([&](RawPeer& p_cPeer) {
    p_cPeer.SendFrame(l_aNan);
    p_cPeer.RecvFrame(8);
  });
  EXPECT_EQ(l_cDouble.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_TRUE(std::isnan(l_cDouble.GetValue()));
  EXPECT_EQ(l_cDouble.SendValue(&l_cWire.base), 1u);
  l_cWire.pair.Join();
  EXPECT_EQ(l_cWire.Received(), "61 " + ToHex(l_aNan));
}

// A received byte other than 0 or 1 reads as true and is sent back as 01.
TEST(AttributeWireScalar, BoolReceivesAnyNonZeroByteAsTrue) {
  Wire l_cWire;
  quor::AttributeBool l_cBool(wxT("b"), false);
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendFrame(Hex("05"));
    p_cPeer.RecvFrame(1);
    p_cPeer.SendFrame(Hex("00"));
  });
  EXPECT_EQ(l_cBool.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_TRUE(l_cBool.GetValue());
  EXPECT_EQ(l_cBool.SendValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_cBool.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_FALSE(l_cBool.GetValue());
  l_cWire.pair.Join();
  EXPECT_EQ(l_cWire.Received(), "61 01 61");
}

TEST(AttributeWireScalar, ReceiveFromAClosedPeerFailsAndKeepsTheValue) {
  Wire l_cWire;
  quor::AttributeInt l_cInt(wxT("i"), 42);
  l_cWire.Peer().Close();
  EXPECT_NE(l_cInt.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_cInt.GetValue(), 42);
}

TEST(AttributeWireScalar, SendToAClosedPeerFails) {
  Wire l_cWire;
  quor::AttributeUlong l_c(wxT("u"), 1);
  l_cWire.Peer().Close();
  EXPECT_NE(l_c.SendValue(&l_cWire.base), 1u);
}

// ------------------------------------------------------------ string

// The character count as an 8-byte frame, then the text as a frame of that
// many bytes (an empty frame for an empty string).
TEST(AttributeWireString, SendsAStringFrame) {
  const std::pair<const char*, const char*> l_aRows[] = {
      {"abc", "03 00 00 00 00 00 00 00 61 62 63"}, {"", "00 00 00 00 00 00 00 00"}};
  for (const auto& l_cRow : l_aRows) {
    Wire l_cWire;
    Attribute l_c(wxT("s"), wxString(l_cRow.first));
    const std::string l_sText = l_cRow.first;
    l_cWire.pair.Run([l_sText](RawPeer& p_cPeer) { EXPECT_EQ(p_cPeer.RecvString(), l_sText); });
    EXPECT_EQ(l_c.SendValue(&l_cWire.base), 1u);
    l_cWire.pair.Join();
    EXPECT_EQ(l_cWire.Received(), l_cRow.second);
    EXPECT_EQ(l_cWire.Sent(), "61 61");
  }
}

TEST(AttributeWireString, ReceivesAStringFrame) {
  Wire l_cWire;
  Attribute l_c(wxT("s"), wxT("old"));
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendString("xyz");
    p_cPeer.SendString("");
  });
  EXPECT_EQ(l_c.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_c.GetValueString(), wxT("xyz"));
  EXPECT_EQ(l_c.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_c.GetValueString(), wxT(""));
  l_cWire.pair.Join();
  EXPECT_EQ(l_cWire.Received(), "61 61 61 61");
}

TEST(AttributeWireString, ReceiveFromAClosedPeerFailsAndKeepsTheValue) {
  Wire l_cWire;
  Attribute l_c(wxT("s"), wxT("old"));
  l_cWire.Peer().Close();
  EXPECT_NE(l_c.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_c.GetValueString(), wxT("old"));
}

// ------------------------------------------------------------ numeric lists

TEST(AttributeWireVector, IntListIsACountFrameAndOneElementsFrame) {
  Wire l_cWire;
  quor::AttributeVectorInt l_c(wxT("vi"));
  l_c.SetValue({1, -1});
  EXPECT_EQ(SendAndRead(l_cWire, l_c, &l_cWire.vector, 8, 8),
            "02 00 00 00 00 00 00 00 01 00 00 00 ff ff ff ff");
  EXPECT_EQ(l_cWire.Sent(), "61 61");
}

TEST(AttributeWireVector, ULongAndPairListsUseTheirElementWidths) {
  Wire l_cWire;
  quor::AttributeVectorULong l_cULong(wxT("vu"));
  l_cULong.SetValue({7});
  quor::AttributeVectorULong2ULong l_cPairs(wxT("vp"));
  l_cPairs.AddElement(1, 2);
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.RecvFrame(8);
    p_cPeer.RecvFrame(8);
    p_cPeer.RecvFrame(8);
    p_cPeer.RecvFrame(16);
  });
  EXPECT_EQ(l_cULong.SendValue(&l_cWire.vector), 1u);
  EXPECT_EQ(l_cPairs.SendValue(&l_cWire.vector), 1u);
  l_cWire.pair.Join();
  EXPECT_EQ(l_cWire.Received(),
            "01 00 00 00 00 00 00 00 07 00 00 00 00 00 00 00 "
            "01 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00");
  EXPECT_EQ(l_cWire.Sent(), "61 61 61 61");
}

TEST(AttributeWireVector, EmptyListSendsOnlyItsCount) {
  Wire l_cWire;
  quor::AttributeVectorDouble l_c(wxT("vd"));
  EXPECT_EQ(SendAndRead(l_cWire, l_c, &l_cWire.vector, 8), "00 00 00 00 00 00 00 00");
  EXPECT_EQ(l_cWire.Sent(), "61");
}

TEST(AttributeWireVector, ListOverOneHundredBytesIsCompressed) {
  Wire l_cWire;
  quor::AttributeVectorDouble l_c(wxT("vd"));
  for (int i = 0; i < 13; ++i) l_c.GetValue().push_back(i * 0.5);  // 104 bytes
  Bytes l_aValue;
  l_cWire.pair.Run([&](RawPeer& p_cPeer) {
    EXPECT_EQ(p_cPeer.RecvValue<uint64_t>(), 13u);
    l_aValue = p_cPeer.RecvFrame(104);
  });
  EXPECT_EQ(l_c.SendValue(&l_cWire.vector), 1u);
  l_cWire.pair.Join();
  Bytes l_aExpected;
  for (double l_d : l_c.GetValue()) l_aExpected = Cat({l_aExpected, Le(l_d)});
  EXPECT_EQ(l_aValue, l_aExpected);
  EXPECT_EQ(l_cWire.Sent(), "61 61 61");  // count, compressed length, stream
}

TEST(AttributeWireVector, ReceiveTakesCountAndElements) {
  Wire l_cWire;
  quor::AttributeVectorInt l_c(wxT("vi"));
  l_c.SetValue({9});
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint64_t>(2);
    p_cPeer.SendFrame(Hex("01 00 00 00 ff ff ff ff"));
  });
  // Receiving needs only value frames: a plain SteeringBase will do.
  EXPECT_EQ(l_c.ReceiveValue(&l_cWire.base), 1u);
  l_cWire.pair.Join();
  EXPECT_EQ(l_c.GetValue(), (std::vector<int>{1, -1}));
  EXPECT_EQ(l_cWire.Received(), "61 61");
}

TEST(AttributeWireVector, ReceivingCountZeroEmptiesTheListAndSucceeds) {
  Wire l_cWire;
  quor::AttributeVectorULong l_c(wxT("vu"));
  l_c.SetValue({1, 2, 3});
  quor::AttributeVectorULong2ULong l_cPairs(wxT("vp"));
  l_cPairs.AddElement(1, 1);
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint64_t>(0);
    p_cPeer.SendValue<uint64_t>(0);
  });
  EXPECT_EQ(l_c.ReceiveValue(&l_cWire.vector), 1u);
  EXPECT_EQ(l_cPairs.ReceiveValue(&l_cWire.vector), 1u);
  l_cWire.pair.Join();
  EXPECT_TRUE(l_c.GetValue().empty());
  EXPECT_TRUE(l_cPairs.GetValue().empty());
  EXPECT_EQ(l_cWire.Received(), "61 61");
}

TEST(AttributeWireVector, PairListReceivesSixteenByteElements) {
  Wire l_cWire;
  quor::AttributeVectorULong2ULong l_c(wxT("vp"));
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint64_t>(1);
    p_cPeer.SendFrame(Cat({Le<uint64_t>(~0ull), Le<uint64_t>(3)}));
  });
  EXPECT_EQ(l_c.ReceiveValue(&l_cWire.vector), 1u);
  l_cWire.pair.Join();
  ASSERT_EQ(l_c.GetValue().size(), 1u);
  EXPECT_EQ(l_c.GetValue()[0].first, ~0ull);
  EXPECT_EQ(l_c.GetValue()[0].second, 3u);
}

TEST(AttributeWireVector, CountThatCannotBeReceivedGivesFailure) {
  Wire l_cWire;
  quor::AttributeVectorInt l_c(wxT("vi"));
  l_c.SetValue({1, 2});
  quor::AttributeVectorULong2ULong l_cPairs(wxT("vp"));
  l_cPairs.AddElement(1, 1);
  l_cWire.Peer().Close();
  EXPECT_EQ(l_c.ReceiveValue(&l_cWire.base), FAILURE);
  EXPECT_TRUE(l_c.GetValue().empty());
  EXPECT_EQ(l_cPairs.ReceiveValue(&l_cWire.base), FAILURE);
  EXPECT_TRUE(l_cPairs.GetValue().empty());
}

TEST(AttributeWireVector, ElementsThatCannotBeReceivedGiveTheTransportCode) {
  Wire l_cWire;
  quor::AttributeVectorInt l_c(wxT("vi"));
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint64_t>(2);
    p_cPeer.Close();
  });
  const unsigned int l_nResult = l_c.ReceiveValue(&l_cWire.base);
  l_cWire.pair.Join();
  EXPECT_NE(l_nResult, 1u);
  // The list is sized once the elements have arrived: it stays empty.
  EXPECT_TRUE(l_c.GetValue().empty());
}

// One value carries at most 2^32 - 1 bytes: a count whose elements cannot
// fit in one is refused before the list is sized by it.
TEST(AttributeWireVector, CountBeyondOneValueIsRefusedBeforeSizing) {
  Wire l_cWire;
  quor::AttributeVectorInt l_cInt(wxT("vi"));
  quor::AttributeVectorULong2ULong l_cPairs(wxT("vp"));
  quor::AttributeVectorDouble l_cDouble(wxT("vd"));
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint64_t>(1ull << 62);
    p_cPeer.SendValue<uint64_t>(0x10000000);  // 2^28 pairs: 2^32 bytes
    p_cPeer.SendValue<uint64_t>(0x20000000);  // 2^29 doubles: 2^32 bytes
  });
  EXPECT_EQ(l_cInt.ReceiveValue(&l_cWire.base), FAILURE);
  EXPECT_EQ(l_cPairs.ReceiveValue(&l_cWire.base), FAILURE);
  EXPECT_EQ(l_cDouble.ReceiveValue(&l_cWire.base), FAILURE);
  l_cWire.pair.Join();
  EXPECT_TRUE(l_cInt.GetValue().empty());
  EXPECT_TRUE(l_cPairs.GetValue().empty());
  EXPECT_TRUE(l_cDouble.GetValue().empty());
  EXPECT_EQ(l_cWire.Received(), "61 61 61");  // the counts only
}

// Lists are sent only through a SteeringVector; through any other
// SteeringBase nothing moves and the result is FAILURE.
TEST(AttributeWireVector, SendingThroughAPlainSteeringBaseFails) {
  Wire l_cWire;
  quor::AttributeVectorInt l_cInt(wxT("vi"));
  l_cInt.SetValue({1});
  quor::AttributeVectorULong2ULong l_cPairs(wxT("vp"));
  l_cPairs.AddElement(1, 2);
  quor::AttributeVectorString l_cStrings(wxT("vs"));
  l_cStrings.SetValue({wxT("a")});
  EXPECT_EQ(l_cInt.SendValue(&l_cWire.base), FAILURE);
  EXPECT_EQ(l_cPairs.SendValue(&l_cWire.base), FAILURE);
  EXPECT_EQ(l_cStrings.SendValue(&l_cWire.base), FAILURE);
  EXPECT_EQ(l_cStrings.ReceiveValue(&l_cWire.base), FAILURE);
  EXPECT_EQ(l_cStrings.GetValue(), (std::vector<wxString>{wxT("a")}));
  EXPECT_EQ(l_cInt.SendValue(nullptr), FAILURE);
  EXPECT_EQ(l_cInt.ReceiveValue(nullptr), FAILURE);
  EXPECT_EQ(l_cStrings.SendValue(nullptr), FAILURE);
  // Nothing was written: the first bytes the peer sees are the next frame's.
  quor::AttributeInt l_cNext(wxT("i"), 5);
  EXPECT_EQ(SendAndRead(l_cWire, l_cNext, &l_cWire.base, 4), "05 00 00 00");
}

// ------------------------------------------------------------ string list

TEST(AttributeWireStringList, SendsTotalCountLengthsAndData) {
  Wire l_cWire;
  quor::AttributeVectorString l_c(wxT("vs"));
  l_c.SetValue({wxT("abc"), wxT("")});
  EXPECT_EQ(SendAndRead(l_cWire, l_c, &l_cWire.vector, 4, 8, 4, 3),
            "03 00 00 00 02 00 00 00 00 00 00 00 03 00 00 00 61 62 63");
  EXPECT_EQ(l_cWire.Sent(), "61 61 61 61");
}

TEST(AttributeWireStringList, EmptyListSendsNoLengths) {
  Wire l_cWire;
  quor::AttributeVectorString l_c(wxT("vs"));
  EXPECT_EQ(SendAndRead(l_cWire, l_c, &l_cWire.vector, 4, 8, 0),
            "00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(l_cWire.Sent(), "61 61 61");
}

TEST(AttributeWireStringList, ReceivesTheList) {
  Wire l_cWire;
  quor::AttributeVectorString l_c(wxT("vs"));
  l_c.SetValue({wxT("x"), wxT("y"), wxT("z")});
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendFrame(Le<uint32_t>(3));
    p_cPeer.SendValue<uint64_t>(2);
    p_cPeer.SendFrame(Hex("03 00 00 00"));
    p_cPeer.SendFrame(Text("abc"));
  });
  EXPECT_EQ(l_c.ReceiveValue(&l_cWire.vector), 1u);
  l_cWire.pair.Join();
  EXPECT_EQ(l_c.GetValue(), (std::vector<wxString>{wxT("abc"), wxT("")}));
  EXPECT_EQ(l_cWire.Received(), "61 61 61 61");
}

TEST(AttributeWireStringList, ReceiveFromAClosedPeerFails) {
  Wire l_cWire;
  quor::AttributeVectorString l_c(wxT("vs"));
  l_cWire.Peer().Close();
  EXPECT_NE(l_c.ReceiveValue(&l_cWire.vector), 1u);
}

// ------------------------------------------------------------ record

TEST(AttributeWireStruct, RecordSendsItsFieldsInKeyOrder) {
  Wire l_cWire;
  auto l_pc = RecordAB(1, true);
  EXPECT_EQ(SendAndRead(l_cWire, *l_pc, &l_cWire.base, 4, 1), "01 00 00 00 01");
  EXPECT_EQ(l_cWire.Sent(), "61 61");
}

TEST(AttributeWireStruct, RecordWithNoFieldsSendsNothingAndSucceeds) {
  Wire l_cWire;
  quor::AttributeStruct l_c(wxT("R"));
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.RecvFrame(4);
    p_cPeer.SendFrame(Hex("07 00 00 00"));
  });
  EXPECT_EQ(l_c.SendValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_c.ReceiveValue(&l_cWire.base), 1u);
  // The next frames are the first the peer sees and the first it sends.
  quor::AttributeInt l_cNext(wxT("i"), 5);
  EXPECT_EQ(l_cNext.SendValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_cNext.ReceiveValue(&l_cWire.base), 1u);
  l_cWire.pair.Join();
  EXPECT_EQ(l_cNext.GetValue(), 7);
  EXPECT_EQ(l_cWire.Received(), "05 00 00 00 61");
}

TEST(AttributeWireStruct, RecordReceivesItsFieldsInKeyOrder) {
  Wire l_cWire;
  auto l_pc = RecordAB(0, false);
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendFrame(Hex("2a 00 00 00"));
    p_cPeer.SendFrame(Hex("01"));
  });
  EXPECT_EQ(l_pc->ReceiveValue(&l_cWire.base), 1u);
  l_cWire.pair.Join();
  EXPECT_EQ(IntField(l_pc.get(), "A"), 42);
  EXPECT_TRUE(BoolField(l_pc.get(), "B"));
}

TEST(AttributeWireStruct, FirstFailingFieldStopsTheRecord) {
  Wire l_cWire;
  auto l_pc = RecordAB(0, false);
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendFrame(Hex("2a 00 00 00"));
    p_cPeer.Close();
  });
  const unsigned int l_nResult = l_pc->ReceiveValue(&l_cWire.base);
  l_cWire.pair.Join();
  EXPECT_NE(l_nResult, 1u);
  EXPECT_EQ(IntField(l_pc.get(), "A"), 42);
  EXPECT_FALSE(BoolField(l_pc.get(), "B"));
}

// ------------------------------------------------------------ list of records

TEST(AttributeWireVectorAttribute, SendsA64BitCountThenEachElementsFrames) {
  Wire l_cWire;
  auto l_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute l_c(wxT("L"), l_pcProto.get());
  l_c.AddElement(RecordAB(1, true).release());
  l_c.AddElement(RecordAB(-1, false).release());
  EXPECT_EQ(SendAndRead(l_cWire, l_c, &l_cWire.base, 8, 4, 1, 4, 1),
            "02 00 00 00 00 00 00 00 01 00 00 00 01 ff ff ff ff 00");
  EXPECT_EQ(l_cWire.Sent(), "61 61 61 61 61");
}

TEST(AttributeWireVectorAttribute, EmptyListSendsOnlyItsCount) {
  Wire l_cWire;
  auto l_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute l_c(wxT("L"), l_pcProto.get());
  EXPECT_EQ(SendAndRead(l_cWire, l_c, &l_cWire.base, 8), "00 00 00 00 00 00 00 00");
}

// A list of (A, B) records received from a scripted peer.
class AttributeWireVectorAttributeReceive : public ::testing::Test {
 protected:
  // The peer sends the 64-bit count and the frames of the given records,
  // and then closes if asked to; returns the list's ReceiveValue.
  unsigned int Receive(uint64_t p_nCount, std::vector<std::pair<int32_t, uint8_t>> p_aRecords,
                       bool p_bClose = false) {
    m_cWire.pair.Run([=](RawPeer& p_cPeer) {
      p_cPeer.SendValue(p_nCount);
      for (const auto& l_cRecord : p_aRecords) {
        p_cPeer.SendValue(l_cRecord.first);
        p_cPeer.SendFrame(Bytes{l_cRecord.second});
      }
      if (p_bClose) p_cPeer.Close();
    });
    const unsigned int l_nResult = m_cList.ReceiveValue(&m_cWire.base);
    m_cWire.pair.Join();
    return l_nResult;
  }

  Wire m_cWire;
  std::unique_ptr<quor::AttributeStruct> m_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute m_cList{wxT("L"), m_pcProto.get()};
};

TEST_F(AttributeWireVectorAttributeReceive, ClonesThePrototypeForEachNewElement) {
  m_cList.AddElement(RecordAB(9, true).release());
  Attribute* l_pcFirst = m_cList.GetElement(0);
  EXPECT_EQ(Receive(3, {{1, 1}, {2, 0}, {3, 1}}), 1u);
  ASSERT_EQ(m_cList.size(), 3u);
  EXPECT_EQ(m_cList.GetElement(0), l_pcFirst);  // reused
  for (unsigned long long i = 0; i < 3; ++i) {
    EXPECT_EQ(IntField(m_cList.GetElement(i), "A"), static_cast<int>(i + 1));
    EXPECT_EQ(BoolField(m_cList.GetElement(i), "B"), i != 1);
  }
  EXPECT_EQ(IntField(m_pcProto.get(), "A"), 0);
  EXPECT_EQ(m_cWire.Received(), "61 61 61 61 61 61 61");
}

TEST_F(AttributeWireVectorAttributeReceive, ShrinksToTheCount) {
  m_cList.resize(4);
  EXPECT_EQ(Receive(1, {{8, 1}}), 1u);
  ASSERT_EQ(m_cList.size(), 1u);
  EXPECT_EQ(IntField(m_cList.GetElement(0), "A"), 8);
}

TEST_F(AttributeWireVectorAttributeReceive, CountIsCutToThirtyTwoBits) {
  EXPECT_EQ(Receive(0x100000001ull, {{6, 0}}), 1u);
  ASSERT_EQ(m_cList.size(), 1u);
  EXPECT_EQ(IntField(m_cList.GetElement(0), "A"), 6);
}

// A count announced by the peer costs memory only as far as elements for it
// arrive: the list grows one clone at a time.
TEST_F(AttributeWireVectorAttributeReceive, LargeAnnouncedCountGrowsOnlyWithTheElementsThatArrive) {
  EXPECT_NE(Receive(100000, {{3, 1}}, true), 1u);
  EXPECT_LE(m_cList.size(), 2u);
  EXPECT_EQ(IntField(m_cList.GetElement(0), "A"), 3);
}

// More records than the value limit can hold are refused before the first
// clone, as an allocation failure.
TEST_F(AttributeWireVectorAttributeReceive, CountBeyondTheValueLimitIsRefusedBeforeAnyClone) {
  LogCapture l_cLog;
  m_cList.AddElement(RecordAB(9, true).release());
  EXPECT_EQ(Receive(0xFFFFFFFFull, {}), FAILURE);
  EXPECT_EQ(m_cList.size(), 1u);
  EXPECT_EQ(IntField(m_cList.GetElement(0), "A"), 9);
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
  // With a lower limit, a count that the default admits is refused too.
  m_cWire.base.SetMaxValueSize(1000 * quor::ClonedMemory(m_pcProto.get()));
  EXPECT_EQ(Receive(1001, {}), FAILURE);
  EXPECT_EQ(m_cList.size(), 1u);
}

TEST(AttributeWireVectorAttribute, CountThatCannotBeReceivedIsReturned) {
  Wire l_cWire;
  auto l_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute l_c(wxT("L"), l_pcProto.get());
  l_c.resize(2);
  l_cWire.Peer().Close();
  EXPECT_NE(l_c.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_c.size(), 2u);
  EXPECT_EQ(l_c.SendValue(nullptr), FAILURE);
  EXPECT_EQ(l_c.ReceiveValue(nullptr), FAILURE);
}

// ------------------------------------------------------------ arcs

TEST(AttributeWireTransitionConnection, SendingAndReceivingMoveNothingAndSucceed) {
  Wire l_cWire;
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 2);
  l_c.GetValue()[0].m_anPrePlacePositions.push_back(1);
  l_cWire.pair.Run([](RawPeer& p_cPeer) {
    p_cPeer.RecvFrame(4);
    p_cPeer.SendFrame(Hex("07 00 00 00"));
  });
  EXPECT_EQ(l_c.SendValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_c.ReceiveValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_c.SendValue(&l_cWire.vector), 1u);
  EXPECT_EQ(l_c.ReceiveValue(&l_cWire.vector), 1u);
  EXPECT_EQ(l_c.SendValue(nullptr), 1u);
  EXPECT_EQ(l_c.ReceiveValue(nullptr), 1u);
  quor::AttributeInt l_cNext(wxT("i"), 5);
  EXPECT_EQ(l_cNext.SendValue(&l_cWire.base), 1u);
  EXPECT_EQ(l_cNext.ReceiveValue(&l_cWire.base), 1u);
  l_cWire.pair.Join();
  EXPECT_EQ(l_cNext.GetValue(), 7);
  EXPECT_EQ(l_cWire.Received(), "05 00 00 00 61");
  EXPECT_EQ(l_c.GetValue().size(), 2u);
  EXPECT_EQ(l_c.GetValue()[0].m_anPrePlacePositions.size(), 1u);
}
