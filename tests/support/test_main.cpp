// SPDX-License-Identifier: MIT
// Test entry point: wxWidgets and its sockets are initialised on the main
// thread before any test runs, and the C library's locale is fixed to UTF-8
// so that texts outside ASCII have the same multibyte form everywhere.
#include <gtest/gtest.h>
#include <wx/init.h>
#include <wx/log.h>
#include <wx/socket.h>

#include <clocale>

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  wxInitializer l_cInitializer;
  if (!l_cInitializer.IsOk()) return 2;
  std::setlocale(LC_ALL, "C.UTF-8");
  wxSocketBase::Initialize();
  int l_nResult = RUN_ALL_TESTS();
  wxLog::FlushActive();
  wxSocketBase::Shutdown();
  return l_nResult;
}
