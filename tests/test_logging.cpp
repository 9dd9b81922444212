// SPDX-License-Identifier: MIT
// LogText, the call for texts that are not formats, beside LOG, whose
// contract stays as it is; and the level prefixes they share.
#include <gtest/gtest.h>
#include <wx/log.h>

#include <string>
#include <thread>
#include <vector>

#include "quor/utilities.h"
#include "log_capture.h"

using namespace quor_test;

namespace {

// Records the function that each line was logged from.
class FunctionLog : public wxLog {
 public:
  FunctionLog() : m_pcPrevious(wxLog::SetActiveTarget(this)) {}
  ~FunctionLog() override { wxLog::SetActiveTarget(m_pcPrevious); }
  std::vector<std::string> m_asFunctions;

 protected:
  void DoLogRecord(wxLogLevel, const wxString&, const wxLogRecordInfo& p_cInfo) override {
    m_asFunctions.push_back(p_cInfo.func != NULL ? p_cInfo.func : "");
  }

 private:
  wxLog* m_pcPrevious;
};

TEST(LogText, APercentSignIsText) {
  LogCapture l_cLog;
  quor::LogText(1, wxT("100% sure, %s %d %n"));
  EXPECT_EQ(l_cLog.Records(), (std::vector<LogLine>{{1, "Error: 100% sure, %s %d %n"}}));
}

TEST(LogText, CarriesTheSamePrefixesAsLog) {
  LogCapture l_cLog;
  quor::LogText(1, wxT("a"));
  quor::LogText(2, wxT("b"));
  quor::LogText(3, wxT("c"));
  quor::LogText(7, wxT("d"));
  EXPECT_EQ(l_cLog.Records(),
            (std::vector<LogLine>{{1, "Error: a"}, {2, "Warning: b"}, {3, "Notice: c"}, {7, "d"}}));
}

TEST(LogText, LinesFromAnotherThreadArriveAfterAFlush) {
  LogCapture l_cLog;
  std::thread l_cWorker([] { quor::LogText(3, wxT("50% done")); });
  l_cWorker.join();
  EXPECT_EQ(l_cLog.Texts(), (std::vector<std::string>{"Notice: 50% done"}));
}

TEST(LogLevelPrefix, IsTheTableOfLevelsOneToThree) {
  EXPECT_EQ(wxString(quor::LogLevelPrefix(1)), wxT("Error: "));
  EXPECT_EQ(wxString(quor::LogLevelPrefix(2)), wxT("Warning: "));
  EXPECT_EQ(wxString(quor::LogLevelPrefix(3)), wxT("Notice: "));
  EXPECT_EQ(wxString(quor::LogLevelPrefix(0)), wxT(""));
  EXPECT_EQ(wxString(quor::LogLevelPrefix(4)), wxT(""));
}

TEST(Log, KeepsTakingItsTextAsAFormatAndLogsFromTheFunctionLog) {
  {
    LogCapture l_cLog;
    quor::LOG(1, wxT("100%% sure"));
    EXPECT_EQ(l_cLog.Texts(), (std::vector<std::string>{"Error: 100% sure"}));
  }
  FunctionLog l_cFunctions;
  quor::LOG(3, wxT("x"));
  EXPECT_EQ(l_cFunctions.m_asFunctions, std::vector<std::string>{"LOG"});
}

}  // namespace
