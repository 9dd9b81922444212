// SPDX-License-Identifier: MIT
// ColoredModel: model type 1, the six coloured attributes, the argument
// order of its constructor and the range operations.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <map>
#include <string>
#include <vector>

#include "log_capture.h"
#include "raw_peer.h"
#include "quor/attributeTransitionConnection.h"
#include "quor/coloredmodel.h"

using quor::ColoredModel;
using quor_test::LoopbackPair;
using quor_test::RawPeer;
using quor_test::ReportCapture;
using quor_test::ToHex;

namespace {

quor::AttributeVectorULong2ULong* Ranges(ColoredModel& p_cModel, const char* p_sKey) {
  return dynamic_cast<quor::AttributeVectorULong2ULong*>(
      (*p_cModel.GetAttributeList())[wxString::FromUTF8(p_sKey)]);
}

// True when this file reported a missing range list, and clears the
// reports.
bool ReportedMissingList(ReportCapture& p_cReports) {
  const std::string l_sEnd = "): l_pcAttribute is NULL, we return false";
  bool l_bFound = false;
  for (const std::string& l_s : p_cReports.Reports()) {
    l_bFound = l_bFound ||
               (l_s.rfind("pointer error in ../source/ds/coloredmodel.cpp(", 0) == 0 &&
                l_s.size() >= l_sEnd.size() &&
                l_s.compare(l_s.size() - l_sEnd.size(), l_sEnd.size(), l_sEnd) == 0);
  }
  p_cReports.Clear();
  return l_bFound;
}

}  // namespace

TEST(ColoredModel, FreshModelHasTypeOneAndTwentyEightAttributes) {
  ColoredModel l_cModel(NULL, wxT("c"), 3, 4, 2, 5);
  EXPECT_EQ(l_cModel.GetModelType(), 1u);
  EXPECT_EQ(l_cModel.GetAttributeList()->size(), 28u);
  const std::map<std::string, unsigned int> l_mColoured = {
      {"COLORED_PLACE_COUNT", 4},  {"COLORED_TRANSITION_COUNT", 4},
      {"COLORED_PLACE_NAMES", 11}, {"COLORED_TRANSITION_NAMES", 11},
      {"COLORED_PLACE_INFO", 13},  {"COLORED_TRANSITION_INFO", 13}};
  for (const auto& l_e : l_mColoured) {
    quor::Attribute* l_pcAttribute =
        (*l_cModel.GetAttributeList())[wxString::FromUTF8(l_e.first.c_str())];
    ASSERT_NE(l_pcAttribute, nullptr) << l_e.first;
    EXPECT_EQ(l_pcAttribute->GetAttributeType(), l_e.second) << l_e.first;
    EXPECT_EQ(std::string(l_pcAttribute->GetName().utf8_str()), l_e.first);
  }
  EXPECT_EQ(l_cModel.GetAttributeList()->size(), 28u);
}

TEST(ColoredModel, ConstructorKeepsBothArgumentOrders) {
  // Transitions before places for the unfolded net, coloured places before
  // coloured transitions.
  ColoredModel l_cModel(NULL, wxT("c"), 3, 4, 2, 5);
  EXPECT_EQ(l_cModel.GetTransitionCount(), 3u);
  EXPECT_EQ(l_cModel.GetPlaceCount(), 4u);
  EXPECT_EQ(l_cModel.GetTransitions()->size(), 3u);
  EXPECT_EQ(l_cModel.GetInitialMarking()->size(), 4u);
  EXPECT_EQ(l_cModel.GetColoredPlaceCount(), 2u);
  EXPECT_EQ(l_cModel.GetColoredTransitionCount(), 5u);
  EXPECT_EQ(Ranges(l_cModel, "COLORED_PLACE_INFO")->GetValue().size(), 2u);
  EXPECT_EQ(Ranges(l_cModel, "COLORED_TRANSITION_INFO")->GetValue().size(), 5u);
  EXPECT_EQ(l_cModel.GetModelName(), wxT("c"));
}

TEST(ColoredModel, RangePairsPerColouredPlaceAndTransitionStartAtZero) {
  ColoredModel l_cModel(NULL, wxT("c"), 1, 1, 2, 3);
  const std::vector<quor::ULong2ULong>& l_aPlaces =
      Ranges(l_cModel, "COLORED_PLACE_INFO")->GetValue();
  const std::vector<quor::ULong2ULong>& l_aTransitions =
      Ranges(l_cModel, "COLORED_TRANSITION_INFO")->GetValue();
  ASSERT_EQ(l_aPlaces.size(), 2u);
  ASSERT_EQ(l_aTransitions.size(), 3u);
  for (const quor::ULong2ULong& l_c : l_aPlaces) {
    EXPECT_EQ(l_c.first, 0u);
    EXPECT_EQ(l_c.second, 0u);
  }
  for (const quor::ULong2ULong& l_c : l_aTransitions) {
    EXPECT_EQ(l_c.first, 0u);
    EXPECT_EQ(l_c.second, 0u);
  }
}

TEST(ColoredModel, RangeCountsAreTheLowThirtyTwoBits) {
  ColoredModel l_cModel(NULL, wxT("c"), 1, 1, 0x100000001ull, 0x100000002ull);
  EXPECT_EQ(l_cModel.GetColoredPlaceCount(), 0x100000001ull);
  EXPECT_EQ(Ranges(l_cModel, "COLORED_PLACE_INFO")->GetValue().size(), 1u);
  EXPECT_EQ(Ranges(l_cModel, "COLORED_TRANSITION_INFO")->GetValue().size(), 2u);
}

TEST(ColoredModel, PlaceRangeRoundTrips) {
  ColoredModel l_cModel(NULL, wxT("c"), 1, 1, 2, 3);
  l_cModel.SetColorPlaceRange(1, 4, 7);
  unsigned long long l_nStart = 0, l_nEnd = 0;
  l_cModel.GetColorPlaceRange(1, l_nStart, l_nEnd);
  EXPECT_EQ(l_nStart, 4u);
  EXPECT_EQ(l_nEnd, 7u);
  const std::vector<quor::ULong2ULong>& l_aPlaces =
      Ranges(l_cModel, "COLORED_PLACE_INFO")->GetValue();
  EXPECT_EQ(l_aPlaces[1].first, 4u);
  EXPECT_EQ(l_aPlaces[1].second, 7u);
  EXPECT_EQ(l_aPlaces[0].first, 0u);
  // The transition ranges are a list of their own.
  for (const quor::ULong2ULong& l_c : Ranges(l_cModel, "COLORED_TRANSITION_INFO")->GetValue()) {
    EXPECT_EQ(l_c.first, 0u);
  }
}

TEST(ColoredModel, TransitionRangeRoundTrips) {
  ColoredModel l_cModel(NULL, wxT("c"), 1, 1, 2, 3);
  l_cModel.SetColorTransitionRange(2, 10, 20);
  unsigned long long l_nStart = 0, l_nEnd = 0;
  l_cModel.GetColorTransitionRange(2, l_nStart, l_nEnd);
  EXPECT_EQ(l_nStart, 10u);
  EXPECT_EQ(l_nEnd, 20u);
  EXPECT_EQ(Ranges(l_cModel, "COLORED_TRANSITION_INFO")->GetValue()[2].second, 20u);
  EXPECT_EQ(Ranges(l_cModel, "COLORED_PLACE_INFO")->GetValue()[1].second, 0u);
}

TEST(ColoredModel, ColoredInformationByKey) {
  ColoredModel l_cModel(NULL, wxT("c"), 1, 1, 2, 3);
  EXPECT_TRUE(l_cModel.SetColoredInformation(wxT("COLORED_TRANSITION_INFO"), 0, 5, 6));
  unsigned long long l_nStart = 0, l_nEnd = 0;
  EXPECT_TRUE(l_cModel.GetColoredInformation(wxT("COLORED_TRANSITION_INFO"), 0, l_nStart, l_nEnd));
  EXPECT_EQ(l_nStart, 5u);
  EXPECT_EQ(l_nEnd, 6u);
}

TEST(ColoredModel, UnknownKeyReturnsFalseAndReports) {
  ColoredModel l_cModel(NULL, wxT("c"), 1, 1, 2, 3);
  ReportCapture l_cReports;
  unsigned long long l_nStart = 77, l_nEnd = 88;
  EXPECT_FALSE(l_cModel.SetColoredInformation(wxT("NO_SUCH_INFO"), 0, 1, 2));
  EXPECT_TRUE(ReportedMissingList(l_cReports));
  EXPECT_FALSE(l_cModel.GetColoredInformation(wxT("NO_SUCH_INFO"), 0, l_nStart, l_nEnd));
  EXPECT_TRUE(ReportedMissingList(l_cReports));
  // A key of another class counts as missing.
  EXPECT_FALSE(l_cModel.SetColoredInformation(wxT("PLACE_NAMES"), 0, 1, 2));
  EXPECT_TRUE(ReportedMissingList(l_cReports));
  EXPECT_FALSE(l_cModel.GetColoredInformation(wxT("PLACE_NAMES"), 0, l_nStart, l_nEnd));
  EXPECT_TRUE(ReportedMissingList(l_cReports));
  EXPECT_EQ(l_nStart, 77u);
  EXPECT_EQ(l_nEnd, 88u);
  EXPECT_TRUE(l_cModel.GetAttributeValueVectorString(wxT("PLACE_NAMES")).empty());
}

TEST(ColoredModel, RangePositionOutsideTheListIsNeitherWrittenNorRead) {
  ColoredModel l_cModel(NULL, wxT("c"), 1, 1, 2, 3);
  EXPECT_FALSE(l_cModel.SetColoredInformation(wxT("COLORED_PLACE_INFO"), 2, 1, 2));
  l_cModel.SetColorPlaceRange(~0ull, 1, 2);
  EXPECT_EQ(Ranges(l_cModel, "COLORED_PLACE_INFO")->GetValue().size(), 2u);
  unsigned long long l_nStart = 77, l_nEnd = 88;
  EXPECT_FALSE(l_cModel.GetColoredInformation(wxT("COLORED_PLACE_INFO"), 2, l_nStart, l_nEnd));
  l_cModel.GetColorTransitionRange(3, l_nStart, l_nEnd);
  EXPECT_EQ(l_nStart, 77u);
  EXPECT_EQ(l_nEnd, 88u);
}

TEST(ColoredModel, CountSettersChangeOnlyTheCounts) {
  ColoredModel l_cModel(NULL, wxT("c"), 1, 1, 2, 3);
  l_cModel.SetColoredPlaceCount(9);
  l_cModel.SetColoredTransitionCount(11);
  EXPECT_EQ(l_cModel.GetColoredPlaceCount(), 9u);
  EXPECT_EQ(l_cModel.GetColoredTransitionCount(), 11u);
  EXPECT_EQ(Ranges(l_cModel, "COLORED_PLACE_INFO")->GetValue().size(), 2u);
  EXPECT_EQ(Ranges(l_cModel, "COLORED_TRANSITION_INFO")->GetValue().size(), 3u);
}

TEST(ColoredModel, NamesAreStoredButNotMapped) {
  ColoredModel l_cModel(NULL, wxT("c"), 1, 1, 2, 1);
  std::vector<wxString> l_asPlaces = {wxT("P"), wxT("Q")};
  std::vector<wxString> l_asTransitions = {wxT("T")};
  l_cModel.SetColoredPlaceNames(l_asPlaces);
  l_cModel.SetColoredTransitionNames(l_asTransitions);
  EXPECT_EQ(l_cModel.GetAttributeValueVectorString(wxT("COLORED_PLACE_NAMES")), l_asPlaces);
  EXPECT_EQ(l_cModel.GetAttributeValueVectorString(wxT("COLORED_TRANSITION_NAMES")),
            l_asTransitions);
  EXPECT_TRUE(l_cModel.GetPlaceName2Position().empty());
  EXPECT_TRUE(l_cModel.GetTransitionName2Position().empty());
  EXPECT_TRUE(l_cModel.GetAttributeValueVectorString(wxT("PLACE_NAMES")).empty());
}

namespace {
// Records the keys that reach the overridable operations.
class TracingModel : public ColoredModel {
 public:
  TracingModel() : ColoredModel(NULL, wxT("t"), 1, 1, 1, 1) {}
  bool SetColoredInformation(const wxString& p_sKey, const unsigned long long& p_nColorPos,
                             const unsigned long long& p_nStart,
                             const unsigned long long& p_nEnd) override {
    m_asKeys.push_back(std::string(p_sKey.utf8_str()));
    return ColoredModel::SetColoredInformation(p_sKey, p_nColorPos, p_nStart, p_nEnd);
  }
  bool GetColoredInformation(const wxString& p_sKey, const unsigned long long& p_nColorPos,
                             unsigned long long& p_nStart, unsigned long long& p_nEnd) override {
    m_asKeys.push_back(std::string(p_sKey.utf8_str()));
    return ColoredModel::GetColoredInformation(p_sKey, p_nColorPos, p_nStart, p_nEnd);
  }
  std::vector<std::string> m_asKeys;
};
}  // namespace

TEST(ColoredModel, RangeOperationsDispatchThroughTheVirtualOperations) {
  TracingModel l_cModel;
  unsigned long long l_nStart = 0, l_nEnd = 0;
  l_cModel.SetColorPlaceRange(0, 1, 2);
  l_cModel.GetColorPlaceRange(0, l_nStart, l_nEnd);
  l_cModel.SetColorTransitionRange(0, 3, 4);
  l_cModel.GetColorTransitionRange(0, l_nStart, l_nEnd);
  EXPECT_EQ(l_cModel.m_asKeys,
            std::vector<std::string>({"COLORED_PLACE_INFO", "COLORED_PLACE_INFO",
                                      "COLORED_TRANSITION_INFO", "COLORED_TRANSITION_INFO"}));
  EXPECT_EQ(l_nStart, 3u);
  EXPECT_EQ(l_nEnd, 4u);
}

TEST(ColoredModel, SendModelSendsTypeOneFirst) {
  LoopbackPair l_cPair;
  ColoredModel l_cModel(l_cPair.Socket(), wxT("c"), 1, 1, 1, 1);
  l_cPair.Run([](RawPeer& p_cPeer) {
    p_cPeer.RecvFrame(4);
    // The attribute block is refused: the model stops there.
    ::shutdown(p_cPeer.Fd(), SHUT_WR);
    p_cPeer.Read(8);
  });
  const unsigned int l_nResult = l_cModel.SendModel();
  l_cPair.Join();
  EXPECT_NE(l_nResult, 1u);
  ASSERT_GE(l_cPair.Peer().Received().size(), 4u);
  EXPECT_EQ(ToHex(quor_test::Bytes(l_cPair.Peer().Received().begin(),
                                   l_cPair.Peer().Received().begin() + 4)),
            "01 00 00 00");
  EXPECT_EQ(ToHex(l_cPair.Peer().Sent()), "61");
}
