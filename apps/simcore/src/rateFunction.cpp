// SPDX-License-Identifier: MIT
#include "simcore/rateFunction.h"

#include <muParser.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <deque>
#include <set>
#include <unordered_map>

namespace quor {
namespace sim {

namespace {

// The name of the time in a rate function.
const char* const kTimeName = "t";

double Pow(double p_dBase, double p_dExponent) { return std::pow(p_dBase, p_dExponent); }

// Michaelis-Menten: mm(S, Vmax, Km) = Vmax S / (Km + S).
double MichaelisMenten(double p_dS, double p_dVmax, double p_dKm) {
  return p_dVmax * p_dS / (p_dKm + p_dS);
}

// Hill: hill(S, Vmax, K, n) = Vmax S^n / (K^n + S^n).
double Hill(double p_dS, double p_dVmax, double p_dK, double p_dN) {
  const double l_dSn = std::pow(p_dS, p_dN);
  return p_dVmax * l_dSn / (std::pow(p_dK, p_dN) + l_dSn);
}

double Floor(double p_dValue) { return std::floor(p_dValue); }
double Ceil(double p_dValue) { return std::ceil(p_dValue); }

// Our functions on top of muParser's own.
void DefineFunctions(mu::Parser& p_rParser) {
  p_rParser.DefineFun("pow", Pow);
  p_rParser.DefineFun("floor", Floor);
  p_rParser.DefineFun("ceil", Ceil);
  p_rParser.DefineFun("mm", MichaelisMenten);
  p_rParser.DefineFun("hill", Hill);
}

bool IsIdentifier(const std::string& p_sName) {
  if (p_sName.empty()) return false;
  const unsigned char l_cFirst = static_cast<unsigned char>(p_sName[0]);
  if (!(std::isalpha(l_cFirst) || l_cFirst == '_')) return false;
  for (char l_cChar : p_sName) {
    const unsigned char l_cByte = static_cast<unsigned char>(l_cChar);
    if (l_cByte >= 0x80 || !(std::isalnum(l_cByte) || l_cByte == '_')) return false;
  }
  return true;
}

// The names the syntax takes: the time, the functions and the constants.
const std::set<std::string>& ReservedNames() {
  static const std::set<std::string> s_asNames = [] {
    std::set<std::string> l_asNames;
    mu::Parser l_cParser;
    DefineFunctions(l_cParser);
    for (const auto& l_rFunction : l_cParser.GetFunDef()) l_asNames.insert(l_rFunction.first);
    for (const auto& l_rConstant : l_cParser.GetConst()) l_asNames.insert(l_rConstant.first);
    l_asNames.insert(kTimeName);
    return l_asNames;
  }();
  return s_asNames;
}

void SetError(std::string* p_psError, const std::string& p_sMessage) {
  if (p_psError) *p_psError = p_sMessage;
}

}  // namespace

bool IsPlainName(const std::string& p_sName) {
  return IsIdentifier(p_sName) && ReservedNames().count(p_sName) == 0;
}

std::string WriteName(const std::string& p_sName) {
  return IsPlainName(p_sName) ? p_sName : "[" + p_sName + "]";
}

// Positions of places and parameters by name.
struct RateSymbols::Table {
  std::unordered_map<std::string, std::vector<std::size_t>> places;
  std::unordered_map<std::string, std::size_t> parameters;
};

RateSymbols::RateSymbols(const Net& p_rNet) : m_pcTable(new Table) {
  for (std::size_t i = 0; i < p_rNet.places.size(); ++i)
    m_pcTable->places[p_rNet.places[i].name].push_back(i);
  for (std::size_t i = 0; i < p_rNet.parameters.size(); ++i)
    m_pcTable->parameters.emplace(p_rNet.parameters[i].name, i);
}

RateSymbols::~RateSymbols() = default;

// What a variable of the parser stands for.
struct Source {
  enum Kind { PLACE, PARAMETER, TIME } kind;
  std::size_t index;
};

struct RateFunction::Impl {
  mu::Parser parser;
  // The parser's variables: pointers into a deque stay valid as it grows.
  std::deque<double> slots;
  std::vector<Source> sources;  // one per slot
  std::vector<double*> targets; // &slots[i], for quick access

  // While compiling.
  const RateSymbols::Table* table = nullptr;
  std::unordered_map<std::string, std::string> bracketed;  // stand-in -> name
  std::string error;
  double unknown = 0.0;  // the variable of names that resolve to nothing

  double* Resolve(const std::string& p_sToken);
};

double* RateFunction::Impl::Resolve(const std::string& p_sToken) {
  std::string l_sName = p_sToken;
  std::unordered_map<std::string, std::string>::const_iterator l_itBracket =
      bracketed.find(p_sToken);
  if (l_itBracket != bracketed.end()) {
    l_sName = l_itBracket->second;
  } else if (p_sToken == kTimeName) {
    slots.push_back(0.0);
    sources.push_back(Source{Source::TIME, 0});
    return &slots.back();
  }
  auto l_itPlaces = table->places.find(l_sName);
  auto l_itParameter = table->parameters.find(l_sName);
  const std::size_t l_nPlaces = l_itPlaces == table->places.end() ? 0 : l_itPlaces->second.size();
  const bool l_bParameter = l_itParameter != table->parameters.end();
  Source l_cSource{Source::PLACE, 0};
  if (l_bParameter && l_nPlaces > 0) {
    if (error.empty())
      error = "the name '" + l_sName + "' is both a place and a parameter";
    return &unknown;
  }
  if (l_nPlaces > 1) {
    if (error.empty())
      error = "the name '" + l_sName + "' is shared by " + std::to_string(l_nPlaces) + " places";
    return &unknown;
  }
  if (l_bParameter) {
    l_cSource = Source{Source::PARAMETER, l_itParameter->second};
  } else if (l_nPlaces == 1) {
    l_cSource = Source{Source::PLACE, l_itPlaces->second.front()};
  } else {
    if (error.empty()) error = "unknown name '" + l_sName + "'";
    return &unknown;
  }
  slots.push_back(0.0);
  sources.push_back(l_cSource);
  return &slots.back();
}

namespace {

// Replaces every stand-in in a parser message by the bracketed name.
std::string Restore(std::string p_sMessage,
                    const std::unordered_map<std::string, std::string>& p_rBracketed) {
  for (const auto& l_rEntry : p_rBracketed) {
    std::size_t l_nAt = 0;
    while ((l_nAt = p_sMessage.find(l_rEntry.first, l_nAt)) != std::string::npos) {
      const std::string l_sWritten = "[" + l_rEntry.second + "]";
      p_sMessage.replace(l_nAt, l_rEntry.first.size(), l_sWritten);
      l_nAt += l_sWritten.size();
    }
  }
  return p_sMessage;
}

}  // namespace

RateFunction::RateFunction() : m_pcImpl(new Impl) {}
RateFunction::~RateFunction() = default;

std::unique_ptr<RateFunction> RateFunction::Compile(const std::string& p_sText,
                                                    const RateSymbols& p_rSymbols,
                                                    std::string* p_psError) {
  if (p_sText.find_first_not_of(" \t\r\n") == std::string::npos) {
    SetError(p_psError, "the rate function is empty");
    return nullptr;
  }
  std::unique_ptr<RateFunction> l_pcFunction(new RateFunction);
  l_pcFunction->m_sText = p_sText;
  Impl& l_rImpl = *l_pcFunction->m_pcImpl;
  l_rImpl.table = p_rSymbols.m_pcTable.get();

  // Bracketed names become identifiers of the same length where possible,
  // so that positions in the parser's messages still fit the text.
  std::string l_sExpression;
  for (std::size_t i = 0; i < p_sText.size(); ++i) {
    const char l_cChar = p_sText[i];
    if (l_cChar == ']') {
      SetError(p_psError, "a ']' without '[' at position " + std::to_string(i));
      return nullptr;
    }
    if (l_cChar != '[') {
      l_sExpression += l_cChar;
      continue;
    }
    const std::size_t l_nClose = p_sText.find(']', i + 1);
    if (l_nClose == std::string::npos) {
      SetError(p_psError, "the '[' at position " + std::to_string(i) + " has no closing ']'");
      return nullptr;
    }
    const std::string l_sName = p_sText.substr(i + 1, l_nClose - i - 1);
    if (l_sName.empty()) {
      SetError(p_psError, "an empty name '[]' at position " + std::to_string(i));
      return nullptr;
    }
    std::string l_sStandIn = "_" + std::to_string(l_rImpl.bracketed.size());
    while (l_sStandIn.size() < l_sName.size() + 2) l_sStandIn += '_';
    while (l_rImpl.bracketed.count(l_sStandIn) || l_rImpl.table->places.count(l_sStandIn) ||
           l_rImpl.table->parameters.count(l_sStandIn) || ReservedNames().count(l_sStandIn))
      l_sStandIn += '_';
    l_rImpl.bracketed[l_sStandIn] = l_sName;
    l_sExpression += l_sStandIn;
    i = l_nClose;
  }

  try {
    DefineFunctions(l_rImpl.parser);
    // Every name of the text comes here once, when the parser meets it.
    l_rImpl.parser.SetVarFactory(
        [](const char* p_sName, void* p_pUserData) {
          return static_cast<Impl*>(p_pUserData)->Resolve(p_sName);
        },
        &l_rImpl);
    l_rImpl.parser.SetExpr(l_sExpression);
    l_rImpl.parser.Eval();  // parses
    if (!l_rImpl.error.empty()) {
      SetError(p_psError, l_rImpl.error);
      return nullptr;
    }
  } catch (const mu::Parser::exception_type& l_rError) {
    // An unknown name explains a parse error better than the parser does
    // (a function it does not know is "an unexpected parenthesis").
    SetError(p_psError, !l_rImpl.error.empty() ? l_rImpl.error
                                               : Restore(l_rError.GetMsg(), l_rImpl.bracketed));
    return nullptr;
  } catch (const std::exception& l_rError) {
    SetError(p_psError, std::string("the rate function cannot be read: ") + l_rError.what());
    return nullptr;
  }
  l_rImpl.table = nullptr;
  for (double& l_rSlot : l_rImpl.slots) l_rImpl.targets.push_back(&l_rSlot);
  std::set<std::size_t> l_anPlaces, l_anParameters;
  for (const Source& l_rSource : l_rImpl.sources) {
    if (l_rSource.kind == Source::PLACE) l_anPlaces.insert(l_rSource.index);
    if (l_rSource.kind == Source::PARAMETER) l_anParameters.insert(l_rSource.index);
    if (l_rSource.kind == Source::TIME) l_pcFunction->m_bUsesTime = true;
  }
  l_pcFunction->m_anPlaces.assign(l_anPlaces.begin(), l_anPlaces.end());
  l_pcFunction->m_anParameters.assign(l_anParameters.begin(), l_anParameters.end());
  return l_pcFunction;
}

std::unique_ptr<RateFunction> CompileTransitionRate(const Transition& p_rTransition,
                                                    const RateSymbols& p_rSymbols,
                                                    std::string* p_psError) {
  std::string l_sProblem;
  std::unique_ptr<RateFunction> l_pcFunction =
      RateFunction::Compile(p_rTransition.function, p_rSymbols, &l_sProblem);
  if (!l_pcFunction)
    SetError(p_psError, p_rTransition.Describe() + ": " + l_sProblem + " in the rate function '" +
                            p_rTransition.function + "'");
  return l_pcFunction;
}

double RateFunction::Evaluate(const double* p_pdMarking, const double* p_pdParameters,
                              double p_dTime) const {
  Impl& l_rImpl = *m_pcImpl;
  const std::size_t l_nSlots = l_rImpl.sources.size();
  for (std::size_t i = 0; i < l_nSlots; ++i) {
    const Source& l_rSource = l_rImpl.sources[i];
    switch (l_rSource.kind) {
      case Source::PLACE: *l_rImpl.targets[i] = std::max(p_pdMarking[l_rSource.index], 0.0); break;
      case Source::PARAMETER: *l_rImpl.targets[i] = p_pdParameters[l_rSource.index]; break;
      case Source::TIME: *l_rImpl.targets[i] = p_dTime; break;
    }
  }
  try {
    return l_rImpl.parser.Eval();
  } catch (...) {
    return std::nan("");
  }
}

}  // namespace sim
}  // namespace quor
