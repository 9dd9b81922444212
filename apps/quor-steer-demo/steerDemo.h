// SPDX-License-Identifier: MIT
// quor-steer-demo: a steering client that watches a simulation live and
// changes its course. It connects to a simulation server, lists the running
// models, attaches to one, starts a continuous run over the model's output
// interval at a watchable speed, prints a compact table of the first places
// while the run goes, divides a parameter (for the SIR net: the infection
// rate "beta", by 3) once the run has passed the steering time, waits for
// the end and writes the result matrix as CSV (header: time and the place
// names; one row per output point).
#ifndef QUOR_STEER_DEMO_STEERDEMO_H
#define QUOR_STEER_DEMO_STEERDEMO_H

#include <wx/string.h>

#include <cmath>
#include <ostream>
#include <string>

#include "quorapp/program.h"

namespace quor {
namespace demo {

struct DemoOptions {
  wxString host = wxT("127.0.0.1");
  unsigned int port = 3000;
  std::string csv = "sir-steered.csv";
  int model = 0;                    // index among the running models
  unsigned int speed = 25;          // output points per second, at least 1
  double steerAt = std::nan("");    // model time of the change; NaN: halfway through the run
  std::string parameter = "beta";   // the parameter to change (else the first one)
  double divideBy = 3.0;            // its new value is the old one divided by this
  int timeout = 10;                 // socket timeout in seconds
};

using ParseOutcome = app::ParseOutcome;

// The program's name and purpose (--help, --version, messages).
extern const app::ProgramInfo PROGRAM;

// Reads the command line (--host, --port, --csv, --model, --speed,
// --steer-at, --parameter, --divide-by, --help, --version). p_rsMessage:
// the usage text for HELP, the version text for VERSION, the error and how
// to use the program for ERROR (see quorapp/program.h).
ParseOutcome ParseDemoOptions(int p_nArgc, wxChar** p_apArgv, DemoOptions& p_rOptions,
                              wxString& p_rsMessage);

// Runs the demonstration; progress goes to p_rOut, the reason of a failure
// to p_rErr. Returns 0 on success, 1 when the server cannot be reached or a
// request fails, or the run ends in any other way than finishing.
int RunDemo(const DemoOptions& p_rOptions, std::ostream& p_rOut, std::ostream& p_rErr);

}  // namespace demo
}  // namespace quor

#endif  // QUOR_STEER_DEMO_STEERDEMO_H
