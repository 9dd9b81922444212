// SPDX-License-Identifier: MIT
// The simulation server's pieces without a connection: the model of a net,
// the net of an uploaded model, the loading of nets from files, model
// names, simulator names and the command line.
#include <gtest/gtest.h>

#include <vector>

#include "quor/attributeVector.h"
#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/resultMatrixInfo.h"
#include "simcore/builtinModels.h"
#include "simcore/pnmlLoader.h"
#include "simd/netModel.h"
#include "simd/simdCommon.h"
#include "simd/simdOptions.h"
#include "simd_test_util.h"

using namespace quor;
using namespace quor::simd;
using simd_test::TempFile;
using simd_test::Text;
using simd_test::Matrix;

namespace {

std::vector<std::string> Texts(const std::vector<wxString>& p_asTexts) {
  std::vector<std::string> l_asResult;
  for (const wxString& l_s : p_asTexts) l_asResult.push_back(Text(l_s));
  return l_asResult;
}

std::vector<double> Doubles(Model& p_rModel, const wxChar* p_sKey) {
  return dynamic_cast<AttributeVectorDouble*>(p_rModel.GetAttribute(p_sKey))->GetValue();
}

const char* const BROKEN_PNML = "<?xml version=\"1.0\"?>\n<pnml><net id=\"n\"";

}  // namespace

TEST(NetModel, SirNetBecomesAModelWithNamesValuesArcsAndOneView) {
  std::unique_ptr<Model> l_pcModel(NetToModel(sim::SirNet(), wxT("SIR")));
  Model& m = *l_pcModel;
  EXPECT_EQ(Text(m.GetModelName()), "SIR");
  EXPECT_EQ(m.GetPlaceCount(), 3u);
  EXPECT_EQ(m.GetTransitionCount(), 2u);
  EXPECT_EQ(Texts(m.GetAttributeValueVectorString(wxT("PLACE_NAMES"))),
            (std::vector<std::string>{"S", "I", "R"}));
  EXPECT_EQ(Texts(m.GetAttributeValueVectorString(wxT("TRANSITION_NAMES"))),
            (std::vector<std::string>{"infection", "recovery"}));
  EXPECT_EQ(Texts(m.GetAttributeValueVectorString(wxT("PARAMETER_NAMES"))),
            (std::vector<std::string>{"beta", "gamma"}));
  EXPECT_EQ(Texts(m.GetAttributeValueVectorString(wxT("TRANSITION_FUNCTIONS"))),
            (std::vector<std::string>{"beta", "gamma"}));
  EXPECT_EQ(Doubles(m, wxT("INITIAL_MARKING")), (std::vector<double>{990, 10, 0}));
  EXPECT_EQ(Doubles(m, wxT("CURRENT_MARKING")), (std::vector<double>{990, 10, 0}));
  EXPECT_EQ(Doubles(m, wxT("INITIAL_PARAM_VALUES")), (std::vector<double>{0.0003, 0.1}));
  EXPECT_EQ(Doubles(m, wxT("CURRENT_PARAM_VALUES")), (std::vector<double>{0.0003, 0.1}));
  EXPECT_EQ(m.GetAttributeValueDouble(wxT("START_OUTPUT_POINT")), 0.0);
  EXPECT_EQ(m.GetAttributeValueDouble(wxT("END_OUTPUT_POINT")), 50.0);
  EXPECT_EQ(m.GetAttributeValueDouble(wxT("SAMPLE_POINT_SIZE")), 0.25);

  // infection: S + I -> 2 I; recovery: I -> R.
  std::vector<Transitions>& l_rArcs = *m.GetTransitions();
  ASSERT_EQ(l_rArcs.size(), 2u);
  EXPECT_EQ(l_rArcs[0].m_anPrePlacePositions, (std::vector<unsigned long long>{0, 1}));
  ASSERT_EQ(l_rArcs[0].m_acPreConnections.size(), 2u);
  for (const PlaceTransitionConnection& l_cArc : l_rArcs[0].m_acPreConnections) {
    EXPECT_EQ(l_cArc.type, CONNECTION_STANDARD_ARC);
    EXPECT_EQ(l_cArc.weight, 1.0);
  }
  EXPECT_EQ(l_rArcs[0].m_anPostPlacePositions, (std::vector<unsigned long long>{1}));
  ASSERT_EQ(l_rArcs[0].m_acPostConnections.size(), 1u);
  EXPECT_EQ(l_rArcs[0].m_acPostConnections[0].weight, 2.0);
  EXPECT_EQ(l_rArcs[1].m_anPrePlacePositions, (std::vector<unsigned long long>{1}));
  EXPECT_EQ(l_rArcs[1].m_anPostPlacePositions, (std::vector<unsigned long long>{2}));

  ASSERT_EQ(m.GetModelViews()->size(), 1u);
  EXPECT_EQ(m.GetActiveView(), 0u);
  ModelView* l_pcView = (*m.GetModelViews())[0];
  EXPECT_EQ(Text(l_pcView->GetName()), "Marking");
  AttributeVectorAttribute* l_pcCurves = l_pcView->GetCurves();
  ASSERT_NE(l_pcCurves, nullptr);
  ASSERT_EQ(l_pcCurves->size(), 3u);
  const char* const l_asPlaces[] = {"S", "I", "R"};
  for (unsigned int i = 0; i < 3; ++i) {
    AttributeStruct* l_pcCurve = dynamic_cast<AttributeStruct*>(l_pcCurves->GetElement(i));
    ASSERT_NE(l_pcCurve, nullptr);
    EXPECT_EQ(Text(l_pcCurve->GetField(wxT("CURVE_NAME"))->GetValueString()), l_asPlaces[i]);
    EXPECT_EQ(dynamic_cast<AttributeUlong*>(l_pcCurve->GetField(wxT("INDEX")))->GetValue(), i);
    EXPECT_EQ(dynamic_cast<AttributeUint*>(l_pcCurve->GetField(wxT("CURVE_TYPE")))->GetValue(),
              static_cast<unsigned int>(RM_ROW_TYPE_PLACE));
    EXPECT_TRUE(dynamic_cast<AttributeBool*>(l_pcCurve->GetField(wxT("SHOW")))->GetValue());
  }
}

TEST(NetModel, ConstantRatesTravelAsNumbers) {
  sim::Net l_cNet;
  l_cNet.AddPlace("X", 5);
  l_cNet.AddTransition("decay", 0.25);
  l_cNet.AddInputArc("X", "decay");
  ASSERT_EQ(l_cNet.Validate(), "");
  std::unique_ptr<Model> l_pcModel(NetToModel(l_cNet, wxT("decay")));
  EXPECT_EQ(Texts(l_pcModel->GetAttributeValueVectorString(wxT("TRANSITION_FUNCTIONS"))),
            (std::vector<std::string>{"0.25"}));
}

TEST(NetModel, ModelOfANetGivesTheSameNetBack) {
  const sim::Net l_cSir = sim::SirNet();
  std::unique_ptr<Model> l_pcModel(NetToModel(l_cSir, wxT("SIR")));
  sim::Net l_cNet;
  std::string l_sError;
  ASSERT_TRUE(ModelToNet(*l_pcModel, l_cNet, &l_sError)) << l_sError;
  ASSERT_EQ(l_cNet.places.size(), 3u);
  EXPECT_EQ(l_cNet.places[1].name, "I");
  EXPECT_EQ(l_cNet.places[0].initialMarking, 990.0);
  ASSERT_EQ(l_cNet.transitions.size(), 2u);
  EXPECT_EQ(l_cNet.transitions[0].rateKind, sim::RateKind::Parameter);
  EXPECT_EQ(l_cNet.transitions[0].parameterName, "beta");
  EXPECT_EQ(l_cNet.arcs.size(), l_cSir.arcs.size());
  EXPECT_EQ(l_cNet.grid.step, 0.25);
  // The same dynamics: the engine runs both to the same marking.
  const sim::OutputGrid l_cGrid = simd_test::Grid(0, 30, 1);
  simd_test::ExpectSameMatrix(simd_test::Reference(l_cSir, "continuous", l_cGrid),
                              simd_test::Reference(l_cNet, "continuous", l_cGrid));
}

TEST(NetModel, ModelWithABadRateOrArcTypeIsNoNet) {
  std::unique_ptr<Model> l_pcModel(NetToModel(sim::SirNet(), wxT("SIR")));
  l_pcModel->SetAttributeValue(wxT("TRANSITION_FUNCTIONS"),
                               std::vector<wxString>{wxT("beta*S*X"), wxT("gamma")});
  sim::Net l_cNet;
  std::string l_sError;
  EXPECT_FALSE(ModelToNet(*l_pcModel, l_cNet, &l_sError));
  EXPECT_NE(l_sError.find("transition 'infection'"), std::string::npos) << l_sError;
  EXPECT_NE(l_sError.find("unknown name 'X' in the rate function 'beta*S*X'"), std::string::npos)
      << l_sError;
  l_pcModel->SetAttributeValue(wxT("TRANSITION_FUNCTIONS"),
                               std::vector<wxString>{wxT("beta*S*I"), wxT("gamma / (R - R)")});
  EXPECT_FALSE(ModelToNet(*l_pcModel, l_cNet, &l_sError));
  EXPECT_NE(l_sError.find("transition 'recovery'"), std::string::npos) << l_sError;
  EXPECT_NE(l_sError.find("gives inf in the initial state"), std::string::npos) << l_sError;

  std::unique_ptr<Model> l_pcInhibited(NetToModel(sim::SirNet(), wxT("SIR")));
  l_pcInhibited->SetTransitionPreConnection(1, 0, CONNECTION_INHIBITOR_ARC, 1.0);
  EXPECT_FALSE(ModelToNet(*l_pcInhibited, l_cNet, &l_sError));
  EXPECT_NE(l_sError.find("not supported"), std::string::npos) << l_sError;
}

TEST(NetModel, RateFunctionsTravelAsTheirTextBothWays) {
  // The SIR net with its infection written as a function: the same run.
  sim::Net l_cFunctions = sim::SirNet();
  l_cFunctions.SetRate(0, "beta * S * I");
  l_cFunctions.SetRate(1, "mm(I, 1000 * gamma, 1000)");
  ASSERT_EQ(l_cFunctions.Validate(), "");
  std::unique_ptr<Model> l_pcModel(NetToModel(l_cFunctions, wxT("SIR")));
  EXPECT_EQ(Texts(l_pcModel->GetAttributeValueVectorString(wxT("TRANSITION_FUNCTIONS"))),
            (std::vector<std::string>{"beta * S * I", "mm(I, 1000 * gamma, 1000)"}));
  sim::Net l_cNet;
  std::string l_sError;
  ASSERT_TRUE(ModelToNet(*l_pcModel, l_cNet, &l_sError)) << l_sError;
  EXPECT_EQ(l_cNet.transitions[0].rateKind, sim::RateKind::Function);
  EXPECT_EQ(l_cNet.transitions[0].function, "beta * S * I");
  EXPECT_EQ(l_cNet.transitions[1].function, "mm(I, 1000 * gamma, 1000)");
  const sim::OutputGrid l_cGrid = simd_test::Grid(0, 30, 1);
  const Matrix l_aadFunctions = simd_test::Reference(l_cNet, "continuous", l_cGrid);
  const Matrix l_aadMassAction = simd_test::Reference(sim::SirNet(), "continuous", l_cGrid);
  ASSERT_EQ(l_aadFunctions.size(), 3u);
  // Infection is mass action either way; recovery saturates a little.
  EXPECT_NEAR(l_aadFunctions[0][5], l_aadMassAction[0][5], 1.0);
  EXPECT_NE(l_aadFunctions[2][30], l_aadMassAction[2][30]);
}

TEST(NetModel, AModelWithoutAUsableIntervalKeepsTheDefaultOne) {
  std::unique_ptr<Model> l_pcModel(NetToModel(sim::SirNet(), wxT("SIR")));
  l_pcModel->SetOutputSamplingSize(0.0);
  sim::Net l_cNet;
  std::string l_sError;
  ASSERT_TRUE(ModelToNet(*l_pcModel, l_cNet, &l_sError)) << l_sError;
  EXPECT_EQ(l_cNet.grid.start, 0.0);
  EXPECT_EQ(l_cNet.grid.end, 100.0);
  EXPECT_EQ(l_cNet.grid.step, 1.0);
}

TEST(NetModel, RowsAreThePlacesInOrder) {
  ResultMatrixInfo l_cInfo(0);
  DescribePlaceRows(3, l_cInfo);
  ASSERT_EQ(l_cInfo.GetRowCount(), 3u);
  for (unsigned int l_nRow = 0; l_nRow < 3; ++l_nRow) {
    unsigned int l_nPosition = 99;
    RM_ROW_TYPE l_eType = RM_ROW_TYPE_OBSERVER;
    l_cInfo.GetRowInfo(l_nRow, l_nPosition, l_eType);
    EXPECT_EQ(l_nPosition, l_nRow);
    EXPECT_EQ(l_eType, RM_ROW_TYPE_PLACE);
  }
}

TEST(LoadNets, WithoutFilesTheBuiltInSirNetIsServed) {
  const LoadedNets l_cLoaded = LoadNets({});
  ASSERT_EQ(l_cLoaded.nets.size(), 1u);
  EXPECT_TRUE(l_cLoaded.errors.empty());
  EXPECT_EQ(l_cLoaded.nets[0].source, "built-in:sir");
}

TEST(LoadNets, ABadFileIsNamedInItsErrorAndTheOthersAreKept) {
  TempFile l_cBroken("broken.pnml", BROKEN_PNML);
  const std::string l_sMissing = ::testing::TempDir() + "simd-no-such-net.pnml";
  const LoadedNets l_cLoaded =
      LoadNets({l_cBroken.Path(), std::string(QUOR_MODELS_DIR) + "/sir.pnml", l_sMissing,
                std::string(QUOR_MODELS_DIR) + "/lotka-volterra.pnml"});
  ASSERT_EQ(l_cLoaded.nets.size(), 2u);
  EXPECT_NE(l_cLoaded.nets[0].source.find("sir.pnml"), std::string::npos);
  EXPECT_NE(l_cLoaded.nets[1].source.find("lotka-volterra.pnml"), std::string::npos);
  ASSERT_EQ(l_cLoaded.errors.size(), 2u);
  EXPECT_EQ(l_cLoaded.errors[0].compare(0, l_cBroken.Path().size(), l_cBroken.Path()), 0)
      << l_cLoaded.errors[0];
  EXPECT_GT(l_cLoaded.errors[0].size(), l_cBroken.Path().size() + 2) << "says what is wrong";
  EXPECT_EQ(l_cLoaded.errors[1].compare(0, l_sMissing.size(), l_sMissing), 0)
      << l_cLoaded.errors[1];
}

TEST(LoadNets, SbmlModelsAreServedBesidePnmlNets) {
  const LoadedNets l_cLoaded =
      LoadNets({std::string(QUOR_MODELS_DIR) + "/mapk-cascade.xml",
                std::string(QUOR_MODELS_DIR) + "/sir.pnml"});
  ASSERT_TRUE(l_cLoaded.errors.empty()) << l_cLoaded.errors[0];
  ASSERT_EQ(l_cLoaded.nets.size(), 2u);
  EXPECT_NE(l_cLoaded.nets[0].source.find("mapk-cascade.xml"), std::string::npos);
  EXPECT_FALSE(l_cLoaded.nets[0].transitions.empty());
  // A refused SBML file is named with the construct.
  TempFile l_cEvent("event.xml",
                    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                    "<sbml xmlns=\"http://www.sbml.org/sbml/level3/version1/core\" level=\"3\" "
                    "version=\"1\"><model id=\"m\"><listOfEvents><event id=\"kick\" "
                    "useValuesFromTriggerTime=\"true\"/></listOfEvents></model></sbml>\n");
  const LoadedNets l_cRefused = LoadNets({l_cEvent.Path()});
  ASSERT_EQ(l_cRefused.errors.size(), 1u);
  EXPECT_EQ(l_cRefused.errors[0].rfind(l_cEvent.Path(), 0), 0u) << l_cRefused.errors[0];
  EXPECT_NE(l_cRefused.errors[0].find("event 'kick'"), std::string::npos) << l_cRefused.errors[0];
}

TEST(ModelName, NamesAreMadeUnique) {
  sim::Net l_cNet = sim::SirNet();
  EXPECT_EQ(Text(ModelName(l_cNet, {})), "SIR epidemic");
  EXPECT_EQ(Text(ModelName(l_cNet, {wxT("SIR epidemic")})), "SIR epidemic (2)");
  EXPECT_EQ(Text(ModelName(l_cNet, {wxT("SIR epidemic"), wxT("SIR epidemic (2)")})),
            "SIR epidemic (3)");
  l_cNet.name.clear();
  EXPECT_EQ(Text(ModelName(l_cNet, {})), "sir");
}

TEST(Simulators, TwoCategoriesAndNamesResolveEitherWay) {
  const std::vector<QU_SimulatorCategory> l_aCategories = SimulatorCategories();
  ASSERT_EQ(l_aCategories.size(), 2u);
  EXPECT_EQ(Text(l_aCategories[0].m_sCategoryName), "Continuous");
  EXPECT_EQ(l_aCategories[0].m_nCategoryId, 0);
  EXPECT_EQ(Texts(l_aCategories[0].m_asSimulatorNames), (std::vector<std::string>{"continuous"}));
  EXPECT_EQ(Text(l_aCategories[1].m_sCategoryName), "Stochastic");
  EXPECT_EQ(l_aCategories[1].m_nCategoryId, 1);
  EXPECT_EQ(Texts(l_aCategories[1].m_asSimulatorNames), (std::vector<std::string>{"stochastic"}));

  wxString l_sCategory, l_sSimulator;
  ASSERT_TRUE(ResolveSimulator(wxT(" STOCHASTIC "), l_sCategory, l_sSimulator));
  EXPECT_EQ(Text(l_sCategory), "Stochastic");
  EXPECT_EQ(Text(l_sSimulator), "stochastic");
  ASSERT_TRUE(ResolveSimulator(wxT("Continuous"), l_sCategory, l_sSimulator));
  EXPECT_EQ(Text(l_sSimulator), "continuous");
  EXPECT_FALSE(ResolveSimulator(wxT("SIR epidemic"), l_sCategory, l_sSimulator));
  EXPECT_FALSE(ResolveSimulator(wxT(""), l_sCategory, l_sSimulator));
  EXPECT_EQ(Text(l_sSimulator), "continuous") << "left alone on failure";
}

namespace {

// Parses a command line given as words (the program name first).
ParseOutcome Parse(std::vector<wxString> p_asWords, SimdOptions& p_rOptions,
                   wxString& p_rsMessage) {
  std::vector<wxChar*> l_apArgs;
  for (wxString& l_sWord : p_asWords) l_apArgs.push_back(const_cast<wxChar*>(l_sWord.wc_str()));
  l_apArgs.push_back(nullptr);
  return ParseSimdOptions(static_cast<int>(p_asWords.size()), l_apArgs.data(), p_rOptions,
                          p_rsMessage);
}

}  // namespace

TEST(SimdOptions, DefaultsPortAndRepeatedModels) {
  SimdOptions l_cOptions;
  wxString l_sMessage;
  ASSERT_EQ(Parse({wxT("quor-simd")}, l_cOptions, l_sMessage), ParseOutcome::RUN);
  EXPECT_EQ(l_cOptions.port, 3000u);
  EXPECT_TRUE(l_cOptions.models.empty());

  ASSERT_EQ(Parse({wxT("quor-simd"), wxT("--port"), wxT("0"), wxT("--model"), wxT("a.pnml"),
                   wxT("--model=b.pnml"), wxT("-m"), wxT("c.pnml")},
                  l_cOptions, l_sMessage),
            ParseOutcome::RUN)
      << Text(l_sMessage);
  EXPECT_EQ(l_cOptions.port, 0u);
  EXPECT_EQ(l_cOptions.models, (std::vector<std::string>{"a.pnml", "b.pnml", "c.pnml"}));
}

TEST(SimdOptions, HelpAndErrorsComeWithTheUsage) {
  SimdOptions l_cOptions;
  wxString l_sMessage;
  EXPECT_EQ(Parse({wxT("quor-simd"), wxT("--help")}, l_cOptions, l_sMessage), ParseOutcome::HELP);
  EXPECT_NE(Text(l_sMessage).find("--port"), std::string::npos) << Text(l_sMessage);
  EXPECT_NE(Text(l_sMessage).find("--model"), std::string::npos);

  EXPECT_EQ(Parse({wxT("quor-simd"), wxT("--port"), wxT("70000")}, l_cOptions, l_sMessage),
            ParseOutcome::ERROR);
  EXPECT_NE(Text(l_sMessage).find("70000"), std::string::npos) << Text(l_sMessage);
  EXPECT_EQ(Parse({wxT("quor-simd"), wxT("--colour")}, l_cOptions, l_sMessage),
            ParseOutcome::ERROR);
  EXPECT_NE(Text(l_sMessage).find("colour"), std::string::npos) << Text(l_sMessage);
  EXPECT_EQ(Parse({wxT("quor-simd"), wxT("--port"), wxT("twelve")}, l_cOptions, l_sMessage),
            ParseOutcome::ERROR);
  EXPECT_EQ(Text(ListeningLine(40123)), "quor-simd listening on port 40123");
}

TEST(LogFormat, LevelPrefixesAreNotDoubled) {
  PrefixedLogFormatter l_cFormatter;
  wxLogRecordInfo l_cInfo;
  l_cInfo.timestampMS = 0;
  // Time stamps off, so that only the text and the prefix are left.
  const wxString l_sFormat = wxLog::GetTimestamp();
  wxLog::DisableTimestamp();
  EXPECT_EQ(Text(l_cFormatter.Format(wxLOG_Error, wxT("Error: x"), l_cInfo)), "Error: x");
  EXPECT_EQ(Text(l_cFormatter.Format(wxLOG_Error, wxT("x"), l_cInfo)), "Error: x");
  EXPECT_EQ(Text(l_cFormatter.Format(wxLOG_Warning, wxT("x"), l_cInfo)), "Warning: x");
  EXPECT_EQ(Text(l_cFormatter.Format(wxLOG_Message, wxT("Notice: x"), l_cInfo)), "Notice: x");
  wxLog::SetTimestamp(l_sFormat);
}
