// SPDX-License-Identifier: MIT
// The attribute classes: type codes, packed form (exact bytes), unpacking,
// cloning and ownership.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "log_capture.h"
#include "quor/attribute.h"
#include "quor/attributeStruct.h"
#include "quor/attributeTransitionConnection.h"
#include "quor/attributeVector.h"
#include "quor/attributeVectorAttribute.h"
#include "raw_peer.h"

using namespace quor_test;
using quor::Attribute;
using quor::FAILURE;

namespace {

// The packed form of an attribute, checking that PackValue writes exactly
// GetPackungSize() bytes and says so.
Bytes Pack(Attribute& p_cAttribute) {
  Bytes l_a(p_cAttribute.GetPackungSize() + 16, 0xEE);
  EXPECT_EQ(p_cAttribute.PackValue(l_a.data()), p_cAttribute.GetPackungSize());
  for (size_t i = p_cAttribute.GetPackungSize(); i < l_a.size(); ++i) EXPECT_EQ(l_a[i], 0xEE);
  l_a.resize(p_cAttribute.GetPackungSize());
  return l_a;
}

std::string PackHex(Attribute& p_cAttribute) { return ToHex(Pack(p_cAttribute)); }

template <typename T>
uint64_t Bits(T p_value) {
  uint64_t l_n = 0;
  std::memcpy(&l_n, &p_value, sizeof(T));
  return l_n;
}

wxString Utf8(const char* p_s) { return wxString::FromUTF8(p_s); }

// True when a null-pointer report "pointer error in
// ../source/ds/attributes/<file>(<line>): <text>" was dropped.
bool HasReport(const std::vector<std::string>& p_asReports, const std::string& p_sFile,
               const std::string& p_sText) {
  const std::string l_sHead = "pointer error in ../source/ds/attributes/" + p_sFile + "(";
  for (const std::string& l_s : p_asReports) {
    if (l_s.compare(0, l_sHead.size(), l_sHead) != 0) continue;
    const size_t l_nClose = l_s.find("): ", l_sHead.size());
    if (l_nClose == std::string::npos || l_nClose == l_sHead.size()) continue;
    if (l_s.find_first_not_of("0123456789", l_sHead.size()) != l_nClose) continue;
    if (l_s.compare(l_nClose + 3, std::string::npos, p_sText) == 0) return true;
  }
  return false;
}

// An int attribute that counts its clones and its deaths.
class CountedInt : public quor::AttributeInt {
 public:
  CountedInt(const wxString& p_sName, int p_nValue, int* p_pnClones, int* p_pnDeaths)
      : AttributeInt(p_sName, p_nValue), m_pnClones(p_pnClones), m_pnDeaths(p_pnDeaths) {}
  ~CountedInt() override { ++*m_pnDeaths; }
  Attribute* Clone() override {
    ++*m_pnClones;
    CountedInt* l_pcCopy = new CountedInt(GetName(), GetValue(), m_pnClones, m_pnDeaths);
    Attribute::Clone(l_pcCopy);
    return l_pcCopy;
  }

 private:
  int* m_pnClones;
  int* m_pnDeaths;
};

// The record of the examples: A (int 1) and B (bool true), added B first.
std::unique_ptr<quor::AttributeStruct> RecordAB(int p_nA, bool p_bB) {
  std::unique_ptr<quor::AttributeStruct> l_pc(new quor::AttributeStruct(wxT("R")));
  l_pc->AddField(new quor::AttributeBool(wxT("B"), p_bB));
  l_pc->AddField(new quor::AttributeInt(wxT("A"), p_nA));
  return l_pc;
}

int FieldInt(Attribute* p_pcRecord, const char* p_sName) {
  auto* l_pcStruct = dynamic_cast<quor::AttributeStruct*>(p_pcRecord);
  EXPECT_NE(l_pcStruct, nullptr);
  auto* l_pcField = dynamic_cast<quor::AttributeInt*>(l_pcStruct->GetField(wxString(p_sName)));
  EXPECT_NE(l_pcField, nullptr);
  return l_pcField ? l_pcField->GetValue() : -12345;
}

}  // namespace

// ------------------------------------------------------------ type codes

TEST(AttributeTypes, EveryClassReportsItsCode) {
  quor::AttributeStruct l_cProto(wxT("p"));
  std::vector<std::pair<std::unique_ptr<Attribute>, unsigned int>> l_a;
  l_a.emplace_back(new Attribute(wxT("s"), wxT("v")), 0);
  l_a.emplace_back(new quor::AttributeInt(wxT("i"), 0), 1);
  l_a.emplace_back(new quor::AttributeUint(wxT("u"), 0), 2);
  l_a.emplace_back(new quor::AttributeLong(wxT("l"), 0), 3);
  l_a.emplace_back(new quor::AttributeUlong(wxT("ul"), 0), 4);
  l_a.emplace_back(new quor::AttributeDouble(wxT("d"), 0), 5);
  l_a.emplace_back(new quor::AttributeBool(wxT("b"), false), 6);
  l_a.emplace_back(new quor::AttributeVectorDouble(wxT("vd")), 7);
  l_a.emplace_back(new quor::AttributeVectorInt(wxT("vi")), 8);
  l_a.emplace_back(new quor::AttributeVectorULong(wxT("vu")), 10);
  l_a.emplace_back(new quor::AttributeVectorString(wxT("vs")), 11);
  l_a.emplace_back(new quor::AttributeVectorAttribute(wxT("va"), &l_cProto), 12);
  l_a.emplace_back(new quor::AttributeVectorULong2ULong(wxT("vp")), 13);
  l_a.emplace_back(new quor::AttributeStruct(wxT("st")), 14);
  l_a.emplace_back(new quor::AttributeTransitionConnection(wxT("tc"), 2), 15);
  for (auto& l_c : l_a) {
    EXPECT_EQ(l_c.first->GetAttributeType(), l_c.second) << l_c.first->GetName();
    std::unique_ptr<Attribute> l_pcCopy(l_c.first->Clone());
    EXPECT_EQ(l_pcCopy->GetAttributeType(), l_c.second) << l_c.first->GetName();
  }
}

TEST(AttributeTypes, ClonesAreNewObjectsWithTheSameName) {
  quor::AttributeStruct l_cProto(wxT("p"));
  std::unique_ptr<Attribute> l_apc[] = {
      std::unique_ptr<Attribute>(new Attribute(wxT("s"), wxT("v"))),
      std::unique_ptr<Attribute>(new quor::AttributeVectorAttribute(wxT("va"), &l_cProto)),
      std::unique_ptr<Attribute>(new quor::AttributeTransitionConnection(wxT("tc"), 1))};
  for (auto& l_pc : l_apc) {
    std::unique_ptr<Attribute> l_pcCopy(l_pc->Clone());
    EXPECT_NE(l_pcCopy.get(), l_pc.get());
    EXPECT_EQ(l_pcCopy->GetAttributeType(), l_pc->GetAttributeType());
    EXPECT_EQ(l_pcCopy->GetName(), l_pc->GetName());
  }
}

// ------------------------------------------------------------ base, string

TEST(AttributeString, ConstructorTakesNameThenValue) {
  Attribute l_c(wxT("NAME"), wxT("value"));
  EXPECT_EQ(l_c.GetName(), wxT("NAME"));
  EXPECT_EQ(l_c.GetValueString(), wxT("value"));
  EXPECT_EQ(l_c.GetAttributeType(), 0u);
}

TEST(AttributeString, PacksCountAndBytes) {
  Attribute l_c(wxT("s"), wxT("abc"));
  EXPECT_EQ(l_c.GetPackungSize(), 7u);
  EXPECT_EQ(PackHex(l_c), "03 00 00 00 61 62 63");
}

TEST(AttributeString, EmptyValuePacksToFourZeroBytesAndUnpacksBackEmpty) {
  Attribute l_c(wxT("s"), wxT(""));
  EXPECT_EQ(PackHex(l_c), "00 00 00 00");
  Attribute l_cInto(wxT("s"), wxT("old"));
  Bytes l_a = Hex("00 00 00 00");
  EXPECT_EQ(l_cInto.UnPackValue(l_a.data()), 4u);
  EXPECT_EQ(l_cInto.GetValueString(), wxT(""));
}

TEST(AttributeString, UnpacksCountAndBytes) {
  Attribute l_c(wxT("s"), wxT(""));
  Bytes l_a = Hex("03 00 00 00 61 62 63 ff");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 7u);
  EXPECT_EQ(l_c.GetValueString(), wxT("abc"));
}

TEST(AttributeString, NonAsciiIsCutToItsCharacterCount) {
  Attribute l_c(wxT("s"), Utf8("\xc3\xa9"));  // U+00E9, two bytes in UTF-8
  ASSERT_EQ(l_c.GetValueString().length(), 1u);
  EXPECT_EQ(l_c.GetPackungSize(), 5u);
  EXPECT_EQ(PackHex(l_c), "01 00 00 00 c3");
}

TEST(AttributeString, UnPackStringDecodesUtf8WithByteFallback) {
  Attribute l_c(wxT("s"), wxT(""));
  EXPECT_EQ(l_c.UnPackString("\xc3\xa9xyz", 2), Utf8("\xc3\xa9"));
  // Not UTF-8: one character per byte.
  EXPECT_EQ(l_c.UnPackString("\xe9", 1), wxString(static_cast<wxChar>(0xE9)));
  EXPECT_EQ(l_c.UnPackString("", 0), wxT(""));
  // The bytes need no terminator: only the count is read.
  const char l_aNoZero[3] = {'a', 'b', 'c'};
  EXPECT_EQ(l_c.UnPackString(l_aNoZero, 2), wxT("ab"));
}

TEST(AttributeString, UnpackedNonUtf8ByteBecomesLatin1Character) {
  Attribute l_c(wxT("s"), wxT(""));
  Bytes l_a = Hex("01 00 00 00 e9");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 5u);
  EXPECT_EQ(l_c.GetValueString(), wxString(static_cast<wxChar>(0xE9)));
}

TEST(AttributeString, CloneCopiesNameAndValue) {
  Attribute l_c(wxT("s"), wxT("v"));
  std::unique_ptr<Attribute> l_pcCopy(l_c.Clone());
  EXPECT_EQ(l_pcCopy->GetName(), wxT("s"));
  EXPECT_EQ(l_pcCopy->GetValueString(), wxT("v"));
  EXPECT_EQ(l_pcCopy->GetAttributeType(), 0u);
}

TEST(AttributeString, CloneIntoCopiesTheValueStringOnly) {
  Attribute l_c(wxT("s"), wxT("v"));
  quor::AttributeInt l_cTarget(wxT("t"), 9);
  l_c.Clone(&l_cTarget);
  EXPECT_EQ(l_cTarget.GetValueString(), wxT("v"));
  EXPECT_EQ(l_cTarget.GetValue(), 9);
  EXPECT_EQ(l_cTarget.GetName(), wxT("t"));
}

TEST(AttributeString, CloneIntoNullIsIgnored) {
  ReportCapture l_cReports;
  LogCapture l_cLog;
  Attribute l_c(wxT("s"), wxT("v"));
  l_c.Clone(static_cast<Attribute*>(nullptr));
  EXPECT_TRUE(HasReport(l_cReports.Reports(), "attribute.cpp",
                        "p_pcAttribute is NULL, we return"));
  EXPECT_TRUE(l_cLog.Records().empty());
}

TEST(AttributeString, SendAndReceiveWithoutCommunicatorFail) {
  ReportCapture l_cReports;
  Attribute l_c(wxT("s"), wxT("v"));
  EXPECT_EQ(l_c.SendValue(nullptr), FAILURE);
  EXPECT_EQ(l_c.ReceiveValue(nullptr), FAILURE);
  EXPECT_EQ(l_c.GetValueString(), wxT("v"));
  EXPECT_TRUE(HasReport(l_cReports.Reports(), "attribute.cpp",
                        "p_pcCommunicator is NULL, we return FAILURE"));
}

// ------------------------------------------------------------ scalars

TEST(AttributeScalar, PackedExamples) {
  quor::AttributeInt l_cInt(wxT("i"), 5);
  quor::AttributeUint l_cUint(wxT("u"), 0xFFFFFFFFu);
  quor::AttributeLong l_cLong(wxT("l"), -2);
  quor::AttributeDouble l_cDouble(wxT("d"), 1.0);
  quor::AttributeBool l_cBool(wxT("b"), true);
  EXPECT_EQ(PackHex(l_cInt), "05 00 00 00");
  EXPECT_EQ(PackHex(l_cUint), "ff ff ff ff");
  EXPECT_EQ(PackHex(l_cLong), "fe ff ff ff ff ff ff ff");
  EXPECT_EQ(PackHex(l_cDouble), "00 00 00 00 00 00 f0 3f");
  EXPECT_EQ(PackHex(l_cBool), "01");
}

TEST(AttributeScalar, WidthsAreFixedPerClass) {
  quor::AttributeInt l_cInt(wxT("i"), 0);
  quor::AttributeUint l_cUint(wxT("u"), 0);
  quor::AttributeLong l_cLong(wxT("l"), 0);
  quor::AttributeUlong l_cUlong(wxT("ul"), 0);
  quor::AttributeDouble l_cDouble(wxT("d"), 0);
  quor::AttributeBool l_cBool(wxT("b"), false);
  EXPECT_EQ(l_cInt.GetPackungSize(), 4u);
  EXPECT_EQ(l_cUint.GetPackungSize(), 4u);
  EXPECT_EQ(l_cLong.GetPackungSize(), 8u);
  EXPECT_EQ(l_cUlong.GetPackungSize(), 8u);
  EXPECT_EQ(l_cDouble.GetPackungSize(), 8u);
  EXPECT_EQ(l_cBool.GetPackungSize(), 1u);
  EXPECT_EQ(PackHex(l_cBool), "00");
  EXPECT_EQ(PackHex(l_cUlong), "00 00 00 00 00 00 00 00");
}

TEST(AttributeScalar, ConstructorSetsValueAndEmptyValueString) {
  quor::AttributeUlong l_c(wxT("n"), 42);
  EXPECT_EQ(l_c.GetValue(), 42u);
  EXPECT_EQ(l_c.GetValueString(), wxT(""));
  l_c.SetValue(7);
  EXPECT_EQ(l_c.GetValue(), 7u);
  EXPECT_EQ(l_c.GetValueString(), wxT(""));  // not the number
}

TEST(AttributeScalar, ExtremeIntegersRoundTripBitForBit) {
  quor::AttributeLong l_cMin(wxT("l"), std::numeric_limits<long long>::min());
  quor::AttributeUlong l_cMax(wxT("u"), std::numeric_limits<unsigned long long>::max());
  quor::AttributeInt l_cIntMin(wxT("i"), std::numeric_limits<int>::min());
  EXPECT_EQ(PackHex(l_cMin), "00 00 00 00 00 00 00 80");
  EXPECT_EQ(PackHex(l_cMax), "ff ff ff ff ff ff ff ff");
  EXPECT_EQ(PackHex(l_cIntMin), "00 00 00 80");

  quor::AttributeLong l_cMinBack(wxT("l"), 0);
  quor::AttributeUlong l_cMaxBack(wxT("u"), 0);
  quor::AttributeInt l_cIntBack(wxT("i"), 0);
  Bytes l_aMin = Pack(l_cMin), l_aMax = Pack(l_cMax), l_aInt = Pack(l_cIntMin);
  EXPECT_EQ(l_cMinBack.UnPackValue(l_aMin.data()), 8u);
  EXPECT_EQ(l_cMaxBack.UnPackValue(l_aMax.data()), 8u);
  EXPECT_EQ(l_cIntBack.UnPackValue(l_aInt.data()), 4u);
  EXPECT_EQ(l_cMinBack.GetValue(), std::numeric_limits<long long>::min());
  EXPECT_EQ(l_cMaxBack.GetValue(), std::numeric_limits<unsigned long long>::max());
  EXPECT_EQ(l_cIntBack.GetValue(), std::numeric_limits<int>::min());
}

TEST(AttributeScalar, NanAndInfinitiesRoundTripBitForBit) {
  double l_dPayloadNan;
  const uint64_t l_nNanBits = 0x7ff8000000000123ull;
  std::memcpy(&l_dPayloadNan, &l_nNanBits, 8);
  const double l_adValues[] = {l_dPayloadNan, std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity(), -0.0,
                               std::numeric_limits<double>::denorm_min()};
  for (double l_d : l_adValues) {
    quor::AttributeDouble l_c(wxT("d"), l_d);
    Bytes l_a = Pack(l_c);
    EXPECT_EQ(l_a, Le(l_d));
    quor::AttributeDouble l_cBack(wxT("d"), 3.0);
    EXPECT_EQ(l_cBack.UnPackValue(l_a.data()), 8u);
    EXPECT_EQ(Bits(l_cBack.GetValue()), Bits(l_d));
  }
}

TEST(AttributeScalar, BoolUnpacksZeroAsFalseAndOneAsTrue) {
  quor::AttributeBool l_c(wxT("b"), true);
  Bytes l_a = Hex("00 01");
  EXPECT_EQ(l_c.UnPackValue(&l_a[0]), 1u);
  EXPECT_FALSE(l_c.GetValue());
  EXPECT_EQ(l_c.UnPackValue(&l_a[1]), 1u);
  EXPECT_TRUE(l_c.GetValue());
}

// A byte other than 0 or 1 is not kept as it is: it reads as true and packs
// back as 01.
TEST(AttributeScalar, BoolUnpacksAnyOtherByteAsTrue) {
  for (uint8_t l_nByte : {0x02, 0x7f, 0x80, 0xff}) {
    quor::AttributeBool l_c(wxT("b"), false);
    Bytes l_a{l_nByte};
    EXPECT_EQ(l_c.UnPackValue(l_a.data()), 1u);
    EXPECT_TRUE(l_c.GetValue());
    EXPECT_EQ(PackHex(l_c), "01");
  }
}

TEST(AttributeScalar, UnpackReadsOnlyItsWidth) {
  quor::AttributeUint l_c(wxT("u"), 0);
  Bytes l_a = Hex("01 02 03 04 05 06");
  EXPECT_EQ(l_c.UnPackValue(l_a.data() + 1), 4u);
  EXPECT_EQ(l_c.GetValue(), 0x05040302u);
}

TEST(AttributeScalar, UnalignedPackAndUnpack) {
  quor::AttributeDouble l_c(wxT("d"), -1.5);
  Bytes l_a(11, 0);
  EXPECT_EQ(l_c.PackValue(l_a.data() + 3), 8u);
  EXPECT_EQ(ToHex(Bytes(l_a.begin() + 3, l_a.end())), ToHex(Le(-1.5)));
  quor::AttributeDouble l_cBack(wxT("d"), 0);
  EXPECT_EQ(l_cBack.UnPackValue(l_a.data() + 3), 8u);
  EXPECT_EQ(l_cBack.GetValue(), -1.5);
}

TEST(AttributeScalar, CloneOfIntKeepsNameValueValueStringAndType) {
  quor::AttributeInt l_c(wxT("count"), -17);
  l_c.SetValueString(wxT("x"));
  std::unique_ptr<Attribute> l_pcCopy(l_c.Clone());
  auto* l_pcInt = dynamic_cast<quor::AttributeInt*>(l_pcCopy.get());
  ASSERT_NE(l_pcInt, nullptr);
  EXPECT_EQ(l_pcInt->GetName(), wxT("count"));
  EXPECT_EQ(l_pcInt->GetValue(), -17);
  EXPECT_EQ(l_pcInt->GetValueString(), wxT("x"));
  EXPECT_EQ(l_pcInt->GetAttributeType(), 1u);
}

TEST(AttributeScalar, CloneOfEveryScalarClass) {
  quor::AttributeUint l_cUint(wxT("u"), 0xFFFFFFFFu);
  quor::AttributeLong l_cLong(wxT("l"), -5);
  quor::AttributeUlong l_cUlong(wxT("ul"), 1ull << 63);
  quor::AttributeDouble l_cDouble(wxT("d"), 2.5);
  quor::AttributeBool l_cBool(wxT("b"), true);
  Attribute* l_apc[] = {&l_cUint, &l_cLong, &l_cUlong, &l_cDouble, &l_cBool};
  for (Attribute* l_pc : l_apc) {
    l_pc->SetValueString(wxT("vs"));
    std::unique_ptr<Attribute> l_pcCopy(l_pc->Clone());
    EXPECT_EQ(typeid(*l_pcCopy), typeid(*l_pc));
    EXPECT_EQ(l_pcCopy->GetName(), l_pc->GetName());
    EXPECT_EQ(l_pcCopy->GetValueString(), wxT("vs"));
    EXPECT_EQ(Pack(*l_pcCopy), Pack(*l_pc));
  }
}

TEST(AttributeScalar, SetValueStringOfDoubleDoesNotChangeWhatItPacks) {
  quor::AttributeDouble l_c(wxT("d"), 1.0);
  l_c.SetValueString(wxT("99.5"));
  EXPECT_EQ(l_c.GetValueString(), wxT("99.5"));
  EXPECT_EQ(PackHex(l_c), "00 00 00 00 00 00 f0 3f");
  EXPECT_EQ(l_c.GetValue(), 1.0);
}

TEST(AttributeScalar, SendAndReceiveWithoutCommunicatorFail) {
  quor::AttributeLong l_c(wxT("l"), 3);
  EXPECT_EQ(l_c.SendValue(nullptr), FAILURE);
  EXPECT_EQ(l_c.ReceiveValue(nullptr), FAILURE);
  EXPECT_EQ(l_c.GetValue(), 3);
}

// ------------------------------------------------------------ numeric lists

TEST(AttributeVectorNumeric, PackedExamples) {
  quor::AttributeVectorInt l_cInt(wxT("vi"));
  l_cInt.SetValue({1, -1});
  EXPECT_EQ(l_cInt.GetPackungSize(), 12u);
  EXPECT_EQ(PackHex(l_cInt), "02 00 00 00 01 00 00 00 ff ff ff ff");

  quor::AttributeVectorULong l_cULong(wxT("vu"));
  l_cULong.SetValue({7});
  EXPECT_EQ(PackHex(l_cULong), "01 00 00 00 07 00 00 00 00 00 00 00");

  quor::AttributeVectorDouble l_cDouble(wxT("vd"));
  l_cDouble.SetValue({1.0});
  EXPECT_EQ(PackHex(l_cDouble), "01 00 00 00 00 00 00 00 00 00 f0 3f");
}

TEST(AttributeVectorNumeric, EmptyListsPackToAZeroCount) {
  quor::AttributeVectorInt l_cInt(wxT("vi"));
  quor::AttributeVectorULong l_cULong(wxT("vu"));
  quor::AttributeVectorDouble l_cDouble(wxT("vd"));
  quor::AttributeVectorString l_cString(wxT("vs"));
  quor::AttributeVectorULong2ULong l_cPairs(wxT("vp"));
  Attribute* l_apc[] = {&l_cInt, &l_cULong, &l_cDouble, &l_cString, &l_cPairs};
  for (Attribute* l_pc : l_apc) EXPECT_EQ(PackHex(*l_pc), "00 00 00 00") << l_pc->GetName();
}

TEST(AttributeVectorNumeric, UnpackReplacesTheList) {
  quor::AttributeVectorInt l_c(wxT("vi"));
  l_c.SetValue({9, 9, 9, 9});
  Bytes l_a = Hex("02 00 00 00 01 00 00 00 ff ff ff ff");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 12u);
  EXPECT_EQ(l_c.GetValue(), (std::vector<int>{1, -1}));
}

TEST(AttributeVectorNumeric, UnpackingCountZeroKeepsTheElements) {
  quor::AttributeVectorInt l_cInt(wxT("vi"));
  quor::AttributeVectorULong l_cULong(wxT("vu"));
  quor::AttributeVectorDouble l_cDouble(wxT("vd"));
  l_cInt.SetValue({1, 2, 3});
  l_cULong.SetValue({1, 2, 3});
  l_cDouble.SetValue({1, 2, 3});
  Bytes l_a = Hex("00 00 00 00");
  EXPECT_EQ(l_cInt.UnPackValue(l_a.data()), 4u);
  EXPECT_EQ(l_cULong.UnPackValue(l_a.data()), 4u);
  EXPECT_EQ(l_cDouble.UnPackValue(l_a.data()), 4u);
  EXPECT_EQ(l_cInt.GetValue(), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(l_cULong.GetValue(), (std::vector<unsigned long long>{1, 2, 3}));
  EXPECT_EQ(l_cDouble.GetValue(), (std::vector<double>{1, 2, 3}));
}

TEST(AttributeVectorNumeric, ExtremeElementsRoundTripBitForBit) {
  double l_dNan;
  const uint64_t l_nNanBits = 0xfff0000000000001ull;  // a signalling NaN
  std::memcpy(&l_dNan, &l_nNanBits, 8);
  quor::AttributeVectorDouble l_cDouble(wxT("vd"));
  l_cDouble.SetValue({l_dNan, std::numeric_limits<double>::infinity(),
                      -std::numeric_limits<double>::infinity(), -0.0});
  quor::AttributeVectorULong l_cULong(wxT("vu"));
  l_cULong.SetValue({std::numeric_limits<unsigned long long>::max(), 0});
  quor::AttributeVectorInt l_cInt(wxT("vi"));
  l_cInt.SetValue({std::numeric_limits<int>::min(), std::numeric_limits<int>::max()});

  quor::AttributeVectorDouble l_cDoubleBack(wxT("vd"));
  quor::AttributeVectorULong l_cULongBack(wxT("vu"));
  quor::AttributeVectorInt l_cIntBack(wxT("vi"));
  Bytes l_aDouble = Pack(l_cDouble), l_aULong = Pack(l_cULong), l_aInt = Pack(l_cInt);
  EXPECT_EQ(l_cDoubleBack.UnPackValue(l_aDouble.data()), 36u);
  EXPECT_EQ(l_cULongBack.UnPackValue(l_aULong.data()), 20u);
  EXPECT_EQ(l_cIntBack.UnPackValue(l_aInt.data()), 12u);
  ASSERT_EQ(l_cDoubleBack.GetValue().size(), 4u);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(Bits(l_cDoubleBack.GetValue()[i]), Bits(l_cDouble.GetValue()[i]));
  }
  EXPECT_EQ(l_cULongBack.GetValue(), l_cULong.GetValue());
  EXPECT_EQ(l_cIntBack.GetValue(), l_cInt.GetValue());
  EXPECT_EQ(ToHex(Bytes(l_aInt.begin() + 4, l_aInt.end())), "00 00 00 80 ff ff ff 7f");
}

TEST(AttributeVectorNumeric, AssignGivesCopiesOfTheValue) {
  quor::AttributeVectorInt l_c(wxT("vi"));
  l_c.SetValue({4});
  l_c.assign(3, 5);
  EXPECT_EQ(l_c.GetValue(), (std::vector<int>{5, 5, 5}));
  EXPECT_EQ(l_c.GetPackungSize(), 16u);
  quor::AttributeVectorDouble l_cDouble(wxT("vd"));
  l_cDouble.assign(2, 0.5);
  EXPECT_EQ(l_cDouble.GetValue(), (std::vector<double>{0.5, 0.5}));
  quor::AttributeVectorULong l_cULong(wxT("vu"));
  l_cULong.assign(1, 1ull << 40);
  EXPECT_EQ(PackHex(l_cULong), "01 00 00 00 00 00 00 00 00 01 00 00");
}

TEST(AttributeVectorNumeric, GetValueIsTheLiveList) {
  quor::AttributeVectorULong l_c(wxT("vu"));
  l_c.GetValue().push_back(3);
  EXPECT_EQ(PackHex(l_c), "01 00 00 00 03 00 00 00 00 00 00 00");
  l_c.SetValue(l_c.GetValue());  // its own list: nothing happens
  EXPECT_EQ(l_c.GetValue(), (std::vector<unsigned long long>{3}));
}

TEST(AttributeVectorNumeric, CloneCopiesNameValueStringAndList) {
  quor::AttributeVectorDouble l_c(wxT("vd"));
  l_c.SetValue({1.5, -2});
  l_c.SetValueString(wxT("vs"));
  std::unique_ptr<Attribute> l_pcCopy(l_c.Clone());
  auto* l_pcList = dynamic_cast<quor::AttributeVectorDouble*>(l_pcCopy.get());
  ASSERT_NE(l_pcList, nullptr);
  EXPECT_EQ(l_pcList->GetName(), wxT("vd"));
  EXPECT_EQ(l_pcList->GetValueString(), wxT("vs"));
  EXPECT_EQ(l_pcList->GetValue(), l_c.GetValue());
  EXPECT_NE(&l_pcList->GetValue(), &l_c.GetValue());
  quor::AttributeVectorInt l_cInt(wxT("vi"));
  l_cInt.SetValue({3});
  std::unique_ptr<Attribute> l_pcIntCopy(l_cInt.Clone());
  EXPECT_EQ(PackHex(*l_pcIntCopy), "01 00 00 00 03 00 00 00");
  quor::AttributeVectorULong l_cULong(wxT("vu"));
  l_cULong.SetValue({4});
  std::unique_ptr<Attribute> l_pcULongCopy(l_cULong.Clone());
  EXPECT_EQ(PackHex(*l_pcULongCopy), "01 00 00 00 04 00 00 00 00 00 00 00");
}

// Maps every window of a range onto one shared block of memory, so that a
// buffer of several GiB costs the memory of one window. The bytes of the
// range outside the windows stay private.
class WindowAlias {
 public:
  static constexpr uintptr_t WINDOW = uintptr_t(2) << 20;

  WindowAlias() : m_nFd(memfd_create("quor-test-window", 0)) {
    if (m_nFd >= 0 && ftruncate(m_nFd, WINDOW) != 0) {
      close(m_nFd);
      m_nFd = -1;
    }
  }
  ~WindowAlias() {
    if (m_nFd >= 0) close(m_nFd);
  }

  // Overlays the whole windows of [p_pBegin, p_pBegin + p_nSize) except the
  // first and the last one.
  bool Overlay(void* p_pBegin, size_t p_nSize) {
    const uintptr_t l_nStart = reinterpret_cast<uintptr_t>(p_pBegin);
    const uintptr_t l_nBegin = ((l_nStart + WINDOW - 1) & ~(WINDOW - 1)) + WINDOW;
    const uintptr_t l_nEnd = ((l_nStart + p_nSize) & ~(WINDOW - 1)) - WINDOW;
    if (m_nFd < 0 || l_nEnd <= l_nBegin) return false;
    for (uintptr_t l_n = l_nBegin; l_n < l_nEnd; l_n += WINDOW) {
      if (mmap(reinterpret_cast<void*>(l_n), WINDOW, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED | MAP_POPULATE,
               m_nFd, 0) == MAP_FAILED) {
        return false;
      }
    }
    return true;
  }

 private:
  int m_nFd;
};

// 2^30 ints are 4 GiB: the count still packs as 00 00 00 40, while the size
// 4 + 4 * 2^30, computed in 32 bits, wraps to 4. (The list and the buffer
// are backed by aliased windows: only their ends hold memory of their own.)
TEST(AttributeVectorNumeric, ListOfTwoToTheThirtyIntsPacksItsCountAndWrapsItsSize) {
  const size_t l_nCount = size_t(1) << 30;
  const size_t l_nBytes = 4 + l_nCount * 4;
  std::unique_ptr<quor::AttributeVectorInt> l_pc(new quor::AttributeVectorInt(wxT("vi")));
  try {
    l_pc->GetValue().reserve(l_nCount);
  } catch (const std::bad_alloc&) {
    GTEST_SKIP() << "4 GiB of address space are not available here";
  }
  WindowAlias l_cListWindows, l_cBufferWindows;
  ASSERT_TRUE(l_cListWindows.Overlay(l_pc->GetValue().data(), l_nCount * 4));
  l_pc->GetValue().resize(l_nCount);
  l_pc->GetValue()[0] = 0x11223344;
  l_pc->GetValue()[l_nCount - 1] = -2;
  EXPECT_EQ(l_pc->GetPackungSize(), 4u);

  void* l_pMap = mmap(nullptr, l_nBytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(l_pMap, MAP_FAILED);
  ASSERT_TRUE(l_cBufferWindows.Overlay(l_pMap, l_nBytes));
  unsigned char* l_pBuffer = static_cast<unsigned char*>(l_pMap);
  EXPECT_EQ(l_pc->PackValue(l_pBuffer), 4u);  // 4 + 2^32, in 32 bits
  EXPECT_EQ(ToHex(Bytes(l_pBuffer, l_pBuffer + 12)), "00 00 00 40 44 33 22 11 00 00 00 00");
  EXPECT_EQ(ToHex(Bytes(l_pBuffer + l_nBytes - 8, l_pBuffer + l_nBytes)), "00 00 00 00 fe ff ff ff");
  munmap(l_pMap, l_nBytes);
}

// ------------------------------------------------------------ string list

TEST(AttributeVectorString, PackedExample) {
  quor::AttributeVectorString l_c(wxT("vs"));
  l_c.SetValue({wxT("ab"), wxT("")});
  EXPECT_EQ(l_c.GetPackungSize(), 14u);
  EXPECT_EQ(PackHex(l_c), "02 00 00 00 02 00 00 00 61 62 00 00 00 00");
}

TEST(AttributeVectorString, UnpackReplacesTheList) {
  quor::AttributeVectorString l_c(wxT("vs"));
  l_c.SetValue({wxT("x"), wxT("y"), wxT("z")});
  Bytes l_a = Hex("02 00 00 00 02 00 00 00 61 62 00 00 00 00");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 14u);
  EXPECT_EQ(l_c.GetValue(), (std::vector<wxString>{wxT("ab"), wxT("")}));
}

TEST(AttributeVectorString, UnpackingCountZeroEmptiesTheList) {
  quor::AttributeVectorString l_c(wxT("vs"));
  l_c.SetValue({wxT("a"), wxT("b"), wxT("c")});
  Bytes l_a = Hex("00 00 00 00");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 4u);
  EXPECT_TRUE(l_c.GetValue().empty());
}

TEST(AttributeVectorString, NonAsciiStringsAreCutToTheirCharacterCount) {
  quor::AttributeVectorString l_c(wxT("vs"));
  l_c.SetValue({Utf8("\xc3\xa9t\xc3\xa9"), wxT("ok")});  // "été": 3 characters, 5 bytes
  EXPECT_EQ(l_c.GetPackungSize(), 4u + 7u + 6u);
  EXPECT_EQ(PackHex(l_c), "02 00 00 00 03 00 00 00 c3 a9 74 02 00 00 00 6f 6b");
}

TEST(AttributeVectorString, AssignCloneAndLiveList) {
  quor::AttributeVectorString l_c(wxT("vs"));
  l_c.assign(2, wxT("q"));
  EXPECT_EQ(l_c.GetValue(), (std::vector<wxString>{wxT("q"), wxT("q")}));
  l_c.GetValue().push_back(wxT(""));
  l_c.SetValueString(wxT("v"));
  std::unique_ptr<Attribute> l_pcCopy(l_c.Clone());
  auto* l_pcList = dynamic_cast<quor::AttributeVectorString*>(l_pcCopy.get());
  ASSERT_NE(l_pcList, nullptr);
  EXPECT_EQ(l_pcList->GetValue(), l_c.GetValue());
  EXPECT_EQ(l_pcList->GetValueString(), wxT("v"));
  EXPECT_EQ(PackHex(*l_pcList), "03 00 00 00 01 00 00 00 71 01 00 00 00 71 00 00 00 00");
}

TEST(AttributeVectorString, EmptyStringsRoundTrip) {
  quor::AttributeVectorString l_c(wxT("vs"));
  l_c.SetValue({wxT(""), wxT(""), wxT("")});
  Bytes l_a = Pack(l_c);
  quor::AttributeVectorString l_cBack(wxT("vs"));
  EXPECT_EQ(l_cBack.UnPackValue(l_a.data()), 16u);
  EXPECT_EQ(l_cBack.GetValue(), l_c.GetValue());
}

// ------------------------------------------------------------ record

TEST(AttributeStruct, PackedExampleFollowsKeyOrder) {
  auto l_pc = RecordAB(1, true);
  EXPECT_EQ(l_pc->GetPackungSize(), 5u);
  EXPECT_EQ(PackHex(*l_pc), "01 00 00 00 01");
  EXPECT_EQ(l_pc->GetAttributeType(), 14u);
}

TEST(AttributeStruct, KeyOrderIsCodeOrder) {
  quor::AttributeStruct l_c(wxT("R"));
  l_c.AddField(new quor::AttributeBool(wxT("a"), true));
  l_c.AddField(new quor::AttributeBool(wxT("B"), false));
  l_c.AddField(new quor::AttributeInt(wxT("A"), 2));
  EXPECT_EQ(PackHex(l_c), "02 00 00 00 00 01");
}

TEST(AttributeStruct, UnpackFillsTheFieldsInKeyOrder) {
  auto l_pc = RecordAB(0, false);
  Bytes l_a = Hex("07 00 00 00 01 ee");
  EXPECT_EQ(l_pc->UnPackValue(l_a.data()), 5u);
  EXPECT_EQ(FieldInt(l_pc.get(), "A"), 7);
  EXPECT_TRUE(dynamic_cast<quor::AttributeBool*>(l_pc->GetField(wxT("B")))->GetValue());
}

TEST(AttributeStruct, RecordWithNoFieldsPacksToZeroBytes) {
  quor::AttributeStruct l_c(wxT("R"));
  EXPECT_EQ(l_c.GetPackungSize(), 0u);
  Bytes l_a(4, 0xEE);
  EXPECT_EQ(l_c.PackValue(l_a.data()), 0u);
  EXPECT_EQ(ToHex(l_a), "ee ee ee ee");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 0u);
}

TEST(AttributeStruct, MissingFieldIsNullAndLaterPackFails) {
  ReportCapture l_cReports;
  LogCapture l_cLog;
  auto l_pc = RecordAB(1, true);
  EXPECT_EQ(l_pc->GetField(wxT("C")), nullptr);
  EXPECT_TRUE(l_cReports.Reports().empty());  // the lookup reports nothing
  ASSERT_EQ(l_pc->GetAllFields()->size(), 3u);
  EXPECT_EQ(l_pc->GetAllFields()->count(wxT("C")), 1u);

  Bytes l_a(16, 0);
  EXPECT_EQ(l_pc->PackValue(l_a.data()), FAILURE);
  EXPECT_TRUE(HasReport(l_cReports.Reports(), "attributeStruct.cpp",
                        "l_itAttribute->second is NULL, we return FAILURE"));
  // The fields before it (A, B) were packed.
  EXPECT_EQ(ToHex(Bytes(l_a.begin(), l_a.begin() + 5)), "01 00 00 00 01");
  EXPECT_EQ(l_pc->GetPackungSize(), FAILURE);
  EXPECT_EQ(l_pc->UnPackValue(l_a.data()), FAILURE);
  EXPECT_EQ(l_pc->SendValue(nullptr), FAILURE);
  EXPECT_EQ(l_pc->ReceiveValue(nullptr), FAILURE);
  EXPECT_TRUE(l_cLog.Records().empty());
}

TEST(AttributeStruct, CloneLeavesNullEntriesOut) {
  auto l_pc = RecordAB(1, true);
  EXPECT_EQ(l_pc->GetField(wxT("C")), nullptr);
  std::unique_ptr<Attribute> l_pcCopy(l_pc->Clone());
  auto* l_pcRecord = dynamic_cast<quor::AttributeStruct*>(l_pcCopy.get());
  ASSERT_NE(l_pcRecord, nullptr);
  EXPECT_EQ(l_pcRecord->GetAllFields()->size(), 2u);
  EXPECT_EQ(PackHex(*l_pcRecord), "01 00 00 00 01");
}

TEST(AttributeStruct, AddFieldOfSameNameKeepsTheSecondAndDoesNotFreeTheFirst) {
  int l_nClones = 0, l_nDeaths = 0;
  CountedInt* l_pcFirst = new CountedInt(wxT("A"), 1, &l_nClones, &l_nDeaths);
  {
    quor::AttributeStruct l_c(wxT("R"));
    l_c.AddField(l_pcFirst);
    quor::AttributeInt* l_pcSecond = new quor::AttributeInt(wxT("A"), 2);
    l_c.AddField(l_pcSecond);
    EXPECT_EQ(l_nDeaths, 0);
    EXPECT_EQ(l_c.GetField(wxT("A")), l_pcSecond);
    EXPECT_EQ(l_c.GetAllFields()->size(), 1u);
    EXPECT_EQ(PackHex(l_c), "02 00 00 00");
    EXPECT_EQ(l_pcFirst->GetValue(), 1);  // still alive
  }
  EXPECT_EQ(l_nDeaths, 0);  // the record deleted only the second
  delete l_pcFirst;
  EXPECT_EQ(l_nDeaths, 1);
}

TEST(AttributeStruct, AddFieldOfNullIsIgnored) {
  quor::AttributeStruct l_c(wxT("R"));
  l_c.AddField(nullptr);
  EXPECT_TRUE(l_c.GetAllFields()->empty());
  EXPECT_EQ(l_c.GetPackungSize(), 0u);
}

TEST(AttributeStruct, DestructorDeletesItsFields) {
  int l_nClones = 0, l_nDeaths = 0;
  {
    quor::AttributeStruct l_c(wxT("R"));
    l_c.AddField(new CountedInt(wxT("A"), 1, &l_nClones, &l_nDeaths));
    l_c.AddField(new CountedInt(wxT("B"), 1, &l_nClones, &l_nDeaths));
    EXPECT_EQ(l_c.GetField(wxT("missing")), nullptr);  // a NULL entry is skipped
  }
  EXPECT_EQ(l_nDeaths, 2);
}

TEST(AttributeStruct, CloneIsDeepAndKeepsValueString) {
  auto l_pc = RecordAB(3, false);
  l_pc->SetValueString(wxT("rec"));
  std::unique_ptr<Attribute> l_pcCopy(l_pc->Clone());
  auto* l_pcRecord = dynamic_cast<quor::AttributeStruct*>(l_pcCopy.get());
  ASSERT_NE(l_pcRecord, nullptr);
  EXPECT_EQ(l_pcRecord->GetName(), wxT("R"));
  EXPECT_EQ(l_pcRecord->GetValueString(), wxT("rec"));
  EXPECT_NE(l_pcRecord->GetField(wxT("A")), l_pc->GetField(wxT("A")));
  EXPECT_EQ(PackHex(*l_pcRecord), "03 00 00 00 00");
  dynamic_cast<quor::AttributeInt*>(l_pc->GetField(wxT("A")))->SetValue(4);
  EXPECT_EQ(FieldInt(l_pcRecord, "A"), 3);
}

TEST(AttributeStruct, GetAllFieldsIsTheRecordsOwnMap) {
  quor::AttributeStruct l_c(wxT("R"));
  (*l_c.GetAllFields())[wxT("Z")] = new quor::AttributeUint(wxT("Z"), 1);
  EXPECT_EQ(PackHex(l_c), "01 00 00 00");
}

// ------------------------------------------------------------ list of records

TEST(AttributeVectorAttribute, PackedExampleOfTwoRecords) {
  auto l_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute l_c(wxT("L"), l_pcProto.get());
  l_c.AddElement(RecordAB(1, true).release());
  l_c.AddElement(RecordAB(1, true).release());
  EXPECT_EQ(l_c.GetPackungSize(), 14u);
  EXPECT_EQ(PackHex(l_c), "02 00 00 00 01 00 00 00 01 01 00 00 00 01");
  EXPECT_EQ(l_c.size(), 2u);
}

TEST(AttributeVectorAttribute, EmptyListPacksAZeroCount) {
  auto l_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute l_c(wxT("L"), l_pcProto.get());
  EXPECT_EQ(PackHex(l_c), "00 00 00 00");
}

TEST(AttributeVectorAttribute, UnpackingCountThreeIntoEmptyListClonesThePrototypeThreeTimes) {
  int l_nClones = 0, l_nDeaths = 0;
  CountedInt l_cProto(wxT("P"), 100, &l_nClones, &l_nDeaths);
  {
    quor::AttributeVectorAttribute l_c(wxT("L"), &l_cProto);
    Bytes l_a = Hex("03 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00");
    EXPECT_EQ(l_c.UnPackValue(l_a.data()), 16u);
    EXPECT_EQ(l_nClones, 3);
    ASSERT_EQ(l_c.size(), 3u);
    for (unsigned long long i = 0; i < 3; ++i) {
      auto* l_pcElement = dynamic_cast<quor::AttributeInt*>(l_c.GetElement(i));
      ASSERT_NE(l_pcElement, nullptr);
      EXPECT_NE(l_pcElement, &l_cProto);
      EXPECT_EQ(l_pcElement->GetValue(), static_cast<int>(i + 1));
    }
    EXPECT_EQ(l_cProto.GetValue(), 100);
  }
  EXPECT_EQ(l_nDeaths, 3);
}

TEST(AttributeVectorAttribute, UnpackReusesExistingElementsAndShrinks) {
  int l_nClones = 0, l_nDeaths = 0;
  CountedInt l_cProto(wxT("P"), 0, &l_nClones, &l_nDeaths);
  quor::AttributeVectorAttribute l_c(wxT("L"), &l_cProto);
  l_c.resize(3);
  Attribute* l_pcFirst = l_c.GetElement(0);
  Bytes l_a = Hex("01 00 00 00 09 00 00 00");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 8u);
  EXPECT_EQ(l_nClones, 3);
  EXPECT_EQ(l_nDeaths, 2);
  ASSERT_EQ(l_c.size(), 1u);
  EXPECT_EQ(l_c.GetElement(0), l_pcFirst);
  EXPECT_EQ(dynamic_cast<quor::AttributeInt*>(l_pcFirst)->GetValue(), 9);
}

TEST(AttributeVectorAttribute, ListOfRecordsRoundTrips) {
  auto l_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute l_c(wxT("L"), l_pcProto.get());
  l_c.AddElement(RecordAB(std::numeric_limits<int>::min(), true).release());
  l_c.AddElement(RecordAB(-1, false).release());
  Bytes l_a = Pack(l_c);
  quor::AttributeVectorAttribute l_cBack(wxT("L"), l_pcProto.get());
  EXPECT_EQ(l_cBack.UnPackValue(l_a.data()), 14u);
  EXPECT_EQ(Pack(l_cBack), l_a);
}

// Shrinking deletes the elements cut off (the list owns them); clear()
// deletes all and leaves the prototype alone.
TEST(AttributeVectorAttribute, ResizeToOneOfThreeKeepsOneAndDeletesTheOthers) {
  int l_nClones = 0, l_nDeaths = 0;
  CountedInt l_cProto(wxT("P"), 5, &l_nClones, &l_nDeaths);
  quor::AttributeVectorAttribute l_c(wxT("L"), &l_cProto);
  l_c.resize(3);
  EXPECT_EQ(l_nClones, 3);
  Attribute* l_pcFirst = l_c.GetElement(0);
  l_c.resize(1);
  EXPECT_EQ(l_c.size(), 1u);
  EXPECT_EQ(l_c.GetElement(0), l_pcFirst);
  EXPECT_EQ(l_nDeaths, 2);
  l_c.resize(1);  // same size: nothing happens
  EXPECT_EQ(l_nClones, 3);
  l_c.resize(2);
  EXPECT_EQ(l_nClones, 4);
  l_c.clear();
  EXPECT_EQ(l_c.size(), 0u);
  EXPECT_EQ(l_nDeaths, 4);
  EXPECT_EQ(l_cProto.GetValue(), 5);
}

TEST(AttributeVectorAttribute, ClearSkipsNullElements) {
  auto l_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute l_c(wxT("L"), l_pcProto.get());
  l_c.AddElement(nullptr);
  l_c.AddElement(RecordAB(1, true).release());
  l_c.clear();
  EXPECT_EQ(l_c.size(), 0u);
}

TEST(AttributeVectorAttribute, CloneSharesThePrototypeThatBelongsToNeither) {
  int l_nClones = 0, l_nDeaths = 0;
  CountedInt l_cProto(wxT("P"), 8, &l_nClones, &l_nDeaths);
  auto* l_pcList = new quor::AttributeVectorAttribute(wxT("L"), &l_cProto);
  l_pcList->resize(2);
  l_pcList->SetValueString(wxT("vs"));
  std::unique_ptr<Attribute> l_pcCopy(l_pcList->Clone());
  auto* l_pcCopyList = dynamic_cast<quor::AttributeVectorAttribute*>(l_pcCopy.get());
  ASSERT_NE(l_pcCopyList, nullptr);
  EXPECT_EQ(l_pcCopyList->GetProtoType(), &l_cProto);
  EXPECT_EQ(l_pcCopyList->GetValueString(), wxT("vs"));
  EXPECT_EQ(l_pcCopyList->size(), 2u);
  EXPECT_NE(l_pcCopyList->GetElement(0), l_pcList->GetElement(0));
  delete l_pcList;
  EXPECT_EQ(l_nDeaths, 2);  // the list's own elements, not the prototype
  l_pcCopyList->resize(3);  // the prototype is still alive for the clone
  EXPECT_EQ(dynamic_cast<quor::AttributeInt*>(l_pcCopyList->GetElement(2))->GetValue(), 8);
  l_pcCopy.reset();
  EXPECT_EQ(l_nDeaths, 5);
  EXPECT_EQ(l_cProto.GetValue(), 8);
}

TEST(AttributeVectorAttribute, GetElementPastTheEndIsNull) {
  auto l_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute l_c(wxT("L"), l_pcProto.get());
  EXPECT_EQ(l_c.GetElement(0), nullptr);
  l_c.resize(1);
  EXPECT_NE(l_c.GetElement(0), nullptr);
  EXPECT_EQ(l_c.GetElement(1), nullptr);
  EXPECT_EQ(l_c.GetElement(~0ull), nullptr);
  EXPECT_EQ(l_c.GetElements()->size(), 1u);
}

TEST(AttributeVectorAttribute, WithoutPrototypeTheListCannotGrow) {
  quor::AttributeVectorAttribute l_c(wxT("L"), nullptr);
  l_c.resize(2);
  EXPECT_EQ(l_c.size(), 0u);
  Bytes l_a = Hex("01 00 00 00 05 00 00 00");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), FAILURE);
  EXPECT_EQ(l_c.size(), 0u);
}

// A NULL element would make the packed size and the packed bytes disagree:
// such a list packs nothing and fails, as a record with a NULL field does.
TEST(AttributeVectorAttribute, ListWithNullElementPacksNothing) {
  auto l_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute l_c(wxT("L"), l_pcProto.get());
  l_c.AddElement(RecordAB(1, true).release());
  l_c.AddElement(nullptr);
  EXPECT_EQ(l_c.GetPackungSize(), FAILURE);
  Bytes l_a(8, 0xEE);
  EXPECT_EQ(l_c.PackValue(l_a.data()), FAILURE);
  EXPECT_EQ(ToHex(l_a), "ee ee ee ee ee ee ee ee");
  EXPECT_EQ(l_c.UnPackValue(Hex("00 00 00 00").data()), FAILURE);
  EXPECT_EQ(l_c.SendValue(nullptr), FAILURE);
  std::unique_ptr<Attribute> l_pcCopy(l_c.Clone());
  auto* l_pcCopyList = dynamic_cast<quor::AttributeVectorAttribute*>(l_pcCopy.get());
  ASSERT_EQ(l_pcCopyList->size(), 2u);
  EXPECT_EQ(l_pcCopyList->GetElement(1), nullptr);
}

// A record inside a record: a NULL field of the inner one fails the outer
// one too, and the walk stops there (no offset is moved by FAILURE).
TEST(AttributeStruct, FailingInnerRecordFailsTheOuterOne) {
  quor::AttributeStruct l_c(wxT("R"));
  auto l_pcInner = RecordAB(1, true);
  EXPECT_EQ(l_pcInner->GetField(wxT("C")), nullptr);
  l_c.AddField(l_pcInner.release());  // named "R", before "Z"
  l_c.AddField(new quor::AttributeInt(wxT("Z"), 9));
  EXPECT_EQ(l_c.GetPackungSize(), FAILURE);
  Bytes l_a(12, 0xEE);
  EXPECT_EQ(l_c.PackValue(l_a.data()), FAILURE);
  EXPECT_EQ(ToHex(l_a), "01 00 00 00 01 ee ee ee ee ee ee ee");
  EXPECT_EQ(l_c.UnPackValue(Hex("02 00 00 00 00 05 00 00 00").data()), FAILURE);
  EXPECT_EQ(dynamic_cast<quor::AttributeInt*>(l_c.GetField(wxT("Z")))->GetValue(), 9);
}

// An element that cannot be packed makes the whole list pack nothing and
// fail, so that the list never writes more than its size said and a record
// or set that holds the list sees the failure.
TEST(AttributeVectorAttribute, ListWithFailingElementPacksNothing) {
  auto l_pcProto = RecordAB(0, false);
  quor::AttributeVectorAttribute l_c(wxT("L"), l_pcProto.get());
  l_c.AddElement(RecordAB(1, true).release());
  l_c.AddElement(RecordAB(2, true).release());
  EXPECT_EQ(dynamic_cast<quor::AttributeStruct*>(l_c.GetElement(1))->GetField(wxT("C")), nullptr);
  EXPECT_EQ(l_c.GetPackungSize(), FAILURE);
  Bytes l_a(16, 0xEE);
  EXPECT_EQ(l_c.PackValue(l_a.data()), FAILURE);
  EXPECT_EQ(ToHex(l_a), ToHex(Bytes(16, 0xEE)));
  EXPECT_EQ(l_c.UnPackValue(Hex("02 00 00 00 03 00 00 00 00 04 00 00 00 01").data()), FAILURE);
  EXPECT_EQ(FieldInt(l_c.GetElement(0), "A"), 3);  // read up to the failing element

  quor::AttributeStruct l_cHolder(wxT("H"));
  auto* l_pcList = new quor::AttributeVectorAttribute(wxT("L"), l_pcProto.get());
  l_pcList->AddElement(RecordAB(1, true).release());
  dynamic_cast<quor::AttributeStruct*>(l_pcList->GetElement(0))->GetField(wxT("C"));
  l_cHolder.AddField(l_pcList);
  EXPECT_EQ(l_cHolder.GetPackungSize(), FAILURE);
  EXPECT_EQ(l_cHolder.PackValue(l_a.data()), FAILURE);
  EXPECT_EQ(ToHex(l_a), ToHex(Bytes(16, 0xEE)));
}

namespace {
// A list whose element vector is gone, as after destruction.
class ListWithoutElements : public quor::AttributeVectorAttribute {
 public:
  ListWithoutElements() : AttributeVectorAttribute(wxT("L"), nullptr) {
    delete m_pcElements;
    m_pcElements = nullptr;
  }
};

class RecordWithoutFields : public quor::AttributeStruct {
 public:
  RecordWithoutFields() : AttributeStruct(wxT("R")) {
    delete m_pcFields;
    m_pcFields = nullptr;
  }
};
}  // namespace

TEST(AttributeVectorAttribute, MissingElementVectorIsReportedWithEachAction) {
  ReportCapture l_cReports;
  LogCapture l_cLog;
  {
    ListWithoutElements l_c;
    Bytes l_a(8, 0);
    EXPECT_EQ(l_c.SendValue(nullptr), FAILURE);
    EXPECT_EQ(l_c.ReceiveValue(nullptr), FAILURE);
    EXPECT_EQ(l_c.GetPackungSize(), 0u);
    EXPECT_EQ(l_c.PackValue(l_a.data()), 0u);
    EXPECT_EQ(l_c.UnPackValue(l_a.data()), 0u);
    EXPECT_EQ(l_c.Clone(), nullptr);
    l_c.clear();
    EXPECT_EQ(l_c.size(), 0u);
    EXPECT_EQ(l_c.GetElement(0), nullptr);
  }
  for (const char* l_sAction : {"return FAILURE", "return 0", "return NULL", "return"}) {
    EXPECT_TRUE(HasReport(l_cReports.Reports(), "attributeVectorAttribute.cpp",
                          std::string("m_pcElements is NULL, we ") + l_sAction))
        << l_sAction;
  }
  EXPECT_TRUE(l_cLog.Records().empty());
}

TEST(AttributeStruct, MissingFieldMapIsReportedWithEachAction) {
  ReportCapture l_cReports;
  LogCapture l_cLog;
  {
    RecordWithoutFields l_c;
    Bytes l_a(8, 0);
    EXPECT_EQ(l_c.SendValue(nullptr), FAILURE);
    EXPECT_EQ(l_c.ReceiveValue(nullptr), FAILURE);
    EXPECT_EQ(l_c.GetPackungSize(), FAILURE);
    EXPECT_EQ(l_c.PackValue(l_a.data()), FAILURE);
    EXPECT_EQ(l_c.UnPackValue(l_a.data()), FAILURE);
    EXPECT_EQ(l_c.Clone(), nullptr);
    EXPECT_EQ(l_c.GetField(wxT("A")), nullptr);
  }
  for (const char* l_sAction : {"return FAILURE", "return NULL", "return"}) {
    EXPECT_TRUE(HasReport(l_cReports.Reports(), "attributeStruct.cpp",
                          std::string("m_pcFields is NULL, we ") + l_sAction))
        << l_sAction;
  }
  EXPECT_TRUE(l_cLog.Records().empty());
}

// ------------------------------------------------------------ arcs

namespace {
quor::Transitions OnePreArcFromPlaceTwo() {
  quor::Transitions l_c;
  l_c.m_anPrePlacePositions = {2};
  l_c.m_acPreConnections = {quor::PlaceTransitionConnection{quor::CONNECTION_NONE, 1.0}};
  return l_c;
}
}  // namespace

TEST(AttributeTransitionConnection, PackedExample) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 0);
  l_c.SetValue({OnePreArcFromPlaceTwo()});
  EXPECT_EQ(l_c.GetPackungSize(), 40u);
  EXPECT_EQ(PackHex(l_c),
            "01 00 00 00 "
            "01 00 00 00 02 00 00 00 00 00 00 00 "
            "00 00 00 00 "
            "01 00 00 00 00 00 00 00 00 00 00 00 00 00 f0 3f "
            "00 00 00 00");
}

TEST(AttributeTransitionConnection, UnpackOfTheExample) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 3);
  Bytes l_a = Hex(
      "01 00 00 00 01 00 00 00 02 00 00 00 00 00 00 00 00 00 00 00 "
      "01 00 00 00 00 00 00 00 00 00 00 00 00 00 f0 3f 00 00 00 00");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 40u);
  ASSERT_EQ(l_c.GetValue().size(), 1u);
  const quor::Transitions& l_cRecord = l_c.GetValue()[0];
  EXPECT_EQ(l_cRecord.m_anPrePlacePositions, (std::vector<unsigned long long>{2}));
  EXPECT_TRUE(l_cRecord.m_anPostPlacePositions.empty());
  ASSERT_EQ(l_cRecord.m_acPreConnections.size(), 1u);
  EXPECT_EQ(l_cRecord.m_acPreConnections[0].type, quor::CONNECTION_NONE);
  EXPECT_EQ(l_cRecord.m_acPreConnections[0].weight, 1.0);
  EXPECT_TRUE(l_cRecord.m_acPostConnections.empty());
}

TEST(AttributeTransitionConnection, ConstructorMakesEmptyRecords) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 2);
  EXPECT_EQ(l_c.GetValue().size(), 2u);
  EXPECT_EQ(l_c.GetPackungSize(), 36u);
  EXPECT_EQ(Pack(l_c), Cat({Hex("02 00 00 00"), Bytes(32, 0)}));
}

TEST(AttributeTransitionConnection, NoRecordsPacksToAZeroCountAndUnpackingItEmptiesTheList) {
  quor::AttributeTransitionConnection l_cEmpty(wxT("arcs"), 0);
  EXPECT_EQ(PackHex(l_cEmpty), "00 00 00 00");
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 5);
  Bytes l_a = Hex("00 00 00 00");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 4u);
  EXPECT_TRUE(l_c.GetValue().empty());
}

TEST(AttributeTransitionConnection, ParallelListsArePackedAsTheyAre) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 1);
  quor::Transitions& l_cRecord = l_c.GetValue()[0];
  l_cRecord.m_anPrePlacePositions = {0, 1};
  l_cRecord.m_acPreConnections = {{quor::CONNECTION_INHIBITOR_ARC, 2.0}};
  l_cRecord.m_acPostConnections = {{quor::CONNECTION_STANDARD_ARC, -0.5}};
  EXPECT_EQ(l_c.GetPackungSize(), 4u + 16u + 16u + 12u + 12u);
  EXPECT_EQ(PackHex(l_c),
            "01 00 00 00 "
            "02 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 "
            "00 00 00 00 "
            "01 00 00 00 03 00 00 00 00 00 00 00 00 00 00 40 "
            "01 00 00 00 02 00 00 00 00 00 00 00 00 00 e0 bf");
  quor::AttributeTransitionConnection l_cBack(wxT("arcs"), 0);
  Bytes l_a = Pack(l_c);
  EXPECT_EQ(l_cBack.UnPackValue(l_a.data()), 60u);
  EXPECT_EQ(Pack(l_cBack), l_a);
  EXPECT_EQ(l_cBack.GetValue()[0].m_anPrePlacePositions.size(), 2u);
  EXPECT_EQ(l_cBack.GetValue()[0].m_acPreConnections.size(), 1u);
}

TEST(AttributeTransitionConnection, UnpackReplacesEveryListByExactlyTheCountRead) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 0);
  quor::Transitions l_cFull;
  l_cFull.m_anPrePlacePositions = {1, 2, 3};
  l_cFull.m_anPostPlacePositions = {4};
  l_cFull.m_acPreConnections = {{quor::CONNECTION_READ_ARC, 1}};
  l_cFull.m_acPostConnections = {{quor::CONNECTION_READ_ARC, 1}};
  l_c.SetValue({l_cFull, l_cFull});
  Bytes l_a = Hex("01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 20u);
  ASSERT_EQ(l_c.GetValue().size(), 1u);
  EXPECT_TRUE(l_c.GetValue()[0].m_anPrePlacePositions.empty());
  EXPECT_TRUE(l_c.GetValue()[0].m_anPostPlacePositions.empty());
  EXPECT_TRUE(l_c.GetValue()[0].m_acPreConnections.empty());
  EXPECT_TRUE(l_c.GetValue()[0].m_acPostConnections.empty());
}

TEST(AttributeTransitionConnection, OneListHelpers) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 0);
  Bytes l_a(64, 0xEE);
  EXPECT_EQ(l_c.PackVector(l_a.data(), {std::numeric_limits<unsigned long long>::max()}), 12u);
  EXPECT_EQ(ToHex(Bytes(l_a.begin(), l_a.begin() + 13)),
            "01 00 00 00 ff ff ff ff ff ff ff ff ee");
  std::vector<unsigned long long> l_an{5, 6};
  EXPECT_EQ(l_c.UnPackVector(l_a.data(), l_an), 12u);
  EXPECT_EQ(l_an, (std::vector<unsigned long long>{std::numeric_limits<unsigned long long>::max()}));

  EXPECT_EQ(l_c.PackVectorConnection(l_a.data(), {{quor::CONNECTION_MODIFIER_ARC, 0.25},
                                                   {quor::CONNECTION_RESET_ARC, 3}}),
            28u);
  EXPECT_EQ(ToHex(Bytes(l_a.begin(), l_a.begin() + 29)),
            "02 00 00 00 06 00 00 00 00 00 00 00 00 00 d0 3f "
            "04 00 00 00 00 00 00 00 00 00 08 40 ee");
  std::vector<quor::PlaceTransitionConnection> l_ac;
  EXPECT_EQ(l_c.UnPackVectorConnection(l_a.data(), l_ac), 28u);
  ASSERT_EQ(l_ac.size(), 2u);
  EXPECT_EQ(l_ac[0].type, quor::CONNECTION_MODIFIER_ARC);
  EXPECT_EQ(l_ac[0].weight, 0.25);
  EXPECT_EQ(l_ac[1].type, quor::CONNECTION_RESET_ARC);
  EXPECT_EQ(l_ac[1].weight, 3.0);

  Bytes l_aZero = Hex("00 00 00 00");
  EXPECT_EQ(l_c.UnPackVector(l_aZero.data(), l_an), 4u);
  EXPECT_TRUE(l_an.empty());
  EXPECT_EQ(l_c.UnPackVectorConnection(l_aZero.data(), l_ac), 4u);
  EXPECT_TRUE(l_ac.empty());
}

TEST(AttributeTransitionConnection, TypeCodesOutsideTheKnownOnesAreKept) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 0);
  std::vector<quor::PlaceTransitionConnection> l_ac;
  Bytes l_a = Hex("01 00 00 00 ff ff ff ff 00 00 00 00 00 00 f0 7f");
  EXPECT_EQ(l_c.UnPackVectorConnection(l_a.data(), l_ac), 16u);
  ASSERT_EQ(l_ac.size(), 1u);
  EXPECT_EQ(static_cast<int>(l_ac[0].type), -1);
  EXPECT_EQ(l_ac[0].weight, std::numeric_limits<double>::infinity());
}

TEST(AttributeTransitionConnection, CloneCopiesTheArcsButNotTheValueString) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 0);
  l_c.SetValue({OnePreArcFromPlaceTwo(), quor::Transitions()});
  l_c.SetValueString(wxT("vs"));
  std::unique_ptr<Attribute> l_pcCopy(l_c.Clone());
  auto* l_pcArcs = dynamic_cast<quor::AttributeTransitionConnection*>(l_pcCopy.get());
  ASSERT_NE(l_pcArcs, nullptr);
  EXPECT_EQ(l_pcArcs->GetName(), wxT("arcs"));
  EXPECT_EQ(l_pcArcs->GetValueString(), wxT(""));
  EXPECT_EQ(Pack(*l_pcArcs), Pack(l_c));
  EXPECT_NE(&l_pcArcs->GetValue(), &l_c.GetValue());
  l_c.SetValue(l_c.GetValue());  // its own list: nothing happens
  EXPECT_EQ(l_c.GetValue().size(), 2u);
}

TEST(AttributeTransitionConnection, GetValueIsTheLiveList) {
  quor::AttributeTransitionConnection l_c(wxT("arcs"), 1);
  l_c.GetValue()[0].m_anPostPlacePositions.push_back(9);
  EXPECT_EQ(l_c.GetPackungSize(), 28u);
}

// ------------------------------------------------------------ pairs

TEST(AttributeVectorULong2ULong, PacksCountAndPairs) {
  quor::AttributeVectorULong2ULong l_c(wxT("ranges"));
  l_c.AddElement(1, 2);
  l_c.AddElement(std::numeric_limits<unsigned long long>::max(), 0);
  EXPECT_EQ(l_c.GetPackungSize(), 36u);
  EXPECT_EQ(PackHex(l_c),
            "02 00 00 00 01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 "
            "ff ff ff ff ff ff ff ff 00 00 00 00 00 00 00 00");
  quor::AttributeVectorULong2ULong l_cBack(wxT("ranges"));
  Bytes l_a = Pack(l_c);
  EXPECT_EQ(l_cBack.UnPackValue(l_a.data()), 36u);
  EXPECT_EQ(Pack(l_cBack), l_a);
}

TEST(AttributeVectorULong2ULong, UnpackingCountZeroKeepsThePairs) {
  quor::AttributeVectorULong2ULong l_c(wxT("ranges"));
  l_c.AddElement(3, 4);
  Bytes l_a = Hex("00 00 00 00");
  EXPECT_EQ(l_c.UnPackValue(l_a.data()), 4u);
  ASSERT_EQ(l_c.GetValue().size(), 1u);
  EXPECT_EQ(l_c.GetValue()[0].first, 3u);
  EXPECT_EQ(l_c.GetValue()[0].second, 4u);
}

TEST(AttributeVectorULong2ULong, AssignGivesZeroPairs) {
  quor::AttributeVectorULong2ULong l_c(wxT("ranges"));
  l_c.AddElement(7, 7);
  l_c.assign(2);
  ASSERT_EQ(l_c.GetValue().size(), 2u);
  EXPECT_EQ(Pack(l_c), Cat({Hex("02 00 00 00"), Bytes(32, 0)}));
}

TEST(AttributeVectorULong2ULong, ElementAccessInRange) {
  quor::AttributeVectorULong2ULong l_c(wxT("ranges"));
  l_c.assign(2);
  l_c.SetElementValue(1, 10, 20);
  unsigned long long l_nFirst = 0, l_nSecond = 0;
  l_c.GetElementValue(1, l_nFirst, l_nSecond);
  EXPECT_EQ(l_nFirst, 10u);
  EXPECT_EQ(l_nSecond, 20u);
  l_c.GetElementValue(0, l_nFirst, l_nSecond);
  EXPECT_EQ(l_nFirst, 0u);
  EXPECT_EQ(l_nSecond, 0u);
}

// An index past the end touches nothing: the set is ignored, the outputs of
// the get are left as they were.
TEST(AttributeVectorULong2ULong, ElementAccessOutOfRangeIsIgnored) {
  quor::AttributeVectorULong2ULong l_c(wxT("ranges"));
  l_c.AddElement(1, 2);
  l_c.SetElementValue(1, 10, 20);
  l_c.SetElementValue(~0ull, 10, 20);
  ASSERT_EQ(l_c.GetValue().size(), 1u);
  EXPECT_EQ(PackHex(l_c), "01 00 00 00 01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00");
  unsigned long long l_nFirst = 77, l_nSecond = 88;
  l_c.GetElementValue(1, l_nFirst, l_nSecond);
  l_c.GetElementValue(~0ull, l_nFirst, l_nSecond);
  EXPECT_EQ(l_nFirst, 77u);
  EXPECT_EQ(l_nSecond, 88u);
  quor::AttributeVectorULong2ULong l_cEmpty(wxT("none"));
  l_cEmpty.SetElementValue(0, 1, 1);
  l_cEmpty.GetElementValue(0, l_nFirst, l_nSecond);
  EXPECT_TRUE(l_cEmpty.GetValue().empty());
  EXPECT_EQ(l_nFirst, 77u);
}

TEST(AttributeVectorULong2ULong, CloneAndSetValue) {
  quor::AttributeVectorULong2ULong l_c(wxT("ranges"));
  l_c.SetValue({quor::ULong2ULong{5, 6}});
  l_c.SetValue(l_c.GetValue());  // its own list: nothing happens
  l_c.SetValueString(wxT("vs"));
  std::unique_ptr<Attribute> l_pcCopy(l_c.Clone());
  auto* l_pcPairs = dynamic_cast<quor::AttributeVectorULong2ULong*>(l_pcCopy.get());
  ASSERT_NE(l_pcPairs, nullptr);
  EXPECT_EQ(l_pcPairs->GetName(), wxT("ranges"));
  EXPECT_EQ(l_pcPairs->GetValueString(), wxT("vs"));
  EXPECT_EQ(Pack(*l_pcPairs), Pack(l_c));
  EXPECT_EQ(l_pcPairs->GetAttributeType(), 13u);
}
