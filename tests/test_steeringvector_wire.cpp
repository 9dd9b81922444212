// SPDX-License-Identifier: MIT
// SteeringVector on the wire: the attribute-list message (an 8-byte total,
// then the packed values in key order as one value) and the bulk transfers
// (arrays, string lists, matrices of doubles), checked byte for byte against
// an independent raw-socket peer.
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <new>

#include "allocation_hook.h"
#include "log_capture.h"
#include "quor/attributeStruct.h"
#include "quor/attributeTransitionConnection.h"
#include "quor/attributeVector.h"
#include "quor/attributeVectorAttribute.h"
#include "quor/steeringvector.h"
#include "raw_peer.h"

using namespace quor_test;
using quor::Attribute;
using quor::FAILURE;
using quor::SteeringVector;

// ------------------------------------------------------------ allocation hook
//
// Allocations of this program go through the hook, so that a test can make
// one allocation fail on its own thread and watch the library's
// allocation-failure path.

QUOR_TEST_ALLOCATION_HOOK()

namespace {

// ------------------------------------------------------------ wire images

const std::vector<std::string> kAllocationFailure{"Error: cannot allocate memory"};
const std::string kCannotResizeVector = "Error: Cannot resize vector.";
const Bytes kMarker = Hex("de ad be ef");

// The bytes one side writes for a value frame (acknowledgements aside): the
// value itself up to 100 bytes, else the 8-byte length of a zlib stream of
// the value and the stream. Here the stream is zlib's own at the default
// level; the library's deflate bytes may differ (they are the compressor's
// choice), so the images made here are remembered and the wire is compared
// with them through CanonicalWire.
std::vector<Bytes>& CompressedImages() {
  static std::vector<Bytes> s_a;
  return s_a;
}

Bytes FrameImage(const Bytes& p_aValue) {
  if (p_aValue.size() <= 100) return p_aValue;
  uLongf l_nLength = compressBound(static_cast<uLong>(p_aValue.size()));
  Bytes l_aStream(l_nLength);
  compress(l_aStream.data(), &l_nLength, p_aValue.data(), static_cast<uLong>(p_aValue.size()));
  l_aStream.resize(l_nLength);
  Bytes l_aImage = Cat({Le(static_cast<uint64_t>(l_nLength)), l_aStream});
  CompressedImages().push_back(l_aImage);
  return l_aImage;
}

// The value a compressed image of FrameImage carries.
Bytes ImageValue(const Bytes& p_aImage, size_t p_nMost) {
  Bytes l_aValue(p_nMost);
  uLongf l_nLength = static_cast<uLongf>(p_nMost);
  if (uncompress(l_aValue.data(), &l_nLength, p_aImage.data() + 8,
                 static_cast<uLong>(p_aImage.size() - 8)) != Z_OK)
    return {};
  l_aValue.resize(l_nLength);
  return l_aValue;
}

// p_aWire with each compressed frame that stands where p_aExpected holds one
// of the images FrameImage made replaced by that image, when (and only when)
// the frame is a default-level zlib stream (78 9C), whose length is the
// frame's, that zlib decodes to exactly the image's value with nothing left
// over. Every other byte stays as it came, so the comparison is as strict as
// a byte comparison about everything but the deflate bytes.
Bytes CanonicalWire(const Bytes& p_aWire, const Bytes& p_aExpected) {
  Bytes l_aOut;
  size_t l_nExpected = 0, l_nWire = 0;
  while (l_nExpected < p_aExpected.size() && l_nWire < p_aWire.size()) {
    // The next image in the expected bytes.
    size_t l_nAt = p_aExpected.size();
    const Bytes* l_pImage = nullptr;
    for (const Bytes& l_aImage : CompressedImages()) {
      auto l_it = std::search(p_aExpected.begin() + static_cast<long>(l_nExpected),
                              p_aExpected.end(), l_aImage.begin(), l_aImage.end());
      const size_t l_nPos = static_cast<size_t>(l_it - p_aExpected.begin());
      if (l_it != p_aExpected.end() && l_nPos < l_nAt) l_nAt = l_nPos, l_pImage = &l_aImage;
    }
    if (l_pImage == nullptr) break;
    const size_t l_nRaw = l_nAt - l_nExpected;
    if (l_nWire + l_nRaw + 8 > p_aWire.size()) break;
    l_aOut.insert(l_aOut.end(), p_aWire.begin() + static_cast<long>(l_nWire),
                  p_aWire.begin() + static_cast<long>(l_nWire + l_nRaw));
    l_nWire += l_nRaw;
    l_nExpected = l_nAt;
    uint64_t l_nLength = 0;
    std::memcpy(&l_nLength, p_aWire.data() + l_nWire, 8);
    if (l_nLength < 2 || l_nLength > p_aWire.size() - l_nWire - 8) break;
    const uint8_t* l_pStream = p_aWire.data() + l_nWire + 8;
    if (l_pStream[0] != 0x78 || l_pStream[1] != 0x9c) break;
    const Bytes l_aWanted = ImageValue(*l_pImage, 1u << 26);
    Bytes l_aGot(l_aWanted.size() + 1);
    uLongf l_nGot = static_cast<uLongf>(l_aGot.size());
    uLong l_nConsumed = static_cast<uLong>(l_nLength);
    if (uncompress2(l_aGot.data(), &l_nGot, l_pStream, &l_nConsumed) != Z_OK ||
        l_nConsumed != l_nLength || l_nGot != l_aWanted.size())
      break;
    l_aGot.resize(l_nGot);
    if (l_aGot != l_aWanted) break;
    l_aOut.insert(l_aOut.end(), l_pImage->begin(), l_pImage->end());
    l_nWire += 8 + static_cast<size_t>(l_nLength);
    l_nExpected += l_pImage->size();
  }
  l_aOut.insert(l_aOut.end(), p_aWire.begin() + static_cast<long>(l_nWire), p_aWire.end());
  return l_aOut;
}

// An attribute-list message as its sender writes it: the total, the block.
Bytes MessageImage(const Bytes& p_aBlock) {
  return Cat({Le(static_cast<uint64_t>(p_aBlock.size())), FrameImage(p_aBlock)});
}

Bytes Acks(size_t n) { return Bytes(n, 0x61); }

template <typename T>
Bytes LeAll(const std::vector<T>& p_aValues) {
  Bytes l_a;
  for (const T& l_v : p_aValues) l_a = Cat({l_a, Le(l_v)});
  return l_a;
}

uint64_t Bits(double p_d) {
  uint64_t l_n;
  std::memcpy(&l_n, &p_d, 8);
  return l_n;
}

double FromBits(uint64_t p_n) {
  double l_d;
  std::memcpy(&l_d, &p_n, 8);
  return l_d;
}

// NaN with a payload, the infinities, negative zero and the smallest
// subnormal: values that only survive when moved as raw bits.
std::vector<double> ExtremeValues() {
  return {FromBits(0x7ff8000000000123ull), std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity(), -0.0,
          std::numeric_limits<double>::denorm_min()};
}

typedef std::vector<std::vector<double> > Matrix;

// ------------------------------------------------------------ all classes

// One attribute of every class, under keys inserted out of order; Block()
// is their packed values in key order.
struct EveryClass {
  // The prototype of the record list: not owned by the list, so it lives
  // here, beside the sets that use it.
  std::unique_ptr<quor::AttributeStruct> prototype{Record(0, false)};

  static quor::AttributeStruct* Record(int a, bool b) {
    quor::AttributeStruct* l_pcRecord = new quor::AttributeStruct(wxT("record"));
    l_pcRecord->AddField(new quor::AttributeBool(wxT("B"), b));
    l_pcRecord->AddField(new quor::AttributeInt(wxT("A"), a));
    return l_pcRecord;
  }

  void Fill(SteeringVector& p_cSet) {
    p_cSet.AddAttribute(wxT("O_PAIRS"), Pairs({{1, 2}}));
    p_cSet.AddAttribute(wxT("N_ARCS"), Arcs());
    p_cSet.AddAttribute(wxT("A_STRING"), new Attribute(wxT("A_STRING"), wxT("hi")));
    p_cSet.AddAttribute(wxT("M_RECORDS"), Records({{2, false}, {3, true}}));
    p_cSet.AddAttribute(wxT("C_UINT"), new quor::AttributeUint(wxT("C_UINT"), 0xFFFFFFFFu));
    p_cSet.AddAttribute(wxT("L_RECORD"), Record(1, true));
    p_cSet.AddAttribute(wxT("B_INT"), new quor::AttributeInt(wxT("B_INT"), -5));
    p_cSet.AddAttribute(wxT("K_STRINGS"), Strings({wxT("ab"), wxT("")}));
    p_cSet.AddAttribute(wxT("D_LONG"), new quor::AttributeLong(wxT("D_LONG"), INT64_MIN));
    p_cSet.AddAttribute(wxT("J_DOUBLES"),
                        Doubles({-0.0, std::numeric_limits<double>::infinity()}));
    p_cSet.AddAttribute(wxT("E_ULONG"), new quor::AttributeUlong(wxT("E_ULONG"), UINT64_MAX));
    p_cSet.AddAttribute(wxT("I_ULONGS"), ULongs({7}));
    p_cSet.AddAttribute(wxT("F_DOUBLE"), new quor::AttributeDouble(wxT("F_DOUBLE"), 1.0));
    p_cSet.AddAttribute(wxT("H_INTS"), Ints({1, -1}));
    p_cSet.AddAttribute(wxT("G_BOOL"), new quor::AttributeBool(wxT("G_BOOL"), true));
  }

  // The same keys and classes with other values: a receiver's schema.
  void FillOther(SteeringVector& p_cSet) {
    p_cSet.AddAttribute(wxT("A_STRING"), new Attribute(wxT("A_STRING"), wxT("old text")));
    p_cSet.AddAttribute(wxT("B_INT"), new quor::AttributeInt(wxT("B_INT"), 0));
    p_cSet.AddAttribute(wxT("C_UINT"), new quor::AttributeUint(wxT("C_UINT"), 0));
    p_cSet.AddAttribute(wxT("D_LONG"), new quor::AttributeLong(wxT("D_LONG"), 0));
    p_cSet.AddAttribute(wxT("E_ULONG"), new quor::AttributeUlong(wxT("E_ULONG"), 0));
    p_cSet.AddAttribute(wxT("F_DOUBLE"), new quor::AttributeDouble(wxT("F_DOUBLE"), 0.0));
    p_cSet.AddAttribute(wxT("G_BOOL"), new quor::AttributeBool(wxT("G_BOOL"), false));
    p_cSet.AddAttribute(wxT("H_INTS"), Ints({9, 9, 9}));
    p_cSet.AddAttribute(wxT("I_ULONGS"), ULongs({}));
    p_cSet.AddAttribute(wxT("J_DOUBLES"), Doubles({5.0}));
    p_cSet.AddAttribute(wxT("K_STRINGS"), Strings({wxT("x"), wxT("y"), wxT("z")}));
    p_cSet.AddAttribute(wxT("L_RECORD"), Record(0, false));
    p_cSet.AddAttribute(wxT("M_RECORDS"), Records({}));
    p_cSet.AddAttribute(wxT("N_ARCS"), new quor::AttributeTransitionConnection(wxT("N_ARCS"), 3));
    p_cSet.AddAttribute(wxT("O_PAIRS"), Pairs({{5, 6}, {7, 8}}));
  }

  static Bytes Block() {
    return Hex(
        "02 00 00 00 68 69"                    // A_STRING "hi"
        "fb ff ff ff"                          // B_INT -5
        "ff ff ff ff"                          // C_UINT 0xFFFFFFFF
        "00 00 00 00 00 00 00 80"              // D_LONG INT64_MIN
        "ff ff ff ff ff ff ff ff"              // E_ULONG UINT64_MAX
        "00 00 00 00 00 00 f0 3f"              // F_DOUBLE 1.0
        "01"                                   // G_BOOL true
        "02 00 00 00 01 00 00 00 ff ff ff ff"  // H_INTS 1, -1
        "01 00 00 00 07 00 00 00 00 00 00 00"  // I_ULONGS 7
        "02 00 00 00 00 00 00 00 00 00 00 80"  // J_DOUBLES -0.0,
        "00 00 00 00 00 00 f0 7f"              //   +inf
        "02 00 00 00 02 00 00 00 61 62"        // K_STRINGS "ab",
        "00 00 00 00"                          //   ""
        "01 00 00 00 01"                       // L_RECORD A=1, B=true
        "02 00 00 00 02 00 00 00 00"           // M_RECORDS (2, false),
        "03 00 00 00 01"                       //   (3, true)
        "01 00 00 00"                          // N_ARCS: one transition,
        "01 00 00 00 02 00 00 00 00 00 00 00"  //   pre-place 2,
        "00 00 00 00"                          //   no post-places,
        "01 00 00 00 00 00 00 00"              //   one pre-arc: type 0,
        "00 00 00 00 00 00 f0 3f"              //   weight 1.0,
        "00 00 00 00"                          //   no post-arcs
        "01 00 00 00 01 00 00 00 00 00 00 00"  // O_PAIRS (1,
        "02 00 00 00 00 00 00 00");            //   2)
  }

  // Every value of a set filled by Fill (or received from Block).
  static void ExpectValues(SteeringVector& p_cSet) {
    EXPECT_EQ(p_cSet.GetAttributeValueString(wxT("A_STRING")), wxT("hi"));
    EXPECT_EQ(p_cSet.GetAttributeValueInt(wxT("B_INT")), -5);
    EXPECT_EQ(p_cSet.GetAttributeValueUInt(wxT("C_UINT")), 0xFFFFFFFFu);
    EXPECT_EQ(p_cSet.GetAttributeValueLong(wxT("D_LONG")), INT64_MIN);
    EXPECT_EQ(p_cSet.GetAttributeValueULong(wxT("E_ULONG")), UINT64_MAX);
    EXPECT_EQ(p_cSet.GetAttributeValueDouble(wxT("F_DOUBLE")), 1.0);
    EXPECT_TRUE(p_cSet.GetAttributeValueBool(wxT("G_BOOL")));
    EXPECT_EQ(As<quor::AttributeVectorInt>(p_cSet, "H_INTS")->GetValue(), (std::vector<int>{1, -1}));
    EXPECT_EQ(As<quor::AttributeVectorULong>(p_cSet, "I_ULONGS")->GetValue(),
              (std::vector<unsigned long long>{7}));
    const std::vector<double>& l_adDoubles =
        As<quor::AttributeVectorDouble>(p_cSet, "J_DOUBLES")->GetValue();
    ASSERT_EQ(l_adDoubles.size(), 2u);
    EXPECT_TRUE(l_adDoubles[0] == 0.0 && std::signbit(l_adDoubles[0]));
    EXPECT_EQ(l_adDoubles[1], std::numeric_limits<double>::infinity());
    EXPECT_EQ(p_cSet.GetAttributeValueVectorString(wxT("K_STRINGS")),
              (std::vector<wxString>{wxT("ab"), wxT("")}));
    ExpectRecord(As<quor::AttributeStruct>(p_cSet, "L_RECORD"), 1, true);
    quor::AttributeVectorAttribute* l_pcRecords =
        As<quor::AttributeVectorAttribute>(p_cSet, "M_RECORDS");
    ASSERT_EQ(l_pcRecords->size(), 2u);
    ExpectRecord(static_cast<quor::AttributeStruct*>(l_pcRecords->GetElement(0)), 2, false);
    ExpectRecord(static_cast<quor::AttributeStruct*>(l_pcRecords->GetElement(1)), 3, true);
    std::vector<quor::Transitions>& l_acArcs =
        As<quor::AttributeTransitionConnection>(p_cSet, "N_ARCS")->GetValue();
    ASSERT_EQ(l_acArcs.size(), 1u);
    EXPECT_EQ(l_acArcs[0].m_anPrePlacePositions, (std::vector<unsigned long long>{2}));
    EXPECT_TRUE(l_acArcs[0].m_anPostPlacePositions.empty());
    ASSERT_EQ(l_acArcs[0].m_acPreConnections.size(), 1u);
    EXPECT_EQ(l_acArcs[0].m_acPreConnections[0].type, quor::CONNECTION_NONE);
    EXPECT_EQ(l_acArcs[0].m_acPreConnections[0].weight, 1.0);
    EXPECT_TRUE(l_acArcs[0].m_acPostConnections.empty());
    ExpectPairs(p_cSet, {{1, 2}});
  }

  static void ExpectPairs(SteeringVector& p_cSet, const std::vector<quor::ULong2ULong>& p_acPairs) {
    const std::vector<quor::ULong2ULong>& l_acPairs =
        As<quor::AttributeVectorULong2ULong>(p_cSet, "O_PAIRS")->GetValue();
    ASSERT_EQ(l_acPairs.size(), p_acPairs.size());
    for (size_t i = 0; i < l_acPairs.size(); ++i) {
      EXPECT_EQ(l_acPairs[i].first, p_acPairs[i].first);
      EXPECT_EQ(l_acPairs[i].second, p_acPairs[i].second);
    }
  }

  template <typename T>
  static T* As(SteeringVector& p_cSet, const char* p_sKey) {
    T* l_pc = dynamic_cast<T*>(p_cSet.GetAttribute(wxString(p_sKey)));
    EXPECT_NE(l_pc, nullptr) << p_sKey;
    return l_pc;
  }

  static void ExpectRecord(quor::AttributeStruct* p_pcRecord, int a, bool b) {
    ASSERT_NE(p_pcRecord, nullptr);
    EXPECT_EQ(static_cast<quor::AttributeInt*>(p_pcRecord->GetField(wxT("A")))->GetValue(), a);
    EXPECT_EQ(static_cast<quor::AttributeBool*>(p_pcRecord->GetField(wxT("B")))->GetValue(), b);
  }

  // A list attribute of class T holding the given values.
  template <typename T, typename V>
  static Attribute* List(const wxChar* p_sName, const std::vector<V>& p_aValues) {
    T* l_pc = new T(p_sName);
    l_pc->SetValue(p_aValues);
    return l_pc;
  }
  static Attribute* Ints(const std::vector<int>& p_a) {
    return List<quor::AttributeVectorInt>(wxT("H_INTS"), p_a);
  }
  static Attribute* ULongs(const std::vector<unsigned long long>& p_a) {
    return List<quor::AttributeVectorULong>(wxT("I_ULONGS"), p_a);
  }
  static Attribute* Doubles(const std::vector<double>& p_a) {
    return List<quor::AttributeVectorDouble>(wxT("J_DOUBLES"), p_a);
  }
  static Attribute* Strings(const std::vector<wxString>& p_a) {
    return List<quor::AttributeVectorString>(wxT("K_STRINGS"), p_a);
  }
  static Attribute* Pairs(const std::vector<quor::ULong2ULong>& p_a) {
    return List<quor::AttributeVectorULong2ULong>(wxT("O_PAIRS"), p_a);
  }
  Attribute* Records(const std::vector<std::pair<int, bool> >& p_a) {
    auto* l_pc = new quor::AttributeVectorAttribute(wxT("M_RECORDS"), prototype.get());
    for (const auto& l_c : p_a) l_pc->AddElement(Record(l_c.first, l_c.second));
    return l_pc;
  }
  static Attribute* Arcs() {
    auto* l_pc = new quor::AttributeTransitionConnection(wxT("N_ARCS"), 1);
    quor::Transitions& l_cFirst = l_pc->GetValue()[0];
    l_cFirst.m_anPrePlacePositions.push_back(2);
    l_cFirst.m_acPreConnections.push_back(
        quor::PlaceTransitionConnection{quor::CONNECTION_NONE, 1.0});
    return l_pc;
  }
};

// An attribute that misreports its packed size.
class Liar : public Attribute {
 public:
  Liar(unsigned int p_nSize, unsigned int p_nWritten)
      : Attribute(wxT("liar"), wxT("")), m_nSize(p_nSize), m_nWritten(p_nWritten) {}
  unsigned int GetPackungSize() override { return m_nSize; }
  unsigned int PackValue(void* p_pBuffer) override {
    std::memset(p_pBuffer, 0, m_nWritten);
    return m_nWritten;
  }

 private:
  unsigned int m_nSize, m_nWritten;
};

// ------------------------------------------------------------ fixture

// A SteeringVector on one end of a loopback pair, a scripted raw peer on the
// other.
class Wire : public ::testing::Test {
 protected:
  // The peer reads value frames of these sizes, acknowledging each.
  void PeerReads(const std::vector<size_t>& p_anSizes) {
    m_cPair.Run([p_anSizes](RawPeer& p) {
      for (size_t l_n : p_anSizes) p.RecvFrame(l_n);
    });
  }
  // The peer sends these values, one frame each.
  void PeerSends(const std::vector<Bytes>& p_aaValues) {
    m_cPair.Run([p_aaValues](RawPeer& p) {
      for (const Bytes& l_a : p_aaValues) p.SendFrame(l_a);
    });
  }
  // Waits for the peer; then what it read from and wrote to the library.
  void ExpectWire(const Bytes& p_aFromLibrary, const Bytes& p_aToLibrary) {
    m_cPair.Join();
    EXPECT_EQ(ToHex(CanonicalWire(m_cPair.Peer().Received(), p_aFromLibrary)),
              ToHex(p_aFromLibrary));
    EXPECT_EQ(ToHex(m_cPair.Peer().Sent()), ToHex(p_aToLibrary));
  }
  // A call that must put nothing on the wire: the marker the library sends
  // afterwards is the first thing the peer reads.
  void ExpectNothingSent(const std::function<unsigned int()>& p_fCall, unsigned int p_nResult) {
    PeerReads({4});
    EXPECT_EQ(p_fCall(), p_nResult);
    EXPECT_EQ(m_cVector.SendValue(kMarker.data(), 4), 1u);
    ExpectWire(kMarker, Acks(1));
  }
  // The result of a call during which one allocation fails (see
  // FailingAllocation); the failure must have happened and logged exactly
  // the given line.
  unsigned int WithFailingAllocation(size_t p_nAtLeast, int p_nSkip,
                                     const std::function<unsigned int()>& p_fCall,
                                     const std::string& p_sLogged) {
    LogCapture l_cLog;
    FailingAllocation l_cFail(p_nAtLeast, p_nSkip);
    const unsigned int l_nResult = p_fCall();
    EXPECT_TRUE(l_cFail.Fired());
    EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{p_sLogged});
    return l_nResult;
  }
  // After a call that must not have read further: the next value the
  // library reads is the marker the peer sends after the message.
  void ExpectMarkerNext() {
    uint32_t l_nGot = 0;
    EXPECT_EQ(m_cVector.ReceiveValue(&l_nGot, 4), 1u);
    EXPECT_EQ(Le(l_nGot), kMarker);
  }

  EveryClass m_cEvery;
  LoopbackPair m_cPair;
  SteeringVector m_cVector{m_cPair.Socket()};
};

}  // namespace

// ================================================================ attribute-list message: sending

TEST_F(Wire, EmptySetSendsZeroAndAnEmptyValue) {
  PeerReads({8, 0});
  EXPECT_EQ(m_cVector.SendAttributes(), 1u);
  ExpectWire(Bytes(8, 0), Acks(2));
}

TEST_F(Wire, KeysArePackedInCharacterCodeOrder) {
  m_cVector.AddAttribute(wxT("B"), new quor::AttributeInt(wxT("B"), 0x0B));
  m_cVector.AddAttribute(wxT("a"), new quor::AttributeInt(wxT("a"), 0x61));
  m_cVector.AddAttribute(wxT("A"), new quor::AttributeInt(wxT("A"), 0x0A));
  PeerReads({8, 12});
  EXPECT_EQ(m_cVector.SendAttributes(), 1u);
  ExpectWire(Hex("0c 00 00 00 00 00 00 00  0a 00 00 00 0b 00 00 00 61 00 00 00"), Acks(2));
}

TEST_F(Wire, InsertionOrderDoesNotChangeTheMessage) {
  SteeringVector l_cOther(m_cPair.Socket());
  for (const wxChar* l_sKey : {wxT("x"), wxT("m"), wxT("c")})
    m_cVector.AddAttribute(l_sKey, new Attribute(l_sKey, l_sKey));
  for (const wxChar* l_sKey : {wxT("c"), wxT("x"), wxT("m")})
    l_cOther.AddAttribute(l_sKey, new Attribute(l_sKey, l_sKey));
  PeerReads({8, 15, 8, 15});
  EXPECT_EQ(m_cVector.SendAttributes(), 1u);
  EXPECT_EQ(l_cOther.SendAttributes(), 1u);
  const Bytes l_aOne = MessageImage(Hex("01 00 00 00 63  01 00 00 00 6d  01 00 00 00 78"));
  ExpectWire(Cat({l_aOne, l_aOne}), Acks(4));
}

TEST_F(Wire, EveryClassInKeyOrderCompressedAboveAHundredBytes) {
  m_cEvery.Fill(m_cVector);
  ASSERT_EQ(EveryClass::Block().size(), 176u);
  PeerReads({8, 176});
  EXPECT_EQ(m_cVector.SendAttributes(), 1u);
  ExpectWire(MessageImage(EveryClass::Block()), Acks(3));
}

TEST_F(Wire, EntriesWithoutAttributeAreSkipped) {
  m_cVector.AddAttribute(wxT("K"), new quor::AttributeInt(wxT("K"), 3));
  EXPECT_EQ(m_cVector.GetAttributeValueInt(wxT("A_MISSING")), 0);
  m_cVector.AddAttribute(wxT("Z_NULL"), nullptr);
  PeerReads({8, 4});
  EXPECT_EQ(m_cVector.SendAttributes(), 1u);
  ExpectWire(Hex("04 00 00 00 00 00 00 00  03 00 00 00"), Acks(2));
}

TEST_F(Wire, RecordWithAMissingFieldIsRefusedBeforeAnythingIsSent) {
  quor::AttributeStruct* l_pcRecord = EveryClass::Record(1, true);
  EXPECT_EQ(l_pcRecord->GetField(wxT("C")), nullptr);
  m_cVector.AddAttribute(wxT("R"), l_pcRecord);
  ExpectNothingSent([&] { return m_cVector.SendAttributes(); }, FAILURE);
}

TEST_F(Wire, BlockBeyondOneFrameIsAnAllocationFailureBeforeAnythingIsSent) {
  LogCapture l_cLog;
  m_cVector.AddAttribute(wxT("a"), new Liar(0x80000000u, 0));
  m_cVector.AddAttribute(wxT("b"), new Liar(0x80000000u, 0));
  ExpectNothingSent([&] { return m_cVector.SendAttributes(); }, FAILURE);
  EXPECT_EQ(l_cLog.Texts(), kAllocationFailure);
}

TEST_F(Wire, AttributeThatPacksLessThanItsSizeIsRefusedBeforeAnythingIsSent) {
  m_cVector.AddAttribute(wxT("short"), new Liar(8, 4));
  ExpectNothingSent([&] { return m_cVector.SendAttributes(); }, FAILURE);
}

TEST(WireWithoutSocket, MessageSendAndReceiveFail) {
  SteeringVector l_cSet(nullptr);
  l_cSet.AddAttribute(wxT("K"), new quor::AttributeInt(wxT("K"), 3));
  EXPECT_EQ(l_cSet.SendAttributes(), FAILURE);
  EXPECT_EQ(l_cSet.ReceiveAttributes(), FAILURE);
  EXPECT_EQ(l_cSet.GetAttributeValueInt(wxT("K")), 3);
}

// A closed socket gives its own code (2) at the first transfer, which every
// operation returns as it is; only SendVector2D reports success all the
// same.
TEST(WireEdges, OnAClosedSocketTheFirstTransfersCodeIsReturned) {
  LoopbackPair l_cPair;
  SteeringVector l_cVector(l_cPair.Socket());
  l_cPair.Socket()->Close();
  EXPECT_EQ(l_cVector.ReceiveAttributes(), 2u);
  EXPECT_EQ(l_cVector.SendAttributes(), 2u);
  const int l_n = 1;
  EXPECT_EQ(l_cVector.SendArray(&l_n, 1, 4), 2u);
  EXPECT_EQ(l_cVector.SendVectorString({wxT("a")}), 2u);
  std::vector<wxString> l_asList{wxT("keep")};
  EXPECT_EQ(l_cVector.ReceiveVectorString(l_asList), 2u);
  EXPECT_EQ(l_asList, std::vector<wxString>{wxT("keep")});
  Matrix l_aadMatrix{{1.0}};
  EXPECT_EQ(l_cVector.ReceiveVector2D(l_aadMatrix), 2u);
  EXPECT_EQ(l_aadMatrix, Matrix{{1.0}});
  EXPECT_EQ(l_cVector.SendVector2D({{1.0}}), 1u);
}

// ================================================================ attribute-list message: receiving

TEST_F(Wire, EmptySetReceivesAnEmptyMessage) {
  PeerSends({Le<uint64_t>(0), {}});
  EXPECT_EQ(m_cVector.ReceiveAttributes(), 1u);
  ExpectWire(Acks(2), Bytes(8, 0));
}

TEST_F(Wire, EveryClassIsReceivedIntoASchemaEqualSet) {
  m_cEvery.FillOther(m_cVector);
  const Bytes l_aBlock = EveryClass::Block();
  PeerSends({Le<uint64_t>(l_aBlock.size()), l_aBlock});
  EXPECT_EQ(m_cVector.ReceiveAttributes(), 1u);
  ExpectWire(Acks(3), MessageImage(l_aBlock));
  EveryClass::ExpectValues(m_cVector);
}

TEST_F(Wire, EveryClassRoundTripsBetweenTwoSets) {
  m_cEvery.Fill(m_cVector);
  SteeringVector l_cReceiver(m_cPair.Socket());
  m_cEvery.FillOther(l_cReceiver);
  m_cPair.Run([](RawPeer& p) {
    Bytes l_aTotal = p.RecvFrame(8);
    Bytes l_aBlock = p.RecvFrame(176);
    p.SendFrame(l_aTotal);
    p.SendFrame(l_aBlock);
  });
  EXPECT_EQ(m_cVector.SendAttributes(), 1u);
  EXPECT_EQ(l_cReceiver.ReceiveAttributes(), 1u);
  m_cPair.Join();
  EveryClass::ExpectValues(l_cReceiver);
}

TEST_F(Wire, EntriesWithoutAttributeAreSkippedOnReceipt) {
  m_cVector.AddAttribute(wxT("K"), new quor::AttributeInt(wxT("K"), 0));
  m_cVector.AddAttribute(wxT("A_NULL"), nullptr);
  PeerSends({Le<uint64_t>(4), Hex("2a 00 00 00")});
  EXPECT_EQ(m_cVector.ReceiveAttributes(), 1u);
  m_cPair.Join();
  EXPECT_EQ(m_cVector.GetAttributeValueInt(wxT("K")), 42);
}

TEST_F(Wire, BytesAfterTheLastAttributeAreIgnored) {
  m_cVector.AddAttribute(wxT("K"), new quor::AttributeInt(wxT("K"), 0));
  PeerSends({Le<uint64_t>(7), Hex("2a 00 00 00 ee ee ee")});
  EXPECT_EQ(m_cVector.ReceiveAttributes(), 1u);
  m_cPair.Join();
  EXPECT_EQ(m_cVector.GetAttributeValueInt(wxT("K")), 42);
}

// Every proper prefix of the all-classes block, announced as the whole
// message: the walk needs all 176 bytes, so each one is refused without
// reading outside the received block.
TEST_F(Wire, EveryTruncationOfTheAllClassesBlockIsRefused) {
  m_cEvery.FillOther(m_cVector);
  const Bytes l_aBlock = EveryClass::Block();
  std::vector<Bytes> l_aaValues;
  for (size_t n = 0; n <= l_aBlock.size(); ++n) {
    l_aaValues.push_back(Le(static_cast<uint64_t>(n)));
    l_aaValues.push_back(Bytes(l_aBlock.begin(), l_aBlock.begin() + n));
  }
  PeerSends(l_aaValues);
  for (size_t n = 0; n < l_aBlock.size(); ++n)
    EXPECT_EQ(m_cVector.ReceiveAttributes(), FAILURE) << n << " bytes";
  // Still in step: the whole block is then received intact.
  EXPECT_EQ(m_cVector.ReceiveAttributes(), 1u);
  m_cPair.Join();
  EveryClass::ExpectValues(m_cVector);
}

TEST_F(Wire, RefusalKeepsTheAttributesFromTheFailingOneOn) {
  m_cVector.AddAttribute(wxT("A"), new quor::AttributeInt(wxT("A"), 1));
  m_cVector.AddAttribute(wxT("B"), new quor::AttributeLong(wxT("B"), 2));
  m_cVector.AddAttribute(wxT("C"), new Attribute(wxT("C"), wxT("three")));
  PeerSends({Le<uint64_t>(7), Hex("09 00 00 00 01 02 03")});
  EXPECT_EQ(m_cVector.ReceiveAttributes(), FAILURE);
  m_cPair.Join();
  EXPECT_EQ(m_cVector.GetAttributeValueInt(wxT("A")), 9);
  EXPECT_EQ(m_cVector.GetAttributeValueLong(wxT("B")), 2);
  EXPECT_EQ(m_cVector.GetAttributeValueString(wxT("C")), wxT("three"));
}

// Counts inside the block that announce more than the block holds.
TEST_F(Wire, InflatedCountsInsideTheBlockAreRefused) {
  m_cEvery.FillOther(m_cVector);
  const Bytes l_aBlock = EveryClass::Block();
  // Where the counts of A_STRING, H_INTS, K_STRINGS, M_RECORDS, N_ARCS and
  // O_PAIRS stand in the block.
  const std::vector<size_t> l_anCountAt{0, 39, 83, 102, 116, 156};
  std::vector<Bytes> l_aaValues;
  for (size_t l_nAt : l_anCountAt) {
    for (const Bytes& l_aCount : {Hex("ff ff ff 7f"), Hex("00 00 00 40"), Hex("ff ff ff ff")}) {
      Bytes l_a = l_aBlock;
      std::copy(l_aCount.begin(), l_aCount.end(), l_a.begin() + l_nAt);
      l_aaValues.push_back(Le(static_cast<uint64_t>(l_a.size())));
      l_aaValues.push_back(l_a);
    }
  }
  PeerSends(l_aaValues);
  for (size_t i = 0; i < l_aaValues.size() / 2; ++i)
    EXPECT_EQ(m_cVector.ReceiveAttributes(), FAILURE) << "block " << i;
  m_cPair.Join();
  // The attributes before a refused count took their new values; the pairs,
  // refused every time they were reached, are as they were.
  EXPECT_EQ(m_cVector.GetAttributeValueVectorString(wxT("K_STRINGS")),
            (std::vector<wxString>{wxT("ab"), wxT("")}));
  EveryClass::ExpectPairs(m_cVector, {{5, 6}, {7, 8}});
}

TEST_F(Wire, TotalBeyondOneFrameIsAnAllocationFailureBeforeTheBlock) {
  LogCapture l_cLog;
  m_cVector.AddAttribute(wxT("K"), new quor::AttributeInt(wxT("K"), 5));
  PeerSends({Le<uint64_t>(0x100000000ull), Le<uint64_t>(~0ull), kMarker});
  EXPECT_EQ(m_cVector.ReceiveAttributes(), FAILURE);
  EXPECT_EQ(m_cVector.ReceiveAttributes(), FAILURE);
  ExpectMarkerNext();
  m_cPair.Join();
  EXPECT_EQ(l_cLog.Texts(), (std::vector<std::string>{kAllocationFailure[0], kAllocationFailure[0]}));
  EXPECT_EQ(m_cVector.GetAttributeValueInt(wxT("K")), 5);
}

TEST_F(Wire, FailedBlockLeavesEveryAttributeAsItWas) {
  m_cVector.AddAttribute(wxT("K"), new quor::AttributeInt(wxT("K"), 5));
  m_cPair.Run([](RawPeer& p) {
    p.SendValue<uint64_t>(4);
    p.Write(Hex("2a 00"));
    p.Close();
  });
  EXPECT_EQ(m_cVector.ReceiveAttributes(), 3u);  // the transfer's own code
  m_cPair.Join();
  EXPECT_EQ(m_cVector.GetAttributeValueInt(wxT("K")), 5);
}

// ================================================================ arrays

TEST_F(Wire, ArrayOfCountZeroSendsOnlyTheCount) {
  PeerReads({8, 4});
  EXPECT_EQ(m_cVector.SendArray(nullptr, 0, 4), 1u);
  EXPECT_EQ(m_cVector.SendValue(kMarker.data(), 4), 1u);
  ExpectWire(Cat({Bytes(8, 0), kMarker}), Acks(2));
}

TEST_F(Wire, ArrayIsTheCountThenTheElementsAsOneValue) {
  const std::vector<int32_t> l_anValues{1, -1, 7};
  PeerReads({8, 12});
  EXPECT_EQ(m_cVector.SendArray(l_anValues.data(), 3, 4), 1u);
  ExpectWire(Hex("03 00 00 00 00 00 00 00  01 00 00 00 ff ff ff ff 07 00 00 00"), Acks(2));
}

TEST_F(Wire, ArrayOverAHundredBytesIsCompressed) {
  std::vector<uint64_t> l_anValues(20);
  for (size_t i = 0; i < l_anValues.size(); ++i) l_anValues[i] = i * i;
  PeerReads({8, 160});
  EXPECT_EQ(m_cVector.SendArray(l_anValues.data(), 20, 8), 1u);
  ExpectWire(Cat({Le<uint64_t>(20), FrameImage(LeAll(l_anValues))}), Acks(3));
}

TEST_F(Wire, ArrayOfExtremeDoublesTravelsBitForBit) {
  const std::vector<double> l_adValues = ExtremeValues();
  m_cPair.Run([](RawPeer& p) {
    p.RecvFrame(8);
    Bytes l_aElements = p.RecvFrame(40);
    // ...and the same bytes back into a list of doubles.
    p.SendValue<uint64_t>(5);
    p.SendFrame(l_aElements);
  });
  EXPECT_EQ(m_cVector.SendArray(l_adValues.data(), 5, 8), 1u);
  quor::AttributeVectorDouble l_cBack(wxT("back"));
  EXPECT_EQ(l_cBack.ReceiveValue(&m_cVector), 1u);
  ExpectWire(Cat({Le<uint64_t>(5), LeAll(l_adValues), Acks(2)}),
             Cat({Acks(2), Le<uint64_t>(5), LeAll(l_adValues)}));
  ASSERT_EQ(l_cBack.GetValue().size(), 5u);
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(Bits(l_cBack.GetValue()[i]), Bits(l_adValues[i])) << i;
}

TEST_F(Wire, ArrayThatCannotTravelAsOneFrameIsRefusedBeforeTheCount) {
  const char l_cOne = 'x';
  ExpectNothingSent([&] {
    // 2^32 + 1 bytes, an overflowing product and a negative element size.
    EXPECT_EQ(m_cVector.SendArray(&l_cOne, 0x100000001ull, 1), FAILURE);
    EXPECT_EQ(m_cVector.SendArray(&l_cOne, 1ull << 62, 8), FAILURE);
    return m_cVector.SendArray(&l_cOne, 1, -1);
  }, FAILURE);
}

TEST(WireWithoutSocket, ArrayFailsWhenTheCountCannotBeSent) {
  SteeringVector l_cVector(nullptr);
  const int l_n = 1;
  EXPECT_EQ(l_cVector.SendArray(&l_n, 1, 4), FAILURE);
}

// ================================================================ string lists: sending

TEST_F(Wire, EmptyStringListIsTotalZeroCountZeroAndAnEmptyValue) {
  PeerReads({4, 8, 0});
  EXPECT_EQ(m_cVector.SendVectorString({}), 1u);
  ExpectWire(Hex("00 00 00 00  00 00 00 00 00 00 00 00"), Acks(3));
}

TEST_F(Wire, StringListOfAbcAndEmpty) {
  PeerReads({4, 8, 4, 3});
  EXPECT_EQ(m_cVector.SendVectorString({wxT("abc"), wxT("")}), 1u);
  ExpectWire(Hex("03 00 00 00  02 00 00 00 00 00 00 00  03 00 00 00  61 62 63"), Acks(4));
}

TEST_F(Wire, StringListCutsTextOutsideAsciiToItsCharacterCount) {
  // U+00E9 is two bytes in UTF-8; only the first one travels.
  PeerReads({4, 8, 4, 2});
  EXPECT_EQ(m_cVector.SendVectorString({wxString(wchar_t(0xE9)), wxT("x")}), 1u);
  ExpectWire(Hex("02 00 00 00  02 00 00 00 00 00 00 00  01 00 01 00  c3 78"), Acks(4));
}

TEST_F(Wire, StringListWithManyStringsCompressesTheLengthsAndTheText) {
  std::vector<wxString> l_asValues;
  Bytes l_aLengths, l_aText;
  for (int i = 0; i < 60; ++i) {
    const wxString l_s = wxString::Format(wxT("s%d"), i);
    l_asValues.push_back(l_s);
    l_aLengths = Cat({l_aLengths, Le(static_cast<int16_t>(l_s.length()))});
    l_aText = Cat({l_aText, Text(std::string(l_s.mb_str()))});
  }
  PeerReads({4, 8, l_aLengths.size(), l_aText.size()});
  EXPECT_EQ(m_cVector.SendVectorString(l_asValues), 1u);
  ExpectWire(Cat({Le(static_cast<uint32_t>(l_aText.size())), Le<uint64_t>(60),
                  FrameImage(l_aLengths), FrameImage(l_aText)}),
             Acks(6));
}

TEST_F(Wire, StringOf32767CharactersIsTheLongestThatTravels) {
  const std::string l_sLong(32767, 'q');
  PeerReads({4, 8, 2, 32767});
  EXPECT_EQ(m_cVector.SendVectorString({wxString(l_sLong)}), 1u);
  ExpectWire(Cat({Le<uint32_t>(32767), Le<uint64_t>(1), Hex("ff 7f"), FrameImage(Text(l_sLong))}),
             Acks(5));
}

TEST_F(Wire, StringOf32768CharactersIsRefusedBeforeAnythingIsSent) {
  ExpectNothingSent([&] {
    EXPECT_EQ(m_cVector.SendVectorString({wxString(70000, wxT('q'))}), FAILURE);
    return m_cVector.SendVectorString({wxT("ok"), wxString(32768, wxT('q'))});
  }, FAILURE);
}

TEST_F(Wire, StringListWhoseLengthsCannotBeSizedLogsAndSendsNothing) {
  const std::vector<wxString> l_asValues(10000);
  ExpectNothingSent([&] {
    // The 10000 lengths are the only block this large.
    return WithFailingAllocation(20000, 0, [&] { return m_cVector.SendVectorString(l_asValues); },
                                 "Error: cannot resize the vector");
  }, FAILURE);
}

// ================================================================ string lists: receiving

TEST_F(Wire, StringListIsReceivedAndSurplusStringsAreDropped) {
  std::vector<wxString> l_asList{wxT("1"), wxT("2"), wxT("3"), wxT("4"), wxT("5")};
  PeerSends({Hex("03 00 00 00"), Le<uint64_t>(2), Hex("03 00 00 00"), Hex("61 62 63")});
  EXPECT_EQ(m_cVector.ReceiveVectorString(l_asList), 1u);
  m_cPair.Join();
  EXPECT_EQ(l_asList, (std::vector<wxString>{wxT("abc"), wxT("")}));
  EXPECT_EQ(m_cPair.Peer().Received(), Acks(4));
}

TEST_F(Wire, EmptyStringListEmptiesTheCallersList) {
  std::vector<wxString> l_asList{wxT("old")};
  PeerSends({Hex("00 00 00 00"), Le<uint64_t>(0), {}});
  EXPECT_EQ(m_cVector.ReceiveVectorString(l_asList), 1u);
  m_cPair.Join();
  EXPECT_TRUE(l_asList.empty());
  EXPECT_EQ(m_cPair.Peer().Received(), Acks(3));
}

TEST_F(Wire, ReceivedTextIsUtf8WithAByteWiseFallback) {
  std::vector<wxString> l_asList;
  PeerSends({Hex("03 00 00 00"), Le<uint64_t>(2), Hex("02 00 01 00"), Hex("c3 a9 e9")});
  EXPECT_EQ(m_cVector.ReceiveVectorString(l_asList), 1u);
  m_cPair.Join();
  EXPECT_EQ(l_asList, (std::vector<wxString>{wxString(wchar_t(0xE9)), wxString(wchar_t(0xE9))}));
}

TEST_F(Wire, StringListOfManyStringsRoundTripsThroughCompressedFrames) {
  std::vector<wxString> l_asSent;
  for (int i = 0; i < 300; ++i) l_asSent.push_back(wxString::Format(wxT("name_%d"), i * 7));
  m_cPair.Run([](RawPeer& p) {
    Bytes l_aTotal = p.RecvFrame(4);
    Bytes l_aCount = p.RecvFrame(8);
    Bytes l_aLengths = p.RecvFrame(600);
    uint32_t l_nTotal = 0;
    std::memcpy(&l_nTotal, l_aTotal.data(), 4);
    Bytes l_aText = p.RecvFrame(l_nTotal);
    for (const Bytes& l_aValue : {l_aTotal, l_aCount, l_aLengths, l_aText}) p.SendFrame(l_aValue);
  });
  ASSERT_EQ(m_cVector.SendVectorString(l_asSent), 1u);
  std::vector<wxString> l_asBack;
  EXPECT_EQ(m_cVector.ReceiveVectorString(l_asBack), 1u);
  m_cPair.Join();
  EXPECT_EQ(l_asBack, l_asSent);
}

TEST_F(Wire, LengthsRunningPastTheTextAreRefusedWithTheListUnchanged) {
  std::vector<wxString> l_asList{wxT("keep")};
  // Three bytes of text, but lengths 3 and 1.
  PeerSends({Hex("03 00 00 00"), Le<uint64_t>(2), Hex("03 00 01 00"), Hex("61 62 63"), kMarker});
  EXPECT_EQ(m_cVector.ReceiveVectorString(l_asList), FAILURE);
  // Every frame of the message was taken: the connection is still in step.
  ExpectMarkerNext();
  m_cPair.Join();
  EXPECT_EQ(l_asList, std::vector<wxString>{wxT("keep")});
  EXPECT_EQ(m_cPair.Peer().Received(), Acks(5));
}

TEST_F(Wire, NegativeLengthIsRefused) {
  std::vector<wxString> l_asList{wxT("keep")};
  PeerSends({Hex("03 00 00 00"), Le<uint64_t>(1), Hex("ff ff"), Hex("61 62 63")});
  EXPECT_EQ(m_cVector.ReceiveVectorString(l_asList), FAILURE);
  m_cPair.Join();
  EXPECT_EQ(l_asList, std::vector<wxString>{wxT("keep")});
}

TEST_F(Wire, TextLeftAfterTheLastStringIsIgnored) {
  std::vector<wxString> l_asList;
  PeerSends({Hex("05 00 00 00"), Le<uint64_t>(1), Hex("03 00"), Text("abcde")});
  EXPECT_EQ(m_cVector.ReceiveVectorString(l_asList), 1u);
  m_cPair.Join();
  EXPECT_EQ(l_asList, std::vector<wxString>{wxT("abc")});
}

TEST_F(Wire, StringCountAboveTheLimitIsAnAllocationFailureBeforeTheLengths) {
  LogCapture l_cLog;
  std::vector<wxString> l_asList{wxT("keep")};
  PeerSends({Hex("00 00 00 00"), Le<uint64_t>(quor::MAX_RECEIVED_ROWS + 1),
             Hex("00 00 00 00"), Le<uint64_t>(~0ull), kMarker});
  EXPECT_EQ(m_cVector.ReceiveVectorString(l_asList), FAILURE);
  EXPECT_EQ(m_cVector.ReceiveVectorString(l_asList), FAILURE);
  ExpectMarkerNext();
  m_cPair.Join();
  EXPECT_EQ(l_cLog.Texts(), (std::vector<std::string>{kAllocationFailure[0], kAllocationFailure[0]}));
  EXPECT_EQ(l_asList, std::vector<wxString>{wxT("keep")});
}

TEST_F(Wire, StringListThatCannotBeSizedIsAnAllocationFailure) {
  std::vector<wxString> l_asList{wxT("keep")};
  PeerSends({Hex("00 00 00 00"), Le<uint64_t>(2000), Bytes(4000, 0), {}});
  // The caller's list of 2000 strings is the only block this large.
  EXPECT_EQ(WithFailingAllocation(2000 * sizeof(wxString), 0,
                                  [&] { return m_cVector.ReceiveVectorString(l_asList); },
                                  kAllocationFailure[0]),
            FAILURE);
  EXPECT_EQ(l_asList, std::vector<wxString>{wxT("keep")});
}

TEST_F(Wire, StringThatCannotBeCopiedIsAnAllocationFailure) {
  std::vector<wxString> l_asList{wxT("keep")};
  PeerSends({Le<uint32_t>(30000), Le<uint64_t>(1), Le<int16_t>(30000), Bytes(30000, 'z')});
  // The first block of 30000 bytes holds the text; the second is the string
  // decoded from it.
  EXPECT_EQ(WithFailingAllocation(30000, 1, [&] { return m_cVector.ReceiveVectorString(l_asList); },
                                  kAllocationFailure[0]),
            FAILURE);
  EXPECT_EQ(l_asList, std::vector<wxString>{wxT("keep")});
}

TEST(WireEdges, FailedStringCountIsFailureNotTheTransfersCode) {
  // The count does not arrive: the timed-out read is 3, the result FAILURE.
  LoopbackPair l_cPair(1);
  SteeringVector l_cVector(l_cPair.Socket());
  l_cPair.Run([](RawPeer& p) { p.SendFrame(Hex("00 00 00 00")); });
  std::vector<wxString> l_asList{wxT("keep")};
  EXPECT_EQ(l_cVector.ReceiveVectorString(l_asList), FAILURE);
  l_cPair.Join();
  EXPECT_EQ(l_asList, std::vector<wxString>{wxT("keep")});
}

TEST(WireEdges, FailedLengthsAreReturnedAsTheTransfersCode) {
  LoopbackPair l_cPair(1);
  SteeringVector l_cVector(l_cPair.Socket());
  l_cPair.Run([](RawPeer& p) {
    p.SendFrame(Hex("00 00 00 00"));
    p.SendValue<uint64_t>(1);
    p.Write(Hex("01"));  // one byte of two, then silence
  });
  std::vector<wxString> l_asList;
  // The timed-out read is a socket error: 3.
  EXPECT_EQ(l_cVector.ReceiveVectorString(l_asList), 3u);
  l_cPair.Join();
  EXPECT_TRUE(l_asList.empty());
}

// ================================================================ matrices: sending

TEST_F(Wire, EmptyMatrixIsZeroZeroAndAnEmptyValue) {
  PeerReads({8, 8, 0});
  EXPECT_EQ(m_cVector.SendVector2D({}), 1u);
  ExpectWire(Bytes(16, 0), Acks(3));
}

TEST_F(Wire, MatrixIsRowsColumnsThenValuesRowByRow) {
  PeerReads({8, 8, 32});
  EXPECT_EQ(m_cVector.SendVector2D({{1.0, 2.0}, {3.0, 4.0}}), 1u);
  ExpectWire(Hex("02 00 00 00 00 00 00 00  02 00 00 00 00 00 00 00"
                 "00 00 00 00 00 00 f0 3f  00 00 00 00 00 00 00 40"
                 "00 00 00 00 00 00 08 40  00 00 00 00 00 00 10 40"),
             Acks(3));
}

TEST_F(Wire, LongerRowIsCutToTheFirstRowsLength) {
  PeerReads({8, 8, 16});
  EXPECT_EQ(m_cVector.SendVector2D({{1.0}, {2.0, 3.0}}), 1u);
  ExpectWire(Cat({Le<uint64_t>(2), Le<uint64_t>(1), Le(1.0), Le(2.0)}), Acks(3));
}

TEST_F(Wire, ShorterRowIsPaddedWithZeros) {
  PeerReads({8, 8, 48});
  EXPECT_EQ(m_cVector.SendVector2D({{1.0, 2.0, 3.0}, {4.0}}), 1u);
  ExpectWire(Cat({Le<uint64_t>(2), Le<uint64_t>(3), LeAll<double>({1, 2, 3, 4, 0, 0})}), Acks(3));
}

TEST_F(Wire, LargeMatrixIsCompressed) {
  Matrix l_aadMatrix(10, std::vector<double>(10));
  std::vector<double> l_adFlat;
  for (size_t r = 0; r < 10; ++r)
    for (size_t c = 0; c < 10; ++c) l_adFlat.push_back(l_aadMatrix[r][c] = r * 0.5 - c);
  PeerReads({8, 8, 800});
  EXPECT_EQ(m_cVector.SendVector2D(l_aadMatrix), 1u);
  ExpectWire(Cat({Le<uint64_t>(10), Le<uint64_t>(10), FrameImage(LeAll(l_adFlat))}), Acks(4));
}

TEST_F(Wire, MatrixOfExtremeValuesRoundTripsBitForBit) {
  const std::vector<double> l_ad = ExtremeValues();
  const Matrix l_aadSent{{l_ad[0], l_ad[1], l_ad[2]}, {l_ad[3], l_ad[4], l_ad[0]}};
  const Bytes l_aValues = LeAll<double>({l_ad[0], l_ad[1], l_ad[2], l_ad[3], l_ad[4], l_ad[0]});
  m_cPair.Run([](RawPeer& p) {
    Bytes l_aRows = p.RecvFrame(8);
    Bytes l_aColumns = p.RecvFrame(8);
    Bytes l_aData = p.RecvFrame(48);
    for (const Bytes& l_aValue : {l_aRows, l_aColumns, l_aData}) p.SendFrame(l_aValue);
  });
  EXPECT_EQ(m_cVector.SendVector2D(l_aadSent), 1u);
  Matrix l_aadBack{{9.0}};
  EXPECT_EQ(m_cVector.ReceiveVector2D(l_aadBack), 1u);
  ExpectWire(Cat({Le<uint64_t>(2), Le<uint64_t>(3), l_aValues, Acks(3)}),
             Cat({Acks(3), Le<uint64_t>(2), Le<uint64_t>(3), l_aValues}));
  ASSERT_EQ(l_aadBack.size(), 2u);
  for (size_t r = 0; r < 2; ++r) {
    ASSERT_EQ(l_aadBack[r].size(), 3u);
    for (size_t c = 0; c < 3; ++c) EXPECT_EQ(Bits(l_aadBack[r][c]), Bits(l_aadSent[r][c]));
  }
}

TEST(WireWithoutSocket, MatrixReportsSuccessAfterFailedSends) {
  SteeringVector l_cVector(nullptr);
  EXPECT_EQ(l_cVector.SendVector2D({{1.0, 2.0}}), 1u);
}

TEST_F(Wire, MatrixBeyondOneFrameIsAnAllocationFailureBeforeAnythingIsSent) {
  LogCapture l_cLog;
  // 2^17 rows of 2^13 columns: 2^33 bytes of values.
  Matrix l_aadMatrix(1u << 17);
  l_aadMatrix[0].assign(1u << 13, 1.0);
  ExpectNothingSent([&] { return m_cVector.SendVector2D(l_aadMatrix); }, FAILURE);
  EXPECT_EQ(l_cLog.Texts(), kAllocationFailure);
}

// ================================================================ matrices: receiving

TEST_F(Wire, ReceivedMatrixReplacesTheCallersRows) {
  Matrix l_aadMatrix(4, std::vector<double>(7, 9.0));
  PeerSends({Le<uint64_t>(2), Le<uint64_t>(3), LeAll<double>({1, 2, 3, 4, 5, 6})});
  EXPECT_EQ(m_cVector.ReceiveVector2D(l_aadMatrix), 1u);
  m_cPair.Join();
  EXPECT_EQ(l_aadMatrix, (Matrix{{1, 2, 3}, {4, 5, 6}}));
  EXPECT_EQ(m_cPair.Peer().Received(), Acks(3));
}

TEST_F(Wire, ReceivedMatrixOfZeroRowsEmptiesTheCallersMatrix) {
  Matrix l_aadMatrix(3, std::vector<double>(2, 9.0));
  // Zero rows of any width are zero bytes of values.
  PeerSends({Le<uint64_t>(0), Le<uint64_t>(0), {}, Le<uint64_t>(0), Le<uint64_t>(~0ull), {}});
  EXPECT_EQ(m_cVector.ReceiveVector2D(l_aadMatrix), 1u);
  EXPECT_TRUE(l_aadMatrix.empty());
  l_aadMatrix.assign(2, std::vector<double>(1, 1.0));
  EXPECT_EQ(m_cVector.ReceiveVector2D(l_aadMatrix), 1u);
  EXPECT_TRUE(l_aadMatrix.empty());
  m_cPair.Join();
}

TEST_F(Wire, ReceivedRowsOfNoColumnsAreEmpty) {
  Matrix l_aadMatrix{{9.0}};
  PeerSends({Le<uint64_t>(1000), Le<uint64_t>(0), {}});
  EXPECT_EQ(m_cVector.ReceiveVector2D(l_aadMatrix), 1u);
  m_cPair.Join();
  EXPECT_EQ(l_aadMatrix, Matrix(1000));
}

// Sizes a peer may announce but no frame can carry, or more rows than
// MAX_RECEIVED_ROWS: refused before the caller's matrix is touched and
// before the values are read.
struct ImpossibleMatrix {
  uint64_t rows;
  uint64_t columns;
};

class WireImpossibleMatrix : public Wire,
                             public ::testing::WithParamInterface<ImpossibleMatrix> {};

TEST_P(WireImpossibleMatrix, IsAnAllocationFailure) {
  LogCapture l_cLog;
  Matrix l_aadMatrix{{1.0, 2.0}};
  PeerSends({Le(GetParam().rows), Le(GetParam().columns), kMarker});
  EXPECT_EQ(m_cVector.ReceiveVector2D(l_aadMatrix), FAILURE);
  ExpectMarkerNext();
  m_cPair.Join();
  EXPECT_EQ(l_cLog.Texts(), kAllocationFailure);
  EXPECT_EQ(l_aadMatrix, (Matrix{{1.0, 2.0}}));
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, WireImpossibleMatrix,
    ::testing::Values(ImpossibleMatrix{1ull << 62, 4},                   // r * c * 8 overflows
                      ImpossibleMatrix{4, 1ull << 62},                   // c * 8 overflows
                      ImpossibleMatrix{1ull << 16, 1ull << 14},          // 8 GiB of values
                      ImpossibleMatrix{1, 0x20000000},                   // 4 GiB exactly
                      ImpossibleMatrix{quor::MAX_RECEIVED_ROWS + 1, 0},  // empty rows
                      ImpossibleMatrix{quor::MAX_RECEIVED_ROWS + 1, 1},  // fits a frame
                      ImpossibleMatrix{~0ull, 0}));

TEST_F(Wire, MatrixThatCannotBeResizedLogsCannotResizeVector) {
  Matrix l_aadMatrix{{1.0}};
  PeerSends({Le<uint64_t>(2000), Le<uint64_t>(0)});
  EXPECT_EQ(WithFailingAllocation(2000 * sizeof(std::vector<double>), 0,
                                  [&] { return m_cVector.ReceiveVector2D(l_aadMatrix); },
                                  kCannotResizeVector),
            FAILURE);
  EXPECT_EQ(l_aadMatrix, Matrix{{1.0}});
}

TEST_F(Wire, RowThatCannotBeSizedLogsCannotResizeVector) {
  Matrix l_aadMatrix;
  PeerSends({Le<uint64_t>(1), Le<uint64_t>(5000), Bytes(40000, 0)});
  // The values inflate straight into the row: the row is the only block of
  // 40000 bytes.
  EXPECT_EQ(WithFailingAllocation(40000, 0, [&] { return m_cVector.ReceiveVector2D(l_aadMatrix); },
                                  kCannotResizeVector),
            FAILURE);
  EXPECT_EQ(l_aadMatrix.size(), 1u);
}

TEST(WireEdges, FailedColumnsAreReturnedAtOnce) {
  LoopbackPair l_cPair(1);
  SteeringVector l_cVector(l_cPair.Socket());
  l_cPair.Run([](RawPeer& p) { p.SendValue<uint64_t>(1); });
  Matrix l_aadMatrix{{1.0}};
  EXPECT_EQ(l_cVector.ReceiveVector2D(l_aadMatrix), 3u);  // the columns time out
  l_cPair.Join();
  EXPECT_EQ(l_aadMatrix, Matrix{{1.0}});
  EXPECT_EQ(l_cPair.Peer().Received(), Acks(1));
}

// The rows are made once their values have arrived: a peer that announces
// rows and sends no values costs the receiver nothing, and the caller's
// matrix is as it was.
TEST_F(Wire, FailedValuesLeaveTheMatrixAsItWas) {
  Matrix l_aadMatrix{{1.0}};
  m_cPair.Run([](RawPeer& p) {
    p.SendValue<uint64_t>(3);
    p.SendValue<uint64_t>(1);
    p.Write(Hex("00 00 00"));
    p.Close();
  });
  EXPECT_EQ(m_cVector.ReceiveVector2D(l_aadMatrix), 3u);  // the transfer's own code
  m_cPair.Join();
  EXPECT_EQ(l_aadMatrix, Matrix{{1.0}});
}

// ================================================================ sub-matrix

TEST_F(Wire, SubMatrixReceivesInsteadOfSending) {
  const Matrix l_aadMatrix{{1, 2, 3}, {4, 5, 6}};
  PeerSends({Le<uint64_t>(1), Le<uint64_t>(1), Le(9.0)});
  EXPECT_EQ(m_cVector.SendSubVector2D(l_aadMatrix, {2, 0}), 1u);
  // The library only acknowledged what it received.
  ExpectWire(Acks(3), Cat({Le<uint64_t>(1), Le<uint64_t>(1), Le(9.0)}));
  EXPECT_EQ(l_aadMatrix, (Matrix{{1, 2, 3}, {4, 5, 6}}));
}

TEST_F(Wire, SubMatrixReturnsTheReceiveResult) {
  LogCapture l_cLog;
  PeerSends({Le<uint64_t>(1ull << 62), Le<uint64_t>(4)});
  EXPECT_EQ(m_cVector.SendSubVector2D({}, {}), FAILURE);
  m_cPair.Join();
  EXPECT_EQ(l_cLog.Texts(), kAllocationFailure);
}

TEST_F(Wire, SubMatrixWithAColumnOutsideARowReceivesNothing) {
  const Matrix l_aadMatrix{{1, 2, 3}, {4, 5}};
  PeerSends({kMarker});
  EXPECT_EQ(m_cVector.SendSubVector2D(l_aadMatrix, {2}), FAILURE);  // row 1 has 2 columns
  EXPECT_EQ(m_cVector.SendSubVector2D(l_aadMatrix, {-1}), FAILURE);
  ExpectMarkerNext();
  m_cPair.Join();
}
