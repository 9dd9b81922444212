// SPDX-License-Identifier: MIT
// The engine through the server: an SBML model served by the program with
// --model, uploaded models with rate functions (run, read back, failing),
// and the simulators' settings as clients see and change them (methods,
// step limit, ensembles).
#include <gtest/gtest.h>

#include <set>

#include "quor/attributeVector.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/simulatorattribute.h"
#include "simcore/netLoader.h"
#include "simd/netModel.h"
#include "simd_test_util.h"

using namespace quor;
using namespace quor::simd;
using namespace simd_test;

namespace {

struct Setting {
  std::string name, value;
  std::vector<std::string> choices;
};

std::vector<Setting> ReadSettings(SteeringClient& p_rClient, const wxString& p_sSimulator) {
  SimulatorAttribute l_cSettings;
  EXPECT_EQ(p_rClient.ReceiveSimulatorSetting(p_sSimulator, &l_cSettings), 1u);
  std::vector<Setting> l_acSettings;
  for (unsigned int i = 0; i < l_cSettings.size(); ++i) {
    wxString l_sName, l_sCaption, l_sValue;
    unsigned int l_nGui = 0;
    double l_dMin = 0, l_dMax = 0;
    l_cSettings.GetAttribute(i, l_sName, l_sCaption, l_sValue, l_nGui, l_dMin, l_dMax);
    Setting l_cSetting{Text(l_sName), Text(l_sValue), {}};
    for (const wxString& l_sChoice : l_cSettings.GetPossibleValues(i))
      l_cSetting.choices.push_back(Text(l_sChoice));
    l_acSettings.push_back(l_cSetting);
  }
  return l_acSettings;
}

// Sends the settings (name, value) of a simulator.
void WriteSettings(SteeringClient& p_rClient, const wxString& p_sSimulator,
                   const std::vector<std::pair<std::string, std::string>>& p_aSettings) {
  SimulatorAttribute l_cWrite;
  for (const auto& l_rSetting : p_aSettings)
    l_cWrite.AddAttribute(FromStd(l_rSetting.first), wxT(""), FromStd(l_rSetting.second), 0, 0, 0);
  ASSERT_EQ(p_rClient.SendSimulatorSetting(p_sSimulator, &l_cWrite), 1u);
}

std::string ErrorMessage(SteeringClient& p_rClient) {
  wxString l_sMessage;
  EXPECT_EQ(p_rClient.ReceiveErrorMessage(l_sMessage), 1u);
  return Text(l_sMessage);
}

std::vector<std::string> Functions(Model& p_rModel) {
  std::vector<std::string> l_asFunctions;
  for (const wxString& l_sFunction :
       p_rModel.FindValue<AttributeVectorString>(keys::TRANSITION_FUNCTIONS, std::vector<wxString>()))
    l_asFunctions.push_back(Text(l_sFunction));
  return l_asFunctions;
}

// The SIR net with the given rate texts, as a client would upload it.
std::unique_ptr<Model> SirWith(const wxString& p_sName, const wxString& p_sInfection,
                               const wxString& p_sRecovery) {
  std::unique_ptr<Model> l_pcModel(NetToModel(sim::SirNet(), p_sName));
  l_pcModel->SetAttributeValue(keys::TRANSITION_FUNCTIONS,
                               std::vector<wxString>{p_sInfection, p_sRecovery});
  return l_pcModel;
}

}  // namespace

TEST(SimdEngine, AnSbmlModelIsServedWithModelAndRunsAsTheEngineRunsIt) {
  const std::string l_sFile = std::string(QUOR_MODELS_DIR) + "/mapk-cascade.xml";
  const sim::NetLoadResult l_cLoaded = sim::LoadNetFile(l_sFile);
  ASSERT_TRUE(l_cLoaded) << l_cLoaded.error;
  Child l_cServer({QUOR_SIMD_PROGRAM, "--port", "0", "--model", l_sFile});
  ASSERT_TRUE(l_cServer.Started());
  const unsigned int l_nPort = WaitForPort(l_cServer, "quor-simd listening on port ");
  ASSERT_NE(l_nPort, 0u) << l_cServer.Err();
  {
    SteeringClient c(wxT("127.0.0.1"), wxString::Format(wxT("%u"), l_nPort));
    c.SetTimeout(30);
    ASSERT_EQ(c.ConnectToServer(true), 1u);
    std::vector<wxString> l_asNames;
    ASSERT_EQ(c.GetRuningModelNames(l_asNames), 1u);
    ASSERT_EQ(l_asNames.size(), 1u);
    EXPECT_EQ(Text(l_asNames[0]), "Kinase cascade");
    ASSERT_EQ(c.Initialize(0), 1u);
    std::unique_ptr<Model> l_pcModel(c.GetModel());
    ASSERT_TRUE(l_pcModel);
    // Species as places, laws as functions, local parameters renamed.
    EXPECT_EQ(l_pcModel->GetPlaceCount(), 7u);
    const std::vector<std::string> l_asFunctions = Functions(*l_pcModel);
    ASSERT_EQ(l_asFunctions.size(), 6u);
    EXPECT_EQ(l_asFunctions[0], l_cLoaded.net.transitions[0].function);
    EXPECT_NE(l_asFunctions[0].find("act1_V"), std::string::npos) << l_asFunctions[0];
    std::set<std::string> l_asParameters;
    for (const wxString& l_sName : l_pcModel->GetAttributeValueVectorString(keys::PARAMETER_NAMES))
      l_asParameters.insert(Text(l_sName));
    EXPECT_EQ(l_asParameters.count("act1_Km"), 1u);
    EXPECT_EQ(l_asParameters.count("cytoplasm"), 1u);

    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 100, 1), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    const Matrix l_aadResults = ReadResults(c);
    ExpectSameMatrix(Reference(l_cLoaded.net, "continuous", Grid(0, 100, 1)), l_aadResults);
    // MAPK-P (place 6) is nearly all active at the end.
    EXPECT_GT(l_aadResults[6].back(), 580.0);
  }
  l_cServer.Signal(SIGTERM);
  EXPECT_EQ(l_cServer.Wait(), 0) << l_cServer.Err();
}

TEST_F(SimdTest, AnUploadedModelWithRateFunctionsRunsAndIsReadBack) {
  // Infection with a saturating incidence, recovery as mass action.
  std::unique_ptr<Model> l_pcModel =
      SirWith(wxT("saturating SIR"), wxT("beta * S * I / (1 + I / 100)"), wxT("gamma"));
  sim::Net l_cNet;
  std::string l_sError;
  ASSERT_TRUE(ModelToNet(*l_pcModel, l_cNet, &l_sError)) << l_sError;
  RunClients({[&](SteeringClient& c) {
    // A second connection uploads the model; this one reads it back.
    {
      SteeringClient l_cUploader(wxT("127.0.0.1"), Service());
      l_cUploader.SetTimeout(30);
      ASSERT_EQ(l_cUploader.ConnectToServer(true), 1u);
      ASSERT_EQ(l_cUploader.Initialize(l_pcModel.get()), 1u);
      ASSERT_EQ(l_cUploader.CMD_Start(wxT("continuous"), 0, 40, 0.5), 1u);
      Stats l_cStats;
      ASSERT_TRUE(WaitForState(l_cUploader, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
      ExpectSameMatrix(Reference(l_cNet, "continuous", Grid(0, 40, 0.5)), ReadResults(l_cUploader));
    }
    SteeringClient l_cReader(wxT("127.0.0.1"), Service());
    l_cReader.SetTimeout(30);
    ASSERT_EQ(l_cReader.ConnectToServer(true), 1u);
    ASSERT_EQ(l_cReader.Initialize(1), 1u);
    std::unique_ptr<Model> l_pcBack(l_cReader.GetModel());
    ASSERT_TRUE(l_pcBack);
    EXPECT_EQ(Text(l_pcBack->GetModelName()), "saturating SIR");
    EXPECT_EQ(Functions(*l_pcBack),
              (std::vector<std::string>{"beta * S * I / (1 + I / 100)", "gamma"}));
    // The results are there for every client of the model.
    ExpectSameMatrix(Reference(l_cNet, "continuous", Grid(0, 40, 0.5)), ReadResults(l_cReader));
    (void)c;
  }});
}

TEST_F(SimdTest, RateFunctionsThatCannotRunAreRefusedOrEndTheRunWithTheReason) {
  // A function with an unknown name: the start is refused, naming it.
  std::unique_ptr<Model> l_pcUnknown = SirWith(wxT("typo"), wxT("beta * S * Infected"), wxT("gamma"));
  // The recovery's rate 2.5 - t turns negative after t = 2.5.
  std::unique_ptr<Model> l_pcNegative = SirWith(wxT("negative"), wxT("beta"), wxT("2.5 - t"));
  RunClients({[&](SteeringClient&) {
    SteeringClient c(wxT("127.0.0.1"), Service());
    c.SetTimeout(30);
    ASSERT_EQ(c.ConnectToServer(true), 1u);
    ASSERT_EQ(c.Initialize(l_pcUnknown.get()), 1u);
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 10, 1), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForStats(c, [](const Stats& s) { return s.error != SIMULATOR_ERROR_NONE; }, &l_cStats));
    EXPECT_EQ(l_cStats.error, SIMULATOR_ERROR_REFUSED);
    EXPECT_EQ(l_cStats.state, SIMULATOR_IDLE);
    const std::string l_sRefusal = ErrorMessage(c);
    EXPECT_NE(l_sRefusal.find("transition 'infection'"), std::string::npos) << l_sRefusal;
    EXPECT_NE(l_sRefusal.find("unknown name 'Infected'"), std::string::npos) << l_sRefusal;

    SteeringClient d(wxT("127.0.0.1"), Service());
    d.SetTimeout(30);
    ASSERT_EQ(d.ConnectToServer(true), 1u);
    ASSERT_EQ(d.Initialize(l_pcNegative.get()), 1u);
    ASSERT_EQ(d.CMD_Start(wxT("continuous"), 0, 10, 1), 1u);
    ASSERT_TRUE(WaitForState(d, SIMULATOR_FAILED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.error, SIMULATOR_ERROR_RUN);
    const std::string l_sFailure = ErrorMessage(d);
    EXPECT_NE(l_sFailure.find("transition 'recovery'"), std::string::npos) << l_sFailure;
    EXPECT_NE(l_sFailure.find("the rate function '2.5 - t' gave -"), std::string::npos)
        << l_sFailure;
    EXPECT_NE(l_sFailure.find(" at t = 2.5"), std::string::npos) << l_sFailure;
    // The points up to t = 2 are there.
    EXPECT_EQ(Columns(ReadResults(d)), 3u);
  }});
}

TEST_F(SimdTest, ClientsChooseTheMethodAndTheStepLimitAndAStepFailureEndsTheRun) {
  RunClient([](SteeringClient& c) {
    const std::vector<Setting> l_acSettings = ReadSettings(c, wxT("continuous"));
    std::vector<std::string> l_asNames;
    for (const Setting& l_rSetting : l_acSettings) l_asNames.push_back(l_rSetting.name);
    EXPECT_EQ(l_asNames, (std::vector<std::string>{"AbsoluteTolerance", "RelativeTolerance",
                                                   "MaxStep", "Method", "StepLimit",
                                                   "LinearSolver"}));
    ASSERT_EQ(l_acSettings.size(), 6u);
    EXPECT_EQ(l_acSettings[3].value, "BDF");
    EXPECT_EQ(l_acSettings[3].choices,
              (std::vector<std::string>{"BDF", "Adams", "Dormand-Prince"}));
    EXPECT_EQ(l_acSettings[5].choices,
              (std::vector<std::string>{"automatic", "dense", "sparse", "iterative"}));

    // A method that does not exist is refused by name.
    WriteSettings(c, wxT("continuous"), {{"Method", "RK4"}});
    EXPECT_NE(ErrorMessage(c).find("'RK4' is none of BDF, Adams, Dormand-Prince"),
              std::string::npos);
    // Dormand-Prince runs as the engine runs it.
    WriteSettings(c, wxT("continuous"), {{"Method", "Dormand-Prince"}});
    EXPECT_EQ(ReadSettings(c, wxT("continuous"))[3].value, "Dormand-Prince");
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 20, 0.5), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    ExpectSameMatrix(Reference(sim::SirNet(), "continuous", Grid(0, 20, 0.5),
                               [](std::size_t, sim::Simulator&) {}, {{"Method", "Dormand-Prince"}}),
                     ReadResults(c));

    // Too little room for steps: the run fails and says why, at once.
    WriteSettings(c, wxT("continuous"), {{"Method", "BDF"}, {"StepLimit", "3"}});
    ASSERT_EQ(c.CMD_Start(wxT("continuous"), 0, 50, 5), 1u);
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FAILED, &l_cStats)) << l_cStats.state;
    EXPECT_EQ(l_cStats.error, SIMULATOR_ERROR_RUN);
    const std::string l_sFailure = ErrorMessage(c);
    EXPECT_NE(l_sFailure.find("too much work: more than 3 internal steps"), std::string::npos)
        << l_sFailure;
    EXPECT_NE(l_sFailure.find("StepLimit"), std::string::npos) << l_sFailure;
  });
}

TEST_F(SimdTest, AStochasticEnsembleGivesTheMeanOfItsRunsAndTheLogSaysHowMany) {
  RunClient([](SteeringClient& c) {
    std::vector<Setting> l_acSettings = ReadSettings(c, wxT("stochastic"));
    ASSERT_EQ(l_acSettings.size(), 2u);
    EXPECT_EQ(l_acSettings[0].name, "Seed");
    EXPECT_EQ(l_acSettings[1].name, "Runs");
    EXPECT_EQ(l_acSettings[1].value, "1");
    WriteSettings(c, wxT("stochastic"), {{"Seed", "5"}, {"Runs", "20"}});
    EXPECT_EQ(ReadSettings(c, wxT("stochastic"))[1].value, "20");
    ASSERT_EQ(c.CMD_Start(wxT("stochastic"), 0, 10, 1), 1u);
    Stats l_cStats;
    ASSERT_TRUE(WaitForState(c, SIMULATOR_FINISHED, &l_cStats)) << l_cStats.state;
    const Matrix l_aadResults = ReadResults(c);
    EXPECT_EQ(l_aadResults, Reference(sim::SirNet(), "stochastic", Grid(0, 10, 1),
                                      [](std::size_t, sim::Simulator&) {},
                                      {{"Seed", "5"}, {"Runs", "20"}}));
    // Means of 20 runs: multiples of 1/20, not all whole, summing to 1000.
    bool l_bFraction = false;
    for (std::size_t j = 0; j < Columns(l_aadResults); ++j) {
      EXPECT_NEAR(l_aadResults[0][j] + l_aadResults[1][j] + l_aadResults[2][j], 1000.0, 1e-9);
      l_bFraction = l_bFraction || l_aadResults[1][j] != std::round(l_aadResults[1][j]);
    }
    EXPECT_TRUE(l_bFraction);
    wxString l_sLog;
    ASSERT_EQ(c.ReadLogMessage(l_sLog), 1u);
    EXPECT_NE(Text(l_sLog).find("run finished"), std::string::npos) << Text(l_sLog);
    EXPECT_NE(Text(l_sLog).find("20 runs"), std::string::npos) << Text(l_sLog);
  });
}
