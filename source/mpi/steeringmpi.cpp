// SPDX-License-Identifier: MIT
#include "quor/steeringmpi.h"

#include <wx/log.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <thread>

#include "quor/utilities.h"

namespace quor {

namespace {

// What one rank says about its health at an output point: a reason, cut to
// this many bytes; an empty one means well.
const size_t HEALTH_BYTES = 512;

// How long a step of rank 0 still waits for the other ranks once the
// process is asked to end: mpirun kills a job's processes soon after it
// asked them to end.
const std::chrono::milliseconds INTERRUPT_GRACE{250};

// How a rank waits for a collective: asks again at once for this long,
// then sleeps between the questions, at most this long.
const std::chrono::microseconds POLL_SPIN{2000};
const std::chrono::microseconds POLL_SLEEP{1000};

// How a step's message is laid out: native numbers, one after the other.
class Writer {
 public:
  template <typename T>
  void Put(T p_nValue) {
    m_sBytes.append(reinterpret_cast<const char*>(&p_nValue), sizeof(T));
  }
  void PutDoubles(const std::vector<double>& p_adValues) {
    Put<std::uint64_t>(p_adValues.size());
    m_sBytes.append(reinterpret_cast<const char*>(p_adValues.data()),
                    p_adValues.size() * sizeof(double));
  }
  void PutBytes(const std::string& p_sBytes) {
    Put<std::uint64_t>(p_sBytes.size());
    m_sBytes += p_sBytes;
  }
  std::string& Bytes() { return m_sBytes; }

 private:
  std::string m_sBytes;
};

// Reads what Writer wrote; every read is bounded by the bytes there are.
class Reader {
 public:
  explicit Reader(const std::string& p_sBytes) : m_sBytes(p_sBytes), m_nAt(0) {}
  template <typename T>
  bool Get(T& p_rValue) {
    if (m_sBytes.size() - m_nAt < sizeof(T)) return false;
    std::memcpy(&p_rValue, m_sBytes.data() + m_nAt, sizeof(T));
    m_nAt += sizeof(T);
    return true;
  }
  bool GetDoubles(std::vector<double>& p_radValues) {
    std::uint64_t l_nCount = 0;
    if (!Get(l_nCount) || l_nCount > (m_sBytes.size() - m_nAt) / sizeof(double)) return false;
    p_radValues.resize(static_cast<size_t>(l_nCount));
    std::memcpy(p_radValues.data(), m_sBytes.data() + m_nAt, l_nCount * sizeof(double));
    m_nAt += l_nCount * sizeof(double);
    return true;
  }
  bool GetBytes(std::string& p_rsBytes) {
    std::uint64_t l_nCount = 0;
    if (!Get(l_nCount) || l_nCount > m_sBytes.size() - m_nAt) return false;
    p_rsBytes.assign(m_sBytes, m_nAt, static_cast<size_t>(l_nCount));
    m_nAt += static_cast<size_t>(l_nCount);
    return true;
  }

 private:
  const std::string& m_sBytes;
  size_t m_nAt;
};

void PutChanges(Writer& p_rWriter, const std::vector<SteeringChange>& p_acChanges) {
  p_rWriter.Put<std::uint64_t>(p_acChanges.size());
  for (const SteeringChange& l_cChange : p_acChanges) {
    p_rWriter.Put<std::uint32_t>(l_cChange.m_eKind == SteeringChange::PLACE ? 1 : 0);
    p_rWriter.Put<std::uint64_t>(l_cChange.m_nPosition);
    p_rWriter.Put<double>(l_cChange.m_dValue);
  }
}

bool GetChanges(Reader& p_rReader, std::vector<SteeringChange>& p_racChanges) {
  std::uint64_t l_nCount = 0;
  if (!p_rReader.Get(l_nCount)) return false;
  p_racChanges.clear();
  for (std::uint64_t i = 0; i < l_nCount; ++i) {
    std::uint32_t l_nKind = 0;
    std::uint64_t l_nPosition = 0;
    double l_dValue = 0.0;
    if (!p_rReader.Get(l_nKind) || !p_rReader.Get(l_nPosition) || !p_rReader.Get(l_dValue))
      return false;
    p_racChanges.push_back(SteeringChange{
        l_nKind == 1 ? SteeringChange::PLACE : SteeringChange::PARAMETER,
        static_cast<size_t>(l_nPosition), l_dValue});
  }
  return true;
}

// Runs a function of the work; an exception becomes its failure.
bool Guard(const std::function<bool()>& p_fCall, wxString& p_rsFailure) {
  try {
    return p_fCall();
  } catch (const std::exception& l_cError) {
    p_rsFailure = wxString::FromUTF8(l_cError.what());
  } catch (...) {
    p_rsFailure = wxT("an exception of an unknown kind");
  }
  if (p_rsFailure.empty()) p_rsFailure = wxT("failed");
  return false;
}

}  // namespace

double SteeringContribution::GetMean(size_t p_nValue) const {
  const double l_dCount = GetCount(p_nValue);
  return l_dCount > 0.0 ? GetSum(p_nValue) / l_dCount : 0.0;
}

double SteeringContribution::GetStandardDeviation(size_t p_nValue) const {
  const double l_dCount = GetCount(p_nValue);
  if (l_dCount < 2.0) return 0.0;
  const double l_dSum = GetSum(p_nValue);
  const double l_dSquares = GetSumOfSquares(p_nValue) - l_dSum * l_dSum / l_dCount;
  return l_dSquares > 0.0 ? std::sqrt(l_dSquares / (l_dCount - 1.0)) : 0.0;
}

// Rank 0's state of a distributed run, shared by its hooks.
struct SteeringMPI::Run {
  std::string m_sJob;
  double m_dStart = 0.0, m_dEnd = 0.0, m_dSampling = 1.0;
  std::unique_ptr<SteeringMPIWork> m_pcWork;
  std::vector<SteeringChange> m_acPending;  // took hold at the last point
  size_t m_nValues = 0;
  bool m_bBegun = false;
};

SteeringMPI::SteeringMPI(SteeringMPIWorkFactory p_fFactory, MPI_Comm p_nComm,
                         std::chrono::milliseconds p_nDeadline)
    : m_fFactory(std::move(p_fFactory)),
      m_nComm(p_nComm),
      m_nDeadline(p_nDeadline),
      m_nRank(0),
      m_nRanks(1),
      m_bInterrupted(false),
      m_bRunning(false),
      m_bShutDown(false),
      m_nLastPoint(0) {
  MPI_Comm_rank(m_nComm, &m_nRank);
  MPI_Comm_size(m_nComm, &m_nRanks);
}

SteeringMPI::~SteeringMPI() {}

bool SteeringMPI::Distribute(const std::string& p_sJob, SteeringRunPlan& p_rPlan,
                             wxString& p_rsRefusal) {
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    if (!IsRoot()) {
      p_rsRefusal = wxT("only rank 0 runs the steering side of the job");
      return false;
    }
    if (m_bShutDown) {
      p_rsRefusal = wxT("the job is ending");
      return false;
    }
    if (m_bRunning) {
      p_rsRefusal = wxT("another run goes on across the ranks; one at a time");
      return false;
    }
    if (p_sJob.size() > MAX_MESSAGE_BYTES / 2) {
      p_rsRefusal = wxT("the run's description is too long to share");
      return false;
    }
  }
  std::shared_ptr<Run> l_pcRun = std::make_shared<Run>();
  l_pcRun->m_sJob = p_sJob;
  l_pcRun->m_dStart = p_rPlan.m_dStart;
  l_pcRun->m_dEnd = p_rPlan.m_dEnd;
  l_pcRun->m_dSampling = p_rPlan.m_dSampling;
  const std::function<bool(SteeringStep&)> l_fCallerBegin = p_rPlan.m_fBegin;
  p_rPlan.m_fBegin = [this, l_pcRun, l_fCallerBegin](SteeringStep& p_rStep) {
    if (!RootBegin(l_pcRun, p_rStep)) return false;
    return !l_fCallerBegin || l_fCallerBegin(p_rStep);
  };
  p_rPlan.m_fStep = [this, l_pcRun](SteeringStep& p_rStep) { return RootStep(l_pcRun, p_rStep); };
  p_rPlan.m_fSteered = [l_pcRun](const std::vector<SteeringChange>& p_acChanges) {
    l_pcRun->m_acPending.insert(l_pcRun->m_acPending.end(), p_acChanges.begin(),
                                p_acChanges.end());
  };
  p_rPlan.m_fEnd = [this, l_pcRun](int) { RootEnd(l_pcRun); };
  return true;
}

bool SteeringMPI::RootBegin(const std::shared_ptr<Run>& p_pcRun, SteeringStep& p_rStep) {
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    if (m_bRunning || m_bShutDown)
      return p_rStep.Fail(wxT("another run goes on across the ranks; one at a time"));
    m_bRunning = true;
  }
  p_pcRun->m_bBegun = true;
  SteeringMPIStart l_cStart;
  l_cStart.m_dStart = p_pcRun->m_dStart;
  l_cStart.m_dEnd = p_pcRun->m_dEnd;
  l_cStart.m_dSampling = p_pcRun->m_dSampling;
  l_cStart.m_adMarking = p_rStep.Marking();
  l_cStart.m_adParameters = p_rStep.Parameters();
  l_cStart.m_sJob = p_pcRun->m_sJob;
  l_cStart.m_nRank = m_nRank;
  l_cStart.m_nRanks = m_nRanks;
  Writer l_cWriter;
  l_cWriter.Put<std::uint32_t>(BEGIN);
  l_cWriter.Put<double>(l_cStart.m_dStart);
  l_cWriter.Put<double>(l_cStart.m_dEnd);
  l_cWriter.Put<double>(l_cStart.m_dSampling);
  l_cWriter.PutDoubles(l_cStart.m_adMarking);
  l_cWriter.PutDoubles(l_cStart.m_adParameters);
  l_cWriter.PutBytes(l_cStart.m_sJob);
  Broadcast(l_cWriter.Bytes());

  wxString l_sFailure;
  if (!Guard(
          [&] {
            p_pcRun->m_pcWork = m_fFactory(l_cStart, l_sFailure);
            return p_pcRun->m_pcWork != nullptr;
          },
          l_sFailure))
    return p_rStep.Fail(l_sFailure);
  p_pcRun->m_nValues = p_pcRun->m_pcWork->GetValueCount();
  p_rStep.Marking().assign(p_pcRun->m_nValues, 0.0);
  return true;
}

bool SteeringMPI::RootStep(const std::shared_ptr<Run>& p_pcRun, SteeringStep& p_rStep) {
  Writer l_cWriter;
  l_cWriter.Put<std::uint32_t>(STEP);
  l_cWriter.Put<std::uint64_t>(p_rStep.GetPoint());
  l_cWriter.Put<double>(p_rStep.GetFrom());
  l_cWriter.Put<double>(p_rStep.GetTo());
  l_cWriter.Put<std::uint64_t>(p_pcRun->m_nValues);
  PutChanges(l_cWriter, p_pcRun->m_acPending);
  Broadcast(l_cWriter.Bytes());

  SteeringMPIWork& l_rWork = *p_pcRun->m_pcWork;
  SteeringContribution l_cContribution;
  l_cContribution.Clear(p_pcRun->m_nValues);
  wxString l_sFailure;
  const std::vector<SteeringChange> l_acChanges = std::move(p_pcRun->m_acPending);
  p_pcRun->m_acPending.clear();
  Guard([&] { return l_rWork.Steer(l_acChanges, l_sFailure); }, l_sFailure) &&
      Guard(
          [&] {
            return l_rWork.Advance(p_rStep.GetFrom(), p_rStep.GetTo(), l_cContribution,
                                   l_sFailure);
          },
          l_sFailure);
  if (l_cContribution.size() != p_pcRun->m_nValues) {
    if (l_sFailure.empty()) l_sFailure = wxT("the work changed its number of values");
    l_cContribution.Clear(p_pcRun->m_nValues);
  }
  const wxString l_sOwnFailure = l_sFailure;
  wxString l_sJobFailure;
  if (!Contribute(p_rStep.GetPoint(), l_cContribution, wxString(), l_sJobFailure))
    Abort(l_sJobFailure);
  if (!l_sOwnFailure.empty()) return p_rStep.Fail(l_sOwnFailure);
  std::vector<double>& l_adMarking = p_rStep.Marking();
  for (size_t i = 0; i < p_pcRun->m_nValues; ++i) l_adMarking[i] = l_cContribution.GetMean(i);
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_cLastTotals = l_cContribution;
  m_nLastPoint = p_rStep.GetPoint();
  return true;
}

void SteeringMPI::RootEnd(const std::shared_ptr<Run>& p_pcRun) {
  if (!p_pcRun->m_bBegun) return;
  p_pcRun->m_bBegun = false;
  p_pcRun->m_pcWork.reset();
  Writer l_cWriter;
  l_cWriter.Put<std::uint32_t>(END);
  Broadcast(l_cWriter.Bytes());
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_bRunning = false;
}

SteeringContribution SteeringMPI::GetLastTotals(size_t* p_pnPoint) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  if (p_pnPoint != NULL) *p_pnPoint = m_nLastPoint;
  return m_cLastTotals;
}

void SteeringMPI::Shutdown() {
  {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    if (!IsRoot() || m_bShutDown || m_bRunning) return;
    m_bShutDown = true;
  }
  Writer l_cWriter;
  l_cWriter.Put<std::uint32_t>(QUIT);
  Broadcast(l_cWriter.Bytes());
}

void SteeringMPI::Follow() {
  if (IsRoot()) return;
  std::unique_ptr<SteeringMPIWork> l_pcWork;
  wxString l_sFailure;  // of this rank's work in the run going on
  for (;;) {
    std::string l_sBytes;
    Broadcast(l_sBytes);
    Reader l_cReader(l_sBytes);
    std::uint32_t l_nKind = 0;
    l_cReader.Get(l_nKind);
    if (l_nKind == QUIT) return;
    if (l_nKind == END) {
      l_pcWork.reset();
      l_sFailure.clear();
      continue;
    }
    if (l_nKind == BEGIN) {
      l_pcWork.reset();
      l_sFailure.clear();
      SteeringMPIStart l_cStart;
      l_cStart.m_nRank = m_nRank;
      l_cStart.m_nRanks = m_nRanks;
      if (!l_cReader.Get(l_cStart.m_dStart) || !l_cReader.Get(l_cStart.m_dEnd) ||
          !l_cReader.Get(l_cStart.m_dSampling) ||
          !l_cReader.GetDoubles(l_cStart.m_adMarking) ||
          !l_cReader.GetDoubles(l_cStart.m_adParameters) || !l_cReader.GetBytes(l_cStart.m_sJob)) {
        l_sFailure = wxT("the start of the run came garbled");
        continue;
      }
      Guard(
          [&] {
            l_pcWork = m_fFactory(l_cStart, l_sFailure);
            return l_pcWork != nullptr;
          },
          l_sFailure);
      continue;
    }
    FollowStep(l_pcWork, l_sBytes, l_sFailure);
  }
}

void SteeringMPI::FollowStep(std::unique_ptr<SteeringMPIWork>& p_pcWork,
                             const std::string& p_sBytes, wxString& p_rsFailure) {
  Reader l_cReader(p_sBytes);
  std::uint32_t l_nKind = 0;
  std::uint64_t l_nPoint = 0, l_nValues = 0;
  double l_dFrom = 0.0, l_dTo = 0.0;
  std::vector<SteeringChange> l_acChanges;
  if (!l_cReader.Get(l_nKind) || l_nKind != STEP || !l_cReader.Get(l_nPoint) ||
      !l_cReader.Get(l_dFrom) || !l_cReader.Get(l_dTo) || !l_cReader.Get(l_nValues) ||
      l_nValues > MAX_MESSAGE_BYTES || !GetChanges(l_cReader, l_acChanges)) {
    // Without the size of the contribution this rank cannot take part.
    Abort(wxString::Format(wxT("rank %d received a garbled step"), m_nRank));
  }
  SteeringContribution l_cContribution;
  l_cContribution.Clear(static_cast<size_t>(l_nValues));
  if (p_rsFailure.empty() && !p_pcWork) p_rsFailure = wxT("the run has no work on this rank");
  if (p_rsFailure.empty()) {
    Guard([&] { return p_pcWork->Steer(l_acChanges, p_rsFailure); }, p_rsFailure) &&
        Guard([&] { return p_pcWork->Advance(l_dFrom, l_dTo, l_cContribution, p_rsFailure); },
              p_rsFailure);
    if (p_rsFailure.empty() && l_cContribution.size() != l_nValues)
      p_rsFailure = wxString::Format(wxT("the work has %zu values where rank 0 has %llu"),
                                     l_cContribution.size(),
                                     static_cast<unsigned long long>(l_nValues));
  }
  if (!p_rsFailure.empty()) l_cContribution.Clear(static_cast<size_t>(l_nValues));
  wxString l_sUnused;
  Contribute(static_cast<size_t>(l_nPoint), l_cContribution, p_rsFailure, l_sUnused);
}

void SteeringMPI::Broadcast(std::string& p_rsBytes) {
  std::uint64_t l_nSize = p_rsBytes.size();
  MPI_Request l_nRequest;
  MPI_Ibcast(&l_nSize, 1, MPI_UINT64_T, 0, m_nComm, &l_nRequest);
  Wait(l_nRequest, false);
  if (!IsRoot()) {
    if (l_nSize > MAX_MESSAGE_BYTES)
      Abort(wxString::Format(wxT("rank %d was sent a step of %llu bytes"), m_nRank,
                             static_cast<unsigned long long>(l_nSize)));
    p_rsBytes.assign(static_cast<size_t>(l_nSize), '\0');
  }
  if (l_nSize == 0) return;
  MPI_Ibcast(&p_rsBytes[0], static_cast<int>(l_nSize), MPI_CHAR, 0, m_nComm, &l_nRequest);
  Wait(l_nRequest, false);
}

bool SteeringMPI::Contribute(size_t p_nPoint, SteeringContribution& p_rContribution,
                             const wxString& p_sReason, wxString& p_rsFailure) {
  std::vector<double>& l_adData = p_rContribution.Data();
  std::vector<double> l_adTotals(IsRoot() ? l_adData.size() : 0);
  std::vector<char> l_acHealth(HEALTH_BYTES, '\0');
  const wxScopedCharBuffer l_cReason = p_sReason.utf8_str();
  std::memcpy(l_acHealth.data(), l_cReason.data(), std::min(l_cReason.length(), HEALTH_BYTES - 1));
  std::vector<char> l_acAll(IsRoot() ? HEALTH_BYTES * static_cast<size_t>(m_nRanks) : 0);

  MPI_Request l_anRequests[2];
  MPI_Ireduce(l_adData.data(), IsRoot() ? l_adTotals.data() : NULL,
              static_cast<int>(l_adData.size()), MPI_DOUBLE, MPI_SUM, 0, m_nComm,
              &l_anRequests[0]);
  MPI_Igather(l_acHealth.data(), static_cast<int>(HEALTH_BYTES), MPI_CHAR,
              IsRoot() ? l_acAll.data() : NULL, static_cast<int>(HEALTH_BYTES), MPI_CHAR, 0,
              m_nComm, &l_anRequests[1]);
  bool l_bInTime = true;
  for (MPI_Request& l_rRequest : l_anRequests)
    l_bInTime = l_bInTime && Wait(l_rRequest, IsRoot());
  if (!IsRoot()) return true;
  if (!l_bInTime) {
    // Which ranks are missing cannot be told from a reduction; the gather
    // may have their health if it completed.
    p_rsFailure =
        m_bInterrupted
            ? wxString::Format(wxT("a rank did not reach output point %zu before this process "
                                   "was asked to end (did a rank die?); ending the job"),
                               p_nPoint)
            : wxString::Format(wxT("a rank did not reach output point %zu within %.3g s; "
                                   "ending the job"),
                               p_nPoint, static_cast<double>(m_nDeadline.count()) / 1000.0);
    return false;
  }
  for (int l_nRank = 1; l_nRank < m_nRanks; ++l_nRank) {
    const char* l_pcReason = l_acAll.data() + HEALTH_BYTES * static_cast<size_t>(l_nRank);
    if (l_pcReason[0] == '\0') continue;
    p_rsFailure = wxString::Format(wxT("rank %d of %d failed at output point %zu: "), l_nRank,
                                   m_nRanks, p_nPoint) +
                  wxString::FromUTF8(l_pcReason, strnlen(l_pcReason, HEALTH_BYTES - 1)) +
                  wxT("; ending the job");
    return false;
  }
  l_adData.swap(l_adTotals);
  return true;
}

bool SteeringMPI::Wait(MPI_Request& p_rRequest, bool p_bDeadline) {
  typedef std::chrono::steady_clock Clock;
  Clock::time_point l_tEnd = Clock::now() + m_nDeadline;
  bool l_bInterrupted = false;
  // First keep asking (yielding the core to the ranks that work, which may
  // share it), then sleep between the questions, at most POLL_SLEEP: a
  // step's latency stays small and a paused job takes little CPU.
  const Clock::time_point l_tSpinUntil = Clock::now() + POLL_SPIN;
  std::chrono::microseconds l_nPause(50);
  for (;;) {
    int l_nDone = 0;
    MPI_Test(&p_rRequest, &l_nDone, MPI_STATUS_IGNORE);
    if (l_nDone) return true;
    if (p_bDeadline && m_bInterrupted && !l_bInterrupted) {
      l_bInterrupted = true;
      l_tEnd = std::min(l_tEnd, Clock::now() + INTERRUPT_GRACE);
    }
    if (p_bDeadline && Clock::now() >= l_tEnd) return false;
    if (Clock::now() < l_tSpinUntil) {
      std::this_thread::yield();
      continue;
    }
    std::this_thread::sleep_for(l_nPause);
    l_nPause = std::min(l_nPause * 2, POLL_SLEEP);
  }
}

void SteeringMPI::Abort(const wxString& p_sWhy) {
  // Straight to the log target's stream: the process ends before another
  // thread could pass the line on.
  std::fprintf(stderr, "%s%s\n", static_cast<const char*>(wxString(LogLevelPrefix(1)).utf8_str()),
               static_cast<const char*>(p_sWhy.utf8_str()));
  std::fflush(stderr);
  MPI_Abort(m_nComm, 1);
  std::_Exit(1);  // MPI_Abort does not return
}

}  // namespace quor
