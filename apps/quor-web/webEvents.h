// SPDX-License-Identifier: MIT
// The events that quor-web pushes to every open page (server-sent events):
// a numbered list of recent events, each a JSON text. A page's stream
// follows the numbers; one that falls behind further than the list reaches
// starts again from a fresh snapshot.
#ifndef QUOR_WEB_EVENTS_H
#define QUOR_WEB_EVENTS_H

#include <nlohmann/json.hpp>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <utility>

namespace quor {
namespace web {

// JSON as text. Text that is not UTF-8 is replaced, not thrown about.
std::string JsonText(const nlohmann::json& p_cValue);

// The events kept for pages that are a little behind.
const std::size_t EVENTS_KEPT = 512;

class EventHub {
 public:
  // Adds an event and wakes the waiting streams.
  void Publish(const nlohmann::json& p_cEvent);

  // The number the next event will carry.
  std::uint64_t NextNumber();

  // Waits up to p_nMillis for an event numbered p_rnNext or later. True:
  // p_rsJson is that event and p_rnNext moves past it. False with
  // p_rbLost: the event was dropped already (the caller sends a snapshot
  // and continues from NextNumber()). False otherwise: nothing new, or the
  // hub is closing.
  bool Wait(std::uint64_t& p_rnNext, std::string& p_rsJson, bool& p_rbLost, int p_nMillis);

  // Ends every wait; later waits return at once.
  void Close();
  bool IsClosed();

 private:
  std::mutex m_cLock;
  std::condition_variable m_cChanged;
  std::deque<std::pair<std::uint64_t, std::string> > m_aEvents;
  std::uint64_t m_nNext = 0;
  bool m_bClosed = false;
};

}  // namespace web
}  // namespace quor

#endif  // QUOR_WEB_EVENTS_H
