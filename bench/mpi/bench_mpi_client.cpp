// SPDX-License-Identifier: MIT
// quor_bench_mpi_client PORT RUNS: the client side of the MPI benchmark
// (bench/mpi/run). Runs the served model's stochastic ensemble of RUNS runs
// of seed 1 from 0 to 10 every 0.1 on the quor-simd job at PORT, waits for
// its end and prints the run's own time in seconds (from the line that ends
// the run: "run finished (N output points, X s)"). Exit status 1 when the
// run did not finish.
#include <quor/quor.h>
#include <wx/init.h>
#include <wx/socket.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: quor_bench_mpi_client PORT RUNS\n");
    return 2;
  }
  wxInitializer l_cInit;
  wxSocketBase::Initialize();
  quor::SteeringClient l_cClient(wxT("127.0.0.1"), wxString::FromUTF8(argv[1]));
  l_cClient.SetTimeout(600);
  if (l_cClient.ConnectToServer(true) != 1 || l_cClient.Initialize(0) != 1) {
    std::fprintf(stderr, "quor_bench_mpi_client: cannot attach to the model\n");
    return 1;
  }
  quor::SimulatorAttribute l_cSettings;
  l_cSettings.AddAttribute(wxT("Seed"), wxT(""), wxT("1"), 0, 0, 0);
  l_cSettings.AddAttribute(wxT("Runs"), wxT(""), wxString::FromUTF8(argv[2]), 0, 0, 0);
  if (l_cClient.SendSimulatorSetting(wxT("stochastic"), &l_cSettings) != 1 ||
      l_cClient.CMD_Start(wxT("stochastic"), 0, 10, 0.1) != 1) {
    std::fprintf(stderr, "quor_bench_mpi_client: the run did not start\n");
    return 1;
  }
  const std::string l_sKey = "run finished (";
  for (int i = 0; i < 6000; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    wxString l_sLog;
    if (l_cClient.ReadLogMessage(l_sLog) != 1) break;
    const std::string l_sText(l_sLog.utf8_str());
    const std::size_t l_nAt = l_sText.find(l_sKey);
    if (l_nAt == std::string::npos) continue;
    const std::size_t l_nComma = l_sText.find(", ", l_nAt);
    if (l_nComma == std::string::npos) break;
    std::printf("%s\n", l_sText.substr(l_nComma + 2, l_sText.find(" s)", l_nComma) - l_nComma - 2).c_str());
    delete l_cClient.GetModel();
    return 0;
  }
  std::fprintf(stderr, "quor_bench_mpi_client: the run did not finish\n");
  delete l_cClient.GetModel();
  return 1;
}
