// SPDX-License-Identifier: MIT
// The command line of quor-simd:
//   --port N       the listening port (default 3000; 0: any free port)
//   --model FILE   a PNML net to serve (may be repeated; none: the built-in
//                  SIR net)
//   --help         the usage text
#ifndef QUOR_SIMD_SIMDOPTIONS_H
#define QUOR_SIMD_SIMDOPTIONS_H

#include <wx/string.h>

#include <string>
#include <vector>

class wxCmdLineParser;

namespace quor {
namespace simd {

struct SimdOptions {
  unsigned int port = 3000;
  std::vector<std::string> models;  // in the order given
};

enum class ParseOutcome {
  RUN,   // the options are usable
  HELP,  // --help: show the usage text and end successfully
  ERROR  // the message says what is wrong (the usage text follows it)
};

// Parses a prepared command-line parser without printing anything. HELP:
// p_rsMessage is the usage text; ERROR: wxWidgets' complaint followed by the
// usage text; RUN: p_rsMessage is left alone. Shared by the programs.
ParseOutcome ParseCommandLine(wxCmdLineParser& p_rParser, wxString& p_rsMessage);

// Reads argv[1..argc-1]. p_rsMessage receives the usage text (HELP) or the
// error and the usage text (ERROR); it is left empty for RUN.
ParseOutcome ParseSimdOptions(int p_nArgc, wxChar** p_apArgv, SimdOptions& p_rOptions,
                              wxString& p_rsMessage);

// The line that tells scripts the port: "quor-simd listening on port 40123".
wxString ListeningLine(unsigned int p_nPort);

}  // namespace simd
}  // namespace quor

#endif  // QUOR_SIMD_SIMDOPTIONS_H
