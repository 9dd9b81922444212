// SPDX-License-Identifier: MIT
#include "simd/simdOptions.h"

#include <wx/cmdline.h>

#include <cmath>

#include "quorapp/text.h"

namespace quor {
namespace simd {

const app::ProgramInfo PROGRAM = {
    "quor-simd",
    "A Petri-net simulation server that steering clients watch and steer over TCP."};

ParseOutcome ParseSimdOptions(int p_nArgc, wxChar** p_apArgv, SimdOptions& p_rOptions,
                              wxString& p_rsMessage) {
  p_rsMessage.clear();
  wxCmdLineParser l_cParser(p_nArgc, p_apArgv);
  app::AddStandardOptions(l_cParser, PROGRAM);
  l_cParser.AddOption(wxT("p"), wxT("port"),
                      wxT("TCP port to listen on (default 3000; 0 picks a free port); the port "
                          "is printed on stdout as \"quor-simd listening on port N\""),
                      wxCMD_LINE_VAL_NUMBER);
  l_cParser.AddOption(wxT("b"), wxT("bind"),
                      wxT("local address to listen on (default 127.0.0.1: clients on this "
                          "machine only); 0.0.0.0 listens on every address and lets anyone "
                          "who reaches the port steer, since the protocol has no "
                          "authentication"),
                      wxCMD_LINE_VAL_STRING);
  l_cParser.AddOption(wxT("m"), wxT("model"),
                      wxT("PNML file of a net to serve; repeat for more nets (default: the "
                          "built-in SIR net)"),
                      wxCMD_LINE_VAL_STRING);
  l_cParser.AddOption(wxT(""), wxT("scan"),
                      wxT("under mpirun: run each start as a scan of parameter NAME over COUNT "
                          "values from FROM to TO (NAME=FROM:TO:COUNT), shared out among the "
                          "ranks; the result matrix holds one block of rows per value"),
                      wxCMD_LINE_VAL_STRING);
  l_cParser.AddOption(wxT(""), wxT("rank-timeout"),
                      wxT("under mpirun: seconds rank 0 waits for the other ranks at an output "
                          "point before it ends the job (default 10)"),
                      wxCMD_LINE_VAL_DOUBLE);

  const ParseOutcome l_eOutcome = app::ParseCommandLine(l_cParser, PROGRAM, p_rsMessage);
  if (l_eOutcome != ParseOutcome::RUN) return l_eOutcome;

  SimdOptions l_cOptions;
  long l_nPort = 0;
  if (l_cParser.Found(wxT("port"), &l_nPort)) {
    if (l_nPort < 0 || l_nPort > 65535)
      return app::UsageError(
          l_cParser, PROGRAM,
          wxString::Format(wxT("--port %ld: a port is a number from 0 to 65535"), l_nPort),
          p_rsMessage);
    l_cOptions.port = static_cast<unsigned int>(l_nPort);
  }
  wxString l_sAddress;
  if (l_cParser.Found(wxT("bind"), &l_sAddress)) {
    l_sAddress.Trim(true).Trim(false);
    if (l_sAddress.empty())
      return app::UsageError(l_cParser, PROGRAM,
                             wxT("--bind: an address such as 127.0.0.1 or 0.0.0.0"),
                             p_rsMessage);
    l_cOptions.address = app::ToStd(l_sAddress);
  }
  wxString l_sScan;
  if (l_cParser.Found(wxT("scan"), &l_sScan)) {
    const wxString l_sUsage = wxT("--scan ") + l_sScan +
                              wxT(": NAME=FROM:TO:COUNT, such as k=0.5:2:16 (values >= 0, "
                                  "COUNT from 1 to ") +
                              wxString::Format(wxT("%lu)"), MAX_SCAN_POINTS);
    const wxString l_sName = l_sScan.BeforeFirst(wxT('=')).Trim(true).Trim(false);
    const wxString l_sRange = l_sScan.AfterFirst(wxT('='));
    const wxString l_sFrom = l_sRange.BeforeFirst(wxT(':'));
    const wxString l_sTo = l_sRange.AfterFirst(wxT(':')).BeforeFirst(wxT(':'));
    const wxString l_sCount = l_sRange.AfterFirst(wxT(':')).AfterFirst(wxT(':'));
    double l_dFrom = 0.0, l_dTo = 0.0;
    unsigned long l_nCount = 0;
    if (l_sName.empty() || !l_sFrom.ToCDouble(&l_dFrom) || !l_sTo.ToCDouble(&l_dTo) ||
        !l_sCount.ToULong(&l_nCount) || !std::isfinite(l_dFrom) || !std::isfinite(l_dTo) ||
        l_dFrom < 0.0 || l_dTo < 0.0 || l_nCount < 1 || l_nCount > MAX_SCAN_POINTS)
      return app::UsageError(l_cParser, PROGRAM, l_sUsage, p_rsMessage);
    l_cOptions.scanParameter = app::ToStd(l_sName);
    l_cOptions.scanFrom = l_dFrom;
    l_cOptions.scanTo = l_dTo;
    l_cOptions.scanCount = l_nCount;
  }
  double l_dTimeout = 0.0;
  if (l_cParser.Found(wxT("rank-timeout"), &l_dTimeout)) {
    if (!(l_dTimeout > 0.0) || l_dTimeout > 86400.0)
      return app::UsageError(l_cParser, PROGRAM,
                             wxT("--rank-timeout: seconds, more than 0 and at most 86400"),
                             p_rsMessage);
    l_cOptions.rankTimeout = l_dTimeout;
  }
  // Every --model in order (the parser keeps repeated options).
  for (const wxCmdLineArg& l_rArg : l_cParser.GetArguments()) {
    if (l_rArg.GetKind() == wxCMD_LINE_OPTION && l_rArg.GetLongName() == wxT("model"))
      l_cOptions.models.push_back(app::ToStd(l_rArg.GetStrVal()));
  }
  p_rOptions = l_cOptions;
  return ParseOutcome::RUN;
}

wxString ListeningLine(unsigned int p_nPort) {
  return wxString::Format(wxT("quor-simd listening on port %u"), p_nPort);
}

}  // namespace simd
}  // namespace quor
