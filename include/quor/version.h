// SPDX-License-Identifier: MIT
// The version of libQUOR_SteeringAPI: the macros give the version of these
// headers, the functions the version of the library a program runs with.
// The project's build reads its version from this file (one home).
//
// Releases with the same major version are binary compatible (the shared
// library's SONAME is libQUOR_SteeringAPI.so.MAJOR). The steering protocol
// has a version of its own, STEERING_PROTOCOL_VERSION (steeringcontrol.h).
#ifndef QUOR_VERSION_H
#define QUOR_VERSION_H

#include "quor/export.h"

#define QUOR_VERSION_MAJOR 0
#define QUOR_VERSION_MINOR 2
#define QUOR_VERSION_PATCH 0

#define QUOR_VERSION_STRINGIFY_(p_x) #p_x
#define QUOR_VERSION_STRINGIFY(p_x) QUOR_VERSION_STRINGIFY_(p_x)
// "0.2.0".
#define QUOR_VERSION_STRING                                                  \
  QUOR_VERSION_STRINGIFY(QUOR_VERSION_MAJOR) "." QUOR_VERSION_STRINGIFY(   \
      QUOR_VERSION_MINOR) "." QUOR_VERSION_STRINGIFY(QUOR_VERSION_PATCH)
// One comparable number: major * 10000 + minor * 100 + patch (200 for 0.2.0).
#define QUOR_VERSION_NUMBER \
  (QUOR_VERSION_MAJOR * 10000 + QUOR_VERSION_MINOR * 100 + QUOR_VERSION_PATCH)

namespace quor {

// The version of the library loaded at run time, "0.2.0". It may differ
// from QUOR_VERSION_STRING, the version of the headers a program was
// compiled with, when a newer library of the same major version is
// installed.
QUOR_API const char* GetVersionString();
// The same as one number of QUOR_VERSION_NUMBER's form.
QUOR_API unsigned int GetVersionNumber();

}  // namespace quor

#endif  // QUOR_VERSION_H
