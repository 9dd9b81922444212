// SPDX-License-Identifier: MIT
// The version: the header's macros agree with each other and with the
// library a program runs with.
#include <gtest/gtest.h>

#include <string>

#include "quor/quor.h"

TEST(Version, TheMacrosSpellOneVersion) {
  EXPECT_EQ(std::string(QUOR_VERSION_STRING),
            std::to_string(QUOR_VERSION_MAJOR) + "." + std::to_string(QUOR_VERSION_MINOR) + "." +
                std::to_string(QUOR_VERSION_PATCH));
  EXPECT_EQ(QUOR_VERSION_NUMBER,
            QUOR_VERSION_MAJOR * 10000 + QUOR_VERSION_MINOR * 100 + QUOR_VERSION_PATCH);
  EXPECT_EQ(std::string(QUOR_VERSION_STRING), "0.2.0");
}

TEST(Version, TheLibraryKnowsItsVersion) {
  EXPECT_EQ(std::string(quor::GetVersionString()), QUOR_VERSION_STRING);
  EXPECT_EQ(quor::GetVersionNumber(), static_cast<unsigned int>(QUOR_VERSION_NUMBER));
}
