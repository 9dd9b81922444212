// SPDX-License-Identifier: MIT
#include "simd/simdOptions.h"

#include <wx/cmdline.h>
#include <wx/msgout.h>

#include "simd/simdCommon.h"

namespace quor {
namespace simd {

namespace {

// wxCmdLineParser prints its errors through wxWidgets' message output;
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

}  // namespace

ParseOutcome ParseCommandLine(wxCmdLineParser& p_rParser, wxString& p_rsMessage) {
  int l_nResult = 0;
  wxString l_sErrors;
  {
    CollectingOutput l_cOutput;
    l_nResult = p_rParser.Parse(false);
    l_sErrors = l_cOutput.m_sText;
  }
  if (l_nResult == -1) {
    p_rsMessage = p_rParser.GetUsageString();
    return ParseOutcome::HELP;
  }
  if (l_nResult != 0) {
    p_rsMessage = l_sErrors + p_rParser.GetUsageString();
    return ParseOutcome::ERROR;
  }
  return ParseOutcome::RUN;
}

ParseOutcome ParseSimdOptions(int p_nArgc, wxChar** p_apArgv, SimdOptions& p_rOptions,
                              wxString& p_rsMessage) {
  p_rsMessage.clear();
  wxCmdLineParser l_cParser(p_nArgc, p_apArgv);
  l_cParser.SetLogo(wxT("quor-simd: a Petri-net simulation server that steering clients "
                        "watch and steer over TCP."));
  l_cParser.AddSwitch(wxT("h"), wxT("help"), wxT("show this help and exit"),
                      wxCMD_LINE_OPTION_HELP);
  l_cParser.AddOption(wxT("p"), wxT("port"),
                      wxT("TCP port to listen on (default 3000; 0 picks a free port); the port "
                          "is printed on stdout as \"quor-simd listening on port N\""),
                      wxCMD_LINE_VAL_NUMBER);
  l_cParser.AddOption(wxT("m"), wxT("model"),
                      wxT("PNML file of a net to serve; repeat for more nets (default: the "
                          "built-in SIR net)"),
                      wxCMD_LINE_VAL_STRING);

  const ParseOutcome l_eOutcome = ParseCommandLine(l_cParser, p_rsMessage);
  if (l_eOutcome != ParseOutcome::RUN) return l_eOutcome;

  SimdOptions l_cOptions;
  long l_nPort = 0;
  if (l_cParser.Found(wxT("port"), &l_nPort)) {
    if (l_nPort < 0 || l_nPort > 65535) {
      p_rsMessage = wxString::Format(wxT("--port %ld: a port is a number from 0 to 65535\n"),
                                     l_nPort) +
                    l_cParser.GetUsageString();
      return ParseOutcome::ERROR;
    }
    l_cOptions.port = static_cast<unsigned int>(l_nPort);
  }
  // Every --model in order (the parser keeps repeated options).
  for (const wxCmdLineArg& l_rArg : l_cParser.GetArguments()) {
    if (l_rArg.GetKind() == wxCMD_LINE_OPTION && l_rArg.GetLongName() == wxT("model"))
      l_cOptions.models.push_back(ToStd(l_rArg.GetStrVal()));
  }
  p_rOptions = l_cOptions;
  return ParseOutcome::RUN;
}

wxString ListeningLine(unsigned int p_nPort) {
  return wxString::Format(wxT("quor-simd listening on port %u"), p_nPort);
}

}  // namespace simd
}  // namespace quor
