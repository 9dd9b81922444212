// SPDX-License-Identifier: MIT
// quor-steer run as a child process against quor-simd on a free port, the
// way a shell script runs it: every command, its JSON checked against what
// a library client reads from the same server, the exports, watch with and
// without a terminal, plot, the errors with their exit statuses, and the
// README's shell session as written.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "quor/keys.h"
#include "quor/model.h"
#include "quor/steeringclient.h"
#include "quorapp/text.h"
#include "child_process.h"

namespace {

using nlohmann::json;
using quor_test::Child;

const std::string STEER = QUOR_STEER_PROGRAM;

bool Contains(const std::string& p_sText, const std::string& p_sPart) {
  return p_sText.find(p_sPart) != std::string::npos;
}

std::vector<std::string> Lines(const std::string& p_sText) {
  std::vector<std::string> l_asLines;
  std::istringstream l_cIn(p_sText);
  std::string l_sLine;
  while (std::getline(l_cIn, l_sLine)) l_asLines.push_back(l_sLine);
  return l_asLines;
}

std::string ReadFile(const std::string& p_sPath) {
  std::ifstream l_cFile(p_sPath.c_str(), std::ios::binary);
  std::ostringstream l_cText;
  l_cText << l_cFile.rdbuf();
  return l_cText.str();
}

std::string TempPath(const std::string& p_sName) {
  return ::testing::TempDir() + "steer-" + std::to_string(::getpid()) + "-" + p_sName;
}

// quor-simd on a free port with its built-in SIR net (or the files given).
class Server {
 public:
  explicit Server(const std::vector<std::string>& p_asModels = {}) {
    std::vector<std::string> l_asArgs = {QUOR_SIMD_PROGRAM, "--port", "0"};
    for (const std::string& l_sModel : p_asModels) {
      l_asArgs.push_back("--model");
      l_asArgs.push_back(l_sModel);
    }
    m_pcChild.reset(new Child(l_asArgs));
    m_nPort = quor_test::ListeningPort(m_pcChild->WaitForLine("listening on port "));
  }
  unsigned int Port() const { return m_nPort; }
  std::string PortText() const { return std::to_string(m_nPort); }

 private:
  std::unique_ptr<Child> m_pcChild;
  unsigned int m_nPort = 0;
};

// A finished quor-steer run.
struct Outcome {
  int status;
  std::string out, err;
};

Outcome Steer(const Server& p_rServer, const std::vector<std::string>& p_asArgs) {
  std::vector<std::string> l_asArgs = {STEER, "--port", p_rServer.PortText()};
  l_asArgs.insert(l_asArgs.end(), p_asArgs.begin(), p_asArgs.end());
  Child l_cChild(l_asArgs);
  const int l_nStatus = l_cChild.Wait();
  return {l_nStatus, l_cChild.Out(), l_cChild.Err()};
}

Outcome SteerRaw(const std::vector<std::string>& p_asArgs) {
  std::vector<std::string> l_asArgs = {STEER};
  l_asArgs.insert(l_asArgs.end(), p_asArgs.begin(), p_asArgs.end());
  Child l_cChild(l_asArgs);
  const int l_nStatus = l_cChild.Wait();
  return {l_nStatus, l_cChild.Out(), l_cChild.Err()};
}

json Json(const Outcome& p_rRun) {
  EXPECT_EQ(p_rRun.status, 0) << p_rRun.err;
  return json::parse(p_rRun.out);
}

// A library client attached to model 0 of the server: what the server holds.
class Reference {
 public:
  explicit Reference(const Server& p_rServer)
      : m_cClient(wxT("127.0.0.1"), wxString::Format(wxT("%u"), p_rServer.Port())) {
    EXPECT_EQ(m_cClient.ConnectToServer(true), 1u);
    EXPECT_EQ(m_cClient.Initialize(0), 1u);
    m_pcModel.reset(m_cClient.GetModel());
  }
  ~Reference() { m_cClient.DisConnectFromServer(); }
  quor::SteeringClient& Client() { return m_cClient; }
  std::vector<std::string> Names(const wxChar* p_sKey) {
    std::vector<std::string> l_asNames;
    for (const wxString& l_sName : m_pcModel->GetAttributeValueVectorString(p_sKey))
      l_asNames.push_back(quor::app::ToStd(l_sName));
    return l_asNames;
  }

 private:
  std::unique_ptr<quor::Model> m_pcModel;
  quor::SteeringClient m_cClient;
};

// Waits for `state --json` to show p_sState.
bool WaitForState(const Server& p_rServer, const std::string& p_sState) {
  const auto l_tEnd = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (std::chrono::steady_clock::now() < l_tEnd) {
    const Outcome l_cRun = Steer(p_rServer, {"--json", "state"});
    if (l_cRun.status == 0 && json::parse(l_cRun.out)["state"] == p_sState) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

// Starts an unpaced run and waits for its end.
void RunToTheEnd(const Server& p_rServer) {
  const Outcome l_cStart = Steer(p_rServer, {"start", "--speed", "0"});
  ASSERT_EQ(l_cStart.status, 0) << l_cStart.err;
  ASSERT_TRUE(WaitForState(p_rServer, "finished"));
}

// ----------------------------------------------------------------- reading

TEST(SteerReading, ModelsListsIndexAndName) {
  Server l_cServer;
  const Outcome l_cTable = Steer(l_cServer, {"models"});
  EXPECT_EQ(l_cTable.status, 0) << l_cTable.err;
  EXPECT_EQ(l_cTable.out, "0  SIR epidemic\n");
  EXPECT_EQ(Json(Steer(l_cServer, {"--json", "models"})),
            json::parse(R"([{"index":0,"name":"SIR epidemic"}])"));
}

TEST(SteerReading, InfoJsonIsWhatTheServerHolds) {
  Server l_cServer;
  Reference l_cReference(l_cServer);
  const json l_cInfo = Json(Steer(l_cServer, {"--json", "info"}));
  EXPECT_EQ(l_cInfo["name"], "SIR epidemic");
  std::vector<std::string> l_asPlaces, l_asTransitions, l_asParameters;
  for (const json& l_cPlace : l_cInfo["places"]) l_asPlaces.push_back(l_cPlace["name"]);
  for (const json& l_cTransition : l_cInfo["transitions"])
    l_asTransitions.push_back(l_cTransition["name"]);
  for (const json& l_cParameter : l_cInfo["parameters"])
    l_asParameters.push_back(l_cParameter["name"]);
  EXPECT_EQ(l_asPlaces, l_cReference.Names(quor::keys::PLACE_NAMES));
  EXPECT_EQ(l_asTransitions, l_cReference.Names(quor::keys::TRANSITION_NAMES));
  EXPECT_EQ(l_asParameters, l_cReference.Names(quor::keys::PARAMETER_NAMES));
  std::vector<double> l_adMarking, l_adValues;
  ASSERT_EQ(l_cReference.Client().ReadCurrentPlaceValues(l_adMarking), 1u);
  ASSERT_EQ(l_cReference.Client().ReadCurrentParameterValues(l_adValues), 1u);
  for (std::size_t i = 0; i < l_adMarking.size(); ++i)
    EXPECT_EQ(l_cInfo["places"][i]["current"].get<double>(), l_adMarking[i]);
  for (std::size_t i = 0; i < l_adValues.size(); ++i)
    EXPECT_EQ(l_cInfo["parameters"][i]["current"].get<double>(), l_adValues[i]);
  // SIR: infection S + I -> 2 I, recovery I -> R: five arcs.
  EXPECT_EQ(l_cInfo["arcs"].size(), 5u) << l_cInfo["arcs"].dump();
  EXPECT_EQ(l_cInfo["interval"], json::parse(R"({"from":0.0,"to":50.0,"step":0.25})"));
  ASSERT_EQ(l_cInfo["views"].size(), 1u);
  EXPECT_EQ(l_cInfo["views"][0]["name"], "Marking");

  const Outcome l_cTable = Steer(l_cServer, {"info"});
  EXPECT_EQ(l_cTable.status, 0) << l_cTable.err;
  for (const char* l_sPart : {"model: SIR epidemic", "places (3)", "transitions (2)", "arcs (5)",
                              "parameters (2)", "views (1)", "beta"})
    EXPECT_TRUE(Contains(l_cTable.out, l_sPart)) << l_sPart << "\n" << l_cTable.out;
}

TEST(SteerReading, SimulatorsSettingsStateIntervalAndLog) {
  Server l_cServer;
  const json l_cSimulators = Json(Steer(l_cServer, {"--json", "simulators"}));
  ASSERT_EQ(l_cSimulators["categories"].size(), 2u);
  EXPECT_EQ(l_cSimulators["categories"][0]["simulators"], json::parse(R"(["continuous"])"));
  EXPECT_EQ(l_cSimulators["categories"][1]["simulators"], json::parse(R"(["stochastic"])"));
  EXPECT_TRUE(Contains(Steer(l_cServer, {"simulators"}).out, "stochastic"));

  const json l_cSettings = Json(Steer(l_cServer, {"--json", "settings"}));
  ASSERT_TRUE(l_cSettings.contains("continuous"));
  ASSERT_TRUE(l_cSettings.contains("stochastic"));
  EXPECT_EQ(l_cSettings["continuous"][0]["name"], "AbsoluteTolerance");
  const json l_cStochastic = Json(Steer(l_cServer, {"--json", "settings", "stochastic"}));
  EXPECT_FALSE(l_cStochastic.contains("continuous"));
  EXPECT_EQ(l_cStochastic["stochastic"][0]["name"], "Seed");

  const json l_cState = Json(Steer(l_cServer, {"--json", "state"}));
  EXPECT_EQ(l_cState["state"], "idle");
  EXPECT_EQ(l_cState["state_code"], 0);
  EXPECT_TRUE(Contains(Steer(l_cServer, {"state"}).out, "idle (0)"));

  EXPECT_EQ(Json(Steer(l_cServer, {"--json", "interval"})),
            json::parse(R"({"from":0.0,"to":50.0,"step":0.25})"));
  EXPECT_EQ(Steer(l_cServer, {"interval"}).out, "from     0\nto      50\nstep  0.25\n");

  RunToTheEnd(l_cServer);
  const json l_cLog = Json(Steer(l_cServer, {"--json", "log"}));
  EXPECT_TRUE(Contains(l_cLog["log"].get<std::string>(), "finished")) << l_cLog.dump();
  EXPECT_TRUE(Contains(Steer(l_cServer, {"log"}).out, "log: ")) << l_cLog.dump();
}

// ---------------------------------------------------------------- steering

TEST(SteerSteering, SetThenParamsShowsTheChange) {
  Server l_cServer;
  const Outcome l_cSet = Steer(l_cServer, {"set", "beta=0.0001", "gamma=0.2"});
  EXPECT_EQ(l_cSet.status, 0) << l_cSet.err;
  EXPECT_EQ(l_cSet.out, "beta = 0.0001\ngamma = 0.2\n");
  EXPECT_EQ(Steer(l_cServer, {"params"}).out, "beta   0.0001\ngamma     0.2\n");
  EXPECT_EQ(Json(Steer(l_cServer, {"--json", "params"})),
            json::parse(R"({"beta":0.0001,"gamma":0.2})"));
  Reference l_cReference(l_cServer);
  std::vector<double> l_adValues;
  ASSERT_EQ(l_cReference.Client().ReadCurrentParameterValues(l_adValues), 1u);
  EXPECT_EQ(l_adValues, (std::vector<double>{0.0001, 0.2}));
  // --quiet says nothing.
  const Outcome l_cQuiet = Steer(l_cServer, {"--quiet", "set", "beta=0.0002"});
  EXPECT_EQ(l_cQuiet.status, 0);
  EXPECT_EQ(l_cQuiet.out, "");
}

TEST(SteerSteering, MarkChangesTheMarking) {
  Server l_cServer;
  const Outcome l_cMark = Steer(l_cServer, {"mark", "S=500", "R=7"});
  EXPECT_EQ(l_cMark.status, 0) << l_cMark.err;
  const json l_cMarking = Json(Steer(l_cServer, {"--json", "marking"}));
  EXPECT_EQ(l_cMarking["S"], 500.0);
  EXPECT_EQ(l_cMarking["R"], 7.0);
  EXPECT_TRUE(Contains(Steer(l_cServer, {"marking"}).out, "S  500"));
}

TEST(SteerSteering, SettingChangesASimulatorsSetting) {
  Server l_cServer;
  const Outcome l_cSetting = Steer(l_cServer, {"setting", "stochastic", "Seed=7", "Runs=3"});
  EXPECT_EQ(l_cSetting.status, 0) << l_cSetting.err;
  const json l_cSettings = Json(Steer(l_cServer, {"--json", "settings", "stochastic"}));
  EXPECT_EQ(l_cSettings["stochastic"][0]["value"], "7");
  EXPECT_EQ(l_cSettings["stochastic"][1]["value"], "3");
  // A value out of range: the server refuses and says why.
  const Outcome l_cRefused = Steer(l_cServer, {"setting", "stochastic", "Runs=0"});
  EXPECT_EQ(l_cRefused.status, 1);
  EXPECT_TRUE(Contains(l_cRefused.err, "quor-steer: the server refused: ")) << l_cRefused.err;
  EXPECT_TRUE(Contains(l_cRefused.err, "Runs")) << l_cRefused.err;
  // Unknown names list the valid ones.
  const Outcome l_cUnknown = Steer(l_cServer, {"setting", "stochastic", "Sead=7"});
  EXPECT_EQ(l_cUnknown.status, 2);
  EXPECT_TRUE(Contains(l_cUnknown.err, "unknown setting 'Sead' (the settings are: Seed, Runs)"))
      << l_cUnknown.err;
  const Outcome l_cSimulator = Steer(l_cServer, {"setting", "gillespie", "Seed=7"});
  EXPECT_EQ(l_cSimulator.status, 2);
  EXPECT_TRUE(Contains(l_cSimulator.err,
                       "unknown simulator 'gillespie' (the simulators are: continuous, stochastic)"))
      << l_cSimulator.err;
}

TEST(SteerSteering, StartPauseResumeSpeedStopRestart) {
  Server l_cServer;
  // 201 points at 20 per second: ten seconds, time enough for the commands.
  const Outcome l_cStart = Steer(l_cServer, {"start", "--simulator", "continuous", "--speed", "20"});
  ASSERT_EQ(l_cStart.status, 0) << l_cStart.err;
  EXPECT_EQ(l_cStart.out, "started 'SIR epidemic' from 0 to 50 every 0.25\n");
  // A second start while the run goes is refused, with the server's reason.
  const Outcome l_cAgain = Steer(l_cServer, {"start"});
  EXPECT_EQ(l_cAgain.status, 1);
  EXPECT_TRUE(Contains(l_cAgain.err, "quor-steer: the server refused: ")) << l_cAgain.err;

  EXPECT_EQ(Steer(l_cServer, {"pause"}).status, 0);
  EXPECT_TRUE(WaitForState(l_cServer, "paused"));
  EXPECT_EQ(Steer(l_cServer, {"resume"}).status, 0);
  EXPECT_TRUE(WaitForState(l_cServer, "running"));
  EXPECT_EQ(Steer(l_cServer, {"speed", "5"}).status, 0);
  EXPECT_EQ(Json(Steer(l_cServer, {"--json", "state"}))["speed"], 5);
  EXPECT_EQ(Steer(l_cServer, {"stop"}).status, 0);
  EXPECT_TRUE(WaitForState(l_cServer, "stopped"));

  // 11 points at 2 per second: running for five seconds.
  const Outcome l_cRestart =
      Steer(l_cServer, {"restart", "--from", "0", "--to", "10", "--step", "1", "--speed", "2"});
  EXPECT_EQ(l_cRestart.status, 0) << l_cRestart.err;
  EXPECT_TRUE(WaitForState(l_cServer, "running"));
  EXPECT_EQ(Json(Steer(l_cServer, {"--json", "interval"})),
            json::parse(R"({"from":0.0,"to":10.0,"step":1.0})"));
  EXPECT_EQ(Steer(l_cServer, {"stop"}).status, 0);
  EXPECT_TRUE(WaitForState(l_cServer, "stopped"));

  const Outcome l_cBadInterval = Steer(l_cServer, {"start", "--from", "5", "--to", "1"});
  EXPECT_EQ(l_cBadInterval.status, 2);
  EXPECT_TRUE(Contains(l_cBadInterval.err, "is unusable")) << l_cBadInterval.err;
  const Outcome l_cBadSimulator = Steer(l_cServer, {"start", "--simulator", "euler"});
  EXPECT_EQ(l_cBadSimulator.status, 2);
  EXPECT_TRUE(Contains(l_cBadSimulator.err, "unknown simulator 'euler'")) << l_cBadSimulator.err;
}

TEST(SteerSteering, UploadMakesANewRunningModel) {
  Server l_cServer;
  const Outcome l_cUpload =
      Steer(l_cServer, {"upload", std::string(QUOR_MODELS_DIR) + "/michaelis-menten.pnml"});
  ASSERT_EQ(l_cUpload.status, 0) << l_cUpload.err;
  const json l_cModels = Json(Steer(l_cServer, {"--json", "models"}));
  ASSERT_EQ(l_cModels.size(), 2u) << l_cModels.dump();
  const std::string l_sName = l_cModels[1]["name"];
  EXPECT_EQ(l_cUpload.out, "uploaded '" + l_sName + "' as model 1\n");
  // Attached by name, the uploaded model runs.
  const Outcome l_cStart = Steer(l_cServer, {"--model", l_sName, "start"});
  EXPECT_EQ(l_cStart.status, 0) << l_cStart.err;
  const Outcome l_cWatch = Steer(l_cServer, {"--model", "1", "watch"});
  EXPECT_EQ(l_cWatch.status, 0) << l_cWatch.err;

  const Outcome l_cMissing = Steer(l_cServer, {"upload", "/no/such/net.pnml"});
  EXPECT_EQ(l_cMissing.status, 1);
  EXPECT_TRUE(Contains(l_cMissing.err, "/no/such/net.pnml")) << l_cMissing.err;
}

// ---------------------------------------------------------- watch, export

TEST(SteerWatch, WithoutATerminalOneLinePerPointUntilTheRunEnds) {
  Server l_cServer;
  ASSERT_EQ(Steer(l_cServer, {"start", "--speed", "200"}).status, 0);
  const Outcome l_cWatch = Steer(l_cServer, {"watch"});
  ASSERT_EQ(l_cWatch.status, 0) << l_cWatch.err;
  const std::vector<std::string> l_asLines = Lines(l_cWatch.out);
  ASSERT_EQ(l_asLines.size(), 202u) << l_cWatch.out;
  EXPECT_EQ(l_asLines[0], "time\tS\tI\tR");
  EXPECT_EQ(l_asLines[1].substr(0, 2), "0\t");
  EXPECT_EQ(l_asLines[201].substr(0, 3), "50\t");
  EXPECT_FALSE(Contains(l_cWatch.out, "\x1b[")) << l_cWatch.out;
  EXPECT_TRUE(Contains(l_cWatch.err, "run finished (201 output points)")) << l_cWatch.err;
  // The run has ended: watch prints it whole and ends.
  const Outcome l_cAgain = Steer(l_cServer, {"--json", "watch"});
  ASSERT_EQ(l_cAgain.status, 0);
  const std::vector<std::string> l_asJson = Lines(l_cAgain.out);
  ASSERT_EQ(l_asJson.size(), 201u);
  EXPECT_EQ(json::parse(l_asJson[200])["time"], 50.0);
}

TEST(SteerWatch, OnATerminalItDrawsAProgressBarInPlace) {
  Server l_cServer;
  // Five seconds: watch draws more than once.
  ASSERT_EQ(Steer(l_cServer, {"start", "--speed", "40"}).status, 0);
  const std::string l_sCommand = STEER + " --port " + l_cServer.PortText() + " watch";
  Child l_cScript({"/usr/bin/script", "-qfec", l_sCommand, "/dev/null"});
  ASSERT_EQ(l_cScript.Wait(), 0) << l_cScript.Out() << l_cScript.Err();
  const std::string& l_sOut = l_cScript.Out();
  EXPECT_TRUE(Contains(l_sOut, "[##############################] t = 50 of 50 (100 %)")) << l_sOut;
  EXPECT_TRUE(Contains(l_sOut, " s left")) << l_sOut;
  // Drawn again in place: the cursor goes up over the last drawing.
  EXPECT_TRUE(Contains(l_sOut, "\x1b[5A")) << l_sOut;
  EXPECT_TRUE(Contains(l_sOut, "\r\x1b[2K")) << l_sOut;
}

TEST(SteerExport, CsvTsvAndJsonOfTheResults) {
  Server l_cServer;
  RunToTheEnd(l_cServer);
  const std::string l_sCsv = TempPath("results.csv");
  const Outcome l_cCsv = Steer(l_cServer, {"results", "--format", "csv", "-o", l_sCsv});
  ASSERT_EQ(l_cCsv.status, 0) << l_cCsv.err;
  EXPECT_EQ(l_cCsv.out, "");
  const std::vector<std::string> l_asRows = Lines(ReadFile(l_sCsv));
  std::remove(l_sCsv.c_str());
  ASSERT_EQ(l_asRows.size(), 202u);
  EXPECT_EQ(l_asRows[0], "time,S,I,R");
  EXPECT_EQ(l_asRows[2].substr(0, 5), "0.25,");

  const Outcome l_cTsv = Steer(l_cServer, {"results", "--format", "tsv"});
  ASSERT_EQ(Lines(l_cTsv.out).size(), 202u);
  EXPECT_EQ(Lines(l_cTsv.out)[0], "time\tS\tI\tR");
  EXPECT_EQ(Lines(Steer(l_cServer, {"results"}).out).size(), 202u);

  // JSON: the server's matrix exactly.
  Reference l_cReference(l_cServer);
  std::vector<std::vector<double> > l_aadResults, l_aadRates;
  ASSERT_EQ(l_cReference.Client().ReadResultMatrix(l_aadResults), 1u);
  ASSERT_EQ(l_cReference.Client().ReadRateMatrix(l_aadRates), 1u);
  const json l_cResults = Json(Steer(l_cServer, {"results", "--format", "json"}));
  EXPECT_EQ(l_cResults["S"].get<std::vector<double> >(), l_aadResults[0]);
  EXPECT_EQ(l_cResults["R"].get<std::vector<double> >(), l_aadResults[2]);
  EXPECT_EQ(l_cResults["time"].size(), 201u);
  EXPECT_EQ(Json(Steer(l_cServer, {"--json", "results"})), l_cResults);
  const json l_cRates = Json(Steer(l_cServer, {"--json", "rates"}));
  const std::vector<std::string> l_asTransitions = l_cReference.Names(quor::keys::TRANSITION_NAMES);
  ASSERT_EQ(l_asTransitions.size(), 2u);
  EXPECT_EQ(l_cRates[l_asTransitions[0]].get<std::vector<double> >(), l_aadRates[0]);

  const Outcome l_cFormat = Steer(l_cServer, {"results", "--format", "xls"});
  EXPECT_EQ(l_cFormat.status, 2);
  EXPECT_TRUE(Contains(l_cFormat.err, "unknown format 'xls'")) << l_cFormat.err;
}

TEST(SteerExport, PlotWritesAPng) {
  Server l_cServer;
  RunToTheEnd(l_cServer);
  if (::access("/usr/bin/gnuplot", X_OK) != 0) GTEST_SKIP() << "gnuplot is not installed";
  const std::string l_sPng = TempPath("sir.png");
  const Outcome l_cPlot = Steer(l_cServer, {"plot", "-o", l_sPng, "I", "R"});
  ASSERT_EQ(l_cPlot.status, 0) << l_cPlot.err;
  const std::string l_sImage = ReadFile(l_sPng);
  std::remove(l_sPng.c_str());
  ASSERT_GT(l_sImage.size(), 2000u);
  EXPECT_EQ(l_sImage.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
  const Outcome l_cPlace = Steer(l_cServer, {"plot", "-o", l_sPng, "X"});
  EXPECT_EQ(l_cPlace.status, 2);
  EXPECT_TRUE(Contains(l_cPlace.err, "unknown place 'X' (the places are: S, I, R)")) << l_cPlace.err;
}

TEST(SteerExport, PlotWithoutGnuplotNamesThePackage) {
  Server l_cServer;
  Child l_cChild({"/usr/bin/env", "PATH=/nonexistent", STEER, "--port", l_cServer.PortText(), "plot"});
  EXPECT_EQ(l_cChild.Wait(), 1);
  EXPECT_TRUE(Contains(l_cChild.Err(), "gnuplot is not installed")) << l_cChild.Err();
  EXPECT_TRUE(Contains(l_cChild.Err(), "gnuplot-nox")) << l_cChild.Err();
}

// ------------------------------------------------------------------ errors

TEST(SteerErrors, UnknownCommandIsAUsageError) {
  const Outcome l_cRun = SteerRaw({"frobnicate"});
  EXPECT_EQ(l_cRun.status, 2);
  EXPECT_EQ(l_cRun.out, "");
  EXPECT_TRUE(Contains(l_cRun.err, "quor-steer: unknown command 'frobnicate' (the commands are: "
                                   "models, info,")) << l_cRun.err;
  EXPECT_TRUE(Contains(l_cRun.err, "Try 'quor-steer --help'")) << l_cRun.err;
  const Outcome l_cNone = SteerRaw({});
  EXPECT_EQ(l_cNone.status, 2);
  EXPECT_TRUE(Contains(l_cNone.err, "a command is needed")) << l_cNone.err;
}

TEST(SteerErrors, CommandHelpShowsItsArguments) {
  const Outcome l_cRun = SteerRaw({"start", "--help"});
  EXPECT_EQ(l_cRun.status, 0);
  EXPECT_TRUE(Contains(l_cRun.out, "--simulator")) << l_cRun.out;
  EXPECT_TRUE(Contains(l_cRun.out, "--speed")) << l_cRun.out;
  const Outcome l_cHelp = SteerRaw({"--help"});
  for (const char* l_sCommand : {"models", "info", "simulators", "settings", "params", "marking",
                                 "state", "interval", "results", "rates", "log", "set", "mark",
                                 "setting", "start", "pause", "resume", "stop", "restart", "speed",
                                 "upload", "watch", "plot"})
    EXPECT_TRUE(Contains(l_cHelp.out, std::string("  ") + l_sCommand + " ")) << l_sCommand;
}

TEST(SteerErrors, UnknownParameterListsTheValidOnes) {
  Server l_cServer;
  const Outcome l_cRun = Steer(l_cServer, {"set", "delta=1"});
  EXPECT_EQ(l_cRun.status, 2);
  EXPECT_TRUE(Contains(l_cRun.err, "quor-steer: unknown parameter 'delta' (the parameters are: "
                                   "beta, gamma)")) << l_cRun.err;
  const Outcome l_cPlace = Steer(l_cServer, {"mark", "Q=1"});
  EXPECT_EQ(l_cPlace.status, 2);
  EXPECT_TRUE(Contains(l_cPlace.err, "unknown place 'Q' (the places are: S, I, R)")) << l_cPlace.err;
  const Outcome l_cValue = Steer(l_cServer, {"set", "beta=fast"});
  EXPECT_EQ(l_cValue.status, 2);
  EXPECT_TRUE(Contains(l_cValue.err, "beta: 'fast' is not a number")) << l_cValue.err;
  // A negative value: the server refuses it and the parameter stays.
  const Outcome l_cRefused = Steer(l_cServer, {"set", "beta=-1"});
  EXPECT_EQ(l_cRefused.status, 1);
  EXPECT_TRUE(Contains(l_cRefused.err, "quor-steer: the server refused: ")) << l_cRefused.err;
  EXPECT_EQ(Json(Steer(l_cServer, {"--json", "params"}))["beta"], 0.0003);
  const Outcome l_cModel = Steer(l_cServer, {"--model", "Lotka", "params"});
  EXPECT_EQ(l_cModel.status, 2);
  EXPECT_TRUE(Contains(l_cModel.err, "unknown model 'Lotka' (the models are: [0] SIR epidemic)"))
      << l_cModel.err;
  EXPECT_EQ(Steer(l_cServer, {"--model", "3", "params"}).status, 2);
}

TEST(SteerErrors, NoServerAndBadPort) {
  // A port that was free a moment ago.
  unsigned int l_nPort;
  {
    Server l_cServer;
    l_nPort = l_cServer.Port();
  }
  const Outcome l_cNoServer = SteerRaw({"--port", std::to_string(l_nPort), "--timeout", "3", "models"});
  EXPECT_EQ(l_cNoServer.status, 3);
  EXPECT_TRUE(Contains(l_cNoServer.err, "quor-steer: cannot connect to a simulation server at "
                                        "127.0.0.1:" + std::to_string(l_nPort)))
      << l_cNoServer.err;
  const Outcome l_cBadPort = SteerRaw({"--port", "70000", "models"});
  EXPECT_EQ(l_cBadPort.status, 2);
  EXPECT_TRUE(Contains(l_cBadPort.err, "--port")) << l_cBadPort.err;
  EXPECT_TRUE(Contains(l_cBadPort.err, "Usage: quor-steer")) << l_cBadPort.err;
  const Outcome l_cNotANumber = SteerRaw({"--port", "http", "models"});
  EXPECT_EQ(l_cNotANumber.status, 2);
}

// A raw server that announces protocol version 6.
TEST(SteerErrors, VersionMismatchHasStatus4) {
  const int l_nListener = ::socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(l_nListener, 0);
  sockaddr_in l_cAddress{};
  l_cAddress.sin_family = AF_INET;
  l_cAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  l_cAddress.sin_port = 0;
  ASSERT_EQ(::bind(l_nListener, reinterpret_cast<sockaddr*>(&l_cAddress), sizeof(l_cAddress)), 0);
  ASSERT_EQ(::listen(l_nListener, 4), 0);
  socklen_t l_nLength = sizeof(l_cAddress);
  ASSERT_EQ(::getsockname(l_nListener, reinterpret_cast<sockaddr*>(&l_cAddress), &l_nLength), 0);
  const unsigned int l_nPort = ntohs(l_cAddress.sin_port);
  std::thread l_cServer([l_nListener]() {
    const int l_nPeer = ::accept(l_nListener, nullptr, nullptr);
    if (l_nPeer < 0) return;
    const unsigned char l_acVersion[4] = {6, 0, 0, 0};
    if (::write(l_nPeer, l_acVersion, sizeof(l_acVersion)) != 4) {
    }
    char l_acDrain[64];
    while (::read(l_nPeer, l_acDrain, sizeof(l_acDrain)) > 0) {
    }
    ::close(l_nPeer);
  });
  const Outcome l_cRun = SteerRaw({"--port", std::to_string(l_nPort), "models"});
  ::shutdown(l_nListener, SHUT_RDWR);
  l_cServer.join();
  ::close(l_nListener);
  EXPECT_EQ(l_cRun.status, 4);
  EXPECT_TRUE(Contains(l_cRun.err, "speaks another version of the steering protocol (this client "
                                   "speaks version 7)")) << l_cRun.err;
}

// ------------------------------------------------------------------ README

// The README's session, as written, with the built programs on PATH.
TEST(SteerReadme, TheShellSessionRunsAsWritten) {
  std::ifstream l_cReadme(QUOR_README);
  std::string l_sLine, l_sSession;
  bool l_bSection = false, l_bBlock = false, l_bDone = false;
  while (!l_bDone && std::getline(l_cReadme, l_sLine)) {
    if (l_sLine.rfind("## ", 0) == 0) l_bSection = l_sLine == "## Steering from the shell";
    if (!l_bSection) continue;
    if (!l_bBlock && l_sLine == "```sh") {
      l_bBlock = true;
    } else if (l_bBlock && l_sLine == "```") {
      l_bDone = true;
    } else if (l_bBlock) {
      l_sSession += l_sLine + "\n";
    }
  }
  ASSERT_TRUE(l_bDone) << "README.md has no sh block under \"Steering from the shell\"";
  const std::string l_sDir = TempPath("session");
  ASSERT_EQ(std::system(("mkdir -p '" + l_sDir + "'").c_str()), 0);
  std::ofstream(l_sDir + "/session.sh") << l_sSession;
  const std::string l_sPath = std::string(QUOR_STEER_DIR) + ":" + QUOR_SIMD_DIR + ":" +
                              (std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin");
  // Whatever happens, the server the session started does not outlive it.
  Child l_cShell({"/usr/bin/env", "PATH=" + l_sPath, "/bin/bash", "-c",
                  "cd '" + l_sDir + "' && trap 'kill $(jobs -p) 2>/dev/null' EXIT && set -e && "
                  ". ./session.sh"});
  const int l_nStatus = l_cShell.Wait();
  EXPECT_EQ(l_nStatus, 0) << l_cShell.Out() << l_cShell.Err();
  EXPECT_TRUE(Contains(l_cShell.Out(), "beta = 0.0001")) << l_cShell.Out();
  const std::vector<std::string> l_asRows = Lines(ReadFile(l_sDir + "/sir.csv"));
  ASSERT_EQ(l_asRows.size(), 202u);
  EXPECT_EQ(l_asRows[0], "time,S,I,R");
  EXPECT_EQ(std::system(("rm -rf '" + l_sDir + "'").c_str()), 0);
}

}  // namespace
