// SPDX-License-Identifier: MIT
#include "child_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace quor_test {

namespace {
typedef std::chrono::steady_clock Clock;
}  // namespace

Child::Child(const std::vector<std::string>& p_asArgs) {
  int l_anOut[2], l_anErr[2];
  if (::pipe(l_anOut) != 0) return;
  if (::pipe(l_anErr) != 0) {
    ::close(l_anOut[0]);
    ::close(l_anOut[1]);
    return;
  }
  std::vector<char*> l_apArgs;
  for (const std::string& l_sArg : p_asArgs) l_apArgs.push_back(const_cast<char*>(l_sArg.c_str()));
  l_apArgs.push_back(nullptr);
  m_nPid = ::fork();
  if (m_nPid == 0) {
    ::dup2(l_anOut[1], 1);
    ::dup2(l_anErr[1], 2);
    ::close(l_anOut[0]);
    ::close(l_anErr[0]);
    ::close(l_anOut[1]);
    ::close(l_anErr[1]);
    ::execv(l_apArgs[0], l_apArgs.data());
    ::_exit(127);
  }
  ::close(l_anOut[1]);
  ::close(l_anErr[1]);
  m_nOut = l_anOut[0];
  m_nErr = l_anErr[0];
}

Child::~Child() {
  if (m_nPid > 0 && m_nStatus < 0) {
    ::kill(m_nPid, SIGKILL);
    int l_nStatus = 0;
    ::waitpid(m_nPid, &l_nStatus, 0);
  }
  if (m_nOut >= 0) ::close(m_nOut);
  if (m_nErr >= 0) ::close(m_nErr);
}

void Child::Signal(int p_nSignal) {
  if (m_nPid > 0 && m_nStatus < 0) ::kill(m_nPid, p_nSignal);
}

std::string Child::WaitForLine(const std::string& p_sText, int p_nTimeoutMs) {
  const Clock::time_point l_tDeadline = Clock::now() + std::chrono::milliseconds(p_nTimeoutMs);
  for (;;) {
    std::size_t l_nStart = 0;
    for (std::size_t l_nEnd; (l_nEnd = m_sOut.find('\n', l_nStart)) != std::string::npos;
         l_nStart = l_nEnd + 1) {
      const std::string l_sLine = m_sOut.substr(l_nStart, l_nEnd - l_nStart);
      if (l_sLine.find(p_sText) != std::string::npos) return l_sLine;
    }
    if (Clock::now() > l_tDeadline || !Drain(50)) return "";
  }
}

int Child::Wait(int p_nTimeoutMs) {
  const Clock::time_point l_tDeadline = Clock::now() + std::chrono::milliseconds(p_nTimeoutMs);
  while (m_nPid > 0 && m_nStatus < 0 && Clock::now() < l_tDeadline) {
    int l_nStatus = 0;
    if (::waitpid(m_nPid, &l_nStatus, WNOHANG) == m_nPid) {
      m_nStatus = l_nStatus;
      break;
    }
    Drain(20);
  }
  while (Drain(0)) {
  }
  if (m_nStatus < 0 || !WIFEXITED(m_nStatus)) return -1;
  return WEXITSTATUS(m_nStatus);
}

bool Child::Drain(int p_nMillis) {
  pollfd l_acFds[2] = {{m_nOut, POLLIN, 0}, {m_nErr, POLLIN, 0}};
  if (m_nOut < 0 && m_nErr < 0) {
    if (p_nMillis > 0) std::this_thread::sleep_for(std::chrono::milliseconds(p_nMillis));
    return false;
  }
  if (::poll(l_acFds, 2, p_nMillis) <= 0) return true;
  bool l_bAny = false;
  int* l_apnFds[2] = {&m_nOut, &m_nErr};
  std::string* l_apsTexts[2] = {&m_sOut, &m_sErr};
  for (int i = 0; i < 2; ++i) {
    if (*l_apnFds[i] < 0 || l_acFds[i].revents == 0) continue;
    char l_acBuffer[4096];
    const ssize_t l_nRead = ::read(*l_apnFds[i], l_acBuffer, sizeof(l_acBuffer));
    if (l_nRead > 0) {
      l_apsTexts[i]->append(l_acBuffer, static_cast<std::size_t>(l_nRead));
      l_bAny = true;
    } else {
      ::close(*l_apnFds[i]);
      *l_apnFds[i] = -1;
    }
  }
  return l_bAny || m_nOut >= 0 || m_nErr >= 0;
}

unsigned int ListeningPort(const std::string& p_sLine) {
  const std::string l_sMarker = " listening on port ";
  const std::size_t l_nAt = p_sLine.find(l_sMarker);
  if (l_nAt == std::string::npos) return 0;
  const std::string l_sDigits = p_sLine.substr(l_nAt + l_sMarker.size());
  if (l_sDigits.empty() || l_sDigits.find_first_not_of("0123456789") != std::string::npos) return 0;
  return static_cast<unsigned int>(std::strtoul(l_sDigits.c_str(), nullptr, 10));
}

}  // namespace quor_test
