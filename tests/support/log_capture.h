// SPDX-License-Identifier: MIT
// A wxLog target that records (level, text) for the lifetime of the object
// and restores the previous target afterwards.
#ifndef QUOR_TESTS_LOG_CAPTURE_H
#define QUOR_TESTS_LOG_CAPTURE_H

#include <wx/log.h>
#include <wx/string.h>

#include <mutex>
#include <string>
#include <vector>

namespace quor_test {

struct LogLine {
  unsigned long level;
  std::string text;
  bool operator==(const LogLine& o) const {
    return level == o.level && text == o.text;
  }
};

class LogCapture : public wxLog {
 public:
  LogCapture();
  ~LogCapture() override;

  // Flushes messages that other threads logged (wxLog buffers them until
  // the main thread flushes), then returns every record so far.
  // Call on the main thread.
  std::vector<LogLine> Records();
  std::vector<std::string> Texts();
  void Clear();

 protected:
  void DoLogRecord(wxLogLevel p_nLevel, const wxString& p_sMessage,
                   const wxLogRecordInfo& p_cInfo) override;

 private:
  wxLog* m_pcPrevious;
  std::mutex m_cMutex;
  std::vector<LogLine> m_aRecords;
};

// Collects the reports that CHECK_POINTER and TRY_ALLOC build and drop, for
// the lifetime of the object.
class ReportCapture {
 public:
  ReportCapture();
  ~ReportCapture();
  std::vector<std::string> Reports() const;
  void Clear();
};

}  // namespace quor_test

#endif  // QUOR_TESTS_LOG_CAPTURE_H
