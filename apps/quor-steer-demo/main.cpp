// SPDX-License-Identifier: MIT
// quor-steer-demo: watch a simulation on a quor-simd server, steer it, save
// the result as CSV. See steerDemo.h; --help lists the options. Exit
// status: 0 on success, 1 when the steering fails, 2 on a usage error.
#include <wx/cmdline.h>

#include <iostream>

#include "quorapp/console.h"
#include "steerDemo.h"

int main(int argc, char** argv) {
  quor::app::Console l_cConsole(argc, argv);
  if (!l_cConsole.IsOk()) return quor::app::EXIT_STATUS_FAILURE;

  quor::demo::DemoOptions l_cOptions;
  wxString l_sMessage;
  const quor::demo::ParseOutcome l_eOutcome = quor::demo::ParseDemoOptions(
      l_cConsole.GetArgc(), l_cConsole.GetArgv(), l_cOptions, l_sMessage);
  if (l_eOutcome != quor::demo::ParseOutcome::RUN)
    return quor::app::FinishParse(l_eOutcome, l_sMessage);
  return quor::demo::RunDemo(l_cOptions, std::cout, std::cerr);
}
