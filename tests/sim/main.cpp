// SPDX-License-Identifier: MIT
// Entry point of the engine tests: wxWidgets is initialised (the PNML
// loader parses with wxXmlDocument) before any test runs.
#include <gtest/gtest.h>
#include <wx/init.h>

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  wxInitializer l_cInitializer;
  if (!l_cInitializer.IsOk()) return 2;
  return RUN_ALL_TESTS();
}
