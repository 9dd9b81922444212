// SPDX-License-Identifier: MIT
// quor_bench_memory: the peak memory of receiving one large result matrix
// with ReadResultMatrix, against the size of the matrix itself.
//
// The sending side runs in a forked child, so that only the receiving side
// is in this process. Two measures of each side:
// - the peak of live heap bytes allocated through operator new (which is
//   how the library and the standard containers allocate) during the
//   receive, over what was live before it; zlib's own small state is not
//   counted;
// - the growth of the process's peak resident set (getrusage ru_maxrss).
// The forked sender measures the same two of its own while it serves the
// matrix (over the matrix it holds), and tells them through the pipe.
// Prints one JSON object on standard output.
#include <malloc.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <wx/init.h>
#include <wx/socket.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "bench_support.h"
#include "quor/steeringclient.h"

namespace {

std::atomic<long long> g_nLiveBytes{0};
std::atomic<long long> g_nPeakBytes{0};

void CountAllocation(void* p_pBlock) {
  const long long l_nLive =
      g_nLiveBytes.fetch_add(static_cast<long long>(malloc_usable_size(p_pBlock))) +
      static_cast<long long>(malloc_usable_size(p_pBlock));
  long long l_nPeak = g_nPeakBytes.load();
  while (l_nLive > l_nPeak && !g_nPeakBytes.compare_exchange_weak(l_nPeak, l_nLive)) {
  }
}

void* Allocate(std::size_t p_nSize) {
  void* l_pBlock = std::malloc(p_nSize == 0 ? 1 : p_nSize);
  if (l_pBlock != nullptr) CountAllocation(l_pBlock);
  return l_pBlock;
}

void Release(void* p_pBlock) {
  if (p_pBlock == nullptr) return;
  g_nLiveBytes.fetch_sub(static_cast<long long>(malloc_usable_size(p_pBlock)));
  std::free(p_pBlock);
}

long long PeakResidentBytes() {
  rusage l_cUsage;
  getrusage(RUSAGE_SELF, &l_cUsage);
  return static_cast<long long>(l_cUsage.ru_maxrss) * 1024;
}

const size_t ROWS = 1000;
const size_t COLUMNS = 10000;

}  // namespace

void* operator new(std::size_t p_nSize) {
  void* l_pBlock = Allocate(p_nSize);
  if (l_pBlock == nullptr) throw std::bad_alloc();
  return l_pBlock;
}
void* operator new[](std::size_t p_nSize) {
  void* l_pBlock = Allocate(p_nSize);
  if (l_pBlock == nullptr) throw std::bad_alloc();
  return l_pBlock;
}
void* operator new(std::size_t p_nSize, const std::nothrow_t&) noexcept {
  return Allocate(p_nSize);
}
void* operator new[](std::size_t p_nSize, const std::nothrow_t&) noexcept {
  return Allocate(p_nSize);
}
void operator delete(void* p_pBlock) noexcept { Release(p_pBlock); }
void operator delete[](void* p_pBlock) noexcept { Release(p_pBlock); }
void operator delete(void* p_pBlock, std::size_t) noexcept { Release(p_pBlock); }
void operator delete[](void* p_pBlock, std::size_t) noexcept { Release(p_pBlock); }
void operator delete(void* p_pBlock, const std::nothrow_t&) noexcept { Release(p_pBlock); }
void operator delete[](void* p_pBlock, const std::nothrow_t&) noexcept { Release(p_pBlock); }

int main() {
  // The sender: forked before any thread exists, it builds the matrix,
  // listens, tells its port through the pipe and serves one connection.
  int l_anPipe[2];
  if (pipe(l_anPipe) != 0) return 1;
  const pid_t l_nChild = fork();
  if (l_nChild < 0) return 1;
  if (l_nChild == 0) {
    close(l_anPipe[0]);
    wxInitializer l_cWx;
    wxSocketBase::Initialize();
    const quor_bench::Matrix l_aadMatrix = quor_bench::SmoothMatrix(ROWS, COLUMNS);
    quor_bench::LoopbackServer l_cServer(&l_aadMatrix, nullptr);
    const unsigned short l_nPort = l_cServer.Port();
    // The sender's own peak: what sending costs over the matrix it holds.
    const long long l_nLiveBefore = g_nLiveBytes.load();
    g_nPeakBytes.store(l_nLiveBefore);
    const long long l_nResidentBefore = PeakResidentBytes();
    if (write(l_anPipe[1], &l_nPort, sizeof(l_nPort)) != sizeof(l_nPort)) _exit(1);
    l_cServer.Join();
    const long long l_anSender[2] = {g_nPeakBytes.load() - l_nLiveBefore,
                                     PeakResidentBytes() - l_nResidentBefore};
    if (write(l_anPipe[1], l_anSender, sizeof(l_anSender)) != sizeof(l_anSender)) _exit(1);
    close(l_anPipe[1]);
    _exit(0);
  }
  close(l_anPipe[1]);
  unsigned short l_nPort = 0;
  if (read(l_anPipe[0], &l_nPort, sizeof(l_nPort)) != sizeof(l_nPort)) return 1;

  wxInitializer l_cWx;
  wxSocketBase::Initialize();
  quor::SteeringClient* l_pcClient =
      new quor::SteeringClient(wxT("127.0.0.1"), wxString::Format(wxT("%u"), l_nPort));
  l_pcClient->SetTimeout(quor_bench::SOCKET_TIMEOUT_SECONDS);
  if (l_pcClient->ConnectToServer(true) != 1) return 1;

  quor_bench::Matrix* l_paadReceived = new quor_bench::Matrix();
  const long long l_nResidentBefore = PeakResidentBytes();
  const long long l_nLiveBefore = g_nLiveBytes.load();
  g_nPeakBytes.store(l_nLiveBefore);
  const auto l_cStart = std::chrono::steady_clock::now();
  const unsigned int l_nResult = l_pcClient->ReadResultMatrix(*l_paadReceived);
  const double l_dSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - l_cStart).count();
  const long long l_nPeak = g_nPeakBytes.load();
  const long long l_nLiveAfter = g_nLiveBytes.load();
  const long long l_nResidentAfter = PeakResidentBytes();
  const bool l_bComplete = l_nResult == 1 && l_paadReceived->size() == ROWS &&
                           l_paadReceived->back().size() == COLUMNS;

  l_pcClient->DisConnectFromServer();
  long long l_anSender[2] = {-1, -1};
  if (read(l_anPipe[0], l_anSender, sizeof(l_anSender)) != sizeof(l_anSender))
    l_anSender[0] = l_anSender[1] = -1;
  close(l_anPipe[0]);
  int l_nStatus = 0;
  waitpid(l_nChild, &l_nStatus, 0);
  delete l_paadReceived;
  delete l_pcClient;

  std::printf(
      "{\n"
      "  \"rows\": %zu,\n"
      "  \"columns\": %zu,\n"
      "  \"complete\": %s,\n"
      "  \"seconds\": %.3f,\n"
      "  \"matrix_bytes\": %zu,\n"
      "  \"heap_peak_bytes\": %lld,\n"
      "  \"heap_retained_bytes\": %lld,\n"
      "  \"resident_peak_growth_bytes\": %lld,\n"
      "  \"sender_heap_peak_bytes\": %lld,\n"
      "  \"sender_resident_peak_growth_bytes\": %lld\n"
      "}\n",
      ROWS, COLUMNS, l_bComplete ? "true" : "false", l_dSeconds, ROWS * COLUMNS * sizeof(double),
      l_nPeak - l_nLiveBefore, l_nLiveAfter - l_nLiveBefore,
      l_nResidentAfter - l_nResidentBefore, l_anSender[0], l_anSender[1]);
  return l_bComplete ? 0 : 1;
}
