// SPDX-License-Identifier: MIT
// A complete steering client: it connects to a simulation server, lists the
// running models, attaches to the first one, reads its parameters, halves
// the first parameter, runs the simulation over the model's interval, waits
// for the run to end and prints the final marking from the result matrix.
//
//   quor-example-client HOST PORT        (exit status 0, 1 on failure)
#include <quor/quor.h>

#include <wx/init.h>
#include <wx/socket.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

static int Fail(const char* p_sWhat, unsigned int p_nResult) {
  std::fprintf(stderr, "quor-example-client: %s failed (%s)\n", p_sWhat,
               static_cast<const char*>(quor::ResultName(p_nResult).utf8_str()));
  return 1;
}

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
    std::printf("Usage: quor-example-client HOST PORT\n"
                "Runs the first model of a QUOR simulation server with its first parameter\n"
                "halved and prints the final marking.\n"
                "  --help     show this help and exit\n"
                "  --version  show the version and exit\n");
    return 0;
  }
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::printf("quor-example-client %s\n", quor::GetVersionString());
    return 0;
  }
  if (argc != 3 || argv[1][0] == '-') {
    std::fprintf(stderr, "Usage: quor-example-client HOST PORT (or --help, --version)\n");
    return 2;
  }

  wxInitializer l_cWx;  // wxWidgets, then its sockets, on the main thread
  if (!l_cWx.IsOk() || !wxSocketBase::Initialize()) return Fail("start-up", quor::FAILURE);

  quor::SteeringClient l_cClient(argv[1], argv[2]);
  unsigned int l_nResult = l_cClient.ConnectToServer(true);
  if (l_nResult != quor::SUCCESS) return Fail("connecting", l_nResult);

  std::vector<wxString> l_asModels;
  l_nResult = l_cClient.GetRuningModelNames(l_asModels);
  if (l_nResult != quor::SUCCESS || l_asModels.empty()) return Fail("listing models", l_nResult);
  for (const wxString& l_sName : l_asModels) std::printf("model: %s\n", l_sName.utf8_str().data());

  l_nResult = l_cClient.Initialize(0);  // attach to the first running model
  if (l_nResult != quor::SUCCESS) return Fail("attaching", l_nResult);
  std::unique_ptr<quor::Model> l_pcModel(l_cClient.GetModel());  // ours to delete

  std::vector<double> l_adValues;
  l_nResult = l_cClient.ReadCurrentParameterValues(l_adValues);
  if (l_nResult != quor::SUCCESS) return Fail("reading parameters", l_nResult);
  const std::vector<wxString> l_asParameters =
      l_pcModel->GetAttributeValueVectorString(quor::keys::PARAMETER_NAMES);
  for (std::size_t i = 0; i < l_adValues.size() && i < l_asParameters.size(); ++i)
    std::printf("parameter %s = %g\n", l_asParameters[i].utf8_str().data(), l_adValues[i]);
  if (!l_adValues.empty()) {
    l_nResult = l_cClient.ChangeCurrentParameterValues(0, l_adValues[0] / 2);
    if (l_nResult != quor::SUCCESS) return Fail("changing a parameter", l_nResult);
  }

  l_nResult = l_cClient.CMD_Start(wxT("continuous"),
                                  l_pcModel->GetAttributeValueDouble(quor::keys::START_OUTPUT_POINT),
                                  l_pcModel->GetAttributeValueDouble(quor::keys::END_OUTPUT_POINT),
                                  l_pcModel->GetAttributeValueDouble(quor::keys::SAMPLE_POINT_SIZE));
  if (l_nResult != quor::SUCCESS) return Fail("starting", l_nResult);
  // The server answers one client's requests in order: the state read after
  // CMD_Start is this run's.
  int l_nState = quor::SIMULATOR_RUNNING;
  while (quor::IsRunActive(l_nState)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    l_nResult = l_cClient.ReadSimulatorState(l_nState);
    if (l_nResult != quor::SUCCESS) return Fail("reading the state", l_nResult);
  }
  if (l_nState != quor::SIMULATOR_FINISHED) {
    wxString l_sWhy;
    l_cClient.ReceiveErrorMessage(l_sWhy);
    std::fprintf(stderr, "quor-example-client: the run ended %s: %s\n",
                 quor::SimulatorStateName(l_nState), l_sWhy.utf8_str().data());
    return 1;
  }

  std::vector<std::vector<double> > l_aadResult;  // a row per place, a column per time
  l_nResult = l_cClient.ReadResultMatrix(l_aadResult);
  if (l_nResult != quor::SUCCESS) return Fail("reading the result", l_nResult);
  const std::vector<wxString> l_asPlaces =
      l_pcModel->GetAttributeValueVectorString(quor::keys::PLACE_NAMES);
  for (std::size_t i = 0; i < l_aadResult.size() && i < l_asPlaces.size(); ++i)
    if (!l_aadResult[i].empty())
      std::printf("final %s = %g\n", l_asPlaces[i].utf8_str().data(), l_aadResult[i].back());
  l_cClient.DisConnectFromServer();
  return 0;
}
