// SPDX-License-Identifier: MIT
// quor-web's HTTP API as a page or a script sees it: quor-simd (the SIR net)
// and quor-web run as child processes on free ports; every endpoint is
// asked with good and bad input, and the token and host rules are checked.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "child_process.h"

using nlohmann::json;
using quor_test::Child;
using quor_test::ListeningPort;

namespace {

// Long enough for a loaded machine; a correct program needs a fraction.
const int DEADLINE_MS = 30000;

bool Contains(const std::string& p_sText, const std::string& p_sPart) {
  return p_sText.find(p_sPart) != std::string::npos;
}

// Waits until p_fDone is true; false after the deadline.
bool Eventually(const std::function<bool()>& p_fDone) {
  const auto l_cEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(DEADLINE_MS);
  while (std::chrono::steady_clock::now() < l_cEnd) {
    if (p_fDone()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return p_fDone();
}

struct Reply {
  int nStatus = 0;
  json cBody;
  std::string sText;
};

// A quor-simd on a free port (or the port given).
std::unique_ptr<Child> StartSimd(unsigned int& p_rnPort) {
  std::unique_ptr<Child> l_pcSimd(
      new Child({QUOR_SIMD_PROGRAM, "--port", std::to_string(p_rnPort)}));
  p_rnPort = ListeningPort(l_pcSimd->WaitForLine("listening on port"));
  return l_pcSimd;
}

class WebApi : public ::testing::Test {
 protected:
  void SetUp() override { StartWeb({"--listen", "127.0.0.1:0"}); }

  void StartWeb(const std::vector<std::string>& p_asOptions) {
    if (!m_pcSimd) {
      m_pcSimd = StartSimd(m_nSimdPort);
      ASSERT_NE(m_nSimdPort, 0u) << m_pcSimd->Err();
    }
    std::vector<std::string> l_asArgs = {QUOR_WEB_PROGRAM, "--server",
                                         "127.0.0.1:" + std::to_string(m_nSimdPort)};
    l_asArgs.insert(l_asArgs.end(), p_asOptions.begin(), p_asOptions.end());
    m_pcWeb.reset(new Child(l_asArgs));
    m_nWebPort = ListeningPort(m_pcWeb->WaitForLine("listening on port"));
    ASSERT_NE(m_nWebPort, 0u) << m_pcWeb->Err();
    m_sUrlLine = m_pcWeb->WaitForLine("open http://");
    m_pcHttp.reset(new httplib::Client("127.0.0.1", static_cast<int>(m_nWebPort)));
    m_pcHttp->set_read_timeout(DEADLINE_MS / 1000, 0);
    ASSERT_TRUE(Eventually([this] { return Get("/api/state").cBody["status"]["connected"] == true; }));
  }

  Reply Get(const std::string& p_sPath) {
    Reply l_cReply;
    auto l_cResult = m_pcHttp->Get(p_sPath.c_str());
    if (!l_cResult) return l_cReply;
    l_cReply.nStatus = l_cResult->status;
    l_cReply.sText = l_cResult->body;
    l_cReply.cBody = json::parse(l_cResult->body, nullptr, false);
    return l_cReply;
  }

  Reply Post(const std::string& p_sPath, const std::string& p_sBody,
             const httplib::Headers& p_aHeaders = {},
             const std::string& p_sType = "application/json") {
    Reply l_cReply;
    auto l_cResult = m_pcHttp->Post(p_sPath.c_str(), p_aHeaders, p_sBody, p_sType.c_str());
    if (!l_cResult) return l_cReply;
    l_cReply.nStatus = l_cResult->status;
    l_cReply.sText = l_cResult->body;
    l_cReply.cBody = json::parse(l_cResult->body, nullptr, false);
    return l_cReply;
  }
  Reply Post(const std::string& p_sPath, const json& p_cBody) { return Post(p_sPath, p_cBody.dump()); }

  void Attach() {
    const Reply l_cReply = Post("/api/attach", json{{"model", "SIR epidemic"}});
    ASSERT_EQ(l_cReply.nStatus, 200) << l_cReply.sText;
  }

  json Status() { return Get("/api/state").cBody["status"]; }
  json Values() { return Get("/api/state").cBody["values"]; }

  // A 4xx answer with a reason.
  static void ExpectRefused(const Reply& p_rReply, int p_nStatus, const std::string& p_sReason) {
    EXPECT_EQ(p_rReply.nStatus, p_nStatus) << p_rReply.sText;
    ASSERT_TRUE(p_rReply.cBody.is_object()) << p_rReply.sText;
    EXPECT_TRUE(Contains(p_rReply.cBody.value("error", ""), p_sReason)) << p_rReply.sText;
  }

  unsigned int m_nSimdPort = 0, m_nWebPort = 0;
  std::string m_sUrlLine;
  std::unique_ptr<Child> m_pcSimd, m_pcWeb;
  std::unique_ptr<httplib::Client> m_pcHttp;
};

TEST_F(WebApi, ServesThePageAndThePlottingLibrary) {
  EXPECT_TRUE(Contains(m_sUrlLine, "quor-web: open http://127.0.0.1:" + std::to_string(m_nWebPort) + "/"))
      << m_sUrlLine;
  EXPECT_FALSE(Contains(m_sUrlLine, "token")) << m_sUrlLine;
  const Reply l_cPage = Get("/");
  EXPECT_EQ(l_cPage.nStatus, 200);
  EXPECT_TRUE(Contains(l_cPage.sText, "<title>QUOR Steering</title>"));
  EXPECT_TRUE(Contains(Get("/app.js").sText, "EventSource"));
  EXPECT_EQ(Get("/style.css").nStatus, 200);
  const Reply l_cChart = Get("/lib/chart.js");
  EXPECT_EQ(l_cChart.nStatus, 200);
  EXPECT_TRUE(Contains(l_cChart.sText, "Chart.js"));
  ExpectRefused(Get("/nothing-here"), 404, "no such page");
  ExpectRefused(Get("/../../etc/passwd"), 404, "");
}

TEST_F(WebApi, NothingButTheListNeedsAnAttachedModel) {
  const Reply l_cState = Get("/api/state");
  EXPECT_EQ(l_cState.nStatus, 200);
  EXPECT_TRUE(l_cState.cBody["model"].is_null());
  const Reply l_cModels = Get("/api/models");
  EXPECT_EQ(l_cModels.nStatus, 200);
  EXPECT_EQ(l_cModels.cBody["models"], json::array({"SIR epidemic"}));
  ExpectRefused(Get("/api/model"), 409, "attach");
  ExpectRefused(Get("/api/results.csv"), 409, "attach");
  ExpectRefused(Post("/api/command", json{{"command", "pause"}}), 409, "attach");
  ExpectRefused(Post("/api/parameter", json{{"name", "beta"}, {"value", 1}}), 409, "attach");
}

TEST_F(WebApi, AttachChecksItsBody) {
  ExpectRefused(Post("/api/attach", std::string("{not json")), 400, "not JSON");
  ExpectRefused(Post("/api/attach", std::string("[1]")), 400, "JSON object");
  ExpectRefused(Post("/api/attach", json::object()), 400, "'model'");
  ExpectRefused(Post("/api/attach", json{{"model", 3}}), 400, "'model'");
  ExpectRefused(Post("/api/attach", json{{"model", ""}}), 400, "1 to 256");
  ExpectRefused(Post("/api/attach", json{{"model", std::string(300, 'x')}}), 400, "1 to 256");
  ExpectRefused(Post("/api/attach", json{{"model", "a\nb"}}), 400, "control character");
  ExpectRefused(Post("/api/attach", json{{"model", "no such net"}}), 404, "no model 'no such net'");
  ExpectRefused(Post("/api/attach", std::string("{\"model\":\"SIR epidemic\"}"), {}, "text/plain"), 415,
                "application/json");
  ExpectRefused(Post("/api/attach", std::string(70 * 1024, ' ')), 413, "too large");

  const Reply l_cReply = Post("/api/attach", json{{"model", "SIR epidemic"}});
  ASSERT_EQ(l_cReply.nStatus, 200) << l_cReply.sText;
  EXPECT_EQ(l_cReply.cBody["model"]["places"], json::array({"S", "I", "R"}));
  const Reply l_cModel = Get("/api/model");
  ASSERT_EQ(l_cModel.nStatus, 200);
  EXPECT_EQ(l_cModel.cBody["model"]["parameters"], json::array({"beta", "gamma"}));
  EXPECT_EQ(l_cModel.cBody["model"]["interval"], json::array({0.0, 50.0, 0.25}));
  EXPECT_TRUE(Contains(l_cModel.cBody["simulators"].dump(), "\"continuous\"")) << l_cModel.sText;
  EXPECT_EQ(Get("/api/models").cBody["attached"], "SIR epidemic");
}

TEST_F(WebApi, CommandsAreCheckedAndRunTheModel) {
  Attach();
  ExpectRefused(Post("/api/command", json{{"command", "jump"}}), 400, "'command' must be");
  ExpectRefused(Post("/api/command", json{{"command", "start"}}), 400, "'simulator'");
  const json l_cStart = {{"command", "start"}, {"simulator", "continuous"}, {"start", 0}, {"end", 50}, {"step", 0.25}};
  json l_cBad = l_cStart;
  l_cBad["end"] = 0;
  ExpectRefused(Post("/api/command", l_cBad), 400, "'end' must be after");
  l_cBad = l_cStart;
  l_cBad["step"] = 0;
  ExpectRefused(Post("/api/command", l_cBad), 400, "'step' must be above 0");
  l_cBad = l_cStart;
  l_cBad["step"] = 1e-9;
  ExpectRefused(Post("/api/command", l_cBad), 400, "more than 1000000 output points");
  l_cBad = l_cStart;
  l_cBad["start"] = "0";
  ExpectRefused(Post("/api/command", l_cBad), 400, "'start' is missing or not a number");
  ExpectRefused(Post("/api/command", std::string(
                    "{\"command\":\"start\",\"simulator\":\"continuous\",\"start\":0,\"end\":1e999,\"step\":1}")),
                400, "not JSON");

  // A slow run: pause, resume and stop act on it.
  ASSERT_EQ(Post("/api/speed", json{{"speed", 40}}).nStatus, 200);
  Reply l_cReply = Post("/api/command", l_cStart);
  ASSERT_EQ(l_cReply.nStatus, 200) << l_cReply.sText;
  EXPECT_EQ(l_cReply.cBody["ok"], true);
  EXPECT_EQ(Status()["stateName"], "running");
  // A second start while the run goes is refused, and the reason comes back.
  l_cReply = Post("/api/command", l_cStart);
  ASSERT_EQ(l_cReply.nStatus, 200);
  EXPECT_EQ(l_cReply.cBody["ok"], false);
  ASSERT_FALSE(l_cReply.cBody["refusals"].empty()) << l_cReply.sText;
  ASSERT_EQ(Post("/api/command", json{{"command", "pause"}}).nStatus, 200);
  EXPECT_TRUE(Eventually([this] { return Status()["stateName"] == "paused"; }));
  ASSERT_EQ(Post("/api/command", json{{"command", "resume"}}).nStatus, 200);
  EXPECT_TRUE(Eventually([this] { return Status()["stateName"] == "running"; }));
  ASSERT_EQ(Post("/api/command", json{{"command", "stop"}}).nStatus, 200);
  EXPECT_TRUE(Eventually([this] { return Status()["stateName"] == "stopped"; }));

  // A fast run to its end: the CSV holds every output point.
  ASSERT_EQ(Post("/api/speed", json{{"speed", 0}}).nStatus, 200);
  l_cBad = l_cStart;
  l_cBad["command"] = "restart";
  ASSERT_EQ(Post("/api/command", l_cBad).nStatus, 200);
  EXPECT_TRUE(Eventually([this] { return Status()["stateName"] == "finished"; }));
  EXPECT_TRUE(Eventually([this] { return Get("/api/state").cBody["points"]["t"].size() == 201u; }));
  const Reply l_cCsv = Get("/api/results.csv");
  ASSERT_EQ(l_cCsv.nStatus, 200);
  EXPECT_EQ(l_cCsv.sText.substr(0, 13), "time,S,I,R\n0,");
  EXPECT_EQ(std::count(l_cCsv.sText.begin(), l_cCsv.sText.end(), '\n'), 202);
  EXPECT_TRUE(Contains(l_cCsv.sText, "\n50,")) << l_cCsv.sText.substr(l_cCsv.sText.size() - 80);
}

TEST_F(WebApi, SpeedIsAWholeNumberInRange) {
  Attach();
  ExpectRefused(Post("/api/speed", json{{"speed", -1}}), 400, "whole number from 0 to 1000000");
  ExpectRefused(Post("/api/speed", json{{"speed", 1.5}}), 400, "whole number");
  ExpectRefused(Post("/api/speed", json{{"speed", 2000000}}), 400, "whole number");
  ExpectRefused(Post("/api/speed", json{{"speed", "fast"}}), 400, "not a number");
  ASSERT_EQ(Post("/api/speed", json{{"speed", 17}}).nStatus, 200);
  EXPECT_EQ(Status()["speed"], 17);
}

TEST_F(WebApi, ParametersMarkingsAndResets) {
  Attach();
  ExpectRefused(Post("/api/parameter", json{{"name", "delta"}, {"value", 1}}), 404, "no parameter 'delta'");
  ExpectRefused(Post("/api/parameter", json{{"name", "beta"}}), 400, "'value'");
  ExpectRefused(Post("/api/marking", json{{"place", "X"}, {"value", 1}}), 404, "no place 'X'");
  // The server refuses a negative value: the refusal comes back with the answer.
  Reply l_cReply = Post("/api/parameter", json{{"name", "beta"}, {"value", -1}});
  ASSERT_EQ(l_cReply.nStatus, 200) << l_cReply.sText;
  EXPECT_EQ(l_cReply.cBody["ok"], false);
  ASSERT_EQ(l_cReply.cBody["refusals"].size(), 1u) << l_cReply.sText;

  l_cReply = Post("/api/parameter", json{{"name", "beta"}, {"value", 0.0001}});
  ASSERT_EQ(l_cReply.nStatus, 200) << l_cReply.sText;
  EXPECT_EQ(l_cReply.cBody["ok"], true);
  EXPECT_EQ(l_cReply.cBody["refusals"], json::array());
  EXPECT_EQ(Values()["parameters"][0], 0.0001);
  ASSERT_EQ(Post("/api/marking", json{{"place", "I"}, {"value", 25}}).nStatus, 200);
  EXPECT_EQ(Values()["marking"][1], 25.0);

  ExpectRefused(Post("/api/reset", json{{"what", "everything"}}), 400, "parameters or marking");
  ASSERT_EQ(Post("/api/reset", json{{"what", "parameters"}}).nStatus, 200);
  EXPECT_EQ(Values()["parameters"][0], 0.0003);
  ASSERT_EQ(Post("/api/reset", json{{"what", "marking"}}).nStatus, 200);
  EXPECT_NE(Values()["marking"][1], 25.0);
}

TEST_F(WebApi, SimulatorChoiceAndSettings) {
  Attach();
  ExpectRefused(Post("/api/simulator", json{{"category", "Stochastic"}}), 400, "'simulator'");
  ASSERT_EQ(Post("/api/simulator", json{{"category", "Stochastic"}, {"simulator", "stochastic"}}).nStatus, 200);
  EXPECT_EQ(Status()["chosenSimulator"], "stochastic");

  ExpectRefused(Get("/api/settings"), 400, "'simulator'");
  ExpectRefused(Get("/api/settings?simulator=nothing"), 404, "no settings for 'nothing'");
  const Reply l_cSettings = Get("/api/settings?simulator=continuous");
  ASSERT_EQ(l_cSettings.nStatus, 200) << l_cSettings.sText;
  json l_cTolerance;
  for (const json& l_cEntry : l_cSettings.cBody["settings"])
    if (l_cEntry["name"] == "AbsoluteTolerance") l_cTolerance = l_cEntry;
  ASSERT_TRUE(l_cTolerance.is_object()) << l_cSettings.sText;
  EXPECT_EQ(l_cTolerance["min"], 1e-20);
  EXPECT_EQ(l_cTolerance["max"], 1e10);

  ExpectRefused(Post("/api/settings", json{{"simulator", "continuous"}}), 400, "'values'");
  ExpectRefused(Post("/api/settings", json{{"simulator", "continuous"}, {"values", {{"Method", json::array()}}}}),
                400, "'Method'");
  ExpectRefused(Post("/api/settings", json{{"simulator", "continuous"}, {"values", {{"Nope", 1}}}}), 404,
                "no setting 'Nope'");
  Reply l_cReply = Post("/api/settings", json{{"simulator", "continuous"}, {"values", {{"RelativeTolerance", 5}}}});
  ASSERT_EQ(l_cReply.nStatus, 200) << l_cReply.sText;
  EXPECT_EQ(l_cReply.cBody["ok"], false);
  EXPECT_FALSE(l_cReply.cBody["refusals"].empty());
  l_cReply = Post("/api/settings", json{{"simulator", "continuous"}, {"values", {{"Method", "Adams"}}}});
  ASSERT_EQ(l_cReply.nStatus, 200) << l_cReply.sText;
  EXPECT_EQ(l_cReply.cBody["ok"], true) << l_cReply.sText;
  EXPECT_TRUE(Contains(Get("/api/settings?simulator=continuous").sText, "\"value\":\"Adams\""));
  Post("/api/settings", json{{"simulator", "continuous"}, {"values", {{"Method", "BDF"}}}});
}

// The stream that every page follows: a snapshot first, then the changes,
// whoever made them.
TEST_F(WebApi, EventsStreamASnapshotThenEveryChange) {
  Attach();
  httplib::Client l_cStream("127.0.0.1", static_cast<int>(m_nWebPort));
  l_cStream.set_read_timeout(DEADLINE_MS / 1000, 0);
  std::string l_sSeen;
  bool l_bChanged = false;
  std::thread l_cChanger;
  auto l_cResult = l_cStream.Get("/api/events", [&](const char* p_pData, std::size_t p_nSize) {
    l_sSeen.append(p_pData, p_nSize);
    if (!l_bChanged && Contains(l_sSeen, "\"type\":\"snapshot\"")) {
      l_bChanged = true;
      l_cChanger = std::thread([this] { Post("/api/speed", json{{"speed", 321}}); });
    }
    return !Contains(l_sSeen, "\"speed\":321");
  });
  if (l_cChanger.joinable()) l_cChanger.join();
  EXPECT_EQ(l_sSeen.compare(0, 6, "data: "), 0) << l_sSeen.substr(0, 100);
  EXPECT_TRUE(Contains(l_sSeen, "\"type\":\"status\"")) << l_sSeen.substr(0, 300);
  EXPECT_TRUE(Contains(l_sSeen, "\"speed\":321"));
}

TEST_F(WebApi, ALoopbackServerAnswersLoopbackNamesOnly) {
  httplib::Headers l_aHeaders = {{"Host", "attacker.example:80"}};
  auto l_cResult = m_pcHttp->Get("/api/state", l_aHeaders);
  ASSERT_TRUE(l_cResult);
  EXPECT_EQ(l_cResult->status, 403);
  l_cResult = m_pcHttp->Get("/api/state", httplib::Headers{{"Host", "localhost:" + std::to_string(m_nWebPort)}});
  ASSERT_TRUE(l_cResult);
  EXPECT_EQ(l_cResult->status, 200);
}

TEST_F(WebApi, ChangesNeedTheTokenWhenNotOnLoopback) {
  StartWeb({"--listen", "0.0.0.0:0", "--token", "s3cret"});
  EXPECT_TRUE(Contains(m_sUrlLine, "/?token=s3cret")) << m_sUrlLine;
  // Reading needs no token; any name may be used to reach the server.
  EXPECT_EQ(Get("/api/models").nStatus, 200);
  const json l_cAttach = {{"model", "SIR epidemic"}};
  ExpectRefused(Post("/api/attach", l_cAttach.dump()), 403, "token");
  ExpectRefused(Post("/api/attach", l_cAttach.dump(), {{"X-Quor-Token", "s3cre"}}), 403, "token");
  ExpectRefused(Post("/api/attach", l_cAttach.dump(), {{"X-Quor-Token", "s3cret!"}}), 403, "token");
  EXPECT_EQ(Post("/api/attach", l_cAttach.dump(), {{"X-Quor-Token", "s3cret"}}).nStatus, 200);
}

TEST_F(WebApi, ARandomTokenIsMadeWhenNotOnLoopback) {
  StartWeb({"--listen", "0.0.0.0:0"});
  const std::size_t l_nAt = m_sUrlLine.find("?token=");
  ASSERT_NE(l_nAt, std::string::npos) << m_sUrlLine;
  const std::string l_sToken = m_sUrlLine.substr(l_nAt + 7);
  EXPECT_EQ(l_sToken.size(), 32u) << m_sUrlLine;
  EXPECT_EQ(Post("/api/attach", json{{"model", "SIR epidemic"}}.dump(), {{"X-Quor-Token", l_sToken}}).nStatus, 200);
  ExpectRefused(Post("/api/attach", json{{"model", "SIR epidemic"}}), 403, "token");
}

TEST_F(WebApi, ConnectsAndAttachesAgainWhenTheServerComesBack) {
  Attach();
  m_pcSimd->Signal(SIGKILL);
  m_pcSimd->Wait();
  ASSERT_TRUE(Eventually([this] { return Status()["connected"] == false; }));
  EXPECT_TRUE(Contains(Status()["connection"].get<std::string>(), "127.0.0.1:" + std::to_string(m_nSimdPort)));
  ExpectRefused(Post("/api/command", json{{"command", "pause"}}), 503, "");
  unsigned int l_nPort = m_nSimdPort;
  m_pcSimd = StartSimd(l_nPort);
  ASSERT_EQ(l_nPort, m_nSimdPort) << m_pcSimd->Err();
  ASSERT_TRUE(Eventually([this] { return Status()["connected"] == true; }));
  EXPECT_TRUE(Contains(Get("/api/state").sText, "attached to 'SIR epidemic' again"));
  EXPECT_EQ(Post("/api/speed", json{{"speed", 5}}).nStatus, 200);
  EXPECT_EQ(Status()["speed"], 5);
}

TEST(WebProgram, CommandLineErrorsAndFailures) {
  Child l_cNoServer({QUOR_WEB_PROGRAM});
  EXPECT_EQ(l_cNoServer.Wait(), 2);
  EXPECT_TRUE(Contains(l_cNoServer.Err(), "quor-web: --server HOST:PORT is needed")) << l_cNoServer.Err();
  Child l_cBadServer({QUOR_WEB_PROGRAM, "--server", "localhost"});
  EXPECT_EQ(l_cBadServer.Wait(), 2);
  Child l_cBadListen({QUOR_WEB_PROGRAM, "--server", "127.0.0.1:3000", "--listen", "127.0.0.1:99999"});
  EXPECT_EQ(l_cBadListen.Wait(), 2);
  Child l_cBadToken({QUOR_WEB_PROGRAM, "--server", "127.0.0.1:3000", "--token", "a b"});
  EXPECT_EQ(l_cBadToken.Wait(), 2);
  // An address of no interface of this machine: a run-time failure.
  Child l_cCannot({QUOR_WEB_PROGRAM, "--server", "127.0.0.1:3000", "--listen", "192.0.2.1:0"});
  EXPECT_EQ(l_cCannot.Wait(), 1);
  EXPECT_TRUE(Contains(l_cCannot.Err(), "quor-web: cannot listen on 192.0.2.1:0")) << l_cCannot.Err();
}

TEST(WebProgram, ASignalEndsItWithStatus0) {
  Child l_cWeb({QUOR_WEB_PROGRAM, "--server", "127.0.0.1:1", "--listen", "127.0.0.1:0"});
  ASSERT_NE(ListeningPort(l_cWeb.WaitForLine("listening on port")), 0u) << l_cWeb.Err();
  l_cWeb.Signal(SIGTERM);
  EXPECT_EQ(l_cWeb.Wait(), 0) << l_cWeb.Err();
}

}  // namespace
