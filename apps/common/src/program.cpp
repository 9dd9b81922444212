// SPDX-License-Identifier: MIT
#include "quorapp/program.h"

#include <wx/cmdline.h>
#include <wx/msgout.h>
#include <wx/tokenzr.h>

#include <cstdio>

#include "quor/steeringcontrol.h"
#include "quor/version.h"

namespace quor {
namespace app {

namespace {

const char* const VERSION_SWITCH = "version";

// wxCmdLineParser prints its complaints through wxWidgets' message output;
// they are collected here for the caller's message instead.
class CollectingOutput : public wxMessageOutput {
 public:
  CollectingOutput() : m_pcPrevious(wxMessageOutput::Set(this)) {}
  ~CollectingOutput() override { wxMessageOutput::Set(m_pcPrevious); }
  void Output(const wxString& p_sText) override { m_sText += p_sText; }
  wxString m_sText;

 private:
  wxMessageOutput* m_pcPrevious;
};

// Each non-empty line of p_sText as "NAME: line\n".
wxString Complaints(const ProgramInfo& p_rProgram, const wxString& p_sText) {
  wxString l_sLines;
  wxStringTokenizer l_cLines(p_sText, wxT("\n"));
  while (l_cLines.HasMoreTokens()) {
    const wxString l_sLine = l_cLines.GetNextToken().Trim();
    if (!l_sLine.empty()) l_sLines += wxString::FromUTF8(p_rProgram.name) + wxT(": ") + l_sLine + wxT("\n");
  }
  return l_sLines;
}

// After a usage error: the usage line and where to read more.
wxString UsageHint(wxCmdLineParser& p_rParser, const ProgramInfo& p_rProgram) {
  wxString l_sHint;
  wxStringTokenizer l_cLines(p_rParser.GetUsageString(), wxT("\n"));
  while (l_cLines.HasMoreTokens()) {
    const wxString l_sLine = l_cLines.GetNextToken();
    if (l_sLine.StartsWith(wxT("Usage:"))) l_sHint = l_sLine + wxT("\n");
  }
  const wxString l_sName = wxString::FromUTF8(p_rProgram.name);
  return l_sHint + wxT("Try '") + l_sName + wxT(" --help' for more information.\n");
}

void Print(std::FILE* p_pFile, const wxString& p_sText) {
  std::fputs(p_sText.utf8_str(), p_pFile);
  std::fflush(p_pFile);
}

}  // namespace

void AddStandardOptions(wxCmdLineParser& p_rParser, const ProgramInfo& p_rProgram) {
  p_rParser.SetLogo(wxString::FromUTF8(p_rProgram.purpose));
  p_rParser.AddSwitch(wxT("h"), wxT("help"), wxT("show this help and exit"),
                      wxCMD_LINE_OPTION_HELP);
  p_rParser.AddSwitch(wxT(""), wxString::FromUTF8(VERSION_SWITCH),
                      wxT("show the version and exit"));
}

ParseOutcome ParseCommandLine(wxCmdLineParser& p_rParser, const ProgramInfo& p_rProgram,
                              wxString& p_rsMessage) {
  int l_nResult = 0;
  wxString l_sComplaints;
  {
    CollectingOutput l_cOutput;
    l_nResult = p_rParser.Parse(false);
    l_sComplaints = l_cOutput.m_sText;
  }
  if (l_nResult == -1) {
    p_rsMessage = p_rParser.GetUsageString();
    return ParseOutcome::HELP;
  }
  if (l_nResult != 0) {
    p_rsMessage = Complaints(p_rProgram, l_sComplaints) + UsageHint(p_rParser, p_rProgram);
    return ParseOutcome::ERROR;
  }
  if (p_rParser.Found(wxString::FromUTF8(VERSION_SWITCH))) {
    p_rsMessage = VersionText(p_rProgram);
    return ParseOutcome::VERSION;
  }
  return ParseOutcome::RUN;
}

ParseOutcome UsageError(wxCmdLineParser& p_rParser, const ProgramInfo& p_rProgram,
                        const wxString& p_sProblem, wxString& p_rsMessage) {
  p_rsMessage = Complaints(p_rProgram, p_sProblem) + UsageHint(p_rParser, p_rProgram);
  return ParseOutcome::ERROR;
}

wxString VersionText(const ProgramInfo& p_rProgram) {
  return wxString::Format(
      wxT("%s %s\nCopyright (c) The QUOR Steering authors. MIT licence.\n")
          wxT("Runs with libQUOR_SteeringAPI %s (steering protocol %u).\n"),
      wxString::FromUTF8(p_rProgram.name), wxString::FromUTF8(QUOR_VERSION_STRING),
      wxString::FromUTF8(GetVersionString()), STEERING_PROTOCOL_VERSION);
}

int FinishParse(ParseOutcome p_eOutcome, const wxString& p_sMessage) {
  if (p_eOutcome == ParseOutcome::ERROR) {
    Print(stderr, p_sMessage);
    return EXIT_STATUS_USAGE;
  }
  Print(stdout, p_sMessage);
  return EXIT_STATUS_SUCCESS;
}

void PrintError(const ProgramInfo& p_rProgram, const wxString& p_sText) {
  Print(stderr, Complaints(p_rProgram, p_sText));
}

}  // namespace app
}  // namespace quor
