// SPDX-License-Identifier: MIT
// Small requests: a SteeringClient against the library's server
// (SteeringDispatcher with the default handler and its store), beside a raw
// POSIX ping-pong of exactly the same frames (sizes and directions), each
// acknowledged with one byte. Then many clients at once, against as many
// raw ping-pong pairs.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
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
  DispatcherServer l_cServer;
  RegisteredClient l_pcClient = l_cServer.Connect();
  quor::SteeringClient& l_cClient = *l_pcClient;
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
  DispatcherServer l_cServer;
  RegisteredClient l_pcClient = l_cServer.Connect();
  quor::SteeringClient& l_cClient = *l_pcClient;
  const wxString l_sName = wxString::FromAscii(START_NAME);
  for (auto _ : p_cState) {
    if (l_cClient.CMD_Start(l_sName, 0.0, 100.0, 1.0) != 1) {
      p_cState.SkipWithError("CMD_Start failed");
      break;
    }
  }
}

void SimulatorState(benchmark::State& p_cState) {
  DispatcherServer l_cServer;
  RegisteredClient l_pcClient = l_cServer.Connect();
  quor::SteeringClient& l_cClient = *l_pcClient;
  int l_nState = 0;
  for (auto _ : p_cState) {
    if (l_cClient.ReadSimulatorState(l_nState) != 1) {
      p_cState.SkipWithError("ReadSimulatorState failed");
      break;
    }
    benchmark::DoNotOptimize(l_nState);
  }
}

// Many clients at once: each runs its requests back to back for the same
// time; every request's latency is kept.
const double CONCURRENT_SECONDS = 2.0;

// Runs p_fRequest on p_nClients threads for CONCURRENT_SECONDS and reports
// requests per second and the median and 99th percentile latency.
template <typename F>
void RunConcurrently(benchmark::State& p_cState, size_t p_nClients, F p_fRequest) {
  typedef std::chrono::steady_clock Clock;
  std::vector<std::vector<double> > l_aadLatencies(p_nClients);
  std::atomic<size_t> l_nFailed{0};
  std::atomic<bool> l_bGo{false};
  const Clock::duration l_cLength =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(CONCURRENT_SECONDS));
  std::vector<std::thread> l_acClients;
  for (size_t k = 0; k < p_nClients; ++k) {
    l_acClients.emplace_back([&, k] {
      while (!l_bGo.load()) std::this_thread::yield();
      const Clock::time_point l_cEnd = Clock::now() + l_cLength;
      std::vector<double>& l_adLatencies = l_aadLatencies[k];
      l_adLatencies.reserve(100000);
      for (Clock::time_point l_cStart = Clock::now(); l_cStart < l_cEnd;) {
        if (!p_fRequest(k)) {
          ++l_nFailed;
          return;
        }
        const Clock::time_point l_cDone = Clock::now();
        l_adLatencies.push_back(std::chrono::duration<double>(l_cDone - l_cStart).count());
        l_cStart = l_cDone;
      }
    });
  }
  const Clock::time_point l_cStart = Clock::now();
  l_bGo = true;
  for (std::thread& l_cClient : l_acClients) l_cClient.join();
  const double l_dSeconds = std::chrono::duration<double>(Clock::now() - l_cStart).count();
  for (auto _ : p_cState) p_cState.SetIterationTime(l_dSeconds);
  if (l_nFailed.load() != 0) {
    p_cState.SkipWithError("a request failed");
    return;
  }
  std::vector<double> l_adAll;
  for (const std::vector<double>& l_adLatencies : l_aadLatencies)
    l_adAll.insert(l_adAll.end(), l_adLatencies.begin(), l_adLatencies.end());
  std::sort(l_adAll.begin(), l_adAll.end());
  if (l_adAll.empty()) {
    p_cState.SkipWithError("no request completed");
    return;
  }
  p_cState.counters["requests_per_second"] = static_cast<double>(l_adAll.size()) / l_dSeconds;
  p_cState.counters["p50_seconds"] = l_adAll[l_adAll.size() / 2];
  p_cState.counters["p99_seconds"] = l_adAll[std::min(l_adAll.size() - 1, l_adAll.size() * 99 / 100)];
}

void ConcurrentStates(benchmark::State& p_cState, size_t p_nClients) {
  DispatcherServer l_cServer;
  std::vector<RegisteredClient> l_apcClients = l_cServer.ConnectMany(p_nClients);
  RunConcurrently(p_cState, p_nClients, [&](size_t k) {
    int l_nState = 0;
    return l_apcClients[k]->ReadSimulatorState(l_nState) == 1;
  });
}

void ConcurrentRawFloor(benchmark::State& p_cState, size_t p_nClients,
                        const std::vector<RawFrame>& p_aScript) {
  std::vector<std::unique_ptr<RawPingPong> > l_apcPairs;
  for (size_t k = 0; k < p_nClients; ++k) l_apcPairs.emplace_back(new RawPingPong(p_aScript));
  RunConcurrently(p_cState, p_nClients, [&](size_t k) { return l_apcPairs[k]->Run(); });
}

void ConfigureConcurrent(benchmark::internal::Benchmark* p_pcBenchmark) {
  p_pcBenchmark->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);
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

  for (size_t l_nClients : {8, 32, 64}) {
    const std::string l_sCase = "concurrent:ReadSimulatorState-" + std::to_string(l_nClients);
    ConfigureConcurrent(benchmark::RegisterBenchmark(
        (l_sCase + ":ours").c_str(),
        [l_nClients](benchmark::State& p_cState) { ConcurrentStates(p_cState, l_nClients); }));
    ConfigureConcurrent(benchmark::RegisterBenchmark(
        (l_sCase + ":floor-raw").c_str(), [l_nClients, l_aState](benchmark::State& p_cState) {
          ConcurrentRawFloor(p_cState, l_nClients, l_aState);
        }));
  }
}

}  // namespace quor_bench
