// SPDX-License-Identifier: MIT
// One time limit over a whole exchange on one connection: a request with all
// its frames, or the version handshake. Both ends use it: the client around
// each of its operations, the dispatcher around each request it answers.
//
// A socket's own timeout bounds each single wait for bytes. A peer that
// trickles one byte every few seconds satisfies every such wait and can hold
// an exchange (and the thread serving it) for as long as it likes. A
// SteeringDeadline bounds the whole exchange instead: when its time is up
// before the exchange has ended, the connection is shut down in both
// directions. The transfer waiting on it returns at once with its failure
// (TRANSFER_SOCKET_ERROR for a read or a write that was cut), so does every
// later transfer on that connection, and Expired() tells that the time
// limit was the cause. Nothing else is done to the connection: closing it
// stays its owner's job.
//
// One watcher thread serves every deadline of the process. It is started
// with the first deadline and wakes only when a deadline may be due, so an
// exchange that ends in time costs a lock and no system call. If the thread
// cannot be started (no thread left), deadlines do nothing and each wait is
// bounded by the socket timeout alone; a later deadline tries again.
//
// Deadlines nest: one made on a thread that already has a deadline on the
// same socket does nothing of its own (the outer one bounds the exchange)
// and reports the outer one's Expired().
#ifndef QUOR_STEERINGDEADLINE_H
#define QUOR_STEERINGDEADLINE_H

#include <wx/socket.h>

#include <atomic>
#include <chrono>
#include <cstddef>

#include "quor/export.h"

namespace quor {

class QUOR_API SteeringDeadline {
 public:
  typedef std::chrono::steady_clock Clock;
  // An end that never comes: no deadline.
  static constexpr Clock::time_point NEVER = Clock::time_point::max();

  // A deadline p_nSeconds from now (none when p_nSeconds <= 0), or at
  // p_cEnd (none at NEVER), over the connection of a wxWidgets socket. The socket's
  // descriptor is duplicated for the deadline's lifetime: a socket may close
  // its own descriptor when it sees its peer gone, and a number closed that
  // way may be reused at once by another connection, which the deadline
  // must never touch. Does nothing for a NULL socket, one without a
  // descriptor, or when no descriptor can be had.
  SteeringDeadline(wxSocketBase* p_pcSocket, int p_nSeconds);
  SteeringDeadline(wxSocketBase* p_pcSocket, Clock::time_point p_cEnd);
  // The same over a descriptor of the caller's. REQUIRES: the descriptor
  // stays open until this object is gone.
  SteeringDeadline(int p_nFd, Clock::time_point p_cEnd);
  // Ends the deadline: from here on it never touches the connection.
  ~SteeringDeadline();

  // True once the time ran out before the deadline ended and the connection
  // has been shut down.
  bool Expired() const;
  // True once the time is up, whether or not the connection has been shut
  // down yet (a wait bounded by the socket timeout may end first).
  bool Late() const;

  // While a Pause lives, the deadline's clock stands still: time spent in
  // the application's own code (a handler operation) is not the peer's.
  class Pause {
   public:
    // p_pcDeadline may be NULL (nothing is paused).
    explicit Pause(SteeringDeadline* p_pcDeadline);
    ~Pause();

   private:
    SteeringDeadline* m_pcDeadline;
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
  };

 private:
  friend class DeadlineWatcher;

  void Begin(int p_nFd, bool p_bOwnsFd, const void* p_pKey, Clock::time_point p_cEnd);
  void Stop();
  void Go();

  // The descriptor that is shut down when the time runs out; -1 for a
  // deadline that does nothing.
  int m_nFd = -1;
  bool m_bOwnsFd = false;
  // What makes two deadlines "on the same socket" (for nesting).
  const void* m_pKey = nullptr;
  Clock::time_point m_cEnd;
  // Time left while paused.
  Clock::duration m_cLeft{};
  int m_nPauses = 0;
  std::atomic<bool> m_bExpired{false};
  // The enclosing deadline of this thread, and the one whose Expired() a
  // nested deadline reports.
  SteeringDeadline* m_pcOuter = nullptr;
  SteeringDeadline* m_pcGoverning = nullptr;
  // The watcher's bookkeeping: the slot in its list, or NOT_ARMED.
  static constexpr size_t NOT_ARMED = static_cast<size_t>(-1);
  size_t m_nSlot = NOT_ARMED;

  SteeringDeadline(const SteeringDeadline&) = delete;
  SteeringDeadline& operator=(const SteeringDeadline&) = delete;
};

// Runs an exchange (a function returning a result code) under one deadline
// of p_nSeconds on the socket, none when p_nSeconds <= 0. When the time ran
// out (the connection was cut, or the exchange failed once the time was
// up), the socket is closed afterwards, so that every later exchange fails
// at once with TRANSFER_NOT_CONNECTED. Returns the exchange's result.
template <typename F>
unsigned int WithDeadline(wxSocketBase* p_pcSocket, int p_nSeconds, F p_fExchange) {
  SteeringDeadline l_cDeadline(p_pcSocket, p_nSeconds);
  const unsigned int l_nResult = p_fExchange();
  if (p_pcSocket != nullptr &&
      (l_cDeadline.Expired() || (l_nResult != 1 && l_cDeadline.Late())))
    p_pcSocket->Close();
  return l_nResult;
}

}  // namespace quor

#endif  // QUOR_STEERINGDEADLINE_H
