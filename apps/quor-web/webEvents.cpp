// SPDX-License-Identifier: MIT
#include "webEvents.h"

#include <chrono>

namespace quor {
namespace web {

std::string JsonText(const nlohmann::json& p_cValue) {
  return p_cValue.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void EventHub::Publish(const nlohmann::json& p_cEvent) {
  const std::string l_sJson = JsonText(p_cEvent);
  {
    std::lock_guard<std::mutex> l_cGuard(m_cLock);
    m_aEvents.emplace_back(m_nNext++, l_sJson);
    while (m_aEvents.size() > EVENTS_KEPT) m_aEvents.pop_front();
  }
  m_cChanged.notify_all();
}

std::uint64_t EventHub::NextNumber() {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  return m_nNext;
}

bool EventHub::Wait(std::uint64_t& p_rnNext, std::string& p_rsJson, bool& p_rbLost,
                    int p_nMillis) {
  p_rbLost = false;
  std::unique_lock<std::mutex> l_cGuard(m_cLock);
  m_cChanged.wait_for(l_cGuard, std::chrono::milliseconds(p_nMillis),
                      [&] { return m_bClosed || m_nNext > p_rnNext; });
  if (m_bClosed || m_nNext <= p_rnNext) return false;
  if (m_aEvents.empty() || m_aEvents.front().first > p_rnNext) {
    p_rbLost = true;
    return false;
  }
  const auto& l_cEvent = m_aEvents[static_cast<std::size_t>(p_rnNext - m_aEvents.front().first)];
  p_rsJson = l_cEvent.second;
  p_rnNext = l_cEvent.first + 1;
  return true;
}

void EventHub::Close() {
  {
    std::lock_guard<std::mutex> l_cGuard(m_cLock);
    m_bClosed = true;
  }
  m_cChanged.notify_all();
}

bool EventHub::IsClosed() {
  std::lock_guard<std::mutex> l_cGuard(m_cLock);
  return m_bClosed;
}

}  // namespace web
}  // namespace quor
