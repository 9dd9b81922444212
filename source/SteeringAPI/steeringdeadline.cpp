// SPDX-License-Identifier: MIT
#include "quor/steeringdeadline.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace quor {

namespace {
// The innermost deadline of this thread.
thread_local SteeringDeadline* t_pcInnermost = nullptr;
}  // namespace

// The one thread that shuts down the connections whose time ran out. Its
// list holds the running deadlines; each knows its slot, so that adding and
// removing one costs no search and no allocation once the list has grown.
//
// m_cWake is never later than the earliest end in the list: a deadline that
// ends later than it (the common case, every request of a busy connection
// ending a little later than the one before) is added without waking the
// thread. The thread wakes at m_cWake, shuts down what is due and sleeps
// until the next end; with an empty list it sleeps until a deadline comes.
class DeadlineWatcher {
 public:
  typedef SteeringDeadline::Clock Clock;

  static DeadlineWatcher& Get() {
    // Never destroyed: the thread may still sleep when the process ends.
    static DeadlineWatcher* s_pcWatcher = [] {
      // A forked child has no watcher thread: it starts its own.
      ::pthread_atfork(nullptr, nullptr, [] { s_bForked.store(true); });
      return new DeadlineWatcher;
    }();
    return *s_pcWatcher;
  }

  void Add(SteeringDeadline* p_pcDeadline) {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    if (!Running()) return;
    p_pcDeadline->m_nSlot = m_apcRunning.size();
    m_apcRunning.push_back(p_pcDeadline);
    if (p_pcDeadline->m_cEnd < m_cWake) {
      m_cWake = p_pcDeadline->m_cEnd;
      m_cChanged.notify_one();
    }
  }

  // After this the watcher never touches the deadline's descriptor.
  void Remove(SteeringDeadline* p_pcDeadline) {
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    Unlist(p_pcDeadline);
  }

 private:
  // REQUIRES: m_cMutex is held. True when the thread runs in this process.
  bool Running() {
    if (m_bRunning && !s_bForked.load()) return true;
    try {
      std::thread(&DeadlineWatcher::Run, this).detach();
    } catch (...) {
      return false;
    }
    m_bRunning = true;
    s_bForked.store(false);
    m_apcRunning.clear();
    m_cWake = Clock::time_point::max();
    return true;
  }

  // REQUIRES: m_cMutex is held.
  void Unlist(SteeringDeadline* p_pcDeadline) {
    const size_t l_nSlot = p_pcDeadline->m_nSlot;
    if (l_nSlot == SteeringDeadline::NOT_ARMED) return;
    m_apcRunning[l_nSlot] = m_apcRunning.back();
    m_apcRunning[l_nSlot]->m_nSlot = l_nSlot;
    m_apcRunning.pop_back();
    p_pcDeadline->m_nSlot = SteeringDeadline::NOT_ARMED;
  }

  void Run() {
    std::unique_lock<std::mutex> l_cLock(m_cMutex);
    for (;;) {
      if (m_cWake == Clock::time_point::max())
        m_cChanged.wait(l_cLock);
      else
        m_cChanged.wait_until(l_cLock, m_cWake);
      const Clock::time_point l_cNow = Clock::now();
      Clock::time_point l_cNext = Clock::time_point::max();
      for (size_t l_nSlot = 0; l_nSlot < m_apcRunning.size();) {
        SteeringDeadline* l_pcDeadline = m_apcRunning[l_nSlot];
        if (l_pcDeadline->m_cEnd > l_cNow) {
          if (l_pcDeadline->m_cEnd < l_cNext) l_cNext = l_pcDeadline->m_cEnd;
          ++l_nSlot;
          continue;
        }
        // Marked first: the owner may look as soon as its transfer returns.
        l_pcDeadline->m_bExpired.store(true);
        // A blocked read or write on the connection returns at once.
        ::shutdown(l_pcDeadline->m_nFd, SHUT_RDWR);
        Unlist(l_pcDeadline);
      }
      m_cWake = l_cNext;
    }
  }

  std::mutex m_cMutex;
  std::condition_variable m_cChanged;
  std::vector<SteeringDeadline*> m_apcRunning;
  Clock::time_point m_cWake = Clock::time_point::max();
  bool m_bRunning = false;
  static std::atomic<bool> s_bForked;
};

std::atomic<bool> DeadlineWatcher::s_bForked{false};

SteeringDeadline::SteeringDeadline(wxSocketBase* p_pcSocket, int p_nSeconds)
    : SteeringDeadline(p_pcSocket, p_nSeconds > 0
                                       ? Clock::now() + std::chrono::seconds(p_nSeconds)
                                       : NEVER) {}

SteeringDeadline::SteeringDeadline(wxSocketBase* p_pcSocket, Clock::time_point p_cEnd) {
  const int l_nFd =
      p_pcSocket != nullptr ? static_cast<int>(p_pcSocket->GetSocket()) : -1;
  Begin(l_nFd, true, p_pcSocket, p_cEnd);
}

SteeringDeadline::SteeringDeadline(int p_nFd, Clock::time_point p_cEnd) {
  Begin(p_nFd, false, reinterpret_cast<const void*>(static_cast<intptr_t>(p_nFd) + 1), p_cEnd);
}

void SteeringDeadline::Begin(int p_nFd, bool p_bDuplicate, const void* p_pKey,
                             Clock::time_point p_cEnd) {
  m_pKey = p_pKey;
  m_pcOuter = t_pcInnermost;
  t_pcInnermost = this;
  for (SteeringDeadline* l_pcOuter = m_pcOuter; l_pcOuter != nullptr;
       l_pcOuter = l_pcOuter->m_pcOuter) {
    if (l_pcOuter->m_pKey == p_pKey) {
      m_pcGoverning = l_pcOuter->m_pcGoverning;
      return;
    }
  }
  m_pcGoverning = this;
  if (p_nFd < 0 || p_cEnd == NEVER) return;
  m_nFd = p_bDuplicate ? ::fcntl(p_nFd, F_DUPFD_CLOEXEC, 0) : p_nFd;
  if (m_nFd < 0) return;
  m_bOwnsFd = p_bDuplicate;
  m_cEnd = p_cEnd;
  DeadlineWatcher::Get().Add(this);
}

SteeringDeadline::~SteeringDeadline() {
  if (m_nFd >= 0) DeadlineWatcher::Get().Remove(this);
  if (m_bOwnsFd) ::close(m_nFd);
  t_pcInnermost = m_pcOuter;
}

bool SteeringDeadline::Expired() const { return m_pcGoverning->m_bExpired.load(); }

bool SteeringDeadline::Late() const {
  const SteeringDeadline& l_rDeadline = *m_pcGoverning;
  return l_rDeadline.m_bExpired.load() ||
         (l_rDeadline.m_nFd >= 0 && l_rDeadline.m_nPauses == 0 &&
          Clock::now() >= l_rDeadline.m_cEnd);
}

void SteeringDeadline::Stop() {
  if (m_nFd < 0 || m_nPauses++ > 0) return;
  DeadlineWatcher::Get().Remove(this);
  m_cLeft = m_cEnd - Clock::now();
}

void SteeringDeadline::Go() {
  if (m_nFd < 0 || --m_nPauses > 0 || m_bExpired.load()) return;
  m_cEnd = Clock::now() + m_cLeft;
  DeadlineWatcher::Get().Add(this);
}

SteeringDeadline::Pause::Pause(SteeringDeadline* p_pcDeadline)
    : m_pcDeadline(p_pcDeadline != nullptr ? p_pcDeadline->m_pcGoverning : nullptr) {
  if (m_pcDeadline != nullptr) m_pcDeadline->Stop();
}

SteeringDeadline::Pause::~Pause() {
  if (m_pcDeadline != nullptr) m_pcDeadline->Go();
}

}  // namespace quor
