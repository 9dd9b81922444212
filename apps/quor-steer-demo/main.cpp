// SPDX-License-Identifier: MIT
// quor-steer-demo: watch a simulation on a quor-simd server, steer it, save
// the result as CSV. See steerDemo.h; --help lists the options.
#include <wx/init.h>
#include <wx/socket.h>

#include <clocale>
#include <cstdio>
#include <iostream>
#include <vector>

#include "steerDemo.h"

int main(int argc, char** argv) {
  wxInitializer l_cInitializer(argc, argv);
  if (!l_cInitializer.IsOk()) {
    std::fputs("quor-steer-demo: cannot initialise wxWidgets\n", stderr);
    return 1;
  }
  std::setlocale(LC_NUMERIC, "C");
  wxSocketBase::Initialize();

  // wxWidgets' copy of the arguments as wide strings, for its parser.
  std::vector<wxString> l_asArgs;
  for (int i = 0; i < argc; ++i) l_asArgs.push_back(wxString(argv[i]));
  std::vector<wxChar*> l_apArgs;
  for (wxString& l_sArg : l_asArgs) l_apArgs.push_back(const_cast<wxChar*>(l_sArg.wc_str()));
  l_apArgs.push_back(NULL);

  quor::demo::DemoOptions l_cOptions;
  wxString l_sMessage;
  int l_nResult = 0;
  switch (quor::demo::ParseDemoOptions(argc, l_apArgs.data(), l_cOptions, l_sMessage)) {
    case quor::demo::ParseOutcome::HELP:
      std::fputs(l_sMessage.utf8_str(), stdout);
      break;
    case quor::demo::ParseOutcome::ERROR:
      std::fputs(l_sMessage.utf8_str(), stderr);
      l_nResult = 2;
      break;
    case quor::demo::ParseOutcome::RUN:
      l_nResult = quor::demo::RunDemo(l_cOptions, std::cout, std::cerr);
      break;
  }
  wxSocketBase::Shutdown();
  return l_nResult;
}
