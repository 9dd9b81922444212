// SPDX-License-Identifier: MIT
#include "quor/version.h"

namespace quor {

const char* GetVersionString() { return QUOR_VERSION_STRING; }

unsigned int GetVersionNumber() { return QUOR_VERSION_NUMBER; }

}  // namespace quor
