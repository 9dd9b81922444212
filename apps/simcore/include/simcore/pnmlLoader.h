// SPDX-License-Identifier: MIT
// Reading place/transition nets from PNML (ISO/IEC 15909-2) files, with the
// rate constants and parameters of this engine taken from
// <toolspecific tool="quor" version="1"> elements (described in the README, "Nets as PNML files").
//
// The loader is a pure function of the file's bytes: it keeps no state, so a
// bad file never affects another load, and it may run on any thread without
// an event loop. It uses wxXmlDocument; the program must have initialised
// wxWidgets (wxInitializer) before the first call.
#ifndef QUOR_SIMCORE_PNMLLOADER_H
#define QUOR_SIMCORE_PNMLLOADER_H

#include <string>

#include "simcore/net.h"

namespace quor {
namespace sim {

struct PnmlLoadResult {
  bool ok = false;
  Net net;            // complete and validated when ok
  // When not ok: "<source>: <problem>", or "<source>: line N: <problem>"
  // when the problem has a place in the file.
  std::string error;

  explicit operator bool() const { return ok; }
};

// Reads and checks the file p_sPath. Errors name the file as given.
PnmlLoadResult LoadPnmlFile(const std::string& p_sPath);

// Same for a document held in memory; p_sSourceName stands for the file in
// error messages and in Net::source.
PnmlLoadResult LoadPnmlText(const std::string& p_sDocument, const std::string& p_sSourceName);

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_PNMLLOADER_H
