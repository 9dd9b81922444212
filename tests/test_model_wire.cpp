// SPDX-License-Identifier: MIT
// Whole models on the wire, checked byte for byte by an independent raw
// peer: the model type, the attribute block, the views, the active view and
// the acknowledgement. The expected bytes are built here from the packed
// forms of each value, not through the library.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "log_capture.h"
#include "raw_peer.h"
#include "quor/attributeTransitionConnection.h"
#include "quor/attributeVector.h"
#include "quor/coloredmodel.h"
#include "quor/model.h"
#include "quor/modelView.h"

using quor::ColoredModel;
using quor::FAILURE;
using quor_test::LogCapture;
using quor::Model;
using quor::ModelView;
using quor_test::Bytes;
using quor_test::Cat;
using quor_test::Le;
using quor_test::LoopbackPair;
using quor_test::RawPeer;
using quor_test::Text;
using quor_test::ToHex;

namespace {

// Packed forms.

Bytes U32(uint32_t p_n) { return Le(p_n); }
Bytes U64(uint64_t p_n) { return Le(p_n); }
Bytes I32(int32_t p_n) { return Le(p_n); }
Bytes F64(double p_d) { return Le(p_d); }
Bytes Flag(bool p_b) { return Bytes{static_cast<uint8_t>(p_b ? 1 : 0)}; }
Bytes Str(const std::string& p_s) { return Cat({U32(static_cast<uint32_t>(p_s.size())), Text(p_s)}); }

Bytes StrList(const std::vector<std::string>& p_as) {
  Bytes l_a = U32(static_cast<uint32_t>(p_as.size()));
  for (const std::string& l_s : p_as) l_a = Cat({l_a, Str(l_s)});
  return l_a;
}

template <typename T>
Bytes NumList(const std::vector<T>& p_a) {
  Bytes l_a = U32(static_cast<uint32_t>(p_a.size()));
  for (const T& l_v : p_a) l_a = Cat({l_a, Le(l_v)});
  return l_a;
}

typedef std::vector<std::pair<uint64_t, uint64_t>> Ranges;

Bytes Pairs(const Ranges& p_a) {
  Bytes l_a = U32(static_cast<uint32_t>(p_a.size()));
  for (const auto& l_p : p_a) l_a = Cat({l_a, U64(l_p.first), U64(l_p.second)});
  return l_a;
}

struct Arc {
  uint64_t place;
  int32_t type;
  double weight;
};

struct ArcRecord {
  std::vector<Arc> pre;
  std::vector<Arc> post;
};

Bytes ArcLists(const std::vector<Arc>& p_aArcs, bool p_bPositions) {
  Bytes l_a = U32(static_cast<uint32_t>(p_aArcs.size()));
  for (const Arc& l_c : p_aArcs) {
    l_a = p_bPositions ? Cat({l_a, U64(l_c.place)}) : Cat({l_a, I32(l_c.type), F64(l_c.weight)});
  }
  return l_a;
}

// Record count, then per record: pre positions, post positions, pre
// connections, post connections.
Bytes Arcs(const std::vector<ArcRecord>& p_aRecords) {
  Bytes l_a = U32(static_cast<uint32_t>(p_aRecords.size()));
  for (const ArcRecord& l_r : p_aRecords) {
    l_a = Cat({l_a, ArcLists(l_r.pre, true), ArcLists(l_r.post, true),
               ArcLists(l_r.pre, false), ArcLists(l_r.post, false)});
  }
  return l_a;
}

typedef std::map<std::string, Bytes> Block;

// The packed values in the key order of their names.
Bytes Joined(const Block& p_mBlock) {
  Bytes l_a;
  for (const auto& l_e : p_mBlock) l_a = Cat({l_a, l_e.second});
  return l_a;
}

std::vector<std::string> Keys(const Block& p_mBlock) {
  std::vector<std::string> l_as;
  for (const auto& l_e : p_mBlock) l_as.push_back(l_e.first);
  return l_as;
}

wxString Wx(const std::string& p_s) { return wxString::FromUTF8(p_s.c_str()); }

std::vector<wxString> WxList(const std::vector<std::string>& p_as) {
  std::vector<wxString> l_as;
  for (const std::string& l_s : p_as) l_as.push_back(Wx(l_s));
  return l_as;
}

// What the library holds, packed by the library: for comparing a received
// object with the one that was sent.
Bytes PackedSet(quor::SteeringVector& p_cSet) {
  Bytes l_a;
  for (const auto& l_e : *p_cSet.GetAttributeList()) {
    Bytes l_aValue(l_e.second->GetPackungSize());
    l_e.second->PackValue(l_aValue.data());
    l_a = Cat({l_a, l_aValue});
  }
  return l_a;
}

std::vector<std::string> SetKeys(quor::SteeringVector& p_cSet) {
  std::vector<std::string> l_as;
  for (const auto& l_e : *p_cSet.GetAttributeList()) {
    l_as.push_back(std::string(l_e.first.utf8_str()));
  }
  return l_as;
}

// Views.

struct Curve {
  uint64_t index;
  std::string name;
  int32_t width;
  int32_t style;
  uint32_t type;
  std::string colour;
  bool show;
};

struct ViewValues {
  std::string name;
  std::string title;
  std::string xLabel;
  double maxY;
  std::vector<Curve> curves;
};

ModelView* BuildView(const ViewValues& p_cValues) {
  ModelView* l_pcView = new ModelView(Wx(p_cValues.name), NULL);
  l_pcView->SetTitle(Wx(p_cValues.title));
  l_pcView->SetAttributeValue(wxT("X_AXIS_LABEL"), Wx(p_cValues.xLabel));
  l_pcView->SetAttributeValue(wxT("MAX_Y_VALUE"), p_cValues.maxY);
  for (const Curve& l_c : p_cValues.curves) {
    wxString l_sName = Wx(l_c.name);
    l_pcView->AddNewCurve(l_c.index, l_sName, l_c.width, l_c.style,
                          static_cast<quor::RM_ROW_TYPE>(l_c.type), Wx(l_c.colour), l_c.show);
  }
  return l_pcView;
}

Block ViewBlock(const ViewValues& p_cValues) {
  // A curve record: its fields in the key order of their names.
  Bytes l_aCurves = U32(static_cast<uint32_t>(p_cValues.curves.size()));
  for (const Curve& l_c : p_cValues.curves) {
    l_aCurves = Cat({l_aCurves, Str(l_c.colour), Str(l_c.name), U32(l_c.type), U64(l_c.index),
                     I32(l_c.style), I32(l_c.width), Flag(l_c.show)});
  }
  return Block{{"VIEW_NAME", Str(p_cValues.name)},
               {"VIEW_TITLE", Str(p_cValues.title)},
               {"X_AXIS_LABEL", Str(p_cValues.xLabel)},
               {"Y_AXIS_LABEL", Str("")},
               {"X_AXIS_VAR_TYPE", I32(0)},
               {"X_AXIS_VAR_NAME", Str("")},
               {"VIEWER_TYPE", U32(0)},
               {"VIEW_MATRIX_TYPE", U32(0)},
               {"DEFAULT_LINE_WIDTH", I32(2)},
               {"DEFAULT_LINE_STYLE", I32(100)},
               {"SHOW_LEGEND", Flag(true)},
               {"LEGEND_HORIZONTAL_POSITION", I32(32)},
               {"LEGEND_VERTICAl_POSITION", I32(1)},
               {"FIXED_X_ADJUSTMENT", Flag(false)},
               {"FIXED_Y_ADJUSTMENT", Flag(false)},
               {"MIN_X_VALUE", F64(0.0)},
               {"MAX_X_VALUE", F64(1.0)},
               {"MIN_Y_VALUE", F64(0.0)},
               {"MAX_Y_VALUE", F64(p_cValues.maxY)},
               {"SORT_CURVE_BY", I32(1)},
               {"CURVE_INFO", l_aCurves}};
}

// The net.

struct NetValues {
  std::string name;
  std::vector<std::string> places;
  std::vector<std::string> transitions;
  std::vector<std::string> functions;
  std::vector<std::string> parameters;
  std::vector<ArcRecord> arcs;
  std::vector<double> initialMarking;
  std::vector<double> currentMarking;
  std::vector<double> initialParams;
  std::vector<double> currentParams;
  std::vector<int32_t> placeTypes;
  std::vector<int32_t> transitionTypes;
  std::vector<unsigned long long> steeredParams;
  std::vector<unsigned long long> steeredPlaces;
  double start;
  double end;
  double sample;
  uint32_t netType;
  uint32_t activeView;
  std::vector<ViewValues> views;
};

// Four places, three transitions, arcs both ways, two views with curves.
NetValues DemoNet() {
  NetValues l_c;
  l_c.name = "demo net";
  l_c.places = {"A", "B", "C", "D"};
  l_c.transitions = {"t1", "t2", "t3"};
  l_c.functions = {"k1*A", "k2*B*C", "D"};
  l_c.parameters = {"k1", "k2"};
  l_c.arcs = {
      ArcRecord{{{0, 2, 1.0}}, {{1, 2, 2.0}}},
      ArcRecord{{{1, 3, 5.0}, {2, 2, 1.5}}, {{3, 2, 1.0}}},
      ArcRecord{{{3, 1, 0.5}}, {{0, 2, 3.0}, {2, 2, 1.0}}},
  };
  l_c.initialMarking = {10, 0, 5, 1};
  l_c.currentMarking = {10, 2, 5, 1};
  l_c.initialParams = {0.1, 2.5};
  l_c.currentParams = {0.1, 3.5};
  l_c.placeTypes = {0, 1, 0, 1};
  l_c.transitionTypes = {0, 1, 2};
  l_c.steeredParams = {1};
  l_c.steeredPlaces = {0, 3};
  l_c.start = 0.5;
  l_c.end = 200.0;
  l_c.sample = 2.0;
  l_c.netType = 3;
  l_c.activeView = 1;
  l_c.views = {
      ViewValues{"marking", "Tokens", "time", 50.0,
               {Curve{0, "A", 2, 0, 0, "red", true}, Curve{3, "D", 1, 2, 0, "blue", false}}},
      ViewValues{"rates", "", "", 1.0, {Curve{1, "t2", 3, 1, 1, "#00ff00", true}}},
  };
  return l_c;
}

// Fills a model through its own operations: names, arcs (by name and by
// position), markings, parameters, types and views.
void FillModel(Model& p_cModel, const NetValues& p_cValues) {
  p_cModel.SetPlaceNames(WxList(p_cValues.places));
  p_cModel.SetTransitionNames(WxList(p_cValues.transitions));
  p_cModel.SetAttributeValue(wxT("TRANSITION_FUNCTIONS"), WxList(p_cValues.functions));
  p_cModel.SetAttributeValue(wxT("PARAMETER_NAMES"), WxList(p_cValues.parameters));
  for (size_t l_nT = 0; l_nT < p_cValues.arcs.size(); ++l_nT) {
    const wxString l_sTransition = Wx(p_cValues.transitions[l_nT]);
    for (const Arc& l_c : p_cValues.arcs[l_nT].pre) {
      p_cModel.SetTransitionPreConnection(l_sTransition, Wx(p_cValues.places[l_c.place]),
                                          static_cast<quor::ConnectionType>(l_c.type), l_c.weight);
    }
    for (const Arc& l_c : p_cValues.arcs[l_nT].post) {
      p_cModel.SetTransitionPostConnection(l_nT, l_c.place, l_c.weight);
    }
  }
  p_cModel.SetInitialMarking(p_cValues.initialMarking);
  for (size_t l_n = 0; l_n < p_cValues.currentMarking.size(); ++l_n) {
    if (p_cValues.currentMarking[l_n] != p_cValues.initialMarking[l_n]) {
      p_cModel.SetMarkingValue(l_n, p_cValues.currentMarking[l_n]);
    }
  }
  p_cModel.SetInitialParameterValues(p_cValues.initialParams);
  for (size_t l_n = 0; l_n < p_cValues.currentParams.size(); ++l_n) {
    if (p_cValues.currentParams[l_n] != p_cValues.initialParams[l_n]) {
      p_cModel.SetParameterValue(l_n, p_cValues.currentParams[l_n]);
    }
  }
  std::vector<quor::PlaceType> l_aePlaces;
  for (int32_t l_n : p_cValues.placeTypes) l_aePlaces.push_back(static_cast<quor::PlaceType>(l_n));
  p_cModel.SetPlaceTypes(l_aePlaces);
  std::vector<quor::TransType> l_aeTransitions(p_cValues.transitionTypes.size(),
                                               quor::TRANSITION_STOCHASTIC);
  p_cModel.SetTransitionTypes(l_aeTransitions);
  for (size_t l_n = 0; l_n < p_cValues.transitionTypes.size(); ++l_n) {
    p_cModel.SetTransitionType(l_n, static_cast<quor::TransType>(p_cValues.transitionTypes[l_n]));
  }
  dynamic_cast<quor::AttributeVectorULong&>(*p_cModel.GetAttribute(wxT("STEERED_PARAM")))
      .SetValue(p_cValues.steeredParams);
  dynamic_cast<quor::AttributeVectorULong&>(*p_cModel.GetAttribute(wxT("STEERED_PLACES")))
      .SetValue(p_cValues.steeredPlaces);
  p_cModel.SetOutputStartPoint(p_cValues.start);
  p_cModel.SetOutputEndPoint(p_cValues.end);
  p_cModel.SetOutputSamplingSize(p_cValues.sample);
  p_cModel.SetAttributeValue(wxT("NET_TYPE"), p_cValues.netType);
  p_cModel.SetActiveView(p_cValues.activeView);
  for (const ViewValues& l_cView : p_cValues.views) p_cModel.AddModelView(BuildView(l_cView));
}

Block ModelBlock(const NetValues& p_cValues, uint32_t p_nModelType) {
  return Block{{"MODEL_TYPE", U32(p_nModelType)},
               {"MODEL_NAME", Str(p_cValues.name)},
               {"TRANSITION_COUNT", U64(p_cValues.transitions.size())},
               {"PLACE_COUNT", U64(p_cValues.places.size())},
               {"PLACE_NAMES", StrList(p_cValues.places)},
               {"TRANSITION_NAMES", StrList(p_cValues.transitions)},
               {"TRANSITION_FUNCTIONS", StrList(p_cValues.functions)},
               {"PARAMETER_NAMES", StrList(p_cValues.parameters)},
               {"START_OUTPUT_POINT", F64(p_cValues.start)},
               {"END_OUTPUT_POINT", F64(p_cValues.end)},
               {"SAMPLE_POINT_SIZE", F64(p_cValues.sample)},
               {"CURRENT_ACTIVE_VIEW", U32(p_cValues.activeView)},
               {"INITIAL_PARAM_VALUES", NumList(p_cValues.initialParams)},
               {"CURRENT_PARAM_VALUES", NumList(p_cValues.currentParams)},
               {"INITIAL_MARKING", NumList(p_cValues.initialMarking)},
               {"CURRENT_MARKING", NumList(p_cValues.currentMarking)},
               {"TRANSITION_TYPES", NumList(p_cValues.transitionTypes)},
               {"PLACE_TYPES", NumList(p_cValues.placeTypes)},
               {"STEERED_PARAM", NumList(p_cValues.steeredParams)},
               {"STEERED_PLACES", NumList(p_cValues.steeredPlaces)},
               {"NET_TYPE", U32(p_cValues.netType)},
               {"TRANSITION_CONNECTION", Arcs(p_cValues.arcs)}};
}

// The coloured level on top of the demo net.
struct ColourValues {
  std::vector<std::string> places;
  std::vector<std::string> transitions;
  Ranges placeRanges;
  Ranges transitionRanges;
};

ColourValues DemoColours() {
  return ColourValues{{"P", "Q"}, {"T", "U", "V"}, {{0, 2}, {2, 4}}, {{0, 1}, {1, 2}, {2, 3}}};
}

void FillColours(ColoredModel& p_cModel, const ColourValues& p_cValues) {
  p_cModel.SetColoredPlaceNames(WxList(p_cValues.places));
  p_cModel.SetColoredTransitionNames(WxList(p_cValues.transitions));
  for (size_t l_n = 0; l_n < p_cValues.placeRanges.size(); ++l_n) {
    p_cModel.SetColorPlaceRange(l_n, p_cValues.placeRanges[l_n].first,
                                p_cValues.placeRanges[l_n].second);
  }
  for (size_t l_n = 0; l_n < p_cValues.transitionRanges.size(); ++l_n) {
    p_cModel.SetColorTransitionRange(l_n, p_cValues.transitionRanges[l_n].first,
                                     p_cValues.transitionRanges[l_n].second);
  }
}

Block ColouredBlock(const NetValues& p_cNet, const ColourValues& p_cValues) {
  Block l_m = ModelBlock(p_cNet, 1);
  l_m["COLORED_PLACE_COUNT"] = U64(p_cValues.places.size());
  l_m["COLORED_TRANSITION_COUNT"] = U64(p_cValues.transitions.size());
  l_m["COLORED_PLACE_NAMES"] = StrList(p_cValues.places);
  l_m["COLORED_TRANSITION_NAMES"] = StrList(p_cValues.transitions);
  l_m["COLORED_PLACE_INFO"] = Pairs(p_cValues.placeRanges);
  l_m["COLORED_TRANSITION_INFO"] = Pairs(p_cValues.transitionRanges);
  return l_m;
}

// The exchange as the raw peer sees it.

// Acknowledgement bytes of one value frame: one for a raw value, two for a
// compressed one (its length and its stream).
size_t AcksOf(size_t p_nSize) { return p_nSize <= 100 ? 1 : 2; }

struct WholeModel {
  uint32_t type = 0xDEADBEEF;
  Bytes block;
  uint32_t viewCount = 0xDEADBEEF;
  std::vector<Bytes> views;
  uint32_t activeView = 0xDEADBEEF;
};

size_t AcksOf(const WholeModel& p_cModel) {
  size_t l_n = 1 + 1 + AcksOf(p_cModel.block.size()) + 1 + 1;
  for (const Bytes& l_aView : p_cModel.views) l_n += 1 + AcksOf(l_aView.size());
  return l_n;
}

// Reads a whole model sent by the library and answers with the
// acknowledgement 1. Stops at the first size that differs from the expected
// one, so that a wrong size cannot make the peer wait for bytes that never
// come.
void ReadWholeModel(RawPeer& p_cPeer, const WholeModel& p_cExpected, WholeModel& p_cGot) {
  p_cGot.type = p_cPeer.RecvValue<uint32_t>();
  const uint64_t l_nTotal = p_cPeer.RecvValue<uint64_t>();
  if (l_nTotal != p_cExpected.block.size()) return;
  p_cGot.block = p_cPeer.RecvFrame(l_nTotal);
  p_cGot.viewCount = p_cPeer.RecvValue<uint32_t>();
  if (p_cGot.viewCount != p_cExpected.views.size()) return;
  for (const Bytes& l_aExpected : p_cExpected.views) {
    const uint64_t l_nViewTotal = p_cPeer.RecvValue<uint64_t>();
    if (l_nViewTotal != l_aExpected.size()) return;
    p_cGot.views.push_back(p_cPeer.RecvFrame(l_nViewTotal));
  }
  p_cGot.activeView = p_cPeer.RecvValue<uint32_t>();
  p_cPeer.SendValue<uint32_t>(1);
}

// Sends a whole model to the library and reads its acknowledgement.
void WriteWholeModel(RawPeer& p_cPeer, const WholeModel& p_cModel, uint32_t& p_nAck) {
  p_cPeer.SendValue<uint32_t>(p_cModel.type);
  p_cPeer.SendValue<uint64_t>(p_cModel.block.size());
  p_cPeer.SendFrame(p_cModel.block);
  p_cPeer.SendValue<uint32_t>(static_cast<uint32_t>(p_cModel.views.size()));
  for (const Bytes& l_aView : p_cModel.views) {
    p_cPeer.SendValue<uint64_t>(l_aView.size());
    p_cPeer.SendFrame(l_aView);
  }
  p_cPeer.SendValue<uint32_t>(p_cModel.activeView);
  p_nAck = p_cPeer.RecvValue<uint32_t>();
}

WholeModel Expected(const Block& p_mModel, const NetValues& p_cNet, uint32_t p_nType) {
  WholeModel l_c;
  l_c.type = p_nType;
  l_c.block = Joined(p_mModel);
  l_c.viewCount = static_cast<uint32_t>(p_cNet.views.size());
  for (const ViewValues& l_cView : p_cNet.views) l_c.views.push_back(Joined(ViewBlock(l_cView)));
  l_c.activeView = p_cNet.activeView;
  return l_c;
}

// Sends the model and checks every byte the peer saw and sent.
void ExpectSentAsWholeModel(Model& p_cModel, LoopbackPair& p_cPair, const WholeModel& p_cExpected) {
  WholeModel l_cGot;
  p_cPair.Run([&](RawPeer& p_cPeer) { ReadWholeModel(p_cPeer, p_cExpected, l_cGot); });
  const unsigned int l_nResult = p_cModel.SendModel();
  p_cPair.Join();
  EXPECT_EQ(l_nResult, 1u);
  EXPECT_EQ(l_cGot.type, p_cExpected.type);
  EXPECT_EQ(ToHex(l_cGot.block), ToHex(p_cExpected.block));
  EXPECT_EQ(l_cGot.viewCount, p_cExpected.viewCount);
  ASSERT_EQ(l_cGot.views.size(), p_cExpected.views.size());
  for (size_t l_n = 0; l_n < l_cGot.views.size(); ++l_n) {
    EXPECT_EQ(ToHex(l_cGot.views[l_n]), ToHex(p_cExpected.views[l_n])) << "view " << l_n;
  }
  EXPECT_EQ(l_cGot.activeView, p_cExpected.activeView);
  // The stream opens with the raw type and the raw 8-byte total and closes
  // with the raw active view index and the library's acknowledgement of the
  // peer's value.
  const Bytes& l_aReceived = p_cPair.Peer().Received();
  ASSERT_GE(l_aReceived.size(), 17u);
  EXPECT_EQ(ToHex(Bytes(l_aReceived.begin(), l_aReceived.begin() + 12)),
            ToHex(Cat({U32(p_cExpected.type), U64(p_cExpected.block.size())})));
  EXPECT_EQ(ToHex(Bytes(l_aReceived.end() - 5, l_aReceived.end())),
            ToHex(Cat({U32(p_cExpected.activeView), Bytes{0x61}})));
  // The peer sent an acknowledgement byte per frame part and the 4-byte
  // acknowledgement value 1 (itself acknowledged by the library).
  EXPECT_EQ(ToHex(p_cPair.Peer().Sent()),
            ToHex(Cat({Bytes(AcksOf(p_cExpected), 0x61), U32(1)})));
  EXPECT_FALSE(p_cPair.Peer().Failed());
}

// Receives the model type and the model from the scripted bytes and checks
// what the library acknowledged.
void ReceiveScripted(Model& p_cModel, LoopbackPair& p_cPair, const WholeModel& p_cScript) {
  uint32_t l_nAck = 0;
  p_cPair.Run([&](RawPeer& p_cPeer) { WriteWholeModel(p_cPeer, p_cScript, l_nAck); });
  unsigned int l_nType = 0xDEADBEEF;
  const unsigned int l_nTypeResult = p_cModel.ReceiveValue(&l_nType, sizeof(l_nType));
  const unsigned int l_nResult = p_cModel.ReceiveModel();
  p_cPair.Join();
  EXPECT_EQ(l_nTypeResult, 1u);
  EXPECT_EQ(l_nType, p_cScript.type);
  EXPECT_EQ(l_nResult, 1u);
  EXPECT_EQ(l_nAck, 1u);
  EXPECT_EQ(ToHex(p_cPair.Peer().Received()),
            ToHex(Cat({Bytes(AcksOf(p_cScript), 0x61), U32(1)})));
  EXPECT_FALSE(p_cPair.Peer().Failed());
}

// Every attribute of the received model and of its views equals the sent
// one.
void ExpectSameModel(Model& p_cReceived, Model& p_cSent, const WholeModel& p_cExpected) {
  EXPECT_EQ(SetKeys(p_cReceived), SetKeys(p_cSent));
  EXPECT_EQ(ToHex(PackedSet(p_cReceived)), ToHex(p_cExpected.block));
  EXPECT_EQ(ToHex(PackedSet(p_cReceived)), ToHex(PackedSet(p_cSent)));
  ASSERT_EQ(p_cReceived.GetModelViews()->size(), p_cSent.GetModelViews()->size());
  for (size_t l_n = 0; l_n < p_cSent.GetModelViews()->size(); ++l_n) {
    ModelView* l_pcGot = (*p_cReceived.GetModelViews())[l_n];
    ModelView* l_pcSent = (*p_cSent.GetModelViews())[l_n];
    EXPECT_EQ(ToHex(PackedSet(*l_pcGot)), ToHex(p_cExpected.views[l_n]));
    EXPECT_EQ(l_pcGot->GetName(), l_pcSent->GetName());
    EXPECT_EQ(l_pcGot->GetTitle(), l_pcSent->GetTitle());
    EXPECT_EQ(l_pcGot->GetCurves()->size(), l_pcSent->GetCurves()->size());
  }
  EXPECT_EQ(p_cReceived.GetModelName(), p_cSent.GetModelName());
  EXPECT_EQ(p_cReceived.GetModelType(), p_cSent.GetModelType());
  EXPECT_EQ(p_cReceived.GetPlaceCount(), p_cSent.GetPlaceCount());
  EXPECT_EQ(p_cReceived.GetTransitionCount(), p_cSent.GetTransitionCount());
  EXPECT_EQ(p_cReceived.GetActiveView(), p_cSent.GetActiveView());
  for (unsigned long long l_nT = 0; l_nT < p_cSent.GetTransitionCount(); ++l_nT) {
    EXPECT_EQ(p_cReceived.GetTransitionPrePlaces(l_nT), p_cSent.GetTransitionPrePlaces(l_nT));
    EXPECT_EQ(p_cReceived.GetTransitionPostPlaces(l_nT), p_cSent.GetTransitionPostPlaces(l_nT));
  }
  EXPECT_EQ(*p_cReceived.GetInitialMarking(), *p_cSent.GetInitialMarking());
  EXPECT_EQ(*p_cReceived.GetCurrentMarking(), *p_cSent.GetCurrentMarking());
  EXPECT_EQ(*p_cReceived.GetPlaceType(), *p_cSent.GetPlaceType());
  EXPECT_EQ(*p_cReceived.GetTransitionTypes(), *p_cSent.GetTransitionTypes());
  EXPECT_EQ(p_cReceived.GetAttributeValueVectorString(wxT("PLACE_NAMES")),
            p_cSent.GetAttributeValueVectorString(wxT("PLACE_NAMES")));
  // The name maps do not travel.
  EXPECT_TRUE(p_cReceived.GetPlaceName2Position().empty());
  EXPECT_TRUE(p_cReceived.GetTransitionName2Position().empty());
}

// A view that the failure tests expect to find unchanged afterwards.
ModelView* AddKeptView(Model& p_cModel) {
  ModelView* l_pcView = new ModelView(wxT("kept"), NULL);
  p_cModel.AddModelView(l_pcView);
  return l_pcView;
}

void ExpectOnlyView(Model& p_cModel, ModelView* p_pcView) {
  ASSERT_EQ(p_cModel.GetModelViews()->size(), 1u);
  EXPECT_EQ((*p_cModel.GetModelViews())[0], p_pcView);
  EXPECT_EQ(p_pcView->GetName(), wxT("kept"));
}

// Stops sending, then collects whatever the library still sends until it
// closes its end.
void HalfCloseAndListen(RawPeer& p_cPeer, Bytes& p_aAfter) {
  ::shutdown(p_cPeer.Fd(), SHUT_WR);
  p_aAfter = p_cPeer.Read(1);
}

}  // namespace

TEST(ModelWire, SchemaOfTheTestMatchesTheModel) {
  Model l_cModel(NULL, wxT("x"), 1, 1);
  EXPECT_EQ(SetKeys(l_cModel), Keys(ModelBlock(DemoNet(), 0)));
  ModelView l_cView(wxT("v"), NULL);
  EXPECT_EQ(SetKeys(l_cView), Keys(ViewBlock(DemoNet().views[0])));
}

TEST(ModelWire, WholeModelIsSentByteForByte) {
  const NetValues l_cNet = DemoNet();
  LoopbackPair l_cPair;
  Model l_cModel(l_cPair.Socket(), Wx(l_cNet.name), l_cNet.transitions.size(),
                 l_cNet.places.size());
  FillModel(l_cModel, l_cNet);
  const WholeModel l_cExpected = Expected(ModelBlock(l_cNet, 0), l_cNet, 0);
  // Large enough to travel compressed.
  ASSERT_GT(l_cExpected.block.size(), 100u);
  ASSERT_GT(l_cExpected.views[1].size(), 100u);
  ExpectSentAsWholeModel(l_cModel, l_cPair, l_cExpected);
}

TEST(ModelWire, WholeModelIsReceivedIntoAFreshModel) {
  const NetValues l_cNet = DemoNet();
  LoopbackPair l_cPair;
  Model l_cSent(NULL, Wx(l_cNet.name), l_cNet.transitions.size(), l_cNet.places.size());
  FillModel(l_cSent, l_cNet);
  const WholeModel l_cScript = Expected(ModelBlock(l_cNet, 0), l_cNet, 0);
  Model l_cReceived(l_cPair.Socket(), wxT(""), 0, 0);
  ReceiveScripted(l_cReceived, l_cPair, l_cScript);
  ExpectSameModel(l_cReceived, l_cSent, l_cScript);
  // Arc edits still reach the received arc list.
  l_cReceived.SetTransitionPostConnection(0, 3, 9.0);
  EXPECT_EQ(l_cReceived.GetTransitionPostPlaces(0), std::vector<unsigned long long>({1, 3}));
}

TEST(ModelWire, WholeColoredModelIsSentByteForByte) {
  const NetValues l_cNet = DemoNet();
  const ColourValues l_cColours = DemoColours();
  LoopbackPair l_cPair;
  ColoredModel l_cModel(l_cPair.Socket(), Wx(l_cNet.name), l_cNet.transitions.size(),
                        l_cNet.places.size(), l_cColours.places.size(),
                        l_cColours.transitions.size());
  FillModel(l_cModel, l_cNet);
  FillColours(l_cModel, l_cColours);
  EXPECT_EQ(SetKeys(l_cModel), Keys(ColouredBlock(l_cNet, l_cColours)));
  ExpectSentAsWholeModel(l_cModel, l_cPair,
                         Expected(ColouredBlock(l_cNet, l_cColours), l_cNet, 1));
}

TEST(ModelWire, WholeColoredModelIsReceivedIntoAFreshColoredModel) {
  const NetValues l_cNet = DemoNet();
  const ColourValues l_cColours = DemoColours();
  LoopbackPair l_cPair;
  ColoredModel l_cSent(NULL, Wx(l_cNet.name), l_cNet.transitions.size(), l_cNet.places.size(),
                       l_cColours.places.size(), l_cColours.transitions.size());
  FillModel(l_cSent, l_cNet);
  FillColours(l_cSent, l_cColours);
  const WholeModel l_cScript = Expected(ColouredBlock(l_cNet, l_cColours), l_cNet, 1);
  ColoredModel l_cReceived(l_cPair.Socket(), wxT(""), 0, 0, 0, 0);
  ReceiveScripted(l_cReceived, l_cPair, l_cScript);
  ExpectSameModel(l_cReceived, l_cSent, l_cScript);
  EXPECT_EQ(l_cReceived.GetColoredPlaceCount(), 2u);
  EXPECT_EQ(l_cReceived.GetColoredTransitionCount(), 3u);
  for (size_t l_n = 0; l_n < l_cColours.transitionRanges.size(); ++l_n) {
    unsigned long long l_nStart = 99, l_nEnd = 99;
    l_cReceived.GetColorTransitionRange(l_n, l_nStart, l_nEnd);
    EXPECT_EQ(l_nStart, l_cColours.transitionRanges[l_n].first);
    EXPECT_EQ(l_nEnd, l_cColours.transitionRanges[l_n].second);
  }
  EXPECT_EQ(l_cReceived.GetAttributeValueVectorString(wxT("COLORED_PLACE_NAMES")),
            WxList(l_cColours.places));
}

TEST(ModelWire, ModelWithoutViewsSendsCountZeroThenTheActiveView) {
  LoopbackPair l_cPair;
  Model l_cModel(l_cPair.Socket(), wxT("m"), 1, 1);
  l_cModel.SetActiveView(5);
  l_cPair.Run([](RawPeer& p_cPeer) {
    p_cPeer.RecvFrame(4);
    p_cPeer.RecvFrame(4);
    p_cPeer.SendValue<uint32_t>(1);
  });
  const unsigned int l_nResult = l_cModel.SendModelViews();
  l_cPair.Join();
  EXPECT_EQ(l_nResult, 1u);
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), "00 00 00 00 05 00 00 00 61");
  EXPECT_EQ(ToHex(l_cPair.Peer().Sent()), "61 61 01 00 00 00");
}

TEST(ModelWire, AcknowledgementValueIsNotCompared) {
  LoopbackPair l_cPair;
  Model l_cModel(l_cPair.Socket(), wxT("m"), 1, 1);
  l_cPair.Run([](RawPeer& p_cPeer) {
    p_cPeer.RecvFrame(4);
    p_cPeer.RecvFrame(4);
    p_cPeer.SendValue<uint32_t>(7);
  });
  EXPECT_EQ(l_cModel.SendModelViews(), 1u);
}

TEST(ModelWire, NullViewSlotIsNeitherCountedNorSent) {
  LoopbackPair l_cPair;
  Model l_cModel(l_cPair.Socket(), wxT("m"), 1, 1);
  const ViewValues l_cView{"only", "", "", 1.0, {}};
  l_cModel.GetModelViews()->push_back(NULL);
  l_cModel.AddModelView(BuildView(l_cView));
  const Bytes l_aView = Joined(ViewBlock(l_cView));
  Bytes l_aGot;
  uint32_t l_nCount = 0;
  l_cPair.Run([&](RawPeer& p_cPeer) {
    l_nCount = p_cPeer.RecvValue<uint32_t>();
    if (l_nCount != 1 || p_cPeer.RecvValue<uint64_t>() != l_aView.size()) return;
    l_aGot = p_cPeer.RecvFrame(l_aView.size());
    p_cPeer.RecvFrame(4);
    p_cPeer.SendValue<uint32_t>(1);
  });
  const unsigned int l_nResult = l_cModel.SendModelViews();
  l_cPair.Join();
  EXPECT_EQ(l_nResult, 1u);
  EXPECT_EQ(l_nCount, 1u);
  EXPECT_EQ(ToHex(l_aGot), ToHex(l_aView));
}

TEST(ModelWire, FailedAttributeBlockNeverSendsTheViews) {
  LoopbackPair l_cPair;
  Model l_cModel(l_cPair.Socket(), wxT("m"), 1, 1);
  ModelView* l_pcView = AddKeptView(l_cModel);
  Bytes l_aAfter;
  l_cPair.Run([&](RawPeer& p_cPeer) {
    p_cPeer.RecvFrame(4);  // the model type, acknowledged
    p_cPeer.Read(8);       // the block's total, never acknowledged
    HalfCloseAndListen(p_cPeer, l_aAfter);
  });
  const unsigned int l_nResult = l_cModel.SendModel();
  l_cPair.Socket()->Close();
  l_cPair.Join();
  EXPECT_NE(l_nResult, 1u);
  EXPECT_TRUE(l_aAfter.empty());
  EXPECT_EQ(l_cPair.Peer().Received().size(), 12u);
  ExpectOnlyView(l_cModel, l_pcView);
}

TEST(ModelWire, SendModelStopsWhenTheTypeFails) {
  Model l_cModel(NULL, wxT("m"), 1, 1);
  EXPECT_EQ(l_cModel.SendModel(), quor::FAILURE);
}

TEST(ModelWire, ReceiveModelReturnsTheAttributeFailure) {
  LoopbackPair l_cPair;
  Model l_cModel(l_cPair.Socket(), wxT("m"), 1, 1);
  ModelView* l_pcView = AddKeptView(l_cModel);
  l_cPair.Run([](RawPeer& p_cPeer) { ::shutdown(p_cPeer.Fd(), SHUT_WR); });
  l_cPair.Join();
  EXPECT_NE(l_cModel.ReceiveModel(), 1u);
  ExpectOnlyView(l_cModel, l_pcView);
}

TEST(ModelWire, FailedViewCountReadReturnsItsStatusAndKeepsTheViews) {
  Model l_cModel(NULL, wxT("m"), 1, 1);
  ModelView* l_pcView = AddKeptView(l_cModel);
  // Without a socket the count read fails with FAILURE.
  EXPECT_EQ(l_cModel.ReceiveModelViews(), quor::FAILURE);
  ExpectOnlyView(l_cModel, l_pcView);
}

TEST(ModelWire, FailedViewCountReadOnAClosedStreamSendsNothing) {
  LoopbackPair l_cPair;
  Model l_cModel(l_cPair.Socket(), wxT("m"), 1, 1);
  ModelView* l_pcView = AddKeptView(l_cModel);
  Bytes l_aAfter;
  l_cPair.Run([&](RawPeer& p_cPeer) { HalfCloseAndListen(p_cPeer, l_aAfter); });
  const unsigned int l_nResult = l_cModel.ReceiveModelViews();
  l_cPair.Socket()->Close();
  l_cPair.Join();
  EXPECT_NE(l_nResult, 1u);
  EXPECT_TRUE(l_aAfter.empty());
  ExpectOnlyView(l_cModel, l_pcView);
}

namespace {
class CountingView : public ModelView {
 public:
  explicit CountingView(int* p_pnDeleted) : ModelView(wxT("old"), NULL), m_pnDeleted(p_pnDeleted) {}
  ~CountingView() override { ++*m_pnDeleted; }

 private:
  int* m_pnDeleted;
};
}  // namespace

TEST(ModelWire, ReceivedViewsReplaceAndDeleteTheHeldViews) {
  LoopbackPair l_cPair;
  int l_nDeleted = 0;
  Model l_cModel(l_cPair.Socket(), wxT("m"), 1, 1);
  l_cModel.AddModelView(new CountingView(&l_nDeleted));
  l_cModel.AddModelView(new CountingView(&l_nDeleted));
  l_cModel.SetActiveView(1);
  const ViewValues l_cView{"new", "fresh", "", 1.0, {Curve{4, "x", 1, 1, 2, "black", true}}};
  uint32_t l_nAck = 0;
  l_cPair.Run([&](RawPeer& p_cPeer) {
    const Bytes l_aView = Joined(ViewBlock(l_cView));
    p_cPeer.SendValue<uint32_t>(1);
    p_cPeer.SendValue<uint64_t>(l_aView.size());
    p_cPeer.SendFrame(l_aView);
    p_cPeer.SendValue<uint32_t>(0);
    l_nAck = p_cPeer.RecvValue<uint32_t>();
  });
  const unsigned int l_nResult = l_cModel.ReceiveModelViews();
  l_cPair.Join();
  EXPECT_EQ(l_nResult, 1u);
  EXPECT_EQ(l_nAck, 1u);
  EXPECT_EQ(l_nDeleted, 2);
  ASSERT_EQ(l_cModel.GetModelViews()->size(), 1u);
  ModelView* l_pcView = (*l_cModel.GetModelViews())[0];
  EXPECT_EQ(l_pcView->GetName(), wxT("new"));
  EXPECT_EQ(l_pcView->GetTitle(), wxT("fresh"));
  EXPECT_EQ(l_pcView->GetCurves()->size(), 1u);
  EXPECT_EQ(l_cModel.GetActiveView(), 0u);
}

TEST(ModelWire, PartialViewReceiveKeepsWhatArrivedAndStops) {
  LoopbackPair l_cPair;
  Model l_cModel(l_cPair.Socket(), wxT("m"), 1, 1);
  const ViewValues l_cView{"first", "", "", 1.0, {}};
  const Bytes l_aView = Joined(ViewBlock(l_cView));
  Bytes l_aAfter;
  l_cPair.Run([&](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint32_t>(3);
    p_cPeer.SendValue<uint64_t>(l_aView.size());
    p_cPeer.SendFrame(l_aView);
    HalfCloseAndListen(p_cPeer, l_aAfter);
  });
  const unsigned int l_nResult = l_cModel.ReceiveModelViews();
  l_cPair.Socket()->Close();
  l_cPair.Join();
  EXPECT_NE(l_nResult, 1u);
  // The complete view and the one whose read failed; no third view, no
  // active view read, no acknowledgement sent.
  ASSERT_EQ(l_cModel.GetModelViews()->size(), 2u);
  EXPECT_EQ((*l_cModel.GetModelViews())[0]->GetName(), wxT("first"));
  EXPECT_TRUE(l_aAfter.empty());
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()),
            ToHex(Bytes(1 + 1 + AcksOf(l_aView.size()), 0x61)));
}

// More views than the value limit can hold are refused as an allocation
// failure before the first is built; the views held so far stay.
TEST(ModelWire, HugeAnnouncedViewCountDoesNotAllocateAhead) {
  LogCapture l_cLog;
  LoopbackPair l_cPair;
  Model l_cModel(l_cPair.Socket(), wxT("m"), 1, 1);
  l_cModel.AddModelView(new quor::ModelView(wxT("held"), NULL));
  l_cPair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint32_t>(0xFFFFFFFFu);
    ::shutdown(p_cPeer.Fd(), SHUT_WR);
  });
  const unsigned int l_nResult = l_cModel.ReceiveModelViews();
  l_cPair.Join();
  EXPECT_EQ(l_nResult, FAILURE);
  ASSERT_EQ(l_cModel.GetModelViews()->size(), 1u);
  EXPECT_EQ((*l_cModel.GetModelViews())[0]->GetName(), wxT("held"));
  EXPECT_EQ(l_cLog.Texts(), std::vector<std::string>{"Error: cannot allocate memory"});
}

// Within the limit, a huge count still builds only the views that arrive.
TEST(ModelWire, LargeAnnouncedViewCountBuildsOnlyTheViewsThatArrive) {
  LoopbackPair l_cPair;
  Model l_cModel(l_cPair.Socket(), wxT("m"), 1, 1);
  l_cPair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint32_t>(1000);
    ::shutdown(p_cPeer.Fd(), SHUT_WR);
  });
  const unsigned int l_nResult = l_cModel.ReceiveModelViews();
  l_cPair.Join();
  EXPECT_NE(l_nResult, 1u);
  EXPECT_EQ(l_cModel.GetModelViews()->size(), 1u);  // the one whose read failed
}
