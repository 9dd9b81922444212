// SPDX-License-Identifier: MIT
// The dispatcher at the limits of its process, in a server of its own
// (quor-test-server, a child process): no thread left for a worker, no
// descriptor left for a connection, and the memory of many connections
// that come and go.
#include <gtest/gtest.h>

#include <grp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "quor/steeringcontrol.h"
#include "connect_peer.h"
#include "raw_peer.h"

#ifndef QUOR_TEST_SERVER
#error "QUOR_TEST_SERVER names the test server program"
#endif

using namespace quor_test;

namespace {

// What the child runs under.
struct ChildLimits {
  // RLIMIT_NOFILE; 0: as inherited.
  rlim_t m_nFiles = 0;
  // RLIMIT_NPROC (threads of the user count); 0: as inherited. The limit
  // binds no process of root, so a child started by root runs under a user
  // id of its own.
  rlim_t m_nThreads = 0;
};

// quor-test-server as a child: its port, its log (stderr, kept in a file),
// its threads and CPU time, and a clean stop.
class ServerProcess {
 public:
  ServerProcess(const std::vector<std::string>& p_asArguments, const ChildLimits& p_cLimits,
                const std::string& p_sSanitizerOptions = "") {
    char l_sLogName[] = "/tmp/quor-test-server-log-XXXXXX";
    m_nLog = ::mkstemp(l_sLogName);
    m_sLogName = l_sLogName;
    int l_anPort[2];
    if (m_nLog < 0 || ::pipe(l_anPort) != 0) return;

    std::vector<std::string> l_asArguments = {QUOR_TEST_SERVER};
    l_asArguments.insert(l_asArguments.end(), p_asArguments.begin(), p_asArguments.end());
    std::vector<char*> l_apArguments;
    for (std::string& l_sArgument : l_asArguments) l_apArguments.push_back(&l_sArgument[0]);
    l_apArguments.push_back(nullptr);
    // The sanitizers' options of this run, with the test's additions.
    const char* l_sAsan = std::getenv("ASAN_OPTIONS");
    std::string l_sAsanOptions = std::string("ASAN_OPTIONS=") + (l_sAsan ? l_sAsan : "");
    if (!p_sSanitizerOptions.empty()) l_sAsanOptions += ":" + p_sSanitizerOptions;
    std::vector<std::string> l_asEnvironment = {l_sAsanOptions};
    for (char** l_ppVariable = environ; *l_ppVariable != nullptr; ++l_ppVariable)
      if (std::strncmp(*l_ppVariable, "ASAN_OPTIONS=", 13) != 0)
        l_asEnvironment.push_back(*l_ppVariable);
    std::vector<char*> l_apEnvironment;
    for (std::string& l_sVariable : l_asEnvironment) l_apEnvironment.push_back(&l_sVariable[0]);
    l_apEnvironment.push_back(nullptr);
    const uid_t l_nUser = 50000 + static_cast<uid_t>(::getpid() % 10000);

    m_nPid = ::fork();
    if (m_nPid == 0) {
      // Only calls that are safe between fork and exec.
      ::dup2(l_anPort[1], 1);
      ::dup2(m_nLog, 2);
      if (p_cLimits.m_nThreads != 0 && ::geteuid() == 0 &&
          (::setgroups(0, nullptr) != 0 || ::setgid(l_nUser) != 0 || ::setuid(l_nUser) != 0))
        ::_exit(126);
      if (p_cLimits.m_nThreads != 0) {
        const rlimit l_cLimit = {p_cLimits.m_nThreads, p_cLimits.m_nThreads};
        if (::setrlimit(RLIMIT_NPROC, &l_cLimit) != 0) ::_exit(126);
      }
      if (p_cLimits.m_nFiles != 0) {
        const rlimit l_cLimit = {p_cLimits.m_nFiles, p_cLimits.m_nFiles};
        if (::setrlimit(RLIMIT_NOFILE, &l_cLimit) != 0) ::_exit(126);
      }
      ::execve(l_apArguments[0], l_apArguments.data(), l_apEnvironment.data());
      ::_exit(127);
    }
    ::close(l_anPort[1]);
    m_nPort = ReadPort(l_anPort[0]);
    ::close(l_anPort[0]);
  }

  ~ServerProcess() {
    Stop();
    if (m_nLog >= 0) ::close(m_nLog);
    ::unlink(m_sLogName.c_str());
  }

  unsigned int Port() const { return m_nPort; }
  pid_t Pid() const { return m_nPid; }

  // SIGTERM, then the exit status (-1 when it did not exit normally).
  int Stop() {
    if (m_nPid <= 0) return m_nStatus;
    ::kill(m_nPid, SIGTERM);
    int l_nStatus = 0;
    ::waitpid(m_nPid, &l_nStatus, 0);
    m_nPid = 0;
    m_nStatus = WIFEXITED(l_nStatus) ? WEXITSTATUS(l_nStatus) : -1;
    return m_nStatus;
  }

  // The log lines so far.
  std::vector<std::string> Log() const {
    std::ifstream l_cFile(m_sLogName);
    std::vector<std::string> l_asLines;
    for (std::string l_sLine; std::getline(l_cFile, l_sLine);) l_asLines.push_back(l_sLine);
    return l_asLines;
  }
  // The whole log, for a failure message.
  std::string LogText() const {
    std::string l_sText;
    for (const std::string& l_sLine : Log()) l_sText += l_sLine + "\n";
    return l_sText;
  }
  // The log lines that begin so.
  std::vector<std::string> LogStarting(const std::string& p_sStart) const {
    std::vector<std::string> l_asLines;
    for (const std::string& l_sLine : Log())
      if (l_sLine.compare(0, p_sStart.size(), p_sStart) == 0) l_asLines.push_back(l_sLine);
    return l_asLines;
  }

  // A line of /proc/PID/status ("Threads", "VmRSS") as a number.
  long Status(const std::string& p_sKey) const {
    std::ifstream l_cFile("/proc/" + std::to_string(m_nPid) + "/status");
    for (std::string l_sLine; std::getline(l_cFile, l_sLine);)
      if (l_sLine.compare(0, p_sKey.size() + 1, p_sKey + ":") == 0)
        return std::atol(l_sLine.c_str() + p_sKey.size() + 1);
    return -1;
  }
  // User and system CPU time so far, in clock ticks.
  long CpuTicks() const {
    std::ifstream l_cFile("/proc/" + std::to_string(m_nPid) + "/stat");
    std::string l_sStat((std::istreambuf_iterator<char>(l_cFile)), std::istreambuf_iterator<char>());
    std::istringstream l_cFields(l_sStat.substr(l_sStat.rfind(')') + 2));
    std::string l_sField;
    long l_nUser = 0, l_nSystem = 0;
    for (int l_nField = 3; l_nField <= 15 && l_cFields >> l_sField; ++l_nField) {
      if (l_nField == 14) l_nUser = std::atol(l_sField.c_str());
      if (l_nField == 15) l_nSystem = std::atol(l_sField.c_str());
    }
    return l_nUser + l_nSystem;
  }

 private:
  static unsigned int ReadPort(int p_nFd) {
    std::string l_sLine;
    char l_c = 0;
    while (::read(p_nFd, &l_c, 1) == 1 && l_c != '\n') l_sLine += l_c;
    unsigned int l_nPort = 0;
    return std::sscanf(l_sLine.c_str(), "listening on port %u", &l_nPort) == 1 ? l_nPort : 0;
  }

  pid_t m_nPid = 0;
  int m_nStatus = -1;
  int m_nLog = -1;
  std::string m_sLogName;
  unsigned int m_nPort = 0;
};

// Waits (up to 30 s) until the predicate holds.
bool Eventually(const std::function<bool()>& p_fDone) {
  for (int l_nTry = 0; l_nTry < 3000 && !p_fDone(); ++l_nTry)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return p_fDone();
}

// A client that is served (the version and one request) and then stays.
std::unique_ptr<RawPeer> ServedClient(unsigned int p_nPort) {
  std::unique_ptr<RawPeer> l_pcPeer = ConnectRaw(p_nPort);
  if (!l_pcPeer || !CompletesARequest(*l_pcPeer)) return nullptr;
  return l_pcPeer;
}

// Connects until a client is served, as a user would retry; counts the
// connections that were refused meanwhile.
std::unique_ptr<RawPeer> ServedAfterRetries(unsigned int p_nPort, int* p_pnRefused) {
  for (int l_nTry = 0; l_nTry < 100; ++l_nTry) {
    std::unique_ptr<RawPeer> l_pcPeer = ConnectRaw(p_nPort);
    if (!l_pcPeer) return nullptr;
    if (CompletesARequest(*l_pcPeer)) return l_pcPeer;
    if (l_pcPeer->Received().empty()) ++*p_pnRefused;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return nullptr;
}

const char REFUSED_FOR_THREADS[] =
    "Error: Steering: a connection from 127.0.0.1 was refused: no worker thread can be started; "
    "accepting again in ";
const char REFUSED_FOR_DESCRIPTORS[] =
    "Error: Steering: a connection from 127.0.0.1 was refused: no file descriptor is free (Too "
    "many open files); accepting again in ";

TEST(DispatcherLimits, AWorkerThreadThatCannotBeStartedRefusesOneConnectionAndTheServerLives) {
  if (::geteuid() != 0)
    GTEST_SKIP() << "the thread limit counts every thread of the user; only root can run the "
                    "server under a user of its own";
  // The main thread, the deadline watcher and two workers.
  ChildLimits l_cLimits;
  l_cLimits.m_nThreads = 4;
  // LeakSanitizer needs a thread of its own when the child exits.
  ServerProcess l_cServer({}, l_cLimits, "detect_leaks=0");
  // 127: the server or its library could not be loaded as that user.
  if (l_cServer.Port() == 0 && l_cServer.Stop() == 127)
    GTEST_SKIP() << "a user other than root cannot run the test server from where it was built "
                    "(below a folder only root may enter, such as /root); build below a folder "
                    "every user may enter to run this test";
  ASSERT_NE(l_cServer.Port(), 0u);
  std::unique_ptr<RawPeer> l_pcFirst = ServedClient(l_cServer.Port());
  std::unique_ptr<RawPeer> l_pcSecond = ServedClient(l_cServer.Port());
  ASSERT_NE(l_pcFirst, nullptr);
  ASSERT_NE(l_pcSecond, nullptr);
  // No third worker: the connection is closed before the version.
  std::unique_ptr<RawPeer> l_pcThird = ConnectRaw(l_cServer.Port());
  ASSERT_NE(l_pcThird, nullptr);
  EXPECT_TRUE(ClosedUnserved(*l_pcThird));
  EXPECT_TRUE(Eventually([&] { return l_cServer.LogStarting(REFUSED_FOR_THREADS).size() == 1; }));
  // The others are still served, and once a worker has ended a new client
  // is too.
  l_pcFirst->SendValue<int32_t>(quor::REQUEST_READ_SIMULATOR_STATE);
  l_pcFirst->RecvValue<int32_t>();
  EXPECT_FALSE(l_pcFirst->Failed());
  l_pcFirst.reset();
  int l_nRefused = 1;
  std::unique_ptr<RawPeer> l_pcLater = ServedAfterRetries(l_cServer.Port(), &l_nRefused);
  EXPECT_NE(l_pcLater, nullptr);
  // One line per refused connection.
  EXPECT_EQ(l_cServer.LogStarting(REFUSED_FOR_THREADS).size(), size_t(l_nRefused));
  l_pcSecond.reset();
  l_pcLater.reset();
  EXPECT_EQ(l_cServer.Stop(), 0) << l_cServer.LogText();
}

TEST(DispatcherLimits, WithoutFreeDescriptorsAConnectionIsRefusedWithOneLineAndNoBusyLoop) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizers' runtime needs descriptors of its own (it opens a pipe to "
                  "check that memory is readable) and reports false errors without them";
#endif
  ChildLimits l_cLimits;
  l_cLimits.m_nFiles = 24;
  ServerProcess l_cServer({}, l_cLimits);
  ASSERT_NE(l_cServer.Port(), 0u);
  // Clients until the descriptors run out.
  std::vector<std::unique_ptr<RawPeer> > l_apcServed;
  int l_nRefused = 0;
  for (int l_nClient = 0; l_nClient < 40 && l_nRefused == 0; ++l_nClient) {
    std::unique_ptr<RawPeer> l_pcPeer = ConnectRaw(l_cServer.Port());
    ASSERT_NE(l_pcPeer, nullptr);
    if (CompletesARequest(*l_pcPeer))
      l_apcServed.push_back(std::move(l_pcPeer));
    else if (ClosedUnserved(*l_pcPeer))
      ++l_nRefused;
  }
  ASSERT_EQ(l_nRefused, 1);
  ASSERT_FALSE(l_apcServed.empty());
  EXPECT_TRUE(Eventually([&] { return l_cServer.LogStarting(REFUSED_FOR_DESCRIPTORS).size() == 1; }));
  // Still out of descriptors, the server does not spin: over a second it
  // uses a small part of a second of CPU time (a busy loop uses all of it).
  const long l_nBefore = l_cServer.CpuTicks();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_LT(l_cServer.CpuTicks() - l_nBefore, ::sysconf(_SC_CLK_TCK) / 2);
  // A connection that ends makes room for the next.
  l_apcServed.pop_back();
  std::unique_ptr<RawPeer> l_pcLater = ServedAfterRetries(l_cServer.Port(), &l_nRefused);
  EXPECT_NE(l_pcLater, nullptr);
  EXPECT_EQ(l_cServer.LogStarting(REFUSED_FOR_DESCRIPTORS).size(), size_t(l_nRefused));
  l_apcServed.clear();
  l_pcLater.reset();
  EXPECT_EQ(l_cServer.Stop(), 0) << l_cServer.LogText();
}

// Serves p_nCycles connections: connect, the version, one request, close;
// four clients at a time.
void Cycle(unsigned int p_nPort, int p_nCycles, std::atomic<int>& p_nFailed) {
  std::vector<std::thread> l_acClients;
  for (int l_nClient = 0; l_nClient < 4; ++l_nClient) {
    l_acClients.emplace_back([=, &p_nFailed] {
      for (int l_nCycle = l_nClient; l_nCycle < p_nCycles; l_nCycle += 4) {
        std::unique_ptr<RawPeer> l_pcPeer = ConnectRaw(p_nPort);
        if (!l_pcPeer || !CompletesARequest(*l_pcPeer)) ++p_nFailed;
      }
    });
  }
  for (std::thread& l_cClient : l_acClients) l_cClient.join();
}

TEST(DispatcherLimits, AConnectionsMemoryIsReturnedWhenItCloses) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer keeps freed memory in quarantine: the resident set of a "
                  "sanitized server grows with every allocation";
#endif
  ServerProcess l_cServer({"--quiet"}, ChildLimits());
  ASSERT_NE(l_cServer.Port(), 0u);
  std::atomic<int> l_nFailed{0};
  // The threads that stay: the main thread and the deadline watcher.
  auto l_fSettled = [&] { return l_cServer.Status("Threads") == 2; };
  Cycle(l_cServer.Port(), 1000, l_nFailed);
  ASSERT_TRUE(Eventually(l_fSettled));
  const long l_nAfterOneThousand = l_cServer.Status("VmRSS");
  Cycle(l_cServer.Port(), 29000, l_nFailed);
  ASSERT_TRUE(Eventually(l_fSettled));
  const long l_nAfterThirtyThousand = l_cServer.Status("VmRSS");
  EXPECT_EQ(l_nFailed.load(), 0);
  EXPECT_LE(l_nAfterThirtyThousand - l_nAfterOneThousand, 2048)
      << "kB after 1,000 connections: " << l_nAfterOneThousand
      << "; after 30,000: " << l_nAfterThirtyThousand;
  const std::vector<std::string> l_asErrors = l_cServer.LogStarting("Error");
  EXPECT_TRUE(l_asErrors.empty()) << l_asErrors.size() << " errors, the first: " << l_asErrors[0];
  EXPECT_EQ(l_cServer.Stop(), 0) << l_cServer.LogText();
}

}  // namespace
