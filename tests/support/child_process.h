// SPDX-License-Identifier: MIT
// A program run as a child process, the way a script or a user runs it:
// its stdout and stderr are read through pipes while it runs.
#ifndef QUOR_TESTS_CHILD_PROCESS_H
#define QUOR_TESTS_CHILD_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace quor_test {

// Long enough for a loaded machine; a correct program needs a fraction.
const int CHILD_DEADLINE_MS = 60000;

// Starts p_asArgs[0] (a path) with the arguments that follow. The
// destructor kills the child if it still runs.
class Child {
 public:
  explicit Child(const std::vector<std::string>& p_asArgs);
  ~Child();

  bool Started() const { return m_nPid > 0; }
  void Signal(int p_nSignal);

  // Waits for a whole line on stdout that contains p_sText; returns it, or
  // "" when the deadline passed or the program ended first.
  std::string WaitForLine(const std::string& p_sText, int p_nTimeoutMs = CHILD_DEADLINE_MS);

  // Waits for the program to end; its exit status, or -1 when it did not
  // end in time (or ended by a signal).
  int Wait(int p_nTimeoutMs = CHILD_DEADLINE_MS);

  const std::string& Out() const { return m_sOut; }
  const std::string& Err() const { return m_sErr; }

 private:
  // Reads what is there (waiting up to p_nMillis); false once both pipes
  // are closed and empty.
  bool Drain(int p_nMillis);

  pid_t m_nPid = -1;
  int m_nOut = -1, m_nErr = -1;
  int m_nStatus = -1;
  std::string m_sOut, m_sErr;

  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
};

// The port of a line such as "quor-simd listening on port 40123" (the text
// before "listening on port " may be any program's name); 0 for any other
// line.
unsigned int ListeningPort(const std::string& p_sLine);

}  // namespace quor_test

#endif  // QUOR_TESTS_CHILD_PROCESS_H
