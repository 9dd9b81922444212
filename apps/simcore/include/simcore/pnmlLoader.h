// SPDX-License-Identifier: MIT
// Reading place/transition nets from PNML (ISO/IEC 15909-2) files, with the
// rate constants and parameters of this engine taken from
// <toolspecific tool="quor" version="1"> elements (described in the README, "Nets as PNML files").
//
// Like every loader (netLoader.h) a pure function of the file's bytes.
#ifndef QUOR_SIMCORE_PNMLLOADER_H
#define QUOR_SIMCORE_PNMLLOADER_H

#include <string>

#include "simcore/netLoader.h"

namespace quor {
namespace sim {

// A loaded net or the reason why not (netLoader.h).
using PnmlLoadResult = NetLoadResult;

// Reads and checks the file p_sPath. Errors name the file as given.
PnmlLoadResult LoadPnmlFile(const std::string& p_sPath);

// Same for a document held in memory; p_sSourceName stands for the file in
// error messages and in Net::source.
PnmlLoadResult LoadPnmlText(const std::string& p_sDocument, const std::string& p_sSourceName);

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_PNMLLOADER_H
