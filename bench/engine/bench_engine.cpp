// SPDX-License-Identifier: MIT
// quor_bench_engine: the simulation engine beside its floors.
//
// - Continuous simulator (BDF through CVODE, KLU for these sizes) on
//   mass-action nets of 1,000 and 10,000 places; its floor, SciPy's
//   solve_ivp with LSODA and BDF on the same equations and tolerances, is
//   measured by solve_ivp.py in the same run from the nets this program
//   writes (--write-net).
// - Stochastic simulator, events per second on the SIR net and on nets of
//   100, 1,000 and 10,000 transitions, beside a minimal direct-method loop
//   with a sum tree and a dependency graph written here: the same net, the
//   same random numbers, the same selection, nothing else.
//
//   quor_bench_engine [Google Benchmark options]
//   quor_bench_engine --write-net PLACES FILE   (the net, our run of it, JSON)
#include <benchmark/benchmark.h>
#include <wx/init.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "simcore/builtinModels.h"
#include "simcore/odeSimulator.h"
#include "simcore/ssaSimulator.h"
#include "simcore/textNumbers.h"

namespace {

using namespace quor::sim;

// The continuous runs: tolerances and output grid (SciPy gets the same).
const char* const kRelTol = "1e-6";
const char* const kAbsTol = "1e-8";
OutputGrid OdeGrid() {
  OutputGrid l_cGrid;
  l_cGrid.start = 0.0;
  l_cGrid.end = 5.0;
  l_cGrid.step = 0.1;
  return l_cGrid;
}

// About this many events per stochastic run.
const double kEvents = 400000.0;

// The same numbers on every machine and in every run (SplitMix64).
class Numbers {
 public:
  explicit Numbers(std::uint64_t p_nSeed) : m_nState(p_nSeed) {}
  std::uint64_t Next() {
    std::uint64_t z = (m_nState += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  double Between(double p_dLow, double p_dHigh) {
    return p_dLow + (p_dHigh - p_dLow) * static_cast<double>(Next() >> 11) / 9007199254740992.0;
  }
  std::size_t Other(std::size_t p_nCount, std::size_t p_nNot) {
    std::size_t l_nPick = static_cast<std::size_t>(Next() % (p_nCount - 1));
    return l_nPick >= p_nNot ? l_nPick + 1 : l_nPick;
  }
  // Another of p_nCount positions at most p_nReach away from p_nNear (on
  // a ring).
  std::size_t Near(std::size_t p_nCount, std::size_t p_nNear, std::size_t p_nReach) {
    const std::size_t l_nStep = 1 + static_cast<std::size_t>(Next() % p_nReach);
    return (Next() & 1) ? (p_nNear + l_nStep) % p_nCount : (p_nNear + p_nCount - l_nStep) % p_nCount;
  }

 private:
  std::uint64_t m_nState;
};

std::string Name(char p_cKind, std::size_t p_nIndex) { return p_cKind + std::to_string(p_nIndex); }

// A mass-action net of p_nPlaces places and twice as many transitions that
// keeps the total amount: a ring A_i -> A_i+1 (rate constants 0.5 to 1.5)
// and A_i + A_j -> A_k + A_l with j, k, l random among the 8 neighbours on
// either side (0.001 to 0.01), from amounts of 1 to 10: the local
// structure of pathways (so that sparse LU factors stay sparse, for KLU
// and SciPy's SuperLU alike). Not stiff.
Net OdeNet(std::size_t p_nPlaces) {
  Numbers l_cRandom(p_nPlaces);
  Net l_cNet;
  l_cNet.id = "ode-" + std::to_string(p_nPlaces);
  for (std::size_t i = 0; i < p_nPlaces; ++i) l_cNet.AddPlace(Name('A', i), l_cRandom.Between(1.0, 10.0));
  for (std::size_t i = 0; i < p_nPlaces; ++i) {
    const std::size_t t = l_cNet.AddTransition(Name('t', i), l_cRandom.Between(0.5, 1.5));
    l_cNet.AddArc(i, t, 1.0, true);
    l_cNet.AddArc((i + 1) % p_nPlaces, t, 1.0, false);
  }
  for (std::size_t i = 0; i < p_nPlaces; ++i) {
    const std::size_t u = l_cNet.AddTransition(Name('u', i), l_cRandom.Between(0.001, 0.01));
    l_cNet.AddArc(i, u, 1.0, true);
    l_cNet.AddArc(l_cRandom.Near(p_nPlaces, i, 8), u, 1.0, true);
    l_cNet.AddArc(l_cRandom.Near(p_nPlaces, i, 8), u, 1.0, false);
    l_cNet.AddArc(l_cRandom.Near(p_nPlaces, i, 8), u, 1.0, false);
  }
  return l_cNet;
}

// A stochastic net of p_nTransitions places and as many transitions
// A_i + A_j -> A_k + A_l (random j, k, l, rate constant 0.01), 100 tokens
// on each place: a firing changes up to four places, each read by two
// transitions on average.
Net SsaNet(std::size_t p_nTransitions) {
  Numbers l_cRandom(1000 + p_nTransitions);
  Net l_cNet;
  l_cNet.id = "ssa-" + std::to_string(p_nTransitions);
  for (std::size_t i = 0; i < p_nTransitions; ++i) l_cNet.AddPlace(Name('A', i), 100.0);
  for (std::size_t i = 0; i < p_nTransitions; ++i) {
    const std::size_t t = l_cNet.AddTransition(Name('t', i), 0.01);
    l_cNet.AddArc(i, t, 1.0, true);
    l_cNet.AddArc(l_cRandom.Other(p_nTransitions, i), t, 1.0, true);
    l_cNet.AddArc(l_cRandom.Other(p_nTransitions, i), t, 1.0, false);
    l_cNet.AddArc(l_cRandom.Other(p_nTransitions, i), t, 1.0, false);
  }
  return l_cNet;
}

Net SsaNetOf(std::int64_t p_nTransitions) {
  return p_nTransitions == 0 ? SirNet() : SsaNet(static_cast<std::size_t>(p_nTransitions));
}

// The time in which about kEvents events happen, from the total
// propensity at the start (the nets keep it roughly constant; SIR's
// epidemic ends by itself).
double Horizon(const Net& p_rNet) {
  SsaSimulator l_cProbe(p_rNet);
  double l_dTotal = 0.0;
  for (double l_dRate : l_cProbe.Rates()) l_dTotal += l_dRate;
  return p_rNet.id == "sir" ? p_rNet.grid.end : kEvents / l_dTotal;
}

void Configure(Simulator& p_rSimulator) {
  p_rSimulator.ApplySetting("RelativeTolerance", kRelTol);
  p_rSimulator.ApplySetting("AbsoluteTolerance", kAbsTol);
}

void BM_Ode(benchmark::State& p_rState, const char* p_sMethod, std::size_t p_nPlaces) {
  const Net l_cNet = OdeNet(p_nPlaces);
  OdeSimulator l_cSimulator(l_cNet);
  Configure(l_cSimulator);
  l_cSimulator.ApplySetting("Method", p_sMethod);
  for (auto _ : p_rState) {
    l_cSimulator.Reset();
    const RunResult l_cResult = RunSimulation(l_cSimulator, OdeGrid(), OutputCallback(), false);
    if (l_cResult.status != RunStatus::Completed) {
      p_rState.SkipWithError(l_cResult.error.c_str());
      return;
    }
  }
  p_rState.counters["steps"] = static_cast<double>(l_cSimulator.AcceptedSteps());
}

// Runs with seeds 1, 2, ... until about kEvents events have happened (one
// run on the large nets, several on SIR, whose epidemic ends by itself).
template <typename RUN>
std::int64_t Events(RUN p_fRun) {
  std::int64_t l_nEvents = 0;
  for (std::uint64_t l_nSeed = 1; l_nEvents < kEvents / 2; ++l_nSeed) {
    const std::int64_t l_nRun = p_fRun(l_nSeed);
    if (l_nRun <= 0) break;
    l_nEvents += l_nRun;
  }
  return l_nEvents;
}

void BM_SsaOurs(benchmark::State& p_rState, std::int64_t p_nTransitions) {
  const Net l_cNet = SsaNetOf(p_nTransitions);
  const double l_dHorizon = Horizon(l_cNet);
  SsaSimulator l_cSimulator(l_cNet, 1);
  std::int64_t l_nEvents = 0;
  for (auto _ : p_rState) {
    l_nEvents += Events([&](std::uint64_t p_nSeed) -> std::int64_t {
      l_cSimulator.SetSeed(p_nSeed);
      l_cSimulator.Reset();
      if (l_cSimulator.AdvanceTo(l_dHorizon) != AdvanceStatus::Reached) return -1;
      return static_cast<std::int64_t>(l_cSimulator.Events());
    });
  }
  if (!l_cSimulator.LastError().empty()) p_rState.SkipWithError(l_cSimulator.LastError().c_str());
  p_rState.SetItemsProcessed(l_nEvents);
}

// The floor: Gillespie's direct method on the net's mass-action
// propensities (input weights 1), a sum tree and a dependency graph in flat
// arrays, the random numbers of the simulator.
class FloorSsa {
 public:
  explicit FloorSsa(const Net& p_rNet) {
    const std::size_t l_nTransitions = p_rNet.transitions.size();
    m_nLeaves = 1;
    while (m_nLeaves < l_nTransitions) m_nLeaves *= 2;
    m_adConstant.resize(l_nTransitions);
    for (std::size_t j = 0; j < l_nTransitions; ++j) m_adConstant[j] = p_rNet.transitions[j].rateValue;
    std::vector<std::vector<std::size_t>> l_aanInputs(l_nTransitions), l_aanReaders(p_rNet.places.size());
    std::vector<std::vector<std::pair<std::size_t, double>>> l_aacChanges(l_nTransitions);
    for (const Arc& l_rArc : p_rNet.arcs) {
      if (l_rArc.input) {
        l_aanInputs[l_rArc.transition].push_back(l_rArc.place);
        l_aanReaders[l_rArc.place].push_back(l_rArc.transition);
      }
      l_aacChanges[l_rArc.transition].emplace_back(l_rArc.place, l_rArc.input ? -l_rArc.weight : l_rArc.weight);
    }
    m_anInputStart.push_back(0);
    m_anChangeStart.push_back(0);
    m_anDependentStart.push_back(0);
    for (std::size_t j = 0; j < l_nTransitions; ++j) {
      m_anInputs.insert(m_anInputs.end(), l_aanInputs[j].begin(), l_aanInputs[j].end());
      m_anInputStart.push_back(m_anInputs.size());
      std::vector<std::size_t> l_anDependents;
      for (const std::pair<std::size_t, double>& l_rChange : l_aacChanges[j]) {
        m_acChanges.push_back(l_rChange);
        l_anDependents.insert(l_anDependents.end(), l_aanReaders[l_rChange.first].begin(),
                              l_aanReaders[l_rChange.first].end());
      }
      m_anChangeStart.push_back(m_acChanges.size());
      std::sort(l_anDependents.begin(), l_anDependents.end());
      l_anDependents.erase(std::unique(l_anDependents.begin(), l_anDependents.end()), l_anDependents.end());
      m_anDependents.insert(m_anDependents.end(), l_anDependents.begin(), l_anDependents.end());
      m_anDependentStart.push_back(m_anDependents.size());
    }
    for (const Place& l_rPlace : p_rNet.places) m_adInitial.push_back(l_rPlace.initialMarking);
  }

  // The events up to p_dHorizon from the initial marking.
  std::uint64_t Run(double p_dHorizon, std::uint64_t p_nSeed) {
    m_adX = m_adInitial;
    m_adTree.assign(2 * m_nLeaves, 0.0);
    for (std::size_t j = 0; j < m_adConstant.size(); ++j) m_adTree[m_nLeaves + j] = Propensity(j);
    for (std::size_t i = m_nLeaves - 1; i >= 1; --i) m_adTree[i] = m_adTree[2 * i] + m_adTree[2 * i + 1];
    std::mt19937_64 l_cEngine(p_nSeed);
    auto l_fUniform = [&] { return static_cast<double>(l_cEngine() >> 11) * (1.0 / 9007199254740992.0); };
    double t = 0.0;
    std::uint64_t l_nEvents = 0;
    for (;;) {
      const double l_dTotal = m_adTree[1];
      if (!(l_dTotal > 0.0)) break;
      t -= std::log(1.0 - l_fUniform()) / l_dTotal;
      if (t > p_dHorizon) break;
      double l_dPick = l_fUniform() * l_dTotal;
      std::size_t i = 1;
      while (i < m_nLeaves) {
        if (l_dPick < m_adTree[2 * i] || !(m_adTree[2 * i + 1] > 0.0)) {
          i = 2 * i;
        } else {
          l_dPick -= m_adTree[2 * i];
          i = 2 * i + 1;
        }
      }
      const std::size_t l_nFired = i - m_nLeaves;
      for (std::size_t c = m_anChangeStart[l_nFired]; c < m_anChangeStart[l_nFired + 1]; ++c)
        m_adX[m_acChanges[c].first] += m_acChanges[c].second;
      for (std::size_t d = m_anDependentStart[l_nFired]; d < m_anDependentStart[l_nFired + 1]; ++d) {
        const std::size_t j = m_anDependents[d];
        std::size_t l_nNode = m_nLeaves + j;
        m_adTree[l_nNode] = Propensity(j);
        for (l_nNode /= 2; l_nNode >= 1; l_nNode /= 2)
          m_adTree[l_nNode] = m_adTree[2 * l_nNode] + m_adTree[2 * l_nNode + 1];
      }
      ++l_nEvents;
    }
    return l_nEvents;
  }

 private:
  double Propensity(std::size_t j) const {
    double l_dRate = m_adConstant[j];
    for (std::size_t k = m_anInputStart[j]; k < m_anInputStart[j + 1]; ++k) l_dRate *= m_adX[m_anInputs[k]];
    return l_dRate;
  }

  std::size_t m_nLeaves = 1;
  std::vector<double> m_adConstant, m_adInitial, m_adX, m_adTree;
  std::vector<std::size_t> m_anInputs, m_anInputStart;
  std::vector<std::pair<std::size_t, double>> m_acChanges;
  std::vector<std::size_t> m_anChangeStart;
  std::vector<std::size_t> m_anDependents, m_anDependentStart;
};

void BM_SsaFloor(benchmark::State& p_rState, std::int64_t p_nTransitions) {
  Net l_cNet = SsaNetOf(p_nTransitions);
  const double l_dHorizon = Horizon(l_cNet);
  l_cNet.Validate();
  // Rate constants as numbers (SIR's come from parameters).
  for (Transition& l_rTransition : l_cNet.transitions)
    if (l_rTransition.rateKind == RateKind::Parameter)
      l_rTransition.rateValue = l_cNet.parameters[l_rTransition.parameter].value;
  FloorSsa l_cFloor(l_cNet);
  std::int64_t l_nEvents = 0;
  for (auto _ : p_rState)
    l_nEvents += Events([&](std::uint64_t p_nSeed) {
      return static_cast<std::int64_t>(l_cFloor.Run(l_dHorizon, p_nSeed));
    });
  p_rState.SetItemsProcessed(l_nEvents);
}

// The net of p_nPlaces places for SciPy: places, transitions, grid,
// tolerances, and the final marking and time of our run.
int WriteNet(std::size_t p_nPlaces, const char* p_sFile) {
  const Net l_cNet = OdeNet(p_nPlaces);
  OdeSimulator l_cSimulator(l_cNet);
  Configure(l_cSimulator);
  const auto l_tStart = std::chrono::steady_clock::now();
  const RunResult l_cResult = RunSimulation(l_cSimulator, OdeGrid(), OutputCallback(), false);
  const double l_dSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - l_tStart).count();
  if (l_cResult.status != RunStatus::Completed) {
    std::fprintf(stderr, "quor_bench_engine: the run failed: %s\n", l_cResult.error.c_str());
    return 1;
  }
  std::FILE* l_pFile = std::fopen(p_sFile, "w");
  if (!l_pFile) {
    std::fprintf(stderr, "quor_bench_engine: cannot write %s\n", p_sFile);
    return 1;
  }
  std::fprintf(l_pFile, "{\"places\": %zu, \"rtol\": %s, \"atol\": %s,\n", p_nPlaces, kRelTol, kAbsTol);
  const OutputGrid l_cGrid = OdeGrid();
  std::fprintf(l_pFile, "\"grid\": [%s, %s, %s], \"seconds\": %s,\n", FormatDouble(l_cGrid.start).c_str(),
               FormatDouble(l_cGrid.end).c_str(), FormatDouble(l_cGrid.step).c_str(),
               FormatDouble(l_dSeconds).c_str());
  auto l_fList = [&](const char* p_sKey, const std::vector<double>& p_adValues, const char* p_sEnd) {
    std::fprintf(l_pFile, "\"%s\": [", p_sKey);
    for (std::size_t i = 0; i < p_adValues.size(); ++i)
      std::fprintf(l_pFile, "%s%s", i ? ", " : "", FormatDouble(p_adValues[i]).c_str());
    std::fprintf(l_pFile, "]%s\n", p_sEnd);
  };
  l_fList("initial", l_cNet.InitialState().marking, ",");
  l_fList("final", l_cSimulator.Marking(), ",");
  std::fprintf(l_pFile, "\"transitions\": [\n");
  std::vector<std::vector<std::pair<std::size_t, double>>> l_aacIn(l_cNet.transitions.size()),
      l_aacOut(l_cNet.transitions.size());
  for (const Arc& l_rArc : l_cNet.arcs)
    (l_rArc.input ? l_aacIn : l_aacOut)[l_rArc.transition].emplace_back(l_rArc.place, l_rArc.weight);
  for (std::size_t j = 0; j < l_cNet.transitions.size(); ++j) {
    std::fprintf(l_pFile, "  {\"k\": %s, \"in\": [", FormatDouble(l_cNet.transitions[j].rateValue).c_str());
    for (std::size_t a = 0; a < l_aacIn[j].size(); ++a)
      std::fprintf(l_pFile, "%s[%zu, %s]", a ? ", " : "", l_aacIn[j][a].first,
                   FormatDouble(l_aacIn[j][a].second).c_str());
    std::fprintf(l_pFile, "], \"out\": [");
    for (std::size_t a = 0; a < l_aacOut[j].size(); ++a)
      std::fprintf(l_pFile, "%s[%zu, %s]", a ? ", " : "", l_aacOut[j][a].first,
                   FormatDouble(l_aacOut[j][a].second).c_str());
    std::fprintf(l_pFile, "]}%s\n", j + 1 < l_cNet.transitions.size() ? "," : "");
  }
  std::fprintf(l_pFile, "]}\n");
  return std::fclose(l_pFile) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  wxInitializer l_cWx;
  if (argc == 4 && std::strcmp(argv[1], "--write-net") == 0)
    return WriteNet(static_cast<std::size_t>(std::strtoul(argv[2], nullptr, 10)), argv[3]);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  // Names carry the size (the table's reader keeps what comes before a '/').
  auto l_fSetUp = [](benchmark::internal::Benchmark* p_pcBenchmark) {
    p_pcBenchmark->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3)
        ->ReportAggregatesOnly(true);
  };
  for (const char* l_sMethod : {"BDF", "Adams"})
    for (std::size_t l_nPlaces : {1000, 10000})
      l_fSetUp(benchmark::RegisterBenchmark(
          ("engine:ode-" + std::string(l_sMethod) + "-" + std::to_string(l_nPlaces)).c_str(), BM_Ode,
          l_sMethod, l_nPlaces));
  for (std::int64_t l_nTransitions : {0, 100, 1000, 10000}) {
    const std::string l_sSize = std::to_string(l_nTransitions);
    l_fSetUp(benchmark::RegisterBenchmark(("engine:ssa-ours-" + l_sSize).c_str(), BM_SsaOurs,
                                          l_nTransitions));
    l_fSetUp(benchmark::RegisterBenchmark(("engine:ssa-floor-" + l_sSize).c_str(), BM_SsaFloor,
                                          l_nTransitions));
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
