// SPDX-License-Identifier: MIT
// The command line of quor-simd:
//   --port N       the listening port (default 3000; 0: any free port)
//   --bind ADDR    the local address to listen on (default 127.0.0.1: this
//                  machine only; 0.0.0.0: every address)
//   --model FILE   a net to serve (may be repeated; none: the built-in SIR
//                  net)
//   --scan NAME=FROM:TO:COUNT
//                  under mpirun: run every start as a scan of parameter NAME
//                  over COUNT values from FROM to TO, shared out among the
//                  ranks (see simdMpi.h)
//   --rank-timeout SECONDS
//                  under mpirun: how long rank 0 waits for the other ranks
//                  at an output point (default 10)
//   --help, --version, and the exit statuses of every program (see
//   quorapp/program.h)
#ifndef QUOR_SIMD_SIMDOPTIONS_H
#define QUOR_SIMD_SIMDOPTIONS_H

#include <wx/string.h>

#include <string>
#include <vector>

#include "quorapp/program.h"

namespace quor {
namespace simd {

struct SimdOptions {
  unsigned int port = 3000;
  // Loopback by default: the protocol has no authentication.
  std::string address = "127.0.0.1";
  std::vector<std::string> models;  // in the order given
  // --scan: empty, or a scan (scanCount >= 1, FROM and TO finite, >= 0).
  std::string scanParameter;
  double scanFrom = 0.0;
  double scanTo = 0.0;
  unsigned long scanCount = 0;
  double rankTimeout = 10.0;  // seconds, > 0
};

// The most values a scan may take.
const unsigned long MAX_SCAN_POINTS = 100000;

using ParseOutcome = app::ParseOutcome;

// The program's name and purpose (--help, --version, messages).
extern const app::ProgramInfo PROGRAM;

// Reads argv[1..argc-1] without printing anything. p_rsMessage receives the
// usage text (HELP), the version text (VERSION) or the error and how to use
// the program (ERROR); it is left empty for RUN.
ParseOutcome ParseSimdOptions(int p_nArgc, wxChar** p_apArgv, SimdOptions& p_rOptions,
                              wxString& p_rsMessage);

// The line that tells scripts the port: "quor-simd listening on port 40123".
wxString ListeningLine(unsigned int p_nPort);

}  // namespace simd
}  // namespace quor

#endif  // QUOR_SIMD_SIMDOPTIONS_H
