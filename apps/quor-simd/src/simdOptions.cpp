// SPDX-License-Identifier: MIT
#include "simd/simdOptions.h"

#include <wx/cmdline.h>

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
