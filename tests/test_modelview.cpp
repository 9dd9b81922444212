// SPDX-License-Identifier: MIT
// ModelView: its settings and defaults, the curve records, deep copies and
// the view message as the raw peer sees it.
#include <gtest/gtest.h>
#include <zlib.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "log_capture.h"
#include "quor/modelView.h"
#include "raw_peer.h"

using namespace quor;
using namespace quor_test;

namespace {

// The packed value of one attribute.
Bytes Packed(Attribute* p_pcAttribute) {
  Bytes l_a(p_pcAttribute->GetPackungSize());
  l_a.resize(p_pcAttribute->PackValue(l_a.data()));
  return l_a;
}

// The packed values of a whole view, in key order: the body of its message.
Bytes PackedView(ModelView& p_cView) {
  Bytes l_a;
  for (auto& l_cEntry : *p_cView.GetAttributeList()) {
    Bytes l_aPart = Packed(l_cEntry.second);
    l_a.insert(l_a.end(), l_aPart.begin(), l_aPart.end());
  }
  return l_a;
}

// A packed text: 32-bit count and bytes.
Bytes Str(const std::string& p_s) {
  return Cat({Le<uint32_t>(static_cast<uint32_t>(p_s.size())), Text(p_s)});
}

// A packed curve record, fields in the key order of their names.
Bytes Curve(const std::string& p_sColour, const std::string& p_sName, uint32_t p_nType,
            uint64_t p_nIndex, int32_t p_nStyle, int32_t p_nWidth, bool p_bShow) {
  return Cat({Str(p_sColour), Str(p_sName), Le(p_nType), Le(p_nIndex), Le(p_nStyle),
              Le(p_nWidth), Bytes{static_cast<uint8_t>(p_bShow)}});
}

bool HasReport(const ReportCapture& p_cReports, const std::string& p_sText) {
  for (const std::string& l_s : p_cReports.Reports())
    if (l_s.find(p_sText) != std::string::npos) return true;
  return false;
}

AttributeStruct* CurveAt(ModelView& p_cView, unsigned long long p_nIndex) {
  return dynamic_cast<AttributeStruct*>(p_cView.GetCurves()->GetElement(p_nIndex));
}

// The settings of a view other than its curves, packed.
std::vector<std::pair<std::string, Bytes> > Settings(ModelView& p_cView) {
  std::vector<std::pair<std::string, Bytes> > l_a;
  for (auto& l_cEntry : *p_cView.GetAttributeList())
    if (l_cEntry.first != wxT("CURVE_INFO"))
      l_a.emplace_back(std::string(l_cEntry.first.mb_str()), Packed(l_cEntry.second));
  return l_a;
}

wxString g_sCurveA = wxT("A");
wxString g_sCurveB = wxT("B");

// A view with distinct settings and two curves.
void FillView(ModelView& p_cView) {
  p_cView.SetTitle(wxT("T"));
  p_cView.SetAttributeValue(wxT("X_AXIS_LABEL"), wxString(wxT("time")));
  p_cView.SetAttributeValue(wxT("Y_AXIS_LABEL"), wxString(wxT("tokens")));
  p_cView.SetAttributeValue(wxT("X_AXIS_VAR_NAME"), wxString(wxT("t")));
  p_cView.SetAttributeValue(wxT("X_AXIS_VAR_TYPE"), 4);
  p_cView.SetAttributeValue(wxT("VIEWER_TYPE"), 7u);
  p_cView.SetAttributeValue(wxT("VIEW_MATRIX_TYPE"), 9u);
  p_cView.SetAttributeValue(wxT("MAX_X_VALUE"), 50.0);
  p_cView.SetAttributeValue(wxT("FIXED_Y_ADJUSTMENT"), true);
  p_cView.AddNewCurve(5, g_sCurveA, 3, 7, RM_ROW_TYPE_OBSERVER, wxT("red"), true);
  p_cView.AddNewCurve(6, g_sCurveB, 1, 0, RM_ROW_TYPE_TRANSITION, wxT("blue"), false);
}

// The body of FillView's view named "V", written out key by key.
Bytes FilledViewBody() {
  return Cat({
      Le<uint32_t>(2),                                           // CURVE_INFO
      Curve("red", "A", 3, 5, 7, 3, true),
      Curve("blue", "B", 1, 6, 0, 1, false),
      Le<int32_t>(100),                                          // DEFAULT_LINE_STYLE
      Le<int32_t>(2),                                            // DEFAULT_LINE_WIDTH
      Hex("00"),                                                 // FIXED_X_ADJUSTMENT
      Hex("01"),                                                 // FIXED_Y_ADJUSTMENT
      Le<int32_t>(32),                                           // LEGEND_HORIZONTAL_POSITION
      Le<int32_t>(1),                                            // LEGEND_VERTICAl_POSITION
      Le(50.0),                                                  // MAX_X_VALUE
      Le(1.0),                                                   // MAX_Y_VALUE
      Le(0.0),                                                   // MIN_X_VALUE
      Le(0.0),                                                   // MIN_Y_VALUE
      Hex("01"),                                                 // SHOW_LEGEND
      Le<int32_t>(1),                                            // SORT_CURVE_BY
      Le<uint32_t>(7),                                           // VIEWER_TYPE
      Le<uint32_t>(9),                                           // VIEW_MATRIX_TYPE
      Str("V"),                                                  // VIEW_NAME
      Str("T"),                                                  // VIEW_TITLE
      Str("time"),                                               // X_AXIS_LABEL
      Str("t"),                                                  // X_AXIS_VAR_NAME
      Le<int32_t>(4),                                            // X_AXIS_VAR_TYPE
      Str("tokens"),                                             // Y_AXIS_LABEL
  });
}

// The bytes a zlib stream decodes to, when it decodes cleanly to exactly
// p_nSize bytes; empty otherwise.
Bytes Inflate(const Bytes& p_aStream, size_t p_nSize) {
  Bytes l_aValue(p_nSize + 1);
  uLongf l_nLength = static_cast<uLongf>(l_aValue.size());
  uLong l_nConsumed = static_cast<uLong>(p_aStream.size());
  if (uncompress2(l_aValue.data(), &l_nLength, p_aStream.data(), &l_nConsumed) != Z_OK ||
      l_nLength != p_nSize || l_nConsumed != p_aStream.size())
    return {};
  l_aValue.resize(l_nLength);
  return l_aValue;
}

}  // namespace

TEST(ModelView, NewViewHoldsTheTwentyOneSettingsWithTheirDefaults) {
  ModelView l_cView(wxT("plot"), NULL);
  const std::vector<std::pair<std::string, std::pair<unsigned int, Bytes> > > l_aExpected = {
      {"CURVE_INFO", {ATTRIBUTE_VECTOR_ATTRIBUTE, Le<uint32_t>(0)}},
      {"DEFAULT_LINE_STYLE", {ATTRIBUTE_INT, Le<int32_t>(100)}},
      {"DEFAULT_LINE_WIDTH", {ATTRIBUTE_INT, Le<int32_t>(2)}},
      {"FIXED_X_ADJUSTMENT", {ATTRIBUTE_BOOL, Hex("00")}},
      {"FIXED_Y_ADJUSTMENT", {ATTRIBUTE_BOOL, Hex("00")}},
      {"LEGEND_HORIZONTAL_POSITION", {ATTRIBUTE_INT, Le<int32_t>(32)}},
      {"LEGEND_VERTICAl_POSITION", {ATTRIBUTE_INT, Le<int32_t>(1)}},
      {"MAX_X_VALUE", {ATTRIBUTE_DOUBLE, Le(1.0)}},
      {"MAX_Y_VALUE", {ATTRIBUTE_DOUBLE, Le(1.0)}},
      {"MIN_X_VALUE", {ATTRIBUTE_DOUBLE, Le(0.0)}},
      {"MIN_Y_VALUE", {ATTRIBUTE_DOUBLE, Le(0.0)}},
      {"SHOW_LEGEND", {ATTRIBUTE_BOOL, Hex("01")}},
      {"SORT_CURVE_BY", {ATTRIBUTE_INT, Le<int32_t>(1)}},
      {"VIEWER_TYPE", {ATTRIBUTE_UINT, Le<uint32_t>(0)}},
      {"VIEW_MATRIX_TYPE", {ATTRIBUTE_UINT, Le<uint32_t>(0)}},
      {"VIEW_NAME", {ATTRIBUTE_STRING, Str("plot")}},
      {"VIEW_TITLE", {ATTRIBUTE_STRING, Str("")}},
      {"X_AXIS_LABEL", {ATTRIBUTE_STRING, Str("")}},
      {"X_AXIS_VAR_NAME", {ATTRIBUTE_STRING, Str("")}},
      {"X_AXIS_VAR_TYPE", {ATTRIBUTE_INT, Le<int32_t>(0)}},
      {"Y_AXIS_LABEL", {ATTRIBUTE_STRING, Str("")}},
  };
  AttributeList* l_pcList = l_cView.GetAttributeList();
  ASSERT_EQ(l_pcList->size(), 21u);
  auto l_itExpected = l_aExpected.begin();
  for (auto& l_cEntry : *l_pcList) {
    SCOPED_TRACE(l_itExpected->first);
    EXPECT_EQ(std::string(l_cEntry.first.mb_str()), l_itExpected->first);
    ASSERT_NE(l_cEntry.second, nullptr);
    EXPECT_EQ(l_cEntry.second->GetAttributeType(), l_itExpected->second.first);
    EXPECT_EQ(ToHex(Packed(l_cEntry.second)), ToHex(l_itExpected->second.second));
    ++l_itExpected;
  }
  EXPECT_EQ(l_cView.GetCurves()->size(), 0u);
  EXPECT_EQ(l_cView.GetCurves()->GetProtoType(), l_cView.GetCurveProtoType());
  EXPECT_EQ(std::string(l_cView.GetCurveProtoType()->GetName().mb_str()),
            "CURVE_INFO_PROTOTYPE");
}

TEST(ModelView, CurvePrototypeHoldsTheSevenFieldsZeroed) {
  ModelView l_cView(wxT("plot"), NULL);
  AttributeMap* l_pcFields = l_cView.GetCurveProtoType()->GetAllFields();
  const std::vector<std::pair<std::string, unsigned int> > l_aExpected = {
      {"CURVE_COLOR_NAME", ATTRIBUTE_STRING}, {"CURVE_NAME", ATTRIBUTE_STRING},
      {"CURVE_TYPE", ATTRIBUTE_UINT},         {"INDEX", ATTRIBUTE_ULONG},
      {"LINE_STYLE", ATTRIBUTE_INT},          {"LINE_WIDTH", ATTRIBUTE_INT},
      {"SHOW", ATTRIBUTE_BOOL}};
  ASSERT_EQ(l_pcFields->size(), l_aExpected.size());
  auto l_itExpected = l_aExpected.begin();
  for (auto& l_cField : *l_pcFields) {
    EXPECT_EQ(std::string(l_cField.first.mb_str()), l_itExpected->first);
    EXPECT_EQ(l_cField.second->GetAttributeType(), l_itExpected->second);
    ++l_itExpected;
  }
  EXPECT_EQ(ToHex(Packed(l_cView.GetCurveProtoType())),
            ToHex(Curve("", "", 0, 0, 0, 0, false)));
}

TEST(ModelView, NameAndTitle) {
  ModelView l_cView(wxT("Marking"), NULL);
  EXPECT_EQ(l_cView.GetName(), wxT("Marking"));
  EXPECT_EQ(l_cView.GetTitle(), wxT(""));
  l_cView.SetName(wxT("Rates"));
  l_cView.SetTitle(wxT("All rates"));
  EXPECT_EQ(l_cView.GetName(), wxT("Rates"));
  EXPECT_EQ(l_cView.GetTitle(), wxT("All rates"));
  EXPECT_EQ(l_cView.GetAttributeValueString(wxT("VIEW_NAME")), wxT("Rates"));
  EXPECT_EQ(l_cView.GetAttributeValueString(wxT("VIEW_TITLE")), wxT("All rates"));
}

TEST(ModelView, EqualCurvesAreBothKeptAndRemoveAllKeepsTheSettings) {
  ModelView l_cView(wxT("plot"), NULL);
  l_cView.SetAttributeValue(wxT("SORT_CURVE_BY"), 3);
  wxString l_sName = wxT("P1");
  l_cView.AddNewCurve(0, l_sName, 2, 100, RM_ROW_TYPE_PLACE, wxT("red"), true);
  l_cView.AddNewCurve(0, l_sName, 2, 100, RM_ROW_TYPE_PLACE, wxT("red"), true);
  ASSERT_EQ(l_cView.GetCurves()->size(), 2u);
  EXPECT_EQ(ToHex(Packed(CurveAt(l_cView, 0))), ToHex(Packed(CurveAt(l_cView, 1))));
  EXPECT_NE(CurveAt(l_cView, 0), CurveAt(l_cView, 1));

  const auto l_aBefore = Settings(l_cView);
  l_cView.RemoveAllCurves();
  EXPECT_EQ(l_cView.GetCurves()->size(), 0u);
  EXPECT_EQ(Settings(l_cView), l_aBefore);
  EXPECT_EQ(l_cView.GetAttributeValueInt(wxT("SORT_CURVE_BY")), 3);
}

TEST(ModelView, CurveFieldsReadBackAndPackInTheKeyOrderOfTheirNames) {
  ModelView l_cView(wxT("plot"), NULL);
  l_cView.AddNewCurve(5, g_sCurveA, 3, 7, RM_ROW_TYPE_OBSERVER, wxT("red"), true);
  ASSERT_EQ(l_cView.GetCurves()->size(), 1u);
  AttributeStruct* l_pcCurve = CurveAt(l_cView, 0);
  ASSERT_NE(l_pcCurve, nullptr);
  EXPECT_EQ(dynamic_cast<AttributeUint*>(l_pcCurve->GetField(wxT("CURVE_TYPE")))->GetValue(), 3u);
  EXPECT_TRUE(dynamic_cast<AttributeBool*>(l_pcCurve->GetField(wxT("SHOW")))->GetValue());
  EXPECT_EQ(dynamic_cast<AttributeUlong*>(l_pcCurve->GetField(wxT("INDEX")))->GetValue(), 5u);
  EXPECT_EQ(dynamic_cast<AttributeInt*>(l_pcCurve->GetField(wxT("LINE_WIDTH")))->GetValue(), 3);
  EXPECT_EQ(dynamic_cast<AttributeInt*>(l_pcCurve->GetField(wxT("LINE_STYLE")))->GetValue(), 7);
  EXPECT_EQ(l_pcCurve->GetField(wxT("CURVE_NAME"))->GetValueString(), wxT("A"));
  EXPECT_EQ(l_pcCurve->GetField(wxT("CURVE_COLOR_NAME"))->GetValueString(), wxT("red"));
  // CURVE_COLOR_NAME, CURVE_NAME, CURVE_TYPE, INDEX, LINE_STYLE, LINE_WIDTH, SHOW.
  EXPECT_EQ(ToHex(Packed(l_pcCurve)),
            "03 00 00 00 72 65 64 01 00 00 00 41 03 00 00 00 05 00 00 00 00 00 00 00 "
            "07 00 00 00 03 00 00 00 01");
}

TEST(ModelView, AddNewCurveWithAFieldMissingAppendsNothing) {
  ModelView l_cView(wxT("plot"), NULL);
  AttributeMap* l_pcFields = l_cView.GetCurveProtoType()->GetAllFields();
  delete (*l_pcFields)[wxT("SHOW")];
  l_pcFields->erase(wxT("SHOW"));
  ReportCapture l_cReports;
  l_cView.AddNewCurve(1, g_sCurveA, 1, 1, RM_ROW_TYPE_PLACE, wxT("red"), true);
  EXPECT_EQ(l_cView.GetCurves()->size(), 0u);
  EXPECT_TRUE(HasReport(l_cReports, "modelView.cpp"));
  EXPECT_TRUE(HasReport(l_cReports, "l_pcAttribute is NULL, we return"));
}

TEST(ModelView, AddNewCurveWithAFieldOfAnotherClassAppendsNothing) {
  ModelView l_cView(wxT("plot"), NULL);
  AttributeMap* l_pcFields = l_cView.GetCurveProtoType()->GetAllFields();
  delete (*l_pcFields)[wxT("INDEX")];
  (*l_pcFields)[wxT("INDEX")] = new AttributeInt(wxT("INDEX"), 0);
  ReportCapture l_cReports;
  l_cView.AddNewCurve(1, g_sCurveA, 1, 1, RM_ROW_TYPE_PLACE, wxT("red"), true);
  EXPECT_EQ(l_cView.GetCurves()->size(), 0u);
  EXPECT_TRUE(HasReport(l_cReports, "l_pcAttribute is NULL, we return"));
}

TEST(ModelView, GetAttributeOfAMissingKeyLeavesANullEntryThatStopsClone) {
  ModelView l_cView(wxT("plot"), NULL);
  ReportCapture l_cReports;
  EXPECT_EQ(l_cView.GetAttribute(wxT("NO_SUCH_KEY")), nullptr);
  AttributeList* l_pcList = l_cView.GetAttributeList();
  EXPECT_EQ(l_pcList->size(), 22u);
  ASSERT_EQ(l_pcList->count(wxT("NO_SUCH_KEY")), 1u);
  EXPECT_EQ((*l_pcList)[wxT("NO_SUCH_KEY")], nullptr);
  // The lookup itself reports nothing.
  EXPECT_TRUE(l_cReports.Reports().empty());

  EXPECT_EQ(l_cView.Clone(), nullptr);
  EXPECT_TRUE(HasReport(l_cReports, "l_itAttribute->second is NULL, we return NULL"));
  EXPECT_TRUE(HasReport(l_cReports, "../source/ds/modelviews/modelView.cpp"));
}

TEST(ModelView, CloneIsADeepCopy) {
  ModelView l_cSource(wxT("V"), NULL);
  FillView(l_cSource);
  std::unique_ptr<ModelView> l_pcCopy(l_cSource.Clone());
  ASSERT_NE(l_pcCopy, nullptr);
  EXPECT_EQ(ToHex(PackedView(*l_pcCopy)), ToHex(FilledViewBody()));
  EXPECT_EQ(l_pcCopy->GetClientSocket(), nullptr);

  l_pcCopy->SetTitle(wxT("changed"));
  l_pcCopy->SetAttributeValue(wxT("MAX_Y_VALUE"), 9.0);
  dynamic_cast<AttributeInt*>(CurveAt(*l_pcCopy, 0)->GetField(wxT("LINE_WIDTH")))->SetValue(9);
  l_pcCopy->AddNewCurve(8, g_sCurveB, 1, 1, RM_ROW_TYPE_PLACE, wxT("green"), true);
  EXPECT_EQ(l_pcCopy->GetCurves()->size(), 3u);
  EXPECT_EQ(ToHex(PackedView(l_cSource)), ToHex(FilledViewBody()));

  l_pcCopy->RemoveAllCurves();
  EXPECT_EQ(l_cSource.GetCurves()->size(), 2u);
  EXPECT_EQ(ToHex(PackedView(l_cSource)), ToHex(FilledViewBody()));
}

TEST(ModelView, CloneGrowsItsCurvesFromItsOwnPrototypeAfterTheSourceIsGone) {
  std::unique_ptr<ModelView> l_pcSource(new ModelView(wxT("V"), NULL));
  FillView(*l_pcSource);
  std::unique_ptr<ModelView> l_pcCopy(l_pcSource->Clone());
  ASSERT_NE(l_pcCopy, nullptr);
  EXPECT_EQ(l_pcCopy->GetCurves()->GetProtoType(), l_pcCopy->GetCurveProtoType());
  EXPECT_NE(l_pcCopy->GetCurveProtoType(), l_pcSource->GetCurveProtoType());
  l_pcSource.reset();

  // Both ways of growing the list clone the prototype.
  l_pcCopy->AddNewCurve(8, g_sCurveB, 1, 1, RM_ROW_TYPE_PLACE, wxT("green"), true);
  l_pcCopy->GetCurves()->resize(4);
  ASSERT_EQ(l_pcCopy->GetCurves()->size(), 4u);
  EXPECT_EQ(ToHex(Packed(CurveAt(*l_pcCopy, 2))),
            ToHex(Curve("green", "B", 0, 8, 1, 1, true)));
  EXPECT_EQ(ToHex(Packed(CurveAt(*l_pcCopy, 3))), ToHex(Curve("", "", 0, 0, 0, 0, false)));
}

TEST(ModelView, SendViewPutsTheSettingsOnTheWireInKeyOrder) {
  LoopbackPair l_cPair;
  ModelView l_cView(wxT("V"), NULL);
  FillView(l_cView);
  const Bytes l_aBody = FilledViewBody();
  ASSERT_GT(l_aBody.size(), 100u);  // so the body travels compressed

  Bytes l_aValue;
  l_cPair.Run([&](RawPeer& p_cPeer) {
    const uint64_t l_nTotal = p_cPeer.RecvValue<uint64_t>();
    l_aValue = p_cPeer.RecvFrame(static_cast<size_t>(l_nTotal));
  });
  EXPECT_EQ(l_cView.SendView(l_cPair.Socket()), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_cView.GetClientSocket(), l_cPair.Socket());

  // The zlib peer decoded the body (RecvFrame); the wire holds the total,
  // the stream's length and a default-level zlib stream of exactly that
  // length (its deflate bytes are the compressor's own).
  EXPECT_EQ(ToHex(l_aValue), ToHex(l_aBody));
  const Bytes& l_aWire = l_cPair.Peer().Received();
  ASSERT_GT(l_aWire.size(), 18u);
  const Bytes l_aStream(l_aWire.begin() + 16, l_aWire.end());
  EXPECT_EQ(ToHex(Bytes(l_aWire.begin(), l_aWire.begin() + 16)),
            ToHex(Cat({Le<uint64_t>(l_aBody.size()), Le<uint64_t>(l_aStream.size())})));
  EXPECT_EQ(ToHex(Bytes(l_aStream.begin(), l_aStream.begin() + 2)), "78 9c");
  EXPECT_EQ(ToHex(Inflate(l_aStream, l_aBody.size())), ToHex(l_aBody));
  EXPECT_EQ(ToHex(l_cPair.Peer().Sent()), "61 61 61");
}

TEST(ModelView, ReceiveViewFillsTheSettingsAndGrowsTheCurves) {
  LoopbackPair l_cPair;
  ModelView l_cView(wxT("mine"), NULL);
  const Bytes l_aBody = FilledViewBody();
  l_cPair.Run([&](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint64_t>(l_aBody.size());
    p_cPeer.SendFrame(l_aBody);
  });
  EXPECT_EQ(l_cView.ReceiveView(l_cPair.Socket()), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_cView.GetClientSocket(), l_cPair.Socket());

  EXPECT_EQ(l_cView.GetName(), wxT("V"));
  EXPECT_EQ(l_cView.GetTitle(), wxT("T"));
  EXPECT_EQ(l_cView.GetAttributeValueString(wxT("Y_AXIS_LABEL")), wxT("tokens"));
  EXPECT_EQ(l_cView.GetAttributeValueUInt(wxT("VIEW_MATRIX_TYPE")), 9u);
  EXPECT_EQ(l_cView.GetAttributeValueDouble(wxT("MAX_X_VALUE")), 50.0);
  EXPECT_TRUE(l_cView.GetAttributeValueBool(wxT("FIXED_Y_ADJUSTMENT")));
  ASSERT_EQ(l_cView.GetCurves()->size(), 2u);
  AttributeStruct* l_pcCurve = CurveAt(l_cView, 1);
  EXPECT_EQ(l_pcCurve->GetField(wxT("CURVE_NAME"))->GetValueString(), wxT("B"));
  EXPECT_EQ(l_pcCurve->GetField(wxT("CURVE_COLOR_NAME"))->GetValueString(), wxT("blue"));
  EXPECT_EQ(dynamic_cast<AttributeUlong*>(l_pcCurve->GetField(wxT("INDEX")))->GetValue(), 6u);
  EXPECT_EQ(ToHex(PackedView(l_cView)), ToHex(l_aBody));
  // One acknowledgement for the total, two for the compressed body.
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), "61 61 61");
}

TEST(ModelView, SendViewWithoutASocketFails) {
  ModelView l_cView(wxT("V"), NULL);
  EXPECT_EQ(l_cView.SendView(NULL), FAILURE);
}
