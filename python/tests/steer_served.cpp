// SPDX-License-Identifier: MIT
// quor-py-steer-check PORT: a C++ steering client (the library's
// SteeringClient) against a simulation that Python serves on
// 127.0.0.1:PORT. It attaches to model 0, paces it, starts it, pauses it
// part-way, changes parameter 0 to 0.5 while it waits, resumes it, waits
// for the end and prints what it saw:
//
//   model NAME
//   places P1 P2 ...
//   parameters K1=V1 ...
//   paused N        (the output points recorded when the run paused)
//   row P1 V0 V1 ...
//
// Exit status 0 when every request went through and the run finished, 1
// otherwise (the reason on stderr), 2 on a wrong command line.
#include <wx/init.h>
#include <wx/socket.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "quor/attributeVector.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/simulatorState.h"
#include "quor/steeringclient.h"

namespace {

typedef std::chrono::steady_clock Clock;
// Long enough for a loaded machine; a correct server needs a fraction.
const std::chrono::seconds DEADLINE(60);

std::string Text(const wxString& p_sText) { return std::string(p_sText.utf8_str()); }

int Fail(const std::string& p_sText) {
  std::fprintf(stderr, "quor-py-steer-check: %s\n", p_sText.c_str());
  return 1;
}

struct Stats {
  int state = -1;
  double progress = 0.0;
};

bool ReadStats(quor::SteeringClient& p_rClient, Stats& p_rStats) {
  quor::ModelRuntimeState l_cState;
  if (p_rClient.ReadModelStatistics(l_cState) != quor::SUCCESS) return false;
  p_rStats.state = l_cState.FindValue<quor::AttributeInt>(quor::keys::SIMULATOR_STATE, -1);
  p_rStats.progress =
      l_cState.FindValue<quor::AttributeDouble>(quor::keys::SIMULATOR_PROGRESS, 0.0);
  return true;
}

// Polls the runtime state until p_fDone holds; false on a failed request or
// when the deadline passes.
bool WaitFor(quor::SteeringClient& p_rClient, const std::function<bool(const Stats&)>& p_fDone,
             Stats& p_rLast) {
  const Clock::time_point l_tDeadline = Clock::now() + DEADLINE;
  while (Clock::now() < l_tDeadline) {
    if (!ReadStats(p_rClient, p_rLast)) return false;
    if (p_fDone(p_rLast)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

int Steer(quor::SteeringClient& c) {
  if (c.ConnectToServer(false) != quor::SUCCESS) return Fail("cannot connect");
  if (c.Initialize(0) != quor::SUCCESS) return Fail("cannot attach to model 0");
  std::unique_ptr<quor::Model> l_pcModel(c.GetModel());
  std::printf("model %s\n", Text(l_pcModel->GetModelName()).c_str());
  const std::vector<wxString> l_asPlaces =
      l_pcModel->FindValue<quor::AttributeVectorString>(quor::keys::PLACE_NAMES,
                                                        std::vector<wxString>());
  std::printf("places");
  for (const wxString& l_sPlace : l_asPlaces) std::printf(" %s", Text(l_sPlace).c_str());
  std::printf("\n");
  const std::vector<wxString> l_asParameters =
      l_pcModel->FindValue<quor::AttributeVectorString>(quor::keys::PARAMETER_NAMES,
                                                        std::vector<wxString>());
  std::vector<double> l_adValues;
  if (c.ReadCurrentParameterValues(l_adValues) != quor::SUCCESS)
    return Fail("ReadCurrentParameterValues failed");
  std::printf("parameters");
  for (size_t i = 0; i < l_asParameters.size() && i < l_adValues.size(); ++i)
    std::printf(" %s=%.17g", Text(l_asParameters[i]).c_str(), l_adValues[i]);
  std::printf("\n");
  if (l_asParameters.empty()) return Fail("the model has no parameter to steer");

  // 41 points at 50 per second: a little under a second.
  if (c.ChanageSimulatorSpeed(50) != quor::SUCCESS) return Fail("ChanageSimulatorSpeed failed");
  if (c.CMD_Start(wxT("continuous"), 0.0, 40.0, 1.0) != quor::SUCCESS)
    return Fail("CMD_Start failed");
  Stats l_cStats;
  if (!WaitFor(c, [](const Stats& s) { return s.state == quor::SIMULATOR_RUNNING && s.progress >= 10; },
               l_cStats))
    return Fail("the run did not get going (state " + std::to_string(l_cStats.state) + ")");
  if (c.CMD_Pause() != quor::SUCCESS) return Fail("CMD_Pause failed");
  if (!WaitFor(c, [](const Stats& s) { return s.state == quor::SIMULATOR_PAUSED; }, l_cStats))
    return Fail("the run did not pause (state " + std::to_string(l_cStats.state) + ")");
  std::vector<std::vector<double> > l_aadResults;
  if (c.ReadResultMatrix(l_aadResults) != quor::SUCCESS || l_aadResults.empty())
    return Fail("ReadResultMatrix failed");
  std::printf("paused %zu\n", l_aadResults[0].size());
  if (c.ChangeCurrentParameterValues(0, 0.5) != quor::SUCCESS)
    return Fail("ChangeCurrentParameterValues failed");
  if (c.CMD_Resume() != quor::SUCCESS) return Fail("CMD_Resume failed");
  if (!WaitFor(c, [](const Stats& s) { return !quor::IsRunActive(s.state); }, l_cStats))
    return Fail("the run did not end");
  if (l_cStats.state != quor::SIMULATOR_FINISHED)
    return Fail(std::string("the run ended ") + quor::SimulatorStateName(l_cStats.state));
  if (c.ReadResultMatrix(l_aadResults) != quor::SUCCESS) return Fail("ReadResultMatrix failed");
  for (size_t r = 0; r < l_aadResults.size(); ++r) {
    std::printf("row %s", r < l_asPlaces.size() ? Text(l_asPlaces[r]).c_str() : "?");
    for (double l_dValue : l_aadResults[r]) std::printf(" %.17g", l_dValue);
    std::printf("\n");
  }
  c.DisConnectFromServer();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || std::atoi(argv[1]) <= 0) {
    std::fprintf(stderr, "usage: quor-py-steer-check PORT\n");
    return 2;
  }
  wxInitializer l_cInitializer;
  if (!l_cInitializer.IsOk() || !wxSocketBase::Initialize()) return Fail("wxWidgets failed");
  quor::SteeringClient l_cClient(wxT("127.0.0.1"), wxString::FromUTF8(argv[1]));
  l_cClient.SetTimeout(30);
  const int l_nStatus = Steer(l_cClient);
  std::fflush(stdout);
  return l_nStatus;
}
