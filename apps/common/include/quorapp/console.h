// SPDX-License-Identifier: MIT
// The start-up of a console program that uses the library: wxWidgets
// initialised, numbers read and written with a '.' (the C locale), and
// wxWidgets' sockets usable from every thread. Both must happen on the main
// thread before any socket is made.
#ifndef QUORAPP_CONSOLE_H
#define QUORAPP_CONSOLE_H

#include <wx/init.h>
#include <wx/string.h>

#include <vector>

namespace quor {
namespace app {

// For a program with its own main(): make one first thing in main and keep
// it until main returns.
//
//   quor::app::Console l_cConsole(argc, argv);
//   if (!l_cConsole.IsOk()) return quor::app::EXIT_STATUS_FAILURE;
//   wxCmdLineParser l_cParser(l_cConsole.GetArgc(), l_cConsole.GetArgv());
class Console {
 public:
  Console(int p_nArgc, char** p_apArgv);
  // Shuts wxWidgets' sockets down.
  ~Console();

  // False when wxWidgets could not be initialised (a message is on stderr).
  bool IsOk() const { return m_bOk; }
  // The arguments as wxWidgets' command-line parser takes them.
  int GetArgc() const { return static_cast<int>(m_asArgs.size()); }
  wxChar** GetArgv() { return m_apArgs.data(); }

 private:
  wxInitializer m_cInitializer;
  bool m_bOk;
  std::vector<wxString> m_asArgs;
  std::vector<wxChar*> m_apArgs;

  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;
};

// For a program whose wxAppConsole initialises wxWidgets: the rest of the
// start-up, in OnInit. REQUIRES: the main thread.
void PrepareConsoleApp();

}  // namespace app
}  // namespace quor

#endif  // QUORAPP_CONSOLE_H
