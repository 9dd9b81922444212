// SPDX-License-Identifier: MIT
// A net as plain data, between the library's Model and the Python dict that
// quor.Net is made from. Reading and building a Model need no GIL; the
// dict conversions do.
//
// The dict: "name", "places", "transitions", "parameters" (names, in
// position order), "marking" and "parameter_values" (the initial values),
// "current_marking" and "current_parameter_values", "rates" (one text per
// transition: "TRANSITION_FUNCTIONS"), "arcs" (tuples transition, place,
// is_pre_arc, connection type code, weight), "interval" (start, end, step),
// "views" (dicts "name", "title", "x_label", "y_label", "curves": dicts
// "index", "name", "type", "color", "show", "width", "style") and
// "active_view".
#ifndef QUOR_PYTHON_NETDATA_H
#define QUOR_PYTHON_NETDATA_H

#include <memory>
#include <string>
#include <vector>

#include "quorpy.h"

namespace quor {

class Model;

namespace python {

struct CurveData {
  unsigned long long m_nIndex = 0;
  std::string m_sName;
  std::string m_sColor;
  int m_nType = 0;  // RM_ROW_TYPE
  int m_nWidth = 0;
  int m_nStyle = 0;
  bool m_bShow = true;
};

struct ViewData {
  std::string m_sName;
  std::string m_sTitle;
  std::string m_sXLabel;
  std::string m_sYLabel;
  std::vector<CurveData> m_acCurves;
};

struct ArcData {
  unsigned long long m_nTransition = 0;
  unsigned long long m_nPlace = 0;
  bool m_bPre = true;  // place -> transition
  int m_nType = 0;     // ConnectionType
  double m_dWeight = 1.0;
};

struct NetData {
  std::string m_sName;
  std::vector<std::string> m_asPlaces;
  std::vector<std::string> m_asTransitions;
  std::vector<std::string> m_asParameters;
  std::vector<std::string> m_asRates;
  std::vector<double> m_adMarking;
  std::vector<double> m_adCurrentMarking;
  std::vector<double> m_adParameters;
  std::vector<double> m_adCurrentParameters;
  std::vector<ArcData> m_acArcs;
  double m_dStart = 0.0;
  double m_dEnd = 100.0;
  double m_dStep = 1.0;
  std::vector<ViewData> m_acViews;
  unsigned int m_nActiveView = 0;
};

// What a model holds (missing attributes read as empty).
NetData ReadNet(Model& p_rModel);
// A new model of the net, on no socket. REQUIRES: the places, transitions,
// parameters, rates, markings and arcs agree with one another (quor.Net
// checks that before it hands a net over).
std::unique_ptr<Model> BuildModel(const NetData& p_rNet);

py::dict NetToDict(const NetData& p_rNet);
// Raises KeyError or TypeError for a dict that is not one.
NetData NetFromDict(const py::dict& p_rDict);

}  // namespace python
}  // namespace quor

#endif  // QUOR_PYTHON_NETDATA_H
