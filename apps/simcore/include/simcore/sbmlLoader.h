// SPDX-License-Identifier: MIT
// Reading SBML models (Level 2 and 3 core) as nets, with libsbml.
//
// - A species becomes a place, its marking the amount (an initial
//   concentration times its compartment's size). Places are named by the
//   species' ids.
// - A reaction becomes a transition with arcs of its stoichiometries
//   (none for boundary or constant species, which the reactions only read)
//   and its kinetic law as the rate function. In the law a species stands
//   for its concentration, (amount / compartment size), unless it has only
//   substance units. A reversible reaction whose law is a difference
//   (kf A - kr B, or a multiple or quotient of one) becomes two
//   transitions, the second ("<id>_reverse") running backwards; another
//   law stays one transition, and a run stops if its rate turns negative.
// - Global parameters become net parameters, local ones too, renamed
//   "<reaction>_<parameter>" (made unique); compartment sizes become
//   parameters named by the compartments' ids. Parameters set by
//   assignment rules are written out into the laws that use them.
//   Function definitions are expanded, initial assignments evaluated.
// - Whatever the engine cannot honour refuses the file, with a message
//   that names the construct and its id: events, delays, algebraic rules,
//   rate rules, assignment rules on species or compartments, fast
//   reactions, variable stoichiometry, conversion factors, required
//   packages, math without an equivalent (factorial, rateOf, ...),
//   negative or missing values.
#ifndef QUOR_SIMCORE_SBMLLOADER_H
#define QUOR_SIMCORE_SBMLLOADER_H

#include <string>

#include "simcore/netLoader.h"

namespace quor {
namespace sim {

NetLoadResult LoadSbmlFile(const std::string& p_sPath);
NetLoadResult LoadSbmlText(const std::string& p_sDocument, const std::string& p_sSourceName);

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_SBMLLOADER_H
