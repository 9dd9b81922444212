// SPDX-License-Identifier: MIT
// Whole models: upload (Initialize with the client's own model) and download
// (Initialize with the index of the server's model) of nets with names,
// arcs and two views, beside the in-memory floors of the same bytes: packing
// plus unpacking the attribute blocks (the model's and each view's), and
// zlib's compress plus uncompress of those blocks.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_cases.h"
#include "bench_support.h"
#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/steeringclient.h"

namespace quor_bench {

namespace {

// Nets are built once per size and kept for the whole run. The same net is
// the client's model for the upload and the server's for the download (the
// two never run at the same time).
quor::Model& CachedNet(size_t p_nSize) {
  static std::map<size_t, std::unique_ptr<quor::Model> > s_mNets;
  std::unique_ptr<quor::Model>& l_pcNet = s_mNets[p_nSize];
  if (!l_pcNet) l_pcNet = BuildNet(p_nSize);
  return *l_pcNet;
}

// The sets that travel as attribute-list messages: the model, then its
// views.
std::vector<quor::SteeringVector*> SetsOf(quor::Model& p_cModel) {
  std::vector<quor::SteeringVector*> l_apcSets(1, &p_cModel);
  for (quor::ModelView* l_pcView : *p_cModel.GetModelViews()) l_apcSets.push_back(l_pcView);
  return l_apcSets;
}

void Upload(benchmark::State& p_cState, size_t p_nSize) {
  quor::Model& l_cNet = CachedNet(p_nSize);
  LoopbackSession l_cSession;
  quor::SteeringClient& l_cClient = l_cSession.Client();
  for (auto _ : p_cState) {
    if (l_cClient.Initialize(&l_cNet) != 1) {
      p_cState.SkipWithError("Initialize(model) failed");
      break;
    }
  }
  l_cNet.SetClientSocket(NULL);
}

void Download(benchmark::State& p_cState, size_t p_nSize) {
  quor::Model& l_cNet = CachedNet(p_nSize);
  LoopbackSession l_cSession(nullptr, &l_cNet);
  quor::SteeringClient& l_cClient = l_cSession.Client();
  for (auto _ : p_cState) {
    // Each attach replaces (and deletes) the model received the time
    // before: that deletion is part of the figure.
    if (l_cClient.Initialize(0) != 1 || l_cClient.GetModel() == NULL ||
        l_cClient.GetModel()->GetPlaceCount() != p_nSize) {
      p_cState.SkipWithError("Initialize(index) failed");
      break;
    }
  }
  delete l_cClient.GetModel();
}

void PackFloor(benchmark::State& p_cState, size_t p_nSize) {
  const std::vector<quor::SteeringVector*> l_apcSent = SetsOf(CachedNet(p_nSize));
  // The receiving side as a download builds it: an empty model and empty
  // views, reused from one pass to the next.
  quor::Model l_cReceiver(NULL, wxEmptyString, 0, 0);
  std::vector<std::unique_ptr<quor::ModelView> > l_apcViews;
  std::vector<quor::SteeringVector*> l_apcReceived(1, &l_cReceiver);
  for (size_t i = 1; i < l_apcSent.size(); ++i) {
    l_apcViews.emplace_back(new quor::ModelView(wxEmptyString, NULL));
    l_apcReceived.push_back(l_apcViews.back().get());
  }
  std::vector<std::vector<char> > l_aaBuffers(l_apcSent.size());
  size_t l_nBytes = 0;
  for (auto _ : p_cState) {
    l_nBytes = 0;
    for (size_t i = 0; i < l_apcSent.size(); ++i) {
      l_nBytes += PackSet(*l_apcSent[i], l_aaBuffers[i]);
      UnpackSet(*l_apcReceived[i], l_aaBuffers[i]);
    }
  }
  if (l_cReceiver.GetPlaceCount() != p_nSize) p_cState.SkipWithError("unpacking failed");
  p_cState.counters["packed_bytes"] = static_cast<double>(l_nBytes);
}

typedef size_t (*RoundTrip)(const void*, size_t, std::vector<unsigned char>&,
                           std::vector<unsigned char>&);

void CompressFloor(benchmark::State& p_cState, size_t p_nSize, RoundTrip p_fRoundTrip) {
  const std::vector<quor::SteeringVector*> l_apcSets = SetsOf(CachedNet(p_nSize));
  std::vector<std::vector<char> > l_aaBlocks(l_apcSets.size());
  std::vector<size_t> l_anSizes(l_apcSets.size());
  for (size_t i = 0; i < l_apcSets.size(); ++i)
    l_anSizes[i] = PackSet(*l_apcSets[i], l_aaBlocks[i]);
  std::vector<unsigned char> l_aPacked, l_aUnpacked;
  size_t l_nBytes = 0, l_nCompressed = 0;
  for (auto _ : p_cState) {
    l_nBytes = 0;
    l_nCompressed = 0;
    for (size_t i = 0; i < l_aaBlocks.size(); ++i) {
      // As on the wire: blocks of up to 100 bytes go as they are.
      l_nBytes += l_anSizes[i];
      if (l_anSizes[i] <= 100) continue;
      const size_t l_nPacked =
          p_fRoundTrip(l_aaBlocks[i].data(), l_anSizes[i], l_aPacked, l_aUnpacked);
      if (l_nPacked == 0) {
        p_cState.SkipWithError("zlib failed");
        return;
      }
      l_nCompressed += l_nPacked;
    }
  }
  p_cState.counters["packed_bytes"] = static_cast<double>(l_nBytes);
  p_cState.counters["compressed_fraction"] =
      static_cast<double>(l_nCompressed) / static_cast<double>(l_nBytes);
}

void Configure(benchmark::internal::Benchmark* p_pcBenchmark, bool p_bHeavy) {
  p_pcBenchmark->UseRealTime()->Unit(benchmark::kMillisecond)->Repetitions(3)->ReportAggregatesOnly(
      true);
  if (p_bHeavy)
    p_pcBenchmark->Iterations(2);
  else
    p_pcBenchmark->MinTime(0.2);
}

}  // namespace

void RegisterModelBenchmarks() {
  const size_t l_anSizes[] = {1000, 100000};
  for (size_t l_nSize : l_anSizes) {
    char l_sSize[32];
    std::snprintf(l_sSize, sizeof(l_sSize), "%zu", l_nSize);
    const std::string l_sUpload = std::string("model:upload-") + l_sSize;
    const std::string l_sDownload = std::string("model:download-") + l_sSize;
    const std::string l_sFloors = std::string("model:net-") + l_sSize;
    const bool l_bHeavy = l_nSize >= 100000;
    Configure(benchmark::RegisterBenchmark(
                  (l_sUpload + ":ours").c_str(),
                  [l_nSize](benchmark::State& p_cState) { Upload(p_cState, l_nSize); }),
              l_bHeavy);
    Configure(benchmark::RegisterBenchmark(
                  (l_sDownload + ":ours").c_str(),
                  [l_nSize](benchmark::State& p_cState) { Download(p_cState, l_nSize); }),
              l_bHeavy);
    Configure(benchmark::RegisterBenchmark(
                  (l_sFloors + ":floor-pack").c_str(),
                  [l_nSize](benchmark::State& p_cState) { PackFloor(p_cState, l_nSize); }),
              false);
    Configure(benchmark::RegisterBenchmark((l_sFloors + ":floor-zlib").c_str(),
                                           [l_nSize](benchmark::State& p_cState) {
                                             CompressFloor(p_cState, l_nSize, ZlibRoundTrip);
                                           }),
              false);
    Configure(benchmark::RegisterBenchmark((l_sFloors + ":floor-deflate").c_str(),
                                           [l_nSize](benchmark::State& p_cState) {
                                             CompressFloor(p_cState, l_nSize, DeflateRoundTrip);
                                           }),
              false);
  }
}

}  // namespace quor_bench
