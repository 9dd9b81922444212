// SPDX-License-Identifier: MIT
// An allocation hook for test programs: a program that writes
// QUOR_TEST_ALLOCATION_HOOK() once (outside any namespace) sends every
// operator new and delete through the functions below, so that a test can
//   - make one allocation of its own thread fail (FailingAllocation), to
//     watch the library's allocation-failure path, and
//   - count the bytes that its own thread holds (CommitWatch), to bound what
//     a receive commits; other threads (a raw peer's) do not count.
#ifndef QUOR_TESTS_ALLOCATION_HOOK_H
#define QUOR_TESTS_ALLOCATION_HOOK_H

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace quor_test {
namespace allocation_hook {

// Every block carries its size and whether it was counted, and keeps new's
// 16-byte alignment.
struct Header {
  size_t size;
  size_t counted;
};
static_assert(sizeof(Header) == 16, "keeps new's alignment");

inline thread_local size_t t_nFailAtLeast = 0;  // 0: no failure armed
inline thread_local int t_nSkip = 0;
inline thread_local bool t_bCounted = false;
inline std::atomic<long long> g_nLive{0};
inline std::atomic<long long> g_nPeak{0};

// Out of line, so that the compiler does not pair the malloc and free of
// these functions with the new and delete expressions that call them.
__attribute__((noinline)) inline void* Acquire(size_t p_nSize) {
  if (t_nFailAtLeast != 0 && p_nSize >= t_nFailAtLeast && t_nSkip-- == 0) {
    t_nFailAtLeast = 0;
    throw std::bad_alloc();
  }
  Header* l_pcHeader = static_cast<Header*>(std::malloc(p_nSize + sizeof(Header)));
  if (l_pcHeader == nullptr) throw std::bad_alloc();
  l_pcHeader->size = p_nSize;
  l_pcHeader->counted = t_bCounted;
  if (t_bCounted) {
    const long long l_nLive = g_nLive += static_cast<long long>(p_nSize);
    long long l_nPeak = g_nPeak.load();
    while (l_nLive > l_nPeak && !g_nPeak.compare_exchange_weak(l_nPeak, l_nLive)) {
    }
  }
  return l_pcHeader + 1;
}

__attribute__((noinline)) inline void Release(void* p_p) noexcept {
  if (p_p == nullptr) return;
  Header* l_pcHeader = static_cast<Header*>(p_p) - 1;
  if (l_pcHeader->counted) g_nLive -= static_cast<long long>(l_pcHeader->size);
  std::free(l_pcHeader);
}

}  // namespace allocation_hook

// While it lives, the allocation of at least p_nAtLeast bytes made on this
// thread after p_nSkip such allocations throws std::bad_alloc (once).
class FailingAllocation {
 public:
  FailingAllocation(size_t p_nAtLeast, int p_nSkip) {
    allocation_hook::t_nSkip = p_nSkip;
    allocation_hook::t_nFailAtLeast = p_nAtLeast;
  }
  ~FailingAllocation() { allocation_hook::t_nFailAtLeast = 0; }
  bool Fired() const { return allocation_hook::t_nFailAtLeast == 0; }
};

// While it lives, the allocations of this thread are counted; Peak() is the
// most bytes they held at once beyond what they held at the start.
class CommitWatch {
 public:
  CommitWatch() : m_nBase(allocation_hook::g_nLive.load()) {
    allocation_hook::g_nPeak = m_nBase;
    allocation_hook::t_bCounted = true;
  }
  ~CommitWatch() { allocation_hook::t_bCounted = false; }
  long long Peak() const { return allocation_hook::g_nPeak.load() - m_nBase; }

 private:
  long long m_nBase;
};

}  // namespace quor_test

#define QUOR_TEST_ALLOCATION_HOOK()                                                           \
  void* operator new(size_t p_nSize) { return ::quor_test::allocation_hook::Acquire(p_nSize); } \
  void* operator new[](size_t p_nSize) {                                                      \
    return ::quor_test::allocation_hook::Acquire(p_nSize);                                    \
  }                                                                                           \
  void operator delete(void* p_p) noexcept { ::quor_test::allocation_hook::Release(p_p); }    \
  void operator delete[](void* p_p) noexcept { ::quor_test::allocation_hook::Release(p_p); }  \
  void operator delete(void* p_p, size_t) noexcept {                                          \
    ::quor_test::allocation_hook::Release(p_p);                                               \
  }                                                                                           \
  void operator delete[](void* p_p, size_t) noexcept {                                        \
    ::quor_test::allocation_hook::Release(p_p);                                               \
  }

#endif  // QUOR_TESTS_ALLOCATION_HOOK_H
