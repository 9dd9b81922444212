// SPDX-License-Identifier: MIT
// Small requests: a SteeringClient against a loopback server that answers at
// once, beside a raw POSIX ping-pong of exactly the same frames (sizes and
// directions), each acknowledged with one byte.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench_cases.h"
#include "bench_support.h"
#include "quor/steeringclient.h"

namespace quor_bench {

namespace {

// The name of the started simulation; its length is part of the frames.
const char START_NAME[] = "sim";

const RawFrame TO_SERVER_4 = {true, 4};
const RawFrame TO_SERVER_8 = {true, 8};
const RawFrame TO_CLIENT_4 = {false, 4};

void Configure(benchmark::internal::Benchmark* p_pcBenchmark) {
  p_pcBenchmark->UseRealTime()
      ->Unit(benchmark::kMicrosecond)
      ->MinTime(0.3)
      ->Repetitions(3)
      ->ReportAggregatesOnly(true);
}

void RawFloor(benchmark::State& p_cState, const std::vector<RawFrame>& p_aScript) {
  RawPingPong l_cPeer(p_aScript);
  for (auto _ : p_cState) {
    if (!l_cPeer.Run()) {
      p_cState.SkipWithError("raw exchange failed");
      break;
    }
  }
  p_cState.counters["frames"] = static_cast<double>(p_aScript.size());
}

void ChangeParameter(benchmark::State& p_cState) {
  LoopbackSession l_cSession;
  quor::SteeringClient& l_cClient = l_cSession.Client();
  const unsigned long long l_nPosition = 3;
  double l_dValue = 0.25;
  for (auto _ : p_cState) {
    if (l_cClient.ChangeCurrentParameterValues(l_nPosition, l_dValue) != 1) {
      p_cState.SkipWithError("ChangeCurrentParameterValues failed");
      break;
    }
    l_dValue += 1e-3;
  }
}

void StartCommand(benchmark::State& p_cState) {
  LoopbackSession l_cSession;
  quor::SteeringClient& l_cClient = l_cSession.Client();
  const wxString l_sName = wxString::FromAscii(START_NAME);
  for (auto _ : p_cState) {
    if (l_cClient.CMD_Start(l_sName, 0.0, 100.0, 1.0) != 1) {
      p_cState.SkipWithError("CMD_Start failed");
      break;
    }
  }
}

void SimulatorState(benchmark::State& p_cState) {
  LoopbackSession l_cSession;
  quor::SteeringClient& l_cClient = l_cSession.Client();
  int l_nState = 0;
  for (auto _ : p_cState) {
    if (l_cClient.ReadSimulatorState(l_nState) != 1) {
      p_cState.SkipWithError("ReadSimulatorState failed");
      break;
    }
    benchmark::DoNotOptimize(l_nState);
  }
}

}  // namespace

void RegisterRequestBenchmarks() {
  // Request code, position (8), value (8).
  const std::vector<RawFrame> l_aChange = {TO_SERVER_4, TO_SERVER_8, TO_SERVER_8};
  // Request code, CMD_TYPE, name length (8), name, the interval (24).
  const std::vector<RawFrame> l_aStart = {TO_SERVER_4, TO_SERVER_4, TO_SERVER_8,
                                          {true, sizeof(START_NAME) - 1}, {true, 24}};
  // Request code, then the state back to the client.
  const std::vector<RawFrame> l_aState = {TO_SERVER_4, TO_CLIENT_4};

  Configure(benchmark::RegisterBenchmark("request:ChangeCurrentParameterValues:ours",
                                         ChangeParameter));
  Configure(benchmark::RegisterBenchmark(
      "request:ChangeCurrentParameterValues:floor-raw",
      [l_aChange](benchmark::State& p_cState) { RawFloor(p_cState, l_aChange); }));
  Configure(benchmark::RegisterBenchmark("request:CMD_Start:ours", StartCommand));
  Configure(benchmark::RegisterBenchmark(
      "request:CMD_Start:floor-raw",
      [l_aStart](benchmark::State& p_cState) { RawFloor(p_cState, l_aStart); }));
  Configure(benchmark::RegisterBenchmark("request:ReadSimulatorState:ours", SimulatorState));
  Configure(benchmark::RegisterBenchmark(
      "request:ReadSimulatorState:floor-raw",
      [l_aState](benchmark::State& p_cState) { RawFloor(p_cState, l_aState); }));
}

}  // namespace quor_bench
