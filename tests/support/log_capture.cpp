// SPDX-License-Identifier: MIT
#include "log_capture.h"

#include "quor/utilities.h"

namespace quor_test {

LogCapture::LogCapture() {
  m_pcPrevious = wxLog::SetActiveTarget(this);
}

LogCapture::~LogCapture() {
  wxLog::FlushActive();
  wxLog::SetActiveTarget(m_pcPrevious);
}

std::vector<LogLine> LogCapture::Records() {
  wxLog::FlushActive();
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  return m_aRecords;
}

std::vector<std::string> LogCapture::Texts() {
  std::vector<std::string> l_as;
  for (const LogLine& l_r : Records()) l_as.push_back(l_r.text);
  return l_as;
}

void LogCapture::Clear() {
  wxLog::FlushActive();
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_aRecords.clear();
}

void LogCapture::DoLogRecord(wxLogLevel p_nLevel, const wxString& p_sMessage,
                             const wxLogRecordInfo&) {
  std::lock_guard<std::mutex> l_cLock(m_cMutex);
  m_aRecords.push_back(
      LogLine{static_cast<unsigned long>(p_nLevel),
                std::string(p_sMessage.utf8_str().data())});
}

namespace {
std::mutex g_cReportMutex;
std::vector<std::string> g_asReports;

void CollectReport(const wxString& p_sReport) {
  std::lock_guard<std::mutex> l_cLock(g_cReportMutex);
  g_asReports.push_back(std::string(p_sReport.utf8_str().data()));
}
}  // namespace

ReportCapture::ReportCapture() {
  Clear();
  quor::SetReportSink(&CollectReport);
}

ReportCapture::~ReportCapture() { quor::SetReportSink(nullptr); }

std::vector<std::string> ReportCapture::Reports() const {
  std::lock_guard<std::mutex> l_cLock(g_cReportMutex);
  return g_asReports;
}

void ReportCapture::Clear() {
  std::lock_guard<std::mutex> l_cLock(g_cReportMutex);
  g_asReports.clear();
}

}  // namespace quor_test
