// SPDX-License-Identifier: MIT
#include "simd/netModel.h"

#include <wx/filename.h>

#include <cmath>

#include "quor/attributeVector.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/resultMatrixInfo.h"
#include "simcore/builtinModels.h"
#include "simcore/netLoader.h"
#include "simcore/textNumbers.h"
#include "simd/simdCommon.h"

namespace quor {
namespace simd {

namespace {

// Curve colours, by name, one after the other.
const wxChar* const CURVE_COLOURS[] = {wxT("blue"),   wxT("red"),    wxT("green"),
                                       wxT("orange"), wxT("purple"), wxT("brown"),
                                       wxT("magenta"), wxT("cyan"),  wxT("black")};

std::vector<wxString> Names(const std::vector<std::string>& p_asNames) {
  std::vector<wxString> l_asNames;
  for (const std::string& l_sName : p_asNames) l_asNames.push_back(FromStd(l_sName));
  return l_asNames;
}

// A list of the model under the key, empty when it has none (the model is
// not changed).
std::vector<double> Doubles(const Model& p_rModel, const wxChar* p_sKey) {
  return p_rModel.FindValue<AttributeVectorDouble>(p_sKey, std::vector<double>());
}

std::vector<wxString> Strings(const Model& p_rModel, const wxChar* p_sKey) {
  return p_rModel.FindValue<AttributeVectorString>(p_sKey, std::vector<wxString>());
}

bool Fail(std::string* p_psError, const std::string& p_sText) {
  if (p_psError != NULL) *p_psError = p_sText;
  return false;
}

}  // namespace

Model* NetToModel(const sim::Net& p_rNet, const wxString& p_sName) {
  Model* l_pcModel = new Model(NULL, p_sName, p_rNet.transitions.size(), p_rNet.places.size());

  std::vector<std::string> l_asPlaces, l_asTransitions, l_asParameters, l_asFunctions;
  std::vector<double> l_adMarking, l_adParameters;
  for (const sim::Place& l_cPlace : p_rNet.places) {
    l_asPlaces.push_back(l_cPlace.name);
    l_adMarking.push_back(l_cPlace.initialMarking);
  }
  for (const sim::Transition& l_cTransition : p_rNet.transitions) {
    l_asTransitions.push_back(l_cTransition.name);
    l_asFunctions.push_back(l_cTransition.RateText());
  }
  for (const sim::Parameter& l_cParameter : p_rNet.parameters) {
    l_asParameters.push_back(l_cParameter.name);
    l_adParameters.push_back(l_cParameter.value);
  }

  const std::vector<wxString> l_asPlaceNames = Names(l_asPlaces);
  const std::vector<wxString> l_asTransitionNames = Names(l_asTransitions);
  l_pcModel->SetPlaceNames(l_asPlaceNames);
  l_pcModel->SetTransitionNames(l_asTransitionNames);
  l_pcModel->MapNames2Positions(l_asPlaceNames, l_asTransitionNames);
  l_pcModel->SetAttributeValue(keys::PARAMETER_NAMES, Names(l_asParameters));
  l_pcModel->SetAttributeValue(keys::TRANSITION_FUNCTIONS, Names(l_asFunctions));
  l_pcModel->SetInitialParameterValues(l_adParameters);
  l_pcModel->SetInitialMarking(l_adMarking);

  // Positions, not names: two places may carry the same name.
  for (const sim::Arc& l_cArc : p_rNet.arcs) {
    if (l_cArc.input)
      l_pcModel->SetTransitionPreConnection(l_cArc.transition, l_cArc.place,
                                            CONNECTION_STANDARD_ARC, l_cArc.weight);
    else
      l_pcModel->SetTransitionPostConnection(l_cArc.transition, l_cArc.place, l_cArc.weight);
  }

  l_pcModel->SetOutputStartPoint(p_rNet.grid.start);
  l_pcModel->SetOutputEndPoint(p_rNet.grid.end);
  l_pcModel->SetOutputSamplingSize(p_rNet.grid.step);

  ModelView* l_pcView = new ModelView(wxT("Marking"), NULL);
  l_pcView->SetTitle(p_sName);
  l_pcView->SetAttributeValue(keys::X_AXIS_LABEL, wxString(wxT("time")));
  l_pcView->SetAttributeValue(keys::Y_AXIS_LABEL, wxString(wxT("marking")));
  l_pcView->SetAttributeValue(keys::X_AXIS_VAR_NAME, wxString(wxT("time")));
  const std::size_t l_nColours = sizeof(CURVE_COLOURS) / sizeof(CURVE_COLOURS[0]);
  for (std::size_t l_nPlace = 0; l_nPlace < l_asPlaceNames.size(); ++l_nPlace) {
    wxString l_sCurve = l_asPlaceNames[l_nPlace];
    l_pcView->AddNewCurve(l_nPlace, l_sCurve, 2, 0, RM_ROW_TYPE_PLACE,
                          CURVE_COLOURS[l_nPlace % l_nColours], true);
  }
  l_pcModel->AddModelView(l_pcView);
  l_pcModel->SetActiveView(0);
  return l_pcModel;
}

void DescribePlaceRows(std::size_t p_nPlaces, ResultMatrixInfo& p_rInfo) {
  const unsigned int l_nRows = static_cast<unsigned int>(p_nPlaces);
  p_rInfo.SetRowCount(l_nRows);
  for (unsigned int l_nRow = 0; l_nRow < l_nRows; ++l_nRow)
    p_rInfo.SetRowInfo(l_nRow, l_nRow, RM_ROW_TYPE_PLACE);
}

bool ModelToNet(Model& p_rModel, sim::Net& p_rNet, std::string* p_psError) {
  sim::Net l_cNet;
  l_cNet.name = ToStd(p_rModel.GetModelName());
  l_cNet.id = l_cNet.name;
  l_cNet.source = "client:" + l_cNet.name;

  const std::vector<wxString> l_asPlaces = Strings(p_rModel, keys::PLACE_NAMES);
  const std::vector<wxString> l_asTransitions = Strings(p_rModel, keys::TRANSITION_NAMES);
  const std::vector<wxString> l_asFunctions = Strings(p_rModel, keys::TRANSITION_FUNCTIONS);
  const std::vector<wxString> l_asParameters = Strings(p_rModel, keys::PARAMETER_NAMES);
  const std::vector<double> l_adMarking = Doubles(p_rModel, keys::INITIAL_MARKING);
  const std::vector<double> l_adParameters = Doubles(p_rModel, keys::INITIAL_PARAM_VALUES);
  std::vector<Transitions>* l_pcArcs = p_rModel.GetTransitions();

  if (l_adMarking.size() != l_asPlaces.size())
    return Fail(p_psError, "the model has " + std::to_string(l_asPlaces.size()) +
                               " place names but " + std::to_string(l_adMarking.size()) +
                               " initial marking values");
  if (l_asFunctions.size() != l_asTransitions.size() || l_pcArcs == NULL ||
      l_pcArcs->size() != l_asTransitions.size())
    return Fail(p_psError, "the model's transition names, functions and arcs differ in number");
  if (l_adParameters.size() != l_asParameters.size())
    return Fail(p_psError, "the model has " + std::to_string(l_asParameters.size()) +
                               " parameter names but " + std::to_string(l_adParameters.size()) +
                               " parameter values");

  // Ids by position: names need not be unique.
  for (std::size_t i = 0; i < l_asPlaces.size(); ++i) {
    l_cNet.AddPlace("p" + std::to_string(i), l_adMarking[i]);
    l_cNet.places.back().name = ToStd(l_asPlaces[i]);
  }
  for (std::size_t i = 0; i < l_asParameters.size(); ++i)
    l_cNet.AddParameter(ToStd(l_asParameters[i]), l_adParameters[i]);

  for (std::size_t i = 0; i < l_asTransitions.size(); ++i) {
    const std::string l_sId = "t" + std::to_string(i);
    const std::string l_sName = ToStd(l_asTransitions[i]);
    // A number or a parameter name is a mass-action constant, anything
    // else a rate function (checked with the net below).
    l_cNet.AddRateTransition(l_sId, ToStd(l_asFunctions[i]));
    l_cNet.transitions.back().name = l_sName;

    const Transitions& l_cArcs = (*l_pcArcs)[i];
    if (l_cArcs.m_anPrePlacePositions.size() != l_cArcs.m_acPreConnections.size() ||
        l_cArcs.m_anPostPlacePositions.size() != l_cArcs.m_acPostConnections.size())
      return Fail(p_psError, "transition '" + l_sName + "': inconsistent arc lists");
    for (std::size_t a = 0; a < l_cArcs.m_anPrePlacePositions.size(); ++a) {
      const unsigned long long l_nPlace = l_cArcs.m_anPrePlacePositions[a];
      const PlaceTransitionConnection& l_cArc = l_cArcs.m_acPreConnections[a];
      if (l_cArc.type != CONNECTION_STANDARD_ARC)
        return Fail(p_psError, "transition '" + l_sName + "': arc type " +
                                   std::to_string(static_cast<int>(l_cArc.type)) +
                                   " is not supported (only standard arcs are)");
      if (l_nPlace >= l_asPlaces.size())
        return Fail(p_psError, "transition '" + l_sName + "': an arc names place position " +
                                   std::to_string(l_nPlace) + ", which does not exist");
      l_cNet.AddArc(static_cast<std::size_t>(l_nPlace), i, l_cArc.weight, true);
    }
    for (std::size_t a = 0; a < l_cArcs.m_anPostPlacePositions.size(); ++a) {
      const unsigned long long l_nPlace = l_cArcs.m_anPostPlacePositions[a];
      if (l_nPlace >= l_asPlaces.size())
        return Fail(p_psError, "transition '" + l_sName + "': an arc names place position " +
                                   std::to_string(l_nPlace) + ", which does not exist");
      l_cNet.AddArc(static_cast<std::size_t>(l_nPlace), i, l_cArcs.m_acPostConnections[a].weight,
                    false);
    }
  }

  // The model's output interval, if it is a usable one (a start command
  // brings an interval of its own anyway).
  sim::OutputGrid l_cGrid;
  l_cGrid.start = p_rModel.FindValue<AttributeDouble>(keys::START_OUTPUT_POINT, l_cGrid.start);
  l_cGrid.end = p_rModel.FindValue<AttributeDouble>(keys::END_OUTPUT_POINT, l_cGrid.end);
  l_cGrid.step = p_rModel.FindValue<AttributeDouble>(keys::SAMPLE_POINT_SIZE, l_cGrid.step);
  if (l_cGrid.Check().empty()) l_cNet.grid = l_cGrid;
  const std::string l_sProblem = l_cNet.Validate();
  if (!l_sProblem.empty()) return Fail(p_psError, l_sProblem);
  p_rNet = l_cNet;
  return true;
}

LoadedNets LoadNets(const std::vector<std::string>& p_asFiles) {
  LoadedNets l_cLoaded;
  if (p_asFiles.empty()) {
    l_cLoaded.nets.push_back(sim::SirNet());
    return l_cLoaded;
  }
  for (const std::string& l_sFile : p_asFiles) {
    sim::NetLoadResult l_cResult = sim::LoadNetFile(l_sFile);
    if (l_cResult.ok) {
      l_cLoaded.nets.push_back(l_cResult.net);
    } else {
      // The loader's text names the file; make sure of it for any other.
      std::string l_sError = l_cResult.error.empty() ? "cannot be read" : l_cResult.error;
      if (l_sError.compare(0, l_sFile.size(), l_sFile) != 0) l_sError = l_sFile + ": " + l_sError;
      l_cLoaded.errors.push_back(l_sError);
    }
  }
  return l_cLoaded;
}

wxString ModelName(const sim::Net& p_rNet, const std::vector<wxString>& p_asTaken) {
  wxString l_sName = FromStd(p_rNet.name);
  if (l_sName.empty()) l_sName = FromStd(p_rNet.id);
  if (l_sName.empty()) l_sName = wxFileName(FromStd(p_rNet.source)).GetName();
  if (l_sName.empty()) l_sName = wxT("net");
  auto l_fTaken = [&](const wxString& p_sName) {
    for (const wxString& l_sTaken : p_asTaken)
      if (l_sTaken == p_sName) return true;
    return false;
  };
  if (!l_fTaken(l_sName)) return l_sName;
  for (int l_nCopy = 2;; ++l_nCopy) {
    const wxString l_sCopy = wxString::Format(wxT("%s (%d)"), l_sName, l_nCopy);
    if (!l_fTaken(l_sCopy)) return l_sCopy;
  }
}

}  // namespace simd
}  // namespace quor
