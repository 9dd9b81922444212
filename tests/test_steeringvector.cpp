// SPDX-License-Identifier: MIT
// The attribute set of SteeringVector: ownership, lookups that insert, and
// the typed accessors with their fallbacks and reports.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

#include "log_capture.h"
#include "quor/attributeVector.h"
#include "quor/steeringvector.h"
#include "raw_peer.h"

using namespace quor_test;
using quor::Attribute;
using quor::SteeringVector;

namespace {

// A plain attribute that records its deletion.
class Probe : public Attribute {
 public:
  Probe(const wxString& p_sName, bool* p_pbDeleted)
      : Attribute(p_sName, wxT("")), m_pbDeleted(p_pbDeleted) {}
  ~Probe() override { *m_pbDeleted = true; }

 private:
  bool* m_pbDeleted;
};

// True for the report that the accessors drop for a name without an
// attribute of their class: "pointer error in <this source>(<line>):
// l_pcAttribute is NULL, we <action>".
bool IsMissingReport(const std::string& p_sReport, const std::string& p_sAction) {
  const std::string l_sHead = "pointer error in ../source/SteeringAPI/steeringvector.cpp(";
  const std::string l_sTail = "): l_pcAttribute is NULL, we " + p_sAction;
  if (p_sReport.size() <= l_sHead.size() + l_sTail.size() ||
      p_sReport.compare(0, l_sHead.size(), l_sHead) != 0 ||
      p_sReport.compare(p_sReport.size() - l_sTail.size(), l_sTail.size(), l_sTail) != 0)
    return false;
  const std::string l_sLine =
      p_sReport.substr(l_sHead.size(), p_sReport.size() - l_sHead.size() - l_sTail.size());
  return l_sLine.find_first_not_of("0123456789") == std::string::npos;
}

void ExpectLastReport(const ReportCapture& p_cReports, const std::string& p_sAction) {
  const std::vector<std::string> l_asReports = p_cReports.Reports();
  ASSERT_FALSE(l_asReports.empty());
  EXPECT_TRUE(IsMissingReport(l_asReports.back(), p_sAction)) << l_asReports.back();
}

bool HoldsNullEntry(SteeringVector& p_cSet, const wxString& p_sName) {
  quor::AttributeList* l_pcList = p_cSet.GetAttributeList();
  auto l_it = l_pcList->find(p_sName);
  return l_it != l_pcList->end() && l_it->second == nullptr;
}

// A set that holds one attribute of each class the accessors serve.
class Accessors : public ::testing::Test {
 protected:
  Accessors() {
    m_cSet.AddAttribute(wxT("UINT"), new quor::AttributeUint(wxT("UINT"), 1));
    m_cSet.AddAttribute(wxT("INT"), new quor::AttributeInt(wxT("INT"), -1));
    m_cSet.AddAttribute(wxT("DOUBLE"), new quor::AttributeDouble(wxT("DOUBLE"), 0.5));
    m_cSet.AddAttribute(wxT("LONG"), new quor::AttributeLong(wxT("LONG"), -2));
    m_cSet.AddAttribute(wxT("ULONG"), new quor::AttributeUlong(wxT("ULONG"), 2));
    m_cSet.AddAttribute(wxT("BOOL"), new quor::AttributeBool(wxT("BOOL"), false));
    m_cSet.AddAttribute(wxT("TEXT"), new Attribute(wxT("TEXT"), wxT("t")));
    m_cSet.AddAttribute(wxT("LIST"), new quor::AttributeVectorString(wxT("LIST")));
  }

  LogCapture m_cLog;
  SteeringVector m_cSet{nullptr};
};

}  // namespace

// ---------------------------------------------------------------- the set

TEST(AttributeSet, StartsEmpty) {
  SteeringVector l_cSet(nullptr);
  ASSERT_NE(l_cSet.GetAttributeList(), nullptr);
  EXPECT_TRUE(l_cSet.GetAttributeList()->empty());
}

TEST(AttributeSet, StoresUnderTheGivenKeyNotTheAttributesName) {
  SteeringVector l_cSet(nullptr);
  Attribute* l_pcAttribute = new Attribute(wxT("own name"), wxT("v"));
  l_cSet.AddAttribute(wxT("KEY"), l_pcAttribute);
  EXPECT_EQ(l_cSet.GetAttribute(wxT("KEY")), l_pcAttribute);
  EXPECT_EQ(l_cSet.GetAttributeList()->size(), 1u);
}

TEST(AttributeSet, MissingNameGivesNullAndLeavesANullEntry) {
  ReportCapture l_cReports;
  LogCapture l_cLog;
  SteeringVector l_cSet(nullptr);
  EXPECT_EQ(l_cSet.GetAttribute(wxT("nothing")), nullptr);
  EXPECT_TRUE(HoldsNullEntry(l_cSet, wxT("nothing")));
  ExpectLastReport(l_cReports, "return NULL");
  EXPECT_TRUE(l_cLog.Texts().empty());
}

TEST(AttributeSet, AddingTwiceUnderOneKeyKeepsAndDeletesOnlyTheSecond) {
  bool l_bFirstDeleted = false, l_bSecondDeleted = false;
  Probe* l_pcFirst = new Probe(wxT("K"), &l_bFirstDeleted);
  Probe* l_pcSecond = new Probe(wxT("K"), &l_bSecondDeleted);
  {
    SteeringVector l_cSet(nullptr);
    l_cSet.AddAttribute(wxT("K"), l_pcFirst);
    l_cSet.AddAttribute(wxT("K"), l_pcSecond);
    EXPECT_EQ(l_cSet.GetAttribute(wxT("K")), l_pcSecond);
    EXPECT_EQ(l_cSet.GetAttributeList()->size(), 1u);
  }
  EXPECT_TRUE(l_bSecondDeleted);
  EXPECT_FALSE(l_bFirstDeleted);
  delete l_pcFirst;
}

TEST(AttributeSet, DestructionDeletesEveryAttributeAndSkipsNullEntries) {
  bool l_abDeleted[3] = {false, false, false};
  {
    SteeringVector l_cSet(nullptr);
    l_cSet.AddAttribute(wxT("a"), new Probe(wxT("a"), &l_abDeleted[0]));
    l_cSet.AddAttribute(wxT("b"), new Probe(wxT("b"), &l_abDeleted[1]));
    l_cSet.AddAttribute(wxT("c"), new Probe(wxT("c"), &l_abDeleted[2]));
    l_cSet.GetAttribute(wxT("missing"));
    l_cSet.AddAttribute(wxT("null"), nullptr);
  }
  EXPECT_TRUE(l_abDeleted[0] && l_abDeleted[1] && l_abDeleted[2]);
}

TEST(AttributeSet, KeysAreOrderedByCharacterCode) {
  SteeringVector l_cSet(nullptr);
  for (const wxChar* l_sKey : {wxT("a"), wxT("B"), wxT("A")})
    l_cSet.AddAttribute(l_sKey, new Attribute(l_sKey, wxT("")));
  std::vector<wxString> l_asKeys;
  for (const auto& l_cEntry : *l_cSet.GetAttributeList()) l_asKeys.push_back(l_cEntry.first);
  EXPECT_EQ(l_asKeys, (std::vector<wxString>{wxT("A"), wxT("B"), wxT("a")}));
}

// A subclass that answers lookups itself, as a view does.
class Redirecting : public SteeringVector {
 public:
  Redirecting() : SteeringVector(nullptr), m_cTarget(wxT("target"), 41) {}
  Attribute* GetAttribute(const wxString&) override { return &m_cTarget; }
  quor::AttributeInt m_cTarget;
};

TEST(AttributeSet, AccessorsLookUpThroughTheVirtualGetAttribute) {
  Redirecting l_cSet;
  EXPECT_EQ(l_cSet.GetAttributeValueInt(wxT("any")), 41);
  EXPECT_TRUE(l_cSet.SetAttributeValue(wxT("other"), 42));
  EXPECT_EQ(l_cSet.m_cTarget.GetValue(), 42);
  EXPECT_TRUE(l_cSet.GetAttributeList()->empty());
}

// ---------------------------------------------------------------- accessors

TEST_F(Accessors, EachTypedPairWritesAndReadsItsClass) {
  EXPECT_TRUE(m_cSet.SetAttributeValue(wxT("UINT"), 0xFFFFFFFFu));
  EXPECT_EQ(m_cSet.GetAttributeValueUInt(wxT("UINT")), 0xFFFFFFFFu);
  EXPECT_TRUE(m_cSet.SetAttributeValue(wxT("INT"), -7));
  EXPECT_EQ(m_cSet.GetAttributeValueInt(wxT("INT")), -7);
  EXPECT_TRUE(m_cSet.SetAttributeValue(wxT("DOUBLE"), 2.25));
  EXPECT_EQ(m_cSet.GetAttributeValueDouble(wxT("DOUBLE")), 2.25);
  EXPECT_TRUE(m_cSet.SetAttributeValue(wxT("LONG"), static_cast<long long>(INT64_MIN)));
  EXPECT_EQ(m_cSet.GetAttributeValueLong(wxT("LONG")), INT64_MIN);
  EXPECT_TRUE(m_cSet.SetAttributeValue(wxT("ULONG"), static_cast<unsigned long long>(UINT64_MAX)));
  EXPECT_EQ(m_cSet.GetAttributeValueULong(wxT("ULONG")), UINT64_MAX);
  EXPECT_TRUE(m_cSet.SetAttributeValue(wxT("BOOL"), true));
  EXPECT_TRUE(m_cSet.GetAttributeValueBool(wxT("BOOL")));
  EXPECT_TRUE(m_cSet.SetAttributeValue(wxT("TEXT"), wxString(wxT("new"))));
  EXPECT_EQ(m_cSet.GetAttributeValueString(wxT("TEXT")), wxT("new"));
  EXPECT_EQ(static_cast<quor::AttributeDouble*>(m_cSet.GetAttribute(wxT("DOUBLE")))->GetValue(), 2.25);
  EXPECT_TRUE(m_cLog.Texts().empty());
}

// Each accessor on a name that is not in the set: its fallback, its report
// action, a NULL entry left behind, nothing logged.
TEST_F(Accessors, MissingNamesGiveTheFallbacksAndTheirReports) {
  ReportCapture l_cReports;
  struct Case {
    const wxChar* name;
    std::function<bool(SteeringVector&, const wxString&)> call;  // true: the fallback
    std::string action;
  };
  const std::vector<Case> l_acCases{
      {wxT("m1"), [](SteeringVector& s, const wxString& n) { return !s.SetAttributeValue(n, 5u); }, "return false"},
      {wxT("m2"), [](SteeringVector& s, const wxString& n) { return s.GetAttributeValueUInt(n) == 0u; }, "return 0"},
      {wxT("m3"), [](SteeringVector& s, const wxString& n) { return !s.SetAttributeValue(n, 5); }, "return false"},
      {wxT("m4"), [](SteeringVector& s, const wxString& n) { return s.GetAttributeValueInt(n) == 0; }, "return 0"},
      {wxT("m5"), [](SteeringVector& s, const wxString& n) { return !s.SetAttributeValue(n, true); }, "return false"},
      {wxT("m6"), [](SteeringVector& s, const wxString& n) { return !s.GetAttributeValueBool(n); }, "return 0"},
      {wxT("m7"), [](SteeringVector& s, const wxString& n) { return !s.SetAttributeValue(n, 1.5); }, "return false"},
      {wxT("m8"), [](SteeringVector& s, const wxString& n) { return s.GetAttributeValueDouble(n) == 0.0; }, "return false"},
      {wxT("m9"), [](SteeringVector& s, const wxString& n) { return !s.SetAttributeValue(n, wxString(wxT("x"))); }, "return false"},
      {wxT("m10"), [](SteeringVector& s, const wxString& n) { return s.GetAttributeValueString(n).empty(); }, "return wxString(wxT(\"\"))"},
      {wxT("m11"), [](SteeringVector& s, const wxString& n) { return !s.SetAttributeValue(n, -5LL); }, "return false"},
      {wxT("m12"), [](SteeringVector& s, const wxString& n) { return s.GetAttributeValueLong(n) == 0; }, "return 0"},
      {wxT("m13"), [](SteeringVector& s, const wxString& n) { return !s.SetAttributeValue(n, 5ULL); }, "return false"},
      {wxT("m14"), [](SteeringVector& s, const wxString& n) { return s.GetAttributeValueULong(n) == 0u; }, "return false"},
      {wxT("m15"), [](SteeringVector& s, const wxString& n) { return !s.SetAttributeValue(n, std::vector<wxString>{wxT("x")}); }, "return false"},
  };
  for (const Case& l_cCase : l_acCases) {
    SCOPED_TRACE(std::string(wxString(l_cCase.name).mb_str()));
    l_cReports.Clear();
    EXPECT_TRUE(l_cCase.call(m_cSet, l_cCase.name));
    EXPECT_TRUE(HoldsNullEntry(m_cSet, l_cCase.name));
    ExpectLastReport(l_cReports, l_cCase.action);
  }
  EXPECT_EQ(m_cSet.GetAttributeList()->size(), 8u + l_acCases.size());
  EXPECT_TRUE(m_cLog.Texts().empty());
}

TEST_F(Accessors, GetIntOfAMissingNameIsZeroAndLeavesAnEntryWithoutAttribute) {
  EXPECT_EQ(m_cSet.GetAttributeValueInt(wxT("absent")), 0);
  EXPECT_TRUE(HoldsNullEntry(m_cSet, wxT("absent")));
}

TEST_F(Accessors, SetUintOfAMissingNameChangesNothingButTheNullEntry) {
  EXPECT_FALSE(m_cSet.SetAttributeValue(wxT("absent"), 3u));
  EXPECT_EQ(m_cSet.GetAttributeList()->size(), 9u);
  EXPECT_TRUE(HoldsNullEntry(m_cSet, wxT("absent")));
  EXPECT_EQ(m_cSet.GetAttributeValueUInt(wxT("UINT")), 1u);
}

TEST_F(Accessors, StringPairWorksOnTheValueStringOfAnyClass) {
  EXPECT_EQ(m_cSet.GetAttributeValueString(wxT("INT")), wxT(""));
  EXPECT_TRUE(m_cSet.SetAttributeValue(wxT("INT"), wxString(wxT("x"))));
  EXPECT_EQ(m_cSet.GetAttributeValueString(wxT("INT")), wxT("x"));
  EXPECT_EQ(m_cSet.GetAttributeValueInt(wxT("INT")), -1);
  // What the number packs is unchanged.
  char l_acPacked[4];
  Attribute* l_pcInt = m_cSet.GetAttribute(wxT("INT"));
  ASSERT_EQ(l_pcInt->GetPackungSize(), 4u);
  EXPECT_EQ(l_pcInt->PackValue(l_acPacked), 4u);
  EXPECT_EQ(Bytes(l_acPacked, l_acPacked + 4), Hex("ff ff ff ff"));
}

TEST_F(Accessors, AttributeOfAnotherClassIsLeftAloneAndGivesTheFallback) {
  ReportCapture l_cReports;
  EXPECT_FALSE(m_cSet.SetAttributeValue(wxT("DOUBLE"), 3));         // an int on a double
  ExpectLastReport(l_cReports, "return false");
  EXPECT_EQ(m_cSet.GetAttributeValueDouble(wxT("DOUBLE")), 0.5);
  EXPECT_FALSE(m_cSet.SetAttributeValue(wxT("INT"), 3u));           // unsigned on signed
  EXPECT_EQ(m_cSet.GetAttributeValueInt(wxT("INT")), -1);
  EXPECT_EQ(m_cSet.GetAttributeValueLong(wxT("ULONG")), 0);
  ExpectLastReport(l_cReports, "return 0");
  EXPECT_FALSE(m_cSet.SetAttributeValue(wxT("TEXT"), std::vector<wxString>{wxT("x")}));
  EXPECT_EQ(m_cSet.GetAttributeValueString(wxT("TEXT")), wxT("t"));
  EXPECT_FALSE(m_cSet.GetAttributeValueBool(wxT("INT")));
  EXPECT_EQ(m_cSet.GetAttributeList()->size(), 8u);
}

// ---------------------------------------------------------------- string lists

TEST_F(Accessors, StringListIsSetAndReadAsTheLiveList) {
  const std::vector<wxString> l_asValue{wxT("p1"), wxT(""), wxT("p3")};
  EXPECT_TRUE(m_cSet.SetAttributeValue(wxT("LIST"), l_asValue));
  std::vector<wxString>& l_asLive = m_cSet.GetAttributeValueVectorString(wxT("LIST"));
  EXPECT_EQ(l_asLive, l_asValue);
  l_asLive.push_back(wxT("p4"));
  auto* l_pcList = static_cast<quor::AttributeVectorString*>(m_cSet.GetAttribute(wxT("LIST")));
  EXPECT_EQ(&l_pcList->GetValue(), &l_asLive);
  EXPECT_EQ(l_pcList->GetValue().size(), 4u);
}

TEST_F(Accessors, StringListOfAMissingNameIsAnEmptyScratchList) {
  std::vector<wxString>& l_asNone = m_cSet.GetAttributeValueVectorString(wxT("absent"));
  EXPECT_TRUE(l_asNone.empty());
  EXPECT_TRUE(HoldsNullEntry(m_cSet, wxT("absent")));
  l_asNone.push_back(wxT("written by a careless caller"));
  // Every such call starts empty again, and so does one on another class.
  EXPECT_TRUE(m_cSet.GetAttributeValueVectorString(wxT("absent")).empty());
  EXPECT_TRUE(m_cSet.GetAttributeValueVectorString(wxT("INT")).empty());
  EXPECT_EQ(m_cSet.GetAttributeValueInt(wxT("INT")), -1);
}
