// SPDX-License-Identifier: MIT
// Bulk: ReadResultMatrix of smooth matrices over loopback, from the store of
// the library's server through SteeringDispatcher, beside zlib's
// compress (default level) plus uncompress of the same bytes, and beside a
// raw socket transfer of the uncompressed bytes.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench_cases.h"
#include "bench_support.h"
#include "quor/steeringclient.h"

namespace quor_bench {

namespace {

struct Shape {
  size_t m_nRows;
  size_t m_nColumns;
  size_t Bytes() const { return m_nRows * m_nColumns * sizeof(double); }
};

// Matrices are built once per shape and kept for the whole run.
const Matrix& CachedMatrix(const Shape& p_cShape) {
  static std::map<std::pair<size_t, size_t>, Matrix> s_mMatrices;
  const std::pair<size_t, size_t> l_cKey(p_cShape.m_nRows, p_cShape.m_nColumns);
  auto l_it = s_mMatrices.find(l_cKey);
  if (l_it == s_mMatrices.end())
    l_it = s_mMatrices.emplace(l_cKey, SmoothMatrix(p_cShape.m_nRows, p_cShape.m_nColumns)).first;
  return l_it->second;
}

// The matrix row by row in one block: the bytes the wire carries.
std::vector<double> RowMajor(const Matrix& p_aadMatrix) {
  std::vector<double> l_adBlock;
  for (const std::vector<double>& l_adRow : p_aadMatrix)
    l_adBlock.insert(l_adBlock.end(), l_adRow.begin(), l_adRow.end());
  return l_adBlock;
}

// The connections of the bulk cases live for the whole run and carry one
// untimed transfer before the first measured one: a fresh loopback
// connection moves its first tens of megabytes several times slower than
// the next (the TCP window is still growing), and a steering client reads
// its results over a connection that it keeps. The library's connection and
// the raw one are treated alike.
struct Peers {
  std::unique_ptr<DispatcherServer> m_pcServer;
  RegisteredClient m_pcClient;
  std::unique_ptr<RawPingPong> m_pcRaw;
};

std::map<std::pair<size_t, size_t>, Peers>& AllPeers() {
  static std::map<std::pair<size_t, size_t>, Peers> s_mPeers;
  return s_mPeers;
}

bool ReadInto(quor::SteeringClient& p_cClient, const Shape& p_cShape, Matrix& p_aadReceived) {
  return p_cClient.ReadResultMatrix(p_aadReceived) == 1 &&
         p_aadReceived.size() == p_cShape.m_nRows &&
         p_aadReceived.back().size() == p_cShape.m_nColumns;
}

quor::SteeringClient& WarmClient(const Shape& p_cShape) {
  Peers& l_cPeers = AllPeers()[std::make_pair(p_cShape.m_nRows, p_cShape.m_nColumns)];
  if (!l_cPeers.m_pcClient) {
    l_cPeers.m_pcServer.reset(new DispatcherServer(CachedMatrix(p_cShape)));
    l_cPeers.m_pcClient = l_cPeers.m_pcServer->Connect();
    Matrix l_aadReceived;
    if (!ReadInto(*l_cPeers.m_pcClient, p_cShape, l_aadReceived))
      Fail("the first ReadResultMatrix failed");
  }
  return *l_cPeers.m_pcClient;
}

RawPingPong& WarmRaw(const Shape& p_cShape) {
  Peers& l_cPeers = AllPeers()[std::make_pair(p_cShape.m_nRows, p_cShape.m_nColumns)];
  if (!l_cPeers.m_pcRaw) {
    // A 4-byte request, then the server writes the whole block and the
    // client reads it; each acknowledged.
    l_cPeers.m_pcRaw.reset(
        new RawPingPong({RawFrame{true, 4}, RawFrame{false, p_cShape.Bytes()}}));
    if (!l_cPeers.m_pcRaw->Run()) Fail("the first raw transfer failed");
  }
  return *l_cPeers.m_pcRaw;
}

void ReadMatrix(benchmark::State& p_cState, Shape p_cShape) {
  quor::SteeringClient& l_cClient = WarmClient(p_cShape);
  for (auto _ : p_cState) {
    // A fresh matrix each time, as a steering application holds it.
    Matrix l_aadReceived;
    if (!ReadInto(l_cClient, p_cShape, l_aadReceived)) {
      p_cState.SkipWithError("ReadResultMatrix failed");
      break;
    }
    benchmark::DoNotOptimize(l_aadReceived.data());
  }
  p_cState.SetBytesProcessed(static_cast<int64_t>(p_cState.iterations() * p_cShape.Bytes()));
}

typedef size_t (*RoundTrip)(const void*, size_t, std::vector<unsigned char>&,
                           std::vector<unsigned char>&);

void CompressFloor(benchmark::State& p_cState, Shape p_cShape, RoundTrip p_fRoundTrip) {
  const std::vector<double> l_adBlock = RowMajor(CachedMatrix(p_cShape));
  std::vector<unsigned char> l_aPacked, l_aUnpacked;
  size_t l_nPacked = 0;
  for (auto _ : p_cState) {
    l_nPacked = p_fRoundTrip(l_adBlock.data(), p_cShape.Bytes(), l_aPacked, l_aUnpacked);
    if (l_nPacked == 0) {
      p_cState.SkipWithError("zlib failed");
      break;
    }
  }
  if (std::memcmp(l_aUnpacked.data(), l_adBlock.data(), p_cShape.Bytes()) != 0)
    p_cState.SkipWithError("zlib round trip differs");
  p_cState.SetBytesProcessed(static_cast<int64_t>(p_cState.iterations() * p_cShape.Bytes()));
  p_cState.counters["compressed_fraction"] =
      static_cast<double>(l_nPacked) / static_cast<double>(p_cShape.Bytes());
}

void RawTransferFloor(benchmark::State& p_cState, Shape p_cShape) {
  RawPingPong& l_cPeer = WarmRaw(p_cShape);
  for (auto _ : p_cState) {
    if (!l_cPeer.Run()) {
      p_cState.SkipWithError("raw transfer failed");
      break;
    }
  }
  p_cState.SetBytesProcessed(static_cast<int64_t>(p_cState.iterations() * p_cShape.Bytes()));
}

void Configure(benchmark::internal::Benchmark* p_pcBenchmark, bool p_bHeavy) {
  p_pcBenchmark->UseRealTime()->Unit(benchmark::kMillisecond)->Repetitions(3)->ReportAggregatesOnly(
      true);
  // A heavy case runs once per repetition; the light ones as often as 0.2 s
  // allows.
  if (p_bHeavy)
    p_pcBenchmark->Iterations(1);
  else
    p_pcBenchmark->MinTime(0.2);
}

}  // namespace

void ReleaseBulkBenchmarks() { AllPeers().clear(); }

void RegisterBulkBenchmarks() {
  const Shape l_acShapes[] = {{100, 1000}, {1000, 1000}, {1000, 10000}};
  for (const Shape& l_cShape : l_acShapes) {
    char l_sCase[64];
    std::snprintf(l_sCase, sizeof(l_sCase), "bulk:ReadResultMatrix-%zux%zu", l_cShape.m_nRows,
                  l_cShape.m_nColumns);
    const std::string l_sPrefix(l_sCase);
    // Whatever runs zlib over 8 MB or more takes a sizeable fraction of a
    // second per pass.
    const bool l_bHeavy = l_cShape.Bytes() >= 8000000;
    Configure(benchmark::RegisterBenchmark(
                  (l_sPrefix + ":ours").c_str(),
                  [l_cShape](benchmark::State& p_cState) { ReadMatrix(p_cState, l_cShape); }),
              l_bHeavy);
    Configure(benchmark::RegisterBenchmark((l_sPrefix + ":floor-zlib").c_str(),
                                           [l_cShape](benchmark::State& p_cState) {
                                             CompressFloor(p_cState, l_cShape, ZlibRoundTrip);
                                           }),
              l_bHeavy);
    Configure(benchmark::RegisterBenchmark((l_sPrefix + ":floor-deflate").c_str(),
                                           [l_cShape](benchmark::State& p_cState) {
                                             CompressFloor(p_cState, l_cShape, DeflateRoundTrip);
                                           }),
              l_bHeavy);
    Configure(benchmark::RegisterBenchmark((l_sPrefix + ":floor-raw").c_str(),
                                           [l_cShape](benchmark::State& p_cState) {
                                             RawTransferFloor(p_cState, l_cShape);
                                           }),
              false);
  }
}

}  // namespace quor_bench
