// SPDX-License-Identifier: MIT
// The command-line conventions every program of the project follows:
//
//   --help      the usage text on stdout; exit status 0
//   --version   "NAME VERSION", then the library's and the protocol's
//               versions, on stdout; exit status 0
//   a usage error (an unknown option, a missing or unusable value): what is
//               wrong, the usage line and a pointer to --help, on stderr;
//               exit status 2
//   a run-time failure: "NAME: what went wrong" on stderr; exit status 1
//   success: exit status 0
//
// A program describes itself with a ProgramInfo, prepares a
// wxCmdLineParser with AddStandardOptions, adds its own options, and
// parses with ParseCommandLine, which prints nothing; FinishParse prints
// the outcome where it belongs and gives the exit status:
//
//   const quor::app::ProgramInfo PROGRAM = {"quor-steer", "Steers a run."};
//   wxCmdLineParser l_cParser(argc, argv);
//   quor::app::AddStandardOptions(l_cParser, PROGRAM);
//   l_cParser.AddOption(...);
//   wxString l_sMessage;
//   const quor::app::ParseOutcome l_eOutcome =
//       quor::app::ParseCommandLine(l_cParser, PROGRAM, l_sMessage);
//   if (l_eOutcome != quor::app::ParseOutcome::RUN)
//     return quor::app::FinishParse(l_eOutcome, l_sMessage);
#ifndef QUORAPP_PROGRAM_H
#define QUORAPP_PROGRAM_H

#include <wx/string.h>

class wxCmdLineParser;

namespace quor {
namespace app {

// The exit statuses of every program.
enum ExitStatus : int {
  EXIT_STATUS_SUCCESS = 0,
  EXIT_STATUS_FAILURE = 1,  // a run-time failure
  EXIT_STATUS_USAGE = 2     // a wrong command line
};

enum class ParseOutcome {
  RUN,      // the options are usable
  HELP,     // --help: the message is the usage text
  VERSION,  // --version: the message is the version text
  ERROR     // the message says what is wrong, then how to use the program
};

// Who a program is.
struct ProgramInfo {
  const char* name;     // "quor-simd"
  const char* purpose;  // the first line of the usage text: one sentence
};

// Puts the purpose at the top of the parser's usage text and adds the
// options every program has: -h/--help and --version. Call it before the
// program adds its own options.
void AddStandardOptions(wxCmdLineParser& p_rParser, const ProgramInfo& p_rProgram);

// Parses a prepared parser without printing anything. HELP: p_rsMessage is
// the usage text; VERSION: the version text; ERROR: each complaint as
// "NAME: complaint", then the usage line and "Try 'NAME --help' for more
// information."; RUN: p_rsMessage is left alone.
ParseOutcome ParseCommandLine(wxCmdLineParser& p_rParser, const ProgramInfo& p_rProgram,
                              wxString& p_rsMessage);

// A usage error that the program finds after a successful parse (a value
// out of range): p_rsMessage becomes "NAME: problem" and the usage hint as
// for a parse error. Returns ERROR.
ParseOutcome UsageError(wxCmdLineParser& p_rParser, const ProgramInfo& p_rProgram,
                        const wxString& p_sProblem, wxString& p_rsMessage);

// "quor-simd 0.2.0" on the first line (the version of the sources the
// program was built from), then the licence, the library it runs with and
// the steering protocol.
wxString VersionText(const ProgramInfo& p_rProgram);

// Prints what a parse that does not run produced and gives the exit
// status: HELP and VERSION on stdout, 0; ERROR on stderr, 2.
// REQUIRES: p_eOutcome is not RUN.
int FinishParse(ParseOutcome p_eOutcome, const wxString& p_sMessage);

// "NAME: text" as one line on stderr.
void PrintError(const ProgramInfo& p_rProgram, const wxString& p_sText);

}  // namespace app
}  // namespace quor

#endif  // QUORAPP_PROGRAM_H
