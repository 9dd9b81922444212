// SPDX-License-Identifier: MIT
// Between the engine's nets and the library's models: the model that
// clients see for a net, the net that the engine runs for a model that a
// client uploaded, and the loading of the server's nets from PNML files.
#ifndef QUOR_SIMD_NETMODEL_H
#define QUOR_SIMD_NETMODEL_H

#include <wx/string.h>

#include <string>
#include <vector>

#include "simcore/net.h"

namespace quor {

class Model;
class ResultMatrixInfo;

namespace simd {

// The model of a net, allocated with new, on no socket, named p_sName:
// - place, transition and parameter names in the net's order;
// - the arcs: an input arc as a pre-arc of type CONNECTION_STANDARD_ARC, an
//   output arc as a post-arc, each with its weight;
// - initial and current marking, initial and current parameter values;
// - "TRANSITION_FUNCTIONS": each transition's rate as text: the number
//   ("0.25") or the parameter's name of a mass-action constant, or the
//   rate function;
// - the output interval of the net's grid;
// - one view "Marking" (the active one) with one curve per place, of type
//   RM_ROW_TYPE_PLACE, indexed by the place's position.
Model* NetToModel(const sim::Net& p_rNet, const wxString& p_sName);

// The result matrix's rows: row p is the marking of place p.
void DescribePlaceRows(std::size_t p_nPlaces, ResultMatrixInfo& p_rInfo);

// The net of a model that was not made from one (a client's upload): places
// with the initial marking, transitions whose "TRANSITION_FUNCTIONS" entry is
// a number or a parameter name (a mass-action rate constant) or a rate
// function over the model's place and parameter names and t, standard arcs
// with their weights, the parameters with their initial values, the
// model's output interval when it is a usable one. False, with the first
// problem in *p_psError, when the model cannot be run that way (another
// arc type, a rate function that does not compile or gives no usable rate
// in the initial state, inconsistent sizes).
bool ModelToNet(Model& p_rModel, sim::Net& p_rNet, std::string* p_psError);

// The nets the server starts with.
struct LoadedNets {
  std::vector<sim::Net> nets;       // in the order of the files
  std::vector<std::string> errors;  // one per file that could not be read
};

// Reads every file, PNML nets and SBML models alike (sim::LoadNetFile); a
// file that cannot be read or is not a usable net gives an error that names
// the file and says what is wrong, and the other files are read on.
// Without files: the built-in SIR net.
LoadedNets LoadNets(const std::vector<std::string>& p_asFiles);

// The name of a net's model: its name, else its id, else its file name;
// p_asTaken holds the names given so far, and a name already there gets
// " (2)", " (3)", ... appended.
wxString ModelName(const sim::Net& p_rNet, const std::vector<wxString>& p_asTaken);

}  // namespace simd
}  // namespace quor

#endif  // QUOR_SIMD_NETMODEL_H
