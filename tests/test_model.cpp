// SPDX-License-Identifier: MIT
// Model without a connection: the attribute schema and its defaults, the
// scalar accessors, names and arcs, types, markings and parameter values.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "log_capture.h"
#include "quor/attributeTransitionConnection.h"
#include "quor/attributeVector.h"
#include "quor/model.h"
#include "quor/modelView.h"

using quor::Model;
using quor_test::LogCapture;
using quor_test::LogLine;
using quor_test::ReportCapture;

namespace {

typedef std::vector<unsigned long long> Positions;

std::vector<wxString> Names(std::initializer_list<const char*> p_asNames) {
  std::vector<wxString> l_as;
  for (const char* l_s : p_asNames) l_as.push_back(wxString::FromUTF8(l_s));
  return l_as;
}

std::map<std::string, unsigned long long> Plain(
    const std::map<wxString, unsigned long long>& p_m) {
  std::map<std::string, unsigned long long> l_m;
  for (const auto& l_e : p_m) l_m[std::string(l_e.first.utf8_str())] = l_e.second;
  return l_m;
}

bool EndsWith(const std::string& p_s, const std::string& p_sEnd) {
  return p_s.size() >= p_sEnd.size() &&
         p_s.compare(p_s.size() - p_sEnd.size(), p_sEnd.size(), p_sEnd) == 0;
}

// True when a report of this file names the expression and the action.
bool HasPointerReport(const ReportCapture& p_cReports, const std::string& p_sExpression,
                      const std::string& p_sAction) {
  for (const std::string& l_s : p_cReports.Reports()) {
    if (l_s.rfind("pointer error in ../source/ds/model.cpp(", 0) == 0 &&
        EndsWith(l_s, "): " + p_sExpression + " is NULL, we " + p_sAction)) {
      return true;
    }
  }
  return false;
}

bool HasTryReport(const ReportCapture& p_cReports) {
  for (const std::string& l_s : p_cReports.Reports()) {
    if (l_s.rfind("Try error in ../source/ds/model.cpp(", 0) == 0 &&
        EndsWith(l_s, "), we return")) {
      return true;
    }
  }
  return false;
}

template <typename T>
T* Typed(Model& p_cModel, const char* p_sKey) {
  return dynamic_cast<T*>((*p_cModel.GetAttributeList())[wxString::FromUTF8(p_sKey)]);
}

// Swaps the attribute under a key for NULL for the lifetime of the object
// and puts it back afterwards, so that a test can run an operation on a
// model that lacks the attribute without leaking it.
class MissingAttribute {
 public:
  MissingAttribute(Model& p_cModel, const char* p_sKey)
      : m_cModel(p_cModel), m_sKey(wxString::FromUTF8(p_sKey)) {
    m_pcSaved = (*m_cModel.GetAttributeList())[m_sKey];
    (*m_cModel.GetAttributeList())[m_sKey] = NULL;
  }
  ~MissingAttribute() { (*m_cModel.GetAttributeList())[m_sKey] = m_pcSaved; }

 private:
  Model& m_cModel;
  wxString m_sKey;
  quor::Attribute* m_pcSaved;
};

// The one log line and the one report of a single-value change outside
// its list.
void ExpectOutOfRangeReported(LogCapture& p_cLog, const ReportCapture& p_cReports) {
  EXPECT_EQ(p_cLog.Records(),
            std::vector<LogLine>(
                {{1, "Error: Unexpected error while changing the parameter values"}}));
  EXPECT_EQ(p_cReports.Reports().size(), 1u);
  EXPECT_TRUE(HasTryReport(p_cReports));
}

}  // namespace

// Schema and defaults.

TEST(Model, SchemaHasTheTwentyTwoKeysWithTheirClasses) {
  Model l_cModel(NULL, wxT("net"), 3, 2);
  const std::map<std::string, unsigned int> l_mExpected = {
      {"MODEL_TYPE", 2},           {"MODEL_NAME", 0},
      {"TRANSITION_COUNT", 4},     {"PLACE_COUNT", 4},
      {"PLACE_NAMES", 11},         {"TRANSITION_NAMES", 11},
      {"TRANSITION_FUNCTIONS", 11}, {"PARAMETER_NAMES", 11},
      {"START_OUTPUT_POINT", 5},   {"END_OUTPUT_POINT", 5},
      {"SAMPLE_POINT_SIZE", 5},    {"CURRENT_ACTIVE_VIEW", 2},
      {"INITIAL_PARAM_VALUES", 7}, {"CURRENT_PARAM_VALUES", 7},
      {"INITIAL_MARKING", 7},      {"CURRENT_MARKING", 7},
      {"TRANSITION_TYPES", 8},     {"PLACE_TYPES", 8},
      {"STEERED_PARAM", 10},       {"STEERED_PLACES", 10},
      {"NET_TYPE", 2},             {"TRANSITION_CONNECTION", 15}};
  std::map<std::string, unsigned int> l_mActual;
  for (const auto& l_e : *l_cModel.GetAttributeList()) {
    ASSERT_NE(l_e.second, nullptr) << l_e.first;
    l_mActual[std::string(l_e.first.utf8_str())] = l_e.second->GetAttributeType();
    // Every attribute is registered under its own name.
    EXPECT_EQ(l_e.second->GetName(), l_e.first);
  }
  EXPECT_EQ(l_mActual, l_mExpected);
}

TEST(Model, ConstructorFillsTheListsFromTheCounts) {
  Model l_cModel(NULL, wxT("net"), 3, 2);  // 3 transitions, 2 places
  EXPECT_EQ(l_cModel.GetTransitionCount(), 3u);
  EXPECT_EQ(l_cModel.GetPlaceCount(), 2u);
  EXPECT_EQ(l_cModel.GetAttributeValueVectorString(wxT("TRANSITION_FUNCTIONS")),
            Names({"0", "0", "0"}));
  EXPECT_EQ(*l_cModel.GetInitialMarking(), std::vector<double>({0.0, 0.0}));
  EXPECT_EQ(*l_cModel.GetCurrentMarking(), std::vector<double>({0.0, 0.0}));
  EXPECT_EQ(*l_cModel.GetTransitionTypes(), std::vector<int>({0, 0, 0}));
  EXPECT_EQ(*l_cModel.GetPlaceType(), std::vector<int>({0, 0}));
  ASSERT_EQ(l_cModel.GetTransitions()->size(), 3u);
  for (const quor::Transitions& l_cRecord : *l_cModel.GetTransitions()) {
    EXPECT_TRUE(l_cRecord.m_anPrePlacePositions.empty());
    EXPECT_TRUE(l_cRecord.m_anPostPlacePositions.empty());
    EXPECT_TRUE(l_cRecord.m_acPreConnections.empty());
    EXPECT_TRUE(l_cRecord.m_acPostConnections.empty());
  }
  for (const char* l_sKey : {"PLACE_NAMES", "TRANSITION_NAMES", "PARAMETER_NAMES"}) {
    EXPECT_TRUE(l_cModel.GetAttributeValueVectorString(wxString::FromUTF8(l_sKey)).empty())
        << l_sKey;
  }
  EXPECT_TRUE(Typed<quor::AttributeVectorDouble>(l_cModel, "INITIAL_PARAM_VALUES")
                  ->GetValue().empty());
  EXPECT_TRUE(Typed<quor::AttributeVectorDouble>(l_cModel, "CURRENT_PARAM_VALUES")
                  ->GetValue().empty());
  EXPECT_TRUE(Typed<quor::AttributeVectorULong>(l_cModel, "STEERED_PARAM")->GetValue().empty());
  EXPECT_TRUE(Typed<quor::AttributeVectorULong>(l_cModel, "STEERED_PLACES")->GetValue().empty());
  EXPECT_TRUE(l_cModel.GetModelViews()->empty());
  EXPECT_TRUE(l_cModel.GetPlaceName2Position().empty());
  EXPECT_TRUE(l_cModel.GetTransitionName2Position().empty());
}

TEST(Model, ScalarDefaults) {
  Model l_cModel(NULL, wxT("net"), 3, 2);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("END_OUTPUT_POINT")), 100.0);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("SAMPLE_POINT_SIZE")), 1.0);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("START_OUTPUT_POINT")), 0.0);
  EXPECT_EQ(l_cModel.GetModelType(), 0u);
  EXPECT_EQ(l_cModel.GetActiveView(), 0u);
  EXPECT_EQ(l_cModel.GetAttributeValueUInt(wxT("NET_TYPE")), 0u);
  EXPECT_EQ(l_cModel.GetModelName(), wxT("net"));
}

TEST(Model, ElementCountsAreTheLowThirtyTwoBitsOfTheCounts) {
  // 2^32 + 2 transitions and 2^32 + 1 places: the lists get 2 and 1
  // elements, while the count attributes keep the full numbers.
  const unsigned long long l_nTransitions = 0x100000002ull;
  const unsigned long long l_nPlaces = 0x100000001ull;
  Model l_cModel(NULL, wxT("net"), l_nTransitions, l_nPlaces);
  EXPECT_EQ(l_cModel.GetTransitionCount(), l_nTransitions);
  EXPECT_EQ(l_cModel.GetPlaceCount(), l_nPlaces);
  EXPECT_EQ(l_cModel.GetTransitions()->size(), 2u);
  EXPECT_EQ(l_cModel.GetTransitionTypes()->size(), 2u);
  EXPECT_EQ(l_cModel.GetAttributeValueVectorString(wxT("TRANSITION_FUNCTIONS")).size(), 2u);
  EXPECT_EQ(l_cModel.GetInitialMarking()->size(), 1u);
  EXPECT_EQ(l_cModel.GetPlaceType()->size(), 1u);
}

TEST(Model, ScalarAccessorsWriteTheirAttributes) {
  Model l_cModel(NULL, wxT("net"), 1, 1);
  l_cModel.SetModelName(wxT("renamed"));
  l_cModel.SetActiveView(7);
  l_cModel.SetOutputStartPoint(2.5);
  l_cModel.SetOutputEndPoint(50.0);
  l_cModel.SetOutputSamplingSize(0.25);
  EXPECT_EQ(l_cModel.GetModelName(), wxT("renamed"));
  EXPECT_EQ(l_cModel.GetAttributeValueString(wxT("MODEL_NAME")), wxT("renamed"));
  EXPECT_EQ(l_cModel.GetActiveView(), 7u);
  EXPECT_EQ(l_cModel.GetAttributeValueUInt(wxT("CURRENT_ACTIVE_VIEW")), 7u);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("START_OUTPUT_POINT")), 2.5);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("END_OUTPUT_POINT")), 50.0);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("SAMPLE_POINT_SIZE")), 0.25);
}

TEST(Model, TransitionsPointsIntoTheConnectionAttribute) {
  Model l_cModel(NULL, wxT("net"), 2, 2);
  quor::AttributeTransitionConnection* l_pcArcs =
      Typed<quor::AttributeTransitionConnection>(l_cModel, "TRANSITION_CONNECTION");
  ASSERT_NE(l_pcArcs, nullptr);
  EXPECT_EQ(l_cModel.GetTransitions(), &l_pcArcs->GetValue());
  l_cModel.SetTransitionPreConnection(1, 0, quor::CONNECTION_STANDARD_ARC, 2.0);
  EXPECT_EQ(l_pcArcs->GetValue()[1].m_anPrePlacePositions, Positions({0}));
}

// Views.

namespace {
// A view that counts its destruction.
class CountingView : public quor::ModelView {
 public:
  explicit CountingView(int* p_pnDeleted) : ModelView(wxT("v"), NULL), m_pnDeleted(p_pnDeleted) {}
  ~CountingView() override { ++*m_pnDeleted; }

 private:
  int* m_pnDeleted;
};
}  // namespace

TEST(Model, AddModelViewAppendsAndTheModelDeletesItsViews) {
  int l_nDeleted = 0;
  {
    Model l_cModel(NULL, wxT("net"), 1, 1);
    quor::ModelView* l_pcFirst = new CountingView(&l_nDeleted);
    quor::ModelView* l_pcSecond = new CountingView(&l_nDeleted);
    l_cModel.AddModelView(l_pcFirst);
    l_cModel.AddModelView(l_pcSecond);
    ASSERT_EQ(l_cModel.GetModelViews()->size(), 2u);
    EXPECT_EQ((*l_cModel.GetModelViews())[0], l_pcFirst);
    EXPECT_EQ((*l_cModel.GetModelViews())[1], l_pcSecond);
    EXPECT_EQ(l_nDeleted, 0);
  }
  EXPECT_EQ(l_nDeleted, 2);
}

TEST(Model, AddModelViewIgnoresNull) {
  Model l_cModel(NULL, wxT("net"), 1, 1);
  l_cModel.AddModelView(NULL);
  EXPECT_TRUE(l_cModel.GetModelViews()->empty());
}

TEST(Model, DestructorSkipsNullSlots) {
  int l_nDeleted = 0;
  {
    Model l_cModel(NULL, wxT("net"), 1, 1);
    l_cModel.GetModelViews()->push_back(NULL);
    l_cModel.AddModelView(new CountingView(&l_nDeleted));
  }
  EXPECT_EQ(l_nDeleted, 1);
}

// Names and positions.

TEST(ModelNames, SetPlaceNamesStoresTheListAndMapsPositions) {
  Model l_cModel(NULL, wxT("net"), 1, 3);
  l_cModel.SetPlaceNames(Names({"p0", "p1", "p2"}));
  EXPECT_EQ(l_cModel.GetAttributeValueVectorString(wxT("PLACE_NAMES")), Names({"p0", "p1", "p2"}));
  EXPECT_EQ(Plain(l_cModel.GetPlaceName2Position()),
            (std::map<std::string, unsigned long long>{{"p0", 0}, {"p1", 1}, {"p2", 2}}));
  EXPECT_TRUE(l_cModel.GetTransitionName2Position().empty());
}

TEST(ModelNames, SetTransitionNamesStoresTheListAndMapsPositions) {
  Model l_cModel(NULL, wxT("net"), 2, 1);
  l_cModel.SetTransitionNames(Names({"t0", "t1"}));
  EXPECT_EQ(l_cModel.GetAttributeValueVectorString(wxT("TRANSITION_NAMES")), Names({"t0", "t1"}));
  EXPECT_EQ(Plain(l_cModel.GetTransitionName2Position()),
            (std::map<std::string, unsigned long long>{{"t0", 0}, {"t1", 1}}));
  EXPECT_TRUE(l_cModel.GetPlaceName2Position().empty());
}

TEST(ModelNames, RepeatedNameKeepsItsFirstPosition) {
  Model l_cModel(NULL, wxT("net"), 1, 3);
  l_cModel.SetPlaceNames(Names({"a", "b", "a"}));
  EXPECT_EQ(Plain(l_cModel.GetPlaceName2Position()),
            (std::map<std::string, unsigned long long>{{"a", 0}, {"b", 1}}));
  EXPECT_EQ(l_cModel.GetAttributeValueVectorString(wxT("PLACE_NAMES")), Names({"a", "b", "a"}));
}

TEST(ModelNames, SecondListOnlyAddsNamesNotYetMapped) {
  Model l_cModel(NULL, wxT("net"), 1, 2);
  l_cModel.SetPlaceNames(Names({"a", "b"}));
  l_cModel.SetPlaceNames(Names({"b", "c"}));
  EXPECT_EQ(Plain(l_cModel.GetPlaceName2Position()),
            (std::map<std::string, unsigned long long>{{"a", 0}, {"b", 1}, {"c", 1}}));
  EXPECT_EQ(l_cModel.GetAttributeValueVectorString(wxT("PLACE_NAMES")), Names({"b", "c"}));
}

TEST(ModelNames, NamesAreNotComparedWithTheCounts) {
  Model l_cModel(NULL, wxT("net"), 1, 1);
  l_cModel.SetPlaceNames(Names({"a", "b", "c"}));
  EXPECT_EQ(l_cModel.GetPlaceCount(), 1u);
  EXPECT_EQ(l_cModel.GetPlaceName2Position().size(), 3u);
}

TEST(ModelNames, MapNames2PositionsFillsBothMapsOnly) {
  Model l_cModel(NULL, wxT("net"), 2, 2);
  l_cModel.MapNames2Positions(Names({"p0", "p1"}), Names({"t0", "t1"}));
  EXPECT_EQ(Plain(l_cModel.GetPlaceName2Position()),
            (std::map<std::string, unsigned long long>{{"p0", 0}, {"p1", 1}}));
  EXPECT_EQ(Plain(l_cModel.GetTransitionName2Position()),
            (std::map<std::string, unsigned long long>{{"t0", 0}, {"t1", 1}}));
  // The name lists of the model are not touched.
  EXPECT_TRUE(l_cModel.GetAttributeValueVectorString(wxT("PLACE_NAMES")).empty());
  EXPECT_TRUE(l_cModel.GetAttributeValueVectorString(wxT("TRANSITION_NAMES")).empty());
}

// Arcs.

TEST(ModelArcs, PreAndPostConnectionsGoToTheirRecord) {
  Model l_cModel(NULL, wxT("net"), 2, 3);
  l_cModel.SetTransitionPreConnection(1, 2, quor::CONNECTION_INHIBITOR_ARC, 4.5);
  l_cModel.SetTransitionPostConnection(1, 0, 1.5);
  const quor::Transitions& l_cRecord = (*l_cModel.GetTransitions())[1];
  EXPECT_EQ(l_cRecord.m_anPrePlacePositions, Positions({2}));
  ASSERT_EQ(l_cRecord.m_acPreConnections.size(), 1u);
  EXPECT_EQ(l_cRecord.m_acPreConnections[0].type, quor::CONNECTION_INHIBITOR_ARC);
  EXPECT_EQ(l_cRecord.m_acPreConnections[0].weight, 4.5);
  EXPECT_EQ(l_cRecord.m_anPostPlacePositions, Positions({0}));
  ASSERT_EQ(l_cRecord.m_acPostConnections.size(), 1u);
  EXPECT_EQ(l_cRecord.m_acPostConnections[0].weight, 1.5);
  EXPECT_TRUE((*l_cModel.GetTransitions())[0].m_anPrePlacePositions.empty());
  EXPECT_EQ(l_cModel.GetTransitionPrePlaces(1), Positions({2}));
  EXPECT_EQ(l_cModel.GetTransitionPostPlaces(1), Positions({0}));
  EXPECT_TRUE(l_cModel.GetTransitionPrePlaces(0).empty());
}

TEST(ModelArcs, TransitionPositionEqualToTheCountIsIgnored) {
  Model l_cModel(NULL, wxT("net"), 3, 2);
  // 3 passes the bound of the setters but names no record: ignored, and
  // nothing outside the three records is touched.
  l_cModel.SetTransitionPreConnection(3, 0, quor::CONNECTION_STANDARD_ARC, 1.0);
  l_cModel.SetTransitionPostConnection(3, 0, 1.0);
  EXPECT_TRUE(l_cModel.GetTransitionPrePlaces(3).empty());
  EXPECT_TRUE(l_cModel.GetTransitionPostPlaces(3).empty());
  // 4 fails the bound.
  l_cModel.SetTransitionPreConnection(4, 0, quor::CONNECTION_STANDARD_ARC, 1.0);
  ASSERT_EQ(l_cModel.GetTransitions()->size(), 3u);
  for (const quor::Transitions& l_cRecord : *l_cModel.GetTransitions()) {
    EXPECT_TRUE(l_cRecord.m_anPrePlacePositions.empty());
    EXPECT_TRUE(l_cRecord.m_acPreConnections.empty());
    EXPECT_TRUE(l_cRecord.m_anPostPlacePositions.empty());
    EXPECT_TRUE(l_cRecord.m_acPostConnections.empty());
  }
}

TEST(ModelArcs, PlaceBoundAdmitsThePlaceCount) {
  Model l_cModel(NULL, wxT("net"), 1, 2);
  // The setters test the place strictly greater than the count: 2 of 2
  // places is accepted, 3 is not.
  l_cModel.SetTransitionPreConnection(0, 2, quor::CONNECTION_STANDARD_ARC, 1.0);
  l_cModel.SetTransitionPreConnection(0, 3, quor::CONNECTION_STANDARD_ARC, 1.0);
  l_cModel.SetTransitionPostConnection(0, 2, 1.0);
  l_cModel.SetTransitionPostConnection(0, 3, 1.0);
  EXPECT_EQ(l_cModel.GetTransitionPrePlaces(0), Positions({2}));
  EXPECT_EQ(l_cModel.GetTransitionPostPlaces(0), Positions({2}));
}

TEST(ModelArcs, ReceivedCountLargerThanTheRecordsIsSafe) {
  Model l_cModel(NULL, wxT("net"), 2, 2);
  // A model whose count says more transitions than it has records (as a
  // peer may send): positions without a record are ignored and read empty.
  l_cModel.SetTransitions(std::vector<quor::Transitions>(1));
  l_cModel.SetTransitionPreConnection(1, 0, quor::CONNECTION_STANDARD_ARC, 1.0);
  EXPECT_EQ(l_cModel.GetTransitions()->size(), 1u);
  EXPECT_TRUE(l_cModel.GetTransitionPrePlaces(1).empty());
}

TEST(ModelArcs, UnknownTransitionNameMapsToPositionZero) {
  Model l_cModel(NULL, wxT("net"), 2, 2);
  l_cModel.SetPlaceNames(Names({"p0", "p1"}));
  l_cModel.SetTransitionNames(Names({"ta", "tb"}));
  l_cModel.SetTransitionPreConnection(wxT("t9"), wxT("p1"), quor::CONNECTION_READ_ARC, 2.0);
  EXPECT_EQ(Plain(l_cModel.GetTransitionName2Position()),
            (std::map<std::string, unsigned long long>{{"t9", 0}, {"ta", 0}, {"tb", 1}}));
  EXPECT_EQ(l_cModel.GetTransitionPrePlaces(0), Positions({1}));
  EXPECT_EQ((*l_cModel.GetTransitions())[0].m_acPreConnections[0].type,
            quor::CONNECTION_READ_ARC);
  EXPECT_TRUE(l_cModel.GetTransitionPrePlaces(1).empty());
}

TEST(ModelArcs, UnknownPlaceNameMapsToPositionZero) {
  Model l_cModel(NULL, wxT("net"), 2, 2);
  l_cModel.SetTransitionNames(Names({"ta", "tb"}));
  l_cModel.SetTransitionPostConnection(wxT("tb"), wxT("nowhere"), 3.0);
  EXPECT_EQ(Plain(l_cModel.GetPlaceName2Position()),
            (std::map<std::string, unsigned long long>{{"nowhere", 0}}));
  EXPECT_EQ(l_cModel.GetTransitionPostPlaces(1), Positions({0}));
}

TEST(ModelArcs, NamedFormsUseTheMaps) {
  Model l_cModel(NULL, wxT("net"), 2, 3);
  l_cModel.SetPlaceNames(Names({"p0", "p1", "p2"}));
  l_cModel.SetTransitionNames(Names({"t0", "t1"}));
  l_cModel.SetTransitionPreConnection(wxT("t1"), wxT("p2"), quor::CONNECTION_STANDARD_ARC, 1.0);
  l_cModel.SetTransitionPostConnection(wxT("t1"), wxT("p1"), 2.0);
  EXPECT_EQ(l_cModel.GetTransitionPrePlaces(1), Positions({2}));
  EXPECT_EQ(l_cModel.GetTransitionPostPlaces(1), Positions({1}));
  EXPECT_EQ((*l_cModel.GetTransitions())[1].m_acPostConnections[0].weight, 2.0);
}

TEST(ModelArcs, RepeatedPostConnectionAddsAParallelStandardArc) {
  Model l_cModel(NULL, wxT("net"), 1, 2);
  l_cModel.SetTransitionPostConnection(0, 1, 2.5);
  l_cModel.SetTransitionPostConnection(0, 1, 2.5);
  const quor::Transitions& l_cRecord = (*l_cModel.GetTransitions())[0];
  EXPECT_EQ(l_cRecord.m_anPostPlacePositions, Positions({1, 1}));
  ASSERT_EQ(l_cRecord.m_acPostConnections.size(), 2u);
  for (const quor::PlaceTransitionConnection& l_cArc : l_cRecord.m_acPostConnections) {
    EXPECT_EQ(static_cast<int>(l_cArc.type), 2);
    EXPECT_EQ(l_cArc.weight, 2.5);
  }
  EXPECT_TRUE(l_cRecord.m_acPreConnections.empty());
}

TEST(ModelArcs, ArcsChangeNoCount) {
  Model l_cModel(NULL, wxT("net"), 1, 2);
  l_cModel.SetTransitionPreConnection(0, 1, quor::CONNECTION_STANDARD_ARC, 1.0);
  EXPECT_EQ(l_cModel.GetTransitionCount(), 1u);
  EXPECT_EQ(l_cModel.GetPlaceCount(), 2u);
  EXPECT_EQ(l_cModel.GetTransitions()->size(), 1u);
}

TEST(ModelArcs, ReadersUseTheStrictBound) {
  Model l_cModel(NULL, wxT("net"), 2, 2);
  EXPECT_TRUE(l_cModel.GetTransitionPrePlaces(2).empty());
  EXPECT_TRUE(l_cModel.GetTransitionPostPlaces(2).empty());
  EXPECT_TRUE(l_cModel.GetTransitionPrePlaces(~0ull).empty());
}

TEST(ModelArcs, ReadersReturnCopies) {
  Model l_cModel(NULL, wxT("net"), 1, 2);
  l_cModel.SetTransitionPreConnection(0, 1, quor::CONNECTION_STANDARD_ARC, 1.0);
  Positions l_anCopy = l_cModel.GetTransitionPrePlaces(0);
  l_anCopy.push_back(9);
  EXPECT_EQ(l_cModel.GetTransitionPrePlaces(0), Positions({1}));
}

TEST(ModelArcs, SetTransitionsReplacesTheListInPlace) {
  Model l_cModel(NULL, wxT("net"), 2, 2);
  std::vector<quor::Transitions>* l_paBefore = l_cModel.GetTransitions();
  std::vector<quor::Transitions> l_aArcs(3);
  l_aArcs[2].m_anPrePlacePositions = {1};
  l_aArcs[2].m_acPreConnections = {{quor::CONNECTION_RESET_ARC, 0.5}};
  l_cModel.SetTransitions(l_aArcs);
  EXPECT_EQ(l_cModel.GetTransitions(), l_paBefore);
  ASSERT_EQ(l_cModel.GetTransitions()->size(), 3u);
  EXPECT_EQ((*l_cModel.GetTransitions())[2].m_anPrePlacePositions, Positions({1}));
  EXPECT_EQ(Typed<quor::AttributeTransitionConnection>(l_cModel, "TRANSITION_CONNECTION")
                ->GetValue()[2].m_acPreConnections[0].type,
            quor::CONNECTION_RESET_ARC);
}

TEST(ModelArcs, SetTransitionsWithoutTheAttributeReports) {
  Model l_cModel(NULL, wxT("net"), 2, 2);
  ReportCapture l_cReports;
  {
    MissingAttribute l_cMissing(l_cModel, "TRANSITION_CONNECTION");
    l_cModel.SetTransitions(std::vector<quor::Transitions>(5));
  }
  EXPECT_TRUE(HasPointerReport(l_cReports, "l_pcAttribute", "return"));
  EXPECT_EQ(l_cModel.GetTransitions()->size(), 2u);
}

// Types.

TEST(ModelTypes, PlaceAndTransitionTypesAreStoredAsCodes) {
  Model l_cModel(NULL, wxT("net"), 3, 2);
  l_cModel.SetPlaceTypes({quor::PLACE_CONTINUOUS, quor::PLACE_DISCRETE});
  l_cModel.SetTransitionTypes(
      {quor::TRANSITION_IMMEDIATE, quor::TRANSITION_CONTINUOUS, quor::TRANSITION_SCHEDULED});
  EXPECT_EQ(*l_cModel.GetPlaceType(), std::vector<int>({1, 0}));
  EXPECT_EQ(*l_cModel.GetTransitionTypes(), std::vector<int>({2, 1, 4}));
  l_cModel.SetTransitionType(1, quor::TRANSITION_DETERMINISTIC);
  EXPECT_EQ(*l_cModel.GetTransitionTypes(), std::vector<int>({2, 3, 4}));
}

TEST(ModelTypes, GettersReturnTheLiveLists) {
  Model l_cModel(NULL, wxT("net"), 1, 1);
  l_cModel.GetPlaceType()->push_back(1);
  EXPECT_EQ(Typed<quor::AttributeVectorInt>(l_cModel, "PLACE_TYPES")->GetValue(),
            std::vector<int>({0, 1}));
  EXPECT_EQ(l_cModel.GetTransitionTypes(),
            &Typed<quor::AttributeVectorInt>(l_cModel, "TRANSITION_TYPES")->GetValue());
}

TEST(ModelTypes, SetTransitionTypeOutOfRangeIsIgnored) {
  Model l_cModel(NULL, wxT("net"), 2, 1);
  l_cModel.SetTransitionType(2, quor::TRANSITION_IMMEDIATE);
  l_cModel.SetTransitionType(~0ull, quor::TRANSITION_IMMEDIATE);
  EXPECT_EQ(*l_cModel.GetTransitionTypes(), std::vector<int>({0, 0}));
}

TEST(ModelTypes, TypeListsMayHaveAnyLength) {
  Model l_cModel(NULL, wxT("net"), 2, 2);
  l_cModel.SetPlaceTypes({quor::PLACE_CONTINUOUS});
  EXPECT_EQ(*l_cModel.GetPlaceType(), std::vector<int>({1}));
}

TEST(ModelTypes, MissingTypeListsAreLeftAloneAndReadAsNull) {
  Model l_cModel(NULL, wxT("net"), 2, 2);
  MissingAttribute l_cPlaces(l_cModel, "PLACE_TYPES");
  MissingAttribute l_cTransitions(l_cModel, "TRANSITION_TYPES");
  l_cModel.SetPlaceTypes({quor::PLACE_CONTINUOUS});
  l_cModel.SetTransitionTypes({quor::TRANSITION_IMMEDIATE});
  l_cModel.SetTransitionType(0, quor::TRANSITION_IMMEDIATE);
  EXPECT_EQ(l_cModel.GetPlaceType(), nullptr);
  EXPECT_EQ(l_cModel.GetTransitionTypes(), nullptr);
}

// Markings and parameters.

TEST(ModelMarking, InitialMarkingSetsBothLists) {
  Model l_cModel(NULL, wxT("net"), 1, 3);
  l_cModel.SetInitialMarking({1, 2});
  EXPECT_EQ(*l_cModel.GetInitialMarking(), std::vector<double>({1, 2}));
  EXPECT_EQ(*l_cModel.GetCurrentMarking(), std::vector<double>({1, 2}));
}

TEST(ModelMarking, CurrentMarkingLeavesTheInitialOne) {
  Model l_cModel(NULL, wxT("net"), 1, 3);
  l_cModel.SetInitialMarking({1, 2, 3});
  l_cModel.SetCurrentMarking({5, 5, 5});
  EXPECT_EQ(*l_cModel.GetInitialMarking(), std::vector<double>({1, 2, 3}));
  EXPECT_EQ(*l_cModel.GetCurrentMarking(), std::vector<double>({5, 5, 5}));
  l_cModel.ResetCurrentMarking();
  EXPECT_EQ(*l_cModel.GetCurrentMarking(), std::vector<double>({1, 2, 3}));
  EXPECT_EQ(*l_cModel.GetInitialMarking(), std::vector<double>({1, 2, 3}));
}

TEST(ModelMarking, ResetTakesTheInitialLength) {
  Model l_cModel(NULL, wxT("net"), 1, 3);
  l_cModel.SetCurrentMarking({5, 5, 5, 5, 5});
  l_cModel.ResetCurrentMarking();
  EXPECT_EQ(*l_cModel.GetCurrentMarking(), std::vector<double>({0, 0, 0}));
}

TEST(ModelMarking, GettersReturnTheLiveLists) {
  Model l_cModel(NULL, wxT("net"), 1, 2);
  l_cModel.GetCurrentMarking()->at(1) = 8.0;
  EXPECT_EQ(Typed<quor::AttributeVectorDouble>(l_cModel, "CURRENT_MARKING")->GetValue(),
            std::vector<double>({0, 8}));
  EXPECT_EQ(l_cModel.GetInitialMarking(),
            &Typed<quor::AttributeVectorDouble>(l_cModel, "INITIAL_MARKING")->GetValue());
}

TEST(ModelMarking, SetMarkingValueChangesOnlyTheCurrentEntry) {
  Model l_cModel(NULL, wxT("net"), 1, 3);
  l_cModel.SetInitialMarking({1, 1, 1});
  l_cModel.SetMarkingValue(2, 4.0);
  EXPECT_EQ(*l_cModel.GetCurrentMarking(), std::vector<double>({1, 1, 4}));
  EXPECT_EQ(*l_cModel.GetInitialMarking(), std::vector<double>({1, 1, 1}));
}

TEST(ModelMarking, SetMarkingValueOutOfRangeLogsTheParameterMessage) {
  Model l_cModel(NULL, wxT("net"), 1, 3);
  LogCapture l_cLog;
  ReportCapture l_cReports;
  l_cModel.SetMarkingValue(3, 4.0);
  ExpectOutOfRangeReported(l_cLog, l_cReports);
  EXPECT_EQ(*l_cModel.GetCurrentMarking(), std::vector<double>({0, 0, 0}));
}

TEST(ModelParameters, SetParameterValueOnEmptyListLogsAndChangesNothing) {
  Model l_cModel(NULL, wxT("net"), 1, 1);
  LogCapture l_cLog;
  ReportCapture l_cReports;
  l_cModel.SetParameterValue(0, 1.5);
  ExpectOutOfRangeReported(l_cLog, l_cReports);
  EXPECT_TRUE(Typed<quor::AttributeVectorDouble>(l_cModel, "CURRENT_PARAM_VALUES")
                  ->GetValue().empty());
}

TEST(ModelParameters, InitialValuesSetBothListsAndDiscardSingleChanges) {
  Model l_cModel(NULL, wxT("net"), 1, 1);
  quor::AttributeVectorDouble* l_pcInitial =
      Typed<quor::AttributeVectorDouble>(l_cModel, "INITIAL_PARAM_VALUES");
  quor::AttributeVectorDouble* l_pcCurrent =
      Typed<quor::AttributeVectorDouble>(l_cModel, "CURRENT_PARAM_VALUES");
  LogCapture l_cLog;
  l_cModel.SetInitialParameterValues({1, 2});
  l_cModel.SetParameterValue(1, 9.0);
  EXPECT_EQ(l_pcCurrent->GetValue(), std::vector<double>({1, 9}));
  EXPECT_EQ(l_pcInitial->GetValue(), std::vector<double>({1, 2}));
  l_cModel.SetInitialParameterValues({3, 4});
  EXPECT_EQ(l_pcCurrent->GetValue(), std::vector<double>({3, 4}));
  EXPECT_EQ(l_pcInitial->GetValue(), std::vector<double>({3, 4}));
  EXPECT_TRUE(l_cLog.Records().empty());
}

TEST(ModelParameters, CurrentValuesAndReset) {
  Model l_cModel(NULL, wxT("net"), 1, 1);
  quor::AttributeVectorDouble* l_pcCurrent =
      Typed<quor::AttributeVectorDouble>(l_cModel, "CURRENT_PARAM_VALUES");
  l_cModel.SetInitialParameterValues({1, 2});
  l_cModel.SetCurrentParameterValues({7, 8, 9});
  EXPECT_EQ(l_pcCurrent->GetValue(), std::vector<double>({7, 8, 9}));
  l_cModel.ResetParameterValues();
  EXPECT_EQ(l_pcCurrent->GetValue(), std::vector<double>({1, 2}));
}

TEST(ModelParameters, ResetsReportAMissingList) {
  Model l_cModel(NULL, wxT("net"), 1, 2);
  l_cModel.SetCurrentMarking({3, 3});
  ReportCapture l_cReports;
  {
    MissingAttribute l_cMissing(l_cModel, "INITIAL_MARKING");
    l_cModel.ResetCurrentMarking();
  }
  EXPECT_TRUE(HasPointerReport(l_cReports, "l_pcAttribute1", "return"));
  l_cReports.Clear();
  {
    MissingAttribute l_cMissing(l_cModel, "CURRENT_PARAM_VALUES");
    l_cModel.ResetParameterValues();
  }
  EXPECT_TRUE(HasPointerReport(l_cReports, "l_pcAttribute2", "return"));
  EXPECT_EQ(*l_cModel.GetCurrentMarking(), std::vector<double>({3, 3}));
}

TEST(ModelParameters, SingleValueOnAMissingListReports) {
  Model l_cModel(NULL, wxT("net"), 1, 2);
  LogCapture l_cLog;
  ReportCapture l_cReports;
  {
    MissingAttribute l_cMissing(l_cModel, "CURRENT_MARKING");
    l_cModel.SetMarkingValue(0, 1.0);
  }
  EXPECT_TRUE(HasPointerReport(l_cReports, "l_pcAttribute", "return"));
  EXPECT_TRUE(l_cLog.Records().empty());
}

TEST(ModelParameters, WholeListSettersSkipMissingLists) {
  Model l_cModel(NULL, wxT("net"), 1, 2);
  {
    MissingAttribute l_cMissing(l_cModel, "INITIAL_MARKING");
    l_cModel.SetInitialMarking({4, 4});
    EXPECT_EQ(l_cModel.GetInitialMarking(), nullptr);
  }
  EXPECT_EQ(*l_cModel.GetInitialMarking(), std::vector<double>({0, 0}));
  EXPECT_EQ(*l_cModel.GetCurrentMarking(), std::vector<double>({4, 4}));
  {
    MissingAttribute l_cMissing(l_cModel, "CURRENT_PARAM_VALUES");
    l_cModel.SetInitialParameterValues({1});
    l_cModel.SetCurrentParameterValues({2});
  }
  EXPECT_EQ(Typed<quor::AttributeVectorDouble>(l_cModel, "INITIAL_PARAM_VALUES")->GetValue(),
            std::vector<double>({1}));
  EXPECT_TRUE(Typed<quor::AttributeVectorDouble>(l_cModel, "CURRENT_PARAM_VALUES")
                  ->GetValue().empty());
}

TEST(ModelParameters, SteeredListsUseTheGenericAccessors) {
  Model l_cModel(NULL, wxT("net"), 1, 4);
  quor::AttributeVectorULong* l_pcPlaces =
      dynamic_cast<quor::AttributeVectorULong*>(l_cModel.GetAttribute(wxT("STEERED_PLACES")));
  ASSERT_NE(l_pcPlaces, nullptr);
  l_pcPlaces->SetValue({0, 3});
  EXPECT_EQ(Typed<quor::AttributeVectorULong>(l_cModel, "STEERED_PLACES")->GetValue(),
            Positions({0, 3}));
}
