// SPDX-License-Identifier: MIT
#include "steerCommands.h"

#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <memory>
#include <sstream>
#include <thread>

#include "quor/attributeStruct.h"
#include "quor/attributeVector.h"
#include "quor/attributeVectorAttribute.h"
#include "quor/keys.h"
#include "quor/modelView.h"
#include "quor/modelruntimestate.h"
#include "quor/simulatorState.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringcontrol.h"
#include "simcore/netLoader.h"
#include "simd/netModel.h"
#include "steerOutput.h"

namespace quor {
namespace steer {

namespace {

typedef std::chrono::steady_clock Clock;

// How often watch asks for the state: a live view on a terminal, lines
// otherwise.
const std::chrono::milliseconds WATCH_POLL_TERMINAL(100);
const std::chrono::milliseconds WATCH_POLL_LINES(50);
// The places the live view shows; the rest is counted in one line.
const std::size_t WATCH_SHOWN_PLACES = 20;
// The width of the progress bar between its brackets.
const int PROGRESS_BAR_WIDTH = 30;

const double NONE = std::numeric_limits<double>::quiet_NaN();

void PrintJson(const Json& p_rJson) { std::cout << p_rJson.dump(2) << std::endl; }

// A message for people about what a steering command did (not with --quiet).
void Say(const Globals& p_rGlobals, const std::string& p_sText) {
  if (!p_rGlobals.quiet) std::cout << p_sText << std::endl;
}

std::vector<double> Doubles(Model& p_rModel, const wxChar* p_sKey) {
  return p_rModel.FindValue<AttributeVectorDouble, std::vector<double> >(p_sKey,
                                                                         std::vector<double>());
}

double ValueAt(const std::vector<double>& p_adValues, std::size_t p_nIndex) {
  return p_nIndex < p_adValues.size() ? p_adValues[p_nIndex] : NONE;
}

std::vector<double> ReadParameters(Session& p_rSession) {
  std::vector<double> l_adValues;
  p_rSession.Check(p_rSession.Client().ReadCurrentParameterValues(l_adValues),
                   "ReadCurrentParameterValues");
  return l_adValues;
}

std::vector<double> ReadMarking(Session& p_rSession) {
  std::vector<double> l_adValues;
  p_rSession.Check(p_rSession.Client().ReadCurrentPlaceValues(l_adValues), "ReadCurrentPlaceValues");
  return l_adValues;
}

// Names with values: a two-column table, or one JSON object.
void PrintNamedValues(const Globals& p_rGlobals, const std::vector<std::string>& p_asNames,
                      const std::vector<double>& p_adValues) {
  if (p_rGlobals.json) {
    Json l_cJson = Json::object();
    for (std::size_t i = 0; i < p_asNames.size(); ++i)
      l_cJson[p_asNames[i]] = ValueAt(p_adValues, i);
    PrintJson(l_cJson);
    return;
  }
  std::vector<std::vector<std::string> > l_aasRows;
  for (std::size_t i = 0; i < p_asNames.size(); ++i)
    l_aasRows.push_back({p_asNames[i], Number(ValueAt(p_adValues, i))});
  PrintTable(std::cout, l_aasRows);
}

std::vector<QU_SimulatorCategory> ReadSimulators(Session& p_rSession) {
  std::vector<QU_SimulatorCategory> l_aCategories;
  p_rSession.Check(p_rSession.Client().ReadAvailableSimulators(l_aCategories),
                   "ReadAvailableSimulators");
  return l_aCategories;
}

std::vector<std::string> SimulatorNames(const std::vector<QU_SimulatorCategory>& p_aCategories) {
  std::vector<std::string> l_asNames;
  for (const QU_SimulatorCategory& l_cCategory : p_aCategories)
    for (const wxString& l_sName : l_cCategory.m_asSimulatorNames) l_asNames.push_back(Text(l_sName));
  return l_asNames;
}

// One simulator's settings, as the server holds them.
struct Setting {
  std::string name, caption, value;
  double min = 0.0, max = 0.0;
  std::vector<std::string> choices;
};

std::vector<Setting> ReadSettings(Session& p_rSession, const std::string& p_sSimulator,
                                  SimulatorAttribute& p_rSettings) {
  p_rSession.Check(p_rSession.Client().ReceiveSimulatorSetting(WxText(p_sSimulator), &p_rSettings),
                   "ReceiveSimulatorSetting");
  std::vector<Setting> l_aSettings;
  for (unsigned int i = 0; i < p_rSettings.size(); ++i) {
    wxString l_sName, l_sCaption, l_sValue;
    unsigned int l_nGuiType = 0;
    Setting l_cSetting;
    if (!p_rSettings.GetAttribute(i, l_sName, l_sCaption, l_sValue, l_nGuiType, l_cSetting.min,
                                  l_cSetting.max))
      continue;
    l_cSetting.name = Text(l_sName);
    l_cSetting.caption = Text(l_sCaption);
    l_cSetting.value = Text(l_sValue);
    for (const wxString& l_sChoice : p_rSettings.GetPossibleValues(i))
      l_cSetting.choices.push_back(Text(l_sChoice));
    l_aSettings.push_back(l_cSetting);
  }
  return l_aSettings;
}

// The runtime state of the model.
struct RunStatus {
  int state = SIMULATOR_IDLE;
  int error = SIMULATOR_ERROR_NONE;
  double progress = 0.0;  // percent of the output points
  double runtime = 0.0;   // seconds of running
  int speed = 0;
  std::string category, simulator;
};

RunStatus ReadState(Session& p_rSession) {
  ModelRuntimeState l_cState;
  p_rSession.Check(p_rSession.Client().ReadModelStatistics(l_cState), "ReadModelStatistics");
  RunStatus l_cRun;
  l_cRun.state = l_cState.GetAttributeValueInt(keys::SIMULATOR_STATE);
  l_cRun.error = l_cState.GetAttributeValueInt(keys::ERROR_STATE);
  l_cRun.progress = l_cState.GetAttributeValueDouble(keys::SIMULATOR_PROGRESS);
  l_cRun.runtime = l_cState.GetAttributeValueDouble(keys::SIMULATOR_RUNTIME);
  l_cRun.speed = l_cState.GetAttributeValueInt(keys::SIMULATOR_SPEED);
  l_cRun.category = Text(l_cState.GetAttributeValueString(keys::SIMULATOR_CATEGORY));
  l_cRun.simulator = Text(l_cState.GetAttributeValueString(keys::CURRENT_SIMULATOR_ALGORITHM));
  return l_cRun;
}

std::vector<std::vector<double> > ReadMatrix(Session& p_rSession, bool p_bRates) {
  std::vector<std::vector<double> > l_aadMatrix;
  if (p_bRates)
    p_rSession.Check(p_rSession.Client().ReadRateMatrix(l_aadMatrix), "ReadRateMatrix");
  else
    p_rSession.Check(p_rSession.Client().ReadResultMatrix(l_aadMatrix), "ReadResultMatrix");
  return l_aadMatrix;
}

// The run's time series: the matrix with the times of the interval the
// server holds, named by places or transitions.
Series ReadSeries(Session& p_rSession, bool p_bRates) {
  Series l_cSeries;
  l_cSeries.names = p_rSession.Names(p_bRates ? keys::TRANSITION_NAMES : keys::PLACE_NAMES);
  double l_dStart, l_dEnd, l_dStep;
  if (!p_rSession.ReadInterval(l_dStart, l_dEnd, l_dStep))
    throw Failure(STATUS_FAILED, "the server sent no output interval");
  l_cSeries.rows = ReadMatrix(p_rSession, p_bRates);
  if (l_cSeries.rows.size() != l_cSeries.names.size())
    throw Failure(STATUS_FAILED, "the server's matrix has " + std::to_string(l_cSeries.rows.size()) +
                                     " rows for " + std::to_string(l_cSeries.names.size()) + " " +
                                     (p_bRates ? TRANSITION.many : PLACE.many));
  std::size_t l_nColumns = 0;
  for (const std::vector<double>& l_adRow : l_cSeries.rows)
    l_nColumns = std::max(l_nColumns, l_adRow.size());
  for (std::size_t c = 0; c < l_nColumns; ++c)
    l_cSeries.times.push_back(l_dStart + static_cast<double>(c) * l_dStep);
  return l_cSeries;
}

// Where output goes: stdout or a file, which must be written completely.
class Output {
 public:
  explicit Output(const std::string& p_sPath) : m_sPath(p_sPath) {
    if (m_sPath.empty() || m_sPath == "-") return;
    m_cFile.open(m_sPath.c_str(), std::ios::out | std::ios::trunc | std::ios::binary);
    if (!m_cFile) throw Failure(STATUS_FAILED, "cannot write " + m_sPath + ": " + std::strerror(errno));
  }
  std::ostream& Stream() { return m_cFile.is_open() ? static_cast<std::ostream&>(m_cFile) : std::cout; }
  void Close() {
    if (!m_cFile.is_open()) return;
    m_cFile.close();
    if (!m_cFile) throw Failure(STATUS_FAILED, "cannot write " + m_sPath);
  }

 private:
  std::string m_sPath;
  std::ofstream m_cFile;
};

std::string ArcType(int p_nType) {
  switch (p_nType) {
    case CONNECTION_READ_ARC: return "read";
    case CONNECTION_STANDARD_ARC: return "standard";
    case CONNECTION_INHIBITOR_ARC: return "inhibitor";
    case CONNECTION_RESET_ARC: return "reset";
    case CONNECTION_EQUAL_ARC: return "equal";
    case CONNECTION_MODIFIER_ARC: return "modifier";
    default: return "none";
  }
}

struct Arc {
  std::string transition, place, direction, type;
  double weight;
};

std::vector<Arc> Arcs(Session& p_rSession) {
  const std::vector<std::string> l_asPlaces = p_rSession.Names(keys::PLACE_NAMES);
  const std::vector<std::string> l_asTransitions = p_rSession.Names(keys::TRANSITION_NAMES);
  auto l_fPlace = [&](unsigned long long p_nPosition) {
    return p_nPosition < l_asPlaces.size() ? l_asPlaces[p_nPosition]
                                           : "#" + std::to_string(p_nPosition);
  };
  std::vector<Arc> l_aArcs;
  std::vector<Transitions>* l_paTransitions = p_rSession.GetModel().GetTransitions();
  if (l_paTransitions == nullptr) return l_aArcs;
  for (std::size_t t = 0; t < l_paTransitions->size(); ++t) {
    const Transitions& l_rArcs = (*l_paTransitions)[t];
    const std::string l_sTransition =
        t < l_asTransitions.size() ? l_asTransitions[t] : "#" + std::to_string(t);
    for (std::size_t i = 0; i < l_rArcs.m_anPrePlacePositions.size(); ++i) {
      const PlaceTransitionConnection l_cArc = i < l_rArcs.m_acPreConnections.size()
                                                   ? l_rArcs.m_acPreConnections[i]
                                                   : PlaceTransitionConnection{CONNECTION_NONE, NONE};
      l_aArcs.push_back({l_sTransition, l_fPlace(l_rArcs.m_anPrePlacePositions[i]), "in",
                         ArcType(l_cArc.type), l_cArc.weight});
    }
    for (std::size_t i = 0; i < l_rArcs.m_anPostPlacePositions.size(); ++i) {
      const PlaceTransitionConnection l_cArc = i < l_rArcs.m_acPostConnections.size()
                                                   ? l_rArcs.m_acPostConnections[i]
                                                   : PlaceTransitionConnection{CONNECTION_NONE, NONE};
      l_aArcs.push_back({l_sTransition, l_fPlace(l_rArcs.m_anPostPlacePositions[i]), "out",
                         ArcType(l_cArc.type), l_cArc.weight});
    }
  }
  return l_aArcs;
}

struct View {
  std::string name, title;
  std::vector<std::string> curves;
};

std::vector<View> Views(Session& p_rSession) {
  std::vector<View> l_aViews;
  std::vector<ModelView*>* l_papcViews = p_rSession.GetModel().GetModelViews();
  if (l_papcViews == nullptr) return l_aViews;
  for (ModelView* l_pcView : *l_papcViews) {
    if (l_pcView == nullptr) continue;
    View l_cView;
    l_cView.name = Text(l_pcView->GetName());
    l_cView.title = Text(l_pcView->GetTitle());
    AttributeVectorAttribute* l_pcCurves = l_pcView->GetCurves();
    for (unsigned long long i = 0; l_pcCurves != nullptr && i < l_pcCurves->size(); ++i) {
      AttributeStruct* l_pcCurve = dynamic_cast<AttributeStruct*>(l_pcCurves->GetElement(i));
      AttributeMap* l_pcFields = l_pcCurve == nullptr ? nullptr : l_pcCurve->GetAllFields();
      if (l_pcFields == nullptr) continue;
      AttributeMap::const_iterator l_it = l_pcFields->find(keys::CURVE_NAME);
      if (l_it != l_pcFields->end() && l_it->second != nullptr)
        l_cView.curves.push_back(Text(l_it->second->GetValueString()));
    }
    l_aViews.push_back(l_cView);
  }
  return l_aViews;
}

std::string Quoted(const std::string& p_sName) { return "'" + p_sName + "'"; }

}  // namespace

StartOptions::StartOptions() : from(NONE), to(NONE), step(NONE) {}

void SplitAssignment(const std::string& p_sText, std::string& p_rsName, std::string& p_rsValue) {
  const std::size_t l_nEquals = p_sText.rfind('=');
  if (l_nEquals == std::string::npos || l_nEquals == 0 || l_nEquals + 1 == p_sText.size())
    throw Failure(STATUS_USAGE, "'" + p_sText + "' is not NAME=VALUE");
  p_rsName = p_sText.substr(0, l_nEquals);
  p_rsValue = p_sText.substr(l_nEquals + 1);
}

double ParseNumber(const std::string& p_sText, const std::string& p_sWhat) {
  const char* l_pBegin = p_sText.c_str();
  char* l_pEnd = nullptr;
  errno = 0;
  const double l_dValue = std::strtod(l_pBegin, &l_pEnd);
  if (p_sText.empty() || l_pEnd != l_pBegin + p_sText.size() || errno == ERANGE ||
      !std::isfinite(l_dValue))
    throw Failure(STATUS_USAGE, p_sWhat + ": '" + p_sText + "' is not a number");
  return l_dValue;
}

// ---------------------------------------------------------------- reading

void RunModels(Session& p_rSession, const Globals& p_rGlobals) {
  const std::vector<std::string> l_asNames = p_rSession.ModelNames();
  if (p_rGlobals.json) {
    Json l_cJson = Json::array();
    for (std::size_t i = 0; i < l_asNames.size(); ++i)
      l_cJson.push_back({{"index", i}, {"name", l_asNames[i]}});
    PrintJson(l_cJson);
    return;
  }
  std::vector<std::vector<std::string> > l_aasRows;
  for (std::size_t i = 0; i < l_asNames.size(); ++i)
    l_aasRows.push_back({std::to_string(i), l_asNames[i]});
  PrintTable(std::cout, l_aasRows, true);
}

void RunInfo(Session& p_rSession, const Globals& p_rGlobals) {
  Model& l_rModel = p_rSession.GetModel();
  const std::vector<std::string> l_asPlaces = p_rSession.Names(keys::PLACE_NAMES);
  const std::vector<std::string> l_asTransitions = p_rSession.Names(keys::TRANSITION_NAMES);
  const std::vector<std::string> l_asFunctions = p_rSession.Names(keys::TRANSITION_FUNCTIONS);
  const std::vector<std::string> l_asParameters = p_rSession.Names(keys::PARAMETER_NAMES);
  const std::vector<double> l_adInitialMarking = Doubles(l_rModel, keys::INITIAL_MARKING);
  const std::vector<double> l_adInitialValues = Doubles(l_rModel, keys::INITIAL_PARAM_VALUES);
  const std::vector<double> l_adMarking = ReadMarking(p_rSession);
  const std::vector<double> l_adValues = ReadParameters(p_rSession);
  double l_dStart, l_dEnd, l_dStep;
  if (!p_rSession.ReadInterval(l_dStart, l_dEnd, l_dStep)) l_dStart = l_dEnd = l_dStep = NONE;
  const std::vector<Arc> l_aArcs = Arcs(p_rSession);
  const std::vector<View> l_aViews = Views(p_rSession);

  if (p_rGlobals.json) {
    Json l_cJson = Json::object();
    l_cJson["name"] = p_rSession.ModelName();
    l_cJson["places"] = Json::array();
    for (std::size_t i = 0; i < l_asPlaces.size(); ++i)
      l_cJson["places"].push_back({{"name", l_asPlaces[i]},
                                   {"initial", ValueAt(l_adInitialMarking, i)},
                                   {"current", ValueAt(l_adMarking, i)}});
    l_cJson["transitions"] = Json::array();
    for (std::size_t i = 0; i < l_asTransitions.size(); ++i)
      l_cJson["transitions"].push_back(
          {{"name", l_asTransitions[i]},
           {"function", i < l_asFunctions.size() ? l_asFunctions[i] : std::string()}});
    l_cJson["arcs"] = Json::array();
    for (const Arc& l_rArc : l_aArcs)
      l_cJson["arcs"].push_back({{"transition", l_rArc.transition},
                                 {"place", l_rArc.place},
                                 {"direction", l_rArc.direction},
                                 {"type", l_rArc.type},
                                 {"weight", l_rArc.weight}});
    l_cJson["parameters"] = Json::array();
    for (std::size_t i = 0; i < l_asParameters.size(); ++i)
      l_cJson["parameters"].push_back({{"name", l_asParameters[i]},
                                       {"initial", ValueAt(l_adInitialValues, i)},
                                       {"current", ValueAt(l_adValues, i)}});
    l_cJson["interval"] = {{"from", l_dStart}, {"to", l_dEnd}, {"step", l_dStep}};
    l_cJson["views"] = Json::array();
    for (const View& l_rView : l_aViews)
      l_cJson["views"].push_back(
          {{"name", l_rView.name}, {"title", l_rView.title}, {"curves", l_rView.curves}});
    PrintJson(l_cJson);
    return;
  }

  std::cout << "model: " << p_rSession.ModelName() << "\n"
            << "interval: from " << Number(l_dStart) << " to " << Number(l_dEnd) << " every "
            << Number(l_dStep) << "\n\nplaces (" << l_asPlaces.size() << "):\n";
  std::vector<std::vector<std::string> > l_aasRows = {{"  name", "initial", "current"}};
  for (std::size_t i = 0; i < l_asPlaces.size(); ++i)
    l_aasRows.push_back({"  " + l_asPlaces[i], Number(ValueAt(l_adInitialMarking, i)),
                         Number(ValueAt(l_adMarking, i))});
  PrintTable(std::cout, l_aasRows);
  std::cout << "\ntransitions (" << l_asTransitions.size() << "):\n";
  l_aasRows = {{"  name", "rate"}};
  for (std::size_t i = 0; i < l_asTransitions.size(); ++i)
    l_aasRows.push_back({"  " + l_asTransitions[i], i < l_asFunctions.size() ? l_asFunctions[i] : ""});
  PrintTable(std::cout, l_aasRows, true);
  std::cout << "\narcs (" << l_aArcs.size() << "):\n";
  l_aasRows = {{"  transition", "place", "direction", "type", "weight"}};
  for (const Arc& l_rArc : l_aArcs)
    l_aasRows.push_back({"  " + l_rArc.transition, l_rArc.place, l_rArc.direction, l_rArc.type,
                         Number(l_rArc.weight)});
  PrintTable(std::cout, l_aasRows, true);
  std::cout << "\nparameters (" << l_asParameters.size() << "):\n";
  l_aasRows = {{"  name", "initial", "current"}};
  for (std::size_t i = 0; i < l_asParameters.size(); ++i)
    l_aasRows.push_back({"  " + l_asParameters[i], Number(ValueAt(l_adInitialValues, i)),
                         Number(ValueAt(l_adValues, i))});
  PrintTable(std::cout, l_aasRows);
  std::cout << "\nviews (" << l_aViews.size() << "):\n";
  for (const View& l_rView : l_aViews)
    std::cout << "  " << l_rView.name << (l_rView.title.empty() ? "" : " (" + l_rView.title + ")")
              << ": " << JoinNames(l_rView.curves) << "\n";
  std::cout.flush();
}

void RunSimulators(Session& p_rSession, const Globals& p_rGlobals) {
  const std::vector<QU_SimulatorCategory> l_aCategories = ReadSimulators(p_rSession);
  wxString l_sCategory, l_sSimulator;
  p_rSession.Check(p_rSession.Client().ReadCurrentSimulatorName(l_sCategory, l_sSimulator),
                   "ReadCurrentSimulatorName");
  if (p_rGlobals.json) {
    Json l_cJson = Json::object();
    l_cJson["current"] = {{"category", Text(l_sCategory)}, {"simulator", Text(l_sSimulator)}};
    l_cJson["categories"] = Json::array();
    for (const QU_SimulatorCategory& l_cCategory : l_aCategories) {
      std::vector<std::string> l_asNames;
      for (const wxString& l_sName : l_cCategory.m_asSimulatorNames) l_asNames.push_back(Text(l_sName));
      l_cJson["categories"].push_back({{"category", Text(l_cCategory.m_sCategoryName)},
                                       {"id", l_cCategory.m_nCategoryId},
                                       {"simulators", l_asNames}});
    }
    PrintJson(l_cJson);
    return;
  }
  std::vector<std::vector<std::string> > l_aasRows = {{"simulator", "category", ""}};
  for (const QU_SimulatorCategory& l_cCategory : l_aCategories)
    for (const wxString& l_sName : l_cCategory.m_asSimulatorNames)
      l_aasRows.push_back({Text(l_sName), Text(l_cCategory.m_sCategoryName),
                           l_sName == l_sSimulator ? "(current)" : ""});
  PrintTable(std::cout, l_aasRows, true);
}

void RunSettings(Session& p_rSession, const Globals& p_rGlobals, const std::string& p_sSimulator) {
  std::vector<std::string> l_asSimulators = SimulatorNames(ReadSimulators(p_rSession));
  if (!p_sSimulator.empty()) {
    FindName(SIMULATOR, l_asSimulators, p_sSimulator);
    l_asSimulators = {p_sSimulator};
  }
  Json l_cJson = Json::object();
  std::vector<std::vector<std::string> > l_aasRows = {
      {"simulator", "setting", "value", "range or choices"}};
  for (const std::string& l_sSimulator : l_asSimulators) {
    SimulatorAttribute l_cSettings;
    const std::vector<Setting> l_aSettings = ReadSettings(p_rSession, l_sSimulator, l_cSettings);
    l_cJson[l_sSimulator] = Json::array();
    for (const Setting& l_rSetting : l_aSettings) {
      l_cJson[l_sSimulator].push_back({{"name", l_rSetting.name},
                                       {"caption", l_rSetting.caption},
                                       {"value", l_rSetting.value},
                                       {"min", l_rSetting.min},
                                       {"max", l_rSetting.max},
                                       {"choices", l_rSetting.choices}});
      l_aasRows.push_back({l_sSimulator, l_rSetting.name, l_rSetting.value,
                           l_rSetting.choices.empty()
                               ? Number(l_rSetting.min) + " to " + Number(l_rSetting.max)
                               : JoinNames(l_rSetting.choices)});
    }
  }
  if (p_rGlobals.json)
    PrintJson(l_cJson);
  else
    PrintTable(std::cout, l_aasRows, true);
}

void RunParams(Session& p_rSession, const Globals& p_rGlobals) {
  PrintNamedValues(p_rGlobals, p_rSession.Names(keys::PARAMETER_NAMES), ReadParameters(p_rSession));
}

void RunMarking(Session& p_rSession, const Globals& p_rGlobals) {
  PrintNamedValues(p_rGlobals, p_rSession.Names(keys::PLACE_NAMES), ReadMarking(p_rSession));
}

void RunState(Session& p_rSession, const Globals& p_rGlobals) {
  const RunStatus l_cState = ReadState(p_rSession);
  const int l_nState = l_cState.state;
  const int l_nError = l_cState.error;
  const double l_dProgress = l_cState.progress;
  const double l_dRuntime = l_cState.runtime;
  const int l_nSpeed = l_cState.speed;
  const std::string& l_sCategory = l_cState.category;
  const std::string& l_sSimulator = l_cState.simulator;
  if (p_rGlobals.json) {
    PrintJson({{"model", p_rSession.ModelName()},
               {"state", SimulatorStateName(l_nState)},
               {"state_code", l_nState},
               {"progress", l_dProgress},
               {"runtime", l_dRuntime},
               {"speed", l_nSpeed},
               {"category", l_sCategory},
               {"simulator", l_sSimulator},
               {"error_state", SimulatorErrorStateName(l_nError)},
               {"error_code", l_nError}});
    return;
  }
  PrintTable(std::cout, {{"model", p_rSession.ModelName()},
                         {"state", std::string(SimulatorStateName(l_nState)) + " (" +
                                       std::to_string(l_nState) + ")"},
                         {"progress", ShortNumber(l_dProgress) + " %"},
                         {"runtime", ShortNumber(l_dRuntime) + " s"},
                         {"speed", l_nSpeed == 0 ? std::string("unpaced")
                                                 : std::to_string(l_nSpeed) + " points/s"},
                         {"simulator", l_sSimulator + (l_sCategory.empty() ? "" : " (" + l_sCategory + ")")},
                         {"errors", std::string(SimulatorErrorStateName(l_nError)) + " (" +
                                        std::to_string(l_nError) + ")"}},
             true);
}

void RunInterval(Session& p_rSession, const Globals& p_rGlobals) {
  double l_dStart, l_dEnd, l_dStep;
  if (!p_rSession.ReadInterval(l_dStart, l_dEnd, l_dStep))
    throw Failure(STATUS_FAILED, "the server sent no output interval");
  if (p_rGlobals.json)
    PrintJson({{"from", l_dStart}, {"to", l_dEnd}, {"step", l_dStep}});
  else
    PrintTable(std::cout, {{"from", Number(l_dStart)}, {"to", Number(l_dEnd)}, {"step", Number(l_dStep)}});
}

void RunSeries(Session& p_rSession, const Globals& p_rGlobals, bool p_bRates,
               const SeriesOptions& p_rOptions) {
  SeriesFormat l_eFormat = p_rGlobals.json ? SeriesFormat::JSON : SeriesFormat::TABLE;
  if (!p_rOptions.format.empty() && !ParseSeriesFormat(p_rOptions.format, l_eFormat))
    throw Failure(STATUS_USAGE, "unknown format '" + p_rOptions.format +
                                    "' (the formats are: table, csv, tsv, json)");
  const Series l_cSeries = ReadSeries(p_rSession, p_bRates);
  Output l_cOutput(p_rOptions.output);
  WriteSeries(l_cOutput.Stream(), l_cSeries, l_eFormat);
  l_cOutput.Stream().flush();
  l_cOutput.Close();
}

void RunLog(Session& p_rSession, const Globals& p_rGlobals) {
  wxString l_sLast;
  p_rSession.Check(p_rSession.Client().ReadLogMessage(l_sLast), "ReadLogMessage");
  std::vector<std::string> l_asErrors = p_rSession.EarlierMessages();
  for (const std::string& l_sLine : p_rSession.ReceiveMessages()) l_asErrors.push_back(l_sLine);
  if (p_rGlobals.json) {
    PrintJson({{"log", Text(l_sLast)}, {"errors", l_asErrors}});
    return;
  }
  std::cout << "log: " << Text(l_sLast) << "\n";
  for (const std::string& l_sLine : l_asErrors) std::cout << "error: " << l_sLine << "\n";
  std::cout.flush();
}

// --------------------------------------------------------------- steering

namespace {

// NAME=VALUE pairs, each name looked up in p_asNames: positions and values.
std::vector<std::pair<std::size_t, double> > Assignments(
    const NameKind& p_rKind, const std::vector<std::string>& p_asNames,
    const std::vector<std::string>& p_asAssignments) {
  std::vector<std::pair<std::size_t, double> > l_aChanges;
  for (const std::string& l_sAssignment : p_asAssignments) {
    std::string l_sName, l_sValue;
    SplitAssignment(l_sAssignment, l_sName, l_sValue);
    const std::size_t l_nPosition = FindName(p_rKind, p_asNames, l_sName);
    l_aChanges.push_back({l_nPosition, ParseNumber(l_sValue, l_sName)});
  }
  return l_aChanges;
}

}  // namespace

void RunSet(Session& p_rSession, const Globals& p_rGlobals,
            const std::vector<std::string>& p_asAssignments) {
  const std::vector<std::string> l_asNames = p_rSession.Names(keys::PARAMETER_NAMES);
  for (const auto& l_cChange : Assignments(PARAMETER, l_asNames, p_asAssignments)) {
    p_rSession.Check(p_rSession.Client().ChangeCurrentParameterValues(l_cChange.first, l_cChange.second),
                     "ChangeCurrentParameterValues");
    p_rSession.CheckRefusals();
    Say(p_rGlobals, l_asNames[l_cChange.first] + " = " + Number(l_cChange.second));
  }
}

void RunMark(Session& p_rSession, const Globals& p_rGlobals,
             const std::vector<std::string>& p_asAssignments) {
  const std::vector<std::string> l_asNames = p_rSession.Names(keys::PLACE_NAMES);
  for (const auto& l_cChange : Assignments(PLACE, l_asNames, p_asAssignments)) {
    p_rSession.Check(p_rSession.Client().ChangeCurrentPlaceValues(l_cChange.first, l_cChange.second),
                     "ChangeCurrentPlaceValues");
    p_rSession.CheckRefusals();
    Say(p_rGlobals, l_asNames[l_cChange.first] + " = " + Number(l_cChange.second));
  }
}

void RunSetting(Session& p_rSession, const Globals& p_rGlobals, const std::string& p_sSimulator,
                const std::vector<std::string>& p_asAssignments) {
  FindName(SIMULATOR, SimulatorNames(ReadSimulators(p_rSession)), p_sSimulator);
  SimulatorAttribute l_cSettings;
  const std::vector<Setting> l_aSettings = ReadSettings(p_rSession, p_sSimulator, l_cSettings);
  std::vector<std::string> l_asNames;
  for (const Setting& l_rSetting : l_aSettings) l_asNames.push_back(l_rSetting.name);
  std::vector<std::string> l_asSaid;
  for (const std::string& l_sAssignment : p_asAssignments) {
    std::string l_sName, l_sValue;
    SplitAssignment(l_sAssignment, l_sName, l_sValue);
    const std::size_t l_nIndex = FindName(SETTING, l_asNames, l_sName);
    wxString l_sEntryName, l_sCaption, l_sOld;
    unsigned int l_nGuiType = 0;
    double l_dMin = 0.0, l_dMax = 0.0;
    const unsigned int l_nEntry = static_cast<unsigned int>(l_nIndex);
    l_cSettings.GetAttribute(l_nEntry, l_sEntryName, l_sCaption, l_sOld, l_nGuiType, l_dMin, l_dMax);
    wxString l_sNew = WxText(l_sValue);
    l_cSettings.UpdateAttribute(l_nEntry, l_sEntryName, l_sCaption, l_sNew, l_nGuiType, l_dMin, l_dMax);
    l_asSaid.push_back(p_sSimulator + " " + l_sName + " = " + l_sValue);
  }
  p_rSession.Check(p_rSession.Client().SendSimulatorSetting(WxText(p_sSimulator), &l_cSettings),
                   "SendSimulatorSetting");
  p_rSession.CheckRefusals();
  for (const std::string& l_sLine : l_asSaid) Say(p_rGlobals, l_sLine);
}

void RunStart(Session& p_rSession, const Globals& p_rGlobals, const StartOptions& p_rOptions,
              bool p_bRestart) {
  Model& l_rModel = p_rSession.GetModel();
  if (!p_rOptions.simulator.empty()) {
    // A simulator's or a category's name, in any case.
    const std::vector<QU_SimulatorCategory> l_aCategories = ReadSimulators(p_rSession);
    std::vector<std::string> l_asNames;
    bool l_bKnown = false;
    for (const QU_SimulatorCategory& l_cCategory : l_aCategories) {
      std::vector<wxString> l_asAll = l_cCategory.m_asSimulatorNames;
      l_asAll.push_back(l_cCategory.m_sCategoryName);
      for (const wxString& l_sName : l_asAll) {
        l_asNames.push_back(Text(l_sName));
        if (l_sName.CmpNoCase(WxText(p_rOptions.simulator)) == 0) l_bKnown = true;
      }
    }
    if (!l_bKnown) FindName(SIMULATOR, l_asNames, p_rOptions.simulator);
  }
  const double l_dFrom = std::isnan(p_rOptions.from)
                             ? l_rModel.GetAttributeValueDouble(keys::START_OUTPUT_POINT)
                             : p_rOptions.from;
  const double l_dTo = std::isnan(p_rOptions.to)
                           ? l_rModel.GetAttributeValueDouble(keys::END_OUTPUT_POINT)
                           : p_rOptions.to;
  const double l_dStep = std::isnan(p_rOptions.step)
                             ? l_rModel.GetAttributeValueDouble(keys::SAMPLE_POINT_SIZE)
                             : p_rOptions.step;
  if (!(l_dStep > 0.0) || !(l_dTo >= l_dFrom))
    throw Failure(STATUS_USAGE, "the interval from " + Number(l_dFrom) + " to " + Number(l_dTo) +
                                    " every " + Number(l_dStep) +
                                    " is unusable (--to must not be below --from, --step must be "
                                    "above 0)");
  if (p_rOptions.speed >= 0) {
    p_rSession.Check(p_rSession.Client().ChanageSimulatorSpeed(static_cast<unsigned int>(p_rOptions.speed)),
                     "ChanageSimulatorSpeed");
    p_rSession.CheckRefusals();
  }
  const wxString l_sSimulator = WxText(p_rOptions.simulator);
  if (p_bRestart)
    p_rSession.Check(p_rSession.Client().CMD_Restart(l_sSimulator, l_dFrom, l_dTo, l_dStep), "CMD_Restart");
  else
    p_rSession.Check(p_rSession.Client().CMD_Start(l_sSimulator, l_dFrom, l_dTo, l_dStep), "CMD_Start");
  p_rSession.CheckRefusals();
  Say(p_rGlobals, std::string(p_bRestart ? "restarted " : "started ") + Quoted(p_rSession.ModelName()) +
                      " from " + Number(l_dFrom) + " to " + Number(l_dTo) + " every " +
                      Number(l_dStep));
}

void RunCommand(Session& p_rSession, const Globals& p_rGlobals, const std::string& p_sCommand) {
  SteeringClient& l_rClient = p_rSession.Client();
  if (p_sCommand == "pause")
    p_rSession.Check(l_rClient.CMD_Pause(), "CMD_Pause");
  else if (p_sCommand == "resume")
    p_rSession.Check(l_rClient.CMD_Resume(), "CMD_Resume");
  else
    p_rSession.Check(l_rClient.CMD_Stop(), "CMD_Stop");
  p_rSession.CheckRefusals();
  Say(p_rGlobals, p_sCommand + " sent to " + Quoted(p_rSession.ModelName()));
}

void RunSpeed(Session& p_rSession, const Globals& p_rGlobals, unsigned int p_nSpeed) {
  p_rSession.Check(p_rSession.Client().ChanageSimulatorSpeed(p_nSpeed), "ChanageSimulatorSpeed");
  p_rSession.CheckRefusals();
  Say(p_rGlobals, "speed of " + Quoted(p_rSession.ModelName()) + ": " +
                      (p_nSpeed == 0 ? std::string("unpaced")
                                     : std::to_string(p_nSpeed) + " points per second"));
}

void RunUpload(Session& p_rSession, const Globals& p_rGlobals, const std::string& p_sFile) {
  const sim::NetLoadResult l_cLoaded = sim::LoadNetFile(p_sFile);
  if (!l_cLoaded) throw Failure(STATUS_FAILED, l_cLoaded.error);
  std::vector<wxString> l_asTaken;
  for (const std::string& l_sName : p_rSession.ModelNames()) l_asTaken.push_back(WxText(l_sName));
  const wxString l_sName = simd::ModelName(l_cLoaded.net, l_asTaken);
  std::unique_ptr<Model> l_pcModel(simd::NetToModel(l_cLoaded.net, l_sName));
  if (!l_pcModel) throw Failure(STATUS_FAILED, p_sFile + ": the net cannot be made a model");
  p_rSession.Upload(std::move(l_pcModel));
  const std::vector<std::string> l_asModels = p_rSession.ModelNames();
  std::string l_sIndex;
  for (std::size_t i = 0; i < l_asModels.size(); ++i)
    if (l_asModels[i] == Text(l_sName)) l_sIndex = " as model " + std::to_string(i);
  Say(p_rGlobals, "uploaded " + Quoted(Text(l_sName)) + l_sIndex);
}

// ---------------------------------------------------------------- watching

namespace {

int TerminalWidth() {
  struct winsize l_cSize;
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &l_cSize) == 0 && l_cSize.ws_col >= 20)
    return l_cSize.ws_col;
  return 80;
}

std::string Duration(double p_dSeconds) {
  if (!std::isfinite(p_dSeconds) || p_dSeconds < 0) return "?";
  char l_acBuffer[32];
  if (p_dSeconds < 60)
    std::snprintf(l_acBuffer, sizeof(l_acBuffer), "%.1f s", p_dSeconds);
  else
    std::snprintf(l_acBuffer, sizeof(l_acBuffer), "%d min %02d s", static_cast<int>(p_dSeconds) / 60,
                  static_cast<int>(p_dSeconds) % 60);
  return l_acBuffer;
}

// The live view on a terminal: the marking of the last output point, then
// the progress bar, drawn again in place each time.
class LiveView {
 public:
  explicit LiveView(const std::vector<std::string>& p_asPlaces) : m_asPlaces(p_asPlaces) {}

  void Draw(const Series& p_rSeries, double p_dFrom, double p_dTo, const std::string& p_sState,
            double p_dRuntime, double p_dProgress) {
    std::vector<std::string> l_asLines;
    const std::size_t l_nPoints = p_rSeries.Points();
    const double l_dTime = l_nPoints == 0 ? p_dFrom : p_rSeries.times[l_nPoints - 1];
    std::vector<std::vector<std::string> > l_aasRows = {{"place", "t = " + ShortNumber(l_dTime)}};
    for (std::size_t i = 0; i < m_asPlaces.size() && i < WATCH_SHOWN_PLACES; ++i)
      l_aasRows.push_back({m_asPlaces[i], l_nPoints == 0 ? std::string("-")
                                                         : ShortNumber(p_rSeries.rows[i][l_nPoints - 1])});
    std::ostringstream l_cTable;
    PrintTable(l_cTable, l_aasRows);
    std::string l_sLine;
    std::istringstream l_cLines(l_cTable.str());
    while (std::getline(l_cLines, l_sLine)) l_asLines.push_back(l_sLine);
    if (m_asPlaces.size() > WATCH_SHOWN_PLACES)
      l_asLines.push_back("(" + std::to_string(m_asPlaces.size() - WATCH_SHOWN_PLACES) +
                          " more places)");

    const double l_dSpan = p_dTo - p_dFrom;
    double l_dShare = l_dSpan > 0 ? (l_dTime - p_dFrom) / l_dSpan : (l_nPoints > 0 ? 1.0 : 0.0);
    l_dShare = std::min(1.0, std::max(0.0, l_dShare));
    const int l_nFilled = static_cast<int>(std::lround(l_dShare * PROGRESS_BAR_WIDTH));
    const double l_dLeft =
        p_dProgress > 0 ? p_dRuntime * (100.0 - p_dProgress) / p_dProgress : NONE;
    std::string l_sBar = "[" + std::string(static_cast<std::size_t>(l_nFilled), '#') +
                         std::string(static_cast<std::size_t>(PROGRESS_BAR_WIDTH - l_nFilled), '.') +
                         "] t = " + ShortNumber(l_dTime) + " of " + ShortNumber(p_dTo) + " (" +
                         std::to_string(static_cast<int>(std::floor(l_dShare * 100.0))) + " %) " +
                         p_sState + ", " + Duration(l_dLeft) + " left";
    l_asLines.push_back(l_sBar);

    // Back to the first line of the last drawing, then each line anew.
    std::string l_sOut;
    if (m_nDrawn > 0) l_sOut += "\r\x1b[" + std::to_string(m_nDrawn) + "A";
    const std::size_t l_nWidth = static_cast<std::size_t>(TerminalWidth() - 1);
    for (std::string& l_sText : l_asLines) {
      if (l_sText.size() > l_nWidth) l_sText.resize(l_nWidth);
      l_sOut += "\r\x1b[2K" + l_sText + "\n";
    }
    for (std::size_t i = l_asLines.size(); i < m_nDrawn; ++i) l_sOut += "\r\x1b[2K\n";
    if (m_nDrawn > l_asLines.size())
      l_sOut += "\x1b[" + std::to_string(m_nDrawn - l_asLines.size()) + "A";
    m_nDrawn = l_asLines.size();
    std::cout << l_sOut << std::flush;
  }

 private:
  std::vector<std::string> m_asPlaces;
  std::size_t m_nDrawn = 0;
};

// Plain output: a header, then one line per output point as it comes.
class LineWriter {
 public:
  LineWriter(const std::vector<std::string>& p_asPlaces, bool p_bJson)
      : m_asPlaces(p_asPlaces), m_bJson(p_bJson) {}

  void Write(const Series& p_rSeries) {
    const std::size_t l_nPoints = p_rSeries.Points();
    if (l_nPoints < m_nWritten) m_nWritten = 0;  // a new run began
    if (!m_bJson && !m_bHeader) {
      std::cout << "time";
      for (const std::string& l_sPlace : m_asPlaces) std::cout << '\t' << l_sPlace;
      std::cout << '\n';
      m_bHeader = true;
    }
    for (; m_nWritten < l_nPoints; ++m_nWritten) {
      if (m_bJson) {
        Json l_cLine = Json::object();
        l_cLine["time"] = p_rSeries.times[m_nWritten];
        for (std::size_t i = 0; i < m_asPlaces.size(); ++i)
          l_cLine[m_asPlaces[i]] = p_rSeries.rows[i][m_nWritten];
        std::cout << l_cLine.dump() << '\n';
        continue;
      }
      std::cout << Number(p_rSeries.times[m_nWritten]);
      for (std::size_t i = 0; i < m_asPlaces.size(); ++i)
        std::cout << '\t' << Number(p_rSeries.rows[i][m_nWritten]);
      std::cout << '\n';
    }
    std::cout.flush();
  }

 private:
  std::vector<std::string> m_asPlaces;
  bool m_bJson;
  bool m_bHeader = false;
  std::size_t m_nWritten = 0;
};

}  // namespace

void RunWatch(Session& p_rSession, const Globals& p_rGlobals) {
  const std::vector<std::string> l_asPlaces = p_rSession.Names(keys::PLACE_NAMES);
  RunStatus l_cState = ReadState(p_rSession);
  int l_nState = l_cState.state;
  if (l_nState == SIMULATOR_IDLE)
    throw Failure(STATUS_FAILED, "model " + Quoted(p_rSession.ModelName()) +
                                     " has not run yet: nothing to watch (start it with "
                                     "'quor-steer start')");
  const bool l_bTerminal = ::isatty(STDOUT_FILENO) == 1 && !p_rGlobals.json;
  LiveView l_cLive(l_asPlaces);
  LineWriter l_cLines(l_asPlaces, p_rGlobals.json);
  for (;;) {
    // The state first: a run seen ended has published all its results.
    const bool l_bEnded = !IsRunActive(l_nState);
    double l_dFrom, l_dTo, l_dStep;
    if (!p_rSession.ReadInterval(l_dFrom, l_dTo, l_dStep))
      throw Failure(STATUS_FAILED, "the server sent no output interval");
    Series l_cSeries = ReadSeries(p_rSession, false);
    if (!p_rGlobals.quiet) {
      if (l_bTerminal)
        l_cLive.Draw(l_cSeries, l_dFrom, l_dTo, SimulatorStateName(l_nState),
                     l_cState.runtime, l_cState.progress);
      else
        l_cLines.Write(l_cSeries);
    }
    if (l_bEnded) {
      const std::string l_sEnd = "model " + Quoted(p_rSession.ModelName()) + ": run " +
                                 SimulatorStateName(l_nState) + " (" +
                                 std::to_string(l_cSeries.Points()) + " output points)";
      if (l_nState == SIMULATOR_FAILED) {
        std::vector<std::string> l_asWhy = p_rSession.EarlierMessages();
        for (const std::string& l_sLine : p_rSession.ReceiveMessages()) l_asWhy.push_back(l_sLine);
        std::string l_sText = l_sEnd;
        for (const std::string& l_sLine : l_asWhy) l_sText += "\n" + l_sLine;
        throw Failure(STATUS_FAILED, l_sText);
      }
      if (!p_rGlobals.quiet) std::cerr << l_sEnd << std::endl;
      return;
    }
    std::this_thread::sleep_for(l_bTerminal ? WATCH_POLL_TERMINAL : WATCH_POLL_LINES);
    l_cState = ReadState(p_rSession);
    l_nState = l_cState.state;
  }
}

// ---------------------------------------------------------------- plotting

namespace {

// The directory of p_sProgram on PATH; "" when it is not there.
std::string FindOnPath(const std::string& p_sProgram) {
  const char* l_sPath = std::getenv("PATH");
  std::istringstream l_cDirs(l_sPath == nullptr ? "" : l_sPath);
  std::string l_sDir;
  while (std::getline(l_cDirs, l_sDir, ':')) {
    const std::string l_sFile = (l_sDir.empty() ? "." : l_sDir) + "/" + p_sProgram;
    if (::access(l_sFile.c_str(), X_OK) == 0) return l_sFile;
  }
  return "";
}

// A gnuplot string literal in single quotes (a quote is doubled).
std::string GnuplotString(const std::string& p_sText) {
  std::string l_sQuoted = "'";
  for (char l_c : p_sText) {
    if (l_c == '\'') l_sQuoted += '\'';
    l_sQuoted += l_c;
  }
  return l_sQuoted + "'";
}

bool EndsWith(const std::string& p_sText, const std::string& p_sEnd) {
  return p_sText.size() >= p_sEnd.size() &&
         p_sText.compare(p_sText.size() - p_sEnd.size(), p_sEnd.size(), p_sEnd) == 0;
}

// Runs gnuplot with p_sScript on its stdin; its messages go to our stderr.
void RunGnuplot(const std::string& p_sProgram, const std::string& p_sScript) {
  int l_anPipe[2];
  if (::pipe(l_anPipe) != 0) throw Failure(STATUS_FAILED, "cannot start gnuplot: no pipe");
  const pid_t l_nPid = ::fork();
  if (l_nPid < 0) {
    ::close(l_anPipe[0]);
    ::close(l_anPipe[1]);
    throw Failure(STATUS_FAILED, "cannot start gnuplot: fork failed");
  }
  if (l_nPid == 0) {
    ::dup2(l_anPipe[0], STDIN_FILENO);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    ::close(l_anPipe[0]);
    ::close(l_anPipe[1]);
    ::execl(p_sProgram.c_str(), "gnuplot", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(l_anPipe[0]);
  std::size_t l_nDone = 0;
  while (l_nDone < p_sScript.size()) {
    const ssize_t l_nWritten = ::write(l_anPipe[1], p_sScript.data() + l_nDone, p_sScript.size() - l_nDone);
    if (l_nWritten < 0 && errno == EINTR) continue;
    if (l_nWritten <= 0) break;
    l_nDone += static_cast<std::size_t>(l_nWritten);
  }
  ::close(l_anPipe[1]);
  int l_nStatus = 0;
  while (::waitpid(l_nPid, &l_nStatus, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(l_nStatus) || WEXITSTATUS(l_nStatus) != 0)
    throw Failure(STATUS_FAILED, "gnuplot failed (its messages are above)");
}

// A temporary file, removed with the object.
class TempFile {
 public:
  TempFile() {
    const char* l_sDir = std::getenv("TMPDIR");
    std::string l_sPattern = std::string(l_sDir != nullptr && *l_sDir ? l_sDir : "/tmp") +
                             "/quor-steer-XXXXXX";
    std::vector<char> l_acPath(l_sPattern.begin(), l_sPattern.end());
    l_acPath.push_back('\0');
    const int l_nFd = ::mkstemp(l_acPath.data());
    if (l_nFd < 0) throw Failure(STATUS_FAILED, "cannot make a temporary file for gnuplot");
    ::close(l_nFd);
    m_sPath = l_acPath.data();
  }
  ~TempFile() { std::remove(m_sPath.c_str()); }
  const std::string& Path() const { return m_sPath; }

 private:
  std::string m_sPath;
};

}  // namespace

void RunPlot(Session& p_rSession, const Globals& p_rGlobals, const SeriesOptions& p_rOptions) {
  const std::string l_sOutput = p_rOptions.output.empty() ? "results.png" : p_rOptions.output;
  const bool l_bSvg = EndsWith(l_sOutput, ".svg");
  if (!l_bSvg && !EndsWith(l_sOutput, ".png"))
    throw Failure(STATUS_USAGE, "-o " + l_sOutput + ": the file must end in .png or .svg");
  const std::string l_sGnuplot = FindOnPath("gnuplot");
  if (l_sGnuplot.empty())
    throw Failure(STATUS_FAILED,
                  "gnuplot is not installed; plot needs it (Debian: apt-get install gnuplot-nox)");

  Series l_cSeries = ReadSeries(p_rSession, false);
  std::vector<std::size_t> l_anRows;
  for (const std::string& l_sPlace : p_rOptions.names)
    l_anRows.push_back(FindName(PLACE, l_cSeries.names, l_sPlace));
  if (l_anRows.empty())
    for (std::size_t i = 0; i < l_cSeries.names.size(); ++i) l_anRows.push_back(i);
  const std::size_t l_nPoints = l_cSeries.Points();
  if (l_nPoints == 0)
    throw Failure(STATUS_FAILED, "model " + Quoted(p_rSession.ModelName()) + " has no results to plot");

  TempFile l_cData;
  {
    std::ofstream l_cFile(l_cData.Path().c_str());
    for (std::size_t c = 0; c < l_nPoints; ++c) {
      l_cFile << Number(l_cSeries.times[c]);
      for (std::size_t l_nRow : l_anRows) l_cFile << '\t' << Number(l_cSeries.rows[l_nRow][c]);
      l_cFile << '\n';
    }
    if (!l_cFile) throw Failure(STATUS_FAILED, "cannot write the data for gnuplot");
  }
  std::ostringstream l_cScript;
  l_cScript << "set terminal " << (l_bSvg ? "svg" : "pngcairo") << " size 960,600\n"
            << "set output " << GnuplotString(l_sOutput) << "\n"
            << "set title " << GnuplotString(p_rSession.ModelName()) << " noenhanced\n"
            << "set xlabel 'time'\nset ylabel 'marking'\nset key outside right noenhanced\n"
            << "set grid\n"
            << "plot ";
  for (std::size_t i = 0; i < l_anRows.size(); ++i)
    l_cScript << (i == 0 ? "" : ", ") << GnuplotString(l_cData.Path()) << " using 1:" << (i + 2)
              << " with lines lw 2 title " << GnuplotString(l_cSeries.names[l_anRows[i]]);
  l_cScript << "\nset output\n";
  RunGnuplot(l_sGnuplot, l_cScript.str());
  Say(p_rGlobals, "wrote " + l_sOutput);
}

}  // namespace steer
}  // namespace quor
