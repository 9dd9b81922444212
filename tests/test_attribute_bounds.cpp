// SPDX-License-Identifier: MIT
// Unpacking attributes from a received block inside an UnpackBounds scope:
// no read leaves the block, a count that the rest of the block cannot hold
// is refused before anything is sized by it, and a refused read leaves the
// attribute in a valid state.
//
// Every block is copied into a heap block of exactly its size, so that a
// read past its end is caught by AddressSanitizer in the sanitized build.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "quor/attribute.h"
#include "quor/attributeStruct.h"
#include "quor/attributeTransitionConnection.h"
#include "quor/attributeVector.h"
#include "quor/attributeVectorAttribute.h"
#include "quor/coding.h"
#include "raw_peer.h"

using namespace quor_test;
using quor::Attribute;

namespace {

struct Outcome {
  unsigned int consumed;
  bool overrun;
};

Outcome UnpackBounded(Attribute& p_cAttribute, const Bytes& p_aBlock) {
  std::unique_ptr<char[]> l_pBlock(new char[p_aBlock.size()]);
  if (!p_aBlock.empty()) std::memcpy(l_pBlock.get(), p_aBlock.data(), p_aBlock.size());
  quor::coding::UnpackBounds l_cBounds(l_pBlock.get(), p_aBlock.size());
  const unsigned int l_nConsumed = p_cAttribute.UnPackValue(l_pBlock.get());
  return Outcome{l_nConsumed, l_cBounds.Overrun()};
}

Bytes Pack(Attribute& p_cAttribute) {
  Bytes l_a(p_cAttribute.GetPackungSize());
  p_cAttribute.PackValue(l_a.data());
  return l_a;
}

Bytes Prefix(const Bytes& p_a, size_t p_n) { return Bytes(p_a.begin(), p_a.begin() + p_n); }

// Every proper prefix of the block is refused and leaves the attribute as it
// was; the whole block, and the block with bytes behind it, are read in full.
void ExpectOnlyTheWholeBlockIsRead(Attribute& p_cAttribute, const Bytes& p_aBlock) {
  const Bytes l_aBefore = Pack(p_cAttribute);
  for (size_t l_n = 0; l_n < p_aBlock.size(); ++l_n) {
    const Outcome l_c = UnpackBounded(p_cAttribute, Prefix(p_aBlock, l_n));
    EXPECT_TRUE(l_c.overrun) << "prefix of " << l_n << " bytes";
    EXPECT_LE(l_c.consumed, l_n);
    EXPECT_EQ(ToHex(Pack(p_cAttribute)), ToHex(l_aBefore)) << "prefix of " << l_n << " bytes";
  }
  const Outcome l_cLonger = UnpackBounded(p_cAttribute, Cat({p_aBlock, Hex("ee ee")}));
  EXPECT_FALSE(l_cLonger.overrun);
  EXPECT_EQ(l_cLonger.consumed, p_aBlock.size());
  const Outcome l_cWhole = UnpackBounded(p_cAttribute, p_aBlock);
  EXPECT_FALSE(l_cWhole.overrun);
  EXPECT_EQ(l_cWhole.consumed, p_aBlock.size());
}

// The block is refused and the attribute keeps what it packed before.
void ExpectRefusedUnchanged(Attribute& p_cAttribute, const Bytes& p_aBlock) {
  const Bytes l_aBefore = Pack(p_cAttribute);
  const Outcome l_c = UnpackBounded(p_cAttribute, p_aBlock);
  EXPECT_TRUE(l_c.overrun) << ToHex(p_aBlock);
  EXPECT_LE(l_c.consumed, p_aBlock.size());
  EXPECT_EQ(ToHex(Pack(p_cAttribute)), ToHex(l_aBefore)) << ToHex(p_aBlock);
}

class CountedInt : public quor::AttributeInt {
 public:
  CountedInt(int p_nValue, int* p_pnClones) : AttributeInt(wxT("A"), p_nValue), m_pnClones(p_pnClones) {}
  Attribute* Clone() override {
    ++*m_pnClones;
    return new CountedInt(GetValue(), m_pnClones);
  }

 private:
  int* m_pnClones;
};

int IntOf(Attribute* p_pc) { return dynamic_cast<quor::AttributeInt*>(p_pc)->GetValue(); }

}  // namespace

// ------------------------------------------------------------ scalars, string

TEST(AttributeBounds, ScalarsReadOnlyWholeValues) {
  quor::AttributeInt l_cInt(wxT("i"), 1);
  quor::AttributeUint l_cUint(wxT("u"), 2);
  quor::AttributeLong l_cLong(wxT("l"), 3);
  quor::AttributeUlong l_cUlong(wxT("ul"), 4);
  quor::AttributeDouble l_cDouble(wxT("d"), 5);
  quor::AttributeBool l_cBool(wxT("b"), false);
  ExpectOnlyTheWholeBlockIsRead(l_cInt, Hex("05 00 00 00"));
  ExpectOnlyTheWholeBlockIsRead(l_cUint, Hex("ff ff ff ff"));
  ExpectOnlyTheWholeBlockIsRead(l_cLong, Hex("fe ff ff ff ff ff ff ff"));
  ExpectOnlyTheWholeBlockIsRead(l_cUlong, Hex("01 02 03 04 05 06 07 08"));
  ExpectOnlyTheWholeBlockIsRead(l_cDouble, Hex("00 00 00 00 00 00 f0 3f"));
  ExpectOnlyTheWholeBlockIsRead(l_cBool, Hex("01"));
  EXPECT_EQ(l_cInt.GetValue(), 5);
  EXPECT_EQ(l_cLong.GetValue(), -2);
  EXPECT_EQ(l_cDouble.GetValue(), 1.0);
  EXPECT_TRUE(l_cBool.GetValue());
}

TEST(AttributeBounds, StringReadsOnlyAWholeText) {
  Attribute l_c(wxT("s"), wxT("old"));
  ExpectOnlyTheWholeBlockIsRead(l_c, Hex("03 00 00 00 61 62 63"));
  EXPECT_EQ(l_c.GetValueString(), wxT("abc"));
  ExpectOnlyTheWholeBlockIsRead(l_c, Hex("00 00 00 00"));
  EXPECT_EQ(l_c.GetValueString(), wxT(""));
}

TEST(AttributeBounds, StringWithInflatedCountIsRefused) {
  Attribute l_c(wxT("s"), wxT("old"));
  ExpectRefusedUnchanged(l_c, Hex("ff ff ff ff 61 62 63"));
  ExpectRefusedUnchanged(l_c, Hex("04 00 00 00 61 62 63"));
  EXPECT_EQ(l_c.GetValueString(), wxT("old"));
}

// ------------------------------------------------------------ lists

TEST(AttributeBounds, NumericListsReadOnlyWholeLists) {
  quor::AttributeVectorInt l_cInt(wxT("vi"));
  l_cInt.SetValue({7, 7, 7});
  ExpectOnlyTheWholeBlockIsRead(l_cInt, Hex("02 00 00 00 01 00 00 00 ff ff ff ff"));
  EXPECT_EQ(l_cInt.GetValue(), (std::vector<int>{1, -1}));

  quor::AttributeVectorULong l_cULong(wxT("vu"));
  l_cULong.SetValue({1});
  ExpectOnlyTheWholeBlockIsRead(l_cULong, Hex("01 00 00 00 07 00 00 00 00 00 00 00"));
  EXPECT_EQ(l_cULong.GetValue(), (std::vector<unsigned long long>{7}));

  quor::AttributeVectorDouble l_cDouble(wxT("vd"));
  ExpectOnlyTheWholeBlockIsRead(l_cDouble, Hex("01 00 00 00 00 00 00 00 00 00 f0 3f"));
  EXPECT_EQ(l_cDouble.GetValue(), (std::vector<double>{1.0}));
}

TEST(AttributeBounds, NumericListWithInflatedCountIsRefusedBeforeSizing) {
  quor::AttributeVectorInt l_cInt(wxT("vi"));
  l_cInt.SetValue({4, 5, 6});
  ExpectRefusedUnchanged(l_cInt, Hex("ff ff ff ff 01 00 00 00"));
  ExpectRefusedUnchanged(l_cInt, Hex("03 00 00 00 01 00 00 00 02 00 00 00"));
  quor::AttributeVectorULong l_cULong(wxT("vu"));
  l_cULong.SetValue({4});
  ExpectRefusedUnchanged(l_cULong, Hex("00 00 00 20 01 00 00 00 00 00 00 00"));
  quor::AttributeVectorDouble l_cDouble(wxT("vd"));
  l_cDouble.SetValue({4});
  ExpectRefusedUnchanged(l_cDouble, Hex("02 00 00 00 00 00 00 00 00 00 f0 3f"));
  EXPECT_EQ(l_cInt.GetValue(), (std::vector<int>{4, 5, 6}));
  EXPECT_EQ(l_cULong.GetValue(), (std::vector<unsigned long long>{4}));
  EXPECT_EQ(l_cDouble.GetValue(), (std::vector<double>{4}));
}

TEST(AttributeBounds, PairListReadsOnlyWholeLists) {
  quor::AttributeVectorULong2ULong l_c(wxT("vp"));
  l_c.AddElement(8, 9);
  ExpectOnlyTheWholeBlockIsRead(
      l_c, Hex("01 00 00 00 01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00"));
  ASSERT_EQ(l_c.GetValue().size(), 1u);
  EXPECT_EQ(l_c.GetValue()[0].first, 1u);
  EXPECT_EQ(l_c.GetValue()[0].second, 2u);
  ExpectRefusedUnchanged(l_c, Hex("ff ff ff 0f 01 00 00 00 00 00 00 00"));
  ExpectRefusedUnchanged(l_c, Hex("02 00 00 00 01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00"));
}

TEST(AttributeBounds, StringListReadsOnlyWholeLists) {
  quor::AttributeVectorString l_c(wxT("vs"));
  l_c.SetValue({wxT("x"), wxT("y"), wxT("z")});
  ExpectOnlyTheWholeBlockIsRead(l_c, Hex("02 00 00 00 02 00 00 00 61 62 00 00 00 00"));
  EXPECT_EQ(l_c.GetValue(), (std::vector<wxString>{wxT("ab"), wxT("")}));
}

TEST(AttributeBounds, StringListWithInflatedCountsIsRefusedUnchanged) {
  quor::AttributeVectorString l_c(wxT("vs"));
  l_c.SetValue({wxT("keep")});
  // More strings than four bytes each can hold.
  ExpectRefusedUnchanged(l_c, Hex("ff ff ff ff 00 00 00 00"));
  ExpectRefusedUnchanged(l_c, Hex("03 00 00 00 00 00 00 00 00 00 00 00"));
  // A string longer than the rest of the block, after a good one.
  ExpectRefusedUnchanged(l_c, Hex("02 00 00 00 01 00 00 00 61 09 00 00 00 62 63"));
  EXPECT_EQ(l_c.GetValue(), (std::vector<wxString>{wxT("keep")}));
}

// ------------------------------------------------------------ record

TEST(AttributeBounds, RecordReadsItsFieldsUpToTheFirstRefusedOne) {
  quor::AttributeStruct l_c(wxT("R"));
  l_c.AddField(new quor::AttributeInt(wxT("A"), 0));
  l_c.AddField(new Attribute(wxT("B"), wxT("old")));
  l_c.AddField(new quor::AttributeBool(wxT("C"), false));
  const Bytes l_aBlock = Hex("05 00 00 00 02 00 00 00 68 69 01");

  const Outcome l_cWhole = UnpackBounded(l_c, Cat({l_aBlock, Hex("ee")}));
  EXPECT_FALSE(l_cWhole.overrun);
  EXPECT_EQ(l_cWhole.consumed, l_aBlock.size());
  EXPECT_EQ(IntOf(l_c.GetField(wxT("A"))), 5);
  EXPECT_EQ(l_c.GetField(wxT("B"))->GetValueString(), wxT("hi"));

  // Cut inside B: A holds its new value, B and C keep theirs.
  dynamic_cast<quor::AttributeInt*>(l_c.GetField(wxT("A")))->SetValue(0);
  l_c.GetField(wxT("B"))->SetValueString(wxT("old"));
  dynamic_cast<quor::AttributeBool*>(l_c.GetField(wxT("C")))->SetValue(false);
  const Outcome l_cCut = UnpackBounded(l_c, Prefix(l_aBlock, 9));
  EXPECT_TRUE(l_cCut.overrun);
  EXPECT_LE(l_cCut.consumed, 9u);
  EXPECT_EQ(IntOf(l_c.GetField(wxT("A"))), 5);
  EXPECT_EQ(l_c.GetField(wxT("B"))->GetValueString(), wxT("old"));
  EXPECT_FALSE(dynamic_cast<quor::AttributeBool*>(l_c.GetField(wxT("C")))->GetValue());

  for (size_t l_n = 0; l_n < l_aBlock.size(); ++l_n) {
    EXPECT_TRUE(UnpackBounded(l_c, Prefix(l_aBlock, l_n)).overrun) << l_n;
  }
}

// ------------------------------------------------------------ list of records

TEST(AttributeBounds, ListOfRecordsReadsOnlyWholeLists) {
  quor::AttributeStruct l_cProto(wxT("R"));
  l_cProto.AddField(new quor::AttributeInt(wxT("A"), 0));
  l_cProto.AddField(new quor::AttributeVectorString(wxT("S")));
  quor::AttributeVectorAttribute l_c(wxT("L"), &l_cProto);
  const Bytes l_aBlock = Hex(
      "02 00 00 00 "
      "01 00 00 00 01 00 00 00 01 00 00 00 61 "
      "02 00 00 00 00 00 00 00");
  const Outcome l_cWhole = UnpackBounded(l_c, Cat({l_aBlock, Hex("ee")}));
  EXPECT_FALSE(l_cWhole.overrun);
  EXPECT_EQ(l_cWhole.consumed, l_aBlock.size());
  ASSERT_EQ(l_c.size(), 2u);
  EXPECT_EQ(ToHex(Pack(l_c)), ToHex(l_aBlock));
  for (size_t l_n = 0; l_n < l_aBlock.size(); ++l_n) {
    const Outcome l_cCut = UnpackBounded(l_c, Prefix(l_aBlock, l_n));
    EXPECT_TRUE(l_cCut.overrun) << l_n;
    EXPECT_LE(l_cCut.consumed, l_n);
    EXPECT_LE(l_c.size(), 2u);
  }
}

// The list grows only up to the element whose read was refused; the
// elements before it hold their new values. (The count fits the block at
// the least size of a record, 8 bytes; the second record's text does not.)
TEST(AttributeBounds, ListOfRecordsCutInsideAnElementGrowsUpToIt) {
  int l_nClones = 0;
  quor::AttributeStruct l_cProto(wxT("R"));
  l_cProto.AddField(new CountedInt(100, &l_nClones));
  l_cProto.AddField(new Attribute(wxT("S"), wxT("")));
  quor::AttributeVectorAttribute l_c(wxT("L"), &l_cProto);
  const Outcome l_cCut = UnpackBounded(l_c, Hex("03 00 00 00 "
                                                "01 00 00 00 04 00 00 00 61 62 63 64 "
                                                "02 00 00 00 09 00 00 00 61 "
                                                "00 00 00 00 00 00"));
  EXPECT_TRUE(l_cCut.overrun);
  EXPECT_EQ(l_nClones, 2);
  ASSERT_EQ(l_c.size(), 2u);
  quor::AttributeStruct* l_pcFirst = dynamic_cast<quor::AttributeStruct*>(l_c.GetElement(0));
  quor::AttributeStruct* l_pcSecond = dynamic_cast<quor::AttributeStruct*>(l_c.GetElement(1));
  ASSERT_TRUE(l_pcFirst != nullptr && l_pcSecond != nullptr);
  EXPECT_EQ(IntOf(l_pcFirst->GetField(wxT("A"))), 1);
  EXPECT_EQ(l_pcFirst->GetField(wxT("S"))->GetValueString(), wxT("abcd"));
  EXPECT_EQ(l_pcSecond->GetField(wxT("S"))->GetValueString(), wxT(""));  // not read into
}

// A count is refused before any clone when the block cannot hold that many
// elements at the least size of the prototype's shape (here 4 bytes: an
// int), not just one byte each.
TEST(AttributeBounds, ListOfRecordsCountIsCheckedAtTheLeastSizeOfAnElement) {
  int l_nClones = 0;
  CountedInt l_cProto(100, &l_nClones);
  quor::AttributeVectorAttribute l_c(wxT("L"), &l_cProto);
  const Outcome l_cCut = UnpackBounded(l_c, Hex("03 00 00 00 01 00 00 00 02 00 00 00 03 00"));
  EXPECT_TRUE(l_cCut.overrun);
  EXPECT_EQ(l_nClones, 0);
  EXPECT_EQ(l_c.size(), 0u);
}

TEST(AttributeBounds, ListOfRecordsWithInflatedCountIsRefusedBeforeAnyClone) {
  int l_nClones = 0;
  CountedInt l_cProto(100, &l_nClones);
  quor::AttributeVectorAttribute l_c(wxT("L"), &l_cProto);
  l_c.AddElement(new CountedInt(5, &l_nClones));
  const Outcome l_cHuge = UnpackBounded(l_c, Hex("ff ff ff ff 01 00 00 00"));
  EXPECT_TRUE(l_cHuge.overrun);
  const Outcome l_cTooMany = UnpackBounded(l_c, Hex("09 00 00 00 01 00 00 00"));
  EXPECT_TRUE(l_cTooMany.overrun);
  EXPECT_EQ(l_nClones, 0);
  ASSERT_EQ(l_c.size(), 1u);
  EXPECT_EQ(IntOf(l_c.GetElement(0)), 5);
}

// ------------------------------------------------------------ arcs

TEST(AttributeBounds, ArcsReadOnlyWholeLists) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 3);
  l_c.GetValue()[1].m_anPostPlacePositions = {4, 5};
  const Bytes l_aBlock = Hex(
      "01 00 00 00 "
      "01 00 00 00 02 00 00 00 00 00 00 00 "
      "00 00 00 00 "
      "01 00 00 00 00 00 00 00 00 00 00 00 00 00 f0 3f "
      "01 00 00 00 02 00 00 00 00 00 00 00 00 00 00 40");
  ExpectOnlyTheWholeBlockIsRead(l_c, l_aBlock);
  ASSERT_EQ(l_c.GetValue().size(), 1u);
  EXPECT_EQ(l_c.GetValue()[0].m_acPostConnections.size(), 1u);
  EXPECT_EQ(l_c.GetValue()[0].m_acPostConnections[0].weight, 2.0);
}

TEST(AttributeBounds, ArcsWithInflatedCountsAreRefusedUnchanged) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 2);
  l_c.GetValue()[0].m_anPrePlacePositions = {1};
  // More records than 16 bytes each can hold.
  ExpectRefusedUnchanged(l_c, Hex("ff ff ff ff 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
  ExpectRefusedUnchanged(l_c, Hex("02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
  // Inner counts that the block cannot hold: positions, then connections.
  ExpectRefusedUnchanged(l_c, Hex("01 00 00 00 ff ff ff ff 00 00 00 00 00 00 00 00 00 00 00 00"));
  ExpectRefusedUnchanged(l_c, Hex("01 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 "
                                  "00 00 00 00 00 00 00 00 00 00 f0 3f ff ff ff ff 00"));
  ExpectRefusedUnchanged(l_c, Hex("01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                                  "02 00 00 00 00 00 00 00 00 00 00 00 00 00 f0 3f"));
  ASSERT_EQ(l_c.GetValue().size(), 2u);
  EXPECT_EQ(l_c.GetValue()[0].m_anPrePlacePositions, (std::vector<unsigned long long>{1}));
}

TEST(AttributeBounds, OneListReadersAreBoundedToo) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 0);
  std::vector<unsigned long long> l_an{3};
  std::vector<quor::PlaceTransitionConnection> l_ac{{quor::CONNECTION_READ_ARC, 1.0}};
  const Bytes l_aBlock = Hex("02 00 00 00 01 00 00 00 00 00 00 00");
  std::unique_ptr<char[]> l_pBlock(new char[l_aBlock.size()]);
  std::memcpy(l_pBlock.get(), l_aBlock.data(), l_aBlock.size());
  quor::coding::UnpackBounds l_cBounds(l_pBlock.get(), l_aBlock.size());
  EXPECT_LE(l_c.UnPackVector(l_pBlock.get(), l_an), l_aBlock.size());
  EXPECT_TRUE(l_cBounds.Overrun());
  EXPECT_EQ(l_an, (std::vector<unsigned long long>{3}));
  EXPECT_LE(l_c.UnPackVectorConnection(l_pBlock.get(), l_ac), l_aBlock.size());
  ASSERT_EQ(l_ac.size(), 1u);
  EXPECT_EQ(l_ac[0].type, quor::CONNECTION_READ_ARC);
}
