// SPDX-License-Identifier: MIT
#include "netdata.h"

#include <pybind11/stl.h>

#include "quor/attribute.h"
#include "quor/attributeStruct.h"
#include "quor/attributeVector.h"
#include "quor/attributeVectorAttribute.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelView.h"

namespace quor {
namespace python {

namespace {

std::vector<std::string> Texts(const SteeringVector& p_rSet, const wxChar* p_sKey) {
  std::vector<std::string> l_asTexts;
  for (const wxString& l_sText :
       p_rSet.FindValue<AttributeVectorString>(p_sKey, std::vector<wxString>()))
    l_asTexts.push_back(ToPy(l_sText));
  return l_asTexts;
}

std::vector<wxString> Names(const std::vector<std::string>& p_asTexts) {
  std::vector<wxString> l_asNames;
  for (const std::string& l_sText : p_asTexts) l_asNames.push_back(FromPy(l_sText));
  return l_asNames;
}

std::vector<double> Doubles(const SteeringVector& p_rSet, const wxChar* p_sKey) {
  return p_rSet.FindValue<AttributeVectorDouble>(p_sKey, std::vector<double>());
}

std::string Text(const SteeringVector& p_rSet, const wxChar* p_sKey) {
  Attribute* l_pcAttribute = p_rSet.FindAttribute(p_sKey);
  return l_pcAttribute == NULL ? std::string() : ToPy(l_pcAttribute->GetValueString());
}

// A field of a curve record, of class T; p_Fallback when it is missing.
template <typename T, typename V>
V Field(AttributeStruct& p_rRecord, const wxChar* p_sName, V p_Fallback) {
  AttributeMap* l_pcFields = p_rRecord.GetAllFields();
  if (l_pcFields == NULL) return p_Fallback;
  AttributeMap::iterator l_it = l_pcFields->find(p_sName);
  T* l_pcField = l_it == l_pcFields->end() ? NULL : dynamic_cast<T*>(l_it->second);
  return l_pcField == NULL ? p_Fallback : static_cast<V>(l_pcField->GetValue());
}

std::string FieldText(AttributeStruct& p_rRecord, const wxChar* p_sName) {
  AttributeMap* l_pcFields = p_rRecord.GetAllFields();
  if (l_pcFields == NULL) return std::string();
  AttributeMap::iterator l_it = l_pcFields->find(p_sName);
  return l_it == l_pcFields->end() || l_it->second == NULL ? std::string()
                                                           : ToPy(l_it->second->GetValueString());
}

ViewData ReadView(ModelView& p_rView) {
  ViewData l_cView;
  l_cView.m_sName = Text(p_rView, keys::VIEW_NAME);
  l_cView.m_sTitle = Text(p_rView, keys::VIEW_TITLE);
  l_cView.m_sXLabel = Text(p_rView, keys::X_AXIS_LABEL);
  l_cView.m_sYLabel = Text(p_rView, keys::Y_AXIS_LABEL);
  AttributeVectorAttribute* l_pcCurves = p_rView.GetCurves();
  if (l_pcCurves == NULL || l_pcCurves->GetElements() == NULL) return l_cView;
  for (Attribute* l_pcElement : *l_pcCurves->GetElements()) {
    AttributeStruct* l_pcRecord = dynamic_cast<AttributeStruct*>(l_pcElement);
    if (l_pcRecord == NULL) continue;
    CurveData l_cCurve;
    l_cCurve.m_nIndex = Field<AttributeUlong>(*l_pcRecord, keys::CURVE_INDEX, 0ull);
    l_cCurve.m_sName = FieldText(*l_pcRecord, keys::CURVE_NAME);
    l_cCurve.m_sColor = FieldText(*l_pcRecord, keys::CURVE_COLOR_NAME);
    l_cCurve.m_nType = Field<AttributeUint>(*l_pcRecord, keys::CURVE_TYPE, 0);
    l_cCurve.m_nWidth = Field<AttributeInt>(*l_pcRecord, keys::CURVE_LINE_WIDTH, 0);
    l_cCurve.m_nStyle = Field<AttributeInt>(*l_pcRecord, keys::CURVE_LINE_STYLE, 0);
    l_cCurve.m_bShow = Field<AttributeBool>(*l_pcRecord, keys::CURVE_SHOW, true);
    l_cView.m_acCurves.push_back(l_cCurve);
  }
  return l_cView;
}

template <typename T>
T Item(const py::dict& p_rDict, const char* p_sKey) {
  if (!p_rDict.contains(p_sKey)) throw py::key_error(std::string("the net has no '") + p_sKey + "'");
  return p_rDict[p_sKey].cast<T>();
}

template <typename T>
T ItemOr(const py::dict& p_rDict, const char* p_sKey, T p_Fallback) {
  return p_rDict.contains(p_sKey) ? p_rDict[p_sKey].cast<T>() : p_Fallback;
}

}  // namespace

NetData ReadNet(Model& p_rModel) {
  NetData l_cNet;
  l_cNet.m_sName = Text(p_rModel, keys::MODEL_NAME);
  l_cNet.m_asPlaces = Texts(p_rModel, keys::PLACE_NAMES);
  l_cNet.m_asTransitions = Texts(p_rModel, keys::TRANSITION_NAMES);
  l_cNet.m_asParameters = Texts(p_rModel, keys::PARAMETER_NAMES);
  l_cNet.m_asRates = Texts(p_rModel, keys::TRANSITION_FUNCTIONS);
  l_cNet.m_adMarking = Doubles(p_rModel, keys::INITIAL_MARKING);
  l_cNet.m_adCurrentMarking = Doubles(p_rModel, keys::CURRENT_MARKING);
  l_cNet.m_adParameters = Doubles(p_rModel, keys::INITIAL_PARAM_VALUES);
  l_cNet.m_adCurrentParameters = Doubles(p_rModel, keys::CURRENT_PARAM_VALUES);
  l_cNet.m_dStart = p_rModel.FindValue<AttributeDouble>(keys::START_OUTPUT_POINT, 0.0);
  l_cNet.m_dEnd = p_rModel.FindValue<AttributeDouble>(keys::END_OUTPUT_POINT, 0.0);
  l_cNet.m_dStep = p_rModel.FindValue<AttributeDouble>(keys::SAMPLE_POINT_SIZE, 0.0);
  l_cNet.m_nActiveView = p_rModel.FindValue<AttributeUint>(keys::CURRENT_ACTIVE_VIEW, 0u);

  AttributeTransitionConnection* l_pcArcs =
      p_rModel.FindAttribute<AttributeTransitionConnection>(keys::TRANSITION_CONNECTION);
  if (l_pcArcs != NULL) {
    const std::vector<Transitions>& l_acRecords = l_pcArcs->GetValue();
    for (size_t l_nTransition = 0; l_nTransition < l_acRecords.size(); ++l_nTransition) {
      const Transitions& l_rRecord = l_acRecords[l_nTransition];
      for (int l_nPre = 1; l_nPre >= 0; --l_nPre) {
        const std::vector<unsigned long long>& l_anPlaces =
            l_nPre ? l_rRecord.m_anPrePlacePositions : l_rRecord.m_anPostPlacePositions;
        const std::vector<PlaceTransitionConnection>& l_acKinds =
            l_nPre ? l_rRecord.m_acPreConnections : l_rRecord.m_acPostConnections;
        for (size_t i = 0; i < l_anPlaces.size(); ++i) {
          ArcData l_cArc;
          l_cArc.m_nTransition = l_nTransition;
          l_cArc.m_nPlace = l_anPlaces[i];
          l_cArc.m_bPre = l_nPre != 0;
          l_cArc.m_nType = i < l_acKinds.size() ? static_cast<int>(l_acKinds[i].type)
                                                : static_cast<int>(CONNECTION_STANDARD_ARC);
          l_cArc.m_dWeight = i < l_acKinds.size() ? l_acKinds[i].weight : 1.0;
          l_cNet.m_acArcs.push_back(l_cArc);
        }
      }
    }
  }

  std::vector<ModelView*>* l_apcViews = p_rModel.GetModelViews();
  if (l_apcViews != NULL)
    for (ModelView* l_pcView : *l_apcViews)
      if (l_pcView != NULL) l_cNet.m_acViews.push_back(ReadView(*l_pcView));
  return l_cNet;
}

std::unique_ptr<Model> BuildModel(const NetData& p_rNet) {
  std::unique_ptr<Model> l_pcModel(new Model(NULL, FromPy(p_rNet.m_sName),
                                             p_rNet.m_asTransitions.size(),
                                             p_rNet.m_asPlaces.size()));
  const std::vector<wxString> l_asPlaces = Names(p_rNet.m_asPlaces);
  const std::vector<wxString> l_asTransitions = Names(p_rNet.m_asTransitions);
  l_pcModel->SetPlaceNames(l_asPlaces);
  l_pcModel->SetTransitionNames(l_asTransitions);
  l_pcModel->SetAttributeValue(keys::PARAMETER_NAMES, Names(p_rNet.m_asParameters));
  l_pcModel->SetAttributeValue(keys::TRANSITION_FUNCTIONS, Names(p_rNet.m_asRates));
  l_pcModel->SetInitialParameterValues(p_rNet.m_adParameters);
  l_pcModel->SetInitialMarking(p_rNet.m_adMarking);
  if (!p_rNet.m_adCurrentParameters.empty())
    l_pcModel->SetCurrentParameterValues(p_rNet.m_adCurrentParameters);
  if (!p_rNet.m_adCurrentMarking.empty()) l_pcModel->SetCurrentMarking(p_rNet.m_adCurrentMarking);
  for (const ArcData& l_rArc : p_rNet.m_acArcs) {
    if (l_rArc.m_bPre)
      l_pcModel->SetTransitionPreConnection(l_rArc.m_nTransition, l_rArc.m_nPlace,
                                            static_cast<ConnectionType>(l_rArc.m_nType),
                                            l_rArc.m_dWeight);
    else
      l_pcModel->SetTransitionPostConnection(l_rArc.m_nTransition, l_rArc.m_nPlace,
                                             l_rArc.m_dWeight);
  }
  l_pcModel->SetOutputStartPoint(p_rNet.m_dStart);
  l_pcModel->SetOutputEndPoint(p_rNet.m_dEnd);
  l_pcModel->SetOutputSamplingSize(p_rNet.m_dStep);

  for (const ViewData& l_rView : p_rNet.m_acViews) {
    std::unique_ptr<ModelView> l_pcView(new ModelView(FromPy(l_rView.m_sName), NULL));
    l_pcView->SetTitle(FromPy(l_rView.m_sTitle));
    l_pcView->SetAttributeValue(keys::X_AXIS_LABEL, FromPy(l_rView.m_sXLabel));
    l_pcView->SetAttributeValue(keys::Y_AXIS_LABEL, FromPy(l_rView.m_sYLabel));
    for (const CurveData& l_rCurve : l_rView.m_acCurves) {
      wxString l_sName = FromPy(l_rCurve.m_sName);
      l_pcView->AddNewCurve(l_rCurve.m_nIndex, l_sName, l_rCurve.m_nWidth, l_rCurve.m_nStyle,
                            static_cast<RM_ROW_TYPE>(l_rCurve.m_nType), FromPy(l_rCurve.m_sColor),
                            l_rCurve.m_bShow);
    }
    l_pcModel->AddModelView(l_pcView.release());
  }
  l_pcModel->SetActiveView(p_rNet.m_nActiveView);
  return l_pcModel;
}

py::dict NetToDict(const NetData& p_rNet) {
  py::dict l_cDict;
  l_cDict["name"] = p_rNet.m_sName;
  l_cDict["places"] = p_rNet.m_asPlaces;
  l_cDict["transitions"] = p_rNet.m_asTransitions;
  l_cDict["parameters"] = p_rNet.m_asParameters;
  l_cDict["rates"] = p_rNet.m_asRates;
  l_cDict["marking"] = p_rNet.m_adMarking;
  l_cDict["current_marking"] = p_rNet.m_adCurrentMarking;
  l_cDict["parameter_values"] = p_rNet.m_adParameters;
  l_cDict["current_parameter_values"] = p_rNet.m_adCurrentParameters;
  py::list l_cArcs;
  for (const ArcData& l_rArc : p_rNet.m_acArcs)
    l_cArcs.append(py::make_tuple(l_rArc.m_nTransition, l_rArc.m_nPlace, l_rArc.m_bPre,
                                  l_rArc.m_nType, l_rArc.m_dWeight));
  l_cDict["arcs"] = l_cArcs;
  l_cDict["interval"] = py::make_tuple(p_rNet.m_dStart, p_rNet.m_dEnd, p_rNet.m_dStep);
  py::list l_cViews;
  for (const ViewData& l_rView : p_rNet.m_acViews) {
    py::dict l_cView;
    l_cView["name"] = l_rView.m_sName;
    l_cView["title"] = l_rView.m_sTitle;
    l_cView["x_label"] = l_rView.m_sXLabel;
    l_cView["y_label"] = l_rView.m_sYLabel;
    py::list l_cCurves;
    for (const CurveData& l_rCurve : l_rView.m_acCurves) {
      py::dict l_cCurve;
      l_cCurve["index"] = l_rCurve.m_nIndex;
      l_cCurve["name"] = l_rCurve.m_sName;
      l_cCurve["color"] = l_rCurve.m_sColor;
      l_cCurve["type"] = l_rCurve.m_nType;
      l_cCurve["width"] = l_rCurve.m_nWidth;
      l_cCurve["style"] = l_rCurve.m_nStyle;
      l_cCurve["show"] = l_rCurve.m_bShow;
      l_cCurves.append(l_cCurve);
    }
    l_cView["curves"] = l_cCurves;
    l_cViews.append(l_cView);
  }
  l_cDict["views"] = l_cViews;
  l_cDict["active_view"] = p_rNet.m_nActiveView;
  return l_cDict;
}

NetData NetFromDict(const py::dict& p_rDict) {
  NetData l_cNet;
  l_cNet.m_sName = Item<std::string>(p_rDict, "name");
  l_cNet.m_asPlaces = Item<std::vector<std::string> >(p_rDict, "places");
  l_cNet.m_asTransitions = Item<std::vector<std::string> >(p_rDict, "transitions");
  l_cNet.m_asParameters = Item<std::vector<std::string> >(p_rDict, "parameters");
  l_cNet.m_asRates = Item<std::vector<std::string> >(p_rDict, "rates");
  l_cNet.m_adMarking = Item<std::vector<double> >(p_rDict, "marking");
  l_cNet.m_adParameters = Item<std::vector<double> >(p_rDict, "parameter_values");
  l_cNet.m_adCurrentMarking = ItemOr(p_rDict, "current_marking", std::vector<double>());
  l_cNet.m_adCurrentParameters =
      ItemOr(p_rDict, "current_parameter_values", std::vector<double>());
  for (const py::handle l_cArc : Item<py::list>(p_rDict, "arcs")) {
    py::tuple l_cFields = py::reinterpret_borrow<py::tuple>(l_cArc);
    ArcData l_cData;
    l_cData.m_nTransition = l_cFields[0].cast<unsigned long long>();
    l_cData.m_nPlace = l_cFields[1].cast<unsigned long long>();
    l_cData.m_bPre = l_cFields[2].cast<bool>();
    l_cData.m_nType = l_cFields[3].cast<int>();
    l_cData.m_dWeight = l_cFields[4].cast<double>();
    l_cNet.m_acArcs.push_back(l_cData);
  }
  py::tuple l_cInterval = Item<py::tuple>(p_rDict, "interval");
  l_cNet.m_dStart = l_cInterval[0].cast<double>();
  l_cNet.m_dEnd = l_cInterval[1].cast<double>();
  l_cNet.m_dStep = l_cInterval[2].cast<double>();
  for (const py::handle l_cItem : ItemOr(p_rDict, "views", py::list())) {
    py::dict l_cView = py::reinterpret_borrow<py::dict>(l_cItem);
    ViewData l_cData;
    l_cData.m_sName = Item<std::string>(l_cView, "name");
    l_cData.m_sTitle = ItemOr(l_cView, "title", std::string());
    l_cData.m_sXLabel = ItemOr(l_cView, "x_label", std::string());
    l_cData.m_sYLabel = ItemOr(l_cView, "y_label", std::string());
    for (const py::handle l_cCurveItem : ItemOr(l_cView, "curves", py::list())) {
      py::dict l_cCurve = py::reinterpret_borrow<py::dict>(l_cCurveItem);
      CurveData l_cCurveData;
      l_cCurveData.m_nIndex = Item<unsigned long long>(l_cCurve, "index");
      l_cCurveData.m_sName = Item<std::string>(l_cCurve, "name");
      l_cCurveData.m_sColor = ItemOr(l_cCurve, "color", std::string());
      l_cCurveData.m_nType = ItemOr(l_cCurve, "type", 0);
      l_cCurveData.m_nWidth = ItemOr(l_cCurve, "width", 0);
      l_cCurveData.m_nStyle = ItemOr(l_cCurve, "style", 0);
      l_cCurveData.m_bShow = ItemOr(l_cCurve, "show", true);
      l_cData.m_acCurves.push_back(l_cCurveData);
    }
    l_cNet.m_acViews.push_back(l_cData);
  }
  l_cNet.m_nActiveView = ItemOr(p_rDict, "active_view", 0u);
  return l_cNet;
}

}  // namespace python
}  // namespace quor
