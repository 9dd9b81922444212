// SPDX-License-Identifier: MIT
#include "simcore/sbmlLoader.h"

#include <sbml/SBMLTypes.h>
#include <sbml/conversion/ConversionProperties.h>
#include <sbml/extension/SBasePlugin.h>

#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "simcore/rateFunction.h"
#include "simcore/textNumbers.h"

namespace quor {
namespace sim {

namespace {

// How tightly an expression binds, for the parentheses that the rate
// function syntax needs: an operand binding less than its operator is
// put in parentheses.
enum Binding { kCondition, kOr, kAnd, kRelation, kSum, kProduct, kNegation, kPower, kAtom };

struct Printed {
  std::string text;
  Binding binding = kAtom;
};

std::string Wrapped(const Printed& p_rPrinted, Binding p_eAtLeast) {
  return p_rPrinted.binding < p_eAtLeast ? "(" + p_rPrinted.text + ")" : p_rPrinted.text;
}

// Writes SBML math as a rate function. Names go through the caller's
// function, which may refuse them; so does math without an equivalent.
class MathWriter {
 public:
  typedef std::function<bool(const std::string&, Printed&, std::string&)> NameWriter;

  explicit MathWriter(NameWriter p_fNames) : m_fNames(std::move(p_fNames)) {}

  bool Write(const ::ASTNode* p_pcNode, Printed& p_rOut, std::string& p_rsError) const;
  // A difference kf - kr (also times or divided by other factors) as its
  // two terms; false when the law has no such form.
  bool Split(const ::ASTNode* p_pcNode, Printed& p_rForward, Printed& p_rBackward,
             std::string& p_rsError, bool& p_rbFailed) const;

 private:
  bool Operands(const ::ASTNode* p_pcNode, std::vector<Printed>& p_rOut,
                std::string& p_rsError) const;
  bool Join(const ::ASTNode* p_pcNode, const char* p_sOperator, Binding p_eBinding,
            bool p_bAssociative, Printed& p_rOut, std::string& p_rsError) const;
  bool Call(const ::ASTNode* p_pcNode, const char* p_sFunction, unsigned int p_nArguments,
            Printed& p_rOut, std::string& p_rsError) const;
  NameWriter m_fNames;
};

bool MathWriter::Operands(const ::ASTNode* p_pcNode, std::vector<Printed>& p_rOut,
                          std::string& p_rsError) const {
  p_rOut.assign(p_pcNode->getNumChildren(), Printed());
  for (unsigned int i = 0; i < p_pcNode->getNumChildren(); ++i)
    if (!Write(p_pcNode->getChild(i), p_rOut[i], p_rsError)) return false;
  return true;
}

bool MathWriter::Join(const ::ASTNode* p_pcNode, const char* p_sOperator, Binding p_eBinding,
                      bool p_bAssociative, Printed& p_rOut, std::string& p_rsError) const {
  std::vector<Printed> l_acOperands;
  if (!Operands(p_pcNode, l_acOperands, p_rsError)) return false;
  if (l_acOperands.empty()) {
    p_rsError = std::string("an operator '") + p_sOperator + "' without operands";
    return false;
  }
  p_rOut.text.clear();
  for (std::size_t i = 0; i < l_acOperands.size(); ++i) {
    // The right operand of - and / binds tighter: a - (b - c).
    const Binding l_eNeeded =
        (i == 0 || p_bAssociative) ? p_eBinding : static_cast<Binding>(p_eBinding + 1);
    if (i > 0) p_rOut.text += std::string(" ") + p_sOperator + " ";
    p_rOut.text += Wrapped(l_acOperands[i], l_eNeeded);
  }
  p_rOut.binding = l_acOperands.size() == 1 ? l_acOperands[0].binding : p_eBinding;
  return true;
}

bool MathWriter::Call(const ::ASTNode* p_pcNode, const char* p_sFunction,
                      unsigned int p_nArguments, Printed& p_rOut, std::string& p_rsError) const {
  std::vector<Printed> l_acOperands;
  if (!Operands(p_pcNode, l_acOperands, p_rsError)) return false;
  if (p_nArguments > 0 && l_acOperands.size() != p_nArguments) {
    p_rsError = std::string("'") + p_sFunction + "' with " + std::to_string(l_acOperands.size()) +
                " arguments";
    return false;
  }
  p_rOut.text = std::string(p_sFunction) + "(";
  for (std::size_t i = 0; i < l_acOperands.size(); ++i)
    p_rOut.text += (i ? ", " : "") + l_acOperands[i].text;
  p_rOut.text += ")";
  p_rOut.binding = kAtom;
  return true;
}

bool MathWriter::Write(const ::ASTNode* p_pcNode, Printed& p_rOut, std::string& p_rsError) const {
  if (p_pcNode == nullptr) {
    p_rsError = "missing math";
    return false;
  }
  std::vector<Printed> x;
  switch (p_pcNode->getType()) {
    case AST_INTEGER:
    case AST_REAL:
    case AST_REAL_E:
    case AST_RATIONAL: {
      const double l_dValue = p_pcNode->isInteger() ? static_cast<double>(p_pcNode->getInteger())
                                                    : p_pcNode->getReal();
      if (!std::isfinite(l_dValue)) {
        p_rsError = "the number " + FormatDouble(l_dValue);
        return false;
      }
      p_rOut.text = FormatDouble(l_dValue);
      p_rOut.binding = l_dValue < 0.0 ? kNegation : kAtom;
      return true;
    }
    case AST_NAME:
      return m_fNames(p_pcNode->getName() ? p_pcNode->getName() : "", p_rOut, p_rsError);
    case AST_NAME_TIME:
      p_rOut = Printed{"t", kAtom};
      return true;
    case AST_NAME_AVOGADRO:
      p_rOut = Printed{FormatDouble(p_pcNode->getReal()), kAtom};
      return true;
    case AST_CONSTANT_E: p_rOut = Printed{"_e", kAtom}; return true;
    case AST_CONSTANT_PI: p_rOut = Printed{"_pi", kAtom}; return true;
    case AST_CONSTANT_TRUE: p_rOut = Printed{"1", kAtom}; return true;
    case AST_CONSTANT_FALSE: p_rOut = Printed{"0", kAtom}; return true;
    case AST_PLUS:
      if (p_pcNode->getNumChildren() == 0) {
        p_rOut = Printed{"0", kAtom};
        return true;
      }
      return Join(p_pcNode, "+", kSum, true, p_rOut, p_rsError);
    case AST_TIMES:
      if (p_pcNode->getNumChildren() == 0) {
        p_rOut = Printed{"1", kAtom};
        return true;
      }
      return Join(p_pcNode, "*", kProduct, true, p_rOut, p_rsError);
    case AST_MINUS:
      if (p_pcNode->getNumChildren() == 1) {
        if (!Operands(p_pcNode, x, p_rsError)) return false;
        p_rOut = Printed{"-" + Wrapped(x[0], kPower), kNegation};
        return true;
      }
      return Join(p_pcNode, "-", kSum, false, p_rOut, p_rsError);
    case AST_DIVIDE:
      return Join(p_pcNode, "/", kProduct, false, p_rOut, p_rsError);
    case AST_POWER:
    case AST_FUNCTION_POWER:
      if (!Operands(p_pcNode, x, p_rsError)) return false;
      if (x.size() != 2) {
        p_rsError = "a power with " + std::to_string(x.size()) + " operands";
        return false;
      }
      p_rOut = Printed{Wrapped(x[0], kAtom) + "^" + Wrapped(x[1], kAtom), kPower};
      return true;
    case AST_FUNCTION_ROOT:
      if (!Operands(p_pcNode, x, p_rsError)) return false;
      if (x.size() == 1) {
        p_rOut = Printed{"sqrt(" + x[0].text + ")", kAtom};
      } else if (x.size() == 2) {
        p_rOut = Printed{Wrapped(x[1], kAtom) + "^(1 / " + Wrapped(x[0], kPower) + ")", kPower};
      } else {
        p_rsError = "a root with " + std::to_string(x.size()) + " operands";
        return false;
      }
      return true;
    case AST_FUNCTION_LOG:
      if (!Operands(p_pcNode, x, p_rsError)) return false;
      if (x.size() == 1) {
        p_rOut = Printed{"log10(" + x[0].text + ")", kAtom};
      } else if (x.size() == 2) {
        p_rOut = Printed{"log(" + x[1].text + ") / log(" + x[0].text + ")", kProduct};
      } else {
        p_rsError = "a logarithm with " + std::to_string(x.size()) + " operands";
        return false;
      }
      return true;
    case AST_FUNCTION_ABS: return Call(p_pcNode, "abs", 1, p_rOut, p_rsError);
    case AST_FUNCTION_EXP: return Call(p_pcNode, "exp", 1, p_rOut, p_rsError);
    case AST_FUNCTION_LN: return Call(p_pcNode, "log", 1, p_rOut, p_rsError);
    case AST_FUNCTION_FLOOR: return Call(p_pcNode, "floor", 1, p_rOut, p_rsError);
    case AST_FUNCTION_CEILING: return Call(p_pcNode, "ceil", 1, p_rOut, p_rsError);
    case AST_FUNCTION_SIN: return Call(p_pcNode, "sin", 1, p_rOut, p_rsError);
    case AST_FUNCTION_COS: return Call(p_pcNode, "cos", 1, p_rOut, p_rsError);
    case AST_FUNCTION_TAN: return Call(p_pcNode, "tan", 1, p_rOut, p_rsError);
    case AST_FUNCTION_SINH: return Call(p_pcNode, "sinh", 1, p_rOut, p_rsError);
    case AST_FUNCTION_COSH: return Call(p_pcNode, "cosh", 1, p_rOut, p_rsError);
    case AST_FUNCTION_TANH: return Call(p_pcNode, "tanh", 1, p_rOut, p_rsError);
    case AST_FUNCTION_ARCSIN: return Call(p_pcNode, "asin", 1, p_rOut, p_rsError);
    case AST_FUNCTION_ARCCOS: return Call(p_pcNode, "acos", 1, p_rOut, p_rsError);
    case AST_FUNCTION_ARCTAN: return Call(p_pcNode, "atan", 1, p_rOut, p_rsError);
    case AST_FUNCTION_ARCSINH: return Call(p_pcNode, "asinh", 1, p_rOut, p_rsError);
    case AST_FUNCTION_ARCCOSH: return Call(p_pcNode, "acosh", 1, p_rOut, p_rsError);
    case AST_FUNCTION_ARCTANH: return Call(p_pcNode, "atanh", 1, p_rOut, p_rsError);
    case AST_FUNCTION_SEC:
    case AST_FUNCTION_CSC:
    case AST_FUNCTION_COT: {
      const ::ASTNodeType_t l_eType = p_pcNode->getType();
      const char* l_sInverse = l_eType == AST_FUNCTION_SEC ? "cos" : l_eType == AST_FUNCTION_CSC ? "sin" : "tan";
      if (!Call(p_pcNode, l_sInverse, 1, p_rOut, p_rsError)) return false;
      p_rOut = Printed{"1 / " + p_rOut.text, kProduct};
      return true;
    }
    case AST_FUNCTION_MAX: return Call(p_pcNode, "max", 0, p_rOut, p_rsError);
    case AST_FUNCTION_MIN: return Call(p_pcNode, "min", 0, p_rOut, p_rsError);
    case AST_RELATIONAL_EQ:
    case AST_RELATIONAL_NEQ:
    case AST_RELATIONAL_GT:
    case AST_RELATIONAL_GEQ:
    case AST_RELATIONAL_LT:
    case AST_RELATIONAL_LEQ: {
      const ::ASTNodeType_t l_eType = p_pcNode->getType();
      const char* l_sOperator = l_eType == AST_RELATIONAL_EQ    ? "=="
                                : l_eType == AST_RELATIONAL_NEQ ? "!="
                                : l_eType == AST_RELATIONAL_GT  ? ">"
                                : l_eType == AST_RELATIONAL_GEQ ? ">="
                                : l_eType == AST_RELATIONAL_LT  ? "<"
                                                                : "<=";
      if (!Operands(p_pcNode, x, p_rsError)) return false;
      if (x.size() < 2) {
        p_rsError = std::string("a comparison '") + l_sOperator + "' with fewer than two operands";
        return false;
      }
      // a < b < c: a < b && b < c.
      std::string l_sText;
      for (std::size_t i = 0; i + 1 < x.size(); ++i)
        l_sText += (i ? " && " : "") + Wrapped(x[i], kSum) + " " + l_sOperator + " " +
                   Wrapped(x[i + 1], kSum);
      p_rOut = Printed{l_sText, x.size() > 2 ? kAnd : kRelation};
      return true;
    }
    case AST_LOGICAL_AND:
      if (p_pcNode->getNumChildren() == 0) {
        p_rOut = Printed{"1", kAtom};
        return true;
      }
      return Join(p_pcNode, "&&", kAnd, true, p_rOut, p_rsError);
    case AST_LOGICAL_OR:
      if (p_pcNode->getNumChildren() == 0) {
        p_rOut = Printed{"0", kAtom};
        return true;
      }
      return Join(p_pcNode, "||", kOr, true, p_rOut, p_rsError);
    case AST_LOGICAL_NOT:
      if (!Operands(p_pcNode, x, p_rsError)) return false;
      if (x.size() != 1) {
        p_rsError = "'not' with " + std::to_string(x.size()) + " operands";
        return false;
      }
      p_rOut = Printed{Wrapped(x[0], kSum) + " == 0", kRelation};
      return true;
    case AST_LOGICAL_XOR:
      if (!Operands(p_pcNode, x, p_rsError)) return false;
      if (x.size() != 2) {
        p_rsError = "'xor' with " + std::to_string(x.size()) + " operands";
        return false;
      }
      p_rOut = Printed{"(" + Wrapped(x[0], kSum) + " != 0) != (" + Wrapped(x[1], kSum) + " != 0)",
                       kRelation};
      return true;
    case AST_FUNCTION_PIECEWISE: {
      if (!Operands(p_pcNode, x, p_rsError)) return false;
      // value1, condition1, value2, condition2, ..., [otherwise]; without an
      // otherwise the value is undefined (not a number: the run stops).
      std::string l_sText = x.size() % 2 == 1 ? Wrapped(x.back(), kCondition) : "0 / 0";
      for (std::size_t i = x.size() / 2; i-- > 0;)
        l_sText = "(" + Wrapped(x[2 * i + 1], kOr) + " ? " + Wrapped(x[2 * i], kOr) + " : " +
                  l_sText + ")";
      p_rOut = Printed{l_sText, kAtom};
      return true;
    }
    case AST_FUNCTION_DELAY:
      p_rsError = "a delay";
      return false;
    case AST_FUNCTION_RATE_OF:
      p_rsError = "rateOf";
      return false;
    case AST_FUNCTION:
      p_rsError = std::string("the function '") + (p_pcNode->getName() ? p_pcNode->getName() : "") +
                  "', which is not defined";
      return false;
    default: {
      const char* l_sName = p_pcNode->getName();
      p_rsError = std::string("'") + (l_sName ? l_sName : "(unnamed)") +
                  "', which has no equivalent in rate functions";
      return false;
    }
  }
}

bool MathWriter::Split(const ::ASTNode* p_pcNode, Printed& p_rForward, Printed& p_rBackward,
                       std::string& p_rsError, bool& p_rbFailed) const {
  p_rbFailed = false;
  const ::ASTNodeType_t l_eType = p_pcNode->getType();
  if (l_eType == AST_MINUS && p_pcNode->getNumChildren() == 2) {
    p_rbFailed = !Write(p_pcNode->getChild(0), p_rForward, p_rsError) ||
                 !Write(p_pcNode->getChild(1), p_rBackward, p_rsError);
    return !p_rbFailed;
  }
  if (l_eType == AST_TIMES || l_eType == AST_DIVIDE) {
    // One operand (the numerator of a quotient) splits, the others are
    // factors of both terms.
    const unsigned int l_nCandidates = l_eType == AST_DIVIDE ? 1 : p_pcNode->getNumChildren();
    for (unsigned int i = 0; i < l_nCandidates; ++i) {
      Printed l_cForward, l_cBackward;
      if (!Split(p_pcNode->getChild(i), l_cForward, l_cBackward, p_rsError, p_rbFailed)) {
        if (p_rbFailed) return false;
        continue;
      }
      std::string l_sFactors;
      bool l_bDivide = false;
      for (unsigned int j = 0; j < p_pcNode->getNumChildren(); ++j) {
        if (j == i) continue;
        Printed l_cFactor;
        if (!Write(p_pcNode->getChild(j), l_cFactor, p_rsError)) {
          p_rbFailed = true;
          return false;
        }
        l_bDivide = l_eType == AST_DIVIDE;
        l_sFactors += (l_bDivide ? " / " : " * ") + Wrapped(l_cFactor, l_bDivide ? kNegation : kProduct);
      }
      p_rForward = Printed{Wrapped(l_cForward, kProduct) + l_sFactors, kProduct};
      p_rBackward = Printed{Wrapped(l_cBackward, kProduct) + l_sFactors, kProduct};
      return true;
    }
  }
  return false;
}

class SbmlReader {
 public:
  explicit SbmlReader(const std::string& p_sSource) : m_sSource(p_sSource) {}
  NetLoadResult Read(const std::string& p_sDocument);

 private:
  bool Fail(const ::SBase* p_pcWhere, const std::string& p_sMessage) {
    if (m_sError.empty())
      m_sError = LoadError(m_sSource, p_pcWhere ? static_cast<long>(p_pcWhere->getLine()) : 0,
                           p_sMessage);
    return false;
  }
  // "'id'", or the position when an element has no id.
  static std::string Named(const ::SBase* p_pcElement, const char* p_sKind, unsigned int p_nIndex) {
    // The id attribute itself (getId() of a rule is its variable).
    if (p_pcElement->isSetIdAttribute())
      return std::string(p_sKind) + " '" + p_pcElement->getIdAttribute() + "'";
    if (p_pcElement->isSetMetaId())
      return std::string(p_sKind) + " with the metaid '" + p_pcElement->getMetaId() + "'";
    return std::string(p_sKind) + " number " + std::to_string(p_nIndex + 1);
  }

  bool CheckDocument(::SBMLDocument& p_rDocument);
  bool CheckConstructs();
  bool ReadCompartments();
  bool ReadSpecies();
  bool ReadParameters();
  bool ReadReactions();
  bool ReadReaction(const ::Reaction& p_rReaction);
  // The name of a parameter for p_sWanted that no other name of the net has.
  std::string FreeName(const std::string& p_sWanted) const;
  bool WriteName(const std::string& p_sName, const std::map<std::string, std::string>& p_rLocal,
                 std::set<std::string>& p_rInlining, Printed& p_rOut, std::string& p_rsError) const;

  std::string m_sSource;
  std::string m_sError;
  Net m_cNet;
  const ::Model* m_pcModel = nullptr;
  std::map<std::string, const ::Species*> m_mSpecies;
  std::map<std::string, const ::Compartment*> m_mCompartments;  // that became parameters
  std::map<std::string, const ::ASTNode*> m_mAssigned;           // parameter -> its rule's math
  std::set<std::string> m_asOtherIds;  // reactions and species references: no values
};

bool SbmlReader::CheckDocument(::SBMLDocument& p_rDocument) {
  for (unsigned int i = 0; i < p_rDocument.getNumErrors(); ++i) {
    const ::SBMLError* l_pcError = p_rDocument.getError(i);
    // An XML declaration without encoding is UTF-8 by the XML standard;
    // libsbml wants it said, editors often leave it out.
    if (l_pcError->getSeverity() < LIBSBML_SEV_ERROR || l_pcError->getErrorId() == MissingXMLEncoding)
      continue;
    m_sError = LoadError(m_sSource, static_cast<long>(l_pcError->getLine()),
                         "not a usable SBML document: " + Trim(l_pcError->getMessage()));
    return false;
  }
  if (p_rDocument.getLevel() < 2 || p_rDocument.getLevel() > 3)
    return Fail(nullptr, "SBML Level " + std::to_string(p_rDocument.getLevel()) +
                             " is not supported (Levels 2 and 3 are)");
  // Level 3 packages that the model requires. (libsbml also enables some
  // on its own: layout and render in Level 2 annotations, the extended
  // math of Level 3 Version 2 under the core's namespace; none of them
  // is a package the file asks for.)
  const std::string l_sCore = p_rDocument.getSBMLNamespaces()->getURI();
  for (unsigned int i = 0; p_rDocument.getLevel() == 3 && i < p_rDocument.getNumPlugins(); ++i) {
    const ::SBasePlugin* l_pcPlugin = p_rDocument.getPlugin(i);
    const std::string l_sPackage = l_pcPlugin->getPackageName();
    if (l_pcPlugin->getURI() != l_sCore && p_rDocument.getPackageRequired(l_sPackage))
      return Fail(nullptr, "the model requires the SBML package '" + l_sPackage +
                               "', which is not supported (only SBML core is)");
  }
  for (int i = 0; i < p_rDocument.getNumUnknownPackages(); ++i) {
    const std::string l_sUri = p_rDocument.getUnknownPackageURI(i);
    if (p_rDocument.getPackageRequired(l_sUri))
      return Fail(nullptr, "the model requires the SBML package '" + l_sUri +
                               "', which is not supported (only SBML core is)");
  }
  if (p_rDocument.getModel() == nullptr) return Fail(nullptr, "the SBML document has no model");
  // Function definitions written out, initial assignments evaluated: both
  // keep the model's meaning.
  ::ConversionProperties l_cFunctions;
  l_cFunctions.addOption("expandFunctionDefinitions", true);
  if (p_rDocument.getModel()->getNumFunctionDefinitions() > 0 &&
      p_rDocument.convert(l_cFunctions) != LIBSBML_OPERATION_SUCCESS)
    return Fail(nullptr, "the function definitions of the model cannot be expanded");
  ::ConversionProperties l_cAssignments;
  l_cAssignments.addOption("expandInitialAssignments", true);
  if (p_rDocument.getModel()->getNumInitialAssignments() > 0)
    p_rDocument.convert(l_cAssignments);
  m_pcModel = p_rDocument.getModel();
  if (m_pcModel->getNumInitialAssignments() > 0) {
    const ::InitialAssignment* l_pcAssignment = m_pcModel->getInitialAssignment(0);
    return Fail(l_pcAssignment, "the initial assignment to '" + l_pcAssignment->getSymbol() +
                                    "' cannot be evaluated when the model is loaded");
  }
  return true;
}

bool SbmlReader::CheckConstructs() {
  const ::Model& m = *m_pcModel;
  if (m.getNumEvents() > 0)
    return Fail(m.getEvent(0), Named(m.getEvent(0), "event", 0) +
                                   ": events are not supported (the model is refused rather "
                                   "than run without them)");
  if (m.isSetConversionFactor())
    return Fail(&m, "the model's conversion factor '" + m.getConversionFactor() +
                        "' is not supported");
  for (unsigned int i = 0; i < m.getNumRules(); ++i) {
    const ::Rule* l_pcRule = m.getRule(i);
    const std::string l_sVariable = l_pcRule->getVariable();
    if (l_pcRule->isAlgebraic())
      return Fail(l_pcRule, Named(l_pcRule, "algebraic rule", i) +
                                ": algebraic rules are not supported");
    if (l_pcRule->isRate())
      return Fail(l_pcRule, "the rate rule for '" + l_sVariable + "': rate rules are not supported");
    // An assignment rule.
    if (m.getSpecies(l_sVariable) != nullptr)
      return Fail(l_pcRule, "the assignment rule for species '" + l_sVariable +
                                "': assignment rules on species are not supported");
    if (m.getCompartment(l_sVariable) != nullptr)
      return Fail(l_pcRule, "the assignment rule for compartment '" + l_sVariable +
                                "': assignment rules on compartments are not supported");
    if (m.getParameter(l_sVariable) == nullptr)
      return Fail(l_pcRule, "the assignment rule for '" + l_sVariable +
                                "': only assignment rules on parameters are supported");
    m_mAssigned[l_sVariable] = l_pcRule->getMath();
  }
  for (unsigned int i = 0; i < m.getNumReactions(); ++i) {
    const ::Reaction* l_pcReaction = m.getReaction(i);
    m_asOtherIds.insert(l_pcReaction->getId());
    if (l_pcReaction->isSetFast() && l_pcReaction->getFast())
      return Fail(l_pcReaction, Named(l_pcReaction, "reaction", i) +
                                    " is fast: fast reactions are not supported");
    for (unsigned int r = 0; r < l_pcReaction->getNumReactants() + l_pcReaction->getNumProducts(); ++r) {
      const ::SpeciesReference* l_pcReference =
          r < l_pcReaction->getNumReactants() ? l_pcReaction->getReactant(r)
                                              : l_pcReaction->getProduct(r - l_pcReaction->getNumReactants());
      if (l_pcReference->isSetId()) m_asOtherIds.insert(l_pcReference->getId());
      if (l_pcReference->isSetStoichiometryMath())
        return Fail(l_pcReference, Named(l_pcReaction, "reaction", i) + ": the stoichiometry of '" +
                                       l_pcReference->getSpecies() +
                                       "' is given by math (variable stoichiometry is not supported)");
    }
  }
  return true;
}

bool SbmlReader::ReadCompartments() {
  const ::Model& m = *m_pcModel;
  for (unsigned int i = 0; i < m.getNumCompartments(); ++i) {
    const ::Compartment* l_pcCompartment = m.getCompartment(i);
    const std::string& l_sId = l_pcCompartment->getId();
    // A compartment without dimensions has no size to speak of.
    if (l_pcCompartment->isSetSpatialDimensions() && l_pcCompartment->getSpatialDimensionsAsDouble() == 0.0)
      continue;
    if (!l_pcCompartment->isSetSize())
      return Fail(l_pcCompartment, "compartment '" + l_sId + "' has no size");
    const double l_dSize = l_pcCompartment->getSize();
    if (!std::isfinite(l_dSize) || l_dSize <= 0.0)
      return Fail(l_pcCompartment, "compartment '" + l_sId + "' has the size " +
                                       FormatDouble(l_dSize) + " (it must be greater than 0)");
    m_cNet.AddParameter(l_sId, l_dSize);
    m_mCompartments[l_sId] = l_pcCompartment;
  }
  return true;
}

bool SbmlReader::ReadSpecies() {
  const ::Model& m = *m_pcModel;
  for (unsigned int i = 0; i < m.getNumSpecies(); ++i) {
    const ::Species* l_pcSpecies = m.getSpecies(i);
    const std::string& l_sId = l_pcSpecies->getId();
    if (l_pcSpecies->isSetConversionFactor())
      return Fail(l_pcSpecies, "species '" + l_sId + "' has the conversion factor '" +
                                   l_pcSpecies->getConversionFactor() + "', which is not supported");
    double l_dAmount = 0.0;
    if (l_pcSpecies->isSetInitialAmount()) {
      l_dAmount = l_pcSpecies->getInitialAmount();
    } else if (l_pcSpecies->isSetInitialConcentration()) {
      std::map<std::string, const ::Compartment*>::const_iterator l_itCompartment =
          m_mCompartments.find(l_pcSpecies->getCompartment());
      if (l_itCompartment == m_mCompartments.end())
        return Fail(l_pcSpecies, "species '" + l_sId + "' has an initial concentration in '" +
                                     l_pcSpecies->getCompartment() + "', which has no size");
      l_dAmount = l_pcSpecies->getInitialConcentration() * l_itCompartment->second->getSize();
    } else {
      return Fail(l_pcSpecies, "species '" + l_sId + "' has no initial amount or concentration");
    }
    if (!std::isfinite(l_dAmount) || l_dAmount < 0.0)
      return Fail(l_pcSpecies, "species '" + l_sId + "' has the initial amount " +
                                   FormatDouble(l_dAmount) + " (it must be a number >= 0)");
    m_cNet.AddPlace(l_sId, l_dAmount);
    m_mSpecies[l_sId] = l_pcSpecies;
  }
  return true;
}

bool SbmlReader::ReadParameters() {
  const ::Model& m = *m_pcModel;
  for (unsigned int i = 0; i < m.getNumParameters(); ++i) {
    const ::Parameter* l_pcParameter = m.getParameter(i);
    const std::string& l_sId = l_pcParameter->getId();
    if (m_mAssigned.count(l_sId)) continue;  // written out where it is used
    if (!l_pcParameter->isSetValue())
      return Fail(l_pcParameter, "parameter '" + l_sId + "' has no value");
    const double l_dValue = l_pcParameter->getValue();
    if (!std::isfinite(l_dValue) || l_dValue < 0.0)
      return Fail(l_pcParameter, "parameter '" + l_sId + "' has the value " + FormatDouble(l_dValue) +
                                     " (the engine's parameters are numbers >= 0)");
    m_cNet.AddParameter(l_sId, l_dValue);
  }
  return true;
}

std::string SbmlReader::FreeName(const std::string& p_sWanted) const {
  auto l_fTaken = [this](const std::string& p_sName) {
    return m_cNet.FindParameter(p_sName) != kNoIndex || m_cNet.FindPlace(p_sName) != kNoIndex ||
           m_cNet.FindTransition(p_sName) != kNoIndex || m_asOtherIds.count(p_sName) > 0 ||
           m_pcModel->getParameter(p_sName) != nullptr ||
           m_pcModel->getCompartment(p_sName) != nullptr;
  };
  std::string l_sName = p_sWanted;
  for (int l_nCopy = 2; l_fTaken(l_sName); ++l_nCopy) l_sName = p_sWanted + "_" + std::to_string(l_nCopy);
  return l_sName;
}

bool SbmlReader::WriteName(const std::string& p_sName,
                           const std::map<std::string, std::string>& p_rLocal,
                           std::set<std::string>& p_rInlining, Printed& p_rOut,
                           std::string& p_rsError) const {
  std::map<std::string, std::string>::const_iterator l_itLocal = p_rLocal.find(p_sName);
  if (l_itLocal != p_rLocal.end()) {
    p_rOut = Printed{sim::WriteName(l_itLocal->second), kAtom};
    return true;
  }
  std::map<std::string, const ::Species*>::const_iterator l_itSpecies = m_mSpecies.find(p_sName);
  if (l_itSpecies != m_mSpecies.end()) {
    const ::Species& l_rSpecies = *l_itSpecies->second;
    const std::string l_sAmount = sim::WriteName(p_sName);
    std::map<std::string, const ::Compartment*>::const_iterator l_itCompartment =
        m_mCompartments.find(l_rSpecies.getCompartment());
    if (l_rSpecies.getHasOnlySubstanceUnits() || l_itCompartment == m_mCompartments.end())
      p_rOut = Printed{l_sAmount, kAtom};
    else  // the concentration, in parentheses to be read as one
      p_rOut = Printed{"(" + l_sAmount + " / " + sim::WriteName(l_itCompartment->first) + ")", kAtom};
    return true;
  }
  if (m_mCompartments.count(p_sName) || m_cNet.FindParameter(p_sName) != kNoIndex) {
    p_rOut = Printed{sim::WriteName(p_sName), kAtom};
    return true;
  }
  std::map<std::string, const ::ASTNode*>::const_iterator l_itAssigned = m_mAssigned.find(p_sName);
  if (l_itAssigned != m_mAssigned.end()) {
    if (!p_rInlining.insert(p_sName).second) {
      p_rsError = "the assignment rules of '" + p_sName + "' refer to each other in a cycle";
      return false;
    }
    MathWriter l_cWriter([&](const std::string& p_sInner, Printed& p_rInner, std::string& p_rsInner) {
      return WriteName(p_sInner, std::map<std::string, std::string>(), p_rInlining, p_rInner, p_rsInner);
    });
    if (!l_cWriter.Write(l_itAssigned->second, p_rOut, p_rsError)) return false;
    p_rInlining.erase(p_sName);
    return true;
  }
  if (m_asOtherIds.count(p_sName)) {
    p_rsError = "'" + p_sName + "', which is a reaction or a species reference, not a value";
    return false;
  }
  p_rsError = "the unknown name '" + p_sName + "'";
  return false;
}

bool SbmlReader::ReadReaction(const ::Reaction& p_rReaction) {
  const std::string& l_sId = p_rReaction.getId();
  const std::string l_sWho = "reaction '" + l_sId + "'";
  if (!p_rReaction.isSetKineticLaw() || !p_rReaction.getKineticLaw()->isSetMath())
    return Fail(&p_rReaction, l_sWho + " has no kinetic law");
  const ::KineticLaw& l_rLaw = *p_rReaction.getKineticLaw();
  // Local parameters become net parameters of their own.
  std::map<std::string, std::string> l_mLocal;
  for (unsigned int i = 0; i < l_rLaw.getNumParameters(); ++i) {
    const ::Parameter* l_pcLocal = l_rLaw.getParameter(i);
    if (!l_pcLocal->isSetValue())
      return Fail(l_pcLocal, l_sWho + ": the local parameter '" + l_pcLocal->getId() + "' has no value");
    const double l_dValue = l_pcLocal->getValue();
    if (!std::isfinite(l_dValue) || l_dValue < 0.0)
      return Fail(l_pcLocal, l_sWho + ": the local parameter '" + l_pcLocal->getId() +
                                 "' has the value " + FormatDouble(l_dValue) +
                                 " (the engine's parameters are numbers >= 0)");
    const std::string l_sName = FreeName(l_sId + "_" + l_pcLocal->getId());
    m_cNet.AddParameter(l_sName, l_dValue);
    l_mLocal[l_pcLocal->getId()] = l_sName;
  }
  std::set<std::string> l_asInlining;
  MathWriter l_cWriter([&](const std::string& p_sName, Printed& p_rOut, std::string& p_rsError) {
    return WriteName(p_sName, l_mLocal, l_asInlining, p_rOut, p_rsError);
  });
  Printed l_cForward, l_cBackward;
  std::string l_sProblem;
  bool l_bFailed = false;
  const bool l_bSplit = p_rReaction.getReversible() &&
                        l_cWriter.Split(l_rLaw.getMath(), l_cForward, l_cBackward, l_sProblem, l_bFailed);
  if (!l_bSplit && !l_bFailed) l_bFailed = !l_cWriter.Write(l_rLaw.getMath(), l_cForward, l_sProblem);
  if (l_bFailed)
    return Fail(&l_rLaw, "the kinetic law of " + l_sWho + " uses " + l_sProblem +
                             ", which is not supported");

  // A law that reads as a number or a parameter name alone would mean mass
  // action; in parentheses it stays the flux it is.
  auto l_fFunction = [this](const Printed& p_rPrinted) {
    Transition l_cProbe;
    m_cNet.SetRate(l_cProbe, p_rPrinted.text);
    return l_cProbe.rateKind == RateKind::Function ? p_rPrinted.text : "(" + p_rPrinted.text + ")";
  };
  const std::string l_sName = p_rReaction.isSetName() ? Trim(p_rReaction.getName()) : std::string();
  const std::size_t l_nForward = m_cNet.AddFunctionTransition(l_sId, l_fFunction(l_cForward));
  if (!l_sName.empty()) m_cNet.transitions[l_nForward].name = l_sName;
  std::size_t l_nBackward = kNoIndex;
  if (l_bSplit) {
    l_nBackward = m_cNet.AddFunctionTransition(FreeName(l_sId + "_reverse"), l_fFunction(l_cBackward));
    m_cNet.transitions[l_nBackward].name = (l_sName.empty() ? l_sId : l_sName) + " (reverse)";
  }
  // Arcs: species that reactions change; boundary and constant species
  // are only read.
  for (unsigned int r = 0; r < p_rReaction.getNumReactants() + p_rReaction.getNumProducts(); ++r) {
    const bool l_bReactant = r < p_rReaction.getNumReactants();
    const ::SpeciesReference* l_pcReference =
        l_bReactant ? p_rReaction.getReactant(r) : p_rReaction.getProduct(r - p_rReaction.getNumReactants());
    const std::string& l_sSpecies = l_pcReference->getSpecies();
    std::map<std::string, const ::Species*>::const_iterator l_itSpecies = m_mSpecies.find(l_sSpecies);
    if (l_itSpecies == m_mSpecies.end())
      return Fail(l_pcReference, l_sWho + " refers to the unknown species '" + l_sSpecies + "'");
    if (m_pcModel->getLevel() > 2 && !l_pcReference->isSetStoichiometry())
      return Fail(l_pcReference, l_sWho + ": the stoichiometry of '" + l_sSpecies + "' is not set");
    const double l_dWeight = l_pcReference->getStoichiometry();
    if (!std::isfinite(l_dWeight) || l_dWeight < 0.0)
      return Fail(l_pcReference, l_sWho + ": the stoichiometry of '" + l_sSpecies + "' is " +
                                     FormatDouble(l_dWeight) + " (it must be a number >= 0)");
    if (l_itSpecies->second->getBoundaryCondition() || l_itSpecies->second->getConstant()) continue;
    const std::string& l_sTransition = m_cNet.transitions[l_nForward].id;
    m_cNet.AddArc(l_sSpecies, l_sTransition, l_dWeight, l_bReactant);
    if (l_nBackward != kNoIndex)
      m_cNet.AddArc(l_sSpecies, m_cNet.transitions[l_nBackward].id, l_dWeight, !l_bReactant);
  }
  return true;
}

bool SbmlReader::ReadReactions() {
  for (unsigned int i = 0; i < m_pcModel->getNumReactions(); ++i)
    if (!ReadReaction(*m_pcModel->getReaction(i))) return false;
  return true;
}

NetLoadResult SbmlReader::Read(const std::string& p_sDocument) {
  NetLoadResult l_cResult;
  // libsbml reads no byte order mark.
  const std::size_t l_nStart = p_sDocument.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  std::unique_ptr<::SBMLDocument> l_pcDocument(::readSBMLFromString(p_sDocument.c_str() + l_nStart));
  if (!l_pcDocument) {
    l_cResult.error = m_sSource + ": not an SBML document";
    return l_cResult;
  }
  if (CheckDocument(*l_pcDocument) && CheckConstructs() && ReadCompartments() && ReadSpecies() &&
      ReadParameters() && ReadReactions()) {
    m_cNet.id = m_pcModel->isSetId() ? m_pcModel->getId() : std::string("model");
    m_cNet.name = m_pcModel->isSetName() ? Trim(m_pcModel->getName()) : m_cNet.id;
    m_cNet.source = m_sSource;
    const std::string l_sProblem = m_cNet.Validate();
    if (!l_sProblem.empty()) Fail(nullptr, l_sProblem);
  }
  if (!m_sError.empty()) {
    l_cResult.error = m_sError;
    return l_cResult;
  }
  l_cResult.ok = true;
  l_cResult.net = std::move(m_cNet);
  return l_cResult;
}

}  // namespace

NetLoadResult LoadSbmlText(const std::string& p_sDocument, const std::string& p_sSourceName) {
  try {
    SbmlReader l_cReader(p_sSourceName);
    return l_cReader.Read(p_sDocument);
  } catch (const std::exception& l_rError) {
    NetLoadResult l_cResult;
    l_cResult.error = p_sSourceName + ": the SBML model cannot be read (" + l_rError.what() + ")";
    return l_cResult;
  }
}

NetLoadResult LoadSbmlFile(const std::string& p_sPath) { return LoadFileWith(p_sPath, LoadSbmlText); }

}  // namespace sim
}  // namespace quor
