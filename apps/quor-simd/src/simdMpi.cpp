// SPDX-License-Identifier: MIT
#include "simd/simdMpi.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "quor/resultMatrixInfo.h"
#include "quor/steeringmpi.h"
#include "simcore/ssaSimulator.h"
#include "simd/simdCommon.h"
#include "simd/simdServer.h"

namespace quor {
namespace simd {

namespace {

const char* const STOCHASTIC = "stochastic";

// What every rank needs to know of a run besides its start state.
struct JobText {
  size_t net = 0;
  std::string kind;
  std::vector<std::pair<std::string, std::string> > settings;
  bool scan = false;
  size_t scanParameter = 0;
  double scanFrom = 0.0, scanTo = 0.0;
  unsigned long scanCount = 0;

  // One item a line: "net N", "kind K", "setting NAME VALUE", "scan P FROM
  // TO COUNT".
  std::string Write() const {
    std::ostringstream l_cOut;
    l_cOut.precision(17);
    l_cOut << "net " << net << "\nkind " << kind << "\n";
    for (const auto& l_cSetting : settings)
      l_cOut << "setting " << l_cSetting.first << " " << l_cSetting.second << "\n";
    if (scan)
      l_cOut << "scan " << scanParameter << " " << scanFrom << " " << scanTo << " " << scanCount
             << "\n";
    return l_cOut.str();
  }
  bool Read(const std::string& p_sText) {
    std::istringstream l_cIn(p_sText);
    std::string l_sLine;
    while (std::getline(l_cIn, l_sLine)) {
      std::istringstream l_cLine(l_sLine);
      std::string l_sWord;
      l_cLine >> l_sWord;
      if (l_sWord == "net") {
        l_cLine >> net;
      } else if (l_sWord == "kind") {
        l_cLine >> kind;
      } else if (l_sWord == "setting") {
        std::string l_sName, l_sValue;
        l_cLine >> l_sName;
        std::getline(l_cLine >> std::ws, l_sValue);
        settings.emplace_back(l_sName, l_sValue);
      } else if (l_sWord == "scan") {
        scan = true;
        l_cLine >> scanParameter >> scanFrom >> scanTo >> scanCount;
      }
      if (l_cLine.fail()) return false;
    }
    return !kind.empty();
  }
  double ScanValue(unsigned long p_nPoint) const {
    if (scanCount <= 1) return scanFrom;
    return scanFrom + static_cast<double>(p_nPoint) * (scanTo - scanFrom) /
                          static_cast<double>(scanCount - 1);
  }
  std::string Setting(const std::string& p_sName, const std::string& p_sDefault) const {
    for (const auto& l_cSetting : settings)
      if (l_cSetting.first == p_sName) return l_cSetting.second;
    return p_sDefault;
  }
};

// QUOR_SIMD_RANK_FAULT=RANK:POINT:WHAT (see simdMpi.h).
struct Fault {
  int rank = -1;
  size_t point = 0;
  std::string what;

  static Fault FromEnvironment() {
    Fault l_cFault;
    const char* l_pcText = std::getenv("QUOR_SIMD_RANK_FAULT");
    if (l_pcText == NULL) return l_cFault;
    std::istringstream l_cIn(l_pcText);
    char l_cColon = 0;
    l_cIn >> l_cFault.rank >> l_cColon >> l_cFault.point >> l_cColon >> l_cFault.what;
    if (l_cIn.fail()) l_cFault.rank = -1;
    return l_cFault;
  }
};

// One rank's share of a run: simulators, each adding its marking to one
// block of the values.
class NetWork : public SteeringMPIWork {
 public:
  NetWork(const sim::Net& p_rNet, const JobText& p_rJob, const SteeringMPIStart& p_rStart)
      : m_nPlaces(p_rNet.places.size()),
        m_nValues(m_nPlaces * (p_rJob.scan ? p_rJob.scanCount : 1)),
        m_nRank(p_rStart.m_nRank),
        m_cFault(Fault::FromEnvironment()) {
    sim::NetState l_cState;
    l_cState.time = p_rStart.m_dStart;
    l_cState.marking = p_rStart.m_adMarking;
    l_cState.parameters = p_rStart.m_adParameters;
    const size_t l_nRank = static_cast<size_t>(p_rStart.m_nRank);
    const size_t l_nRanks = static_cast<size_t>(p_rStart.m_nRanks);
    if (p_rJob.scan) {
      if (p_rJob.scanParameter >= l_cState.parameters.size())
        throw std::runtime_error("the scanned parameter is not one of the model's");
      for (size_t k = l_nRank; k < p_rJob.scanCount; k += l_nRanks) {
        sim::NetState l_cPoint = l_cState;
        l_cPoint.parameters[p_rJob.scanParameter] = p_rJob.ScanValue(static_cast<unsigned long>(k));
        Add(p_rNet, p_rJob, l_cPoint, k, p_rJob.settings);
      }
    } else if (p_rJob.kind == STOCHASTIC) {
      // Runs r0 .. r1 - 1 of the ensemble, each a single run of its own seed.
      const unsigned long long l_nRuns = std::stoull(p_rJob.Setting("Runs", "1"));
      const std::uint64_t l_nSeed = std::stoull(p_rJob.Setting("Seed", "1"));
      const unsigned long long l_nFirst = l_nRuns * l_nRank / l_nRanks;
      const unsigned long long l_nLast = l_nRuns * (l_nRank + 1) / l_nRanks;
      for (unsigned long long r = l_nFirst; r < l_nLast; ++r) {
        const std::vector<std::pair<std::string, std::string> > l_aSettings = {
            {"Seed", std::to_string(sim::SsaSimulator::RunSeed(l_nSeed, r))}, {"Runs", "1"}};
        Add(p_rNet, p_rJob, l_cState, 0, l_aSettings);
      }
    } else if (l_nRank == 0) {
      Add(p_rNet, p_rJob, l_cState, 0, p_rJob.settings);
    }
  }

  size_t GetValueCount() const override { return m_nValues; }

  bool Steer(const std::vector<SteeringChange>& p_acChanges, wxString& p_rsFailure) override {
    std::string l_sError;
    for (const SteeringChange& l_cChange : p_acChanges)
      for (Unit& l_rUnit : m_acUnits) {
        const bool l_bOk =
            l_cChange.m_eKind == SteeringChange::PLACE
                ? l_rUnit.simulator->SetMarking(l_cChange.m_nPosition, l_cChange.m_dValue, &l_sError)
                : l_rUnit.simulator->SetParameter(l_cChange.m_nPosition, l_cChange.m_dValue,
                                                  &l_sError);
        if (!l_bOk) {
          p_rsFailure = FromStd(l_sError);
          return false;
        }
      }
    return true;
  }

  bool Advance(double, double p_dTo, SteeringContribution& p_rContribution,
               wxString& p_rsFailure) override {
    if (m_cFault.rank == m_nRank && m_cFault.point == m_nPoint) {
      if (m_cFault.what == "abort") std::abort();
      if (m_cFault.what == "hang")
        for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
      p_rsFailure = wxT("the simulation failed here (a fault asked for by QUOR_SIMD_RANK_FAULT)");
      return false;
    }
    ++m_nPoint;
    for (Unit& l_rUnit : m_acUnits) {
      sim::Simulator& l_rSimulator = *l_rUnit.simulator;
      if (p_dTo > l_rSimulator.Time() &&
          l_rSimulator.AdvanceTo(p_dTo) != sim::AdvanceStatus::Reached) {
        p_rsFailure = FromStd(l_rSimulator.LastError());
        return false;
      }
      const std::vector<double>& l_adMarking = l_rSimulator.Marking();
      for (size_t p = 0; p < m_nPlaces && p < l_adMarking.size(); ++p)
        p_rContribution.Add(l_rUnit.block * m_nPlaces + p, l_adMarking[p]);
    }
    return true;
  }

 private:
  struct Unit {
    std::unique_ptr<sim::Simulator> simulator;
    size_t block;
  };

  void Add(const sim::Net& p_rNet, const JobText& p_rJob, const sim::NetState& p_rState,
           size_t p_nBlock, const std::vector<std::pair<std::string, std::string> >& p_aSettings) {
    std::string l_sError;
    std::unique_ptr<sim::Simulator> l_pcSimulator =
        sim::CreateSimulator(p_rJob.kind, p_rNet, &l_sError);
    if (!l_pcSimulator) throw std::runtime_error(l_sError);
    for (const auto& l_cSetting : p_aSettings)
      if (!l_pcSimulator->ApplySetting(l_cSetting.first, l_cSetting.second, &l_sError))
        throw std::runtime_error(l_sError);
    if (!l_pcSimulator->Reset(p_rState, &l_sError)) throw std::runtime_error(l_sError);
    m_acUnits.push_back(Unit{std::move(l_pcSimulator), p_nBlock});
  }

  size_t m_nPlaces;
  size_t m_nValues;
  int m_nRank;
  Fault m_cFault;
  size_t m_nPoint = 0;
  std::vector<Unit> m_acUnits;
};

}  // namespace

bool StartedByMpi() {
  return std::getenv("OMPI_COMM_WORLD_SIZE") != NULL || std::getenv("PMIX_RANK") != NULL ||
         std::getenv("PMI_RANK") != NULL;
}

MpiJob::MpiJob(const std::vector<sim::Net>& p_acNets, const SimdOptions& p_rOptions)
    : m_acNets(p_acNets), m_cOptions(p_rOptions) {
  const std::vector<sim::Net>& l_acNets = m_acNets;
  SteeringMPIWorkFactory l_fFactory = [&l_acNets](const SteeringMPIStart& p_rStart,
                                                  wxString& p_rsFailure) {
    std::unique_ptr<SteeringMPIWork> l_pcWork;
    JobText l_cJob;
    if (!l_cJob.Read(p_rStart.m_sJob) || l_cJob.net >= l_acNets.size()) {
      p_rsFailure = wxT("the run's description is not one of this server's nets");
      return l_pcWork;
    }
    l_pcWork.reset(new NetWork(l_acNets[l_cJob.net], l_cJob, p_rStart));
    return l_pcWork;
  };
  m_pcJob.reset(new SteeringMPI(
      l_fFactory, MPI_COMM_WORLD,
      std::chrono::milliseconds(static_cast<long long>(p_rOptions.rankTimeout * 1000.0))));
}

MpiJob::~MpiJob() {}

bool MpiJob::IsRoot() const { return m_pcJob->IsRoot(); }
int MpiJob::GetRanks() const { return m_pcJob->GetRanks(); }

void MpiJob::Attach(SimdServer& p_rServer, const std::vector<int>& p_anModels) {
  SimulationHandler& l_rHandler = p_rServer.Handler();
  l_rHandler.SetRunHook([this, &l_rHandler, p_anModels](int p_nModel, SteeringRunPlan& p_rPlan,
                                                        wxString& p_rsRefusal) {
    size_t l_nNet = 0;
    while (l_nNet < p_anModels.size() && p_anModels[l_nNet] != p_nModel) ++l_nNet;
    if (l_nNet == p_anModels.size()) return true;  // uploaded: on rank 0 alone
    const sim::Net& l_rNet = m_acNets[l_nNet];
    JobText l_cJob;
    l_cJob.net = l_nNet;
    l_cJob.kind = ToStd(p_rPlan.m_sAlgorithm);
    l_cJob.settings = l_rHandler.SettingsOf(l_cJob.kind);
    if (!m_cOptions.scanParameter.empty()) {
      l_cJob.scan = true;
      while (l_cJob.scanParameter < l_rNet.parameters.size() &&
             l_rNet.parameters[l_cJob.scanParameter].name != m_cOptions.scanParameter)
        ++l_cJob.scanParameter;
      if (l_cJob.scanParameter == l_rNet.parameters.size()) {
        p_rsRefusal = wxT("the model has no parameter '") + FromStd(m_cOptions.scanParameter) +
                      wxT("' to scan");
        return false;
      }
      l_cJob.scanFrom = m_cOptions.scanFrom;
      l_cJob.scanTo = m_cOptions.scanTo;
      l_cJob.scanCount = m_cOptions.scanCount;
      // One block of rows per scan value, each row a place.
      const size_t l_nPlaces = l_rNet.places.size();
      const size_t l_nCount = m_cOptions.scanCount;
      SteeringModelStore& l_rStore = l_rHandler.GetStore();
      p_rPlan.m_fBegin = [&l_rStore, p_nModel, l_nPlaces, l_nCount](SteeringStep&) {
        ResultMatrixInfo l_cRows(static_cast<unsigned int>(l_nPlaces * l_nCount));
        for (size_t l_nRow = 0; l_nRow < l_nPlaces * l_nCount; ++l_nRow)
          l_cRows.SetRowInfo(static_cast<unsigned int>(l_nRow),
                             static_cast<unsigned int>(l_nRow % l_nPlaces), RM_ROW_TYPE_PLACE);
        l_rStore.SetResultMatrixInfo(p_nModel, l_cRows);
        return true;
      };
    } else {
      p_rPlan.m_fBegin = nullptr;
    }
    const int l_nRanks = m_pcJob->GetRanks();
    const wxString l_sSummary =
        l_cJob.scan ? wxString::Format(wxT("%lu scan values on %d ranks"), l_cJob.scanCount,
                                       l_nRanks)
                    : (l_cJob.kind == STOCHASTIC
                           ? FromStd(l_cJob.Setting("Runs", "1")) +
                                 wxString::Format(wxT(" runs on %d ranks"), l_nRanks)
                           : wxString::Format(wxT("on rank 0 of %d"), l_nRanks));
    p_rPlan.m_fSummary = [l_sSummary] { return l_sSummary; };
    return m_pcJob->Distribute(l_cJob.Write(), p_rPlan, p_rsRefusal);
  });
}

void MpiJob::Shutdown() { m_pcJob->Shutdown(); }

void MpiJob::Interrupt() { m_pcJob->Interrupt(); }

void MpiJob::Follow() { m_pcJob->Follow(); }

}  // namespace simd
}  // namespace quor
