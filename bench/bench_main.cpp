// SPDX-License-Identifier: MIT
// quor_bench: the library's requests, bulk transfers and whole-model
// transfers over loopback, each measured in the same run as its floor.
#include <benchmark/benchmark.h>
#include <wx/init.h>
#include <wx/log.h>
#include <wx/socket.h>

#include <cstdio>

#include "bench_cases.h"
#include "bench_support.h"

int main(int argc, char** argv) {
  wxInitializer l_cWx;
  if (!l_cWx.IsOk()) {
    std::fprintf(stderr, "cannot initialise wxWidgets\n");
    return 1;
  }
  wxSocketBase::Initialize();
  // The server's notices (every connection opened and closed) stay out of
  // the output.
  wxLog::SetLogLevel(wxLOG_Warning);

  benchmark::Initialize(&argc, argv);
  // The compressor of the library's frames, for the table's floors.
  benchmark::AddCustomContext("quor_compressor", quor_bench::DeflateName());
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  quor_bench::RegisterRequestBenchmarks();
  quor_bench::RegisterBulkBenchmarks();
  quor_bench::RegisterModelBenchmarks();
  benchmark::RunSpecifiedBenchmarks();
  quor_bench::ReleaseBulkBenchmarks();
  benchmark::Shutdown();
  return 0;
}
