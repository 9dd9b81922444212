// SPDX-License-Identifier: MIT
#include "quorapp/console.h"

#include <wx/socket.h>

#include <clocale>
#include <cstdio>

namespace quor {
namespace app {

Console::Console(int p_nArgc, char** p_apArgv)
    : m_cInitializer(p_nArgc, p_apArgv), m_bOk(m_cInitializer.IsOk()) {
  for (int i = 0; i < p_nArgc; ++i) m_asArgs.push_back(wxString(p_apArgv[i]));
  for (wxString& l_sArg : m_asArgs) m_apArgs.push_back(const_cast<wxChar*>(l_sArg.wc_str()));
  m_apArgs.push_back(NULL);
  if (!m_bOk) {
    std::fputs("cannot initialise wxWidgets\n", stderr);
    return;
  }
  PrepareConsoleApp();
}

Console::~Console() {
  if (m_bOk) wxSocketBase::Shutdown();
}

void PrepareConsoleApp() {
  std::setlocale(LC_NUMERIC, "C");
  wxSocketBase::Initialize();
}

}  // namespace app
}  // namespace quor
