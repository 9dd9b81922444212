// SPDX-License-Identifier: MIT
// Nets built into the engine, so that the server can simulate something
// without any file.
#ifndef QUOR_SIMCORE_BUILTINMODELS_H
#define QUOR_SIMCORE_BUILTINMODELS_H

#include "simcore/net.h"

namespace quor {
namespace sim {

// The SIR epidemic: places S, I, R (990, 10, 0); transitions
//   infection: S + I -> 2 I, rate constant parameter beta (0.0003)
//   recovery:  I -> R,       rate constant parameter gamma (0.1)
// Output grid 0..100, step 0.5. The same net as models/sir.pnml.
Net SirNet();

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_BUILTINMODELS_H
