// SPDX-License-Identifier: MIT
// Loading a net from a file, whatever its format: PNML (pnmlLoader.h) or
// SBML (sbmlLoader.h), told apart by the document's root element.
//
// The loaders are pure functions of the file's bytes: they keep no state,
// so a bad file never affects another load, and they may run on any thread
// without an event loop. The PNML loader uses wxXmlDocument; the program
// must have initialised wxWidgets (wxInitializer) before the first call.
#ifndef QUOR_SIMCORE_NETLOADER_H
#define QUOR_SIMCORE_NETLOADER_H

#include <string>

#include "simcore/net.h"

namespace quor {
namespace sim {

struct NetLoadResult {
  bool ok = false;
  Net net;  // complete and validated when ok
  // When not ok: "<source>: <problem>", or "<source>: line N: <problem>"
  // when the problem has a place in the file.
  std::string error;

  explicit operator bool() const { return ok; }
};

// Reads and checks the file p_sPath: an SBML model when the root element
// is <sbml>, else a PNML net. Errors name the file as given.
NetLoadResult LoadNetFile(const std::string& p_sPath);

// The same for a document held in memory; p_sSourceName stands for the
// file in error messages and in Net::source.
NetLoadResult LoadNetText(const std::string& p_sDocument, const std::string& p_sSourceName);

// The whole file into p_rsText; false with "<path>: cannot ..." otherwise.
bool ReadWholeFile(const std::string& p_sPath, std::string& p_rsText, std::string& p_rsError);

// The file p_sPath read with p_fLoadText (a loader of documents in memory),
// or the error of reading it.
NetLoadResult LoadFileWith(const std::string& p_sPath,
                           NetLoadResult (*p_fLoadText)(const std::string&, const std::string&));

// "<source>: line N: <problem>", or "<source>: <problem>" when p_nLine is
// not a line (0 or less).
std::string LoadError(const std::string& p_sSource, long p_nLine, const std::string& p_sProblem);

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_NETLOADER_H
