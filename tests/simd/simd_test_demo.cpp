// SPDX-License-Identifier: MIT
// The steering demo against an in-process server: it watches the SIR run,
// lowers beta while the run goes, and writes the steered result as CSV;
// and it fails clearly when there is nothing to steer.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "steerDemo.h"
#include "simd_test_util.h"

using namespace quor;
using namespace quor::demo;
using namespace simd_test;

namespace {

std::vector<std::string> Split(const std::string& p_sLine) {
  std::vector<std::string> l_asFields;
  std::stringstream l_cStream(p_sLine);
  for (std::string l_sField; std::getline(l_cStream, l_sField, ',');) l_asFields.push_back(l_sField);
  return l_asFields;
}

ParseOutcome Parse(std::vector<wxString> p_asWords, DemoOptions& p_rOptions,
                   wxString& p_rsMessage) {
  std::vector<wxChar*> l_apArgs;
  for (wxString& l_sWord : p_asWords) l_apArgs.push_back(const_cast<wxChar*>(l_sWord.wc_str()));
  l_apArgs.push_back(nullptr);
  return ParseDemoOptions(static_cast<int>(p_asWords.size()), l_apArgs.data(), p_rOptions,
                          p_rsMessage);
}

// A port on which nobody listens (it was free a moment ago).
unsigned int UnusedPort() {
  const int l_nFd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in l_cAddr{};
  l_cAddr.sin_family = AF_INET;
  l_cAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), sizeof(l_cAddr));
  socklen_t l_nLength = sizeof(l_cAddr);
  ::getsockname(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), &l_nLength);
  ::close(l_nFd);
  return ntohs(l_cAddr.sin_port);
}

class DemoTest : public SimdTest {
 protected:
  // Runs the demo on a thread of its own while the main thread runs the
  // server's event loop.
  int RunDemoWith(DemoOptions p_cOptions) {
    p_cOptions.port = m_nPort;
    std::atomic<bool> l_bDone{false};
    int l_nResult = -1;
    std::thread l_cDemo([&] {
      l_nResult = RunDemo(p_cOptions, m_cOut, m_cErr);
      l_bDone = true;
    });
    EXPECT_TRUE(quor_test::RunEventLoopUntil([&] { return l_bDone.load(); }, 4 * DEADLINE_MS));
    l_cDemo.join();
    return l_nResult;
  }

  std::ostringstream m_cOut, m_cErr;
};

}  // namespace

TEST_F(DemoTest, SteersTheSirRunAndWritesTheCsv) {
  TempFile l_cCsv("demo.csv", "");
  DemoOptions l_cOptions;
  l_cOptions.csv = l_cCsv.Path();
  l_cOptions.speed = 50;  // steers at the default point, halfway through the run
  ASSERT_EQ(RunDemoWith(l_cOptions), 0) << m_cErr.str() << m_cOut.str();
  const std::string l_sOut = m_cOut.str();
  EXPECT_NE(l_sOut.find("lowering beta from 0.0003 to 0.0001"), std::string::npos) << l_sOut;
  EXPECT_NE(l_sOut.find("Wrote 201 rows"), std::string::npos) << l_sOut;
  EXPECT_NE(l_sOut.find(l_cCsv.Path()), std::string::npos) << l_sOut;
  EXPECT_EQ(m_cErr.str(), "");

  std::ifstream l_cFile(l_cCsv.Path().c_str());
  std::string l_sLine;
  ASSERT_TRUE(std::getline(l_cFile, l_sLine));
  EXPECT_EQ(l_sLine, "time,S,I,R");
  std::vector<std::vector<double> > l_aadRows;
  while (std::getline(l_cFile, l_sLine)) {
    std::vector<double> l_adRow;
    for (const std::string& l_sField : Split(l_sLine)) l_adRow.push_back(std::stod(l_sField));
    ASSERT_EQ(l_adRow.size(), 4u) << l_sLine;
    l_aadRows.push_back(l_adRow);
  }
  ASSERT_EQ(l_aadRows.size(), 201u);
  const Matrix l_aadUnsteered = Reference(sim::SirNet(), "continuous", Grid(0, 50, 0.25));
  for (std::size_t j = 0; j < 201; ++j) {
    EXPECT_DOUBLE_EQ(l_aadRows[j][0], 0.25 * j);
    EXPECT_NEAR(l_aadRows[j][1] + l_aadRows[j][2] + l_aadRows[j][3], 1000.0, 1e-6);
  }
  // Up to halfway (t = 25) the run is the unsteered one; at the end far
  // more are still susceptible than without the change.
  for (std::size_t j = 0; j <= 100; ++j)
    EXPECT_NEAR(l_aadRows[j][1], l_aadUnsteered[0][j], 1e-6 * l_aadUnsteered[0][j]) << j;
  EXPECT_GT(l_aadRows[200][1], l_aadUnsteered[0][200] + 100.0);
  // The server keeps the lowered beta until the next reset.
  EXPECT_EQ(m_pcServer->Handler().GetStore().GetParameterValues(m_nModel),
            (std::vector<double>{0.0003 / 3.0, 0.1}));
}

TEST_F(DemoTest, ANonexistentModelIndexIsAClearError) {
  DemoOptions l_cOptions;
  l_cOptions.model = 5;
  l_cOptions.csv = ::testing::TempDir() + "simd-demo-never-written.csv";
  EXPECT_EQ(RunDemoWith(l_cOptions), 1);
  EXPECT_NE(m_cErr.str().find("no model with index 5"), std::string::npos) << m_cErr.str();
  EXPECT_NE(m_cOut.str().find("[0] SIR epidemic"), std::string::npos) << m_cOut.str();
}

TEST(Demo, NoServerIsAClearError) {
  DemoOptions l_cOptions;
  l_cOptions.port = UnusedPort();
  l_cOptions.timeout = 5;
  std::ostringstream l_cOut, l_cErr;
  EXPECT_EQ(RunDemo(l_cOptions, l_cOut, l_cErr), 1);
  EXPECT_NE(l_cErr.str().find("cannot connect"), std::string::npos) << l_cErr.str();
}

TEST(Demo, Options) {
  DemoOptions l_cOptions;
  wxString l_sMessage;
  ASSERT_EQ(Parse({wxT("quor-steer-demo")}, l_cOptions, l_sMessage), ParseOutcome::RUN);
  EXPECT_EQ(Text(l_cOptions.host), "127.0.0.1");
  EXPECT_EQ(l_cOptions.port, 3000u);
  EXPECT_EQ(l_cOptions.csv, "sir-steered.csv");
  EXPECT_EQ(l_cOptions.model, 0);
  EXPECT_TRUE(std::isnan(l_cOptions.steerAt));

  ASSERT_EQ(Parse({wxT("quor-steer-demo"), wxT("--host"), wxT("sim.example"), wxT("--port"),
                   wxT("4000"), wxT("--csv"), wxT("out/x.csv"), wxT("--model"), wxT("2"),
                   wxT("--speed"), wxT("10"), wxT("--steer-at"), wxT("20.5"),
                   wxT("--parameter"), wxT("gamma"), wxT("--divide-by"), wxT("2")},
                  l_cOptions, l_sMessage),
            ParseOutcome::RUN)
      << Text(l_sMessage);
  EXPECT_EQ(Text(l_cOptions.host), "sim.example");
  EXPECT_EQ(l_cOptions.port, 4000u);
  EXPECT_EQ(l_cOptions.csv, "out/x.csv");
  EXPECT_EQ(l_cOptions.model, 2);
  EXPECT_EQ(l_cOptions.speed, 10u);
  EXPECT_EQ(l_cOptions.steerAt, 20.5);
  EXPECT_EQ(l_cOptions.parameter, "gamma");
  EXPECT_EQ(l_cOptions.divideBy, 2.0);

  EXPECT_EQ(Parse({wxT("quor-steer-demo"), wxT("--speed"), wxT("0")}, l_cOptions, l_sMessage),
            ParseOutcome::ERROR);
  EXPECT_NE(Text(l_sMessage).find("--speed"), std::string::npos);
  EXPECT_EQ(Parse({wxT("quor-steer-demo"), wxT("--divide-by"), wxT("0")}, l_cOptions, l_sMessage),
            ParseOutcome::ERROR);
  EXPECT_EQ(Parse({wxT("quor-steer-demo"), wxT("--help")}, l_cOptions, l_sMessage),
            ParseOutcome::HELP);
  EXPECT_NE(Text(l_sMessage).find("--csv"), std::string::npos);
}
